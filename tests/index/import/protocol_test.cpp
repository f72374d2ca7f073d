// The importer protocol and the attribute records: what one side writes the
// other reads back, and damaged or hostile bytes are refused without harm.
#include "index/import/imported_attributes.h"
#include "index/import/protocol.h"

#include <gtest/gtest.h>

#include <random>
#include <unistd.h>

namespace trovara::index {
namespace {

ImportedAttributes sampleAttributes()
{
    return {
        {"kMDItemTitle", "Quarterly report — Ünïcode"},
        {"kMDItemAuthors", query::AttributeValue{"Ann", "Bob"}},
        {"kMDItemNumberOfPages", 12},
        {"kMDItemContentCreationDate", query::Date{700000000.5}},
        {"kMDItemFlashOnOff", true},
        {"kMDItemKeywords", query::AttributeValue::list({})},
    };
}

void expectSameAttributes(const ImportedAttributes& a, const ImportedAttributes& b)
{
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].key, b[i].key);
        EXPECT_EQ(a[i].value.isList(), b[i].value.isList()) << a[i].key;
        ASSERT_EQ(a[i].value.elements().size(), b[i].value.elements().size()) << a[i].key;
        for (std::size_t e = 0; e < a[i].value.elements().size(); ++e) {
            EXPECT_TRUE(a[i].value.elements()[e] == b[i].value.elements()[e]) << a[i].key;
        }
    }
}

TEST(ImportedAttributes, RoundTripEveryKindOfValue)
{
    const ImportedAttributes attributes = sampleAttributes();
    Expected<ImportedAttributes> decoded = decodeImportedAttributes(encodeImportedAttributes(attributes));
    ASSERT_TRUE(decoded) << decoded.error().message;
    expectSameAttributes(*decoded, attributes);

    const query::AttributeValue list{"a", 2.5, true};
    const std::optional<query::AttributeValue> value = decodeImportedValue(encodeImportedValue(list));
    ASSERT_TRUE(value);
    EXPECT_TRUE(value->isList());
    EXPECT_EQ(value->elements().size(), 3u);
}

TEST(ImportedAttributes, RefusesDamagedRecordsAndRepairsText)
{
    const std::string good = encodeImportedAttributes(sampleAttributes());
    // Every cut is refused, never read past.
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(decodeImportedAttributes(good.substr(0, length))) << length;
    }
    EXPECT_FALSE(decodeImportedAttributes(good + "x"));
    // A key that is no name.
    ImportedAttributes badKey{{"kMDItem Title", "x"}};
    EXPECT_FALSE(decodeImportedAttributes(encodeImportedAttributes(badKey)));
    // A count that promises more than there is.
    std::string lying = good;
    lying[0] = '\x7f';
    lying[3] = '\x7f';
    EXPECT_FALSE(decodeImportedAttributes(lying));
    // Text that is not UTF-8 arrives repaired.
    Expected<ImportedAttributes> repaired =
        decodeImportedAttributes(encodeImportedAttributes({{"kMDItemTitle", std::string("caf\xe9")}}));
    ASSERT_TRUE(repaired);
    EXPECT_EQ(std::get<std::string>(repaired->front().value.elements().front()), "caf\uFFFD");
    // Random bytes never crash the decoder.
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes = good;
        for (int flips = 0; flips < 3; ++flips) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        (void)decodeImportedAttributes(bytes);
    }
}

TEST(ImporterProtocol, MessagesRoundTrip)
{
    HelloMessage hello;
    hello.importers.push_back({"pdf", "1", "", {"com.adobe.pdf", "application/pdf"}});
    hello.importers.push_back({"fits", "2.0", "/usr/lib/trovara/importers/fits.so", {"image/fits"}});
    hello.problems.push_back("/x.so: cannot be loaded");
    Expected<HelloMessage> greeting = decodeHello(encodeHello(hello));
    ASSERT_TRUE(greeting);
    ASSERT_EQ(greeting->importers.size(), 2u);
    EXPECT_EQ(greeting->importers[1].name, "fits");
    EXPECT_TRUE(greeting->importers[1].isPlugin());
    EXPECT_FALSE(greeting->importers[0].isPlugin());
    EXPECT_EQ(greeting->importers[0].contentTypes, (std::vector<std::string>{"com.adobe.pdf", "application/pdf"}));
    EXPECT_EQ(greeting->problems, hello.problems);

    ImportRequest request{42, "/home/ann/r\xe9port.pdf", "pdf", "application/pdf", 1 << 20};
    Expected<ImportRequest> asked = decodeImportRequest(encodeImportRequest(request));
    ASSERT_TRUE(asked);
    EXPECT_EQ(asked->path, request.path);  // paths are bytes and stay as they are
    EXPECT_EQ(asked->textLimit, request.textLimit);

    ImportResult result;
    result.id = 42;
    result.attributes = sampleAttributes();
    result.text = "words and more words";
    result.truncated = true;
    Expected<ImportResult> answered = decodeImportResult(encodeImportResult(result));
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->id, 42u);
    EXPECT_EQ(answered->text, result.text);
    EXPECT_TRUE(answered->truncated);
    expectSameAttributes(answered->attributes, result.attributes);

    ImportResult failed;
    failed.status = ImportStatus::Failed;
    failed.error = "not a PDF";
    Expected<ImportResult> refusal = decodeImportResult(encodeImportResult(failed));
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->status, ImportStatus::Failed);
    EXPECT_FALSE(refusal->text);

    HelloMessage future;
    future.version = kImporterProtocolVersion + 1;
    EXPECT_FALSE(decodeHello(encodeHello(future)));
}

TEST(ImporterProtocol, FramesArriveInAnyPiecesAndBadOnesAreRefused)
{
    const std::string stream = encodeFrame(MessageType::Result, "first") + encodeFrame(MessageType::Quit, "");
    FrameReader reader(1024);
    std::vector<Frame> frames;
    for (const char byte : stream) {  // one byte at a time
        reader.append(std::string_view(&byte, 1));
        Expected<std::optional<Frame>> frame = reader.next();
        ASSERT_TRUE(frame);
        if (*frame) {
            frames.push_back(std::move(**frame));
        }
    }
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].payload, "first");
    EXPECT_EQ(frames[1].type, MessageType::Quit);

    FrameReader small(16);
    small.append(encodeFrame(MessageType::Result, std::string(100, 'x')).substr(0, 5));
    EXPECT_FALSE(small.next());  // over the limit: refused before it is read

    FrameReader unknown(1024);
    unknown.append(std::string("\x02\x00\x00\x00\x63z", 6));
    EXPECT_FALSE(unknown.next());

    EXPECT_FALSE(decodeImportResult("garbage"));
    EXPECT_FALSE(decodeImportRequest(""));
}

TEST(ImporterProtocol, BlockingReadsTakeExactlyOneFrame)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ASSERT_TRUE(writeFrame(fds[1], MessageType::Import, "one"));
    ASSERT_TRUE(writeFrame(fds[1], MessageType::Import, "two"));
    ::close(fds[1]);
    auto first = readFrame(fds[0], 1024);
    auto second = readFrame(fds[0], 1024);
    auto end = readFrame(fds[0], 1024);
    ::close(fds[0]);
    ASSERT_TRUE(first && *first && second && *second && end);
    EXPECT_EQ((*first)->payload, "one");
    EXPECT_EQ((*second)->payload, "two");
    EXPECT_FALSE(*end);  // a clean end of input

    ASSERT_EQ(::pipe(fds), 0);
    const std::string cut = encodeFrame(MessageType::Import, "cut short").substr(0, 8);
    ASSERT_EQ(::write(fds[1], cut.data(), cut.size()), static_cast<ssize_t>(cut.size()));
    ::close(fds[1]);
    EXPECT_FALSE(readFrame(fds[0], 1024));
    ::close(fds[0]);
}

}  // namespace
}  // namespace trovara::index
