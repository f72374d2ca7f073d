// Random edit sequences through the criteria editor, as a person could make
// them with the mouse and keyboard: after every step the lines and the tree
// agree, and the document's query text is the tree's criteria text (what
// `trova criteria-text` gives for the tree written as JSON). A search built
// this way is saved, reopened and edited again.
#include "editors_test_support.h"

#include "editors/rule_value_field.h"

#include <QTemporaryDir>

#include <random>

namespace trovara::test {
namespace {

const char* const kTypedTexts[] = {"report", "5", "12abc", "", "2009-06-15", "-1", "3", "big  cat", "O'Neil\\x", "1.5",
                                   "Yes", "No", "2023-02-30", " 7 "};

class EditorsRandomTest : public EditorsTest {
protected:
    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_random); }

    // One random edit; what it was, for the failure message.
    std::string step(editors::RuleEditorModel& editor)
    {
        const int rows = editor.numberOfRows();
        const int row = pick(rows);
        switch (pick(10)) {
        case 0:
            return "add after " + std::to_string(row) + " -> " + std::to_string(editor.addRow(row));
        case 1:
            return "group after " + std::to_string(row) + " -> " + std::to_string(editor.addGroup(row));
        case 2: {
            store::ManagedObject* item = editor.rowAtIndex(row)->item;
            const bool removed = editor.removeRow(row);
            EXPECT_EQ(removed, item->isDeleted());
            return "remove " + std::to_string(row) + (removed ? "" : " (refused)");
        }
        case 3: {
            const int parent = pick(rows);
            const int index = pick(4);
            editors::RowPtr moved = editor.rowAtIndex(row);
            editors::RowPtr target = editor.rowAtIndex(parent);
            const bool done = editor.moveRow(row, parent, index);
            if (done) {
                // The item went where the line went.
                auto* item = dynamic_cast<model::QueryItem*>(moved->item);
                EXPECT_TRUE(item && item->parent() == target->item);
            }
            return "move " + std::to_string(row) + " to " + std::to_string(parent) + ":" + std::to_string(index)
                   + (done ? "" : " (refused)");
        }
        case 4:
        case 5:
        case 6: {
            editors::RowPtr line = editor.rowAtIndex(row);
            const int position = pick(std::max<int>(1, static_cast<int>(line->criteria.size())));
            const std::vector<editors::Criterion> choices = editor.choicesAt(row, position);
            if (choices.empty()) {
                return "nothing to choose";
            }
            const int choice = pick(static_cast<int>(choices.size()));
            if (choices[static_cast<std::size_t>(choice)].isMenuItem()) {
                return "menu entry left alone";
            }
            const editors::Criterion chosen = choices[static_cast<std::size_t>(choice)];
            const std::string what = "choose " + std::to_string(row) + "/" + std::to_string(position) + " = "
                                     + chosen.description().toStdString();
            editor.chooseCriterion(row, position, choice);
            // The choice took: the line (reloaded from the tree) shows it.
            EXPECT_TRUE(line->criteria.size() > static_cast<std::size_t>(position)
                        && line->criteria[static_cast<std::size_t>(position)] == chosen)
                << what;
            return what;
        }
        case 7:
        case 8: {
            editors::RuleValueField* field = editor.rowAtIndex(row)->shownField();
            if (!field) {
                return "no field";
            }
            const char* text = kTypedTexts[pick(std::size(kTypedTexts))];
            field->setText(QString::fromUtf8(text));
            return "type '" + std::string(text) + "' into " + std::to_string(row);
        }
        default:
            if (pick(3) == 0 && context().undoManager().canRedo()) {
                context().redo();
                return "redo";
            }
            if (context().undoManager().canUndo()) {
                context().undo();
                return "undo";
            }
            return "nothing to undo";
        }
    }

    ::testing::AssertionResult agrees()
    {
        settle();
        if (::testing::AssertionResult ok = consistent(); !ok) {
            return ok;
        }
        const QString expected = criteriaText();
        const QString actual = queryText();
        if (expected != actual && !(expected.isEmpty() && actual.isEmpty())) {
            return ::testing::AssertionFailure()
                   << "query text " << actual.toStdString() << "\n criteria text " << expected.toStdString();
        }
        return ::testing::AssertionSuccess();
    }

    void run(unsigned seed, int steps)
    {
        m_random.seed(seed);
        settle();
        for (int i = 0; i < steps; ++i) {
            const std::string what = step(criteria());
            ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << i << ": " << what;
            ASSERT_TRUE(agrees()) << "seed " << seed << ", step " << i << ": " << what;
        }
    }

    std::mt19937 m_random;
};

TEST_F(EditorsRandomTest, RandomEditsKeepLinesTreeAndQueryTextInAgreement)
{
    for (unsigned seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(seed);
        run(seed, 120);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST_F(EditorsRandomTest, ASearchBuiltInTheEditorIsSavedReopenedAndEditedAgain)
{
    run(7, 80);
    ASSERT_FALSE(HasFatalFailure());
    const QString expression = criteriaText();
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("Built.trova"));
    ASSERT_TRUE(document->saveToURL(path).ok());

    editors.reset();
    document = std::make_unique<document::Document>(source);
    ASSERT_TRUE(document->initWithContentsOfURL(path).ok());
    document->windowControllerDidLoadNib();
    editors = std::make_unique<editors::DocumentEditors>(*document);
    editors->loadEditors();
    settle();
    EXPECT_TRUE(consistent());
    EXPECT_EQ(criteriaText(), expression);
    EXPECT_TRUE(queryText() == expression || (queryText().isEmpty() && expression.isEmpty()));
    run(8, 40);
}

}  // namespace
}  // namespace trovara::test
