#include "fileops/workspace_extras.h"

#include "fileops/localized.h"
#include "fileops/transfer.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QProcess>

#include <stdexcept>

namespace trovara::fileops {

namespace {

void require(bool condition, const char* text)
{
    if (!condition) {
        throw std::invalid_argument(std::string("Invalid parameter not satisfying: ") + text);
    }
}

WorkspaceExtras::Launcher completed(WorkspaceExtras::Launcher launcher)
{
    if (!launcher.startDetached) {
        launcher.startDetached = [](const QString& program, const QStringList& arguments) {
            return QProcess::startDetached(program, arguments);
        };
    }
    if (!launcher.openUrl) {
        auto start = launcher.startDetached;
        launcher.openUrl = [start](const QUrl& url) {
            return start(QStringLiteral("xdg-open"), {url.isLocalFile() ? url.toLocalFile() : url.toString()});
        };
    }
    if (!launcher.showItems) {
        launcher.showItems = [](const QStringList& uris, std::function<void(bool)> done) {
            WorkspaceExtras::showItemsOnBus(QDBusConnection::sessionBus(), uris, std::move(done));
        };
    }
    if (!launcher.defaultApplication) {
        launcher.defaultApplication = [](const QString& mimeType) {
            return DesktopEntry::defaultForMimeType(mimeType, DesktopLocations::fromEnvironment());
        };
    }
    return launcher;
}

}  // namespace

WorkspaceExtras::WorkspaceExtras(std::shared_ptr<FileSystem> fileSystem, Confirmation confirmation, Launcher launcher)
    : m_fileSystem(fileSystem ? std::move(fileSystem) : std::make_shared<LocalFileSystem>()),
      m_confirmation(std::move(confirmation)),
      m_launcher(completed(std::move(launcher)))
{
}

bool WorkspaceExtras::recycleFiles(const QStringList& paths)
{
    bool all = true;
    for (const QString& path : paths) {
        all = recycleFile(path) && all;
    }
    return all;
}

query::Alert WorkspaceExtras::deleteImmediatelyAlert(const QString& fileName)
{
    query::Alert alert;
    alert.messageText = localized("The file \"%1\" will be deleted immediately.\nAre you sure you want to continue?").arg(fileName);
    alert.informativeText = localized("You cannot undo this action.");
    alert.buttons = {localized("Delete"), localized("Cancel")};
    alert.critical = true;
    return alert;
}

bool WorkspaceExtras::recycleFile(const QString& path, bool silent)
{
    if (moveToTrash(path)) {
        return true;
    }
    if (!silent) {
        const int answer = m_confirmation ? m_confirmation(deleteImmediatelyAlert(QFileInfo(path).fileName())) : 1;
        if (answer != 0) {
            return false;
        }
    }
    return removeTree(*m_fileSystem, path, false).code == 0;
}

std::optional<QString> WorkspaceExtras::moveToTrash(const QString& path)
{
    QString trashed;
    if (m_fileSystem->moveToTrash(path, &trashed) != 0) {
        return std::nullopt;
    }
    return trashed;
}

bool WorkspaceExtras::openURL(const QUrl& url, const QString& searchString)
{
    require(!url.isEmpty(), "url");
    require(url.isLocalFile(), "[url isFileURL]");
    require(!searchString.isNull(), "searchString");

    // The file itself, not a link to it, decides the application.
    QString path = url.toLocalFile();
    const QString resolved = QFileInfo(path).canonicalFilePath();
    if (!resolved.isEmpty()) {
        path = resolved;
    }
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    if (const std::optional<DesktopEntry> entry = m_launcher.defaultApplication(type.name())) {
        if (const std::optional<QStringList> command = entry->searchCommandLine(path, searchString)) {
            if (m_launcher.startDetached(command->first(), command->mid(1))) {
                return true;
            }
        }
    }
    return m_launcher.openUrl(QUrl::fromLocalFile(path));
}

void WorkspaceExtras::revealInFileManager(const QStringList& paths)
{
    if (paths.isEmpty()) {
        return;
    }
    QStringList uris;
    QStringList folders;
    for (const QString& path : paths) {
        uris.push_back(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
        const QString folder = QFileInfo(path).absolutePath();
        if (!folders.contains(folder)) {
            folders.push_back(folder);
        }
    }
    auto openUrl = m_launcher.openUrl;
    m_launcher.showItems(uris, [openUrl, folders](bool shown) {
        if (shown) {
            return;
        }
        for (const QString& folder : folders) {
            openUrl(QUrl::fromLocalFile(folder));
        }
    });
}

void WorkspaceExtras::showItemsOnBus(const QDBusConnection& bus, const QStringList& uris,
                                     std::function<void(bool)> done)
{
    if (!bus.isConnected()) {
        done(false);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << uris << QString();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                         done(!finished->isError());
                         finished->deleteLater();
                     });
}

}  // namespace trovara::fileops
