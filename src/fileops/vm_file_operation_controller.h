// One copy, move or link job over files a person chose, as its progress
// window shows it. The job
//   1. checks the destination folder ("Checking destination folder"),
//   2. checks that every source can be read ("Checking source files"),
//      asking what to do about each one that cannot,
//   3. settles a destination name for every source ("Checking for
//      conflicts"): sources of the same name are renamed "name 1.ext",
//      "name 2.ext" …; an entry already at the destination is asked about
//      one file at a time (Skip, Stop, and Overwrite for a writable file),
//   4. transfers the files on a background queue with the machine's default
//      concurrency (transfer.h says how nothing is lost), while a repeating
//      timer (every second) moves the progress bar; folders go side by side,
//      files that land right in the destination folder one after another,
//   5. stops: the window is hidden and every list is cleared.
//
// Everything a window shows is state with a change signal (labels, progress
// bar, Stop button, visibility); alerts go through an injected presenter
// that answers with a button index, at once or later (the window shows them
// as sheets). Every continuation after an alert, and the start, happens on
// the next turn of the event loop, never directly.
//
// Two cases the checks refuse besides those of a plain file manager: a source
// that is itself the entry at its destination (only Skip or Stop, since
// overwriting it would put the source in the Trash), and a folder copied or
// moved into itself or one of its subfolders.
//
// Transfer errors do not end the job: each is shown through the standard
// error presentation (presentError) on the main thread, one at a time, while
// its transfer thread waits; the other transfers go on (the files after a
// failed file once its error is dismissed).
//
// Thread safety: a job lives on the main thread; only performOperation()
// runs on the queue's threads. The lists and maps are complete before the
// queue starts and only read afterwards. Destroying a job that still runs
// transfers aborts them (partial copies removed, sources untouched).
#pragma once

#include "common/error.h"
#include "fileops/file_system.h"
#include "fileops/operation_queue.h"
#include "fileops/transfer.h"
#include "query/alert.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace trovara::fileops {

// What a job needs from outside.
struct JobEnvironment {
    std::shared_ptr<FileSystem> fileSystem;  // empty: the machine's
    query::AlertPresenter alertPresenter;    // empty: every alert is answered with its first button
    int threadCount = 0;                     // 0: one per processor
    std::chrono::milliseconds progressInterval{1000};
};

class VMFileOperationController final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString topLabel READ topLabel NOTIFY topLabelChanged)
    Q_PROPERTY(QString bottomLabel READ bottomLabel NOTIFY bottomLabelChanged)
    Q_PROPERTY(bool stopEnabled READ isStopEnabled NOTIFY stopEnabledChanged)
    Q_PROPERTY(bool windowVisible READ isWindowVisible NOTIFY windowVisibleChanged)

public:
    // The name of the job window's description.
    static constexpr const char* kWindowName = "VMFileOperation";

    enum class Phase { CheckingDestination, CheckingSources, CheckingConflicts, Transferring, Stopped };

    using Environment = JobEnvironment;

    struct TransferRequest {
        QString sourcePath;
        QString destinationPath;
    };

    struct ProgressIndicator {
        bool indeterminate = true;
        bool animating = false;
        double value = 0;
        double minimum = 0;
        double maximum = 0;
    };

    // What became of one transfer.
    struct TransferResult {
        QString sourcePath;
        QString destinationPath;
        bool succeeded = false;
    };

    // Sets the job up (animation on, Stop disabled, labels empty, window
    // shown) and starts it on the next turn of the event loop.
    VMFileOperationController(QStringList files, QString destination, FileOperation operation,
                              Environment environment = {}, QObject* parent = nullptr);
    ~VMFileOperationController() override;

    // Where the job's alerts are shown (its window's sheets); set it before
    // the job starts, on the first turn of the event loop.
    void setAlertPresenter(query::AlertPresenter presenter) { m_environment.alertPresenter = std::move(presenter); }

    // --- State -----------------------------------------------------------
    Phase phase() const { return m_phase; }
    const QString& topLabel() const { return m_topLabel; }
    const QString& bottomLabel() const { return m_bottomLabel; }
    const ProgressIndicator& progressIndicator() const { return m_progress; }
    bool isStopEnabled() const { return m_stopEnabled; }
    bool isWindowVisible() const { return m_windowVisible; }
    const QStringList& sourcePaths() const { return m_sourcePaths; }
    const QString& directory() const { return m_directory; }
    FileOperation fileOperation() const { return m_fileOperation; }
    const QStringList& readablePaths() const { return m_readablePaths; }
    const QHash<QString, QString>& sourceDestinationMappings() const { return m_sourceDestinationMappings; }
    const QSet<QString>& destinationNames() const { return m_destinationNames; }
    // Every transfer that ended, in the order they ended (kept after stop).
    const std::vector<TransferResult>& transferResults() const { return m_results; }
    // Transfers waiting or running.
    int remainingOperationCount() const;

    // --- The job's steps (each runs on the main thread) --------------------
    void start();
    void stop();
    // The Stop button: cancels every transfer that has not started; the
    // timer ends the job once the running ones are done.
    void stopButtonPressed();
    void checkWritable();
    void checkReadable();
    void checkReadableFromIndex(int index);
    void checkConflicts();
    void checkConflictsFromIndex(int index, bool force);
    void performOperations();
    void updateProgress();
    void presentOperationError(const Error& error);

    // Blocks until the transfer queue is empty (tests, benchmarks).
    void waitUntilTransfersFinished();

signals:
    void phaseChanged(trovara::fileops::VMFileOperationController::Phase phase);
    void topLabelChanged(const QString& text);
    void bottomLabelChanged(const QString& text);
    void progressChanged();
    void stopEnabledChanged(bool enabled);
    void windowVisibleChanged(bool visible);
    void transferFinished(const QString& sourcePath, const QString& destinationPath, bool succeeded);
    void stopped();

private:
    enum class Sheet { Writable, Readable, Conflicts };
    struct ErrorWait;

    // Runs on a queue thread.
    void performOperation(const TransferRequest& request);
    void presentFromTransferThread(const Error& error);
    void presentNextErrors();
    void recordEndedResults();

    void showAlert(Sheet sheet, query::Alert alert, int index);
    void sheetDidEnd(Sheet sheet, const QString& answer, int index);
    // Schedules a step on the next turn of the event loop.
    template <typename Step>
    void later(Step step);

    QString uniqueDestinationName(const QString& name) const;
    void setPhase(Phase phase);
    void setTopLabel(const QString& text);
    void setBottomLabel(const QString& text);
    void setStopEnabled(bool enabled);
    void releaseErrorWaits();

    Environment m_environment;
    std::shared_ptr<FileSystem> m_fileSystem;

    Phase m_phase = Phase::CheckingDestination;
    QString m_topLabel;
    QString m_bottomLabel;
    ProgressIndicator m_progress;
    bool m_stopEnabled = false;
    bool m_windowVisible = false;

    QStringList m_sourcePaths;
    QString m_directory;
    FileOperation m_fileOperation;
    QStringList m_readablePaths;
    QSet<QString> m_readableSet;  // m_readablePaths, to look up
    QHash<QString, QString> m_sourceDestinationMappings;
    QSet<QString> m_destinationNames;
    QSet<QString> m_folderSources;  // mapped sources that are folders
    std::unique_ptr<OperationQueue> m_operationQueue;
    std::unique_ptr<QTimer> m_timer;
    std::vector<TransferResult> m_results;

    // Set when the job is destroyed with transfers running.
    std::atomic<bool> m_abort{false};
    // The name of the transfer started last, for the bottom label.
    mutable std::mutex m_currentMutex;
    QString m_currentName;

    // Results of transfers that ended, not yet taken in by the main thread.
    std::mutex m_resultMutex;
    std::vector<TransferResult> m_endedResults;
    bool m_resultsAwaited = false;  // the main thread will take them in

    // Errors handed over by transfer threads, shown one at a time.
    std::mutex m_waitMutex;
    std::vector<std::shared_ptr<ErrorWait>> m_waits;
    std::deque<std::pair<Error, std::shared_ptr<ErrorWait>>> m_errorQueue;
    bool m_presentingError = false;
};

}  // namespace trovara::fileops
