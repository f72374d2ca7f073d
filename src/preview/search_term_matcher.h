// Finding the search terms in a preview's text, for colouring them.
//
// Matching is case-insensitive by full Unicode case folding, code point by
// code point ("STRASSE" finds "straße", "ǅ" finds "ǆ"); the dotted capital
// İ folds to a plain i, so "istanbul" finds "İstanbul". A match always
// covers whole characters: "s" does not find half of an "ß".
//
// The scan (colorRanges): from the start of the text, every term is looked
// for in the rest of the text and the earliest match wins; at the same
// start the longer one, and at equal length the earlier term in the list.
// The scan goes on just after that match, so matches never overlap ("aba"
// is found twice in "abababa"), and ends when no term occurs any more.
// Term k of the list is drawn in colour k modulo 9 of highlightColors().
//
// Thread safety: a matcher is immutable once built and may be shared by
// threads; the functions are reentrant.
#pragma once

#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <vector>

namespace trovara::preview {

// One colour of the highlight list: its name, a shade of it that reads well
// as the colour of text on a light background, and the entry of the xterm
// 256-colour palette that reads well on a terminal's, light or dark.
struct HighlightColor {
    const char* name;
    std::uint32_t rgb;  // 0xRRGGBB
    int terminal;
};

// Red, green, blue, purple, magenta, cyan, orange, yellow, brown: the
// colours of terms 0 to 8 (term 9 is red again).
const std::array<HighlightColor, 9>& highlightColors();

// The colour of term `term` of the list.
const HighlightColor& colorForTerm(int term);

// One coloured range, in UTF-16 units of the text.
struct TermMatch {
    qsizetype start = 0;
    qsizetype length = 0;
    int term = 0;  // index in the term list

    bool operator==(const TermMatch&) const = default;
};

class SearchTermMatcher {
public:
    // Empty terms (and terms that fold to nothing) never match, but keep
    // their place, so the colours of the others stay as listed.
    explicit SearchTermMatcher(const QStringList& terms);

    bool isEmpty() const;

    // Every match, in text order. `cancelled` is asked now and then; when it
    // answers true the scan stops with what it found so far.
    template <typename Cancelled>
    std::vector<TermMatch> colorRanges(QStringView text, Cancelled cancelled) const;
    std::vector<TermMatch> colorRanges(QStringView text) const
    {
        return colorRanges(text, [] { return false; });
    }

    // The case-folded form of a text, as matching sees it.
    static QString fold(QStringView text);

private:
    std::vector<TermMatch> scan(QStringView text, bool (*cancelled)(const void*), const void* context) const;

    QStringList m_folded;  // per term
};

template <typename Cancelled>
std::vector<TermMatch> SearchTermMatcher::colorRanges(QStringView text, Cancelled cancelled) const
{
    return scan(
        text, [](const void* c) { return (*static_cast<const Cancelled*>(c))(); }, &cancelled);
}

// The match to go to from match `current` (-1: none yet): the next one, or
// after the last the first again; none (-1) when there are no matches.
int nextMatch(const std::vector<TermMatch>& matches, int current);
// The previous one, or before the first the last.
int previousMatch(const std::vector<TermMatch>& matches, int current);

}  // namespace trovara::preview
