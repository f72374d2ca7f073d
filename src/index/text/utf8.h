// Small UTF-8 helpers for the text and query code (internal to the index).
//
// Invalid sequences are never an error here: decoding yields kInvalid for
// the offending byte and moves on by one byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace trovara::index::text {

inline constexpr char32_t kInvalidCodePoint = 0xFFFFFFFF;

// Decodes the code point at `offset` and advances `offset` past it.
char32_t decodeUtf8(std::string_view text, std::size_t& offset);

// The offset just past the code point at `offset` (at least offset + 1).
std::size_t nextCodePointOffset(std::string_view text, std::size_t offset);

// Appends the UTF-8 form of a code point.
void appendUtf8(std::string& out, char32_t codePoint);

// The number of code points that begin before `byteOffset`.
std::size_t codePointCount(std::string_view text, std::size_t byteOffset);

}  // namespace trovara::index::text
