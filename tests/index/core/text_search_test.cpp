// Searching what importers found: the text content through the full text
// (which must be a prefilter that never loses a match) and imported
// attributes through the catalogue. The plan's answers must be the plain
// evaluator's, on chosen cases and on random texts and queries.
#include "index/catalogue.h"
#include "index/fs/type_tree.h"
#include "index/query/parser.h"
#include "index/search.h"
#include "index/store.h"
#include "index/text/folding.h"
#include "index/text_index.h"
#include "index/text_search.h"
#include "index/text_tokens.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace trovara::index {
namespace {

constexpr Nanoseconds kSecond = 1'000'000'000;
constexpr Nanoseconds kModified = 1'700'000'000 * kSecond;

struct File {
    std::string name;
    std::optional<std::string> text;
    ImportedAttributes attributes;
};

// A database with one root folder holding the files, and its catalogue.
class TextSearchTest : public ::testing::Test {
protected:
    TextSearchTest()
        : directory(trovara::test::makeTemporaryFolder(QStringLiteral("index")).toStdString())
    {
    }

    void index(const std::vector<File>& files)
    {
        Expected<std::unique_ptr<Store>> opened = Store::open(directory + "/index.db", Store::Mode::ReadWrite);
        ASSERT_TRUE(opened) << opened.error().message;
        Store& store = **opened;
        ASSERT_TRUE(store.begin());
        StoredItem root;
        root.info.name = "/docs";
        root.info.kind = FileKind::Directory;
        root.info.modified = kModified;
        root.info.changed = kModified;
        root.type = *store.internMimeType("inode/directory");
        const StoreId rootId = *store.insertItem(root);
        const std::int32_t text = *store.internMimeType("text/plain");
        for (const File& file : files) {
            StoredItem item;
            item.parent = rootId;
            item.info.name = file.name;
            item.info.modified = kModified;
            item.info.changed = kModified;
            item.type = text;
            const StoreId id = *store.insertItem(item);
            ImportRecord record;
            record.item = id;
            record.importer = "text";
            if (!file.attributes.empty()) {
                record.attributes = encodeImportedAttributes(file.attributes);
            }
            ASSERT_TRUE(store.saveImport(record, file.text));
        }
        ASSERT_TRUE(store.bumpGeneration());
        ASSERT_TRUE(store.commit());
        Expected<std::shared_ptr<const Catalogue>> built = Catalogue::build(
            store, [](std::string_view s) { return text::foldForCatalogue(s); },
            [](const std::string& mime) { return describeMimeType(mime); }, {});
        ASSERT_TRUE(built) << built.error().message;
        catalogue = *built;
    }

    // The names the fast plan finds, after checking them against the oracle.
    std::set<std::string> find(const std::string& text, std::string* strategy = nullptr)
    {
        Expected<query::Query> parsed = query::parseQuery(text);
        EXPECT_TRUE(parsed) << text;
        if (!parsed) {
            return {};
        }
        const CatalogueQuery search(catalogue, *parsed, query::QueryStart::now());
        const std::vector<ItemRange> all{{0, catalogue->size()}};
        const std::vector<ItemIndex> fast = search.matches(all);
        EXPECT_EQ(fast, search.matchesWithEvaluator(all)) << text;
        EXPECT_FALSE(search.textFailure()) << text;
        if (strategy) {
            *strategy = search.strategy();
        }
        std::set<std::string> names;
        for (const ItemIndex i : fast) {
            names.insert(std::string(catalogue->name(i)));
        }
        return names;
    }

    std::string directory;
    std::shared_ptr<const Catalogue> catalogue;
};

using Names = std::set<std::string>;

TEST_F(TextSearchTest, FindsWordsAsTheEvaluatorMeansThem)
{
    index({
        {"prose.txt", "The quick brown fox jumps over the lazy dog.", {}},
        {"code.cpp", "class MyWindowClass : public QObject { int countOfItems; };", {}},
        {"german.txt", "Die Straße in Zürich ist schön.", {}},
        {"french.txt", "Frédéric a mangé une crème brûlée au café.", {}},
        {"japanese.txt", "東京で会議の議事録を書きました", {}},
        {"empty.txt", std::nullopt, {}},
        {"long.txt", std::string(500, 'a') + " tail", {}},
    });
    EXPECT_EQ(find("kMDItemTextContent == 'fox'cd"), Names{"prose.txt"});
    EXPECT_EQ(find("kMDItemTextContent == 'FOX'"), Names{});  // case-sensitive without c
    EXPECT_EQ(find("kMDItemTextContent == 'qu*'cd"), Names{"prose.txt"});
    EXPECT_EQ(find("kMDItemTextContent == '*own'cd"), Names{"prose.txt"});
    EXPECT_EQ(find("kMDItemTextContent == '*um*'cd"), Names{"prose.txt"});
    // Parts of words: "Window", "WindowClass", "class" are all in MyWindowClass.
    EXPECT_EQ(find("kMDItemTextContent == 'window'cd"), Names{"code.cpp"});
    EXPECT_EQ(find("kMDItemTextContent == 'windowclass'cd"), Names{"code.cpp"});
    EXPECT_EQ(find("kMDItemTextContent == 'Window'"), Names{"code.cpp"});
    EXPECT_EQ(find("kMDItemTextContent == 'items'cd"), Names{"code.cpp"});
    EXPECT_EQ(find("kMDItemTextContent == 'countof*'cd"), Names{"code.cpp"});
    // Case folding in full, and diacritics only with d.
    EXPECT_EQ(find("kMDItemTextContent == 'strasse'c"), Names{"german.txt"});
    EXPECT_EQ(find("kMDItemTextContent == 'zurich'c"), Names{});
    EXPECT_EQ(find("kMDItemTextContent == 'zurich'cd"), Names{"german.txt"});
    EXPECT_EQ(find("kMDItemTextContent == 'Frederic'd"), Names{"french.txt"});
    EXPECT_EQ(find("kMDItemTextContent == 'crème'"), Names{"french.txt"});
    EXPECT_EQ(find("kMDItemTextContent == 'brul*'cd"), Names{"french.txt"});
    // Phrases are runs of consecutive words.
    EXPECT_EQ(find("kMDItemTextContent == 'lazy dog'cd"), Names{"prose.txt"});
    EXPECT_EQ(find("kMDItemTextContent == 'dog lazy'cd"), Names{});
    EXPECT_EQ(find("kMDItemTextContent == '*own fox jum*'cd"), Names{"prose.txt"});
    // Scripts without spaces are one word per run.
    EXPECT_EQ(find("kMDItemTextContent == '東京で会議の議事録を書きました'"), Names{"japanese.txt"});
    EXPECT_EQ(find("kMDItemTextContent == '東京*'"), Names{"japanese.txt"});
    // Words longer than the index's terms are still found.
    EXPECT_EQ(find("kMDItemTextContent == '" + std::string(500, 'a') + "'"), Names{"long.txt"});
    EXPECT_EQ(find("kMDItemTextContent == '" + std::string(499, 'a') + "'"), Names{});
    // Presence, absence, negation.
    EXPECT_EQ(find("kMDItemTextContent == '*'").size(), 6u);
    EXPECT_EQ(find("kMDItemTextContent != '*'"), (Names{"docs", "empty.txt"}));
    EXPECT_EQ(find("kMDItemTextContent != 'fox'cd").count("prose.txt"), 0u);
    EXPECT_EQ(find("kMDItemTextContent != 'fox'cd").size(), 7u);
    EXPECT_EQ(find("!(kMDItemTextContent == 'fox'cd) && kMDItemFSName == '*.txt'").size(), 5u);
}

TEST_F(TextSearchTest, UsesTheTextAsCandidatesWhenEveryMatchNeedsIt)
{
    index({{"a.txt", "alpha beta", {}}, {"b.txt", "beta gamma", {}}, {"c.txt", "gamma delta", {}}});
    std::string strategy;
    EXPECT_EQ(find("kMDItemTextContent == 'beta'cd", &strategy), (Names{"a.txt", "b.txt"}));
    EXPECT_EQ(strategy, "text");
    EXPECT_EQ(find("kMDItemTextContent == 'beta'cd && kMDItemTextContent == 'gamma'cd", &strategy), Names{"b.txt"});
    EXPECT_EQ(strategy, "text");
    EXPECT_EQ(find("kMDItemTextContent == 'gamma'cd && kMDItemFSName == 'c*'", &strategy), Names{"c.txt"});
    EXPECT_EQ(strategy, "text");
    // Either the name or the text: everything is looked at.
    EXPECT_EQ(find("kMDItemFSName == 'a*' || kMDItemTextContent == 'delta'", &strategy), (Names{"a.txt", "c.txt"}));
    EXPECT_EQ(strategy, "all");
    // "**" is any text attribute and the text content.
    EXPECT_EQ(find("** == 'gamma'cd"), (Names{"b.txt", "c.txt"}));
    EXPECT_EQ(find("** == 'c.txt'cd"), Names{"c.txt"});
}

TEST_F(TextSearchTest, ImportedAttributesAreQueriedLikeTheOthers)
{
    index({
        {"report.pdf", "text", {{"kMDItemTitle", "Quarterly Report"},
                                {"kMDItemAuthors", query::AttributeValue{"Ann Smith", "Bob Jones"}},
                                {"kMDItemNumberOfPages", 12},
                                {"kMDItemContentCreationDate", query::Date{600000000}}}},
        {"photo.jpg", std::nullopt, {{"kMDItemPixelWidth", 4000}, {"kMDItemFlashOnOff", true},
                                     {"kMDItemAcquisitionMake", "Canon"}}},
        {"plain.txt", "nothing special", {}},
    });
    EXPECT_EQ(find("kMDItemAuthors == 'bob*'cd"), Names{"report.pdf"});
    EXPECT_EQ(find("kMDItemNumberOfPages > 10"), Names{"report.pdf"});
    EXPECT_EQ(find("kMDItemNumberOfPages == '*'"), Names{"report.pdf"});
    EXPECT_EQ(find("kMDItemPixelWidth >= 4000 && kMDItemFlashOnOff == 1"), Names{"photo.jpg"});
    EXPECT_EQ(find("* == 'canon'cd"), Names{"photo.jpg"});
    EXPECT_EQ(find("* == 'quarterly'cdw"), Names{"report.pdf"});
    EXPECT_EQ(find("kMDItemTitle != '*'").size(), 3u);  // the folder, the photo, the plain file
    // An imported content date takes the place of the file's own.
    EXPECT_EQ(find("kMDItemContentCreationDate < 600000001"), Names{"report.pdf"});
    EXPECT_EQ(find("kMDItemContentCreationDate > 600000001").count("plain.txt"), 1u);
    EXPECT_EQ(find("kMDItemAlbum == '*'"), Names{});

    // The snapshot keeps them, and the way back to the full text.
    const std::string path = directory + "/catalogue.bin";
    ASSERT_TRUE(catalogue->save(path));
    Expected<std::shared_ptr<const Catalogue>> mapped = Catalogue::open(path, directory + "/index.db");
    ASSERT_TRUE(mapped) << mapped.error().message;
    catalogue = *mapped;
    EXPECT_EQ(find("kMDItemAuthors == 'ann*'cd && kMDItemTextContent == 'text'"), Names{"report.pdf"});
    const std::optional<ItemIndex> report = catalogue->find("/docs/report.pdf");
    ASSERT_TRUE(report);
    EXPECT_EQ(catalogue->itemWithStoreId(catalogue->storeId(*report)), report);
}

TEST_F(TextSearchTest, AgreesWithTheEvaluatorOnRandomTextsAndQueries)
{
    const std::vector<std::string> vocabulary = {
        "report", "Report", "REPORTS", "reporting", "résumé", "Resume", "straße", "STRASSE", "café", "Cafe",
        "MyWindow", "windowSize", "HTMLParser", "parse", "x86", "2024", "東京", "会議", "naïve", "Naive",
        "ﬁle", "file", "İstanbul", "istanbul", "ıi", "velmorade", "unvelmorade", "a", "an", "ánd"};
    const std::vector<std::string> separators = {" ", ", ", "\n", "-", "_", "/", ". "};
    std::mt19937 random(20240615);
    std::vector<File> files;
    for (int f = 0; f < 120; ++f) {
        File file;
        file.name = "f" + std::to_string(f) + ".txt";
        if (random() % 10 == 0) {
            file.text = std::nullopt;
        } else {
            std::string text;
            const int words = static_cast<int>(random() % 12);
            for (int w = 0; w < words; ++w) {
                text += vocabulary[random() % vocabulary.size()] + separators[random() % separators.size()];
            }
            file.text = text;
        }
        files.push_back(std::move(file));
    }
    index(files);

    const std::vector<std::string> modifiers = {"", "c", "d", "cd", "cdw", "w"};
    int nonEmpty = 0;
    for (int q = 0; q < 400; ++q) {
        std::string pattern = vocabulary[random() % vocabulary.size()];
        switch (random() % 6) {
        case 0:
            pattern = pattern.substr(0, 1 + random() % pattern.size()) + "*";
            break;
        case 1:
            pattern = "*" + pattern.substr(random() % pattern.size());
            break;
        case 2:
            pattern = "*" + pattern + "*";
            break;
        case 3:
            pattern += " " + vocabulary[random() % vocabulary.size()];
            break;
        default:
            break;
        }
        const std::string attribute = random() % 5 == 0 ? "**" : "kMDItemTextContent";
        const std::string op = random() % 6 == 0 ? "!=" : "==";
        // Cutting a word may cut a character: only valid text makes a query.
        if (text::foldText(pattern, {}).find("\uFFFD") != std::string::npos) {
            continue;
        }
        const std::string query = attribute + " " + op + " '" + pattern + "'" + modifiers[random() % modifiers.size()];
        nonEmpty += find(query).empty() ? 0 : 1;
    }
    EXPECT_GT(nonEmpty, 100);  // the queries did find things
}

TEST(TextIndexFolding, TermsHoldEveryWordAndTheRunsThatEndIt)
{
    std::vector<std::string> terms;
    forEachTerm("MyWindowClass, naïve STRASSE ßig", true, [&](std::string_view term, bool colocated) {
        terms.push_back(std::string(colocated ? "+" : "") + std::string(term));
        return true;
    });
    EXPECT_EQ(terms, (std::vector<std::string>{"mywindowclass", "+windowclass", "+class", "naive", "strasse", "ssig"}));
    const std::string longWord(100, 'z');
    terms.clear();
    forEachTerm(longWord, true, [&](std::string_view term, bool) {
        terms.emplace_back(term);
        return true;
    });
    ASSERT_EQ(terms.size(), 1u);
    EXPECT_EQ(terms.front().size(), kMaxTermBytes);
}

}  // namespace
}  // namespace trovara::index
