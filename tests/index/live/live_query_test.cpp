// Live queries over a running index: gathering in batches, updates with what
// was added, removed and changed, rejection, suspension, the first N by a
// comparator, scopes, and stopping. A manual dispatcher stands in for the
// event loop, so the clock moves only when a test moves it.
#include "index/live/live_query.h"
#include "index/live/qt_live_query.h"
#include "live_test_support.h"
#include "manual_dispatcher.h"

#include <QSignalSpy>

#include <sys/stat.h>
#include <utime.h>

#include <algorithm>

namespace trovara::index {
namespace {

using test::writeFile;
using Kind = PathChange::Kind;
using namespace std::chrono_literals;

std::set<std::string> paths(const std::vector<std::shared_ptr<void>>& results)
{
    std::set<std::string> set;
    for (const std::shared_ptr<void>& result : results) {
        set.insert(static_cast<const ItemRef*>(result.get())->path());
    }
    return set;
}

void setModified(const std::string& path, std::time_t when)
{
    struct utimbuf times {when, when};
    ::utime(path.c_str(), &times);
}

class LiveQueryTest : public test::LiveTreeTest {
protected:
    LiveQueryTest()
    {
        ::mkdir(at("docs").c_str(), 0755);
        ::mkdir(at("other").c_str(), 0755);
        for (int i = 0; i < 30; ++i) {
            writeFile(at("docs/report " + std::to_string(i) + ".txt"), std::string(static_cast<std::size_t>(i), 'r'));
        }
        writeFile(at("other/report x.txt"), "x");
        writeFile(at("other/notes.md"), "n");
    }

    void SetUp() override
    {
        indexTree();
        source = std::make_unique<LiveIndexSource>(*live);
    }

    std::unique_ptr<LiveQuery> make(LiveQueryOptions options)
    {
        auto query = std::make_unique<LiveQuery>(*source, dispatcher, std::move(options));
        query->onProgress = [this, q = query.get()] {
            ++progress;
            EXPECT_TRUE(q->isGathering());
        };
        query->onFinished = [this] { ++finished; };
        query->onUpdate = [this](const LiveQuery::Update& update) { updates.push_back(update); };
        return query;
    }

    std::unique_ptr<LiveQuery> started(LiveQueryOptions options)
    {
        std::unique_ptr<LiveQuery> query = make(std::move(options));
        auto executed = query->execute();
        EXPECT_TRUE(executed.ok()) << executed.error().message;
        EXPECT_TRUE(dispatcher->runUntil([&] { return finished > 0; }));
        return query;
    }

    static LiveQueryOptions options(std::string text, std::vector<std::string> scopes = {})
    {
        LiveQueryOptions o;
        o.query = std::move(text);
        o.scopes = std::move(scopes);
        return o;
    }

    void settle(LiveQuery& query) { ASSERT_TRUE(dispatcher->runUntilIdle(query)) << "the query never settled"; }

    static std::set<std::string> results(const LiveQuery& query)
    {
        std::set<std::string> set;
        for (std::size_t i = 0; i < query.resultCount(); ++i) {
            set.insert(query.itemAt(i).path());
        }
        return set;
    }

    std::shared_ptr<test::ManualDispatcher> dispatcher = std::make_shared<test::ManualDispatcher>();
    std::unique_ptr<LiveIndexSource> source;
    int progress = 0;
    int finished = 0;
    std::vector<LiveQuery::Update> updates;
};

TEST_F(LiveQueryTest, GatheringComesInBatchesThenFinishes)
{
    LiveQueryOptions o = options("kMDItemFSName == 'report*'");
    o.batching.firstCount = 10;
    o.batching.firstInterval = 1h;
    o.batching.progressCount = 8;
    o.batching.progressInterval = 1h;
    std::unique_ptr<LiveQuery> query = make(o);
    ASSERT_TRUE(query->execute().ok());
    EXPECT_TRUE(query->isRunning());
    EXPECT_TRUE(query->isGathering());
    ASSERT_TRUE(dispatcher->runUntil([&] { return finished > 0; }));
    // 31 results: 10, 8, 8, then the last 5.
    EXPECT_EQ(progress, 4);
    EXPECT_EQ(finished, 1);
    EXPECT_FALSE(query->isGathering());
    EXPECT_EQ(query->resultCount(), 31u);
    EXPECT_TRUE(updates.empty());
    EXPECT_EQ(query->resultAt(31), nullptr);
}

TEST_F(LiveQueryTest, ChangesAfterGatheringArriveAsBatchedUpdates)
{
    std::unique_ptr<LiveQuery> query = started(options("kMDItemFSName == 'report*' && kMDItemFSSize < 20"));
    ASSERT_EQ(query->resultCount(), 21u);  // 0 … 19, and x

    // The first change after a quiet while goes out at once.
    writeFile(at("docs/report new.txt"), "new");
    apply({{Kind::Changed, at("docs/report new.txt")}});
    dispatcher->runReady();
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(paths(updates[0].added), std::set<std::string>{at("docs/report new.txt")});

    // Those right after it wait for the end of the update interval, and go together.
    writeFile(at("docs/report 3.txt"), "three!");              // changed, still matching
    apply({{Kind::Changed, at("docs/report 3.txt")}});
    writeFile(at("docs/report 4.txt"), std::string(50, 'x'));  // changed, no longer matching
    ::unlink(at("docs/report 5.txt").c_str());
    writeFile(at("docs/unrelated.txt"), "u");
    writeFile(at("docs/report brief.txt"), "b");  // comes and goes in between: never reported
    apply({{Kind::Changed, at("docs/report 4.txt")}, {Kind::Removed, at("docs/report 5.txt")},
           {Kind::Changed, at("docs/unrelated.txt")}, {Kind::Changed, at("docs/report brief.txt")}});
    ::unlink(at("docs/report brief.txt").c_str());
    apply({{Kind::Removed, at("docs/report brief.txt")}});
    dispatcher->runReady();
    dispatcher->advance(199ms);
    dispatcher->runReady();
    EXPECT_EQ(updates.size(), 1u) << "held back until the update interval has passed";
    dispatcher->advance(1ms);
    dispatcher->runReady();
    ASSERT_EQ(updates.size(), 2u);
    EXPECT_TRUE(updates[1].added.empty());
    EXPECT_EQ(paths(updates[1].changed), std::set<std::string>{at("docs/report 3.txt")});
    EXPECT_EQ(paths(updates[1].removed), (std::set<std::string>{at("docs/report 4.txt"), at("docs/report 5.txt")}));
    EXPECT_EQ(query->resultCount(), 20u);
    EXPECT_TRUE(query->isIdle());

    // A change after half an interval without changes is a person at work,
    // not a burst: at once, though the last update is only just out.
    dispatcher->advance(100ms);
    writeFile(at("docs/report renamed.txt"), "r");
    apply({{Kind::Changed, at("docs/report renamed.txt")}});
    dispatcher->runReady();
    ASSERT_EQ(updates.size(), 3u);
    EXPECT_EQ(paths(updates[2].added), std::set<std::string>{at("docs/report renamed.txt")});
    updates.pop_back();

    // A change that touches no result tells the query nothing.
    writeFile(at("other/notes.md"), "longer notes");
    apply({{Kind::Changed, at("other/notes.md")}});
    settle(*query);
    EXPECT_EQ(updates.size(), 2u);
}

TEST_F(LiveQueryTest, AFullBatchIsDeliveredWithoutWaiting)
{
    LiveQueryOptions o = options("kMDItemFSName == 'burst*'");
    o.batching.updateCount = 4;
    std::unique_ptr<LiveQuery> query = started(o);
    writeFile(at("other/burst first"), "b");
    apply({{Kind::Changed, at("other/burst first")}});
    dispatcher->runReady();
    ASSERT_EQ(updates.size(), 1u);  // at once; the next wait for the interval …
    std::vector<PathChange> changes;
    for (int i = 0; i < 6; ++i) {
        writeFile(at("other/burst " + std::to_string(i)), "b");
        changes.push_back({Kind::Changed, at("other/burst " + std::to_string(i))});
    }
    apply(changes);
    dispatcher->runReady();
    ASSERT_EQ(updates.size(), 2u) << "… unless there are enough of them";
    EXPECT_EQ(updates[1].added.size(), 6u);
}

TEST_F(LiveQueryTest, RejectedItemsAreNeitherStoredNorCounted)
{
    LiveQueryOptions o = options("kMDItemFSName == 'report*'");
    o.createResult = [](const ItemRef& item) -> std::shared_ptr<void> {
        if (item.path().find("/other/") != std::string::npos) {
            return nullptr;
        }
        return std::make_shared<ItemRef>(item);
    };
    std::unique_ptr<LiveQuery> query = started(o);
    EXPECT_EQ(query->resultCount(), 30u);

    writeFile(at("other/report y.txt"), "y");
    apply({{Kind::Changed, at("other/report y.txt")}});
    settle(*query);
    EXPECT_TRUE(updates.empty());
    EXPECT_EQ(query->resultCount(), 30u);
}

TEST_F(LiveQueryTest, WhileSuspendedChangesWaitAndNoneIsLost)
{
    std::unique_ptr<LiveQuery> query = started(options("kMDItemFSName == 'report*'"));
    query->suspendUpdates();
    writeFile(at("docs/report a.txt"), "a");
    apply({{Kind::Changed, at("docs/report a.txt")}});
    ::unlink(at("docs/report 0.txt").c_str());
    apply({{Kind::Removed, at("docs/report 0.txt")}});
    writeFile(at("docs/report b.txt"), "b");
    apply({{Kind::Changed, at("docs/report b.txt")}});
    dispatcher->runReady();
    while (dispatcher->advanceToNext()) {
        dispatcher->runReady();
    }
    EXPECT_TRUE(updates.empty());
    EXPECT_EQ(query->resultCount(), 31u) << "the results stand still while suspended";
    EXPECT_FALSE(query->isIdle());

    query->resumeUpdates();
    settle(*query);
    std::set<std::string> added;
    std::set<std::string> removed;
    for (const LiveQuery::Update& update : updates) {
        for (const std::string& path : paths(update.added)) {
            added.insert(path);
        }
        for (const std::string& path : paths(update.removed)) {
            removed.insert(path);
        }
    }
    EXPECT_EQ(added, (std::set<std::string>{at("docs/report a.txt"), at("docs/report b.txt")}));
    EXPECT_EQ(removed, std::set<std::string>{at("docs/report 0.txt")});
    EXPECT_EQ(query->resultCount(), 32u);
}

TEST_F(LiveQueryTest, SortedWithAMaximumKeepsTheFirstNAsItemsChange)
{
    // report i.txt was modified at day i; report x.txt has no date in the
    // query's terms (it is excluded by scope here anyway).
    for (int i = 0; i < 30; ++i) {
        setModified(at("docs/report " + std::to_string(i) + ".txt"), 1'600'000'000 + i * 86400);
    }
    ASSERT_TRUE(live->update({}).ok());

    LiveQueryOptions o = options("kMDItemFSName == 'report*'", {at("docs")});
    o.sortingAttributes = {"kMDItemFSContentChangeDate"};
    // Latest first; items without the date first of all.
    o.comparator = [](const SortValues& a, const SortValues& b) {
        if (!a[0] || !b[0]) {
            return a[0] ? 1 : b[0] ? -1 : 0;
        }
        const double x = std::get<query::Date>(a[0]->elements()[0]).seconds;
        const double y = std::get<query::Date>(b[0]->elements()[0]).seconds;
        return x > y ? -1 : x < y ? 1 : 0;
    };
    o.maxCount = 3;
    std::unique_ptr<LiveQuery> query = started(o);
    ASSERT_EQ(query->resultCount(), 3u);
    EXPECT_EQ(query->itemAt(0).path(), at("docs/report 29.txt"));
    EXPECT_EQ(query->itemAt(1).path(), at("docs/report 28.txt"));
    EXPECT_EQ(query->itemAt(2).path(), at("docs/report 27.txt"));

    // An old item becomes the newest: it enters, the third leaves.
    setModified(at("docs/report 3.txt"), 1'700'000'000);
    apply({{Kind::Changed, at("docs/report 3.txt")}});
    settle(*query);
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(paths(updates[0].added), std::set<std::string>{at("docs/report 3.txt")});
    EXPECT_EQ(paths(updates[0].removed), std::set<std::string>{at("docs/report 27.txt")});
    EXPECT_TRUE(updates[0].changed.empty());
    EXPECT_EQ(query->itemAt(0).path(), at("docs/report 3.txt"));
    EXPECT_EQ(query->itemAt(2).path(), at("docs/report 28.txt"));

    // The newest is deleted: the one waiting below the window comes back.
    ::unlink(at("docs/report 3.txt").c_str());
    apply({{Kind::Removed, at("docs/report 3.txt")}});
    settle(*query);
    ASSERT_EQ(updates.size(), 2u);
    EXPECT_EQ(paths(updates[1].removed), std::set<std::string>{at("docs/report 3.txt")});
    EXPECT_EQ(paths(updates[1].added), std::set<std::string>{at("docs/report 27.txt")});
    EXPECT_EQ(results(*query), (std::set<std::string>{at("docs/report 29.txt"), at("docs/report 28.txt"),
                                                     at("docs/report 27.txt")}));

    // A change below the window is no news.
    setModified(at("docs/report 10.txt"), 1'600'000'001);
    apply({{Kind::Changed, at("docs/report 10.txt")}});
    settle(*query);
    EXPECT_EQ(updates.size(), 2u);
}

TEST_F(LiveQueryTest, ScopesLimitWhatIsFoundAndHeard)
{
    std::unique_ptr<LiveQuery> query = started(options("kMDItemFSName == 'report*'", {at("other")}));
    EXPECT_EQ(results(*query), std::set<std::string>{at("other/report x.txt")});
    writeFile(at("docs/report new.txt"), "n");
    apply({{Kind::Changed, at("docs/report new.txt")}});
    settle(*query);
    EXPECT_TRUE(updates.empty());
}

TEST_F(LiveQueryTest, FoldersOutsideTheIndexAreSearchedByCrawling)
{
    ::mkdir((outside + "/deep").c_str(), 0755);
    writeFile(outside + "/deep/report far.txt", "far");
    writeFile(outside + "/notes.txt", "not a match");
    std::unique_ptr<LiveQuery> query = started(options("kMDItemFSName == 'report*'", {outside, at("other")}));
    EXPECT_EQ(results(*query), (std::set<std::string>{outside + "/deep/report far.txt", at("other/report x.txt")}));
    EXPECT_EQ(query->itemAt(0).attribute("kMDItemFSSize").has_value(), true);
}

TEST_F(LiveQueryTest, BadQueriesAndMissingFoldersFailToStart)
{
    std::unique_ptr<LiveQuery> query = make(options("kMDItemFSName == "));
    auto executed = query->execute();
    ASSERT_FALSE(executed.ok());
    EXPECT_EQ(executed.error().kind, Failure::Kind::InvalidQuery);
    EXPECT_FALSE(query->isRunning());

    query = make(options("kMDItemFSName == 'x'", {root + "/no such folder"}));
    executed = query->execute();
    ASSERT_FALSE(executed.ok());
    EXPECT_NE(executed.error().message.find("no such folder"), std::string::npos) << executed.error().message;
}

TEST_F(LiveQueryTest, NothingArrivesAfterStopAndTheResultsRemain)
{
    // Stopped before its gathering was delivered: no notification at all.
    std::unique_ptr<LiveQuery> early = make(options("kMDItemFSName == 'report*'"));
    ASSERT_TRUE(early->execute().ok());
    early->stop();
    EXPECT_FALSE(early->isRunning());
    dispatcher->runReady();
    EXPECT_EQ(progress + finished, 0);

    // Stopped with a change on its way.
    std::unique_ptr<LiveQuery> query = started(options("kMDItemFSName == 'report*'"));
    const std::size_t count = query->resultCount();
    writeFile(at("docs/report late.txt"), "l");
    apply({{Kind::Changed, at("docs/report late.txt")}});
    query->stop();
    dispatcher->runReady();
    while (dispatcher->advanceToNext()) {
        dispatcher->runReady();
    }
    EXPECT_TRUE(updates.empty());
    EXPECT_EQ(query->resultCount(), count);
    EXPECT_FALSE(query->execute().ok()) << "a stopped query does not start again";

    // Destroyed with work still queued for it.
    std::unique_ptr<LiveQuery> dropped = make(options("kMDItemFSName == 'report*'"));
    ASSERT_TRUE(dropped->execute().ok());
    dropped.reset();
    writeFile(at("docs/report later.txt"), "l");
    apply({{Kind::Changed, at("docs/report later.txt")}});
    dispatcher->runReady();
    while (dispatcher->advanceToNext()) {
        dispatcher->runReady();
    }
}

TEST_F(LiveQueryTest, ATreeCrawledAgainIsGatheredAgainAndOnlyTheDifferenceReported)
{
    std::unique_ptr<LiveQuery> query = started(options("kMDItemFSName == 'report*'"));
    for (int i = 0; i < 5; ++i) {
        writeFile(at("other/report n" + std::to_string(i)), "n");
    }
    ::unlink(at("docs/report 7.txt").c_str());
    apply({{Kind::TreeChanged, root}});
    settle(*query);
    std::set<std::string> added;
    std::set<std::string> removed;
    for (const LiveQuery::Update& update : updates) {
        added.merge(paths(update.added));
        removed.merge(paths(update.removed));
    }
    EXPECT_EQ(added.size(), 5u);
    EXPECT_EQ(removed, std::set<std::string>{at("docs/report 7.txt")});
    EXPECT_EQ(query->resultCount(), 35u);
}

TEST_F(LiveQueryTest, TheQtAdapterSignalsThroughTheEventLoop)
{
    LiveQueryOptions o = options("kMDItemFSName == 'report*'");
    o.batching.updateInterval = 0ms;
    QtLiveQuery query(*source, o);
    QSignalSpy progressed(&query, &QtLiveQuery::progress);
    QSignalSpy finishedSpy(&query, &QtLiveQuery::finished);
    QSignalSpy updated(&query, &QtLiveQuery::updated);
    ASSERT_TRUE(query.query().execute().ok());
    EXPECT_EQ(finishedSpy.count(), 0) << "nothing is delivered outside the event loop";
    ASSERT_TRUE(finishedSpy.wait(60000));
    EXPECT_GE(progressed.count(), 1);
    EXPECT_EQ(query.query().resultCount(), 31u);

    writeFile(at("docs/report qt.txt"), "q");
    apply({{Kind::Changed, at("docs/report qt.txt")}});
    ASSERT_TRUE(updated.wait(60000));
    EXPECT_EQ(query.query().resultCount(), 32u);
}

}  // namespace
}  // namespace trovara::index
