// The helper's global menu item: a tray icon (a StatusNotifierItem on
// desktops that have one) whose menu reaches Trovara from anywhere: a new
// search, a search for the selection, Trovara to the front, its
// preferences, and quitting the helper. Shown while "enableGlobalMenuItem"
// is on. When the desktop does not take the hot keys, the menu offers the
// commands to bind by hand and the icon says so once.
#pragma once

#include <QObject>

#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace trovara::helper {
class HelperController;
}

namespace trovara::widgets {

class HelperTray final : public QObject {
    Q_OBJECT

public:
    explicit HelperTray(helper::HelperController& controller, QObject* parent = nullptr);
    ~HelperTray() override;

    QMenu* menu() const { return m_menu.get(); }
    QSystemTrayIcon* icon() const { return m_icon; }
    // The item that explains the hot keys (visible only when they need
    // binding by hand).
    QAction* hotKeysAction() const { return m_hotKeys; }

private:
    void showHotKeysMessage();
    void hotKeysMessageChanged(const QString& message);

    helper::HelperController& m_controller;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon* m_icon;
    QAction* m_hotKeys;
    bool m_toldAboutHotKeys = false;
};

}  // namespace trovara::widgets
