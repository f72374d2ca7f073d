#include "widgets/rule_value_field_widgets.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QRadioButton>

namespace trovara::widgets {

using editors::RuleValueField;

QWidget* makeValueFieldWidget(RuleValueField& field, const QString& accessibleName, QWidget* parent)
{
    QWidget* widget = nullptr;
    switch (field.kind()) {
    case RuleValueField::Kind::DatePicker:
        widget = new RuleDateEdit(static_cast<editors::RuleDatePicker&>(field), parent);
        break;
    case RuleValueField::Kind::Boolean:
        widget = new RuleBooleanChoice(static_cast<editors::RuleBooleanMatrix&>(field), accessibleName, parent);
        break;
    default:
        widget = new RuleTextEdit(field, parent);
        break;
    }
    widget->setAccessibleName(accessibleName);
    // The field's size is where it starts; text fields grow with the line.
    const QSize frame = field.frameSize();
    if (field.hasFlexibleLeftMargin()) {
        widget->setMinimumWidth(std::max(frame.width(), 60));
        widget->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    } else {
        widget->setMinimumWidth(frame.width());
        widget->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    }
    return widget;
}

// --- Text, numbers and counts ---------------------------------------------------------

RuleTextEdit::RuleTextEdit(RuleValueField& field, QWidget* parent)
    : QLineEdit(parent)
    , m_field(field)
{
    setClearButtonEnabled(field.kind() == RuleValueField::Kind::StringField);
    if (field.kind() != RuleValueField::Kind::StringField) {
        setAlignment(Qt::AlignRight);
    }
    connect(this, &QLineEdit::textEdited, this, [this](const QString& text) { m_field.setText(text); });
    connect(this, &QLineEdit::returnPressed, this, [this] { m_field.performAction(); });
    connect(&m_field, &RuleValueField::displayChanged, this, &RuleTextEdit::showField);
    showField();
}

void RuleTextEdit::showField()
{
    if (text() != m_field.text()) {
        setText(m_field.text());
    }
    const bool valid = m_field.isValid();
    // The line says what is wrong: a marked frame, the reason as tool tip
    // and as the field's description.
    setStyleSheet(valid ? QString() : QStringLiteral("QLineEdit { border: 1px solid #d23c3c; }"));
    setToolTip(m_field.errorText());
    setAccessibleDescription(m_field.errorText());
}

// --- Days -------------------------------------------------------------------------------

RuleDateEdit::RuleDateEdit(editors::RuleDatePicker& picker, QWidget* parent)
    : QDateEdit(parent)
    , m_picker(picker)
{
    setCalendarPopup(true);
    setDisplayFormat(editors::RuleDatePicker::displayFormat());
    connect(this, &QDateEdit::dateChanged, this, [this](const QDate& date) {
        if (!m_showing) {
            m_picker.setDate(date);
        }
    });
    connect(&m_picker, &RuleValueField::displayChanged, this, &RuleDateEdit::showField);
    showField();
}

void RuleDateEdit::showField()
{
    m_showing = true;
    if (m_picker.date().isValid() && date() != m_picker.date()) {
        setDate(m_picker.date());
    }
    m_showing = false;
}

// --- Yes or no --------------------------------------------------------------------------

RuleBooleanChoice::RuleBooleanChoice(editors::RuleBooleanMatrix& matrix, const QString& accessibleName,
                                     QWidget* parent)
    : QWidget(parent)
    , m_matrix(matrix)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* group = new QButtonGroup(this);
    const QStringList titles = matrix.titles();
    for (int index = 0; index < 2; ++index) {
        m_buttons[index] = new QRadioButton(titles.value(index), this);
        m_buttons[index]->setAccessibleName(QStringLiteral("%1: %2").arg(accessibleName, titles.value(index)));
        group->addButton(m_buttons[index], index);
        layout->addWidget(m_buttons[index]);
    }
    layout->addStretch();
    setFocusProxy(m_buttons[0]);
    connect(group, &QButtonGroup::idToggled, this, [this](int id, bool checked) {
        if (checked && m_matrix.selectedIndex() != id) {
            m_matrix.setSelectedIndex(id);
        }
    });
    connect(&m_matrix, &RuleValueField::displayChanged, this, &RuleBooleanChoice::showField);
    showField();
}

void RuleBooleanChoice::showField()
{
    const int selected = m_matrix.selectedIndex();
    if (selected >= 0 && !m_buttons[selected]->isChecked()) {
        m_buttons[selected]->setChecked(true);
    }
}

}  // namespace trovara::widgets
