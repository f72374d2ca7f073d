#include "widgets/template_saver_sheet.h"

#include "document/document.h"
#include "document/template_item.h"
#include "model/localization.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

namespace trovara::widgets {

TemplateSaverSheet::TemplateSaverSheet(document::Document& document, QWidget* window)
    : QDialog(window)
    , m_document(document)
    , m_name(new QComboBox(this))
    , m_buttons(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this))
{
    setWindowTitle(tr("Save as Template"));
    setWindowModality(Qt::WindowModal);
    m_name->setEditable(true);
    m_name->setInsertPolicy(QComboBox::NoInsert);
    m_name->setAccessibleName(tr("Template name"));
    document::Templates::refresh();
    for (const document::TemplateItem* item : document::Templates::templates()) {
        m_name->addItem(item->displayName());
    }
    m_name->setCurrentText(document.displayName());
    m_name->lineEdit()->selectAll();
    m_buttons->button(QDialogButtonBox::Ok)->setAccessibleName(tr("Save the template"));
    // Enter in the name field saves, as OK.
    m_buttons->button(QDialogButtonBox::Ok)->setDefault(true);
    m_buttons->button(QDialogButtonBox::Cancel)->setAccessibleName(tr("Cancel"));
    auto* form = new QFormLayout(this);
    form->addRow(tr("Save this search as the template:"), m_name);
    form->addRow(m_buttons);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &TemplateSaverSheet::okSheet);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &TemplateSaverSheet::cancelSheet);
    connect(m_name, &QComboBox::currentTextChanged, this, [this](const QString& text) {
        m_buttons->button(QDialogButtonBox::Ok)->setEnabled(!text.trimmed().isEmpty());
    });
}

bool TemplateSaverSheet::askToReplace(QWidget* sheet, const QString&)
{
    QMessageBox box(QMessageBox::Warning, model::localized(QString::fromLatin1(document::TemplateSaver::kAlertTitle)),
                    model::localized(QString::fromLatin1(document::TemplateSaver::kAlertMessage)), QMessageBox::NoButton,
                    sheet);
    box.setWindowModality(Qt::WindowModal);
    QPushButton* replace =
        box.addButton(model::localized(QString::fromLatin1(document::TemplateSaver::kReplaceButton)),
                      QMessageBox::DestructiveRole);
    QPushButton* cancel = box.addButton(model::localized(QString::fromLatin1(document::TemplateSaver::kCancelButton)),
                                        QMessageBox::RejectRole);
    box.setDefaultButton(cancel);
    box.exec();
    return box.clickedButton() == replace;
}

void TemplateSaverSheet::okSheet()
{
    const QString name = m_name->currentText().trimmed();
    if (name.isEmpty()) {
        return;
    }
    document::TemplateSaver saver(m_document, [this](const QString& path) { return m_prompt(this, path); });
    switch (saver.okSheet(name)) {
    case document::TemplateSaver::Outcome::Saved:
        m_savedPath = saver.lastSavedPath();
        document::Templates::refresh();
        accept();
        break;
    case document::TemplateSaver::Outcome::Cancelled:
        break;
    case document::TemplateSaver::Outcome::Failed:
        reject();
        break;
    }
}

// Each time it opens, the sheet starts at the name, selected for typing over.
void TemplateSaverSheet::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    m_name->setFocus(Qt::OtherFocusReason);
    m_name->lineEdit()->selectAll();
}

void TemplateSaverSheet::cancelSheet()
{
    reject();
}

}  // namespace trovara::widgets
