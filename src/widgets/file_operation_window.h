// The small window of one copy, move or link job ("VMFileOperation"): the
// phase on top, the file under way beneath it, the progress bar and Stop.
// The job's questions (a destination that cannot be written, a file that
// cannot be read, a name taken at the destination) are sheets on it.
//
// The window only shows the job (fileops::VMFileOperationController): it
// appears while the job's window is visible, hides when the job stops and
// goes away with the job.
#pragma once

#include "query/alert.h"

#include <QMessageBox>
#include <QPointer>
#include <QWidget>

#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;

namespace trovara::fileops {
class VMFileOperationController;
}

namespace trovara::widgets {

class FileOperationWindow final : public QWidget {
    Q_OBJECT

public:
    explicit FileOperationWindow(fileops::VMFileOperationController* job, QWidget* parent = nullptr);

    fileops::VMFileOperationController* job() const { return m_job; }
    QLabel* topLabel() const { return m_topLabel; }
    QLabel* bottomLabel() const { return m_bottomLabel; }
    QProgressBar* progressIndicator() const { return m_progress; }
    QPushButton* stopButton() const { return m_stop; }
    // The sheet on the window, while one is up.
    QMessageBox* sheet() const { return m_sheet; }

    // Shows the alert as a sheet; `didEnd` gets the index of the button
    // pressed (the first is the default).
    void presentAlert(const query::Alert& alert, std::function<void(int button)> didEnd);

private:
    void showProgress();
    void showFileName(const QString& name);

    QPointer<fileops::VMFileOperationController> m_job;
    QLabel* m_topLabel;
    QLabel* m_bottomLabel;
    QProgressBar* m_progress;
    QPushButton* m_stop;
    QPointer<QMessageBox> m_sheet;
    QString m_fileName;
};

}  // namespace trovara::widgets
