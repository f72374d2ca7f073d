#include "index/text/folding.h"
#include "index/text/word_splitter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using trovara::index::text::FoldOptions;
using trovara::index::text::foldForCatalogue;
using trovara::index::text::foldText;
using trovara::index::text::splitWords;

namespace {

constexpr FoldOptions kNone{};
constexpr FoldOptions kCase{.caseInsensitive = true};
constexpr FoldOptions kDiacritics{.diacriticInsensitive = true};
constexpr FoldOptions kBoth{.caseInsensitive = true, .diacriticInsensitive = true};

std::vector<std::string> wordsOf(std::string_view text)
{
    std::vector<std::string> words;
    for (const auto& word : splitWords(text)) {
        words.emplace_back(word.text());
    }
    return words;
}

std::vector<std::string> partsOf(std::string_view text)
{
    std::vector<std::string> parts;
    for (const auto& word : splitWords(text)) {
        for (const auto part : word.parts()) {
            parts.emplace_back(part);
        }
        parts.emplace_back("|");
    }
    return parts;
}

}  // namespace

TEST(TextFolding, FoldsCaseAndDiacriticsIndependently)
{
    struct Case {
        const char* input;
        FoldOptions options;
        const char* expected;
    };
    const Case cases[] = {
        {"Report 2024.PDF", kNone, "Report 2024.PDF"},
        {"Report 2024.PDF", kCase, "report 2024.pdf"},
        {"Report 2024.PDF", kDiacritics, "Report 2024.PDF"},
        {"Frédéric", kCase, "frédéric"},
        {"Frédéric", kDiacritics, "Frederic"},
        {"FRÉDÉRIC", kBoth, "frederic"},
        {"Ça va? Übermäßig", kBoth, "ca va? ubermassig"},
        {"Ελληνικά", kCase, "ελληνικά"},
        {"Ελληνικά", kBoth, "ελληνικα"},
        {"Crème brûlée", kDiacritics, "Creme brulee"},
        {"naïve café", kBoth, "naive cafe"},
        // Vietnamese stacks two marks on one letter.
        {"Việt Nam", kBoth, "viet nam"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(foldText(c.input, c.options), c.expected)
            << c.input << " c=" << c.options.caseInsensitive << " d=" << c.options.diacriticInsensitive;
    }
    EXPECT_EQ(foldForCatalogue("Ärger-Bericht.ODT"), "arger-bericht.odt");
}

TEST(TextFolding, UsesFullLanguageNeutralCaseFolding)
{
    // ß and the capital ẞ fold to "ss", so STRASSE and Straße meet.
    EXPECT_EQ(foldText("Straße", kCase), "strasse");
    EXPECT_EQ(foldText("STRAẞE", kCase), "strasse");
    EXPECT_EQ(foldText("STRASSE", kCase), foldText("straße", kCase));
    // Ligatures unfold: ﬁ is "fi".
    EXPECT_EQ(foldText("ﬁle", kCase), "file");
    EXPECT_EQ(foldText("ﬁle", kNone), "ﬁle");
    // Turkish: İ folds to i plus a combining dot, which only diacritic
    // folding removes; the dotless ı is a letter of its own and stays.
    EXPECT_EQ(foldText("İstanbul", kCase), "i\u0307stanbul");
    EXPECT_EQ(foldText("İstanbul", kBoth), "istanbul");
    EXPECT_EQ(foldText("ı", kBoth), "ı");
    EXPECT_NE(foldText("KIRMIZI", kBoth), foldText("kırmızı", kBoth));
    EXPECT_EQ(foldText("KIRMIZI", kBoth), "kirmizi");
    // Final sigma folds like the other sigmas.
    EXPECT_EQ(foldText("ΟΔΟΣ", kCase), foldText("οδος", kCase));
    EXPECT_EQ(foldText("οδός", kCase), "οδόσ");
    // Full-width letters fold their case but do not become ASCII.
    EXPECT_EQ(foldText("ＡＢＣ", kCase), "ａｂｃ");
}

TEST(TextFolding, PrecomposedAndDecomposedAccentsFoldAlike)
{
    const std::string precomposed = "caf\u00e9";
    const std::string decomposed = "cafe\u0301";
    for (const FoldOptions options : {kNone, kCase, kDiacritics, kBoth}) {
        EXPECT_EQ(foldText(precomposed, options), foldText(decomposed, options));
    }
    // Composition is the normal form when accents are kept.
    EXPECT_EQ(foldText(decomposed, kNone), precomposed);
    // Several marks in either order are one canonical text.
    EXPECT_EQ(foldText("a\u0323\u0302", kNone), foldText("a\u0302\u0323", kNone));
}

TEST(TextFolding, KeepsJapaneseIntactAndVoicingMarksApart)
{
    EXPECT_EQ(foldText("東京タワーの写真", kBoth), "東京タワーの写真");
    // が is か with a voicing mark: a different syllable, not an accent.
    EXPECT_EQ(foldText("が", kBoth), "が");
    EXPECT_NE(foldText("が", kBoth), foldText("か", kBoth));
    // Decomposed kana compose again.
    EXPECT_EQ(foldText("\u304b\u3099", kNone), "が");
    // Half-width katakana are not mapped to full width.
    EXPECT_NE(foldText("ｶﾀｶﾅ", kBoth), foldText("カタカナ", kBoth));
}

TEST(TextFolding, SurvivesInvalidUtf8)
{
    // File names are bytes; broken sequences must not crash or vanish.
    const std::string broken = "caf\xC3 \xFF\xFE report\xE2\x82";
    const std::string folded = foldText(broken, kBoth);
    EXPECT_NE(folded.find("caf"), std::string::npos);
    EXPECT_NE(folded.find("report"), std::string::npos);
    EXPECT_NE(folded.find("\xEF\xBF\xBD"), std::string::npos);  // U+FFFD
    EXPECT_EQ(foldText("", kBoth), "");
}

TEST(WordSplitting, SplitsAtNonWordCharactersAndCaseChanges)
{
    using Words = std::vector<std::string>;
    EXPECT_EQ(wordsOf("I love Paris"), (Words{"I", "love", "Paris"}));
    EXPECT_EQ(wordsOf("paris-france.jpg"), (Words{"paris", "france", "jpg"}));
    EXPECT_EQ(wordsOf("  --report_2024 (final)!  "), (Words{"report", "2024", "final"}));
    EXPECT_EQ(wordsOf("O'Neil"), (Words{"O", "Neil"}));
    EXPECT_EQ(wordsOf(""), Words{});
    EXPECT_EQ(wordsOf("... -- !!"), Words{});
    // Letters, digits and marks of every script are word characters.
    EXPECT_EQ(wordsOf("Frédéric Chopin"), (Words{"Frédéric", "Chopin"}));
    EXPECT_EQ(wordsOf("Fre\u0301de\u0301ric"), (Words{"Fre\u0301de\u0301ric"}));
    EXPECT_EQ(wordsOf("Ελληνικά κείμενα"), (Words{"Ελληνικά", "κείμενα"}));
    EXPECT_EQ(wordsOf("٣ كتب"), (Words{"٣", "كتب"}));
    // Japanese has no spaces: a run of letters is one word; the ideographic
    // full stop and comma separate.
    EXPECT_EQ(wordsOf("東京タワー。富士山、写真"), (Words{"東京タワー", "富士山", "写真"}));
    // Invalid bytes separate words rather than join them.
    EXPECT_EQ(wordsOf("abc\xFF" "def"), (Words{"abc", "def"}));
}

TEST(WordSplitting, PartsBeginWhereLowerCaseMeetsUpperCase)
{
    using Parts = std::vector<std::string>;
    EXPECT_EQ(partsOf("MyWindowClass"), (Parts{"My", "Window", "Class", "|"}));
    EXPECT_EQ(partsOf("NSWindow"), (Parts{"NSWindow", "|"}));
    EXPECT_EQ(partsOf("HTMLParser iPhone"), (Parts{"HTMLParser", "|", "i", "Phone", "|"}));
    EXPECT_EQ(partsOf("version2Beta"), (Parts{"version2Beta", "|"}));
    // A mark after the lower-case letter does not hide the case change.
    EXPECT_EQ(partsOf("cafe\u0301Noir"), (Parts{"cafe\u0301", "Noir", "|"}));
    EXPECT_EQ(partsOf("ÉcoleÉté"), (Parts{"École", "Été", "|"}));
    // Title-case letters (the Serbo-Croatian ǅ) count as upper case.
    EXPECT_EQ(partsOf("abǅz"), (Parts{"ab", "ǅz", "|"}));

    const auto words = splitWords("see MyWindow");
    ASSERT_EQ(words.size(), 2U);
    EXPECT_EQ(words[1].offset(), 4U);
    EXPECT_EQ(words[1].text(), "MyWindow");
}
