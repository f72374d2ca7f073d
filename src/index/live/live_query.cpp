#include "index/live/live_query.h"

#include <sys/stat.h>

#include "index/crawl_search.h"
#include "index/fs/mounts.h"
#include "index/search_scope.h"
#include "index/query/evaluator.h"
#include "index/query/parser.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <unordered_map>
#include <unordered_set>

namespace trovara::index {

Expected<std::unique_ptr<SnapshotSource>> SnapshotSource::open(const std::string& directory, IndexServices services)
{
    std::unique_ptr<SnapshotSource> source(new SnapshotSource);
    source->m_services = std::move(services);
    struct stat st {};
    if (::stat((directory + "/index.db").c_str(), &st) != 0) {
        return source;  // no index yet: nothing in it
    }
    Expected<std::shared_ptr<const Catalogue>> catalogue = Index::catalogue(directory, source->m_services);
    if (!catalogue) {
        return catalogue.error();
    }
    for (const ItemIndex root : catalogue.value()->roots()) {
        source->m_roots.push_back(catalogue.value()->path(root));
    }
    source->m_view = std::make_shared<IndexView>(catalogue.value());
    return source;
}

namespace {

using Clock = std::chrono::steady_clock;

// What one batch of index changes means for one query.
struct Delta {
    bool everything = false;
    std::vector<std::string> removed;    // gone from the index
    std::vector<ItemRef> matched;        // added or changed, and matching
    std::vector<std::string> unmatched;  // changed, and no longer matching
};

}  // namespace

struct LiveQuery::State : std::enable_shared_from_this<State> {
    State(QuerySource& s, std::shared_ptr<Dispatcher> d, LiveQueryOptions o, LiveQuery* q)
        : source(s)
        , dispatcher(std::move(d))
        , options(std::move(o))
        , owner(q)
    {
    }

    struct Entry {
        ItemRef item;
        std::shared_ptr<void> result;
        SortValues sort;
    };

    QuerySource& source;
    std::shared_ptr<Dispatcher> dispatcher;
    LiveQueryOptions options;
    LiveQuery* owner;

    query::Query parsed;
    query::QueryStart start;
    std::unique_ptr<query::Evaluator> evaluator;
    std::vector<std::string> scopes;           // folders; none: everything indexed
    std::vector<std::string> viewScopes;       // the parts the index answers
    std::vector<std::string> crawledScopes;    // the parts crawled
    std::vector<std::string> roots;

    std::atomic<bool> stopped{false};
    int subscription = 0;
    std::thread worker;

    // Owner thread only.
    bool running = false;
    bool gathering = false;
    bool regathering = false;
    bool suspended = false;
    std::vector<Entry> entries;
    std::unordered_map<std::string, std::size_t> positions;
    std::vector<Delta> waiting;
    // What the next update will report. An item added and removed again
    // before it goes out is not reported at all; one added and changed is
    // reported as added.
    Update pending;
    std::unordered_set<const void*> pendingAdded;
    std::unordered_set<const void*> pendingChanged;
    bool flushScheduled = false;
    std::optional<Dispatcher::TimePoint> lastUpdate;  // when the last update went out
    std::optional<Dispatcher::TimePoint> lastChange;  // when changes last came in
    std::unordered_set<const void*> visibleBefore;
    bool windowCaptured = false;

    bool inScope(const std::string& path) const
    {
        return scopes.empty()
               || std::any_of(scopes.begin(), scopes.end(), [&](const std::string& s) { return isPathAtOrBelow(path, s); });
    }

    std::shared_ptr<void> make(const ItemRef& item) const
    {
        if (options.createResult) {
            return options.createResult(item);
        }
        return std::make_shared<ItemRef>(item);
    }

    SortValues sortValues(const ItemRef& item) const
    {
        SortValues values;
        for (const std::string& key : options.sortingAttributes) {
            values.push_back(item.attribute(key));
        }
        return values;
    }

    bool sorted() const { return static_cast<bool>(options.comparator); }

    void reindex(std::size_t from = 0)
    {
        for (std::size_t i = from; i < entries.size(); ++i) {
            positions[entries[i].item.path()] = i;
        }
    }

    std::size_t visibleCount() const
    {
        return options.maxCount > 0 ? std::min(entries.size(), options.maxCount) : entries.size();
    }

    // Gathering, on the worker thread: the index's answer, then the crawled
    // folders', in batches.
    void gather(bool again)
    {
        std::vector<ItemRef> chunk;
        bool first = !again;
        std::size_t limit = first ? options.batching.firstCount : options.batching.progressCount;
        auto interval = first ? options.batching.firstInterval : options.batching.progressInterval;
        auto deadline = Clock::now() + interval;
        std::vector<ItemRef> all;
        std::weak_ptr<State> weak = weak_from_this();
        auto flush = [&] {
            if (again) {
                all.insert(all.end(), chunk.begin(), chunk.end());
            } else if (!chunk.empty()) {
                dispatcher->post([weak, batch = std::move(chunk)]() mutable {
                    if (auto state = weak.lock()) {
                        state->integrate(std::move(batch));
                    }
                });
            }
            chunk.clear();
            limit = options.batching.progressCount;
            interval = options.batching.progressInterval;
            deadline = Clock::now() + interval;
        };
        auto take = [&](ItemRef item) {
            if (stopped.load()) {
                return false;
            }
            chunk.push_back(std::move(item));
            if (chunk.size() >= limit || Clock::now() >= deadline) {
                flush();
            }
            return true;
        };
        if (std::shared_ptr<const IndexView> view = source.currentView(); view && (scopes.empty() || !viewScopes.empty())) {
            view->search(parsed, start, viewScopes, take);
        }
        for (const std::string& folder : crawledScopes) {
            if (stopped.load()) {
                break;
            }
            CrawlSearchOptions crawl;
            crawl.cancel = &stopped;
            crawl.excludedFolders = roots;
            (void)searchByCrawlingWithFacts(folder, parsed, start, source.indexServices(),
                                            [&](std::shared_ptr<const FileFacts> facts) { take(ItemRef(facts)); },
                                            crawl);
        }
        flush();
        dispatcher->post([weak, again, gathered = std::move(all)]() mutable {
            if (auto state = weak.lock()) {
                if (again) {
                    state->regathered(std::move(gathered));
                } else {
                    state->gatherFinished();
                }
            }
        });
    }

    // Owner thread: results arriving while gathering.
    void integrate(std::vector<ItemRef> batch)
    {
        if (stopped.load()) {
            return;
        }
        for (ItemRef& item : batch) {
            if (positions.count(item.path())) {
                continue;
            }
            std::shared_ptr<void> result = make(item);
            if (!result) {
                continue;  // rejected: neither stored nor counted
            }
            positions[item.path()] = entries.size();
            SortValues sort = sorted() ? sortValues(item) : SortValues{};
            entries.push_back({std::move(item), std::move(result), std::move(sort)});
        }
        if (sorted()) {
            std::stable_sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
                return options.comparator(a.sort, b.sort) < 0;
            });
            reindex();
        }
        if (owner->onProgress) {
            owner->onProgress();
        }
    }

    void gatherFinished()
    {
        if (stopped.load()) {
            return;
        }
        gathering = false;
        if (owner->onFinished) {
            owner->onFinished();
        }
        drainWaiting();
    }

    // Owner thread: a delta from the index.
    void receive(Delta delta)
    {
        if (stopped.load()) {
            return;
        }
        if (gathering || regathering || suspended) {
            waiting.push_back(std::move(delta));
            return;
        }
        apply(delta);
    }

    void drainWaiting()
    {
        std::vector<Delta> deltas = std::move(waiting);
        waiting.clear();
        for (std::size_t i = 0; i < deltas.size(); ++i) {
            if (regathering) {
                // A new gathering began: what is left waits for it.
                waiting.insert(waiting.end(), std::make_move_iterator(deltas.begin() + static_cast<long>(i)),
                               std::make_move_iterator(deltas.end()));
                return;
            }
            apply(deltas[i]);
        }
    }

    void captureWindow()
    {
        if (windowCaptured || options.maxCount == 0) {
            return;
        }
        visibleBefore.clear();
        for (std::size_t i = 0; i < visibleCount(); ++i) {
            visibleBefore.insert(entries[i].result.get());
        }
        windowCaptured = true;
    }

    void remove(const std::string& path)
    {
        auto it = positions.find(path);
        if (it == positions.end()) {
            return;
        }
        const std::size_t at = it->second;
        const void* result = entries[at].result.get();
        if (pendingAdded.erase(result) == 0) {
            pendingChanged.erase(result);
            pending.removed.push_back(entries[at].result);
        }
        positions.erase(it);
        entries.erase(entries.begin() + static_cast<long>(at));
        reindex(at);
    }

    void upsert(const ItemRef& item)
    {
        auto it = positions.find(item.path());
        if (it != positions.end()) {
            Entry& entry = entries[it->second];
            entry.item = item;
            if (options.updateResult) {
                options.updateResult(entry.result, item);
            }
            if (!pendingAdded.count(entry.result.get()) && pendingChanged.insert(entry.result.get()).second) {
                pending.changed.push_back(entry.result);
            }
            if (sorted()) {
                // Its place may move.
                Entry moved = std::move(entry);
                const std::size_t at = it->second;
                positions.erase(it);
                entries.erase(entries.begin() + static_cast<long>(at));
                moved.sort = sortValues(moved.item);
                insertSorted(std::move(moved), std::min(at, entries.size()));
            }
            return;
        }
        std::shared_ptr<void> result = make(item);
        if (!result) {
            return;
        }
        pendingAdded.insert(result.get());
        pending.added.push_back(result);
        Entry entry{item, std::move(result), sorted() ? sortValues(item) : SortValues{}};
        if (sorted()) {
            insertSorted(std::move(entry), 0);
        } else {
            positions[entry.item.path()] = entries.size();
            entries.push_back(std::move(entry));
        }
    }

    void insertSorted(Entry entry, std::size_t hint)
    {
        (void)hint;
        auto at = std::upper_bound(entries.begin(), entries.end(), entry, [&](const Entry& a, const Entry& b) {
            return options.comparator(a.sort, b.sort) < 0;
        });
        const auto index = static_cast<std::size_t>(at - entries.begin());
        entries.insert(at, std::move(entry));
        reindex(index);
    }

    void apply(const Delta& delta)
    {
        if (delta.everything) {
            startRegather();
            return;
        }
        captureWindow();
        for (const std::string& path : delta.removed) {
            remove(path);
        }
        for (const std::string& path : delta.unmatched) {
            remove(path);
        }
        for (const ItemRef& item : delta.matched) {
            upsert(item);
        }
        scheduleFlush();
    }

    void scheduleFlush()
    {
        const std::size_t count = pendingAdded.size() + pending.removed.size() + pendingChanged.size();
        if (count == 0) {
            return;
        }
        const Dispatcher::TimePoint now = dispatcher->now();
        const auto interval = options.batching.updateInterval;
        const bool quiet = !lastChange || now - *lastChange >= interval / 2;
        lastChange = now;
        if (count >= options.batching.updateCount) {
            flushUpdate();
            return;
        }
        if (flushScheduled) {
            return;
        }
        // A change after a quiet spell goes out at once: the first after an
        // interval without updates, or one that comes when no change has
        // come for half an interval (a person at work, not a burst). Changes
        // that follow closely wait for the end of the interval, together.
        if (!lastUpdate || now - *lastUpdate >= interval || quiet) {
            flushUpdate();
            return;
        }
        flushScheduled = true;
        std::weak_ptr<State> weak = weak_from_this();
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*lastUpdate + interval - now);
        dispatcher->postAfter(wait, [weak] {
            if (auto state = weak.lock()) {
                state->flushScheduled = false;
                state->flushUpdate();
            }
        });
    }

    void flushUpdate()
    {
        if (stopped.load() || suspended) {
            return;
        }
        Update update;
        for (std::shared_ptr<void>& result : pending.added) {
            if (pendingAdded.count(result.get())) {
                update.added.push_back(std::move(result));
            }
        }
        for (std::shared_ptr<void>& result : pending.changed) {
            if (pendingChanged.count(result.get())) {
                update.changed.push_back(std::move(result));
            }
        }
        update.removed = std::move(pending.removed);
        pending = {};
        pendingAdded.clear();
        pendingChanged.clear();
        if (options.maxCount > 0 && windowCaptured) {
            // Report what entered and left the window of the first N.
            std::unordered_set<const void*> after;
            for (std::size_t i = 0; i < visibleCount(); ++i) {
                after.insert(entries[i].result.get());
            }
            Update windowed;
            for (std::size_t i = 0; i < visibleCount(); ++i) {
                if (!visibleBefore.count(entries[i].result.get())) {
                    windowed.added.push_back(entries[i].result);
                }
            }
            std::unordered_set<const void*> reported;
            for (const auto& list : {update.removed, update.changed, update.added}) {
                for (const std::shared_ptr<void>& result : list) {
                    if (visibleBefore.count(result.get()) && !after.count(result.get())
                        && reported.insert(result.get()).second) {
                        windowed.removed.push_back(result);
                    }
                }
            }
            // Entries pushed out of the window by others.
            for (const void* before : visibleBefore) {
                if (!after.count(before) && !reported.count(before)) {
                    auto found = std::find_if(entries.begin(), entries.end(),
                                              [&](const Entry& e) { return e.result.get() == before; });
                    if (found != entries.end()) {
                        windowed.removed.push_back(found->result);
                        reported.insert(before);
                    }
                }
            }
            for (const std::shared_ptr<void>& result : update.changed) {
                if (visibleBefore.count(result.get()) && after.count(result.get())) {
                    windowed.changed.push_back(result);
                }
            }
            update = std::move(windowed);
            windowCaptured = false;
        }
        if ((update.added.empty() && update.removed.empty() && update.changed.empty()) || !owner->onUpdate) {
            return;
        }
        lastUpdate = dispatcher->now();
        owner->onUpdate(update);
    }

    void startRegather()
    {
        if (regathering) {
            return;
        }
        regathering = true;
        if (worker.joinable()) {
            worker.join();
        }
        worker = std::thread([self = shared_from_this()] { self->gather(true); });
    }

    // Owner thread: everything gathered again after the index was rebuilt;
    // what differs from the results is reported as an update.
    void regathered(std::vector<ItemRef> items)
    {
        regathering = false;
        if (stopped.load()) {
            return;
        }
        captureWindow();
        std::unordered_set<std::string> now;
        for (const ItemRef& item : items) {
            now.insert(item.path());
        }
        std::vector<std::string> gone;
        for (const Entry& entry : entries) {
            if (!now.count(entry.item.path())) {
                gone.push_back(entry.item.path());
            }
        }
        for (const std::string& path : gone) {
            remove(path);
        }
        for (const ItemRef& item : items) {
            if (!positions.count(item.path())) {
                upsert(item);
            } else {
                entries[positions[item.path()]].item = item;  // a fresh reference to the same item
            }
        }
        scheduleFlush();
        drainWaiting();
    }
};

LiveQuery::LiveQuery(QuerySource& source, std::shared_ptr<Dispatcher> dispatcher, LiveQueryOptions options)
    : m_state(std::make_shared<State>(source, std::move(dispatcher), std::move(options), this))
{
}

LiveQuery::~LiveQuery()
{
    stop();
}

Expected<void> LiveQuery::execute()
{
    State& s = *m_state;
    if (s.running) {
        return {};
    }
    if (s.stopped.load()) {
        return Failure{Failure::Kind::InvalidArgument, "a stopped query cannot run again; make a new one"};
    }
    Expected<query::Query> parsed = query::parseQuery(s.options.query);
    if (!parsed) {
        return parsed.error();
    }
    Expected<std::vector<std::string>> scopes = scopeFolders(s.options.scopes);
    if (!scopes) {
        return scopes.error();
    }
    s.parsed = std::move(parsed.value());
    s.start = s.options.start ? *s.options.start : query::QueryStart::now();
    s.evaluator = std::make_unique<query::Evaluator>(s.parsed, s.start);
    s.scopes = std::move(scopes.value());
    s.roots = s.source.indexedRoots();
    for (const std::string& scope : s.scopes) {
        const bool indexed = std::any_of(s.roots.begin(), s.roots.end(),
                                         [&](const std::string& root) { return isPathAtOrBelow(scope, root); });
        if (indexed) {
            s.viewScopes.push_back(scope);
            continue;
        }
        s.crawledScopes.push_back(scope);
        for (const std::string& root : s.roots) {
            if (isPathAtOrBelow(root, scope)) {
                s.viewScopes.push_back(root);
            }
        }
    }
    if (!s.options.scopes.empty() && s.scopes.empty()) {
        // A named scope without folders (no network volumes): nothing to find.
        s.crawledScopes.clear();
        s.viewScopes.clear();
    }

    // Changes from now on reach the query; the gathering sees the index as
    // it is after subscribing, so nothing falls between.
    std::weak_ptr<State> weak = m_state;
    s.subscription = s.source.subscribeToChanges([weak](const IndexChanges& changes) {
        std::shared_ptr<State> state = weak.lock();
        if (!state || state->stopped.load()) {
            return;
        }
        Delta delta;
        delta.everything = changes.everything;
        if (!changes.everything) {
            for (const std::string& path : changes.removed) {
                if (state->inScope(path)) {
                    delta.removed.push_back(path);
                }
            }
            for (const ItemRef& item : changes.upserted) {
                if (!state->inScope(item.path())) {
                    continue;
                }
                if (item.matches(*state->evaluator)) {
                    delta.matched.push_back(item);
                } else {
                    delta.unmatched.push_back(item.path());
                }
            }
            if (delta.removed.empty() && delta.matched.empty() && delta.unmatched.empty()) {
                return;
            }
        }
        state->dispatcher->post([weak, delta = std::move(delta)]() mutable {
            if (auto state = weak.lock()) {
                state->receive(std::move(delta));
            }
        });
    });
    s.running = true;
    s.gathering = true;
    s.worker = std::thread([state = m_state] { state->gather(false); });
    return {};
}

void LiveQuery::stop()
{
    State& s = *m_state;
    s.stopped.store(true);
    if (s.subscription) {
        s.source.unsubscribeFromChanges(s.subscription);
        s.subscription = 0;
    }
    if (s.worker.joinable()) {
        s.worker.join();
    }
    s.running = false;
    s.gathering = false;
    s.waiting.clear();
}

bool LiveQuery::isRunning() const
{
    return m_state->running;
}

bool LiveQuery::isGathering() const
{
    return m_state->gathering;
}

bool LiveQuery::isIdle() const
{
    const State& s = *m_state;
    return s.running && !s.gathering && !s.regathering && s.waiting.empty() && !s.flushScheduled
           && s.pendingAdded.empty() && s.pending.removed.empty() && s.pendingChanged.empty();
}

void LiveQuery::suspendUpdates()
{
    m_state->suspended = true;
}

void LiveQuery::resumeUpdates()
{
    State& s = *m_state;
    if (!s.suspended) {
        return;
    }
    s.suspended = false;
    if (!s.gathering && !s.regathering) {
        s.drainWaiting();
        s.scheduleFlush();
    }
}

std::size_t LiveQuery::resultCount() const
{
    return m_state->visibleCount();
}

std::shared_ptr<void> LiveQuery::resultAt(std::size_t index) const
{
    return index < resultCount() ? m_state->entries[index].result : nullptr;
}

const ItemRef& LiveQuery::itemAt(std::size_t index) const
{
    static const ItemRef none;
    return index < resultCount() ? m_state->entries[index].item : none;
}

}  // namespace trovara::index
