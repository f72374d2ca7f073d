#include "importers/zip_archive.h"

#include "index/list_text.h"
#include "index/query/time_value.h"

#include <algorithm>
#include <map>

#include <zip.h>

namespace trovara::importers {

Expected<ZipArchive> ZipArchive::open(const std::string& path)
{
    int error = 0;
    ::zip* archive = ::zip_open(path.c_str(), ZIP_RDONLY, &error);
    if (!archive) {
        zip_error_t details;
        zip_error_init_with_code(&details, error);
        std::string message = std::string("not a readable zip archive: ") + zip_error_strerror(&details);
        zip_error_fini(&details);
        return importFailure(std::move(message));
    }
    return ZipArchive(archive);
}

ZipArchive::ZipArchive(ZipArchive&& other) noexcept
    : m_archive(other.m_archive)
{
    other.m_archive = nullptr;
}

ZipArchive::~ZipArchive()
{
    if (m_archive) {
        ::zip_discard(m_archive);
    }
}

bool ZipArchive::has(const std::string& name) const
{
    return ::zip_name_locate(m_archive, name.c_str(), 0) >= 0;
}

std::vector<std::string> ZipArchive::names() const
{
    std::vector<std::string> list;
    const zip_int64_t count = ::zip_get_num_entries(m_archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        if (const char* name = ::zip_get_name(m_archive, static_cast<zip_uint64_t>(i), 0)) {
            list.emplace_back(name);
        }
    }
    return list;
}

std::optional<FileBytes> ZipArchive::read(const std::string& name, std::uint64_t limit) const
{
    const zip_int64_t index = ::zip_name_locate(m_archive, name.c_str(), 0);
    if (index < 0) {
        return std::nullopt;
    }
    zip_file_t* file = ::zip_fopen_index(m_archive, static_cast<zip_uint64_t>(index), 0);
    if (!file) {
        return std::nullopt;
    }
    FileBytes part;
    char buffer[65536];
    while (true) {
        const zip_int64_t got = ::zip_fread(file, buffer, sizeof buffer);
        if (got < 0) {
            part.complete = false;  // damaged further on: keep what came before
            break;
        }
        if (got == 0) {
            break;
        }
        if (!part.append(std::string_view(buffer, static_cast<std::size_t>(got)), limit)) {
            break;
        }
    }
    ::zip_fclose(file);
    return part;
}

std::optional<pugi::xml_document> readXmlPart(const ZipArchive& archive, const std::string& name, std::uint64_t limit,
                                              bool& complete)
{
    std::optional<FileBytes> part = archive.read(name, limit);
    if (!part) {
        return std::nullopt;
    }
    complete = complete && part->complete;
    pugi::xml_document document;
    // Damaged or cut XML still yields the elements read before the damage.
    document.load_buffer(part->bytes.data(), part->bytes.size(), pugi::parse_default | pugi::parse_ws_pcdata_single,
                         pugi::encoding_auto);
    if (!document.document_element()) {
        return std::nullopt;
    }
    return document;
}

Expected<ZipDocument> ZipDocument::open(const std::string& path, const ImportSink& sink)
{
    Expected<ZipArchive> archive = ZipArchive::open(path);
    if (!archive) {
        return archive.error();
    }
    return ZipDocument(std::move(*archive), readLimitFor(sink.textLimit()));
}

std::optional<pugi::xml_document> ZipDocument::xml(const std::string& name)
{
    return readXmlPart(m_archive, name, m_limit, m_complete);
}

std::optional<FileBytes> ZipDocument::bytes(const std::string& name)
{
    std::optional<FileBytes> part = m_archive.read(name, m_limit);
    m_complete = m_complete && (!part || part->complete);
    return part;
}

void ZipDocument::finish(ImportSink& sink) const
{
    if (!m_complete) {
        sink.markTruncated();
    }
}

void readMetadataFields(const pugi::xml_node& parent, std::span<const MetadataField> fields, ImportSink& sink)
{
    std::map<std::string_view, std::vector<std::string>> lists;
    for (pugi::xml_node child = parent.first_child(); child; child = child.next_sibling()) {
        const std::string_view name = localName(child);
        const auto field = std::find_if(fields.begin(), fields.end(),
                                        [&](const MetadataField& f) { return f.element == name; });
        if (field == fields.end()) {
            continue;
        }
        const std::string text = elementText(child);
        switch (field->kind) {
        case MetadataField::Kind::Text:
            if (!sink.has(field->key)) {
                sink.setText(field->key, text);
            }
            break;
        case MetadataField::Kind::List:
            lists[field->key].push_back(text);
            break;
        case MetadataField::Kind::SplitList:
            for (std::string_view piece : index::splitListViews(text, ';')) {
                for (std::string_view element : index::splitListViews(piece, ',')) {
                    lists[field->key].emplace_back(element);
                }
            }
            break;
        case MetadataField::Kind::Date:
            if (auto date = documentDate(text)) {
                sink.setDate(field->key, *date);
            }
            break;
        }
    }
    for (const auto& [key, list] : lists) {
        sink.setList(key, list);
    }
}

std::string_view localName(const pugi::xml_node& node)
{
    const std::string_view name = node.name();
    const std::size_t colon = name.find(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

pugi::xml_node findElement(const pugi::xml_node& root, std::string_view name)
{
    return root.find_node([&](const pugi::xml_node& node) {
        return node.type() == pugi::node_element && localName(node) == name;
    });
}

std::string elementText(const pugi::xml_node& node)
{
    std::string text;
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            text += child.value();
        } else if (child.type() == pugi::node_element) {
            text += elementText(child);
        }
    }
    return text;
}

std::optional<double> documentDate(std::string_view text)
{
    // 2024-03-01T10:20:30.250+01:00 → without the fraction.
    std::string trimmed(text.substr(0, text.find_first_of(" \t\r\n") == std::string_view::npos
                                           ? text.size()
                                           : text.find_first_of(" \t\r\n")));
    if (trimmed.size() == 4) {
        trimmed += "-01-01";  // a year alone, as books give their date
    }
    if (const std::size_t dot = trimmed.find('.'); dot != std::string::npos && dot > 10) {
        std::size_t end = dot + 1;
        while (end < trimmed.size() && trimmed[end] >= '0' && trimmed[end] <= '9') {
            ++end;
        }
        trimmed.erase(dot, end - dot);
    }
    const std::optional<index::query::IsoDateTime> iso = index::query::parseIsoDateTime(trimmed);
    if (!iso) {
        return std::nullopt;
    }
    return index::query::isoToReference(*iso);
}

}  // namespace trovara::importers
