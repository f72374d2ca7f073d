#include "app/home_indexer.h"

#include "index/live/engine.h"

#include <QMetaObject>

#include <chrono>
#include <functional>
#include <mutex>

namespace trovara::app {

// What the engine's thread shares with this object: the cancel flag, and a
// way back to the main thread that holds while this object lives.
struct HomeIndexer::Shared {
    std::atomic<bool> cancel{false};
    std::mutex mutex;
    HomeIndexer* owner = nullptr;  // cleared under `mutex` when it goes

    // Runs `function` on the owner's thread, unless the owner is gone by
    // then (Qt drops calls to a deleted receiver).
    void post(std::function<void(HomeIndexer&)> function)
    {
        std::lock_guard lock(mutex);
        if (owner) {
            QMetaObject::invokeMethod(
                owner, [self = owner, function = std::move(function)] { function(*self); }, Qt::QueuedConnection);
        }
    }
};

HomeIndexer::HomeIndexer(QObject* parent)
    : QObject(parent)
    , m_shared(std::make_shared<Shared>())
{
    m_shared->owner = this;
}

HomeIndexer::~HomeIndexer()
{
    m_shared->cancel = true;
    std::lock_guard lock(m_shared->mutex);
    m_shared->owner = nullptr;
}

void HomeIndexer::cancel()
{
    m_shared->cancel = true;
}

bool HomeIndexer::startIfNeeded(index::QuerySource& source, const QString& folder)
{
    auto* engine = dynamic_cast<index::IndexEngine*>(&source);
    if (m_running || !engine || !engine->indexedRoots().empty() || folder.isEmpty()) {
        return false;
    }
    m_running = true;
    m_folder = folder;
    std::shared_ptr<Shared> shared = m_shared;
    engine->post([engine, shared, path = folder.toStdString()](index::LiveIndex&) {
        index::Index::Options options;
        options.cancel = &shared->cancel;
        // A report every few thousand entries is plenty for a progress bar.
        auto last = std::chrono::steady_clock::time_point{};
        options.progress = [shared, &last](const index::UpdateProgress& progress) {
            const auto now = std::chrono::steady_clock::now();
            if (now - last < std::chrono::milliseconds(100)) {
                return;
            }
            last = now;
            const qulonglong entries = progress.entries;
            shared->post([entries](HomeIndexer& self) { emit self.progressed(entries); });
        };
        const index::Expected<index::UpdateReport> report = engine->addRootsOnEngine({path}, options);
        const QString problem = report ? QString() : QString::fromStdString(report.error().message);
        shared->post([problem](HomeIndexer& self) {
            self.m_running = false;
            emit self.finished(problem);
        });
    });
    return true;
}

}  // namespace trovara::app
