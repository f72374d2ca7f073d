// The desktop side of result files: the Trash and what happens when it
// refuses, opening with the search text through the default application,
// and showing files in the file manager.
#include "fileops/desktop_entry.h"
#include "fileops/workspace_extras.h"

#include "faulty_file_system.h"
#include "fileops_test_support.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QEventLoop>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>

namespace trovara::fileops {
namespace {

using test::FaultyFileSystem;
using Call = FaultyFileSystem::Call;

struct Launched {
    QStringList programs;  // "program arg arg"
    QList<QUrl> urls;
    QList<QStringList> shown;
    bool fileManagerAnswers = false;

    WorkspaceExtras::Launcher launcher()
    {
        WorkspaceExtras::Launcher l;
        l.startDetached = [this](const QString& program, const QStringList& arguments) {
            programs.push_back((QStringList{program} + arguments).join(QLatin1Char(' ')));
            return true;
        };
        l.openUrl = [this](const QUrl& url) {
            urls.push_back(url);
            return true;
        };
        l.showItems = [this](const QStringList& uris, std::function<void(bool)> done) {
            shown.push_back(uris);
            done(fileManagerAnswers);
        };
        return l;
    }
};

class TrashTest : public ::testing::Test {
protected:
    WorkspaceExtras workspace(std::optional<int> answer = std::nullopt)
    {
        WorkspaceExtras::Confirmation confirm;
        if (answer) {
            confirm = [this, answer](const query::Alert& alert) {
                asked.push_back(alert);
                return *answer;
            };
        }
        return WorkspaceExtras(fs, confirm);
    }
    void refuseTrash()
    {
        fs->setHook([](Call call, const QString&, const std::atomic<bool>*) {
            return call == Call::MoveToTrash ? EXDEV : 0;
        });
    }

    test::TempTree tree;
    std::shared_ptr<FaultyFileSystem> fs = std::make_shared<FaultyFileSystem>();
    std::vector<query::Alert> asked;
};

TEST_F(TrashTest, AFileGoesToTheTrashAndTellsWhere)
{
    const QString file = tree.write(QStringLiteral("trash-me-once.txt"), "x");
    const std::optional<QString> trashed = workspace().moveToTrash(file);
    ASSERT_TRUE(trashed);
    EXPECT_TRUE(trashed->startsWith(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Trash/files/")));
    EXPECT_EQ(test::trashedBytes(QFileInfo(*trashed).fileName()), "x");
    EXPECT_FALSE(QFileInfo::exists(file));

    const QString folder = tree.write(QStringLiteral("trash-me-folder/inside.txt"), "y");
    EXPECT_TRUE(workspace(1).recycleFile(QFileInfo(folder).absolutePath()));
    EXPECT_TRUE(asked.empty());
    EXPECT_TRUE(test::trashedNames().contains(QStringLiteral("trash-me-folder")));
}

TEST_F(TrashTest, WhenTheTrashRefusesTheFileIsDeletedOnlyIfAllowed)
{
    refuseTrash();
    struct Case {
        const char* name;
        bool silent;
        std::optional<int> answer;  // the button pressed, if asked
        bool deleted;
        bool asks;
    };
    const Case cases[] = {
        {"silent", true, 1, true, false},
        {"Delete", false, 0, true, true},
        {"Cancel", false, 1, false, true},
        {"nobody to ask", false, std::nullopt, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        asked.clear();
        const QString file = tree.write(QStringLiteral("on-another-disk.txt"), "keep?");
        EXPECT_EQ(workspace(c.answer).recycleFile(file, c.silent), c.deleted);
        EXPECT_EQ(QFileInfo::exists(file), !c.deleted);
        ASSERT_EQ(asked.size(), c.asks ? 1u : 0u);
        if (c.asks) {
            EXPECT_EQ(asked[0].messageText, QStringLiteral("The file \"on-another-disk.txt\" will be deleted immediately.\n"
                                                           "Are you sure you want to continue?"));
            EXPECT_EQ(asked[0].informativeText, QStringLiteral("You cannot undo this action."));
            EXPECT_EQ(asked[0].buttons, (QStringList{QStringLiteral("Delete"), QStringLiteral("Cancel")}));
            EXPECT_TRUE(asked[0].critical);
        }
    }
    EXPECT_FALSE(workspace().moveToTrash(tree.write(QStringLiteral("x.txt"), "x")));
}

TEST_F(TrashTest, RecycleFilesGoesOnAfterAFailure)
{
    const QString a = tree.write(QStringLiteral("recycle-a.txt"), "a");
    const QString b = tree.write(QStringLiteral("recycle-b.txt"), "b");
    const QString c = tree.write(QStringLiteral("recycle-c.txt"), "c");
    fs->setHook([b](Call call, const QString& path, const std::atomic<bool>*) {
        return call == Call::MoveToTrash && path == b ? EXDEV : 0;
    });
    EXPECT_FALSE(workspace(1).recycleFiles({a, b, c}));
    EXPECT_FALSE(QFileInfo::exists(a));
    EXPECT_TRUE(QFileInfo::exists(b));
    EXPECT_FALSE(QFileInfo::exists(c));
    EXPECT_EQ(asked.size(), 1u);
    fs->setHook({});
    EXPECT_TRUE(workspace(1).recycleFiles({b}));
}

// A desktop of the test's own: applications and MIME lists in private
// folders, nothing from the machine's.
class DesktopTest : public ::testing::Test {
protected:
    DesktopTest()
    {
        locations.dataDirectories = {tree.mkdir(QStringLiteral("data")), tree.mkdir(QStringLiteral("system"))};
        locations.configDirectories = {tree.mkdir(QStringLiteral("config")), tree.mkdir(QStringLiteral("etc"))};
        locations.desktops = {QStringLiteral("kde")};
    }
    void application(const QString& id, const QString& exec, const QString& where = QStringLiteral("data"))
    {
        tree.write(where + QStringLiteral("/applications/") + id,
                   QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2\n").arg(id, exec).toUtf8());
    }
    void list(const QString& relative, const QString& group, const QString& mime, const QString& ids)
    {
        const QByteArray before = tree.exists(relative) ? tree.read(relative) : QByteArray();
        tree.write(relative, before + QStringLiteral("[%1]\n%2=%3\n").arg(group, mime, ids).toUtf8());
    }
    QString defaultId(const QString& mime)
    {
        const std::optional<DesktopEntry> entry = DesktopEntry::defaultForMimeType(mime, locations);
        return entry ? entry->id : QStringLiteral("<none>");
    }
    WorkspaceExtras::Launcher launcher()
    {
        WorkspaceExtras::Launcher l = launched.launcher();
        l.defaultApplication = [this](const QString& mime) { return DesktopEntry::defaultForMimeType(mime, locations); };
        return l;
    }

    test::TempTree tree;
    DesktopLocations locations;
    Launched launched;
};

TEST_F(DesktopTest, TheDefaultApplicationFollowsTheMimeListsInOrder)
{
    application(QStringLiteral("okular.desktop"), QStringLiteral("okular %U"));
    application(QStringLiteral("evince.desktop"), QStringLiteral("evince %U"), QStringLiteral("system"));
    application(QStringLiteral("gedit.desktop"), QStringLiteral("gedit %U"));
    application(QStringLiteral("kate.desktop"), QStringLiteral("kate %U"));

    EXPECT_EQ(defaultId(QStringLiteral("application/pdf")), QStringLiteral("<none>"));
    list(QStringLiteral("system/applications/mimeinfo.cache"), QStringLiteral("MIME Cache"),
         QStringLiteral("application/pdf"), QStringLiteral("evince.desktop;"));
    EXPECT_EQ(defaultId(QStringLiteral("application/pdf")), QStringLiteral("evince.desktop"));
    list(QStringLiteral("data/applications/mimeapps.list"), QStringLiteral("Default Applications"),
         QStringLiteral("application/pdf"), QStringLiteral("missing.desktop;okular.desktop"));
    EXPECT_EQ(defaultId(QStringLiteral("application/pdf")), QStringLiteral("okular.desktop"));
    list(QStringLiteral("config/mimeapps.list"), QStringLiteral("Default Applications"),
         QStringLiteral("application/pdf"), QStringLiteral("evince.desktop"));
    EXPECT_EQ(defaultId(QStringLiteral("application/pdf")), QStringLiteral("evince.desktop"));
    list(QStringLiteral("config/kde-mimeapps.list"), QStringLiteral("Default Applications"),
         QStringLiteral("application/pdf"), QStringLiteral("okular.desktop"));
    EXPECT_EQ(defaultId(QStringLiteral("application/pdf")), QStringLiteral("okular.desktop"));

    // A C source opens with the plain-text application unless it has its own.
    list(QStringLiteral("config/mimeapps.list"), QStringLiteral("Added Associations"), QStringLiteral("text/plain"),
         QStringLiteral("gedit.desktop;"));
    EXPECT_EQ(defaultId(QStringLiteral("text/x-csrc")), QStringLiteral("gedit.desktop"));
    list(QStringLiteral("etc/mimeapps.list"), QStringLiteral("Default Applications"), QStringLiteral("text/x-csrc"),
         QStringLiteral("kate.desktop"));
    EXPECT_EQ(defaultId(QStringLiteral("text/x-csrc")), QStringLiteral("kate.desktop"));
}

TEST_F(DesktopTest, ExecLinesAreSplitAsTheFormatQuotesThem)
{
    const std::pair<const char*, QStringList> cases[] = {
        {"okular %U", {"okular", "%U"}},
        {"  spaced   out  ", {"spaced", "out"}},
        {R"("/opt/My App/bin/app" --flag %f)", {"/opt/My App/bin/app", "--flag", "%f"}},
        {R"(sh -c "echo \"hi\" \$HOME \\ \`x\`")", {"sh", "-c", R"(echo "hi" $HOME \ `x`)"}},
        {R"(app "")", {"app", ""}},
    };
    for (const auto& [exec, words] : cases) {
        EXPECT_EQ(DesktopEntry::splitExec(QString::fromUtf8(exec)), words) << exec;
    }
}

TEST_F(DesktopTest, SearchTextGoesToProgramsThatTakeIt)
{
    const QString path = QStringLiteral("/home/ann/A Report.pdf");
    const QString url = QStringLiteral("file:///home/ann/A%20Report.pdf");
    const std::pair<const char*, std::optional<QStringList>> cases[] = {
        {"okular %U", QStringList{"okular", "--find", "harbour master", url}},
        {"/usr/bin/evince %U", QStringList{"/usr/bin/evince", "--find=harbour master", url}},
        {"atril %f --fullscreen", QStringList{"atril", "--find=harbour master", path, "--fullscreen"}},
        {"xreader %i %c %k", QStringList{"xreader", "--find=harbour master", path}},
        {"gedit %U", std::nullopt},
        {"flatpak run org.kde.okular %U", std::nullopt},
    };
    for (const auto& [exec, expected] : cases) {
        const DesktopEntry entry{QStringLiteral("x.desktop"), {}, {}, QString::fromUtf8(exec)};
        EXPECT_EQ(entry.searchCommandLine(path, QStringLiteral("harbour master")), expected) << exec;
    }
    const DesktopEntry okular{QStringLiteral("okular.desktop"), {}, {}, QStringLiteral("okular %U")};
    EXPECT_EQ(okular.searchCommandLine(path, QString()), std::nullopt);
}

TEST_F(DesktopTest, OpenUrlPassesTheSearchTextOrOpensNormally)
{
    application(QStringLiteral("okular.desktop"), QStringLiteral("okular %F"));
    application(QStringLiteral("gedit.desktop"), QStringLiteral("gedit %U"));
    list(QStringLiteral("config/mimeapps.list"), QStringLiteral("Default Applications"),
         QStringLiteral("application/pdf"), QStringLiteral("okular.desktop"));
    list(QStringLiteral("config/mimeapps.list"), QStringLiteral("Default Applications"), QStringLiteral("text/plain"),
         QStringLiteral("gedit.desktop"));
    const QString pdf = tree.write(QStringLiteral("docs/paper.pdf"), "%PDF-1.4\n");
    QFile::link(pdf, tree.path(QStringLiteral("link.pdf")));
    const QString text = tree.write(QStringLiteral("docs/notes.txt"), "plain words");

    WorkspaceExtras workspace({}, {}, launcher());
    EXPECT_TRUE(workspace.openURL(QUrl::fromLocalFile(tree.path(QStringLiteral("link.pdf"))), QStringLiteral("harbour")));
    EXPECT_EQ(launched.programs, QStringList{QStringLiteral("okular --find harbour ") + pdf});
    EXPECT_TRUE(workspace.openURL(QUrl::fromLocalFile(text), QStringLiteral("harbour")));
    EXPECT_EQ(launched.urls, QList<QUrl>{QUrl::fromLocalFile(text)});
    EXPECT_EQ(launched.programs.size(), 1);
}

TEST_F(DesktopTest, OpenUrlRefusesWhatIsNotAFileAndASearchString)
{
    WorkspaceExtras workspace({}, {}, launcher());
    const auto message = [&](const QUrl& url, const QString& search) -> std::string {
        try {
            workspace.openURL(url, search);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_EQ(message(QUrl(), QStringLiteral("x")), "Invalid parameter not satisfying: url");
    EXPECT_EQ(message(QUrl(QStringLiteral("https://example.org/a.pdf")), QStringLiteral("x")),
              "Invalid parameter not satisfying: [url isFileURL]");
    EXPECT_EQ(message(QUrl::fromLocalFile(QStringLiteral("/tmp/a.pdf")), QString()),
              "Invalid parameter not satisfying: searchString");
    EXPECT_TRUE(launched.urls.isEmpty());
}

TEST(RevealTest, TheFileManagerShowsTheItemsElseTheirFoldersOpen)
{
    Launched launched;
    WorkspaceExtras workspace({}, {}, launched.launcher());
    const QStringList paths{QStringLiteral("/data/a b.txt"), QStringLiteral("/data/c.txt"), QStringLiteral("/other/d.txt")};

    launched.fileManagerAnswers = true;
    workspace.revealInFileManager(paths);
    ASSERT_EQ(launched.shown.size(), 1);
    EXPECT_EQ(launched.shown[0], (QStringList{QStringLiteral("file:///data/a%20b.txt"), QStringLiteral("file:///data/c.txt"),
                                              QStringLiteral("file:///other/d.txt")}));
    EXPECT_TRUE(launched.urls.isEmpty());

    launched.fileManagerAnswers = false;
    workspace.revealInFileManager(paths);
    EXPECT_EQ(launched.urls, (QList<QUrl>{QUrl::fromLocalFile(QStringLiteral("/data")),
                                          QUrl::fromLocalFile(QStringLiteral("/other"))}));
}

// A file manager of the test's own on a private bus.
class FakeFileManager final : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.member() != QStringLiteral("ShowItems")) {
            return false;
        }
        interface = message.interface();
        uris = message.arguments().value(0).toStringList();
        connection.send(message.createReply());
        return true;
    }
    QString interface;
    QStringList uris;
};

TEST(RevealTest, ShowItemsReachesTheFileManagerOverTheBus)
{
    const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (daemon.isEmpty()) {
        GTEST_SKIP() << "no dbus-daemon";
    }
    // A bus of its own, without service activation: no real file manager
    // is ever started.
    test::TempTree tree;
    const QString config = tree.write(QStringLiteral("bus.conf"), R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)");
    QProcess bus;
    bus.start(daemon, {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                       QStringLiteral("--print-address=1")});
    ASSERT_TRUE(bus.waitForStarted());
    while (!bus.canReadLine() && bus.waitForReadyRead(10000)) {
    }
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    ASSERT_FALSE(address.isEmpty());
    {
        QDBusConnection service = QDBusConnection::connectToBus(address, QStringLiteral("fileops-service"));
        QDBusConnection client = QDBusConnection::connectToBus(address, QStringLiteral("fileops-client"));
        ASSERT_TRUE(service.isConnected());

        const auto call = [&client](const QStringList& uris) {
            std::optional<bool> answer;
            QEventLoop loop;
            WorkspaceExtras::showItemsOnBus(client, uris, [&](bool shown) {
                answer = shown;
                loop.quit();
            });
            if (!answer) {
                QTimer::singleShot(10000, &loop, &QEventLoop::quit);
                loop.exec();
            }
            return answer;
        };
        // Nobody owns the name yet: the caller falls back.
        EXPECT_EQ(call({QStringLiteral("file:///x")}), std::optional<bool>(false));

        FakeFileManager manager;
        ASSERT_TRUE(service.registerService(QStringLiteral("org.freedesktop.FileManager1")));
        ASSERT_TRUE(service.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"), &manager));
        EXPECT_EQ(call({QStringLiteral("file:///data/a.txt")}), std::optional<bool>(true));
        EXPECT_EQ(manager.interface, QStringLiteral("org.freedesktop.FileManager1"));
        EXPECT_EQ(manager.uris, QStringList{QStringLiteral("file:///data/a.txt")});
        service.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("fileops-service"));
    QDBusConnection::disconnectFromBus(QStringLiteral("fileops-client"));
    bus.kill();
    bus.waitForFinished();
}

}  // namespace
}  // namespace trovara::fileops
