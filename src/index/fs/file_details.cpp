#include "index/fs/file_details.h"

#include "index/fs/sniff.h"

#include <QByteArray>
#include <QMimeDatabase>
#include <QMimeType>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fnmatch.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace trovara::index {

namespace {

constexpr std::size_t kSniffBytes = 4096;
constexpr std::size_t kHiddenFileLimit = 1 << 20;

constexpr const char* kCommentAttribute = "user.xdg.comment";
constexpr const char* kTagsAttribute = "user.xdg.tags";
constexpr const char* kOriginAttribute = "user.xdg.origin.url";
constexpr const char* kReferrerAttribute = "user.xdg.referrer.url";
constexpr const char* kLabelAttribute = "user.trovara.label";

Nanoseconds toNanoseconds(const struct statx_timestamp& time)
{
    return static_cast<Nanoseconds>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

Failure statFailure(const std::string& path, int error)
{
    return Failure{Failure::Kind::Io, "Cannot read the attributes of " + path + ": " + std::strerror(error)};
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view kSpace = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

// Attribute values are byte strings; some programs store a terminating NUL.
std::string_view withoutTrailingNuls(std::string_view value)
{
    while (!value.empty() && value.back() == '\0') {
        value.remove_suffix(1);
    }
    return value;
}

std::optional<int> parseLabel(std::string_view value)
{
    value = trimmed(withoutTrailingNuls(value));
    int label = -1;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), label);
    if (value.empty() || error != std::errc() || end != value.data() + value.size() || label < 0 || label > 7) {
        return std::nullopt;
    }
    return label;
}

std::vector<std::string> parseTags(std::string_view value)
{
    std::vector<std::string> tags;
    value = withoutTrailingNuls(value);
    std::size_t start = 0;
    while (start <= value.size()) {
        std::size_t end = value.find(',', start);
        if (end == std::string_view::npos) {
            end = value.size();
        }
        const std::string_view tag = trimmed(value.substr(start, end - start));
        if (!tag.empty()) {
            tags.emplace_back(tag);
        }
        start = end + 1;
    }
    return tags;
}

// Reads the attributes through `list(buffer, size)` and `get(name, buffer,
// size)`, which behave as llistxattr/lgetxattr do. Listing first costs one
// call for the many files that have no attributes at all.
template <typename List, typename Get>
ExtendedAttributes readAttributes(List list, Get get)
{
    ExtendedAttributes attributes;
    std::vector<char> names(1024);
    ssize_t length = -1;
    for (int attempt = 0; attempt < 4; ++attempt) {
        length = list(names.data(), names.size());
        if (length >= 0 || errno != ERANGE) {
            break;
        }
        const ssize_t needed = list(nullptr, 0);
        if (needed < 0) {
            return attributes;
        }
        names.resize(static_cast<std::size_t>(needed) + 256);
    }
    if (length <= 0) {
        return attributes;  // none, or no support (ENOTSUP), or not allowed
    }

    std::vector<char> value(1024);
    auto read = [&](const char* name) -> std::optional<std::string> {
        for (int attempt = 0; attempt < 4; ++attempt) {
            const ssize_t size = get(name, value.data(), value.size());
            if (size >= 0) {
                return std::string(value.data(), static_cast<std::size_t>(size));
            }
            if (errno != ERANGE) {
                return std::nullopt;
            }
            const ssize_t needed = get(name, nullptr, 0);
            if (needed < 0) {
                return std::nullopt;
            }
            value.resize(static_cast<std::size_t>(needed) + 256);
        }
        return std::nullopt;
    };

    bool hasOrigin = false;
    bool hasReferrer = false;
    for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
        const std::string_view name(names.data() + at);
        at += name.size() + 1;
        if (name == kCommentAttribute) {
            if (auto comment = read(kCommentAttribute)) {
                const std::string_view text = withoutTrailingNuls(*comment);
                if (!text.empty()) {
                    attributes.comment = std::string(text);
                }
            }
        } else if (name == kTagsAttribute) {
            if (auto tags = read(kTagsAttribute)) {
                attributes.tags = parseTags(*tags);
            }
        } else if (name == kLabelAttribute) {
            if (auto label = read(kLabelAttribute)) {
                attributes.label = parseLabel(*label);
            }
        } else if (name == kOriginAttribute) {
            hasOrigin = true;
        } else if (name == kReferrerAttribute) {
            hasReferrer = true;
        }
    }
    // The page a download came from, then the page that linked to it.
    const std::pair<bool, const char*> urls[] = {{hasOrigin, kOriginAttribute}, {hasReferrer, kReferrerAttribute}};
    for (const auto& [present, attribute] : urls) {
        if (!present) {
            continue;
        }
        if (auto url = read(attribute)) {
            const std::string_view text = trimmed(withoutTrailingNuls(*url));
            if (!text.empty()) {
                attributes.whereFroms.emplace_back(text);
            }
        }
    }
    return attributes;
}

// The glob patterns of shared-mime-info, sorted by how a name is matched
// against them: "*.ext" suffixes, whole names, and the few other globs.
struct GlobPatterns {
    std::unordered_set<std::string> suffixes;  // "ext" of "*.ext", lower case
    std::unordered_set<std::string> names;     // lower case
    std::vector<std::string> others;           // lower case, for fnmatch()

    explicit GlobPatterns(const QMimeDatabase& database)
    {
        for (const QMimeType& type : database.allMimeTypes()) {
            for (const QString& glob : type.globPatterns()) {
                const std::string pattern = glob.toLower().toStdString();
                const bool wild = pattern.find_first_of("*?[") != std::string::npos;
                if (pattern.size() > 2 && pattern.starts_with("*.")
                    && pattern.find_first_of("*?[", 2) == std::string::npos) {
                    suffixes.insert(pattern.substr(2));
                } else if (!wild) {
                    names.insert(pattern);
                } else {
                    others.push_back(pattern);
                }
            }
        }
    }
};

// QMimeDatabase matches a name slowly: it tries every complex glob with a
// regular expression, on every call. Yet which types a name has depends
// only on its longest "*.ext" suffix, unless the name is one the database
// knows whole or one of the few other globs fits it; so the answer is kept
// per suffix, and per whole name for those others (Makefile, README.md).
class NameMatchCache {
public:
    QStringList matches(const QMimeDatabase& database, std::string_view name)
    {
        const std::optional<std::string> key = keyOf(database, name);
        if (!key) {
            return typeNames(database, name);
        }
        {
            const std::lock_guard lock(m_mutex);
            const auto it = m_matches.find(*key);
            if (it != m_matches.end()) {
                return it->second;
            }
        }
        QStringList result = typeNames(database, name);
        const std::lock_guard lock(m_mutex);
        if (m_matches.size() >= kCapacity) {
            m_matches.clear();  // unbounded hash-like names must not grow it forever
        }
        m_matches.emplace(*key, result);
        return result;
    }

private:
    static constexpr std::size_t kCapacity = 4096;

    // What the answer for `name` depends on, or none when it must be asked
    // for the name itself.
    static std::optional<std::string> keyOf(const QMimeDatabase& database, std::string_view name)
    {
        // Case folding beyond ASCII is the database's own business.
        if (std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; })) {
            return std::nullopt;
        }
        static const GlobPatterns patterns(database);
        std::string lower(name);
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        if (patterns.names.contains(lower)) {
            return "=" + std::string(name);
        }
        for (const std::string& glob : patterns.others) {
            if (::fnmatch(glob.c_str(), lower.c_str(), 0) == 0) {
                return "=" + std::string(name);
            }
        }
        // The suffix keeps its case: a few globs ("*.C") care about it.
        for (std::size_t dot = lower.find('.'); dot != std::string::npos; dot = lower.find('.', dot + 1)) {
            if (patterns.suffixes.contains(lower.substr(dot + 1))) {
                return "*" + std::string(name.substr(dot));
            }
        }
        return std::string("*");  // no suffix the database knows
    }

    static QStringList typeNames(const QMimeDatabase& database, std::string_view name)
    {
        QStringList names;
        const auto types = database.mimeTypesForFileName(QString::fromUtf8(name.data(), qsizetype(name.size())));
        for (const QMimeType& type : types) {
            names.append(type.name());
        }
        return names;
    }

    std::mutex m_mutex;
    std::unordered_map<std::string, QStringList> m_matches;
};

NameMatchCache& nameMatchCache()
{
    static NameMatchCache cache;
    return cache;
}

const char* specialMimeType(const FileInfo& info)
{
    switch (info.kind) {
    case FileKind::Directory:
        return "inode/directory";
    case FileKind::Symlink:
        return "inode/symlink";
    case FileKind::Other:
        switch (info.mode & S_IFMT) {
        case S_IFCHR:
            return "inode/chardevice";
        case S_IFBLK:
            return "inode/blockdevice";
        case S_IFIFO:
            return "inode/fifo";
        case S_IFSOCK:
            return "inode/socket";
        default:
            return "application/octet-stream";
        }
    case FileKind::Regular:
        break;
    }
    return nullptr;
}

// Opens a regular file (or a folder, for its attributes) for reading
// without following links, without blocking (should it have become a pipe)
// and, where allowed, without touching its access time.
int openForSniffing(int folderFd, const char* name)
{
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    int fd = ::openat(folderFd, name, kFlags | O_NOATIME);
    if (fd < 0 && errno == EPERM) {
        fd = ::openat(folderFd, name, kFlags);  // not the owner: O_NOATIME is refused
    }
    // Replaced by a device since it was listed? Reading one may do things.
    struct stat answers {};
    if (fd >= 0 && (::fstat(fd, &answers) != 0 || !(S_ISREG(answers.st_mode) || S_ISDIR(answers.st_mode)))) {
        ::close(fd);
        errno = ENOENT;
        return -1;
    }
    return fd;
}

QByteArray readHead(int fd, std::size_t limit)
{
    QByteArray data(qsizetype(limit), Qt::Uninitialized);
    std::size_t filled = 0;
    while (filled < limit) {
        const ssize_t count = ::pread(fd, data.data() + filled, limit - filled, static_cast<off_t>(filled));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    data.truncate(qsizetype(filled));
    return data;
}

// The attributes by path, which costs no open; for a path too long for the
// kernel, through the file opened relative to its folder (links and special
// files cannot be opened that way and keep theirs unread).
ExtendedAttributes attributesOf(int folderFd, const char* openName, const std::string& path, const FileInfo& info)
{
    if (path.size() < PATH_MAX || folderFd == AT_FDCWD
        || (info.kind != FileKind::Regular && info.kind != FileKind::Directory)) {
        return readExtendedAttributes(path);
    }
    const int fd = openForSniffing(folderFd, openName);
    if (fd < 0) {
        return {};
    }
    ExtendedAttributes attributes = readExtendedAttributesOfFile(fd);
    ::close(fd);
    return attributes;
}

// The type of a file whose name matches no type or several, from its first
// bytes. Common formats and plain text are told here; of several types the
// name allows, those the content fits are kept, and the first of them (the
// name's best) wins. Only XML that still fits several types is left to
// shared-mime-info's content rules, which are slow and serialise every thread
// on one lock. Binary content nothing recognises is plain data.
std::string typeFromContent(const QMimeDatabase& database, const QString& name, const QStringList& byName,
                            const QByteArray& head)
{
    const std::string_view bytes(head.constData(), static_cast<std::size_t>(head.size()));
    std::optional<std::string_view> sniffed = sniffMimeType(bytes);
    if (!sniffed && looksLikeText(bytes)) {
        sniffed = "text/plain";
    }
    if (!sniffed) {
        return byName.isEmpty() ? std::string("application/octet-stream") : byName.front().toStdString();
    }
    if (byName.isEmpty()) {
        return std::string(*sniffed);
    }
    const QString content = QString::fromLatin1(sniffed->data(), qsizetype(sniffed->size()));
    QStringList fitting;
    for (const QString& candidate : byName) {
        if (candidate == content || database.mimeTypeForName(candidate).inherits(content)) {
            fitting.append(candidate);
        }
    }
    if (fitting.isEmpty()) {
        return std::string(*sniffed);  // the content says more than the name
    }
    const bool xml = *sniffed == "application/xml" || *sniffed == "image/svg+xml"
                     || (*sniffed == "text/plain" && head.trimmed().startsWith('<'));
    if (fitting.size() > 1 && xml) {
        return database.mimeTypeForFileNameAndData(name, head).name().toStdString();
    }
    return fitting.front().toStdString();
}

// `openName` is what openat() gets with `folderFd`; `path` is the full path
// (for the attributes when the file is not opened).
FileDetails detailsOf(int folderFd, const char* openName, const std::string& path, const FileInfo& info)
{
    FileDetails details;
    if (const char* special = specialMimeType(info)) {
        details.mimeType = special;
        details.attributes = attributesOf(folderFd, openName, path, info);
        return details;
    }

    const QMimeDatabase database;
    const QStringList byName = nameMatchCache().matches(database, info.name);
    if (byName.size() == 1) {
        details.mimeType = byName.front().toStdString();
        details.attributes = attributesOf(folderFd, openName, path, info);
        return details;
    }

    const QString name = QString::fromUtf8(info.name.data(), qsizetype(info.name.size()));
    if (info.size == 0) {
        // Nothing to sniff; the database knows what an empty file is.
        details.mimeType = (byName.isEmpty() ? database.mimeTypeForData(QByteArray())
                                             : database.mimeTypeForFileNameAndData(name, QByteArray()))
                               .name()
                               .toStdString();
        details.attributes = attributesOf(folderFd, openName, path, info);
        return details;
    }

    const int fd = openForSniffing(folderFd, openName);
    if (fd < 0) {
        // Unreadable or gone: the name's best guess, else plain data.
        details.mimeType = byName.isEmpty() ? "application/octet-stream" : byName.front().toStdString();
        details.attributes = attributesOf(folderFd, openName, path, info);
        return details;
    }
    const QByteArray head = readHead(fd, kSniffBytes);
    details.mimeType = typeFromContent(database, name, byName, head);
    details.attributes = readExtendedAttributesOfFile(fd);
    ::close(fd);
    return details;
}

std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

}  // namespace

unsigned statxMask()
{
    return STATX_BASIC_STATS | STATX_BTIME;
}

void fillFileInfo(const struct statx& answers, FileInfo& info)
{
    switch (answers.stx_mode & S_IFMT) {
    case S_IFREG:
        info.kind = FileKind::Regular;
        break;
    case S_IFDIR:
        info.kind = FileKind::Directory;
        break;
    case S_IFLNK:
        info.kind = FileKind::Symlink;
        break;
    default:
        info.kind = FileKind::Other;
        break;
    }
    info.device = makedev(answers.stx_dev_major, answers.stx_dev_minor);
    info.inode = answers.stx_ino;
    info.mode = answers.stx_mode;
    info.uid = answers.stx_uid;
    info.gid = answers.stx_gid;
    info.size = static_cast<std::int64_t>(answers.stx_size);
    info.modified = toNanoseconds(answers.stx_mtime);
    info.changed = toNanoseconds(answers.stx_ctime);
    info.accessed = toNanoseconds(answers.stx_atime);
    if (answers.stx_mask & STATX_BTIME) {
        info.born = toNanoseconds(answers.stx_btime);
    } else {
        info.born.reset();
    }
}

HiddenNames HiddenNames::parse(std::string_view text)
{
    HiddenNames hidden;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string_view line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!line.empty()) {
            hidden.m_names.emplace_back(line);
        }
        start = end + 1;
    }
    std::sort(hidden.m_names.begin(), hidden.m_names.end());
    return hidden;
}

HiddenNames HiddenNames::read(int folderFd)
{
    const int fd = ::openat(folderFd, ".hidden", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOATIME);
    const int file = fd >= 0 || errno != EPERM
                         ? fd
                         : ::openat(folderFd, ".hidden", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    struct stat answers {};
    HiddenNames hidden;
    if (::fstat(file, &answers) == 0 && S_ISREG(answers.st_mode)) {
        const QByteArray text = readHead(file, kHiddenFileLimit);
        hidden = parse(std::string_view(text.constData(), std::size_t(text.size())));
    }
    ::close(file);
    return hidden;
}

bool HiddenNames::contains(std::string_view name) const
{
    return std::binary_search(m_names.begin(), m_names.end(), name);
}

Expected<FileInfo> statAt(int folderFd, const char* name)
{
    struct statx answers {};
    if (::statx(folderFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, statxMask(), &answers) != 0) {
        return statFailure(name, errno);
    }
    FileInfo info;
    info.name = name;
    fillFileInfo(answers, info);
    return info;
}

Expected<FileInfo> statPath(const std::string& givenPath)
{
    if (givenPath.empty()) {
        return Failure{Failure::Kind::InvalidArgument, "An empty path names no file."};
    }
    // A trailing slash would make statx follow a link at the end.
    const std::string path = withoutTrailingSlashes(givenPath);
    auto info = statAt(AT_FDCWD, path.c_str());
    if (!info) {
        return info.error();
    }
    const std::size_t slash = path.rfind('/');
    if (path == "/") {
        info->name = "/";
        return info;
    }
    info->name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (isDotName(info->name)) {
        info->invisible = true;
    } else {
        const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
        const int folder = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder >= 0) {
            info->invisible = HiddenNames::read(folder).contains(info->name);
            ::close(folder);
        }
    }
    return info;
}

ExtendedAttributes readExtendedAttributes(const std::string& path)
{
    const char* file = path.c_str();
    return readAttributes([&](char* buffer, std::size_t size) { return ::llistxattr(file, buffer, size); },
                          [&](const char* name, char* buffer, std::size_t size) {
                              return ::lgetxattr(file, name, buffer, size);
                          });
}

ExtendedAttributes readExtendedAttributesOfFile(int fd)
{
    return readAttributes([&](char* buffer, std::size_t size) { return ::flistxattr(fd, buffer, size); },
                          [&](const char* name, char* buffer, std::size_t size) {
                              return ::fgetxattr(fd, name, buffer, size);
                          });
}

FileDetails readFileDetails(int folderFd, std::string_view folderPath, const FileInfo& info)
{
    std::string path;
    path.reserve(folderPath.size() + 1 + info.name.size());
    path.append(folderPath);
    if (path.empty() || path.back() != '/') {
        path.push_back('/');
    }
    path.append(info.name);
    return detailsOf(folderFd, info.name.c_str(), path, info);
}

FileDetails readFileDetails(const std::string& path, const FileInfo& info)
{
    return detailsOf(AT_FDCWD, path.c_str(), path, info);
}

Expected<FileRecord> readFileRecord(const std::string& givenPath)
{
    auto info = statPath(givenPath);
    if (!info) {
        return info.error();
    }
    FileRecord record;
    record.path = withoutTrailingSlashes(givenPath);
    record.info = std::move(info.value());
    record.details = readFileDetails(record.path, record.info);
    return record;
}

}  // namespace trovara::index
