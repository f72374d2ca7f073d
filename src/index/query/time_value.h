// $time values and ISO 8601 dates: reading them from query text, and fixing
// them to instants and periods when a query starts.
//
//   $time.now, $time.now(N)        the start instant plus N seconds; a unit
//                                  letter may follow N: s, m (minutes), h,
//                                  d (86400 s) or w (7 days)
//   $time.today(N), $time.yesterday(N)     a local calendar day
//   $time.this_week(N), $time.last_week(N) a week from the first weekday
//   $time.this_month(N), $time.this_year(N)
//                                  periods, N of them away from the current
//                                  one; N is a whole number and may carry
//                                  the period's own unit letter (d, w, m, y)
//   $time.iso(TEXT)                2018-10-01T10:00:00Z (with Z or an
//                                  offset), 2014-12-10T09:00:00 (local),
//                                  2025-03-01 (local midnight); TEXT may be
//                                  quoted
// Names are case-insensitive. Thread safety: reentrant.
#pragma once

#include "index/expected.h"
#include "index/query/ast.h"
#include "index/query/calendar.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace trovara::index::query {

// A $time value fixed at a query's start. An instant has start == end.
struct TimeRange {
    double start = 0;
    double end = 0;  // exclusive end of a period
    bool period = false;
};

struct TimeParseError {
    std::size_t offset = 0;  // byte offset into the text given to the parser
    std::string expected;    // what should have been there
};

// Whether `text` begins with "$time." in any case.
bool startsWithTimeValue(std::string_view text);

// Reads the $time value at the start of `text`; `consumed` receives the
// number of bytes it spans. Text after the value is left alone.
Expected<TimeValue, TimeParseError> parseTimeValue(std::string_view text, std::size_t& consumed);

// The whole of `text` as an ISO 8601 date or date and time; none when it is
// not one of the accepted forms or names no real day or time.
std::optional<IsoDateTime> parseIsoDateTime(std::string_view text);

// The instant an ISO date and time names (local time when it has no offset).
double isoToReference(const IsoDateTime& iso);

TimeRange resolveTime(const TimeValue& value, const QueryStart& start);

}  // namespace trovara::index::query
