#include "app/launch_request.h"

#include "app/application_delegate.h"
#include "app/quick_search_url.h"
#include "app/scripting_service.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace trovara::app {

namespace {

bool instanceRuns(const QDBusConnection& connection)
{
    return connection.isConnected() &&
           connection.interface()->isServiceRegistered(QLatin1String(ScriptingService::kServiceName));
}

// The selection as a quick search takes it: surrounding white space goes;
// nothing when it is empty or too long to be a search.
QString searchText(const QString& selection)
{
    const QString text = selection.trimmed();
    return text.size() > QuickSearchUrl::kMaximumLength ? QString() : text;
}

}  // namespace

LaunchRequest::Handover LaunchRequest::forward(QDBusConnection connection) const
{
    if (action == Action::Open) {
        return ScriptingService::forwardToRunningInstance(locations, connection) ? Handover::Forwarded
                                                                                 : Handover::NoInstance;
    }
    if (!instanceRuns(connection)) {
        return Handover::NoInstance;
    }
    QString method;
    QVariantList arguments;
    switch (action) {
    case Action::QuickSearch: {
        const QString text = searchText(selection);
        if (text.isEmpty()) {
            return Handover::Refused;
        }
        method = QStringLiteral("BlitzSearch");
        arguments = {text, true, true, true, true, QString()};
        break;
    }
    case Action::Activate:
        method = QStringLiteral("Activate");
        break;
    case Action::ActivateNew:
        method = QStringLiteral("ActivateNewDocument");
        break;
    case Action::ShowPreferences:
        method = QStringLiteral("ShowPreferences");
        break;
    case Action::Open:
        break;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QLatin1String(ScriptingService::kServiceName), QLatin1String(ScriptingService::kObjectPath),
        QLatin1String(ScriptingService::kApplicationInterface), method);
    call.setArguments(arguments);
    const QDBusMessage reply = connection.call(call, QDBus::Block, 5000);
    switch (reply.type()) {
    case QDBusMessage::ReplyMessage:
        return Handover::Forwarded;
    case QDBusMessage::ErrorMessage:
        // A Trovara that hangs or went away meanwhile: run here instead.
        if (reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply") ||
            reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown")) {
            return Handover::NoInstance;
        }
        return Handover::Refused;
    default:
        return Handover::NoInstance;
    }
}

void LaunchRequest::perform(ApplicationDelegate& delegate) const
{
    switch (action) {
    case Action::Open:
        return;
    case Action::QuickSearch: {
        const QString text = searchText(selection);
        if (text.isEmpty()) {
            emit delegate.beepRequested();
            return;
        }
        BlitzSearchRequest request;
        request.searchString = text;
        request.anyText = request.filename = request.content = request.comments = true;
        delegate.handleBlitzSearchScriptCommand(request);
        return;
    }
    case Action::Activate:
        delegate.activate();
        return;
    case Action::ActivateNew:
        delegate.activateNewDocument();
        return;
    case Action::ShowPreferences:
        delegate.showPreferences();
        return;
    }
}

}  // namespace trovara::app
