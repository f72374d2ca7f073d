#include "editors/attribute_selection_controller.h"

#include "document/document.h"
#include "editors/predicate_editor_delegate.h"
#include "model/abstract_attribute.h"
#include "model/localization.h"
#include "model/metadata_schema.h"
#include "query/result_table_model.h"

#include <algorithm>

namespace trovara::editors {

namespace {

const QString kAnyText = QStringLiteral("*");
const QString kContentType = QStringLiteral("kMDItemContentType");

bool isListedType(int type)
{
    return type == model::kStringTypeID || type == model::kNumberTypeID || type == model::kBooleanTypeID
           || type == model::kDateTypeID;
}

}  // namespace

AbstractAttributeSelectionController::AbstractAttributeSelectionController(document::Document& document,
                                                                           QString promptString, QObject* parent)
    : SheetController(document, QStringLiteral("AttributeSelection"), parent)
    , m_promptString(std::move(promptString))
{
}

void AbstractAttributeSelectionController::setUp()
{
    const model::MetadataSchema& schema = model::MetadataSchema::current();
    QStringList keys = schema.allAttributes();
    if (!keys.contains(kContentType)) {
        keys << kContentType;
    }
    std::vector<AttributeEntry> entries;
    for (const QString& key : keys) {
        if (!shouldConsider(key)) {
            continue;
        }
        const std::optional<model::MetadataSchema::MetaAttributes> meta = schema.metaAttributes(key);
        if (!meta || !isListedType(meta->type)) {
            continue;
        }
        const QString name = model::ColumnAttribute::nameForKey(key);
        if (name.isEmpty()) {
            continue;
        }
        entries.push_back({key, name, schema.displayDescription(key)});
    }
    extendAttributes(entries);
    std::stable_sort(entries.begin(), entries.end(), [](const AttributeEntry& a, const AttributeEntry& b) {
        return a.name.localeAwareCompare(b.name) < 0;
    });
    m_attributes = std::move(entries);
    m_filterText.clear();
    m_selectedKeys.clear();
    m_scrollTarget.clear();
    arrange();
}

void AbstractAttributeSelectionController::cleanUp()
{
    m_attributes.clear();
    m_arranged.clear();
    m_selectedKeys.clear();
    m_scrollTarget.clear();
    emit attributesChanged();
}

void AbstractAttributeSelectionController::setFilterText(const QString& text)
{
    if (text == m_filterText) {
        return;
    }
    m_filterText = text;
    arrange();
}

void AbstractAttributeSelectionController::arrange()
{
    const QString needle = m_filterText.trimmed();
    m_arranged.clear();
    for (const AttributeEntry& entry : m_attributes) {
        if (needle.isEmpty() || entry.name.contains(needle, Qt::CaseInsensitive)
            || entry.attributeKey.contains(needle, Qt::CaseInsensitive)
            || entry.description.contains(needle, Qt::CaseInsensitive)) {
            m_arranged.push_back(entry);
        }
    }
    emit attributesChanged();
}

void AbstractAttributeSelectionController::setSelectedKeys(const QStringList& keys)
{
    QStringList known;
    for (const QString& key : keys) {
        const bool listed = std::any_of(m_attributes.begin(), m_attributes.end(),
                                        [&](const AttributeEntry& entry) { return entry.attributeKey == key; });
        if (listed && !known.contains(key)) {
            known << key;
        }
    }
    if (!allowsMultipleSelection() && known.size() > 1) {
        known = QStringList{known.back()};
    }
    if (known != m_selectedKeys) {
        m_selectedKeys = known;
        emit selectionChanged();
    }
}

void AbstractAttributeSelectionController::selectAttributeKey(const QString& key)
{
    setSelectedKeys({key});
    m_scrollTarget = m_selectedKeys.isEmpty() ? QString() : key;
}

void AbstractAttributeSelectionController::okSheet()
{
    if (m_selectedKeys.isEmpty()) {
        dismissSheetWithReturnCode(Cancel);
        return;
    }
    // A copy: ending the sheet releases the selection.
    const QStringList keys = m_selectedKeys;
    selectAttributeKeys(keys);
}

void AbstractAttributeSelectionController::cancelSheet()
{
    dismissSheetWithReturnCode(Cancel);
}

// --- Criteria -------------------------------------------------------------------------

QueryAttributeSelectionController::QueryAttributeSelectionController(document::Document& document,
                                                                     PredicateEditorDelegate& delegate, QObject* parent)
    : AbstractAttributeSelectionController(document, model::localized(QStringLiteral("Select query attribute")), parent)
    , m_delegate(delegate)
{
}

bool QueryAttributeSelectionController::shouldConsider(const QString& key) const
{
    return key != QLatin1String("kMDItemPath");
}

void QueryAttributeSelectionController::extendAttributes(std::vector<AttributeEntry>& attributes)
{
    attributes.push_back(
        {kAnyText, model::ColumnAttribute::nameForKey(kAnyText), model::localized(QStringLiteral("Any text attribute"))});
}

bool QueryAttributeSelectionController::shouldBeginSheet()
{
    QString current;
    if (m_row && !m_row->criteria.empty()) {
        if (const auto* attribute = m_row->criteria.front().object<model::QueryAttribute>()) {
            current = attribute->attributeKey();
        }
    }
    const auto& entries = arrangedAttributes();
    const bool listed = std::any_of(entries.begin(), entries.end(),
                                    [&](const AttributeEntry& entry) { return entry.attributeKey == current; });
    if (listed) {
        selectAttributeKey(current);
    } else if (!entries.empty()) {
        selectAttributeKey(entries.front().attributeKey);
    }
    return true;
}

void QueryAttributeSelectionController::selectAttributeKeys(const QStringList& keys)
{
    // One criterion takes one attribute: the last chosen.
    RowPtr row = m_row;
    const QString key = keys.back();
    dismissSheetWithReturnCode(OK);
    m_delegate.setAttributeOfRow(row, key);
}

void QueryAttributeSelectionController::cleanUp()
{
    AbstractAttributeSelectionController::cleanUp();
    m_row.reset();
}

// --- Columns --------------------------------------------------------------------------

ColumnAttributeSelectionController::ColumnAttributeSelectionController(document::Document& document, QObject* parent)
    : AbstractAttributeSelectionController(document, model::localized(QStringLiteral("Select column attributes")),
                                           parent)
{
}

bool ColumnAttributeSelectionController::shouldBeginSheet()
{
    if (!arrangedAttributes().empty()) {
        selectAttributeKey(arrangedAttributes().front().attributeKey);
    }
    return true;
}

void ColumnAttributeSelectionController::selectAttributeKeys(const QStringList& keys)
{
    query::ResultTableModel* results = document().metadataQueryController()->results();
    for (const QString& key : keys) {
        model::ColumnAttribute* attribute =
            model::ColumnAttribute::attributeWithKey(key, document().managedObjectContext());
        if (attribute && results->columnForIdentifier(key) < 0) {
            results->addColumnForColumnAttribute(attribute);
        }
    }
    dismissSheetWithReturnCode(OK);
}

}  // namespace trovara::editors
