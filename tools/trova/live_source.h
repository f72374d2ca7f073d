// Where live searches of `trova` get their index: the daemon when it runs,
// otherwise an engine of their own (which then writes the index while they
// run).
#pragma once

#include "commands.h"

#include "index/live/live_query.h"

#include <memory>

namespace trovara::cli {

// An index to run queries on, or an error already printed. Queries that
// follow changes (`followChanges`) get the daemon, else an engine of their
// own; those that run once get the daemon, else the index as it is.
std::unique_ptr<index::QuerySource> openLiveSource(const GlobalOptions& global, bool followChanges);

// `trova find -live`: the results, then "+ PATH", "- PATH", "~ PATH" for
// every change, until interrupted.
int findLive(const GlobalOptions& global, const std::string& query, const std::vector<std::string>& scopes, bool nul);

}  // namespace trovara::cli
