#include "presentation/sort_descriptor.h"

#include "model/value_text.h"

#include <QCollator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>

namespace trovara::presentation {

namespace {

// The archive: {"format": "trovara-sort", "version": 1, "descriptors":
// [{"key": …, "ascending": …, "comparison": "compare" | "localizedCaseInsensitiveCompare"}]}.
const QString kFormat = QStringLiteral("trovara-sort");
constexpr int kVersion = 1;
const QString kDefaultComparison = QStringLiteral("compare");
const QString kLocalizedComparison = QStringLiteral("localizedCaseInsensitiveCompare");

int compareWith(SortDescriptor::Comparison comparison, const QVariant& a, const QVariant& b)
{
    if (comparison == SortDescriptor::Comparison::LocalizedCaseInsensitive && model::isText(a) && model::isText(b)) {
        return localizedCaseInsensitiveCompare(a.toString(), b.toString());
    }
    return store::compareValues(a, b);
}

std::atomic<quint64> g_collationGeneration{1};

// This thread's collator for the current locale.
const QCollator& localizedCollator()
{
    // Opening a collator is costly: one per thread, made again only when
    // the locale changes.
    thread_local QCollator collator(QLocale::c());
    thread_local QString localeName;
    const QLocale locale;
    if (localeName != locale.name() || localeName.isNull()) {
        if (!localeName.isNull()) {
            ++g_collationGeneration;
        }
        collator = QCollator(locale);
        collator.setCaseSensitivity(Qt::CaseInsensitive);
        localeName = locale.name();
    }
    return collator;
}

bool hasCollationRules(const QCollator& collator)
{
    return collator.locale().language() != QLocale::C;
}

int sign(int order)
{
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

QByteArray foldedKey(const QString& text)
{
    return text.toCaseFolded().toUtf8();
}

}  // namespace

int localizedCaseInsensitiveCompare(const QString& a, const QString& b)
{
    const QCollator& collator = localizedCollator();
    if (!hasCollationRules(collator)) {
        return sign(foldedKey(a).compare(foldedKey(b)));
    }
    return sign(collator.compare(a, b));
}

LocalizedSortKey::LocalizedSortKey(const QString& text)
{
    const QCollator& collator = localizedCollator();
    if (hasCollationRules(collator)) {
        m_collated = collator.sortKey(text);
    } else {
        m_folded = foldedKey(text);
    }
}

quint64 LocalizedSortKey::currentGeneration()
{
    localizedCollator();  // notices a change of locale
    return g_collationGeneration.load();
}

int LocalizedSortKey::compare(const LocalizedSortKey& other) const
{
    if (m_collated && other.m_collated) {
        return sign(m_collated->compare(*other.m_collated));
    }
    return sign(m_folded.compare(other.m_folded));
}

int SortDescriptor::compare(const QVariant& a, const QVariant& b) const
{
    const int order = compareWith(comparison, a, b);
    return ascending ? order : -order;
}

store::SortDescriptor SortDescriptor::toStoreSortDescriptor() const
{
    store::SortDescriptor descriptor{key, ascending, {}};
    if (comparison == Comparison::LocalizedCaseInsensitive) {
        descriptor.comparator = [](const QVariant& a, const QVariant& b) {
            return compareWith(Comparison::LocalizedCaseInsensitive, a, b);
        };
    }
    return descriptor;
}

QByteArray SortDescriptor::archive(const std::vector<SortDescriptor>& descriptors)
{
    QJsonArray list;
    for (const SortDescriptor& descriptor : descriptors) {
        list.append(QJsonObject{
            {QStringLiteral("key"), descriptor.key},
            {QStringLiteral("ascending"), descriptor.ascending},
            {QStringLiteral("comparison"), descriptor.comparison == Comparison::LocalizedCaseInsensitive
                                               ? kLocalizedComparison
                                               : kDefaultComparison},
        });
    }
    const QJsonObject root{
        {QStringLiteral("format"), kFormat},
        {QStringLiteral("version"), kVersion},
        {QStringLiteral("descriptors"), list},
    };
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

std::optional<std::vector<SortDescriptor>> SortDescriptor::unarchive(const QByteArray& bytes)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    if (root.value(QStringLiteral("format")).toString() != kFormat
        || root.value(QStringLiteral("version")).toInt() != kVersion
        || !root.value(QStringLiteral("descriptors")).isArray()) {
        return std::nullopt;
    }
    std::vector<SortDescriptor> descriptors;
    for (const QJsonValue& entry : root.value(QStringLiteral("descriptors")).toArray()) {
        const QJsonObject object = entry.toObject();
        const QString key = object.value(QStringLiteral("key")).toString();
        const QString comparison = object.value(QStringLiteral("comparison")).toString();
        if (key.isEmpty() || !object.value(QStringLiteral("ascending")).isBool()
            || (comparison != kDefaultComparison && comparison != kLocalizedComparison)) {
            return std::nullopt;
        }
        descriptors.push_back({key, object.value(QStringLiteral("ascending")).toBool(),
                               comparison == kLocalizedComparison ? Comparison::LocalizedCaseInsensitive
                                                                  : Comparison::Default});
    }
    return descriptors;
}

}  // namespace trovara::presentation
