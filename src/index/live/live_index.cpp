#include "index/live/live_index.h"

#include "index/fs/crawler.h"
#include "index/fs/file_details.h"
#include "index/import/import_pass.h"

#include <dirent.h>
#include <set>
#include <unordered_set>

namespace trovara::index {

namespace {

std::string parentOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) {
        return "/";
    }
    return path.substr(0, slash);
}

std::string nameOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string joinPath(const std::string& folder, const std::string& name)
{
    return folder == "/" ? "/" + name : folder + "/" + name;
}

// What the index's records of a file's import depend on (the database
// drops them when one of these changes).
bool sameContent(const FileInfo& a, const FileInfo& b)
{
    return a.kind == b.kind && a.inode == b.inode && a.device == b.device && a.size == b.size
           && a.modified == b.modified;
}

bool sameSignature(const FileInfo& a, const FileInfo& b)
{
    return a.kind == b.kind && a.inode == b.inode && a.device == b.device && a.size == b.size
           && a.modified == b.modified && a.changed == b.changed && a.invisible == b.invisible;
}

std::vector<std::string> entryNames(const std::string& folder)
{
    std::vector<std::string> names;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* entry = ::readdir(dir)) {
            const std::string_view name(entry->d_name);
            if (name != "." && name != "..") {
                names.emplace_back(name);
            }
        }
        ::closedir(dir);
    }
    return names;
}

}  // namespace

struct LiveIndex::Batch {
    std::shared_ptr<IndexView> working;
    std::vector<std::string> removed;
    std::vector<std::string> upserted;  // paths, in order; the working view has their facts
    std::set<std::string> touchedFolders;  // whose entry counts may have changed
    std::unordered_map<std::string, std::int32_t> types;
    std::vector<ImportPass::File> imports;  // files whose content is new: imported before the commit
};

Expected<std::unique_ptr<LiveIndex>> LiveIndex::open(const std::string& directory, IndexServices services, bool wait,
                                                     std::vector<std::string>* notices)
{
    std::unique_ptr<LiveIndex> live(new LiveIndex);
    live->m_services = services;
    Expected<std::unique_ptr<Index>> index = Index::openForWriting(directory, std::move(services), wait, notices);
    if (!index) {
        return index.error();
    }
    live->m_index = std::move(index.value());
    // The snapshot as it is answers at once; prepare() brings it up to date.
    Expected<std::shared_ptr<const Catalogue>> catalogue = Index::snapshot(directory);
    if (catalogue) {
        live->m_staleSnapshot = !live->m_index->catalogueIsCurrent();
    } else {
        catalogue = Catalogue::build({}, -1, live->m_services.fold, live->m_services.types);
        live->m_staleSnapshot = true;
    }
    live->m_view = std::make_shared<IndexView>(catalogue.value());
    if (auto loaded = live->loadRoots(); !loaded) {
        return loaded.error();
    }
    return live;
}

LiveIndex::~LiveIndex() = default;

std::shared_ptr<const IndexView> LiveIndex::view() const
{
    std::lock_guard lock(m_viewMutex);
    return m_view;
}

std::vector<std::string> LiveIndex::roots() const
{
    std::lock_guard lock(m_viewMutex);
    return m_roots;
}

Expected<void> LiveIndex::prepare()
{
    if (m_prepared) {
        return {};
    }
    if (m_staleSnapshot) {
        Expected<IndexChanges> reloaded = reload();  // loads the folders too
        if (!reloaded) {
            return reloaded.error();
        }
        m_staleSnapshot = false;
    } else if (auto loaded = loadFolders(); !loaded) {
        return loaded;
    }
    m_prepared = true;
    return {};
}

Expected<void> LiveIndex::loadRoots()
{
    Expected<std::vector<RootRecord>> roots = m_index->store().roots();
    if (!roots) {
        return roots.error();
    }
    std::lock_guard lock(m_viewMutex);
    m_roots.clear();
    for (const RootRecord& root : *roots) {
        m_roots.push_back(root.path);
    }
    return {};
}

Expected<void> LiveIndex::loadFolders()
{
    m_folders.clear();
    if (auto loaded = loadRoots(); !loaded) {
        return loaded;
    }
    std::unordered_map<StoreId, std::string> paths;
    return m_index->store().forEachFolder([&](StoreId id, StoreId parent, std::string&& name) {
        std::string path;
        if (parent == 0) {
            path = std::move(name);
        } else {
            auto known = paths.find(parent);
            if (known == paths.end()) {
                return true;
            }
            path = joinPath(known->second, name);
        }
        m_folders.emplace(path, id);
        paths.emplace(id, std::move(path));
        return true;
    });
}

std::shared_ptr<const FileFacts> LiveIndex::factsFor(const std::string& path, const FileInfo& info,
                                                    const FileDetails& details, std::uint32_t nodeCount) const
{
    auto facts = std::make_shared<FileFacts>(path, info, details, m_services.types(details.mimeType),
                                             m_services.lastUsed ? m_services.lastUsed(path, info) : 0);
    facts->setNodeCount(nodeCount);
    return facts;
}

Expected<IndexChanges> LiveIndex::apply(const std::vector<PathChange>& changes)
{
    if (auto prepared = prepare(); !prepared) {
        return prepared.error();
    }
    // A tree that may have changed anywhere is crawled again whole.
    bool recrawl = false;
    for (const PathChange& change : changes) {
        recrawl = recrawl || change.kind == PathChange::Kind::TreeChanged;
    }
    if (recrawl) {
        Index::Options options;
        options.importContent = false;  // imported a few at a time afterwards
        Expected<UpdateReport> updated = m_index->update(options);
        if (!updated) {
            return updated.error();
        }
        m_pendingImports.reset();
        return reload();
    }

    Store& store = m_index->store();
    if (auto begun = store.begin(); !begun) {
        return begun.error();
    }
    Batch batch;
    batch.working = view()->copy();
    for (const PathChange& change : changes) {
        Expected<void> done;
        switch (change.kind) {
        case PathChange::Kind::Changed:
            done = upsertPath(batch, change.path);
            break;
        case PathChange::Kind::Removed:
            done = removePath(batch, change.path);
            break;
        case PathChange::Kind::FolderChanged:
            done = rescanFolder(batch, change.path);
            break;
        case PathChange::Kind::TreeChanged:
            break;
        }
        if (!done) {
            store.rollback();
            return done.error();
        }
    }
    // Folders whose entries came or went have another entry count.
    for (const std::string& folder : batch.touchedFolders) {
        auto known = m_folders.find(folder);
        Expected<FileInfo> info = statPath(folder);
        if (known == m_folders.end() || !info) {
            continue;
        }
        const auto count = static_cast<std::uint32_t>(entryNames(folder).size());
        if (auto counted = store.updateNodeCount(known->second, count); !counted) {
            store.rollback();
            return counted.error();
        }
        Expected<std::optional<StoredItem>> stored = store.item(known->second);
        FileDetails details{"inode/directory", {}};
        if (stored && *stored) {
            details.attributes = (*stored)->attributes;
        }
        batch.working->upsert(factsFor(folder, *info, details, count));
        batch.upserted.push_back(folder);
    }
    if (auto imported = importQueued(batch); !imported) {
        store.rollback();
        return imported.error();
    }
    if (auto bumped = store.bumpGeneration(); !bumped) {
        store.rollback();
        return bumped.error();
    }
    if (auto committed = store.commit(); !committed) {
        return committed.error();
    }

    IndexChanges result;
    result.removed = std::move(batch.removed);
    std::unordered_set<std::string> seen;
    for (const std::string& path : batch.upserted) {
        if (seen.insert(path).second) {
            if (std::optional<ItemRef> item = batch.working->item(path)) {
                result.upserted.push_back(std::move(*item));
            }
        }
    }
    std::shared_ptr<const IndexView> next = batch.working;
    m_unsaved = true;
    if (next->fresh().size() > m_rebuildThreshold) {
        Expected<std::shared_ptr<const Catalogue>> rebuilt = m_index->refreshCatalogue();
        if (!rebuilt) {
            return rebuilt.error();
        }
        next = std::make_shared<IndexView>(rebuilt.value());
        m_unsaved = false;
    }
    {
        std::lock_guard lock(m_viewMutex);
        m_view = next;
    }
    result.view = next;
    publish(result);
    return result;
}

Expected<void> LiveIndex::upsertPath(Batch& batch, const std::string& path)
{
    Store& store = m_index->store();
    const bool isRoot = std::find(m_roots.begin(), m_roots.end(), path) != m_roots.end();
    const std::string parent = parentOf(path);
    auto parentId = m_folders.find(parent);
    if (!isRoot && parentId == m_folders.end()) {
        return {};  // not inside an indexed folder (or its folder is not known yet)
    }
    if (path != m_index->directory() && isPathAtOrBelow(path, m_index->directory())) {
        return {};  // the index's own files (its folder is listed, as the crawler lists it)
    }
    Expected<FileInfo> info = statPath(path);
    if (!info) {
        return removePath(batch, path);
    }
    Expected<std::optional<StoredItem>> stored =
        isRoot ? store.item(m_folders.count(path) ? m_folders[path] : 0) : store.child(parentId->second, info->name);
    if (!stored) {
        return stored.error();
    }
    // A plain item plus a flag: GCC's uninitialised-value analysis trips over an
    // optional of this aggregate.
    bool known = stored->has_value();
    StoredItem existing = known ? std::move(**stored) : StoredItem{};
    if (known && existing.info.kind != info->kind) {
        if (auto removed = removePath(batch, path); !removed) {
            return removed;
        }
        known = false;
    }
    if (known && sameSignature(existing.info, *info)) {
        return {};  // nothing changed
    }
    const FileDetails details = readFileDetails(path, *info);
    StoredItem item;
    item.parent = isRoot ? 0 : parentId->second;
    item.info = *info;
    if (isRoot) {
        item.info.name = path;
    }
    auto type = batch.types.find(details.mimeType);
    if (type == batch.types.end()) {
        Expected<std::int32_t> id = store.internMimeType(details.mimeType);
        if (!id) {
            return id.error();
        }
        type = batch.types.emplace(details.mimeType, *id).first;
    }
    item.type = type->second;
    item.attributes = details.attributes;
    item.nodeCount = known ? existing.nodeCount : 0;
    if (known) {
        item.id = existing.id;
        if (auto updated = store.updateItem(item); !updated) {
            return updated;
        }
    } else {
        Expected<StoreId> id = store.insertItem(item);
        if (!id) {
            return id.error();
        }
        item.id = *id;
        batch.touchedFolders.insert(parent);
    }
    // Only new content is imported again: a change of mode, owner or tags
    // keeps what the last import found.
    const bool newContent = !known || !sameContent(existing.info, *info);
    if (info->kind == FileKind::Regular && newContent) {
        batch.imports.push_back({item.id, path, details.mimeType});
    }
    if (info->kind == FileKind::Directory) {
        m_folders[path] = item.id;
        if (!known) {
            return crawlNewFolder(batch, path, item.id);
        }
    }
    std::shared_ptr<const FileFacts> facts = factsFor(path, *info, details, item.nodeCount);
    if (info->kind == FileKind::Regular && !newContent) {
        Expected<std::shared_ptr<const FileFacts>> kept = withStoredImport(std::move(facts), item.id);
        if (!kept) {
            return kept.error();
        }
        facts = std::move(*kept);
    }
    batch.working->upsert(std::move(facts));
    batch.upserted.push_back(path);
    return {};
}

Expected<void> LiveIndex::removePath(Batch& batch, const std::string& path)
{
    Store& store = m_index->store();
    StoreId id = 0;
    if (auto folder = m_folders.find(path); folder != m_folders.end()) {
        id = folder->second;
    } else if (auto parent = m_folders.find(parentOf(path)); parent != m_folders.end()) {
        Expected<std::optional<StoredItem>> stored = store.child(parent->second, nameOf(path));
        if (!stored) {
            return stored.error();
        }
        if (*stored) {
            id = (*stored)->id;
        }
    }
    if (id) {
        if (auto deleted = store.deleteSubtree(id); !deleted) {
            return deleted;
        }
        batch.touchedFolders.insert(parentOf(path));
    }
    std::erase_if(m_folders, [&](const auto& entry) { return isPathAtOrBelow(entry.first, path); });
    std::vector<std::string> removed = batch.working->remove(path);
    batch.removed.insert(batch.removed.end(), removed.begin(), removed.end());
    return {};
}

Expected<void> LiveIndex::rescanFolder(Batch& batch, const std::string& path)
{
    auto folder = m_folders.find(path);
    if (folder == m_folders.end()) {
        return upsertPath(batch, path);
    }
    Expected<std::vector<StoredItem>> stored = m_index->store().children(folder->second);
    if (!stored) {
        return stored.error();
    }
    std::unordered_set<std::string> onDisk;
    for (const std::string& name : entryNames(path)) {
        onDisk.insert(name);
        if (auto done = upsertPath(batch, joinPath(path, name)); !done) {
            return done;
        }
    }
    for (const StoredItem& child : *stored) {
        if (!onDisk.count(child.info.name)) {
            if (auto done = removePath(batch, joinPath(path, child.info.name)); !done) {
                return done;
            }
        }
    }
    batch.touchedFolders.insert(path);
    return {};
}

Expected<void> LiveIndex::crawlNewFolder(Batch& batch, const std::string& path, StoreId id)
{
    // Everything below a folder that just appeared: its entries are new too.
    class Sink final : public CrawlSink {
    public:
        Sink(LiveIndex& live, Batch& batch, const std::string& top, StoreId id)
            : m_live(live)
            , m_batch(batch)
        {
            m_ids[top] = id;
        }
        bool needsDetails(std::string_view, const FileInfo&) override { return true; }
        void folderScanned(FolderScan&& scan) override
        {
            Store& store = m_live.m_index->store();
            auto folder = m_ids.find(scan.path);
            if (m_failure || folder == m_ids.end()) {
                return;
            }
            const auto count = static_cast<std::uint32_t>(scan.entries.size());
            check(store.updateNodeCount(folder->second, count));
            const FileDetails self = readFileDetails(scan.path, scan.self);
            m_batch.working->upsert(m_live.factsFor(scan.path, scan.self, self, count));
            m_batch.upserted.push_back(scan.path);
            for (ScannedEntry& entry : scan.entries) {
                const std::string path = joinPath(scan.path, entry.info.name);
                const FileDetails details = entry.details ? *entry.details : readFileDetails(path, entry.info);
                StoredItem item;
                item.parent = folder->second;
                item.info = entry.info;
                Expected<std::int32_t> type = store.internMimeType(details.mimeType);
                if (!type) {
                    m_failure = type.error();
                    return;
                }
                item.type = *type;
                item.attributes = details.attributes;
                Expected<std::optional<StoredItem>> existing = store.child(folder->second, entry.info.name);
                if (existing && *existing) {
                    item.id = (*existing)->id;
                    item.nodeCount = (*existing)->nodeCount;
                    check(store.updateItem(item));
                } else {
                    Expected<StoreId> inserted = store.insertItem(item);
                    if (!inserted) {
                        m_failure = inserted.error();
                        return;
                    }
                    item.id = *inserted;
                }
                if (entry.info.kind == FileKind::Regular) {
                    m_batch.imports.push_back({item.id, path, details.mimeType});
                }
                if (entry.info.kind == FileKind::Directory) {
                    m_ids[path] = item.id;
                    m_live.m_folders[path] = item.id;
                    continue;  // its facts come with its own scan
                }
                m_batch.working->upsert(m_live.factsFor(path, entry.info, details, 0));
                m_batch.upserted.push_back(path);
            }
        }
        void folderUnreadable(std::string_view, int) override {}
        std::optional<Failure> m_failure;

    private:
        void check(const Expected<void>& result)
        {
            if (!result && !m_failure) {
                m_failure = result.error();
            }
        }
        LiveIndex& m_live;
        Batch& m_batch;
        std::unordered_map<std::string, StoreId> m_ids;
    };

    Sink sink(*this, batch, path, id);
    CrawlOptions options;
    options.threads = 1;
    options.excludedFolders = {m_index->directory()};
    Expected<CrawlStatistics> crawled = crawl(path, sink, options);
    if (sink.m_failure) {
        return *sink.m_failure;
    }
    if (!crawled) {
        // Gone again, or unreadable: what is recorded stays as it is.
        return {};
    }
    return {};
}

Expected<std::shared_ptr<const FileFacts>> LiveIndex::withStoredImport(std::shared_ptr<const FileFacts> facts,
                                                                       StoreId id)
{
    Expected<std::optional<StoredImport>> stored = m_index->store().storedImport(id);
    if (!stored) {
        return stored.error();
    }
    if (!*stored) {
        return facts;
    }
    auto kept = std::make_shared<FileFacts>(*facts);
    Expected<ImportedAttributes> attributes = decodeImportedAttributes((*stored)->attributes);
    // A damaged record costs the attributes, not the change.
    kept->setImported({attributes ? std::make_shared<const ImportedAttributes>(std::move(*attributes)) : nullptr,
                       m_index->store().path(), id, (*stored)->hasText});
    return std::shared_ptr<const FileFacts>(std::move(kept));
}

Expected<void> LiveIndex::importQueued(Batch& batch)
{
    if (!m_services.importer || batch.imports.empty()) {
        return {};
    }
    ImportPass pass(m_index->store(), *m_services.importer);
    Expected<std::vector<ImportedFile>> imported = pass.importFiles(batch.imports);
    if (!imported) {
        return imported.error();
    }
    // The files' facts, now with what was found in them.
    for (ImportedFile& file : *imported) {
        const auto known = batch.working->fresh().find(file.path);
        if (known == batch.working->fresh().end()) {
            continue;
        }
        auto facts = std::make_shared<FileFacts>(*known->second);
        facts->setImported({std::move(file.attributes), m_index->store().path(), file.item, file.hasText});
        batch.working->upsert(std::move(facts));
    }
    return {};
}

Expected<IndexChanges> LiveIndex::reload()
{
    // The snapshot the root operations left, or one built anew when it is stale.
    Expected<std::shared_ptr<const Catalogue>> catalogue =
        m_index->catalogueIsCurrent() ? Index::snapshot(m_index->directory()) : m_index->refreshCatalogue();
    if (!catalogue) {
        catalogue = m_index->refreshCatalogue();
    }
    if (!catalogue) {
        return catalogue.error();
    }
    if (auto loaded = loadFolders(); !loaded) {
        return loaded.error();
    }
    m_unsaved = !catalogue.value()->isMapped();
    m_importsUnpublished = false;
    IndexChanges result;
    result.everything = true;
    result.view = std::make_shared<IndexView>(catalogue.value());
    {
        std::lock_guard lock(m_viewMutex);
        m_view = result.view;
    }
    publish(result);
    return result;
}

Expected<void> LiveIndex::reloadIfChanged()
{
    // Files crawled again may have new content: they are listed anew.
    m_pendingImports.reset();
    Expected<std::int64_t> generation = m_index->store().generation();
    if (!generation) {
        return generation.error();
    }
    if (*generation == view()->base()->generation() && !m_unsaved) {
        return loadRoots();  // nothing searches would see changed
    }
    Expected<IndexChanges> reloaded = reload();
    return reloaded ? Expected<void>() : Expected<void>(reloaded.error());
}

Expected<void> LiveIndex::checkpoint()
{
    if (!m_unsaved) {
        return {};
    }
    Expected<std::shared_ptr<const Catalogue>> rebuilt = m_index->refreshCatalogue();
    if (!rebuilt) {
        return rebuilt.error();
    }
    {
        std::lock_guard lock(m_viewMutex);
        m_view = std::make_shared<IndexView>(rebuilt.value());
    }
    m_unsaved = false;
    m_importsUnpublished = false;
    return {};
}

Expected<UpdateReport> LiveIndex::addRoots(const std::vector<std::string>& folders, const Index::Options& options)
{
    if (auto prepared = prepare(); !prepared) {
        return prepared.error();
    }
    Expected<UpdateReport> report = m_index->addRoots(folders, options);
    if (!report) {
        return report;
    }
    if (auto reloaded = reloadIfChanged(); !reloaded) {
        return reloaded.error();
    }
    return report;
}

Expected<void> LiveIndex::removeRoots(const std::vector<std::string>& folders)
{
    if (auto prepared = prepare(); !prepared) {
        return prepared;
    }
    if (auto removed = m_index->removeRoots(folders); !removed) {
        return removed;
    }
    return reloadIfChanged();
}

Expected<UpdateReport> LiveIndex::rebuild(const Index::Options& options)
{
    if (auto prepared = prepare(); !prepared) {
        return prepared.error();
    }
    Expected<UpdateReport> report = m_index->rebuild(options);
    if (!report) {
        return report;
    }
    if (auto reloaded = reloadIfChanged(); !reloaded) {
        return reloaded.error();
    }
    return report;
}

Expected<UpdateReport> LiveIndex::update(const Index::Options& options)
{
    if (auto prepared = prepare(); !prepared) {
        return prepared.error();
    }
    Expected<UpdateReport> report = m_index->update(options);
    if (!report) {
        return report;
    }
    if (auto reloaded = reloadIfChanged(); !reloaded) {
        return reloaded.error();
    }
    return report;
}

Expected<std::size_t> LiveIndex::importSome(std::size_t files, const std::atomic<bool>* cancel)
{
    if (!m_services.importer) {
        return std::size_t{0};
    }
    if (auto prepared = prepare(); !prepared) {
        return prepared.error();
    }
    ImportPass pass(m_index->store(), *m_services.importer);
    if (!m_pendingImports) {
        // A new round: counted once, listed a page at a time.
        Expected<std::uint64_t> waiting = pass.countWaiting();
        if (!waiting) {
            return waiting.error();
        }
        m_pendingImports.emplace();
        m_importCursor = 0;
        m_importsDone = 0;
        m_importsListed = *waiting;
    }
    while (m_pendingImports->empty()) {
        std::int64_t last = m_importCursor;
        std::string unavailable;
        Expected<std::vector<ImportPass::Pending>> page = pass.pendingFiles(m_importCursor, kImportPage, &last, &unavailable);
        if (!page) {
            return page.error();
        }
        if (last == m_importCursor || !unavailable.empty()) {
            m_importsListed = m_importsDone;  // nothing more this round
            return std::size_t{0};
        }
        m_importCursor = last;
        m_pendingImports->insert(m_pendingImports->end(), std::make_move_iterator(page->begin()),
                                 std::make_move_iterator(page->end()));
    }
    std::vector<ImportPass::Pending> slice;
    while (!m_pendingImports->empty() && slice.size() < files) {
        slice.push_back(std::move(m_pendingImports->front()));
        m_pendingImports->pop_front();
    }
    const std::size_t count = slice.size();
    Expected<ImportReport> imported = pass.importListed(std::move(slice), cancel);
    if (!imported) {
        return imported.error();
    }
    if (!imported->unavailable.empty() || imported->cancelled) {
        m_pendingImports.reset();  // listed again next time
        return std::size_t{0};
    }
    m_importsDone += count;
    m_importsListed = std::max(m_importsListed, m_importsDone);
    m_importsUnpublished = m_importsUnpublished || imported->imported + imported->failed > 0;
    return static_cast<std::size_t>(std::max<std::uint64_t>(m_importsListed - m_importsDone, 1));
}

Expected<void> LiveIndex::publishImports()
{
    if (!m_importsUnpublished) {
        return {};
    }
    Expected<IndexChanges> reloaded = reload();
    return reloaded ? Expected<void>() : Expected<void>(reloaded.error());
}

int LiveIndex::subscribe(Subscriber subscriber)
{
    std::lock_guard lock(m_subscribersMutex);
    const int id = m_nextSubscriber++;
    m_subscribers.emplace(id, std::move(subscriber));
    return id;
}

void LiveIndex::unsubscribe(int id)
{
    std::lock_guard lock(m_subscribersMutex);
    m_subscribers.erase(id);
}

void LiveIndex::publish(const IndexChanges& changes)
{
    std::vector<Subscriber> subscribers;
    {
        std::lock_guard lock(m_subscribersMutex);
        for (const auto& [id, subscriber] : m_subscribers) {
            subscribers.push_back(subscriber);
        }
    }
    for (const Subscriber& subscriber : subscribers) {
        subscriber(changes);
    }
}

}  // namespace trovara::index
