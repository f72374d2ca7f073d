#include "index/fs/type_tree.h"

#include <QFile>
#include <QMimeDatabase>
#include <QMimeType>
#include <QStandardPaths>
#include <QString>
#include <QXmlStreamReader>

#include <algorithm>
#include <array>
#include <deque>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <unordered_set>

namespace trovara::index {

namespace {

struct Edge {
    std::string_view child;
    std::array<std::string_view, 2> parents;  // the second may be empty
};

// The direct parents of every identifier, from the public type declarations.
// Order matters: a content type tree lists parents in this order.
const Edge kEdges[] = {
    {"public.data", {"public.item"}},
    {"public.directory", {"public.item"}},
    {"public.folder", {"public.directory"}},
    {"public.volume", {"public.folder"}},
    {"public.executable", {"public.item"}},
    {"com.apple.application", {"public.executable"}},
    {"public.unix-executable", {"public.data", "public.executable"}},
    {"public.symlink", {"public.item"}},
    {"com.apple.alias-file", {"public.data"}},
    {"public.composite-content", {"public.content"}},
    // Text
    {"public.text", {"public.data", "public.content"}},
    {"public.plain-text", {"public.text"}},
    {"public.utf8-plain-text", {"public.plain-text"}},
    {"public.rtf", {"public.text"}},
    {"public.html", {"public.text"}},
    {"public.xml", {"public.text"}},
    {"public.json", {"public.text"}},
    {"public.yaml", {"public.text"}},
    {"public.delimited-values-text", {"public.text"}},
    {"public.comma-separated-values-text", {"public.delimited-values-text"}},
    {"public.source-code", {"public.plain-text"}},
    {"public.c-source", {"public.source-code"}},
    {"public.c-header", {"public.source-code"}},
    {"public.c-plus-plus-source", {"public.source-code"}},
    {"public.c-plus-plus-header", {"public.source-code"}},
    {"public.swift-source", {"public.source-code"}},
    {"public.assembly-source", {"public.source-code"}},
    {"public.script", {"public.source-code"}},
    {"public.shell-script", {"public.script"}},
    {"public.python-script", {"public.shell-script"}},
    {"public.perl-script", {"public.shell-script"}},
    {"public.ruby-script", {"public.shell-script"}},
    {"public.php-script", {"public.shell-script"}},
    {"com.netscape.javascript-source", {"public.source-code", "public.executable"}},
    // Documents
    {"com.adobe.pdf", {"public.data", "public.composite-content"}},
    {"com.apple.webarchive", {"public.data", "public.composite-content"}},
    {"org.idpf.epub-container", {"public.data", "public.composite-content"}},
    {"public.presentation", {"public.composite-content"}},
    {"public.spreadsheet", {"public.content"}},
    {"public.vcard", {"public.text", "public.contact"}},
    {"public.email-message", {"public.message"}},
    {"com.apple.mail.email", {"public.data", "public.email-message"}},
    {"com.apple.mail.emlx", {"public.data", "public.email-message"}},
    // Images
    {"public.image", {"public.data", "public.content"}},
    {"public.jpeg", {"public.image"}},
    {"public.png", {"public.image"}},
    {"public.tiff", {"public.image"}},
    {"com.compuserve.gif", {"public.image"}},
    {"com.microsoft.bmp", {"public.image"}},
    {"com.microsoft.ico", {"public.image"}},
    {"public.svg-image", {"public.image"}},
    {"org.webmproject.webp", {"public.image"}},
    {"public.camera-raw-image", {"public.image"}},
    {"public.heic", {"public.image"}},
    // Audio and video
    {"public.audiovisual-content", {"public.data", "public.content"}},
    {"public.movie", {"public.audiovisual-content"}},
    {"public.video", {"public.movie"}},
    {"public.mpeg", {"public.movie"}},
    {"public.mpeg-4", {"public.movie"}},
    {"public.avi", {"public.movie"}},
    {"com.apple.quicktime-movie", {"public.movie"}},
    {"org.matroska.mkv", {"public.movie"}},
    {"public.audio", {"public.audiovisual-content"}},
    {"public.mp3", {"public.audio"}},
    {"com.microsoft.waveform-audio", {"public.audio"}},
    {"public.midi-audio", {"public.audio"}},
    {"org.xiph.flac", {"public.audio"}},
    {"org.xiph.ogg-audio", {"public.audio"}},
    {"public.mpeg-4-audio", {"public.mpeg-4", "public.audio"}},
    // Archives
    {"public.archive", {"public.data"}},
    {"public.zip-archive", {"public.archive"}},
    {"org.gnu.gnu-zip-archive", {"public.archive"}},
    {"public.bzip2-archive", {"public.archive"}},
    {"public.tar-archive", {"public.archive"}},
    {"org.7-zip.7-zip-archive", {"public.archive"}},
    {"public.disk-image", {"public.data"}},
    {"public.iso-image", {"public.disk-image"}},
    {"com.apple.disk-image-udif", {"public.disk-image"}},
};

struct MimeRow {
    std::string_view mimeType;
    std::string_view identifier;
};

const MimeRow kMimeRows[] = {
    {"image/jpeg", "public.jpeg"},
    {"image/png", "public.png"},
    {"image/gif", "com.compuserve.gif"},
    {"image/tiff", "public.tiff"},
    {"image/bmp", "com.microsoft.bmp"},
    {"image/webp", "org.webmproject.webp"},
    {"image/svg+xml", "public.svg-image"},
    {"image/heic", "public.heic"},
    {"audio/mpeg", "public.mp3"},
    {"audio/x-wav", "com.microsoft.waveform-audio"},
    {"audio/flac", "org.xiph.flac"},
    {"audio/mp4", "public.mpeg-4-audio"},
    {"video/mp4", "public.mpeg-4"},
    {"video/quicktime", "com.apple.quicktime-movie"},
    {"video/x-msvideo", "public.avi"},
    {"video/x-matroska", "org.matroska.mkv"},
    {"text/plain", "public.plain-text"},
    {"text/html", "public.html"},
    {"text/csv", "public.comma-separated-values-text"},
    {"application/json", "public.json"},
    {"text/x-csrc", "public.c-source"},
    {"text/x-chdr", "public.c-header"},
    {"text/x-c++src", "public.c-plus-plus-source"},
    {"text/x-python", "public.python-script"},
    {"application/x-shellscript", "public.shell-script"},
    {"application/javascript", "com.netscape.javascript-source"},
    {"application/pdf", "com.adobe.pdf"},
    {"application/epub+zip", "org.idpf.epub-container"},
    {"message/rfc822", "com.apple.mail.email"},
    {"text/vcard", "public.vcard"},
    {"application/vnd.oasis.opendocument.presentation", "public.presentation"},
    {"application/vnd.oasis.opendocument.presentation-template", "public.presentation"},
    {"application/vnd.openxmlformats-officedocument.presentationml.presentation", "public.presentation"},
    {"application/vnd.openxmlformats-officedocument.presentationml.slideshow", "public.presentation"},
    {"application/vnd.openxmlformats-officedocument.presentationml.template", "public.presentation"},
    {"application/vnd.oasis.opendocument.spreadsheet", "public.spreadsheet"},
    {"application/vnd.oasis.opendocument.spreadsheet-template", "public.spreadsheet"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "public.spreadsheet"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.template", "public.spreadsheet"},
    {"application/vnd.oasis.opendocument.text", "public.content"},
    {"application/vnd.oasis.opendocument.text-template", "public.content"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "public.content"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.template", "public.content"},
    {"application/zip", "public.zip-archive"},
    {"application/gzip", "org.gnu.gnu-zip-archive"},
    {"application/x-iso9660-image", "public.iso-image"},
    {"application/x-apple-diskimage", "com.apple.disk-image-udif"},
    {"inode/directory", "public.folder"},
    {"inode/symlink", "com.apple.alias-file"},  // a symbolic link plays the alias's role
    {"application/x-executable", "public.unix-executable"},
    {"application/x-desktop", "com.apple.application"},
    // Types of the graph that the rows above leave unreachable, so that a
    // search for "kind is XML" or "kind is Perl script" finds those files
    // instead of their generic parents.
    {"application/rtf", "public.rtf"},
    {"application/xml", "public.xml"},
    {"application/x-yaml", "public.yaml"},
    {"text/tab-separated-values", "public.delimited-values-text"},
    {"text/x-c++hdr", "public.c-plus-plus-header"},
    {"application/x-perl", "public.perl-script"},
    {"application/x-ruby", "public.ruby-script"},
    {"application/x-php", "public.php-script"},
    {"image/vnd.microsoft.icon", "com.microsoft.ico"},
    {"image/x-dcraw", "public.camera-raw-image"},
    {"audio/midi", "public.midi-audio"},
    {"audio/x-vorbis+ogg", "org.xiph.ogg-audio"},
    {"audio/ogg", "org.xiph.ogg-audio"},
    {"video/mpeg", "public.mpeg"},
    {"application/x-bzip", "public.bzip2-archive"},
    {"application/x-tar", "public.tar-archive"},
    {"application/x-7z-compressed", "org.7-zip.7-zip-archive"},
    {"application/x-raw-disk-image", "public.disk-image"},
};

struct Graph {
    std::unordered_map<std::string_view, std::vector<std::string_view>> parents;
    std::vector<std::string_view> identifiers;
};

const Graph& graph()
{
    static const Graph instance = [] {
        Graph g;
        std::unordered_set<std::string_view> all;
        for (const Edge& edge : kEdges) {
            auto& parents = g.parents[edge.child];
            all.insert(edge.child);
            for (std::string_view parent : edge.parents) {
                if (!parent.empty()) {
                    parents.push_back(parent);
                    all.insert(parent);
                }
            }
        }
        g.identifiers.assign(all.begin(), all.end());
        std::sort(g.identifiers.begin(), g.identifiers.end());
        return g;
    }();
    return instance;
}

QString canonicalMimeName(const QMimeDatabase& database, const QString& name)
{
    const QMimeType type = database.mimeTypeForName(name);
    return type.isValid() ? type.name() : name;
}

// MIME name → identifier, holding each row's name as written and as
// shared-mime-info's canonical name (the names QMimeDatabase hands out).
const std::unordered_map<std::string, std::string_view>& mimeTable()
{
    static const std::unordered_map<std::string, std::string_view> instance = [] {
        std::unordered_map<std::string, std::string_view> table;
        for (const MimeRow& row : kMimeRows) {
            table.emplace(std::string(row.mimeType), row.identifier);
        }
        const QMimeDatabase database;
        for (const MimeRow& row : kMimeRows) {
            const QString canonical =
                canonicalMimeName(database, QString::fromUtf8(row.mimeType.data(), qsizetype(row.mimeType.size())));
            table.emplace(canonical.toStdString(), row.identifier);
        }
        return table;
    }();
    return instance;
}

const std::string_view* lookUp(const QString& name)
{
    const auto& table = mimeTable();
    const auto it = table.find(name.toStdString());
    return it == table.end() ? nullptr : &it->second;
}

std::string identifierFor(std::string_view mimeType)
{
    const QMimeDatabase database;
    const QString name = QString::fromUtf8(mimeType.data(), qsizetype(mimeType.size()));
    if (const auto* identifier = lookUp(name)) {
        return std::string(*identifier);
    }
    const QMimeType type = database.mimeTypeForName(name);
    if (type.isValid()) {
        if (const auto* identifier = lookUp(type.name())) {
            return std::string(*identifier);
        }
        // The nearest ancestor in shared-mime-info that has a row.
        std::deque<QString> queue;
        QStringList seen{type.name()};
        for (const QString& parent : type.parentMimeTypes()) {
            queue.push_back(parent);
        }
        while (!queue.empty()) {
            const QString parentName = queue.front();
            queue.pop_front();
            const QMimeType parent = database.mimeTypeForName(parentName);
            const QString canonical = parent.isValid() ? parent.name() : parentName;
            if (seen.contains(canonical)) {
                continue;
            }
            seen.append(canonical);
            if (const auto* identifier = lookUp(parentName)) {
                return std::string(*identifier);
            }
            if (const auto* identifier = lookUp(canonical)) {
                return std::string(*identifier);
            }
            if (parent.isValid()) {
                for (const QString& grandParent : parent.parentMimeTypes()) {
                    queue.push_back(grandParent);
                }
            }
        }
    }
    const std::string_view media = mimeType.substr(0, mimeType.find('/'));
    if (media == "text") {
        return "public.text";
    }
    if (media == "image") {
        return "public.image";
    }
    if (media == "audio") {
        return "public.audio";
    }
    if (media == "video") {
        return "public.movie";
    }
    return "public.data";
}

// The untranslated <comment> of the type's shared-mime-info file; empty when
// there is none.
QString untranslatedComment(const QString& canonicalName)
{
    const QString relative = QStringLiteral("mime/") + canonicalName + QStringLiteral(".xml");
    for (const QString& folder : QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation)) {
        QFile file(folder + QLatin1Char('/') + relative);
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        QXmlStreamReader reader(&file);
        while (reader.readNextStartElement()) {
            if (reader.name() == QLatin1String("mime-type")) {
                continue;  // descend into the root element
            }
            if (reader.name() == QLatin1String("comment")
                && !reader.attributes().hasAttribute(QStringLiteral("http://www.w3.org/XML/1998/namespace"),
                                                     QStringLiteral("lang"))
                && !reader.attributes().hasAttribute(QStringLiteral("xml:lang"))) {
                const QString text = reader.readElementText().trimmed();
                if (!text.isEmpty()) {
                    return text;
                }
                continue;
            }
            reader.skipCurrentElement();
        }
        // The first folder that has the file decides, as for QMimeDatabase.
        return {};
    }
    return {};
}

}  // namespace

std::string typeIdentifierForMimeType(std::string_view mimeType)
{
    return identifierFor(mimeType);
}

std::span<const std::string_view> typeParents(std::string_view identifier)
{
    const auto& parents = graph().parents;
    const auto it = parents.find(identifier);
    if (it == parents.end()) {
        return {};
    }
    return it->second;
}

std::vector<std::string> contentTypeTree(std::string_view identifier)
{
    std::vector<std::string_view> order{identifier};
    for (std::size_t next = 0; next < order.size(); ++next) {
        for (std::string_view parent : typeParents(order[next])) {
            if (std::find(order.begin(), order.end(), parent) == order.end()) {
                order.push_back(parent);
            }
        }
    }
    return {order.begin(), order.end()};
}

bool typeConformsTo(std::string_view identifier, std::string_view ancestor)
{
    const auto tree = contentTypeTree(identifier);
    return std::find(tree.begin(), tree.end(), ancestor) != tree.end();
}

std::span<const std::string_view> knownTypeIdentifiers()
{
    return graph().identifiers;
}

std::string mimeTypeDescription(std::string_view mimeType)
{
    const QMimeDatabase database;
    const QString name = QString::fromUtf8(mimeType.data(), qsizetype(mimeType.size()));
    const QMimeType type = database.mimeTypeForName(name);
    if (!type.isValid()) {
        return std::string(mimeType);
    }
    QString comment = untranslatedComment(type.name());
    if (comment.isEmpty()) {
        // No shared-mime-info file (Qt's built-in database): the comment in
        // the process's language is the best there is.
        comment = type.comment();
    }
    return comment.isEmpty() ? std::string(mimeType) : comment.toStdString();
}

const TypeDescription& describeMimeType(const std::string& mimeType)
{
    static std::shared_mutex mutex;
    static std::unordered_map<std::string, TypeDescription> cache;
    {
        const std::shared_lock lock(mutex);
        const auto it = cache.find(mimeType);
        if (it != cache.end()) {
            return it->second;
        }
    }
    // Computed outside the lock: two threads may both compute a new type,
    // and the first to store it wins.
    TypeDescription description;
    description.mimeType = mimeType;
    description.identifier = typeIdentifierForMimeType(mimeType);
    description.kind = mimeTypeDescription(mimeType);
    description.tree = contentTypeTree(description.identifier);
    const std::unique_lock lock(mutex);
    return cache.emplace(mimeType, std::move(description)).first->second;
}

}  // namespace trovara::index
