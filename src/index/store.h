// The index database: the durable record of every indexed item, the roots,
// the crawl state, the folders that could not be read, and what importers
// found in files (attributes, text content, failures). It is a rebuildable
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
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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
    bool namesOnly = false;             // its files' contents are not imported
};

struct UnreadableFolder {
    std::string path;
    int error = 0;
    Nanoseconds seen = 0;
};

// What the last import of a file gave. A change of the file's content
// (kind, size, modification time, identity) drops its record and its text,
// so that the file is imported again.
struct ImportRecord {
    StoreId item = 0;
    std::string importer;     // the importer that answered (or was asked)
    bool failed = false;
    int attempts = 0;         // failed tries since the content last changed
    bool mayRetry = false;    // a failure another try may mend (a crash, a hang)
    std::string error;        // why the last try failed
    Nanoseconds finished = 0;
    bool truncated = false;   // the text was cut at the limit
    std::optional<std::string> attributes;  // ImportedAttributes, encoded
};

// A regular file that has no import record yet, or whose last import
// failed in a way another try may mend, fewer times than allowed.
struct PendingImport {
    StoreId id = 0;
    StoreId parent = 0;
    std::string name;
    std::int32_t type = 0;
    int attempts = 0;
};

// What the last successful import of a file left: its encoded attributes
// (empty when it found none) and whether it has text content.
struct StoredImport {
    std::string attributes;
    bool hasText = false;
};

// What the index keeps of a file's text: its length, and a copy when the
// text cannot be read back from the file.
struct StoredText {
    std::int64_t bytes = 0;
    std::optional<std::string> copy;
};

struct ImportCounts {
    std::int64_t imported = 0;  // files with an import record that did not fail
    std::int64_t failed = 0;
    std::int64_t withText = 0;  // files with text content
};

class Store {
public:
    // "TrIx" in the SQLite header's application id field.
    static constexpr std::int32_t kApplicationId = 0x54724978;
    // Bumped whenever an older reader could misread the database. A
    // database of version 1 (no imports) or 2 (texts kept whole) is brought
    // to version 3 in place when it is opened for writing.
    static constexpr int kFormatVersion = 3;

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
    Expected<StoreId> addRoot(const std::string& path, Nanoseconds now, bool namesOnly = false);
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
    // Every folder's id, parent (0 for a root's) and name, parents first.
    Expected<void> forEachFolder(const std::function<bool(StoreId id, StoreId parent, std::string&& name)>& callback);

    // MIME types are interned: each distinct name has a small id.
    Expected<std::int32_t> internMimeType(const std::string& mime);
    Expected<std::vector<std::string>> mimeTypes();  // index = id

    // Folders that could not be read, per root (replaced at every crawl).
    Expected<void> setUnreadable(const std::string& path, int error, Nanoseconds seen);
    Expected<void> clearUnreadableBelow(const std::string& root);
    Expected<std::vector<UnreadableFolder>> unreadable();

    // Imports. saveImport() replaces the file's record and its text (none:
    // no text content); it records nothing for an item that is gone. The
    // full text takes the text's words; a copy of the text itself is kept
    // (compressed) only when `keepCopy`, for texts that cannot be read
    // back from the file cheaply (see TextIndex::text()).
    Expected<void> saveImport(const ImportRecord& record, const std::optional<std::string>& text,
                              bool keepCopy = true);
    // Forgets what the imports of the files at or below the item found.
    Expected<void> forgetContentBelow(StoreId item);
    // Regular files to import (by id, those after `after`, at most
    // `limit`), leaving out files that failed `maxAttempts` times.
    Expected<std::vector<PendingImport>> pendingImports(int maxAttempts, StoreId after = 0,
                                                       std::size_t limit = std::numeric_limits<std::size_t>::max());
    // How many files pendingImports() would give, by type.
    Expected<std::vector<std::pair<std::int32_t, std::int64_t>>> countPendingImports(int maxAttempts);
    Expected<std::vector<ImportRecord>> failedImports();
    // None when the item has no import, or its last import failed.
    Expected<std::optional<StoredImport>> storedImport(StoreId item);
    Expected<ImportCounts> importCounts();
    // The encoded attributes of every imported file, by ascending id.
    Expected<void> forEachImportedAttributes(const std::function<bool(StoreId, std::string_view)>& callback);
    // The item's absolute path, from its chain of names.
    Expected<std::string> itemPath(StoreId item);

    // Full text (see text_tokens.h for its terms). textMatches() takes an
    // FTS5 query and gives the ids of the matching files, ascending.
    Expected<std::optional<StoredText>> storedText(StoreId item);
    Expected<std::vector<StoreId>> textMatches(const std::string& query);
    Expected<std::vector<StoreId>> itemsWithText();
    // Every distinct term of the full text, in byte order.
    Expected<void> forEachTextTerm(const std::function<bool(std::string_view)>& callback);

    // Reads the whole database to find damage (slow: for status and repair,
    // not for every open). Damage fails with Corrupt.
    Expected<void> checkIntegrity();

    // Size of the database files in bytes (with the write-ahead log).
    std::int64_t fileSize() const;

private:
    Store() = default;
    Expected<void> exec(const char* sql);
    Expected<void> createSchema();
    Expected<void> upgradeSchema(int from);
    Failure failure(const char* what) const;

    std::string m_path;
    sqlite3* m_db = nullptr;
    struct Statements;
    std::unique_ptr<Statements> m_statements;
};

}  // namespace trovara::index
