// trova ls FILE…: every attribute of each file.
#include "commands.h"
#include "services.h"

#include "common/paths.h"
#include "index/item_attributes.h"

#include <QDateTime>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <cstring>
#include <variant>

namespace trovara::cli {

std::string quotedText(const std::string& text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out + '"';
}

namespace {

std::string formatScalar(const index::query::Scalar& scalar)
{
    if (const auto* text = std::get_if<std::string>(&scalar)) {
        return quotedText(*text);
    }
    if (const auto* flag = std::get_if<bool>(&scalar)) {
        return *flag ? "1" : "0";
    }
    if (const auto* date = std::get_if<index::query::Date>(&scalar)) {
        const auto msecs = static_cast<qint64>((date->seconds + index::kReferenceDateOffset) * 1000.0);
        return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC)
            .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"))
            .toStdString();
    }
    const double number = std::get<double>(scalar);
    char text[64];
    if (number == static_cast<double>(static_cast<long long>(number)) && number > -9e18 && number < 9e18) {
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(number));
    } else {
        std::snprintf(text, sizeof text, "%.17g", number);
    }
    return text;
}

std::string formatValue(const index::query::AttributeValue& value)
{
    if (!value.isList()) {
        return value.elements().empty() ? std::string("(null)") : formatScalar(value.elements().front());
    }
    std::string text = "(";
    bool first = true;
    for (const index::query::Scalar& element : value.elements()) {
        text += (first ? "" : ", ") + formatScalar(element);
        first = false;
    }
    return text + ")";
}

// The path with its folders' links resolved, but not a link at its end (ls
// describes the link itself, as the index does).
std::string absolutePath(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    char resolved[PATH_MAX];
    if (name.empty() || name == "." || name == ".." || !::realpath(parent.c_str(), resolved)) {
        return ::realpath(path.c_str(), resolved) ? std::string(resolved) : path;
    }
    const std::string folder(resolved);
    return folder == "/" ? "/" + name : folder + "/" + name;
}

std::uint32_t entryCount(const std::string& folder)
{
    std::uint32_t count = 0;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* entry = ::readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                ++count;
            }
        }
        ::closedir(dir);
    }
    return count;
}

// What the importers find in a file the index does not hold (none when no
// importer serves its type or the import fails).
std::shared_ptr<const index::ImportedAttributes> importNow(const index::IndexServices& services, const std::string& path,
                                                          const index::TypeInfo& type)
{
    if (!services.importer) {
        return nullptr;
    }
    index::Expected<std::vector<index::ImporterInfo>> importers = services.importer->importers();
    const index::ImporterInfo* importer = importers ? index::chooseImporter(*importers, type) : nullptr;
    if (!importer) {
        return nullptr;
    }
    std::shared_ptr<const index::ImportedAttributes> found;
    (void)services.importer->importFiles({{0, path, type.mimeType, importer->name}},
                                         [&](const index::ImportJob&, index::ImportOutcome&& outcome) {
                                             if (outcome.imported) {
                                                 found = std::make_shared<const index::ImportedAttributes>(
                                                     std::move(outcome.attributes));
                                             }
                                         });
    return found;
}

}  // namespace

void printAttributes(const std::map<std::string, index::query::AttributeValue>& attributes)
{
    std::size_t width = 0;
    for (const auto& [key, value] : attributes) {
        width = std::max(width, key.size());
    }
    for (const auto& [key, value] : attributes) {
        std::printf("%-*s = %s\n", static_cast<int>(width), key.c_str(), formatValue(value).c_str());
    }
}

int lsCommand(const GlobalOptions& global, const QStringList& arguments)
{
    if (arguments.isEmpty()) {
        printError(QStringLiteral("usage: trova ls FILE…"));
        return 2;
    }
    const index::IndexServices services = indexServices();
    // The index, when there is one: indexed files show what queries see.
    index::Expected<std::shared_ptr<const index::Catalogue>> catalogue =
        index::Index::catalogue(global.indexDirectory, services);
    int status = 0;
    bool first = true;
    for (const QString& argument : arguments) {
        const std::string given = localBytes(argument);
        index::Expected<index::FileRecord> record = index::readFileRecord(given);
        if (!record) {
            printError(QString::fromStdString(record.error().message));
            status = 1;
            continue;
        }
        if (!first) {
            std::putchar('\n');
        }
        if (arguments.size() > 1) {
            std::printf("%s:\n", record->path.c_str());
        }
        first = false;
        const std::string absolute = absolutePath(record->path);
        std::optional<index::ItemIndex> item;
        if (catalogue) {
            item = catalogue.value()->find(absolute);
        }
        if (item) {
            const index::CatalogueFacts facts(*catalogue.value(), *item);
            printAttributes(index::allAttributes(facts));
            continue;
        }
        index::TypeInfo type = services.types(record->details.mimeType);
        const index::Nanoseconds lastUsed = services.lastUsed(absolute, record->info);
        const std::string path = absolute;
        const bool folder = record->info.kind == index::FileKind::Directory;
        index::FileFacts facts(path, std::move(record->info), std::move(record->details), std::move(type), lastUsed);
        if (folder) {
            facts.setNodeCount(entryCount(path));
        } else if (facts.kind() == index::FileKind::Regular) {
            index::ImportedContent content;
            content.attributes = importNow(services, path, facts.type());
            facts.setImported(std::move(content));
        }
        printAttributes(index::allAttributes(facts));
    }
    return status;
}

}  // namespace trovara::cli
