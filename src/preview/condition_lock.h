// A lock that carries an integer condition: taking it may wait until the
// condition has a given value, and releasing it sets the condition. The work
// queue keeps its state in one (0: idle, 1: work pending or shutting down),
// and the text preview utility says with one whether its helper has started.
//
// Unlike a mutex, the lock may be released by another thread than the one
// that took it; whoever releases it wakes every waiter, so that each can
// check the condition it waits for.
//
// Thread safety: every member may be called from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace trovara::preview {

class ConditionLock {
public:
    explicit ConditionLock(int condition = 0)
        : m_condition(condition)
    {
    }
    ConditionLock(const ConditionLock&) = delete;
    ConditionLock& operator=(const ConditionLock&) = delete;

    // Takes the lock whatever the condition.
    void lock()
    {
        std::unique_lock guard(m_mutex);
        m_changed.wait(guard, [&] { return !m_held; });
        m_held = true;
    }

    // Takes the lock once it is free and its condition is `condition`.
    void lockWhenCondition(int condition)
    {
        std::unique_lock guard(m_mutex);
        m_changed.wait(guard, [&] { return !m_held && m_condition == condition; });
        m_held = true;
    }

    // As above, giving up (false, lock not taken) after `timeout`.
    bool lockWhenCondition(int condition, std::chrono::milliseconds timeout)
    {
        std::unique_lock guard(m_mutex);
        if (!m_changed.wait_for(guard, timeout, [&] { return !m_held && m_condition == condition; })) {
            return false;
        }
        m_held = true;
        return true;
    }

    void unlockWithCondition(int condition)
    {
        {
            std::lock_guard guard(m_mutex);
            m_held = false;
            m_condition = condition;
        }
        m_changed.notify_all();
    }

    void unlock()
    {
        {
            std::lock_guard guard(m_mutex);
            m_held = false;
        }
        m_changed.notify_all();
    }

    int condition() const
    {
        std::lock_guard guard(m_mutex);
        return m_condition;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_condition;
    bool m_held = false;
};

}  // namespace trovara::preview
