#include "index/text_search.h"

#include "index/text_tokens.h"

#include <algorithm>
#include <iterator>

namespace trovara::index {

namespace {

using Ids = std::vector<std::int64_t>;

Ids intersect(const Ids& a, const Ids& b)
{
    Ids out;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

Ids subtract(const Ids& a, const Ids& b)
{
    Ids out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

// Whether the index would take `text` as exactly one term, itself.
bool isOneTerm(std::string_view text)
{
    int count = 0;
    bool same = false;
    forEachTerm(text, false, [&](std::string_view term, bool) {
        same = ++count == 1 && term == text;
        return count < 2;
    });
    return count == 1 && same;
}

}  // namespace

Expected<Ids> itemsWhoseTextHolds(TextIndex& text, const query::ComparisonMatcher& matcher)
{
    if (matcher.kind() != query::ComparisonMatcher::Kind::Scalar) {
        return text.itemsWithText();
    }
    const std::optional<query::TextContentHint> hint = matcher.textContentHint();
    Ids candidates;
    bool restricted = false;
    Ids sure;  // matches the index vouches for
    if (hint) {
        for (const query::WordPieceHint& piece : hint->pieces) {
            Expected<Ids> found = Ids();
            if (!piece.prefix.empty()) {
                const std::string_view prefix = cutAtCharacter(piece.prefix, kExactTermLimit);
                if (!isOneTerm(prefix)) {
                    continue;  // not something the index holds as a term: no help from it
                }
                found = text.itemsWithTermStartingWith(prefix);
            } else if (!piece.contained.empty()) {
                found = text.itemsWithTermContaining(piece.contained);
            } else {
                continue;
            }
            if (!found) {
                return found.error();
            }
            candidates = restricted ? intersect(candidates, *found) : std::move(*found);
            restricted = true;
        }
        if (restricted && hint->foldsAsTheIndex && hint->pieces.size() == 1) {
            const query::WordPieceHint& piece = hint->pieces.front();
            const bool whole = !piece.prefix.empty() && piece.prefix.size() <= kExactTermLimit && isOneTerm(piece.prefix);
            if (whole && piece.beginsWith) {
                return candidates;  // every term found begins a word candidate: all of them match
            }
            if (whole && piece.exact) {
                Expected<Ids> exact = text.itemsWithTerm(piece.prefix);
                if (!exact) {
                    return exact.error();
                }
                sure = intersect(candidates, *exact);
                candidates = subtract(candidates, sure);
            }
        }
    }
    if (!restricted) {
        Expected<Ids> all = text.itemsWithText();
        if (!all) {
            return all.error();
        }
        candidates = std::move(*all);
    }
    Ids result;
    for (const std::int64_t id : candidates) {
        Expected<std::optional<std::string>> content = text.text(id);
        if (!content) {
            return content.error();
        }
        if (*content && matcher.textContentHolds(**content)) {
            result.push_back(id);
        }
    }
    Ids merged;
    std::merge(sure.begin(), sure.end(), result.begin(), result.end(), std::back_inserter(merged));
    return merged;
}

}  // namespace trovara::index
