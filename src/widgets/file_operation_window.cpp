#include "widgets/file_operation_window.h"

#include "fileops/vm_file_operation_controller.h"

#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace trovara::widgets {

using fileops::FileOperation;
using fileops::VMFileOperationController;

namespace {

QString titleFor(FileOperation operation)
{
    switch (operation) {
    case FileOperation::Move:
        return FileOperationWindow::tr("Move");
    case FileOperation::Alias:
        return FileOperationWindow::tr("Make Alias");
    case FileOperation::Copy:
        break;
    }
    return FileOperationWindow::tr("Copy");
}

}  // namespace

FileOperationWindow::FileOperationWindow(VMFileOperationController* job, QWidget* parent)
    : QWidget(parent, Qt::Window),
      m_job(job),
      m_topLabel(new QLabel(this)),
      m_bottomLabel(new QLabel(this)),
      m_progress(new QProgressBar(this)),
      m_stop(new QPushButton(tr("Stop"), this))
{
    setObjectName(QString::fromLatin1(VMFileOperationController::kWindowName));
    setWindowTitle(titleFor(job->fileOperation()));
    setAttribute(Qt::WA_DeleteOnClose, false);
    QFont bold = m_topLabel->font();
    bold.setBold(true);
    m_topLabel->setFont(bold);
    m_topLabel->setAccessibleName(tr("Phase"));
    m_bottomLabel->setAccessibleName(tr("File"));
    m_bottomLabel->setMinimumWidth(320);
    m_progress->setAccessibleName(tr("Progress"));
    m_progress->setTextVisible(false);
    m_stop->setAccessibleName(tr("Stop"));
    m_stop->setAutoDefault(false);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_progress, 1);
    buttons->addWidget(m_stop);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_topLabel);
    layout->addWidget(m_bottomLabel);
    layout->addLayout(buttons);
    setFixedHeight(sizeHint().height());

    connect(job, &VMFileOperationController::topLabelChanged, m_topLabel, &QLabel::setText);
    connect(job, &VMFileOperationController::bottomLabelChanged, this, &FileOperationWindow::showFileName);
    connect(job, &VMFileOperationController::progressChanged, this, &FileOperationWindow::showProgress);
    connect(job, &VMFileOperationController::stopEnabledChanged, m_stop, &QPushButton::setEnabled);
    connect(job, &VMFileOperationController::windowVisibleChanged, this, &QWidget::setVisible);
    connect(job, &QObject::destroyed, this, &QObject::deleteLater);
    connect(m_stop, &QPushButton::clicked, job, &VMFileOperationController::stopButtonPressed);
    QPointer<FileOperationWindow> self(this);
    job->setAlertPresenter([self](const query::Alert& alert, std::function<void(int)> didEnd) {
        if (self) {
            self->presentAlert(alert, std::move(didEnd));
        } else {
            didEnd(-1);
        }
    });

    m_topLabel->setText(job->topLabel());
    showFileName(job->bottomLabel());
    m_stop->setEnabled(job->isStopEnabled());
    showProgress();
    setVisible(job->isWindowVisible());
}

void FileOperationWindow::showProgress()
{
    if (!m_job) {
        return;
    }
    const VMFileOperationController::ProgressIndicator& progress = m_job->progressIndicator();
    if (progress.indeterminate) {
        // A busy bar while it animates, an empty one when it stands still.
        m_progress->setRange(0, progress.animating ? 0 : 1);
        m_progress->setValue(0);
        return;
    }
    m_progress->setRange(int(progress.minimum), int(progress.maximum));
    m_progress->setValue(int(progress.value));
}

void FileOperationWindow::showFileName(const QString& name)
{
    m_fileName = name;
    m_bottomLabel->setText(
        m_bottomLabel->fontMetrics().elidedText(name, Qt::ElideMiddle, m_bottomLabel->minimumWidth()));
    m_bottomLabel->setToolTip(name);
}

void FileOperationWindow::presentAlert(const query::Alert& alert, std::function<void(int)> didEnd)
{
    auto* box = new QMessageBox(alert.critical ? QMessageBox::Critical : QMessageBox::Warning, windowTitle(),
                                alert.messageText, QMessageBox::NoButton, this);
    box->setInformativeText(alert.informativeText);
    QList<QAbstractButton*> buttons;
    for (const QString& title : alert.buttons) {
        QPushButton* button =
            box->addButton(title, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
        button->setAccessibleName(title);
        buttons << button;
    }
    if (!buttons.isEmpty()) {
        box->setDefaultButton(static_cast<QPushButton*>(buttons.first()));
    }
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // Closed without a button (Escape, the window closing): the job hears
    // -1, which stops it.
    auto answered = std::make_shared<bool>(false);
    connect(box, &QMessageBox::buttonClicked, this, [buttons, didEnd, answered](QAbstractButton* button) {
        *answered = true;
        didEnd(static_cast<int>(buttons.indexOf(button)));
    });
    connect(box, &QMessageBox::finished, this, [didEnd, answered] {
        if (!*answered) {
            *answered = true;
            didEnd(-1);
        }
    });
    m_sheet = box;
    box->open();
}

}  // namespace trovara::widgets
