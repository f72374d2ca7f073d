// A search that stays true while files change.
//
// A live query gathers its results from the index (and by crawling scope
// folders the index does not cover) in the background, delivering them in
// batches, then follows the index's changes: every change that touches its
// answer reaches it as an update with what was added, removed and changed.
//
// Contract:
// - Created with the query text, the scope folders (or the named scopes
//   kMDQueryScopeHome, kMDQueryScopeComputer, kMDQueryScopeNetwork),
//   optional sorting attributes with a comparator and a maximum count (with
//   sorting: the first N by the comparator, kept so as items change),
//   batching parameters, and a result-creation callback that sees each raw
//   item and may reject it (a rejected item is neither stored nor counted).
// - Notifications (progress during gathering, finished, update afterwards)
//   are delivered through the dispatcher, on the thread that owns the query,
//   which is also where the result-creation callback runs and where every
//   member must be called.
// - While updates are suspended, changes wait; none is lost.
// - stop() ends everything: no notification comes after it returns.
#pragma once

#include "index/expected.h"
#include "index/live/dispatcher.h"
#include "index/live/live_index.h"
#include "index/query/ast.h"
#include "index/query/calendar.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovara::index {

// Where a live query finds items and hears of changes.
class QuerySource {
public:
    virtual ~QuerySource() = default;
    // The current view, or nullptr when there is no index.
    virtual std::shared_ptr<const IndexView> currentView() const = 0;
    virtual std::vector<std::string> indexedRoots() const = 0;
    virtual const IndexServices& indexServices() const = 0;
    // Subscribers are called on the index's thread.
    virtual int subscribeToChanges(std::function<void(const IndexChanges&)> subscriber) = 0;
    virtual void unsubscribeFromChanges(int id) = 0;
};

// A source without an index: for documents that are written or read, never
// run. Its queries find nothing.
class NoIndexSource final : public QuerySource {
public:
    std::shared_ptr<const IndexView> currentView() const override { return nullptr; }
    std::vector<std::string> indexedRoots() const override { return {}; }
    const IndexServices& indexServices() const override { return m_services; }
    int subscribeToChanges(std::function<void(const IndexChanges&)>) override { return 0; }
    void unsubscribeFromChanges(int) override {}

private:
    IndexServices m_services;
};

// The index as it is on disk, read-only, for searches that run once: no
// writer's lock, no watching, no catch-up. Its queries see the snapshot (the
// one a writer at work last saved) and hear of no changes.
class SnapshotSource final : public QuerySource {
public:
    // Fails when the index is damaged or of another version; an index that
    // does not exist yet is an empty one.
    static Expected<std::unique_ptr<SnapshotSource>> open(const std::string& directory, IndexServices services);

    std::shared_ptr<const IndexView> currentView() const override { return m_view; }
    std::vector<std::string> indexedRoots() const override { return m_roots; }
    const IndexServices& indexServices() const override { return m_services; }
    int subscribeToChanges(std::function<void(const IndexChanges&)>) override { return 0; }
    void unsubscribeFromChanges(int) override {}

private:
    SnapshotSource() = default;
    IndexServices m_services;
    std::shared_ptr<const IndexView> m_view;
    std::vector<std::string> m_roots;
};

// A LiveIndex as a source.
class LiveIndexSource final : public QuerySource {
public:
    explicit LiveIndexSource(LiveIndex& index)
        : m_index(index)
    {
    }
    std::shared_ptr<const IndexView> currentView() const override { return m_index.view(); }
    std::vector<std::string> indexedRoots() const override { return m_index.roots(); }
    const IndexServices& indexServices() const override { return m_index.services(); }
    int subscribeToChanges(std::function<void(const IndexChanges&)> subscriber) override
    {
        return m_index.subscribe(std::move(subscriber));
    }
    void unsubscribeFromChanges(int id) override { m_index.unsubscribe(id); }

private:
    LiveIndex& m_index;
};

struct LiveQueryBatching {
    std::size_t firstCount = 5000;
    std::chrono::milliseconds firstInterval{200};
    std::size_t progressCount = 5000;
    std::chrono::milliseconds progressInterval{200};
    std::size_t updateCount = 5000;
    std::chrono::milliseconds updateInterval{200};
};

// The values of an item's sorting attributes, in the order given.
using SortValues = std::vector<std::optional<query::AttributeValue>>;

struct LiveQueryOptions {
    std::string query;
    std::vector<std::string> scopes;
    std::vector<std::string> sortingAttributes;
    // Negative, zero or positive, as a sorts before, with or after b.
    std::function<int(const SortValues& a, const SortValues& b)> comparator;
    std::size_t maxCount = 0;  // 0: no maximum
    LiveQueryBatching batching;
    // Makes the stored result of a raw item; an empty pointer rejects it.
    // Without one, the ItemRef itself is stored.
    std::function<std::shared_ptr<void>(const ItemRef&)> createResult;
    // Tells a stored result that its item changed (optional).
    std::function<void(const std::shared_ptr<void>& result, const ItemRef&)> updateResult;
    // The query's start (fixes its $time values); none: when it executes.
    std::optional<query::QueryStart> start;
};

class LiveQuery {
public:
    struct Update {
        std::vector<std::shared_ptr<void>> added;
        std::vector<std::shared_ptr<void>> removed;
        std::vector<std::shared_ptr<void>> changed;
    };

    LiveQuery(QuerySource& source, std::shared_ptr<Dispatcher> dispatcher, LiveQueryOptions options);
    ~LiveQuery();
    LiveQuery(const LiveQuery&) = delete;
    LiveQuery& operator=(const LiveQuery&) = delete;

    std::function<void()> onProgress;
    std::function<void()> onFinished;
    std::function<void(const Update&)> onUpdate;

    // Starts gathering. Fails when the query text does not parse or a scope
    // folder does not exist.
    Expected<void> execute();
    void stop();
    bool isRunning() const;
    bool isGathering() const;
    // Gathering is done and every change received has been delivered.
    bool isIdle() const;

    void suspendUpdates();
    void resumeUpdates();

    std::size_t resultCount() const;
    std::shared_ptr<void> resultAt(std::size_t index) const;
    const ItemRef& itemAt(std::size_t index) const;

    struct State;

private:
    std::shared_ptr<State> m_state;
};

}  // namespace trovara::index
