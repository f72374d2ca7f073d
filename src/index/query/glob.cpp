#include "index/query/glob.h"

#include "index/text/utf8.h"
#include "index/text/word_splitter.h"

namespace trovara::index::query {

Glob Glob::compile(std::string_view pattern, text::FoldOptions options)
{
    Glob glob;
    std::string literal;
    const auto flushLiteral = [&] {
        if (!literal.empty()) {
            std::string folded = text::foldText(literal, options);
            if (!folded.empty()) {
                glob.m_pieces.push_back({PieceKind::Literal, std::move(folded)});
            }
            literal.clear();
        }
    };
    std::size_t i = 0;
    while (i < pattern.size()) {
        const char ch = pattern[i];
        if (ch == '\\' && i + 1 < pattern.size()) {
            const std::size_t end = text::nextCodePointOffset(pattern, i + 1);
            literal += pattern.substr(i + 1, end - i - 1);
            i = end;
        } else if (ch == '*') {
            flushLiteral();
            if (glob.m_pieces.empty() || glob.m_pieces.back().kind != PieceKind::AnyRun) {
                glob.m_pieces.push_back({PieceKind::AnyRun, {}});
            }
            ++i;
        } else if (ch == '?') {
            flushLiteral();
            glob.m_pieces.push_back({PieceKind::AnyCharacter, {}});
            ++i;
        } else {
            literal.push_back(ch);
            ++i;
        }
    }
    flushLiteral();
    // The common shapes match with one search of the bytes: in valid UTF-8
    // a byte match always lines up with whole characters.
    const auto& p = glob.m_pieces;
    const auto is = [&](std::size_t i, PieceKind kind) { return i < p.size() && p[i].kind == kind; };
    if (p.size() == 1 && is(0, PieceKind::Literal)) {
        glob.m_shape = Shape::Exactly;
    } else if (p.size() == 2 && is(0, PieceKind::Literal) && is(1, PieceKind::AnyRun)) {
        glob.m_shape = Shape::BeginsWith;
    } else if (p.size() == 2 && is(0, PieceKind::AnyRun) && is(1, PieceKind::Literal)) {
        glob.m_shape = Shape::EndsWith;
    } else if (p.size() == 3 && is(0, PieceKind::AnyRun) && is(1, PieceKind::Literal) && is(2, PieceKind::AnyRun)) {
        glob.m_shape = Shape::Contains;
    }
    return glob;
}

bool Glob::matchesEverything() const
{
    return m_pieces.size() == 1 && m_pieces.front().kind == PieceKind::AnyRun;
}

bool Glob::matches(std::string_view text) const
{
    switch (m_shape) {
    case Shape::Exactly:
        return text == m_pieces[0].literal;
    case Shape::BeginsWith:
        return text.starts_with(m_pieces[0].literal);
    case Shape::EndsWith:
        return text.ends_with(m_pieces[1].literal);
    case Shape::Contains:
        return text.find(m_pieces[1].literal) != std::string_view::npos;
    case Shape::General:
        break;
    }
    // Greedy matching that backtracks only to the last "*": a later "*" can
    // absorb whatever an earlier one would have, so that is enough.
    std::size_t piece = 0;
    std::size_t at = 0;
    std::size_t starPiece = m_pieces.size();  // none yet
    std::size_t starAt = 0;
    for (;;) {
        if (piece < m_pieces.size()) {
            const Piece& current = m_pieces[piece];
            if (current.kind == PieceKind::AnyRun) {
                starPiece = piece;
                starAt = at;
                ++piece;
                continue;
            }
            if (current.kind == PieceKind::AnyCharacter && at < text.size()) {
                at = text::nextCodePointOffset(text, at);
                ++piece;
                continue;
            }
            if (current.kind == PieceKind::Literal && text.substr(at).starts_with(current.literal)) {
                at += current.literal.size();
                ++piece;
                continue;
            }
        } else if (at == text.size()) {
            return true;
        }
        if (starPiece == m_pieces.size() || starAt >= text.size()) {
            return false;
        }
        starAt = text::nextCodePointOffset(text, starAt);
        at = starAt;
        piece = starPiece + 1;
    }
}

FoldedWords::FoldedWords(std::string_view text, text::FoldOptions options)
{
    std::string folded;
    for (const text::Word& word : text::splitWords(text)) {
        Entry entry;
        entry.begin = m_storage.size();
        entry.firstBoundary = m_boundaries.size();
        for (const std::string_view part : word.parts()) {
            m_boundaries.push_back(m_storage.size());
            text::foldTextInto(part, options, folded);
            m_storage += folded;
        }
        entry.end = m_storage.size();
        m_boundaries.push_back(entry.end);
        entry.boundaryCount = m_boundaries.size() - entry.firstBoundary;
        m_words.push_back(entry);
    }
}

std::string_view FoldedWords::word(std::size_t index) const
{
    const Entry& entry = m_words[index];
    return std::string_view(m_storage).substr(entry.begin, entry.end - entry.begin);
}

std::vector<std::string> WordPattern::pieces(std::string_view pattern)
{
    // Cut the pattern into pieces at word separators, keeping escapes and
    // wildcards inside their piece.
    std::vector<std::string> pieces;
    std::string current;
    const auto flush = [&] {
        if (!current.empty()) {
            pieces.push_back(std::move(current));
            current.clear();
        }
    };
    std::size_t i = 0;
    while (i < pattern.size()) {
        const char ch = pattern[i];
        if (ch == '*' || ch == '?') {
            current.push_back(ch);
            ++i;
            continue;
        }
        const bool escaped = ch == '\\' && i + 1 < pattern.size();
        const std::size_t start = escaped ? i + 1 : i;
        std::size_t end = start;
        const char32_t codePoint = text::decodeUtf8(pattern, end);
        if (text::isWordCharacter(codePoint)) {
            current += pattern.substr(i, end - i);
        } else {
            flush();
        }
        i = end;
    }
    flush();

    // A leading "*" belongs to the first word, a trailing one to the last,
    // even when punctuation stands between ("*-paris", "what?*").
    const auto onlyStars = [](const std::string& piece) { return piece.find_first_not_of('*') == std::string::npos; };
    while (pieces.size() > 1 && onlyStars(pieces.front())) {
        pieces[1].insert(0, 1, '*');
        pieces.erase(pieces.begin());
    }
    while (pieces.size() > 1 && onlyStars(pieces.back())) {
        pieces[pieces.size() - 2].push_back('*');
        pieces.pop_back();
    }
    return pieces;
}

WordPattern WordPattern::compile(std::string_view pattern, text::FoldOptions options)
{
    WordPattern result;
    for (const std::string& piece : pieces(pattern)) {
        result.m_pieces.push_back(Glob::compile(piece, options));
    }
    return result;
}

bool WordPattern::matches(const FoldedWords& words) const
{
    if (m_pieces.empty() || words.size() < m_pieces.size()) {
        return false;
    }
    for (std::size_t first = 0; first + m_pieces.size() <= words.size(); ++first) {
        bool all = true;
        for (std::size_t k = 0; k < m_pieces.size() && all; ++k) {
            const Glob& glob = m_pieces[k];
            all = words.anyCandidate(first + k, [&](std::string_view candidate) { return glob.matches(candidate); });
        }
        if (all) {
            return true;
        }
    }
    return false;
}

}  // namespace trovara::index::query
