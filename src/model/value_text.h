// How stored values turn into query text: the textual form of a value, its
// integer value and its floating-point value, with the conventions the
// query text has always been written with.
//
//  - A string is itself; a Boolean is "1" or "0"; an integer is its decimal
//    digits; a double is written with up to 16 significant digits ("%.16g"),
//    a single-precision number with up to 7 ("%.7g", so -6.31139e+10); a date
//    is "YYYY-MM-DD HH:MM:SS +0000"; no value is "(null)".
//  - Numbers are always written with a full stop, whatever the user's
//    locale.
#pragma once

#include <QString>
#include <QVariant>

#include <cstdint>

namespace trovara::model {

bool isNumber(const QVariant& value);
bool isText(const QVariant& value);
bool isDate(const QVariant& value);

// The value's own textual form, as described above.
QString descriptionOf(const QVariant& value);

// The value's integer value: a number truncated toward zero; a text read as
// a leading decimal integer (leading blanks and a sign allowed, 0 when there
// is none, clamped to the 32-bit range).
std::int64_t integerValueOf(const QVariant& value);

// The value's floating-point value (0 for anything that is not a number).
double doubleValueOf(const QVariant& value);

// printf-style "%.*f" and "%.*g" in the C locale, rounding exact halves to
// even as printf does.
QString formatFixed(double value, int precision);
QString formatGeneral(double value, int precision);

}  // namespace trovara::model
