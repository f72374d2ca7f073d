// The watcher's optional second source of events: a fanotify group with
// file-system marks (FAN_MARK_FILESYSTEM), which sees every change on a
// whole file system without one watch per folder. Internal to the watcher
// (watcher.cpp); nothing else should need it.
//
// It needs CAP_SYS_ADMIN (for the group and the marks), CAP_DAC_READ_SEARCH
// (to turn the folder handles events carry into paths, open_by_handle_at)
// and a kernel of 5.9 or later (FAN_REPORT_DFID_NAME); renames are reported
// as pairs from 5.17 (FAN_RENAME), earlier as a removal and a creation.
// Paths are resolved when the event is read, not when it happened, so a
// folder renamed since shows under its new name; a folder removed since is
// left out (its removal is reported by its own event).
//
// Events are not filtered here: they cover whole file systems, and the
// watcher keeps those under its trees.
//
// Thread safety: one thread owns a FanotifySource. It owns its descriptors.
#pragma once

#include "index/expected.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace trovara::index {

class FanotifySource {
public:
    struct Event {
        enum class Kind : std::uint8_t { Created, Deleted, Moved, Written, AttributesChanged, Overflow };
        Kind kind = Kind::Created;
        std::string path;  // the new path of a Moved
        std::string from;  // a Moved's old path
        bool isFolder = false;
    };

    // A new fanotify group, or why there cannot be one.
    static Expected<std::unique_ptr<FanotifySource>> open();
    ~FanotifySource();
    FanotifySource(const FanotifySource&) = delete;
    FanotifySource& operator=(const FanotifySource&) = delete;

    int fd() const { return m_fd; }

    // Marks the file system holding the folder `folder` and checks that its
    // handles can be resolved. Returns a key for removeFileSystem(). Marks
    // are counted: a file system marked twice needs two removals.
    Expected<std::uint64_t> addFileSystem(const std::string& folder);
    void removeFileSystem(std::uint64_t key);
    std::size_t fileSystems() const { return m_fileSystems.size(); }

    // Reads what is pending (a bounded amount per call) and appends the
    // translated events. Returns the number of kernel events read.
    std::size_t read(std::vector<Event>& out);

private:
    struct FileSystem {
        int mountFd = -1;  // any folder on it, for open_by_handle_at
        int marks = 0;
        std::string markPath;
    };

    FanotifySource(int fd, bool hasRename);
    // The current path of the folder whose handle the record (a
    // fanotify_event_info_fid, 4-byte aligned) holds; nullptr when it
    // cannot be told.
    const std::string* folderPath(const char* record);

    int m_fd = -1;
    bool m_hasRename = false;
    std::uint64_t m_mask = 0;
    std::unordered_map<std::uint64_t, FileSystem> m_fileSystems;  // by fsid
    // Folder handle (fsid and handle bytes) → its path. Cleared whenever a
    // folder is renamed or removed, and when it grows large.
    std::unordered_map<std::string, std::string> m_paths;
    std::string m_key;  // scratch for lookups
    std::vector<std::uint64_t> m_buffer;
};

}  // namespace trovara::index
