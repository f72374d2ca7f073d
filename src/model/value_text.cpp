#include "model/value_text.h"

#include "common/variant_kind.h"

#include <QDateTime>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>

namespace trovara::model {

bool isNumber(const QVariant& value)
{
    return isNumericVariant(value);
}

bool isText(const QVariant& value)
{
    return value.metaType().id() == QMetaType::QString;
}

bool isDate(const QVariant& value)
{
    return value.metaType().id() == QMetaType::QDateTime;
}

namespace {

QString toCharsText(double value, std::chars_format format, int precision)
{
    if (std::isnan(value)) {
        return QStringLiteral("nan");
    }
    if (std::isinf(value)) {
        return value < 0 ? QStringLiteral("-inf") : QStringLiteral("inf");
    }
    char buffer[400];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, format, precision);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

}  // namespace

QString formatFixed(double value, int precision)
{
    return toCharsText(value, std::chars_format::fixed, precision);
}

QString formatGeneral(double value, int precision)
{
    return toCharsText(value, std::chars_format::general, precision);
}

QString descriptionOf(const QVariant& value)
{
    if (!value.isValid() || value.isNull()) {
        return QStringLiteral("(null)");
    }
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Double:
        return formatGeneral(value.toDouble(), 16);
    case QMetaType::Float:
        return formatGeneral(static_cast<double>(value.toFloat()), 7);
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    default:
        return value.toString();
    }
}

std::int64_t integerValueOf(const QVariant& value)
{
    if (isText(value)) {
        const QString text = value.toString();
        int i = 0;
        while (i < text.size() && text.at(i).isSpace()) {
            ++i;
        }
        bool negative = false;
        if (i < text.size() && (text.at(i) == QLatin1Char('-') || text.at(i) == QLatin1Char('+'))) {
            negative = text.at(i) == QLatin1Char('-');
            ++i;
        }
        std::int64_t result = 0;
        for (; i < text.size() && text.at(i) >= QLatin1Char('0') && text.at(i) <= QLatin1Char('9'); ++i) {
            result = result * 10 + (text.at(i).unicode() - '0');
            if (result > static_cast<std::int64_t>(INT_MAX) + 1) {
                result = static_cast<std::int64_t>(INT_MAX) + 1;
            }
        }
        result = negative ? -result : result;
        return std::clamp<std::int64_t>(result, INT_MIN, INT_MAX);
    }
    if (!isNumber(value)) {
        return 0;
    }
    const int id = value.metaType().id();
    if (id == QMetaType::Double || id == QMetaType::Float) {
        const double d = value.toDouble();
        if (std::isnan(d)) {
            return 0;
        }
        if (d >= 9.2e18) {
            return INT64_MAX;
        }
        if (d <= -9.2e18) {
            return INT64_MIN;
        }
        return static_cast<std::int64_t>(d);
    }
    return value.toLongLong();
}

double doubleValueOf(const QVariant& value)
{
    if (value.metaType().id() == QMetaType::Float) {
        return static_cast<double>(value.toFloat());
    }
    return isNumber(value) ? value.toDouble() : 0.0;
}

}  // namespace trovara::model
