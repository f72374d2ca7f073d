#include "index/fs/recently_used.h"

#include "index/fs/mounts.h"

#include <QByteArray>
#include <QFile>
#include <QXmlStreamReader>

#include <cstdlib>

namespace trovara::index {

namespace {

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day)
{
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

unsigned daysInMonth(std::int64_t year, unsigned month)
{
    static constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

// Reads exactly `count` digits at `at`.
bool digits(std::string_view text, std::size_t& at, std::size_t count, unsigned& value)
{
    if (at + count > text.size()) {
        return false;
    }
    value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const char c = text[at + i];
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    at += count;
    return true;
}

bool expect(std::string_view text, std::size_t& at, char c)
{
    if (at < text.size() && text[at] == c) {
        ++at;
        return true;
    }
    return false;
}

// The local path a "file://" URL names, or empty when it names none on this
// machine.
std::string localPath(std::string_view url)
{
    constexpr std::string_view kScheme = "file://";
    if (url.size() < kScheme.size() || QByteArray(url.data(), qsizetype(kScheme.size())).toLower() != "file://") {
        return {};
    }
    url.remove_prefix(kScheme.size());
    const std::size_t slash = url.find('/');
    if (slash == std::string_view::npos) {
        return {};
    }
    const std::string_view host = url.substr(0, slash);
    if (!host.empty() && host != "localhost") {
        return {};
    }
    url.remove_prefix(slash);
    url = url.substr(0, url.find_first_of("?#"));
    const QByteArray decoded = QByteArray::fromPercentEncoding(QByteArray(url.data(), qsizetype(url.size())));
    if (decoded.isEmpty() || decoded.front() != '/' || decoded.contains('\0')) {
        return {};
    }
    return decoded.toStdString();
}

}  // namespace

std::optional<Nanoseconds> parseIsoTime(std::string_view text)
{
    std::size_t at = 0;
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    if (!digits(text, at, 4, year) || !expect(text, at, '-') || !digits(text, at, 2, month) || !expect(text, at, '-')
        || !digits(text, at, 2, day) || !(expect(text, at, 'T') || expect(text, at, 't') || expect(text, at, ' '))
        || !digits(text, at, 2, hour) || !expect(text, at, ':') || !digits(text, at, 2, minute)
        || !expect(text, at, ':') || !digits(text, at, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 || minute > 59
        || second > 60) {
        return std::nullopt;
    }
    std::int64_t fraction = 0;
    if (expect(text, at, '.') || expect(text, at, ',')) {
        std::int64_t scale = 100'000'000;
        const std::size_t start = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            fraction += (text[at] - '0') * scale;
            scale /= 10;
            ++at;
        }
        if (at == start) {
            return std::nullopt;
        }
    }
    std::int64_t offsetSeconds = 0;
    if (expect(text, at, 'Z') || expect(text, at, 'z')) {
        // UTC
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        const int sign = text[at] == '-' ? -1 : 1;
        ++at;
        unsigned offsetHours = 0;
        unsigned offsetMinutes = 0;
        if (!digits(text, at, 2, offsetHours)) {
            return std::nullopt;
        }
        expect(text, at, ':');
        if (at < text.size() && !digits(text, at, 2, offsetMinutes)) {
            return std::nullopt;
        }
        if (offsetHours > 23 || offsetMinutes > 59) {
            return std::nullopt;
        }
        offsetSeconds = sign * static_cast<std::int64_t>(offsetHours * 3600 + offsetMinutes * 60);
    }
    if (at != text.size()) {
        return std::nullopt;
    }
    const std::int64_t seconds = daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second
                                 - offsetSeconds;
    return seconds * 1'000'000'000 + fraction;
}

std::string RecentlyUsed::defaultPath()
{
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] == '/') {
        return std::string(dataHome) + "/recently-used.xbel";
    }
    return homeFolder() + "/.local/share/recently-used.xbel";
}

Expected<RecentlyUsed> RecentlyUsed::parse(std::string_view xml)
{
    RecentlyUsed list;
    QXmlStreamReader reader(QByteArray(xml.data(), qsizetype(xml.size())));
    if (!reader.readNextStartElement()) {
        return Failure{Failure::Kind::Corrupt, "The recently-used list is empty or not XML."};
    }
    if (reader.name() != QLatin1String("xbel")) {
        return Failure{Failure::Kind::Corrupt, "The recently-used list is not an XBEL document (its root element is <"
                                                   + reader.name().toString().toStdString() + ">)."};
    }
    while (!reader.atEnd()) {
        reader.readNext();
        if (!reader.isStartElement() || reader.name() != QLatin1String("bookmark")) {
            continue;
        }
        const auto attributes = reader.attributes();
        const std::string path = localPath(attributes.value(QLatin1String("href")).toString().toStdString());
        const auto visited = parseIsoTime(attributes.value(QLatin1String("visited")).toString().toStdString());
        if (path.empty() || !visited || *visited <= 0) {
            continue;
        }
        auto [it, inserted] = list.m_visits.emplace(path, *visited);
        if (!inserted && it->second < *visited) {
            it->second = *visited;
        }
    }
    if (reader.hasError()) {
        return Failure{Failure::Kind::Corrupt, "The recently-used list is damaged at line "
                                                   + std::to_string(reader.lineNumber()) + ", column "
                                                   + std::to_string(reader.columnNumber()) + ": "
                                                   + reader.errorString().toStdString()};
    }
    return list;
}

Expected<RecentlyUsed> RecentlyUsed::read(const std::string& path)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        return Failure{Failure::Kind::Io,
                       "Cannot read the recently-used list " + path + ": " + file.errorString().toStdString()};
    }
    const QByteArray text = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return Failure{Failure::Kind::Io,
                       "Cannot read the recently-used list " + path + ": " + file.errorString().toStdString()};
    }
    auto list = parse(std::string_view(text.constData(), std::size_t(text.size())));
    if (!list) {
        return Failure{list.error().kind, path + ": " + list.error().message};
    }
    return list;
}

RecentlyUsed RecentlyUsed::load()
{
    auto list = read(defaultPath());
    return list ? std::move(list).value() : RecentlyUsed();
}

std::optional<Nanoseconds> RecentlyUsed::visited(const std::string& path) const
{
    const auto it = m_visits.find(path);
    if (it == m_visits.end()) {
        return std::nullopt;
    }
    return it->second;
}

std::optional<Nanoseconds> RecentlyUsed::lastUsedDate(const std::string& path, const FileInfo& info) const
{
    if (auto visit = visited(path)) {
        return visit;
    }
    if (info.accessed > info.modified) {
        return info.accessed;
    }
    return std::nullopt;
}

}  // namespace trovara::index
