#include "helper/global_shortcuts_portal.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace trovara::helper {

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

namespace {

// The session handle of CreateSession's answer: an object path, or a
// string on older portals.
QString sessionHandle(const QVariant& value)
{
    if (value.metaType() == QMetaType::fromType<QDBusObjectPath>()) {
        return value.value<QDBusObjectPath>().path();
    }
    return value.toString();
}

PortalShortcuts shortcutsOf(const QVariant& value)
{
    PortalShortcuts shortcuts;
    if (value.canConvert<QDBusArgument>()) {
        value.value<QDBusArgument>() >> shortcuts;
    }
    return shortcuts;
}

}  // namespace

GlobalShortcutsPortal::GlobalShortcutsPortal(QDBusConnection connection, QObject* parent)
    : QObject(parent)
    , m_connection(std::move(connection))
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<PortalShortcuts>();
    m_connection.connect(QLatin1String(kService), QLatin1String(kObjectPath), QLatin1String(kInterface),
                         QStringLiteral("Activated"), this, SLOT(shortcutActivated(QDBusMessage)));
}

GlobalShortcutsPortal::~GlobalShortcutsPortal()
{
    unbind();
    m_connection.disconnect(QLatin1String(kService), QLatin1String(kObjectPath), QLatin1String(kInterface),
                            QStringLiteral("Activated"), this, SLOT(shortcutActivated(QDBusMessage)));
}

QString GlobalShortcutsPortal::senderPart() const
{
    QString sender = m_connection.baseService();
    if (sender.startsWith(QLatin1Char(':'))) {
        sender.remove(0, 1);
    }
    return sender.replace(QLatin1Char('.'), QLatin1Char('_'));
}

void GlobalShortcutsPortal::bind(const PortalShortcuts& shortcuts)
{
    unbind();
    if (shortcuts.isEmpty()) {
        return;
    }
    if (!m_connection.isConnected()) {
        fail(QStringLiteral("There is no session bus."));
        return;
    }
    m_pending = shortcuts;
    m_step = Step::CreatingSession;
    const QString token = QStringLiteral("trovara%1").arg(m_nextToken++);
    const QVariantMap options{{QStringLiteral("handle_token"), token},
                              {QStringLiteral("session_handle_token"), token}};
    callWithRequest(QStringLiteral("CreateSession"), {options}, token);
}

void GlobalShortcutsPortal::unbind()
{
    ++m_generation;
    forgetRequest();
    m_step = Step::None;
    m_pending.clear();
    if (!m_session.isEmpty()) {
        m_connection.send(QDBusMessage::createMethodCall(QLatin1String(kService), m_session,
                                                         QLatin1String(kSessionInterface), QStringLiteral("Close")));
        m_session.clear();
    }
}

void GlobalShortcutsPortal::callWithRequest(const QString& method, const QVariantList& arguments,
                                            const QString& token)
{
    // The portal may answer before the call returns: follow the path it
    // will use before calling.
    followRequest(QStringLiteral("%1/request/%2/%3").arg(QLatin1String(kObjectPath), senderPart(), token));
    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(kService), QLatin1String(kObjectPath),
                                                       QLatin1String(kInterface), method);
    call.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(m_connection.asyncCall(call), this);
    const quint64 generation = m_generation;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, generation, method] {
        watcher->deleteLater();
        if (generation != m_generation) {
            return;
        }
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError()) {
            const QDBusError error = reply.error();
            fail(error.type() == QDBusError::ServiceUnknown || error.type() == QDBusError::UnknownInterface ||
                         error.type() == QDBusError::UnknownMethod || error.type() == QDBusError::UnknownObject
                     ? QStringLiteral("The desktop offers no global shortcuts to applications.")
                     : QStringLiteral("The desktop refused %1: %2").arg(method, error.message()));
            return;
        }
        // An older portal answers at a path of its own.
        if (reply.value().path() != m_requestPath) {
            followRequest(reply.value().path());
        }
    });
}

void GlobalShortcutsPortal::followRequest(const QString& path)
{
    forgetRequest();
    m_requestPath = path;
    m_connection.connect(QLatin1String(kService), m_requestPath, QLatin1String(kRequestInterface),
                         QStringLiteral("Response"), this, SLOT(requestAnswered(QDBusMessage)));
}

void GlobalShortcutsPortal::forgetRequest()
{
    if (m_requestPath.isEmpty()) {
        return;
    }
    m_connection.disconnect(QLatin1String(kService), m_requestPath, QLatin1String(kRequestInterface),
                            QStringLiteral("Response"), this, SLOT(requestAnswered(QDBusMessage)));
    m_requestPath.clear();
}

void GlobalShortcutsPortal::requestAnswered(const QDBusMessage& response)
{
    if (response.path() != m_requestPath || response.arguments().size() < 2) {
        return;
    }
    forgetRequest();
    const uint code = response.arguments().at(0).toUInt();
    const QVariantMap results = qdbus_cast<QVariantMap>(response.arguments().at(1));
    if (code != 0) {
        // 1: the user cancelled; 2: anything else.
        fail(code == 1 ? QStringLiteral("The global shortcuts were declined.")
                       : QStringLiteral("The desktop could not set up the global shortcuts."));
        return;
    }
    switch (m_step) {
    case Step::CreatingSession: {
        m_session = sessionHandle(results.value(QStringLiteral("session_handle")));
        if (m_session.isEmpty()) {
            fail(QStringLiteral("The desktop answered without a session."));
            return;
        }
        m_step = Step::Binding;
        const QString token = QStringLiteral("trovara%1").arg(m_nextToken++);
        callWithRequest(QStringLiteral("BindShortcuts"),
                        {QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(m_pending), QString(),
                         QVariantMap{{QStringLiteral("handle_token"), token}}},
                        token);
        return;
    }
    case Step::Binding: {
        m_step = Step::None;
        PortalShortcuts answered = shortcutsOf(results.value(QStringLiteral("shortcuts")));
        emit bound(answered.isEmpty() ? m_pending : answered);
        m_pending.clear();
        return;
    }
    case Step::None:
        return;
    }
}

void GlobalShortcutsPortal::fail(const QString& reason)
{
    unbind();
    emit unavailable(reason);
}

void GlobalShortcutsPortal::shortcutActivated(const QDBusMessage& signal)
{
    const QVariantList arguments = signal.arguments();
    if (arguments.size() < 2 || m_session.isEmpty() || m_step == Step::Binding) {
        return;
    }
    if (arguments.at(0).value<QDBusObjectPath>().path() != m_session) {
        return;
    }
    emit activated(arguments.at(1).toString());
}

}  // namespace trovara::helper
