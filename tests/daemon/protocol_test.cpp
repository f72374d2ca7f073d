// The daemon's messages: each survives the trip through bytes, and no
// sequence of bytes (truncated, damaged or random) makes the decoder crash,
// hang or allocate without bound.
#include "daemon/protocol.h"

#include <gtest/gtest.h>

#include <random>

namespace trovara::daemon {
namespace {

std::span<const std::uint8_t> bodyOf(const std::vector<std::uint8_t>& frame)
{
    return std::span<const std::uint8_t>(frame).subspan(4);
}

Message roundTrip(const Message& message)
{
    const std::vector<std::uint8_t> frame = encodeFrame(message);
    index::Expected<Message> decoded = decodeBody(bodyOf(frame));
    EXPECT_TRUE(decoded.ok()) << (decoded.ok() ? "" : decoded.error().message);
    return decoded.ok() ? decoded.value() : Message{};
}

ItemRecord sampleItem()
{
    ItemRecord item;
    item.path = "/home/ann/Documents/Résumé 2026.pdf";
    item.info.name = "Résumé 2026.pdf";
    item.info.kind = index::FileKind::Regular;
    item.info.device = 0xfd01;
    item.info.inode = 0xffffffffffffull;
    item.info.mode = 0100644;
    item.info.uid = 1000;
    item.info.gid = 1000;
    item.info.size = 123456789012;
    item.info.modified = 1'700'000'000'123'456'789;
    item.info.changed = -5;  // before 1970: negative
    item.info.accessed = 1;
    item.info.born = 1'600'000'000'000'000'000;
    item.info.invisible = true;
    item.details.mimeType = "application/pdf";
    item.details.attributes.comment = "the final one";
    item.details.attributes.tags = {"Work", "Important"};
    item.details.attributes.whereFroms = {"https://example.org/cv.pdf"};
    item.details.attributes.label = 3;
    item.lastUsed = 1'700'000'100'000'000'000;
    item.nodeCount = 0;
    return item;
}

std::vector<Message> samples()
{
    Request hello{MessageType::Hello, 1, kProtocolVersion, {}};
    Request add{MessageType::AddRoots, 2, 0, {"/home/ann", "/srv/data with spaces"}, true};
    Request shutdown{MessageType::Shutdown, 99, 0, {}};

    Reply welcome;
    welcome.id = 1;
    welcome.answers = MessageType::Hello;
    welcome.version = kProtocolVersion;
    welcome.figures.pid = 4242;
    welcome.indexDirectory = "/home/ann/.local/share/trovara/index";

    Reply status;
    status.id = 3;
    status.answers = MessageType::Status;
    status.status.roots = {{1, "/home/ann", 7, 10, 20, 30, true, false}, {2, "/srv", 0, 11, 21, 0, false, true}};
    status.status.items = 200000;
    status.status.databaseBytes = 50'000'000;
    status.status.catalogueBytes = 28'000'000;
    status.status.lastUpdate = 30;
    status.status.unreadable = {{"/home/ann/private", 13}};
    status.figures = {4242, 3, 1, 20000, 15, 60000, 987, 45'000'000, 1'700'000'000'000'000'000, true, 1500, 300};

    Reply report;
    report.id = 2;
    report.answers = MessageType::AddRoots;
    report.report.crawl = {100, 1000, 2, 1100, true};
    report.report.added = 1102;

    Reply failed;
    failed.id = 5;
    failed.answers = MessageType::RemoveRoots;
    failed.failure = index::Failure{index::Failure::Kind::InvalidArgument, "/nowhere: No such file or directory"};

    Reply generation;
    generation.id = 6;
    generation.answers = MessageType::Subscribe;
    generation.generation = 1234567;

    ChangesEvent changes;
    changes.generation = 1234568;
    changes.removed = {"/home/ann/old", "/home/ann/old/a.txt"};
    changes.upserted = {sampleItem(), ItemRecord{"/home/ann/new folder", {}, {"inode/directory", {}}, 0, 12}};
    changes.upserted[1].info.kind = index::FileKind::Directory;

    ChangesEvent everything;
    everything.everything = true;
    everything.generation = 1234600;

    return {hello, add, shutdown, welcome, status, report, failed, generation, changes, everything};
}

TEST(Protocol, EveryMessageSurvivesTheTripThroughBytes)
{
    for (const Message& message : samples()) {
        const Message decoded = roundTrip(message);
        ASSERT_EQ(decoded.index(), message.index());
        if (const auto* request = std::get_if<Request>(&message)) {
            const auto& back = std::get<Request>(decoded);
            EXPECT_EQ(back.type, request->type);
            EXPECT_EQ(back.id, request->id);
            EXPECT_EQ(back.version, request->version);
            EXPECT_EQ(back.paths, request->paths);
            EXPECT_EQ(back.namesOnly, request->namesOnly);
        } else if (const auto* reply = std::get_if<Reply>(&message)) {
            const auto& back = std::get<Reply>(decoded);
            EXPECT_EQ(back.id, reply->id);
            EXPECT_EQ(back.answers, reply->answers);
            EXPECT_EQ(back.failure.has_value(), reply->failure.has_value());
            if (reply->failure) {
                EXPECT_EQ(back.failure->kind, reply->failure->kind);
                EXPECT_EQ(back.failure->message, reply->failure->message);
            }
            EXPECT_EQ(back.indexDirectory, reply->indexDirectory);
            EXPECT_EQ(back.generation, reply->generation);
            EXPECT_EQ(back.report.crawl.files, reply->report.crawl.files);
            EXPECT_EQ(back.report.crawl.cancelled, reply->report.crawl.cancelled);
            EXPECT_EQ(back.report.added, reply->report.added);
            ASSERT_EQ(back.status.roots.size(), reply->status.roots.size());
            for (std::size_t i = 0; i < back.status.roots.size(); ++i) {
                EXPECT_EQ(back.status.roots[i].path, reply->status.roots[i].path);
                EXPECT_EQ(back.status.roots[i].complete, reply->status.roots[i].complete);
                EXPECT_EQ(back.status.roots[i].namesOnly, reply->status.roots[i].namesOnly);
                EXPECT_EQ(back.status.roots[i].lastCrawlFinished, reply->status.roots[i].lastCrawlFinished);
            }
            EXPECT_EQ(back.status.items, reply->status.items);
            ASSERT_EQ(back.status.unreadable.size(), reply->status.unreadable.size());
            if (!back.status.unreadable.empty()) {
                EXPECT_EQ(back.status.unreadable[0].error, 13);
            }
            EXPECT_EQ(back.figures.pid, reply->figures.pid);
            EXPECT_EQ(back.figures.residentBytes, reply->figures.residentBytes);
            EXPECT_EQ(back.figures.caughtUp, reply->figures.caughtUp);
            EXPECT_EQ(back.figures.importsWaiting, reply->figures.importsWaiting);
            EXPECT_EQ(back.figures.importsDone, reply->figures.importsDone);
        } else {
            const auto& sent = std::get<ChangesEvent>(message);
            const auto& back = std::get<ChangesEvent>(decoded);
            EXPECT_EQ(back.everything, sent.everything);
            EXPECT_EQ(back.generation, sent.generation);
            EXPECT_EQ(back.removed, sent.removed);
            ASSERT_EQ(back.upserted.size(), sent.upserted.size());
            for (std::size_t i = 0; i < back.upserted.size(); ++i) {
                const ItemRecord& a = back.upserted[i];
                const ItemRecord& b = sent.upserted[i];
                EXPECT_EQ(a.path, b.path);
                EXPECT_EQ(a.info.name, b.info.name);
                EXPECT_EQ(a.info.kind, b.info.kind);
                EXPECT_EQ(a.info.inode, b.info.inode);
                EXPECT_EQ(a.info.size, b.info.size);
                EXPECT_EQ(a.info.modified, b.info.modified);
                EXPECT_EQ(a.info.changed, b.info.changed);
                EXPECT_EQ(a.info.born, b.info.born);
                EXPECT_EQ(a.info.invisible, b.info.invisible);
                EXPECT_EQ(a.details.mimeType, b.details.mimeType);
                EXPECT_EQ(a.details.attributes, b.details.attributes);
                EXPECT_EQ(a.lastUsed, b.lastUsed);
                EXPECT_EQ(a.nodeCount, b.nodeCount);
            }
        }
    }
}

TEST(Protocol, TruncatedOrExtendedMessagesAreRefused)
{
    for (const Message& message : samples()) {
        const std::vector<std::uint8_t> frame = encodeFrame(message);
        const auto body = bodyOf(frame);
        for (std::size_t length = 0; length < body.size(); ++length) {
            EXPECT_FALSE(decodeBody(body.first(length)).ok()) << "cut at " << length;
        }
        std::vector<std::uint8_t> longer(body.begin(), body.end());
        longer.push_back(0);
        index::Expected<Message> extended = decodeBody(longer);
        ASSERT_FALSE(extended.ok());
        EXPECT_NE(extended.error().message.find("malformed message"), std::string::npos);
    }
}

TEST(Protocol, NoBytesCrashTheDecoder)
{
    std::mt19937 random(20261123);
    std::vector<std::vector<std::uint8_t>> valid;
    for (const Message& message : samples()) {
        const std::vector<std::uint8_t> frame = encodeFrame(message);
        valid.emplace_back(frame.begin() + 4, frame.end());
    }
    std::size_t decoded = 0;
    for (int round = 0; round < 200000; ++round) {
        std::vector<std::uint8_t> bytes;
        if (round % 2 == 0) {
            // Random bytes, often starting like a real message.
            bytes.resize(std::uniform_int_distribution<std::size_t>(0, 64)(random));
            for (std::uint8_t& byte : bytes) {
                byte = static_cast<std::uint8_t>(random());
            }
            if (!bytes.empty() && round % 4 == 0) {
                bytes[0] = static_cast<std::uint8_t>(std::uniform_int_distribution<int>(1, 66)(random));
            }
        } else {
            // A valid message with a few bytes changed.
            bytes = valid[static_cast<std::size_t>(round / 2) % valid.size()];
            for (int flips = std::uniform_int_distribution<int>(1, 4)(random); flips > 0; --flips) {
                bytes[std::uniform_int_distribution<std::size_t>(0, bytes.size() - 1)(random)] =
                    static_cast<std::uint8_t>(random());
            }
        }
        decoded += decodeBody(bytes).ok() ? 1 : 0;
    }
    // Most damaged messages are refused; the point is that none crashed.
    EXPECT_LT(decoded, 200000u);
}

TEST(Protocol, HugeCountsAreRefusedWithoutAllocating)
{
    // A change event claiming 2^60 upserted items in a few bytes.
    const std::vector<std::uint8_t> claims = {static_cast<std::uint8_t>(MessageType::Changes), 0, 0, 0,
                                              0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x0f};
    EXPECT_FALSE(decodeBody(claims).ok());
    // A text claiming to be longer than what follows.
    const std::vector<std::uint8_t> text = {static_cast<std::uint8_t>(MessageType::AddRoots), 1, 1, 0xff, 0xff, 0x03,
                                            'a'};
    EXPECT_FALSE(decodeBody(text).ok());
    // A number of more than ten bytes.
    std::vector<std::uint8_t> endless = {static_cast<std::uint8_t>(MessageType::Hello)};
    endless.insert(endless.end(), 12, 0x80);
    EXPECT_FALSE(decodeBody(endless).ok());
}

TEST(Protocol, FramesAreCutFromAStreamHoweverItArrives)
{
    std::vector<std::uint8_t> stream;
    const std::vector<Message> messages = samples();
    for (const Message& message : messages) {
        const std::vector<std::uint8_t> frame = encodeFrame(message);
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{7}, std::size_t{4096}}) {
        FrameReader reader;
        std::size_t frames = 0;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            reader.append(std::span<const std::uint8_t>(stream).subspan(at, std::min(piece, stream.size() - at)));
            for (;;) {
                auto body = reader.next();
                ASSERT_TRUE(body.ok());
                if (!body.value()) {
                    break;
                }
                EXPECT_TRUE(decodeBody(**body).ok());
                ++frames;
            }
        }
        EXPECT_EQ(frames, messages.size()) << "in pieces of " << piece;
        EXPECT_EQ(reader.buffered(), 0u);
    }

    // A frame announcing more than the limit (or nothing) loses the stream.
    for (const std::uint32_t length : {std::uint32_t{0}, static_cast<std::uint32_t>(kMaxFrame + 1)}) {
        FrameReader reader;
        const std::uint8_t header[] = {static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(length >> 8),
                                       static_cast<std::uint8_t>(length >> 16), static_cast<std::uint8_t>(length >> 24)};
        reader.append(header);
        EXPECT_FALSE(reader.next().ok());
    }
}

}  // namespace
}  // namespace trovara::daemon
