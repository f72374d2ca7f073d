// A criteria row, and the values it remembers for every attribute it has
// been switched through.
#pragma once

#include "model/query_item.h"

#include <QDateTime>
#include <QVariant>

namespace trovara::model {

class AttributeValue;
class QueryAttribute;
class RelationalOperator;
class Unit;

// The value fields shared by a row and its remembered values. Each may be
// none (an invalid QVariant); they are stored as given.
#define TROVARA_QUERY_VALUE_FIELDS                                                                        \
    QVariant queryString() const { return value(QStringLiteral("queryString")); }                         \
    void setQueryString(const QVariant& v) { setValue(QStringLiteral("queryString"), v); }               \
    QVariant queryNumber() const { return value(QStringLiteral("queryNumber")); }                         \
    void setQueryNumber(const QVariant& v) { setValue(QStringLiteral("queryNumber"), v); }               \
    QVariant queryDate() const { return value(QStringLiteral("queryDate")); }                             \
    void setQueryDate(const QVariant& v) { setValue(QStringLiteral("queryDate"), v); }                   \
    QVariant queryBoolean() const { return value(QStringLiteral("queryBoolean")); }                       \
    void setQueryBoolean(const QVariant& v) { setValue(QStringLiteral("queryBoolean"), v); }             \
    QVariant queryUnit() const { return value(QStringLiteral("queryUnit")); }                             \
    void setQueryUnit(const QVariant& v) { setValue(QStringLiteral("queryUnit"), v); }

class QueryLeaf final : public QueryItem {
public:
    static constexpr const char* kEntityName = "QueryLeaf";

    QueryAttribute* queryAttribute() const;
    // Stores the attribute, then sets the operator to the stored form of the
    // attribute's first applicable operator (none when it has none).
    void setQueryAttribute(QueryAttribute* attribute);

    // The relational operator's name ("contains", "withinLast" …).
    QVariant queryOperator() const { return value(QStringLiteral("queryOperator")); }
    void setQueryOperator(const QVariant& name) { setValue(QStringLiteral("queryOperator"), name); }

    TROVARA_QUERY_VALUE_FIELDS

    // The shared vocabulary objects for the stored operator and unit, or
    // nullptr when the stored form is none or unknown.
    const RelationalOperator* relationalOperator() const;
    const Unit* unit() const;

    // The row's remembered values for an attribute key, made and linked when
    // there are none yet. nullptr (with a logged stack trace) for a row
    // outside any context.
    AttributeValue* attributeValueForKey(const QString& attributeKey);

    // Loads the remembered values for the current attribute and fills what
    // is still missing with the attribute type's defaults (called after the
    // attribute changed).
    void setQueryValues();

    // Asks the parent group to add a row after this one.
    QueryLeaf* addRow();

    bool isLeaf() const override { return true; }
    // The row's query text. A row whose text the index's query language
    // cannot read (an operator that does not fit the attribute's type, a
    // value none of its items could hold) contributes nothing, like an
    // incomplete row, so that every tree yields query text that runs.
    QString expression() const override;

private:
    QString writtenExpression() const;
};

class AttributeValue final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "AttributeValue";

    QueryLeaf* queryLeaf() const;
    void setQueryLeaf(QueryLeaf* leaf);
    QString attributeKey() const { return value(QStringLiteral("attributeKey")).toString(); }
    void setAttributeKey(const QString& key) { setValue(QStringLiteral("attributeKey"), key); }

    TROVARA_QUERY_VALUE_FIELDS

protected:
    void awakeFromInsert() override;
};

#undef TROVARA_QUERY_VALUE_FIELDS

}  // namespace trovara::model
