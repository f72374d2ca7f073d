// Thumbnails of result files, shared with every other desktop program
// through the freedesktop thumbnail cache (~/.cache/thumbnails).
//
// A thumbnail lives in thumbnails/normal (at most 128 pixels a side) or
// thumbnails/large (256), named by the MD5 of the file's URI, as a PNG that
// carries the file's URI ("Thumb::URI") and modification time in seconds
// ("Thumb::MTime"). A cached thumbnail counts only while both still match
// the file; otherwise it is made again. A file that cannot be read as an
// image gets an entry in thumbnails/fail/trovara-VERSION instead, so that it
// is not tried again until it changes. Files are written as the cache's
// readers expect: a temporary file in the same folder, renamed into place,
// readable by the user alone.
//
// ThumbnailCache is the cache itself (plain functions of the file system,
// any thread). ThumbnailLoader feeds the result views: it answers from
// memory at once and makes the rest on a background thread, most recent
// request first, so that only the thumbnails of what is on screen are read
// and the GUI thread never waits for a file.
#pragma once

#include <QCache>
#include <QHash>
#include <QImage>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <deque>
#include <memory>

namespace trovara::widgets {

class ThumbnailCache {
public:
    enum class Flavor { Normal, Large };

    enum class Status {
        Loaded,       // a valid thumbnail (image set)
        Failed,       // the file is known not to give one (until it changes)
        Missing,      // nothing valid cached
        Unsupported,  // not an image this program reads
    };

    struct Lookup {
        Status status = Status::Missing;
        QImage image;
    };

    // The largest side of a thumbnail of the flavour, in pixels.
    static int pixelSize(Flavor flavor);
    // The flavour that serves a picture of this many pixels a side.
    static Flavor flavorFor(int pixels);

    // $XDG_CACHE_HOME/thumbnails (~/.cache/thumbnails by default).
    static QString cacheRoot();
    // The file's URI as the cache names it ("file:///home/ann/a%20b.png").
    static QByteArray fileURI(const QString& path);
    static QString thumbnailPath(const QString& path, Flavor flavor);
    static QString failurePath(const QString& path);

    // What the cache holds for the file, checked against the file as it is
    // now. Reads the cache only.
    static Lookup lookup(const QString& path, Flavor flavor);
    // lookup(), and when nothing valid is cached, makes the thumbnail from
    // the file and stores it (or the failure).
    static Lookup loadOrCreate(const QString& path, Flavor flavor);
};

class ThumbnailLoader final : public QObject {
    Q_OBJECT

public:
    explicit ThumbnailLoader(QObject* parent = nullptr);
    ~ThumbnailLoader() override;

    // The process's loader, shared by every window.
    static ThumbnailLoader* shared();

    // The thumbnail of the file when it is in memory; otherwise a null image,
    // and the thumbnail is asked for (thumbnailReady() follows).
    QImage thumbnail(const QString& path, int pixels);
    // The file does not give a thumbnail (not an image, or unreadable).
    bool hasNone(const QString& path) const;
    // Drops the requests not started yet (the view moved on).
    void clearPending();
    // Returns once the background work is done (tests, shutdown).
    void waitForDone();
    // Requests waiting; the oldest go when there are more than this.
    void setMaximumPending(int count) { m_maximumPending = count; }
    int pendingCount() const;

signals:
    // A thumbnail arrived, or the file turned out to give none.
    void thumbnailReady(const QString& path);

private:
    struct Request {
        QString path;
        ThumbnailCache::Flavor flavor;
    };
    void startWorkers();
    void work();
    void finished(const QString& key, const QString& path, const ThumbnailCache::Lookup& lookup);
    static QString keyFor(const QString& path, ThumbnailCache::Flavor flavor);

    QThreadPool m_pool;
    mutable QMutex m_mutex;
    std::deque<Request> m_pending;  // newest at the back
    QSet<QString> m_queued;         // keys pending or being made
    int m_running = 0;
    int m_maximumPending = 256;
    // GUI thread only.
    QCache<QString, QImage> m_images;
    QSet<QString> m_none;
};

}  // namespace trovara::widgets
