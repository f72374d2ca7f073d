// A tree full of broken and hostile files, indexed with the real importer
// helper: truncated PDFs, zip bombs, random bytes under real extensions,
// empty files, one huge line, and a plug-in that crashes. The index must
// come through with every item, the good files searchable by content, and
// a clear record of every file whose import failed.
#include "fixtures.h"
#include "index/fs/type_tree.h"
#include "index/import/helper_importer.h"
#include "index/index.h"
#include "index/query/parser.h"
#include "index/search.h"
#include "index/standard_services.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>
#include <set>

namespace trovara::index {
namespace {

using test::writeBytes;

class BrokenFilesTest : public ::testing::Test {
protected:
    BrokenFilesTest()
        : tree(trovara::test::makeTemporaryFolder(QStringLiteral("tree")).toStdString())
        , directory(trovara::test::makeTemporaryFolder(QStringLiteral("index")).toStdString())
        , plugins(trovara::test::makeTemporaryFolder(QStringLiteral("plugins")).toStdString())
        , pluginPath("TROVARA_IMPORTER_PATH", plugins.c_str())
    {
        // The fake plug-in reads plain text (and crashes on "crash…" files).
        std::filesystem::copy_file(FAKE_PLUGIN, plugins + "/fake.so");
    }

    std::string path(const std::string& name) const { return tree + "/" + name; }

    IndexServices services() const
    {
        IndexServices s = standardServices();
        HelperOptions options = HelperImporter::defaultOptions();
        options.executable = TROVARA_IMPORTER;
        options.timeLimit = std::chrono::seconds(5);
        options.memoryLimit = std::uint64_t{512} << 20;
        options.textLimit = 64 * 1024;
        s.importer = std::make_shared<HelperImporter>(options);
        return s;
    }

    std::set<std::string> find(Index& index, const std::string& text)
    {
        Expected<std::shared_ptr<const Catalogue>> catalogue = index.refreshCatalogue();
        EXPECT_TRUE(catalogue);
        Expected<query::Query> parsed = query::parseQuery(text);
        EXPECT_TRUE(parsed) << text;
        const CatalogueQuery search(*catalogue, *parsed, query::QueryStart::now());
        std::set<std::string> names;
        for (const ItemIndex i : search.matches({{0, (*catalogue)->size()}})) {
            names.insert(std::string((*catalogue)->name(i)));
        }
        return names;
    }

    std::string tree;
    std::string directory;
    std::string plugins;
    trovara::test::ScopedEnv pluginPath;
};

TEST_F(BrokenFilesTest, BrokenFilesAreRecordedAndTheRestIsIndexed)
{
    std::mt19937 random(7);
    auto noise = [&](std::size_t size) {
        std::string bytes(size, '\0');
        for (char& c : bytes) {
            c = static_cast<char>(random());
        }
        return bytes;
    };
    // Good files, one per importer that reads text.
    test::writePdf(path("good.pdf"), {"harbour lights"}, {{"Title", "(Good)"}});
    test::writeZip(path("good.docx"), {{"word/document.xml", "<w:document><w:p><w:t>lantern keeper</w:t></w:p></w:document>"}});
    writeBytes(path("good.html"), "<html><body><p>tidal clock</p></body></html>");
    writeBytes(path("good.txt"), "first line\nsalt marsh\n");

    // Broken ones.
    const std::string pdf = test::readBytes(path("good.pdf"));
    writeBytes(path("cut.pdf"), pdf.substr(0, pdf.size() / 2));
    writeBytes(path("header-only.pdf"), "%PDF-1.7\n");
    std::string bomb = "<w:document><w:p><w:t>";
    bomb.append(std::size_t{64} << 20, 'a');
    bomb += "</w:t></w:p></w:document>";
    test::writeZip(path("bomb.docx"), {{"word/document.xml", bomb}});
    test::writeZip(path("bomb.epub"), {{"META-INF/container.xml", bomb}});
    bomb.clear();
    bomb.shrink_to_fit();
    for (const char* extension : {"pdf", "docx", "odt", "epub", "jpg", "png", "mp3", "flac", "eml", "html"}) {
        writeBytes(path(std::string("random.") + extension), noise(20000));
        writeBytes(path(std::string("empty.") + extension), "");
    }
    std::string line;
    while (line.size() < (std::size_t{24} << 20)) {
        line += "endless ";
    }
    writeBytes(path("huge-line.csv"), line);
    line.clear();
    line.shrink_to_fit();
    writeBytes(path("crash-on-me.txt"), "the plug-in dies here\n");

    Expected<std::unique_ptr<Index>> opened = Index::openForWriting(directory, services(), true);
    ASSERT_TRUE(opened) << opened.error().message;
    Index& index = **opened;
    Expected<UpdateReport> report = index.addRoots({tree}, {});
    ASSERT_TRUE(report) << report.error().message;
    EXPECT_TRUE(report->importProblem.empty()) << report->importProblem;

    // Nothing lost: every file is an item.
    Expected<IndexStatus> status = index.status();
    ASSERT_TRUE(status) << status.error().message;
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(tree)) {
        ++files;
    }
    EXPECT_EQ(status->items, static_cast<std::int64_t>(files + 1));

    // The good files are found by their content, the huge line by its word.
    EXPECT_EQ(find(index, "kMDItemTextContent == 'harbour'cd"), std::set<std::string>{"good.pdf"});
    EXPECT_EQ(find(index, "kMDItemTextContent == 'lantern'cd"), std::set<std::string>{"good.docx"});
    EXPECT_EQ(find(index, "kMDItemTextContent == 'tidal'cd"), std::set<std::string>{"good.html"});
    EXPECT_EQ(find(index, "kMDItemTextContent == 'marsh'cd"), std::set<std::string>{"good.txt"});
    EXPECT_EQ(find(index, "kMDItemTextContent == 'endless'cd"), std::set<std::string>{"huge-line.csv"});

    // Every failure is on record with its importer and a reason; the crash
    // may be tried again, the verdicts on damaged files are final.
    std::map<std::string, ImportFailure> failures;
    for (const ImportFailure& failure : status->importFailures) {
        EXPECT_FALSE(failure.error.empty()) << failure.path;
        EXPECT_FALSE(failure.importer.empty()) << failure.path;
        failures[failure.path.substr(failure.path.rfind('/') + 1)] = failure;
    }
    ASSERT_TRUE(failures.contains("crash-on-me.txt"));
    EXPECT_TRUE(failures["crash-on-me.txt"].willRetry);
    const std::string& crash = failures["crash-on-me.txt"].error;
    EXPECT_TRUE(crash.find("crashed") != std::string::npos || crash.find("stopped") != std::string::npos) << crash;
    for (const char* name : {"header-only.pdf", "bomb.epub", "random.docx", "random.odt", "random.epub"}) {
        if (failures.contains(name)) {
            EXPECT_FALSE(failures[name].willRetry) << name << ": " << failures[name].error;
        }
    }
    EXPECT_FALSE(failures.contains("bomb.docx")) << failures["bomb.docx"].error;
    for (const char* name : {"good.pdf", "good.docx", "good.html", "good.txt", "huge-line.csv"}) {
        EXPECT_FALSE(failures.contains(name)) << name << ": " << failures[name].error;
    }

    // Another update tries the crash again, up to the limit, and nothing else.
    for (int i = 0; i < kMaxImportAttempts; ++i) {
        ASSERT_TRUE(index.update({}));
    }
    status = index.status();
    ASSERT_TRUE(status);
    for (const ImportFailure& failure : status->importFailures) {
        EXPECT_FALSE(failure.willRetry) << failure.path;
        if (failure.path.ends_with("crash-on-me.txt")) {
            EXPECT_EQ(failure.attempts, kMaxImportAttempts);
        }
    }
}

}  // namespace
}  // namespace trovara::index
