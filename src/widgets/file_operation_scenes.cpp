// Screenshot scenes of file operations: a job's window while it copies the
// search's results, and the sheet that asks about a name already taken.
#include "widgets/file_operation_scenes.h"

#include "document/document.h"
#include "fileops/file_system.h"
#include "fileops/vm_file_operation_controller.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widgets/document_window.h"
#include "widgets/file_operation_window.h"
#include "widgets/screenshots.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QPainter>
#include <QSemaphore>
#include <QTemporaryDir>

#include <atomic>

namespace trovara::widgets {

namespace {

using fileops::FileOperation;
using fileops::VMFileOperationController;

// Copies as the machine does, but holds one copy until released, so that
// the picture catches the job half-way.
class HeldCopies final : public fileops::LocalFileSystem {
public:
    explicit HeldCopies(int heldCopy) : m_heldCopy(heldCopy) {}
    int copyFile(const QString& source, const QString& destination, const std::atomic<bool>* abort) override
    {
        if (++m_copies == m_heldCopy) {
            m_release.acquire();
        }
        return LocalFileSystem::copyFile(source, destination, abort);
    }
    void release() { m_release.release(); }

private:
    const int m_heldCopy;
    std::atomic<int> m_copies{0};
    QSemaphore m_release;
};

QStringList resultPaths(DocumentWindow& window)
{
    QStringList paths;
    for (const query::ResultItem* item : window.document().metadataQueryController()->results()->arrangedObjects()) {
        if (QFileInfo(item->path()).isFile()) {
            paths << item->path();
        }
    }
    return paths;
}

template <typename Condition>
void runUntil(Condition condition)
{
    QDeadlineTimer deadline(10000);
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
}

// The window with its sheet hanging from its top, on a canvas big enough
// for both.
QPixmap withHangingSheet(QWidget& window, QWidget& sheet)
{
    const QPixmap windowPicture = window.grab();
    const QPixmap sheetPicture = sheet.grab();
    const int width = std::max(windowPicture.width(), sheetPicture.width() + 40);
    const int sheetTop = windowPicture.height() / 3;
    QPixmap picture(width, std::max(windowPicture.height(), sheetTop + sheetPicture.height()) + 20);
    picture.fill(window.palette().color(QPalette::Window).darker(115));
    QPainter painter(&picture);
    painter.drawPixmap((width - windowPicture.width()) / 2, 0, windowPicture);
    painter.fillRect(QRect(QPoint((width - windowPicture.width()) / 2, 0), windowPicture.size()), QColor(0, 0, 0, 60));
    const QPoint at((width - sheetPicture.width()) / 2, sheetTop);
    painter.drawPixmap(at, sheetPicture);
    painter.setPen(QColor(0, 0, 0, 90));
    painter.drawRect(QRect(at, sheetPicture.size()).adjusted(-1, -1, 0, 0));
    return picture;
}

}  // namespace

QPixmap fileOperationProgressScene(DocumentWindow& window)
{
    const QStringList sources = resultPaths(window);
    QTemporaryDir target;
    auto fileSystem = std::make_shared<HeldCopies>(std::max<int>(2, int(sources.size()) / 2));
    fileops::JobEnvironment environment;
    environment.fileSystem = fileSystem;
    environment.threadCount = 1;
    environment.progressInterval = std::chrono::milliseconds(100);
    VMFileOperationController job(sources, target.path(), FileOperation::Copy, environment);
    FileOperationWindow view(&job);
    view.resize(460, view.height());
    runUntil([&] { return job.progressIndicator().value >= 1 && !job.bottomLabel().isEmpty(); });
    settleForScreenshot();
    const QPixmap picture = view.grab();
    fileSystem->release();
    runUntil([&] { return job.phase() == VMFileOperationController::Phase::Stopped; });
    return picture;
}

QPixmap fileOperationConflictScene(DocumentWindow& window)
{
    const QStringList sources = resultPaths(window);
    QTemporaryDir target;
    if (!sources.isEmpty()) {
        QFile taken(target.filePath(QFileInfo(sources.first()).fileName()));
        taken.open(QIODevice::WriteOnly);
    }
    fileops::JobEnvironment environment;
    environment.threadCount = 1;
    VMFileOperationController job(sources, target.path(), FileOperation::Move, environment);
    FileOperationWindow view(&job);
    view.resize(460, view.height());
    runUntil([&] { return view.sheet() != nullptr; });
    settleForScreenshot();
    QPixmap picture;
    if (QMessageBox* sheet = view.sheet()) {
        picture = withHangingSheet(view, *sheet);
        sheet->reject();  // Stop: nothing is moved
    }
    runUntil([&] { return job.phase() == VMFileOperationController::Phase::Stopped; });
    return picture;
}

}  // namespace trovara::widgets
