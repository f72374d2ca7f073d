#include "daemon/client.h"

#include "daemon/socket_path.h"

#include <cerrno>
#include <cstring>
#include <future>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace trovara::daemon {

namespace {

using index::Expected;
using index::Failure;

constexpr const char* kNoDaemon = "no daemon serves ";

bool sendAll(int fd, const std::vector<std::uint8_t>& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

bool isNoDaemon(const Failure& failure)
{
    return failure.message.rfind(kNoDaemon, 0) == 0;
}

Expected<std::unique_ptr<Connection>> Connection::open(const std::string& indexDirectory)
{
    const std::string path = socketPathFor(indexDirectory);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return Failure{Failure::Kind::Io, kNoDaemon + indexDirectory + " (socket path too long)"};
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return Failure{Failure::Kind::Io, std::string("cannot make a socket: ") + std::strerror(errno)};
    }
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return Failure{Failure::Kind::Io, kNoDaemon + indexDirectory};
    }
    std::unique_ptr<Connection> connection(new Connection);
    connection->m_fd = fd;
    connection->m_open.store(true);
    connection->m_reader = std::thread([c = connection.get()] { c->readLoop(); });

    Request hello;
    hello.type = MessageType::Hello;
    hello.version = kProtocolVersion;
    Expected<Reply> reply = connection->call(hello);
    if (!reply) {
        std::lock_guard lock(connection->m_mutex);
        if (connection->m_refusal) {
            return *connection->m_refusal;  // a daemon runs, but not for us, or not now
        }
        return Failure{Failure::Kind::Io, kNoDaemon + indexDirectory + " (" + reply.error().message + ")"};
    }
    if (reply->failure) {
        return *reply->failure;
    }
    connection->m_pid = reply->figures.pid;
    return connection;
}

Connection::~Connection()
{
    if (m_fd >= 0) {
        ::shutdown(m_fd, SHUT_RDWR);
    }
    if (m_reader.joinable()) {
        m_reader.join();
    }
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void Connection::setEventHandler(EventHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_events = std::move(handler);
}

void Connection::setClosedHandler(ClosedHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_closed = std::move(handler);
}

Expected<Reply> Connection::call(Request request)
{
    auto promise = std::make_shared<std::promise<Expected<Reply>>>();
    std::future<Expected<Reply>> future = promise->get_future();
    send(std::move(request), [promise](Expected<Reply> reply) { promise->set_value(std::move(reply)); });
    return future.get();
}

void Connection::send(Request request, ReplyHandler done)
{
    std::unique_lock lock(m_mutex);
    if (!m_open.load()) {
        lock.unlock();
        done(Failure{Failure::Kind::Io, "the daemon has gone away"});
        return;
    }
    request.id = m_nextId++;
    m_waiting.emplace(request.id, std::move(done));
    if (!sendAll(m_fd, encodeFrame(request))) {
        // The reader sees the connection close and fails everything waiting.
        ::shutdown(m_fd, SHUT_RDWR);
    }
}

void Connection::readLoop()
{
    FrameReader frames;
    std::uint8_t buffer[65536];
    for (;;) {
        const ssize_t got = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        frames.append({buffer, static_cast<std::size_t>(got)});
        for (;;) {
            Expected<std::optional<std::vector<std::uint8_t>>> body = frames.next();
            if (!body) {
                closed();
                return;
            }
            if (!body.value()) {
                break;
            }
            Expected<Message> message = decodeBody(**body);
            if (!message) {
                continue;  // a message this client cannot read: skip it
            }
            if (auto* reply = std::get_if<Reply>(&message.value())) {
                ReplyHandler done;
                {
                    std::lock_guard lock(m_mutex);
                    if (reply->id == 0 && reply->failure) {
                        // Why the daemon refuses the connection, which it
                        // closes next; what waits then fails with this.
                        m_refusal = reply->failure;
                        continue;
                    }
                    auto waiting = m_waiting.find(reply->id);
                    if (waiting == m_waiting.end()) {
                        continue;
                    }
                    done = std::move(waiting->second);
                    m_waiting.erase(waiting);
                }
                done(std::move(*reply));
            } else if (auto* event = std::get_if<ChangesEvent>(&message.value())) {
                EventHandler handler;
                {
                    std::lock_guard lock(m_mutex);
                    handler = m_events;
                }
                if (handler) {
                    handler(std::move(*event));
                }
            }
        }
    }
    closed();
}

void Connection::closed()
{
    std::map<std::uint64_t, ReplyHandler> waiting;
    ClosedHandler handler;
    Failure why{Failure::Kind::Io, "the daemon has gone away"};
    {
        std::lock_guard lock(m_mutex);
        m_open.store(false);
        waiting = std::move(m_waiting);
        m_waiting.clear();
        handler = m_closed;
        if (m_refusal) {
            why = *m_refusal;
        }
    }
    for (auto& [id, done] : waiting) {
        done(why);
    }
    if (handler) {
        handler();
    }
}

}  // namespace trovara::daemon
