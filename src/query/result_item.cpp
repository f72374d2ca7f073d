#include "query/result_item.h"

#include "common/log.h"
#include "model/value_text.h"
#include "presentation/metadata_item_transformer.h"
#include "presentation/metadata_value.h"
#include "query/script_command.h"

#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QTimeZone>

#include <sys/stat.h>

#include <algorithm>
#include <exception>

namespace trovara::query {

namespace {

ResultItem::AttributeReader& attributeReader()
{
    static ResultItem::AttributeReader reader;
    return reader;
}

const QString kDisplayNameKey = QStringLiteral("kMDItemDisplayName");
const QString kModificationDateKey = QStringLiteral("kMDItemContentModificationDate");
const QString kFirstObjectSuffix = QStringLiteral(".@firstObject");

QString lastPathComponent(const QString& path)
{
    if (path == QLatin1String("/")) {
        return path;
    }
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

QString deletingLastPathComponent(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash < 0) {
        return QString(QLatin1String(""));
    }
    return slash == 0 ? QStringLiteral("/") : path.left(slash);
}

QDateTime fileModificationDate(const QString& path)
{
    struct stat status {};
    if (path.isEmpty() || ::lstat(QFile::encodeName(path).constData(), &status) != 0) {
        return {};
    }
    const qint64 milliseconds =
        static_cast<qint64>(status.st_mtim.tv_sec) * 1000 + static_cast<qint64>(status.st_mtim.tv_nsec) / 1000000;
    return QDateTime::fromMSecsSinceEpoch(milliseconds, QTimeZone::utc());
}

}  // namespace

ResultItem::ResultItem(index::ItemRef metaDataItem, QueryDocument* owningDocument)
    : m_metaDataItem(std::move(metaDataItem))
    , m_owningDocument(owningDocument)
{
    forget();
}

std::shared_ptr<ResultItem> ResultItem::copy() const
{
    return std::make_shared<ResultItem>(m_metaDataItem, m_owningDocument);
}

void ResultItem::setMetaDataItem(index::ItemRef item)
{
    m_metaDataItem = std::move(item);
    forget();
}

void ResultItem::forget()
{
    m_cache = {};
    m_displayName = {};
    m_path = {};
    m_parent = {};
    m_iconName = {};
    m_pathURL = QUrl();
    m_modificationDate = QDateTime();
    m_sortKeys.clear();
    m_needsLoading = kNeedsLoadingAll;
}

std::optional<QVariant> ResultItem::readAttribute(const QString& key) const
{
    try {
        const std::string stdKey = key.toStdString();
        const std::optional<index::query::AttributeValue> value =
            attributeReader() ? attributeReader()(m_metaDataItem, stdKey) : m_metaDataItem.attribute(stdKey);
        return value ? presentation::variantFromAttributeValue(*value) : QVariant();
    } catch (const std::exception& exception) {
        TLOG(QStringLiteral("%1 - %2").arg(key, QString::fromLocal8Bit(exception.what())));
        return std::nullopt;
    }
}

QString ResultItem::readText(const char* key) const
{
    const std::optional<QVariant> value = readAttribute(QString::fromLatin1(key));
    return value && value->isValid() ? value->toString() : QString();
}

const QString& ResultItem::path() const
{
    if (takeNeedsLoading(kNeedsLoadingPath) && m_path.isNull()) {
        m_path = readText("kMDItemPath");
    }
    return m_path;
}

const QUrl& ResultItem::pathURL() const
{
    if (takeNeedsLoading(kNeedsLoadingPathURL) && m_pathURL.isEmpty()) {
        try {
            if (!path().isNull()) {
                m_pathURL = QUrl::fromLocalFile(path());
            }
        } catch (const std::exception& exception) {
            TLOG(QStringLiteral("pathURL - %1").arg(QString::fromLocal8Bit(exception.what())));
        }
    }
    return m_pathURL;
}

const QString& ResultItem::displayName() const
{
    if (takeNeedsLoading(kNeedsLoadingDisplayName) && m_displayName.isNull()) {
        m_displayName = readText("kMDItemDisplayName");
        if (m_displayName.isEmpty() && !path().isNull()) {
            m_displayName = lastPathComponent(path());
        }
    }
    return m_displayName;
}

const QDateTime& ResultItem::modificationDate() const
{
    if (takeNeedsLoading(kNeedsLoadingModificationDate) && !m_modificationDate.isValid()) {
        const std::optional<QVariant> value = readAttribute(kModificationDateKey);
        if (value && value->isValid()) {
            m_modificationDate = value->toDateTime();
        }
        if (!m_modificationDate.isValid()) {
            m_modificationDate = fileModificationDate(path());
        }
    }
    return m_modificationDate;
}

const QString& ResultItem::parent() const
{
    if (takeNeedsLoading(kNeedsLoadingParent) && m_parent.isNull() && !path().isNull()) {
        m_parent = deletingLastPathComponent(path());
    }
    return m_parent;
}

const QString& ResultItem::iconName() const
{
    if (takeNeedsLoading(kNeedsLoadingIcon) && m_iconName.isNull() && !path().isEmpty()) {
        static const QMimeDatabase types;
        m_iconName = types.mimeTypeForFile(QFileInfo(path()), QMimeDatabase::MatchExtension).iconName();
    }
    return m_iconName;
}

QVariant ResultItem::valueForKey(const QString& key) const
{
    if (key == kDisplayNameKey || key == QLatin1String("displayName")) {
        return displayName();
    }
    if (key == kModificationDateKey || key == QLatin1String("modificationDate")) {
        return modificationDate();
    }
    if (key == QLatin1String("path")) {
        return path();
    }
    if (key == QLatin1String("pathURL")) {
        return pathURL();
    }
    if (key == QLatin1String("parent")) {
        return parent();
    }
    const auto cached = std::find_if(m_cache.begin(), m_cache.end(),
                                     [&](const std::pair<QString, QVariant>& entry) { return entry.first == key; });
    if (cached != m_cache.end()) {
        return cached->second;
    }
    const std::optional<QVariant> value = readAttribute(key);
    if (!value) {
        return {};  // not kept: the next request reads again
    }
    m_cache.emplace_back(key, *value);
    return *value;
}

QVariant ResultItem::valueForKeyPath(const QString& keyPath) const
{
    if (!keyPath.endsWith(kFirstObjectSuffix)) {
        return valueForKey(keyPath);
    }
    const QVariant value = valueForKey(keyPath.left(keyPath.size() - kFirstObjectSuffix.size()));
    if (value.metaType() == QMetaType::fromType<QVariantList>()) {
        const QVariantList list = value.toList();
        return list.isEmpty() ? QVariant() : list.front();
    }
    return value;
}

const presentation::LocalizedSortKey* ResultItem::localizedSortKey(const QString& keyPath, quint64 generation) const
{
    auto cached = std::find_if(m_sortKeys.begin(), m_sortKeys.end(),
                               [&](const CachedSortKey& entry) { return entry.keyPath == keyPath; });
    if (cached == m_sortKeys.end()) {
        cached = m_sortKeys.insert(m_sortKeys.end(), CachedSortKey{keyPath, 0, std::nullopt});
    }
    if (cached->generation != generation) {
        const QVariant value = valueForKeyPath(keyPath);
        cached->generation = generation;
        cached->key.reset();
        if (model::isText(value) && !value.isNull()) {
            cached->key.emplace(value.toString());
        }
    }
    return cached->key ? &*cached->key : nullptr;
}

QVariantList ResultItem::values() const
{
    return presentation::MetaDataItemTransformer::sharedInstance()->rowsForItem(m_metaDataItem);
}

QStringList ResultItem::writableTypesForPasteboard()
{
    return {QString::fromLatin1(kFileURLType), QString::fromLatin1(kPlainTextType)};
}

QVariant ResultItem::pasteboardPropertyListForType(const QString& type) const
{
    if (type == QLatin1String(kFileURLType)) {
        return pathURL();
    }
    if (type == QLatin1String(kPlainTextType)) {
        return path();
    }
    return {};
}

QMimeData* ResultItem::mimeDataForItems(const std::vector<const ResultItem*>& items)
{
    QList<QUrl> urls;
    QStringList paths;
    for (const ResultItem* item : items) {
        urls.push_back(item->pathURL());
        paths.push_back(item->path());
    }
    auto* data = new QMimeData;
    data->setUrls(urls);
    data->setText(paths.join(QLatin1Char('\n')));
    return data;
}

ResultItem::ObjectSpecifier ResultItem::objectSpecifier() const
{
    return {QStringLiteral("docu"), m_owningDocument, QStringLiteral("results"), uniqueID()};
}

namespace {

void denyScriptWrite()
{
    if (ScriptCommand* command = ScriptCommand::currentCommand()) {
        command->setScriptErrorNumber(kScriptWriteDeniedError);
    }
}

}  // namespace

void ResultItem::setName(const QString&)
{
    denyScriptWrite();
}

void ResultItem::setDocument(QueryDocument*)
{
    denyScriptWrite();
}

void ResultItem::setUniqueID(const QString&)
{
    denyScriptWrite();
}

void ResultItem::setAttributeReaderForTesting(AttributeReader reader)
{
    attributeReader() = std::move(reader);
}

}  // namespace trovara::query
