// The search window: the Start/Stop item and its states, the status line and
// busy indicator, the filter field and its menu, the cap alert as a sheet,
// opening results (and results whose files have gone), row heights, saving,
// the template sheet, and the keyboard: every control named and reached by
// Tab, and the flows a person without a mouse uses.
#include "document/template_item.h"
#include "focus_walk.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widget_test_support.h"
#include "widgets/busy_indicator.h"
#include "widgets/cover_flow_view.h"
#include "widgets/filter_field.h"
#include "widgets/message_bar.h"
#include "widgets/path_bar.h"
#include "widgets/result_grid_view.h"
#include "widgets/result_table_view.h"
#include "widgets/template_saver_sheet.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

namespace trovara::test {
namespace {

using widgets::DocumentWindow;

class DocumentWindowTest : public WidgetTest {
protected:
    query::MetadataQueryController* controller(DocumentWindow* window)
    {
        return window->document().metadataQueryController();
    }
    query::ResultTableModel* results(DocumentWindow* window) { return controller(window)->results(); }

    void activate(DocumentWindow* window)
    {
        window->show();
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    }

    // Moves through an open menu with the arrow keys until `target` is the
    // highlighted item; false when it never comes.
    static bool arrowTo(QMenu* menu, QAction* target)
    {
        for (int step = 0; step < 2 * menu->actions().size() + 2; ++step) {
            if (menu->activeAction() == target) {
                return true;
            }
            QTest::keyClick(menu, Qt::Key_Down);
        }
        return menu->activeAction() == target;
    }

    // Alt+F: the File menu, open as a popup.
    static QMenu* openFileMenu(DocumentWindow* window)
    {
        QTest::keyClick(window, Qt::Key_F, Qt::AltModifier);
        return qobject_cast<QMenu*>(QApplication::activePopupWidget());
    }

    static QAction* fileMenuItem(QMenu* file, const QString& text)
    {
        for (QAction* action : file->actions()) {
            if (action->text() == text) {
                return action;
            }
        }
        return nullptr;
    }
};

TEST_F(DocumentWindowTest, StartStopTakesItsLabelTipAndStateFromTheSearch)
{
    DocumentWindow* window = newSearchWindow();
    QAction* item = window->startStopAction();
    // A new search has no criteria: nothing to start.
    EXPECT_EQ(item->text(), "Start");
    EXPECT_EQ(item->toolTip(), "Start Query");
    EXPECT_FALSE(item->isEnabled());
    EXPECT_FALSE(window->startAction()->isEnabled());
    EXPECT_FALSE(window->stopAction()->isEnabled());

    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    EXPECT_TRUE(item->isEnabled());
    EXPECT_TRUE(window->startAction()->isEnabled());

    item->trigger();
    EXPECT_EQ(item->text(), "Stop");
    EXPECT_EQ(item->toolTip(), "Stop Query");
    EXPECT_TRUE(item->isEnabled());
    EXPECT_FALSE(window->startAction()->isEnabled());
    EXPECT_TRUE(window->stopAction()->isEnabled());
    ASSERT_TRUE(waitFor([&] { return isSettled(window->document()) && !controller(window)->isGathering(); }));
    EXPECT_EQ(window->statusLabel()->text(), "6 files found");
    EXPECT_FALSE(window->busyIndicator()->isAnimating());

    item->trigger();
    EXPECT_EQ(item->text(), "Start");
    EXPECT_EQ(window->statusLabel()->text(), "Results");
    EXPECT_EQ(results(window)->rowCount(), 0);

    // Criteria emptied again: the running search stops and Start goes grey.
    item->trigger();
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QString());
    EXPECT_FALSE(window->document().isQueryAlive());
    EXPECT_FALSE(item->isEnabled());
}

TEST_F(DocumentWindowTest, TheFilterFieldOffersTheFourKindsAndNarrowsTheResults)
{
    DocumentWindow* window = newSearchWindow();
    widgets::FilterField* field = window->filterField();
    QStringList titles;
    QList<int> tags;
    for (QAction* action : field->filterMenu()->actions()) {
        titles << action->text();
        tags << action->data().toInt();
    }
    EXPECT_EQ(field->filterMenu()->title(), "Filter Menu");
    EXPECT_EQ(titles, QStringList({"Filter by Name", "Exclude by Name", "Filter by Path", "Exclude by Path"}));
    EXPECT_EQ(tags, QList<int>({100, 200, 300, 400}));
    EXPECT_EQ(field->placeholderText(), "Filter by Name");
    EXPECT_TRUE(field->filterMenu()->actions()[0]->isChecked());

    searchNames(window, QStringLiteral("report"));
    QTest::keyClicks(field, QStringLiteral("3"));
    EXPECT_EQ(controller(window)->filterString(), "3");
    EXPECT_EQ(results(window)->rowCount(), 1);
    EXPECT_EQ(window->statusLabel()->text(), "1 of 6 shown");

    field->filterMenu()->actions()[1]->trigger();  // Exclude by Name
    EXPECT_EQ(controller(window)->filterType(), 200);
    EXPECT_EQ(field->placeholderText(), "Exclude by Name");
    EXPECT_TRUE(field->filterMenu()->actions()[1]->isChecked());
    EXPECT_FALSE(field->filterMenu()->actions()[0]->isChecked());
    EXPECT_EQ(results(window)->rowCount(), 5);

    // Stopping the search clears the filter text in the field too.
    window->document().stopQuery();
    EXPECT_TRUE(field->text().isEmpty());
}

TEST_F(DocumentWindowTest, TheThreeViewsShowTheSameResultsWithOneSelection)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    ASSERT_EQ(results(window)->rowCount(), 6);
    EXPECT_EQ(window->tableView()->model(), results(window));
    EXPECT_EQ(window->gridView()->model(), results(window));
    EXPECT_EQ(window->tableView()->selectionModel(), results(window)->selectionModel());
    EXPECT_EQ(window->gridView()->selectionModel(), results(window)->selectionModel());

    window->selectResultsView(2);
    auto* stack = qobject_cast<QStackedWidget*>(window->coverFlowView()->parentWidget());
    ASSERT_NE(stack, nullptr);
    EXPECT_EQ(stack->currentWidget(), window->coverFlowView());
    EXPECT_TRUE(window->viewAction(2)->isChecked());
    EXPECT_EQ(controller(window)->resultController()->selectedTabIndex(), 2);

    results(window)->setSelectionIndex(3);
    EXPECT_EQ(window->coverFlowView()->currentRow(), 3);
    QTest::keyClick(window->coverFlowView(), Qt::Key_Right);
    EXPECT_EQ(window->coverFlowView()->currentRow(), 4);
    EXPECT_EQ(window->tableView()->selectionModel()->selectedRows().front().row(), 4);
    QTest::keyClick(window->coverFlowView(), Qt::Key_Home);
    EXPECT_EQ(results(window)->selectedObject(), results(window)->arrangedObjectAt(0));
    QTest::keyClick(window->coverFlowView(), Qt::Key_Left);  // already at the first
    EXPECT_EQ(window->coverFlowView()->currentRow(), 0);

    // The path bar names the selected result, folder by folder.
    const QString selected = results(window)->selectedObject()->path();
    EXPECT_EQ(window->pathBar()->path(), selected);
    EXPECT_EQ(window->pathBar()->componentPaths().back(), selected);
    EXPECT_EQ(window->pathBar()->componentPaths().front(), "/");
    window->pathBar()->buttonAt(static_cast<int>(window->pathBar()->componentPaths().size()) - 2)->click();
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened.back(), QUrl::fromLocalFile(treePath("docs")));

    // The view chosen is what the saved search remembers.
    const QString file = QString::fromStdString(outside) + QStringLiteral("/views.trova");
    ASSERT_TRUE(window->saveDocumentAs(file));
    EXPECT_EQ(window->document().metaAttributeText(QStringLiteral("resultsView")), "2");
}

TEST_F(DocumentWindowTest, ReachingTheResultCapShowsTheAlertAsASheetAndStops)
{
    DocumentWindow* window = newSearchWindow();
    controller(window)->setResultCapForTesting(3);
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    window->document().startQuery();
    ASSERT_TRUE(waitFor([&] { return window->openAlert() != nullptr; }, "the alert"));
    auto* box = qobject_cast<QMessageBox*>(window->openAlert());
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->parentWidget(), window);
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(box->text(), "Your query produced more than 3 matches");
    EXPECT_EQ(box->informativeText(), "Please refine your criteria");
    ASSERT_EQ(box->buttons().size(), 1);
    EXPECT_EQ(box->buttons().front()->text(), "OK");
    EXPECT_FALSE(window->document().isQueryAlive());
    box->buttons().front()->click();
    EXPECT_TRUE(waitFor([&] { return window->openAlert() == nullptr; }, "the alert to close"));
    EXPECT_FALSE(window->document().isQueryAlive());
    EXPECT_EQ(window->startStopAction()->text(), "Start");
}

TEST_F(DocumentWindowTest, OpeningResultsUsesTheDefaultApplicationAndReportsFilesThatWentAway)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    const query::ResultItem* first = results(window)->arrangedObjectAt(0);
    activate(window);
    const QRect cell = window->tableView()->visualRect(results(window)->index(0, 0));
    // A double click as the window system delivers it: a click, then the
    // second press as a double click.
    QTest::mouseClick(window->tableView()->viewport(), Qt::LeftButton, {}, cell.center());
    EXPECT_TRUE(opened.empty());
    QTest::mouseDClick(window->tableView()->viewport(), Qt::LeftButton, {}, cell.center());
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened.back(), first->pathURL());

    // Return in the grid opens the current result.
    window->selectResultsView(1);
    results(window)->setSelectionIndex(2);
    QTest::keyClick(window->gridView(), Qt::Key_Return);
    ASSERT_EQ(opened.size(), 2u);
    EXPECT_EQ(opened.back(), results(window)->arrangedObjectAt(2)->pathURL());

    // A result deleted under the selection: said in the window, nothing opened.
    results(window)->setSelectionIndex(1);
    const QString gone = results(window)->selectedObject()->path();
    const QString goneName = results(window)->selectedObject()->displayName();
    ASSERT_TRUE(QFile::remove(gone));
    window->openSelectedResults();
    EXPECT_EQ(opened.size(), 2u);
    EXPECT_TRUE(window->messageBar()->isVisible());
    EXPECT_TRUE(window->messageBar()->text().contains(goneName)) << window->messageBar()->text().toStdString();
    // The window goes on: once the index hears of it, the live search drops
    // the result and the path bar follows.
    apply({{index::PathChange::Kind::Removed, gone.toStdString()}});
    EXPECT_TRUE(waitFor([&] { return results(window)->rowCount() == 5; }, "the deleted result to go"));
    EXPECT_NE(window->pathBar()->path(), gone);
    window->pathBar()->setPath(gone);
    window->pathBar()->buttonAt(static_cast<int>(window->pathBar()->componentPaths().size()) - 1)->click();
    EXPECT_EQ(opened.size(), 2u);
}

TEST_F(DocumentWindowTest, RowHeightStaysBetweenThirteenAndTwentyFourAndBeepsOutside)
{
    DocumentWindow* window = newSearchWindow();
    int beeps = 0;
    window->setBeeper([&] { ++beeps; });
    model::Defaults::shared().setValue(QStringLiteral("resultTableRowHeight"), 23.0);
    results(window)->applyRowHeightPreference();
    const int before = window->tableView()->verticalHeader()->defaultSectionSize();
    window->increaseRowHeight();
    EXPECT_EQ(results(window)->rowHeight(), 24);
    EXPECT_GT(window->tableView()->verticalHeader()->defaultSectionSize(), before);
    window->increaseRowHeight();
    EXPECT_EQ(beeps, 1);
    EXPECT_EQ(model::Defaults::shared().doubleValue(QStringLiteral("resultTableRowHeight")), 24);

    model::Defaults::shared().setValue(QStringLiteral("resultTableRowHeight"), 13.0);
    results(window)->applyRowHeightPreference();
    window->decreaseRowHeight();
    EXPECT_EQ(beeps, 2);
    EXPECT_EQ(results(window)->rowHeight(), 13);
}

TEST_F(DocumentWindowTest, SaveAsTemplateWritesACopyAndKeepsAnOldTemplateUnlessReplaced)
{
    DocumentWindow* window = newSearchWindow();
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    widgets::TemplateSaverSheet* sheet = window->templateSaverSheet();
    EXPECT_EQ(sheet->parentWidget(), window);
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    sheet->nameField()->setCurrentText(QStringLiteral("Reports: all/any"));
    sheet->okSheet();
    const QString path = document::templateFolder() + QStringLiteral("/Reports- all-any.trova");
    EXPECT_EQ(sheet->savedPath(), path);
    ASSERT_TRUE(QFile::exists(path));
    // The document keeps its own (lack of a) file.
    EXPECT_TRUE(window->document().fileURL().isEmpty());

    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray original = file.readAll();
    file.close();

    // The same name again, and the person keeps the old one: the sheet stays.
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("notes"));
    QString asked;
    sheet->setReplacePrompt([&](QWidget*, const QString& existing) {
        asked = existing;
        return false;
    });
    sheet->open();
    sheet->nameField()->setCurrentText(QStringLiteral("Reports: all/any"));
    sheet->okSheet();
    EXPECT_EQ(asked, path);
    EXPECT_TRUE(sheet->isVisible());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), original);
    file.close();
    sheet->cancelSheet();
    EXPECT_FALSE(sheet->isVisible());

    // The template menu offers it.
    application().refreshTemplateMenu();
    QAction* item = application().templateMenu()->findChild<QAction*>(QStringLiteral("template_0"));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->text(), "Reports- all-any");
}

TEST_F(DocumentWindowTest, TheTemplateSheetAndTheTemplateMenuWorkWithTheKeyboardAlone)
{
    DocumentWindow* window = newSearchWindow();
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    activate(window);

    // File > Save as Template…: arrows and Enter open the sheet.
    QMenu* file = openFileMenu(window);
    ASSERT_NE(file, nullptr) << "Alt+F opened no menu";
    ASSERT_TRUE(arrowTo(file, fileMenuItem(file, QStringLiteral("Save as Template…"))));
    QTest::keyClick(file, Qt::Key_Return);
    widgets::TemplateSaverSheet* sheet = window->templateSaverSheet();
    ASSERT_TRUE(QTest::qWaitForWindowActive(sheet));
    // The name field has the focus, its text selected for typing over.
    ASSERT_TRUE(waitFor([&] { return sheet->nameField()->hasFocus(); }, "the name field to take the focus"))
        << QApplication::focusWidget()->metaObject()->className() << " in "
        << QApplication::focusWidget()->window()->metaObject()->className();
    EXPECT_EQ(sheet->nameField()->lineEdit()->selectedText(), sheet->nameField()->currentText());
    const FocusWalk walk = walkFocus(sheet);
    EXPECT_FALSE(walk.endless);
    EXPECT_TRUE(walk.unnamed.isEmpty()) << walk.unnamed.join(", ").toStdString();
    EXPECT_TRUE(walk.unreached.isEmpty()) << walk.unreached.join(", ").toStdString();
    EXPECT_EQ(walk.forward.size(), 3u);  // the name, OK, Cancel

    // Escape leaves without saving.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
    EXPECT_FALSE(sheet->isVisible());
    const QString path = document::templateFolder() + QStringLiteral("/Typed Reports.trova");
    EXPECT_FALSE(QFile::exists(path));

    // Again, a name typed and Enter: saved, and the sheet gone.
    activate(window);
    file = openFileMenu(window);
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(arrowTo(file, fileMenuItem(file, QStringLiteral("Save as Template…"))));
    QTest::keyClick(file, Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitForWindowActive(sheet));
    ASSERT_TRUE(waitFor([&] { return sheet->nameField()->hasFocus(); }, "the name field to take the focus"));
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("Typed Reports"));
    EXPECT_EQ(sheet->nameField()->currentText(), QStringLiteral("Typed Reports"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    EXPECT_FALSE(sheet->isVisible());
    ASSERT_TRUE(QFile::exists(path));
    EXPECT_EQ(sheet->savedPath(), path);

    // File > New from Template > the template: Right opens the submenu,
    // Enter a new search from the template.
    activate(window);
    file = openFileMenu(window);
    ASSERT_NE(file, nullptr);
    QMenu* templates = application().templateMenu();
    ASSERT_TRUE(arrowTo(file, templates->menuAction()));
    QTest::keyClick(file, Qt::Key_Right);
    ASSERT_EQ(QApplication::activePopupWidget(), templates);
    QAction* typed = nullptr;
    for (QAction* action : templates->actions()) {
        if (action->text() == QStringLiteral("Typed Reports")) {
            typed = action;
        }
    }
    ASSERT_NE(typed, nullptr);
    ASSERT_TRUE(arrowTo(templates, typed));
    const std::size_t before = application().windows().size();
    QTest::keyClick(templates, Qt::Key_Return);
    ASSERT_EQ(application().windows().size(), before + 1);
    EXPECT_EQ(application().windows().back()->document().templateName(), QStringLiteral("Typed Reports"));
}

TEST_F(DocumentWindowTest, EveryControlIsNamedAndReachedByTabInEitherDirection)
{
    DocumentWindow* window = newSearchWindow();
    searchNames(window, QStringLiteral("report"));
    results(window)->setSelectionIndex(0);
    for (int view : {0, 1, 2}) {
        window->selectResultsView(view);
        activate(window);
        window->focusOnResults();
        const FocusWalk walk = walkFocus(window);
        EXPECT_FALSE(walk.endless) << "view " << view;
        EXPECT_TRUE(walk.unnamed.isEmpty()) << "view " << view << ": " << walk.unnamed.join(", ").toStdString();
        EXPECT_TRUE(walk.unreached.isEmpty()) << "view " << view << ": " << walk.unreached.join(", ").toStdString();
        EXPECT_GE(walk.forward.size(), 3u) << "view " << view;
        EXPECT_EQ(walk.forward.size(), walk.backward.size() + 1) << "view " << view;
    }
}

TEST_F(DocumentWindowTest, TheKeyboardAloneSearchesSwitchesViewsAndOpensAResult)
{
    DocumentWindow* window = newSearchWindow();
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), QStringLiteral("report"));
    activate(window);
    // Start (Ctrl+R): the results take the focus.
    QTest::keyClick(window, Qt::Key_R, Qt::ControlModifier);
    ASSERT_TRUE(window->document().isQueryAlive());
    ASSERT_TRUE(waitFor([&] { return isSettled(window->document()) && results(window)->rowCount() == 6; }));
    EXPECT_EQ(QApplication::focusWidget(), window->tableView());

    // Ctrl+2: the grid, with the focus.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_2, Qt::ControlModifier);
    EXPECT_EQ(window->selectedResultsView(), 1);
    EXPECT_EQ(QApplication::focusWidget(), window->gridView());
    // Ctrl+3 and Right: the cover flow moves on.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_3, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), window->coverFlowView());
    const int row = window->coverFlowView()->currentRow();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right);
    EXPECT_EQ(window->coverFlowView()->currentRow(), row + 1);
    // Enter opens it.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Enter);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened.back(), results(window)->arrangedObjectAt(row + 1)->pathURL());

    // Ctrl+F goes to the filter field; Ctrl+Shift+R back to the results.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), window->filterField());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(QApplication::focusWidget(), window->coverFlowView());
    // Ctrl+1 and Ctrl+Down open from the table too.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_1, Qt::ControlModifier);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(opened.size(), 2u);
}

}  // namespace
}  // namespace trovara::test
