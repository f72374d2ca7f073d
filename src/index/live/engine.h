// The index at work: one thread owns the live index and the watcher,
// applies what the watcher reports as it comes, writes the catalogue
// snapshot when things have been quiet for a while, and runs the operations
// asked of it (add, remove or crawl roots again) between changes.
//
// It answers at once: start() returns as soon as the index is locked and
// its snapshot mapped, and queries see the index as it is while the engine
// catches up (reads the folders, crawls the roots for what changed while
// nobody watched) in the background; what the catch-up finds reaches
// subscribers as changes. Root operations return once names, sizes, dates
// and kinds are searchable; what files contain is imported afterwards, a
// few files at a time between other changes, and reaches searches as it
// comes (every few seconds, and when all is done).
//
// The daemon runs one engine; without the daemon, a program that needs
// live results runs its own (the embedded engine). Either way it is the
// index's one writer (see LiveIndex).
//
// Thread safety: every member may be called from any thread. Subscribers
// and queries hear of changes on the engine's thread.
#pragma once

#include "index/expected.h"
#include "index/fs/watcher.h"
#include "index/live/live_index.h"
#include "index/live/live_query.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace trovara::index {

struct EngineOptions {
    WatcherOptions watcher;
    // Watch the roots (off: changes come only through operations).
    bool watch = true;
    // Crawl every root again at start, for what changed while nobody watched.
    bool catchUp = true;
    // How long changes must have been quiet before the snapshot is written.
    std::chrono::milliseconds checkpointDelay{30000};
    // Import files' content in the background (when the services have an
    // importer).
    bool importContent = true;
    // How often imports done in the background reach searches.
    std::chrono::milliseconds importPublishInterval{10000};
    // Told what went wrong on the engine's thread (an unreadable folder, a
    // failed batch, the watch limit reached); the engine goes on.
    std::function<void(const std::string& message)> problem;
    // When another process is updating the index: wait until it is done
    // (true) or fail at once with a Busy failure (false).
    bool waitForWriter = false;
};

struct EngineStatistics {
    WatcherStatistics watcher;
    std::uint64_t batchesApplied = 0;
    std::uint64_t changesApplied = 0;
    std::uint64_t failures = 0;
    bool caughtUp = false;  // the start-up crawl is done
    // Files whose content waits to be imported, and those imported so far
    // of the current round.
    std::uint64_t importsWaiting = 0;
    std::uint64_t importsDone = 0;
};

class IndexEngine final : public QuerySource {
public:
    // Opens the index for writing (failing when another process writes it)
    // and starts the engine's thread.
    static Expected<std::unique_ptr<IndexEngine>> start(const std::string& directory, IndexServices services,
                                                        EngineOptions options = {},
                                                        std::vector<std::string>* notices = nullptr);
    // Stops the thread; the snapshot is written when changes are unsaved.
    ~IndexEngine() override;
    IndexEngine(const IndexEngine&) = delete;
    IndexEngine& operator=(const IndexEngine&) = delete;

    // The root operations, run on the engine's thread; they return when done.
    Expected<UpdateReport> addRoots(const std::vector<std::string>& folders, const Index::Options& options = {});
    Expected<void> removeRoots(const std::vector<std::string>& folders);
    Expected<UpdateReport> update(const Index::Options& options = {});
    Expected<UpdateReport> rebuild(const Index::Options& options = {});
    Expected<IndexStatus> status();

    // Runs `work` on the engine's thread and returns when it has run.
    void runOnEngine(const std::function<void(LiveIndex&)>& work);
    // Runs `work` on the engine's thread later; returns at once. The root
    // operations above, as they are run for others (the daemon's clients).
    void post(std::function<void(LiveIndex&)> work);
    Expected<UpdateReport> addRootsOnEngine(const std::vector<std::string>& folders, const Index::Options& options);
    Expected<void> removeRootsOnEngine(const std::vector<std::string>& folders);
    Expected<UpdateReport> rebuildOnEngine(const Index::Options& options);
    Expected<UpdateReport> updateOnEngine(const Index::Options& options);

    // Runs `work` soon, without waiting behind a long operation: on the
    // engine's thread between operations (with the live index), or, while a
    // crawl is under way, wherever the crawl stands (with nullptr; it must
    // then not touch the index). Returns at once.
    void postUrgent(std::function<void(LiveIndex* live)> work);

    // Returns once everything the watcher has reported by now, and anything
    // due (the snapshot after a quiet period, the imports waiting), has been
    // done, and subscribers told.
    void sync();

    // As of the engine's last step; never waits for the engine.
    EngineStatistics statistics();

    // QuerySource
    std::shared_ptr<const IndexView> currentView() const override;
    std::vector<std::string> indexedRoots() const override;
    const IndexServices& indexServices() const override;
    int subscribeToChanges(std::function<void(const IndexChanges&)> subscriber) override;
    void unsubscribeFromChanges(int id) override;

    class Impl;

private:
    explicit IndexEngine(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

// The watcher's report in the live index's terms.
std::vector<PathChange> toPathChanges(const std::vector<FileChange>& changes);

}  // namespace trovara::index
