// A Dispatcher over a Qt event loop: work runs on the thread of a context
// object, as queued invocations and single-shot timers. It is the thin Qt
// adapter between the index's live queries and the application.
//
// Thread safety: post() and postAfter() may be called from any thread; the
// context object must outlive the dispatcher's use.
#pragma once

#include "index/live/dispatcher.h"

#include <QMetaObject>
#include <QObject>
#include <QTimer>

namespace trovara::index {

class QtDispatcher final : public Dispatcher {
public:
    explicit QtDispatcher(QObject* context)
        : m_context(context)
    {
    }

    void post(std::function<void()> work) override
    {
        QMetaObject::invokeMethod(m_context, std::move(work), Qt::QueuedConnection);
    }

    void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override
    {
        QMetaObject::invokeMethod(
            m_context,
            [context = m_context, delay, work = std::move(work)]() mutable {
                QTimer::singleShot(delay, context, std::move(work));
            },
            Qt::QueuedConnection);
    }

private:
    QObject* m_context;
};

}  // namespace trovara::index
