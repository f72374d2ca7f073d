// A queue of background operations run on a pool of threads of its own, with
// the machine's default concurrency (one thread per processor), as a job's
// transfers need it: operations start in the order they were added, several
// may run at once, the ones not yet started can be cancelled, and the
// queue tells how many have not finished.
//
// Operations added with the same nonzero serial key run one after another
// (in the order added, on one thread while there are more), so that work
// that would only contend, like entries made in one folder, does not run
// side by side; an operation waiting for its key does not hold up others.
//
// Thread safety: every member may be called from any thread. The destructor
// cancels what has not started and waits for what runs.
#pragma once

#include <QThreadPool>

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace trovara::fileops {

class OperationQueue {
public:
    using Operation = std::function<void()>;

    // 0 threads: QThread::idealThreadCount().
    explicit OperationQueue(int threadCount = 0);
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    int maxConcurrentOperationCount() const;
    void addOperation(Operation operation, std::uint64_t serialKey = 0);
    // Operations waiting or running.
    int operationCount() const;
    // Drops every operation that has not started; running ones go on.
    void cancelAllOperations();
    void waitUntilAllOperationsAreFinished();

private:
    void work();

    struct Entry {
        Operation operation;
        std::uint64_t serialKey = 0;
    };
    bool isBusy(std::uint64_t serialKey) const;

    mutable std::mutex m_mutex;
    std::deque<Entry> m_pending;
    std::vector<std::uint64_t> m_busyKeys;  // keys of the operations being run
    int m_running = 0;  // operations being run
    int m_workers = 0;  // threads taking operations from m_pending
    QThreadPool m_pool;
};

}  // namespace trovara::fileops
