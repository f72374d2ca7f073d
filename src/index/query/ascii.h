// ASCII helpers for reading query text, independent of the C locale.
// Internal to the query code.
#pragma once

#include <cstddef>
#include <string_view>

namespace trovara::index::query::ascii {

inline char toLower(char ch)
{
    return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
}

inline bool isBlank(char ch)
{
    return ch == ' ' || ch == '\t' || ch == '\n' || ch == '\r' || ch == '\f' || ch == '\v';
}

inline bool isDigit(char ch)
{
    return ch >= '0' && ch <= '9';
}

inline bool isLetter(char ch)
{
    return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

inline bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (toLower(a[i]) != toLower(b[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace trovara::index::query::ascii
