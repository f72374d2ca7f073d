// A copy, move or link job from start to stop: its checks, its alerts and
// the answers to them, its transfers and the faults met on the way. After
// each job the files reported done are complete and every other file is
// as it was.
#include "fileops/vm_file_operation_controller.h"

#include "common/error_presenter.h"
#include "faulty_file_system.h"
#include "fileops_test_support.h"

#include <QEventLoop>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTimer>

#include <gtest/gtest.h>

#include <deque>

namespace trovara::fileops {
namespace {

using test::FaultyFileSystem;
using Call = FaultyFileSystem::Call;
using Job = VMFileOperationController;
using Phase = Job::Phase;

// Shows nothing: records every alert and presses the buttons named in
// `answers`, in order ("Stop" once they run out).
struct ScriptedAlerts {
    std::vector<query::Alert> shown;
    std::deque<QString> answers;

    query::AlertPresenter presenter()
    {
        return [this](const query::Alert& alert, std::function<void(int)> didEnd) {
            shown.push_back(alert);
            QString answer = QStringLiteral("Stop");
            if (!answers.empty()) {
                answer = answers.front();
                answers.pop_front();
            }
            didEnd(alert.buttons.indexOf(answer));
        };
    }
};

// Collects the errors the job presents (the standard presentation).
class CapturedErrors {
public:
    CapturedErrors()
    {
        m_previous = setErrorPresenter([this](const Error& error) { errors.push_back(error); });
    }
    ~CapturedErrors() { setErrorPresenter(m_previous); }
    CapturedErrors(const CapturedErrors&) = delete;
    CapturedErrors& operator=(const CapturedErrors&) = delete;

    std::vector<Error> errors;

private:
    ErrorPresenter m_previous;
};

class JobTest : public ::testing::Test {
protected:
    JobTest() { tree.mkdir(QStringLiteral("dst")); }

    std::unique_ptr<Job> makeJob(const QStringList& sources, FileOperation operation = FileOperation::Copy,
                                 int threads = 2)
    {
        QStringList paths;
        for (const QString& source : sources) {
            paths.push_back(tree.path(source));
        }
        Job::Environment environment;
        environment.fileSystem = fs;
        environment.alertPresenter = alerts.presenter();
        environment.threadCount = threads;
        environment.progressInterval = std::chrono::milliseconds(1);
        auto job = std::make_unique<Job>(paths, tree.path(QStringLiteral("dst")), operation, environment);
        QObject::connect(job.get(), &Job::phaseChanged, [this](Phase phase) { phases.push_back(phase); });
        return job;
    }

    static void runUntilStopped(Job& job)
    {
        if (job.phase() != Phase::Stopped) {
            QEventLoop loop;
            QObject::connect(&job, &Job::stopped, &loop, &QEventLoop::quit);
            QTimer::singleShot(30000, &loop, &QEventLoop::quit);
            loop.exec();
        }
        ASSERT_EQ(job.phase(), Phase::Stopped);
    }

    std::unique_ptr<Job> run(const QStringList& sources, FileOperation operation = FileOperation::Copy, int threads = 2)
    {
        auto job = makeJob(sources, operation, threads);
        runUntilStopped(*job);
        return job;
    }

    QStringList titles() const
    {
        QStringList list;
        for (const query::Alert& alert : alerts.shown) {
            list.push_back(alert.messageText + QStringLiteral(" | ") + alert.informativeText + QStringLiteral(" | ")
                           + alert.buttons.join(QLatin1Char(',')));
        }
        return list;
    }

    static QStringList succeeded(const Job& job)
    {
        QStringList names;
        for (const Job::TransferResult& result : job.transferResults()) {
            if (result.succeeded) {
                names.push_back(QFileInfo(result.destinationPath).fileName());
            }
        }
        names.sort();
        return names;
    }

    test::TempTree tree;
    std::shared_ptr<FaultyFileSystem> fs = std::make_shared<FaultyFileSystem>();
    ScriptedAlerts alerts;
    CapturedErrors captured;
    std::vector<Phase> phases;
};

TEST_F(JobTest, CopiesEveryFileThroughEveryPhase)
{
    tree.write(QStringLiteral("src/a.txt"), "A");
    tree.write(QStringLiteral("src/b.txt"), "B");
    auto job = makeJob({QStringLiteral("src/a.txt"), QStringLiteral("src/b.txt")});
    // Set up before the first turn of the event loop, as its window shows it.
    EXPECT_TRUE(job->isWindowVisible());
    EXPECT_TRUE(job->progressIndicator().animating);
    EXPECT_FALSE(job->isStopEnabled());
    EXPECT_EQ(job->topLabel(), QString());
    EXPECT_EQ(job->bottomLabel(), QString());

    QStringList topLabels;
    QObject::connect(job.get(), &Job::topLabelChanged, [&](const QString& text) { topLabels.push_back(text); });
    std::optional<Job::ProgressIndicator> atTransfer;
    QObject::connect(job.get(), &Job::phaseChanged, [&](Phase phase) {
        if (phase == Phase::Transferring) {
            atTransfer = job->progressIndicator();
        }
    });
    runUntilStopped(*job);

    EXPECT_EQ(topLabels, (QStringList{QStringLiteral("Checking destination folder"),
                                      QStringLiteral("Checking source files"), QStringLiteral("Checking for conflicts"),
                                      QStringLiteral("Copying files")}));
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::CheckingSources, Phase::CheckingConflicts, Phase::Transferring,
                                          Phase::Stopped}));
    ASSERT_TRUE(atTransfer);
    EXPECT_FALSE(atTransfer->animating);
    EXPECT_EQ(atTransfer->minimum, 0);
    EXPECT_EQ(atTransfer->maximum, 2);
    EXPECT_EQ(tree.read(QStringLiteral("dst/a.txt")), "A");
    EXPECT_EQ(tree.read(QStringLiteral("dst/b.txt")), "B");
    EXPECT_EQ(succeeded(*job), (QStringList{QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_TRUE(captured.errors.empty());
    // Stopped: window hidden, Stop enabled again, every list cleared.
    EXPECT_FALSE(job->isWindowVisible());
    EXPECT_TRUE(job->isStopEnabled());
    EXPECT_FALSE(job->progressIndicator().animating);
    EXPECT_TRUE(job->sourcePaths().isEmpty());
    EXPECT_TRUE(job->directory().isEmpty());
    EXPECT_TRUE(job->readablePaths().isEmpty());
    EXPECT_TRUE(job->sourceDestinationMappings().isEmpty());
    EXPECT_TRUE(job->destinationNames().isEmpty());
}

TEST_F(JobTest, ManyFilesAndFoldersAreEachTransferredAndReportedOnce)
{
    QStringList sources;
    for (int i = 0; i < 40; ++i) {
        const QString name = QStringLiteral("src/file-%1.txt").arg(i);
        tree.write(name, QByteArray::number(i));
        sources.push_back(name);
    }
    tree.write(QStringLiteral("src/album/a.jpg"), "A");
    tree.write(QStringLiteral("src/letters/b.txt"), "B");
    sources.insert(10, QStringLiteral("src/album"));
    sources.push_back(QStringLiteral("src/letters"));
    // A source chosen twice is transferred once.
    sources.push_back(QStringLiteral("src/file-3.txt"));
    auto job = makeJob(sources);
    QStringList reported;
    QObject::connect(job.get(), &Job::transferFinished, [&](const QString&, const QString& destination, bool ok) {
        EXPECT_TRUE(ok) << destination.toStdString();
        reported.push_back(QFileInfo(destination).fileName());
    });
    runUntilStopped(*job);

    EXPECT_EQ(reported.size(), 42);
    reported.removeDuplicates();
    EXPECT_EQ(reported.size(), 42);
    EXPECT_EQ(job->transferResults().size(), 42u);
    EXPECT_EQ(tree.entries(QStringLiteral("dst")).size(), 42);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(tree.read(QStringLiteral("dst/file-%1.txt").arg(i)), QByteArray::number(i));
    }
    EXPECT_EQ(tree.read(QStringLiteral("dst/album/a.jpg")), "A");
    EXPECT_EQ(tree.read(QStringLiteral("dst/letters/b.txt")), "B");
    EXPECT_TRUE(captured.errors.empty());
}

TEST_F(JobTest, MoveAndAliasTransferEveryFile)
{
    tree.write(QStringLiteral("src/m.txt"), "M");
    auto moved = run({QStringLiteral("src/m.txt")}, FileOperation::Move);
    EXPECT_EQ(tree.read(QStringLiteral("dst/m.txt")), "M");
    EXPECT_FALSE(tree.exists(QStringLiteral("src/m.txt")));

    tree.write(QStringLiteral("src/l.txt"), "L");
    auto linked = run({QStringLiteral("src/l.txt")}, FileOperation::Alias);
    EXPECT_EQ(QFileInfo(tree.path(QStringLiteral("dst/l.txt"))).symLinkTarget(), tree.path(QStringLiteral("src/l.txt")));
}

TEST_F(JobTest, SameNamesFromDifferentFoldersAreNumbered)
{
    struct Case {
        const char* name;
        QStringList existing;  // already in the destination folder
        QStringList sources;   // file names, each from its own folder
        QStringList expected;  // what arrives, sorted
    };
    const Case cases[] = {
        {"two and three", {}, {"notes.txt", "notes.txt", "notes.txt"}, {"notes 1.txt", "notes 2.txt", "notes.txt"}},
        {"numbered name taken", {"notes 1.txt"}, {"notes.txt", "notes.txt"}, {"notes 1.txt", "notes 2.txt", "notes.txt"}},
        {"no extension", {}, {"README", "README"}, {"README", "README 1"}},
        {"hidden file", {}, {".bashrc", ".bashrc"}, {".bashrc", ".bashrc 1"}},
        {"last extension only", {}, {"a.tar.gz", "a.tar.gz"}, {"a.tar 1.gz", "a.tar.gz"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TempTree local;
        local.mkdir(QStringLiteral("dst"));
        for (const QString& name : c.existing) {
            local.write(QStringLiteral("dst/") + name, "existing");
        }
        QStringList paths;
        for (int i = 0; i < c.sources.size(); ++i) {
            paths.push_back(local.write(QStringLiteral("from%1/%2").arg(i).arg(c.sources.at(i)), QByteArray::number(i)));
        }
        Job::Environment environment;
        environment.fileSystem = fs;
        environment.alertPresenter = alerts.presenter();
        environment.progressInterval = std::chrono::milliseconds(1);
        Job job(paths, local.path(QStringLiteral("dst")), FileOperation::Copy, environment);
        runUntilStopped(job);
        EXPECT_EQ(local.entries(QStringLiteral("dst")), c.expected);
        EXPECT_TRUE(alerts.shown.empty());
        // The first source keeps its name; later ones take the numbered ones in order.
        EXPECT_EQ(local.read(QStringLiteral("dst/") + c.sources.first()), "0");
    }
}

TEST_F(JobTest, DestinationThatCannotBeWrittenStopsBeforeAnything)
{
    tree.write(QStringLiteral("src/a.txt"), "A");
    tree.write(QStringLiteral("file.txt"), "not a folder");
    struct Case {
        const char* name;
        QString destination;
        bool unwritable;
        QString shownName;
    };
    const Case cases[] = {
        {"read-only", tree.path(QStringLiteral("dst")), true, QStringLiteral("dst")},
        {"missing", tree.path(QStringLiteral("nowhere")), false, QStringLiteral("nowhere")},
        {"a file", tree.path(QStringLiteral("file.txt")), false, QStringLiteral("file.txt")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        alerts.shown.clear();
        fs->setUnwritable(c.unwritable ? QSet<QString>{c.destination} : QSet<QString>{});
        Job::Environment environment;
        environment.fileSystem = fs;
        environment.alertPresenter = alerts.presenter();
        Job job({tree.path(QStringLiteral("src/a.txt"))}, c.destination, FileOperation::Move, environment);
        runUntilStopped(job);
        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].messageText, QStringLiteral("Destination cannot be written"));
        EXPECT_EQ(alerts.shown[0].informativeText, c.shownName + QStringLiteral(" is not a writable directory"));
        EXPECT_EQ(alerts.shown[0].buttons, QStringList{QStringLiteral("Stop")});
        EXPECT_TRUE(job.transferResults().empty());
        EXPECT_EQ(tree.read(QStringLiteral("src/a.txt")), "A");
    }
}

TEST_F(JobTest, UnreadableSourcesAreSkippedOrStopTheJob)
{
    tree.write(QStringLiteral("src/a.txt"), "A");
    tree.write(QStringLiteral("src/secret.txt"), "S");
    tree.write(QStringLiteral("src/c.txt"), "C");
    fs->setUnreadable({tree.path(QStringLiteral("src/secret.txt"))});
    const QStringList sources{QStringLiteral("src/a.txt"), QStringLiteral("src/secret.txt"), QStringLiteral("src/c.txt")};

    alerts.answers = {QStringLiteral("Skip")};
    auto skipped = run(sources);
    EXPECT_EQ(titles(), QStringList{QStringLiteral("File cannot be read | Insufficient rights for: secret.txt | Skip,Stop")});
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), (QStringList{QStringLiteral("a.txt"), QStringLiteral("c.txt")}));

    alerts.shown.clear();
    alerts.answers = {QStringLiteral("Stop")};
    QFile::remove(tree.path(QStringLiteral("dst/a.txt")));
    QFile::remove(tree.path(QStringLiteral("dst/c.txt")));
    phases.clear();
    auto stopped = run(sources);
    EXPECT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::CheckingSources, Phase::Stopped}));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
    EXPECT_TRUE(stopped->transferResults().empty());
}

TEST_F(JobTest, NoSourceOrNoReadableSourceEndsTheJobAtOnce)
{
    auto empty = run({});
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_EQ(phases, std::vector<Phase>{Phase::Stopped});

    tree.write(QStringLiteral("src/only.txt"), "O");
    fs->setUnreadable({tree.path(QStringLiteral("src/only.txt"))});
    alerts.answers = {QStringLiteral("Skip")};
    phases.clear();
    auto none = run({QStringLiteral("src/only.txt")});
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::CheckingSources, Phase::Stopped}));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
}

TEST_F(JobTest, AnExistingFileIsAskedAboutWithTheAnswersItAllows)
{
    struct Case {
        const char* name;
        bool folder;
        bool writable;
        const char* answer;
        const char* expectedAlert;
        QByteArray expectedAtDestination;
        bool expectTrashed;
    };
    const Case cases[] = {
        {"skip a file", false, true, "Skip", "File exists at destination | song.mp3 is a file | Skip,Stop,Overwrite", "old", false},
        {"stop at a file", false, true, "Stop", "File exists at destination | song.mp3 is a file | Skip,Stop,Overwrite", "old", false},
        {"overwrite a file", false, true, "Overwrite", "File exists at destination | song.mp3 is a file | Skip,Stop,Overwrite", "new", true},
        {"read-only file", false, false, "Skip", "File exists at destination | song.mp3 is a file | Skip,Stop", "old", false},
        {"folder", true, true, "Skip", "File exists at destination | song.mp3 is a folder | Skip,Stop", "<missing>", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TempTree local;
        local.write(QStringLiteral("src/song.mp3"), "new");
        local.write(QStringLiteral("src/other.mp3"), "other");
        const QString existing = c.folder ? local.mkdir(QStringLiteral("dst/song.mp3"))
                                          : local.write(QStringLiteral("dst/song.mp3"), "old");
        fs->setUnwritable(c.writable ? QSet<QString>{} : QSet<QString>{existing});
        const QStringList trashedBefore = test::trashedNames();
        alerts.shown.clear();
        alerts.answers = {QString::fromLatin1(c.answer)};
        Job::Environment environment;
        environment.fileSystem = fs;
        environment.alertPresenter = alerts.presenter();
        environment.progressInterval = std::chrono::milliseconds(1);
        Job job({local.path(QStringLiteral("src/song.mp3")), local.path(QStringLiteral("src/other.mp3"))},
                local.path(QStringLiteral("dst")), FileOperation::Copy, environment);
        runUntilStopped(job);
        EXPECT_EQ(titles(), QStringList{QString::fromLatin1(c.expectedAlert)});
        if (c.folder) {
            EXPECT_TRUE(QFileInfo(existing).isDir());
        } else {
            EXPECT_EQ(local.read(QStringLiteral("dst/song.mp3")), c.expectedAtDestination);
        }
        const bool stopped = QByteArray(c.answer) == "Stop";
        EXPECT_EQ(local.exists(QStringLiteral("dst/other.mp3")), !stopped);
        EXPECT_EQ(local.read(QStringLiteral("src/song.mp3")), "new");
        EXPECT_EQ(int(test::trashedNames().size() - trashedBefore.size()), c.expectTrashed ? 1 : 0);
    }
}

TEST_F(JobTest, OverwriteAppliesToOneFileOnly)
{
    tree.write(QStringLiteral("src/one.txt"), "new1");
    tree.write(QStringLiteral("src/two.txt"), "new2");
    tree.write(QStringLiteral("dst/one.txt"), "old1");
    tree.write(QStringLiteral("dst/two.txt"), "old2");
    alerts.answers = {QStringLiteral("Overwrite"), QStringLiteral("Skip")};
    auto job = run({QStringLiteral("src/one.txt"), QStringLiteral("src/two.txt")});
    EXPECT_EQ(alerts.shown.size(), 2u);
    EXPECT_EQ(tree.read(QStringLiteral("dst/one.txt")), "new1");
    EXPECT_EQ(tree.read(QStringLiteral("dst/two.txt")), "old2");
}

TEST_F(JobTest, SkippingEveryConflictEndsWithoutTransfers)
{
    tree.write(QStringLiteral("src/a.txt"), "new");
    tree.write(QStringLiteral("dst/a.txt"), "old");
    alerts.answers = {QStringLiteral("Skip")};
    auto job = run({QStringLiteral("src/a.txt")});
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::CheckingSources, Phase::CheckingConflicts, Phase::Stopped}));
    EXPECT_EQ(tree.read(QStringLiteral("dst/a.txt")), "old");
}

TEST_F(JobTest, ASourceThatIsTheDestinationIsNeverOfferedForOverwriting)
{
    const QString inPlace = tree.write(QStringLiteral("dst/here.txt"), "mine");
    for (const FileOperation operation : {FileOperation::Copy, FileOperation::Move, FileOperation::Alias}) {
        SCOPED_TRACE(int(operation));
        alerts.shown.clear();
        alerts.answers = {QStringLiteral("Skip")};
        auto job = run({QStringLiteral("dst/here.txt")}, operation);
        EXPECT_EQ(titles(), QStringList{QStringLiteral("File exists at destination | here.txt is a file | Skip,Stop")});
        EXPECT_EQ(tree.read(QStringLiteral("dst/here.txt")), "mine");
        EXPECT_FALSE(QFileInfo(inPlace).isSymLink());
    }
}

TEST_F(JobTest, AFolderIsNotCopiedOrMovedIntoItself)
{
    tree.write(QStringLiteral("dst/project/main.cpp"), "int main() {}");
    tree.mkdir(QStringLiteral("dst/project/build"));
    for (const FileOperation operation : {FileOperation::Copy, FileOperation::Move}) {
        alerts.shown.clear();
        Job::Environment environment;
        environment.fileSystem = fs;
        environment.alertPresenter = alerts.presenter();
        Job job({tree.path(QStringLiteral("dst/project"))}, tree.path(QStringLiteral("dst/project/build")), operation,
                environment);
        runUntilStopped(job);
        const QString verb = operation == FileOperation::Move ? QStringLiteral("moved") : QStringLiteral("copied");
        EXPECT_EQ(titles(), QStringList{QStringLiteral("Folder cannot be %1 into itself | project contains the "
                                                       "destination folder | Skip,Stop")
                                            .arg(verb)});
        EXPECT_EQ(tree.entries(QStringLiteral("dst/project")),
                  (QStringList{QStringLiteral("build"), QStringLiteral("main.cpp")}));
        EXPECT_EQ(tree.entries(QStringLiteral("dst/project/build")), QStringList{});
    }
}

TEST_F(JobTest, TransferErrorsAreShownAndTheOtherTransfersGoOn)
{
    tree.write(QStringLiteral("src/a.txt"), QByteArray(1000, 'a'));
    tree.write(QStringLiteral("src/full.txt"), QByteArray(1000, 'f'));
    tree.write(QStringLiteral("src/c.txt"), QByteArray(1000, 'c'));
    fs->setHook([](Call call, const QString& path, const std::atomic<bool>*) {
        return call == Call::CopyFile && path.endsWith(QStringLiteral("full.txt")) ? ENOSPC : 0;
    });
    auto job = run({QStringLiteral("src/a.txt"), QStringLiteral("src/full.txt"), QStringLiteral("src/c.txt")});
    ASSERT_EQ(captured.errors.size(), 1u);
    EXPECT_EQ(captured.errors[0].description, QStringLiteral("The file \"full.txt\" could not be copied to \"dst\"."));
    EXPECT_EQ(captured.errors[0].reason, QStringLiteral("No space left on device"));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), (QStringList{QStringLiteral("a.txt"), QStringLiteral("c.txt")}));
    EXPECT_EQ(succeeded(*job), (QStringList{QStringLiteral("a.txt"), QStringLiteral("c.txt")}));
    EXPECT_EQ(job->transferResults().size(), 3u);
}

TEST_F(JobTest, ASourceDeletedMidJobIsReportedAndTheRestArrive)
{
    tree.write(QStringLiteral("src/a.txt"), "A");
    const QString doomed = tree.write(QStringLiteral("src/b.txt"), "B");
    // The first transfer deletes the second source before its turn.
    fs->setHook([doomed](Call call, const QString& path, const std::atomic<bool>*) {
        if (call == Call::Rename && path.endsWith(QStringLiteral("a.txt"))) {
            QFile::remove(doomed);
        }
        return 0;
    });
    auto job = run({QStringLiteral("src/a.txt"), QStringLiteral("src/b.txt")}, FileOperation::Move, 1);
    ASSERT_EQ(captured.errors.size(), 1u);
    EXPECT_EQ(captured.errors[0].description, QStringLiteral("The file \"b.txt\" could not be moved to \"dst\"."));
    EXPECT_EQ(captured.errors[0].reason, QStringLiteral("No such file or directory"));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("a.txt")});
    EXPECT_EQ(succeeded(*job), QStringList{QStringLiteral("a.txt")});
}

TEST_F(JobTest, ASourceMadeUnreadableMidJobIsReported)
{
    tree.write(QStringLiteral("src/a.txt"), "A");
    fs->setHook([](Call call, const QString&, const std::atomic<bool>*) {
        return call == Call::CopyFile ? EACCES : 0;
    });
    auto job = run({QStringLiteral("src/a.txt")});
    ASSERT_EQ(captured.errors.size(), 1u);
    EXPECT_EQ(captured.errors[0].reason, QStringLiteral("Permission denied"));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
    EXPECT_EQ(tree.read(QStringLiteral("src/a.txt")), "A");
}

TEST_F(JobTest, OverwriteWithATrashOnAnotherFileSystemKeepsTheExistingFile)
{
    tree.write(QStringLiteral("src/a.txt"), "new");
    tree.write(QStringLiteral("dst/a.txt"), "old");
    fs->setHook([](Call call, const QString&, const std::atomic<bool>*) {
        return call == Call::MoveToTrash ? EXDEV : 0;
    });
    alerts.answers = {QStringLiteral("Overwrite")};
    auto job = run({QStringLiteral("src/a.txt")}, FileOperation::Move);
    ASSERT_EQ(captured.errors.size(), 1u);
    EXPECT_EQ(captured.errors[0].description, QStringLiteral("Cannot delete conflicting file"));
    EXPECT_EQ(tree.read(QStringLiteral("dst/a.txt")), "old");
    EXPECT_EQ(tree.read(QStringLiteral("src/a.txt")), "new");
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("a.txt")});
}

TEST_F(JobTest, StopMidFileLetsTheRunningTransferFinishAndCancelsTheRest)
{
    tree.write(QStringLiteral("src/1.bin"), QByteArray(100000, '1'));
    tree.write(QStringLiteral("src/2.bin"), "2");
    tree.write(QStringLiteral("src/3.bin"), "3");
    test::HeldCopy held(*fs, QStringLiteral("1.bin"));
    auto job = makeJob({QStringLiteral("src/1.bin"), QStringLiteral("src/2.bin"), QStringLiteral("src/3.bin")},
                       FileOperation::Copy, 1);
    QObject::connect(job.get(), &Job::phaseChanged, [&](Phase phase) {
        if (phase != Phase::Transferring) {
            return;
        }
        // Stop is pressed while the first file is being copied.
        QTimer::singleShot(0, job.get(), [&] {
            held.waitUntilStarted();
            EXPECT_EQ(job->remainingOperationCount(), 3);
            job->stopButtonPressed();
            EXPECT_EQ(job->remainingOperationCount(), 1);
            held.release();
        });
    });
    runUntilStopped(*job);
    EXPECT_EQ(succeeded(*job), QStringList{QStringLiteral("1.bin")});
    EXPECT_EQ(tree.read(QStringLiteral("dst/1.bin")), QByteArray(100000, '1'));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("1.bin")});
    EXPECT_EQ(tree.entries(QStringLiteral("src")),
              (QStringList{QStringLiteral("1.bin"), QStringLiteral("2.bin"), QStringLiteral("3.bin")}));
}

TEST_F(JobTest, ProgressCountsFinishedTransfers)
{
    tree.write(QStringLiteral("src/1.txt"), "1");
    tree.write(QStringLiteral("src/2.txt"), "2");
    QSemaphore hold;
    fs->setHook([&](Call call, const QString& path, const std::atomic<bool>*) {
        if (call == Call::CopyFile && path.endsWith(QStringLiteral("2.txt"))) {
            hold.acquire();
        }
        return 0;
    });
    auto job = makeJob({QStringLiteral("src/1.txt"), QStringLiteral("src/2.txt")}, FileOperation::Copy, 1);
    std::vector<double> values;
    bool released = false;
    QObject::connect(job.get(), &Job::progressChanged, [&] {
        const auto& progress = job->progressIndicator();
        if (!progress.indeterminate && (values.empty() || values.back() != progress.value)) {
            values.push_back(progress.value);
        }
        // The label names the transfer under way once it has begun.
        if (progress.value == 1 && job->bottomLabel() == QStringLiteral("2.txt") && !released) {
            released = true;
            hold.release();
        }
    });
    runUntilStopped(*job);
    EXPECT_EQ(values, (std::vector<double>{0, 1}));
}

TEST_F(JobTest, DestroyingARunningJobAbortsItsCopiesCleanly)
{
    tree.write(QStringLiteral("src/big.bin"), QByteArray(100000, 'b'));
    QSemaphore started;
    fs->setHook([&](Call call, const QString&, const std::atomic<bool>* abort) {
        if (call == Call::CopyFile) {
            started.release();
            while (abort && !abort->load()) {
                QThread::yieldCurrentThread();
            }
        }
        return 0;
    });
    auto job = makeJob({QStringLiteral("src/big.bin")}, FileOperation::Copy);
    QObject::connect(job.get(), &Job::phaseChanged, [&](Phase phase) {
        if (phase == Phase::Transferring) {
            QTimer::singleShot(0, [&] {
                started.acquire();
                job.reset();
            });
        }
    });
    QEventLoop loop;
    QObject::connect(job.get(), &QObject::destroyed, &loop, &QEventLoop::quit);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_EQ(job, nullptr);
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
    EXPECT_EQ(tree.read(QStringLiteral("src/big.bin")), QByteArray(100000, 'b'));
    EXPECT_TRUE(captured.errors.empty());
}

}  // namespace
}  // namespace trovara::fileops
