// Result items: values read lazily from the index record, kept, and
// guarded; the fallbacks for name and date; what a changed file, a copy,
// the pasteboard, the previews and scripts see.
#include "common/log.h"
#include "query/script_command.h"
#include "query_test_support.h"

#include <QDir>
#include <QFile>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <utime.h>

namespace trovara::query {
namespace {

using test::CountedReads;
using test::FileRecord;
using test::makeResult;

TEST(ResultItem, ReadsEachAttributeOnceAndRemembersWhatIsMissing)
{
    CountedReads counted;
    const auto item = makeResult({"/home/ann/plan.txt", 42});
    EXPECT_TRUE(counted.reads.empty());  // nothing is read before it is asked for

    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(42.0));
    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(42.0));
    EXPECT_EQ(counted.reads["kMDItemFSSize"], 1);

    EXPECT_FALSE(item->valueForKey(QStringLiteral("kMDItemAuthors")).isValid());
    EXPECT_FALSE(item->valueForKey(QStringLiteral("kMDItemAuthors")).isValid());
    EXPECT_EQ(counted.reads["kMDItemAuthors"], 1);

    EXPECT_EQ(item->displayName(), QStringLiteral("plan.txt"));
    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemDisplayName")), QVariant(QStringLiteral("plan.txt")));
    EXPECT_EQ(counted.reads["kMDItemDisplayName"], 1);
    EXPECT_EQ(item->path(), QStringLiteral("/home/ann/plan.txt"));
    EXPECT_EQ(item->path(), QStringLiteral("/home/ann/plan.txt"));
    EXPECT_EQ(counted.reads["kMDItemPath"], 1);
}

TEST(ResultItem, ANameOrDateTheRecordLacksComesFromThePathAndTheFile)
{
    CountedReads counted;
    counted.missing = {"kMDItemDisplayName", "kMDItemContentModificationDate"};
    const QString path = QDir::homePath() + QStringLiteral("/dated file.txt");
    QFile(path).open(QIODevice::WriteOnly);
    struct utimbuf times {1235916300, 1235916300};
    ASSERT_EQ(::utime(QFile::encodeName(path).constData(), &times), 0);

    const auto item = makeResult({path.toStdString()});
    EXPECT_EQ(item->displayName(), QStringLiteral("dated file.txt"));
    EXPECT_EQ(item->modificationDate(), QDateTime(QDate(2009, 3, 1), QTime(14, 5), QTimeZone::utc()));
    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemContentModificationDate")), QVariant(item->modificationDate()));
    QFile::remove(path);

    // A date from the record wins over the file's.
    counted.missing.clear();
    FileRecord record{"/nowhere/x.txt"};
    record.modified = test::unixSeconds(1000000000);
    EXPECT_EQ(makeResult(record)->modificationDate().toSecsSinceEpoch(), 1000000000);
}

TEST(ResultItem, AFailedReadIsLoggedAndLeavesTheValueEmpty)
{
    QStringList lines;
    log::setSink([&](const QString& line) { lines << line; });
    CountedReads counted;
    counted.failing = {"kMDItemPath", "kMDItemKind"};
    const auto item = makeResult({"/home/ann/plan.txt"});

    EXPECT_TRUE(item->path().isNull());
    EXPECT_TRUE(item->path().isNull());
    EXPECT_EQ(counted.reads["kMDItemPath"], 1);  // a property that failed is not tried again
    EXPECT_TRUE(item->pathURL().isEmpty());
    EXPECT_TRUE(item->parent().isNull());

    EXPECT_FALSE(item->valueForKey(QStringLiteral("kMDItemKind")).isValid());
    EXPECT_FALSE(item->valueForKey(QStringLiteral("kMDItemKind")).isValid());
    EXPECT_EQ(counted.reads["kMDItemKind"], 2);  // an attribute that failed is not kept
    log::setSink([](const QString&) {});
    ASSERT_GE(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("kMDItemPath - the record is gone"))) << lines[0].toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("result_item.cpp:"))) << lines[0].toStdString();
}

TEST(ResultItem, DerivedPropertiesFollowThePath)
{
    const auto item = makeResult({"/home/ann/Notes/plan.txt"});
    EXPECT_EQ(item->parent(), QStringLiteral("/home/ann/Notes"));
    EXPECT_EQ(item->pathURL(), QUrl(QStringLiteral("file:///home/ann/Notes/plan.txt")));
    EXPECT_EQ(item->iconName(), QStringLiteral("text-plain"));
    EXPECT_EQ(makeResult({"/top.txt"})->parent(), QStringLiteral("/"));
    FileRecord folder{QDir::homePath().toStdString()};
    folder.folder = true;
    EXPECT_EQ(makeResult(folder)->iconName(), QStringLiteral("inode-directory"));
    EXPECT_EQ(item->description(), item->path());
    EXPECT_EQ(item->valueForKey(QStringLiteral("parent")), QVariant(item->parent()));
}

TEST(ResultItem, AChangedFileIsReadAfresh)
{
    CountedReads counted;
    const auto item = makeResult({"/home/ann/plan.txt", 1});
    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(1.0));
    EXPECT_EQ(item->displayName(), QStringLiteral("plan.txt"));
    item->setMetaDataItem(test::makeItem({"/home/ann/plan.txt", 2}));
    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(2.0));
    EXPECT_EQ(item->displayName(), QStringLiteral("plan.txt"));
    EXPECT_EQ(counted.reads["kMDItemFSSize"], 2);
    EXPECT_EQ(counted.reads["kMDItemDisplayName"], 2);
}

TEST(ResultItem, ACopyIsAnotherItemOnTheSameRecordWithNothingRead)
{
    CountedReads counted;
    test::TestDocument document(false);
    const auto item = makeResult({"/home/ann/plan.txt", 7}, &document);
    EXPECT_EQ(item->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(7.0));
    const std::shared_ptr<ResultItem> copy = item->copy();
    EXPECT_NE(copy.get(), item.get());
    EXPECT_EQ(copy->owningDocument(), &document);
    EXPECT_EQ(copy->metaDataItem().path(), item->metaDataItem().path());
    EXPECT_EQ(copy->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(7.0));
    EXPECT_EQ(counted.reads["kMDItemFSSize"], 2);
}

TEST(ResultItem, KeyPathsReachTheFirstValueOfAList)
{
    FileRecord record{"/home/ann/plan.txt"};
    record.tags = {"work", "home"};
    const auto item = makeResult(record);
    EXPECT_EQ(item->valueForKeyPath(QStringLiteral("kMDItemOMUserTags")), QVariant(QVariantList{"work", "home"}));
    EXPECT_EQ(item->valueForKeyPath(QStringLiteral("kMDItemOMUserTags.@firstObject")), QVariant(QStringLiteral("work")));
    EXPECT_EQ(item->valueForKeyPath(QStringLiteral("kMDItemDisplayName.@firstObject")),
              QVariant(QStringLiteral("plan.txt")));
    EXPECT_FALSE(item->valueForKeyPath(QStringLiteral("kMDItemAuthors.@firstObject")).isValid());
}

TEST(ResultItem, GoesToThePasteboardAsFileUrlThenPlainPath)
{
    EXPECT_EQ(ResultItem::writableTypesForPasteboard(), QStringList({"text/uri-list", "text/plain"}));
    const auto first = makeResult({"/home/ann/a b.txt"});
    const auto second = makeResult({"/home/ann/c.txt"});
    EXPECT_EQ(first->pasteboardPropertyListForType(QStringLiteral("text/uri-list")),
              QVariant(QUrl::fromLocalFile(QStringLiteral("/home/ann/a b.txt"))));
    EXPECT_EQ(first->pasteboardPropertyListForType(QStringLiteral("text/plain")), QVariant(QStringLiteral("/home/ann/a b.txt")));
    EXPECT_FALSE(first->pasteboardPropertyListForType(QStringLiteral("image/png")).isValid());

    std::unique_ptr<QMimeData> data(ResultItem::mimeDataForItems({first.get(), second.get()}));
    EXPECT_EQ(data->formats(), QStringList({"text/uri-list", "text/plain"}));
    EXPECT_EQ(data->urls(), QList<QUrl>({first->pathURL(), second->pathURL()}));
    EXPECT_EQ(data->text(), QStringLiteral("/home/ann/a b.txt\n/home/ann/c.txt"));
}

TEST(ResultItem, OffersItsPathAndNameToThePreviews)
{
    FileRecord photo{"/home/ann/photo.png"};
    photo.mimeType = "image/png";
    const auto item = makeResult(photo);
    EXPECT_EQ(item->imageUID(), QStringLiteral("/home/ann/photo.png"));
    EXPECT_EQ(item->imageRepresentation(), QStringLiteral("/home/ann/photo.png"));
    EXPECT_EQ(ResultItem::imageRepresentationType(), QStringLiteral("QuickLookPath"));
    EXPECT_EQ(item->imageTitle(), QStringLiteral("photo.png"));
    EXPECT_EQ(item->previewItemURL(), QUrl(QStringLiteral("file:///home/ann/photo.png")));
    EXPECT_EQ(item->previewItemTitle(), QStringLiteral("photo.png"));
}

TEST(ResultItem, ScriptsFindItByPathAndCannotChangeIt)
{
    test::TestDocument document(false);
    const auto item = makeResult({"/home/ann/plan.txt"}, &document);
    const ResultItem::ObjectSpecifier specifier = item->objectSpecifier();
    EXPECT_EQ(specifier.containerClass, QStringLiteral("docu"));
    EXPECT_EQ(specifier.container, &document);
    EXPECT_EQ(specifier.key, QStringLiteral("results"));
    EXPECT_EQ(specifier.uniqueID, QStringLiteral("/home/ann/plan.txt"));

    {
        ScriptCommand command(QStringLiteral("set"));
        item->setName(QStringLiteral("other.txt"));
        EXPECT_EQ(command.scriptErrorNumber(), kScriptWriteDeniedError);
        EXPECT_EQ(kScriptWriteDeniedError, -10003);
    }
    {
        ScriptCommand outer(QStringLiteral("tell"));
        {
            ScriptCommand inner(QStringLiteral("set"));
            item->setUniqueID(QStringLiteral("/elsewhere"));
            EXPECT_EQ(inner.scriptErrorNumber(), -10003);
        }
        EXPECT_EQ(outer.scriptErrorNumber(), 0);
        EXPECT_EQ(ScriptCommand::currentCommand(), &outer);
        item->setDocument(nullptr);
        EXPECT_EQ(outer.scriptErrorNumber(), -10003);
    }
    EXPECT_EQ(ScriptCommand::currentCommand(), nullptr);
    item->setName(QStringLiteral("outside any command"));
    EXPECT_EQ(item->displayName(), QStringLiteral("plan.txt"));
    EXPECT_EQ(item->uniqueID(), QStringLiteral("/home/ann/plan.txt"));
    EXPECT_EQ(item->owningDocument(), &document);
}

}  // namespace
}  // namespace trovara::query
