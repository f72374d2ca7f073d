// HTML pages: the visible text, the title, and the author, description and
// keywords of the page's meta elements.
#include "importers/file_bytes.h"
#include "importers/html_text.h"

#include "index/text/encoding.h"

namespace trovara::importers {

namespace {

class HtmlImporter final : public Importer {
public:
    HtmlImporter()
    {
        m_info.name = "html";
        m_info.version = "1";
        m_info.contentTypes = {"public.html", "application/xhtml+xml"};
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        Expected<FileBytes> file = readFileBytes(context.path, readLimitFor(sink.textLimit()));
        if (!file) {
            return file.error();
        }
        const std::string html = decodeHtml(file->bytes);
        const HtmlFacts facts = extractHtml(html, sink);
        sink.setText("kMDItemTitle", facts.title);
        if (!facts.author.empty()) {
            sink.setList("kMDItemAuthors", {facts.author});
        }
        sink.setText("kMDItemDescription", facts.description);
        sink.setList("kMDItemKeywords", facts.keywords);
        if (!facts.language.empty()) {
            sink.setList("kMDItemLanguages", {facts.language});
        }
        if (!file->complete) {
            sink.markTruncated();
        }
        return {};
    }

private:
    // A byte-order mark, else the charset the page declares, else the guess.
    static std::string decodeHtml(const std::string& bytes)
    {
        using namespace index::text;
        const TextEncoding detected = detectEncoding(bytes);
        if (detected == TextEncoding::Utf16LittleEndian || detected == TextEncoding::Utf16BigEndian
            || bytes.starts_with("\xEF\xBB\xBF")) {
            return decodeText(bytes, bytes.starts_with("\xEF\xBB\xBF") ? TextEncoding::Utf8 : detected).text;
        }
        const std::string declared = declaredHtmlCharset(bytes);
        if (!declared.empty()) {
            if (std::optional<DecodedText> decoded = decodeNamedCharset(bytes, declared)) {
                return std::move(decoded->text);
            }
        }
        return decodeText(bytes, detected).text;
    }

    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeHtmlImporter()
{
    return std::make_unique<HtmlImporter>();
}

}  // namespace trovara::importers
