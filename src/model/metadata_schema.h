// What the query model asks of the metadata schema: per attribute key a
// value type, a multi-value flag, a display name and a description. It reads
// the index's own schema; tests can put another schema in its place.
#pragma once

#include "index/schema.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace trovara::model {

// The type identifiers of the four value types an attribute can have.
enum AttributeTypeID : int {
    kStringTypeID = 1,
    kNumberTypeID = 2,
    kBooleanTypeID = 3,
    kDateTypeID = 4,
};

class MetadataSchema {
public:
    struct MetaAttributes {
        int type = 0;  // one of AttributeTypeID
        bool multivalued = false;
    };

    explicit MetadataSchema(const index::Schema& schema);

    // The schema in use: the index's built-in one unless a test replaced it.
    static const MetadataSchema& current();
    // Replaces the schema in use for the life of the object (tests).
    class Override {
    public:
        explicit Override(const index::Schema& schema);
        ~Override();
        Override(const Override&) = delete;
        Override& operator=(const Override&) = delete;

    private:
        std::unique_ptr<MetadataSchema> m_schema;
        const MetadataSchema* m_previous;
    };

    // None when the schema does not know the key.
    std::optional<MetaAttributes> metaAttributes(const QString& key) const;
    // Null when the schema has no name for the key.
    QString displayName(const QString& key) const;
    QString displayDescription(const QString& key) const;
    QStringList allAttributes() const;

private:
    const index::Schema& m_schema;
};

}  // namespace trovara::model
