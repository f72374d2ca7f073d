#include "preview/text_preview_utility.h"

#include "index/import/helper_importer.h"
#include "index/import/protocol.h"
#include "preview/text_preview_manager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>
#include <QUuid>

#include <condition_variable>
#include <deque>

namespace trovara::preview {

namespace {

// Room for the attributes and the frame around the text.
constexpr std::uint64_t kFrameMargin = std::uint64_t{16} << 20;
// How often a caller that may be cancelled looks at its flag.
constexpr std::chrono::milliseconds kCancelCheck{10};

std::string seconds(std::chrono::milliseconds limit)
{
    const auto count = std::chrono::duration_cast<std::chrono::duration<double>>(limit).count();
    return QString::number(count, 'g', 3).toStdString() + " s";
}

// One file asked for: filled in by the utility thread, waited for by the
// caller.
struct Request {
    Request(std::string p, std::uint64_t limit)
        : path(std::move(p))
        , textLimit(limit)
    {
    }
    std::string path;
    std::uint64_t textLimit;
    std::uint64_t id = 0;  // set by the utility thread
    std::atomic<bool> abandoned{false};

    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    bool inProcess = false;  // the caller is to read the file itself
    FileContents contents;

    void finish(FileContents answer, bool readInProcess = false)
    {
        {
            std::lock_guard guard(mutex);
            if (done) {
                return;
            }
            done = true;
            inProcess = readInProcess;
            contents = std::move(answer);
        }
        finished.notify_all();
    }
};

}  // namespace

TextPreviewOptions TextPreviewOptions::defaultOptions()
{
    TextPreviewOptions options;
    const QString beside = QCoreApplication::instance()
                               ? QCoreApplication::applicationDirPath() + QStringLiteral("/trovara-text-preview")
                               : QString();
    options.helperExecutable = !beside.isEmpty() && QFileInfo(beside).isExecutable()
                                   ? beside.toStdString()
                                   : std::string("trovara-text-preview");
    const index::HelperOptions importer = index::HelperImporter::defaultOptions();
    options.textLimit = importer.textLimit;
    options.answerLimit = importer.timeLimit;
    options.showHelperErrors = importer.showHelperErrors;
    return options;
}

// The helper as the utility thread sees it.
class TextPreviewUtility::Connection : public QObject {
public:
    explicit Connection(TextPreviewUtility& utility)
        : m_utility(utility)
        , m_options(utility.m_options)
        , m_reader(static_cast<std::size_t>(utility.m_options.textLimit + kFrameMargin))
    {
        m_answerTimer.setSingleShot(true);
        m_graceTimer.setSingleShot(true);
        connect(&m_answerTimer, &QTimer::timeout, this, [this] {
            replaceHelper("The text preview helper took longer than " + seconds(m_options.answerLimit)
                          + " to read this file.");
        });
        connect(&m_graceTimer, &QTimer::timeout, this, [this] {
            if (m_current && m_current->abandoned) {
                replaceHelper({});
            }
        });
    }

    ~Connection() override
    {
        stopHelper(true);
        failAll();
    }

    bool running() const { return m_socket != nullptr; }

    // Launches the helper and waits until it has connected and greeted, or
    // the connect limit has passed. Blocks the utility thread meanwhile.
    bool startHelper()
    {
        stopHelper(false);
        QElapsedTimer clock;
        clock.start();
        const auto limit = m_options.connectLimit.count();
        QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
        if (folder.isEmpty()) {
            folder = QDir::tempPath();
        }
        const QString identifier = folder + QStringLiteral("/trovara-text-preview-")
                                   + QUuid::createUuid().toString(QUuid::WithoutBraces);
        {
            std::lock_guard guard(m_utility.m_identifierMutex);
            m_utility.m_identifier = identifier.toStdString();
        }

        m_process = new QProcess(this);
        m_process->setProgram(QString::fromStdString(m_options.helperExecutable));
        m_process->setArguments({identifier, QString::number(QCoreApplication::applicationPid())});
        m_process->setStandardInputFile(QProcess::nullDevice());
        m_process->setStandardOutputFile(QProcess::nullDevice());
        if (m_options.showHelperErrors) {
            m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        } else {
            m_process->setStandardErrorFile(QProcess::nullDevice());
        }
        m_process->start();
        ++m_utility.m_helperStarts;
        if (!m_process->waitForStarted(static_cast<int>(limit))) {
            stopHelper(false);
            return false;
        }
        m_utility.m_helperPid = m_process->processId();

        auto* socket = new QLocalSocket(this);
        while (true) {
            socket->connectToServer(identifier);
            if (socket->state() == QLocalSocket::ConnectedState || socket->waitForConnected(0)) {
                break;
            }
            socket->abort();
            const qint64 left = limit - clock.elapsed();
            if (left <= 0 || m_process->state() == QProcess::NotRunning) {
                delete socket;
                stopHelper(false);
                return false;
            }
            // Waits for the interval, or less if the helper ends meanwhile.
            m_process->waitForFinished(static_cast<int>(std::min<qint64>(left, m_options.connectInterval.count())));
        }
        // It greets first.
        std::optional<index::Frame> hello;
        while (!hello) {
            index::Expected<std::optional<index::Frame>> frame = m_reader.next();
            if (!frame) {
                break;
            }
            if (*frame) {
                hello = std::move(**frame);
                break;
            }
            const qint64 left = limit - clock.elapsed();
            if (left <= 0 || !socket->waitForReadyRead(static_cast<int>(left))) {
                break;
            }
            const QByteArray bytes = socket->readAll();
            m_reader.append(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        }
        if (!hello || hello->type != index::MessageType::Hello || !index::decodeHello(hello->payload)) {
            delete socket;
            stopHelper(false);
            return false;
        }
        m_socket = socket;
        connect(m_socket, &QLocalSocket::readyRead, this, &Connection::receive);
        connect(m_socket, &QLocalSocket::disconnected, this, &Connection::helperLost);
        connect(m_process, &QProcess::finished, this, &Connection::helperLost);
        return true;
    }

    void request(const std::shared_ptr<Request>& request)
    {
        request->id = ++m_lastId;
        m_waiting.push_back(request);
        pump();
    }

    // Gives the next request to the helper when it is free.
    void pump()
    {
        if (m_current) {
            if (m_current->abandoned && !m_waiting.empty() && !m_graceTimer.isActive()) {
                m_graceTimer.start(m_options.abandonGrace);
            }
            return;
        }
        while (!m_waiting.empty()) {
            std::shared_ptr<Request> next = std::move(m_waiting.front());
            m_waiting.pop_front();
            if (next->abandoned) {
                next->finish(FileContents::cancelled());
                continue;
            }
            if (!running() && (m_gaveUp || !startHelper())) {
                m_gaveUp = true;
                m_utility.m_usesHelper = false;
                next->finish({}, true);
                continue;
            }
            index::ImportRequest import;
            import.id = next->id;
            import.path = next->path;
            import.textLimit = next->textLimit;
            const std::string frame =
                index::encodeFrame(index::MessageType::Import, index::encodeImportRequest(import));
            m_socket->write(frame.data(), static_cast<qint64>(frame.size()));
            m_current = std::move(next);
            m_answerTimer.start(m_options.answerLimit);
            return;
        }
    }

    void receive()
    {
        const QByteArray bytes = m_socket->readAll();
        m_reader.append(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        while (m_socket) {
            index::Expected<std::optional<index::Frame>> frame = m_reader.next();
            if (frame && !*frame) {
                return;
            }
            index::Expected<index::ImportResult> result =
                frame && (*frame)->type == index::MessageType::Result
                    ? index::decodeImportResult((*frame)->payload)
                    : index::Expected<index::ImportResult>(index::Failure{});
            if (!result || !m_current || result->id != m_current->id) {
                replaceHelper("The text preview helper sent a malformed answer.");
                return;
            }
            m_answerTimer.stop();
            m_graceTimer.stop();
            std::shared_ptr<Request> answered = std::move(m_current);
            m_current.reset();
            answered->finish(fromImportResult(std::move(*result)));
            pump();
        }
    }

    // The helper ended or closed the connection on its own.
    void helperLost()
    {
        if (!m_process) {
            return;
        }
        // Waiting below delivers the helper's other signal of its end.
        disconnect(m_process, nullptr, this, nullptr);
        if (m_socket) {
            disconnect(m_socket, nullptr, this, nullptr);
        }
        std::string how = "it stopped";
        m_process->waitForFinished(1000);
        if (m_process->state() == QProcess::NotRunning) {
            how = m_process->exitStatus() == QProcess::CrashExit
                      ? "it crashed (signal " + std::to_string(m_process->exitCode()) + ")"
                      : "it stopped (exit status " + std::to_string(m_process->exitCode()) + ")";
        }
        const bool working = m_current != nullptr;
        replaceHelper("The text preview helper stopped while reading this file: " + how + ".", working);
    }

    // Kills the helper; fails the file it was on with `problem` (or as
    // cancelled when its caller left); starts another at once when `restart`
    // (otherwise when the next file comes).
    void replaceHelper(const std::string& problem, bool restart = false)
    {
        stopHelper(false);
        m_answerTimer.stop();
        m_graceTimer.stop();
        if (std::shared_ptr<Request> failed = std::move(m_current)) {
            m_current.reset();
            failed->finish(failed->abandoned || problem.empty() ? FileContents::cancelled()
                                                                : FileContents::failed(problem));
        }
        if (restart && !m_gaveUp && !startHelper()) {
            m_gaveUp = true;
            m_utility.m_usesHelper = false;
        }
        pump();
    }

    void stopHelper(bool politely)
    {
        if (m_socket) {
            disconnect(m_socket, nullptr, this, nullptr);
            if (politely) {
                const std::string quit = index::encodeFrame(index::MessageType::Quit, {});
                m_socket->write(quit.data(), static_cast<qint64>(quit.size()));
                m_socket->waitForBytesWritten(100);
            }
            m_socket->abort();
            m_socket->deleteLater();  // we may be in one of its signals
            m_socket = nullptr;
        }
        if (m_process) {
            disconnect(m_process, nullptr, this, nullptr);
            if (!politely || !m_process->waitForFinished(500)) {
                m_process->kill();
                m_process->waitForFinished(1000);
            }
            m_process->deleteLater();
            m_process = nullptr;
        }
        m_reader = index::FrameReader(static_cast<std::size_t>(m_options.textLimit + kFrameMargin));
        m_utility.m_helperPid = 0;
    }

    void failAll()
    {
        if (m_current) {
            m_current->finish(FileContents::cancelled());
            m_current.reset();
        }
        for (const std::shared_ptr<Request>& waiting : m_waiting) {
            waiting->finish(FileContents::cancelled());
        }
        m_waiting.clear();
    }

private:
    TextPreviewUtility& m_utility;
    const TextPreviewOptions& m_options;
    QProcess* m_process = nullptr;
    QLocalSocket* m_socket = nullptr;
    index::FrameReader m_reader;
    std::shared_ptr<Request> m_current;
    std::deque<std::shared_ptr<Request>> m_waiting;
    QTimer m_answerTimer;
    QTimer m_graceTimer;
    std::uint64_t m_lastId = 0;
    bool m_gaveUp = false;
};

// The utility's thread: starts the first helper, then serves requests in its
// event loop until the utility ends.
class TextPreviewUtility::Thread : public QThread {
public:
    explicit Thread(TextPreviewUtility& utility)
        : m_utility(utility)
    {
        setObjectName(QStringLiteral("TextPreviewUtility"));
    }

protected:
    void run() override
    {
        m_utility.m_lock.lock();
        Connection connection(m_utility);
        m_utility.m_usesHelper = connection.startHelper();
        m_utility.m_connection = &connection;
        m_utility.m_lock.unlockWithCondition(1);
        exec();
        std::lock_guard guard(m_utility.m_requestsMutex);
        m_utility.m_connection = nullptr;
    }

private:
    TextPreviewUtility& m_utility;
};

TextPreviewUtility::TextPreviewUtility(TextPreviewOptions options)
    : m_options(std::move(options))
    , m_thread(std::make_unique<Thread>(*this))
{
    m_thread->start();
}

TextPreviewUtility::~TextPreviewUtility()
{
    waitUntilStarted();
    {
        std::lock_guard guard(m_requestsMutex);
        m_ending = true;
    }
    m_thread->quit();
    m_thread->wait();
    // Requests the thread never saw.
    std::lock_guard guard(m_requestsMutex);
    for (const std::shared_ptr<void>& waiting : m_requests) {
        std::static_pointer_cast<Request>(waiting)->finish(FileContents::cancelled());
    }
}

TextPreviewUtility& TextPreviewUtility::sharedTextPreviewUtility()
{
    static std::mutex mutex;
    static TextPreviewUtility* shared = nullptr;
    std::lock_guard guard(mutex);
    if (!shared) {
        shared = new TextPreviewUtility();
        // Ended with the application object, while its event loop machinery
        // is still there.
        qAddPostRoutine([] {
            std::lock_guard guard(mutex);
            delete shared;
            shared = nullptr;
        });
    }
    return *shared;
}

void TextPreviewUtility::waitUntilStarted()
{
    m_lock.lockWhenCondition(1);
    m_lock.unlockWithCondition(1);
}

bool TextPreviewUtility::usesHelper()
{
    waitUntilStarted();
    return m_usesHelper;
}

std::string TextPreviewUtility::serverIdentifier() const
{
    std::lock_guard guard(m_identifierMutex);
    return m_identifier;
}

FileContents TextPreviewUtility::textContentsOfFile(const std::string& path, const std::atomic<bool>* cancel,
                                                    std::uint64_t limit)
{
    waitUntilStarted();
    if (limit == 0 || (m_options.textLimit != 0 && m_options.textLimit < limit)) {
        limit = m_options.textLimit;
    }
    auto request = std::make_shared<Request>(path, limit);
    {
        // Posting under the lock: the thread forgets its connection under
        // it too, before the connection goes.
        std::lock_guard guard(m_requestsMutex);
        Connection* connection = m_connection.load();
        if (m_ending || !connection) {
            return FileContents::cancelled();
        }
        m_requests.insert(request);
        QMetaObject::invokeMethod(connection, [connection, request] { connection->request(request); },
                                  Qt::QueuedConnection);
    }
    struct Forget {
        TextPreviewUtility& utility;
        std::shared_ptr<void> request;
        ~Forget()
        {
            std::lock_guard guard(utility.m_requestsMutex);
            utility.m_requests.erase(request);
        }
    } forget{*this, request};

    {
        std::unique_lock guard(request->mutex);
        while (!request->done) {
            if (!cancel) {
                request->finished.wait(guard);
            } else if (cancel->load()) {
                request->abandoned = true;
                return FileContents::cancelled();
            } else {
                request->finished.wait_for(guard, kCancelCheck);
            }
        }
        if (!request->inProcess) {
            return std::move(request->contents);
        }
    }
    // The helper is not used: read the file here.
    std::lock_guard guard(m_inProcessMutex);
    TextPreviewManager& manager =
        m_options.inProcessManager ? m_options.inProcessManager() : TextPreviewManager::defaultManager();
    return manager.textContentsOfFile(path, cancel, limit);
}

}  // namespace trovara::preview
