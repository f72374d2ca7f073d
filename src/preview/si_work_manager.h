// A small pool of worker threads that runs SIWorkUnits away from the main
// thread: urgent units go in front of the queue, and the units that name an
// object can be dropped before they run once they have become stale (the
// text preview drops the reading of a file when the selection moves on).
//
// Units run on up to n threads at once, in the order they are taken from the
// queue; nothing orders their completions but the target thread's own event
// queue. Units already running are never interrupted.
//
// Shutting down (destroying the manager) empties the queue and tells the
// threads to end; it does not wait for them nor for running units: a
// running unit finishes on its own, keeping its target alive meanwhile.
//
// Thread safety: every member may be called from any thread.
#pragma once

#include "preview/si_work_thread.h"

#include <memory>

namespace trovara::preview {

class SIWorkManager {
public:
    // One thread per processor (one when the count cannot be told).
    SIWorkManager();
    explicit SIWorkManager(int threadCount);
    ~SIWorkManager();
    SIWorkManager(const SIWorkManager&) = delete;
    SIWorkManager& operator=(const SIWorkManager&) = delete;

    // Queues the unit: in front with isHighPriority, else at the end. A null
    // unit (one that could not be created) is ignored.
    void addWorkUnit(std::shared_ptr<SIWorkUnit> unit, bool isHighPriority);

    // Drops the queued units whose target or argument is `object`, keeping
    // the others in order; with no object, drops them all.
    void removePendingWorkFor(const QObject* object = nullptr);

    // How many units wait (not counting those running).
    std::size_t pendingCount() const;

    int threadCount() const { return m_threadCount; }

    // Expires when every thread of this manager has ended (after shutdown),
    // for whoever must know that none of them runs any more.
    std::weak_ptr<const void> threadsAlive() const { return m_queue; }

private:
    std::shared_ptr<SIWorkQueue> m_queue;
    int m_threadCount = 0;
};

}  // namespace trovara::preview
