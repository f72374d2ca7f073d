// Reading the text of a file as the index reads it: through Trovara's
// importers (the built-in ones and the plug-ins), and for source code by
// reading the file directly with the index's encoding detection.
//
// The importers of a file's type are tried in order of preference (those
// that name its MIME type, then those of its type identifier, then those of
// the identifiers it conforms to, nearest first; within each, in catalogue
// order) until one reads the file. A file of a text type that no importer
// serves is read directly too. Text stops at the text limit.
//
// The manager itself never runs foreign code: it asks a ContentImporter,
// which in the application is a helper process (trovara-importer) and in
// the text preview's own helper (trovara-text-preview) the importers in
// that process.
//
// Thread safety: one thread at a time (the one serving textContentsOfFile).
#pragma once

#include "index/import/content_importer.h"
#include "index/text/encoding.h"
#include "preview/file_contents.h"

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovara::preview {

class TextPreviewManager {
public:
    TextPreviewManager(std::shared_ptr<index::ContentImporter> importer, std::uint64_t textLimit);

    // The manager of this process, over importer helper processes with the
    // limits of the environment (see HelperImporter::defaultOptions()).
    static TextPreviewManager& defaultManager();

    // The text of the file (symbolic links are followed), or why it has none.
    // `limit` (bytes of UTF-8, 0: the text limit) cuts the text sooner, for
    // a first look at a large file; a cut never splits a character.
    FileContents textContentsOfFile(const std::string& path, const std::atomic<bool>* cancel = nullptr,
                                    std::uint64_t limit = 0);

    // What the importers find in the file: attributes and text (see above
    // for `limit`).
    FileContents metaDataOfFileAtPath(const std::string& path, const std::atomic<bool>* cancel = nullptr,
                                      std::uint64_t limit = 0);

    // What one importer finds in the file; none when it cannot be asked.
    std::optional<index::ImportOutcome> runImporterAtPath(const std::string& importer, const std::string& path,
                                                          const std::string& mimeType,
                                                          const std::atomic<bool>* cancel = nullptr);

    // The file read as text in the encoding its bytes suggest, up to the
    // text limit (or `limit`, when smaller and not 0); fails when it cannot
    // be read.
    index::Expected<index::text::DecodedText> readTextAtPath(const std::string& path, std::uint64_t limit = 0) const;

    // Builds the catalogue of importers by content type, once.
    void loadPlugIns();
    // Loads now what the first file would otherwise wait for: the catalogue
    // and the MIME database (`sample`: any file).
    void warmUp(const std::string& sample);
    // Content type (MIME type or type identifier) → importer names, in
    // order of preference.
    const std::map<std::string, std::vector<std::string>>& importersByContentType();
    // The importers to try for a type, most preferred first.
    std::vector<std::string> importersForType(const index::TypeDescription& type);
    // Why the catalogue is empty, when asking for it failed.
    const std::string& catalogueProblem() const { return m_catalogueProblem; }

    std::uint64_t textLimit() const { return m_textLimit; }

private:
    std::uint64_t effectiveLimit(std::uint64_t limit) const;

    std::shared_ptr<index::ContentImporter> m_importer;
    std::uint64_t m_textLimit;
    bool m_loaded = false;
    std::map<std::string, std::vector<std::string>> m_importersByContentType;
    std::string m_catalogueProblem;
};

}  // namespace trovara::preview
