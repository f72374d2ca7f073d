// Scripting over D-Bus, through a private session bus (ctest runs this
// program under dbus-run-session): the application and document objects
// as another process sees them, their errors for bad input, the
// preferences signal and the hand-over of a second instance.
#include "app/application_delegate.h"
#include "app/launch_request.h"
#include "app/scripting_service.h"

#include "common/error_presenter.h"
#include "common/paths.h"

#include "index/live/live_query.h"
#include "live_test_support.h"
#include "model/defaults.h"
#include "model/query_item.h"
#include "model/query_leaf.h"
#include "model/scope.h"
#include "query/metadata_query_controller.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace trovara::test {
namespace {

using app::ApplicationDelegate;
using app::ScriptingService;
using document::Document;

constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

class ScriptingServiceTest : public LiveTreeTest {
protected:
    void SetUp() override
    {
        if (qEnvironmentVariable("TROVARA_PRIVATE_BUS") != QLatin1String("1")) {
            GTEST_SKIP() << "runs only on the private bus of dbus-run-session (ctest)";
        }
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/scripting-test.conf"));
        previousPresenter = setErrorPresenter([this](const Error& error) { presented.push_back(error); });
        writeFile(at("report one.txt"), "a");
        writeFile(at("report two.txt"), "b");
        writeFile(at("notes.txt"), "c");
        indexTree();
        source = std::make_unique<index::LiveIndexSource>(*live);
        delegate = std::make_unique<ApplicationDelegate>(*source);
        service = std::make_unique<ScriptingService>(*delegate, QDBusConnection::sessionBus());
        const Status registered = service->registerService();
        ASSERT_TRUE(registered.ok()) << registered.error().toString().toStdString();
        client = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("scripting-test-client")));
        ASSERT_TRUE(client->isConnected());
    }

    void TearDown() override
    {
        client.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("scripting-test-client"));
        service.reset();
        delegate.reset();
        source.reset();
        QCoreApplication::sendPostedEvents();
        setErrorPresenter(previousPresenter);
        model::Defaults::resetSharedForTesting();
    }

    // A call as another process makes it (the service answers in this
    // thread's event loop meanwhile).
    QDBusMessage call(const QString& path, const char* interface, const char* method, const QVariantList& arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(QLatin1String(ScriptingService::kServiceName), path,
                                                              QLatin1String(interface), QLatin1String(method));
        message.setArguments(arguments);
        return client->call(message, QDBus::BlockWithGui, 10000);
    }
    QDBusMessage application(const char* method, const QVariantList& arguments = {})
    {
        return call(QLatin1String(ScriptingService::kObjectPath), ScriptingService::kApplicationInterface, method,
                    arguments);
    }
    QDBusMessage onDocument(const QString& path, const char* method, const QVariantList& arguments = {})
    {
        return call(path, ScriptingService::kDocumentInterface, method, arguments);
    }
    QVariant property(const QString& path, const char* name)
    {
        const QDBusMessage reply = call(path, kProperties, "Get",
                                        {QLatin1String(ScriptingService::kDocumentInterface), QLatin1String(name)});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }
    static QString objectPath(const QDBusMessage& reply)
    {
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply.arguments().value(0).value<QDBusObjectPath>().path();
    }
    static QStringList objectPaths(const QDBusMessage& reply)
    {
        QStringList paths;
        const QDBusArgument argument = reply.arguments().value(0).value<QDBusArgument>();
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusObjectPath path;
            argument >> path;
            paths << path.path();
        }
        argument.endArray();
        return paths;
    }

    // A new document searching the tree, through the bus.
    QString newDocumentOnTree(const QString& name)
    {
        const QString path = objectPath(application("NewDocument"));
        Document* document = service->documentForPath(path);
        EXPECT_NE(document, nullptr);
        store::ManagedObjectContext& context = document->managedObjectContext();
        document->updateScope([&] {
            for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
                context.deleteObject(ordered);
            }
            model::OrderedScope::createOrderedScopeWith(
                model::Scope::scopeWithPath(QString::fromStdString(root), context));
        });
        document->updatePredicate([&] {
            auto* root = model::QueryNode::rootNodeInContext(context);
            static_cast<model::QueryLeaf*>(root->orderedChildren().front())->setQueryString(name);
        });
        return path;
    }

    void waitUntilLive(const QString& path)
    {
        QDeadlineTimer deadline(10000);
        while (property(path, "State").toString() != QLatin1String("live") && !deadline.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
    }

    std::unique_ptr<index::LiveIndexSource> source;
    std::unique_ptr<ApplicationDelegate> delegate;
    std::unique_ptr<ScriptingService> service;
    std::unique_ptr<QDBusConnection> client;
    std::vector<Error> presented;
    ErrorPresenter previousPresenter;
};

TEST_F(ScriptingServiceTest, DocumentsAreListedNumberedAndActiveAsTheWindowsSay)
{
    EXPECT_TRUE(objectPaths(application("Documents")).isEmpty());
    const QString first = objectPath(application("NewDocument"));
    const QString second = objectPath(application("NewDocument"));
    EXPECT_EQ(first, QStringLiteral("/com/velmont/Trovara/Document/1"));
    EXPECT_EQ(second, QStringLiteral("/com/velmont/Trovara/Document/2"));
    EXPECT_EQ(objectPaths(application("Documents")), (QStringList{first, second}));

    EXPECT_EQ(objectPath(application("ActiveDocument")), QStringLiteral("/"));
    delegate->applicationWillFinishLaunching();
    ASSERT_TRUE(delegate->applicationDidFinishLaunching());
    delegate->setMainWindowDocument(service->documentForPath(second));
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(objectPath(application("ActiveDocument")), second);

    // Numbers are not reused.
    EXPECT_EQ(onDocument(first, "Close").type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(objectPaths(application("Documents")), QStringList{second});
    EXPECT_EQ(objectPath(application("NewDocument")), QStringLiteral("/com/velmont/Trovara/Document/3"));
    // A closed document's object is gone.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const QDBusMessage gone = call(first, kProperties, "Get",
                                   {QLatin1String(ScriptingService::kDocumentInterface), QStringLiteral("State")});
    EXPECT_EQ(gone.type(), QDBusMessage::ErrorMessage);
}

TEST_F(ScriptingServiceTest, StartedSearchAnswersItsResultsInTheOrderShown)
{
    const QString path = newDocumentOnTree(QStringLiteral("report"));
    EXPECT_EQ(property(path, "State").toString(), QStringLiteral("idle"));
    EXPECT_EQ(property(path, "DisplayName").toString(), QStringLiteral("Trovara"));
    EXPECT_EQ(property(path, "FilePath").toString(), QString());
    EXPECT_TRUE(property(path, "QueryString").toString().contains(QStringLiteral("*report*")));

    // A watcher hears of the progress (the signal deletes this object).
    QPointer<QObject> watcher = new QObject;
    ASSERT_TRUE(client->connect(QString(), path, QLatin1String(kProperties), QStringLiteral("PropertiesChanged"),
                                watcher, SLOT(deleteLater())));
    ASSERT_EQ(onDocument(path, "Start").type(), QDBusMessage::ReplyMessage);
    waitUntilLive(path);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(watcher.isNull());
    ASSERT_EQ(property(path, "State").toString(), QStringLiteral("live"));

    Document* document = service->documentForPath(path);
    const QDBusMessage results = onDocument(path, "Results");
    QStringList shown;
    for (query::ResultItem* item : document->metadataQueryController()->results()->arrangedObjects()) {
        shown << item->path();
    }
    EXPECT_EQ(results.arguments().value(0).toStringList(), shown);
    EXPECT_EQ(shown.size(), 2);
    EXPECT_EQ(property(path, "ResultCount").toInt(), 2);
    EXPECT_EQ(property(path, "StatusLine").toString(), document->metadataQueryController()->statusLine());
    EXPECT_FALSE(property(path, "StatusLine").toString().isEmpty());
    EXPECT_EQ(property(path, "QueryString").toString(), document->metadataQueryController()->queryString());

    ASSERT_EQ(onDocument(path, "Stop").type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(property(path, "State").toString(), QStringLiteral("idle"));
}

TEST_F(ScriptingServiceTest, SearchWithoutCriteriaRefusesToStart)
{
    const QString path = objectPath(application("NewDocument"));
    const QDBusMessage reply = onDocument(path, "Start");
    EXPECT_EQ(reply.errorName(), QLatin1String(ScriptingService::kCannotStartError));
    EXPECT_EQ(property(path, "State").toString(), QStringLiteral("idle"));
}

TEST_F(ScriptingServiceTest, SaveAsWritesTheFileAndRefusesBadPaths)
{
    const QString path = newDocumentOnTree(QStringLiteral("notes"));
    const QString folder = QString::fromStdString(outside);

    EXPECT_EQ(onDocument(path, "SaveAs", {QStringLiteral("relative.trova")}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_EQ(onDocument(path, "SaveAs", {folder + QStringLiteral("/missing/x.trova")}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.FileNotFound"));
    EXPECT_EQ(onDocument(path, "SaveAs", {QString()}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));

    const QDBusMessage saved = onDocument(path, "SaveAs", {folder + QStringLiteral("/Notes")});
    ASSERT_EQ(saved.type(), QDBusMessage::ReplyMessage) << saved.errorMessage().toStdString();
    EXPECT_EQ(property(path, "FilePath").toString(), folder + QStringLiteral("/Notes.trova"));
    EXPECT_EQ(property(path, "DisplayName").toString(), QStringLiteral("Notes"));
    EXPECT_EQ(delegate->recentDocuments(), QStringList{folder + QStringLiteral("/Notes.trova")});
}

TEST_F(ScriptingServiceTest, OpenDocumentOpensFilesAndExplainsFailures)
{
    const QString folder = QString::fromStdString(outside);
    const QString saved = folder + QStringLiteral("/Saved.trova");
    ASSERT_EQ(onDocument(newDocumentOnTree(QStringLiteral("notes")), "SaveAs", {saved}).type(),
              QDBusMessage::ReplyMessage);
    onDocument(QStringLiteral("/com/velmont/Trovara/Document/1"), "Close");

    EXPECT_EQ(application("OpenDocument", {QStringLiteral("Saved.trova")}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_EQ(application("OpenDocument", {folder + QStringLiteral("/nothing.trova")}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.FileNotFound"));
    const QString broken = folder + QStringLiteral("/broken.trova");
    writeFile(broken.toStdString(), "no search in here");
    const QDBusMessage refused = application("OpenDocument", {broken});
    EXPECT_EQ(refused.errorName(), QLatin1String(ScriptingService::kOpenFailedError));
    EXPECT_FALSE(refused.errorMessage().isEmpty());
    QFile kept(broken);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), "no search in here");

    const QString opened = objectPath(application("OpenDocument", {saved}));
    EXPECT_EQ(property(opened, "FilePath").toString(), saved);
    // The same file again is the same document.
    EXPECT_EQ(objectPath(application("OpenDocument", {saved})), opened);
}

TEST_F(ScriptingServiceTest, HelperPreferenceChangeIsSignalledOnTheBus)
{
    delegate->applicationWillFinishLaunching();
    ASSERT_TRUE(delegate->applicationDidFinishLaunching());
    // The signal, as a listener on another connection receives it, deletes
    // this object.
    QPointer<QObject> receiver = new QObject;
    ASSERT_TRUE(client->connect(QString(), QLatin1String(ScriptingService::kObjectPath),
                                QLatin1String(ScriptingService::kApplicationInterface),
                                QStringLiteral("trovaraPreferencesChanged"), receiver, SLOT(deleteLater())));
    model::Defaults::shared().setValue(QStringLiteral("gridZoomValue"), 0.9);
    model::Defaults::shared().setValue(QStringLiteral("enableGlobalHotKeys"), false);
    QDeadlineTimer deadline(5000);
    while (receiver && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    EXPECT_TRUE(receiver.isNull());
}

TEST_F(ScriptingServiceTest, SecondInstanceHandsItsLocationsToTheRunningOne)
{
    QSignalSpy activated(service.get(), &ScriptingService::activationRequested);
    const QString folder = QString::fromStdString(root);
    QStringList urls;
    service->setUrlHandler([&](const QString& url) {
        urls << url;
        return Status();
    });
    // The second instance's own connection, as a separate process has; it
    // waits for the answer while this thread's event loop serves the call.
    std::atomic<bool> done = false;
    bool forwarded = false;
    std::thread second([&] {
        forwarded = ScriptingService::forwardToRunningInstance({folder, QStringLiteral("trovara:blitzSearch?x")},
                                                               *client);
        done = true;
    });
    QDeadlineTimer deadline(10000);
    while (!done && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    second.join();
    EXPECT_TRUE(forwarded);
    ASSERT_EQ(activated.count(), 1);
    ASSERT_EQ(delegate->documents().size(), 1u);
    EXPECT_EQ(urls, QStringList{QStringLiteral("trovara:blitzSearch?x")});

    // Nobody else may take the name meanwhile.
    index::NoIndexSource none;
    ApplicationDelegate other(none);
    ScriptingService rival(other, *client);
    EXPECT_FALSE(rival.registerService().ok());

    // With no Trovara running, a new one runs by itself.
    service.reset();
    EXPECT_FALSE(ScriptingService::forwardToRunningInstance({folder}, *client));
}

TEST_F(ScriptingServiceTest, QuickSearchLinkHandedOverRunsTheSearch)
{
    service->openLocations({QStringLiteral("trovara://blitzSearch?searchstring=report&filenameflag=1")});
    EXPECT_TRUE(presented.empty());
    ASSERT_EQ(delegate->documents().size(), 1u);
    EXPECT_TRUE(delegate->documents().front()->currentExpression().contains(QStringLiteral("report")));
}

TEST_F(ScriptingServiceTest, OtherLinksWithoutAHandlerArePresentedAsAnError)
{
    service->openLocations({QStringLiteral("mailto:ann@example.org")});
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_TRUE(presented[0].description.contains(QStringLiteral("mailto:")));
}

// --- Quick searches over the bus -------------------------------------------------------------

TEST_F(ScriptingServiceTest, BlitzSearchMakesARunningDocumentWithTheResults)
{
    const QDBusMessage reply =
        application("BlitzSearch", {QStringLiteral("report"), false, true, false, false, QString()});
    const QString path = objectPath(reply);
    ASSERT_TRUE(path.startsWith(QLatin1String(ScriptingService::kDocumentPathPrefix)));
    Document* document = service->documentForPath(path);
    ASSERT_NE(document, nullptr);
    // The new search starts by itself, over the places of a new document;
    // this test wants the tree's results, so it searches there next.
    waitUntilLive(path);
    ASSERT_EQ(property(path, "State").toString(), QStringLiteral("live"));
    ASSERT_EQ(onDocument(path, "Stop").type(), QDBusMessage::ReplyMessage);
    document->applyLocations({QString::fromStdString(root)});
    ASSERT_EQ(onDocument(path, "Start").type(), QDBusMessage::ReplyMessage);
    waitUntilLive(path);
    EXPECT_TRUE(property(path, "QueryString").toString().contains(QStringLiteral("kMDItemDisplayName")));
    EXPECT_TRUE(property(path, "QueryString").toString().contains(QStringLiteral("report")));
    QStringList names;
    const QDBusMessage results = onDocument(path, "Results");
    for (const QString& result : results.arguments().value(0).toStringList()) {
        names << QFileInfo(result).fileName();
    }
    names.sort();
    EXPECT_EQ(names, (QStringList{QStringLiteral("report one.txt"), QStringLiteral("report two.txt")}));
}

TEST_F(ScriptingServiceTest, LocationSearchSearchesTheFoldersGiven)
{
    const QString folder = QString::fromStdString(root);
    const QString path = objectPath(application("LocationSearch", {QStringList{folder}}));
    Document* document = service->documentForPath(path);
    ASSERT_NE(document, nullptr);
    QStringList scopes;
    for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(document->managedObjectContext())) {
        scopes << expandTilde(ordered->scope()->path());
    }
    EXPECT_EQ(scopes, QStringList{folder});
}

TEST_F(ScriptingServiceTest, OpenTemplateReusesOrCopiesAndOpenUrlRunsLinks)
{
    const QString templatePath = QString::fromStdString(root) + QStringLiteral("/Mine.trova");
    Document* made = delegate->newDocument().value();
    ASSERT_TRUE(made->saveToURL(templatePath, Document::SaveOperation::SaveTo).ok());
    delegate->closeDocument(made);

    const QString first = objectPath(application("OpenTemplate", {templatePath, false}));
    EXPECT_EQ(objectPath(application("OpenTemplate", {templatePath, false})), first);
    EXPECT_NE(objectPath(application("OpenTemplate", {templatePath, true})), first);
    EXPECT_EQ(property(first, "FilePath").toString(), QString());

    const size_t before = delegate->documents().size();
    EXPECT_EQ(application("OpenUrl", {QStringLiteral("trovara://harbour")}).type(), QDBusMessage::ReplyMessage);
    ASSERT_EQ(delegate->documents().size(), before + 1);
    EXPECT_TRUE(delegate->documents().back()->currentExpression().contains(QStringLiteral("harbour")));
}

TEST_F(ScriptingServiceTest, ActivateAndActivateNewDocumentBringTrovaraForward)
{
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    EXPECT_EQ(application("Activate").type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(delegate->documents().size(), 1u);
    EXPECT_EQ(application("ActivateNewDocument").type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(delegate->documents().size(), 2u);
    EXPECT_EQ(activated.count(), 2);
}

TEST_F(ScriptingServiceTest, BadQuickSearchCallsAreClearErrorsAndMakeNothing)
{
    const QString missing = QString::fromStdString(root) + QStringLiteral("/missing");
    struct BadCall {
        const char* method;
        QVariantList arguments;
        const char* error;
    };
    const std::vector<BadCall> calls = {
        {"BlitzSearch", {QString(), true, true, true, true, QString()}, "org.freedesktop.DBus.Error.InvalidArgs"},
        {"BlitzSearch", {QString(100 * 1024, QLatin1Char('x')), true, false, false, false, QString()},
         "org.freedesktop.DBus.Error.InvalidArgs"},
        {"BlitzSearch", {QStringLiteral("x"), true, false, false, false, QStringLiteral("Photos")},
         "org.freedesktop.DBus.Error.InvalidArgs"},
        {"BlitzSearch", {QStringLiteral("x"), true, false, false, false, missing},
         "org.freedesktop.DBus.Error.FileNotFound"},
        // Wrong argument types never reach Trovara.
        {"BlitzSearch", {42, true}, "org.freedesktop.DBus.Error.UnknownMethod"},
        {"LocationSearch", {QStringList()}, "org.freedesktop.DBus.Error.InvalidArgs"},
        {"LocationSearch", {QStringList{QStringLiteral("relative")}}, "org.freedesktop.DBus.Error.InvalidArgs"},
        {"LocationSearch", {QStringList{missing}}, "org.freedesktop.DBus.Error.FileNotFound"},
        {"LocationSearch", {QStringLiteral("/tmp")}, "org.freedesktop.DBus.Error.UnknownMethod"},
        {"OpenTemplate", {QString(), true}, "org.freedesktop.DBus.Error.InvalidArgs"},
        {"OpenTemplate", {missing, true}, "org.freedesktop.DBus.Error.FileNotFound"},
        {"OpenUrl", {QStringLiteral("trovara://search?x=1")}, "org.freedesktop.DBus.Error.InvalidArgs"},
        {"OpenUrl", {QStringLiteral("trovara://%zz")}, "org.freedesktop.DBus.Error.InvalidArgs"},
        {"SearchFileManagerFolder", {}, ScriptingService::kNoFileManagerFolderError},
    };
    for (const BadCall& bad : calls) {
        const QDBusMessage reply = application(bad.method, bad.arguments);
        EXPECT_EQ(reply.type(), QDBusMessage::ErrorMessage) << bad.method;
        EXPECT_EQ(reply.errorName(), QLatin1String(bad.error)) << bad.method << ": " << reply.errorMessage().toStdString();
        EXPECT_FALSE(reply.errorMessage().isEmpty()) << bad.method;
    }
    EXPECT_TRUE(delegate->documents().empty());
}

TEST_F(ScriptingServiceTest, SearchFileManagerFolderSearchesTheFolderTheDesktopNames)
{
    const QString folder = QString::fromStdString(root);
    service->setFileManagerFolderSource([folder] { return folder; });
    Document* document = service->documentForPath(objectPath(application("SearchFileManagerFolder")));
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(expandTilde(model::OrderedScope::orderedScopes(document->managedObjectContext()).front()->scope()->path()),
              folder);
}

// --- trovara --quick-search / --activate / --activate-new -------------------------------------

// What a second `trovara` with a switch gets from the running one, and what
// the running one then holds.
TEST_F(ScriptingServiceTest, SwitchesOfASecondInstanceReachTheRunningOne)
{
    using Action = app::LaunchRequest::Action;
    using Handover = app::LaunchRequest::Handover;
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    QSignalSpy beeps(delegate.get(), &ApplicationDelegate::beepRequested);
    const auto forward = [&](const app::LaunchRequest& request) {
        std::atomic<bool> done = false;
        Handover handover = Handover::NoInstance;
        std::thread second([&] {
            handover = request.forward(*client);
            done = true;
        });
        QDeadlineTimer deadline(10000);
        while (!done && !deadline.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        second.join();
        return handover;
    };

    EXPECT_EQ(forward({Action::QuickSearch, {}, QStringLiteral("  report\n")}), Handover::Forwarded);
    ASSERT_EQ(delegate->documents().size(), 1u);
    const QString query = delegate->documents().front()->currentExpression();
    EXPECT_TRUE(query.contains(QStringLiteral("report"))) << query.toStdString();
    EXPECT_FALSE(query.contains(QStringLiteral("\n"))) << query.toStdString();

    // An empty selection, or one far too long to be a search, is the
    // second instance's beep; the running one makes nothing.
    EXPECT_EQ(forward({Action::QuickSearch, {}, QStringLiteral(" \t")}), Handover::Refused);
    EXPECT_EQ(forward({Action::QuickSearch, {}, QString(100 * 1024, QLatin1Char('x'))}), Handover::Refused);
    EXPECT_EQ(delegate->documents().size(), 1u);

    EXPECT_EQ(forward({Action::ActivateNew, {}, {}}), Handover::Forwarded);
    EXPECT_EQ(delegate->documents().size(), 2u);
    EXPECT_EQ(forward({Action::Activate, {}, {}}), Handover::Forwarded);
    EXPECT_EQ(delegate->documents().size(), 2u);
    EXPECT_EQ(activated.count(), 3);
    QSignalSpy preferences(delegate.get(), &ApplicationDelegate::preferencesRequested);
    EXPECT_EQ(forward({Action::ShowPreferences, {}, {}}), Handover::Forwarded);
    EXPECT_EQ(preferences.count(), 1);
    EXPECT_EQ(beeps.count(), 0);

    // With no Trovara running, the new one carries the request out itself.
    service.reset();
    EXPECT_EQ(forward({Action::Activate, {}, {}}), Handover::NoInstance);
    EXPECT_EQ(forward({Action::QuickSearch, {}, QString()}), Handover::NoInstance);
}

TEST_F(ScriptingServiceTest, SwitchesCarriedOutByTheOnlyInstance)
{
    using Action = app::LaunchRequest::Action;
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    QSignalSpy beeps(delegate.get(), &ApplicationDelegate::beepRequested);

    app::LaunchRequest{Action::QuickSearch, {}, QString()}.perform(*delegate);
    EXPECT_EQ(beeps.count(), 1);
    EXPECT_TRUE(delegate->documents().empty());

    app::LaunchRequest{Action::QuickSearch, {}, QStringLiteral("notes")}.perform(*delegate);
    ASSERT_EQ(delegate->documents().size(), 1u);
    EXPECT_TRUE(delegate->documents().front()->currentExpression().contains(QStringLiteral("notes")));
    app::LaunchRequest{Action::ActivateNew, {}, {}}.perform(*delegate);
    EXPECT_EQ(delegate->documents().size(), 2u);
    app::LaunchRequest{Action::Open, {}, {}}.perform(*delegate);
    EXPECT_EQ(delegate->documents().size(), 2u);
    QSignalSpy preferences(delegate.get(), &ApplicationDelegate::preferencesRequested);
    app::LaunchRequest{Action::ShowPreferences, {}, {}}.perform(*delegate);
    EXPECT_EQ(preferences.count(), 1);
    EXPECT_EQ(activated.count(), 2);
    EXPECT_EQ(beeps.count(), 1);
}

TEST(ScriptingLocations, CommandLineArgumentsBecomeAbsolutePathsOrStayUrls)
{
    EXPECT_EQ(ScriptingService::locationsFromArguments({QStringLiteral("a.trova"), QStringLiteral("../b"),
                                                        QStringLiteral("/c/d.trova"),
                                                        QStringLiteral("file:///e/f%20g.trova"),
                                                        QStringLiteral("trovara:blitzSearch?searchstring=x"),
                                                        QString()},
                                                       QStringLiteral("/home/ann/work")),
              (QStringList{QStringLiteral("/home/ann/work/a.trova"), QStringLiteral("/home/ann/b"),
                           QStringLiteral("/c/d.trova"), QStringLiteral("/e/f g.trova"),
                           QStringLiteral("trovara:blitzSearch?searchstring=x")}));
}

}  // namespace
}  // namespace trovara::test
