// The attributes a document names: query attributes (offered in criteria
// rows), column attributes (result columns) and limit attributes (what a
// result limit sorts by). Each stands for one metadata attribute key, with
// its display name (stored) and its value type and multi-value flag
// (derived from the metadata schema, never stored).
#pragma once

#include "store/managed_object.h"
#include "store/managed_object_context.h"
#include "model/formatter.h"
#include "model/metadata_schema.h"

#include <QString>
#include <QVariantMap>

#include <memory>
#include <vector>

namespace trovara::model {

class RelationalOperator;

class AbstractAttribute : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "AbstractAttribute";

    static int stringTypeID() { return kStringTypeID; }
    static int numberTypeID() { return kNumberTypeID; }
    static int booleanTypeID() { return kBooleanTypeID; }
    static int dateTypeID() { return kDateTypeID; }

    QString attributeKey() const { return value(QStringLiteral("attributeKey")).toString(); }
    // Stores the key and refreshes the derived properties.
    void setAttributeKey(const QString& key);
    QString attributeName() const { return value(QStringLiteral("attributeName")).toString(); }
    void setAttributeName(const QString& name) { setValue(QStringLiteral("attributeName"), name); }

    // One of the four type identifiers, or none when the schema does not
    // know the attribute.
    QVariant attributeType() const { return value(QStringLiteral("attributeType")); }
    bool attributeIsMultivalued() const { return value(QStringLiteral("attributeIsMultivalued")).toBool(); }

    bool isStringType() const { return attributeType().toInt() == kStringTypeID; }
    bool isNumberType() const { return attributeType().toInt() == kNumberTypeID; }
    bool isBooleanType() const { return attributeType().toInt() == kBooleanTypeID; }
    bool isDateType() const { return attributeType().toInt() == kDateTypeID; }
    bool isMultivaluedType() const { return attributeIsMultivalued(); }

    // Name ascending, then key ascending.
    static std::vector<store::SortDescriptor> sortDescriptors();

    // Recomputes type, multi-value flag and display name from the key.
    virtual void refreshProperties();

protected:
    // The display name of a key as this kind of attribute names it.
    virtual QString nameForKeyOfClass(const QString& key) const;

    void awakeFromFetch() override;
    void willTurnIntoFault() override;

    // The attribute of the entity with the key, made when there is none.
    static store::ManagedObject* attributeWithKey(const char* entityName, const QString& key,
                                                  store::ManagedObjectContext& context);
    // Every attribute of the entity, sorted; a failed fetch is logged and
    // gives an empty list.
    static std::vector<store::ManagedObject*> availableAttributes(const char* entityName,
                                                                  store::ManagedObjectContext& context);
};

class QueryAttribute final : public AbstractAttribute {
public:
    static constexpr const char* kEntityName = "QueryAttribute";

    static QueryAttribute* attributeWithKey(const QString& key, store::ManagedObjectContext& context);
    static std::vector<QueryAttribute*> availableAttributesInContext(store::ManagedObjectContext& context);
    // From the "Attributes" table, else the schema's display name (the two
    // tag keys stand in for each other), else a null string.
    static QString nameForKey(const QString& key);

    // The operators a row on this attribute offers, by type and key.
    const std::vector<const RelationalOperator*>& applicableOperators() const;

    // "<QueryAttribute> key".
    QString description() const override;

protected:
    QString nameForKeyOfClass(const QString& key) const override { return nameForKey(key); }
    void valueForUndefinedKey(const QString& key) const override;
};

class ColumnAttribute final : public AbstractAttribute {
public:
    static constexpr const char* kEntityName = "ColumnAttribute";

    // Chooses a column's formatter and sort prototype after its properties
    // were refreshed; the presentation layer installs it.
    using PropertiesChooser = std::function<void(ColumnAttribute&)>;
    static void setPropertiesChooser(PropertiesChooser chooser);

    static ColumnAttribute* attributeWithKey(const QString& key, store::ManagedObjectContext& context);
    static std::vector<ColumnAttribute*> availableAttributesInContext(store::ManagedObjectContext& context);
    static QString nameForKey(const QString& key) { return QueryAttribute::nameForKey(key); }

    // Key → column description: the "columns" of the built-in "Columns"
    // resource, overlaid entry by entry by the user default
    // "customColumnAttributes". Built once.
    static const QVariantMap& customColumnAttributes();
    static void resetCustomColumnAttributesForTesting();
    // The formatter name the description of the key gives, or null.
    static QString customFormatterNameForKey(const QString& key);

    // The seven columns a new document knows.
    static void primeContext(store::ManagedObjectContext& context);

    std::shared_ptr<const Formatter> formatter() const { return m_formatter; }
    void setFormatter(std::shared_ptr<const Formatter> formatter) { m_formatter = std::move(formatter); }
    const store::SortDescriptor& sortDescriptorPrototype() const { return m_sortDescriptorPrototype; }
    void setSortDescriptorPrototype(store::SortDescriptor prototype) { m_sortDescriptorPrototype = std::move(prototype); }

    void refreshProperties() override;

protected:
    QString nameForKeyOfClass(const QString& key) const override { return nameForKey(key); }

private:
    std::shared_ptr<const Formatter> m_formatter;
    store::SortDescriptor m_sortDescriptorPrototype;
};

class LimitAttribute final : public AbstractAttribute {
public:
    static constexpr const char* kEntityName = "LimitAttribute";

    static LimitAttribute* attributeWithKey(const QString& key, store::ManagedObjectContext& context);
    static std::vector<LimitAttribute*> availableAttributesInContext(store::ManagedObjectContext& context);
    // From the "LimitAttributes" table first, then as a query attribute.
    static QString nameForKey(const QString& key);

    // The three limit attributes a new document knows.
    static void primeContext(store::ManagedObjectContext& context);

protected:
    QString nameForKeyOfClass(const QString& key) const override { return nameForKey(key); }
};

}  // namespace trovara::model
