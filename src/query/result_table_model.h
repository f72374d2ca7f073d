// The result list as the result views show it: the controller's results,
// filtered and sorted (the "arranged" results), one row each, with one
// column per visible result column of the document. The table, the image
// grid and the cover-flow view all sit on this one model (the grid and the
// cover flow on its first column) and share its selection model.
//
// Rows follow the arrangement with the least disruption: when the results
// or their order change, rows that went away are removed, the rows that
// stayed are moved (persistent indexes and the selection follow them), and
// new rows are inserted; only a change too scattered to describe in a few
// steps resets the model.
//
// Columns: the identifier of a column is its attribute key, its header the
// attribute's display name, its cells the attribute's values through the
// column's formatter (a value without one shows in its own textual form).
// Widths live here too, so that the document's layout can be saved without
// a window; the table widget reports the widths the user gives.
//
// Row height: the user default "resultTableRowHeight", kept between 13 and
// 24 points by the font-size commands; cell text is (row height − 6) points.
//
// Not thread-safe: use it on the main thread.
#pragma once

#include "store/managed_object_context.h"
#include "model/abstract_attribute.h"
#include "presentation/sort_descriptor.h"
#include "query/result_filter.h"
#include "query/result_item.h"

#include <QAbstractTableModel>
#include <QItemSelectionModel>

#include <memory>
#include <optional>
#include <vector>

Q_DECLARE_METATYPE(trovara::query::ResultItem*)

namespace trovara::query {

class ResultTableModel final : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Role {
        ResultItemRole = Qt::UserRole + 1,  // the ResultItem* of the row
        PathRole,                           // its path
        IconNameRole,                       // its icon's name, in the name column while icons are shown
        ObjectValueRole,                    // the cell's value before formatting
        FontPointSizeRole,                  // the size of cell text
    };
    enum HeaderRole {
        IdentifierRole = Qt::UserRole + 1,  // the column's attribute key
        ColumnWidthRole,                    // its width in points (0: not yet sized)
        MinimumWidthRole,
    };

    static constexpr double kMinimumRowHeight = 13;
    static constexpr double kMaximumRowHeight = 24;

    struct Column {
        model::ColumnAttribute* attribute = nullptr;
        QString identifier;
        QString title;
        std::shared_ptr<const model::Formatter> formatter;
        presentation::SortDescriptor sortDescriptorPrototype;
        double width = 0;
        double minimumWidth = 50;
    };

    struct ColumnMenuItem {
        enum class Kind { AutoSizeAllColumns, Separator, Column, MoreColumns };
        Kind kind = Kind::Separator;
        QString title;
        model::ColumnAttribute* attribute = nullptr;  // for Kind::Column
        bool checked = false;
    };

    explicit ResultTableModel(QObject* parent = nullptr);
    ~ResultTableModel() override;

    // --- Content and arrangement ---------------------------------------
    // The results to arrange (the controller's result list), arranged at once.
    void setContent(std::vector<std::shared_ptr<ResultItem>> content);
    const std::vector<std::shared_ptr<ResultItem>>& content() const { return m_content; }
    // Live changes to the content: results that came (appended to it), went
    // and changed. Only their rows are touched: each new result the filter
    // keeps is placed among the rows by the sort order (the rows already
    // there keep theirs), a changed result's row is repainted where it is
    // or moved where it now belongs, and the rows of results gone are
    // removed. The arrangement is as setContent() of the new content would
    // make it, at a fraction of the cost for a few results among many.
    void addContent(std::vector<std::shared_ptr<ResultItem>> added) { applyChanges(std::move(added), {}, {}); }
    void applyChanges(std::vector<std::shared_ptr<ResultItem>> added,
                      const std::vector<std::shared_ptr<ResultItem>>& removed,
                      const std::vector<std::shared_ptr<ResultItem>>& changed);
    // No filter keeps every result. Takes effect with the next arrangement.
    void setFilterPredicate(std::optional<ResultFilter> filter);
    const std::optional<ResultFilter>& filterPredicate() const { return m_filter; }
    // Arranges at once (unless the order is the same).
    void setSortDescriptors(std::vector<presentation::SortDescriptor> descriptors);
    const std::vector<presentation::SortDescriptor>& sortDescriptors() const { return m_sortDescriptors; }
    void rearrangeObjects();
    const std::vector<ResultItem*>& arrangedObjects() const { return m_arranged; }
    ResultItem* arrangedObjectAt(int row) const;

    // --- Selection -----------------------------------------------------
    QItemSelectionModel* selectionModel() const { return m_selection; }
    // Selected results, top to bottom.
    std::vector<ResultItem*> selectedObjects() const;
    // The topmost selected result, or nullptr.
    ResultItem* selectedObject() const;
    // Selects the row alone (and makes it current).
    void setSelectionIndex(int row);

    // --- Columns -------------------------------------------------------
    const std::vector<Column>& columns() const { return m_columns; }
    // The column with the attribute key, or -1.
    int columnForIdentifier(const QString& identifier) const;
    // Appends a column for the attribute (not editable; minimum width 50,
    // 100 for the name column) and emits columnAdded().
    int addColumnForColumnAttribute(model::ColumnAttribute* attribute);
    void removeColumnAt(int column);
    void setColumnWidth(int column, double width);
    // Removes the attribute's column when shown, else appends it; true when
    // it is shown afterwards.
    bool actionHideShowColumn(model::ColumnAttribute* attribute);
    // Asks the views to size every column to fit.
    void autoSizeAllColumns();
    // "Auto-size all Columns", a separator, one checkable item per column
    // attribute of the document, a separator, "More Columns…".
    std::vector<ColumnMenuItem> columnConfigurationMenu(store::ManagedObjectContext& context) const;

    // --- Icons and row height -------------------------------------------
    void setShowsIcons(bool shows);
    bool showsIcons() const { return m_showsIcons; }
    double rowHeight() const { return m_rowHeight; }
    double fontPointSize() const { return m_rowHeight - 6; }
    // Takes the row height from the user default.
    void applyRowHeightPreference();
    // One point more or less: false (the caller beeps) when that would
    // leave 13 to 24 points, which changes nothing.
    bool increaseFontSize() { return adjustRowHeightPreference(1); }
    bool decreaseFontSize() { return adjustRowHeightPreference(-1); }
    bool adjustRowHeightPreference(int step);

    // --- QAbstractItemModel ----------------------------------------------
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    // Sorts by the column's prototype alone, in the given direction.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    bool moveColumns(const QModelIndex& sourceParent, int sourceColumn, int count,
                     const QModelIndex& destinationParent, int destinationChild) override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override { return Qt::CopyAction | Qt::LinkAction; }
    QHash<int, QByteArray> roleNames() const override;

    // The text a cell shows.
    QString textForCell(const ResultItem& item, const Column& column) const;

signals:
    // The arranged results changed (content, filter or order).
    void arrangedObjectsChanged();
    // A column was added (the table reloads).
    void columnAdded(int column);
    void autoSizeAllColumnsRequested();
    void rowHeightChanged(double rowHeight);

private:
    void applyArrangement(std::vector<ResultItem*> next);
    void insertRuns(const std::vector<ResultItem*>& next, const std::vector<bool>& isNew);
    // Places results that have no row yet, in arranged order, among the rows.
    void insertArranged(std::vector<ResultItem*> items);
    // Removes the rows of these results (those that have one).
    void removeArranged(const std::vector<const ResultItem*>& items);
    // A changed result's row: repainted where it still belongs, else moved.
    void rearrangeRow(int row);
    // Where a result goes among the rows [from, to) (after the ones it ties with).
    int insertionRow(const ResultItem& item, int from, int to) const;

    std::vector<std::shared_ptr<ResultItem>> m_content;
    std::vector<ResultItem*> m_arranged;
    std::optional<ResultFilter> m_filter;
    std::vector<presentation::SortDescriptor> m_sortDescriptors;
    QItemSelectionModel* m_selection;
    std::vector<Column> m_columns;
    bool m_showsIcons = true;
    double m_rowHeight = 17;
};

}  // namespace trovara::query
