// The helper application (trovara-helper) without its tray icon: the global
// hot keys and the commands of the global menu, kept in step with Trovara's
// preferences.
//
// It owns the session-bus name com.velmont.TrovaraHelper (one helper at a
// time; Trovara asks it to Quit() there), reads the switches and hot keys
// from the shared defaults and reads them again whenever Trovara sends
// trovaraPreferencesChanged. The hot keys go to the desktop portal's global
// shortcuts; where the desktop has none, hotKeysMessage() tells the user
// which commands to bind in the desktop's own keyboard settings.
//
// A hot key or a menu command reaches Trovara over its D-Bus service; when
// Trovara does not run, it is started with the matching switch
// (`trovara --quick-search` …).
//
// Main thread only.
#pragma once

#include "common/error.h"
#include "helper/global_shortcuts_portal.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <span>

namespace trovara::helper {

// One global hot key: its portal id, the default that stores it, what it
// does and the command a desktop can bind instead.
struct HotKey {
    const char* id;
    const char* defaultsKey;
    const char* description;
    const char* commandSwitch;
};

class HelperController final : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kServiceName = "com.velmont.TrovaraHelper";
    static constexpr const char* kObjectPath = "/com/velmont/TrovaraHelper";
    static constexpr const char* kInterface = "com.velmont.TrovaraHelper";

    static std::span<const HotKey> hotKeys();

    struct Environment {
        // The primary selection's text.
        std::function<QString()> selection;
        // Starts Trovara with these arguments; false when it cannot.
        std::function<bool(const QStringList& arguments)> startTrovara;
    };

    HelperController(QDBusConnection connection, Environment environment, QObject* parent = nullptr);
    ~HelperController() override;

    // Takes the helper's name on the bus and follows Trovara's preference
    // signal. An error when another helper runs (or there is no bus).
    Status registerService();

    // Reads the switches and hot keys again: shows or hides the menu item,
    // binds or releases the hot keys, and asks to quit when both switches
    // are off.
    void reload();

    bool menuItemEnabled() const { return m_menuItemEnabled; }
    bool hotKeysEnabled() const { return m_hotKeysEnabled; }
    // Empty while the hot keys work (or are off); otherwise why not, and
    // the commands to bind by hand.
    const QString& hotKeysMessage() const { return m_hotKeysMessage; }
    // The hot keys as the desktop took them.
    const PortalShortcuts& boundShortcuts() const { return m_bound; }

    // The menu's commands, and what the hot keys run.
    void newSearch();
    void quickSearch();
    void bringToFront();
    void showPreferences();
    void runHotKey(const QString& id);

signals:
    void menuItemEnabledChanged(bool enabled);
    void hotKeysMessageChanged(const QString& message);
    void beepRequested();
    // Both switches are off, or Trovara asked the helper to go.
    void quitRequested();

private slots:
    void preferencesChanged();

private:
    // Calls Trovara's method when it runs; otherwise starts it with the
    // switch.
    void callTrovara(const QString& method, const QVariantList& arguments, const QString& commandSwitch);
    PortalShortcuts wantedShortcuts() const;
    void setHotKeysMessage(const QString& message);
    QString manualBindingMessage(const QString& reason) const;

    QDBusConnection m_connection;
    Environment m_environment;
    GlobalShortcutsPortal* m_portal;
    bool m_registered = false;
    bool m_menuItemEnabled = false;
    bool m_hotKeysEnabled = false;
    bool m_loaded = false;
    PortalShortcuts m_requested;
    PortalShortcuts m_bound;
    QString m_hotKeysMessage;
};

}  // namespace trovara::helper
