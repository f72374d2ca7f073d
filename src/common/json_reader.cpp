#include "common/json_reader.h"

#include <charconv>
#include <cmath>

namespace trovara::json {

const Value* Value::member(const QString& key) const
{
    for (const auto& [name, value] : object) {
        if (name == key) {
            return &value;
        }
    }
    return nullptr;
}

QString Value::typeName() const
{
    switch (type) {
    case Type::Null:
        return QStringLiteral("null");
    case Type::Boolean:
        return QStringLiteral("a Boolean");
    case Type::Number:
        return QStringLiteral("a number");
    case Type::String:
        return QStringLiteral("a text");
    case Type::Array:
        return QStringLiteral("a list");
    case Type::Object:
        return QStringLiteral("an object");
    }
    return {};
}

namespace {

// Deep enough for any sensible input, shallow enough for the stack.
constexpr int kMaxDepth = 512;

class Parser {
public:
    explicit Parser(const QByteArray& text)
        : m_text(text)
    {
    }

    Result<Value> parseDocument()
    {
        skipSpace();
        Value value;
        if (!parseValue(value, 0)) {
            return failure();
        }
        skipSpace();
        if (m_pos < m_text.size()) {
            fail("end of input after the value");
            return failure();
        }
        return value;
    }

private:
    Error failure() const
    {
        return Error::make(Error::kFileReadCorruptError, QStringLiteral("Malformed JSON"),
                           QStringLiteral("line %1, column %2: expected %3")
                               .arg(m_errorLine)
                               .arg(m_errorColumn)
                               .arg(m_expected));
    }

    void fail(const char* expected)
    {
        if (m_expected.isEmpty()) {
            m_expected = QString::fromUtf8(expected);
            if (atEnd()) {
                m_expected += QStringLiteral(" (the input ends here)");
            }
            m_errorLine = m_line;
            m_errorColumn = m_column;
        }
    }

    bool atEnd() const { return m_pos >= m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_pos]; }

    // Keeps the line and column of m_pos as it goes, so that every value
    // learns where it stands at no cost (a long line stays linear).
    void advance()
    {
        if (peek() == '\n') {
            ++m_line;
            m_column = 1;
        } else if ((static_cast<unsigned char>(peek()) & 0xC0) != 0x80) {
            ++m_column;  // columns count characters: continuation bytes add none
        }
        ++m_pos;
    }

    void skipSpace()
    {
        while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')) {
            advance();
        }
    }

    bool literal(const char* word)
    {
        const qsizetype start = m_pos;
        const int startColumn = m_column;
        for (const char* p = word; *p; ++p) {
            if (peek() != *p) {
                m_pos = start;
                m_column = startColumn;
                return false;
            }
            advance();
        }
        return true;
    }

    bool parseValue(Value& value, int depth)
    {
        value.line = m_line;
        value.column = m_column;
        if (depth > kMaxDepth) {
            fail("less deeply nested input");
            return false;
        }
        switch (peek()) {
        case '{':
            return parseObject(value, depth);
        case '[':
            return parseArray(value, depth);
        case '"':
            value.type = Value::Type::String;
            return parseString(value.string);
        case 't':
            if (literal("true")) {
                value.type = Value::Type::Boolean;
                value.boolean = true;
                return true;
            }
            break;
        case 'f':
            if (literal("false")) {
                value.type = Value::Type::Boolean;
                return true;
            }
            break;
        case 'n':
            if (literal("null")) {
                return true;
            }
            break;
        default:
            if (peek() == '-' || (peek() >= '0' && peek() <= '9')) {
                return parseNumber(value);
            }
            break;
        }
        fail("a value");
        return false;
    }

    bool parseObject(Value& value, int depth)
    {
        value.type = Value::Type::Object;
        advance();
        skipSpace();
        if (peek() == '}') {
            advance();
            return true;
        }
        while (true) {
            skipSpace();
            if (peek() != '"') {
                fail("a field name in double quotes");
                return false;
            }
            QString key;
            if (!parseString(key)) {
                return false;
            }
            skipSpace();
            if (peek() != ':') {
                fail("\":\" after the field name");
                return false;
            }
            advance();
            skipSpace();
            Value member;
            if (!parseValue(member, depth + 1)) {
                return false;
            }
            value.object.emplace_back(std::move(key), std::move(member));
            skipSpace();
            if (peek() == ',') {
                advance();
                continue;
            }
            if (peek() == '}') {
                advance();
                return true;
            }
            fail("\",\" or \"}\"");
            return false;
        }
    }

    bool parseArray(Value& value, int depth)
    {
        value.type = Value::Type::Array;
        advance();
        skipSpace();
        if (peek() == ']') {
            advance();
            return true;
        }
        while (true) {
            skipSpace();
            Value element;
            if (!parseValue(element, depth + 1)) {
                return false;
            }
            value.array.push_back(std::move(element));
            skipSpace();
            if (peek() == ',') {
                advance();
                continue;
            }
            if (peek() == ']') {
                advance();
                return true;
            }
            fail("\",\" or \"]\"");
            return false;
        }
    }

    bool parseHex4(unsigned* out)
    {
        unsigned code = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = peek();
            code <<= 4;
            if (c >= '0' && c <= '9') {
                code |= static_cast<unsigned>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                code |= static_cast<unsigned>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                code |= static_cast<unsigned>(c - 'A' + 10);
            } else {
                fail("four hexadecimal digits after \\u");
                return false;
            }
            advance();
        }
        *out = code;
        return true;
    }

    bool parseString(QString& out)
    {
        advance();  // the opening quote
        QByteArray bytes;
        while (true) {
            if (atEnd()) {
                fail("a closing double quote");
                return false;
            }
            const char c = peek();
            if (c == '"') {
                advance();
                break;
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                fail("no control character inside a text (write it as an escape)");
                return false;
            }
            if (c != '\\') {
                bytes.append(c);
                advance();
                continue;
            }
            advance();
            const char escape = peek();
            advance();
            switch (escape) {
            case '"':
            case '\\':
            case '/':
                bytes.append(escape);
                break;
            case 'b':
                bytes.append('\b');
                break;
            case 'f':
                bytes.append('\f');
                break;
            case 'n':
                bytes.append('\n');
                break;
            case 'r':
                bytes.append('\r');
                break;
            case 't':
                bytes.append('\t');
                break;
            case 'u': {
                unsigned code = 0;
                if (!parseHex4(&code)) {
                    return false;
                }
                char32_t point = code;
                if (code >= 0xD800 && code <= 0xDBFF) {
                    unsigned low = 0;
                    if (!literal("\\u") || !parseHex4(&low) || low < 0xDC00 || low > 0xDFFF) {
                        fail("the second half of a surrogate pair");
                        return false;
                    }
                    point = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                } else if (code >= 0xDC00 && code <= 0xDFFF) {
                    fail("a first half of a surrogate pair before the second");
                    return false;
                }
                bytes.append(QString::fromUcs4(&point, 1).toUtf8());
                break;
            }
            default:
                fail("a valid escape (\\\" \\\\ \\/ \\b \\f \\n \\r \\t \\uXXXX)");
                return false;
            }
        }
        out = QString::fromUtf8(bytes);
        if (out.toUtf8() != bytes) {
            fail("text in UTF-8");
            return false;
        }
        return true;
    }

    bool parseNumber(Value& value)
    {
        const qsizetype start = m_pos;
        bool integral = true;
        if (peek() == '-') {
            advance();
        }
        if (peek() == '0') {
            advance();
        } else if (peek() >= '1' && peek() <= '9') {
            while (peek() >= '0' && peek() <= '9') {
                advance();
            }
        } else {
            fail("a digit");
            return false;
        }
        if (peek() == '.') {
            integral = false;
            advance();
            if (!(peek() >= '0' && peek() <= '9')) {
                fail("a digit after the decimal point");
                return false;
            }
            while (peek() >= '0' && peek() <= '9') {
                advance();
            }
        }
        if (peek() == 'e' || peek() == 'E') {
            integral = false;
            advance();
            if (peek() == '+' || peek() == '-') {
                advance();
            }
            if (!(peek() >= '0' && peek() <= '9')) {
                fail("a digit in the exponent");
                return false;
            }
            while (peek() >= '0' && peek() <= '9') {
                advance();
            }
        }
        const char* first = m_text.constData() + start;
        const char* last = m_text.constData() + m_pos;
        value.type = Value::Type::Number;
        const auto parsed = std::from_chars(first, last, value.number);
        if (parsed.ec != std::errc() || !std::isfinite(value.number)) {
            fail("a number of a representable size");
            return false;
        }
        if (integral) {
            const auto result = std::from_chars(first, last, value.integer);
            value.isInteger = result.ec == std::errc() && result.ptr == last;
        }
        return true;
    }

    const QByteArray& m_text;
    qsizetype m_pos = 0;
    int m_line = 1;
    int m_column = 1;
    QString m_expected;
    int m_errorLine = 1;
    int m_errorColumn = 1;
};

}  // namespace

Result<Value> parse(const QByteArray& text)
{
    return Parser(text).parseDocument();
}

}  // namespace trovara::json
