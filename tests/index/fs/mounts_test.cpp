#include "index/fs/mounts.h"

#include "fs_test_util.h"

#include <gtest/gtest.h>

#include <sys/statfs.h>

using namespace trovara::index;

namespace {

// A desktop's mount table: system folders, a removable stick, network
// shares (one nested in another), and odd names.
const char* const kDesktop =
    "22 27 0:21 / /proc rw,nosuid,nodev,noexec,relatime shared:12 - proc proc rw\n"
    "23 27 0:22 / /sys rw,nosuid,nodev,noexec,relatime shared:2 - sysfs sysfs rw\n"
    "24 27 0:6 / /dev rw,nosuid,relatime shared:8 - devtmpfs udev rw,size=8000k\n"
    "25 24 0:23 / /dev/shm rw,nosuid,nodev shared:9 - tmpfs tmpfs rw\n"
    "26 27 0:24 / /run rw,nosuid,nodev shared:5 - tmpfs tmpfs rw\n"
    "27 1 259:2 / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw\n"
    "28 27 259:1 / /boot/efi rw,relatime shared:3 - vfat /dev/nvme0n1p1 rw\n"
    "29 27 259:3 / /home rw,relatime shared:4 - ext4 /dev/nvme0n1p3 rw\n"
    "30 23 0:25 / /sys/fs/cgroup rw shared:6 - cgroup2 cgroup2 rw\n"
    "31 26 0:26 / /run/user/1000 rw,nosuid,nodev shared:7 - tmpfs tmpfs rw,mode=700\n"
    "32 26 8:17 / /run/media/ann/USB\\040Stick rw,nosuid shared:10 - vfat /dev/sdb1 rw\n"
    "33 27 0:27 / /mnt/nas rw,relatime shared:11 - nfs4 nas:/export rw\n"
    "34 33 0:28 / /mnt/nas/media rw,relatime shared:13 - nfs4 nas:/media rw\n"
    "35 27 0:29 / /srv/office\\011share rw - cifs //office/share rw\n"
    "36 27 0:30 / /tmp rw,nosuid,nodev shared:14 - tmpfs tmpfs rw\n"
    "37 31 0:31 / /run/user/1000/gvfs rw,nosuid,nodev shared:15 - fuse.gvfsd-fuse gvfsd-fuse rw\n"
    "38 27 0:32 / /proc/sys/fs/binfmt_misc rw - binfmt_misc binfmt_misc rw\n"
    "39 27 0:33 / /home/ann/remote rw - fuse.sshfs ann@host:/home rw\n";

}  // namespace

TEST(Mounts, ParsesMountInfoDecodingEscapedNames)
{
    const auto mounts = parseMountInfo(
        "36 35 98:0 /mnt1 /mnt/parent\\040dir rw,noatime master:1 shared:7 - ext3 /dev/root rw,errors=continue\n"
        "40 36 0:50 / /a\\011tab\\012newline\\134backslash rw - tmpfs none rw\n"
        "41 36 0:51 / /odd\\0xescape\\04 rw - 9p trans=virtio rw");
    ASSERT_EQ(mounts.size(), 3u);
    EXPECT_EQ(mounts[0].id, 36u);
    EXPECT_EQ(mounts[0].parentId, 35u);
    EXPECT_EQ(mounts[0].major, 98u);
    EXPECT_EQ(mounts[0].minor, 0u);
    EXPECT_EQ(mounts[0].root, "/mnt1");
    EXPECT_EQ(mounts[0].mountPoint, "/mnt/parent dir");
    EXPECT_EQ(mounts[0].fileSystemType, "ext3");
    EXPECT_EQ(mounts[0].source, "/dev/root");
    EXPECT_EQ(mounts[0].kind, MountKind::Local);
    EXPECT_EQ(mounts[1].mountPoint, "/a\ttab\nnewline\\backslash");
    EXPECT_EQ(mounts[2].mountPoint, "/odd\\0xescape\\04") << "incomplete escapes stay as they are";
    EXPECT_EQ(mounts[2].kind, MountKind::Network);
}

TEST(Mounts, SkipsLinesThatAreNoMounts)
{
    const auto mounts = parseMountInfo(
        "\n"
        "garbage\n"
        "1 2 3:4 / /no-separator rw ext4 /dev/x rw\n"
        "x 2 3:4 / /bad-id rw - ext4 /dev/x rw\n"
        "1 2 34 / /bad-device rw - ext4 /dev/x rw\n"
        "1 2 3:4 / relative rw - ext4 /dev/x rw\n"
        "1 2 3:4 / /no-type rw -\n"
        "7 1 8:1 / /good rw - ext4 /dev/sda1 rw\n"
        "8 1 8:2 / /no-source rw - ext4\n");
    ASSERT_EQ(mounts.size(), 2u);
    EXPECT_EQ(mounts[0].mountPoint, "/good");
    EXPECT_EQ(mounts[1].mountPoint, "/no-source");
    EXPECT_EQ(mounts[1].source, "");
    EXPECT_TRUE(parseMountInfo("").empty());
}

TEST(Mounts, ClassifiesFileSystemTypes)
{
    for (const char* type : {"proc", "sysfs", "devtmpfs", "devpts", "cgroup", "cgroup2", "securityfs", "debugfs",
                             "tracefs", "pstore", "bpf", "mqueue", "hugetlbfs", "configfs", "fusectl", "autofs",
                             "binfmt_misc", "efivarfs"}) {
        EXPECT_EQ(classifyFileSystemType(type), MountKind::Virtual) << type;
    }
    for (const char* type : {"nfs", "nfs4", "cifs", "smb3", "smbfs", "fuse.sshfs", "sshfs", "davfs", "fuse.davfs2",
                             "9p", "afs", "ceph", "glusterfs", "fuse.rclone"}) {
        EXPECT_EQ(classifyFileSystemType(type), MountKind::Network) << type;
    }
    for (const char* type : {"ext4", "btrfs", "xfs", "vfat", "tmpfs", "overlay", "fuse", "squashfs", "nfsd-like"}) {
        EXPECT_EQ(classifyFileSystemType(type), MountKind::Local) << type;
    }
}

TEST(Mounts, TellsWhichMountAPathIsOn)
{
    const MountTable table = MountTable::fromText(kDesktop);
    struct Case {
        const char* path;
        const char* mountPoint;
        bool isVirtual;
        bool isNetwork;
    };
    const Case cases[] = {
        {"/", "/", false, false},
        {"/etc/passwd", "/", false, false},
        {"/home", "/home", false, false},
        {"/homework", "/", false, false},
        {"/home/ann/remote/x", "/home/ann/remote", false, true},
        {"/proc/1/status", "/proc", true, false},
        {"/proc/sys/fs/binfmt_misc/status", "/proc/sys/fs/binfmt_misc", true, false},
        {"/sys/fs/cgroup/x", "/sys/fs/cgroup", true, false},
        {"/mnt/nas/media/film.mkv", "/mnt/nas/media", false, true},
        {"/mnt/nasty", "/", false, false},
        {"/srv/office\tshare/a", "/srv/office\tshare", false, true},
        {"/run/media/ann/USB Stick/photo.jpg", "/run/media/ann/USB Stick", false, false},
    };
    for (const Case& c : cases) {
        const Mount* mount = table.mountFor(c.path);
        ASSERT_NE(mount, nullptr) << c.path;
        EXPECT_EQ(mount->mountPoint, c.mountPoint) << c.path;
        EXPECT_EQ(table.isVirtual(c.path), c.isVirtual) << c.path;
        EXPECT_EQ(table.isNetwork(c.path), c.isNetwork) << c.path;
    }
    EXPECT_EQ(table.mountFor("relative"), nullptr);
    EXPECT_EQ(MountTable().mountFor("/"), nullptr);
    EXPECT_EQ(table.mountForDevice(259, 3)->mountPoint, "/home");
    EXPECT_EQ(table.mountForDevice(1, 1), nullptr);

    // Of two mounts on one folder, the later hides the earlier.
    const MountTable stacked = MountTable::fromText("1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                                    "2 1 8:2 / /data rw - ext4 /dev/sda2 rw\n"
                                                    "3 2 0:40 / /data rw - nfs server:/data rw\n");
    EXPECT_TRUE(stacked.isNetwork("/data/file"));
}

TEST(Mounts, NamedScopesStandForTheirFolders)
{
    const MountTable table = MountTable::fromText(kDesktop);
    using Folders = std::vector<std::string>;
    EXPECT_EQ(table.scopeFolders(NamedScope::UserHome, "/home/ann/"), Folders{"/home/ann"});
    // "/" holds /home, /boot/efi, /tmp; the stick under /run/media is not
    // reached by a walk of "/", which never enters /run.
    EXPECT_EQ(table.scopeFolders(NamedScope::LocalComputer, "/home/ann"),
              (Folders{"/", "/run/media/ann/USB Stick"}));
    EXPECT_EQ(table.scopeFolders(NamedScope::Network, "/home/ann"),
              (Folders{"/home/ann/remote", "/mnt/nas", "/srv/office\tshare"}));

    // A machine whose root is on the network: the local computer is what is
    // left, plus home.
    const MountTable thin = MountTable::fromText("1 0 0:20 / / rw - nfs4 server:/root rw\n"
                                                 "2 1 8:1 / /scratch rw - xfs /dev/sda1 rw\n"
                                                 "3 2 8:2 / /scratch/fast rw - ext4 /dev/sda2 rw\n"
                                                 "4 1 0:21 / /proc rw - proc proc rw\n");
    EXPECT_EQ(thin.scopeFolders(NamedScope::LocalComputer, "/home/bob"), (Folders{"/home/bob", "/scratch"}));
    EXPECT_EQ(thin.scopeFolders(NamedScope::Network, "/home/bob"), Folders{"/"});
    EXPECT_EQ(thin.scopeFolders(NamedScope::UserHome, ""), Folders{});
}

TEST(Mounts, RemovesDuplicateAndNestedFoldersByWholeComponents)
{
    EXPECT_EQ(removeNestedFolders({"/home/ann", "/home", "/homework", "/home", "/srv/a/b", "/srv/a"}),
              (std::vector<std::string>{"/home", "/homework", "/srv/a"}));
    EXPECT_EQ(removeNestedFolders({"/x", "/"}), std::vector<std::string>{"/"});
    EXPECT_TRUE(removeNestedFolders({}).empty());
}

TEST(Mounts, KnowsThisMachinesMountsAndVirtualFileSystems)
{
    const auto table = MountTable::current();
    ASSERT_TRUE(table.ok()) << table.error().message;
    ASSERT_NE(table->mountFor("/"), nullptr);
    EXPECT_TRUE(table->isVirtual("/proc/self/status"));

    struct statfs answers {};
    ASSERT_EQ(::statfs("/proc", &answers), 0);
    EXPECT_TRUE(isVirtualFileSystemMagic(static_cast<std::int64_t>(answers.f_type)));
    ASSERT_EQ(::statfs(trovara::test::makeTree("magic").c_str(), &answers), 0);
    EXPECT_FALSE(isVirtualFileSystemMagic(static_cast<std::int64_t>(answers.f_type)));

    EXPECT_TRUE(isSystemFolder("/proc"));
    EXPECT_TRUE(isSystemFolder("/run"));
    EXPECT_FALSE(isSystemFolder("/proc/1"));
    EXPECT_FALSE(isSystemFolder("/running"));
}

TEST(Mounts, RootVolumeLabelComesFromTheLabelLinkOfTheRootDevice)
{
    const std::string folder = trovara::test::makeTree("by-label");
    trovara::test::writeFile(folder + "/device-one", "");
    trovara::test::writeFile(folder + "/device-two", "");
    trovara::test::makeFolder(folder + "/by-label");
    trovara::test::makeLink("../device-one", folder + "/by-label/Other");
    trovara::test::makeLink("../device-two", folder + "/by-label/Daten\\x20\\x2fSSD");

    EXPECT_EQ(rootVolumeLabel(folder + "/by-label", 0, folder + "/device-two"), "Daten /SSD");
    EXPECT_EQ(rootVolumeLabel(folder + "/by-label", 0, folder + "/device-one"), "Other");
    EXPECT_EQ(rootVolumeLabel(folder + "/by-label", 0, folder + "/device-three"), "");
    EXPECT_EQ(rootVolumeLabel(folder + "/by-label", 0, ""), "") << "a regular file's st_rdev of 0 is no match";
    EXPECT_EQ(rootVolumeLabel(folder + "/missing", 0, folder + "/device-one"), "");
}

TEST(Mounts, HomeFolderComesFromHomeElseThePasswordDatabase)
{
    {
        const trovara::test::ScopedEnv home("HOME", "/home/someone/");
        EXPECT_EQ(homeFolder(), "/home/someone");
    }
    {
        const trovara::test::ScopedEnv home("HOME", "relative");
        EXPECT_FALSE(homeFolder().empty());
        EXPECT_EQ(homeFolder().front(), '/');
    }
}
