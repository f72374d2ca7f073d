// Numbers as the query language writes them: an optional sign, digits with
// an optional decimal point, an optional exponent ("5000000", "-3", "1.5e3",
// ".5"). Independent of the C locale's decimal point. Internal to the index.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace trovara::index::query {

// The length of the number at the start of `text`, or 0 when it does not
// start with one.
std::size_t scanNumber(std::string_view text);

// The value of `text` when all of it (ASCII blanks around it aside) is a
// number; none otherwise, or when the value overflows a double. A value too
// small for a double is 0 (with its sign).
std::optional<double> parseNumber(std::string_view text);

}  // namespace trovara::index::query
