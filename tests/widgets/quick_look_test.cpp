// The quick look panel: pictures (SVG too) and a PDF's first page scaled on
// its own thread, a PDF's text and plain text with the terms coloured, an
// audio file's facts from the importers, the icon and values for anything
// else, and a short message for what cannot be shown, after which the next
// selection is shown normally.
#include "importers/registry.h"
#include "importers/registry_importer.h"
#include "preview/text_preview_manager.h"
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

// One second of 16-bit mono silence at 8 kHz, in a RIFF WAVE file.
std::string wav()
{
    const auto le = [](std::uint32_t value, int bytes) {
        std::string out;
        for (int i = 0; i < bytes; ++i) {
            out += static_cast<char>((value >> (8 * i)) & 0xff);
        }
        return out;
    };
    const std::uint32_t rate = 8000;
    const std::uint32_t data = rate * 2;
    return "RIFF" + le(36 + data, 4) + "WAVE" + "fmt " + le(16, 4) + le(1, 2) /* PCM */ + le(1, 2) /* mono */ +
           le(rate, 4) + le(rate * 2, 4) + le(2, 2) + le(16, 2) + "data" + le(data, 4) + std::string(data, '\0');
}

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
        writeFile(at("docs/bundle.zip"), std::string("PK\x03\x04\0\0", 6));
        writeFile(at("docs/song.wav"), wav());
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
        // Text is read straight from the file (the helper has tests of its
        // own); audio goes to the importers, in this process.
        panel = std::make_unique<QuickLookController>(nullptr, [this](const std::string& path,
                                                                      const std::atomic<bool>* cancel,
                                                                      std::uint64_t) {
            if (path.ends_with(".wav")) {
                return importers.textContentsOfFile(path, cancel);
            }
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

    preview::TextPreviewManager importers{
        std::make_shared<trovara::importers::RegistryImporter>(
            std::make_shared<const trovara::importers::Registry>(trovara::importers::Registry::load({})), 1 << 20),
        1 << 20};
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

TEST_F(QuickLookTest, APdfShowsItsTextBelowThePageWithTheTermsColoured)
{
    searchNames(window, QStringLiteral("."));
    panel->activateInspectorPanel();
    panel->textPreview().setSearchString({});
    select(QStringLiteral("manual.pdf"));
    ASSERT_TRUE(waitFor([&] { return panel->pdfTextView()->text().contains(QStringLiteral("Page 3")); }, "the text"));
    EXPECT_TRUE(panel->pdfTextView()->text().startsWith(QStringLiteral("Page 1")));
    EXPECT_TRUE(panel->pdfTextMessage()->isHidden());
    EXPECT_TRUE(panel->pdfTextView()->matches().empty()) << "no term of the search is in the text";

    panel->textPreview().setSearchString(QStringLiteral("PAGE"));
    ASSERT_TRUE(waitFor([&] { return panel->pdfTextView()->matches().size() == 3; }, "a match per page"));
    EXPECT_EQ(panel->pdfTextView()->matches()[0].start, 0);

    // Another selection drops the text; coming back reads it again, coloured.
    select(QStringLiteral("red.png"));
    ASSERT_TRUE(waitForKind(Kind::Picture));
    EXPECT_TRUE(panel->pdfTextView()->text().isEmpty());
    select(QStringLiteral("manual.pdf"));
    ASSERT_TRUE(waitFor([&] { return panel->pdfTextView()->matches().size() == 3; }, "the text coloured again"));
}

TEST_F(QuickLookTest, AnAudioFileShowsItsIconAndWhatTheImportersKnowOfIt)
{
    searchNames(window, QStringLiteral("song"));
    panel->activateInspectorPanel();
    select(QStringLiteral("song.wav"));
    ASSERT_TRUE(waitForKind(Kind::Media));
    ASSERT_TRUE(waitFor([&] { return !panel->shownMediaFacts().isEmpty(); }, "the facts"));
    const QuickLookController::Facts facts = panel->shownMediaFacts();
    const auto fact = [&](const QString& label) {
        for (const auto& [name, value] : facts) {
            if (name == label) {
                return value;
            }
        }
        return QString();
    };
    EXPECT_EQ(fact(QStringLiteral("Duration")), QStringLiteral("0:01"));
    EXPECT_EQ(fact(QStringLiteral("Sample rate")), QStringLiteral("8 kHz"));
    EXPECT_EQ(fact(QStringLiteral("Channels")), QStringLiteral("Mono"));
    EXPECT_EQ(fact(QStringLiteral("Bit rate")), QStringLiteral("128 kbit/s"));
    EXPECT_GT(panel->valuesTable()->model()->rowCount(), 0) << "the inspector's values below";
    EXPECT_TRUE(panel->textView()->text().isEmpty()) << "a sound is no text";
}

TEST(QuickLookFacts, MediaValuesBecomeReadableFactsInAFixedOrder)
{
    using Facts = QuickLookController::Facts;
    const struct {
        const char* what;
        QVariantMap values;
        Facts facts;
    } cases[] = {
        {"nothing known", {}, {}},
        {"a song",
         {{"kMDItemAlbum", "Harbour Songs"},
          {"kMDItemTitle", "Low Tide"},
          {"kMDItemAuthors", QStringList{"Ann", "Bo"}},
          {"kMDItemDurationSeconds", 185.6},
          {"kMDItemAudioBitRate", 320},
          {"kMDItemAudioSampleRate", 44100},
          {"kMDItemAudioChannelCount", 2},
          {"kMDItemCodecs", QStringList{"MP3"}}},
         {{"Title", "Low Tide"},
          {"Artist", "Ann, Bo"},
          {"Album", "Harbour Songs"},
          {"Duration", "3:06"},
          {"Codecs", "MP3"},
          {"Bit rate", "320 kbit/s"},
          {"Sample rate", "44.1 kHz"},
          {"Channels", "Stereo"}}},
        {"a long film: hours, pixels, the total bit rate before the parts",
         {{"kMDItemDurationSeconds", 3723},
          {"kMDItemPixelWidth", 1920},
          {"kMDItemPixelHeight", 1080},
          {"kMDItemTotalBitRate", 5000},
          {"kMDItemVideoBitRate", 4800},
          {"kMDItemAudioChannelCount", 6}},
         {{"Duration", "1:02:03"}, {"Dimensions", "1920 × 1080"}, {"Bit rate", "5000 kbit/s"}, {"Channels", "6 channels"}}},
        {"zeros and blanks are no facts",
         {{"kMDItemTitle", "  "}, {"kMDItemDurationSeconds", 0}, {"kMDItemPixelWidth", 640}},
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(QuickLookController::mediaFacts(c.values), c.facts);
    }
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
    searchNames(window, QStringLiteral("bundle"));
    panel->activateInspectorPanel();
    select(QStringLiteral("bundle.zip"));
    ASSERT_TRUE(waitForKind(Kind::Other));
    EXPECT_TRUE(panel->shownMediaFacts().isEmpty());
    QStringList labels;
    for (int row = 0; row < panel->valuesTable()->model()->rowCount(); ++row) {
        labels << panel->valuesTable()->model()->index(row, 1).data().toString();
    }
    EXPECT_TRUE(labels.contains(QStringLiteral("bundle.zip"))) << labels.join(", ").toStdString();
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
