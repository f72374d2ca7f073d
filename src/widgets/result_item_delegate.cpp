#include "widgets/result_item_delegate.h"

#include "query/result_table_model.h"
#include "widgets/file_icons.h"

#include <QWidget>

#include <cmath>

namespace trovara::widgets {

using query::ResultTableModel;

int pointsToPixels(const QWidget* widget, double points)
{
    const double dpi = widget ? widget->logicalDpiY() : 96.0;
    return static_cast<int>(std::lround(points * dpi / 72.0));
}

void ResultItemDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    const QVariant size = index.data(ResultTableModel::FontPointSizeRole);
    if (size.isValid() && size.toDouble() > 0) {
        option->font.setPointSizeF(size.toDouble());
        option->fontMetrics = QFontMetrics(option->font);
    }
    option->textElideMode = Qt::ElideRight;
    const QString iconName = index.data(ResultTableModel::IconNameRole).toString();
    if (!iconName.isEmpty()) {
        option->icon = iconForName(iconName);
        option->features |= QStyleOptionViewItem::HasDecoration;
        const int side = std::max(12, option->fontMetrics.height());
        option->decorationSize = QSize(side, side);
    }
}

}  // namespace trovara::widgets
