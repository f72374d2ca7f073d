// An index opened on a thread of its own, for a program that must not wait
// for it (the application shows its windows first).
//
// The source is usable at once: until the index is open it has no view and
// no roots, and subscribers wait; once it is open every call goes to the
// index (the daemon's or an in-process engine, as openQuerySource()
// chooses), waiting subscribers are subscribed there and told to look at
// everything. A query run before then finds nothing, so callers wait for
// isReady() before they start queries.
//
// Thread safety: every member may be called from any thread. `ready` is
// called once, on the opening thread, when the index is open or failed.
#pragma once

#include "daemon/query_source.h"
#include "index/live/live_query.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace trovara::daemon {

class BackgroundQuerySource final : public index::QuerySource {
public:
    // Starts opening the index at `indexDirectory`; `services` serve until
    // it is open.
    BackgroundQuerySource(std::string indexDirectory, index::IndexServices services, QuerySourceOptions options,
                          std::function<void()> ready);
    // An index that is already open (tests, tools that opened one).
    explicit BackgroundQuerySource(std::unique_ptr<index::QuerySource> source);
    // Waits for the opening to end.
    ~BackgroundQuerySource() override;

    // The index is open.
    bool isReady() const { return m_ready.load(); }
    // Opening ended (open, or failed).
    bool isSettled() const;
    // Why the index could not be opened, once that is known.
    std::optional<index::Failure> failure() const;
    // The open index, or nullptr.
    index::QuerySource* source() const { return m_ready.load() ? m_source.get() : nullptr; }

    std::shared_ptr<const index::IndexView> currentView() const override;
    std::vector<std::string> indexedRoots() const override;
    const index::IndexServices& indexServices() const override;
    int subscribeToChanges(std::function<void(const index::IndexChanges&)> subscriber) override;
    void unsubscribeFromChanges(int id) override;

private:
    void adopt(std::unique_ptr<index::QuerySource> source);

    index::IndexServices m_services;
    std::unique_ptr<index::QuerySource> m_source;
    std::atomic<bool> m_ready{false};

    mutable std::mutex m_mutex;
    bool m_settled = false;
    std::optional<index::Failure> m_failure;
    struct Subscription {
        std::function<void(const index::IndexChanges&)> subscriber;
        int realId = 0;  // once forwarded
    };
    std::map<int, Subscription> m_subscriptions;
    int m_nextId = 1;
    std::thread m_opener;
};

}  // namespace trovara::daemon
