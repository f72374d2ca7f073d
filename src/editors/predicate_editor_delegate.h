// The criteria editor's delegate: the choices of every pop-up of a criteria
// line, the value field each line shows, and the two directions between
// the editor's lines and the document's criteria tree.
//
// Lines of the criteria editor:
//   group   (a QueryNode)  criteria: its Boolean operator ("ALL of the
//                          following are true:" …)
//   row     (a QueryLeaf)  criteria: the attribute, the operator (offered
//                          per attribute), the value (a field, or a content
//                          type / colour label chosen from a list), and the
//                          unit where the value has units
//
// Tree to lines: one line per item of the tree, the root group first (the
// editor's single top line), children in sort order.
//
// Lines to tree, after every edit (once set up), through the document's
// updatePredicate: each line writes into the item it stands for (new lines
// make new items), in the order shown; items no line claims any more are
// deleted; then the lines are reloaded from the tree, so the editor always
// shows what the tree holds. An edit changes one thing: a new attribute
// gives the row the values it had for that attribute before (or the
// attribute's defaults); a new operator keeps the row's value and unit; a
// new unit, content type or label is stored as chosen. A value typed into
// a line's field goes straight into its row (and into the values the row
// remembers for its attribute) without reloading the lines.
//
// Not thread-safe.
#pragma once

#include "editors/editor_delegate.h"

#include <QVariant>

#include <functional>
#include <optional>

namespace trovara::model {
class QueryItem;
class QueryLeaf;
class QueryNode;
}  // namespace trovara::model

namespace trovara::editors {

class PredicateEditorDelegate final : public EditorDelegate {
    Q_OBJECT

public:
    // The value of an attribute of a file, as a stored value (text, number,
    // Boolean or UTC date; a list gives its first value), or none.
    using FileAttributeReader = std::function<std::optional<QVariant>(const QString& path, const QString& key)>;

    PredicateEditorDelegate(document::Document& document, RuleEditorModel& editor);
    ~PredicateEditorDelegate() override;

    // --- The delegate contract ----------------------------------------------------
    std::vector<Criterion> childrenForCriterion(const Criterion& criterion, RowType rowType) override;
    DisplayValue displayValueForCriterion(const Criterion& criterion, int row) override;
    void rowsDidChange() override;
    // Exactly one file: the line (or a new line in the group it was
    // dropped on) takes the file's value of its attribute.
    bool acceptDrop(const QStringList& paths, int row) override;

    DisplayValue displayValueForCriterion(const Criterion& criterion, RowDescription& row);

    // (and, or, not), and every query attribute of the document; both made
    // on first use, the attributes again after the document's attributes
    // changed.
    const std::vector<Criterion>& predicateCompoundRootCriteria();
    const std::vector<Criterion>& predicateSimpleRootCriteria();

    // The "Other..." entry was chosen on a line: opens the attribute sheet
    // for it.
    void selectOtherAttribute(int row);
    void setOtherAttributeHandler(std::function<void(RowPtr row)> handler) { m_otherAttribute = std::move(handler); }

    // Gives the row of the line the attribute (with the values it had for
    // it before), reloads the lines and rebuilds the query.
    void setAttributeOfRow(const RowPtr& row, const QString& attributeKey);

    void setFileAttributeReader(FileAttributeReader reader) { m_readFileAttribute = std::move(reader); }
    // Reads a file's attribute on the spot (what `trova ls` shows of a
    // file, without its imported attributes).
    static std::optional<QVariant> readFileAttribute(const QString& path, const QString& key);

    // The document's predicateRows: the lines of the items (and of their
    // children), reusing the lines there were.
    std::vector<RowPtr> predicateRows(const std::vector<model::QueryItem*>& items);
    // The criteria a line shows for a row.
    std::vector<Criterion> criteriaForLeaf(model::QueryLeaf& leaf);

    bool isConsistent(QString* why = nullptr) const override;

protected:
    void configureEditor() override;
    std::vector<RowPtr> rowsFromGraph() override;
    void objectsDidChange(const store::ObjectChanges& changes, bool own) override;

private:
    std::vector<RowPtr> predicateRows(const std::vector<model::QueryItem*>& items,
                                      std::map<store::ManagedObject*, RowPtr>& reusable);
    void loadValues(RowDescription& row, model::QueryLeaf& leaf);
    void attachValues(RowDescription& row);
    void valuesDidChange(RowDescription& row, ValueContainer& values);
    // Lines to tree.
    void writeRows();
    void writeRow(const RowPtr& row, model::QueryNode* parent, int index, std::vector<store::ManagedObject*>& claimed);
    void writeLeaf(RowDescription& row, model::QueryLeaf& leaf, bool isNew);
    bool checkRow(const RowDescription& row, model::QueryItem* item, QString* why) const;

    std::optional<std::vector<Criterion>> m_compoundRootCriteria;
    std::optional<std::vector<Criterion>> m_simpleRootCriteria;
    std::function<void(RowPtr row)> m_otherAttribute;
    FileAttributeReader m_readFileAttribute;
};

}  // namespace trovara::editors
