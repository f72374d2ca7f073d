#include "index/updater.h"

#include <chrono>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

namespace trovara::index {

Nanoseconds nowNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

namespace {

std::string joinPath(const std::string& folder, const std::string& name)
{
    return folder == "/" ? "/" + name : folder + "/" + name;
}

bool sameSignature(const FileInfo& a, const FileInfo& b)
{
    return a.kind == b.kind && a.inode == b.inode && a.device == b.device && a.size == b.size
           && a.modified == b.modified && a.changed == b.changed;
}

// What the database held under the root before the crawl. Built before the
// crawl starts and never changed during it, so that the crawler's worker
// threads may read it concurrently.
struct Known {
    StoredItem item;
};

struct KnownFolder {
    StoreId id = 0;
    std::unordered_map<std::string, Known> children;
};

class Sink final : public CrawlSink {
public:
    Sink(Store& store, RootRecord& root, std::unordered_map<std::string, KnownFolder> known,
         const Updater::ProgressCallback& progress)
        : m_store(store)
        , m_root(root)
        , m_known(std::move(known))
        , m_progress(progress)
    {
    }

    bool needsDetails(std::string_view folderPath, const FileInfo& entry) override
    {
        const Known* known = lookup(folderPath, entry.name);
        return !known || !sameSignature(known->item.info, entry);
    }

    void folderScanned(FolderScan&& scan) override
    {
        if (m_failure) {
            return;
        }
        const StoreId folder = folderId(scan);
        if (!folder) {
            return;
        }
        const KnownFolder* before = knownFolder(scan.path);
        std::unordered_set<std::string_view> seen;
        seen.reserve(scan.entries.size());
        for (ScannedEntry& entry : scan.entries) {
            seen.insert(entry.info.name);
            const Known* known = before ? find(*before, entry.info.name) : nullptr;
            record(folder, scan.path, known, entry);
            if (m_failure) {
                return;
            }
        }
        if (before) {
            for (const auto& [name, known] : before->children) {
                if (!seen.count(name)) {
                    check(m_store.deleteSubtree(known.item.id), "removing");
                    ++m_report.removed;
                    ++m_written;
                }
            }
        }
        const std::uint32_t count = static_cast<std::uint32_t>(scan.entries.size());
        if (!before || m_nodeCounts[folder] != count) {
            check(m_store.updateNodeCount(folder, count), "counting");
            m_changed = true;
        }
        ++m_progressState.folders;
        m_progressState.entries += scan.entries.size();
        m_progressState.written = m_written;
        maybeCommit();
        if (m_progress) {
            m_progressState.folder = scan.path;
            m_progress(m_progressState);
        }
    }

    void folderUnreadable(std::string_view path, int error) override
    {
        if (m_failure) {
            return;
        }
        check(m_store.setUnreadable(std::string(path), error, nowNanoseconds()), "recording");
        // Its entries can no longer be seen: forget them.
        if (const KnownFolder* before = knownFolder(path)) {
            for (const auto& [name, known] : before->children) {
                check(m_store.deleteSubtree(known.item.id), "removing");
                ++m_report.removed;
            }
        }
    }

    UpdateReport& report() { return m_report; }
    // Whether anything searches see was written.
    bool changedAnything() const { return m_changed || m_report.added || m_report.changed || m_report.removed; }
    const std::optional<Failure>& failure() const { return m_failure; }

    void setNodeCounts(std::unordered_map<StoreId, std::uint32_t> counts) { m_nodeCounts = std::move(counts); }

private:
    const KnownFolder* knownFolder(std::string_view path) const
    {
        auto it = m_known.find(std::string(path));
        return it == m_known.end() ? nullptr : &it->second;
    }

    static const Known* find(const KnownFolder& folder, const std::string& name)
    {
        auto it = folder.children.find(name);
        return it == folder.children.end() ? nullptr : &it->second;
    }

    const Known* lookup(std::string_view folderPath, const std::string& name) const
    {
        const KnownFolder* folder = knownFolder(folderPath);
        return folder ? find(*folder, name) : nullptr;
    }

    void check(const Expected<void>& result, const char*)
    {
        if (!result && !m_failure) {
            m_failure = result.error();
        }
    }

    std::int32_t typeId(const std::string& mime)
    {
        auto it = m_types.find(mime);
        if (it != m_types.end()) {
            return it->second;
        }
        Expected<std::int32_t> id = m_store.internMimeType(mime);
        if (!id) {
            m_failure = id.error();
            return 0;
        }
        m_types.emplace(mime, *id);
        return *id;
    }

    StoreId folderId(const FolderScan& scan)
    {
        if (scan.path == m_root.path) {
            StoredItem self;
            self.parent = 0;
            self.info = scan.self;
            self.info.name = m_root.path;
            self.type = typeId("inode/directory");
            if (m_root.item) {
                Expected<std::optional<StoredItem>> existing = m_store.item(m_root.item);
                if (existing && *existing) {
                    self.id = m_root.item;
                    self.nodeCount = (*existing)->nodeCount;
                    self.attributes = (*existing)->attributes;
                    if (!sameSignature((*existing)->info, self.info)) {
                        check(m_store.updateItem(self), "updating");
                        m_changed = true;
                    }
                    return self.id;
                }
            }
            Expected<StoreId> id = m_store.insertItem(self);
            if (!id) {
                m_failure = id.error();
                return 0;
            }
            m_root.item = *id;
            ++m_report.added;
            return *id;
        }
        auto fresh = m_newFolders.find(scan.path);
        if (fresh != m_newFolders.end()) {
            return fresh->second;
        }
        if (const KnownFolder* known = knownFolder(scan.path)) {
            return known->id;
        }
        return 0;  // a folder whose parent was never recorded: nothing to attach it to
    }

    void record(StoreId folder, const std::string& folderPath, const Known* known, ScannedEntry& entry)
    {
        const bool isFolder = entry.info.kind == FileKind::Directory;
        if (known && known->item.info.kind != entry.info.kind) {
            // A file became a folder or the other way round: start afresh.
            check(m_store.deleteSubtree(known->item.id), "removing");
            ++m_report.removed;
            known = nullptr;
        }
        if (known && sameSignature(known->item.info, entry.info) && !entry.details) {
            if (known->item.info.invisible != entry.info.invisible || known->item.info.accessed != entry.info.accessed) {
                StoredItem updated = known->item;
                updated.info.invisible = entry.info.invisible;
                updated.info.accessed = entry.info.accessed;
                check(m_store.updateItem(updated), "updating");
                m_changed = m_changed || known->item.info.invisible != entry.info.invisible;
            }
            return;
        }
        StoredItem item;
        item.parent = folder;
        item.info = entry.info;  // copied: the caller still refers to the entry's name
        if (entry.details) {
            item.type = typeId(entry.details->mimeType);
            item.attributes = std::move(entry.details->attributes);
        } else if (known) {
            item.type = known->item.type;
            item.attributes = known->item.attributes;
        } else {
            item.type = typeId(isFolder ? "inode/directory" : "application/octet-stream");
        }
        if (known) {
            item.id = known->item.id;
            item.nodeCount = known->item.nodeCount;
            check(m_store.updateItem(item), "updating");
            ++m_report.changed;
        } else {
            Expected<StoreId> id = m_store.insertItem(item);
            if (!id) {
                m_failure = id.error();
                return;
            }
            item.id = *id;
            ++m_report.added;
            if (isFolder) {
                m_newFolders.emplace(joinPath(folderPath, item.info.name), *id);
            }
        }
        ++m_written;
    }

    void maybeCommit()
    {
        // Commit now and then, so that an interruption keeps what is done and
        // the write-ahead log stays small.
        if (m_written - m_committedAt < 50000) {
            return;
        }
        m_committedAt = m_written;
        if (changedAnything()) {
            check(m_store.bumpGeneration(), "committing");
        }
        check(m_store.commit(), "committing");
        check(m_store.begin(), "committing");
    }

    Store& m_store;
    RootRecord& m_root;
    const std::unordered_map<std::string, KnownFolder> m_known;
    const Updater::ProgressCallback& m_progress;
    std::unordered_map<std::string, StoreId> m_newFolders;
    std::unordered_map<std::string, std::int32_t> m_types;
    std::unordered_map<StoreId, std::uint32_t> m_nodeCounts;
    UpdateReport m_report;
    UpdateProgress m_progressState;
    std::uint64_t m_written = 0;
    std::uint64_t m_committedAt = 0;
    bool m_changed = false;
    std::optional<Failure> m_failure;
};

}  // namespace

Updater::Updater(Store& store, std::vector<std::string> excludedFolders, const std::atomic<bool>* cancel,
                 ProgressCallback progress)
    : m_store(store)
    , m_excluded(std::move(excludedFolders))
    , m_cancel(cancel)
    , m_progress(std::move(progress))
{
}

Expected<UpdateReport> Updater::updateRoot(RootRecord& root, int threads)
{
    // What the database knows under the root, folder by folder.
    std::unordered_map<std::string, KnownFolder> known;
    std::unordered_map<StoreId, std::uint32_t> nodeCounts;
    if (root.item) {
        std::vector<std::pair<StoreId, std::string>> pending{{root.item, root.path}};
        Expected<std::optional<StoredItem>> rootItem = m_store.item(root.item);
        if (!rootItem) {
            return rootItem.error();
        }
        if (!*rootItem) {
            pending.clear();
            root.item = 0;
        } else {
            nodeCounts[root.item] = (*rootItem)->nodeCount;
        }
        while (!pending.empty()) {
            auto [id, path] = std::move(pending.back());
            pending.pop_back();
            Expected<std::vector<StoredItem>> children = m_store.children(id);
            if (!children) {
                return children.error();
            }
            KnownFolder& folder = known[path];
            folder.id = id;
            for (StoredItem& child : *children) {
                if (child.info.kind == FileKind::Directory) {
                    pending.emplace_back(child.id, joinPath(path, child.info.name));
                    nodeCounts[child.id] = child.nodeCount;
                }
                std::string name = child.info.name;
                folder.children.emplace(std::move(name), Known{std::move(child)});
            }
        }
    }

    if (auto begun = m_store.begin(); !begun) {
        return begun.error();
    }
    root.lastCrawlStarted = nowNanoseconds();
    if (auto cleared = m_store.clearUnreadableBelow(root.path); !cleared) {
        m_store.rollback();
        return cleared.error();
    }
    Sink sink(m_store, root, std::move(known), m_progress);
    sink.setNodeCounts(std::move(nodeCounts));
    CrawlOptions options;
    options.threads = threads;
    options.cancel = m_cancel;
    options.excludedFolders = m_excluded;
    Expected<CrawlStatistics> statistics = crawl(root.path, sink, options);
    if (!statistics) {
        m_store.rollback();
        return statistics.error();
    }
    if (sink.failure()) {
        m_store.rollback();
        return *sink.failure();
    }
    root.complete = !statistics->cancelled;
    if (root.complete) {
        root.lastCrawlFinished = nowNanoseconds();
    }
    // The generation moves only when searches would see a difference, so
    // that an update of an unchanged tree leaves the catalogue as it is.
    if (auto recorded = m_store.updateRoot(root); !recorded) {
        m_store.rollback();
        return recorded.error();
    }
    if (sink.changedAnything()) {
        if (auto bumped = m_store.bumpGeneration(); !bumped) {
            m_store.rollback();
            return bumped.error();
        }
    }
    if (auto committed = m_store.commit(); !committed) {
        m_store.rollback();
        return committed.error();
    }
    UpdateReport report = sink.report();
    report.crawl = *statistics;
    return report;
}

}  // namespace trovara::index
