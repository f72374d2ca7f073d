// OpenDocument files (text, spreadsheets, presentations, drawings): the
// text of content.xml and what meta.xml says (title, authors, keywords,
// dates, page count, producing application).
#include "importers/zip_archive.h"

namespace trovara::importers {

namespace {

// Walks the body: text runs as they are, paragraphs, headings, cells and
// frames separated by line breaks, <text:s/> as spaces, tabs and breaks.
void appendBodyText(const pugi::xml_node& node, ImportSink& sink)
{
    for (pugi::xml_node child = node.first_child(); child && !sink.textFull(); child = child.next_sibling()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            sink.appendText(child.value());
            continue;
        }
        if (child.type() != pugi::node_element) {
            continue;
        }
        const std::string_view name = localName(child);
        if (name == "s") {
            sink.appendText(" ");
        } else if (name == "tab") {
            sink.appendText("\t");
        } else if (name == "line-break") {
            sink.appendText("\n");
        } else {
            appendBodyText(child, sink);
            if (name == "p" || name == "h" || name == "table-cell" || name == "list-item" || name == "frame") {
                sink.breakText();
            }
        }
    }
}

class OpenDocumentImporter final : public Importer {
public:
    OpenDocumentImporter()
    {
        m_info.name = "opendocument";
        m_info.version = "1";
        for (const char* kind : {"text", "text-template", "spreadsheet", "spreadsheet-template", "presentation",
                                 "presentation-template", "graphics", "graphics-template", "text-master"}) {
            m_info.contentTypes.push_back(std::string("application/vnd.oasis.opendocument.") + kind);
        }
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        Expected<ZipDocument> document = ZipDocument::open(context.path, sink);
        if (!document) {
            return document.error();
        }
        std::optional<pugi::xml_document> content = document->xml("content.xml");
        if (!content) {
            return importFailure("an OpenDocument file without readable content");
        }
        if (std::optional<pugi::xml_document> meta = document->xml("meta.xml")) {
            readMeta(*meta, sink);
        }
        const pugi::xml_node body = findElement(*content, "body");
        appendBodyText(body ? body : content->document_element(), sink);
        document->finish(sink);
        return {};
    }

private:
    static void readMeta(const pugi::xml_document& meta, ImportSink& sink)
    {
        static constexpr MetadataField kFields[] = {
            {"title", "kMDItemTitle", MetadataField::Kind::Text},
            {"description", "kMDItemDescription", MetadataField::Kind::Text},
            {"subject", "kMDItemSubject", MetadataField::Kind::Text},
            {"keyword", "kMDItemKeywords", MetadataField::Kind::List},
            {"language", "kMDItemLanguages", MetadataField::Kind::List},
            {"generator", "kMDItemCreator", MetadataField::Kind::Text},
            {"creation-date", "kMDItemContentCreationDate", MetadataField::Kind::Date},
            {"date", "kMDItemContentModificationDate", MetadataField::Kind::Date},
        };
        const pugi::xml_node root = findElement(meta, "meta");
        readMetadataFields(root, kFields, sink);
        if (const pugi::xml_node statistic = findElement(root, "document-statistic")) {
            if (const pugi::xml_attribute pages = statistic.attribute("meta:page-count")) {
                sink.setNumber("kMDItemNumberOfPages", pages.as_double());
            }
        }
        // The author is who made it; who saved it last is a contributor.
        const std::string initialCreator = elementText(findElement(root, "initial-creator"));
        const std::string creator = elementText(findElement(root, "creator"));
        if (!initialCreator.empty()) {
            sink.setList("kMDItemAuthors", {initialCreator});
            if (!creator.empty() && creator != initialCreator) {
                sink.setList("kMDItemContributors", {creator});
            }
        } else if (!creator.empty()) {
            sink.setList("kMDItemAuthors", {creator});
        }
    }

    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeOpenDocumentImporter()
{
    return std::make_unique<OpenDocumentImporter>();
}

}  // namespace trovara::importers
