// The index as a whole: its folder, the one writer's lock, the roots, and the
// catalogue that readers query.
//
// Writers (trova index …, later the daemon) open it with openForWriting(),
// which takes the folder's lock so that there is one writer at a time, and
// repairs a damaged or outdated database by rebuilding it from the roots
// file. Readers call catalogue(), which maps the snapshot, and rebuilds it
// from the database when it is missing, damaged or older than the database.
//
// Thread safety: an Index is used from one thread; catalogues it hands out
// may be shared freely.
#pragma once

#include "index/catalogue.h"
#include "index/expected.h"
#include "index/import/content_importer.h"
#include "index/import/import_pass.h"
#include "index/store.h"
#include "index/updater.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace trovara::index {

// What the index needs from the rest of the engine: name folding, types,
// last-use dates, and what reads files' content (none: files are indexed
// without their content). Tests may give simpler ones.
struct IndexServices {
    NameFolder fold;
    TypeResolver types;
    std::function<Nanoseconds(const std::string& path, const FileInfo&)> lastUsed;
    std::shared_ptr<ContentImporter> importer;
};

// A file whose import failed, as `trova index status` lists it.
struct ImportFailure {
    std::string path;
    std::string importer;
    std::string error;
    int attempts = 0;
    bool willRetry = false;  // tried again on the next update
};

struct IndexStatus {
    std::vector<RootRecord> roots;
    std::int64_t items = 0;
    std::int64_t databaseBytes = 0;
    std::int64_t catalogueBytes = 0;
    Nanoseconds lastUpdate = 0;
    std::vector<UnreadableFolder> unreadable;
    ImportCounts imports;
    std::vector<ImportFailure> importFailures;
};

class Index {
public:
    // $TROVARA_INDEX, else $XDG_DATA_HOME/trovara/index (~/.local/share/…).
    static std::string defaultDirectory();

    // Takes the writer's lock (waiting for another writer when `wait`) and
    // opens the database, rebuilding a bad one from the roots file; what was
    // mended is told through `notices`.
    static Expected<std::unique_ptr<Index>> openForWriting(const std::string& directory, IndexServices services,
                                                           bool wait, std::vector<std::string>* notices = nullptr);

    // The current catalogue for queries (see above). Fails when there is no
    // index, or the database is damaged (which `trova index rebuild` mends).
    // While another process writes the index, its snapshot is taken as it
    // is, even when older than the database: the writer brings it up to date
    // soon, and building it here would cost far more than the answer.
    static Expected<std::shared_ptr<const Catalogue>> catalogue(const std::string& directory,
                                                                const IndexServices& services);
    // Where the catalogue snapshot of the index in `directory` lives.
    static std::string snapshotPath(const std::string& directory);
    // The snapshot as it is on disk, unchecked against the database (see
    // Catalogue::open for what is checked).
    static Expected<std::shared_ptr<const Catalogue>> snapshot(const std::string& directory);

    ~Index();
    Index(const Index&) = delete;
    Index& operator=(const Index&) = delete;

    struct Options {
        int threads = 0;
        const std::atomic<bool>* cancel = nullptr;
        Updater::ProgressCallback progress;
        ImportPass::ProgressCallback importProgress;
        // Told what was mended on the way (a damaged database moved aside).
        std::function<void(const std::string&)> notice;
        // Import what files contain after the crawl (off: the files stay
        // pending for importPending()).
        bool importContent = true;
        // addRoots(): the folders are kept for names only (their files'
        // contents are not imported, and what was imported is forgotten);
        // adding an indexed folder again sets this either way.
        bool namesOnly = false;
        // Told when the crawl is done and its items are searchable (by name,
        // size, dates and kind), before the contents are imported.
        std::function<void(const UpdateReport&)> namesReady;
    };

    // Adds folders and crawls them (and imports what is new or changed, when
    // the services have an importer; see UpdateReport::imports). A folder inside an existing root adds
    // nothing; a folder that holds existing roots takes their place.
    Expected<UpdateReport> addRoots(const std::vector<std::string>& folders, const Options& options);
    Expected<void> removeRoots(const std::vector<std::string>& folders);
    // Crawls every root again (only what changed is written).
    //
    // A database is checked only by its header when opened; damage further
    // in shows when a write reads it ("database disk image is malformed").
    // Then update() and addRoots() move it aside as index.db.broken, say so
    // through Options::notice, and do their work again on a new database
    // holding the roots of the roots file: every root is crawled afresh.
    Expected<UpdateReport> update(const Options& options);
    // Forgets everything and crawls every root from scratch.
    Expected<UpdateReport> rebuild(const Options& options);
    // Imports every file still waiting for its content, then writes the
    // catalogue when anything was imported.
    Expected<ImportReport> importPending(const Options& options);
    Expected<IndexStatus> status();
    // The status of the index in `directory`, read without the writer's lock.
    static Expected<IndexStatus> readStatus(const std::string& directory);
    // Writes the catalogue snapshot from the database.
    Expected<std::shared_ptr<const Catalogue>> refreshCatalogue();
    // Whether the snapshot on disk was built from the database as it is now.
    bool catalogueIsCurrent();

    const std::string& directory() const { return m_directory; }
    // Whether files' content is imported (the services have an importer).
    bool hasImporter() const { return m_services.importer != nullptr; }
    Store& store() { return *m_store; }

    // Cleans a folder given by the user: absolute, no "." or "..", no
    // trailing slash, symbolic links resolved. Fails when it is not a folder,
    // or holds a NUL byte.
    static Expected<std::string> canonicalFolder(const std::string& folder);

private:
    Index() = default;
    Expected<UpdateReport> crawlRoots(std::vector<RootRecord>& roots, const Options& options);
    Expected<UpdateReport> addRootsOnce(const std::vector<std::string>& folders, const Options& options);
    Expected<void> replaceDamagedDatabase(const Failure& damage, const Options& options);
    // Runs the operation; when it finds the database damaged, replaces the
    // database and runs it once more.
    template <typename Operation>
    Expected<UpdateReport> recoveringFromDamage(const Options& options, Operation operation)
    {
        Expected<UpdateReport> result = operation();
        if (result || result.error().kind != Failure::Kind::Corrupt) {
            return result;
        }
        if (Expected<void> replaced = replaceDamagedDatabase(result.error(), options); !replaced) {
            return replaced.error();
        }
        return operation();
    }
    Expected<void> refreshCatalogueIfStale();
    Expected<void> writeRootsFile();

    std::string m_directory;
    IndexServices m_services;
    std::unique_ptr<Store> m_store;
    int m_lockFd = -1;
};

}  // namespace trovara::index
