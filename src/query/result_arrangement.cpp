#include "query/result_arrangement.h"

#include "common/variant_kind.h"
#include "model/value_text.h"
#include "query/result_item.h"

#include <algorithm>
#include <numeric>

namespace trovara::query {

namespace {

using presentation::SortDescriptor;

// One sort descriptor's values for every result, in the cheapest form that
// orders them exactly as SortDescriptor::compare() would.
class SortColumn {
public:
    SortColumn(const SortDescriptor& descriptor, const std::vector<ResultItem*>& items)
        : m_descriptor(descriptor)
    {
        m_values.reserve(items.size());
        bool numbers = true;
        bool dates = true;
        bool texts = true;
        for (const ResultItem* item : items) {
            m_values.push_back(item->valueForKeyPath(descriptor.key));
            const QVariant& value = m_values.back();
            if (!value.isValid() || value.isNull()) {
                continue;
            }
            numbers = numbers && isNumericVariant(value);
            dates = dates && model::isDate(value);
            texts = texts && model::isText(value);
        }
        if (numbers || dates) {
            m_kind = Kind::Number;
            m_numbers.reserve(m_values.size());
            for (const QVariant& value : m_values) {
                m_numbers.push_back(dates && value.isValid() ? static_cast<double>(value.toDateTime().toMSecsSinceEpoch())
                                                             : model::doubleValueOf(value));
            }
        } else if (texts && descriptor.comparison == SortDescriptor::Comparison::LocalizedCaseInsensitive) {
            m_kind = Kind::Collated;
            m_keys.reserve(m_values.size());
            for (const QVariant& value : m_values) {
                m_keys.push_back(isNone(value) ? std::nullopt
                                               : std::optional<presentation::LocalizedSortKey>(std::in_place, value.toString()));
            }
        } else if (texts) {
            m_kind = Kind::Text;
            m_texts.reserve(m_values.size());
            for (const QVariant& value : m_values) {
                m_texts.push_back(value.toString());
            }
        }
    }

    // Negative when the result at a goes first, in the descriptor's direction.
    int compare(std::size_t a, std::size_t b) const
    {
        const int order = ascendingOrder(a, b);
        return m_descriptor.ascending ? order : -order;
    }

private:
    enum class Kind { Number, Text, Collated, Mixed };

    static bool isNone(const QVariant& value) { return !value.isValid() || value.isNull(); }

    int ascendingOrder(std::size_t a, std::size_t b) const
    {
        if (m_kind == Kind::Mixed) {
            return store::compareValues(m_values[a], m_values[b]);
        }
        const bool noneA = isNone(m_values[a]);
        const bool noneB = isNone(m_values[b]);
        if (noneA || noneB) {
            return noneA == noneB ? 0 : (noneA ? -1 : 1);
        }
        switch (m_kind) {
        case Kind::Number:
            return m_numbers[a] < m_numbers[b] ? -1 : (m_numbers[b] < m_numbers[a] ? 1 : 0);
        case Kind::Collated: {
            return m_keys[a]->compare(*m_keys[b]);
        }
        case Kind::Text: {
            const int order = m_texts[a].compare(m_texts[b]);
            return order < 0 ? -1 : (order > 0 ? 1 : 0);
        }
        case Kind::Mixed:
            break;
        }
        return 0;
    }

    const SortDescriptor& m_descriptor;
    Kind m_kind = Kind::Mixed;
    std::vector<QVariant> m_values;
    std::vector<double> m_numbers;
    std::vector<QString> m_texts;
    std::vector<std::optional<presentation::LocalizedSortKey>> m_keys;
};

}  // namespace

std::vector<ResultItem*> arrangeResults(const std::vector<std::shared_ptr<ResultItem>>& content,
                                        const std::optional<ResultFilter>& filter,
                                        const std::vector<SortDescriptor>& sortDescriptors)
{
    std::vector<ResultItem*> kept;
    kept.reserve(content.size());
    for (const std::shared_ptr<ResultItem>& item : content) {
        if (!filter || filter->matches(*item)) {
            kept.push_back(item.get());
        }
    }
    if (sortDescriptors.empty() || kept.size() < 2) {
        return kept;
    }
    std::vector<SortColumn> columns;
    columns.reserve(sortDescriptors.size());
    for (const SortDescriptor& descriptor : sortDescriptors) {
        columns.emplace_back(descriptor, kept);
    }
    std::vector<std::size_t> order(kept.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        for (const SortColumn& column : columns) {
            if (const int c = column.compare(a, b); c != 0) {
                return c < 0;
            }
        }
        return false;
    });
    std::vector<ResultItem*> arranged;
    arranged.reserve(kept.size());
    for (std::size_t index : order) {
        arranged.push_back(kept[index]);
    }
    return arranged;
}

}  // namespace trovara::query
