#include "document/document_controller.h"

#include "model/scope.h"

#include <QFileInfo>
#include <QTimer>

#include <algorithm>

namespace trovara::document {

DocumentController::DocumentController(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher,
                                       QObject* parent)
    : QObject(parent)
    , m_source(source)
    , m_dispatcher(std::move(dispatcher))
{
}

DocumentController::~DocumentController() = default;

Document* DocumentController::addDocument(std::unique_ptr<Document> document, bool display)
{
    Document* added = document.get();
    m_documents.push_back(std::move(document));
    if (display) {
        added->windowControllerDidLoadNib();
    }
    return added;
}

Result<Document*> DocumentController::openUntitledDocument(bool display)
{
    auto document = std::make_unique<Document>(m_source, m_dispatcher);
    if (Status made = document->initWithType(); !made) {
        return made.error();
    }
    return addDocument(std::move(document), display);
}

Document* DocumentController::documentForURL(const QString& path) const
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    for (const std::unique_ptr<Document>& document : m_documents) {
        if (!document->fileURL().isEmpty() && document->fileURL() == absolute) {
            return document.get();
        }
    }
    return nullptr;
}

void DocumentController::closeDocument(Document* document)
{
    auto found = std::find_if(m_documents.begin(), m_documents.end(),
                              [&](const std::unique_ptr<Document>& entry) { return entry.get() == document; });
    if (found != m_documents.end()) {
        m_documents.erase(found);
    }
}

Result<Document*> DocumentController::openFolder(const QString& path, bool display)
{
    Document* document = m_folderDocument;
    const bool fresh = !document;
    if (fresh) {
        Result<Document*> made = openUntitledDocument(display);
        if (!made) {
            return made.error();
        }
        document = made.value();
        m_folderDocument = document;
        // Folders that arrive in the same turn join this document; later
        // ones get their own.
        QTimer::singleShot(0, this, [this] { m_folderDocument = nullptr; });
    }
    const QString folder = QFileInfo(path).absoluteFilePath();
    document->updateScope([&] {
        store::ManagedObjectContext& context = document->managedObjectContext();
        if (fresh) {
            for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
                context.deleteObject(ordered);
            }
        }
        if (model::Scope* scope = model::Scope::scopeWithPath(folder, context)) {
            model::OrderedScope::createOrderedScopeWith(scope);
        }
    });
    emit document->scopeEditorReloadRequested();
    return document;
}

Result<Document*> DocumentController::openDocumentWithContentsOfURL(const QString& path, bool display)
{
    const QFileInfo info(path);
    if (info.isDir()) {
        return openFolder(path, display);
    }
    if (Document* open = documentForURL(path)) {
        return open;
    }
    if (info.suffix() == QLatin1String(kDocumentExtension)) {
        const OverwritePrompt cancel = [](const QString&) { return false; };
        if (Status migrated = migrateDocumentIfNeeded(info.absoluteFilePath(),
                                                      m_overwritePrompt ? m_overwritePrompt : cancel);
            !migrated) {
            return migrated.error();
        }
    }
    auto document = std::make_unique<Document>(m_source, m_dispatcher);
    if (Status opened = document->initWithContentsOfURL(info.absoluteFilePath()); !opened) {
        return opened.error();
    }
    return addDocument(std::move(document), display);
}

}  // namespace trovara::document
