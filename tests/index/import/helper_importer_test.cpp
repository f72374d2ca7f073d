// Importers in helper processes: a plug-in that crashes, hangs, hogs
// memory, floods or prints costs the file it was given and nothing else; a
// helper that garbles the protocol is replaced; limits hold.
#include "index/import/helper_importer.h"
#include "test_support.h"

#include <QDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace trovara::index {
namespace {

using trovara::test::ScopedEnv;

struct Imported {
    std::map<std::string, ImportOutcome> byName;

    const ImportOutcome& operator[](const std::string& name) const { return byName.at(name); }
};

class HelperImporterTest : public ::testing::Test {
protected:
    HelperImporterTest()
        : files(trovara::test::makeTemporaryFolder(QStringLiteral("files")).toStdString())
        , plugins(trovara::test::makeTemporaryFolder(QStringLiteral("plugins")).toStdString())
        , pluginPath("TROVARA_IMPORTER_PATH", plugins.c_str())
    {
        std::filesystem::copy_file(FAKE_PLUGIN, plugins + "/fake.so");
    }

    std::string file(const std::string& name, const std::string& content = "a title\nsome words\n")
    {
        const std::string path = files + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    HelperOptions options(const char* executable = TROVARA_IMPORTER)
    {
        HelperOptions o;
        o.executable = executable;
        o.timeLimit = std::chrono::milliseconds(4000);
        o.memoryLimit = std::uint64_t{256} << 20;
        o.textLimit = 4096;
        return o;
    }

    Imported run(HelperImporter& importer, const std::vector<std::string>& names, const std::string& using_ = "fake")
    {
        std::vector<ImportJob> jobs;
        std::int64_t id = 1;
        for (const std::string& name : names) {
            jobs.push_back({id++, file(name), "text/plain", using_});
        }
        Imported result;
        Expected<void> done = importer.importFiles(jobs, [&](const ImportJob& job, ImportOutcome&& outcome) {
            result.byName.emplace(job.path.substr(job.path.rfind('/') + 1), std::move(outcome));
        });
        EXPECT_TRUE(done) << done.error().message;
        EXPECT_EQ(result.byName.size(), names.size());
        return result;
    }

    std::string files;
    std::string plugins;
    ScopedEnv pluginPath;
};

TEST_F(HelperImporterTest, OffersPlugInsBeforeTheBuiltInImporters)
{
    HelperImporter importer(options());
    Expected<std::vector<ImporterInfo>> importers = importer.importers();
    ASSERT_TRUE(importers) << importers.error().message;
    ASSERT_FALSE(importers->empty());
    EXPECT_EQ(importers->front().name, "fake");
    EXPECT_TRUE(importers->front().isPlugin());
    // A plain text file goes to the plug-in: it names public.plain-text,
    // nearer the file's type than the built-in text importer's public.text.
    const ImporterInfo* chosen = chooseImporter(*importers, describeMimeType("text/plain"));
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen->name, "fake");
    // Others still get the built-in ones.
    EXPECT_EQ(chooseImporter(*importers, describeMimeType("application/pdf"))->name, "pdf");
    EXPECT_EQ(chooseImporter(*importers, describeMimeType("text/x-csrc"))->name, "fake");
    EXPECT_EQ(chooseImporter(*importers, describeMimeType("text/html"))->name, "html");
    EXPECT_EQ(chooseImporter(*importers, describeMimeType("image/png"))->name, "image");
    EXPECT_EQ(chooseImporter(*importers, describeMimeType("application/x-sqlite3")), nullptr);
}

TEST_F(HelperImporterTest, AMisbehavingImporterCostsOnlyItsFile)
{
    // Nothing here hangs, so no time limit should ever be reached: the hog is
    // stopped by the memory limit, however long a loaded machine takes to
    // fill it (the hanging importer has a test of its own, below).
    HelperOptions o = options();
    o.timeLimit = std::chrono::minutes(10);
    HelperImporter importer(o);
    const Imported result = run(importer, {"good-1.txt", "crash.txt", "good-2.txt", "good-3.txt", "hog.txt",
                                           "good-4.txt", "refuse.txt", "print.txt", "flood.txt"});

    for (const char* good : {"good-1.txt", "good-2.txt", "good-3.txt", "good-4.txt", "print.txt"}) {
        const ImportOutcome& outcome = result[good];
        ASSERT_TRUE(outcome.imported) << good << ": " << outcome.error;
        ASSERT_FALSE(outcome.attributes.empty());
        EXPECT_EQ(outcome.attributes.front().key, "kMDItemTitle");
        EXPECT_EQ(outcome.text, "a title\nsome words\n");
    }
    EXPECT_FALSE(result["crash.txt"].imported);
    EXPECT_TRUE(result["crash.txt"].mayRetry);
    // A crash is told as such; under the address sanitizer, whose handler
    // turns the signal into an exit, as an importer that stopped.
    EXPECT_TRUE(result["crash.txt"].error.find("crashed") != std::string::npos
                || result["crash.txt"].error.find("stopped") != std::string::npos)
        << result["crash.txt"].error;
    EXPECT_FALSE(result["hog.txt"].imported);
    EXPECT_TRUE(result["hog.txt"].mayRetry);
    EXPECT_NE(result["hog.txt"].error.find("memory"), std::string::npos) << result["hog.txt"].error;
    // A refusal is a verdict on the file, not a mishap.
    EXPECT_FALSE(result["refuse.txt"].imported);
    EXPECT_FALSE(result["refuse.txt"].mayRetry);
    EXPECT_EQ(result["refuse.txt"].error, "this file is not to my taste");
    // A flood stops at the text limit.
    ASSERT_TRUE(result["flood.txt"].imported) << result["flood.txt"].error;
    EXPECT_EQ(result["flood.txt"].text->size(), 4096u);
    EXPECT_TRUE(result["flood.txt"].truncated);
}

TEST_F(HelperImporterTest, AHangingImporterIsStoppedAtTheTimeLimitAndCostsOnlyItsFile)
{
    HelperImporter importer(options());
    const Imported result = run(importer, {"good-1.txt", "hang.txt", "good-2.txt"});
    for (const char* good : {"good-1.txt", "good-2.txt"}) {
        ASSERT_TRUE(result[good].imported) << good << ": " << result[good].error;
        EXPECT_EQ(result[good].text, "a title\nsome words\n");
    }
    EXPECT_FALSE(result["hang.txt"].imported);
    EXPECT_TRUE(result["hang.txt"].mayRetry);
    EXPECT_NE(result["hang.txt"].error.find("longer than"), std::string::npos) << result["hang.txt"].error;
}

TEST_F(HelperImporterTest, SeveralHelpersShareTheWorkAndAreKeptForTheNextBatch)
{
    HelperOptions o = options();
    o.processes = 2;
    HelperImporter importer(o);
    std::vector<std::string> names;
    for (int i = 0; i < 20; ++i) {
        names.push_back("file-" + std::to_string(i) + ".txt");
    }
    names.push_back("crash-in-the-middle.txt");
    const Imported first = run(importer, names);
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(first["file-" + std::to_string(i) + ".txt"].imported);
    }
    const Imported second = run(importer, {"again.txt"});
    EXPECT_TRUE(second["again.txt"].imported);
}

TEST_F(HelperImporterTest, AHelperThatGarblesTheProtocolIsReplaced)
{
    HelperImporter importer(options(FAKE_HELPER));
    const Imported result = run(importer, {"fine-1.txt", "garbage.txt", "fine-2.txt", "huge.txt", "wrongid.txt",
                                           "exit.txt", "slow.txt", "fine-3.txt"});
    for (const char* fine : {"fine-1.txt", "fine-2.txt", "slow.txt", "fine-3.txt"}) {
        EXPECT_TRUE(result[fine].imported) << fine << ": " << result[fine].error;
    }
    for (const char* bad : {"garbage.txt", "huge.txt", "wrongid.txt"}) {
        EXPECT_FALSE(result[bad].imported) << bad;
        EXPECT_TRUE(result[bad].mayRetry) << bad;
        EXPECT_NE(result[bad].error.find("malformed"), std::string::npos) << bad << ": " << result[bad].error;
    }
    EXPECT_FALSE(result["exit.txt"].imported);
    EXPECT_NE(result["exit.txt"].error.find("exit status 3"), std::string::npos) << result["exit.txt"].error;
}

TEST_F(HelperImporterTest, CancellingLeavesTheRestUndone)
{
    HelperImporter importer(options(FAKE_HELPER));
    std::atomic<bool> cancel{false};
    int reported = 0;
    std::vector<ImportJob> jobs;
    for (int i = 0; i < 5; ++i) {
        jobs.push_back({i, file("slow-" + std::to_string(i) + ".txt"), "text/plain", "fake"});
    }
    Expected<void> done = importer.importFiles(jobs, [&](const ImportJob&, ImportOutcome&&) {
        ++reported;
        cancel = true;
    }, &cancel);
    EXPECT_TRUE(done);
    EXPECT_EQ(reported, 1);
}

TEST_F(HelperImporterTest, AMissingHelperProgramIsAFailureOfTheWholeBatch)
{
    HelperImporter importer(options("/nonexistent/trovara-importer"));
    EXPECT_FALSE(importer.importers());
    int reported = 0;
    Expected<void> done = importer.importFiles({{1, file("a.txt"), "text/plain", "fake"}},
                                               [&](const ImportJob&, ImportOutcome&&) { ++reported; });
    EXPECT_FALSE(done);
    EXPECT_EQ(reported, 0);  // no file is blamed for it
}

TEST(HelperOptions, ReadLimitsFromTheEnvironment)
{
    EXPECT_EQ(parseByteCount("10M"), std::uint64_t{10} << 20);
    EXPECT_EQ(parseByteCount("512K"), std::uint64_t{512} << 10);
    EXPECT_EQ(parseByteCount("1G"), std::uint64_t{1} << 30);
    EXPECT_EQ(parseByteCount("12345"), 12345u);
    EXPECT_FALSE(parseByteCount("ten"));
    EXPECT_FALSE(parseByteCount("5X"));
    EXPECT_FALSE(parseByteCount("99999999999999999999G"));

    ScopedEnv text("TROVARA_TEXT_LIMIT", "2M");
    ScopedEnv time("TROVARA_IMPORT_TIME_LIMIT", "5");
    EXPECT_EQ(HelperImporter::defaultOptions().textLimit, std::uint64_t{2} << 20);
    EXPECT_EQ(HelperImporter::defaultOptions().timeLimit, std::chrono::seconds(5));
}

}  // namespace
}  // namespace trovara::index
