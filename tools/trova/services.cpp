#include "services.h"

#include "index/fs/recently_used.h"
#include "index/import/helper_importer.h"
#include "index/fs/type_tree.h"
#include "index/text/folding.h"

#include <memory>

namespace trovara::cli {

index::IndexServices indexServices()
{
    index::IndexServices services;
    services.fold = [](std::string_view name) { return index::text::foldForCatalogue(name); };
    services.types = [](const std::string& mime) {
        return index::describeMimeType(mime.empty() ? std::string("application/octet-stream") : mime);
    };
    auto recent = std::make_shared<index::RecentlyUsed>(index::RecentlyUsed::load());
    services.lastUsed = [recent](const std::string& path, const index::FileInfo& info) {
        return recent->lastUsedDate(path, info).value_or(0);
    };
    services.importer = std::make_shared<index::HelperImporter>(index::HelperImporter::defaultOptions());
    return services;
}

}  // namespace trovara::cli
