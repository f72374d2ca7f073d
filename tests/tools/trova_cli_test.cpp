// The trova command as a person runs it: arguments, standard input and
// output, exit status, messages, and the process's time zone.
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

namespace {

struct Outcome {
    int status = -1;
    QByteArray out;
    QByteArray err;
};

Outcome trova(const QStringList& arguments, const QByteArray& input = {}, const QString& timeZone = QStringLiteral("UTC"))
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TZ"), timeZone);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(TROVA_BINARY), arguments);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(30000));
    Outcome run;
    run.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

QString writeFile(const QString& name, const QByteArray& contents)
{
    const QString path = QDir::homePath() + QLatin1Char('/') + name;
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(contents);
    return path;
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
