// The arranged result list and its table: the four filter kinds, sorting,
// rows that follow changes (with the selection), columns, the row height,
// drags, group titles and the choice of result view.
#include "model/defaults.h"
#include "model/ordered_column_attribute.h"
#include "presentation/column_formatters.h"
#include "query/group_titles.h"
#include "query/result_arrangement.h"
#include "query/result_controller.h"
#include "query/result_table_model.h"
#include "query_test_support.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace trovara::query {
namespace {

using presentation::SortDescriptor;
using test::FileRecord;
using test::makeResult;
using Comparison = SortDescriptor::Comparison;

const SortDescriptor kByName{QStringLiteral("kMDItemDisplayName"), true, Comparison::LocalizedCaseInsensitive};
const SortDescriptor kBySize{QStringLiteral("kMDItemFSSize"), true, Comparison::Default};

std::shared_ptr<ResultItem> file(const char* path, std::int64_t size = 0)
{
    return makeResult({path, size});
}

QStringList names(const std::vector<ResultItem*>& items)
{
    QStringList list;
    for (const ResultItem* item : items) {
        list << item->displayName();
    }
    return list;
}

class ResultList : public ::testing::Test {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/result-list.conf"));
    }
    void TearDown() override
    {
        model::Defaults::shared().removeValue(QStringLiteral("resultTableRowHeight"));
        model::Defaults::resetSharedForTesting();
    }

    model::ColumnAttribute* attribute(const char* key)
    {
        return model::ColumnAttribute::attributeWithKey(QString::fromLatin1(key), document.managedObjectContext());
    }

    test::ColumnChooserInstalled chooser;
    test::TestDocument document;
    ResultTableModel table;
    QAbstractItemModelTester tester{&table, QAbstractItemModelTester::FailureReportingMode::Fatal};
};

struct FilterCase {
    int tag;
    const char* text;
    QStringList kept;
};

TEST_F(ResultList, TheFourFilterKindsTestNameOrPathIgnoringCase)
{
    table.setContent({file("/home/ann/Report 2024.txt"), file("/Users/bob/notes.md"), file("/tmp/REPORT-old.txt"),
                      file("/home/USERS/photo.png")});
    const FilterCase cases[] = {
        {kFilterByName, "report", {"Report 2024.txt", "REPORT-old.txt"}},
        {kExcludeByName, "Report", {"notes.md", "photo.png"}},
        {kFilterByPath, "users", {"notes.md", "photo.png"}},
        {kExcludeByPath, "users", {"Report 2024.txt", "REPORT-old.txt"}},
        {kFilterByName, "ö", {}},
    };
    for (const FilterCase& c : cases) {
        const FilterKind* kind = filterKindForTag(c.tag);
        ASSERT_NE(kind, nullptr);
        table.setFilterPredicate(ResultFilter(*kind, QString::fromUtf8(c.text)));
        table.rearrangeObjects();
        EXPECT_EQ(names(table.arrangedObjects()), c.kept) << kind->title;
    }
    table.setFilterPredicate(std::nullopt);
    table.rearrangeObjects();
    EXPECT_EQ(table.rowCount(), 4);
}

TEST_F(ResultList, FilterKindsHaveTheirTagsTitlesAndPredicates)
{
    QStringList titles;
    for (const FilterKind& kind : filterKinds()) {
        titles << QStringLiteral("%1 %2").arg(kind.tag).arg(QString::fromLatin1(kind.title));
    }
    EXPECT_EQ(titles, QStringList({"100 Filter by Name", "200 Exclude by Name", "300 Filter by Path",
                                   "400 Exclude by Path"}));
    EXPECT_EQ(filterKindForTag(150), nullptr);
    EXPECT_EQ(ResultFilter(*filterKindForTag(200), QStringLiteral("a \"b\"")).predicateText(),
              QStringLiteral("not (displayName contains[c] \"a \\\"b\\\"\")"));
    EXPECT_EQ(ResultFilter(*filterKindForTag(300), QStringLiteral("x")).predicateText(),
              QStringLiteral("path contains[c] \"x\""));
}

TEST_F(ResultList, SortsStablyWithNoValueFirst)
{
    FileRecord folder{"/home/ann/Folder"};
    folder.folder = true;  // folders have no size
    const auto big = file("/a/big.bin", 900);
    const auto small = file("/a/small.txt", 5);
    const auto alsoSmall = file("/b/also small.txt", 5);
    const auto dir = makeResult(folder);
    table.setContent({big, small, dir, alsoSmall});

    table.setSortDescriptors({kBySize});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"Folder", "small.txt", "also small.txt", "big.bin"}));
    table.setSortDescriptors({{kBySize.key, false, Comparison::Default}});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"big.bin", "small.txt", "also small.txt", "Folder"}));
    // Ties fall to the next descriptor.
    table.setSortDescriptors({kBySize, kByName});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"Folder", "also small.txt", "small.txt", "big.bin"}));
    table.setSortDescriptors({});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"big.bin", "small.txt", "Folder", "also small.txt"}));
}

TEST_F(ResultList, SortsTextsInTheLocaleOrderOrByCodeUnit)
{
    const test::ScopedLocale locale(QLocale(QLocale::German, QLocale::Germany));
    table.setContent({file("/x/Zebra"), file("/x/apfel"), file("/x/Äpfel"), file("/x/birne"), file("/x/Apfel")});
    table.setSortDescriptors({kByName});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"apfel", "Apfel", "Äpfel", "birne", "Zebra"}));
    table.setSortDescriptors({{kByName.key, true, Comparison::Default}});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"Apfel", "Zebra", "apfel", "birne", "Äpfel"}));
    table.setSortDescriptors({{kByName.key, false, Comparison::LocalizedCaseInsensitive}});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"Zebra", "birne", "Äpfel", "apfel", "Apfel"}));
}

// Long lists take shortcuts: texts with few distinct values sort by rank,
// mostly distinct ones by keys each result keeps. Both must give the order
// of the descriptor's own comparison, in whatever locale is current.
TEST_F(ResultList, LongListsSortAsTheDescriptorCompares)
{
    static const char* const words[] = {"Äpfel", "apfel", "Apfel", "birne", "Zebra", "zebra", "éclair", "Eclair"};
    std::vector<std::shared_ptr<ResultItem>> content;
    for (int i = 0; i < 6000; ++i) {
        FileRecord record{"/x/" + std::string(words[(i * 7) % 8]) + (i % 20 ? std::to_string(i) : std::string())};
        record.comment = i % 5 ? std::optional<std::string>(words[(i * 3) % 8]) : std::nullopt;
        content.push_back(makeResult(record));
    }
    const SortDescriptor byComment{QStringLiteral("kMDItemFinderComment"), true, Comparison::LocalizedCaseInsensitive};
    const auto expectSorted = [&](const std::vector<SortDescriptor>& order) {
        const std::vector<ResultItem*> arranged = arrangeResults(content, std::nullopt, order);
        ASSERT_EQ(arranged.size(), content.size());
        for (std::size_t row = 0; row + 1 < arranged.size(); ++row) {
            for (const SortDescriptor& descriptor : order) {
                const int c = descriptor.compare(arranged[row]->valueForKeyPath(descriptor.key),
                                                 arranged[row + 1]->valueForKeyPath(descriptor.key));
                ASSERT_LE(c, 0) << "row " << row << " by " << descriptor.key.toStdString();
                if (c < 0) {
                    break;
                }
            }
        }
    };
    for (const QLocale& language : {QLocale(QLocale::German, QLocale::Germany), QLocale(QLocale::Swedish, QLocale::Sweden),
                                    QLocale::c()}) {
        SCOPED_TRACE(language.name().toStdString());
        const test::ScopedLocale locale(language);
        expectSorted({kByName});
        expectSorted({{kByName.key, false, Comparison::LocalizedCaseInsensitive}});
        expectSorted({byComment, kByName});
        expectSorted({{byComment.key, false, Comparison::Default}, kByName});
    }
}

TEST_F(ResultList, SortsListsByTheirFirstValue)
{
    FileRecord a{"/x/a"}, b{"/x/b"}, c{"/x/c"};
    a.tags = {"work", "alpha"};
    b.tags = {"home"};
    table.setContent({makeResult(a), makeResult(b), makeResult(c)});
    table.setSortDescriptors({{QStringLiteral("kMDItemOMUserTags.@firstObject"), true, Comparison::LocalizedCaseInsensitive}});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"c", "b", "a"}));
}

TEST_F(ResultList, RowsFollowChangesAndTheSelectionFollowsItsResult)
{
    table.addColumnForColumnAttribute(attribute("kMDItemDisplayName"));
    const auto a = file("/x/a"), b = file("/x/b"), c = file("/x/c"), d = file("/x/d"), e = file("/x/e");
    table.setSortDescriptors({kByName});
    table.setContent({c, a, b});
    table.setSelectionIndex(2);
    EXPECT_EQ(table.selectedObject(), c.get());
    const QPersistentModelIndex held = table.index(2, 0);

    QSignalSpy resets(&table, &QAbstractItemModel::modelReset);
    QSignalSpy inserted(&table, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&table, &QAbstractItemModel::rowsRemoved);
    table.setContent({e, c, d, b});  // a goes, d and e come
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"b", "c", "d", "e"}));
    EXPECT_EQ(resets.count(), 0);
    EXPECT_EQ(removed.count(), 1);
    EXPECT_EQ(inserted.count(), 1);  // d and e are one run
    EXPECT_EQ(table.selectedObject(), c.get());
    EXPECT_EQ(held.row(), 1);

    table.setSortDescriptors({{kByName.key, false, Comparison::LocalizedCaseInsensitive}});
    EXPECT_EQ(names(table.arrangedObjects()), QStringList({"e", "d", "c", "b"}));
    EXPECT_EQ(table.selectedObject(), c.get());
    EXPECT_EQ(held.row(), 2);

    table.setContent({a, b});
    EXPECT_EQ(table.selectedObject(), nullptr);
    EXPECT_FALSE(held.isValid());
    EXPECT_EQ(resets.count(), 0);
}

TEST_F(ResultList, AScatteredChangeResetsTheRowsOnce)
{
    table.addColumnForColumnAttribute(attribute("kMDItemDisplayName"));
    std::vector<std::shared_ptr<ResultItem>> before;
    std::vector<std::shared_ptr<ResultItem>> after;
    for (int i = 0; i < 400; ++i) {
        const std::string path = "/x/" + std::to_string(1000 + i);
        before.push_back(file(path.c_str()));
        if (i % 3 != 0) {
            after.push_back(before.back());
        }
        if (i % 5 == 0) {
            after.push_back(file((path + "b").c_str()));
        }
    }
    table.setSortDescriptors({kByName});
    table.setContent(before);
    QSignalSpy resets(&table, &QAbstractItemModel::modelReset);
    table.setContent(after);
    EXPECT_EQ(resets.count(), 1);
    EXPECT_EQ(table.rowCount(), static_cast<int>(after.size()));
    EXPECT_EQ(table.arrangedObjects(), arrangeResults(after, std::nullopt, {kByName}));
}

// New results placed among the rows must give exactly the arrangement of
// the whole content (order, ties kept as they came, the filter), without a
// reset, and the selection and held rows must follow their results.
struct PlacementCase {
    const char* name;
    std::vector<SortDescriptor> order;
    std::optional<int> filterTag;  // a kind of result_filter.h, filtering by "7"
};

TEST_F(ResultList, NewResultsArePlacedAmongTheRowsAsAWholeArrangementWouldPlaceThem)
{
    table.addColumnForColumnAttribute(attribute("kMDItemDisplayName"));
    const PlacementCase cases[] = {
        {"by name", {kByName}, std::nullopt},
        {"by size, then name descending", {kBySize, {kByName.key, false, Comparison::LocalizedCaseInsensitive}},
         std::nullopt},
        {"unsorted", {}, std::nullopt},
        {"by name, filtered", {kByName}, kFilterByName},
    };
    for (const PlacementCase& c : cases) {
        SCOPED_TRACE(c.name);
        table.setContent({});
        table.setFilterPredicate(c.filterTag ? std::optional(ResultFilter(*filterKindForTag(*c.filterTag),
                                                                          QStringLiteral("7")))
                                             : std::nullopt);
        table.setSortDescriptors(c.order);
        std::vector<std::shared_ptr<ResultItem>> content;
        const auto batch = [&](int from, int count, int step) {
            std::vector<std::shared_ptr<ResultItem>> items;
            for (int i = from; i < from + count * step; i += step) {
                // Sizes repeat, so that ties are many.
                const std::string path = "/x/n" + std::to_string((i * 7919) % 1000);
                items.push_back(file(path.c_str(), i % 5));
            }
            content.insert(content.end(), items.begin(), items.end());
            return items;
        };
        table.addContent(batch(0, 300, 1));
        ASSERT_EQ(table.arrangedObjects(), arrangeResults(content, table.filterPredicate(), c.order));
        const int selectedRow = table.rowCount() / 2;
        table.setSelectionIndex(selectedRow);
        ResultItem* selected = table.selectedObject();
        ASSERT_NE(selected, nullptr);
        const QPersistentModelIndex held = table.index(selectedRow, 0);

        QSignalSpy resets(&table, &QAbstractItemModel::modelReset);
        table.addContent(batch(1000, 3, 1));     // a few: a few runs
        table.addContent(batch(2000, 400, 3));  // many, scattered
        table.addContent(batch(3000, 2, 1));
        // The same file as another result still is a row of its own.
        table.addContent({content.front()});
        content.push_back(content.front());
        EXPECT_EQ(table.arrangedObjects(), arrangeResults(content, table.filterPredicate(), c.order));
        EXPECT_EQ(table.content(), content);
        EXPECT_EQ(resets.count(), 0);
        EXPECT_EQ(table.selectedObject(), selected);
        EXPECT_EQ(table.arrangedObjectAt(held.row()), selected);
    }
}

TEST_F(ResultList, ALiveChangeTouchesOnlyTheRowsOfItsResults)
{
    table.addColumnForColumnAttribute(attribute("kMDItemDisplayName"));
    table.setSortDescriptors({kBySize});
    std::vector<std::shared_ptr<ResultItem>> content;
    for (int i = 0; i < 100; ++i) {
        const std::string path = "/x/f" + std::to_string(i);
        content.push_back(file(path.c_str(), i * 10));
    }
    table.setContent(content);
    table.setSelectionIndex(40);
    ResultItem* selected = table.selectedObject();

    QSignalSpy resets(&table, &QAbstractItemModel::modelReset);
    QSignalSpy layouts(&table, &QAbstractItemModel::layoutChanged);
    QSignalSpy inserted(&table, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&table, &QAbstractItemModel::rowsRemoved);
    QSignalSpy moved(&table, &QAbstractItemModel::rowsMoved);
    QSignalSpy changed(&table, &QAbstractItemModel::dataChanged);
    const auto rowsOf = [](const QSignalSpy& spy, int at) {
        return std::pair(spy.at(at).at(0).toModelIndex().row(), spy.at(at).at(1).toModelIndex().row());
    };

    // One result changes and stays in its place: its row is repainted alone.
    content[10]->setMetaDataItem(test::makeItem({"/x/f10", 101}));
    table.applyChanges({}, {}, {content[10]});
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(rowsOf(changed, 0), std::pair(10, 10));

    // The selected result grows past others: its row moves, still selected.
    content[40]->setMetaDataItem(test::makeItem({"/x/f40", 705}));
    table.applyChanges({}, {}, {content[40]});
    EXPECT_EQ(moved.count(), 1);
    EXPECT_EQ(table.selectedObject(), selected);
    EXPECT_EQ(table.arrangedObjectAt(70), selected);

    // One goes, one comes.
    const auto added = file("/x/fnew", 255);
    table.applyChanges({added}, {content[3]}, {});
    EXPECT_EQ(removed.count(), 1);
    EXPECT_EQ(inserted.count(), 1);
    content.erase(content.begin() + 3);
    content.push_back(added);
    EXPECT_EQ(table.content(), content);
    EXPECT_EQ(table.arrangedObjects(), arrangeResults(content, std::nullopt, {kBySize}));
    EXPECT_EQ(table.arrangedObjectAt(25), added.get());
    EXPECT_EQ(resets.count(), 0);
    EXPECT_EQ(layouts.count(), 0);

    // A change the filter no longer lets through takes the row away; the
    // change that lets it through again brings it back.
    table.setFilterPredicate(ResultFilter(*filterKindForTag(kFilterByName), QStringLiteral("f")));
    table.rearrangeObjects();
    content[20]->setMetaDataItem(test::makeItem({"/x/g20", 200}));
    table.applyChanges({}, {}, {content[20]});
    EXPECT_EQ(table.rowCount(), 99);
    content[20]->setMetaDataItem(test::makeItem({"/x/f20", 200}));
    table.applyChanges({}, {}, {content[20]});
    EXPECT_EQ(table.rowCount(), 100);
    EXPECT_EQ(table.arrangedObjects(), arrangeResults(content, table.filterPredicate(), {kBySize}));
    EXPECT_EQ(resets.count(), 0);
}

TEST_F(ResultList, ColumnsShowTheirAttributesThroughTheirFormatters)
{
    const test::ScopedLocale locale(QLocale(QLocale::English, QLocale::UnitedStates));
    QSignalSpy added(&table, &ResultTableModel::columnAdded);
    EXPECT_EQ(table.addColumnForColumnAttribute(attribute("kMDItemDisplayName")), 0);
    EXPECT_EQ(table.addColumnForColumnAttribute(attribute("kMDItemFSSize")), 1);
    EXPECT_EQ(table.addColumnForColumnAttribute(attribute("kMDItemKind")), 2);
    EXPECT_EQ(added.count(), 3);
    table.setContent({file("/x/plan.txt", 1500)});

    EXPECT_EQ(table.headerData(0, Qt::Horizontal).toString(), QStringLiteral("Name"));
    EXPECT_EQ(table.headerData(1, Qt::Horizontal, ResultTableModel::IdentifierRole), QStringLiteral("kMDItemFSSize"));
    EXPECT_EQ(table.headerData(0, Qt::Horizontal, ResultTableModel::MinimumWidthRole), 100.0);
    EXPECT_EQ(table.headerData(2, Qt::Horizontal, ResultTableModel::MinimumWidthRole), 50.0);
    EXPECT_EQ(table.data(table.index(0, 0)), QStringLiteral("plan.txt"));
    EXPECT_EQ(table.data(table.index(0, 1)), QStringLiteral("1.500 KB"));
    EXPECT_EQ(table.data(table.index(0, 1), ResultTableModel::ObjectValueRole), 1500.0);
    EXPECT_EQ(table.data(table.index(0, 2)), QStringLiteral("plain text document"));
    EXPECT_EQ(table.data(table.index(0, 0), ResultTableModel::PathRole), QStringLiteral("/x/plan.txt"));
    EXPECT_EQ(table.data(table.index(0, 2), ResultTableModel::ResultItemRole).value<ResultItem*>(),
              table.arrangedObjectAt(0));
    EXPECT_EQ(table.data(table.index(0, 0), ResultTableModel::IconNameRole), QStringLiteral("text-plain"));
    EXPECT_FALSE(table.data(table.index(0, 1), ResultTableModel::IconNameRole).isValid());
    table.setShowsIcons(false);
    EXPECT_FALSE(table.data(table.index(0, 0), ResultTableModel::IconNameRole).isValid());
    EXPECT_FALSE(table.flags(table.index(0, 0)).testFlag(Qt::ItemIsEditable));

    // Clicking a header sorts by that column's prototype alone.
    table.sort(1, Qt::DescendingOrder);
    ASSERT_EQ(table.sortDescriptors().size(), 1u);
    EXPECT_EQ(table.sortDescriptors().front(), (SortDescriptor{QStringLiteral("kMDItemFSSize"), false, Comparison::Default}));
}

TEST_F(ResultList, HidingAndShowingAColumnPutsItBackAtTheRightEnd)
{
    model::ColumnAttribute* name = attribute("kMDItemDisplayName");
    model::ColumnAttribute* kind = attribute("kMDItemKind");
    model::ColumnAttribute* size = attribute("kMDItemFSSize");
    table.addColumnForColumnAttribute(name);
    table.addColumnForColumnAttribute(kind);
    table.addColumnForColumnAttribute(size);
    table.setContent({file("/x/a", 1)});

    EXPECT_FALSE(table.actionHideShowColumn(size));
    EXPECT_EQ(table.columnCount(), 2);
    EXPECT_FALSE(table.actionHideShowColumn(name));
    EXPECT_TRUE(table.actionHideShowColumn(name));
    EXPECT_EQ(table.columnForIdentifier(QStringLiteral("kMDItemDisplayName")), 1);
    EXPECT_TRUE(table.moveColumn({}, 1, {}, 0));
    EXPECT_EQ(table.columnForIdentifier(QStringLiteral("kMDItemDisplayName")), 0);
    EXPECT_FALSE(table.moveColumn({}, 0, {}, 7));

    const std::vector<ResultTableModel::ColumnMenuItem> menu = table.columnConfigurationMenu(document.managedObjectContext());
    using Kind = ResultTableModel::ColumnMenuItem::Kind;
    ASSERT_GE(menu.size(), 5u);
    EXPECT_EQ(menu.front().kind, Kind::AutoSizeAllColumns);
    EXPECT_EQ(menu.front().title, QStringLiteral("Auto-size all Columns"));
    EXPECT_EQ(menu[1].kind, Kind::Separator);
    EXPECT_EQ(menu.back().kind, Kind::MoreColumns);
    EXPECT_EQ(menu.back().title, QStringLiteral("More Columns…"));
    EXPECT_EQ(menu[menu.size() - 2].kind, Kind::Separator);
    QStringList checked;
    int columns = 0;
    for (const auto& item : menu) {
        if (item.kind == Kind::Column) {
            ++columns;
            EXPECT_EQ(item.title, item.attribute->attributeName());
            if (item.checked) {
                checked << item.attribute->attributeKey();
            }
        }
    }
    EXPECT_EQ(columns, 7);  // the column attributes a new document knows
    checked.sort();
    EXPECT_EQ(checked, QStringList({"kMDItemDisplayName", "kMDItemKind"}));
}

TEST_F(ResultList, TheRowHeightStaysWithin13And24Points)
{
    QSignalSpy changed(&table, &ResultTableModel::rowHeightChanged);
    EXPECT_EQ(table.rowHeight(), 17);
    EXPECT_TRUE(table.increaseFontSize());
    EXPECT_EQ(table.rowHeight(), 18);
    EXPECT_EQ(table.fontPointSize(), 12);
    EXPECT_EQ(model::Defaults::shared().doubleValue(QStringLiteral("resultTableRowHeight")), 18);
    ASSERT_EQ(changed.count(), 1);

    model::Defaults::shared().setValue(QStringLiteral("resultTableRowHeight"), 24.0);
    EXPECT_FALSE(table.increaseFontSize());
    EXPECT_EQ(model::Defaults::shared().doubleValue(QStringLiteral("resultTableRowHeight")), 24);
    EXPECT_TRUE(table.decreaseFontSize());
    EXPECT_EQ(table.rowHeight(), 23);

    model::Defaults::shared().setValue(QStringLiteral("resultTableRowHeight"), 13.0);
    EXPECT_FALSE(table.decreaseFontSize());
    EXPECT_EQ(model::Defaults::shared().doubleValue(QStringLiteral("resultTableRowHeight")), 13);
    table.applyRowHeightPreference();
    EXPECT_EQ(table.rowHeight(), 13);
    EXPECT_EQ(table.fontPointSize(), 7);
}

TEST_F(ResultList, DragsTheChosenRowsTopToBottom)
{
    table.addColumnForColumnAttribute(attribute("kMDItemDisplayName"));
    table.addColumnForColumnAttribute(attribute("kMDItemKind"));
    table.setSortDescriptors({kByName});
    table.setContent({file("/x/c"), file("/x/a"), file("/x/b")});
    EXPECT_EQ(table.mimeTypes(), ResultItem::writableTypesForPasteboard());
    std::unique_ptr<QMimeData> data(
        table.mimeData({table.index(2, 1), table.index(0, 0), table.index(2, 0)}));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->text(), QStringLiteral("/x/a\n/x/c"));
    EXPECT_EQ(table.mimeData({}), nullptr);
}

TEST_F(ResultList, TwoResultsForTheSameFileAreTwoRows)
{
    const auto first = file("/x/same");
    table.setContent({first, first->copy()});
    EXPECT_EQ(table.rowCount(), 2);
    EXPECT_NE(table.arrangedObjectAt(0), table.arrangedObjectAt(1));
}

TEST(GroupTitles, NameTheKnownGroupsAndCallTheRestUnknown)
{
    const std::pair<int, const char*> cases[] = {
        {1, "Messages"}, {2, "Contacts"},  {3, "Settings"},       {5, "Bookmarks"},     {8, "Applications"},
        {9, "Folders"},  {10, "Music"},    {11, "PDF Documents"}, {14, "Documents"},    {0, "Unknown Type: 0"},
        {4, "Unknown Type: 4"}, {13, "Unknown Type: 13"}, {15, "Unknown Type: 15"},
    };
    for (const auto& [identifier, title] : cases) {
        EXPECT_EQ(groupTitleForIdentifier(identifier), QString::fromUtf8(title)) << identifier;
    }
    EXPECT_EQ(groupKeyForIdentifier(3), QStringLiteral("SYSTEM_PREFS"));
    EXPECT_EQ(groupKeyForIdentifier(7), QStringLiteral("Unknown Type: 7"));
}

TEST(ResultViews, AreTheTableTheGridAndTheCoverFlow)
{
    ResultTableModel table;
    ResultController controller(&table);
    QSignalSpy changed(&controller, &ResultController::selectedTabIndexChanged);
    EXPECT_EQ(controller.selectedTabIndex(), ResultController::TableView);
    controller.setSelectedTabIndex(ResultController::CoverFlowView);
    controller.setSelectedTabIndex(3);
    controller.setSelectedTabIndex(-1);
    EXPECT_EQ(controller.selectedTabIndex(), 2);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(controller.arrayController(), &table);
}

}  // namespace
}  // namespace trovara::query
