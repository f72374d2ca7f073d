// The grid of thumbnails: the same arranged results and selection as the
// table, each result as its thumbnail (or its file type's icon while none
// is there) with its name below. The zoom ("gridZoomValue", 0 to 1) sets
// the size of the cells, from 48 to 256 pixels.
//
// Only the cells on screen ask for thumbnails; they arrive from the
// background and repaint their cells as they come, so tens of thousands of
// results scroll as freely as a few.
#pragma once

#include <QListView>
#include <QStyledItemDelegate>

#include <QCache>
#include <QPixmap>
#include <QTimer>

namespace trovara::query {
class ResultTableModel;
}

namespace trovara::widgets {

class ThumbnailLoader;

// Draws a result as a thumbnail over its name; shared by the grid.
class ResultGridDelegate final : public QStyledItemDelegate {
    Q_OBJECT

public:
    ResultGridDelegate(ThumbnailLoader* loader, QObject* parent);

    void setIconSide(int pixels) { m_side = pixels; }
    int iconSide() const { return m_side; }
    QSize cellSize(const QFontMetrics& metrics) const;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    ThumbnailLoader* m_loader;
    int m_side = 128;
    // Thumbnails scaled for the current size, by path.
    mutable QCache<QString, QPixmap> m_scaled;
};

class ResultGridView final : public QListView {
    Q_OBJECT

public:
    static constexpr int kMinimumSide = 48;
    static constexpr int kMaximumSide = 256;

    explicit ResultGridView(QWidget* parent = nullptr, ThumbnailLoader* loader = nullptr);

    // The arranged results and their selection.
    void setResultModel(query::ResultTableModel* model);
    // 0 to 1; stored in "gridZoomValue".
    void setZoom(double zoom);
    double zoom() const { return m_zoom; }
    int iconSide() const;

signals:
    void resultActivated(int row);
    void zoomChanged(double zoom);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    void thumbnailArrived();

    ResultGridDelegate* m_delegate;
    ThumbnailLoader* m_loader;
    double m_zoom = 0.5;
    QTimer m_repaint;  // gathers thumbnails that arrive together into one repaint
};

}  // namespace trovara::widgets
