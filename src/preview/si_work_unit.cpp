#include "preview/si_work_unit.h"

#include "common/log.h"

#include <QThread>

namespace trovara::preview {

namespace {

// The invokable method `name(QVariant)` of the object, or an invalid one.
QMetaMethod methodTakingVariant(const QObject& object, const char* name)
{
    if (!name || !*name) {
        return {};
    }
    const QByteArray signature = QByteArray(name) + "(QVariant)";
    const int index = object.metaObject()->indexOfMethod(signature.constData());
    return index < 0 ? QMetaMethod() : object.metaObject()->method(index);
}

const QObject* objectIn(const QVariant& value)
{
    if (value.metaType().flags() & QMetaType::PointerToQObject) {
        return value.value<QObject*>();
    }
    if (value.metaType() == QMetaType::fromType<std::shared_ptr<QObject>>()) {
        return value.value<std::shared_ptr<QObject>>().get();
    }
    return nullptr;
}

}  // namespace

QString describeTarget(const QObject* target)
{
    if (!target) {
        return QStringLiteral("(null)");
    }
    const QString className = QString::fromLatin1(target->metaObject()->className());
    return target->objectName().isEmpty() ? className : className + QLatin1Char(' ') + target->objectName();
}

std::shared_ptr<SIWorkUnit> SIWorkUnit::create(Target target, const char* selector, QVariant argument,
                                               const char* didEndSelector, bool waitUntilDone)
{
    const QMetaMethod work = target ? methodTakingVariant(*target, selector) : QMetaMethod();
    if (!work.isValid()) {
        TLOG(QStringLiteral("Cannot create SIWorkUnit as target %1 refuses to perform %2!")
                 .arg(describeTarget(target.get()), QString::fromLatin1(selector ? selector : "")));
        return nullptr;
    }
    return std::make_shared<SIWorkUnit>(std::move(target), work, std::move(argument),
                                        QByteArray(didEndSelector ? didEndSelector : ""), waitUntilDone);
}

SIWorkUnit::SIWorkUnit(Target target, QMetaMethod selector, QVariant argument, QByteArray didEndSelector,
                       bool waitUntilDone)
    : m_target(std::move(target))
    , m_selector(selector)
    , m_argument(std::move(argument))
    , m_didEndSelector(std::move(didEndSelector))
    , m_waitUntilDone(waitUntilDone)
{
}

void SIWorkUnit::performWork()
{
    QVariant result;
    if (m_selector.returnMetaType() == QMetaType::fromType<QVariant>()) {
        m_selector.invoke(m_target.get(), Qt::DirectConnection, Q_RETURN_ARG(QVariant, result),
                          Q_ARG(QVariant, m_argument));
    } else {
        m_selector.invoke(m_target.get(), Qt::DirectConnection, Q_ARG(QVariant, m_argument));
    }
    const QMetaMethod didEnd = methodTakingVariant(*m_target, m_didEndSelector.constData());
    if (!didEnd.isValid()) {
        return;
    }
    if (!result.isValid()) {
        result = m_argument;
    }
    // A blocking call into our own thread would wait for ever.
    const bool elsewhere = m_target->thread() != QThread::currentThread();
    const Qt::ConnectionType type = !elsewhere        ? Qt::DirectConnection
                                    : m_waitUntilDone ? Qt::BlockingQueuedConnection
                                                      : Qt::QueuedConnection;
    didEnd.invoke(m_target.get(), type, Q_ARG(QVariant, result));
}

bool SIWorkUnit::isRelatedTo(const QObject* object) const
{
    return object && (m_target.get() == object || objectIn(m_argument) == object);
}

}  // namespace trovara::preview
