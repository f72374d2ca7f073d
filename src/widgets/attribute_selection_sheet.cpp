#include "widgets/attribute_selection_sheet.h"

#include "editors/attribute_selection_controller.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace trovara::widgets {

namespace {

constexpr int kKeyRole = Qt::UserRole + 1;

}  // namespace

AttributeSelectionSheet::AttributeSelectionSheet(editors::AbstractAttributeSelectionController& controller,
                                                 QWidget* parent)
    : QDialog(parent)
    , m_controller(controller)
    , m_search(new QLineEdit(this))
    , m_list(new QTreeWidget(this))
    , m_buttons(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this))
{
    setWindowTitle(controller.promptString());
    setWindowModality(Qt::WindowModal);
    setAttribute(Qt::WA_DeleteOnClose);
    resize(560, 420);

    auto* layout = new QVBoxLayout(this);
    auto* prompt = new QLabel(controller.promptString(), this);
    prompt->setBuddy(m_search);
    m_search->setPlaceholderText(tr("Search attributes"));
    m_search->setAccessibleName(tr("Search attributes"));
    m_search->setClearButtonEnabled(true);
    m_search->installEventFilter(this);
    m_list->setAccessibleName(tr("Attributes"));
    m_list->setHeaderLabels({tr("Name"), tr("Description")});
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setAlternatingRowColors(true);
    m_list->setSelectionMode(controller.allowsMultipleSelection() ? QAbstractItemView::ExtendedSelection
                                                                  : QAbstractItemView::SingleSelection);
    m_list->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    m_buttons->button(QDialogButtonBox::Ok)->setAccessibleName(tr("OK"));
    m_buttons->button(QDialogButtonBox::Cancel)->setAccessibleName(tr("Cancel"));
    layout->addWidget(prompt);
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_buttons);

    connect(m_search, &QLineEdit::textChanged, &m_controller,
            &editors::AbstractAttributeSelectionController::setFilterText);
    connect(&m_controller, &editors::AbstractAttributeSelectionController::attributesChanged, this,
            &AttributeSelectionSheet::showAttributes);
    connect(m_list, &QTreeWidget::itemSelectionChanged, this, &AttributeSelectionSheet::selectionDidChange);
    connect(m_list, &QTreeWidget::itemActivated, this, [this] { accept(); });
    connect(m_buttons, &QDialogButtonBox::accepted, this, &AttributeSelectionSheet::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &AttributeSelectionSheet::reject);
    // The sheet ends with its controller, however that ends.
    connect(&m_controller, &editors::SheetController::sheetEnded, this, [this] { QDialog::done(0); });
    showAttributes();
    m_search->setFocus();
}

void AttributeSelectionSheet::present(editors::SheetController& sheet, QWidget* window)
{
    auto* controller = qobject_cast<editors::AbstractAttributeSelectionController*>(&sheet);
    if (!controller) {
        return;
    }
    auto* dialog = new AttributeSelectionSheet(*controller, window);
    dialog->open();
}

void AttributeSelectionSheet::showAttributes()
{
    m_showing = true;
    m_list->clear();
    const QStringList selected = m_controller.selectedKeys();
    QTreeWidgetItem* scrollTo = nullptr;
    QList<QTreeWidgetItem*> items;
    for (const editors::AttributeEntry& entry : m_controller.arrangedAttributes()) {
        auto* item = new QTreeWidgetItem({entry.name, entry.description});
        item->setData(0, kKeyRole, entry.attributeKey);
        item->setToolTip(0, entry.attributeKey);
        items << item;
    }
    m_list->addTopLevelItems(items);
    for (QTreeWidgetItem* item : items) {
        const QString key = item->data(0, kKeyRole).toString();
        if (selected.contains(key)) {
            item->setSelected(true);
            if (key == m_controller.scrollTargetKey() || !scrollTo) {
                scrollTo = item;
            }
        }
    }
    if (scrollTo) {
        m_list->setCurrentItem(scrollTo, 0, QItemSelectionModel::NoUpdate);
        m_list->scrollToItem(scrollTo, QAbstractItemView::PositionAtCenter);
    }
    m_showing = false;
}

void AttributeSelectionSheet::selectionDidChange()
{
    if (m_showing) {
        return;
    }
    QStringList keys;
    for (QTreeWidgetItem* item : m_list->selectedItems()) {
        keys << item->data(0, kKeyRole).toString();
    }
    m_controller.setSelectedKeys(keys);
}

void AttributeSelectionSheet::accept()
{
    if (m_controller.isSheetOpen()) {
        m_controller.okSheet();
    }
    QDialog::accept();
}

void AttributeSelectionSheet::reject()
{
    if (m_controller.isSheetOpen()) {
        m_controller.cancelSheet();
    }
    QDialog::reject();
}

bool AttributeSelectionSheet::eventFilter(QObject* watched, QEvent* event)
{
    // Down in the search field goes on into the list.
    if (watched == m_search && event->type() == QEvent::KeyPress
        && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Down && m_list->topLevelItemCount() > 0) {
        m_list->setFocus();
        // The line the list shows as current is the one chosen, even when
        // the choice made before was narrowed away.
        QTreeWidgetItem* current = m_list->currentItem() ? m_list->currentItem() : m_list->topLevelItem(0);
        if (!current->isSelected()) {
            m_list->setCurrentItem(current);
        }
        return true;
    }
    return QDialog::eventFilter(watched, event);
}

}  // namespace trovara::widgets
