#include "store/entity_description.h"

#include "store/managed_object.h"

#include <QCryptographicHash>

namespace trovara::store {

EntityDescription::EntityDescription(QString name, QString superentityName, bool isAbstract, Factory factory,
                                     std::vector<AttributeDescription> attributes,
                                     std::vector<RelationshipDescription> relationships)
    : m_name(std::move(name))
    , m_superentityName(std::move(superentityName))
    , m_isAbstract(isAbstract)
    , m_factory(std::move(factory))
    , m_ownAttributes(std::move(attributes))
    , m_ownRelationships(std::move(relationships))
{
}

const EntityDescription& EntityDescription::rootEntity() const
{
    const EntityDescription* entity = this;
    while (entity->m_superentity) {
        entity = entity->m_superentity;
    }
    return *entity;
}

const AttributeDescription* EntityDescription::attribute(const QString& name) const
{
    for (const AttributeDescription& attribute : m_allAttributes) {
        if (attribute.name == name) {
            return &attribute;
        }
    }
    return nullptr;
}

const RelationshipDescription* EntityDescription::relationship(const QString& name) const
{
    for (const RelationshipDescription& relationship : m_allRelationships) {
        if (relationship.name == name) {
            return &relationship;
        }
    }
    return nullptr;
}

bool EntityDescription::isKindOf(const EntityDescription& other) const
{
    for (const EntityDescription* entity = this; entity; entity = entity->m_superentity) {
        if (entity == &other) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<ManagedObject> EntityDescription::instantiate() const
{
    return m_factory ? m_factory() : std::make_unique<ManagedObject>();
}

Result<std::shared_ptr<const ManagedObjectModel>> ManagedObjectModel::create(QString versionIdentifier,
                                                                             std::vector<EntityDescription> entities)
{
    std::shared_ptr<ManagedObjectModel> model(new ManagedObjectModel);
    model->m_versionIdentifier = std::move(versionIdentifier);
    for (EntityDescription& entity : entities) {
        model->m_entities.push_back(std::make_unique<EntityDescription>(std::move(entity)));
    }
    if (Status status = model->resolve(); !status) {
        return status.error();
    }
    return std::shared_ptr<const ManagedObjectModel>(std::move(model));
}

const EntityDescription* ManagedObjectModel::entity(const QString& name) const
{
    for (const auto& entity : m_entities) {
        if (entity->name() == name) {
            return entity.get();
        }
    }
    return nullptr;
}

Status ManagedObjectModel::resolve()
{
    auto invalid = [](const QString& reason) {
        return Error::make(Error::kValidationError, QStringLiteral("The object model is invalid."), reason);
    };
    for (const auto& entity : m_entities) {
        if (entity->m_superentityName.isEmpty()) {
            continue;
        }
        EntityDescription* super = nullptr;
        for (const auto& candidate : m_entities) {
            if (candidate->name() == entity->m_superentityName) {
                super = candidate.get();
            }
        }
        if (!super) {
            return invalid(QStringLiteral("%1 names an unknown super-entity %2").arg(entity->name(),
                                                                                   entity->m_superentityName));
        }
        entity->m_superentity = super;
        super->m_subentities.push_back(entity.get());
    }
    // Inherited members, super-entity first.
    for (const auto& entity : m_entities) {
        std::vector<const EntityDescription*> chain;
        for (const EntityDescription* e = entity.get(); e; e = e->m_superentity) {
            chain.insert(chain.begin(), e);
            if (chain.size() > m_entities.size()) {
                return invalid(QStringLiteral("%1 inherits from itself").arg(entity->name()));
            }
        }
        for (const EntityDescription* e : chain) {
            for (const AttributeDescription& attribute : e->m_ownAttributes) {
                if (entity->attribute(attribute.name) || entity->relationship(attribute.name)) {
                    return invalid(QStringLiteral("%1.%2 is declared twice").arg(entity->name(), attribute.name));
                }
                entity->m_allAttributes.push_back(attribute);
            }
            for (const RelationshipDescription& relationship : e->m_ownRelationships) {
                if (entity->attribute(relationship.name) || entity->relationship(relationship.name)) {
                    return invalid(QStringLiteral("%1.%2 is declared twice").arg(entity->name(), relationship.name));
                }
                entity->m_allRelationships.push_back(relationship);
            }
        }
    }
    for (const auto& entity : m_entities) {
        for (const RelationshipDescription& relationship : entity->m_ownRelationships) {
            const EntityDescription* destination = this->entity(relationship.destinationEntity);
            if (!destination) {
                return invalid(QStringLiteral("%1.%2 points to an unknown entity %3")
                                   .arg(entity->name(), relationship.name, relationship.destinationEntity));
            }
            const RelationshipDescription* inverse = destination->relationship(relationship.inverseName);
            const EntityDescription* inverseDestination = inverse ? this->entity(inverse->destinationEntity) : nullptr;
            if (!inverse || inverse->inverseName != relationship.name || !inverseDestination
                || !entity->isKindOf(*inverseDestination)) {
                return invalid(QStringLiteral("%1.%2 has no matching inverse").arg(entity->name(), relationship.name));
            }
            if (relationship.isToMany == inverse->isToMany) {
                return invalid(QStringLiteral("%1.%2 and its inverse must be one to-one and one to-many")
                                   .arg(entity->name(), relationship.name));
            }
        }
    }
    return {};
}

QByteArray ManagedObjectModel::versionHash() const
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const auto& entity : m_entities) {
        hash.addData(QByteArrayView(entity->name().toUtf8()));
        hash.addData(QByteArrayView(entity->superentityName().toUtf8()));
        for (const AttributeDescription& attribute : entity->m_ownAttributes) {
            if (attribute.isTransient) {
                continue;
            }
            hash.addData(QByteArrayView(attribute.name.toUtf8()));
            hash.addData(QByteArray::number(static_cast<int>(attribute.type)));
        }
        for (const RelationshipDescription& relationship : entity->m_ownRelationships) {
            hash.addData(QByteArrayView(relationship.name.toUtf8()));
            hash.addData(QByteArrayView(relationship.destinationEntity.toUtf8()));
            hash.addData(QByteArray(relationship.isToMany ? "*" : "1"));
        }
    }
    return hash.result().toHex();
}

}  // namespace trovara::store
