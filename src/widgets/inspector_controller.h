// The metadata inspector: every attribute of the selected result that the
// attribute catalogue names, as two columns (label, value) sorted by label,
// and below them the full value of the chosen row. Values that are links
// show blue and underlined and open with a click. Copy puts the chosen
// row's value on the clipboard, or, for several rows (or none), one
// "label<TAB>value" line per row.
//
// The rows are those of the single selected result of the panel's document
// (none while zero or several results are selected); they follow the
// selection and the result's changes.
#pragma once

#include "widgets/abstract_inspector_controller.h"

#include <QAbstractTableModel>
#include <QStyledItemDelegate>
#include <QVariantList>

#include <functional>

class QTableView;
class QTextBrowser;
class QUrl;

namespace trovara::widgets {

// The inspector's rows ("key", "label", "value"), label then value.
class InspectorRowsModel final : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Role { KeyRole = Qt::UserRole + 1 };
    using QAbstractTableModel::QAbstractTableModel;

    // Sorted by label, ascending.
    void setRows(QVariantList rows);
    const QVariantList& rows() const { return m_rows; }
    QString label(int row) const;
    QString value(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QVariantList m_rows;
};

// Draws a value with its link (blue, underlined) and opens the link on a
// left press within the drawn text when the text begins with it.
class InspectorValueDelegate final : public QStyledItemDelegate {
    Q_OBJECT

public:
    using LinkOpener = std::function<void(const QUrl&)>;
    explicit InspectorValueDelegate(QObject* parent = nullptr);
    void setLinkOpener(LinkOpener opener) { m_opener = std::move(opener); }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

private:
    LinkOpener m_opener;
};

class InspectorController final : public AbstractInspectorController {
    Q_OBJECT

public:
    explicit InspectorController(QObject* parent = nullptr);

    QString menuTitleWhenActive(bool active) const override;

    // Copies the chosen rows as described above.
    void copy();
    // The text copy() would put on the clipboard.
    QString copyText() const;

    InspectorRowsModel* rowsModel() const { return m_rows; }
    QTableView* inspectorTable() const { return m_table; }
    QTextBrowser* valueView() const { return m_valueView; }
    InspectorValueDelegate* valueDelegate() const { return m_valueDelegate; }

protected:
    QWidget* makeContents() override;
    void showContent(document::Document* document) override;

private:
    void reloadRows();
    void rowSelectionChanged();

    InspectorRowsModel* m_rows;
    InspectorValueDelegate* m_valueDelegate;
    QTableView* m_table = nullptr;
    QTextBrowser* m_valueView = nullptr;
    QList<QMetaObject::Connection> m_documentConnections;
};

}  // namespace trovara::widgets
