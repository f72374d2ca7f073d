// The index while it runs: it takes changes of the file system (from the
// watcher, or after roots are added, removed or crawled again), writes them
// to the database, shows them in the view searches use, and tells every
// subscriber (live queries) what changed.
//
// One LiveIndex is the index's one writer: it holds the index lock for its
// whole life. Views it hands out are immutable; a new one replaces the old
// after every batch of changes. When the items read since the catalogue was
// built grow many, the catalogue is built again from the database.
//
// Opening costs next to nothing whatever the index's size: the first view
// is the snapshot as it is on disk (an empty one when there is none).
// prepare() reads what the writer needs (the folders) and builds a snapshot
// that is missing or older than the database; every writing call prepares
// first when that was not done.
//
// What files contain is imported apart from the crawl, a few files at a
// time (importSome()), so that the index takes other changes in between.
//
// Thread safety: apply(), reload() and the root operations run on one
// thread (the index's own); view(), subscribe() and unsubscribe() may be
// called from any thread. Subscribers are called on the index's thread.
#pragma once

#include "index/expected.h"
#include "index/index.h"
#include "index/live/index_view.h"
#include "index/live/item_ref.h"

#include <atomic>
#include <deque>
#include <functional>
#include <optional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace trovara::index {

// A change of the file system at a path, as the watcher tells it.
struct PathChange {
    enum class Kind : std::uint8_t {
        Changed,        // the entry at the path was created or changed (or may have been)
        Removed,        // the entry at the path is gone, with everything below it
        FolderChanged,  // the folder's entries may have changed: compare them
        TreeChanged,    // anything below the folder may have changed: crawl it again
    };
    Kind kind = Kind::Changed;
    std::string path;
};

// What a batch of changes did to the index, for live queries.
struct IndexChanges {
    std::vector<std::string> removed;  // every path no longer in the index
    std::vector<ItemRef> upserted;     // items added or changed
    bool everything = false;           // the catalogue was built anew: look at everything again
    std::shared_ptr<const IndexView> view;  // the view after the changes
};

class LiveIndex {
public:
    using Subscriber = std::function<void(const IndexChanges&)>;

    static Expected<std::unique_ptr<LiveIndex>> open(const std::string& directory, IndexServices services, bool wait,
                                                     std::vector<std::string>* notices = nullptr);
    ~LiveIndex();
    LiveIndex(const LiveIndex&) = delete;
    LiveIndex& operator=(const LiveIndex&) = delete;

    std::shared_ptr<const IndexView> view() const;
    std::vector<std::string> roots() const;
    const IndexServices& services() const { return m_services; }
    Index& index() { return *m_index; }

    // Reads the folders and brings a stale snapshot up to date (telling
    // subscribers to look at everything then). Does nothing the second time.
    Expected<void> prepare();

    Expected<IndexChanges> apply(const std::vector<PathChange>& changes);

    // Imports up to `files` of the files waiting for their content (listed
    // from the database a page at a time, afresh after every crawl).
    // Returns about how many still wait, 0 once none does. What was
    // imported reaches searches at the next publishImports().
    Expected<std::size_t> importSome(std::size_t files, const std::atomic<bool>* cancel = nullptr);
    // How many files wait for their content, as counted for this round.
    std::uint64_t importsWaiting() const
    {
        return m_pendingImports && m_importsListed > m_importsDone ? m_importsListed - m_importsDone : 0;
    }
    // The imports done so far made visible: the catalogue is built again and
    // subscribers told to look at everything. Nothing when none was done.
    Expected<void> publishImports();
    // Files imported since the last listing, and listed then.
    std::uint64_t importsDone() const { return m_importsDone; }
    std::uint64_t importsListed() const { return m_importsListed; }

    // After roots were added, removed or crawled again through index():
    // reads the catalogue again and tells subscribers to look at everything.
    Expected<IndexChanges> reload();

    // The index's root operations, followed by reload().
    Expected<UpdateReport> addRoots(const std::vector<std::string>& folders, const Index::Options& options);
    Expected<void> removeRoots(const std::vector<std::string>& folders);
    Expected<UpdateReport> update(const Index::Options& options);
    Expected<UpdateReport> rebuild(const Index::Options& options);

    // Writes the catalogue snapshot anew when changes were applied since it
    // was written, so that other readers map it instead of building their
    // own. Searches see no difference; subscribers hear nothing.
    Expected<void> checkpoint();
    // Whether changes were applied since the snapshot was written.
    bool hasUnsavedChanges() const { return m_unsaved; }

    int subscribe(Subscriber subscriber);
    void unsubscribe(int id);

    // How many items read since the catalogue was built make apply() build it
    // again (tests lower it).
    void setRebuildThreshold(std::size_t items) { m_rebuildThreshold = items; }

private:
    LiveIndex() = default;
    Expected<void> loadFolders();
    Expected<void> loadRoots();
    // After a root operation: the new catalogue shown, when the database moved.
    Expected<void> reloadIfChanged();
    void publish(const IndexChanges& changes);

    struct Batch;
    Expected<void> upsertPath(Batch& batch, const std::string& path);
    Expected<void> removePath(Batch& batch, const std::string& path);
    Expected<void> rescanFolder(Batch& batch, const std::string& path);
    Expected<void> crawlNewFolder(Batch& batch, const std::string& path, StoreId id);
    Expected<void> importQueued(Batch& batch);
    // The facts with what the file's last import found, read from the database.
    Expected<std::shared_ptr<const FileFacts>> withStoredImport(std::shared_ptr<const FileFacts> facts, StoreId id);
    std::shared_ptr<const FileFacts> factsFor(const std::string& path, const FileInfo& info, const FileDetails& details,
                                              std::uint32_t nodeCount) const;

    std::unique_ptr<Index> m_index;
    IndexServices m_services;
    std::size_t m_rebuildThreshold = 20000;
    bool m_unsaved = false;
    bool m_prepared = false;
    bool m_staleSnapshot = false;  // the first view is older than the database

    // Files waiting for their content; none until listed.
    std::optional<std::deque<ImportPass::Pending>> m_pendingImports;
    std::int64_t m_importCursor = 0;  // the last item listed
    static constexpr std::size_t kImportPage = 2000;
    std::uint64_t m_importsDone = 0;
    std::uint64_t m_importsListed = 0;
    bool m_importsUnpublished = false;

    mutable std::mutex m_viewMutex;
    std::shared_ptr<const IndexView> m_view;

    // Every indexed folder by path, with its database id.
    std::unordered_map<std::string, StoreId> m_folders;
    std::vector<std::string> m_roots;  // guarded by m_viewMutex

    std::mutex m_subscribersMutex;
    std::map<int, Subscriber> m_subscribers;
    int m_nextSubscriber = 1;
};

}  // namespace trovara::index
