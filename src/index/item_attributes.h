// The attributes of an item, by key, as queries see them and `trova ls`
// shows them: for an item of the catalogue, and for a file the index does
// not cover (read on the spot).
//
// Both derive the values the same way from the same facts (name, stat times,
// type, extended attributes, and what importers found), so an item answers a
// query identically whether it is found through the index or by a crawl of
// a folder outside it. (A crawl imports what a query asks of the content;
// see crawl_search.h.)
//
// Thread safety: a view belongs to one thread; catalogues and file records
// may be shared.
#pragma once

#include "index/catalogue.h"
#include "index/fs/file_details.h"
#include "index/query/item_view.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC.
inline constexpr double kReferenceDateOffset = 978307200.0;

inline query::Date dateOf(Nanoseconds time)
{
    return query::Date{static_cast<double>(time) / 1e9 - kReferenceDateOffset};
}

// The keys the file system gives every item, sorted.
const std::vector<std::string>& fileSystemAttributeKeys();

// What an item's attributes are made from.
class ItemFacts {
public:
    virtual ~ItemFacts() = default;
    virtual std::string_view name() const = 0;
    virtual std::string path() const = 0;
    virtual FileKind kind() const = 0;
    virtual std::int64_t size() const = 0;
    virtual std::uint32_t nodeCount() const = 0;
    virtual Nanoseconds modified() const = 0;
    virtual Nanoseconds created() const = 0;  // birth, else change time
    virtual Nanoseconds changed() const = 0;
    virtual Nanoseconds lastUsed() const = 0;  // 0: never
    virtual std::uint32_t uid() const = 0;
    virtual std::uint32_t gid() const = 0;
    virtual bool invisible() const = 0;
    virtual const TypeInfo& type() const = 0;
    virtual std::optional<int> label() const = 0;
    virtual std::optional<std::string> comment() const = 0;
    virtual std::vector<std::string> tags() const = 0;
    virtual std::vector<std::string> whereFroms() const = 0;

    // What importers found; none by default.
    virtual std::optional<query::AttributeValue> importedAttribute(std::string_view) const { return std::nullopt; }
    virtual void forEachImportedAttribute(const std::function<void(std::string_view, query::AttributeValue&&)>&) const
    {
    }
    // The text content (read from the index's full text when asked).
    virtual std::optional<std::string> textContent() const { return std::nullopt; }
};

// The value of one file-system attribute, or none.
std::optional<query::AttributeValue> fileSystemAttribute(std::string_view key, const ItemFacts& facts);

// The value of any attribute: what importers found where they found it
// (their content dates before the file system's), else the file system's.
std::optional<query::AttributeValue> itemAttribute(std::string_view key, const ItemFacts& facts);

// Every attribute the item has, by key.
std::map<std::string, query::AttributeValue> allAttributes(const ItemFacts& facts);

// The facts of a catalogue item.
class CatalogueFacts final : public ItemFacts {
public:
    CatalogueFacts(const Catalogue& catalogue, ItemIndex item)
        : m_catalogue(catalogue)
        , m_item(item)
    {
    }
    void setItem(ItemIndex item) { m_item = item; }
    ItemIndex item() const { return m_item; }

    std::string_view name() const override { return m_catalogue.name(m_item); }
    std::string path() const override { return m_catalogue.path(m_item); }
    FileKind kind() const override;
    std::int64_t size() const override { return m_catalogue.core(m_item).size; }
    std::uint32_t nodeCount() const override { return static_cast<std::uint32_t>(m_catalogue.core(m_item).size); }
    Nanoseconds modified() const override { return m_catalogue.core(m_item).modified; }
    Nanoseconds created() const override { return m_catalogue.core(m_item).created; }
    Nanoseconds changed() const override { return m_catalogue.extra(m_item).changed; }
    Nanoseconds lastUsed() const override { return m_catalogue.extra(m_item).lastUsed; }
    std::uint32_t uid() const override { return m_catalogue.extra(m_item).uid; }
    std::uint32_t gid() const override { return m_catalogue.extra(m_item).gid; }
    bool invisible() const override { return m_catalogue.core(m_item).flags & item_flags::kInvisible; }
    const TypeInfo& type() const override { return m_catalogue.type(m_item); }
    std::optional<int> label() const override { return m_catalogue.label(m_item); }
    std::optional<std::string> comment() const override;
    std::vector<std::string> tags() const override;
    std::vector<std::string> whereFroms() const override;
    std::optional<query::AttributeValue> importedAttribute(std::string_view key) const override
    {
        return m_catalogue.importedAttribute(m_item, key);
    }
    void forEachImportedAttribute(
        const std::function<void(std::string_view, query::AttributeValue&&)>& visit) const override
    {
        m_catalogue.forEachImportedAttribute(m_item, visit);
    }
    std::optional<std::string> textContent() const override;

private:
    const Catalogue& m_catalogue;
    ItemIndex m_item;
};

// What the index imported from a file read on the spot: its attributes, and
// where its text is.
struct ImportedContent {
    std::shared_ptr<const ImportedAttributes> attributes;
    std::string databasePath;  // the index that holds the text
    std::int64_t storeId = 0;
    bool hasText = false;
};

// The facts of a file read on the spot.
class FileFacts final : public ItemFacts {
public:
    FileFacts(std::string path, FileInfo info, FileDetails details, TypeInfo type, Nanoseconds lastUsed);

    std::string_view name() const override { return m_info.name; }
    std::string path() const override { return m_path; }
    FileKind kind() const override { return m_info.kind; }
    std::int64_t size() const override { return m_info.size; }
    std::uint32_t nodeCount() const override { return m_nodeCount; }
    Nanoseconds modified() const override { return m_info.modified; }
    Nanoseconds created() const override { return m_info.born ? *m_info.born : m_info.changed; }
    Nanoseconds changed() const override { return m_info.changed; }
    Nanoseconds lastUsed() const override { return m_lastUsed; }
    std::uint32_t uid() const override { return m_info.uid; }
    std::uint32_t gid() const override { return m_info.gid; }
    bool invisible() const override { return m_info.invisible; }
    const TypeInfo& type() const override { return m_type; }
    std::optional<int> label() const override { return m_details.attributes.label; }
    std::optional<std::string> comment() const override { return m_details.attributes.comment; }
    std::vector<std::string> tags() const override { return m_details.attributes.tags; }
    std::vector<std::string> whereFroms() const override { return m_details.attributes.whereFroms; }
    std::optional<query::AttributeValue> importedAttribute(std::string_view key) const override;
    void forEachImportedAttribute(
        const std::function<void(std::string_view, query::AttributeValue&&)>& visit) const override;
    std::optional<std::string> textContent() const override;

    void setNodeCount(std::uint32_t count) { m_nodeCount = count; }
    void setImported(ImportedContent content) { m_imported = std::move(content); }
    // The text itself, for a file imported on the spot and kept nowhere.
    void setImportedText(std::shared_ptr<const std::string> text) { m_text = std::move(text); }
    const FileInfo& info() const { return m_info; }
    const FileDetails& details() const { return m_details; }

private:
    std::string m_path;
    FileInfo m_info;
    FileDetails m_details;
    TypeInfo m_type;
    Nanoseconds m_lastUsed;
    std::uint32_t m_nodeCount = 0;
    ImportedContent m_imported;
    std::shared_ptr<const std::string> m_text;
};

// An ItemView over facts: each attribute is computed when the evaluator
// first asks for it, and kept until the item changes.
class FactsItemView final : public query::ItemView {
public:
    explicit FactsItemView(const ItemFacts& facts)
        : m_facts(facts)
    {
    }
    // Forget computed values (call after the facts moved to another item).
    void reset()
    {
        m_cache.clear();
        m_text.reset();
    }

    const query::AttributeValue* attribute(std::string_view key) const override;
    std::optional<std::string_view> textContent() const override;

private:
    const ItemFacts& m_facts;
    mutable std::optional<std::optional<std::string>> m_text;  // read once, when first asked
    // A deque: pointers handed out stay valid as the cache grows.
    mutable std::deque<std::pair<std::string, std::optional<query::AttributeValue>>> m_cache;
};

}  // namespace trovara::index
