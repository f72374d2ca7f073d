// The attribute selection sheets: every attribute of the index's schema,
// searchable, to pick one for a criteria line ("Select query attribute",
// opened by "Other...") or several as result columns ("Select column
// attributes", opened by "More Columns…").
//
// The list: every schema attribute (and kMDItemContentType) whose value is
// text, a number, a Boolean or a date and that has a display name, as
// entries of key, name and description, sorted by name; a sheet may leave
// some out (shouldConsider) and add its own (extendAttributes). Typing into
// the sheet's search field narrows the list to the entries whose name, key
// or description contain the text; the selection is kept by key.
//
// OK applies the selected keys (selectAttributeKeys) and ends the sheet;
// with nothing selected it ends as cancelled.
//
// Not thread-safe.
#pragma once

#include "editors/row_description.h"
#include "editors/sheet_controller.h"

#include <QStringList>

#include <vector>

namespace trovara::editors {

class PredicateEditorDelegate;

struct AttributeEntry {
    QString attributeKey;
    QString name;
    QString description;

    bool operator==(const AttributeEntry& other) const = default;
};

class AbstractAttributeSelectionController : public SheetController {
    Q_OBJECT

public:
    AbstractAttributeSelectionController(document::Document& document, QString promptString, QObject* parent = nullptr);

    const QString& promptString() const { return m_promptString; }
    virtual bool allowsMultipleSelection() const { return true; }

    // Every entry, sorted by name (empty until the sheet is set up).
    const std::vector<AttributeEntry>& attributes() const { return m_attributes; }
    // The entries the search text leaves.
    const std::vector<AttributeEntry>& arrangedAttributes() const { return m_arranged; }
    const QString& filterText() const { return m_filterText; }
    void setFilterText(const QString& text);

    QStringList selectedKeys() const { return m_selectedKeys; }
    void setSelectedKeys(const QStringList& keys);
    // The entry with the key becomes the only selection and is scrolled to.
    void selectAttributeKey(const QString& key);
    // The entry a view should scroll to (set when one is selected for the
    // user).
    const QString& scrollTargetKey() const { return m_scrollTarget; }

    void okSheet();
    void cancelSheet();

signals:
    void attributesChanged();
    void selectionChanged();

protected:
    // Applies the chosen keys, then ends the sheet with OK.
    virtual void selectAttributeKeys(const QStringList& keys) = 0;
    virtual void extendAttributes(std::vector<AttributeEntry>&) {}
    virtual bool shouldConsider(const QString&) const { return true; }

    void setUp() override;
    void cleanUp() override;

private:
    void arrange();

    QString m_promptString;
    std::vector<AttributeEntry> m_attributes;
    std::vector<AttributeEntry> m_arranged;
    QString m_filterText;
    QStringList m_selectedKeys;
    QString m_scrollTarget;
};

// "Select query attribute": for the criteria line it was opened on. Lists
// "Any text attribute" and never the path; opens on the line's attribute.
class QueryAttributeSelectionController final : public AbstractAttributeSelectionController {
    Q_OBJECT

public:
    QueryAttributeSelectionController(document::Document& document, PredicateEditorDelegate& delegate,
                                      QObject* parent = nullptr);

    bool allowsMultipleSelection() const override { return false; }
    const RowPtr& row() const { return m_row; }
    void setRow(RowPtr row) { m_row = std::move(row); }

protected:
    void selectAttributeKeys(const QStringList& keys) override;
    void extendAttributes(std::vector<AttributeEntry>& attributes) override;
    bool shouldConsider(const QString& key) const override;
    bool shouldBeginSheet() override;
    void cleanUp() override;

private:
    PredicateEditorDelegate& m_delegate;
    RowPtr m_row;
};

// "Select column attributes": adds a result column for each chosen
// attribute (one the table shows already stays as it is).
class ColumnAttributeSelectionController final : public AbstractAttributeSelectionController {
    Q_OBJECT

public:
    explicit ColumnAttributeSelectionController(document::Document& document, QObject* parent = nullptr);

protected:
    void selectAttributeKeys(const QStringList& keys) override;
    bool shouldBeginSheet() override;
};

}  // namespace trovara::editors
