#include "presentation/date_formatter.h"

#include "model/value_text.h"

#include <QLocale>
#include <QTimeZone>

namespace trovara::presentation {

namespace {

QLocale::FormatType formatType(DateStyle style)
{
    return style == DateStyle::Long ? QLocale::LongFormat : QLocale::ShortFormat;
}

const QString kGmtPattern = QStringLiteral("yyyy-MM-dd' 'HH:mm:ss'Z'");

}  // namespace

DateFormatter::DateFormatter(DateStyle dateStyle, DateStyle timeStyle)
    : m_dateStyle(dateStyle)
    , m_timeStyle(timeStyle)
{
}

QString DateFormatter::stringFromDate(const QDateTime& date) const
{
    const QLocale locale;
    const QDateTime local = date.toLocalTime();
    if (m_dateStyle == DateStyle::None && m_timeStyle == DateStyle::None) {
        return {};
    }
    if (m_timeStyle == DateStyle::None) {
        return locale.toString(local.date(), formatType(m_dateStyle));
    }
    if (m_dateStyle == DateStyle::None) {
        return locale.toString(local.time(), formatType(m_timeStyle));
    }
    if (m_dateStyle == m_timeStyle) {
        return locale.toString(local, formatType(m_dateStyle));
    }
    return locale.toString(local.date(), formatType(m_dateStyle)) + QLatin1Char(' ')
           + locale.toString(local.time(), formatType(m_timeStyle));
}

QString DateFormatter::stringForObjectValue(const QVariant& value) const
{
    if (!model::isDate(value)) {
        return {};
    }
    const QDateTime date = value.toDateTime();
    return date.isValid() ? stringFromDate(date) : QString();
}

QString GmtDateFormatter::stringFromDate(const QDateTime& date) const
{
    return QLocale::c().toString(date.toUTC(), kGmtPattern);
}

QDateTime GmtDateFormatter::dateFromString(const QString& text) const
{
    QDateTime date = QLocale::c().toDateTime(text, kGmtPattern);
    if (!date.isValid()) {
        return {};
    }
    date.setTimeZone(QTimeZone::utc());
    return date;
}

QString GmtDateFormatter::stringForObjectValue(const QVariant& value) const
{
    if (!model::isDate(value)) {
        return {};
    }
    return stringFromDate(value.toDateTime());
}

const GmtDateFormatter& gmtDateFormatter()
{
    static const GmtDateFormatter formatter;
    return formatter;
}

}  // namespace trovara::presentation
