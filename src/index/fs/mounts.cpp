#include "index/fs/mounts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

namespace trovara::index {

namespace {

// File systems that hold no user files: kernel interfaces and control
// folders. Entering them would index thousands of meaningless entries, and
// some (autofs) would mount things by merely being looked at.
constexpr std::array<std::string_view, 25> kVirtualTypes = {
    "proc",      "sysfs",     "devtmpfs",    "devpts",      "cgroup",   "cgroup2", "securityfs",
    "debugfs",   "tracefs",   "pstore",      "bpf",         "mqueue",   "hugetlbfs", "configfs",
    "fusectl",   "autofs",    "binfmt_misc", "efivarfs",    "nsfs",     "rpc_pipefs", "selinuxfs",
    "smackfs",   "fuse.lxcfs", "fuse.portal", "fuse.gvfsd-fuse",
};

// File systems whose files live on another machine: slow to walk, and they
// belong to the network scope rather than to the local computer.
constexpr std::array<std::string_view, 22> kNetworkTypes = {
    "nfs",       "nfs4",       "cifs",       "smb3",        "smbfs",        "sshfs",
    "fuse.sshfs", "davfs",     "fuse.davfs2", "9p",         "afs",          "ceph",
    "fuse.ceph", "glusterfs", "fuse.glusterfs", "fuse.rclone", "fuse.s3fs", "ncpfs",
    "coda",      "lustre",    "fuse.curlftpfs", "orangefs",
};

constexpr std::array<std::int64_t, 20> kVirtualMagics = {
    PROC_SUPER_MAGIC, SYSFS_MAGIC,      DEVPTS_SUPER_MAGIC, CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC,
    SECURITYFS_MAGIC, DEBUGFS_MAGIC,    TRACEFS_MAGIC,      PSTOREFS_MAGIC,     BPF_FS_MAGIC,
    0x19800202 /* mqueue */, HUGETLBFS_MAGIC, 0x62656570 /* configfs */, 0x65735543 /* fusectl */,
    AUTOFS_SUPER_MAGIC, BINFMTFS_MAGIC, EFIVARFS_MAGIC, NSFS_MAGIC, SELINUX_MAGIC, SMACK_MAGIC,
};

constexpr std::array<std::string_view, 4> kSystemFolders = {"/proc", "/sys", "/dev", "/run"};

// Whether `path` is `folder` or lies inside it, comparing whole components.
bool isInside(std::string_view path, std::string_view folder)
{
    if (folder == "/") {
        return !path.empty() && path.front() == '/';
    }
    return path.size() >= folder.size() && path.compare(0, folder.size(), folder) == 0
           && (path.size() == folder.size() || path[folder.size()] == '/');
}

// Decodes the "\ooo" escapes mountinfo uses for space, tab, newline and
// backslash in paths.
std::string unescapeOctal(std::string_view field)
{
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const char a = field[i + 1];
            const char b = field[i + 2];
            const char c = field[i + 3];
            if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && c >= '0' && c <= '7') {
                out.push_back(static_cast<char>((a - '0') * 64 + (b - '0') * 8 + (c - '0')));
                i += 3;
                continue;
            }
        }
        out.push_back(field[i]);
    }
    return out;
}

bool parseUnsigned(std::string_view text, std::uint32_t& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

// Parses one line; false when it is not a mountinfo line.
bool parseLine(std::string_view line, Mount& mount)
{
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (start <= line.size()) {
        std::size_t end = line.find(' ', start);
        if (end == std::string_view::npos) {
            end = line.size();
        }
        if (end > start) {
            fields.push_back(line.substr(start, end - start));
        }
        start = end + 1;
    }
    // id parent major:minor root mount-point options [optional…] - type source super-options
    std::size_t separator = 6;
    while (separator < fields.size() && fields[separator] != "-") {
        ++separator;
    }
    if (fields.size() < 7 || separator + 1 >= fields.size()) {
        return false;
    }
    const std::string_view device = fields[2];
    const std::size_t colon = device.find(':');
    if (colon == std::string_view::npos || !parseUnsigned(fields[0], mount.id)
        || !parseUnsigned(fields[1], mount.parentId) || !parseUnsigned(device.substr(0, colon), mount.major)
        || !parseUnsigned(device.substr(colon + 1), mount.minor)) {
        return false;
    }
    mount.root = unescapeOctal(fields[3]);
    mount.mountPoint = unescapeOctal(fields[4]);
    if (mount.mountPoint.empty() || mount.mountPoint.front() != '/') {
        return false;
    }
    mount.fileSystemType = unescapeOctal(fields[separator + 1]);
    mount.source = separator + 2 < fields.size() ? unescapeOctal(fields[separator + 2]) : std::string();
    mount.kind = classifyFileSystemType(mount.fileSystemType);
    return true;
}

// Removes duplicates and folders that `contains(outer, inner)` says lie in
// another folder of the list.
template <typename Contains>
std::vector<std::string> removeContained(std::vector<std::string> folders, Contains contains)
{
    std::sort(folders.begin(), folders.end());
    folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
    std::vector<std::string> kept;
    for (const std::string& folder : folders) {
        const bool nested = std::any_of(folders.begin(), folders.end(), [&](const std::string& other) {
            return other != folder && contains(other, folder);
        });
        if (!nested) {
            kept.push_back(folder);
        }
    }
    return kept;
}

std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// Whether the folder lies where only the system keeps things, except the
// place removable volumes are mounted.
bool isSystemPlace(std::string_view path)
{
    if (isInside(path, "/run/media")) {
        return false;
    }
    return std::any_of(kSystemFolders.begin(), kSystemFolders.end(),
                       [&](std::string_view folder) { return isInside(path, folder); });
}

// udev writes unsafe characters of labels as "\xHH".
std::string unescapeHex(std::string_view name)
{
    std::string out;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x') {
            unsigned value = 0;
            const auto [end, error] = std::from_chars(name.data() + i + 2, name.data() + i + 4, value, 16);
            if (error == std::errc() && end == name.data() + i + 4) {
                out.push_back(static_cast<char>(value));
                i += 3;
                continue;
            }
        }
        out.push_back(name[i]);
    }
    return out;
}

std::string canonicalPath(const std::string& path)
{
    char buffer[PATH_MAX];
    if (::realpath(path.c_str(), buffer) == nullptr) {
        return {};
    }
    return buffer;
}

}  // namespace

MountKind classifyFileSystemType(std::string_view type)
{
    if (std::find(kVirtualTypes.begin(), kVirtualTypes.end(), type) != kVirtualTypes.end()) {
        return MountKind::Virtual;
    }
    if (std::find(kNetworkTypes.begin(), kNetworkTypes.end(), type) != kNetworkTypes.end()) {
        return MountKind::Network;
    }
    return MountKind::Local;
}

bool isVirtualFileSystemMagic(std::int64_t magic)
{
    // statfs's f_type is a signed word on some architectures; compare the
    // low 32 bits, where every magic number lives.
    const auto low = static_cast<std::uint32_t>(magic);
    return std::any_of(kVirtualMagics.begin(), kVirtualMagics.end(),
                       [&](std::int64_t known) { return static_cast<std::uint32_t>(known) == low; });
}

bool isSystemFolder(std::string_view path)
{
    return std::find(kSystemFolders.begin(), kSystemFolders.end(), path) != kSystemFolders.end();
}

std::vector<Mount> parseMountInfo(std::string_view text)
{
    std::vector<Mount> mounts;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        Mount mount;
        if (parseLine(text.substr(start, end - start), mount)) {
            mounts.push_back(std::move(mount));
        }
        start = end + 1;
    }
    return mounts;
}

std::vector<std::string> removeNestedFolders(std::vector<std::string> folders)
{
    return removeContained(std::move(folders),
                           [](const std::string& outer, const std::string& inner) { return isInside(inner, outer); });
}

std::string homeFolder()
{
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') {
        return withoutTrailingSlashes(home);
    }
    struct passwd entry {};
    struct passwd* result = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 && result != nullptr
        && result->pw_dir != nullptr && result->pw_dir[0] == '/') {
        return withoutTrailingSlashes(result->pw_dir);
    }
    return {};
}

MountTable::MountTable(std::vector<Mount> mounts)
    : m_mounts(std::move(mounts))
{
}

Expected<MountTable> MountTable::current()
{
    const int fd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return Failure{Failure::Kind::Io,
                       std::string("Cannot read the mount table /proc/self/mountinfo: ") + std::strerror(errno)};
    }
    std::string text;
    char buffer[16384];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            const int error = errno;
            ::close(fd);
            return Failure{Failure::Kind::Io,
                           std::string("Cannot read the mount table /proc/self/mountinfo: ") + std::strerror(error)};
        }
        if (count == 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
    ::close(fd);
    return fromText(text);
}

const Mount* MountTable::mountFor(std::string_view path) const
{
    if (path.empty() || path.front() != '/') {
        return nullptr;
    }
    const Mount* best = nullptr;
    for (const Mount& mount : m_mounts) {
        if (isInside(path, mount.mountPoint)
            && (best == nullptr || mount.mountPoint.size() >= best->mountPoint.size())) {
            best = &mount;
        }
    }
    return best;
}

const Mount* MountTable::mountForDevice(std::uint32_t major, std::uint32_t minor) const
{
    for (auto it = m_mounts.rbegin(); it != m_mounts.rend(); ++it) {
        if (it->major == major && it->minor == minor) {
            return &*it;
        }
    }
    return nullptr;
}

bool MountTable::isVirtual(std::string_view path) const
{
    const Mount* mount = mountFor(path);
    return mount != nullptr && mount->kind == MountKind::Virtual;
}

bool MountTable::isNetwork(std::string_view path) const
{
    const Mount* mount = mountFor(path);
    return mount != nullptr && mount->kind == MountKind::Network;
}

std::vector<std::string> MountTable::scopeFolders(NamedScope scope, const std::string& home) const
{
    std::vector<std::string> folders;
    const std::string homePath = withoutTrailingSlashes(home);
    switch (scope) {
    case NamedScope::UserHome:
        if (!homePath.empty()) {
            folders.push_back(homePath);
        }
        return folders;
    case NamedScope::LocalComputer: {
        for (const Mount& mount : m_mounts) {
            if (mount.kind == MountKind::Local && !isSystemPlace(mount.mountPoint)) {
                folders.push_back(mount.mountPoint);
            }
        }
        if (!homePath.empty()) {
            folders.push_back(homePath);
        }
        // An inner folder is left out only when a walk of the outer one
        // reaches it, and no walk enters the system folders.
        return removeContained(std::move(folders), [](const std::string& outer, const std::string& inner) {
            return isInside(inner, outer)
                   && std::none_of(kSystemFolders.begin(), kSystemFolders.end(), [&](std::string_view system) {
                          return isInside(inner, system) && !isInside(outer, system);
                      });
        });
    }
    case NamedScope::Network:
        for (const Mount& mount : m_mounts) {
            if (mount.kind == MountKind::Network) {
                folders.push_back(mount.mountPoint);
            }
        }
        return removeNestedFolders(std::move(folders));
    }
    return folders;
}

std::string rootVolumeLabel()
{
    struct stat root {};
    if (::stat("/", &root) != 0) {
        return {};
    }
    std::string source;
    if (auto table = MountTable::current()) {
        if (const Mount* mount = table->mountFor("/")) {
            source = mount->source;
        }
    }
    return rootVolumeLabel("/dev/disk/by-label", root.st_dev, source);
}

std::string rootVolumeLabel(const std::string& byLabelFolder, std::uint64_t rootDevice, const std::string& rootSource)
{
    DIR* folder = ::opendir(byLabelFolder.c_str());
    if (folder == nullptr) {
        return {};
    }
    const std::string canonicalSource =
        !rootSource.empty() && rootSource.front() == '/' ? canonicalPath(rootSource) : std::string();
    std::string label;
    while (const dirent* entry = ::readdir(folder)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string path = byLabelFolder + "/" + entry->d_name;
        struct stat target {};
        const bool sameDevice = ::stat(path.c_str(), &target) == 0 && S_ISBLK(target.st_mode)
                                && static_cast<std::uint64_t>(target.st_rdev) == rootDevice;
        if (sameDevice || (!canonicalSource.empty() && canonicalPath(path) == canonicalSource)) {
            label = unescapeHex(name);
            break;
        }
    }
    ::closedir(folder);
    return label;
}

}  // namespace trovara::index
