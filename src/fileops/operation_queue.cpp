#include "fileops/operation_queue.h"

#include <QThread>

#include <algorithm>

namespace trovara::fileops {

OperationQueue::OperationQueue(int threadCount)
{
    m_pool.setMaxThreadCount(threadCount > 0 ? threadCount : std::max(1, QThread::idealThreadCount()));
}

OperationQueue::~OperationQueue()
{
    cancelAllOperations();
    m_pool.waitForDone();
}

int OperationQueue::maxConcurrentOperationCount() const
{
    return m_pool.maxThreadCount();
}

bool OperationQueue::isBusy(std::uint64_t serialKey) const
{
    return serialKey != 0 && std::find(m_busyKeys.begin(), m_busyKeys.end(), serialKey) != m_busyKeys.end();
}

void OperationQueue::addOperation(Operation operation, std::uint64_t serialKey)
{
    bool startWorker = false;
    {
        std::lock_guard lock(m_mutex);
        m_pending.push_back({std::move(operation), serialKey});
        // An operation whose key is busy is taken by the thread that runs
        // its key once that is done; a new thread would find nothing to do.
        if (m_workers < m_pool.maxThreadCount() && !isBusy(serialKey)) {
            ++m_workers;
            startWorker = true;
        }
    }
    if (startWorker) {
        m_pool.start([this] { work(); });
    }
}

void OperationQueue::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        const auto next = std::find_if(m_pending.begin(), m_pending.end(),
                                       [this](const Entry& entry) { return !isBusy(entry.serialKey); });
        if (next == m_pending.end()) {
            break;
        }
        Entry entry = std::move(*next);
        m_pending.erase(next);
        ++m_running;
        if (entry.serialKey != 0) {
            m_busyKeys.push_back(entry.serialKey);
        }
        lock.unlock();
        entry.operation();
        entry.operation = nullptr;
        lock.lock();
        --m_running;
        if (entry.serialKey != 0) {
            m_busyKeys.erase(std::find(m_busyKeys.begin(), m_busyKeys.end(), entry.serialKey));
        }
    }
    --m_workers;
}

int OperationQueue::operationCount() const
{
    std::lock_guard lock(m_mutex);
    return static_cast<int>(m_pending.size()) + m_running;
}

void OperationQueue::cancelAllOperations()
{
    std::deque<Entry> dropped;
    {
        std::lock_guard lock(m_mutex);
        dropped.swap(m_pending);
    }
}

void OperationQueue::waitUntilAllOperationsAreFinished()
{
    m_pool.waitForDone();
}

}  // namespace trovara::fileops
