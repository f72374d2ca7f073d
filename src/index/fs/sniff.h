// Recognising a file's type from its first bytes, for the common formats,
// without the general-purpose machinery (which is slow and takes a global
// lock). What this does not recognise is left to shared-mime-info.
//
// Thread safety: pure functions.
#pragma once

#include <optional>
#include <string_view>

namespace trovara::index {

// The shared-mime-info name of the format whose signature `head` (the first
// bytes of a file) starts with, if it is one of the formats known here.
std::optional<std::string_view> sniffMimeType(std::string_view head);

// Whether `head` reads as text: valid UTF-8 (a sequence cut at the end is
// allowed), no NUL bytes, and few control characters other than tabs, line
// and page breaks.
bool looksLikeText(std::string_view head);

}  // namespace trovara::index
