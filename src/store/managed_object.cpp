#include "store/managed_object.h"

#include "store/entity_description.h"
#include "store/managed_object_context.h"

#include <QDateTime>
#include <QStringList>

namespace trovara::store {

ManagedObject::~ManagedObject() = default;

QVariant ManagedObject::value(const QString& key) const
{
    if (!m_entity->attribute(key)) {
        valueForUndefinedKey(key);
        return {};
    }
    return m_values.value(key);
}

void ManagedObject::setValue(const QString& key, const QVariant& value)
{
    m_context->changeValue(this, key, value);
}

void ManagedObject::setPrimitiveValue(const QString& key, const QVariant& value)
{
    m_values.insert(key, value);
}

ManagedObject* ManagedObject::object(const QString& key) const
{
    return m_toOne.value(key, nullptr);
}

void ManagedObject::setObject(const QString& key, ManagedObject* destination)
{
    m_context->changeRelationship(this, key, destination);
}

const std::vector<ManagedObject*>& ManagedObject::objects(const QString& key) const
{
    static const std::vector<ManagedObject*> none;
    auto it = m_toMany.constFind(key);
    return it == m_toMany.constEnd() ? none : it.value();
}

void ManagedObject::addObject(const QString& key, ManagedObject* destination)
{
    const RelationshipDescription* relationship = m_entity->relationship(key);
    if (!relationship || !relationship->isToMany || !destination) {
        return;
    }
    destination->setObject(relationship->inverseName, this);
}

void ManagedObject::removeObject(const QString& key, ManagedObject* destination)
{
    const RelationshipDescription* relationship = m_entity->relationship(key);
    if (!relationship || !relationship->isToMany || !destination) {
        return;
    }
    if (destination->object(relationship->inverseName) == this) {
        destination->setObject(relationship->inverseName, nullptr);
    }
}

QVariant ManagedObject::valueForKeyPath(const QString& keyPath) const
{
    const ManagedObject* object = this;
    const QStringList keys = keyPath.split(QLatin1Char('.'));
    for (int i = 0; i < keys.size(); ++i) {
        const QString& key = keys[i];
        const bool last = i == keys.size() - 1;
        if (const RelationshipDescription* relationship = object->m_entity->relationship(key)) {
            if (relationship->isToMany) {
                if (!last) {
                    return {};
                }
                QVariantList list;
                for (ManagedObject* member : object->objects(key)) {
                    list << QVariant::fromValue(member);
                }
                return list;
            }
            ManagedObject* destination = object->object(key);
            if (last) {
                return destination ? QVariant::fromValue(destination) : QVariant();
            }
            if (!destination) {
                return {};
            }
            object = destination;
            continue;
        }
        if (!last) {
            return {};
        }
        return object->value(key);
    }
    return {};
}

QString ManagedObject::description() const
{
    QStringList parts;
    for (const AttributeDescription& attribute : m_entity->attributes()) {
        const QVariant value = m_values.value(attribute.name);
        QString text = QStringLiteral("nil");
        if (value.isValid()) {
            text = value.metaType().id() == QMetaType::QDateTime ? value.toDateTime().toString(Qt::ISODate)
                                                                 : value.toString();
        }
        parts << attribute.name + QStringLiteral(" = ") + text;
    }
    for (const RelationshipDescription& relationship : m_entity->relationships()) {
        if (relationship.isToMany) {
            parts << relationship.name + QStringLiteral(" = %1 objects").arg(objects(relationship.name).size());
        } else if (ManagedObject* destination = object(relationship.name)) {
            parts << relationship.name + QStringLiteral(" = #%1").arg(destination->objectId());
        }
    }
    return QStringLiteral("<%1 #%2%3> {%4}")
        .arg(m_entity->name())
        .arg(m_objectId)
        .arg(m_deleted ? QStringLiteral(" deleted") : QString())
        .arg(parts.join(QStringLiteral("; ")));
}

void ManagedObject::valueForUndefinedKey(const QString& key) const
{
    qWarning("%s has no key %s", qPrintable(m_entity->name()), qPrintable(key));
}

}  // namespace trovara::store
