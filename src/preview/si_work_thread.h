// A worker of an SIWorkManager: a detached thread that takes units from the
// front of the manager's queue and performs them, one at a time, until it
// finds the queue empty while the lock's condition says there is work: the
// manager's signal to end.
//
// Thread safety: the queue is touched only under the lock; the queue and the
// lock are shared by the manager and all its threads, and live as long as
// the last of them.
#pragma once

#include "preview/condition_lock.h"
#include "preview/si_work_unit.h"

#include <deque>
#include <memory>

namespace trovara::preview {

// The state a manager shares with its threads. The lock's condition is 1
// while the queue holds work or the threads are told to end, 0 when idle.
struct SIWorkQueue {
    ConditionLock workLock{0};
    std::deque<std::shared_ptr<SIWorkUnit>> units;  // the front is taken first
};

class SIWorkThread {
public:
    explicit SIWorkThread(std::shared_ptr<SIWorkQueue> queue);

    // The thread's body; returns when the manager has shut down.
    void workLoop();

private:
    std::shared_ptr<SIWorkQueue> m_queue;
};

}  // namespace trovara::preview
