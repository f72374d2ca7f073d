#include "query/result_filter.h"

#include "query/result_item.h"

namespace trovara::query {

const std::array<FilterKind, 4>& filterKinds()
{
    static constexpr std::array<FilterKind, 4> kinds{{
        {kFilterByName, "Filter by Name", "displayName contains[c] %@", false, false},
        {kExcludeByName, "Exclude by Name", "not (displayName contains[c] %@)", false, true},
        {kFilterByPath, "Filter by Path", "path contains[c] %@", true, false},
        {kExcludeByPath, "Exclude by Path", "not (path contains[c] %@)", true, true},
    }};
    return kinds;
}

const FilterKind* filterKindForTag(int tag)
{
    for (const FilterKind& kind : filterKinds()) {
        if (kind.tag == tag) {
            return &kind;
        }
    }
    return nullptr;
}

bool ResultFilter::matches(const ResultItem& item) const
{
    const QString& subject = m_kind->byPath ? item.path() : item.displayName();
    return subject.contains(m_text, Qt::CaseInsensitive) != m_kind->excludes;
}

QString ResultFilter::predicateText() const
{
    QString quoted = m_text;
    quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QString::fromLatin1(m_kind->predicateFormat)
        .replace(QLatin1String("%@"), QLatin1Char('"') + quoted + QLatin1Char('"'));
}

}  // namespace trovara::query
