#include "store/predicate.h"

#include "common/variant_kind.h"
#include "store/entity_description.h"
#include "store/managed_object.h"

#include <QDateTime>

namespace trovara::store {

namespace {

enum class Op { Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual };

struct Operand {
    enum class Kind { KeyPath, Constant, Self } kind = Kind::Constant;
    QString keyPath;
    QVariant value;
};

enum class ValueKind { None, Object, Number, Text, Date, Bytes, List, Other };

ValueKind kindOf(const QVariant& value)
{
    if (!value.isValid()) {
        return ValueKind::None;
    }
    if (isNumericVariant(value)) {
        return ValueKind::Number;
    }
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return ValueKind::Text;
    case QMetaType::QDateTime:
        return value.toDateTime().isValid() ? ValueKind::Date : ValueKind::None;
    case QMetaType::QByteArray:
        return ValueKind::Bytes;
    case QMetaType::QVariantList:
        return ValueKind::List;
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<ManagedObject*>()) {
        return value.value<ManagedObject*>() ? ValueKind::Object : ValueKind::None;
    }
    return ValueKind::Other;
}


int compareNumbers(const QVariant& a, const QVariant& b)
{
    if (!isFloatingVariant(a) && !isFloatingVariant(b)) {
        const qint64 x = a.toLongLong();
        const qint64 y = b.toLongLong();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    const double x = a.toDouble();
    const double y = b.toDouble();
    return x < y ? -1 : (x > y ? 1 : 0);
}

// Compares values of the same kind; `comparable` is false when they are not.
int compareSameKind(const QVariant& a, const QVariant& b, bool* comparable)
{
    const ValueKind kind = kindOf(a);
    *comparable = kind == kindOf(b);
    if (!*comparable) {
        return 0;
    }
    switch (kind) {
    case ValueKind::None:
        return 0;
    case ValueKind::Number:
        return compareNumbers(a, b);
    case ValueKind::Text: {
        const int c = a.toString().compare(b.toString());
        return c < 0 ? -1 : (c > 0 ? 1 : 0);
    }
    case ValueKind::Date: {
        const qint64 x = a.toDateTime().toMSecsSinceEpoch();
        const qint64 y = b.toDateTime().toMSecsSinceEpoch();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    case ValueKind::Bytes: {
        const int c = a.toByteArray().compare(b.toByteArray());
        return c < 0 ? -1 : (c > 0 ? 1 : 0);
    }
    case ValueKind::Object: {
        const qint64 x = a.value<ManagedObject*>()->objectId();
        const qint64 y = b.value<ManagedObject*>()->objectId();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    case ValueKind::List:
    case ValueKind::Other:
        *comparable = a == b;
        return 0;
    }
    return 0;
}

bool valuesEqual(const QVariant& a, const QVariant& b)
{
    const ValueKind kind = kindOf(a);
    if (kind != kindOf(b)) {
        return false;
    }
    if (kind == ValueKind::Object) {
        return a.value<ManagedObject*>() == b.value<ManagedObject*>();
    }
    bool comparable = false;
    return compareSameKind(a, b, &comparable) == 0 && comparable;
}

QString opText(Op op)
{
    switch (op) {
    case Op::Equal:
        return QStringLiteral("==");
    case Op::NotEqual:
        return QStringLiteral("!=");
    case Op::Less:
        return QStringLiteral("<");
    case Op::LessEqual:
        return QStringLiteral("<=");
    case Op::Greater:
        return QStringLiteral(">");
    case Op::GreaterEqual:
        return QStringLiteral(">=");
    }
    return {};
}

QString quote(const QString& text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString operandText(const Operand& operand)
{
    switch (operand.kind) {
    case Operand::Kind::KeyPath:
        return operand.keyPath;
    case Operand::Kind::Self:
        return QStringLiteral("SELF");
    case Operand::Kind::Constant:
        break;
    }
    switch (kindOf(operand.value)) {
    case ValueKind::None:
        return QStringLiteral("nil");
    case ValueKind::Object:
        return QStringLiteral("<%1 #%2>")
            .arg(operand.value.value<ManagedObject*>()->entity().name())
            .arg(operand.value.value<ManagedObject*>()->objectId());
    case ValueKind::Text:
        return quote(operand.value.toString());
    case ValueKind::Date:
        return quote(operand.value.toDateTime().toString(Qt::ISODateWithMs));
    default:
        return operand.value.toString();
    }
}

}  // namespace

struct Predicate::Node {
    enum class Kind { True, False, And, Or, Not, Comparison } kind = Kind::True;
    std::vector<std::shared_ptr<const Node>> children;
    Operand lhs;
    Operand rhs;
    Op op = Op::Equal;
};

namespace {

using NodePtr = std::shared_ptr<const Predicate::Node>;

struct Token {
    enum class Type { End, Identifier, Number, String, Placeholder, KeyPlaceholder, Symbol } type = Type::End;
    QString text;
    int position = 0;
};

class Parser {
public:
    Parser(const QString& text, const std::vector<PredicateArgument>& arguments)
        : m_text(text)
        , m_arguments(arguments)
    {
    }

    Result<NodePtr> parse()
    {
        if (Status status = tokenize(); !status) {
            return status.error();
        }
        NodePtr root = parseOr();
        if (!m_error.isEmpty()) {
            return failure(m_error);
        }
        if (peek().type != Token::Type::End) {
            return failure(QStringLiteral("unexpected \"%1\" at position %2").arg(peek().text).arg(peek().position));
        }
        if (m_nextArgument != m_arguments.size()) {
            return failure(QStringLiteral("%1 arguments given for %2 placeholders")
                               .arg(m_arguments.size())
                               .arg(m_nextArgument));
        }
        return root;
    }

private:
    Error failure(const QString& reason) const
    {
        return Error::make(Error::kFetchError, QStringLiteral("Invalid fetch predicate \"%1\"").arg(m_text), reason);
    }

    Status tokenize()
    {
        int i = 0;
        const int n = m_text.size();
        while (i < n) {
            const QChar c = m_text.at(i);
            if (c.isSpace()) {
                ++i;
                continue;
            }
            Token token;
            token.position = i;
            if (c.isLetter() || c == QLatin1Char('_')) {
                int j = i;
                while (j < n && (m_text.at(j).isLetterOrNumber() || m_text.at(j) == QLatin1Char('_')
                                 || m_text.at(j) == QLatin1Char('.'))) {
                    ++j;
                }
                token.type = Token::Type::Identifier;
                token.text = m_text.mid(i, j - i);
                i = j;
            } else if (c.isDigit() || (c == QLatin1Char('-') && i + 1 < n && m_text.at(i + 1).isDigit())) {
                int j = i + 1;
                while (j < n && (m_text.at(j).isDigit() || m_text.at(j) == QLatin1Char('.')
                                 || m_text.at(j) == QLatin1Char('e') || m_text.at(j) == QLatin1Char('E'))) {
                    ++j;
                }
                token.type = Token::Type::Number;
                token.text = m_text.mid(i, j - i);
                i = j;
            } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
                int j = i + 1;
                QString value;
                while (j < n && m_text.at(j) != c) {
                    if (m_text.at(j) == QLatin1Char('\\') && j + 1 < n) {
                        ++j;
                    }
                    value += m_text.at(j++);
                }
                if (j >= n) {
                    return failure(QStringLiteral("unterminated text starting at position %1").arg(i));
                }
                token.type = Token::Type::String;
                token.text = value;
                i = j + 1;
            } else if (c == QLatin1Char('%') && i + 1 < n
                       && (m_text.at(i + 1) == QLatin1Char('@') || m_text.at(i + 1) == QLatin1Char('K'))) {
                token.type = m_text.at(i + 1) == QLatin1Char('@') ? Token::Type::Placeholder
                                                                    : Token::Type::KeyPlaceholder;
                token.text = m_text.mid(i, 2);
                i += 2;
            } else {
                static const char* const symbols[] = {"==", "!=", "<>", "<=", ">=", "&&", "||", "=", "<", ">",
                                                      "!",  "(",  ")"};
                bool matched = false;
                for (const char* symbol : symbols) {
                    const QLatin1String s(symbol);
                    if (QStringView(m_text).mid(i).startsWith(s)) {
                        token.type = Token::Type::Symbol;
                        token.text = s;
                        i += static_cast<int>(s.size());
                        matched = true;
                        break;
                    }
                }
                if (!matched) {
                    return failure(QStringLiteral("unexpected character '%1' at position %2").arg(c).arg(i));
                }
            }
            m_tokens.push_back(token);
        }
        Token end;
        end.position = n;
        m_tokens.push_back(end);
        return {};
    }

    const Token& peek() const { return m_tokens[m_pos]; }
    Token next() { return m_tokens[m_pos < m_tokens.size() - 1 ? m_pos++ : m_pos]; }

    bool acceptSymbol(const char* symbol)
    {
        if (peek().type == Token::Type::Symbol && peek().text == QLatin1String(symbol)) {
            ++m_pos;
            return true;
        }
        return false;
    }

    bool acceptKeyword(const char* keyword)
    {
        if (peek().type == Token::Type::Identifier && peek().text.compare(QLatin1String(keyword), Qt::CaseInsensitive) == 0) {
            ++m_pos;
            return true;
        }
        return false;
    }

    void fail(const QString& reason)
    {
        if (m_error.isEmpty()) {
            m_error = reason;
        }
    }

    NodePtr combine(Predicate::Node::Kind kind, NodePtr first, NodePtr second)
    {
        auto node = std::make_shared<Predicate::Node>();
        node->kind = kind;
        node->children = {std::move(first), std::move(second)};
        return node;
    }

    NodePtr parseOr()
    {
        NodePtr left = parseAnd();
        while (m_error.isEmpty() && (acceptSymbol("||") || acceptKeyword("OR"))) {
            left = combine(Predicate::Node::Kind::Or, left, parseAnd());
        }
        return left;
    }

    NodePtr parseAnd()
    {
        NodePtr left = parseNot();
        while (m_error.isEmpty() && (acceptSymbol("&&") || acceptKeyword("AND"))) {
            left = combine(Predicate::Node::Kind::And, left, parseNot());
        }
        return left;
    }

    NodePtr parseNot()
    {
        auto node = std::make_shared<Predicate::Node>();
        if (acceptSymbol("!") || acceptKeyword("NOT")) {
            node->kind = Predicate::Node::Kind::Not;
            node->children = {parseNot()};
            return node;
        }
        if (acceptSymbol("(")) {
            NodePtr inner = parseOr();
            if (!acceptSymbol(")")) {
                fail(QStringLiteral("expected \")\" at position %1").arg(peek().position));
            }
            return inner;
        }
        if (acceptKeyword("TRUEPREDICATE")) {
            node->kind = Predicate::Node::Kind::True;
            return node;
        }
        if (acceptKeyword("FALSEPREDICATE")) {
            node->kind = Predicate::Node::Kind::False;
            return node;
        }
        node->kind = Predicate::Node::Kind::Comparison;
        node->lhs = parseOperand();
        const Token op = next();
        static const std::pair<const char*, Op> ops[] = {{"==", Op::Equal},    {"=", Op::Equal},
                                                         {"!=", Op::NotEqual}, {"<>", Op::NotEqual},
                                                         {"<", Op::Less},      {"<=", Op::LessEqual},
                                                         {">", Op::Greater},   {">=", Op::GreaterEqual}};
        bool known = false;
        for (const auto& [text, value] : ops) {
            if (op.type == Token::Type::Symbol && op.text == QLatin1String(text)) {
                node->op = value;
                known = true;
            }
        }
        if (!known) {
            fail(QStringLiteral("expected a comparison operator at position %1").arg(op.position));
            return node;
        }
        node->rhs = parseOperand();
        return node;
    }

    Operand parseOperand()
    {
        Operand operand;
        const Token token = next();
        switch (token.type) {
        case Token::Type::Identifier: {
            const QString upper = token.text.toUpper();
            if (upper == QLatin1String("NIL") || upper == QLatin1String("NULL")) {
                operand.kind = Operand::Kind::Constant;
            } else if (upper == QLatin1String("YES") || upper == QLatin1String("TRUE")) {
                operand.value = true;
            } else if (upper == QLatin1String("NO") || upper == QLatin1String("FALSE")) {
                operand.value = false;
            } else if (upper == QLatin1String("SELF")) {
                operand.kind = Operand::Kind::Self;
            } else {
                operand.kind = Operand::Kind::KeyPath;
                operand.keyPath = token.text;
            }
            break;
        }
        case Token::Type::Number: {
            bool ok = false;
            const qint64 integer = token.text.toLongLong(&ok);
            if (ok) {
                operand.value = integer;
            } else {
                const double number = token.text.toDouble(&ok);
                if (!ok) {
                    fail(QStringLiteral("malformed number \"%1\" at position %2").arg(token.text).arg(token.position));
                }
                operand.value = number;
            }
            break;
        }
        case Token::Type::String:
            operand.value = token.text;
            break;
        case Token::Type::Placeholder:
        case Token::Type::KeyPlaceholder: {
            if (m_nextArgument >= m_arguments.size()) {
                fail(QStringLiteral("no argument for the placeholder at position %1").arg(token.position));
                break;
            }
            const QVariant& value = m_arguments[m_nextArgument++].value();
            if (token.type == Token::Type::KeyPlaceholder) {
                operand.kind = Operand::Kind::KeyPath;
                operand.keyPath = value.toString();
            } else {
                operand.value = value;
            }
            break;
        }
        default:
            fail(QStringLiteral("expected a value or key at position %1").arg(token.position));
            break;
        }
        return operand;
    }

    const QString& m_text;
    const std::vector<PredicateArgument>& m_arguments;
    std::vector<Token> m_tokens;
    std::size_t m_pos = 0;
    std::size_t m_nextArgument = 0;
    QString m_error;
};

QVariant resolve(const Operand& operand, const ManagedObject& object)
{
    switch (operand.kind) {
    case Operand::Kind::KeyPath:
        return object.valueForKeyPath(operand.keyPath);
    case Operand::Kind::Self:
        return QVariant::fromValue(const_cast<ManagedObject*>(&object));
    case Operand::Kind::Constant:
        break;
    }
    return operand.value;
}

bool evaluateNode(const Predicate::Node& node, const ManagedObject& object)
{
    using Kind = Predicate::Node::Kind;
    switch (node.kind) {
    case Kind::True:
        return true;
    case Kind::False:
        return false;
    case Kind::And:
        return evaluateNode(*node.children[0], object) && evaluateNode(*node.children[1], object);
    case Kind::Or:
        return evaluateNode(*node.children[0], object) || evaluateNode(*node.children[1], object);
    case Kind::Not:
        return !evaluateNode(*node.children[0], object);
    case Kind::Comparison:
        break;
    }
    const QVariant a = resolve(node.lhs, object);
    const QVariant b = resolve(node.rhs, object);
    if (node.op == Op::Equal) {
        return valuesEqual(a, b);
    }
    if (node.op == Op::NotEqual) {
        return !valuesEqual(a, b);
    }
    bool comparable = false;
    const int c = compareSameKind(a, b, &comparable);
    if (!comparable || kindOf(a) == ValueKind::None) {
        return false;
    }
    switch (node.op) {
    case Op::Less:
        return c < 0;
    case Op::LessEqual:
        return c <= 0;
    case Op::Greater:
        return c > 0;
    case Op::GreaterEqual:
        return c >= 0;
    default:
        return false;
    }
}

Status validateNode(const Predicate::Node& node, const EntityDescription& entity)
{
    for (const auto& child : node.children) {
        if (Status status = validateNode(*child, entity); !status) {
            return status;
        }
    }
    if (node.kind != Predicate::Node::Kind::Comparison) {
        return {};
    }
    for (const Operand* operand : {&node.lhs, &node.rhs}) {
        if (operand->kind != Operand::Kind::KeyPath) {
            continue;
        }
        const QString first = operand->keyPath.section(QLatin1Char('.'), 0, 0);
        if (!entity.attribute(first) && !entity.relationship(first)) {
            return Error::make(Error::kFetchError, QStringLiteral("Invalid fetch predicate"),
                               QStringLiteral("keypath %1 not found in entity %2").arg(operand->keyPath,
                                                                                       entity.name()));
        }
    }
    return {};
}

QString nodeText(const Predicate::Node& node)
{
    using Kind = Predicate::Node::Kind;
    switch (node.kind) {
    case Kind::True:
        return QStringLiteral("TRUEPREDICATE");
    case Kind::False:
        return QStringLiteral("FALSEPREDICATE");
    case Kind::And:
        return QStringLiteral("(%1 && %2)").arg(nodeText(*node.children[0]), nodeText(*node.children[1]));
    case Kind::Or:
        return QStringLiteral("(%1 || %2)").arg(nodeText(*node.children[0]), nodeText(*node.children[1]));
    case Kind::Not:
        return QStringLiteral("!%1").arg(nodeText(*node.children[0]));
    case Kind::Comparison:
        break;
    }
    return QStringLiteral("%1 %2 %3").arg(operandText(node.lhs), opText(node.op), operandText(node.rhs));
}

}  // namespace

Predicate::Predicate()
    : m_root(std::make_shared<Node>())
{
}

Predicate::Predicate(std::shared_ptr<const Node> root)
    : m_root(std::move(root))
{
}

Result<Predicate> Predicate::format(const QString& text, std::initializer_list<PredicateArgument> arguments)
{
    return format(text, std::vector<PredicateArgument>(arguments));
}

Result<Predicate> Predicate::format(const QString& text, const std::vector<PredicateArgument>& arguments)
{
    Parser parser(text, arguments);
    Result<NodePtr> root = parser.parse();
    if (!root) {
        return root.error();
    }
    return Predicate(std::move(root.value()));
}

bool Predicate::evaluate(const ManagedObject& object) const
{
    return evaluateNode(*m_root, object);
}

Status Predicate::validateFor(const EntityDescription& entity) const
{
    return validateNode(*m_root, entity);
}

QString Predicate::text() const
{
    return nodeText(*m_root);
}

int compareValues(const QVariant& a, const QVariant& b)
{
    const ValueKind x = kindOf(a);
    const ValueKind y = kindOf(b);
    if (x != y) {
        return static_cast<int>(x) < static_cast<int>(y) ? -1 : 1;
    }
    bool comparable = false;
    return compareSameKind(a, b, &comparable);
}

}  // namespace trovara::store
