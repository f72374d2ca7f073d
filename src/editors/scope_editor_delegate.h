// The delegates of the two place editors: the places to search
// (ScopeEditorDelegate, over the document's OrderedScopes) and the places
// to leave out (ExclusionEditorDelegate, over its OrderedExclusionScopes).
//
// Each line is one entry of the list, its single criterion the entry's
// scope, shown by the scope's label. The pop-up offers the scopes the
// document knows (every one for searching; only folders, not the named
// places, for leaving out), then "Other...", which opens a folder chooser.
//
// Lines to list, after every edit (once set up), through the document's
// updateScope / updateExclusion: every line claims its entry (or makes one)
// and gives it its scope and its place in the order; entries no line
// claims are deleted. The list to search never becomes empty; the list to
// leave out may.
//
// Files dropped on an editor: the first must exist (a file that is not a
// folder gives its folder) and replaces the place of the line it was
// dropped on (or is added); every further one is added as it stands.
//
// Not thread-safe.
#pragma once

#include "editors/editor_delegate.h"

#include <functional>
#include <optional>

namespace trovara::model {
class Scope;
}

namespace trovara::editors {

// What a folder chooser is asked: where to start, its button and message.
struct FolderRequest {
    QString startPath;
    QString prompt;   // "Select"
    QString message;  // "Select folder"
};
// Shows a folder chooser; `done` gets the chosen folder, or a null string
// when the user cancelled.
using FolderChooser = std::function<void(const FolderRequest& request, std::function<void(const QString&)> done)>;

class ScopeListEditorDelegate : public EditorDelegate {
    Q_OBJECT

public:
    ScopeListEditorDelegate(document::Document& document, RuleEditorModel& editor);

    std::vector<Criterion> childrenForCriterion(const Criterion& criterion, RowType rowType) override;
    DisplayValue displayValueForCriterion(const Criterion& criterion, int row) override;
    void rowsDidChange() override;
    bool acceptDrop(const QStringList& paths, int row) override;

    // The scopes offered, then a separator and "Other..."; the scopes are
    // made on first use and again after the document's scopes changed.
    const std::vector<Criterion>& simpleRootCriteria();

    // "Other..." on a line (-1: a new line): asks the folder chooser.
    void selectOtherScope(int row);
    void openPanelDidEnd(const RowPtr& row, const QString& chosenPath);
    void setFolderChooser(FolderChooser chooser) { m_folderChooser = std::move(chooser); }

    bool isConsistent(QString* why = nullptr) const override;

protected:
    // The list's entries, in order; `ok` false when the fetch failed (it
    // was presented).
    virtual std::vector<store::ManagedObject*> orderedEntries(bool* ok) const = 0;
    virtual store::ManagedObject* createEntry(model::Scope* scope) = 0;
    virtual std::vector<model::Scope*> rootScopes() = 0;
    // The document's updateScope / updateExclusion.
    virtual void updateDocument(const std::function<void()>& write) = 0;

    void configureEditor() override;
    std::vector<RowPtr> rowsFromGraph() override;
    void objectsDidChange(const store::ObjectChanges& changes, bool own) override;
    virtual bool removesAllRows() const = 0;

    // Adds (or, for the line, replaces with) the scopes of the paths, then
    // reloads.
    void placeScopes(const RowPtr& row, const QStringList& paths);

    // Both kinds of entry hold a "scope" and a "sortIndex".
    static model::Scope* scopeOf(store::ManagedObject* entry);
    static int sortIndexOf(store::ManagedObject* entry);

private:
    void writeRows();

    std::optional<std::vector<Criterion>> m_rootCriteria;
    FolderChooser m_folderChooser;
};

class ScopeEditorDelegate final : public ScopeListEditorDelegate {
    Q_OBJECT

public:
    using ScopeListEditorDelegate::ScopeListEditorDelegate;

protected:
    std::vector<store::ManagedObject*> orderedEntries(bool* ok) const override;
    store::ManagedObject* createEntry(model::Scope* scope) override;
    std::vector<model::Scope*> rootScopes() override;
    void updateDocument(const std::function<void()>& write) override;
    bool removesAllRows() const override { return false; }
};

class ExclusionEditorDelegate final : public ScopeListEditorDelegate {
    Q_OBJECT

public:
    using ScopeListEditorDelegate::ScopeListEditorDelegate;

    // Files dropped on the exclusion area's drop button: each existing one
    // (a file gives its folder) becomes a place to leave out. Refused when
    // none was added.
    bool dropButtonAcceptDrop(const QStringList& paths);

protected:
    std::vector<store::ManagedObject*> orderedEntries(bool* ok) const override;
    store::ManagedObject* createEntry(model::Scope* scope) override;
    std::vector<model::Scope*> rootScopes() override;
    void updateDocument(const std::function<void()>& write) override;
    void objectsDidChange(const store::ObjectChanges& changes, bool own) override;
    bool removesAllRows() const override { return true; }
};

}  // namespace trovara::editors
