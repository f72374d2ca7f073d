#include "index/fs/watcher.h"

#include "index/fs/crawler.h"
#include "index/fs/fanotify_source.h"
#include "index/fs/file_details.h"
#include "index/fs/mounts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <map>
#include <string_view>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

namespace trovara::index {

namespace {

// What every folder watch asks for. IN_DONT_FOLLOW and IN_ONLYDIR make a
// folder replaced by a link (or a file) fail rather than be followed;
// IN_EXCL_UNLINK keeps writes to already unlinked files quiet.
constexpr std::uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_CLOSE_WRITE
                                     | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW
                                     | IN_EXCL_UNLINK;
constexpr std::size_t kEventBufferBytes = 64 * 1024;
// Reads per readChanges(); what is left waits for the next call (the
// descriptor stays readable), so that a flood cannot hold the caller.
constexpr int kMaxReadsPerCall = 64;
constexpr std::size_t kDirectoryBufferBytes = 32 * 1024;
// Used when max_user_watches cannot be read: the kernel's old default.
constexpr std::size_t kFallbackWatchLimit = 8192;
// A folder whose times are this close to the moment they were read may
// change again within the file system's time granularity without its times
// moving (FAT keeps 2 s): it is listed again at the next poll regardless.
constexpr Nanoseconds kRacyMargin = 2 * kSecond;
constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();
constexpr int kFolderOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kStatFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_SYNC_AS_STAT;

std::string errorText(int error)
{
    return std::strerror(error);
}

Nanoseconds nanoseconds(const struct statx_timestamp& time)
{
    return static_cast<Nanoseconds>(time.tv_sec) * kSecond + time.tv_nsec;
}

Nanoseconds nanoseconds(const struct timespec& time)
{
    return static_cast<Nanoseconds>(time.tv_sec) * kSecond + time.tv_nsec;
}

// Whether `path` is `folder` or lies below it (by path components).
bool isInside(std::string_view path, std::string_view folder)
{
    if (folder == "/") {
        return !path.empty() && path.front() == '/';
    }
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// "/a/b" → "/a", "/a" → "/", "/" → "".
std::string_view parentOf(std::string_view path)
{
    if (path.size() <= 1) {
        return {};
    }
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

void appendJoined(std::string& out, std::string_view folder, std::string_view name)
{
    out.append(folder);
    if (out.empty() || out.back() != '/') {
        out.push_back('/');
    }
    out.append(name);
}

std::string joined(std::string_view folder, std::string_view name)
{
    std::string path;
    path.reserve(folder.size() + 1 + name.size());
    appendJoined(path, folder, name);
    return path;
}

// `path` with `from` at its start replaced by `to` (`path` is inside `from`).
std::string rebased(std::string_view path, std::string_view from, std::string_view to)
{
    std::string out(to);
    std::string_view rest = path.substr(from == "/" ? 0 : from.size());
    if (!rest.empty() && !out.empty() && out.back() == '/' && rest.front() == '/') {
        rest.remove_prefix(1);
    }
    out.append(rest);
    return out;
}

// The keys of an ordered map that are `folder` or lie below it. Keys that
// merely begin with the folder's name ("/a/b c" for "/a/b") sort among
// them and are skipped.
template <typename Map>
std::vector<std::string> keysInside(const Map& map, std::string_view folder)
{
    std::vector<std::string> keys;
    for (auto it = map.lower_bound(folder); it != map.end() && std::string_view(it->first).starts_with(folder); ++it) {
        if (isInside(it->first, folder)) {
            keys.push_back(it->first);
        }
    }
    return keys;
}

struct StringHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};
using StringSet = std::unordered_set<std::string, StringHash, std::equal_to<>>;

class KernelInotify final : public InotifyInterface {
public:
    explicit KernelInotify(int fd)
        : m_fd(fd)
    {
    }
    ~KernelInotify() override { ::close(m_fd); }
    KernelInotify(const KernelInotify&) = delete;
    KernelInotify& operator=(const KernelInotify&) = delete;

    int fd() const override { return m_fd; }
    int addWatch(const char* path, std::uint32_t mask) override { return ::inotify_add_watch(m_fd, path, mask); }
    int removeWatch(int wd) override { return ::inotify_rm_watch(m_fd, wd); }
    ssize_t read(void* buffer, std::size_t size) override { return ::read(m_fd, buffer, size); }

private:
    int m_fd;
};

std::size_t readKernelWatchLimit()
{
    const int fd = ::open("/proc/sys/fs/inotify/max_user_watches", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return 0;
    }
    char text[32] = {};
    const ssize_t length = ::read(fd, text, sizeof text - 1);
    ::close(fd);
    if (length <= 0) {
        return 0;
    }
    return static_cast<std::size_t>(std::strtoull(text, nullptr, 10));
}

// One watched tree.
struct Tree {
    std::string root;
    std::vector<std::string> excluded;  // normalized absolute paths
    bool fanotify = false;              // watched through fanotify marks, not per-folder watches
    std::vector<std::uint64_t> fanotifyKeys;
    bool missing = false;  // the root is gone; looked for at every poll
};

struct WatchRecord {
    std::string path;
    Tree* tree = nullptr;
    std::uint64_t device = 0;  // the watched folder's identity
    std::uint64_t inode = 0;
    std::uint64_t generation = 0;
};

struct PolledFolder {
    Tree* tree = nullptr;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    Nanoseconds modified = 0;
    Nanoseconds changed = 0;
    Nanoseconds nextFullRescan = 0;
    bool racy = false;  // its times were too recent to be trusted
    std::uint64_t generation = 0;
};

// The first half of a rename, waiting for its second.
struct PendingMove {
    std::uint32_t cookie = 0;
    std::string path;
    bool isFolder = false;
    Nanoseconds deadline = 0;
};

// Writes (or attribute changes) of one entry, waiting for a pause.
struct PendingWrite {
    Nanoseconds first = 0;
    Nanoseconds last = 0;
    bool content = false;  // else only attributes
    bool isFolder = false;
    bool closed = false;  // the writer closed the file: nothing more is coming
};

// A reported change that makes the caller read its path.
struct ReadChange {
    FileChange::Kind kind = FileChange::Kind::Created;
    bool isFolder = false;
};

struct WalkItem {
    std::string path;
    std::uint64_t parentDevice = 0;  // 0: unknown, check the folder's file system
    bool parentWatched = true;
};

}  // namespace

const char* toString(FileChange::Kind kind)
{
    switch (kind) {
    case FileChange::Kind::Created:
        return "Created";
    case FileChange::Kind::Deleted:
        return "Deleted";
    case FileChange::Kind::Moved:
        return "Moved";
    case FileChange::Kind::ContentChanged:
        return "ContentChanged";
    case FileChange::Kind::AttributesChanged:
        return "AttributesChanged";
    case FileChange::Kind::FolderChanged:
        return "FolderChanged";
    case FileChange::Kind::TreeMayHaveChanged:
        return "TreeMayHaveChanged";
    }
    return "?";
}

Expected<std::unique_ptr<InotifyInterface>> openKernelInotify()
{
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        return Failure{Failure::Kind::Io,
                       "Cannot watch for file changes: "
                           + (error == EMFILE ? std::string("the per-user limit of inotify instances is reached "
                                                            "(/proc/sys/fs/inotify/max_user_instances)")
                                              : errorText(error))};
    }
    return std::unique_ptr<InotifyInterface>(std::make_unique<KernelInotify>(fd));
}

class Watcher::Impl {
public:
    Impl(const WatcherOptions& options, std::unique_ptr<InotifyInterface> inotify)
        : m_options(options)
        , m_inotify(std::move(inotify))
        , m_eventBuffer(kEventBufferBytes / sizeof(std::uint64_t))
        , m_directoryBuffer(kDirectoryBufferBytes / sizeof(std::uint64_t))
    {
        m_kernelLimit = readKernelWatchLimit();
        if (m_options.maxWatches > 0) {
            m_budget = m_options.maxWatches;
        } else {
            const double share = std::clamp(m_options.watchShare, 0.0, 1.0);
            const std::size_t limit = m_kernelLimit > 0 ? m_kernelLimit : kFallbackWatchLimit;
            m_budget = static_cast<std::size_t>(static_cast<double>(limit) * share);
        }
        if (auto table = MountTable::current()) {
            for (const Mount& mount : table->mounts()) {
                const std::uint64_t device = makedev(mount.major, mount.minor);
                if (mount.kind == MountKind::Virtual) {
                    m_virtualDevices.push_back(device);
                } else if (mount.kind == MountKind::Network) {
                    m_networkDevices.push_back(device);
                }
            }
            m_mounts = std::move(table.value());
        }
        std::sort(m_virtualDevices.begin(), m_virtualDevices.end());
        std::sort(m_networkDevices.begin(), m_networkDevices.end());
    }

    ~Impl()
    {
        if (m_epoll >= 0) {
            ::close(m_epoll);
        }
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void startFanotify()
    {
        auto source = FanotifySource::open();
        if (!source) {
            m_fanotifyProblem = source.error().message;
            return;
        }
        m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
        if (m_epoll < 0) {
            m_fanotifyProblem = "fanotify is not used: cannot create an epoll descriptor: " + errorText(errno);
            return;
        }
        for (const int fd : {m_inotify->fd(), source.value()->fd()}) {
            struct epoll_event interest {};
            interest.events = EPOLLIN;
            interest.data.fd = fd;
            if (::epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &interest) != 0) {
                m_fanotifyProblem = "fanotify is not used: " + errorText(errno);
                ::close(m_epoll);
                m_epoll = -1;
                return;
            }
        }
        m_fanotify = std::move(source.value());
    }

    // ---- the interface ------------------------------------------------

    Expected<WatchTreeReport> watchTree(const std::string& givenRoot, const std::vector<std::string>& excludedFolders,
                                        Nanoseconds now)
    {
        if (givenRoot.empty() || givenRoot.front() != '/') {
            return Failure{Failure::Kind::InvalidArgument, "The folder to watch must be an absolute path: \"" + givenRoot + "\""};
        }
        const std::string root = normalizedPath(givenRoot);
        if (isSystemFolder(root)) {
            return Failure{Failure::Kind::InvalidArgument, root + " holds the system's own files and is never watched."};
        }
        for (const auto& tree : m_trees) {
            if (isInside(root, tree->root) || isInside(tree->root, root)) {
                return Failure{Failure::Kind::InvalidArgument,
                               root == tree->root ? root + " is watched already."
                                                  : root + " overlaps the watched folder " + tree->root + "."};
            }
        }
        std::vector<std::string> excluded;
        for (const std::string& folder : excludedFolders) {
            if (!folder.empty() && folder.front() == '/') {
                excluded.push_back(normalizedPath(folder));
            }
        }
        if (std::find(excluded.begin(), excluded.end(), root) != excluded.end()) {
            return Failure{Failure::Kind::InvalidArgument, root + " is among the excluded folders."};
        }
        auto self = statPath(root);
        if (!self) {
            return self.error();
        }
        if (self->kind != FileKind::Directory) {
            return Failure{Failure::Kind::InvalidArgument,
                           root + (self->kind == FileKind::Symlink ? " is a symbolic link, not a folder." : " is not a folder.")};
        }
        const int fd = ::open(root.c_str(), kFolderOpenFlags);
        if (fd < 0) {
            return Failure{Failure::Kind::Io, "Cannot read the folder " + root + ": " + errorText(errno)};
        }
        const bool isVirtual = isVirtualFolder(fd, self->device);
        ::close(fd);
        if (isVirtual) {
            return Failure{Failure::Kind::InvalidArgument, root + " is on a virtual file system, which holds no files to watch."};
        }

        auto tree = std::make_unique<Tree>();
        tree->root = root;
        tree->excluded = std::move(excluded);
        for (const std::string& folder : tree->excluded) {
            m_excluded.insert(folder);
        }
        Tree& added = *tree;
        m_trees.push_back(std::move(tree));

        WatchTreeReport report;
        if (m_fanotify && markFileSystems(added)) {
            report.fanotify = true;
            return report;
        }
        registerSubtree(root, added, true, now, &report);
        return report;
    }

    Expected<void> unwatchTree(const std::string& givenRoot)
    {
        const std::string root = normalizedPath(givenRoot);
        auto it = std::find_if(m_trees.begin(), m_trees.end(), [&](const auto& tree) { return tree->root == root; });
        if (it == m_trees.end()) {
            return Failure{Failure::Kind::InvalidArgument, root + " is not watched."};
        }
        forgetTree(**it);
        for (const std::uint64_t key : (*it)->fanotifyKeys) {
            m_fanotify->removeFileSystem(key);
        }
        m_trees.erase(it);
        m_excluded.clear();
        for (const auto& tree : m_trees) {
            m_excluded.insert(tree->excluded.begin(), tree->excluded.end());
        }
        return {};
    }

    int fd() const { return m_epoll >= 0 ? m_epoll : m_inotify->fd(); }

    std::vector<FileChange> readChanges(Nanoseconds now)
    {
        std::vector<FileChange> out;
        beginBatch(out);
        auto* data = reinterpret_cast<char*>(m_eventBuffer.data());
        for (int reads = 0; reads < kMaxReadsPerCall; ++reads) {
            const ssize_t length = m_inotify->read(data, kEventBufferBytes);
            if (length < 0) {
                if (errno == EINTR) {
                    continue;
                }
                if (errno != EAGAIN) {
                    problem({}, errno, "Cannot read file-system events: " + errorText(errno));
                }
                break;
            }
            if (length == 0) {
                break;
            }
            for (std::size_t at = 0; at + sizeof(struct inotify_event) <= static_cast<std::size_t>(length);) {
                const auto* event = reinterpret_cast<const struct inotify_event*>(data + at);
                at += sizeof(struct inotify_event) + event->len;
                if (at > static_cast<std::size_t>(length)) {
                    break;
                }
                ++m_eventCount;
                handleEvent(*event, now);
            }
        }
        if (m_fanotify) {
            m_fanotifyEvents.clear();
            m_eventCount += m_fanotify->read(m_fanotifyEvents);
            for (FanotifySource::Event& event : m_fanotifyEvents) {
                handleFanotifyEvent(event, now);
            }
        }
        m_out = nullptr;
        return out;
    }

    std::vector<FileChange> pollDue(Nanoseconds now)
    {
        std::vector<FileChange> out;
        beginBatch(out);
        settleExpiredMoves(now);
        flushWrites(now);
        if (now >= m_nextSweep) {
            sweep(now);
        }
        m_out = nullptr;
        return out;
    }

    Nanoseconds nextDeadline() const
    {
        Nanoseconds next = std::min(m_nextWriteDeadline, m_nextSweep);
        for (const PendingMove& move : m_moves) {
            next = std::min(next, move.deadline);
        }
        return next;
    }

    WatcherStatistics statistics() const
    {
        WatcherStatistics statistics;
        statistics.watchedFolders = m_watches.size();
        statistics.polledFolders = m_polled.size();
        statistics.watchBudget = m_budget;
        statistics.kernelWatchLimit = m_kernelLimit;
        statistics.roots = m_trees.size();
        for (const auto& tree : m_trees) {
            statistics.missingRoots += tree->missing ? 1 : 0;
            statistics.fanotifyRoots += tree->fanotify ? 1 : 0;
        }
        statistics.fanotifyFileSystems = m_fanotify ? m_fanotify->fileSystems() : 0;
        statistics.events = m_eventCount;
        statistics.overflows = m_overflows;
        statistics.fanotifyAvailable = m_fanotify != nullptr;
        statistics.fanotifyProblem = m_fanotifyProblem;
        return statistics;
    }

    std::vector<WatchProblem> takeProblems() { return std::exchange(m_problems, {}); }

private:
    // ---- emitting changes ---------------------------------------------

    void beginBatch(std::vector<FileChange>& out)
    {
        m_out = &out;
        m_covered.clear();
        m_readBefore = std::move(m_readNow);
        m_readNow.clear();
        m_vanishedBefore = std::move(m_vanishedNow);
        m_vanishedNow.clear();
    }

    // Whether a change of `path` is already implied by a Created (or
    // TreeMayHaveChanged) of it or of a folder above it earlier in this
    // batch, which makes the caller read (or crawl) the current state.
    bool covered(std::string_view path) const
    {
        if (m_covered.empty()) {
            return false;
        }
        for (std::string_view at = path; !at.empty(); at = parentOf(at)) {
            if (m_covered.contains(at)) {
                return true;
            }
        }
        return false;
    }

    void push(FileChange::Kind kind, std::string_view path, bool isFolder, std::string_view from = {})
    {
        m_out->push_back(FileChange{kind, std::string(path), std::string(from), isFolder});
        if (kind != FileChange::Kind::Deleted && kind != FileChange::Kind::Moved) {
            auto [it, added] = m_readNow.try_emplace(std::string(path), ReadChange{kind, isFolder});
            if (!added && strength(kind) > strength(it->second.kind)) {
                it->second.kind = kind;
            }
        }
    }

    // Which of two changes asking to read one path asks for more.
    static int strength(FileChange::Kind kind)
    {
        switch (kind) {
        case FileChange::Kind::TreeMayHaveChanged:
            return 4;
        case FileChange::Kind::Created:
            return 3;
        case FileChange::Kind::FolderChanged:
        case FileChange::Kind::ContentChanged:
            return 2;
        default:
            return 1;
        }
    }

    // A change that makes the caller read what is at its path, reported in
    // this batch or the one before, may have been read too late: the entry
    // moved away (with a folder above it) before the caller got to it and
    // found nothing, while the Moved carries what the caller had before.
    // So after a Moved, each such change below its old path is repeated
    // under the new one, and so is a content or attribute change of the
    // moved entry itself (a Created of it needs no repeating: a Moved from
    // a path the caller does not have creates its destination). The batch
    // before counts because its changes are applied while this batch's
    // events are already happening.
    void repeatReadsAfterMove(std::string_view from, std::string_view to)
    {
        std::vector<std::pair<std::string, ReadChange>> repeated;
        for (auto* reads : {&m_readBefore, &m_readNow}) {
            for (const std::string& key : keysInside(*reads, from)) {
                auto node = reads->extract(key);
                const FileChange::Kind kind = node.mapped().kind;
                if (key.size() > from.size() || (kind != FileChange::Kind::Created && kind != FileChange::Kind::TreeMayHaveChanged)) {
                    repeated.emplace_back(rebased(key, from, to), node.mapped());
                }
            }
        }
        std::sort(repeated.begin(), repeated.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& [path, read] : repeated) {
            if (read.kind == FileChange::Kind::Created) {
                emitCreated(path, read.isFolder);
            } else if (read.kind == FileChange::Kind::TreeMayHaveChanged) {
                emitTreeMayHaveChanged(path);
            } else if (!covered(path)) {
                push(read.kind, path, read.isFolder);
            }
        }
    }

    void forgetReadsInside(std::string_view path)
    {
        for (auto* reads : {&m_readBefore, &m_readNow}) {
            if (!reads->empty()) {
                for (const std::string& key : keysInside(*reads, path)) {
                    reads->erase(key);
                }
            }
        }
    }

    void emitCreated(std::string_view path, bool isFolder)
    {
        dropWritesInside(path);
        if (covered(path)) {
            return;
        }
        m_covered.emplace(path);
        push(FileChange::Kind::Created, path, isFolder);
    }

    void emitDeleted(std::string_view path, bool isFolder)
    {
        dropWritesInside(path);
        forgetReadsInside(path);
        if (!covered(path)) {
            push(FileChange::Kind::Deleted, path, isFolder);
        }
    }

    void emitMoved(std::string_view from, std::string_view to, bool isFolder)
    {
        dropWritesInside(to);
        for (const std::string& key : keysInside(m_writes, from)) {
            auto node = m_writes.extract(key);
            node.key() = rebased(key, from, to);
            m_writes.insert(std::move(node));
        }
        const bool fromCovered = covered(from);
        const bool toCovered = covered(to);
        if (fromCovered && toCovered) {
            return;
        }
        if (fromCovered) {
            forgetReadsInside(from);
            emitCreated(to, isFolder);  // where it came from is left to the crawl
        } else if (toCovered) {
            forgetReadsInside(from);
            push(FileChange::Kind::Deleted, from, isFolder);  // where it went is left to the crawl
        } else {
            forgetReadsInside(to);
            push(FileChange::Kind::Moved, to, isFolder, from);
            repeatReadsAfterMove(from, to);
        }
    }

    void emitTreeMayHaveChanged(std::string_view path)
    {
        dropWritesInside(path);
        if (covered(path)) {
            return;
        }
        m_covered.emplace(path);
        push(FileChange::Kind::TreeMayHaveChanged, path, true);
    }

    void emitFolderChanged(std::string_view path)
    {
        const auto reported = m_readNow.find(path);
        if (!covered(path) && (reported == m_readNow.end() || strength(reported->second.kind) < strength(FileChange::Kind::FolderChanged))) {
            push(FileChange::Kind::FolderChanged, path, true);
        }
    }

    // ---- coalesced writes ---------------------------------------------

    Nanoseconds writeDeadline(const PendingWrite& write) const
    {
        if (write.closed) {
            return write.last;
        }
        return std::min(write.last + m_options.writeQuietPeriod, write.first + m_options.writeMaxDelay);
    }

    // A write that ends with the writer closing the file (as a save does) is
    // reported at once; one still going on waits for a pause.
    void noteWrite(std::string_view path, bool isFolder, bool content, Nanoseconds now, bool closed = false)
    {
        if (covered(path)) {
            return;
        }
        auto it = m_writes.find(path);
        if (it == m_writes.end()) {
            it = m_writes.emplace(std::string(path), PendingWrite{now, now, content, isFolder, closed}).first;
        } else {
            it->second.last = std::max(it->second.last, now);
            it->second.content = it->second.content || content;
            it->second.closed = closed;
        }
        m_nextWriteDeadline = std::min(m_nextWriteDeadline, writeDeadline(it->second));
    }

    void dropWritesInside(std::string_view path)
    {
        if (m_writes.empty()) {
            return;
        }
        for (const std::string& key : keysInside(m_writes, path)) {
            m_writes.erase(key);
        }
    }

    const PendingMove* pendingMoveAbove(std::string_view path) const
    {
        for (const PendingMove& move : m_moves) {
            if (isInside(path, move.path)) {
                return &move;
            }
        }
        return nullptr;
    }

    void flushWrites(Nanoseconds now)
    {
        if (now < m_nextWriteDeadline) {
            return;
        }
        Nanoseconds next = kNever;
        for (auto it = m_writes.begin(); it != m_writes.end();) {
            const Nanoseconds due = writeDeadline(it->second);
            if (now < due) {
                next = std::min(next, due);
                ++it;
                continue;
            }
            // A write of an entry whose rename is half seen waits for the
            // rename, which tells under which path to report it.
            if (const PendingMove* move = pendingMoveAbove(it->first)) {
                next = std::min(next, move->deadline);
                ++it;
                continue;
            }
            push(it->second.content ? FileChange::Kind::ContentChanged : FileChange::Kind::AttributesChanged, it->first,
                 it->second.isFolder);
            it = m_writes.erase(it);
        }
        m_nextWriteDeadline = next;
    }

    // ---- renames ------------------------------------------------------

    // Reports as removed the half-seen renames of `path` and of everything
    // below it: a later event there means their second half is not coming.
    void settleMovesInside(std::string_view path)
    {
        if (m_moves.empty()) {
            return;
        }
        for (std::size_t i = 0; i < m_moves.size();) {
            if (isInside(m_moves[i].path, path)) {
                PendingMove move = std::move(m_moves[i]);
                m_moves.erase(m_moves.begin() + static_cast<std::ptrdiff_t>(i));
                settleAsDeleted(move);
            } else {
                ++i;
            }
        }
    }

    void settleAsDeleted(const PendingMove& move)
    {
        if (move.isFolder) {
            unregisterSubtree(move.path);
        }
        emitDeleted(move.path, move.isFolder);
    }

    void settleExpiredMoves(Nanoseconds now)
    {
        for (std::size_t i = 0; i < m_moves.size();) {
            if (m_moves[i].deadline <= now) {
                PendingMove move = std::move(m_moves[i]);
                m_moves.erase(m_moves.begin() + static_cast<std::ptrdiff_t>(i));
                settleAsDeleted(move);
            } else {
                ++i;
            }
        }
    }

    // ---- the inotify side ---------------------------------------------

    void handleEvent(const struct inotify_event& event, Nanoseconds now)
    {
        const std::uint32_t mask = event.mask;
        if (mask & IN_Q_OVERFLOW) {
            handleOverflow(now);
            return;
        }
        auto it = m_watches.find(event.wd);
        if (it == m_watches.end()) {
            return;  // a watch removed since the event was queued
        }
        Tree* tree = it->second.tree;
        if (mask & IN_IGNORED) {
            handleIgnored(event.wd, now);
            return;
        }
        const bool named = event.len > 0 && event.name[0] != '\0';
        if (!named) {
            // An event of the watched folder itself. Its parent's watch
            // reports it, unless it is a root.
            if (it->second.path != tree->root) {
                return;
            }
            if (mask & (IN_DELETE_SELF | IN_MOVE_SELF)) {
                rootGone(*tree, now);
            } else if (mask & IN_ATTRIB) {
                noteWrite(tree->root, true, false, now);
            }
            return;
        }
        // `it` may not survive what follows: the path is built in a buffer
        // of its own (no allocation once it has grown).
        std::string& path = m_path;
        path.clear();
        appendJoined(path, it->second.path, event.name);
        const bool isFolder = (mask & IN_ISDIR) != 0;

        if (mask & IN_MOVED_FROM) {
            settleMovesInside(path);
            m_moves.push_back(PendingMove{event.cookie, path, isFolder, now + m_options.pairingWindow});
            return;
        }
        if (mask & IN_MOVED_TO) {
            auto match = std::find_if(m_moves.begin(), m_moves.end(),
                                      [&](const PendingMove& move) { return move.cookie == event.cookie; });
            if (match == m_moves.end()) {
                settleMovesInside(path);
                if (isFolder) {
                    addFolder(path, *tree, now);
                }
                emitCreated(path, isFolder);
                return;
            }
            const PendingMove move = std::move(*match);
            m_moves.erase(match);
            settleMovesInside(move.path);
            settleMovesInside(path);
            if (move.isFolder) {
                if (isRecordedAt(move.path, path)) {
                    moveSubtree(move.path, path);
                } else {
                    // What is recorded at the old path is a folder made there
                    // after the rename (a name used again at once): it stays,
                    // and the renamed folder is watched anew.
                    unregisterSubtree(path);
                }
                watchVanishedInside(move.path, path, *tree, now);
            }
            emitMoved(move.path, path, isFolder);
            return;
        }
        if (mask & IN_CREATE) {
            settleMovesInside(path);
            if (isFolder) {
                addFolder(path, *tree, now);
            }
            emitCreated(path, isFolder);
            return;
        }
        if (mask & IN_DELETE) {
            settleMovesInside(path);
            if (isFolder) {
                unregisterSubtree(path);
            }
            emitDeleted(path, isFolder);
            return;
        }
        if (mask & (IN_MODIFY | IN_CLOSE_WRITE)) {
            noteWrite(path, isFolder, true, now, (mask & IN_CLOSE_WRITE) != 0);
        }
        if (mask & IN_ATTRIB) {
            noteWrite(path, isFolder, false, now);
        }
    }

    // The kernel ended a watch: the folder was removed (its parent's watch
    // reports that), its file system was unmounted (the folder is still
    // there, showing what lies below the mount), or the watch was removed
    // on request (then it is no longer known here).
    void handleIgnored(int wd, Nanoseconds now)
    {
        auto it = m_watches.find(wd);
        std::string path = std::move(it->second.path);
        Tree* tree = it->second.tree;
        forgetWatch(it);
        if (path == tree->root) {
            if (!tree->missing) {
                rootGone(*tree, now);
            }
            return;
        }
        struct stat answers {};
        if (::lstat(path.c_str(), &answers) == 0 && S_ISDIR(answers.st_mode)) {
            emitTreeMayHaveChanged(path);
            registerSubtree(path, *tree, m_watchByPath.contains(parentOf(path)), now, nullptr);
        }
    }

    void rootGone(Tree& tree, Nanoseconds now)
    {
        forgetTree(tree);
        tree.missing = true;
        emitTreeMayHaveChanged(tree.root);
        scheduleSweep(now);
    }

    // Drops the watches, polled folders, writes and renames of the tree.
    void forgetTree(const Tree& tree)
    {
        unregisterSubtree(tree.root);
        dropWritesInside(tree.root);
        std::erase_if(m_moves, [&](const PendingMove& move) { return isInside(move.path, tree.root); });
    }

    void handleOverflow(Nanoseconds now)
    {
        ++m_overflows;
        problem({}, 0, "The kernel's queue of file-system events overflowed; the watched trees must be crawled again.");
        // Watches may have been added or ended unseen: walk every tree
        // again, keeping the watches it finds and ending the others.
        ++m_generation;
        std::erase_if(m_moves, [&](const PendingMove& move) {
            const Tree* tree = treeFor(move.path);
            return tree == nullptr || !tree->fanotify;
        });
        for (const auto& tree : m_trees) {
            if (tree->fanotify || tree->missing) {
                continue;
            }
            emitTreeMayHaveChanged(tree->root);
            struct stat answers {};
            if (::lstat(tree->root.c_str(), &answers) != 0 || !S_ISDIR(answers.st_mode)) {
                rootGone(*tree, now);
                continue;
            }
            registerSubtree(tree->root, *tree, true, now, nullptr);
        }
        for (auto it = m_watches.begin(); it != m_watches.end();) {
            if (it->second.generation < m_generation && !it->second.tree->fanotify) {
                m_inotify->removeWatch(it->first);
                if (auto byPath = m_watchByPath.find(it->second.path); byPath != m_watchByPath.end() && byPath->second == it->first) {
                    m_watchByPath.erase(byPath);
                }
                it = m_watches.erase(it);
            } else {
                ++it;
            }
        }
        std::erase_if(m_polled, [&](const auto& entry) { return entry.second.generation < m_generation; });
    }

    // ---- the fanotify side --------------------------------------------

    bool markFileSystems(Tree& tree)
    {
        std::vector<std::string> folders{tree.root};
        for (const Mount& mount : m_mounts.mounts()) {
            if (mount.mountPoint == tree.root || !isInside(mount.mountPoint, tree.root)) {
                continue;
            }
            bool hidden = false;
            for (std::string_view at = mount.mountPoint; isInside(at, tree.root); at = parentOf(at)) {
                hidden = hidden || isSystemFolder(at) || m_excluded.contains(at);
            }
            if (hidden || mount.kind == MountKind::Virtual) {
                continue;
            }
            folders.push_back(mount.mountPoint);
        }
        std::string why;
        const Mount* rootMount = m_mounts.mountFor(tree.root);
        if (rootMount != nullptr && rootMount->kind == MountKind::Network) {
            why = tree.root + " is on a network file system, whose remote changes fanotify does not see";
        }
        for (const std::string& folder : folders) {
            if (!why.empty()) {
                break;
            }
            const Mount* mount = m_mounts.mountFor(folder);
            if (mount != nullptr && mount->kind == MountKind::Network) {
                why = folder + " is on a network file system, whose remote changes fanotify does not see";
                break;
            }
            auto key = m_fanotify->addFileSystem(folder);
            if (!key) {
                why = key.error().message;
                break;
            }
            tree.fanotifyKeys.push_back(key.value());
        }
        if (why.empty()) {
            tree.fanotify = true;
            return true;
        }
        for (const std::uint64_t key : tree.fanotifyKeys) {
            m_fanotify->removeFileSystem(key);
        }
        tree.fanotifyKeys.clear();
        m_fanotifyProblem = why + "; it is watched with inotify.";
        problem(tree.root, 0, m_fanotifyProblem);
        return false;
    }

    // The fanotify tree `path` belongs to, when it is one of its entries
    // (not inside an excluded or system folder); nullptr otherwise.
    Tree* fanotifyTreeFor(std::string_view path)
    {
        Tree* tree = treeFor(path);
        if (tree == nullptr || !tree->fanotify) {
            return nullptr;
        }
        for (std::string_view at = parentOf(path); !at.empty() && isInside(at, tree->root); at = parentOf(at)) {
            if (isSystemFolder(at) || m_excluded.contains(at)) {
                return nullptr;
            }
        }
        return tree;
    }

    void handleFanotifyEvent(FanotifySource::Event& event, Nanoseconds now)
    {
        using Kind = FanotifySource::Event::Kind;
        if (event.kind == Kind::Overflow) {
            ++m_overflows;
            problem({}, 0, "The kernel's queue of fanotify events overflowed; the watched trees must be crawled again.");
            for (const auto& tree : m_trees) {
                if (tree->fanotify && !tree->missing) {
                    emitTreeMayHaveChanged(tree->root);
                }
            }
            return;
        }
        if (event.kind == Kind::Moved) {
            Tree* fromTree = fanotifyTreeFor(event.from);
            Tree* toTree = fanotifyTreeFor(event.path);
            if (fromTree != nullptr && event.from == fromTree->root) {
                rootGone(*fromTree, now);
                fromTree = nullptr;
            }
            if (toTree != nullptr && event.path == toTree->root) {
                rootBack(*toTree, now);
                return;
            }
            if (fromTree != nullptr && toTree != nullptr) {
                emitMoved(event.from, event.path, event.isFolder);
                if (event.isFolder) {
                    // Paths are resolved when read: events of this batch
                    // below the folder may carry its new path already.
                    emitTreeMayHaveChanged(event.path);
                }
            } else if (fromTree != nullptr) {
                emitDeleted(event.from, event.isFolder);
            } else if (toTree != nullptr) {
                emitCreated(event.path, event.isFolder);
            }
            return;
        }
        Tree* tree = fanotifyTreeFor(event.path);
        if (tree == nullptr) {
            return;
        }
        const bool isRoot = event.path == tree->root;
        switch (event.kind) {
        case Kind::Created:
            if (isRoot) {
                rootBack(*tree, now);
            } else {
                emitCreated(event.path, event.isFolder);
            }
            break;
        case Kind::Deleted:
            if (isRoot) {
                rootGone(*tree, now);
            } else {
                emitDeleted(event.path, event.isFolder);
            }
            break;
        case Kind::Written:
            noteWrite(event.path, event.isFolder, true, now);
            break;
        case Kind::AttributesChanged:
            noteWrite(event.path, event.isFolder, false, now);
            break;
        case Kind::Moved:
        case Kind::Overflow:
            break;
        }
    }

    // A missing root is there again.
    void rootBack(Tree& tree, Nanoseconds now)
    {
        if (!tree.missing) {
            emitTreeMayHaveChanged(tree.root);
            return;
        }
        tree.missing = false;
        emitTreeMayHaveChanged(tree.root);
        if (!tree.fanotify) {
            registerSubtree(tree.root, tree, true, now, nullptr);
        }
    }

    // ---- watched and polled folders -----------------------------------

    Tree* treeFor(std::string_view path) const
    {
        for (const auto& tree : m_trees) {
            if (isInside(path, tree->root)) {
                return tree.get();
            }
        }
        return nullptr;
    }

    bool isVirtualFolder(int fd, std::uint64_t device) const
    {
        if (std::binary_search(m_virtualDevices.begin(), m_virtualDevices.end(), device)) {
            return true;
        }
        struct statfs answers {};
        return ::fstatfs(fd, &answers) == 0 && isVirtualFileSystemMagic(static_cast<std::int64_t>(answers.f_type));
    }

    bool isNetworkDevice(std::uint64_t device) const
    {
        return std::binary_search(m_networkDevices.begin(), m_networkDevices.end(), device);
    }

    void problem(std::string path, int error, std::string message)
    {
        constexpr std::size_t kMaxProblems = 1000;  // a caller that never asks should not pay for it
        if (m_problems.size() < kMaxProblems) {
            m_problems.push_back(WatchProblem{std::move(path), error, std::move(message)});
        }
    }

    void scheduleSweep(Nanoseconds now)
    {
        if (m_nextSweep == kNever) {
            m_nextSweep = now + m_options.pollInterval;
        }
    }

    static int openFolder(const std::string& path)
    {
        // Listing a folder would set its access time; the watcher's reads
        // are not uses. The kernel allows O_NOATIME to the owner only.
        int fd = ::open(path.c_str(), kFolderOpenFlags | O_NOATIME);
        if (fd < 0 && errno == EPERM) {
            fd = ::open(path.c_str(), kFolderOpenFlags);
        }
        return fd;
    }

    // Whether the file system of the open folder on `device` keeps a
    // folder's link count as 2 plus its number of sub-folders (btrfs, for
    // one, does not), so that the count tells when a listing may stop.
    bool keepsFolderLinkCounts(int fd, std::uint64_t device)
    {
        auto [it, added] = m_linkCountsKept.try_emplace(device, false);
        if (added) {
            struct statfs answers {};
            if (::fstatfs(fd, &answers) == 0) {
                constexpr std::int64_t kExt = 0xEF53;
                constexpr std::int64_t kXfs = 0x58465342;
                constexpr std::int64_t kTmpfs = 0x01021994;
                constexpr std::int64_t kF2fs = 0xF2F52010;
                const auto type = static_cast<std::int64_t>(answers.f_type);
                it->second = type == kExt || type == kXfs || type == kTmpfs || type == kF2fs;
            }
        }
        return it->second;
    }

    // Appends the names of the open folder's sub-folders (not links, not
    // automount points), stopping once `expected` were found (listing a
    // folder costs a look at every one of its entries; most are files).
    // False when the folder cannot be listed.
    bool listSubfolders(int fd, std::vector<std::string>& names,
                        std::size_t expected = std::numeric_limits<std::size_t>::max())
    {
        if (expected == 0) {
            return true;
        }
        auto* data = reinterpret_cast<char*>(m_directoryBuffer.data());
        for (;;) {
            const ssize_t length = ::getdents64(fd, data, kDirectoryBufferBytes);
            if (length < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return false;
            }
            if (length == 0) {
                return true;
            }
            for (ssize_t at = 0; at < length;) {
                const auto* entry = reinterpret_cast<const struct dirent64*>(data + at);
                at += entry->d_reclen;
                const char* name = entry->d_name;
                if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
                    continue;
                }
                if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN) {
                    continue;
                }
                // Entering an automount point would mount something.
                struct statx answers {};
                if (::statx(fd, name, kStatFlags, STATX_TYPE, &answers) != 0 || !S_ISDIR(answers.stx_mode)
                    || ((answers.stx_attributes_mask & STATX_ATTR_AUTOMOUNT) && (answers.stx_attributes & STATX_ATTR_AUTOMOUNT))) {
                    continue;
                }
                names.emplace_back(name);
                if (names.size() >= expected) {
                    return true;
                }
            }
        }
    }

    // Watches (or, beyond the budget, polls) the folder `top` and every
    // folder below it, breadth first so that the budget goes to the
    // shallow folders. Each folder is watched before it is listed, so that
    // no entry made meanwhile goes unseen.
    void registerSubtree(const std::string& top, Tree& tree, bool parentWatched, Nanoseconds now, WatchTreeReport* report)
    {
        std::deque<WalkItem> queue;
        queue.push_back(WalkItem{top, 0, parentWatched});
        std::vector<std::string> names;
        bool limitReached = false;
        while (!queue.empty()) {
            WalkItem item = std::move(queue.front());
            queue.pop_front();
            if (isSystemFolder(item.path) || m_excluded.contains(item.path)) {
                continue;
            }
            const int fd = openFolder(item.path);
            if (fd < 0) {
                const int error = errno;
                if (error != ENOENT && error != ENOTDIR && error != ELOOP) {
                    problem(item.path, error, "Cannot watch the folder " + item.path + ": " + errorText(error));
                    if (report) {
                        ++report->unreadableFolders;
                    }
                } else if (error == ENOENT) {
                    m_vanishedNow.insert(item.path);
                }
                continue;  // else gone meanwhile, or replaced by a file or link
            }
            struct stat answers {};
            if (::fstat(fd, &answers) != 0 || !S_ISDIR(answers.st_mode)
                || (answers.st_dev != item.parentDevice && isVirtualFolder(fd, answers.st_dev))) {
                ::close(fd);
                continue;
            }
            bool watched = false;
            if (item.parentWatched && !tree.fanotify && !limitReached && !isNetworkDevice(answers.st_dev)
                && m_watches.size() < m_budget) {
                const int wd = m_inotify->addWatch(item.path.c_str(), kWatchMask);
                const int error = errno;
                if (wd >= 0) {
                    recordWatch(wd, item.path, tree, answers.st_dev, answers.st_ino);
                    watched = true;
                } else if (error == ENOENT || error == ENOTDIR) {
                    if (error == ENOENT) {
                        m_vanishedNow.insert(item.path);
                    }
                    ::close(fd);
                    continue;
                } else if (error == ENOSPC) {
                    limitReached = true;
                    problem(item.path, error,
                            "The inotify watch limit (/proc/sys/fs/inotify/max_user_watches) is reached; "
                            "folders beyond it are polled.");
                } else {
                    problem(item.path, error, "Cannot watch the folder " + item.path + ": " + errorText(error) + "; it is polled.");
                }
            }
            if (!watched) {
                recordPolled(item.path, tree, answers, now);
            }
            if (report) {
                ++(watched ? report->watchedFolders : report->polledFolders);
            }
            // The link count read now that the watch is in place: a
            // sub-folder made after this is reported by the watch.
            std::size_t expected = std::numeric_limits<std::size_t>::max();
            struct stat again {};
            if (keepsFolderLinkCounts(fd, answers.st_dev) && ::fstat(fd, &again) == 0 && again.st_nlink >= 2) {
                expected = again.st_nlink - 2;
            }
            names.clear();
            if (!listSubfolders(fd, names, expected)) {
                const int error = errno;
                problem(item.path, error, "Cannot list the folder " + item.path + ": " + errorText(error));
            }
            ::close(fd);
            for (const std::string& name : names) {
                queue.push_back(WalkItem{joined(item.path, name), answers.st_dev, watched});
            }
        }
    }

    void recordWatch(int wd, const std::string& path, Tree& tree, std::uint64_t device, std::uint64_t inode)
    {
        auto [it, inserted] = m_watches.try_emplace(wd);
        if (!inserted && it->second.path != path) {
            // The same folder, seen under a new path (a rename whose first
            // half went unseen).
            if (auto old = m_watchByPath.find(it->second.path); old != m_watchByPath.end() && old->second == wd) {
                m_watchByPath.erase(old);
            }
        }
        it->second.path = path;
        it->second.tree = &tree;
        it->second.device = device;
        it->second.inode = inode;
        it->second.generation = m_generation;
        auto [byPath, added] = m_watchByPath.try_emplace(path, wd);
        if (!added && byPath->second != wd) {
            // Another folder had this path before (replaced since): its
            // watch ends.
            const int other = byPath->second;
            byPath->second = wd;
            if (auto stale = m_watches.find(other); stale != m_watches.end()) {
                m_inotify->removeWatch(other);
                m_watches.erase(stale);
            }
        }
        m_polled.erase(path);
    }

    void recordPolled(const std::string& path, Tree& tree, const struct stat& answers, Nanoseconds now)
    {
        PolledFolder& folder = m_polled[path];
        folder.tree = &tree;
        folder.device = answers.st_dev;
        folder.inode = answers.st_ino;
        folder.modified = nanoseconds(answers.st_mtim);
        folder.changed = nanoseconds(answers.st_ctim);
        folder.racy = isRacy(folder, now);
        // Spread the full rescans of folders polled at the same moment over
        // the second half of the interval.
        const Nanoseconds half = std::max<Nanoseconds>(1, m_options.fullRescanInterval / 2);
        folder.nextFullRescan = now + half + static_cast<Nanoseconds>(std::hash<std::string>{}(path) % static_cast<std::size_t>(half));
        folder.generation = m_generation;
        scheduleSweep(now);
    }

    static bool isRacy(const PolledFolder& folder, Nanoseconds now)
    {
        return folder.modified >= now - kRacyMargin || folder.changed >= now - kRacyMargin;
    }

    // A folder appeared inside a watched one (its parent's watch told).
    void addFolder(const std::string& path, Tree& tree, Nanoseconds now, bool parentWatched = true)
    {
        if (!m_excluded.contains(path) && !isSystemFolder(path)) {
            registerSubtree(path, tree, parentWatched, now, nullptr);
        }
    }

    void forgetWatch(std::unordered_map<int, WatchRecord>::iterator it)
    {
        if (auto byPath = m_watchByPath.find(it->second.path); byPath != m_watchByPath.end() && byPath->second == it->first) {
            m_watchByPath.erase(byPath);
        }
        m_watches.erase(it);
    }

    // Ends the watches and polling of `path` and everything below it.
    void unregisterSubtree(std::string_view path)
    {
        for (const std::string& key : keysInside(m_watchByPath, path)) {
            auto byPath = m_watchByPath.find(key);
            const int wd = byPath->second;
            m_watchByPath.erase(byPath);
            if (m_watches.erase(wd) > 0) {
                m_inotify->removeWatch(wd);  // fails harmlessly when the kernel ended it already
            }
        }
        for (const std::string& key : keysInside(m_polled, path)) {
            m_polled.erase(key);
        }
    }

    // Whether the folder recorded (watched or polled) at `from` is the one
    // now at `to`, by device and inode; true when that cannot be told.
    bool isRecordedAt(const std::string& from, const std::string& to) const
    {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        if (auto watch = m_watchByPath.find(from); watch != m_watchByPath.end()) {
            const WatchRecord& record = m_watches.at(watch->second);
            device = record.device;
            inode = record.inode;
        } else if (auto polled = m_polled.find(from); polled != m_polled.end()) {
            device = polled->second.device;
            inode = polled->second.inode;
        } else {
            return true;
        }
        struct stat answers {};
        if (::lstat(to.c_str(), &answers) != 0) {
            return true;
        }
        return answers.st_dev == device && answers.st_ino == inode;
    }

    // A watched folder was renamed from `from` to `to`: its watches and
    // polled folders follow it. What it replaced is gone; what ends up
    // excluded or outside the inotify trees is no longer watched.
    void moveSubtree(const std::string& from, const std::string& to)
    {
        unregisterSubtree(to);
        Tree* tree = treeFor(to);
        for (const std::string& key : keysInside(m_watchByPath, from)) {
            auto node = m_watchByPath.extract(key);
            std::string path = rebased(key, from, to);
            auto record = m_watches.find(node.mapped());
            if (record != m_watches.end()) {
                record->second.path = path;
                record->second.tree = tree;
            }
            node.key() = std::move(path);
            m_watchByPath.insert(std::move(node));
        }
        for (const std::string& key : keysInside(m_polled, from)) {
            auto node = m_polled.extract(key);
            node.key() = rebased(key, from, to);
            node.mapped().tree = tree;
            m_polled.insert(std::move(node));
        }
        if (tree == nullptr || tree->fanotify || m_excluded.contains(to) || isSystemFolder(to)) {
            unregisterSubtree(to);
            return;
        }
        for (const std::string& folder : tree->excluded) {
            if (isInside(folder, to)) {
                unregisterSubtree(folder);
            }
        }
    }

    // A folder that appeared is watched when its appearance is read; by
    // then it may have moved on (a folder made and renamed at once, or made
    // inside one renamed at once), and it could not be watched at its first
    // path. The rename from `from` to `to` tells where it is: each such
    // folder inside `from` (the folder itself included) is watched at its
    // new path. Folders that vanished in this batch or the one before count,
    // as the rename's events may come with the next read.
    void watchVanishedInside(std::string_view from, std::string_view to, Tree& tree, Nanoseconds now)
    {
        std::vector<std::string> found;
        for (auto* vanished : {&m_vanishedBefore, &m_vanishedNow}) {
            for (auto it = vanished->begin(); it != vanished->end();) {
                if (isInside(*it, from)) {
                    found.push_back(rebased(*it, from, to));
                    it = vanished->erase(it);
                } else {
                    ++it;
                }
            }
        }
        if (!m_watchByPath.contains(to) && !m_polled.contains(to)) {
            found.emplace_back(to);
        }
        std::sort(found.begin(), found.end());
        for (const std::string& folder : found) {
            // Watched only below a watched (or polled) parent, as a walk
            // would have.
            const std::string_view parent = parentOf(folder);
            if (!m_watchByPath.contains(folder) && !m_polled.contains(folder)
                && (m_watchByPath.contains(parent) || m_polled.contains(parent))) {
                addFolder(folder, tree, now, m_watchByPath.contains(parent));
            }
        }
    }

    // ---- polling ------------------------------------------------------

    void sweep(Nanoseconds now)
    {
        m_nextSweep = kNever;
        for (const auto& tree : m_trees) {
            struct stat answers {};
            if (tree->missing && ::lstat(tree->root.c_str(), &answers) == 0 && S_ISDIR(answers.st_mode)) {
                rootBack(*tree, now);
            }
        }

        struct Seen {
            std::string path;
            struct statx answers;
        };
        std::vector<std::string> vanished;
        std::vector<Seen> changed;
        for (auto& [path, folder] : m_polled) {
            struct statx answers {};
            if (::statx(AT_FDCWD, path.c_str(), kStatFlags, STATX_TYPE | STATX_INO | STATX_MTIME | STATX_CTIME, &answers) != 0
                || !S_ISDIR(answers.stx_mode) || answers.stx_ino != folder.inode
                || makedev(answers.stx_dev_major, answers.stx_dev_minor) != folder.device) {
                vanished.push_back(path);
                continue;
            }
            if (folder.racy || now >= folder.nextFullRescan || nanoseconds(answers.stx_mtime) != folder.modified
                || nanoseconds(answers.stx_ctime) != folder.changed) {
                changed.push_back(Seen{path, answers});
            }
        }
        for (const std::string& path : vanished) {
            auto it = m_polled.find(path);
            if (it == m_polled.end()) {
                continue;  // below a folder found gone before it
            }
            if (path == it->second.tree->root) {
                rootGone(*it->second.tree, now);
                continue;
            }
            unregisterSubtree(path);
            emitDeleted(path, true);
            // A folder replaced by another under the same name is polled
            // anew by its parent, or reported by its parent's watch.
        }
        std::vector<std::string> names;
        for (const Seen& seen : changed) {
            auto it = m_polled.find(seen.path);
            if (it == m_polled.end()) {
                continue;
            }
            PolledFolder& folder = it->second;
            Tree& tree = *folder.tree;
            folder.modified = nanoseconds(seen.answers.stx_mtime);
            folder.changed = nanoseconds(seen.answers.stx_ctime);
            folder.racy = isRacy(folder, now);
            if (now >= folder.nextFullRescan) {
                folder.nextFullRescan = now + m_options.fullRescanInterval;
            }
            refreshPolledChildren(seen.path, tree, now, names);
            emitFolderChanged(seen.path);
        }
        promote();
        const bool anyMissing = std::any_of(m_trees.begin(), m_trees.end(), [](const auto& tree) { return tree->missing; });
        if (!m_polled.empty() || anyMissing) {
            m_nextSweep = now + m_options.pollInterval;
        }
    }

    // Brings the polled sub-folders of the polled folder `path` in step
    // with its listing: new ones are polled, vanished ones forgotten.
    void refreshPolledChildren(const std::string& path, Tree& tree, Nanoseconds now, std::vector<std::string>& names)
    {
        names.clear();
        const int fd = openFolder(path);
        if (fd < 0) {
            return;
        }
        const bool listed = listSubfolders(fd, names);
        ::close(fd);
        if (!listed) {
            return;
        }
        std::sort(names.begin(), names.end());
        std::vector<std::string> gone;
        std::string prefix = path == "/" ? path : path + "/";
        for (auto it = m_polled.lower_bound(prefix); it != m_polled.end() && it->first.starts_with(prefix); ++it) {
            const std::string_view rest = std::string_view(it->first).substr(prefix.size());
            if (rest.find('/') == std::string_view::npos
                && !std::binary_search(names.begin(), names.end(), rest)) {
                gone.push_back(it->first);
            }
        }
        for (const std::string& child : gone) {
            unregisterSubtree(child);
        }
        for (const std::string& name : names) {
            std::string child = prefix + name;
            if (!m_polled.contains(child) && !m_watchByPath.contains(child)) {
                registerSubtree(child, tree, false, now, nullptr);
            }
        }
    }

    // Turns polled folders into watched ones while the budget allows (after
    // watched folders were removed), parents first. A promoted folder is
    // reported once, since changes inside it may have gone unseen since
    // its last full rescan.
    void promote()
    {
        if (m_polled.empty() || m_watches.size() >= m_budget) {
            return;
        }
        for (auto it = m_polled.begin(); it != m_polled.end() && m_watches.size() < m_budget;) {
            const std::string path = it->first;
            const PolledFolder& folder = it->second;
            ++it;
            if (folder.tree->fanotify || isNetworkDevice(folder.device)
                || (path != folder.tree->root && !m_watchByPath.contains(parentOf(path)))) {
                continue;
            }
            Tree& tree = *folder.tree;
            const std::uint64_t device = folder.device;
            const std::uint64_t inode = folder.inode;
            const int wd = m_inotify->addWatch(path.c_str(), kWatchMask);
            if (wd < 0) {
                if (errno == ENOSPC) {
                    return;
                }
                continue;
            }
            recordWatch(wd, path, tree, device, inode);  // erases the polled entry; `it` points past it
            emitFolderChanged(path);
        }
    }

    // ---- state --------------------------------------------------------

    WatcherOptions m_options;
    std::unique_ptr<InotifyInterface> m_inotify;
    std::unique_ptr<FanotifySource> m_fanotify;
    std::vector<FanotifySource::Event> m_fanotifyEvents;
    int m_epoll = -1;  // inotify and fanotify together, when fanotify is used
    std::string m_fanotifyProblem;
    MountTable m_mounts;
    std::vector<std::uint64_t> m_virtualDevices;  // sorted dev_t values
    std::vector<std::uint64_t> m_networkDevices;  // sorted dev_t values

    std::size_t m_budget = 0;
    std::size_t m_kernelLimit = 0;
    std::vector<std::unique_ptr<Tree>> m_trees;  // never nested in one another
    StringSet m_excluded;                         // of every tree

    std::unordered_map<int, WatchRecord> m_watches;          // by watch descriptor
    std::map<std::string, int, std::less<>> m_watchByPath;   // path → watch descriptor
    std::map<std::string, PolledFolder, std::less<>> m_polled;
    std::uint64_t m_generation = 0;  // of the last walk after an overflow

    std::vector<PendingMove> m_moves;  // in the order they were seen
    std::map<std::string, PendingWrite, std::less<>> m_writes;
    Nanoseconds m_nextWriteDeadline = kNever;  // never later than the earliest write's deadline
    Nanoseconds m_nextSweep = kNever;

    std::vector<FileChange>* m_out = nullptr;  // the batch being built
    StringSet m_covered;                       // see covered()
    // The changes of this batch and the one before that make the caller
    // read a path, by path: see repeatReadsAfterMove().
    std::map<std::string, ReadChange, std::less<>> m_readNow;
    std::map<std::string, ReadChange, std::less<>> m_readBefore;
    // Folders that vanished before they could be watched, in this batch and
    // the one before: see watchVanishedInside().
    StringSet m_vanishedNow;
    StringSet m_vanishedBefore;
    std::unordered_map<std::uint64_t, bool> m_linkCountsKept;  // by device: see keepsFolderLinkCounts()
    std::vector<WatchProblem> m_problems;

    std::uint64_t m_eventCount = 0;
    std::uint64_t m_overflows = 0;
    std::string m_path;  // scratch for event paths
    std::vector<std::uint64_t> m_eventBuffer;      // aligned for struct inotify_event
    std::vector<std::uint64_t> m_directoryBuffer;  // aligned for struct dirent64
};

Expected<Watcher> Watcher::create(const WatcherOptions& options, std::unique_ptr<InotifyInterface> inotify)
{
    if (!inotify) {
        auto kernel = openKernelInotify();
        if (!kernel) {
            return kernel.error();
        }
        inotify = std::move(kernel.value());
    }
    auto impl = std::make_unique<Impl>(options, std::move(inotify));
    if (options.useFanotify) {
        impl->startFanotify();
    }
    return Watcher(std::move(impl));
}

Watcher::Watcher(std::unique_ptr<Impl> impl)
    : m_impl(std::move(impl))
{
}
Watcher::Watcher(Watcher&&) noexcept = default;
Watcher& Watcher::operator=(Watcher&&) noexcept = default;
Watcher::~Watcher() = default;

Expected<WatchTreeReport> Watcher::watchTree(const std::string& root, const std::vector<std::string>& excludedFolders,
                                             Nanoseconds now)
{
    return m_impl->watchTree(root, excludedFolders, now);
}

Expected<void> Watcher::unwatchTree(const std::string& root)
{
    return m_impl->unwatchTree(root);
}

int Watcher::fd() const
{
    return m_impl->fd();
}

std::vector<FileChange> Watcher::readChanges(Nanoseconds now)
{
    return m_impl->readChanges(now);
}

std::vector<FileChange> Watcher::pollDue(Nanoseconds now)
{
    return m_impl->pollDue(now);
}

Nanoseconds Watcher::nextDeadline() const
{
    return m_impl->nextDeadline();
}

WatcherStatistics Watcher::statistics() const
{
    return m_impl->statistics();
}

std::vector<WatchProblem> Watcher::takeProblems()
{
    return m_impl->takeProblems();
}

}  // namespace trovara::index
