// trova daemon start|stop|status, and the way other commands reach a
// running daemon.
#include "commands.h"
#include "daemon_link.h"

#include "daemon/client.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace trovara::cli {

std::unique_ptr<daemon::Connection> connectToDaemon(const GlobalOptions& global, bool* failed)
{
    *failed = false;
    index::Expected<std::unique_ptr<daemon::Connection>> connection = daemon::Connection::open(global.indexDirectory);
    if (connection) {
        return std::move(connection.value());
    }
    if (!daemon::isNoDaemon(connection.error())) {
        printError(QString::fromStdString(connection.error().message));
        *failed = true;
    }
    return nullptr;
}

namespace {

QString daemonProgram()
{
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/trovarad");
    if (QFileInfo(beside).isExecutable()) {
        return beside;
    }
    return QStandardPaths::findExecutable(QStringLiteral("trovarad"));
}

int start(const GlobalOptions& global)
{
    bool failed = false;
    if (std::unique_ptr<daemon::Connection> running = connectToDaemon(global, &failed)) {
        std::printf("the daemon is already running (pid %lld)\n", static_cast<long long>(running->daemonPid()));
        return 0;
    }
    if (failed) {
        return 1;
    }
    const QString program = daemonProgram();
    if (program.isEmpty()) {
        printError(QStringLiteral("cannot find trovarad"));
        return 1;
    }
    const QString log = QString::fromStdString(global.indexDirectory) + QStringLiteral("/daemon.log");
    QDir().mkpath(QString::fromStdString(global.indexDirectory));
    QProcess process;
    process.setProgram(program);
    process.setArguments({QStringLiteral("--index"), QString::fromStdString(global.indexDirectory)});
    process.setStandardOutputFile(log, QIODevice::Append);
    process.setStandardErrorFile(log, QIODevice::Append);
    process.setStandardInputFile(QProcess::nullDevice());
    qint64 pid = 0;
    if (!process.startDetached(&pid)) {
        printError(QStringLiteral("cannot start %1").arg(program));
        return 1;
    }
    // Ready once it answers (it opens the index first, which may take a moment).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        if (std::unique_ptr<daemon::Connection> running = connectToDaemon(global, &failed)) {
            std::printf("the daemon is running (pid %lld)\n", static_cast<long long>(running->daemonPid()));
            return 0;
        }
        if (::kill(static_cast<pid_t>(pid), 0) != 0) {
            break;  // it stopped: its log says why
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    printError(QStringLiteral("the daemon did not start; see %1").arg(log));
    return 1;
}

int stop(const GlobalOptions& global)
{
    bool failed = false;
    std::unique_ptr<daemon::Connection> running = connectToDaemon(global, &failed);
    if (!running) {
        if (!failed) {
            std::printf("the daemon is not running\n");
        }
        return failed ? 1 : 0;
    }
    const auto pid = static_cast<pid_t>(running->daemonPid());
    daemon::Request shutdown;
    shutdown.type = daemon::MessageType::Shutdown;
    index::Expected<daemon::Reply> reply = running->call(shutdown);
    running.reset();
    // Gone once its process has ended (it writes the snapshot on the way out).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline && ::kill(pid, 0) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (::kill(pid, 0) == 0) {
        printError(QStringLiteral("the daemon (pid %1) did not stop").arg(pid));
        return 1;
    }
    std::printf("the daemon has stopped\n");
    return 0;
}

std::string formatBytes(std::uint64_t bytes)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
    return text;
}

int status(const GlobalOptions& global)
{
    bool failed = false;
    std::unique_ptr<daemon::Connection> running = connectToDaemon(global, &failed);
    if (!running) {
        if (!failed) {
            std::printf("the daemon is not running (index: %s)\n", global.indexDirectory.c_str());
        }
        return failed ? 1 : 3;
    }
    daemon::Request request;
    request.type = daemon::MessageType::Status;
    index::Expected<daemon::Reply> reply = running->call(request);
    if (!reply || reply->failure) {
        printError(QString::fromStdString(!reply ? reply.error().message : reply->failure->message));
        return 1;
    }
    const daemon::DaemonFigures& f = reply->figures;
    std::printf("the daemon is running (pid %lld) since %s\n", static_cast<long long>(f.pid),
                QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(f.startedAt / 1000000))
                    .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                    .toLocal8Bit()
                    .constData());
    std::printf("index: %s\n", global.indexDirectory.c_str());
    std::printf("roots: %zu, items: %lld%s\n", reply->status.roots.size(), static_cast<long long>(reply->status.items),
                f.caughtUp ? "" : " (catching up with changes made while it was stopped)");
    std::printf("watched folders: %llu, polled folders: %llu (watch budget %llu)\n",
                static_cast<unsigned long long>(f.watchedFolders), static_cast<unsigned long long>(f.polledFolders),
                static_cast<unsigned long long>(f.watchBudget));
    std::printf("changes applied: %llu\n", static_cast<unsigned long long>(f.changesApplied));
    if (f.importsWaiting) {
        std::printf("importing what files contain: %llu done, %llu to go\n",
                    static_cast<unsigned long long>(f.importsDone), static_cast<unsigned long long>(f.importsWaiting));
    }
    std::printf("clients: %llu (%llu following changes)\n", static_cast<unsigned long long>(f.clients),
                static_cast<unsigned long long>(f.subscribers));
    std::printf("memory: %s resident\n", formatBytes(f.residentBytes).c_str());
    return 0;
}

}  // namespace

int daemonCommand(const GlobalOptions& global, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    if (arguments.size() != 1) {
        printError(QStringLiteral("usage: trova daemon start|stop|status"));
        return 2;
    }
    if (verb == QLatin1String("start")) {
        return start(global);
    }
    if (verb == QLatin1String("stop")) {
        return stop(global);
    }
    if (verb == QLatin1String("status")) {
        return status(global);
    }
    printError(QStringLiteral("usage: trova daemon start|stop|status"));
    return 2;
}

}  // namespace trovara::cli
