#include "index/crawl_search.h"

#include "index/fs/file_details.h"
#include "index/fs/type_tree.h"
#include "index/item_attributes.h"
#include "index/query/evaluator.h"
#include "index/schema.h"

namespace trovara::index {

namespace {

// Whether a comparison (or InRange) of the query passes the test.
template <typename Test>
bool anyComparison(const query::Node& node, const Test& test)
{
    for (const query::Node& child : node.children) {
        if (anyComparison(child, test)) {
            return true;
        }
    }
    return (node.kind == query::Node::Kind::Compare || node.kind == query::Node::Kind::InRange) && test(node);
}

bool needsDetails(const query::Node& comparison)
{
    if (comparison.attribute.kind != query::AttributeRef::Kind::Named) {
        return true;  // "*" looks at kinds, comments and tags too
    }
    static const char* const keys[] = {"kMDItemKind",          "kMDItemContentType", "kMDItemContentTypeTree",
                                       "kMDItemFinderComment", "kMDItemOMUserTags",  "kOMUserTags",
                                       "kMDItemUserTags",      "kMDItemWhereFroms",  "kMDItemFSLabel"};
    for (const char* key : keys) {
        if (comparison.attribute.name == key) {
            return true;
        }
    }
    return false;
}

bool needsImports(const query::Node& comparison)
{
    if (comparison.attribute.kind != query::AttributeRef::Kind::Named
        || comparison.attribute.name == query::kTextContentKey) {
        return true;  // "*" covers the titles, authors … that importers find
    }
    // Attributes of no schema come from importer plug-ins.
    const AttributeInfo* info = Schema::builtin().find(comparison.attribute.name);
    return !info || info->source != AttributeSource::FileSystem;
}

// Files that wait for their import, a batch at a time.
constexpr std::size_t kImportBatch = 64;

std::string joinPath(const std::string& folder, const std::string& name)
{
    return folder == "/" ? "/" + name : folder + "/" + name;
}

std::string defaultMimeType(FileKind kind)
{
    switch (kind) {
    case FileKind::Directory:
        return "inode/directory";
    case FileKind::Symlink:
        return "inode/symlink";
    default:
        return "application/octet-stream";
    }
}

class SearchSink final : public CrawlSink {
public:
    SearchSink(const query::Evaluator& evaluator, bool details, bool imports, const IndexServices& services,
               const std::function<void(std::shared_ptr<const FileFacts>)>& found, const CrawlSearchOptions& options)
        : m_evaluator(evaluator)
        , m_details(details || imports)
        , m_services(services)
        , m_found(found)
        , m_options(options)
    {
        if (imports && services.importer) {
            if (Expected<std::vector<ImporterInfo>> importers = services.importer->importers()) {
                m_importers = std::move(*importers);
            }
        }
    }

    // Decides the files still waiting for their import.
    void finish() { importWaiting(); }

    bool needsDetails(std::string_view, const FileInfo&) override { return m_details; }

    void folderScanned(FolderScan&& scan) override
    {
        // A folder is decided once its entries are counted.
        std::optional<FileDetails> details;
        if (m_details) {
            details = readFileDetails(scan.path, scan.self);
        }
        decide(scan.path, scan.self, details, static_cast<std::uint32_t>(scan.entries.size()));
        for (ScannedEntry& entry : scan.entries) {
            if (entry.info.kind == FileKind::Directory) {
                continue;  // decided when it is read (or when it turns out unreadable)
            }
            decide(joinPath(scan.path, entry.info.name), entry.info, entry.details, 0);
        }
    }

    void folderUnreadable(std::string_view path, int error) override
    {
        const std::string folder(path);
        if (Expected<FileInfo> info = statPath(folder)) {
            std::optional<FileDetails> details;
            if (m_details) {
                details = readFileDetails(folder, *info);
            }
            decide(folder, *info, details, 0);
        }
        if (m_options.unreadable) {
            m_options.unreadable(path, error);
        }
    }

private:
    void decide(const std::string& path, const FileInfo& info, const std::optional<FileDetails>& details,
                std::uint32_t nodeCount)
    {
        FileDetails known = details ? *details : FileDetails{defaultMimeType(info.kind), {}};
        TypeInfo type = m_services.types(known.mimeType);
        const Nanoseconds lastUsed = m_services.lastUsed ? m_services.lastUsed(path, info) : 0;
        auto facts = std::make_shared<FileFacts>(path, info, std::move(known), std::move(type), lastUsed);
        facts->setNodeCount(nodeCount);
        if (m_importers && info.kind == FileKind::Regular) {
            const std::string& mimeType = facts->details().mimeType;
            if (const ImporterInfo* importer = chooseImporter(*m_importers, describeMimeType(mimeType))) {
                m_waiting.push_back({std::move(facts), importer->name});
                if (m_waiting.size() >= kImportBatch) {
                    importWaiting();
                }
                return;
            }
        }
        check(std::move(facts));
    }

    void check(std::shared_ptr<FileFacts> facts)
    {
        const FactsItemView view(*facts);
        if (m_evaluator.matches(view)) {
            m_found(std::move(facts));
        }
    }

    void importWaiting()
    {
        if (m_waiting.empty()) {
            return;
        }
        std::vector<ImportJob> jobs;
        for (std::size_t i = 0; i < m_waiting.size(); ++i) {
            const FileFacts& facts = *m_waiting[i].facts;
            jobs.push_back({static_cast<std::int64_t>(i), facts.path(), facts.details().mimeType, m_waiting[i].importer});
        }
        std::vector<bool> decided(m_waiting.size(), false);
        // A file whose import fails, or that the importers never reach, is
        // decided on what the file system tells, as the index would have it.
        (void)m_services.importer->importFiles(
            std::move(jobs),
            [&](const ImportJob& job, ImportOutcome&& outcome) {
                const auto i = static_cast<std::size_t>(job.item);
                if (i >= m_waiting.size() || decided[i]) {
                    return;
                }
                decided[i] = true;
                if (outcome.imported) {
                    FileFacts& facts = *m_waiting[i].facts;
                    ImportedContent content;
                    content.attributes = std::make_shared<const ImportedAttributes>(std::move(outcome.attributes));
                    facts.setImported(std::move(content));
                    if (outcome.text) {
                        facts.setImportedText(std::make_shared<const std::string>(std::move(*outcome.text)));
                    }
                }
                check(std::move(m_waiting[i].facts));
            },
            m_options.cancel);
        for (std::size_t i = 0; i < m_waiting.size(); ++i) {
            if (!decided[i] && !(m_options.cancel && m_options.cancel->load())) {
                check(std::move(m_waiting[i].facts));
            }
        }
        m_waiting.clear();
    }

    struct Waiting {
        std::shared_ptr<FileFacts> facts;
        std::string importer;
    };

    const query::Evaluator& m_evaluator;
    const bool m_details;
    const IndexServices& m_services;
    const std::function<void(std::shared_ptr<const FileFacts>)>& m_found;
    const CrawlSearchOptions& m_options;
    std::optional<std::vector<ImporterInfo>> m_importers;  // when the query needs imports
    std::vector<Waiting> m_waiting;
};

}  // namespace

bool queryNeedsDetails(const query::Query& query)
{
    return anyComparison(query.root, needsDetails);
}

bool queryNeedsImports(const query::Query& query)
{
    return anyComparison(query.root, needsImports);
}

Expected<CrawlStatistics> searchByCrawlingWithFacts(
    const std::string& folder, const query::Query& query, const query::QueryStart& start,
    const IndexServices& services, const std::function<void(std::shared_ptr<const FileFacts>)>& found,
    const CrawlSearchOptions& options)
{
    const query::Evaluator evaluator(query, start);
    SearchSink sink(evaluator, queryNeedsDetails(query), queryNeedsImports(query), services, found, options);
    CrawlOptions crawlOptions;
    crawlOptions.cancel = options.cancel;
    crawlOptions.excludedFolders = options.excludedFolders;
    Expected<CrawlStatistics> crawled = crawl(folder, sink, crawlOptions);
    sink.finish();
    return crawled;
}

Expected<CrawlStatistics> searchByCrawling(const std::string& folder, const query::Query& query,
                                           const query::QueryStart& start, const IndexServices& services,
                                           const std::function<void(const std::string& path)>& found,
                                           const CrawlSearchOptions& options)
{
    return searchByCrawlingWithFacts(
        folder, query, start, services, [&](std::shared_ptr<const FileFacts> facts) { found(facts->path()); },
        options);
}

}  // namespace trovara::index
