// Brings the index database in step with the file system under one root:
// crawls it, and for every folder writes what is new, what changed and what
// vanished, folder by folder, so that an interrupted update leaves a
// consistent database (each folder either as it was or as it is now).
//
// Unchanged entries (same kind, inode, size, modification and change time)
// are neither re-read nor re-written: the crawler reads the type and
// extended attributes of new and changed entries only.
//
// Thread safety: one Updater per writer; the crawler calls its sink from
// several threads, which the updater allows for (see the .cpp).
#pragma once

#include "index/expected.h"
#include "index/fs/crawler.h"
#include "index/store.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace trovara::index {

struct UpdateProgress {
    std::uint64_t folders = 0;
    std::uint64_t entries = 0;
    std::uint64_t written = 0;  // items added, changed or removed
    std::string folder;         // the folder just done
};

struct UpdateReport {
    CrawlStatistics crawl;
    std::uint64_t added = 0;
    std::uint64_t changed = 0;
    std::uint64_t removed = 0;
    // Files imported after the crawl, and why there was no import at all
    // (the importer helper could not be started), if so.
    std::uint64_t imported = 0;
    std::uint64_t importFailed = 0;
    std::string importProblem;
};

class Updater {
public:
    using ProgressCallback = std::function<void(const UpdateProgress&)>;

    Updater(Store& store, std::vector<std::string> excludedFolders, const std::atomic<bool>* cancel,
            ProgressCallback progress = {});

    // Crawls the root and records what it finds. The root record is updated
    // (its item, crawl times, whether the crawl completed). A root that
    // cannot be read is an error and its items are kept.
    Expected<UpdateReport> updateRoot(RootRecord& root, int threads = 0);

private:
    Store& m_store;
    std::vector<std::string> m_excluded;
    const std::atomic<bool>* m_cancel;
    ProgressCallback m_progress;
};

Nanoseconds nowNanoseconds();

}  // namespace trovara::index
