// Watches folder trees for changes and reports them as a clean stream of
// changes by path, so that the index (and every open search) stays true
// while files change. The watcher only notices; reading the changed entries
// and applying them is the caller's work (the live index).
//
// How it notices: an inotify watch on every folder of the watched trees,
// within a budget (a share of the user's inotify watch limit, which other
// programs need too). Folders beyond the budget, and folders on network file
// systems (whose remote changes inotify never sees), are polled: their
// modification and change times are compared at every poll, and each is
// reported for a full rescan at a long interval, because editing a file does
// not touch its folder's times. Where the process has the privilege and the
// caller asks for it, a fanotify file-system mark replaces the per-folder
// watches (see WatcherOptions::useFanotify).
//
// Like the crawler, the watcher never follows symbolic links, never enters
// virtual file systems nor /proc, /sys, /dev, /run, and never enters
// excluded folders. An excluded folder is an entry of its parent like any
// other (the crawler lists it too), so its own creation, removal or renaming
// is reported; nothing inside it ever is.
//
// The contract of the change stream:
//  - A change says where to look, not what is there: the caller reads the
//    entry's current state when it applies the change. Changes come in
//    batches (one readChanges() or pollDue() call), and every change of a
//    batch happened before the call returned, so a change may be left out
//    when an earlier change of the same batch already makes the caller read
//    that state (a file created and written within one batch is one
//    Created; everything inside a folder created within the batch is left
//    to the crawl of that folder).
//  - Changes of one path come in the order they happened, across batches
//    too. Changes of different paths may be reordered only where the order
//    does not matter to a caller applying them one after the other.
//  - Created: a new entry at `path`. For a folder, crawl it: its contents
//    are not reported one by one (they may predate the watch on it). A
//    Created for an entry the caller already has means "read it again" (a
//    folder: crawl it again).
//  - Every change that makes the caller read a path (Created,
//    ContentChanged, AttributesChanged) may find the entry gone by then:
//    the caller removes what it has at that path, with everything below it
//    (its removal may not be reported separately).
//  - Deleted: the entry at `path` is gone, with everything below it.
//  - Moved: the entry at `from` (with everything below it) now lives at
//    `path`, replacing whatever was there. A Moved from a path the caller
//    does not have is a Created of `path`. A Moved is reported only when
//    both halves of the rename were seen within the pairing window; a move
//    in from an unwatched place is a Created, a move out to an unwatched
//    place a Deleted (reported once the pairing window has passed). Changes
//    below the old path that the caller may have read too late (in this
//    batch or the one before, the entry being gone already) are repeated
//    under the new path after the Moved.
//  - ContentChanged: the file's contents were written; read the entry again
//    (its stat, type and extended attributes). A write that ends with the
//    writer closing the file (a save) is reported at once; writes into a
//    file held open are coalesced: one change when writing pauses for the
//    quiet period, and at least one per maximum delay while writing goes on.
//  - AttributesChanged: permissions, owner, times or extended attributes
//    (tags, comments) changed; stat it and read its extended attributes
//    again. Coalesced like writes.
//  - FolderChanged: a polled folder's entries may have changed: list it,
//    add the entries that are new (crawling new folders), remove those that
//    vanished (with everything below them), read again those whose stat
//    changed.
//  - TreeMayHaveChanged: changes under `path` may have been missed (the
//    kernel queue overflowed, a watched root was removed or moved away, a
//    file system was unmounted below it, or a missing root came back):
//    crawl the whole tree under `path` again. When `path` is a watched root
//    that is gone, the crawl finds it missing; the watcher keeps looking for
//    it at every poll and reports TreeMayHaveChanged again when it is back.
//
// The caller applies each batch before it asks for the next one (the
// repeats after a Moved rely on that).
//
// Time is given by the caller (`now`, wall-clock nanoseconds since the Unix
// epoch, the clock file times come from): the watcher never reads a clock
// and never sleeps, so the caller decides how long to wait
// (nextDeadline()). It must be the wall clock because a polled folder's
// times are trusted only once they are older than the file system's time
// granularity (2 s, FAT's): a folder whose times are more recent than that
// is listed again at the next poll, as a change within the same tick would
// not move them.
//
// Invariants: a folder is watched only when its parent is watched (or it is
// a root), so every entry's creation, removal and renaming is seen by the
// one watch of its parent; the folders below a polled folder are polled
// too. Watched trees never nest in one another.
//
// Ownership: a Watcher owns its inotify descriptor (and, with fanotify, the
// fanotify and epoll descriptors); they are closed with it.
//
// Thread safety: none. One thread owns a Watcher and makes every call; it
// may be moved to another thread between calls.
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace trovara::index {

struct FileChange {
    enum class Kind : std::uint8_t {
        Created,
        Deleted,
        Moved,  // from → path
        ContentChanged,
        AttributesChanged,
        FolderChanged,       // a polled folder: list its entries again
        TreeMayHaveChanged,  // crawl the whole tree under path again
    };
    Kind kind = Kind::Created;
    std::string path;  // absolute; the new path of a Moved
    std::string from;  // a Moved's old path; empty otherwise
    bool isFolder = false;

    bool operator==(const FileChange&) const = default;
};

const char* toString(FileChange::Kind kind);

constexpr Nanoseconds kMillisecond = 1'000'000;
constexpr Nanoseconds kSecond = 1'000 * kMillisecond;

struct WatcherOptions {
    // The share of the user's inotify watch limit
    // (/proc/sys/fs/inotify/max_user_watches) the watcher may use.
    double watchShare = 0.5;
    // When above zero, the watch budget instead (tests, or a caller that
    // knows better).
    std::size_t maxWatches = 0;
    // How long the first half of a rename waits for its second half.
    Nanoseconds pairingWindow = 100 * kMillisecond;
    // A file written and kept open is reported once writing has paused this
    // long …
    Nanoseconds writeQuietPeriod = 250 * kMillisecond;
    // … and at least this often while writing goes on.
    Nanoseconds writeMaxDelay = 1 * kSecond;
    // How often polled folders (and missing roots) are looked at.
    Nanoseconds pollInterval = 10 * kSecond;
    // How often each polled folder is reported for a full rescan.
    Nanoseconds fullRescanInterval = 3600 * kSecond;
    // Use a fanotify file-system mark instead of per-folder inotify watches
    // where the kernel (5.9 or later) and the process's privileges
    // (CAP_SYS_ADMIN, CAP_DAC_READ_SEARCH) allow it. Trees where it cannot
    // be used are watched with inotify.
    bool useFanotify = false;
};

struct WatcherStatistics {
    std::size_t watchedFolders = 0;     // folders with an inotify watch
    std::size_t polledFolders = 0;      // folders looked at by polling
    std::size_t watchBudget = 0;        // inotify watches the watcher may use
    std::size_t kernelWatchLimit = 0;   // max_user_watches (0 when unknown)
    std::size_t roots = 0;              // watched trees
    std::size_t missingRoots = 0;       // trees whose root is gone, looked for at every poll
    std::size_t fanotifyRoots = 0;      // trees watched through fanotify
    std::size_t fanotifyFileSystems = 0;
    std::uint64_t events = 0;           // kernel events read
    std::uint64_t overflows = 0;        // kernel queue overflows
    bool fanotifyAvailable = false;     // fanotify was asked for and could be initialised
    std::string fanotifyProblem;        // why fanotify is not in use, when it was asked for
};

// Something the watcher could not do, for the caller to show or log.
struct WatchProblem {
    std::string path;
    int error = 0;  // errno value
    std::string message;
};

struct WatchTreeReport {
    std::size_t watchedFolders = 0;
    std::size_t polledFolders = 0;
    std::size_t unreadableFolders = 0;  // neither watched nor polled; see takeProblems()
    bool fanotify = false;              // the tree is watched through a fanotify mark
};

// The kernel side of inotify. The watcher uses the real one unless given
// another, which lets tests inject events the kernel will not produce on
// demand (a queue overflow, a rename split across reads) and refusals (the
// watch limit).
class InotifyInterface {
public:
    virtual ~InotifyInterface() = default;
    // Readable when events are pending; non-blocking.
    virtual int fd() const = 0;
    // inotify_add_watch(): a watch descriptor, or -1 with errno set.
    virtual int addWatch(const char* path, std::uint32_t mask) = 0;
    virtual int removeWatch(int wd) = 0;
    // read() on the descriptor: bytes read, or -1 with errno set (EAGAIN
    // when nothing is pending).
    virtual ssize_t read(void* buffer, std::size_t size) = 0;
};

// A new inotify instance of the kernel (non-blocking, close-on-exec).
Expected<std::unique_ptr<InotifyInterface>> openKernelInotify();

class Watcher {
public:
    // Fails when no inotify instance can be had (the per-user instance
    // limit, or a kernel without inotify). A refused fanotify is not a
    // failure: see WatcherStatistics::fanotifyProblem.
    static Expected<Watcher> create(const WatcherOptions& options = {},
                                    std::unique_ptr<InotifyInterface> inotify = nullptr);

    Watcher(Watcher&&) noexcept;
    Watcher& operator=(Watcher&&) noexcept;
    ~Watcher();

    // Starts watching the tree under `root` (an absolute path to a folder,
    // not a symbolic link), leaving out `excludedFolders` (absolute paths).
    // Fails when the root cannot be read, is not a folder, is a system
    // folder or on a virtual file system, or lies inside (or around) a tree
    // already watched. Folders below that cannot be read are left out and
    // told through takeProblems().
    Expected<WatchTreeReport> watchTree(const std::string& root, const std::vector<std::string>& excludedFolders,
                                        Nanoseconds now);
    // Stops watching the tree whose root is `root`; pending changes of it
    // are dropped.
    Expected<void> unwatchTree(const std::string& root);

    // A descriptor that is readable when kernel events are pending, for the
    // caller's poll/epoll loop. Owned by the watcher.
    int fd() const;
    // Drains the kernel's queue and returns the changes that are ready.
    std::vector<FileChange> readChanges(Nanoseconds now);
    // Returns the changes whose time has come: move-outs whose pairing
    // window ended, coalesced writes, polled folders.
    std::vector<FileChange> pollDue(Nanoseconds now);
    // When pollDue() has something to do next; the largest Nanoseconds
    // value when nothing is waiting.
    Nanoseconds nextDeadline() const;

    WatcherStatistics statistics() const;
    // What went wrong since the last call (unreadable folders, the kernel's
    // watch limit reached, …).
    std::vector<WatchProblem> takeProblems();

private:
    class Impl;
    explicit Watcher(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace trovara::index
