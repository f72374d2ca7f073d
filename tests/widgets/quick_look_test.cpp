// The quick look panel: pictures (SVG too) and a PDF's first page scaled on
// its own thread, text with the terms coloured, the icon and values for
// anything else, and a short message for what cannot be shown, after which
// the next selection is shown normally.
#include "query/metadata_query_controller.h"
#include "query/result_item.h"
#include "query/result_table_model.h"
#include "widget_test_support.h"
#include "widgets/inspector_controller.h"
#include "widgets/preview_text_view.h"
#include "widgets/quick_look_controller.h"

#include <QAction>
#include <QFile>
#include <QLabel>
#include <QPainter>
#include <QPdfWriter>
#include <QTableView>

namespace trovara::test {
namespace {

using preview::FileContents;
using widgets::DocumentWindow;
using widgets::QuickLookController;
using Kind = QuickLookController::Kind;

void writePdf(const std::string& path, int pages)
{
    QPdfWriter writer(QString::fromStdString(path));
    writer.setPageSize(QPageSize(QPageSize::A5));
    QPainter painter(&writer);
    for (int page = 0; page < pages; ++page) {
        if (page > 0) {
            writer.newPage();
        }
        painter.drawText(QPointF(200, 400), QStringLiteral("Page %1").arg(page + 1));
    }
}

class QuickLookTest : public WidgetTest {
protected:
    QuickLookTest()
    {
        writePicture(at("pictures/wide.png"), Qt::yellow, QSize(4000, 500));
        writeFile(at("pictures/drawing.svg"),
                  "<svg xmlns='http://www.w3.org/2000/svg' width='40' height='20'>"
                  "<rect width='40' height='20' fill='red'/></svg>");
        writePdf(at("docs/manual.pdf"), 3);
        writeFile(at("docs/letter.txt"), "dear reader, the reader reads");
        writeFile(at("docs/song.ogg"), std::string("OggS\0\x02\0\0", 8));
        writePdf(at("docs/broken.pdf"), 2);
        QFile pdf(treePath("docs/broken.pdf"));
        if (pdf.open(QIODevice::ReadWrite)) {
            pdf.resize(pdf.size() / 3);
        }
        writeFile(at("docs/broken.png"), "\x89PNG\r\n\x1a\n but nothing after");
        writeFile(at("docs/gone.txt"), "soon gone");
    }
    void SetUp() override
    {
        WidgetTest::SetUp();
        window = newSearchWindow();
        // Text is read straight from the file (the helper has tests of its own).
        panel = std::make_unique<QuickLookController>(nullptr, [](const std::string& path, const std::atomic<bool>*) {
            QFile file(QString::fromStdString(path));
            if (!file.open(QIODevice::ReadOnly)) {
                return FileContents::failed("The file could not be read.");
            }
            FileContents contents;
            contents.outcome = FileContents::Outcome::Text;
            contents.text = file.readAll().toStdString();
            return contents;
        });
        panel->setActiveDocument(&window->document());
    }
    void TearDown() override
    {
        panel.reset();
        WidgetTest::TearDown();
    }

    void select(const QString& name)
    {
        query::ResultTableModel* results = window->document().metadataQueryController()->results();
        for (int row = 0; row < results->rowCount(); ++row) {
            if (results->arrangedObjectAt(row)->displayName() == name) {
                results->setSelectionIndex(row);
                return;
            }
        }
        ADD_FAILURE() << "no result named " << name.toStdString();
    }
    ::testing::AssertionResult waitForKind(Kind kind)
    {
        return waitFor([&] { return panel->kind() == kind; }, "the preview");
    }

    DocumentWindow* window = nullptr;
    std::unique_ptr<QuickLookController> panel;
};

TEST_F(QuickLookTest, TheSpaceBarItemTogglesThePanelAndItStaysClosedAtLaunch)
{
    QuickLookController& shared = *application().quickLook();
    EXPECT_FALSE(shared.shouldAutoOpen());
    const auto& panels = application().actions().panels;
    const auto item = std::find_if(panels.begin(), panels.end(),
                                   [](QAction* action) { return action->text() == QStringLiteral("Show Quick Look"); });
    ASSERT_NE(item, panels.end());
    EXPECT_EQ((*item)->shortcut(), QKeySequence(Qt::Key_Space));
    (*item)->trigger();
    EXPECT_TRUE(waitFor([&] { return shared.isWindowActive(); }, "the panel to be active"));
    EXPECT_EQ((*item)->text(), QStringLiteral("Hide Quick Look"));
    (*item)->trigger();
    EXPECT_FALSE(shared.isWindowVisible());
}

TEST_F(QuickLookTest, PicturesAreShownAndLargeOnesScaledToTheBound)
{
    searchNames(window, QStringLiteral("."));
    panel->activateInspectorPanel();

    const struct {
        const char* name;
        QSize shown;
        const char* detail;
    } pictures[] = {
        {"green.png", {300, 200}, "300 × 200 pixels"},
        {"wide.png", {1600, 200}, "4000 × 500 pixels"},
        {"drawing.svg", {40, 20}, "40 × 20 pixels"},
    };
    for (const auto& picture : pictures) {
        SCOPED_TRACE(picture.name);
        select(QString::fromUtf8(picture.name));
        ASSERT_TRUE(waitForKind(Kind::Picture));
        EXPECT_EQ(panel->image().size(), picture.shown);
        EXPECT_EQ(panel->detailText(), QString::fromUtf8(picture.detail));
    }
}

TEST_F(QuickLookTest, APdfShowsItsFirstPageAndItsPageCount)
{
    searchNames(window, QStringLiteral("manual"));
    panel->activateInspectorPanel();
    select(QStringLiteral("manual.pdf"));
    ASSERT_TRUE(waitForKind(Kind::Pdf));
    EXPECT_FALSE(panel->image().isNull());
    EXPECT_LT(panel->image().width(), panel->image().height()) << "an upright page";
    EXPECT_EQ(panel->detailText(), QStringLiteral("PDF, 3 pages"));
}

TEST_F(QuickLookTest, TextIsShownWithTheTermsColoured)
{
    searchNames(window, QStringLiteral("letter"));
    panel->activateInspectorPanel();
    select(QStringLiteral("letter.txt"));
    ASSERT_TRUE(waitForKind(Kind::Text));
    ASSERT_TRUE(waitFor([&] { return panel->textView()->text() == "dear reader, the reader reads"; }, "the text"));
    panel->textPreview().setSearchString(QStringLiteral("READER"));
    ASSERT_TRUE(waitFor([&] { return panel->textView()->matches().size() == 2; }, "two matches"));
    EXPECT_EQ(panel->textView()->matches()[0].start, 5);
}

TEST_F(QuickLookTest, OtherFilesShowTheirIconAndTheInspectorsValues)
{
    searchNames(window, QStringLiteral("song"));
    panel->activateInspectorPanel();
    select(QStringLiteral("song.ogg"));
    ASSERT_TRUE(waitForKind(Kind::Other));
    QStringList labels;
    for (int row = 0; row < panel->valuesTable()->model()->rowCount(); ++row) {
        labels << panel->valuesTable()->model()->index(row, 1).data().toString();
    }
    EXPECT_TRUE(labels.contains(QStringLiteral("song.ogg"))) << labels.join(", ").toStdString();
}

// A row per fault; after each, a picture shows normally.
TEST_F(QuickLookTest, WhatCannotBeShownGetsAShortMessageAndTheNextSelectionIsFine)
{
    searchNames(window, QStringLiteral("."));
    ASSERT_TRUE(QFile::remove(treePath("docs/gone.txt")));
    panel->activateInspectorPanel();

    const struct {
        const char* name;
        const char* message;
    } faults[] = {
        {"broken.pdf", "This PDF could not be read."},
        {"broken.png", "This picture could not be read."},
        {"gone.txt", "The file is no longer there."},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.name);
        select(QString::fromUtf8(fault.name));
        ASSERT_TRUE(waitFor([&] { return panel->messageLabel()->text() == QString::fromUtf8(fault.message); },
                            "the message"));
        EXPECT_TRUE(panel->image().isNull());

        select(QStringLiteral("red.png"));
        ASSERT_TRUE(waitForKind(Kind::Picture));
        EXPECT_EQ(panel->image().size(), QSize(64, 48));
    }
}

TEST_F(QuickLookTest, OnlyTheNewestSelectionsPictureIsShown)
{
    searchNames(window, QStringLiteral("."));
    panel->activateInspectorPanel();
    select(QStringLiteral("green.png"));
    select(QStringLiteral("red.png"));
    ASSERT_TRUE(waitForKind(Kind::Picture));
    EXPECT_TRUE(panel->path().endsWith(QStringLiteral("red.png")));
    EXPECT_EQ(panel->image().size(), QSize(64, 48));
}

}  // namespace
}  // namespace trovara::test
