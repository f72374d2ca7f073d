#include "widgets/query_inspector_controller.h"

#include "common/paths.h"
#include "document/document.h"
#include "model/abstract_attribute.h"
#include "model/defaults.h"
#include "query/metadata_query_controller.h"

#include <QFormLayout>
#include <QLabel>
#include <QPlainTextEdit>

namespace trovara::widgets {

using query::MetadataQueryController;

namespace {

QString listText(const QStringList& paths)
{
    if (paths.isEmpty()) {
        return QObject::tr("None");
    }
    QStringList shown;
    for (const QString& path : paths) {
        shown << abbreviateWithTilde(path);
    }
    return shown.join(QLatin1Char('\n'));
}

QLabel* makeValueLabel(const QString& name)
{
    auto* label = new QLabel;
    label->setAccessibleName(name);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    return label;
}

}  // namespace

QueryInspectorController::QueryInspectorController(QObject* parent)
    : AbstractInspectorController(QStringLiteral("QueryInspectorController"), tr("Query Inspector"), parent)
{
}

QString QueryInspectorController::menuTitleWhenActive(bool active) const
{
    return active ? tr("Hide Query Inspector") : tr("Show Query Inspector");
}

QWidget* QueryInspectorController::makeContents()
{
    auto* contents = new QWidget;
    auto* form = new QFormLayout(contents);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_query = new QPlainTextEdit;
    m_query->setReadOnly(true);
    m_query->setAccessibleName(tr("Query string"));
    m_query->setTabChangesFocus(true);
    QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    m_query->setFont(fixed);
    m_query->setMinimumHeight(QFontMetrics(fixed).height() * 5);
    m_places = makeValueLabel(tr("Places searched"));
    m_exclusions = makeValueLabel(tr("Places left out"));
    m_limit = makeValueLabel(tr("Limit"));
    m_state = makeValueLabel(tr("State"));
    form->addRow(tr("Query:"), m_query);
    form->addRow(tr("Search in:"), m_places);
    form->addRow(tr("Leave out:"), m_exclusions);
    form->addRow(tr("Limit:"), m_limit);
    form->addRow(tr("State:"), m_state);
    contents->resize(460, 320);
    return contents;
}

void QueryInspectorController::showContent(document::Document* document)
{
    for (const QMetaObject::Connection& connection : m_documentConnections) {
        disconnect(connection);
    }
    m_documentConnections.clear();
    if (document) {
        MetadataQueryController* controller = document->metadataQueryController();
        for (auto signal : {&MetadataQueryController::expressionChanged, &MetadataQueryController::searchScopesChanged,
                            &MetadataQueryController::excludedPathsChanged, &MetadataQueryController::limitKeyChanged,
                            &MetadataQueryController::limitValueChanged,
                            &MetadataQueryController::limitAscendingChanged}) {
            m_documentConnections << connect(controller, signal, this, &QueryInspectorController::refresh);
        }
        m_documentConnections << connect(controller, &MetadataQueryController::stateChanged, this,
                                         &QueryInspectorController::refresh);
        m_documentConnections << connect(controller, &MetadataQueryController::statusLineChanged, this,
                                         &QueryInspectorController::refresh);
    }
    refresh();
}

QString QueryInspectorController::queryText() const
{
    document::Document* document = content();
    if (!document) {
        return {};
    }
    const MetadataQueryController* controller = document->metadataQueryController();
    if (!controller->queryString().isEmpty()) {
        return controller->queryString();
    }
    if (controller->expression().isEmpty()) {
        return {};
    }
    return MetadataQueryController::finalQueryString(
        controller->expression(), model::Defaults::shared().boolValue(QStringLiteral("includeInvisibleFiles")));
}

QString QueryInspectorController::placesText() const
{
    document::Document* document = content();
    return document ? listText(document->metadataQueryController()->searchScopes()) : QString();
}

QString QueryInspectorController::exclusionsText() const
{
    document::Document* document = content();
    return document ? listText(document->metadataQueryController()->excludedPaths()) : QString();
}

QString QueryInspectorController::limitText() const
{
    document::Document* document = content();
    if (!document) {
        return {};
    }
    const MetadataQueryController* controller = document->metadataQueryController();
    if (controller->limitValue() <= 0) {
        return tr("No limit");
    }
    const QString attribute = model::ColumnAttribute::nameForKey(controller->limitKey());
    return (controller->limitAscending() ? tr("The %1 earliest by %2") : tr("The %1 latest by %2"))
        .arg(controller->limitValue())
        .arg(attribute.isEmpty() ? controller->limitKey() : attribute);
}

QString QueryInspectorController::stateText() const
{
    document::Document* document = content();
    if (!document) {
        return {};
    }
    const MetadataQueryController* controller = document->metadataQueryController();
    QString state;
    switch (controller->state()) {
    case MetadataQueryController::State::Idle:
        state = tr("Stopped");
        break;
    case MetadataQueryController::State::Gathering:
        state = tr("Gathering");
        break;
    case MetadataQueryController::State::Live:
        state = tr("Live");
        break;
    }
    return QStringLiteral("%1 — %2").arg(state, controller->statusLine());
}

void QueryInspectorController::refresh()
{
    if (!m_query) {
        return;
    }
    const bool hasDocument = content() != nullptr;
    const QString query = queryText();
    if (m_query->toPlainText() != query) {
        m_query->setPlainText(query);
    }
    if (!hasDocument) {
        m_query->setPlaceholderText(tr("No search window is active."));
    } else {
        m_query->setPlaceholderText(tr("No criteria yet."));
    }
    m_places->setText(placesText());
    m_exclusions->setText(exclusionsText());
    m_limit->setText(limitText());
    m_state->setText(stateText());
}

}  // namespace trovara::widgets
