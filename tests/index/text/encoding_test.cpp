// Reading text of unknown encoding: byte-order marks, the Japanese charset
// guesser's automata and its tie rules, conversion, limits. Japanese
// fixtures are made here from UTF-8 with the C library's iconv.
#include "index/text/encoding.h"
#include "index/text/japanese_charset_guesser.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iconv.h>
#include <string>
#include <unistd.h>

using trovara::index::text::decodeText;
using trovara::index::text::detectEncoding;
using trovara::index::text::JapaneseCharsetGuesser;
using trovara::index::text::readTextFile;
using trovara::index::text::TextEncoding;

namespace {

// UTF-8 text in another charset, as a file in that charset would hold it.
std::string encode(const std::string& utf8, const char* charset)
{
    iconv_t converter = iconv_open(charset, "UTF-8");
    EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1)) << charset;
    std::string out(utf8.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(utf8.data());
    std::size_t inLeft = utf8.size();
    char* outPtr = out.data();
    std::size_t outLeft = out.size();
    EXPECT_NE(iconv(converter, &in, &inLeft, &outPtr, &outLeft), static_cast<std::size_t>(-1));
    iconv(converter, nullptr, nullptr, &outPtr, &outLeft);
    iconv_close(converter);
    out.resize(out.size() - outLeft);
    return out;
}

const std::string kJapanese = "今日は良い天気です。会議の議事録と報告書を東京で書きました。カタカナもひらがなも。";

std::string guessed(std::string_view bytes)
{
    return std::string(JapaneseCharsetGuesser::guess(bytes).value_or("(none)"));
}

}  // namespace

TEST(JapaneseCharsetGuesser, RecognisesJapaneseTextInEachEncoding)
{
    EXPECT_EQ(guessed(encode(kJapanese, "SHIFT_JIS")), "Shift_JIS");
    EXPECT_EQ(guessed(encode(kJapanese, "EUC-JP")), "EUC-JP");
    EXPECT_EQ(guessed(kJapanese), "UTF-8");
    EXPECT_EQ(guessed(encode(kJapanese, "ISO-2022-JP")), "ISO-2022-JP");
    // Short runs too: a file name's worth.
    EXPECT_EQ(guessed(encode("写真", "SHIFT_JIS")), "Shift_JIS");
    EXPECT_EQ(guessed(encode("ひらがな", "EUC-JP")), "EUC-JP");
}

TEST(JapaneseCharsetGuesser, PrefersUtf8ForAccentedLatinThatIsAlsoValidJapanese)
{
    // "é" (C3 A9) and "ü" (C3 BC) are valid two-byte EUC-JP and Shift_JIS too.
    EXPECT_EQ(guessed("Café crème, Müller, Zürich, señor"), "UTF-8");
    EXPECT_EQ(guessed("naïve déjà vu"), "UTF-8");
}

TEST(JapaneseCharsetGuesser, FollowsItsTieAndEscapeRules)
{
    // Pure ASCII keeps all three alive with equal scores: EUC-JP wins ties.
    EXPECT_EQ(guessed("plain old ASCII text\n"), "EUC-JP");
    EXPECT_EQ(guessed(""), "EUC-JP");
    // ESC $ or ESC ( means ISO-2022-JP at once, whatever follows.
    EXPECT_EQ(guessed("abc\x1b$B\xff\xff"), "ISO-2022-JP");
    EXPECT_EQ(guessed("\x1b(B"), "ISO-2022-JP");
    // Another byte after ESC is fed instead of the ESC: here A1 goes on
    // each automaton's two-byte character, where an ESC would end all three.
    EXPECT_EQ(guessed("\xe0\x1b\xa1"), "UTF-8");
    // A byte that is valid nowhere leaves no answer.
    EXPECT_EQ(guessed("\x80"), "(none)");
    EXPECT_EQ(guessed("a\x1b\x80"), "(none)");
    // An ESC as the last byte is fed like any other byte.
    EXPECT_EQ(guessed("abc\x1b"), "EUC-JP");
    // A Shift_JIS lead byte kills EUC-JP and UTF-8 in turn.
    EXPECT_EQ(guessed("\x82\xa0"), "Shift_JIS");
    // Latin-1 "é" followed by a blank is valid in none of them.
    EXPECT_EQ(guessed("caf\xe9 au lait"), "(none)");
}

TEST(TextEncoding, DetectsByteOrderMarksBeforeAnythingElse)
{
    EXPECT_EQ(detectEncoding(std::string_view("\xFF\xFE" "a\0b\0", 6)), TextEncoding::Utf16LittleEndian);
    EXPECT_EQ(detectEncoding(std::string_view("\xFE\xFF\0a", 4)), TextEncoding::Utf16BigEndian);
    // Whatever follows the mark: these bytes would be Shift_JIS otherwise.
    EXPECT_EQ(detectEncoding("\xFF\xFE\x82\xa0"), TextEncoding::Utf16LittleEndian);
    EXPECT_EQ(detectEncoding(""), TextEncoding::Ascii);
    EXPECT_EQ(detectEncoding(std::string("\0abc", 4)), TextEncoding::Ascii);
    EXPECT_EQ(detectEncoding("caf\xe9 au lait"), TextEncoding::Ascii);
    EXPECT_EQ(detectEncoding(encode(kJapanese, "SHIFT_JIS")), TextEncoding::ShiftJis);
}

TEST(TextEncoding, DecodesEveryDetectedEncodingToUtf8)
{
    for (const char* charset : {"SHIFT_JIS", "EUC-JP", "ISO-2022-JP"}) {
        const std::string bytes = encode(kJapanese, charset);
        EXPECT_EQ(decodeText(bytes, detectEncoding(bytes)).text, kJapanese) << charset;
    }
    EXPECT_EQ(decodeText(kJapanese, detectEncoding(kJapanese)).text, kJapanese);
    // Shift_JIS keeps a backslash a backslash (as Windows files mean it).
    EXPECT_EQ(decodeText("C:\\temp\\\x82\xa0", TextEncoding::ShiftJis).text, "C:\\temp\\あ");

    const std::string utf16le = std::string("\xFF\xFE", 2) + std::string("h\0i\0=\0\x3d\xd8\x00\xde", 10);
    EXPECT_EQ(decodeText(utf16le, detectEncoding(utf16le)).text, "hi=\U0001F600");
    const std::string utf16be = std::string("\xFE\xFF\0o\0k", 6);
    EXPECT_EQ(decodeText(utf16be, detectEncoding(utf16be)).text, "ok");
    // A UTF-8 byte-order mark is not text.
    EXPECT_EQ(decodeText("\xEF\xBB\xBFword", TextEncoding::Utf8).text, "word");
}

TEST(TextEncoding, ReplacesWhatIsNotValidAndGoesOn)
{
    EXPECT_EQ(decodeText("caf\xe9 au lait", TextEncoding::Ascii).text, "caf\uFFFD au lait");
    EXPECT_EQ(decodeText("ok\xC3(ok", TextEncoding::Utf8).text, "ok\uFFFD(ok");
    EXPECT_EQ(decodeText("\x82\xa0\x82", TextEncoding::ShiftJis).text, "あ\uFFFD");
    EXPECT_EQ(decodeText(std::string("\xFF\xFE" "a\0\x00\xd8" "b", 7), TextEncoding::Utf16LittleEndian).text,
              "a\uFFFD\uFFFD");
}

TEST(TextEncoding, CutsAtTheLimitOnACharacterBoundary)
{
    const trovara::index::text::DecodedText cut = decodeText("aé日本", TextEncoding::Utf8, 5);
    EXPECT_EQ(cut.text, "aé");  // the 3-byte 日 would end at byte 6
    EXPECT_TRUE(cut.truncated);
    const trovara::index::text::DecodedText whole = decodeText("aé日", TextEncoding::Utf8, 6);
    EXPECT_EQ(whole.text, "aé日");
    EXPECT_FALSE(whole.truncated);
    const std::string sjis = encode(kJapanese, "SHIFT_JIS");
    const trovara::index::text::DecodedText converted = decodeText(sjis, TextEncoding::ShiftJis, 10);
    EXPECT_EQ(converted.text, "今日は");
    EXPECT_TRUE(converted.truncated);
}

TEST(TextEncoding, ReadsFilesUpToTheLimit)
{
    const std::string path = std::string(getenv("HOME")) + "/sample.txt";
    std::ofstream(path, std::ios::binary) << encode(kJapanese, "EUC-JP") << std::string(100000, 'x');
    auto whole = readTextFile(path, 1 << 20);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->text.substr(0, kJapanese.size()), kJapanese);
    EXPECT_FALSE(whole->truncated);
    auto cut = readTextFile(path, 1000);
    ASSERT_TRUE(cut);
    EXPECT_LE(cut->text.size(), 1000u);
    EXPECT_TRUE(cut->truncated);
    EXPECT_FALSE(readTextFile(path + ".missing", 100));
    ::unlink(path.c_str());
}
