// The text preview panel: it follows the selection of the active search,
// colours the words of its field, steps through the matches, shows a short
// message instead of the text when a file has none or cannot be read, and
// previews the next selection normally after such a fault.
#include "query/metadata_query_controller.h"
#include "query/result_item.h"
#include "query/result_table_model.h"
#include "widget_test_support.h"
#include "widgets/preview_text_view.h"
#include "widgets/text_preview_controller.h"

#include <QAction>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QScrollBar>
#include <QTest>

#include <atomic>
#include <mutex>

namespace trovara::test {
namespace {

using preview::FileContents;
using widgets::DocumentWindow;
using widgets::TextPreviewController;

// Reads files as they are on disk; names containing a marker fail or hold
// no text, as a crashing importer or a binary file would.
struct ScriptedReader {
    std::shared_ptr<std::atomic<int>> reads = std::make_shared<std::atomic<int>>(0);

    preview::TextPreview::Reader reader() const
    {
        return [reads = reads](const std::string& path, const std::atomic<bool>*, std::uint64_t) {
            ++*reads;
            QFile file(QString::fromStdString(path));
            if (!file.open(QIODevice::ReadOnly)) {
                return FileContents::failed("The file could not be read.");
            }
            if (path.find("crash") != std::string::npos) {
                return FileContents::failed("The text preview helper stopped while reading this file.");
            }
            FileContents contents;
            const QByteArray bytes = file.readAll();
            if (bytes.contains('\0')) {
                return contents;  // binary: no text
            }
            contents.outcome = FileContents::Outcome::Text;
            contents.text = bytes.toStdString();
            return contents;
        };
    }
};

class TextPreviewTest : public WidgetTest {
protected:
    TextPreviewTest()
    {
        writeFile(at("docs/report words.txt"), "alpha beta Alpha gamma ALPHA");
        writeFile(at("docs/report binary.dat"), std::string("\x7f" "ELF\0\0\x01", 7));
        writeFile(at("docs/report crash.txt"), "text an importer chokes on");
        writeFile(at("docs/report deleted.txt"), "soon gone");
        writeFile(at("docs/report copy.txt"), "first line\nsecond line");
    }
    void SetUp() override
    {
        WidgetTest::SetUp();
        window = newSearchWindow();
        panel = std::make_unique<TextPreviewController>(nullptr, script.reader());
        panel->setActiveDocument(&window->document());
    }
    void TearDown() override
    {
        panel.reset();
        WidgetTest::TearDown();
    }

    query::ResultTableModel* results() const { return window->document().metadataQueryController()->results(); }
    // Selects the result whose file name is `name`.
    void select(const QString& name)
    {
        for (int row = 0; row < results()->rowCount(); ++row) {
            if (results()->arrangedObjectAt(row)->displayName() == name) {
                results()->setSelectionIndex(row);
                return;
            }
        }
        ADD_FAILURE() << "no result named " << name.toStdString();
    }
    ::testing::AssertionResult waitForText(const QString& text)
    {
        return waitFor([&] { return panel->isTextShown() && panel->previewView()->text() == text; }, "the text");
    }
    ::testing::AssertionResult waitForMessage()
    {
        return waitFor([&] { return !panel->isTextShown() && !panel->messageLabel()->text().isEmpty(); },
                       "a message");
    }

    ScriptedReader script;
    DocumentWindow* window = nullptr;
    std::unique_ptr<TextPreviewController> panel;
};

TEST_F(TextPreviewTest, TheMenuItemNamesThePanelAndItsStateInTheWindowsViewMenu)
{
    TextPreviewController& shared = *application().textPreview();
    const auto& panels = application().actions().panels;
    const auto item = std::find_if(panels.begin(), panels.end(), [](QAction* action) {
        return action->text() == QStringLiteral("Show Text Preview");
    });
    ASSERT_NE(item, panels.end());
    (*item)->trigger();
    EXPECT_TRUE(waitFor([&] { return shared.isWindowActive(); }, "the panel to be active"));
    EXPECT_EQ((*item)->text(), QStringLiteral("Hide Text Preview"));
    (*item)->trigger();
    EXPECT_FALSE(shared.isWindowVisible());
    EXPECT_EQ((*item)->text(), QStringLiteral("Show Text Preview"));
}

TEST_F(TextPreviewTest, ThePanelShowsTheTextOfTheSingleSelectedResultAndFollowsTheSelection)
{
    searchNames(window, QStringLiteral("report"));
    panel->activateInspectorPanel();
    select(QStringLiteral("report 2.txt"));
    EXPECT_TRUE(waitForText(QStringLiteral("rrr")));
    select(QStringLiteral("report 4.txt"));
    EXPECT_TRUE(waitForText(QStringLiteral("rrrrr")));

    // Two selected: no text.
    const int other = results()->arrangedObjectAt(0) == results()->selectedObject() ? 1 : 0;
    results()->selectionModel()->select(results()->index(other, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
    EXPECT_TRUE(waitFor([&] { return !panel->isTextShown(); }, "the text to go"));
}

TEST_F(TextPreviewTest, NothingIsReadWhileThePanelIsHidden)
{
    searchNames(window, QStringLiteral("report"));
    select(QStringLiteral("report 2.txt"));
    select(QStringLiteral("report 3.txt"));
    QTest::qWait(50);
    EXPECT_EQ(script.reads->load(), 0);

    panel->activateInspectorPanel();
    EXPECT_TRUE(waitForText(QStringLiteral("rrrr")));
}

TEST_F(TextPreviewTest, TheFieldsWordsAreCountedAndNextAndPreviousWrapAround)
{
    searchNames(window, QStringLiteral("report"));
    panel->activateInspectorPanel();
    select(QStringLiteral("report words.txt"));
    ASSERT_TRUE(waitForText(QStringLiteral("alpha beta Alpha gamma ALPHA")));

    panel->searchField()->clear();
    QTest::keyClicks(panel->searchField(), QStringLiteral("alpha"));
    ASSERT_TRUE(waitFor([&] { return panel->previewView()->matches().size() == 3; }, "three matches"));
    EXPECT_EQ(panel->previewView()->matches()[1].start, 11);

    // The first match is the current one as soon as the text is coloured.
    EXPECT_EQ(panel->previewView()->currentMatch(), 0);
    EXPECT_EQ(panel->matchLabel()->text(), QStringLiteral("1 of 3"));
    panel->goToNextMatch();
    EXPECT_EQ(panel->previewView()->currentMatch(), 1);
    QTest::keyClick(panel->searchField(), Qt::Key_Return);
    EXPECT_EQ(panel->previewView()->currentMatch(), 2);
    panel->goToNextMatch();
    EXPECT_EQ(panel->previewView()->currentMatch(), 0) << "next wraps to the first";
    panel->goToPreviousMatch();
    EXPECT_EQ(panel->previewView()->currentMatch(), 2) << "previous wraps to the last";
    EXPECT_EQ(panel->matchLabel()->text(), QStringLiteral("3 of 3"));

    QTest::keyClicks(panel->searchField(), QStringLiteral("zzz"));
    ASSERT_TRUE(waitFor([&] { return panel->previewView()->matches().empty(); }, "no matches"));
    EXPECT_EQ(panel->matchLabel()->text(), QStringLiteral("No matches"));
}

// A row per fault: the file, and whether it is deleted after the search
// found it.
TEST_F(TextPreviewTest, AFaultyFileGetsAShortMessageAndTheNextSelectionPreviewsNormally)
{
    searchNames(window, QStringLiteral("report"));
    ASSERT_TRUE(QFile::remove(treePath("docs/report deleted.txt")));
    panel->activateInspectorPanel();

    const struct {
        const char* file;
        const char* message;
    } faults[] = {
        {"report binary.dat", "No text in this file."},
        {"report crash.txt", "The text preview helper stopped while reading this file."},
        {"report deleted.txt", "The file could not be read."},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.file);
        select(QString::fromUtf8(fault.file));
        ASSERT_TRUE(waitForMessage());
        EXPECT_EQ(panel->messageLabel()->text(), QString::fromUtf8(fault.message));
        EXPECT_TRUE(panel->previewView()->text().isEmpty());

        select(QStringLiteral("report 1.txt"));
        EXPECT_TRUE(waitForText(QStringLiteral("rr")));
    }
}

TEST_F(TextPreviewTest, TheViewSelectsAndCopiesItsText)
{
    searchNames(window, QStringLiteral("report"));
    panel->activateInspectorPanel();
    select(QStringLiteral("report copy.txt"));
    ASSERT_TRUE(waitForText(QStringLiteral("first line\nsecond line")));
    panel->previewView()->selectAll();
    EXPECT_EQ(panel->previewView()->selectedText(), QStringLiteral("first line\nsecond line"));
}

TEST(PreviewTextViewTest, TheRestOfATextArrivingKeepsThePlaceTheSelectionAndTheCurrentMatch)
{
    QString start;
    for (int line = 0; line < 400; ++line) {
        start += QStringLiteral("line %1\n").arg(line, 3, 10, QLatin1Char('0'));
    }
    widgets::PreviewTextView view;
    view.resize(300, 200);
    view.setText(start);
    const qsizetype at = start.indexOf(QStringLiteral("line 300"));
    view.setMatches({{at, 4, 0}});
    view.setCurrentMatch(0);
    const std::size_t top = view.topLine();
    ASSERT_GT(top, 250u);
    view.selectAll();

    const QString whole = start + QStringLiteral("and the rest\n");
    view.extendText(whole);
    EXPECT_EQ(view.text(), whole);
    EXPECT_EQ(view.topLine(), top);
    EXPECT_EQ(view.selectedText(), start) << "the selection stays where it was";
    view.setMatches({{at, 4, 0}, {whole.indexOf(QStringLiteral("rest")), 4, 0}});
    view.setCurrentMatch(0);
    EXPECT_EQ(view.topLine(), top);
    EXPECT_TRUE(view.isRangeVisible(at, 4));
}

// The scroll bar covers what lies beyond the view and no more: a text that
// fits has nothing to scroll, and at the end of a long one its last line is
// on screen and the view is full, also after jumping to a match there.
TEST(PreviewTextViewTest, TheScrollBarEndsWhereTheLastLineIsOnScreen)
{
    widgets::PreviewTextView view;
    view.resize(400, 200);
    view.show();
    view.setText(QStringLiteral("one\ntwo\nthree"), {});
    EXPECT_EQ(view.verticalScrollBar()->maximum(), 0);

    QStringList lines;
    for (int i = 0; i < 200; ++i) {
        lines << QStringLiteral("line %1").arg(i);
    }
    view.setText(lines.join(QLatin1Char('\n')), {});
    QScrollBar* bar = view.verticalScrollBar();
    const int rowsOnScreen = view.viewport()->height() / view.fontMetrics().lineSpacing();
    ASSERT_GT(rowsOnScreen, 2);
    EXPECT_GE(bar->maximum(), 200 - rowsOnScreen - 1);
    EXPECT_LE(bar->maximum(), 200 - rowsOnScreen + 1);

    const QString text = view.text();
    const qsizetype lastLine = text.lastIndexOf(QStringLiteral("line 199"));
    bar->setValue(bar->maximum());
    EXPECT_TRUE(view.isRangeVisible(lastLine, 8));

    bar->setValue(0);
    view.setMatches({{text.lastIndexOf(QStringLiteral("line 198")), 8, 0}});
    view.setCurrentMatch(0);
    EXPECT_EQ(view.topLine(), static_cast<std::size_t>(bar->maximum()));
    EXPECT_EQ(bar->value(), bar->maximum());
    EXPECT_TRUE(view.isRangeVisible(lastLine, 8));
}

}  // namespace
}  // namespace trovara::test
