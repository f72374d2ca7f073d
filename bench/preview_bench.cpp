// preview_bench: how fast the text preview follows the selection, in
// process, through the real helper process (trovara-text-preview, built
// next to this program) and Trovara's importers.
//
//   preview_bench [--work DIR] [--runs N]
//
// Makes its files under --work (default: a new folder in $TMPDIR), then:
//   first_text   a 10 MB text with 1,000 hits of "harbour" selected: the
//                time from the selection to the text shown with its terms
//                coloured and its display lines found (the panel's view
//                then lays out only what is on screen); alternately two
//                such files, so every run reads a file anew
//   its parts    the helper's answer alone (read, encoding detection,
//                transfer), the colouring alone, the display lines alone
//   moving       the selection moved through 100 results (95 texts of 4 to
//                64 KB, 5 of 2 MB) every 30 ms, as a held arrow key does:
//                the longest the main thread's event loop was kept from
//                running (a 1 ms timer measures it), and the time from the
//                last move to the last file shown
// Figures go to standard output as Markdown.
#include "preview/display_lines.h"
#include "preview/search_term_matcher.h"
#include "preview/text_preview.h"
#include "preview/text_preview_utility.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <vector>

using namespace trovara::preview;

namespace {

const char* const kWords[] = {"quay", "lantern", "morning", "ferry", "gull", "tide", "rope", "anchor", "salt",
                              "pier", "crane", "fog", "vessel", "cargo", "north", "island", "bell", "storm"};

// A text of about `bytes` bytes in lines of words, with `hits` times
// "harbour" spread evenly.
std::string makeText(std::size_t bytes, int hits, quint32 seed)
{
    QRandomGenerator random(seed);
    std::string text;
    text.reserve(bytes + 100);
    const std::size_t every = hits > 0 ? bytes / static_cast<std::size_t>(hits) : bytes + 1;
    std::size_t nextHit = every / 2;
    int placed = 0;
    while (text.size() < bytes) {
        for (int word = 0; word < 12; ++word) {
            if (placed < hits && text.size() >= nextHit) {
                text += "harbour ";
                ++placed;
                nextHit += every;
            } else {
                text += kWords[random.bounded(static_cast<int>(std::size(kWords)))];
                text += ' ';
            }
        }
        text += '\n';
    }
    return text;
}

std::string writeFile(const QString& folder, const QString& name, const std::string& bytes)
{
    const std::string path = (folder + QLatin1Char('/') + name).toStdString();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

struct Stats {
    std::vector<double> ms;
    void add(double value) { ms.push_back(value); }
    QString text() const
    {
        std::vector<double> sorted = ms;
        std::sort(sorted.begin(), sorted.end());
        if (sorted.empty()) {
            return QStringLiteral("-");
        }
        return QStringLiteral("%1 ms (%2-%3 ms, %4 runs)")
            .arg(sorted[sorted.size() / 2], 0, 'f', 1)
            .arg(sorted.front(), 0, 'f', 1)
            .arg(sorted.back(), 0, 'f', 1)
            .arg(sorted.size());
    }
};

double elapsedMs(const QElapsedTimer& clock)
{
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

// Runs the event loop until `done`, at most a minute.
template <typename Done>
bool spinUntil(Done done)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > 60000) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

}  // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QString work;
    int runs = 10;
    for (int i = 1; i + 1 < argc; i += 2) {
        const QString option = QString::fromLocal8Bit(argv[i]);
        if (option == QLatin1String("--work")) {
            work = QString::fromLocal8Bit(argv[i + 1]);
        } else if (option == QLatin1String("--runs")) {
            runs = std::max(1, atoi(argv[i + 1]));
        }
    }
    QTemporaryDir temporary;
    if (work.isEmpty()) {
        work = temporary.path();
    }
    QDir().mkpath(work);

    const std::string big[2] = {writeFile(work, QStringLiteral("big-1.txt"), makeText(10'000'000, 1000, 1)),
                                writeFile(work, QStringLiteral("big-2.txt"), makeText(10'000'000, 1000, 2))};
    QStringList many;
    for (int i = 0; i < 100; ++i) {
        const std::size_t size = i % 20 == 10 ? 2'000'000 : 4096 + static_cast<std::size_t>(i) * 610;
        many.append(QString::fromStdString(
            writeFile(work, QStringLiteral("result-%1.txt").arg(i, 3, 10, QLatin1Char('0')), makeText(size, 20, 100 + i))));
    }

    TextPreviewUtility& utility = TextPreviewUtility::sharedTextPreviewUtility();
    if (!utility.usesHelper()) {
        std::fprintf(stderr, "preview_bench: the helper %s cannot be used\n", utility.options().helperExecutable.c_str());
        return 1;
    }
    auto preview = TextPreview::create();
    preview->setQuerySearchStringArray({QStringLiteral("harbour")});

    // first_text: the first screen (the start of the text, coloured), then
    // the whole text in its place.
    Stats first;
    Stats whole;
    std::size_t hits = 0;
    for (int run = 0; run < runs; ++run) {
        const QString path = QString::fromStdString(big[run % 2]);
        QElapsedTimer clock;
        double shown = -1;
        QObject::connect(preview.get(), &TextPreview::textChanged, &app, [&] {
            if (shown < 0 && preview->path() == path && preview->isTextVisible()) {
                shown = elapsedMs(clock);
            }
        });
        clock.start();
        preview->activeSelectionChanged({path});
        if (!spinUntil([&] { return !preview->isLoading(); }) || shown < 0) {
            return 1;
        }
        whole.add(elapsedMs(clock));
        first.add(shown);
        QObject::disconnect(preview.get(), &TextPreview::textChanged, &app, nullptr);
        hits = preview->matches().size();
    }

    // Its parts.
    Stats helper;
    Stats colouring;
    Stats lines;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer clock;
        clock.start();
        const FileContents contents = utility.textContentsOfFile(big[run % 2]);
        helper.add(elapsedMs(clock));
        const QString text = QString::fromStdString(contents.text);
        clock.restart();
        const auto matches = SearchTermMatcher({QStringLiteral("harbour")}).colorRanges(text);
        colouring.add(elapsedMs(clock));
        clock.restart();
        (void)displayLineStarts(text);
        lines.add(elapsedMs(clock));
    }

    // moving
    Stats stalls;
    Stats settle;
    for (int run = 0; run < std::max(1, runs / 3); ++run) {
        double longest = 0;
        QElapsedTimer tick;
        tick.start();
        QTimer ticker;
        ticker.setTimerType(Qt::PreciseTimer);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            longest = std::max(longest, elapsedMs(tick));
            tick.restart();
        });
        ticker.start(1);
        int next = 0;
        QElapsedTimer sinceLast;
        QTimer mover;
        QObject::connect(&mover, &QTimer::timeout, [&] {
            preview->activeSelectionChanged({many[next++]});
            if (next == many.size()) {
                mover.stop();
                sinceLast.start();
            }
        });
        mover.start(30);
        if (!spinUntil([&] { return next == many.size() && !preview->isLoading() && preview->path() == many.back(); })) {
            return 1;
        }
        settle.add(elapsedMs(sinceLast));
        ticker.stop();
        stalls.add(longest);
    }

    std::printf("| measure | median (min-max, runs) |\n|---|---|\n");
    std::printf("| first_text: 10 MB, %zu hits, selection to coloured first screen | %s |\n", hits,
                qPrintable(first.text()));
    std::printf("| whole text (10 MB) in place of the first screen | %s |\n", qPrintable(whole.text()));
    std::printf("| helper's answer (10 MB) | %s |\n", qPrintable(helper.text()));
    std::printf("| colouring (10 MB, 1,000 hits) | %s |\n", qPrintable(colouring.text()));
    std::printf("| display lines (10 MB) | %s |\n", qPrintable(lines.text()));
    std::printf("| moving through 100 results: longest event-loop stall | %s |\n", qPrintable(stalls.text()));
    std::printf("| moving through 100 results: last move to last file shown | %s |\n", qPrintable(settle.text()));
    return 0;
}
