// The shell: a window per document and the document closed with its window,
// saving and Revert, recent documents, files that cannot be opened, the
// index opened in the background (and one that cannot be), and a daemon
// that dies while a window is open.
#include "daemon/background_query_source.h"
#include "daemon/server.h"
#include "daemon/socket_path.h"
#include "document/document_controller.h"
#include "index/live/engine.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widget_test_support.h"
#include "widgets/filter_field.h"
#include "widgets/message_bar.h"
#include "widgets/preferences_window.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QProgressBar>
#include <QSignalSpy>
#include <QTest>

#include <thread>

namespace trovara::test {
namespace {

using widgets::Application;
using widgets::DocumentWindow;

class ApplicationTest : public WidgetTest {
protected:
    QString file(const QString& name) const { return QString::fromStdString(outside) + QLatin1Char('/') + name; }
};

TEST_F(ApplicationTest, EachDocumentGetsAWindowAndClosingTheWindowClosesTheDocument)
{
    Application& app = application();
    DocumentWindow* first = app.newDocument();
    DocumentWindow* second = app.newDocument();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(app.documentController().documents().size(), 2u);
    EXPECT_EQ(app.windowForDocument(&second->document()), second);
    EXPECT_TRUE(first->isVisible());
    EXPECT_EQ(app.activeDocument(), &second->document());

    // Closing an untitled search asks nothing; its document goes.
    ASSERT_TRUE(second->close());
    ASSERT_TRUE(waitFor([&] { return app.documentController().documents().size() == 1u; }, "the document to close"));
    EXPECT_EQ(app.windows().size(), 1u);
    EXPECT_EQ(app.activeDocument(), &first->document());

    // With none left, a new search is opened when one is needed.
    ASSERT_TRUE(first->close());
    ASSERT_TRUE(waitFor([&] { return app.windows().empty(); }));
    app.openNewDocumentWhenNeeded();
    EXPECT_EQ(app.windows().size(), 1u);
    app.openNewDocumentWhenNeeded();
    EXPECT_EQ(app.windows().size(), 1u);
}

TEST_F(ApplicationTest, AnEditedDocumentAsksBeforeItsWindowClosesAndCancelKeepsIt)
{
    Application& app = application();
    DocumentWindow* window = newSearchWindow();
    ASSERT_TRUE(window->saveDocumentAs(file(QStringLiteral("kept"))));
    EXPECT_EQ(window->document().fileURL(), file(QStringLiteral("kept.trova")));
    EXPECT_EQ(window->windowTitle(), "kept[*]");
    EXPECT_EQ(app.recentDocuments().front(), file(QStringLiteral("kept.trova")));

    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    EXPECT_TRUE(window->isWindowModified());
    int asked = 0;
    window->setClosePrompt([&](DocumentWindow*) {
        ++asked;
        return DocumentWindow::CloseAnswer::Cancel;
    });
    EXPECT_FALSE(window->close());
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(app.windows().size(), 1u);

    // Save closes it with the changes written.
    window->setClosePrompt([](DocumentWindow*) { return DocumentWindow::CloseAnswer::Save; });
    EXPECT_TRUE(window->close());
    ASSERT_TRUE(waitFor([&] { return app.windows().empty(); }));
    DocumentWindow* reopened = app.openDocument(file(QStringLiteral("kept.trova")));
    ASSERT_NE(reopened, nullptr);
    EXPECT_TRUE(reopened->document().metadataQueryController()->expression().contains("report"));
    // Opening it again brings the same window forward.
    EXPECT_EQ(app.openDocument(file(QStringLiteral("kept.trova"))), reopened);
}

TEST_F(ApplicationTest, DocumentsOpenedOrClosedBehindTheWindowsGetOrLoseTheirWindow)
{
    Application& app = application();
    // A script makes a search: it gets a window like any other.
    Result<document::Document*> made = app.delegate().newDocument();
    ASSERT_TRUE(made.ok());
    DocumentWindow* window = app.windowForDocument(made.value());
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());

    // A script closes an edited search: the window goes, nobody is asked.
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    int asked = 0;
    window->setClosePrompt([&](DocumentWindow*) {
        ++asked;
        return DocumentWindow::CloseAnswer::Cancel;
    });
    QPointer<DocumentWindow> watched(window);
    app.delegate().closeDocument(made.value());
    EXPECT_TRUE(watched.isNull());
    EXPECT_TRUE(app.windows().empty());
    EXPECT_EQ(app.activeDocument(), nullptr);
    EXPECT_EQ(asked, 0);
}

TEST_F(ApplicationTest, AQuickSearchLinkOpensItsSearchInAWindowAndARefusedOneBeeps)
{
    Application& app = application();
    QSignalSpy beeps(&app.delegate(), &app::ApplicationDelegate::beepRequested);
    const std::size_t before = app.windows().size();

    app.delegate().getUrl(QStringLiteral("trovara://blitzSearch?searchstring=harbour&filenameflag=1"));
    ASSERT_EQ(app.windows().size(), before + 1);
    DocumentWindow* window = app.windows().back();
    EXPECT_TRUE(window->isVisible());
    const QString expression = window->document().currentExpression();
    EXPECT_TRUE(expression.contains(QStringLiteral("harbour"))) << expression.toStdString();
    EXPECT_EQ(beeps.count(), 0);

    // A malformed link: the beep, and no window more.
    app.delegate().getUrl(QStringLiteral("trovara://bad%zzescape"));
    EXPECT_EQ(beeps.count(), 1);
    EXPECT_EQ(app.windows().size(), before + 1);
}

TEST_F(ApplicationTest, PreferencesOpenFromEveryWindowAndAreMadeOnce)
{
    Application& app = application();
    DocumentWindow* window = app.newDocument();
    ASSERT_NE(window, nullptr);
    ASSERT_NE(app.actions().preferences, nullptr);
    app.actions().preferences->trigger();
    widgets::PreferencesController* preferences = app.showPreferences();
    ASSERT_NE(preferences, nullptr);
    EXPECT_TRUE(preferences->isVisible());
    EXPECT_EQ(app.showPreferences(), preferences);
    preferences->close();
}

TEST_F(ApplicationTest, RevertReadsTheSavedFileAgainInPlace)
{
    Application& app = application();
    DocumentWindow* window = newSearchWindow();
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    ASSERT_TRUE(window->saveDocumentAs(file(QStringLiteral("revert.trova"))));
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("notes"));
    ASSERT_TRUE(window->document().isDocumentEdited());
    window->setGeometry(100, 120, 700, 500);
    emit window->revertRequested(window);
    ASSERT_EQ(app.windows().size(), 1u);
    DocumentWindow* reverted = app.windows().front();
    EXPECT_FALSE(reverted->document().isDocumentEdited());
    EXPECT_TRUE(reverted->document().metadataQueryController()->expression().contains("report"));
    EXPECT_EQ(reverted->geometry().size(), QSize(700, 500));
    EXPECT_EQ(app.documentController().documents().size(), 1u);
}

TEST_F(ApplicationTest, AFileThatCannotBeOpenedIsReportedAndNothingChanges)
{
    Application& app = application();
    const QString bad = file(QStringLiteral("bad.trova"));
    QFile out(bad);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write("not a search");
    out.close();
    EXPECT_EQ(app.openDocument(bad), nullptr);
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_FALSE(presented.front().description.isEmpty());
    EXPECT_TRUE(app.windows().empty());
    QFile in(bad);
    ASSERT_TRUE(in.open(QIODevice::ReadOnly));
    EXPECT_EQ(in.readAll(), "not a search");

    // A folder opens a new search of that folder.
    DocumentWindow* folder = app.openDocument(treePath("docs"));
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(folder->document().metadataQueryController()->searchScopes(), QStringList({treePath("docs")}));
}

TEST_F(ApplicationTest, RecentDocumentsKeepTheLastTenNewestFirst)
{
    Application& app = application();
    for (int i = 0; i < 12; ++i) {
        QFile made(file(QStringLiteral("r%1.trova").arg(i)));
        ASSERT_TRUE(made.open(QIODevice::WriteOnly));
        app.noteRecentDocument(made.fileName());
    }
    app.noteRecentDocument(file(QStringLiteral("r5.trova")));
    const QStringList recent = app.recentDocuments();
    ASSERT_EQ(recent.size(), Application::kRecentDocumentCount);
    EXPECT_EQ(recent.front(), file(QStringLiteral("r5.trova")));
    EXPECT_EQ(recent[1], file(QStringLiteral("r11.trova")));
    EXPECT_EQ(recent.count(file(QStringLiteral("r5.trova"))), 1);
    EXPECT_FALSE(recent.contains(file(QStringLiteral("r0.trova"))));
    // A file that went away leaves the list.
    QFile::remove(file(QStringLiteral("r11.trova")));
    EXPECT_FALSE(app.recentDocuments().contains(file(QStringLiteral("r11.trova"))));
    EXPECT_EQ(app.recentDocuments().size(), Application::kRecentDocumentCount - 1);
}

TEST_F(ApplicationTest, BackgroundSourceHasNoIndexUntilOpenThenTellsSubscribersToLookAgain)
{
    live.reset();
    std::atomic<bool> readyCalled{false};
    std::vector<index::IndexChanges> heard;
    std::mutex mutex;
    daemon::QuerySourceOptions options;
    options.embeddedOnly = true;
    daemon::BackgroundQuerySource source(directory, liveServices(), options, [&] { readyCalled = true; });
    const int id = source.subscribeToChanges([&](const index::IndexChanges& changes) {
        std::lock_guard lock(mutex);
        heard.push_back(changes);
    });
    ASSERT_TRUE(waitFor([&] { return readyCalled.load(); }, "the index to open"));
    EXPECT_TRUE(source.isReady());
    EXPECT_FALSE(source.failure());
    EXPECT_EQ(source.indexedRoots(), std::vector<std::string>({root}));
    EXPECT_NE(source.currentView(), nullptr);
    {
        std::lock_guard lock(mutex);
        ASSERT_FALSE(heard.empty());
        EXPECT_TRUE(heard.front().everything);
    }
    source.unsubscribeFromChanges(id);
}

TEST_F(ApplicationTest, AnIndexThatCannotBeOpenedIsSaidInTheWindowWhichStaysUsable)
{
    // Another program writes the index (the test's own engine holds it).
    daemon::QuerySourceOptions options;
    options.embeddedOnly = true;
    m_application = std::make_unique<Application>(directory, liveServices(), options);
    setErrorPresenter([this](const Error& error) { presented.push_back(error); });
    DocumentWindow* window = m_application->newDocument();
    ASSERT_NE(window, nullptr);
    EXPECT_FALSE(window->startStopAction()->isEnabled());
    EXPECT_EQ(window->statusLabel()->text(), "Opening the index…");
    ASSERT_TRUE(waitFor([&] { return m_application->isIndexSettled(); }, "the index to be tried"));
    ASSERT_TRUE(waitFor([&] { return window->isDocumentLoaded(); }, "the window to load"));
    EXPECT_TRUE(window->messageBar()->isVisible());
    EXPECT_EQ(window->messageBar()->kind(), widgets::MessageBar::Kind::Error);
    EXPECT_TRUE(window->messageBar()->text().startsWith("The index could not be opened"))
        << window->messageBar()->text().toStdString();
    // Usable: a search of the folder runs (through the folders themselves).
    setPlaces(window->document(), {treePath("docs")});
    searchNames(window, QStringLiteral("report"));
    EXPECT_EQ(window->document().metadataQueryController()->results()->rowCount(), 6);
}

TEST_F(ApplicationTest, AFirstStartIndexesTheHomeFolderWithProgressInTheWindowThenFindsItsFiles)
{
    // No index yet, no daemon; the home folder is the tree's docs folder.
    const ScopedEnv home("HOME", at("docs").c_str());
    const std::string fresh = outside + "/first-start-index";
    daemon::QuerySourceOptions options;
    options.embeddedOnly = true;
    m_application = std::make_unique<Application>(fresh, liveServices(), options);
    DocumentWindow* window = m_application->newDocument();
    ASSERT_NE(window, nullptr);
    ASSERT_TRUE(waitFor([&] { return m_application->isIndexSettled(); }, "the index to open"));
    // The crawl reports on a later turn: the bar is up from the start.
    EXPECT_TRUE(window->indexingProgress()->isVisible());
    EXPECT_FALSE(m_application->indexingText().isEmpty());
    // A window opened meanwhile shows it too.
    DocumentWindow* second = m_application->newDocument();
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->indexingProgress()->isVisible());

    ASSERT_TRUE(waitFor([&] { return m_application->indexingText().isEmpty(); }, "the first indexing to end"));
    EXPECT_FALSE(window->indexingProgress()->isVisible());
    EXPECT_FALSE(window->messageBar()->isVisible()) << window->messageBar()->text().toStdString();
    EXPECT_EQ(m_application->querySource().indexedRoots(),
              std::vector<std::string>{QDir(treePath("docs")).canonicalPath().toStdString()});
    ASSERT_TRUE(waitFor([&] { return window->isDocumentLoaded(); }, "the window to load"));
    setPlaces(window->document(), {treePath("docs")});
    searchNames(window, QStringLiteral("report"));
    EXPECT_EQ(window->document().metadataQueryController()->results()->rowCount(), 6);

    // The next start finds the folder in the index and crawls nothing new.
    m_application.reset();
    m_application = std::make_unique<Application>(fresh, liveServices(), options);
    ASSERT_TRUE(waitFor([&] { return m_application->isIndexSettled(); }, "the index to open again"));
    EXPECT_TRUE(m_application->indexingText().isEmpty());
}

TEST_F(ApplicationTest, ADaemonThatDiesLeavesAMessageAndAUsableWindow)
{
    live.reset();
    index::EngineOptions engineOptions;
    engineOptions.watcher.pairingWindow = 0;
    engineOptions.watcher.writeQuietPeriod = 0;
    engineOptions.checkpointDelay = std::chrono::milliseconds(0);
    auto engine = index::IndexEngine::start(directory, liveServices(), engineOptions);
    ASSERT_TRUE(engine.ok()) << engine.error().message;
    auto server = daemon::Server::listen(*engine.value(), daemon::socketPathFor(directory), directory);
    ASSERT_TRUE(server.ok()) << server.error().message;
    std::thread serving([&] { server.value()->run(); });
    auto stopDaemon = [&] {
        if (serving.joinable()) {
            server.value()->stop();
            serving.join();
            server.value().reset();  // its sockets close, as when the process ends
            engine.value().reset();
        }
    };

    m_application = std::make_unique<Application>(directory, liveServices());
    setErrorPresenter([this](const Error& error) { presented.push_back(error); });
    DocumentWindow* window = m_application->newDocument();
    ASSERT_TRUE(waitFor([&] { return window->isDocumentLoaded(); }, "the window to load"));
    setPlaces(window->document(), {QString::fromStdString(root)});
    searchNames(window, QStringLiteral("report"));
    ASSERT_EQ(window->document().metadataQueryController()->results()->rowCount(), 6);

    stopDaemon();
    ASSERT_TRUE(waitFor([&] { return window->messageBar()->isVisible(); }, "the message about the daemon"));
    EXPECT_FALSE(window->messageBar()->text().isEmpty());
    // The results stay, and the window goes on working.
    EXPECT_EQ(window->document().metadataQueryController()->results()->rowCount(), 6);
    window->filterField()->setText(QStringLiteral("4"));
    EXPECT_EQ(window->document().metadataQueryController()->results()->rowCount(), 1);
    window->document().stopQuery();
    EXPECT_EQ(window->startStopAction()->text(), "Start");
    window->startStopAction()->trigger();
    EXPECT_EQ(window->startStopAction()->text(), "Stop");
    EXPECT_TRUE(waitFor([&] { return isSettled(window->document()); }));
    m_application.reset();
    stopDaemon();
}

}  // namespace
}  // namespace trovara::test
