#include "helper/helper_controller.h"

#include "app/key_combination.h"
#include "app/launch_request.h"
#include "app/quick_search_url.h"
#include "app/scripting_service.h"
#include "common/log.h"
#include "model/defaults.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>

namespace trovara::helper {

namespace {

constexpr HotKey kHotKeys[] = {
    {"quick-search", "blitzSearchHotKey", "Search for the selection in Trovara", app::LaunchRequest::kQuickSearchSwitch},
    {"bring-to-front", "bringToFrontHotKey", "Bring Trovara to the front", app::LaunchRequest::kActivateSwitch},
    {"bring-to-front-new", "bringToFrontAndCreateHotKey", "Bring Trovara to the front with a new search",
     app::LaunchRequest::kActivateNewSwitch},
};

QString commandFor(const char* commandSwitch)
{
    return QStringLiteral("trovara --%1").arg(QLatin1String(commandSwitch));
}

}  // namespace

// The helper's own face on the bus.
class HelperAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.velmont.TrovaraHelper")

public:
    explicit HelperAdaptor(HelperController* controller)
        : QDBusAbstractAdaptor(controller)
        , m_controller(controller)
    {
    }

public slots:
    void Quit() { emit m_controller->quitRequested(); }
    void Reload() { m_controller->reload(); }

private:
    HelperController* m_controller;
};

std::span<const HotKey> HelperController::hotKeys()
{
    return kHotKeys;
}

HelperController::HelperController(QDBusConnection connection, Environment environment, QObject* parent)
    : QObject(parent)
    , m_connection(std::move(connection))
    , m_environment(std::move(environment))
    , m_portal(new GlobalShortcutsPortal(m_connection, this))
{
    new HelperAdaptor(this);
    connect(m_portal, &GlobalShortcutsPortal::activated, this, &HelperController::runHotKey);
    connect(m_portal, &GlobalShortcutsPortal::bound, this, [this](const PortalShortcuts& shortcuts) {
        m_bound = shortcuts;
        setHotKeysMessage({});
    });
    connect(m_portal, &GlobalShortcutsPortal::unavailable, this, [this](const QString& reason) {
        m_bound.clear();
        setHotKeysMessage(manualBindingMessage(reason));
        TLOG(m_hotKeysMessage);
    });
}

HelperController::~HelperController()
{
    if (m_registered) {
        m_connection.disconnect(QString(), QLatin1String(app::ScriptingService::kObjectPath),
                                QLatin1String(app::ScriptingService::kApplicationInterface),
                                QStringLiteral("trovaraPreferencesChanged"), this, SLOT(preferencesChanged()));
        m_connection.unregisterService(QLatin1String(kServiceName));
        m_connection.unregisterObject(QLatin1String(kObjectPath));
    }
}

Status HelperController::registerService()
{
    if (m_registered) {
        return {};
    }
    if (!m_connection.isConnected()) {
        return Error::make(Error::kNone, QStringLiteral("The Trovara helper cannot run."),
                           QStringLiteral("There is no D-Bus session bus."));
    }
    if (!m_connection.registerObject(QLatin1String(kObjectPath), this, QDBusConnection::ExportAdaptors)) {
        return Error::make(Error::kNone, QStringLiteral("The Trovara helper cannot run."),
                           m_connection.lastError().message());
    }
    if (!m_connection.registerService(QLatin1String(kServiceName))) {
        m_connection.unregisterObject(QLatin1String(kObjectPath));
        return Error::make(Error::kNone, QStringLiteral("The Trovara helper runs already."),
                           QStringLiteral("Another helper owns %1.").arg(QLatin1String(kServiceName)));
    }
    m_connection.connect(QString(), QLatin1String(app::ScriptingService::kObjectPath),
                         QLatin1String(app::ScriptingService::kApplicationInterface),
                         QStringLiteral("trovaraPreferencesChanged"), this, SLOT(preferencesChanged()));
    m_registered = true;
    return {};
}

void HelperController::preferencesChanged()
{
    reload();
}

PortalShortcuts HelperController::wantedShortcuts() const
{
    PortalShortcuts shortcuts;
    const model::Defaults& defaults = model::Defaults::shared();
    for (const HotKey& hotKey : kHotKeys) {
        // A hot key never recorded is not registered.
        const std::optional<app::KeyCombination> combination =
            app::KeyCombination::fromDictionary(defaults.value(QLatin1String(hotKey.defaultsKey)));
        if (!combination) {
            continue;
        }
        const QString trigger = app::portalShortcutTrigger(*combination);
        if (trigger.isEmpty()) {
            continue;
        }
        shortcuts << PortalShortcut{QLatin1String(hotKey.id),
                                    {{QStringLiteral("description"), QLatin1String(hotKey.description)},
                                     {QStringLiteral("preferred_trigger"), trigger}}};
    }
    return shortcuts;
}

void HelperController::reload()
{
    model::Defaults& defaults = model::Defaults::shared();
    defaults.synchronize();
    const bool menuItem = defaults.boolValue(QStringLiteral("enableGlobalMenuItem"));
    const bool hotKeysOn = defaults.boolValue(QStringLiteral("enableGlobalHotKeys"));
    if (!m_loaded || menuItem != m_menuItemEnabled) {
        m_menuItemEnabled = menuItem;
        emit menuItemEnabledChanged(menuItem);
    }
    m_hotKeysEnabled = hotKeysOn;
    m_loaded = true;
    const PortalShortcuts wanted = hotKeysOn ? wantedShortcuts() : PortalShortcuts();
    // The desktop may ask the user about every binding: bind again only
    // when the hot keys changed.
    if (wanted != m_requested || (!wanted.isEmpty() && !m_portal->isBound() && m_hotKeysMessage.isEmpty())) {
        m_requested = wanted;
        m_bound.clear();
        setHotKeysMessage({});
        m_portal->bind(wanted);
    }
    if (!menuItem && !hotKeysOn) {
        emit quitRequested();
    }
}

void HelperController::setHotKeysMessage(const QString& message)
{
    if (message != m_hotKeysMessage) {
        m_hotKeysMessage = message;
        emit hotKeysMessageChanged(message);
    }
}

QString HelperController::manualBindingMessage(const QString& reason) const
{
    QStringList lines{reason,
                      QStringLiteral("To use Trovara's hot keys, bind these commands to keys in the desktop's "
                                     "keyboard settings:")};
    const model::Defaults& defaults = model::Defaults::shared();
    for (const HotKey& hotKey : kHotKeys) {
        QString line = QStringLiteral("%1: %2").arg(QLatin1String(hotKey.description), commandFor(hotKey.commandSwitch));
        if (const auto combination =
                app::KeyCombination::fromDictionary(defaults.value(QLatin1String(hotKey.defaultsKey)))) {
            const QString keys = app::keyCombinationText(*combination);
            if (!keys.isEmpty()) {
                line += QStringLiteral(" (%1)").arg(keys);
            }
        }
        lines << line;
    }
    return lines.join(QLatin1Char('\n'));
}

void HelperController::callTrovara(const QString& method, const QVariantList& arguments,
                                   const QString& commandSwitch)
{
    const bool runs =
        m_connection.isConnected() &&
        m_connection.interface()->isServiceRegistered(QLatin1String(app::ScriptingService::kServiceName)).value();
    if (!runs) {
        if (!m_environment.startTrovara || !m_environment.startTrovara({QStringLiteral("--") + commandSwitch})) {
            TLOG(QStringLiteral("Trovara could not be started."));
            emit beepRequested();
        }
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QLatin1String(app::ScriptingService::kServiceName), QLatin1String(app::ScriptingService::kObjectPath),
        QLatin1String(app::ScriptingService::kApplicationInterface), method);
    call.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(m_connection.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, method] {
        watcher->deleteLater();
        if (watcher->isError()) {
            TLOG(QStringLiteral("Trovara refused %1: %2").arg(method, watcher->error().message()));
            emit beepRequested();
        }
    });
}

void HelperController::newSearch()
{
    callTrovara(QStringLiteral("ActivateNewDocument"), {}, QLatin1String(app::LaunchRequest::kActivateNewSwitch));
}

void HelperController::bringToFront()
{
    callTrovara(QStringLiteral("Activate"), {}, QLatin1String(app::LaunchRequest::kActivateSwitch));
}

void HelperController::showPreferences()
{
    callTrovara(QStringLiteral("ShowPreferences"), {}, QLatin1String(app::LaunchRequest::kPreferencesSwitch));
}

void HelperController::quickSearch()
{
    const QString text = m_environment.selection ? m_environment.selection().trimmed() : QString();
    if (text.isEmpty() || text.size() > app::QuickSearchUrl::kMaximumLength) {
        emit beepRequested();
        return;
    }
    callTrovara(QStringLiteral("BlitzSearch"), {text, true, true, true, true, QString()},
                QLatin1String(app::LaunchRequest::kQuickSearchSwitch));
}

void HelperController::runHotKey(const QString& id)
{
    if (id == QLatin1String(kHotKeys[0].id)) {
        quickSearch();
    } else if (id == QLatin1String(kHotKeys[1].id)) {
        bringToFront();
    } else if (id == QLatin1String(kHotKeys[2].id)) {
        newSearch();
    }
}

}  // namespace trovara::helper

#include "helper_controller.moc"
