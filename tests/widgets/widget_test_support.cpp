#include "widget_test_support.h"

#include "document/document_controller.h"
#include "document/template_item.h"
#include "model/ordered_column_attribute.h"
#include "model/query_leaf.h"
#include "model/scope.h"
#include "model/value_transformer.h"
#include "presentation/column_formatters.h"
#include "presentation/metadata_item_transformer.h"
#include "query/metadata_query_controller.h"

#include <QApplication>
#include <QDir>
#include <QWidget>

namespace trovara::test {

::testing::AssertionResult waitFor(const std::function<bool()>& condition, const char* what)
{
    QDeadlineTimer deadline(5000);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return ::testing::AssertionFailure() << "timed out waiting for " << what;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return ::testing::AssertionSuccess();
}

void writePicture(const std::string& path, QColor color, QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    ASSERT_TRUE(image.save(QString::fromStdString(path))) << path;
}

void setCriterion(document::Document& document, const QString& key, const QString& text)
{
    document.updatePredicate([&] {
        model::QueryNode* root = model::QueryNode::rootNodeInContext(document.managedObjectContext());
        for (model::QueryItem* item : root->orderedChildren()) {
            auto* leaf = dynamic_cast<model::QueryLeaf*>(item);
            if (leaf && leaf->queryAttribute() && leaf->queryAttribute()->attributeKey() == key) {
                leaf->setQueryString(text);
                return;
            }
        }
        ADD_FAILURE() << "no row for " << key.toStdString();
    });
}

void setPlaces(document::Document& document, const QStringList& folders)
{
    store::ManagedObjectContext& context = document.managedObjectContext();
    document.updateScope([&] {
        for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
            context.deleteObject(ordered);
        }
        for (const QString& folder : folders) {
            model::OrderedScope::createOrderedScopeWith(model::Scope::scopeWithPath(folder, context));
        }
    });
}

bool isSettled(const document::Document& document)
{
    const index::LiveQuery* query = document.metadataQueryController()->metadataQuery();
    return !query || query->isIdle();
}

namespace {
ModelTesterWarnings* g_warnings = nullptr;
}

ModelTesterWarnings::ModelTesterWarnings()
{
    g_warnings = this;
    m_previous = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (g_warnings && context.category && QByteArray(context.category).startsWith("qt.modeltest")) {
            g_warnings->messages << text;
        } else if (type == QtFatalMsg) {
            std::abort();
        }
    });
}

ModelTesterWarnings::~ModelTesterWarnings()
{
    qInstallMessageHandler(m_previous);
    g_warnings = nullptr;
}

WidgetTest::WidgetTest()
{
    ::mkdir(at("docs").c_str(), 0755);
    ::mkdir(at("pictures").c_str(), 0755);
    for (int i = 0; i < 6; ++i) {
        writeFile(at("docs/report " + std::to_string(i) + ".txt"), std::string(static_cast<std::size_t>(i + 1), 'r'));
    }
    writeFile(at("docs/notes.md"), "notes");
    writePicture(at("pictures/red.png"), Qt::red);
    writePicture(at("pictures/green.png"), Qt::green, QSize(300, 200));
    writePicture(at("pictures/blue.jpg"), Qt::blue);
}

WidgetTest::~WidgetTest() = default;

void WidgetTest::SetUp()
{
    model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/widget-test.conf"));
    model::registerModelTransformers();
    presentation::registerPresentationTransformers();
    document::registerDocumentTransformers();
    presentation::installColumnPropertiesChooser();
    indexTree();
}

void WidgetTest::TearDown()
{
    m_application.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
    // As the tests' main() has it: errors are shown nowhere.
    setErrorPresenter([](const Error&) {});
    model::ColumnAttribute::setPropertiesChooser({});
    QFile::remove(model::Defaults::shared().fileName());
    model::Defaults::resetSharedForTesting();
    QDir(document::templateFolder()).removeRecursively();
    document::Templates::refresh();
}

widgets::Application& WidgetTest::application()
{
    if (!m_application) {
        m_application = std::make_unique<widgets::Application>(std::make_unique<index::LiveIndexSource>(*live));
        // After the shell: its alerts would wait for a person.
        setErrorPresenter([this](const Error& error) { presented.push_back(error); });
        m_application->setUrlOpener([this](const QUrl& url) {
            opened.push_back(url);
            return true;
        });
    }
    return *m_application;
}

widgets::DocumentWindow* WidgetTest::newSearchWindow()
{
    widgets::DocumentWindow* window = application().newDocument();
    EXPECT_NE(window, nullptr);
    if (window) {
        setPlaces(window->document(), {QString::fromStdString(root)});
        EXPECT_TRUE(window->isDocumentLoaded());
    }
    return window;
}

void WidgetTest::searchNames(widgets::DocumentWindow* window, const QString& text)
{
    setCriterion(window->document(), QStringLiteral("kMDItemDisplayName"), text);
    window->document().startQuery();
    EXPECT_TRUE(waitFor([&] { return window->document().isQueryAlive() && isSettled(window->document()); },
                        "the search to settle"));
    EXPECT_TRUE(waitFor([&] { return !window->document().metadataQueryController()->isGathering(); },
                        "the end of gathering"));
}

}  // namespace trovara::test
