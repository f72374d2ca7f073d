// How trova's commands reach the daemon of their index, when one runs.
#pragma once

#include "commands.h"

#include "daemon/client.h"

#include <memory>

namespace trovara::cli {

// A connection to the daemon serving the index, or nullptr when none runs
// (then `failed` tells whether a daemon answered but could not be used; the
// message has been printed).
std::unique_ptr<daemon::Connection> connectToDaemon(const GlobalOptions& global, bool* failed);

}  // namespace trovara::cli
