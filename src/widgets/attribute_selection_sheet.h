// The attribute selection sheet on a document window: its prompt, a search
// field, the list of attributes (name and description) and OK / Cancel,
// over a headless AbstractAttributeSelectionController ("Select query
// attribute" for a criteria line's "Other...", "Select column attributes"
// for the result table's "More Columns…").
//
// Typing in the search field narrows the list; Down moves into the list;
// Return (or a double click) chooses; Escape cancels. The sheet is
// window-modal and deletes itself when it ends.
#pragma once

#include <QDialog>

class QDialogButtonBox;
class QLineEdit;
class QTreeWidget;

namespace trovara::editors {
class AbstractAttributeSelectionController;
class SheetController;
}  // namespace trovara::editors

namespace trovara::widgets {

class AttributeSelectionSheet final : public QDialog {
    Q_OBJECT

public:
    AttributeSelectionSheet(editors::AbstractAttributeSelectionController& controller, QWidget* parent);

    // Shows the sheet of the controller on the window (a sheet presenter).
    static void present(editors::SheetController& sheet, QWidget* window);

    QLineEdit* searchField() const { return m_search; }
    QTreeWidget* list() const { return m_list; }

    void accept() override;
    void reject() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showAttributes();
    void selectionDidChange();

    editors::AbstractAttributeSelectionController& m_controller;
    QLineEdit* m_search;
    QTreeWidget* m_list;
    QDialogButtonBox* m_buttons;
    bool m_showing = false;
};

}  // namespace trovara::widgets
