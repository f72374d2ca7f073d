// One hit of a live query, as the result views list it.
//
// A ResultItem wraps the index's record of the file (an index::ItemRef) and
// belongs to one document. It answers attribute values by key for the
// result columns, the inspector and the previews, reading each from the
// record on first demand and keeping it: an attribute the record does not
// have is remembered as missing, so it is asked for only once. Every read
// is guarded: a failure is logged ("key - reason") and the value stays
// empty; nothing reaches the user.
//
// The six named properties (path, URL, display name, parent folder, icon,
// modification date) are loaded at most once each, whatever the outcome: a
// value that failed to load stays empty for the life of the item. When the
// file changes, the live query hands the item its new record
// (setMetaDataItem()), and the item forgets everything it had read.
//
// Identity: items have no equality of their own; two items for the same
// file (from two queries, or a copy) are different items.
//
// Besides, an item is what is dragged or copied (a file URL and the plain
// path), shown in the image grid and the preview panel, and addressed by
// scripts (under "results" of its document, by path; scripts cannot change
// it).
//
// Thread safety: made in the query's result callback and used on the main
// thread only; nothing is locked.
#pragma once

#include "index/live/item_ref.h"
#include "presentation/sort_descriptor.h"

#include <QDateTime>
#include <QHash>
#include <QMimeData>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace trovara::query {

class QueryDocument;

class ResultItem {
public:
    // The pasteboard forms of a result, in the order offered.
    static constexpr const char* kFileURLType = "text/uri-list";
    static constexpr const char* kPlainTextType = "text/plain";
    // How the image grid is to show an item: the preview of its path.
    static constexpr const char* kQuickLookPathRepresentationType = "QuickLookPath";

    ResultItem(index::ItemRef metaDataItem, QueryDocument* owningDocument);
    ResultItem(const ResultItem&) = delete;
    ResultItem& operator=(const ResultItem&) = delete;

    // A new item on the same record and document, with nothing read yet.
    std::shared_ptr<ResultItem> copy() const;

    const index::ItemRef& metaDataItem() const { return m_metaDataItem; }
    void setMetaDataItem(index::ItemRef item);
    QueryDocument* owningDocument() const { return m_owningDocument; }

    // kMDItemPath.
    const QString& path() const;
    // A file URL of path(), or an empty URL without one.
    const QUrl& pathURL() const;
    // kMDItemDisplayName, else the last component of the path.
    const QString& displayName() const;
    // kMDItemContentModificationDate, else the file's modification time.
    const QDateTime& modificationDate() const;
    // The path of the enclosing folder.
    const QString& parent() const;
    // The freedesktop icon name of the file's type ("text-plain",
    // "inode-directory" …); the widgets look the icon up in the theme.
    const QString& iconName() const;

    // The value of an attribute, by key: kMDItemDisplayName and
    // kMDItemContentModificationDate (and the property names displayName,
    // path, pathURL, parent, modificationDate) answer the properties above;
    // any other key is read from the record once and kept. No value: an
    // invalid QVariant.
    QVariant valueForKey(const QString& key) const;
    // A key, or "key.@firstObject": the first element of a list value (a
    // single value stands for itself).
    QVariant valueForKeyPath(const QString& keyPath) const;

    // The collation key of a text value by key path (as valueForKeyPath()),
    // for sorting in the user's locale; nullptr when the value is absent or
    // not a text. Kept until the item forgets its values or the locale
    // changes, so sorting the same column again makes no keys.
    const presentation::LocalizedSortKey* localizedSortKey(const QString& keyPath, quint64 generation) const;

    // Every attribute as rows for the inspector (MetaDataItemTransformer).
    QVariantList values() const;
    // The path.
    QString description() const { return path(); }

    // The image grid's item.
    QString imageUID() const { return path(); }
    static QString imageRepresentationType() { return QString::fromLatin1(kQuickLookPathRepresentationType); }
    QString imageRepresentation() const { return path(); }
    QString imageTitle() const { return displayName(); }

    // The preview panel's item.
    QUrl previewItemURL() const { return pathURL(); }
    QString previewItemTitle() const { return displayName(); }

    // The file URL form, then the plain path.
    static QStringList writableTypesForPasteboard();
    // pathURL() for the file URL form, path() for plain text, nothing else.
    QVariant pasteboardPropertyListForType(const QString& type) const;
    // The items as one drag or copy: their file URLs, then their paths one
    // per line. The caller owns the result.
    static QMimeData* mimeDataForItems(const std::vector<const ResultItem*>& items);

    // How scripts name an item: by its path, under "results" of its
    // document (class "docu").
    struct ObjectSpecifier {
        QString containerClass;
        const QueryDocument* container = nullptr;
        QString key;
        QString uniqueID;
    };
    ObjectSpecifier objectSpecifier() const;
    QString uniqueID() const { return path(); }
    // Results are read-only to scripts: each of these changes nothing and
    // fails the current script command with kScriptWriteDeniedError.
    void setName(const QString& name);
    void setDocument(QueryDocument* document);
    void setUniqueID(const QString& uniqueID);

    // Reads of the record go through this function (tests make them count
    // or fail); an empty one restores the record's own reads.
    using AttributeReader =
        std::function<std::optional<index::query::AttributeValue>(const index::ItemRef&, std::string_view key)>;
    static void setAttributeReaderForTesting(AttributeReader reader);

private:
    // The attribute's value (invalid when the record has none), or nothing
    // when reading failed (logged).
    std::optional<QVariant> readAttribute(const QString& key) const;
    QString readText(const char* key) const;
    void forget();

    index::ItemRef m_metaDataItem;
    QueryDocument* m_owningDocument;
    // Values read so far, by key; an invalid value: the record has none.
    // A plain list: an item is asked for a handful of keys (its columns),
    // and a hash table would cost some kilobytes per item.
    mutable std::vector<std::pair<QString, QVariant>> m_cache;
    mutable QString m_displayName;
    mutable QString m_path;
    mutable QString m_parent;
    mutable QString m_iconName;
    mutable QUrl m_pathURL;
    mutable QDateTime m_modificationDate;
    struct CachedSortKey {
        QString keyPath;
        quint64 generation;
        std::optional<presentation::LocalizedSortKey> key;
    };
    mutable std::vector<CachedSortKey> m_sortKeys;  // one per column sorted by
    // One bit per property still to load (all set at creation); a bit is
    // cleared on the first request, whatever the outcome.
    enum NeedsLoading : std::uint8_t {
        kNeedsLoadingDisplayName = 1 << 0,
        kNeedsLoadingPath = 1 << 1,
        kNeedsLoadingPathURL = 1 << 2,
        kNeedsLoadingParent = 1 << 3,
        kNeedsLoadingIcon = 1 << 4,
        kNeedsLoadingModificationDate = 1 << 5,
        kNeedsLoadingAll = (1 << 6) - 1,
    };
    // Clears the bit and tells whether it was set.
    bool takeNeedsLoading(NeedsLoading bit) const
    {
        const bool set = (m_needsLoading & bit) != 0;
        m_needsLoading = static_cast<std::uint8_t>(m_needsLoading & ~bit);
        return set;
    }
    mutable std::uint8_t m_needsLoading = kNeedsLoadingAll;
};

}  // namespace trovara::query
