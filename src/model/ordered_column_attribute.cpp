#include "model/ordered_column_attribute.h"

#include "common/error_presenter.h"

namespace trovara::model {

ColumnAttribute* OrderedColumnAttribute::columnAttribute() const
{
    return static_cast<ColumnAttribute*>(object(QStringLiteral("columnAttribute")));
}

void OrderedColumnAttribute::setColumnAttribute(ColumnAttribute* attribute)
{
    setObject(QStringLiteral("columnAttribute"), attribute);
}

std::vector<store::SortDescriptor> OrderedColumnAttribute::sortDescriptors()
{
    return {{QStringLiteral("sortIndex"), true, {}}};
}

std::vector<OrderedColumnAttribute*> OrderedColumnAttribute::orderedColumns(store::ManagedObjectContext& context)
{
    Result<std::vector<OrderedColumnAttribute*>> found = context.fetch<OrderedColumnAttribute>({}, sortDescriptors());
    if (!found) {
        presentError(found.error());
        return {};
    }
    return found.value();
}

OrderedColumnAttribute* OrderedColumnAttribute::createOrderedColumnAttributeWith(ColumnAttribute* attribute)
{
    store::ManagedObjectContext& context = *attribute->managedObjectContext();
    Result<std::vector<OrderedColumnAttribute*>> last =
        context.fetch<OrderedColumnAttribute>({}, {{QStringLiteral("sortIndex"), false, {}}}, 1);
    if (!last) {
        presentError(last.error());
        return nullptr;
    }
    auto* column = context.insert<OrderedColumnAttribute>();
    column->setSortIndexValue(last->empty() ? 0 : last->front()->sortIndexValue() + 1);
    column->setColumnAttribute(attribute);
    return column;
}

void OrderedColumnAttribute::replaceOrderedColumns(store::ManagedObjectContext& context, const QStringList& keys)
{
    for (OrderedColumnAttribute* column : orderedColumns(context)) {
        context.deleteObject(column);
    }
    for (const QString& key : keys) {
        createOrderedColumnAttributeWith(ColumnAttribute::attributeWithKey(key, context));
    }
}

void OrderedColumnAttribute::primeContext(store::ManagedObjectContext& context)
{
    Result<std::vector<OrderedColumnAttribute*>> existing = context.fetch<OrderedColumnAttribute>({}, {}, 1);
    if (!existing || !existing->empty()) {
        return;
    }
    for (const char* key : {"kMDItemDisplayName", "kMDItemKind", "kMDItemContentModificationDate"}) {
        createOrderedColumnAttributeWith(ColumnAttribute::attributeWithKey(QString::fromLatin1(key), context));
    }
}

LimitAttribute* ValuedLimitAttribute::limitAttribute() const
{
    return static_cast<LimitAttribute*>(object(QStringLiteral("limitAttribute")));
}

void ValuedLimitAttribute::setLimitAttribute(LimitAttribute* attribute)
{
    setObject(QStringLiteral("limitAttribute"), attribute);
}

ValuedLimitAttribute* ValuedLimitAttribute::limitInContext(store::ManagedObjectContext& context)
{
    Result<std::vector<ValuedLimitAttribute*>> found = context.fetch<ValuedLimitAttribute>({}, {}, 1);
    if (!found) {
        presentError(found.error());
        return nullptr;
    }
    return found->empty() ? nullptr : found->front();
}

void ValuedLimitAttribute::primeContext(store::ManagedObjectContext& context)
{
    Result<std::vector<ValuedLimitAttribute*>> existing = context.fetch<ValuedLimitAttribute>({}, {}, 1);
    if (existing && existing->empty()) {
        context.insert<ValuedLimitAttribute>();
    }
}

void ValuedLimitAttribute::awakeFromInsert()
{
    if (!limitAttribute()) {
        setLimitAttribute(LimitAttribute::attributeWithKey(QStringLiteral("kMDItemLastUsedDate"),
                                                           *managedObjectContext()));
    }
    setAscending(false);
    setLimitValue(1000);
}

}  // namespace trovara::model
