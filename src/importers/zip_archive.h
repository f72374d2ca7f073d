// Documents that are zip archives of XML parts (OpenDocument, Office Open
// XML, EPUB): reading their parts safely, and the XML helpers their
// importers share.
//
// An archive's stated sizes are never trusted: a part is read until the
// limit and no further, so a zip bomb costs at most the limit. A part that
// was cut still parses (pugixml keeps what it read), and the importer marks
// the text as cut.
//
// Thread safety: an archive belongs to one thread.
#pragma once

#include "importers/file_bytes.h"

#include <pugixml.hpp>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct zip;

namespace trovara::importers {

class ZipArchive {
public:
    static Expected<ZipArchive> open(const std::string& path);
    ZipArchive(ZipArchive&& other) noexcept;
    ZipArchive& operator=(ZipArchive&&) = delete;
    ~ZipArchive();

    bool has(const std::string& name) const;
    std::vector<std::string> names() const;
    // The part, at most `limit` bytes of it; none when there is no such part
    // or it cannot be read (damaged, encrypted).
    std::optional<FileBytes> read(const std::string& name, std::uint64_t limit) const;

private:
    explicit ZipArchive(::zip* archive)
        : m_archive(archive)
    {
    }
    ::zip* m_archive = nullptr;
};

// A zip document being read into a sink: parts are read up to what the
// sink's text limit allows, and finish() marks the text as cut when any
// part was.
class ZipDocument {
public:
    static Expected<ZipDocument> open(const std::string& path, const ImportSink& sink);

    const ZipArchive& archive() const { return m_archive; }
    std::optional<pugi::xml_document> xml(const std::string& name);
    std::optional<FileBytes> bytes(const std::string& name);
    void finish(ImportSink& sink) const;

private:
    ZipDocument(ZipArchive archive, std::uint64_t limit)
        : m_archive(std::move(archive))
        , m_limit(limit)
    {
    }
    ZipArchive m_archive;
    std::uint64_t m_limit;
    bool m_complete = true;
};

// How a document's metadata element becomes an attribute.
struct MetadataField {
    enum class Kind {
        Text,       // the first element of the name gives the text
        List,       // every element of the name adds one element
        SplitList,  // one element holds a list separated by ";" or ","
        Date,       // an ISO 8601 date (or a bare year)
    };
    std::string_view element;  // local name
    std::string_view key;
    Kind kind;
};

// Sets the attributes of the fields among `parent`'s child elements.
void readMetadataFields(const pugi::xml_node& parent, std::span<const MetadataField> fields, ImportSink& sink);

// A part parsed as XML; none when the part is missing or holds no element.
// `complete` is cleared when the part was cut at the limit.
std::optional<pugi::xml_document> readXmlPart(const ZipArchive& archive, const std::string& name, std::uint64_t limit,
                                              bool& complete);

// The local name of an element ("dc:title" → "title").
std::string_view localName(const pugi::xml_node& node);
// The first descendant element with that local name.
pugi::xml_node findElement(const pugi::xml_node& root, std::string_view name);
// The text inside an element and all its descendants.
std::string elementText(const pugi::xml_node& node);

// An ISO 8601 date as documents write it (fractions of a second allowed) as
// seconds since 2001-01-01 UTC.
std::optional<double> documentDate(std::string_view text);

}  // namespace trovara::importers
