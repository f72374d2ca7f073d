// The machine's file system with faults on request: a hook sees every call
// before it is made and may fail it with an errno, or do something on the
// side (delete a source, wait for the test). A copy failed with ENOSPC,
// EDQUOT or EIO first writes half the file, as a disk that fills up does,
// and removes it again, as the real copy does.
// Paths listed as unreadable or unwritable are reported so by isAccessible()
// (the tests run as root, who may read and write anything).
#pragma once

#include "fileops/file_system.h"

#include <QFile>
#include <QSemaphore>
#include <QSet>

#include <cerrno>
#include <functional>
#include <mutex>

namespace trovara::test {

class FaultyFileSystem final : public fileops::FileSystem {
public:
    enum class Call {
        Status, Access, List, CopyFile, MakeDirectory, CopyAttributes, ReadLink, MakeLink, Rename, Remove,
        MakeRemovable, Synchronize, MoveToTrash, Run,
    };
    // `path` is the call's first path (for Rename the source, for Run the
    // program's last argument). May run on any transfer thread.
    using Hook = std::function<int(Call call, const QString& path, const std::atomic<bool>* abort)>;

    void setHook(Hook hook)
    {
        std::lock_guard lock(m_mutex);
        m_hook = std::move(hook);
    }
    void setUnreadable(QSet<QString> paths)
    {
        std::lock_guard lock(m_mutex);
        m_unreadable = std::move(paths);
    }
    void setUnwritable(QSet<QString> paths)
    {
        std::lock_guard lock(m_mutex);
        m_unwritable = std::move(paths);
    }

    int status(const QString& path, Links links, fileops::FileInfo* info) override
    {
        if (const int error = fault(Call::Status, path)) {
            *info = {};
            return error;
        }
        return m_real.status(path, links, info);
    }
    bool isAccessible(const QString& path, Access access) override
    {
        if (fault(Call::Access, path)) {
            return false;
        }
        {
            std::lock_guard lock(m_mutex);
            if ((access == Access::Read ? m_unreadable : m_unwritable).contains(path)) {
                return false;
            }
        }
        return m_real.isAccessible(path, access);
    }
    int listDirectory(const QString& path, QStringList* names) override
    {
        return pass(Call::List, path, [&] { return m_real.listDirectory(path, names); });
    }
    int copyFile(const QString& source, const QString& destination, const std::atomic<bool>* abort) override
    {
        const int error = fault(Call::CopyFile, source, abort);
        if (error == ENOSPC || error == EDQUOT || error == EIO) {
            QFile in(source);
            QFile out(destination);
            if (in.open(QIODevice::ReadOnly) && out.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
                out.write(in.read(in.size() / 2));
                // As the real copy does, what it created goes again.
                out.close();
                out.remove();
            }
            return error;
        }
        if (error) {
            return error;
        }
        return m_real.copyFile(source, destination, abort);
    }
    int makeDirectory(const QString& path) override
    {
        return pass(Call::MakeDirectory, path, [&] { return m_real.makeDirectory(path); });
    }
    int copyAttributes(const QString& source, const QString& destination) override
    {
        return pass(Call::CopyAttributes, source, [&] { return m_real.copyAttributes(source, destination); });
    }
    int readLink(const QString& path, QString* target) override
    {
        return pass(Call::ReadLink, path, [&] { return m_real.readLink(path, target); });
    }
    int makeLink(const QString& target, const QString& path) override
    {
        return pass(Call::MakeLink, path, [&] { return m_real.makeLink(target, path); });
    }
    int rename(const QString& from, const QString& to) override
    {
        return pass(Call::Rename, from, [&] { return m_real.rename(from, to); });
    }
    int remove(const QString& path) override
    {
        return pass(Call::Remove, path, [&] { return m_real.remove(path); });
    }
    int makeRemovable(const QString& path) override
    {
        return pass(Call::MakeRemovable, path, [&] { return m_real.makeRemovable(path); });
    }
    int synchronize(const QString& path) override
    {
        return pass(Call::Synchronize, path, [&] { return m_real.synchronize(path); });
    }
    int moveToTrash(const QString& path, QString* trashedPath) override
    {
        return pass(Call::MoveToTrash, path, [&] { return m_real.moveToTrash(path, trashedPath); });
    }
    int run(const QString& program, const QStringList& arguments) override
    {
        if (fault(Call::Run, arguments.isEmpty() ? program : arguments.last())) {
            return 1;
        }
        return m_real.run(program, arguments);
    }

private:
    int fault(Call call, const QString& path, const std::atomic<bool>* abort = nullptr)
    {
        Hook hook;
        {
            std::lock_guard lock(m_mutex);
            hook = m_hook;
        }
        return hook ? hook(call, path, abort) : 0;
    }
    template <typename Real>
    int pass(Call call, const QString& path, Real real)
    {
        if (const int error = fault(call, path)) {
            return error;
        }
        return real();
    }

    fileops::LocalFileSystem m_real;
    std::mutex m_mutex;
    Hook m_hook;
    QSet<QString> m_unreadable;
    QSet<QString> m_unwritable;
};

// Holds the copy of the file whose path ends so until the test releases it
// (installs the file system's hook for its life).
class HeldCopy {
public:
    HeldCopy(FaultyFileSystem& fileSystem, const QString& suffix) : m_fileSystem(fileSystem)
    {
        fileSystem.setHook([this, suffix](FaultyFileSystem::Call call, const QString& path, const std::atomic<bool>*) {
            if (call == FaultyFileSystem::Call::CopyFile && path.endsWith(suffix)) {
                m_started.release();
                m_proceed.acquire();
            }
            return 0;
        });
    }
    ~HeldCopy() { m_fileSystem.setHook({}); }
    HeldCopy(const HeldCopy&) = delete;
    HeldCopy& operator=(const HeldCopy&) = delete;

    // Blocks until the copy has begun.
    void waitUntilStarted() { m_started.acquire(); }
    void release() { m_proceed.release(); }

private:
    FaultyFileSystem& m_fileSystem;
    QSemaphore m_started;
    QSemaphore m_proceed;
};

}  // namespace trovara::test
