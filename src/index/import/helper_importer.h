// Running importers in helper processes (trovara-importer), so that a file
// that crashes, hangs or exhausts an importer costs that file and nothing
// else.
//
// A HelperImporter starts helpers when it first needs them and keeps them
// for later batches. Each helper imports one file at a time; several run side
// by side. A helper that crashes, takes longer than the time limit, grows
// past the memory limit (resident size, checked ten times a second while it
// works; the helper also caps its own address space where it can) or sends
// anything but a well-formed answer is killed, the file it was on is
// reported as failed (with mayRetry set), and a new helper takes over.
//
// Helpers talk over a socket pair (docs/format/importer.md), so a helper
// that dies never raises SIGPIPE in the index.
//
// Thread safety: one thread at a time; the helpers are owned and reaped by
// the object.
#pragma once

#include "index/import/content_importer.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace trovara::index {

struct HelperOptions {
    std::string executable;              // the helper program
    std::vector<std::string> arguments;  // given after its own options
    int processes = 1;                   // files imported at once
    std::chrono::milliseconds timeLimit{60000};  // per file
    std::uint64_t memoryLimit = std::uint64_t{1} << 30;  // resident bytes per helper
    std::uint64_t textLimit = std::uint64_t{10} << 20;   // bytes of text per file
    std::chrono::milliseconds startLimit{10000};  // to start and greet
    bool showHelperErrors = false;  // the helpers' standard error: ours, or nowhere
};

class HelperImporter final : public ContentImporter {
public:
    explicit HelperImporter(HelperOptions options);
    ~HelperImporter() override;
    HelperImporter(const HelperImporter&) = delete;
    HelperImporter& operator=(const HelperImporter&) = delete;

    Expected<std::vector<ImporterInfo>> importers() override;
    Expected<void> importFiles(std::vector<ImportJob> jobs,
                               const std::function<void(const ImportJob&, ImportOutcome&&)>& done,
                               const std::atomic<bool>* cancel = nullptr) override;

    // What the helper said it could not load (plug-ins), once it started.
    std::vector<std::string> problems() const;
    const HelperOptions& options() const { return m_options; }

    // The options Trovara's programs use: the helper installed next to the
    // running program (else "trovara-importer" on the PATH), one helper per
    // core (at most two), and the limits from the environment:
    // TROVARA_TEXT_LIMIT (bytes of text per file; "10M", "512K" …),
    // TROVARA_IMPORT_TIME_LIMIT (seconds per file), TROVARA_IMPORT_MEMORY_LIMIT
    // (bytes per helper). TROVARA_IMPORTER_STDERR=1 shows the helpers' errors.
    static HelperOptions defaultOptions();

private:
    struct Helper;
    Expected<std::unique_ptr<Helper>> start();

    HelperOptions m_options;
    std::vector<std::unique_ptr<Helper>> m_idle;
    std::optional<HelloMessage> m_hello;
    std::uint64_t m_nextRequest = 1;
};

// "10M", "512K", "1G" or a plain number of bytes; none for anything else.
std::optional<std::uint64_t> parseByteCount(std::string_view text);

}  // namespace trovara::index
