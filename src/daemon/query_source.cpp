#include "daemon/query_source.h"

#include "daemon/client.h"
#include "daemon/remote_source.h"
#include "index/live/engine.h"

namespace trovara::daemon {

index::Expected<std::unique_ptr<index::QuerySource>> openQuerySource(const std::string& indexDirectory,
                                                                     const index::IndexServices& services,
                                                                     const QuerySourceOptions& options)
{
    if (!options.embeddedOnly) {
        index::Expected<std::unique_ptr<RemoteIndexSource>> remote = RemoteIndexSource::open(indexDirectory, services);
        if (remote) {
            if (options.notice) {
                remote.value()->setNoticeHandler(options.notice);
            }
            return std::unique_ptr<index::QuerySource>(std::move(remote.value()));
        }
        if (!isNoDaemon(remote.error())) {
            return remote.error();
        }
    }
    if (!options.followChanges) {
        index::Expected<std::unique_ptr<index::SnapshotSource>> snapshot =
            index::SnapshotSource::open(indexDirectory, services);
        if (!snapshot) {
            return snapshot.error();
        }
        return std::unique_ptr<index::QuerySource>(std::move(snapshot.value()));
    }
    index::EngineOptions engineOptions;
    engineOptions.problem = options.notice;
    index::Expected<std::unique_ptr<index::IndexEngine>> engine =
        index::IndexEngine::start(indexDirectory, services, engineOptions);
    if (!engine) {
        return engine.error();
    }
    return std::unique_ptr<index::QuerySource>(std::move(engine.value()));
}

}  // namespace trovara::daemon
