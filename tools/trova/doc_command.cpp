// trova doc: search documents from the command line. `new` writes one,
// `show` prints what one holds, `run` runs it as its window would.
#include "commands.h"
#include "interrupt.h"
#include "live_source.h"

#include "common/paths.h"
#include "document/document.h"
#include "document/document_controller.h"
#include "model/abstract_attribute.h"
#include "model/criteria_json.h"
#include "model/defaults.h"
#include "model/meta_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/query_item.h"
#include "model/scope.h"
#include "presentation/column_formatters.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <cstdio>
#include <optional>
#include <unistd.h>

namespace trovara::cli {

namespace {

const char* const kUsage =
    "usage: trova doc new [--criteria FILE.json] [--scope DIR]... [--exclude DIR]...\n"
    "                     [--limit N [--limit-by KEY] [--ascending]] [--column KEY]... [--running]\n"
    "                     -o FILE.trova\n"
    "                     (--running: the search starts as soon as a window opens it;\n"
    "                     the limit is by kMDItemLastUsedDate unless --limit-by says otherwise;\n"
    "                     the columns are name, kind and modification date unless --column says otherwise)\n"
    "       trova doc show FILE.trova\n"
    "       trova doc run FILE.trova";

struct NewOptions {
    QString criteria;
    QStringList scopes;
    QStringList excluded;
    std::optional<int> limit;
    QString limitBy;
    bool ascending = false;
    bool running = false;
    QStringList columns;
    QString output;
};

std::optional<int> parseNewArguments(const QStringList& arguments, NewOptions& options)
{
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const bool takesValue = argument == QLatin1String("--criteria") || argument == QLatin1String("--scope")
                                || argument == QLatin1String("--exclude") || argument == QLatin1String("--limit")
                                || argument == QLatin1String("--limit-by") || argument == QLatin1String("--column")
                                || argument == QLatin1String("-o");
        if (argument == QLatin1String("--ascending")) {
            options.ascending = true;
            continue;
        }
        if (argument == QLatin1String("--running")) {
            options.running = true;
            continue;
        }
        if (!takesValue) {
            printError(QStringLiteral("unknown argument %1").arg(argument));
            printError(QString::fromLatin1(kUsage));
            return 2;
        }
        if (i + 1 >= arguments.size()) {
            printError(QStringLiteral("%1 needs a value").arg(argument));
            return 2;
        }
        const QString value = arguments[++i];
        if (argument == QLatin1String("--criteria")) {
            options.criteria = value;
        } else if (argument == QLatin1String("--scope")) {
            options.scopes << value;
        } else if (argument == QLatin1String("--exclude")) {
            options.excluded << value;
        } else if (argument == QLatin1String("--limit")) {
            bool ok = false;
            options.limit = value.toInt(&ok);
            if (!ok || *options.limit < 0) {
                printError(QStringLiteral("--limit takes a whole number of results, not \"%1\"").arg(value));
                return 2;
            }
        } else if (argument == QLatin1String("--limit-by")) {
            options.limitBy = value;
        } else if (argument == QLatin1String("--column")) {
            options.columns << value;
        } else {
            options.output = value;
        }
    }
    if (options.output.isEmpty()) {
        printError(QStringLiteral("doc new needs -o FILE.trova"));
        return 2;
    }
    return std::nullopt;
}

// A scope as a person typed it: folders made absolute, named scopes kept.
QString scopePath(const QString& typed)
{
    if (typed.startsWith(QLatin1String("kMDQueryScope")) || typed.startsWith(QLatin1Char('~'))) {
        return typed;
    }
    return QFileInfo(typed).absoluteFilePath();
}

int newDocument(const QStringList& arguments)
{
    NewOptions options;
    if (const std::optional<int> status = parseNewArguments(arguments, options)) {
        return *status;
    }
    QByteArray criteria;
    if (!options.criteria.isEmpty()) {
        QFile file(options.criteria);
        const bool opened = options.criteria == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly)
                                                                   : file.open(QIODevice::ReadOnly);
        if (!opened) {
            printError(QStringLiteral("%1: %2").arg(options.criteria, file.errorString()));
            return 1;
        }
        criteria = file.readAll();
    }

    index::NoIndexSource source;
    document::Document document(source);
    if (Status made = document.initWithType(); !made) {
        printError(made.error().toString());
        return 1;
    }
    store::ManagedObjectContext& context = document.managedObjectContext();
    if (!criteria.isEmpty()) {
        // The given tree replaces the default rows.
        if (model::QueryNode* root = model::QueryNode::rootNodeInContext(context)) {
            context.deleteObject(root);
        }
        Result<model::QueryNode*> read = model::readCriteriaJson(criteria, context);
        if (!read) {
            printError(QStringLiteral("%1: %2: %3").arg(options.criteria, read.error().description, read.error().reason));
            return 1;
        }
    }
    if (!options.scopes.isEmpty()) {
        for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
            context.deleteObject(ordered);
        }
        for (const QString& typed : options.scopes) {
            model::Scope* scope = model::Scope::scopeWithPath(scopePath(typed), context);
            if (scope && typed.startsWith(QLatin1String("kMDQueryScope"))) {
                scope->setIsConstant(true);
            }
            model::OrderedScope::createOrderedScopeWith(scope);
        }
    }
    for (const QString& typed : options.excluded) {
        model::OrderedExclusionScope::createOrderedExclusionScopeWith(
            model::Scope::scopeWithPath(scopePath(typed), context));
    }
    if (options.limit.has_value() || !options.limitBy.isEmpty()) {
        if (model::ValuedLimitAttribute* limit = model::ValuedLimitAttribute::limitInContext(context)) {
            if (!options.limitBy.isEmpty()) {
                limit->setLimitAttribute(model::LimitAttribute::attributeWithKey(options.limitBy, context));
            }
            limit->setLimitValue(options.limit.value_or(limit->limitValue().toInt()));
            limit->setAscending(options.ascending);
        }
    }
    if (!options.columns.isEmpty()) {
        model::OrderedColumnAttribute::replaceOrderedColumns(context, options.columns);
    }
    document.setSavesAsRunning(options.running);
    if (Status saved = document.saveToURL(options.output); !saved) {
        printError(saved.error().toString());
        return 1;
    }
    return 0;
}

QString settingText(const model::MetaAttribute& setting)
{
    const QByteArray bytes = setting.attributeValue().toByteArray();
    const QString text = QString::fromUtf8(bytes);
    if (text.toUtf8() == bytes && !text.contains(QChar(0))) {
        return text;
    }
    return QStringLiteral("<%1 bytes>").arg(bytes.size());
}

// An older document is migrated when it is opened; an old backup beside it
// is replaced only when the person at the terminal says so.
void askBeforeReplacingBackups(document::DocumentController& documents)
{
    documents.setOverwritePrompt([](const QString& backup) {
        if (!::isatty(STDIN_FILENO)) {
            printError(QStringLiteral("%1 exists; not replaced without asking").arg(backup));
            return false;
        }
        std::fprintf(stderr, "%s\n%s\nReplace %s? [y/N] ", document::kOverwriteMessage,
                     document::kOverwriteInformativeText, backup.toLocal8Bit().constData());
        char answer[16] = {};
        return std::fgets(answer, sizeof answer, stdin) && (answer[0] == 'y' || answer[0] == 'Y');
    });
}

// The document controller opens a folder as a new search of it (as a
// window does with a folder dropped on it); here a document is wanted.
bool isFolder(const QString& path)
{
    if (!QFileInfo(path).isDir()) {
        return false;
    }
    printError(QStringLiteral("%1: is a folder, not a search document").arg(path));
    return true;
}

int showDocument(const QString& path)
{
    if (isFolder(path)) {
        return 1;
    }
    index::NoIndexSource source;
    document::DocumentController documents(source);
    askBeforeReplacingBackups(documents);
    Result<document::Document*> opened = documents.openDocumentWithContentsOfURL(path, false);
    if (!opened) {
        printError(opened.error().toString());
        return 1;
    }
    document::Document& document = *opened.value();
    store::ManagedObjectContext& context = document.managedObjectContext();
    document.updateQueryWithPredicate();
    document.updateQueryWithScope();
    document.updateQueryWithExclusion();
    document.updateQueryWithLimit();
    query::MetadataQueryController& controller = *document.metadataQueryController();

    printLine(QStringLiteral("file: %1").arg(QFileInfo(path).absoluteFilePath()));
    if (!document.templateURL().isEmpty()) {
        printLine(QStringLiteral("opens as: an untitled copy of the template \"%1\"").arg(document.templateName()));
    }
    printLine(QStringLiteral("criteria:"));
    if (model::QueryNode* root = model::QueryNode::rootNodeInContext(context)) {
        const QByteArray json = QJsonDocument::fromJson(model::writeCriteriaJson(*root)).toJson(QJsonDocument::Indented);
        for (const QString& line : QString::fromUtf8(json).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            printLine(QStringLiteral("  ") + line);
        }
    }
    const QString expression = controller.expression();
    printLine(QStringLiteral("expression: %1").arg(expression.isNull() ? QStringLiteral("(none)") : expression));
    printLine(QStringLiteral("query: %1").arg(
        expression.isNull() ? QStringLiteral("(none: nothing to search for)")
                            : query::MetadataQueryController::finalQueryString(
                                  expression, model::Defaults::shared().boolValue(QStringLiteral("includeInvisibleFiles")))));
    printLine(QStringLiteral("scopes:"));
    for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
        if (model::Scope* scope = ordered->scope()) {
            printLine(QStringLiteral("  %1").arg(scope->path()));
        }
    }
    printLine(QStringLiteral("exclusions:"));
    for (model::OrderedExclusionScope* ordered : model::OrderedExclusionScope::orderedExclusionScopes(context)) {
        if (model::Scope* scope = ordered->scope()) {
            printLine(QStringLiteral("  %1").arg(scope->path()));
        }
    }
    if (controller.limitValue() > 0) {
        printLine(QStringLiteral("limit: %1 by %2, %3")
                      .arg(controller.limitValue())
                      .arg(controller.limitKey(),
                           controller.limitAscending() ? QStringLiteral("earliest") : QStringLiteral("latest")));
    } else {
        printLine(QStringLiteral("limit: none"));
    }
    printLine(QStringLiteral("columns:"));
    for (model::OrderedColumnAttribute* column : model::OrderedColumnAttribute::orderedColumns(context)) {
        if (model::ColumnAttribute* attribute = column->columnAttribute()) {
            const QVariant width = column->columnWidth();
            printLine(QStringLiteral("  %1%2").arg(attribute->attributeKey(),
                                                   width.isValid() ? QStringLiteral("  %1").arg(width.toDouble())
                                                                   : QString()));
        }
    }
    printLine(QStringLiteral("settings:"));
    Result<std::vector<model::MetaAttribute*>> settings = context.fetch<model::MetaAttribute>(
        {}, {store::SortDescriptor{QStringLiteral("attributeKey"), true, {}}});
    if (settings) {
        for (model::MetaAttribute* setting : *settings) {
            printLine(QStringLiteral("  %1 = %2").arg(setting->attributeKey(), settingText(*setting)));
        }
    }
    return 0;
}

int runDocument(const GlobalOptions& global, const QString& path)
{
    if (isFolder(path)) {
        return 1;
    }
    std::unique_ptr<index::QuerySource> source = openLiveSource(global, false);
    if (!source) {
        return 1;
    }
    presentation::installColumnPropertiesChooser();
    document::DocumentController documents(*source);
    askBeforeReplacingBackups(documents);
    Result<document::Document*> opened = documents.openDocumentWithContentsOfURL(path);
    if (!opened) {
        printError(opened.error().toString());
        return 1;
    }
    document::Document& document = *opened.value();
    query::MetadataQueryController& controller = *document.metadataQueryController();
    bool tooMany = false;
    controller.setAlertPresenter([&](const query::Alert& alert, std::function<void(int)> didEnd) {
        printError(alert.messageText + QStringLiteral(": ") + alert.informativeText);
        tooMany = true;
        didEnd(0);
    });
    if (!document.canStartQuery() && !document.isQueryAlive()) {
        printError(controller.expression().isNull() ? QStringLiteral("%1 has no criteria to search for").arg(path)
                                                    : QStringLiteral("%1 has no places to search").arg(path));
        return 1;
    }
    QObject::connect(&controller, &query::MetadataQueryController::stateChanged,
                     [](query::MetadataQueryController::State state) {
                         if (state == query::MetadataQueryController::State::Live) {
                             QCoreApplication::exit(0);
                         }
                     });
    QuitOnInterrupt interrupt;
    if (!interrupt.isReady()) {
        return 1;
    }
    document.startQuery();
    if (!document.isQueryAlive()) {
        return 1;  // the reason is printed
    }
    const int status = QCoreApplication::exec();
    if (controller.state() == query::MetadataQueryController::State::Live) {
        printResultRows(*controller.results());
        printLine(controller.statusLine());
    }
    document.stopQuery();
    return tooMany ? 1 : status;
}

}  // namespace

int docCommand(const GlobalOptions& global, const QStringList& arguments)
{
    const QString action = arguments.value(0);
    if (action == QLatin1String("new")) {
        return newDocument(arguments.mid(1));
    }
    if ((action == QLatin1String("show") || action == QLatin1String("run")) && arguments.size() == 2) {
        return action == QLatin1String("show") ? showDocument(arguments[1]) : runDocument(global, arguments[1]);
    }
    printError(QString::fromLatin1(kUsage));
    return 2;
}

}  // namespace trovara::cli
