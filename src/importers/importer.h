// Importers: what reads a file's content and tells its attributes (title,
// authors, pixel size, duration …) and its text (kMDItemTextContent).
//
// They run only inside the importer helper process (tools/trovara-importer),
// never in the index or the application: a broken file may crash or hang
// one, and the helper is what gets killed then. Each built-in importer lives
// in its own file here; plug-ins (index/import/importer_plugin.h) are
// wrapped to look the same.
//
// Thread safety: the helper imports one file at a time; importers keep no
// state between files.
#pragma once

#include "index/expected.h"
#include "index/import/protocol.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::importers {

using index::Expected;
using index::Failure;

// Where an importer puts what it finds. It keeps the helper's limits: the
// text stops at the limit (cut at a character boundary), and an importer
// that produces absurd numbers of attributes or absurdly long values has
// the excess dropped rather than sent.
class ImportSink {
public:
    explicit ImportSink(std::uint64_t textLimit);

    // Replaces the attribute. Texts are trimmed of surrounding white space;
    // an empty text, or an empty list, sets nothing.
    void setText(std::string_view key, std::string_view text);
    void setNumber(std::string_view key, double value);
    void setDate(std::string_view key, double secondsSince2001);
    void setBoolean(std::string_view key, bool value);
    void setList(std::string_view key, const std::vector<std::string>& texts);
    void addToList(std::string_view key, std::string_view text);
    bool has(std::string_view key) const;
    // The attribute's text when it holds one text, else "".
    std::string textOf(std::string_view key) const;

    // Appends text content (UTF-8; invalid bytes are replaced). Returns
    // false once the limit is reached.
    bool appendText(std::string_view text);
    // Appends a separator (a line break) unless the text is empty or ends
    // with one already: between paragraphs, cells, pages.
    void breakText();
    bool textFull() const { return m_truncated; }
    // Says that the text was cut before the sink saw all of it.
    void markTruncated() { m_truncated = true; }
    std::uint64_t textLimit() const { return m_textLimit; }

    // The result to send; the text is present when any was appended.
    index::ImportResult take();

private:
    index::query::AttributeValue* find(std::string_view key);
    void put(std::string_view key, index::query::AttributeValue value);

    std::uint64_t m_textLimit;
    index::ImportedAttributes m_attributes;
    std::string m_text;
    bool m_anyText = false;
    bool m_truncated = false;
};

struct ImportContext {
    std::string path;
    std::string mimeType;
};

class Importer {
public:
    virtual ~Importer() = default;
    virtual const index::ImporterInfo& info() const = 0;
    // Reads the file into the sink; a failure says why the file could not be
    // read (it is recorded, and not tried again until the file changes).
    virtual Expected<void> importFile(const ImportContext& context, ImportSink& sink) const = 0;
};

// The built-in importers, in the order they are offered.
std::vector<std::unique_ptr<Importer>> builtinImporters();

// Each built-in importer.
std::unique_ptr<Importer> makeTextImporter();
std::unique_ptr<Importer> makeHtmlImporter();
std::unique_ptr<Importer> makePdfImporter();
std::unique_ptr<Importer> makeOpenDocumentImporter();
std::unique_ptr<Importer> makeOfficeOpenXmlImporter();
std::unique_ptr<Importer> makeEpubImporter();
std::unique_ptr<Importer> makeEmailImporter();
std::unique_ptr<Importer> makeImageImporter();
std::unique_ptr<Importer> makeAudioImporter();

// Convenience for importers: a failure in words for the record.
inline Failure importFailure(std::string message)
{
    return Failure{Failure::Kind::InvalidArgument, std::move(message)};
}

}  // namespace trovara::importers
