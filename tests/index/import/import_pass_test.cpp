// Imports kept in step with the files: after every crawl the files that are
// new or changed are imported, what comes back is stored and searchable,
// failures are recorded and tried again a bounded number of times, and
// nothing is lost when the importers cannot be reached.
#include "index/fs/type_tree.h"
#include "index/index.h"
#include "index/query/parser.h"
#include "index/search.h"
#include "index/text/folding.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <map>
#include <set>
#include <sys/stat.h>
#include <utime.h>

namespace trovara::index {
namespace {

// Imports in the test's own process, answering as told.
class FakeImporter final : public ContentImporter {
public:
    Expected<std::vector<ImporterInfo>> importers() override
    {
        if (!reachable) {
            return Failure{Failure::Kind::Io, "cannot start the importer"};
        }
        return std::vector<ImporterInfo>{{"text", "1", "", {"public.text"}}};
    }

    Expected<void> importFiles(std::vector<ImportJob> jobs,
                               const std::function<void(const ImportJob&, ImportOutcome&&)>& done,
                               const std::atomic<bool>* cancel) override
    {
        if (!reachable) {
            return Failure{Failure::Kind::Io, "cannot start the importer"};
        }
        for (const ImportJob& job : jobs) {
            if (cancel && cancel->load()) {
                break;
            }
            const std::string name = job.path.substr(job.path.rfind('/') + 1);
            asked.push_back(name);
            ImportOutcome outcome;
            if (name.starts_with("crash")) {
                outcome.mayRetry = true;
                outcome.error = "the importer crashed (signal 11)";
            } else if (name.starts_with("broken")) {
                outcome.error = "not a document";
            } else {
                std::ifstream in(job.path);
                std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
                outcome.imported = true;
                // "converted…" files stand for documents whose text is not their bytes.
                outcome.text = name.starts_with("converted") ? "converted from " + text : text;
                outcome.attributes.push_back({"kMDItemTitle", "Title of " + name});
            }
            done(job, std::move(outcome));
            if (stopAfter && asked.size() == stopAfter && cancel) {
                const_cast<std::atomic<bool>*>(cancel)->store(true);  // as Ctrl-C would
            }
        }
        return {};
    }

    bool reachable = true;
    std::size_t stopAfter = 0;  // raise the cancel flag after this many files
    std::vector<std::string> asked;
};

void execute(const std::string& path, const char* sql)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
}

// Takes the full text of this format out of an index database.
constexpr const char* kDropText =
    "DROP TRIGGER items_removed; DROP TRIGGER items_content_changed; DROP TABLE text_terms; DROP TABLE texts; "
    "PRAGMA writable_schema = ON; DELETE FROM sqlite_master WHERE name LIKE 'text_index%'; "
    "PRAGMA writable_schema = OFF; ALTER TABLE roots DROP COLUMN names_only;";

// Turns an index database back into the first format: no imports, no full
// text.
void downgradeToFirstFormat(const std::string& path)
{
    execute(path, (std::string(kDropText) + "DROP TABLE imports; PRAGMA user_version = 1;").c_str());
}

// Turns an index database back into the second format, whose full text kept
// every text whole.
void downgradeToSecondFormat(const std::string& path)
{
    execute(path, (std::string(kDropText)
                   + "CREATE VIRTUAL TABLE text_content USING fts5(text, detail = none); "
                     "CREATE VIRTUAL TABLE text_terms USING fts5vocab(text_content, row); "
                     "INSERT INTO text_content (rowid, text) SELECT item, 'the text kept whole' FROM imports; "
                     "CREATE TRIGGER items_removed AFTER DELETE ON items BEGIN "
                     "DELETE FROM imports WHERE item = old.id; DELETE FROM text_content WHERE rowid = old.id; END; "
                     "CREATE TRIGGER items_content_changed AFTER UPDATE OF size ON items BEGIN "
                     "DELETE FROM imports WHERE item = old.id; END; PRAGMA user_version = 2;")
                      .c_str());
}

class ImportPassTest : public ::testing::Test {
protected:
    ImportPassTest()
        : tree(trovara::test::makeTemporaryFolder(QStringLiteral("tree")).toStdString())
        , directory(trovara::test::makeTemporaryFolder(QStringLiteral("index")).toStdString())
        , importer(std::make_shared<FakeImporter>())
    {
    }

    IndexServices services() const
    {
        IndexServices s;
        s.fold = [](std::string_view name) { return text::foldForCatalogue(name); };
        s.types = [](const std::string& mime) { return describeMimeType(mime.empty() ? "application/octet-stream" : mime); };
        s.lastUsed = [](const std::string&, const FileInfo&) { return Nanoseconds{0}; };
        s.importer = importer;
        return s;
    }

    void write(const std::string& name, const std::string& content)
    {
        std::ofstream(tree + "/" + name, std::ios::binary | std::ios::trunc) << content;
    }

    std::unique_ptr<Index> open()
    {
        Expected<std::unique_ptr<Index>> index = Index::openForWriting(directory, services(), true);
        EXPECT_TRUE(index) << index.error().message;
        return std::move(*index);
    }

    std::set<std::string> find(Index& index, const std::string& text)
    {
        Expected<std::shared_ptr<const Catalogue>> catalogue = index.refreshCatalogue();
        EXPECT_TRUE(catalogue);
        Expected<query::Query> parsed = query::parseQuery(text);
        EXPECT_TRUE(parsed) << text;
        std::set<std::string> names;
        const CatalogueQuery search(*catalogue, *parsed, query::QueryStart::now());
        for (const ItemIndex i : search.matches({{0, (*catalogue)->size()}})) {
            names.insert(std::string((*catalogue)->name(i)));
        }
        return names;
    }

    std::map<std::string, ImportFailure> failures(Index& index)
    {
        Expected<IndexStatus> status = index.status();
        EXPECT_TRUE(status);
        std::map<std::string, ImportFailure> byName;
        for (const ImportFailure& failure : status->importFailures) {
            byName[failure.path.substr(failure.path.rfind('/') + 1)] = failure;
        }
        return byName;
    }

    std::string tree;
    std::string directory;
    std::shared_ptr<FakeImporter> importer;
};

TEST_F(ImportPassTest, ImportsNewFilesAfterTheCrawlAndMakesThemSearchable)
{
    write("notes.txt", "the velmorade report");
    write("todo.md", "buy milk");
    write("data.bin", std::string("\x00\x01\x02", 3));
    auto index = open();
    Expected<UpdateReport> report = index->addRoots({tree}, {});
    ASSERT_TRUE(report) << report.error().message;
    EXPECT_EQ(report->imported, 2u);
    EXPECT_EQ(importer->asked.size(), 2u);  // the binary file has no importer

    EXPECT_EQ(find(*index, "kMDItemTextContent == 'velmorade'cd"), std::set<std::string>{"notes.txt"});
    EXPECT_EQ(find(*index, "kMDItemTitle == 'Title of todo.md'"), std::set<std::string>{"todo.md"});
    EXPECT_EQ(find(*index, "* == '*of notes*'cd"), std::set<std::string>{"notes.txt"});
    Expected<IndexStatus> status = index->status();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->imports.imported, 2);
    EXPECT_EQ(status->imports.withText, 2);

    // Nothing changed: nothing is imported again.
    importer->asked.clear();
    ASSERT_TRUE(index->update({}));
    EXPECT_TRUE(importer->asked.empty());
}

TEST_F(ImportPassTest, AChangedFileIsImportedAgainAndAGoneOneForgotten)
{
    write("a.txt", "old words");
    write("b.txt", "more words");
    auto index = open();
    ASSERT_TRUE(index->addRoots({tree}, {}));
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'old'"), std::set<std::string>{"a.txt"});

    write("a.txt", "new words, longer than before");
    ::unlink((tree + "/b.txt").c_str());
    importer->asked.clear();
    ASSERT_TRUE(index->update({}));
    EXPECT_EQ(importer->asked, std::vector<std::string>{"a.txt"});
    EXPECT_TRUE(find(*index, "kMDItemTextContent == 'old'").empty());
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'new'"), std::set<std::string>{"a.txt"});
    EXPECT_TRUE(find(*index, "kMDItemTextContent == 'more'").empty());
    Expected<IndexStatus> status = index->status();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->imports.imported, 1);
    EXPECT_EQ(status->imports.withText, 1);
}

TEST_F(ImportPassTest, FailuresAreRecordedAndTriedAgainABoundedNumberOfTimes)
{
    write("crash.txt", "x");
    write("broken.txt", "y");
    write("fine.txt", "z");
    auto index = open();
    Expected<UpdateReport> report = index->addRoots({tree}, {});
    ASSERT_TRUE(report);
    EXPECT_EQ(report->imported, 1u);
    EXPECT_EQ(report->importFailed, 2u);

    auto failed = failures(*index);
    ASSERT_EQ(failed.size(), 2u);
    EXPECT_EQ(failed["crash.txt"].attempts, 1);
    EXPECT_TRUE(failed["crash.txt"].willRetry);
    EXPECT_EQ(failed["crash.txt"].error, "the importer crashed (signal 11)");
    EXPECT_EQ(failed["crash.txt"].importer, "text");
    EXPECT_FALSE(failed["broken.txt"].willRetry);  // a verdict on the file: not tried again
    EXPECT_EQ(failed["broken.txt"].attempts, 1);    // and said to be tried once, as it was
    EXPECT_EQ(failed["broken.txt"].error, "not a document");

    for (int update = 2; update <= 4; ++update) {
        importer->asked.clear();
        ASSERT_TRUE(index->update({}));
        const bool retried = !importer->asked.empty();
        EXPECT_EQ(retried, update <= kMaxImportAttempts) << "update " << update;
        if (retried) {
            EXPECT_EQ(importer->asked, std::vector<std::string>{"crash.txt"});
        }
    }
    failed = failures(*index);
    EXPECT_EQ(failed["crash.txt"].attempts, kMaxImportAttempts);
    EXPECT_FALSE(failed["crash.txt"].willRetry);
    EXPECT_EQ(failed["broken.txt"].attempts, 1);

    // A change of the file earns it fresh tries.
    write("crash.txt", "changed content");
    importer->asked.clear();
    ASSERT_TRUE(index->update({}));
    EXPECT_EQ(importer->asked, std::vector<std::string>{"crash.txt"});
    EXPECT_EQ(failures(*index)["crash.txt"].attempts, 1);
}

TEST_F(ImportPassTest, UnreachableImportersLeaveTheFilesPending)
{
    write("a.txt", "words");
    importer->reachable = false;
    auto index = open();
    Expected<UpdateReport> report = index->addRoots({tree}, {});
    ASSERT_TRUE(report) << report.error().message;
    EXPECT_EQ(report->importProblem, "cannot start the importer");
    EXPECT_EQ(find(*index, "kMDItemFSName == 'a.txt'"), std::set<std::string>{"a.txt"});
    EXPECT_TRUE(failures(*index).empty());

    importer->reachable = true;
    ASSERT_TRUE(index->update({}));
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'words'"), std::set<std::string>{"a.txt"});
}

TEST_F(ImportPassTest, AnInterruptedPassKeepsWhatIsDoneAndFinishesLater)
{
    write("a.txt", "alpha");
    write("b.txt", "beta");
    write("c.txt", "gamma");
    auto index = open();
    std::atomic<bool> cancel{false};
    importer->stopAfter = 2;
    Index::Options options;
    options.cancel = &cancel;
    Expected<UpdateReport> report = index->addRoots({tree}, options);
    ASSERT_TRUE(report);
    EXPECT_TRUE(report->crawl.cancelled);
    EXPECT_EQ(report->imported, 2u);
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'alpha' || kMDItemTextContent == 'beta' || "
                           "kMDItemTextContent == 'gamma'")
                  .size(),
              2u);

    cancel = false;
    importer->stopAfter = 0;
    importer->asked.clear();
    ASSERT_TRUE(index->update({}));
    EXPECT_EQ(importer->asked.size(), 1u);  // only what was left
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'alpha' || kMDItemTextContent == 'beta' || "
                           "kMDItemTextContent == 'gamma'")
                  .size(),
              3u);
}

TEST_F(ImportPassTest, ADatabaseOfTheFirstFormatIsUpgradedInPlace)
{
    write("a.txt", "words");
    {
        IndexServices plain = services();
        plain.importer = nullptr;
        Expected<std::unique_ptr<Index>> index = Index::openForWriting(directory, plain, true);
        ASSERT_TRUE(index);
        ASSERT_TRUE((*index)->addRoots({tree}, {}));
    }
    downgradeToFirstFormat(directory + "/index.db");
    EXPECT_FALSE(Store::open(directory + "/index.db", Store::Mode::ReadOnly));  // readers ask for an update

    auto index = open();
    Expected<IndexStatus> status = index->status();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->items, 2);  // the items were kept
    ASSERT_TRUE(index->update({}));
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'words'"), std::set<std::string>{"a.txt"});
}

TEST_F(ImportPassTest, ADatabaseOfTheSecondFormatDropsItsWholeTextsAndImportsThemAgain)
{
    write("a.txt", "words");
    write("b.bin", std::string("\x00\x01", 2));
    {
        auto index = open();
        ASSERT_TRUE(index->addRoots({tree}, {}));
    }
    downgradeToSecondFormat(directory + "/index.db");
    const std::size_t askedBefore = importer->asked.size();

    auto index = open();
    Expected<IndexStatus> status = index->status();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->imports.withText, 0) << "the whole texts are gone";
    EXPECT_EQ(status->items, 3);
    ASSERT_TRUE(index->update({}));
    EXPECT_EQ(importer->asked.size(), askedBefore + 1) << "the file with text is imported again, the other not";
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'words'"), std::set<std::string>{"a.txt"});
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((directory + "/index.db").c_str(), &db), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT count(*) FROM sqlite_master WHERE name LIKE 'text_content%'", -1,
                                 &statement, nullptr),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    EXPECT_EQ(sqlite3_column_int(statement, 0), 0);
    sqlite3_finalize(statement);
    sqlite3_close(db);
}

TEST_F(ImportPassTest, AFolderKeptForNamesOnlyHasItsContentsLeftAlone)
{
    ::mkdir((tree + "/docs").c_str(), 0755);
    ::mkdir((tree + "/media").c_str(), 0755);
    write("docs/plan.txt", "harbour plans");
    write("media/notes.txt", "harbour notes");
    auto index = open();
    Index::Options namesOnly;
    namesOnly.namesOnly = true;
    ASSERT_TRUE(index->addRoots({tree + "/media"}, namesOnly));
    ASSERT_TRUE(index->addRoots({tree + "/docs"}, {}));
    EXPECT_EQ(importer->asked, std::vector<std::string>{"plan.txt"});
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'harbour'"), std::set<std::string>{"plan.txt"});
    EXPECT_EQ(find(*index, "kMDItemFSName == 'notes.txt'"), std::set<std::string>{"notes.txt"}) << "names are there";

    // The setting is the index's: in its status, its roots file, and a rebuild.
    auto rootsNamesOnly = [&] {
        std::map<std::string, bool> roots;
        const IndexStatus status = index->status().value();
        for (const RootRecord& root : status.roots) {
            roots[root.path] = root.namesOnly;
        }
        return roots;
    };
    const std::map<std::string, bool> expected{{tree + "/docs", false}, {tree + "/media", true}};
    EXPECT_EQ(rootsNamesOnly(), expected);
    ASSERT_TRUE(index->rebuild({}));
    EXPECT_EQ(rootsNamesOnly(), expected);
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'harbour'"), std::set<std::string>{"plan.txt"});

    // Added again for names only: what was imported is forgotten; and back.
    ASSERT_TRUE(index->addRoots({tree + "/docs"}, namesOnly));
    EXPECT_TRUE(find(*index, "kMDItemTextContent == 'harbour'").empty());
    EXPECT_EQ(index->status()->imports.withText, 0);
    ASSERT_TRUE(index->addRoots({tree + "/docs"}, {}));
    EXPECT_EQ(find(*index, "kMDItemTextContent == 'harbour'"), std::set<std::string>{"plan.txt"});
}

TEST_F(ImportPassTest, TheIndexKeepsNoCopyOfTextsItCanReadBackFromTheFile)
{
    write("plain.txt", "the gallimaufry of words");
    write("converted.txt", "a gallimaufry too");
    auto index = open();
    ASSERT_TRUE(index->addRoots({tree}, {}));
    std::map<std::string, bool> copied;
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((directory + "/index.db").c_str(), &db), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT items.name, texts.packed IS NOT NULL FROM texts JOIN items ON items.id = texts.item",
                                 -1, &statement, nullptr),
              SQLITE_OK);
    while (sqlite3_step(statement) == SQLITE_ROW) {
        copied[reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))] = sqlite3_column_int(statement, 1) != 0;
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    EXPECT_EQ(copied, (std::map<std::string, bool>{{"plain.txt", false}, {"converted.txt", true}}));

    // Matches inside words are checked against the text, read back or kept.
    EXPECT_EQ(find(*index, R"(kMDItemTextContent == "*allimauf*"cd)"),
              (std::set<std::string>{"plain.txt", "converted.txt"}));
    EXPECT_EQ(find(*index, R"(kMDItemTextContent == "*from a gal*"cd)"), std::set<std::string>{"converted.txt"});
    EXPECT_EQ(find(*index, R"(kMDItemTextContent == "*of word*"cd)"), std::set<std::string>{"plain.txt"});
}

}  // namespace
}  // namespace trovara::index
