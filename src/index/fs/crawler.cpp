#include "index/fs/crawler.h"

#include "index/fs/file_details.h"
#include "index/fs/mounts.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>

namespace trovara::index {

namespace {

constexpr std::size_t kDirectoryBufferBytes = 64 * 1024;
// Scans waiting for the sink beyond this make the scanning thread wait its
// turn and deliver, so that a slow sink slows the walk instead of letting
// finished scans pile up in memory.
constexpr std::size_t kMaxWaitingScans = 64;
// Beyond this, more threads only queue up on the disk and the sink.
constexpr int kMaxThreads = 64;

constexpr int kEntryStatFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_SYNC_AS_STAT;

// A folder waiting to be read.
struct FolderTask {
    std::string path;
    std::uint64_t parentDevice = 0;  // a different device of its own makes it a mount point
    std::uint32_t uid = 0;           // its owner, as its parent's listing saw it
    bool invisible = false;
};

// What a scan hands to the sink: a folder's scan, or a folder it could not read.
struct Delivery {
    FolderScan scan;
    int error = 0;  // non-zero: scan.path could not be read
};

// One worker's reusable buffers, so that reading a folder allocates little
// beyond the scan it hands over.
struct WorkerBuffers {
    std::vector<std::uint64_t> directory = std::vector<std::uint64_t>(kDirectoryBufferBytes / sizeof(std::uint64_t));
    std::string names;                   // every entry name, each followed by a NUL
    std::vector<std::uint32_t> offsets;  // where each name starts in `names`
    std::vector<std::size_t> subfolders;  // indices of entries to walk into
};

std::string lastComponent(const std::string& path)
{
    if (path == "/") {
        return path;
    }
    return path.substr(path.rfind('/') + 1);
}

class Crawl {
public:
    Crawl(CrawlSink& sink, const CrawlOptions& options)
        : m_sink(sink)
        , m_cancel(options.cancel)
        , m_euid(::geteuid())
    {
        for (const std::string& folder : options.excludedFolders) {
            if (!folder.empty() && folder.front() == '/') {
                m_excluded.insert(normalizedPath(folder));
            }
        }
        if (auto table = MountTable::current()) {
            for (const Mount& mount : table->mounts()) {
                if (mount.kind == MountKind::Virtual) {
                    m_virtualDevices.push_back(makedev(mount.major, mount.minor));
                }
            }
        }
        std::sort(m_virtualDevices.begin(), m_virtualDevices.end());
    }

    bool isExcluded(const std::string& path) const { return !m_excluded.empty() && m_excluded.count(path) != 0; }

    // Whether the open folder lies on a file system without user files.
    bool isVirtual(int fd, std::uint64_t device) const
    {
        if (std::binary_search(m_virtualDevices.begin(), m_virtualDevices.end(), device)) {
            return true;
        }
        struct statfs answers {};
        return ::fstatfs(fd, &answers) == 0 && isVirtualFileSystemMagic(static_cast<std::int64_t>(answers.f_type));
    }

    CrawlStatistics run(FolderTask root, int threads)
    {
        m_queue.push_back(std::move(root));
        std::vector<std::thread> workers;
        for (int i = 1; i < threads; ++i) {
            try {
                workers.emplace_back([this] { work(); });
            } catch (const std::system_error&) {
                break;  // fewer threads, same walk
            }
        }
        work();
        for (std::thread& worker : workers) {
            worker.join();
        }
        drain(true);
        m_statistics.cancelled = m_sawCancel.load();
        return m_statistics;
    }

private:
    bool cancelled()
    {
        if (m_cancel != nullptr && m_cancel->load(std::memory_order_relaxed)) {
            m_sawCancel.store(true, std::memory_order_relaxed);
            return true;
        }
        return false;
    }

    void work()
    {
        WorkerBuffers buffers;
        std::vector<FolderTask> subfolders;
        for (;;) {
            FolderTask task;
            {
                std::unique_lock lock(m_queueMutex);
                m_queueChanged.wait(lock, [&] { return m_stop || !m_queue.empty() || m_busy == 0; });
                if (m_stop || m_queue.empty()) {
                    m_stop = true;
                    lock.unlock();
                    m_queueChanged.notify_all();
                    return;
                }
                task = std::move(m_queue.back());
                m_queue.pop_back();
                ++m_busy;
            }
            subfolders.clear();
            scanFolder(task, buffers, subfolders);
            bool wakeAll = false;
            {
                const std::lock_guard lock(m_queueMutex);
                --m_busy;
                if (cancelled()) {
                    m_stop = true;
                } else {
                    for (auto it = subfolders.rbegin(); it != subfolders.rend(); ++it) {
                        m_queue.push_back(std::move(*it));
                    }
                }
                wakeAll = m_stop || subfolders.size() > 1 || (m_queue.empty() && m_busy == 0);
            }
            if (wakeAll) {
                m_queueChanged.notify_all();
            } else if (!subfolders.empty()) {
                m_queueChanged.notify_one();
            }
        }
    }

    int openFolder(const FolderTask& task) const
    {
        // Reading a folder would set its access time; the index's reads are
        // not uses. The kernel allows O_NOATIME to the owner (and root) only.
        if (m_euid == 0 || task.uid == m_euid) {
            const int fd = openFolderAt(AT_FDCWD, task.path.c_str(), O_NOATIME);
            if (fd >= 0 || errno != EPERM) {
                return fd;
            }
        }
        return openFolderAt(AT_FDCWD, task.path.c_str(), 0);
    }

    static int openFolderAt(int at, const char* path, int extraFlags)
    {
        constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        const int fd = ::openat(at, path, kFlags | extraFlags);
        if (fd >= 0 || errno != ENAMETOOLONG || at != AT_FDCWD) {
            return fd;
        }
        // Deeper than PATH_MAX: one component at a time, none of them
        // followed should it have become a link.
        int folder = ::open("/", kFlags);
        std::string_view rest(path);
        while (folder >= 0) {
            while (!rest.empty() && rest.front() == '/') {
                rest.remove_prefix(1);
            }
            if (rest.empty()) {
                return folder;
            }
            const std::string component(rest.substr(0, rest.find('/')));
            rest.remove_prefix(component.size());
            const int next = ::openat(folder, component.c_str(), kFlags | (rest.empty() ? extraFlags : 0));
            const int error = errno;
            ::close(folder);
            folder = next;
            errno = error;
        }
        return -1;
    }

    void unreadable(std::string path, int error)
    {
        Delivery delivery;
        delivery.scan.path = std::move(path);
        delivery.error = error;
        deliver(std::move(delivery));
    }

    void scanFolder(FolderTask& task, WorkerBuffers& buffers, std::vector<FolderTask>& subfolders)
    {
        if (cancelled()) {
            return;
        }
        const int fd = openFolder(task);
        if (fd < 0) {
            unreadable(std::move(task.path), errno);
            return;
        }
        Delivery delivery;
        const int error = readFolder(fd, task, buffers, delivery.scan);
        if (error == 0 && delivery.scan.path.empty()) {
            ::close(fd);  // not entered (a virtual file system), or cancelled
            return;
        }
        if (error != 0) {
            ::close(fd);
            unreadable(std::move(task.path), error);
            return;
        }
        const bool complete = readDetails(fd, delivery.scan);
        ::close(fd);
        if (!complete) {
            return;
        }

        FolderScan& scan = delivery.scan;
        for (const std::size_t index : buffers.subfolders) {
            const FileInfo& entry = scan.entries[index].info;
            FolderTask child;
            child.path.reserve(scan.path.size() + 1 + entry.name.size());
            child.path = scan.path;
            if (child.path.back() != '/') {
                child.path.push_back('/');
            }
            child.path.append(entry.name);
            if (isExcluded(child.path) || isSystemFolder(child.path)
                || (entry.device != scan.self.device
                    && std::binary_search(m_virtualDevices.begin(), m_virtualDevices.end(), entry.device))) {
                continue;
            }
            child.parentDevice = scan.self.device;
            child.uid = entry.uid;
            child.invisible = entry.invisible;
            subfolders.push_back(std::move(child));
        }
        // Delivered before its sub-folders are queued: their scans can only
        // come later, and deliveries keep their order.
        deliver(std::move(delivery));
    }

    // Lists and stats the folder's entries into `scan`. Returns an errno
    // value when the folder cannot be read; leaves `scan.path` empty when the
    // folder is not to be reported (cancelled, or a virtual file system).
    int readFolder(int fd, const FolderTask& task, WorkerBuffers& buffers, FolderScan& scan)
    {
        struct statx answers {};
        if (::statx(fd, "", AT_EMPTY_PATH | AT_STATX_SYNC_AS_STAT, statxMask(), &answers) != 0) {
            return errno;
        }
        FileInfo self;
        fillFileInfo(answers, self);
        if (self.kind != FileKind::Directory) {
            return ENOTDIR;
        }
        if (self.device != task.parentDevice && isVirtual(fd, self.device)) {
            return 0;
        }
        self.name = lastComponent(task.path);
        self.invisible = task.invisible;

        buffers.names.clear();
        buffers.offsets.clear();
        buffers.subfolders.clear();
        auto* data = reinterpret_cast<char*>(buffers.directory.data());
        for (;;) {
            const ssize_t length = ::getdents64(fd, data, kDirectoryBufferBytes);
            if (length < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return errno;
            }
            if (length == 0) {
                break;
            }
            for (ssize_t at = 0; at < length;) {
                const auto* entry = reinterpret_cast<const struct dirent64*>(data + at);
                at += entry->d_reclen;
                const char* name = entry->d_name;
                if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
                    continue;
                }
                buffers.offsets.push_back(static_cast<std::uint32_t>(buffers.names.size()));
                buffers.names.append(name);
                buffers.names.push_back('\0');
            }
            if (cancelled()) {
                return 0;
            }
        }

        scan.entries.reserve(buffers.offsets.size());
        bool hasHiddenFile = false;
        for (const std::uint32_t offset : buffers.offsets) {
            if (cancelled()) {
                return 0;
            }
            const char* name = buffers.names.data() + offset;
            if (::statx(fd, name, kEntryStatFlags, statxMask(), &answers) != 0) {
                if (errno == EACCES) {
                    return EACCES;  // names without search permission: nothing can be told of them
                }
                continue;  // gone since it was listed, or broken on its own
            }
            ScannedEntry& entry = scan.entries.emplace_back();
            entry.info.name = name;
            fillFileInfo(answers, entry.info);
            entry.info.invisible = isDotName(entry.info.name);
            if (entry.info.kind == FileKind::Directory) {
                // An automount point would mount something merely by being
                // entered.
                const bool automount = (answers.stx_attributes_mask & STATX_ATTR_AUTOMOUNT)
                                       && (answers.stx_attributes & STATX_ATTR_AUTOMOUNT);
                if (!automount) {
                    buffers.subfolders.push_back(scan.entries.size() - 1);
                }
            } else if (entry.info.kind == FileKind::Regular && entry.info.name == ".hidden") {
                hasHiddenFile = true;
            }
        }
        if (hasHiddenFile) {
            const HiddenNames hidden = HiddenNames::read(fd);
            if (!hidden.empty()) {
                for (ScannedEntry& entry : scan.entries) {
                    entry.info.invisible = entry.info.invisible || hidden.contains(entry.info.name);
                }
            }
        }
        scan.path = task.path;
        scan.self = std::move(self);
        return 0;
    }

    // Asks the sink which entries changed and reads their details. False
    // when cancelled meanwhile.
    bool readDetails(int fd, FolderScan& scan)
    {
        for (ScannedEntry& entry : scan.entries) {
            if (cancelled()) {
                return false;
            }
            if (m_sink.needsDetails(scan.path, entry.info)) {
                entry.details = readFileDetails(fd, scan.path, entry.info);
            }
        }
        return true;
    }

    // Hands a result to the sink, in the order results arrive. Whoever finds
    // the sink free delivers everything waiting; the others go on walking.
    void deliver(Delivery&& delivery)
    {
        std::size_t waiting = 0;
        {
            const std::lock_guard lock(m_waitingMutex);
            m_waiting.push_back(std::move(delivery));
            waiting = m_waiting.size();
        }
        drain(waiting > kMaxWaitingScans);
    }

    void drain(bool wait)
    {
        for (;;) {
            std::unique_lock sinkLock(m_sinkMutex, std::defer_lock);
            if (wait) {
                sinkLock.lock();
                wait = false;
            } else if (!sinkLock.try_lock()) {
                // The holder re-checks the queue after unlocking, so this
                // delivery is not left behind.
                return;
            }
            for (;;) {
                Delivery next;
                {
                    const std::lock_guard lock(m_waitingMutex);
                    if (m_waiting.empty()) {
                        break;
                    }
                    next = std::move(m_waiting.front());
                    m_waiting.pop_front();
                }
                deliverLocked(std::move(next));
            }
            sinkLock.unlock();
            const std::lock_guard lock(m_waitingMutex);
            if (m_waiting.empty()) {
                return;
            }
        }
    }

    // Needs m_sinkMutex held.
    void deliverLocked(Delivery&& delivery)
    {
        if (cancelled()) {
            return;  // what is reported stays reported; nothing more is
        }
        if (delivery.error != 0) {
            ++m_statistics.unreadable;
            m_sink.folderUnreadable(delivery.scan.path, delivery.error);
            return;
        }
        ++m_statistics.folders;
        for (const ScannedEntry& entry : delivery.scan.entries) {
            m_statistics.files += entry.info.kind != FileKind::Directory ? 1 : 0;
            m_statistics.detailed += entry.details ? 1 : 0;
        }
        m_sink.folderScanned(std::move(delivery.scan));
    }

    CrawlSink& m_sink;
    const std::atomic<bool>* m_cancel;
    const uid_t m_euid;
    std::unordered_set<std::string> m_excluded;
    std::vector<std::uint64_t> m_virtualDevices;  // sorted dev_t values of virtual mounts
    std::atomic<bool> m_sawCancel{false};

    std::mutex m_queueMutex;
    std::condition_variable m_queueChanged;
    std::vector<FolderTask> m_queue;  // a stack: depth first keeps it short
    int m_busy = 0;                   // folders being read
    bool m_stop = false;

    std::mutex m_waitingMutex;
    std::deque<Delivery> m_waiting;

    std::mutex m_sinkMutex;
    CrawlStatistics m_statistics;  // guarded by m_sinkMutex
};

}  // namespace

Expected<CrawlStatistics> crawl(const std::string& givenRoot, CrawlSink& sink, const CrawlOptions& options)
{
    if (givenRoot.empty() || givenRoot.front() != '/') {
        return Failure{Failure::Kind::InvalidArgument, "The folder to crawl must be an absolute path: \"" + givenRoot + "\""};
    }
    const std::string root = normalizedPath(givenRoot);
    if (isSystemFolder(root)) {
        return Failure{Failure::Kind::InvalidArgument, root + " holds the system's own files and is never crawled."};
    }
    Crawl walk(sink, options);
    if (walk.isExcluded(root)) {
        return CrawlStatistics{};
    }

    auto self = statPath(root);
    if (!self) {
        return self.error();
    }
    if (self->kind != FileKind::Directory) {
        return Failure{Failure::Kind::InvalidArgument,
                       root + (self->kind == FileKind::Symlink ? " is a symbolic link, not a folder."
                                                                : " is not a folder.")};
    }
    const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return Failure{Failure::Kind::Io, "Cannot read the folder " + root + ": " + std::strerror(errno)};
    }
    const bool isVirtual = walk.isVirtual(fd, self->device);
    ::close(fd);
    if (isVirtual) {
        return Failure{Failure::Kind::InvalidArgument,
                       root + " is on a virtual file system, which holds no files to index."};
    }

    FolderTask task;
    task.path = root;
    task.parentDevice = self->device;
    task.uid = self->uid;
    task.invisible = self->invisible;
    int threads = options.threads;
    if (threads <= 0) {
        threads = std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
    }
    threads = std::min(threads, kMaxThreads);
    return walk.run(std::move(task), threads);
}

std::string normalizedPath(std::string_view path)
{
    std::string out;
    out.reserve(path.size());
    for (const char c : path) {
        if (c == '/' && !out.empty() && out.back() == '/') {
            continue;
        }
        out.push_back(c);
    }
    while (out.size() > 1 && out.back() == '/') {
        out.pop_back();
    }
    return out;
}

}  // namespace trovara::index
