#include "index/index.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace trovara::index {

namespace {

constexpr const char* kDatabase = "/index.db";
constexpr const char* kCatalogue = "/catalogue.bin";
constexpr const char* kRootsFile = "/roots";
constexpr const char* kLockFile = "/lock";

Failure ioFailure(const std::string& what, int err)
{
    return Failure{Failure::Kind::Io, what + ": " + std::strerror(err)};
}

Expected<void> makeFolders(const std::string& path)
{
    std::string partial;
    for (std::size_t i = 0; i <= path.size(); ++i) {
        if (i == path.size() || (path[i] == '/' && i > 0)) {
            partial = path.substr(0, i);
            if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
                return ioFailure("cannot create the index folder " + partial, errno);
            }
        }
    }
    return {};
}

// `inner` lies inside `outer` (or is it).
bool isInside(const std::string& inner, const std::string& outer)
{
    if (inner == outer || outer == "/") {
        return true;
    }
    return inner.size() > outer.size() && inner.compare(0, outer.size(), outer) == 0 && inner[outer.size()] == '/';
}

// A root as the roots file keeps it: its path, on a line of its own after
// "names-only " when its files' contents are not wanted.
constexpr std::string_view kNamesOnlyMark = "names-only ";

std::vector<RootRecord> readRootsFile(const std::string& path)
{
    std::vector<RootRecord> roots;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        RootRecord root;
        if (line.rfind(kNamesOnlyMark, 0) == 0) {
            root.namesOnly = true;
            line.erase(0, kNamesOnlyMark.size());
        }
        if (!line.empty() && line.front() == '/') {
            root.path = line;
            roots.push_back(std::move(root));
        }
    }
    return roots;
}

Expected<void> addRecordedRoots(Store& store, const std::vector<RootRecord>& roots)
{
    if (auto begun = store.begin(); !begun) {
        return begun;
    }
    for (const RootRecord& root : roots) {
        if (auto added = store.addRoot(root.path, nowNanoseconds(), root.namesOnly); !added) {
            store.rollback();
            return added.error();
        }
    }
    return store.commit();
}

// Moves a damaged database aside (as index.db.broken) and starts a new one
// that holds the roots listed in the roots file, to be crawled again.
Expected<std::unique_ptr<Store>> recreateFromRootsFile(const std::string& directory)
{
    Expected<std::unique_ptr<Store>> store = Store::recreate(directory + kDatabase);
    if (!store) {
        return store;
    }
    if (auto added = addRecordedRoots(*store.value(), readRootsFile(directory + kRootsFile)); !added) {
        return added.error();
    }
    return store;
}

// Whether the database is missing or empty although the roots file lists
// folders: it was lost (deleted, truncated), not never made.
bool databaseLost(const std::string& directory)
{
    struct stat st {};
    const bool none = ::stat((directory + kDatabase).c_str(), &st) != 0 ? errno == ENOENT : st.st_size == 0;
    return none && !readRootsFile(directory + kRootsFile).empty();
}

}  // namespace

std::string Index::defaultDirectory()
{
    if (const char* explicitFolder = std::getenv("TROVARA_INDEX"); explicitFolder && *explicitFolder) {
        return explicitFolder;
    }
    std::string data;
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/') {
        data = xdg;
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        data = std::string(home) + "/.local/share";
    } else {
        data = "/tmp";
    }
    return data + "/trovara/index";
}

Expected<std::string> Index::canonicalFolder(const std::string& folder)
{
    if (folder.find('\0') != std::string::npos) {
        // The system would read the path only up to it: "DIR\0/etc" is DIR.
        std::string shown;
        for (const char ch : folder) {
            shown += ch == '\0' ? std::string("\\0") : std::string(1, ch);
        }
        return Failure{Failure::Kind::InvalidArgument, shown + ": a path cannot hold a NUL byte"};
    }
    char resolved[PATH_MAX];
    if (!::realpath(folder.c_str(), resolved)) {
        return Failure{Failure::Kind::InvalidArgument, folder + ": " + std::strerror(errno)};
    }
    struct stat st {};
    if (::stat(resolved, &st) != 0) {
        return Failure{Failure::Kind::InvalidArgument, folder + ": " + std::strerror(errno)};
    }
    if (!S_ISDIR(st.st_mode)) {
        return Failure{Failure::Kind::InvalidArgument, folder + ": not a folder"};
    }
    return std::string(resolved);
}

Index::~Index()
{
    m_store.reset();
    if (m_lockFd >= 0) {
        ::close(m_lockFd);  // releases the lock
    }
}

Expected<std::unique_ptr<Index>> Index::openForWriting(const std::string& directory, IndexServices services,
                                                       bool wait, std::vector<std::string>* notices)
{
    if (auto made = makeFolders(directory); !made) {
        return made.error();
    }
    std::unique_ptr<Index> index(new Index);
    index->m_directory = directory;
    index->m_services = std::move(services);
    const std::string lockPath = directory + kLockFile;
    index->m_lockFd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (index->m_lockFd < 0) {
        return ioFailure("cannot open the index lock " + lockPath, errno);
    }
    while (::flock(index->m_lockFd, LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno == EWOULDBLOCK) {
            return Failure{Failure::Kind::Busy, "another Trovara process is updating the index in " + directory};
        }
        return ioFailure("cannot lock the index " + lockPath, errno);
    }

    const std::string database = directory + kDatabase;
    if (databaseLost(directory)) {
        if (notices) {
            notices->push_back("index database " + database + " is missing or empty; the index is rebuilt from its roots");
        }
        Expected<std::unique_ptr<Store>> store = recreateFromRootsFile(directory);
        if (!store) {
            return store.error();
        }
        index->m_store = std::move(store.value());
        return index;
    }
    Expected<std::unique_ptr<Store>> store = Store::open(database, Store::Mode::ReadWrite);
    if (!store && (store.error().kind == Failure::Kind::Corrupt || store.error().kind == Failure::Kind::Version)) {
        if (notices) {
            notices->push_back(store.error().message + "; the index is rebuilt from its roots");
        }
        store = recreateFromRootsFile(directory);
    }
    if (!store) {
        return store.error();
    }
    index->m_store = std::move(store.value());
    return index;
}

Expected<std::shared_ptr<const Catalogue>> Index::catalogue(const std::string& directory,
                                                            const IndexServices& services)
{
    Expected<std::unique_ptr<Store>> store = Store::open(directory + kDatabase, Store::Mode::ReadOnly);
    if (!store) {
        Failure failure = store.error();
        if (failure.kind == Failure::Kind::Corrupt || failure.kind == Failure::Kind::Version) {
            failure.message += " (run: trova index rebuild)";
        }
        return failure;
    }
    Expected<std::int64_t> generation = store.value()->generation();
    if (!generation) {
        return generation.error();
    }
    const std::string snapshot = directory + kCatalogue;
    Expected<std::shared_ptr<const Catalogue>> mapped = Catalogue::open(snapshot, directory + kDatabase);
    if (mapped && mapped.value()->generation() == *generation) {
        return mapped;
    }
    // Stale while a writer is at work: the writer saves a current one soon.
    const int lock = ::open((directory + kLockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool writerAtWork = lock >= 0 && ::flock(lock, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (mapped && writerAtWork) {
        ::close(lock);
        return mapped;
    }
    // Missing, damaged or stale: build it afresh, and keep it when no writer
    // is at work (a writer writes its own when it is done).
    Expected<std::shared_ptr<const Catalogue>> built =
        Catalogue::build(*store.value(), services.fold, services.types, services.lastUsed);
    if (built && lock >= 0 && !writerAtWork) {
        (void)built.value()->save(snapshot);
    }
    if (lock >= 0) {
        ::close(lock);
    }
    return built;
}

std::string Index::snapshotPath(const std::string& directory)
{
    return directory + kCatalogue;
}

Expected<std::shared_ptr<const Catalogue>> Index::snapshot(const std::string& directory)
{
    return Catalogue::open(directory + kCatalogue, directory + kDatabase);
}

Expected<void> Index::writeRootsFile()
{
    Expected<std::vector<RootRecord>> roots = m_store->roots();
    if (!roots) {
        return roots.error();
    }
    const std::string path = m_directory + kRootsFile;
    const std::string temporary = path + ".writing";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << "# Folders Trovara indexes, one per line (rebuilds crawl these again);\n"
               "# \"names-only\" before those whose files' contents are not imported.\n";
        for (const RootRecord& root : *roots) {
            out << (root.namesOnly ? kNamesOnlyMark : std::string_view()) << root.path << '\n';
        }
        out.flush();
        if (!out) {
            return ioFailure("cannot write " + temporary, errno);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        return ioFailure("cannot write " + path, errno);
    }
    return {};
}

Expected<UpdateReport> Index::crawlRoots(std::vector<RootRecord>& roots, const Options& options)
{
    UpdateReport total;
    Updater updater(*m_store, {m_directory}, options.cancel, options.progress);
    for (RootRecord& root : roots) {
        if (options.cancel && options.cancel->load()) {
            total.crawl.cancelled = true;
            break;
        }
        Expected<UpdateReport> report = updater.updateRoot(root, options.threads);
        if (!report) {
            return report.error();
        }
        total.added += report->added;
        total.changed += report->changed;
        total.removed += report->removed;
        total.crawl.folders += report->crawl.folders;
        total.crawl.files += report->crawl.files;
        total.crawl.unreadable += report->crawl.unreadable;
        total.crawl.detailed += report->crawl.detailed;
        total.crawl.cancelled = total.crawl.cancelled || report->crawl.cancelled;
    }
    if (total.crawl.cancelled) {
        if (auto refreshed = refreshCatalogueIfStale(); !refreshed) {
            return refreshed.error();
        }
        return total;
    }
    if (auto refreshed = refreshCatalogueIfStale(); !refreshed) {
        return refreshed.error();
    }
    if (options.namesReady) {
        options.namesReady(total);
    }
    if (options.importContent) {
        Expected<ImportReport> imported = importPending(options);
        if (!imported) {
            return imported.error();
        }
        total.imported = imported->imported;
        total.importFailed = imported->failed;
        total.importProblem = imported->unavailable;
        total.crawl.cancelled = imported->cancelled;
    }
    return total;
}

Expected<ImportReport> Index::importPending(const Options& options)
{
    if (!m_services.importer) {
        return ImportReport{};
    }
    ImportPass pass(*m_store, *m_services.importer);
    Expected<ImportReport> imported = pass.importPending(options.cancel, options.importProgress);
    if (!imported) {
        return imported.error();
    }
    if (auto refreshed = refreshCatalogueIfStale(); !refreshed) {
        return refreshed.error();
    }
    return imported;
}

Expected<UpdateReport> Index::addRoots(const std::vector<std::string>& folders, const Options& options)
{
    return recoveringFromDamage(options, [&] { return addRootsOnce(folders, options); });
}

Expected<UpdateReport> Index::addRootsOnce(const std::vector<std::string>& folders, const Options& options)
{
    std::vector<std::string> wanted;
    for (const std::string& folder : folders) {
        Expected<std::string> canonical = canonicalFolder(folder);
        if (!canonical) {
            return canonical.error();
        }
        wanted.push_back(*canonical);
    }
    Expected<std::vector<RootRecord>> existing = m_store->roots();
    if (!existing) {
        return existing.error();
    }
    if (auto begun = m_store->begin(); !begun) {
        return begun.error();
    }
    std::vector<std::string> added;
    for (const std::string& folder : wanted) {
        // An indexed folder added again takes the setting given now.
        auto same = std::find_if(existing->begin(), existing->end(), [&](const RootRecord& r) { return r.path == folder; });
        if (same != existing->end() && same->namesOnly != options.namesOnly) {
            same->namesOnly = options.namesOnly;
            Expected<void> changed = m_store->updateRoot(*same);
            if (changed && options.namesOnly && same->item) {
                changed = m_store->forgetContentBelow(same->item);
            }
            if (changed) {
                changed = m_store->bumpGeneration();
            }
            if (!changed) {
                m_store->rollback();
                return changed.error();
            }
        }
        const bool covered = std::any_of(existing->begin(), existing->end(),
                                         [&](const RootRecord& r) { return isInside(folder, r.path); })
                             || std::any_of(added.begin(), added.end(),
                                            [&](const std::string& a) { return isInside(folder, a); });
        if (covered) {
            continue;
        }
        // A folder that holds existing roots takes their place.
        for (const RootRecord& root : *existing) {
            if (isInside(root.path, folder)) {
                if (auto removed = m_store->removeRoot(root.id); !removed) {
                    m_store->rollback();
                    return removed.error();
                }
            }
        }
        std::erase_if(added, [&](const std::string& a) { return isInside(a, folder); });
        if (auto id = m_store->addRoot(folder, nowNanoseconds(), options.namesOnly); !id) {
            m_store->rollback();
            return id.error();
        }
        added.push_back(folder);
    }
    if (auto bumped = m_store->bumpGeneration(); !bumped) {
        m_store->rollback();
        return bumped.error();
    }
    if (auto committed = m_store->commit(); !committed) {
        return committed.error();
    }
    if (auto written = writeRootsFile(); !written) {
        return written.error();
    }
    Expected<std::vector<RootRecord>> all = m_store->roots();
    if (!all) {
        return all.error();
    }
    std::vector<RootRecord> toCrawl;
    for (RootRecord& root : *all) {
        if (std::find(added.begin(), added.end(), root.path) != added.end() || !root.item) {
            toCrawl.push_back(root);
        }
    }
    return crawlRoots(toCrawl, options);
}

Expected<void> Index::removeRoots(const std::vector<std::string>& folders)
{
    Expected<std::vector<RootRecord>> existing = m_store->roots();
    if (!existing) {
        return existing.error();
    }
    if (auto begun = m_store->begin(); !begun) {
        return begun.error();
    }
    for (const std::string& folder : folders) {
        Expected<std::string> canonical = canonicalFolder(folder);
        if (!canonical && folder.find('\0') != std::string::npos) {
            m_store->rollback();
            return canonical.error();
        }
        const std::string path = canonical ? *canonical : folder;
        auto root = std::find_if(existing->begin(), existing->end(), [&](const RootRecord& r) { return r.path == path; });
        if (root == existing->end()) {
            m_store->rollback();
            return Failure{Failure::Kind::InvalidArgument, folder + ": not an indexed folder"};
        }
        if (auto removed = m_store->removeRoot(root->id); !removed) {
            m_store->rollback();
            return removed.error();
        }
    }
    if (auto bumped = m_store->bumpGeneration(); !bumped) {
        m_store->rollback();
        return bumped;
    }
    if (auto committed = m_store->commit(); !committed) {
        return committed;
    }
    if (auto written = writeRootsFile(); !written) {
        return written;
    }
    Expected<std::shared_ptr<const Catalogue>> refreshed = refreshCatalogue();
    return refreshed ? Expected<void>() : Expected<void>(refreshed.error());
}

Expected<UpdateReport> Index::update(const Options& options)
{
    return recoveringFromDamage(options, [&]() -> Expected<UpdateReport> {
        Expected<std::vector<RootRecord>> roots = m_store->roots();
        if (!roots) {
            return roots.error();
        }
        return crawlRoots(*roots, options);
    });
}

Expected<void> Index::replaceDamagedDatabase(const Failure& damage, const Options& options)
{
    m_store.reset();
    Expected<std::unique_ptr<Store>> store = recreateFromRootsFile(m_directory);
    if (!store) {
        // Nothing better to offer than starting afresh by hand.
        return Failure{damage.kind, damage.message + " (" + store.error().message + "; run: trova index rebuild)"};
    }
    m_store = std::move(store.value());
    if (options.notice) {
        options.notice("index database " + m_directory + kDatabase + " is damaged (" + damage.message
                       + "): moved aside as index.db.broken, and the index is rebuilt from its roots");
    }
    return {};
}

Expected<UpdateReport> Index::rebuild(const Options& options)
{
    // The folders of the roots file and of the database alike: a database
    // made afresh (deleted, emptied, damaged) knows none, the file still
    // does. Where both know a folder, the database's record holds.
    std::vector<RootRecord> roots = readRootsFile(m_directory + kRootsFile);
    if (Expected<std::vector<RootRecord>> recorded = m_store->roots()) {
        for (RootRecord& root : *recorded) {
            auto same = std::find_if(roots.begin(), roots.end(), [&](const RootRecord& r) { return r.path == root.path; });
            if (same != roots.end()) {
                *same = std::move(root);
            } else {
                roots.push_back(std::move(root));
            }
        }
    }
    const std::string database = m_directory + kDatabase;
    m_store.reset();
    for (const char* suffix : {"", "-wal", "-shm"}) {
        if (::unlink((database + suffix).c_str()) != 0 && errno != ENOENT) {
            return ioFailure("cannot remove " + database + suffix, errno);
        }
    }
    ::unlink((m_directory + kCatalogue).c_str());
    Expected<std::unique_ptr<Store>> store = Store::open(database, Store::Mode::ReadWrite);
    if (!store) {
        return store.error();
    }
    m_store = std::move(store.value());
    if (auto added = addRecordedRoots(*m_store, roots); !added) {
        return added.error();
    }
    return update(options);
}

namespace {

Expected<IndexStatus> statusOf(Store& store, const std::string& directory)
{
    IndexStatus status;
    Expected<std::vector<RootRecord>> roots = store.roots();
    if (!roots) {
        return roots.error();
    }
    status.roots = std::move(*roots);
    for (const RootRecord& root : status.roots) {
        status.lastUpdate = std::max(status.lastUpdate, root.lastCrawlFinished);
    }
    Expected<std::int64_t> items = store.itemCount();
    if (!items) {
        return items.error();
    }
    status.items = *items;
    status.databaseBytes = store.fileSize();
    struct stat st {};
    if (::stat((directory + kCatalogue).c_str(), &st) == 0) {
        status.catalogueBytes = st.st_size;
    }
    Expected<std::vector<UnreadableFolder>> unreadable = store.unreadable();
    if (!unreadable) {
        return unreadable.error();
    }
    status.unreadable = std::move(*unreadable);
    Expected<ImportCounts> counts = store.importCounts();
    if (!counts) {
        return counts.error();
    }
    status.imports = *counts;
    Expected<std::vector<ImportRecord>> failed = store.failedImports();
    if (!failed) {
        return failed.error();
    }
    for (const ImportRecord& record : *failed) {
        Expected<std::string> path = store.itemPath(record.item);
        if (!path) {
            return path.error();
        }
        status.importFailures.push_back(
            {std::move(*path), record.importer, record.error, record.attempts,
             record.mayRetry && record.attempts < kMaxImportAttempts});
    }
    return status;
}

}  // namespace

Expected<IndexStatus> Index::status()
{
    return statusOf(*m_store, m_directory);
}

Expected<IndexStatus> Index::readStatus(const std::string& directory)
{
    Expected<std::unique_ptr<Store>> store = Store::open(directory + kDatabase, Store::Mode::ReadOnly);
    if (!store) {
        return store.error();
    }
    return statusOf(*store.value(), directory);
}

bool Index::catalogueIsCurrent()
{
    Expected<std::int64_t> generation = m_store->generation();
    return generation && Catalogue::snapshotGeneration(m_directory + kCatalogue) == *generation;
}

namespace {

// Builds the catalogue from the database and saves its snapshot; the built
// catalogue is gone when this returns.
Expected<void> writeCatalogue(Store& store, const IndexServices& services, const std::string& directory)
{
    Expected<std::shared_ptr<const Catalogue>> built =
        Catalogue::build(store, services.fold, services.types, services.lastUsed);
    if (!built) {
        return built.error();
    }
    return built.value()->save(directory + kCatalogue);
}

}  // namespace

Expected<void> Index::refreshCatalogueIfStale()
{
    if (catalogueIsCurrent()) {
        return {};
    }
    return writeCatalogue(*m_store, m_services, m_directory);
}

Expected<std::shared_ptr<const Catalogue>> Index::refreshCatalogue()
{
    if (auto written = writeCatalogue(*m_store, m_services, m_directory); !written) {
        return written.error();
    }
    // The saved snapshot, mapped: its pages are shared with every reader and
    // the page cache rather than held on the heap. The catalogue built for
    // it is gone by now, so that the two are never in memory together (at a
    // million files that was the peak of the whole crawl).
    Expected<std::shared_ptr<const Catalogue>> mapped =
        Catalogue::open(m_directory + kCatalogue, m_directory + kDatabase);
    if (mapped) {
        return mapped;
    }
    // Mapping fails only for want of address space or a file changed under
    // us; a catalogue on the heap still answers.
    Expected<std::shared_ptr<const Catalogue>> built =
        Catalogue::build(*m_store, m_services.fold, m_services.types, m_services.lastUsed);
    return built ? built : mapped;
}

}  // namespace trovara::index
