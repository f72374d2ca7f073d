// The file commands of the search windows, over the application's one
// fileops::FileOperationController:
//
//   Copy to Folder…, Move to Folder…, Make Alias in Folder…  the selected
//       results into a folder chosen in a sheet on the window; each job gets
//       its progress window (FileOperationWindow)
//   Move to Trash (Delete in a result view)
//
// They join each window's result menu (its toolbar item, the Results menu
// and the result views' context menu), enabled while results are selected.
// Each window's Open passes the search text to applications that take one
// (fileops::WorkspaceExtras::openURL), and Show in Folder shows the files
// themselves in the file manager (org.freedesktop.FileManager1), opening
// their folders when no file manager answers.
//
// Main thread only.
#pragma once

#include "fileops/file_operation_controller.h"

#include <QFileDialog>
#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

class QAction;

namespace trovara::widgets {

class Application;
class DocumentWindow;
class FileOperationWindow;

class FileOperationCommands final : public QObject {
    Q_OBJECT

public:
    // `launcher`: how programs and URLs are opened (empty parts: the
    // desktop's); tests keep everything in.
    explicit FileOperationCommands(Application& application, fileops::WorkspaceExtras::Launcher launcher = {},
                                   fileops::JobEnvironment jobEnvironment = {});
    ~FileOperationCommands() override;

    fileops::FileOperationController& controller() const { return *m_controller; }
    // Adds the commands to a window (done for every window the application
    // makes from now on).
    void installIn(DocumentWindow* window);

    // The window's commands, in menu order.
    struct Actions {
        QAction* copyToFolder = nullptr;
        QAction* moveToFolder = nullptr;
        QAction* aliasToFolder = nullptr;
        QAction* moveToTrash = nullptr;
    };
    Actions actionsOf(DocumentWindow* window) const;
    // The folder sheet while it is up (tests, screenshots).
    QFileDialog* folderPanel() const { return m_folderPanel; }
    // The windows of the jobs that have not finished.
    std::vector<FileOperationWindow*> jobWindows() const;

private:
    void chooseFolder(const fileops::FileOperationController::FolderPanel& panel,
                      std::function<void(bool, const QString&)> didEnd);
    void jobStarted(fileops::VMFileOperationController* job);
    void updateEnabled(DocumentWindow* window);

    Application& m_application;
    fileops::WorkspaceExtras::Launcher m_launcher;
    std::shared_ptr<fileops::WorkspaceExtras> m_workspace;
    std::unique_ptr<fileops::FileOperationController> m_controller;
    std::vector<std::pair<QPointer<DocumentWindow>, Actions>> m_windows;
    std::vector<QPointer<FileOperationWindow>> m_jobWindows;
    QPointer<QFileDialog> m_folderPanel;
};

}  // namespace trovara::widgets
