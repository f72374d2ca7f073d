// A connection to the daemon of an index: requests and their replies, and
// the change events of a subscription.
//
// Thread safety: call() and send() from any thread but the connection's
// reader thread (where handlers and send() callbacks run); a handler that
// needs the daemon uses send().
#pragma once

#include "daemon/protocol.h"
#include "index/expected.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace trovara::daemon {

class Connection {
public:
    using EventHandler = std::function<void(ChangesEvent&&)>;
    using ClosedHandler = std::function<void()>;
    using ReplyHandler = std::function<void(index::Expected<Reply>)>;

    // Connects to the daemon serving the index in `indexDirectory` and
    // greets it. Fails with Failure::Kind::Io and a message starting "no
    // daemon" when none listens there; with the daemon's own reason when it
    // refuses the connection (another user's daemon, or one serving as many
    // programs as it takes).
    static index::Expected<std::unique_ptr<Connection>> open(const std::string& indexDirectory);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Set before subscribing; called on the reader thread.
    void setEventHandler(EventHandler handler);
    // Called once, on the reader thread, when the daemon goes away.
    void setClosedHandler(ClosedHandler handler);

    // Sends the request and waits for its reply (a failed request is a
    // reply with a failure; a daemon gone is a Failure).
    index::Expected<Reply> call(Request request);
    // Sends the request; `done` gets the reply on the reader thread.
    void send(Request request, ReplyHandler done);

    bool isOpen() const { return m_open.load(); }
    std::int64_t daemonPid() const { return m_pid; }

private:
    Connection() = default;
    void readLoop();
    void closed();

    int m_fd = -1;
    std::thread m_reader;
    std::atomic<bool> m_open{false};
    std::int64_t m_pid = 0;

    std::mutex m_mutex;  // guards everything below, and writes to the socket
    std::uint64_t m_nextId = 1;
    std::map<std::uint64_t, ReplyHandler> m_waiting;
    std::optional<index::Failure> m_refusal;  // why the daemon refused the connection
    EventHandler m_events;
    ClosedHandler m_closed;
};

// Whether a failure means that no daemon serves the index (as opposed to a
// daemon that answered badly).
bool isNoDaemon(const index::Failure& failure);

}  // namespace trovara::daemon
