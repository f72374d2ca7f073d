// Global shortcuts through the desktop portal
// (org.freedesktop.portal.GlobalShortcuts of org.freedesktop.portal.Desktop):
// a session is made, the shortcuts are bound to it with the triggers
// Trovara would like (the desktop may ask the user and choose others), and
// the portal reports each press as Activated.
//
// Every call is asynchronous, so the helper's event loop keeps running
// while the desktop asks the user. Binding again closes the old session
// first; the portal's sessions cannot be re-bound everywhere.
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QVariantMap>

class QDBusArgument;

namespace trovara::helper {

// One shortcut as the portal takes and answers it: an id and a dictionary
// ("description", "preferred_trigger"; answered: "trigger_description").
struct PortalShortcut {
    QString id;
    QVariantMap properties;
    bool operator==(const PortalShortcut&) const = default;
};
using PortalShortcuts = QList<PortalShortcut>;

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut);
const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut);

class GlobalShortcutsPortal final : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kService = "org.freedesktop.portal.Desktop";
    static constexpr const char* kObjectPath = "/org/freedesktop/portal/desktop";
    static constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";
    static constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";
    static constexpr const char* kSessionInterface = "org.freedesktop.portal.Session";

    explicit GlobalShortcutsPortal(QDBusConnection connection, QObject* parent = nullptr);
    ~GlobalShortcutsPortal() override;

    // Binds the shortcuts (closing an earlier session); answered by bound()
    // or unavailable(). An empty list only closes the session.
    void bind(const PortalShortcuts& shortcuts);
    // Closes the session: no shortcut reaches Trovara any more.
    void unbind();
    bool isBound() const { return !m_session.isEmpty(); }

signals:
    // The desktop took the shortcuts; `shortcuts` as it answered them (with
    // the triggers it chose, where it says).
    void bound(const trovara::helper::PortalShortcuts& shortcuts);
    // There is no portal with global shortcuts, or it refused; `reason`
    // says which.
    void unavailable(const QString& reason);
    void activated(const QString& shortcutId);

private slots:
    void requestAnswered(const QDBusMessage& response);
    void shortcutActivated(const QDBusMessage& signal);

private:
    enum class Step { None, CreatingSession, Binding };
    // Calls a method of the portal that answers through a request object
    // (whose Response signal is followed first, at the path the portal will
    // use for `token`).
    void callWithRequest(const QString& method, const QVariantList& arguments, const QString& token);
    void followRequest(const QString& path);
    void forgetRequest();
    void fail(const QString& reason);
    QString senderPart() const;

    QDBusConnection m_connection;
    Step m_step = Step::None;
    QString m_requestPath;
    QString m_session;
    PortalShortcuts m_pending;
    int m_nextToken = 1;
    // Answers of an abandoned bind are told apart by this.
    quint64 m_generation = 0;
};

}  // namespace trovara::helper

Q_DECLARE_METATYPE(trovara::helper::PortalShortcut)
