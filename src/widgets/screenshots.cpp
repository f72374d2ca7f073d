#include "widgets/screenshots.h"

#include "app/key_combination.h"
#include "document/document.h"
#include "editors/document_editors.h"
#include "helper/helper_controller.h"
#include "model/criteria_json.h"
#include "model/defaults.h"
#include "model/query_item.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"
#include "widgets/application.h"
#include "widgets/attribute_selection_sheet.h"
#include "widgets/document_window.h"
#include "widgets/file_operation_scenes.h"
#include "widgets/helper_tray.h"
#include "widgets/inspector_controller.h"
#include "widgets/preferences_window.h"
#include "widgets/query_inspector_controller.h"
#include "widgets/quick_look_controller.h"
#include "widgets/rule_editor.h"
#include "widgets/rule_editors_panel.h"
#include "widgets/template_saver_sheet.h"
#include "widgets/preview_text_view.h"
#include "widgets/text_preview_controller.h"
#include "widgets/thumbnail_cache.h"

#include <QApplication>
#include <QComboBox>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QDBusConnection>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QTableView>
#include <QTimer>

#include <cstdio>

namespace trovara::widgets {

namespace {

// Selects the first result whose name ends so (a picture shows best).
void selectResultEndingWith(DocumentWindow& window, const QString& suffix)
{
    query::ResultTableModel* results = window.document().metadataQueryController()->results();
    for (int row = 0; row < results->rowCount(); ++row) {
        if (results->arrangedObjectAt(row)->displayName().endsWith(suffix)) {
            results->setSelectionIndex(row);
            return;
        }
    }
    if (results->rowCount() > 0) {
        results->setSelectionIndex(0);
    }
}

// Opens a panel on the result ending so, waits until `ready` and grabs it.
QPixmap panelShot(AbstractInspectorController& panel, DocumentWindow& window, const QString& suffix, QSize size,
                  const std::function<bool()>& ready)
{
    window.selectResultsView(0);
    selectResultEndingWith(window, suffix);
    panel.activateInspectorPanel();
    panel.window()->resize(size);
    QDeadlineTimer limit(10000);
    while (!ready() && !limit.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    settleForScreenshot();
    QPixmap picture = panel.window()->grab();
    panel.window()->close();
    return picture;
}

QPixmap showView(DocumentWindow& window, int view, const QString& selectSuffix)
{
    window.selectResultsView(view);
    selectResultEndingWith(window, selectSuffix);
    window.focusOnResults();
    settleForScreenshot();
    return window.grab();
}

// A dark desktop theme's colours, as Breeze Dark or Adwaita dark hand them
// to Qt programs: the window drawn with them shows what a person with a dark
// theme sees, whatever the machine rendering the picture is set to.
QPalette darkPalette()
{
    QPalette dark;
    const QColor window(0x2a, 0x2e, 0x32);
    const QColor base(0x1b, 0x1e, 0x20);
    const QColor text(0xfc, 0xfc, 0xfc);
    const QColor disabled(0x80, 0x84, 0x88);
    dark.setColor(QPalette::Window, window);
    dark.setColor(QPalette::WindowText, text);
    dark.setColor(QPalette::Base, base);
    dark.setColor(QPalette::AlternateBase, QColor(0x23, 0x26, 0x29));
    dark.setColor(QPalette::Text, text);
    dark.setColor(QPalette::Button, QColor(0x31, 0x36, 0x3b));
    dark.setColor(QPalette::ButtonText, text);
    dark.setColor(QPalette::BrightText, QColor(0xff, 0x6b, 0x6b));
    dark.setColor(QPalette::Highlight, QColor(0x3d, 0xae, 0xe9));
    dark.setColor(QPalette::HighlightedText, text);
    dark.setColor(QPalette::ToolTipBase, window);
    dark.setColor(QPalette::ToolTipText, text);
    dark.setColor(QPalette::PlaceholderText, disabled);
    dark.setColor(QPalette::Link, QColor(0x1d, 0x99, 0xf3));
    dark.setColor(QPalette::LinkVisited, QColor(0x9b, 0x59, 0xb6));
    dark.setColor(QPalette::Light, QColor(0x40, 0x46, 0x4c));
    dark.setColor(QPalette::Midlight, QColor(0x36, 0x3b, 0x40));
    dark.setColor(QPalette::Mid, QColor(0x1e, 0x21, 0x24));
    dark.setColor(QPalette::Dark, QColor(0x14, 0x16, 0x18));
    dark.setColor(QPalette::Shadow, QColor(0x0a, 0x0b, 0x0c));
    for (QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        dark.setColor(QPalette::Disabled, role, disabled);
    }
    return dark;
}

// A sheet drawn over its window, where the desktop would show it.
QPixmap withSheet(QWidget& window, QWidget& sheet)
{
    QPixmap picture = window.grab();
    const QPixmap sheetPicture = sheet.grab();
    QPainter painter(&picture);
    painter.fillRect(picture.rect(), QColor(0, 0, 0, 60));
    const QPoint at((window.width() - sheet.width()) / 2, window.height() / 5);
    painter.drawPixmap(at, sheetPicture);
    painter.setPen(QColor(0, 0, 0, 90));
    painter.drawRect(QRect(at, sheet.size()).adjusted(-1, -1, 0, 0));
    return picture;
}

// Criteria in groups two levels deep, one of each kind, and the limit
// "the 100 most recently used": the editors as a person builds a search.
void showNestedCriteria(DocumentWindow& window)
{
    static const DocumentWindow* shown = nullptr;
    if (shown == &window) {
        return;
    }
    shown = &window;
    document::Document& document = window.document();
    static const QByteArray criteria = R"({"operator": "AND", "children": [
        {"attribute": "kMDItemDisplayName", "operator": "contains", "string": "report"},
        {"operator": "OR", "children": [
            {"attribute": "kMDItemFSSize", "operator": "greaterThan", "number": 5, "unit": "MB"},
            {"attribute": "kMDItemContentModificationDate", "operator": "withinLast", "number": 3, "unit": "day"},
            {"operator": "NOT", "children": [
                {"attribute": "kMDItemContentTypeTree", "operator": "is", "string": "public.image"},
                {"attribute": "kMDItemTextContent", "operator": "containsWords", "string": "draft"}
            ]}
        ]}
    ]})";
    document.updatePredicate([&] {
        store::ManagedObjectContext& context = document.managedObjectContext();
        // In place of the search's own criteria.
        if (model::QueryNode* root = model::QueryNode::rootNodeInContext(context)) {
            for (model::QueryItem* child : root->children()) {
                context.deleteObject(child);
            }
        }
        (void)model::readCriteriaJson(criteria, context);
    });
    RuleEditorsPanel& panel = *window.ruleEditors();
    panel.editors().loadPredicateEditor();
    // The limit line: a number, then the most recent.
    editors::RuleEditorModel& limit = panel.editors().limitEditor();
    for (int position = 0; position < 2; ++position) {
        const QString wanted = position == 0 ? QStringLiteral("100") : QStringLiteral("Most");
        const int index = limit.choiceTitlesAt(0, position).indexOf(wanted);
        if (index >= 0 && limit.selectedChoiceAt(0, position) != index) {
            limit.chooseCriterion(0, position, index);
        }
    }
    settleForScreenshot();
}

}  // namespace

void settleForScreenshot(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    QDeadlineTimer limit(10000);
    for (;;) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        ThumbnailLoader::shared()->waitForDone();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        if ((deadline.hasExpired() && ThumbnailLoader::shared()->pendingCount() == 0) || limit.hasExpired()) {
            return;
        }
    }
}

const std::vector<std::pair<QString, ScreenshotScene>>& screenshotScenes()
{
    static const std::vector<std::pair<QString, ScreenshotScene>> scenes = {
        {QStringLiteral("table"), [](Application&, DocumentWindow& window) { return showView(window, 0, ".md"); }},
        {QStringLiteral("grid"), [](Application&, DocumentWindow& window) { return showView(window, 1, ".png"); }},
        {QStringLiteral("window-dark"),
         [](Application&, DocumentWindow& window) {
             const QPalette before = QApplication::palette();
             QApplication::setPalette(darkPalette());
             QPixmap picture = showView(window, 0, ".md");
             QApplication::setPalette(before);
             settleForScreenshot(100);
             return picture;
         }},
        {QStringLiteral("coverflow"),
         [](Application&, DocumentWindow& window) { return showView(window, 2, ".jpg"); }},
        {QStringLiteral("inspector"),
         [](Application& application, DocumentWindow& window) {
             window.selectResultsView(0);
             selectResultEndingWith(window, ".jpg");
             InspectorController* inspector = application.inspector();
             inspector->activateInspectorPanel();
             inspector->window()->resize(460, 520);
             settleForScreenshot();
             if (inspector->rowsModel()->rowCount() > 0) {
                 inspector->inspectorTable()->selectRow(0);
             }
             settleForScreenshot();
             QPixmap picture = inspector->window()->grab();
             inspector->window()->close();
             return picture;
         }},
        {QStringLiteral("query-inspector"),
         [](Application& application, DocumentWindow&) {
             QueryInspectorController* inspector = application.queryInspector();
             inspector->activateInspectorPanel();
             inspector->window()->resize(520, 280);
             settleForScreenshot();
             QPixmap picture = inspector->window()->grab();
             inspector->window()->close();
             return picture;
         }},
        {QStringLiteral("preferences"),
         [](Application& application, DocumentWindow&) {
             // A quick-search hot key as a user records it (the other two
             // keep their defaults).
             model::Defaults::shared().setValue(
                 QStringLiteral("blitzSearchHotKey"),
                 app::KeyCombination{0x31, app::kCommandKeyMask | app::kOptionKeyMask}.toDictionary());
             PreferencesController* preferences = application.showPreferences();
             preferences->adjustSize();
             settleForScreenshot();
             QPixmap picture = preferences->grab();
             preferences->close();
             return picture;
         }},
        {QStringLiteral("helper-menu"),
         [](Application&, DocumentWindow&) {
             // The helper's menu as the panel shows it; nothing is sent
             // anywhere (no bus).
             helper::HelperController controller(
                 QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                               QStringLiteral("screenshot-no-bus")),
                 {});
             QPixmap picture;
             {
                 HelperTray tray(controller);
                 tray.menu()->adjustSize();
                 tray.menu()->popup(QPoint(40, 40));
                 settleForScreenshot();
                 picture = tray.menu()->grab();
                 tray.menu()->hide();
             }
             QDBusConnection::disconnectFromBus(QStringLiteral("screenshot-no-bus"));
             return picture;
         }},
        {QStringLiteral("template-sheet"),
         [](Application&, DocumentWindow& window) {
             window.selectResultsView(0);
             TemplateSaverSheet* sheet = window.templateSaverSheet();
             sheet->nameField()->setCurrentText(QStringLiteral("Reports and notes"));
             sheet->adjustSize();
             sheet->resize(std::max(sheet->width(), 420), sheet->height());
             sheet->open();
             settleForScreenshot();
             QPixmap picture = withSheet(window, *sheet);
             sheet->cancelSheet();
             return picture;
         }},
        {QStringLiteral("text-preview"),
         [](Application& application, DocumentWindow& window) {
             TextPreviewController& panel = *application.textPreview();
             // Three terms, as a search for these words would colour them.
             window.selectResultsView(0);
             selectResultEndingWith(window, QStringLiteral("日記.txt"));
             panel.activateInspectorPanel();
             panel.preview().setQuerySearchStringArray(
                 {QStringLiteral("港"), QStringLiteral("氷河"), QStringLiteral("夕日")});
             panel.searchField()->setText(panel.preview().searchString());
             return panelShot(panel, window, QStringLiteral("日記.txt"), QSize(560, 300), [&panel] {
                 return panel.isTextShown() && !panel.previewView()->matches().empty();
             });
         }},
        {QStringLiteral("quick-look-picture"),
         [](Application& application, DocumentWindow& window) {
             QuickLookController& panel = *application.quickLook();
             return panelShot(panel, window, QStringLiteral("dawn.png"), QSize(520, 420), [&panel] {
                 return panel.kind() == QuickLookController::Kind::Picture;
             });
         }},
        {QStringLiteral("quick-look-pdf"),
         [](Application& application, DocumentWindow& window) {
             QuickLookController& panel = *application.quickLook();
             // The words a search for the survey would colour (set once the
             // panel follows the window, which gives it the search's own).
             window.selectResultsView(0);
             selectResultEndingWith(window, QStringLiteral(".pdf"));
             panel.activateInspectorPanel();
             panel.textPreview().setQuerySearchStringArray({QStringLiteral("harbour"), QStringLiteral("quay")});
             return panelShot(panel, window, QStringLiteral(".pdf"), QSize(480, 720), [&panel] {
                 return panel.kind() == QuickLookController::Kind::Pdf && !panel.pdfTextView()->matches().empty();
             });
         }},
        {QStringLiteral("quick-look-audio"),
         [](Application& application, DocumentWindow& window) {
             QuickLookController& panel = *application.quickLook();
             return panelShot(panel, window, QStringLiteral(".wav"), QSize(460, 520), [&panel] {
                 return panel.kind() == QuickLookController::Kind::Media && !panel.shownMediaFacts().isEmpty();
             });
         }},
        {QStringLiteral("editors"),
         [](Application&, DocumentWindow& window) {
             showNestedCriteria(window);
             window.resize(1000, 720);
             settleForScreenshot();
             return window.grab();
         }},
        {QStringLiteral("attribute-sheet"),
         [](Application&, DocumentWindow& window) {
             showNestedCriteria(window);
             // "Other..." of the first criterion's attribute, then a word typed.
             RuleEditorLine* line = window.ruleEditors()->criteriaEditor()->line(1);
             QComboBox* attribute = line ? line->popUp(0) : nullptr;
             if (!attribute) {
                 return QPixmap();
             }
             window.ruleEditors()->editors().predicateEditor().chooseCriterion(1, 0, attribute->count() - 1);
             settleForScreenshot();
             auto* sheet = window.findChild<AttributeSelectionSheet*>();
             if (!sheet) {
                 return QPixmap();
             }
             sheet->searchField()->setText(QStringLiteral("date"));
             sheet->resize(std::max(sheet->width(), 560), std::max(sheet->height(), 420));
             settleForScreenshot();
             QPixmap picture = withSheet(window, *sheet);
             sheet->reject();
             settleForScreenshot();
             return picture;
         }},
        {QStringLiteral("file-progress"),
         [](Application&, DocumentWindow& window) { return fileOperationProgressScene(window); }},
        {QStringLiteral("file-conflict"),
         [](Application&, DocumentWindow& window) { return fileOperationConflictScene(window); }},
    };
    return scenes;
}

ScreenshotRunner::ScreenshotRunner(Application& application, std::vector<std::pair<QString, QString>> shots,
                                   QObject* parent)
    : QObject(parent)
    , m_application(application)
    , m_shots(std::move(shots))
{
}

void ScreenshotRunner::start()
{
    QTimer::singleShot(100, this, &ScreenshotRunner::step);
}

// Polls until the first window's search has settled (a minute at most).
void ScreenshotRunner::step()
{
    ++m_turns;
    const std::vector<DocumentWindow*> windows = m_application.windows();
    DocumentWindow* window = windows.empty() ? nullptr : windows.front();
    if (window && window->isDocumentLoaded()) {
        document::Document& document = window->document();
        if (!m_started) {
            m_started = true;
            window->resize(1000, 640);
            if (!document.isQueryAlive()) {
                document.startQuery();
            }
        }
        const query::MetadataQueryController* controller = document.metadataQueryController();
        const index::LiveQuery* query = controller->metadataQuery();
        if (query && query->isIdle() && !controller->isGathering()) {
            QCoreApplication::exit(renderAll() ? 0 : 1);
            return;
        }
    }
    if (m_turns > 600) {
        std::fputs("trovara: the search did not settle for the screenshots\n", stderr);
        QCoreApplication::exit(1);
        return;
    }
    QTimer::singleShot(100, this, &ScreenshotRunner::step);
}

bool ScreenshotRunner::renderAll()
{
    DocumentWindow& window = *m_application.windows().front();
    bool ok = true;
    for (const auto& [name, file] : m_shots) {
        const auto& scenes = screenshotScenes();
        auto scene = std::find_if(scenes.begin(), scenes.end(), [&](const auto& entry) { return entry.first == name; });
        if (scene == scenes.end()) {
            std::fprintf(stderr, "trovara: no screenshot scene %s\n", qPrintable(name));
            ok = false;
            continue;
        }
        const QPixmap picture = scene->second(m_application, window);
        if (picture.isNull() || !picture.save(file, "PNG")) {
            std::fprintf(stderr, "trovara: could not write %s\n", qPrintable(file));
            ok = false;
        }
    }
    return ok;
}

}  // namespace trovara::widgets
