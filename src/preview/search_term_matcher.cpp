#include "preview/search_term_matcher.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <limits>

namespace trovara::preview {

namespace {

// Each character of the Basic Multilingual Plane folded to one UTF-16 unit;
// 0 where the fold is longer (ß → ss) and ICU must be asked each time.
const std::vector<char16_t>& bmpFolds()
{
    static const std::vector<char16_t> table = [] {
        std::vector<char16_t> folds(0x10000, 0);
        for (char32_t c = 1; c < 0x10000; ++c) {
            if (c >= 0xD800 && c <= 0xDFFF) {
                folds[c] = static_cast<char16_t>(c);  // a lone surrogate stays as it is
                continue;
            }
            const UChar source = static_cast<UChar>(c);
            UChar folded[4];
            UErrorCode error = U_ZERO_ERROR;
            const int32_t length = u_strFoldCase(folded, 4, &source, 1, U_FOLD_CASE_DEFAULT, &error);
            if (U_SUCCESS(error) && length == 1) {
                folds[c] = folded[0];
            }
        }
        folds[0x130] = u'i';  // İ: a plain i, so that "istanbul" finds "İstanbul"
        return folds;
    }();
    return table;
}

// Appends the fold of code point `c`, given as `units` (1 or 2 UTF-16 units).
void appendFold(const QChar* units, qsizetype count, QString& out)
{
    if (count == 1) {
        const char16_t c = units[0].unicode();
        if (c < 0x80) {
            out.append(QChar(c >= u'A' && c <= u'Z' ? c + 32 : c));
            return;
        }
        if (const char16_t folded = bmpFolds()[c]; folded != 0) {
            out.append(QChar(folded));
            return;
        }
    }
    UChar folded[8];
    UErrorCode error = U_ZERO_ERROR;
    const int32_t length = u_strFoldCase(folded, 8, reinterpret_cast<const UChar*>(units),
                                         static_cast<int32_t>(count), U_FOLD_CASE_DEFAULT, &error);
    if (U_FAILURE(error) || length <= 0) {
        out.append(units, count);
        return;
    }
    out.append(reinterpret_cast<const QChar*>(folded), length);
}

// A text folded for matching, with the way back to the original positions.
struct FoldedText {
    QString text;
    // Empty while every character folded to as many units as it had, so that
    // positions are the same on both sides. Otherwise, for every unit i of
    // the folded text (and one past its end): origin[i] is the position in
    // the original of the character whose fold it belongs to, and begins[i]
    // whether it is the first unit of that fold.
    std::vector<qsizetype> origin;
    std::vector<bool> begins;
    bool isMapped = false;

    bool mapped() const { return isMapped; }

    // Whether [start, end) covers whole characters of the original.
    bool aligned(qsizetype start, qsizetype end) const
    {
        if (mapped()) {
            return begins[static_cast<std::size_t>(start)] && begins[static_cast<std::size_t>(end)];
        }
        return !text[start].isLowSurrogate() && (end == text.size() || !text[end].isLowSurrogate());
    }
    qsizetype original(qsizetype position) const
    {
        return mapped() ? origin[static_cast<std::size_t>(position)] : position;
    }
};

FoldedText foldWithMap(QStringView text)
{
    FoldedText folded;
    const qsizetype size = text.size();
    // The common case first: every character folds to one unit of the
    // Basic Multilingual Plane, written in place.
    folded.text.resize(size);
    char16_t* out = reinterpret_cast<char16_t*>(folded.text.data());
    const char16_t* in = reinterpret_cast<const char16_t*>(text.data());
    const std::vector<char16_t>& folds = bmpFolds();
    qsizetype i = 0;
    for (; i < size; ++i) {
        const char16_t c = in[i];
        if (c < 0x80) {
            out[i] = c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
            continue;
        }
        const char16_t one = c >= 0xD800 && c <= 0xDFFF ? 0 : folds[c];
        if (one == 0) {
            break;  // a surrogate or a longer fold: the general way from here
        }
        out[i] = one;
    }
    if (i == size) {
        return folded;
    }
    folded.text.truncate(i);
    while (i < size) {
        const qsizetype count = text[i].isHighSurrogate() && i + 1 < size && text[i + 1].isLowSurrogate() ? 2 : 1;
        const qsizetype before = folded.text.size();
        appendFold(text.data() + i, count, folded.text);
        const qsizetype added = folded.text.size() - before;
        if (added != count && !folded.isMapped) {
            // The first character whose fold changes length: from here on
            // positions need a map; up to here they were the same.
            folded.isMapped = true;
            folded.origin.reserve(static_cast<std::size_t>(size) + 16);
            for (qsizetype j = 0; j < before; ++j) {
                folded.origin.push_back(j);
                folded.begins.push_back(!folded.text[j].isLowSurrogate());
            }
        }
        if (folded.isMapped) {
            for (qsizetype j = 0; j < added; ++j) {
                folded.origin.push_back(i);
                folded.begins.push_back(j == 0);
            }
        }
        i += count;
    }
    if (folded.isMapped) {
        folded.origin.push_back(size);
        folded.begins.push_back(true);
    }
    return folded;
}

}  // namespace

const std::array<HighlightColor, 9>& highlightColors()
{
    static const std::array<HighlightColor, 9> colors{{
        {"red", 0xD01B1B, 196},
        {"green", 0x1E8A2E, 34},
        {"blue", 0x1F4FD6, 33},
        {"purple", 0x7B1FA2, 129},
        {"magenta", 0xC2189B, 201},
        {"cyan", 0x00838F, 37},
        {"orange", 0xE06A00, 208},
        {"yellow", 0xB08F00, 178},
        {"brown", 0x8B5A2B, 130},
    }};
    return colors;
}

const HighlightColor& colorForTerm(int term)
{
    const auto& colors = highlightColors();
    const int count = static_cast<int>(colors.size());
    return colors[static_cast<std::size_t>(((term % count) + count) % count)];
}

QString SearchTermMatcher::fold(QStringView text)
{
    return foldWithMap(text).text;
}

SearchTermMatcher::SearchTermMatcher(const QStringList& terms)
{
    m_folded.reserve(terms.size());
    for (const QString& term : terms) {
        m_folded.append(fold(term));
    }
}

bool SearchTermMatcher::isEmpty() const
{
    for (const QString& term : m_folded) {
        if (!term.isEmpty()) {
            return false;
        }
    }
    return true;
}

std::vector<TermMatch> SearchTermMatcher::scan(QStringView text, bool (*cancelled)(const void*),
                                               const void* context) const
{
    std::vector<TermMatch> matches;
    if (isEmpty() || text.isEmpty()) {
        return matches;
    }
    const FoldedText folded = foldWithMap(text);
    const QStringView haystack(folded.text);

    // The next match of each term at or after the scan position; a term's
    // answer stays good until the scan passes it.
    constexpr qsizetype kUnknown = -2;
    constexpr qsizetype kNone = -1;
    std::vector<qsizetype> next(static_cast<std::size_t>(m_folded.size()), kUnknown);
    auto find = [&](const QString& term, qsizetype from) {
        qsizetype at = haystack.indexOf(term, from);
        while (at >= 0 && !folded.aligned(at, at + term.size())) {
            at = haystack.indexOf(term, at + 1);
        }
        return at < 0 ? kNone : at;
    };

    qsizetype position = 0;
    for (unsigned round = 1;; ++round) {
        if ((round & 63) == 0 && cancelled(context)) {
            break;
        }
        int best = -1;
        for (int k = 0; k < static_cast<int>(m_folded.size()); ++k) {
            const QString& term = m_folded[k];
            qsizetype& at = next[static_cast<std::size_t>(k)];
            if (term.isEmpty() || at == kNone) {
                continue;
            }
            if (at < position) {
                at = find(term, position);
                if (at == kNone) {
                    continue;
                }
            }
            if (best < 0) {
                best = k;
                continue;
            }
            const qsizetype bestAt = next[static_cast<std::size_t>(best)];
            if (at < bestAt || (at == bestAt && term.size() > m_folded[best].size())) {
                best = k;
            }
        }
        if (best < 0) {
            break;
        }
        const qsizetype start = next[static_cast<std::size_t>(best)];
        const qsizetype end = start + m_folded[best].size();
        const qsizetype originalStart = folded.original(start);
        matches.push_back({originalStart, folded.original(end) - originalStart, best});
        position = end;
    }
    return matches;
}

int nextMatch(const std::vector<TermMatch>& matches, int current)
{
    if (matches.empty()) {
        return -1;
    }
    const int count = static_cast<int>(matches.size());
    return current < 0 || current + 1 >= count ? 0 : current + 1;
}

int previousMatch(const std::vector<TermMatch>& matches, int current)
{
    if (matches.empty()) {
        return -1;
    }
    const int count = static_cast<int>(matches.size());
    return current <= 0 || current > count ? count - 1 : current - 1;
}

}  // namespace trovara::preview
