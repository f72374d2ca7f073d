// Where a text view starts its lines: after every line break, and within a
// line longer than the limit every `maxLength` UTF-16 units (never inside a
// surrogate pair), so that a view of a huge text lays out only the lines on
// screen and even a 10 MB text on one line scrolls.
//
// Thread safety: pure function.
#pragma once

#include <QStringView>

#include <vector>

namespace trovara::preview {

// The start of each display line, in text order; the first is 0 (also for
// an empty text). A text ending in a line break ends with an empty line.
std::vector<qsizetype> displayLineStarts(QStringView text, qsizetype maxLength = 2000);

// The display line holding `position` (a position in the text).
std::size_t displayLineAt(const std::vector<qsizetype>& starts, qsizetype position);

}  // namespace trovara::preview
