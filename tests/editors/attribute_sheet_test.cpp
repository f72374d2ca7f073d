// The attribute selection sheets: what they list, how they open, search,
// select and end, and what choosing does to a criteria line or the result
// columns.
#include "editors_test_support.h"

#include "query/result_table_model.h"

namespace trovara::test {
namespace {

using editors::AttributeEntry;
using editors::SheetController;

const AttributeEntry* find(const std::vector<AttributeEntry>& entries, const QString& key)
{
    for (const AttributeEntry& entry : entries) {
        if (entry.attributeKey == key) {
            return &entry;
        }
    }
    return nullptr;
}

class AttributeSheetTest : public EditorsTest {
protected:
    editors::QueryAttributeSelectionController& querySheet() { return editors->queryAttributeSelectionController(); }
    editors::ColumnAttributeSelectionController& columnSheet() { return editors->columnAttributeSelectionController(); }

    // Opens the criteria sheet with "Other..." on a line.
    void openOn(int row)
    {
        const int other = static_cast<int>(criteria().choicesAt(row, 0).size()) - 1;
        criteria().chooseCriterion(row, 0, other);
        ASSERT_TRUE(querySheet().isSheetOpen());
    }
};

TEST_F(AttributeSheetTest, TheCriteriaSheetListsAnyTextAndNeverThePath)
{
    std::vector<SheetController*> presented;
    editors->setSheetPresenter([&](SheetController& sheet) { presented.push_back(&sheet); });
    openOn(1);
    ASSERT_EQ(presented, std::vector<SheetController*>{&querySheet()});
    EXPECT_EQ(querySheet().promptString(), QStringLiteral("Select query attribute"));
    EXPECT_EQ(querySheet().nibName(), QStringLiteral("AttributeSelection"));
    const std::vector<AttributeEntry>& entries = querySheet().attributes();
    const AttributeEntry* any = find(entries, QStringLiteral("*"));
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(any->description, QStringLiteral("Any text attribute"));
    EXPECT_EQ(any->name, model::ColumnAttribute::nameForKey(QStringLiteral("*")));
    EXPECT_EQ(find(entries, QStringLiteral("kMDItemPath")), nullptr);
    EXPECT_NE(find(entries, QStringLiteral("kMDItemContentType")), nullptr);
    EXPECT_NE(find(entries, QStringLiteral("kMDItemPixelWidth")), nullptr);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        EXPECT_FALSE(entries[i].name.isEmpty()) << entries[i].attributeKey.toStdString();
        if (i > 0) {
            EXPECT_LE(entries[i - 1].name.localeAwareCompare(entries[i].name), 0);
        }
    }
    // It opens on the line's attribute.
    EXPECT_EQ(querySheet().selectedKeys(), QStringList{QStringLiteral("kMDItemDisplayName")});
    EXPECT_EQ(querySheet().scrollTargetKey(), QStringLiteral("kMDItemDisplayName"));
}

TEST_F(AttributeSheetTest, TheColumnSheetListsThePathAndOpensOnTheFirstEntry)
{
    ASSERT_TRUE(editors->beginColumnSheet());
    EXPECT_EQ(columnSheet().promptString(), QStringLiteral("Select column attributes"));
    EXPECT_NE(find(columnSheet().attributes(), QStringLiteral("kMDItemPath")), nullptr);
    EXPECT_EQ(find(columnSheet().attributes(), QStringLiteral("*")), nullptr);
    EXPECT_EQ(columnSheet().selectedKeys(), QStringList{columnSheet().attributes().front().attributeKey});
    EXPECT_FALSE(editors->beginColumnSheet());  // already open
}

TEST_F(AttributeSheetTest, SearchingNarrowsTheListByNameKeyOrDescriptionAndKeepsTheSelection)
{
    openOn(1);
    const std::size_t all = querySheet().arrangedAttributes().size();
    querySheet().setFilterText(QStringLiteral("pixel"));
    ASSERT_FALSE(querySheet().arrangedAttributes().empty());
    EXPECT_LT(querySheet().arrangedAttributes().size(), all);
    for (const AttributeEntry& entry : querySheet().arrangedAttributes()) {
        const QString haystack = entry.name + entry.attributeKey + entry.description;
        EXPECT_TRUE(haystack.contains(QStringLiteral("pixel"), Qt::CaseInsensitive));
    }
    EXPECT_EQ(querySheet().selectedKeys(), QStringList{QStringLiteral("kMDItemDisplayName")});
    querySheet().setFilterText(QStringLiteral("no attribute is called this"));
    EXPECT_TRUE(querySheet().arrangedAttributes().empty());
    querySheet().setFilterText(QString());
    EXPECT_EQ(querySheet().arrangedAttributes().size(), all);
    // One criterion takes one attribute; unknown keys are not selected.
    querySheet().setSelectedKeys({QStringLiteral("kMDItemFSSize"), QStringLiteral("kMDItemPixelWidth"),
                                  QStringLiteral("kMDItemPath")});
    EXPECT_EQ(querySheet().selectedKeys(), QStringList{QStringLiteral("kMDItemPixelWidth")});
}

TEST_F(AttributeSheetTest, ChoosingAnAttributeGivesItToTheLineAndToEveryAttributePopUp)
{
    const QString pixels = model::QueryAttribute::nameForKey(QStringLiteral("kMDItemPixelWidth"));
    EXPECT_FALSE(criteria().choiceTitlesAt(2, 0).contains(pixels));
    openOn(2);
    querySheet().selectAttributeKey(QStringLiteral("kMDItemPixelWidth"));
    querySheet().okSheet();
    EXPECT_FALSE(querySheet().isSheetOpen());
    EXPECT_EQ(criteria().rowAtIndex(2)->displayValues.front().text, pixels);
    EXPECT_EQ(fieldOf(2)->name(), QStringLiteral("numberfield"));
    EXPECT_TRUE(criteria().choiceTitlesAt(1, 0).contains(pixels));
    fieldOf(2)->setText(QStringLiteral("1920"));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemPixelWidth = '1920'))"));
    EXPECT_TRUE(consistent());
}

TEST_F(AttributeSheetTest, NothingSelectedCancelAndAClosingWindowEndTheSheetAsCancelled)
{
    std::vector<int> codes;
    QObject::connect(&querySheet(), &SheetController::sheetEnded, [&](int code) { codes.push_back(code); });
    openOn(1);
    querySheet().setSelectedKeys({});
    querySheet().okSheet();
    openOn(1);
    querySheet().cancelSheet();
    openOn(1);
    editors->documentWindowWillClose();
    EXPECT_EQ(codes, (std::vector<int>{SheetController::Cancel, SheetController::Cancel, SheetController::Cancel}));
    EXPECT_TRUE(querySheet().attributes().empty());
    EXPECT_EQ(criteria().rowAtIndex(1)->displayValues.front().text,
              model::QueryAttribute::nameForKey(QStringLiteral("kMDItemDisplayName")));
}

TEST_F(AttributeSheetTest, ChosenColumnsAreAddedOnceEach)
{
    query::ResultTableModel* results = document->metadataQueryController()->results();
    const int columns = results->columnCount();
    ASSERT_TRUE(editors->beginColumnSheet());
    columnSheet().setSelectedKeys({QStringLiteral("kMDItemPath"), QStringLiteral("kMDItemDisplayName")});
    columnSheet().okSheet();
    EXPECT_EQ(results->columnCount(), columns + 1);
    EXPECT_GE(results->columnForIdentifier(QStringLiteral("kMDItemPath")), 0);
}

}  // namespace
}  // namespace trovara::test
