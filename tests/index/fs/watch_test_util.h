// Helpers of the watcher tests: an inotify that can be scripted, a clock the
// tests move by hand, and a model of the caller that applies changes the way
// the live index does, to compare with what `find` sees.
#pragma once

#include "index/fs/watcher.h"

#include "fs_test_util.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <poll.h>
#include <set>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <vector>

namespace trovara::index {

inline void PrintTo(const FileChange& change, std::ostream* stream)
{
    *stream << toString(change.kind) << "(" << change.path;
    if (!change.from.empty()) {
        *stream << " from " << change.from;
    }
    *stream << (change.isFolder ? ", folder)" : ")");
}

}  // namespace trovara::index

namespace trovara::test {

using index::FileChange;
using index::Nanoseconds;

inline FileChange change(FileChange::Kind kind, const std::string& path, bool isFolder = false, const std::string& from = {})
{
    return FileChange{kind, path, from, isFolder};
}

// The wall clock an hour ahead: the watcher takes its `now` from the
// caller, and a clock ahead of the file times keeps the times of folders
// the test touched from looking too recent to trust.
inline Nanoseconds startOfTestClock()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() + 3600 * index::kSecond;
}

// Waits (bounded) until the descriptor is readable: the kernel queues
// inotify events within the call that causes them, so this returns at once
// whenever events are due.
inline bool waitReadable(int fd, int milliseconds = 2000)
{
    struct pollfd entry {fd, POLLIN, 0};
    return ::poll(&entry, 1, milliseconds) > 0;
}

// Shared between a test and the ScriptedInotify the watcher owns.
struct InotifyScript {
    std::vector<char> injected;  // raw events handed out before the kernel's
    int failAfterWatches = -1;   // addWatch fails once this many watches were added
    int failWith = ENOSPC;
    int watchesAdded = 0;
    std::function<void(const std::string& path)> beforeWatch;
    std::vector<std::pair<std::string, int>> watches;  // path, wd, in order of adding

    int wdOf(const std::string& path) const
    {
        for (auto it = watches.rbegin(); it != watches.rend(); ++it) {
            if (it->first == path) {
                return it->second;
            }
        }
        return -1;
    }

    // Appends one raw event, padded as the kernel pads them.
    void inject(int wd, std::uint32_t mask, std::uint32_t cookie = 0, const std::string& name = {})
    {
        std::uint32_t length = 0;
        if (!name.empty()) {
            length = static_cast<std::uint32_t>((name.size() + 1 + sizeof(struct inotify_event) - 1)
                                                / sizeof(struct inotify_event) * sizeof(struct inotify_event));
        }
        struct inotify_event header {};
        header.wd = wd;
        header.mask = mask;
        header.cookie = cookie;
        header.len = length;
        const std::size_t at = injected.size();
        injected.resize(at + sizeof header + length, '\0');
        std::memcpy(injected.data() + at, &header, sizeof header);
        std::memcpy(injected.data() + at + sizeof header, name.data(), name.size());
    }
};

// The kernel's inotify with a script in front of it.
class ScriptedInotify : public index::InotifyInterface {
public:
    explicit ScriptedInotify(std::shared_ptr<InotifyScript> script)
        : m_script(std::move(script))
    {
        auto kernel = index::openKernelInotify();
        EXPECT_TRUE(kernel.ok());
        if (kernel.ok()) {
            m_kernel = std::move(kernel.value());
        }
    }

    int fd() const override { return m_kernel->fd(); }

    int addWatch(const char* path, std::uint32_t mask) override
    {
        if (m_script->beforeWatch) {
            m_script->beforeWatch(path);
        }
        if (m_script->failAfterWatches >= 0 && m_script->watchesAdded >= m_script->failAfterWatches) {
            errno = m_script->failWith;
            return -1;
        }
        const int wd = m_kernel->addWatch(path, mask);
        if (wd >= 0) {
            ++m_script->watchesAdded;
            m_script->watches.emplace_back(path, wd);
        }
        return wd;
    }

    int removeWatch(int wd) override { return m_kernel->removeWatch(wd); }

    ssize_t read(void* buffer, std::size_t size) override
    {
        if (!m_script->injected.empty()) {
            const std::size_t length = std::min(size, m_script->injected.size());
            std::memcpy(buffer, m_script->injected.data(), length);
            m_script->injected.erase(m_script->injected.begin(), m_script->injected.begin() + static_cast<std::ptrdiff_t>(length));
            return static_cast<ssize_t>(length);
        }
        return m_kernel->read(buffer, size);
    }

private:
    std::shared_ptr<InotifyScript> m_script;
    std::unique_ptr<index::InotifyInterface> m_kernel;
};

// Every path under `root` (itself included), as `find -P` prints them.
inline std::set<std::string> findPaths(const std::string& root)
{
    std::set<std::string> found;
    FILE* pipe = ::popen(("find -P '" + root + "' -print0 2>/dev/null").c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    if (pipe == nullptr) {
        return found;
    }
    std::string path;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        if (c == '\0') {
            found.insert(path);
            path.clear();
        } else {
            path.push_back(static_cast<char>(c));
        }
    }
    ::pclose(pipe);
    return found;
}

// What a caller knows of a tree: the paths of the entries it has. It
// learns the tree by a crawl, then applies changes as the live index does,
// reading the file system where a change tells it to look.
class TreeModel {
public:
    explicit TreeModel(std::string root)
        : m_root(std::move(root))
    {
        crawl(m_root);
    }

    std::set<std::string> paths() const
    {
        std::set<std::string> paths;
        for (const auto& [path, inode] : m_paths) {
            paths.insert(paths.end(), path);
        }
        return paths;
    }

    void apply(const FileChange& change)
    {
        using Kind = FileChange::Kind;
        switch (change.kind) {
        case Kind::Created:
            create(change.path);
            break;
        case Kind::Deleted:
            removeTree(change.path);
            break;
        case Kind::Moved:
            move(change.from, change.path);
            break;
        case Kind::ContentChanged:
        case Kind::AttributesChanged:
            if (struct stat answers {}; ::lstat(change.path.c_str(), &answers) != 0) {
                removeTree(change.path);
            }
            break;
        case Kind::FolderChanged:
            relist(change.path);
            break;
        case Kind::TreeMayHaveChanged:
            create(change.path);
            break;
        }
    }

    void apply(const std::vector<FileChange>& changes)
    {
        for (const FileChange& change : changes) {
            apply(change);
        }
    }

private:
    static std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

    bool known(const std::string& path) const { return m_paths.contains(path); }

    // Reads the entry (when its parent is known): a folder is crawled
    // afresh, an entry that is gone is removed with everything below it.
    void create(const std::string& path)
    {
        struct stat answers {};
        if (path != m_root && !known(parentOf(path))) {
            return;
        }
        removeTree(path);
        if (::lstat(path.c_str(), &answers) != 0) {
            return;
        }
        if (S_ISDIR(answers.st_mode)) {
            crawl(path);
        } else {
            m_paths[path] = answers.st_ino;
        }
    }

    void crawl(const std::string& folder)
    {
        struct stat self {};
        m_paths[folder] = ::lstat(folder.c_str(), &self) == 0 ? self.st_ino : 0;
        DIR* dir = ::opendir(folder.c_str());
        if (dir == nullptr) {
            return;
        }
        while (const struct dirent* entry = ::readdir(dir)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") {
                continue;
            }
            const std::string path = folder + "/" + name;
            struct stat answers {};
            if (::lstat(path.c_str(), &answers) != 0) {
                continue;
            }
            if (S_ISDIR(answers.st_mode)) {
                crawl(path);
            } else {
                m_paths[path] = answers.st_ino;
            }
        }
        ::closedir(dir);
    }

    std::vector<std::string> inside(const std::string& folder) const
    {
        std::vector<std::string> found;
        for (auto it = m_paths.lower_bound(folder); it != m_paths.end(); ++it) {
            if (it->first == folder || it->first.starts_with(folder + "/")) {
                found.push_back(it->first);
            } else if (!it->first.starts_with(folder)) {
                break;
            }
        }
        return found;
    }

    void removeTree(const std::string& path)
    {
        for (const std::string& entry : inside(path)) {
            m_paths.erase(entry);
        }
    }

    void move(const std::string& from, const std::string& to)
    {
        removeTree(to);
        const std::vector<std::string> moving = inside(from);
        if (moving.empty()) {
            create(to);  // moved from a place it did not know
            return;
        }
        for (const std::string& entry : moving) {
            const ino_t inode = m_paths[entry];
            m_paths.erase(entry);
            if (known(parentOf(to)) || to == m_root) {
                m_paths[to + entry.substr(from.size())] = inode;
            }
        }
    }

    void relist(const std::string& folder)
    {
        if (!known(folder)) {
            return;
        }
        std::map<std::string, ino_t> present;
        if (DIR* dir = ::opendir(folder.c_str())) {
            while (const struct dirent* entry = ::readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..") {
                    present[folder + "/" + name] = entry->d_ino;
                }
            }
            ::closedir(dir);
        }
        for (const std::string& entry : inside(folder)) {
            if (entry != folder && parentOf(entry) == folder && !present.contains(entry)) {
                removeTree(entry);
            }
        }
        // New entries, and entries that are another file now, are read.
        for (const auto& [entry, inode] : present) {
            if (auto it = m_paths.find(entry); it == m_paths.end() || it->second != inode) {
                create(entry);
            }
        }
    }

    std::string m_root;
    std::map<std::string, ino_t> m_paths;  // path → inode, as last read
};

}  // namespace trovara::test
