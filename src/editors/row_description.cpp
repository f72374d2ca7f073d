#include "editors/row_description.h"

namespace trovara::editors {

RuleValueField* RowDescription::field(const QString& name) const
{
    auto found = m_fields.find(name);
    return found == m_fields.end() ? nullptr : found->second.get();
}

void RowDescription::keepField(std::unique_ptr<RuleValueField> field)
{
    const QString name = field->name();
    m_fields[name] = std::move(field);
}

RuleValueField* RowDescription::shownField() const
{
    for (const DisplayValue& value : displayValues) {
        if (value.field) {
            return value.field;
        }
    }
    return nullptr;
}

}  // namespace trovara::editors
