// A JSON reader that remembers where every value stands (line and column)
// and whether a number was written as an integer, for input formats whose
// errors must point at the offending place.
#pragma once

#include "common/error.h"

#include <QByteArray>
#include <QString>

#include <utility>
#include <vector>

namespace trovara::json {

struct Value {
    enum class Type { Null, Boolean, Number, String, Array, Object };

    Type type = Type::Null;
    bool boolean = false;
    double number = 0;
    // Set when the number was written without fraction or exponent and fits
    // 64 bits; `integer` then holds it exactly.
    bool isInteger = false;
    qint64 integer = 0;
    QString string;
    std::vector<Value> array;
    std::vector<std::pair<QString, Value>> object;  // in the order written
    int line = 1;
    int column = 1;

    // The member with the key, or nullptr.
    const Value* member(const QString& key) const;
    // "null", "a Boolean", "a number", "a text", "a list", "an object".
    QString typeName() const;
};

// Parses a whole document (one value, surrounded by white space only). The
// error's reason reads "line L, column C: what was expected".
Result<Value> parse(const QByteArray& text);

}  // namespace trovara::json
