// The result views: the table's columns (menu, header, corner, widths,
// order, sorting), "More Columns…", the grid's zoom, the cover flow, and the
// models under QAbstractItemModelTester while a live search changes them.
#include "model/abstract_attribute.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widget_test_support.h"
#include "widgets/attribute_selection_sheet.h"
#include "widgets/cover_flow_view.h"
#include "widgets/filter_field.h"
#include "widgets/result_grid_view.h"
#include "widgets/result_table_view.h"
#include "widgets/rule_editors_panel.h"

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QTest>
#include <QTreeWidget>

namespace trovara::test {
namespace {

using widgets::DocumentWindow;

class ResultViewsTest : public WidgetTest {
protected:
    query::ResultTableModel* results(DocumentWindow* window)
    {
        return window->document().metadataQueryController()->results();
    }

    static QStringList menuTitles(QMenu& menu)
    {
        QStringList titles;
        for (QAction* action : menu.actions()) {
            titles << (action->isSeparator() ? QStringLiteral("-")
                                             : action->text() + (action->isChecked() ? QStringLiteral(" ✓") : QString()));
        }
        return titles;
    }

    static QStringList columnKeys(query::ResultTableModel* model)
    {
        QStringList keys;
        for (const auto& column : model->columns()) {
            keys << column.identifier;
        }
        return keys;
    }
};

TEST_F(ResultViewsTest, TheColumnMenuListsTheDocumentsColumnsAndHidesAndShowsThem)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    widgets::ResultTableView* table = window->tableView();
    const QStringList shown = columnKeys(results(window));
    ASSERT_FALSE(shown.isEmpty());
    EXPECT_EQ(table->horizontalHeader()->count(), shown.size());

    QMenu menu;
    table->fillColumnConfigurationMenu(&menu);
    const QStringList titles = menuTitles(menu);
    EXPECT_EQ(titles.front(), "Auto-size all Columns");
    EXPECT_EQ(titles[1], "-");
    EXPECT_EQ(titles.back(), "More Columns…");
    EXPECT_EQ(titles[titles.size() - 2], "-");
    // One item per column the document knows; the shown ones checked.
    int checked = 0;
    for (QAction* action : menu.actions()) {
        checked += action->isChecked() ? 1 : 0;
    }
    EXPECT_EQ(checked, shown.size());

    // Hiding the name column through the menu removes it from the table.
    const QString nameTitle = model::ColumnAttribute::nameForKey(QStringLiteral("kMDItemDisplayName"));
    for (QAction* action : menu.actions()) {
        if (action->text() == nameTitle) {
            action->trigger();
        }
    }
    EXPECT_EQ(results(window)->columnForIdentifier(QStringLiteral("kMDItemDisplayName")), -1);
    EXPECT_EQ(table->horizontalHeader()->count(), shown.size() - 1);
    // Showing it again puts it at the right end, checked in the next menu.
    table->fillColumnConfigurationMenu(&menu);
    for (QAction* action : menu.actions()) {
        if (action->text() == nameTitle) {
            EXPECT_FALSE(action->isChecked());
            action->trigger();
        }
    }
    EXPECT_EQ(columnKeys(results(window)).back(), "kMDItemDisplayName");
    EXPECT_EQ(table->horizontalHeader()->count(), shown.size());

    // The corner view and the View menu carry the same menu.
    EXPECT_FALSE(table->cornerView()->accessibleName().isEmpty());
    EXPECT_EQ(table->cornerView()->focusPolicy(), Qt::NoFocus);
}

TEST_F(ResultViewsTest, WidthsAndOrderGoToTheModelSoTheDocumentSavesThem)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    widgets::ResultTableView* table = window->tableView();
    query::ResultTableModel* model = results(window);
    ASSERT_GE(model->columnCount(), 2);
    // Every column was sized (a new document stores no widths).
    for (int column = 0; column < model->columnCount(); ++column) {
        EXPECT_GE(model->headerData(column, Qt::Horizontal, query::ResultTableModel::ColumnWidthRole).toDouble(),
                  model->headerData(column, Qt::Horizontal, query::ResultTableModel::MinimumWidthRole).toDouble());
    }

    table->horizontalHeader()->resizeSection(1, 222);
    EXPECT_EQ(model->headerData(1, Qt::Horizontal, query::ResultTableModel::ColumnWidthRole).toDouble(), 222);

    // Dragging a column moves it in the model; the header shows the model's order.
    const QStringList before = columnKeys(model);
    table->horizontalHeader()->moveSection(0, 1);
    const QStringList after = columnKeys(model);
    EXPECT_EQ(after[0], before[1]);
    EXPECT_EQ(after[1], before[0]);
    for (int column = 0; column < model->columnCount(); ++column) {
        EXPECT_EQ(table->horizontalHeader()->logicalIndex(column), column);
    }

    // A width the model is given shows in the header.
    model->setColumnWidth(0, 180);
    EXPECT_EQ(table->horizontalHeader()->sectionSize(0), 180);
}

TEST_F(ResultViewsTest, TheLastColumnFillsTheTableWhileTheOthersStayResizable)
{
    DocumentWindow* window = newSearchWindow();
    window->resize(900, 600);
    window->show();
    searchNames(window, QStringLiteral("report"));
    widgets::ResultTableView* table = window->tableView();
    query::ResultTableModel* model = results(window);
    QHeaderView* header = table->horizontalHeader();
    ASSERT_GE(model->columnCount(), 2);
    const int last = header->logicalIndex(header->count() - 1);
    const auto fills = [&] {
        return header->sectionViewportPosition(last) + header->sectionSize(last) == table->viewport()->width();
    };
    const auto storedWidth = [&](int column) {
        return model->headerData(column, Qt::Horizontal, query::ResultTableModel::ColumnWidthRole).toDouble();
    };
    QCoreApplication::processEvents();
    EXPECT_TRUE(header->stretchLastSection());
    EXPECT_TRUE(fills());

    // Every other column is still the person's to size, and the last one
    // gives or takes the difference.
    for (int visual = 0; visual < header->count() - 1; ++visual) {
        EXPECT_EQ(header->sectionResizeMode(header->logicalIndex(visual)), QHeaderView::Interactive);
    }
    const int first = header->logicalIndex(0);
    header->resizeSection(first, header->sectionSize(first) + 40);
    EXPECT_EQ(storedWidth(first), header->sectionSize(first));
    EXPECT_TRUE(fills());

    // A wider window widens the last column, and that width is not taken
    // for one the person chose.
    const double lastStored = storedWidth(last);
    window->resize(1200, 600);
    QCoreApplication::processEvents();
    EXPECT_TRUE(fills());
    EXPECT_EQ(storedWidth(last), lastStored);
}

TEST_F(ResultViewsTest, AClickOnAHeaderSortsByThatColumnAndASecondClickTurnsTheOrder)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    query::ResultTableModel* model = results(window);
    const int name = model->columnForIdentifier(QStringLiteral("kMDItemDisplayName"));
    ASSERT_GE(name, 0);
    QHeaderView* header = window->tableView()->horizontalHeader();
    // A new search sorts by its first column, the name; the header says so.
    ASSERT_FALSE(model->sortDescriptors().empty());
    EXPECT_EQ(header->sortIndicatorSection(), name);
    EXPECT_EQ(header->sortIndicatorOrder(), Qt::AscendingOrder);
    EXPECT_EQ(model->arrangedObjectAt(0)->displayName(), "report 0.txt");

    emit header->sectionClicked(name);
    EXPECT_FALSE(model->sortDescriptors().front().ascending);
    EXPECT_EQ(model->arrangedObjectAt(0)->displayName(), "report 5.txt");
    EXPECT_EQ(header->sortIndicatorOrder(), Qt::DescendingOrder);
    emit header->sectionClicked(name);
    EXPECT_TRUE(model->sortDescriptors().front().ascending);
    EXPECT_EQ(model->arrangedObjectAt(0)->displayName(), "report 0.txt");

    // Another column sorts ascending by that one.
    const int other = name == 0 ? 1 : 0;
    emit header->sectionClicked(other);
    EXPECT_EQ(header->sortIndicatorSection(), other);
    EXPECT_EQ(header->sortIndicatorOrder(), Qt::AscendingOrder);
    EXPECT_EQ(model->sortDescriptors().front().key,
              model->columns()[static_cast<std::size_t>(other)].sortDescriptorPrototype.key);
}

TEST_F(ResultViewsTest, MoreColumnsOpensTheColumnSheetAndAddsTheChosenAttribute)
{
    DocumentWindow* window = newSearchWindow();
    ASSERT_FALSE(columnKeys(results(window)).contains(QStringLiteral("kMDItemFSOwnerUserID")));
    emit window->tableView()->moreColumnsRequested();
    QCoreApplication::processEvents();
    auto* sheet = window->findChild<widgets::AttributeSelectionSheet*>();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->windowTitle(), QStringLiteral("Select column attributes"));
    QTest::keyClicks(sheet->searchField(), QStringLiteral("kMDItemFSOwnerUserID"));
    ASSERT_EQ(sheet->list()->topLevelItemCount(), 1);
    QTest::keyClick(sheet->searchField(), Qt::Key_Down);
    QTest::keyClick(sheet->list(), Qt::Key_Return);
    EXPECT_TRUE(columnKeys(results(window)).contains(QStringLiteral("kMDItemFSOwnerUserID")));
    EXPECT_FALSE(window->ruleEditors()->editors().columnAttributeSelectionController().isSheetOpen());
}

TEST_F(ResultViewsTest, TheGridZoomSetsTheCellSizeAndIsRemembered)
{
    DocumentWindow* window = newSearchWindow();
    widgets::ResultGridView* grid = window->gridView();
    grid->setZoom(0);
    EXPECT_EQ(grid->iconSide(), widgets::ResultGridView::kMinimumSide);
    const QSize small = grid->gridSize();
    grid->setZoom(1);
    EXPECT_EQ(grid->iconSide(), widgets::ResultGridView::kMaximumSide);
    EXPECT_GT(grid->gridSize().width(), small.width());
    EXPECT_EQ(model::Defaults::shared().doubleValue(QStringLiteral("gridZoomValue")), 1.0);
    grid->setZoom(7);  // out of range: the largest
    EXPECT_EQ(grid->zoom(), 1.0);
    // A new window starts at the remembered zoom.
    DocumentWindow* another = newSearchWindow();
    EXPECT_EQ(another->gridView()->zoom(), 1.0);
}

TEST_F(ResultViewsTest, TheCoverFlowFollowsTheSelectionAndFindsCoversByPoint)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    window->selectResultsView(2);
    window->resize(900, 600);
    window->show();
    widgets::CoverFlowView* flow = window->coverFlowView();
    flow->setCurrentRow(2, false);
    EXPECT_EQ(flow->currentRow(), 2);
    EXPECT_EQ(results(window)->selectedObjects().size(), 1u);
    EXPECT_EQ(results(window)->selectedObject(), results(window)->arrangedObjectAt(2));
    // The middle cover is the current one.
    EXPECT_EQ(flow->rowAt(QPoint(flow->width() / 2, flow->height() / 3)), 2);
    QTest::keyClick(flow, Qt::Key_End);
    EXPECT_EQ(flow->currentRow(), 5);
    // The covers come to rest on it.
    EXPECT_TRUE(waitFor([&] { return flow->position() == 5.0; }, "the covers to settle"));
    QTest::keyClick(flow, Qt::Key_Right);  // already the last
    EXPECT_EQ(flow->currentRow(), 5);

    // Results that go (a narrower filter) keep the current row inside the list.
    window->filterField()->setText(QStringLiteral("report 1"));
    EXPECT_EQ(results(window)->rowCount(), 1);
    EXPECT_LT(flow->currentRow(), 1);
    window->filterField()->clear();
    EXPECT_EQ(results(window)->rowCount(), 6);
    QTest::keyClick(flow, Qt::Key_PageDown);
    EXPECT_GE(flow->currentRow(), 0);
    flow->grab();  // paints without trouble
}

TEST_F(ResultViewsTest, TheModelsPassTheModelTesterWhileASearchRunsAndChanges)
{
    DocumentWindow* window = newSearchWindow();
    ModelTesterWarnings warnings;
    QAbstractItemModelTester tester(results(window), QAbstractItemModelTester::FailureReportingMode::Warning);
    searchNames(window, QStringLiteral("report"));
    window->filterField()->setText(QStringLiteral("2"));
    window->filterField()->clear();
    emit window->tableView()->horizontalHeader()->sectionClicked(0);
    // Live changes: a result appears and one goes.
    writeFile(at("docs/report 9.txt"), "new");
    apply({{index::PathChange::Kind::Changed, at("docs/report 9.txt")}});
    EXPECT_TRUE(waitFor([&] { return results(window)->rowCount() == 7; }, "the new result"));
    ::unlink(at("docs/report 0.txt").c_str());
    apply({{index::PathChange::Kind::Removed, at("docs/report 0.txt")}});
    EXPECT_TRUE(waitFor([&] { return results(window)->rowCount() == 6; }, "the removed result to go"));
    window->tableView()->grab();
    window->selectResultsView(1);
    window->gridView()->grab();
    EXPECT_TRUE(warnings.messages.isEmpty()) << warnings.messages.join('\n').toStdString();
}

}  // namespace
}  // namespace trovara::test
