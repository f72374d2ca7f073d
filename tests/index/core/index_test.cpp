// The index on real folders: what it holds agrees with find(1), updates
// write only what changed, interruptions and damage leave it usable, and one
// writer works at a time.
#include "index/crawl_search.h"
#include "index/fs/type_tree.h"
#include "index/index.h"
#include "index/query/parser.h"
#include "index/search.h"
#include "index/query/find_query.h"
#include "index/text/folding.h"
#include "live_test_support.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace trovara::index {
namespace {

IndexServices services()
{
    IndexServices s;
    s.fold = [](std::string_view name) { return text::foldForCatalogue(name); };
    s.types = [](const std::string& mime) { return describeMimeType(mime.empty() ? "application/octet-stream" : mime); };
    s.lastUsed = [](const std::string&, const FileInfo&) { return Nanoseconds{0}; };
    return s;
}

void write(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

void setModified(const std::string& path, std::time_t when)
{
    struct utimbuf times {when, when};
    ::utime(path.c_str(), &times);
}

std::set<std::string> lines(const QByteArray& output)
{
    std::set<std::string> set;
    for (const QByteArray& line : output.split('\n')) {
        if (!line.isEmpty()) {
            set.insert(line.toStdString());
        }
    }
    return set;
}

std::set<std::string> findOutput(const QStringList& arguments)
{
    QProcess find;
    find.start(QStringLiteral("find"), arguments);
    find.waitForFinished(60000);
    return lines(find.readAllStandardOutput());
}

class IndexTest : public ::testing::Test {
protected:
    IndexTest()
        : tree(trovara::test::makeTemporaryFolder(QStringLiteral("tree")).toStdString())
        , directory(trovara::test::makeTemporaryFolder(QStringLiteral("index")).toStdString())
    {
        // A small home-like tree.
        for (const char* folder : {"/Documents", "/Documents/Old reports", "/Pictures", "/.cache", "/.cache/x"}) {
            ::mkdir((tree + folder).c_str(), 0755);
        }
        write(tree + "/Documents/Quarterly Report.txt", std::string(5000, 'r'));
        write(tree + "/Documents/notes.md", "# notes\n");
        write(tree + "/Documents/Old reports/report-2019.txt", "old\n");
        write(tree + "/Documents/Résumé.txt", "cv\n");
        write(tree + "/Pictures/holiday.png", "\x89PNG\r\n\x1a\nxxxxxxxx");
        write(tree + "/Pictures/.hidden", "holiday.png\n");
        write(tree + "/.cache/x/blob", std::string(2'000'000, '\0'));
        ::symlink((tree + "/Documents").c_str(), (tree + "/docs-link").c_str());
        setModified(tree + "/Documents/Old reports/report-2019.txt", 1'550'000'000);
    }
    ~IndexTest() override
    {
        QDir(QString::fromStdString(tree)).removeRecursively();
        QDir(QString::fromStdString(directory)).removeRecursively();
    }

    std::unique_ptr<Index> open(std::vector<std::string>* notices = nullptr)
    {
        Expected<std::unique_ptr<Index>> index = Index::openForWriting(directory, services(), false, notices);
        EXPECT_TRUE(index.ok()) << (index.ok() ? "" : index.error().message);
        return index.ok() ? std::move(index.value()) : nullptr;
    }

    std::set<std::string> indexedPaths()
    {
        Expected<std::shared_ptr<const Catalogue>> catalogue = Index::catalogue(directory, services());
        EXPECT_TRUE(catalogue.ok()) << (catalogue.ok() ? "" : catalogue.error().message);
        std::set<std::string> paths;
        if (catalogue) {
            for (ItemIndex i = 0; i < catalogue.value()->size(); ++i) {
                paths.insert(catalogue.value()->path(i));
            }
        }
        return paths;
    }

    std::set<std::string> search(const char* text)
    {
        Expected<std::shared_ptr<const Catalogue>> catalogue = Index::catalogue(directory, services());
        EXPECT_TRUE(catalogue.ok());
        const CatalogueQuery query(catalogue.value(), query::parseQuery(text).value(), query::QueryStart::now());
        std::set<std::string> paths;
        for (ItemIndex i : query.matches({{0, catalogue.value()->size()}})) {
            paths.insert(catalogue.value()->path(i));
        }
        return paths;
    }

    const std::string tree;
    const std::string directory;
};

TEST_F(IndexTest, TheIndexHoldsWhatFindSees)
{
    auto index = open();
    Expected<UpdateReport> report = index->addRoots({tree}, {});
    ASSERT_TRUE(report.ok()) << report.error().message;
    EXPECT_EQ(report->crawl.folders, 6u);
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));
}

TEST_F(IndexTest, QueriesAgreeWithFind)
{
    open()->addRoots({tree}, {}).value();
    const QString root = QString::fromStdString(tree);
    EXPECT_EQ(search(R"(kMDItemFSName == "*report*"cd)"), findOutput({root, "-iname", "*report*"}));
    EXPECT_EQ(search("kMDItemFSSize > 4000 && kMDItemContentTypeTree != 'public.folder'"),
              findOutput({root, "-type", "f", "-size", "+4000c"}));
    EXPECT_EQ(search("kMDItemFSContentChangeDate < $time.iso(2020-01-01T00:00:00Z)"),
              findOutput({root, "!", "-newermt", "2020-01-01 00:00:00 UTC"}));
    EXPECT_EQ(search("kMDItemContentTypeTree == 'public.folder'"), findOutput({root, "-type", "d"}));
    EXPECT_EQ(search("kMDItemContentType == 'com.apple.alias-file'"), findOutput({root, "-type", "l"}));
    EXPECT_EQ(search("kMDItemFSInvisible == 1"),
              (std::set<std::string>{tree + "/.cache", tree + "/Pictures/.hidden", tree + "/Pictures/holiday.png"}))
        << "dot-names and what .hidden lists; not what lies inside a hidden folder";
    EXPECT_EQ(search("kMDItemContentTypeTree == 'public.image'"), std::set<std::string>{tree + "/Pictures/holiday.png"});
    EXPECT_EQ(search(R"(kMDItemDisplayName == "resume*"cd)"), std::set<std::string>{tree + "/Documents/Résumé.txt"});
}

TEST_F(IndexTest, AnUpdateWritesOnlyWhatChanged)
{
    auto index = open();
    index->addRoots({tree}, {}).value();
    Expected<UpdateReport> unchanged = index->update({});
    ASSERT_TRUE(unchanged.ok());
    EXPECT_EQ(unchanged->added + unchanged->changed + unchanged->removed, 0u);
    EXPECT_EQ(unchanged->crawl.detailed, 0u) << "nothing is re-read";

    write(tree + "/Documents/new.txt", "new");
    write(tree + "/Documents/notes.md", "# notes, longer now\n");
    ::unlink((tree + "/Pictures/holiday.png").c_str());
    ::rename((tree + "/Documents/Old reports").c_str(), (tree + "/Documents/Archive").c_str());
    Expected<UpdateReport> changed = index->update({});
    ASSERT_TRUE(changed.ok());
    EXPECT_EQ(changed->added, 3u) << "new.txt, Archive and the report inside it";
    EXPECT_EQ(changed->removed, 2u) << "holiday.png and Old reports (with what it held)";
    EXPECT_GE(changed->changed, 1u);
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));
    EXPECT_EQ(search("kMDItemFSSize == 20"), std::set<std::string>{tree + "/Documents/notes.md"});
}

TEST_F(IndexTest, AnUpdateOfAnUnchangedTreeRewritesNothing)
{
    auto index = open();
    index->addRoots({tree}, {}).value();
    struct stat before {};
    ASSERT_EQ(::stat((directory + "/catalogue.bin").c_str(), &before), 0);
    const std::int64_t generation = index->store().generation().value();

    ASSERT_TRUE(index->update({}).ok());
    struct stat after {};
    ASSERT_EQ(::stat((directory + "/catalogue.bin").c_str(), &after), 0);
    EXPECT_EQ(index->store().generation().value(), generation) << "searches would see no difference";
    EXPECT_EQ(after.st_ino, before.st_ino) << "the snapshot is not written again";
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_TRUE(index->catalogueIsCurrent());

    // A change moves the generation, and the snapshot follows.
    write(tree + "/Documents/new.txt", "new");
    ASSERT_TRUE(index->update({}).ok());
    EXPECT_GT(index->store().generation().value(), generation);
    EXPECT_TRUE(index->catalogueIsCurrent());
    EXPECT_TRUE(indexedPaths().count(tree + "/Documents/new.txt"));
}

TEST_F(IndexTest, AReaderTakesTheSnapshotAsItIsWhileAWriterIsAtWork)
{
    auto index = open();
    index->addRoots({tree}, {}).value();
    const std::int64_t saved = Index::catalogue(directory, services()).value()->generation();
    // The writer moves on without writing its snapshot yet.
    ASSERT_TRUE(index->store().begin().ok());
    ASSERT_TRUE(index->store().bumpGeneration().ok());
    ASSERT_TRUE(index->store().commit().ok());

    Expected<std::shared_ptr<const Catalogue>> during = Index::catalogue(directory, services());
    ASSERT_TRUE(during.ok());
    EXPECT_TRUE(during.value()->isMapped()) << "not built again beside the writer";
    EXPECT_EQ(during.value()->generation(), saved);

    // Nobody writes any more: the reader builds a current one and keeps it.
    index.reset();
    Expected<std::shared_ptr<const Catalogue>> after = Index::catalogue(directory, services());
    ASSERT_TRUE(after.ok());
    EXPECT_EQ(after.value()->generation(), saved + 1);
    EXPECT_EQ(Catalogue::snapshotGeneration(directory + "/catalogue.bin"), saved + 1);
}

TEST_F(IndexTest, NamesAreSearchableBeforeTheContentIsImported)
{
    auto index = open();
    Index::Options options;
    bool told = false;
    options.namesReady = [&](const UpdateReport& crawled) {
        told = true;
        EXPECT_GT(crawled.crawl.files, 0u);
        // Told once the snapshot holds the new names.
        EXPECT_TRUE(indexedPaths().count(tree + "/Documents/notes.md"));
    };
    ASSERT_TRUE(index->addRoots({tree}, options).ok());
    EXPECT_TRUE(told);
}

TEST_F(IndexTest, AnInterruptedCrawlLeavesAConsistentIndexThatAnUpdateCompletes)
{
    for (int i = 0; i < 30; ++i) {
        const std::string folder = tree + "/many" + std::to_string(i);
        ::mkdir(folder.c_str(), 0755);
        write(folder + "/f", "x");
    }
    auto index = open();
    std::atomic<bool> cancel{false};
    Index::Options options;
    options.cancel = &cancel;
    options.threads = 1;
    int folders = 0;
    options.progress = [&](const UpdateProgress&) {
        if (++folders == 5) {
            cancel = true;
        }
    };
    Expected<UpdateReport> report = index->addRoots({tree}, options);
    ASSERT_TRUE(report.ok());
    EXPECT_TRUE(report->crawl.cancelled);
    const std::set<std::string> partial = indexedPaths();
    const std::set<std::string> all = findOutput({QString::fromStdString(tree)});
    EXPECT_LT(partial.size(), all.size());
    EXPECT_TRUE(std::includes(all.begin(), all.end(), partial.begin(), partial.end()));
    Expected<IndexStatus> status = index->status();
    ASSERT_EQ(status->roots.size(), 1u);
    EXPECT_FALSE(status->roots[0].complete);

    ASSERT_TRUE(index->update({}).ok());
    EXPECT_EQ(indexedPaths(), all);
    EXPECT_TRUE(index->status()->roots[0].complete);
}

TEST_F(IndexTest, RootsNestAndComeAndGo)
{
    auto index = open();
    index->addRoots({tree + "/Documents"}, {}).value();
    index->addRoots({tree + "/Documents/Old reports"}, {}).value();  // inside: nothing new
    EXPECT_EQ(index->status()->roots.size(), 1u);
    index->addRoots({tree + "/"}, {}).value();  // around: takes its place
    Expected<IndexStatus> status = index->status();
    ASSERT_EQ(status->roots.size(), 1u);
    EXPECT_EQ(status->roots[0].path, tree);
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));

    ASSERT_TRUE(index->removeRoots({tree}).ok());
    EXPECT_TRUE(indexedPaths().empty());
    EXPECT_FALSE(index->removeRoots({tree}).ok()) << "not indexed any more";
    EXPECT_FALSE(index->addRoots({tree + "/Documents/notes.md"}, {}).ok()) << "a file is not a folder";
    EXPECT_FALSE(index->addRoots({tree + "/nowhere"}, {}).ok());
}

TEST_F(IndexTest, OneWriterAtATime)
{
    auto first = open();
    Expected<std::unique_ptr<Index>> second = Index::openForWriting(directory, services(), false);
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().kind, Failure::Kind::Busy);
    EXPECT_NE(second.error().message.find("another Trovara process"), std::string::npos);
    first.reset();
    EXPECT_TRUE(Index::openForWriting(directory, services(), false).ok());
}

TEST_F(IndexTest, ADamagedDatabaseIsRebuiltFromItsRoots)
{
    open()->addRoots({tree}, {}).value();
    {
        std::ofstream damage(directory + "/index.db", std::ios::binary | std::ios::trunc);
        damage << std::string(10000, 'x');
    }
    ::unlink((directory + "/index.db-wal").c_str());
    Expected<std::shared_ptr<const Catalogue>> refused = Index::catalogue(directory, services());
    ASSERT_FALSE(refused.ok());
    EXPECT_NE(refused.error().message.find("trova index rebuild"), std::string::npos) << refused.error().message;

    std::vector<std::string> notices;
    auto index = open(&notices);
    ASSERT_TRUE(index);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("rebuilt"), std::string::npos);
    ASSERT_EQ(index->status()->roots.size(), 1u) << "the roots file keeps the roots";
    ASSERT_TRUE(index->update({}).ok());
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));
}

TEST_F(IndexTest, ALostDatabaseIsBuiltAgainFromTheRootsFile)
{
    const std::set<std::string> everything = findOutput({QString::fromStdString(tree)});
    for (const bool deleted : {true, false}) {
        SCOPED_TRACE(deleted ? "deleted" : "emptied");
        open()->addRoots({tree}, {}).value();
        for (const char* suffix : {"", "-wal", "-shm"}) {
            ::unlink((directory + "/index.db" + suffix).c_str());
        }
        if (!deleted) {
            write(directory + "/index.db", "");
        }
        std::vector<std::string> notices;
        auto index = open(&notices);
        ASSERT_TRUE(index);
        ASSERT_EQ(notices.size(), 1u);
        EXPECT_NE(notices[0].find("missing or empty"), std::string::npos) << notices[0];
        ASSERT_EQ(index->status()->roots.size(), 1u) << "the roots file keeps the roots";
        // Rebuilding, as the message about an empty database recommends,
        // crawls them again too.
        Expected<UpdateReport> rebuilt = index->rebuild({});
        ASSERT_TRUE(rebuilt.ok()) << rebuilt.error().message;
        EXPECT_EQ(rebuilt->crawl.folders + rebuilt->crawl.files, everything.size());
        EXPECT_EQ(indexedPaths(), everything);
    }
}

TEST_F(IndexTest, DamageFoundWhileUpdatingMovesTheDatabaseAsideAndBuildsItAgain)
{
    open()->addRoots({tree}, {}).value();
    // Damage that the header does not show: the items' table, past page one.
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((directory + "/index.db").c_str(), &db), SQLITE_OK);
    const auto number = [&](const char* sql) {
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db, sql, -1, &statement, nullptr), SQLITE_OK);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW);
        const std::int64_t value = sqlite3_column_int64(statement, 0);
        sqlite3_finalize(statement);
        return value;
    };
    const std::int64_t page = number("SELECT rootpage FROM sqlite_master WHERE name = 'items'");
    const std::int64_t pageSize = number("PRAGMA page_size");
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    ASSERT_GT(page, 1);
    {
        std::fstream file(directory + "/index.db", std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(static_cast<std::streamoff>((page - 1) * pageSize));
        file << std::string(static_cast<std::size_t>(pageSize), '\x5a');
    }

    std::vector<std::string> notices;
    auto index = open(&notices);
    ASSERT_TRUE(index);
    EXPECT_TRUE(notices.empty()) << "the header is sound";
    Index::Options options;
    options.notice = [&](const std::string& notice) { notices.push_back(notice); };
    Expected<UpdateReport> updated = index->update(options);
    ASSERT_TRUE(updated.ok()) << updated.error().message;
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("malformed"), std::string::npos) << notices[0];
    EXPECT_NE(notices[0].find("moved aside as index.db.broken"), std::string::npos) << notices[0];
    struct stat st {};
    EXPECT_EQ(::stat((directory + "/index.db.broken").c_str(), &st), 0);
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));
}

TEST_F(IndexTest, AStaleOrDamagedCatalogueIsBuiltAgain)
{
    auto index = open();
    index->addRoots({tree}, {}).value();
    index.reset();
    {
        std::ofstream damage(directory + "/catalogue.bin", std::ios::binary | std::ios::trunc);
        damage << "rubbish";
    }
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));
    EXPECT_TRUE(Catalogue::open(directory + "/catalogue.bin").ok()) << "and saved again";
}

TEST_F(IndexTest, RebuildStartsAfresh)
{
    auto index = open();
    index->addRoots({tree}, {}).value();
    Expected<UpdateReport> rebuilt = index->rebuild({});
    ASSERT_TRUE(rebuilt.ok());
    EXPECT_EQ(rebuilt->added, findOutput({QString::fromStdString(tree)}).size());
    EXPECT_EQ(indexedPaths(), findOutput({QString::fromStdString(tree)}));
}

TEST_F(IndexTest, FoldersOutsideTheIndexAreSearchedByCrawling)
{
    const query::Query query = query::parseQuery(R"(kMDItemFSName == "*report*"cd)").value();
    std::set<std::string> found;
    Expected<CrawlStatistics> crawled = searchByCrawling(
        tree, query, query::QueryStart::now(), services(), [&](const std::string& path) { found.insert(path); });
    ASSERT_TRUE(crawled.ok());
    EXPECT_EQ(found, findOutput({QString::fromStdString(tree), "-iname", "*report*"}));

    // The same items answer the same whether indexed or crawled.
    open()->addRoots({tree}, {}).value();
    for (const char* text : {"kMDItemFSNodeCount > 1", "kMDItemContentTypeTree == 'public.text'",
                             "kMDItemFSInvisible == 1", "kMDItemFSSize < 10 && kMDItemFSSize > 0"}) {
        std::set<std::string> crawledPaths;
        searchByCrawling(tree, query::parseQuery(text).value(), query::QueryStart::now(), services(),
                         [&](const std::string& path) { crawledPaths.insert(path); })
            .value();
        EXPECT_EQ(crawledPaths, search(text)) << text;
    }
}

TEST_F(IndexTest, ACrawlOutsideTheIndexLooksInContentsAsTheIndexDoes)
{
    write(tree + "/Documents/log.txt", "the harbour at dawn\n");
    write(tree + "/Documents/harbour.txt", "a name only\n");
    IndexServices withImporter = services();
    auto importer = std::make_shared<test::TextFileImporter>();
    withImporter.importer = importer;
    const auto crawled = [&](const std::string& text) {
        std::set<std::string> found;
        searchByCrawling(tree, query::parseQuery(text).value(), query::QueryStart::now(), withImporter,
                         [&](const std::string& path) { found.insert(path); })
            .value();
        return found;
    };
    const std::string log = tree + "/Documents/log.txt";
    const std::string name = tree + "/Documents/harbour.txt";
    const std::string words = query::interpretWords("harbour");  // what trova find harbour asks
    EXPECT_EQ(crawled(words), (std::set<std::string>{log, name}));
    EXPECT_EQ(crawled(R"(kMDItemTextContent == "dawn"cd)"), std::set<std::string>{log});
    EXPECT_EQ(crawled(R"(kMDItemFSName == "*.txt" && !(kMDItemTextContent == "harbour"cd))").count(log), 0u);
    const int imports = importer->imports.load();
    EXPECT_GT(imports, 0);
    EXPECT_TRUE(crawled(R"(kMDItemFSName == "log*")").count(log));
    EXPECT_EQ(importer->imports.load(), imports) << "a query of names imports nothing";

    // The same answers as the index gives, having imported the same files.
    auto index = Index::openForWriting(directory, withImporter, false).value();
    index->addRoots({tree}, {}).value();
    for (const std::string& text : {words, std::string(R"(kMDItemTextContent == "*arbou*"cd)"),
                                    std::string(R"(** == "dawn*"cdw)")}) {
        EXPECT_EQ(crawled(text), search(text.c_str())) << text;
    }
}

}  // namespace
}  // namespace trovara::index
