// The application's entry point for acting on a search window's selected
// results: when its actions are enabled, the folder chooser it asks for, the
// jobs it starts and the changes it reports.
#include "fileops/file_operation_controller.h"

#include "faulty_file_system.h"
#include "fileops_test_support.h"

#include <QEventLoop>
#include <QPointer>
#include <QSignalSpy>
#include <QTimer>

#include <gtest/gtest.h>

namespace trovara::fileops {
namespace {

using Controller = FileOperationController;

class FileOperationControllerTest : public ::testing::Test {
protected:
    FileOperationControllerTest()
    {
        tree.mkdir(QStringLiteral("dst"));
        WorkspaceExtras::Launcher launcher;
        launcher.startDetached = [](const QString&, const QStringList&) { return true; };
        launcher.openUrl = [this](const QUrl& url) {
            opened.push_back(url);
            return true;
        };
        launcher.showItems = [this](const QStringList& uris, std::function<void(bool)> done) {
            shown.push_back(uris);
            done(true);
        };
        // No default application: files open as the desktop would.
        launcher.defaultApplication = [](const QString&) { return std::optional<DesktopEntry>(); };
        VMFileOperationController::Environment environment;
        environment.fileSystem = fs;
        environment.progressInterval = std::chrono::milliseconds(1);
        controller = std::make_unique<Controller>(
            [this] { return selection; },
            [this](const Controller::FolderPanel& panel, std::function<void(bool, const QString&)> didEnd) {
                panels.push_back(panel);
                didEnd(chosen.has_value(), chosen.value_or(QString()));
            },
            environment, std::make_shared<WorkspaceExtras>(fs, WorkspaceExtras::Confirmation{}, launcher));
        QObject::connect(controller.get(), &Controller::beep, [this] { ++beeps; });
        QObject::connect(controller.get(), &Controller::filesChanged,
                         [this](const QStringList& paths) { changed += paths; });
    }

    void select(const QStringList& names)
    {
        selection.document = &document;
        selection.paths.clear();
        for (const QString& name : names) {
            selection.paths.push_back(tree.write(QStringLiteral("src/") + name, name.toUtf8()));
        }
        selection.searchString = QStringLiteral("harbour");
    }

    // Runs the job the controller started until it is gone.
    void finishJobs()
    {
        for (VMFileOperationController* job : controller->jobs()) {
            QPointer<VMFileOperationController> watched(job);
            QEventLoop loop;
            QObject::connect(job, &QObject::destroyed, &loop, &QEventLoop::quit);
            QTimer::singleShot(30000, &loop, &QEventLoop::quit);
            loop.exec();
            EXPECT_TRUE(watched.isNull());
        }
    }

    test::TempTree tree;
    std::shared_ptr<test::FaultyFileSystem> fs = std::make_shared<test::FaultyFileSystem>();
    QObject document;
    Controller::Selection selection;
    std::optional<QString> chosen;
    std::vector<Controller::FolderPanel> panels;
    QList<QUrl> opened;
    QList<QStringList> shown;
    QStringList changed;
    int beeps = 0;
    std::unique_ptr<Controller> controller;
};

TEST_F(FileOperationControllerTest, WithoutASelectedResultEveryActionBeeps)
{
    const std::pair<const char*, Controller::Selection> cases[] = {
        {"no document", {nullptr, {QStringLiteral("/x")}, {}}},
        {"nothing selected", {&document, {}, {}}},
    };
    for (const auto& [name, state] : cases) {
        SCOPED_TRACE(name);
        selection = state;
        beeps = 0;
        EXPECT_FALSE(controller->validateMenuItem());
        controller->copySelectedFiles();
        controller->moveSelectedFiles();
        controller->aliasSelectedFiles();
        controller->trashSelectedFiles();
        controller->openSelectedFiles();
        controller->revealSelectedFiles();
        EXPECT_EQ(beeps, 6);
        EXPECT_TRUE(panels.empty());
        EXPECT_TRUE(controller->jobs().empty());
        EXPECT_TRUE(opened.isEmpty());
        EXPECT_TRUE(shown.isEmpty());
    }
}

TEST_F(FileOperationControllerTest, EachOperationAsksForTheTargetFolderOnTheDocumentsWindow)
{
    select({QStringLiteral("a.txt")});
    EXPECT_TRUE(controller->validateMenuItem());
    const std::pair<void (Controller::*)(), FileOperation> actions[] = {
        {&Controller::copySelectedFiles, FileOperation::Copy},
        {&Controller::moveSelectedFiles, FileOperation::Move},
        {&Controller::aliasSelectedFiles, FileOperation::Alias},
    };
    for (const auto& [action, operation] : actions) {
        panels.clear();
        (controller.get()->*action)();
        EXPECT_EQ(controller->operation(), operation);
        ASSERT_EQ(panels.size(), 1u);
        EXPECT_EQ(panels[0].document, &document);
        EXPECT_EQ(panels[0].prompt, QStringLiteral("Select"));
        EXPECT_EQ(panels[0].message, QStringLiteral("Select target folder"));
        EXPECT_FALSE(panels[0].canChooseFiles);
        EXPECT_TRUE(panels[0].canChooseDirectories);
        EXPECT_TRUE(panels[0].canCreateDirectories);
    }
    EXPECT_EQ(controller->sourcePaths(), selection.paths);
    // Cancelled every time: no job.
    EXPECT_TRUE(controller->jobs().empty());
    EXPECT_EQ(beeps, 0);
}

TEST_F(FileOperationControllerTest, AChosenFolderStartsAJobWhoseFilesAreReported)
{
    select({QStringLiteral("a.txt"), QStringLiteral("b.txt")});
    chosen = tree.path(QStringLiteral("dst"));
    QSignalSpy started(controller.get(), &Controller::jobStarted);
    controller->moveSelectedFiles();
    ASSERT_EQ(started.size(), 1);
    auto* job = started[0][0].value<VMFileOperationController*>();
    EXPECT_EQ(job->fileOperation(), FileOperation::Move);
    EXPECT_EQ(job->directory(), *chosen);
    EXPECT_EQ(job->sourcePaths(), selection.paths);
    finishJobs();
    EXPECT_EQ(tree.entries(QStringLiteral("dst")), (QStringList{QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
    changed.sort();
    EXPECT_EQ(changed, (QStringList{tree.path(QStringLiteral("dst/a.txt")), tree.path(QStringLiteral("dst/b.txt")),
                                    tree.path(QStringLiteral("src/a.txt")), tree.path(QStringLiteral("src/b.txt"))}));
}

TEST_F(FileOperationControllerTest, TrashOpenAndRevealActOnTheSelection)
{
    select({QStringLiteral("trash-from-controller.txt")});
    const QString path = selection.paths.first();
    controller->revealSelectedFiles();
    EXPECT_EQ(shown, QList<QStringList>{{QUrl::fromLocalFile(path).toString()}});
    controller->openSelectedFiles();
    EXPECT_EQ(opened, QList<QUrl>{QUrl::fromLocalFile(path)});
    controller->trashSelectedFiles();
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(test::trashedNames().contains(QStringLiteral("trash-from-controller.txt")));
    EXPECT_EQ(changed, QStringList{path});
    EXPECT_EQ(beeps, 0);
}

}  // namespace
}  // namespace trovara::fileops
