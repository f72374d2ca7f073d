#include "app/file_manager_actions.h"

#include "document/document_store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace trovara::app {

namespace {

Error installError(const QString& path, const QString& reason)
{
    return Error::make(Error::kNone,
                       QStringLiteral("The file manager action \"%1\" could not be installed.").arg(path), reason);
}

Result<QByteArray> readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return installError(path, file.errorString());
    }
    return file.readAll();
}

// Writes the whole file or nothing: an existing file stays as it was when
// anything fails.
Status writeFile(const QString& path, const QByteArray& contents, bool executable)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        return installError(path, QStringLiteral("Its folder cannot be made."));
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) {
        return installError(path, file.errorString());
    }
    if (executable) {
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser |
                            QFileDevice::ExeGroup | QFileDevice::ExeOther);
    }
    if (!file.commit()) {
        return installError(path, file.errorString());
    }
    return {};
}

// Thunar's uca.xml with the action added (unchanged when it is there).
Result<QByteArray> mergedThunarActions(const QString& path, const QByteArray& action)
{
    if (!QFileInfo::exists(path)) {
        return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n") + action +
               QByteArray("</actions>\n");
    }
    Result<QByteArray> existing = readFile(path);
    if (!existing) {
        return existing;
    }
    QByteArray actions = existing.value();
    if (actions.contains(FileManagerActions::kThunarActionId)) {
        return actions;
    }
    const qsizetype end = actions.lastIndexOf("</actions>");
    if (end < 0) {
        return installError(path, QStringLiteral("It is not a list of Thunar custom actions; it was left as it is."));
    }
    actions.insert(end, action);
    return actions;
}

}  // namespace

QString FileManagerActions::sourceFolder()
{
    for (const QString& folder : document::resourceFolders()) {
        const QString actions = folder + QStringLiteral("/file-manager");
        if (QFileInfo::exists(actions + QLatin1Char('/') + QLatin1String(kThunarAction))) {
            return actions;
        }
    }
    return {};
}

Result<QStringList> FileManagerActions::install(const QString& sourceFolder, const QString& dataHome,
                                                const QString& configHome)
{
    struct Copy {
        const char* source;
        QString target;
        bool executable;
    };
    const Copy copies[] = {
        {kDolphinMenu, dataHome + QStringLiteral("/kio/servicemenus/") + QLatin1String(kDolphinMenu), true},
        {kNautilusScript, dataHome + QStringLiteral("/nautilus/scripts/") + QLatin1String(kActionName), true},
        {kNemoAction, dataHome + QStringLiteral("/nemo/actions/") + QLatin1String(kNemoAction), false},
    };
    // Everything is read first, so that a missing file installs nothing.
    std::vector<QByteArray> contents;
    for (const Copy& copy : copies) {
        Result<QByteArray> read = readFile(sourceFolder + QLatin1Char('/') + QLatin1String(copy.source));
        if (!read) {
            return read.error();
        }
        contents.push_back(read.value());
    }
    Result<QByteArray> action = readFile(sourceFolder + QLatin1Char('/') + QLatin1String(kThunarAction));
    if (!action) {
        return action.error();
    }
    const QString thunar = configHome + QStringLiteral("/Thunar/uca.xml");
    Result<QByteArray> merged = mergedThunarActions(thunar, action.value());
    if (!merged) {
        return merged.error();
    }

    QStringList written;
    for (size_t i = 0; i < std::size(copies); ++i) {
        if (Status saved = writeFile(copies[i].target, contents[i], copies[i].executable); !saved) {
            return saved.error();
        }
        written << copies[i].target;
    }
    if (Status saved = writeFile(thunar, merged.value(), false); !saved) {
        return saved.error();
    }
    written << thunar;
    return written;
}

Result<QStringList> FileManagerActions::installForUser()
{
    const QString source = sourceFolder();
    if (source.isEmpty()) {
        return installError(QLatin1String(kActionName), QStringLiteral("Trovara's copy of the actions is missing."));
    }
    return install(source, QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation),
                   QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
}

}  // namespace trovara::app
