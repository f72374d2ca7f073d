// The rule editor's own behaviour, with a small delegate of its own: what a
// pop-up offers, how choosing resets the rest of a line, adding, grouping,
// removing and moving lines, menu actions and file drops.
#include "editors/rule_editor_model.h"

#include <gtest/gtest.h>

#include <map>

namespace trovara::test {
namespace {

using editors::Criterion;
using editors::DisplayValue;
using editors::MenuItem;
using editors::NestingMode;
using editors::RowDescription;
using editors::RowPtr;
using editors::RowType;
using editors::RuleEditorModel;

// Lines of "name contains/is" and "size over/under KB/MB"; groups of
// "all" or "any"; "Other..." after a separator.
class Delegate final : public editors::RuleEditorDelegate {
public:
    std::vector<Criterion> childrenForCriterion(const Criterion& criterion, RowType rowType) override
    {
        if (criterion.isEmpty()) {
            if (rowType == RowType::Compound) {
                return {Criterion(QStringLiteral("all")), Criterion(QStringLiteral("any"))};
            }
            if (onlyActions) {
                return {Criterion(other())};
            }
            return {Criterion(QStringLiteral("name")), Criterion(QStringLiteral("size")),
                    Criterion(MenuItem::separator()), Criterion(other())};
        }
        static const std::map<QString, std::vector<QString>> tree{
            {QStringLiteral("name"), {QStringLiteral("contains"), QStringLiteral("is")}},
            {QStringLiteral("size"), {QStringLiteral("over"), QStringLiteral("under")}},
            {QStringLiteral("over"), {QStringLiteral("KB"), QStringLiteral("MB")}},
            {QStringLiteral("under"), {QStringLiteral("KB"), QStringLiteral("MB")}},
        };
        const QString* text = criterion.text();
        auto found = text ? tree.find(*text) : tree.end();
        if (found == tree.end()) {
            return {};
        }
        return {found->second.begin(), found->second.end()};
    }

    DisplayValue displayValueForCriterion(const Criterion& criterion, int) override
    {
        return {criterion.text() ? criterion.text()->toUpper() : QString(), nullptr};
    }

    void rowsDidChange() override { ++changes; }

    bool acceptDrop(const QStringList& paths, int row) override
    {
        droppedPaths = paths;
        droppedRow = row;
        return true;
    }

    editors::MenuItemPtr other()
    {
        return MenuItem::makeAction(QStringLiteral("Other..."), [this](int row) { actionRows.push_back(row); });
    }

    int changes = 0;
    bool onlyActions = false;
    std::vector<int> actionRows;
    QStringList droppedPaths;
    int droppedRow = -2;
};

QStringList texts(const RowDescription& row)
{
    QStringList list;
    for (const Criterion& criterion : row.criteria) {
        list << (criterion.text() ? *criterion.text() : criterion.description());
    }
    return list;
}

class RuleEditorModelTest : public ::testing::Test {
protected:
    void SetUp() override { editor.setDelegate(&delegate); }

    // A compound editor: the top group with lines "name contains" and
    // "size over KB", then a nested "any" group holding "name is".
    void makeCompound()
    {
        editor.setNestingMode(NestingMode::Compound);
        editor.setCanRemoveAllRows(false);
        auto top = line(RowType::Compound, {QStringLiteral("all")});
        top->subrows = {line(RowType::Simple, {QStringLiteral("name"), QStringLiteral("contains")}),
                        line(RowType::Simple, {QStringLiteral("size"), QStringLiteral("over"), QStringLiteral("KB")})};
        auto group = line(RowType::Compound, {QStringLiteral("any")});
        group->subrows = {line(RowType::Simple, {QStringLiteral("name"), QStringLiteral("is")})};
        top->subrows.push_back(group);
        editor.setRows({top});
    }

    static RowPtr line(RowType type, const QStringList& criteria)
    {
        auto row = std::make_shared<RowDescription>(type);
        for (const QString& text : criteria) {
            row->criteria.emplace_back(text);
        }
        return row;
    }

    Delegate delegate;
    RuleEditorModel editor;
};

TEST_F(RuleEditorModelTest, LinesAreNumberedDepthFirstWithTheirParentsAndDepths)
{
    makeCompound();
    ASSERT_EQ(editor.numberOfRows(), 5);
    EXPECT_EQ(texts(*editor.rowAtIndex(3)), QStringList{QStringLiteral("any")});
    EXPECT_EQ(editor.parentRowForRow(0), -1);
    EXPECT_EQ(editor.parentRowForRow(2), 0);
    EXPECT_EQ(editor.parentRowForRow(4), 3);
    EXPECT_EQ(editor.depthOfRow(4), 2);
    EXPECT_EQ(editor.subrowIndexesForRow(0), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(editor.rowAtIndex(5), nullptr);
    // Loading asks for every display value and tells the delegate nothing.
    EXPECT_EQ(editor.rowAtIndex(2)->displayValues.size(), 3u);
    EXPECT_EQ(editor.rowAtIndex(2)->displayValues[2].text, QStringLiteral("KB"));
    EXPECT_EQ(delegate.changes, 0);
}

TEST_F(RuleEditorModelTest, ChoosingACriterionResetsTheRestOfTheLineToTheFirstChoices)
{
    makeCompound();
    EXPECT_EQ(editor.choiceTitlesAt(2, 0),
              (QStringList{QStringLiteral("NAME"), QStringLiteral("SIZE"), QString(), QStringLiteral("Other...")}));
    EXPECT_EQ(editor.selectedChoiceAt(2, 1), 0);

    ASSERT_TRUE(editor.chooseCriterion(2, 1, 1));  // under
    EXPECT_EQ(texts(*editor.rowAtIndex(2)), (QStringList{"size", "under", "KB"}));
    ASSERT_TRUE(editor.chooseCriterion(2, 0, 0));  // name
    EXPECT_EQ(texts(*editor.rowAtIndex(2)), (QStringList{"name", "contains"}));
    EXPECT_EQ(editor.rowAtIndex(2)->displayValues.size(), 2u);
    EXPECT_EQ(delegate.changes, 2);

    // The same choice again, a separator, or a choice out of range: no edit.
    EXPECT_FALSE(editor.chooseCriterion(2, 0, 0));
    EXPECT_FALSE(editor.chooseCriterion(2, 0, 2));
    EXPECT_FALSE(editor.chooseCriterion(2, 0, 9));
    EXPECT_FALSE(editor.chooseCriterion(2, 5, 0));
    EXPECT_EQ(delegate.changes, 2);
}

TEST_F(RuleEditorModelTest, AMenuActionRunsForItsLineAndLeavesTheLineAsItWas)
{
    makeCompound();
    EXPECT_FALSE(editor.chooseCriterion(1, 0, 3));
    EXPECT_EQ(delegate.actionRows, std::vector<int>{1});
    EXPECT_EQ(texts(*editor.rowAtIndex(1)), (QStringList{"name", "contains"}));
    EXPECT_EQ(delegate.changes, 0);
}

TEST_F(RuleEditorModelTest, AddingPlacesALineAfterALineOrAtTheEndOfAGroup)
{
    makeCompound();
    EXPECT_EQ(editor.addRow(1), 2);
    EXPECT_EQ(editor.parentRowForRow(2), 0);
    EXPECT_EQ(texts(*editor.rowAtIndex(2)), (QStringList{"name", "contains"}));

    const int inGroup = editor.addRow(4);  // the "any" group, now at 4
    EXPECT_EQ(inGroup, 6);
    EXPECT_EQ(editor.parentRowForRow(inGroup), 4);

    const int atEnd = editor.addRow(-1);
    EXPECT_EQ(editor.parentRowForRow(atEnd), 0);
    EXPECT_EQ(atEnd, editor.numberOfRows() - 1);
    EXPECT_EQ(delegate.changes, 3);
}

TEST_F(RuleEditorModelTest, AGroupIsAddedWithOneLineInIt)
{
    makeCompound();
    const int group = editor.addGroup(1);
    ASSERT_EQ(group, 2);
    EXPECT_TRUE(editor.rowAtIndex(group)->isCompound());
    EXPECT_EQ(texts(*editor.rowAtIndex(group)), QStringList{"all"});
    EXPECT_EQ(editor.subrowIndexesForRow(group), std::vector<int>{3});
    EXPECT_EQ(editor.rowAtIndex(3)->displayValues.size(), 2u);
    EXPECT_EQ(delegate.changes, 1);

    editor.setNestingMode(NestingMode::List);
    EXPECT_EQ(editor.addGroup(1), -1);
}

TEST_F(RuleEditorModelTest, CopyingEditorsGiveANewLineTheCriteriaAndValuesOfItsLine)
{
    makeCompound();
    editor.setCopiesRowOnAdd(true);
    editor.rowAtIndex(2)->values = std::make_shared<editors::ValueContainer>();
    editor.rowAtIndex(2)->values->setQueryNumber(5);
    const int copy = editor.addRow(2);
    EXPECT_EQ(texts(*editor.rowAtIndex(copy)), (QStringList{"size", "over", "KB"}));
    ASSERT_TRUE(editor.rowAtIndex(copy)->values);
    EXPECT_NE(editor.rowAtIndex(copy)->values, editor.rowAtIndex(2)->values);
    EXPECT_EQ(editor.rowAtIndex(copy)->values->queryNumber().toInt(), 5);
    // From a group: the first choices.
    const int fresh = editor.addRow(0);
    EXPECT_EQ(texts(*editor.rowAtIndex(fresh)), (QStringList{"name", "contains"}));
}

TEST_F(RuleEditorModelTest, RemovingTheLastLineOfAGroupRemovesTheGroupButNeverTheTop)
{
    makeCompound();
    EXPECT_FALSE(editor.canRemoveRow(0));
    ASSERT_TRUE(editor.removeRow(4));
    EXPECT_EQ(editor.numberOfRows(), 3);  // the "any" group went with its line
    ASSERT_TRUE(editor.removeRow(1));
    ASSERT_TRUE(editor.removeRow(1));
    EXPECT_EQ(editor.numberOfRows(), 1);
    EXPECT_FALSE(editor.removeRow(0));
    EXPECT_EQ(delegate.changes, 3);
}

TEST_F(RuleEditorModelTest, AListMayBecomeEmptyOnlyWhenAllowed)
{
    editor.setNestingMode(NestingMode::List);
    editor.setRows({line(RowType::Simple, {"name", "is"}), line(RowType::Simple, {"size", "over", "MB"})});
    editor.setCanRemoveAllRows(false);
    EXPECT_TRUE(editor.removeRow(0));
    EXPECT_FALSE(editor.canRemoveRow(0));
    editor.setCanRemoveAllRows(true);
    EXPECT_TRUE(editor.removeRow(0));
    EXPECT_EQ(editor.numberOfRows(), 0);
    // An empty list gets a line again.
    EXPECT_EQ(editor.addRow(-1), 0);
}

TEST_F(RuleEditorModelTest, ASingleLineIsNeitherAddedToNorRemoved)
{
    editor.setNestingMode(NestingMode::Single);
    editor.setRows({line(RowType::Simple, {"size", "over", "MB"})});
    EXPECT_EQ(editor.addRow(0), -1);
    EXPECT_FALSE(editor.removeRow(0));
    EXPECT_EQ(delegate.changes, 0);
}

TEST_F(RuleEditorModelTest, MovingRegroupsALineButNeverIntoItself)
{
    makeCompound();
    // "size over KB" into the "any" group, after "name is".
    ASSERT_TRUE(editor.moveRow(2, 3, 1));
    EXPECT_EQ(editor.parentRowForRow(4), 2);
    EXPECT_EQ(texts(*editor.rowAtIndex(4)), (QStringList{"size", "over", "KB"}));
    // The group into its own line, or onto a line that is not a group.
    EXPECT_FALSE(editor.moveRow(2, 2, 0));
    EXPECT_FALSE(editor.moveRow(2, 3, 0));
    EXPECT_FALSE(editor.moveRow(1, 0, 7));
    // Moving the group's lines out one by one removes the emptied group.
    ASSERT_TRUE(editor.moveRow(3, 0, 0));
    ASSERT_TRUE(editor.moveRow(4, 0, 0));
    EXPECT_EQ(editor.numberOfRows(), 4);
    for (int row = 1; row < 4; ++row) {
        EXPECT_FALSE(editor.rowAtIndex(row)->isCompound());
    }
    // Moving a line to where it is: no edit.
    const int before = delegate.changes;
    EXPECT_FALSE(editor.moveRow(1, 0, 0));
    EXPECT_EQ(delegate.changes, before);
}

TEST_F(RuleEditorModelTest, MovingReordersAList)
{
    editor.setNestingMode(NestingMode::List);
    editor.setRows({line(RowType::Simple, {"name", "is"}), line(RowType::Simple, {"size", "over", "MB"})});
    ASSERT_TRUE(editor.moveRow(1, -1, 0));
    EXPECT_EQ(texts(*editor.rowAtIndex(0)).front(), QStringLiteral("size"));
    EXPECT_FALSE(editor.moveRow(0, 1, 0));
}

TEST_F(RuleEditorModelTest, FilesDroppedGoToTheLineUnderTheDropPoint)
{
    makeCompound();
    EXPECT_FALSE(editor.dropFiles({QStringLiteral("/tmp")}, 10));
    editor.setAcceptsFileDrops(true);
    ASSERT_TRUE(editor.dropFiles({QStringLiteral("/tmp"), QStringLiteral("/var")}, 60));
    EXPECT_EQ(delegate.droppedRow, 2);
    EXPECT_EQ(delegate.droppedPaths.size(), 2);
    ASSERT_TRUE(editor.dropFiles({QStringLiteral("/tmp")}, 5 * 25 + 1));
    EXPECT_EQ(delegate.droppedRow, -1);
    EXPECT_FALSE(editor.dropFiles({}, 0));
}

TEST_F(RuleEditorModelTest, ALineWithNothingToChooseButAnActionIsMadeByTheAction)
{
    editor.setNestingMode(NestingMode::List);
    delegate.onlyActions = true;
    EXPECT_EQ(editor.addRow(-1), -1);
    EXPECT_EQ(delegate.actionRows, std::vector<int>{-1});
    EXPECT_EQ(editor.numberOfRows(), 0);
}

}  // namespace
}  // namespace trovara::test
