#include "fileops/vm_file_operation_controller.h"

#include "fileops/localized.h"
#include "common/error_presenter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>

namespace trovara::fileops {

namespace {

using Links = FileSystem::Links;

QString lastComponent(const QString& path)
{
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(QLatin1Char('/'))) {
        trimmed.chop(1);
    }
    return trimmed == QStringLiteral("/") ? trimmed : trimmed.mid(trimmed.lastIndexOf(QLatin1Char('/')) + 1);
}

QString inFolder(const QString& folder, const QString& name)
{
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

// A check loop gives the event loop a turn after this long, so that a job
// over thousands of files never freezes the window.
constexpr qint64 kCheckSliceMilliseconds = 10;

// The transfer queue's serial key for transfers that make their entry right
// in the destination folder.
constexpr std::uint64_t kDestinationFolderKey = 1;

// How long results of ended transfers gather before the main thread takes
// them in.
constexpr int kResultBatchMilliseconds = 5;

}  // namespace

// A transfer thread waiting for its error to be dismissed.
struct VMFileOperationController::ErrorWait {
    std::mutex mutex;
    std::condition_variable condition;
    bool released = false;

    void release()
    {
        std::lock_guard lock(mutex);
        released = true;
        condition.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return released; });
    }
};

VMFileOperationController::VMFileOperationController(QStringList files, QString destination,
                                                     FileOperation operation, Environment environment,
                                                     QObject* parent)
    : QObject(parent),
      m_environment(std::move(environment)),
      m_fileSystem(m_environment.fileSystem ? m_environment.fileSystem : std::make_shared<LocalFileSystem>()),
      m_sourcePaths(std::move(files)),
      m_directory(std::move(destination)),
      m_fileOperation(operation)
{
    // The window comes to the front with its bar animating, Stop disabled
    // and both labels empty; then the job starts.
    m_windowVisible = true;
    m_progress.indeterminate = true;
    m_progress.animating = true;
    later([this] { start(); });
}

VMFileOperationController::~VMFileOperationController()
{
    if (m_operationQueue) {
        m_abort = true;
        m_operationQueue->cancelAllOperations();
        releaseErrorWaits();
        m_operationQueue.reset();
    }
}

template <typename Step>
void VMFileOperationController::later(Step step)
{
    QTimer::singleShot(0, this, std::move(step));
}

int VMFileOperationController::remainingOperationCount() const
{
    return m_operationQueue ? m_operationQueue->operationCount() : 0;
}

void VMFileOperationController::start()
{
    if (m_sourcePaths.isEmpty()) {
        stop();
        return;
    }
    checkWritable();
}

void VMFileOperationController::checkWritable()
{
    setPhase(Phase::CheckingDestination);
    setTopLabel(localized("Checking destination folder"));
    FileInfo folder;
    const bool writable = m_fileSystem->status(m_directory, Links::Follow, &folder) == 0 && folder.isDirectory()
                          && m_fileSystem->isAccessible(m_directory, FileSystem::Access::Write);
    if (!writable) {
        showAlert(Sheet::Writable,
                  {localized("Destination cannot be written"),
                   localized("%1 is not a writable directory").arg(lastComponent(m_directory)),
                   {localized("Stop")}},
                  0);
        return;
    }
    checkReadable();
}

void VMFileOperationController::checkReadable()
{
    setPhase(Phase::CheckingSources);
    setTopLabel(localized("Checking source files"));
    m_readablePaths = {};
    m_readableSet = {};
    checkReadableFromIndex(0);
}

void VMFileOperationController::checkReadableFromIndex(int index)
{
    QElapsedTimer slice;
    slice.start();
    for (int i = index; i < m_sourcePaths.size(); ++i) {
        if (i > index && slice.elapsed() >= kCheckSliceMilliseconds) {
            later([this, i] { checkReadableFromIndex(i); });
            return;
        }
        const QString& path = m_sourcePaths.at(i);
        setBottomLabel(lastComponent(path));
        FileInfo info;
        m_fileSystem->status(path, Links::NoFollow, &info);
        // A link is copied as a link, which needs no right to its target.
        const bool readable = info.type == FileInfo::Type::Symlink
                              || (info.exists() && m_fileSystem->isAccessible(path, FileSystem::Access::Read));
        if (!readable) {
            showAlert(Sheet::Readable,
                      {localized("File cannot be read"),
                       localized("Insufficient rights for: %1").arg(lastComponent(path)),
                       {localized("Skip"), localized("Stop")}},
                      i);
            return;
        }
        if (!m_readableSet.contains(path)) {
            m_readableSet.insert(path);
            m_readablePaths.push_back(path);
        }
    }
    if (m_readablePaths.isEmpty()) {
        stop();
        return;
    }
    checkConflicts();
}

void VMFileOperationController::checkConflicts()
{
    setPhase(Phase::CheckingConflicts);
    setTopLabel(localized("Checking for conflicts"));
    m_sourceDestinationMappings = {};
    m_destinationNames = {};
    m_folderSources = {};
    checkConflictsFromIndex(0, false);
}

QString VMFileOperationController::uniqueDestinationName(const QString& name) const
{
    // "notes.txt" → "notes 1.txt", "notes 2.txt" …; a leading dot does not
    // start an extension.
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = dot > 0;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot + 1) : QString();
    for (int n = 1;; ++n) {
        QString candidate = QStringLiteral("%1 %2").arg(base).arg(n);
        if (hasExtension) {
            candidate += QLatin1Char('.') + extension;
        }
        FileInfo present;
        if (!m_destinationNames.contains(candidate)
            && m_fileSystem->status(inFolder(m_directory, candidate), Links::NoFollow, &present) != 0) {
            return candidate;
        }
    }
}

void VMFileOperationController::checkConflictsFromIndex(int index, bool force)
{
    QElapsedTimer slice;
    slice.start();
    for (int i = index; i < m_readablePaths.size(); ++i) {
        if (i > index && slice.elapsed() >= kCheckSliceMilliseconds) {
            later([this, i] { checkConflictsFromIndex(i, false); });
            return;
        }
        const QString& source = m_readablePaths.at(i);
        QString name = lastComponent(source);
        setBottomLabel(name);

        FileInfo sourceInfo;
        m_fileSystem->status(source, Links::NoFollow, &sourceInfo);
        if (m_fileOperation != FileOperation::Alias && sourceInfo.isDirectory()
            && isInsideFolder(*m_fileSystem, m_directory, source)) {
            showAlert(Sheet::Conflicts,
                      {m_fileOperation == FileOperation::Move ? localized("Folder cannot be moved into itself")
                                                              : localized("Folder cannot be copied into itself"),
                       localized("%1 contains the destination folder").arg(name),
                       {localized("Skip"), localized("Stop")}},
                      i);
            return;
        }

        if (m_destinationNames.contains(name)) {
            name = uniqueDestinationName(name);
        }
        const QString destination = inFolder(m_directory, name);
        FileInfo existing;
        const bool exists = m_fileSystem->status(destination, Links::NoFollow, &existing) == 0;
        if (force || !exists) {
            m_destinationNames.insert(name);
            m_sourceDestinationMappings.insert(source, destination);
            if (sourceInfo.isDirectory()) {
                m_folderSources.insert(source);
            }
            force = false;
            continue;
        }

        FileInfo target;
        const bool isFolder = m_fileSystem->status(destination, Links::Follow, &target) == 0 && target.isDirectory();
        query::Alert alert{localized("File exists at destination"), {}, {localized("Skip"), localized("Stop")}};
        alert.informativeText = (isFolder ? localized("%1 is a folder") : localized("%1 is a file")).arg(name);
        // The source itself is never offered for overwriting: it would go to
        // the Trash in place of the copy.
        const bool isSource = existing.isSameObject(sourceInfo);
        if (!isFolder && !isSource && m_fileSystem->isAccessible(destination, FileSystem::Access::Write)) {
            alert.buttons.push_back(localized("Overwrite"));
        }
        showAlert(Sheet::Conflicts, alert, i);
        return;
    }
    if (m_sourceDestinationMappings.isEmpty()) {
        stop();
        return;
    }
    performOperations();
}

void VMFileOperationController::showAlert(Sheet sheet, query::Alert alert, int index)
{
    const QStringList buttons = alert.buttons;
    QPointer<VMFileOperationController> self(this);
    auto didEnd = [self, sheet, buttons, index](int button) {
        if (!self) {
            return;
        }
        const QString answer = button >= 0 && button < buttons.size() ? buttons.at(button) : localized("Stop");
        self->sheetDidEnd(sheet, answer, index);
    };
    if (m_environment.alertPresenter) {
        m_environment.alertPresenter(alert, std::move(didEnd));
    } else {
        didEnd(0);
    }
}

void VMFileOperationController::sheetDidEnd(Sheet sheet, const QString& answer, int index)
{
    if (sheet == Sheet::Writable || answer == localized("Stop")) {
        later([this] { stop(); });
        return;
    }
    const bool overwrite = answer == localized("Overwrite");
    if (sheet == Sheet::Readable) {
        later([this, index] { checkReadableFromIndex(index + 1); });
    } else if (overwrite) {
        later([this, index] { checkConflictsFromIndex(index, true); });
    } else {
        later([this, index] { checkConflictsFromIndex(index + 1, false); });
    }
}

void VMFileOperationController::performOperations()
{
    switch (m_fileOperation) {
    case FileOperation::Copy:
        setTopLabel(localized("Copying files"));
        break;
    case FileOperation::Move:
        setTopLabel(localized("Moving files"));
        break;
    case FileOperation::Alias:
        setTopLabel(localized("Creating aliases"));
        break;
    }
    setBottomLabel({});
    m_progress = {false, false, 0, 0, double(m_sourceDestinationMappings.size())};
    emit progressChanged();
    setStopEnabled(true);

    m_operationQueue = std::make_unique<OperationQueue>(m_environment.threadCount);
    for (const QString& source : std::as_const(m_readablePaths)) {
        const auto mapped = m_sourceDestinationMappings.constFind(source);
        if (mapped == m_sourceDestinationMappings.cend()) {
            continue;
        }
        // Files copied or moved each make an entry in the destination
        // folder; side by side they would only wait for each other on the
        // folder's lock, so they go one after another (and an error shown
        // for one pauses them). Folders fill folders of their own and go
        // side by side with them; links start a program each.
        const bool intoOneFolder = m_fileOperation != FileOperation::Alias && !m_folderSources.contains(source);
        TransferRequest request{source, *mapped};
        m_operationQueue->addOperation([this, request] { performOperation(request); },
                                       intoOneFolder ? kDestinationFolderKey : 0);
    }
    m_timer = std::make_unique<QTimer>();
    connect(m_timer.get(), &QTimer::timeout, this, &VMFileOperationController::updateProgress);
    m_timer->start(m_environment.progressInterval);
    setPhase(Phase::Transferring);
}

void VMFileOperationController::performOperation(const TransferRequest& request)
{
    {
        std::lock_guard lock(m_currentMutex);
        m_currentName = lastComponent(request.sourcePath);
    }
    const Status status =
        performTransfer(*m_fileSystem, m_fileOperation, request.sourcePath, request.destinationPath, &m_abort);
    // Results travel to the main thread in batches, taken in a few
    // milliseconds after the first of them: a wake-up per file would cost
    // small files more than their copying does.
    bool first = false;
    {
        std::lock_guard lock(m_resultMutex);
        first = !m_resultsAwaited;
        m_resultsAwaited = true;
        m_endedResults.push_back({request.sourcePath, request.destinationPath, status.ok()});
    }
    if (first) {
        QMetaObject::invokeMethod(
            this, [this] { QTimer::singleShot(kResultBatchMilliseconds, this, [this] { recordEndedResults(); }); },
            Qt::QueuedConnection);
    }
    if (!status && !m_abort) {
        presentFromTransferThread(status.error());
    }
}

void VMFileOperationController::recordEndedResults()
{
    std::vector<TransferResult> ended;
    {
        std::lock_guard lock(m_resultMutex);
        ended.swap(m_endedResults);
        m_resultsAwaited = false;
    }
    QPointer<VMFileOperationController> self(this);
    for (const TransferResult& result : ended) {
        m_results.push_back(result);
        emit transferFinished(result.sourcePath, result.destinationPath, result.succeeded);
        if (!self) {
            return;
        }
    }
}

void VMFileOperationController::presentFromTransferThread(const Error& error)
{
    auto wait = std::make_shared<ErrorWait>();
    {
        std::lock_guard lock(m_waitMutex);
        if (m_abort) {
            return;
        }
        m_waits.push_back(wait);
    }
    QMetaObject::invokeMethod(
        this,
        [this, error, wait] {
            m_errorQueue.emplace_back(error, wait);
            presentNextErrors();
        },
        Qt::QueuedConnection);
    wait->wait();
    std::lock_guard lock(m_waitMutex);
    std::erase(m_waits, wait);
}

void VMFileOperationController::presentNextErrors()
{
    // A presentation may run a nested event loop (a modal alert) in which
    // more errors arrive; they wait their turn here.
    if (m_presentingError) {
        return;
    }
    m_presentingError = true;
    QPointer<VMFileOperationController> self(this);
    while (!m_errorQueue.empty()) {
        auto [error, wait] = std::move(m_errorQueue.front());
        m_errorQueue.pop_front();
        presentOperationError(error);
        wait->release();
        if (!self) {
            return;
        }
    }
    m_presentingError = false;
}

void VMFileOperationController::presentOperationError(const Error& error)
{
    presentError(error);
}

void VMFileOperationController::releaseErrorWaits()
{
    std::lock_guard lock(m_waitMutex);
    for (const auto& wait : m_waits) {
        wait->release();
    }
}

void VMFileOperationController::updateProgress()
{
    const int remaining = remainingOperationCount();
    if (remaining == 0) {
        // Every transfer has ended; take in the results they sent on their
        // way out before the job reports that it stopped.
        QPointer<VMFileOperationController> self(this);
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
        recordEndedResults();
        if (!self) {
            return;
        }
        if (m_timer) {
            m_timer->stop();
        }
        stop();
        return;
    }
    QString current;
    {
        std::lock_guard lock(m_currentMutex);
        current = m_currentName;
    }
    setBottomLabel(current);
    m_progress.value = m_progress.maximum - remaining;
    emit progressChanged();
}

void VMFileOperationController::stopButtonPressed()
{
    if (m_operationQueue) {
        m_operationQueue->cancelAllOperations();
    }
    setStopEnabled(false);
}

void VMFileOperationController::waitUntilTransfersFinished()
{
    if (m_operationQueue) {
        m_operationQueue->waitUntilAllOperationsAreFinished();
    }
}

void VMFileOperationController::stop()
{
    if (m_phase == Phase::Stopped) {
        return;
    }
    if (m_operationQueue && m_operationQueue->operationCount() > 0) {
        // Not reached through the job's own steps (the timer stops the job
        // only once the queue is empty); a caller that stops a running job
        // gets the running transfers aborted rather than a frozen window.
        m_abort = true;
        m_operationQueue->cancelAllOperations();
        releaseErrorWaits();
    }
    m_operationQueue.reset();
    m_sourcePaths = {};
    m_directory = {};
    m_readablePaths = {};
    m_readableSet = {};
    m_sourceDestinationMappings = {};
    m_destinationNames = {};
    m_folderSources = {};
    m_timer.reset();
    m_progress.animating = false;
    emit progressChanged();
    setStopEnabled(true);
    m_windowVisible = false;
    emit windowVisibleChanged(false);
    setPhase(Phase::Stopped);
    emit stopped();
}

void VMFileOperationController::setPhase(Phase phase)
{
    if (m_phase != phase) {
        m_phase = phase;
        emit phaseChanged(phase);
    }
}

void VMFileOperationController::setTopLabel(const QString& text)
{
    if (m_topLabel != text) {
        m_topLabel = text;
        emit topLabelChanged(text);
    }
}

void VMFileOperationController::setBottomLabel(const QString& text)
{
    if (m_bottomLabel != text) {
        m_bottomLabel = text;
        emit bottomLabelChanged(text);
    }
}

void VMFileOperationController::setStopEnabled(bool enabled)
{
    if (m_stopEnabled != enabled) {
        m_stopEnabled = enabled;
        emit stopEnabledChanged(enabled);
    }
}

}  // namespace trovara::fileops
