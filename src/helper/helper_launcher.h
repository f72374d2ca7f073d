// The application's side of the helper (trovara-helper): starts it when
// one of its switches ("enableGlobalHotKeys", "enableGlobalMenuItem") is on,
// asks it to quit when both are off, and keeps its login item.
//
// The login item follows the application's rules to the letter: it is
// written only when the helper was found as the first login item (index
// 0), refreshing that entry; a missing entry (-1) or an unreadable folder
// (-2) is left alone. With both switches off an entry at any position is
// removed.
#pragma once

#include "app/helper_switch.h"
#include "helper/login_items.h"

#include <QDBusConnection>
#include <QString>

#include <functional>

namespace trovara::helper {

// The helper process as the application sees it.
struct HelperProcess {
    std::function<bool()> isRunning;
    // Starts the helper; false when it could not be started.
    std::function<bool()> launch;
    // Asks a running helper to quit.
    std::function<void()> quit;
};

class HelperLauncher final : public app::HelperSwitch {
public:
    // The helper's login item.
    static constexpr const char* kLoginItemName = "trovara-helper.desktop";

    HelperLauncher(LoginItems loginItems, HelperProcess process, QString helperProgram);

    // The helper beside this program (or on the PATH), found and asked over
    // the session bus.
    static HelperProcess systemProcess(const QString& helperProgram,
                                       QDBusConnection connection = QDBusConnection::sessionBus());
    // trovara-helper beside the running program when it is there, else the
    // name for the PATH.
    static QString installedHelperProgram();

    void setUpHelper(bool quitIfUnused) override;

private:
    LoginItems m_loginItems;
    HelperProcess m_process;
    QString m_helperProgram;
};

}  // namespace trovara::helper
