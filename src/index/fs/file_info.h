// What the index learns about one file from the file system, before any
// importer has looked inside it: the answers of statx, the file's type, and
// the extended attributes desktop file managers write.
//
// Plain values; safe to copy between threads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovara::index {

// A point in time as nanoseconds since 1970-01-01 00:00:00 UTC.
using Nanoseconds = std::int64_t;

enum class FileKind : std::uint8_t {
    Regular,
    Directory,
    Symlink,  // never followed
    Other,    // devices, sockets, pipes
};

struct FileInfo {
    std::string name;  // the entry's name as the file system has it (bytes, usually UTF-8)
    FileKind kind = FileKind::Regular;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint32_t mode = 0;  // permission bits and type, as st_mode
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::int64_t size = 0;   // bytes; meaningful for regular files and links
    Nanoseconds modified = 0;
    Nanoseconds changed = 0;
    Nanoseconds accessed = 0;
    std::optional<Nanoseconds> born;  // when the file system records a birth time
    // A dot-name, or listed in the containing folder's ".hidden" file.
    bool invisible = false;
};

// Extended attributes as desktop file managers write them.
struct ExtendedAttributes {
    std::optional<std::string> comment;   // user.xdg.comment
    std::vector<std::string> tags;        // user.xdg.tags, comma-separated
    std::vector<std::string> whereFroms;  // user.xdg.origin.url, then user.xdg.referrer.url
    std::optional<int> label;             // user.trovara.label, 0 to 7

    bool operator==(const ExtendedAttributes&) const = default;
};

// The details that cost more than a stat: the file's type and its extended
// attributes. The crawler reads them only for entries that changed.
struct FileDetails {
    std::string mimeType;  // shared-mime-info name, e.g. "image/png", "inode/directory"
    ExtendedAttributes attributes;
};

}  // namespace trovara::index
