// Saving object graphs to SQLite files and reading them back: every entity
// and relationship survives a round trip, bad files are refused whole and
// left untouched, and a failing save never damages the file it replaces.
#include "store/sqlite_store.h"
#include "store_files.h"
#include "model/abstract_attribute.h"
#include "model/document_model.h"
#include "model/meta_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/query_leaf.h"
#include "model/scope.h"
#include "test_model.h"
#include "test_support.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <csignal>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace trovara::store {
namespace {

using namespace trovara::model;
using trovara::test::execute;
using trovara::test::readAll;
using trovara::test::writeAll;

// Every object with its entity, attributes and relationships, one line per
// object in id order, so that two graphs compare as text.
std::string dump(const ManagedObjectContext& context)
{
    QStringList lines;
    for (ManagedObject* object : context.registeredObjects()) {
        QStringList parts{QStringLiteral("#%1 %2").arg(object->objectId()).arg(object->entity().name())};
        for (const AttributeDescription& attribute : object->entity().attributes()) {
            if (attribute.isTransient) {
                continue;
            }
            const QVariant value = object->value(attribute.name);
            QString text = value.isValid() ? QString::fromLatin1(value.metaType().name()) + QLatin1Char(':') : QString();
            if (value.metaType().id() == QMetaType::QDateTime) {
                text += QString::number(value.toDateTime().toMSecsSinceEpoch());
            } else if (value.metaType().id() == QMetaType::QByteArray) {
                text += QString::fromLatin1(value.toByteArray().toHex());
            } else {
                text += value.toString();
            }
            parts << attribute.name + QLatin1Char('=') + text;
        }
        for (const RelationshipDescription& relationship : object->entity().relationships()) {
            if (relationship.isToMany) {
                QStringList ids;
                for (ManagedObject* member : object->objects(relationship.name)) {
                    ids << QString::number(member->objectId());
                }
                ids.sort();
                parts << relationship.name + QStringLiteral("=[") + ids.join(QLatin1Char(',')) + QLatin1Char(']');
            } else if (ManagedObject* destination = object->object(relationship.name)) {
                parts << relationship.name + QStringLiteral("=#") + QString::number(destination->objectId());
            }
        }
        lines << parts.join(QLatin1Char(' '));
    }
    return lines.join(QLatin1Char('\n')).toStdString();
}

// A document graph that uses every entity and relationship of the model.
std::unique_ptr<ManagedObjectContext> richDocument()
{
    auto context = makeDocumentContext();
    ManagedObjectContext& c = *context;
    primeContext(c);
    QueryNode* root = QueryNode::rootNodeInContext(c);
    QueryLeaf* name = root->addRow();
    name->setQueryAttribute(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemDisplayName"), c));
    name->setQueryString(QStringLiteral("O'Neil \"quoted\" ✓"));
    QueryLeaf* size = root->addRow();
    size->setQueryAttribute(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemFSSize"), c));
    size->setQueryNumber(1.5);
    size->setQueryUnit(QStringLiteral("GB"));
    auto* group = c.insert<QueryNode>();
    group->setOperatorName(QStringLiteral("NOT"));
    root->addLeaf(group, true, -1);
    QueryLeaf* date = group->addRow();
    date->setQueryAttribute(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemContentCreationDate"), c));
    date->setQueryOperator(QStringLiteral("on"));
    date->setQueryDate(QDateTime::fromMSecsSinceEpoch(1'244'764'800'123, Qt::UTC));
    date->setQueryNumber(QVariant::fromValue<qint64>(3));
    QueryLeaf* flag = group->addRow();
    flag->setQueryAttribute(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemFSInvisible"), c));
    flag->setQueryBoolean(false);
    flag->setQueryValues();  // leaves remembered values behind
    name->attributeValueForKey(QStringLiteral("kMDItemFSSize"))->setQueryNumber(42);

    MetaAttribute::metaAttributeWithKey(QStringLiteral("runState"), c)->setAttributeValue("YES");
    MetaAttribute::metaAttributeWithKey(QStringLiteral("sortDescriptor"), c)
        ->setAttributeValue(QByteArray("\0\1\2binary\xff", 10));
    Scope* home = Scope::scopeWithPath(QStringLiteral("kMDQueryScopeHome"), c);
    home->setIsConstant(true);
    OrderedScope::createOrderedScopeWith(home);
    OrderedScope::createOrderedScopeWith(Scope::scopeWithPath(QDir::homePath() + QStringLiteral("/Documents/"), c));
    OrderedExclusionScope::createOrderedExclusionScopeWith(Scope::scopeWithPath(QStringLiteral("/tmp"), c));
    OrderedColumnAttribute::orderedColumns(c).front()->setColumnWidth(212.5);
    c.processPendingChanges();
    return context;
}

class SqliteStoreTest : public trovara::test::DocumentFolderTest {
protected:
    SqliteStoreTest()
        : DocumentFolderTest(QStringLiteral("store"))
    {
    }
};

TEST_F(SqliteStoreTest, EveryEntityAndRelationshipSurvivesARoundTrip)
{
    auto original = richDocument();
    const QString expression = QueryNode::rootNodeInContext(*original)->expression();
    ASSERT_TRUE(SqliteStore::save(*original, path, {{QStringLiteral("custom"), 7}}).ok());

    QVariantMap metadata;
    Result<std::unique_ptr<ManagedObjectContext>> loaded = SqliteStore::load(path, documentModel(), &metadata);
    ASSERT_TRUE(loaded.ok()) << loaded.error().toString().toStdString();
    ManagedObjectContext& copy = *loaded.value();
    EXPECT_EQ(dump(copy), dump(*original));

    // The loaded graph works as the original did.
    EXPECT_EQ(QueryNode::rootNodeInContext(copy)->expression(), expression);
    EXPECT_EQ(copy.objectWithId(1)->entity().name(), original->objectWithId(1)->entity().name());
    auto attributes = QueryAttribute::availableAttributesInContext(copy);
    ASSERT_FALSE(attributes.empty());
    EXPECT_TRUE(attributes.front()->attributeType().isValid());  // derived again on load
    EXPECT_FALSE(copy.hasChanges());
    EXPECT_FALSE(copy.undoManager().canUndo());

    EXPECT_EQ(metadata.value(QStringLiteral("custom")).toInt(), 7);
    EXPECT_EQ(metadata.value(QString::fromLatin1(SqliteStore::kModelVersionKey)).toString(),
              QString::fromLatin1(kDocumentModelVersion));
    EXPECT_EQ(metadata.value(QString::fromLatin1(SqliteStore::kModelVersionHashKey)).toString(),
              QString::fromLatin1(documentModel()->versionHash()));

    // New objects continue after the loaded ids.
    auto* fresh = copy.insert<MetaAttribute>();
    for (ManagedObject* object : original->registeredObjects()) {
        EXPECT_NE(fresh->objectId(), object->objectId());
    }
    EXPECT_EQ(SqliteStore::readMetadata(path).value(), metadata);
}

TEST_F(SqliteStoreTest, ValuesKeepTheirKindThroughARoundTrip)
{
    ManagedObjectContext context(test::testModel());
    ManagedObject* integral = context.insertNewObject(QStringLiteral("File"));
    integral->setValue(QStringLiteral("size"), QVariant::fromValue<qint64>(3));
    integral->setValue(QStringLiteral("data"), QByteArray());
    ManagedObject* fractional = context.insertNewObject(QStringLiteral("File"));
    fractional->setValue(QStringLiteral("size"), 3.0);
    fractional->setValue(QStringLiteral("hidden"), true);
    fractional->setValue(QStringLiteral("modified"), QDateTime::fromMSecsSinceEpoch(-5'000'000'000'001, Qt::UTC));
    fractional->setValue(QStringLiteral("name"), QString());
    ASSERT_TRUE(SqliteStore::save(context, path).ok());

    auto loaded = SqliteStore::load(path, test::testModel());
    ASSERT_TRUE(loaded.ok());
    ManagedObject* a = loaded.value()->objectWithId(integral->objectId());
    ManagedObject* b = loaded.value()->objectWithId(fractional->objectId());
    EXPECT_EQ(a->value(QStringLiteral("size")).metaType().id(), QMetaType::LongLong);
    EXPECT_EQ(b->value(QStringLiteral("size")).metaType().id(), QMetaType::Double);
    EXPECT_EQ(b->value(QStringLiteral("hidden")), QVariant(true));
    EXPECT_EQ(b->value(QStringLiteral("modified")).toDateTime().toMSecsSinceEpoch(), -5'000'000'000'001);
    EXPECT_FALSE(a->value(QStringLiteral("modified")).isValid());
    EXPECT_EQ(static_cast<test::File*>(a)->awakeFromFetchCalls, 1);
}

TEST_F(SqliteStoreTest, TheFileCarriesTheApplicationIdAndFormatVersion)
{
    ManagedObjectContext context(test::testModel());
    ASSERT_TRUE(SqliteStore::save(context, path).ok());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    auto pragma = [&](const char* sql) {
        sqlite3_stmt* stmt = nullptr;
        sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
        sqlite3_step(stmt);
        const qint64 value = sqlite3_column_int64(stmt, 0);
        sqlite3_finalize(stmt);
        return value;
    };
    EXPECT_EQ(pragma("PRAGMA application_id"), SqliteStore::kApplicationId);
    EXPECT_EQ(pragma("PRAGMA user_version"), SqliteStore::kFormatVersion);
    sqlite3_close(db);
    // The bytes at offset 68 of an SQLite file are the application id: "Trov".
    EXPECT_EQ(readAll(path).mid(68, 4), QByteArray("Trov"));
}

TEST_F(SqliteStoreTest, BadFilesAreRefusedWithAClearErrorAndLeftUntouched)
{
    auto original = richDocument();
    ASSERT_TRUE(SqliteStore::save(*original, path).ok());
    const QByteArray good = readAll(path);

    const trovara::test::BadFile cases[] = {
        {"missing", [](const QString&) {}, Error::kFileReadError, "doesn't exist"},
        {"empty", [](const QString& p) { writeAll(p, {}); }, Error::kFileReadCorruptError, "isn't a Trovara"},
        {"text renamed", [](const QString& p) { writeAll(p, "just some text\n"); }, Error::kFileReadCorruptError,
         "isn't a Trovara"},
        {"truncated", [&](const QString& p) { writeAll(p, good.left(good.size() / 2)); },
         Error::kFileReadCorruptError, "damaged"},
        {"scribbled", [&](const QString& p) {
             QByteArray bad = good;
             for (qsizetype i = 4096; i < bad.size(); i += 7) {
                 bad[i] = static_cast<char>(bad[i] ^ 0x5a);
             }
             writeAll(p, bad);
         },
         Error::kFileReadCorruptError, "damaged"},
        {"another application's database", [](const QString& p) { execute(p, "CREATE TABLE t (x); PRAGMA application_id=1234;"); },
         Error::kFileReadCorruptError, "isn't a Trovara"},
        {"a newer version", [&](const QString& p) {
             writeAll(p, good);
             execute(p, "PRAGMA user_version=99;");
         },
         Error::kFileReadUnknownVersionError, "newer version"},
        {"a dangling relationship", [&](const QString& p) {
             writeAll(p, good);
             execute(p, "UPDATE \"QueryItem\" SET \"parent\" = 9999 WHERE \"parent\" IS NOT NULL;");
         },
         Error::kFileReadCorruptError, "damaged"},
        {"an unknown entity", [&](const QString& p) {
             writeAll(p, good);
             execute(p, "UPDATE \"Scope\" SET \"_entity\" = 'Nonsense';");
         },
         Error::kFileReadCorruptError, "damaged"},
        {"a value of the wrong kind", [&](const QString& p) {
             writeAll(p, good);
             execute(p, "UPDATE \"QueryItem\" SET \"sortIndex\" = 'first';");
         },
         Error::kFileReadCorruptError, "damaged"},
        {"a missing table", [&](const QString& p) {
             writeAll(p, good);
             execute(p, "DROP TABLE \"Scope\";");
         },
         Error::kFileReadCorruptError, "damaged"},
    };
    for (const trovara::test::BadFile& c : cases) {
        SCOPED_TRACE(c.name);
        const QString bad = folder + QStringLiteral("/bad.trova");
        QFile::remove(bad);
        c.make(bad);
        const QByteArray before = readAll(bad);
        const bool existed = QFileInfo::exists(bad);
        Result<std::unique_ptr<ManagedObjectContext>> loaded = SqliteStore::load(bad, documentModel());
        ASSERT_FALSE(loaded.ok());
        EXPECT_EQ(loaded.error().code, c.code);
        EXPECT_TRUE(loaded.error().description.contains(QStringLiteral("bad.trova")));
        EXPECT_TRUE(loaded.error().reason.contains(QString::fromLatin1(c.reasonContains)))
            << loaded.error().reason.toStdString();
        EXPECT_EQ(QFileInfo::exists(bad), existed);
        EXPECT_EQ(readAll(bad), before);
        EXPECT_FALSE(SqliteStore::readMetadata(bad).ok() && c.code != Error::kFileReadCorruptError);
    }
}

TEST_F(SqliteStoreTest, AFailedSaveLeavesThePreviousFileIntactAndNoTemporaryFiles)
{
    auto first = richDocument();
    ASSERT_TRUE(SqliteStore::save(*first, path).ok());
    const QByteArray before = readAll(path);
    const QStringList filesBefore = filesInFolder();

    auto second = makeDocumentContext();
    primeContext(*second);
    for (SaveStep step : {SaveStep::TemporaryCreated, SaveStep::ObjectWritten, SaveStep::Committed,
                          SaveStep::BeforeRename}) {
        SaveOptions options;
        options.faultHook = [step](SaveStep at) -> Status {
            if (at == step) {
                return Error::make(Error::kFileWriteOutOfSpaceError, QStringLiteral("disk full"));
            }
            return {};
        };
        Status saved = SqliteStore::save(*second, path, {}, options);
        ASSERT_FALSE(saved.ok()) << static_cast<int>(step);
        EXPECT_EQ(saved.error().code, Error::kFileWriteOutOfSpaceError);
        EXPECT_EQ(readAll(path), before) << static_cast<int>(step);
        EXPECT_EQ(filesInFolder(), filesBefore) << static_cast<int>(step);
    }
    // The old file is still a working document.
    EXPECT_TRUE(SqliteStore::load(path, documentModel()).ok());
}

TEST_F(SqliteStoreTest, ASaveIntoAMissingFolderFailsCleanly)
{
    ManagedObjectContext context(test::testModel());
    Status saved = SqliteStore::save(context, folder + QStringLiteral("/no/such/folder/x.trova"));
    ASSERT_FALSE(saved.ok());
    EXPECT_EQ(saved.error().code, Error::kFileWriteError);
    EXPECT_TRUE(saved.error().description.contains(QStringLiteral("x.trova")));
}

TEST_F(SqliteStoreTest, ASaveIntoAReadOnlyFolderFailsAndKeepsTheOldFile)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "root may write into read-only folders";
    }
    ManagedObjectContext context(test::testModel());
    ASSERT_TRUE(SqliteStore::save(context, path).ok());
    const QByteArray before = readAll(path);
    ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 0555), 0);
    context.insertNewObject(QStringLiteral("Tag"));
    Status saved = SqliteStore::save(context, path);
    chmod(QFile::encodeName(folder).constData(), 0755);
    ASSERT_FALSE(saved.ok());
    EXPECT_EQ(saved.error().code, Error::kFileWriteError);
    EXPECT_EQ(readAll(path), before);
}

// Runs `body` in a child process and returns its exit status (or -signal).
int inChild(const std::function<int()>& body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(SqliteStoreTest, AFullDiskDuringTheSaveIsReportedAndTheOldFileSurvives)
{
    auto small = makeDocumentContext();
    primeContext(*small);
    ASSERT_TRUE(SqliteStore::save(*small, path).ok());
    const QByteArray before = readAll(path);

    // A graph far larger than the file size limit the child sets.
    auto large = makeDocumentContext();
    for (int i = 0; i < 2000; ++i) {
        MetaAttribute::metaAttributeWithKey(QStringLiteral("blob%1").arg(i), *large)
            ->setAttributeValue(QByteArray(1024, 'x'));
    }
    const int status = inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit {};
        limit.rlim_cur = limit.rlim_max = 256 * 1024;
        setrlimit(RLIMIT_FSIZE, &limit);
        Status saved = SqliteStore::save(*large, path);
        return saved.ok() ? 1 : (saved.error().code == Error::kFileWriteOutOfSpaceError ? 0 : 2);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readAll(path), before);
    EXPECT_EQ(filesInFolder(), QStringList{QStringLiteral("Search.trova")});
}

TEST_F(SqliteStoreTest, AProcessKilledHalfWayThroughASaveLeavesTheOldFileIntact)
{
    auto first = richDocument();
    ASSERT_TRUE(SqliteStore::save(*first, path).ok());
    const QByteArray before = readAll(path);

    auto second = richDocument();
    MetaAttribute::metaAttributeWithKey(QStringLiteral("newer"), *second)->setAttributeValue("1");
    for (SaveStep crashAt : {SaveStep::ObjectWritten, SaveStep::BeforeRename}) {
        const int status = inChild([&] {
            SaveOptions options;
            int written = 0;
            options.faultHook = [&](SaveStep step) -> Status {
                if (step == crashAt && ++written == 3) {
                    std::raise(SIGKILL);
                }
                if (step == SaveStep::BeforeRename && crashAt == SaveStep::BeforeRename) {
                    std::raise(SIGKILL);
                }
                return {};
            };
            (void)SqliteStore::save(*second, path, {}, options);
            return 0;
        });
        EXPECT_EQ(status, -SIGKILL);
        EXPECT_EQ(readAll(path), before);
        auto loaded = SqliteStore::load(path, documentModel());
        ASSERT_TRUE(loaded.ok());
        EXPECT_EQ(dump(*loaded.value()), dump(*first));
    }
    // A later save still succeeds despite the leftovers of the killed one.
    ASSERT_TRUE(SqliteStore::save(*second, path).ok());
    EXPECT_EQ(dump(*SqliteStore::load(path, documentModel()).value()), dump(*second));
}

TEST_F(SqliteStoreTest, ReplacingAFileKeepsItsPermissions)
{
    ManagedObjectContext context(test::testModel());
    ASSERT_TRUE(SqliteStore::save(context, path).ok());
    ASSERT_EQ(chmod(QFile::encodeName(path).constData(), 0640), 0);
    ASSERT_TRUE(SqliteStore::save(context, path).ok());
    struct stat st {};
    ASSERT_EQ(stat(QFile::encodeName(path).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
}

TEST(SqliteStoreSchema, TablesFollowTheRootEntities)
{
    const QStringList statements = SqliteStore::schemaStatements(*documentModel());
    const QString all = statements.join(QLatin1Char('\n'));
    EXPECT_TRUE(all.contains(QStringLiteral("CREATE TABLE \"QueryItem\"")));
    EXPECT_FALSE(all.contains(QStringLiteral("CREATE TABLE \"QueryLeaf\"")));
    EXPECT_TRUE(all.contains(QStringLiteral("CREATE TABLE \"AbstractAttribute\"")));
    EXPECT_FALSE(all.contains(QStringLiteral("attributeType"))) << "transient attributes are never stored";
    EXPECT_TRUE(all.contains(QStringLiteral("\"queryNumber\",")) || all.contains(QStringLiteral("\"queryNumber\")")))
        << "numbers keep their own storage class";
}

}  // namespace
}  // namespace trovara::store
