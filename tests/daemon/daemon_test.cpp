// The daemon in the test's own process: a real engine on a temporary tree,
// the server on a real socket, and clients speaking to it as trova does.
// It answers, keeps subscribers' live queries true, refuses malformed or
// hostile requests without stopping, forgets clients that vanish, and its
// clients find it again after it restarts.
#include "daemon/client.h"
#include "daemon/remote_source.h"
#include "daemon/server.h"
#include "daemon/socket_path.h"
#include "index/live/engine.h"
#include "live/live_test_support.h"
#include "live/manual_dispatcher.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <mutex>
#include <thread>

namespace trovara::daemon {
namespace {

using test::writeFile;

class DaemonTest : public test::LiveTreeTest {
protected:
    DaemonTest()
    {
        ::mkdir(at("docs").c_str(), 0755);
        writeFile(at("docs/report.txt"), "r");
        writeFile(at("docs/notes.txt"), "n");
    }
    ~DaemonTest() override { stopDaemon(); }

    void startDaemon(ServerAdmission admission = {})
    {
        index::EngineOptions options;
        options.watcher.pairingWindow = 0;
        options.watcher.writeQuietPeriod = 0;
        options.checkpointDelay = std::chrono::milliseconds(0);
        auto engine = index::IndexEngine::start(directory, test::liveServices(), options);
        ASSERT_TRUE(engine.ok()) << engine.error().message;
        m_engine = std::move(engine.value());
        auto server = Server::listen(*m_engine, socketPathFor(directory), directory, admission);
        ASSERT_TRUE(server.ok()) << server.error().message;
        m_server = std::move(server.value());
        m_thread = std::thread([this] { m_server->run(); });
    }

    void stopDaemon()
    {
        if (m_server) {
            m_server->stop();
            m_thread.join();
            m_server.reset();
        }
        m_engine.reset();
    }

    std::unique_ptr<Connection> connect()
    {
        auto connection = Connection::open(directory);
        EXPECT_TRUE(connection.ok()) << (connection.ok() ? "" : connection.error().message);
        return connection.ok() ? std::move(connection.value()) : nullptr;
    }

    static Reply call(Connection& connection, MessageType type, std::vector<std::string> paths = {})
    {
        Request request;
        request.type = type;
        request.paths = std::move(paths);
        auto reply = connection.call(request);
        EXPECT_TRUE(reply.ok()) << (reply.ok() ? "" : reply.error().message);
        return reply.ok() ? reply.value() : Reply{};
    }

    // A socket that speaks bytes, for what well-behaved clients never send.
    int rawSocket()
    {
        const std::string path = socketPathFor(directory);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return fd;
    }

    static void sendRaw(int fd, const std::vector<std::uint8_t>& bytes)
    {
        ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    // The next message on a raw socket; none when the daemon closed it.
    static std::optional<Message> receiveRaw(int fd, FrameReader& frames)
    {
        for (;;) {
            auto body = frames.next();
            if (body.ok() && body.value()) {
                auto message = decodeBody(**body);
                EXPECT_TRUE(message.ok());
                return message.ok() ? std::optional<Message>(message.value()) : std::nullopt;
            }
            pollfd ready{fd, POLLIN, 0};
            if (::poll(&ready, 1, 30000) <= 0) {
                ADD_FAILURE() << "no answer";
                return std::nullopt;
            }
            std::uint8_t buffer[4096];
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0) {
                return std::nullopt;
            }
            frames.append({buffer, static_cast<std::size_t>(got)});
        }
    }

    static std::vector<std::uint8_t> frameOf(const std::vector<std::uint8_t>& body)
    {
        std::vector<std::uint8_t> frame = {static_cast<std::uint8_t>(body.size()),
                                           static_cast<std::uint8_t>(body.size() >> 8), 0, 0};
        frame.insert(frame.end(), body.begin(), body.end());
        return frame;
    }

    static std::set<std::string> results(const index::LiveQuery& query)
    {
        std::set<std::string> set;
        for (std::size_t i = 0; i < query.resultCount(); ++i) {
            set.insert(query.itemAt(i).path());
        }
        return set;
    }

    std::unique_ptr<index::IndexEngine> m_engine;
    std::unique_ptr<Server> m_server;
    std::thread m_thread;
    std::shared_ptr<test::ManualDispatcher> dispatcher = std::make_shared<test::ManualDispatcher>();
};

TEST_F(DaemonTest, ClientsRunTheIndexThroughTheDaemonAndFollowItsChanges)
{
    startDaemon();
    std::unique_ptr<Connection> connection = connect();
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->daemonPid(), ::getpid());

    Reply added = call(*connection, MessageType::AddRoots, {root});
    ASSERT_FALSE(added.failure) << added.failure->message;
    EXPECT_EQ(added.report.added, 4u);  // the root, docs, two files
    Reply status = call(*connection, MessageType::Status);
    ASSERT_FALSE(status.failure);
    ASSERT_EQ(status.status.roots.size(), 1u);
    EXPECT_EQ(status.status.roots[0].path, root);
    EXPECT_EQ(status.status.items, 4);
    Reply missing = call(*connection, MessageType::AddRoots, {root + "/missing"});
    ASSERT_TRUE(missing.failure);
    EXPECT_NE(missing.failure->message.find("missing"), std::string::npos);

    auto source = RemoteIndexSource::open(directory, test::liveServices());
    ASSERT_TRUE(source.ok()) << source.error().message;
    EXPECT_EQ(source.value()->indexedRoots(), std::vector<std::string>{root});
    index::LiveQueryOptions options;
    options.query = "kMDItemFSName == '*report*'";
    index::LiveQuery query(*source.value(), dispatcher, options);
    ASSERT_TRUE(query.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    EXPECT_EQ(results(query), std::set<std::string>{at("docs/report.txt")});

    // A rename comes as one change: its old path gone and its new one there
    // (or within a look at everything again, when the daemon sends one).
    std::mutex seenMutex;
    bool renameSplit = false;
    const int subscription = source.value()->subscribeToChanges([&](const index::IndexChanges& changes) {
        const bool gone = std::find(changes.removed.begin(), changes.removed.end(), at("docs/report.txt"))
                          != changes.removed.end();
        const bool there = std::any_of(changes.upserted.begin(), changes.upserted.end(),
                                       [&](const index::ItemRef& item) { return item.path() == at("report moved.txt"); });
        std::lock_guard lock(seenMutex);
        renameSplit = renameSplit || gone != there;
    });
    writeFile(at("docs/report 2.txt"), "2");
    ASSERT_TRUE(dispatcher->runUntil([&] { return results(query).count(at("docs/report 2.txt")) == 1; }));
    ASSERT_EQ(::rename(at("docs/report.txt").c_str(), at("report moved.txt").c_str()), 0);
    ASSERT_TRUE(dispatcher->runUntil([&] {
        return results(query) == std::set<std::string>{at("docs/report 2.txt"), at("report moved.txt")};
    }));
    source.value()->unsubscribeFromChanges(subscription);
    {
        std::lock_guard lock(seenMutex);
        EXPECT_FALSE(renameSplit);
    }
    query.stop();
}

TEST_F(DaemonTest, MalformedAndHostileRequestsGetAnErrorAndTheDaemonGoesOn)
{
    startDaemon();
    const int fd = rawSocket();
    FrameReader frames;
    // Garbage in a well-formed frame, and a message that is not a request.
    for (const std::vector<std::uint8_t>& body :
         {std::vector<std::uint8_t>{0xee, 1, 2, 3}, std::vector<std::uint8_t>{3, 7, 0xff, 0xff, 0xff, 0xff, 0x0f},
          std::vector<std::uint8_t>{static_cast<std::uint8_t>(MessageType::Changes), 0, 0, 0, 0}}) {
        sendRaw(fd, frameOf(body));
        std::optional<Message> answer = receiveRaw(fd, frames);
        ASSERT_TRUE(answer);
        const Reply* reply = std::get_if<Reply>(&*answer);
        ASSERT_TRUE(reply);
        ASSERT_TRUE(reply->failure);
        EXPECT_NE(reply->failure->message.find("malformed message"), std::string::npos) << reply->failure->message;
    }
    // The same connection still works.
    sendRaw(fd, encodeFrame(Request{MessageType::Hello, 7, 99, {}}));
    std::optional<Message> refused = receiveRaw(fd, frames);
    ASSERT_TRUE(refused);
    ASSERT_TRUE(std::get<Reply>(*refused).failure);
    EXPECT_EQ(std::get<Reply>(*refused).failure->kind, index::Failure::Kind::Version);
    sendRaw(fd, encodeFrame(Request{MessageType::Hello, 8, kProtocolVersion, {}}));
    std::optional<Message> welcome = receiveRaw(fd, frames);
    ASSERT_TRUE(welcome);
    EXPECT_FALSE(std::get<Reply>(*welcome).failure);
    EXPECT_EQ(std::get<Reply>(*welcome).id, 8u);

    // A frame longer than any message may be: told why, then let go.
    sendRaw(fd, {0xff, 0xff, 0xff, 0x7f, 1, 2, 3});
    std::optional<Message> lost = receiveRaw(fd, frames);
    ASSERT_TRUE(lost);
    EXPECT_TRUE(std::get<Reply>(*lost).failure);
    EXPECT_FALSE(receiveRaw(fd, frames)) << "the connection is closed";
    ::close(fd);

    // Others never noticed.
    std::unique_ptr<Connection> connection = connect();
    ASSERT_TRUE(connection);
    EXPECT_FALSE(call(*connection, MessageType::Status).failure);
}

TEST_F(DaemonTest, AddRootsRefusesAPathWithANulByteInsteadOfCuttingItShort)
{
    startDaemon();
    std::unique_ptr<Connection> connection = connect();
    ASSERT_TRUE(connection);
    // Read up to the NUL, this would index docs, a tree nobody asked for.
    const std::string path = at("docs") + std::string("\0/etc", 5);
    for (const MessageType type : {MessageType::AddRoots, MessageType::RemoveRoots}) {
        Reply refused = call(*connection, type, {path});
        ASSERT_TRUE(refused.failure);
        EXPECT_EQ(refused.failure->kind, index::Failure::Kind::InvalidArgument);
        EXPECT_NE(refused.failure->message.find("docs\\0/etc"), std::string::npos) << refused.failure->message;
    }
    Reply status = call(*connection, MessageType::Status);
    ASSERT_FALSE(status.failure);
    EXPECT_TRUE(status.status.roots.empty());
    EXPECT_EQ(status.status.items, 0);
}

TEST_F(DaemonTest, ARefusedConnectionSaysWhyInsteadOfNoDaemon)
{
    // At its limit: the client learns that a daemon runs and is full, and
    // is not sent to open the index beside it.
    startDaemon(ServerAdmission{2, std::nullopt});
    std::unique_ptr<Connection> first = connect();
    std::unique_ptr<Connection> second = connect();
    ASSERT_TRUE(first && second);
    auto third = Connection::open(directory);
    ASSERT_FALSE(third.ok());
    EXPECT_FALSE(isNoDaemon(third.error()));
    EXPECT_EQ(third.error().kind, index::Failure::Kind::Busy);
    EXPECT_EQ(third.error().message, "the daemon serving " + directory
                                         + " already has 2 programs connected, as many as it takes; try again when "
                                           "some have finished");
    EXPECT_FALSE(call(*first, MessageType::Status).failure) << "those connected are served on";
    // Once one has gone, another gets in.
    second.reset();
    bool admitted = false;
    for (int attempt = 0; attempt < 1000 && !admitted; ++attempt) {
        admitted = Connection::open(directory).ok();
    }
    EXPECT_TRUE(admitted);
    stopDaemon();

    // Another user's daemon (here: one that serves some other user).
    startDaemon(ServerAdmission{256, ::geteuid() + 1});
    auto foreign = Connection::open(directory);
    ASSERT_FALSE(foreign.ok());
    EXPECT_FALSE(isNoDaemon(foreign.error()));
    EXPECT_EQ(foreign.error().message, "the daemon serving " + directory + " serves only the programs of user "
                                           + std::to_string(::geteuid() + 1));
}

TEST_F(DaemonTest, AClientThatVanishesCostsNothing)
{
    startDaemon();
    std::unique_ptr<Connection> connection = connect();
    ASSERT_TRUE(connection);
    ASSERT_FALSE(call(*connection, MessageType::AddRoots, {root}).failure);

    // Subscribed, then gone without a word, in the middle of changes.
    for (int i = 0; i < 5; ++i) {
        const int fd = rawSocket();
        sendRaw(fd, encodeFrame(Request{MessageType::Subscribe, 1, 0, {}}));
        if (i % 2 == 0) {
            FrameReader frames;
            receiveRaw(fd, frames);
        }
        for (int f = 0; f < 20; ++f) {
            writeFile(at("docs/burst " + std::to_string(i) + "-" + std::to_string(f)), "b");
        }
        ::close(fd);
    }
    m_engine->sync();
    // The daemon serves on, and counts no subscriber it lost.
    Reply status;
    for (int attempt = 0; attempt < 100; ++attempt) {
        status = call(*connection, MessageType::Status);
        if (status.figures.subscribers == 0 && status.figures.clients == 1) {
            break;
        }
        m_engine->sync();
    }
    EXPECT_EQ(status.figures.subscribers, 0u);
    EXPECT_EQ(status.figures.clients, 1u);
    EXPECT_EQ(status.status.items, 4 + 100);
}

TEST_F(DaemonTest, ClientsFindTheDaemonAgainAfterItRestarts)
{
    startDaemon();
    {
        std::unique_ptr<Connection> connection = connect();
        ASSERT_TRUE(connection);
        ASSERT_FALSE(call(*connection, MessageType::AddRoots, {root}).failure);
    }
    auto source = RemoteIndexSource::open(directory, test::liveServices());
    ASSERT_TRUE(source.ok()) << source.error().message;
    std::vector<std::string> notices;
    std::mutex noticesMutex;
    source.value()->setNoticeHandler([&](const std::string& notice) {
        std::lock_guard lock(noticesMutex);
        notices.push_back(notice);
    });
    index::LiveQueryOptions options;
    options.query = "kMDItemFSName == '*.txt'";
    index::LiveQuery query(*source.value(), dispatcher, options);
    ASSERT_TRUE(query.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    EXPECT_EQ(query.resultCount(), 2u);

    stopDaemon();
    ::unlink(at("docs/notes.txt").c_str());
    writeFile(at("docs/while down.txt"), "d");
    EXPECT_FALSE(Connection::open(directory).ok());

    startDaemon();  // catches up with what changed, then serves again
    const std::set<std::string> expected{at("docs/report.txt"), at("docs/while down.txt")};
    ASSERT_TRUE(dispatcher->runUntil([&] { return results(query) == expected; }));
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    EXPECT_TRUE(source.value()->isConnected());
    std::lock_guard lock(noticesMutex);
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_NE(notices[0].find("gone away"), std::string::npos);
    EXPECT_NE(notices[1].find("back"), std::string::npos);
    query.stop();
}

// `trova find` asks for a checkpoint before it reads the snapshot: it must
// not wait behind a crawl the daemon is doing.
TEST_F(DaemonTest, ACheckpointIsAnsweredWhileTheDaemonCrawls)
{
    // Enough folders that the crawl, slowed down at each folder until the
    // checkpoint is answered, is still running when the answer comes.
    ::mkdir(at("docs/many").c_str(), 0755);
    for (int i = 0; i < 300; ++i) {
        ::mkdir(at("docs/many/" + std::to_string(i)).c_str(), 0755);
    }
    startDaemon();
    auto client = connect();
    ASSERT_TRUE(client);
    std::promise<void> crawling;
    std::promise<void> answered;
    std::shared_future<void> answeredNow = answered.get_future().share();
    index::Index::Options options;
    options.threads = 1;
    int folders = 0;
    options.progress = [&](const index::UpdateProgress&) {
        if (++folders == 1) {
            crawling.set_value();
        }
        // The engine does urgent work between folders, after this returns;
        // a checkpoint held behind the whole crawl would take 300 of these.
        answeredNow.wait_for(std::chrono::milliseconds(50));
    };
    auto adding = std::async(std::launch::async, [&] { return m_engine->addRoots({root}, options); });
    crawling.get_future().wait();
    const Reply reply = call(*client, MessageType::Checkpoint);
    EXPECT_NE(adding.wait_for(std::chrono::seconds(0)), std::future_status::ready) << "answered behind the crawl";
    answered.set_value();
    EXPECT_FALSE(reply.failure.has_value());
    EXPECT_TRUE(adding.get().ok());
    // Afterwards a checkpoint writes the snapshot the crawl leaves.
    const Reply after = call(*client, MessageType::Checkpoint);
    EXPECT_GT(after.generation, reply.generation);
}

TEST(SocketPath, EachIndexHasItsOwnPrivateSocket)
{
    EXPECT_NE(socketPathFor("/a/index"), socketPathFor("/b/index"));
    EXPECT_EQ(socketPathFor("/a/index/"), socketPathFor("/a/index"));
    EXPECT_EQ(socketPathFor("/a/index").rfind(runtimeFolder() + "/index-", 0), 0u);

    const std::string folder = runtimeFolder() + "-test";
    std::string problem;
    ASSERT_TRUE(makeRuntimeFolder(folder, &problem)) << problem;
    struct stat st {};
    ASSERT_EQ(::stat(folder.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ::chmod(folder.c_str(), 0755);
    EXPECT_FALSE(makeRuntimeFolder(folder, &problem)) << "a folder others may enter is refused";
    EXPECT_NE(problem.find("not a private folder"), std::string::npos);
    ::rmdir(folder.c_str());
}

}  // namespace
}  // namespace trovara::daemon
