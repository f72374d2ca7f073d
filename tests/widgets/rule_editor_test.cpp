// The rule editors as a person uses them: with the keyboard alone (every
// control reached with Tab, named, and changed with keys), dropping
// folders, and choosing an attribute in the sheet.
#include "document/document.h"
#include "editors/document_editors.h"
#include "model/defaults.h"
#include "model/query_leaf.h"
#include "presentation/column_formatters.h"
#include "query/metadata_query_controller.h"
#include "test_support.h"
#include "widget_test_support.h"
#include "widgets/document_window.h"
#include "widgets/attribute_selection_sheet.h"
#include "widgets/rule_editor.h"
#include "widgets/rule_editors_panel.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QMimeData>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <QUrl>

#include <gtest/gtest.h>

#include <set>

namespace trovara::test {
namespace {

using widgets::RuleEditor;
using widgets::RuleEditorsPanel;

class RuleEditorWidgetTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/rule-editor-test.conf"));
        presentation::installColumnPropertiesChooser();
        document = std::make_unique<document::Document>(source);
        ASSERT_TRUE(document->initWithType().ok());
        document->windowControllerDidLoadNib();
        window = std::make_unique<QWidget>();
        window->resize(900, 600);
        panel = new RuleEditorsPanel(*document, window.get());
        panel->resize(900, 600);
        panel->loadEditors();
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        settle();
    }

    void TearDown() override
    {
        window.reset();
        document.reset();
        settle();
        model::ColumnAttribute::setPropertiesChooser({});
        model::Defaults::resetSharedForTesting();
    }

    static void settle()
    {
        for (int i = 0; i < 4; ++i) {
            QApplication::processEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
    }

    editors::RuleEditorModel& criteria() { return panel->editors().predicateEditor(); }
    QString queryText() const { return document->metadataQueryController()->expression(); }

    // Sends a drop of the paths onto the middle of a line of the editor.
    static bool drop(QWidget* target, const QStringList& paths, QPoint at = {})
    {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString& path : paths) {
            urls << (path.startsWith(QLatin1String("http")) ? QUrl(path) : QUrl::fromLocalFile(path));
        }
        data.setUrls(urls);
        if (at.isNull()) {
            at = QPoint(target->width() / 2, 10);
        }
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(target, &enter);
        if (!enter.isAccepted()) {
            return false;
        }
        QDropEvent dropped(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(target, &dropped);
        return dropped.isAccepted();
    }

    index::NoIndexSource source;
    std::unique_ptr<document::Document> document;
    std::unique_ptr<QWidget> window;
    RuleEditorsPanel* panel = nullptr;
};

TEST_F(RuleEditorWidgetTest, TabReachesEveryControlOfEveryLineAndEachHasAName)
{
    RuleEditor* editor = panel->criteriaEditor();
    ASSERT_EQ(editor->lineCount(), 6);
    editor->focusLine(0);
    settle();
    std::set<QWidget*> reached;
    QWidget* first = QApplication::focusWidget();
    ASSERT_NE(first, nullptr);
    for (int presses = 0; presses < 200; ++presses) {
        QWidget* focused = QApplication::focusWidget();
        ASSERT_NE(focused, nullptr);
        EXPECT_FALSE(focused->accessibleName().isEmpty()) << focused->metaObject()->className();
        if (!reached.insert(focused).second) {
            break;  // round the whole panel
        }
        QTest::keyClick(focused, Qt::Key_Tab);
    }
    // Every pop-up, field and enabled button of every line was reached.
    for (RuleEditor* each : {panel->criteriaEditor(), panel->scopeEditor(), panel->limitEditor()}) {
        for (int row = 0; row < each->lineCount(); ++row) {
            widgets::RuleEditorLine* line = each->line(row);
            for (int position = 0; line->control(position); ++position) {
                QWidget* control = line->control(position);
                QWidget* proxy = control->focusProxy() ? control->focusProxy() : control;
                EXPECT_TRUE(reached.count(proxy)) << each->accessibleName().toStdString() << " line " << row
                                                  << " position " << position;
            }
            if (line->addButton()->isVisible()) {
                EXPECT_TRUE(reached.count(line->addButton()));
            }
        }
    }
    EXPECT_TRUE(reached.count(panel->exclusionDropButton()));
}

TEST_F(RuleEditorWidgetTest, ACriterionIsBuiltWithTheKeyboardAlone)
{
    RuleEditor* editor = panel->criteriaEditor();
    widgets::RuleEditorLine* line = editor->line(1);
    // The operator pop-up: Down picks the next operator.
    QComboBox* comparison = line->popUp(1);
    ASSERT_NE(comparison, nullptr);
    EXPECT_EQ(comparison->accessibleName(), QStringLiteral("Comparison of line 2"));
    comparison->setFocus();
    QTest::keyClick(comparison, Qt::Key_Down);
    EXPECT_EQ(criteria().rowAtIndex(1)->displayValues[1].text, QStringLiteral("is"));
    // Tab into the field and type.
    QTest::keyClick(comparison, Qt::Key_Tab);
    auto* field = qobject_cast<QLineEdit*>(QApplication::focusWidget());
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->accessibleName(), QStringLiteral("Value of line 2"));
    QTest::keyClicks(field, QStringLiteral("report"));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemDisplayName == 'report'c))"));

    // Space on "+" copies the line; the new line takes the focus.
    line->addButton()->setFocus();
    QTest::keyClick(line->addButton(), Qt::Key_Space);
    settle();
    ASSERT_EQ(editor->lineCount(), 7);
    EXPECT_TRUE(editor->line(2)->isAncestorOf(QApplication::focusWidget()));
    EXPECT_EQ(queryText(), QStringLiteral("((kMDItemDisplayName == 'report'c) && (kMDItemDisplayName == 'report'c))"));

    // Ctrl+Down moves the line with the focus down.
    editors::RowPtr moved = criteria().rowAtIndex(2);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down, Qt::ControlModifier);
    settle();
    EXPECT_EQ(criteria().rowForRowDescription(moved.get()), 3);

    // The group pop-up: End picks NONE.
    QComboBox* combination = editor->line(0)->popUp(0);
    combination->setFocus();
    QTest::keyClick(combination, Qt::Key_End);
    EXPECT_TRUE(queryText().startsWith(QStringLiteral("! ( (")));

    // Space on "−" removes the line.
    QTest::keyClick(editor->line(3)->removeButton(), Qt::Key_Space);
    settle();
    EXPECT_EQ(editor->lineCount(), 6);
}

// The line of the editor holding the widget, or -1.
int rowOfWidget(QWidget* widget)
{
    for (; widget; widget = widget->parentWidget()) {
        if (auto* line = qobject_cast<widgets::RuleEditorLine*>(widget)) {
            return line->row();
        }
    }
    return -1;
}

TEST_F(RuleEditorWidgetTest, LinesAreDraggedByTheirGripAndDroppedBeforeOrAfterOthers)
{
    RuleEditor* editor = panel->criteriaEditor();
    const editors::RowPtr name = criteria().rowAtIndex(1);
    const editors::RowPtr third = criteria().rowAtIndex(3);
    // Drags the grip of the line to a point of another line.
    auto dragTo = [&](int row, int onto, int y) {
        QWidget* grip = editor->line(row)->grip();
        ASSERT_TRUE(grip->isVisible());
        const QPoint start = grip->rect().center();
        QTest::mousePress(grip, Qt::LeftButton, {}, start);
        QTest::mouseMove(grip, start + QPoint(0, 3));
        const QRect target = editor->line(onto)->geometry();
        QTest::mouseMove(grip, grip->mapFrom(editor, QPoint(target.center().x(), target.top() + y)));
        QTest::mouseRelease(grip, Qt::LeftButton, {},
                            grip->mapFrom(editor, QPoint(target.center().x(), target.top() + y)));
        settle();
    };

    // A click on the grip moves nothing.
    QWidget* grip = editor->line(1)->grip();
    QTest::mouseClick(grip, Qt::LeftButton, {}, grip->rect().center());
    settle();
    EXPECT_EQ(criteria().rowForRowDescription(name.get()), 1);

    // Down onto the lower half of the third line: after it.
    dragTo(1, 3, editor->lineHeight() - 3);
    EXPECT_EQ(criteria().rowForRowDescription(name.get()), 3);
    EXPECT_EQ(criteria().rowForRowDescription(third.get()), 2);
    // Back up onto the upper half of the first criterion: before it.
    dragTo(3, 1, 2);
    EXPECT_EQ(criteria().rowForRowDescription(name.get()), 1);
    // Onto a group's line: into the group, last.
    const int group = criteria().addGroup(5);
    settle();
    ASSERT_GT(group, 0);
    dragTo(1, group, 2);
    const int moved = criteria().rowForRowDescription(name.get());
    EXPECT_EQ(criteria().parentRowForRow(moved), group - 1);  // up a row as the name left
    // Undo puts the line back.
    document->managedObjectContext().undo();
    settle();
    EXPECT_EQ(criteria().parentRowForRow(criteria().rowForRowDescription(name.get())), 0);
}

TEST_F(RuleEditorWidgetTest, ALongSearchMakesLinesAsTheyComeIntoViewAndTabGoesThroughThemInOrder)
{
    for (int added = 0; added < 54; ++added) {
        criteria().addRow(criteria().numberOfRows() - 1);
    }
    settle();
    RuleEditor* editor = panel->criteriaEditor();
    ASSERT_EQ(editor->lineCount(), 60);
    EXPECT_LT(editor->madeLineCount(), 40);

    editor->focusLine(0);
    settle();
    int reached = 0;
    for (int presses = 0; presses < 1000 && reached < 59; ++presses) {
        QWidget* focused = QApplication::focusWidget();
        const int row = rowOfWidget(focused);
        ASSERT_GE(row, reached) << "Tab went back to line " << row << " from " << reached;
        ASSERT_LE(row, reached + 1) << "Tab skipped from line " << reached << " to " << row;
        reached = row;
        QTest::keyClick(focused, Qt::Key_Tab);
    }
    ASSERT_EQ(reached, 59);
    // The last line was scrolled into view, in its place under the others.
    settle();
    widgets::RuleEditorLine* last = editor->line(59);
    EXPECT_EQ(last->geometry(), QRect(0, 59 * editor->lineHeight(), editor->width(), editor->lineHeight()));
    EXPECT_FALSE(last->visibleRegion().isEmpty());
}

TEST_F(RuleEditorWidgetTest, TextThatDoesNotReadIsMarkedAndKept)
{
    RuleEditor* editor = panel->criteriaEditor();
    ASSERT_TRUE(editor->line(4)->popUp(0));
    // The date line: a count.
    auto* count = qobject_cast<QLineEdit*>(editor->line(4)->control(2));
    ASSERT_NE(count, nullptr);
    count->setFocus();
    count->selectAll();
    QTest::keyClicks(count, QStringLiteral("3x"));
    EXPECT_EQ(count->text(), QStringLiteral("3x"));
    EXPECT_FALSE(count->toolTip().isEmpty());
    EXPECT_FALSE(count->accessibleDescription().isEmpty());
    // The query keeps the last count that read.
    EXPECT_TRUE(queryText().contains(QStringLiteral("$time.today(-3)"))) << queryText().toStdString();
    EXPECT_FALSE(queryText().contains(QStringLiteral("3x")));
    QTest::keyClick(count, Qt::Key_Backspace);
    EXPECT_TRUE(count->toolTip().isEmpty());
    QTest::keyClicks(count, QStringLiteral("0"));
    EXPECT_TRUE(queryText().contains(QStringLiteral("$time.today(-30)"))) << queryText().toStdString();
}

TEST_F(RuleEditorWidgetTest, TheEditorsLetTheWindowBeNarrow)
{
    // A saved window of 700 points opens at that width.
    EXPECT_LE(panel->minimumSizeHint().width(), 640);
    panel->criteriaEditor()->line(1)->addButton()->click();
    settle();
    EXPECT_LE(panel->minimumSizeHint().width(), 640);
}

class FolderDropTest : public RuleEditorWidgetTest {
protected:
    void SetUp() override
    {
        RuleEditorWidgetTest::SetUp();
        folder = makeTemporaryFolder(QStringLiteral("dropped"));
        QDir(folder).mkdir(QStringLiteral("photos"));
        file = folder + QStringLiteral("/photos/beach.jpg");
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    }

    QStringList scopes() const { return document->metadataQueryController()->searchScopes(); }

    QString folder;
    QString file;
};

TEST_F(FolderDropTest, FoldersDroppedOnThePlacesAreSearchedAndOtherDropsRefused)
{
    RuleEditor* places = panel->scopeEditor();
    const QPoint below(places->width() / 2, places->height() - 2);
    ASSERT_TRUE(drop(places, {folder + QStringLiteral("/photos")}, below));
    settle();
    EXPECT_EQ(places->lineCount(), 2);
    EXPECT_TRUE(scopes().contains(folder + QStringLiteral("/photos")));

    // Refused: a folder that vanished, a web address, nothing.
    const QStringList before = scopes();
    EXPECT_FALSE(drop(places, {folder + QStringLiteral("/gone")}));
    EXPECT_FALSE(drop(places, {QStringLiteral("https://example.org/")}));
    EXPECT_EQ(scopes(), before);

    // The limit takes no drops at all.
    EXPECT_FALSE(drop(panel->limitEditor(), {folder}));
}

TEST_F(FolderDropTest, TheDropButtonLeavesFoldersOut)
{
    EXPECT_FALSE(drop(panel->exclusionDropButton(), {folder + QStringLiteral("/gone")}));
    ASSERT_TRUE(drop(panel->exclusionDropButton(), {file}));
    settle();
    EXPECT_EQ(document->metadataQueryController()->excludedPaths(), QStringList{folder + QStringLiteral("/photos")});
    EXPECT_EQ(panel->exclusionEditor()->lineCount(), 1);
}

TEST_F(RuleEditorWidgetTest, OtherOpensTheSheetWhereTypingNarrowsAndReturnChooses)
{
    widgets::RuleEditorLine* line = panel->criteriaEditor()->line(1);
    QComboBox* attribute = line->popUp(0);
    attribute->setFocus();
    QTest::keyClick(attribute, Qt::Key_End);  // "Other..."
    settle();
    auto* sheet = window->findChild<widgets::AttributeSelectionSheet*>();
    ASSERT_NE(sheet, nullptr);
    ASSERT_TRUE(panel->editors().queryAttributeSelectionController().isSheetOpen());
    // The line keeps its attribute while the sheet is open.
    EXPECT_EQ(attribute->currentText(), model::QueryAttribute::nameForKey(QStringLiteral("kMDItemDisplayName")));
    QTest::keyClicks(sheet->searchField(), QStringLiteral("pixel width"));
    ASSERT_GE(sheet->list()->topLevelItemCount(), 1);
    QTest::keyClick(sheet->searchField(), Qt::Key_Down);
    QTest::keyClick(sheet->list(), Qt::Key_Return);
    settle();
    EXPECT_FALSE(panel->editors().queryAttributeSelectionController().isSheetOpen());
    EXPECT_EQ(criteria().rowAtIndex(1)->displayValues[0].text,
              model::QueryAttribute::nameForKey(QStringLiteral("kMDItemPixelWidth")));
}

// A search built in a new window's editor, as a person would: the query
// text and the results follow each edit, one restart per turn of the event
// loop however many keys were typed in it.
class SearchBuiltInTheWindowTest : public WidgetTest {
protected:
    SearchBuiltInTheWindowTest()
    {
        // A large report among the small ones (sparse: its size is what counts).
        QFile big(QString::fromStdString(at("docs/big report.bin")));
        if (big.open(QIODevice::WriteOnly)) {
            big.resize(6 * 1000 * 1000);
        }
    }

    // Runs one turn of the event loop and gives how many times the query
    // started gathering in it.
    int oneTurn()
    {
        const int before = restarts;
        QCoreApplication::processEvents();
        return restarts - before;
    }

    int restarts = 0;
};

TEST_F(SearchBuiltInTheWindowTest, NameContainsAndSizeGreaterThanBuiltInTheEditorRunTheSearch)
{
    widgets::DocumentWindow* window = newSearchWindow();
    ASSERT_NE(window, nullptr);
    window->show();
    document::Document& search = window->document();
    query::MetadataQueryController* controller = search.metadataQueryController();
    QObject::connect(controller, &query::MetadataQueryController::stateChanged, controller,
                     [this](query::MetadataQueryController::State state) {
                         restarts += state == query::MetadataQueryController::State::Gathering ? 1 : 0;
                     });
    RuleEditor* editor = window->ruleEditors()->criteriaEditor();
    editors::RuleEditorModel& rows = window->ruleEditors()->editors().predicateEditor();

    // Name contains "r", then Start: the search runs.
    widgets::RuleEditorLine* name = editor->line(1);
    ASSERT_EQ(rows.rowAtIndex(1)->displayValues[0].text, model::QueryAttribute::nameForKey(QStringLiteral("kMDItemDisplayName")));
    auto* field = qobject_cast<QLineEdit*>(name->control(2));
    ASSERT_NE(field, nullptr);
    field->setFocus();
    QTest::keyClicks(field, QStringLiteral("r"));
    EXPECT_EQ(controller->expression(), QStringLiteral("((kMDItemDisplayName == '*r*'cd))"));
    search.startQueryForSender();
    EXPECT_TRUE(search.isQueryAlive());
    EXPECT_EQ(restarts, 1);
    // The rest of "report": five keys typed in one turn, one restart.
    QTest::keyClicks(field, QStringLiteral("eport"));
    EXPECT_EQ(oneTurn(), 1);
    EXPECT_EQ(oneTurn(), 0);
    EXPECT_EQ(controller->expression(), QStringLiteral("((kMDItemDisplayName == '*report*'cd))"));
    ASSERT_TRUE(waitFor([&] { return isSettled(search) && controller->resultArray().size() == 7; },
                        "the six small reports and the big one"));

    // Space on "+" adds a line (in the window, where Space is also Quick
    // Look's shortcut); its attribute, comparison, value and unit are chosen
    // with the keyboard: one restart per turn that changed the query.
    const int lines = editor->lineCount();
    QToolButton* add = editor->line(1)->addButton();
    add->setFocus();
    QTest::keyClick(add, Qt::Key_Space);
    ASSERT_TRUE(waitFor([&] { return editor->lineCount() == lines + 1; }, "the new line"));
    QComboBox* attribute = editor->line(2)->popUp(0);
    ASSERT_NE(attribute, nullptr);
    attribute->setFocus();
    QTest::keyClicks(attribute, model::QueryAttribute::nameForKey(QStringLiteral("kMDItemFSSize")));
    EXPECT_LE(oneTurn(), 1);
    ASSERT_EQ(rows.rowAtIndex(2)->displayValues[0].text, model::QueryAttribute::nameForKey(QStringLiteral("kMDItemFSSize")));
    QComboBox* comparison = editor->line(2)->popUp(1);
    ASSERT_NE(comparison, nullptr);
    comparison->setFocus();
    QTest::keyClicks(comparison, QStringLiteral("greater"));
    EXPECT_LE(oneTurn(), 1);
    EXPECT_EQ(rows.rowAtIndex(2)->displayValues[1].text, QStringLiteral("greater than"));
    auto* size = qobject_cast<QLineEdit*>(editor->line(2)->control(2));
    ASSERT_NE(size, nullptr);
    size->setFocus();
    size->selectAll();
    QTest::keyClicks(size, QStringLiteral("5"));
    EXPECT_EQ(oneTurn(), 1);
    QComboBox* unit = editor->line(2)->popUp(3);
    ASSERT_NE(unit, nullptr);
    unit->setFocus();
    QTest::keyClicks(unit, QStringLiteral("MB"));
    EXPECT_EQ(oneTurn(), 1);
    EXPECT_EQ(oneTurn(), 0);

    const QString text = controller->expression();
    EXPECT_EQ(text, QStringLiteral("((kMDItemDisplayName == '*report*'cd) && (kMDItemFSSize > '5000000'))"));
    ASSERT_TRUE(waitFor([&] { return isSettled(search) && controller->resultArray().size() == 1; },
                        "the big report alone"));
    EXPECT_EQ(controller->resultArray().front()->displayName(), QStringLiteral("big report.bin"));
}

}  // namespace
}  // namespace trovara::test
