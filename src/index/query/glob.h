// Text patterns of the query language, compiled for matching folded text.
//
// A pattern is the parser's glob form of a text value: "*" matches any run
// of characters (possibly none), "?" exactly one character (code point),
// and "\*", "\?", "\\" stand for the characters themselves. Pattern text is
// folded once, when compiled, with the comparison's case and diacritic
// options; the caller folds each value with the same options
// (text::foldText) before matching.
//
// Glob matches a whole value. WordPattern matches words: the pattern is cut
// into pieces at the characters that separate words (blanks, punctuation,
// literal "*" and "?"; wildcards stay inside their piece), and matches when
// its pieces match consecutive words of the value, one piece per word. A
// piece matches a word when it matches the whole word or any run of its
// parts (see text/word_splitter.h). A leading "*" applies to the first
// piece and a trailing "*" to the last, also when a separator stands between
// ("*-paris" is "*paris", "paris-*" is "paris*").
//
// Immutable after compilation; safe to share between threads.
#pragma once

#include "index/text/folding.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index::query {

class Glob {
public:
    Glob() = default;  // matches only the empty text
    static Glob compile(std::string_view pattern, text::FoldOptions options);

    bool matches(std::string_view foldedText) const;
    // Whether the pattern is nothing but "*" wildcards (one or more).
    bool matchesEverything() const;

private:
    enum class PieceKind : std::uint8_t { Literal, AnyCharacter, AnyRun };
    struct Piece {
        PieceKind kind = PieceKind::Literal;
        std::string literal;
    };
    enum class Shape : std::uint8_t { General, Exactly, BeginsWith, EndsWith, Contains };
    std::vector<Piece> m_pieces;
    Shape m_shape = Shape::General;
};

// The words of one text, folded: each word as the concatenation of its
// folded parts, with the offsets where parts begin.
class FoldedWords {
public:
    FoldedWords(std::string_view text, text::FoldOptions options);

    std::size_t size() const { return m_words.size(); }
    std::string_view word(std::size_t index) const;
    // Calls `visit(candidate)` for the whole word and every run of its
    // parts, until it returns true; returns whether one did.
    template <typename Visit>
    bool anyCandidate(std::size_t index, Visit&& visit) const;

private:
    struct Entry {
        std::size_t begin = 0;
        std::size_t end = 0;
        std::size_t firstBoundary = 0;  // into m_boundaries: part starts, then `end`
        std::size_t boundaryCount = 0;
    };
    std::string m_storage;
    std::vector<Entry> m_words;
    std::vector<std::size_t> m_boundaries;
};

class WordPattern {
public:
    WordPattern() = default;  // no pieces: matches nothing
    static WordPattern compile(std::string_view pattern, text::FoldOptions options);
    // The pattern cut into its pieces, each still a glob pattern (escapes
    // and wildcards as written), as compile() cuts it.
    static std::vector<std::string> pieces(std::string_view pattern);

    bool matches(const FoldedWords& words) const;
    std::size_t pieceCount() const { return m_pieces.size(); }

private:
    std::vector<Glob> m_pieces;
};

template <typename Visit>
bool FoldedWords::anyCandidate(std::size_t index, Visit&& visit) const
{
    const Entry& entry = m_words[index];
    const std::string_view storage(m_storage);
    if (visit(storage.substr(entry.begin, entry.end - entry.begin))) {
        return true;
    }
    if (entry.boundaryCount <= 2) {
        return false;  // a single part is the whole word
    }
    for (std::size_t from = 0; from + 1 < entry.boundaryCount; ++from) {
        for (std::size_t to = from + 1; to < entry.boundaryCount; ++to) {
            if (from == 0 && to + 1 == entry.boundaryCount) {
                continue;  // the whole word, visited above
            }
            const std::size_t begin = m_boundaries[entry.firstBoundary + from];
            const std::size_t end = m_boundaries[entry.firstBoundary + to];
            if (visit(storage.substr(begin, end - begin))) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace trovara::index::query
