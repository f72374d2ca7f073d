// Which of the three result views a document shows: 0 the table, 1 the grid
// of thumbnails, 2 the cover flow. All three show the same arranged
// results (ResultTableModel) with one selection.
#pragma once

#include <QObject>

namespace trovara::query {

class ResultTableModel;

class ResultController final : public QObject {
    Q_OBJECT
    Q_PROPERTY(int selectedTabIndex READ selectedTabIndex WRITE setSelectedTabIndex NOTIFY selectedTabIndexChanged)

public:
    enum View { TableView = 0, GridView = 1, CoverFlowView = 2 };

    explicit ResultController(ResultTableModel* arrayController, QObject* parent = nullptr);

    ResultTableModel* arrayController() const { return m_arrayController; }
    int selectedTabIndex() const { return m_selectedTabIndex; }
    // An index outside 0 to 2 is ignored.
    void setSelectedTabIndex(int index);

signals:
    void selectedTabIndexChanged(int index);

private:
    ResultTableModel* m_arrayController;
    int m_selectedTabIndex = TableView;
};

}  // namespace trovara::query
