#include "model/abstract_attribute.h"

#include "common/error_presenter.h"
#include "common/log.h"
#include "model/defaults.h"
#include "model/localization.h"
#include "model/relational_operator.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <optional>

namespace trovara::model {

namespace {

const QString kOMUserTags = QStringLiteral("kMDItemOMUserTags");
const QString kOMUserTagsShort = QStringLiteral("kOMUserTags");

// The other name of a tag key, or a null string.
QString otherTagKey(const QString& key)
{
    if (key == kOMUserTags) {
        return kOMUserTagsShort;
    }
    if (key == kOMUserTagsShort) {
        return kOMUserTags;
    }
    return {};
}

// The built-in "Columns" resource: which columns use a named formatter.
constexpr const char* kColumnsResource = R"json({
  "columns": {
    "kMDItemFSSize": {"formatter": "bytes"},
    "kMDItemFSLabel": {"formatter": "finderLabel"},
    "kMDItemContentCreationDate": {"formatter": "shortDateTime"},
    "kMDItemContentModificationDate": {"formatter": "shortDateTime"},
    "kMDItemFSCreationDate": {"formatter": "shortDateTime"},
    "kMDItemFSContentChangeDate": {"formatter": "shortDateTime"},
    "kMDItemLastUsedDate": {"formatter": "shortDateTime"},
    "kMDItemAttributeChangeDate": {"formatter": "shortDateTime"},
    "kMDItemDueDate": {"formatter": "shortDate"},
    "kMDItemRecordingDate": {"formatter": "shortDate"},
    "kMDItemFSNodeCount": {"formatter": "integer"},
    "kMDItemFSOwnerUserID": {"formatter": "integer"},
    "kMDItemFSOwnerGroupID": {"formatter": "integer"},
    "kMDItemNumberOfPages": {"formatter": "integer"},
    "kMDItemPixelWidth": {"formatter": "integer"},
    "kMDItemPixelHeight": {"formatter": "integer"},
    "kMDItemPixelCount": {"formatter": "integer"},
    "kMDItemBitsPerSample": {"formatter": "integer"},
    "kMDItemISOSpeed": {"formatter": "integer"},
    "kMDItemOrientation": {"formatter": "integer"},
    "kMDItemStarRating": {"formatter": "integer"},
    "kMDItemAudioTrackNumber": {"formatter": "integer"},
    "kMDItemAudioChannelCount": {"formatter": "integer"},
    "kMDItemAudioSampleRate": {"formatter": "integer"},
    "kMDItemRecordingYear": {"formatter": "integer"}
  }
})json";

std::optional<QVariantMap>& customColumnsCache()
{
    static std::optional<QVariantMap> cache;
    return cache;
}

ColumnAttribute::PropertiesChooser& propertiesChooser()
{
    static ColumnAttribute::PropertiesChooser chooser;
    return chooser;
}

template <typename T>
std::vector<T*> typed(const std::vector<store::ManagedObject*>& objects)
{
    std::vector<T*> result;
    result.reserve(objects.size());
    for (store::ManagedObject* object : objects) {
        result.push_back(static_cast<T*>(object));
    }
    return result;
}

}  // namespace

// --- AbstractAttribute ------------------------------------------------------

void AbstractAttribute::setAttributeKey(const QString& key)
{
    setValue(QStringLiteral("attributeKey"), key);
    refreshProperties();
}

std::vector<store::SortDescriptor> AbstractAttribute::sortDescriptors()
{
    return {{QStringLiteral("attributeName"), true, {}}, {QStringLiteral("attributeKey"), true, {}}};
}

QString AbstractAttribute::nameForKeyOfClass(const QString& key) const
{
    return QueryAttribute::nameForKey(key);
}

void AbstractAttribute::refreshProperties()
{
    const QString key = attributeKey();
    QVariant type;
    QVariant multivalued;
    if (key == QLatin1String("*")) {
        type = kStringTypeID;
        multivalued = false;
    } else {
        const MetadataSchema& schema = MetadataSchema::current();
        std::optional<MetadataSchema::MetaAttributes> meta = schema.metaAttributes(key);
        if (!meta && !otherTagKey(key).isNull()) {
            meta = schema.metaAttributes(otherTagKey(key));
        }
        if (meta) {
            type = meta->type;
            multivalued = meta->multivalued;
        }
    }
    setPrimitiveValue(QStringLiteral("attributeType"), type);
    setPrimitiveValue(QStringLiteral("attributeIsMultivalued"), multivalued);

    QString name = nameForKeyOfClass(key);
    if (name.isEmpty()) {
        name = key.isEmpty() ? QStringLiteral("?") : key;
    }
    setAttributeName(name);
}

void AbstractAttribute::awakeFromFetch()
{
    refreshProperties();
}

void AbstractAttribute::willTurnIntoFault()
{
    setPrimitiveValue(QStringLiteral("attributeType"), {});
    setPrimitiveValue(QStringLiteral("attributeIsMultivalued"), {});
}

store::ManagedObject* AbstractAttribute::attributeWithKey(const char* entityName, const QString& key,
                                                          store::ManagedObjectContext& context)
{
    store::FetchRequest request;
    request.entityName = QString::fromLatin1(entityName);
    Result<store::Predicate> predicate = store::Predicate::format(QStringLiteral("attributeKey == %@"), {key});
    request.predicate = predicate.value();
    request.fetchLimit = 1;
    Result<std::vector<store::ManagedObject*>> found = context.execute(request);
    if (!found) {
        presentError(found.error());
        return nullptr;
    }
    if (!found->empty()) {
        return found->front();
    }
    auto* attribute = static_cast<AbstractAttribute*>(context.insertNewObject(request.entityName));
    attribute->setAttributeKey(key);
    return attribute;
}

std::vector<store::ManagedObject*> AbstractAttribute::availableAttributes(const char* entityName,
                                                                          store::ManagedObjectContext& context)
{
    store::FetchRequest request;
    request.entityName = QString::fromLatin1(entityName);
    request.sortDescriptors = sortDescriptors();
    Result<std::vector<store::ManagedObject*>> found = context.execute(request);
    if (!found) {
        TLOG(QStringLiteral("Failed to fetch available attributes: %1").arg(found.error().toString()));
        return {};
    }
    return found.value();
}

// --- QueryAttribute ---------------------------------------------------------

QueryAttribute* QueryAttribute::attributeWithKey(const QString& key, store::ManagedObjectContext& context)
{
    return static_cast<QueryAttribute*>(AbstractAttribute::attributeWithKey(kEntityName, key, context));
}

std::vector<QueryAttribute*> QueryAttribute::availableAttributesInContext(store::ManagedObjectContext& context)
{
    return typed<QueryAttribute>(availableAttributes(kEntityName, context));
}

QString QueryAttribute::nameForKey(const QString& key)
{
    const QString fromTable = localizedFromTable("Attributes", key);
    if (!fromTable.isEmpty() && fromTable != key) {
        return fromTable;
    }
    const MetadataSchema& schema = MetadataSchema::current();
    QString name = schema.displayName(key);
    if (name.isNull() && !otherTagKey(key).isNull()) {
        name = schema.displayName(otherTagKey(key));
    }
    return name;
}

const std::vector<const RelationalOperator*>& QueryAttribute::applicableOperators() const
{
    static const std::vector<const RelationalOperator*> none;
    static const std::vector<const RelationalOperator*> isOnly{RelationalOperator::isOperator()};
    static const std::vector<const RelationalOperator*> sizeOperators{RelationalOperator::lessThanOperator(),
                                                                      RelationalOperator::greaterThanOperator()};
    const QString key = attributeKey();
    if (isStringType()) {
        if (key == QLatin1String("*") || key == QLatin1String("kMDItemTextContent")) {
            return RelationalOperator::contentStringOperators();
        }
        if (key == QLatin1String("kMDItemContentTypeTree")) {
            return isOnly;
        }
        return RelationalOperator::basicStringOperators();
    }
    if (isNumberType()) {
        return key == QLatin1String("kMDItemFSSize") ? sizeOperators : RelationalOperator::numberOperators();
    }
    if (isBooleanType()) {
        return RelationalOperator::booleanOperators();
    }
    if (isDateType()) {
        return RelationalOperator::dateOperators();
    }
    return none;
}

QString QueryAttribute::description() const
{
    return QStringLiteral("<QueryAttribute> %1").arg(attributeKey());
}

void QueryAttribute::valueForUndefinedKey(const QString& key) const
{
    TLOG(QStringLiteral("valueForUndefinedKey: %1").arg(key));
}

// --- ColumnAttribute --------------------------------------------------------

void ColumnAttribute::setPropertiesChooser(PropertiesChooser chooser)
{
    propertiesChooser() = std::move(chooser);
}

ColumnAttribute* ColumnAttribute::attributeWithKey(const QString& key, store::ManagedObjectContext& context)
{
    return static_cast<ColumnAttribute*>(AbstractAttribute::attributeWithKey(kEntityName, key, context));
}

std::vector<ColumnAttribute*> ColumnAttribute::availableAttributesInContext(store::ManagedObjectContext& context)
{
    return typed<ColumnAttribute>(availableAttributes(kEntityName, context));
}

const QVariantMap& ColumnAttribute::customColumnAttributes()
{
    if (!customColumnsCache()) {
        QVariantMap columns = QJsonDocument::fromJson(QByteArray(kColumnsResource))
                                  .object()
                                  .value(QStringLiteral("columns"))
                                  .toObject()
                                  .toVariantMap();
        const QVariantMap user = Defaults::shared().value(QStringLiteral("customColumnAttributes")).toMap();
        for (auto it = user.begin(); it != user.end(); ++it) {
            columns.insert(it.key(), it.value());
        }
        customColumnsCache() = std::move(columns);
    }
    return *customColumnsCache();
}

void ColumnAttribute::resetCustomColumnAttributesForTesting()
{
    customColumnsCache().reset();
}

QString ColumnAttribute::customFormatterNameForKey(const QString& key)
{
    const QVariant description = customColumnAttributes().value(key);
    if (!description.isValid()) {
        return {};
    }
    return description.toMap().value(QStringLiteral("formatter")).toString();
}

void ColumnAttribute::primeContext(store::ManagedObjectContext& context)
{
    for (const char* key : {"kMDItemDisplayName", "kMDItemKind", "kMDItemContentCreationDate", "kMDItemPath",
                            "kMDItemContentModificationDate", "kMDItemFSSize", "kMDItemFSLabel"}) {
        attributeWithKey(QString::fromLatin1(key), context);
    }
}

void ColumnAttribute::refreshProperties()
{
    AbstractAttribute::refreshProperties();
    m_formatter.reset();
    m_sortDescriptorPrototype = {};
    if (propertiesChooser()) {
        propertiesChooser()(*this);
    }
}

// --- LimitAttribute ---------------------------------------------------------

LimitAttribute* LimitAttribute::attributeWithKey(const QString& key, store::ManagedObjectContext& context)
{
    return static_cast<LimitAttribute*>(AbstractAttribute::attributeWithKey(kEntityName, key, context));
}

std::vector<LimitAttribute*> LimitAttribute::availableAttributesInContext(store::ManagedObjectContext& context)
{
    return typed<LimitAttribute>(availableAttributes(kEntityName, context));
}

QString LimitAttribute::nameForKey(const QString& key)
{
    const QString fromTable = localizedFromTable("LimitAttributes", key);
    if (!fromTable.isEmpty() && fromTable != key) {
        return fromTable;
    }
    return QueryAttribute::nameForKey(key);
}

void LimitAttribute::primeContext(store::ManagedObjectContext& context)
{
    for (const char* key : {"kMDItemLastUsedDate", "kMDItemContentCreationDate", "kMDItemContentModificationDate"}) {
        attributeWithKey(QString::fromLatin1(key), context);
    }
}

}  // namespace trovara::model
