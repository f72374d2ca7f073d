#include "index/query/item_view.h"

namespace trovara::index::query {

AttributeValue::AttributeValue(Scalar value)
{
    m_elements.push_back(std::move(value));
}

AttributeValue::AttributeValue(std::initializer_list<Scalar> list)
    : m_elements(list)
    , m_list(true)
{
}

AttributeValue AttributeValue::list(std::vector<Scalar> elements)
{
    AttributeValue value;
    value.m_elements = std::move(elements);
    value.m_list = true;
    return value;
}

MemoryItem::MemoryItem(std::initializer_list<std::pair<const std::string, AttributeValue>> attributes)
    : m_attributes(attributes)
{
}

MemoryItem& MemoryItem::set(std::string key, AttributeValue value)
{
    m_attributes.insert_or_assign(std::move(key), std::move(value));
    return *this;
}

MemoryItem& MemoryItem::remove(std::string_view key)
{
    if (const auto it = m_attributes.find(key); it != m_attributes.end()) {
        m_attributes.erase(it);
    }
    return *this;
}

MemoryItem& MemoryItem::setTextContent(std::optional<std::string> text)
{
    m_textContent = std::move(text);
    return *this;
}

const AttributeValue* MemoryItem::attribute(std::string_view key) const
{
    const auto it = m_attributes.find(key);
    return it == m_attributes.end() ? nullptr : &it->second;
}

std::optional<std::string_view> MemoryItem::textContent() const
{
    if (!m_textContent) {
        return std::nullopt;
    }
    return std::string_view(*m_textContent);
}

}  // namespace trovara::index::query
