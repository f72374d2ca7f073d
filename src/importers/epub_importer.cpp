// EPUB e-books: the text of the chapters in reading order, and the book's
// title, authors, language, publisher, description, subjects and date.
#include "importers/html_text.h"
#include "importers/zip_archive.h"

#include "index/text/encoding.h"

#include <cctype>
#include <map>

namespace trovara::importers {

namespace {

// A manifest reference relative to the package document, as a part name:
// "%20" decoded, "." and ".." resolved.
std::string resolve(const std::string& base, std::string_view href)
{
    href = href.substr(0, href.find('#'));
    std::string decoded;
    for (std::size_t i = 0; i < href.size(); ++i) {
        if (href[i] == '%' && i + 2 < href.size() && std::isxdigit(static_cast<unsigned char>(href[i + 1]))
            && std::isxdigit(static_cast<unsigned char>(href[i + 2]))) {
            decoded.push_back(static_cast<char>(std::stoi(std::string(href.substr(i + 1, 2)), nullptr, 16)));
            i += 2;
        } else {
            decoded.push_back(href[i]);
        }
    }
    std::vector<std::string> parts;
    const std::string path = decoded.starts_with("/") ? decoded.substr(1) : base + decoded;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = std::min(path.find('/', start), path.size());
        const std::string part = path.substr(start, slash - start);
        if (part == "..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = slash + 1;
    }
    std::string joined;
    for (const std::string& part : parts) {
        joined += (joined.empty() ? "" : "/") + part;
    }
    return joined;
}

class EpubImporter final : public Importer {
public:
    EpubImporter()
    {
        m_info.name = "epub";
        m_info.version = "1";
        m_info.contentTypes = {"org.idpf.epub-container", "application/epub+zip"};
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        Expected<ZipDocument> document = ZipDocument::open(context.path, sink);
        if (!document) {
            return document.error();
        }
        std::optional<pugi::xml_document> container = document->xml("META-INF/container.xml");
        const pugi::xml_node rootfile = container ? findElement(*container, "rootfile") : pugi::xml_node();
        const std::string packagePath = rootfile.attribute("full-path").value();
        std::optional<pugi::xml_document> package = packagePath.empty() ? std::nullopt : document->xml(packagePath);
        if (!package) {
            return importFailure("an EPUB book without a readable package document");
        }
        const std::string base = packagePath.substr(0, packagePath.rfind('/') + 1);  // npos + 1 is 0: no folder
        static constexpr MetadataField kFields[] = {
            {"title", "kMDItemTitle", MetadataField::Kind::Text},
            {"creator", "kMDItemAuthors", MetadataField::Kind::List},
            {"contributor", "kMDItemContributors", MetadataField::Kind::List},
            {"subject", "kMDItemKeywords", MetadataField::Kind::List},
            {"language", "kMDItemLanguages", MetadataField::Kind::List},
            {"publisher", "kMDItemPublishers", MetadataField::Kind::List},
            {"description", "kMDItemDescription", MetadataField::Kind::Text},
            {"rights", "kMDItemCopyright", MetadataField::Kind::Text},
            {"date", "kMDItemContentCreationDate", MetadataField::Kind::Date},
        };
        readMetadataFields(findElement(*package, "metadata"), kFields, sink);

        std::map<std::string, std::string> manifest;  // id → part
        const pugi::xml_node manifestNode = findElement(*package, "manifest");
        for (pugi::xml_node item = manifestNode.first_child(); item; item = item.next_sibling()) {
            if (localName(item) == "item") {
                manifest[item.attribute("id").value()] = resolve(base, item.attribute("href").value());
            }
        }
        const pugi::xml_node spine = findElement(*package, "spine");
        for (pugi::xml_node ref = spine.first_child(); ref && !sink.textFull(); ref = ref.next_sibling()) {
            const auto part = manifest.find(ref.attribute("idref").value());
            if (localName(ref) != "itemref" || part == manifest.end()) {
                continue;
            }
            if (std::optional<FileBytes> chapter = document->bytes(part->second)) {
                const std::string html =
                    index::text::decodeText(chapter->bytes, index::text::detectEncoding(chapter->bytes)).text;
                extractHtml(html, sink);
                sink.breakText();
            }
        }
        document->finish(sink);
        return {};
    }

    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeEpubImporter()
{
    return std::make_unique<EpubImporter>();
}

}  // namespace trovara::importers
