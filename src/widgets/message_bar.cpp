#include "widgets/message_bar.h"

#include "widgets/file_icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>
#include <QToolButton>

namespace trovara::widgets {

MessageBar::MessageBar(QWidget* parent)
    : QFrame(parent)
    , m_icon(new QLabel(this))
    , m_text(new QLabel(this))
    , m_close(new QToolButton(this))
{
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setAccessibleName(tr("Message"));
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_close->setAutoRaise(true);
    m_close->setIcon(themeIcon(QStringLiteral("window-close"), style()->standardIcon(QStyle::SP_TitleBarCloseButton)));
    m_close->setAccessibleName(tr("Dismiss message"));
    m_close->setToolTip(tr("Dismiss"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 3, 3, 3);
    layout->addWidget(m_icon);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_close);
    connect(m_close, &QToolButton::clicked, this, &MessageBar::dismiss);
    hide();
}

void MessageBar::showMessage(const QString& text, Kind kind)
{
    m_kind = kind;
    m_text->setText(text);
    QStyle::StandardPixmap pixmap = QStyle::SP_MessageBoxInformation;
    QString name = QStringLiteral("dialog-information");
    QPalette::ColorRole role = QPalette::AlternateBase;
    if (kind == Kind::Warning) {
        pixmap = QStyle::SP_MessageBoxWarning;
        name = QStringLiteral("dialog-warning");
    } else if (kind == Kind::Error) {
        pixmap = QStyle::SP_MessageBoxCritical;
        name = QStringLiteral("dialog-error");
    }
    const int side = fontMetrics().height();
    m_icon->setPixmap(themeIcon(name, style()->standardIcon(pixmap)).pixmap(side, side));
    setBackgroundRole(role);
    setAccessibleDescription(text);
    show();
}

void MessageBar::dismiss()
{
    hide();
    m_text->clear();
}

QString MessageBar::text() const
{
    return m_text->text();
}

}  // namespace trovara::widgets
