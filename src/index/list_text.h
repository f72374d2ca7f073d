// Lists of texts kept as one text: the elements joined with the unit
// separator U+001F, which names, tags and addresses never contain. The
// database and the catalogue store tags and origins this way.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

inline constexpr char kListSeparator = '\x1f';

// The text without the white space around it.
inline std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view kSpace = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

inline std::string joinList(const std::vector<std::string>& list, char separator = kListSeparator)
{
    std::string joined;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i) {
            joined += separator;
        }
        joined += list[i];
    }
    return joined;
}

// The elements, as views into `text`; an empty text is one empty element.
inline std::vector<std::string_view> splitListViews(std::string_view text, char separator = kListSeparator)
{
    std::vector<std::string_view> list;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = text.find(separator, start);
        list.push_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) {
            return list;
        }
        start = end + 1;
    }
}

inline std::vector<std::string> splitList(std::string_view text, char separator = kListSeparator)
{
    std::vector<std::string> list;
    for (std::string_view element : splitListViews(text, separator)) {
        list.emplace_back(element);
    }
    return list;
}

}  // namespace trovara::index
