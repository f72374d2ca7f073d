#include "index/crawl_search.h"

#include "index/fs/file_details.h"
#include "index/item_attributes.h"
#include "index/query/evaluator.h"

namespace trovara::index {

namespace {

bool needsDetails(const query::Node& node)
{
    for (const query::Node& child : node.children) {
        if (needsDetails(child)) {
            return true;
        }
    }
    if (node.kind != query::Node::Kind::Compare && node.kind != query::Node::Kind::InRange) {
        return false;
    }
    if (node.attribute.kind != query::AttributeRef::Kind::Named) {
        return true;  // "*" looks at kinds, comments and tags too
    }
    static const char* const keys[] = {"kMDItemKind",          "kMDItemContentType", "kMDItemContentTypeTree",
                                       "kMDItemFinderComment", "kMDItemOMUserTags",  "kOMUserTags",
                                       "kMDItemUserTags",      "kMDItemWhereFroms",  "kMDItemFSLabel"};
    for (const char* key : keys) {
        if (node.attribute.name == key) {
            return true;
        }
    }
    return false;
}

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
    SearchSink(const query::Evaluator& evaluator, bool details, const IndexServices& services,
               const std::function<void(std::shared_ptr<const FileFacts>)>& found, const CrawlSearchOptions& options)
        : m_evaluator(evaluator)
        , m_details(details)
        , m_services(services)
        , m_found(found)
        , m_options(options)
    {
    }

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
        const FactsItemView view(*facts);
        if (m_evaluator.matches(view)) {
            m_found(std::move(facts));
        }
    }

    const query::Evaluator& m_evaluator;
    const bool m_details;
    const IndexServices& m_services;
    const std::function<void(std::shared_ptr<const FileFacts>)>& m_found;
    const CrawlSearchOptions& m_options;
};

}  // namespace

bool queryNeedsDetails(const query::Query& query)
{
    return needsDetails(query.root);
}

Expected<CrawlStatistics> searchByCrawlingWithFacts(
    const std::string& folder, const query::Query& query, const query::QueryStart& start,
    const IndexServices& services, const std::function<void(std::shared_ptr<const FileFacts>)>& found,
    const CrawlSearchOptions& options)
{
    const query::Evaluator evaluator(query, start);
    SearchSink sink(evaluator, queryNeedsDetails(query), services, found, options);
    CrawlOptions crawlOptions;
    crawlOptions.cancel = options.cancel;
    crawlOptions.excludedFolders = options.excludedFolders;
    return crawl(folder, sink, crawlOptions);
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
