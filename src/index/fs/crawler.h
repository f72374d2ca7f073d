// A parallel walk of folder trees that reports what it finds to a sink.
//
// The crawler reads each folder once (getdents64 through the C library),
// stats every entry (statx, never following symbolic links), and asks the
// sink which entries changed since it last saw them; only for those does it
// read the type and extended attributes. It never follows symbolic links,
// never crosses into virtual file systems (/proc, /sys, /dev, /run and any
// other proc, sysfs, devtmpfs, cgroup, … mount), records folders it cannot
// read and goes on, and stops promptly when its cancel flag is raised.
//
// Threads: folders are read by a pool of worker threads. needsDetails() is
// called from the workers, concurrently; folderScanned() and
// folderUnreadable() are called one at a time (from whichever thread, never
// two at once), each folder before any of its sub-folders. A folder's scan
// holds all its entries. The sink's calls must not throw.
//
// A folder that cannot be opened or listed (no permission, or removed
// between its parent's listing and its own reading: ENOENT) is reported
// through folderUnreadable() and the walk goes on. An entry that vanishes
// between listing and stat is left out of its folder's scan. Sub-folders on
// a virtual file system, the folders /proc, /sys, /dev and /run, excluded
// folders and automount points stay entries of their parent but are not
// entered.
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

struct ScannedEntry {
    FileInfo info;
    // Present when the sink asked for the details of this entry.
    std::optional<FileDetails> details;
};

struct FolderScan {
    std::string path;          // absolute, without a trailing slash ("/" for the root)
    FileInfo self;             // the folder's own stat (its name is the last path component, "/" for the root)
    std::vector<ScannedEntry> entries;  // every entry but "." and "..", in the order the folder lists them
};

class CrawlSink {
public:
    virtual ~CrawlSink() = default;

    // Whether the entry of the folder changed since it was recorded, so that
    // its details must be read. Called concurrently from worker threads,
    // after the whole folder was listed (so `entry.invisible` is final), and
    // possibly for a folder that is then not reported because the walk was
    // cancelled.
    virtual bool needsDetails(std::string_view folderPath, const FileInfo& entry) = 0;

    // A folder and its entries. Sub-folders are scanned after their parent.
    virtual void folderScanned(FolderScan&& scan) = 0;

    // A folder that could not be read (its entries are unknown); `error` is
    // the errno value.
    virtual void folderUnreadable(std::string_view path, int error) = 0;
};

struct CrawlOptions {
    int threads = 0;  // 0: one per core, at least two
    // Raised by another thread (a signal handler may raise it too) to stop
    // the walk; folders already reported stay reported.
    const std::atomic<bool>* cancel = nullptr;
    // Folders not to enter (absolute paths), for example the index's own.
    std::vector<std::string> excludedFolders;
};

// What the sink was told.
struct CrawlStatistics {
    std::uint64_t folders = 0;     // folderScanned() calls
    std::uint64_t files = 0;       // entries of those scans that are not folders (links included)
    std::uint64_t unreadable = 0;  // folderUnreadable() calls
    std::uint64_t detailed = 0;    // entries whose details were read
    bool cancelled = false;        // the cancel flag cut the walk short
};

// Walks the tree under `root` (an absolute path to a folder). Fails only when
// the root itself cannot be read or is not a folder (a symbolic link to one
// is not followed), is not absolute, or is one of the system folders or on a
// virtual file system; everything below is reported to the sink. An excluded
// root is not walked at all. A cancelled walk succeeds, with `cancelled`
// set.
Expected<CrawlStatistics> crawl(const std::string& root, CrawlSink& sink, const CrawlOptions& options = {});

// `path` without doubled slashes and without a trailing one ("/" stays "/").
std::string normalizedPath(std::string_view path);

}  // namespace trovara::index
