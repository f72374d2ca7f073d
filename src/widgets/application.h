// The application on the desktop: one window per open search document, the
// floating panels, and the commands of the menus.
//
// - The index opens in the background (the daemon's when one runs, else an
//   engine in this process): windows show at once and say that the index
//   is being opened; each document's window loads (columns, filter, a
//   saved running search starts) once it is open. A failure to open it, or
//   a daemon that goes away and comes back, is said in every window.
// - The documents belong to the application delegate (app/), which opens,
//   announces and closes them; every document it announces gets a
//   DocumentWindow, and closing the window closes the document. After the
//   last window closes the application quits only when
//   "quitOnCloseOfLastWindow" is set.
// - The active document is the document of the active window; the panels
//   (inspector, query inspector) follow it.
// - File ▸ Open Recent lists the last ten documents opened or saved
//   ("recentDocuments"); File ▸ New from Template lists the templates
//   folder, one item "template_%i" per template. Edit ▸ Preferences opens
//   the preferences window.
// - On a first start (an index in this process that knows no folder yet)
//   the home folder is indexed: every window shows a progress bar while
//   the names are crawled, and searches show results as they come.
// - Errors are logged, then shown as an alert on the active window.
//
// Main thread only.
#pragma once

#include "app/application_delegate.h"
#include "app/recent_documents.h"
#include "common/error_presenter.h"
#include "daemon/query_source.h"
#include "document/document.h"
#include "index/index.h"
#include "widgets/document_window.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>
#include <vector>

class QMenu;

namespace trovara::app {
class HomeIndexer;
}
namespace trovara::daemon {
class BackgroundQuerySource;
}
namespace trovara::document {
class DocumentController;
}
namespace trovara::index {
class Dispatcher;
class QuerySource;
}  // namespace trovara::index

namespace trovara::widgets {

class AbstractInspectorController;
class InspectorController;
class PreferencesController;
class QueryInspectorController;
class QuickLookController;
class TextPreviewController;
class ThumbnailLoader;

class Application final : public QObject {
    Q_OBJECT

public:
    static constexpr int kRecentDocumentCount = app::RecentDocuments::kMaximumCount;

    // Opens the index at `indexDirectory` in the background.
    Application(const std::string& indexDirectory, index::IndexServices services,
                daemon::QuerySourceOptions options = {}, QObject* parent = nullptr);
    // Runs on an index that is already open (tests; nothing waits).
    explicit Application(std::unique_ptr<index::QuerySource> source, QObject* parent = nullptr);
    ~Application() override;

    // --- Documents and windows -----------------------------------------------------
    app::ApplicationDelegate& delegate() const { return *m_delegate; }
    document::DocumentController& documentController() const { return m_delegate->documentController(); }
    // A new untitled search in a window of its own (nullptr and the error
    // shown when it could not be made).
    DocumentWindow* newDocument();
    // A search file (its window, when it is open already), or a folder to
    // search (in a new untitled search). The error is shown on failure.
    DocumentWindow* openDocument(const QString& path);
    // Opens each; with none, a new search when no window is open.
    void openFiles(const QStringList& paths);
    // A new untitled search when no window is open.
    void openNewDocumentWhenNeeded();
    // Closes the document's window (asking to save an edited document).
    bool closeDocument(document::Document* document);
    // The open windows, oldest first.
    std::vector<DocumentWindow*> windows() const;
    DocumentWindow* windowForDocument(const document::Document* document) const;
    document::Document* activeDocument() const { return m_activeDocument; }

    // --- The index ------------------------------------------------------------------
    // The index is open (a failure counts as open: windows are usable).
    bool isIndexSettled() const;
    index::QuerySource& querySource() const;

    // --- Panels and menus ------------------------------------------------------------
    InspectorController* inspector() const { return m_inspector; }
    QueryInspectorController* queryInspector() const { return m_queryInspector; }
    TextPreviewController* textPreview() const { return m_textPreview; }
    QuickLookController* quickLook() const { return m_quickLook; }
    // The shell's commands, as every window shows them.
    const ApplicationActions& actions() const { return m_actions; }
    QStringList recentDocuments() const;
    void noteRecentDocument(const QString& path);
    // Rebuilds the template menu from the templates folder.
    void refreshTemplateMenu();
    QMenu* templateMenu() const { return m_actions.templateMenu; }

    // The preferences window (made on first use), shown and brought forward.
    PreferencesController* showPreferences();
    // Raises the active window (another `trovara` was started).
    void bringToFront();

    // The first indexing of the home folder, while it runs ("" otherwise).
    QString indexingText() const { return m_indexingText; }

    // Where windows open URLs (tests keep them in).
    void setUrlOpener(DocumentWindow::UrlOpener opener);

signals:
    void activeDocumentChanged(trovara::document::Document* document);
    // A window was made for a document (others add to it: rule editors,
    // actions on results).
    void windowCreated(trovara::widgets::DocumentWindow* window);
    // The index is open (or could not be opened); windows load now.
    void indexOpened();

private:
    void setUp();
    void buildActions();
    DocumentWindow* makeWindow(document::Document* document);
    void indexSettled();
    void showNotice(const QString& text, int kind);
    void startFirstIndexing();
    void showIndexingText(const QString& text);
    void windowActivated(DocumentWindow* window);
    void forgetWindow(DocumentWindow* window);
    void windowClosed(DocumentWindow* window);
    void documentWillClose(document::Document* document);
    int runAlert(const query::Alert& alert);
    void revert(DocumentWindow* window);
    void setActiveDocument(document::Document* document);
    void refreshRecentMenu();
    void refreshPanelTitles();
    void runOpenPanel();
    void showAbout();
    void presentErrorAlert(const Error& error);

    std::unique_ptr<daemon::BackgroundQuerySource> m_source;
    // Told on this thread that the index is open (or failed).
    bool m_indexSettled = false;
    std::shared_ptr<index::Dispatcher> m_dispatcher;
    std::unique_ptr<app::ApplicationDelegate> m_delegate;
    PreferencesController* m_preferences = nullptr;
    std::vector<QPointer<DocumentWindow>> m_windows;
    QPointer<document::Document> m_activeDocument;
    InspectorController* m_inspector = nullptr;
    QueryInspectorController* m_queryInspector = nullptr;
    TextPreviewController* m_textPreview = nullptr;
    QuickLookController* m_quickLook = nullptr;
    std::vector<AbstractInspectorController*> m_panels;
    ApplicationActions m_actions;
    DocumentWindow::UrlOpener m_opener;
    ErrorPresenter m_previousPresenter;
    // The folder a first start indexes (empty: none, as in tests).
    QString m_firstIndexFolder;
    app::HomeIndexer* m_homeIndexer = nullptr;
    QString m_indexingText;
    QString m_notice;
    int m_noticeKind = 0;
};

}  // namespace trovara::widgets
