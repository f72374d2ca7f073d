#include "fileops/file_system.h"

#include <QFile>
#include <QProcess>

#include <array>
#include <string>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace trovara::fileops {

namespace {

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

// Closes the descriptor when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    // Closes now, so that a failing close (a deferred write error on some
    // file systems) is reported.
    int close()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd < 0 || ::close(fd) == 0 ? 0 : errno;
    }

private:
    int m_fd;
};

FileInfo::Type typeOf(mode_t mode)
{
    if (S_ISREG(mode)) {
        return FileInfo::Type::File;
    }
    if (S_ISDIR(mode)) {
        return FileInfo::Type::Directory;
    }
    if (S_ISLNK(mode)) {
        return FileInfo::Type::Symlink;
    }
    return FileInfo::Type::Other;
}

// Blocks of copy_file_range: large enough to be cheap, small enough that an
// abort is seen soon.
constexpr size_t kChunk = 8 * 1024 * 1024;
constexpr size_t kBufferSize = 256 * 1024;

int copyByReading(int in, int out, const std::atomic<bool>* abort)
{
    thread_local std::vector<char> buffer(kBufferSize);
    for (;;) {
        if (abort && abort->load(std::memory_order_relaxed)) {
            return ECANCELED;
        }
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        if (got == 0) {
            return 0;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t wrote = ::write(out, buffer.data() + done, static_cast<size_t>(got - done));
            if (wrote < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return errno;
            }
            done += wrote;
        }
    }
}

// The kernel copies (and may share blocks) where it can; otherwise the bytes
// go through a buffer. A file of known size is done once that many bytes
// are in (one call fewer per small file); an empty one is read to its end,
// since files of some file systems tell no size.
int copyData(int in, int out, off_t size, const std::atomic<bool>* abort)
{
    bool copiedAny = false;
    off_t total = 0;
    for (;;) {
        if (abort && abort->load(std::memory_order_relaxed)) {
            return ECANCELED;
        }
        if (size > 0 && total >= size) {
            return 0;
        }
        const ssize_t copied = ::copy_file_range(in, nullptr, out, nullptr, kChunk, 0);
        if (copied > 0) {
            copiedAny = true;
            total += copied;
            continue;
        }
        if (copied == 0) {
            return 0;
        }
        if (errno == EINTR) {
            continue;
        }
        const bool unsupported = errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP
                                 || errno == EBADF || errno == EPERM;
        if (!unsupported || copiedAny) {
            return errno;
        }
        return copyByReading(in, out, abort);
    }
}

// The names of the user extended attributes (tags, comments, origin):
// the only ones a person sets and expects to travel with the file.
std::vector<std::string> userAttributeNames(const std::vector<char>& list)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < list.size();) {
        std::string name(list.data() + at);
        at += name.size() + 1;
        if (name.rfind("user.", 0) == 0) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

// Best effort: a destination that cannot hold extended attributes (FAT, some
// network shares) still gets the file.
template <typename List, typename Get, typename Set>
void copyExtendedAttributes(List list, Get get, Set set)
{
    ssize_t size = list(nullptr, 0);
    if (size <= 0) {
        return;
    }
    std::vector<char> names(static_cast<size_t>(size));
    size = list(names.data(), names.size());
    if (size <= 0) {
        return;
    }
    names.resize(static_cast<size_t>(size));
    std::vector<char> value;
    for (const std::string& name : userAttributeNames(names)) {
        const ssize_t length = get(name.c_str(), nullptr, 0);
        if (length < 0) {
            continue;
        }
        value.resize(static_cast<size_t>(length));
        const ssize_t got = get(name.c_str(), value.data(), value.size());
        if (got >= 0) {
            set(name.c_str(), value.data(), static_cast<size_t>(got));
        }
    }
}

// The process's file creation mask, read once: umask() can only be read by
// setting it, which would race with other threads creating files.
mode_t creationMask()
{
    static const mode_t mask = [] {
        QFile status(QStringLiteral("/proc/self/status"));
        if (status.open(QIODevice::ReadOnly)) {
            for (const QByteArray& line : status.readAll().split('\n')) {
                if (line.startsWith("Umask:")) {
                    bool ok = false;
                    const uint value = line.mid(6).trimmed().toUInt(&ok, 8);
                    if (ok) {
                        return mode_t(value & 0777);
                    }
                }
            }
        }
        // Unknown: assume every bit may be masked, so permissions are always set.
        return mode_t(0777);
    }();
    return mask;
}

}  // namespace

int LocalFileSystem::status(const QString& path, Links links, FileInfo* info)
{
    *info = FileInfo{};
    struct stat st {};
    const QByteArray name = native(path);
    const int rc = links == Links::Follow ? ::stat(name.constData(), &st) : ::lstat(name.constData(), &st);
    if (rc != 0) {
        return errno;
    }
    info->type = typeOf(st.st_mode);
    info->size = st.st_size;
    info->permissions = st.st_mode & 07777;
    info->device = st.st_dev;
    info->inode = st.st_ino;
    info->modifiedNanoseconds = std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return 0;
}

bool LocalFileSystem::isAccessible(const QString& path, Access access)
{
    const QByteArray name = native(path);
    if (access == Access::Write) {
        return ::access(name.constData(), W_OK) == 0;
    }
    struct stat st {};
    const bool folder = ::stat(name.constData(), &st) == 0 && S_ISDIR(st.st_mode);
    return ::access(name.constData(), folder ? R_OK | X_OK : R_OK) == 0;
}

int LocalFileSystem::listDirectory(const QString& path, QStringList* names)
{
    names->clear();
    DIR* dir = ::opendir(native(path).constData());
    if (!dir) {
        return errno;
    }
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) {
            continue;
        }
        names->push_back(QFile::decodeName(name));
    }
    const int error = errno;
    ::closedir(dir);
    return error;
}

int LocalFileSystem::copyFile(const QString& source, const QString& destination, const std::atomic<bool>* abort)
{
    Descriptor in(::open(native(source).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!in.valid()) {
        return errno;
    }
    struct stat st {};
    if (::fstat(in.get(), &st) != 0) {
        return errno;
    }
    if (!S_ISREG(st.st_mode)) {
        return EINVAL;
    }
    // Created with its final permissions (the creation mask may take some
    // away; they are put back below only then), and only if nothing is at
    // the destination: what O_EXCL created is ours to remove on failure.
    const mode_t mode = st.st_mode & 0777;
    const QByteArray target = native(destination);
    Descriptor out(::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!out.valid()) {
        return errno;
    }
    const int error = [&] {
        if (st.st_size > off_t(kChunk)) {
            ::posix_fadvise(in.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        }
        if (const int code = copyData(in.get(), out.get(), st.st_size, abort)) {
            return code;
        }
        copyExtendedAttributes([&](char* list, size_t size) { return ::flistxattr(in.get(), list, size); },
                               [&](const char* name, void* value, size_t size) {
                                   return ::fgetxattr(in.get(), name, value, size);
                               },
                               [&](const char* name, const void* value, size_t size) {
                                   return ::fsetxattr(out.get(), name, value, size, 0);
                               });
        if ((mode & ~creationMask()) != mode && ::fchmod(out.get(), mode) != 0) {
            return errno;
        }
        const std::array<timespec, 2> times{st.st_atim, st.st_mtim};
        if (::futimens(out.get(), times.data()) != 0) {
            return errno;
        }
        return out.close();
    }();
    if (error != 0) {
        out.close();
        ::unlink(target.constData());
    }
    return error;
}

int LocalFileSystem::makeDirectory(const QString& path)
{
    return ::mkdir(native(path).constData(), 0700) == 0 ? 0 : errno;
}

int LocalFileSystem::copyAttributes(const QString& source, const QString& destination)
{
    const QByteArray from = native(source);
    const QByteArray to = native(destination);
    struct stat st {};
    if (::lstat(from.constData(), &st) != 0) {
        return errno;
    }
    copyExtendedAttributes([&](char* list, size_t size) { return ::llistxattr(from.constData(), list, size); },
                           [&](const char* name, void* value, size_t size) {
                               return ::lgetxattr(from.constData(), name, value, size);
                           },
                           [&](const char* name, const void* value, size_t size) {
                               return ::lsetxattr(to.constData(), name, value, size, 0);
                           });
    if (!S_ISLNK(st.st_mode) && ::chmod(to.constData(), st.st_mode & 07777) != 0) {
        return errno;
    }
    const std::array<timespec, 2> times{st.st_atim, st.st_mtim};
    if (::utimensat(AT_FDCWD, to.constData(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    return 0;
}

int LocalFileSystem::readLink(const QString& path, QString* target)
{
    const QByteArray name = native(path);
    std::vector<char> buffer(256);
    for (;;) {
        const ssize_t length = ::readlink(name.constData(), buffer.data(), buffer.size());
        if (length < 0) {
            return errno;
        }
        if (static_cast<size_t>(length) < buffer.size()) {
            *target = QFile::decodeName(QByteArray(buffer.data(), length));
            return 0;
        }
        buffer.resize(buffer.size() * 2);
    }
}

int LocalFileSystem::makeLink(const QString& target, const QString& path)
{
    return ::symlink(native(target).constData(), native(path).constData()) == 0 ? 0 : errno;
}

int LocalFileSystem::rename(const QString& from, const QString& to)
{
    const QByteArray source = native(from);
    const QByteArray destination = native(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, destination.constData(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // A file system without the no-replace flag: look first (a small window
    // remains, the best such a file system allows).
    struct stat st {};
    if (::lstat(destination.constData(), &st) == 0) {
        return EEXIST;
    }
    return ::rename(source.constData(), destination.constData()) == 0 ? 0 : errno;
}

int LocalFileSystem::remove(const QString& path)
{
    const QByteArray name = native(path);
    if (::unlink(name.constData()) == 0) {
        return 0;
    }
    if (errno == EISDIR || errno == EPERM) {
        struct stat st {};
        if (::lstat(name.constData(), &st) == 0 && S_ISDIR(st.st_mode)) {
            return ::rmdir(name.constData()) == 0 ? 0 : errno;
        }
    }
    return errno;
}

int LocalFileSystem::makeRemovable(const QString& path)
{
    return ::chmod(native(path).constData(), 0700) == 0 ? 0 : errno;
}

int LocalFileSystem::synchronize(const QString& path)
{
    Descriptor fd(::open(native(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        return errno;
    }
    return ::syncfs(fd.get()) == 0 ? 0 : errno;
}

int LocalFileSystem::moveToTrash(const QString& path, QString* trashedPath)
{
    errno = 0;
    QString where;
    if (QFile::moveToTrash(path, &where)) {
        *trashedPath = where;
        return 0;
    }
    return errno != 0 ? errno : EIO;
}

int LocalFileSystem::run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    if (!process.waitForStarted(-1) || !process.waitForFinished(-1)) {
        return -1;
    }
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

}  // namespace trovara::fileops
