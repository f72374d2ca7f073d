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

namespace {

// Whether a number whose digits and exponent are in `text` (no sign) is too
// small rather than too large for a double: its first significant digit
// stands behind the decimal point once the exponent is applied.
bool underflows(std::string_view text)
{
    long long leading = 0;  // the decimal exponent of the first significant digit, plus one
    bool seenPoint = false;
    bool seenDigit = false;
    std::size_t i = 0;
    for (; i < text.size() && text[i] != 'e' && text[i] != 'E'; ++i) {
        if (text[i] == '.') {
            seenPoint = true;
        } else if (!seenDigit && text[i] == '0') {
            leading -= seenPoint ? 1 : 0;
        } else if (!seenDigit) {
            seenDigit = true;
            leading += seenPoint ? 0 : 1;
        } else if (!seenPoint) {
            ++leading;
        }
    }
    long long exponent = 0;
    bool negative = false;
    for (++i; i < text.size(); ++i) {
        if (text[i] == '-') {
            negative = true;
        } else if (ascii::isDigit(text[i]) && exponent < 1000000000) {
            exponent = exponent * 10 + (text[i] - '0');
        }
    }
    return leading + (negative ? -exponent : exponent) <= 0;
}

}  // namespace

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
    if (result.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    if (result.ec == std::errc::result_out_of_range && underflows(text)) {
        value = 0;  // 1e-400 is as near nothing as a double can tell
    } else if (result.ec != std::errc() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

}  // namespace trovara::index::query
