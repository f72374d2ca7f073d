#include "index/search.h"

#include "index/item_attributes.h"
#include "index/list_text.h"
#include "index/query/evaluator.h"
#include "index/query/glob.h"
#include "index/text_search.h"

#include <algorithm>
#include <cstring>

namespace trovara::index {

namespace {

using query::ComparisonMatcher;
using query::Node;
using query::Scalar;

// Where a target attribute's value comes from in the catalogue. This
// mirrors fileSystemAttribute() (item_attributes.cpp), which the evaluator
// sees through FactsItemView; the differential tests keep the two in step.
enum class Source : std::uint8_t {
    Name,
    Path,
    Size,
    NodeCount,
    Created,
    Modified,
    Changed,
    LastUsed,
    Kind,
    ContentType,
    ContentTypeTree,
    Invisible,
    Label,
    Uid,
    Gid,
    Comment,
    Tags,
    WhereFroms,
    ContentCreated,   // an imported content date, else the file's
    ContentModified,
    Imported,  // what importers found
    Absent,    // no catalogue item has it
};

Source sourceFor(std::string_view key)
{
    struct Entry {
        const char* key;
        Source source;
    };
    static const Entry table[] = {
        {"kMDItemDisplayName", Source::Name},
        {"kMDItemFSName", Source::Name},
        {"kMDItemPath", Source::Path},
        {"kMDItemFSSize", Source::Size},
        {"kMDItemFSNodeCount", Source::NodeCount},
        {"kMDItemFSCreationDate", Source::Created},
        {"kMDItemContentCreationDate", Source::ContentCreated},
        {"kMDItemFSContentChangeDate", Source::Modified},
        {"kMDItemContentModificationDate", Source::ContentModified},
        {"kMDItemAttributeChangeDate", Source::Changed},
        {"kMDItemLastUsedDate", Source::LastUsed},
        {"kMDItemKind", Source::Kind},
        {"kMDItemContentType", Source::ContentType},
        {"kMDItemContentTypeTree", Source::ContentTypeTree},
        {"kMDItemFSInvisible", Source::Invisible},
        {"kMDItemFSLabel", Source::Label},
        {"kMDItemFSOwnerUserID", Source::Uid},
        {"kMDItemFSOwnerGroupID", Source::Gid},
        {"kMDItemFinderComment", Source::Comment},
        {"kMDItemOMUserTags", Source::Tags},
        {"kOMUserTags", Source::Tags},
        {"kMDItemUserTags", Source::Tags},
        {"kMDItemWhereFroms", Source::WhereFroms},
    };
    for (const Entry& entry : table) {
        if (key == entry.key) {
            return entry.source;
        }
    }
    return Source::Absent;
}

bool isTypeSource(Source source)
{
    return source == Source::Kind || source == Source::ContentType || source == Source::ContentTypeTree;
}

struct Target {
    Source source = Source::Absent;
    std::size_t index = 0;        // the matcher's target index
    std::vector<char> perType;    // type sources: whether the value holds, per type
    std::uint16_t importedKey = 0;  // imported values: the catalogue's key number
};

// Items of the catalogue as a set, for a text comparison decided up front.
struct ItemSet {
    std::vector<ItemIndex> items;      // ascending
    std::vector<std::uint64_t> bits;   // one per catalogue item

    bool contains(ItemIndex i) const { return (bits[i / 64] >> (i % 64)) & 1; }
};

struct Leaf {
    explicit Leaf(ComparisonMatcher m)
        : matcher(std::move(m))
    {
    }

    ComparisonMatcher matcher;
    std::vector<Target> targets;
    const query::Glob* nameGlob = nullptr;  // names: match the folded name directly
    std::vector<std::string> literals;      // names: texts a matching folded name contains
    bool constant = false;                  // the answer is the same for every item
    bool constantValue = false;
    // Text content comparisons: the items whose text holds (for presence
    // and null tests: that have text), found before the scan.
    std::shared_ptr<const ItemSet> text;
};

struct PlanNode {
    Node::Kind kind = Node::Kind::True;
    std::vector<PlanNode> children;
    int leaf = -1;  // Compare and InRange: index into the leaves
};

bool containsAll(std::string_view folded, const std::vector<std::string>& literals)
{
    for (const std::string& literal : literals) {
        if (folded.find(literal) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

}  // namespace

struct CatalogueQuery::Plan {
    query::Query query;
    query::QueryStart start;
    const Schema* schema = nullptr;
    std::vector<Leaf> leaves;
    PlanNode root;
    // Candidates: from a name that must contain a text.
    std::string requiredLiteral;
    // Candidates: from a text comparison every match must satisfy.
    std::shared_ptr<const ItemSet> requiredText;
    std::optional<Failure> textFailure;

    // The value of an imported attribute, or what the file system gives in
    // its place (content dates).
    std::optional<Scalar> contentDate(const Target& target, const Catalogue& c, ItemIndex i) const
    {
        if (target.importedKey) {
            if (auto value = c.importedAttribute(i, target.importedKey); value && !value->elements().empty()) {
                return value->elements().front();
            }
        }
        const CoreRecord& core = c.core(i);
        return Scalar(dateOf(target.source == Source::ContentCreated ? core.created : core.modified));
    }

    bool present(const Leaf& leaf, const Target& target, const Catalogue& c, ItemIndex i) const
    {
        const CoreRecord& core = c.core(i);
        const bool folder = core.flags & item_flags::kFolder;
        switch (target.source) {
        case Source::Size:
            return !folder;
        case Source::NodeCount:
            return folder;
        case Source::LastUsed:
            return c.extra(i).lastUsed != 0;
        case Source::ContentTypeTree:
            return !c.type(i).tree.empty();
        case Source::Comment: {
            const auto comment = c.attribute(i, AttributeKey::Comment);
            return comment && !comment->empty();
        }
        case Source::Tags:
            return c.attribute(i, AttributeKey::Tags).has_value();
        case Source::WhereFroms:
            return c.attribute(i, AttributeKey::WhereFroms).has_value();
        case Source::Imported: {
            const auto value = c.importedAttribute(i, target.importedKey);
            return value && !value->elements().empty();
        }
        case Source::Absent:
            return false;
        default:
            (void)leaf;
            return true;
        }
    }

    bool holds(const Leaf& leaf, const Target& target, const Catalogue& c, ItemIndex i) const
    {
        const ComparisonMatcher& m = leaf.matcher;
        const CoreRecord& core = c.core(i);
        const bool folder = core.flags & item_flags::kFolder;
        switch (target.source) {
        case Source::Name:
            if (leaf.nameGlob) {
                return leaf.nameGlob->matches(c.foldedName(i));
            }
            if (!containsAll(c.foldedName(i), leaf.literals)) {
                return false;
            }
            return m.scalarHolds(target.index, Scalar(std::string(c.name(i))));
        case Source::Path:
            return m.scalarHolds(target.index, Scalar(c.path(i)));
        case Source::Size:
            return !folder && m.scalarHolds(target.index, Scalar(static_cast<double>(core.size)));
        case Source::NodeCount:
            return folder && m.scalarHolds(target.index, Scalar(static_cast<double>(core.size)));
        case Source::Created:
            return m.scalarHolds(target.index, Scalar(dateOf(core.created)));
        case Source::Modified:
            return m.scalarHolds(target.index, Scalar(dateOf(core.modified)));
        case Source::Changed:
            return m.scalarHolds(target.index, Scalar(dateOf(c.extra(i).changed)));
        case Source::LastUsed:
            return c.extra(i).lastUsed != 0 && m.scalarHolds(target.index, Scalar(dateOf(c.extra(i).lastUsed)));
        case Source::Kind:
        case Source::ContentType:
        case Source::ContentTypeTree:
            return target.perType[core.type];
        case Source::Invisible:
            return m.scalarHolds(target.index, Scalar(static_cast<bool>(core.flags & item_flags::kInvisible)));
        case Source::Label:
            return m.scalarHolds(target.index, Scalar(static_cast<double>(c.label(i).value_or(0))));
        case Source::Uid:
            return m.scalarHolds(target.index, Scalar(static_cast<double>(c.extra(i).uid)));
        case Source::Gid:
            return m.scalarHolds(target.index, Scalar(static_cast<double>(c.extra(i).gid)));
        case Source::Comment: {
            const auto comment = c.attribute(i, AttributeKey::Comment);
            return comment && !comment->empty() && m.scalarHolds(target.index, Scalar(std::string(*comment)));
        }
        case Source::Tags:
        case Source::WhereFroms: {
            const auto list = c.attribute(i, target.source == Source::Tags ? AttributeKey::Tags : AttributeKey::WhereFroms);
            if (!list) {
                return false;
            }
            for (std::string_view element : splitListViews(*list)) {
                if (m.scalarHolds(target.index, Scalar(std::string(element)))) {
                    return true;
                }
            }
            return false;
        }
        case Source::ContentCreated:
        case Source::ContentModified:
            return m.scalarHolds(target.index, *contentDate(target, c, i));
        case Source::Imported: {
            const auto value = c.importedAttribute(i, target.importedKey);
            if (!value) {
                return false;
            }
            for (const Scalar& element : value->elements()) {
                if (m.scalarHolds(target.index, element)) {
                    return true;
                }
            }
            return false;
        }
        case Source::Absent:
            return false;
        }
        return false;
    }

    bool evaluateLeaf(const Leaf& leaf, const Catalogue& c, ItemIndex i) const
    {
        if (leaf.constant) {
            return leaf.constantValue;
        }
        bool result = false;
        switch (leaf.matcher.kind()) {
        case ComparisonMatcher::Kind::Scalar:
            result = leaf.text && leaf.text->contains(i);
            for (const Target& target : leaf.targets) {
                if (result) {
                    break;
                }
                result = holds(leaf, target, c, i);
            }
            break;
        case ComparisonMatcher::Kind::Presence:
        case ComparisonMatcher::Kind::Null: {
            bool any = leaf.text && leaf.text->contains(i);
            for (const Target& target : leaf.targets) {
                if (any) {
                    break;
                }
                if (present(leaf, target, c, i)) {
                    any = true;
                    break;
                }
            }
            result = leaf.matcher.kind() == ComparisonMatcher::Kind::Presence ? any : !any;
            break;
        }
        }
        return leaf.matcher.negated() ? !result : result;
    }

    bool evaluate(const PlanNode& node, const Catalogue& c, ItemIndex i) const
    {
        switch (node.kind) {
        case Node::Kind::Or:
            for (const PlanNode& child : node.children) {
                if (evaluate(child, c, i)) {
                    return true;
                }
            }
            return false;
        case Node::Kind::And:
            for (const PlanNode& child : node.children) {
                if (!evaluate(child, c, i)) {
                    return false;
                }
            }
            return true;
        case Node::Kind::Not:
            return !evaluate(node.children.front(), c, i);
        case Node::Kind::Compare:
        case Node::Kind::InRange:
            return evaluateLeaf(leaves[static_cast<std::size_t>(node.leaf)], c, i);
        case Node::Kind::True:
            return true;
        case Node::Kind::False:
            return false;
        }
        return false;
    }

    PlanNode compile(const Node& node, const Catalogue& catalogue)
    {
        PlanNode plan;
        plan.kind = node.kind;
        for (const Node& child : node.children) {
            plan.children.push_back(compile(child, catalogue));
        }
        if (node.kind != Node::Kind::Compare && node.kind != Node::Kind::InRange) {
            return plan;
        }
        Leaf leaf(ComparisonMatcher(node, start, *schema));
        const ComparisonMatcher& m = leaf.matcher;
        bool anyFromCatalogue = false;
        for (std::size_t t = 0; t < m.targetCount(); ++t) {
            Target target;
            target.source = sourceFor(m.targetKey(t));
            target.index = t;
            if (const auto key = catalogue.importedKey(m.targetKey(t))) {
                if (target.source == Source::Absent) {
                    target.source = Source::Imported;
                }
                target.importedKey = *key;
            }
            if (target.source == Source::Absent) {
                continue;  // never present, never holds
            }
            anyFromCatalogue = true;
            if (isTypeSource(target.source) && m.kind() == ComparisonMatcher::Kind::Scalar) {
                for (const TypeInfo& type : catalogue.types()) {
                    bool holds = false;
                    if (target.source == Source::Kind) {
                        holds = m.scalarHolds(t, Scalar(type.kind));
                    } else if (target.source == Source::ContentType) {
                        holds = m.scalarHolds(t, Scalar(type.identifier));
                    } else {
                        for (const std::string& element : type.tree) {
                            if (m.scalarHolds(t, Scalar(element))) {
                                holds = true;
                                break;
                            }
                        }
                    }
                    target.perType.push_back(holds ? 1 : 0);
                }
            }
            if (target.source == Source::Name) {
                leaf.nameGlob = m.caseAndDiacriticGlob();
                leaf.literals = m.requiredFoldedLiterals();
            }
            leaf.targets.push_back(std::move(target));
        }
        if (m.looksAtTextContent()) {
            leaf.text = textItems(m, catalogue);
            anyFromCatalogue = anyFromCatalogue || leaf.text;
        }
        if (!anyFromCatalogue) {
            leaf.constant = true;
            leaf.constantValue = m.matches(query::MemoryItem());
        }
        leaves.push_back(std::move(leaf));
        plan.leaf = static_cast<int>(leaves.size() - 1);
        return plan;
    }

    // The catalogue's items whose text makes the comparison hold, through
    // the full text of the database the catalogue was built from. None when
    // there is no full text to ask (then no item has text content).
    std::shared_ptr<const ItemSet> textItems(const ComparisonMatcher& matcher, const Catalogue& catalogue)
    {
        TextIndex* text = TextIndex::forThisThread(catalogue.databasePath());
        if (!text) {
            return nullptr;
        }
        Expected<std::vector<std::int64_t>> ids = itemsWhoseTextHolds(*text, matcher);
        if (!ids) {
            textFailure = ids.error();
            return nullptr;
        }
        auto set = std::make_shared<ItemSet>();
        set->bits.assign(catalogue.size() / 64 + 1, 0);
        for (const std::int64_t id : *ids) {
            if (const std::optional<ItemIndex> item = catalogue.itemWithStoreId(id)) {
                set->items.push_back(*item);
                set->bits[*item / 64] |= std::uint64_t{1} << (*item % 64);
            }
        }
        std::sort(set->items.begin(), set->items.end());
        return set;
    }

    // A name comparison every match must satisfy, found through the ANDs
    // from the root: its longest required text gives the candidates. A text
    // comparison every match must satisfy gives them even better: its
    // matches are already known.
    void chooseCandidates(const PlanNode& node)
    {
        if (node.kind == Node::Kind::And) {
            for (const PlanNode& child : node.children) {
                chooseCandidates(child);
            }
            return;
        }
        if (node.kind != Node::Kind::Compare) {
            return;
        }
        const Leaf& leaf = leaves[static_cast<std::size_t>(node.leaf)];
        if (leaf.text && leaf.targets.empty() && !leaf.matcher.negated()
            && leaf.matcher.kind() != ComparisonMatcher::Kind::Null
            && (!requiredText || leaf.text->items.size() < requiredText->items.size())) {
            requiredText = leaf.text;
        }
        if (leaf.constant || leaf.matcher.negated() || leaf.matcher.kind() != ComparisonMatcher::Kind::Scalar
            || leaf.targets.size() != 1 || leaf.targets.front().source != Source::Name) {
            return;
        }
        for (const std::string& literal : leaf.literals) {
            if (literal.size() > requiredLiteral.size()) {
                requiredLiteral = literal;
            }
        }
    }
};

ResolvedScope resolveScope(const Catalogue& catalogue, const std::vector<std::string>& folders)
{
    ResolvedScope scope;
    if (folders.empty()) {
        if (catalogue.size()) {
            scope.ranges.push_back({0, catalogue.size()});
        }
        return scope;
    }
    for (const std::string& folder : folders) {
        if (std::optional<ItemIndex> item = catalogue.find(folder)) {
            scope.ranges.push_back({*item, catalogue.core(*item).subtreeEnd});
        } else {
            scope.outside.push_back(folder);
        }
    }
    scope.ranges = mergeRanges(std::move(scope.ranges));
    return scope;
}

std::vector<ItemRange> mergeRanges(std::vector<ItemRange> ranges)
{
    std::sort(ranges.begin(), ranges.end(), [](const ItemRange& a, const ItemRange& b) { return a.begin < b.begin; });
    std::vector<ItemRange> merged;
    for (const ItemRange& range : ranges) {
        if (!merged.empty() && range.begin <= merged.back().end) {
            merged.back().end = std::max(merged.back().end, range.end);
        } else {
            merged.push_back(range);
        }
    }
    return merged;
}

CatalogueQuery::CatalogueQuery(std::shared_ptr<const Catalogue> catalogue, const query::Query& query,
                               const query::QueryStart& start, const Schema& schema)
    : m_catalogue(std::move(catalogue))
    , m_plan(std::make_unique<Plan>())
{
    m_plan->query = query;
    m_plan->start = start;
    m_plan->schema = &schema;
    m_plan->root = m_plan->compile(query.root, *m_catalogue);
    m_plan->chooseCandidates(m_plan->root);
}

CatalogueQuery::~CatalogueQuery() = default;

const std::optional<Failure>& CatalogueQuery::textFailure() const
{
    return m_plan->textFailure;
}

std::string CatalogueQuery::strategy() const
{
    if (m_plan->requiredText) {
        return "text";
    }
    if (m_plan->requiredLiteral.size() >= 3) {
        return "trigrams";
    }
    return m_plan->requiredLiteral.empty() ? "all" : "name scan";
}

void CatalogueQuery::run(const std::vector<ItemRange>& ranges, const std::function<bool(ItemIndex)>& found) const
{
    const Catalogue& c = *m_catalogue;
    const Plan& plan = *m_plan;
    const std::string& literal = plan.requiredLiteral;

    if (plan.requiredText) {
        const std::vector<ItemIndex>& candidates = plan.requiredText->items;
        auto next = candidates.begin();
        for (const ItemRange& range : ranges) {
            next = std::lower_bound(next, candidates.end(), range.begin);
            for (; next != candidates.end() && *next < range.end; ++next) {
                if (plan.evaluate(plan.root, c, *next) && !found(*next)) {
                    return;
                }
            }
        }
        return;
    }

    if (literal.empty()) {
        for (const ItemRange& range : ranges) {
            for (ItemIndex i = range.begin; i < range.end; ++i) {
                if (plan.evaluate(plan.root, c, i) && !found(i)) {
                    return;
                }
            }
        }
        return;
    }

    // Candidates: items whose folded name holds the literal, ascending.
    std::vector<ItemIndex> candidates;
    if (std::optional<std::vector<ItemIndex>> indexed = c.itemsWhoseFoldedNameContains(literal)) {
        candidates = std::move(*indexed);
    } else {
        const std::string_view pool = c.foldedPool();
        ItemIndex item = 0;
        std::size_t at = 0;
        while (item < c.size()) {
            const char* hit = static_cast<const char*>(
                ::memmem(pool.data() + at, pool.size() - at, literal.data(), literal.size()));
            if (!hit) {
                break;
            }
            const auto offset = static_cast<std::size_t>(hit - pool.data());
            // Items' folded names are laid out in item order.
            while (item + 1 < c.size() && c.core(item + 1).folded <= offset) {
                ++item;
            }
            candidates.push_back(item);
            ++item;
            if (item >= c.size()) {
                break;
            }
            at = c.core(item).folded;
        }
    }
    std::size_t next = 0;
    for (const ItemRange& range : ranges) {
        while (next < candidates.size() && candidates[next] < range.begin) {
            ++next;
        }
        for (; next < candidates.size() && candidates[next] < range.end; ++next) {
            const ItemIndex i = candidates[next];
            if (plan.evaluate(plan.root, c, i) && !found(i)) {
                return;
            }
        }
    }
}

std::vector<ItemIndex> CatalogueQuery::matches(const std::vector<ItemRange>& ranges) const
{
    std::vector<ItemIndex> result;
    run(ranges, [&](ItemIndex i) {
        result.push_back(i);
        return true;
    });
    return result;
}

std::size_t CatalogueQuery::count(const std::vector<ItemRange>& ranges) const
{
    std::size_t total = 0;
    run(ranges, [&](ItemIndex) {
        ++total;
        return true;
    });
    return total;
}

std::vector<ItemIndex> CatalogueQuery::matchesWithEvaluator(const std::vector<ItemRange>& ranges) const
{
    const query::Evaluator evaluator(m_plan->query, m_plan->start, *m_plan->schema);
    CatalogueFacts facts(*m_catalogue, 0);
    FactsItemView view(facts);
    std::vector<ItemIndex> result;
    for (const ItemRange& range : ranges) {
        for (ItemIndex i = range.begin; i < range.end; ++i) {
            facts.setItem(i);
            view.reset();
            if (evaluator.matches(view)) {
                result.push_back(i);
            }
        }
    }
    return result;
}

}  // namespace trovara::index
