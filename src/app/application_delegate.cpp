#include "app/application_delegate.h"

#include "app/exception_handler.h"
#include "app/quick_search_url.h"
#include "app/recent_documents.h"
#include "common/error_presenter.h"
#include "common/log.h"
#include "document/document_store.h"
#include "model/defaults.h"
#include "model/value_transformer.h"
#include "presentation/metadata_item_transformer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>

#ifndef TROVARA_VERSION
#define TROVARA_VERSION "0"
#endif

namespace trovara::app {

namespace {

constexpr const char* kTemplateVersionKey = "templateVersion";
constexpr const char* kTemplatePrefix = "values.template_";

model::Defaults& defaults()
{
    return model::Defaults::shared();
}

}  // namespace

const QStringList& ApplicationDelegate::helperPreferenceKeys()
{
    static const QStringList keys = {
        QStringLiteral("enableGlobalHotKeys"),        QStringLiteral("enableGlobalMenuItem"),
        QStringLiteral("blitzSearchHotKey"),          QStringLiteral("bringToFrontHotKey"),
        QStringLiteral("bringToFrontAndCreateHotKey"),
    };
    return keys;
}

void ApplicationDelegate::initializeClass()
{
    // The shared defaults register their values when first made.
    defaults();
    model::registerModelTransformers();
    presentation::registerPresentationTransformers();
    document::registerDocumentTransformers();
    installUncaughtExceptionHandler();
}

QString ApplicationDelegate::applicationSupportFolder()
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return data.isEmpty() ? QString() : data + QStringLiteral("/Trovara");
}

QString ApplicationDelegate::templateFolder()
{
    return document::templateFolder();
}

QString ApplicationDelegate::defaultTemplatesFolder()
{
    for (const QString& folder : document::resourceFolders()) {
        const QString templates = folder + QStringLiteral("/Templates");
        if (QFileInfo(templates).isDir()) {
            return templates;
        }
    }
    return {};
}

ApplicationDelegate::ApplicationDelegate(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher,
                                         QObject* parent)
    : QObject(parent)
    , m_documentController(std::make_unique<document::DocumentController>(source, std::move(dispatcher)))
{
}

ApplicationDelegate::~ApplicationDelegate()
{
    disconnect(m_defaultsConnection);
}

void ApplicationDelegate::setHelperSwitch(HelperSwitch* helperSwitch)
{
    m_helperSwitch = helperSwitch ? helperSwitch : &m_noHelperSwitch;
}

int ApplicationDelegate::runAlert(const QString& title, const QString& message, const QStringList& buttons)
{
    const query::Alert alert{title, message, buttons};
    if (m_alertPrompt) {
        return m_alertPrompt(alert);
    }
    TLOG(QStringLiteral("%1: %2 [%3]").arg(title, message, buttons.join(QStringLiteral(", "))));
    return 0;
}

// --- Start and stop -----------------------------------------------------------------------

void ApplicationDelegate::applicationWillFinishLaunching()
{
    // The crash reporter and the software update are left to the system;
    // URLs and services arrive through the scripting service. Documents
    // the system opens from now on suppress the untitled one.
    m_applicationShouldOpenUntitledFile = false;
}

bool ApplicationDelegate::applicationDidFinishLaunching()
{
    m_helperSwitch->setUpHelper(false);

    const QString support = applicationSupportFolder();
    if (support.isEmpty()) {
        runAlert(tr(kAlertTitle), tr(kNoSupportFolderMessage), {tr(kNoSupportFolderButton)});
        emit terminateRequested();
        return false;
    }
    QDir().mkpath(support);

    const QString templates = templateFolder();
    if (QFileInfo(templates).isDir()) {
        installTemplates(false);
    } else if (QDir().mkpath(templates)) {
        defaults().setValue(QLatin1String(kTemplateVersionKey), 0);
        defaults().synchronize();
        installTemplates(true);
    } else {
        runAlert(tr(kAlertTitle), tr(kTemplatesFolderFailedMessage), {tr(kTemplatesFolderFailedButton)});
        installTemplates(true);
    }
    QTimer::singleShot(0, this, &ApplicationDelegate::loadTemplates);

    m_defaultsConnection = connect(&model::DefaultsController::shared(), &model::DefaultsController::valueChanged,
                                   this, &ApplicationDelegate::defaultsValueChanged);

    defaults().setValue(QStringLiteral("appPath"), QCoreApplication::applicationFilePath());
    defaults().setValue(QStringLiteral("appVersion"), QStringLiteral(TROVARA_VERSION));
    defaults().synchronize();

    QTimer::singleShot(0, this, &ApplicationDelegate::openNewDocumentWhenNeeded);

    m_launched = true;
    activeDocumentDidChange();

    if (qEnvironmentVariableIsSet("NSZombieEnabled") || qEnvironmentVariableIsSet("NSAutoreleaseFreedObjectCheckEnabled")) {
        TLOG(QStringLiteral("NSZombieEnabled/NSAutoreleaseFreedObjectCheckEnabled enabled!"));
    }
    return true;
}

void ApplicationDelegate::openNewDocumentWhenNeeded()
{
    m_applicationShouldOpenUntitledFile = true;
    if (!m_documentController->documents().empty()) {
        return;
    }
    Result<document::Document*> made = newDocument();
    if (!made) {
        presentError(made.error());
    }
}

bool ApplicationDelegate::applicationShouldTerminateAfterLastWindowClosed() const
{
    return defaults().boolValue(QStringLiteral("quitOnCloseOfLastWindow"));
}

void ApplicationDelegate::lastWindowClosed()
{
    if (applicationShouldTerminateAfterLastWindowClosed()) {
        emit terminateRequested();
    }
}

void ApplicationDelegate::applicationWillTerminate()
{
    m_launched = false;
    m_mainWindowDocument = nullptr;
    m_activeDocument = nullptr;
}

// --- Documents ------------------------------------------------------------------------------

std::vector<document::Document*> ApplicationDelegate::documents() const
{
    std::vector<document::Document*> list;
    for (const std::unique_ptr<document::Document>& document : m_documentController->documents()) {
        list.push_back(document.get());
    }
    return list;
}

document::Document* ApplicationDelegate::announce(document::Document* document)
{
    emit documentOpened(document);
    return document;
}

Result<document::Document*> ApplicationDelegate::newDocument()
{
    Result<document::Document*> made = m_documentController->openUntitledDocument(m_displaysDocuments);
    if (!made) {
        return made;
    }
    return announce(made.value());
}

Result<document::Document*> ApplicationDelegate::openDocument(const QString& path)
{
    const std::vector<document::Document*> before = documents();
    Result<document::Document*> opened =
        m_documentController->openDocumentWithContentsOfURL(path, m_displaysDocuments);
    if (!opened) {
        return opened;
    }
    document::Document* document = opened.value();
    noteRecentDocument(document->fileURL());
    // A file already open, or a folder that joined this turn's new search,
    // is not new.
    if (std::find(before.begin(), before.end(), document) != before.end()) {
        return document;
    }
    return announce(document);
}

std::vector<document::Document*> ApplicationDelegate::openDocuments(const QStringList& paths)
{
    std::vector<document::Document*> opened;
    for (const QString& path : paths) {
        Result<document::Document*> document = openDocument(path);
        if (document) {
            opened.push_back(document.value());
        } else {
            presentError(document.error());
        }
    }
    return opened;
}

void ApplicationDelegate::closeDocument(document::Document* document)
{
    const std::vector<document::Document*> open = documents();
    if (std::find(open.begin(), open.end(), document) == open.end()) {
        return;
    }
    emit documentWillClose(document);
    if (m_mainWindowDocument == document) {
        setMainWindowDocument(nullptr);
    }
    m_documentController->closeDocument(document);
    emit documentClosed();
}

Status ApplicationDelegate::saveDocumentAs(document::Document* document, const QString& path)
{
    Status saved = document->saveToURL(path, document::Document::SaveOperation::SaveAs);
    if (saved) {
        noteRecentDocument(document->fileURL());
    }
    return saved;
}

void ApplicationDelegate::setMainWindowDocument(document::Document* document)
{
    m_mainWindowDocument = document;
    QTimer::singleShot(0, this, &ApplicationDelegate::activeDocumentDidChange);
}

void ApplicationDelegate::activeDocumentDidChange()
{
    if (!m_launched || m_activeDocument == m_mainWindowDocument) {
        return;
    }
    m_activeDocument = m_mainWindowDocument;
    emit activeDocumentChanged(m_activeDocument);
}

// --- Templates ----------------------------------------------------------------------------------

bool ApplicationDelegate::installTemplates(bool force)
{
    bool install = force;
    if (!force && defaults().intValue(QLatin1String(kTemplateVersionKey)) <= kCurrentTemplateVersion - 1) {
        install = runAlert(tr(kNewTemplatesTitle), tr(kNewTemplatesMessage), {tr(kYesButton), tr(kNoButton)}) == 0;
    }
    defaults().setValue(QLatin1String(kTemplateVersionKey), kCurrentTemplateVersion);
    defaults().synchronize();
    if (!install || !QFileInfo(templateFolder()).isDir()) {
        return false;
    }
    return copyDefaultTemplates();
}

bool ApplicationDelegate::copyDefaultTemplates()
{
    const QString source = m_defaultTemplatesFolder.isEmpty() ? defaultTemplatesFolder() : m_defaultTemplatesFolder;
    if (source.isEmpty()) {
        TLOG(QStringLiteral("No default templates found beside the program"));
        return false;
    }
    const QDir from(source);
    const QDir to(templateFolder());
    const QStringList names =
        from.entryList({QStringLiteral("*.") + QLatin1String(document::kDocumentExtension)}, QDir::Files);
    bool copied = false;
    for (const QString& name : names) {
        const QString target = to.absoluteFilePath(name);
        if (QFileInfo::exists(target) && !QFile::moveToTrash(target)) {
            // Never deleted outright: the user's file stays, the default
            // one is not installed.
            TLOG(QStringLiteral("Could not move %1 to the trash").arg(target));
            continue;
        }
        if (QFile::copy(from.absoluteFilePath(name), target)) {
            // Installed files may be read-only; the user's copies are not.
            QFile::setPermissions(target, QFile::permissions(target) | QFileDevice::WriteOwner);
            copied = true;
        } else {
            TLOG(QStringLiteral("Could not copy the template %1 to %2").arg(name, target));
        }
    }
    if (copied && m_templatesWatched) {
        loadTemplates();
    }
    return copied;
}

void ApplicationDelegate::loadTemplates()
{
    document::Templates::refresh();
    const QString folder = templateFolder();
    if (!m_templatesWatched && QFileInfo(folder).isDir()) {
        m_templateWatcher = new QFileSystemWatcher({folder}, this);
        connect(m_templateWatcher, &QFileSystemWatcher::directoryChanged, this, [this] {
            document::Templates::refresh();
            emit templatesChanged();
        });
        m_templatesWatched = true;
    }
    emit templatesChanged();
}

const std::vector<const document::TemplateItem*>& ApplicationDelegate::templates() const
{
    return document::Templates::templates();
}

// --- Open Recent ------------------------------------------------------------------------------

QStringList ApplicationDelegate::recentDocuments() const
{
    return RecentDocuments::paths();
}

void ApplicationDelegate::noteRecentDocument(const QString& path)
{
    // Untitled documents (template copies among them) have no file to list.
    if (path.isEmpty()) {
        return;
    }
    RecentDocuments::noteDocument(path);
    emit recentDocumentsChanged();
}

void ApplicationDelegate::clearRecentDocuments()
{
    RecentDocuments::clear();
    emit recentDocumentsChanged();
}

// --- Preferences and errors ------------------------------------------------------------------------

void ApplicationDelegate::defaultsValueChanged(const QString& keyPath)
{
    if (keyPath.startsWith(QLatin1String(kTemplatePrefix))) {
        emit templateMenuChanged();
        defaults().synchronize();
        return;
    }
    for (const QString& key : helperPreferenceKeys()) {
        if (keyPath.endsWith(key)) {
            defaults().synchronize();
            emit helperPreferencesChanged();
            return;
        }
    }
}

void ApplicationDelegate::presentError(const Error& error)
{
    trovara::presentError(error);
}

// --- Quick search ---------------------------------------------------------------------------------

document::Document* ApplicationDelegate::showDocument(document::Document* document)
{
    if (!document->isWindowLoaded()) {
        document->windowControllerDidLoadNib();
    }
    return announce(document);
}

void ApplicationDelegate::getUrl(const QString& url)
{
    const QuickSearchUrl parsed = QuickSearchUrl::parse(url, templateFolder());
    switch (parsed.outcome()) {
    case QuickSearchUrl::Outcome::Refuse:
        TLOG(QStringLiteral("Ignoring the link %1: %2").arg(url.left(200), parsed.problem()));
        emit beepRequested();
        return;
    case QuickSearchUrl::Outcome::Ignore:
        return;
    case QuickSearchUrl::Outcome::Search:
        handleBlitzSearchScriptCommand(parsed.request());
        return;
    }
}

document::Document* ApplicationDelegate::handleBlitzSearchScriptCommand(const BlitzSearchRequest& request)
{
    if (request.searchString.isEmpty()) {
        return nullptr;
    }
    // The search's own window comes up; no empty one beside it.
    m_applicationShouldOpenUntitledFile = false;
    activate();
    Result<document::Document*> made = performBlitzSearch(request);
    m_applicationShouldOpenUntitledFile = true;
    return made ? made.value() : nullptr;
}

Result<document::Document*> ApplicationDelegate::performBlitzSearch(const BlitzSearchRequest& request)
{
    Result<document::Document*> opened = m_documentController->openUntitledDocument(false);
    if (!opened) {
        presentError(opened.error());
        return opened;
    }
    document::Document* document = opened.value();
    if (!request.templatePath.isEmpty()) {
        if (Status loaded = document->loadTemplate(request.templatePath); !loaded) {
            // Nothing half-made stays behind.
            m_documentController->closeDocument(document);
            presentError(loaded.error());
            return loaded.error();
        }
    }
    document->applyBlitzSearch(request.searchString, request.anyText, request.filename, request.content,
                               request.comments);
    return showDocument(document);
}

Result<document::Document*> ApplicationDelegate::performLocationSearch(const QStringList& paths)
{
    Result<document::Document*> opened = m_documentController->openUntitledDocument(false);
    if (!opened) {
        presentError(opened.error());
        return opened;
    }
    opened.value()->applyLocations(paths);
    return showDocument(opened.value());
}

document::Document* ApplicationDelegate::blitzSearchService(const QString& text)
{
    if (text.isEmpty()) {
        emit beepRequested();
        return nullptr;
    }
    BlitzSearchRequest request;
    request.searchString = text;
    request.anyText = request.filename = request.content = request.comments = true;
    Result<document::Document*> made = performBlitzSearch(request);
    return made ? made.value() : nullptr;
}

document::Document* ApplicationDelegate::locationSearchService(const QStringList& paths)
{
    if (paths.isEmpty()) {
        emit beepRequested();
        return nullptr;
    }
    Result<document::Document*> made = performLocationSearch(paths);
    return made ? made.value() : nullptr;
}

Result<document::Document*> ApplicationDelegate::openTemplateWithURL(const QString& path, bool fresh)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (!fresh) {
        for (document::Document* document : documents()) {
            if (document->templateURL() == absolute) {
                emit documentWindowRequested(document);
                return document;
            }
        }
    }
    Result<document::Document*> opened = m_documentController->openUntitledDocument(false);
    if (!opened) {
        presentError(opened.error());
        return opened;
    }
    document::Document* document = opened.value();
    if (Status loaded = document->loadTemplate(absolute); !loaded) {
        m_documentController->closeDocument(document);
        presentError(loaded.error());
        return loaded.error();
    }
    return showDocument(document);
}

void ApplicationDelegate::activate()
{
    if (!m_applicationActive && m_applicationShouldOpenUntitledFile && m_documentController->documents().empty()) {
        if (Result<document::Document*> made = newDocument(); !made) {
            presentError(made.error());
        }
    }
    emit activationRequested();
}

document::Document* ApplicationDelegate::activateNewDocument()
{
    Result<document::Document*> made = newDocument();
    if (!made) {
        presentError(made.error());
    }
    emit activationRequested();
    return made ? made.value() : nullptr;
}

}  // namespace trovara::app
