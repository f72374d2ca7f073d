// The cover flow: the arranged results as a row of covers (thumbnails, or
// the file type's icon), the current one facing the viewer in the middle
// and its neighbours turned away on either side, with the current result's
// name and folder beneath. Left and Right (and Home, End, Page Up, Page
// Down, the wheel, a click on a neighbour, the scroll bar) move through
// the results; the movement is animated. The current cover is the
// selection, shared with the table and the grid. Return, Enter or a double
// click on the middle cover opens it.
//
// Painted by Trovara in the palette's colours; only the covers in view are
// drawn, so the number of results does not matter.
#pragma once

#include <QPersistentModelIndex>
#include <QVariantAnimation>
#include <QWidget>

class QAbstractItemModel;
class QItemSelectionModel;
class QScrollBar;

namespace trovara::query {
class ResultTableModel;
}

namespace trovara::widgets {

class ThumbnailLoader;

class CoverFlowView final : public QWidget {
    Q_OBJECT

public:
    explicit CoverFlowView(QWidget* parent = nullptr, ThumbnailLoader* loader = nullptr);

    void setResultModel(query::ResultTableModel* model);
    // The row facing the viewer (-1 without results).
    int currentRow() const { return m_current; }
    // Selects the row alone and turns the covers to it.
    void setCurrentRow(int row, bool animated = true);
    // Where the covers stand (the current row once the movement ends).
    double position() const { return m_position; }
    // The row of the cover at a point of the view, or -1.
    int rowAt(const QPoint& point) const;

signals:
    void resultActivated(int row);

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Cover {
        int row;
        QRectF rect;  // where it is drawn, before the turn
        double turn;  // -1 (turned left) … 0 (facing) … 1 (turned right)
    };
    std::vector<Cover> visibleCovers() const;
    QRectF coverArea() const;
    void followSelection();
    void rowsChanged();
    void drawCover(QPainter& painter, const Cover& cover) const;
    QImage imageFor(int row, int side) const;

    query::ResultTableModel* m_model = nullptr;
    QItemSelectionModel* m_selection = nullptr;
    ThumbnailLoader* m_loader;
    QScrollBar* m_scrollBar;
    QVariantAnimation m_animation;
    int m_current = -1;
    double m_position = 0;
    bool m_settingSelection = false;
    QList<QMetaObject::Connection> m_connections;
};

}  // namespace trovara::widgets
