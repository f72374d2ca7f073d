// The texts file operations show, translated in one context.
#pragma once

#include <QCoreApplication>
#include <QString>

namespace trovara::fileops {

inline QString localized(const char* text)
{
    return QCoreApplication::translate("FileOperations", text);
}

}  // namespace trovara::fileops
