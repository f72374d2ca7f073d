// Lists as one line: "a, b, c", each element through a base formatter when
// there is one. Wraps the formatter of every multi-valued result column.
//
// Stateless after construction; shared.
#pragma once

#include "model/formatter.h"

#include <memory>

namespace trovara::presentation {

class MultivalueFormatter final : public model::Formatter {
public:
    explicit MultivalueFormatter(std::shared_ptr<const model::Formatter> baseFormatter = {});

    const std::shared_ptr<const model::Formatter>& baseFormatter() const { return m_baseFormatter; }

    // A list becomes its text: each element's text (the base formatter's,
    // else the element's own textual form), with ", " before every element
    // once the text so far is not empty, so leading empty elements leave no
    // separator and an empty list is an empty text. A value that is not a
    // list comes back unchanged; no value stays no value.
    QVariant objectForObjectValue(const QVariant& value) const;

    // The text of objectForObjectValue(): a single value in its own
    // textual form.
    QString stringForObjectValue(const QVariant& value) const override;

private:
    std::shared_ptr<const model::Formatter> m_baseFormatter;
};

}  // namespace trovara::presentation
