// The query text of criteria trees: every operator, unit, value type and
// group kind, incomplete and odd rows, dates in several time zones.
#include "index/query/parser.h"
#include "model/criteria_json.h"
#include "model/document_model.h"
#include "model/platform.h"
#include "model/query_item.h"
#include "model/relational_operator.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <array>

namespace trovara::model {
namespace {

struct Case {
    const char* name;
    const char* criteria;  // JSON of the top-level group's children, or a whole group
    const char* text;
};

// Wraps a list of rows in an ALL group unless the text is a whole group.
QByteArray criteriaJson(const char* criteria)
{
    const QByteArray text(criteria);
    if (text.trimmed().startsWith('[')) {
        return "{\"operator\": \"AND\", \"children\": " + text + "}";
    }
    return text;
}

std::string queryText(const char* criteria)
{
    auto context = makeDocumentContext();
    Result<QueryNode*> root = readCriteriaJson(criteriaJson(criteria), *context);
    if (!root) {
        return "ERROR " + root.error().reason.toStdString();
    }
    return root.value()->expression().toStdString();
}

void check(const Case (&cases)[], std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_EQ(queryText(cases[i].criteria), cases[i].text) << cases[i].name;
    }
}

#define CHECK_ALL(cases) check(cases, std::size(cases))

TEST(QueryText, WorkedExamples)
{
    const Case cases[] = {
        {"name contains", R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":"report"}])",
         "((kMDItemDisplayName == '*report*'cd))"},
        {"name is with apostrophe", R"([{"attribute":"kMDItemDisplayName","operator":"is","string":"O'Neil"}])",
         R"(((kMDItemDisplayName == 'O\'Neil'c)))"},
        {"size over 5 MB", R"([{"attribute":"kMDItemFSSize","operator":"greaterThan","number":5,"unit":"MB"}])",
         "((kMDItemFSSize > '5000000'))"},
        {"within last 3 days",
         R"([{"attribute":"kMDItemFSContentChangeDate","operator":"withinLast","number":3,"unit":"day"}])",
         "(((kMDItemFSContentChangeDate >= '$time.today(-3)') && kMDItemFSContentChangeDate <= '$time.now(-0)'))"},
        {"within last 2 hours",
         R"([{"attribute":"kMDItemFSContentChangeDate","operator":"withinLast","number":2,"unit":"hour"}])",
         "(((kMDItemFSContentChangeDate >= '$time.now(-7200)') && kMDItemFSContentChangeDate <= '$time.now(-0)'))"},
        {"created on", R"([{"attribute":"kMDItemContentCreationDate","operator":"on","date":"2009-06-15"}])",
         "(((kMDItemContentCreationDate >= '266716800') && (kMDItemContentCreationDate < '266803200') ))"},
        {"any text contains words",
         R"([{"attribute":"*","operator":"containsWords","string":"big cat"}])",
         "(((((* == 'big'cdw)) && ((* == 'cat'cdw))) || (((kMDItemTextContent == 'big'cdw)) && "
         "((kMDItemTextContent == 'cat'cdw)))))"},
        {"tags", R"([{"attribute":"kMDItemOMUserTags","operator":"is","string":"work"}])",
         "(((kMDItemOMUserTags == 'work'c) || (kOMUserTags == 'work'c) ))"},
        {"kind is image", R"([{"attribute":"kMDItemContentTypeTree","operator":"is","string":"public.image"}])",
         "((kMDItemContentTypeTree == 'public.image'c))"},
        {"kind is any", R"([{"attribute":"kMDItemContentTypeTree","operator":"is","string":""}])", ""},
        {"all of two",
         R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":"report"},
             {"attribute":"kMDItemFSSize","operator":"greaterThan","number":5,"unit":"MB"}])",
         "((kMDItemDisplayName == '*report*'cd) && (kMDItemFSSize > '5000000'))"},
        {"none of one",
         R"({"operator":"NOT","children":[{"attribute":"kMDItemDisplayName","operator":"contains","string":"tmp"}]})",
         "! ( (kMDItemDisplayName == '*tmp*'cd) )"},
    };
    test::ScopedTimeZone utc("UTC");
    CHECK_ALL(cases);
}

TEST(QueryText, StringOperatorsWriteTheirWildcardsAndModifiers)
{
    const Case cases[] = {
        {"begins", R"([{"attribute":"kMDItemFSName","operator":"beginsWith","string":"ab"}])",
         "((kMDItemFSName == 'ab*'cd))"},
        {"ends", R"([{"attribute":"kMDItemFSName","operator":"endsWith","string":"ab"}])",
         "((kMDItemFSName == '*ab'cd))"},
        {"is", R"([{"attribute":"kMDItemFSName","operator":"is","string":"ab"}])", "((kMDItemFSName == 'ab'c))"},
        {"phrase", R"([{"attribute":"kMDItemTextContent","operator":"containsPhrase","string":"big red dog"}])",
         "((kMDItemTextContent == '*big red dog*'c))"},
        {"fuzzy is a word operator with contains' modifiers",
         R"([{"attribute":"kMDItemTextContent","operator":"containsFuzzy","string":"ab cd"}])",
         "((((kMDItemTextContent == '*ab*'cd)) && ((kMDItemTextContent == '*cd*'cd))))"},
        {"prefixes", R"([{"attribute":"kMDItemTextContent","operator":"containsPrefixes","string":"ab"}])",
         "((((kMDItemTextContent == 'ab*'cdw))))"},
        {"words on a name", R"([{"attribute":"kMDItemDisplayName","operator":"containsWords","string":"ab"}])",
         "((((kMDItemDisplayName == 'ab'cdw))))"},
        {"inner asterisk kept", R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":"a*b"}])",
         "((kMDItemDisplayName == '*a*b*'cd))"},
        {"backslash and apostrophe", R"([{"attribute":"kMDItemDisplayName","operator":"is","string":"O'Brien\\x"}])",
         R"(((kMDItemDisplayName == 'O\'Brien\\x'c)))"},
        {"escaped backslash before apostrophe",
         R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":"\\'"}])",
         R"(((kMDItemDisplayName == '*\\\'*'cd)))"},
        {"double quotes pass", R"([{"attribute":"kMDItemDisplayName","operator":"is","string":"say \"hi\""}])",
         R"(((kMDItemDisplayName == 'say "hi"'c)))"},
        {"unicode kept", R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":"Frédéric 日本"}])",
         "((kMDItemDisplayName == '*Frédéric 日本*'cd))"},
        {"two spaces give two words",
         R"([{"attribute":"kMDItemTextContent","operator":"containsWords","string":"big  cat"}])",
         "((((kMDItemTextContent == 'big'cdw)) && ((kMDItemTextContent == 'cat'cdw))))"},
        {"only spaces", R"([{"attribute":"kMDItemTextContent","operator":"containsWords","string":"   "}])", "(())"},
        {"only spaces on any text", R"([{"attribute":"*","operator":"containsPrefixes","string":" "}])",
         "((() || ()))"},
        {"tabs are not separators",
         R"([{"attribute":"kMDItemTextContent","operator":"containsWords","string":"a\tb"}])",
         "((((kMDItemTextContent == 'a\tb'cdw))))"},
        {"any text with a plain operator", R"([{"attribute":"*","operator":"containsPhrase","string":"x y"}])",
         "((* == '*x y*'c))"},
        {"short tag key", R"([{"attribute":"kOMUserTags","operator":"contains","string":"w"}])",
         "(((kMDItemOMUserTags == '*w*'cd) || (kOMUserTags == '*w*'cd) ))"},
        {"tags with a word operator use the row's key only",
         R"([{"attribute":"kOMUserTags","operator":"containsWords","string":"a b"}])",
         "((((kOMUserTags == 'a'cdw)) && ((kOMUserTags == 'b'cdw))))"},
        {"other tag key is a plain attribute", R"([{"attribute":"kMDItemUserTags","operator":"is","string":"w"}])",
         "((kMDItemUserTags == 'w'c))"},
        {"empty string", R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":""}])", ""},
        {"missing string", R"([{"attribute":"kMDItemDisplayName","operator":"contains"}])", ""},
        {"null string", R"([{"attribute":"kMDItemDisplayName","operator":"contains","string":null}])", ""},
        {"a number operator on text", R"([{"attribute":"kMDItemDisplayName","operator":"lessThan","string":"m"}])",
         "((kMDItemDisplayName < 'm'))"},
    };
    CHECK_ALL(cases);
}

TEST(QueryText, NumbersBooleansAndLabels)
{
    const Case cases[] = {
        {"KB", R"([{"attribute":"kMDItemFSSize","operator":"lessThan","number":10,"unit":"KB"}])",
         "((kMDItemFSSize < '10000'))"},
        {"GB fraction", R"([{"attribute":"kMDItemFSSize","operator":"greaterThan","number":1.5,"unit":"GB"}])",
         "((kMDItemFSSize > '1500000000'))"},
        {"no unit", R"([{"attribute":"kMDItemFSSize","operator":"greaterThan","number":123}])",
         "((kMDItemFSSize > '123'))"},
        {"rounding half to even", R"([{"attribute":"kMDItemPixelWidth","operator":"equal","number":2.5}])",
         "((kMDItemPixelWidth = '2'))"},
        {"rounding", R"([{"attribute":"kMDItemPixelWidth","operator":"equal","number":2.51}])",
         "((kMDItemPixelWidth = '3'))"},
        {"negative", R"([{"attribute":"kMDItemPixelWidth","operator":"lessThan","number":-0.4}])",
         "((kMDItemPixelWidth < '-0'))"},
        {"large", R"([{"attribute":"kMDItemFSSize","operator":"greaterThan","number":5000000000}])",
         "((kMDItemFSSize > '5000000000'))"},
        {"first operator is less than for sizes", R"([{"attribute":"kMDItemFSSize","number":7}])",
         "((kMDItemFSSize < '7'))"},
        {"first operator is equal for other numbers", R"([{"attribute":"kMDItemFSNodeCount","number":7}])",
         "((kMDItemFSNodeCount = '7'))"},
        {"a date unit on a number", R"([{"attribute":"kMDItemFSNodeCount","number":7,"unit":"day"}])",
         "((kMDItemFSNodeCount = '7'))"},
        {"no number", R"([{"attribute":"kMDItemFSSize","operator":"greaterThan","unit":"KB"}])", ""},
        {"any label", R"([{"attribute":"kMDItemFSLabel","operator":"equal","number":-2147483648}])", ""},
        {"no label", R"([{"attribute":"kMDItemFSLabel","operator":"equal","number":0}])",
         "((kMDItemFSLabel = '0'))"},
        {"red", R"([{"attribute":"kMDItemFSLabel","operator":"equal","number":6}])", "((kMDItemFSLabel = '6'))"},
        {"boolean true", R"([{"attribute":"kMDItemFSInvisible","operator":"equal","boolean":true}])",
         "((kMDItemFSInvisible = '1'))"},
        {"boolean false", R"([{"attribute":"kMDItemFSInvisible","boolean":false}])", "((kMDItemFSInvisible = '0'))"},
        {"boolean as a number", R"([{"attribute":"kMDItemFSInvisible","boolean":5}])",
         "((kMDItemFSInvisible = '5'))"},
        {"no boolean", R"([{"attribute":"kMDItemFSInvisible","operator":"equal"}])", ""},
        // No size contains or begins with digits: the index's language
        // refuses such a text, so the row says nothing, like an empty one.
        {"wildcards on a number",
         R"([{"attribute":"kMDItemFSSize","operator":"contains","number":5,"unit":"KB"}])", ""},
        {"fractional number as text", R"([{"attribute":"kMDItemFSSize","operator":"beginsWith","number":1.25}])", ""},
        {"within last on a number counts hours",
         R"([{"attribute":"kMDItemFSSize","operator":"withinLast","number":2.9,"unit":"KB"}])",
         "((kMDItemFSSize >= '$time.now(-7200)'))"},
        {"within last days on a number", R"([{"attribute":"kMDItemFSSize","operator":"withinLast","number":1.5,"unit":"day"}])",
         "((kMDItemFSSize >= '$time.today(-1)'))"},
    };
    CHECK_ALL(cases);
}

TEST(QueryText, TheOlderToolkitScalesSizesBy1024)
{
    platform::setToolkitVersionForTesting(824);
    const Case cases[] = {
        {"KB", R"([{"attribute":"kMDItemFSSize","operator":"lessThan","number":10,"unit":"KB"}])",
         "((kMDItemFSSize < '10240'))"},
        {"MB", R"([{"attribute":"kMDItemFSSize","operator":"lessThan","number":1,"unit":"MB"}])",
         "((kMDItemFSSize < '1048576'))"},
        {"GB", R"([{"attribute":"kMDItemFSSize","operator":"greaterThan","number":1.5,"unit":"GB"}])",
         "((kMDItemFSSize > '1610612736'))"},
    };
    CHECK_ALL(cases);
    platform::setToolkitVersionForTesting(825);
    EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSSize","operator":"lessThan","number":10,"unit":"KB"}])"),
              "((kMDItemFSSize < '10000'))");
    platform::setToolkitVersionForTesting(-1);
}

TEST(QueryText, WithinLastUsesCalendarPeriodsOrExactHours)
{
    const Case cases[] = {
        {"weeks", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":2,"unit":"week"}])",
         "(((kMDItemLastUsedDate >= '$time.this_week(-2)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"months", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":1,"unit":"month"}])",
         "(((kMDItemLastUsedDate >= '$time.this_month(-1)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"years", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":10,"unit":"year"}])",
         "(((kMDItemLastUsedDate >= '$time.this_year(-10)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"hours", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":5,"unit":"hour"}])",
         "(((kMDItemLastUsedDate >= '$time.now(-18000)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"no unit counts hours", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":5}])",
         "(((kMDItemLastUsedDate >= '$time.now(-18000)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"a size unit counts hours",
         R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":1,"unit":"MB"}])",
         "(((kMDItemLastUsedDate >= '$time.now(-3600)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"hours truncate fractions",
         R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":1.9,"unit":"hour"}])",
         "(((kMDItemLastUsedDate >= '$time.now(-3600)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"fractional days count whole days, as hours do",
         R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":1.5,"unit":"day"}])",
         "(((kMDItemLastUsedDate >= '$time.today(-1)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"zero", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":0,"unit":"day"}])",
         "(((kMDItemLastUsedDate >= '$time.today(-0)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"negative reaches forward", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","number":-2,"unit":"day"}])",
         "(((kMDItemLastUsedDate >= '$time.today(2)') && kMDItemLastUsedDate <= '$time.now(-0)'))"},
        {"no number", R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","unit":"day"}])", ""},
        {"the date is ignored",
         R"([{"attribute":"kMDItemLastUsedDate","operator":"withinLast","unit":"day","date":"2001-01-01"}])", ""},
        {"within last on text uses the text",
         R"([{"attribute":"kMDItemDisplayName","operator":"withinLast","string":"3x","unit":"week"}])",
         "((kMDItemDisplayName >= '$time.this_week(-3)'))"},
        {"within last hours on text reads its leading number",
         R"([{"attribute":"kMDItemDisplayName","operator":"withinLast","string":" 2 days","unit":"hour"}])",
         "((kMDItemDisplayName >= '$time.now(-7200)'))"},
    };
    CHECK_ALL(cases);
}

TEST(QueryText, DatesAreLocalDaysWrittenAsSinglePrecisionSeconds)
{
    test::ScopedTimeZone utc("UTC");
    const Case cases[] = {
        {"before a day: from its start",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"before","date":"2009-06-15T18:30:00"}])",
         "((kMDItemFSCreationDate < '266716800'))"},
        {"after a day: from the next day's start",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"after","date":"2009-06-15T00:00:00"}])",
         "((kMDItemFSCreationDate >= '266803200'))"},
        {"on, at the end of a month",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2009-06-30T23:59:59"}])",
         "(((kMDItemFSCreationDate >= '268012800') && (kMDItemFSCreationDate < '268099200') ))"},
        {"on, at the end of a year", R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2008-12-31"}])",
         "(((kMDItemFSCreationDate >= '252374400') && (kMDItemFSCreationDate < '252460800') ))"},
        {"on a leap day", R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2024-02-29"}])",
         "(((kMDItemFSCreationDate >= '730857600') && (kMDItemFSCreationDate < '730944000') ))"},
        {"an equal date rounds to a multiple of 64 seconds nowadays",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"equal","date":"2024-03-10T12:34:56Z"}])",
         "((kMDItemFSCreationDate = '731766912'))"},
        {"rounding to nearest even multiple",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"lessThan","date":"2009-06-15T00:00:08Z"}])",
         "((kMDItemFSCreationDate < '266716800'))"},
        {"and up", R"([{"attribute":"kMDItemFSCreationDate","operator":"lessThan","date":"2009-06-15T00:00:25Z"}])",
         "((kMDItemFSCreationDate < '266716832'))"},
        {"before the reference date",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"greaterThan","date":"1999-12-31T00:00:00Z"}])",
         "((kMDItemFSCreationDate > '-31708800'))"},
        {"a date under a wildcard operator names no date the index could match: nothing",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"contains","date":"2009-06-15T00:00:00Z"}])", ""},
        {"an offset is honoured",
         R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2009-06-15T23:30:00-02:00"}])",
         "(((kMDItemFSCreationDate >= '266803200') && (kMDItemFSCreationDate < '266889600') ))"},
        {"no date", R"([{"attribute":"kMDItemFSCreationDate","operator":"on"}])", ""},
        {"unknown operator", R"([{"attribute":"kMDItemFSCreationDate","operator":"around","date":"2009-06-15"}])", ""},
    };
    CHECK_ALL(cases);
}

TEST(QueryText, DayBoundsFollowTheLocalTimeZone)
{
    {
        test::ScopedTimeZone zone("Europe/Berlin");
        // Summer time: local midnight is 22:00 UTC the day before.
        EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2009-06-15"}])"),
                  "(((kMDItemFSCreationDate >= '266709600') && (kMDItemFSCreationDate < '266796000') ))");
        // A time given in UTC belongs to the local day it falls in.
        EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"before","date":"2009-06-14T23:30:00Z"}])"),
                  "((kMDItemFSCreationDate < '266709600'))");
    }
    {
        test::ScopedTimeZone zone("America/New_York");
        // 2021-03-14 has 23 hours: it starts at 05:00 UTC, the next day at 04:00 UTC.
        EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2021-03-14T12:00:00"}])"),
                  "(((kMDItemFSCreationDate >= '637390784') && (kMDItemFSCreationDate < '637473600') ))");
        // 2021-11-07 has 25 hours.
        EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2021-11-07"}])"),
                  "(((kMDItemFSCreationDate >= '657950400') && (kMDItemFSCreationDate < '658040384') ))");
        EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"after","date":"2021-03-13"}])"),
                  "((kMDItemFSCreationDate >= '637390784'))");
    }
    {
        test::ScopedTimeZone zone("Asia/Kolkata");
        EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"on","date":"2009-06-15"}])"),
                  "(((kMDItemFSCreationDate >= '266696992') && (kMDItemFSCreationDate < '266783392') ))");
    }
}

TEST(QueryText, DaysThatStartAfterMidnightStartAtTheirFirstInstant)
{
    // In Santiago summer time began at 00:00 on 2022-09-11: the day's first
    // instant is 01:00 local (04:00 UTC).
    test::ScopedTimeZone zone("America/Santiago");
    EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSCreationDate","operator":"before","date":"2022-09-11T12:00:00"}])"),
              "((kMDItemFSCreationDate < '684561600'))");
}

TEST(QueryText, GroupsJoinTheirNonEmptyChildren)
{
    const char* a = R"({"attribute":"kMDItemDisplayName","operator":"contains","string":"a"})";
    const char* b = R"({"attribute":"kMDItemFSName","operator":"is","string":"b"})";
    const char* empty = R"({"attribute":"kMDItemDisplayName","operator":"contains","string":""})";
    auto group = [](const char* op, std::initializer_list<const char*> children) {
        std::string text = std::string("{\"operator\":\"") + op + "\",\"children\":[";
        bool first = true;
        for (const char* child : children) {
            text += (first ? "" : ",") + std::string(child);
            first = false;
        }
        return text + "]}";
    };
    const std::string A = "(kMDItemDisplayName == '*a*'cd)";
    const std::string B = "(kMDItemFSName == 'b'c)";
    struct GroupCase {
        std::string json;
        std::string text;
    };
    const GroupCase cases[] = {
        {group("AND", {a, b}), "(" + A + " && " + B + ")"},
        {group("OR", {a, b}), "(" + A + " || " + B + ")"},
        {group("AND", {a}), "(" + A + ")"},
        {group("OR", {empty, b, empty}), "(" + B + ")"},
        {group("AND", {empty, empty}), ""},
        {group("AND", {}), ""},
        {group("NOT", {a}), "! ( " + A + " )"},
        {group("NOT", {a, b}), "! ( (" + A + " || " + B + ") )"},
        {group("NOT", {a, empty}), "! ( (" + A + ") )"},
        {group("NOT", {empty}), ""},
        {group("NOT", {}), "! (  )"},
        {group("NOT", {empty, empty}), "! (  )"},
        {group("XOR", {a}), ""},
        {group("and", {a}), ""},
        {group("AND", {group("NOT", {empty}).c_str(), b}), "(" + B + ")"},
        {group("AND", {group("OR", {a, b}).c_str(), group("NOT", {b}).c_str()}),
         "((" + A + " || " + B + ") && ! ( " + B + " ))"},
        {group("NOT", {group("AND", {a, b}).c_str()}), "! ( (" + A + " && " + B + ") )"},
    };
    for (const GroupCase& c : cases) {
        EXPECT_EQ(queryText(c.json.c_str()), c.text) << c.json;
    }
}

TEST(QueryText, EveryTreeWritesTextTheIndexCanRead)
{
    // Odd rows that once wrote text the index's language refused.
    const Case cases[] = {
        {"negative count", R"([{"attribute":"kMDItemFSContentChangeDate","operator":"withinLast","number":-3,"unit":"week"}])",
         "(((kMDItemFSContentChangeDate >= '$time.this_week(3)') && kMDItemFSContentChangeDate <= '$time.now(-0)'))"},
        {"negative hours", R"([{"attribute":"kMDItemFSContentChangeDate","operator":"withinLast","number":-3,"unit":"hour"}])",
         "(((kMDItemFSContentChangeDate >= '$time.now(10800)') && kMDItemFSContentChangeDate <= '$time.now(-0)'))"},
        {"more years than any date", R"([{"attribute":"kMDItemFSContentChangeDate","operator":"withinLast","number":1e20,"unit":"year"}])",
         "(((kMDItemFSContentChangeDate >= '$time.this_year(-1000000)') && kMDItemFSContentChangeDate <= '$time.now(-0)'))"},
        {"more hours than a 64-bit count of seconds",
         R"([{"attribute":"kMDItemFSContentChangeDate","operator":"withinLast","number":1e20,"unit":"hour"}])",
         "(((kMDItemFSContentChangeDate >= '$time.now(-9223372036854774000)') && kMDItemFSContentChangeDate <= '$time.now(-0)'))"},
        {"a size past a double", R"([{"attribute":"kMDItemFSSize","operator":"lessThan","number":1e308,"unit":"GB"}])",
         "((kMDItemFSSize < '179769313486231570814527423731704356798070567525844996598917476803157260780028538760589558632766878"
         "171540458953514382464234321326889464182768467546703537516986049910576551282076245490090389328944075868508455133942"
         "304583236903222948165808559332123348274797826204144723168738177180919299881250404026184124858368'))"},
        {"a date searched for as text", R"([{"attribute":"kMDItemContentCreationDate","operator":"contains","date":"2009-06-15"}])", ""},
    };
    CHECK_ALL(cases);

    // Every attribute with every operator, unit and kind of value, alone and
    // in every kind of group, empty groups included, reads as a query.
    const char* values[] = {R"("string":"report")", R"("string":"  ")", R"("string":"O'Neil \\ *?")",
                            R"("number":3)", R"("number":-2.5)", R"("number":1e300)", R"("number":-1e20)",
                            R"("date":"2009-06-15")", R"("date":"9999-12-31T23:59:59Z")", R"("boolean":true)",
                            R"("boolean":7)", R"("number":0,"string":"x","date":"2001-01-01","boolean":false)"};
    const char* units[] = {"", R"(,"unit":"hour")", R"(,"unit":"day")", R"(,"unit":"week")", R"(,"unit":"month")",
                           R"(,"unit":"year")", R"(,"unit":"KB")", R"(,"unit":"MB")", R"(,"unit":"GB")"};
    QStringList keys{QStringLiteral("*"), QStringLiteral("kOMUserTags"), QStringLiteral("kMDItemNoSuch")};
    for (const index::AttributeInfo& attribute : index::Schema::builtin().attributes()) {
        keys << QString::fromStdString(attribute.key);
    }
    ASSERT_GT(keys.size(), 30);
    int checked = 0;
    for (const QString& key : keys) {
        for (const RelationalOperator* op : RelationalOperator::relationalOperators()) {
            // Each value with two of the units, and a different two for the
            // next operator, so that every pair comes up for some operator.
            std::string rows;
            for (std::size_t v = 0; v < std::size(values); ++v) {
                for (std::size_t u = 0; u < 2; ++u) {
                    const char* unit = units[(v * 2 + u + static_cast<std::size_t>(checked)) % std::size(units)];
                    rows += (rows.empty() ? "" : ",") + std::string(R"({"attribute":")") + key.toStdString()
                            + R"(","operator":")" + op->name().toStdString() + "\"," + values[v] + unit + "}";
                }
            }
            const char* group = std::array{"AND", "OR", "NOT"}[static_cast<std::size_t>(checked) % 3];
            const std::string json = std::string(R"({"operator":"AND","children":[{"operator":")") + group
                                     + R"(","children":[)" + rows + R"(]},{"operator":"NOT","children":[]}]})";
            const std::string text = queryText(json.c_str());
            const auto parsed = index::query::parseQuery(text);
            EXPECT_TRUE(parsed.ok()) << key.toStdString() << " " << op->name().toStdString() << ": "
                                     << (parsed.ok() ? std::string() : parsed.error().message) << "\n" << text;
            ++checked;
        }
    }
    EXPECT_GT(checked, 100);
}

TEST(QueryText, ChildrenFollowTheirOrderAsGiven)
{
    EXPECT_EQ(queryText(R"([{"attribute":"kMDItemFSName","operator":"is","string":"2"},
                             {"attribute":"kMDItemFSName","operator":"is","string":"1"}])"),
              "((kMDItemFSName == '2'c) && (kMDItemFSName == '1'c))");
}

TEST(QueryText, RowsWithoutUsableAttributeOrOperatorContributeNothing)
{
    const Case cases[] = {
        {"unknown operator", R"([{"attribute":"kMDItemDisplayName","operator":"resembles","string":"x"}])", ""},
        {"unknown attribute", R"([{"attribute":"kMDItemNoSuch","operator":"is","string":"x"}])", ""},
        {"no operator for an unknown attribute", R"([{"attribute":"kMDItemNoSuch","string":"x"}])", ""},
        {"null operator", R"([{"attribute":"kMDItemDisplayName","operator":null,"string":"x"}])", ""},
        {"first operator of any text is contains fuzzy", R"([{"attribute":"*","string":"x"}])",
         "(((((* == '*x*'cd))) || (((kMDItemTextContent == '*x*'cd)))))"},
        {"first operator of dates is within last",
         R"([{"attribute":"kMDItemContentModificationDate","number":3,"unit":"day"}])",
         "(((kMDItemContentModificationDate >= '$time.today(-3)') && kMDItemContentModificationDate <= '$time.now(-0)'))"},
        {"first operator of the kind tree is is", R"([{"attribute":"kMDItemContentTypeTree","string":"public.text"}])",
         "((kMDItemContentTypeTree == 'public.text'c))"},
        {"unknown unit is no unit", R"([{"attribute":"kMDItemFSSize","operator":"lessThan","number":3,"unit":"TB"}])",
         "((kMDItemFSSize < '3'))"},
    };
    CHECK_ALL(cases);
}

TEST(CriteriaJson, MalformedInputNamesTheLineAndColumn)
{
    struct ErrorCase {
        const char* json;
        const char* reason;
    };
    const ErrorCase cases[] = {
        {"", "line 1, column 1: expected a value"},
        {"{\"operator\": \"AND\",\n  \"children\": [}", "line 2, column 16: expected a value"},
        {"{\"operator\": AND}", "line 1, column 14: expected a value"},
        {"{\"children\": [{\"attribute\": \"x\", \"colour\": 1}]}", "line 1, column 44: unknown field \"colour\" in a row"},
        {"{\"children\": [{\"attribute\": 7}]}", "line 1, column 29: \"attribute\" must be a text, not a number"},
        {"{\"children\": [{\"attribute\": \"x\", \"number\": \"3\"}]}", "\"number\" must be a number, not a text"},
        {"{\"children\": [{\"attribute\": \"x\", \"string\": 3}]}", "\"string\" must be a text, not a number"},
        {"{\"children\": [{\"attribute\": \"x\", \"date\": \"June 15\"}]}", "\"June 15\" is not an ISO 8601 date"},
        {"{\"children\": [{\"attribute\": \"x\", \"date\": \"2009-02-30\"}]}", "is not an ISO 8601 date"},
        {"{\"children\": [{\"attribute\": \"x\", \"boolean\": \"yes\"}]}", "\"boolean\" must be true, false or a number"},
        {"{\"children\": {}}", "\"children\" must be a list"},
        {"{\"children\": [3]}", "a child must be an object"},
        {"{\"attribute\": \"x\"}", "the top level must be a group"},
        {"[]", "a group must be an object"},
        {"{\"operator\": \"AND\", \"extra\": 1}", "unknown field \"extra\" in a group"},
        {"{\"operator\": 1}", "a group's \"operator\" must be a text"},
        {"{} {}", "expected end of input"},
        {"{\"children\": [{\"attribute\": \"x\", \"children\": []}]}", "a row has no \"children\""},
        {"{\"a\": \"\\x\"}", "a valid escape"},
        {"{\"a\": 1e999}", "a number of a representable size"},
        {"{\"operator\": \"AND\"", "expected \",\" or \"}\" (the input ends here)"},
    };
    for (const ErrorCase& c : cases) {
        auto context = makeDocumentContext();
        Result<QueryNode*> root = readCriteriaJson(QByteArray(c.json), *context);
        ASSERT_FALSE(root.ok()) << c.json;
        EXPECT_TRUE(root.error().reason.contains(QString::fromUtf8(c.reason)))
            << c.json << " gave: " << root.error().reason.toStdString();
        // Nothing of a refused tree is kept.
        EXPECT_TRUE(QueryNode::rootNodeInContext(*context)->children().empty()) << c.json;
    }
}

TEST(CriteriaJson, DeepNestingIsRefusedNotACrash)
{
    QByteArray deep;
    for (int i = 0; i < 100000; ++i) {
        deep += "{\"children\":[";
    }
    auto context = makeDocumentContext();
    EXPECT_FALSE(readCriteriaJson(deep, *context).ok());
}

TEST(CriteriaJson, WritingAndReadingATreeKeepsItsQueryText)
{
    test::ScopedTimeZone zone("Europe/Paris");
    const char* json = R"({"operator":"OR","children":[
        {"attribute":"kMDItemFSSize","operator":"greaterThan","number":2.5,"unit":"MB"},
        {"attribute":"kMDItemFSInvisible","boolean":true},
        {"operator":"NOT","children":[{"attribute":"kMDItemContentCreationDate","operator":"on","date":"2020-03-29"}]},
        {"attribute":"*","operator":"containsWords","string":"x y"}]})";
    auto first = makeDocumentContext();
    QueryNode* root = readCriteriaJson(json, *first).value();
    const QByteArray written = writeCriteriaJson(*root);
    auto second = makeDocumentContext();
    Result<QueryNode*> again = readCriteriaJson(written, *second);
    ASSERT_TRUE(again.ok()) << written.toStdString();
    EXPECT_EQ(again.value()->expression(), root->expression());
    EXPECT_FALSE(root->expression().isEmpty());
}

TEST(IsoDates, AcceptedFormsAndZones)
{
    test::ScopedTimeZone zone("Asia/Tokyo");
    const std::pair<const char*, qint64> cases[] = {
        {"2009-06-15", 1244991600},  // local midnight, UTC+9
        {"2009-06-15T10:00", 1244991600 + 36000},
        {"2009-06-15T10:00:30", 1244991600 + 36030},
        {"2009-06-15 10:00:30", 1244991600 + 36030},
        {"2009-06-15T10:00:00Z", 1245060000},
        {"2009-06-15T10:00:00+02:00", 1245052800},
        {"2009-06-15T10:00:00-0130", 1245065400},
        {"2009-06-15T10:00:00+02", 1245052800},
    };
    for (const auto& [text, seconds] : cases) {
        const QDateTime date = parseIsoDate(QString::fromLatin1(text));
        ASSERT_TRUE(date.isValid()) << text;
        EXPECT_EQ(date.toSecsSinceEpoch(), seconds) << text;
    }
    EXPECT_EQ(parseIsoDate(QStringLiteral("2009-06-15T10:00:00.250Z")).toMSecsSinceEpoch(), 1245060000250);
    {
        test::ScopedTimeZone newYork("America/New_York");
        // 01:30 came twice on 2021-11-07: the first time, in summer time.
        EXPECT_EQ(parseIsoDate(QStringLiteral("2021-11-07T01:30:00")).toSecsSinceEpoch(), 1636263000);
        // 02:30 never came on 2021-03-14: read as 03:30 summer time.
        EXPECT_EQ(parseIsoDate(QStringLiteral("2021-03-14T02:30:00")).toSecsSinceEpoch(), 1615707000);
        EXPECT_EQ(parseIsoDate(QStringLiteral("2021-03-14T12:00:00")).toSecsSinceEpoch(), 1615737600);
    }
    for (const char* bad : {"2009-6-15", "2009-06-15T25:00", "2009-13-01", "15.06.2009", "2009-06-15T10:00:00+25:00",
                            "", "2009-06-15T"}) {
        EXPECT_FALSE(parseIsoDate(QString::fromLatin1(bad)).isValid()) << bad;
    }
}

}  // namespace
}  // namespace trovara::model
