// The criteria tree of a search: groups (QueryNode) that combine their
// children with ALL ("AND"), ANY ("OR") or NONE ("NOT"), and rows
// (QueryLeaf, in query_leaf.h) that compare one attribute with one value.
// Siblings are ordered by sortIndex.
//
// Invariants: exactly one group has no parent (the root); the children of a
// group have distinct sort indexes in the order shown to the user.
//
// Objects of a document's object graph: see managed_object.h for ownership
// and threading.
#pragma once

#include "store/managed_object.h"
#include "store/managed_object_context.h"

#include <QString>

#include <vector>

namespace trovara::model {

class QueryAttribute;
class QueryLeaf;
class QueryNode;

class QueryItem : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "QueryItem";

    QueryNode* parent() const;
    void setParent(QueryNode* parent);

    QVariant sortIndex() const { return value(QStringLiteral("sortIndex")); }
    void setSortIndex(const QVariant& sortIndex) { setValue(QStringLiteral("sortIndex"), sortIndex); }
    int sortIndexValue() const { return sortIndex().toInt(); }
    void setSortIndexValue(int sortIndex) { setSortIndex(sortIndex); }

    virtual bool isLeaf() const = 0;
    // The item's query text. The empty string means the item contributes
    // nothing; a null string (only a NONE group gives one) means it has no
    // expression at all.
    virtual QString expression() const = 0;

    // Sort index ascending.
    static std::vector<store::SortDescriptor> sortDescriptors();
};

class QueryNode final : public QueryItem {
public:
    static constexpr const char* kEntityName = "QueryNode";

    // The stored Boolean operator: "AND", "OR" or "NOT".
    QString operatorName() const { return value(QStringLiteral("operator")).toString(); }
    void setOperatorName(const QString& name) { setValue(QStringLiteral("operator"), name); }

    std::vector<QueryItem*> children() const;
    std::vector<QueryItem*> orderedChildren() const;

    bool isLeaf() const override { return false; }
    QString expression() const override;

    // The root group of the context's criteria, made (an "AND" group at
    // sort index 0) when there is none. A failed fetch is presented and
    // gives nullptr.
    static QueryNode* rootNodeInContext(store::ManagedObjectContext& context);

    // Adds a row at the end.
    QueryLeaf* addRow();
    // Adds a row after the child with sort index `index` (-1: at the end),
    // choosing its attribute as the group's kind suggests.
    QueryLeaf* addRowFromIndex(int index);
    // The attribute such a row gets: in an ALL group the first available
    // attribute no row of the group uses yet; in an ANY or NONE group the
    // attribute of the row at `index`; else the name.
    QueryAttribute* defaultAttributeForRowFromIndex(int index);
    // Puts an item (a new row or group, or one of this group's own children)
    // into the group at a position: after (or at) the child with sort index
    // `index`, or after (or at) the last child when index is negative. A
    // NONE group first wraps its last child in a new ANY group and puts the
    // item there.
    void addLeaf(QueryItem* item, bool after, int index);
};

}  // namespace trovara::model
