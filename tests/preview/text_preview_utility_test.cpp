// The text preview helper process and the utility that talks to it: text
// through the real helper and importers; a plug-in that crashes or hangs
// costs one file; a helper that cannot be started, never connects, never
// greets or garbles its answers is replaced or not used; the helper ends
// with the application.
#include "preview/text_preview_utility.h"

#include "preview/text_preview_manager.h"
#include "preview_test_support.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <thread>

namespace trovara::preview {
namespace {

using namespace std::chrono_literals;
using test::waitUntil;
using trovara::test::ScopedEnv;

bool processAlive(qint64 pid)
{
    return pid > 0 && ::kill(static_cast<pid_t>(pid), 0) == 0;
}

class TextPreviewUtilityTest : public ::testing::Test {
protected:
    TextPreviewUtilityTest()
        : files(trovara::test::makeTemporaryFolder(QStringLiteral("files")))
        , plugins(trovara::test::makeTemporaryFolder(QStringLiteral("plugins")))
        , pluginPath("TROVARA_IMPORTER_PATH", plugins.toLocal8Bit().constData())
        , inProcess(std::make_shared<test::ScriptedImporter>(), 1 << 20)
    {
        std::filesystem::copy_file(FAKE_PLUGIN, plugins.toStdString() + "/fake.so");
    }

    TextPreviewOptions options(const char* helper = TEXT_PREVIEW_HELPER)
    {
        TextPreviewOptions o;
        o.helperExecutable = helper;
        o.connectLimit = 20s;
        o.connectInterval = 10ms;
        o.answerLimit = 20s;
        o.abandonGrace = 50ms;
        o.inProcessManager = [this]() -> TextPreviewManager& { return inProcess; };
        return o;
    }

    std::string file(const std::string& name, const std::string& bytes = "a title\nsome words\n")
    {
        return test::writeFile(files, name, bytes);
    }

    QString files;
    QString plugins;
    ScopedEnv pluginPath;
    TextPreviewManager inProcess;
};

TEST_F(TextPreviewUtilityTest, ReadsTextThroughTheHelper)
{
    TextPreviewUtility utility(options());
    EXPECT_TRUE(utility.usesHelper());
    EXPECT_TRUE(processAlive(utility.helperProcessId()));
    EXPECT_NE(utility.helperProcessId(), QCoreApplication::applicationPid());
    const FileContents contents = utility.textContentsOfFile(file("notes.txt"));
    EXPECT_EQ(contents.outcome, FileContents::Outcome::Text);
    EXPECT_EQ(contents.text, "a title\nsome words\n");
    ASSERT_NE(index::findImported(contents.attributes, "kMDItemTitle"), nullptr);  // the plug-in's
}

TEST_F(TextPreviewUtilityTest, TheHelperSendsOnlyTheStartAskedFor)
{
    TextPreviewUtility utility(options());
    ASSERT_TRUE(utility.usesHelper());
    const std::string path = file("accents.c", "// caf\u00e9 cr\u00e8me\n");
    const FileContents start = utility.textContentsOfFile(path, nullptr, 7);  // inside the "é"
    EXPECT_EQ(start.outcome, FileContents::Outcome::Text);
    EXPECT_EQ(start.text, "// caf");
    EXPECT_TRUE(start.truncated);
    const FileContents whole = utility.textContentsOfFile(path);
    EXPECT_EQ(whole.text, "// caf\u00e9 cr\u00e8me\n");
    EXPECT_FALSE(whole.truncated);
}

TEST_F(TextPreviewUtilityTest, JapaneseTextThroughTheBuiltInImporters)
{
    std::filesystem::remove(plugins.toStdString() + "/fake.so");
    TextPreviewUtility utility(options());
    const FileContents contents = utility.textContentsOfFile(
        file("sjis.txt", "\x8d\x60\x82\xcc\x96\xe9\x96\xbe\x82\xaf\x81\x42\x93\x8c\x8b\x9e\x83\x5e\x83\x8f\x81\x5b"
                         "\x82\xcc\x93\x94\x82\xe8\x82\xaa\x8f\xc1\x82\xa6\x82\xe9\x81\x42"));
    EXPECT_EQ(contents.text, "港の夜明け。東京タワーの灯りが消える。");
    EXPECT_EQ(utility.textContentsOfFile(file("blob.bin", std::string("\x7f" "ELF\x02\x01\x01\0", 8))).outcome,
              FileContents::Outcome::NoText);
}

TEST_F(TextPreviewUtilityTest, AFileThatCrashesTheHelperCostsThatFileAlone)
{
    TextPreviewUtility utility(options());
    ASSERT_TRUE(utility.usesHelper());
    const qint64 first = utility.helperProcessId();
    const FileContents crashed = utility.textContentsOfFile(file("crash.txt"));
    EXPECT_EQ(crashed.outcome, FileContents::Outcome::Failed);
    EXPECT_EQ(crashed.problem.rfind("The text preview helper stopped while reading this file: it ", 0), 0u)
        << crashed.problem;
    EXPECT_EQ(utility.textContentsOfFile(file("after.txt")).outcome, FileContents::Outcome::Text);
    EXPECT_EQ(utility.helperStarts(), 2);
    EXPECT_NE(utility.helperProcessId(), first);
    EXPECT_TRUE(utility.usesHelper());
}

TEST_F(TextPreviewUtilityTest, AHelperThatDoesNotAnswerInTimeIsReplaced)
{
    TextPreviewOptions o = options();
    o.answerLimit = 300ms;
    TextPreviewUtility utility(o);
    const FileContents hung = utility.textContentsOfFile(file("hang.txt"));
    EXPECT_EQ(hung.outcome, FileContents::Outcome::Failed);
    EXPECT_EQ(hung.problem, "The text preview helper took longer than 0.3 s to read this file.");
    EXPECT_EQ(utility.textContentsOfFile(file("after.txt")).outcome, FileContents::Outcome::Text);
}

TEST_F(TextPreviewUtilityTest, AFileNobodyWaitsForNoLongerHoldsUpTheNext)
{
    TextPreviewOptions o = options();
    o.answerLimit = 60s;
    TextPreviewUtility utility(o);
    const std::string stalled = file("stall.txt");
    std::atomic<bool> cancel{false};
    FileContents abandoned;
    std::thread reader([&] { abandoned = utility.textContentsOfFile(stalled, &cancel); });
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(stalled + ".reading"); }));
    cancel = true;
    reader.join();
    EXPECT_EQ(abandoned.outcome, FileContents::Outcome::Cancelled);

    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(utility.textContentsOfFile(file("next.txt")).outcome, FileContents::Outcome::Text);
    EXPECT_LT(clock.elapsed(), 30000) << "the next file waited for the answer limit";
    EXPECT_EQ(utility.helperStarts(), 2);
}

TEST_F(TextPreviewUtilityTest, AHelperKilledWhileIdleIsStartedAgainForTheNextFile)
{
    TextPreviewUtility utility(options());
    ASSERT_TRUE(utility.usesHelper());
    const qint64 pid = utility.helperProcessId();
    ASSERT_GT(pid, 0);
    ::kill(static_cast<pid_t>(pid), SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return utility.helperProcessId() != pid; }));
    EXPECT_EQ(utility.textContentsOfFile(file("notes.txt")).outcome, FileContents::Outcome::Text);
    EXPECT_EQ(utility.helperStarts(), 2);
}

TEST_F(TextPreviewUtilityTest, GarbledAnswersFailTheFileAndReplaceTheHelper)
{
    ScopedEnv mode("FAKE_TEXT_PREVIEW_MODE", "garbage");
    TextPreviewUtility utility(options(FAKE_TEXT_PREVIEW_HELPER));
    ASSERT_TRUE(utility.usesHelper());
    const FileContents contents = utility.textContentsOfFile(file("notes.txt"));
    EXPECT_EQ(contents.problem, "The text preview helper sent a malformed answer.");
    EXPECT_EQ(utility.textContentsOfFile(file("notes.txt")).outcome, FileContents::Outcome::Failed);
    EXPECT_EQ(utility.helperStarts(), 2);
}

struct Unusable {
    const char* mode;  // of the fake helper; null: no such program
};

class UnusableHelper : public TextPreviewUtilityTest, public ::testing::WithParamInterface<Unusable> {};

TEST_P(UnusableHelper, IsNotUsedAndFilesAreReadInThisProcess)
{
    ScopedEnv mode("FAKE_TEXT_PREVIEW_MODE", GetParam().mode);
    TextPreviewOptions o = options(GetParam().mode ? FAKE_TEXT_PREVIEW_HELPER : "/nonexistent/trovara-text-preview");
    o.connectLimit = 300ms;
    TextPreviewUtility utility(o);
    EXPECT_FALSE(utility.usesHelper());
    const FileContents contents = utility.textContentsOfFile(file("notes.txt"));
    EXPECT_EQ(contents.text, "text from plug");  // the in-process manager's
    EXPECT_EQ(utility.helperProcessId(), 0);
}

INSTANTIATE_TEST_SUITE_P(TextPreviewUtility, UnusableHelper,
                         ::testing::Values(Unusable{nullptr}, Unusable{"exit"}, Unusable{"silent"}, Unusable{"mute"},
                                           Unusable{"version"}),
                         [](const auto& info) { return std::string(info.param.mode ? info.param.mode : "missing"); });

TEST_F(TextPreviewUtilityTest, ACallerThatStopsWaitingGetsCancelled)
{
    TextPreviewUtility utility(options());
    const std::atomic<bool> cancelled{true};
    EXPECT_EQ(utility.textContentsOfFile(file("notes.txt"), &cancelled).outcome, FileContents::Outcome::Cancelled);
    EXPECT_EQ(utility.textContentsOfFile(file("notes.txt")).outcome, FileContents::Outcome::Text);
}

TEST_F(TextPreviewUtilityTest, EndingTheUtilityEndsTheHelper)
{
    qint64 pid = 0;
    {
        TextPreviewUtility utility(options());
        ASSERT_TRUE(utility.usesHelper());
        pid = utility.helperProcessId();
        EXPECT_EQ(utility.serverIdentifier().rfind(qgetenv("XDG_RUNTIME_DIR").toStdString() + "/trovara-text-preview-", 0),
                  0u);
    }
    EXPECT_FALSE(processAlive(pid));
}

TEST_F(TextPreviewUtilityTest, TheHelperEndsWhenTheApplicationHasEnded)
{
    QProcess application;
    application.start(QStringLiteral("sleep"), {QStringLiteral("60")});
    ASSERT_TRUE(application.waitForStarted());
    QProcess helper;
    helper.start(QStringLiteral(TEXT_PREVIEW_HELPER),
                 {files + QStringLiteral("/socket"), QString::number(application.processId())});
    ASSERT_TRUE(helper.waitForStarted());
    application.kill();
    application.waitForFinished();
    EXPECT_TRUE(helper.waitForFinished(10000));
}

TEST_F(TextPreviewUtilityTest, TheHelperRefusesBadArguments)
{
    QProcess helper;
    helper.start(QStringLiteral(TEXT_PREVIEW_HELPER), {QStringLiteral("name-only")});
    ASSERT_TRUE(helper.waitForFinished());
    EXPECT_EQ(helper.exitCode(), 2);
    helper.start(QStringLiteral(TEXT_PREVIEW_HELPER), {QStringLiteral("name"), QStringLiteral("pid")});
    ASSERT_TRUE(helper.waitForFinished());
    EXPECT_EQ(helper.exitCode(), 2);
}

}  // namespace
}  // namespace trovara::preview
