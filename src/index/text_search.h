// Which files' text content makes one comparison hold: the full-text index
// finds the candidates (necessary, not sufficient), the evaluator's own
// word matching (ComparisonMatcher::textContentHolds) decides, except where
// the index's answer is exact by construction (text_tokens.h): a single word
// folded as the index folds, looked up as a prefix, or found as a whole term.
//
// Thread safety: as the TextIndex it is given.
#pragma once

#include "index/expected.h"
#include "index/query/evaluator.h"
#include "index/text_index.h"

#include <cstdint>
#include <vector>

namespace trovara::index {

// Ascending ids of the files whose text makes the "==" form of the
// comparison hold (the caller negates for "!="); for presence and null
// tests, the files that have text at all.
Expected<std::vector<std::int64_t>> itemsWhoseTextHolds(TextIndex& text, const query::ComparisonMatcher& matcher);

}  // namespace trovara::index
