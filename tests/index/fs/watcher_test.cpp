#include "index/fs/watcher.h"

#include "watch_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace trovara::index;
using trovara::test::change;
using trovara::test::findPaths;
using trovara::test::InotifyScript;
using trovara::test::makeFolder;
using trovara::test::makeLink;
using trovara::test::makeTree;
using trovara::test::ScriptedInotify;
using trovara::test::startOfTestClock;
using trovara::test::TreeModel;
using trovara::test::waitReadable;
using trovara::test::writeFile;
using Kind = FileChange::Kind;

namespace {

constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();

void renamePath(const std::string& from, const std::string& to)
{
    ASSERT_EQ(::rename(from.c_str(), to.c_str()), 0) << from << " → " << to << ": " << std::strerror(errno);
}

// Sets the times of an entry two hours back.
void setBack(const std::string& path)
{
    struct stat answers {};
    ASSERT_EQ(::lstat(path.c_str(), &answers), 0) << path;
    const struct timespec times[2] = {{answers.st_atim.tv_sec - 7200, 0}, {answers.st_mtim.tv_sec - 7200, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void removeTree(const std::string& path)
{
    ASSERT_EQ(std::system(("rm -rf '" + path + "'").c_str()), 0);
}

// A watcher over real trees, with the test's clock.
class WatcherTest : public ::testing::Test {
protected:
    Watcher make(const WatcherOptions& options = {}, std::unique_ptr<InotifyInterface> inotify = nullptr)
    {
        auto watcher = Watcher::create(options, std::move(inotify));
        EXPECT_TRUE(watcher.ok()) << (watcher.ok() ? "" : watcher.error().message);
        return std::move(watcher.value());
    }

    WatchTreeReport watch(Watcher& watcher, const std::string& root, const std::vector<std::string>& excluded = {})
    {
        auto report = watcher.watchTree(root, excluded, now);
        EXPECT_TRUE(report.ok()) << (report.ok() ? "" : report.error().message);
        return report.ok() ? report.value() : WatchTreeReport{};
    }

    // The changes the kernel has for the watcher now.
    std::vector<FileChange> read(Watcher& watcher)
    {
        waitReadable(watcher.fd());
        return watcher.readChanges(now);
    }

    // Reads, then lets the clock run `span` ahead through every deadline
    // on the way, collecting everything reported.
    std::vector<FileChange> settle(Watcher& watcher, Nanoseconds span = 2 * kSecond)
    {
        std::vector<FileChange> all = watcher.readChanges(now);
        const Nanoseconds end = now + span;
        for (Nanoseconds next = watcher.nextDeadline(); next <= end; next = watcher.nextDeadline()) {
            now = std::max(now, next);
            const std::vector<FileChange> due = watcher.pollDue(now);
            all.insert(all.end(), due.begin(), due.end());
        }
        now = end;
        return all;
    }

    Nanoseconds now = startOfTestClock();
    const std::string root = makeTree("watched");
};

TEST_F(WatcherTest, ReportsCreationsRemovalsAndRenamesAsTheyHappen)
{
    Watcher watcher = make();
    const WatchTreeReport report = watch(watcher, root);
    EXPECT_EQ(report.watchedFolders, 1u);
    EXPECT_EQ(report.polledFolders, 0u);

    // A file created and written before the batch is read is one Created:
    // reading it tells everything.
    writeFile(root + "/a.txt", "hello");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/a.txt")});
    EXPECT_EQ(watcher.nextDeadline(), kNever);

    renamePath(root + "/a.txt", root + "/b.txt");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Moved, root + "/b.txt", false, root + "/a.txt")});

    makeFolder(root + "/sub");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/sub", true)});

    renamePath(root + "/b.txt", root + "/sub/b.txt");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Moved, root + "/sub/b.txt", false, root + "/b.txt")});

    ASSERT_EQ(::unlink((root + "/sub/b.txt").c_str()), 0);
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Deleted, root + "/sub/b.txt")});

    // The watch follows a renamed folder: what happens inside carries the
    // new path.
    renamePath(root + "/sub", root + "/renamed");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Moved, root + "/renamed", true, root + "/sub")});
    writeFile(root + "/renamed/c.txt", "c");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/renamed/c.txt")});

    // A folder removed with its contents: its entries, then itself.
    makeFolder(root + "/renamed/inner");
    writeFile(root + "/renamed/inner/d.txt", "d");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/renamed/inner", true)});
    removeTree(root + "/renamed");
    const std::vector<FileChange> removal = read(watcher);
    ASSERT_FALSE(removal.empty());
    EXPECT_EQ(removal.back(), change(Kind::Deleted, root + "/renamed", true));
    for (const FileChange& each : removal) {
        EXPECT_EQ(each.kind, Kind::Deleted) << each.path;
    }
    EXPECT_EQ(watcher.statistics().watchedFolders, 1u) << "the removed folders' watches are gone";
    EXPECT_EQ(watcher.nextDeadline(), kNever);
}

TEST_F(WatcherTest, ReportsANewFolderOnceSoThatACrawlFindsWhatItHolds)
{
    Watcher watcher = make();
    watch(watcher, root);
    TreeModel model(root);

    // Everything made inside before the watcher reads is left to the crawl
    // of the new folder.
    makeFolder(root + "/new");
    writeFile(root + "/new/a.txt", "a");
    makeFolder(root + "/new/deep");
    makeFolder(root + "/new/deep/er");
    writeFile(root + "/new/deep/er/b.txt", "b");
    const std::vector<FileChange> changes = read(watcher);
    EXPECT_EQ(changes, std::vector{change(Kind::Created, root + "/new", true)});
    model.apply(changes);
    EXPECT_EQ(model.paths(), findPaths(root));

    // The folders found inside are watched at once.
    EXPECT_EQ(watcher.statistics().watchedFolders, 4u);
    writeFile(root + "/new/deep/er/c.txt", "c");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/new/deep/er/c.txt")});

    // A folder moved in from outside is a new folder too, watched at once.
    const std::string outside = makeTree("outside");
    makeFolder(outside + "/brought");
    makeFolder(outside + "/brought/in");
    renamePath(outside + "/brought", root + "/brought");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/brought", true)});
    writeFile(root + "/brought/in/x", "x");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/brought/in/x")});
}

TEST_F(WatcherTest, MovesInAndOutOfTheTreeAreCreationsAndRemovals)
{
    const std::string outside = makeTree("outside");
    makeFolder(root + "/one");
    makeFolder(root + "/two");
    Watcher watcher = make();
    watch(watcher, root);

    // Between two watched folders: a move.
    writeFile(root + "/one/f", "f");
    ASSERT_EQ(read(watcher).size(), 1u);
    renamePath(root + "/one/f", root + "/two/f");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Moved, root + "/two/f", false, root + "/one/f")});

    // In from an unwatched place: a creation, at once.
    writeFile(outside + "/in", "in");
    renamePath(outside + "/in", root + "/one/in");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/one/in")});

    // Out to an unwatched place: a removal, once the pairing window passed.
    renamePath(root + "/two/f", outside + "/f");
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_EQ(watcher.nextDeadline(), now + WatcherOptions{}.pairingWindow);
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Deleted, root + "/two/f")});

    // A folder moved out is no longer watched.
    renamePath(root + "/two", outside + "/two");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Deleted, root + "/two", true)});
    EXPECT_EQ(watcher.statistics().watchedFolders, 2u);
    writeFile(outside + "/two/later", "later");
    EXPECT_TRUE(settle(watcher).empty());
}

TEST_F(WatcherTest, AnAtomicReplaceLeavesTheTargetToBeReadAgain)
{
    writeFile(root + "/doc.txt", "old");
    Watcher watcher = make();
    watch(watcher, root);

    // Written and renamed within one batch: the temporary file came and
    // went, the target is to be read again.
    writeFile(root + "/.doc.txt.tmp", "new");
    renamePath(root + "/.doc.txt.tmp", root + "/doc.txt");
    EXPECT_EQ(settle(watcher), (std::vector{change(Kind::Created, root + "/.doc.txt.tmp"),
                                            change(Kind::Created, root + "/doc.txt")}));

    // Seen in two batches: the rename is a move over the target.
    writeFile(root + "/.doc.txt.tmp", "newer");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/.doc.txt.tmp")});
    renamePath(root + "/.doc.txt.tmp", root + "/doc.txt");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Moved, root + "/doc.txt", false, root + "/.doc.txt.tmp")});

    TreeModel model(root);
    EXPECT_EQ(model.paths(), findPaths(root));
}

TEST_F(WatcherTest, CoalescesWritesToAnOpenFileAndReportsASaveAtOnce)
{
    const WatcherOptions options;
    const std::string file = root + "/log.txt";
    writeFile(file, "start\n");
    Watcher watcher = make(options);
    watch(watcher, root);
    const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    const auto append = [&] { ASSERT_EQ(::write(fd, "x", 1), 1); };

    // Two writes a little apart: one change, a quiet period after the last.
    append();
    const Nanoseconds first = now;
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_EQ(watcher.nextDeadline(), first + options.writeQuietPeriod);
    now = first + 100 * kMillisecond;
    append();
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_TRUE(watcher.pollDue(first + options.writeQuietPeriod).empty()) << "writing has not paused yet";
    EXPECT_TRUE(watcher.pollDue(now + options.writeQuietPeriod - 1).empty());
    EXPECT_EQ(watcher.pollDue(now + options.writeQuietPeriod), std::vector{change(Kind::ContentChanged, file)});
    EXPECT_EQ(watcher.nextDeadline(), kNever);

    // Writing that never pauses long enough: one change per maximum delay.
    now += kSecond;
    const Nanoseconds start = now;
    std::vector<Nanoseconds> reportedAt;
    for (int step = 0; step < 25; ++step) {
        append();
        EXPECT_TRUE(watcher.readChanges(now).empty());
        for (const FileChange& each : watcher.pollDue(now)) {
            EXPECT_EQ(each, change(Kind::ContentChanged, file));
            reportedAt.push_back(now - start);
        }
        now += 100 * kMillisecond;
    }
    EXPECT_EQ(reportedAt, (std::vector<Nanoseconds>{options.writeMaxDelay, 2 * options.writeMaxDelay + 100 * kMillisecond}));

    // Closing the file ends the writing: reported at once, no quiet period.
    ::close(fd);
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_EQ(watcher.pollDue(now), std::vector{change(Kind::ContentChanged, file)});
    EXPECT_EQ(watcher.nextDeadline(), kNever);

    // A save (open, write, close) likewise, however quick.
    now += kSecond;
    writeFile(file, "saved\n");
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_EQ(watcher.pollDue(now), std::vector{change(Kind::ContentChanged, file)});
    EXPECT_EQ(watcher.nextDeadline(), kNever);
}

TEST_F(WatcherTest, ReportsPermissionAndExtendedAttributeChanges)
{
    writeFile(root + "/f", "f");
    makeFolder(root + "/sub");
    Watcher watcher = make();
    watch(watcher, root);

    ASSERT_EQ(::chmod((root + "/f").c_str(), 0600), 0);
    ASSERT_EQ(::chmod((root + "/f").c_str(), 0640), 0);
    EXPECT_TRUE(watcher.readChanges(now).empty()) << "coalesced like writes";
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::AttributesChanged, root + "/f")});

    // A watched folder's own change is reported once, by its parent's watch;
    // the root's by its own.
    ASSERT_EQ(::chmod((root + "/sub").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(root.c_str(), 0700), 0);
    std::vector<FileChange> changes = settle(watcher);
    std::sort(changes.begin(), changes.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    EXPECT_EQ(changes, (std::vector{change(Kind::AttributesChanged, root, true),
                                    change(Kind::AttributesChanged, root + "/sub", true)}));

    // Written and then given attributes: one change, the content one.
    writeFile(root + "/f", "g");
    ASSERT_EQ(::chmod((root + "/f").c_str(), 0644), 0);
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::ContentChanged, root + "/f")});

    const char tags[] = "red,blue";
    if (::setxattr((root + "/f").c_str(), "user.xdg.tags", tags, sizeof tags - 1, 0) != 0) {
        GTEST_SKIP() << "the test folder's file system keeps no user extended attributes";
    }
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::AttributesChanged, root + "/f")});
    ASSERT_EQ(::removexattr((root + "/f").c_str(), "user.xdg.tags"), 0);
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::AttributesChanged, root + "/f")});
}

TEST_F(WatcherTest, ReportsLinksAsEntriesAndNeverFollowsThem)
{
    const std::string outside = makeTree("outside");
    makeFolder(root + "/inside");
    Watcher watcher = make();
    watch(watcher, root);

    makeLink(outside, root + "/to-outside");
    makeLink("inside", root + "/to-inside");
    EXPECT_EQ(read(watcher), (std::vector{change(Kind::Created, root + "/to-outside"),
                                          change(Kind::Created, root + "/to-inside")}));
    EXPECT_EQ(watcher.statistics().watchedFolders, 2u);

    // Not followed: what happens behind a link is reported under the real
    // path when that is watched, and not at all when it is not.
    writeFile(outside + "/behind", "b");
    writeFile(root + "/to-inside/through", "t");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/inside/through")});

    // A tree whose root is a link is refused rather than followed.
    Watcher other = make();
    EXPECT_FALSE(other.watchTree(root + "/to-outside", {}, now).ok());
}

TEST_F(WatcherTest, NeverReportsAnythingInsideExcludedFolders)
{
    makeFolder(root + "/kept");
    makeFolder(root + "/build");
    makeFolder(root + "/build/obj");
    makeFolder(root + "/kept/cache");
    Watcher watcher = make();
    const WatchTreeReport report = watch(watcher, root, {root + "/build", root + "/kept/cache/"});
    EXPECT_EQ(report.watchedFolders, 2u);

    writeFile(root + "/build/a.o", "o");
    writeFile(root + "/build/obj/b.o", "o");
    writeFile(root + "/kept/cache/entry", "e");
    writeFile(root + "/kept/file", "f");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Created, root + "/kept/file")});

    // The excluded folder is an entry of its parent, as the crawler lists
    // it; made anew, it is still not entered.
    removeTree(root + "/build");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Deleted, root + "/build", true)});
    makeFolder(root + "/build");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Created, root + "/build", true)});
    writeFile(root + "/build/c.o", "o");
    EXPECT_TRUE(settle(watcher).empty());

    // A watched folder renamed to an excluded path stops being watched.
    removeTree(root + "/build");
    makeFolder(root + "/staging");
    EXPECT_EQ(settle(watcher).size(), 2u);
    renamePath(root + "/staging", root + "/build");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Moved, root + "/build", true, root + "/staging")});
    writeFile(root + "/build/d.o", "o");
    EXPECT_TRUE(settle(watcher).empty());
    EXPECT_EQ(watcher.statistics().watchedFolders, 2u);
}

TEST_F(WatcherTest, ARootRemovedOrMovedAwayAsksForACrawlAndIsFoundAgain)
{
    const std::string tree = root + "/tree";
    makeFolder(tree);
    makeFolder(tree + "/sub");
    WatcherOptions options;
    Watcher watcher = make(options);
    watch(watcher, tree);

    // Moved away: the tree is gone from where it was watched, and what
    // happens at its new place is not reported.
    const Nanoseconds goneAt = now;
    renamePath(tree, root + "/elsewhere");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::TreeMayHaveChanged, tree, true)});
    WatcherStatistics statistics = watcher.statistics();
    EXPECT_EQ(statistics.missingRoots, 1u);
    EXPECT_EQ(statistics.watchedFolders, 0u);
    writeFile(root + "/elsewhere/sub/x", "x");
    EXPECT_TRUE(settle(watcher).empty());
    EXPECT_EQ(watcher.nextDeadline(), goneAt + options.pollInterval)
        << "it keeps looking for the missing root at every poll";

    // Back (moved back here): found at the next poll, and watched again.
    renamePath(root + "/elsewhere", tree);
    EXPECT_EQ(settle(watcher, options.pollInterval), std::vector{change(Kind::TreeMayHaveChanged, tree, true)});
    statistics = watcher.statistics();
    EXPECT_EQ(statistics.missingRoots, 0u);
    EXPECT_EQ(statistics.watchedFolders, 2u);
    writeFile(tree + "/sub/y", "y");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, tree + "/sub/y")});

    // Removed with its contents.
    removeTree(tree);
    const std::vector<FileChange> changes = read(watcher);
    ASSERT_FALSE(changes.empty());
    EXPECT_EQ(changes.back(), change(Kind::TreeMayHaveChanged, tree, true));
    EXPECT_EQ(watcher.statistics().missingRoots, 1u);
    EXPECT_TRUE(settle(watcher, options.pollInterval).empty());
}

TEST_F(WatcherTest, PollsTheFoldersBeyondItsBudget)
{
    // A root with three folders of two sub-folders each: ten folders, whose
    // times are set back so that any change of their entries moves them
    // (a change within the file system's time granularity would not).
    const std::vector<std::string> tops{root + "/a", root + "/b", root + "/c"};
    for (const std::string& top : tops) {
        makeFolder(top);
        makeFolder(top + "/1");
        makeFolder(top + "/2");
        writeFile(top + "/2/note.txt", "note");
    }
    for (const std::string& folder : findPaths(root)) {
        setBack(folder);
    }
    auto script = std::make_shared<InotifyScript>();
    WatcherOptions options;
    options.maxWatches = 3;
    Watcher watcher = make(options, std::make_unique<ScriptedInotify>(script));
    const WatchTreeReport report = watch(watcher, root);
    EXPECT_EQ(report.watchedFolders, 3u);
    EXPECT_EQ(report.polledFolders, 7u);
    WatcherStatistics statistics = watcher.statistics();
    EXPECT_EQ(statistics.watchedFolders, 3u);
    EXPECT_EQ(statistics.polledFolders, 7u);
    EXPECT_EQ(statistics.watchBudget, 3u);
    EXPECT_EQ(watcher.nextDeadline(), now + options.pollInterval);

    // The budget went to the shallowest folders: the root and two of its
    // three sub-folders.
    ASSERT_EQ(script->watches.size(), 3u);
    EXPECT_EQ(script->watches[0].first, root);
    const std::string watched = script->watches[1].first;
    const std::string freed = script->watches[2].first;
    std::string polled;
    for (const std::string& top : tops) {
        polled = top != watched && top != freed ? top : polled;
    }
    ASSERT_FALSE(polled.empty());
    writeFile(watched + "/watched.txt", "w");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, watched + "/watched.txt")});

    // Entries made in polled folders are found by the next poll; a polled
    // folder's new sub-folder is polled from then on.
    writeFile(polled + "/made.txt", "m");
    makeFolder(watched + "/1/new");
    EXPECT_TRUE(watcher.readChanges(now).empty());
    now += options.pollInterval;
    std::vector<FileChange> found = watcher.pollDue(now);
    std::sort(found.begin(), found.end(), [](const auto& x, const auto& y) { return x.path < y.path; });
    std::vector<FileChange> expected{change(Kind::FolderChanged, watched + "/1", true), change(Kind::FolderChanged, polled, true)};
    std::sort(expected.begin(), expected.end(), [](const auto& x, const auto& y) { return x.path < y.path; });
    EXPECT_EQ(found, expected);
    EXPECT_EQ(watcher.statistics().polledFolders, 8u);

    // Editing a file does not touch its folder's times: found only by the
    // periodic full rescan, which reports every polled folder.
    writeFile(polled + "/2/note.txt", "edited");
    now += options.pollInterval;
    EXPECT_TRUE(watcher.pollDue(now).empty());
    now += options.fullRescanInterval;
    found = watcher.pollDue(now);
    EXPECT_EQ(found.size(), 8u);
    EXPECT_NE(std::find(found.begin(), found.end(), change(Kind::FolderChanged, polled + "/2", true)), found.end());

    // A removed watched folder frees its watch for a polled one whose
    // parent is watched; that one is reported once, since it was polled
    // till now.
    removeTree(freed);
    EXPECT_EQ(read(watcher).back(), change(Kind::Deleted, freed, true));
    EXPECT_EQ(watcher.statistics().polledFolders, 6u);
    now += options.pollInterval;
    found = watcher.pollDue(now);
    ASSERT_EQ(found.size(), 1u);
    const std::string promoted = found.front().path;
    EXPECT_EQ(found.front(), change(Kind::FolderChanged, promoted, true));
    EXPECT_TRUE(promoted == polled || promoted == watched + "/1" || promoted == watched + "/2") << promoted;
    statistics = watcher.statistics();
    EXPECT_EQ(statistics.watchedFolders, 3u);
    EXPECT_EQ(statistics.polledFolders, 5u);
    writeFile(promoted + "/now-watched.txt", "w");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, promoted + "/now-watched.txt")});

    // Applied by a caller, the changes keep its picture true.
    TreeModel model(root);
    makeFolder(polled + "/2/deeper");
    writeFile(polled + "/2/deeper/z", "z");
    ASSERT_EQ(::unlink((polled + "/2/note.txt").c_str()), 0);
    removeTree(watched + "/1");
    model.apply(read(watcher));
    now += options.pollInterval;
    model.apply(watcher.pollDue(now));
    EXPECT_EQ(model.paths(), findPaths(root));
}

TEST_F(WatcherTest, FoldersBeyondTheKernelsWatchLimitArePolledAndTold)
{
    for (const char* folder : {"/a", "/b", "/c"}) {
        makeFolder(root + folder);
    }
    auto script = std::make_shared<InotifyScript>();
    script->failAfterWatches = 2;
    script->failWith = ENOSPC;
    Watcher watcher = make({}, std::make_unique<ScriptedInotify>(script));
    const WatchTreeReport report = watch(watcher, root);
    EXPECT_EQ(report.watchedFolders, 2u);
    EXPECT_EQ(report.polledFolders, 2u);
    const std::vector<WatchProblem> problems = watcher.takeProblems();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems.front().error, ENOSPC);
    EXPECT_NE(problems.front().message.find("max_user_watches"), std::string::npos) << problems.front().message;
    EXPECT_TRUE(watcher.takeProblems().empty());

    // A folder that refuses its watch for another reason is polled too.
    script->failWith = EACCES;
    script->failAfterWatches = script->watchesAdded;
    makeFolder(root + "/locked");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/locked", true)});
    EXPECT_EQ(watcher.statistics().polledFolders, 3u);
    ASSERT_EQ(watcher.takeProblems().size(), 1u);
}

TEST_F(WatcherTest, AFolderThatVanishesWhileBeingWatchedIsLeftOut)
{
    for (const char* folder : {"/a", "/a/inner", "/b", "/c"}) {
        makeFolder(root + folder);
    }
    auto script = std::make_shared<InotifyScript>();
    // Just before its watch is added, a vanishes with what it holds.
    script->beforeWatch = [&](const std::string& path) {
        if (path == root + "/a") {
            removeTree(root + "/a");
        }
    };
    Watcher watcher = make({}, std::make_unique<ScriptedInotify>(script));
    const WatchTreeReport report = watch(watcher, root);
    EXPECT_EQ(report.watchedFolders, 3u);  // the root, b and c
    EXPECT_EQ(report.unreadableFolders, 0u);
    EXPECT_TRUE(watcher.takeProblems().empty());
    TreeModel model(root);
    model.apply(settle(watcher));
    EXPECT_EQ(model.paths(), findPaths(root));
}

TEST_F(WatcherTest, RefusesRootsItCannotWatch)
{
    writeFile(root + "/file", "f");
    makeLink(root, root + "/link");
    Watcher watcher = make();
    for (const std::string& bad : {std::string("relative/path"), root + "/file", root + "/link", root + "/missing",
                                   std::string("/proc"), std::string("/sys")}) {
        auto report = watcher.watchTree(bad, {}, now);
        EXPECT_FALSE(report.ok()) << bad;
        if (!report.ok()) {
            EXPECT_FALSE(report.error().message.empty());
        }
    }
    watch(watcher, root);
    makeFolder(root + "/sub");
    EXPECT_FALSE(watcher.watchTree(root, {}, now).ok());
    EXPECT_FALSE(watcher.watchTree(root + "/sub", {}, now).ok()) << "inside a watched tree";
    EXPECT_FALSE(watcher.watchTree(root.substr(0, root.rfind('/')), {}, now).ok()) << "around a watched tree";
    EXPECT_FALSE(watcher.unwatchTree(root + "/sub").ok());

    // Unwatched, the tree is quiet, and may be watched again.
    ASSERT_TRUE(watcher.unwatchTree(root).ok());
    EXPECT_EQ(watcher.statistics().watchedFolders, 0u);
    writeFile(root + "/sub/quiet", "q");
    EXPECT_TRUE(settle(watcher).empty());
    watch(watcher, root);
    writeFile(root + "/sub/heard", "h");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/sub/heard")});
}

// Events the kernel will not produce on demand, through a scripted inotify.
TEST_F(WatcherTest, PairsTheHalvesOfARenameWithinThePairingWindow)
{
    auto script = std::make_shared<InotifyScript>();
    WatcherOptions options;
    Watcher watcher = make(options, std::make_unique<ScriptedInotify>(script));
    watch(watcher, root);
    const int wd = script->wdOf(root);
    ASSERT_GE(wd, 0);

    // The second half comes with a later read, within the window.
    script->inject(wd, IN_MOVED_FROM, 7, "x");
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_EQ(watcher.nextDeadline(), now + options.pairingWindow);
    script->inject(wd, IN_MOVED_TO, 7, "y");
    EXPECT_EQ(watcher.readChanges(now + options.pairingWindow - 1), std::vector{change(Kind::Moved, root + "/y", false, root + "/x")});

    // It never comes: a removal when the window ends; a late second half
    // is a creation.
    script->inject(wd, IN_MOVED_FROM | IN_ISDIR, 8, "z");
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_TRUE(watcher.pollDue(now + options.pairingWindow - 1).empty());
    EXPECT_EQ(watcher.pollDue(now + options.pairingWindow), std::vector{change(Kind::Deleted, root + "/z", true)});
    script->inject(wd, IN_MOVED_TO | IN_ISDIR, 8, "late");
    EXPECT_EQ(watcher.readChanges(now), std::vector{change(Kind::Created, root + "/late", true)});

    // A new entry at the path of a half-seen rename: the rename went out of
    // the tree, and comes first.
    script->inject(wd, IN_MOVED_FROM, 9, "p");
    script->inject(wd, IN_CREATE, 0, "p");
    EXPECT_EQ(watcher.readChanges(now), (std::vector{change(Kind::Deleted, root + "/p"), change(Kind::Created, root + "/p")}));

    // A write of a file whose rename is half seen waits for the rename.
    script->inject(wd, IN_MODIFY, 0, "w");
    script->inject(wd, IN_MOVED_FROM, 10, "w");
    EXPECT_TRUE(watcher.readChanges(now).empty());
    script->inject(wd, IN_MOVED_TO, 10, "w2");
    EXPECT_EQ(watcher.readChanges(now + options.pairingWindow / 2), std::vector{change(Kind::Moved, root + "/w2", false, root + "/w")});
    EXPECT_EQ(watcher.pollDue(now + options.writeQuietPeriod), std::vector{change(Kind::ContentChanged, root + "/w2")});
    EXPECT_EQ(watcher.nextDeadline(), kNever);
}

TEST_F(WatcherTest, AQueueOverflowAsksForACrawlOfEveryTreeAndWatchingGoesOn)
{
    const std::string second = makeTree("second");
    makeFolder(root + "/sub");
    auto script = std::make_shared<InotifyScript>();
    Watcher watcher = make({}, std::make_unique<ScriptedInotify>(script));
    watch(watcher, root);
    watch(watcher, second);

    // Changes the overflow hides (their events come after it): a folder
    // made, which was never watched, and a watched one removed.
    makeFolder(root + "/unseen");
    makeFolder(root + "/unseen/deeper");
    removeTree(root + "/sub");
    script->inject(-1, IN_Q_OVERFLOW);
    EXPECT_EQ(watcher.readChanges(now),
              (std::vector{change(Kind::TreeMayHaveChanged, root, true), change(Kind::TreeMayHaveChanged, second, true)}));
    const WatcherStatistics statistics = watcher.statistics();
    EXPECT_EQ(statistics.overflows, 1u);
    EXPECT_EQ(statistics.watchedFolders, 4u) << "the trees were walked again: root, unseen, deeper, second";
    EXPECT_FALSE(watcher.takeProblems().empty());

    writeFile(root + "/unseen/deeper/found", "f");
    EXPECT_EQ(read(watcher), std::vector{change(Kind::Created, root + "/unseen/deeper/found")});
}

TEST_F(WatcherTest, AFloodOfEventsOverflowsTheKernelQueueAndACrawlMendsIt)
{
    std::ifstream limitFile("/proc/sys/fs/inotify/max_queued_events");
    std::size_t limit = 0;
    if (!(limitFile >> limit) || limit > 100'000) {
        GTEST_SKIP() << "the kernel's inotify queue is too long to flood here (max_queued_events " << limit << ")";
    }
    makeFolder(root + "/flood");
    Watcher watcher = make();
    watch(watcher, root);
    TreeModel model(root);
    // Two events (created, closed after writing) per file, unread.
    const std::size_t files = limit / 2 + 1000;
    for (std::size_t i = 0; i < files; ++i) {
        const std::string path = root + "/flood/f" + std::to_string(i);
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ::close(fd);
    }
    std::vector<FileChange> all;
    for (std::vector<FileChange> changes = watcher.readChanges(now); !changes.empty(); changes = watcher.readChanges(now)) {
        all.insert(all.end(), changes.begin(), changes.end());
    }
    EXPECT_NE(std::find(all.begin(), all.end(), change(Kind::TreeMayHaveChanged, root, true)), all.end());
    EXPECT_GE(watcher.statistics().overflows, 1u);
    model.apply(all);
    EXPECT_EQ(model.paths(), findPaths(root));
    ASSERT_EQ(std::system(("rm -rf '" + root + "/flood'").c_str()), 0);
}

// fanotify replaces the per-folder watches where it is allowed.
TEST_F(WatcherTest, FanotifyReportsTheSameChangesAsInotify)
{
    WatcherOptions options;
    options.useFanotify = true;
    Watcher watcher = make(options);
    if (!watcher.statistics().fanotifyAvailable) {
        GTEST_SKIP() << "fanotify is refused here (" << watcher.statistics().fanotifyProblem
                     << "); the watcher uses inotify";
    }
    makeFolder(root + "/sub");
    makeFolder(root + "/excluded");
    const std::string outside = makeTree("outside");
    const WatchTreeReport report = watch(watcher, root, {root + "/excluded"});
    if (!report.fanotify) {
        GTEST_SKIP() << "fanotify cannot mark this file system (" << watcher.statistics().fanotifyProblem
                     << "); the tree is watched with inotify";
    }
    EXPECT_EQ(watcher.statistics().watchedFolders, 0u);
    EXPECT_EQ(watcher.statistics().fanotifyRoots, 1u);

    writeFile(root + "/a.txt", "a");
    writeFile(outside + "/not-ours", "n");
    writeFile(root + "/excluded/not-reported", "n");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Created, root + "/a.txt")});

    renamePath(root + "/a.txt", root + "/sub/b.txt");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Moved, root + "/sub/b.txt", false, root + "/a.txt")});

    const int fd = ::open((root + "/sub/b.txt").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, "more", 4), 4);
    ::close(fd);
    EXPECT_TRUE(watcher.readChanges(now).empty());
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::ContentChanged, root + "/sub/b.txt")});

    ASSERT_EQ(::chmod((root + "/sub/b.txt").c_str(), 0600), 0);
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::AttributesChanged, root + "/sub/b.txt")});

    renamePath(root + "/sub/b.txt", outside + "/b.txt");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Deleted, root + "/sub/b.txt")});
    renamePath(outside + "/b.txt", root + "/back.txt");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Created, root + "/back.txt")});

    makeFolder(root + "/new");
    writeFile(root + "/new/inside", "i");
    EXPECT_EQ(settle(watcher), std::vector{change(Kind::Created, root + "/new", true)});

    // A moved folder is also crawled again: its events are resolved to
    // paths when read, possibly after the move.
    renamePath(root + "/new", root + "/sub/moved");
    EXPECT_EQ(settle(watcher), (std::vector{change(Kind::Moved, root + "/sub/moved", true, root + "/new"),
                                            change(Kind::TreeMayHaveChanged, root + "/sub/moved", true)}));

    removeTree(root + "/sub");
    const std::vector<FileChange> removal = settle(watcher);
    ASSERT_FALSE(removal.empty());
    EXPECT_EQ(removal.back(), change(Kind::Deleted, root + "/sub", true));

    TreeModel model(root);
    writeFile(root + "/late", "l");
    model.apply(settle(watcher));
    EXPECT_EQ(model.paths(), findPaths(root));

    ASSERT_TRUE(watcher.unwatchTree(root).ok());
    EXPECT_EQ(watcher.statistics().fanotifyFileSystems, 0u);
    writeFile(root + "/quiet", "q");
    EXPECT_TRUE(settle(watcher).empty());
}

}  // namespace
