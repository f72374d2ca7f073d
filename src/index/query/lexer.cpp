#include "index/query/lexer.h"

#include "index/query/ascii.h"
#include "index/query/number_text.h"
#include "index/query/time_value.h"
#include "index/text/utf8.h"

namespace trovara::index::query {

namespace {

// Characters that end a bare value or a number.
bool isDelimiter(char ch)
{
    switch (ch) {
    case '"':
    case '\'':
    case '(':
    case ')':
    case ',':
    case '&':
    case '|':
    case '!':
    case '=':
    case '<':
    case '>':
    case '[':
    case ']':
        return true;
    default:
        return ascii::isBlank(ch);
    }
}

bool isNameStart(char ch)
{
    return ascii::isLetter(ch) || ch == '_';
}

bool isNameCharacter(char ch)
{
    return isNameStart(ch) || ascii::isDigit(ch);
}

bool applyModifier(char letter, Modifiers& modifiers)
{
    switch (letter) {
    case 'c':
        modifiers.caseInsensitive = true;
        return true;
    case 'd':
        modifiers.diacriticInsensitive = true;
        return true;
    case 'w':
    case 't':
        modifiers.wordBased = true;
        return true;
    case 's':
        return true;
    default:
        return false;
    }
}

constexpr const char* kModifierLetters = "a modifier (c, d, w, t or s)";

// Appends the escaped character at `offset` (just after a backslash) to the
// value's text and pattern, and returns the offset after it.
std::size_t appendEscaped(std::string_view query, std::size_t offset, Value& value)
{
    const std::size_t end = text::nextCodePointOffset(query, offset);
    const std::string_view character = query.substr(offset, end - offset);
    value.text += character;
    if (character == "*" || character == "?" || character == "\\") {
        value.pattern.push_back('\\');
    }
    value.pattern += character;
    return end;
}

}  // namespace

Lexer::Lexer(std::string_view query)
    : m_query(query)
{
}

Token Lexer::next(Mode mode)
{
    return mode == Mode::Expression ? readExpressionToken() : readValueToken();
}

Token Lexer::peek(Mode mode)
{
    const std::size_t saved = m_offset;
    Token token = next(mode);
    m_offset = saved;
    return token;
}

std::size_t Lexer::position(std::size_t byteOffset) const
{
    // Positions are mostly asked for in increasing order; counting on from
    // the last answer keeps long queries linear.
    if (byteOffset < m_countedOffset) {
        m_countedOffset = 0;
        m_countedCharacters = 0;
    }
    while (m_countedOffset < byteOffset && m_countedOffset < m_query.size()) {
        text::decodeUtf8(m_query, m_countedOffset);
        ++m_countedCharacters;
    }
    return m_countedCharacters + 1;
}

void Lexer::skipBlanks()
{
    while (m_offset < m_query.size() && ascii::isBlank(m_query[m_offset])) {
        ++m_offset;
    }
}

Token Lexer::invalid(std::size_t start, std::size_t errorOffset, std::string expected) const
{
    Token token;
    token.kind = TokenKind::Invalid;
    token.offset = start;
    token.length = start < m_query.size() ? text::nextCodePointOffset(m_query, start) - start : 0;
    token.spelling = m_query.substr(start, token.length);
    token.expected = std::move(expected);
    token.errorOffset = errorOffset;
    return token;
}

std::optional<std::size_t> Lexer::readModifierLetters(Modifiers& modifiers)
{
    while (m_offset < m_query.size() && ascii::isLetter(m_query[m_offset])) {
        if (!applyModifier(m_query[m_offset], modifiers)) {
            return m_offset;
        }
        ++m_offset;
    }
    return std::nullopt;
}

Token Lexer::readExpressionToken()
{
    skipBlanks();
    Token token;
    token.offset = m_offset;
    if (m_offset >= m_query.size()) {
        token.kind = TokenKind::End;
        return token;
    }
    const std::size_t start = m_offset;
    const char ch = m_query[start];
    const char following = start + 1 < m_query.size() ? m_query[start + 1] : '\0';
    std::size_t length = 1;
    switch (ch) {
    case '(':
        token.kind = TokenKind::LeftParen;
        break;
    case ')':
        token.kind = TokenKind::RightParen;
        break;
    case ',':
        token.kind = TokenKind::Comma;
        break;
    case '&':
        if (following != '&') {
            return invalid(start, start, "\"&&\"");
        }
        token.kind = TokenKind::And;
        length = 2;
        break;
    case '|':
        if (following != '|') {
            return invalid(start, start, "\"||\"");
        }
        token.kind = TokenKind::Or;
        length = 2;
        break;
    case '!':
        if (following == '=') {
            token.kind = TokenKind::Operator;
            token.comparison = Comparison::NotEqual;
            length = 2;
        } else {
            token.kind = TokenKind::Not;
        }
        break;
    case '=':
        token.kind = TokenKind::Operator;
        token.comparison = Comparison::Equal;
        length = following == '=' ? 2 : 1;
        break;
    case '<':
        token.kind = TokenKind::Operator;
        token.comparison = following == '=' ? Comparison::LessOrEqual : Comparison::Less;
        length = following == '=' ? 2 : 1;
        break;
    case '>':
        token.kind = TokenKind::Operator;
        token.comparison = following == '=' ? Comparison::GreaterOrEqual : Comparison::Greater;
        length = following == '=' ? 2 : 1;
        break;
    case '*':
        token.kind = following == '*' ? TokenKind::DoubleStar : TokenKind::Star;
        length = following == '*' ? 2 : 1;
        break;
    default:
        if (!isNameStart(ch)) {
            return invalid(start, start, {});
        }
        token.kind = TokenKind::Name;
        while (start + length < m_query.size() && isNameCharacter(m_query[start + length])) {
            ++length;
        }
        break;
    }
    m_offset = start + length;
    token.length = length;
    token.spelling = m_query.substr(start, length);
    if (token.kind == TokenKind::Operator) {
        // Modifiers in brackets after the operator: ==[cd].
        const std::size_t afterOperator = m_offset;
        skipBlanks();
        if (m_offset < m_query.size() && m_query[m_offset] == '[') {
            ++m_offset;
            if (const auto bad = readModifierLetters(token.modifiers)) {
                return invalid(start, *bad, kModifierLetters);
            }
            if (m_offset >= m_query.size() || m_query[m_offset] != ']') {
                return invalid(start, m_offset, std::string("\"]\" or ") + kModifierLetters);
            }
            ++m_offset;
            token.length = m_offset - start;
            token.spelling = m_query.substr(start, token.length);
        } else {
            m_offset = afterOperator;
        }
    }
    return token;
}

Token Lexer::readValueToken()
{
    skipBlanks();
    const std::size_t start = m_offset;
    if (start >= m_query.size()) {
        Token token;
        token.kind = TokenKind::End;
        token.offset = start;
        return token;
    }
    const char ch = m_query[start];
    if (ch == '"' || ch == '\'') {
        return readQuoted(start);
    }
    if (startsWithTimeValue(m_query.substr(start))) {
        return readTime(start);
    }
    if (const std::size_t length = scanNumber(m_query.substr(start));
        length > 0 && (start + length == m_query.size() || isDelimiter(m_query[start + length]))) {
        const std::string_view spelling = m_query.substr(start, length);
        if (const auto number = parseNumber(spelling)) {
            Token token;
            token.kind = TokenKind::Value;
            token.offset = start;
            token.length = length;
            token.spelling = spelling;
            token.value.kind = Value::Kind::Number;
            token.value.number = *number;
            token.value.text = std::string(spelling);
            token.value.position = position(start);
            m_offset = start + length;
            return token;
        }
    }
    if (isDelimiter(ch)) {
        return invalid(start, start, {});
    }
    return readBare(start);
}

Token Lexer::readQuoted(std::size_t start)
{
    const char quote = m_query[start];
    const std::string unterminated = std::string("a closing ") + quote + " to end the text begun at position "
                                     + std::to_string(position(start));
    Token token;
    token.kind = TokenKind::Value;
    token.offset = start;
    Value& value = token.value;
    value.quoted = true;
    value.position = position(start);
    bool escaped = false;
    std::size_t i = start + 1;
    for (;;) {
        if (i >= m_query.size()) {
            return invalid(start, m_query.size(), unterminated);
        }
        const char ch = m_query[i];
        if (ch == quote) {
            break;
        }
        if (ch == '\\') {
            if (i + 1 >= m_query.size()) {
                return invalid(start, m_query.size(), unterminated);
            }
            i = appendEscaped(m_query, i + 1, value);
            escaped = true;
            continue;
        }
        value.text.push_back(ch);
        value.pattern.push_back(ch);
        ++i;
    }
    const std::size_t contentStart = start + 1;
    m_offset = i + 1;
    if (const auto bad = readModifierLetters(value.modifiers)) {
        return invalid(start, *bad, kModifierLetters);
    }
    token.length = m_offset - start;
    token.spelling = m_query.substr(start, token.length);

    // Only an unescaped "$time." starts a time value: '\$time.x' is text.
    if (startsWithTimeValue(m_query.substr(contentStart, i - contentStart))) {
        // A $time value inside quotes, as Trovara's documents write them.
        // Offsets inside the text match the query's only without escapes.
        const auto where = [&](std::size_t offset) { return escaped ? start : contentStart + offset; };
        std::size_t consumed = 0;
        auto time = parseTimeValue(value.text, consumed);
        if (!time) {
            return invalid(start, where(time.error().offset), time.error().expected);
        }
        if (consumed != value.text.size()) {
            return invalid(start, where(consumed), std::string("the closing ") + quote + " after the time value");
        }
        value.kind = Value::Kind::Time;
        value.time = time.value();
    }
    return token;
}

Token Lexer::readBare(std::size_t start)
{
    Token token;
    token.kind = TokenKind::Value;
    token.offset = start;
    Value& value = token.value;
    value.position = position(start);
    bool escaped = false;
    std::size_t i = start;
    while (i < m_query.size() && !isDelimiter(m_query[i])) {
        if (m_query[i] == '\\') {
            if (i + 1 >= m_query.size()) {
                return invalid(start, i + 1, "a character after \"\\\"");
            }
            i = appendEscaped(m_query, i + 1, value);
            escaped = true;
            continue;
        }
        value.text.push_back(m_query[i]);
        value.pattern.push_back(m_query[i]);
        ++i;
    }
    m_offset = i;
    token.length = i - start;
    token.spelling = m_query.substr(start, token.length);
    if (!escaped) {
        const std::string_view word = token.spelling;
        if (ascii::equalsIgnoringCase(word, "null") || ascii::equalsIgnoringCase(word, "nil")) {
            value.kind = Value::Kind::Null;
            return token;
        }
        if (ascii::equalsIgnoringCase(word, "true") || ascii::equalsIgnoringCase(word, "false")) {
            value.kind = Value::Kind::Boolean;
            value.number = ascii::equalsIgnoringCase(word, "true") ? 1 : 0;
            return token;
        }
    }
    // Modifiers after a bare value stand as the next word: paris cd.
    const std::size_t afterValue = m_offset;
    skipBlanks();
    if (m_offset > afterValue) {
        Modifiers modifiers = value.modifiers;
        const std::size_t wordStart = m_offset;
        const bool allModifiers = !readModifierLetters(modifiers).has_value();
        if (allModifiers && m_offset > wordStart
            && (m_offset == m_query.size() || isDelimiter(m_query[m_offset]))) {
            value.modifiers = modifiers;
            return token;
        }
    }
    m_offset = afterValue;
    return token;
}

Token Lexer::readTime(std::size_t start)
{
    std::size_t consumed = 0;
    auto time = parseTimeValue(m_query.substr(start), consumed);
    if (!time) {
        return invalid(start, start + time.error().offset, time.error().expected);
    }
    Token token;
    token.kind = TokenKind::Value;
    token.offset = start;
    token.length = consumed;
    token.spelling = m_query.substr(start, consumed);
    token.value.kind = Value::Kind::Time;
    token.value.time = time.value();
    token.value.text = std::string(token.spelling);
    token.value.position = position(start);
    m_offset = start + consumed;
    return token;
}

}  // namespace trovara::index::query
