// A rule editor without its widgets: lines of pop-ups and fields, nested in
// groups, that a delegate fills. The RuleEditor widget shows one; tests and
// benchmarks drive one directly, exactly as the widget does.
//
// The delegate contract:
//  - childrenForCriterion(criterion, rowType): the choices that follow a
//    criterion on a line (the first pop-up's choices for the empty
//    criterion);
//  - displayValueForCriterion(criterion, row): what the line shows for it;
//  - rowsDidChange(): called after every edit of the rows by the user;
//  - acceptDrop(paths, row): files dropped on a line.
//
// Choosing a criterion replaces it and resets every later one on the line
// to the first choice that follows (the delegate puts back what it wants
// to keep). Choosing a menu action runs the action and changes nothing.
// Rows are numbered depth-first over the whole tree of lines (a group,
// then its sub-lines), as the editor shows them from top to bottom.
//
// Nesting: Single (one line, never added or removed), List (simple lines,
// no groups), Compound (one top group, groups to any depth).
//
// Not thread-safe: use it on the main thread.
#pragma once

#include "editors/criterion.h"
#include "editors/row_description.h"

#include <QObject>
#include <QStringList>

#include <vector>

namespace trovara::editors {

class RuleEditorDelegate {
public:
    virtual ~RuleEditorDelegate() = default;

    virtual std::vector<Criterion> childrenForCriterion(const Criterion& criterion, RowType rowType) = 0;
    int numberOfChildrenForCriterion(const Criterion& criterion, RowType rowType)
    {
        return static_cast<int>(childrenForCriterion(criterion, rowType).size());
    }
    // The child at the index, or the empty criterion past the end.
    Criterion child(int index, const Criterion& criterion, RowType rowType);

    virtual DisplayValue displayValueForCriterion(const Criterion& criterion, int row) = 0;
    virtual void rowsDidChange() = 0;
    // Absolute paths dropped on the line `row` (-1: below the last line).
    virtual bool acceptDrop(const QStringList& paths, int row);
};

enum class NestingMode { Single, List, Compound };

class RuleEditorModel : public QObject {
    Q_OBJECT

public:
    explicit RuleEditorModel(QObject* parent = nullptr);
    ~RuleEditorModel() override;

    void setDelegate(RuleEditorDelegate* delegate) { m_delegate = delegate; }
    RuleEditorDelegate* delegate() const { return m_delegate; }

    NestingMode nestingMode() const { return m_nestingMode; }
    void setNestingMode(NestingMode mode) { m_nestingMode = mode; }
    int rowHeight() const { return m_rowHeight; }
    void setRowHeight(int height) { m_rowHeight = height; }
    // Whether the user may remove the last line.
    bool canRemoveAllRows() const { return m_canRemoveAllRows; }
    void setCanRemoveAllRows(bool can) { m_canRemoveAllRows = can; }
    // A line added from a simple line copies its criteria and values (the
    // criteria editor); otherwise it gets the first choices.
    bool copiesRowOnAdd() const { return m_copiesRowOnAdd; }
    void setCopiesRowOnAdd(bool copies) { m_copiesRowOnAdd = copies; }
    bool acceptsFileDrops() const { return m_acceptsFileDrops; }
    void setAcceptsFileDrops(bool accepts) { m_acceptsFileDrops = accepts; }

    // --- Lines ---------------------------------------------------------------------
    // Replaces every line (the document loads them); the delegate is not
    // told. Display values that are missing are asked for.
    void setRows(std::vector<RowPtr> rows);
    const std::vector<RowPtr>& rows() const { return m_rows; }
    int numberOfRows() const { return static_cast<int>(m_flat.size()); }
    // nullptr outside 0..numberOfRows()-1.
    RowPtr rowAtIndex(int row) const;
    int rowForRowDescription(const RowDescription* description) const;
    // -1 for a top-level line.
    int parentRowForRow(int row) const;
    int depthOfRow(int row) const;
    std::vector<int> subrowIndexesForRow(int row) const;

    // --- Choices --------------------------------------------------------------------
    // What the pop-up at the position offers: the children of the
    // criterion before it.
    std::vector<Criterion> choicesAt(int row, int position) const;
    // What the pop-up shows for each choice ("" for a separator).
    QStringList choiceTitlesAt(int row, int position) const;
    // The index of the line's criterion among the choices, or -1.
    int selectedChoiceAt(int row, int position) const;

    // --- Edits (each tells the delegate that the rows changed) --------------------
    // Chooses the choice at the position; later criteria are reset. False
    // when nothing changed (a menu action ran, a separator, an index out of
    // range, the same choice).
    bool chooseCriterion(int row, int position, int choice);
    // A new simple line after a simple line, or at the end of a group; at
    // the end with -1. The new line's index, or -1 when none can be added.
    int addRow(int fromRow);
    // A new group (with one line in it), placed as addRow places a line.
    int addGroup(int fromRow);
    bool canRemoveRow(int row) const;
    // Removes the line and its sub-lines; a group left empty goes too
    // (never the top group).
    bool removeRow(int row);
    // Moves a line (with its sub-lines) to position `index` among the
    // sub-lines of the group `parentRow` (-1: the top level of a list).
    bool canMoveRow(int row, int parentRow, int index) const;
    bool moveRow(int row, int parentRow, int index);
    // Files dropped at a height in the editor: the line there (the height
    // divided by the line height) and the paths go to the delegate.
    bool dropFiles(const QStringList& paths, double y);

    // Asks the delegate again for every display value of the line.
    void refreshDisplayValues(int row);

    // The first choices from the criterion on (menu entries skipped).
    std::vector<Criterion> defaultCriteria(RowType rowType, const Criterion& after = {}) const;

signals:
    // Lines were set, added, removed, moved or changed.
    void rowsChanged();

private:
    struct FlatRow {
        RowPtr row;
        int parent;
        int depth;
    };
    void reindex();
    void appendFlat(const std::vector<RowPtr>& rows, int parent, int depth);
    std::vector<RowPtr>* siblingsOf(int row);
    std::vector<RowPtr>* subrowsOf(int parentRow);
    int insertRow(RowPtr row, int fromRow);
    bool isInside(int row, int ancestor) const;
    void fillDisplayValues(int row);
    // Removes `row` from its parent's lines, then the parent too when it
    // is a group left empty below the top.
    void detach(int row);
    void didChange();

    RuleEditorDelegate* m_delegate = nullptr;
    NestingMode m_nestingMode = NestingMode::List;
    int m_rowHeight = 25;
    bool m_canRemoveAllRows = true;
    bool m_copiesRowOnAdd = false;
    bool m_acceptsFileDrops = false;
    std::vector<RowPtr> m_rows;
    std::vector<FlatRow> m_flat;
};

}  // namespace trovara::editors
