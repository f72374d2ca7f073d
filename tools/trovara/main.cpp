// trovara: the desktop application. Hands its command line to a Trovara
// that already runs, or builds the application object and the shell, offers
// scripting on the session bus, launches (opening what the command line
// names: search files, folders, URLs), and runs the event loop.
#include "app/application_delegate.h"
#include "app/launch_request.h"
#include "app/scripting_service.h"
#include "common/log.h"
#include "helper/helper_launcher.h"
#include "index/index.h"
#include "index/standard_services.h"
#include "presentation/column_formatters.h"
#include "widgets/application.h"
#include "widgets/file_icons.h"
#include "widgets/file_operation_commands.h"
#include "widgets/screenshots.h"
#include "widgets/startup_trace.h"

#include <QApplication>
#include <QClipboard>
#include <QCommandLineParser>
#include <QDir>
#include <QIcon>

#include <cstdio>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Trovara"));
    QApplication::setApplicationName(QStringLiteral("Trovara"));
    QApplication::setApplicationVersion(QStringLiteral(TROVARA_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.velmont.Trovara"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("com.velmont.Trovara"),
                                                 QIcon::fromTheme(QStringLiteral("system-search"))));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Desktop search: searches as documents, with live results."));
    parser.addHelpOption();
    parser.addVersionOption();
    QCommandLineOption indexOption(QStringLiteral("index"), QStringLiteral("The index folder to search."),
                                   QStringLiteral("DIR"));
    QCommandLineOption embeddedOption(QStringLiteral("no-daemon"),
                                      QStringLiteral("Open the index in this process even when the daemon runs."));
    // Pictures for the documentation (scripts/screenshots): NAME=FILE.png.
    QCommandLineOption screenshotOption(QStringLiteral("screenshot"), QStringLiteral("Render a scene and quit."),
                                        QStringLiteral("NAME=FILE"));
    screenshotOption.setFlags(QCommandLineOption::HiddenFromHelp);
    using trovara::app::LaunchRequest;
    QCommandLineOption quickSearchOption(QLatin1String(LaunchRequest::kQuickSearchSwitch),
                                         QStringLiteral("Search for the selected text (the primary selection)."));
    QCommandLineOption activateOption(QLatin1String(LaunchRequest::kActivateSwitch),
                                      QStringLiteral("Bring Trovara to the front."));
    QCommandLineOption activateNewOption(QLatin1String(LaunchRequest::kActivateNewSwitch),
                                         QStringLiteral("Bring Trovara to the front with a new search."));
    QCommandLineOption preferencesOption(QLatin1String(LaunchRequest::kPreferencesSwitch),
                                         QStringLiteral("Show Trovara's preferences."));
    parser.addOption(quickSearchOption);
    parser.addOption(preferencesOption);
    parser.addOption(activateOption);
    parser.addOption(activateNewOption);
    parser.addOption(indexOption);
    parser.addOption(embeddedOption);
    parser.addOption(screenshotOption);
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Search files (.trova) or folders to open."),
                                 QStringLiteral("[FILE|FOLDER…]"));
    parser.process(app);

    // One Trovara at a time: a second one hands its files and URLs to the
    // first (which comes to the front) and ends here.
    using trovara::app::ScriptingService;
    const bool rendering = parser.isSet(screenshotOption);
    LaunchRequest request;
    request.locations = ScriptingService::locationsFromArguments(parser.positionalArguments(), QDir::currentPath());
    const int actions = int(parser.isSet(quickSearchOption)) + int(parser.isSet(activateOption)) +
                        int(parser.isSet(activateNewOption)) + int(parser.isSet(preferencesOption));
    if (actions > 1 || (actions == 1 && !request.locations.isEmpty())) {
        std::fprintf(stderr, "trovara: --quick-search, --activate, --activate-new and --preferences go alone\n");
        return 2;
    }
    if (parser.isSet(quickSearchOption)) {
        request.action = LaunchRequest::Action::QuickSearch;
        request.selection = QApplication::clipboard()->text(QClipboard::Selection);
    } else if (parser.isSet(activateOption)) {
        request.action = LaunchRequest::Action::Activate;
    } else if (parser.isSet(activateNewOption)) {
        request.action = LaunchRequest::Action::ActivateNew;
    } else if (parser.isSet(preferencesOption)) {
        request.action = LaunchRequest::Action::ShowPreferences;
    }
    const QStringList& locations = request.locations;
    if (!rendering) {
        switch (request.forward()) {
        case LaunchRequest::Handover::Forwarded:
            return 0;
        case LaunchRequest::Handover::Refused:
            QApplication::beep();
            return 1;
        case LaunchRequest::Handover::NoInstance:
            break;
        }
    }

    trovara::app::ApplicationDelegate::initializeClass();
    trovara::widgets::chooseIconThemeWhenNoneIsSet();
    trovara::presentation::installColumnPropertiesChooser();

    const std::string indexDirectory = parser.isSet(indexOption) ? parser.value(indexOption).toStdString()
                                                                 : trovara::index::Index::defaultDirectory();
    trovara::daemon::QuerySourceOptions options;
    options.embeddedOnly = parser.isSet(embeddedOption);
    // The helper (hot keys, global menu item) follows its switches; not
    // for pictures, and not without a session bus to reach it.
    const QString helperProgram = trovara::helper::HelperLauncher::installedHelperProgram();
    trovara::helper::HelperLauncher helper(trovara::helper::LoginItems(),
                                           trovara::helper::HelperLauncher::systemProcess(helperProgram),
                                           helperProgram);
    trovara::widgets::Application shell(indexDirectory, trovara::index::standardServices(), options);
    trovara::widgets::FileOperationCommands fileOperations(shell);
    trovara::widgets::StartupTrace trace(shell);
    trovara::app::ApplicationDelegate& delegate = shell.delegate();
    if (!rendering && QDBusConnection::sessionBus().isConnected()) {
        delegate.setHelperSwitch(&helper);
    }
    ScriptingService scripting(delegate);
    QObject::connect(&scripting, &ScriptingService::activationRequested, &shell,
                     &trovara::widgets::Application::bringToFront);
    if (!rendering) {
        if (const trovara::Status offered = scripting.registerService(); !offered) {
            TLOG(offered.error().toString());
        }
    }

    // The documents the command line names suppress the untitled one,
    // which comes one turn after launching when nothing else opened.
    delegate.applicationWillFinishLaunching();
    if (!locations.isEmpty()) {
        scripting.openLocations(locations);
    }
    if (!delegate.applicationDidFinishLaunching()) {
        return 1;
    }
    request.perform(delegate);

    std::vector<std::pair<QString, QString>> shots;
    for (const QString& shot : parser.values(screenshotOption)) {
        const qsizetype equals = shot.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            std::fprintf(stderr, "trovara: --screenshot wants NAME=FILE, not %s\n", qPrintable(shot));
            return 2;
        }
        shots.emplace_back(shot.left(equals), shot.mid(equals + 1));
    }
    trovara::widgets::ScreenshotRunner screenshots(shell, shots);
    if (!shots.empty()) {
        screenshots.start();
    }
    const int status = app.exec();
    delegate.applicationWillTerminate();
    return status;
}
