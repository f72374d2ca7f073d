#include "presentation/number_formatter.h"

#include "model/value_text.h"

#include <QLocale>

#include <cmath>

namespace trovara::presentation {

namespace {

QLocale patternLocale()
{
    QLocale locale;
    locale.setNumberOptions(QLocale::OmitGroupSeparator | QLocale::RejectGroupSeparator);
    return locale;
}

}  // namespace

NumberFormatter::NumberFormatter(QString pattern)
    : m_pattern(std::move(pattern))
{
    const QString positive = m_pattern.section(QLatin1Char(';'), 0, 0);
    const qsizetype point = positive.indexOf(QLatin1Char('.'));
    m_fractionDigits = point < 0 ? 0 : static_cast<int>(positive.size() - point - 1);
}

QString NumberFormatter::stringFromNumber(double number) const
{
    const QLocale locale = patternLocale();
    if (std::isnan(number)) {
        return locale.toString(number);
    }
    const QString digits = locale.toString(std::fabs(number), 'f', m_fractionDigits);
    return number < 0 ? locale.negativeSign() + digits : digits;
}

std::optional<double> NumberFormatter::numberFromString(const QString& text) const
{
    bool ok = false;
    const double number = patternLocale().toDouble(text.trimmed(), &ok);
    return ok ? std::optional<double>(number) : std::nullopt;
}

QString NumberFormatter::stringForObjectValue(const QVariant& value) const
{
    if (!model::isNumber(value)) {
        return {};
    }
    return stringFromNumber(model::doubleValueOf(value));
}

}  // namespace trovara::presentation
