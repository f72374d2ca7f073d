// A named piece of document-level data (the run state, the result view, the
// sort order, the filter): a key and a value of bytes.
#pragma once

#include "store/managed_object.h"
#include "store/managed_object_context.h"

#include <QByteArray>

namespace trovara::model {

class MetaAttribute final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "MetaAttribute";

    QString attributeKey() const { return value(QStringLiteral("attributeKey")).toString(); }
    void setAttributeKey(const QString& key) { setValue(QStringLiteral("attributeKey"), key); }
    QVariant attributeValue() const { return value(QStringLiteral("attributeValue")); }
    void setAttributeValue(const QByteArray& bytes) { setValue(QStringLiteral("attributeValue"), bytes); }

    // The first entry with the key; when there is none and `create` is set,
    // a new entry with that key. A failed fetch is presented and gives
    // nullptr.
    static MetaAttribute* metaAttributeWithKey(const QString& key, store::ManagedObjectContext& context,
                                               bool create = true);
};

}  // namespace trovara::model
