// A dispatcher the test drives: posted work waits in a queue until the test
// runs it, and delayed work until the test moves the clock past its time.
// Nothing sleeps: tests wait only for work that other threads post.
#pragma once

#include "index/live/dispatcher.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

namespace trovara::test {

class ManualDispatcher final : public index::Dispatcher {
public:
    void post(std::function<void()> work) override
    {
        {
            std::lock_guard lock(m_mutex);
            m_ready.push_back(std::move(work));
        }
        m_posted.notify_all();
    }

    void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override
    {
        {
            std::lock_guard lock(m_mutex);
            m_delayed.emplace(m_now + delay, std::move(work));
        }
        m_posted.notify_all();
    }

    // Runs what is ready, including work that this work posts; returns how much ran.
    int runReady()
    {
        int ran = 0;
        for (;;) {
            std::function<void()> work;
            {
                std::lock_guard lock(m_mutex);
                if (m_ready.empty()) {
                    return ran;
                }
                work = std::move(m_ready.front());
                m_ready.pop_front();
            }
            work();
            ++ran;
        }
    }

    // Moves the clock by `step`, making due delayed work ready.
    void advance(std::chrono::milliseconds step)
    {
        std::lock_guard lock(m_mutex);
        m_now += step;
        while (!m_delayed.empty() && m_delayed.begin()->first <= m_now) {
            m_ready.push_back(std::move(m_delayed.begin()->second));
            m_delayed.erase(m_delayed.begin());
        }
    }

    // Moves the clock to the next delayed work; false when there is none.
    bool advanceToNext()
    {
        std::chrono::milliseconds step{0};
        {
            std::lock_guard lock(m_mutex);
            if (m_delayed.empty()) {
                return false;
            }
            step = m_delayed.begin()->first - m_now;
        }
        advance(step);
        return true;
    }

    bool hasDelayed() const
    {
        std::lock_guard lock(m_mutex);
        return !m_delayed.empty();
    }

    // Blocks until work is ready (posted by another thread); false after a
    // generous safety limit, which only a hung worker reaches.
    bool waitForWork()
    {
        std::unique_lock lock(m_mutex);
        return m_posted.wait_for(lock, std::chrono::seconds(60), [&] { return !m_ready.empty(); });
    }

    // Runs ready work and waits for more until `done` holds (delayed work is
    // not run: the clock stands still). False if the safety limit was hit.
    template <typename Predicate>
    bool runUntil(Predicate done)
    {
        for (;;) {
            runReady();
            if (done()) {
                return true;
            }
            if (!waitForWork()) {
                return false;
            }
        }
    }

    // Runs work, moving the clock to delayed work when nothing else is
    // ready, until the query has delivered everything it received. False if
    // the safety limit was hit.
    template <typename Query>
    bool runUntilIdle(const Query& query)
    {
        for (;;) {
            runReady();
            if (query.isIdle()) {
                return true;
            }
            if (!advanceToNext() && !waitForWork()) {
                return false;
            }
        }
    }

    TimePoint now() const override
    {
        std::lock_guard lock(m_mutex);
        return TimePoint{} + m_now;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_posted;
    std::deque<std::function<void()>> m_ready;
    std::multimap<std::chrono::milliseconds, std::function<void()>> m_delayed;
    std::chrono::milliseconds m_now{0};
};

}  // namespace trovara::test
