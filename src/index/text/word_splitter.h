// How Trovara cuts text into words, for word-based matching ("w") and for
// the text content of files, which the index keeps as a sequence of words.
//
// A word is a maximal run of letters, digits and combining marks; every other
// character separates words. Inside a word, a lower-case letter followed by an
// upper-case (or title-case) letter starts a new part: "MyWindowClass" is one
// word of three parts, "NSWindow" and "HTMLParser" are one part each. Matching
// treats each part, and each run of consecutive parts, as a word in its own
// right, so "Window" and "MyWindow" both find "MyWindowClass" while the
// whole word still finds itself.
//
// Scripts written without spaces (Japanese, Chinese) form one word per run
// of letters; there is no dictionary segmentation.
//
// Invalid UTF-8 bytes separate words. Thread safety: reentrant.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

namespace trovara::index::text {

// One word of a text. Views point into the text that was split, which must
// outlive the word.
class Word {
public:
    Word(std::string_view text, std::size_t offset, std::vector<std::string_view> parts);

    std::string_view text() const { return m_text; }
    // Byte offset of the word in the text that was split.
    std::size_t offset() const { return m_offset; }
    // The parts, in order; a word without case changes has one part, itself.
    std::span<const std::string_view> parts() const;

private:
    std::string_view m_text;
    std::size_t m_offset = 0;
    std::vector<std::string_view> m_parts;  // empty when the word is one part
};

std::vector<Word> splitWords(std::string_view text);

// Calls `visit` for each word in order, without collecting them: for texts
// too long to hold every word at once.
void forEachWord(std::string_view text, const std::function<void(const Word&)>& visit);

// Whether a code point belongs inside words (a letter, digit or mark).
bool isWordCharacter(char32_t codePoint);

}  // namespace trovara::index::text
