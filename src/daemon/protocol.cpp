#include "daemon/protocol.h"

#include <cstring>

namespace trovara::daemon {

namespace {

using index::Failure;

class Writer {
public:
    void byte(std::uint8_t value) { m_bytes.push_back(value); }
    void flag(bool value) { byte(value ? 1 : 0); }
    void number(std::uint64_t value)
    {
        while (value >= 0x80) {
            byte(static_cast<std::uint8_t>(value | 0x80));
            value >>= 7;
        }
        byte(static_cast<std::uint8_t>(value));
    }
    void signedNumber(std::int64_t value)
    {
        number((static_cast<std::uint64_t>(value) << 1) ^ static_cast<std::uint64_t>(value >> 63));
    }
    void text(const std::string& value)
    {
        number(value.size());
        m_bytes.insert(m_bytes.end(), value.begin(), value.end());
    }
    void texts(const std::vector<std::string>& values)
    {
        number(values.size());
        for (const std::string& value : values) {
            text(value);
        }
    }
    std::vector<std::uint8_t>& bytes() { return m_bytes; }

private:
    std::vector<std::uint8_t> m_bytes;
};

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes)
        : m_bytes(bytes)
    {
    }

    bool failed() const { return m_failed; }
    void fail() { m_failed = true; }
    bool atEnd() const { return m_at == m_bytes.size(); }

    std::uint8_t byte()
    {
        if (m_at >= m_bytes.size()) {
            m_failed = true;
            return 0;
        }
        return m_bytes[m_at++];
    }
    bool flag()
    {
        const std::uint8_t value = byte();
        if (value > 1) {
            m_failed = true;
        }
        return value == 1;
    }
    std::uint64_t number()
    {
        std::uint64_t value = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            const std::uint8_t b = byte();
            if (m_failed) {
                return 0;
            }
            value |= static_cast<std::uint64_t>(b & 0x7f) << shift;
            if (!(b & 0x80)) {
                return value;
            }
        }
        m_failed = true;  // more than ten bytes
        return 0;
    }
    std::uint32_t number32()
    {
        const std::uint64_t value = number();
        if (value > 0xffffffffu) {
            m_failed = true;
        }
        return static_cast<std::uint32_t>(value);
    }
    std::int64_t signedNumber()
    {
        const std::uint64_t value = number();
        return static_cast<std::int64_t>((value >> 1) ^ (~(value & 1) + 1));
    }
    std::string text()
    {
        const std::uint64_t size = number();
        if (m_failed || size > m_bytes.size() - m_at) {
            m_failed = true;
            return {};
        }
        std::string value(reinterpret_cast<const char*>(m_bytes.data() + m_at), size);
        m_at += size;
        return value;
    }
    // A count of things that take at least `least` bytes each: never more
    // than what is left could hold.
    std::size_t count(std::size_t least = 1)
    {
        const std::uint64_t value = number();
        if (m_failed || value > (m_bytes.size() - m_at) / least) {
            m_failed = true;
            return 0;
        }
        return static_cast<std::size_t>(value);
    }
    std::vector<std::string> texts()
    {
        std::vector<std::string> values(count());
        for (std::string& value : values) {
            value = text();
        }
        return values;
    }

private:
    std::span<const std::uint8_t> m_bytes;
    std::size_t m_at = 0;
    bool m_failed = false;
};

bool isRequest(std::uint8_t type)
{
    return type >= static_cast<std::uint8_t>(MessageType::Hello)
           && type <= static_cast<std::uint8_t>(MessageType::Shutdown);
}

void writeReport(Writer& w, const index::UpdateReport& report)
{
    w.number(report.crawl.folders);
    w.number(report.crawl.files);
    w.number(report.crawl.unreadable);
    w.number(report.crawl.detailed);
    w.flag(report.crawl.cancelled);
    w.number(report.added);
    w.number(report.changed);
    w.number(report.removed);
}

void readReport(Reader& r, index::UpdateReport& report)
{
    report.crawl.folders = r.number();
    report.crawl.files = r.number();
    report.crawl.unreadable = r.number();
    report.crawl.detailed = r.number();
    report.crawl.cancelled = r.flag();
    report.added = r.number();
    report.changed = r.number();
    report.removed = r.number();
}

void writeStatus(Writer& w, const index::IndexStatus& status, const DaemonFigures& figures)
{
    w.number(status.roots.size());
    for (const index::RootRecord& root : status.roots) {
        w.signedNumber(root.id);
        w.text(root.path);
        w.signedNumber(root.item);
        w.signedNumber(root.added);
        w.signedNumber(root.lastCrawlStarted);
        w.signedNumber(root.lastCrawlFinished);
        w.flag(root.complete);
        w.flag(root.namesOnly);
    }
    w.signedNumber(status.items);
    w.signedNumber(status.databaseBytes);
    w.signedNumber(status.catalogueBytes);
    w.signedNumber(status.lastUpdate);
    w.number(status.unreadable.size());
    for (const index::UnreadableFolder& folder : status.unreadable) {
        w.text(folder.path);
        w.signedNumber(folder.error);
    }
    w.signedNumber(figures.pid);
    w.number(figures.clients);
    w.number(figures.subscribers);
    w.number(figures.watchedFolders);
    w.number(figures.polledFolders);
    w.number(figures.watchBudget);
    w.number(figures.changesApplied);
    w.number(figures.residentBytes);
    w.number(figures.startedAt);
    w.flag(figures.caughtUp);
    w.number(figures.importsWaiting);
    w.number(figures.importsDone);
}

void readStatus(Reader& r, index::IndexStatus& status, DaemonFigures& figures)
{
    status.roots.resize(r.count(8));
    for (index::RootRecord& root : status.roots) {
        root.id = r.signedNumber();
        root.path = r.text();
        root.item = r.signedNumber();
        root.added = r.signedNumber();
        root.lastCrawlStarted = r.signedNumber();
        root.lastCrawlFinished = r.signedNumber();
        root.complete = r.flag();
        root.namesOnly = r.flag();
    }
    status.items = r.signedNumber();
    status.databaseBytes = r.signedNumber();
    status.catalogueBytes = r.signedNumber();
    status.lastUpdate = r.signedNumber();
    status.unreadable.resize(r.count(2));
    for (index::UnreadableFolder& folder : status.unreadable) {
        folder.path = r.text();
        folder.error = static_cast<int>(r.signedNumber());
    }
    figures.pid = r.signedNumber();
    figures.clients = r.number();
    figures.subscribers = r.number();
    figures.watchedFolders = r.number();
    figures.polledFolders = r.number();
    figures.watchBudget = r.number();
    figures.changesApplied = r.number();
    figures.residentBytes = r.number();
    figures.startedAt = r.number();
    figures.caughtUp = r.flag();
    figures.importsWaiting = r.number();
    figures.importsDone = r.number();
}

void writeItem(Writer& w, const ItemRecord& item)
{
    w.text(item.path);
    const index::FileInfo& info = item.info;
    w.text(info.name);
    w.byte(static_cast<std::uint8_t>(info.kind));
    w.number(info.device);
    w.number(info.inode);
    w.number(info.mode);
    w.number(info.uid);
    w.number(info.gid);
    w.signedNumber(info.size);
    w.signedNumber(info.modified);
    w.signedNumber(info.changed);
    w.signedNumber(info.accessed);
    w.flag(info.born.has_value());
    if (info.born) {
        w.signedNumber(*info.born);
    }
    w.flag(info.invisible);
    const index::ExtendedAttributes& attributes = item.details.attributes;
    w.text(item.details.mimeType);
    w.flag(attributes.comment.has_value());
    if (attributes.comment) {
        w.text(*attributes.comment);
    }
    w.texts(attributes.tags);
    w.texts(attributes.whereFroms);
    w.flag(attributes.label.has_value());
    if (attributes.label) {
        w.signedNumber(*attributes.label);
    }
    w.signedNumber(item.lastUsed);
    w.number(item.nodeCount);
}

void readItem(Reader& r, ItemRecord& item)
{
    item.path = r.text();
    index::FileInfo& info = item.info;
    info.name = r.text();
    const std::uint8_t kind = r.byte();
    if (kind > static_cast<std::uint8_t>(index::FileKind::Other)) {
        r.fail();
        return;
    }
    info.kind = static_cast<index::FileKind>(kind);
    info.device = r.number();
    info.inode = r.number();
    info.mode = r.number32();
    info.uid = r.number32();
    info.gid = r.number32();
    info.size = r.signedNumber();
    info.modified = r.signedNumber();
    info.changed = r.signedNumber();
    info.accessed = r.signedNumber();
    if (r.flag()) {
        info.born = r.signedNumber();
    }
    info.invisible = r.flag();
    index::ExtendedAttributes& attributes = item.details.attributes;
    item.details.mimeType = r.text();
    if (r.flag()) {
        attributes.comment = r.text();
    }
    attributes.tags = r.texts();
    attributes.whereFroms = r.texts();
    if (r.flag()) {
        const std::int64_t label = r.signedNumber();
        attributes.label = static_cast<int>(label < 0 ? 0 : label > 7 ? 7 : label);
    }
    item.lastUsed = r.signedNumber();
    item.nodeCount = r.number32();
}

Failure malformed(const std::string& what)
{
    return Failure{Failure::Kind::InvalidArgument, "malformed message: " + what};
}

}  // namespace

std::vector<std::uint8_t> encodeFrame(const Message& message)
{
    Writer w;
    for (int i = 0; i < 4; ++i) {
        w.byte(0);  // the length, filled in below
    }
    if (const auto* request = std::get_if<Request>(&message)) {
        w.byte(static_cast<std::uint8_t>(request->type));
        w.number(request->id);
        if (request->type == MessageType::Hello) {
            w.number(request->version);
        } else if (request->type == MessageType::AddRoots || request->type == MessageType::RemoveRoots) {
            w.texts(request->paths);
            if (request->type == MessageType::AddRoots) {
                w.flag(request->namesOnly);
            }
        }
    } else if (const auto* reply = std::get_if<Reply>(&message)) {
        w.byte(static_cast<std::uint8_t>(MessageType::Reply));
        w.number(reply->id);
        w.byte(static_cast<std::uint8_t>(reply->answers));
        w.flag(!reply->failure);
        if (reply->failure) {
            w.byte(static_cast<std::uint8_t>(reply->failure->kind));
            w.text(reply->failure->message);
        } else {
            switch (reply->answers) {
            case MessageType::Hello:
                w.number(reply->version);
                w.signedNumber(reply->figures.pid);
                w.text(reply->indexDirectory);
                break;
            case MessageType::Status:
                writeStatus(w, reply->status, reply->figures);
                break;
            case MessageType::AddRoots:
            case MessageType::Update:
            case MessageType::Rebuild:
                writeReport(w, reply->report);
                break;
            case MessageType::Checkpoint:
            case MessageType::Subscribe:
                w.signedNumber(reply->generation);
                break;
            default:
                break;
            }
        }
    } else {
        const auto& changes = std::get<ChangesEvent>(message);
        w.byte(static_cast<std::uint8_t>(MessageType::Changes));
        w.flag(changes.everything);
        w.signedNumber(changes.generation);
        w.texts(changes.removed);
        w.number(changes.upserted.size());
        for (const ItemRecord& item : changes.upserted) {
            writeItem(w, item);
        }
    }
    std::vector<std::uint8_t>& bytes = w.bytes();
    const auto length = static_cast<std::uint32_t>(bytes.size() - 4);
    for (int i = 0; i < 4; ++i) {
        bytes[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(length >> (8 * i));
    }
    return std::move(bytes);
}

index::Expected<Message> decodeBody(std::span<const std::uint8_t> body)
{
    Reader r(body);
    const std::uint8_t type = r.byte();
    if (r.failed()) {
        return malformed("empty");
    }
    Message message;
    if (isRequest(type)) {
        Request request;
        request.type = static_cast<MessageType>(type);
        request.id = r.number();
        if (request.type == MessageType::Hello) {
            request.version = r.number32();
        } else if (request.type == MessageType::AddRoots || request.type == MessageType::RemoveRoots) {
            request.paths = r.texts();
            if (request.type == MessageType::AddRoots) {
                request.namesOnly = r.flag();
            }
        }
        message = std::move(request);
    } else if (type == static_cast<std::uint8_t>(MessageType::Reply)) {
        Reply reply;
        reply.id = r.number();
        const std::uint8_t answers = r.byte();
        if (!isRequest(answers)) {
            return malformed("a reply to an unknown request");
        }
        reply.answers = static_cast<MessageType>(answers);
        if (!r.flag()) {
            const std::uint8_t kind = r.byte();
            if (kind > static_cast<std::uint8_t>(Failure::Kind::Internal)) {
                return malformed("an unknown kind of failure");
            }
            reply.failure = Failure{static_cast<Failure::Kind>(kind), r.text()};
        } else {
            switch (reply.answers) {
            case MessageType::Hello:
                reply.version = r.number32();
                reply.figures.pid = r.signedNumber();
                reply.indexDirectory = r.text();
                break;
            case MessageType::Status:
                readStatus(r, reply.status, reply.figures);
                break;
            case MessageType::AddRoots:
            case MessageType::Update:
            case MessageType::Rebuild:
                readReport(r, reply.report);
                break;
            case MessageType::Checkpoint:
            case MessageType::Subscribe:
                reply.generation = r.signedNumber();
                break;
            default:
                break;
            }
        }
        message = std::move(reply);
    } else if (type == static_cast<std::uint8_t>(MessageType::Changes)) {
        ChangesEvent changes;
        changes.everything = r.flag();
        changes.generation = r.signedNumber();
        changes.removed = r.texts();
        changes.upserted.resize(r.count(20));
        for (ItemRecord& item : changes.upserted) {
            readItem(r, item);
            if (r.failed()) {
                break;
            }
        }
        message = std::move(changes);
    } else {
        return malformed("unknown type " + std::to_string(type));
    }
    if (r.failed()) {
        return malformed(std::string("a truncated or damaged ") + toString(static_cast<MessageType>(type)));
    }
    if (!r.atEnd()) {
        return malformed(std::string("bytes after the end of a ") + toString(static_cast<MessageType>(type)));
    }
    return message;
}

void FrameReader::append(std::span<const std::uint8_t> bytes)
{
    if (m_start > 0 && m_start == m_buffer.size()) {
        m_buffer.clear();
        m_start = 0;
    }
    m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
}

index::Expected<std::optional<std::vector<std::uint8_t>>> FrameReader::next()
{
    if (buffered() < 4) {
        return std::optional<std::vector<std::uint8_t>>();
    }
    std::uint32_t length = 0;
    for (int i = 0; i < 4; ++i) {
        length |= static_cast<std::uint32_t>(m_buffer[m_start + static_cast<std::size_t>(i)]) << (8 * i);
    }
    if (length == 0 || length > kMaxFrame) {
        return Failure{Failure::Kind::InvalidArgument,
                       "malformed message: a frame of " + std::to_string(length) + " bytes"};
    }
    if (buffered() < 4 + static_cast<std::size_t>(length)) {
        return std::optional<std::vector<std::uint8_t>>();
    }
    const auto begin = m_buffer.begin() + static_cast<long>(m_start + 4);
    std::vector<std::uint8_t> body(begin, begin + length);
    m_start += 4 + length;
    if (m_start > 65536 && m_start * 2 > m_buffer.size()) {
        m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<long>(m_start));
        m_start = 0;
    }
    return std::optional<std::vector<std::uint8_t>>(std::move(body));
}

const char* toString(MessageType type)
{
    switch (type) {
    case MessageType::Hello:
        return "hello";
    case MessageType::Status:
        return "status";
    case MessageType::AddRoots:
        return "add-roots";
    case MessageType::RemoveRoots:
        return "remove-roots";
    case MessageType::Update:
        return "update";
    case MessageType::Rebuild:
        return "rebuild";
    case MessageType::Checkpoint:
        return "checkpoint";
    case MessageType::Subscribe:
        return "subscribe";
    case MessageType::Unsubscribe:
        return "unsubscribe";
    case MessageType::Shutdown:
        return "shutdown";
    case MessageType::Reply:
        return "reply";
    case MessageType::Changes:
        return "changes";
    }
    return "message";
}

}  // namespace trovara::daemon
