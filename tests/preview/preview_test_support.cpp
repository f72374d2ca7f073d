#include "preview_test_support.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <fstream>

namespace trovara::preview::test {

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > limit.count()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(1);
    }
    return true;
}

std::string writeFile(const QString& folder, const std::string& name, const std::string& bytes)
{
    const std::string path = folder.toStdString() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

index::Expected<std::vector<index::ImporterInfo>> ScriptedImporter::importers()
{
    if (unavailable) {
        return index::Failure{index::Failure::Kind::Io, "cannot start the importer"};
    }
    return offered;
}

index::Expected<void> ScriptedImporter::importFiles(
    std::vector<index::ImportJob> jobs, const std::function<void(const index::ImportJob&, index::ImportOutcome&&)>& done,
    const std::atomic<bool>*)
{
    for (const index::ImportJob& job : jobs) {
        asked.push_back(job.importer);
        index::ImportOutcome outcome;
        if (auto it = answers.find(job.importer); it != answers.end()) {
            outcome = it->second;
        } else {
            outcome.imported = true;
            outcome.text = "text from " + job.importer;
        }
        done(job, std::move(outcome));
    }
    return {};
}

}  // namespace trovara::preview::test
