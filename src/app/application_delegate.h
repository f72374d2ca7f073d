// The application's delegate: lives for the whole process, from before the
// first window to the quit.
//
// It registers the user defaults and the named value transformers before
// anything else runs (initializeClass()), prepares the per-user data
// folders (~/.local/share/Trovara and its Templates folder), installs and
// refreshes the default templates, keeps the template list and the Open
// Recent list, owns the documents (through a DocumentController) and
// announces them, tracks the active document (the one of the main window),
// watches the preferences the helper application reads, decides when an
// empty document opens and when the application quits, and logs every
// error before it is shown.
//
// It never shows a window itself: alerts go through an injected prompt,
// errors through the installed error presenter (common/error_presenter.h).
// The window layer reacts to its signals and tells it which document's
// window is the main one.
//
// Start-up order: initializeClass(), applicationWillFinishLaunching(), the
// documents the system asks to open (files on the command line),
// applicationDidFinishLaunching(). Everything deferred runs on the next
// turn of the event loop.
//
// Main thread only.
#pragma once

#include "app/helper_switch.h"
#include "app/quick_search_url.h"
#include "common/error.h"
#include "document/document.h"
#include "document/document_controller.h"
#include "document/template_item.h"
#include "query/alert.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

class QFileSystemWatcher;

namespace trovara::app {

// Shows an alert and answers the index of the button chosen (0 is the
// first, default button). Without one, the log gets the alert and the
// answer is 0.
using AlertPrompt = std::function<int(const query::Alert& alert)>;

class ApplicationDelegate final : public QObject {
    Q_OBJECT

public:
    // The default templates this version installs; an older
    // "templateVersion" asks to install them again.
    static constexpr int kCurrentTemplateVersion = 10;

    // Alert texts.
    static constexpr const char* kAlertTitle = "Alert";
    static constexpr const char* kTemplatesFolderFailedMessage = "Failed to create default templates folder";
    static constexpr const char* kTemplatesFolderFailedButton = "Bummer";
    static constexpr const char* kNoSupportFolderMessage = "Can't find application support folder";
    static constexpr const char* kNoSupportFolderButton = "Quit";
    static constexpr const char* kNewTemplatesTitle = "New templates are available";
    static constexpr const char* kNewTemplatesMessage =
        "Would you like to install the updated default templates? Conflicting files will be moved to the trash.";
    static constexpr const char* kYesButton = "Yes";
    static constexpr const char* kNoButton = "No";

    // The preferences the helper application reads: a change of one is
    // saved at once and announced by helperPreferencesChanged().
    static const QStringList& helperPreferenceKeys();

    // Before the first delegate: registers the defaults and the value
    // transformers and installs the handler of uncaught exceptions. Safe to
    // call more than once.
    static void initializeClass();

    // ~/.local/share/Trovara, and its "Templates" folder.
    static QString applicationSupportFolder();
    static QString templateFolder();
    // Where the default templates of this installation are (the resource
    // folder "Templates" beside the program).
    static QString defaultTemplatesFolder();

    explicit ApplicationDelegate(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher = {},
                                 QObject* parent = nullptr);
    ~ApplicationDelegate() override;

    void setAlertPrompt(AlertPrompt prompt) { m_alertPrompt = std::move(prompt); }
    // Not owned; the no-op switch when none is set.
    void setHelperSwitch(HelperSwitch* helperSwitch);
    HelperSwitch& helperSwitch() const { return *m_helperSwitch; }
    // Whether the documents opened load their window at once (the default).
    // A window layer that loads windows itself, once the index is open,
    // turns this off.
    void setDisplaysDocuments(bool display) { m_displaysDocuments = display; }
    // Where installTemplates() copies from (tests).
    void setDefaultTemplatesFolderForTesting(const QString& folder) { m_defaultTemplatesFolder = folder; }

    // --- Start and stop ---------------------------------------------------------
    void applicationWillFinishLaunching();
    // False when the application cannot run (no application-support
    // folder): the alert was shown and terminateRequested() emitted.
    bool applicationDidFinishLaunching();
    bool applicationShouldOpenUntitledFile() const { return m_applicationShouldOpenUntitledFile; }
    // Opens and shows an untitled document when none is open; a failure is
    // presented.
    void openNewDocumentWhenNeeded();
    // Whether closing the last window quits: "quitOnCloseOfLastWindow".
    bool applicationShouldTerminateAfterLastWindowClosed() const;
    // The last window closed: quits (terminateRequested()) when it should.
    void lastWindowClosed();
    // Stops following the main window and clears the active document.
    void applicationWillTerminate();

    // --- Documents ----------------------------------------------------------------
    document::DocumentController& documentController() { return *m_documentController; }
    std::vector<document::Document*> documents() const;
    // A new untitled document, its window loaded; announced.
    Result<document::Document*> newDocument();
    // A search file, a template (an untitled copy) or a folder (a place of
    // a new search); announced, and noted in the Open Recent list. A file
    // already open answers its document. A failure is returned, not shown.
    Result<document::Document*> openDocument(const QString& path);
    // Opens every path; each failure is presented; answers the documents
    // that opened.
    std::vector<document::Document*> openDocuments(const QStringList& paths);
    // Announced by documentWillClose() before the document goes.
    void closeDocument(document::Document* document);
    // Saves the document to `path` (Save As) and notes it as recent.
    Status saveDocumentAs(document::Document* document, const QString& path);

    // The document of the main window, as the window layer reports it; the
    // active document follows on the next turn of the event loop.
    void setMainWindowDocument(document::Document* document);
    document::Document* activeDocument() const { return m_activeDocument; }

    // --- Templates ---------------------------------------------------------------------
    // Installs the default templates: always with `force`, else only after
    // the user agreed (when "templateVersion" is older). Sets
    // "templateVersion" to the current version in every case. Answers
    // whether templates were copied.
    bool installTemplates(bool force);
    // Reads the template list again (and watches the folder for changes).
    void loadTemplates();
    const std::vector<const document::TemplateItem*>& templates() const;

    // --- Open Recent ------------------------------------------------------------------
    QStringList recentDocuments() const;
    // A file opened or saved elsewhere (a window's Save As).
    void noteRecentDocument(const QString& path);
    void clearRecentDocuments();

    // --- Errors -----------------------------------------------------------------------
    // Logs the error and shows it unchanged (through the installed presenter).
    void presentError(const Error& error);

    // --- Quick search ------------------------------------------------------------------
    // Every route from outside the window (links, the two services, scripting,
    // the helper's hot keys) ends here. Each answers the document it made and
    // shown, or the error it presented.

    // The open-URL event: a "trovara:" link (quick_search_url.h). A link it
    // does not understand beeps; an empty search string does nothing.
    void getUrl(const QString& url);
    // A new document (a copy of the template when one is given) searching
    // the text in the chosen fields, shown and started.
    Result<document::Document*> performBlitzSearch(const BlitzSearchRequest& request);
    // A new document searching the folders, shown.
    Result<document::Document*> performLocationSearch(const QStringList& paths);
    // The services: search for a text in every field; search in folders.
    // An empty text or list beeps (and answers nothing).
    document::Document* blitzSearchService(const QString& text);
    document::Document* locationSearchService(const QStringList& paths);
    // The quick-search command: brings Trovara to the front and performs
    // the search; an empty search string does nothing (nullptr).
    document::Document* handleBlitzSearchScriptCommand(const BlitzSearchRequest& request);
    // Opens and shows a template. Unless `fresh`, an open document made
    // from the same template is brought forward instead.
    Result<document::Document*> openTemplateWithURL(const QString& path, bool fresh);
    // Brings Trovara to the front; when it was not active, no document is
    // open and an untitled one should open, one opens first.
    void activate();
    // A new document, then to the front.
    document::Document* activateNewDocument();
    // Asks the window layer for the preferences window, in front.
    void showPreferences() { emit preferencesRequested(); }
    // The window layer reports whether one of Trovara's windows is active.
    void setApplicationActive(bool active) { m_applicationActive = active; }

signals:
    void documentOpened(trovara::document::Document* document);
    void documentWillClose(trovara::document::Document* document);
    void documentClosed();
    void activeDocumentChanged(trovara::document::Document* document);
    void templatesChanged();
    // A "template_" setting changed: the template menu shows it again.
    void templateMenuChanged();
    void recentDocumentsChanged();
    // A hot key or a switch of the helper application changed (the
    // system-wide "trovaraPreferencesChanged").
    void helperPreferencesChanged();
    // The application should quit now.
    void terminateRequested();
    // The system beep: a request that cannot be carried out.
    void beepRequested();
    // Bring Trovara's front window (or this document's window) to the front.
    void activationRequested();
    void documentWindowRequested(trovara::document::Document* document);
    void preferencesRequested();

private:
    int runAlert(const QString& title, const QString& message, const QStringList& buttons);
    void defaultsValueChanged(const QString& keyPath);
    void activeDocumentDidChange();
    document::Document* announce(document::Document* document);
    bool copyDefaultTemplates();
    // The window of a document opened without one: loaded and announced.
    document::Document* showDocument(document::Document* document);

    std::unique_ptr<document::DocumentController> m_documentController;
    AlertPrompt m_alertPrompt;
    NoHelperSwitch m_noHelperSwitch;
    HelperSwitch* m_helperSwitch = &m_noHelperSwitch;
    QString m_defaultTemplatesFolder;
    bool m_displaysDocuments = true;
    bool m_applicationShouldOpenUntitledFile = true;
    bool m_launched = false;
    bool m_applicationActive = false;
    QPointer<document::Document> m_mainWindowDocument;
    QPointer<document::Document> m_activeDocument;
    QFileSystemWatcher* m_templateWatcher = nullptr;
    bool m_templatesWatched = false;
    QMetaObject::Connection m_defaultsConnection;
};

}  // namespace trovara::app
