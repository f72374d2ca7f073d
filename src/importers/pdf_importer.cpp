// PDF documents (poppler): the text of every page, the document's title,
// author, subject, keywords, producing application, dates, page count and
// the size of its first page.
#include "importers/importer.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <memory>

namespace trovara::importers {

namespace {

constexpr double kReferenceDateOffset = 978307200.0;

std::string utf8(const poppler::ustring& text)
{
    const poppler::byte_array bytes = text.to_utf8();
    return std::string(bytes.begin(), bytes.end());
}

// PDF keywords are one text; people separate them with commas or semicolons.
std::vector<std::string> splitKeywords(const std::string& text)
{
    std::vector<std::string> keywords;
    std::string current;
    for (const char c : text + ",") {
        if (c == ',' || c == ';') {
            keywords.push_back(current);
            current.clear();
        } else {
            current.push_back(c);
        }
    }
    return keywords;
}

class PdfImporter final : public Importer {
public:
    PdfImporter()
    {
        m_info.name = "pdf";
        m_info.version = "1";
        m_info.contentTypes = {"com.adobe.pdf", "application/pdf"};
        // Poppler's complaints about damaged files are not ours to print.
        poppler::set_debug_error_function([](const std::string&, void*) {}, nullptr);
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        std::unique_ptr<poppler::document> document(poppler::document::load_from_file(context.path));
        if (!document) {
            return importFailure("not a readable PDF document");
        }
        if (document->is_locked()) {
            sink.setText("kMDItemSecurityMethod", "Password Encrypted");
            return importFailure("the PDF document is protected by a password");
        }
        if (document->is_encrypted()) {
            sink.setText("kMDItemSecurityMethod", "Password Encrypted");
        }
        sink.setText("kMDItemTitle", utf8(document->get_title()));
        const std::string author = utf8(document->get_author());
        if (!author.empty()) {
            sink.setList("kMDItemAuthors", {author});
        }
        sink.setText("kMDItemSubject", utf8(document->get_subject()));
        sink.setList("kMDItemKeywords", splitKeywords(utf8(document->get_keywords())));
        sink.setText("kMDItemCreator", utf8(document->get_creator()));
        const std::string producer = utf8(document->get_producer());
        if (!producer.empty()) {
            sink.setList("kMDItemEncodingApplications", {producer});
        }
        if (const time_t created = document->get_creation_date_t(); created > 0) {
            sink.setDate("kMDItemContentCreationDate", static_cast<double>(created) - kReferenceDateOffset);
        }
        if (const time_t modified = document->get_modification_date_t(); modified > 0) {
            sink.setDate("kMDItemContentModificationDate", static_cast<double>(modified) - kReferenceDateOffset);
        }
        int major = 0;
        int minor = 0;
        document->get_pdf_version(&major, &minor);
        sink.setText("kMDItemVersion", std::to_string(major) + "." + std::to_string(minor));
        const int pages = document->pages();
        sink.setNumber("kMDItemNumberOfPages", pages);
        for (int i = 0; i < pages && !sink.textFull(); ++i) {
            std::unique_ptr<poppler::page> page(document->create_page(i));
            if (!page) {
                continue;
            }
            if (i == 0) {
                const poppler::rectf box = page->page_rect(poppler::media_box);
                sink.setNumber("kMDItemPageWidth", box.width());
                sink.setNumber("kMDItemPageHeight", box.height());
            }
            sink.appendText(utf8(page->text()));
            sink.breakText();
        }
        return {};
    }

private:
    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makePdfImporter()
{
    return std::make_unique<PdfImporter>();
}

}  // namespace trovara::importers
