#include "widgets/inspector_controller.h"

#include "document/document.h"
#include "presentation/detail_value_formatter.h"
#include "query/metadata_query_controller.h"
#include "query/result_table_model.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QHeaderView>
#include <QMouseEvent>
#include <QPainter>
#include <QSplitter>
#include <QTableView>
#include <QTextBrowser>

#include <algorithm>

namespace trovara::widgets {

namespace {

const QString kLabel = QStringLiteral("label");
const QString kValue = QStringLiteral("value");
const QString kKey = QStringLiteral("key");
constexpr int kLabelColumnWidth = 145;

// Where a cell's text begins, as the style draws it.
int textStart(const QStyleOptionViewItem& option)
{
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    return option.rect.left() + style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, widget) + 1;
}

// The label column's cells, in bold.
class BoldLabelDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        option->font.setBold(true);
        option->fontMetrics = QFontMetrics(option->font);
    }
};

}  // namespace

// --- Rows -------------------------------------------------------------------------

void InspectorRowsModel::setRows(QVariantList rows)
{
    std::stable_sort(rows.begin(), rows.end(), [](const QVariant& a, const QVariant& b) {
        return a.toMap().value(kLabel).toString() < b.toMap().value(kLabel).toString();
    });
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

QString InspectorRowsModel::label(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows[row].toMap().value(kLabel).toString() : QString();
}

QString InspectorRowsModel::value(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows[row].toMap().value(kValue).toString() : QString();
}

int InspectorRowsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int InspectorRowsModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : 2;
}

QVariant InspectorRowsModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const QVariantMap row = m_rows[index.row()].toMap();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return row.value(index.column() == 0 ? kLabel : kValue).toString();
    case KeyRole:
        return row.value(kKey);
    default:
        return {};
    }
}

QVariant InspectorRowsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section > 1) {
        return {};
    }
    return section == 0 ? tr("Attribute") : tr("Value");
}

// --- Values with links --------------------------------------------------------------

InspectorValueDelegate::InspectorValueDelegate(QObject* parent)
    : QStyledItemDelegate(parent)
    , m_opener([](const QUrl& url) { QDesktopServices::openUrl(url); })
{
}

void InspectorValueDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                   const QModelIndex& index) const
{
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    const QString text = background.text;
    background.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, widget);

    const presentation::AttributedString attributed =
        presentation::InspectorValueFormatter().attributedStringForObjectValue(text, {});
    const bool selected = option.state & QStyle::State_Selected;
    const QColor plain = option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor link = option.palette.color(QPalette::Link);
    painter->save();
    painter->setClipRect(option.rect);
    int x = textStart(option);
    const QFontMetrics metrics(option.font);
    const int baseline = option.rect.top() + (option.rect.height() + metrics.ascent() - metrics.descent()) / 2;
    for (const presentation::AttributeRun& run : attributed.runs) {
        const QString piece = attributed.string.mid(run.start, run.length);
        QFont font = option.font;
        const bool isLink = run.attributes.contains(QString::fromLatin1(presentation::kLinkAttribute));
        font.setUnderline(isLink);
        painter->setFont(font);
        painter->setPen(isLink && !selected ? link : plain);
        painter->drawText(x, baseline, piece);
        x += QFontMetrics(font).horizontalAdvance(piece);
    }
    painter->restore();
}

bool InspectorValueDelegate::editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                                         const QModelIndex& index)
{
    if (event->type() == QEvent::MouseButtonPress) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        const QString text = index.data().toString();
        if (mouse->button() == Qt::LeftButton && !text.isEmpty()) {
            const int start = textStart(option);
            const int width = QFontMetrics(option.font).horizontalAdvance(text);
            const int x = mouse->position().toPoint().x();
            const presentation::AttributedString attributed =
                presentation::InspectorValueFormatter().attributedStringForObjectValue(text, {});
            const QVariant link = attributed.attributesAt(0).value(QString::fromLatin1(presentation::kLinkAttribute));
            if (x >= start && x <= start + width && link.isValid()) {
                m_opener(link.toUrl());
                return true;
            }
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}

// --- The panel ------------------------------------------------------------------------

InspectorController::InspectorController(QObject* parent)
    : AbstractInspectorController(QStringLiteral("InspectorController"), tr("Inspector"), parent)
    , m_rows(new InspectorRowsModel(this))
    , m_valueDelegate(new InspectorValueDelegate(this))
{
}

QString InspectorController::menuTitleWhenActive(bool active) const
{
    return active ? tr("Hide Inspector") : tr("Show Inspector");
}

QWidget* InspectorController::makeContents()
{
    auto* splitter = new QSplitter(Qt::Vertical);
    m_table = new QTableView(splitter);
    m_table->setAccessibleName(tr("Attributes of the selected result"));
    m_table->setModel(m_rows);
    m_table->setItemDelegateForColumn(1, m_valueDelegate);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setShowGrid(true);
    m_table->setGridStyle(Qt::SolidLine);
    m_table->setWordWrap(false);
    m_table->setTabKeyNavigation(false);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->horizontalHeader()->setMinimumSectionSize(kLabelColumnWidth);
    m_table->setColumnWidth(0, kLabelColumnWidth);
    // Small text; the labels bold.
    QFont small = m_table->font();
    small.setPointSizeF(std::max(7.0, small.pointSizeF() - 1));
    m_table->setFont(small);
    m_table->horizontalHeader()->setFont(small);
    m_table->verticalHeader()->setDefaultSectionSize(QFontMetrics(small).height() + 4);
    m_table->setItemDelegateForColumn(0, new BoldLabelDelegate(m_table));
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &InspectorController::rowSelectionChanged);
    auto* copyAction = new QAction(tr("Copy"), m_table);
    copyAction->setShortcut(QKeySequence::Copy);
    copyAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(copyAction, &QAction::triggered, this, &InspectorController::copy);
    m_table->addAction(copyAction);

    m_valueView = new QTextBrowser(splitter);
    m_valueView->setAccessibleName(tr("Value of the chosen attribute"));
    m_valueView->setOpenLinks(false);
    m_valueView->setOpenExternalLinks(false);
    connect(m_valueView, &QTextBrowser::anchorClicked, this, [this](const QUrl& url) {
        QDesktopServices::openUrl(url);
    });
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 1);
    splitter->resize(420, 480);
    return splitter;
}

void InspectorController::showContent(document::Document* document)
{
    for (const QMetaObject::Connection& connection : m_documentConnections) {
        disconnect(connection);
    }
    m_documentConnections.clear();
    if (document) {
        query::ResultTableModel* results = document->metadataQueryController()->results();
        m_documentConnections << connect(results->selectionModel(), &QItemSelectionModel::selectionChanged, this,
                                         &InspectorController::reloadRows);
        m_documentConnections << connect(results, &query::ResultTableModel::arrangedObjectsChanged, this,
                                         &InspectorController::reloadRows);
        m_documentConnections << connect(results, &QAbstractItemModel::dataChanged, this,
                                         &InspectorController::reloadRows);
    }
    reloadRows();
}

void InspectorController::reloadRows()
{
    QVariantList rows;
    if (document::Document* document = content()) {
        const std::vector<query::ResultItem*> selected =
            document->metadataQueryController()->results()->selectedObjects();
        if (selected.size() == 1) {
            rows = selected.front()->values();
        }
    }
    if (rows == m_rows->rows()) {
        return;
    }
    m_rows->setRows(std::move(rows));
    rowSelectionChanged();
}

void InspectorController::rowSelectionChanged()
{
    if (!m_valueView) {
        return;
    }
    const QModelIndexList chosen = m_table->selectionModel()->selectedRows();
    if (chosen.size() == 1) {
        const presentation::AttributedString value =
            presentation::InspectorValueFormatter().attributedStringForObjectValue(m_rows->value(chosen.front().row()),
                                                                                   {});
        m_valueView->setHtml(value.toHtml());
    } else {
        m_valueView->clear();
    }
}

QString InspectorController::copyText() const
{
    if (!m_table) {
        return {};
    }
    QModelIndexList chosen = m_table->selectionModel()->selectedRows();
    std::sort(chosen.begin(), chosen.end(), [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    if (chosen.size() == 1) {
        return m_rows->value(chosen.front().row());
    }
    QStringList lines;
    for (const QModelIndex& index : chosen) {
        lines << QStringLiteral("%1\t%2").arg(m_rows->label(index.row()), m_rows->value(index.row()));
    }
    return lines.join(QLatin1Char('\n'));
}

void InspectorController::copy()
{
    QGuiApplication::clipboard()->setText(copyText());
}

}  // namespace trovara::widgets
