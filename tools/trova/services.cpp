#include "services.h"

#include "index/standard_services.h"

namespace trovara::cli {

index::IndexServices indexServices()
{
    return index::standardServices();
}

}  // namespace trovara::cli
