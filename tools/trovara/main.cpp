// trovara: the desktop application. Builds the application object and the
// shell, opens what the command line names (search files, folders), and
// runs the event loop.
#include "document/template_item.h"
#include "index/index.h"
#include "index/standard_services.h"
#include "model/value_transformer.h"
#include "presentation/column_formatters.h"
#include "presentation/metadata_item_transformer.h"
#include "widgets/application.h"
#include "widgets/file_icons.h"
#include "widgets/screenshots.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QIcon>
#include <QTimer>

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
    parser.addOption(indexOption);
    parser.addOption(embeddedOption);
    parser.addOption(screenshotOption);
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Search files (.trova) or folders to open."),
                                 QStringLiteral("[FILE|FOLDER…]"));
    parser.process(app);

    trovara::widgets::chooseIconThemeWhenNoneIsSet();
    trovara::model::registerModelTransformers();
    trovara::presentation::registerPresentationTransformers();
    trovara::document::registerDocumentTransformers();
    trovara::presentation::installColumnPropertiesChooser();

    const std::string indexDirectory = parser.isSet(indexOption) ? parser.value(indexOption).toStdString()
                                                                 : trovara::index::Index::defaultDirectory();
    trovara::daemon::QuerySourceOptions options;
    options.embeddedOnly = parser.isSet(embeddedOption);
    trovara::widgets::Application shell(indexDirectory, trovara::index::standardServices(), options);
    const QStringList files = parser.positionalArguments();
    QTimer::singleShot(0, &shell, [&shell, files] { shell.openFiles(files); });

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
    return app.exec();
}
