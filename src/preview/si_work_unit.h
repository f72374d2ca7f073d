// One unit of background work: an operation called on a target object with
// one argument on a worker thread of an SIWorkManager, and, when the work is
// done, a completion operation called on the target in the target's own
// thread (the main thread, for objects made there) with the work's result.
//
// Operations are named invokable methods of the target (Q_INVOKABLE or
// slots) that take one QVariant; the work operation returns a QVariant
// (invalid for "nothing"), the completion returns nothing. A unit keeps its
// target and its argument alive until it has run or been dropped, so a
// target is shared: give it a deleter that deletes it in its own thread
// (makeWorkTarget() does), since the last reference may go on a worker.
//
// Thread safety: a unit is created on any thread, performed once on one
// worker; isRelatedTo() may be called from any thread.
#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QThread>
#include <QVariant>

#include <memory>

namespace trovara::preview {

class SIWorkUnit {
public:
    using Target = std::shared_ptr<QObject>;

    // The unit, or none (and a log line "Cannot create SIWorkUnit as target
    // … refuses to perform …!") when the target has no operation `selector`
    // taking a QVariant. `didEndSelector` may be null (no completion).
    static std::shared_ptr<SIWorkUnit> create(Target target, const char* selector, QVariant argument,
                                              const char* didEndSelector = nullptr, bool waitUntilDone = false);

    // Runs the work, then hands its result to the completion (the argument
    // itself when the work returned nothing), waiting for the completion to
    // have run when the unit was made with waitUntilDone.
    void performWork();

    // Whether `object` is the target or the argument (a QObject pointer or a
    // shared QObject held by the argument), by identity.
    bool isRelatedTo(const QObject* object) const;

    const Target& target() const { return m_target; }
    const QVariant& argument() const { return m_argument; }

    // Use create().
    SIWorkUnit(Target target, QMetaMethod selector, QVariant argument, QByteArray didEndSelector, bool waitUntilDone);

private:
    Target m_target;
    QMetaMethod m_selector;
    QVariant m_argument;
    QByteArray m_didEndSelector;
    bool m_waitUntilDone = false;
};

// A target for work units: deleted in its own thread when the last unit and
// owner let go of it, wherever that happens.
template <typename T, typename... Args>
std::shared_ptr<T> makeWorkTarget(Args&&... args)
{
    return std::shared_ptr<T>(new T(std::forward<Args>(args)...), [](T* object) {
        if (object->thread() == QThread::currentThread()) {
            delete object;
        } else {
            object->deleteLater();
        }
    });
}

// How a target is named in log lines: its class, and its object name when
// it has one.
QString describeTarget(const QObject* target);

}  // namespace trovara::preview
