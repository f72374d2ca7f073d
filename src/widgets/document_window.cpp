#include "widgets/document_window.h"

#include "common/error_presenter.h"
#include "document/document.h"
#include "document/document_store.h"
#include "model/localization.h"
#include "query/alert.h"
#include "query/metadata_query_controller.h"
#include "query/result_controller.h"
#include "query/result_table_model.h"
#include "model/abstract_attribute.h"
#include "widgets/busy_indicator.h"
#include "widgets/cover_flow_view.h"
#include "widgets/file_icons.h"
#include "widgets/filter_field.h"
#include "widgets/message_bar.h"
#include "widgets/path_bar.h"
#include "widgets/result_grid_view.h"
#include "widgets/result_table_view.h"
#include "widgets/rule_editors_panel.h"
#include "widgets/template_saver_sheet.h"
#include "widgets/thumbnail_cache.h"

#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QStackedWidget>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace trovara::widgets {

using query::MetadataQueryController;
using query::ResultTableModel;

namespace {

QIcon runIcon(const QString& image, const QStyle* style)
{
    return image == QLatin1String("stop")
               ? themeIcon(QStringLiteral("process-stop"), style->standardIcon(QStyle::SP_BrowserStop))
               : themeIcon(QStringLiteral("media-playback-start"), style->standardIcon(QStyle::SP_MediaPlay));
}

QAction* makeAction(QObject* parent, const QString& text, const QKeySequence& shortcut = {})
{
    auto* action = new QAction(text, parent);
    if (!shortcut.isEmpty()) {
        action->setShortcut(shortcut);
    }
    return action;
}

void addIfPresent(QMenu* menu, QAction* action)
{
    if (action) {
        menu->addAction(action);
    }
}

}  // namespace

DocumentWindow::DocumentWindow(document::Document& document, const ApplicationActions& actions,
                               ThumbnailLoader* thumbnails, QWidget* parent)
    : QMainWindow(parent)
    , m_document(document)
    , m_thumbnails(thumbnails ? thumbnails : ThumbnailLoader::shared())
    , m_opener([](const QUrl& url) { return QDesktopServices::openUrl(url); })
    , m_beep(&QApplication::beep)
{
    setObjectName(QStringLiteral("DocumentWindow"));
    setAccessibleName(tr("Search window"));
    buildActions(actions);
    setCentralWidget(buildCentre());
    buildToolBar(actions);
    buildMenus(actions);

    MetadataQueryController* controller = document.metadataQueryController();
    connect(&document, &document::Document::runControlChanged, this, &DocumentWindow::updateRunControl);
    connect(&document, &document::Document::focusOnResultsRequested, this, [this] { focusOnResults(); });
    connect(&document, &document::Document::changesCleared, this, &DocumentWindow::updateTitle);
    connect(&document.managedObjectContext(), &store::ManagedObjectContext::objectsDidChange, this,
            &DocumentWindow::updateTitle);
    connect(controller, &MetadataQueryController::statusLineChanged, this, [this](const QString& line) {
        if (m_loaded) {
            m_status->setText(line);
        }
    });
    connect(controller, &MetadataQueryController::busyChanged, this, [this](bool busy) {
        busy ? m_busy->start() : m_busy->stop();
    });
    connect(controller, &MetadataQueryController::busyIndicatorStepped, m_busy, &BusyIndicator::step);
    connect(controller, &MetadataQueryController::expressionChanged, this, &DocumentWindow::updateCriteriaSummary);
    connect(controller->resultController(), &query::ResultController::selectedTabIndexChanged, this,
            &DocumentWindow::showResultsView);
    controller->setAlertPresenter(
        [window = QPointer<DocumentWindow>(this)](const query::Alert& alert, std::function<void(int)> didEnd) {
            if (window) {
                window->presentAlert(alert, std::move(didEnd));
            } else {
                didEnd(0);
            }
        });

    m_status->setText(tr("Opening the index…"));
    m_busy->start();
    showResultsView(controller->resultController()->selectedTabIndex());
    updateTitle();
    updateRunControl();
    updateCriteriaSummary();
    updateActionMenu();
    resize(900, 620);
}

DocumentWindow::~DocumentWindow()
{
    // The controller outlives the window: alerts go back to its log.
    m_document.metadataQueryController()->setAlertPresenter({});
}

// --- Building ------------------------------------------------------------------------------

void DocumentWindow::buildActions(const ApplicationActions&)
{
    m_startStop = makeAction(this, tr("Start"));
    m_startStop->setPriority(QAction::HighPriority);
    connect(m_startStop, &QAction::triggered, this, [this] {
        m_document.startStopQuery(QGuiApplication::queryKeyboardModifiers() & Qt::AltModifier);
    });
    m_start = makeAction(this, tr("Start Search"), QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(m_start, &QAction::triggered, this, [this] {
        m_document.startQuery(QGuiApplication::queryKeyboardModifiers() & Qt::AltModifier);
    });
    m_stop = makeAction(this, tr("Stop Search"), QKeySequence(Qt::CTRL | Qt::Key_Period));
    connect(m_stop, &QAction::triggered, this, [this] { m_document.stopQuery(); });

    m_viewGroup = new QActionGroup(this);
    const QString viewTitles[3] = {tr("as Table"), tr("as Thumbnails"), tr("as Cover Flow")};
    const QString viewIcons[3] = {QStringLiteral("view-list-details"), QStringLiteral("view-list-icons"),
                                  QStringLiteral("view-preview")};
    const QStyle::StandardPixmap viewFallbacks[3] = {QStyle::SP_FileDialogDetailedView, QStyle::SP_FileDialogListView,
                                                      QStyle::SP_DesktopIcon};
    for (int index = 0; index < 3; ++index) {
        QAction* action = makeAction(this, viewTitles[index], QKeySequence(Qt::CTRL | (Qt::Key_1 + index)));
        action->setCheckable(true);
        action->setIcon(themeIcon(viewIcons[index], style()->standardIcon(viewFallbacks[index])));
        action->setPriority(QAction::LowPriority);
        action->setToolTip(tr("Show the results %1").arg(viewTitles[index]));
        m_viewGroup->addAction(action);
        connect(action, &QAction::triggered, this, [this, index] { selectResultsView(index); });
        m_viewActions[index] = action;
    }

    m_bigger = makeAction(this, tr("Bigger Rows"), QKeySequence::ZoomIn);
    connect(m_bigger, &QAction::triggered, this, &DocumentWindow::increaseRowHeight);
    m_smaller = makeAction(this, tr("Smaller Rows"), QKeySequence::ZoomOut);
    connect(m_smaller, &QAction::triggered, this, &DocumentWindow::decreaseRowHeight);

    m_close = makeAction(this, tr("Close"), QKeySequence::Close);
    connect(m_close, &QAction::triggered, this, &QWidget::close);
    m_save = makeAction(this, tr("Save"), QKeySequence::Save);
    connect(m_save, &QAction::triggered, this, &DocumentWindow::saveDocument);
    m_saveAs = makeAction(this, tr("Save As…"), QKeySequence::SaveAs);
    connect(m_saveAs, &QAction::triggered, this, &DocumentWindow::runSaveAsPanel);
    m_saveAsTemplate = makeAction(this, tr("Save as Template…"));
    connect(m_saveAsTemplate, &QAction::triggered, this, &DocumentWindow::saveAsTemplate);
    m_revert = makeAction(this, tr("Revert to Saved"));
    connect(m_revert, &QAction::triggered, this, [this] {
        const auto answer = QMessageBox::question(
            this, tr("Revert to Saved"),
            tr("Do you want to revert “%1” to the version last saved?").arg(m_document.displayName()),
            QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Cancel);
        if (answer == QMessageBox::Yes) {
            emit revertRequested(this);
        }
    });

    m_openResults = makeAction(this, tr("Open"), QKeySequence(Qt::CTRL | Qt::Key_Down));
    m_openResults->setIcon(themeIcon(QStringLiteral("document-open")));
    connect(m_openResults, &QAction::triggered, this, &DocumentWindow::openSelectedResults);
    m_showInFolder = makeAction(this, tr("Show in Folder"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    m_showInFolder->setIcon(themeIcon(QStringLiteral("folder-open")));
    connect(m_showInFolder, &QAction::triggered, this, &DocumentWindow::showSelectedInFolder);
    m_copy = makeAction(this, tr("Copy"), QKeySequence::Copy);
    connect(m_copy, &QAction::triggered, this, &DocumentWindow::copySelectedResults);
    m_copyPaths = makeAction(this, tr("Copy Path"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C));
    connect(m_copyPaths, &QAction::triggered, this, &DocumentWindow::copySelectedPaths);
    m_selectAll = makeAction(this, tr("Select All"), QKeySequence::SelectAll);
    connect(m_selectAll, &QAction::triggered, this, [this] {
        if (m_loaded) {
            ResultTableModel* results = m_document.metadataQueryController()->results();
            if (results->rowCount() > 0 && results->columnCount() > 0) {
                results->selectionModel()->select(
                    QItemSelection(results->index(0, 0), results->index(results->rowCount() - 1, 0)),
                    QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            }
        }
    });
    m_find = makeAction(this, tr("Filter Results"), QKeySequence::Find);
    connect(m_find, &QAction::triggered, this, [this] {
        m_filter->setFocus(Qt::ShortcutFocusReason);
        m_filter->selectAll();
    });
    m_focusResults = makeAction(this, tr("Go to Results"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    connect(m_focusResults, &QAction::triggered, this, &DocumentWindow::focusOnResults);

    m_actionMenu = new QMenu(tr("Results"), this);
    m_actionMenu->addAction(m_openResults);
    m_actionMenu->addAction(m_showInFolder);
    m_actionMenu->addSeparator();
    m_actionMenu->addAction(m_copy);
    m_actionMenu->addAction(m_copyPaths);
}

void DocumentWindow::buildMenus(const ApplicationActions& actions)
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    addIfPresent(file, actions.newDocument);
    if (actions.templateMenu) {
        file->addMenu(actions.templateMenu);
    }
    addIfPresent(file, actions.openDocument);
    if (actions.openRecentMenu) {
        file->addMenu(actions.openRecentMenu);
    }
    file->addSeparator();
    file->addAction(m_close);
    file->addAction(m_save);
    file->addAction(m_saveAs);
    file->addAction(m_saveAsTemplate);
    file->addAction(m_revert);
    connect(file, &QMenu::aboutToShow, this, [this] {
        m_revert->setEnabled(m_document.isDocumentEdited());
    });
    if (actions.quit) {
        file->addSeparator();
        file->addAction(actions.quit);
    }

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(m_copy);
    edit->addAction(m_copyPaths);
    edit->addAction(m_selectAll);
    edit->addSeparator();
    edit->addAction(m_find);
    edit->addMenu(m_filter->filterMenu());
    if (actions.preferences) {
        edit->addSeparator();
        edit->addAction(actions.preferences);
    }

    QMenu* view = menuBar()->addMenu(tr("&View"));
    for (QAction* action : m_viewActions) {
        view->addAction(action);
    }
    view->addSeparator();
    m_columnsMenu = view->addMenu(tr("Columns"));
    connect(m_columnsMenu, &QMenu::aboutToShow, this, [this] { m_table->fillColumnConfigurationMenu(m_columnsMenu); });
    view->addAction(m_bigger);
    view->addAction(m_smaller);
    if (!actions.panels.isEmpty()) {
        view->addSeparator();
        view->addActions(actions.panels);
    }

    QMenu* search = menuBar()->addMenu(tr("&Search"));
    search->addAction(m_start);
    search->addAction(m_stop);
    search->addSeparator();
    search->addAction(m_focusResults);

    menuBar()->addMenu(m_actionMenu);
    m_actionMenu->setTitle(tr("&Results"));

    QMenu* windows = menuBar()->addMenu(tr("&Window"));
    connect(windows, &QMenu::aboutToShow, this, [this, windows] {
        windows->clear();
        windows->addAction(tr("Minimize"), QKeySequence(Qt::CTRL | Qt::Key_M), this, &QWidget::showMinimized);
        windows->addAction(tr("Zoom"), this, [this] { isMaximized() ? showNormal() : showMaximized(); });
        windows->addSeparator();
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* other = qobject_cast<DocumentWindow*>(widget);
            if (!other || !other->isVisible()) {
                continue;
            }
            QAction* item = windows->addAction(other->windowTitle().remove(QStringLiteral("[*]")));
            item->setCheckable(true);
            item->setChecked(other == this);
            connect(item, &QAction::triggered, other, [other] {
                other->showNormal();
                other->raise();
                other->activateWindow();
            });
        }
    });
    // A menu that is empty until shown is not offered by some desktops.
    windows->addAction(tr("Minimize"));

    if (actions.help || actions.about) {
        QMenu* help = menuBar()->addMenu(tr("&Help"));
        addIfPresent(help, actions.help);
        addIfPresent(help, actions.about);
    }
}

void DocumentWindow::buildToolBar(const ApplicationActions& actions)
{
    QToolBar* bar = addToolBar(tr("Search"));
    bar->setObjectName(QStringLiteral("SearchToolBar"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addAction(m_startStop);
    bar->addSeparator();
    for (QAction* action : m_viewActions) {
        bar->addAction(action);
    }
    bar->addSeparator();
    for (QAction* panel : actions.panels) {
        panel->setPriority(QAction::LowPriority);
        bar->addAction(panel);
    }
    // The toolbar's button for the action menu (the menu bar shows the
    // same menu by name).
    auto* actionButton = new QToolButton(bar);
    actionButton->setMenu(m_actionMenu);
    actionButton->setPopupMode(QToolButton::InstantPopup);
    actionButton->setAutoRaise(true);
    actionButton->setFocusPolicy(Qt::NoFocus);
    actionButton->setIcon(themeIcon(QStringLiteral("open-menu"),
                               themeIcon(QStringLiteral("application-menu"),
                                         style()->standardIcon(QStyle::SP_ToolBarHorizontalExtensionButton))));
    actionButton->setToolTip(tr("Actions on the selected results"));
    actionButton->setAccessibleName(tr("Actions on the selected results"));
    bar->addWidget(actionButton);
    auto* spacer = new QWidget(bar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(spacer);
    m_filter->setMinimumWidth(180);
    m_filter->setMaximumWidth(280);
    bar->addWidget(m_filter);
}

QWidget* DocumentWindow::buildCentre()
{
    auto* centre = new QWidget(this);
    auto* layout = new QVBoxLayout(centre);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    // Made first, so the Tab order starts at the filter field (in the toolbar).
    m_filter = new FilterField(this);
    m_messages = new MessageBar(centre);
    layout->addWidget(m_messages);

    // ---- The criteria area: the rule editors go here (insertRuleEditor()).
    // Until one is inserted it shows the criteria as query text.
    m_ruleEditorArea = new QWidget(centre);
    m_ruleEditorArea->setObjectName(QStringLiteral("ruleEditorArea"));
    m_ruleEditorLayout = new QVBoxLayout(m_ruleEditorArea);
    m_ruleEditorLayout->setContentsMargins(6, 4, 6, 4);
    m_ruleEditorLayout->setSpacing(4);
    m_criteriaSummary = new QLabel(m_ruleEditorArea);
    m_criteriaSummary->setObjectName(QStringLiteral("criteriaSummary"));
    m_criteriaSummary->setWordWrap(true);
    m_criteriaSummary->setForegroundRole(QPalette::PlaceholderText);
    m_criteriaSummary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_ruleEditorLayout->addWidget(m_criteriaSummary);
    layout->addWidget(m_ruleEditorArea);
    // The four editors: criteria, places, places left out, limit. They
    // are filled from the document once the window is loaded.
    m_ruleEditors = new RuleEditorsPanel(m_document, m_ruleEditorArea);
    insertRuleEditor(m_ruleEditors);
    // ---- End of the criteria area.

    auto* statusRow = new QWidget(centre);
    auto* statusLayout = new QHBoxLayout(statusRow);
    statusLayout->setContentsMargins(8, 3, 8, 3);
    m_status = new QLabel(statusRow);
    m_status->setObjectName(QStringLiteral("statusLine"));
    m_status->setAccessibleName(tr("Status"));
    QFont bold = m_status->font();
    bold.setBold(true);
    m_status->setFont(bold);
    m_busy = new BusyIndicator(statusRow);
    statusLayout->addWidget(m_status, 1);
    statusLayout->addWidget(m_busy);
    layout->addWidget(statusRow);

    m_views = new QStackedWidget(centre);
    m_table = new ResultTableView(m_views);
    m_grid = new ResultGridView(m_views, m_thumbnails);
    m_coverFlow = new CoverFlowView(m_views, m_thumbnails);
    for (QWidget* view : {static_cast<QWidget*>(m_table), static_cast<QWidget*>(m_grid),
                          static_cast<QWidget*>(m_coverFlow)}) {
        m_views->addWidget(view);
        view->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(view, &QWidget::customContextMenuRequested, this, [this, view](const QPoint& point) {
            updateActionMenu();
            m_actionMenu->popup(view->mapToGlobal(point));
        });
    }
    connect(m_table, &ResultTableView::resultActivated, this, [this](int row) { openResults({row}); });
    connect(m_grid, &ResultGridView::resultActivated, this, [this](int row) { openResults({row}); });
    connect(m_coverFlow, &CoverFlowView::resultActivated, this, [this](int row) { openResults({row}); });
    connect(m_table, &ResultTableView::moreColumnsRequested, this, &DocumentWindow::chooseMoreColumns);
    layout->addWidget(m_views, 1);

    auto* bottom = new QWidget(centre);
    auto* bottomLayout = new QHBoxLayout(bottom);
    bottomLayout->setContentsMargins(2, 0, 6, 0);
    m_pathBar = new PathBar(bottom);
    connect(m_pathBar, &PathBar::componentActivated, this, &DocumentWindow::openPathComponent);
    m_zoom = new QSlider(Qt::Horizontal, bottom);
    m_zoom->setAccessibleName(tr("Thumbnail size"));
    m_zoom->setRange(0, 100);
    m_zoom->setFixedWidth(140);
    m_zoom->setValue(static_cast<int>(m_grid->zoom() * 100));
    connect(m_zoom, &QSlider::valueChanged, this, [this](int value) { m_grid->setZoom(value / 100.0); });
    bottomLayout->addWidget(m_pathBar, 1);
    bottomLayout->addWidget(m_zoom);
    layout->addWidget(bottom);
    return centre;
}

// --- Loading -----------------------------------------------------------------------------

void DocumentWindow::loadDocument()
{
    if (m_loaded) {
        return;
    }
    MetadataQueryController* controller = m_document.metadataQueryController();
    ResultTableModel* results = controller->results();
    m_table->setController(controller);
    m_grid->setResultModel(results);
    m_coverFlow->setResultModel(results);
    m_filter->setController(controller);
    connect(results->selectionModel(), &QItemSelectionModel::selectionChanged, this, &DocumentWindow::selectionChanged);
    connect(results, &ResultTableModel::arrangedObjectsChanged, this, &DocumentWindow::selectionChanged);
    m_loaded = true;
    if (!m_document.isWindowLoaded()) {
        m_document.windowControllerDidLoadNib();
    }
    m_ruleEditors->loadEditors();
    m_status->setText(controller->statusLine().isEmpty() ? model::localized(QStringLiteral("Results"))
                                                         : controller->statusLine());
    controller->isBusy() ? m_busy->start() : m_busy->stop();
    showResultsView(controller->resultController()->selectedTabIndex());
    updateRunControl();
    updateCriteriaSummary();
    selectionChanged();
}

void DocumentWindow::insertRuleEditor(QWidget* editor, int position)
{
    m_criteriaSummary->hide();
    // The summary stays first; positions count the editors only.
    const int at = position < 0 ? m_ruleEditorLayout->count() : position + 1;
    m_ruleEditorLayout->insertWidget(at, editor);
}

void DocumentWindow::updateCriteriaSummary()
{
    const QString expression = m_document.metadataQueryController()->expression();
    m_criteriaSummary->setVisible(!expression.isEmpty() && m_ruleEditorLayout->count() == 1);
    m_criteriaSummary->setText(tr("Criteria: %1").arg(expression));
}

// --- Run control and title ---------------------------------------------------------------------

void DocumentWindow::updateRunControl()
{
    const document::StartStopItem item = m_document.startStopItem();
    m_startStop->setText(model::localized(item.label));
    m_startStop->setToolTip(model::localized(item.toolTip));
    m_startStop->setIcon(runIcon(item.image, style()));
    m_startStop->setEnabled(m_loaded && item.enabled);
    m_start->setEnabled(m_loaded && m_document.canStartQuery());
    m_stop->setEnabled(m_document.canStopQuery());
}

void DocumentWindow::updateTitle()
{
    const QString name =
        m_document.templateName().isEmpty() ? m_document.displayName() : m_document.templateName();
    setWindowTitle(name + QStringLiteral("[*]"));
    setWindowModified(m_document.isDocumentEdited());
    m_revert->setEnabled(m_document.isDocumentEdited());
}

// --- Result views -------------------------------------------------------------------------------

QWidget* DocumentWindow::resultsView(int index) const
{
    switch (index) {
    case query::ResultController::GridView:
        return m_grid;
    case query::ResultController::CoverFlowView:
        return m_coverFlow;
    default:
        return m_table;
    }
}

QAction* DocumentWindow::viewAction(int index) const
{
    return index >= 0 && index < 3 ? m_viewActions[index] : nullptr;
}

void DocumentWindow::selectResultsView(int index)
{
    m_document.metadataQueryController()->resultController()->setSelectedTabIndex(index);
}

int DocumentWindow::selectedResultsView() const
{
    return m_document.metadataQueryController()->resultController()->selectedTabIndex();
}

void DocumentWindow::showResultsView(int index)
{
    const bool hadFocus = m_views->currentWidget() && m_views->currentWidget()->hasFocus();
    m_views->setCurrentWidget(resultsView(index));
    if (QAction* action = viewAction(index)) {
        action->setChecked(true);
    }
    m_zoom->setVisible(index == query::ResultController::GridView);
    if (hadFocus) {
        focusOnResults();
    }
}

void DocumentWindow::focusOnResults()
{
    resultsView(selectedResultsView())->setFocus(Qt::OtherFocusReason);
}

// --- Selection and results ------------------------------------------------------------------------

std::vector<int> DocumentWindow::selectedRows() const
{
    std::vector<int> rows;
    if (!m_loaded) {
        return rows;
    }
    const ResultTableModel* results = m_document.metadataQueryController()->results();
    for (const QModelIndex& index : results->selectionModel()->selectedRows()) {
        rows.push_back(index.row());
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

void DocumentWindow::selectionChanged()
{
    const query::ResultItem* item = m_loaded ? m_document.metadataQueryController()->selectedResult() : nullptr;
    m_pathBar->setPath(item ? item->path() : QString());
    updateActionMenu();
}

void DocumentWindow::updateActionMenu()
{
    const bool any = !selectedRows().empty();
    for (QAction* action : {m_openResults, m_showInFolder, m_copy, m_copyPaths}) {
        action->setEnabled(any);
    }
}

void DocumentWindow::openResults(const std::vector<int>& rows)
{
    const ResultTableModel* results = m_document.metadataQueryController()->results();
    QStringList missing;
    for (int row : rows) {
        const query::ResultItem* item = results->arrangedObjectAt(row);
        if (!item) {
            continue;
        }
        if (!QFileInfo::exists(item->path())) {
            missing << item->displayName();
            continue;
        }
        if (!openUrl(item->pathURL())) {
            m_messages->showMessage(tr("“%1” could not be opened: no application is set to open it.")
                                        .arg(item->displayName()),
                                    MessageBar::Kind::Warning);
        }
    }
    if (missing.size() == 1) {
        m_messages->showMessage(
            tr("“%1” can no longer be found. It was moved or deleted after the search found it.").arg(missing.front()),
            MessageBar::Kind::Warning);
    } else if (missing.size() > 1) {
        m_messages->showMessage(
            tr("%1 results can no longer be found. They were moved or deleted after the search found them.")
                .arg(missing.size()),
            MessageBar::Kind::Warning);
    }
}

void DocumentWindow::openSelectedResults()
{
    openResults(selectedRows());
}

void DocumentWindow::showSelectedInFolder()
{
    const ResultTableModel* results = m_document.metadataQueryController()->results();
    if (m_revealer) {
        QStringList paths;
        for (int row : selectedRows()) {
            if (const query::ResultItem* item = results->arrangedObjectAt(row)) {
                paths << item->path();
            }
        }
        if (!paths.isEmpty()) {
            m_revealer(paths);
        }
        return;
    }
    QStringList folders;
    for (int row : selectedRows()) {
        if (const query::ResultItem* item = results->arrangedObjectAt(row); item && !folders.contains(item->parent())) {
            folders << item->parent();
        }
    }
    for (const QString& folder : folders) {
        openPathComponent(folder);
    }
}

void DocumentWindow::copySelectedResults()
{
    const ResultTableModel* results = m_document.metadataQueryController()->results();
    std::vector<const query::ResultItem*> items;
    for (int row : selectedRows()) {
        items.push_back(results->arrangedObjectAt(row));
    }
    if (!items.empty()) {
        QGuiApplication::clipboard()->setMimeData(query::ResultItem::mimeDataForItems(items));
    }
}

void DocumentWindow::copySelectedPaths()
{
    const ResultTableModel* results = m_document.metadataQueryController()->results();
    QStringList paths;
    for (int row : selectedRows()) {
        paths << results->arrangedObjectAt(row)->path();
    }
    if (!paths.isEmpty()) {
        QGuiApplication::clipboard()->setText(paths.join(QLatin1Char('\n')));
    }
}

void DocumentWindow::openPathComponent(const QString& path)
{
    if (!QFileInfo::exists(path)) {
        m_messages->showMessage(tr("“%1” can no longer be found.").arg(path), MessageBar::Kind::Warning);
        return;
    }
    if (!openUrl(QUrl::fromLocalFile(path))) {
        m_messages->showMessage(tr("“%1” could not be opened.").arg(path), MessageBar::Kind::Warning);
    }
}

bool DocumentWindow::openUrl(const QUrl& url)
{
    return m_opener && m_opener(url);
}

// --- Row height ---------------------------------------------------------------------------------------

void DocumentWindow::increaseRowHeight()
{
    if (!m_document.metadataQueryController()->results()->increaseFontSize()) {
        m_beep();
    }
}

void DocumentWindow::decreaseRowHeight()
{
    if (!m_document.metadataQueryController()->results()->decreaseFontSize()) {
        m_beep();
    }
}

// --- More columns ---------------------------------------------------------------------------------------

void DocumentWindow::chooseMoreColumns()
{
    // "Select column attributes": every attribute of the index, searchable.
    m_ruleEditors->editors().beginColumnSheet();
}

// --- Alerts -----------------------------------------------------------------------------------------------

void DocumentWindow::presentAlert(const query::Alert& alert, std::function<void(int)> didEnd)
{
    auto* box = new QMessageBox(QMessageBox::Warning, windowTitle().remove(QStringLiteral("[*]")), alert.messageText,
                                QMessageBox::NoButton, this);
    box->setInformativeText(alert.informativeText);
    QList<QAbstractButton*> buttons;
    for (const QString& title : alert.buttons) {
        buttons << box->addButton(title, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
    }
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::buttonClicked, this, [buttons, didEnd](QAbstractButton* button) {
        didEnd(std::max<int>(0, static_cast<int>(buttons.indexOf(button))));
    });
    m_alert = box;
    box->open();
}

// --- Saving ----------------------------------------------------------------------------------------------

bool DocumentWindow::saveDocument()
{
    if (m_document.fileURL().isEmpty()) {
        return runSaveAsPanel();
    }
    if (Status saved = m_document.save(); !saved) {
        presentError(saved.error());
        return false;
    }
    updateTitle();
    emit documentSaved(m_document.fileURL());
    return true;
}

bool DocumentWindow::saveDocumentAs(const QString& path)
{
    QString target = path;
    if (QFileInfo(target).suffix() != QLatin1String(document::kDocumentExtension)) {
        target += QLatin1Char('.') + QLatin1String(document::kDocumentExtension);
    }
    if (Status saved = m_document.saveToURL(target); !saved) {
        presentError(saved.error());
        return false;
    }
    updateTitle();
    emit documentSaved(m_document.fileURL());
    return true;
}

bool DocumentWindow::runSaveAsPanel()
{
    QString start = m_document.fileURL();
    if (start.isEmpty()) {
        start = QDir::homePath() + QLatin1Char('/') + m_document.displayName() + QLatin1Char('.')
                + QLatin1String(document::kDocumentExtension);
    }
    QFileDialog dialog(this, tr("Save Search"), start, tr("Trovara searches (*.trova)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QLatin1String(document::kDocumentExtension));
    dialog.setWindowModality(Qt::WindowModal);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return false;
    }
    return saveDocumentAs(dialog.selectedFiles().front());
}

TemplateSaverSheet* DocumentWindow::templateSaverSheet()
{
    if (!m_templateSheet) {
        m_templateSheet = new TemplateSaverSheet(m_document, this);
    }
    return m_templateSheet;
}

void DocumentWindow::saveAsTemplate()
{
    templateSaverSheet()->open();
}

// --- Closing ------------------------------------------------------------------------------------------------

DocumentWindow::CloseAnswer DocumentWindow::askToSave()
{
    if (m_closePrompt) {
        return m_closePrompt(this);
    }
    QMessageBox box(QMessageBox::Warning, tr("Close"),
                    tr("Do you want to save the changes you made to “%1”?").arg(m_document.displayName()),
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    box.setInformativeText(tr("Your changes will be lost if you don't save them."));
    box.setDefaultButton(QMessageBox::Save);
    box.setWindowModality(Qt::WindowModal);
    switch (box.exec()) {
    case QMessageBox::Save:
        return CloseAnswer::Save;
    case QMessageBox::Discard:
        return CloseAnswer::Discard;
    default:
        return CloseAnswer::Cancel;
    }
}

void DocumentWindow::closeEvent(QCloseEvent* event)
{
    if (m_document.isDocumentEdited()) {
        const CloseAnswer answer = askToSave();
        if (answer == CloseAnswer::Cancel || (answer == CloseAnswer::Save && !saveDocument())) {
            event->ignore();
            return;
        }
    }
    event->accept();
    emit windowClosed(this);
}

void DocumentWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) {
        emit windowActivated(this);
    }
}

}  // namespace trovara::widgets
