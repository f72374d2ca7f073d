#include "index/query/evaluator.h"
#include "index/query/parser.h"
#include "index/query/time_value.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <ctime>
#include <locale.h>

using namespace trovara::index::query;
using trovara::test::ScopedEnv;
using trovara::test::ScopedTimeZone;

namespace {

// Seconds since 2001-01-01 UTC of a UTC date and time, computed by the C
// library, independently of the code under test.
double utc(int year, int month, int day, int hour = 0, int minute = 0)
{
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    return static_cast<double>(timegm(&tm)) - kReferenceDateUnixSeconds;
}

TimeRange resolve(const std::string& value, const QueryStart& start)
{
    const auto query = parseQuery("kMDItemFSContentChangeDate == " + value);
    if (!query || query->root.values.front().kind != Value::Kind::Time) {
        ADD_FAILURE() << value << " is no time value";
        return {};
    }
    return resolveTime(query->root.values.front().time, start);
}

struct PeriodCase {
    const char* value;
    double start;
    double end;
};

void checkPeriods(const QueryStart& start, std::initializer_list<PeriodCase> cases)
{
    for (const PeriodCase& c : cases) {
        const TimeRange range = resolve(c.value, start);
        EXPECT_TRUE(range.period) << c.value;
        EXPECT_EQ(range.start, c.start) << c.value << ": start off by " << (range.start - c.start) / 3600 << " h";
        EXPECT_EQ(range.end, c.end) << c.value << ": end off by " << (range.end - c.end) / 3600 << " h";
    }
}

}  // namespace

TEST(TimeValues, PeriodsCarryAcrossMonthAndYearEnds)
{
    const ScopedTimeZone zone("UTC");
    const QueryStart newYearsEve{utc(2020, 12, 31, 23, 30), Weekday::Monday};  // a Thursday
    checkPeriods(newYearsEve, {
        {"$time.today", utc(2020, 12, 31), utc(2021, 1, 1)},
        {"$time.today(1)", utc(2021, 1, 1), utc(2021, 1, 2)},
        {"$time.today(-366)", utc(2019, 12, 31), utc(2020, 1, 1)},
        {"$time.yesterday", utc(2020, 12, 30), utc(2020, 12, 31)},
        {"$time.yesterday(2)", utc(2021, 1, 1), utc(2021, 1, 2)},
        {"$time.this_week", utc(2020, 12, 28), utc(2021, 1, 4)},
        {"$time.this_week(1)", utc(2021, 1, 4), utc(2021, 1, 11)},
        {"$time.last_week", utc(2020, 12, 21), utc(2020, 12, 28)},
        {"$time.this_week(-1)", utc(2020, 12, 21), utc(2020, 12, 28)},
        {"$time.this_month", utc(2020, 12, 1), utc(2021, 1, 1)},
        {"$time.this_month(1)", utc(2021, 1, 1), utc(2021, 2, 1)},
        {"$time.this_month(2)", utc(2021, 2, 1), utc(2021, 3, 1)},
        {"$time.this_month(-10)", utc(2020, 2, 1), utc(2020, 3, 1)},
        {"$time.this_month(-12)", utc(2019, 12, 1), utc(2020, 1, 1)},
        {"$time.this_month(-25)", utc(2018, 11, 1), utc(2018, 12, 1)},
        {"$time.this_year", utc(2020, 1, 1), utc(2021, 1, 1)},
        {"$time.this_year(1)", utc(2021, 1, 1), utc(2022, 1, 1)},
        {"$time.this_year(-1)", utc(2019, 1, 1), utc(2020, 1, 1)},
    });
    // The month before March 31 is February, not "February 31".
    const QueryStart endOfMarch{utc(2021, 3, 31, 10), Weekday::Monday};
    checkPeriods(endOfMarch, {
        {"$time.this_month(-1)", utc(2021, 2, 1), utc(2021, 3, 1)},
        {"$time.today(-29)", utc(2021, 3, 2), utc(2021, 3, 3)},
    });
    // Leap day.
    const QueryStart leapDay{utc(2024, 2, 29, 18), Weekday::Monday};
    checkPeriods(leapDay, {
        {"$time.today", utc(2024, 2, 29), utc(2024, 3, 1)},
        {"$time.today(1)", utc(2024, 3, 1), utc(2024, 3, 2)},
        {"$time.this_month", utc(2024, 2, 1), utc(2024, 3, 1)},
    });
}

TEST(TimeValues, WeeksStartOnTheGivenFirstWeekday)
{
    const ScopedTimeZone zone("UTC");
    const double sunday = utc(2021, 1, 3, 12);
    checkPeriods({sunday, Weekday::Monday}, {
        {"$time.this_week", utc(2020, 12, 28), utc(2021, 1, 4)},
        {"$time.last_week", utc(2020, 12, 21), utc(2020, 12, 28)},
    });
    checkPeriods({sunday, Weekday::Sunday}, {
        {"$time.this_week", utc(2021, 1, 3), utc(2021, 1, 10)},
        {"$time.last_week", utc(2020, 12, 27), utc(2021, 1, 3)},
        {"$time.this_week(-2)", utc(2020, 12, 20), utc(2020, 12, 27)},
    });
    checkPeriods({sunday, Weekday::Saturday}, {
        {"$time.this_week", utc(2021, 1, 2), utc(2021, 1, 9)},
    });
    // On the first weekday itself the week starts that day.
    checkPeriods({utc(2021, 1, 4, 0, 1), Weekday::Monday}, {
        {"$time.this_week", utc(2021, 1, 4), utc(2021, 1, 11)},
    });
}

TEST(TimeValues, DaysFollowLocalTimeThroughDaylightSavingChanges)
{
    const ScopedTimeZone zone("America/New_York");
    // Sunday 2021-03-14, 11:00 EDT: the clocks went from 02:00 to 03:00, so
    // the day has 23 hours.
    const QueryStart springForward{1615734000 - kReferenceDateUnixSeconds, Weekday::Monday};
    checkPeriods(springForward, {
        {"$time.today", utc(2021, 3, 14, 5), utc(2021, 3, 15, 4)},
        {"$time.yesterday", utc(2021, 3, 13, 5), utc(2021, 3, 14, 5)},
        {"$time.today(1)", utc(2021, 3, 15, 4), utc(2021, 3, 16, 4)},
        {"$time.this_week", utc(2021, 3, 8, 5), utc(2021, 3, 15, 4)},
        {"$time.this_month", utc(2021, 3, 1, 5), utc(2021, 4, 1, 4)},
        {"$time.this_year", utc(2021, 1, 1, 5), utc(2022, 1, 1, 5)},
    });
    const TimeRange hourAgo = resolve("$time.now(-1h)", springForward);
    EXPECT_FALSE(hourAgo.period);
    EXPECT_EQ(hourAgo.start, utc(2021, 3, 14, 14));
    // Sunday 2021-11-07: 01:00 to 02:00 came twice; the day has 25 hours.
    const QueryStart fallBack{utc(2021, 11, 7, 15), Weekday::Sunday};
    checkPeriods(fallBack, {
        {"$time.today", utc(2021, 11, 7, 4), utc(2021, 11, 8, 5)},
        {"$time.this_week", utc(2021, 11, 7, 4), utc(2021, 11, 14, 5)},
    });
    // Through the evaluator: the 23-hour day's last second is still today.
    const auto query = parseQuery("kMDItemFSContentChangeDate == '$time.today'");
    ASSERT_TRUE(query.ok());
    const Evaluator today(query.value(), springForward);
    const auto at = [](double seconds) { return MemoryItem{{"kMDItemFSContentChangeDate", Date{seconds}}}; };
    EXPECT_TRUE(today.matches(at(utc(2021, 3, 15, 4) - 1)));
    EXPECT_FALSE(today.matches(at(utc(2021, 3, 15, 4))));
    EXPECT_TRUE(today.matches(at(utc(2021, 3, 14, 5))));
    EXPECT_FALSE(today.matches(at(utc(2021, 3, 14, 5) - 1)));
}

TEST(TimeValues, ADayWhoseMidnightIsSkippedStartsWhenTheClocksGoForward)
{
    // Chile moved its clocks from 2021-09-05 00:00 straight to 01:00.
    const ScopedTimeZone zone("America/Santiago");
    checkPeriods({utc(2021, 9, 5, 12), Weekday::Monday}, {
        {"$time.today", utc(2021, 9, 5, 4), utc(2021, 9, 6, 3)},
        {"$time.yesterday", utc(2021, 9, 4, 4), utc(2021, 9, 5, 4)},
    });
}

TEST(TimeValues, LocalDatesComeFromTheLocalCalendar)
{
    // 2021-06-14T20:00Z is already June 15 in Tokyo.
    const ScopedTimeZone zone("Asia/Tokyo");
    checkPeriods({utc(2021, 6, 14, 20), Weekday::Monday}, {
        {"$time.today", utc(2021, 6, 14, 15), utc(2021, 6, 15, 15)},
        {"$time.this_week", utc(2021, 6, 13, 15), utc(2021, 6, 20, 15)},
    });
}

TEST(TimeValues, AreFixedWhenTheEvaluatorIsBuilt)
{
    const auto query = parseQuery("kMDItemFSContentChangeDate == $time.today");
    ASSERT_TRUE(query.ok());
    const MemoryItem newYorkMidnight{{"kMDItemFSContentChangeDate", Date{utc(2021, 3, 14, 5)}}};
    std::optional<Evaluator> evaluator;
    {
        const ScopedTimeZone zone("America/New_York");
        evaluator.emplace(query.value(), QueryStart{utc(2021, 3, 14, 15), Weekday::Monday});
    }
    {
        const ScopedTimeZone zone("Asia/Tokyo");
        EXPECT_TRUE(evaluator->matches(newYorkMidnight));
    }
    // A query started a day later has another today.
    const ScopedTimeZone zone("America/New_York");
    const Evaluator nextDay(query.value(), QueryStart{utc(2021, 3, 15, 15), Weekday::Monday});
    EXPECT_FALSE(nextDay.matches(newYorkMidnight));
}

TEST(TimeValues, NowAndIsoAreInstants)
{
    const ScopedTimeZone zone("America/New_York");
    const QueryStart start{utc(2021, 6, 15, 12), Weekday::Monday};
    const struct {
        const char* value;
        double instant;
    } cases[] = {
        {"$time.now", utc(2021, 6, 15, 12)},
        {"'$time.now(-0)'", utc(2021, 6, 15, 12)},
        {"$time.now(-7200)", utc(2021, 6, 15, 10)},
        {"$time.now(-2h)", utc(2021, 6, 15, 10)},
        {"$time.now(90m)", utc(2021, 6, 15, 13, 30)},
        {"$time.now(-1w)", utc(2021, 6, 8, 12)},
        {"$time.iso(2018-10-01T10:00:00Z)", utc(2018, 10, 1, 10)},
        {"$time.iso(2018-10-01T12:00:00+02:00)", utc(2018, 10, 1, 10)},
        {"$time.iso(2018-10-01T05:30-0430)", utc(2018, 10, 1, 10)},
        {"$time.iso(2014-12-10T09:00:00)", utc(2014, 12, 10, 14)},
        {"'$time.iso(2025-03-01)'", utc(2025, 3, 1, 5)},
        {"$time.iso(\"2025-03-01\")", utc(2025, 3, 1, 5)},
        // Local times that a daylight-saving change makes ambiguous are their
        // first occurrence; skipped ones land as far after the gap.
        {"$time.iso(2021-11-07T01:30:00)", 1636263000 - kReferenceDateUnixSeconds},
        {"$time.iso(2021-03-14T02:30:00)", 1615707000 - kReferenceDateUnixSeconds},
    };
    for (const auto& c : cases) {
        const TimeRange range = resolve(c.value, start);
        EXPECT_FALSE(range.period) << c.value;
        EXPECT_EQ(range.start, c.instant) << c.value << ": off by " << range.start - c.instant << " s";
    }
    const auto withFraction = parseIsoDateTime("2009-06-15T10:00:00.250Z");
    ASSERT_TRUE(withFraction.has_value());
    EXPECT_DOUBLE_EQ(isoToReference(*withFraction), utc(2009, 6, 15, 10) + 0.25);
}

TEST(IsoDates, AcceptOnlyRealDatesInTheDocumentedForms)
{
    for (const char* good : {"2025-03-01", "2014-12-10T09:00:00", "2018-10-01T10:00:00Z", "2018-10-01t10:00z",
                             "2018-10-01 10:00", "2024-02-29", "2018-10-01T10:00:00.5+05:30",
                             "2018-10-01T10:00:00-08", "2000-02-29T23:59:59"}) {
        EXPECT_TRUE(parseIsoDateTime(good).has_value()) << good;
    }
    for (const char* bad : {"", "2021-02-29", "2100-02-29", "2024-02-30", "2021-13-01", "2021-00-10", "2021-04-31",
                            "2021-6-1", "21-06-01", "2021-06-01T24:00", "2021-06-01T10:60", "2021-06-01T10:00:60",
                            "2021-06-01T", "2021-06-01T10", "2021-06-01T10:00:00.", "2021-06-01T10:00+25:00",
                            "2021-06-01T10:00+05:75", "2021-06-01Z", "2021-06-01T10:00:00 Z", "2021-06-01x",
                            "15.06.2009", "June 1, 2021"}) {
        EXPECT_FALSE(parseIsoDateTime(bad).has_value()) << bad;
    }
}

TEST(Calendar, CivilDayArithmeticAgreesWithTheCLibrary)
{
    for (std::int64_t days = -800000; days <= 800000; days += 997) {
        const CivilDate date = civilFromDays(days);
        EXPECT_EQ(daysFromCivil(date), days);
        std::tm tm{};
        tm.tm_year = date.year - 1900;
        tm.tm_mon = date.month - 1;
        tm.tm_mday = date.day;
        EXPECT_EQ(static_cast<std::int64_t>(timegm(&tm)), days * 86400) << date.year << "-" << date.month;
        EXPECT_EQ(static_cast<int>(weekdayOf(date)), tm.tm_wday) << date.year << "-" << date.month;
    }
    EXPECT_EQ(weekdayOf({2021, 1, 3}), Weekday::Sunday);
    EXPECT_EQ(weekdayOf({1970, 1, 1}), Weekday::Thursday);
    EXPECT_EQ(addDays({2020, 2, 28}, 1), (CivilDate{2020, 2, 29}));
    EXPECT_EQ(addDays({2021, 1, 1}, -1), (CivilDate{2020, 12, 31}));
    EXPECT_EQ(firstOfMonth({2021, 3, 31}, -13), (CivilDate{2020, 2, 1}));
    EXPECT_EQ(firstOfMonth({2021, 11, 30}, 2), (CivilDate{2022, 1, 1}));
    EXPECT_EQ(daysInMonth(2024, 2), 29);
    EXPECT_EQ(daysInMonth(1900, 2), 28);
    EXPECT_EQ(daysInMonth(2000, 2), 29);
    EXPECT_EQ(daysInMonth(2021, 12), 31);
}

TEST(Calendar, FirstWeekdayFallsBackToMondayWithoutACulturalLocale)
{
    {
        const ScopedEnv all("LC_ALL", "C");
        EXPECT_EQ(localeFirstWeekday(), Weekday::Monday);
    }
    {
        const ScopedEnv all("LC_ALL", nullptr);
        const ScopedEnv time("LC_TIME", "POSIX");
        EXPECT_EQ(localeFirstWeekday(), Weekday::Monday);
    }
    {
        // A locale that is not installed falls back to Monday too.
        const ScopedEnv all("LC_ALL", "xx_NOWHERE.UTF-8");
        EXPECT_EQ(localeFirstWeekday(), Weekday::Monday);
    }
}

// Needs real locales; set LOCPATH to a folder of compiled ones to run it
// where none are installed.
TEST(Calendar, FirstWeekdayOfInstalledLocales)
{
    const std::pair<const char*, Weekday> locales[] = {
        {"en_US.UTF-8", Weekday::Sunday},
        {"de_DE.UTF-8", Weekday::Monday},
        {"ar_EG.UTF-8", Weekday::Saturday},
    };
    int tested = 0;
    for (const auto& [name, expected] : locales) {
        locale_t locale = newlocale(LC_TIME_MASK, name, static_cast<locale_t>(nullptr));
        if (!locale) {
            continue;  // not installed here
        }
        freelocale(locale);
        const ScopedEnv all("LC_ALL", nullptr);
        const ScopedEnv time("LC_TIME", name);
        EXPECT_EQ(localeFirstWeekday(), expected) << name;
        ++tested;
    }
    if (tested == 0) {
        GTEST_SKIP() << "no en_US, de_DE or ar_EG locale installed";
    }
}
