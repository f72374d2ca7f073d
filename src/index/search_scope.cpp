#include "index/search_scope.h"

#include "index/fs/mounts.h"
#include "index/index.h"

#include <optional>

namespace trovara::index {

namespace {

std::optional<NamedScope> namedScope(const std::string& scope)
{
    if (scope == "kMDQueryScopeHome") {
        return NamedScope::UserHome;
    }
    if (scope == "kMDQueryScopeComputer") {
        return NamedScope::LocalComputer;
    }
    if (scope == "kMDQueryScopeNetwork") {
        return NamedScope::Network;
    }
    return std::nullopt;
}

}  // namespace

bool isNamedScope(const std::string& scope)
{
    return namedScope(scope).has_value();
}

Expected<std::vector<std::string>> scopeFolders(const std::string& scope)
{
    if (std::optional<NamedScope> named = namedScope(scope)) {
        Expected<MountTable> mounts = MountTable::current();
        if (!mounts) {
            return mounts.error();
        }
        return mounts->scopeFolders(*named, homeFolder());
    }
    Expected<std::string> folder = Index::canonicalFolder(scope);
    if (!folder) {
        return folder.error();
    }
    return std::vector<std::string>{std::move(*folder)};
}

Expected<std::vector<std::string>> scopeFolders(const std::vector<std::string>& scopes)
{
    std::vector<std::string> folders;
    for (const std::string& scope : scopes) {
        Expected<std::vector<std::string>> one = scopeFolders(scope);
        if (!one) {
            return one.error();
        }
        for (std::string& folder : *one) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
}

}  // namespace trovara::index
