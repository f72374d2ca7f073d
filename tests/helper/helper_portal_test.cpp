// The helper against a fake desktop portal and a fake Trovara on a private
// session bus (ctest runs this program under dbus-run-session): which hot
// keys it binds, what a press sends to Trovara, how a preference change
// rebinds them, and what it says where the desktop has no global shortcuts.
#include "helper/global_shortcuts_portal.h"
#include "helper/helper_controller.h"

#include "app/scripting_service.h"
#include "model/defaults.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDeadlineTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace trovara::test {

using helper::GlobalShortcutsPortal;
using helper::HelperController;
using helper::PortalShortcut;
using helper::PortalShortcuts;

// A session of the fake portal.
class FakeSession final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Session")
public:
    using QObject::QObject;
    bool closed = false;
public slots:
    void Close() { closed = true; }
};

// org.freedesktop.portal.GlobalShortcuts as a desktop offers it, answering
// through request objects as the real portal does.
class FakePortal final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.GlobalShortcuts")
public:
    explicit FakePortal(QDBusConnection connection)
        : m_connection(std::move(connection))
    {
    }
    ~FakePortal() override
    {
        for (const QString& path : sessionPaths) {
            m_connection.unregisterObject(path);
        }
    }

    std::vector<PortalShortcuts> binds;
    QStringList sessionPaths;
    std::vector<std::unique_ptr<FakeSession>> sessions;
    uint answer = 0;  // 0 granted, 1 declined by the user

    QString lastSession() const { return sessionPaths.value(sessionPaths.size() - 1); }
    bool sessionClosed(int index) const { return sessions.at(static_cast<size_t>(index))->closed; }
    void press(const QString& session, const QString& id)
    {
        QDBusMessage signal = QDBusMessage::createSignal(QLatin1String(GlobalShortcutsPortal::kObjectPath),
                                                         QLatin1String(GlobalShortcutsPortal::kInterface),
                                                         QStringLiteral("Activated"));
        signal << QVariant::fromValue(QDBusObjectPath(session)) << id << quint64(1234) << QVariantMap();
        m_connection.send(signal);
    }

public slots:
    QDBusObjectPath CreateSession(const QVariantMap& options)
    {
        const QString sender = senderPart();
        const QString session = QStringLiteral("/org/freedesktop/portal/desktop/session/%1/%2")
                                    .arg(sender, options.value(QStringLiteral("session_handle_token")).toString());
        sessions.push_back(std::make_unique<FakeSession>());
        sessionPaths << session;
        m_connection.registerObject(session, sessions.back().get(), QDBusConnection::ExportAllSlots);
        return respond(options, {{QStringLiteral("session_handle"), QVariant::fromValue(QDBusObjectPath(session))}});
    }

    // Spelled out: the bus finds the slot by the registered type's name.
    QDBusObjectPath BindShortcuts(const QDBusObjectPath& session, const QList<trovara::helper::PortalShortcut>& shortcuts,
                                  const QString& parentWindow, const QVariantMap& options)
    {
        Q_UNUSED(parentWindow);
        EXPECT_EQ(session.path(), lastSession());
        binds.push_back(shortcuts);
        PortalShortcuts answered = shortcuts;
        for (PortalShortcut& shortcut : answered) {
            shortcut.properties[QStringLiteral("trigger_description")] =
                shortcut.properties.value(QStringLiteral("preferred_trigger"));
        }
        return respond(options, {{QStringLiteral("shortcuts"), QVariant::fromValue(answered)}});
    }

private:
    QString senderPart() const
    {
        return message().service().mid(1).replace(QLatin1Char('.'), QLatin1Char('_'));
    }
    // The request object's path, and its Response once the call returned.
    QDBusObjectPath respond(const QVariantMap& options, const QVariantMap& results)
    {
        const QString path = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2")
                                 .arg(senderPart(), options.value(QStringLiteral("handle_token")).toString());
        const uint code = answer;
        QTimer::singleShot(0, this, [this, path, code, results] {
            QDBusMessage response = QDBusMessage::createSignal(
                path, QLatin1String(GlobalShortcutsPortal::kRequestInterface), QStringLiteral("Response"));
            response << code << results;
            m_connection.send(response);
        });
        return QDBusObjectPath(path);
    }

    QDBusConnection m_connection;
};

// Trovara's application object, recording what reaches it.
class FakeTrovara final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.velmont.Trovara.Application")
public:
    QStringList calls;
public slots:
    void Activate() { calls << QStringLiteral("Activate"); }
    void ActivateNewDocument() { calls << QStringLiteral("ActivateNewDocument"); }
    void ShowPreferences() { calls << QStringLiteral("ShowPreferences"); }
    QDBusObjectPath BlitzSearch(const QString& text, bool anyText, bool filename, bool content, bool comments,
                                const QString& templatePath)
    {
        calls << QStringLiteral("BlitzSearch %1 %2%3%4%5 [%6]")
                     .arg(text)
                     .arg(int(anyText))
                     .arg(int(filename))
                     .arg(int(content))
                     .arg(int(comments))
                     .arg(templatePath);
        return QDBusObjectPath(QStringLiteral("/com/velmont/Trovara/Document/1"));
    }
};

namespace {

bool waitFor(const std::function<bool()>& condition)
{
    QDeadlineTimer deadline(10000);
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return condition();
}

class HelperPortalTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (qEnvironmentVariable("TROVARA_PRIVATE_BUS") != QLatin1String("1")) {
            GTEST_SKIP() << "runs only on the private bus of dbus-run-session (ctest)";
        }
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<PortalShortcuts>();
        model::Defaults::resetSharedForTesting(home.path() + QStringLiteral("/helper.conf"));
        model::Defaults::shared().registerDefaults(model::Defaults::factoryDefaults());
        desktop = QDBusConnection::sessionBus();
        helperBus = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("helper-test")));
        ASSERT_TRUE(helperBus->isConnected());
        HelperController::Environment environment;
        environment.selection = [this] { return selection; };
        environment.startTrovara = [this](const QStringList& arguments) {
            started << arguments.join(QLatin1Char(' '));
            return true;
        };
        controller = std::make_unique<HelperController>(*helperBus, environment);
        const Status registered = controller->registerService();
        ASSERT_TRUE(registered.ok()) << registered.error().toString().toStdString();
    }

    void TearDown() override
    {
        controller.reset();
        helperBus.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("helper-test"));
        if (trovara) {
            desktop.unregisterService(QLatin1String(app::ScriptingService::kServiceName));
            desktop.unregisterObject(QLatin1String(app::ScriptingService::kObjectPath));
        }
        if (portal) {
            desktop.unregisterService(QLatin1String(GlobalShortcutsPortal::kService));
            desktop.unregisterObject(QLatin1String(GlobalShortcutsPortal::kObjectPath));
        }
        portal.reset();
        trovara.reset();
        QCoreApplication::sendPostedEvents();
        model::Defaults::resetSharedForTesting();
    }

    void offerPortal()
    {
        portal = std::make_unique<FakePortal>(desktop);
        ASSERT_TRUE(desktop.registerObject(QLatin1String(GlobalShortcutsPortal::kObjectPath), portal.get(),
                                           QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(desktop.registerService(QLatin1String(GlobalShortcutsPortal::kService)));
    }
    void runTrovara()
    {
        trovara = std::make_unique<FakeTrovara>();
        ASSERT_TRUE(desktop.registerObject(QLatin1String(app::ScriptingService::kObjectPath), trovara.get(),
                                           QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(desktop.registerService(QLatin1String(app::ScriptingService::kServiceName)));
    }
    // What Trovara sends when a hot key or helper switch changed.
    void announcePreferences()
    {
        desktop.send(QDBusMessage::createSignal(QLatin1String(app::ScriptingService::kObjectPath),
                                                QLatin1String(app::ScriptingService::kApplicationInterface),
                                                QStringLiteral("trovaraPreferencesChanged")));
    }
    static QVariantMap hotKey(int keyCode, int modifiers)
    {
        return {{QStringLiteral("keyCode"), keyCode}, {QStringLiteral("modifiers"), modifiers}};
    }
    static QStringList triggers(const PortalShortcuts& shortcuts)
    {
        QStringList list;
        for (const PortalShortcut& shortcut : shortcuts) {
            list << shortcut.id + QLatin1Char('=') +
                        shortcut.properties.value(QStringLiteral("preferred_trigger")).toString();
        }
        return list;
    }

    QTemporaryDir home;
    QDBusConnection desktop{QString()};
    std::unique_ptr<QDBusConnection> helperBus;
    std::unique_ptr<HelperController> controller;
    std::unique_ptr<FakePortal> portal;
    std::unique_ptr<FakeTrovara> trovara;
    QString selection;
    QStringList started;
};

TEST_F(HelperPortalTest, StoredHotKeysAreBoundAndEachPressReachesTrovara)
{
    offerPortal();
    runTrovara();
    model::Defaults::shared().setValue(QStringLiteral("blitzSearchHotKey"), hotKey(0x01, 256 | 512));
    controller->reload();
    ASSERT_TRUE(waitFor([&] { return !controller->boundShortcuts().isEmpty(); }))
        << portal->sessionPaths.join(QLatin1Char(',')).toStdString() << " binds " << portal->binds.size() << " "
        << controller->hotKeysMessage().toStdString();
    ASSERT_EQ(portal->binds.size(), 1u);
    EXPECT_EQ(triggers(portal->binds[0]),
              (QStringList{QStringLiteral("quick-search=CTRL+SHIFT+s"), QStringLiteral("bring-to-front=CTRL+LOGO+Right"),
                           QStringLiteral("bring-to-front-new=CTRL+ALT+LOGO+Right")}));
    EXPECT_EQ(portal->binds[0][0].properties.value(QStringLiteral("description")).toString(),
              QStringLiteral("Search for the selection in Trovara"));
    EXPECT_TRUE(controller->hotKeysMessage().isEmpty());

    selection = QStringLiteral(" invoice list\n");
    portal->press(portal->lastSession(), QStringLiteral("quick-search"));
    portal->press(portal->lastSession(), QStringLiteral("bring-to-front"));
    portal->press(portal->lastSession(), QStringLiteral("bring-to-front-new"));
    ASSERT_TRUE(waitFor([&] { return trovara->calls.size() == 3; })) << trovara->calls.join(QLatin1Char(',')).toStdString();
    EXPECT_EQ(trovara->calls, (QStringList{QStringLiteral("BlitzSearch invoice list 1111 []"),
                                           QStringLiteral("Activate"), QStringLiteral("ActivateNewDocument")}));

    // Presses of another application's session, and an empty selection,
    // send nothing (the latter beeps).
    QSignalSpy beeps(controller.get(), &HelperController::beepRequested);
    portal->press(QStringLiteral("/org/freedesktop/portal/desktop/session/1_1/other"), QStringLiteral("bring-to-front"));
    selection.clear();
    portal->press(portal->lastSession(), QStringLiteral("quick-search"));
    ASSERT_TRUE(waitFor([&] { return beeps.count() == 1; }));
    controller->showPreferences();
    ASSERT_TRUE(waitFor([&] { return trovara->calls.size() == 4; }));
    EXPECT_EQ(trovara->calls.last(), QStringLiteral("ShowPreferences"));
    EXPECT_TRUE(started.isEmpty());
}

TEST_F(HelperPortalTest, PreferenceChangesRebindTheHotKeysAndBothSwitchesOffQuit)
{
    offerPortal();
    runTrovara();
    QSignalSpy quit(controller.get(), &HelperController::quitRequested);
    QSignalSpy menuItem(controller.get(), &HelperController::menuItemEnabledChanged);
    controller->reload();
    ASSERT_TRUE(waitFor([&] { return portal->binds.size() == 1 && !controller->boundShortcuts().isEmpty(); }));
    // The quick-search hot key has no default: it is left out until recorded.
    EXPECT_EQ(triggers(portal->binds[0]), (QStringList{QStringLiteral("bring-to-front=CTRL+LOGO+Right"),
                                                       QStringLiteral("bring-to-front-new=CTRL+ALT+LOGO+Right")}));

    model::Defaults::shared().setValue(QStringLiteral("bringToFrontHotKey"), hotKey(0x60, 2048));
    model::Defaults::shared().synchronize();
    announcePreferences();
    ASSERT_TRUE(waitFor([&] { return portal->binds.size() == 2 && !controller->boundShortcuts().isEmpty(); }));
    EXPECT_TRUE(portal->sessionClosed(0));
    EXPECT_EQ(triggers(portal->binds[1]).value(0), QStringLiteral("bring-to-front=ALT+F5"));
    // The old session's presses no longer count.
    portal->press(portal->sessionPaths.at(0), QStringLiteral("bring-to-front"));
    portal->press(portal->lastSession(), QStringLiteral("bring-to-front"));
    ASSERT_TRUE(waitFor([&] { return !trovara->calls.isEmpty(); }));

    // A change elsewhere asks the desktop nothing again.
    announcePreferences();
    model::Defaults::shared().setValue(QStringLiteral("enableGlobalHotKeys"), false);
    model::Defaults::shared().synchronize();
    announcePreferences();
    ASSERT_TRUE(waitFor([&] { return portal->sessionClosed(1); }));
    EXPECT_EQ(portal->binds.size(), 2u);
    EXPECT_EQ(trovara->calls, QStringList{QStringLiteral("Activate")});
    EXPECT_EQ(quit.count(), 0);

    model::Defaults::shared().setValue(QStringLiteral("enableGlobalMenuItem"), false);
    model::Defaults::shared().synchronize();
    announcePreferences();
    ASSERT_TRUE(waitFor([&] { return quit.count() == 1; }));
    ASSERT_EQ(menuItem.count(), 2);
    EXPECT_EQ(menuItem.at(0).at(0).toBool(), true);
    EXPECT_EQ(menuItem.at(1).at(0).toBool(), false);
}

TEST_F(HelperPortalTest, WithoutGlobalShortcutsTheMessageNamesTheCommandsToBind)
{
    runTrovara();
    controller->reload();
    ASSERT_TRUE(waitFor([&] { return !controller->hotKeysMessage().isEmpty(); }));
    const QString message = controller->hotKeysMessage();
    for (const char* expected : {"The desktop offers no global shortcuts to applications.",
                                 "Search for the selection in Trovara: trovara --quick-search\n",
                                 "Bring Trovara to the front: trovara --activate (Ctrl+Meta+Right)",
                                 "Bring Trovara to the front with a new search: trovara --activate-new "
                                 "(Ctrl+Alt+Meta+Right)"}) {
        EXPECT_TRUE(message.contains(QLatin1String(expected))) << expected << "\nin:\n" << message.toStdString();
    }
}

TEST_F(HelperPortalTest, DeclinedShortcutsAreSaidAndTriedAgainOnlyAfterAChange)
{
    offerPortal();
    portal->answer = 1;
    controller->reload();
    ASSERT_TRUE(waitFor([&] { return !controller->hotKeysMessage().isEmpty(); }));
    EXPECT_TRUE(controller->hotKeysMessage().startsWith(QLatin1String("The global shortcuts were declined.")));
    const size_t sessions = portal->sessionPaths.size();
    controller->reload();
    QCoreApplication::processEvents();
    EXPECT_EQ(portal->sessionPaths.size(), sessions);

    portal->answer = 0;
    model::Defaults::shared().setValue(QStringLiteral("blitzSearchHotKey"), hotKey(0x31, 2048));
    controller->reload();
    ASSERT_TRUE(waitFor([&] { return !controller->boundShortcuts().isEmpty(); }));
    EXPECT_TRUE(controller->hotKeysMessage().isEmpty());
    EXPECT_EQ(triggers(portal->binds.back()).value(0), QStringLiteral("quick-search=ALT+space"));
}

TEST_F(HelperPortalTest, WithoutTrovaraRunningTheCommandStartsIt)
{
    QSignalSpy beeps(controller.get(), &HelperController::beepRequested);
    controller->bringToFront();
    controller->newSearch();
    controller->showPreferences();
    selection = QStringLiteral("harbour");
    controller->quickSearch();
    EXPECT_EQ(started, (QStringList{QStringLiteral("--activate"), QStringLiteral("--activate-new"),
                                    QStringLiteral("--preferences"), QStringLiteral("--quick-search")}));
    EXPECT_EQ(beeps.count(), 0);
}

TEST_F(HelperPortalTest, OneHelperAtATimeAndTrovaraCanAskItToQuit)
{
    QSignalSpy quit(controller.get(), &HelperController::quitRequested);
    HelperController second(desktop, {});
    EXPECT_FALSE(second.registerService().ok());
    desktop.send(QDBusMessage::createMethodCall(QLatin1String(HelperController::kServiceName),
                                                QLatin1String(HelperController::kObjectPath),
                                                QLatin1String(HelperController::kInterface), QStringLiteral("Quit")));
    ASSERT_TRUE(waitFor([&] { return quit.count() == 1; }));
}

}  // namespace
}  // namespace trovara::test

#include "helper_portal_test.moc"
