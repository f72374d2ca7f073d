#include "preview/display_lines.h"

#include <algorithm>

namespace trovara::preview {

std::vector<qsizetype> displayLineStarts(QStringView text, qsizetype maxLength)
{
    maxLength = std::max<qsizetype>(maxLength, 2);
    std::vector<qsizetype> starts{0};
    starts.reserve(static_cast<std::size_t>(text.size() / 64) + 1);
    const QChar* const data = text.data();
    const qsizetype size = text.size();
    qsizetype lineStart = 0;
    for (qsizetype i = 0; i < size; ++i) {
        if (data[i] == QLatin1Char('\n')) {
            lineStart = i + 1;
            starts.push_back(lineStart);
        } else if (i + 1 - lineStart >= maxLength && i + 1 < size && data[i + 1] != QLatin1Char('\n')
                   && !data[i + 1].isLowSurrogate()) {
            lineStart = i + 1;
            starts.push_back(lineStart);
        }
    }
    return starts;
}

std::size_t displayLineAt(const std::vector<qsizetype>& starts, qsizetype position)
{
    const auto after = std::upper_bound(starts.begin(), starts.end(), position);
    return after == starts.begin() ? 0 : static_cast<std::size_t>(after - starts.begin() - 1);
}

}  // namespace trovara::preview
