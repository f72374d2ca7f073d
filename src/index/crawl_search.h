// Searching a folder the index does not cover: it is crawled on the spot and
// every item is decided by the query evaluator, with the same attributes an
// indexed item would have. Results arrive while the crawl goes on.
//
// A folder is decided when it is read (its entry count is known then); other
// items when their folder lists them. Type and extended attributes are read
// only when the query looks at them. When the query looks at what importers
// find (the text content, "*", an importer's attribute), each file an
// importer serves is imported on the spot, as indexing would, in batches
// (through IndexServices::importer; without one such files have no content)
// and decided then; nothing of it is kept.
//
// Thread safety: the callbacks are called one at a time, from the crawler's
// threads.
#pragma once

#include "index/expected.h"
#include "index/fs/crawler.h"
#include "index/index.h"
#include "index/item_attributes.h"
#include "index/query/ast.h"
#include "index/query/calendar.h"

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

struct CrawlSearchOptions {
    std::vector<std::string> excludedFolders;  // e.g. indexed roots inside the folder
    const std::atomic<bool>* cancel = nullptr;
    std::function<void(std::string_view path, int error)> unreadable;
};

// Whether evaluating the query needs an item's type or extended attributes.
bool queryNeedsDetails(const query::Query& query);
// Whether it needs what importers find in files.
bool queryNeedsImports(const query::Query& query);

Expected<CrawlStatistics> searchByCrawling(const std::string& folder, const query::Query& query,
                                           const query::QueryStart& start, const IndexServices& services,
                                           const std::function<void(const std::string& path)>& found,
                                           const CrawlSearchOptions& options = {});

// The same, handing over each match's facts (for results that outlive the
// crawl).
Expected<CrawlStatistics> searchByCrawlingWithFacts(
    const std::string& folder, const query::Query& query, const query::QueryStart& start,
    const IndexServices& services, const std::function<void(std::shared_ptr<const FileFacts>)>& found,
    const CrawlSearchOptions& options = {});

}  // namespace trovara::index
