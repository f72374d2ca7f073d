#include "editors/editor_delegate.h"

#include "document/document.h"
#include "model/abstract_attribute.h"
#include "model/scope.h"

#include <QPointer>
#include <QTimer>

namespace trovara::editors {

EditorDelegate::EditorDelegate(document::Document& document, RuleEditorModel& editor)
    : m_document(document)
    , m_editor(editor)
{
    m_editor.setDelegate(this);
}

EditorDelegate::~EditorDelegate()
{
    disconnect(m_connection);
    if (m_editor.delegate() == this) {
        m_editor.setDelegate(nullptr);
    }
}

store::ManagedObjectContext& EditorDelegate::context() const
{
    return m_document.managedObjectContext();
}

void EditorDelegate::observe(store::ManagedObjectContext& context)
{
    if (m_observed == &context) {
        return;
    }
    disconnect(m_connection);
    m_observed = &context;
    m_connection = connect(&context, &store::ManagedObjectContext::objectsDidChange, this,
                           [this](const store::ObjectChanges& changes) { objectsDidChange(changes, m_writing > 0); });
}

void EditorDelegate::loadEditor()
{
    observe(context());
    const bool setUp = m_finishedSetUp;
    const bool observing = m_document.objectChangeNotificationEnabled();
    m_finishedSetUp = false;
    m_document.setObjectChangeNotificationEnabled(false);
    configureEditor();
    m_editor.setRows(rowsFromGraph());
    m_document.setObjectChangeNotificationEnabled(observing);
    m_finishedSetUp = setUp;
}

void EditorDelegate::writing(const std::function<void()>& write)
{
    ++m_writing;
    write();
    --m_writing;
}

void EditorDelegate::reloadLater(std::function<void()> after)
{
    if (m_reloadPending) {
        return;
    }
    m_reloadPending = true;
    QTimer::singleShot(0, this, [this, after = std::move(after)] {
        m_reloadPending = false;
        loadEditor();
        if (after) {
            after();
        }
    });
}

std::map<store::ManagedObject*, RowPtr> EditorDelegate::rowsByItem() const
{
    std::map<store::ManagedObject*, RowPtr> rows;
    for (int row = 0; row < m_editor.numberOfRows(); ++row) {
        RowPtr description = m_editor.rowAtIndex(row);
        if (description->item) {
            rows[description->item] = description;
        }
    }
    return rows;
}

DisplayValue EditorDelegate::plainDisplayValue(const Criterion& criterion)
{
    if (const MenuItem* item = criterion.menuItem()) {
        return {item->title, nullptr};
    }
    if (const auto* attribute = criterion.object<model::AbstractAttribute>()) {
        return {attribute->attributeName(), nullptr};
    }
    if (const auto* scope = criterion.object<model::Scope>()) {
        return {scope->label(), nullptr};
    }
    if (const auto* value = criterion.value<model::Value>()) {
        return {value->label(), nullptr};
    }
    if (const model::RelationalOperatorProxy* proxy = criterion.proxy()) {
        return {proxy->label(), nullptr};
    }
    if (const QString* text = criterion.text()) {
        return {*text, nullptr};
    }
    if (const qint64* number = criterion.numberValue()) {
        return {QString::number(*number), nullptr};
    }
    return {criterion.isEmpty() ? QString() : criterion.description(), nullptr};
}

}  // namespace trovara::editors
