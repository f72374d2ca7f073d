#include "index/standard_services.h"

#include "index/fs/recently_used.h"
#include "index/fs/type_tree.h"
#include "index/text/folding.h"

#include <memory>

namespace trovara::index {

IndexServices standardServices()
{
    IndexServices services;
    services.fold = [](std::string_view name) { return text::foldForCatalogue(name); };
    services.types = [](const std::string& mime) {
        return describeMimeType(mime.empty() ? std::string("application/octet-stream") : mime);
    };
    auto recent = std::make_shared<RecentlyUsed>(RecentlyUsed::load());
    services.lastUsed = [recent](const std::string& path, const FileInfo& info) {
        return recent->lastUsedDate(path, info).value_or(0);
    };
    return services;
}

}  // namespace trovara::index
