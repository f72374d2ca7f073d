#include "fileops/desktop_entry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QTextStream>
#include <QUrl>

#include <map>

namespace trovara::fileops {

namespace {

QString environment(const char* name, const QString& fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

QStringList pathList(const char* name, const QString& fallback)
{
    return environment(name, fallback).split(QLatin1Char(':'), Qt::SkipEmptyParts);
}


// Group → key → value of a desktop-entry style file; later duplicates are
// ignored, as the format says.
using KeyFile = std::map<QString, std::map<QString, QString>>;

std::optional<KeyFile> readKeyFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    KeyFile groups;
    QString group;
    QTextStream stream(&file);
    while (!stream.atEnd()) {
        const QString line = stream.readLine().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) {
            continue;
        }
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            group = line.mid(1, line.size() - 2);
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            continue;
        }
        groups[group].emplace(line.left(equals).trimmed(), line.mid(equals + 1).trimmed());
    }
    return groups;
}

// The escapes of a string value: \s \n \t \r \\.
QString unescapeValue(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value.at(i) != QLatin1Char('\\') || i + 1 == value.size()) {
            out += value.at(i);
            continue;
        }
        const QChar next = value.at(++i);
        switch (next.unicode()) {
        case 's':
            out += QLatin1Char(' ');
            break;
        case 'n':
            out += QLatin1Char('\n');
            break;
        case 't':
            out += QLatin1Char('\t');
            break;
        case 'r':
            out += QLatin1Char('\r');
            break;
        default:
            out += QLatin1Char('\\');
            out += next;
            break;
        }
    }
    return out;
}

QStringList ids(const QString& value)
{
    return value.split(QLatin1Char(';'), Qt::SkipEmptyParts);
}

// The mimeapps.list files, most important first.
QStringList mimeAppsLists(const DesktopLocations& locations)
{
    QStringList folders = locations.configDirectories;
    for (const QString& folder : locations.dataDirectories) {
        folders.push_back(folder + QStringLiteral("/applications"));
    }
    QStringList files;
    for (const QString& folder : folders) {
        for (const QString& desktop : locations.desktops) {
            files.push_back(folder + QLatin1Char('/') + desktop + QStringLiteral("-mimeapps.list"));
        }
        files.push_back(folder + QStringLiteral("/mimeapps.list"));
    }
    return files;
}

QString programName(const QString& program)
{
    return QFileInfo(program).fileName();
}

}  // namespace

DesktopLocations DesktopLocations::fromEnvironment()
{
    DesktopLocations locations;
    locations.dataDirectories = {environment("XDG_DATA_HOME", QDir::homePath() + QStringLiteral("/.local/share"))};
    locations.dataDirectories += pathList("XDG_DATA_DIRS", QStringLiteral("/usr/local/share:/usr/share"));
    locations.configDirectories = {environment("XDG_CONFIG_HOME", QDir::homePath() + QStringLiteral("/.config"))};
    locations.configDirectories += pathList("XDG_CONFIG_DIRS", QStringLiteral("/etc/xdg"));
    for (const QString& desktop : pathList("XDG_CURRENT_DESKTOP", {})) {
        locations.desktops.push_back(desktop.toLower());
    }
    return locations;
}

std::optional<DesktopEntry> DesktopEntry::read(const QString& path, const QString& id)
{
    const std::optional<KeyFile> file = readKeyFile(path);
    if (!file) {
        return std::nullopt;
    }
    const auto group = file->find(QStringLiteral("Desktop Entry"));
    if (group == file->end()) {
        return std::nullopt;
    }
    const auto value = [&](const char* key) {
        const auto found = group->second.find(QString::fromLatin1(key));
        return found == group->second.end() ? QString() : unescapeValue(found->second);
    };
    if (value("Hidden") == QStringLiteral("true")) {
        return std::nullopt;
    }
    return DesktopEntry{id, path, value("Name"), value("Exec")};
}

std::optional<DesktopEntry> DesktopEntry::find(const QString& id, const DesktopLocations& locations)
{
    for (const QString& folder : locations.dataDirectories) {
        const QString path = folder + QStringLiteral("/applications/") + id;
        if (QFileInfo::exists(path)) {
            return read(path, id);
        }
    }
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopEntry::defaultForMimeType(const QString& mimeType,
                                                             const DesktopLocations& locations)
{
    QStringList types{mimeType};
    const QMimeType type = QMimeDatabase().mimeTypeForName(mimeType);
    if (type.isValid()) {
        types.replace(0, type.name());
        types += type.allAncestors();
    }
    std::vector<KeyFile> lists;
    for (const QString& path : mimeAppsLists(locations)) {
        if (std::optional<KeyFile> file = readKeyFile(path)) {
            lists.push_back(std::move(*file));
        }
    }
    std::vector<KeyFile> caches;
    for (const QString& folder : locations.dataDirectories) {
        if (std::optional<KeyFile> file = readKeyFile(folder + QStringLiteral("/applications/mimeinfo.cache"))) {
            caches.push_back(std::move(*file));
        }
    }
    const auto firstInstalled = [&locations](const std::vector<KeyFile>& files, const char* groupName,
                                   const QString& name) -> std::optional<DesktopEntry> {
        for (const KeyFile& file : files) {
            const auto group = file.find(QString::fromLatin1(groupName));
            if (group == file.end()) {
                continue;
            }
            const auto value = group->second.find(name);
            if (value == group->second.end()) {
                continue;
            }
            for (const QString& id : ids(value->second)) {
                if (std::optional<DesktopEntry> entry = find(id, locations)) {
                    return entry;
                }
            }
        }
        return std::nullopt;
    };
    for (const QString& name : std::as_const(types)) {
        for (const auto& [files, group] : {std::pair{&lists, "Default Applications"},
                                           std::pair{&lists, "Added Associations"},
                                           std::pair{&caches, "MIME Cache"}}) {
            if (std::optional<DesktopEntry> entry = firstInstalled(*files, group, name)) {
                return entry;
            }
        }
    }
    return std::nullopt;
}

QStringList DesktopEntry::splitExec(const QString& exec)
{
    QStringList words;
    QString word;
    bool inWord = false;
    bool quoted = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec.at(i);
        if (quoted) {
            if (c == QLatin1Char('\\') && i + 1 < exec.size()) {
                word += exec.at(++i);
            } else if (c == QLatin1Char('"')) {
                quoted = false;
            } else {
                word += c;
            }
        } else if (c == QLatin1Char('"')) {
            quoted = true;
            inWord = true;
        } else if (c.isSpace()) {
            if (inWord) {
                words.push_back(word);
                word.clear();
                inWord = false;
            }
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) {
        words.push_back(word);
    }
    return words;
}

QStringList DesktopEntry::searchArguments(const QString& program, const QString& text)
{
    const QString name = programName(program);
    if (name == QStringLiteral("okular")) {
        return {QStringLiteral("--find"), text};
    }
    if (name == QStringLiteral("evince") || name == QStringLiteral("atril") || name == QStringLiteral("xreader")) {
        return {QStringLiteral("--find=") + text};
    }
    return {};
}

std::optional<QStringList> DesktopEntry::searchCommandLine(const QString& path, const QString& searchText) const
{
    const QStringList words = splitExec(exec);
    if (words.isEmpty() || searchText.isEmpty()) {
        return std::nullopt;
    }
    const QStringList search = searchArguments(words.first(), searchText);
    if (search.isEmpty()) {
        return std::nullopt;
    }
    QStringList command{words.first()};
    command += search;
    bool placed = false;
    for (qsizetype i = 1; i < words.size(); ++i) {
        const QString& word = words.at(i);
        if (word == QStringLiteral("%f") || word == QStringLiteral("%F")) {
            command.push_back(path);
            placed = true;
        } else if (word == QStringLiteral("%u") || word == QStringLiteral("%U")) {
            command.push_back(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
            placed = true;
        } else if (word.size() == 2 && word.startsWith(QLatin1Char('%'))) {
            // %i, %c, %k and the deprecated codes stand for nothing here.
            continue;
        } else {
            command.push_back(QString(word).replace(QStringLiteral("%%"), QStringLiteral("%")));
        }
    }
    if (!placed) {
        command.push_back(path);
    }
    return command;
}

}  // namespace trovara::fileops
