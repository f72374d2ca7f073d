// Office Open XML files (Word, Excel, PowerPoint): the text of the document,
// its shared strings or its slides, and what docProps/core.xml and app.xml
// say (title, authors, keywords, dates, pages, application, company).
#include "importers/zip_archive.h"

#include <algorithm>

namespace trovara::importers {

namespace {

// Text lives in <t> elements (w:t, a:t, the shared strings' t); paragraphs
// end with a line break, tabs and breaks are kept. Deleted text of tracked
// changes and field instructions are not text a reader sees.
void appendRunText(const pugi::xml_node& node, ImportSink& sink, bool inText)
{
    for (pugi::xml_node child = node.first_child(); child && !sink.textFull(); child = child.next_sibling()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            if (inText) {
                sink.appendText(child.value());
            }
            continue;
        }
        if (child.type() != pugi::node_element) {
            continue;
        }
        const std::string_view name = localName(child);
        if (name == "delText" || name == "instrText") {
            continue;
        }
        if (name == "tab") {
            sink.appendText("\t");
        } else if (name == "br" || name == "cr") {
            sink.appendText("\n");
        } else {
            appendRunText(child, sink, name == "t");
            if (name == "p" || name == "si" || name == "tc") {
                sink.breakText();
            }
        }
    }
}

// "slide12.xml" sorts after "slide2.xml".
bool byNumber(const std::string& a, const std::string& b)
{
    auto number = [](const std::string& name) {
        const std::size_t digits = name.find_first_of("0123456789");
        return digits == std::string::npos ? 0 : std::atoi(name.c_str() + digits);
    };
    return number(a) != number(b) ? number(a) < number(b) : a < b;
}

std::vector<std::string> partsIn(const ZipArchive& archive, std::string_view folder)
{
    std::vector<std::string> parts;
    for (const std::string& name : archive.names()) {
        if (name.starts_with(folder) && name.ends_with(".xml") && name.find('/', folder.size()) == std::string::npos) {
            parts.push_back(name);
        }
    }
    std::sort(parts.begin(), parts.end(), byNumber);
    return parts;
}

class OfficeOpenXmlImporter final : public Importer {
public:
    OfficeOpenXmlImporter()
    {
        m_info.name = "officeopenxml";
        m_info.version = "1";
        for (const char* kind :
             {"wordprocessingml.document", "wordprocessingml.template", "spreadsheetml.sheet", "spreadsheetml.template",
              "presentationml.presentation", "presentationml.slideshow", "presentationml.template"}) {
            m_info.contentTypes.push_back(std::string("application/vnd.openxmlformats-officedocument.") + kind);
        }
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        Expected<ZipDocument> document = ZipDocument::open(context.path, sink);
        if (!document) {
            return document.error();
        }
        static constexpr MetadataField kCoreFields[] = {
            {"title", "kMDItemTitle", MetadataField::Kind::Text},
            {"subject", "kMDItemSubject", MetadataField::Kind::Text},
            {"creator", "kMDItemAuthors", MetadataField::Kind::SplitList},
            {"keywords", "kMDItemKeywords", MetadataField::Kind::SplitList},
            {"description", "kMDItemDescription", MetadataField::Kind::Text},
            {"lastModifiedBy", "kMDItemContributors", MetadataField::Kind::List},
            {"language", "kMDItemLanguages", MetadataField::Kind::List},
            {"created", "kMDItemContentCreationDate", MetadataField::Kind::Date},
            {"modified", "kMDItemContentModificationDate", MetadataField::Kind::Date},
        };
        if (std::optional<pugi::xml_document> core = document->xml("docProps/core.xml")) {
            readMetadataFields(core->document_element(), kCoreFields, sink);
        }
        if (std::optional<pugi::xml_document> app = document->xml("docProps/app.xml")) {
            readApp(*app, sink);
        }
        const ZipArchive& archive = document->archive();
        std::vector<std::string> textParts;
        if (archive.has("word/document.xml")) {
            textParts = {"word/document.xml", "word/footnotes.xml", "word/endnotes.xml"};
        } else if (archive.has("xl/workbook.xml")) {
            textParts = {"xl/sharedStrings.xml"};
            for (std::string& sheet : partsIn(archive, "xl/worksheets/")) {
                textParts.push_back(std::move(sheet));  // their inline strings
            }
        } else if (archive.has("ppt/presentation.xml")) {
            textParts = partsIn(archive, "ppt/slides/");
            for (std::string& notes : partsIn(archive, "ppt/notesSlides/")) {
                textParts.push_back(std::move(notes));
            }
        } else {
            return importFailure("an Office Open XML file without a document, workbook or presentation");
        }
        for (std::size_t i = 0; i < textParts.size() && !sink.textFull(); ++i) {
            if (std::optional<pugi::xml_document> part = document->xml(textParts[i])) {
                appendRunText(*part, sink, false);
                sink.breakText();
            }
        }
        document->finish(sink);
        return {};
    }

private:
    static void readApp(const pugi::xml_document& app, ImportSink& sink)
    {
        const pugi::xml_node root = app.document_element();
        for (pugi::xml_node child = root.first_child(); child; child = child.next_sibling()) {
            const std::string_view name = localName(child);
            if (name == "Application") {
                sink.setText("kMDItemCreator", elementText(child));
            } else if (name == "Pages" || name == "Slides") {
                sink.setNumber("kMDItemNumberOfPages", child.text().as_double());
            } else if (name == "Company") {
                sink.setList("kMDItemOrganizations", {elementText(child)});
            }
        }
    }

    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeOfficeOpenXmlImporter()
{
    return std::make_unique<OfficeOpenXmlImporter>();
}

}  // namespace trovara::importers
