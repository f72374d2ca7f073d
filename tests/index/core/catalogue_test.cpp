// The catalogue: depth-first order and its ranges, paths, look-ups, the
// trigram search held against a plain scan, and snapshots that survive a
// round trip and are refused when damaged.
#include "index/catalogue.h"
#include "test_support.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>

namespace trovara::index {
namespace {

std::string lower(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

TypeInfo typeFor(const std::string& mime)
{
    if (mime == "inode/directory") {
        return {mime, "public.folder", "Folder", {"public.folder", "public.directory", "public.item"}};
    }
    return {mime, "public.data", mime + " file", {"public.data", "public.item"}};
}

CatalogueItem entry(std::int64_t id, std::int64_t parent, const std::string& name, bool folder = false)
{
    CatalogueItem item;
    item.id = id;
    item.parent = parent;
    item.info.name = name;
    item.info.kind = folder ? FileKind::Directory : FileKind::Regular;
    item.info.size = id * 10;
    item.info.modified = id;
    item.info.changed = id + 1;
    item.mimeType = folder ? "inode/directory" : "text/plain";
    return item;
}

std::shared_ptr<const Catalogue> sample()
{
    // /data/{B/{z.txt, a.txt}, a/{}, .hidden}, /srv/x
    std::vector<CatalogueItem> items{
        entry(1, 0, "/data", true), entry(2, 1, "B", true),     entry(3, 2, "z.txt"), entry(4, 2, "a.txt"),
        entry(5, 1, "a", true),     entry(6, 1, ".hidden"),     entry(7, 0, "/srv", true), entry(8, 7, "x"),
        entry(9, 42, "orphan"),
    };
    items[5].info.invisible = true;
    items[3].attributes.label = 6;
    items[3].attributes.comment = "a comment";
    items[3].attributes.tags = {"red", "work"};
    items[2].info.born = 77;
    items[1].nodeCount = 2;
    items[7].info.kind = FileKind::Symlink;
    items[7].lastUsed = 123;
    items[7].info.uid = 1000;
    return Catalogue::build(std::move(items), 5, lower, typeFor);
}

std::vector<std::string> allPaths(const Catalogue& catalogue)
{
    std::vector<std::string> paths;
    for (ItemIndex i = 0; i < catalogue.size(); ++i) {
        paths.push_back(catalogue.path(i));
    }
    return paths;
}

TEST(Catalogue, ItemsComeInDepthFirstOrderWithTheirRanges)
{
    auto catalogue = sample();
    EXPECT_EQ(allPaths(*catalogue),
              (std::vector<std::string>{"/data", "/data/.hidden", "/data/B", "/data/B/a.txt", "/data/B/z.txt",
                                        "/data/a", "/srv", "/srv/x"}))
        << "siblings sort by their bytes; an item without a known parent is left out";
    EXPECT_EQ(catalogue->size(), 8u);
    EXPECT_EQ(catalogue->core(0).subtreeEnd, 6u);
    EXPECT_EQ(catalogue->core(2).subtreeEnd, 5u);
    EXPECT_EQ(catalogue->core(3).parent, 2u);
    EXPECT_EQ(catalogue->core(0).parent, kNoItem);
    EXPECT_EQ(catalogue->roots(), (std::vector<ItemIndex>{0, 6}));
    EXPECT_EQ(catalogue->generation(), 5);
}

TEST(Catalogue, RecordsCarryNamesTypesFlagsAndAttributes)
{
    auto catalogue = sample();
    EXPECT_EQ(catalogue->name(0), "data");
    EXPECT_EQ(catalogue->foldedName(2), "b");
    EXPECT_EQ(catalogue->name(2), "B");
    EXPECT_TRUE(catalogue->isFolder(2));
    EXPECT_EQ(catalogue->core(2).size, 2) << "a folder's size slot holds its entry count";
    EXPECT_EQ(catalogue->core(3).size, 40);
    EXPECT_EQ(catalogue->core(4).created, 77) << "the birth time when known";
    EXPECT_EQ(catalogue->core(3).created, 5) << "else the change time";
    EXPECT_TRUE(catalogue->core(1).flags & item_flags::kInvisible);
    EXPECT_TRUE(catalogue->core(7).flags & item_flags::kSymlink);
    EXPECT_TRUE(catalogue->core(0).flags & item_flags::kRoot);
    EXPECT_EQ(catalogue->type(3).identifier, "public.data");
    EXPECT_EQ(catalogue->type(2).identifier, "public.folder");
    EXPECT_EQ(catalogue->label(3), std::optional<int>(6));
    EXPECT_EQ(catalogue->label(4), std::nullopt);
    EXPECT_EQ(catalogue->attribute(3, AttributeKey::Comment), std::optional<std::string_view>("a comment"));
    EXPECT_EQ(catalogue->attribute(3, AttributeKey::Tags), std::optional<std::string_view>("red\x1fwork"));
    EXPECT_EQ(catalogue->attribute(3, AttributeKey::WhereFroms), std::nullopt);
    EXPECT_EQ(catalogue->attribute(4, AttributeKey::Comment), std::nullopt);
    EXPECT_EQ(catalogue->extra(7).lastUsed, 123);
    EXPECT_EQ(catalogue->extra(7).uid, 1000u);
}

TEST(Catalogue, FindsItemsByPath)
{
    auto catalogue = sample();
    EXPECT_EQ(catalogue->find("/data/B/z.txt"), std::optional<ItemIndex>(4));
    EXPECT_EQ(catalogue->find("/data/B/"), std::optional<ItemIndex>(2));
    EXPECT_EQ(catalogue->find("/data"), std::optional<ItemIndex>(0));
    EXPECT_EQ(catalogue->find("/srv/x"), std::optional<ItemIndex>(7));
    EXPECT_EQ(catalogue->find("/data/b"), std::nullopt) << "names are case-sensitive";
    EXPECT_EQ(catalogue->find("/dat"), std::nullopt);
    EXPECT_EQ(catalogue->find("/datafile"), std::nullopt);
    EXPECT_EQ(catalogue->find("/elsewhere/x"), std::nullopt);
}

TEST(Catalogue, ARootAtTheFileSystemRootBuildsPlainPaths)
{
    auto catalogue = Catalogue::build({entry(1, 0, "/", true), entry(2, 1, "etc", true), entry(3, 2, "hosts")}, 0,
                                      lower, typeFor);
    EXPECT_EQ(allPaths(*catalogue), (std::vector<std::string>{"/", "/etc", "/etc/hosts"}));
    EXPECT_EQ(catalogue->name(0), "/");
    EXPECT_EQ(catalogue->find("/etc/hosts"), std::optional<ItemIndex>(2));
}

// Random names over a small alphabet, so that trigrams repeat a lot.
std::vector<CatalogueItem> randomTree(std::mt19937& random, int count)
{
    const std::string alphabet = "abcAB.-_ é";
    std::uniform_int_distribution<int> length(0, 12);
    std::uniform_int_distribution<std::size_t> letter(0, alphabet.size() - 1);
    std::vector<CatalogueItem> items{entry(1, 0, "/root", true)};
    std::vector<std::int64_t> folders{1};
    for (int i = 2; i <= count; ++i) {
        std::string name;
        const int n = length(random);
        for (int j = 0; j < n; ++j) {
            name += alphabet[letter(random)];
        }
        name += std::to_string(i);  // unique among siblings
        const bool folder = random() % 5 == 0;
        const std::int64_t parent = folders[random() % folders.size()];
        items.push_back(entry(i, parent, name, folder));
        if (folder) {
            folders.push_back(i);
        }
    }
    return items;
}

TEST(Catalogue, TrigramSearchAgreesWithAPlainScan)
{
    std::mt19937 random(12345);
    auto catalogue = Catalogue::build(randomTree(random, 3000), 0, lower, typeFor);
    const std::vector<std::string> probes{"abc", "aaa", "b.a", "é1", "a_b", "zzz", "12", "ab", "c1", "-a-", "bé", "999"};
    for (const std::string& probe : probes) {
        std::vector<ItemIndex> scanned;
        for (ItemIndex i = 0; i < catalogue->size(); ++i) {
            if (catalogue->foldedName(i).find(probe) != std::string_view::npos) {
                scanned.push_back(i);
            }
        }
        std::optional<std::vector<ItemIndex>> found = catalogue->itemsWhoseFoldedNameContains(probe);
        if (probe.size() < 3) {
            EXPECT_FALSE(found) << probe;
            continue;
        }
        ASSERT_TRUE(found) << probe;
        EXPECT_EQ(*found, scanned) << probe;
    }
}

class Snapshot : public ::testing::Test {
protected:
    Snapshot()
        : folder(trovara::test::makeTemporaryFolder(QStringLiteral("catalogue")).toStdString())
        , path(folder + "/catalogue.bin")
    {
    }
    ~Snapshot() override { QDir(QString::fromStdString(folder)).removeRecursively(); }

    QByteArray bytes() const
    {
        QFile file(QString::fromStdString(path));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }
    void write(const QByteArray& data) const
    {
        QFile file(QString::fromStdString(path));
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(data);
    }

    const std::string folder;
    const std::string path;
};

TEST_F(Snapshot, AMappedSnapshotAnswersLikeTheBuiltCatalogue)
{
    std::mt19937 random(7);
    auto items = randomTree(random, 500);
    items[10].attributes.tags = {"x", "y"};
    items[11].attributes.label = 0;
    auto built = Catalogue::build(items, 9, lower, typeFor);
    ASSERT_TRUE(built->save(path).ok());
    Expected<std::shared_ptr<const Catalogue>> mapped = Catalogue::open(path);
    ASSERT_TRUE(mapped.ok()) << mapped.error().message;
    const Catalogue& m = *mapped.value();
    EXPECT_EQ(m.generation(), 9);
    ASSERT_EQ(m.size(), built->size());
    EXPECT_EQ(allPaths(m), allPaths(*built));
    for (ItemIndex i = 0; i < m.size(); ++i) {
        EXPECT_EQ(m.foldedName(i), built->foldedName(i));
        EXPECT_EQ(m.core(i).subtreeEnd, built->core(i).subtreeEnd);
        EXPECT_EQ(m.type(i).tree, built->type(i).tree);
        EXPECT_EQ(m.label(i), built->label(i));
        EXPECT_EQ(m.attribute(i, AttributeKey::Tags), built->attribute(i, AttributeKey::Tags));
    }
    EXPECT_EQ(m.itemsWhoseFoldedNameContains("ab1"), built->itemsWhoseFoldedNameContains("ab1"));
    EXPECT_EQ(m.footprint().total(), built->footprint().total());
    EXPECT_EQ(m.footprint().core, 48u * m.size());
    // No temporary file is left behind; the check through is remembered.
    EXPECT_EQ(QDir(QString::fromStdString(folder)).entryList(QDir::Files),
              (QStringList{"catalogue.bin", "catalogue.bin.checked"}));
}

TEST_F(Snapshot, ASnapshotCheckedThroughOpensWithoutBeingReadAgainUntilItChanges)
{
    std::mt19937 random(5);
    ASSERT_TRUE(Catalogue::build(randomTree(random, 300), 4, lower, typeFor)->save(path).ok());
    ASSERT_TRUE(Catalogue::open(path).ok());
    const QByteArray stamp = [&] {
        QFile file(QString::fromStdString(path + ".checked"));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }();
    EXPECT_FALSE(stamp.isEmpty());
    ASSERT_TRUE(Catalogue::open(path).ok()) << "trusted as checked";

    // Damage written into the file in place, its size kept: the file's times
    // change, so it is checked through again and refused.
    QByteArray damaged = bytes();
    const int core = 48 + 12 * 24;
    damaged[core + 40] = static_cast<char>(damaged[core + 40] ^ 0x10);
    {
        QFile file(QString::fromStdString(path));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        file.write(damaged);
    }
    struct timespec times[2] = {{0, UTIME_OMIT}, {1'000'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    Expected<std::shared_ptr<const Catalogue>> reopened = Catalogue::open(path);
    ASSERT_FALSE(reopened.ok());
    EXPECT_EQ(reopened.error().kind, Failure::Kind::Corrupt);
}

TEST_F(Snapshot, DamagedSnapshotsAreRefusedNotTrusted)
{
    std::mt19937 random(3);
    ASSERT_TRUE(Catalogue::build(randomTree(random, 200), 1, lower, typeFor)->save(path).ok());
    const QByteArray good = bytes();
    struct Case {
        const char* name;
        std::function<QByteArray()> make;
        Failure::Kind kind;
    };
    const Case cases[] = {
        {"empty", [] { return QByteArray(); }, Failure::Kind::Corrupt},
        {"truncated", [&] { return good.left(good.size() - 100); }, Failure::Kind::Corrupt},
        {"foreign", [&] { return QByteArray(good.size(), 'x'); }, Failure::Kind::Corrupt},
        {"another version", [&] {
             QByteArray b = good;
             b[8] = 99;
             return b;
         },
         Failure::Kind::Version},
        {"scribbled section table", [&] {
             QByteArray b = good;
             b[48 + 9] = static_cast<char>(b[48 + 9] ^ 0x40);
             return b;
         },
         Failure::Kind::Corrupt},
        {"a record pointing outside", [&] {
             QByteArray b = good;
             // The first core record follows the section table (12
             // sections); its name offset sits at byte 8 of the record.
             const int core = 48 + 12 * 24;
             b[core + 8 + 3] = static_cast<char>(0x7f);
             return b;
         },
         Failure::Kind::Corrupt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        write(c.make());
        Expected<std::shared_ptr<const Catalogue>> opened = Catalogue::open(path);
        ASSERT_FALSE(opened.ok());
        EXPECT_EQ(opened.error().kind, c.kind);
    }
    QFile::remove(QString::fromStdString(path));
    EXPECT_EQ(Catalogue::open(path).error().kind, Failure::Kind::Io);
}

}  // namespace
}  // namespace trovara::index
