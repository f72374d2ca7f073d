// A colour label number as the label's name.
//
// The number is an index into the ordered list of label values
// (FinderLabelValue::finderLabelValues(): "any", "none", then 1 to 7) and
// yields that value's label. There is no range check: an index outside the
// list is a programming error and throws std::out_of_range.
#pragma once

#include "model/formatter.h"

namespace trovara::presentation {

class FinderLabelFormatter final : public model::Formatter {
public:
    // A number has its label's name; anything else has no text.
    QString stringForObjectValue(const QVariant& value) const override;
};

}  // namespace trovara::presentation
