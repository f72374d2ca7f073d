// live_bench: how soon a live query sees a change on disk, whether a burst of
// changes leaves it right, and what the daemon costs while it waits.
//
//   live_bench --tree DIR [--work DIR] [--samples N] [--burst N]
//              [--gap MS] [--idle SECONDS] [--mode embedded|daemon|both]
//
// DIR is an existing tree (a make-corpus tree, so that the index and the
// watches have a realistic size). The benchmark changes files only inside
// DIR/.live-bench-scratch, which it makes and removes again. Indexes go to
// WORK (default /var/tmp/live-bench): WORK/embedded and WORK/daemon.
//
// For each mode (the engine in this process, or trovarad with this process
// as its client, as trova and the application use them):
//   1. index DIR (embedded: the engine's addRoots; daemon: trovarad started
//      with `trova daemon start`, then `trova index add`);
//   2. open a live query kMDItemFSName == "lb-*" on the scratch folder;
//   3. latency, N samples each, one change every --gap ms (default 300,
//      longer than the update interval, so that a change after a quiet
//      spell is measured, as a person makes them): create a file, rename
//      it, write to it, delete it; the time from just before the system
//      call to the query's update notification naming the path;
//   4. a burst: --burst files (default 10,000) created in one new folder,
//      renamed, every second one deleted, as fast as the file system takes
//      them; then the time until the query's answer equals find's, and
//      whether anything was lost or reported twice;
//   5. daemon mode: the daemon's resident memory per indexed item, and its
//      CPU time over --idle seconds (default 10) of no changes.
// Prints Markdown; exit status 1 when an answer was wrong or a change was
// never seen.
#include "daemon/remote_source.h"
#include "index/fs/crawler.h"
#include "index/live/engine.h"
#include "index/live/qt_live_query.h"
#include "index/standard_services.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace index = trovara::index;
using Clock = std::chrono::steady_clock;

struct Settings {
    std::string tree;
    std::string work = "/var/tmp/live-bench";
    std::string bin;
    int samples = 50;
    int burst = 10000;
    int gapMs = 300;
    int idleSeconds = 10;
    std::string mode = "both";
};

bool g_failed = false;

void fail(const std::string& message)
{
    std::fprintf(stderr, "live_bench: %s\n", message.c_str());
    g_failed = true;
}

// What the query has told so far, path by path, with when it told it.
class Observer {
public:
    explicit Observer(index::QtLiveQuery& live)
        : m_live(live)
    {
        QObject::connect(&live, &index::QtLiveQuery::updated, [this](const index::LiveQuery::Update& update) {
            const Clock::time_point now = Clock::now();
            for (const auto& r : update.added) {
                m_added[pathOf(r)] = now;
                ++m_addedCount[pathOf(r)];
            }
            for (const auto& r : update.removed) {
                m_removed[pathOf(r)] = now;
            }
            for (const auto& r : update.changed) {
                m_changed[pathOf(r)] = now;
            }
        });
    }

    enum class Seen { Added, Removed, Changed };

    // When the query told `what` of `path`, waiting up to `timeout`.
    std::optional<Clock::time_point> waitFor(Seen what, const std::string& path, std::chrono::milliseconds timeout)
    {
        const std::map<std::string, Clock::time_point>& seen =
            what == Seen::Added ? m_added : what == Seen::Removed ? m_removed : m_changed;
        const Clock::time_point deadline = Clock::now() + timeout;
        while (true) {
            if (auto it = seen.find(path); it != seen.end()) {
                return it->second;
            }
            if (Clock::now() >= deadline) {
                return std::nullopt;
            }
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        }
    }

    void pump(std::chrono::milliseconds duration)
    {
        const Clock::time_point until = Clock::now() + duration;
        while (Clock::now() < until) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        }
    }

    std::multiset<std::string> answer() const
    {
        std::multiset<std::string> out;
        const index::LiveQuery& q = m_live.query();
        for (std::size_t i = 0; i < q.resultCount(); ++i) {
            out.insert(q.itemAt(i).path());
        }
        return out;
    }

private:
    static const std::string& pathOf(const std::shared_ptr<void>& result)
    {
        return static_cast<const index::ItemRef*>(result.get())->path();
    }

    index::QtLiveQuery& m_live;
    std::map<std::string, Clock::time_point> m_added, m_removed, m_changed;
    std::map<std::string, int> m_addedCount;
};

struct Series {
    std::string name;
    std::vector<double> ms;
    int missed = 0;
};

double percentile(std::vector<double> values, double p)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t at = std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5));
    return values[at];
}

double since(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double, std::milli>(end - start).count();
}

void writeFile(const std::string& path, const std::string& text, bool append = false)
{
    std::ofstream out(path, append ? std::ios::app : std::ios::trunc);
    out << text;
}

std::vector<Series> measureLatency(Observer& observer, const std::string& scratch, const Settings& settings)
{
    Series create{"create", {}, 0}, rename{"rename", {}, 0}, write{"content change", {}, 0}, remove{"delete", {}, 0};
    const auto gap = std::chrono::milliseconds(settings.gapMs);
    const auto timeout = std::chrono::milliseconds(5000);
    auto sample = [&](Series& series, Observer::Seen what, const std::string& path, Clock::time_point start) {
        if (auto seen = observer.waitFor(what, path, timeout)) {
            series.ms.push_back(since(start, *seen));
        } else {
            ++series.missed;
            fail("never saw the " + series.name + " of " + path);
        }
        observer.pump(gap);
    };
    for (int i = 0; i < settings.samples; ++i) {
        const std::string made = scratch + "/lb-made-" + std::to_string(i) + ".txt";
        const std::string moved = scratch + "/lb-moved-" + std::to_string(i) + ".txt";
        // Timed from just before each call, so the call's own time counts.
        Clock::time_point start = Clock::now();
        writeFile(made, "x");
        sample(create, Observer::Seen::Added, made, start);
        start = Clock::now();
        ::rename(made.c_str(), moved.c_str());
        sample(rename, Observer::Seen::Added, moved, start);
        start = Clock::now();
        writeFile(moved, "more text\n", true);
        sample(write, Observer::Seen::Changed, moved, start);
        start = Clock::now();
        ::unlink(moved.c_str());
        sample(remove, Observer::Seen::Removed, moved, start);
    }
    return {create, rename, write, remove};
}

struct BurstResult {
    double writeMs = 0;
    double convergeMs = -1;
    std::size_t expected = 0;
    std::size_t answered = 0;
    std::size_t duplicates = 0;
    bool equal = false;
};

BurstResult measureBurst(Observer& observer, const std::string& scratch, const Settings& settings)
{
    BurstResult result;
    const std::string folder = scratch + "/burst";
    const Clock::time_point start = Clock::now();
    fs::create_directory(folder);
    for (int i = 0; i < settings.burst; ++i) {
        writeFile(folder + "/lb-new-" + std::to_string(i), "");
    }
    for (int i = 0; i < settings.burst; ++i) {
        ::rename((folder + "/lb-new-" + std::to_string(i)).c_str(), (folder + "/lb-old-" + std::to_string(i)).c_str());
    }
    for (int i = 0; i < settings.burst; i += 2) {
        ::unlink((folder + "/lb-old-" + std::to_string(i)).c_str());
    }
    const Clock::time_point written = Clock::now();
    result.writeMs = since(start, written);

    std::set<std::string> onDisk;
    for (const auto& entry : fs::recursive_directory_iterator(scratch)) {
        if (entry.path().filename().string().rfind("lb-", 0) == 0) {
            onDisk.insert(entry.path().string());
        }
    }
    result.expected = onDisk.size();
    const Clock::time_point deadline = written + std::chrono::seconds(60);
    while (Clock::now() < deadline) {
        const std::multiset<std::string> answer = observer.answer();
        if (answer.size() == onDisk.size() && std::set<std::string>(answer.begin(), answer.end()) == onDisk) {
            result.convergeMs = since(written, Clock::now());
            break;
        }
        observer.pump(std::chrono::milliseconds(10));
    }
    // Settled: nothing more may arrive that changes the answer.
    observer.pump(std::chrono::milliseconds(1500));
    const std::multiset<std::string> answer = observer.answer();
    const std::set<std::string> distinct(answer.begin(), answer.end());
    result.answered = answer.size();
    result.duplicates = answer.size() - distinct.size();
    result.equal = distinct == onDisk && result.duplicates == 0;
    if (!result.equal) {
        fail("after the burst the query holds " + std::to_string(answer.size()) + " results, find "
             + std::to_string(onDisk.size()));
    }
    fs::remove_all(folder);
    return result;
}

struct DaemonCost {
    long rssKiB = 0;
    long peakKiB = 0;
    double idleCpuSeconds = 0;
    std::size_t items = 0;
};

long statusField(pid_t pid, const std::string& field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::atol(line.c_str() + field.size() + 1);
        }
    }
    return 0;
}

double cpuSeconds(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // Fields after the command name (which may hold blanks) in parentheses.
    std::size_t at = text.rfind(')');
    if (at == std::string::npos) {
        return 0;
    }
    std::vector<std::string> fields;
    std::string field;
    for (std::size_t i = at + 2; i < text.size(); ++i) {
        if (text[i] == ' ') {
            fields.push_back(field);
            field.clear();
        } else {
            field.push_back(text[i]);
        }
    }
    // utime and stime are fields 14 and 15 of the whole line, 12 and 13 here.
    if (fields.size() < 13) {
        return 0;
    }
    const double ticks = static_cast<double>(::sysconf(_SC_CLK_TCK));
    return (std::atof(fields[11].c_str()) + std::atof(fields[12].c_str())) / ticks;
}

QString run(const Settings& settings, const QStringList& arguments, int* status = nullptr)
{
    QProcess process;
    process.start(QString::fromStdString(settings.bin + "/trova"), arguments);
    process.waitForFinished(-1);
    if (status) {
        *status = process.exitCode();
    }
    return QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
}

void report(const std::string& mode, const std::vector<Series>& latency, const BurstResult& burst,
            const Settings& settings, double indexSeconds, std::size_t items)
{
    std::printf("\n### %s (%zu items, indexed in %.1f s)\n\n", mode.c_str(), items, indexSeconds);
    std::printf("| change | samples | missed | median | p95 | max |\n|---|---|---|---|---|---|\n");
    for (const Series& s : latency) {
        std::printf("| %s | %zu | %d | %.1f ms | %.1f ms | %.1f ms |\n", s.name.c_str(), s.ms.size(), s.missed,
                    percentile(s.ms, 0.5), percentile(s.ms, 0.95),
                    s.ms.empty() ? 0.0 : *std::max_element(s.ms.begin(), s.ms.end()));
    }
    std::printf("\nBurst of %d files (create, rename all, delete every second one): written in %.0f ms; "
                "the query's answer equal to find's %s after the last change; %zu results, %zu expected, "
                "%zu reported twice: %s.\n",
                settings.burst, burst.writeMs,
                burst.convergeMs < 0 ? "never (60 s)" : (std::to_string(static_cast<long>(burst.convergeMs)) + " ms").c_str(),
                burst.answered, burst.expected, burst.duplicates, burst.equal ? "right" : "WRONG");
}

index::LiveQueryOptions queryOptions(const std::string& scratch)
{
    index::LiveQueryOptions options;
    options.query = "kMDItemFSName == \"lb-*\"";
    options.scopes = {scratch};
    return options;
}

void runEmbedded(const Settings& settings, const std::string& scratch)
{
    const std::string directory = settings.work + "/embedded";
    fs::remove_all(directory);
    index::EngineOptions options;
    options.problem = [](const std::string& message) { std::fprintf(stderr, "engine: %s\n", message.c_str()); };
    auto engine = index::IndexEngine::start(directory, index::standardServices(), options);
    if (!engine) {
        fail(engine.error().message);
        return;
    }
    QElapsedTimer timer;
    timer.start();
    if (auto added = engine.value()->addRoots({settings.tree}); !added) {
        fail(added.error().message);
        return;
    }
    const double indexSeconds = static_cast<double>(timer.elapsed()) / 1000.0;
    const std::size_t items = engine.value()->currentView()->base()->size();
    index::QtLiveQuery live(*engine.value(), queryOptions(scratch));
    Observer observer(live);
    if (auto started = live.query().execute(); !started) {
        fail(started.error().message);
        return;
    }
    while (!live.query().isIdle() || live.query().isGathering()) {
        observer.pump(std::chrono::milliseconds(10));
    }
    const std::vector<Series> latency = measureLatency(observer, scratch, settings);
    const BurstResult burst = measureBurst(observer, scratch, settings);
    live.query().stop();
    report("Embedded engine (in this process)", latency, burst, settings, indexSeconds, items);
}

void runDaemon(const Settings& settings, const std::string& scratch)
{
    const std::string directory = settings.work + "/daemon";
    fs::remove_all(directory);
    const QString idx = QString::fromStdString(directory);
    int status = 0;
    QString out = run(settings, {"--index", idx, "daemon", "start"}, &status);
    if (status != 0) {
        fail("trova daemon start: " + out.toStdString());
        return;
    }
    QElapsedTimer timer;
    timer.start();
    out = run(settings, {"--index", idx, "index", "add", QString::fromStdString(settings.tree)}, &status);
    const double indexSeconds = static_cast<double>(timer.elapsed()) / 1000.0;
    if (status != 0) {
        fail("trova index add: " + out.toStdString());
    }
    const QString daemonStatus = run(settings, {"--index", idx, "daemon", "status"});
    const QRegularExpressionMatch pidMatch = QRegularExpression(QStringLiteral("pid (\\d+)")).match(daemonStatus);
    const pid_t pid = pidMatch.hasMatch() ? static_cast<pid_t>(pidMatch.captured(1).toLong()) : 0;

    {
        auto source = trovara::daemon::RemoteIndexSource::open(directory, index::standardServices());
        if (!source) {
            fail(source.error().message);
            run(settings, {"--index", idx, "daemon", "stop"});
            return;
        }
        const std::size_t items = source.value()->currentView()->base()->size();
        index::QtLiveQuery live(*source.value(), queryOptions(scratch));
        Observer observer(live);
        if (auto started = live.query().execute(); !started) {
            fail(started.error().message);
        } else {
            while (!live.query().isIdle() || live.query().isGathering()) {
                observer.pump(std::chrono::milliseconds(10));
            }
            const std::vector<Series> latency = measureLatency(observer, scratch, settings);
            const BurstResult burst = measureBurst(observer, scratch, settings);
            live.query().stop();
            report("Through trovarad (the daemon writes, this process queries)", latency, burst, settings,
                   indexSeconds, items);
        }
        if (pid > 0) {
            // Quiet first: the snapshot written after the burst is not idling.
            std::this_thread::sleep_for(std::chrono::seconds(35));
            DaemonCost cost;
            cost.items = items;
            cost.rssKiB = statusField(pid, "VmRSS");
            cost.peakKiB = statusField(pid, "VmHWM");
            const double before = cpuSeconds(pid);
            std::this_thread::sleep_for(std::chrono::seconds(settings.idleSeconds));
            cost.idleCpuSeconds = cpuSeconds(pid) - before;
            std::printf("\nDaemon at rest with one live query subscribed: resident %.1f MiB (%.0f bytes per item), "
                        "peak %.1f MiB; CPU time over %d idle seconds: %.2f s.\n",
                        static_cast<double>(cost.rssKiB) / 1024.0,
                        items ? static_cast<double>(cost.rssKiB) * 1024.0 / static_cast<double>(items) : 0.0,
                        static_cast<double>(cost.peakKiB) / 1024.0, settings.idleSeconds, cost.idleCpuSeconds);
        }
    }
    run(settings, {"--index", idx, "daemon", "stop"});
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Settings settings;
    settings.bin = QCoreApplication::applicationDirPath().toStdString();
    const QStringList arguments = app.arguments();
    for (int i = 1; i < arguments.size(); ++i) {
        const QString a = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        auto next = [&] { return arguments[++i].toStdString(); };
        if (a == QLatin1String("--tree") && hasValue) {
            settings.tree = next();
        } else if (a == QLatin1String("--work") && hasValue) {
            settings.work = next();
        } else if (a == QLatin1String("--samples") && hasValue) {
            settings.samples = std::stoi(next());
        } else if (a == QLatin1String("--burst") && hasValue) {
            settings.burst = std::stoi(next());
        } else if (a == QLatin1String("--gap") && hasValue) {
            settings.gapMs = std::stoi(next());
        } else if (a == QLatin1String("--idle") && hasValue) {
            settings.idleSeconds = std::stoi(next());
        } else if (a == QLatin1String("--mode") && hasValue) {
            settings.mode = next();
        } else {
            std::fprintf(stderr, "usage: live_bench --tree DIR [--work DIR] [--samples N] [--burst N] [--gap MS] "
                                 "[--idle SECONDS] [--mode embedded|daemon|both]\n");
            return 2;
        }
    }
    if (settings.tree.empty() || !fs::is_directory(settings.tree)) {
        std::fprintf(stderr, "live_bench: --tree must name a folder\n");
        return 2;
    }
    settings.tree = index::normalizedPath(fs::canonical(settings.tree).string());
    fs::create_directories(settings.work);
    const std::string scratch = settings.tree + "/.live-bench-scratch";
    fs::remove_all(scratch);
    fs::create_directory(scratch);

    std::printf("## Live updates\n\nRun: `live_bench --tree %s --samples %d --burst %d --gap %d --idle %d`; "
                "one change every %d ms.\n",
                settings.tree.c_str(), settings.samples, settings.burst, settings.gapMs, settings.idleSeconds,
                settings.gapMs);
    if (settings.mode == "embedded" || settings.mode == "both") {
        runEmbedded(settings, scratch);
    }
    if (settings.mode == "daemon" || settings.mode == "both") {
        runDaemon(settings, scratch);
    }
    fs::remove_all(scratch);
    return g_failed ? 1 : 0;
}
