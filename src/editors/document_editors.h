// The editors' side of one search document: its four rule editors (the
// criteria, the places to search, the places to leave out, the limit),
// their delegates and the two attribute sheets. The document knows nothing
// of editors; this object holds them beside it and answers the document's
// editor operations (load…Editor, …Rows, …RowAtIndex).
//
// When the window is loaded, loadEditors() builds all four editors from the
// document's object graph and marks their delegates set up; from then on
// every edit of an editor goes into the graph and the query. After undo and
// redo the document asks for the criteria and places to be reloaded; the
// delegates of the exclusions and the limit reload themselves.
//
// A window gives the sheets their presenter and the place editors their
// folder chooser; without them (headless) sheets stay open until ended by
// the caller and "Other..." for places does nothing.
//
// Lives as long as the document's window and must not outlive the
// document. Not thread-safe.
#pragma once

#include "editors/attribute_selection_controller.h"
#include "editors/limit_editor_delegate.h"
#include "editors/predicate_editor_delegate.h"
#include "editors/rule_editor_model.h"
#include "editors/scope_editor_delegate.h"

#include <QObject>

#include <memory>

namespace trovara::document {
class Document;
}

namespace trovara::editors {

class DocumentEditors final : public QObject {
    Q_OBJECT

public:
    explicit DocumentEditors(document::Document& document, QObject* parent = nullptr);
    ~DocumentEditors() override;

    document::Document& document() const { return m_document; }

    RuleEditorModel& predicateEditor() { return *m_predicateEditor; }
    RuleEditorModel& scopeEditor() { return *m_scopeEditor; }
    RuleEditorModel& exclusionEditor() { return *m_exclusionEditor; }
    RuleEditorModel& limitEditor() { return *m_limitEditor; }

    PredicateEditorDelegate& predicateEditorDelegate() { return *m_predicateDelegate; }
    ScopeEditorDelegate& scopeEditorDelegate() { return *m_scopeDelegate; }
    ExclusionEditorDelegate& exclusionEditorDelegate() { return *m_exclusionDelegate; }
    LimitEditorDelegate& limitEditorDelegate() { return *m_limitDelegate; }

    QueryAttributeSelectionController& queryAttributeSelectionController() { return *m_querySheet; }
    ColumnAttributeSelectionController& columnAttributeSelectionController() { return *m_columnSheet; }

    // Loads the four editors and marks their delegates set up.
    void loadEditors();
    void loadPredicateEditor() { m_predicateDelegate->loadEditor(); }
    void loadScopeEditor() { m_scopeDelegate->loadEditor(); }
    void loadExclusionEditor() { m_exclusionDelegate->loadEditor(); }
    void loadLimitEditor() { m_limitDelegate->loadEditor(); }

    const std::vector<RowPtr>& predicateRows() const { return m_predicateEditor->rows(); }
    const std::vector<RowPtr>& scopeRows() const { return m_scopeEditor->rows(); }
    const std::vector<RowPtr>& exclusionRows() const { return m_exclusionEditor->rows(); }
    const std::vector<RowPtr>& limitRows() const { return m_limitEditor->rows(); }
    RowPtr predicateRowAtIndex(int row) const { return m_predicateEditor->rowAtIndex(row); }
    RowPtr scopeRowAtIndex(int row) const { return m_scopeEditor->rowAtIndex(row); }
    RowPtr exclusionRowAtIndex(int row) const { return m_exclusionEditor->rowAtIndex(row); }
    RowPtr limitRowAtIndex(int row) const { return m_limitEditor->rowAtIndex(row); }

    // Opens "Select column attributes" (the result table's "More Columns…").
    bool beginColumnSheet();

    void setSheetPresenter(const SheetController::Presenter& presenter);
    void setFolderChooser(const FolderChooser& chooser);

    // The window closes: open sheets end as cancelled.
    void documentWindowWillClose();

    // Whether every editor shows what the graph holds.
    bool isConsistent(QString* why = nullptr) const;

private:
    document::Document& m_document;
    std::unique_ptr<RuleEditorModel> m_predicateEditor;
    std::unique_ptr<RuleEditorModel> m_scopeEditor;
    std::unique_ptr<RuleEditorModel> m_exclusionEditor;
    std::unique_ptr<RuleEditorModel> m_limitEditor;
    std::unique_ptr<PredicateEditorDelegate> m_predicateDelegate;
    std::unique_ptr<ScopeEditorDelegate> m_scopeDelegate;
    std::unique_ptr<ExclusionEditorDelegate> m_exclusionDelegate;
    std::unique_ptr<LimitEditorDelegate> m_limitDelegate;
    std::unique_ptr<QueryAttributeSelectionController> m_querySheet;
    std::unique_ptr<ColumnAttributeSelectionController> m_columnSheet;
};

}  // namespace trovara::editors
