// A push button that takes files dropped on it and hands them to its
// delegate (the exclusions editor uses one to accept dropped folders).
//
// While a drag that carries files is over it, the button offers to copy;
// dropped there, the delegate decides whether it takes them. Any other drag
// meets an ordinary button.
#pragma once

#include <QPushButton>

class QDropEvent;

namespace trovara::widgets {

class DropButton;

class DropButtonDelegate {
public:
    virtual ~DropButtonDelegate() = default;
    // True when the drop was taken.
    virtual bool dropButtonAcceptDrop(DropButton* button, QDropEvent* drop) = 0;
};

class DropButton final : public QPushButton {
    Q_OBJECT

public:
    explicit DropButton(QWidget* parent = nullptr);
    DropButton(const QString& text, QWidget* parent = nullptr);

    // Not owned.
    DropButtonDelegate* delegate() const { return m_delegate; }
    void setDelegate(DropButtonDelegate* delegate) { m_delegate = delegate; }

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    DropButtonDelegate* m_delegate = nullptr;
};

}  // namespace trovara::widgets
