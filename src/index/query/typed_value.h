// A text value of the query read as the attribute it is compared with
// takes it: kMDItemFSSize > '5000000' compares a number, and
// kMDItemContentCreationDate >= '2009-06-15' a date. The parser uses this to
// refuse values that no item could ever match ("0x10" for a size), the
// evaluator to compare. Internal to the index; reentrant.
#pragma once

#include "index/schema.h"

#include <optional>
#include <string>
#include <string_view>

namespace trovara::index::query {

// A text as a value of a numeric type: a number for every type; for dates
// also an ISO 8601 date; for Booleans also true/false/yes/no. None for a
// text of none of these forms, and for a number beyond a double's range.
std::optional<double> textAsNumber(std::string_view text, ValueType type);

// What a value of the type is written as, for messages ("a number").
std::string valueFormsOf(ValueType type);

}  // namespace trovara::index::query
