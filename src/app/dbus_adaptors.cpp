#include "app/dbus_adaptors.h"

#include "app/application_delegate.h"
#include "app/scripting_service.h"
#include "document/document.h"
#include "model/defaults.h"
#include "query/metadata_query_controller.h"

#include <QDBusError>
#include <QFileInfo>

namespace trovara::app {

namespace {

constexpr const char* kFileNotFoundError = "org.freedesktop.DBus.Error.FileNotFound";

QString fileNotFound(const QString& path)
{
    return QStringLiteral("There is no file or folder at \"%1\".").arg(path);
}

}  // namespace

// --- The application ----------------------------------------------------------------------

ApplicationObject::ApplicationObject(ScriptingService& service)
    : QObject(&service)
    , m_service(service)
{
}

ApplicationAdaptor::ApplicationAdaptor(ApplicationObject* application)
    : QDBusAbstractAdaptor(application)
    , m_application(application)
    , m_service(application->service())
{
    setAutoRelaySignals(true);
}

QDBusObjectPath ApplicationAdaptor::replyWithError(const QString& name, const QString& message)
{
    if (m_application->calledFromDBus()) {
        m_application->sendErrorReply(name, message);
    }
    return QDBusObjectPath(QStringLiteral("/"));
}

QList<QDBusObjectPath> ApplicationAdaptor::Documents()
{
    QList<QDBusObjectPath> paths;
    for (document::Document* document : m_service.delegate().documents()) {
        paths << m_service.pathForDocument(document);
    }
    return paths;
}

QDBusObjectPath ApplicationAdaptor::ActiveDocument()
{
    return m_service.pathForDocument(m_service.delegate().activeDocument());
}

QDBusObjectPath ApplicationAdaptor::OpenDocument(const QString& path)
{
    if (path.isEmpty() || QFileInfo(path).isRelative()) {
        return replyWithError(QDBusError::errorString(QDBusError::InvalidArgs),
                              QStringLiteral("OpenDocument takes an absolute path, not \"%1\".").arg(path));
    }
    if (!QFileInfo::exists(path)) {
        return replyWithError(QLatin1String(kFileNotFoundError), fileNotFound(path));
    }
    Result<document::Document*> opened = m_service.delegate().openDocument(path);
    if (!opened) {
        return replyWithError(QLatin1String(ScriptingService::kOpenFailedError), opened.error().toString());
    }
    return m_service.pathForDocument(opened.value());
}

QDBusObjectPath ApplicationAdaptor::NewDocument()
{
    Result<document::Document*> made = m_service.delegate().newDocument();
    if (!made) {
        return replyWithError(QLatin1String(ScriptingService::kOpenFailedError), made.error().toString());
    }
    return m_service.pathForDocument(made.value());
}

void ApplicationAdaptor::OpenLocations(const QStringList& locations)
{
    m_service.openLocations(locations);
}

// --- A document --------------------------------------------------------------------------------

DocumentObject::DocumentObject(ScriptingService& service, document::Document* document, QString path)
    : QObject(&service)
    , m_service(service)
    , m_document(document)
    , m_path(std::move(path))
{
}

DocumentAdaptor::DocumentAdaptor(DocumentObject* object)
    : QDBusAbstractAdaptor(object)
    , m_object(object)
{
}

document::Document* DocumentAdaptor::liveDocument()
{
    document::Document* document = m_object->document();
    if (!document) {
        fail(QLatin1String(ScriptingService::kNoSuchDocumentError),
             QStringLiteral("The document %1 has been closed.").arg(m_object->path()));
    }
    return document;
}

void DocumentAdaptor::fail(const QString& name, const QString& message)
{
    if (m_object->calledFromDBus()) {
        m_object->sendErrorReply(name, message);
    }
}

QString DocumentAdaptor::displayName() const
{
    const document::Document* document = m_object->document();
    return document ? document->displayName() : QString();
}

QString DocumentAdaptor::filePath() const
{
    const document::Document* document = m_object->document();
    return document ? document->fileURL() : QString();
}

QString DocumentAdaptor::queryString() const
{
    const document::Document* document = m_object->document();
    if (!document) {
        return {};
    }
    const query::MetadataQueryController* controller = document->metadataQueryController();
    if (controller->isAlive()) {
        return controller->queryString();
    }
    // What a start would run now.
    return query::MetadataQueryController::finalQueryString(
        document->currentExpression(), model::Defaults::shared().boolValue(QStringLiteral("includeInvisibleFiles")));
}

QString DocumentAdaptor::statusLine() const
{
    const document::Document* document = m_object->document();
    return document ? document->metadataQueryController()->statusLine() : QString();
}

QString DocumentAdaptor::state() const
{
    const document::Document* document = m_object->document();
    if (!document) {
        return QStringLiteral("idle");
    }
    switch (document->metadataQueryController()->state()) {
    case query::MetadataQueryController::State::Gathering:
        return QStringLiteral("gathering");
    case query::MetadataQueryController::State::Live:
        return QStringLiteral("live");
    case query::MetadataQueryController::State::Idle:
        break;
    }
    return QStringLiteral("idle");
}

int DocumentAdaptor::resultCount() const
{
    const document::Document* document = m_object->document();
    return document ? static_cast<int>(document->metadataQueryController()->results()->arrangedObjects().size()) : 0;
}

QStringList DocumentAdaptor::Results()
{
    QStringList paths;
    if (document::Document* document = liveDocument()) {
        for (query::ResultItem* item : document->metadataQueryController()->results()->arrangedObjects()) {
            paths << item->path();
        }
    }
    return paths;
}

void DocumentAdaptor::Start()
{
    document::Document* document = liveDocument();
    if (!document || document->isQueryAlive()) {
        return;
    }
    if (!document->canStartQuery()) {
        fail(QLatin1String(ScriptingService::kCannotStartError),
             QStringLiteral("The search has no criteria or no places to search."));
        return;
    }
    document->startQuery();
}

void DocumentAdaptor::Stop()
{
    if (document::Document* document = liveDocument()) {
        document->stopQuery();
    }
}

void DocumentAdaptor::SaveAs(const QString& path)
{
    document::Document* document = liveDocument();
    if (!document) {
        return;
    }
    if (path.isEmpty() || QFileInfo(path).isRelative()) {
        fail(QDBusError::errorString(QDBusError::InvalidArgs),
             QStringLiteral("SaveAs takes an absolute path, not \"%1\".").arg(path));
        return;
    }
    QString target = path;
    if (QFileInfo(target).suffix() != QLatin1String(document::kDocumentExtension)) {
        target += QLatin1Char('.') + QLatin1String(document::kDocumentExtension);
    }
    if (!QFileInfo(QFileInfo(target).absolutePath()).isDir()) {
        fail(QLatin1String(kFileNotFoundError), fileNotFound(QFileInfo(target).absolutePath()));
        return;
    }
    Status saved = m_object->service().delegate().saveDocumentAs(document, target);
    if (!saved) {
        fail(QLatin1String(ScriptingService::kSaveFailedError), saved.error().toString());
    }
}

void DocumentAdaptor::Close()
{
    if (document::Document* document = liveDocument()) {
        m_object->service().delegate().closeDocument(document);
    }
}

}  // namespace trovara::app
