#include "index/query/evaluator.h"
#include "index/query/parser.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace trovara::index::query;

namespace {

// 2021-06-15T12:00:00Z, a Tuesday.
constexpr double kJune15Noon = 1623758400.0 - kReferenceDateUnixSeconds;
const QueryStart kStart{kJune15Noon, Weekday::Monday};

bool matches(std::string_view query, const ItemView& item, const QueryStart& start = kStart)
{
    const auto result = matchesQuery(query, item, start);
    if (!result) {
        ADD_FAILURE() << query << ": " << result.error().message;
        return false;
    }
    return *result;
}

MemoryItem named(std::string name)
{
    return MemoryItem{{"kMDItemDisplayName", std::move(name)}};
}

MemoryItem withText(std::string content)
{
    MemoryItem item;
    item.setTextContent(std::move(content));
    return item;
}

struct Row {
    const char* pattern;
    std::vector<const char*> matching;
    std::vector<const char*> notMatching;
};

// Checks `kMDItemDisplayName == pattern` against names, and that "!=" says
// the opposite every time.
void checkNames(const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        const std::string equal = std::string("kMDItemDisplayName == ") + row.pattern;
        const std::string notEqual = std::string("kMDItemDisplayName != ") + row.pattern;
        for (const char* name : row.matching) {
            EXPECT_TRUE(matches(equal, named(name))) << row.pattern << " should match " << name;
            EXPECT_FALSE(matches(notEqual, named(name))) << row.pattern << " != " << name;
        }
        for (const char* name : row.notMatching) {
            EXPECT_FALSE(matches(equal, named(name))) << row.pattern << " should not match " << name;
            EXPECT_TRUE(matches(notEqual, named(name))) << row.pattern << " != " << name;
        }
    }
}

}  // namespace

TEST(TextMatching, DocumentedWordMatchingTable)
{
    checkNames({
        {"\"Paris\"", {"Paris"}, {"paris", "I love Paris"}},
        {"\"Paris\"c", {"Paris", "paris"}, {"I love Paris"}},
        {"\"Paris\"wc", {"Paris", "paris", "I love Paris", "paris-france.jpg"}, {"Comparison"}},
        {"\"Window\"w", {"MyWindowClass", "Broken Window"}, {"NSWindow"}},
        {"\"Frédéric\"cd", {"Frédéric", "Frederic"}, {}},
        {"\"paris*\"", {"paris", "parisol"}, {"comparison"}},
    });
}

TEST(TextMatching, GlobsCoverTheWholeValue)
{
    checkNames({
        {"'paris*'", {"paris", "paris.jpg"}, {"Paris", "a paris"}},
        {"'*paris'", {"paris", "gay paris"}, {"paris.jpg"}},
        {"'*paris*'", {"paris", "from paris with love"}, {"pari s", "PARIS"}},
        {"'p*r*s'", {"paris", "prs", "porous"}, {"parish"}},
        {"'*'", {"anything", ""}, {}},
        {"''", {""}, {"x"}},
        {"'caf?'", {"café", "cafe", "cafë"}, {"caf", "cafés"}},
        {"'?'", {"東", "x"}, {"東京", ""}},
        {"'a*b*c'", {"abc", "aXbYc", "abbbc", "abcbc"}, {"acb", "ab"}},
        // Escaped wildcards are the characters themselves.
        {"'\\*'", {"*"}, {"x", ""}},
        {"'\\*.txt'", {"*.txt"}, {"a.txt"}},
        {"'what\\?'", {"what?"}, {"whats"}},
        {"'a\\\\b'", {"a\\b"}, {"ab"}},
        {"'*\\**'", {"a*b", "*"}, {"ab"}},
    });
}

TEST(TextMatching, FoldsCaseAndDiacriticsOnBothSides)
{
    checkNames({
        {"'frédéric'c", {"FRÉDÉRIC", "Frédéric"}, {"Frederic"}},
        {"'FREDERIC'cd", {"frédéric", "Frédéric", "FRÉDÉRIC", "Fre\u0301de\u0301ric"}, {"Fredric"}},
        {"'Fre\u0301de\u0301ric'", {"Frédéric"}, {"Frederic"}},
        {"'Frédéric'", {"Fre\u0301de\u0301ric"}, {"frédéric"}},
        {"'*eme*'d", {"Crème brûlée"}, {"CRÈME"}},
        {"'strasse'c", {"Straße", "STRASSE", "STRAẞE"}, {"strase"}},
        {"'STRAẞE'c", {"strasse"}, {}},
        {"'file*'c", {"ﬁle.txt", "FILE"}, {}},
        {"'ﬁle'", {"ﬁle"}, {"file"}},
        // Turkish: the dotted capital İ needs "d" to meet i; the dotless ı
        // never meets i.
        {"'istanbul'c", {"ISTANBUL"}, {"İstanbul", "ıstanbul"}},
        {"'istanbul'cd", {"İstanbul", "ISTANBUL"}, {"ıstanbul"}},
        {"'kırmızı'c", {"kırmızı", "KıRMıZı"}, {"KIRMIZI", "kirmizi"}},
        {"'kırmızı'cd", {}, {"kirmizi"}},
        // Japanese: folding leaves it alone; voicing marks are not accents.
        {"'*東京*'cd", {"東京タワー", "写真 東京"}, {"京都"}},
        {"'が*'d", {"がっこう"}, {"かっこう"}},
        {"'ガ*'cd", {"ガラス"}, {"ｶﾞﾗｽ"}},
    });
}

TEST(TextMatching, WordsAreLettersAndDigitsAndRunsOfTheirParts)
{
    checkNames({
        {"'iphone'cw", {"iPhone photos", "IPHONE", "my-iphone"}, {"iPhones"}},
        {"'Phone'w", {"iPhone"}, {"Telephone"}},
        {"'MyWindow'w", {"MyWindowClass", "a MyWindow"}, {"MywindowClass"}},
        {"'WindowClass'w", {"MyWindowClass"}, {}},
        {"'yWindow'w", {}, {"MyWindowClass"}},
        {"'MyWindowClass'w", {"MyWindowClass"}, {}},
        {"'win*'cw", {"MyWindowClass", "Wintertime"}, {"NSWindow"}},
        {"'*dow'w", {"MyWindowClass", "NSWindow"}, {"Dowry"}},
        // Several words are a phrase of consecutive words.
        {"'love paris'cw", {"I love Paris!", "love-paris"}, {"paris love", "love in paris"}},
        {"'paris-france'cw", {"paris-france.jpg", "Paris France"}, {"paris.jpg"}},
        {"'O\\'Neil'cw", {"Tom O'Neil", "o neil"}, {"ONeil"}},
        {"'2024'w", {"report_2024.pdf", "Q3-2024"}, {"20245"}},
        {"'東京*'w", {"東京タワー"}, {"タワー東京"}},
        {"'Café'w", {"Le Cafe\u0301 Noir"}, {"Cafe", "café"}},
        // Nothing but separators finds no word.
        {"'-'w", {}, {"-", "a-b"}},
        {"''w", {}, {"", "x"}},
    });
}

TEST(TextContent, MatchesWordByWordEvenWithoutW)
{
    const MemoryItem report = withText("The annual Report, reporting period 2023/24: results.");
    EXPECT_TRUE(matches("kMDItemTextContent == 'annual'", report));
    EXPECT_TRUE(matches("kMDItemTextContent == 'report'c", report));
    EXPECT_FALSE(matches("kMDItemTextContent == 'report'", report));
    EXPECT_TRUE(matches("kMDItemTextContent == '*report*'cd", report));
    EXPECT_TRUE(matches("kMDItemTextContent == 'report*'cdw", report));
    EXPECT_FALSE(matches("kMDItemTextContent == 'port'", report));
    EXPECT_TRUE(matches("kMDItemTextContent == '*port*'", report));
    EXPECT_TRUE(matches("kMDItemTextContent == 'results'", report));
    EXPECT_TRUE(matches("kMDItemTextContent == '2023'", report));
    // The text is words, not one value: a wildcard never reaches across
    // words.
    EXPECT_FALSE(matches("kMDItemTextContent == 'The*results'", report));
    // A phrase needs separate words; the parts of one word are not a phrase.
    EXPECT_FALSE(matches("kMDItemTextContent == 'annual Report'", withText("annualReport")));
    EXPECT_TRUE(matches("kMDItemTextContent == 'annualReport'", withText("annualReport")));

    const MemoryItem prose = withText("The quick brown fox saw a BIG RED DOG. It barked.");
    EXPECT_TRUE(matches("kMDItemTextContent == '*big red dog*'c", prose));
    EXPECT_TRUE(matches("kMDItemTextContent == 'big red dog'c", prose));
    EXPECT_FALSE(matches("kMDItemTextContent == 'big red dog'", prose));
    EXPECT_TRUE(matches("kMDItemTextContent == '*ig red do*'c", prose));
    EXPECT_FALSE(matches("kMDItemTextContent == 'ig red do'c", prose));
    EXPECT_FALSE(matches("kMDItemTextContent == 'big dog'c", prose));
    EXPECT_FALSE(matches("kMDItemTextContent == 'red big dog'c", prose));
    // Punctuation between words does not break a phrase.
    EXPECT_TRUE(matches("kMDItemTextContent == 'dog it barked'c", prose));
    EXPECT_TRUE(matches("kMDItemTextContent == 'saw * big'c", prose));

    EXPECT_FALSE(matches("kMDItemTextContent == 'x'", withText("")));
    EXPECT_FALSE(matches("kMDItemTextContent == ''", withText("")));
    EXPECT_TRUE(matches("kMDItemTextContent == 'x'", withText("x")));
}

TEST(TextContent, IsPresentOnlyWhenTheItemHasOne)
{
    const MemoryItem none = named("a.txt");
    EXPECT_FALSE(matches("kMDItemTextContent == '*'", none));
    EXPECT_TRUE(matches("kMDItemTextContent != '*'", none));
    EXPECT_TRUE(matches("kMDItemTextContent = null", none));
    EXPECT_FALSE(matches("kMDItemTextContent == 'a'", none));
    EXPECT_TRUE(matches("kMDItemTextContent != 'a'", none));

    const MemoryItem some = withText("alpha beta");
    EXPECT_TRUE(matches("kMDItemTextContent == '*'", some));
    EXPECT_TRUE(matches("kMDItemTextContent != null", some));
    EXPECT_TRUE(matches("kMDItemTextContent != 'gamma'", some));
    EXPECT_FALSE(matches("kMDItemTextContent != 'beta'", some));
}

TEST(AnyText, CoversTextAttributesButNotPathsTypesOrContent)
{
    const std::pair<const char*, AttributeValue> covered[] = {
        {"kMDItemDisplayName", "secret"},
        {"kMDItemFSName", "secret"},
        {"kMDItemTitle", "secret"},
        {"kMDItemFinderComment", "secret"},
        {"kMDItemAuthors", AttributeValue{"Ann", "secret"}},
        {"kMDItemKeywords", AttributeValue{"secret"}},
        {"kMDItemUserTags", AttributeValue{"secret"}},
    };
    for (const auto& [key, value] : covered) {
        const MemoryItem item{{key, value}};
        EXPECT_TRUE(matches("* == 'secret'", item)) << key;
        EXPECT_TRUE(matches("** == 'secret'", item)) << key;
        EXPECT_FALSE(matches("* != 'secret'", item)) << key;
        EXPECT_TRUE(matches("* == '*'", item)) << key;
    }
    const std::pair<const char*, AttributeValue> leftOut[] = {
        {"kMDItemPath", "secret"},
        {"kMDItemContentType", "secret"},
        {"kMDItemContentTypeTree", AttributeValue{"secret"}},
        {"kMDItemFSSize", 5},
        {"kMDItemNotInTheSchema", "secret"},
    };
    for (const auto& [key, value] : leftOut) {
        const MemoryItem item{{key, value}};
        EXPECT_FALSE(matches("* == 'secret'", item)) << key;
        EXPECT_FALSE(matches("** == 'secret'", item)) << key;
        EXPECT_TRUE(matches("* != 'secret'", item)) << key;
        EXPECT_FALSE(matches("* == '*'", item)) << key;
    }
    // "**" adds the text content, with its word semantics.
    const MemoryItem content = withText("a secret plan");
    EXPECT_FALSE(matches("* == 'secret'", content));
    EXPECT_TRUE(matches("** == 'secret'", content));
    EXPECT_TRUE(matches("** == '*'", content));
    EXPECT_FALSE(matches("** == 'a secret'", named("no secret here")));
    EXPECT_TRUE(matches("** == 'a secret'", content));
    // The application's "any text contains words" query.
    const char* words = "((((* == 'big'cdw)) && ((* == 'cat'cdw))) || (((kMDItemTextContent == 'big'cdw)) && "
                        "((kMDItemTextContent == 'cat'cdw))))";
    EXPECT_TRUE(matches(words, named("Big-Cat.jpg")));
    EXPECT_TRUE(matches(words, MemoryItem{{"kMDItemDisplayName", "big.jpg"}, {"kMDItemTitle", "A CAT"}}));
    EXPECT_TRUE(matches(words, withText("the cat is big")));
    EXPECT_FALSE(matches(words, named("bigcat.jpg")));
    EXPECT_FALSE(matches(words, MemoryItem{{"kMDItemDisplayName", "big.jpg"}, {"kMDItemPath", "/cat/big.jpg"}}));
}

TEST(Lists, MatchWhenAnyElementDoes)
{
    const MemoryItem png{{"kMDItemContentTypeTree", AttributeValue{"public.png", "public.image", "public.data"}}};
    EXPECT_TRUE(matches("kMDItemContentTypeTree == 'public.image'", png));
    EXPECT_TRUE(matches("kMDItemContentTypeTree == 'PUBLIC.IMAGE'c", png));
    EXPECT_FALSE(matches("kMDItemContentTypeTree != 'public.image'", png));
    EXPECT_FALSE(matches("kMDItemContentTypeTree == 'public.movie'", png));
    EXPECT_TRUE(matches("kMDItemContentTypeTree != 'public.movie'", png));
    EXPECT_TRUE(matches("kMDItemContentTypeTree < 'public.e'", png));
    EXPECT_FALSE(matches("kMDItemContentTypeTree < 'public.a'", png));
    EXPECT_TRUE(matches("InRange(kMDItemContentTypeTree, 'public.i', 'public.j')", png));
    EXPECT_FALSE(matches("InRange(kMDItemContentTypeTree, 'public.q', 'public.z')", png));

    const MemoryItem authors{{"kMDItemAuthors", AttributeValue{"Ann Lee", "Bob Frédéric"}}};
    EXPECT_TRUE(matches("kMDItemAuthors == 'frederic'cdw", authors));
    EXPECT_TRUE(matches("kMDItemAuthors == 'ann*'c", authors));
    EXPECT_FALSE(matches("kMDItemAuthors == 'lee*'c", authors));

    const MemoryItem pages{{"kMDItemLayerNames", AttributeValue{"a"}}, {"kMDItemPixelWidth", 10}};
    EXPECT_TRUE(matches("kMDItemLayerNames == 'a'", pages));

    // An empty list is no value.
    const MemoryItem empty{{"kMDItemAuthors", AttributeValue::list({})}};
    EXPECT_FALSE(matches("kMDItemAuthors == '*'", empty));
    EXPECT_TRUE(matches("kMDItemAuthors != '*'", empty));
    EXPECT_TRUE(matches("kMDItemAuthors == null", empty));
    EXPECT_TRUE(matches("kMDItemAuthors != 'x'", empty));
}

TEST(Presence, StarAndNullTestWhetherTheAttributeIsThere)
{
    const MemoryItem item{{"kMDItemDisplayName", "a"},
                          {"kMDItemFSSize", 0},
                          {"kMDItemFSInvisible", false},
                          {"kMDItemContentCreationDate", Date{0}},
                          {"kMDItemComment", ""}};
    for (const char* key : {"kMDItemDisplayName", "kMDItemFSSize", "kMDItemFSInvisible", "kMDItemContentCreationDate",
                            "kMDItemComment"}) {
        const std::string k = key;
        EXPECT_TRUE(matches(k + " == '*'", item)) << key;
        EXPECT_TRUE(matches(k + " == \"**\"cd", item)) << key;
        EXPECT_TRUE(matches(k + " == *", item)) << key;
        EXPECT_FALSE(matches(k + " != '*'", item)) << key;
        EXPECT_FALSE(matches(k + " == null", item)) << key;
        EXPECT_TRUE(matches(k + " != null", item)) << key;
    }
    for (const char* key : {"kMDItemTitle", "kMDItemFSLabel", "kMDItemDueDate", "kMDItemFlashOnOff", "kMDItemBogus"}) {
        const std::string k = key;
        EXPECT_FALSE(matches(k + " == '*'", item)) << key;
        EXPECT_TRUE(matches(k + " != '*'", item)) << key;
        EXPECT_TRUE(matches(k + " = null", item)) << key;
        EXPECT_TRUE(matches(k + " = NIL", item)) << key;
        EXPECT_FALSE(matches(k + " != null", item)) << key;
    }
    // An escaped asterisk is the character, not presence.
    EXPECT_FALSE(matches("kMDItemDisplayName == '\\*'", item));
    EXPECT_TRUE(matches("kMDItemDisplayName == '\\*'", named("*")));
    // The application's "include invisible files" clause matches everything.
    const char* invisible = "(kMDItemDisplayName == '*') && ((kMDItemFSInvisible = '0') || (kMDItemFSInvisible = '1') "
                            "|| (kMDItemFSInvisible = null))";
    EXPECT_TRUE(matches(invisible, item));
    EXPECT_TRUE(matches(invisible, MemoryItem{{"kMDItemDisplayName", "b"}, {"kMDItemFSInvisible", true}}));
    EXPECT_TRUE(matches(invisible, named("c")));
}

TEST(Negation, NotEqualHoldsForItemsWithoutTheAttribute)
{
    const MemoryItem bare;
    const char* queries[] = {
        "kMDItemDisplayName == 'x'",   "kMDItemDisplayName == 'x'cdw", "kMDItemFSSize == 5",
        "kMDItemFSSize == '5'",        "kMDItemFSContentChangeDate == $time.today",
        "kMDItemFSInvisible == true",  "kMDItemAuthors == 'x'",        "* == 'x'",
        "** == 'x'",                   "kMDItemUnknownToEveryone == 'x'",
    };
    for (const char* query : queries) {
        std::string notEqual = query;
        notEqual.replace(notEqual.find("=="), 2, "!=");
        EXPECT_FALSE(matches(query, bare)) << query;
        EXPECT_TRUE(matches(notEqual, bare)) << notEqual;
        EXPECT_TRUE(matches(std::string("!(") + query + ")", bare)) << query;
    }
    // Ordering operators and InRange are false without a value, also negated
    // only by "!".
    EXPECT_FALSE(matches("kMDItemFSSize < 5", bare));
    EXPECT_FALSE(matches("kMDItemFSSize >= 5", bare));
    EXPECT_FALSE(matches("InRange(kMDItemFSSize, 0, 5)", bare));
    EXPECT_TRUE(matches("!(kMDItemFSSize < 5)", bare));
}

TEST(Numbers, QuotedAndBareValuesCompareNumerically)
{
    const MemoryItem big{{"kMDItemFSSize", 5000001}};
    const MemoryItem exact{{"kMDItemFSSize", 5000000}};
    EXPECT_TRUE(matches("(kMDItemFSSize > '5000000')", big));
    EXPECT_FALSE(matches("(kMDItemFSSize > '5000000')", exact));
    EXPECT_TRUE(matches("kMDItemFSSize >= 5000000", exact));
    EXPECT_TRUE(matches("kMDItemFSSize == 5e6", exact));
    EXPECT_TRUE(matches("kMDItemFSSize = '5000000.0'", exact));
    EXPECT_TRUE(matches("kMDItemFSSize = ' 5000000 '", exact));
    EXPECT_TRUE(matches("kMDItemFSSize == '5000000'cd", exact));
    EXPECT_FALSE(matches("kMDItemFSSize == '5000001'", exact));
    EXPECT_TRUE(matches("kMDItemFSSize != 5000001", exact));
    // Numerically, not as text: 9 < 10.
    EXPECT_TRUE(matches("kMDItemFSSize < '10'", MemoryItem{{"kMDItemFSSize", 9}}));
    EXPECT_TRUE(matches("kMDItemFSSize <= -1.5", MemoryItem{{"kMDItemFSSize", -2}}));
    EXPECT_TRUE(matches("kMDItemFSLabel = '0'", MemoryItem{{"kMDItemFSLabel", 0}}));
    EXPECT_TRUE(matches("kMDItemFNumber == 2.8", MemoryItem{{"kMDItemFNumber", 2.8}}));
    // A number too small for a double is zero.
    EXPECT_TRUE(matches("kMDItemFSSize == '1e-400'", MemoryItem{{"kMDItemFSSize", 0}}));
    EXPECT_TRUE(matches("kMDItemFSSize > -1e-400", MemoryItem{{"kMDItemFSSize", 1}}));
    // Numbers against a text attribute are texts.
    EXPECT_TRUE(matches("kMDItemDisplayName == 5", named("5")));
    EXPECT_FALSE(matches("kMDItemDisplayName == 5", named("5.0")));
    EXPECT_TRUE(matches("kMDItemVersion == 1.10", MemoryItem{{"kMDItemVersion", "1.10"}}));
}

TEST(Booleans, CompareAsOneAndZero)
{
    const MemoryItem hidden{{"kMDItemFSInvisible", true}};
    const MemoryItem shown{{"kMDItemFSInvisible", false}};
    for (const char* value : {"'1'", "1", "true", "TRUE", "'true'", "'YES'", "1.0"}) {
        const std::string q = std::string("kMDItemFSInvisible = ") + value;
        EXPECT_TRUE(matches(q, hidden)) << q;
        EXPECT_FALSE(matches(q, shown)) << q;
    }
    for (const char* value : {"'0'", "0", "false", "'false'", "'no'"}) {
        const std::string q = std::string("kMDItemFSInvisible == ") + value;
        EXPECT_TRUE(matches(q, shown)) << q;
        EXPECT_FALSE(matches(q, hidden)) << q;
    }
    EXPECT_TRUE(matches("kMDItemFSInvisible > 0", hidden));
    EXPECT_TRUE(matches("kMDItemFSInvisible < 1", shown));
    EXPECT_TRUE(matches("kMDItemFSInvisible != '0'", hidden));
}

TEST(Dates, QuotedSecondsAndIsoDatesAreInstants)
{
    const trovara::test::ScopedTimeZone utc("UTC");
    // 2009-06-15 00:00:00 UTC.
    const MemoryItem created{{"kMDItemContentCreationDate", Date{266716800}}};
    const char* onJune15 =
        "((kMDItemContentCreationDate >= '266716800') && (kMDItemContentCreationDate < '266803200') )";
    EXPECT_TRUE(matches(onJune15, created));
    EXPECT_FALSE(matches(onJune15, MemoryItem{{"kMDItemContentCreationDate", Date{266716799.5}}}));
    EXPECT_FALSE(matches(onJune15, MemoryItem{{"kMDItemContentCreationDate", Date{266803200}}}));
    EXPECT_TRUE(matches("kMDItemContentCreationDate == $time.iso(2009-06-15T00:00:00Z)", created));
    EXPECT_TRUE(matches("kMDItemContentCreationDate == '2009-06-15T02:00:00+02:00'", created));
    EXPECT_TRUE(matches("kMDItemContentCreationDate == '2009-06-15'", created));
    EXPECT_TRUE(matches("kMDItemContentCreationDate == 266716800", created));
    // Modifiers mean nothing to dates.
    EXPECT_TRUE(matches("kMDItemContentCreationDate == '266716800'cdw", created));
    EXPECT_TRUE(matches("kMDItemContentCreationDate >= '$time.iso(2009-06-14)'cd", created));
    // The far-past clause of older hosts, a single-precision number.
    const char* farPast = "(kMDItemLastUsedDate >= '-6.31139e+10') || (kMDItemLastUsedDate = null) || "
                          "(kMDItemFSCreationDate >= '-6.31139e+10')";
    EXPECT_TRUE(matches(farPast, MemoryItem{{"kMDItemLastUsedDate", Date{-9e8}}}));
    EXPECT_TRUE(matches(farPast, MemoryItem{}));
}

TEST(Dates, PeriodsMatchInsideWithEqualAndCompareTheirStart)
{
    const trovara::test::ScopedTimeZone utc("UTC");
    // Today (June 15) runs from kJune15Noon - 12 h to kJune15Noon + 12 h.
    const double midnight = kJune15Noon - 12 * 3600;
    const auto at = [](double seconds) { return MemoryItem{{"kMDItemFSContentChangeDate", Date{seconds}}}; };
    const struct {
        const char* query;
        double seconds;
        bool expected;
    } cases[] = {
        {"kMDItemFSContentChangeDate == $time.today", midnight, true},
        {"kMDItemFSContentChangeDate == $time.today", midnight + 86399.9, true},
        {"kMDItemFSContentChangeDate == $time.today", midnight + 86400, false},
        {"kMDItemFSContentChangeDate == $time.today", midnight - 0.1, false},
        {"kMDItemFSContentChangeDate != $time.today", midnight - 0.1, true},
        {"kMDItemFSContentChangeDate != $time.today", midnight + 5, false},
        {"kMDItemFSContentChangeDate == $time.yesterday", midnight - 1, true},
        {"kMDItemFSContentChangeDate == '$time.yesterday'", midnight, false},
        {"kMDItemFSContentChangeDate >= $time.today", midnight, true},
        {"kMDItemFSContentChangeDate >= $time.today", midnight - 1, false},
        {"kMDItemFSContentChangeDate > $time.today", midnight, false},
        {"kMDItemFSContentChangeDate > $time.today", midnight + 1, true},
        {"kMDItemFSContentChangeDate < $time.today", midnight - 1, true},
        {"kMDItemFSContentChangeDate < $time.today", midnight + 1, false},
        {"kMDItemFSContentChangeDate <= $time.today", midnight, true},
        {"kMDItemFSContentChangeDate >= '$time.today(-3)'", midnight - 3 * 86400, true},
        {"kMDItemFSContentChangeDate >= '$time.today(-3)'", midnight - 3 * 86400 - 1, false},
        {"InRange(kMDItemFSContentChangeDate, $time.today(-1), $time.today)", midnight, true},
        {"InRange(kMDItemFSContentChangeDate, $time.today(-1), $time.today)", midnight - 86400, true},
        {"InRange(kMDItemFSContentChangeDate, $time.today(-1), $time.today)", midnight + 1, false},
        {"InRange(kMDItemFSContentChangeDate, $time.today(-1), $time.today)", midnight - 86401, false},
        // Instants compare exactly.
        {"kMDItemFSContentChangeDate == $time.now", kJune15Noon, true},
        {"kMDItemFSContentChangeDate == $time.now", kJune15Noon + 1, false},
        {"kMDItemFSContentChangeDate <= '$time.now(-0)'", kJune15Noon, true},
        {"kMDItemFSContentChangeDate <= '$time.now(-0)'", kJune15Noon + 1, false},
        {"kMDItemFSContentChangeDate >= '$time.now(-7200)'", kJune15Noon - 7200, true},
        {"kMDItemFSContentChangeDate >= '$time.now(-7200)'", kJune15Noon - 7201, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(matches(c.query, at(c.seconds)), c.expected) << c.query << " at " << c.seconds - midnight;
    }
    // "Modified within the last 3 days": from midnight 3 days ago up to now,
    // but nothing dated in the future.
    const char* withinLast3Days = "((kMDItemFSContentChangeDate >= '$time.today(-3)') && "
                                  "kMDItemFSContentChangeDate <= '$time.now(-0)')";
    EXPECT_TRUE(matches(withinLast3Days, at(midnight - 3 * 86400)));
    EXPECT_TRUE(matches(withinLast3Days, at(kJune15Noon)));
    EXPECT_FALSE(matches(withinLast3Days, at(kJune15Noon + 60)));
    EXPECT_FALSE(matches(withinLast3Days, at(midnight - 3 * 86400 - 60)));
}

TEST(TextOrdering, ComparesFoldedTexts)
{
    EXPECT_TRUE(matches("kMDItemDisplayName < 'b'", named("apple")));
    EXPECT_TRUE(matches("kMDItemDisplayName < 'b'", named("Banana")));  // "B" sorts before "b"
    EXPECT_FALSE(matches("kMDItemDisplayName < 'b'c", named("Banana")));
    EXPECT_TRUE(matches("kMDItemDisplayName >= 'B'c", named("banana")));
    EXPECT_TRUE(matches("kMDItemDisplayName > 'e'", named("é")));
    EXPECT_FALSE(matches("kMDItemDisplayName > 'e'd", named("é")));
    EXPECT_TRUE(matches("kMDItemDisplayName <= 'e'cd", named("É")));
    // Wildcards mean nothing to ordering: "*" is just a character.
    EXPECT_TRUE(matches("kMDItemDisplayName > 'a*'", named("a+")));
    EXPECT_TRUE(matches("InRange(kMDItemDisplayName, 'a', 'c')", named("c")));
    EXPECT_TRUE(matches("InRange(kMDItemDisplayName, 'a', 'c')", named("a")));
    EXPECT_FALSE(matches("InRange(kMDItemDisplayName, 'a', 'c')", named("ca")));
    EXPECT_TRUE(matches("InRange(kMDItemDisplayName, 'A'c, 'C'c)", named("Bob")));
    EXPECT_TRUE(matches("kMDItemTextContent > 'yak'", withText("apple zebra")));
    EXPECT_FALSE(matches("kMDItemTextContent > 'zz'", withText("apple zebra")));
    EXPECT_TRUE(matches("InRange(kMDItemTextContent, 'x', 'zz')", withText("apple zebra")));
}

TEST(Numbers, InRangeIsInclusiveAtBothEnds)
{
    for (const auto& [size, expected] : std::vector<std::pair<double, bool>>{
             {9.999, false}, {10, true}, {15, true}, {20, true}, {20.001, false}}) {
        EXPECT_EQ(matches("InRange(kMDItemFSSize, 10, '20')", MemoryItem{{"kMDItemFSSize", size}}), expected)
            << size;
    }
    EXPECT_FALSE(matches("InRange(kMDItemFSSize, 20, 10)", MemoryItem{{"kMDItemFSSize", 15}}));
    EXPECT_FALSE(matches("InRange(kMDItemFSSize, 20, 10)", MemoryItem{{"kMDItemFSSize", 20}}));
}

TEST(UnknownAttributes, AreAbsentOrCompareAsText)
{
    EXPECT_TRUE(parseQuery("kMDItemNoSuchThing == 'x'").ok());
    EXPECT_FALSE(matches("kMDItemNoSuchThing == '*'", named("x")));
    EXPECT_TRUE(matches("kMDItemNoSuchThing != 'x'", named("x")));
    // Attribute names are case-sensitive.
    EXPECT_FALSE(matches("kmditemdisplayname == 'x'", named("x")));
    // An item may carry attributes the schema does not know: their values
    // compare as text, numbers included.
    const MemoryItem custom{{"org.example.count", "5"}, {"orgExampleNumber", 5}};
    EXPECT_TRUE(matches("org == 'x' || orgExampleNumber == '5'", custom));
    EXPECT_TRUE(matches("orgExampleNumber > '10'", custom));  // "5" sorts after "10"
    EXPECT_TRUE(matches("orgExampleNumber == '5*'", custom));
}

TEST(Evaluator, CombinesWithBooleanOperators)
{
    const MemoryItem item = named("x");
    EXPECT_TRUE(matches("true", item));
    EXPECT_FALSE(matches("false", item));
    EXPECT_TRUE(matches("true || false && false", item));
    EXPECT_FALSE(matches("(true || false) && false", item));
    EXPECT_FALSE(matches("!true && false", item));
    EXPECT_TRUE(matches("!(true && false)", item));
    EXPECT_TRUE(matches("!false && !false && true", item));
    EXPECT_FALSE(matches("! ( (kMDItemDisplayName == 'x') || (kMDItemDisplayName == 'y') )", item));
    EXPECT_TRUE(matches("! ( (kMDItemDisplayName == '*tmp*'cd) )", item));
}

TEST(Evaluator, KeepsItsCompiledQueryAndCanBeShared)
{
    const auto query = parseQuery("kMDItemDisplayName == 'a*'c && kMDItemFSSize > 10");
    ASSERT_TRUE(query.ok());
    const Evaluator evaluator(query.value(), kStart);
    const Evaluator copy = evaluator;
    const MemoryItem yes{{"kMDItemDisplayName", "Alpha"}, {"kMDItemFSSize", 11}};
    const MemoryItem no{{"kMDItemDisplayName", "Beta"}, {"kMDItemFSSize", 11}};
    EXPECT_TRUE(evaluator.matches(yes));
    EXPECT_FALSE(evaluator.matches(no));
    EXPECT_TRUE(copy.matches(yes));
    EXPECT_FALSE(copy.matches(no));
}

// For random items and values, "!=" must be the exact negation of "==", and
// "!" of any query the negation of the query; the canonical text of a query
// must evaluate the same as the query.
TEST(EvaluatorProperties, NotEqualNegatesEqualAndCanonicalTextAgrees)
{
    const trovara::test::ScopedTimeZone utc("UTC");
    std::mt19937 random(20240615);
    const auto pick = [&](const auto& list) { return list[random() % std::size(list)]; };

    const char* attributes[] = {"kMDItemDisplayName", "kMDItemAuthors", "kMDItemFSSize", "kMDItemFSInvisible",
                                "kMDItemFSContentChangeDate", "kMDItemTextContent", "kMDItemCustom", "*", "**"};
    const char* values[] = {"'*'",      "'**'",       "null",         "'paris'",       "'Paris'c",
                            "'par*'cd", "'*is'w",     "'Frédéric'cd", "'love paris'cw", "''",
                            "5",        "'5'",        "-1",           "'1e3'",         "true",
                            "'0'",      "$time.today", "'$time.this_week(-1)'", "$time.now(-60)", "'\\*'",
                            "'ﬁ*'c",    "'İ*'cd",     "paris cd",     "'x'"};
    const char* orderings[] = {"<", ">=", "=="};
    const char* texts[] = {"Paris", "paris", "I love Paris", "Frederic", "", "*", "5", "ﬁle", "istanbul", "1000"};

    const auto randomScalar = [&](int kind) -> Scalar {
        switch (kind) {
        case 0:
            return std::string(pick(texts));
        case 1:
            return static_cast<double>(static_cast<int>(random() % 2001) - 1000);
        case 2:
            return Date{kJune15Noon + static_cast<double>(static_cast<int>(random() % 2000000) - 1000000)};
        default:
            return random() % 2 == 0;
        }
    };
    const auto randomItem = [&] {
        MemoryItem item;
        if (random() % 3) {
            item.set("kMDItemDisplayName", randomScalar(0));
        }
        if (random() % 3) {
            std::vector<Scalar> list;
            for (unsigned n = random() % 3; n > 0; --n) {
                list.push_back(randomScalar(0));
            }
            item.set("kMDItemAuthors", AttributeValue::list(std::move(list)));
        }
        if (random() % 3) {
            item.set("kMDItemFSSize", randomScalar(1));
        }
        if (random() % 3) {
            item.set("kMDItemFSInvisible", randomScalar(3));
        }
        if (random() % 3) {
            item.set("kMDItemFSContentChangeDate", randomScalar(2));
        }
        if (random() % 3) {
            item.set("kMDItemCustom", randomScalar(static_cast<int>(random() % 4)));
        }
        if (random() % 3) {
            item.setTextContent(std::string(pick(texts)) + " " + pick(texts));
        }
        return item;
    };

    int checked = 0;
    for (int round = 0; round < 300; ++round) {
        const MemoryItem item = randomItem();
        for (int q = 0; q < 10; ++q) {
            const std::string attribute = pick(attributes);
            const std::string value = pick(values);
            const std::string equal = attribute + " == " + value;
            const std::string notEqual = attribute + " != " + value;
            if (const auto refused = parseQuery(equal); !refused) {
                // A text no number, date or Boolean attribute could hold.
                EXPECT_NE(refused.error().message.find(" for " + attribute + ", found "), std::string::npos)
                    << refused.error().message;
                EXPECT_FALSE(parseQuery(notEqual).ok()) << notEqual;
                continue;
            }
            const bool e = matches(equal, item);
            EXPECT_NE(e, matches(notEqual, item)) << equal;
            EXPECT_NE(e, matches("!(" + equal + ")", item)) << equal;
            const std::string other = std::string(pick(attributes)) + " " + pick(orderings) + " " +
                                      (value == "null" ? "'x'" : value);
            const std::string combined = "(" + equal + " || " + other + ") && !" + notEqual;
            const auto parsed = parseQuery(combined);
            if (!parsed) {
                EXPECT_FALSE(parseQuery(other).ok()) << combined << ": " << parsed.error().message;
                continue;
            }
            const bool direct = Evaluator(parsed.value(), kStart).matches(item);
            EXPECT_EQ(direct, matches(toText(parsed.value()), item)) << combined;
            EXPECT_NE(direct, matches("!(" + combined + ")", item)) << combined;
            ++checked;
        }
    }
    EXPECT_GT(checked, 2000);
}
