// Names as bytes through QStrings: every byte string comes back as it was.
#include "common/paths.h"

#include <gtest/gtest.h>

#include <random>

namespace trovara {
namespace {

TEST(LocalBytes, NamesThatAreNotUtf8ComeBackByteForByte)
{
    const std::string cases[] = {
        "", "plain", "Frédéric/東京/😀", "latin1-caf\xe9", "\xff", "a\x80z", "\xc3",  // cut short
        "\xc0\xaf",                                                              // overlong "/"
        "\xed\xa0\x80",                                                          // an encoded surrogate
        "\xf4\x90\x80\x80",                                                      // past U+10FFFF
        std::string("nul\0inside", 10),
    };
    for (const std::string& bytes : cases) {
        EXPECT_EQ(localBytes(fromLocalBytes(bytes)), bytes) << bytes;
    }
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 12, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random() % 4 == 0 ? random() % 0x80 : 0x80 + random() % 0x80);
        }
        ASSERT_EQ(localBytes(fromLocalBytes(bytes)), bytes);
    }
}

TEST(LocalBytes, ValidUtf8IsReadAsTheTextItSpells)
{
    EXPECT_EQ(fromLocalBytes("Frédéric 😀"), QStringLiteral("Frédéric 😀"));
    EXPECT_EQ(localBytes(QStringLiteral("Frédéric 😀")), "Frédéric 😀");
    // Each stray byte stands alone, so the text around it stays readable.
    const QString mixed = fromLocalBytes("caf\xe9-ok");
    EXPECT_EQ(mixed.size(), 7);
    EXPECT_EQ(mixed.left(3), QStringLiteral("caf"));
    EXPECT_EQ(mixed.at(3).unicode(), 0xDCE9);
    EXPECT_EQ(mixed.mid(4), QStringLiteral("-ok"));
    // A lone surrogate that stands for no byte is written as U+FFFD.
    EXPECT_EQ(localBytes(QString(QChar(0xD800))), "\xef\xbf\xbd");
}

}  // namespace
}  // namespace trovara
