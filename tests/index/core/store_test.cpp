// The index database: items, roots and crawl state are kept; databases of
// another kind, another version or damaged ones are refused and can be made
// anew.
#include "index/store.h"
#include "test_support.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <sqlite3.h>

namespace trovara::index {
namespace {

class StoreTest : public ::testing::Test {
protected:
    StoreTest()
        : folder(trovara::test::makeTemporaryFolder(QStringLiteral("index-store")).toStdString())
        , path(folder + "/index.db")
    {
    }
    ~StoreTest() override { QDir(QString::fromStdString(folder)).removeRecursively(); }

    std::unique_ptr<Store> open(Store::Mode mode = Store::Mode::ReadWrite)
    {
        Expected<std::unique_ptr<Store>> store = Store::open(path, mode);
        EXPECT_TRUE(store.ok()) << (store.ok() ? "" : store.error().message);
        return store.ok() ? std::move(store.value()) : nullptr;
    }

    static StoredItem item(StoreId parent, const std::string& name, FileKind kind = FileKind::Regular)
    {
        StoredItem item;
        item.parent = parent;
        item.info.name = name;
        item.info.kind = kind;
        item.info.size = static_cast<std::int64_t>(name.size());
        item.info.modified = 1'600'000'000'000'000'000;
        return item;
    }

    const std::string folder;
    const std::string path;
};

TEST_F(StoreTest, ItemsRoundTripWithAllTheirFields)
{
    auto store = open();
    ASSERT_TRUE(store);
    ASSERT_TRUE(store->begin().ok());
    StoredItem root = item(0, "/data", FileKind::Directory);
    root.nodeCount = 2;
    const StoreId rootId = store->insertItem(root).value();
    StoredItem file = item(rootId, "Résumé \x01\xff.txt");
    file.info.mode = 0100644;
    file.info.uid = 1000;
    file.info.gid = 100;
    file.info.changed = 5;
    file.info.accessed = -7;
    file.info.born = 3;
    file.info.device = 0xFFFFFFFFFFFFFFFFull;
    file.info.inode = 1ull << 62;
    file.info.invisible = true;
    file.type = store->internMimeType("text/plain").value();
    file.attributes.comment = "a comment";
    file.attributes.tags = {"work", "", "urgent"};
    file.attributes.whereFroms = {"https://example.org/a"};
    file.attributes.label = 6;
    file.id = store->insertItem(file).value();
    ASSERT_TRUE(store->commit().ok());

    std::optional<StoredItem> back = store->item(file.id).value();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->parent, rootId);
    EXPECT_EQ(back->info.name, file.info.name);
    EXPECT_EQ(back->info.mode, 0100644u);
    EXPECT_EQ(back->info.uid, 1000u);
    EXPECT_EQ(back->info.accessed, -7);
    EXPECT_EQ(back->info.born, std::optional<Nanoseconds>(3));
    EXPECT_EQ(back->info.device, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(back->info.inode, 1ull << 62);
    EXPECT_TRUE(back->info.invisible);
    EXPECT_EQ(back->attributes, file.attributes);
    EXPECT_EQ(store->mimeTypes().value()[static_cast<std::size_t>(back->type)], "text/plain");
    EXPECT_EQ(store->internMimeType("text/plain").value(), back->type);

    std::optional<StoredItem> folder = store->item(rootId).value();
    EXPECT_EQ(folder->parent, 0);
    EXPECT_EQ(folder->nodeCount, 2u);
    EXPECT_FALSE(folder->info.born);
    EXPECT_FALSE(folder->attributes.label);
    EXPECT_FALSE(store->item(9999).value());
}

TEST_F(StoreTest, DeletingAFolderTakesEverythingBelowIt)
{
    auto store = open();
    ASSERT_TRUE(store->begin().ok());
    const StoreId root = store->insertItem(item(0, "/r", FileKind::Directory)).value();
    const StoreId a = store->insertItem(item(root, "a", FileKind::Directory)).value();
    const StoreId b = store->insertItem(item(a, "b", FileKind::Directory)).value();
    store->insertItem(item(b, "deep")).value();
    const StoreId kept = store->insertItem(item(root, "kept")).value();
    ASSERT_TRUE(store->deleteSubtree(a).ok());
    ASSERT_TRUE(store->commit().ok());
    EXPECT_EQ(store->itemCount().value(), 2);
    std::vector<StoreId> order;
    ASSERT_TRUE(store->forEachItem([&](StoredItem&& i) {
                         order.push_back(i.id);
                         return true;
                     })
                    .ok());
    EXPECT_EQ(order, (std::vector<StoreId>{root, kept}));
    EXPECT_EQ(store->children(root).value().size(), 1u);
}

TEST_F(StoreTest, RootsUnreadableFoldersAndTheGenerationAreKept)
{
    {
        auto store = open();
        ASSERT_TRUE(store->begin().ok());
        const StoreId id = store->addRoot("/home/ann", 42).value();
        RootRecord root = store->roots().value().front();
        EXPECT_EQ(root.id, id);
        EXPECT_EQ(root.added, 42);
        EXPECT_FALSE(root.complete);
        root.item = store->insertItem(item(0, "/home/ann", FileKind::Directory)).value();
        store->insertItem(item(root.item, "x")).value();
        root.complete = true;
        root.lastCrawlFinished = 99;
        ASSERT_TRUE(store->updateRoot(root).ok());
        ASSERT_TRUE(store->addRoot("/srv", 1).ok());
        ASSERT_TRUE(store->setUnreadable("/home/ann/secret", 13, 5).ok());
        ASSERT_TRUE(store->setUnreadable("/home/anna/other", 13, 5).ok());
        ASSERT_TRUE(store->bumpGeneration().ok());
        ASSERT_TRUE(store->commit().ok());
        EXPECT_FALSE(store->addRoot("/srv", 2).ok()) << "a root is added once";
    }
    auto store = open(Store::Mode::ReadOnly);
    ASSERT_TRUE(store);
    const auto roots = store->roots().value();
    ASSERT_EQ(roots.size(), 2u);
    EXPECT_EQ(roots[0].path, "/home/ann");
    EXPECT_TRUE(roots[0].complete);
    EXPECT_EQ(roots[0].lastCrawlFinished, 99);
    EXPECT_EQ(store->generation().value(), 1);
    EXPECT_EQ(store->unreadable().value().size(), 2u);

    auto writer = open();
    ASSERT_TRUE(writer->begin().ok());
    ASSERT_TRUE(writer->removeRoot(roots[0].id).ok());
    ASSERT_TRUE(writer->commit().ok());
    EXPECT_EQ(writer->itemCount().value(), 0);
    const auto unreadable = writer->unreadable().value();
    ASSERT_EQ(unreadable.size(), 1u) << "only the removed root's folders are forgotten";
    EXPECT_EQ(unreadable[0].path, "/home/anna/other");
}

TEST_F(StoreTest, AMissingIndexIsCreatedForWritingAndRefusedForReading)
{
    Expected<std::unique_ptr<Store>> reader = Store::open(path, Store::Mode::ReadOnly);
    ASSERT_FALSE(reader.ok());
    EXPECT_NE(reader.error().message.find("trova index add"), std::string::npos);
    auto writer = open();
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->generation().value(), 0);
    EXPECT_EQ(writer->itemCount().value(), 0);
    EXPECT_GT(writer->fileSize(), 0);
}

TEST_F(StoreTest, ForeignNewerAndDamagedDatabasesAreRefusedThenRecreated)
{
    auto writeRaw = [&](const char* sql) {
        QFile::remove(QString::fromStdString(path));
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    };
    struct Case {
        const char* name;
        std::function<void()> make;
        Failure::Kind kind;
    };
    const Case cases[] = {
        {"another application's database", [&] { writeRaw("CREATE TABLE t (x); PRAGMA application_id=7;"); },
         Failure::Kind::Corrupt},
        {"a newer format", [&] {
             QFile::remove(QString::fromStdString(path));
             open().reset();
             sqlite3* db = nullptr;
             sqlite3_open(path.c_str(), &db);
             sqlite3_exec(db, "PRAGMA user_version=99;", nullptr, nullptr, nullptr);
             sqlite3_close(db);
         },
         Failure::Kind::Version},
        {"text, not a database", [&] {
             QFile file(QString::fromStdString(path));
             file.open(QIODevice::WriteOnly | QIODevice::Truncate);
             file.write(QByteArray(8192, 'x'));
         },
         Failure::Kind::Corrupt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        c.make();
        Expected<std::unique_ptr<Store>> refused = Store::open(path, Store::Mode::ReadWrite);
        ASSERT_FALSE(refused.ok());
        EXPECT_EQ(refused.error().kind, c.kind);
        EXPECT_FALSE(refused.error().message.empty());
        Expected<std::unique_ptr<Store>> fresh = Store::recreate(path);
        ASSERT_TRUE(fresh.ok()) << fresh.error().message;
        EXPECT_EQ(fresh.value()->itemCount().value(), 0);
        EXPECT_TRUE(QFile::exists(QString::fromStdString(path + ".broken")));
        fresh.value().reset();
        QFile::remove(QString::fromStdString(path + ".broken"));
    }
}

TEST_F(StoreTest, AnOlderFormatIsReportedAsAVersionMismatch)
{
    open().reset();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA user_version=0;", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    Expected<std::unique_ptr<Store>> refused = Store::open(path, Store::Mode::ReadOnly);
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().kind, Failure::Kind::Version);
    EXPECT_NE(refused.error().message.find("format version 0"), std::string::npos);
}

TEST_F(StoreTest, RolledBackChangesLeaveNoTrace)
{
    auto store = open();
    ASSERT_TRUE(store->begin().ok());
    store->insertItem(item(0, "/r", FileKind::Directory)).value();
    ASSERT_TRUE(store->bumpGeneration().ok());
    store->rollback();
    EXPECT_EQ(store->itemCount().value(), 0);
    EXPECT_EQ(store->generation().value(), 0);
}

}  // namespace
}  // namespace trovara::index
