// The built-in importers on files in their real formats, made here: what
// each finds (text, title, authors, sizes, tags …), and that a damaged,
// hostile or oversized file gives a clear failure or a cut text, never a
// crash or unbounded memory.
#include "fixtures.h"
#include "importers/registry.h"
#include "test_support.h"

#include <QDir>

#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>

#include <cmath>

namespace trovara::importers {
namespace {

using index::ImportResult;
using index::ImportStatus;
using index::query::AttributeValue;
using index::query::Scalar;
using test::writeBytes;

class ImportersTest : public ::testing::Test {
protected:
    ImportersTest()
        : folder(test::makeTemporaryFolder(QStringLiteral("importers")).toStdString())
        , registry(Registry::load({}))
    {
    }

    std::string path(const std::string& name) const { return folder + "/" + name; }

    ImportResult import(const std::string& importer, const std::string& file, const std::string& mime,
                        std::uint64_t textLimit = 1 << 20) const
    {
        return registry.runImport({1, file, importer, mime, textLimit});
    }

    static std::string text(const ImportResult& result) { return result.text.value_or("(none)"); }

    static std::vector<std::string> texts(const ImportResult& result, const std::string& key)
    {
        std::vector<std::string> out;
        if (const AttributeValue* value = index::findImported(result.attributes, key)) {
            for (const Scalar& element : value->elements()) {
                if (const auto* t = std::get_if<std::string>(&element)) {
                    out.push_back(*t);
                }
            }
        }
        return out;
    }

    static std::string textOf(const ImportResult& result, const std::string& key)
    {
        const std::vector<std::string> all = texts(result, key);
        return all.empty() ? "(none)" : all.front();
    }

    static double numberOf(const ImportResult& result, const std::string& key)
    {
        if (const AttributeValue* value = index::findImported(result.attributes, key)) {
            if (const auto* number = std::get_if<double>(&value->elements().front())) {
                return *number;
            }
            if (const auto* flag = std::get_if<bool>(&value->elements().front())) {
                return *flag ? 1 : 0;
            }
        }
        return NAN;
    }

    std::string folder;
    Registry registry;
};

TEST_F(ImportersTest, EveryBuiltInImporterIsOfferedWithItsTypes)
{
    std::map<std::string, std::vector<std::string>> types;
    for (const index::ImporterInfo& info : registry.infos()) {
        EXPECT_FALSE(info.isPlugin());
        types[info.name] = info.contentTypes;
    }
    for (const char* name : {"text", "html", "pdf", "opendocument", "officeopenxml", "epub", "email", "image", "audio"}) {
        ASSERT_TRUE(types.contains(name)) << name;
        EXPECT_FALSE(types[name].empty()) << name;
    }
}

TEST_F(ImportersTest, PlainTextIsReadInItsOwnEncodingAndCutAtTheLimit)
{
    // "日本語のテキスト" in Shift_JIS.
    writeBytes(path("sjis.txt"), "\x93\xfa\x96\x7b\x8c\xea\x82\xcc\x83\x65\x83\x4c\x83\x58\x83\x67 memo\n");
    EXPECT_EQ(text(import("text", path("sjis.txt"), "text/plain")), "日本語のテキスト memo\n");

    writeBytes(path("utf16.txt"), std::string("\xFF\xFE" "h\0i\0 \0\xE9\0", 10));
    EXPECT_EQ(text(import("text", path("utf16.txt"), "text/plain")), "hi é");

    // One huge line: the text stops at the limit, on a character boundary.
    std::string line;
    while (line.size() < 300000) {
        line += "größer ";
    }
    writeBytes(path("line.txt"), line);
    const ImportResult cut = import("text", path("line.txt"), "text/plain", 1000);
    EXPECT_EQ(cut.status, ImportStatus::Imported);
    EXPECT_TRUE(cut.truncated);
    ASSERT_TRUE(cut.text);
    EXPECT_LE(cut.text->size(), 1000u);
    EXPECT_TRUE(line.starts_with(*cut.text));

    writeBytes(path("empty.txt"), "");
    const ImportResult empty = import("text", path("empty.txt"), "text/plain");
    EXPECT_EQ(empty.status, ImportStatus::Imported);
    EXPECT_FALSE(empty.truncated);

    const ImportResult missing = import("text", path("gone.txt"), "text/plain");
    EXPECT_EQ(missing.status, ImportStatus::Failed);
    EXPECT_NE(missing.error.find("gone.txt"), std::string::npos) << missing.error;
}

TEST_F(ImportersTest, HtmlGivesItsVisibleTextAndHeadMetadata)
{
    writeBytes(path("page.html"),
               "<!DOCTYPE html><html lang=\"fr\"><head><meta charset=\"iso-8859-1\">"
               "<title>Caf\xe9 &amp; cr\xe8me</title>"
               "<meta name=\"author\" content=\"Ana Lima\">"
               "<meta name=\"keywords\" content=\"coffee, milk\">"
               "<style>p { color: red }</style><script>var hidden = 1;</script></head>"
               "<body><h1>Menu</h1><p>Espresso&nbsp;and <b>latte</b></p><!-- a comment --></body></html>");
    const ImportResult page = import("html", path("page.html"), "text/html");
    ASSERT_EQ(page.status, ImportStatus::Imported) << page.error;
    EXPECT_EQ(textOf(page, "kMDItemTitle"), "Café & crème");
    EXPECT_EQ(texts(page, "kMDItemAuthors"), std::vector<std::string>{"Ana Lima"});
    EXPECT_EQ(texts(page, "kMDItemKeywords"), (std::vector<std::string>{"coffee", "milk"}));
    const std::string body = text(page);
    EXPECT_NE(body.find("Menu"), std::string::npos) << body;
    EXPECT_NE(body.find("Espresso and latte"), std::string::npos) << body;  // &nbsp; is a space
    EXPECT_EQ(body.find("hidden"), std::string::npos) << body;
    EXPECT_EQ(body.find("color"), std::string::npos) << body;
    EXPECT_EQ(body.find("comment"), std::string::npos) << body;
}

TEST_F(ImportersTest, PdfGivesPagesTextAndDocumentInformation)
{
    test::writePdf(path("report.pdf"), {"Quarterly figures", "Second page words"},
                   {{"Title", "(Annual Report)"}, {"Author", "(Jo Smith)"}, {"Producer", "(TestWriter 1.0)"}});
    const ImportResult pdf = import("pdf", path("report.pdf"), "application/pdf");
    ASSERT_EQ(pdf.status, ImportStatus::Imported) << pdf.error;
    EXPECT_EQ(textOf(pdf, "kMDItemTitle"), "Annual Report");
    EXPECT_EQ(texts(pdf, "kMDItemAuthors"), std::vector<std::string>{"Jo Smith"});
    EXPECT_EQ(numberOf(pdf, "kMDItemNumberOfPages"), 2);
    EXPECT_EQ(numberOf(pdf, "kMDItemPageWidth"), 595);
    const std::string body = text(pdf);
    EXPECT_NE(body.find("Quarterly figures"), std::string::npos) << body;
    EXPECT_NE(body.find("Second page words"), std::string::npos) << body;

    // Cut in the middle, and plain garbage under the name: failures with a
    // reason, or what could be read; never a crash.
    const std::string whole = test::readBytes(path("report.pdf"));
    writeBytes(path("cut.pdf"), whole.substr(0, whole.size() / 3));
    const ImportResult cut = import("pdf", path("cut.pdf"), "application/pdf");
    EXPECT_TRUE(cut.status == ImportStatus::Failed ? !cut.error.empty() : cut.status == ImportStatus::Imported);
    writeBytes(path("noise.pdf"), std::string(5000, '\x9c'));
    const ImportResult noise = import("pdf", path("noise.pdf"), "application/pdf");
    EXPECT_EQ(noise.status, ImportStatus::Failed);
    EXPECT_FALSE(noise.error.empty());
}

TEST_F(ImportersTest, OpenDocumentAndOfficeFilesGiveTextAndMetadata)
{
    test::writeZip(path("letter.odt"),
                   {{"mimetype", "application/vnd.oasis.opendocument.text"},
                    {"content.xml",
                     "<office:document-content xmlns:office=\"o\" xmlns:text=\"t\"><office:body><office:text>"
                     "<text:h>Dear reader</text:h><text:p>First<text:s/>paragraph</text:p>"
                     "<text:p>Zweiter Absatz</text:p></office:text></office:body></office:document-content>"},
                    {"meta.xml",
                     "<office:document-meta xmlns:office=\"o\" xmlns:meta=\"m\" xmlns:dc=\"d\"><office:meta>"
                     "<dc:title>A Letter</dc:title><meta:initial-creator>Ann</meta:initial-creator>"
                     "<dc:creator>Bob</dc:creator><meta:keyword>post</meta:keyword><meta:keyword>mail</meta:keyword>"
                     "<meta:creation-date>2024-03-01T10:20:30.25</meta:creation-date>"
                     "<meta:document-statistic meta:page-count=\"3\"/></office:meta></office:document-meta>"}},
                   false);
    const ImportResult odt = import("opendocument", path("letter.odt"), "application/vnd.oasis.opendocument.text");
    ASSERT_EQ(odt.status, ImportStatus::Imported) << odt.error;
    EXPECT_EQ(text(odt), "Dear reader\nFirst paragraph\nZweiter Absatz\n");
    EXPECT_EQ(textOf(odt, "kMDItemTitle"), "A Letter");
    EXPECT_EQ(texts(odt, "kMDItemAuthors"), std::vector<std::string>{"Ann"});
    EXPECT_EQ(texts(odt, "kMDItemContributors"), std::vector<std::string>{"Bob"});
    EXPECT_EQ(texts(odt, "kMDItemKeywords"), (std::vector<std::string>{"post", "mail"}));
    EXPECT_EQ(numberOf(odt, "kMDItemNumberOfPages"), 3);

    const std::string docxMime = "application/vnd.openxmlformats-officedocument.wordprocessingml.document";
    test::writeZip(path("memo.docx"),
                   {{"word/document.xml",
                     "<w:document xmlns:w=\"w\"><w:body><w:p><w:r><w:t>Budget</w:t></w:r><w:r><w:t xml:space=\"preserve\">"
                     " plan</w:t></w:r></w:p><w:p><w:r><w:delText>gone</w:delText><w:t>Kept</w:t></w:r></w:p>"
                     "</w:body></w:document>"},
                    {"docProps/core.xml",
                     "<cp:coreProperties xmlns:cp=\"c\" xmlns:dc=\"d\" xmlns:dcterms=\"t\"><dc:title>Memo</dc:title>"
                     "<dc:creator>Ann; Bob</dc:creator><dcterms:modified>2023-01-02T03:04:05Z</dcterms:modified>"
                     "</cp:coreProperties>"},
                    {"docProps/app.xml", "<Properties><Application>Writer</Application><Pages>2</Pages></Properties>"}});
    const ImportResult docx = import("officeopenxml", path("memo.docx"), docxMime);
    ASSERT_EQ(docx.status, ImportStatus::Imported) << docx.error;
    EXPECT_EQ(text(docx), "Budget plan\nKept\n");
    EXPECT_EQ(textOf(docx, "kMDItemTitle"), "Memo");
    EXPECT_EQ(texts(docx, "kMDItemAuthors"), (std::vector<std::string>{"Ann", "Bob"}));
    EXPECT_EQ(textOf(docx, "kMDItemCreator"), "Writer");
    EXPECT_EQ(numberOf(docx, "kMDItemNumberOfPages"), 2);

    test::writeZip(path("sheet.xlsx"),
                   {{"xl/workbook.xml", "<workbook/>"},
                    {"xl/sharedStrings.xml", "<sst><si><t>Revenue</t></si><si><t>Costs</t></si></sst>"},
                    {"xl/worksheets/sheet1.xml", "<worksheet><c t=\"inlineStr\"><is><t>Inline</t></is></c></worksheet>"}});
    const ImportResult xlsx = import("officeopenxml", path("sheet.xlsx"),
                                     "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet");
    EXPECT_EQ(text(xlsx), "Revenue\nCosts\nInline\n");

    test::writeZip(path("deck.pptx"),
                   {{"ppt/presentation.xml", "<p/>"},
                    {"ppt/slides/slide10.xml", "<sld><a:p xmlns:a=\"a\"><a:t>Tenth</a:t></a:p></sld>"},
                    {"ppt/slides/slide2.xml", "<sld><a:p xmlns:a=\"a\"><a:t>Second</a:t></a:p></sld>"}});
    const ImportResult pptx = import("officeopenxml", path("deck.pptx"),
                                     "application/vnd.openxmlformats-officedocument.presentationml.presentation");
    EXPECT_EQ(text(pptx), "Second\nTenth\n");

    test::writeZip(path("empty.docx"), {{"other.xml", "<x/>"}});
    const ImportResult empty = import("officeopenxml", path("empty.docx"), docxMime);
    EXPECT_EQ(empty.status, ImportStatus::Failed);
    EXPECT_FALSE(empty.error.empty());
}

TEST_F(ImportersTest, EpubGivesChaptersInReadingOrderAndTheBooksMetadata)
{
    test::writeZip(
        path("book.epub"),
        {{"mimetype", "application/epub+zip"},
         {"META-INF/container.xml",
          "<container><rootfiles><rootfile full-path=\"OEBPS/content.opf\"/></rootfiles></container>"},
         {"OEBPS/content.opf",
          "<package xmlns:dc=\"d\"><metadata><dc:title>The Voyage</dc:title><dc:creator>Mary Shore</dc:creator>"
          "<dc:creator>Tom Sand</dc:creator><dc:language>en</dc:language><dc:date>1911</dc:date></metadata>"
          "<manifest><item id=\"c1\" href=\"text/one.xhtml\"/><item id=\"c2\" href=\"text/two%20b.xhtml\"/></manifest>"
          "<spine><itemref idref=\"c2\"/><itemref idref=\"c1\"/></spine></package>"},
         {"OEBPS/text/one.xhtml", "<html><body><p>Chapter one: the harbour</p></body></html>"},
         {"OEBPS/text/two b.xhtml", "<html><body><p>Prologue at sea</p></body></html>"}});
    const ImportResult book = import("epub", path("book.epub"), "application/epub+zip");
    ASSERT_EQ(book.status, ImportStatus::Imported) << book.error;
    const std::string body = text(book);
    const std::size_t prologue = body.find("Prologue at sea");
    const std::size_t chapter = body.find("Chapter one: the harbour");
    ASSERT_NE(prologue, std::string::npos) << body;
    ASSERT_NE(chapter, std::string::npos) << body;
    EXPECT_LT(prologue, chapter);
    EXPECT_EQ(textOf(book, "kMDItemTitle"), "The Voyage");
    EXPECT_EQ(texts(book, "kMDItemAuthors"), (std::vector<std::string>{"Mary Shore", "Tom Sand"}));
    EXPECT_EQ(texts(book, "kMDItemLanguages"), std::vector<std::string>{"en"});
    EXPECT_TRUE(index::findImported(book.attributes, "kMDItemContentCreationDate"));
}

TEST_F(ImportersTest, ZipBombsAndDamagedArchivesCostTheLimitAndNoMore)
{
    // 200 MB of spaces deflate to a few hundred kilobytes; the importer must
    // stop reading at its limit instead of inflating them all.
    std::string huge = "<w:document xmlns:w=\"w\"><w:body><w:p><w:r><w:t>start ";
    huge.append(std::size_t{200} << 20, ' ');
    huge += "end</w:t></w:r></w:p></w:body></w:document>";
    test::writeZip(path("bomb.docx"), {{"word/document.xml", huge}});
    huge.clear();
    huge.shrink_to_fit();
    const ImportResult bomb = import("officeopenxml", path("bomb.docx"),
                                     "application/vnd.openxmlformats-officedocument.wordprocessingml.document", 4096);
    EXPECT_NE(bomb.status, ImportStatus::Exhausted);
    if (bomb.status == ImportStatus::Imported) {
        EXPECT_TRUE(bomb.truncated);
        EXPECT_LE(bomb.text.value_or("").size(), 4096u);
    }

    writeBytes(path("random.odt"), std::string("PK\x03\x04", 4) + std::string(3000, '\x5a'));
    const ImportResult random = import("opendocument", path("random.odt"), "application/vnd.oasis.opendocument.text");
    EXPECT_EQ(random.status, ImportStatus::Failed);
    EXPECT_FALSE(random.error.empty());
}

TEST_F(ImportersTest, EmailGivesHeadersAndTheReadableBody)
{
    writeBytes(path("note.eml"),
               "From: =?UTF-8?Q?Jos=C3=A9_Garc=C3=ADa?= <jose@example.org>\r\n"
               "To: Ann <ann@example.org>, bob@example.org\r\n"
               "Subject: =?UTF-8?B?UmU6IEzDtnN1bmc=?=\r\n"
               "Date: Tue, 05 Mar 2024 10:00:00 +0100\r\n"
               "MIME-Version: 1.0\r\n"
               "Content-Type: multipart/alternative; boundary=\"XX\"\r\n\r\n"
               "--XX\r\nContent-Type: text/plain; charset=iso-8859-1\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
               "Gr=FC=DFe aus K=F6ln, the invoice is attached=\r\n soon.\r\n"
               "--XX\r\nContent-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n\r\n"
               "c2VjcmV0YmluYXJ5\r\n--XX--\r\n");
    const ImportResult mail = import("email", path("note.eml"), "message/rfc822");
    ASSERT_EQ(mail.status, ImportStatus::Imported) << mail.error;
    EXPECT_EQ(textOf(mail, "kMDItemSubject"), "Re: Lösung");
    EXPECT_EQ(texts(mail, "kMDItemAuthors"), std::vector<std::string>{"José García"});
    EXPECT_EQ(texts(mail, "kMDItemAuthorEmailAddresses"), std::vector<std::string>{"jose@example.org"});
    EXPECT_EQ(texts(mail, "kMDItemRecipientEmailAddresses"),
              (std::vector<std::string>{"ann@example.org", "bob@example.org"}));
    EXPECT_TRUE(index::findImported(mail.attributes, "kMDItemContentCreationDate"));
    const std::string body = text(mail);
    EXPECT_NE(body.find("Grüße aus Köln, the invoice is attached soon."), std::string::npos) << body;
    EXPECT_EQ(body.find("secretbinary"), std::string::npos) << body;
}

TEST_F(ImportersTest, ImagesGiveTheirSizeAndCameraData)
{
    writeBytes(path("photo.jpg"), test::jpegBytes(640, 480));
    {
        auto image = Exiv2::ImageFactory::open(path("photo.jpg"));
        image->readMetadata();
        Exiv2::ExifData& exif = image->exifData();
        exif["Exif.Image.Make"] = "Trovacam";
        exif["Exif.Image.Model"] = "T-100";
        exif["Exif.Photo.FNumber"] = Exiv2::Rational(28, 10);
        exif["Exif.Photo.ExposureTime"] = Exiv2::Rational(1, 250);
        exif["Exif.Photo.ISOSpeedRatings"] = uint16_t(400);
        exif["Exif.Photo.DateTimeOriginal"] = "2021:07:14 12:30:00";
        exif["Exif.GPSInfo.GPSLatitudeRef"] = "S";
        exif["Exif.GPSInfo.GPSLatitude"] = "33/1 52/1 0/1";
        exif["Exif.GPSInfo.GPSLongitudeRef"] = "E";
        exif["Exif.GPSInfo.GPSLongitude"] = "151/1 12/1 36/1";
        image->writeMetadata();
    }
    const ImportResult photo = import("image", path("photo.jpg"), "image/jpeg");
    ASSERT_EQ(photo.status, ImportStatus::Imported) << photo.error;
    EXPECT_EQ(numberOf(photo, "kMDItemPixelWidth"), 640);
    EXPECT_EQ(numberOf(photo, "kMDItemPixelHeight"), 480);
    EXPECT_EQ(textOf(photo, "kMDItemAcquisitionMake"), "Trovacam");
    EXPECT_EQ(textOf(photo, "kMDItemAcquisitionModel"), "T-100");
    EXPECT_DOUBLE_EQ(numberOf(photo, "kMDItemFNumber"), 2.8);
    EXPECT_DOUBLE_EQ(numberOf(photo, "kMDItemExposureTimeSeconds"), 0.004);
    EXPECT_EQ(numberOf(photo, "kMDItemISOSpeed"), 400);
    EXPECT_NEAR(numberOf(photo, "kMDItemLatitude"), -33.8667, 1e-3);
    EXPECT_NEAR(numberOf(photo, "kMDItemLongitude"), 151.21, 1e-3);
    EXPECT_TRUE(index::findImported(photo.attributes, "kMDItemContentCreationDate"));

    writeBytes(path("icon.png"), test::pngBytes(12, 7));
    const ImportResult png = import("image", path("icon.png"), "image/png");
    ASSERT_EQ(png.status, ImportStatus::Imported) << png.error;
    EXPECT_EQ(numberOf(png, "kMDItemPixelWidth"), 12);
    EXPECT_EQ(numberOf(png, "kMDItemPixelHeight"), 7);
    EXPECT_EQ(numberOf(png, "kMDItemHasAlphaChannel"), 1);

    writeBytes(path("anim.gif"), test::gifBytes(33, 21));
    const ImportResult gif = import("image", path("anim.gif"), "image/gif");
    EXPECT_EQ(numberOf(gif, "kMDItemPixelWidth"), 33);
    EXPECT_EQ(numberOf(gif, "kMDItemPixelHeight"), 21);

    writeBytes(path("noise.jpg"), std::string(2000, '\x33'));
    const ImportResult noise = import("image", path("noise.jpg"), "image/jpeg");
    EXPECT_EQ(noise.status, ImportStatus::Failed);
    EXPECT_FALSE(noise.error.empty());
}

TEST_F(ImportersTest, SvgDrawingsGiveTheSizeTheyAreDrawnAt)
{
    writeBytes(path("plan.svg"), "<svg xmlns='http://www.w3.org/2000/svg' width='120' height='80'>"
                                 "<rect width='10' height='10'/></svg>");
    const ImportResult plan = import("image", path("plan.svg"), "image/svg+xml");
    ASSERT_EQ(plan.status, ImportStatus::Imported) << plan.error;
    EXPECT_EQ(numberOf(plan, "kMDItemPixelWidth"), 120);
    EXPECT_EQ(numberOf(plan, "kMDItemPixelHeight"), 80);

    // Without a width and height, the view box tells the size.
    writeBytes(path("icon.svg"), "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 48 32'/>");
    const ImportResult icon = import("image", path("icon.svg"), "image/svg+xml");
    EXPECT_EQ(numberOf(icon, "kMDItemPixelWidth"), 48);
    EXPECT_EQ(numberOf(icon, "kMDItemPixelHeight"), 32);

    writeBytes(path("broken.svg"), "<svg xmlns='http://www.w3.org/2000/svg' width='10'");
    const ImportResult broken = import("image", path("broken.svg"), "image/svg+xml");
    EXPECT_EQ(broken.status, ImportStatus::Failed);
    EXPECT_EQ(broken.error, "not a readable SVG drawing");
}

TEST_F(ImportersTest, AudioGivesTagsDurationAndBitRate)
{
    writeBytes(path("song.mp3"), test::silentMp3Bytes(383));  // about ten seconds
    {
        TagLib::FileRef file(path("song.mp3").c_str());
        ASSERT_FALSE(file.isNull());
        file.tag()->setTitle(TagLib::String("Río Lento", TagLib::String::UTF8));
        file.tag()->setArtist("The Quiet Band");
        file.tag()->setAlbum("Silence");
        file.tag()->setGenre("Ambient");
        file.tag()->setYear(1999);
        file.tag()->setTrack(4);
        file.save();
    }
    const ImportResult song = import("audio", path("song.mp3"), "audio/mpeg");
    ASSERT_EQ(song.status, ImportStatus::Imported) << song.error;
    EXPECT_EQ(textOf(song, "kMDItemTitle"), "Río Lento");
    EXPECT_EQ(textOf(song, "kMDItemAlbum"), "Silence");
    EXPECT_EQ(textOf(song, "kMDItemMusicalGenre"), "Ambient");
    EXPECT_EQ(texts(song, "kMDItemAuthors"), std::vector<std::string>{"The Quiet Band"});
    EXPECT_EQ(numberOf(song, "kMDItemRecordingYear"), 1999);
    EXPECT_EQ(numberOf(song, "kMDItemAudioTrackNumber"), 4);
    EXPECT_NEAR(numberOf(song, "kMDItemDurationSeconds"), 10, 1);
    EXPECT_NEAR(numberOf(song, "kMDItemAudioBitRate"), 128, 2);
    EXPECT_EQ(numberOf(song, "kMDItemAudioSampleRate"), 44100);

    writeBytes(path("noise.mp3"), std::string(3000, '\x11'));
    const ImportResult noise = import("audio", path("noise.mp3"), "audio/mpeg");
    EXPECT_EQ(noise.status, ImportStatus::Failed);
    EXPECT_FALSE(noise.error.empty());
}

TEST_F(ImportersTest, AnUnknownImporterNameIsAFailureNotACrash)
{
    writeBytes(path("a.txt"), "words");
    const ImportResult result = import("no-such-importer", path("a.txt"), "text/plain");
    EXPECT_EQ(result.status, ImportStatus::Failed);
    EXPECT_NE(result.error.find("no-such-importer"), std::string::npos);
}

}  // namespace
}  // namespace trovara::importers
