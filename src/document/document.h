// One search as a document: its object graph (criteria tree, places to
// search and to leave out, limit, columns, settings), the query controller
// that runs it, and its file.
//
// The document turns its graph into the controller's four inputs: the
// criteria expression, the search scopes (tilde expanded, in order), the
// excluded paths and the limit. Editors write rows into the graph and call
// updatePredicate() & co.; undo and redo reach the inputs through the
// graph's change notifications, which reload the matching editor (and the
// inputs) on the next turn of the event loop.
//
// Everything a window shows is here as state and signals (the Start/Stop
// command, the result view, the words to highlight), so the document runs
// headless; a window binds to it.
//
// Not thread-safe: use a document on the thread that made it.
#pragma once

#include "common/error.h"
#include "store/managed_object_context.h"
#include "store/sqlite_store.h"
#include "index/live/live_query.h"
#include "query/metadata_query_controller.h"
#include "query/query_document.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

namespace trovara::document {

// The Start/Stop command as a toolbar shows it.
struct StartStopItem {
    QString label;    // "Start" or "Stop"
    QString toolTip;  // "Start Query" or "Stop Query"
    QString image;    // "start" or "stop"
    bool enabled = false;
};

class Document final : public QObject, public query::QueryDocument {
    Q_OBJECT
    Q_PROPERTY(bool canStartQuery READ canStartQuery NOTIFY runControlChanged)
    Q_PROPERTY(bool canStopQuery READ canStopQuery NOTIFY runControlChanged)
    Q_PROPERTY(QString searchString READ searchString NOTIFY searchStringChanged)
    Q_PROPERTY(QStringList searchStringArray READ searchStringArray NOTIFY searchStringChanged)

public:
    // The title of a document without a file.
    static constexpr const char* kUntitledDisplayName = "Trovara";

    // How a document is written: Save and SaveAs make the file the
    // document's own; SaveTo writes a copy and leaves the document as it is.
    enum class SaveOperation { Save, SaveAs, SaveTo };

    // A document whose query runs on `source`; `dispatcher` delivers the
    // query's notifications (the object's event loop when empty).
    explicit Document(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher = {},
                      QObject* parent = nullptr);
    ~Document() override;

    // --- Making a document ----------------------------------------------------
    // A new document: from the preferred template when "preferredTemplate"
    // names an existing file, otherwise the default criteria, the default
    // places and the primed columns and limit. Checks the metadata service
    // first (not for the first new document of the process).
    Status initWithType();
    // A document read from a file. A read-only file, or one in the
    // templates folder, gives an untitled copy (templateURL says where it
    // came from). An error when the metadata service does not answer or the
    // file cannot be read; the file is never changed by a failed opening.
    Status initWithContentsOfURL(const QString& path);
    // Replaces the graph with the contents of a file (a template copy).
    Status loadFromURL(const QString& path);
    // An untitled copy of a template: its contents, and templateURL() and
    // templateName() naming it.
    Status loadTemplate(const QString& path);

    // What a window does once it is shown: attach the controller, hand it
    // the four inputs and the stored filter, apply the stored result view,
    // and start the query on the next turn of the event loop when the
    // document was saved running.
    void windowControllerDidLoadNib();
    bool isWindowLoaded() const { return m_windowLoaded; }

    // --- The graph and its file -------------------------------------------------
    store::ManagedObjectContext& managedObjectContext() override { return *m_context; }
    query::MetadataQueryController* metadataQueryController() const { return m_controller.get(); }

    // The document's file; empty for an untitled document.
    const QString& fileURL() const { return m_fileURL; }
    // Where an untitled copy came from, and its name without extension.
    const QString& templateURL() const { return m_templateURL; }
    const QString& templateName() const { return m_templateName; }
    // "Trovara" without a file, else the file's name without ".trova".
    QString displayName() const;
    // Never for a document without a file; otherwise whether the graph has
    // changed since it was read or saved.
    bool isDocumentEdited() const;

    // Writes the settings ("runState", "resultsView", "sortDescriptor", the
    // filter) and the column layout into the graph, then the graph to the
    // path. The previous file survives any failure.
    Status saveToURL(const QString& path, SaveOperation operation = SaveOperation::SaveAs,
                     const store::SaveOptions& options = {});
    Status save() { return saveToURL(m_fileURL, SaveOperation::Save); }

    // --- Query assembly -------------------------------------------------------------
    void updateQueryWithPredicate();
    void updateQueryWithScope();
    void updateQueryWithExclusion();
    void updateQueryWithLimit();
    // Recomputes the words to highlight when `force` or the query is alive;
    // otherwise clears them.
    void updateSearchString(bool force);
    // The first free-text term of the criteria (null when none) and every
    // free-text word or phrase, walking the tree from the root.
    QString computeSearchString(QStringList* array) const;
    const QString& searchString() const { return m_searchString; }
    const QStringList& searchStringArray() const { return m_searchStringArray; }
    const QString& currentExpression() const { return m_currentExpression; }

    // What an editor calls after the user changed its rows: notifications
    // off, `writeRows` (rows into the graph), the matching update, the
    // highlight words, notifications on.
    void updatePredicate(const std::function<void()>& writeRows = {});
    void updateScope(const std::function<void()>& writeRows = {});
    void updateExclusion(const std::function<void()>& writeRows = {});
    void updateLimit(const std::function<void()>& writeRows = {});

    // --- Run control ------------------------------------------------------------
    void startQueryInternal(bool alternateKeyDown = false);
    void startQuery(bool alternateKeyDown = false) { startQueryInternal(alternateKeyDown); }
    void startQueryForSender() { startQueryInternal(); }
    void stopQuery();
    void startStopQuery(bool alternateKeyDown = false);
    bool isQueryAlive() const { return m_controller->isAlive(); }
    // Saved as running although nothing runs it here (a search made by the
    // command-line tool): a window that opens it starts the search at once.
    void setSavesAsRunning(bool running) { m_savesAsRunning = running; }
    // Start: no query alive, an expression and at least one scope. Stop:
    // a query alive.
    bool canStartQuery() const;
    bool canStopQuery() const { return isQueryAlive(); }
    StartStopItem startStopItem() const;

    // --- Change notifications -----------------------------------------------------
    void setObjectChangeNotificationEnabled(bool enabled);
    bool objectChangeNotificationEnabled() const { return m_objectChangeNotificationEnabled; }

    // --- Quick search ---------------------------------------------------------------
    // Fills the criteria with an ANY group searching `searchString` in the
    // chosen fields (any text, file name, content, comments) and marks the
    // document to start when its window loads. None of the four flags
    // searches any text.
    void applyBlitzSearch(const QString& searchString, bool anyText, bool filename, bool content, bool comments);
    // Makes the folders (absolute paths) the places to search, in order.
    void applyLocations(const QStringList& paths);

    // --- The metadata service ---------------------------------------------------------
    // Whether the metadata schema answers for kMDItemDisplayName; when it
    // does not, the error is presented. `skipFirst`: the check of new
    // documents, skipped once in the life of the process.
    static bool checkSpotlightStatus(bool skipFirst = false);
    static Error spotlightStatusError();
    // Makes the next new document's check the skipped first one again.
    static void resetSpotlightCheckForTesting();

    // The stored settings.
    QString metaAttributeText(const QString& key) const;
    void setMetaAttributeText(const QString& key, const QString& text);

signals:
    void runControlChanged();
    void searchStringChanged();
    // The editors reload their rows from the graph (after undo or redo).
    void predicateEditorReloadRequested();
    void scopeEditorReloadRequested();
    // The visible result view takes the keyboard focus (0 table, 1 grid,
    // 2 cover flow).
    void focusOnResultsRequested(int tabIndex);
    // The change count was cleared (a new document is not edited).
    void changesCleared();

private:
    void fillNewDocument();
    void objectsDidChange(const store::ObjectChanges& changes);
    void runEditorUpdate(const std::function<void()>& writeRows, void (Document::*update)());
    void replaceContext(std::unique_ptr<store::ManagedObjectContext> context);
    void clearChangesLater();
    void later(std::function<void()> work);

    index::QuerySource& m_source;
    std::unique_ptr<store::ManagedObjectContext> m_context;
    std::unique_ptr<query::MetadataQueryController> m_controller;
    QMetaObject::Connection m_changeConnection;
    bool m_objectChangeNotificationEnabled = false;
    bool m_windowLoaded = false;
    bool m_savesAsRunning = false;
    bool m_reloadPredicatePending = false;
    bool m_reloadScopesPending = false;

    QString m_fileURL;
    QString m_templateURL;
    QString m_templateName;
    QString m_currentExpression;
    QString m_searchString;
    QStringList m_searchStringArray;
};

}  // namespace trovara::document
