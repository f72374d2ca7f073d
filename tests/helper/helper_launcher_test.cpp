// The application's side of the helper: when it is started, asked to quit,
// and how its login item (an autostart entry) is kept, row by row.
#include "helper/helper_launcher.h"
#include "helper/login_items.h"

#include "model/defaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

using helper::HelperLauncher;
using helper::LoginItems;

void writeEntry(const QString& path, const QByteArray& contents = "[Desktop Entry]\nType=Application\n")
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
}

QString readEntry(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

TEST(LoginItems, EntriesAreTheDesktopFilesInNameOrder)
{
    QTemporaryDir home;
    const QString folder = home.path() + QStringLiteral("/autostart");
    LoginItems items(folder);
    // No folder yet: no entries, not an error.
    EXPECT_EQ(items.indexOf(QStringLiteral("trovara-helper.desktop")), LoginItems::kNotThere);
    ASSERT_TRUE(QDir().mkpath(folder));
    writeEntry(folder + QStringLiteral("/zeal.desktop"));
    writeEntry(folder + QStringLiteral("/trovara-helper.desktop"));
    writeEntry(folder + QStringLiteral("/akregator.desktop"));
    writeEntry(folder + QStringLiteral("/notes.txt"));
    EXPECT_EQ(items.entries(), (QStringList{QStringLiteral("akregator.desktop"),
                                            QStringLiteral("trovara-helper.desktop"), QStringLiteral("zeal.desktop")}));
    EXPECT_EQ(items.indexOf(QStringLiteral("trovara-helper.desktop")), 1);

    ASSERT_TRUE(items.removeAt(1).ok());
    EXPECT_EQ(items.indexOf(QStringLiteral("trovara-helper.desktop")), LoginItems::kNotThere);
    EXPECT_FALSE(items.removeAt(5).ok());
    EXPECT_EQ(items.entries()->size(), 2);

    // A file where the folder should be cannot be read as login items.
    LoginItems blocked(folder + QStringLiteral("/notes.txt"));
    EXPECT_EQ(blocked.indexOf(QStringLiteral("trovara-helper.desktop")), LoginItems::kUnreadable);
    EXPECT_FALSE(blocked.addHidden(QStringLiteral("x.desktop"), QStringLiteral("X"), QStringLiteral("/bin/x")).ok());
}

TEST(LoginItems, AddedEntryStartsTheProgramQuotedAsDesktopEntriesWant)
{
    QTemporaryDir home;
    LoginItems items(home.path() + QStringLiteral("/config/autostart"));
    ASSERT_TRUE(items
                    .addHidden(QStringLiteral("trovara-helper.desktop"), QStringLiteral("Trovara Helper"),
                               QStringLiteral("/opt/My Apps/trovara-helper"), {QStringLiteral("--x=100%")})
                    .ok());
    const QString entry = readEntry(items.folder() + QStringLiteral("/trovara-helper.desktop"));
    EXPECT_TRUE(entry.startsWith(QLatin1String("[Desktop Entry]\n"))) << entry.toStdString();
    EXPECT_TRUE(entry.contains(QLatin1String("\nExec=\"/opt/My Apps/trovara-helper\" \"--x=100%%\"\n")))
        << entry.toStdString();
    EXPECT_TRUE(entry.contains(QLatin1String("\nNoDisplay=true\n")));
    // Never "Hidden", which would switch the entry off.
    EXPECT_FALSE(entry.contains(QLatin1String("Hidden=")));
}

struct FakeHelper {
    bool running = false;
    bool starts = true;
    int launches = 0;
    int quits = 0;

    helper::HelperProcess process()
    {
        return {[this] { return running; },
                [this] {
                    ++launches;
                    return starts;
                },
                [this] { ++quits; }};
    }
};

class HelperLauncherTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(home.path() + QStringLiteral("/launcher.conf"));
        model::Defaults::shared().registerDefaults(model::Defaults::factoryDefaults());
        folder = home.path() + QStringLiteral("/autostart");
    }
    void TearDown() override { model::Defaults::resetSharedForTesting(); }

    void setSwitches(bool menuItem, bool hotKeys)
    {
        model::Defaults::shared().setValue(QStringLiteral("enableGlobalMenuItem"), menuItem);
        model::Defaults::shared().setValue(QStringLiteral("enableGlobalHotKeys"), hotKeys);
    }
    QString entryPath() const { return folder + QLatin1Char('/') + QLatin1String(HelperLauncher::kLoginItemName); }

    QTemporaryDir home;
    QString folder;
};

// The login item is written only when the helper was found as the first
// login item (index 0); a missing entry is not added.
TEST_F(HelperLauncherTest, SwitchOnLaunchesAndRefreshesOnlyAFirstLoginItem)
{
    struct Row {
        const char* name;
        bool menuItem, hotKeys, running;
        QStringList entriesBefore;
        int launches;
        bool entryRewritten;
    };
    const QString helperEntry = QLatin1String(HelperLauncher::kLoginItemName);
    const std::vector<Row> rows = {
        {"menu item only, no entry", true, false, false, {}, 1, false},
        {"hot keys only, entry first", false, true, false, {helperEntry, QStringLiteral("zeal.desktop")}, 1, true},
        {"both, entry second", true, true, false, {QStringLiteral("akregator.desktop"), helperEntry}, 1, false},
        {"already running", true, true, true, {helperEntry}, 0, false},
    };
    for (const Row& row : rows) {
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
        for (const QString& name : row.entriesBefore) {
            writeEntry(folder + QLatin1Char('/') + name, "old");
        }
        setSwitches(row.menuItem, row.hotKeys);
        FakeHelper fake;
        fake.running = row.running;
        HelperLauncher launcher(LoginItems(folder), fake.process(), QStringLiteral("/usr/bin/trovara-helper"));
        launcher.setUpHelper(true);
        EXPECT_EQ(fake.launches, row.launches) << row.name;
        EXPECT_EQ(fake.quits, 0) << row.name;
        const QString entry = readEntry(entryPath());
        EXPECT_EQ(entry.contains(QLatin1String("Exec=/usr/bin/trovara-helper\n")), row.entryRewritten)
            << row.name << ": " << entry.toStdString();
        EXPECT_EQ(QDir(folder).entryList(QDir::Files).size(), row.entriesBefore.size()) << row.name;
    }
}

TEST_F(HelperLauncherTest, BothSwitchesOffRemoveTheLoginItemAndQuitOnlyWhenAsked)
{
    setSwitches(false, false);
    struct Row {
        const char* name;
        bool quitIfUnused;
        bool running;
        bool entryThere;
        int quits;
    };
    const Row rows[] = {
        {"from the preferences, running", true, true, true, 1},
        {"at launch, running", false, true, true, 0},
        {"from the preferences, not running", true, false, true, 0},
        {"no entry", true, true, false, 1},
    };
    for (const Row& row : rows) {
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
        writeEntry(folder + QStringLiteral("/akregator.desktop"));
        if (row.entryThere) {
            writeEntry(entryPath());
        }
        FakeHelper fake;
        fake.running = row.running;
        HelperLauncher launcher(LoginItems(folder), fake.process(), QStringLiteral("/usr/bin/trovara-helper"));
        launcher.setUpHelper(row.quitIfUnused);
        EXPECT_EQ(fake.quits, row.quits) << row.name;
        EXPECT_EQ(fake.launches, 0) << row.name;
        EXPECT_FALSE(QFile::exists(entryPath())) << row.name;
        EXPECT_TRUE(QFile::exists(folder + QStringLiteral("/akregator.desktop"))) << row.name;
    }
}

TEST_F(HelperLauncherTest, UnreadableLoginItemsStillLaunchTheHelper)
{
    writeEntry(folder);  // a file, not a folder
    setSwitches(true, true);
    FakeHelper fake;
    fake.starts = false;
    HelperLauncher launcher(LoginItems(folder), fake.process(), QStringLiteral("/usr/bin/trovara-helper"));
    launcher.setUpHelper(false);
    EXPECT_EQ(fake.launches, 1);
    EXPECT_EQ(readEntry(folder), QStringLiteral("[Desktop Entry]\nType=Application\n"));
    setSwitches(false, false);
    launcher.setUpHelper(true);
    EXPECT_TRUE(QFileInfo(folder).isFile());
}

}  // namespace
}  // namespace trovara::test
