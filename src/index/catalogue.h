// The catalogue: what queries scan, as compact arrays.
//
// Items are kept in depth-first order (each folder followed by everything
// below it, siblings by name), so that "is this item below that folder" is a
// range test and results come out in path order. Every item has a 48-byte
// core record; rarer data (owner, last use, extended attributes, what
// importers found, types) sits in side tables. Each item also keeps its id
// in the database, which is how the full text (in the database) finds it. Names are kept twice: as on disk, and folded (case and
// diacritics removed) for the matching most queries do; a trigram index over
// the folded names finds the items whose names contain a text without
// scanning them all.
//
// A catalogue is immutable. It is built from the index database and saved as
// a snapshot file that readers map into memory, so a query costs no loading;
// the snapshot records the database generation it was built from.
//
// Thread safety: a Catalogue may be read from any number of threads.
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"
#include "index/fs/type_tree.h"
#include "index/import/imported_attributes.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

class Store;

using ItemIndex = std::uint32_t;
inline constexpr ItemIndex kNoItem = 0xFFFFFFFFu;

namespace item_flags {
inline constexpr std::uint16_t kFolder = 1 << 0;
inline constexpr std::uint16_t kSymlink = 1 << 1;
inline constexpr std::uint16_t kOther = 1 << 2;
inline constexpr std::uint16_t kInvisible = 1 << 3;
inline constexpr std::uint16_t kRoot = 1 << 4;        // the item of an indexed root; its name is its path
inline constexpr std::uint16_t kHasLabel = 1 << 5;
inline constexpr std::uint16_t kLabelShift = 8;       // bits 8-10: the colour label when kHasLabel
inline constexpr std::uint16_t kLabelMask = 7 << kLabelShift;
}  // namespace item_flags

struct CoreRecord {
    ItemIndex parent;      // kNoItem for a root's item
    ItemIndex subtreeEnd;  // one past the last item below this one
    std::uint32_t name;    // offset of the name in the names pool
    std::uint32_t folded;  // offset of the folded name in the folded pool
    std::int64_t size;     // bytes; for a folder, the number of its entries
    Nanoseconds modified;
    Nanoseconds created;   // birth time where the file system has one, else change time
    std::uint16_t type;    // index into the type table
    std::uint16_t flags;   // item_flags
    std::uint32_t attributes;  // first entry in the attribute table, or kNoItem
};
static_assert(sizeof(CoreRecord) == 48, "the core record is 48 bytes");

struct ExtraRecord {
    Nanoseconds lastUsed;  // 0: never
    Nanoseconds changed;
    std::uint32_t uid;
    std::uint32_t gid;
    std::uint32_t mode;
    std::uint32_t reserved;
};
static_assert(sizeof(ExtraRecord) == 32);

// Extended attributes in the side table. Keys from kFirstImportedKey on are
// attributes importers found: key - kFirstImportedKey indexes the
// catalogue's list of imported keys, and the value is encoded as
// encodeImportedValue() writes it.
enum class AttributeKey : std::uint16_t { Comment = 1, Tags = 2, WhereFroms = 3 };
inline constexpr std::uint16_t kFirstImportedKey = 16;

struct AttributeEntry {
    ItemIndex item;
    AttributeKey key;
    std::uint16_t reserved;
    std::uint32_t value;   // offset in the attribute values pool
    std::uint32_t length;  // bytes; lists are joined with '\x1f'
};
static_assert(sizeof(AttributeEntry) == 16);

// What an item's type says: MIME type, identifier (kMDItemContentType),
// kind (kMDItemKind) and tree (kMDItemContentTypeTree).
using TypeInfo = TypeDescription;

// One item as the builder takes it.
struct CatalogueItem {
    std::int64_t id = 0;      // any unique key; parents refer to it
    std::int64_t parent = 0;  // 0: a root (the name is then the root's absolute path)
    FileInfo info;
    std::string mimeType;
    std::uint32_t nodeCount = 0;
    Nanoseconds lastUsed = 0;
    ExtendedAttributes attributes;
    ImportedAttributes imported;
};

using NameFolder = std::function<std::string(std::string_view)>;
using TypeResolver = std::function<TypeInfo(const std::string& mimeType)>;

class Catalogue {
public:
    // Builds a catalogue from items given parent before child.
    static std::shared_ptr<const Catalogue> build(std::vector<CatalogueItem> items, std::int64_t generation,
                                                  const NameFolder& fold, const TypeResolver& types);
    // Builds one from the index database.
    static Expected<std::shared_ptr<const Catalogue>> build(Store& store, const NameFolder& fold,
                                                            const TypeResolver& types,
                                                            const std::function<Nanoseconds(const std::string&,
                                                                                            const FileInfo&)>& lastUsed);

    // Writes the snapshot crash-safely (temporary file, then rename).
    Expected<void> save(const std::string& path) const;
    // Maps a snapshot. A damaged or foreign file, or one of another format
    // version, fails with Corrupt or Version. `databasePath` is the database
    // it was built from (where queries find the full text).
    static Expected<std::shared_ptr<const Catalogue>> open(const std::string& path,
                                                           const std::string& databasePath = {});
    // The generation a snapshot records, read from its header alone; none
    // when there is no snapshot of this format at `path`.
    static std::optional<std::int64_t> snapshotGeneration(const std::string& path);

    ~Catalogue();
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    std::int64_t generation() const { return m_generation; }
    // Whether the catalogue is a saved snapshot mapped into memory (rather
    // than built in memory).
    bool isMapped() const { return m_mapping != nullptr; }
    ItemIndex size() const { return static_cast<ItemIndex>(m_core.size()); }

    const CoreRecord& core(ItemIndex i) const { return m_core[i]; }
    const ExtraRecord& extra(ItemIndex i) const { return m_extra[i]; }
    bool isFolder(ItemIndex i) const { return m_core[i].flags & item_flags::kFolder; }

    // The item's name as on disk (a root's: the last component of its path).
    std::string_view name(ItemIndex i) const;
    std::string_view foldedName(ItemIndex i) const;
    std::string path(ItemIndex i) const;
    const TypeInfo& type(ItemIndex i) const { return m_types[m_core[i].type]; }
    // The distinct types, indexed by CoreRecord::type.
    const std::vector<TypeInfo>& types() const { return m_types; }
    std::optional<int> label(ItemIndex i) const;
    // The attribute's value (lists joined with '\x1f'), if the item has it.
    std::optional<std::string_view> attribute(ItemIndex i, AttributeKey key) const;

    // What importers found: the keys present in the catalogue, an item's
    // value of one (by the key's number, see importedKey()), and all of an
    // item's values.
    std::optional<std::uint16_t> importedKey(std::string_view key) const;
    std::optional<query::AttributeValue> importedAttribute(ItemIndex i, std::uint16_t key) const;
    std::optional<query::AttributeValue> importedAttribute(ItemIndex i, std::string_view key) const;
    void forEachImportedAttribute(ItemIndex i,
                                  const std::function<void(std::string_view key, query::AttributeValue&&)>& visit) const;

    // The item's id in the database, and the item with an id.
    std::int64_t storeId(ItemIndex i) const { return m_ids[i]; }
    std::optional<ItemIndex> itemWithStoreId(std::int64_t id) const;
    // The database the catalogue was built from; empty for one built from
    // items in memory.
    const std::string& databasePath() const { return m_databasePath; }

    // The item at an absolute path, if it is in the catalogue.
    std::optional<ItemIndex> find(std::string_view path) const;
    // The roots' items.
    std::vector<ItemIndex> roots() const;

    // Items whose folded name contains `text` (already folded), ascending;
    // none when `text` is shorter than three bytes (the caller scans then).
    std::optional<std::vector<ItemIndex>> itemsWhoseFoldedNameContains(std::string_view text) const;

    // All folded names, one after the other, each followed by a NUL byte, in
    // item order: the fastest thing to scan.
    std::string_view foldedPool() const { return m_foldedPool; }

    // Bytes the catalogue occupies, by part.
    struct Footprint {
        std::size_t core = 0, extra = 0, names = 0, folded = 0, trigrams = 0, other = 0;
        std::size_t total() const { return core + extra + names + folded + trigrams + other; }
    };
    Footprint footprint() const;

private:
    Catalogue() = default;
    struct Data;
    struct Staged;
    static std::shared_ptr<const Catalogue> assemble(Staged& staged, std::int64_t generation, const NameFolder& fold,
                                                     const TypeResolver& types);

    std::int64_t m_generation = 0;
    std::span<const CoreRecord> m_core;
    std::span<const ExtraRecord> m_extra;
    std::string_view m_namesPool;
    std::string_view m_foldedPool;
    std::span<const AttributeEntry> m_attributeEntries;
    std::string_view m_attributeValues;
    std::vector<TypeInfo> m_types;
    std::vector<std::string> m_importedKeys;
    std::span<const std::int64_t> m_ids;      // per item
    std::span<const ItemIndex> m_byId;        // items ordered by id
    std::string m_databasePath;
    struct Trigram {
        std::uint32_t key;
        std::uint32_t offset;  // in the postings pool
        std::uint32_t count;
    };
    std::span<const Trigram> m_trigrams;
    std::string_view m_postings;  // delta-encoded varints

    std::unique_ptr<Data> m_owned;  // the arrays, when built in memory
    void* m_mapping = nullptr;      // the snapshot, when mapped
    std::size_t m_mappingSize = 0;
};

}  // namespace trovara::index
