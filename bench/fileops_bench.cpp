// Copy throughput of file operation jobs, side by side with cp on the same
// disk, and how long the main thread's event loop stalls while a job runs.
//
//   fileops_bench [--dir /var/tmp/fileops-bench] [--small 10000] [--big-mb 2048]
//                 [--runs 3] [--results bench/RESULTS.md]
//
// Makes a tree in --dir (10,000 small files of 1 to 16 KiB and one large
// file), then for each case copies it with `cp -r` and with a job (threads
// as the job uses them: one per processor), alternately, --runs times, and
// reports the median of each. Page cache warm for both (one untimed copy
// each first); `sync` between runs so one run's write-back does not slow
// the next. The stall is the longest gap between ticks of a 1 ms timer on
// the job's thread during the job. Everything it made is removed at the end.
#include "fileops/vm_file_operation_controller.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QStorageInfo>
#include <QSysInfo>
#include <QTextStream>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using trovara::fileops::FileOperation;
using trovara::fileops::VMFileOperationController;

namespace {

struct Options {
    QString dir = QStringLiteral("/var/tmp/fileops-bench");
    int small = 10000;
    qint64 bigMegabytes = 2048;
    int runs = 3;
    QString results;
};

struct Measure {
    double seconds = 0;
    double stallMs = 0;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

void sync()
{
    QProcess::execute(QStringLiteral("sync"), {});
}

qint64 makeTree(const Options& options)
{
    QDir().mkpath(options.dir + QStringLiteral("/src/small"));
    qint64 bytes = 0;
    QByteArray block(16 * 1024, Qt::Uninitialized);
    for (char& c : block) {
        c = char(QRandomGenerator::global()->bounded(256));
    }
    for (int i = 0; i < options.small; ++i) {
        QFile file(QStringLiteral("%1/src/small/file-%2.dat").arg(options.dir).arg(i, 5, 10, QLatin1Char('0')));
        file.open(QIODevice::WriteOnly);
        const int size = 1024 + QRandomGenerator::global()->bounded(15 * 1024);
        file.write(block.constData(), size);
        bytes += size;
    }
    QFile big(options.dir + QStringLiteral("/src/big.bin"));
    big.open(QIODevice::WriteOnly);
    QByteArray chunk(8 * 1024 * 1024, Qt::Uninitialized);
    for (char& c : chunk) {
        c = char(QRandomGenerator::global()->bounded(256));
    }
    for (qint64 written = 0; written < options.bigMegabytes * 1024 * 1024; written += chunk.size()) {
        chunk[0] = char(written);
        big.write(chunk);
    }
    big.close();
    sync();
    return bytes;
}

Measure runCp(const QStringList& arguments, const QString& destination)
{
    QDir().mkpath(destination);
    QElapsedTimer timer;
    timer.start();
    QProcess::execute(QStringLiteral("cp"), arguments + QStringList{destination});
    return {timer.nsecsElapsed() / 1e9, 0};
}

Measure runJob(const QStringList& sources, const QString& destination)
{
    QDir().mkpath(destination);
    trovara::fileops::JobEnvironment environment;
    environment.progressInterval = std::chrono::milliseconds(1000);
    QElapsedTimer timer;
    timer.start();
    VMFileOperationController job(sources, destination, FileOperation::Copy, environment);
    // The longest time the event loop went without a turn.
    QElapsedTimer sinceTick;
    sinceTick.start();
    qint64 stall = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        stall = std::max(stall, sinceTick.nsecsElapsed());
        sinceTick.restart();
    });
    ticker.start(1);
    QEventLoop loop;
    QObject::connect(&job, &VMFileOperationController::stopped, &loop, &QEventLoop::quit);
    // The job itself ends only on its 1-second timer; the copy is done when
    // the last transfer reports.
    double seconds = 0;
    int finished = 0;
    QObject::connect(&job, &VMFileOperationController::transferFinished, [&] {
        if (++finished == sources.size()) {
            seconds = timer.nsecsElapsed() / 1e9;
        }
    });
    loop.exec();
    if (seconds == 0) {
        seconds = timer.nsecsElapsed() / 1e9;
    }
    return {seconds, stall / 1e6};
}

// The longest gap between ticks of a 1 ms timer on an idle event loop: what
// the machine alone costs, to tell a job's stalls from the machine's.
double idleStallMs(int milliseconds)
{
    QElapsedTimer sinceTick;
    sinceTick.start();
    qint64 stall = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        stall = std::max(stall, sinceTick.nsecsElapsed());
        sinceTick.restart();
    });
    ticker.start(1);
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
    return stall / 1e6;
}

struct Row {
    QString name;
    qint64 bytes = 0;
    qint64 files = 0;
    double cpSeconds = 0;
    double jobSeconds = 0;
    double stallMs = 0;
};

Row compare(const Options& options, const QString& name, qint64 bytes, qint64 files, const QStringList& cpArguments,
            const QStringList& jobSources)
{
    const QString cpDestination = options.dir + QStringLiteral("/dst-cp");
    const QString jobDestination = options.dir + QStringLiteral("/dst-job");
    std::vector<double> cp;
    std::vector<double> job;
    std::vector<double> stall;
    for (int run = -1; run < options.runs; ++run) {
        const Measure c = runCp(cpArguments, cpDestination);
        QDir(cpDestination).removeRecursively();
        sync();
        const Measure j = runJob(jobSources, jobDestination);
        QDir(jobDestination).removeRecursively();
        sync();
        if (run >= 0) {  // the first round warms the cache
            cp.push_back(c.seconds);
            job.push_back(j.seconds);
            stall.push_back(j.stallMs);
        }
        std::fprintf(stderr, "%s run %d: cp %.3f s, job %.3f s, stall %.1f ms\n", qPrintable(name), run, c.seconds,
                     j.seconds, j.stallMs);
    }
    return {name, bytes, files, median(cp), median(job), *std::max_element(stall.begin(), stall.end())};
}

QString megabytesPerSecond(qint64 bytes, double seconds)
{
    return QString::number(bytes / 1e6 / seconds, 'f', 0) + QStringLiteral(" MB/s");
}

QString report(const Options& options, const std::vector<Row>& rows, double idleStall)
{
    QString text;
    QTextStream out(&text);
    const QStorageInfo storage(options.dir);
    QFile loadFile(QStringLiteral("/proc/loadavg"));
    loadFile.open(QIODevice::ReadOnly);
    const QString load = QString::fromLatin1(loadFile.readAll()).section(QLatin1Char(' '), 0, 2);
    out << "<!-- fileops_bench begin -->\n";
    out << "## Copying files: jobs against cp\n\n";
    out << "- Run: `fileops_bench --dir " << options.dir << " --small " << options.small << " --big-mb "
        << options.bigMegabytes << " --runs " << options.runs << "`, " << QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd HH:mm"))
        << " UTC.\n";
    out << "- Machine: `nproc` " << QThread::idealThreadCount() << ", " << QSysInfo::prettyProductName() << ", kernel "
        << QSysInfo::kernelVersion() << "; " << storage.device() << " (" << storage.fileSystemType()
        << "); load average at the end " << load << " (the machine is shared).\n";
    out << "- Each figure is the median of " << options.runs
        << " runs after one untimed warm-up round (page cache warm for both); `sync` between runs. "
           "The job copies with one thread per processor; its time runs from the job's creation to the last "
           "transfer's report. Stall: the longest gap between ticks of a 1 ms timer on the job's thread; "
           "the same timer on an idle event loop for 5 s, at the start, stalled at most "
        << QString::number(idleStall, 'f', 1) << " ms.\n\n";
    out << "| case | files | bytes | cp -r | job | job / cp throughput | longest stall |\n";
    out << "|---|---|---|---|---|---|---|\n";
    for (const Row& row : rows) {
        out << "| " << row.name << " | " << row.files << " | " << QString::number(row.bytes / 1e6, 'f', 1) << " MB | "
            << QString::number(row.cpSeconds, 'f', 3) << " s (" << megabytesPerSecond(row.bytes, row.cpSeconds)
            << ") | " << QString::number(row.jobSeconds, 'f', 3) << " s ("
            << megabytesPerSecond(row.bytes, row.jobSeconds) << ") | "
            << QString::number(100.0 * row.cpSeconds / row.jobSeconds, 'f', 0) << "% | "
            << QString::number(row.stallMs, 'f', 1) << " ms |\n";
    }
    out << "<!-- fileops_bench end -->\n";
    return text;
}

void writeResults(const QString& path, const QString& section)
{
    QFile file(path);
    QString text;
    if (file.open(QIODevice::ReadOnly)) {
        text = QString::fromUtf8(file.readAll());
        file.close();
    }
    const QString begin = QStringLiteral("<!-- fileops_bench begin -->");
    const QString end = QStringLiteral("<!-- fileops_bench end -->\n");
    const qsizetype from = text.indexOf(begin);
    const qsizetype to = text.indexOf(end);
    if (from >= 0 && to > from) {
        text.replace(from, to + end.size() - from, section);
    } else {
        text += QStringLiteral("\n") + section;
    }
    QFile out(path + QStringLiteral(".new"));
    if (out.open(QIODevice::WriteOnly) && out.write(text.toUtf8()) == text.toUtf8().size() && out.flush()) {
        out.close();
        QFile::remove(path);
        QFile::rename(path + QStringLiteral(".new"), path);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Options options;
    const QStringList arguments = app.arguments();
    for (int i = 1; i + 1 < arguments.size(); i += 2) {
        const QString& option = arguments.at(i);
        const QString& value = arguments.at(i + 1);
        if (option == QStringLiteral("--dir")) {
            options.dir = value;
        } else if (option == QStringLiteral("--small")) {
            options.small = value.toInt();
        } else if (option == QStringLiteral("--big-mb")) {
            options.bigMegabytes = value.toLongLong();
        } else if (option == QStringLiteral("--runs")) {
            options.runs = std::max(1, value.toInt());
        } else if (option == QStringLiteral("--results")) {
            options.results = value;
        } else {
            std::fprintf(stderr, "fileops_bench: unknown option %s\n", qPrintable(option));
            return 2;
        }
    }
    if (QFileInfo::exists(options.dir)) {
        std::fprintf(stderr, "fileops_bench: %s exists; give a folder that does not\n", qPrintable(options.dir));
        return 2;
    }
    std::fprintf(stderr, "making the tree in %s\n", qPrintable(options.dir));
    const qint64 smallBytes = makeTree(options);
    const QString small = options.dir + QStringLiteral("/src/small");
    const QString big = options.dir + QStringLiteral("/src/big.bin");
    QStringList smallFiles;
    for (const QString& name : QDir(small).entryList(QDir::Files, QDir::Name)) {
        smallFiles.push_back(small + QLatin1Char('/') + name);
    }

    const double idle = idleStallMs(5000);
    std::vector<Row> rows;
    rows.push_back(compare(options, QStringLiteral("a folder of small files"), smallBytes, options.small,
                           {QStringLiteral("-r"), small}, {small}));
    rows.push_back(compare(options, QStringLiteral("the same files selected one by one"), smallBytes, options.small,
                           {QStringLiteral("-r"), small}, smallFiles));
    rows.push_back(compare(options, QStringLiteral("one large file"), options.bigMegabytes * 1024 * 1024, 1,
                           {QStringLiteral("-r"), big}, {big}));

    const QString section = report(options, rows, idle);
    std::fputs(qPrintable(section), stdout);
    if (!options.results.isEmpty()) {
        writeResults(options.results, section);
    }
    QDir(options.dir).removeRecursively();
    return 0;
}
