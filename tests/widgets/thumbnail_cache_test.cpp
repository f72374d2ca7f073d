// Thumbnails in the freedesktop cache: where they live and what they carry,
// reuse of a valid one (also one another program wrote), a new one once the
// file changes, failures remembered, files that are no pictures, and the
// background loader.
#include "widget_test_support.h"
#include "widgets/thumbnail_cache.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QSignalSpy>

#include <sys/stat.h>
#include <utime.h>

namespace trovara::test {
namespace {

using widgets::ThumbnailCache;
using Flavor = ThumbnailCache::Flavor;
using Status = ThumbnailCache::Status;

class ThumbnailTest : public ::testing::Test {
protected:
    ThumbnailTest()
        : folder(makeTemporaryFolder(QStringLiteral("pictures")))
    {
    }
    ~ThumbnailTest() override
    {
        QDir(folder).removeRecursively();
        QDir(ThumbnailCache::cacheRoot()).removeRecursively();
    }

    QString picture(const QString& name, QColor color, QSize size = QSize(400, 300)) const
    {
        const QString path = folder + QLatin1Char('/') + name;
        writePicture(path.toStdString(), color, size);
        return path;
    }

    static void setModified(const QString& path, std::time_t when)
    {
        struct utimbuf times {when, when};
        ::utime(path.toLocal8Bit().constData(), &times);
    }

    const QString folder;
};

TEST_F(ThumbnailTest, NamesFollowTheCacheLayout)
{
    EXPECT_TRUE(ThumbnailCache::cacheRoot().endsWith("/.cache/thumbnails"));
    EXPECT_EQ(ThumbnailCache::fileURI(QStringLiteral("/home/ann/my photo.png")), "file:///home/ann/my%20photo.png");
    // The example of the freedesktop thumbnail page.
    EXPECT_EQ(QCryptographicHash::hash("file:///home/jens/photos/me.png", QCryptographicHash::Md5).toHex(),
              "c6ee772d9e49320e97ec29a7eb5b1697");
    EXPECT_EQ(ThumbnailCache::thumbnailPath(QStringLiteral("/home/jens/photos/me.png"), Flavor::Normal),
              ThumbnailCache::cacheRoot() + "/normal/c6ee772d9e49320e97ec29a7eb5b1697.png");
    EXPECT_EQ(ThumbnailCache::thumbnailPath(QStringLiteral("/home/jens/photos/me.png"), Flavor::Large),
              ThumbnailCache::cacheRoot() + "/large/c6ee772d9e49320e97ec29a7eb5b1697.png");
    EXPECT_TRUE(ThumbnailCache::failurePath(QStringLiteral("/home/jens/photos/me.png"))
                    .startsWith(ThumbnailCache::cacheRoot() + "/fail/trovara-"));
    EXPECT_EQ(ThumbnailCache::flavorFor(128), Flavor::Normal);
    EXPECT_EQ(ThumbnailCache::flavorFor(129), Flavor::Large);
}

TEST_F(ThumbnailTest, AMadeThumbnailIsWrittenWithTheFilesURIAndTimeAndReadBack)
{
    const QString path = picture(QStringLiteral("red one.png"), Qt::red);
    setModified(path, 1600000000);
    ThumbnailCache::Lookup made = ThumbnailCache::loadOrCreate(path, Flavor::Normal);
    ASSERT_EQ(made.status, Status::Loaded);
    EXPECT_EQ(made.image.size(), QSize(128, 96));  // within 128, in proportion

    const QString stored = ThumbnailCache::thumbnailPath(path, Flavor::Normal);
    ASSERT_TRUE(QFile::exists(stored));
    EXPECT_EQ(QFileInfo(stored).permissions() & (QFile::ReadOther | QFile::ReadGroup | QFile::WriteOther),
              QFile::Permissions());
    QImageReader reader(stored);
    EXPECT_EQ(reader.format(), "png");
    QImage painted = reader.read();
    EXPECT_EQ(painted.text(QStringLiteral("Thumb::URI")), ThumbnailCache::fileURI(path));
    EXPECT_EQ(painted.text(QStringLiteral("Thumb::MTime")), "1600000000");
    // Nothing but the thumbnail itself is left in the folder.
    EXPECT_EQ(QDir(QFileInfo(stored).path()).entryList(QDir::Files).size(), 1);

    // A valid thumbnail is read, not made again: paint it over and see the paint.
    painted.fill(Qt::yellow);
    painted.setText(QStringLiteral("Thumb::URI"), QString::fromUtf8(ThumbnailCache::fileURI(path)));
    painted.setText(QStringLiteral("Thumb::MTime"), QStringLiteral("1600000000"));
    ASSERT_TRUE(painted.save(stored, "png"));
    const ThumbnailCache::Lookup again = ThumbnailCache::loadOrCreate(path, Flavor::Normal);
    ASSERT_EQ(again.status, Status::Loaded);
    EXPECT_EQ(again.image.pixelColor(5, 5), QColor(Qt::yellow));

    // The file changes: the thumbnail no longer counts and is made anew.
    setModified(path, 1600000100);
    EXPECT_EQ(ThumbnailCache::lookup(path, Flavor::Normal).status, Status::Missing);
    const ThumbnailCache::Lookup fresh = ThumbnailCache::loadOrCreate(path, Flavor::Normal);
    ASSERT_EQ(fresh.status, Status::Loaded);
    EXPECT_EQ(fresh.image.pixelColor(5, 5), QColor(Qt::red));
    EXPECT_EQ(QImage(stored).text(QStringLiteral("Thumb::MTime")), "1600000100");
}

TEST_F(ThumbnailTest, AThumbnailOfAnotherFileUnderTheSameNameDoesNotCount)
{
    const QString path = picture(QStringLiteral("a.png"), Qt::red);
    QDir().mkpath(ThumbnailCache::cacheRoot() + "/normal");
    QImage foreign(16, 16, QImage::Format_RGB32);
    foreign.fill(Qt::black);
    foreign.setText(QStringLiteral("Thumb::URI"), QStringLiteral("file:///elsewhere/a.png"));
    foreign.setText(QStringLiteral("Thumb::MTime"), QString::number(QFileInfo(path).lastModified().toSecsSinceEpoch()));
    ASSERT_TRUE(foreign.save(ThumbnailCache::thumbnailPath(path, Flavor::Normal), "png"));
    EXPECT_EQ(ThumbnailCache::lookup(path, Flavor::Normal).status, Status::Missing);
    const ThumbnailCache::Lookup made = ThumbnailCache::loadOrCreate(path, Flavor::Normal);
    ASSERT_EQ(made.status, Status::Loaded);
    EXPECT_EQ(made.image.pixelColor(1, 1), QColor(Qt::red));
}

TEST_F(ThumbnailTest, AnUnreadablePictureIsRememberedAsAFailureAndNotTriedAgain)
{
    const QString path = folder + QStringLiteral("/broken.png");
    writeFile(path.toStdString(), "\x89PNG\r\n\x1a\n this is not the rest of a PNG");
    EXPECT_EQ(ThumbnailCache::loadOrCreate(path, Flavor::Large).status, Status::Failed);
    const QString failure = ThumbnailCache::failurePath(path);
    ASSERT_TRUE(QFile::exists(failure));
    EXPECT_EQ(QImage(failure).text(QStringLiteral("Thumb::URI")), ThumbnailCache::fileURI(path));
    EXPECT_FALSE(QFile::exists(ThumbnailCache::thumbnailPath(path, Flavor::Large)));
    EXPECT_EQ(ThumbnailCache::lookup(path, Flavor::Large).status, Status::Failed);

    // Mended (and so changed), it gets its thumbnail.
    writePicture(path.toStdString(), Qt::blue);
    setModified(path, QFileInfo(failure).lastModified().toSecsSinceEpoch() + 10);
    EXPECT_EQ(ThumbnailCache::loadOrCreate(path, Flavor::Large).status, Status::Loaded);
}

TEST_F(ThumbnailTest, FilesThatAreNoPicturesGetNoThumbnailAndNoFailure)
{
    const QString text = folder + QStringLiteral("/notes.txt");
    writeFile(text.toStdString(), "just words");
    EXPECT_EQ(ThumbnailCache::loadOrCreate(text, Flavor::Normal).status, Status::Unsupported);
    EXPECT_FALSE(QFile::exists(ThumbnailCache::failurePath(text)));
    EXPECT_EQ(ThumbnailCache::loadOrCreate(folder, Flavor::Normal).status, Status::Unsupported);
    EXPECT_EQ(ThumbnailCache::loadOrCreate(folder + QStringLiteral("/gone.png"), Flavor::Normal).status,
              Status::Unsupported);
    // The cache's own files are left alone.
    const QString picturePath = picture(QStringLiteral("p.png"), Qt::green);
    ASSERT_EQ(ThumbnailCache::loadOrCreate(picturePath, Flavor::Normal).status, Status::Loaded);
    EXPECT_EQ(
        ThumbnailCache::loadOrCreate(ThumbnailCache::thumbnailPath(picturePath, Flavor::Normal), Flavor::Normal).status,
        Status::Unsupported);
}

TEST_F(ThumbnailTest, TheLoaderAnswersFromMemoryAndMakesTheRestInTheBackground)
{
    widgets::ThumbnailLoader loader;
    const QString red = picture(QStringLiteral("red.png"), Qt::red);
    const QString text = folder + QStringLiteral("/words.txt");
    writeFile(text.toStdString(), "words");

    QSignalSpy ready(&loader, &widgets::ThumbnailLoader::thumbnailReady);
    EXPECT_TRUE(loader.thumbnail(red, 128).isNull());
    EXPECT_TRUE(loader.thumbnail(red, 128).isNull());  // asked once only
    EXPECT_TRUE(loader.thumbnail(text, 128).isNull());
    ASSERT_TRUE(waitFor([&] { return ready.size() == 2; }, "two answers"));
    EXPECT_FALSE(loader.thumbnail(red, 128).isNull());
    EXPECT_EQ(loader.thumbnail(red, 128).pixelColor(2, 2), QColor(Qt::red));
    EXPECT_TRUE(loader.hasNone(text));
    EXPECT_TRUE(loader.thumbnail(text, 128).isNull());
    // Written to the cache for other programs too.
    EXPECT_TRUE(QFile::exists(ThumbnailCache::thumbnailPath(red, Flavor::Normal)));

    // More requests than it keeps: the oldest are dropped, the newest made.
    loader.setMaximumPending(2);
    std::vector<QString> many;
    for (int i = 0; i < 6; ++i) {
        many.push_back(picture(QStringLiteral("many %1.png").arg(i), Qt::blue, QSize(20, 20)));
    }
    loader.waitForDone();
    for (const QString& path : many) {
        loader.thumbnail(path, 256);
    }
    EXPECT_LE(loader.pendingCount(), 2);
    loader.waitForDone();
    ASSERT_TRUE(waitFor([&] { return !loader.thumbnail(many.back(), 256).isNull(); }, "the newest thumbnail"));
}

}  // namespace
}  // namespace trovara::test
