#include "query/result_table_model.h"

#include "model/defaults.h"
#include "model/localization.h"
#include "model/value_text.h"
#include "presentation/column_formatters.h"
#include "query/result_arrangement.h"

#include <algorithm>
#include <cstdint>

namespace trovara::query {

namespace {

const QString kNameColumn = QStringLiteral("kMDItemDisplayName");
const QString kRowHeightKey = QStringLiteral("resultTableRowHeight");

// More separate insertions and removals than this, and rows are reset
// instead: views handle one reset faster than many scattered changes.
constexpr std::size_t kMaximumRuns = 64;

// The row of each result of a list, found by address: open addressing in
// one flat array, as this runs for every arrangement of up to 50000 rows
// and a node-based map would allocate once per row.
class RowOfResult {
public:
    explicit RowOfResult(const std::vector<ResultItem*>& rows)
    {
        std::size_t capacity = 16;
        while (capacity < rows.size() * 2) {
            capacity *= 2;
        }
        m_slots.assign(capacity, {nullptr, -1});
        m_mask = capacity - 1;
        for (std::size_t row = 0; row < rows.size(); ++row) {
            std::size_t slot = hash(rows[row]);
            while (m_slots[slot].first) {
                slot = (slot + 1) & m_mask;
            }
            m_slots[slot] = {rows[row], static_cast<int>(row)};
        }
    }

    // The row, or -1.
    int find(const ResultItem* item) const
    {
        for (std::size_t slot = hash(item);; slot = (slot + 1) & m_mask) {
            if (m_slots[slot].first == item) {
                return m_slots[slot].second;
            }
            if (!m_slots[slot].first) {
                return -1;
            }
        }
    }

private:
    std::size_t hash(const ResultItem* item) const
    {
        // Fibonacci hashing of the address (its low bits are alignment).
        return static_cast<std::size_t>((reinterpret_cast<std::uintptr_t>(item) >> 4) * 0x9E3779B97F4A7C15ull) & m_mask;
    }

    std::vector<std::pair<const ResultItem*, int>> m_slots;
    std::size_t m_mask = 0;
};

std::vector<ResultItem*> rawPointers(const std::vector<std::shared_ptr<ResultItem>>& items)
{
    std::vector<ResultItem*> raw;
    raw.reserve(items.size());
    for (const std::shared_ptr<ResultItem>& item : items) {
        raw.push_back(item.get());
    }
    return raw;
}

}  // namespace

ResultTableModel::ResultTableModel(QObject* parent)
    : QAbstractTableModel(parent)
    , m_selection(new QItemSelectionModel(this, this))
{
    m_rowHeight = model::Defaults::shared().doubleValue(kRowHeightKey);
}

ResultTableModel::~ResultTableModel() = default;

// --- Content and arrangement ---------------------------------------------

void ResultTableModel::setContent(std::vector<std::shared_ptr<ResultItem>> content)
{
    // The old results stay alive until the rows have followed: a new result
    // must never be taken for an old one that had the same address.
    std::vector<std::shared_ptr<ResultItem>> previous = std::exchange(m_content, std::move(content));
    rearrangeObjects();
    // Results that stayed may carry new values (their files changed).
    if (!m_arranged.empty() && !m_columns.empty()) {
        emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
    }
}

void ResultTableModel::setFilterPredicate(std::optional<ResultFilter> filter)
{
    m_filter = std::move(filter);
}

void ResultTableModel::setSortDescriptors(std::vector<presentation::SortDescriptor> descriptors)
{
    if (descriptors == m_sortDescriptors) {
        return;
    }
    m_sortDescriptors = std::move(descriptors);
    rearrangeObjects();
}

void ResultTableModel::rearrangeObjects()
{
    applyArrangement(arrangeResults(m_content, m_filter, m_sortDescriptors));
    emit arrangedObjectsChanged();
}

ResultItem* ResultTableModel::arrangedObjectAt(int row) const
{
    return row >= 0 && static_cast<std::size_t>(row) < m_arranged.size() ? m_arranged[static_cast<std::size_t>(row)]
                                                                         : nullptr;
}

void ResultTableModel::applyArrangement(std::vector<ResultItem*> next)
{
    if (next == m_arranged) {
        return;
    }
    const int oldCount = static_cast<int>(m_arranged.size());
    if (m_arranged.empty() || next.empty()) {
        if (oldCount > 0) {
            beginRemoveRows({}, 0, oldCount - 1);
            m_arranged.clear();
            endRemoveRows();
        }
        if (!next.empty()) {
            beginInsertRows({}, 0, static_cast<int>(next.size()) - 1);
            m_arranged = std::move(next);
            endInsertRows();
        }
        return;
    }

    // One pass over each list, with one hash table: the old row of every
    // old result.
    const RowOfResult oldRow(m_arranged);
    std::vector<bool> isNew(next.size());
    std::vector<int> nextOfOld(m_arranged.size(), -1);  // -1: the old row goes away
    std::size_t insertedRuns = 0;
    for (std::size_t i = 0; i < next.size(); ++i) {
        const int row = oldRow.find(next[i]);
        isNew[i] = row < 0;
        if (!isNew[i]) {
            nextOfOld[static_cast<std::size_t>(row)] = static_cast<int>(i);
        }
        insertedRuns += isNew[i] && (i == 0 || !isNew[i - 1]) ? 1 : 0;
    }
    std::vector<std::pair<int, int>> removedRuns;
    for (int row = 0; row < oldCount; ++row) {
        if (nextOfOld[static_cast<std::size_t>(row)] >= 0) {
            continue;
        }
        if (!removedRuns.empty() && removedRuns.back().second == row - 1) {
            removedRuns.back().second = row;
        } else {
            removedRuns.emplace_back(row, row);
        }
    }
    if (removedRuns.size() + insertedRuns > kMaximumRuns) {
        beginResetModel();
        m_arranged = std::move(next);
        endResetModel();
        return;
    }

    // Rows that went away, from the bottom up so that row numbers hold.
    for (auto run = removedRuns.rbegin(); run != removedRuns.rend(); ++run) {
        beginRemoveRows({}, run->first, run->second);
        m_arranged.erase(m_arranged.begin() + run->first, m_arranged.begin() + run->second + 1);
        endRemoveRows();
    }
    std::erase(nextOfOld, -1);  // now by the rows that stayed

    // Rows that stayed, into their new order: a row's place among the rows
    // that stay is its place in the new list less the new rows before it.
    std::vector<int> retainedRowOfNext(next.size(), -1);
    std::vector<ResultItem*> retained;
    retained.reserve(m_arranged.size());
    for (std::size_t i = 0; i < next.size(); ++i) {
        if (!isNew[i]) {
            retainedRowOfNext[i] = static_cast<int>(retained.size());
            retained.push_back(next[i]);
        }
    }
    if (retained != m_arranged) {
        emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
        const QModelIndexList from = persistentIndexList();
        QModelIndexList to;
        to.reserve(from.size());
        for (const QModelIndex& old : from) {
            const int row = retainedRowOfNext[static_cast<std::size_t>(nextOfOld[static_cast<std::size_t>(old.row())])];
            to.push_back(index(row, old.column()));
        }
        m_arranged = std::move(retained);
        changePersistentIndexList(from, to);
        emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
    }

    insertRuns(next, isNew);
}

void ResultTableModel::insertRuns(const std::vector<ResultItem*>& next, const std::vector<bool>& isNew)
{
    // Everything before a run is already in place, so each run goes in at
    // its final row.
    std::size_t i = 0;
    while (i < next.size()) {
        if (!isNew[i]) {
            ++i;
            continue;
        }
        std::size_t end = i;
        while (end < next.size() && isNew[end]) {
            ++end;
        }
        beginInsertRows({}, static_cast<int>(i), static_cast<int>(end) - 1);
        m_arranged.insert(m_arranged.begin() + static_cast<long>(i), next.begin() + static_cast<long>(i),
                          next.begin() + static_cast<long>(end));
        endInsertRows();
        i = end;
    }
}

void ResultTableModel::applyChanges(std::vector<std::shared_ptr<ResultItem>> added,
                                    const std::vector<std::shared_ptr<ResultItem>>& removed,
                                    const std::vector<std::shared_ptr<ResultItem>>& changed)
{
    if (added.empty() && removed.empty() && changed.empty()) {
        return;
    }
    if (removed.size() + changed.size() > kMaximumRuns) {
        // Too many to place one by one: arrange the whole list again.
        std::vector<std::shared_ptr<ResultItem>> content = m_content;
        std::erase_if(content, [gone = RowOfResult(rawPointers(removed))](const std::shared_ptr<ResultItem>& item) {
            return gone.find(item.get()) >= 0;
        });
        content.insert(content.end(), added.begin(), added.end());
        setContent(std::move(content));
        return;
    }
    // The results that went stay alive until their rows are gone. The new
    // ones are arranged among themselves in one go (as many as they may be).
    std::vector<ResultItem*> placed = arrangeResults(added, m_filter, m_sortDescriptors);
    std::vector<ResultItem*> admitted;  // changed results the filter lets through now
    std::vector<const ResultItem*> gone;
    for (const std::shared_ptr<ResultItem>& item : removed) {
        gone.push_back(item.get());
        std::erase(m_content, item);
    }
    for (const std::shared_ptr<ResultItem>& item : changed) {
        if (m_filter && !m_filter->matches(*item)) {
            gone.push_back(item.get());
        }
    }
    m_content.insert(m_content.end(), std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()));
    removeArranged(gone);
    for (const std::shared_ptr<ResultItem>& item : changed) {
        if (m_filter && !m_filter->matches(*item)) {
            continue;
        }
        const auto at = std::find(m_arranged.begin(), m_arranged.end(), item.get());
        if (at == m_arranged.end()) {
            admitted.push_back(item.get());
        } else {
            rearrangeRow(static_cast<int>(at - m_arranged.begin()));
        }
    }
    insertArranged(std::move(placed));
    if (!admitted.empty()) {
        std::stable_sort(admitted.begin(), admitted.end(), [this](const ResultItem* a, const ResultItem* b) {
            return compareArranged(*a, *b, m_sortDescriptors) < 0;
        });
        insertArranged(std::move(admitted));
    }
    emit arrangedObjectsChanged();
}

int ResultTableModel::insertionRow(const ResultItem& item, int from, int to) const
{
    const auto at = std::upper_bound(m_arranged.begin() + from, m_arranged.begin() + to, &item,
                                     [this](const ResultItem* a, const ResultItem* b) {
                                         return compareArranged(*a, *b, m_sortDescriptors) < 0;
                                     });
    return static_cast<int>(at - m_arranged.begin());
}

void ResultTableModel::rearrangeRow(int row)
{
    const ResultItem& item = *m_arranged[static_cast<std::size_t>(row)];
    const int count = rowCount();
    // Among the others: before the row, or after it.
    int target = insertionRow(item, 0, row);
    if (target == row) {
        target = row + 1 < count && compareArranged(item, *m_arranged[static_cast<std::size_t>(row) + 1],
                                                    m_sortDescriptors) > 0
                     ? insertionRow(item, row + 1, count)
                     : row;
    }
    if (target == row || target == row + 1) {
        if (!m_columns.empty()) {
            emit dataChanged(index(row, 0), index(row, columnCount() - 1));
        }
        return;
    }
    // A row that goes down lands before the row now at target.
    beginMoveRows({}, row, row, {}, target);
    ResultItem* moved = m_arranged[static_cast<std::size_t>(row)];
    m_arranged.erase(m_arranged.begin() + row);
    m_arranged.insert(m_arranged.begin() + (target > row ? target - 1 : target), moved);
    endMoveRows();
    const int now = target > row ? target - 1 : target;
    if (!m_columns.empty()) {
        emit dataChanged(index(now, 0), index(now, columnCount() - 1));
    }
}

void ResultTableModel::removeArranged(const std::vector<const ResultItem*>& items)
{
    if (items.empty()) {
        return;
    }
    std::vector<int> rows;
    for (const ResultItem* item : items) {
        const auto at = std::find(m_arranged.begin(), m_arranged.end(), item);
        if (at != m_arranged.end()) {
            rows.push_back(static_cast<int>(at - m_arranged.begin()));
        }
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    // From the bottom up, runs at a time, so that row numbers hold.
    for (std::size_t end = rows.size(); end > 0;) {
        std::size_t begin = end - 1;
        while (begin > 0 && rows[begin - 1] == rows[begin] - 1) {
            --begin;
        }
        beginRemoveRows({}, rows[begin], rows[end - 1]);
        m_arranged.erase(m_arranged.begin() + rows[begin], m_arranged.begin() + rows[end - 1] + 1);
        endRemoveRows();
        end = begin;
    }
}

void ResultTableModel::insertArranged(std::vector<ResultItem*> items)
{
    if (items.empty()) {
        return;
    }
    const int oldCount = rowCount();
    if (m_sortDescriptors.empty() || oldCount == 0) {
        // Unsorted, they come last, as in the content; into no rows, they
        // are all the rows.
        beginInsertRows({}, oldCount, oldCount + static_cast<int>(items.size()) - 1);
        m_arranged.insert(m_arranged.end(), items.begin(), items.end());
        endInsertRows();
        return;
    }
    // Each goes after the rows it ties with, so the whole is what a stable
    // sort of the content would give.
    std::vector<int> rows(items.size());  // each one's place among the old rows
    int lowest = 0;
    std::size_t runs = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        lowest = insertionRow(*items[i], lowest, oldCount);
        rows[i] = lowest;
        runs += i == 0 || rows[i] != rows[i - 1] ? 1 : 0;
    }
    if (runs <= kMaximumRuns) {
        // Run by run from the bottom up: the rows above a run stay put.
        for (std::size_t end = items.size(); end > 0;) {
            std::size_t begin = end - 1;
            while (begin > 0 && rows[begin - 1] == rows[end - 1]) {
                --begin;
            }
            const int row = rows[begin];
            beginInsertRows({}, row, row + static_cast<int>(end - begin) - 1);
            m_arranged.insert(m_arranged.begin() + row, items.begin() + static_cast<long>(begin),
                              items.begin() + static_cast<long>(end));
            endInsertRows();
            end = begin;
        }
        return;
    }
    // Scattered: the new rows come in at the end in one step, then every row
    // moves to its place in a second (the selection and persistent indexes
    // follow). Two signals instead of thousands, and no reset.
    beginInsertRows({}, oldCount, oldCount + static_cast<int>(items.size()) - 1);
    m_arranged.insert(m_arranged.end(), items.begin(), items.end());
    endInsertRows();
    std::vector<ResultItem*> merged;
    merged.reserve(m_arranged.size());
    std::vector<int> rowOf(m_arranged.size());  // the place of each current row in the merged list
    std::size_t next = 0;
    for (int old = 0; old <= oldCount; ++old) {
        while (next < items.size() && rows[next] == old) {
            rowOf[static_cast<std::size_t>(oldCount) + next] = static_cast<int>(merged.size());
            merged.push_back(items[next++]);
        }
        if (old < oldCount) {
            rowOf[static_cast<std::size_t>(old)] = static_cast<int>(merged.size());
            merged.push_back(m_arranged[static_cast<std::size_t>(old)]);
        }
    }
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    to.reserve(from.size());
    for (const QModelIndex& index : from) {
        to.push_back(this->index(rowOf[static_cast<std::size_t>(index.row())], index.column()));
    }
    m_arranged = std::move(merged);
    changePersistentIndexList(from, to);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

// --- Selection -------------------------------------------------------------

std::vector<ResultItem*> ResultTableModel::selectedObjects() const
{
    QModelIndexList rows = m_selection->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    std::vector<ResultItem*> selected;
    for (const QModelIndex& row : rows) {
        if (ResultItem* item = arrangedObjectAt(row.row())) {
            selected.push_back(item);
        }
    }
    return selected;
}

ResultItem* ResultTableModel::selectedObject() const
{
    const std::vector<ResultItem*> selected = selectedObjects();
    return selected.empty() ? nullptr : selected.front();
}

void ResultTableModel::setSelectionIndex(int row)
{
    if (row < 0 || row >= rowCount() || columnCount() == 0) {
        m_selection->clearSelection();
        return;
    }
    m_selection->setCurrentIndex(index(row, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

// --- Columns -----------------------------------------------------------------

int ResultTableModel::columnForIdentifier(const QString& identifier) const
{
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        if (m_columns[i].identifier == identifier) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int ResultTableModel::addColumnForColumnAttribute(model::ColumnAttribute* attribute)
{
    Column column;
    column.attribute = attribute;
    column.identifier = attribute->attributeKey();
    column.title = attribute->attributeName();
    column.formatter = attribute->formatter();
    column.sortDescriptorPrototype = presentation::sortDescriptorPrototypeFor(*attribute);
    column.minimumWidth = column.identifier == kNameColumn ? 100 : 50;
    const int at = columnCount();
    beginInsertColumns({}, at, at);
    m_columns.push_back(std::move(column));
    endInsertColumns();
    emit columnAdded(at);
    return at;
}

void ResultTableModel::removeColumnAt(int column)
{
    if (column < 0 || column >= columnCount()) {
        return;
    }
    beginRemoveColumns({}, column, column);
    m_columns.erase(m_columns.begin() + column);
    endRemoveColumns();
}

void ResultTableModel::setColumnWidth(int column, double width)
{
    if (column < 0 || column >= columnCount()) {
        return;
    }
    m_columns[static_cast<std::size_t>(column)].width = width;
    emit headerDataChanged(Qt::Horizontal, column, column);
}

bool ResultTableModel::actionHideShowColumn(model::ColumnAttribute* attribute)
{
    const int column = columnForIdentifier(attribute->attributeKey());
    if (column >= 0) {
        removeColumnAt(column);
        return false;
    }
    addColumnForColumnAttribute(attribute);
    return true;
}

void ResultTableModel::autoSizeAllColumns()
{
    emit autoSizeAllColumnsRequested();
}

std::vector<ResultTableModel::ColumnMenuItem>
ResultTableModel::columnConfigurationMenu(store::ManagedObjectContext& context) const
{
    using Kind = ColumnMenuItem::Kind;
    std::vector<ColumnMenuItem> menu;
    menu.push_back({Kind::AutoSizeAllColumns, model::localized(QStringLiteral("Auto-size all Columns")), nullptr, false});
    menu.push_back({Kind::Separator, {}, nullptr, false});
    for (model::ColumnAttribute* attribute : model::ColumnAttribute::availableAttributesInContext(context)) {
        menu.push_back({Kind::Column, attribute->attributeName(), attribute,
                        columnForIdentifier(attribute->attributeKey()) >= 0});
    }
    menu.push_back({Kind::Separator, {}, nullptr, false});
    menu.push_back({Kind::MoreColumns, model::localized(QStringLiteral("More Columns…")), nullptr, false});
    return menu;
}

// --- Icons and row height ------------------------------------------------------

void ResultTableModel::setShowsIcons(bool shows)
{
    if (m_showsIcons == shows) {
        return;
    }
    m_showsIcons = shows;
    const int name = columnForIdentifier(kNameColumn);
    if (name >= 0 && rowCount() > 0) {
        emit dataChanged(index(0, name), index(rowCount() - 1, name), {IconNameRole});
    }
}

void ResultTableModel::applyRowHeightPreference()
{
    const double height = model::Defaults::shared().doubleValue(kRowHeightKey);
    if (height == m_rowHeight) {
        return;  // nothing to repaint (this runs at every start and end of gathering)
    }
    m_rowHeight = height;
    emit rowHeightChanged(m_rowHeight);
    if (rowCount() > 0 && columnCount() > 0) {
        emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1), {FontPointSizeRole});
    }
}

bool ResultTableModel::adjustRowHeightPreference(int step)
{
    const double height = model::Defaults::shared().doubleValue(kRowHeightKey) + step;
    if (height > kMaximumRowHeight || height < kMinimumRowHeight) {
        return false;
    }
    model::Defaults::shared().setValue(kRowHeightKey, height);
    applyRowHeightPreference();
    return true;
}

// --- QAbstractItemModel ----------------------------------------------------------

int ResultTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_arranged.size());
}

int ResultTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_columns.size());
}

QString ResultTableModel::textForCell(const ResultItem& item, const Column& column) const
{
    const QVariant value = item.valueForKey(column.identifier);
    if (column.formatter) {
        return column.formatter->stringForObjectValue(value);
    }
    if (!value.isValid() || value.isNull()) {
        return {};
    }
    return model::isText(value) ? value.toString() : model::descriptionOf(value);
}

QVariant ResultTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const ResultItem* item = m_arranged[static_cast<std::size_t>(index.row())];
    const Column& column = m_columns[static_cast<std::size_t>(index.column())];
    switch (role) {
    case Qt::DisplayRole:
        return textForCell(*item, column);
    case ResultItemRole:
        return QVariant::fromValue(const_cast<ResultItem*>(item));
    case PathRole:
        return item->path();
    case IconNameRole:
        return m_showsIcons && column.identifier == kNameColumn ? QVariant(item->iconName()) : QVariant();
    case ObjectValueRole:
        return item->valueForKey(column.identifier);
    case FontPointSizeRole:
        return fontPointSize();
    default:
        return {};
    }
}

QVariant ResultTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= columnCount()) {
        return {};
    }
    const Column& column = m_columns[static_cast<std::size_t>(section)];
    switch (role) {
    case Qt::DisplayRole:
        return column.title;
    case IdentifierRole:
        return column.identifier;
    case ColumnWidthRole:
        return column.width;
    case MinimumWidthRole:
        return column.minimumWidth;
    default:
        return {};
    }
}

Qt::ItemFlags ResultTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

void ResultTableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= columnCount()) {
        return;
    }
    presentation::SortDescriptor descriptor = m_columns[static_cast<std::size_t>(column)].sortDescriptorPrototype;
    descriptor.ascending = order == Qt::AscendingOrder;
    setSortDescriptors({descriptor});
}

bool ResultTableModel::moveColumns(const QModelIndex& sourceParent, int sourceColumn, int count,
                                   const QModelIndex& destinationParent, int destinationChild)
{
    if (sourceParent.isValid() || destinationParent.isValid() || count <= 0 || sourceColumn < 0
        || sourceColumn + count > columnCount() || destinationChild < 0 || destinationChild > columnCount()
        || (destinationChild >= sourceColumn && destinationChild <= sourceColumn + count)) {
        return false;
    }
    beginMoveColumns({}, sourceColumn, sourceColumn + count - 1, {}, destinationChild);
    std::vector<Column> moved(std::make_move_iterator(m_columns.begin() + sourceColumn),
                              std::make_move_iterator(m_columns.begin() + sourceColumn + count));
    m_columns.erase(m_columns.begin() + sourceColumn, m_columns.begin() + sourceColumn + count);
    const int at = destinationChild > sourceColumn ? destinationChild - count : destinationChild;
    m_columns.insert(m_columns.begin() + at, std::make_move_iterator(moved.begin()),
                     std::make_move_iterator(moved.end()));
    endMoveColumns();
    return true;
}

QStringList ResultTableModel::mimeTypes() const
{
    return ResultItem::writableTypesForPasteboard();
}

QMimeData* ResultTableModel::mimeData(const QModelIndexList& indexes) const
{
    std::vector<int> rows;
    for (const QModelIndex& index : indexes) {
        if (index.isValid() && index.model() == this) {
            rows.push_back(index.row());
        }
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    if (rows.empty()) {
        return nullptr;
    }
    std::vector<const ResultItem*> items;
    items.reserve(rows.size());
    for (int row : rows) {
        items.push_back(arrangedObjectAt(row));
    }
    return ResultItem::mimeDataForItems(items);
}

QHash<int, QByteArray> ResultTableModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractTableModel::roleNames();
    names.insert(ResultItemRole, "resultItem");
    names.insert(PathRole, "path");
    names.insert(IconNameRole, "iconName");
    names.insert(ObjectValueRole, "objectValue");
    names.insert(FontPointSizeRole, "fontPointSize");
    return names;
}

}  // namespace trovara::query
