// One transfer of a file operation job: the item at a source path arrives at
// a destination path by copying, moving or linking, and nothing is lost on
// the way.
//
// - A file of up to 8 MiB is copied under its own name, created only where
//   nothing is and removed again when the copy fails or is aborted. Larger
//   files, folders and copies that replace an existing entry are written
//   under a hidden temporary name in the destination folder and renamed
//   into place only when complete. Either way a failed or aborted copy
//   leaves nothing half-written behind.
// - A copy keeps the permissions, the modification and access times and
//   the user extended attributes of its original (as a file manager's copy
//   does, and unlike a plain `cp -r`, which drops all three).
// - A move on one file system is a rename. A move across file systems
//   copies under a temporary name, checks that the copy has the same files
//   and sizes as the source, writes it to the disk, renames it into place
//   and only then removes the source.
// - An entry already at the destination (the user chose "Overwrite") goes to
//   the Trash, never away for good; when the Trash refuses, the transfer is
//   not made ("Cannot delete conflicting file").
// - A link is made by running "/bin/ln -s SOURCE DESTINATION".
//
// Folders are transferred whole, with their links (as links), permissions,
// times and user extended attributes.
//
// Thread safety: the functions keep no state; they may run on several
// threads at once over one FileSystem.
#pragma once

#include "common/error.h"
#include "fileops/file_system.h"

#include <QString>

#include <atomic>
#include <cstdint>

namespace trovara::fileops {

// The operation kind of a job, with its stored codes.
enum class FileOperation : std::uint32_t { Copy = 1, Move = 2, Alias = 3 };

// The user-facing errors of a transfer that are not the file system's own.
// Both name the destination as the likely cause.
Error cannotDeleteConflictingFileError();
Error cannotCreateAliasError();

// Transfers `source` to `destination` (a full path; its folder exists).
// ECANCELED-style aborts happen only when `abort` turns true while a file is
// copied: the partial copy is removed and the source is untouched.
Status performTransfer(FileSystem& fileSystem, FileOperation operation, const QString& source,
                       const QString& destination, const std::atomic<bool>* abort = nullptr);

// Whether `folder` is `ancestor` or lies inside it, judged by the file
// system's own identity of folders (links and "." or ".." in either path do
// not fool it). False when either cannot be examined.
bool isInsideFolder(FileSystem& fileSystem, const QString& folder, const QString& ancestor);

struct RemoveFailure {
    int code = 0;  // errno of the first entry that could not be removed
    QString path;
};
// Removes the entry at `path`, a folder with everything in it. Goes on after
// a failure and reports the first one. With `ours`, folders are made
// writable first (for the job's own temporary copies).
RemoveFailure removeTree(FileSystem& fileSystem, const QString& path, bool ours);

// A hidden, unused name in `folder` for a copy in progress.
QString partialPathInFolder(const QString& folder);

// Twelve characters of [A-Za-z0-9], from a thread-safe random source.
QString uniqueNameCharacters();

}  // namespace trovara::fileops
