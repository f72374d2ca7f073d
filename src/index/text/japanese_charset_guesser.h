// Guessing the character set of Japanese text: EUC-JP, Shift_JIS, UTF-8 or
// ISO-2022-JP, from the bytes alone.
//
// Three byte-driven automata run side by side, one per multi-byte encoding.
// Each has a current state (-1 once it is dead) and a score that starts at
// 1.0. A transition table indexed by state × 256 + byte gives an arc number
// (negative: no arc, the automaton dies); the arc says the next state and a
// factor the score is multiplied by. The factors reward the byte sequences
// Japanese text is made of in that encoding (kana and common kanji above
// rare symbols and user-defined areas), and reward valid multi-byte UTF-8
// above any two-byte Japanese pair, because accented Latin letters in UTF-8
// happen to be valid EUC-JP and Shift_JIS too while real EUC-JP or Shift_JIS
// text stops being valid UTF-8 within a few characters.
//
// The walk:
//  1. An ESC byte that is not the last looks at the byte after it: "$" or "("
//     answers ISO-2022-JP at once; otherwise the ESC is skipped and that next
//     byte is fed instead. An ESC as the last byte is fed like any other.
//  2. Each byte goes to the live automata in the order EUC-JP, Shift_JIS,
//     UTF-8; when, after a byte, exactly one is left alive, it is the answer
//     at once; when none is, there is no answer.
//  3. At the end the live automata are compared in the order EUC-JP, UTF-8,
//     Shift_JIS; a later one wins only with a strictly greater score, so ties
//     favour EUC-JP, then UTF-8. Pure ASCII therefore reads as EUC-JP, which
//     decodes it unchanged.
//
// Thread safety: the tables are built once and never change; guess() is
// reentrant.
#pragma once

#include <optional>
#include <string_view>

namespace trovara::index::text {

class JapaneseCharsetGuesser {
public:
    // One of "EUC-JP", "Shift_JIS", "UTF-8", "ISO-2022-JP", or nothing.
    static std::optional<std::string_view> guess(std::string_view bytes);
};

}  // namespace trovara::index::text
