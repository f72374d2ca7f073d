// The window of one search document.
//
//   toolbar      Start/Stop · table | grid | cover flow · Inspector ·
//                Query Inspector · actions ▾ · ……… filter field
//   messages     notices that do not stop the work (MessageBar)
//   criteria     the area where the rule editors go (insertRuleEditor())
//   status line  the controller's status line, and the busy indicator
//   results      the table, the thumbnail grid or the cover flow
//   path bar     the selected result's path, and the grid's zoom
//
// Everything shown comes from the document and its query controller: the
// window only wires widgets to them. The Start/Stop item takes its label,
// tool tip, icon and enabled state from the document; the filter field
// and its menu follow the controller; the result views share the
// controller's arranged results and selection; the alert of the result cap
// is a sheet on this window. Double click, Return or Enter opens a result
// with the desktop's default application.
//
// Application-wide commands (New, Open, the templates, the panels, Quit)
// are the shell's actions, shown in this window's menus
// (ApplicationActions).
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <vector>

class QActionGroup;
class QLabel;
class QSlider;
class QStackedWidget;
class QVBoxLayout;

namespace trovara::document {
class Document;
}
namespace trovara::query {
struct Alert;
}

namespace trovara::widgets {

class BusyIndicator;
class CoverFlowView;
class FilterField;
class MessageBar;
class PathBar;
class ResultGridView;
class ResultTableView;
class RuleEditorsPanel;
class TemplateSaverSheet;
class ThumbnailLoader;

// The shell's commands, for the menus of every window. Any may be absent.
struct ApplicationActions {
    QAction* newDocument = nullptr;
    QAction* openDocument = nullptr;
    QMenu* openRecentMenu = nullptr;
    QMenu* templateMenu = nullptr;
    QAction* preferences = nullptr;
    QAction* quit = nullptr;
    QList<QAction*> panels;  // the panels' Show/Hide items
    QAction* help = nullptr;
    QAction* about = nullptr;
};

class DocumentWindow final : public QMainWindow {
    Q_OBJECT

public:
    // Opens a URL with the desktop's default application; false when that failed.
    using UrlOpener = std::function<bool(const QUrl&)>;

    DocumentWindow(document::Document& document, const ApplicationActions& actions = {},
                   ThumbnailLoader* thumbnails = nullptr, QWidget* parent = nullptr);
    ~DocumentWindow() override;

    document::Document& document() const { return m_document; }

    // Attaches the views to the document's controller, and loads the
    // document's window state (columns, filter, result view, a saved
    // running search starts). Until then the window says the index is
    // being opened and nothing can be started.
    void loadDocument();
    bool isDocumentLoaded() const { return m_loaded; }

    // --- The criteria area --------------------------------------------------------
    // Where the rule editors go, above the results.
    QWidget* ruleEditorArea() const { return m_ruleEditorArea; }
    // Inserts an editor at the position (-1: at the end).
    void insertRuleEditor(QWidget* editor, int position = -1);
    // The criteria, places, exclusions and limit editors (filled once the
    // document is loaded).
    RuleEditorsPanel* ruleEditors() const { return m_ruleEditors; }

    // --- Result views ---------------------------------------------------------------
    ResultTableView* tableView() const { return m_table; }
    ResultGridView* gridView() const { return m_grid; }
    CoverFlowView* coverFlowView() const { return m_coverFlow; }
    // 0 table, 1 grid, 2 cover flow: the result controller's tab.
    void selectResultsView(int index);
    int selectedResultsView() const;
    QWidget* resultsView(int index) const;
    // The visible result view takes the keyboard focus.
    void focusOnResults();

    // --- Results --------------------------------------------------------------------
    // Opens the results with their default applications; a result whose file
    // has gone is reported in the window.
    void openResults(const std::vector<int>& rows);
    void openSelectedResults();
    // Opens the folder of each selected result.
    void showSelectedInFolder();
    void copySelectedResults();
    void copySelectedPaths();
    void setUrlOpener(UrlOpener opener) { m_opener = std::move(opener); }
    const UrlOpener& urlOpener() const { return m_opener; }
    // Shows files in the file manager; without one, Show in Folder opens
    // the folders that hold them.
    using Revealer = std::function<void(const QStringList& paths)>;
    void setRevealer(Revealer revealer) { m_revealer = std::move(revealer); }
    // The menu of the selected results (the toolbar's action item and the
    // views' context menu); other parts of Trovara add their commands here.
    QMenu* actionMenu() const { return m_actionMenu; }

    // Where the beep of a refused row height goes (tests count them).
    void setBeeper(std::function<void()> beep) { m_beep = std::move(beep); }

    // --- Row height --------------------------------------------------------------------
    // One point bigger or smaller; outside 13 to 24 points it beeps.
    void increaseRowHeight();
    void decreaseRowHeight();

    // --- Saving --------------------------------------------------------------------------
    // Save: to the document's file, or through Save As for a new one.
    bool saveDocument();
    // Save As to the path (the document's file afterwards); the error is
    // shown on failure.
    bool saveDocumentAs(const QString& path);
    // Asks where, then saveDocumentAs().
    bool runSaveAsPanel();
    // The sheet of Save as Template (made when first asked).
    TemplateSaverSheet* templateSaverSheet();
    void saveAsTemplate();

    // --- Messages --------------------------------------------------------------------------
    MessageBar* messageBar() const { return m_messages; }
    FilterField* filterField() const { return m_filter; }
    PathBar* pathBar() const { return m_pathBar; }
    QLabel* statusLabel() const { return m_status; }
    BusyIndicator* busyIndicator() const { return m_busy; }
    QSlider* zoomSlider() const { return m_zoom; }
    QAction* startStopAction() const { return m_startStop; }
    QAction* startAction() const { return m_start; }
    QAction* stopAction() const { return m_stop; }
    QAction* viewAction(int index) const;
    QAction* revertAction() const { return m_revert; }
    // The open cap alert (tests).
    QWidget* openAlert() const { return m_alert; }

    // The person is asked before an edited document's window closes; the
    // answer is Save, Discard or Cancel. Tests answer by themselves.
    enum class CloseAnswer { Save, Discard, Cancel };
    using ClosePrompt = std::function<CloseAnswer(DocumentWindow*)>;
    void setClosePrompt(ClosePrompt prompt) { m_closePrompt = std::move(prompt); }

    // The title: the document's name, marked while edited.
    void updateTitle();

signals:
    // The window closed (the document may go).
    void windowClosed(trovara::widgets::DocumentWindow* window);
    // The window became the active one.
    void windowActivated(trovara::widgets::DocumentWindow* window);
    // Revert to Saved was chosen and confirmed.
    void revertRequested(trovara::widgets::DocumentWindow* window);
    // The document was written to its file.
    void documentSaved(const QString& path);

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void buildActions(const ApplicationActions& actions);
    void buildMenus(const ApplicationActions& actions);
    void buildToolBar(const ApplicationActions& actions);
    void chooseMoreColumns();
    QWidget* buildCentre();
    void updateRunControl();
    void updateActionMenu();
    void selectionChanged();
    void showResultsView(int index);
    void presentAlert(const query::Alert& alert, std::function<void(int)> didEnd);
    void openPathComponent(const QString& path);
    bool openUrl(const QUrl& url);
    void updateCriteriaSummary();
    CloseAnswer askToSave();
    std::vector<int> selectedRows() const;

    document::Document& m_document;
    ThumbnailLoader* m_thumbnails;
    bool m_loaded = false;
    UrlOpener m_opener;
    Revealer m_revealer;
    ClosePrompt m_closePrompt;
    std::function<void()> m_beep;

    QAction* m_startStop = nullptr;
    QAction* m_start = nullptr;
    QAction* m_stop = nullptr;
    QActionGroup* m_viewGroup = nullptr;
    QAction* m_viewActions[3] = {};
    QAction* m_bigger = nullptr;
    QAction* m_smaller = nullptr;
    QAction* m_close = nullptr;
    QAction* m_save = nullptr;
    QAction* m_saveAs = nullptr;
    QAction* m_saveAsTemplate = nullptr;
    QAction* m_revert = nullptr;
    QAction* m_openResults = nullptr;
    QAction* m_showInFolder = nullptr;
    QAction* m_copy = nullptr;
    QAction* m_copyPaths = nullptr;
    QAction* m_selectAll = nullptr;
    QAction* m_find = nullptr;
    QAction* m_focusResults = nullptr;
    QMenu* m_actionMenu = nullptr;
    QMenu* m_columnsMenu = nullptr;

    MessageBar* m_messages = nullptr;
    QWidget* m_ruleEditorArea = nullptr;
    QVBoxLayout* m_ruleEditorLayout = nullptr;
    QLabel* m_criteriaSummary = nullptr;
    RuleEditorsPanel* m_ruleEditors = nullptr;
    QLabel* m_status = nullptr;
    BusyIndicator* m_busy = nullptr;
    QStackedWidget* m_views = nullptr;
    ResultTableView* m_table = nullptr;
    ResultGridView* m_grid = nullptr;
    CoverFlowView* m_coverFlow = nullptr;
    PathBar* m_pathBar = nullptr;
    QSlider* m_zoom = nullptr;
    FilterField* m_filter = nullptr;
    QPointer<QWidget> m_alert;
    QPointer<TemplateSaverSheet> m_templateSheet;
};

}  // namespace trovara::widgets
