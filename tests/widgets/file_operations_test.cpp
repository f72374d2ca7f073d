// The widgets of file operations: a job's window and its sheets, the drop
// button, and the file commands of a search window.
#include "fileops/vm_file_operation_controller.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widgets/cover_flow_view.h"
#include "widgets/drop_button.h"
#include "widgets/file_operation_commands.h"
#include "widgets/file_operation_window.h"
#include "widgets/result_grid_view.h"
#include "widgets/result_table_view.h"
#include "widget_test_support.h"

#include "../fileops/faulty_file_system.h"
#include "../fileops/fileops_test_support.h"

#include <QAction>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QMenu>
#include <QEventLoop>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

namespace trovara::widgets {
namespace {

using fileops::FileOperation;
using fileops::VMFileOperationController;
using Phase = VMFileOperationController::Phase;

using test::waitFor;

QPushButton* buttonTitled(QMessageBox* box, const QString& title)
{
    for (QAbstractButton* button : box->buttons()) {
        if (button->text() == title) {
            return qobject_cast<QPushButton*>(button);
        }
    }
    return nullptr;
}

class FileOperationWindowTest : public ::testing::Test {
protected:
    FileOperationWindowTest() { tree.mkdir(QStringLiteral("dst")); }

    // A job and its window, as the application makes them.
    void start(const QStringList& sources, FileOperation operation = FileOperation::Copy)
    {
        QStringList paths;
        for (const QString& source : sources) {
            paths.push_back(tree.path(source));
        }
        fileops::JobEnvironment environment;
        environment.fileSystem = fs;
        environment.threadCount = 1;
        environment.progressInterval = std::chrono::milliseconds(1);
        job = new VMFileOperationController(paths, tree.path(QStringLiteral("dst")), operation, environment);
        window = new FileOperationWindow(job);
    }

    test::TempTree tree;
    std::shared_ptr<test::FaultyFileSystem> fs = std::make_shared<test::FaultyFileSystem>();
    QPointer<VMFileOperationController> job;
    QPointer<FileOperationWindow> window;
};

TEST_F(FileOperationWindowTest, ShowsTheJobFromStartToStopAndGoesWithIt)
{
    tree.write(QStringLiteral("src/a.txt"), "A");
    start({QStringLiteral("src/a.txt")}, FileOperation::Move);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->objectName(), QStringLiteral("VMFileOperation"));
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Move"));
    EXPECT_EQ(window->progressIndicator()->maximum(), 0);  // busy
    EXPECT_FALSE(window->stopButton()->isEnabled());
    for (QWidget* control : {static_cast<QWidget*>(window->stopButton()), static_cast<QWidget*>(window->topLabel()),
                             static_cast<QWidget*>(window->bottomLabel()),
                             static_cast<QWidget*>(window->progressIndicator())}) {
        EXPECT_FALSE(control->accessibleName().isEmpty());
    }

    int transferringMaximum = -1;
    QObject::connect(job, &VMFileOperationController::phaseChanged, [&](Phase phase) {
        if (phase == Phase::Transferring) {
            transferringMaximum = window->progressIndicator()->maximum();
            EXPECT_TRUE(window->stopButton()->isEnabled());
            EXPECT_EQ(window->topLabel()->text(), QStringLiteral("Moving files"));
        }
    });
    ASSERT_TRUE(waitFor([&] { return job->phase() == Phase::Stopped; }));
    EXPECT_EQ(transferringMaximum, 1);
    EXPECT_FALSE(window->isVisible());
    EXPECT_EQ(tree.read(QStringLiteral("dst/a.txt")), "A");
    delete job;
    EXPECT_TRUE(waitFor([&] { return window.isNull(); }));
}

TEST_F(FileOperationWindowTest, AConflictIsASheetWhoseAnswerTheJobFollows)
{
    tree.write(QStringLiteral("src/report.pdf"), "new");
    tree.write(QStringLiteral("dst/report.pdf"), "old");
    start({QStringLiteral("src/report.pdf")});
    ASSERT_TRUE(waitFor([&] { return window->sheet() != nullptr; }));
    QMessageBox* sheet = window->sheet();
    EXPECT_EQ(sheet->text(), QStringLiteral("File exists at destination"));
    EXPECT_EQ(sheet->informativeText(), QStringLiteral("report.pdf is a file"));
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    QStringList titles;
    for (QAbstractButton* button : sheet->buttons()) {
        titles << button->text();
        EXPECT_EQ(button->accessibleName(), button->text());
    }
    titles.sort();
    EXPECT_EQ(titles, (QStringList{QStringLiteral("Overwrite"), QStringLiteral("Skip"), QStringLiteral("Stop")}));
    EXPECT_EQ(sheet->defaultButton(), buttonTitled(sheet, QStringLiteral("Skip")));

    QTest::mouseClick(buttonTitled(sheet, QStringLiteral("Overwrite")), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return job->phase() == Phase::Stopped; }));
    EXPECT_EQ(tree.read(QStringLiteral("dst/report.pdf")), "new");
    delete job;
}

TEST_F(FileOperationWindowTest, ASheetClosedWithoutAnAnswerStopsTheJob)
{
    tree.write(QStringLiteral("src/report.pdf"), "new");
    tree.write(QStringLiteral("dst/report.pdf"), "old");
    tree.write(QStringLiteral("src/other.pdf"), "other");
    start({QStringLiteral("src/report.pdf"), QStringLiteral("src/other.pdf")});
    ASSERT_TRUE(waitFor([&] { return window->sheet() != nullptr; }));
    window->sheet()->reject();
    ASSERT_TRUE(waitFor([&] { return job->phase() == Phase::Stopped; }));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("report.pdf")});
    delete job;
}

TEST_F(FileOperationWindowTest, StopCancelsWhatHasNotStarted)
{
    for (const char* name : {"1.bin", "2.bin", "3.bin"}) {
        tree.write(QStringLiteral("src/") + QLatin1String(name), name);
    }
    test::HeldCopy held(*fs, QStringLiteral("1.bin"));
    start({QStringLiteral("src/1.bin"), QStringLiteral("src/2.bin"), QStringLiteral("src/3.bin")});
    ASSERT_TRUE(waitFor([&] { return job->phase() == Phase::Transferring && window->stopButton()->isEnabled(); }));
    held.waitUntilStarted();
    QTest::mouseClick(window->stopButton(), Qt::LeftButton);
    EXPECT_FALSE(window->stopButton()->isEnabled());
    held.release();
    ASSERT_TRUE(waitFor([&] { return job->phase() == Phase::Stopped; }));
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), QStringList{QStringLiteral("1.bin")});
    delete job;
}

// Records what reaches the delegate.
struct RecordingDelegate final : DropButtonDelegate {
    bool answer = true;
    int calls = 0;
    DropButton* button = nullptr;
    QList<QUrl> urls;

    bool dropButtonAcceptDrop(DropButton* from, QDropEvent* drop) override
    {
        ++calls;
        button = from;
        urls = drop->mimeData()->urls();
        return answer;
    }
};

TEST(DropButtonTest, FilesAreOfferedACopyAndHandedToTheDelegate)
{
    DropButton button(QStringLiteral("Add"));
    RecordingDelegate delegate;
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(QStringLiteral("/data/Old"))});
    QMimeData text;
    text.setText(QStringLiteral("just words"));

    QDragEnterEvent enterWithFiles(QPoint(5, 5), Qt::CopyAction | Qt::MoveAction, &files, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&button, &enterWithFiles);
    EXPECT_TRUE(enterWithFiles.isAccepted());
    EXPECT_EQ(enterWithFiles.dropAction(), Qt::CopyAction);

    QDragEnterEvent enterWithText(QPoint(5, 5), Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&button, &enterWithText);
    EXPECT_FALSE(enterWithText.isAccepted());

    // Without a delegate a drop is an ordinary button's: not taken.
    QCoreApplication::sendEvent(&button, &enterWithFiles);
    QDropEvent orphan(QPointF(5, 5), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&button, &orphan);
    EXPECT_FALSE(orphan.isAccepted());

    button.setDelegate(&delegate);
    for (const bool answer : {true, false}) {
        delegate.answer = answer;
        // A drop goes where the drag entered last.
        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&button, &enter);
        QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&button, &drop);
        EXPECT_EQ(drop.isAccepted(), answer);
    }
    EXPECT_EQ(delegate.calls, 2);
    EXPECT_EQ(delegate.button, &button);
    EXPECT_EQ(delegate.urls, files.urls());

    QCoreApplication::sendEvent(&button, &enterWithText);
    QDropEvent textDrop(QPointF(5, 5), Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&button, &textDrop);
    EXPECT_EQ(delegate.calls, 2);
}

// The commands in a search window over the test tree, with nothing
// started on the desktop: programs, file manager and default applications
// are the test's.
class FileOperationCommandsTest : public test::WidgetTest {
protected:
    FileOperationCommands& commands()
    {
        if (!m_commands) {
            fileops::WorkspaceExtras::Launcher launcher;
            launcher.startDetached = [this](const QString& program, const QStringList& arguments) {
                started.push_back((QStringList{program} + arguments).join(QLatin1Char(' ')));
                return true;
            };
            launcher.showItems = [this](const QStringList& uris, std::function<void(bool)> done) {
                shownItems.push_back(uris);
                done(fileManagerAnswers);
            };
            launcher.defaultApplication = [](const QString& mimeType) -> std::optional<fileops::DesktopEntry> {
                if (mimeType == QStringLiteral("text/plain")) {
                    return fileops::DesktopEntry{QStringLiteral("okular.desktop"), {}, {}, QStringLiteral("okular %f")};
                }
                return std::nullopt;
            };
            fileops::JobEnvironment environment;
            environment.progressInterval = std::chrono::milliseconds(1);
            m_commands = std::make_unique<FileOperationCommands>(application(), launcher, environment);
        }
        return *m_commands;
    }
    void TearDown() override
    {
        m_commands.reset();
        test::WidgetTest::TearDown();
    }
    // A window showing the reports, the first `count` of them selected.
    DocumentWindow* windowWithReportsSelected(int count)
    {
        commands();
        DocumentWindow* window = newSearchWindow();
        searchNames(window, QStringLiteral("report"));
        query::ResultTableModel* results = window->document().metadataQueryController()->results();
        EXPECT_GE(results->rowCount(), count);
        results->selectionModel()->clearSelection();
        for (int row = 0; row < count; ++row) {
            results->selectionModel()->select(results->index(row, 0),
                                              QItemSelectionModel::Select | QItemSelectionModel::Rows);
        }
        return window;
    }
    QStringList selectedPaths(DocumentWindow* window) const
    {
        QStringList paths;
        for (const query::ResultItem* item :
             window->document().metadataQueryController()->results()->selectedObjects()) {
            paths << item->path();
        }
        return paths;
    }

    QStringList started;
    QList<QStringList> shownItems;
    bool fileManagerAnswers = true;

private:
    std::unique_ptr<FileOperationCommands> m_commands;
};

TEST_F(FileOperationCommandsTest, TheCommandsJoinTheResultMenuEnabledWhileResultsAreSelected)
{
    DocumentWindow* window = windowWithReportsSelected(0);
    const FileOperationCommands::Actions actions = commands().actionsOf(window);
    QStringList titles;
    for (QAction* action : window->actionMenu()->actions()) {
        if (!action->isSeparator()) {
            titles << action->text();
        }
    }
    for (const QString& title : {QStringLiteral("Copy to Folder…"), QStringLiteral("Move to Folder…"),
                                 QStringLiteral("Make Alias in Folder…"), QStringLiteral("Move to Trash")}) {
        EXPECT_TRUE(titles.contains(title)) << title.toStdString();
    }
    EXPECT_FALSE(actions.copyToFolder->isEnabled());
    EXPECT_FALSE(actions.moveToTrash->isEnabled());
    window->document().metadataQueryController()->results()->setSelectionIndex(0);
    EXPECT_TRUE(actions.copyToFolder->isEnabled());
    EXPECT_TRUE(actions.moveToTrash->isEnabled());
    // Delete trashes in the result views, never in the window's text fields.
    EXPECT_EQ(actions.moveToTrash->shortcut(), QKeySequence(QKeySequence::Delete));
    EXPECT_EQ(actions.moveToTrash->shortcutContext(), Qt::WidgetShortcut);
    for (QWidget* view : {static_cast<QWidget*>(window->tableView()), static_cast<QWidget*>(window->gridView()),
                          static_cast<QWidget*>(window->coverFlowView())}) {
        EXPECT_TRUE(view->actions().contains(actions.moveToTrash));
    }
}

TEST_F(FileOperationCommandsTest, CopyToFolderAsksInASheetThenShowsTheJobUntilItIsDone)
{
    DocumentWindow* window = windowWithReportsSelected(2);
    const QStringList sources = selectedPaths(window);
    const QString target = QString::fromStdString(outside);
    commands().actionsOf(window).copyToFolder->trigger();
    QFileDialog* panel = commands().folderPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->parentWidget(), window);
    EXPECT_EQ(panel->windowModality(), Qt::WindowModal);
    EXPECT_EQ(panel->windowTitle(), QStringLiteral("Select target folder"));
    EXPECT_EQ(panel->labelText(QFileDialog::Accept), QStringLiteral("Select"));
    EXPECT_EQ(panel->fileMode(), QFileDialog::Directory);
    panel->setDirectory(target);
    panel->selectFile(target);
    static_cast<QDialog*>(panel)->accept();

    ASSERT_EQ(commands().jobWindows().size(), 1u);
    QPointer<FileOperationWindow> jobWindow = commands().jobWindows().front();
    EXPECT_TRUE(jobWindow->isVisible());
    ASSERT_TRUE(test::waitFor([&] { return jobWindow.isNull(); }, "the job to end"));
    for (const QString& source : sources) {
        EXPECT_TRUE(QFileInfo::exists(target + QLatin1Char('/') + QFileInfo(source).fileName())) << source.toStdString();
        EXPECT_TRUE(QFileInfo::exists(source));
    }
}

TEST_F(FileOperationCommandsTest, DeleteInTheTableMovesTheSelectionToTheTrashAndTheResultLeaves)
{
    DocumentWindow* window = windowWithReportsSelected(1);
    const QString path = selectedPaths(window).value(0);
    QObject::connect(&commands().controller(), &fileops::FileOperationController::filesChanged,
                     [this](const QStringList& paths) {
                         for (const QString& changed : paths) {
                             apply({{index::PathChange::Kind::Removed, changed.toStdString()}});
                         }
                     });
    window->show();
    window->tableView()->setFocus();
    ASSERT_TRUE(test::waitFor([&] { return window->tableView()->hasFocus(); }, "the table's focus"));
    QTest::keyClick(window->tableView(), Qt::Key_Delete);
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(test::trashedNames().contains(QFileInfo(path).fileName()));
    ASSERT_TRUE(test::waitFor(
        [&] {
            for (const query::ResultItem* item : window->document().metadataQueryController()->results()->arrangedObjects()) {
                if (item->path() == path) {
                    return false;
                }
            }
            return true;
        },
        "the trashed result to leave the list"));
}

TEST_F(FileOperationCommandsTest, OpenPassesTheSearchTextAndShowInFolderShowsTheFiles)
{
    commands();
    DocumentWindow* window = newSearchWindow();
    // Words searched in any text are what the opened document should find.
    test::setCriterion(window->document(), QStringLiteral("*"), QStringLiteral("report"));
    window->document().startQuery();
    ASSERT_TRUE(test::waitFor([&] { return test::isSettled(window->document())
                                           && window->document().metadataQueryController()->results()->rowCount() > 0; },
                              "results"));
    window->document().metadataQueryController()->results()->setSelectionIndex(0);
    const QString path = selectedPaths(window).value(0);
    const QString search = window->document().searchString();
    ASSERT_FALSE(search.isEmpty());
    window->openSelectedResults();
    EXPECT_EQ(started, QStringList{QStringLiteral("okular --find %1 %2").arg(search, path)});
    EXPECT_TRUE(opened.empty());

    window->showSelectedInFolder();
    EXPECT_EQ(shownItems, QList<QStringList>{{QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded)}});
    EXPECT_TRUE(opened.empty());
    // No file manager answers: the folder opens through the window's opener.
    fileManagerAnswers = false;
    window->showSelectedInFolder();
    EXPECT_EQ(opened, std::vector<QUrl>{QUrl::fromLocalFile(QFileInfo(path).absolutePath())});
}

}  // namespace
}  // namespace trovara::widgets
