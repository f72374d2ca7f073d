#include "index/query/parser.h"

#include "index/query/ascii.h"
#include "index/query/lexer.h"
#include "index/query/number_text.h"
#include "index/query/typed_value.h"

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
    Parser(std::string_view text, const Schema& schema)
        : m_lexer(text)
        , m_schema(schema)
    {
    }

    Expected<Query> parse()
    {
        std::optional<Node> root = parseOr("");
        if (!m_error) {
            const Token token = m_lexer.next(Mode::Expression);
            if (token.kind != TokenKind::End) {
                fail(token, "\"&&\", \"||\" or the end of the query");
            }
        }
        if (m_error) {
            return Failure{Failure::Kind::InvalidQuery, *m_error};
        }
        // A query of nothing but empty groups asks for nothing: every item.
        return Query{root ? std::move(*root) : Node{}};
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

    // The parse functions answer none for an empty group, "()": it says
    // nothing, like an empty criterion, so the group around it leaves it
    // out and "!" of it is empty too. `after` names what came before, for
    // the message when no expression follows ("" at the start).
    std::optional<Node> parseOr(const std::string& after)
    {
        return parseJoined(after, TokenKind::Or, Node::Kind::Or, "\"||\"");
    }

    std::optional<Node> parseAnd(const std::string& after)
    {
        return parseJoined(after, TokenKind::And, Node::Kind::And, "\"&&\"");
    }

    std::optional<Node> parseJoined(const std::string& after, TokenKind joiner, Node::Kind kind,
                                    const std::string& joinerText)
    {
        Node node;
        node.kind = kind;
        const auto operand = [&](const std::string& before) {
            std::optional<Node> child = kind == Node::Kind::Or ? parseAnd(before) : parseUnary(before);
            if (child) {
                node.children.push_back(std::move(*child));
            }
        };
        operand(after);
        while (!m_error && m_lexer.peek(Mode::Expression).kind == joiner) {
            m_lexer.next(Mode::Expression);
            operand(joinerText);
        }
        if (node.children.size() <= 1) {
            return node.children.empty() ? std::nullopt : std::optional<Node>(std::move(node.children.front()));
        }
        return node;
    }

    std::optional<Node> parseUnary(const std::string& after)
    {
        const Token token = m_lexer.peek(Mode::Expression);
        if (token.kind != TokenKind::Not) {
            return parsePrimary(after);
        }
        m_lexer.next(Mode::Expression);
        if (!enter(token)) {
            return std::nullopt;
        }
        std::optional<Node> operand = parseUnary("\"!\"");
        --m_depth;
        if (!operand) {
            return std::nullopt;
        }
        Node node;
        node.kind = Node::Kind::Not;
        node.children.push_back(std::move(*operand));
        return node;
    }

    std::optional<Node> parsePrimary(const std::string& after)
    {
        const std::string expected = after.empty() ? "an expression" : "an expression after " + after;
        const Token token = m_lexer.next(Mode::Expression);
        switch (token.kind) {
        case TokenKind::LeftParen: {
            if (!enter(token)) {
                return std::nullopt;
            }
            std::optional<Node> inner;
            if (m_lexer.peek(Mode::Expression).kind == TokenKind::RightParen) {
                m_lexer.next(Mode::Expression);  // "()"
            } else {
                inner = parseOr("\"(\"");
                if (m_error) {
                    return inner;
                }
                const Token close = m_lexer.next(Mode::Expression);
                if (close.kind != TokenKind::RightParen) {
                    fail(close,
                         "\")\" to close the \"(\" at position " + std::to_string(m_lexer.position(token.offset)));
                }
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
            return std::nullopt;
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
        const bool equality = op.comparison == Comparison::Equal || op.comparison == Comparison::NotEqual;
        if (!checkType(node.attribute, *value, equality)) {
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
            if (!checkType(node.attribute, *value, false)) {
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

    // A text compared with a number, date or Boolean attribute must read as
    // one: "0x10", "NaN" or "1e999" for a size would silently match nothing.
    // == "*" (presence) is the exception. Attributes the schema does not
    // know compare as text and take anything.
    bool checkType(const AttributeRef& attribute, const Value& value, bool equality)
    {
        if (attribute.kind != AttributeRef::Kind::Named || value.kind != Value::Kind::Text) {
            return true;
        }
        const AttributeInfo* info = m_schema.find(attribute.name);
        if (!info || info->type == ValueType::String || textAsNumber(value.text, info->type)) {
            return true;
        }
        if (equality && !value.pattern.empty() && value.pattern.find_first_not_of('*') == std::string::npos) {
            return true;
        }
        std::string_view text = value.text;
        while (!text.empty() && ascii::isBlank(text.front())) {
            text.remove_prefix(1);
        }
        while (!text.empty() && ascii::isBlank(text.back())) {
            text.remove_suffix(1);
        }
        const bool tooLarge = !text.empty() && scanNumber(text) == text.size();
        failAtPosition(value.position, (tooLarge ? std::string("a number within a double's range (about ±1.8e308)")
                                                 : valueFormsOf(info->type))
                                           + " for " + attribute.name + ", found " + quoted(value.text));
        return false;
    }

    Lexer m_lexer;
    const Schema& m_schema;
    std::size_t m_depth = 0;
    std::optional<std::string> m_error;
};

}  // namespace

Expected<Query> parseQuery(std::string_view text, const Schema& schema)
{
    return Parser(text, schema).parse();
}

}  // namespace trovara::index::query
