// What a search scope stands for on disk. A scope is a folder, or one of
// the named scopes that a search document stores by name:
//   "kMDQueryScopeHome"     the home folder,
//   "kMDQueryScopeComputer" every local, non-virtual mount plus home,
//   "kMDQueryScopeNetwork"  every mounted network file system.
// Live queries, `trova find -onlyin` and the application resolve scopes
// here, so a scope means the same everywhere.
#pragma once

#include "index/expected.h"

#include <string>
#include <vector>

namespace trovara::index {

// Whether `scope` is one of the named scopes.
bool isNamedScope(const std::string& scope);

// The canonical folders of one scope (a named scope may stand for none),
// or why it cannot be searched (a folder that does not exist).
Expected<std::vector<std::string>> scopeFolders(const std::string& scope);

// The folders of several scopes, in order (duplicates kept).
Expected<std::vector<std::string>> scopeFolders(const std::vector<std::string>& scopes);

}  // namespace trovara::index
