#include "index/fs/recently_used.h"

#include "fs_test_util.h"

#include <QDir>

#include <gtest/gtest.h>

using namespace trovara::index;

namespace {

constexpr Nanoseconds kSecond = 1'000'000'000;
// 2024-01-02T03:04:05Z
constexpr Nanoseconds kJanuarySecond = 1'704'164'645 * kSecond;

const char* const kList = R"(<?xml version="1.0" encoding="UTF-8"?>
<xbel version="1.0"
      xmlns:bookmark="http://www.freedesktop.org/standards/desktop-bookmarks"
      xmlns:mime="http://www.freedesktop.org/standards/shared-mime-info">
  <bookmark href="file:///home/ann/My%20Report.pdf" added="2024-01-01T00:00:00Z"
            modified="2024-01-01T00:00:00Z" visited="2024-01-02T03:04:05.123456Z">
    <info><metadata owner="http://freedesktop.org">
      <mime:mime-type type="application/pdf"/>
      <bookmark:applications>
        <bookmark:application name="Viewer" exec="&apos;viewer %u&apos;" modified="2024-01-02T03:04:05Z" count="2"/>
      </bookmark:applications>
    </metadata></info>
  </bookmark>
  <bookmark href="file://localhost/home/ann/caf%C3%A9.txt" visited="2024-01-02T03:04:05+01:00"/>
  <bookmark href="https://example.org/page.html" visited="2024-01-02T03:04:05Z"/>
  <bookmark href="file://otherhost/home/ann/remote.txt" visited="2024-01-02T03:04:05Z"/>
  <bookmark href="file:///home/ann/no-visit.txt" added="2024-01-02T03:04:05Z"/>
  <bookmark href="file:///home/ann/bad-visit.txt" visited="yesterday"/>
  <bookmark href="file:///home/ann/twice.txt" visited="2024-01-02T03:04:05Z"/>
  <bookmark href="file:///home/ann/twice.txt" visited="2024-01-02T03:04:15Z"/>
  <bookmark href="file:///home/ann/twice.txt" visited="2024-01-02T03:04:10Z"/>
</xbel>
)";

}  // namespace

TEST(RecentlyUsed, ReadsTheLatestVisitOfEveryLocalFile)
{
    const auto list = RecentlyUsed::parse(kList);
    ASSERT_TRUE(list.ok()) << list.error().message;
    const std::unordered_map<std::string, Nanoseconds> expected = {
        {"/home/ann/My Report.pdf", kJanuarySecond + 123'456'000},
        {"/home/ann/café.txt", kJanuarySecond - 3600 * kSecond},
        {"/home/ann/twice.txt", kJanuarySecond + 10 * kSecond},
    };
    EXPECT_EQ(list->visits(), expected);
    EXPECT_EQ(list->visited("/home/ann/My Report.pdf"), kJanuarySecond + 123'456'000);
    EXPECT_FALSE(list->visited("/home/ann/My%20Report.pdf").has_value());
}

TEST(RecentlyUsed, ADamagedListIsRefusedAndLoadsAsEmpty)
{
    const std::string whole = kList;
    const std::string damaged[] = {
        whole.substr(0, whole.size() / 2),  // cut off mid-way
        "",
        "not xml at all",
        "<html><bookmark href=\"file:///x\" visited=\"2024-01-02T03:04:05Z\"/></html>",
        std::string("<xbel>\0\x01\x02</xbel>", 16),
        "<xbel><bookmark href=\"file:///a\" visited=\"2024-01-02T03:04:05Z\"></xbel>",
    };
    for (const std::string& text : damaged) {
        const auto list = RecentlyUsed::parse(text);
        ASSERT_FALSE(list.ok()) << text;
        EXPECT_EQ(list.error().kind, Failure::Kind::Corrupt) << text;
        EXPECT_FALSE(list.error().message.empty());
    }

    const std::string dataHome = trovara::test::makeTree("xdg-data");
    const trovara::test::ScopedEnv environment("XDG_DATA_HOME", dataHome.c_str());
    EXPECT_TRUE(RecentlyUsed::load().visits().empty()) << "no list at all";
    const auto missing = RecentlyUsed::read(dataHome + "/recently-used.xbel");
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().kind, Failure::Kind::Io);

    trovara::test::writeFile(dataHome + "/recently-used.xbel", damaged[0]);
    EXPECT_TRUE(RecentlyUsed::load().visits().empty());
    trovara::test::writeFile(dataHome + "/recently-used.xbel", kList);
    EXPECT_EQ(RecentlyUsed::load().visits().size(), 3u);
}

TEST(RecentlyUsed, TheListLivesInTheDataHome)
{
    {
        const trovara::test::ScopedEnv environment("XDG_DATA_HOME", "/data/home");
        EXPECT_EQ(RecentlyUsed::defaultPath(), "/data/home/recently-used.xbel");
    }
    for (const char* unusable : {"relative/data", "", static_cast<const char*>(nullptr)}) {
        const trovara::test::ScopedEnv environment("XDG_DATA_HOME", unusable);
        EXPECT_EQ(RecentlyUsed::defaultPath(), QDir::homePath().toStdString() + "/.local/share/recently-used.xbel");
    }
}

TEST(RecentlyUsed, LastUsedDateIsTheVisitElseAReadAfterTheLastWrite)
{
    const auto list = RecentlyUsed::parse(kList);
    ASSERT_TRUE(list.ok());
    FileInfo info;
    info.modified = kJanuarySecond;

    info.accessed = kJanuarySecond + kSecond;
    EXPECT_EQ(list->lastUsedDate("/home/ann/twice.txt", info), kJanuarySecond + 10 * kSecond)
        << "the list wins over the access time";
    EXPECT_EQ(list->lastUsedDate("/home/ann/other.txt", info), kJanuarySecond + kSecond);
    info.accessed = kJanuarySecond;
    EXPECT_FALSE(list->lastUsedDate("/home/ann/other.txt", info).has_value()) << "read no later than written";
    info.accessed = kJanuarySecond - kSecond;
    EXPECT_FALSE(list->lastUsedDate("/home/ann/other.txt", info).has_value());
    EXPECT_EQ(RecentlyUsed().lastUsedDate("/home/ann/twice.txt", info), std::nullopt);
}

TEST(RecentlyUsed, ParsesTheTimesTheListWrites)
{
    const std::pair<const char*, std::optional<Nanoseconds>> cases[] = {
        {"2024-01-02T03:04:05Z", kJanuarySecond},
        {"2024-01-02T03:04:05.5Z", kJanuarySecond + kSecond / 2},
        {"2024-01-02T03:04:05.123456789Z", kJanuarySecond + 123'456'789},
        {"2024-01-02T05:34:05+02:30", kJanuarySecond},
        {"2024-01-01T22:04:05-0500", kJanuarySecond},
        {"2024-01-02T03:04:05", kJanuarySecond},
        {"1970-01-01T00:00:00Z", 0},
        {"1969-12-31T23:59:59Z", -kSecond},
        {"2024-02-29T00:00:00Z", 1'709'164'800 * kSecond},
        {"2023-02-29T00:00:00Z", std::nullopt},
        {"2024-13-01T00:00:00Z", std::nullopt},
        {"2024-01-02T24:00:00Z", std::nullopt},
        {"2024-01-02", std::nullopt},
        {"2024-01-02T03:04:05.Z", std::nullopt},
        {"2024-01-02T03:04:05Zjunk", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(parseIsoTime(text), expected) << text;
    }
}
