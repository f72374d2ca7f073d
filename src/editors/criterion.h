// What a rule editor line is made of: criteria (one per pop-up or field,
// left to right) and what the editor shows for each (a text, or a value
// field the line hosts).
//
// A criterion is one of:
//  - a vocabulary value (a group's Boolean operator, a content type, a colour
//    label, a unit), a shared instance compared by identity;
//  - a stored object (a query or limit attribute, a scope), compared by
//    identity;
//  - an operator offered for one attribute (RelationalOperatorProxy);
//  - the value slot of a criteria line (ValueSlot);
//  - a menu entry that is not a value: a separator, or an action such as
//    "Other..." (MenuItem);
//  - a text (the "criterion not available" entry, a limit direction);
//  - a number (a limit value).
//
// Criteria are small values, copied freely. Not thread-safe (the stored
// objects they point at live on the main thread).
#pragma once

#include "model/relational_operator.h"
#include "model/value.h"
#include "store/managed_object.h"

#include <QString>

#include <functional>
#include <memory>
#include <variant>
#include <vector>

namespace trovara::editors {

class RuleValueField;

// The third element of a criteria line: which attribute and operator the
// value is for, and the units the value can take (none: no unit pop-up).
struct ValueSlot {
    QString attributeKey;
    const model::RelationalOperator* relationalOperator = nullptr;
    std::vector<const model::Unit*> units;

    bool operator==(const ValueSlot& other) const = default;
};

// A menu entry of a pop-up that is not a value. Choosing an action entry
// runs its action with the row it was chosen in (-1: a row not made yet);
// the line keeps its criteria.
struct MenuItem {
    enum class Kind { Separator, Action };

    Kind kind = Kind::Separator;
    QString title;
    bool enabled = true;
    std::function<void(int row)> action;

    static std::shared_ptr<const MenuItem> separator();
    static std::shared_ptr<const MenuItem> makeAction(QString title, std::function<void(int row)> action);
};
using MenuItemPtr = std::shared_ptr<const MenuItem>;

class Criterion {
public:
    Criterion() = default;
    Criterion(const model::Value* value) : m_value(value) {}  // NOLINT: a criterion is any of its kinds
    Criterion(store::ManagedObject* object) : m_value(object) {}  // NOLINT
    Criterion(model::RelationalOperatorProxy proxy) : m_value(std::move(proxy)) {}  // NOLINT
    Criterion(ValueSlot slot) : m_value(std::move(slot)) {}  // NOLINT
    Criterion(MenuItemPtr item) : m_value(std::move(item)) {}  // NOLINT
    Criterion(QString text) : m_value(std::move(text)) {}  // NOLINT
    static Criterion number(qint64 value) { return Criterion(Number{value}); }

    bool isEmpty() const { return std::holds_alternative<std::monostate>(m_value); }

    // The vocabulary value or stored object of class T, else nullptr.
    template <typename T>
    const T* value() const
        requires std::is_base_of_v<model::Value, T>
    {
        const auto* held = std::get_if<const model::Value*>(&m_value);
        return held ? dynamic_cast<const T*>(*held) : nullptr;
    }
    template <typename T>
    T* object() const
        requires std::is_base_of_v<store::ManagedObject, T>
    {
        const auto* held = std::get_if<store::ManagedObject*>(&m_value);
        return held ? dynamic_cast<T*>(*held) : nullptr;
    }
    store::ManagedObject* storedObject() const;
    const model::RelationalOperatorProxy* proxy() const { return std::get_if<model::RelationalOperatorProxy>(&m_value); }
    const ValueSlot* slot() const { return std::get_if<ValueSlot>(&m_value); }
    const MenuItem* menuItem() const;
    const QString* text() const { return std::get_if<QString>(&m_value); }
    const qint64* numberValue() const;

    // A separator or an action: never a line's criterion.
    bool isMenuItem() const { return menuItem() != nullptr; }

    // Values and objects by identity, the rest by value.
    bool operator==(const Criterion& other) const;

    // For logs and test failures.
    QString description() const;

private:
    struct Number {
        qint64 value;
        bool operator==(const Number&) const = default;
    };
    explicit Criterion(Number number) : m_value(number) {}

    std::variant<std::monostate, const model::Value*, store::ManagedObject*, model::RelationalOperatorProxy, ValueSlot,
                 MenuItemPtr, QString, Number>
        m_value;
};

// What the editor shows for one criterion: a value field, or a text (a
// menu entry shows its title).
struct DisplayValue {
    QString text;
    RuleValueField* field = nullptr;  // owned by the row description

    bool isField() const { return field != nullptr; }
    bool operator==(const DisplayValue& other) const = default;
};

}  // namespace trovara::editors
