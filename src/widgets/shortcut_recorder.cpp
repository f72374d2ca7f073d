#include "widgets/shortcut_recorder.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMessageBox>

namespace trovara::widgets {

namespace {

bool isFunctionKey(int key)
{
    return key >= Qt::Key_F1 && key <= Qt::Key_F20;
}

}  // namespace

ShortcutRecorder::ShortcutRecorder(QWidget* parent)
    : QLineEdit(parent)
{
    setReadOnly(true);
    setFocusPolicy(Qt::StrongFocus);
    setPlaceholderText(tr("None"));
    setToolTip(tr("Click here and press the keys of the shortcut. Backspace removes it."));
    m_refusalPresenter = [this](const QString& message) {
        QMessageBox::warning(window(), tr("Shortcut not available"), message);
    };
}

void ShortcutRecorder::setCombination(const app::KeyCombination& combination)
{
    m_combination = combination.isValid() ? combination : app::KeyCombination{};
    showCombination();
}

void ShortcutRecorder::showCombination()
{
    setText(app::keyCombinationText(m_combination));
}

void ShortcutRecorder::focusInEvent(QFocusEvent* event)
{
    QLineEdit::focusInEvent(event);
    setPlaceholderText(tr("Type a shortcut"));
}

void ShortcutRecorder::focusOutEvent(QFocusEvent* event)
{
    QLineEdit::focusOutEvent(event);
    setPlaceholderText(tr("None"));
}

void ShortcutRecorder::keyPressEvent(QKeyEvent* event)
{
    const int key = event->key();
    const Qt::KeyboardModifiers modifiers = event->modifiers();
    const Qt::KeyboardModifiers held = modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    if (key == Qt::Key_Escape && held == Qt::NoModifier) {
        event->ignore();  // the window's (closes a dialog)
        return;
    }
    if ((key == Qt::Key_Backspace || key == Qt::Key_Delete) && modifiers == Qt::NoModifier) {
        if (m_combination.isValid()) {
            record({});
        }
        event->accept();
        return;
    }
    const app::KeyCombination combination = app::combinationFromQt(key, modifiers);
    event->accept();
    if (!combination.isValid()) {
        return;  // a modifier alone, or a key that cannot be stored
    }
    if (held == Qt::NoModifier && !isFunctionKey(key)) {
        QApplication::beep();
        return;
    }
    if (m_validator) {
        const QString refusal = m_validator(combination);
        if (!refusal.isEmpty()) {
            if (m_refusalPresenter) {
                m_refusalPresenter(refusal);
            }
            return;
        }
    }
    record(combination);
}

void ShortcutRecorder::record(const app::KeyCombination& combination)
{
    m_combination = combination;
    showCombination();
    emit combinationChanged(m_combination);
}

}  // namespace trovara::widgets
