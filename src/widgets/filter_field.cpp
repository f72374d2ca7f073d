#include "widgets/filter_field.h"

#include "model/localization.h"
#include "query/metadata_query_controller.h"
#include "query/result_filter.h"
#include "widgets/file_icons.h"

#include <QActionGroup>
#include <QKeyEvent>
#include <QMenu>
#include <QStyle>

namespace trovara::widgets {

FilterField::FilterField(QWidget* parent)
    : QLineEdit(parent)
    , m_menu(new QMenu(model::localized(QString::fromLatin1(query::kFilterMenuTitle)), this))
{
    setAccessibleName(tr("Filter results"));
    setClearButtonEnabled(true);
    auto* group = new QActionGroup(this);
    for (const query::FilterKind& kind : query::filterKinds()) {
        QAction* action = m_menu->addAction(model::localized(QString::fromLatin1(kind.title)));
        action->setCheckable(true);
        action->setData(kind.tag);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, tag = kind.tag] {
            if (m_controller) {
                m_controller->setFilterTypeFrom(tag);
            }
        });
    }
    m_menuAction = addAction(themeIcon(QStringLiteral("edit-find"), style()->standardIcon(QStyle::SP_FileDialogContentsView)),
                             QLineEdit::LeadingPosition);
    m_menuAction->setText(tr("Filter kind"));
    m_menuAction->setToolTip(tr("Choose what the filter looks at"));
    connect(m_menuAction, &QAction::triggered, this, &FilterField::popUpFilterMenu);
    connect(this, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (m_controller && m_controller->filterString() != text) {
            m_controller->setFilterString(text);
        }
    });
}

void FilterField::setController(query::MetadataQueryController* controller)
{
    for (const QMetaObject::Connection& connection : m_connections) {
        disconnect(connection);
    }
    m_connections.clear();
    m_controller = controller;
    if (controller) {
        m_connections << connect(controller, &query::MetadataQueryController::filterMenuChanged, this,
                                 &FilterField::refreshFromController);
        m_connections << connect(controller, &query::MetadataQueryController::filterStringChanged, this,
                                 &FilterField::refreshFromController);
    }
    refreshFromController();
}

void FilterField::refreshFromController()
{
    if (!m_controller) {
        return;
    }
    if (text() != m_controller->filterString()) {
        const QSignalBlocker blocker(this);
        setText(m_controller->filterString());
    }
    setPlaceholderText(m_controller->filterPlaceholder());
    for (QAction* action : m_menu->actions()) {
        action->setChecked(action->data().toInt() == m_controller->checkedFilterTag());
    }
}

void FilterField::popUpFilterMenu()
{
    m_menu->popup(mapToGlobal(QPoint(0, height())));
}

void FilterField::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Down && (event->modifiers() & Qt::AltModifier)) {
        popUpFilterMenu();
        return;
    }
    QLineEdit::keyPressEvent(event);
}

}  // namespace trovara::widgets
