#include "widgets/result_grid_view.h"

#include "model/defaults.h"
#include "query/result_item.h"
#include "query/result_table_model.h"
#include "widgets/file_icons.h"
#include "widgets/thumbnail_cache.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPainter>

#include <cmath>

namespace trovara::widgets {

namespace {
const QString kZoomKey = QStringLiteral("gridZoomValue");
constexpr int kPadding = 6;
}  // namespace

using query::ResultItem;
using query::ResultTableModel;

ResultGridDelegate::ResultGridDelegate(ThumbnailLoader* loader, QObject* parent)
    : QStyledItemDelegate(parent)
    , m_loader(loader)
{
    m_scaled.setMaxCost(400);
}

QSize ResultGridDelegate::cellSize(const QFontMetrics& metrics) const
{
    return {m_side + 2 * kPadding, m_side + 2 * kPadding + 2 * metrics.height()};
}

QSize ResultGridDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const
{
    return cellSize(option.fontMetrics);
}

void ResultGridDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const auto* item = index.data(ResultTableModel::ResultItemRole).value<ResultItem*>();
    if (!item) {
        return;
    }
    QStyleOptionViewItem background = option;
    background.text.clear();
    background.icon = {};
    background.features &= ~QStyleOptionViewItem::HasDecoration;
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &background, painter, widget);

    const QRect picture(option.rect.x() + (option.rect.width() - m_side) / 2, option.rect.y() + kPadding, m_side,
                        m_side);
    const QString& path = item->path();
    const QImage thumbnail = m_loader->thumbnail(path, m_side);
    if (!thumbnail.isNull()) {
        const QString key = path + QLatin1Char('@') + QString::number(m_side);
        QPixmap* scaled = m_scaled.object(key);
        if (!scaled) {
            const qreal ratio = painter->device()->devicePixelRatioF();
            QImage image = thumbnail;
            const QSize target = image.size().scaled(QSize(m_side, m_side) * ratio, Qt::KeepAspectRatio);
            if (target.width() < image.width()) {
                image = image.scaled(target, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            }
            scaled = new QPixmap(QPixmap::fromImage(image));
            scaled->setDevicePixelRatio(ratio);
            m_scaled.insert(key, scaled);
        }
        const QSizeF shown = scaled->deviceIndependentSize();
        const QSizeF fitted = shown.scaled(QSizeF(m_side, m_side), Qt::KeepAspectRatio);
        const QSizeF size = fitted.width() < shown.width() ? fitted : shown;
        const QRectF target(picture.x() + (m_side - size.width()) / 2, picture.y() + (m_side - size.height()),
                            size.width(), size.height());
        painter->drawPixmap(target, *scaled, QRectF(QPointF(0, 0), scaled->size()));
    } else {
        const int side = std::max(32, m_side * 2 / 3);
        const QIcon icon = iconForName(item->iconName());
        icon.paint(painter, picture.adjusted((m_side - side) / 2, m_side - side, -(m_side - side) / 2, 0),
                   Qt::AlignCenter);
    }

    const QRect text(option.rect.x() + 2, picture.bottom() + 4, option.rect.width() - 4, 2 * option.fontMetrics.height());
    const bool selected = option.state & QStyle::State_Selected;
    painter->setPen(option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
    painter->setFont(option.font);
    // Two lines at most, the second elided in the middle (the extension stays).
    const QString name = item->displayName();
    QString first = name;
    QString second;
    if (option.fontMetrics.horizontalAdvance(name) > text.width()) {
        int cut = name.size();
        while (cut > 1 && option.fontMetrics.horizontalAdvance(name.left(cut)) > text.width()) {
            --cut;
        }
        first = name.left(cut);
        second = option.fontMetrics.elidedText(name.mid(cut), Qt::ElideMiddle, text.width());
    }
    const int line = option.fontMetrics.height();
    painter->drawText(QRect(text.x(), text.y(), text.width(), line), Qt::AlignHCenter | Qt::AlignTop, first);
    if (!second.isEmpty()) {
        painter->drawText(QRect(text.x(), text.y() + line, text.width(), line), Qt::AlignHCenter | Qt::AlignTop, second);
    }
}

ResultGridView::ResultGridView(QWidget* parent, ThumbnailLoader* loader)
    : QListView(parent)
    , m_loader(loader ? loader : ThumbnailLoader::shared())
{
    m_delegate = new ResultGridDelegate(m_loader, this);
    setAccessibleName(tr("Results as thumbnails"));
    setItemDelegate(m_delegate);
    setViewMode(QListView::IconMode);
    // Static movement keeps the plain flow layout, which handles tens of
    // thousands of equal cells cheaply.
    setMovement(QListView::Static);
    setResizeMode(QListView::Adjust);
    setUniformItemSizes(true);
    setLayoutMode(QListView::Batched);
    setBatchSize(5000);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setSpacing(2);
    setWordWrap(true);

    m_repaint.setSingleShot(true);
    m_repaint.setInterval(30);
    connect(&m_repaint, &QTimer::timeout, viewport(), qOverload<>(&QWidget::update));
    connect(m_loader, &ThumbnailLoader::thumbnailReady, this, &ResultGridView::thumbnailArrived);
    connect(this, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.isValid()) {
            emit resultActivated(index.row());
        }
    });
    setZoom(model::Defaults::shared().doubleValue(kZoomKey));
}

void ResultGridView::setResultModel(query::ResultTableModel* model)
{
    setModel(model);
    if (model) {
        setSelectionModel(model->selectionModel());
    }
}

int ResultGridView::iconSide() const
{
    return static_cast<int>(std::lround(kMinimumSide + m_zoom * (kMaximumSide - kMinimumSide)));
}

void ResultGridView::setZoom(double zoom)
{
    zoom = std::clamp(zoom, 0.0, 1.0);
    const bool changed = zoom != m_zoom;
    m_zoom = zoom;
    m_delegate->setIconSide(iconSide());
    setGridSize(m_delegate->cellSize(fontMetrics()) + QSize(4, 4));
    if (changed) {
        model::Defaults::shared().setValue(kZoomKey, zoom);
        emit zoomChanged(zoom);
    }
}

void ResultGridView::thumbnailArrived()
{
    if (isVisible() && !m_repaint.isActive()) {
        m_repaint.start();
    }
}

void ResultGridView::scrollContentsBy(int dx, int dy)
{
    // Far jumps leave the old requests behind: what is on screen now comes
    // first.
    if (std::abs(dy) > viewport()->height()) {
        m_loader->clearPending();
    }
    QListView::scrollContentsBy(dx, dy);
}

void ResultGridView::keyPressEvent(QKeyEvent* event)
{
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && currentIndex().isValid()) {
        emit resultActivated(currentIndex().row());
        return;
    }
    QListView::keyPressEvent(event);
}

}  // namespace trovara::widgets
