// What the index asks of whoever reads files' content: which importers
// there are, and the import of a batch of files. The index's own
// implementation (HelperImporter) runs the importers in helper processes;
// tests may give simpler ones.
//
// Thread safety: an importer is used from one thread at a time.
#pragma once

#include "index/expected.h"
#include "index/fs/type_tree.h"
#include "index/import/protocol.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace trovara::index {

struct ImportJob {
    std::int64_t item = 0;  // the database id (any key the caller likes)
    std::string path;
    std::string mimeType;
    std::string importer;  // the ImporterInfo::name chosen for the file
};

struct ImportOutcome {
    bool imported = false;
    // For a failure: whether another try might pass (the importer crashed,
    // hung, ran out of memory or garbled its answer) rather than a verdict
    // on the file (not a PDF, encrypted, unreadable).
    bool mayRetry = false;
    std::string error;
    ImportedAttributes attributes;
    std::optional<std::string> text;
    bool truncated = false;
};

// The outcome of an importer's answer.
ImportOutcome outcomeOf(ImportResult&& result);

class ContentImporter {
public:
    virtual ~ContentImporter() = default;

    // The importers on offer, in order of preference. Fails when there is
    // no one to ask (the helper program cannot be started).
    virtual Expected<std::vector<ImporterInfo>> importers() = 0;

    // Imports the files, reporting each outcome through `done` as it comes
    // (not necessarily in order), on the calling thread. When `cancel` is
    // raised it returns soon; files not reported are left undone. Fails only
    // when no file can be imported at all (the helper cannot be started).
    virtual Expected<void> importFiles(std::vector<ImportJob> jobs,
                                       const std::function<void(const ImportJob&, ImportOutcome&&)>& done,
                                       const std::atomic<bool>* cancel = nullptr) = 0;
};

// The importer for a file of the given type: one that names the MIME type
// itself, else the one whose type identifier is nearest in the file's type
// tree; among equals, the earlier in the list. None when no importer serves
// the type.
const ImporterInfo* chooseImporter(const std::vector<ImporterInfo>& importers, const TypeDescription& type);

}  // namespace trovara::index
