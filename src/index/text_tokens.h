// How the full-text index cuts text into terms, so that it can serve as a
// prefilter for the evaluator's word semantics (query/evaluator.h).
//
// The evaluator matches a word pattern against every "candidate" of a word:
// the whole word and every run of consecutive parts ("MyWindowClass" has the
// parts My, Window, Class; see text/word_splitter.h). The index keeps, per
// word, the whole word and every run that reaches the word's end (its suffix
// runs: "windowclass", "class"), each folded as the catalogue folds names
// (case and diacritics, text/folding.h), part by part as the evaluator does.
// Every candidate is then a prefix of some term, so:
//   - a candidate that begins with P is found by the prefix query P*;
//   - a term equal to T is a candidate equal to T (but not every candidate
//     equal to T is a term: "window" in "MyWindowClass" is only a prefix).
// Terms are cut to kMaxTermBytes (at a character boundary); a text longer
// than kExactTermLimit can thus only be looked up as a prefix.
//
// Thread safety: pure functions.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace trovara::index {

inline constexpr std::size_t kMaxTermBytes = 64;
// Terms at most this long were never cut (a cut leaves at least 61 bytes).
inline constexpr std::size_t kExactTermLimit = kMaxTermBytes - 4;

// Calls `term(text, colocated)` for the terms of `text`: for each word its
// whole form, then (when `withSuffixRuns`) its suffix runs with colocated
// set. Stops when `term` returns false; returns whether it went to the end.
bool forEachTerm(std::string_view text, bool withSuffixRuns,
                 const std::function<bool(std::string_view term, bool colocated)>& term);

// `folded` cut to at most `limit` bytes at a character boundary.
std::string_view cutAtCharacter(std::string_view folded, std::size_t limit);

}  // namespace trovara::index
