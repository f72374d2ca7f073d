// The in-memory object graph of one document, with change tracking, undo and
// fetching; saved to and loaded from an SQLite file by SqliteStore.
//
// Ownership: the context owns every object it ever held (deleted objects too,
// so that undo can restore them) until the context itself is destroyed.
//
// Change notification: changes collect as pending inserted / updated /
// deleted sets; processPendingChanges() posts them as one objectsDidChange
// signal and closes the undo manager's implicit group. With a running event
// loop the context does this by itself once per turn of the loop, after the
// first change; without one, callers (and tests) call it.
//
// Not thread-safe: use a context on the thread that created it.
#pragma once

#include "common/error.h"
#include "store/entity_description.h"
#include "store/managed_object.h"
#include "store/predicate.h"
#include "store/undo_manager.h"

#include <QList>
#include <QObject>
#include <QSet>

#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

namespace trovara::store {

// Raised for programming errors only: asking to create an object of an
// abstract entity, or of an entity the model does not have.
class AbstractClassException : public std::logic_error {
public:
    explicit AbstractClassException(const QString& entityName);
    static constexpr const char* kName = "Abstract Class Exception";
};

// A value in the form objects keep for an attribute type: integers as 64-bit
// integers, doubles as doubles, numbers as either; a Boolean as true or false
// when it is 0 or 1. Anything that is not a number is kept as it is.
QVariant normalizedValue(const QVariant& value, AttributeType type);

struct ObjectChanges {
    QList<ManagedObject*> inserted;
    QList<ManagedObject*> updated;
    QList<ManagedObject*> deleted;

    bool isEmpty() const { return inserted.isEmpty() && updated.isEmpty() && deleted.isEmpty(); }

    // Whether any changed object (of any of the three lists) is a T.
    template <typename T>
    bool containsKindOf() const
    {
        for (const QList<ManagedObject*>* list : {&inserted, &updated, &deleted}) {
            for (ManagedObject* object : *list) {
                if (dynamic_cast<T*>(object)) {
                    return true;
                }
            }
        }
        return false;
    }
};

class ManagedObjectContext : public QObject {
    Q_OBJECT

public:
    explicit ManagedObjectContext(std::shared_ptr<const ManagedObjectModel> model, QObject* parent = nullptr);
    ~ManagedObjectContext() override;

    const ManagedObjectModel& model() const { return *m_model; }
    std::shared_ptr<const ManagedObjectModel> sharedModel() const { return m_model; }

    // Creates an object of the entity, applies the attribute defaults, and
    // calls its awakeFromInsert(). Throws AbstractClassException for an
    // abstract or unknown entity.
    ManagedObject* insertNewObject(const QString& entityName);
    template <typename T>
    T* insert()
    {
        return static_cast<T*>(insertNewObject(QString::fromLatin1(T::kEntityName)));
    }

    // Marks the object deleted and applies the delete rules of its
    // relationships (cascade deletes the destinations, nullify unlinks them).
    void deleteObject(ManagedObject* object);

    Result<std::vector<ManagedObject*>> execute(const FetchRequest& request) const;

    // Typed fetch: every T (sub-entities included) matching the predicate,
    // sorted, at most `limit` (0: all).
    template <typename T>
    Result<std::vector<T*>> fetch(const Predicate& predicate = {}, std::vector<SortDescriptor> sort = {},
                                  int limit = 0) const
    {
        FetchRequest request;
        request.entityName = QString::fromLatin1(T::kEntityName);
        request.predicate = predicate;
        request.sortDescriptors = std::move(sort);
        request.fetchLimit = limit;
        Result<std::vector<ManagedObject*>> found = execute(request);
        if (!found) {
            return found.error();
        }
        std::vector<T*> typed;
        typed.reserve(found->size());
        for (ManagedObject* object : *found) {
            typed.push_back(static_cast<T*>(object));
        }
        return typed;
    }

    // Every live (not deleted) object, in order of creation.
    std::vector<ManagedObject*> registeredObjects() const;
    ManagedObject* objectWithId(qint64 objectId) const;

    UndoManager& undoManager() { return m_undoManager; }
    // Undo and redo the last group, then post the resulting changes.
    void undo();
    void redo();

    // Changes since the graph was loaded, created or last marked saved.
    bool hasChanges() const { return m_hasChanges; }
    void markSaved() { m_hasChanges = false; }

    void processPendingChanges();
    // Whether a change schedules processPendingChanges() on the event loop
    // (on by default).
    void setAutomaticallyProcessesPendingChanges(bool automatic) { m_automatic = automatic; }

    // Test hook for the error paths of callers: every fetch of the entity
    // (or of one of its super-entities) fails with this error until cleared.
    void injectFetchFailure(const QString& entityName, const Error& error);
    void clearInjectedFetchFailures() { m_injectedFailures.clear(); }

signals:
    void objectsDidChange(const trovara::store::ObjectChanges& changes);

private:
    friend class ManagedObject;
    friend class SqliteStore;

    // Used by ManagedObject's setters.
    void changeValue(ManagedObject* object, const QString& key, const QVariant& value);
    void changeRelationship(ManagedObject* object, const QString& key, ManagedObject* destination);
    void markUpdated(ManagedObject* object);
    void schedulePendingChanges();
    void markDeleted(ManagedObject* object);
    void undelete(ManagedObject* object);

    // Used by the store when loading: adopts an object with a given id.
    ManagedObject* adopt(std::unique_ptr<ManagedObject> object, const EntityDescription& entity, qint64 objectId);

    std::shared_ptr<const ManagedObjectModel> m_model;
    std::map<qint64, std::unique_ptr<ManagedObject>> m_objects;
    qint64 m_nextId = 1;
    UndoManager m_undoManager;

    QSet<ManagedObject*> m_pendingInserted;
    QSet<ManagedObject*> m_pendingUpdated;
    QSet<ManagedObject*> m_pendingDeleted;
    bool m_scheduled = false;
    bool m_automatic = true;
    bool m_hasChanges = false;
    std::map<QString, Error> m_injectedFailures;
};

}  // namespace trovara::store

Q_DECLARE_METATYPE(trovara::store::ObjectChanges)
