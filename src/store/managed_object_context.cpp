#include "store/managed_object_context.h"

#include "common/variant_kind.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>

namespace trovara::store {

QVariant normalizedValue(const QVariant& value, AttributeType type)
{
    if (!isNumericVariant(value)) {
        return value;
    }
    const bool isBool = value.metaType().id() == QMetaType::Bool;
    switch (type) {
    case AttributeType::Integer:
        return QVariant::fromValue<qint64>(value.toLongLong());
    case AttributeType::Double:
        return value.toDouble();
    case AttributeType::Number:
        if (isBool) {
            return value;
        }
        return isFloatingVariant(value) ? QVariant(value.toDouble()) : QVariant::fromValue<qint64>(value.toLongLong());
    case AttributeType::Boolean:
        // A Boolean is kept as given when it is not 0 or 1, so that an odd
        // value reads back as it was written.
        if (isBool) {
            return value;
        }
        if (!isFloatingVariant(value) && (value.toLongLong() == 0 || value.toLongLong() == 1)) {
            return value.toLongLong() == 1;
        }
        return isFloatingVariant(value) ? QVariant(value.toDouble()) : QVariant::fromValue<qint64>(value.toLongLong());
    default:
        return value;
    }
}

namespace {

bool sameValue(const QVariant& a, const QVariant& b)
{
    if (a.isValid() != b.isValid()) {
        return false;
    }
    return !a.isValid() || (a.metaType() == b.metaType() && a == b);
}

QList<ManagedObject*> sortedById(const QSet<ManagedObject*>& set)
{
    QList<ManagedObject*> list(set.begin(), set.end());
    std::sort(list.begin(), list.end(),
              [](const ManagedObject* a, const ManagedObject* b) { return a->objectId() < b->objectId(); });
    return list;
}

}  // namespace

AbstractClassException::AbstractClassException(const QString& entityName)
    : std::logic_error(QStringLiteral("Error, attempting to instantiate %1 directly.").arg(entityName).toStdString())
{
}

ManagedObjectContext::ManagedObjectContext(std::shared_ptr<const ManagedObjectModel> model, QObject* parent)
    : QObject(parent)
    , m_model(std::move(model))
{
    qRegisterMetaType<trovara::store::ObjectChanges>();
}

ManagedObjectContext::~ManagedObjectContext()
{
    for (auto& [id, object] : m_objects) {
        object->willTurnIntoFault();
    }
}

ManagedObject* ManagedObjectContext::insertNewObject(const QString& entityName)
{
    const EntityDescription* entity = m_model->entity(entityName);
    if (!entity || entity->isAbstract()) {
        throw AbstractClassException(entityName);
    }
    ManagedObject* object = adopt(entity->instantiate(), *entity, m_nextId);
    for (const AttributeDescription& attribute : entity->attributes()) {
        if (attribute.defaultValue.isValid()) {
            object->m_values.insert(attribute.name, normalizedValue(attribute.defaultValue, attribute.type));
        }
    }
    object->m_inserted = true;
    m_pendingInserted.insert(object);
    m_hasChanges = true;
    // Undoing an insertion takes the object out of the graph again.
    m_undoManager.registerUndo([this, object] { markDeleted(object); });
    schedulePendingChanges();
    object->awakeFromInsert();
    return object;
}

ManagedObject* ManagedObjectContext::adopt(std::unique_ptr<ManagedObject> object, const EntityDescription& entity,
                                           qint64 objectId)
{
    object->m_entity = &entity;
    object->m_context = this;
    object->m_objectId = objectId;
    m_nextId = std::max(m_nextId, objectId + 1);
    ManagedObject* raw = object.get();
    m_objects.emplace(objectId, std::move(object));
    return raw;
}

void ManagedObjectContext::deleteObject(ManagedObject* object)
{
    if (!object || object->m_deleted || object->m_context != this) {
        return;
    }
    // Mark first so that cascades that come back here stop.
    object->m_deleted = true;
    for (const RelationshipDescription& relationship : object->entity().relationships()) {
        if (relationship.isToMany) {
            const std::vector<ManagedObject*> members = object->objects(relationship.name);
            for (ManagedObject* member : members) {
                member->setObject(relationship.inverseName, nullptr);
                if (relationship.deleteRule == DeleteRule::Cascade) {
                    deleteObject(member);
                }
            }
        } else if (ManagedObject* destination = object->object(relationship.name)) {
            object->setObject(relationship.name, nullptr);
            if (relationship.deleteRule == DeleteRule::Cascade) {
                deleteObject(destination);
            }
        }
    }
    markDeleted(object);
}

void ManagedObjectContext::markDeleted(ManagedObject* object)
{
    object->m_deleted = true;
    m_pendingUpdated.remove(object);
    if (!m_pendingInserted.remove(object)) {
        m_pendingDeleted.insert(object);
    }
    m_hasChanges = true;
    m_undoManager.registerUndo([this, object] { undelete(object); });
    schedulePendingChanges();
}

void ManagedObjectContext::undelete(ManagedObject* object)
{
    object->m_deleted = false;
    if (!m_pendingDeleted.remove(object)) {
        m_pendingInserted.insert(object);
    }
    m_hasChanges = true;
    m_undoManager.registerUndo([this, object] { markDeleted(object); });
    schedulePendingChanges();
}

void ManagedObjectContext::changeValue(ManagedObject* object, const QString& key, const QVariant& newValue)
{
    if (!object->entity().attribute(key)) {
        object->valueForUndefinedKey(key);
        return;
    }
    const QVariant old = object->m_values.value(key);
    const QVariant value = normalizedValue(newValue, object->entity().attribute(key)->type);
    if (sameValue(old, value)) {
        return;
    }
    if (value.isValid()) {
        object->m_values.insert(key, value);
    } else {
        object->m_values.remove(key);
    }
    m_undoManager.registerUndo([object, key, old] { object->setValue(key, old); });
    markUpdated(object);
}

void ManagedObjectContext::changeRelationship(ManagedObject* object, const QString& key, ManagedObject* destination)
{
    const RelationshipDescription* relationship = object->entity().relationship(key);
    if (!relationship) {
        object->valueForUndefinedKey(key);
        return;
    }
    if (relationship->isToMany) {
        qWarning("%s.%s is to-many; change it through its inverse", qPrintable(object->entity().name()),
                 qPrintable(key));
        return;
    }
    ManagedObject* old = object->m_toOne.value(key, nullptr);
    if (old == destination) {
        return;
    }
    const QString& inverse = relationship->inverseName;
    if (old) {
        std::vector<ManagedObject*>& members = old->m_toMany[inverse];
        members.erase(std::remove(members.begin(), members.end(), object), members.end());
        markUpdated(old);
    }
    if (destination) {
        destination->m_toMany[inverse].push_back(object);
        object->m_toOne.insert(key, destination);
        markUpdated(destination);
    } else {
        object->m_toOne.remove(key);
    }
    m_undoManager.registerUndo([object, key, old] { object->setObject(key, old); });
    markUpdated(object);
}

void ManagedObjectContext::markUpdated(ManagedObject* object)
{
    m_hasChanges = true;
    if (!object->m_deleted && !m_pendingInserted.contains(object)) {
        m_pendingUpdated.insert(object);
    }
    schedulePendingChanges();
}

void ManagedObjectContext::schedulePendingChanges()
{
    if (!m_automatic || m_scheduled || !QCoreApplication::instance()) {
        return;
    }
    m_scheduled = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_scheduled = false;
            processPendingChanges();
        },
        Qt::QueuedConnection);
}

void ManagedObjectContext::processPendingChanges()
{
    m_undoManager.closeImplicitGroup();
    if (m_pendingInserted.isEmpty() && m_pendingUpdated.isEmpty() && m_pendingDeleted.isEmpty()) {
        return;
    }
    ObjectChanges changes;
    changes.inserted = sortedById(m_pendingInserted);
    changes.updated = sortedById(m_pendingUpdated);
    changes.deleted = sortedById(m_pendingDeleted);
    m_pendingInserted.clear();
    m_pendingUpdated.clear();
    m_pendingDeleted.clear();
    emit objectsDidChange(changes);
}

void ManagedObjectContext::undo()
{
    processPendingChanges();
    m_undoManager.undo();
    processPendingChanges();
}

void ManagedObjectContext::redo()
{
    processPendingChanges();
    m_undoManager.redo();
    processPendingChanges();
}

Result<std::vector<ManagedObject*>> ManagedObjectContext::execute(const FetchRequest& request) const
{
    const EntityDescription* entity = m_model->entity(request.entityName);
    if (!entity) {
        return Error::make(Error::kFetchError, QStringLiteral("The document could not be read."),
                           QStringLiteral("Unknown entity %1").arg(request.entityName));
    }
    for (const EntityDescription* e = entity; e; e = e->superentity()) {
        auto injected = m_injectedFailures.find(e->name());
        if (injected != m_injectedFailures.end()) {
            return injected->second;
        }
    }
    if (Status valid = request.predicate.validateFor(*entity); !valid) {
        return valid.error();
    }
    std::vector<ManagedObject*> found;
    for (const auto& [id, object] : m_objects) {
        if (object->m_deleted) {
            continue;
        }
        const bool kind = request.includesSubentities ? object->entity().isKindOf(*entity)
                                                      : &object->entity() == entity;
        if (kind && request.predicate.evaluate(*object)) {
            found.push_back(object.get());
        }
    }
    if (!request.sortDescriptors.empty()) {
        std::stable_sort(found.begin(), found.end(), [&](const ManagedObject* a, const ManagedObject* b) {
            for (const SortDescriptor& sort : request.sortDescriptors) {
                const QVariant x = a->valueForKeyPath(sort.keyPath);
                const QVariant y = b->valueForKeyPath(sort.keyPath);
                int c = sort.comparator ? sort.comparator(x, y) : compareValues(x, y);
                if (!sort.ascending) {
                    c = -c;
                }
                if (c != 0) {
                    return c < 0;
                }
            }
            return false;
        });
    }
    if (request.fetchLimit > 0 && found.size() > static_cast<std::size_t>(request.fetchLimit)) {
        found.resize(static_cast<std::size_t>(request.fetchLimit));
    }
    return found;
}

std::vector<ManagedObject*> ManagedObjectContext::registeredObjects() const
{
    std::vector<ManagedObject*> objects;
    for (const auto& [id, object] : m_objects) {
        if (!object->m_deleted) {
            objects.push_back(object.get());
        }
    }
    return objects;
}

ManagedObject* ManagedObjectContext::objectWithId(qint64 objectId) const
{
    auto it = m_objects.find(objectId);
    return it == m_objects.end() || it->second->m_deleted ? nullptr : it->second.get();
}

void ManagedObjectContext::injectFetchFailure(const QString& entityName, const Error& error)
{
    m_injectedFailures[entityName] = error;
}

}  // namespace trovara::store
