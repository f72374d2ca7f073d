// One transfer at a time: copies arrive whole or not at all, moves never lose
// the source, overwritten entries go to the Trash, and every fault leaves
// the source as it was and nothing half-written at the destination.
#include "fileops/operation_queue.h"
#include "fileops/temporary_files.h"
#include "fileops/transfer.h"

#include "faulty_file_system.h"
#include "fileops_test_support.h"

#include <QFileInfo>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <numeric>
#include <vector>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace trovara::fileops {
namespace {

using test::FaultyFileSystem;
using Call = FaultyFileSystem::Call;

// No file of the job's own ("….partial") is left in a folder.
void expectNoPartials(const test::TempTree& tree, const QString& folder)
{
    for (const QString& name : tree.entries(folder)) {
        EXPECT_FALSE(name.endsWith(QStringLiteral(".partial"))) << name.toStdString();
    }
}

class TransferTest : public ::testing::Test {
protected:
    Status transfer(FileOperation operation, const QString& source, const QString& destination)
    {
        return performTransfer(fs, operation, tree.path(source), tree.path(destination));
    }

    test::TempTree tree;
    FaultyFileSystem fs;
};

TEST_F(TransferTest, CopyKeepsBytesPermissionsTimesAndUserAttributes)
{
    const QString source = tree.write(QStringLiteral("src/report.txt"), "quarterly figures");
    ::chmod(QFile::encodeName(source).constData(), 0640);
    QFile(source).setFileTime(QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7), Qt::UTC), QFileDevice::FileModificationTime);
    const bool attributes = ::setxattr(QFile::encodeName(source).constData(), "user.xdg.tags", "red,work", 8, 0) == 0;
    tree.mkdir(QStringLiteral("dst"));

    ASSERT_TRUE(transfer(FileOperation::Copy, QStringLiteral("src/report.txt"), QStringLiteral("dst/report.txt")));

    const QString copy = tree.path(QStringLiteral("dst/report.txt"));
    EXPECT_EQ(tree.read(QStringLiteral("dst/report.txt")), "quarterly figures");
    EXPECT_EQ(tree.read(QStringLiteral("src/report.txt")), "quarterly figures");
    EXPECT_EQ(QFileInfo(copy).permissions(), QFileInfo(source).permissions());
    EXPECT_EQ(QFileInfo(copy).lastModified(), QFileInfo(source).lastModified());
    if (attributes) {
        char value[16] = {};
        EXPECT_EQ(::getxattr(QFile::encodeName(copy).constData(), "user.xdg.tags", value, sizeof value), 8);
        EXPECT_STREQ(value, "red,work");
    }
    expectNoPartials(tree, QStringLiteral("dst"));
}

TEST_F(TransferTest, FilesThatTellNoSizeAreCopiedToTheirEnd)
{
    tree.mkdir(QStringLiteral("dst"));
    tree.write(QStringLiteral("src/empty"), "");
    ASSERT_TRUE(performTransfer(fs, FileOperation::Copy, QStringLiteral("/proc/version"),
                                tree.path(QStringLiteral("dst/version"))));
    QFile proc(QStringLiteral("/proc/version"));
    ASSERT_TRUE(proc.open(QIODevice::ReadOnly));
    EXPECT_EQ(tree.read(QStringLiteral("dst/version")), proc.readAll());
    ASSERT_TRUE(transfer(FileOperation::Copy, QStringLiteral("src/empty"), QStringLiteral("dst/empty")));
    EXPECT_EQ(tree.read(QStringLiteral("dst/empty")), "");
}

TEST_F(TransferTest, CopyOfAFolderTakesItsTreeWithLinksAsLinks)
{
    tree.write(QStringLiteral("src/album/a.jpg"), "A");
    tree.write(QStringLiteral("src/album/deep/b.jpg"), "BB");
    tree.mkdir(QStringLiteral("src/album/empty"));
    QFile::link(QStringLiteral("a.jpg"), tree.path(QStringLiteral("src/album/cover")));
    ::chmod(QFile::encodeName(tree.path(QStringLiteral("src/album/deep"))).constData(), 0555);
    tree.mkdir(QStringLiteral("dst"));

    ASSERT_TRUE(transfer(FileOperation::Copy, QStringLiteral("src/album"), QStringLiteral("dst/album")));

    EXPECT_EQ(tree.read(QStringLiteral("dst/album/a.jpg")), "A");
    EXPECT_EQ(tree.read(QStringLiteral("dst/album/deep/b.jpg")), "BB");
    EXPECT_TRUE(QFileInfo(tree.path(QStringLiteral("dst/album/empty"))).isDir());
    EXPECT_EQ(QFileInfo(tree.path(QStringLiteral("dst/album/cover"))).symLinkTarget(),
              tree.path(QStringLiteral("dst/album/a.jpg")));
    EXPECT_EQ(QFileInfo(tree.path(QStringLiteral("dst/album/deep"))).permissions() & 0x7777,
              QFileInfo(tree.path(QStringLiteral("src/album/deep"))).permissions() & 0x7777);
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("album")});
}

TEST_F(TransferTest, MoveOnOneFileSystemRenamesTheSameFile)
{
    const QString source = tree.write(QStringLiteral("src/big.iso"), "data");
    tree.mkdir(QStringLiteral("dst"));
    struct stat before {};
    ::stat(QFile::encodeName(source).constData(), &before);

    ASSERT_TRUE(transfer(FileOperation::Move, QStringLiteral("src/big.iso"), QStringLiteral("dst/big.iso")));

    struct stat after {};
    ::stat(QFile::encodeName(tree.path(QStringLiteral("dst/big.iso"))).constData(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_FALSE(tree.exists(QStringLiteral("src/big.iso")));
}

// Another file system is simulated by a rename that answers EXDEV.
class MoveAcrossFileSystemsTest : public TransferTest {
protected:
    void SetUp() override
    {
        tree.write(QStringLiteral("src/photos/one.jpg"), "11111");
        tree.write(QStringLiteral("src/photos/two.jpg"), "22");
        tree.mkdir(QStringLiteral("dst"));
        source = tree.path(QStringLiteral("src/photos"));
    }
    void crossDevice(std::function<int(Call, const QString&)> more = {})
    {
        fs.setHook([this, more](Call call, const QString& path, const std::atomic<bool>*) {
            if (call == Call::Rename && path == source) {
                return EXDEV;
            }
            return more ? more(call, path) : 0;
        });
    }
    Status move()
    {
        return transfer(FileOperation::Move, QStringLiteral("src/photos"), QStringLiteral("dst/photos"));
    }
    void expectSourceUntouchedAndNothingArrived()
    {
        EXPECT_EQ(tree.read(QStringLiteral("src/photos/one.jpg")), "11111");
        EXPECT_EQ(tree.read(QStringLiteral("src/photos/two.jpg")), "22");
        EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
    }

    QString source;
};

TEST_F(MoveAcrossFileSystemsTest, CopiesVerifiesThenRemovesTheSource)
{
    crossDevice();
    ASSERT_TRUE(move());
    EXPECT_EQ(tree.read(QStringLiteral("dst/photos/one.jpg")), "11111");
    EXPECT_EQ(tree.read(QStringLiteral("dst/photos/two.jpg")), "22");
    EXPECT_FALSE(tree.exists(QStringLiteral("src/photos")));
    expectNoPartials(tree, QStringLiteral("dst"));
}

TEST_F(MoveAcrossFileSystemsTest, DestinationFullKeepsTheSourceAndLeavesNoPartialCopy)
{
    crossDevice([](Call call, const QString& path) {
        return call == Call::CopyFile && path.endsWith(QStringLiteral("two.jpg")) ? ENOSPC : 0;
    });
    const Status status = move();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().code, ENOSPC);
    EXPECT_EQ(status.error().description, QStringLiteral("The file \"photos\" could not be moved to \"dst\"."));
    EXPECT_TRUE(status.error().reason.endsWith(QStringLiteral("No space left on device")))
        << status.error().reason.toStdString();
    expectSourceUntouchedAndNothingArrived();
}

TEST_F(MoveAcrossFileSystemsTest, ASourceThatChangesWhileCopiedIsKept)
{
    const QString grower = tree.path(QStringLiteral("src/photos/one.jpg"));
    crossDevice([grower](Call call, const QString& path) {
        if (call == Call::CopyAttributes && path.endsWith(QStringLiteral("photos"))) {
            QFile file(grower);
            file.open(QIODevice::Append);
            file.write("more");
        }
        return 0;
    });
    const Status status = move();
    ASSERT_FALSE(status);
    EXPECT_TRUE(status.error().reason.contains(QStringLiteral("changed while it was copied")));
    EXPECT_EQ(tree.read(QStringLiteral("src/photos/one.jpg")), "11111more");
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
}

TEST_F(MoveAcrossFileSystemsTest, AnOriginalThatCannotBeRemovedLeavesBothCopiesWhole)
{
    crossDevice([this](Call call, const QString& path) {
        return call == Call::Remove && path.startsWith(source) ? EACCES : 0;
    });
    const Status status = move();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().description,
              QStringLiteral("The file \"photos\" was copied to \"dst\", but the original could not be removed."));
    EXPECT_EQ(tree.read(QStringLiteral("dst/photos/one.jpg")), "11111");
    EXPECT_EQ(tree.read(QStringLiteral("src/photos/one.jpg")), "11111");
}

TEST_F(TransferTest, FaultsDuringACopyLeaveTheSourceAndNoPartialFile)
{
    struct Case {
        const char* name;
        Call call;
        int error;
        const char* reasonEnd;
        int size;
    };
    // Only a large file is renamed into place; a small one is written
    // under its own name.
    const int large = 9 * 1024 * 1024;
    const Case cases[] = {
        {"destination full", Call::CopyFile, ENOSPC, "No space left on device", 4096},
        {"destination read-only", Call::CopyFile, EROFS, "Read-only file system", 4096},
        {"source unreadable", Call::CopyFile, EACCES, "Permission denied", 4096},
        {"large file, destination full", Call::CopyFile, ENOSPC, "No space left on device", large},
        {"large file, rename refused", Call::Rename, EIO, "Input/output error", large},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TempTree local;
        const QByteArray bytes(c.size, 'm');
        local.write(QStringLiteral("src/movie.mkv"), bytes);
        local.mkdir(QStringLiteral("dst"));
        fs.setHook([&](Call call, const QString&, const std::atomic<bool>*) { return call == c.call ? c.error : 0; });
        const Status status = performTransfer(fs, FileOperation::Copy, local.path(QStringLiteral("src/movie.mkv")),
                                              local.path(QStringLiteral("dst/movie.mkv")));
        ASSERT_FALSE(status);
        EXPECT_EQ(status.error().code, c.error);
        EXPECT_TRUE(status.error().reason.endsWith(QString::fromLatin1(c.reasonEnd)))
            << status.error().reason.toStdString();
        EXPECT_EQ(local.read(QStringLiteral("src/movie.mkv")), bytes);
        EXPECT_EQ(local.entries(QStringLiteral("dst")), QStringList{});
    }
}

TEST_F(TransferTest, SmallFilesArriveUnderTheirNameLargeOnesAreRenamedIntoPlace)
{
    tree.mkdir(QStringLiteral("dst"));
    QStringList renamed;
    fs.setHook([&](Call call, const QString& path, const std::atomic<bool>*) {
        if (call == Call::Rename) {
            renamed.push_back(QFileInfo(path).fileName());
        }
        return 0;
    });
    const QByteArray small(8 * 1024 * 1024, 's');
    const QByteArray large(small.size() + 1, 'l');
    tree.write(QStringLiteral("src/small.bin"), small);
    tree.write(QStringLiteral("src/large.bin"), large);

    ASSERT_TRUE(transfer(FileOperation::Copy, QStringLiteral("src/small.bin"), QStringLiteral("dst/small.bin")));
    EXPECT_EQ(renamed, QStringList{});
    ASSERT_TRUE(transfer(FileOperation::Copy, QStringLiteral("src/large.bin"), QStringLiteral("dst/large.bin")));
    ASSERT_EQ(renamed.size(), 1);
    EXPECT_TRUE(renamed[0].endsWith(QStringLiteral(".partial"))) << renamed[0].toStdString();
    EXPECT_EQ(tree.read(QStringLiteral("dst/small.bin")), small);
    EXPECT_EQ(tree.read(QStringLiteral("dst/large.bin")), large);
    expectNoPartials(tree, QStringLiteral("dst"));
}

TEST_F(TransferTest, AFileThatAppearsAtTheDestinationDuringTheCopyIsLeftAlone)
{
    tree.write(QStringLiteral("src/draft.txt"), "ours");
    tree.mkdir(QStringLiteral("dst"));
    // Another program saves the same name just before the copy begins.
    fs.setHook([this](Call call, const QString&, const std::atomic<bool>*) {
        if (call == Call::CopyFile) {
            tree.write(QStringLiteral("dst/draft.txt"), "theirs");
        }
        return 0;
    });
    const Status status = transfer(FileOperation::Copy, QStringLiteral("src/draft.txt"), QStringLiteral("dst/draft.txt"));
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().code, EEXIST);
    EXPECT_EQ(tree.read(QStringLiteral("dst/draft.txt")), "theirs");
    EXPECT_EQ(tree.read(QStringLiteral("src/draft.txt")), "ours");
}

TEST_F(TransferTest, CopiesKeepPermissionsTheCreationMaskWouldTakeAway)
{
    tree.mkdir(QStringLiteral("dst"));
    // Under the usual mask (022) a new file loses its group and others'
    // write rights; the copy has them back.
    for (const mode_t mode : {0400, 0640, 0664, 0666, 0755, 0777}) {
        SCOPED_TRACE(mode);
        const QString name = QStringLiteral("mode-%1").arg(mode, 0, 8);
        const QString source = tree.write(QStringLiteral("src/") + name, "x");
        ::chmod(QFile::encodeName(source).constData(), mode);
        ASSERT_TRUE(transfer(FileOperation::Copy, QStringLiteral("src/") + name, QStringLiteral("dst/") + name));
        struct stat copied {};
        ASSERT_EQ(::stat(QFile::encodeName(tree.path(QStringLiteral("dst/") + name)).constData(), &copied), 0);
        EXPECT_EQ(copied.st_mode & 07777, mode);
    }
}

TEST_F(TransferTest, ASourceDeletedBeforeItsTurnIsReportedAsMissing)
{
    tree.mkdir(QStringLiteral("dst"));
    const Status status = transfer(FileOperation::Copy, QStringLiteral("src/gone.txt"), QStringLiteral("dst/gone.txt"));
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().code, ENOENT);
    EXPECT_EQ(status.error().suggestion, QStringLiteral("The file may have been moved or deleted while the job ran."));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
}

TEST_F(TransferTest, AbortDuringACopyRemovesThePartialCopy)
{
    tree.write(QStringLiteral("src/a.bin"), QByteArray(1 << 16, 'a'));
    tree.mkdir(QStringLiteral("dst"));
    std::atomic<bool> abort{true};
    const Status status = performTransfer(fs, FileOperation::Copy, tree.path(QStringLiteral("src/a.bin")),
                                          tree.path(QStringLiteral("dst/a.bin")), &abort);
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().code, ECANCELED);
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{});
}

TEST_F(TransferTest, OverwritingPutsTheExistingEntryInTheTrash)
{
    for (const FileOperation operation : {FileOperation::Copy, FileOperation::Move, FileOperation::Alias}) {
        const QString name = QStringLiteral("overwritten-%1.txt").arg(int(operation));
        tree.write(QStringLiteral("src/") + name, "new");
        tree.write(QStringLiteral("dst/") + name, "old");
        ASSERT_TRUE(transfer(operation, QStringLiteral("src/") + name, QStringLiteral("dst/") + name));
        EXPECT_EQ(tree.read(QStringLiteral("dst/") + name), "new");
        EXPECT_TRUE(test::trashedNames().contains(name));
        EXPECT_EQ(test::trashedBytes(name), "old");
    }
}

TEST_F(TransferTest, ATrashThatRefusesStopsTheTransferAndKeepsBothFiles)
{
    fs.setHook([](Call call, const QString&, const std::atomic<bool>*) {
        return call == Call::MoveToTrash ? EXDEV : 0;
    });
    for (const FileOperation operation : {FileOperation::Copy, FileOperation::Move, FileOperation::Alias}) {
        SCOPED_TRACE(int(operation));
        tree.write(QStringLiteral("src/notes.txt"), "new");
        tree.write(QStringLiteral("dst/notes.txt"), "old");
        const Status status = transfer(operation, QStringLiteral("src/notes.txt"), QStringLiteral("dst/notes.txt"));
        ASSERT_FALSE(status);
        EXPECT_EQ(status.error().domain, QStringLiteral("NSCocoaErrorDomain"));
        EXPECT_EQ(status.error().code, 0);
        EXPECT_EQ(status.error().description, QStringLiteral("Cannot delete conflicting file"));
        EXPECT_EQ(status.error().suggestion, QStringLiteral("You may not have write rights to the destination"));
        EXPECT_EQ(tree.read(QStringLiteral("dst/notes.txt")), "old");
        EXPECT_EQ(tree.read(QStringLiteral("src/notes.txt")), "new");
        EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("notes.txt")});
    }
}

TEST_F(TransferTest, AliasIsASymbolicLinkMadeByLn)
{
    tree.write(QStringLiteral("src/paper.pdf"), "%PDF");
    tree.mkdir(QStringLiteral("dst"));
    QStringList ran;
    fs.setHook([&](Call call, const QString& path, const std::atomic<bool>*) {
        if (call == Call::Run) {
            ran.push_back(path);
        }
        return 0;
    });
    ASSERT_TRUE(transfer(FileOperation::Alias, QStringLiteral("src/paper.pdf"), QStringLiteral("dst/paper.pdf")));
    EXPECT_EQ(QFileInfo(tree.path(QStringLiteral("dst/paper.pdf"))).symLinkTarget(),
              tree.path(QStringLiteral("src/paper.pdf")));
    EXPECT_EQ(ran, QStringList{tree.path(QStringLiteral("dst/paper.pdf"))});

    fs.setHook([](Call call, const QString&, const std::atomic<bool>*) { return call == Call::Run ? 1 : 0; });
    const Status failed = transfer(FileOperation::Alias, QStringLiteral("src/paper.pdf"), QStringLiteral("dst/other.pdf"));
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().description, QStringLiteral("Cannot create alias for file"));
    EXPECT_EQ(failed.error().suggestion, QStringLiteral("You may not have write rights to the destination"));
}

TEST_F(TransferTest, AFolderIsNeverCopiedOrMovedIntoItself)
{
    tree.write(QStringLiteral("work/file.txt"), "x");
    tree.mkdir(QStringLiteral("work/inner"));
    for (const FileOperation operation : {FileOperation::Copy, FileOperation::Move}) {
        const Status status = transfer(operation, QStringLiteral("work"), QStringLiteral("work/inner/work"));
        ASSERT_FALSE(status);
        EXPECT_EQ(status.error().reason, QStringLiteral("The destination folder is inside it."));
    }
    EXPECT_EQ(tree.entries(QStringLiteral("work")), (QStringList{QStringLiteral("file.txt"), QStringLiteral("inner")}));
    EXPECT_EQ(tree.entries(QStringLiteral("work/inner")), QStringList{});
}

TEST_F(TransferTest, InsideFolderFollowsLinksAndDotDot)
{
    tree.mkdir(QStringLiteral("a/b/c"));
    tree.mkdir(QStringLiteral("x"));
    QFile::link(tree.path(QStringLiteral("a/b")), tree.path(QStringLiteral("x/link")));
    EXPECT_TRUE(isInsideFolder(fs, tree.path(QStringLiteral("a/b/c")), tree.path(QStringLiteral("a"))));
    EXPECT_TRUE(isInsideFolder(fs, tree.path(QStringLiteral("a")), tree.path(QStringLiteral("a"))));
    EXPECT_TRUE(isInsideFolder(fs, tree.path(QStringLiteral("x/link/c")), tree.path(QStringLiteral("a"))));
    EXPECT_FALSE(isInsideFolder(fs, tree.path(QStringLiteral("a/b/c/..")), tree.path(QStringLiteral("a/b/c"))));
    EXPECT_FALSE(isInsideFolder(fs, tree.path(QStringLiteral("x")), tree.path(QStringLiteral("a"))));
    EXPECT_FALSE(isInsideFolder(fs, tree.path(QStringLiteral("missing")), tree.path(QStringLiteral("a"))));
}

TEST_F(TransferTest, RemoveTreeGoesOnAfterAFailureAndReportsTheFirst)
{
    tree.write(QStringLiteral("old/a.txt"), "a");
    tree.write(QStringLiteral("old/b.txt"), "b");
    const QString stuck = tree.path(QStringLiteral("old/a.txt"));
    fs.setHook([stuck](Call call, const QString& path, const std::atomic<bool>*) {
        return call == Call::Remove && path == stuck ? EPERM : 0;
    });
    const RemoveFailure failure = removeTree(fs, tree.path(QStringLiteral("old")), false);
    EXPECT_EQ(failure.code, EPERM);
    EXPECT_EQ(failure.path, stuck);
    EXPECT_EQ(tree.entries(QStringLiteral("old")), QStringList{QStringLiteral("a.txt")});
    EXPECT_EQ(removeTree(fs, tree.path(QStringLiteral("nothing-here")), false).code, 0);
}

TEST(OperationQueueTest, RunsWithTheDefaultConcurrencyAndCancelsWhatHasNotStarted)
{
    EXPECT_EQ(OperationQueue().maxConcurrentOperationCount(), std::max(1, QThread::idealThreadCount()));

    OperationQueue queue(1);
    std::atomic<bool> started{false};
    std::atomic<bool> release{false};
    std::atomic<int> ran{0};
    queue.addOperation([&] {
        started = true;
        while (!release) {
            QThread::yieldCurrentThread();
        }
        ++ran;
    });
    for (int i = 0; i < 5; ++i) {
        queue.addOperation([&] { ++ran; });
    }
    EXPECT_EQ(queue.operationCount(), 6);
    while (!started) {
        QThread::yieldCurrentThread();
    }
    queue.cancelAllOperations();
    EXPECT_EQ(queue.operationCount(), 1);
    release = true;
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(queue.operationCount(), 0);

    queue.addOperation([&] { ++ran; });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(ran, 2);
}

TEST(OperationQueueTest, OperationsOfOneSerialKeyRunOneAfterAnotherWithoutHoldingUpOthers)
{
    OperationQueue queue(2);
    std::atomic<bool> release{false};
    std::atomic<int> keyedRunning{0};
    std::atomic<int> mostKeyedAtOnce{0};
    std::mutex orderMutex;
    std::vector<int> order;
    auto keyed = [&](int number, bool hold) {
        return [&, number, hold] {
            mostKeyedAtOnce = std::max(mostKeyedAtOnce.load(), ++keyedRunning);
            while (hold && !release) {
                QThread::yieldCurrentThread();
            }
            {
                std::lock_guard lock(orderMutex);
                order.push_back(number);
            }
            --keyedRunning;
        };
    };
    queue.addOperation(keyed(0, true), 7);
    for (int i = 1; i < 20; ++i) {
        queue.addOperation(keyed(i, false), 7);
    }
    // An operation without a key runs while the keyed ones wait their turn.
    std::atomic<bool> freeRan{false};
    queue.addOperation([&] { freeRan = true; });
    while (!freeRan) {
        QThread::yieldCurrentThread();
    }
    {
        std::lock_guard lock(orderMutex);
        EXPECT_TRUE(order.empty());
    }
    EXPECT_EQ(queue.operationCount(), 20);
    release = true;
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(mostKeyedAtOnce, 1);
    std::vector<int> expected(20);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_EQ(queue.operationCount(), 0);
}

TEST(TemporaryFilesTest, EveryCallGetsItsOwnFolderAndNothingIsCreatedAtThePath)
{
    const QString first = TemporaryFiles::temporaryFile(QStringLiteral("preview.txt"));
    const QString second = TemporaryFiles::temporaryFile(QStringLiteral("preview.txt"));
    ASSERT_FALSE(first.isEmpty());
    EXPECT_NE(first, second);
    EXPECT_TRUE(first.startsWith(TemporaryFiles::privateFolder() + QLatin1Char('/')));
    EXPECT_TRUE(TemporaryFiles::privateFolder().endsWith(QStringLiteral("_VMTemporary")));
    EXPECT_TRUE(first.endsWith(QStringLiteral("/preview.txt")));
    EXPECT_TRUE(QFileInfo(QFileInfo(first).absolutePath()).isDir());
    EXPECT_EQ(QFileInfo(QFileInfo(first).absolutePath()).fileName().size(), 12);
    EXPECT_FALSE(QFileInfo::exists(first));

    test::TempTree tree;
    const QString unique = TemporaryFiles::temporaryPathWithinDirectory(tree.root());
    EXPECT_EQ(QFileInfo(unique).absolutePath(), tree.root());
    EXPECT_FALSE(QFileInfo::exists(unique));
    QDir(TemporaryFiles::privateFolder()).removeRecursively();
}

}  // namespace
}  // namespace trovara::fileops
