// Dates as text: in the user's locale and local time zone with a date and a
// time style, or in the one machine-readable form Trovara writes
// (gmtDateFormatter(): "2009-03-01 14:05:00Z", always UTC, never localised).
//
// Stateless after construction; shared.
#pragma once

#include "model/formatter.h"

#include <QDateTime>

namespace trovara::presentation {

enum class DateStyle { None, Short, Long };

class DateFormatter : public model::Formatter {
public:
    DateFormatter(DateStyle dateStyle, DateStyle timeStyle);

    DateStyle dateStyle() const { return m_dateStyle; }
    DateStyle timeStyle() const { return m_timeStyle; }

    QString stringFromDate(const QDateTime& date) const;
    // A date has its text; anything else has none.
    QString stringForObjectValue(const QVariant& value) const override;

private:
    DateStyle m_dateStyle;
    DateStyle m_timeStyle;
};

// The fixed pattern "yyyy-MM-dd' 'HH:mm:ss'Z'" in UTC, both ways.
class GmtDateFormatter final : public model::Formatter {
public:
    QString stringFromDate(const QDateTime& date) const;
    // An invalid date when the text is not in the pattern.
    QDateTime dateFromString(const QString& text) const;
    QString stringForObjectValue(const QVariant& value) const override;
};

// The shared GMT formatter, made on first use and kept.
const GmtDateFormatter& gmtDateFormatter();

}  // namespace trovara::presentation
