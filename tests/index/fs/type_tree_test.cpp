#include "index/fs/type_tree.h"

#include <QLocale>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

using namespace trovara::index;

TEST(TypeTree, MapsMimeTypesOfEveryFamilyToKnownIdentifiers)
{
    // One row of each family: images, sound, video, text, source code,
    // documents, office files, archives, folders, links and programs.
    const std::pair<const char*, const char*> rows[] = {
        {"image/jpeg", "public.jpeg"},
        {"audio/mpeg", "public.mp3"},
        {"video/quicktime", "com.apple.quicktime-movie"},
        {"text/plain", "public.plain-text"},
        {"text/x-c++src", "public.c-plus-plus-source"},
        {"application/pdf", "com.adobe.pdf"},
        {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "public.spreadsheet"},
        {"application/vnd.oasis.opendocument.text", "public.content"},
        {"application/gzip", "org.gnu.gnu-zip-archive"},
        {"inode/directory", "public.folder"},
        {"inode/symlink", "com.apple.alias-file"},
        {"application/x-executable", "public.unix-executable"},
    };
    const auto known = knownTypeIdentifiers();
    for (const auto& [mimeType, identifier] : rows) {
        EXPECT_EQ(typeIdentifierForMimeType(mimeType), identifier) << mimeType;
        EXPECT_TRUE(std::binary_search(known.begin(), known.end(), identifier)) << identifier;
    }
}

TEST(TypeTree, FindsRowsThroughAliasesAndCanonicalNames)
{
    // The names QMimeDatabase hands out for .heic, .iso, .js and .vcf files.
    const std::pair<const char*, const char*> cases[] = {
        {"image/heif", "public.heic"},
        {"application/x-cd-image", "public.iso-image"},
        {"text/javascript", "com.netscape.javascript-source"},
        {"text/x-vcard", "public.vcard"},
        {"text/xml", "public.xml"},
    };
    for (const auto& [mimeType, identifier] : cases) {
        EXPECT_EQ(typeIdentifierForMimeType(mimeType), identifier) << mimeType;
    }
}

TEST(TypeTree, FallsBackOnParentTypesThenOnTheMediaType)
{
    const std::pair<const char*, const char*> cases[] = {
        // Nearest ancestor in shared-mime-info with a row.
        {"text/markdown", "public.plain-text"},
        {"text/x-python3", "public.python-script"},
        {"application/x-compressed-tar", "org.gnu.gnu-zip-archive"},
        {"image/x-canon-cr2", "public.camera-raw-image"},
        {"application/vnd.oasis.opendocument.presentation-flat-xml", "public.xml"},
        // Unknown to shared-mime-info: the media type decides.
        {"text/x-trovara-unknown", "public.text"},
        {"image/x-trovara-unknown", "public.image"},
        {"audio/x-trovara-unknown", "public.audio"},
        {"video/x-trovara-unknown", "public.movie"},
        {"application/x-trovara-unknown", "public.data"},
        {"not a mime type", "public.data"},
        {"", "public.data"},
    };
    for (const auto& [mimeType, identifier] : cases) {
        EXPECT_EQ(typeIdentifierForMimeType(mimeType), identifier) << mimeType;
    }
}

TEST(TypeTree, ContentTypeTreeListsTheIdentifierThenItsAncestorsBreadthFirst)
{
    using Tree = std::vector<std::string>;
    EXPECT_EQ(contentTypeTree("public.python-script"),
              (Tree{"public.python-script", "public.shell-script", "public.script", "public.source-code",
                    "public.plain-text", "public.text", "public.data", "public.content", "public.item"}));
    // Two paths to public.audiovisual-content: it is listed once.
    EXPECT_EQ(contentTypeTree("public.mpeg-4-audio"),
              (Tree{"public.mpeg-4-audio", "public.mpeg-4", "public.audio", "public.movie",
                    "public.audiovisual-content", "public.data", "public.content", "public.item"}));
    EXPECT_EQ(contentTypeTree("public.png"),
              (Tree{"public.png", "public.image", "public.data", "public.content", "public.item"}));
    EXPECT_EQ(contentTypeTree("public.folder"), (Tree{"public.folder", "public.directory", "public.item"}));
    EXPECT_EQ(contentTypeTree("com.apple.mail.email"),
              (Tree{"com.apple.mail.email", "public.data", "public.email-message", "public.item", "public.message"}));
    EXPECT_EQ(contentTypeTree("com.example.unknown"), (Tree{"com.example.unknown"}));

    EXPECT_TRUE(typeConformsTo("com.netscape.javascript-source", "public.executable"));
    EXPECT_TRUE(typeConformsTo("public.vcard", "public.contact"));
    EXPECT_TRUE(typeConformsTo("public.presentation", "public.content"));
    EXPECT_FALSE(typeConformsTo("public.presentation", "public.data"));
    EXPECT_FALSE(typeConformsTo("public.folder", "public.data"));
}

TEST(TypeTree, EveryKnownIdentifierLeadsToARootAndEveryParentIsKnown)
{
    const auto known = knownTypeIdentifiers();
    ASSERT_GT(known.size(), 80u);
    const std::set<std::string_view> roots = {"public.item", "public.content", "public.contact", "public.message"};
    for (const std::string_view identifier : known) {
        const auto tree = contentTypeTree(identifier);
        EXPECT_TRUE(roots.count(tree.back()) != 0) << identifier << " ends at " << tree.back();
        for (const std::string_view parent : typeParents(identifier)) {
            EXPECT_TRUE(std::binary_search(known.begin(), known.end(), parent)) << parent;
        }
        EXPECT_EQ(typeParents(identifier).empty(), roots.count(identifier) != 0) << identifier;
    }
}

TEST(TypeTree, DescribesTheKindInEnglishWhateverTheLocale)
{
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const std::string pdf = mimeTypeDescription("application/pdf");
    const std::string png = mimeTypeDescription("image/png");
    QLocale::setDefault(previous);
    EXPECT_EQ(pdf, "PDF document");
    EXPECT_EQ(png, "PNG image");
    EXPECT_EQ(mimeTypeDescription("inode/directory"), "folder");
    EXPECT_EQ(mimeTypeDescription("application/x-trovara-unknown"), "application/x-trovara-unknown");
}

TEST(TypeTree, DescriptionsAreCompleteAndSharedAcrossThreads)
{
    const TypeDescription expected{"text/x-c++src", "public.c-plus-plus-source", "C++ source code",
                                   contentTypeTree("public.c-plus-plus-source")};
    std::vector<const TypeDescription*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&, i] { seen[i] = &describeMimeType("text/x-c++src"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(*seen[0], expected);
    EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [&](const TypeDescription* d) { return d == seen[0]; }));
    EXPECT_EQ(describeMimeType("image/heif").tree.front(), "public.heic");
}
