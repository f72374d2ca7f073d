#include "fileops/file_operation_controller.h"

#include "document/document.h"
#include "fileops/localized.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"

#include <QCoreApplication>
#include <QUrl>

namespace trovara::fileops {

FileOperationController::FileOperationController(SelectionProvider selection, FolderChooser folderChooser,
                                                 VMFileOperationController::Environment jobEnvironment,
                                                 std::shared_ptr<WorkspaceExtras> workspace, QObject* parent)
    : QObject(parent),
      m_selection(std::move(selection)),
      m_folderChooser(std::move(folderChooser)),
      m_jobEnvironment(std::move(jobEnvironment)),
      m_workspace(workspace ? std::move(workspace) : std::make_shared<WorkspaceExtras>(m_jobEnvironment.fileSystem))
{
}

FileOperationController::~FileOperationController() = default;

FileOperationController::Selection FileOperationController::selectionOfDocument(document::Document* document)
{
    Selection selection;
    if (!document || !document->metadataQueryController()) {
        return selection;
    }
    selection.document = document;
    selection.searchString = document->searchString();
    for (const query::ResultItem* item : document->metadataQueryController()->results()->selectedObjects()) {
        if (!item->path().isEmpty()) {
            selection.paths.push_back(item->path());
        }
    }
    return selection;
}

std::optional<FileOperationController::Selection> FileOperationController::actionableSelection()
{
    Selection selection = m_selection ? m_selection() : Selection{};
    if (!selection.document || selection.paths.isEmpty()) {
        return std::nullopt;
    }
    return selection;
}

bool FileOperationController::validateMenuItem() const
{
    const Selection selection = m_selection ? m_selection() : Selection{};
    return selection.document && !selection.paths.isEmpty();
}

void FileOperationController::copySelectedFiles()
{
    startOperation(FileOperation::Copy);
}

void FileOperationController::moveSelectedFiles()
{
    startOperation(FileOperation::Move);
}

void FileOperationController::aliasSelectedFiles()
{
    startOperation(FileOperation::Alias);
}

void FileOperationController::startOperation(FileOperation operation)
{
    m_operation = operation;
    selectTargetDirectory();
}

void FileOperationController::selectTargetDirectory()
{
    const std::optional<Selection> selection = actionableSelection();
    if (!selection) {
        emit beep();
        return;
    }
    m_document = selection->document;
    m_sourcePaths = selection->paths;
    FolderPanel panel;
    panel.document = selection->document;
    panel.prompt = localized("Select");
    panel.message = localized("Select target folder");
    if (!m_folderChooser) {
        return;
    }
    QPointer<FileOperationController> self(this);
    m_folderChooser(panel, [self](bool ok, const QString& folder) {
        if (self) {
            self->panelDidEnd(ok, folder);
        }
    });
}

void FileOperationController::panelDidEnd(bool ok, const QString& folder)
{
    if (!ok || folder.isEmpty()) {
        return;
    }
    auto* job = new VMFileOperationController(m_sourcePaths, folder, m_operation, m_jobEnvironment, this);
    m_jobs.emplace_back(job);
    const FileOperation operation = m_operation;
    connect(job, &VMFileOperationController::transferFinished, this,
            [this, operation](const QString& source, const QString& destination, bool succeeded) {
                if (!succeeded) {
                    return;
                }
                emit filesChanged(operation == FileOperation::Move ? QStringList{source, destination}
                                                                   : QStringList{destination});
            });
    connect(job, &VMFileOperationController::stopped, job, &QObject::deleteLater);
    connect(job, &QObject::destroyed, this, [this] {
        std::erase_if(m_jobs, [](const QPointer<VMFileOperationController>& job) { return job.isNull(); });
    });
    emit jobStarted(job);
}

std::vector<VMFileOperationController*> FileOperationController::jobs() const
{
    std::vector<VMFileOperationController*> running;
    for (const auto& job : m_jobs) {
        if (job && job->phase() != VMFileOperationController::Phase::Stopped) {
            running.push_back(job);
        }
    }
    return running;
}

void FileOperationController::trashSelectedFiles()
{
    const std::optional<Selection> selection = actionableSelection();
    if (!selection) {
        emit beep();
        return;
    }
    m_workspace->recycleFiles(selection->paths);
    emit filesChanged(selection->paths);
}

void FileOperationController::openSelectedFiles()
{
    const std::optional<Selection> selection = actionableSelection();
    if (!selection) {
        emit beep();
        return;
    }
    for (const QString& path : selection->paths) {
        m_workspace->openURL(QUrl::fromLocalFile(path),
                             selection->searchString.isNull() ? QStringLiteral("") : selection->searchString);
    }
}

void FileOperationController::revealSelectedFiles()
{
    const std::optional<Selection> selection = actionableSelection();
    if (!selection) {
        emit beep();
        return;
    }
    m_workspace->revealInFileManager(selection->paths);
}

}  // namespace trovara::fileops
