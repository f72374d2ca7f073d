// trova import -L | FILE…
#include "commands.h"
#include "services.h"

#include "common/paths.h"
#include "index/fs/file_details.h"
#include "index/import/helper_importer.h"

#include <cstdio>

namespace trovara::cli {

namespace {

int listImporters(index::ContentImporter& importer)
{
    index::Expected<std::vector<index::ImporterInfo>> importers = importer.importers();
    if (!importers) {
        printError(QString::fromStdString(importers.error().message));
        return 1;
    }
    for (const index::ImporterInfo& info : *importers) {
        std::printf("%s %s (%s)\n", info.name.c_str(), info.version.c_str(),
                    info.isPlugin() ? info.path.c_str() : "built in");
        for (const std::string& type : info.contentTypes) {
            std::printf("    %s\n", type.c_str());
        }
    }
    if (auto* helper = dynamic_cast<index::HelperImporter*>(&importer)) {
        for (const std::string& problem : helper->problems()) {
            printError(QStringLiteral("plug-in not loaded: %1").arg(QString::fromStdString(problem)));
        }
    }
    return 0;
}

// What the importers extract from one file, as `trova ls` prints attributes,
// the text content last.
int importFile(index::ContentImporter& importer, const std::vector<index::ImporterInfo>& importers,
               const std::string& path)
{
    index::Expected<index::FileRecord> record = index::readFileRecord(path);
    if (!record) {
        printError(QString::fromStdString(record.error().message));
        return 1;
    }
    const index::TypeDescription& type = index::describeMimeType(record->details.mimeType);
    const index::ImporterInfo* chosen = index::chooseImporter(importers, type);
    if (record->info.kind != index::FileKind::Regular || !chosen) {
        printError(QStringLiteral("%1: no importer reads %2 (%3)")
                       .arg(QString::fromStdString(path), QString::fromStdString(type.mimeType),
                            QString::fromStdString(type.identifier)));
        return 1;
    }
    std::optional<index::ImportOutcome> result;
    index::Expected<void> run = importer.importFiles({{0, path, type.mimeType, chosen->name}},
                                                     [&](const index::ImportJob&, index::ImportOutcome&& outcome) {
                                                         result = std::move(outcome);
                                                     });
    if (!run) {
        printError(QString::fromStdString(run.error().message));
        return 1;
    }
    std::printf("importer = %s\n", chosen->name.c_str());
    if (!result || !result->imported) {
        printError(QStringLiteral("%1: %2").arg(QString::fromStdString(path),
                                                QString::fromStdString(result ? result->error : "not imported")));
        return 1;
    }
    std::map<std::string, index::query::AttributeValue> attributes;
    for (index::ImportedAttribute& attribute : result->attributes) {
        attributes.insert_or_assign(attribute.key, std::move(attribute.value));
    }
    printAttributes(attributes);
    if (result->text) {
        std::printf("kMDItemTextContent = %s\n", quotedText(*result->text).c_str());
        if (result->truncated) {
            std::printf("(the text was cut at the limit, see TROVARA_TEXT_LIMIT)\n");
        }
    }
    return 0;
}

}  // namespace

int importCommand(const GlobalOptions&, const QStringList& arguments)
{
    if (arguments.isEmpty()) {
        printError(QStringLiteral("usage: trova import -L | FILE…"));
        return 2;
    }
    const index::IndexServices services = indexServices();
    if (arguments.size() == 1 && arguments.front() == QLatin1String("-L")) {
        return listImporters(*services.importer);
    }
    index::Expected<std::vector<index::ImporterInfo>> importers = services.importer->importers();
    if (!importers) {
        printError(QString::fromStdString(importers.error().message));
        return 1;
    }
    int status = 0;
    bool first = true;
    for (const QString& argument : arguments) {
        if (!first) {
            std::putchar('\n');
        }
        if (arguments.size() > 1) {
            std::printf("%s:\n", localBytes(argument).c_str());
        }
        first = false;
        std::fflush(stdout);
        status = std::max(status, importFile(*services.importer, *importers, localBytes(argument)));
        std::fflush(stdout);
    }
    return status;
}

}  // namespace trovara::cli
