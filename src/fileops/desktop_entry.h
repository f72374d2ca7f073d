// The application that opens a file, as the freedesktop MIME application
// lists name it, and the command line that hands it the text to find.
//
// The default application of a MIME type comes from the mimeapps.list files
// (desktop-specific ones first, the user's before the system's), then from
// the installed applications' caches, for the type and then for each type it
// descends from (a C source is also plain text).
//
// Programs that take a search option on their command line, so that they
// open the document with the text found and highlighted:
//   okular                    --find TEXT
//   evince, atril, xreader    --find=TEXT
// Any other application opens the file normally.
//
// Thread safety: the functions read the environment and files only.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace trovara::fileops {

// Where desktop entries and MIME application lists are looked for.
struct DesktopLocations {
    QStringList dataDirectories;    // $XDG_DATA_HOME, then $XDG_DATA_DIRS
    QStringList configDirectories;  // $XDG_CONFIG_HOME, then $XDG_CONFIG_DIRS
    QStringList desktops;           // $XDG_CURRENT_DESKTOP, in lower case

    static DesktopLocations fromEnvironment();
};

struct DesktopEntry {
    QString id;    // "org.kde.okular.desktop"
    QString path;  // where the entry was found
    QString name;
    QString exec;  // the Exec line, unexpanded

    // The installed entry of that id, in the "applications" folders.
    static std::optional<DesktopEntry> find(const QString& id, const DesktopLocations& locations);
    static std::optional<DesktopEntry> read(const QString& path, const QString& id);
    // The application that opens files of the MIME type by default.
    static std::optional<DesktopEntry> defaultForMimeType(const QString& mimeType, const DesktopLocations& locations);

    // The words of an Exec line, quoting and escapes undone; field codes are
    // left in place.
    static QStringList splitExec(const QString& exec);
    // The arguments that make `program` (a name or a path) search for the
    // text, or none when it takes no such option.
    static QStringList searchArguments(const QString& program, const QString& text);

    // The command line that opens `path` with `searchText` found, when the
    // entry's program takes a search option; nothing otherwise.
    std::optional<QStringList> searchCommandLine(const QString& path, const QString& searchText) const;
};

}  // namespace trovara::fileops
