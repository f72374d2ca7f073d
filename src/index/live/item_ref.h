// One item as a search found it: in the catalogue, or read from disk after
// the catalogue was built. An ItemRef keeps what it refers to alive, so it
// stays valid however the index changes meanwhile.
//
// Thread safety: immutable; share and copy freely.
#pragma once

#include "index/catalogue.h"
#include "index/item_attributes.h"
#include "index/query/evaluator.h"

#include <memory>
#include <optional>
#include <string>

namespace trovara::index {

class ItemRef {
public:
    ItemRef() = default;
    ItemRef(std::shared_ptr<const Catalogue> catalogue, ItemIndex item);
    explicit ItemRef(std::shared_ptr<const FileFacts> facts);

    bool isValid() const { return m_catalogue || m_file; }
    // The facts of an item read from disk; nullptr for a catalogue item.
    const std::shared_ptr<const FileFacts>& fileFacts() const { return m_file; }
    const std::string& path() const { return m_path; }

    // The value of an attribute (see item_attributes.h), or none.
    std::optional<query::AttributeValue> attribute(std::string_view key) const;
    // Every attribute the item has.
    std::map<std::string, query::AttributeValue> attributes() const;
    bool matches(const query::Evaluator& evaluator) const;

private:
    template <typename Visit>
    auto withFacts(Visit&& visit) const;

    std::shared_ptr<const Catalogue> m_catalogue;
    ItemIndex m_item = kNoItem;
    std::shared_ptr<const FileFacts> m_file;
    std::string m_path;
};

}  // namespace trovara::index
