// The running index: changes reported by path reach the database, the view
// searches use, and every subscriber, and the view always agrees with the
// disk and with a catalogue built afresh.
#include "index/live/live_index.h"
#include "index/query/parser.h"
#include "live_test_support.h"

#include <sys/stat.h>

#include <algorithm>

namespace trovara::index {
namespace {

using test::writeFile;
using Kind = PathChange::Kind;

double number(const ItemRef& item, std::string_view key)
{
    const std::optional<query::AttributeValue> value = item.attribute(key);
    return value && !value->elements().empty() ? std::get<double>(value->elements()[0]) : -1;
}

class LiveIndexTest : public test::LiveTreeTest {
protected:
    LiveIndexTest()
    {
        ::mkdir(at("docs").c_str(), 0755);
        writeFile(at("docs/report.txt"), "quarterly\n");
        writeFile(at("docs/notes.md"), "# notes\n");
        writeFile(at("top.txt"), "top\n");
    }

    void SetUp() override
    {
        indexTree();
        subscription = live->subscribe([this](const IndexChanges& changes) { heard.push_back(changes); });
    }

    std::set<std::string> viewPaths(const char* text = "kMDItemFSName == '*'") const
    {
        std::set<std::string> paths;
        live->view()->search(query::parseQuery(text).value(), query::QueryStart::now(), {}, [&](const ItemRef& item) {
            if (item.path() != root) {
                paths.insert(item.path());
            }
            return true;
        });
        return paths;
    }

    std::set<std::string> diskPaths() const
    {
        return test::pathsOnDisk(root, [](const auto&) { return true; });
    }

    std::set<std::string> heardRemoved() const
    {
        std::set<std::string> paths;
        for (const IndexChanges& changes : heard) {
            paths.insert(changes.removed.begin(), changes.removed.end());
        }
        return paths;
    }
    std::set<std::string> heardUpserted() const
    {
        std::set<std::string> paths;
        for (const IndexChanges& changes : heard) {
            for (const ItemRef& item : changes.upserted) {
                paths.insert(item.path());
            }
        }
        return paths;
    }

    int subscription = 0;
    std::vector<IndexChanges> heard;
};

TEST_F(LiveIndexTest, CreatedChangedAndRemovedFilesReachViewAndSubscribers)
{
    writeFile(at("docs/new report.txt"), "fresh\n");
    apply({{Kind::Changed, at("docs/new report.txt")}});
    EXPECT_EQ(viewPaths(), diskPaths());
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_FALSE(heard[0].everything);
    // The new file and its folder, whose entry count grew.
    EXPECT_EQ(heardUpserted(), (std::set<std::string>{at("docs/new report.txt"), at("docs")}));
    auto folder = live->view()->item(at("docs"));
    ASSERT_TRUE(folder);
    EXPECT_EQ(number(*folder, "kMDItemFSNodeCount"), 3);

    heard.clear();
    writeFile(at("docs/report.txt"), "quarterly, revised and longer\n");
    apply({{Kind::Changed, at("docs/report.txt")}});
    auto changed = live->view()->item(at("docs/report.txt"));
    ASSERT_TRUE(changed);
    EXPECT_EQ(number(*changed, "kMDItemFSSize"), 30);
    EXPECT_EQ(heardUpserted(), std::set<std::string>{at("docs/report.txt")});

    heard.clear();
    ::unlink(at("docs/notes.md").c_str());
    apply({{Kind::Removed, at("docs/notes.md")}});
    EXPECT_EQ(viewPaths(), diskPaths());
    EXPECT_EQ(heardRemoved(), std::set<std::string>{at("docs/notes.md")});

    // A change reported for a file that did not change tells nobody anything
    // about it (its folder is not touched either).
    heard.clear();
    apply({{Kind::Changed, at("top.txt")}});
    EXPECT_TRUE(heardUpserted().empty());
}

TEST_F(LiveIndexTest, FoldersArriveWithEverythingInsideAndLeaveTheSameWay)
{
    // A folder moved in from outside: only the folder itself is reported.
    ::mkdir((outside + "/album").c_str(), 0755);
    ::mkdir((outside + "/album/raw").c_str(), 0755);
    writeFile(outside + "/album/a.png", "\x89PNG\r\n\x1a\n");
    writeFile(outside + "/album/raw/b.cr2", "raw");
    ASSERT_EQ(::rename((outside + "/album").c_str(), at("album").c_str()), 0);
    apply({{Kind::Changed, at("album")}});
    EXPECT_EQ(viewPaths(), diskPaths());
    EXPECT_TRUE(heardUpserted().count(at("album/raw/b.cr2")));
    auto raw = live->view()->item(at("album/raw"));
    ASSERT_TRUE(raw);
    EXPECT_EQ(number(*raw, "kMDItemFSNodeCount"), 1);

    // Renamed: the old paths go, all of them, and the new ones come.
    heard.clear();
    ASSERT_EQ(::rename(at("album").c_str(), at("photos").c_str()), 0);
    apply({{Kind::Removed, at("album")}, {Kind::Changed, at("photos")}});
    EXPECT_EQ(viewPaths(), diskPaths());
    EXPECT_EQ(heardRemoved(), (std::set<std::string>{at("album"), at("album/a.png"), at("album/raw"),
                                                     at("album/raw/b.cr2")}));
    EXPECT_TRUE(heardUpserted().count(at("photos/raw/b.cr2")));

    // A later change inside the renamed folder is known to be inside the index.
    writeFile(at("photos/raw/c.cr2"), "raw");
    apply({{Kind::Changed, at("photos/raw/c.cr2")}});
    EXPECT_EQ(viewPaths(), diskPaths());
}

TEST_F(LiveIndexTest, ComparingAFolderFindsWhatCameAndWentUnreported)
{
    ::unlink(at("docs/notes.md").c_str());
    writeFile(at("docs/draft.txt"), "draft\n");
    ::mkdir(at("docs/sub").c_str(), 0755);
    writeFile(at("docs/sub/deep.txt"), "deep\n");
    apply({{Kind::FolderChanged, at("docs")}});
    EXPECT_EQ(viewPaths(), diskPaths());
    EXPECT_EQ(heardRemoved(), std::set<std::string>{at("docs/notes.md")});
}

TEST_F(LiveIndexTest, ATreeThatMayHaveChangedAnywhereIsCrawledAgain)
{
    ::mkdir(at("docs/a").c_str(), 0755);
    writeFile(at("docs/a/one.txt"), "1");
    ::unlink(at("top.txt").c_str());
    apply({{Kind::TreeChanged, root}});
    EXPECT_EQ(viewPaths(), diskPaths());
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_TRUE(heard[0].everything);
}

TEST_F(LiveIndexTest, PathsOutsideTheRootsAndTheIndexOwnFilesAreIgnored)
{
    writeFile(outside + "/elsewhere.txt", "x");
    apply({{Kind::Changed, outside + "/elsewhere.txt"}, {Kind::Removed, outside + "/nothing"}});
    EXPECT_TRUE(heardUpserted().empty());
    EXPECT_TRUE(heardRemoved().empty());

    // An index kept inside an indexed folder does not index its own files.
    live.reset();
    const std::string inner = at("docs/.index");
    auto opened = LiveIndex::open(inner, test::liveServices(), false);
    ASSERT_TRUE(opened.ok()) << opened.error().message;
    live = std::move(opened.value());
    ASSERT_TRUE(live->addRoots({root}, {}).ok());
    writeFile(inner + "/scratch", "x");
    apply({{Kind::Changed, inner + "/scratch"}, {Kind::FolderChanged, inner}, {Kind::FolderChanged, at("docs")}});
    for (const std::string& path : viewPaths()) {
        EXPECT_EQ(path.find("/.index/"), std::string::npos) << path;
    }
}

TEST_F(LiveIndexTest, ManyChangesRebuildTheCatalogueAndTheViewStillAgrees)
{
    live->setRebuildThreshold(5);
    std::vector<PathChange> changes;
    for (int i = 0; i < 12; ++i) {
        const std::string path = at("docs/file " + std::to_string(i) + ".txt");
        writeFile(path, std::string(static_cast<std::size_t>(i), 'x'));
        changes.push_back({Kind::Changed, path});
    }
    apply(changes);
    // Subscribers hear of the changes as such: the rebuilt catalogue holds
    // nothing else new.
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_FALSE(heard[0].everything);
    EXPECT_EQ(heard[0].upserted.size(), 13u);  // the files and their folder
    EXPECT_TRUE(live->view()->fresh().empty());
    EXPECT_EQ(viewPaths(), diskPaths());
    EXPECT_EQ(viewPaths("kMDItemFSSize >= 10"), (std::set<std::string>{at("docs/file 10.txt"), at("docs/file 11.txt"),
                                                                      at("docs/report.txt")}));
}

TEST_F(LiveIndexTest, ChangesOutliveTheProcessAndOthersReadThem)
{
    writeFile(at("kept.txt"), "kept");
    ::unlink(at("top.txt").c_str());
    apply({{Kind::Changed, at("kept.txt")}, {Kind::Removed, at("top.txt")}});
    const std::set<std::string> expected = diskPaths();

    auto readByAnother = [&] {
        auto catalogue = Index::catalogue(directory, test::liveServices());
        EXPECT_TRUE(catalogue.ok()) << catalogue.error().message;
        std::set<std::string> read;
        for (ItemIndex i = 0; catalogue && i < catalogue.value()->size(); ++i) {
            if (catalogue.value()->path(i) != root) {
                read.insert(catalogue.value()->path(i));
            }
        }
        return read;
    };
    // Another process reading the index while this one writes it takes the
    // snapshot as it is; once nobody writes, it builds it from the database.
    EXPECT_NE(readByAnother(), expected);
    live.reset();
    EXPECT_EQ(readByAnother(), expected);

    auto reopened = LiveIndex::open(directory, test::liveServices(), false);
    ASSERT_TRUE(reopened.ok()) << reopened.error().message;
    live = std::move(reopened.value());
    EXPECT_EQ(viewPaths(), expected);
}

TEST_F(LiveIndexTest, OpeningAnswersFromTheSnapshotAsItIsUntilPrepared)
{
    writeFile(at("kept.txt"), "kept");
    apply({{Kind::Changed, at("kept.txt")}});
    const std::set<std::string> expected = diskPaths();
    live.reset();  // its changes are in the database, not in the snapshot

    auto reopened = LiveIndex::open(directory, test::liveServices(), false);
    ASSERT_TRUE(reopened.ok()) << reopened.error().message;
    live = std::move(reopened.value());
    EXPECT_FALSE(viewPaths().count(at("kept.txt"))) << "the snapshot as it was saved";
    live->subscribe([&](const IndexChanges& changes) { heard.push_back(changes); });
    heard.clear();
    ASSERT_TRUE(live->prepare().ok());
    EXPECT_EQ(viewPaths(), expected);
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_TRUE(heard[0].everything);
    EXPECT_TRUE(Index::catalogue(directory, test::liveServices()).value()->isMapped()) << "and saved";
}

TEST_F(LiveIndexTest, OneWriterAtATime)
{
    auto second = LiveIndex::open(directory, test::liveServices(), false);
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().kind, Failure::Kind::Busy);
    EXPECT_NE(second.error().message.find("another Trovara process"), std::string::npos) << second.error().message;
}

}  // namespace
}  // namespace trovara::index
