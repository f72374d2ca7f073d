// The index as the daemon keeps it, seen from a client: the snapshot on
// disk, mapped, plus the changes the daemon sends. Live queries run on it in
// the client's own process, exactly as on an engine of its own.
//
// When the daemon goes away, the source keeps its last view and tries to
// reach a daemon again (systemd restarts it); once it has, subscribers are
// told to look at everything again.
//
// Thread safety: as QuerySource; subscribers are called on the connection's
// reader thread.
#pragma once

#include "daemon/client.h"
#include "index/live/live_query.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace trovara::daemon {

class RemoteIndexSource final : public index::QuerySource {
public:
    // Fails (isNoDaemon()) when no daemon serves the index.
    static index::Expected<std::unique_ptr<RemoteIndexSource>> open(const std::string& indexDirectory,
                                                                    index::IndexServices services);
    ~RemoteIndexSource() override;

    // Told when the daemon goes away and when it is back (any thread).
    void setNoticeHandler(std::function<void(const std::string&)> handler);
    bool isConnected() const;

    std::shared_ptr<const index::IndexView> currentView() const override;
    std::vector<std::string> indexedRoots() const override;
    const index::IndexServices& indexServices() const override { return m_services; }
    int subscribeToChanges(std::function<void(const index::IndexChanges&)> subscriber) override;
    void unsubscribeFromChanges(int id) override;

    // How many items read since the snapshot make the source ask the daemon
    // for a fresh one (tests lower it).
    void setRefreshThreshold(std::size_t items) { m_refreshThreshold = items; }

private:
    RemoteIndexSource(std::string indexDirectory, index::IndexServices services);
    index::Expected<void> connect();
    index::Expected<std::shared_ptr<const index::Catalogue>> mapSnapshot(std::int64_t generation);
    void setView(std::shared_ptr<const index::IndexView> view);
    void onEvent(Connection& connection, ChangesEvent&& event);
    void onClosed();
    void reconnectLoop();
    void publish(const index::IndexChanges& changes);
    void notice(const std::string& message);

    std::string m_directory;
    index::IndexServices m_services;
    std::size_t m_refreshThreshold = 20000;
    bool m_refreshing = false;  // reader thread

    std::unique_ptr<Connection> m_connection;

    mutable std::mutex m_viewMutex;
    std::shared_ptr<const index::IndexView> m_view;
    std::vector<std::string> m_roots;

    std::mutex m_subscribersMutex;
    std::map<int, std::function<void(const index::IndexChanges&)>> m_subscribers;
    int m_nextSubscriber = 1;
    std::function<void(const std::string&)> m_notice;

    mutable std::mutex m_reconnectMutex;
    std::condition_variable m_reconnectWake;
    bool m_stopping = false;
    bool m_disconnected = false;
    std::thread m_reconnector;
};

}  // namespace trovara::daemon
