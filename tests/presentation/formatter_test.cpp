// The value formatters: byte sizes, lists, colour labels, inspector links,
// numbers in a pattern, dates in the user's locale and the GMT form, and
// the filling of Trovara's printf-style texts.
#include "model/platform.h"
#include "presentation/byte_formatter.h"
#include "presentation/date_formatter.h"
#include "presentation/finder_label_formatter.h"
#include "presentation/detail_value_formatter.h"
#include "presentation/multivalue_formatter.h"
#include "presentation/number_formatter.h"
#include "presentation/text_format.h"
#include "presentation_test_support.h"

#include <QTimeZone>

#include <gtest/gtest.h>

#include <stdexcept>

namespace trovara::presentation {
namespace {

using test::ScopedLocale;

const QLocale kEnglish(QLocale::English, QLocale::UnitedStates);

QDateTime march1st()
{
    return QDateTime(QDate(2009, 3, 1), QTime(14, 5), QTimeZone::utc());
}

struct ByteCase {
    QVariant value;
    const char* text;
};

TEST(ByteFormatter, ChoosesTheUnitWithBaseThousandAndAlwaysThreeDecimals)
{
    const ScopedLocale locale(kEnglish);
    const ByteFormatter formatter;
    const ByteCase cases[] = {
        {1000, "1000.000 Bytes"},  // at most the base stays in the smaller unit
        {1001, "1.001 KB"},
        {1000000, "1000.000 KB"},
        {1500000, "1.500 MB"},
        {2e12, "2000.000 GB"},
        {5e12, "5000.000 GB"},     // nothing above GB
        {512, "512.000 Bytes"},
        {0, "0.000 Bytes"},
        {-5, "-5.000 Bytes"},
        {-5000000, "-5000000.000 Bytes"},  // negatives always count in Bytes
        {true, "1.000 Bytes"},
        {QStringLiteral("2048"), "2.048 KB"},  // text is parsed first
    };
    for (const ByteCase& c : cases) {
        EXPECT_EQ(formatter.stringForObjectValue(c.value), QString::fromUtf8(c.text)) << c.value.toString().toStdString();
    }
}

TEST(ByteFormatter, ShowsNothingForNoValueOrTextThatIsNoNumber)
{
    const ScopedLocale locale(kEnglish);
    const ByteFormatter formatter;
    EXPECT_TRUE(formatter.stringForObjectValue(QVariant()).isNull());
    EXPECT_TRUE(formatter.stringForObjectValue(QStringLiteral("big")).isNull());
    // The pattern has no grouping, so its parser refuses group separators.
    EXPECT_TRUE(formatter.stringForObjectValue(QStringLiteral("2,048")).isNull());
}

TEST(ByteFormatter, UsesBase1024OnTheOldestToolkitOnly)
{
    const ScopedLocale locale(kEnglish);
    const ByteFormatter formatter;
    model::platform::setToolkitVersionForTesting(824);
    EXPECT_EQ(formatter.stringForObjectValue(1024), QStringLiteral("1024.000 Bytes"));
    EXPECT_EQ(formatter.stringForObjectValue(1536), QStringLiteral("1.500 KB"));
    EXPECT_EQ(formatter.stringForObjectValue(1572864), QStringLiteral("1.500 MB"));
    model::platform::setToolkitVersionForTesting(825);
    EXPECT_EQ(formatter.stringForObjectValue(1024), QStringLiteral("1.024 KB"));
    model::platform::setToolkitVersionForTesting(-1);
}

TEST(ByteFormatter, FollowsTheUserLocaleForTheDecimalSeparator)
{
    const ScopedLocale locale(QLocale(QLocale::German, QLocale::Germany));
    const ByteFormatter formatter;
    EXPECT_EQ(formatter.stringForObjectValue(1500000), QStringLiteral("1,500 MB"));
    EXPECT_EQ(formatter.stringForObjectValue(QStringLiteral("2048")), QStringLiteral("2,048 KB"));
    EXPECT_EQ(formatter.stringForObjectValue(-5), QStringLiteral("-5,000 Bytes"));
}

TEST(NumberFormatter, PatternsGiveTheirDigitsWithoutGrouping)
{
    const ScopedLocale locale(kEnglish);
    const NumberFormatter integer(QStringLiteral("0;0;-0"));
    const NumberFormatter fourDecimals(QStringLiteral("0.0000;0.0000;-0.0000"));
    EXPECT_EQ(integer.stringForObjectValue(1234567), QStringLiteral("1234567"));
    EXPECT_EQ(integer.stringForObjectValue(2.6), QStringLiteral("3"));
    EXPECT_EQ(integer.stringForObjectValue(-2), QStringLiteral("-2"));
    EXPECT_EQ(integer.stringForObjectValue(true), QStringLiteral("1"));
    EXPECT_EQ(integer.stringForObjectValue(false), QStringLiteral("0"));
    EXPECT_EQ(fourDecimals.stringForObjectValue(3.14159), QStringLiteral("3.1416"));
    EXPECT_EQ(fourDecimals.stringForObjectValue(-0.5), QStringLiteral("-0.5000"));
    EXPECT_TRUE(integer.stringForObjectValue(QStringLiteral("12")).isNull());
    EXPECT_TRUE(integer.stringForObjectValue(QVariant()).isNull());
}

TEST(MultivalueFormatter, JoinsElementsWithSeparatorsOnlyAfterText)
{
    const MultivalueFormatter plain;
    EXPECT_EQ(plain.stringForObjectValue(QStringList{"a", "", "b"}), QStringLiteral("a, , b"));
    EXPECT_EQ(plain.stringForObjectValue(QStringList{"", "b"}), QStringLiteral("b"));
    EXPECT_EQ(plain.stringForObjectValue(QVariantList{}), QStringLiteral(""));
    EXPECT_FALSE(plain.stringForObjectValue(QVariantList{}).isNull());
    EXPECT_EQ(plain.stringForObjectValue(QVariantList{3.0, true, QStringLiteral("x")}), QStringLiteral("3, 1, x"));
    EXPECT_TRUE(plain.stringForObjectValue(QVariant()).isNull());
}

TEST(MultivalueFormatter, ReturnsASingleValueUnchanged)
{
    const MultivalueFormatter plain;
    const QVariant number = plain.objectForObjectValue(42);
    EXPECT_EQ(number.metaType(), QMetaType::fromType<int>());
    EXPECT_EQ(number.toInt(), 42);
    EXPECT_EQ(plain.objectForObjectValue(QStringLiteral("one")), QVariant(QStringLiteral("one")));
    EXPECT_EQ(plain.stringForObjectValue(42), QStringLiteral("42"));
}

TEST(MultivalueFormatter, FormatsEachElementWithItsBaseFormatter)
{
    const ScopedLocale locale(kEnglish);
    const MultivalueFormatter sizes(std::make_shared<ByteFormatter>());
    EXPECT_EQ(sizes.stringForObjectValue(QVariantList{1500, 2000000}), QStringLiteral("1.500 KB, 2.000 MB"));
    ASSERT_NE(sizes.baseFormatter(), nullptr);
    // An element the base formatter has no text for is an empty piece.
    EXPECT_EQ(sizes.stringForObjectValue(QVariantList{QStringLiteral("x"), 1}), QStringLiteral("1.000 Bytes"));
}

TEST(FinderLabelFormatter, IndexesTheOrderedLabelList)
{
    const FinderLabelFormatter formatter;
    const char* expected[] = {"- Any", "- None", "Gray", "Green", "Purple", "Blue", "Yellow", "Red", "Orange"};
    for (int index = 0; index < 9; ++index) {
        EXPECT_EQ(formatter.stringForObjectValue(index), QString::fromUtf8(expected[index])) << index;
    }
    EXPECT_TRUE(formatter.stringForObjectValue(QStringLiteral("3")).isNull());
    EXPECT_TRUE(formatter.stringForObjectValue(QVariant()).isNull());
    EXPECT_THROW(formatter.stringForObjectValue(9), std::out_of_range);
    EXPECT_THROW(formatter.stringForObjectValue(-1), std::out_of_range);
}

struct LinkCase {
    const char* text;
    int linkLength;  // 0: no link
};

TEST(InspectorValueFormatter, LinksHttpHttpsAndFtpUpToACommaOrWhiteSpace)
{
    const InspectorValueFormatter formatter;
    const LinkCase cases[] = {
        {"https://example.org/a,b", 21},
        {"http://example.org/x y", 20},
        {"ftp://host/file\nnext", 15},
        {"http://host/tab\tafter", 15},
        {"https://whole.example.org/", 26},
        {"HTTPS://example.org", 0},   // the prefix is case-sensitive
        {" http://example.org", 0},   // only at the start
        {"mailto:ann@example.org", 0},
        {"plain text", 0},
    };
    const QVariantMap defaults{{QStringLiteral("font"), QStringLiteral("small")}};
    for (const LinkCase& c : cases) {
        const QString text = QString::fromUtf8(c.text);
        const AttributedString result = formatter.attributedStringForObjectValue(text, defaults);
        EXPECT_EQ(result.string, text);
        const QVariantMap first = result.attributesAt(0);
        EXPECT_EQ(first.value(QStringLiteral("font")), QStringLiteral("small")) << c.text;
        if (c.linkLength == 0) {
            EXPECT_FALSE(first.contains(QLatin1String(kLinkAttribute))) << c.text;
            continue;
        }
        EXPECT_EQ(first.value(QLatin1String(kLinkAttribute)).toUrl(), QUrl(text.left(c.linkLength))) << c.text;
        EXPECT_EQ(first.value(QLatin1String(kForegroundColorAttribute)), QStringLiteral("blue"));
        EXPECT_EQ(first.value(QLatin1String(kUnderlineStyleAttribute)), 1);
        EXPECT_TRUE(result.attributesAt(c.linkLength - 1).contains(QLatin1String(kLinkAttribute))) << c.text;
        EXPECT_EQ(result.attributesAt(c.linkLength), c.linkLength < text.size() ? defaults : QVariantMap()) << c.text;
    }
}

TEST(InspectorValueFormatter, ShowsOtherValuesInTheirOwnFormAndNoValueAsNothing)
{
    const InspectorValueFormatter formatter;
    EXPECT_EQ(formatter.stringForObjectValue(42), QStringLiteral("42"));
    EXPECT_EQ(formatter.stringForObjectValue(QStringLiteral("https://a.example,b")), QStringLiteral("https://a.example,b"));
    EXPECT_TRUE(formatter.stringForObjectValue(QVariant()).isNull());
    EXPECT_TRUE(formatter.attributedStringForObjectValue(QVariant(), {}).isNull());
}

TEST(InspectorValueFormatter, RichTextEscapesAndLinks)
{
    const InspectorValueFormatter formatter;
    const AttributedString linked = formatter.attributedStringForObjectValue(QStringLiteral("https://e.org/?a=1&b, <x>"), {});
    EXPECT_EQ(linked.toHtml(), QStringLiteral("<a href=\"https://e.org/?a=1&amp;b\" style=\"color: blue; "
                                              "text-decoration: underline\">https://e.org/?a=1&amp;b</a>, &lt;x&gt;"));
}

TEST(DateFormatter, FollowsTheLocaleAndTheLocalTimeZone)
{
    const ScopedLocale locale(kEnglish);
    const DateFormatter shortDate(DateStyle::Short, DateStyle::None);
    const DateFormatter shortDateTime(DateStyle::Short, DateStyle::Short);
    const DateFormatter longDate(DateStyle::Long, DateStyle::None);
    EXPECT_EQ(shortDate.stringForObjectValue(march1st()), QStringLiteral("3/1/09"));
    EXPECT_EQ(shortDateTime.stringForObjectValue(march1st()), kEnglish.toString(march1st(), QLocale::ShortFormat));
    EXPECT_TRUE(shortDateTime.stringForObjectValue(march1st()).startsWith(QStringLiteral("3/1/09 2:05")));
    EXPECT_EQ(longDate.stringForObjectValue(march1st()), QStringLiteral("Sunday, March 1, 2009"));
    {
        const test::ScopedTimeZone tokyo("Asia/Tokyo");
        EXPECT_EQ(shortDate.stringForObjectValue(march1st().addSecs(10 * 3600)), QStringLiteral("3/2/09"));
    }
    const ScopedLocale german(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(shortDate.stringForObjectValue(march1st()), QStringLiteral("01.03.09"));
    EXPECT_TRUE(shortDate.stringForObjectValue(QStringLiteral("2009-03-01")).isNull());
    EXPECT_TRUE(shortDate.stringForObjectValue(QVariant()).isNull());
}

TEST(GmtDateFormatter, WritesAndReadsTheFixedUtcForm)
{
    const ScopedLocale locale(QLocale(QLocale::Arabic, QLocale::Egypt));
    const test::ScopedTimeZone berlin("Europe/Berlin");
    EXPECT_EQ(gmtDateFormatter().stringForObjectValue(march1st()), QStringLiteral("2009-03-01 14:05:00Z"));
    EXPECT_EQ(gmtDateFormatter().stringFromDate(march1st().toTimeZone(QTimeZone("Asia/Tokyo"))),
              QStringLiteral("2009-03-01 14:05:00Z"));
    EXPECT_EQ(gmtDateFormatter().dateFromString(QStringLiteral("2009-03-01 14:05:00Z")), march1st());
    EXPECT_FALSE(gmtDateFormatter().dateFromString(QStringLiteral("1 March 2009")).isValid());
    EXPECT_EQ(&gmtDateFormatter(), &gmtDateFormatter());
}

TEST(StringWithFormat, FillsPlaceholdersInOrder)
{
    EXPECT_EQ(stringWithFormat(QStringLiteral("%i of %i shown"), {3, 12}), QStringLiteral("3 of 12 shown"));
    EXPECT_EQ(stringWithFormat(QStringLiteral("%i %@"), {1, QStringLiteral("file found")}), QStringLiteral("1 file found"));
    EXPECT_EQ(stringWithFormat(QStringLiteral("%@ KB"), {1.5}), QStringLiteral("1.5 KB"));
    EXPECT_EQ(stringWithFormat(QStringLiteral("100%% of %d"), {7.9}), QStringLiteral("100% of 7"));
    EXPECT_EQ(stringWithFormat(QStringLiteral("%@ and %@"), {QStringLiteral("one")}), QStringLiteral("one and %@"));
}

}  // namespace
}  // namespace trovara::presentation
