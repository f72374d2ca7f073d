// What the query evaluator needs to know about one item: its attribute
// values by key, and its text content.
//
// The evaluator never learns where an item comes from (the index's tables, a
// file stat'ed on the spot, a test); anything that can answer these two
// questions can be searched. Implementations own the values they hand out.
//
// Thread safety: the evaluator only calls const members; an implementation
// that is safe to read from several threads can be evaluated from several
// threads at once.
#pragma once

#include <compare>
#include <concepts>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace trovara::index::query {

// A point in time: seconds since 2001-01-01 00:00:00 UTC.
struct Date {
    double seconds = 0;

    auto operator<=>(const Date&) const = default;
};

// One value of an attribute: text, number, date or Boolean.
using Scalar = std::variant<std::string, double, Date, bool>;

// An attribute's value: one scalar, or a list of them (kMDItemAuthors,
// kMDItemContentTypeTree …). An empty list counts as no value.
class AttributeValue {
public:
    // Single values convert implicitly, so that items read naturally:
    // {"kMDItemFSSize", 5000}, {"kMDItemFSInvisible", true}.
    AttributeValue(Scalar value);  // NOLINT: implicit by design
    AttributeValue(const char* text) : AttributeValue(Scalar(std::string(text))) {}  // NOLINT
    AttributeValue(std::string text) : AttributeValue(Scalar(std::move(text))) {}  // NOLINT
    AttributeValue(Date date) : AttributeValue(Scalar(date)) {}  // NOLINT
    template <std::floating_point F>
    AttributeValue(F number) : AttributeValue(Scalar(static_cast<double>(number))) {}  // NOLINT
    template <std::integral I>
        requires(!std::same_as<I, bool>)
    AttributeValue(I number) : AttributeValue(Scalar(static_cast<double>(number))) {}  // NOLINT
    template <std::same_as<bool> B>
    AttributeValue(B flag) : AttributeValue(Scalar(flag)) {}  // NOLINT
    // A list: AttributeValue{"public.png", "public.image"}.
    AttributeValue(std::initializer_list<Scalar> list);
    static AttributeValue list(std::vector<Scalar> elements);

    std::span<const Scalar> elements() const { return m_elements; }
    bool isList() const { return m_list; }

private:
    AttributeValue() = default;
    std::vector<Scalar> m_elements;
    bool m_list = false;
};

class ItemView {
public:
    virtual ~ItemView() = default;

    // The value of an attribute, or nullptr when the item has none. Never
    // asked for kMDItemTextContent. The pointer must stay valid until the
    // item changes or goes away.
    virtual const AttributeValue* attribute(std::string_view key) const = 0;

    // The item's text content (kMDItemTextContent) as UTF-8, or none when it
    // has none. Only its words matter: the evaluator cuts it with
    // text::splitWords(), so an item that keeps nothing but the words (in
    // their order and case) may answer with them joined by spaces.
    virtual std::optional<std::string_view> textContent() const = 0;
};

// An item held in memory: for tests, for files outside the index, and as
// the reference in differential tests of the index.
class MemoryItem final : public ItemView {
public:
    MemoryItem() = default;
    MemoryItem(std::initializer_list<std::pair<const std::string, AttributeValue>> attributes);

    MemoryItem& set(std::string key, AttributeValue value);
    MemoryItem& remove(std::string_view key);
    MemoryItem& setTextContent(std::optional<std::string> text);

    const AttributeValue* attribute(std::string_view key) const override;
    std::optional<std::string_view> textContent() const override;

private:
    std::map<std::string, AttributeValue, std::less<>> m_attributes;
    std::optional<std::string> m_textContent;
};

}  // namespace trovara::index::query
