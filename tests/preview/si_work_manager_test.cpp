// The background work queue: priority insertion, dropping stale work,
// completions on the target's thread, the refusal of unknown operations,
// and shutdown.
#include "preview/si_work_manager.h"

#include "common/log.h"
#include "preview_test_support.h"

#include <QThread>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

namespace trovara::preview {
namespace {

using test::waitUntil;

// Records the work it does; "block" waits until the gate opens.
class Recorder : public QObject {
    Q_OBJECT
public:
    Q_INVOKABLE QVariant work(QVariant argument)
    {
        const QString name = argument.canConvert<QString>() ? argument.toString() : QStringLiteral("object");
        {
            std::unique_lock guard(mutex);
            events.push_back(QStringLiteral("work ") + name);
            if (name == QLatin1String("block")) {
                blocked = true;
                changed.notify_all();
                changed.wait(guard, [&] { return open; });
            }
        }
        changed.notify_all();
        return name + QStringLiteral(" done");
    }
    Q_INVOKABLE QVariant nothing(QVariant)
    {
        record(QStringLiteral("nothing"));
        return {};
    }
    Q_INVOKABLE void finished(QVariant result)
    {
        EXPECT_EQ(QThread::currentThread(), thread()) << "completions run in the target's thread";
        record(QStringLiteral("finished ") + result.toString());
    }

    void record(const QString& event)
    {
        {
            std::lock_guard guard(mutex);
            events.push_back(event);
        }
        changed.notify_all();
    }
    void waitUntilBlocked()
    {
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return blocked; });
    }
    void release()
    {
        {
            std::lock_guard guard(mutex);
            open = true;
        }
        changed.notify_all();
    }
    QStringList recorded()
    {
        std::lock_guard guard(mutex);
        return events;
    }

    std::mutex mutex;
    std::condition_variable changed;
    QStringList events;
    bool blocked = false;
    bool open = false;
};

std::shared_ptr<SIWorkUnit> unit(const std::shared_ptr<Recorder>& target, QVariant argument,
                                 const char* work = "work", const char* finished = nullptr, bool wait = false)
{
    return SIWorkUnit::create(target, work, std::move(argument), finished, wait);
}

TEST(SIWorkManager, AHighPriorityUnitOvertakesTheTenQueuedBeforeIt)
{
    auto target = makeWorkTarget<Recorder>();
    SIWorkManager manager(1);
    manager.addWorkUnit(unit(target, QStringLiteral("block")), false);
    target->waitUntilBlocked();
    for (int i = 0; i < 10; ++i) {
        manager.addWorkUnit(unit(target, QStringLiteral("n%1").arg(i)), false);
    }
    manager.addWorkUnit(unit(target, QStringLiteral("urgent")), true);
    EXPECT_EQ(manager.pendingCount(), 11u);
    target->release();
    ASSERT_TRUE(waitUntil([&] { return target->recorded().size() == 12; }));
    QStringList expected{QStringLiteral("work block"), QStringLiteral("work urgent")};
    for (int i = 0; i < 10; ++i) {
        expected.append(QStringLiteral("work n%1").arg(i));
    }
    EXPECT_EQ(target->recorded(), expected);
}

TEST(SIWorkManager, RemovingWorkForAnObjectDropsTheUnitsThatNameItAsTargetOrArgument)
{
    auto target = makeWorkTarget<Recorder>();
    auto other = makeWorkTarget<Recorder>();
    SIWorkManager manager(1);
    manager.addWorkUnit(unit(target, QStringLiteral("block")), false);
    target->waitUntilBlocked();
    manager.addWorkUnit(unit(target, QStringLiteral("keep 1")), false);
    manager.addWorkUnit(unit(target, QVariant::fromValue(std::static_pointer_cast<QObject>(other))), false);
    manager.addWorkUnit(unit(other, QStringLiteral("other's own")), false);
    manager.addWorkUnit(unit(target, QVariant::fromValue(static_cast<QObject*>(other.get()))), false);
    manager.addWorkUnit(unit(target, QStringLiteral("keep 2")), false);

    manager.removePendingWorkFor(other.get());
    EXPECT_EQ(manager.pendingCount(), 2u);
    target->release();
    ASSERT_TRUE(waitUntil([&] { return target->recorded().size() == 3; }));
    EXPECT_EQ(target->recorded(),
              (QStringList{QStringLiteral("work block"), QStringLiteral("work keep 1"), QStringLiteral("work keep 2")}));
    EXPECT_TRUE(other->recorded().isEmpty());
}

TEST(SIWorkManager, RemovingWorkForNothingEmptiesTheQueueButLetsTheRunningUnitFinish)
{
    auto target = makeWorkTarget<Recorder>();
    SIWorkManager manager(1);
    manager.addWorkUnit(unit(target, QStringLiteral("block"), "work", "finished"), false);
    target->waitUntilBlocked();
    manager.addWorkUnit(unit(target, QStringLiteral("stale 1")), false);
    manager.addWorkUnit(unit(target, QStringLiteral("stale 2")), true);
    manager.removePendingWorkFor(nullptr);
    EXPECT_EQ(manager.pendingCount(), 0u);
    target->release();
    ASSERT_TRUE(waitUntil([&] { return target->recorded().size() == 2; }));
    EXPECT_EQ(target->recorded(), (QStringList{QStringLiteral("work block"), QStringLiteral("finished block done")}));

    // The queue works on afterwards.
    manager.addWorkUnit(unit(target, QStringLiteral("fresh")), false);
    ASSERT_TRUE(waitUntil([&] { return target->recorded().size() == 3; }));
}

TEST(SIWorkManager, WorkThatReturnsNothingHandsItsArgumentToTheCompletion)
{
    auto target = makeWorkTarget<Recorder>();
    SIWorkManager manager(1);
    manager.addWorkUnit(unit(target, QStringLiteral("the argument"), "nothing", "finished"), false);
    ASSERT_TRUE(waitUntil([&] { return target->recorded().size() == 2; }));
    EXPECT_EQ(target->recorded(), (QStringList{QStringLiteral("nothing"), QStringLiteral("finished the argument")}));
}

TEST(SIWorkManager, AWaitingUnitHoldsItsWorkerUntilTheCompletionHasRun)
{
    auto target = makeWorkTarget<Recorder>();
    SIWorkManager manager(1);
    for (int i = 0; i < 3; ++i) {
        manager.addWorkUnit(unit(target, QStringLiteral("u%1").arg(i), "work", "finished", true), false);
    }
    ASSERT_TRUE(waitUntil([&] { return target->recorded().size() == 6; }));
    EXPECT_EQ(target->recorded(),
              (QStringList{QStringLiteral("work u0"), QStringLiteral("finished u0 done"), QStringLiteral("work u1"),
                           QStringLiteral("finished u1 done"), QStringLiteral("work u2"),
                           QStringLiteral("finished u2 done")}));
}

TEST(SIWorkManager, AUnitForAnOperationTheTargetLacksIsNotMadeAndSaysSo)
{
    QStringList lines;
    log::setSink([&](const QString& line) { lines.append(line); });
    auto target = makeWorkTarget<Recorder>();
    target->setObjectName(QStringLiteral("main"));
    EXPECT_EQ(SIWorkUnit::create(target, "missing", QStringLiteral("x")), nullptr);
    // "finished" takes an argument but returns nothing: it can be a
    // completion, and work that returns nothing is allowed too.
    EXPECT_NE(SIWorkUnit::create(target, "finished", QStringLiteral("x")), nullptr);
    log::setSink([](const QString&) {});
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.front().contains(QStringLiteral("Cannot create SIWorkUnit as target ")));
    EXPECT_TRUE(lines.front().endsWith(QStringLiteral("Recorder main refuses to perform missing!")))
        << lines.front().toStdString();

    SIWorkManager manager(1);
    manager.addWorkUnit(nullptr, true);  // what create() gave back is harmless
    EXPECT_EQ(manager.pendingCount(), 0u);
}

TEST(SIWorkManager, AfterShutdownNoFurtherUnitRunsAndEveryThreadEnds)
{
    auto target = makeWorkTarget<Recorder>();
    std::weak_ptr<const void> threads;
    {
        SIWorkManager manager(1);  // queued units wait behind the blocked one
        threads = manager.threadsAlive();
        manager.addWorkUnit(unit(target, QStringLiteral("block")), false);
        target->waitUntilBlocked();
        manager.addWorkUnit(unit(target, QStringLiteral("never 1")), false);
        manager.addWorkUnit(unit(target, QStringLiteral("never 2")), false);
    }
    // The manager did not wait for the running unit; it finishes on its own.
    target->release();
    ASSERT_TRUE(waitUntil([&] { return threads.expired(); }));
    EXPECT_EQ(target->recorded(), QStringList{QStringLiteral("work block")});
}

TEST(SIWorkManager, AUnitKeepsItsTargetAliveUntilItHasRun)
{
    auto target = makeWorkTarget<Recorder>();
    std::weak_ptr<Recorder> watched = target;
    SIWorkManager manager(1);
    manager.addWorkUnit(unit(target, QStringLiteral("block")), false);
    target->waitUntilBlocked();
    QThread* deletedIn = nullptr;
    QObject::connect(target.get(), &QObject::destroyed, [&] { deletedIn = QThread::currentThread(); });
    auto* raw = target.get();
    target.reset();
    EXPECT_FALSE(watched.expired());
    raw->release();
    // The last reference goes on the worker; the target is deleted in its
    // own thread all the same.
    ASSERT_TRUE(waitUntil([&] { return deletedIn != nullptr; }));
    EXPECT_EQ(deletedIn, QThread::currentThread());
}

}  // namespace
}  // namespace trovara::preview

#include "si_work_manager_test.moc"
