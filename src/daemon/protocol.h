// What Trovara's daemon and its clients say to each other over the daemon's
// Unix socket: frames holding one message each, requests answered by
// replies with the same id, and change events for subscribed clients.
// docs/format/protocol.md describes the bytes.
//
// Decoding never trusts its input: every length is checked against what is
// left, every count against the bytes that could hold it, and anything
// malformed is a Failure, never a crash nor a huge allocation.
//
// Thread safety: plain functions and values.
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"
#include "index/index.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace trovara::daemon {

// Raised when the messages change incompatibly.
constexpr std::uint32_t kProtocolVersion = 2;
// The largest frame either side accepts (a change event of many items
// stays well below it: the daemon splits larger ones).
constexpr std::size_t kMaxFrame = 16 * 1024 * 1024;

enum class MessageType : std::uint8_t {
    // Requests
    Hello = 1,        // version → version, pid, index folder
    Status = 2,       // → index status and the daemon's figures
    AddRoots = 3,     // paths → update report
    RemoveRoots = 4,  // paths →
    Update = 5,       // → update report
    Rebuild = 6,      // → update report
    Checkpoint = 7,   // → generation of the snapshot now on disk
    Subscribe = 8,    // → generation; then Changes events
    Unsubscribe = 9,  // →
    Shutdown = 10,    // → (then the daemon exits)
    // From the daemon
    Reply = 64,
    Changes = 65,
};

struct Request {
    MessageType type = MessageType::Hello;
    std::uint64_t id = 0;
    std::uint32_t version = 0;       // Hello
    std::vector<std::string> paths;  // AddRoots, RemoveRoots
    bool namesOnly = false;          // AddRoots: the folders are kept for names only
};

struct DaemonFigures {
    std::int64_t pid = 0;
    std::uint64_t clients = 0;
    std::uint64_t subscribers = 0;
    std::uint64_t watchedFolders = 0;
    std::uint64_t polledFolders = 0;
    std::uint64_t watchBudget = 0;
    std::uint64_t changesApplied = 0;
    std::uint64_t residentBytes = 0;
    std::uint64_t startedAt = 0;  // ns since the Unix epoch
    bool caughtUp = false;
    std::uint64_t importsWaiting = 0;  // files whose content waits to be imported
    std::uint64_t importsDone = 0;     // of the current round
};

struct Reply {
    std::uint64_t id = 0;
    MessageType answers = MessageType::Hello;
    std::optional<index::Failure> failure;  // none: it worked
    // Hello
    std::uint32_t version = 0;
    std::string indexDirectory;
    // Status
    index::IndexStatus status;
    DaemonFigures figures;
    // AddRoots, Update, Rebuild
    index::UpdateReport report;
    // Checkpoint, Subscribe
    std::int64_t generation = 0;
};

// One item as a change event carries it: what a client needs to make the
// same FileFacts the daemon has.
struct ItemRecord {
    std::string path;
    index::FileInfo info;
    index::FileDetails details;
    index::Nanoseconds lastUsed = 0;
    std::uint32_t nodeCount = 0;
};

struct ChangesEvent {
    bool everything = false;  // look at the snapshot again (of at least this generation)
    std::int64_t generation = 0;
    std::vector<std::string> removed;
    std::vector<ItemRecord> upserted;
};

using Message = std::variant<Request, Reply, ChangesEvent>;

// The frame of a message: its length (4 bytes, little-endian) then its body.
std::vector<std::uint8_t> encodeFrame(const Message& message);
// A frame's body back to its message.
index::Expected<Message> decodeBody(std::span<const std::uint8_t> body);

// Cuts a byte stream into frame bodies.
class FrameReader {
public:
    void append(std::span<const std::uint8_t> bytes);
    // The next whole body, if one has arrived. A frame longer than kMaxFrame
    // is an error that cannot be recovered from (the stream is lost).
    index::Expected<std::optional<std::vector<std::uint8_t>>> next();
    std::size_t buffered() const { return m_buffer.size() - m_start; }

private:
    std::vector<std::uint8_t> m_buffer;
    std::size_t m_start = 0;
};

const char* toString(MessageType type);

}  // namespace trovara::daemon
