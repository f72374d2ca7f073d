#include "document/model_migration.h"

#include "common/log.h"
#include "document/document_store.h"
#include "model/abstract_attribute.h"
#include "model/document_model.h"
#include "model/ordered_column_attribute.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>
#include <map>
#include <optional>

namespace trovara::document {

namespace {

using store::AttributeType;
using store::DeleteRule;
using store::EntityDescription;
using store::ManagedObject;
using store::ManagedObjectContext;

// --- The first model ----------------------------------------------------------

// The first model is only ever read (to be migrated), so its objects are
// plain managed objects without behaviour. Its declaration is frozen: the
// hash of the "LegacyMetadata" resource must keep matching it.
struct Field {
    const char* name;
    AttributeType type;
};
struct Link {
    const char* name;
    const char* destination;
    const char* inverse;
    bool isToMany;
    DeleteRule rule;
};

EntityDescription entity(const char* name, const char* superentity, bool isAbstract, std::initializer_list<Field> fields,
                         std::initializer_list<Link> links)
{
    std::vector<store::AttributeDescription> attributes;
    for (const Field& field : fields) {
        attributes.push_back({QString::fromLatin1(field.name), field.type, false, {}});
    }
    std::vector<store::RelationshipDescription> relationships;
    for (const Link& link : links) {
        relationships.push_back({QString::fromLatin1(link.name), QString::fromLatin1(link.destination),
                                 QString::fromLatin1(link.inverse), link.isToMany, link.rule});
    }
    EntityDescription::Factory factory;
    if (!isAbstract) {
        factory = [] { return std::make_unique<ManagedObject>(); };
    }
    return EntityDescription(QString::fromLatin1(name), QString::fromLatin1(superentity), isAbstract,
                             std::move(factory), std::move(attributes), std::move(relationships));
}

std::vector<EntityDescription> firstModelEntities()
{
    constexpr AttributeType S = AttributeType::String;
    constexpr DeleteRule cascade = DeleteRule::Cascade;
    constexpr DeleteRule nullify = DeleteRule::Nullify;
    std::vector<EntityDescription> list;
    list.push_back(entity("QueryItem", "", true, {{"sortIndex", AttributeType::Integer}},
                          {{"parent", "QueryNode", "children", false, nullify}}));
    list.push_back(entity("QueryNode", "QueryItem", false, {{"operator", S}},
                          {{"children", "QueryItem", "parent", true, cascade}}));
    list.push_back(entity("QueryLeaf", "QueryItem", false,
                          {{"queryOperator", S}, {"queryString", S}, {"queryNumber", AttributeType::Number},
                           {"queryDate", AttributeType::Date}, {"queryBoolean", AttributeType::Boolean},
                           {"queryUnit", S}},
                          {{"queryAttribute", "QueryAttribute", "queryLeaves", false, nullify}}));
    list.push_back(entity("MetaAttribute", "", false, {{"attributeKey", S}, {"attributeValue", AttributeType::Binary}},
                          {}));
    list.push_back(entity("AbstractAttribute", "", true, {{"attributeKey", S}, {"attributeName", S}}, {}));
    list.push_back(entity("QueryAttribute", "AbstractAttribute", false, {},
                          {{"queryLeaves", "QueryLeaf", "queryAttribute", true, nullify}}));
    list.push_back(entity("ColumnAttribute", "AbstractAttribute", false, {}, {}));
    list.push_back(entity("Scope", "", false, {{"path", S}, {"isConstant", AttributeType::Boolean}},
                          {{"orderedScopes", "OrderedScope", "scope", true, cascade},
                           {"orderedExclusionScopes", "OrderedExclusionScope", "scope", true, cascade}}));
    list.push_back(entity("OrderedScope", "", false, {{"sortIndex", AttributeType::Integer}},
                          {{"scope", "Scope", "orderedScopes", false, nullify}}));
    list.push_back(entity("OrderedExclusionScope", "", false, {{"sortIndex", AttributeType::Integer}},
                          {{"scope", "Scope", "orderedExclusionScopes", false, nullify}}));
    return list;
}

// --- The migration --------------------------------------------------------------

// Carries objects of the source graph over into the destination, entity by
// entity, remembering which destination object each source object became so
// that to-one relationships can be linked once every object exists.
class Migration {
public:
    Migration(const ManagedObjectContext& source, ManagedObjectContext& destination)
        : m_source(source)
        , m_destination(destination)
    {
    }

    const ManagedObjectContext& source() const { return m_source; }
    ManagedObjectContext& destination() { return m_destination; }

    // The source objects of exactly this entity, in the order they were read.
    std::vector<ManagedObject*> sourceObjects(const char* entityName) const
    {
        std::vector<ManagedObject*> objects;
        for (ManagedObject* object : m_source.registeredObjects()) {
            if (object->entity().name() == QLatin1String(entityName)) {
                objects.push_back(object);
            }
        }
        return objects;
    }

    // The value of a source setting, or none.
    std::optional<QByteArray> sourceSetting(const char* key) const
    {
        for (ManagedObject* setting : sourceObjects("MetaAttribute")) {
            if (setting->value(QStringLiteral("attributeKey")).toString() == QLatin1String(key)) {
                return setting->value(QStringLiteral("attributeValue")).toByteArray();
            }
        }
        return std::nullopt;
    }

    void record(const ManagedObject* source, ManagedObject* destination) { m_mapped[source] = destination; }

    // A new destination object of the same entity with every stored value
    // the destination entity also has.
    ManagedObject* copy(const ManagedObject& source)
    {
        ManagedObject* destination = m_destination.insertNewObject(source.entity().name());
        for (const store::AttributeDescription& attribute : source.entity().attributes()) {
            const store::AttributeDescription* target = destination->entity().attribute(attribute.name);
            if (!attribute.isTransient && target && !target->isTransient) {
                destination->setValue(attribute.name, source.value(attribute.name));
            }
        }
        record(&source, destination);
        return destination;
    }

    void copyAll(const char* entityName)
    {
        for (ManagedObject* object : sourceObjects(entityName)) {
            copy(*object);
        }
    }

    // Sets every to-one relationship of the carried-over objects to the
    // carried-over destination, where the destination entity has it.
    void linkRelationships()
    {
        for (const auto& [source, destination] : m_mapped) {
            for (const store::RelationshipDescription& relationship : source->entity().relationships()) {
                if (relationship.isToMany || !destination->entity().relationship(relationship.name)) {
                    continue;
                }
                const auto target = m_mapped.find(source->object(relationship.name));
                if (target != m_mapped.end()) {
                    destination->setObject(relationship.name, target->second);
                }
            }
        }
    }

private:
    const ManagedObjectContext& m_source;
    ManagedObjectContext& m_destination;
    std::map<const ManagedObject*, ManagedObject*> m_mapped;
};

// The stored setting as a JSON array, or none when it is missing or damaged
// (a damaged one is logged and then treated as missing).
std::optional<QJsonArray> storedArray(const Migration& migration, const char* key)
{
    const std::optional<QByteArray> bytes = migration.sourceSetting(key);
    if (!bytes) {
        return std::nullopt;
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(*bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        TLOG(QStringLiteral("ignoring the damaged setting %1 of an old document").arg(QLatin1String(key)));
        return std::nullopt;
    }
    return document.array();
}

// The stored column identifiers; all must be non-empty strings.
std::optional<QStringList> storedColumns(const Migration& migration)
{
    const std::optional<QJsonArray> array = storedArray(migration, kResultColumnsKey);
    if (!array) {
        return std::nullopt;
    }
    QStringList identifiers;
    for (const QJsonValue& value : *array) {
        if (!value.isString() || value.toString().isEmpty()) {
            TLOG(QStringLiteral("ignoring the damaged setting %1 of an old document").arg(QLatin1String(kResultColumnsKey)));
            return std::nullopt;
        }
        identifiers << value.toString();
    }
    return identifiers;
}

// The stored widths; all must be finite, non-negative numbers. Missing or
// damaged: no widths at all.
std::vector<double> storedWidths(const Migration& migration)
{
    const std::optional<QJsonArray> array = storedArray(migration, kResultColumnWidthsKey);
    if (!array) {
        return {};
    }
    std::vector<double> widths;
    for (const QJsonValue& value : *array) {
        if (!value.isDouble() || !std::isfinite(value.toDouble()) || value.toDouble() < 0) {
            TLOG(QStringLiteral("ignoring the damaged setting %1 of an old document")
                     .arg(QLatin1String(kResultColumnWidthsKey)));
            return {};
        }
        widths.push_back(value.toDouble());
    }
    return widths;
}

// The attribute key of a column identifier of the first model.
QString columnKeyForIdentifier(const QString& identifier)
{
    static const std::map<QString, QString> renamed{
        {QStringLiteral("displayName"), QStringLiteral("kMDItemDisplayName")},
        {QStringLiteral("itemKind"), QStringLiteral("kMDItemKind")},
        {QStringLiteral("modificationDate"), QStringLiteral("kMDItemContentModificationDate")},
        {QStringLiteral("size"), QStringLiteral("kMDItemFSSize")},
    };
    const auto found = renamed.find(identifier);
    return found == renamed.end() ? identifier : found->second;
}

// The policies act at the beginning of their entity's mapping, on the
// destination graph.

struct ColumnAttributeMigrationPolicy {
    static void begin(Migration& migration)
    {
        model::ColumnAttribute::primeContext(migration.destination());
        for (model::ColumnAttribute* column : model::ColumnAttribute::availableAttributesInContext(migration.destination())) {
            column->setAttributeName(model::ColumnAttribute::nameForKey(column->attributeKey()));
        }
    }
};

struct LimitAttributeMigrationPolicy {
    static void begin(Migration& migration) { model::LimitAttribute::primeContext(migration.destination()); }
};

// The first model had no limit: a migrated document shows everything, most
// recently used first.
struct ValuedLimitAttributeMigrationPolicy {
    static void begin(Migration& migration)
    {
        ManagedObjectContext& destination = migration.destination();
        model::ValuedLimitAttribute::primeContext(destination);
        model::ValuedLimitAttribute* limit = model::ValuedLimitAttribute::limitInContext(destination);
        if (!limit) {
            return;
        }
        limit->setLimitAttribute(model::LimitAttribute::attributeWithKey(QStringLiteral("kMDItemLastUsedDate"), destination));
        limit->setAscending(false);
        limit->setLimitValue(0);
    }
};

// Exclusions are taken over as they are.
struct OrderedExclusionScopeMigrationPolicy {
    static void begin(Migration&) {}
};

// The visible columns come from the two settings when there are any: the
// name column first (the first model always showed it, and kept its width
// first), then one column per stored identifier. A stored "displayName"
// is skipped with its width, as is any repeated column, so that a column
// shows once.
struct OrderedColumnAttributeMigrationPolicy {
    static void begin(Migration& migration)
    {
        ManagedObjectContext& destination = migration.destination();
        const std::optional<QStringList> identifiers = storedColumns(migration);
        if (!identifiers) {
            model::OrderedColumnAttribute::primeContext(destination);
            return;
        }
        const std::vector<double> widths = storedWidths(migration);
        std::size_t nextWidth = 0;
        QStringList shown;
        auto addColumn = [&](const QString& key) {
            const bool hasWidth = nextWidth < widths.size();
            const double width = hasWidth ? widths[nextWidth] : 0;
            ++nextWidth;
            if (shown.contains(key)) {
                return;
            }
            shown << key;
            model::OrderedColumnAttribute* column = model::OrderedColumnAttribute::createOrderedColumnAttributeWith(
                model::ColumnAttribute::attributeWithKey(key, destination));
            if (column && hasWidth) {
                column->setColumnWidth(width);
            }
        };
        addColumn(QStringLiteral("kMDItemDisplayName"));
        for (const QString& identifier : *identifiers) {
            addColumn(columnKeyForIdentifier(identifier));
        }
    }
};

void mapColumnAttributes(Migration& migration)
{
    ColumnAttributeMigrationPolicy::begin(migration);
    for (ManagedObject* column : migration.sourceObjects("ColumnAttribute")) {
        migration.record(column, model::ColumnAttribute::attributeWithKey(
                                     column->value(QStringLiteral("attributeKey")).toString(), migration.destination()));
    }
}

void mapSettings(Migration& migration)
{
    for (ManagedObject* setting : migration.sourceObjects("MetaAttribute")) {
        const QString key = setting->value(QStringLiteral("attributeKey")).toString();
        if (key != QLatin1String(kResultColumnsKey) && key != QLatin1String(kResultColumnWidthsKey)) {
            migration.copy(*setting);
        }
    }
}

}  // namespace

std::shared_ptr<const store::ManagedObjectModel> firstDocumentModel()
{
    static const std::shared_ptr<const store::ManagedObjectModel> model = [] {
        Result<std::shared_ptr<const store::ManagedObjectModel>> built =
            store::ManagedObjectModel::create(QString::fromLatin1(kFirstDocumentModelVersion), firstModelEntities());
        // The model is part of the program: an invalid one is a build fault.
        if (!built) {
            qFatal("invalid first document model: %s", qPrintable(built.error().toString()));
        }
        return built.value();
    }();
    return model;
}

std::unique_ptr<ManagedObjectContext> migrateFromFirstModel(const ManagedObjectContext& source)
{
    auto destination = model::makeDocumentContext();
    destination->setAutomaticallyProcessesPendingChanges(false);
    Migration migration(source, *destination);

    migration.copyAll("QueryAttribute");
    mapColumnAttributes(migration);
    LimitAttributeMigrationPolicy::begin(migration);
    ValuedLimitAttributeMigrationPolicy::begin(migration);
    migration.copyAll("QueryNode");
    migration.copyAll("QueryLeaf");
    migration.copyAll("Scope");
    migration.copyAll("OrderedScope");
    OrderedExclusionScopeMigrationPolicy::begin(migration);
    migration.copyAll("OrderedExclusionScope");
    mapSettings(migration);
    OrderedColumnAttributeMigrationPolicy::begin(migration);
    migration.linkRelationships();

    destination->processPendingChanges();
    return destination;
}

}  // namespace trovara::document
