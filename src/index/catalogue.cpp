#include "index/catalogue.h"

#include "index/list_text.h"
#include "index/store.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

namespace trovara::index {

namespace {

// --- Snapshot file layout -----------------------------------------------------
//
// A header, a section table, then the sections, each aligned to 8 bytes.
// All integers are little-endian, as the machines Trovara runs on are.

constexpr char kMagic[8] = {'T', 'r', 'o', 'v', 'C', 'a', 't', '\0'};
constexpr std::uint32_t kSnapshotVersion = 3;

struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t headerSize;
    std::int64_t generation;
    std::uint32_t itemCount;
    std::uint32_t sectionCount;
    std::uint32_t sectionTableChecksum;
    std::uint32_t reserved;
    std::uint64_t fileSize;
};
static_assert(sizeof(Header) == 48);

enum SectionId : std::uint32_t {
    kCore = 1,
    kExtra = 2,
    kNames = 3,
    kFolded = 4,
    kAttributeEntries = 5,
    kAttributeValues = 6,
    kTypes = 7,
    kTrigrams = 8,
    kPostings = 9,
    kImportedKeys = 10,
    kIds = 11,
    kIdOrder = 12,
};

struct Section {
    std::uint32_t id;
    std::uint32_t checksum;  // of the section's bytes (sectionChecksum)
    std::uint64_t offset;
    std::uint64_t size;
};
static_assert(sizeof(Section) == 24);

std::uint64_t rotate(std::uint64_t value, int bits)
{
    return (value << bits) | (value >> (64 - bits));
}

// A fast checksum for finding damage (not tampering): four independent
// multiply-rotate lanes over 8-byte words, folded to 32 bits.
std::uint32_t sectionChecksum(const void* data, std::size_t size)
{
    constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87ull;
    constexpr std::uint64_t kPrime2 = 0xC2B2AE3D27D4EB4Full;
    std::uint64_t lanes[4] = {kPrime1, kPrime2, kPrime1 ^ kPrime2, ~kPrime1};
    const auto* p = static_cast<const unsigned char*>(data);
    std::size_t left = size;
    while (left >= 32) {
        for (int lane = 0; lane < 4; ++lane) {
            std::uint64_t word;
            std::memcpy(&word, p + 8 * lane, 8);
            lanes[lane] = rotate(lanes[lane] ^ (word * kPrime2), 31) * kPrime1;
        }
        p += 32;
        left -= 32;
    }
    std::uint64_t hash = size;
    for (int lane = 0; lane < 4; ++lane) {
        hash = rotate(hash ^ lanes[lane], 27) * kPrime1 + kPrime2;
    }
    for (; left > 0; --left, ++p) {
        hash = rotate(hash ^ (*p * kPrime1), 11) * kPrime2;
    }
    hash ^= hash >> 33;
    hash *= kPrime2;
    hash ^= hash >> 29;
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

// A snapshot's identity on disk. Whoever checked a snapshot through writes
// it beside the snapshot ("<snapshot>.checked"); a snapshot whose identity
// matches was checked since it was last written, and opens without reading
// it all again. Writing to a file changes its modification and change
// times, so damage done to it later is found by the next full check.
struct Identity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t changed = 0;
    std::uint32_t table = 0;  // the section table's checksum

    std::string text() const
    {
        return "trovara-catalogue-checked " + std::to_string(device) + ' ' + std::to_string(inode) + ' '
               + std::to_string(size) + ' ' + std::to_string(modified) + ' ' + std::to_string(changed) + ' '
               + std::to_string(table) + '\n';
    }
};

Identity identityOf(const struct stat& st, std::uint32_t table)
{
    Identity identity;
    identity.device = st.st_dev;
    identity.inode = st.st_ino;
    identity.size = static_cast<std::uint64_t>(st.st_size);
    identity.modified = st.st_mtim.tv_sec * 1'000'000'000LL + st.st_mtim.tv_nsec;
    identity.changed = st.st_ctim.tv_sec * 1'000'000'000LL + st.st_ctim.tv_nsec;
    identity.table = table;
    return identity;
}

bool checkedBefore(const std::string& stampPath, const Identity& identity)
{
    const int fd = ::open(stampPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char buffer[256];
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    return got > 0 && std::string_view(buffer, static_cast<std::size_t>(got)) == identity.text();
}

// Best effort: a reader without the right to write checks again next time.
void recordChecked(const std::string& stampPath, const Identity& identity)
{
    const std::string temporary = stampPath + ".writing-" + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    const std::string text = identity.text();
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    if (!written || ::rename(temporary.c_str(), stampPath.c_str()) != 0) {
        ::unlink(temporary.c_str());
    }
}

std::uint32_t fnv1a(const void* data, std::size_t size)
{
    std::uint32_t hash = 2166136261u;
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) {
        hash = (hash ^ bytes[i]) * 16777619u;
    }
    return hash;
}

// Types travel as text: fields separated by 0x1f, tree entries by 0x1e,
// records ended by '\n'.
std::string serializeTypes(const std::vector<TypeInfo>& types)
{
    std::string text;
    for (const TypeInfo& type : types) {
        text += joinList({type.mimeType, type.identifier, type.kind, joinList(type.tree, '\x1e')}) + '\n';
    }
    return text;
}

std::optional<std::vector<TypeInfo>> parseTypes(std::string_view text)
{
    std::vector<TypeInfo> types;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        const std::vector<std::string> fields = splitList(text.substr(start, end - start), '\x1f');
        if (fields.size() != 4) {
            return std::nullopt;
        }
        TypeInfo type{fields[0], fields[1], fields[2], {}};
        if (!fields[3].empty()) {
            type.tree = splitList(fields[3], '\x1e');
        }
        types.push_back(std::move(type));
        start = end + 1;
    }
    return types;
}

void appendVarint(std::string& out, std::uint32_t value)
{
    while (value >= 0x80) {
        out += static_cast<char>((value & 0x7F) | 0x80);
        value >>= 7;
    }
    out += static_cast<char>(value);
}

// Decodes `count` delta-encoded item indexes; false when the bytes run out
// or a value is out of range (a damaged snapshot).
bool decodePostings(std::string_view bytes, std::uint32_t count, ItemIndex limit, std::vector<ItemIndex>& out)
{
    out.clear();
    out.reserve(count);
    std::size_t pos = 0;
    std::uint64_t current = 0;
    for (std::uint32_t n = 0; n < count; ++n) {
        std::uint64_t delta = 0;
        int shift = 0;
        while (true) {
            if (pos >= bytes.size() || shift > 28) {
                return false;
            }
            const auto byte = static_cast<unsigned char>(bytes[pos++]);
            delta |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
            if (!(byte & 0x80)) {
                break;
            }
            shift += 7;
        }
        current += delta;
        if (current >= limit) {
            return false;
        }
        out.push_back(static_cast<ItemIndex>(current));
    }
    return true;
}

std::uint32_t trigramKey(const char* p)
{
    return (static_cast<std::uint32_t>(static_cast<unsigned char>(p[0])) << 16)
           | (static_cast<std::uint32_t>(static_cast<unsigned char>(p[1])) << 8)
           | static_cast<std::uint32_t>(static_cast<unsigned char>(p[2]));
}

std::string_view lastComponent(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.size() == 1) {
        return path;
    }
    return path.substr(slash + 1);
}

}  // namespace

struct Catalogue::Data {
    std::vector<CoreRecord> core;
    std::vector<ExtraRecord> extra;
    std::string names;
    std::string folded;
    std::vector<AttributeEntry> attributeEntries;
    std::string attributeValues;
    std::vector<Trigram> trigrams;
    std::string postings;
    std::vector<std::int64_t> ids;
    std::vector<ItemIndex> byId;
};

Catalogue::~Catalogue()
{
    if (m_mapping) {
        ::munmap(m_mapping, m_mappingSize);
    }
}

// Items as the builder gathers them, already as the catalogue's records (in
// the order they come, names in one buffer, the rare attributes aside), so
// that building from a large database holds little more than the result:
// the records are put in depth-first order where they lie.
//
// Until then a core record's `name` is the offset in `names`, its `type` the
// index in `mimeTypes`, its `attributes` the index in `extras` (or kNoItem),
// and its flags lack kRoot.
struct Catalogue::Staged {
    struct Extras {
        ExtendedAttributes attributes;
        ImportedAttributes imported;
    };
    std::vector<CoreRecord> core;
    std::vector<ExtraRecord> extra;
    std::vector<std::int64_t> ids;
    std::vector<std::int64_t> parents;  // 0: a root (its name is its path)
    std::string names;
    std::vector<Extras> extras;
    std::vector<std::string> mimeTypes;
    std::unordered_map<std::string, std::uint16_t> mimeIndex;

    std::size_t size() const { return ids.size(); }

    void reserve(std::size_t count)
    {
        core.reserve(count);
        extra.reserve(count);
        ids.reserve(count);
        parents.reserve(count);
    }

    std::uint16_t typeOf(const std::string& mime)
    {
        auto it = mimeIndex.find(mime);
        if (it == mimeIndex.end()) {
            it = mimeIndex.emplace(mime, static_cast<std::uint16_t>(mimeTypes.size())).first;
            mimeTypes.push_back(mime);
        }
        return it->second;
    }

    void add(std::int64_t id, std::int64_t parent, const FileInfo& info, std::uint16_t type, std::uint32_t nodeCount,
             Nanoseconds lastUsed, ExtendedAttributes&& attributes, ImportedAttributes&& imported)
    {
        CoreRecord item{};
        item.parent = kNoItem;
        item.subtreeEnd = 0;
        item.name = static_cast<std::uint32_t>(names.size());
        names += info.name;
        names += '\0';
        const bool folder = info.kind == FileKind::Directory;
        item.size = folder ? static_cast<std::int64_t>(nodeCount) : info.size;
        item.modified = info.modified;
        item.created = info.born ? *info.born : info.changed;
        item.type = type;
        if (folder) {
            item.flags |= item_flags::kFolder;
        } else if (info.kind == FileKind::Symlink) {
            item.flags |= item_flags::kSymlink;
        } else if (info.kind == FileKind::Other) {
            item.flags |= item_flags::kOther;
        }
        if (info.invisible) {
            item.flags |= item_flags::kInvisible;
        }
        if (attributes.label && *attributes.label >= 0 && *attributes.label <= 7) {
            item.flags |= item_flags::kHasLabel;
            item.flags |= static_cast<std::uint16_t>(*attributes.label << item_flags::kLabelShift);
        }
        item.attributes = kNoItem;
        if (attributes.comment || !attributes.tags.empty() || !attributes.whereFroms.empty() || !imported.empty()) {
            item.attributes = static_cast<std::uint32_t>(extras.size());
            extras.push_back({std::move(attributes), std::move(imported)});
        }
        core.push_back(item);
        extra.push_back({lastUsed, info.changed, info.uid, info.gid, info.mode, 0});
        ids.push_back(id);
        parents.push_back(parent);
    }

    std::string_view nameOf(std::uint32_t i) const { return std::string_view(names.data() + core[i].name); }
};

namespace {

// `records` rearranged so that record k is the one at `order[k]`; only one
// array is ever held twice.
template <typename Record>
void rearrange(std::vector<Record>& records, const std::vector<std::uint32_t>& order)
{
    std::vector<Record> arranged;
    arranged.reserve(order.size());
    for (const std::uint32_t from : order) {
        arranged.push_back(records[from]);
    }
    records.swap(arranged);
}

}  // namespace

std::shared_ptr<const Catalogue> Catalogue::build(std::vector<CatalogueItem> items, std::int64_t generation,
                                                  const NameFolder& fold, const TypeResolver& types)
{
    Staged staged;
    staged.reserve(items.size());
    for (CatalogueItem& item : items) {
        staged.add(item.id, item.parent, item.info, staged.typeOf(item.mimeType), item.nodeCount, item.lastUsed,
                   std::move(item.attributes), std::move(item.imported));
    }
    items = {};
    return assemble(staged, generation, fold, types);
}

std::shared_ptr<const Catalogue> Catalogue::assemble(Staged& staged, std::int64_t generation, const NameFolder& fold,
                                                     const TypeResolver& types)
{
    const std::size_t n = staged.size();
    const std::vector<std::int64_t>& ids = staged.ids;
    // Items by id, to find parents.
    std::vector<std::uint32_t> byStagedId(n);
    for (std::uint32_t i = 0; i < n; ++i) {
        byStagedId[i] = i;
    }
    if (!std::is_sorted(ids.begin(), ids.end())) {
        std::sort(byStagedId.begin(), byStagedId.end(), [&](std::uint32_t a, std::uint32_t b) { return ids[a] < ids[b]; });
    }
    auto indexOf = [&](std::int64_t id) -> std::uint32_t {
        auto it = std::lower_bound(byStagedId.begin(), byStagedId.end(), id,
                                   [&](std::uint32_t i, std::int64_t wanted) { return ids[i] < wanted; });
        return it != byStagedId.end() && ids[*it] == id ? *it : kNoItem;
    };
    // Children lists; an item whose parent is missing is left out with all
    // below it.
    std::vector<std::uint32_t> parentOf(n, kNoItem);
    std::vector<std::uint32_t> roots;
    std::vector<std::uint32_t> childStart(n + 1, 0);
    for (std::uint32_t i = 0; i < n; ++i) {
        if (staged.parents[i] == 0) {
            roots.push_back(i);
            continue;
        }
        const std::uint32_t parent = indexOf(staged.parents[i]);
        if (parent != kNoItem && parent != i) {
            parentOf[i] = parent;
            ++childStart[parent + 1];
        }
    }
    byStagedId = {};
    staged.parents = {};
    for (std::size_t i = 0; i < n; ++i) {
        childStart[i + 1] += childStart[i];
    }
    std::vector<std::uint32_t> children(childStart[n]);
    {
        std::vector<std::uint32_t> fill(childStart.begin(), childStart.end() - 1);
        for (std::uint32_t i = 0; i < n; ++i) {
            if (parentOf[i] != kNoItem) {
                children[fill[parentOf[i]]++] = i;
            }
        }
    }
    auto byName = [&](std::uint32_t a, std::uint32_t b) {
        return std::strcmp(staged.names.data() + staged.core[a].name, staged.names.data() + staged.core[b].name) < 0;
    };
    std::sort(roots.begin(), roots.end(), byName);
    for (std::size_t i = 0; i < n; ++i) {
        std::sort(children.begin() + childStart[i], children.begin() + childStart[i + 1], byName);
    }

    // Depth-first order.
    std::vector<std::uint32_t> order;
    order.reserve(n);
    std::vector<ItemIndex> newIndex(n, kNoItem);
    std::vector<ItemIndex> subtreeEnd;
    {
        struct Frame {
            std::uint32_t item;
            std::uint32_t next;  // next child position
        };
        std::vector<Frame> stack;
        for (std::uint32_t root : roots) {
            stack.push_back({root, childStart[root]});
            newIndex[root] = static_cast<ItemIndex>(order.size());
            order.push_back(root);
            while (!stack.empty()) {
                Frame& top = stack.back();
                if (top.next < childStart[top.item + 1]) {
                    const std::uint32_t child = children[top.next++];
                    newIndex[child] = static_cast<ItemIndex>(order.size());
                    order.push_back(child);
                    stack.push_back({child, childStart[child]});
                } else {
                    if (subtreeEnd.size() < order.size()) {
                        subtreeEnd.resize(order.size(), 0);
                    }
                    subtreeEnd[newIndex[top.item]] = static_cast<ItemIndex>(order.size());
                    stack.pop_back();
                }
            }
        }
        subtreeEnd.resize(order.size(), 0);
    }
    children = {};
    childStart = {};

    // The records in that order, each array in its turn; parents as
    // positions in it.
    const std::size_t count = order.size();
    std::vector<ItemIndex> parents(count);
    for (std::size_t k = 0; k < count; ++k) {
        const std::uint32_t parent = parentOf[order[k]];
        parents[k] = parent == kNoItem ? kNoItem : newIndex[parent];
    }
    parentOf = {};
    newIndex = {};
    rearrange(staged.core, order);
    rearrange(staged.extra, order);
    rearrange(staged.ids, order);
    order = {};

    auto catalogue = std::shared_ptr<Catalogue>(new Catalogue);
    catalogue->m_generation = generation;
    catalogue->m_owned = std::make_unique<Data>();
    Data& d = *catalogue->m_owned;
    d.core = std::move(staged.core);
    d.extra = std::move(staged.extra);
    d.ids = std::move(staged.ids);
    d.names.reserve(staged.names.size());
    d.folded.reserve(staged.names.size() + staged.names.size() / 8);

    // The keys importers gave, each once, sorted; an item's entries use
    // their position.
    std::vector<std::string>& importedKeys = catalogue->m_importedKeys;
    for (const Staged::Extras& extras : staged.extras) {
        for (const ImportedAttribute& attribute : extras.imported) {
            importedKeys.push_back(attribute.key);
        }
    }
    std::sort(importedKeys.begin(), importedKeys.end());
    importedKeys.erase(std::unique(importedKeys.begin(), importedKeys.end()), importedKeys.end());
    constexpr std::size_t kImportedKeyRoom = 0xFFFF - kFirstImportedKey;
    if (importedKeys.size() > kImportedKeyRoom) {
        importedKeys.resize(kImportedKeyRoom);
    }

    // Types in the order items first use them.
    std::vector<std::uint16_t> typeIndex(staged.mimeTypes.size(), 0xFFFF);
    for (ItemIndex k = 0; k < count; ++k) {
        CoreRecord& core = d.core[k];
        const ItemIndex parent = parents[k];
        const bool isRoot = parent == kNoItem;
        const std::string_view name(staged.names.data() + core.name);
        core.parent = parent;
        core.subtreeEnd = subtreeEnd[k];
        core.name = static_cast<std::uint32_t>(d.names.size());
        d.names += name;
        d.names += '\0';
        core.folded = static_cast<std::uint32_t>(d.folded.size());
        d.folded += fold(isRoot ? lastComponent(name) : name);
        d.folded += '\0';
        if (typeIndex[core.type] == 0xFFFF) {
            typeIndex[core.type] = static_cast<std::uint16_t>(catalogue->m_types.size());
            catalogue->m_types.push_back(types(staged.mimeTypes[core.type]));
        }
        core.type = typeIndex[core.type];
        core.flags = static_cast<std::uint16_t>(core.flags | (isRoot ? item_flags::kRoot : 0));
        const std::uint32_t extrasIndex = core.attributes;
        core.attributes = kNoItem;
        if (extrasIndex != kNoItem) {
            Staged::Extras& extras = staged.extras[extrasIndex];
            auto addAttribute = [&](AttributeKey key, const std::string& value) {
                if (core.attributes == kNoItem) {
                    core.attributes = static_cast<std::uint32_t>(d.attributeEntries.size());
                }
                d.attributeEntries.push_back({k, key, 0, static_cast<std::uint32_t>(d.attributeValues.size()),
                                              static_cast<std::uint32_t>(value.size())});
                d.attributeValues += value;
            };
            if (extras.attributes.comment) {
                addAttribute(AttributeKey::Comment, *extras.attributes.comment);
            }
            if (!extras.attributes.tags.empty()) {
                addAttribute(AttributeKey::Tags, joinList(extras.attributes.tags));
            }
            if (!extras.attributes.whereFroms.empty()) {
                addAttribute(AttributeKey::WhereFroms, joinList(extras.attributes.whereFroms));
            }
            for (const ImportedAttribute& attribute : extras.imported) {
                const auto key = std::lower_bound(importedKeys.begin(), importedKeys.end(), attribute.key);
                if (key != importedKeys.end() && *key == attribute.key) {
                    addAttribute(static_cast<AttributeKey>(kFirstImportedKey + (key - importedKeys.begin())),
                                 encodeImportedValue(attribute.value));
                }
            }
            extras = {};  // release what is copied
        }
    }
    staged = {};
    parents = {};
    subtreeEnd = {};

    // Trigram postings. Items come in ascending order, so each list is
    // sorted as it is gathered.
    {
        auto forEachTrigram = [&](const auto& visit) {
            for (ItemIndex k = 0; k < count; ++k) {
                const char* name = d.folded.data() + d.core[k].folded;
                const std::size_t length = std::strlen(name);
                for (std::size_t j = 0; j + 3 <= length; ++j) {
                    visit(trigramKey(name + j), k);
                }
            }
        };
        auto emit = [&](std::uint32_t key, const ItemIndex* begin, const ItemIndex* end) {
            Trigram trigram{key, static_cast<std::uint32_t>(d.postings.size()), 0};
            ItemIndex previous = 0;
            for (const ItemIndex* p = begin; p != end; ++p) {
                if (trigram.count && *p == previous) {
                    continue;  // the same trigram twice in one name
                }
                appendVarint(d.postings, *p - previous);
                previous = *p;
                ++trigram.count;
            }
            d.trigrams.push_back(trigram);
        };
        if (count < 200000) {
            // Few items: sort (key, item) pairs.
            std::vector<std::uint64_t> pairs;
            forEachTrigram([&](std::uint32_t key, ItemIndex k) {
                pairs.push_back((static_cast<std::uint64_t>(key) << 32) | k);
            });
            std::sort(pairs.begin(), pairs.end());
            std::vector<ItemIndex> list;
            for (std::size_t p = 0; p < pairs.size();) {
                const auto key = static_cast<std::uint32_t>(pairs[p] >> 32);
                list.clear();
                for (; p < pairs.size() && static_cast<std::uint32_t>(pairs[p] >> 32) == key; ++p) {
                    list.push_back(static_cast<ItemIndex>(pairs[p]));
                }
                emit(key, list.data(), list.data() + list.size());
            }
        } else {
            // Many items: count per key, then place (linear time), one
            // range of keys at a time, so that neither the counts nor the
            // unpacked postings ever cover all keys at once. Keys are
            // grouped by their first byte; a pass takes whole first bytes
            // until it holds enough postings.
            constexpr std::size_t kKeysPerFirstByte = 1u << 16;
            constexpr std::size_t kFirstBytesPerPass = 32;     // counts of at most 8 MiB
            constexpr std::size_t kPostingsPerPass = 4u << 20;  // unpacked postings of about 16 MiB
            std::vector<std::size_t> perFirstByte(256, 0);
            forEachTrigram([&](std::uint32_t key, ItemIndex) { ++perFirstByte[key >> 16]; });
            // Room for the encoded postings at once (no delta takes more
            // bytes than the item count does), so that the pool never grows
            // by copying itself, which briefly held it three times over.
            std::size_t occurrences = 0;
            for (const std::size_t n : perFirstByte) {
                occurrences += n;
            }
            std::string countBytes;
            appendVarint(countBytes, static_cast<std::uint32_t>(count));
            d.postings.reserve(occurrences * countBytes.size());
            std::vector<std::uint32_t> ends;
            std::vector<ItemIndex> postings;
            for (std::size_t first = 0; first < 256;) {
                std::size_t last = first;
                std::size_t held = 0;
                while (last < 256 && last - first < kFirstBytesPerPass
                       && (last == first || held + perFirstByte[last] <= kPostingsPerPass)) {
                    held += perFirstByte[last++];
                }
                if (held > 0) {
                    const std::uint32_t low = static_cast<std::uint32_t>(first * kKeysPerFirstByte);
                    const std::uint32_t high = static_cast<std::uint32_t>(last * kKeysPerFirstByte);
                    const std::size_t keys = high - low;
                    // One array serves as counts, then as each key's next
                    // place, which leaves it holding each key's end.
                    ends.assign(keys + 1, 0);
                    forEachTrigram([&](std::uint32_t key, ItemIndex) {
                        if (key >= low && key < high) {
                            ++ends[key - low + 1];
                        }
                    });
                    for (std::size_t key = 0; key < keys; ++key) {
                        ends[key + 1] += ends[key];
                    }
                    postings.resize(ends[keys]);
                    forEachTrigram([&](std::uint32_t key, ItemIndex k) {
                        if (key >= low && key < high) {
                            postings[ends[key - low]++] = k;
                        }
                    });
                    std::uint32_t begin = 0;
                    for (std::size_t key = 0; key < keys; ++key) {
                        if (ends[key] > begin) {
                            emit(static_cast<std::uint32_t>(low + key), postings.data() + begin,
                                 postings.data() + ends[key]);
                        }
                        begin = ends[key];
                    }
                }
                first = last;
            }
        }
    }

    d.byId.resize(count);
    for (ItemIndex k = 0; k < count; ++k) {
        d.byId[k] = k;
    }
    std::sort(d.byId.begin(), d.byId.end(), [&](ItemIndex a, ItemIndex b) { return d.ids[a] < d.ids[b]; });

    catalogue->m_ids = d.ids;
    catalogue->m_byId = d.byId;
    catalogue->m_core = d.core;
    catalogue->m_extra = d.extra;
    catalogue->m_namesPool = d.names;
    catalogue->m_foldedPool = d.folded;
    catalogue->m_attributeEntries = d.attributeEntries;
    catalogue->m_attributeValues = d.attributeValues;
    catalogue->m_trigrams = d.trigrams;
    catalogue->m_postings = d.postings;
    return catalogue;
}

Expected<std::shared_ptr<const Catalogue>> Catalogue::build(
    Store& store, const NameFolder& fold, const TypeResolver& types,
    const std::function<Nanoseconds(const std::string&, const FileInfo&)>& lastUsed)
{
    Expected<std::int64_t> generation = store.generation();
    if (!generation) {
        return generation.error();
    }
    Expected<std::vector<std::string>> mimeTypes = store.mimeTypes();
    if (!mimeTypes) {
        return mimeTypes.error();
    }
    std::unordered_map<std::int64_t, ImportedAttributes> imported;
    Expected<void> readImports = store.forEachImportedAttributes([&](StoreId id, std::string_view bytes) {
        if (Expected<ImportedAttributes> attributes = decodeImportedAttributes(bytes)) {
            imported.emplace(id, std::move(*attributes));
        }
        return true;  // a damaged record costs that file its attributes, nothing more
    });
    if (!readImports) {
        return readImports.error();
    }
    Staged staged;
    if (Expected<std::int64_t> count = store.itemCount()) {
        staged.reserve(static_cast<std::size_t>(*count));
    }
    // The database's type ids as the staged ones.
    std::vector<std::uint16_t> types16(mimeTypes->size(), 0xFFFF);
    // Folder paths (items come parent before child), for the last-use dates.
    std::unordered_map<std::int64_t, std::string> folderPaths;
    Expected<void> read = store.forEachItem([&](StoredItem&& stored) {
        std::uint16_t type = 0;
        if (stored.type >= 0 && static_cast<std::size_t>(stored.type) < mimeTypes->size()) {
            std::uint16_t& known = types16[static_cast<std::size_t>(stored.type)];
            if (known == 0xFFFF) {
                known = staged.typeOf((*mimeTypes)[static_cast<std::size_t>(stored.type)]);
            }
            type = known;
        } else {
            type = staged.typeOf(std::string());
        }
        Nanoseconds used = 0;
        if (lastUsed) {
            std::string path;
            if (stored.parent == 0) {
                path = stored.info.name;
            } else if (auto parent = folderPaths.find(stored.parent); parent != folderPaths.end()) {
                path = parent->second == "/" ? "/" + stored.info.name : parent->second + "/" + stored.info.name;
            }
            if (!path.empty()) {
                used = lastUsed(path, stored.info);
                if (stored.info.kind == FileKind::Directory) {
                    folderPaths.emplace(stored.id, std::move(path));
                }
            }
        }
        ImportedAttributes found;
        if (auto it = imported.find(stored.id); it != imported.end()) {
            found = std::move(it->second);
            imported.erase(it);
        }
        staged.add(stored.id, stored.parent, stored.info, type, stored.nodeCount, used, std::move(stored.attributes),
                   std::move(found));
        return true;
    });
    if (!read) {
        return read.error();
    }
    imported = {};
    folderPaths = {};
    std::shared_ptr<const Catalogue> built = assemble(staged, *generation, fold, types);
    // Built just now and not yet shared: the database it came from is told here.
    std::const_pointer_cast<Catalogue>(built)->m_databasePath = store.path();
    return built;
}

Expected<void> Catalogue::save(const std::string& path) const
{
    struct Part {
        SectionId id;
        const void* data;
        std::size_t size;
    };
    std::string typeText = serializeTypes(m_types);
    std::string keyText;
    for (const std::string& key : m_importedKeys) {
        keyText += key + '\n';
    }
    const Part parts[] = {
        {kCore, m_core.data(), m_core.size_bytes()},
        {kExtra, m_extra.data(), m_extra.size_bytes()},
        {kNames, m_namesPool.data(), m_namesPool.size()},
        {kFolded, m_foldedPool.data(), m_foldedPool.size()},
        {kAttributeEntries, m_attributeEntries.data(), m_attributeEntries.size_bytes()},
        {kAttributeValues, m_attributeValues.data(), m_attributeValues.size()},
        {kTypes, typeText.data(), typeText.size()},
        {kTrigrams, m_trigrams.data(), m_trigrams.size_bytes()},
        {kPostings, m_postings.data(), m_postings.size()},
        {kImportedKeys, keyText.data(), keyText.size()},
        {kIds, m_ids.data(), m_ids.size_bytes()},
        {kIdOrder, m_byId.data(), m_byId.size_bytes()},
    };
    constexpr std::size_t kParts = std::size(parts);
    std::vector<Section> sections(kParts);
    std::uint64_t offset = sizeof(Header) + kParts * sizeof(Section);
    for (std::size_t i = 0; i < kParts; ++i) {
        offset = (offset + 7) & ~std::uint64_t{7};
        sections[i] = {parts[i].id, sectionChecksum(parts[i].data, parts[i].size), offset, parts[i].size};
        offset += parts[i].size;
    }
    Header header{};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.version = kSnapshotVersion;
    header.headerSize = sizeof(Header);
    header.generation = m_generation;
    header.itemCount = size();
    header.sectionCount = kParts;
    header.sectionTableChecksum = fnv1a(sections.data(), sections.size() * sizeof(Section));
    header.fileSize = offset;

    const std::string temporary = path + ".writing-" + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return Failure{Failure::Kind::Io, "cannot write the catalogue " + temporary + ": " + std::strerror(errno)};
    }
    auto writeAll = [fd](const void* data, std::size_t size) {
        const char* p = static_cast<const char*>(data);
        while (size > 0) {
            const ssize_t written = ::write(fd, p, size);
            if (written < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return false;
            }
            p += written;
            size -= static_cast<std::size_t>(written);
        }
        return true;
    };
    bool ok = writeAll(&header, sizeof header) && writeAll(sections.data(), sections.size() * sizeof(Section));
    std::uint64_t position = sizeof(Header) + kParts * sizeof(Section);
    static const char zeros[8] = {};
    for (std::size_t i = 0; ok && i < kParts; ++i) {
        ok = writeAll(zeros, sections[i].offset - position) && writeAll(parts[i].data, parts[i].size);
        position = sections[i].offset + parts[i].size;
    }
    ok = ok && ::fsync(fd) == 0;
    const int savedErrno = errno;
    ::close(fd);
    if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0) {
        const int err = ok ? errno : savedErrno;
        ::unlink(temporary.c_str());
        return Failure{Failure::Kind::Io, "cannot write the catalogue " + path + ": " + std::strerror(err)};
    }
    return {};
}

std::optional<std::int64_t> Catalogue::snapshotGeneration(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    Header header{};
    const ssize_t got = ::pread(fd, &header, sizeof header, 0);
    ::close(fd);
    if (got != static_cast<ssize_t>(sizeof header) || std::memcmp(header.magic, kMagic, sizeof kMagic) != 0
        || header.version != kSnapshotVersion) {
        return std::nullopt;
    }
    return header.generation;
}

Expected<std::shared_ptr<const Catalogue>> Catalogue::open(const std::string& path, const std::string& databasePath)
{
    auto damaged = [&](const std::string& why) {
        return Failure{Failure::Kind::Corrupt, "catalogue " + path + " is damaged: " + why};
    };
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return Failure{Failure::Kind::Io, "cannot open the catalogue " + path + ": " + std::strerror(errno)};
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || st.st_size < static_cast<off_t>(sizeof(Header))) {
        ::close(fd);
        return damaged("too short");
    }
    const auto fileSize = static_cast<std::size_t>(st.st_size);
    void* mapping = ::mmap(nullptr, fileSize, PROT_READ, MAP_SHARED, fd, 0);
    ::close(fd);
    if (mapping == MAP_FAILED) {
        return Failure{Failure::Kind::Io, "cannot map the catalogue " + path + ": " + std::strerror(errno)};
    }
    auto catalogue = std::shared_ptr<Catalogue>(new Catalogue);
    catalogue->m_mapping = mapping;
    catalogue->m_mappingSize = fileSize;
    const char* base = static_cast<const char*>(mapping);

    // The header and the section table, whatever the size.
    Header header{};
    std::memcpy(&header, base, sizeof header);
    if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0) {
        return damaged("not a Trovara catalogue");
    }
    if (header.version != kSnapshotVersion) {
        return Failure{Failure::Kind::Version, "catalogue " + path + " has format version "
                                                   + std::to_string(header.version)};
    }
    if (header.headerSize != sizeof(Header) || header.fileSize != fileSize || header.sectionCount > 64
        || sizeof(Header) + header.sectionCount * sizeof(Section) > fileSize) {
        return damaged("bad header");
    }
    const auto* sections = reinterpret_cast<const Section*>(base + sizeof(Header));
    if (fnv1a(sections, header.sectionCount * sizeof(Section)) != header.sectionTableChecksum) {
        return damaged("bad section table");
    }
    std::vector<const Section*> used;
    auto section = [&](SectionId id, std::size_t elementSize) -> std::optional<std::string_view> {
        for (std::uint32_t i = 0; i < header.sectionCount; ++i) {
            const Section& s = sections[i];
            if (s.id != id) {
                continue;
            }
            if (s.offset > fileSize || s.size > fileSize - s.offset || s.offset % 8 != 0 || s.size % elementSize) {
                return std::nullopt;
            }
            used.push_back(&s);
            return std::string_view(base + s.offset, s.size);
        }
        return std::nullopt;
    };
    const auto core = section(kCore, sizeof(CoreRecord));
    const auto extra = section(kExtra, sizeof(ExtraRecord));
    const auto names = section(kNames, 1);
    const auto folded = section(kFolded, 1);
    const auto entries = section(kAttributeEntries, sizeof(AttributeEntry));
    const auto values = section(kAttributeValues, 1);
    const auto types = section(kTypes, 1);
    const auto trigrams = section(kTrigrams, sizeof(Trigram));
    const auto postings = section(kPostings, 1);
    const auto importedKeys = section(kImportedKeys, 1);
    const auto ids = section(kIds, sizeof(std::int64_t));
    const auto idOrder = section(kIdOrder, sizeof(ItemIndex));
    if (!core || !extra || !names || !folded || !entries || !values || !types || !trigrams || !postings
        || !importedKeys || !ids || !idOrder) {
        return damaged("missing or misplaced section");
    }
    const std::size_t count = core->size() / sizeof(CoreRecord);
    if (count != header.itemCount || extra->size() / sizeof(ExtraRecord) != count
        || ids->size() / sizeof(std::int64_t) != count || idOrder->size() / sizeof(ItemIndex) != count
        || (count && (names->empty() || names->back() != '\0' || folded->empty() || folded->back() != '\0'))
        || (!importedKeys->empty() && importedKeys->back() != '\n')) {
        return damaged("inconsistent sizes");
    }

    // The contents, once per version of the file (see Identity).
    const Identity identity = identityOf(st, header.sectionTableChecksum);
    const std::string stamp = path + ".checked";
    const bool checked = checkedBefore(stamp, identity);
    if (!checked) {
        for (const Section* s : used) {
            if (sectionChecksum(base + s->offset, s->size) != s->checksum) {
                return damaged("section " + std::to_string(s->id) + " does not match its checksum");
            }
        }
    }

    for (std::size_t start = 0; start < importedKeys->size();) {
        const std::size_t end = importedKeys->find('\n', start);
        catalogue->m_importedKeys.emplace_back(importedKeys->substr(start, end - start));
        start = end + 1;
    }
    std::optional<std::vector<TypeInfo>> typeList = parseTypes(*types);
    if (!typeList) {
        return damaged("bad type table");
    }
    catalogue->m_types = std::move(*typeList);
    catalogue->m_databasePath = databasePath;
    catalogue->m_generation = header.generation;
    catalogue->m_ids = {reinterpret_cast<const std::int64_t*>(ids->data()), count};
    catalogue->m_byId = {reinterpret_cast<const ItemIndex*>(idOrder->data()), count};
    catalogue->m_core = {reinterpret_cast<const CoreRecord*>(core->data()), count};
    catalogue->m_extra = {reinterpret_cast<const ExtraRecord*>(extra->data()), count};
    catalogue->m_namesPool = *names;
    catalogue->m_foldedPool = *folded;
    catalogue->m_attributeEntries = {reinterpret_cast<const AttributeEntry*>(entries->data()),
                                     entries->size() / sizeof(AttributeEntry)};
    catalogue->m_attributeValues = *values;
    catalogue->m_trigrams = {reinterpret_cast<const Trigram*>(trigrams->data()), trigrams->size() / sizeof(Trigram)};
    catalogue->m_postings = *postings;
    if (checked) {
        return std::shared_ptr<const Catalogue>(std::move(catalogue));
    }

    // Every reference must stay inside the file, so that a snapshot written
    // by a faulty program can give wrong answers at worst, never a crash.
    for (ItemIndex i = 0; i < count; ++i) {
        if (catalogue->m_byId[i] >= count
            || (i > 0 && catalogue->m_ids[catalogue->m_byId[i]] < catalogue->m_ids[catalogue->m_byId[i - 1]])) {
            return damaged("bad id order");
        }
    }
    const auto typeCount = catalogue->m_types.size();
    for (ItemIndex i = 0; i < count; ++i) {
        const CoreRecord& r = catalogue->m_core[i];
        const bool parentOk = r.parent == kNoItem ? (r.flags & item_flags::kRoot) : r.parent < i;
        if (!parentOk || r.subtreeEnd <= i || r.subtreeEnd > count || r.name >= names->size()
            || r.folded >= folded->size() || r.type >= typeCount
            || (r.attributes != kNoItem && r.attributes >= catalogue->m_attributeEntries.size())) {
            return damaged("bad item record " + std::to_string(i));
        }
    }
    for (const AttributeEntry& entry : catalogue->m_attributeEntries) {
        const auto key = static_cast<std::uint16_t>(entry.key);
        if (entry.item >= count || entry.value > values->size() || entry.length > values->size() - entry.value
            || (key >= kFirstImportedKey && static_cast<std::size_t>(key - kFirstImportedKey) >= catalogue->m_importedKeys.size())) {
            return damaged("bad attribute entry");
        }
    }
    for (const Trigram& trigram : catalogue->m_trigrams) {
        if (trigram.offset > postings->size()) {
            return damaged("bad trigram entry");
        }
    }
    recordChecked(stamp, identity);
    return std::shared_ptr<const Catalogue>(std::move(catalogue));
}

std::string_view Catalogue::name(ItemIndex i) const
{
    const std::string_view stored(m_namesPool.data() + m_core[i].name);
    return (m_core[i].flags & item_flags::kRoot) ? lastComponent(stored) : stored;
}

std::string_view Catalogue::foldedName(ItemIndex i) const
{
    return std::string_view(m_foldedPool.data() + m_core[i].folded);
}

std::string Catalogue::path(ItemIndex i) const
{
    std::vector<ItemIndex> chain;
    for (ItemIndex at = i; at != kNoItem; at = m_core[at].parent) {
        chain.push_back(at);
        if (m_core[at].flags & item_flags::kRoot) {
            break;
        }
    }
    std::string result;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        const std::string_view stored(m_namesPool.data() + m_core[*it].name);
        if (it == chain.rbegin()) {
            result = stored;
        } else {
            if (result.empty() || result.back() != '/') {
                result += '/';
            }
            result += stored;
        }
    }
    return result;
}

std::optional<int> Catalogue::label(ItemIndex i) const
{
    const std::uint16_t flags = m_core[i].flags;
    if (!(flags & item_flags::kHasLabel)) {
        return std::nullopt;
    }
    return (flags & item_flags::kLabelMask) >> item_flags::kLabelShift;
}

std::optional<std::string_view> Catalogue::attribute(ItemIndex i, AttributeKey key) const
{
    for (std::uint32_t e = m_core[i].attributes; e != kNoItem && e < m_attributeEntries.size()
                                                 && m_attributeEntries[e].item == i;
         ++e) {
        const AttributeEntry& entry = m_attributeEntries[e];
        if (entry.key == key) {
            return m_attributeValues.substr(entry.value, entry.length);
        }
    }
    return std::nullopt;
}

std::optional<std::uint16_t> Catalogue::importedKey(std::string_view key) const
{
    const auto it = std::lower_bound(m_importedKeys.begin(), m_importedKeys.end(), key);
    if (it == m_importedKeys.end() || *it != key) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(kFirstImportedKey + (it - m_importedKeys.begin()));
}

std::optional<query::AttributeValue> Catalogue::importedAttribute(ItemIndex i, std::uint16_t key) const
{
    const std::optional<std::string_view> value = attribute(i, static_cast<AttributeKey>(key));
    return value ? decodeImportedValue(*value) : std::nullopt;
}

std::optional<query::AttributeValue> Catalogue::importedAttribute(ItemIndex i, std::string_view key) const
{
    const std::optional<std::uint16_t> number = importedKey(key);
    return number ? importedAttribute(i, *number) : std::nullopt;
}

void Catalogue::forEachImportedAttribute(
    ItemIndex i, const std::function<void(std::string_view key, query::AttributeValue&&)>& visit) const
{
    for (std::uint32_t e = m_core[i].attributes; e != kNoItem && e < m_attributeEntries.size()
                                                 && m_attributeEntries[e].item == i;
         ++e) {
        const auto key = static_cast<std::uint16_t>(m_attributeEntries[e].key);
        if (key < kFirstImportedKey) {
            continue;
        }
        if (std::optional<query::AttributeValue> value =
                decodeImportedValue(m_attributeValues.substr(m_attributeEntries[e].value, m_attributeEntries[e].length))) {
            visit(m_importedKeys[key - kFirstImportedKey], std::move(*value));
        }
    }
}

std::optional<ItemIndex> Catalogue::itemWithStoreId(std::int64_t id) const
{
    const auto it = std::lower_bound(m_byId.begin(), m_byId.end(), id,
                                     [&](ItemIndex item, std::int64_t wanted) { return m_ids[item] < wanted; });
    if (it == m_byId.end() || m_ids[*it] != id) {
        return std::nullopt;
    }
    return *it;
}

std::vector<ItemIndex> Catalogue::roots() const
{
    std::vector<ItemIndex> list;
    for (ItemIndex i = 0; i < size(); i = m_core[i].subtreeEnd) {
        list.push_back(i);
    }
    return list;
}

std::optional<ItemIndex> Catalogue::find(std::string_view path) const
{
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    for (ItemIndex root : roots()) {
        std::string_view rootPath(m_namesPool.data() + m_core[root].name);
        std::string_view rest;
        if (path == rootPath) {
            return root;
        }
        if (rootPath == "/") {
            rest = path.substr(1);
        } else if (path.size() > rootPath.size() && path.substr(0, rootPath.size()) == rootPath
                   && path[rootPath.size()] == '/') {
            rest = path.substr(rootPath.size() + 1);
        } else {
            continue;
        }
        ItemIndex at = root;
        while (!rest.empty()) {
            const std::size_t slash = rest.find('/');
            const std::string_view component = rest.substr(0, slash);
            ItemIndex found = kNoItem;
            for (ItemIndex child = at + 1; child < m_core[at].subtreeEnd; child = m_core[child].subtreeEnd) {
                if (std::string_view(m_namesPool.data() + m_core[child].name) == component) {
                    found = child;
                    break;
                }
            }
            if (found == kNoItem) {
                return std::nullopt;
            }
            at = found;
            rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
            while (!rest.empty() && rest.front() == '/') {
                rest.remove_prefix(1);
            }
        }
        return at;
    }
    return std::nullopt;
}

std::optional<std::vector<ItemIndex>> Catalogue::itemsWhoseFoldedNameContains(std::string_view text) const
{
    if (text.size() < 3) {
        return std::nullopt;
    }
    // Gather the distinct trigrams with their posting counts; intersect
    // starting from the rarest.
    std::vector<const Trigram*> uses;
    for (std::size_t j = 0; j + 3 <= text.size(); ++j) {
        const std::uint32_t key = trigramKey(text.data() + j);
        auto it = std::lower_bound(m_trigrams.begin(), m_trigrams.end(), key,
                                   [](const Trigram& t, std::uint32_t k) { return t.key < k; });
        if (it == m_trigrams.end() || it->key != key) {
            return std::vector<ItemIndex>{};
        }
        if (std::find(uses.begin(), uses.end(), &*it) == uses.end()) {
            uses.push_back(&*it);
        }
    }
    std::sort(uses.begin(), uses.end(), [](const Trigram* a, const Trigram* b) { return a->count < b->count; });
    std::vector<ItemIndex> result;
    std::vector<ItemIndex> next;
    std::vector<ItemIndex> decoded;
    for (std::size_t u = 0; u < uses.size(); ++u) {
        const Trigram& trigram = *uses[u];
        if (!decodePostings(m_postings.substr(trigram.offset), trigram.count, size(), decoded)) {
            return std::vector<ItemIndex>{};
        }
        if (u == 0) {
            result.swap(decoded);
        } else {
            next.clear();
            std::set_intersection(result.begin(), result.end(), decoded.begin(), decoded.end(),
                                  std::back_inserter(next));
            result.swap(next);
        }
        if (result.empty()) {
            break;
        }
    }
    // Trigrams are necessary, not sufficient: keep only real containment.
    std::erase_if(result, [&](ItemIndex i) { return foldedName(i).find(text) == std::string_view::npos; });
    return result;
}

Catalogue::Footprint Catalogue::footprint() const
{
    Footprint f;
    f.core = m_core.size_bytes();
    f.extra = m_extra.size_bytes();
    f.names = m_namesPool.size();
    f.folded = m_foldedPool.size();
    f.trigrams = m_trigrams.size_bytes() + m_postings.size();
    f.other = m_attributeEntries.size_bytes() + m_attributeValues.size() + m_ids.size_bytes() + m_byId.size_bytes();
    return f;
}

}  // namespace trovara::index
