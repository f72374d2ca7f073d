// The filter field of a document window: a search field whose text narrows
// the results shown, with a menu of the four kinds of filter ("Filter by
// Name", "Exclude by Name", "Filter by Path", "Exclude by Path") behind its
// magnifier. The checked kind's title is the placeholder. The field and the
// controller's filter follow each other both ways.
#pragma once

#include <QLineEdit>
#include <QPointer>

class QMenu;

namespace trovara::query {
class MetadataQueryController;
}

namespace trovara::widgets {

class FilterField final : public QLineEdit {
    Q_OBJECT

public:
    explicit FilterField(QWidget* parent = nullptr);

    void setController(query::MetadataQueryController* controller);
    // The menu of filter kinds (titled "Filter Menu"), each item's data its tag.
    QMenu* filterMenu() const { return m_menu; }
    // Opens the menu under the field (also Alt+Down).
    void popUpFilterMenu();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void refreshFromController();

    QPointer<query::MetadataQueryController> m_controller;
    QMenu* m_menu;
    QAction* m_menuAction;
    QList<QMetaObject::Connection> m_connections;
};

}  // namespace trovara::widgets
