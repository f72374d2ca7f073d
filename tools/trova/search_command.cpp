// trova search: a search run as a search window runs it, through the query
// controller, with its exclusions, limit, quick filter, sort order and
// columns; prints the rows, then the status line.
#include "commands.h"
#include "interrupt.h"
#include "live_source.h"

#include "common/paths.h"
#include "index/query/find_query.h"
#include "model/document_model.h"
#include "model/ordered_column_attribute.h"
#include "presentation/column_formatters.h"
#include "query/metadata_query_controller.h"
#include "query/query_document.h"
#include "query/result_filter.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

namespace trovara::cli {

namespace {

const char* const kUsage =
    "usage: trova search [-onlyin DIR]... [-exclude DIR]... [-limit N [-limitkey KEY] [-earliest]]\n"
    "                    [-filter-name|-exclude-name|-filter-path|-exclude-path TEXT]\n"
    "                    [-column KEY]... [-sortby KEY] [-descending] [-invisible] [-live] QUERY";

// The document of a search from the command line: kept in memory, with the
// columns asked for.
class CommandLineDocument final : public query::QueryDocument {
public:
    CommandLineDocument() { model::primeContext(*m_context); }
    store::ManagedObjectContext& managedObjectContext() override { return *m_context; }

    // Replaces the document's columns by these, left to right.
    void setColumns(const QStringList& keys) { model::OrderedColumnAttribute::replaceOrderedColumns(*m_context, keys); }

private:
    std::unique_ptr<store::ManagedObjectContext> m_context = model::makeDocumentContext();
};

struct SearchOptions {
    QStringList scopes;
    QStringList excluded;
    int limit = 0;
    QString limitKey = QStringLiteral("kMDItemContentModificationDate");
    bool earliest = false;
    int filterType = query::kFilterByName;
    QString filterText;
    QStringList columns;
    QString sortBy;
    bool descending = false;
    bool invisible = false;
    bool live = false;
    QString query;
};

// Reads the arguments; an error is printed and gives the exit status.
std::optional<int> parseArguments(const QStringList& arguments, SearchOptions& options)
{
    static const std::pair<const char*, int> filters[] = {
        {"-filter-name", query::kFilterByName},
        {"-exclude-name", query::kExcludeByName},
        {"-filter-path", query::kFilterByPath},
        {"-exclude-path", query::kExcludeByPath},
    };
    QStringList words;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= arguments.size()) {
                printError(QStringLiteral("%1 needs a value").arg(argument));
                return std::nullopt;
            }
            return arguments[++i];
        };
        const auto filter = std::find_if(std::begin(filters), std::end(filters),
                                         [&](const auto& entry) { return argument == QLatin1String(entry.first); });
        const bool takesValue = argument == QLatin1String("-onlyin") || argument == QLatin1String("-exclude")
                                || argument == QLatin1String("-limit") || argument == QLatin1String("-limitkey")
                                || argument == QLatin1String("-column") || argument == QLatin1String("-sortby")
                                || filter != std::end(filters);
        if (takesValue) {
            const std::optional<QString> given = value();
            if (!given) {
                return 2;
            }
            if (argument == QLatin1String("-onlyin")) {
                options.scopes << *given;
            } else if (argument == QLatin1String("-exclude")) {
                options.excluded << *given;
            } else if (argument == QLatin1String("-limit")) {
                bool ok = false;
                options.limit = given->toInt(&ok);
                if (!ok || options.limit < 0) {
                    printError(QStringLiteral("-limit takes a whole number of results, not \"%1\"").arg(*given));
                    return 2;
                }
            } else if (argument == QLatin1String("-limitkey")) {
                options.limitKey = *given;
            } else if (argument == QLatin1String("-column")) {
                options.columns << *given;
            } else if (argument == QLatin1String("-sortby")) {
                options.sortBy = *given;
            } else {
                options.filterType = filter->second;
                options.filterText = *given;
            }
        } else if (argument == QLatin1String("-earliest")) {
            options.earliest = true;
        } else if (argument == QLatin1String("-descending")) {
            options.descending = true;
        } else if (argument == QLatin1String("-invisible")) {
            options.invisible = true;
        } else if (argument == QLatin1String("-live")) {
            options.live = true;
        } else if (argument == QLatin1String("--")) {
            words += arguments.mid(i + 1);
            break;
        } else if (argument.startsWith(QLatin1Char('-')) && argument.size() > 1 && words.isEmpty()) {
            printError(QStringLiteral("unknown option %1").arg(argument));
            printError(QString::fromLatin1(kUsage));
            return 2;
        } else {
            words << argument;
        }
    }
    options.query = words.join(QLatin1Char(' '));
    if (options.columns.isEmpty()) {
        options.columns << QStringLiteral("kMDItemPath");
    }
    if (!options.sortBy.isEmpty() && !options.columns.contains(options.sortBy)) {
        printError(QStringLiteral("-sortby %1 names no column of -column").arg(options.sortBy));
        return 2;
    }
    return std::nullopt;
}

}  // namespace

void printLine(const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void printResultRows(const query::ResultTableModel& table)
{
    for (int row = 0; row < table.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < table.columnCount(); ++column) {
            cells << table.data(table.index(row, column)).toString();
        }
        printLine(cells.join(QLatin1Char('\t')));
    }
}

int searchCommand(const GlobalOptions& global, const QStringList& arguments)
{
    SearchOptions options;
    if (const std::optional<int> status = parseArguments(arguments, options)) {
        return *status;
    }
    index::Expected<index::query::FindQuery> text =
        index::query::findQuery(options.query.toStdString(), std::nullopt, false);
    if (!text) {
        printError(QStringLiteral("invalid query: %1").arg(QString::fromStdString(text.error().message)));
        return 1;
    }
    std::unique_ptr<index::QuerySource> source = openLiveSource(global, options.live);
    if (!source) {
        return 1;
    }
    if (options.scopes.isEmpty()) {
        for (const std::string& root : source->indexedRoots()) {
            options.scopes << fromLocalBytes(root);
        }
    }
    if (options.scopes.isEmpty()) {
        printError(QStringLiteral("nothing to search: the index has no folders (trova index add DIR) and no -onlyin"));
        return 1;
    }

    presentation::installColumnPropertiesChooser();
    CommandLineDocument document;
    document.setColumns(options.columns);
    query::MetadataQueryController controller(*source);
    controller.windowDidLoadForDocument(&document);
    if (!options.sortBy.isEmpty()) {
        controller.results()->sort(controller.results()->columnForIdentifier(options.sortBy),
                                   options.descending ? Qt::DescendingOrder : Qt::AscendingOrder);
    } else if (options.descending) {
        controller.results()->sort(0, Qt::DescendingOrder);
    }
    // The sort order asked for is the document's from now on, as a saved
    // layout would be.
    controller.saveTableLayout();

    bool tooMany = false;
    controller.setAlertPresenter([&](const query::Alert& alert, std::function<void(int)> didEnd) {
        printError(alert.messageText + QStringLiteral(": ") + alert.informativeText);
        tooMany = true;
        didEnd(0);
    });
    controller.setExpression(QString::fromStdString(text->text));
    controller.setSearchScopes(options.scopes);
    controller.setExcludedPaths(options.excluded);
    controller.setLimitKey(options.limitKey);
    controller.setLimitValue(options.limit);
    controller.setLimitAscending(options.earliest);
    controller.setFilterType(options.filterType);
    controller.setFilterString(options.filterText);

    if (options.live) {
        QObject::connect(&controller, &query::MetadataQueryController::statusLineChanged, &printLine);
    } else {
        QObject::connect(&controller, &query::MetadataQueryController::stateChanged,
                         [](query::MetadataQueryController::State state) {
                             if (state != query::MetadataQueryController::State::Gathering) {
                                 QCoreApplication::exit(0);
                             }
                         });
    }

    QuitOnInterrupt interrupt;
    if (!interrupt.isReady()) {
        return 1;
    }
    controller.startQuery(options.invisible);
    if (!controller.isAlive()) {
        return 1;  // the reason is printed
    }
    const int status = QCoreApplication::exec();
    if (!options.live && controller.state() == query::MetadataQueryController::State::Live) {
        printResultRows(*controller.results());
        printLine(controller.statusLine());
    }
    controller.stopQuery();
    return tooMany ? 1 : status;
}

}  // namespace trovara::cli
