// "Search in Trovara" for the file managers: where each action is
// installed, that Thunar's own list keeps the user's other actions, and
// that each action, run as its file manager runs it, hands the selected
// folder to trovara.
#include "app/file_manager_actions.h"

#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QUrl>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

using app::FileManagerActions;

QString shippedActions()
{
    return QStringLiteral(TROVARA_BUILD_DIR "/share/trovara/file-manager");
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

class FileManagerActionsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        home = makeTemporaryFolder(QStringLiteral("actions-home"));
        data = home + QStringLiteral("/data");
        config = home + QStringLiteral("/config");
    }
    void TearDown() override { QDir(home).removeRecursively(); }

    QString thunarFile() const { return config + QStringLiteral("/Thunar/uca.xml"); }

    QString home;
    QString data;
    QString config;
};

TEST_F(FileManagerActionsTest, EachActionGoesWhereItsFileManagerLooks)
{
    Result<QStringList> written = FileManagerActions::install(shippedActions(), data, config);
    ASSERT_TRUE(written.ok()) << written.error().toString().toStdString();
    const QString dolphin = data + QStringLiteral("/kio/servicemenus/com.velmont.Trovara.search.desktop");
    const QString nautilus = data + QStringLiteral("/nautilus/scripts/Search in Trovara");
    const QString nemo = data + QStringLiteral("/nemo/actions/trovara-search.nemo_action");
    EXPECT_EQ(written.value(), (QStringList{dolphin, nautilus, nemo, thunarFile()}));
    // Dolphin and Files run only executable ones.
    EXPECT_TRUE(QFileInfo(dolphin).isExecutable());
    EXPECT_TRUE(QFileInfo(nautilus).isExecutable());
    EXPECT_TRUE(QFileInfo(nemo).isFile());
    const QByteArray thunar = readBytes(thunarFile());
    EXPECT_TRUE(thunar.startsWith("<?xml"));
    EXPECT_EQ(thunar.count(FileManagerActions::kThunarActionId), 1);
    EXPECT_TRUE(thunar.trimmed().endsWith("</actions>"));
}

TEST_F(FileManagerActionsTest, ThunarKeepsTheUsersOtherActionsAndGetsOursOnce)
{
    const QByteArray mine = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n<action><name>Open Terminal "
                            "Here</name><command>xterm</command></action>\n</actions>\n";
    writeBytes(thunarFile(), mine);
    ASSERT_TRUE(FileManagerActions::install(shippedActions(), data, config).ok());
    const QByteArray once = readBytes(thunarFile());
    ASSERT_TRUE(FileManagerActions::install(shippedActions(), data, config).ok());
    EXPECT_EQ(readBytes(thunarFile()), once);
    EXPECT_TRUE(once.contains("<name>Open Terminal Here</name>"));
    EXPECT_EQ(once.count(FileManagerActions::kThunarActionId), 1);
}

TEST_F(FileManagerActionsTest, ThunarFileThatIsNotAListIsLeftAloneAndNothingIsInstalled)
{
    writeBytes(thunarFile(), "garbage");
    Result<QStringList> written = FileManagerActions::install(shippedActions(), data, config);
    ASSERT_FALSE(written.ok());
    EXPECT_TRUE(written.error().toString().contains(QStringLiteral("left as it is")));
    EXPECT_EQ(readBytes(thunarFile()), QByteArray("garbage"));
    EXPECT_FALSE(QFileInfo::exists(data));

    EXPECT_FALSE(FileManagerActions::install(home + QStringLiteral("/nowhere"), data, config).ok());
    EXPECT_FALSE(QFileInfo::exists(data));
}

// Each action as its file manager runs it, with a stand-in trovara that
// writes down its arguments.
class FileManagerActionRunTest : public FileManagerActionsTest {
protected:
    void SetUp() override
    {
        FileManagerActionsTest::SetUp();
        ASSERT_TRUE(FileManagerActions::install(shippedActions(), data, config).ok());
        folder = home + QStringLiteral("/Two words");
        QDir().mkpath(folder);
        const QString bin = home + QStringLiteral("/bin");
        arguments = home + QStringLiteral("/arguments");
        writeBytes(bin + QStringLiteral("/trovara"),
                   "#!/bin/sh\nfor a; do printf '%s\\n' \"$a\"; done > \"$ARGUMENTS\"\n");
        QFile::setPermissions(bin + QStringLiteral("/trovara"), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("PATH"), bin + QLatin1Char(':') + environment.value(QStringLiteral("PATH")));
        environment.insert(QStringLiteral("ARGUMENTS"), arguments);
    }

    // The command line of an action file: its Exec= line or Thunar's
    // <command>, with %F given the folder as the file managers quote it.
    QString commandOf(const QString& path) const
    {
        const QString text = QString::fromUtf8(readBytes(path));
        QRegularExpressionMatch match = QRegularExpression(QStringLiteral("^Exec=(.*)$"),
                                                           QRegularExpression::MultilineOption)
                                            .match(text);
        if (!match.hasMatch()) {
            match = QRegularExpression(QStringLiteral("<command>(.*)</command>")).match(text);
        }
        EXPECT_TRUE(match.hasMatch()) << path.toStdString();
        QString command = match.captured(1);
        return command.replace(QStringLiteral("%F"), QLatin1Char('\'') + folder + QLatin1Char('\''));
    }

    QStringList run(const QString& program, const QStringList& programArguments,
                    const QProcessEnvironment& extra = {})
    {
        QFile::remove(arguments);
        QProcess process;
        QProcessEnvironment env = environment;
        env.insert(extra);
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(home);
        process.start(program, programArguments);
        EXPECT_TRUE(process.waitForFinished(10000));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        return QString::fromUtf8(readBytes(arguments)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    QString folder;
    QString arguments;
    QProcessEnvironment environment;
};

TEST_F(FileManagerActionRunTest, DolphinNemoAndThunarHandTheFolderToTrovara)
{
    for (const QString& action : {data + QStringLiteral("/kio/servicemenus/com.velmont.Trovara.search.desktop"),
                                  data + QStringLiteral("/nemo/actions/trovara-search.nemo_action"), thunarFile()}) {
        SCOPED_TRACE(action.toStdString());
        EXPECT_EQ(run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), commandOf(action)}), QStringList{folder});
    }
}

TEST_F(FileManagerActionRunTest, FilesScriptTakesTheSelectedFoldersOrTheFolderShown)
{
    const QString script = data + QStringLiteral("/nautilus/scripts/Search in Trovara");
    const QString other = home + QStringLiteral("/data");
    QProcessEnvironment selected;
    selected.insert(QStringLiteral("NAUTILUS_SCRIPT_SELECTED_FILE_PATHS"),
                    folder + QLatin1Char('\n') + other + QStringLiteral("\n") + arguments + QLatin1Char('\n'));
    // Files that are not folders are left out.
    writeBytes(arguments, "a file");
    EXPECT_EQ(run(script, {}, selected), (QStringList{folder, other}));

    QProcessEnvironment shown;
    shown.insert(QStringLiteral("NAUTILUS_SCRIPT_CURRENT_URI"),
                 QStringLiteral("file://") + QString::fromUtf8(QUrl::toPercentEncoding(folder, "/")));
    EXPECT_EQ(run(script, {}, shown), QStringList{folder});
}

}  // namespace
}  // namespace trovara::test
