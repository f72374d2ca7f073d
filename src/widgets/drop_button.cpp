#include "widgets/drop_button.h"

#include <QDragEnterEvent>
#include <QMimeData>

namespace trovara::widgets {

namespace {

bool carriesFiles(const QMimeData* data)
{
    if (!data || !data->hasUrls()) {
        return false;
    }
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile()) {
            return true;
        }
    }
    return false;
}

// Offers to copy a drag that carries files; false for any other.
bool offerCopy(QDragMoveEvent* event)
{
    if (!carriesFiles(event->mimeData())) {
        return false;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    return true;
}

}  // namespace

DropButton::DropButton(QWidget* parent) : DropButton(QString(), parent) {}

DropButton::DropButton(const QString& text, QWidget* parent) : QPushButton(text, parent)
{
    setAcceptDrops(true);
}

void DropButton::dragEnterEvent(QDragEnterEvent* event)
{
    if (!offerCopy(event)) {
        QPushButton::dragEnterEvent(event);
    }
}

void DropButton::dragMoveEvent(QDragMoveEvent* event)
{
    if (!offerCopy(event)) {
        QPushButton::dragMoveEvent(event);
    }
}

void DropButton::dropEvent(QDropEvent* event)
{
    if (carriesFiles(event->mimeData()) && m_delegate) {
        event->setDropAction(Qt::CopyAction);
        if (m_delegate->dropButtonAcceptDrop(this, event)) {
            event->accept();
        } else {
            event->ignore();
        }
        return;
    }
    QPushButton::dropEvent(event);
}

}  // namespace trovara::widgets
