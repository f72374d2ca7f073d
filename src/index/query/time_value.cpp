#include "index/query/time_value.h"

#include "index/query/ascii.h"
#include "index/query/number_text.h"

#include <array>
#include <cmath>

namespace trovara::index::query {

namespace {

constexpr std::string_view kPrefix = "$time.";
// Period counts beyond this name no useful date and would overflow the
// calendar's year.
constexpr double kMaxPeriodCount = 1000000;

struct FunctionName {
    std::string_view name;
    TimeFunction function;
    char unit;  // the period's own unit letter; 0 for now and iso
    const char* unitWord;
};

constexpr std::array<FunctionName, 8> kFunctions{{
    {"now", TimeFunction::Now, 0, "seconds"},
    {"today", TimeFunction::Today, 'd', "days"},
    {"yesterday", TimeFunction::Yesterday, 'd', "days"},
    {"this_week", TimeFunction::ThisWeek, 'w', "weeks"},
    {"last_week", TimeFunction::LastWeek, 'w', "weeks"},
    {"this_month", TimeFunction::ThisMonth, 'm', "months"},
    {"this_year", TimeFunction::ThisYear, 'y', "years"},
    {"iso", TimeFunction::Iso, 0, ""},
}};

std::size_t skipBlanks(std::string_view text, std::size_t i)
{
    while (i < text.size() && ascii::isBlank(text[i])) {
        ++i;
    }
    return i;
}

// Reads exactly `count` digits at `i`.
std::optional<int> readDigits(std::string_view text, std::size_t& i, std::size_t count)
{
    if (i + count > text.size()) {
        return std::nullopt;
    }
    int value = 0;
    for (std::size_t k = 0; k < count; ++k) {
        if (!ascii::isDigit(text[i + k])) {
            return std::nullopt;
        }
        value = value * 10 + (text[i + k] - '0');
    }
    i += count;
    return value;
}

double secondsPerUnit(char unit)
{
    switch (unit) {
    case 'm':
        return 60;
    case 'h':
        return 3600;
    case 'd':
        return 86400;
    case 'w':
        return 7 * 86400;
    default:
        return 1;
    }
}

Expected<TimeValue, TimeParseError> parseIsoArgument(std::string_view text, std::size_t& i)
{
    const std::size_t open = i;
    if (i >= text.size() || text[i] != '(') {
        return TimeParseError{i, "\"(\" after \"$time.iso\""};
    }
    i = skipBlanks(text, i + 1);
    std::string_view content;
    if (i < text.size() && (text[i] == '\'' || text[i] == '"')) {
        const char quote = text[i];
        const std::size_t end = text.find(quote, i + 1);
        if (end == std::string_view::npos) {
            return TimeParseError{i, std::string("a closing ") + quote + " in \"$time.iso(\""};
        }
        content = text.substr(i + 1, end - i - 1);
        i = skipBlanks(text, end + 1);
        if (i >= text.size() || text[i] != ')') {
            return TimeParseError{i, "\")\" to end \"$time.iso(\""};
        }
    } else {
        const std::size_t end = text.find(')', i);
        if (end == std::string_view::npos) {
            return TimeParseError{text.size(), "\")\" to end the \"$time.iso(\" at offset " + std::to_string(open)};
        }
        content = text.substr(i, end - i);
        while (!content.empty() && ascii::isBlank(content.back())) {
            content.remove_suffix(1);
        }
        i = end;
    }
    const std::size_t contentStart = static_cast<std::size_t>(content.data() - text.data());
    const auto iso = parseIsoDateTime(content);
    if (!iso) {
        return TimeParseError{contentStart,
                              "an ISO 8601 date such as 2025-03-01, 2014-12-10T09:00:00 or 2018-10-01T10:00:00Z"};
    }
    ++i;  // the ")"
    TimeValue value;
    value.function = TimeFunction::Iso;
    value.iso = *iso;
    return value;
}

}  // namespace

bool startsWithTimeValue(std::string_view text)
{
    return text.size() >= kPrefix.size() && ascii::equalsIgnoringCase(text.substr(0, kPrefix.size()), kPrefix);
}

Expected<TimeValue, TimeParseError> parseTimeValue(std::string_view text, std::size_t& consumed)
{
    if (!startsWithTimeValue(text)) {
        return TimeParseError{0, "\"$time.\""};
    }
    std::size_t i = kPrefix.size();
    const std::size_t nameStart = i;
    while (i < text.size() && ((ascii::toLower(text[i]) >= 'a' && ascii::toLower(text[i]) <= 'z') || text[i] == '_')) {
        ++i;
    }
    const std::string_view name = text.substr(nameStart, i - nameStart);
    const FunctionName* function = nullptr;
    for (const FunctionName& candidate : kFunctions) {
        if (ascii::equalsIgnoringCase(name, candidate.name)) {
            function = &candidate;
        }
    }
    if (!function) {
        return TimeParseError{nameStart,
                              "now, today, yesterday, this_week, last_week, this_month, this_year or iso after "
                              "\"$time.\""};
    }
    if (function->function == TimeFunction::Iso) {
        auto value = parseIsoArgument(text, i);
        consumed = i;
        return value;
    }

    TimeValue value;
    value.function = function->function;
    if (i < text.size() && text[i] == '(') {
        i = skipBlanks(text, i + 1);
        if (i < text.size() && text[i] == ')') {
            ++i;
        } else {
            const std::size_t numberStart = i;
            const std::size_t length = scanNumber(text.substr(i));
            const auto number = length ? parseNumber(text.substr(i, length)) : std::nullopt;
            if (!number) {
                return TimeParseError{i, "a number in \"$time." + std::string(function->name) + "(\""};
            }
            i += length;
            char unit = 0;
            if (i < text.size() && ascii::toLower(text[i]) >= 'a' && ascii::toLower(text[i]) <= 'z') {
                unit = text[i];
                const bool allowed = function->unit == 0 ? std::string_view("smhdw").find(unit) != std::string_view::npos
                                                         : unit == function->unit;
                if (!allowed) {
                    return TimeParseError{
                        i, function->unit == 0
                               ? std::string("\")\" or a unit (s, m, h, d or w)")
                               : std::string("\")\" or the unit \"") + function->unit + "\" (" + function->unitWord + ")"};
                }
                ++i;
            }
            i = skipBlanks(text, i);
            if (i >= text.size() || text[i] != ')') {
                return TimeParseError{i, "\")\" to end \"$time." + std::string(function->name) + "(\""};
            }
            ++i;
            if (function->function == TimeFunction::Now) {
                value.amount = *number * secondsPerUnit(unit);
            } else {
                if (*number != std::floor(*number) || std::fabs(*number) > kMaxPeriodCount) {
                    return TimeParseError{numberStart, std::string("a whole number of ") + function->unitWord
                                                           + " from -1000000 to 1000000"};
                }
                value.amount = *number;
            }
        }
    }
    if (value.function == TimeFunction::Yesterday || value.function == TimeFunction::LastWeek) {
        value.amount -= 1;
    }
    consumed = i;
    return value;
}

std::optional<IsoDateTime> parseIsoDateTime(std::string_view text)
{
    IsoDateTime iso;
    std::size_t i = 0;
    const auto year = readDigits(text, i, 4);
    if (!year || i >= text.size() || text[i++] != '-') {
        return std::nullopt;
    }
    const auto month = readDigits(text, i, 2);
    if (!month || i >= text.size() || text[i++] != '-') {
        return std::nullopt;
    }
    const auto day = readDigits(text, i, 2);
    if (!day || *month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month)) {
        return std::nullopt;
    }
    iso.year = *year;
    iso.month = *month;
    iso.day = *day;
    if (i == text.size()) {
        return iso;
    }
    if (text[i] != 'T' && text[i] != 't' && text[i] != ' ') {
        return std::nullopt;
    }
    ++i;
    const auto hour = readDigits(text, i, 2);
    if (!hour || i >= text.size() || text[i++] != ':') {
        return std::nullopt;
    }
    const auto minute = readDigits(text, i, 2);
    if (!minute || *hour > 23 || *minute > 59) {
        return std::nullopt;
    }
    iso.hour = *hour;
    iso.minute = *minute;
    if (i < text.size() && text[i] == ':') {
        ++i;
        const auto second = readDigits(text, i, 2);
        if (!second || *second > 59) {
            return std::nullopt;
        }
        iso.second = *second;
        if (i < text.size() && text[i] == '.') {
            ++i;
            double scale = 0.1;
            const std::size_t start = i;
            while (i < text.size() && ascii::isDigit(text[i])) {
                iso.second += (text[i] - '0') * scale;
                scale /= 10;
                ++i;
            }
            if (i == start) {
                return std::nullopt;
            }
        }
    }
    if (i == text.size()) {
        return iso;
    }
    if ((text[i] == 'Z' || text[i] == 'z') && i + 1 == text.size()) {
        iso.utcOffsetMinutes = 0;
        return iso;
    }
    if (text[i] != '+' && text[i] != '-') {
        return std::nullopt;
    }
    const int sign = text[i] == '-' ? -1 : 1;
    ++i;
    const auto offsetHours = readDigits(text, i, 2);
    if (!offsetHours) {
        return std::nullopt;
    }
    int offsetMinutes = 0;
    if (i < text.size()) {
        if (text[i] == ':') {
            ++i;
        }
        const auto minutes = readDigits(text, i, 2);
        if (!minutes) {
            return std::nullopt;
        }
        offsetMinutes = *minutes;
    }
    if (i != text.size() || *offsetHours > 23 || offsetMinutes > 59) {
        return std::nullopt;
    }
    iso.utcOffsetMinutes = sign * (*offsetHours * 60 + offsetMinutes);
    return iso;
}

double isoToReference(const IsoDateTime& iso)
{
    const CivilDate date{iso.year, iso.month, iso.day};
    if (!iso.utcOffsetMinutes) {
        return localTimeToReference(date, iso.hour, iso.minute, iso.second);
    }
    const double unixSeconds = static_cast<double>(daysFromCivil(date)) * 86400.0 + iso.hour * 3600.0
                               + iso.minute * 60.0 + iso.second - *iso.utcOffsetMinutes * 60.0;
    return unixSeconds - kReferenceDateUnixSeconds;
}

TimeRange resolveTime(const TimeValue& value, const QueryStart& start)
{
    const auto period = [](CivilDate first, CivilDate next) {
        return TimeRange{startOfLocalDay(first), startOfLocalDay(next), true};
    };
    const auto count = static_cast<std::int64_t>(value.amount);
    switch (value.function) {
    case TimeFunction::Now:
        return {start.time + value.amount, start.time + value.amount, false};
    case TimeFunction::Iso: {
        const double instant = isoToReference(value.iso);
        return {instant, instant, false};
    }
    case TimeFunction::Today:
    case TimeFunction::Yesterday: {
        const CivilDate day = addDays(localDateOf(start.time), count);
        return period(day, addDays(day, 1));
    }
    case TimeFunction::ThisWeek:
    case TimeFunction::LastWeek: {
        const CivilDate today = localDateOf(start.time);
        const int sinceWeekStart = (static_cast<int>(weekdayOf(today)) - static_cast<int>(start.firstWeekday) + 7) % 7;
        const CivilDate first = addDays(today, -sinceWeekStart + 7 * count);
        return period(first, addDays(first, 7));
    }
    case TimeFunction::ThisMonth: {
        const CivilDate first = firstOfMonth(localDateOf(start.time), count);
        return period(first, firstOfMonth(first, 1));
    }
    case TimeFunction::ThisYear: {
        const int year = localDateOf(start.time).year + static_cast<int>(count);
        return period({year, 1, 1}, {year + 1, 1, 1});
    }
    }
    return {start.time, start.time, false};
}

}  // namespace trovara::index::query
