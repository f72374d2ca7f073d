// The index database: the durable record of every indexed item, the roots,
// the crawl state and the folders that could not be read. It is a rebuildable
// cache of the file system: a database of another format version, or a
// damaged one, is reported and made anew, never half-read.
//
// Layout (written down in docs/format/index.md): items keep their parent's id
// and their own name, never a full path; a root's item has no parent and
// carries the root's absolute path as its name.
//
// This is the only file of the index engine that speaks SQL. All calls are
// checked; busy handling lives in one place (a busy timeout on open).
//
// Thread safety: a Store is used from one thread at a time. Any number of
// processes may read; one writes (the index lock guarantees it).
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace trovara::index {

using StoreId = std::int64_t;

// One item as stored.
struct StoredItem {
    StoreId id = 0;
    StoreId parent = 0;  // 0 for a root's item
    FileInfo info;       // info.name is the name (a root's absolute path)
    std::int32_t type = 0;  // interned MIME type id (see mimeTypes())
    std::uint32_t nodeCount = 0;  // folders: number of entries
    ExtendedAttributes attributes;
};

struct RootRecord {
    StoreId id = 0;
    std::string path;
    StoreId item = 0;  // 0 until first crawled
    Nanoseconds added = 0;
    Nanoseconds lastCrawlStarted = 0;
    Nanoseconds lastCrawlFinished = 0;  // 0: never finished
    bool complete = false;              // the last crawl ran to its end
};

struct UnreadableFolder {
    std::string path;
    int error = 0;
    Nanoseconds seen = 0;
};

class Store {
public:
    // "TrIx" in the SQLite header's application id field.
    static constexpr std::int32_t kApplicationId = 0x54724978;
    // Bumped whenever an older reader could misread the database.
    static constexpr int kFormatVersion = 1;

    enum class Mode { ReadOnly, ReadWrite };

    // Opens the database at `path`. In ReadWrite mode a missing database is
    // created. A database that is not Trovara's, of another format version,
    // or damaged, fails with Failure::Kind::Version or Corrupt; callers
    // rebuild it with recreate().
    static Expected<std::unique_ptr<Store>> open(const std::string& path, Mode mode);
    // Moves a bad database (and its -wal, -shm) aside as "<path>.broken" and
    // creates an empty one.
    static Expected<std::unique_ptr<Store>> recreate(const std::string& path);

    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    const std::string& path() const { return m_path; }

    // Transactions: everything between begin() and commit() becomes visible
    // at once. rollback() drops it.
    Expected<void> begin();
    Expected<void> commit();
    void rollback();

    // A number that grows with every committed change of items or roots; a
    // catalogue snapshot records the generation it was built from.
    Expected<std::int64_t> generation();
    Expected<void> bumpGeneration();

    // Roots.
    Expected<std::vector<RootRecord>> roots();
    Expected<StoreId> addRoot(const std::string& path, Nanoseconds now);
    Expected<void> updateRoot(const RootRecord& root);
    // Removes the root and all its items.
    Expected<void> removeRoot(StoreId root);

    // Items.
    Expected<StoreId> insertItem(const StoredItem& item);
    Expected<void> updateItem(const StoredItem& item);
    Expected<void> updateNodeCount(StoreId item, std::uint32_t count);
    // Deletes the item and everything below it.
    Expected<void> deleteSubtree(StoreId item);
    Expected<std::optional<StoredItem>> item(StoreId id);
    Expected<std::vector<StoredItem>> children(StoreId parent);
    // The entry of a folder with the name, if there is one.
    Expected<std::optional<StoredItem>> child(StoreId parent, const std::string& name);
    // Every item, each parent before its children (ordered by id within
    // that), delivered one by one; the callback returns false to stop.
    Expected<void> forEachItem(const std::function<bool(StoredItem&&)>& callback);
    Expected<std::int64_t> itemCount();

    // MIME types are interned: each distinct name has a small id.
    Expected<std::int32_t> internMimeType(const std::string& mime);
    Expected<std::vector<std::string>> mimeTypes();  // index = id

    // Folders that could not be read, per root (replaced at every crawl).
    Expected<void> setUnreadable(const std::string& path, int error, Nanoseconds seen);
    Expected<void> clearUnreadableBelow(const std::string& root);
    Expected<std::vector<UnreadableFolder>> unreadable();

    // Reads the whole database to find damage (slow: for status and repair,
    // not for every open). Damage fails with Corrupt.
    Expected<void> checkIntegrity();

    // Size of the database files in bytes (with the write-ahead log).
    std::int64_t fileSize() const;

private:
    Store() = default;
    Expected<void> exec(const char* sql);
    Expected<void> createSchema();
    Failure failure(const char* what) const;

    std::string m_path;
    sqlite3* m_db = nullptr;
    struct Statements;
    std::unique_ptr<Statements> m_statements;
};

}  // namespace trovara::index
