#include "query/result_arrangement.h"

#include "common/variant_kind.h"
#include "model/value_text.h"
#include "query/result_item.h"

#include <QHash>
#include <QSet>

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
        m_none.reserve(items.size());
        bool numbers = true;
        bool dates = true;
        bool texts = true;
        for (const ResultItem* item : items) {
            m_values.push_back(item->valueForKeyPath(descriptor.key));
            const QVariant& value = m_values.back();
            m_none.push_back(isNone(value) ? 1 : 0);
            if (m_none.back()) {
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
        } else if (texts) {
            prepareTexts(descriptor.comparison == SortDescriptor::Comparison::LocalizedCaseInsensitive, items);
        }
    }

    // Negative when the result at a goes first, in the descriptor's direction.
    int compare(std::size_t a, std::size_t b) const
    {
        const int order = ascendingOrder(a, b);
        return m_descriptor.ascending ? order : -order;
    }

private:
    enum class Kind { Number, Text, Collated, Ranked, ItemKeys, Mixed };

    // Texts are ordered once per distinct text: a column with few distinct
    // values (kinds, folders) then sorts by small integers, and a column of
    // long distinct texts (paths) makes each collation key once.
    void prepareTexts(bool localized, const std::vector<ResultItem*>& items)
    {
        const bool mostlyDistinct = looksMostlyDistinct();
        if (localized && mostlyDistinct) {
            // Each result keeps its own key: sorting by this column again
            // (or arranging after a live change) makes none anew.
            m_kind = Kind::ItemKeys;
            const quint64 generation = presentation::LocalizedSortKey::currentGeneration();
            m_itemKeys.reserve(items.size());
            for (const ResultItem* item : items) {
                m_itemKeys.push_back(item->localizedSortKey(m_descriptor.key, generation));
            }
            return;
        }
        QHash<QString, int> idOfText;
        std::vector<QString> distinct;
        m_textIds.reserve(m_values.size());
        for (std::size_t i = 0; i < m_values.size(); ++i) {
            if (m_none[i]) {
                m_textIds.push_back(-1);
                continue;
            }
            QString text = m_values[i].toString();
            const auto found = mostlyDistinct ? idOfText.constEnd() : idOfText.constFind(text);
            if (found != idOfText.constEnd()) {
                m_textIds.push_back(found.value());
                continue;
            }
            const int id = static_cast<int>(distinct.size());
            if (!mostlyDistinct) {
                idOfText.insert(text, id);
            }
            distinct.push_back(std::move(text));
            m_textIds.push_back(id);
        }
        if (localized) {
            m_kind = Kind::Collated;
            m_keys.reserve(distinct.size());
            for (const QString& text : distinct) {
                m_keys.emplace_back(text);
            }
        } else {
            m_kind = Kind::Text;
            m_texts = std::move(distinct);
        }
        const std::size_t count = localized ? m_keys.size() : m_texts.size();
        if (count * 2 > m_values.size()) {
            return;
        }
        // Few distinct texts: rank them, equal texts taking equal ranks.
        std::vector<int> byOrder(count);
        std::iota(byOrder.begin(), byOrder.end(), 0);
        const auto compareIds = [&](int x, int y) { return compareDistinct(x, y); };
        std::sort(byOrder.begin(), byOrder.end(), [&](int x, int y) { return compareIds(x, y) < 0; });
        std::vector<int> rankOfId(count);
        int rank = 0;
        for (std::size_t i = 0; i < byOrder.size(); ++i) {
            if (i > 0 && compareIds(byOrder[i - 1], byOrder[i]) != 0) {
                ++rank;
            }
            rankOfId[static_cast<std::size_t>(byOrder[i])] = rank;
        }
        for (int& id : m_textIds) {
            id = id < 0 ? -1 : rankOfId[static_cast<std::size_t>(id)];
        }
        m_kind = Kind::Ranked;
    }

    // Whether a sample of the texts is nearly all different (paths, names),
    // so that looking for equal texts costs more than it saves.
    bool looksMostlyDistinct() const
    {
        constexpr std::size_t kSample = 1000;
        if (m_values.size() < 4 * kSample) {
            return false;
        }
        QSet<QString> seen;
        std::size_t texts = 0;
        for (std::size_t i = 0; i < m_values.size() && texts < kSample; i += m_values.size() / kSample) {
            if (!m_none[i]) {
                seen.insert(m_values[i].toString());
                ++texts;
            }
        }
        return static_cast<std::size_t>(seen.size()) * 10 >= texts * 9;
    }

    int compareDistinct(int x, int y) const
    {
        if (m_kind == Kind::Collated) {
            return m_keys[static_cast<std::size_t>(x)].compare(m_keys[static_cast<std::size_t>(y)]);
        }
        const int order = m_texts[static_cast<std::size_t>(x)].compare(m_texts[static_cast<std::size_t>(y)]);
        return order < 0 ? -1 : (order > 0 ? 1 : 0);
    }

    static bool isNone(const QVariant& value) { return !value.isValid() || value.isNull(); }

    int ascendingOrder(std::size_t a, std::size_t b) const
    {
        if (m_kind == Kind::Mixed) {
            return store::compareValues(m_values[a], m_values[b]);
        }
        const bool noneA = m_none[a] != 0;
        const bool noneB = m_none[b] != 0;
        if (noneA || noneB) {
            return noneA == noneB ? 0 : (noneA ? -1 : 1);
        }
        switch (m_kind) {
        case Kind::Number:
            return m_numbers[a] < m_numbers[b] ? -1 : (m_numbers[b] < m_numbers[a] ? 1 : 0);
        case Kind::Collated:
        case Kind::Text:
            return compareDistinct(m_textIds[a], m_textIds[b]);
        case Kind::ItemKeys:
            return m_itemKeys[a]->compare(*m_itemKeys[b]);
        case Kind::Ranked:
            return m_textIds[a] < m_textIds[b] ? -1 : (m_textIds[b] < m_textIds[a] ? 1 : 0);
        case Kind::Mixed:
            break;
        }
        return 0;
    }

    const SortDescriptor& m_descriptor;
    Kind m_kind = Kind::Mixed;
    std::vector<QVariant> m_values;
    std::vector<unsigned char> m_none;  // 1 where the value is absent
    std::vector<double> m_numbers;
    // Texts: each result's distinct text (or its rank, when Ranked; -1
    // where absent), and the distinct texts or their collation keys.
    std::vector<int> m_textIds;
    std::vector<QString> m_texts;
    std::vector<presentation::LocalizedSortKey> m_keys;
    std::vector<const presentation::LocalizedSortKey*> m_itemKeys;  // the results' own
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

int compareArranged(const ResultItem& a, const ResultItem& b, const std::vector<SortDescriptor>& sortDescriptors)
{
    for (const SortDescriptor& descriptor : sortDescriptors) {
        int order = 0;
        const presentation::LocalizedSortKey* keyA = nullptr;
        const presentation::LocalizedSortKey* keyB = nullptr;
        if (descriptor.comparison == SortDescriptor::Comparison::LocalizedCaseInsensitive) {
            // The results keep their collation keys: no text is collated twice.
            const quint64 generation = presentation::LocalizedSortKey::currentGeneration();
            keyA = a.localizedSortKey(descriptor.key, generation);
            keyB = b.localizedSortKey(descriptor.key, generation);
        }
        if (keyA && keyB) {
            order = keyA->compare(*keyB);
            order = descriptor.ascending ? order : -order;
        } else {
            order = descriptor.compare(a.valueForKeyPath(descriptor.key), b.valueForKeyPath(descriptor.key));
        }
        if (order != 0) {
            return order;
        }
    }
    return 0;
}

}  // namespace trovara::query
