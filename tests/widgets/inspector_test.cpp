// The panels: the base (menu titles, binding to the active document while
// open, "<ClassName>Active" at quit and re-opening at launch), the metadata
// inspector (rows of the selected result, copy, links) and the query
// inspector.
#include "common/paths.h"
#include "focus_walk.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widget_test_support.h"
#include "widgets/inspector_controller.h"
#include "widgets/query_inspector_controller.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QClipboard>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>
#include <QTextBrowser>

namespace trovara::test {
namespace {

using widgets::DocumentWindow;
using widgets::InspectorController;
using widgets::QueryInspectorController;

class InspectorTest : public WidgetTest {
protected:
    // Selects rows of the inspector's table, by their labels.
    static void chooseRows(InspectorController& inspector, const QStringList& labels)
    {
        QItemSelectionModel* selection = inspector.inspectorTable()->selectionModel();
        selection->clear();
        for (int row = 0; row < inspector.rowsModel()->rowCount(); ++row) {
            if (labels.contains(inspector.rowsModel()->label(row))) {
                selection->select(inspector.rowsModel()->index(row, 0),
                                  QItemSelectionModel::Select | QItemSelectionModel::Rows);
            }
        }
    }
};

TEST_F(InspectorTest, TheInspectorListsTheSelectedResultsAttributesByLabel)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    InspectorController& inspector = *application().inspector();
    ModelTesterWarnings warnings;
    QAbstractItemModelTester tester(inspector.rowsModel(), QAbstractItemModelTester::FailureReportingMode::Warning);
    inspector.activateInspectorPanel();
    EXPECT_EQ(inspector.content(), &window->document());

    query::ResultTableModel* results = window->document().metadataQueryController()->results();
    results->setSelectionIndex(0);
    const query::ResultItem* item = results->selectedObject();
    ASSERT_GT(inspector.rowsModel()->rowCount(), 3);
    QStringList labels;
    QString name;
    for (int row = 0; row < inspector.rowsModel()->rowCount(); ++row) {
        labels << inspector.rowsModel()->label(row);
        if (inspector.rowsModel()->index(row, 0).data(widgets::InspectorRowsModel::KeyRole).toString()
            == "kMDItemDisplayName") {
            name = inspector.rowsModel()->value(row);
        }
    }
    QStringList sorted = labels;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(labels, sorted);
    EXPECT_EQ(name, item->displayName());

    // One row chosen: its whole value below the table.
    chooseRows(inspector, {labels.front()});
    EXPECT_EQ(inspector.valueView()->toPlainText(), inspector.rowsModel()->value(0));

    // Several results selected: no rows.
    results->selectionModel()->select(results->index(1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    EXPECT_EQ(inspector.rowsModel()->rowCount(), 0);
    EXPECT_TRUE(inspector.valueView()->toPlainText().isEmpty());
    results->setSelectionIndex(2);
    EXPECT_GT(inspector.rowsModel()->rowCount(), 0);
    EXPECT_TRUE(warnings.messages.isEmpty()) << warnings.messages.join('\n').toStdString();
}

TEST_F(InspectorTest, CopyGivesTheValueOfOneRowOrLabelTabValueLinesForSeveral)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    InspectorController& inspector = *application().inspector();
    inspector.activateInspectorPanel();
    ASSERT_TRUE(QTest::qWaitForWindowActive(inspector.window()));
    window->document().metadataQueryController()->results()->setSelectionIndex(0);
    ASSERT_GE(inspector.rowsModel()->rowCount(), 2);
    const QString firstLabel = inspector.rowsModel()->label(0);
    const QString firstValue = inspector.rowsModel()->value(0);
    const QString secondLabel = inspector.rowsModel()->label(1);
    const QString secondValue = inspector.rowsModel()->value(1);

    chooseRows(inspector, {firstLabel});
    inspector.copy();
    EXPECT_EQ(QApplication::clipboard()->text(), firstValue);

    chooseRows(inspector, {firstLabel, secondLabel});
    inspector.copy();
    EXPECT_EQ(QApplication::clipboard()->text(),
              firstLabel + "\t" + firstValue + "\n" + secondLabel + "\t" + secondValue);

    chooseRows(inspector, {});
    EXPECT_EQ(inspector.copyText(), "");
    // Ctrl+C in the table copies the same way.
    chooseRows(inspector, {secondLabel});
    inspector.inspectorTable()->setFocus();
    QTest::keyClick(inspector.inspectorTable(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text(), secondValue);
}

TEST_F(InspectorTest, LinksOpenOnAClickOnTheirTextOnly)
{
    QStandardItemModel model(1, 1);
    model.setItem(0, 0, new QStandardItem(QStringLiteral("https://example.org/a,b and more")));
    QTableView view;
    widgets::InspectorValueDelegate delegate;
    std::vector<QUrl> links;
    delegate.setLinkOpener([&](const QUrl& url) { links.push_back(url); });
    view.setModel(&model);
    view.setItemDelegate(&delegate);
    view.resize(600, 200);
    view.setColumnWidth(0, 500);
    view.show();
    const QRect cell = view.visualRect(model.index(0, 0));
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, cell.topLeft() + QPoint(8, cell.height() / 2));
    ASSERT_EQ(links.size(), 1u);
    EXPECT_EQ(links.front(), QUrl(QStringLiteral("https://example.org/a")));
    // Beyond the end of the text: no link.
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, QPoint(cell.right() - 2, cell.center().y()));
    EXPECT_EQ(links.size(), 1u);
    // A value that does not begin with a link (or in capitals) opens nothing.
    model.setItem(0, 0, new QStandardItem(QStringLiteral("HTTPS://example.org")));
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, cell.topLeft() + QPoint(8, cell.height() / 2));
    EXPECT_EQ(links.size(), 1u);
    view.grab();
}

TEST_F(InspectorTest, PanelsFollowTheActiveDocumentWhileOpenAndReleaseItWhenClosed)
{
    InspectorController& inspector = *application().inspector();
    EXPECT_EQ(inspector.menuTitle(), "Show Inspector");
    EXPECT_EQ(application().queryInspector()->menuTitle(), "Show Query Inspector");
    DocumentWindow* first = newSearchWindow();
    EXPECT_EQ(inspector.activeDocument(), &first->document());
    EXPECT_EQ(inspector.content(), nullptr);  // closed: bound to nothing

    inspector.activateInspectorPanel();
    ASSERT_TRUE(QTest::qWaitForWindowActive(inspector.window()));
    EXPECT_EQ(inspector.menuTitle(), "Hide Inspector");
    EXPECT_EQ(inspector.content(), &first->document());
    EXPECT_EQ(application().actions().panels.front()->text(), "Hide Inspector");

    DocumentWindow* second = newSearchWindow();
    second->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(second));
    EXPECT_EQ(application().activeDocument(), &second->document());
    EXPECT_EQ(inspector.content(), &second->document());
    // Open behind a document window: it offers Show, which brings it forward.
    EXPECT_EQ(inspector.menuTitle(), "Show Inspector");

    inspector.toggleInspectorPanel();
    ASSERT_TRUE(QTest::qWaitForWindowActive(inspector.window()));
    inspector.toggleInspectorPanel();
    EXPECT_FALSE(inspector.window()->isVisible());
    EXPECT_EQ(inspector.content(), nullptr);

    // Escape hides an open panel.
    inspector.activateInspectorPanel();
    ASSERT_TRUE(QTest::qWaitForWindowActive(inspector.window()));
    QTest::keyClick(inspector.inspectorTable(), Qt::Key_Escape);
    EXPECT_FALSE(inspector.window()->isVisible());
}

TEST_F(InspectorTest, APanelOpenAtQuitOpensAgainAtTheNextLaunch)
{
    {
        InspectorController inspector;
        EXPECT_EQ(inspector.activeDefaultsKey(), "InspectorControllerActive");
        inspector.activateInspectorPanel();
        inspector.applicationWillTerminate();
        EXPECT_TRUE(model::Defaults::shared().boolValue(QStringLiteral("InspectorControllerActive")));
        QueryInspectorController query;
        query.applicationWillTerminate();
        EXPECT_FALSE(model::Defaults::shared().boolValue(QStringLiteral("QueryInspectorControllerActive")));
    }
    InspectorController relaunched;
    EXPECT_FALSE(relaunched.isWindowLoaded());  // not before the next turn
    ASSERT_TRUE(waitFor([&] { return relaunched.isWindowVisible(); }, "the inspector to open"));
    QueryInspectorController closed;
    QCoreApplication::processEvents();
    EXPECT_FALSE(closed.isWindowLoaded());
    relaunched.window()->close();
    relaunched.applicationWillTerminate();
    EXPECT_FALSE(model::Defaults::shared().boolValue(QStringLiteral("InspectorControllerActive")));
}

TEST_F(InspectorTest, BothPanelsOpenFromTheKeyboardAndEveryControlIsNamedAndReachedByTab)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    window->document().metadataQueryController()->results()->setSelectionIndex(0);
    const auto walkOpenedBy = [&](QWidget* panel, Qt::KeyboardModifiers modifiers, const char* what) {
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window)) << what;
        QTest::keyClick(window, Qt::Key_I, modifiers);
        ASSERT_TRUE(QTest::qWaitForWindowActive(panel)) << what;
        const FocusWalk walk = walkFocus(panel);
        EXPECT_FALSE(walk.endless) << what;
        EXPECT_FALSE(walk.forward.empty()) << what;
        EXPECT_TRUE(walk.unnamed.isEmpty()) << what << ": " << walk.unnamed.join(", ").toStdString();
        EXPECT_TRUE(walk.unreached.isEmpty()) << what << ": " << walk.unreached.join(", ").toStdString();
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : panel, Qt::Key_Escape);
        EXPECT_FALSE(panel->isVisible()) << what;
    };
    walkOpenedBy(application().inspector()->window(), Qt::ControlModifier, "inspector");
    walkOpenedBy(application().queryInspector()->window(), Qt::ControlModifier | Qt::AltModifier, "query inspector");
}

TEST_F(InspectorTest, TheQueryInspectorShowsTheQueryPlacesLimitAndState)
{
    DocumentWindow* window = newSearchWindow();
    QueryInspectorController& panel = *application().queryInspector();
    panel.activateInspectorPanel();
    ASSERT_EQ(panel.content(), &window->document());
    EXPECT_EQ(panel.queryText(), "");
    EXPECT_EQ(panel.placesText(), abbreviateWithTilde(QString::fromStdString(root)));
    EXPECT_EQ(panel.exclusionsText(), "None");
    // A new search keeps the 1000 most recently used.
    EXPECT_TRUE(panel.limitText().startsWith("The 1000 latest by ")) << panel.limitText().toStdString();
    EXPECT_TRUE(panel.stateText().startsWith("Stopped"));

    searchNames(window, QStringLiteral("report"));
    EXPECT_EQ(panel.queryText(), window->document().metadataQueryController()->queryString());
    EXPECT_TRUE(panel.queryText().contains("kMDItemDisplayName")) << panel.queryText().toStdString();
    EXPECT_EQ(panel.stateText(), "Live — 6 files found");
    auto* shown = panel.window()->findChild<QPlainTextEdit*>();
    ASSERT_NE(shown, nullptr);
    EXPECT_EQ(shown->toPlainText(), panel.queryText());

    window->document().metadataQueryController()->setLimitValue(0);
    EXPECT_EQ(panel.limitText(), "No limit");
    window->document().metadataQueryController()->setLimitValue(10);
    window->document().metadataQueryController()->setLimitAscending(true);
    EXPECT_TRUE(panel.limitText().startsWith("The 10 earliest by ")) << panel.limitText().toStdString();
    window->document().stopQuery();
    EXPECT_TRUE(panel.stateText().startsWith("Stopped"));
}

}  // namespace
}  // namespace trovara::test
