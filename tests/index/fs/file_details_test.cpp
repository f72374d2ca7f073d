#include "index/fs/file_details.h"

#include "fs_test_util.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace trovara::index;
using trovara::test::makeFolder;
using trovara::test::makeLink;
using trovara::test::makeTree;
using trovara::test::pngBytes;
using trovara::test::writeFile;

namespace {

FileDetails detailsThroughFolder(const std::string& folder, const std::string& name)
{
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    auto info = statAt(fd, name.c_str());
    EXPECT_TRUE(info.ok()) << name;
    FileDetails details = info.ok() ? readFileDetails(fd, folder, info.value()) : FileDetails{};
    ::close(fd);
    return details;
}

// Sets an extended attribute; false when the file system has none.
bool setAttribute(const std::string& path, const char* name, std::string_view value)
{
    if (::lsetxattr(path.c_str(), name, value.data(), value.size(), 0) == 0) {
        return true;
    }
    EXPECT_TRUE(errno == ENOTSUP || errno == EOPNOTSUPP) << name << ": " << std::strerror(errno);
    return false;
}

}  // namespace

TEST(FileDetails, TellsTheMimeTypeByNameFirstThenByContent)
{
    const std::string root = makeTree("mime");
    struct Case {
        const char* name;
        std::string content;
        const char* mimeType;
    };
    const Case cases[] = {
        {"photo.png", "no picture at all, but the name decides", "image/png"},
        {"picture", pngBytes(), "image/png"},
        {"README", "Read this first.\n", "text/x-readme"},
        {"notes", "Plain words, one line.\n", "text/plain"},
        {"empty", "", "application/x-zerosize"},
        {"empty.txt", "", "text/plain"},
        // ".ui" is both a Qt Designer form and a GTK builder file: content decides.
        {"form.ui", "<?xml version=\"1.0\"?>\n<ui version=\"4.0\">\n</ui>\n", "application/x-designer"},
        {"window.ui", "<?xml version=\"1.0\"?>\n<interface>\n</interface>\n", "application/x-gtk-builder"},
    };
    for (const Case& c : cases) {
        writeFile(root + "/" + c.name, c.content);
    }
    for (const Case& c : cases) {
        const auto record = readFileRecord(root + "/" + c.name);
        ASSERT_TRUE(record.ok()) << c.name;
        EXPECT_EQ(record->details.mimeType, c.mimeType) << c.name;
        EXPECT_EQ(record->info.name, c.name);
        EXPECT_EQ(detailsThroughFolder(root, c.name).mimeType, c.mimeType) << c.name << " through the folder";
    }
}

TEST(FileDetails, NamesThatLookAlikeKeepTheirOwnTypes)
{
    // Answers by name are remembered per suffix; each pair differs in what
    // decides: the case of the suffix, a longer suffix, a glob that needs
    // the whole name. Asked one after the other, both ways round.
    const std::string root = makeTree("lookalike");
    const std::pair<const char*, const char*> pairs[][2] = {
        {{"main.c", "text/x-csrc"}, {"MAIN.C", "text/x-c++src"}},
        {{"data.gz", "application/gzip"}, {"data.tar.gz", "application/x-compressed-tar"}},
        {{"libz.so", "application/x-sharedlib"}, {"libz.so.1", "application/x-sharedlib"}},
        {{"notes.c", "text/x-csrc"}, {"notes.1", "application/x-troff-man"}},
        {{"report", "text/plain"}, {"report~", "application/x-trash"}},
        {{"build", "text/plain"}, {"Makefile", "text/x-makefile"}},
    };
    for (const auto& pair : pairs) {
        for (const auto& [name, mimeType] : pair) {
            writeFile(root + "/" + name, "int x;\n");
        }
    }
    for (const bool reversed : {false, true}) {
        for (const auto& pair : pairs) {
            for (int i = 0; i < 2; ++i) {
                const auto& [name, mimeType] = pair[reversed ? 1 - i : i];
                EXPECT_EQ(detailsThroughFolder(root, name).mimeType, mimeType) << name;
            }
        }
    }
}

TEST(FileDetails, TellsFoldersLinksAndSpecialFilesByTheirKind)
{
    const std::string root = makeTree("kinds");
    makeFolder(root + "/folder.png");
    writeFile(root + "/real.png", pngBytes());
    makeLink("real.png", root + "/link.png");
    ASSERT_EQ(::mkfifo((root + "/pipe").c_str(), 0600), 0);  // opening it would block

    const std::pair<std::string, const char*> cases[] = {
        {root + "/folder.png", "inode/directory"},
        {root + "/link.png", "inode/symlink"},
        {root + "/pipe", "inode/fifo"},
        {"/dev/null", "inode/chardevice"},
    };
    for (const auto& [path, mimeType] : cases) {
        const auto record = readFileRecord(path);
        ASSERT_TRUE(record.ok()) << path;
        EXPECT_EQ(record->details.mimeType, mimeType) << path;
    }
}

TEST(FileDetails, ReadsTheDesktopsExtendedAttributesWithoutFollowingLinks)
{
    const std::string root = makeTree("xattr");
    const std::string file = root + "/download.pdf";
    writeFile(file, "%PDF-1.4\n");
    if (!setAttribute(file, "user.xdg.comment", "From the meeting")) {
        GTEST_SKIP() << "the test folder's file system keeps no extended attributes";
    }
    ASSERT_TRUE(setAttribute(file, "user.xdg.tags", " red, ,blue ,,green , "));
    ASSERT_TRUE(setAttribute(file, "user.xdg.referrer.url", "https://example.org/list"));
    ASSERT_TRUE(setAttribute(file, "user.xdg.origin.url", "https://example.org/file.pdf"));
    ASSERT_TRUE(setAttribute(file, "user.trovara.label", std::string_view("5\0", 2)));
    ASSERT_TRUE(setAttribute(file, "user.other", "ignored"));

    ExtendedAttributes expected;
    expected.comment = "From the meeting";
    expected.tags = {"red", "blue", "green"};
    expected.whereFroms = {"https://example.org/file.pdf", "https://example.org/list"};
    expected.label = 5;
    EXPECT_EQ(readExtendedAttributes(file), expected);
    EXPECT_EQ(readFileRecord(file)->details.attributes, expected);
    EXPECT_EQ(detailsThroughFolder(root, "download.pdf").attributes, expected);

    // Labels outside 0-7 and anything but a number are ignored.
    for (const char* label : {"8", "-1", "x", "", "3 stars"}) {
        ASSERT_TRUE(setAttribute(file, "user.trovara.label", label));
        EXPECT_FALSE(readExtendedAttributes(file).label.has_value()) << '"' << label << '"';
    }
    ASSERT_TRUE(setAttribute(file, "user.trovara.label", " 0\n"));
    EXPECT_EQ(readExtendedAttributes(file).label, 0);

    // Only a referrer: it is the one place the file came from.
    const std::string other = root + "/other.txt";
    writeFile(other, "text");
    ASSERT_TRUE(setAttribute(other, "user.xdg.referrer.url", "https://example.org/"));
    EXPECT_EQ(readExtendedAttributes(other).whereFroms, std::vector<std::string>{"https://example.org/"});

    // A link has no attributes of its own; its target's are not its.
    makeLink("download.pdf", root + "/link");
    EXPECT_EQ(readExtendedAttributes(root + "/link"), ExtendedAttributes{});
    EXPECT_EQ(readFileRecord(root + "/link")->details.attributes, ExtendedAttributes{});
    EXPECT_EQ(readExtendedAttributes(root + "/missing"), ExtendedAttributes{});
}

TEST(FileDetails, StatPathTellsLinksNamesAndInvisibility)
{
    const std::string root = makeTree("stat");
    makeFolder(root + "/folder");
    writeFile(root + "/folder/.hidden", "listed\n");
    writeFile(root + "/folder/listed", "");
    writeFile(root + "/folder/shown", "12345");
    writeFile(root + "/folder/.dot", "");
    makeLink("folder", root + "/link");

    const auto shown = statPath(root + "/folder/shown");
    ASSERT_TRUE(shown.ok());
    EXPECT_EQ(shown->name, "shown");
    EXPECT_EQ(shown->size, 5);
    EXPECT_EQ(shown->kind, FileKind::Regular);
    EXPECT_FALSE(shown->invisible);
    EXPECT_TRUE(statPath(root + "/folder/listed")->invisible);
    EXPECT_TRUE(statPath(root + "/folder/.dot")->invisible);

    // A trailing slash must not make the link's target answer for it.
    for (const std::string& path : {root + "/link", root + "/link/", root + "/link//"}) {
        const auto link = statPath(path);
        ASSERT_TRUE(link.ok()) << path;
        EXPECT_EQ(link->kind, FileKind::Symlink) << path;
        EXPECT_EQ(link->name, "link") << path;
    }
    EXPECT_EQ(statPath("/")->name, "/");
    EXPECT_EQ(statPath("/")->kind, FileKind::Directory);

    const auto missing = statPath(root + "/nothing");
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().kind, Failure::Kind::Io);
    EXPECT_NE(missing.error().message.find(root + "/nothing"), std::string::npos);
    EXPECT_FALSE(statPath("").ok());
}

TEST(FileDetails, HiddenListsNameOneEntryPerLine)
{
    const HiddenNames hidden = HiddenNames::parse("alpha\r\nwith space\n\n  indented\nlast");
    for (const char* name : {"alpha", "with space", "  indented", "last"}) {
        EXPECT_TRUE(hidden.contains(name)) << name;
    }
    for (const char* name : {"", "alpha\r", "indented", "with", "las"}) {
        EXPECT_FALSE(hidden.contains(name)) << name;
    }
    EXPECT_TRUE(HiddenNames::parse("\n\n").empty());
}

TEST(FileDetails, LookingInsideAFileDoesNotCountAsUsingIt)
{
    const std::string root = makeTree("atime");
    const std::string file = root + "/unnamed-kind";
    writeFile(file, pngBytes());
    // An access time before the modification time: with relatime, any
    // ordinary read would move it.
    const struct timespec times[2] = {{1'000'000'000, 0}, {UTIME_NOW, UTIME_NOW}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);

    const auto record = readFileRecord(file);
    ASSERT_TRUE(record.ok());
    EXPECT_EQ(record->details.mimeType, "image/png") << "the content was looked at";
    EXPECT_EQ(detailsThroughFolder(root, "unnamed-kind").mimeType, "image/png");
    struct stat after {};
    ASSERT_EQ(::stat(file.c_str(), &after), 0);
    EXPECT_EQ(after.st_atim.tv_sec, 1'000'000'000);
}
