// A formatter turns a metadata value into display text (result columns,
// the inspector). The formatters themselves belong to the presentation
// layer; the query model only holds them.
#pragma once

#include <QString>
#include <QVariant>

namespace trovara::model {

class Formatter {
public:
    virtual ~Formatter() = default;
    // A null string when the value has no text.
    virtual QString stringForObjectValue(const QVariant& value) const = 0;
};

}  // namespace trovara::model
