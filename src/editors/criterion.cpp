#include "editors/criterion.h"

namespace trovara::editors {

MenuItemPtr MenuItem::separator()
{
    static const MenuItemPtr shared = std::make_shared<const MenuItem>();
    return shared;
}

MenuItemPtr MenuItem::makeAction(QString title, std::function<void(int row)> action)
{
    auto item = std::make_shared<MenuItem>();
    item->kind = Kind::Action;
    item->title = std::move(title);
    item->action = std::move(action);
    return item;
}

store::ManagedObject* Criterion::storedObject() const
{
    const auto* held = std::get_if<store::ManagedObject*>(&m_value);
    return held ? *held : nullptr;
}

const MenuItem* Criterion::menuItem() const
{
    const auto* held = std::get_if<MenuItemPtr>(&m_value);
    return held ? held->get() : nullptr;
}

const qint64* Criterion::numberValue() const
{
    const auto* held = std::get_if<Number>(&m_value);
    return held ? &held->value : nullptr;
}

bool Criterion::operator==(const Criterion& other) const
{
    if (const MenuItem* item = menuItem()) {
        // Menu entries are equal when they read the same: a list of
        // children is made afresh every time it is asked for.
        const MenuItem* otherItem = other.menuItem();
        return otherItem && otherItem->kind == item->kind && otherItem->title == item->title;
    }
    return m_value == other.m_value;
}

QString Criterion::description() const
{
    if (isEmpty()) {
        return QStringLiteral("(empty)");
    }
    if (const auto* value = std::get_if<const model::Value*>(&m_value)) {
        return QStringLiteral("value %1").arg((*value)->representation().toString());
    }
    if (store::ManagedObject* object = storedObject()) {
        return object->description();
    }
    if (const model::RelationalOperatorProxy* p = proxy()) {
        return QStringLiteral("operator %1 for %2").arg(p->relationalOperator()->name(), p->attributeKey());
    }
    if (const ValueSlot* s = slot()) {
        return QStringLiteral("value of %1 %2 (%3 units)")
            .arg(s->attributeKey, s->relationalOperator ? s->relationalOperator->name() : QStringLiteral("-"))
            .arg(s->units.size());
    }
    if (const MenuItem* item = menuItem()) {
        return item->kind == MenuItem::Kind::Separator ? QStringLiteral("separator")
                                                        : QStringLiteral("menu item %1").arg(item->title);
    }
    if (const QString* t = text()) {
        return QStringLiteral("text %1").arg(*t);
    }
    return QStringLiteral("number %1").arg(*numberValue());
}

}  // namespace trovara::editors
