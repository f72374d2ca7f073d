#include "index/query/typed_value.h"

#include "index/query/ascii.h"
#include "index/query/number_text.h"
#include "index/query/time_value.h"

namespace trovara::index::query {

namespace {

std::optional<double> booleanWord(std::string_view text)
{
    if (ascii::equalsIgnoringCase(text, "true") || ascii::equalsIgnoringCase(text, "yes")) {
        return 1.0;
    }
    if (ascii::equalsIgnoringCase(text, "false") || ascii::equalsIgnoringCase(text, "no")) {
        return 0.0;
    }
    return std::nullopt;
}

}  // namespace

std::optional<double> textAsNumber(std::string_view text, ValueType type)
{
    if (const auto number = parseNumber(text)) {
        return number;
    }
    if (type == ValueType::Date) {
        if (const auto iso = parseIsoDateTime(text)) {
            return isoToReference(*iso);
        }
    }
    if (type == ValueType::Boolean) {
        return booleanWord(text);
    }
    return std::nullopt;
}

std::string valueFormsOf(ValueType type)
{
    switch (type) {
    case ValueType::Number:
        return "a number";
    case ValueType::Date:
        return "a date (seconds since 2001-01-01, an ISO 8601 date or a $time value)";
    case ValueType::Boolean:
        return "a Boolean (1, 0, true or false)";
    case ValueType::String:
        break;
    }
    return "a text";
}

}  // namespace trovara::index::query
