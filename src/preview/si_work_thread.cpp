#include "preview/si_work_thread.h"

namespace trovara::preview {

SIWorkThread::SIWorkThread(std::shared_ptr<SIWorkQueue> queue)
    : m_queue(std::move(queue))
{
}

void SIWorkThread::workLoop()
{
    while (true) {
        m_queue->workLock.lockWhenCondition(1);
        if (m_queue->units.empty()) {
            // Work signalled but none there: the manager is gone. Pass the
            // signal on so that the next waiting thread ends too.
            m_queue->workLock.unlockWithCondition(1);
            return;
        }
        std::shared_ptr<SIWorkUnit> unit = std::move(m_queue->units.front());
        m_queue->units.pop_front();
        m_queue->workLock.unlockWithCondition(m_queue->units.empty() ? 0 : 1);
        unit->performWork();
    }
}

}  // namespace trovara::preview
