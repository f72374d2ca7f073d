#include "helper/helper_launcher.h"

#include "common/log.h"
#include "helper/helper_controller.h"
#include "model/defaults.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFileInfo>
#include <QProcess>

namespace trovara::helper {

HelperLauncher::HelperLauncher(LoginItems loginItems, HelperProcess process, QString helperProgram)
    : m_loginItems(std::move(loginItems))
    , m_process(std::move(process))
    , m_helperProgram(std::move(helperProgram))
{
}

QString HelperLauncher::installedHelperProgram()
{
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/trovara-helper");
    return QFileInfo(beside).isExecutable() ? beside : QStringLiteral("trovara-helper");
}

HelperProcess HelperLauncher::systemProcess(const QString& helperProgram, QDBusConnection connection)
{
    HelperProcess process;
    process.isRunning = [connection] {
        return connection.isConnected() &&
               connection.interface()->isServiceRegistered(QLatin1String(HelperController::kServiceName)).value();
    };
    process.launch = [helperProgram] { return QProcess::startDetached(helperProgram, {}); };
    process.quit = [connection] {
        QDBusConnection bus = connection;
        bus.send(QDBusMessage::createMethodCall(QLatin1String(HelperController::kServiceName),
                                                QLatin1String(HelperController::kObjectPath),
                                                QLatin1String(HelperController::kInterface), QStringLiteral("Quit")));
    };
    return process;
}

void HelperLauncher::setUpHelper(bool quitIfUnused)
{
    const model::Defaults& defaults = model::Defaults::shared();
    const bool wanted = defaults.boolValue(QStringLiteral("enableGlobalMenuItem")) ||
                        defaults.boolValue(QStringLiteral("enableGlobalHotKeys"));
    const int index = m_loginItems.indexOf(QLatin1String(kLoginItemName));
    if (wanted) {
        if (m_process.isRunning()) {
            return;
        }
        if (!m_process.launch()) {
            TLOG(QStringLiteral("The helper %1 could not be started.").arg(m_helperProgram));
        }
        if (index == 0) {
            if (Status added = m_loginItems.addHidden(QLatin1String(kLoginItemName), QStringLiteral("Trovara Helper"),
                                                      m_helperProgram);
                !added) {
                TLOG(added.error().toString());
            }
        }
        return;
    }
    if (quitIfUnused && m_process.isRunning()) {
        m_process.quit();
    }
    if (index >= 0) {
        if (Status removed = m_loginItems.removeAt(index); !removed) {
            TLOG(removed.error().toString());
        }
    }
}

}  // namespace trovara::helper
