// The mounted file systems, as the index needs to know them: which ones are
// virtual (never crawled), which ones are on the network, and which folders
// the three named search scopes (user home, local computer, network) stand
// for.
//
// A MountTable is a plain value built from the text of
// /proc/self/mountinfo; it does not follow later mounts or unmounts (read a
// fresh one when the watcher reports a change). Immutable after
// construction, so it may be read from any number of threads.
//
// Paths are byte strings as the kernel has them (the octal escapes of
// mountinfo, "\040" for a space, are decoded). Path lookups are lexical:
// they do not resolve symbolic links.
#pragma once

#include "index/expected.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

enum class MountKind : std::uint8_t {
    Local,
    Network,
    Virtual,  // proc, sysfs, cgroup, … : no user files, never crawled
};

struct Mount {
    std::uint32_t id = 0;
    std::uint32_t parentId = 0;
    std::uint32_t major = 0;  // the device the file system is on, as stx_dev_major/minor report it
    std::uint32_t minor = 0;
    std::string root;            // the folder of the file system mounted here ("/" unless a bind mount)
    std::string mountPoint;      // absolute
    std::string fileSystemType;  // "ext4", "nfs4", "fuse.sshfs", …
    std::string source;          // "/dev/sda1", "server:/export", …
    MountKind kind = MountKind::Local;
};

enum class NamedScope : std::uint8_t {
    UserHome,
    LocalComputer,
    Network,
};

// The kind of a file-system type as mountinfo names it. Unknown types are
// local.
MountKind classifyFileSystemType(std::string_view type);

// Whether a statfs() f_type names a virtual file system (proc, sysfs, devpts,
// cgroup, …). devtmpfs reports tmpfs's number and is recognised by its mount
// instead.
bool isVirtualFileSystemMagic(std::int64_t magic);

// Whether the path is one of the folders no crawl ever enters: /proc, /sys,
// /dev and /run (the system's own, whatever is mounted there).
bool isSystemFolder(std::string_view path);

// Parses the text of /proc/<pid>/mountinfo. Malformed lines are skipped;
// every parsed mount is classified.
std::vector<Mount> parseMountInfo(std::string_view text);

// Removes duplicates and every folder that lies inside another folder of the
// list (by path components: "/home/ann" is inside "/home", "/homework" is
// not), keeping the outer one. The result is sorted.
std::vector<std::string> removeNestedFolders(std::vector<std::string> folders);

// The user's home folder: $HOME when it is an absolute path, else the
// password database's entry; empty when neither knows.
std::string homeFolder();

class MountTable {
public:
    MountTable() = default;
    explicit MountTable(std::vector<Mount> mounts);

    // The mounts of this process, from /proc/self/mountinfo.
    static Expected<MountTable> current();
    // Parses the given mountinfo text.
    static MountTable fromText(std::string_view text) { return MountTable(parseMountInfo(text)); }

    std::span<const Mount> mounts() const { return m_mounts; }

    // The mount holding the absolute path (the one with the longest mount
    // point above it; of two mounts on one folder, the later one, which
    // hides the earlier). nullptr for a relative path or an empty table.
    const Mount* mountFor(std::string_view path) const;
    // The last-mounted file system on the device, or nullptr.
    const Mount* mountForDevice(std::uint32_t major, std::uint32_t minor) const;

    bool isVirtual(std::string_view path) const;
    bool isNetwork(std::string_view path) const;

    // The folders a named scope stands for, sorted, without duplicates or
    // folders nested in others:
    //  - UserHome: `home`;
    //  - LocalComputer: every local mount point plus `home`, leaving out
    //    mounts inside /proc, /sys, /dev and /run other than those under
    //    /run/media (where removable volumes appear). A volume under
    //    /run/media stays even though it lies inside "/", because a walk of
    //    "/" never enters /run;
    //  - Network: every network mount point.
    // An empty `home` is left out.
    std::vector<std::string> scopeFolders(NamedScope scope, const std::string& home) const;

private:
    std::vector<Mount> m_mounts;
};

// The label of the file system mounted on "/", found by matching the
// entries of /dev/disk/by-label against the root's device; empty when it
// has none or it cannot be told.
std::string rootVolumeLabel();
// The same, looking in `byLabelFolder` for the device `rootDevice`
// (a dev_t) or the device file `rootSource`.
std::string rootVolumeLabel(const std::string& byLabelFolder, std::uint64_t rootDevice,
                            const std::string& rootSource);

}  // namespace trovara::index
