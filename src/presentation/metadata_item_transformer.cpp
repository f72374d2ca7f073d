#include "presentation/metadata_item_transformer.h"

#include "common/log.h"
#include "model/abstract_attribute.h"
#include "model/localization.h"
#include "model/metadata_schema.h"
#include "model/value_text.h"
#include "presentation/metadata_value.h"
#include "presentation/text_format.h"

#include <algorithm>

namespace trovara::presentation {

namespace {

const QString kKey = QStringLiteral("key");
const QString kLabel = QStringLiteral("label");
const QString kValue = QStringLiteral("value");

bool isList(const QVariant& value)
{
    return value.metaType() == QMetaType::fromType<QVariantList>()
           || value.metaType() == QMetaType::fromType<QStringList>();
}

}  // namespace

const MetaDataItemTransformer* MetaDataItemTransformer::sharedInstance()
{
    static const MetaDataItemTransformer instance;
    return &instance;
}

MetaDataItemTransformer::MetaDataItemTransformer()
    : m_stringTypeID(model::AbstractAttribute::stringTypeID())
    , m_numberTypeID(model::AbstractAttribute::numberTypeID())
    , m_booleanTypeID(model::AbstractAttribute::booleanTypeID())
    , m_dateTypeID(model::AbstractAttribute::dateTypeID())
    , m_dateFormatter(DateStyle::Short, DateStyle::Short)
{
}

QVariantList MetaDataItemTransformer::rowsForItem(const index::ItemRef& item) const
{
    QVariantList rows;
    const model::MetadataSchema& schema = model::MetadataSchema::current();
    for (const auto& [stdKey, value] : item.attributes()) {
        const QString key = QString::fromStdString(stdKey);
        const QString label = model::QueryAttribute::nameForKey(key);
        if (label.isEmpty()) {
            continue;
        }
        const std::optional<model::MetadataSchema::MetaAttributes> meta = schema.metaAttributes(key);
        if (!meta || meta->type == 0) {
            continue;
        }
        const QString text = format(variantFromAttributeValue(value), meta->type, key);
        if (text.isNull()) {
            continue;
        }
        rows.push_back(QVariantMap{{kKey, key}, {kLabel, label}, {kValue, text}});
    }
    std::stable_sort(rows.begin(), rows.end(), [](const QVariant& a, const QVariant& b) {
        return a.toMap().value(kLabel).toString() < b.toMap().value(kLabel).toString();
    });
    return rows;
}

QVariant MetaDataItemTransformer::transformedValue(const QVariant& value) const
{
    if (value.metaType() != QMetaType::fromType<index::ItemRef>()) {
        return QVariantList();
    }
    return rowsForItem(value.value<index::ItemRef>());
}

QString MetaDataItemTransformer::format(const QVariant& value, int type, const QString& key) const
{
    if (isList(value)) {
        QString text;
        for (const QVariant& element : value.toList()) {
            const QString piece = format(element, type, key);
            if (piece.isNull()) {
                continue;
            }
            if (!text.isEmpty()) {
                text += QStringLiteral(", ");
            }
            text += piece;
        }
        return text.isEmpty() ? QString() : text;
    }
    if (!value.isValid()) {
        return {};
    }
    if (type == m_stringTypeID) {
        QString text = model::isText(value) ? value.toString() : model::descriptionOf(value);
        return text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    }
    if (type == m_numberTypeID) {
        if (key == QLatin1String("kMDItemFSSize")) {
            return stringWithFormat(QStringLiteral("%@ bytes"), {value});
        }
        return model::descriptionOf(value);
    }
    if (type == m_booleanTypeID) {
        return model::localized(model::integerValueOf(value) > 0 ? QStringLiteral("Yes") : QStringLiteral("No"));
    }
    if (type == m_dateTypeID) {
        return m_dateFormatter.stringForObjectValue(value);
    }
    TLOG(model::descriptionOf(value));
    return {};
}

const DictionaryTransformer* DictionaryTransformer::sharedInstance()
{
    static const DictionaryTransformer instance;
    return &instance;
}

QVariant DictionaryTransformer::transformedValue(const QVariant& value) const
{
    QVariantList rows;
    const QVariantMap map = value.toMap();
    for (auto it = map.begin(); it != map.end(); ++it) {
        rows.push_back(QVariantMap{{kKey, it.key()}, {kValue, it.value()}});
    }
    return rows;
}

QVariant DictionaryTransformer::reverseTransformedValue(const QVariant& value) const
{
    QVariantMap map;
    for (const QVariant& entry : value.toList()) {
        const QVariantMap row = entry.toMap();
        const QString key = row.value(kKey).toString();
        const QVariant rowValue = row.value(kValue);
        if (rowValue.isValid()) {
            map.insert(key, rowValue);
        } else {
            map.remove(key);
        }
    }
    return map;
}

void registerPresentationTransformers()
{
    // The instances live for the process: the registry only borrows them.
    const auto borrowed = [](const model::ValueTransformer* transformer) {
        return std::shared_ptr<const model::ValueTransformer>(transformer, [](const model::ValueTransformer*) {});
    };
    model::ValueTransformer::setValueTransformer(QStringLiteral("metaDataItemTransformer"),
                                                 borrowed(MetaDataItemTransformer::sharedInstance()));
    model::ValueTransformer::setValueTransformer(QStringLiteral("dictionaryTransformer"),
                                                 borrowed(DictionaryTransformer::sharedInstance()));
}

}  // namespace trovara::presentation
