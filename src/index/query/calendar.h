// Local calendar arithmetic for the query language's dates and $time values.
//
// Dates are seconds since 2001-01-01 00:00:00 UTC (the reference date), as
// doubles. Local time is the C library's: the TZ environment variable as it
// is when a function is called (tzset() is called for each conversion).
//
// Wall-clock times that a daylight-saving change makes ambiguous or skips
// are read the way people mean them, as everywhere in Trovara: a time that
// occurs twice is its first occurrence; a time that never occurs is read
// with the offset from before the change, landing as far after the gap as
// it was into it (so a day whose midnight is skipped starts when the clocks
// have gone forward).
//
// Thread safety: reentrant, as long as no other thread changes TZ.
#pragma once

#include <cstdint>

namespace trovara::index::query {

// Unix time of the reference date 2001-01-01 00:00:00 UTC.
inline constexpr double kReferenceDateUnixSeconds = 978307200.0;

enum class Weekday : std::uint8_t { Sunday, Monday, Tuesday, Wednesday, Thursday, Friday, Saturday };

// A day of the proleptic Gregorian calendar. Arithmetic helpers accept
// out-of-range months and days and carry them (month 13 is January of the
// next year).
struct CivilDate {
    int year = 2001;
    int month = 1;
    int day = 1;

    bool operator==(const CivilDate&) const = default;
};

// Days since 1970-01-01 of a calendar day, and back.
std::int64_t daysFromCivil(CivilDate date);
CivilDate civilFromDays(std::int64_t days);
CivilDate addDays(CivilDate date, std::int64_t days);
// The first day of the month `months` after the month of `date`.
CivilDate firstOfMonth(CivilDate date, std::int64_t months);
Weekday weekdayOf(CivilDate date);
int daysInMonth(int year, int month);

// The instant of a local wall-clock time (see the header comment for times
// around daylight-saving changes).
double localTimeToReference(CivilDate date, int hour, int minute, double second);
// The instant at which a local calendar day begins.
double startOfLocalDay(CivilDate date);
// The local calendar day an instant falls on.
CivilDate localDateOf(double referenceSeconds);

// When a query starts: the instant that fixes its $time values, and the
// first day of the week for this_week and last_week. Evaluation never reads
// the clock itself, so tests choose both.
struct QueryStart {
    double time = 0;  // seconds since the reference date
    Weekday firstWeekday = Weekday::Monday;

    // The current time and the locale's first weekday.
    static QueryStart now();
};

// The first day of the week of the LC_TIME locale taken from the
// environment (LC_ALL, LC_TIME, LANG), as glibc's locale data gives it
// (Sunday for en_US, Monday for de_DE …). The C and POSIX locales carry no
// such convention; they get Monday, the ISO 8601 week start.
Weekday localeFirstWeekday();

}  // namespace trovara::index::query
