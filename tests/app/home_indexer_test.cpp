// The first start: an empty in-process index gets the home folder, once;
// an index that knows folders is left alone.
#include "app/home_indexer.h"
#include "index/live/engine.h"
#include "live_test_support.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

class HomeIndexerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_temporary.isValid());
        home = m_temporary.filePath(QStringLiteral("home"));
        ASSERT_TRUE(QDir().mkpath(home + QStringLiteral("/Documents")));
        writeFile((home + QStringLiteral("/Documents/budget.txt")).toStdString(), "numbers");
        writeFile((home + QStringLiteral("/notes.txt")).toStdString(), "words");
    }

    std::unique_ptr<index::IndexEngine> startEngine()
    {
        index::EngineOptions options;
        options.watch = false;
        options.importContent = false;
        auto engine = index::IndexEngine::start(m_temporary.filePath(QStringLiteral("index")).toStdString(),
                                                liveServices(), options);
        EXPECT_TRUE(engine.ok()) << (engine.ok() ? std::string() : engine.error().message);
        return engine.ok() ? std::move(engine.value()) : nullptr;
    }

    static bool waitFor(QSignalSpy& spy)
    {
        QDeadlineTimer deadline(10000);
        while (spy.isEmpty() && !deadline.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        return !spy.isEmpty();
    }

    QString home;

private:
    QTemporaryDir m_temporary;
};

TEST_F(HomeIndexerTest, AnEmptyIndexGetsTheHomeFolderAndItsNamesAreSearchableWhenItFinishes)
{
    std::unique_ptr<index::IndexEngine> engine = startEngine();
    ASSERT_NE(engine, nullptr);
    app::HomeIndexer indexer;
    QSignalSpy finished(&indexer, &app::HomeIndexer::finished);
    ASSERT_TRUE(indexer.startIfNeeded(*engine, home));
    EXPECT_TRUE(indexer.isRunning());
    // Asked again while it runs: nothing more starts.
    EXPECT_FALSE(indexer.startIfNeeded(*engine, home));

    ASSERT_TRUE(waitFor(finished));
    EXPECT_EQ(finished.first().first().toString(), QString());
    EXPECT_FALSE(indexer.isRunning());
    const std::vector<std::string> roots = engine->indexedRoots();
    ASSERT_EQ(roots.size(), 1u);
    EXPECT_EQ(QString::fromStdString(roots.front()), QDir(home).canonicalPath());
    const std::string canonical = QDir(home).canonicalPath().toStdString();
    EXPECT_TRUE(engine->currentView()->item(canonical + "/notes.txt").has_value());
    EXPECT_TRUE(engine->currentView()->item(canonical + "/Documents/budget.txt").has_value());

    // The next start finds the folder there and leaves the index alone.
    app::HomeIndexer again;
    EXPECT_FALSE(again.startIfNeeded(*engine, home));
}

TEST_F(HomeIndexerTest, AHomeFolderThatCannotBeIndexedIsReportedAndNothingIsAdded)
{
    std::unique_ptr<index::IndexEngine> engine = startEngine();
    ASSERT_NE(engine, nullptr);
    app::HomeIndexer indexer;
    QSignalSpy finished(&indexer, &app::HomeIndexer::finished);
    ASSERT_TRUE(indexer.startIfNeeded(*engine, home + QStringLiteral("/missing")));
    ASSERT_TRUE(waitFor(finished));
    EXPECT_NE(finished.first().first().toString(), QString());
    EXPECT_TRUE(engine->indexedRoots().empty());
}

TEST_F(HomeIndexerTest, IndexerGoneBeforeTheEngineFinishesIsNotCalledBack)
{
    std::unique_ptr<index::IndexEngine> engine = startEngine();
    ASSERT_NE(engine, nullptr);
    {
        app::HomeIndexer indexer;
        ASSERT_TRUE(indexer.startIfNeeded(*engine, home));
    }
    engine->sync();
    QCoreApplication::processEvents();
    engine.reset();
}

}  // namespace
}  // namespace trovara::test
