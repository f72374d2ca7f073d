// The search window under load, in process: a search of about 50,000
// results gathered into a shown window, then scrolled in the table and in
// the grid (thumbnails loading), and a live change arriving. Measures:
//
// - the longest stall of the event loop (a 2 ms timer's longest late
//   arrival) while the results gather, while the grid scrolls over pictures
//   whose thumbnails load, and while a live change arrives;
// - the frame times of scrolling the table and the grid page by page (the
//   time from moving the scroll bar to the frame painted);
// - resident memory with the results listed.
//
//   window_bench --index DIR --search FILE.trova --tree DIR
//
// The index must cover the tree, and the search (made by bench/window-bench)
// must find its files. Prints one Markdown table.
#include "document/document.h"
#include "document/template_item.h"
#include "index/standard_services.h"
#include "model/value_transformer.h"
#include "presentation/column_formatters.h"
#include "presentation/metadata_item_transformer.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widgets/application.h"
#include "widgets/result_grid_view.h"
#include "widgets/result_table_view.h"
#include "widgets/thumbnail_cache.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QScrollBar>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

using trovara::widgets::DocumentWindow;

// The longest time the event loop kept a 2 ms timer waiting.
class StallMonitor {
public:
    StallMonitor()
    {
        m_timer.setInterval(2);
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            m_longest = std::max(m_longest, now - m_last - 2'000'000);
            m_last = now;
        });
    }
    void start()
    {
        m_longest = 0;
        m_clock.start();
        m_last = 0;
        m_timer.start();
    }
    double stopMilliseconds()
    {
        m_timer.stop();
        return std::max<qint64>(0, m_longest) / 1e6;
    }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_longest = 0;
};

bool runUntil(const std::function<bool()>& condition, int milliseconds = 120000)
{
    QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

double residentMegabytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').front().toDouble() / 1024.0;
        }
    }
    return 0;
}

struct Frames {
    double longest = 0;
    double p99 = 0;
    double median = 0;
    std::size_t count = 0;
};

Frames summarize(std::vector<double> times)
{
    Frames frames;
    if (times.empty()) {
        return frames;
    }
    std::sort(times.begin(), times.end());
    frames.count = times.size();
    frames.longest = times.back();
    frames.p99 = times[std::min(times.size() - 1, times.size() * 99 / 100)];
    frames.median = times[times.size() / 2];
    return frames;
}

// Scrolls the view page by page from top to bottom; each frame is the scroll
// and everything the event loop then does (painting, thumbnails arriving).
Frames scrollThrough(QAbstractScrollArea* view, StallMonitor* stalls = nullptr, double* stall = nullptr)
{
    QScrollBar* bar = view->verticalScrollBar();
    bar->setValue(0);
    QCoreApplication::processEvents();
    std::vector<double> times;
    const int step = std::max(1, bar->pageStep());
    const int pages = (bar->maximum() - bar->minimum()) / step + 1;
    const int stride = std::max(1, pages / 1500);
    if (stalls) {
        stalls->start();
    }
    for (int value = bar->minimum(); value <= bar->maximum(); value += step * stride) {
        QElapsedTimer frame;
        frame.start();
        bar->setValue(value);
        view->viewport()->repaint();
        QCoreApplication::processEvents();
        times.push_back(frame.nsecsElapsed() / 1e6);
    }
    if (stalls && stall) {
        // Let the last thumbnails arrive while the monitor watches.
        runUntil([] { return trovara::widgets::ThumbnailLoader::shared()->pendingCount() == 0; }, 20000);
        *stall = stalls->stopMilliseconds();
    }
    return summarize(std::move(times));
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    QCommandLineOption indexOption(QStringLiteral("index"), QStringLiteral("Index folder."), QStringLiteral("DIR"));
    QCommandLineOption searchOption(QStringLiteral("search"), QStringLiteral("Search file."), QStringLiteral("FILE"));
    QCommandLineOption treeOption(QStringLiteral("tree"), QStringLiteral("The indexed tree (live change)."),
                                  QStringLiteral("DIR"));
    parser.addOptions({indexOption, searchOption, treeOption});
    parser.addHelpOption();
    parser.process(app);
    if (!parser.isSet(indexOption) || !parser.isSet(searchOption) || !parser.isSet(treeOption)) {
        parser.showHelp(2);
    }

    trovara::model::registerModelTransformers();
    trovara::presentation::registerPresentationTransformers();
    trovara::document::registerDocumentTransformers();
    trovara::presentation::installColumnPropertiesChooser();

    trovara::daemon::QuerySourceOptions options;
    options.embeddedOnly = true;
    trovara::widgets::Application shell(parser.value(indexOption).toStdString(), trovara::index::standardServices(),
                                        options);
    DocumentWindow* window = shell.openDocument(parser.value(searchOption));
    if (!window) {
        std::fputs("window_bench: the search could not be opened\n", stderr);
        return 1;
    }
    window->resize(1100, 760);
    window->show();
    if (!runUntil([&] { return window->isDocumentLoaded(); })) {
        std::fputs("window_bench: the index did not open\n", stderr);
        return 1;
    }
    trovara::document::Document& document = window->document();
    trovara::query::MetadataQueryController* controller = document.metadataQueryController();
    const double before = residentMegabytes();

    // Gathering.
    StallMonitor stalls;
    QElapsedTimer clock;
    stalls.start();
    clock.start();
    document.startQuery();
    double firstShown = -1;
    runUntil([&] {
        if (firstShown < 0 && controller->results()->rowCount() > 0) {
            firstShown = clock.nsecsElapsed() / 1e6;
        }
        return controller->isAlive() && !controller->isGathering();
    });
    const double complete = clock.nsecsElapsed() / 1e6;
    const double gatherStall = stalls.stopMilliseconds();
    const int results = controller->results()->rowCount();
    QCoreApplication::processEvents();
    const double withResults = residentMegabytes();

    // Table, then grid.
    window->selectResultsView(0);
    QCoreApplication::processEvents();
    const Frames table = scrollThrough(window->tableView());
    window->selectResultsView(1);
    QCoreApplication::processEvents();
    double thumbnailStall = 0;
    const Frames grid = scrollThrough(window->gridView(), &stalls, &thumbnailStall);
    window->selectResultsView(0);

    // A live change: a new matching file in the tree.
    const QString added = parser.value(treeOption) + QStringLiteral("/window-bench live change.txt");
    QFile::remove(added);
    stalls.start();
    clock.restart();
    {
        QFile file(added);
        file.open(QIODevice::WriteOnly);
        file.write("live");
    }
    const bool arrived = runUntil([&] { return controller->results()->rowCount() > results; }, 30000);
    const double updateLatency = clock.nsecsElapsed() / 1e6;
    runUntil([] { return false; }, 300);  // and what follows it
    const double updateStall = stalls.stopMilliseconds();
    QFile::remove(added);

    std::printf("| measure | value |\n|---|---|\n");
    std::printf("| results listed | %d |\n", results);
    std::printf("| first results shown after Start | %.1f ms |\n", firstShown);
    std::printf("| complete list after Start | %.1f ms |\n", complete);
    std::printf("| longest event-loop stall while the results gather | %.1f ms |\n", gatherStall);
    std::printf("| table: frames scrolling page by page (count, median, p99, longest) | %zu, %.1f ms, %.1f ms, %.1f ms |\n",
                table.count, table.median, table.p99, table.longest);
    std::printf("| grid: frames scrolling page by page, thumbnails loading (count, median, p99, longest) | %zu, "
                "%.1f ms, %.1f ms, %.1f ms |\n",
                grid.count, grid.median, grid.p99, grid.longest);
    std::printf("| longest event-loop stall while the grid scrolls and thumbnails load | %.1f ms |\n", thumbnailStall);
    std::printf("| live change: from the write to the new row | %s |\n",
                arrived ? qPrintable(QString::asprintf("%.0f ms", updateLatency)) : "did not arrive");
    std::printf("| longest event-loop stall while the live change arrives | %.1f ms |\n", updateStall);
    std::printf("| resident memory: window open, before the search / with the results | %.0f MB / %.0f MB |\n", before,
                withResults);
    std::fflush(stdout);
    window->close();
    return 0;
}
