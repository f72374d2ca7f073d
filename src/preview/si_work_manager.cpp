#include "preview/si_work_manager.h"

#include <algorithm>
#include <thread>

namespace trovara::preview {

namespace {

int processorCount()
{
    const unsigned count = std::thread::hardware_concurrency();
    return count == 0 ? 1 : static_cast<int>(count);
}

}  // namespace

SIWorkManager::SIWorkManager()
    : SIWorkManager(processorCount())
{
}

SIWorkManager::SIWorkManager(int threadCount)
    : m_queue(std::make_shared<SIWorkQueue>())
    , m_threadCount(std::max(1, threadCount))
{
    for (int i = 0; i < m_threadCount; ++i) {
        std::thread([worker = SIWorkThread(m_queue)]() mutable { worker.workLoop(); }).detach();
    }
}

SIWorkManager::~SIWorkManager()
{
    std::deque<std::shared_ptr<SIWorkUnit>> dropped;
    m_queue->workLock.lock();
    dropped.swap(m_queue->units);
    // An empty queue with work signalled tells each thread to end.
    m_queue->workLock.unlockWithCondition(1);
}

void SIWorkManager::addWorkUnit(std::shared_ptr<SIWorkUnit> unit, bool isHighPriority)
{
    if (!unit) {
        return;
    }
    m_queue->workLock.lock();
    if (isHighPriority) {
        m_queue->units.push_front(std::move(unit));
    } else {
        m_queue->units.push_back(std::move(unit));
    }
    m_queue->workLock.unlockWithCondition(1);
}

void SIWorkManager::removePendingWorkFor(const QObject* object)
{
    // The units dropped are released outside the lock: releasing one may
    // delete its target.
    std::deque<std::shared_ptr<SIWorkUnit>> dropped;
    m_queue->workLock.lock();
    auto& units = m_queue->units;
    if (!object) {
        dropped.swap(units);
    } else {
        const auto kept = std::stable_partition(units.begin(), units.end(), [&](const auto& unit) {
            return !unit->isRelatedTo(object);
        });
        std::move(kept, units.end(), std::back_inserter(dropped));
        units.erase(kept, units.end());
    }
    m_queue->workLock.unlockWithCondition(units.empty() ? 0 : 1);
}

std::size_t SIWorkManager::pendingCount() const
{
    m_queue->workLock.lock();
    const std::size_t count = m_queue->units.size();
    m_queue->workLock.unlock();
    return count;
}

}  // namespace trovara::preview
