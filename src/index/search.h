// Running a query over the catalogue, fast.
//
// The query is compiled into a plan whose comparisons read their values
// straight from the catalogue's arrays (a name against its pre-folded form,
// a size or date against the core record, a type once per distinct type)
// and decide them through query::ComparisonMatcher, so the plan gives the
// evaluator's answers by construction. Comparisons of the text content are
// decided before the scan, through the full text of the catalogue's database
// (text_search.h), and read as sets of items during it. Candidates come from
// such a text comparison when the query requires one, else from the trigram
// index when the query requires a name to contain a text of three bytes or
// more, from one pass over the folded names when it requires a shorter one,
// and otherwise from the whole scope. The plain evaluator over the same
// items (matchesWithEvaluator) is the oracle tests hold this against.
//
// Thread safety: a CatalogueQuery is immutable; run it from any thread.
#pragma once

#include "index/catalogue.h"
#include "index/query/ast.h"
#include "index/query/calendar.h"
#include "index/schema.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovara::index {

// Positions [begin, end) of the catalogue.
struct ItemRange {
    ItemIndex begin = 0;
    ItemIndex end = 0;
};

struct ResolvedScope {
    std::vector<ItemRange> ranges;     // sorted, not overlapping
    std::vector<std::string> outside;  // scope folders the catalogue does not hold
};

// Sorts ranges and joins those that overlap or touch.
std::vector<ItemRange> mergeRanges(std::vector<ItemRange> ranges);

// The parts of the catalogue below the scope folders (each folder included).
// No folders: the whole catalogue.
ResolvedScope resolveScope(const Catalogue& catalogue, const std::vector<std::string>& folders);

class CatalogueQuery {
public:
    CatalogueQuery(std::shared_ptr<const Catalogue> catalogue, const query::Query& query,
                   const query::QueryStart& start, const Schema& schema = Schema::builtin());
    ~CatalogueQuery();

    // Calls `found` for every matching item in the ranges, in catalogue
    // order, until it returns false.
    void run(const std::vector<ItemRange>& ranges, const std::function<bool(ItemIndex)>& found) const;
    std::vector<ItemIndex> matches(const std::vector<ItemRange>& ranges) const;
    std::size_t count(const std::vector<ItemRange>& ranges) const;

    // The same answer through the plain evaluator, item by item.
    std::vector<ItemIndex> matchesWithEvaluator(const std::vector<ItemRange>& ranges) const;

    // How the plan finds its candidates ("text", "trigrams", "name scan",
    // "all"), for tests and benchmarks.
    std::string strategy() const;

    // Why the full text could not be searched, if it could not (its
    // comparisons then hold for no item).
    const std::optional<Failure>& textFailure() const;

private:
    struct Plan;
    std::shared_ptr<const Catalogue> m_catalogue;
    std::unique_ptr<Plan> m_plan;
};

}  // namespace trovara::index
