// What Trovara asks of the desktop for result files: move them to the
// freedesktop Trash (where the Trash refuses, delete them for good, but only
// after asking), open them with the search text, show them in the file
// manager.
//
// - recycleFile(path, silent): the Trash first. When it refuses (a file
//   system without a Trash folder, no rights), a silent call deletes the
//   file at once; otherwise the person is asked ("The file "NAME" will be
//   deleted immediately.", Delete or Cancel) through the confirmation
//   callback, which answers modally with the index of the button chosen.
// - openURL(url, searchString): the file's default application (desktop
//   entry.h), given the search text where it takes one on its command
//   line; any other application opens the file as the desktop would.
// - revealInFileManager(paths): org.freedesktop.FileManager1.ShowItems on
//   the session bus; when no file manager answers, the folders holding the
//   items are opened instead.
//
// Thread safety: use on the main thread (the confirmation is a dialog).
#pragma once

#include "fileops/desktop_entry.h"
#include "fileops/file_system.h"
#include "query/alert.h"

#include <QDBusConnection>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

namespace trovara::fileops {

class WorkspaceExtras {
public:
    // Answers an alert modally: the index of the button chosen.
    using Confirmation = std::function<int(const query::Alert& alert)>;

    // How programs and folders are opened, replaceable for tests and for the
    // application (which opens URLs through the desktop's portal).
    struct Launcher {
        std::function<bool(const QString& program, const QStringList& arguments)> startDetached;
        std::function<bool(const QUrl& url)> openUrl;
        // Shows the items (file URLs) in the file manager; `done` says
        // whether one did, at once or later.
        std::function<void(const QStringList& uris, std::function<void(bool shown)> done)> showItems;
        // The application that opens files of a MIME type.
        std::function<std::optional<DesktopEntry>(const QString& mimeType)> defaultApplication;
    };

    // Empty parts take the machine's: the local file system, a confirmation
    // that always cancels, QProcess, xdg-open, the session bus and the
    // desktop's MIME application lists.
    explicit WorkspaceExtras(std::shared_ptr<FileSystem> fileSystem = {}, Confirmation confirmation = {},
                             Launcher launcher = {});

    // recycleFile() on every path in order, also after a failure; true only
    // if every one succeeded.
    bool recycleFiles(const QStringList& paths);
    bool recycleFile(const QString& path) { return recycleFile(path, false); }
    bool recycleFile(const QString& path, bool silent);
    // The path the object has in the Trash, or nothing when it could not go
    // there.
    std::optional<QString> moveToTrash(const QString& path);
    // Opens the file so that its application finds the search text. `url`
    // must be a file URL and `searchString` must not be null; anything else
    // is a programming error (std::invalid_argument, "Invalid parameter not
    // satisfying: …"). False when nothing could be started.
    bool openURL(const QUrl& url, const QString& searchString);
    void revealInFileManager(const QStringList& paths);

    // The question asked before a file that cannot go to the Trash is
    // deleted.
    static query::Alert deleteImmediatelyAlert(const QString& fileName);

    // Calls ShowItems on the bus without waiting; `done` gets whether a
    // file manager answered.
    static void showItemsOnBus(const QDBusConnection& bus, const QStringList& uris,
                               std::function<void(bool shown)> done);

private:
    std::shared_ptr<FileSystem> m_fileSystem;
    Confirmation m_confirmation;
    Launcher m_launcher;
};

}  // namespace trovara::fileops
