// User-visible texts. Every text is looked up by its English wording as key
// (falling back to the key itself); attribute and type names come from the
// named tables "Attributes", "LimitAttributes" and "Types".
//
// Lookup order: an installed Qt translation (context = the table name, the
// main table being "Trovara"), then Trovara's built-in English tables, then
// the key.
#pragma once

#include <QString>

namespace trovara::model {

inline constexpr const char* kMainTable = "Trovara";

QString localized(const QString& key);

// `found` (when given) tells whether the table had an entry for the key.
QString localizedFromTable(const char* table, const QString& key, bool* found = nullptr);

}  // namespace trovara::model
