// Display lines: where a view of a long text starts each line.
#include "preview/display_lines.h"

#include <gtest/gtest.h>

namespace trovara::preview {
namespace {

TEST(DisplayLines, StartAfterEveryLineBreak)
{
    EXPECT_EQ(displayLineStarts(u"one\ntwo\n\nthree"), (std::vector<qsizetype>{0, 4, 8, 9}));
    EXPECT_EQ(displayLineStarts(u"ends with a break\n"), (std::vector<qsizetype>{0, 18}));
    EXPECT_EQ(displayLineStarts(u""), std::vector<qsizetype>{0});
}

TEST(DisplayLines, CutLongLinesButNeverASurrogatePair)
{
    EXPECT_EQ(displayLineStarts(u"abcdefgh", 3), (std::vector<qsizetype>{0, 3, 6}));
    // A line exactly at the limit is not cut before its break.
    EXPECT_EQ(displayLineStarts(u"abc\nde", 3), (std::vector<qsizetype>{0, 4}));
    // 😀 is two units: the cut moves past it.
    EXPECT_EQ(displayLineStarts(u"ab😀cd", 3), (std::vector<qsizetype>{0, 4}));
}

TEST(DisplayLines, FindTheLineOfAPosition)
{
    const std::vector<qsizetype> starts = displayLineStarts(u"one\ntwo\n\nthree");
    EXPECT_EQ(displayLineAt(starts, 0), 0u);
    EXPECT_EQ(displayLineAt(starts, 3), 0u);
    EXPECT_EQ(displayLineAt(starts, 4), 1u);
    EXPECT_EQ(displayLineAt(starts, 8), 2u);
    EXPECT_EQ(displayLineAt(starts, 12), 3u);
}

}  // namespace
}  // namespace trovara::preview
