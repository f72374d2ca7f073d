#include "index/live/engine.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <future>
#include <mutex>
#include <poll.h>
#include <set>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace trovara::index {

namespace {

Nanoseconds wallNow()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

std::vector<PathChange> toPathChanges(const std::vector<FileChange>& changes)
{
    std::vector<PathChange> paths;
    paths.reserve(changes.size());
    for (const FileChange& change : changes) {
        switch (change.kind) {
        case FileChange::Kind::Created:
        case FileChange::Kind::ContentChanged:
        case FileChange::Kind::AttributesChanged:
            paths.push_back({PathChange::Kind::Changed, change.path});
            break;
        case FileChange::Kind::Deleted:
            paths.push_back({PathChange::Kind::Removed, change.path});
            break;
        case FileChange::Kind::Moved:
            paths.push_back({PathChange::Kind::Removed, change.from});
            paths.push_back({PathChange::Kind::Changed, change.path});
            break;
        case FileChange::Kind::FolderChanged:
            paths.push_back({PathChange::Kind::FolderChanged, change.path});
            break;
        case FileChange::Kind::TreeMayHaveChanged:
            paths.push_back({PathChange::Kind::TreeChanged, change.path});
            break;
        }
    }
    return paths;
}

class IndexEngine::Impl {
public:
    Impl(std::unique_ptr<LiveIndex> live, EngineOptions options)
        : m_live(std::move(live))
        , m_options(std::move(options))
    {
    }

    ~Impl()
    {
        if (m_wake >= 0) {
            ::close(m_wake);
        }
    }

    Expected<void> begin()
    {
        m_wake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (m_wake < 0) {
            return Failure{Failure::Kind::Io, std::string("cannot make an event descriptor: ") + std::strerror(errno)};
        }
        if (m_options.watch) {
            Expected<Watcher> watcher = Watcher::create(m_options.watcher);
            if (!watcher) {
                return watcher.error();
            }
            m_watcher.emplace(std::move(watcher.value()));
        }
        m_thread = std::thread([this] { run(); });
        return {};
    }

    void finish()
    {
        m_stopping.store(true);
        wake();
        if (m_thread.joinable()) {
            m_thread.join();
        }
        if (m_live->hasUnsavedChanges()) {
            (void)m_live->checkpoint();
        }
    }

    void post(std::function<void(LiveIndex&)> work)
    {
        {
            std::lock_guard lock(m_tasksMutex);
            m_tasks.push_back([this, work = std::move(work)] { work(*m_live); });
        }
        wake();
    }

    void runOnEngine(const std::function<void(LiveIndex&)>& work)
    {
        if (std::this_thread::get_id() == m_thread.get_id()) {
            work(*m_live);
            return;
        }
        std::promise<void> done;
        std::future<void> finished = done.get_future();
        {
            std::lock_guard lock(m_tasksMutex);
            m_tasks.push_back([&] {
                work(*m_live);
                done.set_value();
            });
        }
        wake();
        finished.wait();
    }

    // Engine thread from here on.

    Expected<UpdateReport> addRoots(const std::vector<std::string>& folders, const Index::Options& options)
    {
        // Watched before they are crawled, so that nothing changing during
        // the crawl is missed.
        for (const std::string& folder : folders) {
            Expected<std::string> canonical = Index::canonicalFolder(folder);
            if (!canonical) {
                return canonical.error();
            }
            watchNewRoot(*canonical);
        }
        Expected<UpdateReport> report = m_live->addRoots(folders, crawlOptions(options));
        startImports();
        syncWatches();
        recordWatcherFigures();
        return report;
    }

    Expected<UpdateReport> update(const Index::Options& options)
    {
        Expected<UpdateReport> report = m_live->update(crawlOptions(options));
        startImports();
        return report;
    }

    Expected<void> removeRoots(const std::vector<std::string>& folders)
    {
        Expected<void> removed = m_live->removeRoots(folders);
        syncWatches();
        recordWatcherFigures();
        return removed;
    }

    Expected<UpdateReport> rebuild(const Index::Options& options)
    {
        Expected<UpdateReport> report = m_live->rebuild(crawlOptions(options));
        startImports();
        syncWatches();
        return report;
    }

    void postUrgent(std::function<void(LiveIndex*)> work)
    {
        {
            std::lock_guard lock(m_tasksMutex);
            m_urgent.push_back(std::move(work));
        }
        wake();
    }

    // Imports a few files, and shows what was imported now and then.
    void importStep()
    {
        Expected<std::size_t> waiting = m_live->importSome(kImportSlice, &m_stopping);
        if (!waiting) {
            tell("cannot import files' content: " + waiting.error().message);
            m_importing = false;
        } else if (*waiting == 0) {
            m_importing = false;
        }
        const auto now = std::chrono::steady_clock::now();
        if (!m_importing || now >= m_lastImportPublished + m_options.importPublishInterval) {
            if (Expected<void> published = m_live->publishImports(); !published) {
                tell("cannot show what was imported: " + published.error().message);
            }
            m_lastImportPublished = now;
        }
        recordImportFigures();
    }

    // Everything that waits, the imports included (for sync()).
    void finishAll()
    {
        step();
        while (m_importing && !m_stopping.load()) {
            importStep();
        }
    }

    // The caller's options for a crawl the engine runs: contents are
    // imported afterwards in the background, and the crawl stops with the
    // engine; urgent work is done wherever it stands.
    Index::Options crawlOptions(const Index::Options& given)
    {
        Index::Options options = given;
        options.importContent = false;
        if (!options.cancel) {
            options.cancel = &m_stopping;
        }
        options.progress = [this, progress = given.progress](const UpdateProgress& state) {
            if (progress) {
                progress(state);
            }
            runUrgent(nullptr);
        };
        return options;
    }

    void startImports()
    {
        if (m_options.importContent && m_live->services().importer) {
            m_importing = true;
            m_lastImportPublished = std::chrono::steady_clock::now();
        }
    }

    void recordImportFigures()
    {
        std::lock_guard lock(m_statisticsMutex);
        m_statistics.importsWaiting = m_live->importsWaiting();
        m_statistics.importsDone = m_live->importsDone();
    }

    void applyWatcherChanges()
    {
        if (!m_watcher) {
            return;
        }
        std::vector<FileChange> changes = m_watcher->readChanges(wallNow());
        std::vector<FileChange> due = m_watcher->pollDue(wallNow());
        changes.insert(changes.end(), std::make_move_iterator(due.begin()), std::make_move_iterator(due.end()));
        for (const WatchProblem& problem : m_watcher->takeProblems()) {
            tell(problem.message);
        }
        if (changes.empty()) {
            return;
        }
        const std::vector<PathChange> paths = toPathChanges(changes);
        Expected<IndexChanges> applied = m_live->apply(paths);
        std::lock_guard lock(m_statisticsMutex);
        if (applied) {
            ++m_statistics.batchesApplied;
            m_statistics.changesApplied += paths.size();
        } else {
            ++m_statistics.failures;
            tell("cannot apply changes: " + applied.error().message);
            // Whatever was missed is found by crawling again.
            m_recrawl = true;
        }
        m_lastChange = std::chrono::steady_clock::now();
    }

    // Everything that is due: the watcher's changes, a crawl after a failed
    // batch, the snapshot after a quiet period.
    void step()
    {
        applyWatcherChanges();
        recordWatcherFigures();
        if (m_recrawl) {
            m_recrawl = false;
            if (Expected<UpdateReport> updated = update({}); !updated) {
                tell("cannot bring the index up to date: " + updated.error().message);
            }
        }
        if (m_live->hasUnsavedChanges()
            && std::chrono::steady_clock::now() >= m_lastChange + m_options.checkpointDelay) {
            if (Expected<void> saved = m_live->checkpoint(); !saved) {
                tell("cannot write the catalogue: " + saved.error().message);
                m_lastChange = std::chrono::steady_clock::now();  // try again later
            }
        }
    }

    EngineStatistics statistics()
    {
        std::lock_guard lock(m_statisticsMutex);
        return m_statistics;
    }

    // Engine thread: the watcher's figures, for statistics().
    void recordWatcherFigures()
    {
        if (!m_watcher) {
            return;
        }
        const WatcherStatistics figures = m_watcher->statistics();
        std::lock_guard lock(m_statisticsMutex);
        m_statistics.watcher = figures;
    }

    LiveIndex& live() { return *m_live; }

private:
    void wake()
    {
        const std::uint64_t one = 1;
        (void)!::write(m_wake, &one, sizeof one);
    }

    void tell(const std::string& message)
    {
        if (m_options.problem) {
            m_options.problem(message);
        }
    }

    std::vector<std::string> excluded() const { return {m_live->index().directory()}; }

    void watchNewRoot(const std::string& root)
    {
        if (!m_watcher) {
            return;
        }
        for (const std::string& watched : m_watched) {
            if (isPathAtOrBelow(root, watched)) {
                return;  // already watched
            }
        }
        // A root that holds watched roots takes their place.
        for (auto it = m_watched.begin(); it != m_watched.end();) {
            if (isPathAtOrBelow(*it, root)) {
                (void)m_watcher->unwatchTree(*it);
                it = m_watched.erase(it);
            } else {
                ++it;
            }
        }
        Expected<WatchTreeReport> watched = m_watcher->watchTree(root, excluded(), wallNow());
        if (watched) {
            m_watched.insert(root);
        } else {
            tell("cannot watch " + root + ": " + watched.error().message);
        }
    }

    // Watches exactly the index's roots.
    void syncWatches()
    {
        if (!m_watcher) {
            return;
        }
        const std::vector<std::string> roots = m_live->roots();
        const std::set<std::string> wanted(roots.begin(), roots.end());
        for (auto it = m_watched.begin(); it != m_watched.end();) {
            if (!wanted.count(*it)) {
                (void)m_watcher->unwatchTree(*it);
                it = m_watched.erase(it);
            } else {
                ++it;
            }
        }
        for (const std::string& root : wanted) {
            if (!m_watched.count(root)) {
                watchNewRoot(root);
            }
        }
    }

    // Urgent work: with the index between operations, without it (nullptr)
    // from inside one.
    void runUrgent(LiveIndex* live)
    {
        for (;;) {
            std::function<void(LiveIndex*)> task;
            {
                std::lock_guard lock(m_tasksMutex);
                if (m_urgent.empty()) {
                    return;
                }
                task = std::move(m_urgent.front());
                m_urgent.pop_front();
            }
            task(live);
        }
    }

    void runTasks()
    {
        runUrgent(m_live.get());
        for (;;) {
            std::function<void()> task;
            {
                std::lock_guard lock(m_tasksMutex);
                if (m_tasks.empty()) {
                    return;
                }
                task = std::move(m_tasks.front());
                m_tasks.pop_front();
            }
            task();
        }
    }

    int timeoutMilliseconds() const
    {
        long long timeout = -1;
        if (m_watcher) {
            const Nanoseconds deadline = m_watcher->nextDeadline();
            if (deadline != std::numeric_limits<Nanoseconds>::max()) {
                timeout = std::max<long long>(0, (deadline - wallNow()) / 1'000'000 + 1);
            }
        }
        if (m_importing) {
            return 0;
        }
        if (m_live->hasUnsavedChanges()) {
            const auto due = m_lastChange + m_options.checkpointDelay;
            const long long wait = std::max<long long>(
                0, std::chrono::duration_cast<std::chrono::milliseconds>(due - std::chrono::steady_clock::now()).count()
                       + 1);
            timeout = timeout < 0 ? wait : std::min(timeout, wait);
        }
        return static_cast<int>(std::min<long long>(timeout, 3'600'000));
    }

    void run()
    {
        // Queries see the snapshot as it is meanwhile.
        if (Expected<void> prepared = m_live->prepare(); !prepared) {
            tell("cannot read the index: " + prepared.error().message);
        }
        syncWatches();
        recordWatcherFigures();
        if (m_options.catchUp && !m_stopping.load()) {
            if (Expected<UpdateReport> updated = update({}); !updated) {
                tell("cannot bring the index up to date: " + updated.error().message);
            }
        } else {
            startImports();  // whatever an earlier run left waiting
        }
        {
            std::lock_guard lock(m_statisticsMutex);
            m_statistics.caughtUp = true;
        }
        m_lastChange = std::chrono::steady_clock::now();
        while (!m_stopping.load()) {
            pollfd fds[2] = {{m_wake, POLLIN, 0}, {m_watcher ? m_watcher->fd() : -1, POLLIN, 0}};
            const int ready = ::poll(fds, m_watcher ? 2 : 1, timeoutMilliseconds());
            if (ready < 0 && errno != EINTR) {
                tell(std::string("cannot wait for changes: ") + std::strerror(errno));
            }
            std::uint64_t count = 0;
            (void)!::read(m_wake, &count, sizeof count);
            if (m_stopping.load()) {
                break;
            }
            step();
            runTasks();
            if (m_importing && !m_stopping.load()) {
                importStep();
            }
        }
        runTasks();  // nobody waits forever for a task that came too late
    }

    std::unique_ptr<LiveIndex> m_live;
    EngineOptions m_options;
    std::optional<Watcher> m_watcher;
    std::set<std::string> m_watched;
    int m_wake = -1;
    std::thread m_thread;
    std::atomic<bool> m_stopping{false};
    bool m_recrawl = false;
    std::chrono::steady_clock::time_point m_lastChange;
    bool m_importing = false;
    std::chrono::steady_clock::time_point m_lastImportPublished;
    // Files imported in one step between other work.
    static constexpr std::size_t kImportSlice = 64;

    std::mutex m_tasksMutex;
    std::deque<std::function<void()>> m_tasks;
    std::deque<std::function<void(LiveIndex*)>> m_urgent;

    std::mutex m_statisticsMutex;
    EngineStatistics m_statistics;
};

Expected<std::unique_ptr<IndexEngine>> IndexEngine::start(const std::string& directory, IndexServices services,
                                                          EngineOptions options, std::vector<std::string>* notices)
{
    Expected<std::unique_ptr<LiveIndex>> live = LiveIndex::open(directory, std::move(services), options.waitForWriter, notices);
    if (!live) {
        return live.error();
    }
    auto impl = std::make_unique<Impl>(std::move(live.value()), std::move(options));
    if (auto begun = impl->begin(); !begun) {
        return begun.error();
    }
    return std::unique_ptr<IndexEngine>(new IndexEngine(std::move(impl)));
}

IndexEngine::IndexEngine(std::unique_ptr<Impl> impl)
    : m_impl(std::move(impl))
{
}

IndexEngine::~IndexEngine()
{
    m_impl->finish();
}

Expected<UpdateReport> IndexEngine::addRoots(const std::vector<std::string>& folders, const Index::Options& options)
{
    Expected<UpdateReport> report = Failure{Failure::Kind::Interrupted, "the index engine stopped"};
    runOnEngine([&](LiveIndex&) { report = m_impl->addRoots(folders, options); });
    return report;
}

Expected<void> IndexEngine::removeRoots(const std::vector<std::string>& folders)
{
    Expected<void> removed = Failure{Failure::Kind::Interrupted, "the index engine stopped"};
    runOnEngine([&](LiveIndex&) { removed = m_impl->removeRoots(folders); });
    return removed;
}

Expected<UpdateReport> IndexEngine::rebuild(const Index::Options& options)
{
    Expected<UpdateReport> report = Failure{Failure::Kind::Interrupted, "the index engine stopped"};
    runOnEngine([&](LiveIndex&) { report = m_impl->rebuild(options); });
    return report;
}

void IndexEngine::post(std::function<void(LiveIndex&)> work)
{
    m_impl->post(std::move(work));
}

Expected<UpdateReport> IndexEngine::addRootsOnEngine(const std::vector<std::string>& folders,
                                                     const Index::Options& options)
{
    return m_impl->addRoots(folders, options);
}

Expected<void> IndexEngine::removeRootsOnEngine(const std::vector<std::string>& folders)
{
    return m_impl->removeRoots(folders);
}

Expected<UpdateReport> IndexEngine::rebuildOnEngine(const Index::Options& options)
{
    return m_impl->rebuild(options);
}

Expected<UpdateReport> IndexEngine::update(const Index::Options& options)
{
    Expected<UpdateReport> report = Failure{Failure::Kind::Interrupted, "the index engine stopped"};
    runOnEngine([&](LiveIndex&) { report = m_impl->update(options); });
    return report;
}

Expected<UpdateReport> IndexEngine::updateOnEngine(const Index::Options& options)
{
    return m_impl->update(options);
}

void IndexEngine::postUrgent(std::function<void(LiveIndex*)> work)
{
    m_impl->postUrgent(std::move(work));
}

Expected<IndexStatus> IndexEngine::status()
{
    Expected<IndexStatus> status = Failure{Failure::Kind::Interrupted, "the index engine stopped"};
    runOnEngine([&](LiveIndex& live) { status = live.index().status(); });
    return status;
}

void IndexEngine::runOnEngine(const std::function<void(LiveIndex&)>& work)
{
    m_impl->runOnEngine(work);
}

void IndexEngine::sync()
{
    runOnEngine([this](LiveIndex&) { m_impl->finishAll(); });
}

EngineStatistics IndexEngine::statistics()
{
    return m_impl->statistics();
}

std::shared_ptr<const IndexView> IndexEngine::currentView() const
{
    return m_impl->live().view();
}

std::vector<std::string> IndexEngine::indexedRoots() const
{
    return m_impl->live().roots();
}

const IndexServices& IndexEngine::indexServices() const
{
    return m_impl->live().services();
}

int IndexEngine::subscribeToChanges(std::function<void(const IndexChanges&)> subscriber)
{
    return m_impl->live().subscribe(std::move(subscriber));
}

void IndexEngine::unsubscribeFromChanges(int id)
{
    m_impl->live().unsubscribe(id);
}

}  // namespace trovara::index
