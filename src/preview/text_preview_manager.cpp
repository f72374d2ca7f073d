#include "preview/text_preview_manager.h"

#include "index/fs/file_details.h"
#include "index/fs/type_tree.h"
#include "index/import/helper_importer.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace trovara::preview {

namespace {

// Text with a NUL among its first characters is a binary file that a text
// importer read anyway (a file named .txt full of zeros): nothing to show.
bool looksBinary(const std::string& text)
{
    const std::string_view head(text.data(), std::min<std::size_t>(text.size(), 8192));
    return head.find('\0') != std::string_view::npos;
}

// The text cut to at most `limit` bytes, at the start of a UTF-8 sequence.
bool cutText(std::string& text, std::uint64_t limit)
{
    if (limit == 0 || text.size() <= limit) {
        return false;
    }
    std::size_t end = static_cast<std::size_t>(limit);
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    text.resize(end);
    return true;
}

std::string cannotRead(const std::string& reason)
{
    return "The file cannot be read: " + reason;
}

}  // namespace

TextPreviewManager::TextPreviewManager(std::shared_ptr<index::ContentImporter> importer, std::uint64_t textLimit)
    : m_importer(std::move(importer))
    , m_textLimit(textLimit)
{
}

TextPreviewManager& TextPreviewManager::defaultManager()
{
    static TextPreviewManager manager = [] {
        index::HelperOptions options = index::HelperImporter::defaultOptions();
        options.processes = 1;  // one file at a time is all a preview reads
        const std::uint64_t limit = options.textLimit;
        return TextPreviewManager(std::make_shared<index::HelperImporter>(std::move(options)), limit);
    }();
    return manager;
}

void TextPreviewManager::loadPlugIns()
{
    if (m_loaded) {
        return;
    }
    m_loaded = true;
    index::Expected<std::vector<index::ImporterInfo>> importers = m_importer->importers();
    if (!importers) {
        m_catalogueProblem = importers.error().message;
        return;  // an empty catalogue: only text files are read, directly
    }
    for (const index::ImporterInfo& importer : *importers) {
        for (const std::string& type : importer.contentTypes) {
            std::vector<std::string>& names = m_importersByContentType[type];
            if (std::find(names.begin(), names.end(), importer.name) == names.end()) {
                names.push_back(importer.name);
            }
        }
    }
}

void TextPreviewManager::warmUp(const std::string& sample)
{
    loadPlugIns();
    (void)index::readFileRecord(sample);
    (void)index::describeMimeType("text/plain");
}

const std::map<std::string, std::vector<std::string>>& TextPreviewManager::importersByContentType()
{
    loadPlugIns();
    return m_importersByContentType;
}

std::vector<std::string> TextPreviewManager::importersForType(const index::TypeDescription& type)
{
    loadPlugIns();
    std::vector<std::string> chosen;
    auto add = [&](const std::string& contentType) {
        const auto it = m_importersByContentType.find(contentType);
        if (it == m_importersByContentType.end()) {
            return;
        }
        for (const std::string& name : it->second) {
            if (std::find(chosen.begin(), chosen.end(), name) == chosen.end()) {
                chosen.push_back(name);
            }
        }
    };
    add(type.mimeType);
    for (const std::string& identifier : type.tree) {
        add(identifier);
    }
    return chosen;
}

std::optional<index::ImportOutcome> TextPreviewManager::runImporterAtPath(const std::string& importer,
                                                                          const std::string& path,
                                                                          const std::string& mimeType,
                                                                          const std::atomic<bool>* cancel)
{
    std::optional<index::ImportOutcome> result;
    const index::Expected<void> run = m_importer->importFiles(
        {{0, path, mimeType, importer}},
        [&](const index::ImportJob&, index::ImportOutcome&& outcome) { result = std::move(outcome); }, cancel);
    if (!run) {
        index::ImportOutcome failed;
        failed.error = run.error().message;
        return failed;
    }
    return result;
}

std::uint64_t TextPreviewManager::effectiveLimit(std::uint64_t limit) const
{
    return limit == 0 || (m_textLimit != 0 && m_textLimit < limit) ? m_textLimit : limit;
}

index::Expected<index::text::DecodedText> TextPreviewManager::readTextAtPath(const std::string& path,
                                                                             std::uint64_t limit) const
{
    return index::text::readTextFile(path, static_cast<std::size_t>(effectiveLimit(limit)));
}

FileContents TextPreviewManager::metaDataOfFileAtPath(const std::string& path, const std::atomic<bool>* cancel,
                                                      std::uint64_t limit)
{
    const index::Expected<index::FileRecord> record = index::readFileRecord(path);
    if (!record) {
        return FileContents::failed(cannotRead(record.error().message));
    }
    if (record->info.kind != index::FileKind::Regular) {
        return {};
    }
    const index::TypeDescription& type = index::describeMimeType(record->details.mimeType);

    FileContents contents;
    bool imported = false;
    std::string firstError;
    // A first look at plain text reads the start of the file directly, as
    // the text importer would, rather than have an importer read all of it;
    // the attributes come with the whole text.
    const bool directFirstLook = limit != 0 && effectiveLimit(limit) != m_textLimit
                                 && index::typeConformsTo(type.identifier, "public.plain-text");
    for (const std::string& importer : directFirstLook ? std::vector<std::string>() : importersForType(type)) {
        std::optional<index::ImportOutcome> outcome = runImporterAtPath(importer, path, type.mimeType, cancel);
        if (cancel && cancel->load()) {
            return FileContents::cancelled();
        }
        if (outcome && outcome->imported) {
            contents.attributes = std::move(outcome->attributes);
            if (outcome->text) {
                contents.text = std::move(*outcome->text);
                contents.truncated = outcome->truncated;
            }
            imported = true;
            break;
        }
        if (outcome && firstError.empty()) {
            firstError = outcome->error;
        }
    }

    // Source code is read as it is, whatever an importer made of it; text
    // that no importer could read is read directly too.
    const bool sourceCode = index::typeConformsTo(type.identifier, "public.source-code");
    if (directFirstLook || sourceCode || (!imported && index::typeConformsTo(type.identifier, "public.text"))) {
        index::Expected<index::text::DecodedText> text = readTextAtPath(path, limit);
        if (!text) {
            return FileContents::failed(cannotRead(text.error().message));
        }
        contents.text = std::move(text->text);
        contents.truncated = text->truncated;
        imported = true;
    }
    if (!imported && !firstError.empty()) {
        return FileContents::failed("The text could not be read: " + firstError);
    }
    if (!imported && !m_catalogueProblem.empty()) {
        return FileContents::failed("The importers cannot be run: " + m_catalogueProblem);
    }
    if (cutText(contents.text, effectiveLimit(limit))) {
        contents.truncated = true;
    }
    if (contents.text.empty() || looksBinary(contents.text)) {
        contents.text.clear();
        contents.truncated = false;
        contents.outcome = FileContents::Outcome::NoText;
    } else {
        contents.outcome = FileContents::Outcome::Text;
    }
    return contents;
}

FileContents TextPreviewManager::textContentsOfFile(const std::string& path, const std::atomic<bool>* cancel,
                                                    std::uint64_t limit)
{
    char resolved[PATH_MAX];
    if (!::realpath(path.c_str(), resolved)) {
        return FileContents::failed(cannotRead(std::strerror(errno)));
    }
    return metaDataOfFileAtPath(resolved, cancel, limit);
}

}  // namespace trovara::preview
