#include "index/text/word_splitter.h"

#include "index/text/utf8.h"

#include <unicode/uchar.h>

namespace trovara::index::text {

namespace {

enum class CharClass { Separator, Lower, Upper, OtherWord, Mark };

CharClass classify(char32_t c)
{
    if (c < 0x80) {
        if (c >= 'a' && c <= 'z') {
            return CharClass::Lower;
        }
        if (c >= 'A' && c <= 'Z') {
            return CharClass::Upper;
        }
        if (c >= '0' && c <= '9') {
            return CharClass::OtherWord;
        }
        return CharClass::Separator;
    }
    if (c == kInvalidCodePoint) {
        return CharClass::Separator;
    }
    const auto mask = U_GET_GC_MASK(static_cast<UChar32>(c));
    if (mask & U_GC_LL_MASK) {
        return CharClass::Lower;
    }
    if (mask & (U_GC_LU_MASK | U_GC_LT_MASK)) {
        return CharClass::Upper;
    }
    if (mask & U_GC_M_MASK) {
        return CharClass::Mark;
    }
    if (mask & (U_GC_L_MASK | U_GC_N_MASK)) {
        return CharClass::OtherWord;
    }
    return CharClass::Separator;
}

}  // namespace

Word::Word(std::string_view text, std::size_t offset, std::vector<std::string_view> parts)
    : m_text(text)
    , m_offset(offset)
    , m_parts(parts.size() > 1 ? std::move(parts) : std::vector<std::string_view>{})
{
}

std::span<const std::string_view> Word::parts() const
{
    if (m_parts.empty()) {
        return {&m_text, 1};
    }
    return m_parts;
}

bool isWordCharacter(char32_t codePoint)
{
    return classify(codePoint) != CharClass::Separator;
}

std::vector<Word> splitWords(std::string_view text)
{
    std::vector<Word> words;
    forEachWord(text, [&](const Word& word) { words.push_back(word); });
    return words;
}

void forEachWord(std::string_view text, const std::function<void(const Word&)>& visit)
{
    std::vector<std::string_view> parts;
    std::size_t wordStart = std::string_view::npos;
    std::size_t partStart = 0;
    // The class of the last letter or digit, skipping marks: "e\u0301A"
    // changes case between the e and the A.
    CharClass previous = CharClass::Separator;

    const auto finishWord = [&](std::size_t end) {
        parts.push_back(text.substr(partStart, end - partStart));
        visit(Word(text.substr(wordStart, end - wordStart), wordStart, std::move(parts)));
        parts.clear();
        wordStart = std::string_view::npos;
        previous = CharClass::Separator;
    };

    std::size_t offset = 0;
    while (offset < text.size()) {
        const std::size_t start = offset;
        const CharClass kind = classify(decodeUtf8(text, offset));
        if (kind == CharClass::Separator) {
            if (wordStart != std::string_view::npos) {
                finishWord(start);
            }
            continue;
        }
        if (wordStart == std::string_view::npos) {
            wordStart = start;
            partStart = start;
        } else if (kind == CharClass::Upper && previous == CharClass::Lower) {
            parts.push_back(text.substr(partStart, start - partStart));
            partStart = start;
        }
        if (kind != CharClass::Mark) {
            previous = kind;
        }
    }
    if (wordStart != std::string_view::npos) {
        finishWord(text.size());
    }
}

}  // namespace trovara::index::text
