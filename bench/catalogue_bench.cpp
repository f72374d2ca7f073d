// catalogue_bench: how fast queries run over an existing index's catalogue,
// in process: no process start, no database, no printing of results.
//
//   catalogue_bench [INDEX_DIR | CATALOGUE_FILE] [--rare=TEXT] [--broad=TEXT]
//                   [--letter=TEXT] [--since=ISO] [--big=BYTES] [--no-check]
//                   [--benchmark_filter=… and the other Google Benchmark flags]
//
// The index is the argument (a folder holding catalogue.bin, or the snapshot
// itself), else $TROVARA_BENCH_INDEX, else $TROVARA_INDEX. The snapshot is
// mapped as `trova find` maps it; build it first with `trova index add`.
//
// Measured, each from query text to answer (parse, plan, run):
//   open                   mapping and checking the snapshot
//   rare_name/count        kMDItemDisplayName == "*RARE*"cd   (trigram candidates)
//   rare_name/paths        the same, building every hit's path
//   broad_name/count       kMDItemDisplayName == "*BROAD*"cd
//   broad_name/paths       the same, building every hit's path
//   one_letter/count       kMDItemDisplayName == "*LETTER*"c  (one pass over the names)
//   compound/count         name contains BROAD, size > BIG, modified after SINCE
//   size_scan/count        kMDItemFSSize > BIG                 (every item)
//   date_scan/count        kMDItemFSContentChangeDate > SINCE  (every item)
// Defaults: RARE zanzibar, BROAD log, LETTER e, SINCE 2025-11-01T00:00:00Z
// (a UTC instant), BIG 1048576: the markers and the combined query of a tree
// made by make-corpus with --now 2026-11-01.
//
// Every benchmark reports its number of hits (counter "hits"), the number of
// items in the catalogue ("items") and the plan's strategy (the label).
// Before measuring, each query's answer is compared with the plain
// evaluator's over every item; a difference is printed and makes the program
// exit with status 1 (--no-check skips this, which takes seconds at 1M).
#include "index/catalogue.h"
#include "index/query/calendar.h"
#include "index/query/find_query.h"
#include "index/query/parser.h"
#include "index/search.h"

#include <benchmark/benchmark.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using trovara::index::Catalogue;
using trovara::index::CatalogueQuery;
using trovara::index::ItemIndex;
using trovara::index::ItemRange;
namespace query = trovara::index::query;

struct Settings {
    std::string catalogue;
    std::string rare = "zanzibar";
    std::string broad = "log";
    std::string letter = "e";
    std::string since = "2025-11-01T00:00:00Z";
    std::string big = "1048576";
    bool check = true;
};

struct NamedQuery {
    std::string name;
    std::string text;
    bool paths = false;  // build every hit's path, as printing needs
};

std::string catalogueFile(const std::string& given)
{
    struct stat st {};
    if (::stat(given.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        return given + "/catalogue.bin";
    }
    return given;
}

query::Query parse(const std::string& text)
{
    trovara::index::Expected<query::Query> parsed = query::parseQuery(text);
    if (!parsed) {
        std::fprintf(stderr, "catalogue_bench: cannot parse %s: %s\n", text.c_str(), parsed.error().message.c_str());
        std::exit(2);
    }
    return std::move(parsed).value();
}

std::vector<ItemRange> everything(const Catalogue& catalogue)
{
    return {ItemRange{0, catalogue.size()}};
}

void runQuery(benchmark::State& state, const std::shared_ptr<const Catalogue>& catalogue, const NamedQuery& named,
              const query::QueryStart& start)
{
    const std::vector<ItemRange> ranges = everything(*catalogue);
    std::size_t hits = 0;
    std::string strategy;
    for (auto _ : state) {
        const query::Query parsed = parse(named.text);
        const CatalogueQuery search(catalogue, parsed, start);
        if (named.paths) {
            std::size_t total = 0;
            std::size_t bytes = 0;
            search.run(ranges, [&](ItemIndex i) {
                const std::string path = catalogue->path(i);
                bytes += path.size();
                ++total;
                return true;
            });
            benchmark::DoNotOptimize(bytes);
            hits = total;
        } else {
            hits = search.count(ranges);
            benchmark::DoNotOptimize(hits);
        }
        if (strategy.empty()) {
            strategy = search.strategy();
        }
    }
    state.counters["hits"] = static_cast<double>(hits);
    state.counters["items"] = static_cast<double>(catalogue->size());
    state.SetLabel(strategy);
}

void openCatalogue(benchmark::State& state, const std::string& path)
{
    ItemIndex items = 0;
    for (auto _ : state) {
        auto opened = Catalogue::open(path);
        if (!opened) {
            state.SkipWithError(opened.error().message.c_str());
            return;
        }
        items = opened.value()->size();
        benchmark::DoNotOptimize(items);
    }
    state.counters["items"] = static_cast<double>(items);
}

// The plan's answer against the plain evaluator's, over every item.
bool agreesWithEvaluator(const std::shared_ptr<const Catalogue>& catalogue, const NamedQuery& named,
                         const query::QueryStart& start)
{
    const CatalogueQuery search(catalogue, parse(named.text), start);
    const std::vector<ItemRange> ranges = everything(*catalogue);
    const std::vector<ItemIndex> fast = search.matches(ranges);
    const std::vector<ItemIndex> plain = search.matchesWithEvaluator(ranges);
    if (fast == plain) {
        std::fprintf(stderr, "check %-18s %zu hits (%s), as the evaluator finds\n", named.name.c_str(), fast.size(),
                     search.strategy().c_str());
        return true;
    }
    std::fprintf(stderr, "WRONG ANSWER %s: %s\n  the plan finds %zu, the evaluator %zu\n", named.name.c_str(),
                 named.text.c_str(), fast.size(), plain.size());
    std::size_t shown = 0;
    std::size_t a = 0;
    std::size_t b = 0;
    while ((a < fast.size() || b < plain.size()) && shown < 10) {
        if (b == plain.size() || (a < fast.size() && fast[a] < plain[b])) {
            std::fprintf(stderr, "  only the plan:      %s\n", catalogue->path(fast[a++]).c_str());
            ++shown;
        } else if (a == fast.size() || plain[b] < fast[a]) {
            std::fprintf(stderr, "  only the evaluator: %s\n", catalogue->path(plain[b++]).c_str());
            ++shown;
        } else {
            ++a;
            ++b;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        auto value = [&](std::string_view option, std::string& into) {
            if (argument.substr(0, option.size()) == option) {
                into = std::string(argument.substr(option.size()));
                return true;
            }
            return false;
        };
        if (value("--rare=", settings.rare) || value("--broad=", settings.broad)
            || value("--letter=", settings.letter) || value("--since=", settings.since)
            || value("--big=", settings.big)) {
            continue;
        }
        if (argument == "--no-check") {
            settings.check = false;
        } else if (argument.substr(0, 2) == "--" || !settings.catalogue.empty()) {
            std::fprintf(stderr, "catalogue_bench: unknown argument %s\n", argv[i]);
            return 2;
        } else {
            settings.catalogue = std::string(argument);
        }
    }
    if (settings.catalogue.empty()) {
        for (const char* variable : {"TROVARA_BENCH_INDEX", "TROVARA_INDEX"}) {
            if (const char* set = std::getenv(variable); set && *set) {
                settings.catalogue = set;
                break;
            }
        }
    }
    if (settings.catalogue.empty()) {
        std::fprintf(stderr, "usage: catalogue_bench INDEX_DIR|CATALOGUE_FILE [options] "
                             "(or set TROVARA_BENCH_INDEX)\n");
        return 2;
    }
    const std::string path = catalogueFile(settings.catalogue);
    auto opened = Catalogue::open(path);
    if (!opened) {
        std::fprintf(stderr, "catalogue_bench: %s\n", opened.error().message.c_str());
        return 1;
    }
    const std::shared_ptr<const Catalogue> catalogue = opened.value();
    const query::QueryStart start = query::QueryStart::now();

    const std::string name = "kMDItemDisplayName == \"*";
    const std::string since = "$time.iso(" + settings.since + ")";
    const std::vector<NamedQuery> queries = {
        {"rare_name/count", name + query::escaped(settings.rare) + "*\"cd", false},
        {"rare_name/paths", name + query::escaped(settings.rare) + "*\"cd", true},
        {"broad_name/count", name + query::escaped(settings.broad) + "*\"cd", false},
        {"broad_name/paths", name + query::escaped(settings.broad) + "*\"cd", true},
        {"one_letter/count", name + query::escaped(settings.letter) + "*\"c", false},
        {"compound/count",
         name + query::escaped(settings.broad) + "*\"cd && kMDItemFSSize > " + settings.big
             + " && kMDItemFSContentChangeDate > " + since,
         false},
        {"size_scan/count", "kMDItemFSSize > " + settings.big, false},
        {"date_scan/count", "kMDItemFSContentChangeDate > " + since, false},
    };

    std::fprintf(stderr, "catalogue %s: %u items\n", path.c_str(), catalogue->size());
    if (settings.check) {
        bool right = true;
        for (const NamedQuery& named : queries) {
            if (!named.paths) {
                right = agreesWithEvaluator(catalogue, named, start) && right;
            }
        }
        if (!right) {
            return 1;
        }
    }

    benchmark::RegisterBenchmark("open", openCatalogue, path)->Unit(benchmark::kMillisecond);
    for (const NamedQuery& named : queries) {
        benchmark::RegisterBenchmark(named.name.c_str(), runQuery, catalogue, named, start)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::AddCustomContext("catalogue", path);
    benchmark::AddCustomContext("items", std::to_string(catalogue->size()));
    for (const NamedQuery& named : queries) {
        benchmark::AddCustomContext("query " + named.name, named.text);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
