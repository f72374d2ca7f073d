#include "editors/rule_value_field.h"

#include "model/localization.h"
#include "model/value.h"
#include "model/value_text.h"
#include "model/value_transformer.h"

#include <QLocale>
#include <QTimeZone>

#include <cmath>

namespace trovara::editors {

namespace {

// A number as the user's locale writes it, or as C writes it.
std::optional<double> readNumber(const QString& text)
{
    bool ok = false;
    const double value = QLocale().toDouble(text, &ok);
    if (ok) {
        return value;
    }
    const double c = QLocale::c().toDouble(text, &ok);
    return ok ? std::optional<double>(c) : std::nullopt;
}

bool sameNumber(const QVariant& a, const QVariant& b)
{
    if (a.isValid() != b.isValid()) {
        return false;
    }
    return !a.isValid() || model::doubleValueOf(a) == model::doubleValueOf(b);
}

}  // namespace

// --- The common part ------------------------------------------------------------

QString RuleValueField::nameOf(Kind kind)
{
    switch (kind) {
    case Kind::DatePicker:
        return QStringLiteral("datepicker");
    case Kind::Boolean:
        return QStringLiteral("boolean");
    case Kind::NumberField:
        return QStringLiteral("numberfield");
    case Kind::DateField:
        return QStringLiteral("datefield");
    case Kind::StringField:
        break;
    }
    return QStringLiteral("stringfield");
}

std::unique_ptr<RuleValueField> RuleValueField::make(Kind kind, std::shared_ptr<ValueContainer> values)
{
    std::unique_ptr<RuleValueField> field;
    switch (kind) {
    case Kind::DatePicker:
        field = std::make_unique<RuleDatePicker>(std::move(values));
        break;
    case Kind::Boolean:
        field = std::make_unique<RuleBooleanMatrix>(std::move(values));
        break;
    case Kind::NumberField:
        field = std::make_unique<RuleNumberField>(std::move(values));
        break;
    case Kind::DateField:
        field = std::make_unique<RuleDateField>(std::move(values));
        break;
    case Kind::StringField:
        field = std::make_unique<RuleStringField>(std::move(values));
        break;
    }
    field->valuesDidChange();
    return field;
}

RuleValueField::RuleValueField(Kind kind, std::shared_ptr<ValueContainer> values)
    : m_kind(kind)
    , m_values(std::move(values))
{
    connect(m_values.get(), &ValueContainer::valuesChanged, this, &RuleValueField::valuesDidChange);
}

RuleValueField::~RuleValueField() = default;

QSize RuleValueField::frameSize() const
{
    switch (m_kind) {
    case Kind::DatePicker:
    case Kind::Boolean:
        return {120, 22};
    case Kind::NumberField:
        // Made 90 wide, then narrowed on purpose: it grows with the line.
        return {30, 20};
    case Kind::DateField:
        return {40, 20};
    case Kind::StringField:
        break;
    }
    return {300, 20};
}

bool RuleValueField::hasFlexibleLeftMargin() const
{
    return m_kind == Kind::NumberField || m_kind == Kind::DateField || m_kind == Kind::StringField;
}

void RuleValueField::setText(const QString& text)
{
    QString error;
    const std::optional<QVariant> value = parse(text, &error);
    m_text = text;
    m_errorText = value ? QString() : error;
    if (value && !sameValue(*value, storedValue())) {
        m_storing = true;
        store(*value);
        m_storing = false;
        m_seenValue = storedValue();
    }
    emit displayChanged();
}

bool RuleValueField::sameValue(const QVariant& a, const QVariant& b) const
{
    return a.isValid() == b.isValid() && (!a.isValid() || a == b);
}

void RuleValueField::valuesDidChange()
{
    if (m_storing) {
        return;
    }
    // Another value of the container changed: what the user typed here
    // (readable or not) stays.
    const QVariant stored = storedValue();
    if (m_seen && sameValue(stored, m_seenValue)) {
        return;
    }
    m_seen = true;
    m_seenValue = stored;
    // Text that reads as the stored value stays as typed ("1,5" is not
    // rewritten as "1.50" while the user types).
    QString ignored;
    const std::optional<QVariant> shown = parse(m_text, &ignored);
    if (shown && sameValue(*shown, stored) && !m_text.isEmpty()) {
        return;
    }
    m_text = format();
    m_errorText.clear();
    emit displayChanged();
}

void RuleValueField::performAction()
{
    if (m_action) {
        m_action();
    }
}

// --- Text ------------------------------------------------------------------------

RuleStringField::RuleStringField(std::shared_ptr<ValueContainer> values)
    : RuleValueField(Kind::StringField, std::move(values))
{
}

QString RuleStringField::format() const
{
    return values().queryString().toString();
}

std::optional<QVariant> RuleStringField::parse(const QString& text, QString*) const
{
    return QVariant(text);
}

// --- Numbers ---------------------------------------------------------------------

RuleNumberField::RuleNumberField(std::shared_ptr<ValueContainer> values)
    : RuleValueField(Kind::NumberField, std::move(values))
{
}

QString RuleNumberField::format() const
{
    const QVariant number = values().queryNumber();
    if (!number.isValid()) {
        return {};
    }
    const double value = model::doubleValueOf(number);
    // "-0.00" only for numbers below zero that still show as zero.
    return QLocale().toString(value == 0 ? 0.0 : value, 'f', 2);
}

std::optional<QVariant> RuleNumberField::parse(const QString& text, QString* error) const
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return QVariant();
    }
    const std::optional<double> value = readNumber(trimmed);
    if (!value || !std::isfinite(*value)) {
        *error = model::localized(QStringLiteral("Type a number, such as %1."))
                     .arg(QLocale().toString(12.5, 'f', 2));
        return std::nullopt;
    }
    return QVariant(*value);
}

bool RuleNumberField::sameValue(const QVariant& a, const QVariant& b) const
{
    return sameNumber(a, b);
}

RuleDateField::RuleDateField(std::shared_ptr<ValueContainer> values)
    : RuleValueField(Kind::DateField, std::move(values))
{
}

QString RuleDateField::format() const
{
    const QVariant number = values().queryNumber();
    return number.isValid() ? QLocale().toString(static_cast<qlonglong>(std::llround(model::doubleValueOf(number))))
                            : QString();
}

std::optional<QVariant> RuleDateField::parse(const QString& text, QString* error) const
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return QVariant();
    }
    const std::optional<double> value = readNumber(trimmed);
    if (!value || *value != std::floor(*value) || *value < 0 || *value > 1e9) {
        *error = model::localized(QStringLiteral("Type a whole number of 0 or more."));
        return std::nullopt;
    }
    return QVariant(static_cast<qlonglong>(*value));
}

bool RuleDateField::sameValue(const QVariant& a, const QVariant& b) const
{
    return sameNumber(a, b);
}

// --- Days ------------------------------------------------------------------------

RuleDatePicker::RuleDatePicker(std::shared_ptr<ValueContainer> values)
    : RuleValueField(Kind::DatePicker, std::move(values))
{
    if (!this->values().queryDate().isValid()) {
        this->values().setQueryDate(QDateTime::currentDateTimeUtc());
    }
}

QString RuleDatePicker::displayFormat()
{
    QString format = QLocale().dateFormat(QLocale::ShortFormat);
    if (!format.contains(QLatin1String("yyyy"))) {
        format.replace(QLatin1String("yy"), QLatin1String("yyyy"));
    }
    return format;
}

QDateTime RuleDatePicker::momentForDay(const QDate& day, const QDateTime& previous)
{
    if (previous.isValid()) {
        const QDateTime kept(day, previous.toLocalTime().time(), Qt::LocalTime);
        if (kept.isValid() && kept.date() == day) {
            return kept.toUTC();
        }
    }
    return day.startOfDay(Qt::LocalTime).toUTC();
}

QDate RuleDatePicker::date() const
{
    const QDateTime stored = values().queryDate().toDateTime();
    return stored.isValid() ? stored.toLocalTime().date() : QDate();
}

void RuleDatePicker::setDate(const QDate& day)
{
    setText(QLocale().toString(day, displayFormat()));
}

QString RuleDatePicker::format() const
{
    const QDate day = date();
    return day.isValid() ? QLocale().toString(day, displayFormat()) : QString();
}

std::optional<QVariant> RuleDatePicker::parse(const QString& text, QString* error) const
{
    const QString trimmed = text.trimmed();
    QDate day = QLocale().toDate(trimmed, displayFormat());
    if (!day.isValid()) {
        day = QDate::fromString(trimmed, Qt::ISODate);
    }
    if (!day.isValid()) {
        *error = model::localized(QStringLiteral("Type a date, such as %1."))
                     .arg(QLocale().toString(QDate(2009, 6, 15), displayFormat()));
        return std::nullopt;
    }
    return QVariant(momentForDay(day, values().queryDate().toDateTime()));
}

bool RuleDatePicker::sameValue(const QVariant& a, const QVariant& b) const
{
    if (a.isValid() != b.isValid()) {
        return false;
    }
    return !a.isValid() || a.toDateTime().toLocalTime().date() == b.toDateTime().toLocalTime().date();
}

// --- Yes or no -------------------------------------------------------------------

RuleBooleanMatrix::RuleBooleanMatrix(std::shared_ptr<ValueContainer> values)
    : RuleValueField(Kind::Boolean, std::move(values))
{
}

QStringList RuleBooleanMatrix::titles() const
{
    QStringList titles;
    for (const model::BooleanValue* value : model::BooleanValue::booleanValues()) {
        titles << value->label();
    }
    return titles;
}

int RuleBooleanMatrix::selectedIndex() const
{
    const model::BooleanValue* selected = model::BooleanValueTransformer::sharedInstance()->lookup(storedValue());
    const std::vector<const model::BooleanValue*>& all = model::BooleanValue::booleanValues();
    const auto found = std::find(all.begin(), all.end(), selected);
    return found == all.end() ? -1 : static_cast<int>(found - all.begin());
}

void RuleBooleanMatrix::setSelectedIndex(int index)
{
    const std::vector<const model::BooleanValue*>& all = model::BooleanValue::booleanValues();
    if (index >= 0 && index < static_cast<int>(all.size())) {
        setText(all[static_cast<std::size_t>(index)]->label());
    }
}

QString RuleBooleanMatrix::format() const
{
    const int index = selectedIndex();
    return index < 0 ? QString() : titles().at(index);
}

std::optional<QVariant> RuleBooleanMatrix::parse(const QString& text, QString* error) const
{
    for (const model::BooleanValue* value : model::BooleanValue::booleanValues()) {
        if (text.compare(value->label(), Qt::CaseInsensitive) == 0) {
            return value->representation();
        }
    }
    if (text.isEmpty()) {
        return QVariant();
    }
    *error = model::localized(QStringLiteral("Choose Yes or No."));
    return std::nullopt;
}

}  // namespace trovara::editors
