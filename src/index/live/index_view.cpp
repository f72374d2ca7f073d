#include "index/live/index_view.h"

namespace trovara::index {

namespace {

// Parts of `ranges` not covered by `hidden` (both sorted, not overlapping).
std::vector<ItemRange> subtract(const std::vector<ItemRange>& ranges, const std::vector<ItemRange>& hidden)
{
    std::vector<ItemRange> result;
    std::size_t h = 0;
    for (ItemRange range : ranges) {
        while (h < hidden.size() && hidden[h].end <= range.begin) {
            ++h;
        }
        std::size_t k = h;
        while (range.begin < range.end) {
            if (k >= hidden.size() || hidden[k].begin >= range.end) {
                result.push_back(range);
                break;
            }
            if (hidden[k].begin > range.begin) {
                result.push_back({range.begin, hidden[k].begin});
            }
            range.begin = std::max(range.begin, hidden[k].end);
            ++k;
        }
    }
    return result;
}

bool isHidden(const std::vector<ItemRange>& hidden, ItemIndex item)
{
    auto it = std::upper_bound(hidden.begin(), hidden.end(), item,
                               [](ItemIndex i, const ItemRange& r) { return i < r.begin; });
    return it != hidden.begin() && item < std::prev(it)->end;
}

}  // namespace

bool isPathAtOrBelow(std::string_view path, std::string_view folder)
{
    if (folder == "/") {
        return !path.empty() && path.front() == '/';
    }
    return path == folder || (path.size() > folder.size() && path.substr(0, folder.size()) == folder
                              && path[folder.size()] == '/');
}

IndexView::IndexView(std::shared_ptr<const Catalogue> base)
    : m_base(std::move(base))
{
}

std::shared_ptr<const IndexView> IndexView::withChanges(const std::vector<std::string>& removed,
                                                       const std::vector<std::shared_ptr<const FileFacts>>& upserted) const
{
    std::shared_ptr<IndexView> view = copy();
    for (const std::string& path : removed) {
        view->remove(path);
    }
    for (const std::shared_ptr<const FileFacts>& facts : upserted) {
        view->upsert(facts);
    }
    return view;
}

std::shared_ptr<IndexView> IndexView::copy() const
{
    auto view = std::make_shared<IndexView>(m_base);
    view->m_fresh = m_fresh;
    view->m_hidden = m_hidden;
    return view;
}

std::vector<std::string> IndexView::remove(const std::string& path)
{
    std::vector<std::string> removed = pathsAtOrBelow(path);
    if (std::optional<ItemIndex> item = m_base->find(path)) {
        m_hidden.push_back({*item, m_base->core(*item).subtreeEnd});
        m_hidden = mergeRanges(std::move(m_hidden));
    }
    auto it = m_fresh.lower_bound(path);
    while (it != m_fresh.end() && isPathAtOrBelow(it->first, path)) {
        it = m_fresh.erase(it);
    }
    return removed;
}

void IndexView::upsert(std::shared_ptr<const FileFacts> facts)
{
    const std::string path = facts->path();
    if (std::optional<ItemIndex> item = m_base->find(path)) {
        m_hidden.push_back({*item, *item + 1});
        m_hidden = mergeRanges(std::move(m_hidden));
    }
    m_fresh[path] = std::move(facts);
}

std::vector<std::string> IndexView::pathsAtOrBelow(const std::string& path) const
{
    std::vector<std::string> paths;
    if (std::optional<ItemIndex> item = m_base->find(path)) {
        for (const ItemRange& range : subtract({{*item, m_base->core(*item).subtreeEnd}}, m_hidden)) {
            for (ItemIndex i = range.begin; i < range.end; ++i) {
                paths.push_back(m_base->path(i));
            }
        }
    }
    for (auto it = m_fresh.lower_bound(path); it != m_fresh.end() && isPathAtOrBelow(it->first, path); ++it) {
        paths.push_back(it->first);
    }
    return paths;
}

std::optional<ItemRef> IndexView::item(const std::string& path) const
{
    if (auto it = m_fresh.find(path); it != m_fresh.end()) {
        return ItemRef(it->second);
    }
    if (std::optional<ItemIndex> item = m_base->find(path); item && !isHidden(m_hidden, *item)) {
        return ItemRef(m_base, *item);
    }
    return std::nullopt;
}

void IndexView::search(const query::Query& query, const query::QueryStart& start,
                       const std::vector<std::string>& scopes, const std::function<bool(const ItemRef&)>& found) const
{
    const ResolvedScope scope = resolveScope(*m_base, scopes);
    const CatalogueQuery search(m_base, query, start);
    bool going = true;
    search.run(subtract(scope.ranges, m_hidden), [&](ItemIndex i) { return going = found(ItemRef(m_base, i)); });
    if (!going || m_fresh.empty()) {
        return;
    }
    const query::Evaluator evaluator(query, start);
    for (const auto& [path, facts] : m_fresh) {
        const bool inScope = scopes.empty() || std::any_of(scopes.begin(), scopes.end(), [&](const std::string& s) {
                                 return isPathAtOrBelow(path, s);
                             });
        if (!inScope) {
            continue;
        }
        const FactsItemView view(*facts);
        if (evaluator.matches(view) && !found(ItemRef(facts))) {
            return;
        }
    }
}

}  // namespace trovara::index
