// A field that records a keyboard shortcut: focus it and press the keys.
//
// Backspace or Delete alone clears it; Tab and Shift+Tab move the focus on
// as everywhere else; Escape is left to the window. A combination needs
// Ctrl, Alt or Meta (function keys may stand alone), and must pass the
// validator: a refused combination keeps the old shortcut and the
// validator's message is shown. The shortcut is held in the stored form
// (app/key_combination.h).
#pragma once

#include "app/key_combination.h"

#include <QLineEdit>

#include <functional>

namespace trovara::widgets {

class ShortcutRecorder final : public QLineEdit {
    Q_OBJECT

public:
    // Answers why a combination cannot be used, or nothing.
    using Validator = std::function<QString(const app::KeyCombination& combination)>;
    // Shows a refusal (by default a warning message box on the window).
    using RefusalPresenter = std::function<void(const QString& message)>;

    explicit ShortcutRecorder(QWidget* parent = nullptr);

    const app::KeyCombination& combination() const { return m_combination; }
    // Shows the combination (an invalid one: none) without announcing it.
    void setCombination(const app::KeyCombination& combination);
    void setValidator(Validator validator) { m_validator = std::move(validator); }
    void setRefusalPresenter(RefusalPresenter presenter) { m_refusalPresenter = std::move(presenter); }

signals:
    // The user recorded or cleared the shortcut.
    void combinationChanged(const trovara::app::KeyCombination& combination);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void record(const app::KeyCombination& combination);
    void showCombination();

    app::KeyCombination m_combination;
    Validator m_validator;
    RefusalPresenter m_refusalPresenter;
};

}  // namespace trovara::widgets
