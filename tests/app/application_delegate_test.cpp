// The application delegate: start-up order, default templates and their
// version, the untitled document, quitting, watched preferences, the
// active document, documents announced, Open Recent and error logging.
#include "app/application_delegate.h"
#include "app/exception_handler.h"
#include "app/recent_documents.h"

#include "common/error_presenter.h"
#include "common/log.h"
#include "model/defaults.h"
#include "model/value_transformer.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <stdexcept>

namespace trovara::test {
namespace {

using app::ApplicationDelegate;
using document::Document;

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    file.write(bytes);
}

class ApplicationDelegateTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        settingsFile = QDir::homePath() + QStringLiteral("/delegate-test.conf");
        QFile::remove(settingsFile);
        model::Defaults::resetSharedForTesting(settingsFile);
        QDir(ApplicationDelegate::applicationSupportFolder()).removeRecursively();
        QDir(QDir::homePath() + QStringLiteral("/.local/share/Trash")).removeRecursively();
        shipped = makeTemporaryFolder(QStringLiteral("shipped"));
        writeBytes(shipped + QStringLiteral("/Images.trova"), "shipped images");
        writeBytes(shipped + QStringLiteral("/Music.trova"), "shipped music");
        writeBytes(shipped + QStringLiteral("/README"), "not a template");
        previousPresenter = setErrorPresenter([this](const Error& error) { presented.push_back(error); });
        makeDelegate();
    }

    void TearDown() override
    {
        delegate.reset();
        QCoreApplication::sendPostedEvents();
        setErrorPresenter(previousPresenter);
        log::setSink([](const QString&) {});
        model::Defaults::resetSharedForTesting();
        QDir(ApplicationDelegate::applicationSupportFolder()).removeRecursively();
        QDir(shipped).removeRecursively();
        document::Templates::refresh();
    }

    void makeDelegate()
    {
        delegate = std::make_unique<ApplicationDelegate>(noIndex);
        delegate->setDefaultTemplatesFolderForTesting(shipped);
        delegate->setAlertPrompt([this](const query::Alert& alert) {
            alerts.push_back(alert);
            return answer;
        });
    }

    void launch()
    {
        delegate->applicationWillFinishLaunching();
        ASSERT_TRUE(delegate->applicationDidFinishLaunching());
    }

    static int templateVersion() { return model::Defaults::shared().intValue(QStringLiteral("templateVersion")); }
    static void setTemplateVersion(int version)
    {
        model::Defaults::shared().setValue(QStringLiteral("templateVersion"), version);
    }
    static QString installed(const QString& name) { return ApplicationDelegate::templateFolder() + '/' + name; }
    // What the settings file holds on disk (another process's view).
    QVariant onDisk(const QString& key) const { return QSettings(settingsFile, QSettings::IniFormat).value(key); }

    QString settingsFile;
    QString shipped;
    index::NoIndexSource noIndex;
    std::unique_ptr<ApplicationDelegate> delegate;
    std::vector<query::Alert> alerts;
    int answer = 0;
    std::vector<Error> presented;
    ErrorPresenter previousPresenter;
};

// --- Templates and their version ---------------------------------------------------------------

TEST_F(ApplicationDelegateTest, FirstStartInstallsTheTemplatesWithoutAsking)
{
    launch();
    EXPECT_TRUE(alerts.empty());
    EXPECT_EQ(readAll(installed(QStringLiteral("Images.trova"))), "shipped images");
    EXPECT_EQ(readAll(installed(QStringLiteral("Music.trova"))), "shipped music");
    EXPECT_FALSE(QFileInfo::exists(installed(QStringLiteral("README"))));
    EXPECT_EQ(templateVersion(), 10);
    EXPECT_EQ(onDisk(QStringLiteral("templateVersion")).toInt(), 10);

    // The list follows on the next turn.
    QSignalSpy loaded(delegate.get(), &ApplicationDelegate::templatesChanged);
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    EXPECT_GE(loaded.count(), 1);
    ASSERT_EQ(delegate->templates().size(), 2u);
    EXPECT_EQ(delegate->templates()[0]->displayName(), QStringLiteral("Images"));
    EXPECT_EQ(delegate->templates()[1]->displayName(), QStringLiteral("Music"));
}

TEST_F(ApplicationDelegateTest, OlderTemplateVersionAsksAndYesReplacesConflictsThroughTheTrash)
{
    QDir().mkpath(ApplicationDelegate::templateFolder());
    writeBytes(installed(QStringLiteral("Images.trova")), "the user's own");
    writeBytes(installed(QStringLiteral("Mine.trova")), "untouched");
    setTemplateVersion(9);
    answer = 0;  // Yes
    launch();

    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].messageText, QStringLiteral("New templates are available"));
    EXPECT_EQ(alerts[0].informativeText, QStringLiteral("Would you like to install the updated default templates? "
                                                        "Conflicting files will be moved to the trash."));
    EXPECT_EQ(alerts[0].buttons, (QStringList{QStringLiteral("Yes"), QStringLiteral("No")}));
    EXPECT_EQ(readAll(installed(QStringLiteral("Images.trova"))), "shipped images");
    EXPECT_EQ(readAll(installed(QStringLiteral("Mine.trova"))), "untouched");
    const QString trashed = QDir::homePath() + QStringLiteral("/.local/share/Trash/files/Images.trova");
    EXPECT_EQ(readAll(trashed), "the user's own");
    EXPECT_EQ(templateVersion(), 10);
}

TEST_F(ApplicationDelegateTest, AnsweringNoStillRecordsTheVersionSoTheQuestionIsNotRepeated)
{
    QDir().mkpath(ApplicationDelegate::templateFolder());
    setTemplateVersion(9);
    answer = 1;  // No
    launch();
    EXPECT_EQ(alerts.size(), 1u);
    EXPECT_FALSE(QFileInfo::exists(installed(QStringLiteral("Images.trova"))));
    EXPECT_EQ(templateVersion(), 10);

    EXPECT_FALSE(delegate->installTemplates(false));
    EXPECT_EQ(alerts.size(), 1u);
}

TEST_F(ApplicationDelegateTest, CurrentOrNewerTemplateVersionNeitherAsksNorCopies)
{
    QDir().mkpath(ApplicationDelegate::templateFolder());
    for (int version : {10, 11}) {
        setTemplateVersion(version);
        EXPECT_FALSE(delegate->installTemplates(false));
        EXPECT_TRUE(alerts.empty()) << version;
        EXPECT_FALSE(QFileInfo::exists(installed(QStringLiteral("Images.trova"))));
        EXPECT_EQ(templateVersion(), 10);
    }
}

TEST_F(ApplicationDelegateTest, ForcedInstallCopiesWhateverTheVersion)
{
    QDir().mkpath(ApplicationDelegate::templateFolder());
    setTemplateVersion(10);
    EXPECT_TRUE(delegate->installTemplates(true));
    EXPECT_TRUE(alerts.empty());
    EXPECT_EQ(readAll(installed(QStringLiteral("Music.trova"))), "shipped music");
}

TEST_F(ApplicationDelegateTest, TemplatesFolderThatCannotBeMadeIsReportedAndStartUpGoesOn)
{
    QDir().mkpath(ApplicationDelegate::applicationSupportFolder());
    // A file where the folder should be.
    writeBytes(ApplicationDelegate::templateFolder(), "in the way");
    launch();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].messageText, QStringLiteral("Alert"));
    EXPECT_EQ(alerts[0].informativeText, QStringLiteral("Failed to create default templates folder"));
    EXPECT_EQ(alerts[0].buttons, QStringList{QStringLiteral("Bummer")});
    EXPECT_EQ(readAll(ApplicationDelegate::templateFolder()), "in the way");
    EXPECT_EQ(templateVersion(), 10);
    // The untitled document still comes.
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(delegate->documents().size(), 1u);
}

// --- Start-up ------------------------------------------------------------------------------------

TEST_F(ApplicationDelegateTest, StartUpRecordsWhereAndWhichApplicationRuns)
{
    launch();
    EXPECT_EQ(onDisk(QStringLiteral("appPath")).toString(), QCoreApplication::applicationFilePath());
    EXPECT_FALSE(onDisk(QStringLiteral("appVersion")).toString().isEmpty());
}

TEST_F(ApplicationDelegateTest, UntitledDocumentOpensOneTurnLaterOnlyWhenNoneWasOpened)
{
    QSignalSpy opened(delegate.get(), &ApplicationDelegate::documentOpened);
    delegate->applicationWillFinishLaunching();
    EXPECT_FALSE(delegate->applicationShouldOpenUntitledFile());
    ASSERT_TRUE(delegate->applicationDidFinishLaunching());
    EXPECT_TRUE(delegate->documents().empty());
    QCoreApplication::sendPostedEvents();
    EXPECT_TRUE(delegate->applicationShouldOpenUntitledFile());
    ASSERT_EQ(delegate->documents().size(), 1u);
    EXPECT_EQ(opened.count(), 1);
    EXPECT_TRUE(delegate->documents()[0]->isWindowLoaded());
}

TEST_F(ApplicationDelegateTest, DocumentOpenedDuringStartUpSuppressesTheUntitledOne)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("place"));
    delegate->applicationWillFinishLaunching();
    ASSERT_TRUE(delegate->openDocument(folder).ok());
    ASSERT_TRUE(delegate->applicationDidFinishLaunching());
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(delegate->documents().size(), 1u);
    QDir(folder).removeRecursively();
}

TEST_F(ApplicationDelegateTest, ClosingTheLastWindowQuitsOnlyWhenAskedTo)
{
    QSignalSpy terminate(delegate.get(), &ApplicationDelegate::terminateRequested);
    delegate->lastWindowClosed();
    EXPECT_EQ(terminate.count(), 0);
    model::Defaults::shared().setValue(QStringLiteral("quitOnCloseOfLastWindow"), true);
    EXPECT_TRUE(delegate->applicationShouldTerminateAfterLastWindowClosed());
    delegate->lastWindowClosed();
    EXPECT_EQ(terminate.count(), 1);
}

// --- Watched preferences ---------------------------------------------------------------------------

TEST_F(ApplicationDelegateTest, HelperPreferencesAreSavedAndAnnouncedOthersAreNot)
{
    launch();
    QSignalSpy helper(delegate.get(), &ApplicationDelegate::helperPreferencesChanged);
    QSignalSpy menu(delegate.get(), &ApplicationDelegate::templateMenuChanged);
    model::Defaults& defaults = model::Defaults::shared();

    const QVariantMap hotKey{{QStringLiteral("keyCode"), 1}, {QStringLiteral("modifiers"), 768}};
    defaults.setValue(QStringLiteral("blitzSearchHotKey"), hotKey);
    EXPECT_EQ(helper.count(), 1);
    EXPECT_EQ(onDisk(QStringLiteral("blitzSearchHotKey")).toMap(), hotKey);
    defaults.setValue(QStringLiteral("enableGlobalMenuItem"), false);
    defaults.setValue(QStringLiteral("bringToFrontAndCreateHotKey"), hotKey);
    EXPECT_EQ(helper.count(), 3);
    // Setting what is already there changes nothing.
    defaults.setValue(QStringLiteral("enableGlobalMenuItem"), false);
    EXPECT_EQ(helper.count(), 3);

    defaults.setValue(QStringLiteral("template_2"), true);
    EXPECT_EQ(menu.count(), 1);
    EXPECT_TRUE(onDisk(QStringLiteral("template_2")).toBool());

    defaults.setValue(QStringLiteral("gridZoomValue"), 0.7);
    EXPECT_EQ(helper.count(), 3);
    EXPECT_EQ(menu.count(), 1);
}

// --- Documents and the active document ----------------------------------------------------------------

TEST_F(ApplicationDelegateTest, ActiveDocumentFollowsTheMainWindowOnTheNextTurn)
{
    launch();
    QCoreApplication::sendPostedEvents();
    Document* first = delegate->documents().at(0);
    Document* second = delegate->newDocument().value();
    QSignalSpy changed(delegate.get(), &ApplicationDelegate::activeDocumentChanged);

    delegate->setMainWindowDocument(first);
    delegate->setMainWindowDocument(second);
    EXPECT_EQ(delegate->activeDocument(), nullptr);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(delegate->activeDocument(), second);
    EXPECT_EQ(changed.count(), 1);

    QSignalSpy closing(delegate.get(), &ApplicationDelegate::documentWillClose);
    delegate->closeDocument(second);
    EXPECT_EQ(closing.count(), 1);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(delegate->activeDocument(), nullptr);
    EXPECT_EQ(delegate->documents(), std::vector<Document*>{first});

    delegate->applicationWillTerminate();
    delegate->setMainWindowDocument(first);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(delegate->activeDocument(), nullptr);
}

TEST_F(ApplicationDelegateTest, OpeningAFileTwiceAnnouncesOneDocumentAndNotesItAsRecent)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("saved"));
    Document* made = delegate->newDocument().value();
    const QString path = folder + QStringLiteral("/Search.trova");
    ASSERT_TRUE(delegate->saveDocumentAs(made, path).ok());
    delegate->closeDocument(made);

    QSignalSpy opened(delegate.get(), &ApplicationDelegate::documentOpened);
    Result<Document*> first = delegate->openDocument(path);
    Result<Document*> again = delegate->openDocument(path);
    ASSERT_TRUE(first.ok());
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(first.value(), again.value());
    EXPECT_EQ(opened.count(), 1);
    EXPECT_EQ(delegate->recentDocuments(), QStringList{path});
    QDir(folder).removeRecursively();
}

TEST_F(ApplicationDelegateTest, TemplateOpensAsAnUntitledCopyAndIsNotRecent)
{
    Document* made = delegate->newDocument().value();
    QDir().mkpath(ApplicationDelegate::templateFolder());
    ASSERT_TRUE(made->saveToURL(installed(QStringLiteral("Mine.trova")), Document::SaveOperation::SaveTo).ok());
    Result<Document*> copy = delegate->openDocument(installed(QStringLiteral("Mine.trova")));
    ASSERT_TRUE(copy.ok());
    EXPECT_TRUE(copy.value()->fileURL().isEmpty());
    EXPECT_EQ(copy.value()->templateName(), QStringLiteral("Mine"));
    EXPECT_TRUE(delegate->recentDocuments().isEmpty());
}

TEST_F(ApplicationDelegateTest, FilesThatDoNotOpenArePresentedAndTheRestOpen)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("mixed"));
    writeBytes(folder + QStringLiteral("/broken.trova"), "not a search");
    const std::vector<Document*> opened =
        delegate->openDocuments({folder + QStringLiteral("/broken.trova"), folder});
    EXPECT_EQ(opened.size(), 1u);
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(readAll(folder + QStringLiteral("/broken.trova")), "not a search");
    QDir(folder).removeRecursively();
}

// --- Open Recent ----------------------------------------------------------------------------------------

TEST_F(ApplicationDelegateTest, RecentListIsMostRecentFirstWithoutMissingFilesOrRepeats)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("recent"));
    QStringList paths;
    for (int i = 0; i < 12; ++i) {
        paths << folder + QStringLiteral("/%1.trova").arg(i);
        writeBytes(paths.back(), "x");
        app::RecentDocuments::noteDocument(paths.back());
    }
    QStringList expected;
    for (int i = 11; i >= 2; --i) {
        expected << paths[i];
    }
    EXPECT_EQ(delegate->recentDocuments(), expected);

    app::RecentDocuments::noteDocument(paths[5]);
    QFile::remove(paths[10]);
    expected.removeAll(paths[5]);
    expected.removeAll(paths[10]);
    expected.prepend(paths[5]);
    EXPECT_EQ(delegate->recentDocuments(), expected);

    QSignalSpy changed(delegate.get(), &ApplicationDelegate::recentDocumentsChanged);
    delegate->clearRecentDocuments();
    EXPECT_TRUE(delegate->recentDocuments().isEmpty());
    EXPECT_EQ(changed.count(), 1);
    QDir(folder).removeRecursively();
}

// --- Class set-up, errors, exceptions -----------------------------------------------------------------------

TEST_F(ApplicationDelegateTest, ClassInitialisationRegistersEveryNamedTransformer)
{
    ApplicationDelegate::initializeClass();
    for (const char* name : {"booleanOperatorTransformer", "booleanValueTransformer", "contentTypeTransformer",
                             "dictionaryTransformer", "emptyArrayTransformer", "finderLabelTransformer",
                             "metaDataItemTransformer", "nonEmptyArrayTransformer", "relationalOperatorTransformer",
                             "templateTransformer", "unitTransformer"}) {
        EXPECT_NE(model::ValueTransformer::valueTransformerForName(QLatin1String(name)), nullptr) << name;
    }
    EXPECT_EQ(model::Defaults::shared().value(QStringLiteral("bringToFrontHotKey")).toMap(),
              (QVariantMap{{QStringLiteral("keyCode"), 124}, {QStringLiteral("modifiers"), 4352}}));
}

TEST_F(ApplicationDelegateTest, ErrorsAreLoggedBeforeTheyAreShownUnchanged)
{
    QStringList lines;
    log::setSink([&](const QString& line) { lines << line; });
    ScopedEnv logOn("MLogOn", nullptr);
    Error error = Error::make(Error::kFileReadError, QStringLiteral("It broke."), QStringLiteral("The disk said no."),
                              QStringLiteral("Try again."));
    error.userInfo.insert(QStringLiteral("path"), QStringLiteral("/x"));
    delegate->presentError(error);

    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(presented[0].description, error.description);
    EXPECT_EQ(presented[0].userInfo, error.userInfo);
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("willPresentError: ")));
    EXPECT_TRUE(lines[1].endsWith(QStringLiteral("- description: It broke.")));
    EXPECT_TRUE(lines[2].endsWith(QStringLiteral("- reason: The disk said no.")));
    EXPECT_TRUE(lines[3].endsWith(QStringLiteral("- suggestion: Try again.")));
    EXPECT_TRUE(lines[4].contains(QStringLiteral("- userInfo: ")));
    EXPECT_TRUE(lines[4].contains(QStringLiteral("/x")));
}

TEST(UncaughtExceptions, AreLoggedWithTheirMessageAndStack)
{
    QStringList lines;
    log::setSink([&](const QString& line) { lines << line; });
    ScopedEnv logOn("MLogOn", nullptr);
    EXPECT_TRUE(app::shouldLogException(std::make_exception_ptr(std::runtime_error("Abstract Class Exception"))));
    log::setSink([](const QString&) {});
    ASSERT_GE(lines.size(), 2);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("Abstract Class Exception")));
    EXPECT_TRUE(lines[1].contains(QStringLiteral(" 0 ")));
}

}  // namespace
}  // namespace trovara::test
