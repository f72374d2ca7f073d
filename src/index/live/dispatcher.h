// Where a live query delivers its notifications: the thread that owns it.
// The application gives a dispatcher over its event loop (qt_dispatcher.h);
// tests and tools may run their own loop.
//
// Thread safety: post() and postAfter() may be called from any thread; the
// posted work runs on the owner's thread, in the order posted (delayed work
// when its time has come).
#pragma once

#include <chrono>
#include <functional>

namespace trovara::index {

class Dispatcher {
public:
    virtual ~Dispatcher() = default;
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual void post(std::function<void()> work) = 0;
    virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> work) = 0;
    // The clock postAfter() counts by.
    virtual TimePoint now() const { return std::chrono::steady_clock::now(); }
};

}  // namespace trovara::index
