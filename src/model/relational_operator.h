// Relational operators of criteria rows, and the text they write into a
// query.
//
// Each operator has a name (its stored representation, "contains"), the
// query language operator it writes ("=="), the comparison modifiers written
// after the quoted value ("cd"), and a label. The shared instances and the
// operator lists are fixed; see the table in relational_operator.cpp.
#pragma once

#include "model/value.h"

#include <QString>
#include <QVariant>

#include <vector>

namespace trovara::model {

class RelationalOperator final : public Value {
public:
    static const RelationalOperator* lessThanOperator();
    static const RelationalOperator* equalOperator();
    static const RelationalOperator* greaterThanOperator();
    static const RelationalOperator* withinLastOperator();
    static const RelationalOperator* beforeOperator();
    static const RelationalOperator* onOperator();
    static const RelationalOperator* afterOperator();
    static const RelationalOperator* beginsWithOperator();
    static const RelationalOperator* endsWithOperator();
    static const RelationalOperator* containsOperator();
    static const RelationalOperator* isOperator();
    static const RelationalOperator* containsPhraseOperator();
    static const RelationalOperator* containsWordsOperator();
    static const RelationalOperator* containsPrefixesOperator();
    static const RelationalOperator* containsFuzzyOperator();

    // The lists, in the order of the editors' operator menus.
    static const std::vector<const RelationalOperator*>& numberOperators();
    static const std::vector<const RelationalOperator*>& dateOperators();
    static const std::vector<const RelationalOperator*>& stringOperators();
    static const std::vector<const RelationalOperator*>& basicStringOperators();
    static const std::vector<const RelationalOperator*>& contentStringOperators();
    static const std::vector<const RelationalOperator*>& booleanOperators();
    static const std::vector<const RelationalOperator*>& relationalOperators();

    // A bare operator with only a name (what copy() makes): no expression,
    // no suffix, no label.
    explicit RelationalOperator(QVariant representation);
    RelationalOperator(QString name, QString operatorExpression, QString suffix);

    QString name() const { return representation().toString(); }
    const QString& operatorExpression() const { return m_operatorExpression; }
    // Null when the operator writes no modifiers.
    const QString& suffix() const { return m_suffix; }

    // By identity with the shared instances; any other instance has none.
    QString label() const override;
    std::unique_ptr<Value> copy() const override;

    // "(key op 'value'suffix)", the value formatted by format().
    QString expressionWithAttribute(const QString& attributeKey, const QVariant& value, const class Unit* unit) const;
    // The value as written between the quotes: escaped text with the
    // operator's wildcards, a $time function for "within last", or a
    // number scaled by its unit.
    QString format(const QVariant& value, const class Unit* unit) const;
    // The predicate-style display form: "==[cd]" or "<".
    QString expression() const;

private:
    QString m_operatorExpression;
    QString m_suffix;
};

// An operator listed once per attribute in the editors' menus.
class RelationalOperatorProxy {
public:
    RelationalOperatorProxy(const RelationalOperator* relationalOperator, QString attributeKey);

    const RelationalOperator* relationalOperator() const { return m_operator; }
    const QString& attributeKey() const { return m_attributeKey; }
    QString label() const;

    bool operator==(const RelationalOperatorProxy& other) const;
    // The operator's hash (so proxies of one operator share a bucket).
    std::size_t hash() const;

    static std::vector<RelationalOperatorProxy> proxysForOperators(
        const std::vector<const RelationalOperator*>& operators, const QString& attributeKey);

private:
    const RelationalOperator* m_operator;
    QString m_attributeKey;
};

}  // namespace trovara::model
