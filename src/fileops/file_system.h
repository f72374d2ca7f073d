// The file-system calls that file operations make, behind one interface so
// that tests can inject the faults a real file system will not produce on
// demand: a full disk, a read-only destination, a source that vanishes or
// becomes unreadable in the middle of a job, a Trash that refuses.
//
// Every call answers an errno value: 0 for success, the system's error
// otherwise. The transfer code (transfer.h) turns those into messages that
// name the file; nothing here talks to a person.
//
// Thread safety: transfers run on several threads at once and share one
// FileSystem; implementations must allow concurrent calls.
#pragma once

#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdint>

namespace trovara::fileops {

struct FileInfo {
    enum class Type { Missing, File, Directory, Symlink, Other };
    Type type = Type::Missing;
    std::int64_t size = 0;
    std::uint32_t permissions = 0;  // the mode's permission bits (07777)
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t modifiedNanoseconds = 0;

    bool exists() const { return type != Type::Missing; }
    bool isDirectory() const { return type == Type::Directory; }
    // The same object on the same file system (hard links included).
    bool isSameObject(const FileInfo& other) const
    {
        return exists() && other.exists() && device == other.device && inode == other.inode;
    }
};

class FileSystem {
public:
    enum class Access { Read, Write };
    enum class Links { Follow, NoFollow };

    virtual ~FileSystem() = default;

    // What is at the path; a missing entry gives Type::Missing and ENOENT.
    // With Links::NoFollow a symbolic link is described itself.
    virtual int status(const QString& path, Links links, FileInfo* info) = 0;
    // Whether this process may read (a folder: list and enter) or write it.
    virtual bool isAccessible(const QString& path, Access access) = 0;
    // The names in a folder, without "." and "..", in no particular order.
    virtual int listDirectory(const QString& path, QStringList* names) = 0;

    // Creates `destination` (which must not exist: EEXIST otherwise) as a
    // copy of the regular file at `source`: its bytes, permissions,
    // modification and access times and user extended attributes (tags and
    // comments live there). Gives ECANCELED when `abort` becomes true
    // between blocks. On failure nothing is left at `destination`: a file
    // it created is removed again, and an entry it found there is never
    // touched, so the copy may be written under its final name.
    virtual int copyFile(const QString& source, const QString& destination, const std::atomic<bool>* abort) = 0;
    // A new folder only its owner can use until copyAttributes() runs.
    virtual int makeDirectory(const QString& path) = 0;
    // Gives `destination` the permissions, times and user extended
    // attributes of `source` (used for folders once their contents are in).
    virtual int copyAttributes(const QString& source, const QString& destination) = 0;
    virtual int readLink(const QString& path, QString* target) = 0;
    virtual int makeLink(const QString& target, const QString& path) = 0;
    // Renames without ever replacing: EEXIST when `to` exists; EXDEV when
    // the two are on different file systems.
    virtual int rename(const QString& from, const QString& to) = 0;
    // Removes a file, a link or an empty folder.
    virtual int remove(const QString& path) = 0;
    // Makes a folder of ours writable and enterable again (to remove it).
    virtual int makeRemovable(const QString& path) = 0;
    // Writes everything of the file system holding `path` to the disk.
    virtual int synchronize(const QString& path) = 0;
    // Moves the object to the Trash; on success `trashedPath` says where
    // it went.
    virtual int moveToTrash(const QString& path, QString* trashedPath) = 0;
    // Runs a program and waits for it: its exit status, or -1 when it did
    // not start or crashed.
    virtual int run(const QString& program, const QStringList& arguments) = 0;
};

// The file system of the machine.
class LocalFileSystem : public FileSystem {
public:
    int status(const QString& path, Links links, FileInfo* info) override;
    bool isAccessible(const QString& path, Access access) override;
    int listDirectory(const QString& path, QStringList* names) override;
    int copyFile(const QString& source, const QString& destination, const std::atomic<bool>* abort) override;
    int makeDirectory(const QString& path) override;
    int copyAttributes(const QString& source, const QString& destination) override;
    int readLink(const QString& path, QString* target) override;
    int makeLink(const QString& target, const QString& path) override;
    int rename(const QString& from, const QString& to) override;
    int remove(const QString& path) override;
    int makeRemovable(const QString& path) override;
    int synchronize(const QString& path) override;
    int moveToTrash(const QString& path, QString* trashedPath) override;
    int run(const QString& program, const QStringList& arguments) override;
};

}  // namespace trovara::fileops
