#include "model/value.h"

#include "model/localization.h"
#include "model/query_item.h"
#include "model/value_text.h"

#include <QHash>

namespace trovara::model {

Value::Value(QVariant representation)
    : m_representation(std::move(representation))
{
}

Value::~Value() = default;

QString Value::label() const
{
    return {};
}

bool Value::isEqual(const Value& other) const
{
    const QVariant& a = m_representation;
    const QVariant& b = other.m_representation;
    if (isNumber(a) && isNumber(b)) {
        return doubleValueOf(a) == doubleValueOf(b);
    }
    if (isText(a) && isText(b)) {
        return a.toString() == b.toString();
    }
    // A number never equals a text, whatever QVariant would convert.
    return a.isValid() == b.isValid() && (!a.isValid() || (a.metaType() == b.metaType() && a == b));
}

std::size_t Value::hash() const
{
    if (isNumber(m_representation)) {
        return qHash(doubleValueOf(m_representation));
    }
    return qHash(m_representation.toString());
}

std::unique_ptr<Value> Value::copy() const
{
    return std::make_unique<Value>(m_representation);
}

// --- Boolean operators ------------------------------------------------------

const BooleanOperator* BooleanOperator::andOperator()
{
    static const BooleanOperator instance(QStringLiteral("AND"));
    return &instance;
}

const BooleanOperator* BooleanOperator::orOperator()
{
    static const BooleanOperator instance(QStringLiteral("OR"));
    return &instance;
}

const BooleanOperator* BooleanOperator::notOperator()
{
    static const BooleanOperator instance(QStringLiteral("NOT"));
    return &instance;
}

const std::vector<const BooleanOperator*>& BooleanOperator::booleanOperators()
{
    static const std::vector<const BooleanOperator*> list{andOperator(), orOperator(), notOperator()};
    return list;
}

QString BooleanOperator::label() const
{
    const QString name = representation().toString();
    if (!isText(representation())) {
        return {};
    }
    if (name == QLatin1String("AND")) {
        return localized(QStringLiteral("ALL of the following are true:"));
    }
    if (name == QLatin1String("OR")) {
        return localized(QStringLiteral("ANY of the following is true:"));
    }
    if (name == QLatin1String("NOT")) {
        return localized(QStringLiteral("NONE of the following is true:"));
    }
    return {};
}

std::unique_ptr<Value> BooleanOperator::copy() const
{
    return std::make_unique<BooleanOperator>(representation());
}

QString BooleanOperator::expressionForItems(const std::vector<QueryItem*>& items, const QString& joiner)
{
    QString text;
    for (const QueryItem* item : items) {
        const QString expression = item->expression();
        if (expression.isEmpty()) {
            continue;
        }
        if (text.isEmpty()) {
            text += QLatin1Char('(');
        } else {
            text += QLatin1Char(' ') + joiner + QLatin1Char(' ');
        }
        text += expression;
    }
    if (!text.isEmpty()) {
        text += QLatin1Char(')');
    }
    return text;
}

QString BooleanOperator::expressionForItem(const QueryNode& group) const
{
    const std::vector<QueryItem*> children = group.orderedChildren();
    if (this == andOperator()) {
        return expressionForItems(children, QStringLiteral("&&"));
    }
    if (this == orOperator()) {
        return expressionForItems(children, QStringLiteral("||"));
    }
    if (this == notOperator()) {
        if (children.size() == 1) {
            const QString expression = children.front()->expression();
            if (expression.isEmpty()) {
                return {};
            }
            return QStringLiteral("! ( %1 )").arg(expression);
        }
        // Deliberately unchecked: a NONE group without (non-empty) children
        // yields "! (  )".
        return QStringLiteral("! ( %1 )").arg(expressionForItems(children, QStringLiteral("||")));
    }
    return {};
}

// --- Boolean values ---------------------------------------------------------

const BooleanValue* BooleanValue::yesValue()
{
    static const BooleanValue instance(true);
    return &instance;
}

const BooleanValue* BooleanValue::noValue()
{
    static const BooleanValue instance(false);
    return &instance;
}

const std::vector<const BooleanValue*>& BooleanValue::booleanValues()
{
    static const std::vector<const BooleanValue*> list{yesValue(), noValue()};
    return list;
}

QString BooleanValue::label() const
{
    if (!isNumber(representation())) {
        return {};
    }
    return doubleValueOf(representation()) != 0 ? localized(QStringLiteral("Yes")) : localized(QStringLiteral("No"));
}

std::unique_ptr<Value> BooleanValue::copy() const
{
    return std::make_unique<BooleanValue>(representation());
}

// --- Units -------------------------------------------------------------------

#define TROVARA_UNIT(accessor, name)                          \
    const Unit* Unit::accessor()                              \
    {                                                         \
        static const Unit instance(QStringLiteral(name));     \
        return &instance;                                     \
    }

TROVARA_UNIT(hourUnit, "hour")
TROVARA_UNIT(dayUnit, "day")
TROVARA_UNIT(weekUnit, "week")
TROVARA_UNIT(monthUnit, "month")
TROVARA_UNIT(yearUnit, "year")
TROVARA_UNIT(kiloByteUnit, "KB")
TROVARA_UNIT(megaByteUnit, "MB")
TROVARA_UNIT(gigaByteUnit, "GB")
#undef TROVARA_UNIT

const std::vector<const Unit*>& Unit::dateUnits()
{
    static const std::vector<const Unit*> list{hourUnit(), dayUnit(), weekUnit(), monthUnit(), yearUnit()};
    return list;
}

const std::vector<const Unit*>& Unit::fileSizeUnits()
{
    static const std::vector<const Unit*> list{kiloByteUnit(), megaByteUnit(), gigaByteUnit()};
    return list;
}

const std::vector<const Unit*>& Unit::units()
{
    static const std::vector<const Unit*> list = [] {
        std::vector<const Unit*> all = dateUnits();
        all.insert(all.end(), fileSizeUnits().begin(), fileSizeUnits().end());
        return all;
    }();
    return list;
}

QString Unit::label() const
{
    if (!isText(representation())) {
        return {};
    }
    static const QHash<QString, const char*> labels{
        {QStringLiteral("hour"), "hours"}, {QStringLiteral("day"), "days"},   {QStringLiteral("week"), "weeks"},
        {QStringLiteral("month"), "months"}, {QStringLiteral("year"), "years"}, {QStringLiteral("KB"), "KB"},
        {QStringLiteral("MB"), "MB"},     {QStringLiteral("GB"), "GB"},
    };
    auto it = labels.constFind(representation().toString());
    return it == labels.constEnd() ? QString() : localized(QString::fromLatin1(it.value()));
}

std::unique_ptr<Value> Unit::copy() const
{
    return std::make_unique<Unit>(representation());
}

}  // namespace trovara::model
