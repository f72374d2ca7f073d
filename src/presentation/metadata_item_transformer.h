// Transformers for key/value tables: an item's whole attribute set as rows
// for the inspector, and a plain dictionary as rows and back.
//
// Rows are QVariantMaps: "key" (the attribute key), "label" (its display
// name, item rows only) and "value" (the text shown).
//
// Process-wide single instances (sharedInstance()), registered under
// "metaDataItemTransformer" and "dictionaryTransformer" by
// registerPresentationTransformers(). Use from the main thread.
#pragma once

#include "index/live/item_ref.h"
#include "model/value_transformer.h"
#include "presentation/date_formatter.h"

namespace trovara::presentation {

class MetaDataItemTransformer final : public model::ValueTransformer {
public:
    static const MetaDataItemTransformer* sharedInstance();
    MetaDataItemTransformer();

    // The rows of every attribute of the item that the attribute catalogue
    // names, whose declared type the schema knows and whose value has a
    // text, sorted by label.
    QVariantList rowsForItem(const index::ItemRef& item) const;

    // A QVariant holding an index::ItemRef (a result's index record) gives
    // its rows; anything else an empty list.
    QVariant transformedValue(const QVariant& value) const override;
    bool allowsReverseTransformation() const override { return false; }
    static QMetaType transformedValueClass() { return QMetaType::fromType<QVariantList>(); }

    // One value as the inspector shows it, by its declared type; a null
    // string when it has no text (the attribute is then left out).
    // - A list: its elements formatted alike, joined with ", "; none when
    //   nothing remains.
    // - Text: line feeds become spaces.
    // - Number: kMDItemFSSize as "%@ bytes" (unscaled), others in their own
    //   textual form.
    // - Boolean: "Yes" when its integer value is above 0, else "No".
    // - Date: short date and short time, local time.
    // - Any other type: logged and left out.
    QString format(const QVariant& value, int type, const QString& key) const;

private:
    int m_stringTypeID;
    int m_numberTypeID;
    int m_booleanTypeID;
    int m_dateTypeID;
    DateFormatter m_dateFormatter;
};

class DictionaryTransformer final : public model::ValueTransformer {
public:
    static const DictionaryTransformer* sharedInstance();

    // A QVariantMap gives one row ("key", "value") per key, in key order.
    QVariant transformedValue(const QVariant& value) const override;
    // Rows give a map; a row without a value removes its key, and a later
    // row wins over an earlier one with the same key.
    QVariant reverseTransformedValue(const QVariant& value) const override;
};

// Registers the two transformers under their names. Safe to call again.
void registerPresentationTransformers();

}  // namespace trovara::presentation
