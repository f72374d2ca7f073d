#include "index/query/number_text.h"

#include "index/query/ascii.h"

#include <charconv>
#include <cmath>
#include <string>

namespace trovara::index::query {

std::size_t scanNumber(std::string_view text)
{
    std::size_t i = 0;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        ++i;
    }
    std::size_t digits = 0;
    while (i < text.size() && ascii::isDigit(text[i])) {
        ++i;
        ++digits;
    }
    if (i < text.size() && text[i] == '.') {
        ++i;
        while (i < text.size() && ascii::isDigit(text[i])) {
            ++i;
            ++digits;
        }
    }
    if (digits == 0) {
        return 0;
    }
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t j = i + 1;
        if (j < text.size() && (text[j] == '+' || text[j] == '-')) {
            ++j;
        }
        if (j < text.size() && ascii::isDigit(text[j])) {
            while (j < text.size() && ascii::isDigit(text[j])) {
                ++j;
            }
            i = j;
        }
    }
    return i;
}

std::optional<double> parseNumber(std::string_view text)
{
    while (!text.empty() && ascii::isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && ascii::isBlank(text.back())) {
        text.remove_suffix(1);
    }
    const std::size_t length = scanNumber(text);
    if (length == 0 || length != text.size()) {
        return std::nullopt;
    }
    bool negative = false;
    if (text.front() == '+' || text.front() == '-') {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

}  // namespace trovara::index::query
