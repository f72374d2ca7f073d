// How a result cell is drawn: its text at the model's text size, elided at
// the end, and, in the name column while icons are shown, the file's icon
// before it. The style draws the rest (selection, focus, alternate rows),
// so the table looks like every other table on the desktop.
#pragma once

#include <QStyledItemDelegate>

namespace trovara::widgets {

class ResultItemDelegate final : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

// Pixels of a length in points on the widget's screen.
int pointsToPixels(const QWidget* widget, double points);

}  // namespace trovara::widgets
