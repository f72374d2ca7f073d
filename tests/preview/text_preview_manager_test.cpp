// Reading a file's text as the preview shows it: which importers are asked
// and in which order, source code and text read directly, encodings, and
// files that give no text.
#include "preview/text_preview_manager.h"

#include "preview_test_support.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace trovara::preview {
namespace {

using test::ScriptedImporter;
using test::writeFile;

index::ImportOutcome refused(const std::string& why)
{
    index::ImportOutcome outcome;
    outcome.error = why;
    return outcome;
}

class TextPreviewManagerTest : public ::testing::Test {
protected:
    TextPreviewManagerTest()
        : folder(trovara::test::makeTemporaryFolder(QStringLiteral("files")))
        , importer(std::make_shared<ScriptedImporter>())
        , manager(importer, 1 << 20)
    {
    }

    std::string file(const std::string& name, const std::string& bytes = "some words\n")
    {
        return writeFile(folder, name, bytes);
    }

    QString folder;
    std::shared_ptr<ScriptedImporter> importer;
    TextPreviewManager manager;
};

TEST_F(TextPreviewManagerTest, ImportersOfTheExactTypeComeBeforeThoseOfWiderTypes)
{
    const index::TypeDescription& plain = index::describeMimeType("text/plain");
    EXPECT_EQ(manager.importersForType(plain), (std::vector<std::string>{"plug", "text", "any"}));
    const index::TypeDescription& pdf = index::describeMimeType("application/pdf");
    EXPECT_EQ(manager.importersForType(pdf), (std::vector<std::string>{"pdf", "any"}));
    EXPECT_EQ(manager.importersByContentType().at("public.text"), std::vector<std::string>{"text"});
}

TEST_F(TextPreviewManagerTest, TheFirstImporterThatReadsTheFileWins)
{
    const FileContents contents = manager.textContentsOfFile(file("notes.txt"));
    EXPECT_EQ(contents.outcome, FileContents::Outcome::Text);
    EXPECT_EQ(contents.text, "text from plug");
    EXPECT_EQ(importer->asked, std::vector<std::string>{"plug"});
}

TEST_F(TextPreviewManagerTest, AnImporterThatRefusesTheFileHandsItToTheNext)
{
    importer->answers["plug"] = refused("not to my taste");
    const FileContents contents = manager.textContentsOfFile(file("notes.txt"));
    EXPECT_EQ(contents.text, "text from text");
    EXPECT_EQ(importer->asked, (std::vector<std::string>{"plug", "text"}));
}

TEST_F(TextPreviewManagerTest, WhenEveryImporterFailsTheFirstReasonIsTold)
{
    importer->answers["pdf"] = refused("the PDF is damaged");
    importer->answers["any"] = refused("no idea");
    const FileContents contents = manager.textContentsOfFile(file("cut.pdf", "%PDF-1.4\n1 0 obj"));
    EXPECT_EQ(contents.outcome, FileContents::Outcome::Failed);
    EXPECT_EQ(contents.problem, "The text could not be read: the PDF is damaged");
}

TEST_F(TextPreviewManagerTest, SourceCodeIsReadAsItIsWhateverTheImporterMadeOfIt)
{
    const FileContents contents = manager.textContentsOfFile(file("main.c", "int main(void) { return 0; }\n"));
    EXPECT_EQ(contents.text, "int main(void) { return 0; }\n");
    EXPECT_FALSE(importer->asked.empty());
}

TEST_F(TextPreviewManagerTest, TextFilesAreReadDirectlyWhenNoImporterCanBeRun)
{
    importer->unavailable = true;
    EXPECT_EQ(manager.textContentsOfFile(file("notes.txt", "plain words\n")).text, "plain words\n");
    const FileContents pdf = manager.textContentsOfFile(file("a.pdf", "%PDF-1.4\n"));
    EXPECT_EQ(pdf.outcome, FileContents::Outcome::Failed);
    EXPECT_EQ(pdf.problem, "The importers cannot be run: cannot start the importer");
}

TEST_F(TextPreviewManagerTest, ImportedAttributesComeAlong)
{
    index::ImportOutcome song;
    song.imported = true;
    song.attributes.push_back({"kMDItemTitle", std::string("Harbour Lights")});
    importer->answers["any"] = song;
    const FileContents contents = manager.textContentsOfFile(file("song.mp3", "ID3\x03"));
    EXPECT_EQ(contents.outcome, FileContents::Outcome::NoText);
    ASSERT_NE(index::findImported(contents.attributes, "kMDItemTitle"), nullptr);
}

TEST_F(TextPreviewManagerTest, FilesThatGiveNoTextSaySoRatherThanFail)
{
    importer->offered.clear();
    EXPECT_EQ(manager.textContentsOfFile(file("blob.bin", std::string("\x7f\x45\x4c\x46\x00\x01", 6))).outcome,
              FileContents::Outcome::NoText);
    EXPECT_EQ(manager.textContentsOfFile(folder.toStdString()).outcome, FileContents::Outcome::NoText);
}

TEST_F(TextPreviewManagerTest, TextFullOfNulBytesIsABinaryFile)
{
    importer->answers["plug"].imported = true;
    importer->answers["plug"].text = std::string(100, '\0');
    EXPECT_EQ(manager.textContentsOfFile(file("zeros.txt")).outcome, FileContents::Outcome::NoText);
}

TEST_F(TextPreviewManagerTest, AMissingFileFailsWithTheReason)
{
    const FileContents contents = manager.textContentsOfFile(folder.toStdString() + "/gone.txt");
    EXPECT_EQ(contents.outcome, FileContents::Outcome::Failed);
    EXPECT_EQ(contents.problem, "The file cannot be read: No such file or directory");
}

TEST_F(TextPreviewManagerTest, SymbolicLinksAreFollowed)
{
    const std::string target = file("target.txt");
    const std::string link = folder.toStdString() + "/link.txt";
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    EXPECT_EQ(manager.textContentsOfFile(link).text, "text from plug");
}

// readTextAtPath: the encoding is told by the bytes.
TEST_F(TextPreviewManagerTest, AByteOrderMarkFFFEMeansLittleEndianUtf16WhateverFollows)
{
    // Without the mark these bytes would read as Shift_JIS.
    const auto text = manager.readTextAtPath(file("marked.txt", std::string("\xff\xfe\x82\xa0\x41\x00", 6)));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->text, "\xea\x82\x82"  // U+A082
                          "A");
}

TEST_F(TextPreviewManagerTest, AShiftJisFileIsRecognisedAndDecoded)
{
    const auto text = manager.readTextAtPath(
        file("sjis.txt", "\x8d\x60\x82\xcc\x96\xe9\x96\xbe\x82\xaf\x81\x42\x93\x8c\x8b\x9e\x83\x5e\x83\x8f\x81\x5b\x82"
                         "\xcc\x93\x94\x82\xe8\x82\xaa\x8f\xc1\x82\xa6\x82\xe9\x81\x42"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->text, "港の夜明け。東京タワーの灯りが消える。");
}

TEST_F(TextPreviewManagerTest, BytesNoGuessFitsAreReadAsAsciiKeepingTheirWords)
{
    const auto text = manager.readTextAtPath(file("latin1.txt", "caf\xe9 au lait"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->text, "caf\uFFFD au lait");
}

TEST_F(TextPreviewManagerTest, TextStopsAtTheLimit)
{
    TextPreviewManager small(importer, 16);
    importer->unavailable = true;
    const auto text = small.readTextAtPath(file("long.txt", std::string(100, 'a')));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->text.size(), 16u);
    EXPECT_TRUE(text->truncated);
}

TEST_F(TextPreviewManagerTest, AFirstLookLimitCutsTheTextBetweenCharacters)
{
    // "é" and "è" take two bytes each: bytes 6-7 and 11-12.
    const std::string path = file("accents.c", "// caf\u00e9 cr\u00e8me\n");
    struct Case {
        std::uint64_t limit;
        std::string text;
        bool truncated;
    };
    for (const Case& c : std::vector<Case>{{7, "// caf", true},
                                           {8, "// caf\u00e9", true},
                                           {12, "// caf\u00e9 cr", true},
                                           {16, "// caf\u00e9 cr\u00e8me\n", false},
                                           {0, "// caf\u00e9 cr\u00e8me\n", false}}) {
        const FileContents contents = manager.textContentsOfFile(path, nullptr, c.limit);
        EXPECT_EQ(contents.text, c.text) << "limit " << c.limit;
        EXPECT_EQ(contents.truncated, c.truncated) << "limit " << c.limit;
    }
    // What an importer gives is cut the same way.
    const FileContents imported = manager.textContentsOfFile(file("a.pdf", "%PDF-1.4\n"), nullptr, 4);
    EXPECT_EQ(imported.text, "text");
    EXPECT_TRUE(imported.truncated);
    // The start of plain text is read directly, not by an importer reading
    // all of it; the whole text still comes from the importer.
    const std::string notes = file("notes.txt", "plain words\n");
    importer->asked.clear();
    EXPECT_EQ(manager.textContentsOfFile(notes, nullptr, 5).text, "plain");
    EXPECT_TRUE(importer->asked.empty());
    EXPECT_EQ(manager.textContentsOfFile(notes).text, "text from plug");
    // The manager's own limit still wins over a larger one.
    TextPreviewManager small(importer, 16);
    EXPECT_EQ(small.textContentsOfFile(file("long.c", std::string(100, 'a')), nullptr, 50).text.size(), 16u);
}

}  // namespace
}  // namespace trovara::preview
