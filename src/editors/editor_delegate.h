// What the four editor delegates of a document share: the document and the
// editor they serve, the set-up flag, loading the editor's lines from the
// document's object graph, and listening to the graph's changes.
//
// Loading (the document's load…Editor): the set-up flag and the document's
// own change notifications are switched off while the lines are rebuilt
// from the graph and restored afterwards, so a load never writes back or
// rebuilds the query. Only once finishedSetUp is set do the user's edits
// reach the graph.
//
// A delegate hears every change of the graph. Changes it did not write
// itself (undo, redo, another editor) that touch what its editor shows
// reload the editor on the next turn of the event loop.
//
// Owned by DocumentEditors, one of each per document. Not thread-safe.
#pragma once

#include "editors/criterion.h"
#include "editors/rule_editor_model.h"
#include "store/managed_object_context.h"

#include <QObject>

namespace trovara::document {
class Document;
}

namespace trovara::editors {

class EditorDelegate : public QObject, public RuleEditorDelegate {
    Q_OBJECT

public:
    EditorDelegate(document::Document& document, RuleEditorModel& editor);
    ~EditorDelegate() override;

    document::Document& document() const { return m_document; }
    RuleEditorModel& editor() const { return m_editor; }
    store::ManagedObjectContext& context() const;

    bool finishedSetUp() const { return m_finishedSetUp; }
    void setFinishedSetUp(bool finished) { m_finishedSetUp = finished; }

    // Rebuilds the editor's lines from the graph (see above).
    void loadEditor();

    // Whether the lines and the graph agree (for tests and debugging).
    virtual bool isConsistent(QString* why = nullptr) const = 0;

    // The display value of a criterion that is neither a field nor special
    // to the editor: a menu entry's title, an attribute's name, a value's
    // label, a scope's label, a text, a number.
    static DisplayValue plainDisplayValue(const Criterion& criterion);

protected:
    // The editor's settings and its lines, made from the graph.
    virtual void configureEditor() = 0;
    virtual std::vector<RowPtr> rowsFromGraph() = 0;
    // A change of the graph; `own` while the delegate writes it itself.
    virtual void objectsDidChange(const store::ObjectChanges& changes, bool own) = 0;

    // Runs `write` as the delegate's own change: its notifications are
    // not taken for someone else's.
    void writing(const std::function<void()>& write);
    // Reloads the editor on the next turn of the event loop (once, however
    // often asked), then runs `after`.
    void reloadLater(std::function<void()> after = {});

    // The lines there were, by the stored object they stand for, so that a
    // reload keeps them (and their fields).
    std::map<store::ManagedObject*, RowPtr> rowsByItem() const;

private:
    void observe(store::ManagedObjectContext& context);

    document::Document& m_document;
    RuleEditorModel& m_editor;
    bool m_finishedSetUp = false;
    int m_writing = 0;
    bool m_reloadPending = false;
    store::ManagedObjectContext* m_observed = nullptr;
    QMetaObject::Connection m_connection;
};

}  // namespace trovara::editors
