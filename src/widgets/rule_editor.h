// Trovara's rule editor: nested lines of pop-ups and value fields, with
// buttons to add a line, add a group and remove a line, shown for a
// headless RuleEditorModel (which its delegate fills).
//
//   ⋮⋮  [Name ▾] [contains ▾] [report……………]          [−] [+] […]
//       ⋮⋮  [ANY of the following is true: ▾]          [−] [+] […]
//
// Keyboard: every pop-up, field and button is reached with Tab and changed
// with the keyboard (arrow keys in a pop-up, typing in a field, Space on a
// button); Ctrl+Up / Ctrl+Down move the line with the focus among its
// neighbours. Mouse: the grip at the start of a line drags it to another
// place (onto a group: into the group). Files dropped on a line go to the
// model's delegate (an editor that takes no drops refuses them).
//
// The line with the focus is drawn with the accent colour
// (PredicateEditorViewSlice). Lines follow the model: after every change
// the widgets are brought up to date, keeping those of lines that stay (and
// the text being typed into them).
//
// A search of hundreds of lines opens at once: lines all have one height,
// and a line's widgets are made only when the line comes into view (the
// editor sits in a scroll area), when the focus comes next to it, or when
// line() asks for it. Tab goes through the lines in their order.
#pragma once

#include "editors/rule_editor_model.h"

#include <QPointer>
#include <QStringList>
#include <QWidget>

#include <map>
#include <vector>

class QComboBox;
class QFrame;
class QHBoxLayout;
class QLabel;
class QMimeData;
class QToolButton;

namespace trovara::widgets {

class RuleEditorLine;

class RuleEditor final : public QWidget {
    Q_OBJECT

public:
    // `name` names the editor for assistive technology ("Criteria",
    // "Places to search" …).
    RuleEditor(editors::RuleEditorModel& model, const QString& name, QWidget* parent = nullptr);
    ~RuleEditor() override;

    editors::RuleEditorModel& model() const { return m_model; }

    // What each pop-up or field of a simple line is, left to right
    // ("Attribute", "Comparison", "Value", "Unit"), and of a group line;
    // for the controls' accessible names.
    void setPositionNames(const QStringList& simple, const QStringList& compound = {});
    QString positionName(bool compound, int position) const;
    // The button shown while there is no line at all ("Add a place").
    void setEmptyAddTitle(const QString& title);

    int lineCount() const { return static_cast<int>(m_rows.size()); }
    // The line's widgets, made if they were not yet.
    RuleEditorLine* line(int row);
    // How many lines have their widgets.
    int madeLineCount() const { return static_cast<int>(m_lines.size()); }
    int lineHeight() const { return m_lineHeight; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    // Gives the keyboard focus to the first control of the line.
    void focusLine(int row);

    // Brings the lines up to date with the model.
    void reload();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    friend class RuleEditorLine;
    // The line under a point of the editor, or -1.
    int rowAt(const QPoint& point) const;
    bool acceptsDrag(const QMimeData* data) const;
    // Moves the line to where a drag of it ended, a point of the editor.
    bool moveLine(int row, const QPoint& at);
    void showDropMarker(const QPoint& at);
    QRect lineRect(int row) const;
    // Makes the widgets of the line if it has none; true if it made them.
    bool makeLine(int row);
    // Makes the lines in view (and a few around) and puts them in place.
    void makeVisibleLines();
    void placeLines();
    // The focus came into a line: its neighbours get their widgets, so
    // that Tab and Shift+Tab find them.
    void lineFocused(int row);
    void orderTabs();

    editors::RuleEditorModel& m_model;
    QToolButton* m_addWhenEmpty;
    QFrame* m_dropMarker;
    QStringList m_simpleNames;
    QStringList m_compoundNames;
    std::vector<editors::RowPtr> m_rows;
    std::map<const editors::RowDescription*, RuleEditorLine*> m_lines;
    int m_lineHeight = 0;
};

// One line of a rule editor.
class RuleEditorLine final : public QWidget {
    Q_OBJECT

public:
    RuleEditorLine(RuleEditor& editor, editors::RowPtr description);
    ~RuleEditorLine() override;

    const editors::RowPtr& rowDescription() const { return m_row; }
    // The line's current index in the model (-1 once it went away).
    int row() const;
    // Shows the model's line at the index.
    void update(int row);

    // The controls of the criteria, left to right (a pop-up or a field).
    QWidget* control(int position) const;
    QComboBox* popUp(int position) const;
    // What the mouse drags the line by.
    QWidget* grip() const;
    QToolButton* removeButton() const { return m_remove; }
    QToolButton* addButton() const { return m_add; }
    QToolButton* addGroupButton() const { return m_addGroup; }
    QWidget* firstControl() const;
    // The controls Tab reaches, in their order.
    std::vector<QWidget*> tabOrder() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Slot {
        QPointer<QWidget> widget;
        QComboBox* popUp = nullptr;                 // a pop-up, or
        editors::RuleValueField* field = nullptr;  // the field it shows
        QStringList titles;
    };

    void updateSlot(int row, int position, bool compound);
    void chosen(int position, int index);
    void moveBy(int offset);
    // Ctrl+Up / Ctrl+Down reach the line from whichever of its controls
    // has the focus (a pop-up or a field would take them for itself).
    void watchKeys(QWidget* widget);

    RuleEditor& m_editor;
    editors::RowPtr m_row;
    QHBoxLayout* m_criteria;
    QLabel* m_grip;
    QToolButton* m_remove;
    QToolButton* m_add;
    QToolButton* m_addGroup;
    std::vector<Slot> m_slots;
    QPoint m_pressed;
    bool m_dragging = false;
    bool m_focusWithin = false;
};

// Draws a selected line: the accent colour's gradient (the user default
// "accentColorNumber", 0 to 4) at 90 degrees over the line inset by 1, 2
// and 4 points.
struct PredicateEditorViewSlice {
    static void drawSelection(QPainter& painter, const QRect& bounds);
};

}  // namespace trovara::widgets
