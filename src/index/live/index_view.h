// What searches see of a running index: the catalogue as last built, less
// what has gone or changed since, plus the items read from disk since.
//
// A view is immutable; applying changes makes a new one (the changes kept
// apart from the catalogue stay few: the index rebuilds the catalogue when
// they grow). Searching a view gives the same answer as searching a
// catalogue rebuilt from the database at that moment.
//
// Thread safety: immutable; share freely.
#pragma once

#include "index/catalogue.h"
#include "index/item_attributes.h"
#include "index/live/item_ref.h"
#include "index/query/ast.h"
#include "index/query/calendar.h"
#include "index/search.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace trovara::index {

// True when `path` is `folder` or lies below it.
bool isPathAtOrBelow(std::string_view path, std::string_view folder);

class IndexView {
public:
    explicit IndexView(std::shared_ptr<const Catalogue> base);

    const std::shared_ptr<const Catalogue>& base() const { return m_base; }
    // Items of the catalogue that are gone or replaced: sorted ranges.
    const std::vector<ItemRange>& hidden() const { return m_hidden; }
    // Items read since the catalogue was built, by path.
    const std::map<std::string, std::shared_ptr<const FileFacts>, std::less<>>& fresh() const { return m_fresh; }

    // A view in which the items at or below each removed path are gone and
    // the upserted items take the place of any item with the same path.
    std::shared_ptr<const IndexView> withChanges(const std::vector<std::string>& removed,
                                                 const std::vector<std::shared_ptr<const FileFacts>>& upserted) const;

    // Building a changed view in place, before anyone else sees it: a copy,
    // then removals and upserts in the order they happened.
    std::shared_ptr<IndexView> copy() const;
    // Removes the items at or below the path; returns their paths.
    std::vector<std::string> remove(const std::string& path);
    void upsert(std::shared_ptr<const FileFacts> facts);

    // The paths of the items at or below `path` (the path included).
    std::vector<std::string> pathsAtOrBelow(const std::string& path) const;
    // The item at the path, if the view has it.
    std::optional<ItemRef> item(const std::string& path) const;

    // Calls `found` for each item matching the query within the scope folders
    // (none: everything), until it returns false.
    void search(const query::Query& query, const query::QueryStart& start, const std::vector<std::string>& scopes,
                const std::function<bool(const ItemRef&)>& found) const;

private:
    std::shared_ptr<const Catalogue> m_base;
    std::vector<ItemRange> m_hidden;
    std::map<std::string, std::shared_ptr<const FileFacts>, std::less<>> m_fresh;
};

}  // namespace trovara::index
