#include "model/relational_operator.h"

#include "model/localization.h"
#include "model/platform.h"
#include "model/value_text.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace trovara::model {

namespace {

// Counts of "within last" in the query language: whole numbers (the integer
// part, as the hours always were), counted back from now, so a negative
// count reaches forward ("$time.today(3)", not "$time.today(--3)"). A
// million periods reach further back than any file's date, and is all the
// language takes.
constexpr std::int64_t kMaxPeriods = 1000000;

QString backFromNow(std::int64_t count)
{
    return count >= 0 ? QLatin1Char('-') + QString::number(count) : QString::number(-count);
}

QString periodsBack(const QVariant& value)
{
    return backFromNow(std::clamp(integerValueOf(value), -kMaxPeriods, kMaxPeriods));
}

QString hoursBackInSeconds(const QVariant& value)
{
    constexpr std::int64_t kMaxHours = std::numeric_limits<std::int64_t>::max() / 3600;
    return backFromNow(std::clamp(integerValueOf(value), -kMaxHours, kMaxHours) * 3600);
}

}  // namespace

// name, operator expression, suffix (nullptr: none).
#define TROVARA_OPERATOR(accessor, name, expression, suffix)                                     \
    const RelationalOperator* RelationalOperator::accessor()                                            \
    {                                                                                                   \
        static const RelationalOperator instance(QStringLiteral(name), QStringLiteral(expression),      \
                                                 suffix ? QString::fromLatin1(suffix) : QString());     \
        return &instance;                                                                               \
    }

TROVARA_OPERATOR(lessThanOperator, "lessThan", "<", nullptr)
TROVARA_OPERATOR(equalOperator, "equal", "=", nullptr)
TROVARA_OPERATOR(greaterThanOperator, "greaterThan", ">", nullptr)
TROVARA_OPERATOR(withinLastOperator, "withinLast", ">=", nullptr)
TROVARA_OPERATOR(beforeOperator, "before", "<", nullptr)
TROVARA_OPERATOR(onOperator, "on", "=", nullptr)
TROVARA_OPERATOR(afterOperator, "after", ">=", nullptr)
TROVARA_OPERATOR(beginsWithOperator, "beginsWith", "==", "cd")
TROVARA_OPERATOR(endsWithOperator, "endsWith", "==", "cd")
TROVARA_OPERATOR(containsOperator, "contains", "==", "cd")
TROVARA_OPERATOR(isOperator, "is", "==", "c")
TROVARA_OPERATOR(containsPhraseOperator, "containsPhrase", "==", "c")
TROVARA_OPERATOR(containsWordsOperator, "containsWords", "==", "cdw")
TROVARA_OPERATOR(containsPrefixesOperator, "containsPrefixes", "==", "cdw")
TROVARA_OPERATOR(containsFuzzyOperator, "containsFuzzy", "==", "cd")
#undef TROVARA_OPERATOR

const std::vector<const RelationalOperator*>& RelationalOperator::numberOperators()
{
    static const std::vector<const RelationalOperator*> list{equalOperator(), lessThanOperator(),
                                                             greaterThanOperator()};
    return list;
}

const std::vector<const RelationalOperator*>& RelationalOperator::dateOperators()
{
    static const std::vector<const RelationalOperator*> list{withinLastOperator(), onOperator(), beforeOperator(),
                                                             afterOperator()};
    return list;
}

const std::vector<const RelationalOperator*>& RelationalOperator::stringOperators()
{
    static const std::vector<const RelationalOperator*> list{
        beginsWithOperator(),     containsOperator(),       endsWithOperator(),
        isOperator(),             containsPhraseOperator(), containsWordsOperator(),
        containsPrefixesOperator(), containsFuzzyOperator()};
    return list;
}

const std::vector<const RelationalOperator*>& RelationalOperator::basicStringOperators()
{
    static const std::vector<const RelationalOperator*> list{containsOperator(), isOperator(), beginsWithOperator(),
                                                             endsWithOperator()};
    return list;
}

const std::vector<const RelationalOperator*>& RelationalOperator::contentStringOperators()
{
    static const std::vector<const RelationalOperator*> list{containsFuzzyOperator(), containsPrefixesOperator(),
                                                             containsWordsOperator(), containsPhraseOperator()};
    return list;
}

const std::vector<const RelationalOperator*>& RelationalOperator::booleanOperators()
{
    static const std::vector<const RelationalOperator*> list{equalOperator()};
    return list;
}

const std::vector<const RelationalOperator*>& RelationalOperator::relationalOperators()
{
    static const std::vector<const RelationalOperator*> list = [] {
        std::vector<const RelationalOperator*> all = numberOperators();
        all.insert(all.end(), dateOperators().begin(), dateOperators().end());
        all.insert(all.end(), stringOperators().begin(), stringOperators().end());
        return all;
    }();
    return list;
}

RelationalOperator::RelationalOperator(QVariant representation)
    : Value(std::move(representation))
{
}

RelationalOperator::RelationalOperator(QString name, QString operatorExpression, QString suffix)
    : Value(std::move(name))
    , m_operatorExpression(std::move(operatorExpression))
    , m_suffix(std::move(suffix))
{
}

QString RelationalOperator::label() const
{
    static const std::pair<const RelationalOperator*, const char*> labels[] = {
        {lessThanOperator(), "less than"},
        {equalOperator(), "equal to"},
        {greaterThanOperator(), "greater than"},
        {withinLastOperator(), "within last"},
        {beforeOperator(), "before"},
        {onOperator(), "on"},
        {afterOperator(), "after"},
        {beginsWithOperator(), "begins with"},
        {endsWithOperator(), "ends with"},
        {containsOperator(), "contains"},
        {isOperator(), "is"},
        {containsPhraseOperator(), "contains phrase"},
        {containsWordsOperator(), "contains words"},
        {containsPrefixesOperator(), "contains prefixes"},
        {containsFuzzyOperator(), "contains fuzzy"},
    };
    for (const auto& [op, label] : labels) {
        if (op == this) {
            return localized(QString::fromLatin1(label));
        }
    }
    return {};
}

std::unique_ptr<Value> RelationalOperator::copy() const
{
    return std::make_unique<RelationalOperator>(representation());
}

QString RelationalOperator::expressionWithAttribute(const QString& attributeKey, const QVariant& value,
                                                    const Unit* unit) const
{
    return QStringLiteral("(") + attributeKey + QLatin1Char(' ') + m_operatorExpression + QStringLiteral(" '")
           + format(value, unit) + QLatin1Char('\'') + (m_suffix.isNull() ? QString() : m_suffix)
           + QLatin1Char(')');
}

QString RelationalOperator::format(const QVariant& rawValue, const Unit* unit) const
{
    QVariant value = rawValue;
    if (isText(value)) {
        // Backslashes first, so that the escapes added for apostrophes are
        // not doubled.
        QString escaped = value.toString();
        escaped.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
        escaped.replace(QLatin1Char('\''), QStringLiteral("\\'"));
        value = escaped;
    }
    if (this == containsOperator() || this == containsFuzzyOperator() || this == containsPhraseOperator()) {
        return QLatin1Char('*') + descriptionOf(value) + QLatin1Char('*');
    }
    if (this == containsPrefixesOperator() || this == beginsWithOperator()) {
        return descriptionOf(value) + QLatin1Char('*');
    }
    if (this == endsWithOperator()) {
        return QLatin1Char('*') + descriptionOf(value);
    }
    if (this == withinLastOperator()) {
        if (unit == Unit::weekUnit()) {
            return QStringLiteral("$time.this_week(%1)").arg(periodsBack(value));
        }
        if (unit == Unit::monthUnit()) {
            return QStringLiteral("$time.this_month(%1)").arg(periodsBack(value));
        }
        if (unit == Unit::yearUnit()) {
            return QStringLiteral("$time.this_year(%1)").arg(periodsBack(value));
        }
        if (unit == Unit::dayUnit()) {
            return QStringLiteral("$time.today(%1)").arg(periodsBack(value));
        }
        // Hours, or no unit: count back exactly from now, in seconds.
        return QStringLiteral("$time.now(%1)").arg(hoursBackInSeconds(value));
    }
    if (isNumber(value)) {
        double number = doubleValueOf(value);
        const double base = platform::byteUnitBase();
        if (unit == Unit::kiloByteUnit()) {
            number *= base;
        } else if (unit == Unit::megaByteUnit()) {
            number *= base * base;
        } else if (unit == Unit::gigaByteUnit()) {
            number *= base * base * base;
        }
        if (std::isinf(number)) {
            // Scaled past a double's range: the largest size still says it.
            number = std::copysign(std::numeric_limits<double>::max(), number);
        }
        return formatFixed(number, 0);
    }
    return descriptionOf(value);
}

QString RelationalOperator::expression() const
{
    if (!m_suffix.isNull()) {
        return m_operatorExpression + QLatin1Char('[') + m_suffix + QLatin1Char(']');
    }
    return m_operatorExpression;
}

RelationalOperatorProxy::RelationalOperatorProxy(const RelationalOperator* relationalOperator, QString attributeKey)
    : m_operator(relationalOperator)
    , m_attributeKey(std::move(attributeKey))
{
}

QString RelationalOperatorProxy::label() const
{
    return m_operator ? m_operator->label() : QString();
}

bool RelationalOperatorProxy::operator==(const RelationalOperatorProxy& other) const
{
    const bool sameOperator = m_operator == other.m_operator
                              || (m_operator && other.m_operator && m_operator->isEqual(*other.m_operator));
    return sameOperator && m_attributeKey == other.m_attributeKey;
}

std::size_t RelationalOperatorProxy::hash() const
{
    return m_operator ? m_operator->hash() : 0;
}

std::vector<RelationalOperatorProxy> RelationalOperatorProxy::proxysForOperators(
    const std::vector<const RelationalOperator*>& operators, const QString& attributeKey)
{
    std::vector<RelationalOperatorProxy> proxies;
    proxies.reserve(operators.size());
    for (const RelationalOperator* op : operators) {
        proxies.emplace_back(op, attributeKey);
    }
    return proxies;
}

}  // namespace trovara::model
