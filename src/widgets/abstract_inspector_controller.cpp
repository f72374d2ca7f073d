#include "widgets/abstract_inspector_controller.h"

#include "document/document.h"
#include "model/defaults.h"
#include "query/metadata_query_controller.h"
#include "query/result_item.h"
#include "query/result_table_model.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QItemSelectionModel>
#include <QScreen>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

namespace trovara::widgets {

AbstractInspectorController::AbstractInspectorController(const QString& className, const QString& windowTitle,
                                                         QObject* parent)
    : QObject(parent)
    , m_className(className)
    , m_windowTitle(windowTitle)
{
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AbstractInspectorController::applicationWillTerminate);
    if (model::Defaults::shared().boolValue(activeDefaultsKey())) {
        // Asked on the next turn: a subclass answers shouldAutoOpen() only
        // once it is made.
        QTimer::singleShot(0, this, [this] {
            if (shouldAutoOpen()) {
                activateInspectorPanel();
            }
        });
    }
}

AbstractInspectorController::~AbstractInspectorController()
{
    // The subclass is gone: its window's last events must not reach it.
    if (m_window) {
        m_window->removeEventFilter(this);
        delete m_window;
    }
}

QString AbstractInspectorController::activeDefaultsKey() const
{
    return m_className + QStringLiteral("Active");
}

QWidget* AbstractInspectorController::window()
{
    if (m_window) {
        return m_window;
    }
    m_window = new QWidget(nullptr, Qt::Tool);
    m_window->setObjectName(m_className);
    m_window->setWindowTitle(m_windowTitle);
    m_window->setAccessibleName(m_windowTitle);
    auto* layout = new QVBoxLayout(m_window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(makeContents());
    m_window->installEventFilter(this);
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), m_window);
    connect(escape, &QShortcut::activated, this, &AbstractInspectorController::cancelOperation);

    const QByteArray frame = model::Defaults::shared().value(m_className + QStringLiteral("Frame")).toByteArray();
    if (frame.isEmpty() || !m_window->restoreGeometry(frame)) {
        m_window->adjustSize();
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            QRect geometry = m_window->frameGeometry();
            geometry.moveCenter(screen->availableGeometry().center());
            m_window->move(geometry.topLeft());
        }
    }
    activeDocumentChanged();
    showContent(content());
    return m_window;
}

bool AbstractInspectorController::isWindowVisible() const
{
    return m_window && m_window->isVisible();
}

bool AbstractInspectorController::isWindowActive() const
{
    return isWindowVisible() && m_window->isActiveWindow();
}

QString AbstractInspectorController::menuTitleWhenActive(bool active) const
{
    return active ? tr("Hide Inspector") : tr("Show Inspector");
}

void AbstractInspectorController::activateInspectorPanel()
{
    QWidget* panel = window();
    if (isWindowActive()) {
        return;
    }
    panel->show();
    panel->raise();
    panel->activateWindow();
    // Where no window manager says so (or before it does), the panel is
    // bound as soon as it is brought forward.
    setBound(true);
    emit windowStateChanged();
}

void AbstractInspectorController::toggleInspectorPanel()
{
    if (isWindowLoaded() && isWindowActive()) {
        m_window->close();
    } else {
        activateInspectorPanel();
    }
}

void AbstractInspectorController::cancelOperation()
{
    if (m_window) {
        m_window->close();
    }
}

void AbstractInspectorController::setActiveDocument(document::Document* document)
{
    if (m_activeDocument == document) {
        return;
    }
    m_activeDocument = document;
    activeDocumentChanged();
    publishContent();
}

void AbstractInspectorController::setBound(bool bound)
{
    if (m_bound == bound) {
        return;
    }
    m_bound = bound;
    publishContent();
}

void AbstractInspectorController::publishContent()
{
    document::Document* now = content();
    if (now == m_shown) {
        return;
    }
    m_shown = now;
    if (m_window) {
        showContent(now);
    }
    emit contentChanged(now);
}

bool AbstractInspectorController::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window) {
        switch (event->type()) {
        case QEvent::WindowActivate:
            setBound(true);
            emit windowStateChanged();
            break;
        case QEvent::WindowDeactivate:
            emit windowStateChanged();
            break;
        case QEvent::Close:
        case QEvent::Hide:
            saveFrame();
            setBound(false);
            emit windowStateChanged();
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}

void AbstractInspectorController::saveFrame()
{
    if (m_window) {
        model::Defaults::shared().setValue(m_className + QStringLiteral("Frame"), m_window->saveGeometry());
    }
}

void AbstractInspectorController::applicationWillTerminate()
{
    model::Defaults::shared().setValue(activeDefaultsKey(), isWindowLoaded() && isWindowVisible());
    model::Defaults::shared().synchronize();
}

void AbstractInspectorController::followSelectionOf(document::Document* document,
                                                    const std::function<void()>& selectionChanged,
                                                    const std::function<void()>& searchStringsChanged)
{
    for (const QMetaObject::Connection& connection : m_selectionConnections) {
        disconnect(connection);
    }
    m_selectionConnections.clear();
    if (!document) {
        return;
    }
    query::ResultTableModel* results = document->metadataQueryController()->results();
    m_selectionConnections << connect(results->selectionModel(), &QItemSelectionModel::selectionChanged, this,
                                      selectionChanged);
    m_selectionConnections << connect(results, &query::ResultTableModel::arrangedObjectsChanged, this,
                                      selectionChanged);
    m_selectionConnections << connect(document, &document::Document::searchStringChanged, this,
                                      searchStringsChanged);
}

QStringList AbstractInspectorController::selectedPaths(const document::Document* document)
{
    QStringList paths;
    if (document) {
        for (const query::ResultItem* item : document->metadataQueryController()->results()->selectedObjects()) {
            paths.append(item->path());
        }
    }
    return paths;
}

}  // namespace trovara::widgets
