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

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

class Glob;

// What the full-text index can be told about one piece of a word pattern
// compared with the text content (see text_tokens.h for what the index
// holds). Texts are folded as the index folds its terms (case and
// diacritics).
struct WordPieceHint {
    // Every word candidate that matches begins with this; empty when the
    // piece begins with a wildcard.
    std::string prefix;
    bool exact = false;       // the piece is the prefix and nothing else
    bool beginsWith = false;  // the piece is the prefix followed by "*"
    // When there is no prefix: texts every matching candidate contains.
    std::vector<std::string> contained;
};

struct TextContentHint {
    std::vector<WordPieceHint> pieces;  // consecutive words, in order
    // The comparison folds case and diacritics as the index does: an index
    // term that satisfies a piece is a word candidate that matches it.
    bool foldsAsTheIndex = false;
};

// One comparison of a query (a Compare or InRange node) compiled exactly as
// the evaluator compiles it, and asked about values one at a time. The
// index's fast paths evaluate comparisons through it on values read
// straight from their tables, so they keep the evaluator's semantics by
// construction: a Compare node holds for an item when, for "==" and the
// ordering operators (and InRange), scalarHolds() is true for some scalar
// of some target attribute (or textContentHolds() for the text content);
// "!=" is the negation of "=="; a presence test ("*") holds when some
// target has a value, a null test when none has.
//
// Immutable once built; shares the evaluator's thread safety.
class ComparisonMatcher {
public:
    enum class Kind : std::uint8_t {
        Scalar,    // ==, !=, <, >, <=, >= against a value, or InRange
        Presence,  // == "*" (or != "*", negated)
        Null,      // == null (or != null, negated)
    };

    ComparisonMatcher(const Node& node, const QueryStart& start, const Schema& schema = Schema::builtin());
    ~ComparisonMatcher();
    ComparisonMatcher(const ComparisonMatcher&);
    ComparisonMatcher& operator=(const ComparisonMatcher&);

    Kind kind() const;
    // "!=": the caller negates what the other members answer for "==".
    bool negated() const;

    std::size_t targetCount() const;
    const std::string& targetKey(std::size_t target) const;
    ValueType targetType(std::size_t target) const;
    bool looksAtTextContent() const;

    bool scalarHolds(std::size_t target, const Scalar& scalar) const;
    bool textContentHolds(std::string_view content) const;
    // The whole comparison for one item (negation included), as the
    // evaluator decides it.
    bool matches(const ItemView& item) const;

    // For a text target compared with "==" or "!=" with both the c and d
    // modifiers and without w: the compiled glob, to be matched against a
    // value folded with text::foldForCatalogue() (scalarHolds() would fold
    // it the same way). nullptr when the comparison is not of that kind.
    const Glob* caseAndDiacriticGlob() const;

    // Texts, folded with text::foldForCatalogue(), that every text value
    // holding "==" contains: necessary, never sufficient. Empty when
    // nothing can be told (ordering operators, patterns of wildcards only).
    std::vector<std::string> requiredFoldedLiterals() const;

    // For "==" and "!=" on the text content: the pattern's pieces as the
    // full-text index can look them up. None for other comparisons.
    std::optional<TextContentHint> textContentHint() const;

private:
    struct Compiled;
    std::shared_ptr<const Compiled> m_compiled;
};

// Parses and evaluates in one go, for one-off checks and tests.
Expected<bool> matchesQuery(std::string_view query, const ItemView& item, const QueryStart& start,
                            const Schema& schema = Schema::builtin());

}  // namespace trovara::index::query
