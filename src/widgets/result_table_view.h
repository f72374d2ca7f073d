// The result table: the arranged results of a document, one row per result
// and one column per result column of the document, sortable by a click on
// a column's header.
//
// The header (ResultTableHeaderView) offers the column configuration menu
// as its context menu, and the corner above the vertical scroll bar
// (ResultTableCornerView) pops the same menu up: "Auto-size all Columns",
// one check item per column the document knows, "More Columns…". The
// View menu's "Columns" submenu carries it too, for the keyboard.
//
// Widths, order and sorting live in the model (query::ResultTableModel), so
// the document saves them without a window; the table reports what the
// user does with the columns and follows the model's changes. Rows are
// "resultTableRowHeight" points high with text of (height − 6) points; the
// name column shows file icons while "showIconsInResults" is on.
#pragma once

#include <QHeaderView>
#include <QTableView>
#include <QToolButton>

namespace trovara::query {
class MetadataQueryController;
class ResultTableModel;
}  // namespace trovara::query

namespace trovara::widgets {

class ResultTableView;

class ResultTableHeaderView final : public QHeaderView {
    Q_OBJECT

public:
    explicit ResultTableHeaderView(ResultTableView* table);

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    ResultTableView* m_table;
};

class ResultTableCornerView final : public QToolButton {
    Q_OBJECT

public:
    explicit ResultTableCornerView(ResultTableView* table);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    ResultTableView* m_table;
};

class ResultTableView final : public QTableView {
    Q_OBJECT

public:
    explicit ResultTableView(QWidget* parent = nullptr);

    // Shows the controller's arranged results with its selection; the
    // document's graph gives the column menu its attributes.
    void setController(query::MetadataQueryController* controller);
    query::ResultTableModel* resultModel() const { return m_model; }

    // Fills the menu with the column configuration items.
    void fillColumnConfigurationMenu(QMenu* menu);
    // Sizes every column to its contents (never under its minimum width)
    // and tells the model the widths.
    void autoSizeAllColumns();
    // Row height and text size from the model.
    void applyRowHeight();

    // The header height the corner view matches.
    ResultTableCornerView* cornerView() const { return m_corner; }

signals:
    // "More Columns…" was chosen.
    void moreColumnsRequested();
    // A result was opened (double click, Return or Enter).
    void resultActivated(int row);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void syncColumnsFromModel();
    void syncSortIndicator();
    void headerClicked(int column);
    void sectionMoved(int logical, int oldVisual, int newVisual);

    query::MetadataQueryController* m_controller = nullptr;
    query::ResultTableModel* m_model = nullptr;
    ResultTableHeaderView* m_header;
    ResultTableCornerView* m_corner;
    bool m_syncing = false;
    QList<QMetaObject::Connection> m_connections;
};

}  // namespace trovara::widgets
