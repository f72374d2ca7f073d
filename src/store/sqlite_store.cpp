#include "store/sqlite_store.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace trovara::store {

namespace {

// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC, the reference
// date of stored dates.
constexpr double kReferenceDateOffset = 978307200.0;

struct Column {
    QString name;
    bool isRelationship = false;
    AttributeType type = AttributeType::String;
};

struct TableLayout {
    const EntityDescription* root = nullptr;
    std::vector<Column> columns;
};

void collectSubtree(const EntityDescription& entity, std::vector<const EntityDescription*>& out)
{
    out.push_back(&entity);
    for (const EntityDescription* sub : entity.subentities()) {
        collectSubtree(*sub, out);
    }
}

std::vector<TableLayout> tableLayouts(const ManagedObjectModel& model)
{
    std::vector<TableLayout> layouts;
    for (const auto& entity : model.entities()) {
        if (entity->superentity()) {
            continue;
        }
        TableLayout layout;
        layout.root = entity.get();
        std::vector<const EntityDescription*> subtree;
        collectSubtree(*entity, subtree);
        auto has = [&](const QString& name) {
            return std::any_of(layout.columns.begin(), layout.columns.end(),
                               [&](const Column& c) { return c.name == name; });
        };
        for (const EntityDescription* e : subtree) {
            for (const AttributeDescription& attribute : e->attributes()) {
                if (!attribute.isTransient && !has(attribute.name)) {
                    layout.columns.push_back({attribute.name, false, attribute.type});
                }
            }
        }
        for (const EntityDescription* e : subtree) {
            for (const RelationshipDescription& relationship : e->relationships()) {
                if (!relationship.isToMany && !has(relationship.name)) {
                    layout.columns.push_back({relationship.name, true, AttributeType::Integer});
                }
            }
        }
        layouts.push_back(std::move(layout));
    }
    return layouts;
}

QString quoted(const QString& identifier)
{
    QString escaped = identifier;
    escaped.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString sqlType(const Column& column)
{
    if (column.isRelationship) {
        return QStringLiteral(" INTEGER");
    }
    switch (column.type) {
    case AttributeType::String:
        return QStringLiteral(" TEXT");
    case AttributeType::Integer:
    case AttributeType::Boolean:
        return QStringLiteral(" INTEGER");
    case AttributeType::Double:
    case AttributeType::Date:
        return QStringLiteral(" REAL");
    case AttributeType::Binary:
        return QStringLiteral(" BLOB");
    case AttributeType::Number:
        // No declared type: the value keeps its storage class (INTEGER or
        // REAL), so 3 and 3.0 come back as they went in.
        return {};
    }
    return {};
}

// --- Thin, checked wrappers over the SQLite C API. -------------------------

class Database {
public:
    Database() = default;
    ~Database() { close(); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    int open(const QString& path, int flags)
    {
        const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db, flags, nullptr);
        if (rc == SQLITE_OK) {
            sqlite3_extended_result_codes(m_db, 1);
        }
        return rc;
    }
    int close()
    {
        int rc = SQLITE_OK;
        if (m_db) {
            rc = sqlite3_close(m_db);
            m_db = nullptr;
        }
        return rc;
    }
    int exec(const QString& sql) { return sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, nullptr); }
    QString message() const { return m_db ? QString::fromUtf8(sqlite3_errmsg(m_db)) : QStringLiteral("out of memory"); }
    sqlite3* handle() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
};

class Statement {
public:
    Statement(Database& db, const QString& sql)
    {
        m_rc = sqlite3_prepare_v2(db.handle(), sql.toUtf8().constData(), -1, &m_stmt, nullptr);
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    int prepareResult() const { return m_rc; }
    int step() { return sqlite3_step(m_stmt); }
    int reset() { return sqlite3_reset(m_stmt); }
    sqlite3_stmt* handle() const { return m_stmt; }

    int bind(int index, const QVariant& value)
    {
        if (!value.isValid() || value.isNull()) {
            return sqlite3_bind_null(m_stmt, index);
        }
        switch (value.metaType().id()) {
        case QMetaType::Bool:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::Long:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::ULong:
        case QMetaType::ULongLong:
            return sqlite3_bind_int64(m_stmt, index, value.toLongLong());
        case QMetaType::Double:
        case QMetaType::Float:
            return sqlite3_bind_double(m_stmt, index, value.toDouble());
        case QMetaType::QDateTime:
            return sqlite3_bind_double(m_stmt, index,
                                       value.toDateTime().toMSecsSinceEpoch() / 1000.0 - kReferenceDateOffset);
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            return sqlite3_bind_blob64(m_stmt, index, bytes.constData(), static_cast<sqlite3_uint64>(bytes.size()),
                                       SQLITE_TRANSIENT);
        }
        default: {
            const QByteArray text = value.toString().toUtf8();
            return sqlite3_bind_text64(m_stmt, index, text.constData(), static_cast<sqlite3_uint64>(text.size()),
                                       SQLITE_TRANSIENT, SQLITE_UTF8);
        }
        }
    }

    // The column's value as stored, in the most natural QVariant type.
    QVariant column(int index) const
    {
        switch (sqlite3_column_type(m_stmt, index)) {
        case SQLITE_INTEGER:
            return QVariant::fromValue<qint64>(sqlite3_column_int64(m_stmt, index));
        case SQLITE_FLOAT:
            return sqlite3_column_double(m_stmt, index);
        case SQLITE_TEXT:
            return QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, index)),
                                     sqlite3_column_bytes(m_stmt, index));
        case SQLITE_BLOB: {
            const void* data = sqlite3_column_blob(m_stmt, index);
            return QByteArray(static_cast<const char*>(data), sqlite3_column_bytes(m_stmt, index));
        }
        default:
            return {};
        }
    }

private:
    sqlite3_stmt* m_stmt = nullptr;
    int m_rc = SQLITE_OK;
};

// Converts a stored value to the attribute's declared type. `ok` is false
// when the stored value cannot be one (a damaged or foreign file).
QVariant toAttributeValue(const QVariant& stored, AttributeType type, bool* ok)
{
    *ok = true;
    if (!stored.isValid()) {
        return {};
    }
    const int id = stored.metaType().id();
    const bool number = id == QMetaType::LongLong || id == QMetaType::Double;
    switch (type) {
    case AttributeType::String:
        *ok = id == QMetaType::QString;
        return stored;
    case AttributeType::Integer:
        *ok = id == QMetaType::LongLong;
        return stored;
    case AttributeType::Double:
        *ok = number;
        return stored.toDouble();
    case AttributeType::Number:
        *ok = number;
        return stored;
    case AttributeType::Boolean:
        *ok = number;
        return normalizedValue(stored, type);
    case AttributeType::Date:
        *ok = number;
        return QDateTime::fromMSecsSinceEpoch(qRound64((stored.toDouble() + kReferenceDateOffset) * 1000.0),
                                              Qt::UTC);
    case AttributeType::Binary:
        *ok = id == QMetaType::QByteArray;
        return stored;
    }
    return stored;
}

QString displayName(const QString& path)
{
    return QFileInfo(path).fileName();
}

Error readError(const QString& path, int code, const QString& reason, const QString& suggestion = {})
{
    Error error = Error::make(code, QStringLiteral("The document “%1” could not be opened.").arg(displayName(path)),
                              reason, suggestion);
    error.userInfo.insert(QStringLiteral("path"), path);
    return error;
}

Error damaged(const QString& path, const QString& detail)
{
    Error error = readError(path, Error::kFileReadCorruptError,
                            QStringLiteral("The file isn't a Trovara search document, or it is damaged."),
                            QStringLiteral("Open a copy from a backup, or make the search again."));
    error.userInfo.insert(QStringLiteral("detail"), detail);
    return error;
}

Error writeError(const QString& path, int sqliteCode, const QString& detail, int systemErrno = 0)
{
    const int primary = sqliteCode & 0xff;
    Error error;
    error.description = QStringLiteral("The document “%1” could not be saved.").arg(displayName(path));
    const bool noSpace = systemErrno == ENOSPC || systemErrno == EDQUOT || systemErrno == EFBIG;
    if (primary == SQLITE_FULL || noSpace) {
        error.code = Error::kFileWriteOutOfSpaceError;
        error.reason = QStringLiteral("There isn't enough space on the disk.");
        error.suggestion = QStringLiteral("Make room on the disk, or save the document somewhere else.");
    } else if (primary == SQLITE_READONLY || primary == SQLITE_CANTOPEN || primary == SQLITE_PERM) {
        error.code = Error::kFileWriteError;
        error.reason = QStringLiteral("You can't write in the folder “%1”.").arg(QFileInfo(path).absolutePath());
        error.suggestion = QStringLiteral("Save the document in another folder.");
    } else {
        error.code = Error::kFileWriteError;
        error.reason = QStringLiteral("The file could not be written.");
    }
    error.userInfo.insert(QStringLiteral("path"), path);
    error.userInfo.insert(QStringLiteral("detail"), detail);
    return error;
}

Error errnoWriteError(const QString& path, int err, const char* what)
{
    const int code = err == ENOSPC || err == EDQUOT || err == EFBIG ? SQLITE_FULL
                     : (err == EACCES || err == EPERM || err == EROFS) ? SQLITE_READONLY
                                                                       : SQLITE_IOERR;
    return writeError(path, code, QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(std::strerror(err))));
}

bool syncPath(const QString& path, bool directory)
{
    const int fd = ::open(QFile::encodeName(path).constData(), (directory ? O_RDONLY | O_DIRECTORY : O_RDWR) | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool ok = ::fsync(fd) == 0 || (directory && errno == EINVAL);
    ::close(fd);
    return ok;
}

// The temporary file of a save: removed unless it was renamed into place.
class TemporaryFile {
public:
    explicit TemporaryFile(const QString& target)
    {
        const QFileInfo info(target);
        QByteArray pattern = QFile::encodeName(info.absolutePath() + QStringLiteral("/.") + info.fileName()
                                               + QStringLiteral(".saving-XXXXXX"));
        const int fd = ::mkstemp(pattern.data());
        if (fd < 0) {
            m_errno = errno;
            return;
        }
        ::close(fd);
        m_path = QFile::decodeName(pattern);
    }
    ~TemporaryFile()
    {
        if (!m_path.isEmpty() && !m_kept) {
            ::unlink(QFile::encodeName(m_path).constData());
        }
    }
    const QString& path() const { return m_path; }
    int error() const { return m_errno; }
    void keep() { m_kept = true; }

private:
    QString m_path;
    int m_errno = 0;
    bool m_kept = false;
};

// New files get the usual mode for the user's umask; a replaced file keeps
// its own.
void applyPermissions(const QString& temporary, const QString& target)
{
    struct stat st {};
    mode_t mode = 0;
    if (::stat(QFile::encodeName(target).constData(), &st) == 0) {
        mode = st.st_mode & 07777;
    } else {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    }
    ::chmod(QFile::encodeName(temporary).constData(), mode);
}

// Inserts the entries into the (empty) metadata table; an SQLite result code.
int insertMetadata(Database& db, const QVariantMap& metadata)
{
    Statement insert(db, QStringLiteral("INSERT INTO \"_metadata\" (\"key\", \"value\") VALUES (?, ?)"));
    if (insert.prepareResult() != SQLITE_OK) {
        return insert.prepareResult();
    }
    for (auto it = metadata.begin(); it != metadata.end(); ++it) {
        insert.bind(1, it.key());
        insert.bind(2, it.value());
        if (const int rc = insert.step(); rc != SQLITE_DONE) {
            return rc;
        }
        insert.reset();
    }
    return SQLITE_OK;
}

Status writeGraph(Database& db, const ManagedObjectContext& context, const QVariantMap& metadata,
                  const QString& target, const SaveOptions& options)
{
    auto fail = [&](int rc) { return writeError(target, rc, db.message(), sqlite3_system_errno(db.handle())); };
    auto hook = [&](SaveStep step) -> Status { return options.faultHook ? options.faultHook(step) : Status{}; };

    int rc = db.exec(QStringLiteral("PRAGMA journal_mode=MEMORY; PRAGMA synchronous=OFF; BEGIN;"));
    if (rc != SQLITE_OK) {
        return fail(rc);
    }
    rc = db.exec(QStringLiteral("PRAGMA application_id=%1; PRAGMA user_version=%2;")
                     .arg(SqliteStore::kApplicationId)
                     .arg(SqliteStore::kFormatVersion));
    if (rc != SQLITE_OK) {
        return fail(rc);
    }
    for (const QString& statement : SqliteStore::schemaStatements(context.model())) {
        if ((rc = db.exec(statement)) != SQLITE_OK) {
            return fail(rc);
        }
    }
    if ((rc = insertMetadata(db, metadata)) != SQLITE_OK) {
        return fail(rc);
    }

    const std::vector<TableLayout> layouts = tableLayouts(context.model());
    std::vector<std::unique_ptr<Statement>> inserts;
    for (const TableLayout& layout : layouts) {
        QStringList names{QStringLiteral("\"_id\""), QStringLiteral("\"_entity\"")};
        QStringList marks{QStringLiteral("?"), QStringLiteral("?")};
        for (const Column& column : layout.columns) {
            names << quoted(column.name);
            marks << QStringLiteral("?");
        }
        inserts.push_back(std::make_unique<Statement>(
            db, QStringLiteral("INSERT INTO %1 (%2) VALUES (%3)")
                    .arg(quoted(layout.root->name()), names.join(QStringLiteral(", ")), marks.join(QStringLiteral(", ")))));
        if (inserts.back()->prepareResult() != SQLITE_OK) {
            return fail(inserts.back()->prepareResult());
        }
    }
    for (ManagedObject* object : context.registeredObjects()) {
        const EntityDescription* root = &object->entity().rootEntity();
        std::size_t t = 0;
        while (layouts[t].root != root) {
            ++t;
        }
        Statement& insert = *inserts[t];
        insert.bind(1, object->objectId());
        insert.bind(2, object->entity().name());
        int index = 3;
        for (const Column& column : layouts[t].columns) {
            QVariant value;
            if (column.isRelationship) {
                if (object->entity().relationship(column.name)) {
                    if (ManagedObject* destination = object->object(column.name)) {
                        value = destination->objectId();
                    }
                }
            } else if (const AttributeDescription* attribute = object->entity().attribute(column.name);
                       attribute && !attribute->isTransient) {
                value = object->value(column.name);
            }
            insert.bind(index++, value);
        }
        if ((rc = insert.step()) != SQLITE_DONE) {
            return fail(rc);
        }
        insert.reset();
        if (Status status = hook(SaveStep::ObjectWritten); !status) {
            return status;
        }
    }
    inserts.clear();
    if ((rc = db.exec(QStringLiteral("COMMIT"))) != SQLITE_OK) {
        return fail(rc);
    }
    return hook(SaveStep::Committed);
}

Status checkHeader(Database& db, const QString& path)
{
    {
        Statement check(db, QStringLiteral("PRAGMA quick_check"));
        if (check.prepareResult() != SQLITE_OK) {
            return damaged(path, db.message());
        }
        const int rc = check.step();
        if (rc != SQLITE_ROW || check.column(0).toString() != QLatin1String("ok")) {
            return damaged(path, rc == SQLITE_ROW ? check.column(0).toString() : db.message());
        }
    }
    auto pragma = [&](const char* name, qint64* value) {
        Statement statement(db, QStringLiteral("PRAGMA %1").arg(QLatin1String(name)));
        if (statement.prepareResult() != SQLITE_OK || statement.step() != SQLITE_ROW) {
            return false;
        }
        *value = statement.column(0).toLongLong();
        return true;
    };
    qint64 applicationId = 0;
    qint64 version = 0;
    if (!pragma("application_id", &applicationId) || !pragma("user_version", &version)) {
        return damaged(path, db.message());
    }
    if (applicationId != SqliteStore::kApplicationId) {
        return readError(path, Error::kFileReadCorruptError,
                         QStringLiteral("The file isn't a Trovara search document."),
                         QStringLiteral("Choose a file made by Trovara."));
    }
    if (version > SqliteStore::kFormatVersion) {
        return readError(path, Error::kFileReadUnknownVersionError,
                         QStringLiteral("The file was made by a newer version of Trovara."),
                         QStringLiteral("Open it with the version of Trovara that made it."));
    }
    if (version < 1) {
        return damaged(path, QStringLiteral("format version %1").arg(version));
    }
    return {};
}

Status openForReading(Database& db, const QString& path)
{
    if (!QFileInfo::exists(path)) {
        return readError(path, Error::kFileReadError, QStringLiteral("The file doesn't exist."));
    }
    const int rc = db.open(path, SQLITE_OPEN_READONLY);
    if (rc != SQLITE_OK) {
        return readError(path, Error::kFileReadError, QStringLiteral("The file could not be read."),
                         db.message());
    }
    return checkHeader(db, path);
}

Result<QVariantMap> readMetadataFrom(Database& db, const QString& path)
{
    Statement select(db, QStringLiteral("SELECT \"key\", \"value\" FROM \"_metadata\""));
    if (select.prepareResult() != SQLITE_OK) {
        return damaged(path, db.message());
    }
    QVariantMap metadata;
    int rc;
    while ((rc = select.step()) == SQLITE_ROW) {
        metadata.insert(select.column(0).toString(), select.column(1));
    }
    if (rc != SQLITE_DONE) {
        return damaged(path, db.message());
    }
    return metadata;
}

}  // namespace

QStringList SqliteStore::schemaStatements(const ManagedObjectModel& model)
{
    QStringList statements;
    statements << QStringLiteral("CREATE TABLE \"_metadata\" (\"key\" TEXT PRIMARY KEY NOT NULL, \"value\")");
    for (const TableLayout& layout : tableLayouts(model)) {
        QStringList columns{QStringLiteral("\"_id\" INTEGER PRIMARY KEY"), QStringLiteral("\"_entity\" TEXT NOT NULL")};
        for (const Column& column : layout.columns) {
            columns << quoted(column.name) + sqlType(column);
        }
        statements << QStringLiteral("CREATE TABLE %1 (%2)").arg(quoted(layout.root->name()),
                                                                columns.join(QStringLiteral(", ")));
    }
    return statements;
}

Status SqliteStore::save(const ManagedObjectContext& context, const QString& path, const QVariantMap& metadata,
                         const SaveOptions& options)
{
    const QString target = QFileInfo(path).absoluteFilePath();
    TemporaryFile temporary(target);
    if (temporary.path().isEmpty()) {
        return errnoWriteError(target, temporary.error(), "creating the temporary file");
    }
    if (options.faultHook) {
        if (Status status = options.faultHook(SaveStep::TemporaryCreated); !status) {
            return status;
        }
    }
    QVariantMap allMetadata = metadata;
    allMetadata.insert(QString::fromLatin1(kModelVersionKey), context.model().versionIdentifier());
    allMetadata.insert(QString::fromLatin1(kModelVersionHashKey), QString::fromLatin1(context.model().versionHash()));
    {
        Database db;
        int rc = db.open(temporary.path(), SQLITE_OPEN_READWRITE);
        if (rc != SQLITE_OK) {
            return writeError(target, rc, db.message());
        }
        if (Status status = writeGraph(db, context, allMetadata, target, options); !status) {
            return status;
        }
        if ((rc = db.close()) != SQLITE_OK) {
            return writeError(target, rc, QStringLiteral("closing the temporary file"));
        }
    }
    applyPermissions(temporary.path(), target);
    if (!syncPath(temporary.path(), false)) {
        return errnoWriteError(target, errno, "flushing the temporary file");
    }
    if (options.faultHook) {
        if (Status status = options.faultHook(SaveStep::BeforeRename); !status) {
            return status;
        }
    }
    if (::rename(QFile::encodeName(temporary.path()).constData(), QFile::encodeName(target).constData()) != 0) {
        return errnoWriteError(target, errno, "replacing the document");
    }
    temporary.keep();
    syncPath(QFileInfo(target).absolutePath(), true);
    return {};
}

Result<QVariantMap> SqliteStore::readMetadata(const QString& path)
{
    Database db;
    if (Status status = openForReading(db, path); !status) {
        return status.error();
    }
    return readMetadataFrom(db, path);
}

Status SqliteStore::writeMetadata(const QString& path, const QVariantMap& metadata)
{
    Database db;
    if (!QFileInfo::exists(path)) {
        return readError(path, Error::kFileReadError, QStringLiteral("The file doesn't exist."));
    }
    int rc = db.open(path, SQLITE_OPEN_READWRITE);
    if (rc != SQLITE_OK) {
        return writeError(path, rc, db.message());
    }
    // Nothing is written into a file that is not a store this version reads.
    if (Status status = checkHeader(db, path); !status) {
        return status;
    }
    auto fail = [&](int code) {
        Error error = writeError(path, code, db.message(), sqlite3_system_errno(db.handle()));
        db.exec(QStringLiteral("ROLLBACK"));
        return error;
    };
    if ((rc = db.exec(QStringLiteral("BEGIN IMMEDIATE; DELETE FROM \"_metadata\";"))) != SQLITE_OK) {
        return fail(rc);
    }
    if ((rc = insertMetadata(db, metadata)) != SQLITE_OK) {
        return fail(rc);
    }
    if ((rc = db.exec(QStringLiteral("COMMIT"))) != SQLITE_OK) {
        return fail(rc);
    }
    return {};
}

Result<std::unique_ptr<ManagedObjectContext>> SqliteStore::load(const QString& path,
                                                               std::shared_ptr<const ManagedObjectModel> model,
                                                               QVariantMap* metadata)
{
    Database db;
    if (Status status = openForReading(db, path); !status) {
        return status.error();
    }
    Result<QVariantMap> storedMetadata = readMetadataFrom(db, path);
    if (!storedMetadata) {
        return storedMetadata.error();
    }

    auto context = std::make_unique<ManagedObjectContext>(model);
    struct PendingLink {
        ManagedObject* object;
        QString key;
        qint64 destination;
    };
    std::vector<PendingLink> links;

    for (const TableLayout& layout : tableLayouts(*model)) {
        Statement select(db, QStringLiteral("SELECT * FROM %1 ORDER BY \"_id\"").arg(quoted(layout.root->name())));
        if (select.prepareResult() != SQLITE_OK) {
            return damaged(path, db.message());
        }
        // Map the layout's columns to the file's columns by name.
        const int count = sqlite3_column_count(select.handle());
        auto indexOf = [&](const QString& name) {
            for (int i = 0; i < count; ++i) {
                if (QString::fromUtf8(sqlite3_column_name(select.handle(), i)) == name) {
                    return i;
                }
            }
            return -1;
        };
        const int idColumn = indexOf(QStringLiteral("_id"));
        const int entityColumn = indexOf(QStringLiteral("_entity"));
        std::vector<int> indexes;
        for (const Column& column : layout.columns) {
            indexes.push_back(indexOf(column.name));
            if (indexes.back() < 0) {
                return damaged(path, QStringLiteral("%1 has no column %2").arg(layout.root->name(), column.name));
            }
        }
        if (idColumn < 0 || entityColumn < 0) {
            return damaged(path, QStringLiteral("%1 has no identity columns").arg(layout.root->name()));
        }
        int rc;
        while ((rc = select.step()) == SQLITE_ROW) {
            const qint64 id = select.column(idColumn).toLongLong();
            const QString entityName = select.column(entityColumn).toString();
            const EntityDescription* entity = model->entity(entityName);
            if (!entity || entity->isAbstract() || &entity->rootEntity() != layout.root || id <= 0
                || context->objectWithId(id)) {
                return damaged(path, QStringLiteral("%1 row %2 names entity \"%3\"").arg(layout.root->name()).arg(id).arg(entityName));
            }
            ManagedObject* object = context->adopt(entity->instantiate(), *entity, id);
            for (std::size_t c = 0; c < layout.columns.size(); ++c) {
                const Column& column = layout.columns[c];
                const QVariant stored = select.column(indexes[c]);
                if (column.isRelationship) {
                    if (stored.isValid()) {
                        if (!entity->relationship(column.name)) {
                            return damaged(path, QStringLiteral("%1 #%2 has a %3").arg(entityName).arg(id).arg(column.name));
                        }
                        links.push_back({object, column.name, stored.toLongLong()});
                    }
                    continue;
                }
                const AttributeDescription* attribute = entity->attribute(column.name);
                if (!attribute) {
                    if (stored.isValid()) {
                        return damaged(path, QStringLiteral("%1 #%2 has a %3").arg(entityName).arg(id).arg(column.name));
                    }
                    continue;
                }
                bool ok = false;
                const QVariant value = toAttributeValue(stored, attribute->type, &ok);
                if (!ok) {
                    return damaged(path, QStringLiteral("%1 #%2 has a malformed %3").arg(entityName).arg(id).arg(column.name));
                }
                if (value.isValid()) {
                    object->m_values.insert(column.name, value);
                }
            }
        }
        if (rc != SQLITE_DONE) {
            return damaged(path, db.message());
        }
    }

    for (const PendingLink& link : links) {
        ManagedObject* destination = context->objectWithId(link.destination);
        const RelationshipDescription* relationship = link.object->entity().relationship(link.key);
        const EntityDescription* expected = model->entity(relationship->destinationEntity);
        if (!destination || !destination->entity().isKindOf(*expected)) {
            return damaged(path, QStringLiteral("%1 #%2 points to a missing object").arg(link.object->entity().name()).arg(link.object->objectId()));
        }
        link.object->m_toOne.insert(link.key, destination);
        destination->m_toMany[relationship->inverseName].push_back(link.object);
    }
    for (ManagedObject* object : context->registeredObjects()) {
        object->awakeFromFetch();
    }
    // What awakeFromFetch() computes is not a change of the document.
    context->m_pendingInserted.clear();
    context->m_pendingUpdated.clear();
    context->m_pendingDeleted.clear();
    context->m_undoManager.removeAllActions();
    context->m_hasChanges = false;
    if (metadata) {
        *metadata = std::move(storedMetadata.value());
    }
    return context;
}

}  // namespace trovara::store
