// Old search documents: files of the first model, from before model
// versioning or with its identification, are recognised and migrated into
// the current model (in place, or beside a "~" backup when a person opens
// them), and nothing that goes wrong on the way loses the user's file.
#include "common/log.h"
#include "document/document_store.h"
#include "store/sqlite_store.h"
#include "store_files.h"
#include "model/abstract_attribute.h"
#include "model/document_model.h"
#include "model/meta_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/query_item.h"
#include "model/scope.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace trovara::document {
namespace {

using store::ManagedObject;
using store::ManagedObjectContext;
using store::SqliteStore;
using trovara::test::execute;
using trovara::test::readAll;
using trovara::test::writeAll;

ManagedObject* insert(ManagedObjectContext& context, const char* entity, const QVariantMap& values)
{
    ManagedObject* object = context.insertNewObject(QString::fromLatin1(entity));
    for (auto it = values.begin(); it != values.end(); ++it) {
        object->setValue(it.key(), it.value());
    }
    return object;
}

ManagedObject* setting(ManagedObjectContext& context, const char* key, const QByteArray& value)
{
    return insert(context, "MetaAttribute", {{QStringLiteral("attributeKey"), QString::fromLatin1(key)},
                                             {QStringLiteral("attributeValue"), value}});
}

// A document as the first model wrote it: a criteria tree with a nested
// group and every kind of value, places to search and to leave out,
// settings, and (unless `columns` is null) the visible column settings.
std::unique_ptr<ManagedObjectContext> firstModelDocument(const char* columns = R"(["size","itemKind"])",
                                                         const char* widths = "[200, 80, 120]")
{
    auto context = std::make_unique<ManagedObjectContext>(firstDocumentModel());
    ManagedObjectContext& c = *context;
    auto attribute = [&](const char* key) {
        return insert(c, "QueryAttribute", {{QStringLiteral("attributeKey"), QString::fromLatin1(key)},
                                            {QStringLiteral("attributeName"), QStringLiteral("old name")}});
    };
    ManagedObject* name = attribute("kMDItemDisplayName");
    ManagedObject* size = attribute("kMDItemFSSize");
    ManagedObject* created = attribute("kMDItemContentCreationDate");

    ManagedObject* root = insert(c, "QueryNode", {{QStringLiteral("operator"), QStringLiteral("AND")},
                                                  {QStringLiteral("sortIndex"), 0}});
    auto leaf = [&](ManagedObject* parent, ManagedObject* on, int index, const QVariantMap& values) {
        ManagedObject* row = insert(c, "QueryLeaf", values);
        row->setValue(QStringLiteral("sortIndex"), index);
        row->setObject(QStringLiteral("parent"), parent);
        row->setObject(QStringLiteral("queryAttribute"), on);
    };
    leaf(root, name, 0, {{QStringLiteral("queryOperator"), QStringLiteral("contains")},
                         {QStringLiteral("queryString"), QStringLiteral("report ✓")}});
    leaf(root, size, 2, {{QStringLiteral("queryOperator"), QStringLiteral("greaterThan")},
                         {QStringLiteral("queryNumber"), 1.5},
                         {QStringLiteral("queryUnit"), QStringLiteral("MB")}});
    ManagedObject* group = insert(c, "QueryNode", {{QStringLiteral("operator"), QStringLiteral("OR")},
                                                   {QStringLiteral("sortIndex"), 1}});
    group->setObject(QStringLiteral("parent"), root);
    leaf(group, created, 0, {{QStringLiteral("queryOperator"), QStringLiteral("on")},
                             {QStringLiteral("queryDate"), QDateTime::fromMSecsSinceEpoch(1'244'764'800'123, Qt::UTC)}});
    leaf(group, created, 1, {{QStringLiteral("queryOperator"), QStringLiteral("withinLast")},
                             {QStringLiteral("queryNumber"), QVariant::fromValue<qint64>(3)},
                             {QStringLiteral("queryBoolean"), true},
                             {QStringLiteral("queryUnit"), QStringLiteral("day")}});

    insert(c, "ColumnAttribute", {{QStringLiteral("attributeKey"), QStringLiteral("kMDItemFSSize")},
                                  {QStringLiteral("attributeName"), QStringLiteral("stale")}});
    insert(c, "ColumnAttribute", {{QStringLiteral("attributeKey"), QStringLiteral("kMDItemAuthors")}});

    auto scope = [&](const char* path, bool constant) {
        return insert(c, "Scope", {{QStringLiteral("path"), QString::fromLatin1(path)},
                                   {QStringLiteral("isConstant"), constant}});
    };
    auto ordered = [&](const char* entity, ManagedObject* place, int index) {
        insert(c, entity, {{QStringLiteral("sortIndex"), index}})->setObject(QStringLiteral("scope"), place);
    };
    ordered("OrderedScope", scope("~/Documents", false), 1);
    ordered("OrderedScope", scope("kMDQueryScopeHome", true), 0);
    ordered("OrderedExclusionScope", scope("/tmp", false), 0);
    ordered("OrderedExclusionScope", scope("~/Documents/old", false), 1);

    setting(c, "runState", "YES");
    setting(c, "sortDescriptor", QByteArray("\0\1binary", 8));
    if (columns) {
        setting(c, "resultColumns", columns);
    }
    if (widths) {
        setting(c, "resultColumnWidths", widths);
    }
    return context;
}

QString fileVersionKey()
{
    return QString::fromLatin1(kFileVersionKey);
}

QString hashKey()
{
    return QString::fromLatin1(SqliteStore::kModelVersionHashKey);
}

enum class OldFile {
    BeforeVersioning,  // file version 1, no model identification
    WithFirstModelHash,
};

// Writes `context` as an old file of the given kind.
void writeOldFile(const QString& path, const ManagedObjectContext& context, OldFile kind)
{
    ASSERT_TRUE(SqliteStore::save(context, path, {{fileVersionKey(), 1}}).ok());
    if (kind == OldFile::BeforeVersioning) {
        execute(path, "DELETE FROM \"_metadata\" WHERE \"key\" IN ('modelVersion', 'modelVersionHash');");
    }
}

// The criteria tree as text, by the generic object interface, so that a
// tree of either model can be compared with one of the other.
QString describe(const ManagedObject* item)
{
    QStringList values{QStringLiteral("#%1").arg(item->value(QStringLiteral("sortIndex")).toLongLong())};
    if (item->entity().name() == QLatin1String("QueryNode")) {
        std::vector<ManagedObject*> children = item->objects(QStringLiteral("children"));
        std::sort(children.begin(), children.end(), [](const ManagedObject* a, const ManagedObject* b) {
            return a->value(QStringLiteral("sortIndex")).toInt() < b->value(QStringLiteral("sortIndex")).toInt();
        });
        QStringList parts;
        for (const ManagedObject* child : children) {
            parts << describe(child);
        }
        return values.join(QString()) + item->value(QStringLiteral("operator")).toString() + QLatin1Char('(')
               + parts.join(QStringLiteral(", ")) + QLatin1Char(')');
    }
    for (const char* key : {"queryOperator", "queryString", "queryNumber", "queryDate", "queryBoolean", "queryUnit"}) {
        const QVariant value = item->value(QString::fromLatin1(key));
        if (value.isValid()) {
            values << QStringLiteral("%1=%2:%3").arg(QLatin1String(key), QLatin1String(value.metaType().name()),
                                                     value.metaType().id() == QMetaType::QDateTime
                                                         ? QString::number(value.toDateTime().toMSecsSinceEpoch())
                                                         : value.toString());
        }
    }
    if (const ManagedObject* attribute = item->object(QStringLiteral("queryAttribute"))) {
        values << attribute->value(QStringLiteral("attributeKey")).toString();
    }
    return values.join(QLatin1Char(' '));
}

QString describeCriteria(const ManagedObjectContext& context)
{
    for (const ManagedObject* object : context.registeredObjects()) {
        if (object->entity().name() == QLatin1String("QueryNode") && !object->object(QStringLiteral("parent"))) {
            return describe(object);
        }
    }
    return {};
}

// "key width" per visible column, left to right ("key -" without a width).
QStringList visibleColumns(ManagedObjectContext& context)
{
    QStringList columns;
    for (model::OrderedColumnAttribute* column : model::OrderedColumnAttribute::orderedColumns(context)) {
        const QVariant width = column->columnWidth();
        columns << column->columnAttribute()->attributeKey() + QLatin1Char(' ')
                       + (width.isValid() ? QString::number(width.toDouble()) : QStringLiteral("-"));
    }
    return columns;
}

template <typename Ordered>
QStringList scopePaths(const std::vector<Ordered*>& ordered)
{
    QStringList paths;
    for (Ordered* entry : ordered) {
        paths << entry->scope()->path();
    }
    return paths;
}

class MigrationTest : public trovara::test::DocumentFolderTest {
protected:
    MigrationTest()
        : DocumentFolderTest(QStringLiteral("migration"))
        , backup(path + QLatin1Char('~'))
    {
        log::setSink([this](const QString& line) { logged << line; });
    }
    ~MigrationTest() override { log::setSink([](const QString&) {}); }

    const QString backup;
    QStringList logged;
};

TEST_F(MigrationTest, OldFilesOpenMigratedWithEverythingCarriedOver)
{
    auto old = firstModelDocument();
    for (OldFile kind : {OldFile::BeforeVersioning, OldFile::WithFirstModelHash}) {
        SCOPED_TRACE(static_cast<int>(kind));
        writeOldFile(path, *old, kind);

        QVariantMap metadata;
        Result<std::unique_ptr<ManagedObjectContext>> opened = openDocumentStore(path, &metadata);
        ASSERT_TRUE(opened.ok()) << opened.error().toString().toStdString();
        ManagedObjectContext& c = *opened.value();
        EXPECT_EQ(&c.model(), model::documentModel().get());
        EXPECT_EQ(metadata.value(hashKey()).toString(), QString::fromLatin1(model::documentModel()->versionHash()));
        EXPECT_EQ(SqliteStore::readMetadata(path).value(), metadata) << "migrated in place";
        EXPECT_EQ(filesInFolder(), QStringList{QStringLiteral("Search.trova")});
        EXPECT_FALSE(c.hasChanges());

        EXPECT_EQ(describeCriteria(c), describeCriteria(*old));
        EXPECT_EQ(model::QueryNode::rootNodeInContext(c)->orderedChildren().size(), 3u);
        EXPECT_EQ(scopePaths(model::OrderedScope::orderedScopes(c)),
                  (QStringList{QStringLiteral("kMDQueryScopeHome"), QStringLiteral("~/Documents")}));
        EXPECT_TRUE(model::Scope::scopeWithPath(QStringLiteral("kMDQueryScopeHome"), c)->isConstant());
        EXPECT_EQ(scopePaths(model::OrderedExclusionScope::orderedExclusionScopes(c)),
                  (QStringList{QStringLiteral("/tmp"), QStringLiteral("~/Documents/old")}));

        // Settings carry over, except the two the visible columns came from.
        EXPECT_EQ(model::MetaAttribute::metaAttributeWithKey(QStringLiteral("runState"), c, false)->attributeValue(),
                  QVariant(QByteArray("YES")));
        EXPECT_EQ(model::MetaAttribute::metaAttributeWithKey(QStringLiteral("sortDescriptor"), c, false)->attributeValue(),
                  QVariant(QByteArray("\0\1binary", 8)));
        EXPECT_EQ(model::MetaAttribute::metaAttributeWithKey(QStringLiteral("resultColumns"), c, false), nullptr);
        EXPECT_EQ(model::MetaAttribute::metaAttributeWithKey(QStringLiteral("resultColumnWidths"), c, false), nullptr);

        // The first model had no limit: the migrated one keeps everything.
        model::ValuedLimitAttribute* limit = model::ValuedLimitAttribute::limitInContext(c);
        ASSERT_NE(limit, nullptr);
        EXPECT_EQ(limit->limitAttribute()->attributeKey(), QStringLiteral("kMDItemLastUsedDate"));
        EXPECT_EQ(limit->limitValue().toInt(), 0);
        EXPECT_FALSE(limit->ascending());
        EXPECT_EQ(model::LimitAttribute::availableAttributesInContext(c).size(), 3u);

        // The default columns and the old ones, once each, named afresh.
        QStringList keys;
        for (model::ColumnAttribute* column : model::ColumnAttribute::availableAttributesInContext(c)) {
            keys << column->attributeKey();
            EXPECT_NE(column->attributeName(), QStringLiteral("stale"));
        }
        EXPECT_EQ(keys.size(), 8) << keys.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(keys.count(QStringLiteral("kMDItemFSSize")), 1);
        EXPECT_TRUE(keys.contains(QStringLiteral("kMDItemAuthors")));
        EXPECT_EQ(visibleColumns(c), (QStringList{QStringLiteral("kMDItemDisplayName 200"),
                                                  QStringLiteral("kMDItemFSSize 80"), QStringLiteral("kMDItemKind 120")}));
        QFile::remove(path);
    }
}

TEST_F(MigrationTest, VisibleColumnsComeFromTheOldSettingsOrTheDefaults)
{
    const QStringList defaults{QStringLiteral("kMDItemDisplayName -"), QStringLiteral("kMDItemKind -"),
                               QStringLiteral("kMDItemContentModificationDate -")};
    struct Case {
        const char* name;
        const char* columns;
        const char* widths;
        QStringList expected;
    };
    const Case cases[] = {
        {"more identifiers than widths", R"(["modificationDate","kMDItemAuthors","size"])", "[150, 90]",
         {QStringLiteral("kMDItemDisplayName 150"), QStringLiteral("kMDItemContentModificationDate 90"),
          QStringLiteral("kMDItemAuthors -"), QStringLiteral("kMDItemFSSize -")}},
        {"a stored name column is skipped with its width", R"(["displayName","itemKind"])", "[300, 10, 70]",
         {QStringLiteral("kMDItemDisplayName 300"), QStringLiteral("kMDItemKind 70")}},
        {"no widths", R"(["size"])", nullptr, {QStringLiteral("kMDItemDisplayName -"), QStringLiteral("kMDItemFSSize -")}},
        {"damaged widths", R"(["size"])", "[200, \"wide\"]",
         {QStringLiteral("kMDItemDisplayName -"), QStringLiteral("kMDItemFSSize -")}},
        {"no columns shown but the name", "[]", "[250]", {QStringLiteral("kMDItemDisplayName 250")}},
        {"no column setting", nullptr, "[1, 2]", defaults},
        {"damaged columns", "{\"size\": 1", "[1, 2]", defaults},
        {"columns that are not names", "[1, 2]", "[1, 2]", defaults},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writeOldFile(path, *firstModelDocument(c.columns, c.widths), OldFile::WithFirstModelHash);
        Result<std::unique_ptr<ManagedObjectContext>> opened = openDocumentStore(path);
        ASSERT_TRUE(opened.ok()) << opened.error().toString().toStdString();
        EXPECT_EQ(visibleColumns(*opened.value()), c.expected);
        QFile::remove(path);
    }
}

TEST_F(MigrationTest, OpeningAnOldFileKeepsItBesideTheMigratedOne)
{
    for (OldFile kind : {OldFile::BeforeVersioning, OldFile::WithFirstModelHash}) {
        SCOPED_TRACE(static_cast<int>(kind));
        writeOldFile(path, *firstModelDocument(), kind);
        const QByteArray original = readAll(path);
        bool asked = false;
        ASSERT_TRUE(migrateDocumentIfNeeded(path, [&](const QString&) { return asked = true; }).ok());
        EXPECT_FALSE(asked) << "there was no backup to replace";

        EXPECT_EQ(SqliteStore::readMetadata(path).value().value(hashKey()).toString(),
                  QString::fromLatin1(model::documentModel()->versionHash()));
        Result<std::unique_ptr<ManagedObjectContext>> migrated = SqliteStore::load(path, model::documentModel());
        ASSERT_TRUE(migrated.ok());
        EXPECT_EQ(visibleColumns(*migrated.value()).size(), 3);

        // The backup is the old file: with the first model's identification
        // merged in when it had none, else exactly as it was.
        EXPECT_EQ(SqliteStore::readMetadata(backup).value().value(hashKey()).toString(),
                  QString::fromLatin1(firstDocumentModel()->versionHash()));
        if (kind == OldFile::WithFirstModelHash) {
            EXPECT_EQ(readAll(backup), original);
        }
        Result<std::unique_ptr<ManagedObjectContext>> old = SqliteStore::load(backup, firstDocumentModel());
        ASSERT_TRUE(old.ok());
        EXPECT_EQ(describeCriteria(*old.value()), describeCriteria(*migrated.value()));
        QFile::remove(path);
        QFile::remove(backup);
    }
}

TEST_F(MigrationTest, AnExistingBackupIsReplacedOnlyWhenThePersonAgrees)
{
    writeOldFile(path, *firstModelDocument(), OldFile::WithFirstModelHash);
    writeAll(backup, "an older backup");
    const QByteArray original = readAll(path);

    QString askedAbout;
    Status cancelled = migrateDocumentIfNeeded(path, [&](const QString& existing) {
        askedAbout = existing;
        return false;
    });
    ASSERT_FALSE(cancelled.ok());
    EXPECT_EQ(cancelled.error().code, Error::kUserCancelledError);
    EXPECT_EQ(askedAbout, backup);
    EXPECT_EQ(readAll(path), original);
    EXPECT_EQ(readAll(backup), QByteArray("an older backup"));

    ASSERT_TRUE(migrateDocumentIfNeeded(path, [](const QString&) { return true; }).ok());
    EXPECT_EQ(readAll(backup), original);
    EXPECT_TRUE(SqliteStore::load(path, model::documentModel()).ok());
}

TEST_F(MigrationTest, CurrentFilesAreLeftAlone)
{
    auto current = model::makeDocumentContext();
    model::primeContext(*current);
    ASSERT_TRUE(SqliteStore::save(*current, path, {{fileVersionKey(), kCurrentFileVersion}}).ok());
    const QByteArray before = readAll(path);

    EXPECT_TRUE(isCompatibleWithCurrentModel(SqliteStore::readMetadata(path).value()));
    EXPECT_TRUE(migrateDocumentIfNeeded(path, [](const QString&) -> bool { ADD_FAILURE(); return false; }).ok());
    EXPECT_TRUE(openDocumentStore(path).ok());
    EXPECT_EQ(readAll(path), before);
    EXPECT_EQ(filesInFolder(), QStringList{QStringLiteral("Search.trova")});

    // Whatever file version a current file names.
    execute(path, "DELETE FROM \"_metadata\" WHERE \"key\" = 'QZTVFileVersion';");
    EXPECT_TRUE(isCompatibleWithCurrentModel(SqliteStore::readMetadata(path).value()));
    EXPECT_TRUE(openDocumentStore(path).ok());
}

TEST_F(MigrationTest, FilesThatCannotBeMigratedAreRefusedAndLeftUntouched)
{
    const trovara::test::BadFile cases[] = {
        {"a newer model", [](const QString& p) {
             writeOldFile(p, *firstModelDocument(), OldFile::WithFirstModelHash);
             execute(p, "UPDATE \"_metadata\" SET \"value\" = 'feedface' WHERE \"key\" = 'modelVersionHash';");
         },
         Error::kFileReadUnknownVersionError, "newer version"},
        {"no model and no old file version", [](const QString& p) {
             writeOldFile(p, *firstModelDocument(), OldFile::BeforeVersioning);
             execute(p, "DELETE FROM \"_metadata\" WHERE \"key\" = 'QZTVFileVersion';");
         },
         Error::kFileReadCorruptError, "damaged"},
        {"a newer container", [](const QString& p) {
             writeOldFile(p, *firstModelDocument(), OldFile::BeforeVersioning);
             execute(p, "PRAGMA user_version=7;");
         },
         Error::kFileReadUnknownVersionError, "newer version"},
        {"another application's database",
         [](const QString& p) { execute(p, "CREATE TABLE t (x); PRAGMA application_id=1234;"); },
         Error::kFileReadCorruptError, "isn't a Trovara"},
        {"text", [](const QString& p) { writeAll(p, "not a database\n"); }, Error::kFileReadCorruptError,
         "isn't a Trovara"},
    };
    for (const trovara::test::BadFile& c : cases) {
        SCOPED_TRACE(c.name);
        c.make(path);
        const QByteArray before = readAll(path);
        Result<std::unique_ptr<ManagedObjectContext>> opened = openDocumentStore(path);
        ASSERT_FALSE(opened.ok());
        EXPECT_EQ(opened.error().code, c.code);
        EXPECT_TRUE(opened.error().reason.contains(QLatin1String(c.reasonContains)))
            << opened.error().reason.toStdString();
        EXPECT_TRUE(opened.error().description.contains(QStringLiteral("Search.trova")));

        Status migrated = migrateDocumentIfNeeded(path, [](const QString&) { return true; });
        ASSERT_FALSE(migrated.ok());
        EXPECT_EQ(migrated.error().code, c.code);
        EXPECT_EQ(migrated.error().domain, QLatin1String(Error::kGenericDomain));
        EXPECT_EQ(readAll(path), before);
        EXPECT_EQ(filesInFolder(), QStringList{QStringLiteral("Search.trova")});
        QFile::remove(path);
    }
}

TEST_F(MigrationTest, AFailedMigrationKeepsTheOriginalFile)
{
    store::SaveOptions failing;
    failing.faultHook = [](store::SaveStep step) -> Status {
        if (step == store::SaveStep::BeforeRename) {
            return Error::make(Error::kFileWriteOutOfSpaceError, QStringLiteral("disk full"));
        }
        return {};
    };
    writeOldFile(path, *firstModelDocument(), OldFile::WithFirstModelHash);
    const QByteArray original = readAll(path);

    // Opened by a person: the file comes back from beside.
    Status migrated = migrateDocumentIfNeeded(path, [](const QString&) { return true; }, failing);
    ASSERT_FALSE(migrated.ok());
    EXPECT_EQ(migrated.error().code, Error::kFileWriteOutOfSpaceError);
    EXPECT_EQ(readAll(path), original);
    EXPECT_FALSE(QFileInfo::exists(backup));
    EXPECT_TRUE(logged.filter(QStringLiteral("migration error: ")).size() == 1) << logged.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(logged.filter(QStringLiteral("user Info: ")).size() == 1);

    // Migrated in place: the atomic save leaves the file as it was.
    Result<std::unique_ptr<ManagedObjectContext>> opened = openDocumentStore(path, nullptr, failing);
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(readAll(path), original);
    EXPECT_EQ(filesInFolder(), QStringList{QStringLiteral("Search.trova")});

    // A pre-versioning file keeps its contents, now with the merged metadata.
    writeOldFile(path, *firstModelDocument(), OldFile::BeforeVersioning);
    ASSERT_FALSE(openDocumentStore(path, nullptr, failing).ok());
    EXPECT_EQ(SqliteStore::readMetadata(path).value().value(hashKey()).toString(),
              QString::fromLatin1(firstDocumentModel()->versionHash()));
    EXPECT_TRUE(SqliteStore::load(path, firstDocumentModel()).ok());

    // A file whose tables do not fit the first model is not lost either.
    writeOldFile(path, *firstModelDocument(), OldFile::WithFirstModelHash);
    execute(path, "DROP TABLE \"Scope\";");
    const QByteArray damaged = readAll(path);
    migrated = migrateDocumentIfNeeded(path, [](const QString&) { return true; });
    ASSERT_FALSE(migrated.ok());
    EXPECT_EQ(migrated.error().code, Error::kFileReadCorruptError);
    EXPECT_EQ(readAll(path), damaged);
}

TEST_F(MigrationTest, MetadataIsRewrittenWithAdditionsLaidOver)
{
    auto current = model::makeDocumentContext();
    ASSERT_TRUE(SqliteStore::save(*current, path, {{QStringLiteral("kept"), 1}, {QStringLiteral("changed"), 1}}).ok());
    ASSERT_TRUE(setMetadataForStoreAtPath(path, {{QStringLiteral("changed"), 2}, {QStringLiteral("added"), QStringLiteral("x")}}).ok());
    const QVariantMap metadata = SqliteStore::readMetadata(path).value();
    EXPECT_EQ(metadata.value(QStringLiteral("kept")).toInt(), 1);
    EXPECT_EQ(metadata.value(QStringLiteral("changed")).toInt(), 2);
    EXPECT_EQ(metadata.value(QStringLiteral("added")).toString(), QStringLiteral("x"));
    EXPECT_TRUE(isCompatibleWithCurrentModel(metadata));
    EXPECT_TRUE(SqliteStore::load(path, model::documentModel()).ok());

    // Never into a file of another kind.
    const QString other = folder + QStringLiteral("/other.db");
    execute(other, "CREATE TABLE _metadata (key, value); PRAGMA application_id=1234;");
    const QByteArray before = readAll(other);
    Status written = SqliteStore::writeMetadata(other, {{QStringLiteral("a"), 1}});
    ASSERT_FALSE(written.ok());
    EXPECT_EQ(written.error().code, Error::kFileReadCorruptError);
    EXPECT_EQ(readAll(other), before);
}

TEST(LegacyMetadataResource, IdentifiesTheFirstModel)
{
    Result<QVariantMap> legacy = legacyMetadata();
    ASSERT_TRUE(legacy.ok()) << legacy.error().toString().toStdString();
    EXPECT_EQ(legacy->value(QString::fromLatin1(SqliteStore::kModelVersionKey)).toString(), QStringLiteral("Trovara 1"));
    EXPECT_EQ(legacy->value(QString::fromLatin1(SqliteStore::kModelVersionHashKey)).toString().toStdString(),
              firstDocumentModel()->versionHash().toStdString())
        << "the first model changed, or the resource did";
    EXPECT_EQ(firstDocumentModel()->versionIdentifier(), QStringLiteral("Trovara 1"));
    EXPECT_NE(firstDocumentModel()->versionHash(), model::documentModel()->versionHash());
}

TEST_F(MigrationTest, AMissingOrDamagedResourceIsAnIncompleteInstallation)
{
    writeOldFile(path, *firstModelDocument(), OldFile::BeforeVersioning);
    const QByteArray before = readAll(path);
    const QString resources = folder + QStringLiteral("/share");
    QDir().mkpath(resources);
    trovara::test::ScopedEnv dataDir("TROVARA_DATA_DIR", QFile::encodeName(resources).constData());

    for (const char* contents : {static_cast<const char*>(nullptr), "[1, 2]", "{\"modelVersion\": \"Trovara 1\""}) {
        SCOPED_TRACE(contents ? contents : "missing");
        if (contents) {
            writeAll(resources + QStringLiteral("/LegacyMetadata.json"), contents);
        }
        Result<QVariantMap> legacy = legacyMetadata();
        ASSERT_FALSE(legacy.ok());
        EXPECT_TRUE(legacy.error().description.contains(QStringLiteral("incomplete")));
        Result<std::unique_ptr<ManagedObjectContext>> opened = openDocumentStore(path);
        ASSERT_FALSE(opened.ok());
        EXPECT_TRUE(opened.error().description.contains(QStringLiteral("incomplete")));
        EXPECT_EQ(readAll(path), before);
    }
}

}  // namespace
}  // namespace trovara::document
