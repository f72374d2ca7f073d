#include "editors/rule_editor_model.h"

#include <algorithm>
#include <cmath>

namespace trovara::editors {

namespace {

// Criteria lines are short; a delegate that keeps answering children is
// cut off here.
constexpr int kMaximumCriteria = 8;

int countRows(const RowDescription& row)
{
    int count = 1;
    for (const RowPtr& subrow : row.subrows) {
        count += countRows(*subrow);
    }
    return count;
}

// Removes groups left without lines, below the top level.
void pruneEmptyGroups(std::vector<RowPtr>& rows)
{
    for (const RowPtr& row : rows) {
        pruneEmptyGroups(row->subrows);
    }
    for (const RowPtr& row : rows) {
        std::erase_if(row->subrows, [](const RowPtr& subrow) { return subrow->isCompound() && subrow->subrows.empty(); });
    }
}

}  // namespace

Criterion RuleEditorDelegate::child(int index, const Criterion& criterion, RowType rowType)
{
    const std::vector<Criterion> children = childrenForCriterion(criterion, rowType);
    return index >= 0 && index < static_cast<int>(children.size()) ? children[static_cast<std::size_t>(index)]
                                                                    : Criterion();
}

bool RuleEditorDelegate::acceptDrop(const QStringList&, int)
{
    return false;
}

RuleEditorModel::RuleEditorModel(QObject* parent)
    : QObject(parent)
{
}

RuleEditorModel::~RuleEditorModel() = default;

// --- Lines ---------------------------------------------------------------------------

void RuleEditorModel::setRows(std::vector<RowPtr> rows)
{
    m_rows = std::move(rows);
    reindex();
    for (int row = 0; row < numberOfRows(); ++row) {
        RowDescription& description = *m_flat[static_cast<std::size_t>(row)].row;
        if (description.displayValues.size() != description.criteria.size()) {
            fillDisplayValues(row);
        }
    }
    emit rowsChanged();
}

void RuleEditorModel::reindex()
{
    m_flat.clear();
    appendFlat(m_rows, -1, 0);
}

void RuleEditorModel::appendFlat(const std::vector<RowPtr>& rows, int parent, int depth)
{
    for (const RowPtr& row : rows) {
        const int index = static_cast<int>(m_flat.size());
        m_flat.push_back({row, parent, depth});
        appendFlat(row->subrows, index, depth + 1);
    }
}

RowPtr RuleEditorModel::rowAtIndex(int row) const
{
    return row >= 0 && row < numberOfRows() ? m_flat[static_cast<std::size_t>(row)].row : nullptr;
}

int RuleEditorModel::rowForRowDescription(const RowDescription* description) const
{
    for (int row = 0; row < numberOfRows(); ++row) {
        if (m_flat[static_cast<std::size_t>(row)].row.get() == description) {
            return row;
        }
    }
    return -1;
}

int RuleEditorModel::parentRowForRow(int row) const
{
    return row >= 0 && row < numberOfRows() ? m_flat[static_cast<std::size_t>(row)].parent : -1;
}

int RuleEditorModel::depthOfRow(int row) const
{
    return row >= 0 && row < numberOfRows() ? m_flat[static_cast<std::size_t>(row)].depth : 0;
}

std::vector<int> RuleEditorModel::subrowIndexesForRow(int row) const
{
    std::vector<int> indexes;
    for (int candidate = row + 1; candidate < numberOfRows(); ++candidate) {
        if (m_flat[static_cast<std::size_t>(candidate)].parent == row) {
            indexes.push_back(candidate);
        }
    }
    return indexes;
}

bool RuleEditorModel::isInside(int row, int ancestor) const
{
    for (int at = row; at >= 0; at = parentRowForRow(at)) {
        if (at == ancestor) {
            return true;
        }
    }
    return false;
}

std::vector<RowPtr>* RuleEditorModel::subrowsOf(int parentRow)
{
    if (parentRow < 0) {
        return &m_rows;
    }
    RowPtr parent = rowAtIndex(parentRow);
    return parent ? &parent->subrows : nullptr;
}

std::vector<RowPtr>* RuleEditorModel::siblingsOf(int row)
{
    return subrowsOf(parentRowForRow(row));
}

// --- Choices -----------------------------------------------------------------------------

std::vector<Criterion> RuleEditorModel::choicesAt(int row, int position) const
{
    RowPtr description = rowAtIndex(row);
    if (!m_delegate || !description || position < 0 || position > static_cast<int>(description->criteria.size())) {
        return {};
    }
    const Criterion before = position == 0 ? Criterion() : description->criteria[static_cast<std::size_t>(position - 1)];
    return m_delegate->childrenForCriterion(before, description->rowType);
}

QStringList RuleEditorModel::choiceTitlesAt(int row, int position) const
{
    QStringList titles;
    for (const Criterion& choice : choicesAt(row, position)) {
        if (const MenuItem* item = choice.menuItem()) {
            titles << item->title;
        } else if (choice.slot()) {
            titles << QString();
        } else {
            titles << m_delegate->displayValueForCriterion(choice, row).text;
        }
    }
    return titles;
}

int RuleEditorModel::selectedChoiceAt(int row, int position) const
{
    RowPtr description = rowAtIndex(row);
    if (!description || position < 0 || position >= static_cast<int>(description->criteria.size())) {
        return -1;
    }
    const std::vector<Criterion> choices = choicesAt(row, position);
    const auto found = std::find(choices.begin(), choices.end(), description->criteria[static_cast<std::size_t>(position)]);
    return found == choices.end() ? -1 : static_cast<int>(found - choices.begin());
}

std::vector<Criterion> RuleEditorModel::defaultCriteria(RowType rowType, const Criterion& after) const
{
    std::vector<Criterion> criteria;
    if (!m_delegate) {
        return criteria;
    }
    Criterion current = after;
    while (static_cast<int>(criteria.size()) < kMaximumCriteria) {
        const std::vector<Criterion> children = m_delegate->childrenForCriterion(current, rowType);
        const auto first = std::find_if(children.begin(), children.end(), [](const Criterion& c) { return !c.isMenuItem(); });
        if (first == children.end()) {
            break;
        }
        criteria.push_back(*first);
        current = *first;
    }
    return criteria;
}

void RuleEditorModel::fillDisplayValues(int row)
{
    RowPtr description = rowAtIndex(row);
    if (!description || !m_delegate) {
        return;
    }
    std::vector<DisplayValue> values;
    values.reserve(description->criteria.size());
    for (const Criterion& criterion : description->criteria) {
        values.push_back(m_delegate->displayValueForCriterion(criterion, row));
    }
    description->displayValues = std::move(values);
}

void RuleEditorModel::refreshDisplayValues(int row)
{
    fillDisplayValues(row);
    emit rowsChanged();
}

// --- Edits --------------------------------------------------------------------------------

void RuleEditorModel::didChange()
{
    emit rowsChanged();
    if (m_delegate) {
        m_delegate->rowsDidChange();
    }
}

bool RuleEditorModel::chooseCriterion(int row, int position, int choice)
{
    RowPtr description = rowAtIndex(row);
    if (!description || position < 0 || position >= std::max<int>(1, static_cast<int>(description->criteria.size()))) {
        return false;
    }
    const std::vector<Criterion> choices = choicesAt(row, position);
    if (choice < 0 || choice >= static_cast<int>(choices.size())) {
        return false;
    }
    const Criterion& chosen = choices[static_cast<std::size_t>(choice)];
    if (const MenuItem* item = chosen.menuItem()) {
        if (item->kind == MenuItem::Kind::Action && item->enabled && item->action) {
            item->action(row);
        }
        return false;
    }
    if (position < static_cast<int>(description->criteria.size())
        && description->criteria[static_cast<std::size_t>(position)] == chosen) {
        return false;
    }
    description->criteria.resize(static_cast<std::size_t>(position));
    description->criteria.push_back(chosen);
    for (Criterion& later : defaultCriteria(description->rowType, chosen)) {
        description->criteria.push_back(std::move(later));
    }
    fillDisplayValues(row);
    didChange();
    return true;
}

int RuleEditorModel::insertRow(RowPtr row, int fromRow)
{
    RowPtr from = rowAtIndex(fromRow);
    if (m_nestingMode == NestingMode::Compound && !from && !m_rows.empty()) {
        // Without a line to add from, a line joins the top group.
        fromRow = 0;
        from = m_rows.front();
    }
    std::vector<RowPtr>* siblings = &m_rows;
    std::size_t position = m_rows.size();
    if (from && from->isCompound() && m_nestingMode == NestingMode::Compound) {
        siblings = &from->subrows;
        position = siblings->size();
    } else if (from) {
        siblings = siblingsOf(fromRow);
        position = static_cast<std::size_t>(std::find(siblings->begin(), siblings->end(), from) - siblings->begin()) + 1;
    }
    siblings->insert(siblings->begin() + static_cast<std::ptrdiff_t>(position), row);
    reindex();
    return rowForRowDescription(row.get());
}

int RuleEditorModel::addRow(int fromRow)
{
    if (m_nestingMode == NestingMode::Single && !m_rows.empty()) {
        return -1;
    }
    auto row = std::make_shared<RowDescription>(RowType::Simple);
    RowPtr from = rowAtIndex(fromRow);
    if (m_copiesRowOnAdd && from && !from->isCompound()) {
        row->criteria = from->criteria;
        if (from->values) {
            row->values = std::make_shared<ValueContainer>();
            row->values->copyValuesFrom(*from->values);
        }
    } else {
        row->criteria = defaultCriteria(RowType::Simple);
    }
    if (row->criteria.empty()) {
        // Nothing to choose yet: the first pop-up's action (a folder chooser,
        // say) makes the line.
        for (const Criterion& choice : m_delegate ? m_delegate->childrenForCriterion({}, RowType::Simple)
                                                  : std::vector<Criterion>()) {
            const MenuItem* item = choice.menuItem();
            if (item && item->kind == MenuItem::Kind::Action && item->enabled && item->action) {
                item->action(-1);
                break;
            }
        }
        return -1;
    }
    const int index = insertRow(row, fromRow);
    fillDisplayValues(index);
    didChange();
    return index;
}

int RuleEditorModel::addGroup(int fromRow)
{
    if (m_nestingMode != NestingMode::Compound) {
        return -1;
    }
    auto group = std::make_shared<RowDescription>(RowType::Compound);
    group->criteria = defaultCriteria(RowType::Compound);
    auto line = std::make_shared<RowDescription>(RowType::Simple);
    line->criteria = defaultCriteria(RowType::Simple);
    group->subrows.push_back(line);
    const int index = insertRow(group, fromRow);
    fillDisplayValues(index);
    fillDisplayValues(index + 1);
    didChange();
    return index;
}

bool RuleEditorModel::canRemoveRow(int row) const
{
    RowPtr description = rowAtIndex(row);
    if (!description || m_nestingMode == NestingMode::Single) {
        return false;
    }
    return m_canRemoveAllRows || countRows(*description) < numberOfRows();
}

void RuleEditorModel::detach(int row)
{
    RowPtr description = rowAtIndex(row);
    std::vector<RowPtr>* siblings = siblingsOf(row);
    std::erase(*siblings, description);
}

bool RuleEditorModel::removeRow(int row)
{
    if (!canRemoveRow(row)) {
        return false;
    }
    detach(row);
    pruneEmptyGroups(m_rows);
    reindex();
    didChange();
    return true;
}

bool RuleEditorModel::canMoveRow(int row, int parentRow, int index) const
{
    RowPtr description = rowAtIndex(row);
    if (!description || index < 0) {
        return false;
    }
    if (m_nestingMode == NestingMode::Compound) {
        RowPtr parent = rowAtIndex(parentRow);
        if (!parent || !parent->isCompound() || isInside(parentRow, row)) {
            return false;
        }
        const bool sameParent = parentRowForRow(row) == parentRow;
        return index <= static_cast<int>(parent->subrows.size()) - (sameParent ? 1 : 0);
    }
    return m_nestingMode == NestingMode::List && parentRow == -1 && index < numberOfRows();
}

bool RuleEditorModel::moveRow(int row, int parentRow, int index)
{
    if (!canMoveRow(row, parentRow, index)) {
        return false;
    }
    RowPtr description = rowAtIndex(row);
    RowPtr parent = rowAtIndex(parentRow);
    if (parentRowForRow(row) == parentRow) {
        const std::vector<RowPtr>& siblings = parent ? parent->subrows : m_rows;
        if (std::find(siblings.begin(), siblings.end(), description) - siblings.begin() == index) {
            return false;
        }
    }
    detach(row);
    std::vector<RowPtr>& target = parent ? parent->subrows : m_rows;
    target.insert(target.begin() + std::min<std::ptrdiff_t>(index, static_cast<std::ptrdiff_t>(target.size())),
                  description);
    pruneEmptyGroups(m_rows);
    reindex();
    didChange();
    return true;
}

bool RuleEditorModel::dropFiles(const QStringList& paths, double y)
{
    if (!m_acceptsFileDrops || !m_delegate || paths.isEmpty()) {
        return false;
    }
    int row = m_rowHeight > 0 ? static_cast<int>(std::floor(y / m_rowHeight)) : -1;
    if (row < 0 || row >= numberOfRows()) {
        row = -1;
    }
    return m_delegate->acceptDrop(paths, row);
}

}  // namespace trovara::editors
