// Reading plain text whose encoding nobody wrote down: the importers use it
// for text and source files, the text preview for what it shows.
//
// Detection (detectEncoding):
//   1. no bytes, or a first byte 0: ASCII;
//   2. a byte-order mark FF FE: UTF-16 little-endian; FE FF: big-endian;
//   3. otherwise the Japanese charset guesser over the bytes: EUC-JP,
//      Shift_JIS, UTF-8 or ISO-2022-JP; no answer: ASCII.
// Conversion (decodeText) always yields valid UTF-8: a byte or sequence that
// is not valid in the encoding becomes U+FFFD and the conversion goes on, so
// a file the guesser cannot classify still gives its ASCII words. EUC-JP,
// Shift_JIS (read as Windows writes it, so "\" stays a backslash) and
// ISO-2022-JP go through iconv; the others are decoded here.
//
// Thread safety: reentrant.
#pragma once

#include "index/expected.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace trovara::index::text {

enum class TextEncoding {
    Ascii,
    Utf8,
    Utf16LittleEndian,
    Utf16BigEndian,
    EucJp,
    ShiftJis,
    Iso2022Jp,
};

// A readable name ("UTF-8", "Shift_JIS" …).
std::string_view encodingName(TextEncoding encoding);

TextEncoding detectEncoding(std::string_view bytes);

struct DecodedText {
    std::string text;        // UTF-8
    bool truncated = false;  // cut at the limit
};

// The bytes as UTF-8, at most `limit` bytes of it (cut before a character
// that would cross the limit). A byte-order mark is not part of the text.
DecodedText decodeText(std::string_view bytes, TextEncoding encoding, std::size_t limit = std::string::npos);

// The bytes in a charset a document names ("ISO-8859-1", "windows-1252",
// "Shift_JIS" …) as UTF-8, as decodeText() does; none when the charset is
// unknown here.
std::optional<DecodedText> decodeNamedCharset(std::string_view bytes, std::string_view charset,
                                              std::size_t limit = std::string::npos);

// Reads a file as text: at most `limit` bytes of it are read, the encoding
// is detected from them, and the text is at most `limit` bytes of UTF-8.
// Fails only when the file cannot be read.
Expected<DecodedText> readTextFile(const std::string& path, std::size_t limit);

}  // namespace trovara::index::text
