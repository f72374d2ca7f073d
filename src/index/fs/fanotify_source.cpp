#include "index/fs/fanotify_source.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <string_view>
#include <unistd.h>

namespace trovara::index {

namespace {

constexpr std::size_t kBufferBytes = 64 * 1024;
constexpr int kMaxReadsPerCall = 64;  // the rest waits for the next call; the descriptor stays readable
constexpr std::size_t kMaxCachedPaths = 16 * 1024;
constexpr std::uint64_t kBaseMask = FAN_CREATE | FAN_DELETE | FAN_MODIFY | FAN_CLOSE_WRITE | FAN_ATTRIB | FAN_ONDIR;

std::string errorText(int error)
{
    return std::strerror(error);
}

std::uint64_t fsidKey(const int (&value)[2])
{
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(value[0]))
           | (static_cast<std::uint64_t>(static_cast<std::uint32_t>(value[1])) << 32);
}

std::string join(const std::string& folder, const char* name)
{
    std::string path;
    path.reserve(folder.size() + 1 + std::strlen(name));
    path = folder;
    if (path.empty() || path.back() != '/') {
        path.push_back('/');
    }
    path.append(name);
    return path;
}

// A file handle copied out of an event record into storage aligned for
// struct file_handle.
struct HandleBuffer {
    alignas(struct file_handle) std::array<unsigned char, sizeof(struct file_handle) + MAX_HANDLE_SZ> bytes{};
    struct file_handle* handle() { return reinterpret_cast<struct file_handle*>(bytes.data()); }
};

}  // namespace

FanotifySource::FanotifySource(int fd, bool hasRename)
    : m_fd(fd)
    , m_hasRename(hasRename)
    , m_mask(kBaseMask | (hasRename ? FAN_RENAME : FAN_MOVED_FROM | FAN_MOVED_TO))
    , m_buffer(kBufferBytes / sizeof(std::uint64_t))
{
}

FanotifySource::~FanotifySource()
{
    for (auto& [key, fileSystem] : m_fileSystems) {
        ::close(fileSystem.mountFd);
    }
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

Expected<std::unique_ptr<FanotifySource>> FanotifySource::open()
{
    const int fd = ::fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DFID_NAME,
                                   O_RDONLY | O_CLOEXEC | O_LARGEFILE);
    if (fd < 0) {
        const int error = errno;
        std::string why = error == EPERM    ? "it needs the CAP_SYS_ADMIN privilege"
                          : error == EINVAL ? "the kernel is older than 5.9 (no FAN_REPORT_DFID_NAME)"
                          : error == ENOSYS ? "the kernel has no fanotify"
                                            : errorText(error);
        return Failure{Failure::Kind::Io, "fanotify cannot be used: " + why};
    }
    // FAN_RENAME (5.17) reports both names of a rename in one event; the
    // first mark tells whether the kernel knows it.
    return std::unique_ptr<FanotifySource>(new FanotifySource(fd, true));
}

Expected<std::uint64_t> FanotifySource::addFileSystem(const std::string& folder)
{
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return Failure{Failure::Kind::Io, "Cannot open " + folder + ": " + errorText(errno)};
    }
    struct statfs answers {};
    if (::fstatfs(fd, &answers) != 0) {
        const int error = errno;
        ::close(fd);
        return Failure{Failure::Kind::Io, "Cannot tell the file system of " + folder + ": " + errorText(error)};
    }
    int fsid[2] = {};
    std::memcpy(fsid, &answers.f_fsid, sizeof fsid);
    const std::uint64_t key = fsidKey(fsid);
    if (auto it = m_fileSystems.find(key); it != m_fileSystems.end()) {
        ::close(fd);
        ++it->second.marks;
        return key;
    }

    // Events name folders by handle: check that this process may turn one
    // back into a folder (CAP_DAC_READ_SEARCH) before relying on it.
    HandleBuffer buffer;
    buffer.handle()->handle_bytes = MAX_HANDLE_SZ;
    int mountId = 0;
    if (::name_to_handle_at(fd, "", buffer.handle(), &mountId, AT_EMPTY_PATH) != 0) {
        const int error = errno;
        ::close(fd);
        return Failure{Failure::Kind::Io, "The file system of " + folder + " gives no file handles: " + errorText(error)};
    }
    const int probe = ::open_by_handle_at(fd, buffer.handle(), O_PATH | O_CLOEXEC);
    if (probe < 0) {
        const int error = errno;
        ::close(fd);
        return Failure{Failure::Kind::Io,
                       "Cannot resolve file handles on " + folder + " ("
                           + (error == EPERM ? std::string("it needs the CAP_DAC_READ_SEARCH privilege") : errorText(error))
                           + ")"};
    }
    ::close(probe);

    int marked = ::fanotify_mark(m_fd, FAN_MARK_ADD | FAN_MARK_FILESYSTEM, m_mask, fd, nullptr);
    if (marked != 0 && errno == EINVAL && m_hasRename) {
        m_hasRename = false;
        m_mask = kBaseMask | FAN_MOVED_FROM | FAN_MOVED_TO;
        marked = ::fanotify_mark(m_fd, FAN_MARK_ADD | FAN_MARK_FILESYSTEM, m_mask, fd, nullptr);
    }
    if (marked != 0) {
        const int error = errno;
        ::close(fd);
        return Failure{Failure::Kind::Io, "Cannot mark the file system of " + folder + " for fanotify: "
                                              + (error == EXDEV ? std::string("a subvolume or bind mount cannot be marked")
                                                                : errorText(error))};
    }
    m_fileSystems.emplace(key, FileSystem{fd, 1, folder});
    return key;
}

void FanotifySource::removeFileSystem(std::uint64_t key)
{
    auto it = m_fileSystems.find(key);
    if (it == m_fileSystems.end() || --it->second.marks > 0) {
        return;
    }
    ::fanotify_mark(m_fd, FAN_MARK_REMOVE | FAN_MARK_FILESYSTEM, m_mask, it->second.mountFd, nullptr);
    ::close(it->second.mountFd);
    m_fileSystems.erase(it);
    m_paths.clear();
}

const std::string* FanotifySource::folderPath(const char* record)
{
    int fsid[2] = {};
    std::memcpy(fsid, record + offsetof(struct fanotify_event_info_fid, fsid), sizeof fsid);
    const char* handleBytes = record + offsetof(struct fanotify_event_info_fid, handle);
    struct file_handle header {};
    std::memcpy(&header, handleBytes, sizeof header);
    if (header.handle_bytes > MAX_HANDLE_SZ) {
        return nullptr;
    }
    m_key.assign(reinterpret_cast<const char*>(fsid), sizeof fsid);
    m_key.append(handleBytes, sizeof header + header.handle_bytes);
    if (auto it = m_paths.find(m_key); it != m_paths.end()) {
        return &it->second;
    }
    auto fileSystem = m_fileSystems.find(fsidKey(fsid));
    if (fileSystem == m_fileSystems.end()) {
        return nullptr;
    }
    HandleBuffer buffer;
    std::memcpy(buffer.bytes.data(), handleBytes, sizeof header + header.handle_bytes);
    const int fd = ::open_by_handle_at(fileSystem->second.mountFd, buffer.handle(), O_PATH | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;  // removed since (ESTALE)
    }
    std::array<char, 32> link{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
    std::string path(4096, '\0');
    const ssize_t length = ::readlink(link.data(), path.data(), path.size());
    ::close(fd);
    if (length <= 0 || static_cast<std::size_t>(length) >= path.size() || path.front() != '/') {
        return nullptr;
    }
    path.resize(static_cast<std::size_t>(length));
    static constexpr std::string_view kDeleted = " (deleted)";
    if (path.ends_with(kDeleted)) {
        return nullptr;
    }
    if (m_paths.size() >= kMaxCachedPaths) {
        m_paths.clear();
    }
    return &m_paths.emplace(m_key, std::move(path)).first->second;
}

std::size_t FanotifySource::read(std::vector<Event>& out)
{
    std::size_t count = 0;
    const auto* data = reinterpret_cast<const char*>(m_buffer.data());
    for (int reads = 0; reads < kMaxReadsPerCall; ++reads) {
        const ssize_t length = ::read(m_fd, m_buffer.data(), kBufferBytes);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            break;
        }
        // Records are 4-byte aligned only: every header is copied out
        // before it is read.
        const char* const end = data + length;
        for (const char* event = data; event + sizeof(struct fanotify_event_metadata) <= end;) {
            struct fanotify_event_metadata meta {};
            std::memcpy(&meta, event, sizeof meta);
            if (meta.vers != FANOTIFY_METADATA_VERSION || meta.event_len < meta.metadata_len
                || meta.metadata_len < sizeof meta || event + meta.event_len > end) {
                return count;  // a layout this code does not know: nothing more can be parsed
            }
            const char* const eventEnd = event + meta.event_len;
            const char* at = event + meta.metadata_len;
            event = eventEnd;
            ++count;
            if (meta.fd >= 0) {
                ::close(meta.fd);
            }
            const std::uint64_t mask = meta.mask;
            if (mask & FAN_Q_OVERFLOW) {
                out.push_back(Event{Event::Kind::Overflow, {}, {}, true});
                continue;
            }
            const char* folderRecord = nullptr;
            const char* oldRecord = nullptr;
            const char* newRecord = nullptr;
            const char* name = nullptr;
            const char* oldName = nullptr;
            const char* newName = nullptr;
            while (at + sizeof(struct fanotify_event_info_header) <= eventEnd) {
                struct fanotify_event_info_header header {};
                std::memcpy(&header, at, sizeof header);
                if (header.len < sizeof header || at + header.len > eventEnd) {
                    break;
                }
                const char* recordName = nullptr;
                constexpr std::size_t kHandleAt = offsetof(struct fanotify_event_info_fid, handle);
                if (header.len >= kHandleAt + sizeof(struct file_handle)) {
                    struct file_handle handle {};
                    std::memcpy(&handle, at + kHandleAt, sizeof handle);
                    if (kHandleAt + sizeof handle + handle.handle_bytes < header.len) {
                        recordName = at + kHandleAt + sizeof handle + handle.handle_bytes;
                    }
                }
                switch (header.info_type) {
                case FAN_EVENT_INFO_TYPE_DFID_NAME:
                    folderRecord = at;
                    name = recordName;
                    break;
                case FAN_EVENT_INFO_TYPE_OLD_DFID_NAME:
                    oldRecord = at;
                    oldName = recordName;
                    break;
                case FAN_EVENT_INFO_TYPE_NEW_DFID_NAME:
                    newRecord = at;
                    newName = recordName;
                    break;
                default:
                    break;
                }
                at += header.len;
            }
            const bool isFolder = (mask & FAN_ONDIR) != 0;
            if (mask & FAN_RENAME) {
                const std::string* oldFolder = oldRecord && oldName ? folderPath(oldRecord) : nullptr;
                std::string from = oldFolder ? join(*oldFolder, oldName) : std::string();
                const std::string* newFolder = newRecord && newName ? folderPath(newRecord) : nullptr;
                std::string to = newFolder ? join(*newFolder, newName) : std::string();
                if (isFolder) {
                    m_paths.clear();  // paths below the renamed folder changed
                }
                if (!from.empty() && !to.empty()) {
                    out.push_back(Event{Event::Kind::Moved, std::move(to), std::move(from), isFolder});
                } else if (!from.empty()) {
                    out.push_back(Event{Event::Kind::Deleted, std::move(from), {}, isFolder});
                } else if (!to.empty()) {
                    out.push_back(Event{Event::Kind::Created, std::move(to), {}, isFolder});
                }
                continue;
            }
            const std::string* folder = folderRecord ? folderPath(folderRecord) : nullptr;
            if (folder == nullptr || name == nullptr || name[0] == '\0') {
                continue;  // a folder gone since, or an event on a file system's root itself
            }
            std::string path = join(*folder, name);
            const bool removed = (mask & (FAN_DELETE | FAN_MOVED_FROM)) != 0;
            const bool added = (mask & (FAN_CREATE | FAN_MOVED_TO)) != 0;
            if (removed && isFolder) {
                m_paths.clear();
            }
            if (removed && added) {
                // Merged events leave the order open: what is there now tells.
                struct stat answers {};
                out.push_back(Event{Event::Kind::Deleted, path, {}, isFolder});
                if (::lstat(path.c_str(), &answers) == 0) {
                    out.push_back(Event{Event::Kind::Created, std::move(path), {}, S_ISDIR(answers.st_mode)});
                }
                continue;
            }
            if (added) {
                out.push_back(Event{Event::Kind::Created, path, {}, isFolder});
            }
            if (mask & (FAN_MODIFY | FAN_CLOSE_WRITE)) {
                out.push_back(Event{Event::Kind::Written, path, {}, isFolder});
            }
            if (mask & FAN_ATTRIB) {
                out.push_back(Event{Event::Kind::AttributesChanged, path, {}, isFolder});
            }
            if (removed) {
                out.push_back(Event{Event::Kind::Deleted, std::move(path), {}, isFolder});
            }
        }
    }
    return count;
}

}  // namespace trovara::index
