#include "editors/limit_editor_delegate.h"

#include "document/document.h"
#include "model/localization.h"
#include "model/ordered_column_attribute.h"
#include "model/value_text.h"

namespace trovara::editors {

namespace {

using model::LimitAttribute;
using model::ValuedLimitAttribute;

constexpr qint64 kLimitValues[] = {0, 10, 20, 50, 100, 300, 500, 1000, 2000, 3000, 5000};

}  // namespace

const QString LimitEditorDelegate::kAscending = QStringLiteral("ASC");
const QString LimitEditorDelegate::kDescending = QStringLiteral("DSC");

LimitEditorDelegate::LimitEditorDelegate(document::Document& document, RuleEditorModel& editor)
    : EditorDelegate(document, editor)
{
}

void LimitEditorDelegate::configureEditor()
{
    editor().setNestingMode(NestingMode::Single);
    editor().setRowHeight(25);
    editor().setCanRemoveAllRows(false);
    editor().setCopiesRowOnAdd(false);
    editor().setAcceptsFileDrops(false);
}

const std::vector<Criterion>& LimitEditorDelegate::limitValueCriteria()
{
    if (!m_valueCriteria) {
        m_valueCriteria.emplace();
        for (qint64 value : kLimitValues) {
            m_valueCriteria->push_back(Criterion::number(value));
        }
    }
    return *m_valueCriteria;
}

const std::vector<Criterion>& LimitEditorDelegate::limitOperatorCriteria()
{
    if (!m_operatorCriteria) {
        m_operatorCriteria = std::vector<Criterion>{Criterion(kAscending), Criterion(kDescending)};
    }
    return *m_operatorCriteria;
}

const std::vector<Criterion>& LimitEditorDelegate::limitAttributeCriteria()
{
    if (!m_attributeCriteria) {
        m_attributeCriteria.emplace();
        for (LimitAttribute* attribute : LimitAttribute::availableAttributesInContext(context())) {
            m_attributeCriteria->emplace_back(static_cast<store::ManagedObject*>(attribute));
        }
    }
    return *m_attributeCriteria;
}

std::vector<Criterion> LimitEditorDelegate::childrenForCriterion(const Criterion& criterion, RowType)
{
    if (criterion.isEmpty()) {
        return limitValueCriteria();
    }
    if (criterion.numberValue()) {
        return limitOperatorCriteria();
    }
    if (const QString* text = criterion.text(); text && (*text == kAscending || *text == kDescending)) {
        return limitAttributeCriteria();
    }
    return {};
}

DisplayValue LimitEditorDelegate::displayValueForCriterion(const Criterion& criterion, int)
{
    if (const qint64* number = criterion.numberValue()) {
        return {*number == 0 ? model::localized(QStringLiteral("All")) : QString::number(*number), nullptr};
    }
    if (const QString* text = criterion.text()) {
        if (*text == kAscending) {
            return {model::localized(QStringLiteral("Least")), nullptr};
        }
        if (*text == kDescending) {
            return {model::localized(QStringLiteral("Most")), nullptr};
        }
    }
    return plainDisplayValue(criterion);
}

std::vector<Criterion> LimitEditorDelegate::storedCriteria() const
{
    ValuedLimitAttribute* limit = ValuedLimitAttribute::limitInContext(context());
    if (!limit) {
        return {};
    }
    std::vector<Criterion> criteria{Criterion::number(model::integerValueOf(limit->limitValue())),
                                    Criterion(limit->ascending() ? kAscending : kDescending)};
    if (LimitAttribute* attribute = limit->limitAttribute()) {
        criteria.emplace_back(static_cast<store::ManagedObject*>(attribute));
    }
    return criteria;
}

std::vector<RowPtr> LimitEditorDelegate::rowsFromGraph()
{
    ValuedLimitAttribute* limit = ValuedLimitAttribute::limitInContext(context());
    if (!limit) {
        return {};
    }
    std::map<store::ManagedObject*, RowPtr> reusable = rowsByItem();
    RowPtr row = reusable.contains(limit) ? reusable[limit] : std::make_shared<RowDescription>();
    row->item = limit;
    row->criteria = storedCriteria();
    row->displayValues.clear();
    return {row};
}

void LimitEditorDelegate::rowsDidChange()
{
    RowPtr row = editor().rowAtIndex(0);
    if (!finishedSetUp() || !row) {
        return;
    }
    const std::vector<Criterion> stored = storedCriteria();
    std::vector<Criterion>& shown = row->criteria;
    if (stored.size() == 3 && shown.size() == 3) {
        // The editor reset what follows the pop-up the user changed; the
        // user's other choices come back.
        if (!(shown[0] == stored[0])) {
            shown[1] = stored[1];
            shown[2] = stored[2];
        } else if (!(shown[1] == stored[1])) {
            shown[2] = stored[2];
        }
    }
    writing([&] {
        document().updateLimit([&] {
            ValuedLimitAttribute* limit = ValuedLimitAttribute::limitInContext(context());
            if (!limit) {
                limit = context().insert<ValuedLimitAttribute>();
            }
            const qint64* value = shown.empty() ? nullptr : shown[0].numberValue();
            const QString* direction = shown.size() > 1 ? shown[1].text() : nullptr;
            auto* attribute = shown.size() > 2 ? shown[2].object<LimitAttribute>() : nullptr;
            if (value && model::integerValueOf(limit->limitValue()) != *value) {
                limit->setLimitValue(*value);
            }
            if (direction && limit->ascending() != (*direction == kAscending)) {
                limit->setAscending(*direction == kAscending);
            }
            if (attribute && limit->limitAttribute() != attribute) {
                limit->setLimitAttribute(attribute);
            }
        });
    });
    loadEditor();
}

void LimitEditorDelegate::objectsDidChange(const store::ObjectChanges& changes, bool own)
{
    if (changes.containsKindOf<LimitAttribute>()) {
        m_attributeCriteria.reset();
    }
    // Undo and redo of the limit reload it here (the document reloads only
    // the criteria and the places to search).
    if (!own && changes.containsKindOf<ValuedLimitAttribute>()) {
        reloadLater([this] { document().updateLimit(); });
    }
}

bool LimitEditorDelegate::isConsistent(QString* why) const
{
    const std::vector<RowPtr>& rows = editor().rows();
    const std::vector<Criterion> stored = storedCriteria();
    const bool agree = stored.empty() ? rows.empty()
                                      : rows.size() == 1 && rows.front()->criteria == stored
                                            && rows.front()->displayValues.size() == stored.size();
    if (!agree && why) {
        *why = QStringLiteral("the limit line differs from the limit");
    }
    return agree;
}

}  // namespace trovara::editors
