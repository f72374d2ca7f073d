#include "commands.h"

#include "model/criteria_json.h"
#include "model/document_model.h"
#include "model/query_item.h"

#include <QFile>

#include <cstdio>

namespace trovara::cli {

int criteriaText(const QStringList& arguments)
{
    if (arguments.size() != 1) {
        printError(QStringLiteral("usage: trova criteria-text FILE|-"));
        return 2;
    }
    const QString source = arguments.front();
    QFile file;
    bool opened = false;
    if (source == QLatin1String("-")) {
        opened = file.open(stdin, QIODevice::ReadOnly);
    } else {
        file.setFileName(source);
        opened = file.open(QIODevice::ReadOnly);
    }
    if (!opened) {
        printError(QStringLiteral("%1: %2").arg(source, file.errorString()));
        return 2;
    }
    const QByteArray text = file.readAll();
    const QString name = source == QLatin1String("-") ? QStringLiteral("<stdin>") : source;

    std::unique_ptr<store::ManagedObjectContext> context = model::makeDocumentContext();
    Result<model::QueryNode*> root = model::readCriteriaJson(text, *context);
    if (!root) {
        printError(QStringLiteral("%1: %2: %3").arg(name, root.error().description, root.error().reason));
        return 2;
    }
    const QByteArray expression = root.value()->expression().toUtf8();
    std::fwrite(expression.constData(), 1, static_cast<std::size_t>(expression.size()), stdout);
    std::fputc('\n', stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace trovara::cli
