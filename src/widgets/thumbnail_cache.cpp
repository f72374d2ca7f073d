#include "widgets/thumbnail_cache.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QMutexLocker>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

#ifndef TROVARA_VERSION
#define TROVARA_VERSION "0"
#endif

namespace trovara::widgets {

namespace {

const QString kURIKey = QStringLiteral("Thumb::URI");
const QString kMTimeKey = QStringLiteral("Thumb::MTime");
const QString kSizeKey = QStringLiteral("Thumb::Size");
const QString kSoftwareKey = QStringLiteral("Software");

QString folderName(ThumbnailCache::Flavor flavor)
{
    return flavor == ThumbnailCache::Flavor::Large ? QStringLiteral("large") : QStringLiteral("normal");
}

QString md5Name(const QString& path)
{
    return QString::fromLatin1(
               QCryptographicHash::hash(ThumbnailCache::fileURI(path), QCryptographicHash::Md5).toHex())
        + QStringLiteral(".png");
}

// The cache's folders are private to the user.
bool makePrivateFolder(const QString& folder)
{
    if (QFileInfo(folder).isDir()) {
        return true;
    }
    if (!QDir().mkpath(folder)) {
        return false;
    }
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return true;
}

// Whether a cached PNG describes the file as it is now. (The keys are read
// from the decoded image: before decoding, Qt's reader splits keys at ':'.)
bool describesFile(const QImage& image, const QByteArray& uri, const QFileInfo& file)
{
    if (image.isNull() || image.text(kURIKey).toUtf8() != uri) {
        return false;
    }
    bool ok = false;
    const qint64 mtime = image.text(kMTimeKey).toLongLong(&ok);
    if (!ok || mtime != file.lastModified().toSecsSinceEpoch()) {
        return false;
    }
    const QString size = image.text(kSizeKey);
    return size.isEmpty() || size.toLongLong() == file.size();
}

// Writes the image with the file's keys, atomically, readable by the user alone.
bool store(QImage image, const QString& target, const QByteArray& uri, const QFileInfo& file)
{
    if (!makePrivateFolder(QFileInfo(target).path())) {
        return false;
    }
    image.setText(kURIKey, QString::fromUtf8(uri));
    image.setText(kMTimeKey, QString::number(file.lastModified().toSecsSinceEpoch()));
    image.setText(kSizeKey, QString::number(file.size()));
    image.setText(kSoftwareKey, QStringLiteral("Trovara " TROVARA_VERSION));
    QSaveFile out(target);
    if (!out.open(QIODevice::WriteOnly)) {
        return false;
    }
    out.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    QImageWriter writer(&out, "png");
    if (!writer.write(image)) {
        out.cancelWriting();
        return false;
    }
    return out.commit();
}

bool isImageFile(QImageReader& reader, const QFileInfo& file)
{
    if (!reader.format().isEmpty()) {
        return true;
    }
    // A damaged file whose name says it is an image still counts (it fails).
    return QImageReader::supportedImageFormats().contains(file.suffix().toLower().toLatin1());
}

}  // namespace

int ThumbnailCache::pixelSize(Flavor flavor)
{
    return flavor == Flavor::Large ? 256 : 128;
}

ThumbnailCache::Flavor ThumbnailCache::flavorFor(int pixels)
{
    return pixels > 128 ? Flavor::Large : Flavor::Normal;
}

QString ThumbnailCache::cacheRoot()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/thumbnails");
}

QByteArray ThumbnailCache::fileURI(const QString& path)
{
    return QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded(QUrl::FullyEncoded);
}

QString ThumbnailCache::thumbnailPath(const QString& path, Flavor flavor)
{
    return cacheRoot() + QLatin1Char('/') + folderName(flavor) + QLatin1Char('/') + md5Name(path);
}

QString ThumbnailCache::failurePath(const QString& path)
{
    return cacheRoot() + QStringLiteral("/fail/trovara-" TROVARA_VERSION "/") + md5Name(path);
}

ThumbnailCache::Lookup ThumbnailCache::lookup(const QString& path, Flavor flavor)
{
    const QFileInfo file(path);
    if (!file.isFile()) {
        return {Status::Unsupported, {}};
    }
    const QByteArray uri = fileURI(path);
    QImage image = QImageReader(thumbnailPath(path, flavor), "png").read();
    if (describesFile(image, uri, file)) {
        return {Status::Loaded, image};
    }
    if (describesFile(QImageReader(failurePath(path), "png").read(), uri, file)) {
        return {Status::Failed, {}};
    }
    return {Status::Missing, {}};
}

ThumbnailCache::Lookup ThumbnailCache::loadOrCreate(const QString& path, Flavor flavor)
{
    Lookup cached = lookup(path, flavor);
    if (cached.status != Status::Missing) {
        return cached;
    }
    const QFileInfo file(path);
    // The cache's own files are never thumbnailed.
    if (file.absoluteFilePath().startsWith(cacheRoot() + QLatin1Char('/'))) {
        return {Status::Unsupported, {}};
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    if (!isImageFile(reader, file)) {
        return {Status::Unsupported, {}};
    }
    const int side = pixelSize(flavor);
    const QSize full = reader.size();
    if (full.isValid() && (full.width() > side || full.height() > side)) {
        reader.setScaledSize(full.scaled(side, side, Qt::KeepAspectRatio));
    }
    QImage image = reader.read();
    const QByteArray uri = fileURI(path);
    if (image.isNull()) {
        QImage marker(1, 1, QImage::Format_ARGB32);
        marker.fill(Qt::transparent);
        store(marker, failurePath(path), uri, file);
        return {Status::Failed, {}};
    }
    if (image.width() > side || image.height() > side) {
        image = image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    }
    store(image, thumbnailPath(path, flavor), uri, file);
    return {Status::Loaded, image};
}

// --- ThumbnailLoader ------------------------------------------------------------------

ThumbnailLoader::ThumbnailLoader(QObject* parent)
    : QObject(parent)
{
    // One reader: thumbnails are made while a person scrolls, and the
    // machine has other work to do.
    m_pool.setMaxThreadCount(1);
    // About 24 MB of 128-pixel thumbnails (cost: kilobytes).
    m_images.setMaxCost(48 * 1024);
}

ThumbnailLoader::~ThumbnailLoader()
{
    clearPending();
    m_pool.waitForDone();
}

ThumbnailLoader* ThumbnailLoader::shared()
{
    static ThumbnailLoader* loader = new ThumbnailLoader;
    return loader;
}

QString ThumbnailLoader::keyFor(const QString& path, ThumbnailCache::Flavor flavor)
{
    return (flavor == ThumbnailCache::Flavor::Large ? QStringLiteral("L") : QStringLiteral("N")) + path;
}

QImage ThumbnailLoader::thumbnail(const QString& path, int pixels)
{
    const ThumbnailCache::Flavor flavor = ThumbnailCache::flavorFor(pixels);
    const QString key = keyFor(path, flavor);
    if (const QImage* image = m_images.object(key)) {
        return *image;
    }
    if (m_none.contains(path)) {
        return {};
    }
    QMutexLocker lock(&m_mutex);
    if (m_queued.contains(key)) {
        return {};
    }
    m_queued.insert(key);
    m_pending.push_back({path, flavor});
    while (static_cast<int>(m_pending.size()) > m_maximumPending) {
        m_queued.remove(keyFor(m_pending.front().path, m_pending.front().flavor));
        m_pending.pop_front();
    }
    if (m_running < m_pool.maxThreadCount()) {
        ++m_running;
        m_pool.start([this] { work(); });
    }
    return {};
}

bool ThumbnailLoader::hasNone(const QString& path) const
{
    return m_none.contains(path);
}

void ThumbnailLoader::clearPending()
{
    QMutexLocker lock(&m_mutex);
    for (const Request& request : m_pending) {
        m_queued.remove(keyFor(request.path, request.flavor));
    }
    m_pending.clear();
}

void ThumbnailLoader::waitForDone()
{
    m_pool.waitForDone();
}

int ThumbnailLoader::pendingCount() const
{
    QMutexLocker lock(&m_mutex);
    return static_cast<int>(m_pending.size());
}

// Background thread: the newest request first, until none is left.
void ThumbnailLoader::work()
{
    for (;;) {
        Request request;
        {
            QMutexLocker lock(&m_mutex);
            if (m_pending.empty()) {
                --m_running;
                return;
            }
            request = std::move(m_pending.back());
            m_pending.pop_back();
        }
        const ThumbnailCache::Lookup lookup = ThumbnailCache::loadOrCreate(request.path, request.flavor);
        const QString key = keyFor(request.path, request.flavor);
        QMetaObject::invokeMethod(
            this, [this, key, path = request.path, lookup] { finished(key, path, lookup); }, Qt::QueuedConnection);
    }
}

void ThumbnailLoader::finished(const QString& key, const QString& path, const ThumbnailCache::Lookup& lookup)
{
    {
        QMutexLocker lock(&m_mutex);
        m_queued.remove(key);
    }
    if (lookup.status == ThumbnailCache::Status::Loaded) {
        const int cost = std::max<int>(1, static_cast<int>(lookup.image.sizeInBytes() / 1024));
        m_images.insert(key, new QImage(lookup.image), cost);
    } else {
        m_none.insert(path);
    }
    emit thumbnailReady(path);
}

}  // namespace trovara::widgets
