// Bringing the imports in step with the items: every regular file whose
// type an importer serves and that has no import record yet (new, or its
// content changed, which drops the record) is imported, and what came back
// is written: the attributes, the text, or the failure. Files below a root
// kept for names only are left alone.
//
// Failures are kept with the number of tries. A failure that another try
// might mend (a crash, a hang, too much memory) is tried again on later
// passes, up to kMaxImportAttempts tries in all; a verdict on the file
// (damaged, encrypted) is final. Either way the file is tried afresh once
// its content changes.
//
// Writes go in transactions of a few hundred files (the caller's own
// transaction when it passes one in, as the live index does), and the
// generation is bumped, so that readers see imports as they are committed.
//
// Thread safety: one pass at a time per store, on the caller's thread.
#pragma once

#include "index/expected.h"
#include "index/import/content_importer.h"
#include "index/store.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace trovara::index {

inline constexpr int kMaxImportAttempts = 3;

struct ImportReport {
    std::uint64_t imported = 0;
    std::uint64_t failed = 0;
    std::uint64_t withText = 0;
    bool cancelled = false;
    // Why nothing could be imported (the importers could not be reached);
    // the files stay pending for the next pass.
    std::string unavailable;
};

struct ImportProgress {
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    std::string path;  // the file just done
};

// A file imported by the live index, with what it now has.
struct ImportedFile {
    std::int64_t item = 0;
    std::string path;
    std::shared_ptr<const ImportedAttributes> attributes;  // none when it failed
    bool hasText = false;
};

class ImportPass {
public:
    using ProgressCallback = std::function<void(const ImportProgress&)>;

    ImportPass(Store& store, ContentImporter& importer);

    // Imports every pending file of the store, in its own transactions.
    // Fails only when the store does; importers that cannot be reached are
    // told in ImportReport::unavailable.
    Expected<ImportReport> importPending(const std::atomic<bool>* cancel = nullptr,
                                         const ProgressCallback& progress = {});

    // The same in steps: the files waiting for an import (those an importer
    // serves), then the import of any of them, in its own transactions. A
    // file that changed or went since it was listed is recorded as it is
    // now (or not at all).
    struct Pending {
        ImportJob job;
        int attempts = 0;  // failed tries so far
    };
    // A page of them: those after the item `after`, of the next `limit`
    // files waiting (fewer may be listed); `last` is told the last item the
    // page looked at, where the next page starts.
    Expected<std::vector<Pending>> pendingFiles(std::int64_t after, std::size_t limit, std::int64_t* last,
                                                std::string* unavailable = nullptr);
    // How many files wait for an importer that serves them.
    Expected<std::uint64_t> countWaiting();
    Expected<ImportReport> importListed(std::vector<Pending> files, const std::atomic<bool>* cancel = nullptr,
                                        const ProgressCallback& progress = {});

    // Imports the given files (items just written) inside the caller's open
    // transaction; files without an importer are left alone. Fails only
    // when the store does; when the importers cannot be reached, nothing is
    // imported (the files stay pending for the next full pass).
    struct File {
        std::int64_t item = 0;
        std::string path;
        std::string mimeType;
    };
    Expected<std::vector<ImportedFile>> importFiles(const std::vector<File>& files);

private:
    Expected<void> loadImporters();
    const ImporterInfo* importerForMime(const std::string& mimeType);
    ImportRecord record(const ImportJob& job, int attemptsBefore, ImportOutcome& outcome) const;

    Store& m_store;
    ContentImporter& m_importer;
    std::optional<std::vector<ImporterInfo>> m_importers;
    std::unordered_map<std::string, const ImporterInfo*> m_byMime;
};

}  // namespace trovara::index
