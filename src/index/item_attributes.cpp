#include "index/item_attributes.h"

#include "index/list_text.h"
#include "index/text_index.h"

#include <algorithm>

namespace trovara::index {

namespace {

query::AttributeValue textList(const std::vector<std::string>& elements)
{
    std::vector<query::Scalar> scalars;
    scalars.reserve(elements.size());
    for (const std::string& element : elements) {
        scalars.emplace_back(element);
    }
    return query::AttributeValue::list(std::move(scalars));
}

}  // namespace

const std::vector<std::string>& fileSystemAttributeKeys()
{
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> list{
            "kMDItemAttributeChangeDate", "kMDItemContentCreationDate", "kMDItemContentModificationDate",
            "kMDItemContentType",         "kMDItemContentTypeTree",     "kMDItemDisplayName",
            "kMDItemFSContentChangeDate", "kMDItemFSCreationDate",      "kMDItemFSInvisible",
            "kMDItemFSLabel",             "kMDItemFSName",              "kMDItemFSNodeCount",
            "kMDItemFSOwnerGroupID",      "kMDItemFSOwnerUserID",       "kMDItemFSSize",
            "kMDItemFinderComment",       "kMDItemKind",                "kMDItemLastUsedDate",
            "kMDItemOMUserTags",          "kMDItemPath",                "kMDItemUserTags",
            "kMDItemWhereFroms",          "kOMUserTags",
        };
        std::sort(list.begin(), list.end());
        return list;
    }();
    return keys;
}

std::optional<query::AttributeValue> fileSystemAttribute(std::string_view key, const ItemFacts& facts)
{
    if (key.size() < 6) {
        return std::nullopt;
    }
    const bool folder = facts.kind() == FileKind::Directory;
    if (key == "kMDItemDisplayName" || key == "kMDItemFSName") {
        return query::AttributeValue(std::string(facts.name()));
    }
    if (key == "kMDItemPath") {
        return query::AttributeValue(facts.path());
    }
    if (key == "kMDItemFSSize") {
        if (folder) {
            return std::nullopt;  // folders have an entry count, not a size
        }
        return query::AttributeValue(facts.size());
    }
    if (key == "kMDItemFSNodeCount") {
        if (!folder) {
            return std::nullopt;
        }
        return query::AttributeValue(facts.nodeCount());
    }
    if (key == "kMDItemFSCreationDate" || key == "kMDItemContentCreationDate") {
        return query::AttributeValue(dateOf(facts.created()));
    }
    if (key == "kMDItemFSContentChangeDate" || key == "kMDItemContentModificationDate") {
        return query::AttributeValue(dateOf(facts.modified()));
    }
    if (key == "kMDItemAttributeChangeDate") {
        return query::AttributeValue(dateOf(facts.changed()));
    }
    if (key == "kMDItemLastUsedDate") {
        if (facts.lastUsed() == 0) {
            return std::nullopt;
        }
        return query::AttributeValue(dateOf(facts.lastUsed()));
    }
    if (key == "kMDItemKind") {
        return query::AttributeValue(facts.type().kind);
    }
    if (key == "kMDItemContentType") {
        return query::AttributeValue(facts.type().identifier);
    }
    if (key == "kMDItemContentTypeTree") {
        return textList(facts.type().tree);
    }
    if (key == "kMDItemFSInvisible") {
        return query::AttributeValue(facts.invisible());
    }
    if (key == "kMDItemFSLabel") {
        // No label is label 0, so that "label is none" finds unlabelled files.
        return query::AttributeValue(facts.label().value_or(0));
    }
    if (key == "kMDItemFSOwnerUserID") {
        return query::AttributeValue(facts.uid());
    }
    if (key == "kMDItemFSOwnerGroupID") {
        return query::AttributeValue(facts.gid());
    }
    if (key == "kMDItemFinderComment") {
        std::optional<std::string> comment = facts.comment();
        if (!comment || comment->empty()) {
            return std::nullopt;
        }
        return query::AttributeValue(std::move(*comment));
    }
    if (key == "kMDItemOMUserTags" || key == "kOMUserTags" || key == "kMDItemUserTags") {
        std::vector<std::string> tags = facts.tags();
        if (tags.empty()) {
            return std::nullopt;
        }
        return textList(tags);
    }
    if (key == "kMDItemWhereFroms") {
        std::vector<std::string> origins = facts.whereFroms();
        if (origins.empty()) {
            return std::nullopt;
        }
        return textList(origins);
    }
    return std::nullopt;
}

namespace {

// The content dates importers read (EXIF, PDF …) come before the file's own.
bool importedFirst(std::string_view key)
{
    return key == "kMDItemContentCreationDate" || key == "kMDItemContentModificationDate";
}

}  // namespace

std::optional<query::AttributeValue> itemAttribute(std::string_view key, const ItemFacts& facts)
{
    if (importedFirst(key)) {
        if (std::optional<query::AttributeValue> imported = facts.importedAttribute(key)) {
            return imported;
        }
    }
    if (std::optional<query::AttributeValue> value = fileSystemAttribute(key, facts)) {
        return value;
    }
    if (key == "kMDItemTextContent") {
        return std::nullopt;  // searchable, never read back
    }
    return facts.importedAttribute(key);
}

std::map<std::string, query::AttributeValue> allAttributes(const ItemFacts& facts)
{
    std::map<std::string, query::AttributeValue> values;
    for (const std::string& key : fileSystemAttributeKeys()) {
        if (std::optional<query::AttributeValue> value = fileSystemAttribute(key, facts)) {
            values.emplace(key, std::move(*value));
        }
    }
    facts.forEachImportedAttribute([&](std::string_view key, query::AttributeValue&& value) {
        if (key != "kMDItemTextContent") {
            values.insert_or_assign(std::string(key), std::move(value));
        }
    });
    return values;
}

FileKind CatalogueFacts::kind() const
{
    const std::uint16_t flags = m_catalogue.core(m_item).flags;
    if (flags & item_flags::kFolder) {
        return FileKind::Directory;
    }
    if (flags & item_flags::kSymlink) {
        return FileKind::Symlink;
    }
    if (flags & item_flags::kOther) {
        return FileKind::Other;
    }
    return FileKind::Regular;
}

std::optional<std::string> CatalogueFacts::comment() const
{
    std::optional<std::string_view> value = m_catalogue.attribute(m_item, AttributeKey::Comment);
    return value ? std::optional<std::string>(std::string(*value)) : std::nullopt;
}

std::vector<std::string> CatalogueFacts::tags() const
{
    std::optional<std::string_view> value = m_catalogue.attribute(m_item, AttributeKey::Tags);
    return value ? splitList(*value) : std::vector<std::string>{};
}

std::vector<std::string> CatalogueFacts::whereFroms() const
{
    std::optional<std::string_view> value = m_catalogue.attribute(m_item, AttributeKey::WhereFroms);
    return value ? splitList(*value) : std::vector<std::string>{};
}

std::optional<std::string> CatalogueFacts::textContent() const
{
    TextIndex* text = TextIndex::forThisThread(m_catalogue.databasePath());
    if (!text) {
        return std::nullopt;
    }
    Expected<std::optional<std::string>> content = text->text(m_catalogue.storeId(m_item));
    return content ? *content : std::nullopt;
}

std::optional<query::AttributeValue> FileFacts::importedAttribute(std::string_view key) const
{
    if (!m_imported.attributes) {
        return std::nullopt;
    }
    const query::AttributeValue* value = findImported(*m_imported.attributes, key);
    return value ? std::optional<query::AttributeValue>(*value) : std::nullopt;
}

void FileFacts::forEachImportedAttribute(
    const std::function<void(std::string_view, query::AttributeValue&&)>& visit) const
{
    if (m_imported.attributes) {
        for (const ImportedAttribute& attribute : *m_imported.attributes) {
            visit(attribute.key, query::AttributeValue(attribute.value));
        }
    }
}

std::optional<std::string> FileFacts::textContent() const
{
    if (m_text) {
        return *m_text;
    }
    if (!m_imported.hasText) {
        return std::nullopt;
    }
    TextIndex* text = TextIndex::forThisThread(m_imported.databasePath);
    if (!text) {
        return std::nullopt;
    }
    Expected<std::optional<std::string>> content = text->text(m_imported.storeId);
    return content ? *content : std::nullopt;
}

FileFacts::FileFacts(std::string path, FileInfo info, FileDetails details, TypeInfo type, Nanoseconds lastUsed)
    : m_path(std::move(path))
    , m_info(std::move(info))
    , m_details(std::move(details))
    , m_type(std::move(type))
    , m_lastUsed(lastUsed)
{
}

const query::AttributeValue* FactsItemView::attribute(std::string_view key) const
{
    for (const auto& [cachedKey, value] : m_cache) {
        if (cachedKey == key) {
            return value ? &*value : nullptr;
        }
    }
    m_cache.emplace_back(std::string(key), itemAttribute(key, m_facts));
    const auto& value = m_cache.back().second;
    return value ? &*value : nullptr;
}

std::optional<std::string_view> FactsItemView::textContent() const
{
    if (!m_text) {
        m_text = m_facts.textContent();
    }
    return *m_text ? std::optional<std::string_view>(**m_text) : std::nullopt;
}

}  // namespace trovara::index
