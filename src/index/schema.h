// The attribute schema of Trovara's metadata index.
//
// Every attribute the index can hold is named by a key ("kMDItemFSSize") and
// has a value type, a multi-value flag, a display name and a one-line
// description. The index owns this table; every other layer (the query model,
// the formatters, the attribute selection sheets) reads it from here.
//
// Thread safety: a Schema is immutable after construction; the built-in
// instance may be read from any thread.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace trovara::index {

enum class ValueType {
    String,
    Number,
    Boolean,
    Date,
};

// Where an attribute's values come from; the crawler fills the first kind
// for every item, importers the rest.
enum class AttributeSource {
    FileSystem,
    Document,
    Image,
    Media,
};

struct AttributeInfo {
    std::string key;
    ValueType type = ValueType::String;
    bool multivalued = false;
    std::string displayName;
    std::string description;
    AttributeSource source = AttributeSource::FileSystem;
    // Whether "*" (any text attribute) looks at this attribute. Paths, type
    // identifiers and the text content are deliberately left out of "*".
    bool anyText = false;
};

class Schema {
public:
    // The table every part of Trovara uses.
    static const Schema& builtin();

    Schema() = default;
    explicit Schema(std::vector<AttributeInfo> attributes);

    // nullptr when the key is unknown. Keys are case-sensitive.
    const AttributeInfo* find(std::string_view key) const;
    std::span<const AttributeInfo> attributes() const { return m_attributes; }

private:
    struct KeyHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>{}(key); }
    };
    std::vector<AttributeInfo> m_attributes;
    std::unordered_map<std::string, std::size_t, KeyHash, std::equal_to<>> m_byKey;
};

}  // namespace trovara::index
