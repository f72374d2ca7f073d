#include "index/store.h"

#include "index/list_text.h"
#include "index/text_tokens.h"

#include <sqlite3.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sys/stat.h>

namespace trovara::index {

namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE meta (key TEXT PRIMARY KEY NOT NULL, value) WITHOUT ROWID;
CREATE TABLE roots (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL UNIQUE,
  item INTEGER,
  added INTEGER NOT NULL,
  crawl_started INTEGER NOT NULL DEFAULT 0,
  crawl_finished INTEGER NOT NULL DEFAULT 0,
  complete INTEGER NOT NULL DEFAULT 0,
  names_only INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE mime_types (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE items (
  id INTEGER PRIMARY KEY,
  parent INTEGER,
  name BLOB NOT NULL,
  kind INTEGER NOT NULL,
  mode INTEGER NOT NULL,
  uid INTEGER NOT NULL,
  gid INTEGER NOT NULL,
  size INTEGER NOT NULL,
  modified INTEGER NOT NULL,
  changed INTEGER NOT NULL,
  accessed INTEGER NOT NULL,
  born INTEGER,
  device INTEGER NOT NULL,
  inode INTEGER NOT NULL,
  invisible INTEGER NOT NULL,
  type INTEGER NOT NULL,
  node_count INTEGER NOT NULL DEFAULT 0,
  comment TEXT,
  tags TEXT,
  where_froms TEXT,
  label INTEGER
);
CREATE INDEX items_parent_name ON items(parent, name);
CREATE TABLE unreadable (path TEXT PRIMARY KEY NOT NULL, error INTEGER NOT NULL, seen INTEGER NOT NULL) WITHOUT ROWID;
)sql";

// Added in format 2: what importers found.
constexpr const char* kImportSchema = R"sql(
CREATE TABLE imports (
  item INTEGER PRIMARY KEY,
  importer TEXT NOT NULL,
  failed INTEGER NOT NULL,
  attempts INTEGER NOT NULL,
  retry INTEGER NOT NULL,
  error TEXT,
  finished INTEGER NOT NULL,
  truncated INTEGER NOT NULL,
  attributes BLOB
);
)sql";

// Format 3: the full text keeps no copy of the texts (docs/format/index.md
// says why). Each text gets an id never given again, so that the words of a
// text that went, which a full text without its texts cannot take out, name
// no file any more. The triggers forget an import and its text when the
// item goes or its content changes.
constexpr const char* kTextSchema = R"sql(
CREATE TABLE texts (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  item INTEGER NOT NULL UNIQUE,
  bytes INTEGER NOT NULL,
  packed BLOB
);
CREATE VIRTUAL TABLE text_index USING fts5(text, content = '', tokenize = 'trovara', detail = none);
CREATE VIRTUAL TABLE text_terms USING fts5vocab(text_index, row);
CREATE TRIGGER items_removed AFTER DELETE ON items BEGIN
  DELETE FROM imports WHERE item = old.id;
  DELETE FROM texts WHERE item = old.id;
END;
CREATE TRIGGER items_content_changed AFTER UPDATE OF kind, size, modified, device, inode ON items
WHEN old.kind IS NOT new.kind OR old.size IS NOT new.size OR old.modified IS NOT new.modified
  OR old.device IS NOT new.device OR old.inode IS NOT new.inode
BEGIN
  DELETE FROM imports WHERE item = old.id;
  DELETE FROM texts WHERE item = old.id;
END;
)sql";

// From format 2: the texts kept whole go, and with them the imports that
// found text, so that those files are imported again; other imports stay.
constexpr const char* kDropFormat2Text = R"sql(
DROP TRIGGER items_removed;
DROP TRIGGER items_content_changed;
DELETE FROM imports WHERE item IN (SELECT rowid FROM text_content);
DROP TABLE text_terms;
DROP TABLE text_content;
ALTER TABLE roots ADD COLUMN names_only INTEGER NOT NULL DEFAULT 0;
)sql";

// The full text's tokenizer (text_tokens.h): documents give every word and
// its suffix runs, queries the words as they are.
struct Tokenizer {};

int createTokenizer(void*, const char**, int, Fts5Tokenizer** out)
{
    static Tokenizer instance;
    *out = reinterpret_cast<Fts5Tokenizer*>(&instance);
    return SQLITE_OK;
}

void deleteTokenizer(Fts5Tokenizer*) {}

int tokenize(Fts5Tokenizer*, void* context, int flags, const char* text, int length,
             int (*token)(void*, int, const char*, int, int, int))
{
    const bool document = (flags & FTS5_TOKENIZE_QUERY) == 0;
    const std::string_view whole(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    int rc = SQLITE_OK;
    forEachTerm(whole, document, [&](std::string_view term, bool colocated) {
        rc = token(context, colocated ? FTS5_TOKEN_COLOCATED : 0, term.data(), static_cast<int>(term.size()), 0, 0);
        return rc == SQLITE_OK;
    });
    return rc;
}

bool registerTokenizer(sqlite3* db)
{
    fts5_api* api = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT fts5(?1)", -1, &statement, nullptr) != SQLITE_OK) {
        return false;
    }
    sqlite3_bind_pointer(statement, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(statement);
    sqlite3_finalize(statement);
    if (!api || api->iVersion < 2) {
        return false;
    }
    fts5_tokenizer tokenizer{createTokenizer, deleteTokenizer, tokenize};
    return api->xCreateTokenizer(api, "trovara", nullptr, &tokenizer, nullptr) == SQLITE_OK;
}

// A prepared statement, reset after every use. A statement given with
// later() is prepared when first used, so that opening the database costs
// the same however few statements a reader needs.
class Statement {
public:
    Statement() = default;
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    int prepare(sqlite3* db, const char* sql) { return sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &m_stmt, nullptr); }
    void later(sqlite3* db, std::string sql)
    {
        m_db = db;
        m_sql = std::move(sql);
    }
    sqlite3_stmt* get() const { return m_stmt; }

    void bind(int i, std::int64_t v) { sqlite3_bind_int64(ready(), i, v); }
    void bindNull(int i) { sqlite3_bind_null(ready(), i); }
    void bindText(int i, const std::string& v)
    {
        sqlite3_bind_text64(ready(), i, v.data(), v.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    }
    void bindBlob(int i, const std::string& v)
    {
        sqlite3_bind_blob64(ready(), i, v.data(), v.size(), SQLITE_TRANSIENT);
    }
    void bindOptionalText(int i, const std::optional<std::string>& v)
    {
        if (v) {
            bindText(i, *v);
        } else {
            bindNull(i);
        }
    }
    int step()
    {
        sqlite3_stmt* statement = ready();
        return statement ? sqlite3_step(statement) : sqlite3_errcode(m_db);
    }
    void reset()
    {
        if (m_stmt) {
            sqlite3_reset(m_stmt);
            sqlite3_clear_bindings(m_stmt);
        }
    }
    std::int64_t integer(int c) const { return sqlite3_column_int64(m_stmt, c); }
    bool isNull(int c) const { return sqlite3_column_type(m_stmt, c) == SQLITE_NULL; }
    std::string text(int c) const
    {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(m_stmt, c));
        return data ? std::string(data, static_cast<std::size_t>(sqlite3_column_bytes(m_stmt, c))) : std::string();
    }
    const char* cText(int c) const { return reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, c)); }

private:
    sqlite3_stmt* ready()
    {
        if (!m_stmt && m_db) {
            (void)prepare(m_db, m_sql.c_str());
        }
        return m_stmt;
    }

    sqlite3_stmt* m_stmt = nullptr;
    sqlite3* m_db = nullptr;
    std::string m_sql;
};

// Resets a statement when the scope ends, whatever path it ends by.
struct Reset {
    Statement& statement;
    ~Reset() { statement.reset(); }
};

constexpr const char* kItemColumns =
    "id, parent, name, kind, mode, uid, gid, size, modified, changed, accessed, born, device, inode, invisible, "
    "type, node_count, comment, tags, where_froms, label";

StoredItem readItem(const Statement& s)
{
    StoredItem item;
    item.id = s.integer(0);
    item.parent = s.isNull(1) ? 0 : s.integer(1);
    item.info.name = s.text(2);
    item.info.kind = static_cast<FileKind>(s.integer(3));
    item.info.mode = static_cast<std::uint32_t>(s.integer(4));
    item.info.uid = static_cast<std::uint32_t>(s.integer(5));
    item.info.gid = static_cast<std::uint32_t>(s.integer(6));
    item.info.size = s.integer(7);
    item.info.modified = s.integer(8);
    item.info.changed = s.integer(9);
    item.info.accessed = s.integer(10);
    if (!s.isNull(11)) {
        item.info.born = s.integer(11);
    }
    item.info.device = static_cast<std::uint64_t>(s.integer(12));
    item.info.inode = static_cast<std::uint64_t>(s.integer(13));
    item.info.invisible = s.integer(14) != 0;
    item.type = static_cast<std::int32_t>(s.integer(15));
    item.nodeCount = static_cast<std::uint32_t>(s.integer(16));
    if (!s.isNull(17)) {
        item.attributes.comment = s.text(17);
    }
    item.attributes.tags = s.isNull(18) ? std::vector<std::string>{} : splitList(s.cText(18));
    item.attributes.whereFroms = s.isNull(19) ? std::vector<std::string>{} : splitList(s.cText(19));
    if (!s.isNull(20)) {
        item.attributes.label = static_cast<int>(s.integer(20));
    }
    return item;
}

// Binds the item's columns from index 2 on (1 is the id or parent).
void bindItem(Statement& s, const StoredItem& item, int first)
{
    int i = first;
    s.bindBlob(i++, item.info.name);
    s.bind(i++, static_cast<std::int64_t>(item.info.kind));
    s.bind(i++, item.info.mode);
    s.bind(i++, item.info.uid);
    s.bind(i++, item.info.gid);
    s.bind(i++, item.info.size);
    s.bind(i++, item.info.modified);
    s.bind(i++, item.info.changed);
    s.bind(i++, item.info.accessed);
    if (item.info.born) {
        s.bind(i++, *item.info.born);
    } else {
        s.bindNull(i++);
    }
    s.bind(i++, static_cast<std::int64_t>(item.info.device));
    s.bind(i++, static_cast<std::int64_t>(item.info.inode));
    s.bind(i++, item.info.invisible ? 1 : 0);
    s.bind(i++, item.type);
    s.bind(i++, item.nodeCount);
    s.bindOptionalText(i++, item.attributes.comment);
    if (item.attributes.tags.empty()) {
        s.bindNull(i++);
    } else {
        s.bindText(i++, joinList(item.attributes.tags));
    }
    if (item.attributes.whereFroms.empty()) {
        s.bindNull(i++);
    } else {
        s.bindText(i++, joinList(item.attributes.whereFroms));
    }
    if (item.attributes.label) {
        s.bind(i++, *item.attributes.label);
    } else {
        s.bindNull(i++);
    }
}

}  // namespace

struct Store::Statements {
    Statement begin, commit, rollback;
    Statement insertItem, updateItem, updateNodeCount, selectItem, selectChildren, selectChild, selectAll, countItems;
    Statement selectFolders;
    Statement deleteSubtree;
    Statement getMeta, setMeta;
    Statement selectRoots, insertRoot, updateRoot, deleteRoot;
    Statement selectMime, insertMime, allMime;
    Statement setUnreadable, clearUnreadable, allUnreadable;
    Statement saveImport, deleteText, insertText, insertTerms, forgetContent;
    Statement pendingImports, countPending, failedImports, countImports, countTexts;
    Statement importedAttributes, storedImport, itemPath, selectText, matchText, allTexts, allTerms;
};

Store::~Store()
{
    m_statements.reset();
    if (m_db) {
        sqlite3_close(m_db);
    }
}

Failure Store::failure(const char* what) const
{
    const int code = m_db ? sqlite3_extended_errcode(m_db) : SQLITE_NOMEM;
    const int primary = code & 0xff;
    Failure f;
    f.kind = (primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB) ? Failure::Kind::Corrupt : Failure::Kind::Io;
    f.message = std::string("index database ") + m_path + ": " + what + ": "
                + (m_db ? sqlite3_errmsg(m_db) : "out of memory");
    return f;
}

Expected<void> Store::exec(const char* sql)
{
    char* message = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        Failure f = failure("statement failed");
        if (message) {
            f.message += std::string(" (") + message + ")";
        }
        sqlite3_free(message);
        return f;
    }
    return {};
}

Expected<std::unique_ptr<Store>> Store::open(const std::string& path, Mode mode)
{
    std::unique_ptr<Store> store(new Store);
    store->m_path = path;
    struct stat st {};
    const bool exists = ::stat(path.c_str(), &st) == 0;
    if (!exists && mode == Mode::ReadOnly) {
        return Failure{Failure::Kind::Io, "no index at " + path + " (add a folder with: trova index add DIR)"};
    }
    const int flags = mode == Mode::ReadOnly ? SQLITE_OPEN_READONLY : (SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (sqlite3_open_v2(path.c_str(), &store->m_db, flags | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        return store->failure("cannot open");
    }
    sqlite3_extended_result_codes(store->m_db, 1);
    sqlite3_busy_timeout(store->m_db, 10000);
    if (!registerTokenizer(store->m_db)) {
        return store->failure("no full-text search in this SQLite");
    }

    std::int64_t applicationId = 0;
    std::int64_t formatVersion = 0;
    std::int64_t tableCount = 0;
    {
        // Scoped: an unfinished statement would hold a read transaction open.
        Statement probe;
        Statement version;
        Statement tables;
        if (probe.prepare(store->m_db, "PRAGMA application_id") != SQLITE_OK || probe.step() != SQLITE_ROW
            || version.prepare(store->m_db, "PRAGMA user_version") != SQLITE_OK || version.step() != SQLITE_ROW
            || tables.prepare(store->m_db, "SELECT count(*) FROM sqlite_master") != SQLITE_OK
            || tables.step() != SQLITE_ROW) {
            return store->failure("cannot read");
        }
        applicationId = probe.integer(0);
        formatVersion = version.integer(0);
        tableCount = tables.integer(0);
    }
    const bool empty = tableCount == 0 && applicationId == 0;

    if (empty) {
        if (mode == Mode::ReadOnly) {
            return Failure{Failure::Kind::Corrupt, "index database " + path + " is empty"};
        }
        if (auto created = store->createSchema(); !created) {
            return created.error();
        }
    } else if (applicationId != kApplicationId) {
        return Failure{Failure::Kind::Corrupt, "index database " + path + " is not a Trovara index"};
    } else if ((formatVersion == 1 || formatVersion == 2) && mode == Mode::ReadWrite) {
        if (auto upgraded = store->upgradeSchema(static_cast<int>(formatVersion)); !upgraded) {
            return upgraded.error();
        }
    } else if (formatVersion != kFormatVersion) {
        return Failure{Failure::Kind::Version, "index database " + path + " has format version "
                                                   + std::to_string(formatVersion) + ", this Trovara reads version "
                                                   + std::to_string(kFormatVersion)};
    }
    if (mode == Mode::ReadWrite) {
        if (auto wal = store->exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"); !wal) {
            return wal.error();
        }
    }

    store->m_statements = std::make_unique<Statements>();
    Statements& s = *store->m_statements;
    sqlite3* db = store->m_db;
    const std::string insertItem =
        std::string("INSERT INTO items (") + kItemColumns + ") VALUES (NULL, ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, "
                                                            "?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20)";
    const std::string selectItem = std::string("SELECT ") + kItemColumns + " FROM items WHERE id = ?1";
    const std::string selectChildren = std::string("SELECT ") + kItemColumns + " FROM items WHERE parent = ?1";
    const std::string selectChild =
        std::string("SELECT ") + kItemColumns + " FROM items WHERE parent = ?1 AND name = ?2";
    const std::string selectAll = std::string("SELECT ") + kItemColumns + " FROM items ORDER BY id";
    const std::pair<Statement*, const char*> statements[] = {
        {&s.begin, "BEGIN IMMEDIATE"},
        {&s.commit, "COMMIT"},
        {&s.rollback, "ROLLBACK"},
        {&s.insertItem, insertItem.c_str()},
        {&s.updateItem,
         "UPDATE items SET name = ?2, kind = ?3, mode = ?4, uid = ?5, gid = ?6, size = ?7, modified = ?8, "
         "changed = ?9, accessed = ?10, born = ?11, device = ?12, inode = ?13, invisible = ?14, type = ?15, "
         "node_count = ?16, comment = ?17, tags = ?18, where_froms = ?19, label = ?20 WHERE id = ?1"},
        {&s.updateNodeCount, "UPDATE items SET node_count = ?2 WHERE id = ?1"},
        {&s.selectItem, selectItem.c_str()},
        {&s.selectChildren, selectChildren.c_str()},
        {&s.selectChild, selectChild.c_str()},
        {&s.selectAll, selectAll.c_str()},
        {&s.countItems, "SELECT count(*) FROM items"},
        {&s.selectFolders, "SELECT id, parent, name FROM items WHERE kind = 1 ORDER BY id"},
        {&s.deleteSubtree,
         "WITH RECURSIVE below(id) AS (SELECT ?1 UNION ALL SELECT items.id FROM items JOIN below ON "
         "items.parent = below.id) DELETE FROM items WHERE id IN below"},
        {&s.getMeta, "SELECT value FROM meta WHERE key = ?1"},
        {&s.setMeta, "INSERT OR REPLACE INTO meta (key, value) VALUES (?1, ?2)"},
        {&s.selectRoots,
         "SELECT id, path, item, added, crawl_started, crawl_finished, complete, names_only FROM roots ORDER BY path"},
        {&s.insertRoot, "INSERT INTO roots (path, added, names_only) VALUES (?1, ?2, ?3)"},
        {&s.updateRoot,
         "UPDATE roots SET path = ?2, item = ?3, crawl_started = ?4, crawl_finished = ?5, complete = ?6, "
         "names_only = ?7 WHERE id = ?1"},
        {&s.deleteRoot, "DELETE FROM roots WHERE id = ?1"},
        {&s.selectMime, "SELECT id FROM mime_types WHERE name = ?1"},
        {&s.insertMime, "INSERT INTO mime_types (name) VALUES (?1)"},
        {&s.allMime, "SELECT id, name FROM mime_types ORDER BY id"},
        {&s.setUnreadable, "INSERT OR REPLACE INTO unreadable (path, error, seen) VALUES (?1, ?2, ?3)"},
        {&s.clearUnreadable, "DELETE FROM unreadable WHERE path = ?1 OR substr(path, 1, length(?1) + 1) = ?1 || '/'"},
        {&s.allUnreadable, "SELECT path, error, seen FROM unreadable ORDER BY path"},
        {&s.saveImport,
         "INSERT OR REPLACE INTO imports (item, importer, failed, attempts, retry, error, finished, truncated, "
         "attributes) SELECT ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9 WHERE EXISTS (SELECT 1 FROM items WHERE id = ?1)"},
        {&s.deleteText, "DELETE FROM texts WHERE item = ?1"},
        {&s.insertText, "INSERT INTO texts (item, bytes, packed) VALUES (?1, ?2, ?3)"},
        {&s.insertTerms, "INSERT INTO text_index (rowid, text) VALUES (?1, ?2)"},
        {&s.forgetContent,
         "WITH RECURSIVE below(id) AS (SELECT ?1 UNION ALL SELECT items.id FROM items JOIN below ON "
         "items.parent = below.id) DELETE FROM imports WHERE item IN below"},
        {&s.pendingImports,
         "SELECT items.id, items.parent, items.name, items.type, coalesce(imports.attempts, 0) FROM items "
         "LEFT JOIN imports ON imports.item = items.id WHERE items.kind = 0 AND items.id > ?2 AND "
         "(imports.item IS NULL OR (imports.failed AND imports.retry AND imports.attempts < ?1)) ORDER BY items.id "
         "LIMIT ?3"},
        {&s.countPending,
         "SELECT items.type, count(*) FROM items LEFT JOIN imports ON imports.item = items.id WHERE items.kind = 0 AND "
         "(imports.item IS NULL OR (imports.failed AND imports.retry AND imports.attempts < ?1)) GROUP BY items.type"},
        {&s.failedImports,
         "SELECT item, importer, attempts, error, finished, truncated, retry FROM imports WHERE failed ORDER BY item"},
        {&s.countImports, "SELECT count(*), coalesce(sum(failed), 0) FROM imports"},
        {&s.countTexts, "SELECT count(*) FROM texts"},
        {&s.importedAttributes, "SELECT item, attributes FROM imports WHERE attributes IS NOT NULL ORDER BY item"},
        {&s.storedImport,
         "SELECT attributes, EXISTS (SELECT 1 FROM texts WHERE item = ?1) FROM imports "
         "WHERE item = ?1 AND NOT failed"},
        {&s.itemPath,
         "WITH RECURSIVE up(id, parent, name, depth) AS (SELECT id, parent, name, 0 FROM items WHERE id = ?1 "
         "UNION ALL SELECT items.id, items.parent, items.name, up.depth + 1 FROM items JOIN up ON items.id = up.parent) "
         "SELECT name FROM up ORDER BY depth DESC"},
        {&s.selectText, "SELECT bytes, packed FROM texts WHERE item = ?1"},
        {&s.matchText,
         "SELECT texts.item FROM text_index JOIN texts ON texts.id = text_index.rowid WHERE text_index MATCH ?1 "
         "ORDER BY texts.item"},
        {&s.allTexts, "SELECT item FROM texts ORDER BY item"},
        {&s.allTerms, "SELECT term FROM text_terms"},
    };
    for (const auto& [statement, sql] : statements) {
        statement->later(db, sql);
    }
    // The tables and columns this version expects are there.
    Statement schema;
    if (schema.prepare(db, "SELECT (SELECT names_only FROM roots), (SELECT packed FROM texts), (SELECT rowid FROM "
                           "text_index), (SELECT retry FROM imports), (SELECT node_count FROM items) LIMIT 0")
        != SQLITE_OK) {
        Failure f = store->failure("unexpected schema");
        f.kind = Failure::Kind::Corrupt;
        return f;
    }
    return store;
}

Expected<std::unique_ptr<Store>> Store::recreate(const std::string& path)
{
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const std::string from = path + suffix;
        const std::string to = path + ".broken" + suffix;
        if (std::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
            return Failure{Failure::Kind::Io, "cannot move the damaged index " + from + " aside: " + std::strerror(errno)};
        }
    }
    return open(path, Mode::ReadWrite);
}

Expected<void> Store::createSchema()
{
    if (auto r = exec("BEGIN IMMEDIATE"); !r) {
        return r;
    }
    const std::string pragmas = "PRAGMA application_id=" + std::to_string(kApplicationId)
                                + "; PRAGMA user_version=" + std::to_string(kFormatVersion) + ";";
    for (const char* sql : {pragmas.c_str(), kSchema, kImportSchema, kTextSchema,
                            "INSERT INTO meta (key, value) VALUES ('generation', 0)", "COMMIT"}) {
        if (auto r = exec(sql); !r) {
            (void)exec("ROLLBACK");
            return r;
        }
    }
    return {};
}

Expected<void> Store::upgradeSchema(int from)
{
    if (auto r = exec("BEGIN IMMEDIATE"); !r) {
        return r;
    }
    const std::string version = "PRAGMA user_version=" + std::to_string(kFormatVersion) + ";";
    const std::vector<const char*> steps =
        from == 1 ? std::vector<const char*>{"ALTER TABLE roots ADD COLUMN names_only INTEGER NOT NULL DEFAULT 0;",
                                             kImportSchema, kTextSchema, version.c_str(), "COMMIT"}
                  : std::vector<const char*>{kDropFormat2Text, kTextSchema, version.c_str(), "COMMIT"};
    for (const char* sql : steps) {
        if (auto r = exec(sql); !r) {
            (void)exec("ROLLBACK");
            return r;
        }
    }
    // The texts that went leave their pages free: give them back.
    return from == 2 ? exec("VACUUM") : Expected<void>();
}

Expected<void> Store::checkIntegrity()
{
    Statement check;
    if (check.prepare(m_db, "PRAGMA quick_check(1)") != SQLITE_OK || check.step() != SQLITE_ROW) {
        Failure f = failure("cannot check");
        f.kind = Failure::Kind::Corrupt;
        return f;
    }
    if (check.text(0) != "ok") {
        return Failure{Failure::Kind::Corrupt, "index database " + m_path + " is damaged: " + check.text(0)};
    }
    return {};
}

Expected<void> Store::begin()
{
    Reset r{m_statements->begin};
    return m_statements->begin.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("begin"));
}

Expected<void> Store::commit()
{
    Reset r{m_statements->commit};
    return m_statements->commit.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("commit"));
}

void Store::rollback()
{
    Reset r{m_statements->rollback};
    m_statements->rollback.step();
}

Expected<std::int64_t> Store::generation()
{
    Statement& s = m_statements->getMeta;
    Reset r{s};
    s.bindText(1, "generation");
    const int rc = s.step();
    if (rc == SQLITE_ROW) {
        return s.integer(0);
    }
    if (rc == SQLITE_DONE) {
        return std::int64_t{0};
    }
    return failure("reading the generation");
}

Expected<void> Store::bumpGeneration()
{
    Expected<std::int64_t> current = generation();
    if (!current) {
        return current.error();
    }
    Statement& s = m_statements->setMeta;
    Reset r{s};
    s.bindText(1, "generation");
    s.bind(2, *current + 1);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("writing the generation"));
}

Expected<std::vector<RootRecord>> Store::roots()
{
    Statement& s = m_statements->selectRoots;
    Reset r{s};
    std::vector<RootRecord> list;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        RootRecord root;
        root.id = s.integer(0);
        root.path = s.text(1);
        root.item = s.isNull(2) ? 0 : s.integer(2);
        root.added = s.integer(3);
        root.lastCrawlStarted = s.integer(4);
        root.lastCrawlFinished = s.integer(5);
        root.complete = s.integer(6) != 0;
        root.namesOnly = s.integer(7) != 0;
        list.push_back(std::move(root));
    }
    if (rc != SQLITE_DONE) {
        return failure("reading roots");
    }
    return list;
}

Expected<StoreId> Store::addRoot(const std::string& path, Nanoseconds now, bool namesOnly)
{
    Statement& s = m_statements->insertRoot;
    Reset r{s};
    s.bindText(1, path);
    s.bind(2, now);
    s.bind(3, namesOnly ? 1 : 0);
    if (s.step() != SQLITE_DONE) {
        return failure("adding a root");
    }
    return sqlite3_last_insert_rowid(m_db);
}

Expected<void> Store::updateRoot(const RootRecord& root)
{
    Statement& s = m_statements->updateRoot;
    Reset r{s};
    s.bind(1, root.id);
    s.bindText(2, root.path);
    if (root.item) {
        s.bind(3, root.item);
    } else {
        s.bindNull(3);
    }
    s.bind(4, root.lastCrawlStarted);
    s.bind(5, root.lastCrawlFinished);
    s.bind(6, root.complete ? 1 : 0);
    s.bind(7, root.namesOnly ? 1 : 0);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("updating a root"));
}

Expected<void> Store::removeRoot(StoreId root)
{
    Expected<std::vector<RootRecord>> all = roots();
    if (!all) {
        return all.error();
    }
    for (const RootRecord& record : *all) {
        if (record.id != root) {
            continue;
        }
        if (record.item) {
            if (auto deleted = deleteSubtree(record.item); !deleted) {
                return deleted;
            }
        }
        if (auto cleared = clearUnreadableBelow(record.path); !cleared) {
            return cleared;
        }
    }
    Statement& s = m_statements->deleteRoot;
    Reset r{s};
    s.bind(1, root);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("removing a root"));
}

Expected<StoreId> Store::insertItem(const StoredItem& item)
{
    Statement& s = m_statements->insertItem;
    Reset r{s};
    if (item.parent) {
        s.bind(1, item.parent);
    } else {
        s.bindNull(1);
    }
    bindItem(s, item, 2);
    if (s.step() != SQLITE_DONE) {
        return failure("adding an item");
    }
    return sqlite3_last_insert_rowid(m_db);
}

Expected<void> Store::updateItem(const StoredItem& item)
{
    Statement& s = m_statements->updateItem;
    Reset r{s};
    s.bind(1, item.id);
    bindItem(s, item, 2);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("updating an item"));
}

Expected<void> Store::updateNodeCount(StoreId item, std::uint32_t count)
{
    Statement& s = m_statements->updateNodeCount;
    Reset r{s};
    s.bind(1, item);
    s.bind(2, count);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("updating a folder"));
}

Expected<void> Store::deleteSubtree(StoreId item)
{
    Statement& s = m_statements->deleteSubtree;
    Reset r{s};
    s.bind(1, item);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("removing items"));
}

Expected<std::optional<StoredItem>> Store::item(StoreId id)
{
    Statement& s = m_statements->selectItem;
    Reset r{s};
    s.bind(1, id);
    const int rc = s.step();
    if (rc == SQLITE_ROW) {
        return std::optional<StoredItem>(readItem(s));
    }
    if (rc == SQLITE_DONE) {
        return std::optional<StoredItem>();
    }
    return failure("reading an item");
}

Expected<std::optional<StoredItem>> Store::child(StoreId parent, const std::string& name)
{
    Statement& s = m_statements->selectChild;
    Reset r{s};
    s.bind(1, parent);
    s.bindBlob(2, name);
    const int rc = s.step();
    if (rc == SQLITE_ROW) {
        return std::optional<StoredItem>(readItem(s));
    }
    if (rc == SQLITE_DONE) {
        return std::optional<StoredItem>();
    }
    return failure("reading a folder");
}

Expected<std::vector<StoredItem>> Store::children(StoreId parent)
{
    Statement& s = m_statements->selectChildren;
    Reset r{s};
    s.bind(1, parent);
    std::vector<StoredItem> list;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        list.push_back(readItem(s));
    }
    if (rc != SQLITE_DONE) {
        return failure("reading a folder");
    }
    return list;
}

Expected<void> Store::forEachItem(const std::function<bool(StoredItem&&)>& callback)
{
    Statement& s = m_statements->selectAll;
    Reset r{s};
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        if (!callback(readItem(s))) {
            return {};
        }
    }
    if (rc != SQLITE_DONE) {
        return failure("reading items");
    }
    return {};
}

Expected<void> Store::forEachFolder(const std::function<bool(StoreId, StoreId, std::string&&)>& callback)
{
    Statement& s = m_statements->selectFolders;
    Reset r{s};
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        if (!callback(s.integer(0), s.isNull(1) ? 0 : s.integer(1), s.text(2))) {
            return {};
        }
    }
    return rc == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("reading folders"));
}

Expected<std::int64_t> Store::itemCount()
{
    Statement& s = m_statements->countItems;
    Reset r{s};
    if (s.step() != SQLITE_ROW) {
        return failure("counting items");
    }
    return s.integer(0);
}

Expected<std::int32_t> Store::internMimeType(const std::string& mime)
{
    {
        Statement& s = m_statements->selectMime;
        Reset r{s};
        s.bindText(1, mime);
        const int rc = s.step();
        if (rc == SQLITE_ROW) {
            return static_cast<std::int32_t>(s.integer(0));
        }
        if (rc != SQLITE_DONE) {
            return failure("reading types");
        }
    }
    Statement& s = m_statements->insertMime;
    Reset r{s};
    s.bindText(1, mime);
    if (s.step() != SQLITE_DONE) {
        return failure("adding a type");
    }
    return static_cast<std::int32_t>(sqlite3_last_insert_rowid(m_db));
}

Expected<std::vector<std::string>> Store::mimeTypes()
{
    Statement& s = m_statements->allMime;
    Reset r{s};
    std::vector<std::string> names;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        const auto id = static_cast<std::size_t>(s.integer(0));
        if (id >= names.size()) {
            names.resize(id + 1);
        }
        names[id] = s.text(1);
    }
    if (rc != SQLITE_DONE) {
        return failure("reading types");
    }
    return names;
}

Expected<void> Store::setUnreadable(const std::string& path, int error, Nanoseconds seen)
{
    Statement& s = m_statements->setUnreadable;
    Reset r{s};
    s.bindText(1, path);
    s.bind(2, error);
    s.bind(3, seen);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("recording an unreadable folder"));
}

Expected<void> Store::clearUnreadableBelow(const std::string& root)
{
    Statement& s = m_statements->clearUnreadable;
    Reset r{s};
    s.bindText(1, root == "/" ? std::string() : root);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("clearing unreadable folders"));
}

Expected<std::vector<UnreadableFolder>> Store::unreadable()
{
    Statement& s = m_statements->allUnreadable;
    Reset r{s};
    std::vector<UnreadableFolder> list;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        list.push_back({s.text(0), static_cast<int>(s.integer(1)), s.integer(2)});
    }
    if (rc != SQLITE_DONE) {
        return failure("reading unreadable folders");
    }
    return list;
}

Expected<void> Store::saveImport(const ImportRecord& record, const std::optional<std::string>& text, bool keepCopy)
{
    {
        Statement& s = m_statements->saveImport;
        Reset r{s};
        s.bind(1, record.item);
        s.bindText(2, record.importer);
        s.bind(3, record.failed ? 1 : 0);
        s.bind(4, record.attempts);
        s.bind(5, record.mayRetry ? 1 : 0);
        if (record.error.empty()) {
            s.bindNull(6);
        } else {
            s.bindText(6, record.error);
        }
        s.bind(7, record.finished);
        s.bind(8, record.truncated ? 1 : 0);
        if (record.attributes) {
            s.bindBlob(9, *record.attributes);
        } else {
            s.bindNull(9);
        }
        if (s.step() != SQLITE_DONE) {
            return failure("recording an import");
        }
        if (sqlite3_changes(m_db) == 0) {
            return {};  // the item went while its file was read
        }
    }
    {
        Statement& s = m_statements->deleteText;
        Reset r{s};
        s.bind(1, record.item);
        if (s.step() != SQLITE_DONE) {
            return failure("replacing a text");
        }
    }
    if (!text || text->empty()) {
        return {};
    }
    std::string packed;
    if (keepCopy) {
        uLongf size = compressBound(static_cast<uLong>(text->size()));
        packed.resize(size);
        if (compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(text->data()),
                      static_cast<uLong>(text->size()), 6)
            != Z_OK) {
            return Failure{Failure::Kind::Internal, "cannot compress a text"};
        }
        packed.resize(size);
    }
    StoreId id = 0;
    {
        Statement& s = m_statements->insertText;
        Reset r{s};
        s.bind(1, record.item);
        s.bind(2, static_cast<std::int64_t>(text->size()));
        if (keepCopy) {
            s.bindBlob(3, packed);
        } else {
            s.bindNull(3);
        }
        if (s.step() != SQLITE_DONE) {
            return failure("storing a text");
        }
        id = sqlite3_last_insert_rowid(m_db);
    }
    Statement& s = m_statements->insertTerms;
    Reset r{s};
    s.bind(1, id);
    s.bindText(2, *text);
    return s.step() == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("indexing a text"));
}

Expected<void> Store::forgetContentBelow(StoreId item)
{
    Statement& s = m_statements->forgetContent;
    Reset r{s};
    s.bind(1, item);
    if (s.step() != SQLITE_DONE) {
        return failure("forgetting contents");
    }
    // The texts of the files whose import went, found by their items.
    return exec("DELETE FROM texts WHERE item NOT IN (SELECT item FROM imports)");
}

Expected<std::vector<PendingImport>> Store::pendingImports(int maxAttempts, StoreId after, std::size_t limit)
{
    Statement& s = m_statements->pendingImports;
    Reset r{s};
    s.bind(1, maxAttempts);
    s.bind(2, after);
    s.bind(3, static_cast<std::int64_t>(std::min<std::size_t>(limit, std::numeric_limits<std::int64_t>::max())));
    std::vector<PendingImport> list;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        list.push_back({s.integer(0), s.isNull(1) ? 0 : s.integer(1), s.text(2), static_cast<std::int32_t>(s.integer(3)),
                        static_cast<int>(s.integer(4))});
    }
    if (rc != SQLITE_DONE) {
        return failure("reading what to import");
    }
    return list;
}

Expected<std::vector<std::pair<std::int32_t, std::int64_t>>> Store::countPendingImports(int maxAttempts)
{
    Statement& s = m_statements->countPending;
    Reset r{s};
    s.bind(1, maxAttempts);
    std::vector<std::pair<std::int32_t, std::int64_t>> counts;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        counts.emplace_back(static_cast<std::int32_t>(s.integer(0)), s.integer(1));
    }
    if (rc != SQLITE_DONE) {
        return failure("counting what to import");
    }
    return counts;
}

Expected<std::vector<ImportRecord>> Store::failedImports()
{
    Statement& s = m_statements->failedImports;
    Reset r{s};
    std::vector<ImportRecord> list;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        ImportRecord record;
        record.item = s.integer(0);
        record.importer = s.text(1);
        record.failed = true;
        record.attempts = static_cast<int>(s.integer(2));
        record.error = s.text(3);
        record.finished = s.integer(4);
        record.truncated = s.integer(5) != 0;
        record.mayRetry = s.integer(6) != 0;
        list.push_back(std::move(record));
    }
    if (rc != SQLITE_DONE) {
        return failure("reading import failures");
    }
    return list;
}

Expected<ImportCounts> Store::importCounts()
{
    ImportCounts counts;
    {
        Statement& s = m_statements->countImports;
        Reset r{s};
        if (s.step() != SQLITE_ROW) {
            return failure("counting imports");
        }
        counts.failed = s.integer(1);
        counts.imported = s.integer(0) - counts.failed;
    }
    Statement& s = m_statements->countTexts;
    Reset r{s};
    if (s.step() != SQLITE_ROW) {
        return failure("counting texts");
    }
    counts.withText = s.integer(0);
    return counts;
}

Expected<void> Store::forEachImportedAttributes(const std::function<bool(StoreId, std::string_view)>& callback)
{
    Statement& s = m_statements->importedAttributes;
    Reset r{s};
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(s.get(), 1));
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(s.get(), 1));
        if (!callback(s.integer(0), std::string_view(data ? data : "", data ? size : 0))) {
            return {};
        }
    }
    return rc == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("reading imported attributes"));
}

Expected<std::optional<StoredImport>> Store::storedImport(StoreId item)
{
    Statement& s = m_statements->storedImport;
    Reset r{s};
    s.bind(1, item);
    const int rc = s.step();
    if (rc == SQLITE_DONE) {
        return std::optional<StoredImport>();
    }
    if (rc != SQLITE_ROW) {
        return failure("reading an import");
    }
    const auto* data = static_cast<const char*>(sqlite3_column_blob(s.get(), 0));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(s.get(), 0));
    return std::optional<StoredImport>(StoredImport{std::string(data ? data : "", data ? size : 0), s.integer(1) != 0});
}

Expected<std::string> Store::itemPath(StoreId item)
{
    Statement& s = m_statements->itemPath;
    Reset r{s};
    s.bind(1, item);
    std::string path;
    int rc;
    bool first = true;
    while ((rc = s.step()) == SQLITE_ROW) {
        const std::string name = s.text(0);
        if (first) {
            path = name;  // the root's item holds the root's path
            first = false;
        } else {
            path += (path == "/" ? "" : "/") + name;
        }
    }
    if (rc != SQLITE_DONE) {
        return failure("reading a path");
    }
    return path;
}

Expected<std::optional<StoredText>> Store::storedText(StoreId item)
{
    Statement& s = m_statements->selectText;
    Reset r{s};
    s.bind(1, item);
    const int rc = s.step();
    if (rc == SQLITE_DONE) {
        return std::optional<StoredText>();
    }
    if (rc != SQLITE_ROW) {
        return failure("reading a text");
    }
    StoredText stored;
    stored.bytes = s.integer(0);
    if (!s.isNull(1)) {
        const std::string packed = s.text(1);
        std::string text(static_cast<std::size_t>(std::max<std::int64_t>(stored.bytes, 0)), '\0');
        uLongf size = static_cast<uLongf>(text.size());
        if (uncompress(reinterpret_cast<Bytef*>(text.data()), &size, reinterpret_cast<const Bytef*>(packed.data()),
                       static_cast<uLong>(packed.size()))
                != Z_OK
            || size != text.size()) {
            return Failure{Failure::Kind::Corrupt, "index database " + m_path + ": a stored text is damaged"};
        }
        stored.copy = std::move(text);
    }
    return std::optional<StoredText>(std::move(stored));
}

namespace {

Expected<std::vector<StoreId>> collectIds(Statement& s, const std::function<Failure()>& fail)
{
    std::vector<StoreId> ids;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        ids.push_back(s.integer(0));
    }
    if (rc != SQLITE_DONE) {
        return fail();
    }
    return ids;
}

}  // namespace

Expected<std::vector<StoreId>> Store::textMatches(const std::string& query)
{
    Statement& s = m_statements->matchText;
    Reset r{s};
    s.bindText(1, query);
    return collectIds(s, [&] { return failure("searching the full text"); });
}

Expected<std::vector<StoreId>> Store::itemsWithText()
{
    Statement& s = m_statements->allTexts;
    Reset r{s};
    return collectIds(s, [&] { return failure("listing texts"); });
}

Expected<void> Store::forEachTextTerm(const std::function<bool(std::string_view)>& callback)
{
    Statement& s = m_statements->allTerms;
    Reset r{s};
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        const char* term = s.cText(0);
        if (!callback(term ? std::string_view(term, static_cast<std::size_t>(sqlite3_column_bytes(s.get(), 0)))
                           : std::string_view())) {
            return {};
        }
    }
    return rc == SQLITE_DONE ? Expected<void>() : Expected<void>(failure("reading the full text's terms"));
}

std::int64_t Store::fileSize() const
{
    std::int64_t total = 0;
    for (const char* suffix : {"", "-wal"}) {
        struct stat st {};
        if (::stat((m_path + suffix).c_str(), &st) == 0) {
            total += st.st_size;
        }
    }
    return total;
}

}  // namespace trovara::index
