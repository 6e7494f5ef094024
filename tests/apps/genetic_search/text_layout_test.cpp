// Goal: texts are counted, cut and wrapped by columns, and never inside a code point.
// Method: hand-made texts, and all widths of one expression.
#include "apps/genetic_search/text_layout.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace varnholt::app::test {
namespace {

using ::testing::ElementsAre;

constexpr const char* kExpression = "arith_add(cross_rank(ts_delta(close, 5)), volume)";

TEST(TextLayout, CountsCodePointsAsColumns) {
  EXPECT_EQ(column_count(""), 0U);
  EXPECT_EQ(column_count("abc"), 3U);
  EXPECT_EQ(column_count("Z\u00fcrich"), 6U);
}

TEST(TextLayout, ShowsControlCharactersAsQuestionMarks) {
  EXPECT_EQ(on_one_line("a\nb\x1b[2Jc\x7f"), "a?b?[2Jc?");
  EXPECT_EQ(on_one_line("C1 \u009b2J, bidi \u202eabc\u2069\u200f, line \u2028"),
            "C1 ?2J, bidi ?abc??, line ?");
  EXPECT_EQ(on_one_line("\x9b\xc3 \xe2\x80 \xff"), "?? ?? ?") << "bytes that are not UTF-8";
  EXPECT_EQ(on_one_line("\u00e4\u20ac\U0001f600"), "\u00e4\u20ac\U0001f600");
}

TEST(TextLayout, CutsWithAnEllipsisOnlyWhatDoesNotFit) {
  EXPECT_EQ(cut_to_width("abcdef", 6), "abcdef");
  EXPECT_EQ(cut_to_width("abcdef", 5), "ab...");
  EXPECT_EQ(cut_to_width("abcdef", 3), "abc");
  EXPECT_EQ(cut_to_width("abcdef", 0), "");
}

TEST(TextLayout, CutsBetweenCodePoints) {
  EXPECT_EQ(cut_to_width("\u00e4\u00f6\u00fc\u00e4\u00f6", 4), "\u00e4...");
  EXPECT_EQ(cut_to_width("\u00e4\u00f6\u00fc", 2), "\u00e4\u00f6");
}

TEST(TextLayout, WrapsAfterBracketsCommasAndBlanks) {
  EXPECT_THAT(wrap_text(kExpression, 24),
              ElementsAre("arith_add(cross_rank(", "ts_delta(close, 5)),", "volume)"));
}

TEST(TextLayout, BreaksAWordThatIsTooLong) {
  EXPECT_THAT(wrap_text("abcdefgh", 3), ElementsAre("abc", "def", "gh"));
}

TEST(TextLayout, WrapsNothingThatFits) {
  EXPECT_THAT(wrap_text("a b", 3), ElementsAre("a b"));
  EXPECT_THAT(wrap_text("", 3), ElementsAre(""));
  EXPECT_THAT(wrap_text("ab cd", 2), ElementsAre("ab", "cd"));
}

TEST(TextLayout, LosesNothingButBlanksAtAnyWidth) {
  for (std::size_t width = 1; width < 60; ++width) {
    SCOPED_TRACE(width);
    std::string joined;
    for (const std::string& line : wrap_text(kExpression, width)) {
      EXPECT_LE(column_count(line), width);
      EXPECT_FALSE(line.empty());
      joined += line;
    }
    std::string expected = kExpression;
    std::erase(expected, ' ');
    std::erase(joined, ' ');
    EXPECT_EQ(joined, expected);
  }
}

TEST(TextLayout, PadsToAWidth) {
  EXPECT_EQ(padded("\u00e4b", 4, Align::Left), "\u00e4b  ");
  EXPECT_EQ(padded("ab", 4, Align::Right), "  ab");
  EXPECT_EQ(padded("abcde", 4, Align::Right), "abcde");
}

}  // namespace
}  // namespace varnholt::app::test
