// A message across the top of a window that does not stop the person's
// work: the index being opened, a daemon that went away and came back, a
// result that no longer exists. It stays until the next message replaces it
// or the person dismisses it.
#pragma once

#include <QFrame>

class QLabel;
class QToolButton;

namespace trovara::widgets {

class MessageBar final : public QFrame {
    Q_OBJECT

public:
    enum class Kind { Information, Warning, Error };

    explicit MessageBar(QWidget* parent = nullptr);

    void showMessage(const QString& text, Kind kind = Kind::Information);
    void dismiss();
    QString text() const;
    Kind kind() const { return m_kind; }

private:
    QLabel* m_icon;
    QLabel* m_text;
    QToolButton* m_close;
    Kind m_kind = Kind::Information;
};

}  // namespace trovara::widgets
