// Queries over the catalogue: the fast plan must give exactly the plain
// evaluator's answer, on chosen cases and on random trees and queries.
#include "index/fs/type_tree.h"
#include "index/query/parser.h"
#include "index/search.h"
#include "index/text/folding.h"

#include <gtest/gtest.h>

#include <random>

namespace trovara::index {
namespace {

constexpr Nanoseconds kSecond = 1'000'000'000;
// 2024-06-15 12:00:00 UTC, the queries' "now".
constexpr Nanoseconds kNow = 1'718'452'800 * kSecond;

query::QueryStart startAt(Nanoseconds now)
{
    query::QueryStart start;
    start.time = static_cast<double>(now) / 1e9 - 978307200.0;
    start.firstWeekday = query::Weekday::Monday;
    return start;
}

TypeInfo typeFor(const std::string& mime)
{
    return describeMimeType(mime);
}

CatalogueItem entry(std::int64_t id, std::int64_t parent, const std::string& name, const std::string& mime,
                    std::int64_t size = 0, Nanoseconds modified = kNow)
{
    CatalogueItem item;
    item.id = id;
    item.parent = parent;
    item.info.name = name;
    item.info.kind = mime == "inode/directory" ? FileKind::Directory : FileKind::Regular;
    item.info.size = size;
    item.info.modified = modified;
    item.info.changed = modified;
    item.mimeType = mime;
    return item;
}

std::shared_ptr<const Catalogue> build(std::vector<CatalogueItem> items)
{
    return Catalogue::build(std::move(items), 1, [](std::string_view s) { return text::foldForCatalogue(s); },
                            typeFor);
}

class Search : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::vector<CatalogueItem> items{
            entry(1, 0, "/home/ann", "inode/directory"),
            entry(2, 1, "Documents", "inode/directory"),
            entry(3, 2, "Quarterly Report.pdf", "application/pdf", 6'000'000, kNow - 2 * 86400 * kSecond),
            entry(4, 2, "report-draft.txt", "text/plain", 1200, kNow - 400 * 86400 * kSecond),
            entry(5, 2, "Résumé.txt", "text/plain", 900),
            entry(6, 1, "Pictures", "inode/directory"),
            entry(7, 6, "holiday.png", "image/png", 2'000'000),
            entry(8, 1, ".cache", "inode/directory"),
            entry(9, 8, "report.tmp", "application/octet-stream", 10),
            entry(10, 0, "/srv", "inode/directory"),
            entry(11, 10, "MyWindowClass.cpp", "text/x-c++src", 300),
        };
        items[0].nodeCount = 3;
        items[1].nodeCount = 3;
        items[5].nodeCount = 1;
        items[7].info.invisible = true;
        items[8].info.invisible = true;
        items[6].attributes.tags = {"Holiday", "beach"};
        items[6].attributes.label = 2;
        items[4].attributes.comment = "for the interview";
        catalogue = build(std::move(items));
    }

    std::vector<std::string> find(const char* text, const std::vector<std::string>& scopes = {})
    {
        Expected<query::Query> parsed = query::parseQuery(text);
        EXPECT_TRUE(parsed.ok()) << text;
        if (!parsed.ok()) {
            return {};
        }
        const CatalogueQuery search(catalogue, *parsed, startAt(kNow));
        const ResolvedScope scope = resolveScope(*catalogue, scopes);
        const std::vector<ItemIndex> fast = search.matches(scope.ranges);
        EXPECT_EQ(fast, search.matchesWithEvaluator(scope.ranges)) << text;
        std::vector<std::string> names;
        for (ItemIndex i : fast) {
            names.emplace_back(catalogue->name(i));
        }
        return names;
    }

    std::shared_ptr<const Catalogue> catalogue;
};

using Names = std::vector<std::string>;

TEST_F(Search, NamesByGlobCaseAndDiacritics)
{
    // Results come in path order, siblings by the bytes of their names.
    EXPECT_EQ(find(R"(kMDItemDisplayName == "*report*"cd)"),
              (Names{"report.tmp", "Quarterly Report.pdf", "report-draft.txt"}));
    EXPECT_EQ(find(R"(kMDItemDisplayName == "*report*")"), (Names{"report.tmp", "report-draft.txt"}));
    EXPECT_EQ(find(R"(kMDItemFSName == "resume*"cd)"), Names{"Résumé.txt"});
    EXPECT_EQ(find(R"(kMDItemFSName == "resume*"c)"), Names{});
    EXPECT_EQ(find(R"(kMDItemDisplayName == "Window"w)"), Names{"MyWindowClass.cpp"});
    EXPECT_EQ(find(R"(kMDItemDisplayName == "re*")"), (Names{"report.tmp", "report-draft.txt"}));
    EXPECT_EQ(find(R"(kMDItemDisplayName != "*.*")"), (Names{"ann", "Documents", "Pictures", "srv"}));
}

TEST_F(Search, SizesDatesAndTheirAbsenceOnFolders)
{
    EXPECT_EQ(find("kMDItemFSSize > 1000000"), (Names{"Quarterly Report.pdf", "holiday.png"}));
    EXPECT_EQ(find("kMDItemFSSize > '1000000'"), (Names{"Quarterly Report.pdf", "holiday.png"}));
    EXPECT_EQ(find("kMDItemFSNodeCount == 3"), (Names{"ann", "Documents"}));
    EXPECT_EQ(find("kMDItemFSContentChangeDate < $time.today(-30)"), Names{"report-draft.txt"});
    EXPECT_EQ(find("kMDItemFSContentChangeDate >= $time.today(-3) && kMDItemFSSize > 5000000"),
              Names{"Quarterly Report.pdf"});
    EXPECT_EQ(find("kMDItemFSSize = null"), (Names{"ann", ".cache", "Documents", "Pictures", "srv"}));
}

TEST_F(Search, TypesFlagsTagsAndComments)
{
    EXPECT_EQ(find("kMDItemContentTypeTree == 'public.text'c"),
              (Names{"Résumé.txt", "report-draft.txt", "MyWindowClass.cpp"}));
    EXPECT_EQ(find("kMDItemContentTypeTree == 'public.image'c"), Names{"holiday.png"});
    EXPECT_EQ(find("kMDItemFSInvisible == 1"), (Names{".cache", "report.tmp"}));
    EXPECT_EQ(find("kOMUserTags == 'holiday'c"), Names{"holiday.png"});
    EXPECT_EQ(find("kMDItemFSLabel == 2"), Names{"holiday.png"});
    EXPECT_EQ(find("kMDItemFinderComment == '*interview*'"), Names{"Résumé.txt"});
    EXPECT_EQ(find(R"(* == "beach"cdw)"), Names{"holiday.png"});
    EXPECT_EQ(find("kMDItemTitle == '*'"), Names{});
    EXPECT_EQ(find("kMDItemTextContent != 'x'").size(), 11u);
}

TEST_F(Search, ScopesAreFoldersAndEverythingBelowThem)
{
    EXPECT_EQ(find(R"(kMDItemDisplayName == "*report*"cd)", {"/home/ann/Documents"}),
              (Names{"Quarterly Report.pdf", "report-draft.txt"}));
    EXPECT_EQ(find("kMDItemFSSize >= 0", {"/srv"}), Names{"MyWindowClass.cpp"});
    EXPECT_EQ(find("kMDItemFSNodeCount >= 0", {"/home/ann/Pictures"}), Names{"Pictures"}) << "the folder itself is in";
    const ResolvedScope scope = resolveScope(*catalogue, {"/home/ann/Pictures", "/nowhere", "/home/ann"});
    ASSERT_EQ(scope.ranges.size(), 1u) << "nested scopes merge";
    EXPECT_EQ(scope.ranges[0].begin, 0u);
    EXPECT_EQ(scope.outside, std::vector<std::string>{"/nowhere"});
}

TEST_F(Search, CandidatesComeFromTheNamesWhenAQueryRequiresOne)
{
    auto strategy = [&](const char* text) {
        return CatalogueQuery(catalogue, query::parseQuery(text).value(), startAt(kNow)).strategy();
    };
    EXPECT_EQ(strategy(R"(kMDItemDisplayName == "*report*"cd && kMDItemFSSize > 5)"), "trigrams");
    EXPECT_EQ(strategy(R"(kMDItemDisplayName == "*re*"cd)"), "name scan");
    EXPECT_EQ(strategy(R"(kMDItemDisplayName == "*report*"cd || kMDItemFSSize > 5)"), "all");
    EXPECT_EQ(strategy(R"(kMDItemDisplayName != "*report*"cd)"), "all");
    EXPECT_EQ(strategy("kMDItemFSSize > 5"), "all");
}

// --- Random trees and random queries ---------------------------------------

std::string randomName(std::mt19937& random)
{
    static const std::vector<std::string> pieces{
        "report", "Report", "RÉSUMÉ", "résumé", "re\xcc\x81sume\xcc\x81", "Straße", "STRASSE", "İstanbul", "ıi",
        "東京", "タワー", "MyWindow", "Class", "draft", "x", "a", ".", "-", "_", " ", "2024", "ﬁle", "Ω",
    };
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> count(1, 4);
    std::string name;
    const int n = count(random);
    for (int i = 0; i < n; ++i) {
        name += pieces[piece(random)];
    }
    return name;
}

std::shared_ptr<const Catalogue> randomCatalogue(std::mt19937& random, int count)
{
    static const std::vector<std::string> mimes{"text/plain", "image/png", "application/pdf", "text/x-python",
                                                 "application/octet-stream", "audio/mpeg"};
    std::vector<CatalogueItem> items{entry(1, 0, "/r", "inode/directory")};
    std::vector<std::int64_t> folders{1};
    for (int i = 2; i <= count; ++i) {
        const bool folder = random() % 6 == 0;
        const std::int64_t parent = folders[random() % folders.size()];
        const std::string mime = folder ? "inode/directory" : mimes[random() % mimes.size()];
        CatalogueItem item = entry(i, parent, randomName(random) + std::to_string(i), mime,
                                   static_cast<std::int64_t>(random() % 5000000),
                                   kNow - static_cast<Nanoseconds>(random() % (800 * 86400)) * kSecond);
        item.info.invisible = random() % 7 == 0;
        item.nodeCount = static_cast<std::uint32_t>(random() % 5);
        if (random() % 9 == 0) {
            item.attributes.tags = {randomName(random)};
        }
        if (random() % 11 == 0) {
            item.attributes.comment = randomName(random);
        }
        if (random() % 5 == 0) {
            item.attributes.label = static_cast<int>(random() % 8);
        }
        if (random() % 3 == 0) {
            item.lastUsed = kNow - static_cast<Nanoseconds>(random() % (100 * 86400)) * kSecond;
        }
        items.push_back(std::move(item));
        if (folder) {
            folders.push_back(i);
        }
    }
    return build(std::move(items));
}

std::string randomComparison(std::mt19937& random)
{
    auto pick = [&](const std::vector<std::string>& options) { return options[random() % options.size()]; };
    const std::string op = pick({"==", "!=", "<", ">", "<=", ">="});
    const std::string equality = pick({"==", "!="});
    const std::string mods = pick({"", "c", "d", "cd", "cdw", "w", "cw"});
    const std::string text = pick({"report", "résumé", "strasse", "i", "東京", "window", "re", "ﬁ", "x", "a.", "-"});
    const std::string pattern = pick({text, "*" + text + "*", text + "*", "*" + text, "*" + text + "?*", "?", "*"});
    switch (random() % 12) {
    case 0:
        return pick({"kMDItemDisplayName", "kMDItemFSName"}) + " " + equality + " \"" + pattern + "\"" + mods;
    case 1:
        return "kMDItemFSSize " + op + " " + std::to_string(random() % 5000000);
    case 2: {
        const std::string attribute =
            pick({"kMDItemFSContentChangeDate", "kMDItemContentCreationDate", "kMDItemLastUsedDate"});
        if (random() % 8 == 0) {
            return attribute + " " + equality + " null";
        }
        return attribute + " " + op + " "
               + pick({"$time.today(-30)", "$time.this_month", "$time.now(-86400)", "'$time.this_year(-1)'",
                       "$time.iso(2024-01-01)", "700000000", "'2024-05-01'"});
    }
    case 3:
        return "kMDItemContentTypeTree == '" + pick({"public.image", "public.text", "public.data", "public.folder"})
               + "'" + pick({"", "c"});
    case 4:
        return "kMDItemFSInvisible " + equality + " " + pick({"0", "1", "'1'", "true", "null"});
    case 5:
        return pick({"kOMUserTags", "kMDItemFinderComment"}) + " " + equality + " \"" + pattern + "\"" + mods;
    case 6:
        return "kMDItemFSLabel " + op + " " + std::to_string(random() % 8);
    case 7:
        return "* " + equality + " \"" + pattern + "\"" + mods;
    case 8:
        return "kMDItemKind " + equality + " \"*" + pick({"image", "text", "folder"}) + "*\"c";
    case 9:
        return "InRange(kMDItemFSSize, " + std::to_string(random() % 1000000) + ", " + std::to_string(random() % 5000000)
               + ")";
    case 10:
        return "kMDItemFSNodeCount " + op + " " + std::to_string(random() % 5);
    default:
        return "kMDItemPath == \"*" + text + "*\"" + mods;
    }
}

std::string randomQuery(std::mt19937& random, int depth = 0)
{
    const int choice = depth > 2 ? 0 : static_cast<int>(random() % 5);
    switch (choice) {
    case 1:
        return "(" + randomQuery(random, depth + 1) + " && " + randomQuery(random, depth + 1) + ")";
    case 2:
        return "(" + randomQuery(random, depth + 1) + " || " + randomQuery(random, depth + 1) + ")";
    case 3:
        return "!(" + randomQuery(random, depth + 1) + ")";
    default:
        return randomComparison(random);
    }
}

TEST(SearchDifferential, TheFastPlanAgreesWithTheEvaluatorOnRandomTreesAndQueries)
{
    std::mt19937 random(20261123);
    for (int tree = 0; tree < 3; ++tree) {
        auto catalogue = randomCatalogue(random, 1500);
        for (int q = 0; q < 300; ++q) {
            const std::string text = randomQuery(random);
            Expected<query::Query> parsed = query::parseQuery(text);
            ASSERT_TRUE(parsed.ok()) << text << ": " << parsed.error().message;
            const CatalogueQuery search(catalogue, *parsed, startAt(kNow));
            std::vector<ItemRange> ranges{{0, catalogue->size()}};
            if (q % 4 == 0) {
                // A scope: the subtree of some folder.
                ItemIndex folder = static_cast<ItemIndex>(random() % catalogue->size());
                while (!catalogue->isFolder(folder)) {
                    folder = catalogue->core(folder).parent;
                }
                ranges = {{folder, catalogue->core(folder).subtreeEnd}};
            }
            ASSERT_EQ(search.matches(ranges), search.matchesWithEvaluator(ranges)) << text;
        }
    }
}

TEST(SearchDifferential, ManyItemsUseTheCountingTrigramBuilderAndStillAgree)
{
    // Above 200,000 items the trigram postings are built by counting.
    std::mt19937 random(99);
    std::vector<CatalogueItem> items{entry(1, 0, "/big", "inode/directory")};
    for (int i = 2; i < 210000; ++i) {
        items.push_back(entry(i, 1, randomName(random) + std::to_string(i % 997), "text/plain"));
    }
    auto catalogue = build(std::move(items));
    for (const char* text : {R"(kMDItemDisplayName == "*report*"cd)", R"(kMDItemDisplayName == "*straße1*"cd)",
                             R"(kMDItemDisplayName == "*東京タ*"cd)", R"(kMDItemDisplayName == "*draft99*")"}) {
        const CatalogueQuery search(catalogue, query::parseQuery(text).value(), startAt(kNow));
        EXPECT_EQ(search.strategy(), "trigrams") << text;
        const std::vector<ItemRange> all{{0, catalogue->size()}};
        EXPECT_EQ(search.matches(all), search.matchesWithEvaluator(all)) << text;
    }
}

}  // namespace
}  // namespace trovara::index
