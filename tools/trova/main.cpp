// trova: Trovara from the command line.
#include "commands.h"

#include "common/error_presenter.h"

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
    std::fputs("usage: trova <command> [arguments]\n"
               "\n"
               "commands:\n"
               "  criteria-text FILE|-   print the query text of a criteria tree (JSON)\n",
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
    if (arguments.isEmpty()) {
        trovara::cli::printUsage(stderr);
        return 2;
    }
    const QString command = arguments.takeFirst();
    if (command == QLatin1String("criteria-text")) {
        return trovara::cli::criteriaText(arguments);
    }
    if (command == QLatin1String("help") || command == QLatin1String("--help") || command == QLatin1String("-h")) {
        trovara::cli::printUsage(stdout);
        return 0;
    }
    trovara::cli::printError(QStringLiteral("unknown command \"%1\"").arg(command));
    trovara::cli::printUsage(stderr);
    return 2;
}
