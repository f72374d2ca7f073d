// The criteria editor over a real document: the lines a tree gives, what
// each pop-up offers, the field each value gets, and every edit reaching
// the tree and the query text (and coming back with undo).
#include "editors_test_support.h"

#include "editors/rule_value_field.h"
#include "model/relational_operator.h"

#include <QDateTime>
#include <QFile>
#include <QSignalSpy>

namespace trovara::test {
namespace {

using editors::RuleValueField;
using model::QueryAttribute;

QString nameOf(const char* key)
{
    return QueryAttribute::nameForKey(QString::fromLatin1(key));
}

class PredicateEditorTest : public EditorsTest {
protected:
    // The first line of the top group, switched to the attribute.
    int lineWith(const char* key)
    {
        const int row = 1;
        if (criteria().rowAtIndex(row)->displayValues.front().text != nameOf(key)) {
            EXPECT_TRUE(choose(criteria(), row, 0, nameOf(key)));
        }
        return row;
    }

    QString typeInto(int row, const QString& text)
    {
        RuleValueField* field = fieldOf(row);
        EXPECT_NE(field, nullptr);
        if (field) {
            field->setText(text);
        }
        return queryText();
    }
};

TEST_F(PredicateEditorTest, ANewDocumentShowsItsTopGroupAndFiveRowsWithoutRebuildingTheQuery)
{
    ASSERT_EQ(criteria().numberOfRows(), 6);
    editors::RowPtr top = criteria().rowAtIndex(0);
    EXPECT_TRUE(top->isCompound());
    EXPECT_EQ(top->item, root());
    EXPECT_EQ(top->displayValues.front().text, QStringLiteral("ALL of the following are true:"));
    editors::RowPtr name = criteria().rowAtIndex(1);
    ASSERT_EQ(name->criteria.size(), 3u);
    EXPECT_EQ(name->displayValues[0].text, nameOf("kMDItemDisplayName"));
    EXPECT_EQ(name->displayValues[1].text, QStringLiteral("contains"));
    ASSERT_TRUE(name->displayValues[2].isField());
    EXPECT_EQ(name->displayValues[2].field->name(), QStringLiteral("stringfield"));
    EXPECT_EQ(criteria().rowAtIndex(5)->displayValues[2].text, QStringLiteral("- Any"));
    EXPECT_TRUE(consistent());

    // Loading the editors again changes nothing and rebuilds nothing.
    settle();
    QSignalSpy rebuilt(document->metadataQueryController(), &query::MetadataQueryController::expressionChanged);
    editors::DocumentEditors again(*document);
    again.loadEditors();
    settle();
    EXPECT_EQ(rebuilt.count(), 0);
    EXPECT_FALSE(context().hasChanges());
}

struct ChoiceCase {
    const char* key;
    const char* op;
    QStringList operators;
    const char* field;  // nullptr: a list of values instead
    QStringList units;
};

TEST_F(PredicateEditorTest, EachAttributeOffersItsOperatorsValueFieldAndUnits)
{
    const ChoiceCase cases[] = {
        {"kMDItemDisplayName", "contains", {"contains", "is", "begins with", "ends with"}, "stringfield", {}},
        {"kMDItemTextContent",
         "contains words",
         {"contains fuzzy", "contains prefixes", "contains words", "contains phrase"},
         "stringfield",
         {}},
        {"kMDItemFSSize", "less than", {"less than", "greater than"}, "numberfield", {"KB", "MB", "GB"}},
        {"kMDItemContentModificationDate",
         "within last",
         {"within last", "on", "before", "after"},
         "datefield",
         {"hours", "days", "weeks", "months", "years"}},
        {"kMDItemContentModificationDate", "on", {"within last", "on", "before", "after"}, "datepicker", {}},
        {"kMDItemFSInvisible", "equal to", {"equal to"}, "boolean", {}},
        {"kMDItemContentTypeTree", "is", {"is"}, nullptr, {}},
        {"kMDItemFSLabel", "equal to", {"equal to", "less than", "greater than"}, nullptr, {}},
    };
    for (const ChoiceCase& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " " + c.op);
        const int row = lineWith(c.key);
        EXPECT_EQ(criteria().choiceTitlesAt(row, 1), c.operators);
        if (criteria().rowAtIndex(row)->displayValues[1].text != QLatin1String(c.op)) {
            ASSERT_TRUE(choose(criteria(), row, 1, QString::fromLatin1(c.op)));
        }
        editors::RowPtr line = criteria().rowAtIndex(row);
        if (c.field) {
            ASSERT_NE(fieldOf(row), nullptr);
            EXPECT_EQ(fieldOf(row)->name(), QLatin1String(c.field));
        } else {
            EXPECT_EQ(fieldOf(row), nullptr);
            EXPECT_GT(criteria().choiceTitlesAt(row, 2).size(), 5);
        }
        EXPECT_EQ(line->criteria.size(), c.units.isEmpty() ? 3u : 4u);
        if (!c.units.isEmpty()) {
            EXPECT_EQ(criteria().choiceTitlesAt(row, 3), c.units);
        }
        EXPECT_TRUE(consistent());
    }
}

TEST_F(PredicateEditorTest, TheAttributePopUpEndsWithOtherAfterASeparatorAndOtherOpensTheSheet)
{
    const QStringList titles = criteria().choiceTitlesAt(1, 0);
    ASSERT_GE(titles.size(), 3);
    EXPECT_EQ(titles.back(), QStringLiteral("Other..."));
    EXPECT_TRUE(titles.at(titles.size() - 2).isEmpty());
    EXPECT_TRUE(titles.contains(nameOf("kMDItemFSSize")));
    EXPECT_EQ(criteria().choiceTitlesAt(0, 0),
              (QStringList{"ALL of the following are true:", "ANY of the following is true:",
                           "NONE of the following is true:"}));

    EXPECT_FALSE(criteria().chooseCriterion(2, 0, static_cast<int>(titles.size()) - 1));
    editors::QueryAttributeSelectionController& sheet = editors->queryAttributeSelectionController();
    ASSERT_TRUE(sheet.isSheetOpen());
    EXPECT_EQ(sheet.row(), criteria().rowAtIndex(2));
    EXPECT_EQ(sheet.selectedKeys(), QStringList{QStringLiteral("kMDItemTextContent")});
}

TEST_F(PredicateEditorTest, TypedValuesOperatorsAndUnitsReachTheQueryText)
{
    const int name = lineOf(QStringLiteral("kMDItemDisplayName"));
    EXPECT_EQ(typeInto(name, QStringLiteral("report")), QStringLiteral("((kMDItemDisplayName == '*report*'cd))"));
    EXPECT_EQ(leafOf(name)->queryString().toString(), QStringLiteral("report"));
    EXPECT_EQ(leafOf(name)->attributeValueForKey(QStringLiteral("kMDItemDisplayName"))->queryString().toString(),
              QStringLiteral("report"));

    // A new operator keeps the text.
    ASSERT_TRUE(choose(criteria(), name, 1, QStringLiteral("is")));
    EXPECT_EQ(fieldOf(name)->text(), QStringLiteral("report"));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemDisplayName == 'report'c))"));

    const int size = lineWith("kMDItemFSSize");
    EXPECT_EQ(fieldOf(size)->name(), QStringLiteral("numberfield"));
    typeInto(size, QStringLiteral("5"));
    ASSERT_TRUE(choose(criteria(), size, 1, QStringLiteral("greater than")));
    ASSERT_TRUE(choose(criteria(), size, 3, QStringLiteral("MB")));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemFSSize > '5000000'))"));

    const int modified = lineOf(QStringLiteral("kMDItemContentModificationDate"));
    typeInto(modified, QStringLiteral("3"));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemFSSize > '5000000') && ((kMDItemContentModificationDate >= "
                                          "'$time.today(-3)') && kMDItemContentModificationDate <= '$time.now(-0)'))"));
    ASSERT_TRUE(choose(criteria(), modified, 3, QStringLiteral("weeks")));
    EXPECT_TRUE(queryText().contains(QStringLiteral("$time.this_week(-3)")));

    ASSERT_TRUE(choose(criteria(), lineOf(QStringLiteral("kMDItemContentTypeTree")), 2, QStringLiteral("Images")));
    EXPECT_TRUE(queryText().contains(QStringLiteral("(kMDItemContentTypeTree == 'public.image'c)")));
    ASSERT_TRUE(choose(criteria(), 0, 0, QStringLiteral("NONE of the following is true:")));
    EXPECT_TRUE(queryText().startsWith(QStringLiteral("! ( (")));
    EXPECT_EQ(queryText(), criteriaText());
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, SwitchingAttributesBringsBackEachAttributesValueAndItsField)
{
    const int row = lineWith("kMDItemFSSize");
    RuleValueField* sizeField = fieldOf(row);
    sizeField->setText(QStringLiteral("5"));
    ASSERT_TRUE(choose(criteria(), row, 1, QStringLiteral("greater than")));
    ASSERT_TRUE(choose(criteria(), row, 3, QStringLiteral("MB")));

    ASSERT_TRUE(choose(criteria(), row, 0, nameOf("kMDItemContentCreationDate")));
    EXPECT_EQ(fieldOf(row)->name(), QStringLiteral("datefield"));
    EXPECT_EQ(criteria().rowAtIndex(row)->displayValues[3].text, QStringLiteral("days"));
    // A row that never had a date gets today's.
    EXPECT_EQ(leafOf(row)->queryDate().toDateTime().toLocalTime().date(), QDate::currentDate());

    ASSERT_TRUE(choose(criteria(), row, 0, nameOf("kMDItemFSSize")));
    EXPECT_EQ(fieldOf(row), sizeField);  // the same field, kept by the line
    EXPECT_EQ(sizeField->text(), QLocale().toString(5.0, 'f', 2));
    EXPECT_EQ(criteria().rowAtIndex(row)->displayValues[3].text, QStringLiteral("MB"));
    // The operator is the attribute's first again.
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemFSSize < '5000000'))"));
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, WithinLastShowsACountAndUnitsAnyOtherDateOperatorADayPicker)
{
    const int row = lineOf(QStringLiteral("kMDItemContentModificationDate"));
    RuleValueField* count = fieldOf(row);
    EXPECT_EQ(count->name(), QStringLiteral("datefield"));
    EXPECT_EQ(criteria().rowAtIndex(row)->criteria.size(), 4u);

    ASSERT_TRUE(choose(criteria(), row, 1, QStringLiteral("on")));
    editors::RowPtr line = criteria().rowAtIndex(row);
    EXPECT_EQ(line->criteria.size(), 3u);
    auto* picker = dynamic_cast<editors::RuleDatePicker*>(fieldOf(row));
    ASSERT_NE(picker, nullptr);
    EXPECT_FALSE(picker->hasAction());
    EXPECT_TRUE(count->hasAction());
    picker->setDate(QDate(2009, 6, 15));
    EXPECT_EQ(queryText(), QStringLiteral("(((kMDItemContentModificationDate >= '266716800') && "
                                          "(kMDItemContentModificationDate < '266803200') ))"));

    ASSERT_TRUE(choose(criteria(), row, 1, QStringLiteral("within last")));
    EXPECT_EQ(fieldOf(row), count);
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, PlusCopiesASimpleLineAndGivesAGroupTheFirstChoices)
{
    const int name = lineOf(QStringLiteral("kMDItemDisplayName"));
    typeInto(name, QStringLiteral("report"));
    ASSERT_TRUE(choose(criteria(), name, 1, QStringLiteral("begins with")));
    const int copy = criteria().addRow(name);
    ASSERT_EQ(copy, name + 1);
    editors::RowPtr line = criteria().rowAtIndex(copy);
    EXPECT_EQ(line->displayValues[0].text, nameOf("kMDItemDisplayName"));
    EXPECT_EQ(line->displayValues[1].text, QStringLiteral("begins with"));
    ASSERT_NE(fieldOf(copy), nullptr);
    EXPECT_NE(fieldOf(copy), fieldOf(name));
    EXPECT_EQ(fieldOf(copy)->text(), QStringLiteral("report"));
    EXPECT_EQ(queryText(),
              QStringLiteral("((kMDItemDisplayName == 'report*'cd) && (kMDItemDisplayName == 'report*'cd))"));

    // Typing into the copy leaves the original alone.
    typeInto(copy, QStringLiteral("draft"));
    EXPECT_EQ(leafOf(name)->queryString().toString(), QStringLiteral("report"));

    const int fresh = criteria().addRow(0);
    EXPECT_EQ(criteria().rowAtIndex(fresh)->criteria.front(), criteria().choicesAt(fresh, 0).front());
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, GroupsNestRemoveAndMoveInTheTree)
{
    const int group = criteria().addGroup(0);
    ASSERT_TRUE(choose(criteria(), group, 0, QStringLiteral("ANY of the following is true:")));
    const int first = criteria().subrowIndexesForRow(group).front();
    ASSERT_TRUE(choose(criteria(), first, 0, nameOf("kMDItemDisplayName")));
    typeInto(first, QStringLiteral("a"));
    const int second = criteria().addRow(first);
    typeInto(second, QStringLiteral("b"));
    EXPECT_EQ(queryText(), QStringLiteral("(((kMDItemDisplayName == '*a*'cd) || (kMDItemDisplayName == '*b*'cd)))"));

    // The name line of the top group moves into the group.
    editors::RowPtr groupLine = criteria().rowAtIndex(group);
    ASSERT_TRUE(criteria().moveRow(lineOf(QStringLiteral("kMDItemDisplayName")),
                                   criteria().rowForRowDescription(groupLine.get()), 0));
    EXPECT_TRUE(consistent());
    EXPECT_EQ(root()->orderedChildren().back(), groupLine->item);
    EXPECT_EQ(store::object_cast<model::QueryNode>(groupLine->item)->orderedChildren().size(), 3u);

    // Removing the group's lines removes it from the tree too.
    for (int at = group; (at = criteria().rowForRowDescription(groupLine.get())) >= 0;) {
        ASSERT_TRUE(criteria().removeRow(criteria().subrowIndexesForRow(at).front()));
    }
    EXPECT_TRUE(groupLine->item->isDeleted());
    EXPECT_TRUE(consistent());
    EXPECT_EQ(queryText(), criteriaText());
}

TEST_F(PredicateEditorTest, TextThatDoesNotReadIsKeptAndNeverReachesTheQuery)
{
    const int size = lineWith("kMDItemFSSize");
    ASSERT_TRUE(choose(criteria(), size, 1, QStringLiteral("greater than")));
    typeInto(size, QStringLiteral("12"));
    const QString good = queryText();
    RuleValueField* field = fieldOf(size);
    field->setText(QStringLiteral("12abc"));
    EXPECT_FALSE(field->isValid());
    EXPECT_FALSE(field->errorText().isEmpty());
    EXPECT_EQ(field->text(), QStringLiteral("12abc"));
    EXPECT_EQ(queryText(), good);
    // A unit chosen meanwhile keeps what was typed.
    ASSERT_TRUE(choose(criteria(), size, 3, QStringLiteral("GB")));
    EXPECT_EQ(fieldOf(size)->text(), QStringLiteral("12abc"));
    field->setText(QStringLiteral("13"));
    EXPECT_TRUE(field->isValid());
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemFSSize > '13000000000'))"));

    const int modified = lineOf(QStringLiteral("kMDItemContentModificationDate"));
    ASSERT_TRUE(choose(criteria(), modified, 1, QStringLiteral("before")));
    const QString withDay = queryText();
    fieldOf(modified)->setText(QStringLiteral("2023-02-30"));
    EXPECT_FALSE(fieldOf(modified)->isValid());
    EXPECT_EQ(queryText(), withDay);
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, AnAttributeTheIndexDoesNotKnowSaysSoAndAddsNothing)
{
    document->updatePredicate([&] {
        model::QueryLeaf* leaf = root()->addRow();
        leaf->setQueryAttribute(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemFromAnOldVersion"), context()));
        leaf->setQueryString(QStringLiteral("kept"));
    });
    editors->loadPredicateEditor();
    const int row = lineOf(QStringLiteral("kMDItemFromAnOldVersion"));
    ASSERT_GE(row, 0);
    editors::RowPtr line = criteria().rowAtIndex(row);
    ASSERT_EQ(line->displayValues.size(), 2u);
    EXPECT_EQ(line->displayValues[0].text, QStringLiteral("kMDItemFromAnOldVersion"));
    EXPECT_EQ(line->displayValues[1].text, QStringLiteral("criterion not available"));
    EXPECT_EQ(fieldOf(row), nullptr);
    EXPECT_TRUE(queryText().isEmpty());
    // Choosing a known attribute makes the line usable again.
    ASSERT_TRUE(choose(criteria(), row, 0, nameOf("kMDItemDisplayName")));
    EXPECT_NE(fieldOf(row), nullptr);
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, EditingOneRowLeavesTheOthersAsTheyAre)
{
    // A size without a unit (bytes) shows the first unit, KB; editing
    // another row must not store that KB.
    document->updatePredicate([&] {
        ASSERT_TRUE(model::readCriteriaJson(
            R"({"operator":"AND","children":[{"attribute":"kMDItemFSSize","operator":"greaterThan","number":5000},
                {"attribute":"kMDItemDisplayName","operator":"contains","string":"a"}]})",
            context()));
    });
    editors->loadPredicateEditor();
    EXPECT_EQ(criteria().rowAtIndex(1)->displayValues[3].text, QStringLiteral("KB"));
    typeInto(2, QStringLiteral("b"));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemFSSize > '5000') && (kMDItemDisplayName == '*b*'cd))"));
    EXPECT_FALSE(leafOf(1)->queryUnit().isValid());
    EXPECT_TRUE(consistent());
}

TEST_F(PredicateEditorTest, UndoAndRedoReachEveryEditAndTheLines)
{
    settle();
    const int name = lineOf(QStringLiteral("kMDItemDisplayName"));
    typeInto(name, QStringLiteral("report"));
    settle();
    ASSERT_TRUE(choose(criteria(), name, 0, nameOf("kMDItemFSSize")));
    settle();
    const int added = criteria().addGroup(0);
    settle();
    ASSERT_GT(added, 0);
    const int lines = criteria().numberOfRows();

    context().undo();
    settle();
    EXPECT_EQ(criteria().numberOfRows(), lines - 2);
    context().undo();
    settle();
    EXPECT_EQ(lineOf(QStringLiteral("kMDItemFSSize")), -1);
    EXPECT_EQ(fieldOf(name)->text(), QStringLiteral("report"));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemDisplayName == '*report*'cd))"));
    context().undo();
    settle();
    EXPECT_EQ(fieldOf(name)->text(), QString());
    EXPECT_TRUE(queryText().isEmpty());
    EXPECT_TRUE(consistent());

    context().redo();
    context().redo();
    settle();
    EXPECT_EQ(lineOf(QStringLiteral("kMDItemFSSize")), name);
    EXPECT_TRUE(consistent());
    EXPECT_EQ(queryText(), criteriaText());
}

class CriteriaDropTest : public PredicateEditorTest {
protected:
    void SetUp() override
    {
        PredicateEditorTest::SetUp();
        folder = makeTemporaryFolder(QStringLiteral("drops"));
        file = folder + QStringLiteral("/quarterly report.txt");
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write("text");
    }

    QString folder;
    QString file;
};

TEST_F(CriteriaDropTest, AFileDroppedOnALineGivesItTheFilesValue)
{
    const int name = lineOf(QStringLiteral("kMDItemDisplayName"));
    ASSERT_TRUE(criteria().dropFiles({file}, name * 25 + 3));
    EXPECT_EQ(leafOf(name)->queryString().toString(), QStringLiteral("quarterly report.txt"));
    EXPECT_EQ(fieldOf(name)->text(), QStringLiteral("quarterly report.txt"));

    const int modified = lineOf(QStringLiteral("kMDItemContentModificationDate"));
    ASSERT_TRUE(criteria().dropFiles({file}, modified * 25));
    EXPECT_EQ(leafOf(modified)->relationalOperator(), model::RelationalOperator::onOperator());
    EXPECT_EQ(leafOf(modified)->queryDate().toDateTime().toLocalTime().date(), QDate::currentDate());

    // The kind line becomes the exact type.
    const int kind = lineOf(QStringLiteral("kMDItemContentTypeTree"));
    ASSERT_TRUE(criteria().dropFiles({file}, kind * 25));
    EXPECT_EQ(leafOf(kind)->queryAttribute()->attributeKey(), QStringLiteral("kMDItemContentType"));
    EXPECT_TRUE(queryText().contains(QStringLiteral("(kMDItemContentType == 'public.plain-text'c)")));

    // On the group: a new line in it.
    const int lines = criteria().numberOfRows();
    ASSERT_TRUE(criteria().dropFiles({file}, 0));
    EXPECT_EQ(criteria().numberOfRows(), lines + 1);
    EXPECT_TRUE(consistent());
    EXPECT_EQ(queryText(), criteriaText());
}

TEST_F(CriteriaDropTest, NoneOrSeveralFilesOrAVanishedFileAreRefused)
{
    const int name = lineOf(QStringLiteral("kMDItemDisplayName"));
    settle();
    EXPECT_FALSE(criteria().dropFiles({file, file}, name * 25));
    EXPECT_FALSE(criteria().dropFiles({folder + QStringLiteral("/gone.txt")}, name * 25));
    EXPECT_FALSE(criteria().dropFiles({}, name * 25));
    settle();
    EXPECT_FALSE(context().hasChanges());
    EXPECT_EQ(leafOf(name)->queryString().toString(), QString());
}

}  // namespace
}  // namespace trovara::test
