#include "editors/scope_editor_delegate.h"

#include "common/paths.h"
#include "document/document.h"
#include "model/localization.h"
#include "model/scope.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace trovara::editors {

namespace {

using model::OrderedExclusionScope;
using model::OrderedScope;
using model::Scope;

template <typename T>
std::vector<store::ManagedObject*> entriesOf(const std::vector<T*>& typed)
{
    return {typed.begin(), typed.end()};
}

// A dropped file's folder: the file itself when it is one, else the folder
// that holds it.
QString folderOf(const QFileInfo& file)
{
    return file.isDir() ? file.absoluteFilePath() : file.absolutePath();
}

}  // namespace

ScopeListEditorDelegate::ScopeListEditorDelegate(document::Document& document, RuleEditorModel& editor)
    : EditorDelegate(document, editor)
{
}

Scope* ScopeListEditorDelegate::scopeOf(store::ManagedObject* entry)
{
    return entry ? store::object_cast<Scope>(entry->object(QStringLiteral("scope"))) : nullptr;
}

int ScopeListEditorDelegate::sortIndexOf(store::ManagedObject* entry)
{
    return entry->value(QStringLiteral("sortIndex")).toInt();
}

void ScopeListEditorDelegate::configureEditor()
{
    editor().setNestingMode(NestingMode::List);
    editor().setRowHeight(25);
    editor().setCanRemoveAllRows(removesAllRows());
    editor().setCopiesRowOnAdd(false);
    editor().setAcceptsFileDrops(true);
}

const std::vector<Criterion>& ScopeListEditorDelegate::simpleRootCriteria()
{
    if (!m_rootCriteria) {
        m_rootCriteria.emplace();
        for (Scope* scope : rootScopes()) {
            m_rootCriteria->emplace_back(static_cast<store::ManagedObject*>(scope));
        }
    }
    return *m_rootCriteria;
}

std::vector<Criterion> ScopeListEditorDelegate::childrenForCriterion(const Criterion& criterion, RowType)
{
    if (!criterion.isEmpty()) {
        return {};  // a scope is the whole line
    }
    std::vector<Criterion> children = simpleRootCriteria();
    children.emplace_back(MenuItem::separator());
    children.emplace_back(
        MenuItem::makeAction(model::localized(QStringLiteral("Other...")), [this](int row) { selectOtherScope(row); }));
    return children;
}

DisplayValue ScopeListEditorDelegate::displayValueForCriterion(const Criterion& criterion, int)
{
    return plainDisplayValue(criterion);
}

std::vector<RowPtr> ScopeListEditorDelegate::rowsFromGraph()
{
    std::map<store::ManagedObject*, RowPtr> reusable = rowsByItem();
    std::vector<RowPtr> rows;
    for (store::ManagedObject* entry : orderedEntries(nullptr)) {
        RowPtr row = reusable.contains(entry) ? reusable[entry] : std::make_shared<RowDescription>();
        row->item = entry;
        row->criteria.clear();
        row->displayValues.clear();
        if (Scope* scope = scopeOf(entry)) {
            row->criteria.emplace_back(static_cast<store::ManagedObject*>(scope));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

void ScopeListEditorDelegate::rowsDidChange()
{
    if (!finishedSetUp()) {
        return;
    }
    writing([this] { updateDocument([this] { writeRows(); }); });
    loadEditor();
}

void ScopeListEditorDelegate::writeRows()
{
    bool ok = true;
    const std::vector<store::ManagedObject*> entries = orderedEntries(&ok);
    if (!ok) {
        return;  // presented; nothing changes
    }
    std::vector<store::ManagedObject*> unclaimed = entries;
    int index = 0;
    for (const RowPtr& row : editor().rows()) {
        Scope* scope = row->criteria.empty() ? nullptr : row->criteria.front().object<Scope>();
        if (!scope) {
            continue;
        }
        store::ManagedObject* entry = nullptr;
        if (auto mine = std::find(unclaimed.begin(), unclaimed.end(), row->item); mine != unclaimed.end()) {
            entry = *mine;
            unclaimed.erase(mine);
            if (scopeOf(entry) != scope) {
                entry->setObject(QStringLiteral("scope"), scope);
            }
        } else {
            entry = createEntry(scope);
            if (!entry) {
                continue;
            }
            row->item = entry;
        }
        if (sortIndexOf(entry) != index || !entry->value(QStringLiteral("sortIndex")).isValid()) {
            entry->setValue(QStringLiteral("sortIndex"), index);
        }
        ++index;
    }
    for (store::ManagedObject* entry : unclaimed) {
        context().deleteObject(entry);
    }
}

void ScopeListEditorDelegate::objectsDidChange(const store::ObjectChanges& changes, bool)
{
    if (changes.containsKindOf<Scope>()) {
        m_rootCriteria.reset();
    }
}

void ScopeListEditorDelegate::selectOtherScope(int row)
{
    if (!m_folderChooser) {
        return;
    }
    RowPtr description = editor().rowAtIndex(row);
    QString start = QDir::homePath();
    if (description && description->item) {
        Scope* scope = scopeOf(description->item);
        if (scope && !scope->isConstant()) {
            start = expandTilde(scope->path());
        }
    }
    const FolderRequest request{start, model::localized(QStringLiteral("Select")),
                                model::localized(QStringLiteral("Select folder"))};
    std::weak_ptr<RowDescription> weak = description;
    m_folderChooser(request, [this, weak, hadRow = description != nullptr](const QString& chosen) {
        RowPtr alive = weak.lock();
        if (hadRow && !alive) {
            return;  // the line went away meanwhile
        }
        openPanelDidEnd(alive, chosen);
    });
}

void ScopeListEditorDelegate::openPanelDidEnd(const RowPtr& row, const QString& chosenPath)
{
    if (chosenPath.isEmpty()) {
        return;
    }
    placeScopes(row, {chosenPath});
}

void ScopeListEditorDelegate::placeScopes(const RowPtr& row, const QStringList& paths)
{
    writing([&] {
        updateDocument([&] {
            bool first = true;
            for (const QString& path : paths) {
                Scope* scope = Scope::scopeWithPath(path, context());
                if (!scope) {
                    continue;
                }
                store::ManagedObject* entry = first && row ? row->item : nullptr;
                if (entry && !entry->isDeleted()) {
                    entry->setObject(QStringLiteral("scope"), scope);
                } else {
                    createEntry(scope);
                }
                first = false;
            }
        });
    });
    loadEditor();
}

bool ScopeListEditorDelegate::acceptDrop(const QStringList& paths, int row)
{
    if (paths.isEmpty()) {
        return false;
    }
    const QFileInfo first(paths.front());
    if (!first.exists()) {
        return false;
    }
    // Only the first name is checked; the others are taken as they stand.
    QStringList places = paths;
    places.front() = folderOf(first);
    placeScopes(editor().rowAtIndex(row), places);
    return true;
}

bool ScopeListEditorDelegate::isConsistent(QString* why) const
{
    auto fail = [why](const QString& reason) {
        if (why) {
            *why = reason;
        }
        return false;
    };
    const std::vector<store::ManagedObject*> entries = orderedEntries(nullptr);
    const std::vector<RowPtr>& rows = editor().rows();
    if (entries.size() != rows.size()) {
        return fail(QStringLiteral("%1 entries, %2 lines").arg(entries.size()).arg(rows.size()));
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const RowDescription& row = *rows[i];
        if (row.item != entries[i]) {
            return fail(QStringLiteral("line %1 stands for another entry").arg(i));
        }
        Scope* scope = scopeOf(entries[i]);
        if (row.criteria.size() != 1 || row.criteria.front().object<Scope>() != scope
            || row.displayValues.size() != 1 || row.displayValues.front().text != scope->label()) {
            return fail(QStringLiteral("line %1 shows another place").arg(i));
        }
        if (i > 0 && sortIndexOf(entries[i]) == sortIndexOf(entries[i - 1])) {
            return fail(QStringLiteral("two entries at one place"));
        }
    }
    return true;
}

// --- The places to search -------------------------------------------------------------------

std::vector<store::ManagedObject*> ScopeEditorDelegate::orderedEntries(bool* ok) const
{
    return entriesOf(OrderedScope::orderedScopes(context(), ok));
}

store::ManagedObject* ScopeEditorDelegate::createEntry(Scope* scope)
{
    return OrderedScope::createOrderedScopeWith(scope);
}

std::vector<Scope*> ScopeEditorDelegate::rootScopes()
{
    return Scope::availableScopesInContext(context());
}

void ScopeEditorDelegate::updateDocument(const std::function<void()>& write)
{
    document().updateScope(write);
}

// --- The places to leave out -----------------------------------------------------------------

std::vector<store::ManagedObject*> ExclusionEditorDelegate::orderedEntries(bool* ok) const
{
    return entriesOf(OrderedExclusionScope::orderedExclusionScopes(context(), ok));
}

store::ManagedObject* ExclusionEditorDelegate::createEntry(Scope* scope)
{
    return OrderedExclusionScope::createOrderedExclusionScopeWith(scope);
}

std::vector<Scope*> ExclusionEditorDelegate::rootScopes()
{
    return Scope::nonConstantScopesInContext(context());
}

void ExclusionEditorDelegate::updateDocument(const std::function<void()>& write)
{
    document().updateExclusion(write);
}

void ExclusionEditorDelegate::objectsDidChange(const store::ObjectChanges& changes, bool own)
{
    ScopeListEditorDelegate::objectsDidChange(changes, own);
    // The document reloads the places to search after undo and redo; the
    // places to leave out reload here.
    if (!own && changes.containsKindOf<OrderedExclusionScope>()) {
        reloadLater([this] { document().updateExclusion(); });
    }
}

bool ExclusionEditorDelegate::dropButtonAcceptDrop(const QStringList& paths)
{
    QStringList folders;
    for (const QString& path : paths) {
        const QFileInfo file(path);
        if (file.exists()) {
            folders << folderOf(file);
        }
    }
    if (folders.isEmpty()) {
        return false;
    }
    placeScopes(nullptr, folders);
    return true;
}

}  // namespace trovara::editors
