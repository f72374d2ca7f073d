#include "index/query/evaluator.h"
#include "index/query/find_query.h"
#include "index/query/parser.h"

#include <gtest/gtest.h>

using namespace trovara::index::query;

namespace {

const QueryStart kStart{0, Weekday::Monday};

bool finds(const std::string& query, const ItemView& item)
{
    const auto result = matchesQuery(query, item, kStart);
    if (!result) {
        ADD_FAILURE() << query << ": " << result.error().message;
        return false;
    }
    return *result;
}

MemoryItem file(const char* name, const char* content = nullptr)
{
    MemoryItem item{{"kMDItemDisplayName", name}, {"kMDItemFSName", name}, {"kMDItemPath", std::string("/x/") + name}};
    if (content) {
        item.setTextContent(content);
    }
    return item;
}

}  // namespace

TEST(FindQuery, InterpretsEachWordAsAPrefixOfAnyTextOrTheContent)
{
    EXPECT_EQ(interpretWords("report"), "(* = \"report*\"cdw || kMDItemTextContent = \"report*\"cdw)");
    EXPECT_EQ(interpretWords("  big \t cat "),
              "(* = \"big*\"cdw || kMDItemTextContent = \"big*\"cdw) && "
              "(* = \"cat*\"cdw || kMDItemTextContent = \"cat*\"cdw)");
    EXPECT_EQ(interpretWords(""), "");
    EXPECT_EQ(interpretWords(" \t\n"), "");
    // Quotes, backslashes and wildcards are searched for as typed.
    EXPECT_EQ(interpretWords("say\"hi\\*?"),
              "(* = \"say\\\"hi\\\\\\*\\?*\"cdw || kMDItemTextContent = \"say\\\"hi\\\\\\*\\?*\"cdw)");
    for (const char* words : {"O'Neil", "a\"b", "c:\\temp\\", "50% off?", "東京 タワー", "(x || y)", "&& !"}) {
        EXPECT_TRUE(parseQuery(interpretWords(words)).ok()) << words;
    }
}

TEST(FindQuery, InterpretedWordsFindWhatAPersonMeans)
{
    const MemoryItem report = file("Annual-Report 2023.pdf", "The reporting period ended.");
    const MemoryItem chopin = file("Frédéric Chopin.mp3");
    const MemoryItem notes = file("notes.txt", "what? nothing");
    EXPECT_TRUE(finds(interpretWords("report"), report));
    EXPECT_TRUE(finds(interpretWords("REPORTING"), report));   // only in the text
    EXPECT_TRUE(finds(interpretWords("annual 2023"), report));
    EXPECT_FALSE(finds(interpretWords("annual 2024"), report));  // every word must be found
    EXPECT_FALSE(finds(interpretWords("port"), report));         // words begin with it
    EXPECT_FALSE(finds(interpretWords("x"), report));            // not through the path
    EXPECT_TRUE(finds(interpretWords("fred"), chopin));
    EXPECT_TRUE(finds(interpretWords("chopin frederic"), chopin));
    EXPECT_TRUE(finds(interpretWords("what?"), notes));
    EXPECT_TRUE(finds(interpretWords("noth*"), notes));
}

TEST(FindQuery, NameSearchesTheFileNameLiterally)
{
    EXPECT_EQ(nameQuery("report"), "kMDItemFSName == \"*report*\"cd");
    EXPECT_EQ(nameQuery("a\"b\\c*d?"), "kMDItemFSName == \"*a\\\"b\\\\c\\*d\\?*\"cd");
    EXPECT_TRUE(finds(nameQuery("REPORT"), file("annual report.pdf")));
    EXPECT_TRUE(finds(nameQuery("Resume"), file("My résumé.odt")));
    EXPECT_FALSE(finds(nameQuery("report"), MemoryItem{{"kMDItemDisplayName", "report"}}));
    EXPECT_TRUE(finds(nameQuery("a\"b\\c*d?"), file("xa\"b\\c*d?y")));
    EXPECT_FALSE(finds(nameQuery("a*d"), file("abcd")));
    EXPECT_TRUE(finds(nameQuery("a*d"), file("xa*d")));
    EXPECT_FALSE(finds(nameQuery("?"), file("x")));
    EXPECT_TRUE(finds(nameQuery(""), file("x")));
}

TEST(FindQuery, TakesExpressionsAsWrittenAndInterpretsTheRest)
{
    EXPECT_TRUE(isQueryExpression("kMDItemFSSize > 5"));
    EXPECT_TRUE(isQueryExpression("(kMDItemFSInvisible = null)"));
    EXPECT_TRUE(isQueryExpression("true && InRange(kMDItemFSSize, 1, 2)"));
    for (const char* words : {"report", "big cat", "true", "false", "kMDItemFSSize >", "", "a == 'x"}) {
        EXPECT_FALSE(isQueryExpression(words)) << words;
    }

    const auto expression = findQuery("kMDItemFSSize > 5", std::nullopt, false);
    ASSERT_TRUE(expression.ok());
    EXPECT_EQ(expression->text, "kMDItemFSSize > 5");
    EXPECT_FALSE(expression->interpreted);

    const auto words = findQuery("big cat", std::nullopt, false);
    ASSERT_TRUE(words.ok());
    EXPECT_EQ(words->text, interpretWords("big cat"));
    EXPECT_TRUE(words->interpreted);

    const auto forced = findQuery("kMDItemFSSize > 5", std::nullopt, true);
    ASSERT_TRUE(forced.ok());
    EXPECT_TRUE(forced->interpreted);
    EXPECT_EQ(forced->text, interpretWords("kMDItemFSSize 5"));  // ">" names nothing to find

    const auto withName = findQuery("kMDItemFSSize > 5", std::string("tmp"), false);
    ASSERT_TRUE(withName.ok());
    EXPECT_EQ(withName->text, "(kMDItemFSSize > 5) && kMDItemFSName == \"*tmp*\"cd");
    EXPECT_TRUE(finds(withName->text, MemoryItem{{"kMDItemFSName", "a.TMP"}, {"kMDItemFSSize", 6}}));
    EXPECT_FALSE(finds(withName->text, MemoryItem{{"kMDItemFSName", "a.TMP"}, {"kMDItemFSSize", 5}}));
    // Parentheses keep an OR inside the query from escaping the name test.
    const auto orName = findQuery("kMDItemFSSize > 5 || kMDItemFSSize < 2", std::string("tmp"), false);
    ASSERT_TRUE(orName.ok());
    EXPECT_FALSE(finds(orName->text, MemoryItem{{"kMDItemFSName", "other"}, {"kMDItemFSSize", 1}}));

    const auto nameOnly = findQuery("  ", std::string("tmp"), false);
    ASSERT_TRUE(nameOnly.ok());
    EXPECT_EQ(nameOnly->text, "kMDItemFSName == \"*tmp*\"cd");

    const auto nothing = findQuery(" ", std::nullopt, false);
    ASSERT_FALSE(nothing.ok());
    EXPECT_EQ(nothing.error().kind, trovara::index::Failure::Kind::InvalidQuery);
}

TEST(FindQuery, AMistypedExpressionIsAnErrorNotAWordSearch)
{
    for (const char* text : {"kMDItemFSSize >", "a == 'x", "kMDItemFSSize > 5 &&", "(kMDItemFSName == 'a'"}) {
        const auto result = findQuery(text, std::nullopt, false);
        ASSERT_FALSE(result.ok()) << text;
        EXPECT_EQ(result.error().kind, trovara::index::Failure::Kind::InvalidQuery) << text;
        EXPECT_NE(result.error().message.find("position"), std::string::npos) << result.error().message;
    }
    // Without an operator it is words, whatever they spell.
    for (const char* text : {"report 2024", "kMDItemFSSize", "C++ notes", "what?"}) {
        const auto result = findQuery(text, std::nullopt, false);
        ASSERT_TRUE(result.ok()) << text;
        EXPECT_TRUE(result->interpreted) << text;
    }
    // With -interpret even operators are words.
    EXPECT_TRUE(findQuery("a == 'x", std::nullopt, true).ok());
}

TEST(FindQuery, PunctuationAloneIsAnErrorNotEveryItem)
{
    // Such a word has no letter or digit to look for; searched for, it
    // matched every item that has a word at all.
    const std::pair<const char*, const char*> refused[] = {
        {".", "position 1: expected a word with a letter or digit, found \".\""},
        {"*", "position 1: expected a word with a letter or digit, found \"*\""},
        {"-", "position 1: expected a word with a letter or digit, found \"-\""},
        {"  …", "position 3: expected a word with a letter or digit, found \"…\""},
        {"\xff", "position 1: expected a word with a letter or digit, found a word that is not valid UTF-8"},
        {"-- ... !?", "position 1: expected a word with a letter or digit, found \"--\""},
        {"()", "position 1: expected a word with a letter or digit, found \"()\""},
    };
    for (const auto& [text, message] : refused) {
        for (const bool interpret : {false, true}) {
            const auto result = findQuery(text, std::nullopt, interpret);
            ASSERT_FALSE(result.ok()) << text << " became " << result->text;
            EXPECT_EQ(result.error().kind, trovara::index::Failure::Kind::InvalidQuery);
            EXPECT_EQ(result.error().message, message) << text;
        }
    }
    // Beside real words it is left out, as a person means it.
    const auto mixed = findQuery("annual - report …", std::nullopt, false);
    ASSERT_TRUE(mixed.ok());
    EXPECT_EQ(mixed->text, interpretWords("annual report"));
    EXPECT_FALSE(finds(mixed->text, file("annual.txt")));
    const auto name = findQuery("", std::string("."), false);  // -name is a literal text
    ASSERT_TRUE(name.ok());
    EXPECT_TRUE(finds(name->text, file("a.b")));
    EXPECT_FALSE(finds(name->text, file("ab")));
}

TEST(FindQuery, UnbalancedParenthesesAreAnErrorWithThePosition)
{
    const std::pair<std::string, std::string> refused[] = {
        {"(", "position 2: expected \")\" to close the \"(\" at position 1"},
        {"report (final", "position 14: expected \")\" to close the \"(\" at position 8"},
        {"((draft)", "position 9: expected \")\" to close the \"(\" at position 1"},
        {"draft)", "position 6: found \")\" without a \"(\" before it"},
        {"é) (x", "position 2: found \")\" without a \"(\" before it"},
        {std::string(10000, '('), "position 10001: expected \")\" to close the \"(\" at position 10000"},
    };
    for (const auto& [text, message] : refused) {
        const auto result = findQuery(text, std::nullopt, false);
        ASSERT_FALSE(result.ok()) << text;
        EXPECT_EQ(result.error().message, message) << text;
    }
    // Balanced, they are part of the words.
    const auto balanced = findQuery("report (final)", std::nullopt, false);
    ASSERT_TRUE(balanced.ok());
    EXPECT_TRUE(finds(balanced->text, file("report (final).odt")));
    // -interpret takes every character as part of a word.
    EXPECT_TRUE(findQuery("report (final", std::nullopt, true).ok());
}
