// Quick-search links: every form and parameter, how flags and the preset
// combine, templates by name, and links that must be refused rather than
// half understood.
#include "app/quick_search_url.h"

#include "test_support.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <unistd.h>

namespace trovara::test {
namespace {

using app::BlitzSearchRequest;
using app::QuickSearchUrl;
using Outcome = QuickSearchUrl::Outcome;

struct LinkCase {
    const char* name;
    const char* url;
    Outcome outcome;
    const char* searchString;
    bool anyText, filename, content, comments;
};

void PrintTo(const LinkCase& c, std::ostream* os)
{
    *os << c.name;
}

class QuickSearchLinkTest : public ::testing::TestWithParam<LinkCase> {};

TEST_P(QuickSearchLinkTest, ReadsTextAndFlags)
{
    const LinkCase& c = GetParam();
    const QuickSearchUrl parsed = QuickSearchUrl::parse(QString::fromUtf8(c.url), QString());
    ASSERT_EQ(parsed.outcome(), c.outcome) << parsed.problem().toStdString();
    if (c.outcome == Outcome::Refuse) {
        EXPECT_FALSE(parsed.problem().isEmpty());
        return;
    }
    BlitzSearchRequest expected;
    expected.searchString = QString::fromUtf8(c.searchString);
    expected.anyText = c.anyText;
    expected.filename = c.filename;
    expected.content = c.content;
    expected.comments = c.comments;
    EXPECT_EQ(parsed.request(), expected) << "search string: " << parsed.request().searchString.toStdString();
}

constexpr bool F = false;
constexpr bool T = true;

INSTANTIATE_TEST_SUITE_P(
    Links, QuickSearchLinkTest,
    ::testing::Values(
        // The plain form: everything after "//" is the text, no flags.
        LinkCase{"PlainText", "trovara://report", Outcome::Search, "report", F, F, F, F},
        LinkCase{"PlainTextDecoded", "trovara://invoice%20list", Outcome::Search, "invoice list", F, F, F, F},
        LinkCase{"PlainTextKeepsPlusAndCase", "trovara://C++%20Primer", Outcome::Search, "C++ Primer", F, F, F, F},
        LinkCase{"PlainTextUtf8Escapes", "trovara://Stra%C3%9Fe", Outcome::Search, "Straße", F, F, F, F},
        LinkCase{"PlainTextUnescapedUnicode", "trovara://Straße 📄", Outcome::Search, "Straße 📄", F, F, F, F},
        LinkCase{"SchemeCaseInsensitive", "TROVARA://report", Outcome::Search, "report", F, F, F, F},
        LinkCase{"EmptyTextDoesNothing", "trovara://", Outcome::Ignore, "", F, F, F, F},
        // The parameter form.
        LinkCase{"FileNameOnly", "trovara://blitzSearch?searchstring=invoice%20list&filenameflag=1", Outcome::Search,
                 "invoice list", F, T, F, F},
        LinkCase{"KeysAreCaseInsensitiveValuesKeepCase", "trovara://blitzSearch?SearchString=Abc", Outcome::Search,
                 "Abc", F, F, F, F},
        LinkCase{"LowerCasedBlitzSearchFromBrowsers", "trovara://blitzsearch?searchstring=x&contentflag=yes",
                 Outcome::Search, "x", F, F, T, F},
        LinkCase{"AllFourFlags",
                 "trovara://blitzSearch?searchstring=x&anytextflag=t&filenameflag=Y&contentflag=7&commentsflag=true",
                 Outcome::Search, "x", T, T, T, T},
        LinkCase{"FalseFlagValues",
                 "trovara://blitzSearch?searchstring=x&anytextflag=0&filenameflag=no&contentflag=false&commentsflag=",
                 Outcome::Search, "x", F, F, F, F},
        LinkCase{"ExplicitFlagDisablesThePreset", "trovara://blitzSearch?searchstring=x&options=2&contentflag=0",
                 Outcome::Search, "x", F, F, F, F},
        LinkCase{"PresetOneIsFileNameOnly", "trovara://blitzSearch?searchstring=x&options=1", Outcome::Search, "x", F,
                 T, F, F},
        LinkCase{"PresetTwoIsContentOnly", "trovara://blitzSearch?searchstring=x&options=2", Outcome::Search, "x", F,
                 F, T, F},
        LinkCase{"OtherPresetIsFileNameAndContent", "trovara://blitzSearch?searchstring=x&options=9", Outcome::Search,
                 "x", F, T, T, F},
        LinkCase{"NoSearchStringTakesTheWholeText", "trovara://blitzSearch?options=1", Outcome::Search,
                 "blitzSearch?options=1", F, T, F, F},
        LinkCase{"UnknownParametersAreIgnored", "trovara://blitzSearch?searchstring=x&colour=red&&", Outcome::Search,
                 "x", F, F, F, F},
        LinkCase{"LaterSearchStringWins", "trovara://blitzSearch?searchstring=a&searchstring=b", Outcome::Search, "b",
                 F, F, F, F},
        LinkCase{"EmptySearchStringDoesNothing", "trovara://blitzSearch?searchstring=&filenameflag=1",
                 Outcome::Ignore, "", F, T, F, F},
        LinkCase{"EqualsSignInTheValueIsKept", "trovara://blitzSearch?searchstring=a%3Db=c", Outcome::Search,
                 "a=b=c", F, F, F, F},
        // Refused: the beep, and nothing else.
        LinkCase{"QueryWithoutBlitzSearch", "trovara://search?searchstring=x", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"QuestionMarkInPlainText", "trovara://what?", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"MissingSlashes", "trovara:report", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"OtherScheme", "https://example.org/?searchstring=x", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"NoSchemeAtAll", "report", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"Empty", "", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"TruncatedEscape", "trovara://blitzSearch?searchstring=abc%4", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"NonHexEscape", "trovara://abc%zz", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"LonePercent", "trovara://100%", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"EscapedNul", "trovara://blitzSearch?searchstring=a%00b", Outcome::Refuse, "", F, F, F, F},
        LinkCase{"EscapesThatAreNotUtf8", "trovara://%C3%28", Outcome::Refuse, "", F, F, F, F}),
    [](const ::testing::TestParamInfo<LinkCase>& info) { return std::string(info.param.name); });

TEST(QuickSearchUrlTest, NulCharacterInTheLinkIsRefused)
{
    QString url = QStringLiteral("trovara://ab");
    url.insert(11, QChar(0));
    EXPECT_EQ(QuickSearchUrl::parse(url, {}).outcome(), Outcome::Refuse);
}

TEST(QuickSearchUrlTest, HugeLinkIsRefusedAndOneJustUnderTheLimitIsRead)
{
    const QString prefix = QStringLiteral("trovara://blitzSearch?searchstring=");
    const QString huge = prefix + QString(100 * 1024, QLatin1Char('a'));
    const QuickSearchUrl refused = QuickSearchUrl::parse(huge, {});
    EXPECT_EQ(refused.outcome(), Outcome::Refuse);
    EXPECT_TRUE(refused.problem().contains(QStringLiteral("longer")));

    const QString fits = prefix + QString(QuickSearchUrl::kMaximumLength - prefix.size(), QLatin1Char('a'));
    const QuickSearchUrl read = QuickSearchUrl::parse(fits, {});
    ASSERT_EQ(read.outcome(), Outcome::Search);
    EXPECT_EQ(read.request().searchString.size(), QuickSearchUrl::kMaximumLength - prefix.size());
}

TEST(QuickSearchUrlTest, BooleanReadingFollowsThePlatform)
{
    for (const char* yes : {"1", "9", "01", "  +1", "-3", "Y", "yes", "T", "true", "tRUE"}) {
        EXPECT_TRUE(QuickSearchUrl::boolValue(QString::fromLatin1(yes))) << yes;
    }
    for (const char* no : {"", "0", "000", "no", "false", "N", "F", "x1", " ", "-", "on"}) {
        EXPECT_FALSE(QuickSearchUrl::boolValue(QString::fromLatin1(no))) << no;
    }
}

class QuickSearchTemplateTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        templates = makeTemporaryFolder(QStringLiteral("link-templates"));
        QFile photos(templates + QStringLiteral("/Photos.trova"));
        ASSERT_TRUE(photos.open(QIODevice::WriteOnly));
        photos.write("template");
    }
    void TearDown() override { QDir(templates).removeRecursively(); }

    QString templateFor(const char* parameter) const
    {
        const QuickSearchUrl parsed = QuickSearchUrl::parse(
            QStringLiteral("trovara://blitzSearch?searchstring=x&templatename=") + QLatin1String(parameter), templates);
        EXPECT_EQ(parsed.outcome(), Outcome::Search);
        return parsed.request().templatePath;
    }

    QString templates;
};

TEST_F(QuickSearchTemplateTest, TemplateNameFindsTheFileWithOrWithoutExtension)
{
    const QString photos = QDir(templates).absoluteFilePath(QStringLiteral("Photos.trova"));
    EXPECT_EQ(templateFor("Photos"), photos);
    EXPECT_EQ(templateFor("Photos.trova"), photos);
    EXPECT_EQ(templateFor("Phot%6Fs"), photos);
}

TEST_F(QuickSearchTemplateTest, MissingOrUnreadableTemplateIsDroppedSilently)
{
    EXPECT_EQ(templateFor("Music"), QString());
    EXPECT_EQ(templateFor(""), QString());
    EXPECT_EQ(templateFor("Bad%zz"), QString());
    QFile::setPermissions(templates + QStringLiteral("/Photos.trova"), QFileDevice::Permissions());
    if (::geteuid() != 0) {
        EXPECT_EQ(templateFor("Photos"), QString());
    }
}

TEST_F(QuickSearchTemplateTest, TemplateNameCannotLeaveTheTemplatesFolder)
{
    const QString outside = templates + QStringLiteral("/../Outside.trova");
    QFile file(outside);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("elsewhere");
    file.close();
    EXPECT_EQ(templateFor("..%2FOutside"), QString());
    EXPECT_EQ(templateFor("../Outside"), QString());
    QFile::remove(outside);
}

}  // namespace
}  // namespace trovara::test
