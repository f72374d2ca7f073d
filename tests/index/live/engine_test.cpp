// The engine on a real tree with the real watcher: what happens on disk
// reaches a live query, what happened while it was not running is caught up
// at start, and its snapshot is written for other readers.
#include "index/live/engine.h"
#include "live_test_support.h"
#include "manual_dispatcher.h"

#include <sys/stat.h>

#include <fstream>
#include <future>
#include <sstream>

namespace trovara::index {
namespace {

using test::writeFile;

class EngineTest : public test::LiveTreeTest {
protected:
    EngineTest()
    {
        ::mkdir(at("docs").c_str(), 0755);
        writeFile(at("docs/report.txt"), "r");
    }

    static EngineOptions quickOptions()
    {
        EngineOptions options;
        // Nothing is held back: every change is due when the engine looks.
        options.watcher.pairingWindow = 0;
        options.watcher.writeQuietPeriod = 0;
        options.watcher.writeMaxDelay = 0;
        options.checkpointDelay = std::chrono::milliseconds(0);
        return options;
    }

    std::unique_ptr<IndexEngine> startEngine(EngineOptions options = quickOptions())
    {
        options.problem = [this](const std::string& message) { problems.push_back(message); };
        auto engine = IndexEngine::start(directory, test::liveServices(), options);
        EXPECT_TRUE(engine.ok()) << (engine.ok() ? "" : engine.error().message);
        return engine.ok() ? std::move(engine.value()) : nullptr;
    }

    std::set<std::string> results(const LiveQuery& query) const
    {
        std::set<std::string> set;
        for (std::size_t i = 0; i < query.resultCount(); ++i) {
            set.insert(query.itemAt(i).path());
        }
        return set;
    }

    // Lets the engine apply what the watcher saw, then the query deliver it.
    void settle(IndexEngine& engine, LiveQuery& query)
    {
        engine.sync();
        ASSERT_TRUE(dispatcher->runUntilIdle(query));
    }

    std::shared_ptr<test::ManualDispatcher> dispatcher = std::make_shared<test::ManualDispatcher>();
    std::vector<std::string> problems;
};

TEST_F(EngineTest, WhatHappensOnDiskReachesALiveQuery)
{
    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    ASSERT_TRUE(engine->addRoots({root}).ok());

    LiveQueryOptions options;
    options.query = "kMDItemFSName == '*report*'";
    LiveQuery query(*engine, dispatcher, options);
    std::vector<LiveQuery::Update> updates;
    query.onUpdate = [&](const LiveQuery::Update& update) { updates.push_back(update); };
    ASSERT_TRUE(query.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    EXPECT_EQ(results(query), std::set<std::string>{at("docs/report.txt")});

    writeFile(at("docs/report 2.txt"), "two");
    settle(*engine, query);
    EXPECT_EQ(results(query), (std::set<std::string>{at("docs/report.txt"), at("docs/report 2.txt")}));

    ASSERT_EQ(::rename(at("docs/report 2.txt").c_str(), at("docs/final report.txt").c_str()), 0);
    settle(*engine, query);
    EXPECT_EQ(results(query), (std::set<std::string>{at("docs/report.txt"), at("docs/final report.txt")}));

    // A folder made with things inside, then moved out of the tree.
    ::mkdir(at("docs/reports").c_str(), 0755);
    writeFile(at("docs/reports/report 3.txt"), "3");
    settle(*engine, query);
    EXPECT_TRUE(results(query).count(at("docs/reports/report 3.txt")));
    ASSERT_EQ(::rename(at("docs/reports").c_str(), (outside + "/reports").c_str()), 0);
    settle(*engine, query);
    EXPECT_EQ(results(query), (std::set<std::string>{at("docs/report.txt"), at("docs/final report.txt")}));

    ::unlink(at("docs/report.txt").c_str());
    settle(*engine, query);
    EXPECT_EQ(results(query), std::set<std::string>{at("docs/final report.txt")});
    EXPECT_FALSE(updates.empty());
    EXPECT_GT(engine->statistics().watcher.watchedFolders, 0u);
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(EngineTest, AContentChangeIsImportedAgainAndSearchedByItsNewWords)
{
    IndexServices services = test::liveServices();
    auto importer = std::make_shared<test::TextFileImporter>();
    services.importer = importer;
    writeFile(at("docs/report.txt"), "quarterly figures\n");
    EngineOptions options = quickOptions();
    options.problem = [this](const std::string& message) { problems.push_back(message); };
    auto started = IndexEngine::start(directory, services, options);
    ASSERT_TRUE(started.ok()) << started.error().message;
    IndexEngine& engine = *started.value();
    ASSERT_TRUE(engine.addRoots({root}).ok());
    engine.sync();  // the content comes after the names, in the background
    EXPECT_EQ(engine.statistics().importsWaiting, 0u);
    EXPECT_GE(engine.statistics().importsDone, 1u);

    LiveQueryOptions quarterlyOptions;
    quarterlyOptions.query = "kMDItemTextContent == 'quarter*'cd";
    LiveQuery quarterly(engine, dispatcher, quarterlyOptions);
    LiveQueryOptions annualOptions;
    annualOptions.query = "kMDItemTextContent == 'annual'cd";
    LiveQuery annual(engine, dispatcher, annualOptions);
    ASSERT_TRUE(quarterly.execute().ok());
    ASSERT_TRUE(annual.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(quarterly));
    ASSERT_TRUE(dispatcher->runUntilIdle(annual));
    EXPECT_EQ(results(quarterly), std::set<std::string>{at("docs/report.txt")});
    EXPECT_TRUE(results(annual).empty());

    // New words in the same file: imported again, the old words gone.
    writeFile(at("docs/report.txt"), "the annual summary, rewritten\n");
    settle(engine, quarterly);
    ASSERT_TRUE(dispatcher->runUntilIdle(annual));
    EXPECT_TRUE(results(quarterly).empty());
    EXPECT_EQ(results(annual), std::set<std::string>{at("docs/report.txt")});

    // A new file is searchable by its content as soon as it is applied.
    writeFile(at("docs/minutes.txt"), "annual meeting\n");
    settle(engine, annual);
    EXPECT_EQ(results(annual), (std::set<std::string>{at("docs/report.txt"), at("docs/minutes.txt")}));
    EXPECT_GE(importer->imports.load(), 3);

    // A change of mode alone keeps what the import found, unread.
    const int imports = importer->imports.load();
    const std::uint64_t batches = engine.statistics().batchesApplied;
    ASSERT_EQ(::chmod(at("docs/report.txt").c_str(), 0600), 0);
    settle(engine, annual);
    EXPECT_GT(engine.statistics().batchesApplied, batches) << "the change was applied";
    EXPECT_EQ(importer->imports.load(), imports);
    EXPECT_EQ(results(annual), (std::set<std::string>{at("docs/report.txt"), at("docs/minutes.txt")}));
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(EngineTest, AFolderKeptForNamesOnlyIsNeverImportedNotEvenAsItChanges)
{
    IndexServices services = test::liveServices();
    auto importer = std::make_shared<test::TextFileImporter>();
    services.importer = importer;
    EngineOptions options = quickOptions();
    auto started = IndexEngine::start(directory, services, options);
    ASSERT_TRUE(started.ok()) << started.error().message;
    IndexEngine& engine = *started.value();
    Index::Options namesOnly;
    namesOnly.namesOnly = true;
    ASSERT_TRUE(engine.addRoots({root}, namesOnly).ok());
    engine.sync();

    LiveQueryOptions queryOptions;
    queryOptions.query = "kMDItemFSName == '*.txt'";
    LiveQuery query(engine, dispatcher, queryOptions);
    ASSERT_TRUE(query.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    writeFile(at("docs/minutes.txt"), "annual meeting\n");
    settle(engine, query);
    EXPECT_EQ(results(query), (std::set<std::string>{at("docs/report.txt"), at("docs/minutes.txt")}));
    EXPECT_EQ(importer->imports.load(), 0);
}

TEST_F(EngineTest, ChangesWhileStoppedAreCaughtUpAtStart)
{
    {
        std::unique_ptr<IndexEngine> engine = startEngine();
        ASSERT_TRUE(engine);
        ASSERT_TRUE(engine->addRoots({root}).ok());
    }
    writeFile(at("docs/while away.txt"), "w");
    ::unlink(at("docs/report.txt").c_str());

    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    engine->sync();  // after the start-up crawl
    auto view = engine->currentView();
    EXPECT_TRUE(view->item(at("docs/while away.txt")));
    EXPECT_FALSE(view->item(at("docs/report.txt")));
    EXPECT_EQ(engine->indexedRoots(), std::vector<std::string>{root});
}

TEST_F(EngineTest, ItAnswersFromTheSnapshotAtOnceAndCatchesUpInTheBackground)
{
    {
        std::unique_ptr<IndexEngine> engine = startEngine();
        ASSERT_TRUE(engine);
        ASSERT_TRUE(engine->addRoots({root}).ok());
    }
    writeFile(at("docs/while away.txt"), "w");

    // The catch-up finds the new file, then builds its catalogue: held there
    // until the test lets it go on.
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    struct Release {
        std::promise<void>& promise;
        bool done = false;
        void now()
        {
            if (!done) {
                promise.set_value();
                done = true;
            }
        }
        ~Release() { now(); }
    } releaser{release};
    IndexServices services = test::liveServices();
    services.lastUsed = [released](const std::string&, const FileInfo&) {
        released.wait();
        return Nanoseconds{0};
    };
    EngineOptions options = quickOptions();
    options.problem = [this](const std::string& message) { problems.push_back(message); };
    auto started = IndexEngine::start(directory, services, options);
    ASSERT_TRUE(started.ok()) << started.error().message;
    IndexEngine& engine = *started.value();
    EXPECT_EQ(engine.indexedRoots(), std::vector<std::string>{root});

    LiveQueryOptions queryOptions;
    queryOptions.query = "kMDItemFSName == '*.txt'";
    LiveQuery query(engine, dispatcher, queryOptions);
    ASSERT_TRUE(query.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    EXPECT_EQ(results(query), std::set<std::string>{at("docs/report.txt")}) << "the index as it was";

    releaser.now();
    settle(engine, query);
    EXPECT_EQ(results(query), (std::set<std::string>{at("docs/report.txt"), at("docs/while away.txt")}));
    EXPECT_TRUE(engine.statistics().caughtUp);
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(EngineTest, ACatchUpThatFindsNothingNewWritesNothing)
{
    {
        std::unique_ptr<IndexEngine> engine = startEngine();
        ASSERT_TRUE(engine);
        ASSERT_TRUE(engine->addRoots({root}).ok());
    }
    struct stat before {};
    ASSERT_EQ(::stat((directory + "/catalogue.bin").c_str(), &before), 0);
    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    engine->sync();
    EXPECT_TRUE(engine->statistics().caughtUp);
    struct stat after {};
    ASSERT_EQ(::stat((directory + "/catalogue.bin").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(EngineTest, UrgentWorkIsDoneWhileACrawlIsUnderWay)
{
    for (const char* folder : {"a", "b", "c"}) {
        ::mkdir(at(folder).c_str(), 0755);
    }
    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    std::promise<void> crawling;
    std::promise<void> posted;
    std::shared_future<void> postedNow = posted.get_future().share();
    Index::Options options;
    options.threads = 1;
    int folders = 0;
    options.progress = [&](const UpdateProgress&) {
        if (++folders == 1) {
            crawling.set_value();
            postedNow.wait();
        }
    };
    auto adding = std::async(std::launch::async, [&] { return engine->addRoots({root}, options); });
    crawling.get_future().wait();
    std::promise<bool> ranDuringTheCrawl;
    engine->postUrgent([&](LiveIndex* live) { ranDuringTheCrawl.set_value(live == nullptr); });
    posted.set_value();
    EXPECT_TRUE(ranDuringTheCrawl.get_future().get()) << "not held back until the crawl was done";
    EXPECT_TRUE(adding.get().ok());

    // Between operations, urgent work has the index.
    std::promise<bool> withIndex;
    engine->postUrgent([&](LiveIndex* live) { withIndex.set_value(live != nullptr); });
    EXPECT_TRUE(withIndex.get_future().get());
}

TEST_F(EngineTest, ASearchThatRunsOnceReadsTheIndexBesideItsWriter)
{
    Expected<std::unique_ptr<SnapshotSource>> none = SnapshotSource::open(directory + "/none", test::liveServices());
    ASSERT_TRUE(none.ok()) << "no index yet is an empty one";
    EXPECT_EQ(none.value()->currentView(), nullptr);

    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    ASSERT_TRUE(engine->addRoots({root}).ok());
    Expected<std::unique_ptr<SnapshotSource>> source = SnapshotSource::open(directory, test::liveServices());
    ASSERT_TRUE(source.ok()) << source.error().message;
    EXPECT_EQ(source.value()->indexedRoots(), std::vector<std::string>{root});
    LiveQueryOptions options;
    options.query = "kMDItemFSName == 'report.txt'";
    LiveQuery query(*source.value(), dispatcher, options);
    ASSERT_TRUE(query.execute().ok());
    ASSERT_TRUE(dispatcher->runUntilIdle(query));
    EXPECT_EQ(results(query), std::set<std::string>{at("docs/report.txt")});
}

TEST_F(EngineTest, TheSnapshotIsWrittenForOtherReaders)
{
    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    ASSERT_TRUE(engine->addRoots({root}).ok());
    writeFile(at("docs/fresh.txt"), "f");
    // Until the watcher has nothing more to say; the quiet period (none
    // here) has then passed, and the snapshot is written.
    std::uint64_t batches = 0;
    do {
        batches = engine->statistics().batchesApplied;
        engine->sync();
    } while (engine->statistics().batchesApplied != batches);

    auto catalogue = Index::catalogue(directory, test::liveServices());
    ASSERT_TRUE(catalogue.ok()) << catalogue.error().message;
    EXPECT_TRUE(catalogue.value()->isMapped()) << "the snapshot is current, not built again";
    bool found = false;
    for (ItemIndex i = 0; i < catalogue.value()->size(); ++i) {
        found = found || catalogue.value()->path(i) == at("docs/fresh.txt");
    }
    EXPECT_TRUE(found);
}

TEST_F(EngineTest, RootsComeAndGoWithTheirWatches)
{
    std::unique_ptr<IndexEngine> engine = startEngine();
    ASSERT_TRUE(engine);
    ASSERT_TRUE(engine->addRoots({at("docs")}).ok());
    EXPECT_EQ(engine->statistics().watcher.roots, 1u);
    // A folder around the root takes its place.
    ASSERT_TRUE(engine->addRoots({root}).ok());
    EXPECT_EQ(engine->indexedRoots(), std::vector<std::string>{root});
    EXPECT_EQ(engine->statistics().watcher.roots, 1u);
    ASSERT_TRUE(engine->removeRoots({root}).ok());
    EXPECT_EQ(engine->statistics().watcher.roots, 0u);
    EXPECT_FALSE(engine->addRoots({root + "/missing"}).ok());
    EXPECT_EQ(engine->statistics().watcher.roots, 0u);

    auto second = IndexEngine::start(directory, test::liveServices(), quickOptions());
    EXPECT_FALSE(second.ok()) << "one writer at a time";
}

}  // namespace
}  // namespace trovara::index
