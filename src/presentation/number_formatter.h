// Numbers as text in a fixed pattern of the form "0.000;0.000;-0.000"
// (positive; zero; negative): a fixed count of fraction digits, no
// grouping, a minus sign before negatives. The decimal separator and the
// minus sign are the user's locale's, as Qt gives it (QLocale()).
//
// Stateless after construction; shared by every column that uses it.
#pragma once

#include "model/formatter.h"

#include <optional>

namespace trovara::presentation {

class NumberFormatter : public model::Formatter {
public:
    // The pattern's positive part decides the fraction digits ("0" none,
    // "0.0000" four).
    explicit NumberFormatter(QString pattern);

    const QString& pattern() const { return m_pattern; }
    int fractionDigits() const { return m_fractionDigits; }

    QString stringFromNumber(double number) const;
    // The inverse of the pattern: none when the text is not a number in it
    // (group separators are refused, as the pattern has none).
    std::optional<double> numberFromString(const QString& text) const;

    // A number (a Boolean counts as 1 or 0) in the pattern; anything else
    // has no text.
    QString stringForObjectValue(const QVariant& value) const override;

private:
    QString m_pattern;
    int m_fractionDigits = 0;
};

}  // namespace trovara::presentation
