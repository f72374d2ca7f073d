#include "index/import/import_pass.h"

#include "index/text/encoding.h"
#include "index/updater.h"

#include <algorithm>
#include <chrono>

namespace trovara::index {

namespace {

// Whether reading the file as plain text gives the imported text back, so
// that the index need not keep a copy of it (TextIndex::text reads it again).
bool readsBack(const ImportJob& job, const std::string& text)
{
    if (job.importer != "text") {
        return false;
    }
    Expected<text::DecodedText> again = text::readTextFile(job.path, text.size());
    return again && again->text == text;
}

Expected<void> save(Store& store, const ImportRecord& record, const ImportJob& job, const ImportOutcome& outcome)
{
    if (!outcome.imported || !outcome.text || outcome.text->empty()) {
        return store.saveImport(record, std::nullopt);
    }
    return store.saveImport(record, outcome.text, !readsBack(job, *outcome.text));
}

// Whether a file's content is wanted: not below a root kept for names only.
using ContentWanted = std::function<bool(const std::string& path)>;

Expected<ContentWanted> contentWanted(Store& store)
{
    Expected<std::vector<RootRecord>> roots = store.roots();
    if (!roots) {
        return roots.error();
    }
    std::vector<std::string> namesOnly;
    for (const RootRecord& root : *roots) {
        if (root.namesOnly) {
            namesOnly.push_back(root.path);
        }
    }
    return ContentWanted([namesOnly](const std::string& path) {
        return std::none_of(namesOnly.begin(), namesOnly.end(), [&](const std::string& root) {
            return root == "/" || path == root
                   || (path.size() > root.size() && path.compare(0, root.size(), root) == 0 && path[root.size()] == '/');
        });
    });
}

constexpr std::uint64_t kFilesPerTransaction = 500;
constexpr std::size_t kFilesPerPage = 5000;
constexpr auto kTransactionTime = std::chrono::seconds(2);

}  // namespace

ImportPass::ImportPass(Store& store, ContentImporter& importer)
    : m_store(store)
    , m_importer(importer)
{
}

Expected<void> ImportPass::loadImporters()
{
    if (m_importers) {
        return {};
    }
    Expected<std::vector<ImporterInfo>> importers = m_importer.importers();
    if (!importers) {
        return importers.error();
    }
    m_importers = std::move(*importers);
    return {};
}

const ImporterInfo* ImportPass::importerForMime(const std::string& mimeType)
{
    auto it = m_byMime.find(mimeType);
    if (it == m_byMime.end()) {
        it = m_byMime.emplace(mimeType, chooseImporter(*m_importers, describeMimeType(mimeType))).first;
    }
    return it->second;
}

ImportRecord ImportPass::record(const ImportJob& job, int attemptsBefore, ImportOutcome& outcome) const
{
    ImportRecord record;
    record.item = job.item;
    record.importer = job.importer;
    record.finished = nowNanoseconds();
    record.failed = !outcome.imported;
    record.truncated = outcome.truncated;
    if (outcome.imported) {
        if (!outcome.attributes.empty()) {
            record.attributes = encodeImportedAttributes(outcome.attributes);
        }
    } else {
        record.error = outcome.error.empty() ? std::string("the importer gave no reason") : outcome.error;
        // Only a failure that another try may mend is tried again.
        record.attempts = attemptsBefore + 1;
        record.mayRetry = outcome.mayRetry;
    }
    return record;
}

Expected<ImportReport> ImportPass::importPending(const std::atomic<bool>* cancel, const ProgressCallback& progress)
{
    ImportReport report;
    Expected<std::uint64_t> waiting = countWaiting();
    if (!waiting) {
        return waiting.error();
    }
    // A page at a time, so that a large index is imported in little memory.
    ImportProgress overall;
    overall.total = *waiting;
    std::int64_t after = 0;
    while (!(cancel && cancel->load())) {
        std::int64_t last = after;
        Expected<std::vector<Pending>> page = pendingFiles(after, kFilesPerPage, &last, &report.unavailable);
        if (!page) {
            return page.error();
        }
        if (last == after || !report.unavailable.empty()) {
            break;
        }
        after = last;
        const std::uint64_t before = overall.done;
        Expected<ImportReport> imported = importListed(std::move(*page), cancel, [&](const ImportProgress& state) {
            overall.done = before + state.done;
            overall.path = state.path;
            if (progress) {
                progress(overall);
            }
        });
        if (!imported) {
            return imported.error();
        }
        report.imported += imported->imported;
        report.failed += imported->failed;
        report.withText += imported->withText;
        if (!imported->unavailable.empty()) {
            report.unavailable = imported->unavailable;
            break;
        }
    }
    report.cancelled = cancel && cancel->load();
    return report;
}

Expected<std::uint64_t> ImportPass::countWaiting()
{
    Expected<std::vector<std::pair<std::int32_t, std::int64_t>>> counts = m_store.countPendingImports(kMaxImportAttempts);
    if (!counts) {
        return counts.error();
    }
    Expected<std::vector<std::string>> mimeTypes = m_store.mimeTypes();
    if (!mimeTypes) {
        return mimeTypes.error();
    }
    if (counts->empty() || !loadImporters()) {
        return std::uint64_t{0};
    }
    std::uint64_t total = 0;
    for (const auto& [type, count] : *counts) {
        const auto index = static_cast<std::size_t>(type);
        if (index < mimeTypes->size() && !(*mimeTypes)[index].empty() && importerForMime((*mimeTypes)[index])) {
            total += static_cast<std::uint64_t>(count);
        }
    }
    return total;
}

Expected<std::vector<ImportPass::Pending>> ImportPass::pendingFiles(std::int64_t after, std::size_t limit,
                                                                    std::int64_t* last, std::string* unavailable)
{
    std::vector<Pending> files;
    Expected<std::vector<PendingImport>> pending = m_store.pendingImports(kMaxImportAttempts, after, limit);
    if (!pending) {
        return pending.error();
    }
    if (pending->empty()) {
        return files;
    }
    if (last) {
        *last = pending->back().id;
    }
    Expected<std::vector<std::string>> mimeTypes = m_store.mimeTypes();
    if (!mimeTypes) {
        return mimeTypes.error();
    }
    if (auto loaded = loadImporters(); !loaded) {
        if (unavailable) {
            *unavailable = loaded.error().message;
        }
        return files;
    }
    Expected<ContentWanted> wanted = contentWanted(m_store);
    if (!wanted) {
        return wanted.error();
    }

    // Folder paths, looked up once per folder.
    std::unordered_map<StoreId, std::string> folders;
    for (const PendingImport& file : *pending) {
        const auto type = static_cast<std::size_t>(file.type);
        const std::string& mime = type < mimeTypes->size() ? (*mimeTypes)[type] : std::string();
        const ImporterInfo* importer = mime.empty() ? nullptr : importerForMime(mime);
        if (!importer) {
            continue;
        }
        auto folder = folders.find(file.parent);
        if (folder == folders.end()) {
            Expected<std::string> path = m_store.itemPath(file.parent);
            if (!path) {
                return path.error();
            }
            folder = folders.emplace(file.parent, std::move(*path)).first;
        }
        Pending listed;
        listed.job.item = file.id;
        listed.job.path = folder->second == "/" ? "/" + file.name : folder->second + "/" + file.name;
        if (!(*wanted)(listed.job.path)) {
            continue;
        }
        listed.job.mimeType = mime;
        listed.job.importer = importer->name;
        listed.attempts = file.attempts;
        files.push_back(std::move(listed));
    }
    return files;
}

Expected<ImportReport> ImportPass::importListed(std::vector<Pending> files, const std::atomic<bool>* cancel,
                                                const ProgressCallback& progress)
{
    ImportReport report;
    if (files.empty()) {
        return report;
    }
    if (auto loaded = loadImporters(); !loaded) {
        report.unavailable = loaded.error().message;
        return report;
    }
    std::vector<ImportJob> jobs;
    std::unordered_map<std::int64_t, int> attempts;
    jobs.reserve(files.size());
    for (Pending& file : files) {
        attempts[file.job.item] = file.attempts;
        jobs.push_back(std::move(file.job));
    }

    ImportProgress state;
    state.total = jobs.size();
    std::optional<Failure> failure;
    bool open = false;
    std::uint64_t inTransaction = 0;
    auto openedAt = std::chrono::steady_clock::now();
    auto commit = [&]() -> Expected<void> {
        if (!open) {
            return {};
        }
        open = false;
        if (auto bumped = m_store.bumpGeneration(); !bumped) {
            m_store.rollback();
            return bumped;
        }
        return m_store.commit();
    };
    Expected<void> imported = m_importer.importFiles(
        std::move(jobs),
        [&](const ImportJob& job, ImportOutcome&& outcome) {
            if (failure) {
                return;
            }
            if (!open) {
                if (auto begun = m_store.begin(); !begun) {
                    failure = begun.error();
                    return;
                }
                open = true;
                inTransaction = 0;
                openedAt = std::chrono::steady_clock::now();
            }
            const ImportRecord written = record(job, attempts[job.item], outcome);
            if (auto saved = save(m_store, written, job, outcome); !saved) {
                m_store.rollback();
                open = false;
                failure = saved.error();
                return;
            }
            (written.failed ? report.failed : report.imported) += 1;
            report.withText += outcome.imported && outcome.text && !outcome.text->empty() ? 1 : 0;
            ++inTransaction;
            if (inTransaction >= kFilesPerTransaction || std::chrono::steady_clock::now() - openedAt > kTransactionTime) {
                if (auto committed = commit(); !committed) {
                    failure = committed.error();
                    return;
                }
            }
            ++state.done;
            if (progress) {
                state.path = job.path;
                progress(state);
            }
        },
        cancel);
    if (failure) {
        return *failure;
    }
    if (auto committed = commit(); !committed) {
        return committed.error();
    }
    if (!imported) {
        report.unavailable = imported.error().message;
    }
    report.cancelled = cancel && cancel->load();
    return report;
}

Expected<std::vector<ImportedFile>> ImportPass::importFiles(const std::vector<File>& files)
{
    std::vector<ImportedFile> results;
    if (files.empty()) {
        return results;
    }
    if (auto loaded = loadImporters(); !loaded) {
        return results;
    }
    Expected<ContentWanted> wanted = contentWanted(m_store);
    if (!wanted) {
        return wanted.error();
    }
    std::vector<ImportJob> jobs;
    for (const File& file : files) {
        if (!(*wanted)(file.path)) {
            continue;
        }
        if (const ImporterInfo* importer = importerForMime(file.mimeType)) {
            jobs.push_back({file.item, file.path, file.mimeType, importer->name});
        }
    }
    std::optional<Failure> failure;
    Expected<void> imported = m_importer.importFiles(std::move(jobs), [&](const ImportJob& job, ImportOutcome&& outcome) {
        if (failure) {
            return;
        }
        // The file's content just changed, which dropped any earlier record.
        const ImportRecord written = record(job, 0, outcome);
        if (auto saved = save(m_store, written, job, outcome); !saved) {
            failure = saved.error();
            return;
        }
        ImportedFile file;
        file.item = job.item;
        file.path = job.path;
        if (outcome.imported) {
            file.attributes = std::make_shared<const ImportedAttributes>(std::move(outcome.attributes));
            file.hasText = outcome.text && !outcome.text->empty();
        }
        results.push_back(std::move(file));
    });
    if (failure) {
        return *failure;
    }
    return results;  // also when the helper could not be started: nothing was imported
}

}  // namespace trovara::index
