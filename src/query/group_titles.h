// Titles of result groups, where results are shown grouped by kind: each
// group's integer identifier names a key, localised through the
// "MDSimpleGrouping" table (Trovara carries English titles for it).
//
//   1 MESSAGES  2 CONTACT  3 SYSTEM_PREFS  5 BOOKMARKS  8 APPLICATIONS
//   9 DIRECTORIES  10 MUSIC  11 PDF  14 DOCUMENTS
//
// Any other identifier is "Unknown Type: %d" with the identifier, looked up
// the same way.
#pragma once

#include <QString>

namespace trovara::query {

// The untranslated key of a group.
QString groupKeyForIdentifier(int identifier);
// The title shown for a group.
QString groupTitleForIdentifier(int identifier);

}  // namespace trovara::query
