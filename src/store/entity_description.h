// The description of a persistent object graph: entities with their
// attributes and relationships, and the model that groups them under a
// version identifier.
//
// A ManagedObjectModel is immutable once built and validated; contexts share
// it through a shared pointer. Invariants checked by validate():
//  - every relationship names an existing destination entity and an inverse
//    that points back, with matching destinations;
//  - of a relationship and its inverse, exactly one is to-many (so that every
//    change of a relationship is the setting of one to-one side);
//  - a super-entity exists, and names are unique along the inheritance chain.
#pragma once

#include "common/error.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>
#include <vector>

namespace trovara::store {

class ManagedObject;

enum class AttributeType {
    String,
    Integer,  // 64-bit integer
    Double,
    Number,   // an integer or a floating-point number, kept as given
    Boolean,
    Date,     // QDateTime; stored as seconds since 2001-01-01 00:00:00 UTC
    Binary,   // QByteArray
};

struct AttributeDescription {
    QString name;
    AttributeType type = AttributeType::String;
    // A transient attribute lives in memory only: it is never saved and is
    // recomputed by the object (for instance when it is loaded).
    bool isTransient = false;
    // The value a new object starts with; an invalid QVariant means none.
    QVariant defaultValue;
};

enum class DeleteRule {
    Nullify,  // the destination stays; it only forgets this object
    Cascade,  // the destination is deleted with this object
};

struct RelationshipDescription {
    QString name;
    QString destinationEntity;
    QString inverseName;
    bool isToMany = false;
    DeleteRule deleteRule = DeleteRule::Nullify;
};

class EntityDescription {
public:
    using Factory = std::function<std::unique_ptr<ManagedObject>()>;

    EntityDescription(QString name, QString superentityName, bool isAbstract, Factory factory,
                      std::vector<AttributeDescription> attributes,
                      std::vector<RelationshipDescription> relationships);

    const QString& name() const { return m_name; }
    const QString& superentityName() const { return m_superentityName; }
    bool isAbstract() const { return m_isAbstract; }

    // Resolved by the model when it is built.
    const EntityDescription* superentity() const { return m_superentity; }
    const EntityDescription& rootEntity() const;
    const std::vector<const EntityDescription*>& subentities() const { return m_subentities; }

    // Own and inherited, super-entity first.
    const std::vector<AttributeDescription>& attributes() const { return m_allAttributes; }
    const std::vector<RelationshipDescription>& relationships() const { return m_allRelationships; }
    const AttributeDescription* attribute(const QString& name) const;
    const RelationshipDescription* relationship(const QString& name) const;

    // This entity or one of its descendants.
    bool isKindOf(const EntityDescription& other) const;

    std::unique_ptr<ManagedObject> instantiate() const;

private:
    friend class ManagedObjectModel;

    QString m_name;
    QString m_superentityName;
    bool m_isAbstract;
    Factory m_factory;
    std::vector<AttributeDescription> m_ownAttributes;
    std::vector<RelationshipDescription> m_ownRelationships;

    const EntityDescription* m_superentity = nullptr;
    std::vector<const EntityDescription*> m_subentities;
    std::vector<AttributeDescription> m_allAttributes;
    std::vector<RelationshipDescription> m_allRelationships;
};

class ManagedObjectModel {
public:
    // Builds and validates the model; a model that does not validate is a
    // programming error and is reported through the Result.
    static Result<std::shared_ptr<const ManagedObjectModel>> create(QString versionIdentifier,
                                                                    std::vector<EntityDescription> entities);

    const QString& versionIdentifier() const { return m_versionIdentifier; }
    const std::vector<std::unique_ptr<EntityDescription>>& entities() const { return m_entities; }
    const EntityDescription* entity(const QString& name) const;

    // A digest of everything that decides the stored form (entities, their
    // persistent attributes with types, relationships): two models with the
    // same hash read and write the same files.
    QByteArray versionHash() const;

private:
    ManagedObjectModel() = default;
    Status resolve();

    QString m_versionIdentifier;
    std::vector<std::unique_ptr<EntityDescription>> m_entities;
};

}  // namespace trovara::store
