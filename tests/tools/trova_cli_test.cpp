// The trova command as a person runs it: arguments, standard input and
// output, exit status, messages, and the process's time zone.
#include "test_support.h"

#include <QDir>
#include <algorithm>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <set>
#include <sqlite3.h>
#include <sys/stat.h>

namespace {

struct Outcome {
    int status = -1;
    QByteArray out;
    QByteArray err;
};

Outcome finished(QProcess& process)
{
    EXPECT_TRUE(process.waitForFinished(30000));
    Outcome run;
    run.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

Outcome trova(const QStringList& arguments, const QByteArray& input = {}, const QString& timeZone = QStringLiteral("UTC"))
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TZ"), timeZone);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(TROVA_BINARY), arguments);
    process.write(input);
    process.closeWriteChannel();
    return finished(process);
}

QString writeFile(const QString& name, const QByteArray& contents)
{
    const QString path = QDir::homePath() + QLatin1Char('/') + name;
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(contents);
    return path;
}

TEST(TrovaPreview, PrintsTheTextThePreviewShows)
{
    // Shift_JIS, as many Japanese files still are.
    const QString file = writeFile(QStringLiteral("harbour-sjis.txt"),
                                   "\x8d\x60\x82\xcc\x96\xe9\x96\xbe\x82\xaf\x81\x42\x93\x8c\x8b\x9e\x83\x5e\x83\x8f\x81"
                                   "\x5b\x82\xcc\x93\x94\x82\xe8\x82\xaa\x8f\xc1\x82\xa6\x82\xe9\x81\x42");
    const Outcome run = trova({QStringLiteral("preview"), QStringLiteral("-terms"), QStringLiteral("タワー"), file});
    EXPECT_EQ(run.status, 0) << run.err.toStdString();
    // Not a terminal: no colours.
    EXPECT_EQ(QString::fromUtf8(run.out), QStringLiteral("港の夜明け。東京タワーの灯りが消える。\n"));
}

TEST(TrovaPreview, ColoursTheTermsOnATerminal)
{
    const QString file = writeFile(QStringLiteral("harbour.txt"), "Harbour lights over the harbour.\n");
    // script(1) gives trova a terminal as its standard output.
    QProcess process;
    process.start(QStringLiteral("script"),
                  {QStringLiteral("-qec"),
                   QStringLiteral("%1 preview -terms HARBOUR -terms lights %2").arg(QStringLiteral(TROVA_BINARY), file),
                   QStringLiteral("/dev/null")});
    ASSERT_TRUE(process.waitForFinished(30000));
    const QByteArray out = process.readAllStandardOutput();
    EXPECT_TRUE(out.contains("\x1b[1;38;5;196mHarbour\x1b[0m \x1b[1;38;5;34mlights\x1b[0m over the "
                             "\x1b[1;38;5;196mharbour\x1b[0m."))
        << out.toStdString();
}

TEST(TrovaPreview, FilesWithoutTextAndBadArgumentsAreRefused)
{
    const Outcome binary =
        trova({QStringLiteral("preview"), writeFile(QStringLiteral("blob.bin"), QByteArray("\x7f" "ELF\x02\x01\x01\0", 8))});
    EXPECT_EQ(binary.status, 1);
    EXPECT_TRUE(binary.err.contains("no text in this file")) << binary.err.toStdString();
    const Outcome missing = trova({QStringLiteral("preview"), QDir::homePath() + QStringLiteral("/gone.txt")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.contains("The file cannot be read: No such file or directory")) << missing.err.toStdString();
    EXPECT_EQ(trova({QStringLiteral("preview")}).status, 2);
    EXPECT_EQ(trova({QStringLiteral("preview"), QStringLiteral("-x"), QStringLiteral("f")}).status, 2);
    EXPECT_EQ(trova({QStringLiteral("preview"), QStringLiteral("a"), QStringLiteral("b")}).status, 2);
}

TEST(CriteriaText, PrintsTheQueryTextOfAFileOrStandardInput)
{
    const QByteArray json = R"({"operator":"AND","children":[
        {"attribute":"kMDItemDisplayName","operator":"contains","string":"report"},
        {"attribute":"kMDItemFSSize","operator":"greaterThan","number":5,"unit":"MB"}]})";
    const QByteArray expected = "((kMDItemDisplayName == '*report*'cd) && (kMDItemFSSize > '5000000'))\n";

    Outcome fromFile = trova({QStringLiteral("criteria-text"), writeFile(QStringLiteral("c.json"), json)});
    EXPECT_EQ(fromFile.status, 0);
    EXPECT_EQ(fromFile.out, expected);
    EXPECT_TRUE(fromFile.err.isEmpty()) << fromFile.err.toStdString();

    Outcome fromInput = trova({QStringLiteral("criteria-text"), QStringLiteral("-")}, json);
    EXPECT_EQ(fromInput.status, 0);
    EXPECT_EQ(fromInput.out, expected);
}

TEST(CriteriaText, AnEmptyExpressionIsAnEmptyLine)
{
    Outcome run = trova({QStringLiteral("criteria-text"), QStringLiteral("-")},
                    R"({"operator":"AND","children":[{"attribute":"kMDItemDisplayName","string":""}]})");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, QByteArray("\n"));
}

TEST(CriteriaText, UsesTheProcessTimeZone)
{
    const QByteArray json =
        R"({"operator":"AND","children":[{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2009-06-15"}]})";
    EXPECT_EQ(trova({QStringLiteral("criteria-text"), QStringLiteral("-")}, json, QStringLiteral("UTC")).out,
              QByteArray("(((kMDItemFSCreationDate >= '266716800') && (kMDItemFSCreationDate < '266803200') ))\n"));
    EXPECT_EQ(trova({QStringLiteral("criteria-text"), QStringLiteral("-")}, json, QStringLiteral("Europe/Berlin")).out,
              QByteArray("(((kMDItemFSCreationDate >= '266709600') && (kMDItemFSCreationDate < '266796000') ))\n"));
}

TEST(CriteriaText, BadInputIsAMessageWithItsPositionAndStatusTwo)
{
    struct Case {
        QByteArray input;
        const char* message;
    };
    const Case cases[] = {
        {"{\"operator\": \"AND\",\n \"children\": [", "<stdin>: Malformed JSON: line 2, column 15: expected a value"},
        {"{\"children\": [{\"attribute\": \"x\", \"size\": 3}]}",
         "<stdin>: Invalid criteria: line 1, column 42: unknown field \"size\" in a row"},
        {"{\"children\": [{\"attribute\": \"x\", \"number\": true}]}", "\"number\" must be a number, not a Boolean"},
    };
    for (const Case& c : cases) {
        Outcome run = trova({QStringLiteral("criteria-text"), QStringLiteral("-")}, c.input);
        EXPECT_EQ(run.status, 2) << c.input.toStdString();
        EXPECT_TRUE(run.out.isEmpty()) << c.input.toStdString();
        EXPECT_TRUE(run.err.startsWith("trova: ")) << run.err.toStdString();
        EXPECT_TRUE(run.err.contains(c.message)) << run.err.toStdString();
    }
}

TEST(CriteriaText, MissingFilesAndWrongArgumentsAreRefused)
{
    Outcome missing = trova({QStringLiteral("criteria-text"), QDir::homePath() + QStringLiteral("/none.json")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_TRUE(missing.err.contains("none.json")) << missing.err.toStdString();
    EXPECT_TRUE(missing.out.isEmpty());

    EXPECT_EQ(trova({QStringLiteral("criteria-text")}).status, 2);
    EXPECT_EQ(trova({QStringLiteral("criteria-text"), QStringLiteral("a"), QStringLiteral("b")}).status, 2);
    Outcome unknown = trova({QStringLiteral("frobnicate")});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(unknown.err.contains("unknown command")) << unknown.err.toStdString();
    EXPECT_EQ(trova({}).status, 2);
    Outcome help = trova({QStringLiteral("--help")});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.contains("criteria-text"));
}

}  // namespace

namespace {

class TrovaIndex : public ::testing::Test {
protected:
    TrovaIndex()
        : tree(QDir::homePath() + QStringLiteral("/cli-tree"))
        , index(QDir::homePath() + QStringLiteral("/cli-index"))
    {
        QDir().mkpath(tree + QStringLiteral("/Documents/Old"));
        QDir().mkpath(tree + QStringLiteral("/.secret"));
        writeFile(QStringLiteral("cli-tree/Documents/Report 2024.txt"), "quarterly figures\n");
        writeFile(QStringLiteral("cli-tree/Documents/Old/report-old.txt"), "old");
        writeFile(QStringLiteral("cli-tree/Documents/big.bin"), QByteArray(300000, 'b'));
        writeFile(QStringLiteral("cli-tree/.secret/report.key"), "k");
    }
    ~TrovaIndex() override
    {
        QDir(tree).removeRecursively();
        QDir(index).removeRecursively();
    }

    Outcome run(QStringList arguments)
    {
        arguments.prepend(index);
        arguments.prepend(QStringLiteral("--index"));
        return trova(arguments);
    }

    static QStringList lines(const QByteArray& output)
    {
        QStringList list = QString::fromUtf8(output).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        list.sort();
        return list;
    }

    const QString tree;
    const QString index;
};

TEST_F(TrovaIndex, IndexesAFolderAndFindsInIt)
{
    Outcome added = run({"index", "add", tree});
    ASSERT_EQ(added.status, 0) << added.err.toStdString();
    EXPECT_TRUE(added.err.contains("added: 4 folders, 4 files")) << added.err.toStdString();

    Outcome byName = run({"find", R"(kMDItemDisplayName == "*report*"cd)"});
    EXPECT_EQ(byName.status, 0);
    EXPECT_EQ(lines(byName.out), QStringList({tree + "/.secret/report.key", tree + "/Documents/Old/report-old.txt",
                                              tree + "/Documents/Report 2024.txt"}));
    EXPECT_EQ(run({"find", "-count", R"(kMDItemDisplayName == "*report*"cd)"}).out, QByteArray("3\n"));
    EXPECT_EQ(lines(run({"find", "-name", "BIG"}).out), QStringList{tree + "/Documents/big.bin"});
    EXPECT_EQ(lines(run({"find", "kMDItemFSSize > 100000"}).out), QStringList{tree + "/Documents/big.bin"});
    // Plain words are what a person means: words beginning so, in any text.
    EXPECT_EQ(lines(run({"find", "report", "2024"}).out), QStringList{tree + "/Documents/Report 2024.txt"});
    EXPECT_EQ(lines(run({"find", "-onlyin", tree + "/Documents/Old", "report"}).out),
              QStringList{tree + "/Documents/Old/report-old.txt"});
    Outcome nul = run({"find", "-0", "-name", "report-old"});
    EXPECT_EQ(nul.out, (tree + "/Documents/Old/report-old.txt").toUtf8() + QByteArray(1, '\0'));

    Outcome status = run({"index", "status"});
    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(status.out.contains(tree.toUtf8() + "  (complete")) << status.out.toStdString();
    EXPECT_TRUE(status.out.contains("items: 8")) << status.out.toStdString();
}

TEST_F(TrovaIndex, SearchesAFolderOutsideTheIndexByCrawlingIt)
{
    run({"index", "add", tree + "/Documents"});
    Outcome all = run({"find", "-onlyin", tree, R"(kMDItemFSName == "report*"c)"});
    EXPECT_EQ(all.status, 0) << all.err.toStdString();
    EXPECT_EQ(lines(all.out), QStringList({tree + "/.secret/report.key", tree + "/Documents/Old/report-old.txt",
                                           tree + "/Documents/Report 2024.txt"}));
    // Without an index at all, a folder is still searched.
    QDir(index).removeRecursively();
    Outcome crawled = run({"find", "-onlyin", tree, "-name", "key"});
    EXPECT_EQ(crawled.status, 0) << crawled.err.toStdString();
    EXPECT_EQ(lines(crawled.out), QStringList{tree + "/.secret/report.key"});
}

TEST_F(TrovaIndex, BadInputGetsAMessageAndAStatus)
{
    Outcome noIndex = run({"find", "report"});
    EXPECT_EQ(noIndex.status, 1);
    EXPECT_TRUE(noIndex.err.contains("trova index add")) << noIndex.err.toStdString();

    run({"index", "add", tree});
    Outcome badQuery = run({"find", "kMDItemFSSize > && x"});
    EXPECT_EQ(badQuery.status, 1);
    EXPECT_TRUE(badQuery.err.contains("invalid query: position")) << badQuery.err.toStdString();
    EXPECT_TRUE(badQuery.out.isEmpty());

    Outcome missingScope = run({"find", "-onlyin", tree + "/nowhere", "report"});
    EXPECT_EQ(missingScope.status, 1);
    EXPECT_TRUE(missingScope.err.contains("nowhere")) << missingScope.err.toStdString();

    Outcome notAFolder = run({"index", "add", tree + "/Documents/big.bin"});
    EXPECT_EQ(notAFolder.status, 1);
    EXPECT_TRUE(notAFolder.err.contains("not a folder")) << notAFolder.err.toStdString();

    EXPECT_EQ(run({"index", "add"}).status, 2);
    EXPECT_EQ(run({"find", "-bogus", "x"}).status, 2);
    EXPECT_EQ(run({"ls", tree + "/none"}).status, 1);
}

TEST_F(TrovaIndex, ADamagedIndexIsReportedAndRebuilt)
{
    run({"index", "add", tree});
    writeFile(QStringLiteral("cli-index/index.db"), QByteArray(20000, 'x'));
    QFile::remove(index + QStringLiteral("/index.db-wal"));
    Outcome refused = run({"find", "-name", "report"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.err.contains("rebuild")) << refused.err.toStdString();

    Outcome rebuilt = run({"index", "rebuild"});
    EXPECT_EQ(rebuilt.status, 0) << rebuilt.err.toStdString();
    EXPECT_EQ(run({"find", "-count", "-name", "report"}).out, QByteArray("3\n"));
}

TEST_F(TrovaIndex, PunctuationAloneOrUnbalancedParenthesesAreAnErrorNotEverything)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    for (const QString& query : {QStringLiteral("."), QStringLiteral("("), QStringLiteral("*"), QStringLiteral("…"),
                                 QString(10000, QLatin1Char('('))}) {
        Outcome refused = run({"find", "-count", query});
        EXPECT_EQ(refused.status, 1) << query.left(20).toStdString();
        EXPECT_TRUE(refused.err.startsWith("trova: invalid query: position ")) << refused.err.left(200).toStdString();
        EXPECT_TRUE(refused.out.isEmpty()) << refused.out.toStdString();
    }
    Outcome outOfRange = run({"find", "kMDItemFSSize < 1e999"});
    EXPECT_EQ(outOfRange.status, 1);
    EXPECT_TRUE(outOfRange.err.contains("position 17")) << outOfRange.err.toStdString();
    const QByteArray positive = run({"find", "-count", "kMDItemFSSize > 0"}).out;
    EXPECT_NE(positive, QByteArray("0\n"));
    EXPECT_EQ(run({"find", "-count", "kMDItemFSSize > 1e-400"}).out, positive);
}

TEST_F(TrovaIndex, ALostDatabaseIsBuiltAgainFromTheRootsByRebuild)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    for (const char* suffix : {"", "-wal", "-shm"}) {
        QFile::remove(index + QStringLiteral("/index.db") + QLatin1String(suffix));
    }
    writeFile(QStringLiteral("cli-index/index.db"), {});
    Outcome refused = run({"find", "-name", "report"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.err.contains("trova index rebuild")) << refused.err.toStdString();

    Outcome rebuilt = run({"index", "rebuild"});
    EXPECT_EQ(rebuilt.status, 0) << rebuilt.err.toStdString();
    EXPECT_TRUE(rebuilt.err.contains("rebuilt: 4 folders, 4 files")) << rebuilt.err.toStdString();
    EXPECT_EQ(run({"find", "-count", "-name", "report"}).out, QByteArray("3\n"));
}

TEST_F(TrovaIndex, ADatabaseDamagedPastItsHeaderIsMovedAsideByUpdateAndBuiltAgain)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    const QString database = index + QStringLiteral("/index.db");
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(QFile::encodeName(database).constData(), &db), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT rootpage, (SELECT page_size FROM pragma_page_size) FROM sqlite_master "
                                     "WHERE name = 'items'", -1, &statement, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    const qint64 page = sqlite3_column_int64(statement, 0);
    const qint64 pageSize = sqlite3_column_int64(statement, 1);
    sqlite3_finalize(statement);
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    QFile file(database);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.seek((page - 1) * pageSize));
    file.write(QByteArray(pageSize, 'Z'));
    file.close();

    Outcome updated = run({"index", "update"});
    EXPECT_EQ(updated.status, 0) << updated.err.toStdString();
    EXPECT_TRUE(updated.err.contains("malformed")) << updated.err.toStdString();
    EXPECT_TRUE(updated.err.contains("moved aside as index.db.broken")) << updated.err.toStdString();
    EXPECT_TRUE(QFileInfo::exists(database + QStringLiteral(".broken")));
    EXPECT_EQ(run({"find", "-count", "-name", "report"}).out, QByteArray("3\n"));
}

TEST_F(TrovaIndex, DocRefusesAPipeOrAFolderWithoutWaitingForIt)
{
    const QString pipe = QDir::homePath() + QStringLiteral("/pipe.trova");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    const QString folder = QDir::homePath() + QStringLiteral("/d.trova");
    ASSERT_TRUE(QDir().mkpath(folder));
    for (const char* verb : {"show", "run"}) {
        Outcome piped = run({"doc", verb, pipe});
        EXPECT_EQ(piped.status, 1) << verb;
        EXPECT_TRUE(piped.err.contains("pipe")) << piped.err.toStdString();
        Outcome folderShown = run({"doc", verb, folder});
        EXPECT_EQ(folderShown.status, 1) << verb;
        EXPECT_TRUE(folderShown.err.contains("is a folder, not a search document")) << folderShown.err.toStdString();
        EXPECT_TRUE(folderShown.out.isEmpty()) << folderShown.out.toStdString();
    }
    QFile::remove(pipe);
    QDir(folder).removeRecursively();
}

TEST_F(TrovaIndex, PathsThatAreNotUtf8ReachTheFileSystemByteForByte)
{
    // "café" and "résumé" in Latin-1: bytes no UTF-8 decoder keeps.
    const QByteArray folder = QFile::encodeName(tree) + "/caf\xe9";
    const QByteArray file = folder + "/r\xe9sum\xe9.txt";
    ASSERT_EQ(::mkdir(folder.constData(), 0755), 0);
    {
        FILE* raw = std::fopen(file.constData(), "w");
        ASSERT_TRUE(raw);
        std::fputs("curriculum\n", raw);
        std::fclose(raw);
    }
    // Arguments as raw bytes, through the shell (printf makes the bytes).
    const auto rawRun = [&](const QString& script) {
        QProcess process;
        process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), script, QStringLiteral("sh"),
                                                  QStringLiteral(TROVA_BINARY), index, tree});
        return finished(process);
    };
    const QString folderArgument = QStringLiteral(R"sh("$(printf '%s/caf\351' "$3")")sh");
    const QString fileArgument = QStringLiteral(R"sh("$(printf '%s/caf\351/r\351sum\351.txt' "$3")")sh");
    const QString trova = QStringLiteral(R"sh("$1" --index "$2" )sh");
    Outcome added = rawRun(trova + QStringLiteral("index add ") + folderArgument);
    ASSERT_EQ(added.status, 0) << added.err.toStdString();
    Outcome found = rawRun(trova + QStringLiteral("find -onlyin ") + folderArgument + QStringLiteral(" -name sum"));
    EXPECT_EQ(found.status, 0) << found.err.toStdString();
    EXPECT_EQ(found.out, file + "\n");
    Outcome listed = rawRun(trova + QStringLiteral("ls ") + fileArgument);
    EXPECT_EQ(listed.status, 0) << listed.err.toStdString();
    EXPECT_TRUE(listed.out.contains("kMDItemFSSize") && listed.out.contains(" = 11\n")) << listed.out.toStdString();
    Outcome imported = rawRun(trova + QStringLiteral("import ") + fileArgument);
    EXPECT_EQ(imported.status, 0) << imported.err.toStdString();
    EXPECT_TRUE(imported.out.contains("curriculum")) << imported.out.toStdString();
    Outcome removed = rawRun(trova + QStringLiteral("index remove ") + folderArgument);
    EXPECT_EQ(removed.status, 0) << removed.err.toStdString();
}

TEST_F(TrovaIndex, PlainWordsLookInContentsInFoldersOutsideTheIndexToo)
{
    // Nothing indexed: the folder is crawled, and its files read.
    Outcome words = run({"find", "-onlyin", tree, "quarterly"});
    EXPECT_EQ(words.status, 0) << words.err.toStdString();
    EXPECT_EQ(lines(words.out), QStringList{tree + "/Documents/Report 2024.txt"});
    Outcome content = run({"find", "-onlyin", tree, R"(kMDItemTextContent == "figure*"cd)"});
    EXPECT_EQ(lines(content.out), QStringList{tree + "/Documents/Report 2024.txt"});
    // The same as the index answers.
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    EXPECT_EQ(lines(run({"find", "quarterly"}).out), lines(words.out));
}

TEST_F(TrovaIndex, LsShowsEveryAttributeOfIndexedAndOtherFiles)
{
    run({"index", "add", tree + "/Documents"});
    for (const QString& file : {tree + "/Documents/Report 2024.txt", tree + "/.secret/report.key"}) {
        Outcome ls = run({"ls", file});
        ASSERT_EQ(ls.status, 0) << ls.err.toStdString();
        const QStringList rows = QString::fromUtf8(ls.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QStringList keys;
        for (const QString& row : rows) {
            keys << row.section(QLatin1Char(' '), 0, 0);
        }
        QStringList sorted = keys;
        sorted.sort();
        EXPECT_EQ(keys, sorted) << "sorted by key";
        const QString text = QString::fromUtf8(ls.out);
        EXPECT_TRUE(text.contains(QRegularExpression(QStringLiteral("kMDItemFSName +=  ?\"")))) << text.toStdString();
        EXPECT_TRUE(text.contains(QRegularExpression(
            QStringLiteral("kMDItemFSContentChangeDate += \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\+0000"))))
            << text.toStdString();
        EXPECT_TRUE(text.contains(QRegularExpression(QStringLiteral("kMDItemContentTypeTree += \\(\"public"))))
            << text.toStdString();
        EXPECT_TRUE(text.contains(QStringLiteral("kMDItemPath"))) << text.toStdString();
    }
    Outcome folder = run({"ls", tree + "/Documents"});
    EXPECT_TRUE(folder.out.contains("kMDItemFSNodeCount")) << folder.out.toStdString();
    EXPECT_FALSE(folder.out.contains("kMDItemFSSize")) << "folders have no size";
}

}  // namespace

namespace {

// Reads a running process's output until it holds every one of `wanted`.
bool readUntil(QProcess& process, QByteArray& seen, const QList<QByteArray>& wanted)
{
    auto complete = [&] {
        return std::all_of(wanted.begin(), wanted.end(), [&](const QByteArray& line) { return seen.contains(line); });
    };
    while (!complete()) {
        if (!process.waitForReadyRead(30000)) {
            return false;
        }
        seen += process.readAllStandardOutput();
    }
    return true;
}

TEST_F(TrovaIndex, FindLivePrintsTheResultsThenEveryChange)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    QProcess live;
    live.start(QStringLiteral(TROVA_BINARY), {"--index", index, "find", "-live", "-name", "report"});
    QByteArray seen;
    ASSERT_TRUE(readUntil(live, seen, {(tree + "/Documents/Old/report-old.txt\n").toUtf8(),
                                       (tree + "/Documents/Report 2024.txt\n").toUtf8()}))
        << seen.toStdString() << live.readAllStandardError().toStdString();

    writeFile(QStringLiteral("cli-tree/new report.txt"), "new");
    ASSERT_TRUE(readUntil(live, seen, {("+ " + tree + "/new report.txt\n").toUtf8()})) << seen.toStdString();
    ASSERT_TRUE(QFile::rename(tree + "/new report.txt", tree + "/Documents/moved report.txt"));
    ASSERT_TRUE(readUntil(live, seen, {("- " + tree + "/new report.txt\n").toUtf8(),
                                       ("+ " + tree + "/Documents/moved report.txt\n").toUtf8()}))
        << seen.toStdString();
    ASSERT_TRUE(QFile::remove(tree + "/Documents/Old/report-old.txt"));
    ASSERT_TRUE(readUntil(live, seen, {("- " + tree + "/Documents/Old/report-old.txt\n").toUtf8()}))
        << seen.toStdString();

    live.terminate();
    ASSERT_TRUE(live.waitForFinished(30000));
    EXPECT_EQ(live.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(live.exitCode(), 0) << live.readAllStandardError().toStdString();
    // The index it kept while it ran is there for the next search.
    EXPECT_EQ(lines(run({"find", "-name", "moved"}).out), QStringList{tree + "/Documents/moved report.txt"});
}

TEST_F(TrovaIndex, SearchPrintsTheRowsAsTheResultTableShowsThemThenTheStatusLine)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    const QString reports = QStringLiteral(R"(kMDItemDisplayName == "*report*"cd)");

    Outcome all = run({"search", "-column", "kMDItemDisplayName", "-column", "kMDItemFSSize", "-sortby",
                       "kMDItemFSSize", reports});
    EXPECT_EQ(all.status, 0) << all.err.toStdString();
    EXPECT_EQ(all.out, QByteArray("report.key\t1.000 Bytes\n"
                                  "report-old.txt\t3.000 Bytes\n"
                                  "Report 2024.txt\t18.000 Bytes\n"
                                  "3 files found\n"));

    Outcome descending = run({"search", "-column", "kMDItemFSSize", "-descending", reports});
    EXPECT_EQ(descending.out, QByteArray("18.000 Bytes\n3.000 Bytes\n1.000 Bytes\n3 files found\n"));

    // The quick filter hides rows and says so; the count stays the query's.
    Outcome filtered = run({"search", "-exclude-path", "SECRET", reports});
    EXPECT_EQ(lines(filtered.out), QStringList({tree + "/Documents/Old/report-old.txt", tree + "/Documents/Report 2024.txt",
                                                "2 of 3 shown"}));

    // An excluded folder is a plain prefix of the path.
    Outcome excluded = run({"search", "-exclude", tree + "/Documents/O", reports});
    EXPECT_EQ(lines(excluded.out),
              QStringList({tree + "/.secret/report.key", tree + "/Documents/Report 2024.txt", "2 files found"}));

    Outcome limited = run({"search", "-limit", "1", "-limitkey", "kMDItemFSSize", reports});
    EXPECT_EQ(limited.out, (tree + "/Documents/Report 2024.txt\n1 file found\n").toUtf8());
    Outcome earliest = run({"search", "-limit", "1", "-limitkey", "kMDItemFSSize", "-earliest", reports});
    EXPECT_EQ(earliest.out, (tree + "/.secret/report.key\n1 file found\n").toUtf8());

    Outcome nothing = run({"search", "-onlyin", tree + "/Documents/Old", R"(kMDItemDisplayName == "*zzz*")"});
    EXPECT_EQ(nothing.status, 0);
    EXPECT_EQ(nothing.out, QByteArray("No files found\n"));
}

TEST_F(TrovaIndex, SearchLivePrintsTheStatusLineAsFilesChange)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    QProcess live;
    live.start(QStringLiteral(TROVA_BINARY),
               {"--index", index, "search", "-live", "-onlyin", tree + "/Documents", R"(kMDItemDisplayName == "*report*"cd)"});
    QByteArray seen;
    ASSERT_TRUE(readUntil(live, seen, {"2 files found\n"})) << seen.toStdString();
    writeFile(QStringLiteral("cli-tree/Documents/third report.txt"), "3");
    ASSERT_TRUE(readUntil(live, seen, {"3 files found\n"})) << seen.toStdString();
    ASSERT_TRUE(QFile::remove(tree + "/Documents/Old/report-old.txt"));
    ASSERT_TRUE(QFile::remove(tree + "/Documents/third report.txt"));
    ASSERT_TRUE(readUntil(live, seen, {"1 file found\n"})) << seen.toStdString();
    live.terminate();
    ASSERT_TRUE(live.waitForFinished(30000));
    EXPECT_EQ(live.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(live.exitCode(), 0) << live.readAllStandardError().toStdString();
}

TEST_F(TrovaIndex, SearchRefusesBadArgumentsAndQueriesItCannotRun)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    Outcome limit = run({"search", "-limit", "many", "report"});
    EXPECT_EQ(limit.status, 2);
    EXPECT_TRUE(limit.err.contains("-limit takes a whole number")) << limit.err.toStdString();
    EXPECT_EQ(run({"search", "-sortby", "kMDItemFSSize", "report"}).status, 2);
    EXPECT_EQ(run({"search", "-column"}).status, 2);
    EXPECT_EQ(run({"search", "-name", "report"}).status, 2);
    Outcome bad = run({"search", "kMDItemFSSize > && x"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(bad.err.startsWith("trova: invalid query")) << bad.err.toStdString();
    Outcome missing = run({"search", "-onlyin", tree + "/nowhere", "report"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_FALSE(missing.err.isEmpty());
}

TEST_F(TrovaIndex, DocWritesShowsAndRunsASearchDocument)
{
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    const QString criteria = writeFile(QStringLiteral("doc-criteria.json"), R"({"operator": "AND", "children": [
        {"attribute": "kMDItemDisplayName", "operator": "contains", "string": "report"}]})");
    const QString document = QDir::homePath() + "/Reports.trova";
    Outcome made = run({"doc", "new", "--criteria", criteria, "--scope", tree, "--exclude", tree + "/Documents/Old",
                        "--limit", "10", "--limit-by", "kMDItemFSSize", "--ascending", "--column",
                        "kMDItemDisplayName", "--column", "kMDItemFSSize", "-o", document});
    ASSERT_EQ(made.status, 0) << made.err.toStdString();

    Outcome shown = run({"doc", "show", document});
    EXPECT_EQ(shown.status, 0) << shown.err.toStdString();
    const QString text = QString::fromUtf8(shown.out);
    for (const QString& expected :
         {QStringLiteral("\"string\": \"report\""), QStringLiteral("expression: ((kMDItemDisplayName == '*report*'cd))"),
          QStringLiteral("query: ((kMDItemDisplayName == '*report*'cd))"),
          // Places in the home folder are kept with "~".
          QStringLiteral("scopes:\n  ~/cli-tree\n"), QStringLiteral("exclusions:\n  ~/cli-tree/Documents/Old\n"),
          QStringLiteral("limit: 10 by kMDItemFSSize, earliest"),
          QStringLiteral("columns:\n  kMDItemDisplayName\n  kMDItemFSSize\nsettings"),
          QStringLiteral("runState = NO")}) {
        EXPECT_TRUE(text.contains(expected)) << expected.toStdString() << "\nin:\n" << text.toStdString();
    }

    // Saved as running, for a window to start it when it opens it.
    const QString running = QDir::homePath() + "/Running.trova";
    ASSERT_EQ(run({"doc", "new", "--criteria", criteria, "--scope", tree, "--running", "-o", running}).status, 0);
    EXPECT_TRUE(QString::fromUtf8(run({"doc", "show", running}).out).contains("runState = YES"));

    Outcome ran = run({"doc", "run", document});
    EXPECT_EQ(ran.status, 0) << ran.err.toStdString();
    const QStringList rows = QString::fromUtf8(ran.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(rows.size(), 3) << ran.out.toStdString();
    EXPECT_TRUE(rows[0].startsWith("report.key\t") || rows[1].startsWith("report.key\t")) << ran.out.toStdString();
    EXPECT_EQ(rows.last(), "2 files found");

    // Bad input: a message, a status, and the file untouched.
    const QString damaged = writeFile(QStringLiteral("Damaged.trova"), "no search here");
    Outcome unreadable = run({"doc", "show", damaged});
    EXPECT_EQ(unreadable.status, 1);
    EXPECT_TRUE(unreadable.err.contains("Damaged.trova")) << unreadable.err.toStdString();
    QFile check(damaged);
    ASSERT_TRUE(check.open(QIODevice::ReadOnly));
    EXPECT_EQ(check.readAll(), QByteArray("no search here"));
    EXPECT_EQ(run({"doc", "run", damaged}).status, 1);
    EXPECT_EQ(run({"doc", "new", "--scope", tree}).status, 2);
    EXPECT_EQ(run({"doc", "new", "--limit", "x", "-o", document}).status, 2);
    EXPECT_EQ(run({"doc", "frobnicate"}).status, 2);
    Outcome badCriteria = run({"doc", "new", "--criteria", writeFile(QStringLiteral("bad.json"), "{"), "-o",
                               QDir::homePath() + "/Never.trova"});
    EXPECT_EQ(badCriteria.status, 1);
    EXPECT_FALSE(QFileInfo::exists(QDir::homePath() + "/Never.trova"));
}

TEST_F(TrovaIndex, FindLiveRefusesWhatItCannotDo)
{
    Outcome counted = run({"find", "-live", "-count", "x"});
    EXPECT_EQ(counted.status, 2);
    Outcome bad = run({"find", "-live", "kMDItemFSName == "});
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(bad.err.startsWith("trova: invalid query")) << bad.err.toStdString();
}

}  // namespace

namespace {

std::set<std::string> findOutput(const QStringList& arguments)
{
    QProcess find;
    find.start(QStringLiteral("find"), arguments);
    find.waitForFinished(60000);
    std::set<std::string> paths;
    for (const QByteArray& line : find.readAllStandardOutput().split('\n')) {
        if (!line.isEmpty()) {
            paths.insert(line.toStdString());
        }
    }
    return paths;
}

// trova with a daemon: started, used by every command, stopped; killed
// outright at any moment, it comes back to a consistent index.
class TrovaDaemon : public TrovaIndex {
protected:
    ~TrovaDaemon() override { run({"daemon", "stop"}); }

    qint64 daemonPid()
    {
        const QByteArray out = run({"daemon", "status"}).out;
        const QRegularExpressionMatch match = QRegularExpression(QStringLiteral("pid (\\d+)")).match(QString::fromUtf8(out));
        return match.hasMatch() ? match.captured(1).toLongLong() : 0;
    }

    QString daemonLog() const
    {
        QFile log(index + QStringLiteral("/daemon.log"));
        return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
    }
};

TEST_F(TrovaDaemon, StartsServesEveryCommandAndStops)
{
    Outcome idle = run({"daemon", "status"});
    EXPECT_EQ(idle.status, 3);
    EXPECT_TRUE(idle.out.startsWith("the daemon is not running")) << idle.out.toStdString();

    Outcome started = run({"daemon", "start"});
    ASSERT_EQ(started.status, 0) << started.err.toStdString();
    EXPECT_TRUE(started.out.startsWith("the daemon is running (pid ")) << started.out.toStdString();
    EXPECT_TRUE(run({"daemon", "start"}).out.startsWith("the daemon is already running"));

    Outcome added = run({"index", "add", tree});
    ASSERT_EQ(added.status, 0) << added.err.toStdString();
    EXPECT_TRUE(added.err.contains("added: 4 folders, 4 files")) << added.err.toStdString();
    Outcome found = run({"find", "-name", "report"});
    EXPECT_EQ(lines(found.out), QStringList({tree + "/.secret/report.key", tree + "/Documents/Old/report-old.txt",
                                             tree + "/Documents/Report 2024.txt"}));
    // A change the daemon saw is in the very next search.
    writeFile(QStringLiteral("cli-tree/late report.txt"), "late");
    QByteArray seen;
    for (int attempt = 0; attempt < 200 && !seen.contains("late report"); ++attempt) {
        seen = run({"find", "-name", "late"}).out;
    }
    EXPECT_EQ(lines(seen), QStringList{tree + "/late report.txt"});

    Outcome status = run({"daemon", "status"});
    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(status.out.contains("roots: 1, items: 9")) << status.out.toStdString();
    EXPECT_TRUE(status.out.contains("watched folders: 4")) << status.out.toStdString();
    Outcome indexStatus = run({"index", "status"});
    EXPECT_TRUE(indexStatus.out.contains("items: 9")) << indexStatus.out.toStdString();

    Outcome stopped = run({"daemon", "stop"});
    EXPECT_EQ(stopped.status, 0);
    EXPECT_EQ(stopped.out, QByteArray("the daemon has stopped\n"));
    EXPECT_EQ(run({"daemon", "status"}).status, 3);
    // Without it, the index is there for trova alone.
    EXPECT_EQ(lines(run({"find", "-name", "late"}).out), QStringList{tree + "/late report.txt"});
}

TEST_F(TrovaDaemon, AKilledDaemonRestartsIntoAConsistentIndex)
{
    // Enough to be in the middle of something when the kill comes.
    for (int folder = 0; folder < 40; ++folder) {
        const QString name = QStringLiteral("cli-tree/bulk/f%1").arg(folder);
        QDir().mkpath(QDir::homePath() + QLatin1Char('/') + name);
        for (int file = 0; file < 50; ++file) {
            writeFile(name + QStringLiteral("/item %1.txt").arg(file), "x");
        }
    }
    for (const int delay : {0, 20, 80, 200}) {
        const Outcome started = run({"daemon", "start"});
        ASSERT_EQ(started.status, 0) << started.err.toStdString() << daemonLog().toStdString();
        const qint64 pid = daemonPid();
        ASSERT_GT(pid, 0);
        QProcess adding;
        adding.start(QStringLiteral(TROVA_BINARY), {"--index", index, "index", "add", tree});
        adding.waitForStarted();
        QThread::msleep(static_cast<unsigned long>(delay));  // where the kill lands, not a wait for a result
        ::kill(static_cast<pid_t>(pid), SIGKILL);
        adding.waitForFinished(30000);
        // Files keep changing while nobody watches.
        writeFile(QStringLiteral("cli-tree/bulk/f0/after kill %1.txt").arg(delay), "k");
    }
    ASSERT_EQ(run({"daemon", "start"}).status, 0);
    ASSERT_EQ(run({"index", "add", tree}).status, 0);
    ASSERT_EQ(run({"index", "update"}).status, 0);
    const std::set<std::string> onDisk = findOutput({tree});
    Outcome all = run({"find", "kMDItemFSName == '*'"});
    std::set<std::string> indexed;
    for (const QString& line : lines(all.out)) {
        indexed.insert(line.toStdString());
    }
    EXPECT_EQ(indexed, onDisk);
}

}  // namespace
