#include "widgets/application.h"

#include "common/error_presenter.h"
#include "daemon/background_query_source.h"
#include "document/document.h"
#include "document/document_controller.h"
#include "document/template_item.h"
#include "index/live/qt_dispatcher.h"
#include "model/defaults.h"
#include "app/home_indexer.h"
#include "widgets/file_icons.h"
#include "widgets/inspector_controller.h"
#include "widgets/message_bar.h"
#include "widgets/preferences_window.h"
#include "widgets/query_inspector_controller.h"
#include "widgets/quick_look_controller.h"
#include "widgets/text_preview_controller.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QTimer>
#include <QWindow>

#ifndef TROVARA_VERSION
#define TROVARA_VERSION "0"
#endif

namespace trovara::widgets {

namespace {


QString errorText(const Error& error)
{
    QStringList parts;
    for (const QString& part : {error.reason, error.suggestion}) {
        if (!part.isEmpty()) {
            parts << part;
        }
    }
    return parts.join(QLatin1Char('\n'));
}

}  // namespace

Application::Application(const std::string& indexDirectory, index::IndexServices services,
                         daemon::QuerySourceOptions options, QObject* parent)
    : QObject(parent)
    , m_firstIndexFolder(QDir::homePath())
{
    QPointer<Application> self(this);
    auto notify = options.notice;
    options.notice = [self, notify](const std::string& message) {
        if (notify) {
            notify(message);
        }
        QMetaObject::invokeMethod(
            qApp,
            [self, text = QString::fromStdString(message)] {
                if (self) {
                    self->showNotice(text, static_cast<int>(MessageBar::Kind::Warning));
                }
            },
            Qt::QueuedConnection);
    };
    m_source = std::make_unique<daemon::BackgroundQuerySource>(indexDirectory, std::move(services), std::move(options),
                                                               [self] {
                                                                   QMetaObject::invokeMethod(
                                                                       qApp,
                                                                       [self] {
                                                                           if (self) {
                                                                               self->indexSettled();
                                                                           }
                                                                       },
                                                                       Qt::QueuedConnection);
                                                               });
    setUp();
}

Application::Application(std::unique_ptr<index::QuerySource> source, QObject* parent)
    : QObject(parent)
    , m_source(std::make_unique<daemon::BackgroundQuerySource>(std::move(source)))
    , m_indexSettled(true)
{
    setUp();
}

Application::~Application()
{
    setErrorPresenter(m_previousPresenter);
    for (const QPointer<DocumentWindow>& window : m_windows) {
        delete window.data();
    }
    m_windows.clear();
    for (AbstractInspectorController* panel : m_panels) {
        delete panel;
    }
    delete m_preferences;
    m_delegate.reset();
    delete m_actions.templateMenu;
    delete m_actions.openRecentMenu;
    // A crawl under way stops; the engine reports to the indexer until it
    // is gone.
    m_homeIndexer->cancel();
    m_source.reset();
    delete m_homeIndexer;
}

void Application::setUp()
{
    m_dispatcher = std::make_shared<index::QtDispatcher>(this);
    m_homeIndexer = new app::HomeIndexer;
    connect(m_homeIndexer, &app::HomeIndexer::progressed, this, [this](qulonglong entries) {
        showIndexingText(tr("Indexing your home folder: %L1 items so far…").arg(entries));
    });
    connect(m_homeIndexer, &app::HomeIndexer::finished, this, [this](const QString& problem) {
        showIndexingText(QString());
        if (!problem.isEmpty()) {
            showNotice(tr("Your home folder could not be indexed: %1").arg(problem),
                       static_cast<int>(MessageBar::Kind::Error));
        }
    });
    m_delegate = std::make_unique<app::ApplicationDelegate>(*m_source, m_dispatcher);
    // A window loads its document once the index is open.
    m_delegate->setDisplaysDocuments(false);
    m_delegate->setAlertPrompt([this](const query::Alert& alert) { return runAlert(alert); });
    connect(m_delegate.get(), &app::ApplicationDelegate::documentOpened, this, [this](document::Document* document) {
        if (!windowForDocument(document)) {
            makeWindow(document);
        }
    });
    connect(m_delegate.get(), &app::ApplicationDelegate::documentWillClose, this, &Application::documentWillClose);
    connect(m_delegate.get(), &app::ApplicationDelegate::recentDocumentsChanged, this, &Application::refreshRecentMenu);
    connect(m_delegate.get(), &app::ApplicationDelegate::templatesChanged, this, &Application::refreshTemplateMenu);
    connect(m_delegate.get(), &app::ApplicationDelegate::templateMenuChanged, this, &Application::refreshTemplateMenu);
    connect(m_delegate.get(), &app::ApplicationDelegate::terminateRequested, this,
            [] { QTimer::singleShot(0, qApp, &QCoreApplication::quit); });
    // Quick searches (links, services, scripts) ask for the beep when they
    // cannot be carried out, and for the front otherwise.
    connect(m_delegate.get(), &app::ApplicationDelegate::beepRequested, this, [] { QApplication::beep(); });
    connect(m_delegate.get(), &app::ApplicationDelegate::activationRequested, this, &Application::bringToFront);
    connect(m_delegate.get(), &app::ApplicationDelegate::preferencesRequested, this, &Application::showPreferences);
    connect(m_delegate.get(), &app::ApplicationDelegate::documentWindowRequested, this,
            [this](document::Document* document) {
                DocumentWindow* window = windowForDocument(document);
                if (!window) {
                    window = makeWindow(document);
                }
                if (window) {
                    window->showNormal();
                    window->raise();
                    window->activateWindow();
                }
            });
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        m_delegate->setApplicationActive(state == Qt::ApplicationActive);
    });
    m_opener = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
    QApplication::setQuitOnLastWindowClosed(false);
    m_inspector = new InspectorController;
    m_queryInspector = new QueryInspectorController;
    m_textPreview = new TextPreviewController;
    m_quickLook = new QuickLookController;
    m_panels = {m_inspector, m_queryInspector, m_textPreview, m_quickLook};
    buildActions();
    for (AbstractInspectorController* panel : m_panels) {
        connect(panel, &AbstractInspectorController::windowStateChanged, this, &Application::refreshPanelTitles);
    }
    connect(qApp, &QGuiApplication::focusWindowChanged, this, &Application::refreshPanelTitles);
    m_previousPresenter = setErrorPresenter([this](const Error& error) { presentErrorAlert(error); });
}

void Application::buildActions()
{
    QStyle* style = QApplication::style();
    m_actions.newDocument = new QAction(tr("New Search"), this);
    m_actions.newDocument->setShortcut(QKeySequence::New);
    connect(m_actions.newDocument, &QAction::triggered, this, &Application::newDocument);

    m_actions.openDocument = new QAction(tr("Open…"), this);
    m_actions.openDocument->setShortcut(QKeySequence::Open);
    connect(m_actions.openDocument, &QAction::triggered, this, &Application::runOpenPanel);

    m_actions.openRecentMenu = new QMenu(tr("Open Recent"));
    connect(m_actions.openRecentMenu, &QMenu::aboutToShow, this, &Application::refreshRecentMenu);
    refreshRecentMenu();

    m_actions.templateMenu = new QMenu(tr("New from Template"));
    connect(m_actions.templateMenu, &QMenu::aboutToShow, this, &Application::refreshTemplateMenu);
    refreshTemplateMenu();

    m_actions.preferences = new QAction(tr("Preferences…"), this);
    // Ctrl+, where the desktop names no key of its own for preferences.
    m_actions.preferences->setShortcuts(QKeySequence::keyBindings(QKeySequence::Preferences).isEmpty()
                                            ? QList<QKeySequence>{QKeySequence(Qt::CTRL | Qt::Key_Comma)}
                                            : QKeySequence::keyBindings(QKeySequence::Preferences));
    m_actions.preferences->setMenuRole(QAction::PreferencesRole);
    connect(m_actions.preferences, &QAction::triggered, this, &Application::showPreferences);

    m_actions.quit = new QAction(tr("Quit"), this);
    m_actions.quit->setShortcut(QKeySequence::Quit);
    m_actions.quit->setMenuRole(QAction::QuitRole);
    connect(m_actions.quit, &QAction::triggered, this, [this] {
        for (DocumentWindow* window : windows()) {
            if (!window->close()) {
                return;
            }
        }
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    });

    auto* inspector = new QAction(m_inspector->menuTitle(), this);
    inspector->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_I));
    inspector->setIcon(themeIcon(QStringLiteral("dialog-information"),
                                 style->standardIcon(QStyle::SP_FileDialogInfoView)));
    inspector->setIconText(tr("Inspector"));
    inspector->setToolTip(tr("Show or hide the attributes of the selected result"));
    connect(inspector, &QAction::triggered, m_inspector, &AbstractInspectorController::toggleInspectorPanel);
    auto* queryInspector = new QAction(m_queryInspector->menuTitle(), this);
    queryInspector->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_I));
    queryInspector->setIcon(themeIcon(QStringLiteral("system-search"),
                                      style->standardIcon(QStyle::SP_FileDialogContentsView)));
    queryInspector->setIconText(tr("Query"));
    queryInspector->setToolTip(tr("Show or hide the query of this search"));
    connect(queryInspector, &QAction::triggered, m_queryInspector,
            &AbstractInspectorController::toggleInspectorPanel);
    auto* textPreview = new QAction(m_textPreview->menuTitle(), this);
    textPreview->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_P));
    textPreview->setIcon(themeIcon(QStringLiteral("text-x-generic"), style->standardIcon(QStyle::SP_FileIcon)));
    textPreview->setIconText(tr("Preview"));
    textPreview->setToolTip(tr("Show or hide the text of the selected result, its search terms coloured"));
    connect(textPreview, &QAction::triggered, m_textPreview, &AbstractInspectorController::toggleInspectorPanel);
    // The space bar, as in the file managers (text fields keep their spaces).
    auto* quickLook = new QAction(m_quickLook->menuTitle(), this);
    quickLook->setShortcut(QKeySequence(Qt::Key_Space));
    quickLook->setIcon(themeIcon(QStringLiteral("document-preview"), style->standardIcon(QStyle::SP_FileDialogDetailedView)));
    quickLook->setIconText(tr("Quick Look"));
    quickLook->setToolTip(tr("Show or hide a large view of the selected result (Space)"));
    connect(quickLook, &QAction::triggered, m_quickLook, &AbstractInspectorController::toggleInspectorPanel);
    m_actions.panels = {inspector, queryInspector, textPreview, quickLook};

    m_actions.about = new QAction(tr("About Trovara"), this);
    m_actions.about->setMenuRole(QAction::AboutRole);
    connect(m_actions.about, &QAction::triggered, this, &Application::showAbout);
}

// --- Windows ------------------------------------------------------------------------------

DocumentWindow* Application::makeWindow(document::Document* document)
{
    auto* window = new DocumentWindow(*document, m_actions);
    window->setUrlOpener(m_opener);
    connect(window, &DocumentWindow::windowActivated, this, &Application::windowActivated);
    connect(window, &DocumentWindow::windowClosed, this, &Application::windowClosed);
    connect(window, &DocumentWindow::revertRequested, this, &Application::revert);
    connect(window, &DocumentWindow::documentSaved, this, &Application::noteRecentDocument);
    // New windows step down and right from the last one.
    if (!m_windows.empty() && m_windows.back()) {
        window->move(m_windows.back()->pos() + QPoint(24, 24));
    }
    m_windows.emplace_back(window);
    emit windowCreated(window);
    if (isIndexSettled()) {
        window->loadDocument();
    }
    if (!m_indexingText.isEmpty()) {
        window->showIndexingProgress(m_indexingText);
    }
    if (!m_notice.isEmpty()) {
        window->messageBar()->showMessage(m_notice, static_cast<MessageBar::Kind>(m_noticeKind));
    }
    window->show();
    setActiveDocument(document);
    return window;
}

DocumentWindow* Application::newDocument()
{
    // The delegate announces the document; its window is made then.
    Result<document::Document*> made = m_delegate->newDocument();
    if (!made) {
        presentError(made.error());
        return nullptr;
    }
    return windowForDocument(made.value());
}

DocumentWindow* Application::openDocument(const QString& path)
{
    if (document::Document* open = documentController().documentForURL(path)) {
        if (DocumentWindow* window = windowForDocument(open)) {
            window->show();
            window->raise();
            window->activateWindow();
            return window;
        }
    }
    // A new document is announced and gets its window then; folders
    // dropped together join one new search (and its window).
    Result<document::Document*> opened = m_delegate->openDocument(path);
    if (!opened) {
        presentError(opened.error());
        return nullptr;
    }
    // A document whose window has just closed is still open for a moment.
    DocumentWindow* window = windowForDocument(opened.value());
    return window ? window : makeWindow(opened.value());
}

void Application::openFiles(const QStringList& paths)
{
    for (const QString& path : paths) {
        openDocument(path);
    }
    openNewDocumentWhenNeeded();
}

void Application::openNewDocumentWhenNeeded()
{
    if (windows().empty()) {
        newDocument();
    }
}

bool Application::closeDocument(document::Document* document)
{
    DocumentWindow* window = windowForDocument(document);
    return window ? window->close() : false;
}

std::vector<DocumentWindow*> Application::windows() const
{
    std::vector<DocumentWindow*> open;
    for (const QPointer<DocumentWindow>& window : m_windows) {
        if (window) {
            open.push_back(window);
        }
    }
    return open;
}

DocumentWindow* Application::windowForDocument(const document::Document* document) const
{
    for (DocumentWindow* window : windows()) {
        if (&window->document() == document) {
            return window;
        }
    }
    return nullptr;
}

void Application::windowActivated(DocumentWindow* window)
{
    setActiveDocument(&window->document());
}

// The window leaves the list; when its document was the active one, the
// last window left (if any) becomes active.
void Application::forgetWindow(DocumentWindow* window)
{
    m_windows.erase(std::remove(m_windows.begin(), m_windows.end(), QPointer<DocumentWindow>(window)),
                    m_windows.end());
    if (m_activeDocument == &window->document()) {
        const std::vector<DocumentWindow*> left = windows();
        setActiveDocument(left.empty() ? nullptr : &left.back()->document());
    }
}

void Application::windowClosed(DocumentWindow* window)
{
    document::Document* document = &window->document();
    document->stopQuery();
    window->hide();
    forgetWindow(window);
    // The window goes first (it shows the document's results), then the
    // document; not from inside the window's own close event.
    // Opened again in the meantime, it has a new window and stays open.
    QTimer::singleShot(0, this, [this, window = QPointer<DocumentWindow>(window),
                                 document = QPointer<document::Document>(document)] {
        delete window.data();
        if (document && !windowForDocument(document)) {
            m_delegate->closeDocument(document);
        }
        if (windows().empty()) {
            m_delegate->lastWindowClosed();
        }
    });
}

void Application::documentWillClose(document::Document* document)
{
    // Closed from elsewhere (a script): its window goes with it, unasked.
    DocumentWindow* window = windowForDocument(document);
    if (!window) {
        return;
    }
    document->stopQuery();
    forgetWindow(window);
    delete window;
    if (windows().empty()) {
        QTimer::singleShot(0, this, [this] {
            if (windows().empty()) {
                m_delegate->lastWindowClosed();
            }
        });
    }
}

void Application::revert(DocumentWindow* window)
{
    const QString path = window->document().fileURL();
    const QRect geometry = window->geometry();
    window->setClosePrompt([](DocumentWindow*) { return DocumentWindow::CloseAnswer::Discard; });
    document::Document* document = &window->document();
    document->stopQuery();
    window->hide();
    m_windows.erase(std::remove(m_windows.begin(), m_windows.end(), QPointer<DocumentWindow>(window)),
                    m_windows.end());
    delete window;
    m_delegate->closeDocument(document);
    if (DocumentWindow* reopened = openDocument(path)) {
        reopened->setGeometry(geometry);
    }
}

void Application::setActiveDocument(document::Document* document)
{
    if (m_activeDocument == document) {
        return;
    }
    m_activeDocument = document;
    m_delegate->setMainWindowDocument(document);
    for (AbstractInspectorController* panel : m_panels) {
        panel->setActiveDocument(document);
    }
    refreshPanelTitles();
    emit activeDocumentChanged(document);
}

void Application::setUrlOpener(DocumentWindow::UrlOpener opener)
{
    m_opener = std::move(opener);
    for (DocumentWindow* window : windows()) {
        window->setUrlOpener(m_opener);
    }
}

// --- The index ------------------------------------------------------------------------------------

bool Application::isIndexSettled() const
{
    return m_indexSettled;
}

index::QuerySource& Application::querySource() const
{
    return *m_source;
}

void Application::indexSettled()
{
    m_indexSettled = true;
    if (std::optional<index::Failure> failure = m_source->failure()) {
        showNotice(tr("The index could not be opened: %1. Searches look through the folders themselves, "
                      "which takes longer. Rebuilding the index (trova index rebuild) mends a damaged one.")
                       .arg(QString::fromStdString(failure->message)),
                   static_cast<int>(MessageBar::Kind::Error));
    }
    for (DocumentWindow* window : windows()) {
        window->loadDocument();
    }
    startFirstIndexing();
    emit indexOpened();
}

void Application::startFirstIndexing()
{
    index::QuerySource* source = m_source->source();
    if (!source || m_firstIndexFolder.isEmpty() || !m_homeIndexer->startIfNeeded(*source, m_firstIndexFolder)) {
        return;
    }
    showIndexingText(tr("Indexing your home folder…"));
}

void Application::showIndexingText(const QString& text)
{
    m_indexingText = text;
    for (DocumentWindow* window : windows()) {
        window->showIndexingProgress(text);
    }
}

void Application::showNotice(const QString& text, int kind)
{
    m_notice = text;
    m_noticeKind = kind;
    for (DocumentWindow* window : windows()) {
        window->messageBar()->showMessage(text, static_cast<MessageBar::Kind>(kind));
    }
}

// --- Menus -----------------------------------------------------------------------------------------

QStringList Application::recentDocuments() const
{
    return m_delegate->recentDocuments();
}

void Application::noteRecentDocument(const QString& path)
{
    m_delegate->noteRecentDocument(path);
}

void Application::refreshRecentMenu()
{
    QMenu* menu = m_actions.openRecentMenu;
    menu->clear();
    const QStringList recent = recentDocuments();
    for (const QString& path : recent) {
        QAction* item = menu->addAction(QFileInfo(path).completeBaseName());
        item->setToolTip(path);
        item->setEnabled(QFileInfo::exists(path));
        connect(item, &QAction::triggered, this, [this, path] { openDocument(path); });
    }
    if (!recent.isEmpty()) {
        menu->addSeparator();
    }
    QAction* clear = menu->addAction(tr("Clear Menu"), this, [this] { m_delegate->clearRecentDocuments(); });
    clear->setEnabled(!recent.isEmpty());
}

void Application::refreshTemplateMenu()
{
    QMenu* menu = m_actions.templateMenu;
    menu->clear();
    document::Templates::refresh();
    int index = 0;
    for (const document::TemplateItem* item : document::Templates::templates()) {
        QAction* action = menu->addAction(item->displayName());
        const QString name = QStringLiteral("template_%1").arg(index++);
        action->setObjectName(name);
        // A key equivalent of the template, when the person set one.
        const QString shortcut = model::Defaults::shared().stringValue(name);
        if (!shortcut.isEmpty()) {
            action->setShortcut(QKeySequence(shortcut));
        }
        connect(action, &QAction::triggered, this, [this, path = item->path()] { openDocument(path); });
    }
    if (index == 0) {
        menu->addAction(tr("No Templates"))->setEnabled(false);
    }
    menu->addSeparator();
    menu->addAction(tr("Show Templates Folder"), this, [this] {
        QDir().mkpath(document::templateFolder());
        m_opener(QUrl::fromLocalFile(document::templateFolder()));
    });
}

void Application::refreshPanelTitles()
{
    for (std::size_t i = 0; i < m_panels.size() && i < static_cast<std::size_t>(m_actions.panels.size()); ++i) {
        m_actions.panels[static_cast<qsizetype>(i)]->setText(m_panels[i]->menuTitle());
    }
}

void Application::runOpenPanel()
{
    QWidget* parent = windowForDocument(m_activeDocument);
    const QStringList paths = QFileDialog::getOpenFileNames(parent, tr("Open Search"), QDir::homePath(),
                                                            tr("Trovara searches (*.trova);;All files (*)"));
    for (const QString& path : paths) {
        openDocument(path);
    }
}

void Application::showAbout()
{
    QMessageBox::about(windowForDocument(m_activeDocument), tr("About Trovara"),
                       tr("<h3>Trovara %1</h3><p>Desktop search for Linux: searches as documents, live "
                          "results from Trovara's own metadata index.</p>")
                           .arg(QStringLiteral(TROVARA_VERSION)));
}

PreferencesController* Application::showPreferences()
{
    if (!m_preferences) {
        m_preferences = new PreferencesController(*m_delegate);
        m_preferences->setIndexerSwitch(app::SpotlightService::forDesktop());
    } else {
        m_preferences->loadFromDefaults();
    }
    m_preferences->show();
    m_preferences->raise();
    m_preferences->activateWindow();
    return m_preferences;
}

void Application::bringToFront()
{
    DocumentWindow* window = windowForDocument(m_activeDocument);
    if (!window) {
        const std::vector<DocumentWindow*> open = windows();
        window = open.empty() ? nullptr : open.back();
    }
    if (window) {
        window->showNormal();
        window->raise();
        window->activateWindow();
    }
}

int Application::runAlert(const query::Alert& alert)
{
    QWidget* parent = windowForDocument(m_activeDocument);
    QMessageBox box(QMessageBox::Warning, tr("Trovara"), alert.messageText, QMessageBox::NoButton, parent);
    box.setInformativeText(alert.informativeText);
    std::vector<QAbstractButton*> buttons;
    for (const QString& title : alert.buttons) {
        buttons.push_back(box.addButton(title, buttons.empty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
    }
    if (!buttons.empty()) {
        box.setDefaultButton(static_cast<QPushButton*>(buttons.front()));
    }
    box.exec();
    const auto chosen = std::find(buttons.begin(), buttons.end(), box.clickedButton());
    return chosen == buttons.end() ? int(buttons.size()) - 1 : int(chosen - buttons.begin());
}

void Application::presentErrorAlert(const Error& error)
{
    QWidget* parent = windowForDocument(m_activeDocument);
    QMessageBox box(QMessageBox::Warning, tr("Trovara"), error.description, QMessageBox::Ok, parent);
    box.setInformativeText(errorText(error));
    box.setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box.exec();
}

}  // namespace trovara::widgets
