#include "index/query/parser.h"

#include "index/query/ascii.h"
#include "index/query/lexer.h"

#include <optional>
#include <string>

namespace trovara::index::query {

namespace {

using Mode = Lexer::Mode;

std::string quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

// How a token is named in "expected X, found Y".
std::string describe(const Token& token)
{
    switch (token.kind) {
    case TokenKind::End:
        return "the end of the query";
    case TokenKind::Invalid:
        if (token.spelling == "\"" || token.spelling == "'") {
            return "a quoted text";
        }
        return quoted(token.spelling);
    default:
        return quoted(token.spelling);
    }
}

class Parser {
public:
    explicit Parser(std::string_view text)
        : m_lexer(text)
    {
    }

    Expected<Query> parse()
    {
        Node root = parseOr("");
        if (!m_error) {
            const Token token = m_lexer.next(Mode::Expression);
            if (token.kind != TokenKind::End) {
                fail(token, "\"&&\", \"||\" or the end of the query");
            }
        }
        if (m_error) {
            return Failure{Failure::Kind::InvalidQuery, *m_error};
        }
        return Query{std::move(root)};
    }

private:
    // Records the first error only; later ones follow from it.
    void failAtPosition(std::size_t position, const std::string& expected)
    {
        if (!m_error) {
            m_error = "position " + std::to_string(position) + ": expected " + expected;
        }
    }

    void failAt(std::size_t byteOffset, const std::string& expected)
    {
        failAtPosition(m_lexer.position(byteOffset), expected);
    }

    // An error at a token: the lexer's own when it has one, else what the
    // parser wanted there and what it found.
    void fail(const Token& token, const std::string& expected)
    {
        if (token.kind == TokenKind::Invalid && !token.expected.empty()) {
            failAt(token.errorOffset, token.expected);
        } else if (token.kind == TokenKind::End) {
            failAt(token.offset, expected);
        } else {
            failAt(token.offset, expected + ", found " + describe(token));
        }
    }

    bool enter(const Token& token)
    {
        if (++m_depth > kMaxQueryDepth) {
            failAt(token.offset, "at most " + std::to_string(kMaxQueryDepth) + " levels of nesting");
            return false;
        }
        return true;
    }

    // `after` names what came before, for the message when no expression
    // follows ("" at the start of the query).
    Node parseOr(const std::string& after)
    {
        Node first = parseAnd(after);
        if (m_error || m_lexer.peek(Mode::Expression).kind != TokenKind::Or) {
            return first;
        }
        Node node;
        node.kind = Node::Kind::Or;
        node.children.push_back(std::move(first));
        while (!m_error && m_lexer.peek(Mode::Expression).kind == TokenKind::Or) {
            m_lexer.next(Mode::Expression);
            node.children.push_back(parseAnd("\"||\""));
        }
        return node;
    }

    Node parseAnd(const std::string& after)
    {
        Node first = parseUnary(after);
        if (m_error || m_lexer.peek(Mode::Expression).kind != TokenKind::And) {
            return first;
        }
        Node node;
        node.kind = Node::Kind::And;
        node.children.push_back(std::move(first));
        while (!m_error && m_lexer.peek(Mode::Expression).kind == TokenKind::And) {
            m_lexer.next(Mode::Expression);
            node.children.push_back(parseUnary("\"&&\""));
        }
        return node;
    }

    Node parseUnary(const std::string& after)
    {
        const Token token = m_lexer.peek(Mode::Expression);
        if (token.kind != TokenKind::Not) {
            return parsePrimary(after);
        }
        m_lexer.next(Mode::Expression);
        Node node;
        node.kind = Node::Kind::Not;
        if (!enter(token)) {
            return node;
        }
        node.children.push_back(parseUnary("\"!\""));
        --m_depth;
        return node;
    }

    Node parsePrimary(const std::string& after)
    {
        const std::string expected = after.empty() ? "an expression" : "an expression after " + after;
        const Token token = m_lexer.next(Mode::Expression);
        switch (token.kind) {
        case TokenKind::LeftParen: {
            if (!enter(token)) {
                return {};
            }
            Node inner = parseOr("\"(\"");
            if (m_error) {
                return inner;
            }
            const Token close = m_lexer.next(Mode::Expression);
            if (close.kind != TokenKind::RightParen) {
                fail(close, "\")\" to close the \"(\" at position " + std::to_string(m_lexer.position(token.offset)));
            }
            --m_depth;
            return inner;
        }
        case TokenKind::Star:
        case TokenKind::DoubleStar:
            return parseComparison(attributeOf(token), token);
        case TokenKind::Name: {
            const Token following = m_lexer.peek(Mode::Expression);
            if (following.kind == TokenKind::LeftParen && ascii::equalsIgnoringCase(token.spelling, "inrange")) {
                return parseInRange(token);
            }
            const bool isTrue = ascii::equalsIgnoringCase(token.spelling, "true");
            if ((isTrue || ascii::equalsIgnoringCase(token.spelling, "false")) && following.kind != TokenKind::Operator) {
                Node node;
                node.kind = isTrue ? Node::Kind::True : Node::Kind::False;
                return node;
            }
            return parseComparison(attributeOf(token), token);
        }
        default:
            fail(token, expected);
            return {};
        }
    }

    static AttributeRef attributeOf(const Token& token)
    {
        AttributeRef attribute;
        if (token.kind == TokenKind::Star) {
            attribute.kind = AttributeRef::Kind::AnyText;
        } else if (token.kind == TokenKind::DoubleStar) {
            attribute.kind = AttributeRef::Kind::AnyTextOrContent;
        } else {
            attribute.name = std::string(token.spelling);
        }
        return attribute;
    }

    Node parseComparison(AttributeRef attribute, const Token& attributeToken)
    {
        Node node;
        node.kind = Node::Kind::Compare;
        node.attribute = std::move(attribute);
        const Token op = m_lexer.next(Mode::Expression);
        if (op.kind != TokenKind::Operator) {
            fail(op, "a comparison operator (==, !=, <, >, <=, >=) after " + quoted(attributeToken.spelling));
            return node;
        }
        node.comparison = op.comparison;
        auto value = parseValue(quoted(op.spelling));
        if (!value) {
            return node;
        }
        if (value->kind == Value::Kind::Null && op.comparison != Comparison::Equal
            && op.comparison != Comparison::NotEqual) {
            failAt(op.offset, "\"==\" or \"!=\" before null, found " + quoted(op.spelling));
            return node;
        }
        value->modifiers.caseInsensitive |= op.modifiers.caseInsensitive;
        value->modifiers.diacriticInsensitive |= op.modifiers.diacriticInsensitive;
        value->modifiers.wordBased |= op.modifiers.wordBased;
        node.values.push_back(std::move(*value));
        return node;
    }

    std::optional<Value> parseValue(const std::string& after)
    {
        const Token token = m_lexer.next(Mode::Value);
        if (token.kind != TokenKind::Value) {
            fail(token, "a value after " + after);
            return std::nullopt;
        }
        return token.value;
    }

    Node parseInRange(const Token& keyword)
    {
        Node node;
        node.kind = Node::Kind::InRange;
        m_lexer.next(Mode::Expression);  // the "("
        const Token attribute = m_lexer.next(Mode::Expression);
        if (attribute.kind != TokenKind::Name && attribute.kind != TokenKind::Star
            && attribute.kind != TokenKind::DoubleStar) {
            fail(attribute, "an attribute name after \"" + std::string(keyword.spelling) + "(\"");
            return node;
        }
        node.attribute = attributeOf(attribute);
        for (const char* bound : {"lower", "upper"}) {
            const Token comma = m_lexer.next(Mode::Expression);
            if (comma.kind != TokenKind::Comma) {
                fail(comma, std::string("\",\" before the ") + bound + " bound");
                return node;
            }
            auto value = parseValue(std::string("\",\""));
            if (!value) {
                return node;
            }
            if (value->kind == Value::Kind::Null) {
                failAtPosition(value->position,
                               "a value other than null as the " + std::string(bound) + " bound of InRange");
                return node;
            }
            node.values.push_back(std::move(*value));
        }
        const Token close = m_lexer.next(Mode::Expression);
        if (close.kind != TokenKind::RightParen) {
            fail(close, "\")\" to close \"" + std::string(keyword.spelling) + "(\"");
        }
        return node;
    }

    Lexer m_lexer;
    std::size_t m_depth = 0;
    std::optional<std::string> m_error;
};

}  // namespace

Expected<Query> parseQuery(std::string_view text)
{
    return Parser(text).parse();
}

}  // namespace trovara::index::query
