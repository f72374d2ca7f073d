// The value a criteria line's value field edits, one container per simple
// row: six optional values (none is an invalid QVariant), as the row's
// query leaf holds them.
//
// Each setter stores the value and, while shouldUpdatePredicate is set,
// hands the container to its update function (the criteria delegate's,
// which writes the values into the row's leaf and rebuilds the query). The
// delegate switches it off while it loads the container from the tree.
//
// Owned by its row description (shared with the fields made from it). Not
// thread-safe.
#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

namespace trovara::editors {

class ValueContainer final : public QObject {
    Q_OBJECT

public:
    using UpdateFunction = std::function<void(ValueContainer&)>;

    ValueContainer() = default;

    const QVariant& queryBoolean() const { return m_queryBoolean; }
    const QVariant& queryDate() const { return m_queryDate; }
    const QVariant& queryNumber() const { return m_queryNumber; }
    // The operator's and unit's stored forms.
    const QVariant& queryOperator() const { return m_queryOperator; }
    const QVariant& queryString() const { return m_queryString; }
    const QVariant& queryUnit() const { return m_queryUnit; }

    void setQueryBoolean(const QVariant& value) { set(m_queryBoolean, value); }
    void setQueryDate(const QVariant& value) { set(m_queryDate, value); }
    void setQueryNumber(const QVariant& value) { set(m_queryNumber, value); }
    void setQueryOperator(const QVariant& value) { set(m_queryOperator, value); }
    void setQueryString(const QVariant& value) { set(m_queryString, value); }
    void setQueryUnit(const QVariant& value) { set(m_queryUnit, value); }

    // The attribute whose values the container holds now.
    const QString& attributeKey() const { return m_attributeKey; }
    void setAttributeKey(const QString& key) { m_attributeKey = key; }

    bool shouldUpdatePredicate() const { return m_shouldUpdatePredicate; }
    void setShouldUpdatePredicate(bool update) { m_shouldUpdatePredicate = update; }
    void setUpdateFunction(UpdateFunction update) { m_update = std::move(update); }

    // The same values, detached: no update function, updates off.
    void copyValuesFrom(const ValueContainer& other);

    // Its description followed by the set fields, for logs:
    // "<ValueContainer 0x…>, queryNumber:5, queryUnit:MB".
    QString description() const;

signals:
    // A value changed (from a field, or loaded from the tree).
    void valuesChanged();

private:
    void set(QVariant& field, const QVariant& value);

    QVariant m_queryBoolean;
    QVariant m_queryDate;
    QVariant m_queryNumber;
    QVariant m_queryOperator;
    QVariant m_queryString;
    QVariant m_queryUnit;
    QString m_attributeKey;
    bool m_shouldUpdatePredicate = false;
    UpdateFunction m_update;
};

}  // namespace trovara::editors
