// The value fields of criteria lines, as models a widget shows: each edits
// one value of its row's ValueContainer, continuously.
//
//   name           class              value                      shows
//   "datepicker"   RuleDatePicker     queryDate                  a day (year, month, day)
//   "boolean"      RuleBooleanMatrix  queryBoolean               "Yes" / "No"
//   "numberfield"  RuleNumberField    queryNumber                "0.00" (two decimals)
//   "datefield"    RuleDateField      queryNumber (a count)      "0" (whole, 0 or more)
//   "stringfield"  RuleStringField    queryString                the text
//
// Text the user types is parsed as it is typed. Text that reads becomes the
// container's value; text that does not is kept as typed, the field says
// what is wrong (errorText), and the container keeps its last good value,
// so the query never sees broken text and nothing typed is lost. When the
// container changes from elsewhere (undo, a reload), the field shows the
// new value.
//
// Numbers and dates read and show in the user's locale (a full stop is
// always accepted as the decimal separator too); days are the user's local
// calendar days.
//
// Owned by the row description that made it. Not thread-safe.
#pragma once

#include "editors/value_container.h"

#include <QDate>
#include <QObject>
#include <QSize>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace trovara::editors {

class RuleValueField : public QObject {
    Q_OBJECT

public:
    enum class Kind { DatePicker, Boolean, NumberField, DateField, StringField };

    // The name a row description keeps the field under.
    static QString nameOf(Kind kind);
    // A field of the kind over the container (the platform's initWithValues:).
    static std::unique_ptr<RuleValueField> make(Kind kind, std::shared_ptr<ValueContainer> values);

    ~RuleValueField() override;

    Kind kind() const { return m_kind; }
    QString name() const { return nameOf(m_kind); }
    ValueContainer& values() const { return *m_values; }

    // The size the field is made with; fields with a flexible width grow
    // with the line (text fields also have a flexible left margin).
    QSize frameSize() const;
    bool hasFlexibleLeftMargin() const;

    // What the field shows: the typed text while it does not read, else the
    // value formatted.
    const QString& text() const { return m_text; }
    // The user typed: parses, and stores the value when it reads.
    void setText(const QString& text);
    // Empty while the text reads.
    const QString& errorText() const { return m_errorText; }
    bool isValid() const { return m_errorText.isEmpty(); }

    // Return in the field: starts the search (number, count and text
    // fields; the date picker and the Boolean choice have no action).
    void setAction(std::function<void()> action) { m_action = std::move(action); }
    bool hasAction() const { return static_cast<bool>(m_action); }
    void performAction();

signals:
    // The text, the error or the choice changed.
    void displayChanged();

protected:
    RuleValueField(Kind kind, std::shared_ptr<ValueContainer> values);

    // The container's value as text.
    virtual QString format() const = 0;
    // The text as a value (an invalid QVariant for none); nullopt with
    // `error` set when it does not read.
    virtual std::optional<QVariant> parse(const QString& text, QString* error) const = 0;
    virtual QVariant storedValue() const = 0;
    virtual void store(const QVariant& value) = 0;
    // Whether two values are the same for this field.
    virtual bool sameValue(const QVariant& a, const QVariant& b) const;

    void valuesDidChange();

private:
    Kind m_kind;
    std::shared_ptr<ValueContainer> m_values;
    QString m_text;
    QString m_errorText;
    bool m_storing = false;
    // The stored value the field last showed.
    bool m_seen = false;
    QVariant m_seenValue;
    std::function<void()> m_action;
};

class RuleStringField final : public RuleValueField {
    Q_OBJECT
public:
    explicit RuleStringField(std::shared_ptr<ValueContainer> values);

protected:
    QString format() const override;
    std::optional<QVariant> parse(const QString& text, QString* error) const override;
    QVariant storedValue() const override { return values().queryString(); }
    void store(const QVariant& value) override { values().setQueryString(value); }
};

// A number with two decimals ("0.00;0.00;-0.00").
class RuleNumberField final : public RuleValueField {
    Q_OBJECT
public:
    explicit RuleNumberField(std::shared_ptr<ValueContainer> values);

protected:
    QString format() const override;
    std::optional<QVariant> parse(const QString& text, QString* error) const override;
    QVariant storedValue() const override { return values().queryNumber(); }
    void store(const QVariant& value) override { values().setQueryNumber(value); }
    bool sameValue(const QVariant& a, const QVariant& b) const override;
};

// The count of "within last": a whole number, 0 or more ("0;0;-0").
class RuleDateField final : public RuleValueField {
    Q_OBJECT
public:
    explicit RuleDateField(std::shared_ptr<ValueContainer> values);

protected:
    QString format() const override;
    std::optional<QVariant> parse(const QString& text, QString* error) const override;
    QVariant storedValue() const override { return values().queryNumber(); }
    void store(const QVariant& value) override { values().setQueryNumber(value); }
    bool sameValue(const QVariant& a, const QVariant& b) const override;
};

// A day. Choosing a day keeps the time of day the date had (a date is
// stored as a moment), unless that time does not exist on the chosen day
// (a daylight-saving gap), when the day's first moment is taken: the day
// shown is always the day chosen. A container without a date is given the
// current date when the picker is made.
class RuleDatePicker final : public RuleValueField {
    Q_OBJECT
public:
    explicit RuleDatePicker(std::shared_ptr<ValueContainer> values);

    // The day shown, in local time (invalid without a date).
    QDate date() const;
    void setDate(const QDate& date);
    // The format days are shown and read in: the locale's short format
    // with a four-digit year.
    static QString displayFormat();
    // The moment stored for a day, given the moment stored before.
    static QDateTime momentForDay(const QDate& day, const QDateTime& previous);

protected:
    QString format() const override;
    std::optional<QVariant> parse(const QString& text, QString* error) const override;
    QVariant storedValue() const override { return values().queryDate(); }
    void store(const QVariant& value) override { values().setQueryDate(value); }
    bool sameValue(const QVariant& a, const QVariant& b) const override;
};

// Yes or no, as two radio choices.
class RuleBooleanMatrix final : public RuleValueField {
    Q_OBJECT
public:
    explicit RuleBooleanMatrix(std::shared_ptr<ValueContainer> values);

    // "Yes", "No".
    QStringList titles() const;
    // 0 yes, 1 no, -1 none.
    int selectedIndex() const;
    void setSelectedIndex(int index);

protected:
    QString format() const override;
    std::optional<QVariant> parse(const QString& text, QString* error) const override;
    QVariant storedValue() const override { return values().queryBoolean(); }
    void store(const QVariant& value) override { values().setQueryBoolean(value); }
};

}  // namespace trovara::editors
