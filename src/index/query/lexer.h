// The tokens of Trovara's query language.
//
// The language's tokens depend on where they stand: "*" is the any-text
// attribute before an operator and a wildcard after it, "report" is an
// attribute name before an operator and a bare text after it. So the parser
// tells the lexer which of the two it expects: Mode::Expression (names,
// operators, parentheses …) or Mode::Value (what follows an operator).
//
// A Lexer reads from a view of the query text, which must outlive it.
// Positions in tokens are byte offsets; position() turns them into the
// 1-based character positions that error messages use.
#pragma once

#include "index/query/ast.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace trovara::index::query {

enum class TokenKind : std::uint8_t {
    End,
    LeftParen,
    RightParen,
    Comma,
    And,         // &&
    Or,          // ||
    Not,         // !
    Operator,    // ==, =, !=, <, >, <=, >=, with any [mods] after it
    Name,        // an attribute name or a keyword (InRange, true, false)
    Star,        // *
    DoubleStar,  // **
    Value,       // anything read in Mode::Value
    Invalid,     // a character or construct that is no token; see `expected`
};

struct Token {
    TokenKind kind = TokenKind::End;
    std::size_t offset = 0;  // byte offset of the token's first character
    std::size_t length = 0;  // bytes
    Comparison comparison = Comparison::Equal;  // Operator
    Modifiers modifiers;                        // Operator: the bracketed modifiers
    std::string_view spelling;                  // the token's text in the query
    Value value;                                // Value
    // Invalid: what the lexer expected, and where (which may lie inside the
    // token, for a bad modifier or a bad $time argument). Empty when the
    // character simply starts no token; the parser then says what it wanted.
    std::string expected;
    std::size_t errorOffset = 0;
};

class Lexer {
public:
    enum class Mode { Expression, Value };

    explicit Lexer(std::string_view query);

    // Reads the next token and moves past it.
    Token next(Mode mode);
    // The next token, without moving.
    Token peek(Mode mode);

    // The 1-based character position of a byte offset.
    std::size_t position(std::size_t byteOffset) const;

private:
    Token readExpressionToken();
    Token readValueToken();
    Token readQuoted(std::size_t start);
    Token readBare(std::size_t start);
    Token readTime(std::size_t start);
    Token invalid(std::size_t start, std::size_t errorOffset, std::string expected) const;
    // Reads modifier letters directly at m_offset into `modifiers`; on an
    // unknown letter returns its offset.
    std::optional<std::size_t> readModifierLetters(Modifiers& modifiers);
    void skipBlanks();

    std::string_view m_query;
    std::size_t m_offset = 0;
    // position(): characters counted up to a byte offset, reused by the
    // next call.
    mutable std::size_t m_countedOffset = 0;
    mutable std::size_t m_countedCharacters = 0;
};

}  // namespace trovara::index::query
