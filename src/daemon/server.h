// The daemon's side of the socket: accepts clients of the same user, reads
// their requests, has the engine carry them out, and sends every subscriber
// the index's changes.
//
// A malformed request gets an error reply and the daemon goes on; a stream
// that cannot be cut into frames any more, a client of another user, or a
// client too slow to take its changes is disconnected. A client that goes
// away costs nothing: its subscription ends with it.
//
// Thread safety: run() on one thread; stop() from any thread (and from a
// signal handler: it only writes to a descriptor).
#pragma once

#include "index/expected.h"
#include "index/live/engine.h"

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace trovara::daemon {

// Whom the daemon serves. A connection it refuses is told why (a reply of
// id 0 that fails) before it is closed, so that the client can say so
// instead of taking the daemon for gone.
struct ServerAdmission {
    std::size_t maxClients = 256;
    // The user whose programs it serves; none: the daemon's own user.
    std::optional<uid_t> user;
};

class Server {
public:
    // Listens on `socketPath` (its folder is made, private to the user). A
    // socket file left by a daemon that died is replaced; one a live daemon
    // answers on is not.
    static index::Expected<std::unique_ptr<Server>> listen(index::IndexEngine& engine, const std::string& socketPath,
                                                           const std::string& indexDirectory,
                                                           ServerAdmission admission = {});
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Serves until stop() or a shutdown request; returns then.
    void run();
    void stop();
    // Requested by a client (as opposed to a signal).
    bool shutdownRequested() const;

    class Impl;

private:
    explicit Server(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

// The most a client may have waiting to be sent to it before it is
// disconnected as too slow.
constexpr std::size_t kMaxQueuedBytes = 256u * 1024 * 1024;

}  // namespace trovara::daemon
