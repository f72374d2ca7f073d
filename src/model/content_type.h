// Content types offered for the "Kind is" criterion: a type identifier
// ("public.image"; the empty identifier means any type) with a label from
// the "Types" table.
#pragma once

#include "model/value.h"

#include <optional>
#include <vector>

namespace trovara::model {

class ContentType final : public Value {
public:
    // Every offered type, sorted by label ascending; built once.
    static const std::vector<const ContentType*>& contentTypes();

    explicit ContentType(QString uti);

    QString utiString() const { return representation().toString(); }
    // "- Any" for the empty identifier, else the identifier's entry of the
    // "Types" table (the identifier itself when there is none); computed on
    // first request and cached.
    QString label() const override;
    std::unique_ptr<Value> copy() const override;

private:
    mutable std::optional<QString> m_label;
};

}  // namespace trovara::model
