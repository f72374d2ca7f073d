// The application's documents: making new ones, opening files and folders.
//
// Opening a folder adds it as a place to search: to a new untitled
// document, or, when several folders arrive in the same turn of the event
// loop (dropped together), all to that one document. Opening a search file
// written with an older model migrates it first, leaving the old file beside
// it with "~" appended.
#pragma once

#include "common/error.h"
#include "document/document.h"
#include "document/document_store.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

namespace trovara::document {

class DocumentController final : public QObject {
    Q_OBJECT

public:
    explicit DocumentController(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher = {},
                                QObject* parent = nullptr);
    ~DocumentController() override;

    // Asked before an older file's existing backup is replaced; without
    // one, the answer is Cancel.
    void setOverwritePrompt(OverwritePrompt prompt) { m_overwritePrompt = std::move(prompt); }

    // A new untitled document (the window loaded when `display`).
    Result<Document*> openUntitledDocument(bool display = true);
    // A folder, or a search file (migrated first when older). With
    // `display` the document's window loads (and a document saved running
    // starts). The document already open for the file is returned as it is.
    Result<Document*> openDocumentWithContentsOfURL(const QString& path, bool display = true);

    const std::vector<std::unique_ptr<Document>>& documents() const { return m_documents; }
    Document* documentForURL(const QString& path) const;
    void closeDocument(Document* document);

private:
    Document* addDocument(std::unique_ptr<Document> document, bool display);
    Result<Document*> openFolder(const QString& path, bool display);

    index::QuerySource& m_source;
    std::shared_ptr<index::Dispatcher> m_dispatcher;
    std::vector<std::unique_ptr<Document>> m_documents;
    OverwritePrompt m_overwritePrompt;
    // The document that received a folder in this turn of the event loop.
    QPointer<Document> m_folderDocument;
};

}  // namespace trovara::document
