// The plain evaluator of Trovara's query language: decides, one item at a
// time, whether an item matches a parsed query. It is the oracle the
// index's faster paths are tested against, and what searches items that
// are not in the index (a scope outside it, a file changed a moment ago).
//
// Semantics, in short:
// - Text: the pattern is a glob over the whole value, or with "w" over its
//   words (text/word_splitter.h); "c" folds case, "d" drops diacritics, and
//   both sides are always canonically composed (text/folding.h). The text
//   content is always matched word by word, a pattern with several words as
//   a phrase. Ordering operators compare folded texts code point by code
//   point.
// - Numbers, dates and Booleans (as 1 and 0) compare numerically; a quoted
//   value is converted to the attribute's type (a date as seconds since
//   2001-01-01 UTC, an ISO 8601 date or a $time value); a value that does
//   not convert matches nothing.
// - $time periods match with "==" when the date lies inside them; ordering
//   operators and InRange bounds use their start. InRange is inclusive.
// - A list matches when any element does. "!=" is exactly the negation of
//   "==": true for an item without the attribute. == "*" tests presence,
//   != "*" absence; = null absence, != null presence.
// - "*" is every text attribute the schema marks for it; "**" adds the text
//   content. Attributes the schema does not know compare as text; an item
//   that lacks an attribute simply has none.
//
// Thread safety: an Evaluator is immutable once built; matches() may run on
// many threads at once. Copies share their compiled form.
#pragma once

#include "index/expected.h"
#include "index/query/ast.h"
#include "index/query/calendar.h"
#include "index/query/item_view.h"
#include "index/schema.h"

#include <memory>
#include <string_view>

namespace trovara::index::query {

inline constexpr std::string_view kTextContentKey = "kMDItemTextContent";

class Evaluator {
public:
    // Fixes the query's $time values at `start` (local time as TZ says at
    // this moment), looks up attribute types in `schema` and compiles the
    // patterns. Keeps no reference to the query or the schema.
    Evaluator(const Query& query, const QueryStart& start, const Schema& schema = Schema::builtin());

    bool matches(const ItemView& item) const;

private:
    struct Program;
    std::shared_ptr<const Program> m_program;
};

// Parses and evaluates in one go, for one-off checks and tests.
Expected<bool> matchesQuery(std::string_view query, const ItemView& item, const QueryStart& start,
                            const Schema& schema = Schema::builtin());

}  // namespace trovara::index::query
