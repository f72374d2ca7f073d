#include "model/query_item.h"

#include "common/error_presenter.h"
#include "model/abstract_attribute.h"
#include "model/query_leaf.h"
#include "model/value_transformer.h"

#include <algorithm>

namespace trovara::model {

QueryNode* QueryItem::parent() const
{
    return static_cast<QueryNode*>(object(QStringLiteral("parent")));
}

void QueryItem::setParent(QueryNode* parent)
{
    setObject(QStringLiteral("parent"), parent);
}

std::vector<store::SortDescriptor> QueryItem::sortDescriptors()
{
    return {{QStringLiteral("sortIndex"), true, {}}};
}

std::vector<QueryItem*> QueryNode::children() const
{
    std::vector<QueryItem*> items;
    for (store::ManagedObject* child : objects(QStringLiteral("children"))) {
        items.push_back(static_cast<QueryItem*>(child));
    }
    return items;
}

std::vector<QueryItem*> QueryNode::orderedChildren() const
{
    std::vector<QueryItem*> items = children();
    std::stable_sort(items.begin(), items.end(), [](const QueryItem* a, const QueryItem* b) {
        return store::compareValues(a->sortIndex(), b->sortIndex()) < 0;
    });
    return items;
}

QString QueryNode::expression() const
{
    const BooleanOperator* op = BooleanOperatorTransformer::sharedInstance()->lookup(value(QStringLiteral("operator")));
    return op ? op->expressionForItem(*this) : QString();
}

QueryNode* QueryNode::rootNodeInContext(store::ManagedObjectContext& context)
{
    Result<std::vector<QueryNode*>> found =
        context.fetch<QueryNode>(store::Predicate::format(QStringLiteral("parent == nil")).value(), {}, 1);
    if (!found) {
        presentError(found.error());
        return nullptr;
    }
    if (!found->empty()) {
        return found->front();
    }
    auto* root = context.insert<QueryNode>();
    root->setOperatorName(QStringLiteral("AND"));
    root->setSortIndexValue(0);
    return root;
}

QueryLeaf* QueryNode::addRow()
{
    return addRowFromIndex(-1);
}

QueryLeaf* QueryNode::addRowFromIndex(int index)
{
    QueryAttribute* attribute = defaultAttributeForRowFromIndex(index);
    auto* leaf = managedObjectContext()->insert<QueryLeaf>();
    leaf->setQueryAttribute(attribute);
    addLeaf(leaf, true, index);
    return leaf;
}

QueryAttribute* QueryNode::defaultAttributeForRowFromIndex(int index)
{
    store::ManagedObjectContext& context = *managedObjectContext();
    QueryAttribute* attribute = nullptr;
    const QString op = operatorName();
    if (op == QLatin1String("AND")) {
        // ALL rows default to an attribute no sibling uses yet.
        std::vector<QueryAttribute*> used;
        for (QueryItem* child : children()) {
            if (child->isLeaf()) {
                used.push_back(static_cast<QueryLeaf*>(child)->queryAttribute());
            }
        }
        for (QueryAttribute* candidate : QueryAttribute::availableAttributesInContext(context)) {
            if (std::find(used.begin(), used.end(), candidate) == used.end()) {
                attribute = candidate;
                break;
            }
        }
    } else if (op == QLatin1String("OR") || op == QLatin1String("NOT")) {
        // ANY and NONE rows default to the attribute of the row they were
        // added from.
        for (QueryItem* child : children()) {
            if (child->sortIndex().isValid() && child->sortIndexValue() == index) {
                if (child->isLeaf()) {
                    attribute = static_cast<QueryLeaf*>(child)->queryAttribute();
                }
                break;
            }
        }
    }
    if (!attribute) {
        attribute = QueryAttribute::attributeWithKey(QStringLiteral("kMDItemDisplayName"), context);
    }
    return attribute;
}

void QueryNode::addLeaf(QueryItem* item, bool after, int index)
{
    QueryNode* target = this;
    if (operatorName() == QLatin1String("NOT")) {
        // A NONE group holds one ANY group: its last child moves into a new
        // ANY group, where the item joins it.
        const std::vector<QueryItem*> ordered = orderedChildren();
        QueryItem* last = ordered.empty() ? nullptr : ordered.back();
        auto* group = managedObjectContext()->insert<QueryNode>();
        group->setOperatorName(QStringLiteral("OR"));
        group->setSortIndexValue(0);
        group->setParent(this);
        if (last && last != item) {
            last->setParent(group);
            last->setSortIndexValue(0);
        }
        index = 0;
        target = group;
    }
    if (item->parent() == target) {
        // Close the gap the item leaves.
        const int current = item->sortIndexValue();
        for (QueryItem* child : target->children()) {
            if (child->sortIndexValue() >= current) {
                child->setSortIndexValue(child->sortIndexValue() - 1);
            }
        }
    }
    const std::vector<QueryItem*> ordered = target->orderedChildren();
    int position = 0;
    if (index >= 0) {
        position = after ? index + 1 : index;
    } else if (!ordered.empty()) {
        position = ordered.back()->sortIndexValue() + (after ? 1 : 0);
    }
    for (QueryItem* child : ordered) {
        if (child->sortIndexValue() >= position) {
            if (child == item) {
                break;
            }
            child->setSortIndexValue(child->sortIndexValue() + 1);
        }
    }
    item->setSortIndexValue(position);
    item->setParent(target);
}

}  // namespace trovara::model
