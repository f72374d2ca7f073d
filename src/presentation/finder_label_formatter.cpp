#include "presentation/finder_label_formatter.h"

#include "model/finder_label_value.h"
#include "model/value_text.h"

#include <stdexcept>

namespace trovara::presentation {

QString FinderLabelFormatter::stringForObjectValue(const QVariant& value) const
{
    if (!model::isNumber(value)) {
        return {};
    }
    const std::int64_t index = model::integerValueOf(value);
    const auto& values = model::FinderLabelValue::finderLabelValues();
    if (index < 0 || static_cast<std::size_t>(index) >= values.size()) {
        throw std::out_of_range("label index " + std::to_string(index) + " outside the label list");
    }
    return values[static_cast<std::size_t>(index)]->label();
}

}  // namespace trovara::presentation
