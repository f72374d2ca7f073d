// The attributes an importer extracts from a file's content (title, authors,
// pixel size, duration …), as they travel from the helper process to the
// index and as the index database keeps them, one encoded record per file.
//
// Record layout (little-endian; see docs/format/importer.md):
//   u32 attribute count, then per attribute: u16 key length + key bytes,
//   u8 flags (1: a list), u32 element count, then per element a u8 kind
//   (0 text, 1 number, 2 date, 3 Boolean) and its value (text: u32 length +
//   UTF-8; number and date: f64, a date as seconds since 2001-01-01 UTC;
//   Boolean: u8).
// Decoding checks every length, kind and key; texts that are not valid UTF-8
// are repaired (U+FFFD), numbers that are not finite are dropped.
//
// Thread safety: plain values.
#pragma once

#include "index/expected.h"
#include "index/query/item_view.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

struct ImportedAttribute {
    std::string key;  // "kMDItemTitle"
    query::AttributeValue value;
};

using ImportedAttributes = std::vector<ImportedAttribute>;

// The value of `key`, if there is one.
const query::AttributeValue* findImported(const ImportedAttributes& attributes, std::string_view key);

// Whether `key` may name an attribute: a letter or "_", then letters, digits
// and "_", at most 128 bytes.
bool isAttributeKey(std::string_view key);

std::string encodeImportedAttributes(const ImportedAttributes& attributes);
Expected<ImportedAttributes> decodeImportedAttributes(std::string_view bytes);

// One value alone (flags, element count, elements: the record's layout
// without the key), as the catalogue keeps it.
std::string encodeImportedValue(const query::AttributeValue& value);
std::optional<query::AttributeValue> decodeImportedValue(std::string_view bytes);

}  // namespace trovara::index
