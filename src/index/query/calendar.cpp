#include "index/query/calendar.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <ctime>
#include <langinfo.h>
#include <locale.h>

namespace trovara::index::query {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
// Far enough around a wall-clock time to see the offsets on both sides of
// any daylight-saving change near it.
constexpr std::int64_t kOffsetWindow = 36 * 3600;

// The local UTC offset in seconds at a Unix time.
std::int64_t localOffsetAt(std::int64_t unixSeconds)
{
    const auto time = static_cast<std::time_t>(unixSeconds);
    std::tm local{};
    if (!localtime_r(&time, &local)) {
        return 0;
    }
    return local.tm_gmtoff;
}

double unixToReference(double unixSeconds)
{
    return unixSeconds - kReferenceDateUnixSeconds;
}

}  // namespace

std::int64_t daysFromCivil(CivilDate date)
{
    // Carry months outside 1…12 into the year first.
    std::int64_t year = date.year;
    std::int64_t month = date.month - 1;
    year += month >= 0 ? month / 12 : -((11 - month) / 12);
    month = ((month % 12) + 12) % 12 + 1;
    // Howard Hinnant's days_from_civil.
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yearOfEra = year - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468 + (date.day - 1);
}

CivilDate civilFromDays(std::int64_t days)
{
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t dayOfEra = days - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const std::int64_t day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    const std::int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    return {static_cast<int>(year), static_cast<int>(month), static_cast<int>(day)};
}

CivilDate addDays(CivilDate date, std::int64_t days)
{
    return civilFromDays(daysFromCivil(date) + days);
}

CivilDate firstOfMonth(CivilDate date, std::int64_t months)
{
    return civilFromDays(daysFromCivil({date.year, static_cast<int>(date.month + months), 1}));
}

Weekday weekdayOf(CivilDate date)
{
    // 1970-01-01 was a Thursday.
    const std::int64_t days = daysFromCivil(date);
    return static_cast<Weekday>(((days % 7) + 7 + 4) % 7);
}

int daysInMonth(int year, int month)
{
    const CivilDate first{year, month, 1};
    return static_cast<int>(daysFromCivil(firstOfMonth(first, 1)) - daysFromCivil(first));
}

double localTimeToReference(CivilDate date, int hour, int minute, double second)
{
    tzset();
    const double whole = std::floor(second);
    const double fraction = second - whole;
    // The wall-clock time read as if it were UTC.
    const std::int64_t wall = daysFromCivil(date) * kSecondsPerDay + hour * 3600 + minute * 60
                              + static_cast<std::int64_t>(whole);
    const std::int64_t before = localOffsetAt(wall - kOffsetWindow);
    const std::int64_t after = localOffsetAt(wall + kOffsetWindow);
    std::int64_t chosen = wall - before;
    const bool beforeFits = localOffsetAt(chosen) == before;
    const std::int64_t other = wall - after;
    const bool afterFits = localOffsetAt(other) == after;
    if (afterFits && (!beforeFits || other < chosen)) {
        chosen = other;
    }
    return unixToReference(static_cast<double>(chosen) + fraction);
}

double startOfLocalDay(CivilDate date)
{
    return localTimeToReference(date, 0, 0, 0);
}

CivilDate localDateOf(double referenceSeconds)
{
    tzset();
    const auto time = static_cast<std::time_t>(std::floor(referenceSeconds + kReferenceDateUnixSeconds));
    std::tm local{};
    if (!localtime_r(&time, &local)) {
        return civilFromDays(static_cast<std::int64_t>(std::floor(static_cast<double>(time) / kSecondsPerDay)));
    }
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

QueryStart QueryStart::now()
{
    using namespace std::chrono;
    const double unixSeconds = duration<double>(system_clock::now().time_since_epoch()).count();
    return {unixToReference(unixSeconds), localeFirstWeekday()};
}

Weekday localeFirstWeekday()
{
    const char* name = nullptr;
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            name = value;
            break;
        }
    }
    if (!name || std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0
        || std::strncmp(name, "C.", 2) == 0) {
        return Weekday::Monday;
    }
    locale_t locale = newlocale(LC_TIME_MASK, name, static_cast<locale_t>(nullptr));
    if (!locale) {
        return Weekday::Monday;
    }
    // glibc counts the first weekday from 1, relative to the day named by
    // _NL_TIME_WEEK_1STDAY (a date such as 19971130, a Sunday).
    const int firstWeekday = static_cast<unsigned char>(*nl_langinfo_l(_NL_TIME_FIRST_WEEKDAY, locale));
    // The reference day is a number stored where the string pointer goes.
    const char* referenceDay = nl_langinfo_l(_NL_TIME_WEEK_1STDAY, locale);
    unsigned int yyyymmdd = 0;
    std::memcpy(&yyyymmdd, &referenceDay, sizeof yyyymmdd);
    freelocale(locale);
    const CivilDate reference{static_cast<int>(yyyymmdd / 10000), static_cast<int>(yyyymmdd / 100 % 100),
                              static_cast<int>(yyyymmdd % 100)};
    if (firstWeekday < 1 || firstWeekday > 7 || reference.month < 1 || reference.month > 12) {
        return Weekday::Monday;
    }
    const int day = (static_cast<int>(weekdayOf(reference)) + firstWeekday - 1) % 7;
    return static_cast<Weekday>(day);
}

}  // namespace trovara::index::query
