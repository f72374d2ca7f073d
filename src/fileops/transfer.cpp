#include "fileops/transfer.h"

#include "fileops/localized.h"
#include <QCoreApplication>
#include <QFileInfo>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace trovara::fileops {

namespace {

using Links = FileSystem::Links;

// Files up to this size are copied under their final name (one entry made
// in the destination folder instead of a temporary one and a rename, which
// is most of the cost of a small file). Larger ones take long enough that a
// crash in the middle is likely; they go under a hidden temporary name, so
// a half copy never looks like a whole one.
constexpr std::int64_t kLargestCopyInPlace = 8 * 1024 * 1024;

constexpr const char* kCocoaErrorDomain = "NSCocoaErrorDomain";
constexpr const char* kPosixErrorDomain = "NSPOSIXErrorDomain";

QString folderOf(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

QString child(const QString& folder, const QString& name)
{
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

QString systemMessage(int code)
{
    return QString::fromStdString(std::generic_category().message(code));
}

struct Failure {
    int code = 0;
    QString path;
    explicit operator bool() const { return code != 0; }
};

// What a tree holds, to compare a copy with its original.
struct Summary {
    std::int64_t files = 0;
    std::int64_t folders = 0;
    std::int64_t links = 0;
    std::int64_t bytes = 0;
    bool operator==(const Summary&) const = default;
};

Failure summarize(FileSystem& fs, const QString& path, Summary* summary)
{
    FileInfo info;
    if (const int error = fs.status(path, Links::NoFollow, &info)) {
        return {error, path};
    }
    switch (info.type) {
    case FileInfo::Type::File:
        ++summary->files;
        summary->bytes += info.size;
        return {};
    case FileInfo::Type::Symlink:
        ++summary->links;
        return {};
    case FileInfo::Type::Directory: {
        ++summary->folders;
        QStringList names;
        if (const int error = fs.listDirectory(path, &names)) {
            return {error, path};
        }
        for (const QString& name : names) {
            if (Failure failure = summarize(fs, child(path, name), summary)) {
                return failure;
            }
        }
        return {};
    }
    default:
        return {ENOTSUP, path};
    }
}

bool aborted(const std::atomic<bool>* abort)
{
    return abort && abort->load(std::memory_order_relaxed);
}

// Copies the tree at `source`, described by `info`.
Failure copyTree(FileSystem& fs, const QString& source, const FileInfo& info, const QString& destination,
                 const std::atomic<bool>* abort)
{
    if (aborted(abort)) {
        return {ECANCELED, source};
    }
    switch (info.type) {
    case FileInfo::Type::File:
        if (const int error = fs.copyFile(source, destination, abort)) {
            return {error, source};
        }
        return {};
    case FileInfo::Type::Symlink: {
        QString target;
        if (const int error = fs.readLink(source, &target)) {
            return {error, source};
        }
        if (const int error = fs.makeLink(target, destination)) {
            return {error, destination};
        }
        return {};
    }
    case FileInfo::Type::Directory: {
        if (const int error = fs.makeDirectory(destination)) {
            return {error, destination};
        }
        QStringList names;
        if (const int error = fs.listDirectory(source, &names)) {
            return {error, source};
        }
        std::sort(names.begin(), names.end());
        for (const QString& name : names) {
            const QString from = child(source, name);
            FileInfo entry;
            if (const int error = fs.status(from, Links::NoFollow, &entry)) {
                return {error, from};
            }
            if (Failure failure = copyTree(fs, from, entry, child(destination, name), abort)) {
                return failure;
            }
        }
        if (const int error = fs.copyAttributes(source, destination)) {
            return {error, destination};
        }
        return {};
    }
    default:
        // Sockets, pipes and devices are not files a person copies.
        return {ENOTSUP, source};
    }
}

// Carries out one transfer; see the header for what each kind promises.
class Transferrer {
public:
    Transferrer(FileSystem& fs, FileOperation operation, const QString& source, const QString& destination,
                const std::atomic<bool>* abort)
        : m_fs(fs), m_operation(operation), m_source(source), m_destination(destination), m_abort(abort)
    {
    }

    Status run()
    {
        FileInfo existing;
        m_fs.status(m_destination, Links::NoFollow, &existing);
        bool conflict = existing.exists();

        if (m_operation == FileOperation::Alias) {
            if (conflict && !trashConflict()) {
                return cannotDeleteConflictingFileError();
            }
            if (m_fs.run(QStringLiteral("/bin/ln"), {QStringLiteral("-s"), m_source, m_destination}) != 0) {
                return cannotCreateAliasError();
            }
            return {};
        }

        FileInfo source;
        if (const int error = m_fs.status(m_source, Links::NoFollow, &source)) {
            return fileSystemError({error, m_source});
        }
        if (source.isDirectory() && isInsideFolder(m_fs, folderOf(m_destination), m_source)) {
            return fileSystemError({EINVAL, m_source});
        }
        if (m_operation == FileOperation::Move) {
            FileInfo folder;
            m_fs.status(folderOf(m_destination), Links::Follow, &folder);
            if (folder.exists() && folder.device == source.device) {
                if (conflict && !trashConflict()) {
                    return cannotDeleteConflictingFileError();
                }
                conflict = false;
                const int error = m_fs.rename(m_source, m_destination);
                if (error == 0) {
                    return {};
                }
                // The same device seen through two mounts still cannot be
                // renamed across; copy as between file systems.
                if (error != EXDEV) {
                    return fileSystemError({error, m_source});
                }
            }
        }
        if (m_operation == FileOperation::Copy && !conflict && source.type == FileInfo::Type::File
            && source.size <= kLargestCopyInPlace) {
            return copyFileInPlace();
        }
        return copyIntoPlace(source, conflict);
    }

private:
    // A file copied under its own name is created only where nothing is,
    // and removed again by the copy itself when it fails.
    Status copyFileInPlace()
    {
        if (const int error = m_fs.copyFile(m_source, m_destination, m_abort)) {
            return fileSystemError({error, error == EEXIST ? m_destination : m_source});
        }
        return {};
    }

    Status copyIntoPlace(const FileInfo& source, bool conflict)
    {
        const QString partial = partialPathInFolder(folderOf(m_destination));
        if (Failure failure = copyTree(m_fs, m_source, source, partial, m_abort)) {
            removeTree(m_fs, partial, true);
            return fileSystemError(failure);
        }
        if (m_operation == FileOperation::Move) {
            if (Status verified = verifyCopy(partial); !verified) {
                removeTree(m_fs, partial, true);
                return verified;
            }
        }
        if (conflict && !trashConflict()) {
            removeTree(m_fs, partial, true);
            return cannotDeleteConflictingFileError();
        }
        if (const int error = m_fs.rename(partial, m_destination)) {
            removeTree(m_fs, partial, true);
            return fileSystemError({error, m_destination});
        }
        if (m_operation == FileOperation::Move) {
            if (RemoveFailure failure = removeTree(m_fs, m_source, false); failure.code != 0) {
                return sourceKeptError(failure);
            }
        }
        return {};
    }

    // The copy must hold what the source holds now (a source that changed
    // while it was copied is not removed), and be on the disk, before the
    // source goes.
    Status verifyCopy(const QString& partial)
    {
        Summary original;
        Summary copy;
        if (Failure failure = summarize(m_fs, m_source, &original)) {
            return fileSystemError(failure);
        }
        if (Failure failure = summarize(m_fs, partial, &copy)) {
            return fileSystemError(failure);
        }
        if (!(original == copy)) {
            Error error = fileSystemError({EIO, m_source});
            error.reason = localized("The copy differs from the original, which changed while it was copied.");
            error.suggestion = localized("The original was left where it was. Try again once it no longer changes.");
            return error;
        }
        if (const int code = m_fs.synchronize(partial)) {
            return fileSystemError({code, m_destination});
        }
        return {};
    }

    bool trashConflict()
    {
        QString trashed;
        return m_fs.moveToTrash(m_destination, &trashed) == 0;
    }

    QString verbText() const
    {
        return m_operation == FileOperation::Move ? localized("The file \"%1\" could not be moved to \"%2\".")
                                                  : localized("The file \"%1\" could not be copied to \"%2\".");
    }

    Error fileSystemError(const Failure& failure) const
    {
        Error error;
        error.domain = QString::fromLatin1(kPosixErrorDomain);
        error.code = failure.code;
        const QString folder = folderOf(m_destination);
        error.description = verbText().arg(QFileInfo(m_source).fileName(), QFileInfo(folder).fileName());
        error.reason = failure.path == m_source || failure.path == m_destination
                           ? systemMessage(failure.code)
                           : QStringLiteral("%1: %2").arg(failure.path, systemMessage(failure.code));
        switch (failure.code) {
        case ENOSPC:
        case EDQUOT:
            error.suggestion = localized("Free some space at the destination and try again.");
            break;
        case EACCES:
        case EPERM:
        case EROFS:
            error.suggestion = localized("You may not have write rights to the destination");
            break;
        case ENOENT:
            error.suggestion = localized("The file may have been moved or deleted while the job ran.");
            break;
        case EINVAL:
            if (failure.path == m_source) {
                error.reason = localized("The destination folder is inside it.");
            }
            break;
        default:
            break;
        }
        error.userInfo.insert(QStringLiteral("NSFilePath"), failure.path);
        error.userInfo.insert(QStringLiteral("sourcePath"), m_source);
        error.userInfo.insert(QStringLiteral("destinationPath"), m_destination);
        return error;
    }

    Error sourceKeptError(const RemoveFailure& failure) const
    {
        Error error;
        error.domain = QString::fromLatin1(kPosixErrorDomain);
        error.code = failure.code;
        error.description = localized("The file \"%1\" was copied to \"%2\", but the original could not be removed.")
                                .arg(QFileInfo(m_source).fileName(), QFileInfo(folderOf(m_destination)).fileName());
        error.reason = QStringLiteral("%1: %2").arg(failure.path, systemMessage(failure.code));
        error.suggestion = localized("Both copies are complete; remove the original yourself when you can.");
        error.userInfo.insert(QStringLiteral("NSFilePath"), failure.path);
        return error;
    }

    FileSystem& m_fs;
    FileOperation m_operation;
    QString m_source;
    QString m_destination;
    const std::atomic<bool>* m_abort;
};

Error cocoaError(const char* description)
{
    Error error;
    error.domain = QString::fromLatin1(kCocoaErrorDomain);
    error.code = 0;
    error.description = localized(description);
    error.suggestion = localized("You may not have write rights to the destination");
    return error;
}

}  // namespace

Error cannotDeleteConflictingFileError()
{
    return cocoaError("Cannot delete conflicting file");
}

Error cannotCreateAliasError()
{
    return cocoaError("Cannot create alias for file");
}

Status performTransfer(FileSystem& fileSystem, FileOperation operation, const QString& source,
                       const QString& destination, const std::atomic<bool>* abort)
{
    return Transferrer(fileSystem, operation, source, destination, abort).run();
}

bool isInsideFolder(FileSystem& fileSystem, const QString& folder, const QString& ancestor)
{
    FileInfo target;
    if (fileSystem.status(ancestor, Links::Follow, &target) != 0 || !target.isDirectory()) {
        return false;
    }
    // Walk up from the folder through "..", which the kernel resolves on
    // the real tree, until the root (its own parent).
    QString path = folder;
    FileInfo current;
    if (fileSystem.status(path, Links::Follow, &current) != 0) {
        return false;
    }
    for (int depth = 0; depth < 4096; ++depth) {
        if (current.isSameObject(target)) {
            return true;
        }
        path = child(path, QStringLiteral(".."));
        FileInfo parent;
        if (fileSystem.status(path, Links::Follow, &parent) != 0 || parent.isSameObject(current)) {
            return false;
        }
        current = parent;
    }
    return false;
}

RemoveFailure removeTree(FileSystem& fileSystem, const QString& path, bool ours)
{
    FileInfo info;
    if (const int error = fileSystem.status(path, Links::NoFollow, &info)) {
        return error == ENOENT ? RemoveFailure{} : RemoveFailure{error, path};
    }
    RemoveFailure first;
    if (info.isDirectory()) {
        if (ours) {
            fileSystem.makeRemovable(path);
        }
        QStringList names;
        if (const int error = fileSystem.listDirectory(path, &names)) {
            return {error, path};
        }
        for (const QString& name : names) {
            RemoveFailure failure = removeTree(fileSystem, child(path, name), ours);
            if (first.code == 0) {
                first = failure;
            }
        }
    }
    if (const int error = fileSystem.remove(path); error != 0 && first.code == 0) {
        first = {error, path};
    }
    return first;
}

QString uniqueNameCharacters()
{
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QString name(12, Qt::Uninitialized);
    for (QChar& c : name) {
        c = QLatin1Char(kAlphabet[QRandomGenerator::global()->bounded(int(sizeof kAlphabet - 1))]);
    }
    return name;
}

QString partialPathInFolder(const QString& folder)
{
    return child(folder, QStringLiteral(".trovara-%1.partial").arg(uniqueNameCharacters()));
}

}  // namespace trovara::fileops
