// Undo and redo of changes to an object graph, in groups.
//
// Actions are closures registered while a change is made; each closure puts
// back what the change replaced. Actions registered outside any explicit
// group fall into an implicit group that stays open until closeImplicitGroup()
// (the context calls it once per turn of the event loop), so everything one
// user action changes is undone together. Actions registered while undoing
// become the redo group, and the other way round.
//
// Registration can be switched off (nested: every disable needs an enable);
// changes made meanwhile are not undoable, which is how a new document's
// initial contents are made.
//
// Not thread-safe.
#pragma once

#include <functional>
#include <vector>

namespace trovara::store {

class UndoManager {
public:
    enum class Event {
        GroupClosed,  // a new group of changes was completed
        Undone,
        Redone,
    };
    using Observer = std::function<void(Event)>;

    void beginUndoGrouping();
    void endUndoGrouping();
    int groupingLevel() const { return m_level; }

    void disableUndoRegistration() { ++m_disabled; }
    void enableUndoRegistration();
    bool isUndoRegistrationEnabled() const { return m_disabled == 0; }

    void registerUndo(std::function<void()> action);
    // Ends the group that registerUndo() opened implicitly, if any.
    void closeImplicitGroup();

    bool canUndo() const;
    bool canRedo() const;
    void undo();
    void redo();
    bool isUndoing() const { return m_undoing; }
    bool isRedoing() const { return m_redoing; }

    void removeAllActions();

    // Told after every completed group, undo and redo (document change
    // counting listens here).
    void setObserver(Observer observer) { m_observer = std::move(observer); }

private:
    using Group = std::vector<std::function<void()>>;

    void run(std::vector<Group>& from, bool undoing);
    void notify(Event event);

    std::vector<Group> m_undoStack;
    std::vector<Group> m_redoStack;
    Group m_open;
    int m_level = 0;
    bool m_implicit = false;
    int m_disabled = 0;
    bool m_undoing = false;
    bool m_redoing = false;
    Observer m_observer;
};

}  // namespace trovara::store
