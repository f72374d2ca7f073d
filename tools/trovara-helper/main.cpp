// trovara-helper: Trovara's global hot keys and global menu item, running
// apart from the application (started by it, or at login). Quits when both
// of its switches are off or when Trovara asks it to.
#include "common/log.h"
#include "helper/helper_controller.h"
#include "model/defaults.h"
#include "widgets/helper_tray.h"

#include <QApplication>
#include <QClipboard>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QProcess>

#include <cstdio>

namespace {

// Trovara as the application last wrote it down ("appPath"), else beside
// this program, else on the PATH.
QString trovaraProgram()
{
    const QString recorded = trovara::model::Defaults::shared().stringValue(QStringLiteral("appPath"));
    if (QFileInfo(recorded).fileName() == QLatin1String("trovara") && QFileInfo(recorded).isExecutable()) {
        return recorded;
    }
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/trovara");
    return QFileInfo(beside).isExecutable() ? beside : QStringLiteral("trovara");
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Trovara"));
    QApplication::setApplicationName(QStringLiteral("Trovara Helper"));
    QApplication::setApplicationVersion(QStringLiteral(TROVARA_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.velmont.TrovaraHelper"));
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Trovara's global hot keys and menu item."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);

    trovara::model::Defaults::shared().registerDefaults(trovara::model::Defaults::factoryDefaults());

    trovara::helper::HelperController::Environment environment;
    environment.selection = [] { return QApplication::clipboard()->text(QClipboard::Selection); };
    environment.startTrovara = [](const QStringList& arguments) {
        return QProcess::startDetached(trovaraProgram(), arguments);
    };
    trovara::helper::HelperController controller(QDBusConnection::sessionBus(), environment);
    if (const trovara::Status registered = controller.registerService(); !registered) {
        std::fprintf(stderr, "trovara-helper: %s\n", qPrintable(registered.error().toString()));
        return 1;
    }
    QObject::connect(&controller, &trovara::helper::HelperController::beepRequested, [] { QApplication::beep(); });
    QObject::connect(&controller, &trovara::helper::HelperController::quitRequested, &app, &QApplication::quit,
                     Qt::QueuedConnection);
    trovara::widgets::HelperTray tray(controller);
    controller.reload();
    return app.exec();
}
