// The limit editor's delegate: one line, "the 100 most recently used",
// over the document's valued limit.
//
//   criteria:  the number kept (0 shows "All"), the direction ("ASC" shows
//              "Least", "DSC" shows "Most"), the limit attribute (by name)
//   choices:   0, 10, 20, 50, 100, 300, 500, 1000, 2000, 3000, 5000; then
//              the two directions; then every limit attribute of the
//              document
//
// Changing one pop-up keeps the user's other choices (the editor resets the
// later ones): the stored direction and attribute come back after a new
// number, the stored attribute after a new direction. The line is then
// written into the limit through the document's updateLimit.
//
// Not thread-safe.
#pragma once

#include "editors/editor_delegate.h"

#include <optional>

namespace trovara::editors {

class LimitEditorDelegate final : public EditorDelegate {
    Q_OBJECT

public:
    static const QString kAscending;   // "ASC"
    static const QString kDescending;  // "DSC"

    LimitEditorDelegate(document::Document& document, RuleEditorModel& editor);

    std::vector<Criterion> childrenForCriterion(const Criterion& criterion, RowType rowType) override;
    DisplayValue displayValueForCriterion(const Criterion& criterion, int row) override;
    void rowsDidChange() override;
    // The limit takes no drops.
    bool acceptDrop(const QStringList&, int) override { return false; }

    const std::vector<Criterion>& limitValueCriteria();
    const std::vector<Criterion>& limitOperatorCriteria();
    const std::vector<Criterion>& limitAttributeCriteria();

    bool isConsistent(QString* why = nullptr) const override;

protected:
    void configureEditor() override;
    std::vector<RowPtr> rowsFromGraph() override;
    void objectsDidChange(const store::ObjectChanges& changes, bool own) override;

private:
    // The stored limit as a line's criteria.
    std::vector<Criterion> storedCriteria() const;

    std::optional<std::vector<Criterion>> m_valueCriteria;
    std::optional<std::vector<Criterion>> m_operatorCriteria;
    std::optional<std::vector<Criterion>> m_attributeCriteria;
};

}  // namespace trovara::editors
