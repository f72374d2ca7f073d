// One line of a rule editor: what it stands for in the document's object
// graph, its kind, its criteria and what the editor shows for them, and its
// sub-lines.
//
//   "item" (or "orderedScope", "orderedExclusionScope",
//   "valuedLimitAttribute")  the stored object the line stands for: a query
//                            node or leaf, an ordered (exclusion) scope, the
//                            valued limit; none for a line not yet written
//   "rowType"                Compound (1, a group) or Simple (0)
//   "subrows"                the lines of a group's children
//   "criteria"               one per pop-up or field, left to right
//   "displayValues"          what the editor shows for each criterion
//   "values"                 simple criteria lines: the value container
//   "datepicker", "boolean", "numberfield", "datefield", "stringfield"
//                            the value fields made for the line, kept for
//                            reuse while the line lives
//
// Lines are shared between the editor and its delegate; a reload from the
// graph keeps the line of every stored object that is still there, so its
// fields (and what was typed into them) live on. Not thread-safe.
#pragma once

#include "editors/criterion.h"
#include "editors/rule_value_field.h"
#include "editors/value_container.h"
#include "store/managed_object.h"

#include <QString>

#include <map>
#include <memory>
#include <vector>

namespace trovara::editors {

enum class RowType { Simple = 0, Compound = 1 };

class RowDescription;
using RowPtr = std::shared_ptr<RowDescription>;

class RowDescription {
public:
    explicit RowDescription(RowType rowType = RowType::Simple)
        : rowType(rowType)
    {
    }

    store::ManagedObject* item = nullptr;
    RowType rowType;
    std::vector<RowPtr> subrows;
    std::vector<Criterion> criteria;
    std::vector<DisplayValue> displayValues;
    std::shared_ptr<ValueContainer> values;

    bool isCompound() const { return rowType == RowType::Compound; }

    // The kept value field of that name, or nullptr.
    RuleValueField* field(const QString& name) const;
    void keepField(std::unique_ptr<RuleValueField> field);
    const std::map<QString, std::unique_ptr<RuleValueField>>& fields() const { return m_fields; }

    // The value field the line shows, or nullptr.
    RuleValueField* shownField() const;

private:
    std::map<QString, std::unique_ptr<RuleValueField>> m_fields;
};

}  // namespace trovara::editors
