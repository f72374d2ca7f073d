#include "model/metadata_schema.h"

namespace trovara::model {

namespace {

const MetadataSchema*& installed()
{
    static const MetadataSchema* schema = nullptr;
    return schema;
}

int typeIdFor(index::ValueType type)
{
    switch (type) {
    case index::ValueType::String:
        return kStringTypeID;
    case index::ValueType::Number:
        return kNumberTypeID;
    case index::ValueType::Boolean:
        return kBooleanTypeID;
    case index::ValueType::Date:
        return kDateTypeID;
    }
    return 0;
}

}  // namespace

MetadataSchema::MetadataSchema(const index::Schema& schema)
    : m_schema(schema)
{
}

const MetadataSchema& MetadataSchema::current()
{
    static const MetadataSchema builtin(index::Schema::builtin());
    return installed() ? *installed() : builtin;
}

MetadataSchema::Override::Override(const index::Schema& schema)
    : m_schema(std::make_unique<MetadataSchema>(schema))
    , m_previous(installed())
{
    installed() = m_schema.get();
}

MetadataSchema::Override::~Override()
{
    installed() = m_previous;
}

std::optional<MetadataSchema::MetaAttributes> MetadataSchema::metaAttributes(const QString& key) const
{
    const index::AttributeInfo* info = m_schema.find(key.toStdString());
    if (!info) {
        return std::nullopt;
    }
    return MetaAttributes{typeIdFor(info->type), info->multivalued};
}

QString MetadataSchema::displayName(const QString& key) const
{
    const index::AttributeInfo* info = m_schema.find(key.toStdString());
    return info && !info->displayName.empty() ? QString::fromStdString(info->displayName) : QString();
}

QString MetadataSchema::displayDescription(const QString& key) const
{
    const index::AttributeInfo* info = m_schema.find(key.toStdString());
    return info ? QString::fromStdString(info->description) : QString();
}

QStringList MetadataSchema::allAttributes() const
{
    QStringList keys;
    for (const index::AttributeInfo& info : m_schema.attributes()) {
        keys << QString::fromStdString(info.key);
    }
    return keys;
}

}  // namespace trovara::model
