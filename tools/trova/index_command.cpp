// trova index add|remove|update|rebuild|status
#include "commands.h"
#include "daemon_link.h"
#include "services.h"

#include "common/paths.h"
#include "index/index.h"

#include <QDateTime>
#include <QFileInfo>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace trovara::cli {

namespace {

std::atomic<bool> g_interrupted{false};

extern "C" void onInterrupt(int)
{
    g_interrupted.store(true);
}

// Ctrl-C stops the crawl; what was crawled so far stays in the index.
class InterruptScope {
public:
    InterruptScope()
    {
        struct sigaction action {};
        action.sa_handler = onInterrupt;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &m_previousInt);
        sigaction(SIGTERM, &action, &m_previousTerm);
    }
    ~InterruptScope()
    {
        sigaction(SIGINT, &m_previousInt, nullptr);
        sigaction(SIGTERM, &m_previousTerm, nullptr);
    }

private:
    struct sigaction m_previousInt {};
    struct sigaction m_previousTerm {};
};

// A progress line on a terminal, redrawn at most ten times a second.
class ProgressLine {
public:
    ProgressLine()
        : m_enabled(::isatty(STDERR_FILENO))
    {
    }
    ~ProgressLine() { clear(); }

    void show(const index::UpdateProgress& progress)
    {
        if (!m_enabled) {
            return;
        }
        if (!due()) {
            return;
        }
        std::string folder = progress.folder;
        if (folder.size() > 50) {
            folder = "…" + folder.substr(folder.size() - 49);
        }
        std::fprintf(stderr, "\r\033[K%llu folders, %llu items: %s", static_cast<unsigned long long>(progress.folders),
                     static_cast<unsigned long long>(progress.entries), folder.c_str());
        m_shown = true;
    }
    void showImport(const index::ImportProgress& progress)
    {
        if (!m_enabled || !due()) {
            return;
        }
        std::string path = progress.path;
        if (path.size() > 50) {
            path = "…" + path.substr(path.size() - 49);
        }
        std::fprintf(stderr, "\r\033[Kimporting %llu of %llu: %s", static_cast<unsigned long long>(progress.done),
                     static_cast<unsigned long long>(progress.total), path.c_str());
        m_shown = true;
    }
    void clear()
    {
        if (m_shown) {
            std::fputs("\r\033[K", stderr);
            m_shown = false;
        }
    }

private:
    // At most ten redraws a second.
    bool due()
    {
        const auto now = std::chrono::steady_clock::now();
        if (now - m_last < std::chrono::milliseconds(100)) {
            return false;
        }
        m_last = now;
        return true;
    }

    bool m_enabled;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_last;
};

std::string formatTime(index::Nanoseconds time)
{
    if (time <= 0) {
        return "never";
    }
    return QDateTime::fromMSecsSinceEpoch(time / 1000000).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")).toStdString();
}

std::string formatBytes(std::int64_t bytes)
{
    char text[64];
    if (bytes >= 1000 * 1000) {
        std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
    } else if (bytes >= 1000) {
        std::snprintf(text, sizeof text, "%.1f kB", static_cast<double>(bytes) / 1e3);
    } else {
        std::snprintf(text, sizeof text, "%lld bytes", static_cast<long long>(bytes));
    }
    return text;
}

int reportFailure(const index::Failure& failure)
{
    printError(QString::fromStdString(failure.message));
    return 1;
}

int finishUpdate(const index::Expected<index::UpdateReport>& report, const char* verb)
{
    if (!report) {
        return reportFailure(report.error());
    }
    std::fprintf(stderr, "%s: %llu folders, %llu files; %llu added, %llu changed, %llu removed", verb,
                 static_cast<unsigned long long>(report->crawl.folders),
                 static_cast<unsigned long long>(report->crawl.files), static_cast<unsigned long long>(report->added),
                 static_cast<unsigned long long>(report->changed), static_cast<unsigned long long>(report->removed));
    if (report->crawl.unreadable) {
        std::fprintf(stderr, "; %llu folders could not be read (see trova index status)",
                     static_cast<unsigned long long>(report->crawl.unreadable));
    }
    if (report->imported || report->importFailed) {
        std::fprintf(stderr, "; %llu files imported", static_cast<unsigned long long>(report->imported));
    }
    if (report->importFailed) {
        std::fprintf(stderr, ", %llu could not be (see trova index status)",
                     static_cast<unsigned long long>(report->importFailed));
    }
    std::fputc('\n', stderr);
    if (!report->importProblem.empty()) {
        printError(QStringLiteral("files were indexed without their content: %1")
                       .arg(QString::fromStdString(report->importProblem)));
    }
    if (report->crawl.cancelled) {
        std::fputs("trova: interrupted; the index keeps what was crawled so far (run trova index update to finish)\n",
                   stderr);
        return 130;
    }
    return 0;
}

int printStatus(const index::Expected<index::IndexStatus>& status, const std::string& directory)
{
    if (!status) {
        return reportFailure(status.error());
    }
    std::printf("index: %s\n", directory.c_str());
    if (status->roots.empty()) {
        std::printf("roots: none (add one with: trova index add DIR)\n");
    } else {
        std::printf("roots:\n");
        for (const index::RootRecord& root : status->roots) {
            std::printf("  %s  (%s%s, crawled %s)\n", root.path.c_str(),
                        root.complete ? "complete" : (root.item ? "incomplete" : "not crawled yet"),
                        root.namesOnly ? ", names only" : "",
                        formatTime(root.lastCrawlFinished ? root.lastCrawlFinished : root.lastCrawlStarted).c_str());
        }
    }
    std::printf("items: %lld\n", static_cast<long long>(status->items));
    std::printf("database: %s, catalogue: %s\n", formatBytes(status->databaseBytes).c_str(),
                formatBytes(status->catalogueBytes).c_str());
    std::printf("last update: %s\n", formatTime(status->lastUpdate).c_str());
    if (!status->unreadable.empty()) {
        std::printf("unreadable folders: %zu\n", status->unreadable.size());
        for (const index::UnreadableFolder& folder : status->unreadable) {
            std::printf("  %s (%s)\n", folder.path.c_str(), std::strerror(folder.error));
        }
    }
    std::printf("imported: %lld files, %lld with text\n", static_cast<long long>(status->imports.imported),
                static_cast<long long>(status->imports.withText));
    if (!status->importFailures.empty()) {
        std::printf("import failures: %zu\n", status->importFailures.size());
        for (const index::ImportFailure& failure : status->importFailures) {
            std::printf("  %s: %s (%s, %d %s%s)\n", failure.path.c_str(), failure.error.c_str(),
                        failure.importer.c_str(), failure.attempts, failure.attempts == 1 ? "try" : "tries",
                        failure.willRetry ? "; tried again at the next update" : "");
        }
    }
    return 0;
}

// The same, carried out by the daemon that holds the index.
int viaDaemon(daemon::Connection& connection, const QString& verb, const std::vector<std::string>& folders,
              bool namesOnly, const std::string& directory)
{
    daemon::Request request;
    request.namesOnly = namesOnly;
    request.type = verb == QLatin1String("add")      ? daemon::MessageType::AddRoots
                   : verb == QLatin1String("remove") ? daemon::MessageType::RemoveRoots
                   : verb == QLatin1String("update") ? daemon::MessageType::Update
                   : verb == QLatin1String("rebuild") ? daemon::MessageType::Rebuild
                                                      : daemon::MessageType::Status;
    for (const std::string& folder : folders) {
        // The daemon does not share our working folder.
        index::Expected<std::string> canonical = index::Index::canonicalFolder(folder);
        if (!canonical && request.type == daemon::MessageType::AddRoots) {
            return reportFailure(canonical.error());
        }
        request.paths.push_back(canonical ? *canonical : folder);
    }
    index::Expected<daemon::Reply> reply = connection.call(request);
    if (!reply) {
        return reportFailure(reply.error());
    }
    if (reply->failure) {
        return reportFailure(*reply->failure);
    }
    switch (request.type) {
    case daemon::MessageType::Status:
        return printStatus(reply->status, directory);
    case daemon::MessageType::RemoveRoots:
        return 0;
    default:
        break;
    }
    const int status = finishUpdate(reply->report, verb == QLatin1String("add")      ? "added"
                                                   : verb == QLatin1String("update") ? "updated"
                                                                                     : "rebuilt");
    if (status == 0) {
        std::fputs("trova: the daemon imports what files contain in the background (trova daemon status shows how "
                   "far it is)\n",
                   stderr);
    }
    return status;
}

}  // namespace

int indexCommand(const GlobalOptions& global, const QStringList& arguments)
{
    if (arguments.isEmpty()) {
        printError(QStringLiteral("usage: trova index add [--names-only] DIR… | remove DIR… | update | rebuild | status"));
        return 2;
    }
    const QString verb = arguments.front();
    std::vector<std::string> folders;
    bool namesOnly = false;
    for (const QString& argument : arguments.mid(1)) {
        if (argument == QLatin1String("--names-only") && verb == QLatin1String("add")) {
            namesOnly = true;
            continue;
        }
        folders.push_back(localBytes(argument));
    }
    const bool needsFolders = verb == QLatin1String("add") || verb == QLatin1String("remove");
    const bool known = needsFolders || verb == QLatin1String("update") || verb == QLatin1String("rebuild")
                       || verb == QLatin1String("status");
    if (!known || needsFolders == folders.empty()) {
        printError(QStringLiteral("usage: trova index add [--names-only] DIR… | remove DIR… | update | rebuild | status"));
        return 2;
    }

    bool daemonFailed = false;
    if (std::unique_ptr<daemon::Connection> daemon = connectToDaemon(global, &daemonFailed)) {
        return viaDaemon(*daemon, verb, folders, namesOnly, global.indexDirectory);
    }
    if (daemonFailed) {
        return 1;
    }
    if (verb == QLatin1String("status") && QFileInfo::exists(QString::fromStdString(global.indexDirectory + "/index.db"))) {
        // Read beside whoever writes the index now.
        return printStatus(index::Index::readStatus(global.indexDirectory), global.indexDirectory);
    }

    std::vector<std::string> notices;
    index::Expected<std::unique_ptr<index::Index>> opened =
        index::Index::openForWriting(global.indexDirectory, indexServices(), verb != QLatin1String("status"), &notices);
    for (const std::string& notice : notices) {
        printError(QString::fromStdString(notice));
    }
    if (!opened) {
        return reportFailure(opened.error());
    }
    index::Index& index = *opened.value();
    if (verb == QLatin1String("status")) {
        return printStatus(index.status(), index.directory());
    }
    if (verb == QLatin1String("remove")) {
        index::Expected<void> removed = index.removeRoots(folders);
        return removed ? 0 : reportFailure(removed.error());
    }

    InterruptScope interrupts;
    ProgressLine progress;
    index::Index::Options options;
    options.cancel = &g_interrupted;
    options.namesOnly = namesOnly;
    options.progress = [&](const index::UpdateProgress& p) { progress.show(p); };
    options.importProgress = [&](const index::ImportProgress& p) { progress.showImport(p); };
    options.notice = [&](const std::string& notice) {
        progress.clear();
        printError(QString::fromStdString(notice));
    };
    const auto started = std::chrono::steady_clock::now();
    if (verb != QLatin1String("update")) {
        options.namesReady = [&](const index::UpdateReport& crawled) {
            progress.clear();
            const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
            std::fprintf(stderr, "searchable by name, size, date and kind: %llu folders, %llu files (%.1f s)%s\n",
                         static_cast<unsigned long long>(crawled.crawl.folders),
                         static_cast<unsigned long long>(crawled.crawl.files), seconds,
                         index.hasImporter() && !namesOnly ? "; now importing what files contain" : "");
        };
    }
    index::Expected<index::UpdateReport> report = verb == QLatin1String("add")      ? index.addRoots(folders, options)
                                                  : verb == QLatin1String("update") ? index.update(options)
                                                                                    : index.rebuild(options);
    progress.clear();
    return finishUpdate(report, verb == QLatin1String("add") ? "added" : (verb == QLatin1String("update") ? "updated" : "rebuilt"));
}

}  // namespace trovara::cli
