// What kind of value a QVariant holds, as Trovara's values are told apart:
// numbers (Booleans included) compare with numbers, never with texts.
#pragma once

#include <QVariant>

namespace trovara {

// A Boolean, an integer of any width, or a floating-point number.
inline bool isNumericVariant(const QVariant& value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

inline bool isFloatingVariant(const QVariant& value)
{
    return value.metaType().id() == QMetaType::Double || value.metaType().id() == QMetaType::Float;
}

}  // namespace trovara
