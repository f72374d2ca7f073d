// Reading what the index knows of one file-system entry: its stat answers
// (FileInfo), whether it is invisible, and its details (MIME type and the
// extended attributes desktop file managers write).
//
// The MIME type comes from shared-mime-info through QMimeDatabase: by name
// first; the first 4 KiB of content are looked at only when the name matches
// no type or several. Folders are "inode/directory", symbolic links
// "inode/symlink" (never followed), devices, pipes and sockets
// "inode/chardevice", "inode/blockdevice", "inode/fifo", "inode/socket".
// Content is read with O_NOATIME where the kernel allows it, so that the
// index's reads do not count as uses of the file.
//
// Extended attributes are read without following links; a file system
// without them, or a file without them, simply has none.
//
// Thread safety: every function may be called from any number of threads at
// once. Nothing here keeps a file descriptor open past the call.
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"

#include <string>
#include <string_view>
#include <vector>

struct statx;

namespace trovara::index {

// The statx fields the index reads; the birth time is asked for and present
// only where the file system records it.
unsigned statxMask();

// Copies statx answers into `info`, leaving its name and invisibility alone.
void fillFileInfo(const struct statx& answers, FileInfo& info);

// A name the desktop hides by convention: it begins with a dot.
inline bool isDotName(std::string_view name)
{
    return !name.empty() && name.front() == '.';
}

// The entries a folder's ".hidden" file lists, one name per line (a
// trailing carriage return is ignored, as are empty lines).
class HiddenNames {
public:
    HiddenNames() = default;
    static HiddenNames parse(std::string_view text);
    // The ".hidden" file of the open folder; empty when it is missing,
    // unreadable or not a regular file. Reads at most 1 MiB.
    static HiddenNames read(int folderFd);

    bool empty() const { return m_names.empty(); }
    bool contains(std::string_view name) const;

private:
    std::vector<std::string> m_names;  // sorted
};

// The stat of the entry `name` of the open folder, not following links.
// `info.name` is `name`; `invisible` is left false.
Expected<FileInfo> statAt(int folderFd, const char* name);

// The stat of a path, not following a link at its end. The name is the last
// component ("/" for the root); the entry is invisible when that name is a
// dot-name or the parent folder's ".hidden" file lists it.
Expected<FileInfo> statPath(const std::string& path);

// The extended attributes of the file at `path` (not following links), or
// of an open file.
ExtendedAttributes readExtendedAttributes(const std::string& path);
ExtendedAttributes readExtendedAttributesOfFile(int fd);

// The details of the entry `info` of the folder open as `folderFd`, whose
// absolute path is `folderPath`. `info` must come from a recent stat of that
// entry; an entry that vanished meanwhile gets what can still be told (its
// type by name or kind, no attributes).
FileDetails readFileDetails(int folderFd, std::string_view folderPath, const FileInfo& info);
// The same for the entry at `path` (whose last component is `info.name`).
FileDetails readFileDetails(const std::string& path, const FileInfo& info);

// Everything about one path, for files the index does not cover.
struct FileRecord {
    std::string path;  // as given, without trailing slashes
    FileInfo info;
    FileDetails details;
};
Expected<FileRecord> readFileRecord(const std::string& path);

}  // namespace trovara::index
