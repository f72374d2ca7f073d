// The widgets of criteria values, each showing one headless value field:
//
//   text, number and count fields   a line edit; text that does not read
//                                   is kept and marked, with the reason as
//                                   its tool tip; Return starts the search
//   day                             a date edit with a calendar pop-up, in
//                                   the locale's short format
//   yes / no                        two radio buttons (arrow keys choose)
//
// A widget follows its field both ways and lives no longer than the line
// that shows it.
#pragma once

#include "editors/rule_value_field.h"

#include <QDateEdit>
#include <QLineEdit>
#include <QWidget>

class QRadioButton;

namespace trovara::widgets {

// The widget for the field, named for assistive technology.
QWidget* makeValueFieldWidget(editors::RuleValueField& field, const QString& accessibleName, QWidget* parent);

class RuleTextEdit final : public QLineEdit {
    Q_OBJECT

public:
    RuleTextEdit(editors::RuleValueField& field, QWidget* parent = nullptr);

private:
    void showField();

    editors::RuleValueField& m_field;
};

class RuleDateEdit final : public QDateEdit {
    Q_OBJECT

public:
    RuleDateEdit(editors::RuleDatePicker& picker, QWidget* parent = nullptr);

private:
    void showField();

    editors::RuleDatePicker& m_picker;
    bool m_showing = false;
};

class RuleBooleanChoice final : public QWidget {
    Q_OBJECT

public:
    RuleBooleanChoice(editors::RuleBooleanMatrix& matrix, const QString& accessibleName, QWidget* parent = nullptr);
    QRadioButton* button(int index) const { return m_buttons[index]; }

private:
    void showField();

    editors::RuleBooleanMatrix& m_matrix;
    QRadioButton* m_buttons[2];
};

}  // namespace trovara::widgets
