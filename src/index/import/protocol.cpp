#include "index/import/protocol.h"

#include "index/import/wire.h"
#include "index/text/encoding.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace trovara::index {

namespace {

Failure protocolError(const std::string& why)
{
    return Failure{Failure::Kind::Corrupt, "importer protocol: " + why};
}

// Texts from the other side are repaired to valid UTF-8.
std::string utf8(std::string_view bytes)
{
    return text::decodeText(bytes, text::TextEncoding::Utf8).text;
}

void writeList(wire::Writer& out, const std::vector<std::string>& list)
{
    out.u32(static_cast<std::uint32_t>(list.size()));
    for (const std::string& element : list) {
        out.text(element);
    }
}

bool readList(wire::Reader& in, std::vector<std::string>& list)
{
    const std::uint32_t count = in.u32();
    if (!in.ok() || count > in.remaining() / 4) {
        return false;
    }
    for (std::uint32_t i = 0; i < count && in.ok(); ++i) {
        list.push_back(utf8(in.text()));
    }
    return in.ok();
}

bool knownType(std::uint8_t type)
{
    return type >= static_cast<std::uint8_t>(MessageType::Hello) && type <= static_cast<std::uint8_t>(MessageType::Quit);
}

}  // namespace

std::string encodeFrame(MessageType type, std::string_view payload)
{
    wire::Writer out;
    out.u32(static_cast<std::uint32_t>(payload.size() + 1));
    out.u8(static_cast<std::uint8_t>(type));
    std::string frame = out.take();
    frame.append(payload);
    return frame;
}

std::string encodeHello(const HelloMessage& hello)
{
    wire::Writer out;
    out.u32(hello.version);
    out.u32(static_cast<std::uint32_t>(hello.importers.size()));
    for (const ImporterInfo& importer : hello.importers) {
        out.text(importer.name);
        out.text(importer.version);
        out.text(importer.path);
        writeList(out, importer.contentTypes);
    }
    writeList(out, hello.problems);
    return out.take();
}

Expected<HelloMessage> decodeHello(std::string_view payload)
{
    wire::Reader in(payload);
    HelloMessage hello;
    hello.version = in.u32();
    if (in.ok() && hello.version != kImporterProtocolVersion) {
        return protocolError("the helper speaks version " + std::to_string(hello.version) + ", the index version "
                             + std::to_string(kImporterProtocolVersion));
    }
    const std::uint32_t count = in.u32();
    if (!in.ok() || count > in.remaining() / 16) {
        return protocolError("bad greeting");
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        ImporterInfo importer;
        importer.name = utf8(in.text());
        importer.version = utf8(in.text());
        importer.path = std::string(in.text());
        if (!readList(in, importer.contentTypes)) {
            return protocolError("bad greeting");
        }
        hello.importers.push_back(std::move(importer));
    }
    if (!readList(in, hello.problems) || !in.atEnd()) {
        return protocolError("bad greeting");
    }
    return hello;
}

std::string encodeImportRequest(const ImportRequest& request)
{
    wire::Writer out;
    out.u64(request.id);
    out.text(request.path);
    out.text(request.importer);
    out.text(request.mimeType);
    out.u64(request.textLimit);
    return out.take();
}

Expected<ImportRequest> decodeImportRequest(std::string_view payload)
{
    wire::Reader in(payload);
    ImportRequest request;
    request.id = in.u64();
    request.path = std::string(in.text());  // paths are bytes, not necessarily UTF-8
    request.importer = std::string(in.text());
    request.mimeType = std::string(in.text());
    request.textLimit = in.u64();
    if (!in.ok() || !in.atEnd()) {
        return protocolError("bad import request");
    }
    return request;
}

std::string encodeImportResult(const ImportResult& result)
{
    wire::Writer out;
    out.u64(result.id);
    out.u8(static_cast<std::uint8_t>(result.status));
    out.text(result.error);
    out.text(encodeImportedAttributes(result.attributes));
    out.u8(result.text ? 1 : 0);
    out.text(result.text ? *result.text : std::string());
    out.u8(result.truncated ? 1 : 0);
    return out.take();
}

Expected<ImportResult> decodeImportResult(std::string_view payload)
{
    wire::Reader in(payload);
    ImportResult result;
    result.id = in.u64();
    const std::uint8_t status = in.u8();
    result.error = utf8(in.text());
    const std::string_view attributes = in.text();
    const bool hasText = in.u8() != 0;
    const std::string_view text = in.text();
    result.truncated = in.u8() != 0;
    if (!in.ok() || !in.atEnd() || status > static_cast<std::uint8_t>(ImportStatus::Exhausted)) {
        return protocolError("bad import result");
    }
    result.status = static_cast<ImportStatus>(status);
    Expected<ImportedAttributes> decoded = decodeImportedAttributes(attributes);
    if (!decoded) {
        return protocolError(decoded.error().message);
    }
    result.attributes = std::move(*decoded);
    if (hasText) {
        result.text = utf8(text);
    }
    return result;
}

Expected<std::optional<Frame>> FrameReader::next()
{
    if (m_buffer.size() < 4) {
        return std::optional<Frame>();
    }
    wire::Reader header(m_buffer);
    const std::uint32_t length = header.u32();
    if (length == 0 || length > m_maxFrame) {
        return protocolError("a frame of " + std::to_string(length) + " bytes (at most "
                             + std::to_string(m_maxFrame) + " are allowed)");
    }
    if (m_buffer.size() >= 5 && !knownType(static_cast<std::uint8_t>(m_buffer[4]))) {
        return protocolError("unknown message type " + std::to_string(static_cast<unsigned char>(m_buffer[4])));
    }
    if (m_buffer.size() - 4 < length) {
        return std::optional<Frame>();
    }
    Frame frame;
    frame.type = static_cast<MessageType>(m_buffer[4]);
    frame.payload = m_buffer.substr(5, length - 1);
    m_buffer.erase(0, 4 + static_cast<std::size_t>(length));
    return std::optional<Frame>(std::move(frame));
}

Expected<void> writeFrame(int fd, MessageType type, std::string_view payload)
{
    const std::string frame = encodeFrame(type, payload);
    std::size_t written = 0;
    while (written < frame.size()) {
        const ssize_t n = ::write(fd, frame.data() + written, frame.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return Failure{Failure::Kind::Io, std::string("cannot write to the importer pipe: ") + std::strerror(errno)};
        }
        written += static_cast<std::size_t>(n);
    }
    return {};
}

Expected<std::optional<Frame>> readFrame(int fd, std::size_t maxFrame)
{
    // Exactly one frame: what follows on the descriptor belongs to the next.
    std::string bytes;
    auto readUpTo = [&](std::size_t size) -> Expected<void> {
        char buffer[65536];
        while (bytes.size() < size) {
            const ssize_t n = ::read(fd, buffer, std::min(sizeof buffer, size - bytes.size()));
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return Failure{Failure::Kind::Io, std::string("cannot read the importer pipe: ") + std::strerror(errno)};
            }
            if (n == 0) {
                break;
            }
            bytes.append(buffer, static_cast<std::size_t>(n));
        }
        return {};
    };
    if (auto read = readUpTo(4); !read) {
        return read.error();
    }
    if (bytes.empty()) {
        return std::optional<Frame>();
    }
    FrameReader reader(maxFrame);
    if (bytes.size() == 4) {
        wire::Reader header(bytes);
        const std::uint32_t length = header.u32();
        if (length > 0 && length <= maxFrame) {
            if (auto read = readUpTo(4 + static_cast<std::size_t>(length)); !read) {
                return read.error();
            }
        }
    }
    reader.append(bytes);
    Expected<std::optional<Frame>> frame = reader.next();
    if (frame && !*frame) {
        return protocolError("the stream ended inside a frame");
    }
    return frame;
}

}  // namespace trovara::index
