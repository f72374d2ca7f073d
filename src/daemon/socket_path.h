// Where the daemon of an index listens: a socket in the user's runtime
// folder ($XDG_RUNTIME_DIR/trovara/, else /tmp/trovara-UID/), one per index
// folder, so that daemons of different indexes never meet.
#pragma once

#include <string>

namespace trovara::daemon {

std::string runtimeFolder();
std::string socketPathFor(const std::string& indexDirectory);

// Makes the runtime folder, private to the user; fails (with a message)
// when it exists with other owners or permissions.
bool makeRuntimeFolder(const std::string& folder, std::string* error);

}  // namespace trovara::daemon
