// The application's one entry point for acting on the results of the front
// search window: copy, move or link them into a folder (a job each,
// vm_file_operation_controller.h), move them to the Trash, open them with
// the search text, show them in the file manager.
//
// The controller knows the front window only through a selection provider:
// which document it shows (nothing when no search window is in front), the
// paths of its selected results and its search text. Every action is
// enabled only when there is such a document with at least one selected
// result.
//
// Copy, move and link first ask for the target folder: a folder chooser
// attached to the document's window (folders only, new folders allowed,
// prompt "Select", message "Select target folder"); OK starts a job, Cancel
// does nothing. An action taken without a selection beeps.
//
// filesChanged() names every path that appeared or went away, for whoever
// keeps result lists and the index current.
//
// Thread safety: main thread only.
#pragma once

#include "fileops/transfer.h"
#include "fileops/vm_file_operation_controller.h"
#include "fileops/workspace_extras.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace trovara::document {
class Document;
}

namespace trovara::fileops {

class FileOperationController final : public QObject {
    Q_OBJECT

public:
    struct Selection {
        QObject* document = nullptr;  // the front search document, if any
        QStringList paths;            // its selected results, top to bottom
        QString searchString;         // its search text, for opening
    };
    using SelectionProvider = std::function<Selection()>;

    // The folder chooser a window shows as a sheet.
    struct FolderPanel {
        QObject* document = nullptr;  // whose window the sheet belongs to
        QString prompt;               // "Select"
        QString message;              // "Select target folder"
        bool canChooseFiles = false;
        bool canChooseDirectories = true;
        bool canCreateDirectories = true;
    };
    // Calls `didEnd` with true and the folder chosen, or false.
    using FolderChooser =
        std::function<void(const FolderPanel& panel, std::function<void(bool ok, const QString& folder)> didEnd)>;

    FileOperationController(SelectionProvider selection, FolderChooser folderChooser,
                            VMFileOperationController::Environment jobEnvironment = {},
                            std::shared_ptr<WorkspaceExtras> workspace = {}, QObject* parent = nullptr);
    ~FileOperationController() override;

    // The selection of a search document as the provider gives it.
    static Selection selectionOfDocument(document::Document* document);

    // --- Actions ------------------------------------------------------------
    void copySelectedFiles();
    void moveSelectedFiles();
    void aliasSelectedFiles();
    void trashSelectedFiles();
    void openSelectedFiles();
    void revealSelectedFiles();
    // Whether the actions can act now (a search document with a selection).
    bool validateMenuItem() const;

    void selectTargetDirectory();
    void panelDidEnd(bool ok, const QString& folder);

    // --- State ---------------------------------------------------------------
    QObject* document() const { return m_document; }
    FileOperation operation() const { return m_operation; }
    const QStringList& sourcePaths() const { return m_sourcePaths; }
    // Jobs that have not stopped yet.
    std::vector<VMFileOperationController*> jobs() const;
    WorkspaceExtras& workspace() { return *m_workspace; }

signals:
    void jobStarted(trovara::fileops::VMFileOperationController* job);
    void beep();
    void filesChanged(const QStringList& paths);

private:
    void startOperation(FileOperation operation);
    std::optional<Selection> actionableSelection();

    SelectionProvider m_selection;
    FolderChooser m_folderChooser;
    VMFileOperationController::Environment m_jobEnvironment;
    std::shared_ptr<WorkspaceExtras> m_workspace;

    QPointer<QObject> m_document;
    FileOperation m_operation = FileOperation::Copy;
    QStringList m_sourcePaths;
    std::vector<QPointer<VMFileOperationController>> m_jobs;
};

}  // namespace trovara::fileops
