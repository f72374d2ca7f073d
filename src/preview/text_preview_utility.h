// The application's side of the text preview helper ("TextPreviewHelper",
// the program trovara-text-preview): what reads a file's text for the
// preview, so that an importer that crashes or hangs on a hostile file costs
// that file's preview and nothing else.
//
// The helper is started with two arguments, a unique connection name and
// this process's id (it ends when this process does), and listens on a local
// socket under that name; the utility tries to connect every
// connectInterval until connectLimit has passed since the launch, and reads
// its greeting. All traffic with the helper goes through the utility's own
// thread, which runs an event loop for it; callers (the preview's worker
// thread) wait for their answer. The protocol is the importer protocol's
// (see text_preview_server.h and docs/format/importer.md).
//
// Faults:
//  - a helper that cannot be started, or does not connect and greet in time,
//    is not used: from then on files are read in this process by the
//    in-process TextPreviewManager (which runs importers in helper processes
//    of its own);
//  - a helper that dies while reading a file fails that file ("The text
//    preview helper stopped …") and is started again;
//  - a helper that does not answer within answerLimit is killed, the file
//    fails, and a new helper is started;
//  - a caller that stops waiting (its cancel flag is raised: the selection
//    moved on) gets Cancelled at once; the helper may go on with that file
//    for abandonGrace once another request is waiting, and is replaced if it
//    has not finished by then, so a hanging file never holds up the next.
//
// The main thread never waits here: creating the utility starts the helper
// in the background, and only textContentsOfFile() waits for the start.
//
// Thread safety: textContentsOfFile() may be called from any thread but the
// utility's own; the utility must outlive its callers.
#pragma once

#include "preview/condition_lock.h"
#include "preview/file_contents.h"

#include <QtGlobal>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

class QThread;

namespace trovara::preview {

class TextPreviewManager;

struct TextPreviewOptions {
    std::string helperExecutable;  // the helper program
    std::chrono::milliseconds connectLimit{10000};
    std::chrono::milliseconds connectInterval{100};
    std::chrono::milliseconds answerLimit{60000};  // per file
    std::chrono::milliseconds abandonGrace{250};
    std::uint64_t textLimit = std::uint64_t{10} << 20;  // bytes of text per file
    bool showHelperErrors = false;  // the helper's standard error: ours, or nowhere
    // Reads files when the helper cannot be used; TextPreviewManager's
    // defaultManager() when not set. Called by one caller at a time.
    std::function<TextPreviewManager&()> inProcessManager;

    // The helper installed next to the running program (else
    // "trovara-text-preview" on the PATH), and the importers' limits from
    // the environment (TROVARA_TEXT_LIMIT, TROVARA_IMPORT_TIME_LIMIT,
    // TROVARA_IMPORTER_STDERR).
    static TextPreviewOptions defaultOptions();
};

class TextPreviewUtility {
public:
    explicit TextPreviewUtility(TextPreviewOptions options = TextPreviewOptions::defaultOptions());
    ~TextPreviewUtility();
    TextPreviewUtility(const TextPreviewUtility&) = delete;
    TextPreviewUtility& operator=(const TextPreviewUtility&) = delete;

    // The utility of this process, made on first use with the default
    // options (and ended with the application object).
    static TextPreviewUtility& sharedTextPreviewUtility();

    // The file's text through the helper, or in this process when the
    // helper is not used. With `cancel`, returns Cancelled soon after it is
    // raised. `limit` (bytes, 0: the options' text limit) asks for the start
    // of the text only, marked truncated when there is more.
    FileContents textContentsOfFile(const std::string& path, const std::atomic<bool>* cancel = nullptr,
                                    std::uint64_t limit = 0);

    // Waits for the first start to be over; whether the helper is in use.
    bool usesHelper();
    // The helper's process id, 0 while none runs.
    qint64 helperProcessId() const { return m_helperPid.load(); }
    // How many helpers have been started.
    int helperStarts() const { return m_helperStarts.load(); }
    // The connection name of the helper now (myServerIdentifier).
    std::string serverIdentifier() const;

    const TextPreviewOptions& options() const { return m_options; }

private:
    class Connection;
    friend class Connection;
    class Thread;
    void waitUntilStarted();

    TextPreviewOptions m_options;
    ConditionLock m_lock{0};  // 0 while the first helper starts, then 1
    std::unique_ptr<Thread> m_thread;
    std::atomic<Connection*> m_connection{nullptr};  // lives in m_thread
    std::atomic<bool> m_usesHelper{false};
    std::atomic<qint64> m_helperPid{0};
    std::atomic<int> m_helperStarts{0};
    mutable std::mutex m_identifierMutex;
    std::string m_identifier;
    std::mutex m_inProcessMutex;
    std::mutex m_requestsMutex;
    std::set<std::shared_ptr<void>> m_requests;  // callers waiting
    bool m_ending = false;                        // guarded by m_requestsMutex
};

}  // namespace trovara::preview
