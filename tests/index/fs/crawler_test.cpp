#include "index/fs/crawler.h"

#include "fs_test_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/xattr.h>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using namespace trovara::index;
using trovara::test::makeFolder;
using trovara::test::makeLink;
using trovara::test::makeTree;
using trovara::test::writeFile;

namespace {

std::string join(const std::string& folder, const std::string& name);

// Records what the crawler reports and checks the sink contract as it goes:
// reports never overlap, and a folder comes before its sub-folders.
class RecordingSink : public CrawlSink {
public:
    std::function<bool(std::string_view folder, const FileInfo& entry)> wantDetails;
    std::function<void(const FolderScan&)> afterScan;

    bool needsDetails(std::string_view folder, const FileInfo& entry) override
    {
        ++m_asked;
        return wantDetails ? wantDetails(folder, entry) : false;
    }

    void folderScanned(FolderScan&& scan) override
    {
        enter();
        const std::size_t slash = scan.path.rfind('/');
        const std::string parent = slash == 0 ? "/" : scan.path.substr(0, slash);
        if (!scans.empty() && m_reported.count(parent) == 0) {
            orderViolations.push_back(scan.path);
        }
        m_reported.insert(scan.path);
        scans.push_back(std::move(scan));
        if (afterScan) {
            afterScan(scans.back());
        }
        leave();
    }

    void folderUnreadable(std::string_view path, int error) override
    {
        enter();
        unreadable.emplace_back(std::string(path), error);
        leave();
    }

    // Every reported path: the first scan's folder and every entry.
    std::multiset<std::string> paths() const
    {
        std::multiset<std::string> all;
        if (!scans.empty()) {
            all.insert(scans.front().path);
        }
        for (const FolderScan& scan : scans) {
            for (const ScannedEntry& entry : scan.entries) {
                all.insert(join(scan.path, entry.info.name));
            }
        }
        return all;
    }

    const ScannedEntry* entry(const std::string& path) const
    {
        for (const FolderScan& scan : scans) {
            for (const ScannedEntry& entry : scan.entries) {
                if (join(scan.path, entry.info.name) == path) {
                    return &entry;
                }
            }
        }
        return nullptr;
    }

    const FolderScan* scan(const std::string& path) const
    {
        for (const FolderScan& scan : scans) {
            if (scan.path == path) {
                return &scan;
            }
        }
        return nullptr;
    }

    int asked() const { return m_asked.load(); }

    std::vector<FolderScan> scans;
    std::vector<std::pair<std::string, int>> unreadable;
    std::vector<std::string> orderViolations;
    bool overlapped = false;

private:
    void enter() { overlapped = m_inside.exchange(true) || overlapped; }
    void leave() { m_inside = false; }

    std::atomic<bool> m_inside{false};
    std::atomic<int> m_asked{0};
    std::set<std::string> m_reported;
};

std::string join(const std::string& folder, const std::string& name)
{
    return folder == "/" ? "/" + name : folder + "/" + name;
}

CrawlStatistics crawlOrFail(const std::string& root, CrawlSink& sink, const CrawlOptions& options = {})
{
    auto result = crawl(root, sink, options);
    EXPECT_TRUE(result.ok()) << (result.ok() ? "" : result.error().message);
    return result.ok() ? result.value() : CrawlStatistics{};
}

// A tree of `width` folders per level, `depth` levels, each with a few files.
void makeWideTree(const std::string& root, int width, int depth, int filesPerFolder)
{
    if (depth == 0) {
        return;
    }
    for (int f = 0; f < filesPerFolder; ++f) {
        writeFile(root + "/file " + std::to_string(f) + ".txt", "x");
    }
    for (int w = 0; w < width; ++w) {
        const std::string folder = root + "/folder" + std::to_string(w);
        makeFolder(folder);
        makeWideTree(folder, width, depth - 1, filesPerFolder);
    }
}

// A chain of folders with long names below `root`, deeper than PATH_MAX,
// built and removed through folder descriptors (no path call reaches it).
class DeepChain {
public:
    static constexpr int kLevels = 20;

    explicit DeepChain(const std::string& root)
        : m_root(root)
    {
        int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int level = 0; level < kLevels && folder >= 0; ++level) {
            EXPECT_EQ(::mkdirat(folder, name(level).c_str(), 0755), 0);
            const int next = ::openat(folder, name(level).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ::close(folder);
            folder = next;
        }
        EXPECT_GE(folder, 0);
        const int file = ::openat(folder, "bottom.txt", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_GE(file, 0);
        m_hasAttributes = ::fsetxattr(file, "user.xdg.comment", "deep", 4, 0) == 0;
        ::close(file);
        ::close(folder);
    }

    ~DeepChain() { remove(::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), 0); }

    static std::string name(int level) { return std::string(240, static_cast<char>('a' + level)); }
    std::string bottom() const
    {
        std::string path = m_root;
        for (int level = 0; level < kLevels; ++level) {
            path += "/" + name(level);
        }
        return path + "/bottom.txt";
    }
    bool hasAttributes() const { return m_hasAttributes; }

private:
    static void remove(int folder, int level)
    {
        if (folder < 0) {
            return;
        }
        if (level < kLevels) {
            remove(::openat(folder, name(level).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), level + 1);
            ::unlinkat(folder, name(level).c_str(), AT_REMOVEDIR);
        } else {
            ::unlinkat(folder, "bottom.txt", 0);
        }
        ::close(folder);
    }

    std::string m_root;
    bool m_hasAttributes = false;
};

}  // namespace

TEST(Crawler, ReportsEveryEntryOnceParentFirstAndNeverFollowsLinks)
{
    const std::string root = makeTree("crawl");
    makeFolder(root + "/a");
    makeFolder(root + "/a/b");
    makeFolder(root + "/a/b/c");
    writeFile(root + "/top.txt", "top");
    writeFile(root + "/a/b/c/deep.txt", "deep");
    makeLink("top.txt", root + "/link-to-file");
    makeLink("a", root + "/link-to-folder");
    makeLink(".", root + "/a/loop");  // would walk forever if followed
    makeLink("nowhere", root + "/dangling");
    ASSERT_EQ(::mkfifo((root + "/pipe").c_str(), 0600), 0);

    for (const int threads : {1, 4}) {
        SCOPED_TRACE(threads);
        RecordingSink sink;
        CrawlOptions options;
        options.threads = threads;
        const CrawlStatistics statistics = crawlOrFail(root, sink, options);

        const std::multiset<std::string> expected = {
            root,
            root + "/a",
            root + "/a/b",
            root + "/a/b/c",
            root + "/top.txt",
            root + "/a/b/c/deep.txt",
            root + "/link-to-file",
            root + "/link-to-folder",
            root + "/a/loop",
            root + "/dangling",
            root + "/pipe",
        };
        EXPECT_EQ(sink.paths(), expected);
        EXPECT_TRUE(sink.orderViolations.empty()) << sink.orderViolations.front();
        EXPECT_FALSE(sink.overlapped);
        EXPECT_TRUE(sink.unreadable.empty());
        EXPECT_EQ(statistics.folders, 4u);
        EXPECT_EQ(statistics.files, 7u);
        EXPECT_FALSE(statistics.cancelled);

        for (const char* link : {"/link-to-file", "/link-to-folder", "/a/loop", "/dangling"}) {
            const ScannedEntry* entry = sink.entry(root + link);
            ASSERT_NE(entry, nullptr) << link;
            EXPECT_EQ(entry->info.kind, FileKind::Symlink) << link;
            EXPECT_TRUE(S_ISLNK(entry->info.mode)) << link;
            EXPECT_EQ(sink.scan(root + link), nullptr) << "walked into " << link;
        }
        EXPECT_EQ(sink.entry(root + "/pipe")->info.kind, FileKind::Other);
        const ScannedEntry* top = sink.entry(root + "/top.txt");
        EXPECT_EQ(top->info.kind, FileKind::Regular);
        EXPECT_EQ(top->info.size, 3);
        EXPECT_FALSE(top->details.has_value());

        const FolderScan* b = sink.scan(root + "/a/b");
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(b->self.name, "b");
        EXPECT_EQ(b->self.kind, FileKind::Directory);
        struct stat answers {};
        ASSERT_EQ(::lstat((root + "/a/b").c_str(), &answers), 0);
        EXPECT_EQ(b->self.inode, answers.st_ino);
        EXPECT_EQ(b->self.device, answers.st_dev);
    }
}

TEST(Crawler, FindsWhatFindFinds)
{
    const std::string root = makeTree("find");
    makeWideTree(root, 3, 4, 4);
    // Names that trip up path handling.
    makeFolder(root + "/with space");
    makeFolder(root + "/with space/ünïcödé 日本");
    writeFile(root + "/with space/ünïcödé 日本/back\\slash", "");
    writeFile(root + "/with space/new\nline", "");
    writeFile(root + "/folder0/.dot", "");
    makeLink("../folder1", root + "/folder0/up");
    makeFolder(root + "/empty");
    const DeepChain deep(root);

    RecordingSink sink;
    sink.wantDetails = [](std::string_view, const FileInfo& entry) { return entry.name == "bottom.txt"; };
    CrawlOptions options;
    options.threads = 3;
    crawlOrFail(root, sink, options);
    EXPECT_TRUE(sink.unreadable.empty()) << sink.unreadable.front().first.size() << " bytes long";
    const ScannedEntry* bottom = sink.entry(deep.bottom());
    ASSERT_NE(bottom, nullptr) << "the walk stopped at PATH_MAX";
    ASSERT_TRUE(bottom->details.has_value());
    EXPECT_EQ(bottom->details->mimeType, "text/plain");
    if (deep.hasAttributes()) {
        EXPECT_EQ(bottom->details->attributes.comment, "deep");
    }

    std::multiset<std::string> found;
    FILE* pipe = ::popen(("find -P '" + root + "' -print0").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string path;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        if (c == '\0') {
            found.insert(path);
            path.clear();
        } else {
            path.push_back(static_cast<char>(c));
        }
    }
    ASSERT_EQ(::pclose(pipe), 0);
    ASSERT_GT(found.size(), 200u);
    EXPECT_EQ(sink.paths(), found);
}

TEST(Crawler, MarksDotNamesAndNamesListedInHiddenAsInvisible)
{
    const std::string root = makeTree("hidden");
    writeFile(root + "/.hidden", "secret.txt\r\nsub\n\nnot-there\n");
    writeFile(root + "/secret.txt", "");
    writeFile(root + "/secret.txt ", "");  // a different name
    writeFile(root + "/visible.txt", "");
    writeFile(root + "/.profile", "");
    makeFolder(root + "/sub");
    writeFile(root + "/sub/inside.txt", "");
    makeFolder(root + "/.config");
    writeFile(root + "/.config/settings", "");

    RecordingSink sink;
    crawlOrFail(root, sink);

    const std::map<std::string, bool> expected = {
        {"/.hidden", true},    {"/secret.txt", true},          {"/secret.txt ", false},
        {"/visible.txt", false}, {"/.profile", true},          {"/sub", true},
        {"/sub/inside.txt", false}, {"/.config", true},        {"/.config/settings", false},
    };
    for (const auto& [name, invisible] : expected) {
        const ScannedEntry* entry = sink.entry(root + name);
        ASSERT_NE(entry, nullptr) << name;
        EXPECT_EQ(entry->info.invisible, invisible) << name;
    }
    EXPECT_TRUE(sink.scan(root + "/sub")->self.invisible);
    EXPECT_TRUE(sink.scan(root + "/.config")->self.invisible);
    EXPECT_FALSE(sink.scan(root)->self.invisible);
}

TEST(Crawler, LeavesExcludedFoldersOut)
{
    const std::string root = makeTree("excluded");
    makeFolder(root + "/keep");
    makeFolder(root + "/skip");
    makeFolder(root + "/skip/below");
    makeFolder(root + "/keep/skip");  // same name elsewhere: still walked
    writeFile(root + "/skip/below/file", "");

    RecordingSink sink;
    CrawlOptions options;
    options.excludedFolders = {root + "/skip/", "relative/is/ignored"};
    const CrawlStatistics statistics = crawlOrFail(root, sink, options);

    EXPECT_NE(sink.entry(root + "/skip"), nullptr) << "the folder itself is still an entry of its parent";
    EXPECT_EQ(sink.scan(root + "/skip"), nullptr);
    EXPECT_EQ(sink.scan(root + "/skip/below"), nullptr);
    EXPECT_NE(sink.scan(root + "/keep/skip"), nullptr);
    EXPECT_EQ(statistics.folders, 3u);

    RecordingSink none;
    options.excludedFolders = {root};
    EXPECT_EQ(crawlOrFail(root, none, options).folders, 0u);
    EXPECT_TRUE(none.scans.empty());
}

TEST(Crawler, StopsAfterTheFolderDuringWhichCancelWasRaised)
{
    const std::string root = makeTree("cancel");
    makeWideTree(root, 3, 3, 2);  // 13 folders

    for (const int threads : {1, 4}) {
        SCOPED_TRACE(threads);
        std::atomic<bool> cancel{false};
        RecordingSink sink;
        sink.afterScan = [&](const FolderScan&) {
            if (sink.scans.size() == 5) {
                cancel = true;
            }
        };
        CrawlOptions options;
        options.threads = threads;
        options.cancel = &cancel;
        const CrawlStatistics statistics = crawlOrFail(root, sink, options);
        EXPECT_EQ(sink.scans.size(), 5u);
        EXPECT_EQ(statistics.folders, 5u);
        EXPECT_TRUE(statistics.cancelled);
    }
}

TEST(Crawler, StopsBetweenTheEntriesOfOneFolder)
{
    const std::string root = makeTree("cancel-entries");
    for (int i = 0; i < 300; ++i) {
        writeFile(root + "/file" + std::to_string(i), "");
    }
    std::atomic<bool> cancel{false};
    RecordingSink sink;
    sink.wantDetails = [&](std::string_view, const FileInfo&) {
        if (sink.asked() == 10) {
            cancel = true;
        }
        return true;
    };
    CrawlOptions options;
    options.cancel = &cancel;
    const CrawlStatistics statistics = crawlOrFail(root, sink, options);
    EXPECT_EQ(sink.asked(), 10);
    EXPECT_TRUE(sink.scans.empty()) << "a folder's scan holds all its entries or is not reported";
    EXPECT_TRUE(statistics.cancelled);
}

TEST(Crawler, ReportsAFolderThatVanishedBeforeItWasReadAndGoesOn)
{
    const std::string root = makeTree("vanish");
    makeFolder(root + "/gone");
    makeFolder(root + "/stays");
    writeFile(root + "/stays/file", "");

    RecordingSink sink;
    // The sink is asked about the root's entries after they were listed and
    // before any sub-folder is opened: removing "gone" there is the race of a
    // folder deleted mid-crawl, which even root cannot read.
    sink.wantDetails = [&](std::string_view folder, const FileInfo& entry) {
        if (folder == root && entry.name == "gone") {
            EXPECT_EQ(::rmdir((root + "/gone").c_str()), 0);
        }
        return false;
    };
    const CrawlStatistics statistics = crawlOrFail(root, sink);
    ASSERT_EQ(sink.unreadable.size(), 1u);
    EXPECT_EQ(sink.unreadable[0].first, root + "/gone");
    EXPECT_EQ(sink.unreadable[0].second, ENOENT);
    EXPECT_EQ(statistics.unreadable, 1u);
    EXPECT_NE(sink.scan(root + "/stays"), nullptr);
    EXPECT_NE(sink.entry(root + "/stays/file"), nullptr);
}

TEST(Crawler, ReportsAFolderWithoutPermissionAndGoesOn)
{
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root reads every folder; the vanished-folder test covers unreadable folders";
    }
    const std::string root = makeTree("locked");
    makeFolder(root + "/locked");
    writeFile(root + "/locked/secret", "");
    makeFolder(root + "/open");
    ASSERT_EQ(::chmod((root + "/locked").c_str(), 0), 0);

    RecordingSink sink;
    crawlOrFail(root, sink);
    ::chmod((root + "/locked").c_str(), 0755);
    ASSERT_EQ(sink.unreadable.size(), 1u);
    EXPECT_EQ(sink.unreadable[0].first, root + "/locked");
    EXPECT_EQ(sink.unreadable[0].second, EACCES);
    EXPECT_NE(sink.scan(root + "/open"), nullptr);
}

TEST(Crawler, ReadsDetailsOnlyForTheEntriesTheSinkAsksFor)
{
    const std::string root = makeTree("details");
    writeFile(root + "/want.png", trovara::test::pngBytes());
    writeFile(root + "/skip.png", trovara::test::pngBytes());
    makeFolder(root + "/want-folder");
    writeFile(root + "/want-folder/want-notes.txt", "notes");
    writeFile(root + "/want-folder/other.txt", "other");

    RecordingSink sink;
    std::mutex mutex;
    std::set<std::string> askedFolders;
    sink.wantDetails = [&](std::string_view folder, const FileInfo& entry) {
        const std::lock_guard lock(mutex);
        askedFolders.insert(std::string(folder));
        return entry.name.rfind("want", 0) == 0;
    };
    CrawlOptions options;
    options.threads = 2;
    const CrawlStatistics statistics = crawlOrFail(root, sink, options);

    EXPECT_EQ(askedFolders, (std::set<std::string>{root, root + "/want-folder"}));
    EXPECT_EQ(sink.asked(), 5);
    EXPECT_EQ(statistics.detailed, 3u);
    const std::map<std::string, const char*> detailed = {
        {"/want.png", "image/png"},
        {"/want-folder", "inode/directory"},
        {"/want-folder/want-notes.txt", "text/plain"},
    };
    for (const auto& [name, mime] : detailed) {
        const ScannedEntry* entry = sink.entry(root + name);
        ASSERT_NE(entry, nullptr) << name;
        ASSERT_TRUE(entry->details.has_value()) << name;
        EXPECT_EQ(entry->details->mimeType, mime) << name;
    }
    EXPECT_FALSE(sink.entry(root + "/skip.png")->details.has_value());
    EXPECT_FALSE(sink.entry(root + "/want-folder/other.txt")->details.has_value());
}

TEST(Crawler, RecordsTheBirthTimeWhereTheFileSystemHasIt)
{
    const std::string root = makeTree("born");
    writeFile(root + "/file", "content");
    struct statx answers {};
    ASSERT_EQ(::statx(AT_FDCWD, (root + "/file").c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &answers), 0);

    RecordingSink sink;
    crawlOrFail(root, sink);
    const ScannedEntry* entry = sink.entry(root + "/file");
    ASSERT_NE(entry, nullptr);
    if (!(answers.stx_mask & STATX_BTIME)) {
        EXPECT_FALSE(entry->info.born.has_value());
        GTEST_SKIP() << "this file system records no birth times";
    }
    ASSERT_TRUE(entry->info.born.has_value());
    EXPECT_EQ(*entry->info.born, answers.stx_btime.tv_sec * 1'000'000'000LL + answers.stx_btime.tv_nsec);
    EXPECT_EQ(entry->info.modified, answers.stx_mtime.tv_sec * 1'000'000'000LL + answers.stx_mtime.tv_nsec);
    EXPECT_LE(*entry->info.born, entry->info.modified);
}

TEST(Crawler, RefusesRootsThatAreNoFoldersItMayWalk)
{
    const std::string root = makeTree("roots");
    writeFile(root + "/file", "");
    makeLink(root, root + "/link");

    struct Case {
        std::string root;
        Failure::Kind kind;
    };
    const Case cases[] = {
        {"relative/path", Failure::Kind::InvalidArgument},
        {"", Failure::Kind::InvalidArgument},
        {root + "/file", Failure::Kind::InvalidArgument},
        {root + "/link", Failure::Kind::InvalidArgument},
        {root + "/missing", Failure::Kind::Io},
        {"/proc", Failure::Kind::InvalidArgument},
        {"/proc/sys", Failure::Kind::InvalidArgument},  // inside a virtual file system
        {"/sys/", Failure::Kind::InvalidArgument},
    };
    for (const Case& c : cases) {
        RecordingSink sink;
        const auto result = crawl(c.root, sink);
        ASSERT_FALSE(result.ok()) << c.root;
        EXPECT_EQ(result.error().kind, c.kind) << c.root << ": " << result.error().message;
        EXPECT_FALSE(result.error().message.empty());
        EXPECT_TRUE(sink.scans.empty()) << c.root;
    }
}

TEST(Crawler, NeverEntersTheSystemFoldersFromTheRoot)
{
    // Everything at the top but the system's own folders is excluded, so the
    // walk of "/" is one folder long unless it wrongly enters one of them.
    CrawlOptions options;
    DIR* top = ::opendir("/");
    ASSERT_NE(top, nullptr);
    while (const dirent* entry = ::readdir(top)) {
        const std::string name = entry->d_name;
        if (name != "proc" && name != "sys" && name != "dev" && name != "run") {
            options.excludedFolders.push_back("/" + name);
        }
    }
    ::closedir(top);

    RecordingSink sink;
    const CrawlStatistics statistics = crawlOrFail("/", sink, options);
    ASSERT_EQ(sink.scans.size(), 1u);
    EXPECT_EQ(sink.scans[0].path, "/");
    EXPECT_EQ(sink.scans[0].self.name, "/");
    EXPECT_EQ(statistics.folders, 1u);
    EXPECT_NE(sink.entry("/proc"), nullptr) << "the folder is still listed as an entry";
}
