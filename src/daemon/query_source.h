// Where a search gets its index: the daemon serving the index folder when
// one runs, otherwise an index engine in this process (which then keeps the
// index current while it lives). The command-line tool and the application
// both choose this way, so a search answers the same either way.
#pragma once

#include "index/expected.h"
#include "index/live/live_query.h"
#include "index/standard_services.h"

#include <functional>
#include <memory>
#include <string>

namespace trovara::daemon {

struct QuerySourceOptions {
    // Messages worth showing a person that do not stop the search (a
    // daemon's notice, a folder the in-process engine could not read).
    std::function<void(const std::string& message)> notice;
    // Never use the daemon (the in-process engine alone).
    bool embeddedOnly = false;
    // Queries follow changes; when off (a search that runs once), without a
    // daemon the index is read as it is, with no engine of its own (no
    // writer's lock, no watching, no catch-up).
    bool followChanges = true;
};

// An open index to run live queries on, or why there is none. A daemon
// that answers but cannot be used is an error, not a reason to fall back:
// two engines must not write one index.
index::Expected<std::unique_ptr<index::QuerySource>> openQuerySource(const std::string& indexDirectory,
                                                                     const index::IndexServices& services,
                                                                     const QuerySourceOptions& options = {});

}  // namespace trovara::daemon
