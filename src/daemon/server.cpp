#include "daemon/server.h"

#include "daemon/protocol.h"
#include "daemon/socket_path.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace trovara::daemon {

namespace {

using index::Expected;
using index::Failure;

// Change events are cut so that no frame comes near the frame limit.
constexpr std::size_t kItemsPerEvent = 20000;
constexpr std::size_t kPathsPerEvent = 50000;

std::uint64_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::int64_t nowNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

Failure ioFailure(const std::string& what)
{
    return Failure{Failure::Kind::Io, what + ": " + std::strerror(errno)};
}

}  // namespace

class Server::Impl {
public:
    struct Client {
        int fd = -1;
        FrameReader in;
        std::mutex outMutex;
        std::deque<std::vector<std::uint8_t>> out;  // guarded by outMutex
        std::size_t outOffset = 0;                  // into out.front()
        std::size_t queued = 0;
        bool tooSlow = false;
        bool closeWhenSent = false;
        bool writable = true;  // loop thread: the socket took everything last time
        std::atomic<int> subscription{0};
    };

    Impl(index::IndexEngine& engine, std::string indexDirectory, ServerAdmission admission)
        : m_engine(engine)
        , m_indexDirectory(std::move(indexDirectory))
        , m_started(nowNanoseconds())
        , m_maxClients(admission.maxClients)
        , m_user(admission.user.value_or(::geteuid()))
    {
    }

    ~Impl()
    {
        for (auto& [fd, client] : m_clients) {
            endSubscription(*client);
            ::close(fd);
        }
        m_clients.clear();
        // Work already handed to the engine refers to this server: let it
        // run (the clients it answers are gone) before the server goes.
        m_engine.runOnEngine([](index::LiveIndex&) {});
        if (m_listen >= 0) {
            ::close(m_listen);
            ::unlink(m_socketPath.c_str());
        }
        for (int fd : {m_epoll, m_wake}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
    }

    Expected<void> listen(const std::string& socketPath)
    {
        m_socketPath = socketPath;
        std::string problem;
        const std::string folder = socketPath.substr(0, socketPath.rfind('/'));
        if (!makeRuntimeFolder(folder, &problem)) {
            return Failure{Failure::Kind::Io, problem};
        }
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (socketPath.size() >= sizeof address.sun_path) {
            return Failure{Failure::Kind::InvalidArgument, "the socket path " + socketPath + " is too long"};
        }
        std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);

        // A socket file that nobody answers on was left by a daemon that died.
        const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (probe >= 0) {
            const bool answered = ::connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
            ::close(probe);
            if (answered) {
                return Failure{Failure::Kind::Io, "another daemon listens on " + socketPath};
            }
        }
        ::unlink(socketPath.c_str());

        m_listen = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (m_listen < 0) {
            return ioFailure("cannot make a socket");
        }
        if (::bind(m_listen, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            return ioFailure("cannot listen on " + socketPath);
        }
        ::chmod(socketPath.c_str(), 0600);
        if (::listen(m_listen, 64) != 0) {
            return ioFailure("cannot listen on " + socketPath);
        }
        m_wake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
        if (m_wake < 0 || m_epoll < 0) {
            return ioFailure("cannot set up the daemon's event loop");
        }
        watch(m_listen, EPOLLIN);
        watch(m_wake, EPOLLIN);
        return {};
    }

    void run()
    {
        epoll_event events[64];
        while (!m_stopping.load()) {
            const int ready = ::epoll_wait(m_epoll, events, 64, -1);
            if (ready < 0) {
                if (errno == EINTR) {
                    continue;
                }
                break;
            }
            for (int i = 0; i < ready; ++i) {
                const int fd = events[i].data.fd;
                if (fd == m_listen) {
                    acceptClients();
                } else if (fd == m_wake) {
                    std::uint64_t count = 0;
                    (void)!::read(m_wake, &count, sizeof count);
                } else if (auto client = m_clients.find(fd); client != m_clients.end()) {
                    std::shared_ptr<Client> keep = client->second;
                    if (events[i].events & (EPOLLIN | EPOLLHUP | EPOLLERR)) {
                        readFrom(keep);
                    }
                    if (events[i].events & EPOLLOUT) {
                        keep->writable = true;
                    }
                }
            }
            flushAll();
            if (m_shutdownRequested.load() && !anythingQueued()) {
                break;
            }
        }
    }

    void stop()
    {
        m_stopping.store(true);
        wake();
    }

    bool shutdownRequested() const { return m_shutdownRequested.load(); }

private:
    void watch(int fd, std::uint32_t events)
    {
        epoll_event event{};
        event.events = events;
        event.data.fd = fd;
        ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &event);
    }

    void wake()
    {
        const std::uint64_t one = 1;
        (void)!::write(m_wake, &one, sizeof one);
    }

    void acceptClients()
    {
        for (;;) {
            const int fd = ::accept4(m_listen, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd < 0) {
                return;
            }
            // Only the user's own programs, and not without end.
            ucred peer{};
            socklen_t size = sizeof peer;
            if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != m_user) {
                refuse(fd, Failure{Failure::Kind::InvalidArgument,
                                   "the daemon serving " + m_indexDirectory + " serves only the programs of user "
                                       + std::to_string(m_user)});
                continue;
            }
            if (m_clients.size() >= m_maxClients) {
                refuse(fd, Failure{Failure::Kind::Busy, "the daemon serving " + m_indexDirectory + " already has "
                                                            + std::to_string(m_maxClients)
                                                            + " programs connected, as many as it takes; try again "
                                                              "when some have finished"});
                continue;
            }
            auto client = std::make_shared<Client>();
            client->fd = fd;
            m_clients.emplace(fd, client);
            watch(fd, EPOLLIN | EPOLLOUT | EPOLLET | EPOLLRDHUP);
        }
    }

    // Says why (a failed reply of id 0), then closes. The socket is new and
    // empty, so the few bytes go out at once or not at all.
    static void refuse(int fd, const Failure& why)
    {
        Reply reply;
        reply.failure = why;
        const std::vector<std::uint8_t> frame = encodeFrame(reply);
        (void)!::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        ::close(fd);
    }

    void readFrom(const std::shared_ptr<Client>& client)
    {
        std::uint8_t buffer[65536];
        bool closed = false;
        for (;;) {
            const ssize_t got = ::recv(client->fd, buffer, sizeof buffer, 0);
            if (got > 0) {
                client->in.append({buffer, static_cast<std::size_t>(got)});
                continue;
            }
            if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                closed = true;
            }
            if (got < 0 && errno == EINTR) {
                continue;
            }
            break;
        }
        for (;;) {
            Expected<std::optional<std::vector<std::uint8_t>>> body = client->in.next();
            if (!body) {
                // The stream cannot be cut into frames any more: say why, then part.
                Reply reply;
                reply.failure = body.error();
                send(*client, reply);
                client->closeWhenSent = true;
                break;
            }
            if (!body.value()) {
                break;
            }
            handle(client, **body);
        }
        if (closed) {
            drop(client->fd);
        }
    }

    void handle(const std::shared_ptr<Client>& client, const std::vector<std::uint8_t>& body)
    {
        Expected<Message> message = decodeBody(body);
        if (!message || !std::holds_alternative<Request>(message.value())) {
            Reply reply;
            reply.failure = message ? Failure{Failure::Kind::InvalidArgument, "malformed message: not a request"}
                                    : message.error();
            send(*client, reply);
            return;
        }
        const Request& request = std::get<Request>(message.value());
        Reply reply;
        reply.id = request.id;
        reply.answers = request.type;
        switch (request.type) {
        case MessageType::Hello:
            if (request.version != kProtocolVersion) {
                reply.failure = Failure{Failure::Kind::Version, "the daemon speaks protocol version "
                                                                    + std::to_string(kProtocolVersion) + ", not "
                                                                    + std::to_string(request.version)};
            }
            reply.version = kProtocolVersion;
            reply.figures.pid = ::getpid();
            reply.indexDirectory = m_indexDirectory;
            send(*client, reply);
            return;
        case MessageType::Shutdown:
            send(*client, reply);
            m_shutdownRequested.store(true);
            return;
        case MessageType::Unsubscribe:
            endSubscription(*client);
            send(*client, reply);
            return;
        case MessageType::Checkpoint: {
            // Never behind a crawl: while one runs, the snapshot on disk is
            // what the client reads (the daemon writes a newer one after).
            std::weak_ptr<Client> weak = client;
            m_engine.postUrgent([this, weak, reply](index::LiveIndex* live) mutable {
                std::shared_ptr<Client> client = weak.lock();
                if (!client) {
                    return;
                }
                if (live) {
                    if (Expected<void> saved = live->checkpoint(); !saved) {
                        reply.failure = saved.error();
                    }
                    reply.generation = live->view()->base()->generation();
                } else {
                    reply.generation =
                        index::Catalogue::snapshotGeneration(index::Index::snapshotPath(m_indexDirectory)).value_or(0);
                }
                sendFromElsewhere(client, reply);
            });
            return;
        }
        case MessageType::Status: {
            // Read beside the engine (which may be busy crawling), at once.
            Expected<index::IndexStatus> status = index::Index::readStatus(m_indexDirectory);
            if (status) {
                reply.status = std::move(status.value());
                reply.figures = figures();
            } else {
                reply.failure = status.error();
            }
            send(*client, reply);
            return;
        }
        default:
            break;
        }
        // Everything else is the engine's work, in the order it came.
        std::weak_ptr<Client> weak = client;
        m_engine.post([this, weak, request, reply](index::LiveIndex& live) mutable {
            std::shared_ptr<Client> client = weak.lock();
            if (!client) {
                return;  // gone: nothing to do for it
            }
            switch (request.type) {
            case MessageType::AddRoots: {
                index::Index::Options options;
                options.namesOnly = request.namesOnly;
                Expected<index::UpdateReport> report = m_engine.addRootsOnEngine(request.paths, options);
                report ? void(reply.report = *report) : void(reply.failure = report.error());
                break;
            }
            case MessageType::RemoveRoots: {
                Expected<void> removed = m_engine.removeRootsOnEngine(request.paths);
                if (!removed) {
                    reply.failure = removed.error();
                }
                break;
            }
            case MessageType::Update: {
                Expected<index::UpdateReport> report = m_engine.updateOnEngine({});
                report ? void(reply.report = *report) : void(reply.failure = report.error());
                break;
            }
            case MessageType::Rebuild: {
                Expected<index::UpdateReport> report = m_engine.rebuildOnEngine({});
                report ? void(reply.report = *report) : void(reply.failure = report.error());
                break;
            }
            case MessageType::Subscribe:
                subscribe(client, live, reply);
                return;
            default:
                reply.failure = Failure{Failure::Kind::InvalidArgument, "malformed message: not a request"};
                break;
            }
            sendFromElsewhere(client, reply);
        });
    }

    // Engine thread: the snapshot on disk made current, the reply queued,
    // then every change after it.
    void subscribe(const std::shared_ptr<Client>& client, index::LiveIndex& live, Reply reply)
    {
        endSubscription(*client);
        if (Expected<void> saved = live.checkpoint(); !saved) {
            reply.failure = saved.error();
            sendFromElsewhere(client, reply);
            return;
        }
        reply.generation = live.view()->base()->generation();
        sendFromElsewhere(client, reply);
        std::weak_ptr<Client> weak = client;
        client->subscription = m_engine.subscribeToChanges([this, weak, &live](const index::IndexChanges& changes) {
            if (std::shared_ptr<Client> client = weak.lock()) {
                forward(client, live, changes);
            }
        });
    }

    // Engine thread: one batch of the index's changes, as events.
    void forward(const std::shared_ptr<Client>& client, index::LiveIndex& live, const index::IndexChanges& changes)
    {
        bool everything = changes.everything;
        std::vector<ItemRecord> items;
        items.reserve(changes.upserted.size());
        for (const index::ItemRef& item : changes.upserted) {
            const std::shared_ptr<const index::FileFacts>& facts = item.fileFacts();
            if (!facts) {
                everything = true;  // only the snapshot can tell the client about it
                break;
            }
            items.push_back({item.path(), facts->info(), facts->details(), facts->lastUsed(), facts->nodeCount()});
        }
        if (everything) {
            (void)live.checkpoint();
            ChangesEvent event;
            event.everything = true;
            event.generation = live.view()->base()->generation();
            sendFromElsewhere(client, event);
            return;
        }
        const std::int64_t generation = live.view()->base()->generation();
        // Removals and additions of one batch travel together where they
        // fit one event, so that a rename reaches the client as one change.
        std::size_t removedAt = 0;
        std::size_t itemsAt = 0;
        while (removedAt < changes.removed.size() || itemsAt < items.size()) {
            ChangesEvent event;
            event.generation = generation;
            const auto removedEnd = std::min(changes.removed.size(), removedAt + kPathsPerEvent);
            event.removed.assign(changes.removed.begin() + static_cast<long>(removedAt),
                                 changes.removed.begin() + static_cast<long>(removedEnd));
            removedAt = removedEnd;
            const auto itemsEnd = std::min(items.size(), itemsAt + kItemsPerEvent);
            event.upserted.assign(std::make_move_iterator(items.begin() + static_cast<long>(itemsAt)),
                                  std::make_move_iterator(items.begin() + static_cast<long>(itemsEnd)));
            itemsAt = itemsEnd;
            sendFromElsewhere(client, event);
        }
    }

    void endSubscription(Client& client)
    {
        if (const int id = client.subscription.exchange(0)) {
            m_engine.unsubscribeFromChanges(id);
        }
    }

    DaemonFigures figures()
    {
        const index::EngineStatistics statistics = m_engine.statistics();
        DaemonFigures figures;
        figures.pid = ::getpid();
        figures.clients = m_clientCount.load();
        figures.subscribers = m_subscriberCount.load();
        figures.watchedFolders = statistics.watcher.watchedFolders;
        figures.polledFolders = statistics.watcher.polledFolders;
        figures.watchBudget = statistics.watcher.watchBudget;
        figures.changesApplied = statistics.changesApplied;
        figures.residentBytes = residentBytes();
        figures.startedAt = static_cast<std::uint64_t>(m_started);
        figures.caughtUp = statistics.caughtUp;
        figures.importsWaiting = statistics.importsWaiting;
        figures.importsDone = statistics.importsDone;
        return figures;
    }

    // Queues a message; the loop thread sends it.
    void queue(Client& client, const Message& message)
    {
        std::vector<std::uint8_t> frame = encodeFrame(message);
        std::lock_guard lock(client.outMutex);
        if (client.tooSlow) {
            return;
        }
        client.queued += frame.size();
        if (client.queued > kMaxQueuedBytes) {
            client.tooSlow = true;  // it cannot keep up: the loop lets it go
            client.out.clear();
            return;
        }
        client.out.push_back(std::move(frame));
    }

    void send(Client& client, const Message& message) { queue(client, message); }

    void sendFromElsewhere(const std::shared_ptr<Client>& client, const Message& message)
    {
        queue(*client, message);
        wake();
    }

    // Loop thread: writes what each client can take now.
    void flushAll()
    {
        std::vector<int> gone;
        std::uint64_t subscribers = 0;
        for (auto& [fd, client] : m_clients) {
            subscribers += client->subscription.load() != 0;
            if (!flush(*client)) {
                gone.push_back(fd);
            }
        }
        for (int fd : gone) {
            drop(fd);
        }
        m_clientCount.store(m_clients.size());
        m_subscriberCount.store(subscribers);
    }

    // False when the client is to be let go.
    bool flush(Client& client)
    {
        std::lock_guard lock(client.outMutex);
        if (client.tooSlow) {
            return false;
        }
        while (client.writable && !client.out.empty()) {
            std::vector<std::uint8_t>& frame = client.out.front();
            const ssize_t sent = ::send(client.fd, frame.data() + client.outOffset, frame.size() - client.outOffset,
                                        MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent < 0) {
                if (errno == EAGAIN || errno == EWOULDBLOCK) {
                    client.writable = false;  // EPOLLOUT says when it may go on
                    break;
                }
                if (errno == EINTR) {
                    continue;
                }
                return false;
            }
            client.outOffset += static_cast<std::size_t>(sent);
            if (client.outOffset == frame.size()) {
                client.queued -= frame.size();
                client.out.pop_front();
                client.outOffset = 0;
            }
        }
        return !(client.closeWhenSent && client.out.empty());
    }

    bool anythingQueued()
    {
        for (auto& [fd, client] : m_clients) {
            std::lock_guard lock(client->outMutex);
            if (!client->out.empty() && !client->tooSlow) {
                return true;
            }
        }
        return false;
    }

    void drop(int fd)
    {
        auto it = m_clients.find(fd);
        if (it == m_clients.end()) {
            return;
        }
        endSubscription(*it->second);
        ::epoll_ctl(m_epoll, EPOLL_CTL_DEL, fd, nullptr);
        ::close(fd);
        it->second->fd = -1;
        m_clients.erase(it);
    }

    index::IndexEngine& m_engine;
    std::string m_indexDirectory;
    std::string m_socketPath;
    std::int64_t m_started;
    std::size_t m_maxClients;
    uid_t m_user;
    int m_listen = -1;
    int m_epoll = -1;
    int m_wake = -1;
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_shutdownRequested{false};
    std::map<int, std::shared_ptr<Client>> m_clients;
    std::atomic<std::uint64_t> m_clientCount{0};
    std::atomic<std::uint64_t> m_subscriberCount{0};
};

Expected<std::unique_ptr<Server>> Server::listen(index::IndexEngine& engine, const std::string& socketPath,
                                                 const std::string& indexDirectory, ServerAdmission admission)
{
    auto impl = std::make_unique<Impl>(engine, indexDirectory, admission);
    if (Expected<void> listening = impl->listen(socketPath); !listening) {
        return listening.error();
    }
    return std::unique_ptr<Server>(new Server(std::move(impl)));
}

Server::Server(std::unique_ptr<Impl> impl)
    : m_impl(std::move(impl))
{
}

Server::~Server() = default;

void Server::run()
{
    m_impl->run();
}

void Server::stop()
{
    m_impl->stop();
}

bool Server::shutdownRequested() const
{
    return m_impl->shutdownRequested();
}

}  // namespace trovara::daemon
