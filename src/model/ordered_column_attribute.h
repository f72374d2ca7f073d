// The visible result columns of a document, left to right by sortIndex, and
// the document's single result limit.
#pragma once

#include "model/abstract_attribute.h"

#include <QStringList>

namespace trovara::model {

class OrderedColumnAttribute final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "OrderedColumnAttribute";

    ColumnAttribute* columnAttribute() const;
    void setColumnAttribute(ColumnAttribute* attribute);
    QVariant columnWidth() const { return value(QStringLiteral("columnWidth")); }
    void setColumnWidth(const QVariant& width) { setValue(QStringLiteral("columnWidth"), width); }
    int sortIndexValue() const { return value(QStringLiteral("sortIndex")).toInt(); }
    void setSortIndexValue(int index) { setValue(QStringLiteral("sortIndex"), index); }

    static std::vector<store::SortDescriptor> sortDescriptors();
    // Every ordered column, in column order; a failed fetch is presented and
    // gives an empty list.
    static std::vector<OrderedColumnAttribute*> orderedColumns(store::ManagedObjectContext& context);

    // A new last column for the attribute (sort index one past the highest,
    // 0 for the first). A failed fetch is presented and gives nullptr.
    static OrderedColumnAttribute* createOrderedColumnAttributeWith(ColumnAttribute* attribute);

    // Replaces every column by columns of these attribute keys, left to
    // right.
    static void replaceOrderedColumns(store::ManagedObjectContext& context, const QStringList& keys);

    // Name, kind and modification date, when the document has no columns.
    static void primeContext(store::ManagedObjectContext& context);
};

class ValuedLimitAttribute final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "ValuedLimitAttribute";

    LimitAttribute* limitAttribute() const;
    void setLimitAttribute(LimitAttribute* attribute);
    // How many results to keep (0: all).
    QVariant limitValue() const { return value(QStringLiteral("limitValue")); }
    void setLimitValue(const QVariant& count) { setValue(QStringLiteral("limitValue"), count); }
    // Keep the earliest (true) or the latest (false) values.
    bool ascending() const { return value(QStringLiteral("ascending")).toBool(); }
    void setAscending(bool ascending) { setValue(QStringLiteral("ascending"), ascending); }

    // The document's limit, or nullptr when it has none (or the fetch
    // failed, which is presented).
    static ValuedLimitAttribute* limitInContext(store::ManagedObjectContext& context);
    // Makes the single limit when the document has none.
    static void primeContext(store::ManagedObjectContext& context);

protected:
    // A new limit keeps the 1000 most recently used items.
    void awakeFromInsert() override;
};

}  // namespace trovara::model
