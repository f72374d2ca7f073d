#include "index/query/parser.h"

#include <gtest/gtest.h>

#include <string>

using namespace trovara::index::query;
using trovara::index::Failure;

namespace {

// The canonical text of a query that must parse.
std::string canonical(std::string_view text)
{
    const auto query = parseQuery(text);
    if (!query) {
        ADD_FAILURE() << text << ": " << query.error().message;
        return {};
    }
    return toText(query.value());
}

std::string errorOf(std::string_view text)
{
    const auto query = parseQuery(text);
    if (query) {
        ADD_FAILURE() << text << " parsed as " << toText(query.value());
        return {};
    }
    EXPECT_EQ(query.error().kind, Failure::Kind::InvalidQuery);
    return query.error().message;
}

// The single value of a one-comparison query.
Value valueOf(std::string_view text)
{
    const auto query = parseQuery(text);
    if (!query || query->root.kind != Node::Kind::Compare) {
        ADD_FAILURE() << text << " is not one comparison";
        return {};
    }
    return query->root.values.front();
}

}  // namespace

TEST(QueryParser, BindsNotTighterThanAndTighterThanOr)
{
    const std::pair<const char*, const char*> cases[] = {
        {"a == 1 || b == 2 && c == 3", "(a == 1 || (b == 2 && c == 3))"},
        {"a == 1 && b == 2 || c == 3", "((a == 1 && b == 2) || c == 3)"},
        {"!a == 1 && b == 2", "(!(a == 1) && b == 2)"},
        {"!(a == 1 || b == 2)", "!((a == 1 || b == 2))"},
        {"! ( (a == 1 || b == 2) )", "!((a == 1 || b == 2))"},
        {"!!a == 1", "!(!(a == 1))"},
        {"(a == 1 || b == 2) && c == 3", "((a == 1 || b == 2) && c == 3)"},
        {"a == 1 && b == 2 && c == 3", "(a == 1 && b == 2 && c == 3)"},
        {"((a == 1))", "a == 1"},
        {"a==1&&b==2||!c==3", "((a == 1 && b == 2) || !(c == 3))"},
        {"\ta == 1\n&&\r\nb == 2 ", "(a == 1 && b == 2)"},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(canonical(input), expected) << input;
    }
}

TEST(QueryParser, ReadsOperatorsAttributesAndKeywords)
{
    const std::pair<const char*, const char*> cases[] = {
        {"kMDItemFSName = 'x'", "kMDItemFSName == \"x\""},
        {"kMDItemFSName == 'x'", "kMDItemFSName == \"x\""},
        {"a != 1", "a != 1"},
        {"a < 1", "a < 1"},
        {"a > 1", "a > 1"},
        {"a <= 1", "a <= 1"},
        {"a >= 1", "a >= 1"},
        {"* == 'x'", "* == \"x\""},
        {"** == 'x'", "** == \"x\""},
        {"_private_2 == 'x'", "_private_2 == \"x\""},
        // Keywords in any case; a name before an operator is an attribute.
        {"TRUE", "true"},
        {"False || a == 1", "(false || a == 1)"},
        {"true == 1", "true == 1"},
        {"InRange == 1", "InRange == 1"},
        {"inrange(kMDItemFSSize, 1, 10)", "InRange(kMDItemFSSize, 1, 10)"},
        {"INRANGE ( * , 'a' , 'c'cd )", "InRange(*, \"a\", \"c\"cd)"},
        {"a == NULL", "a == null"},
        {"a = nil", "a == null"},
        {"a != Null", "a != null"},
        {"a == True", "a == true"},
        {"a == FALSE", "a == false"},
        // The quoted words are texts, not keywords.
        {"a == 'null'", "a == \"null\""},
        {"a == \"true\"", "a == \"true\""},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(canonical(input), expected) << input;
    }
}

TEST(QueryParser, ReadsTextValuesEscapesAndModifiers)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"(a == 'O\'Neil'c)", R"(a == "O'Neil"c)"},
        {R"(a == "say \"hi\"")", R"(a == "say \"hi\"")"},
        {R"(a == 'back\\slash')", R"(a == "back\\slash")"},
        {R"(a == '\*literal\?')", R"(a == "\*literal\?")"},
        {R"(a == '\q\'')", R"(a == "q'")"},
        {"a == 'x'cdw", "a == \"x\"cdw"},
        {"a == 'x'wdc", "a == \"x\"cdw"},
        {"a == 'x't", "a == \"x\"w"},
        {"a == 'x's", "a == \"x\""},
        {"a ==[cd] 'x'", "a == \"x\"cd"},
        {"a !=[c]'x'w", "a != \"x\"cw"},
        {"a == [d] 'x'", "a == \"x\"d"},
        {"a == ''", "a == \"\""},
        {"a == '東京タワー'", "a == \"東京タワー\""},
        // Bare values, with modifiers as the next word.
        {"a == paris", "a == \"paris\""},
        {"a == paris cd", "a == \"paris\"cd"},
        {"a == paris cd && b == 1", "(a == \"paris\"cd && b == 1)"},
        {"(a == paris c)", "a == \"paris\"c"},
        {"a == *.jpg", "a == \"*.jpg\""},
        {"a == 5abc", "a == \"5abc\""},
        {"a == x\\ y", "a == \"x y\""},
        {"a == café", "a == \"café\""},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(canonical(input), expected) << input;
    }
    // A bare word made of other letters is no modifier word.
    EXPECT_FALSE(parseQuery("a == paris cdx").ok());
}

TEST(QueryParser, ReadsNumbers)
{
    struct Case {
        const char* input;
        double number;
    };
    const Case cases[] = {
        {"a == 5000000", 5000000}, {"a == -3", -3},   {"a == +7", 7},       {"a == 1.5", 1.5},
        {"a == .5", 0.5},          {"a == 1.5e3", 1500}, {"a == 2E-2", 0.02}, {"a == -6.31139e+10", -6.31139e10},
    };
    for (const Case& c : cases) {
        const Value value = valueOf(c.input);
        EXPECT_EQ(value.kind, Value::Kind::Number) << c.input;
        EXPECT_DOUBLE_EQ(value.number, c.number) << c.input;
        EXPECT_FALSE(value.quoted) << c.input;
    }
    // Quoted numbers stay texts until compared with an attribute.
    const Value quoted = valueOf("kMDItemFSSize > '5000000'");
    EXPECT_EQ(quoted.kind, Value::Kind::Text);
    EXPECT_TRUE(quoted.quoted);
    EXPECT_EQ(quoted.text, "5000000");
    EXPECT_EQ(valueOf("a == 1.2.3").kind, Value::Kind::Text);
}

TEST(QueryParser, NumbersBeyondADoublesRangeAreZeroOrAnError)
{
    // Too small for a double is as near nothing as a double can tell.
    for (const char* text : {"kMDItemFSSize > 1e-400", "kMDItemFSSize > 0.000001e-399", "kMDItemFSSize > -123e-400"}) {
        const Value value = valueOf(text);
        EXPECT_EQ(value.kind, Value::Kind::Number) << text;
        EXPECT_EQ(value.number, 0) << text;
    }
    EXPECT_DOUBLE_EQ(valueOf("a == 1e-310").number, 1e-310);  // small, yet a double
    // Too large is an error, never a comparison that silently fails.
    EXPECT_EQ(errorOf("kMDItemFSSize < 1e999"),
              "position 17: expected a number within a double's range (about ±1.8e308) for kMDItemFSSize, found "
              "\"1e999\"");
    EXPECT_EQ(errorOf("kMDItemFSSize < '-1e309'"),
              "position 17: expected a number within a double's range (about ±1.8e308) for kMDItemFSSize, found "
              "\"-1e309\"");
    EXPECT_EQ(errorOf("kMDItemFSSize < 223456789e300"),
              "position 17: expected a number within a double's range (about ±1.8e308) for kMDItemFSSize, found "
              "\"223456789e300\"");
}

TEST(QueryParser, RefusesTextsANumberDateOrBooleanAttributeCannotHold)
{
    const std::pair<const char*, const char*> refused[] = {
        {"kMDItemFSSize > 0x10", "position 17: expected a number for kMDItemFSSize, found \"0x10\""},
        {"kMDItemFSSize > 1cd", "position 17: expected a number for kMDItemFSSize, found \"1cd\""},
        {"kMDItemFSSize > NaN", "position 17: expected a number for kMDItemFSSize, found \"NaN\""},
        {"kMDItemFSSize > inf", "position 17: expected a number for kMDItemFSSize, found \"inf\""},
        {"kMDItemFSSize == 1.2.3", "position 18: expected a number for kMDItemFSSize, found \"1.2.3\""},
        {"kMDItemFSSize == 'abc'", "position 18: expected a number for kMDItemFSSize, found \"abc\""},
        {"kMDItemFSSize != ''", "position 18: expected a number for kMDItemFSSize, found \"\""},
        {"kMDItemFSSize < '*'", "position 17: expected a number for kMDItemFSSize, found \"*\""},
        {"kMDItemFSSize == '5*'", "position 18: expected a number for kMDItemFSSize, found \"5*\""},
        {"kMDItemFSInvisible == 'maybe'",
         "position 23: expected a Boolean (1, 0, true or false) for kMDItemFSInvisible, found \"maybe\""},
        {"kMDItemContentCreationDate == 'June 15'",
         "position 31: expected a date (seconds since 2001-01-01, an ISO 8601 date or a $time value) for "
         "kMDItemContentCreationDate, found \"June 15\""},
        {"InRange(kMDItemFSSize, 1, 0x20)", "position 27: expected a number for kMDItemFSSize, found \"0x20\""},
    };
    for (const auto& [text, message] : refused) {
        EXPECT_EQ(errorOf(text), message) << text;
    }
    // What such attributes do take, and what other attributes take as text.
    for (const char* text : {"kMDItemFSSize == '*'", "kMDItemFSSize != \"**\"", "kMDItemFSSize == ' 5e3 '",
                             "kMDItemFSSize > $time.now", "kMDItemFSSize == null", "kMDItemFSInvisible == 'yes'",
                             "kMDItemFSInvisible == true", "kMDItemContentCreationDate == '2009-06-15'",
                             "kMDItemContentCreationDate > 2009-06-15", "kMDItemDisplayName == 0x10",
                             "kMDItemDisplayName == NaN", "kSomethingUnknown > 1cd", "* == 1.2.3"}) {
        EXPECT_TRUE(parseQuery(text).ok()) << text << ": " << errorOf(text);
    }
}

TEST(QueryParser, EmptyGroupsSayNothing)
{
    // An empty criterion's group ("()", "! (  )") is left out by the group
    // around it; a query of nothing else matches every item.
    const std::pair<const char*, const char*> cases[] = {
        {"()", "true"},
        {"! (  )", "true"},
        {"(() || ())", "true"},
        {"((a == 1) && ())", "a == 1"},
        {"(a == 1 || ! (  ) || b == 2)", "(a == 1 || b == 2)"},
        {"((a == 1) && ! (  ))", "a == 1"},
        {"!(() && a == 1)", "!(a == 1)"},
        {"((() || ()) && (a == 1))", "a == 1"},
    };
    for (const auto& [text, tree] : cases) {
        EXPECT_EQ(canonical(text), tree) << text;
    }
    EXPECT_EQ(errorOf("(() a == 1)"), "position 5: expected \")\" to close the \"(\" at position 1, found \"a\"");
    EXPECT_EQ(errorOf("(()"), "position 4: expected \")\" to close the \"(\" at position 1");
}

TEST(QueryParser, ReadsTimeValuesQuotedOrNot)
{
    struct Case {
        const char* input;
        TimeFunction function;
        double amount;
        bool quoted;
    };
    const Case cases[] = {
        {"d >= $time.now", TimeFunction::Now, 0, false},
        {"d >= $time.now()", TimeFunction::Now, 0, false},
        {"d >= $time.now(-7200)", TimeFunction::Now, -7200, false},
        {"d >= $time.now(-2h)", TimeFunction::Now, -7200, false},
        {"d >= $time.now(1.5m)", TimeFunction::Now, 90, false},
        {"d >= $time.now(-1d)", TimeFunction::Now, -86400, false},
        {"d >= $time.now(2w)", TimeFunction::Now, 14 * 86400, false},
        {"d >= $time.now(30s)", TimeFunction::Now, 30, false},
        {"d >= '$time.now(-0)'", TimeFunction::Now, 0, true},
        {"d >= '$time.today(-3)'", TimeFunction::Today, -3, true},
        {"d >= $time.today( -3d )", TimeFunction::Today, -3, false},
        {"d >= $TIME.Today", TimeFunction::Today, 0, false},
        {"d == $time.yesterday", TimeFunction::Yesterday, -1, false},
        {"d == $time.yesterday(-1)", TimeFunction::Yesterday, -2, false},
        {"d == $time.this_week(-2)", TimeFunction::ThisWeek, -2, false},
        {"d == \"$time.last_week\"", TimeFunction::LastWeek, -1, true},
        {"d == $time.this_month(+1m)", TimeFunction::ThisMonth, 1, false},
        {"d == $time.this_year(-1y)", TimeFunction::ThisYear, -1, false},
    };
    for (const Case& c : cases) {
        const Value value = valueOf(c.input);
        EXPECT_EQ(value.kind, Value::Kind::Time) << c.input;
        EXPECT_EQ(value.time.function, c.function) << c.input;
        EXPECT_DOUBLE_EQ(value.time.amount, c.amount) << c.input;
        EXPECT_EQ(value.quoted, c.quoted) << c.input;
    }

    const Value iso = valueOf("d >= $time.iso(2018-10-01T10:00:00Z)");
    ASSERT_EQ(iso.time.function, TimeFunction::Iso);
    EXPECT_EQ(iso.time.iso.year, 2018);
    EXPECT_EQ(iso.time.iso.hour, 10);
    EXPECT_EQ(iso.time.iso.utcOffsetMinutes, 0);
    for (const char* text : {"d >= '$time.iso(2025-03-01)'", "d >= $time.iso('2025-03-01')",
                             "d >= $time.iso( \"2025-03-01\" )", "d >= $time.iso(2025-03-01)"}) {
        const Value value = valueOf(text);
        EXPECT_EQ(value.time.function, TimeFunction::Iso) << text;
        EXPECT_EQ(value.time.iso.day, 1) << text;
        EXPECT_FALSE(value.time.iso.utcOffsetMinutes.has_value()) << text;
    }
    // A time value keeps its spelling for text attributes and canonical text.
    EXPECT_EQ(canonical("d >= $time.today(-3)"), "d >= $time.today(-3)");
    EXPECT_EQ(canonical("d >= '$time.today(-3)'cd"), "d >= \"$time.today(-3)\"cd");
    // Escaping the dollar sign makes an ordinary text.
    EXPECT_EQ(valueOf(R"(a == '\$time.whatever')").kind, Value::Kind::Text);
}

TEST(QueryParser, AcceptsTheQueryTextsTrovaraWrites)
{
    const char* texts[] = {
        "(kMDItemDisplayName == '*report*'cd)",
        "(kMDItemDisplayName == 'O\\'Neil'c)",
        "(kMDItemFSSize > '5000000')",
        "((kMDItemFSContentChangeDate >= '$time.today(-3)') && kMDItemFSContentChangeDate <= '$time.now(-0)')",
        "((kMDItemFSContentChangeDate >= '$time.now(-7200)') && kMDItemFSContentChangeDate <= '$time.now(-0)')",
        "((kMDItemFSContentChangeDate >= '$time.this_week(-2)') && kMDItemFSContentChangeDate <= '$time.now(-0)')",
        "((kMDItemContentCreationDate >= '266716800') && (kMDItemContentCreationDate < '266803200') )",
        "((((* == 'big'cdw)) && ((* == 'cat'cdw))) || (((kMDItemTextContent == 'big'cdw)) && "
        "((kMDItemTextContent == 'cat'cdw))))",
        "((kMDItemOMUserTags == 'work'c) || (kOMUserTags == 'work'c) )",
        "(kMDItemContentTypeTree == 'public.image'c)",
        "((kMDItemDisplayName == '*report*'cd) && (kMDItemFSSize > '5000000'))",
        "! ( (kMDItemDisplayName == '*tmp*'cd) )",
        "! ( ((kMDItemDisplayName == '*tmp*'cd) || (kMDItemFSSize > '5000000')) )",
        "(((kMDItemTextContent == 'ab*'cdw)))",
        "(kMDItemFSLabel = '0')",
        "(kMDItemFSInvisible = null)",
        "((kMDItemDisplayName == '*report*'cd)) && ((kMDItemLastUsedDate >= '-6.31139e+10') || "
        "(kMDItemLastUsedDate = null) || (kMDItemFSCreationDate >= '-6.31139e+10'))",
        "((kMDItemDisplayName == '*report*'cd)) && ((kMDItemFSInvisible = '0') || (kMDItemFSInvisible = '1') || "
        "(kMDItemFSInvisible = null))",
    };
    for (const char* text : texts) {
        EXPECT_TRUE(parseQuery(text).ok()) << text << ": " << errorOf(text);
    }
    EXPECT_EQ(canonical("! ( (kMDItemDisplayName == '*tmp*'cd) )"), "!(kMDItemDisplayName == \"*tmp*\"cd)");
}

TEST(QueryParser, NamesThePositionAndWhatWasExpected)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "position 1: expected an expression"},
        {"   ", "position 4: expected an expression"},
        {"kMDItemFSName", "position 14: expected a comparison operator (==, !=, <, >, <=, >=) after \"kMDItemFSName\""},
        {"kMDItemFSName 'x'",
         "position 15: expected a comparison operator (==, !=, <, >, <=, >=) after \"kMDItemFSName\", found a quoted "
         "text"},
        {"kMDItemFSName ==", "position 17: expected a value after \"==\""},
        {"kMDItemFSName == )", "position 18: expected a value after \"==\", found \")\""},
        {"kMDItemFSName == 'abc", "position 22: expected a closing ' to end the text begun at position 18"},
        {"a == 'x\\", "position 9: expected a closing ' to end the text begun at position 6"},
        {"a == \"x\"q", "position 9: expected a modifier (c, d, w, t or s)"},
        {"a == \"x\"cQ", "position 10: expected a modifier (c, d, w, t or s)"},
        {"a ==[cq] \"x\"", "position 7: expected a modifier (c, d, w, t or s)"},
        {"a ==[cd \"x\"", "position 8: expected \"]\" or a modifier (c, d, w, t or s)"},
        {"a == x\\", "position 8: expected a character after \"\\\""},
        {"(a == 1", "position 8: expected \")\" to close the \"(\" at position 1"},
        {"(a == 1 b == 2)", "position 9: expected \")\" to close the \"(\" at position 1, found \"b\""},
        {"a == 1)", "position 7: expected \"&&\", \"||\" or the end of the query, found \")\""},
        {"a == \"x\" b == 1", "position 10: expected \"&&\", \"||\" or the end of the query, found \"b\""},
        {"a == 1 & b == 2", "position 8: expected \"&&\""},
        {"a == 1 | b == 2", "position 8: expected \"||\""},
        {"a == 1 &&", "position 10: expected an expression after \"&&\""},
        {"a == 1 || || b == 2", "position 11: expected an expression after \"||\", found \"||\""},
        {"!", "position 2: expected an expression after \"!\""},
        {"== 1", "position 1: expected an expression, found \"==\""},
        {"# == 1", "position 1: expected an expression, found \"#\""},
        {"a < null", "position 3: expected \"==\" or \"!=\" before null, found \"<\""},
        {"a >= nil", "position 3: expected \"==\" or \"!=\" before null, found \">=\""},
        {"InRange(, 1, 2)", "position 9: expected an attribute name after \"InRange(\", found \",\""},
        {"InRange(a 1, 2)", "position 11: expected \",\" before the lower bound, found \"1\""},
        {"InRange(a, 1)", "position 13: expected \",\" before the upper bound, found \")\""},
        {"InRange(a, 1, 2", "position 16: expected \")\" to close \"InRange(\""},
        {"InRange(a, 1, )", "position 15: expected a value after \",\", found \")\""},
        {"InRange(a, null, 2)", "position 12: expected a value other than null as the lower bound of InRange"},
        {"a == $time.tomorrow",
         "position 12: expected now, today, yesterday, this_week, last_week, this_month, this_year or iso after "
         "\"$time.\""},
        {"a == $time.today(-x)", "position 18: expected a number in \"$time.today(\""},
        {"a == $time.today(-1.5)", "position 18: expected a whole number of days from -1000000 to 1000000"},
        {"a == $time.this_year(5000000)", "position 22: expected a whole number of years from -1000000 to 1000000"},
        {"a == $time.today(-3w)", "position 20: expected \")\" or the unit \"d\" (days)"},
        {"a == $time.this_week(1d)", "position 23: expected \")\" or the unit \"w\" (weeks)"},
        {"a == $time.now(5q)", "position 17: expected \")\" or a unit (s, m, h, d or w)"},
        {"a == $time.today(-3", "position 20: expected \")\" to end \"$time.today(\""},
        {"a == $time.iso 2018", "position 15: expected \"(\" after \"$time.iso\""},
        {"a == $time.iso(2018-13-01)",
         "position 16: expected an ISO 8601 date such as 2025-03-01, 2014-12-10T09:00:00 or 2018-10-01T10:00:00Z"},
        {"a == '$time.today(-x)'", "position 19: expected a number in \"$time.today(\""},
        {"a == '$time.today(-3) later'", "position 22: expected the closing ' after the time value"},
        // Positions count characters, not bytes.
        {"kMDItemFSName == \"café\" &&", "position 27: expected an expression after \"&&\""},
        {"a == \"東京\" )", "position 11: expected \"&&\", \"||\" or the end of the query, found \")\""},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(errorOf(input), expected) << input;
    }
}

TEST(QueryParser, CapsNestingWithAClearError)
{
    const auto nested = [](std::size_t depth, const char* open, const char* close) {
        std::string text;
        for (std::size_t i = 0; i < depth; ++i) {
            text += open;
        }
        text += "a == 1";
        for (std::size_t i = 0; i < depth; ++i) {
            text += close;
        }
        return text;
    };
    EXPECT_TRUE(parseQuery(nested(kMaxQueryDepth, "(", ")")).ok());
    EXPECT_TRUE(parseQuery(nested(kMaxQueryDepth, "!", "")).ok());
    EXPECT_EQ(errorOf(nested(kMaxQueryDepth + 1, "(", ")")), "position 101: expected at most 100 levels of nesting");
    EXPECT_EQ(errorOf(nested(kMaxQueryDepth + 1, "!", "")), "position 101: expected at most 100 levels of nesting");
    EXPECT_EQ(errorOf(nested(kMaxQueryDepth / 2 + 1, "!(", ")")),
              "position 101: expected at most 100 levels of nesting");
    // Far beyond any stack: still an error, not a crash.
    EXPECT_FALSE(parseQuery(nested(1000000, "(", ")")).ok());
    EXPECT_FALSE(parseQuery(std::string(1000000, '!')).ok());
    // Long flat chains are not nesting.
    std::string chain = "a == 1";
    for (int i = 0; i < 10000; ++i) {
        chain += " && a == 1 || b == 2";
    }
    EXPECT_TRUE(parseQuery(chain).ok());
}

TEST(QueryParser, CanonicalTextParsesBackToTheSameTree)
{
    const char* texts[] = {
        R"(a == "x\"y\\z\*\?"cdw || !(b < -1.5e3) && InRange(c, $time.today(-1), '$time.now'))",
        R"(** != 'p*'cd && * == "Frédéric"d)",
        "TRUE || false && a == null && b != nil",
        "x == $time.iso(2018-10-01T10:00:00+02:00) || y == paris cd",
        "true == 'keyword as attribute' && InRange == 1",
    };
    for (const char* text : texts) {
        const std::string once = canonical(text);
        EXPECT_EQ(canonical(once), once) << text;
    }
}
