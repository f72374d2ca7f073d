#include "widgets/file_operation_commands.h"

#include "document/document.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widgets/application.h"
#include "widgets/cover_flow_view.h"
#include "widgets/document_window.h"
#include "widgets/file_operation_window.h"
#include "widgets/result_grid_view.h"
#include "widgets/result_table_view.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

namespace trovara::widgets {

using fileops::FileOperationController;
using fileops::WorkspaceExtras;

namespace {

// Asks modally, on the active window: the index of the button pressed.
int askModally(const query::Alert& alert)
{
    QMessageBox box(alert.critical ? QMessageBox::Critical : QMessageBox::Warning, QApplication::applicationName(),
                    alert.messageText, QMessageBox::NoButton, QApplication::activeWindow());
    box.setInformativeText(alert.informativeText);
    QList<QAbstractButton*> buttons;
    for (const QString& title : alert.buttons) {
        buttons << box.addButton(title, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
    }
    if (!buttons.isEmpty()) {
        box.setDefaultButton(static_cast<QPushButton*>(buttons.first()));
        box.setEscapeButton(buttons.last());
    }
    box.exec();
    return static_cast<int>(buttons.indexOf(box.clickedButton()));
}

WorkspaceExtras::Launcher withDesktopOpener(WorkspaceExtras::Launcher launcher)
{
    if (!launcher.openUrl) {
        launcher.openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
    }
    return launcher;
}

}  // namespace

FileOperationCommands::FileOperationCommands(Application& application, WorkspaceExtras::Launcher launcher,
                                             fileops::JobEnvironment jobEnvironment)
    : m_application(application),
      m_launcher(withDesktopOpener(std::move(launcher))),
      m_workspace(std::make_shared<WorkspaceExtras>(jobEnvironment.fileSystem, askModally, m_launcher))
{
    m_controller = std::make_unique<FileOperationController>(
        [this] { return FileOperationController::selectionOfDocument(m_application.activeDocument()); },
        [this](const FileOperationController::FolderPanel& panel, std::function<void(bool, const QString&)> didEnd) {
            chooseFolder(panel, std::move(didEnd));
        },
        std::move(jobEnvironment), m_workspace);
    connect(m_controller.get(), &FileOperationController::jobStarted, this, &FileOperationCommands::jobStarted);
    connect(m_controller.get(), &FileOperationController::beep, this, [] { QApplication::beep(); });
    for (DocumentWindow* window : application.windows()) {
        installIn(window);
    }
    connect(&application, &Application::windowCreated, this, &FileOperationCommands::installIn);
}

FileOperationCommands::~FileOperationCommands()
{
    for (const QPointer<FileOperationWindow>& window : m_jobWindows) {
        delete window.data();
    }
}

void FileOperationCommands::installIn(DocumentWindow* window)
{
    Actions actions;
    const auto command = [window](const QString& title, void (FileOperationController::*action)(),
                                  FileOperationController* controller) {
        auto* item = new QAction(title, window);
        connect(item, &QAction::triggered, controller, action);
        return item;
    };
    FileOperationController* controller = m_controller.get();
    actions.copyToFolder = command(tr("Copy to Folder…"), &FileOperationController::copySelectedFiles, controller);
    actions.moveToFolder = command(tr("Move to Folder…"), &FileOperationController::moveSelectedFiles, controller);
    actions.aliasToFolder =
        command(tr("Make Alias in Folder…"), &FileOperationController::aliasSelectedFiles, controller);
    actions.moveToTrash = command(tr("Move to Trash"), &FileOperationController::trashSelectedFiles, controller);
    actions.moveToTrash->setIcon(QIcon::fromTheme(QStringLiteral("user-trash")));
    // Delete trashes in the result views only; in a text field it deletes text.
    actions.moveToTrash->setShortcut(QKeySequence::Delete);
    actions.moveToTrash->setShortcutContext(Qt::WidgetShortcut);
    for (QWidget* view : {static_cast<QWidget*>(window->tableView()), static_cast<QWidget*>(window->gridView()),
                          static_cast<QWidget*>(window->coverFlowView())}) {
        view->addAction(actions.moveToTrash);
    }

    QMenu* menu = window->actionMenu();
    menu->addSeparator();
    menu->addAction(actions.copyToFolder);
    menu->addAction(actions.moveToFolder);
    menu->addAction(actions.aliasToFolder);
    menu->addSeparator();
    menu->addAction(actions.moveToTrash);
    QPointer<DocumentWindow> guarded(window);
    connect(menu, &QMenu::aboutToShow, this, [this, guarded] {
        if (guarded) {
            updateEnabled(guarded);
        }
    });
    connect(window->document().metadataQueryController()->results()->selectionModel(),
            &QItemSelectionModel::selectionChanged, this, [this, guarded] {
                if (guarded) {
                    updateEnabled(guarded);
                }
            });
    m_windows.emplace_back(window, actions);
    updateEnabled(window);

    // Open and Show in Folder through the desktop's applications and file
    // manager, still by way of the window's own opener for everything else.
    WorkspaceExtras::Launcher launcher = m_launcher;
    if (window->urlOpener()) {
        launcher.openUrl = window->urlOpener();
    }
    auto workspace = std::make_shared<WorkspaceExtras>(nullptr, nullptr, launcher);
    QPointer<document::Document> document(&window->document());
    window->setUrlOpener([workspace, document, opener = window->urlOpener()](const QUrl& url) {
        if (!url.isLocalFile()) {
            return opener && opener(url);
        }
        const QString search = document ? document->searchString() : QString();
        return workspace->openURL(url, search.isNull() ? QStringLiteral("") : search);
    });
    window->setRevealer([workspace](const QStringList& paths) { workspace->revealInFileManager(paths); });
}

FileOperationCommands::Actions FileOperationCommands::actionsOf(DocumentWindow* window) const
{
    for (const auto& [known, actions] : m_windows) {
        if (known == window) {
            return actions;
        }
    }
    return {};
}

void FileOperationCommands::updateEnabled(DocumentWindow* window)
{
    const bool selected =
        window->isDocumentLoaded()
        && !window->document().metadataQueryController()->results()->selectionModel()->selectedRows().isEmpty();
    const Actions actions = actionsOf(window);
    for (QAction* action : {actions.copyToFolder, actions.moveToFolder, actions.aliasToFolder, actions.moveToTrash}) {
        if (action) {
            action->setEnabled(selected);
        }
    }
}

void FileOperationCommands::chooseFolder(const FileOperationController::FolderPanel& panel,
                                         std::function<void(bool, const QString&)> didEnd)
{
    QWidget* parent = m_application.windowForDocument(qobject_cast<document::Document*>(panel.document));
    auto* dialog = new QFileDialog(parent, panel.message, QDir::homePath());
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly, !panel.canChooseFiles);
    dialog->setOption(QFileDialog::ReadOnly, !panel.canCreateDirectories);
    dialog->setLabelText(QFileDialog::Accept, panel.prompt);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::finished, this, [dialog, didEnd](int result) {
        const QStringList chosen = dialog->selectedFiles();
        didEnd(result == QDialog::Accepted && !chosen.isEmpty(), chosen.value(0));
    });
    m_folderPanel = dialog;
    dialog->open();
}

void FileOperationCommands::jobStarted(fileops::VMFileOperationController* job)
{
    auto* window = new FileOperationWindow(job);
    if (QWidget* active = QApplication::activeWindow()) {
        window->move(active->geometry().center() - QPoint(window->sizeHint().width() / 2, 0));
    }
    std::erase_if(m_jobWindows, [](const QPointer<FileOperationWindow>& known) { return known.isNull(); });
    m_jobWindows.emplace_back(window);
}

std::vector<FileOperationWindow*> FileOperationCommands::jobWindows() const
{
    std::vector<FileOperationWindow*> windows;
    for (const QPointer<FileOperationWindow>& window : m_jobWindows) {
        if (window) {
            windows.push_back(window);
        }
    }
    return windows;
}

}  // namespace trovara::widgets
