// The quick filter of the result list: a text and one of four kinds, each a
// case-insensitive substring test on the result's display name or path.
//
//   tag  menu title          keeps a result when
//   100  "Filter by Name"    its display name contains the text
//   200  "Exclude by Name"   its display name does not contain the text
//   300  "Filter by Path"    its path contains the text
//   400  "Exclude by Path"   its path does not contain the text
#pragma once

#include <QString>

#include <array>

namespace trovara::query {

class ResultItem;

struct FilterKind {
    int tag;
    const char* title;
    // The filter in the predicate notation of the result list, with %@ for
    // the text (for messages and logs).
    const char* predicateFormat;
    bool byPath;
    bool excludes;
};

inline constexpr int kFilterByName = 100;
inline constexpr int kExcludeByName = 200;
inline constexpr int kFilterByPath = 300;
inline constexpr int kExcludeByPath = 400;

// The four kinds, in tag order.
const std::array<FilterKind, 4>& filterKinds();
// The kind with the tag, or nullptr.
const FilterKind* filterKindForTag(int tag);
// The title of the filter menu.
inline constexpr const char* kFilterMenuTitle = "Filter Menu";

class ResultFilter {
public:
    ResultFilter(const FilterKind& kind, QString text)
        : m_kind(&kind)
        , m_text(std::move(text))
    {
    }

    const FilterKind& kind() const { return *m_kind; }
    const QString& text() const { return m_text; }
    bool matches(const ResultItem& item) const;
    // The predicate with the text filled in.
    QString predicateText() const;

private:
    const FilterKind* m_kind;
    QString m_text;
};

}  // namespace trovara::query
