// The closed vocabularies of the criteria: Boolean operators of groups,
// Boolean values, units (and, in their own headers, relational operators,
// content types and colour labels).
//
// Every vocabulary is a fixed set of shared instances, created on first use
// and kept for the life of the program. Documents store only a value's
// representation (a short string or a number); code compares values by
// identity with the shared instances, so a value obtained from a stored form
// (through its transformer) is always the shared instance.
//
// Thread safety: the shared instances are created thread-safely and are
// immutable afterwards, except for the lazily cached labels of content types
// and colour labels, which are meant for the main thread.
#pragma once

#include <QString>
#include <QVariant>

#include <memory>
#include <vector>

namespace trovara::model {

class QueryItem;
class QueryNode;

class Value {
public:
    explicit Value(QVariant representation);
    virtual ~Value();
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;

    // The stored form: a string for operators and units, a number for
    // Boolean values and labels, a type identifier for content types.
    const QVariant& representation() const { return m_representation; }
    virtual QString label() const;

    // Equal when the representations are equal (numbers compare by value).
    bool isEqual(const Value& other) const;
    std::size_t hash() const;

    // A new instance of the same class with the same representation (and
    // nothing else: a copy is never one of the shared instances).
    virtual std::unique_ptr<Value> copy() const;

private:
    QVariant m_representation;
};

class BooleanOperator final : public Value {
public:
    static const BooleanOperator* andOperator();
    static const BooleanOperator* orOperator();
    static const BooleanOperator* notOperator();
    // and, or, not.
    static const std::vector<const BooleanOperator*>& booleanOperators();

    explicit BooleanOperator(QVariant representation) : Value(std::move(representation)) {}
    QString label() const override;
    std::unique_ptr<Value> copy() const override;

    // The query text of a group whose operator this is. A null string means
    // "no expression", the empty string "nothing to contribute".
    QString expressionForItem(const QueryNode& group) const;
    // Joins the non-empty expressions of the items with the joining text:
    // "(A && B)", "(A)", or the empty string when all are empty.
    static QString expressionForItems(const std::vector<QueryItem*>& items, const QString& joiner);
};

class BooleanValue final : public Value {
public:
    static const BooleanValue* yesValue();
    static const BooleanValue* noValue();
    // yes, no.
    static const std::vector<const BooleanValue*>& booleanValues();

    explicit BooleanValue(QVariant representation) : Value(std::move(representation)) {}
    QString label() const override;
    std::unique_ptr<Value> copy() const override;
};

class Unit final : public Value {
public:
    static const Unit* hourUnit();
    static const Unit* dayUnit();
    static const Unit* weekUnit();
    static const Unit* monthUnit();
    static const Unit* yearUnit();
    static const Unit* kiloByteUnit();
    static const Unit* megaByteUnit();
    static const Unit* gigaByteUnit();
    // hour, day, week, month, year.
    static const std::vector<const Unit*>& dateUnits();
    // KB, MB, GB.
    static const std::vector<const Unit*>& fileSizeUnits();
    // The date units followed by the file-size units.
    static const std::vector<const Unit*>& units();

    explicit Unit(QVariant representation) : Value(std::move(representation)) {}
    QString label() const override;
    std::unique_ptr<Value> copy() const override;
};

}  // namespace trovara::model
