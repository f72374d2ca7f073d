// Colouring search terms: which ranges of a text each term colours, and in
// which colour.
#include "preview/search_term_matcher.h"

#include "preview_test_support.h"
#include "test_support.h"

#include <gtest/gtest.h>

namespace trovara::preview {

namespace {

struct Case {
    const char* name;
    QString text;
    QStringList terms;
    std::vector<TermMatch> expected;
};

class Matching : public ::testing::TestWithParam<Case> {};

TEST_P(Matching, ColoursTheExpectedRanges)
{
    const Case& c = GetParam();
    EXPECT_EQ(SearchTermMatcher(c.terms).colorRanges(c.text), c.expected) << c.name;
}

const Case kCases[] = {
    {"one term", QStringLiteral("The harbour at dawn"), {QStringLiteral("harbour")}, {{4, 7, 0}}},
    {"any case", QStringLiteral("HARBOUR harbour Harbour"), {QStringLiteral("hArBoUr")},
     {{0, 7, 0}, {8, 7, 0}, {16, 7, 0}}},
    {"matches never overlap", QStringLiteral("abababa"), {QStringLiteral("aba")}, {{0, 3, 0}, {4, 3, 0}}},
    {"the earliest match wins, whatever the term's place", QStringLiteral("foo bar foo"),
     {QStringLiteral("bar"), QStringLiteral("foo")}, {{0, 3, 1}, {4, 3, 0}, {8, 3, 1}}},
    {"at the same start the longer wins", QStringLiteral("foobar foo"),
     {QStringLiteral("foo"), QStringLiteral("foobar")}, {{0, 6, 1}, {7, 3, 0}}},
    {"equal matches go to the earlier term", QStringLiteral("abc"), {QStringLiteral("ABC"), QStringLiteral("abc")},
     {{0, 3, 0}}},
    {"a match inside a longer one is not coloured again", QStringLiteral("seashore"),
     {QStringLiteral("seashore"), QStringLiteral("shore")}, {{0, 8, 0}}},
    {"no term found", QStringLiteral("nothing here"), {QStringLiteral("harbour")}, {}},
    {"no terms", QStringLiteral("nothing here"), {}, {}},
    {"an empty term never matches but keeps its colour's place", QStringLiteral("b"),
     {QString(), QStringLiteral("b")}, {{0, 1, 1}}},
    {"sharp s found by its capital spelling", QStringLiteral("Die Straße"), {QStringLiteral("STRASSE")},
     {{4, 6, 0}}},
    {"capital spelling found by the sharp s", QStringLiteral("DIE STRASSE"), {QStringLiteral("straße")},
     {{4, 7, 0}}},
    {"half of a sharp s is no match", QStringLiteral("ßs"), {QStringLiteral("s")}, {{1, 1, 0}}},
    {"a character that folds longer at the very start", QStringLiteral("ßa"), {QStringLiteral("A")}, {{1, 1, 0}}},
    {"positions after a character that folds longer", QStringLiteral("ßß harbour"), {QStringLiteral("harbour")},
     {{3, 7, 0}}},
    {"dotted capital I is an i", QStringLiteral("İstanbul and ISTANBUL"), {QStringLiteral("istanbul")},
     {{0, 8, 0}, {13, 8, 0}}},
    {"dotless i stays apart from i", QStringLiteral("ılık"), {QStringLiteral("ilik")}, {}},
    {"final sigma", QStringLiteral("ΛΟΓΟΣ λογος"), {QStringLiteral("λογος")}, {{0, 5, 0}, {6, 5, 0}}},
    {"ligature fi", QStringLiteral("ﬁnal"), {QStringLiteral("FINAL")}, {{0, 4, 0}}},
    {"Japanese", QStringLiteral("東京タワーとタワー"), {QStringLiteral("タワー")}, {{2, 3, 0}, {6, 3, 0}}},
    {"characters outside the basic plane", QStringLiteral("a😀b 😀B"), {QStringLiteral("😀b")},
     {{1, 3, 0}, {5, 3, 0}}},
    {"full-width letters fold by case only", QStringLiteral("ＡＢＣ abc"), {QStringLiteral("ａｂｃ")}, {{0, 3, 0}}},
};

INSTANTIATE_TEST_SUITE_P(SearchTermMatcher, Matching, ::testing::ValuesIn(kCases));

TEST(SearchTermMatcher, TheNineColoursComeInTheirOrderAndRepeat)
{
    const char* names[] = {"red", "green", "blue", "purple", "magenta", "cyan", "orange", "yellow", "brown"};
    ASSERT_EQ(highlightColors().size(), 9u);
    for (int i = 0; i < 9; ++i) {
        EXPECT_STREQ(highlightColors()[static_cast<std::size_t>(i)].name, names[i]);
        EXPECT_STREQ(colorForTerm(i).name, names[i]);
    }
    EXPECT_STREQ(colorForTerm(9).name, "red");
    EXPECT_STREQ(colorForTerm(13).name, "magenta");
}

TEST(SearchTermMatcher, TheTenthTermIsColouredAsTheFirst)
{
    QStringList terms;
    QString text;
    for (int i = 0; i < 10; ++i) {
        terms.append(QStringLiteral("w%1x").arg(i));
        text += terms.back() + QLatin1Char(' ');
    }
    const std::vector<TermMatch> matches = SearchTermMatcher(terms).colorRanges(text);
    ASSERT_EQ(matches.size(), 10u);
    EXPECT_EQ(matches[9].term, 9);
    EXPECT_STREQ(colorForTerm(matches[9].term).name, colorForTerm(matches[0].term).name);
}

TEST(SearchTermMatcher, AScanThatIsCancelledStopsEarly)
{
    QString text;
    for (int i = 0; i < 1000; ++i) {
        text += QStringLiteral("word ");
    }
    int asked = 0;
    const auto matches = SearchTermMatcher({QStringLiteral("word")}).colorRanges(text, [&] { return ++asked > 1; });
    EXPECT_GT(matches.size(), 0u);
    EXPECT_LT(matches.size(), 1000u);
}

TEST(SearchTermMatcher, NextAndPreviousMatchWrapAround)
{
    const std::vector<TermMatch> three{{0, 1, 0}, {2, 1, 0}, {4, 1, 0}};
    EXPECT_EQ(nextMatch(three, -1), 0);
    EXPECT_EQ(nextMatch(three, 0), 1);
    EXPECT_EQ(nextMatch(three, 2), 0);
    EXPECT_EQ(previousMatch(three, 0), 2);
    EXPECT_EQ(previousMatch(three, 2), 1);
    EXPECT_EQ(previousMatch(three, -1), 2);
    EXPECT_EQ(nextMatch({}, -1), -1);
    EXPECT_EQ(previousMatch({}, 3), -1);
}

}  // namespace
}  // namespace trovara::preview
