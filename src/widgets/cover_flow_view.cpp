#include "widgets/cover_flow_view.h"

#include "query/result_item.h"
#include "query/result_table_model.h"
#include "widgets/file_icons.h"
#include "widgets/thumbnail_cache.h"

#include <QKeyEvent>
#include <QLinearGradient>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace trovara::widgets {

using query::ResultItem;
using query::ResultTableModel;

namespace {
// Covers drawn on each side of the middle one.
constexpr int kSideCovers = 7;
constexpr double kTurnDegrees = 62;
}  // namespace

CoverFlowView::CoverFlowView(QWidget* parent, ThumbnailLoader* loader)
    : QWidget(parent)
    , m_loader(loader ? loader : ThumbnailLoader::shared())
    , m_scrollBar(new QScrollBar(Qt::Horizontal, this))
{
    setAccessibleName(tr("Results as cover flow"));
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_scrollBar->setFocusPolicy(Qt::NoFocus);
    m_scrollBar->setAccessibleName(tr("Position in the results"));
    m_scrollBar->setRange(0, 0);
    connect(m_scrollBar, &QScrollBar::valueChanged, this, [this](int value) {
        if (value != m_current) {
            setCurrentRow(value);
        }
    });
    m_animation.setDuration(220);
    m_animation.setEasingCurve(QEasingCurve::OutCubic);
    connect(&m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        m_position = value.toDouble();
        update();
    });
    connect(m_loader, &ThumbnailLoader::thumbnailReady, this, [this] {
        if (isVisible()) {
            update();
        }
    });
}

void CoverFlowView::setResultModel(query::ResultTableModel* model)
{
    for (const QMetaObject::Connection& connection : m_connections) {
        disconnect(connection);
    }
    m_connections.clear();
    m_model = model;
    m_selection = model ? model->selectionModel() : nullptr;
    m_current = -1;
    m_position = 0;
    if (m_model) {
        m_connections << connect(m_model, &QAbstractItemModel::modelReset, this, &CoverFlowView::rowsChanged);
        m_connections << connect(m_model, &QAbstractItemModel::layoutChanged, this, &CoverFlowView::rowsChanged);
        m_connections << connect(m_model, &QAbstractItemModel::rowsInserted, this, &CoverFlowView::rowsChanged);
        m_connections << connect(m_model, &QAbstractItemModel::rowsRemoved, this, &CoverFlowView::rowsChanged);
        m_connections << connect(m_model, &QAbstractItemModel::rowsMoved, this, &CoverFlowView::rowsChanged);
        m_connections << connect(m_model, &QAbstractItemModel::dataChanged, this, qOverload<>(&QWidget::update));
        m_connections << connect(m_selection, &QItemSelectionModel::currentChanged, this,
                                 &CoverFlowView::followSelection);
        m_connections << connect(m_selection, &QItemSelectionModel::selectionChanged, this,
                                 &CoverFlowView::followSelection);
    }
    rowsChanged();
    followSelection();
}

void CoverFlowView::rowsChanged()
{
    const int rows = m_model ? m_model->rowCount() : 0;
    {
        QSignalBlocker blocker(m_scrollBar);
        m_scrollBar->setRange(0, std::max(0, rows - 1));
    }
    if (rows == 0) {
        m_current = -1;
        m_position = 0;
    } else if (m_current >= rows) {
        m_current = rows - 1;
        m_position = m_current;
    }
    followSelection();
    update();
}

void CoverFlowView::followSelection()
{
    if (m_settingSelection || !m_model || !m_selection) {
        return;
    }
    int row = -1;
    const QModelIndexList selected = m_selection->selectedRows();
    if (m_selection->currentIndex().isValid() && m_selection->isRowSelected(m_selection->currentIndex().row())) {
        row = m_selection->currentIndex().row();
    } else if (!selected.isEmpty()) {
        row = selected.front().row();
    }
    if (row < 0) {
        if (m_current < 0 && m_model->rowCount() > 0) {
            m_current = 0;
            m_position = 0;
        }
        update();
        return;
    }
    if (row != m_current) {
        const bool far = m_current < 0 || std::abs(row - m_current) > 2 * kSideCovers;
        m_current = row;
        if (far) {
            m_animation.stop();
            m_position = row;
        } else {
            m_animation.stop();
            m_animation.setStartValue(m_position);
            m_animation.setEndValue(double(row));
            m_animation.start();
        }
        QSignalBlocker blocker(m_scrollBar);
        m_scrollBar->setValue(row);
    }
    update();
}

void CoverFlowView::setCurrentRow(int row, bool animated)
{
    if (!m_model || m_model->rowCount() == 0) {
        return;
    }
    row = std::clamp(row, 0, m_model->rowCount() - 1);
    m_settingSelection = true;
    m_model->setSelectionIndex(row);
    m_settingSelection = false;
    if (row == m_current) {
        return;
    }
    m_current = row;
    m_animation.stop();
    if (animated && std::abs(m_position - row) <= 2 * kSideCovers) {
        m_animation.setStartValue(m_position);
        m_animation.setEndValue(double(row));
        m_animation.start();
    } else {
        m_position = row;
    }
    QSignalBlocker blocker(m_scrollBar);
    m_scrollBar->setValue(row);
    update();
}

QRectF CoverFlowView::coverArea() const
{
    const int text = 3 * fontMetrics().height();
    return QRectF(0, 0, width(), std::max(0, height() - m_scrollBar->height() - text));
}

std::vector<CoverFlowView::Cover> CoverFlowView::visibleCovers() const
{
    std::vector<Cover> covers;
    const int rows = m_model ? m_model->rowCount() : 0;
    if (rows == 0) {
        return covers;
    }
    const QRectF area = coverArea();
    const double side = std::max(16.0, std::min(area.height() * 0.62, area.width() * 0.34));
    const double baseline = area.top() + area.height() * 0.08 + side;
    const double centre = area.center().x();
    const int first = std::max(0, static_cast<int>(std::floor(m_position)) - kSideCovers);
    const int last = std::min(rows - 1, static_cast<int>(std::ceil(m_position)) + kSideCovers);
    for (int row = first; row <= last; ++row) {
        const double d = row - m_position;
        const double turn = std::clamp(d, -1.0, 1.0);
        // Within one step of the middle the cover slides out; further away
        // the turned covers stand closer together.
        const double x = std::abs(d) < 1 ? centre + d * side * 0.62
                                          : centre + std::copysign(side * 0.62 + (std::abs(d) - 1) * side * 0.28, d);
        covers.push_back({row, QRectF(x - side / 2, baseline - side, side, side), turn});
    }
    // Far covers first, so that nearer ones are drawn over them.
    std::sort(covers.begin(), covers.end(), [&](const Cover& a, const Cover& b) {
        return std::abs(a.row - m_position) > std::abs(b.row - m_position);
    });
    return covers;
}

QImage CoverFlowView::imageFor(int row, int side) const
{
    const ResultItem* item = m_model->arrangedObjectAt(row);
    if (!item) {
        return {};
    }
    QImage image = m_loader->thumbnail(item->path(), side);
    if (image.isNull()) {
        const int iconSide = std::max(32, side * 2 / 3);
        image = iconForName(item->iconName()).pixmap(QSize(iconSide, iconSide), devicePixelRatioF()).toImage();
    }
    return image;
}

void CoverFlowView::drawCover(QPainter& painter, const Cover& cover) const
{
    const int side = static_cast<int>(cover.rect.width());
    const QImage image = imageFor(cover.row, side > 128 ? 256 : 128);
    if (image.isNull()) {
        return;
    }
    const QSizeF size = QSizeF(image.size() / image.devicePixelRatioF()).scaled(cover.rect.size(), Qt::KeepAspectRatio);
    // Bottom-aligned on the baseline, centred across.
    const QRectF face(-size.width() / 2, -size.height(), size.width(), size.height());

    QTransform transform;
    transform.translate(cover.rect.center().x(), cover.rect.bottom());
    transform.rotate(-cover.turn * kTurnDegrees, Qt::YAxis);
    painter.save();
    painter.setTransform(transform, false);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(face, image);
    // The reflection: upside down, faint, fading into the background.
    painter.setOpacity(0.22);
    painter.drawImage(QRectF(face.left(), 0, face.width(), face.height()), image.mirrored(false, true));
    painter.setOpacity(1);
    QLinearGradient fade(0, 0, 0, face.height() * 0.6);
    QColor background = palette().color(QPalette::Base);
    QColor clear = background;
    clear.setAlpha(0);
    fade.setColorAt(0, clear);
    fade.setColorAt(1, background);
    painter.fillRect(QRectF(face.left(), 0, face.width(), face.height() + 1), fade);
    if (cover.row == m_current && hasFocus()) {
        QPen pen(palette().color(QPalette::Highlight), 2);
        painter.setPen(pen);
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(face.adjusted(-1, -1, 1, 1));
    }
    painter.restore();
}

void CoverFlowView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), palette().color(QPalette::Base));
    for (const Cover& cover : visibleCovers()) {
        drawCover(painter, cover);
    }
    const ResultItem* item = m_model && m_current >= 0 ? m_model->arrangedObjectAt(m_current) : nullptr;
    if (!item) {
        return;
    }
    const QFontMetrics metrics = fontMetrics();
    const QRectF area = coverArea();
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.setPen(palette().color(QPalette::Text));
    const QRect nameRect(8, static_cast<int>(area.bottom()), width() - 16, metrics.height() + 2);
    painter.drawText(nameRect, Qt::AlignCenter,
                     QFontMetrics(bold).elidedText(item->displayName(), Qt::ElideMiddle, nameRect.width()));
    painter.setFont(font());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    const QRect folderRect(8, nameRect.bottom() + 2, width() - 16, metrics.height());
    painter.drawText(folderRect, Qt::AlignCenter,
                     metrics.elidedText(QStringLiteral("%1 — %2 / %3")
                                            .arg(item->parent())
                                            .arg(m_current + 1)
                                            .arg(m_model->rowCount()),
                                        Qt::ElideMiddle, folderRect.width()));
}

int CoverFlowView::rowAt(const QPoint& point) const
{
    // The nearest covers are drawn last, so they win.
    const std::vector<Cover> covers = visibleCovers();
    for (auto it = covers.rbegin(); it != covers.rend(); ++it) {
        if (it->rect.contains(point)) {
            return it->row;
        }
    }
    return -1;
}

void CoverFlowView::keyPressEvent(QKeyEvent* event)
{
    if (!m_model || m_model->rowCount() == 0) {
        QWidget::keyPressEvent(event);
        return;
    }
    const int current = std::max(0, m_current);
    switch (event->key()) {
    case Qt::Key_Left:
        setCurrentRow(current - 1);
        break;
    case Qt::Key_Right:
        setCurrentRow(current + 1);
        break;
    case Qt::Key_Home:
        setCurrentRow(0);
        break;
    case Qt::Key_End:
        setCurrentRow(m_model->rowCount() - 1);
        break;
    case Qt::Key_PageUp:
        setCurrentRow(current - kSideCovers);
        break;
    case Qt::Key_PageDown:
        setCurrentRow(current + kSideCovers);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_current >= 0) {
            emit resultActivated(m_current);
        }
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

void CoverFlowView::mousePressEvent(QMouseEvent* event)
{
    setFocus(Qt::MouseFocusReason);
    const int row = rowAt(event->position().toPoint());
    if (row >= 0) {
        setCurrentRow(row);
    }
}

void CoverFlowView::mouseDoubleClickEvent(QMouseEvent* event)
{
    const int row = rowAt(event->position().toPoint());
    if (row >= 0 && row == m_current) {
        emit resultActivated(row);
    }
}

void CoverFlowView::wheelEvent(QWheelEvent* event)
{
    const QPoint delta = event->angleDelta();
    const int steps = (std::abs(delta.x()) > std::abs(delta.y()) ? -delta.x() : -delta.y()) / 120;
    if (steps != 0) {
        setCurrentRow(std::max(0, m_current) + steps);
    }
    event->accept();
}

void CoverFlowView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const int bar = m_scrollBar->sizeHint().height();
    m_scrollBar->setGeometry(width() / 6, height() - bar - 4, width() * 2 / 3, bar);
}

}  // namespace trovara::widgets
