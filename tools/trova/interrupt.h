// Ctrl-C (SIGINT) and SIGTERM end the event loop of a command that runs
// until interrupted, so that it stops its query and leaves the index
// consistent rather than dying mid-write. SIGPIPE is ignored: a closed
// output shows as a failed write.
#pragma once

#include <QSocketNotifier>

#include <memory>

namespace trovara::cli {

class QuitOnInterrupt {
public:
    QuitOnInterrupt();
    ~QuitOnInterrupt();
    QuitOnInterrupt(const QuitOnInterrupt&) = delete;
    QuitOnInterrupt& operator=(const QuitOnInterrupt&) = delete;

    // False when the signals could not be caught (the reason is printed).
    bool isReady() const { return m_notifier != nullptr; }

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};

}  // namespace trovara::cli
