// trova: Trovara from the command line.
#include "commands.h"

#include "common/error_presenter.h"
#include "index/index.h"

#include <QCoreApplication>

#include <cstdio>

namespace trovara::cli {

void printError(const QString& message)
{
    std::fprintf(stderr, "trova: %s\n", message.toLocal8Bit().constData());
}

namespace {

void printUsage(FILE* stream)
{
    std::fputs("usage: trova [--index DIR] <command> [arguments]\n"
               "\n"
               "commands:\n"
               "  find [-onlyin DIR]... [-name TEXT] [-count] [-0] [-interpret] [-live] QUERY\n"
               "                         search the index (or folders outside it); -live\n"
               "                         then prints + PATH, - PATH, ~ PATH as files change\n"
               "  search [-onlyin DIR]... [-exclude DIR]... [-limit N] [-filter-name TEXT]\n"
               "         [-column KEY]... [-sortby KEY] [-live] QUERY\n"
               "                         run a search as a search window does: print its rows,\n"
               "                         then its status line (trova search -h for more)\n"
               "  ls FILE...             print every attribute of files\n"
               "  import -L              list the importers and the content types they read\n"
               "  import FILE...         print what the importers extract from files\n"
               "  preview [-terms WORD]... FILE\n"
               "                         print the text the text preview shows, the words\n"
               "                         coloured on a terminal\n"
               "  index add DIR...       index folders (and keep them indexed)\n"
               "  index remove DIR...    stop indexing folders\n"
               "  index update           bring the index up to date\n"
               "  index rebuild          build the index again from scratch\n"
               "  index status           show what is indexed\n"
               "  daemon start|stop|status\n"
               "                         run the index daemon (or see how it does); while it\n"
               "                         runs, every command above goes through it\n"
               "  doc new [--criteria FILE.json] [--scope DIR]... [--exclude DIR]...\n"
               "          [--limit N --limit-by KEY [--ascending]] -o FILE.trova\n"
               "                         write a search document\n"
               "  doc show FILE.trova    print a search document: criteria, query, places,\n"
               "                         limit, columns, settings\n"
               "  doc run FILE.trova     run a search document (older files are migrated,\n"
               "                         the old file kept as FILE.trova~): rows, status line\n"
               "  criteria-text FILE|-   print the query text of a criteria tree (JSON)\n"
               "\n"
               "The index lives in $TROVARA_INDEX, else ~/.local/share/trovara/index.\n",
               stream);
}

}  // namespace

}  // namespace trovara::cli

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Trovara"));
    QCoreApplication::setApplicationName(QStringLiteral("Trovara"));

    trovara::setErrorPresenter([](const trovara::Error& error) { trovara::cli::printError(error.toString()); });

    QStringList arguments = QCoreApplication::arguments().mid(1);
    trovara::cli::GlobalOptions global;
    global.indexDirectory = trovara::index::Index::defaultDirectory();
    while (!arguments.isEmpty() && arguments.front().startsWith(QLatin1String("--index"))) {
        const QString option = arguments.takeFirst();
        if (option.startsWith(QLatin1String("--index="))) {
            global.indexDirectory = option.mid(8).toStdString();
        } else if (option == QLatin1String("--index") && !arguments.isEmpty()) {
            global.indexDirectory = arguments.takeFirst().toStdString();
        } else {
            trovara::cli::printError(QStringLiteral("--index needs a folder"));
            return 2;
        }
    }
    if (arguments.isEmpty()) {
        trovara::cli::printUsage(stderr);
        return 2;
    }
    const QString command = arguments.takeFirst();
    if (command == QLatin1String("criteria-text")) {
        return trovara::cli::criteriaText(arguments);
    }
    if (command == QLatin1String("index")) {
        return trovara::cli::indexCommand(global, arguments);
    }
    if (command == QLatin1String("ls")) {
        return trovara::cli::lsCommand(global, arguments);
    }
    if (command == QLatin1String("import")) {
        return trovara::cli::importCommand(global, arguments);
    }
    if (command == QLatin1String("preview")) {
        return trovara::cli::previewCommand(arguments);
    }
    if (command == QLatin1String("daemon")) {
        return trovara::cli::daemonCommand(global, arguments);
    }
    if (command == QLatin1String("search")) {
        return trovara::cli::searchCommand(global, arguments);
    }
    if (command == QLatin1String("doc")) {
        return trovara::cli::docCommand(global, arguments);
    }
    if (command == QLatin1String("find")) {
        return trovara::cli::findCommand(global, arguments);
    }
    if (command == QLatin1String("help") || command == QLatin1String("--help") || command == QLatin1String("-h")) {
        trovara::cli::printUsage(stdout);
        return 0;
    }
    trovara::cli::printError(QStringLiteral("unknown command \"%1\"").arg(command));
    trovara::cli::printUsage(stderr);
    return 2;
}
