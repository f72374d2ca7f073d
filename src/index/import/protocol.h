// The protocol between the index and its importer helper process
// (trovara-importer), shared by both sides. Written down in
// docs/format/importer.md; change both together and bump kProtocolVersion.
//
// The helper reads requests on its standard input and writes answers on
// its standard output, as frames: a u32 little-endian length (of what
// follows: the type byte and the payload), a u8 message type, the payload.
//
//   helper → index   Hello    once, first: protocol version, the importers
//   index  → helper  Import   a file to import, with the importer to use
//   helper → index   Result   the answer to one Import (by its id)
//   index  → helper  Quit     end cleanly
//
// A frame longer than the reader's limit, an unknown type, or a payload that
// does not decode is a protocol error: the index stops that helper and
// starts another.
//
// Thread safety: plain values and pure functions; the fd helpers may be
// used from any thread on descriptors that thread owns.
#pragma once

#include "index/expected.h"
#include "index/import/imported_attributes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

inline constexpr std::uint32_t kImporterProtocolVersion = 1;

enum class MessageType : std::uint8_t {
    Hello = 1,
    Import = 2,
    Result = 3,
    Quit = 4,
};

// One importer as the helper offers it.
struct ImporterInfo {
    std::string name;     // unique: "pdf", "text", a plug-in's own name
    std::string version;
    std::string path;     // a plug-in's library; empty for built-in importers
    // MIME types ("application/pdf") and type identifiers ("public.image",
    // matched with everything that conforms to them).
    std::vector<std::string> contentTypes;

    bool isPlugin() const { return !path.empty(); }
};

struct HelloMessage {
    std::uint32_t version = kImporterProtocolVersion;
    std::vector<ImporterInfo> importers;  // in order of preference
    std::vector<std::string> problems;    // plug-ins that could not be loaded, and why
};

struct ImportRequest {
    std::uint64_t id = 0;
    std::string path;
    std::string importer;  // the ImporterInfo::name to run
    std::string mimeType;
    std::uint64_t textLimit = 0;  // bytes of UTF-8 text at most
};

enum class ImportStatus : std::uint8_t {
    Imported = 0,   // attributes and perhaps text
    Failed = 1,     // the importer refused the file; `error` says why
    Exhausted = 2,  // the importer ran out of memory: another try may pass
};

struct ImportResult {
    std::uint64_t id = 0;
    ImportStatus status = ImportStatus::Imported;
    std::string error;
    ImportedAttributes attributes;
    std::optional<std::string> text;  // kMDItemTextContent, UTF-8
    bool truncated = false;           // the text was cut at the limit
};

struct Frame {
    MessageType type = MessageType::Hello;
    std::string payload;
};

std::string encodeFrame(MessageType type, std::string_view payload);

std::string encodeHello(const HelloMessage& hello);
std::string encodeImportRequest(const ImportRequest& request);
std::string encodeImportResult(const ImportResult& result);

Expected<HelloMessage> decodeHello(std::string_view payload);
Expected<ImportRequest> decodeImportRequest(std::string_view payload);
Expected<ImportResult> decodeImportResult(std::string_view payload);

// Collects bytes as they arrive and cuts them into frames.
class FrameReader {
public:
    explicit FrameReader(std::size_t maxFrame)
        : m_maxFrame(maxFrame)
    {
    }
    void append(std::string_view bytes) { m_buffer.append(bytes); }
    // The next complete frame, none while one is incomplete, or a failure
    // for a frame over the limit or of an unknown type.
    Expected<std::optional<Frame>> next();
    bool empty() const { return m_buffer.empty(); }

private:
    std::size_t m_maxFrame;
    std::string m_buffer;
};

// Blocking I/O of whole frames, for the helper side. readFrame() gives none
// at a clean end of input (EOF between frames).
Expected<void> writeFrame(int fd, MessageType type, std::string_view payload);
Expected<std::optional<Frame>> readFrame(int fd, std::size_t maxFrame);

}  // namespace trovara::index
