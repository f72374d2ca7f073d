#include "app/scripting_service.h"

#include "app/application_delegate.h"
#include "app/dbus_adaptors.h"
#include "app/quick_search_url.h"
#include "common/error_presenter.h"
#include "document/document.h"
#include "query/metadata_query_controller.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace trovara::app {

namespace {

bool isQuickSearchLink(const QString& location)
{
    return location.startsWith(QLatin1String(QuickSearchUrl::kScheme) + QLatin1Char(':'), Qt::CaseInsensitive);
}

bool isUrl(const QString& location)
{
    // A quick-search link may hold spaces and anything else a user types.
    if (isQuickSearchLink(location)) {
        return true;
    }
    const QUrl url(location, QUrl::StrictMode);
    return url.isValid() && url.scheme().size() > 1 && !location.startsWith(QLatin1Char('/'));
}

}  // namespace

ScriptingService::ScriptingService(ApplicationDelegate& delegate, QDBusConnection connection, QObject* parent)
    : QObject(parent)
    , m_delegate(delegate)
    , m_connection(std::move(connection))
    , m_applicationObject(new ApplicationObject(*this))
{
    new ApplicationAdaptor(m_applicationObject);
    connect(&m_delegate, &ApplicationDelegate::helperPreferencesChanged, m_applicationObject,
            &ApplicationObject::trovaraPreferencesChanged);
    connect(&m_delegate, &ApplicationDelegate::documentOpened, this, &ScriptingService::documentOpened);
    connect(&m_delegate, &ApplicationDelegate::documentWillClose, this, &ScriptingService::documentWillClose);
    for (document::Document* document : m_delegate.documents()) {
        documentOpened(document);
    }
}

ScriptingService::~ScriptingService()
{
    if (m_registered) {
        m_connection.unregisterService(QLatin1String(kServiceName));
    }
    for (const auto& [document, object] : m_documents) {
        m_connection.unregisterObject(object->path());
    }
    m_connection.unregisterObject(QLatin1String(kObjectPath));
}

Status ScriptingService::registerService()
{
    if (m_registered) {
        return {};
    }
    if (!m_connection.isConnected()) {
        return Error::make(Error::kNone, QStringLiteral("Trovara cannot offer scripting."),
                           QStringLiteral("There is no D-Bus session bus."));
    }
    if (!m_connection.registerObject(QLatin1String(kObjectPath), m_applicationObject,
                                     QDBusConnection::ExportAdaptors)) {
        return Error::make(Error::kNone, QStringLiteral("Trovara cannot offer scripting."),
                           m_connection.lastError().message());
    }
    for (const auto& [document, object] : m_documents) {
        m_connection.registerObject(object->path(), object, QDBusConnection::ExportAdaptors);
    }
    if (!m_connection.registerService(QLatin1String(kServiceName))) {
        const QString reason = m_connection.lastError().message();
        for (const auto& [document, object] : m_documents) {
            m_connection.unregisterObject(object->path());
        }
        m_connection.unregisterObject(QLatin1String(kObjectPath));
        return Error::make(Error::kNone, QStringLiteral("Trovara cannot offer scripting."),
                           reason.isEmpty() ? QStringLiteral("Another Trovara owns %1.").arg(QLatin1String(kServiceName))
                                            : reason);
    }
    m_registered = true;
    return {};
}

bool ScriptingService::forwardToRunningInstance(const QStringList& locations, QDBusConnection connection)
{
    if (!connection.isConnected() || !connection.interface()->isServiceRegistered(QLatin1String(kServiceName))) {
        return false;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(kServiceName), QLatin1String(kObjectPath),
                                                       QLatin1String(kApplicationInterface),
                                                       QStringLiteral("OpenLocations"));
    call << locations;
    // Sent as a call (not fire-and-forget) so that a running instance that
    // hangs shows here as a failure rather than a lost request.
    const QDBusMessage reply = connection.call(call, QDBus::Block, 5000);
    return reply.type() == QDBusMessage::ReplyMessage;
}

QStringList ScriptingService::locationsFromArguments(const QStringList& arguments, const QString& workingDirectory)
{
    QStringList locations;
    const QDir base(workingDirectory);
    for (const QString& argument : arguments) {
        if (argument.isEmpty()) {
            continue;
        }
        if (argument.startsWith(QLatin1String("file:"))) {
            locations << QUrl(argument).toLocalFile();
        } else if (isUrl(argument)) {
            locations << argument;
        } else {
            locations << QDir::cleanPath(base.absoluteFilePath(argument));
        }
    }
    return locations;
}

void ScriptingService::openLocations(const QStringList& locations)
{
    QStringList paths;
    for (const QString& location : locations) {
        if (!isUrl(location)) {
            paths << location;
            continue;
        }
        if (!m_urlHandler && isQuickSearchLink(location)) {
            m_delegate.getUrl(location);
            continue;
        }
        const Status handled = m_urlHandler
                                   ? m_urlHandler(location)
                                   : Status(Error::make(Error::kNone,
                                                        QStringLiteral("Trovara cannot open \"%1\".").arg(location),
                                                        QStringLiteral("Links of this kind are not supported.")));
        if (!handled) {
            trovara::presentError(handled.error());
        }
    }
    m_delegate.openDocuments(paths);
    emit activationRequested();
}

QDBusObjectPath ScriptingService::pathForDocument(document::Document* document) const
{
    const auto found = m_documents.find(document);
    return QDBusObjectPath(found == m_documents.end() ? QStringLiteral("/") : found->second->path());
}

document::Document* ScriptingService::documentForPath(const QString& path) const
{
    for (const auto& [document, object] : m_documents) {
        if (object->path() == path) {
            return document;
        }
    }
    return nullptr;
}

void ScriptingService::documentOpened(document::Document* document)
{
    if (m_documents.count(document)) {
        return;
    }
    const QString path = QLatin1String(kDocumentPathPrefix) + QString::number(m_nextDocumentNumber++);
    auto* object = new DocumentObject(*this, document, path);
    auto* adaptor = new DocumentAdaptor(object);
    m_documents.emplace(document, object);
    // Watchers learn of a search's progress without asking again and again.
    const auto announce = [this, path, adaptor] {
        if (!m_registered) {
            return;
        }
        QDBusMessage changed = QDBusMessage::createSignal(path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                          QStringLiteral("PropertiesChanged"));
        changed << QLatin1String(kDocumentInterface)
                << QVariantMap{{QStringLiteral("State"), adaptor->state()},
                               {QStringLiteral("StatusLine"), adaptor->statusLine()},
                               {QStringLiteral("ResultCount"), adaptor->resultCount()},
                               {QStringLiteral("QueryString"), adaptor->queryString()}}
                << QStringList();
        m_connection.send(changed);
    };
    const query::MetadataQueryController* controller = document->metadataQueryController();
    connect(controller, &query::MetadataQueryController::stateChanged, object, announce);
    connect(controller, &query::MetadataQueryController::statusLineChanged, object, announce);
    if (m_registered) {
        m_connection.registerObject(path, object, QDBusConnection::ExportAdaptors);
    }
}

void ScriptingService::documentWillClose(document::Document* document)
{
    const auto found = m_documents.find(document);
    if (found == m_documents.end()) {
        return;
    }
    m_connection.unregisterObject(found->second->path());
    // The object may be answering a call (Close) right now.
    found->second->deleteLater();
    m_documents.erase(found);
}

}  // namespace trovara::app
