#include "index/live/item_ref.h"

namespace trovara::index {

ItemRef::ItemRef(std::shared_ptr<const Catalogue> catalogue, ItemIndex item)
    : m_catalogue(std::move(catalogue))
    , m_item(item)
    , m_path(m_catalogue->path(item))
{
}

ItemRef::ItemRef(std::shared_ptr<const FileFacts> facts)
    : m_file(std::move(facts))
    , m_path(m_file->path())
{
}

template <typename Visit>
auto ItemRef::withFacts(Visit&& visit) const
{
    if (m_file) {
        return visit(static_cast<const ItemFacts&>(*m_file));
    }
    const CatalogueFacts facts(*m_catalogue, m_item);
    return visit(static_cast<const ItemFacts&>(facts));
}

std::optional<query::AttributeValue> ItemRef::attribute(std::string_view key) const
{
    if (!isValid()) {
        return std::nullopt;
    }
    return withFacts([&](const ItemFacts& facts) { return itemAttribute(key, facts); });
}

std::map<std::string, query::AttributeValue> ItemRef::attributes() const
{
    if (!isValid()) {
        return {};
    }
    return withFacts([](const ItemFacts& facts) { return allAttributes(facts); });
}

bool ItemRef::matches(const query::Evaluator& evaluator) const
{
    if (!isValid()) {
        return false;
    }
    return withFacts([&](const ItemFacts& facts) {
        const FactsItemView view(facts);
        return evaluator.matches(view);
    });
}

}  // namespace trovara::index
