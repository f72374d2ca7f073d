// "More Columns…": every attribute the metadata schema knows, by display
// name, with a field that narrows the list as one types. Choosing one (or
// several) adds them as result columns.
#pragma once

#include <QDialog>
#include <QStringList>

class QLineEdit;
class QListWidget;

namespace trovara::widgets {

class AttributeListDialog final : public QDialog {
    Q_OBJECT

public:
    explicit AttributeListDialog(QWidget* parent = nullptr);

    // Keys not offered (the columns already shown).
    void setExcludedKeys(const QStringList& keys);
    QLineEdit* searchField() const { return m_search; }
    QListWidget* list() const { return m_list; }
    // The keys of the attributes offered now, in the order shown.
    QStringList offeredKeys() const;

signals:
    void attributesChosen(const QStringList& keys);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void fill();
    void applySearch(const QString& text);
    void choose();

    QLineEdit* m_search;
    QListWidget* m_list;
    QStringList m_excluded;
};

}  // namespace trovara::widgets
