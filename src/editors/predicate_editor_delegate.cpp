#include "editors/predicate_editor_delegate.h"

#include "document/document.h"
#include "index/fs/file_details.h"
#include "index/item_attributes.h"
#include "index/standard_services.h"
#include "model/abstract_attribute.h"
#include "model/localization.h"
#include "model/platform.h"
#include "model/query_leaf.h"
#include "model/value_text.h"
#include "model/value_transformer.h"
#include "presentation/metadata_value.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace trovara::editors {

namespace {

using model::QueryAttribute;
using model::QueryItem;
using model::QueryLeaf;
using model::QueryNode;
using model::RelationalOperator;

const QString kContentTypeTree = QStringLiteral("kMDItemContentTypeTree");
const QString kContentType = QStringLiteral("kMDItemContentType");
const QString kLabel = QStringLiteral("kMDItemFSLabel");
const QString kSize = QStringLiteral("kMDItemFSSize");
const QString kName = QStringLiteral("kMDItemDisplayName");

bool contains(const std::vector<const RelationalOperator*>& operators, const RelationalOperator* op)
{
    return std::find(operators.begin(), operators.end(), op) != operators.end();
}

// The third criterion of a line whose operator is the proxy: a list of
// fixed values, or a value slot.
std::vector<Criterion> valueChoices(const model::RelationalOperatorProxy& proxy)
{
    std::vector<Criterion> choices;
    if (proxy.attributeKey() == kContentTypeTree) {
        for (const model::ContentType* type : model::ContentType::contentTypes()) {
            choices.emplace_back(type);
        }
    } else if (proxy.attributeKey() == kLabel) {
        for (const model::FinderLabelValue* label : model::FinderLabelValue::finderLabelValues()) {
            choices.emplace_back(label);
        }
    } else {
        ValueSlot slot;
        slot.attributeKey = proxy.attributeKey();
        slot.relationalOperator = proxy.relationalOperator();
        if (proxy.relationalOperator() == RelationalOperator::withinLastOperator()) {
            slot.units = model::Unit::dateUnits();
        } else if (proxy.attributeKey() == kSize) {
            slot.units = model::Unit::fileSizeUnits();
        }
        choices.emplace_back(std::move(slot));
    }
    return choices;
}

// The remembered values of the row for the key, when it has some (never
// made here: showing a line must not change the document).
model::AttributeValue* rememberedValues(const QueryLeaf& leaf, const QString& key)
{
    for (store::ManagedObject* object : leaf.objects(QStringLiteral("attributeValues"))) {
        auto* remembered = static_cast<model::AttributeValue*>(object);
        if (!remembered->isDeleted() && remembered->attributeKey() == key) {
            return remembered;
        }
    }
    return nullptr;
}

// Writes values into the row and into what the row remembers for its
// attribute.
void storeValues(QueryLeaf& leaf, std::initializer_list<std::pair<const char*, QVariant>> values)
{
    QueryAttribute* attribute = leaf.queryAttribute();
    model::AttributeValue* remembered = attribute ? leaf.attributeValueForKey(attribute->attributeKey()) : nullptr;
    for (const auto& [name, value] : values) {
        const QString field = QString::fromLatin1(name);
        for (store::ManagedObject* object : {static_cast<store::ManagedObject*>(&leaf),
                                             static_cast<store::ManagedObject*>(remembered)}) {
            if (object && (object->value(field) != value || object->value(field).isValid() != value.isValid())) {
                object->setValue(field, value);
            }
        }
    }
}

// The four values a field edits.
void storeFieldValues(QueryLeaf& leaf, const ValueContainer& values)
{
    storeValues(leaf, {{"queryString", values.queryString()},
                       {"queryNumber", values.queryNumber()},
                       {"queryDate", values.queryDate()},
                       {"queryBoolean", values.queryBoolean()}});
}

// A file size as a number with the unit that reads best.
std::pair<double, QString> sizeWithUnit(double bytes)
{
    const double base = model::platform::byteUnitBase();
    if (bytes >= base * base * base) {
        return {bytes / (base * base * base), QStringLiteral("GB")};
    }
    if (bytes >= base * base) {
        return {bytes / (base * base), QStringLiteral("MB")};
    }
    return {bytes / base, QStringLiteral("KB")};
}

}  // namespace

PredicateEditorDelegate::PredicateEditorDelegate(document::Document& document, RuleEditorModel& editor)
    : EditorDelegate(document, editor)
    , m_readFileAttribute(&PredicateEditorDelegate::readFileAttribute)
{
}

PredicateEditorDelegate::~PredicateEditorDelegate()
{
    // Fields outlive nothing of the delegate: their edits go nowhere now.
    for (int row = 0; row < editor().numberOfRows(); ++row) {
        if (RowPtr description = editor().rowAtIndex(row); description->values) {
            description->values->setUpdateFunction({});
        }
    }
}

void PredicateEditorDelegate::configureEditor()
{
    editor().setNestingMode(NestingMode::Compound);
    editor().setRowHeight(25);
    editor().setCanRemoveAllRows(false);
    editor().setCopiesRowOnAdd(true);
    editor().setAcceptsFileDrops(true);
}

// --- Choices ---------------------------------------------------------------------------

const std::vector<Criterion>& PredicateEditorDelegate::predicateCompoundRootCriteria()
{
    if (!m_compoundRootCriteria) {
        m_compoundRootCriteria.emplace();
        for (const model::BooleanOperator* op : model::BooleanOperator::booleanOperators()) {
            m_compoundRootCriteria->emplace_back(op);
        }
    }
    return *m_compoundRootCriteria;
}

const std::vector<Criterion>& PredicateEditorDelegate::predicateSimpleRootCriteria()
{
    if (!m_simpleRootCriteria) {
        m_simpleRootCriteria.emplace();
        for (QueryAttribute* attribute : QueryAttribute::availableAttributesInContext(context())) {
            m_simpleRootCriteria->emplace_back(static_cast<store::ManagedObject*>(attribute));
        }
    }
    return *m_simpleRootCriteria;
}

std::vector<Criterion> PredicateEditorDelegate::childrenForCriterion(const Criterion& criterion, RowType rowType)
{
    if (criterion.isEmpty()) {
        if (rowType == RowType::Compound) {
            return predicateCompoundRootCriteria();
        }
        std::vector<Criterion> children = predicateSimpleRootCriteria();
        children.emplace_back(MenuItem::separator());
        children.emplace_back(MenuItem::makeAction(model::localized(QStringLiteral("Other...")),
                                                   [this](int row) { selectOtherAttribute(row); }));
        return children;
    }
    if (const auto* attribute = criterion.object<QueryAttribute>()) {
        const std::vector<const RelationalOperator*>& operators = attribute->applicableOperators();
        if (operators.empty()) {
            return {Criterion(model::localized(QStringLiteral("criterion not available")))};
        }
        std::vector<Criterion> children;
        for (model::RelationalOperatorProxy& proxy :
             model::RelationalOperatorProxy::proxysForOperators(operators, attribute->attributeKey())) {
            children.emplace_back(std::move(proxy));
        }
        return children;
    }
    if (const model::RelationalOperatorProxy* proxy = criterion.proxy()) {
        return valueChoices(*proxy);
    }
    if (const ValueSlot* slot = criterion.slot()) {
        return {slot->units.begin(), slot->units.end()};
    }
    return {};
}

// --- What a line shows -------------------------------------------------------------------

DisplayValue PredicateEditorDelegate::displayValueForCriterion(const Criterion& criterion, int row)
{
    RowPtr description = editor().rowAtIndex(row);
    return description ? displayValueForCriterion(criterion, *description) : plainDisplayValue(criterion);
}

DisplayValue PredicateEditorDelegate::displayValueForCriterion(const Criterion& criterion, RowDescription& row)
{
    const ValueSlot* slot = criterion.slot();
    if (!slot) {
        return plainDisplayValue(criterion);
    }
    if (!row.values) {
        row.values = std::make_shared<ValueContainer>();
    }
    attachValues(row);
    ValueContainer& values = *row.values;
    auto* leaf = store::object_cast<QueryLeaf>(row.item);
    if (slot->attributeKey != values.attributeKey() && leaf) {
        // The line now shows another attribute: its values are what the
        // row remembers for that attribute.
        values.setShouldUpdatePredicate(false);
        if (model::AttributeValue* remembered = rememberedValues(*leaf, slot->attributeKey)) {
            const std::pair<const char*, void (ValueContainer::*)(const QVariant&)> fields[] = {
                {"queryString", &ValueContainer::setQueryString},   {"queryBoolean", &ValueContainer::setQueryBoolean},
                {"queryDate", &ValueContainer::setQueryDate},       {"queryNumber", &ValueContainer::setQueryNumber},
                {"queryUnit", &ValueContainer::setQueryUnit},
            };
            for (const auto& [name, set] : fields) {
                const QVariant value = remembered->value(QString::fromLatin1(name));
                if (value.isValid()) {
                    (values.*set)(value);
                }
            }
        }
        values.setAttributeKey(slot->attributeKey);
        values.setShouldUpdatePredicate(true);
    }

    const auto* attribute = row.criteria.empty() ? nullptr : row.criteria.front().object<QueryAttribute>();
    const RelationalOperator* op = slot->relationalOperator;
    RuleValueField::Kind kind = RuleValueField::Kind::StringField;
    if (contains(RelationalOperator::dateOperators(), op) && op != RelationalOperator::withinLastOperator()) {
        kind = RuleValueField::Kind::DatePicker;
    } else if (attribute && attribute->isBooleanType()) {
        kind = RuleValueField::Kind::Boolean;
    } else if (attribute && attribute->isNumberType()) {
        kind = RuleValueField::Kind::NumberField;
    } else if (attribute && attribute->isDateType()) {
        kind = RuleValueField::Kind::DateField;
    }
    RuleValueField* field = row.field(RuleValueField::nameOf(kind));
    if (!field) {
        std::unique_ptr<RuleValueField> made = RuleValueField::make(kind, row.values);
        if (kind != RuleValueField::Kind::DatePicker && kind != RuleValueField::Kind::Boolean) {
            // Return in the field starts the search.
            made->setAction([this] { document().startQuery(); });
        }
        field = made.get();
        row.keepField(std::move(made));
    }
    return {QString(), field};
}

// --- Tree to lines -------------------------------------------------------------------------

std::vector<RowPtr> PredicateEditorDelegate::rowsFromGraph()
{
    QueryNode* root = QueryNode::rootNodeInContext(context());
    return root ? predicateRows({root}) : std::vector<RowPtr>();
}

std::vector<RowPtr> PredicateEditorDelegate::predicateRows(const std::vector<QueryItem*>& items)
{
    std::map<store::ManagedObject*, RowPtr> reusable = rowsByItem();
    return predicateRows(items, reusable);
}

std::vector<RowPtr> PredicateEditorDelegate::predicateRows(const std::vector<QueryItem*>& items,
                                                           std::map<store::ManagedObject*, RowPtr>& reusable)
{
    std::vector<RowPtr> rows;
    rows.reserve(items.size());
    for (QueryItem* item : items) {
        RowPtr row;
        if (auto found = reusable.find(item); found != reusable.end()) {
            row = found->second;
            reusable.erase(found);
        } else {
            row = std::make_shared<RowDescription>();
        }
        row->item = item;
        row->displayValues.clear();
        if (auto* node = dynamic_cast<QueryNode*>(item)) {
            row->rowType = RowType::Compound;
            row->criteria.clear();
            if (const model::BooleanOperator* op =
                    model::BooleanOperatorTransformer::sharedInstance()->lookup(node->operatorName())) {
                row->criteria.emplace_back(op);
            }
            row->subrows = predicateRows(node->orderedChildren(), reusable);
        } else {
            auto* leaf = static_cast<QueryLeaf*>(item);
            row->rowType = RowType::Simple;
            row->subrows.clear();
            row->criteria = criteriaForLeaf(*leaf);
            loadValues(*row, *leaf);
            attachValues(*row);
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<Criterion> PredicateEditorDelegate::criteriaForLeaf(QueryLeaf& leaf)
{
    std::vector<Criterion> criteria;
    QueryAttribute* attribute = leaf.queryAttribute();
    if (!attribute) {
        return criteria;
    }
    criteria.emplace_back(static_cast<store::ManagedObject*>(attribute));
    const std::vector<const RelationalOperator*>& operators = attribute->applicableOperators();
    if (operators.empty()) {
        criteria.emplace_back(model::localized(QStringLiteral("criterion not available")));
        return criteria;
    }
    const RelationalOperator* op = leaf.relationalOperator();
    if (!contains(operators, op)) {
        // A row without an operator (or with one its attribute does not
        // offer) shows the first; it contributes nothing until chosen.
        op = operators.front();
    }
    const model::RelationalOperatorProxy proxy(op, attribute->attributeKey());
    criteria.emplace_back(proxy);
    const QString key = attribute->attributeKey();
    if (key == kContentTypeTree) {
        criteria.emplace_back(model::ContentTypeTransformer::sharedInstance()->lookup(leaf.queryString()));
    } else if (key == kLabel) {
        criteria.emplace_back(model::FinderLabelTransformer::sharedInstance()->lookup(leaf.queryNumber()));
    } else {
        std::vector<Criterion> slot = valueChoices(proxy);
        const std::vector<const model::Unit*> units = slot.front().slot()->units;
        criteria.push_back(std::move(slot.front()));
        if (!units.empty()) {
            const model::Unit* unit = leaf.unit();
            criteria.emplace_back(unit ? unit : units.front());
        }
    }
    // A fixed value the vocabulary does not know stays empty.
    if (criteria.back().value<model::Value>() == nullptr && !criteria.back().slot()) {
        criteria.back() = Criterion();
    }
    return criteria;
}

void PredicateEditorDelegate::loadValues(RowDescription& row, QueryLeaf& leaf)
{
    if (!row.values) {
        row.values = std::make_shared<ValueContainer>();
    }
    ValueContainer& values = *row.values;
    values.setShouldUpdatePredicate(false);
    values.setQueryBoolean(leaf.queryBoolean());
    values.setQueryDate(leaf.queryDate());
    values.setQueryNumber(leaf.queryNumber());
    values.setQueryString(leaf.queryString());
    values.setQueryOperator(leaf.queryOperator());
    values.setQueryUnit(leaf.queryUnit());
    values.setAttributeKey(leaf.queryAttribute() ? leaf.queryAttribute()->attributeKey() : QString());
    values.setShouldUpdatePredicate(true);
}

// --- Lines to tree --------------------------------------------------------------------------

void PredicateEditorDelegate::rowsDidChange()
{
    if (!finishedSetUp()) {
        return;
    }
    writing([this] { document().updatePredicate([this] { writeRows(); }); });
    loadEditor();
}

void PredicateEditorDelegate::writeRows()
{
    std::vector<store::ManagedObject*> claimed;
    const std::vector<RowPtr>& rows = editor().rows();
    if (!rows.empty()) {
        writeRow(rows.front(), nullptr, 0, claimed);
    }
    std::sort(claimed.begin(), claimed.end());
    Result<std::vector<QueryItem*>> all = context().fetch<QueryItem>();
    if (!all) {
        return;
    }
    for (QueryItem* item : *all) {
        if (!std::binary_search(claimed.begin(), claimed.end(), static_cast<store::ManagedObject*>(item))) {
            context().deleteObject(item);
        }
    }
}

void PredicateEditorDelegate::writeRow(const RowPtr& row, QueryNode* parent, int index,
                                       std::vector<store::ManagedObject*>& claimed)
{
    auto* item = dynamic_cast<QueryItem*>(row->item);
    if (item && (item->isDeleted() || item->isLeaf() == row->isCompound())) {
        item = nullptr;
    }
    const bool isNew = !item;
    if (isNew) {
        if (!parent) {
            item = QueryNode::rootNodeInContext(context());
        } else if (row->isCompound()) {
            item = context().insert<QueryNode>();
        } else {
            item = context().insert<QueryLeaf>();
        }
        row->item = item;
    }
    claimed.push_back(item);
    if (item->parent() != parent) {
        item->setParent(parent);
    }
    if (!item->sortIndex().isValid() || item->sortIndexValue() != index) {
        item->setSortIndexValue(index);
    }
    if (auto* node = dynamic_cast<QueryNode*>(item)) {
        const auto* op = row->criteria.empty() ? nullptr : row->criteria.front().value<model::BooleanOperator>();
        if (op && node->operatorName() != op->representation().toString()) {
            node->setOperatorName(op->representation().toString());
        }
        for (std::size_t child = 0; child < row->subrows.size(); ++child) {
            writeRow(row->subrows[child], node, static_cast<int>(child), claimed);
        }
    } else {
        writeLeaf(*row, *static_cast<QueryLeaf*>(item), isNew);
    }
}

void PredicateEditorDelegate::writeLeaf(RowDescription& row, QueryLeaf& leaf, bool isNew)
{
    const std::vector<Criterion>& criteria = row.criteria;
    auto* attribute = criteria.empty() ? nullptr : criteria[0].object<QueryAttribute>();
    if (!attribute || (!isNew && criteria == criteriaForLeaf(leaf))) {
        // Not edited: a row shows some things it does not hold (the first
        // unit while it has none), which must not be written by the way.
        return;
    }
    if (isNew || attribute != leaf.queryAttribute()) {
        leaf.setQueryAttribute(attribute);
        leaf.setQueryValues();
        if (!isNew) {
            // The operator, value and unit the editor reset to its first
            // choices give way to what the row had for this attribute.
            return;
        }
    }
    const model::RelationalOperatorProxy* proxy = criteria.size() > 1 ? criteria[1].proxy() : nullptr;
    if (proxy && proxy->relationalOperator() != leaf.relationalOperator()) {
        leaf.setQueryOperator(proxy->relationalOperator()->representation());
        if (!isNew) {
            return;  // the value and its unit stay as they were
        }
    }
    if (criteria.size() > 2) {
        if (const auto* type = criteria[2].value<model::ContentType>()) {
            storeValues(leaf, {{"queryString", type->utiString()}});
        } else if (const auto* label = criteria[2].value<model::FinderLabelValue>()) {
            storeValues(leaf, {{"queryNumber", label->number()}});
        }
    }
    if (criteria.size() > 3) {
        if (const auto* unit = criteria[3].value<model::Unit>()) {
            storeValues(leaf, {{"queryUnit", unit->representation()}});
        }
    }
    if (isNew && row.values && row.values->attributeKey() == attribute->attributeKey()) {
        // A copy of another line: its values too.
        storeFieldValues(leaf, *row.values);
    }
}

void PredicateEditorDelegate::valuesDidChange(RowDescription& row, ValueContainer& values)
{
    if (!finishedSetUp()) {
        return;
    }
    auto* leaf = store::object_cast<QueryLeaf>(row.item);
    if (!leaf || leaf->isDeleted()) {
        rowsDidChange();
        return;
    }
    writing([&] {
        document().updatePredicate([&] { storeFieldValues(*leaf, values); });
    });
}

// --- Edits from elsewhere --------------------------------------------------------------------

void PredicateEditorDelegate::objectsDidChange(const store::ObjectChanges& changes, bool)
{
    // The document reloads this editor after undo and redo itself.
    if (changes.containsKindOf<QueryAttribute>()) {
        m_simpleRootCriteria.reset();
    }
}

void PredicateEditorDelegate::selectOtherAttribute(int row)
{
    RowPtr description = editor().rowAtIndex(row);
    if (description && m_otherAttribute) {
        m_otherAttribute(description);
    }
}

void PredicateEditorDelegate::setAttributeOfRow(const RowPtr& row, const QString& attributeKey)
{
    auto* leaf = row ? store::object_cast<QueryLeaf>(row->item) : nullptr;
    if (!leaf || leaf->isDeleted()) {
        return;
    }
    writing([&] {
        document().updatePredicate([&] {
            leaf->setQueryAttribute(QueryAttribute::attributeWithKey(attributeKey, context()));
            leaf->setQueryValues();
        });
    });
    loadEditor();
}

bool PredicateEditorDelegate::acceptDrop(const QStringList& paths, int row)
{
    if (paths.size() != 1) {
        return false;
    }
    RowPtr description = editor().rowAtIndex(row < 0 ? 0 : row);
    if (!description || !description->item || description->item->isDeleted()) {
        return false;
    }
    auto* group = dynamic_cast<QueryNode*>(description->item);
    auto* leaf = dynamic_cast<QueryLeaf*>(description->item);
    QueryAttribute* attribute = leaf ? leaf->queryAttribute() : nullptr;
    QString key = attribute ? attribute->attributeKey() : kName;
    if (group) {
        // The new row's attribute, as the group would choose it.
        QueryAttribute* chosen = group->defaultAttributeForRowFromIndex(-1);
        key = chosen ? chosen->attributeKey() : key;
    }
    if (key == kContentTypeTree) {
        key = kContentType;
    }
    std::optional<QVariant> value = m_readFileAttribute(paths.front(), key);
    if (group && (!value || !value->isValid())) {
        // The group's new row would have nothing to show: it takes the
        // file's name instead.
        key = kName;
        value = m_readFileAttribute(paths.front(), key);
    }
    if (!value || !value->isValid()) {
        return false;
    }

    writing([&] {
        document().updatePredicate([&] {
            if (group) {
                leaf = group->addRow();
            }
            QueryAttribute* target = QueryAttribute::attributeWithKey(key, context());
            if (leaf->queryAttribute() != target) {
                leaf->setQueryAttribute(target);
                if (key == kContentType) {
                    leaf->setQueryOperator(RelationalOperator::isOperator()->representation());
                }
            }
            model::AttributeValue* remembered = leaf->attributeValueForKey(key);
            if (!remembered) {
                return;
            }
            if (target->isStringType()) {
                remembered->setQueryString(value->toString());
            } else if (target->isNumberType()) {
                if (key == kSize) {
                    const auto [number, unit] = sizeWithUnit(model::doubleValueOf(*value));
                    remembered->setQueryNumber(std::round(number * 100) / 100);
                    remembered->setQueryUnit(unit);
                } else {
                    remembered->setQueryNumber(*value);
                }
            } else if (target->isBooleanType()) {
                remembered->setQueryBoolean(value->toBool());
            } else if (target->isDateType()) {
                remembered->setQueryDate(*value);
            }
            leaf->setQueryValues();
            if (target->isDateType()) {
                leaf->setQueryOperator(RelationalOperator::onOperator()->representation());
            }
        });
    });
    loadEditor();
    return true;
}

std::optional<QVariant> PredicateEditorDelegate::readFileAttribute(const QString& path, const QString& key)
{
    const std::string absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath()).toStdString();
    index::Expected<index::FileRecord> record = index::readFileRecord(absolute);
    if (!record) {
        return std::nullopt;
    }
    static const index::IndexServices services = index::standardServices();
    index::TypeInfo type = services.types(record->details.mimeType);
    const index::Nanoseconds lastUsed = services.lastUsed ? services.lastUsed(absolute, record->info) : 0;
    const index::FileFacts facts(absolute, std::move(record->info), std::move(record->details), std::move(type),
                                 lastUsed);
    const std::optional<index::query::AttributeValue> found = index::itemAttribute(key.toStdString(), facts);
    if (!found) {
        return std::nullopt;
    }
    QVariant value = presentation::variantFromAttributeValue(*found);
    if (value.typeId() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        if (list.isEmpty()) {
            return std::nullopt;
        }
        value = list.front();
    }
    return value;
}

// --- The invariant ---------------------------------------------------------------------------

bool PredicateEditorDelegate::isConsistent(QString* why) const
{
    auto fail = [why](const QString& reason) {
        if (why) {
            *why = reason;
        }
        return false;
    };
    const std::vector<RowPtr>& rows = editor().rows();
    if (rows.size() != 1) {
        return fail(QStringLiteral("%1 top lines").arg(rows.size()));
    }
    Result<std::vector<QueryNode*>> roots =
        context().fetch<QueryNode>(store::Predicate::format(QStringLiteral("parent == nil")).value());
    if (!roots || roots->size() != 1) {
        return fail(QStringLiteral("not exactly one root group"));
    }
    if (!checkRow(*rows.front(), roots->front(), why)) {
        return false;
    }
    // Every item of the tree has its line.
    Result<std::vector<QueryItem*>> all = context().fetch<QueryItem>();
    int lines = 0;
    std::function<void(const RowDescription&)> count = [&](const RowDescription& row) {
        ++lines;
        for (const RowPtr& subrow : row.subrows) {
            count(*subrow);
        }
    };
    count(*rows.front());
    if (!all || static_cast<int>(all->size()) != lines) {
        return fail(QStringLiteral("%1 items for %2 lines").arg(all ? all->size() : 0).arg(lines));
    }
    return true;
}

bool PredicateEditorDelegate::checkRow(const RowDescription& row, QueryItem* item, QString* why) const
{
    auto fail = [&](const QString& reason) {
        if (why) {
            *why = QStringLiteral("%1: %2").arg(item ? item->description() : QStringLiteral("no item"), reason);
        }
        return false;
    };
    if (!item || row.item != item || item->isDeleted()) {
        return fail(QStringLiteral("the line stands for another item"));
    }
    if (row.displayValues.size() != row.criteria.size()) {
        return fail(QStringLiteral("display values missing"));
    }
    if (auto* node = dynamic_cast<QueryNode*>(item)) {
        const auto* op = row.criteria.empty() ? nullptr : row.criteria.front().value<model::BooleanOperator>();
        if (!row.isCompound() || !op || op->representation().toString() != node->operatorName()) {
            return fail(QStringLiteral("group line differs"));
        }
        const std::vector<QueryItem*> children = node->orderedChildren();
        if (children.size() != row.subrows.size()) {
            return fail(QStringLiteral("%1 children, %2 lines").arg(children.size()).arg(row.subrows.size()));
        }
        for (std::size_t i = 0; i < children.size(); ++i) {
            if (i > 0 && children[i]->sortIndexValue() == children[i - 1]->sortIndexValue()) {
                return fail(QStringLiteral("two children at one place"));
            }
            if (!checkRow(*row.subrows[i], children[i], why)) {
                return false;
            }
        }
        return true;
    }
    auto* leaf = static_cast<QueryLeaf*>(item);
    if (row.isCompound() || !row.subrows.empty()) {
        return fail(QStringLiteral("a row shown as a group"));
    }
    auto* self = const_cast<PredicateEditorDelegate*>(this);
    if (row.criteria != self->criteriaForLeaf(*leaf)) {
        return fail(QStringLiteral("criteria differ from the row"));
    }
    if (RuleValueField* field = row.shownField()) {
        const ValueContainer& values = *row.values;
        const bool pickedDay = field->kind() == RuleValueField::Kind::DatePicker && !leaf->queryDate().isValid();
        if (values.queryString() != leaf->queryString() || values.queryNumber() != leaf->queryNumber()
            || values.queryBoolean() != leaf->queryBoolean() || (!pickedDay && values.queryDate() != leaf->queryDate())) {
            return fail(QStringLiteral("the field's values differ from the row: %1").arg(values.description()));
        }
    }
    return true;
}

void PredicateEditorDelegate::attachValues(RowDescription& row)
{
    // The container lives no longer than its line (the line and the
    // line's fields hold it), so the line can be named directly.
    RowDescription* line = &row;
    row.values->setUpdateFunction([this, line](ValueContainer& values) { valuesDidChange(*line, values); });
}

}  // namespace trovara::editors
