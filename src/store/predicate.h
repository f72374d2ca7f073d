// Predicates and sort descriptors for fetching objects of a graph.
//
// A predicate is written as text with %@ placeholders, as the query model
// writes its look-ups: "parent == nil", "attributeKey == %@",
// "queryLeaf == %@ && attributeKey == %@", "isConstant == %@". The grammar:
//
//   predicate  := or
//   or         := and { ("||" | "OR") and }
//   and        := not { ("&&" | "AND") not }
//   not        := ("!" | "NOT") not | "(" predicate ")" | TRUEPREDICATE
//                 | FALSEPREDICATE | comparison
//   comparison := operand op operand        op := == = != <> < <= > >=
//   operand    := keypath | SELF | nil | NULL | YES | NO | TRUE | FALSE
//                 | number | 'text' | "text" | %@ | %K (a key path argument)
//
// Comparisons: nil equals only nil; objects compare by identity; numbers and
// Booleans numerically; text exactly (ordering by code unit); dates by time.
// An ordering comparison with nil or between unlike kinds is false.
#pragma once

#include "common/error.h"

#include <QString>
#include <QVariant>

#include <functional>
#include <initializer_list>
#include <memory>
#include <vector>

namespace trovara::store {

class EntityDescription;
class ManagedObject;

// One value for a %@ (or %K) placeholder.
class PredicateArgument {
public:
    PredicateArgument(const QVariant& value) : m_value(value) {}  // NOLINT
    PredicateArgument(const QString& text) : m_value(text) {}  // NOLINT
    PredicateArgument(const char* text) : m_value(QString::fromUtf8(text)) {}  // NOLINT
    PredicateArgument(int number) : m_value(number) {}  // NOLINT
    PredicateArgument(qint64 number) : m_value(number) {}  // NOLINT
    PredicateArgument(double number) : m_value(number) {}  // NOLINT
    PredicateArgument(bool flag) : m_value(flag) {}  // NOLINT
    PredicateArgument(ManagedObject* object) : m_value(QVariant::fromValue(object)) {}  // NOLINT
    PredicateArgument(std::nullptr_t) {}  // NOLINT

    const QVariant& value() const { return m_value; }

private:
    QVariant m_value;
};

class Predicate {
public:
    // The predicate that is always true.
    Predicate();

    static Result<Predicate> format(const QString& text, std::initializer_list<PredicateArgument> arguments = {});
    static Result<Predicate> format(const QString& text, const std::vector<PredicateArgument>& arguments);

    bool evaluate(const ManagedObject& object) const;

    // Checks that every key path starts with an attribute or relationship of
    // the entity, so that a mistyped key is an error rather than an empty
    // answer.
    Status validateFor(const EntityDescription& entity) const;

    // The text the predicate was made from, with arguments filled in.
    QString text() const;

    struct Node;

private:
    explicit Predicate(std::shared_ptr<const Node> root);
    std::shared_ptr<const Node> m_root;
};

// Orders fetched objects by the value at a key path. Without a comparator,
// values compare as in predicates, with "none" before everything else.
struct SortDescriptor {
    QString keyPath;
    bool ascending = true;
    std::function<int(const QVariant&, const QVariant&)> comparator;
};

// Compares two values the way sort descriptors do without a comparator:
// negative, zero or positive.
int compareValues(const QVariant& a, const QVariant& b);

struct FetchRequest {
    QString entityName;
    Predicate predicate;
    std::vector<SortDescriptor> sortDescriptors;
    int fetchLimit = 0;  // 0: no limit
    bool includesSubentities = true;
};

}  // namespace trovara::store
