// results_bench: how fast a search window's result list follows its query
// when it is as long as it can be, in process, without widgets.
//
//   results_bench [--tree=DIR] [--work=DIR] [--files=N]
//                 [--benchmark_filter=… and the other Google Benchmark flags]
//
// A tree of N files (default 49,999: a query that reaches 50,000 results is
// stopped, so this is the longest list a window ever holds) in folders of
// 200 is made under --tree (default: a new folder in $TMPDIR; an existing
// tree of the right size is reused) and indexed into --work. One
// MetadataQueryController runs a query that matches every file, through the
// index's live query, with five columns: name, path, size, modification
// date and kind. Then, with all results gathered:
//   reload_results           reloadResults(): the list rebuilt from the
//                            query and arranged again (sorted by name)
//   sort/COLUMN              clicking a column's header, alternately
//                            ascending and descending (values already read)
//   sort_cold/COLUMN         the same on fresh result items (every value read
//                            from the index record during the sort)
//   name_filter              typing into the quick filter: "Filter by Name"
//                            with a text, alternately two texts that keep
//                            about a tenth of the results each
//   memory/item              bytes of heap per result item, fresh and with
//                            the values of all five columns read; and the
//                            heap the whole gathered query took, per result
//                            (the live query's own records, the items, the
//                            list and its arrangement)
// Every timing includes the model's signals to (absent) views and the status
// line.
#include "index/live/live_index.h"
#include "index/live/live_query.h"
#include "index/standard_services.h"
#include "model/defaults.h"
#include "model/document_model.h"
#include "model/ordered_column_attribute.h"
#include "presentation/column_formatters.h"
#include "query/metadata_query_controller.h"
#include "query/query_document.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <malloc.h>
#include <sys/stat.h>
#include <utime.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

using trovara::query::MetadataQueryController;
using trovara::query::ResultItem;
using trovara::query::ResultTableModel;
namespace index = trovara::index;
namespace model = trovara::model;

struct Settings {
    std::string tree;
    std::string work;
    int files = 49999;
};
Settings g_settings;

const char* const kColumns[] = {"kMDItemDisplayName", "kMDItemPath", "kMDItemFSSize",
                                "kMDItemContentModificationDate", "kMDItemKind"};

class BenchDocument final : public trovara::query::QueryDocument {
public:
    BenchDocument()
    {
        model::primeContext(*m_context);
        for (auto* column : model::OrderedColumnAttribute::orderedColumns(*m_context)) {
            m_context->deleteObject(column);
        }
        for (const char* key : kColumns) {
            model::OrderedColumnAttribute::createOrderedColumnAttributeWith(
                model::ColumnAttribute::attributeWithKey(QString::fromLatin1(key), *m_context));
        }
    }
    trovara::store::ManagedObjectContext& managedObjectContext() override { return *m_context; }

private:
    std::unique_ptr<trovara::store::ManagedObjectContext> m_context = model::makeDocumentContext();
};

// Names like a home folder's: words, numbers and a handful of extensions.
std::string fileName(int i)
{
    static const char* words[] = {"report", "Invoice", "photo", "notes", "draft", "budget", "Summary", "letter",
                                  "scan",   "backup",  "todo",  "Plan",  "minutes", "log",  "thesis",  "readme"};
    static const char* extensions[] = {".txt", ".md", ".pdf", ".jpg", ".odt", ".csv", ".png", ".html"};
    const unsigned h = static_cast<unsigned>(i) * 2654435761u;
    return std::string(words[h % 16]) + "-" + std::to_string(i) + "_" + words[(h >> 8) % 16]
           + extensions[(h >> 16) % 8];
}

// Makes the tree unless it is already there with the right number of files.
void makeTree(const std::string& root, int files)
{
    int existing = 0;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(root, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        existing += it->is_regular_file() ? 1 : 0;
    }
    if (existing == files) {
        return;
    }
    std::filesystem::remove_all(root);
    for (int i = 0; i < files; ++i) {
        const std::string folder = root + "/d" + std::to_string(i / 200);
        if (i % 200 == 0) {
            std::filesystem::create_directories(folder);
        }
        const std::string path = folder + "/" + fileName(i);
        std::ofstream(path) << std::string(static_cast<std::size_t>((i * 37) % 5000), 'x');
        const std::time_t when = 1600000000 + static_cast<std::time_t>((i * 7919) % 50000000);
        struct utimbuf times {when, when};
        ::utime(path.c_str(), &times);
    }
}

// Runs the event loop until the controller's query has gathered and
// delivered everything.
bool settle(MetadataQueryController& controller)
{
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(5);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        index::LiveQuery* query = controller.metadataQuery();
        if (!query || query->isIdle()) {
            loop.quit();
        }
    });
    poll.start();
    loop.exec();
    return controller.state() == MetadataQueryController::State::Live;
}

struct Fixture {
    std::unique_ptr<QTemporaryDir> temporary;
    std::unique_ptr<index::LiveIndex> live;
    std::unique_ptr<index::LiveIndexSource> source;
    BenchDocument document;
    std::unique_ptr<MetadataQueryController> controller;
};
Fixture* g_fixture = nullptr;
// Heap taken by the gathered query and its result list, per result.
double g_heapPerResult = 0;

bool setUp()
{
    auto* fixture = new Fixture;
    g_fixture = fixture;
    if (g_settings.tree.empty() || g_settings.work.empty()) {
        fixture->temporary = std::make_unique<QTemporaryDir>();
        const std::string base = fixture->temporary->path().toStdString();
        if (g_settings.tree.empty()) {
            g_settings.tree = base + "/tree";
        }
        if (g_settings.work.empty()) {
            g_settings.work = base + "/work";
        }
    }
    makeTree(g_settings.tree, g_settings.files);
    std::filesystem::remove_all(g_settings.work);
    std::filesystem::create_directories(g_settings.work);
    auto opened = index::LiveIndex::open(g_settings.work + "/index", index::standardServices(), false);
    if (!opened) {
        std::fprintf(stderr, "results_bench: %s\n", opened.error().message.c_str());
        return false;
    }
    fixture->live = std::move(opened.value());
    if (auto added = fixture->live->addRoots({g_settings.tree}, {}); !added) {
        std::fprintf(stderr, "results_bench: %s\n", added.error().message.c_str());
        return false;
    }
    fixture->source = std::make_unique<index::LiveIndexSource>(*fixture->live);

    trovara::presentation::installColumnPropertiesChooser();
    fixture->controller = std::make_unique<MetadataQueryController>(*fixture->source);
    MetadataQueryController& controller = *fixture->controller;
    controller.windowDidLoadForDocument(&fixture->document);
    controller.setExpression(QStringLiteral("kMDItemFSName == \"*-*_*\""));
    controller.setSearchScopes({QString::fromStdString(g_settings.tree)});
    malloc_trim(0);
    const std::size_t heapBefore = mallinfo2().uordblks;
    controller.startQuery();
    const bool settled = settle(controller);
    malloc_trim(0);
    g_heapPerResult = (static_cast<double>(mallinfo2().uordblks) - static_cast<double>(heapBefore))
                      / static_cast<double>(std::max<std::size_t>(1, controller.resultArray().size()));
    if (!settled || controller.resultArray().size() != static_cast<std::size_t>(g_settings.files)) {
        std::fprintf(stderr, "results_bench: the query gathered %zu results, not %d (status: %s)\n",
                     controller.resultArray().size(), g_settings.files, qPrintable(controller.statusLine()));
        return false;
    }
    std::fprintf(stderr, "results_bench: %zu results, status line \"%s\"\n", controller.resultArray().size(),
                 qPrintable(controller.statusLine()));
    return true;
}

void reportSize(benchmark::State& state)
{
    state.counters["results"] = static_cast<double>(g_fixture->controller->resultArray().size());
}

void BM_ReloadResults(benchmark::State& state)
{
    MetadataQueryController& controller = *g_fixture->controller;
    for (auto _ : state) {
        controller.reloadResults();
        controller.updateStatusLine();
    }
    reportSize(state);
}
BENCHMARK(BM_ReloadResults)->Name("reload_results")->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Sort(benchmark::State& state)
{
    ResultTableModel& table = *g_fixture->controller->results();
    const int column = static_cast<int>(state.range(0));
    bool ascending = false;
    table.sort(column, Qt::AscendingOrder);  // every value read once
    for (auto _ : state) {
        table.sort(column, ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
        ascending = !ascending;
    }
    state.SetLabel(kColumns[column]);
    reportSize(state);
}

void BM_SortCold(benchmark::State& state)
{
    MetadataQueryController& controller = *g_fixture->controller;
    ResultTableModel& table = *controller.results();
    const int column = static_cast<int>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        // Fresh items: nothing read yet, as right after the query delivers.
        std::vector<std::shared_ptr<ResultItem>> fresh;
        fresh.reserve(controller.resultArray().size());
        for (const auto& item : controller.resultArray()) {
            fresh.push_back(item->copy());
        }
        table.setSortDescriptors({});
        table.setContent(std::move(fresh));
        state.ResumeTiming();
        table.sort(column, Qt::AscendingOrder);
    }
    // The loop is over: putting the query's own items back is not timed.
    controller.reloadResults();
    controller.setUpResultSorting();
    state.SetLabel(kColumns[column]);
    reportSize(state);
}

void sortArguments(benchmark::internal::Benchmark* benchmark)
{
    for (int column = 0; column < static_cast<int>(std::size(kColumns)); ++column) {
        benchmark->Arg(column);
    }
}
BENCHMARK(BM_Sort)->Name("sort")->Apply(sortArguments)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SortCold)->Name("sort_cold")->Apply(sortArguments)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->Iterations(5);

void BM_NameFilter(benchmark::State& state)
{
    MetadataQueryController& controller = *g_fixture->controller;
    controller.setFilterType(trovara::query::kFilterByName);
    bool first = true;
    std::size_t shown = 0;
    for (auto _ : state) {
        controller.setFilterString(first ? QStringLiteral("report") : QStringLiteral("scan"));
        shown = controller.results()->arrangedObjects().size();
        first = !first;
    }
    controller.setFilterString(QString());
    state.counters["shown"] = static_cast<double>(shown);
    reportSize(state);
}
BENCHMARK(BM_NameFilter)->Name("name_filter")->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MemoryPerItem(benchmark::State& state)
{
    const auto& results = g_fixture->controller->resultArray();
    double fresh = 0;
    double read = 0;
    for (auto _ : state) {
        malloc_trim(0);
        const std::size_t before = mallinfo2().uordblks;
        std::vector<std::shared_ptr<ResultItem>> copies;
        copies.reserve(results.size());
        const std::size_t vector = mallinfo2().uordblks;
        for (const auto& item : results) {
            copies.push_back(item->copy());
        }
        const std::size_t made = mallinfo2().uordblks;
        for (const auto& item : copies) {
            for (const char* key : kColumns) {
                benchmark::DoNotOptimize(item->valueForKey(QString::fromLatin1(key)));
            }
        }
        const std::size_t after = mallinfo2().uordblks;
        const double count = static_cast<double>(copies.size());
        fresh = static_cast<double>(made - vector) / count;
        read = static_cast<double>(after - vector) / count;
        benchmark::DoNotOptimize(before);
    }
    state.counters["bytes_fresh"] = fresh;
    state.counters["bytes_read"] = read;
    state.counters["bytes_query_and_list"] = g_heapPerResult;
    reportSize(state);
}
BENCHMARK(BM_MemoryPerItem)->Name("memory/item")->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char* argv[])
{
    std::vector<char*> rest{argv[0]};
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--tree=", 0) == 0) {
            g_settings.tree = argument.substr(7);
        } else if (argument.rfind("--work=", 0) == 0) {
            g_settings.work = argument.substr(7);
        } else if (argument.rfind("--files=", 0) == 0) {
            g_settings.files = std::stoi(argument.substr(8));
        } else {
            rest.push_back(argv[i]);
        }
    }
    int restCount = static_cast<int>(rest.size());
    QCoreApplication app(restCount, rest.data());
    // The user's own settings stay untouched: the defaults as registered.
    QTemporaryDir settings;
    model::Defaults::resetSharedForTesting(settings.path() + QStringLiteral("/bench.conf"));
    benchmark::Initialize(&restCount, rest.data());
    if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) {
        return 2;
    }
    if (!setUp()) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_fixture->controller.reset();
    delete g_fixture;
    return 0;
}
