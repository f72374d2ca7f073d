#include "widgets/result_table_view.h"

#include "query/metadata_query_controller.h"
#include "query/query_document.h"
#include "query/result_table_model.h"
#include "widgets/file_icons.h"
#include "widgets/result_item_delegate.h"

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QStyleOptionHeader>

namespace trovara::widgets {

using query::ResultTableModel;

// --- Header ---------------------------------------------------------------------------

ResultTableHeaderView::ResultTableHeaderView(ResultTableView* table)
    : QHeaderView(Qt::Horizontal, table)
    , m_table(table)
{
    setSectionsClickable(true);
    setSectionsMovable(true);
    setSortIndicatorShown(true);
    setHighlightSections(false);
    // The last column takes the room the others leave, so the table has no
    // empty strip on its right; the others keep the widths people drag.
    setStretchLastSection(true);
    setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void ResultTableHeaderView::contextMenuEvent(QContextMenuEvent* event)
{
    QMenu menu(this);
    m_table->fillColumnConfigurationMenu(&menu);
    menu.exec(event->globalPos());
}

// --- Corner ---------------------------------------------------------------------------

ResultTableCornerView::ResultTableCornerView(ResultTableView* table)
    : QToolButton(table)
    , m_table(table)
{
    // The keyboard reaches the same menu through View ▸ Columns.
    setFocusPolicy(Qt::NoFocus);
    setAccessibleName(tr("Column options"));
    setToolTip(tr("Columns"));
    setAutoRaise(true);
}

void ResultTableCornerView::mousePressEvent(QMouseEvent*)
{
    QMenu menu(this);
    m_table->fillColumnConfigurationMenu(&menu);
    menu.exec(mapToGlobal(QPoint(0, height())));
}

void ResultTableCornerView::paintEvent(QPaintEvent*)
{
    // Looks like the header it continues: a header section with a small
    // column glyph.
    QPainter painter(this);
    QStyleOptionHeader option;
    option.initFrom(this);
    option.rect = rect();
    option.position = QStyleOptionHeader::End;
    style()->drawControl(QStyle::CE_HeaderSection, &option, &painter, this);
    const QIcon icon = themeIcon(QStringLiteral("view-column"),
                                 themeIcon(QStringLiteral("view-more-symbolic"),
                                           style()->standardIcon(QStyle::SP_FileDialogDetailedView)));
    const int side = std::min(16, std::min(width(), height()) - 4);
    icon.paint(&painter, QRect((width() - side) / 2, (height() - side) / 2, side, side));
}

// --- Table ----------------------------------------------------------------------------

ResultTableView::ResultTableView(QWidget* parent)
    : QTableView(parent)
    , m_header(new ResultTableHeaderView(this))
    , m_corner(new ResultTableCornerView(this))
{
    setAccessibleName(tr("Results"));
    setHorizontalHeader(m_header);
    setItemDelegate(new ResultItemDelegate(this));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setShowGrid(false);
    setAlternatingRowColors(true);
    setWordWrap(false);
    setTabKeyNavigation(false);
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setMinimumSectionSize(1);
    // The corner sits above the vertical scroll bar, beside the header.
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    addScrollBarWidget(m_corner, Qt::AlignTop);
    m_corner->setFixedHeight(m_header->sizeHint().height());

    connect(m_header, &QHeaderView::sectionClicked, this, &ResultTableView::headerClicked);
    connect(m_header, &QHeaderView::sectionMoved, this, &ResultTableView::sectionMoved);
    connect(m_header, &QHeaderView::sectionResized, this, [this](int column, int, int width) {
        // The last column's width follows the window, not the person.
        const bool stretched = m_header->visualIndex(column) == m_header->count() - 1;
        if (!m_syncing && m_model && !stretched) {
            // A width the person chose stays.
            m_autoSizeWhenFilled = false;
            m_model->setColumnWidth(column, width);
        }
    });
    connect(this, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.isValid()) {
            emit resultActivated(index.row());
        }
    });
}

void ResultTableView::setController(query::MetadataQueryController* controller)
{
    for (const QMetaObject::Connection& connection : m_connections) {
        disconnect(connection);
    }
    m_connections.clear();
    m_controller = controller;
    m_model = controller ? controller->results() : nullptr;
    setModel(m_model);
    if (!m_model) {
        return;
    }
    setSelectionModel(m_model->selectionModel());
    m_connections << connect(m_model, &ResultTableModel::autoSizeAllColumnsRequested, this,
                             &ResultTableView::autoSizeAllColumns);
    m_connections << connect(m_model, &ResultTableModel::rowHeightChanged, this, &ResultTableView::applyRowHeight);
    m_connections << connect(m_model, &ResultTableModel::arrangedObjectsChanged, this, [this] {
        syncSortIndicator();
        // Columns sized before there was anything to measure are sized again
        // on the first results.
        if (m_autoSizeWhenFilled && m_model->rowCount() > 0) {
            autoSizeAllColumns();
        }
    });
    m_connections << connect(m_model, &QAbstractItemModel::columnsInserted, this,
                             &ResultTableView::syncColumnsFromModel);
    m_connections << connect(m_model, &QAbstractItemModel::columnsMoved, this, &ResultTableView::syncColumnsFromModel);
    m_connections << connect(m_model, &QAbstractItemModel::modelReset, this, &ResultTableView::syncColumnsFromModel);
    m_connections << connect(m_model, &QAbstractItemModel::headerDataChanged, this,
                             [this](Qt::Orientation orientation, int, int) {
                                 if (orientation == Qt::Horizontal) {
                                     syncColumnsFromModel();
                                 }
                             });
    applyRowHeight();
    syncColumnsFromModel();
}

void ResultTableView::syncColumnsFromModel()
{
    if (!m_model || m_syncing) {
        return;
    }
    m_syncing = true;
    bool unsized = false;
    for (int column = 0; column < m_model->columnCount(); ++column) {
        // The header shows the model's order: a moved section is moved in
        // the model and the header put back in place.
        if (m_header->visualIndex(column) != column) {
            m_header->moveSection(m_header->visualIndex(column), column);
        }
        const double width = m_model->headerData(column, Qt::Horizontal, ResultTableModel::ColumnWidthRole).toDouble();
        const int minimum = m_model->headerData(column, Qt::Horizontal, ResultTableModel::MinimumWidthRole).toInt();
        if (width > 0) {
            m_header->resizeSection(column, std::max(minimum, static_cast<int>(width)));
        } else {
            unsized = true;
        }
    }
    m_syncing = false;
    if (unsized) {
        autoSizeAllColumns();
    }
    syncSortIndicator();
}

void ResultTableView::autoSizeAllColumns()
{
    if (!m_model) {
        return;
    }
    m_autoSizeWhenFilled = m_model->rowCount() == 0;
    m_syncing = true;
    for (int column = 0; column < m_model->columnCount(); ++column) {
        const int minimum = m_model->headerData(column, Qt::Horizontal, ResultTableModel::MinimumWidthRole).toInt();
        const int fit = std::max({minimum, sizeHintForColumn(column), m_header->sectionSizeHint(column)});
        m_header->resizeSection(column, fit);
        m_model->setColumnWidth(column, fit);
    }
    m_syncing = false;
}

void ResultTableView::applyRowHeight()
{
    if (!m_model) {
        return;
    }
    verticalHeader()->setDefaultSectionSize(pointsToPixels(this, m_model->rowHeight()));
}

void ResultTableView::syncSortIndicator()
{
    if (!m_model) {
        return;
    }
    const auto& descriptors = m_model->sortDescriptors();
    int column = -1;
    Qt::SortOrder order = Qt::AscendingOrder;
    if (!descriptors.empty()) {
        for (int c = 0; c < m_model->columnCount(); ++c) {
            if (m_model->columns()[static_cast<std::size_t>(c)].sortDescriptorPrototype.key == descriptors.front().key) {
                column = c;
                order = descriptors.front().ascending ? Qt::AscendingOrder : Qt::DescendingOrder;
                break;
            }
        }
    }
    QSignalBlocker blocker(m_header);
    m_header->setSortIndicator(column, order);
}

void ResultTableView::headerClicked(int column)
{
    if (!m_model) {
        return;
    }
    // A click on the sorted column turns its order round; on another column
    // it sorts by that one, ascending.
    Qt::SortOrder order = Qt::AscendingOrder;
    const auto& descriptors = m_model->sortDescriptors();
    if (!descriptors.empty()
        && m_model->columns()[static_cast<std::size_t>(column)].sortDescriptorPrototype.key == descriptors.front().key
        && descriptors.front().ascending) {
        order = Qt::DescendingOrder;
    }
    m_model->sort(column, order);
    syncSortIndicator();
}

void ResultTableView::sectionMoved(int, int oldVisual, int newVisual)
{
    if (m_syncing || !m_model) {
        return;
    }
    // Put the header back, then move the column in the model: the model's
    // order is the saved one.
    m_syncing = true;
    m_header->moveSection(newVisual, oldVisual);
    m_syncing = false;
    const int destination = newVisual > oldVisual ? newVisual + 1 : newVisual;
    m_model->moveColumns({}, oldVisual, 1, {}, destination);
}

void ResultTableView::fillColumnConfigurationMenu(QMenu* menu)
{
    menu->clear();
    if (!m_model || !m_controller || !m_controller->document()) {
        return;
    }
    using Kind = ResultTableModel::ColumnMenuItem::Kind;
    for (const ResultTableModel::ColumnMenuItem& item :
         m_model->columnConfigurationMenu(m_controller->document()->managedObjectContext())) {
        switch (item.kind) {
        case Kind::Separator:
            menu->addSeparator();
            break;
        case Kind::AutoSizeAllColumns:
            menu->addAction(item.title, this, [this] { m_model->autoSizeAllColumns(); });
            break;
        case Kind::MoreColumns:
            menu->addAction(item.title, this, &ResultTableView::moreColumnsRequested);
            break;
        case Kind::Column: {
            QAction* action = menu->addAction(item.title);
            action->setCheckable(true);
            action->setChecked(item.checked);
            model::ColumnAttribute* attribute = item.attribute;
            connect(action, &QAction::triggered, this, [this, attribute] { m_model->actionHideShowColumn(attribute); });
            break;
        }
        }
    }
}

void ResultTableView::keyPressEvent(QKeyEvent* event)
{
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && currentIndex().isValid()) {
        emit resultActivated(currentIndex().row());
        return;
    }
    QTableView::keyPressEvent(event);
}

}  // namespace trovara::widgets
