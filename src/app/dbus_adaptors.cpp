#include "app/dbus_adaptors.h"

#include "app/application_delegate.h"
#include "app/scripting_service.h"
#include "document/document.h"
#include "model/defaults.h"
#include "query/metadata_query_controller.h"

#include "app/quick_search_url.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFileInfo>

#include <unistd.h>

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

bool ApplicationAdaptor::acceptCaller()
{
    if (!m_application->calledFromDBus()) {
        return true;
    }
    const QDBusReply<uint> uid =
        m_application->connection().interface()->serviceUid(m_application->message().service());
    if (uid.isValid() && uid.value() == static_cast<uint>(::getuid())) {
        return true;
    }
    replyWithError(QDBusError::errorString(QDBusError::AccessDenied),
                   QStringLiteral("Trovara answers only the user it runs for."));
    return false;
}

QDBusObjectPath ApplicationAdaptor::documentOrError(document::Document* document)
{
    if (!document) {
        return replyWithError(QLatin1String(ScriptingService::kOpenFailedError),
                              QStringLiteral("The search could not be made; Trovara shows why."));
    }
    return m_service.pathForDocument(document);
}

QDBusObjectPath ApplicationAdaptor::BlitzSearch(const QString& text, bool anyText, bool filename, bool content,
                                                bool comments, const QString& templatePath)
{
    if (!acceptCaller()) {
        return QDBusObjectPath(QStringLiteral("/"));
    }
    if (text.isEmpty() || text.size() > QuickSearchUrl::kMaximumLength) {
        return replyWithError(QDBusError::errorString(QDBusError::InvalidArgs),
                              QStringLiteral("BlitzSearch takes a search text of 1 to %1 characters.")
                                  .arg(QuickSearchUrl::kMaximumLength));
    }
    BlitzSearchRequest request{text, anyText, filename, content, comments, {}};
    if (!templatePath.isEmpty()) {
        if (QFileInfo(templatePath).isRelative()) {
            return replyWithError(QDBusError::errorString(QDBusError::InvalidArgs),
                                  QStringLiteral("BlitzSearch takes an absolute template path, not \"%1\".")
                                      .arg(templatePath));
        }
        const QFileInfo file(templatePath);
        if (!file.isFile() || !file.isReadable()) {
            return replyWithError(QLatin1String(kFileNotFoundError),
                                  QStringLiteral("There is no readable template at \"%1\".").arg(templatePath));
        }
        request.templatePath = file.absoluteFilePath();
    }
    return documentOrError(m_service.delegate().handleBlitzSearchScriptCommand(request));
}

QDBusObjectPath ApplicationAdaptor::LocationSearch(const QStringList& paths)
{
    if (!acceptCaller()) {
        return QDBusObjectPath(QStringLiteral("/"));
    }
    if (paths.isEmpty()) {
        return replyWithError(QDBusError::errorString(QDBusError::InvalidArgs),
                              QStringLiteral("LocationSearch takes at least one folder."));
    }
    for (const QString& path : paths) {
        if (path.isEmpty() || QFileInfo(path).isRelative()) {
            return replyWithError(QDBusError::errorString(QDBusError::InvalidArgs),
                                  QStringLiteral("LocationSearch takes absolute paths, not \"%1\".").arg(path));
        }
        if (!QFileInfo(path).isDir()) {
            return replyWithError(QLatin1String(kFileNotFoundError),
                                  QStringLiteral("There is no folder at \"%1\".").arg(path));
        }
    }
    return documentOrError(m_service.delegate().locationSearchService(paths));
}

QDBusObjectPath ApplicationAdaptor::OpenTemplate(const QString& path, bool fresh)
{
    if (!acceptCaller()) {
        return QDBusObjectPath(QStringLiteral("/"));
    }
    if (path.isEmpty() || QFileInfo(path).isRelative()) {
        return replyWithError(QDBusError::errorString(QDBusError::InvalidArgs),
                              QStringLiteral("OpenTemplate takes an absolute path, not \"%1\".").arg(path));
    }
    if (!QFileInfo(path).isFile()) {
        return replyWithError(QLatin1String(kFileNotFoundError), fileNotFound(path));
    }
    Result<document::Document*> opened = m_service.delegate().openTemplateWithURL(path, fresh);
    if (!opened) {
        return replyWithError(QLatin1String(ScriptingService::kOpenFailedError), opened.error().toString());
    }
    m_service.delegate().activate();
    return m_service.pathForDocument(opened.value());
}

QDBusObjectPath ApplicationAdaptor::SearchFileManagerFolder()
{
    if (!acceptCaller()) {
        return QDBusObjectPath(QStringLiteral("/"));
    }
    const QString folder = m_service.fileManagerFolder();
    if (folder.isEmpty()) {
        return replyWithError(QLatin1String(ScriptingService::kNoFileManagerFolderError),
                              QStringLiteral("The file manager does not tell which folder its front window shows. "
                                             "Choose \"Search in Trovara\" on the folder in the file manager, "
                                             "or call LocationSearch with its path."));
    }
    return LocationSearch({folder});
}

void ApplicationAdaptor::OpenUrl(const QString& url)
{
    if (!acceptCaller()) {
        return;
    }
    const QuickSearchUrl parsed = QuickSearchUrl::parse(url, ApplicationDelegate::templateFolder());
    if (parsed.outcome() == QuickSearchUrl::Outcome::Refuse) {
        replyWithError(QDBusError::errorString(QDBusError::InvalidArgs), parsed.problem());
        return;
    }
    m_service.delegate().getUrl(url);
}

void ApplicationAdaptor::Activate()
{
    if (acceptCaller()) {
        m_service.delegate().activate();
    }
}

void ApplicationAdaptor::ActivateNewDocument()
{
    if (acceptCaller()) {
        m_service.delegate().activateNewDocument();
    }
}

void ApplicationAdaptor::ShowPreferences()
{
    if (acceptCaller()) {
        m_service.delegate().showPreferences();
    }
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
