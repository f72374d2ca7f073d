#include "store/undo_manager.h"

namespace trovara::store {

void UndoManager::beginUndoGrouping()
{
    if (m_level++ == 0) {
        m_open.clear();
    }
}

void UndoManager::endUndoGrouping()
{
    if (m_level == 0 || --m_level > 0) {
        return;
    }
    m_implicit = false;
    if (m_open.empty()) {
        return;
    }
    if (m_undoing) {
        m_redoStack.push_back(std::move(m_open));
    } else {
        m_undoStack.push_back(std::move(m_open));
        if (!m_redoing) {
            m_redoStack.clear();
        }
    }
    m_open.clear();
    if (!m_undoing && !m_redoing) {
        notify(Event::GroupClosed);
    }
}

void UndoManager::enableUndoRegistration()
{
    if (m_disabled > 0) {
        --m_disabled;
    }
}

void UndoManager::registerUndo(std::function<void()> action)
{
    if (!isUndoRegistrationEnabled()) {
        return;
    }
    if (m_level == 0) {
        m_implicit = true;
        beginUndoGrouping();
    }
    m_open.push_back(std::move(action));
}

void UndoManager::closeImplicitGroup()
{
    if (!m_implicit) {
        return;
    }
    m_level = 1;
    endUndoGrouping();
}

bool UndoManager::canUndo() const
{
    return !m_undoStack.empty() || (m_implicit && !m_open.empty());
}

bool UndoManager::canRedo() const
{
    return !m_redoStack.empty();
}

void UndoManager::undo()
{
    closeImplicitGroup();
    run(m_undoStack, true);
}

void UndoManager::redo()
{
    closeImplicitGroup();
    run(m_redoStack, false);
}

void UndoManager::run(std::vector<Group>& from, bool undoing)
{
    if (from.empty() || m_level > 0) {
        return;
    }
    Group group = std::move(from.back());
    from.pop_back();
    (undoing ? m_undoing : m_redoing) = true;
    beginUndoGrouping();
    for (auto it = group.rbegin(); it != group.rend(); ++it) {
        (*it)();
    }
    endUndoGrouping();
    (undoing ? m_undoing : m_redoing) = false;
    notify(undoing ? Event::Undone : Event::Redone);
}

void UndoManager::removeAllActions()
{
    m_undoStack.clear();
    m_redoStack.clear();
    m_open.clear();
    m_level = 0;
    m_implicit = false;
}

void UndoManager::notify(Event event)
{
    if (m_observer) {
        m_observer(event);
    }
}

}  // namespace trovara::store
