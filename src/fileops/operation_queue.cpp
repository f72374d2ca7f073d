#include "fileops/operation_queue.h"

#include <QThread>

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

void OperationQueue::addOperation(Operation operation)
{
    bool startWorker = false;
    {
        std::lock_guard lock(m_mutex);
        m_pending.push_back(std::move(operation));
        if (m_workers < m_pool.maxThreadCount()) {
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
    while (!m_pending.empty()) {
        Operation operation = std::move(m_pending.front());
        m_pending.pop_front();
        ++m_running;
        lock.unlock();
        operation();
        operation = nullptr;
        lock.lock();
        --m_running;
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
    std::deque<Operation> dropped;
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
