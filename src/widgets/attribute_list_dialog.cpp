#include "widgets/attribute_list_dialog.h"

#include "model/metadata_schema.h"

#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

namespace trovara::widgets {

AttributeListDialog::AttributeListDialog(QWidget* parent)
    : QDialog(parent)
    , m_search(new QLineEdit(this))
    , m_list(new QListWidget(this))
{
    setWindowTitle(tr("More Columns"));
    setWindowModality(Qt::WindowModal);
    m_search->setPlaceholderText(tr("Search attributes"));
    m_search->setAccessibleName(tr("Search attributes"));
    m_search->setClearButtonEnabled(true);
    m_list->setAccessibleName(tr("Attributes"));
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    QPushButton* add = buttons->addButton(tr("Add Columns"), QDialogButtonBox::AcceptRole);
    add->setAccessibleName(tr("Add the chosen attributes as columns"));
    buttons->button(QDialogButtonBox::Cancel)->setAccessibleName(tr("Cancel"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);
    layout->addWidget(buttons);
    connect(m_search, &QLineEdit::textChanged, this, &AttributeListDialog::applySearch);
    connect(buttons, &QDialogButtonBox::accepted, this, &AttributeListDialog::choose);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_list, &QListWidget::itemActivated, this, &AttributeListDialog::choose);
    // Down from the search field goes into the list.
    m_search->installEventFilter(this);
    resize(380, 460);
    fill();
}

void AttributeListDialog::setExcludedKeys(const QStringList& keys)
{
    m_excluded = keys;
    fill();
}

void AttributeListDialog::fill()
{
    m_list->clear();
    const model::MetadataSchema& schema = model::MetadataSchema::current();
    std::vector<std::pair<QString, QString>> attributes;  // display name, key
    for (const QString& key : schema.allAttributes()) {
        const QString name = schema.displayName(key);
        if (!name.isEmpty() && !m_excluded.contains(key)) {
            attributes.emplace_back(name, key);
        }
    }
    std::sort(attributes.begin(), attributes.end(), [](const auto& a, const auto& b) {
        return QString::localeAwareCompare(a.first, b.first) < 0;
    });
    for (const auto& [name, key] : attributes) {
        auto* item = new QListWidgetItem(name, m_list);
        item->setData(Qt::UserRole, key);
        item->setToolTip(key);
    }
    applySearch(m_search->text());
}

void AttributeListDialog::applySearch(const QString& text)
{
    bool first = true;
    for (int row = 0; row < m_list->count(); ++row) {
        QListWidgetItem* item = m_list->item(row);
        const bool match = text.isEmpty() || item->text().contains(text, Qt::CaseInsensitive)
                           || item->data(Qt::UserRole).toString().contains(text, Qt::CaseInsensitive);
        item->setHidden(!match);
        if (match && first) {
            m_list->setCurrentItem(item);
            first = false;
        }
    }
}

bool AttributeListDialog::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_search && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Down) {
            m_list->setFocus(Qt::TabFocusReason);
            return true;
        }
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            choose();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

QStringList AttributeListDialog::offeredKeys() const
{
    QStringList keys;
    for (int row = 0; row < m_list->count(); ++row) {
        if (!m_list->item(row)->isHidden()) {
            keys << m_list->item(row)->data(Qt::UserRole).toString();
        }
    }
    return keys;
}

void AttributeListDialog::choose()
{
    QStringList keys;
    for (QListWidgetItem* item : m_list->selectedItems()) {
        if (!item->isHidden()) {
            keys << item->data(Qt::UserRole).toString();
        }
    }
    if (keys.isEmpty() && m_list->currentItem() && !m_list->currentItem()->isHidden()) {
        keys << m_list->currentItem()->data(Qt::UserRole).toString();
    }
    if (keys.isEmpty()) {
        return;
    }
    emit attributesChosen(keys);
    accept();
}

}  // namespace trovara::widgets
