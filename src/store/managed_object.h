// One object of a persistent object graph.
//
// A ManagedObject belongs to exactly one ManagedObjectContext, which owns it
// for the context's whole life (a deleted object stays valid, marked deleted,
// so that undo can bring it back). Its values are read and written by key;
// the entity classes of the query model wrap these in typed accessors.
//
// Every change goes through the context: it is recorded for the change
// notification, registered with the undo manager, and, for relationships,
// mirrored on the inverse side. A to-many relationship is changed by setting
// its to-one inverse; addObject()/removeObject() do exactly that.
//
// Not thread-safe: an object graph lives on the thread of its context.
#pragma once

#include <QHash>
#include <QMetaType>
#include <QString>
#include <QVariant>

#include <vector>

namespace trovara::store {

class EntityDescription;
class ManagedObjectContext;

class ManagedObject {
public:
    ManagedObject() = default;
    virtual ~ManagedObject();
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    const EntityDescription& entity() const { return *m_entity; }
    ManagedObjectContext* managedObjectContext() const { return m_context; }
    // Unique within the context, stable across save and load.
    qint64 objectId() const { return m_objectId; }

    bool isInserted() const { return m_inserted; }
    bool isDeleted() const { return m_deleted; }

    // Attributes. An invalid QVariant means "none". Reading an unknown key
    // gives none (and valueForUndefinedKey() is told).
    QVariant value(const QString& key) const;
    void setValue(const QString& key, const QVariant& value);

    // To-one relationships.
    ManagedObject* object(const QString& key) const;
    void setObject(const QString& key, ManagedObject* destination);

    // To-many relationships: an unordered set, listed in the order the
    // members joined it.
    const std::vector<ManagedObject*>& objects(const QString& key) const;
    void addObject(const QString& key, ManagedObject* destination);
    void removeObject(const QString& key, ManagedObject* destination);

    // Attribute value, or the destination object(s) of a relationship wrapped
    // in a QVariant; a dotted path follows to-one relationships.
    QVariant valueForKeyPath(const QString& keyPath) const;

    // "<Entity> #id" followed by the attributes, for logs and test failures.
    virtual QString description() const;

protected:
    // Called once when the object is first inserted into a context, with
    // undo registration as the caller left it.
    virtual void awakeFromInsert() {}
    // Called after the object was read from a store, with all relationships
    // resolved.
    virtual void awakeFromFetch() {}
    // Called before the object's transient state is dropped (when it is
    // deleted for good or its context goes away).
    virtual void willTurnIntoFault() {}
    // A key that is neither an attribute nor a relationship was read.
    virtual void valueForUndefinedKey(const QString& key) const;

    // Attribute storage without undo, change tracking or validation: for
    // transient values that an object computes itself.
    void setPrimitiveValue(const QString& key, const QVariant& value);

private:
    friend class ManagedObjectContext;
    friend class SqliteStore;

    const EntityDescription* m_entity = nullptr;
    ManagedObjectContext* m_context = nullptr;
    qint64 m_objectId = 0;
    bool m_inserted = false;
    bool m_deleted = false;
    QHash<QString, QVariant> m_values;
    QHash<QString, ManagedObject*> m_toOne;
    QHash<QString, std::vector<ManagedObject*>> m_toMany;
};

// dynamic_cast with a name that reads well at call sites.
template <typename T>
T* object_cast(ManagedObject* object)
{
    return dynamic_cast<T*>(object);
}

template <typename T>
const T* object_cast(const ManagedObject* object)
{
    return dynamic_cast<const T*>(object);
}

}  // namespace trovara::store

Q_DECLARE_METATYPE(trovara::store::ManagedObject*)
