// The parsed form of a query in Trovara's query language: what the parser
// produces and the evaluator (and later the index's planner) consumes.
//
// A query is a tree of Boolean operators over comparisons, InRange tests and
// the constants true and false. Values keep both their meaning (a number, a
// time value, null …) and their text, because a value's meaning depends on
// the attribute it is compared with: a quoted '5000000' is a number for
// kMDItemFSSize and a text pattern for kMDItemDisplayName.
//
// Plain values: copy and share them freely; nothing here refers to the query
// text it was parsed from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovara::index::query {

enum class Comparison : std::uint8_t {
    Equal,  // "==" and "="
    NotEqual,
    Less,
    Greater,
    LessOrEqual,
    GreaterOrEqual,
};

// The modifiers after a text value ('x'cdw) or inside brackets after the
// operator (==[cd]). "t" is read as "w"; "s" is accepted and has no effect.
struct Modifiers {
    bool caseInsensitive = false;       // c
    bool diacriticInsensitive = false;  // d
    bool wordBased = false;             // w, t

    bool operator==(const Modifiers&) const = default;
};

struct AttributeRef {
    enum class Kind : std::uint8_t {
        Named,
        AnyText,           // "*": every text attribute the schema marks for it
        AnyTextOrContent,  // "**": "*" plus the text content
    };
    Kind kind = Kind::Named;
    std::string name;  // Named only; case-sensitive
};

enum class TimeFunction : std::uint8_t {
    Now,        // an instant
    Today,      // periods in local time ...
    Yesterday,
    ThisWeek,
    LastWeek,
    ThisMonth,
    ThisYear,
    Iso,        // an instant
};

// A date and time as written in ISO 8601 ("2018-10-01T10:00:00Z").
struct IsoDateTime {
    int year = 2001;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    double second = 0;
    std::optional<int> utcOffsetMinutes;  // none: local time
};

struct TimeValue {
    TimeFunction function = TimeFunction::Now;
    // Now: seconds from the query's start. Periods: how many periods away
    // from the current one ($time.today(-3): -3). Yesterday and LastWeek
    // already count from the previous period.
    double amount = 0;
    IsoDateTime iso;  // Iso only
};

struct Value {
    enum class Kind : std::uint8_t {
        Text,     // quoted or bare text
        Number,   // a bare number
        Boolean,  // true or false
        Time,     // a $time value, bare or quoted
        Null,     // null, NULL, nil
    };
    Kind kind = Kind::Text;
    // The value as text with escapes resolved; for bare numbers, keywords
    // and time values their spelling in the query.
    std::string text;
    // Text and quoted time values: the text as a glob pattern, in which a
    // backslash remains only before "*", "?" and "\" to mark them literal.
    std::string pattern;
    double number = 0;  // Number; Boolean as 1 or 0
    TimeValue time;     // Time
    Modifiers modifiers;
    bool quoted = false;
    std::size_t position = 0;  // 1-based character position in the query
};

struct Node {
    enum class Kind : std::uint8_t { Or, And, Not, Compare, InRange, True, False };
    Kind kind = Kind::True;
    std::vector<Node> children;  // Or, And: two or more; Not: one
    AttributeRef attribute;      // Compare, InRange
    Comparison comparison = Comparison::Equal;  // Compare
    std::vector<Value> values;   // Compare: one; InRange: lower and upper bound
};

struct Query {
    Node root;
};

// A canonical text of the tree, which parses back to the same tree: every
// operator group parenthesised, text values double-quoted with their
// modifiers, "==" for equality.
std::string toText(const Node& node);
std::string toText(const Query& query);

// The operator as written in canonical text ("==", "!=", "<" …).
const char* comparisonText(Comparison comparison);

}  // namespace trovara::index::query
