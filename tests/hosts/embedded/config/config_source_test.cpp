// What a message shows of a configuration's text: one line, whole characters, cut.
// Method: texts and spans written out.
#include "hosts/embedded/config/config_source.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

TEST(ConfigSource, ShowsASpanOfCharacters) {
  const ConfigSource source("ä = 'ö'\r\nlast", "c.toml");
  EXPECT_EQ(source.shown({1, 5}, {1, 8}), "'ö'");
  EXPECT_EQ(source.shown({1, 1}, {1, 2}), "ä");
  EXPECT_EQ(source.shown({2, 1}, {2, 5}), "last");
  EXPECT_EQ(source.shown_line({1, 3}), "ä = 'ö'");
}

TEST(ConfigSource, MarksWhatGoesOnOnAnotherLine) {
  const ConfigSource source("a = [1,\n2]", "c.toml");
  EXPECT_EQ(source.shown({1, 5}, {2, 3}), "[1,...");
}

TEST(ConfigSource, ShowsNothingOfPlacesThatAreNotThere) {
  const ConfigSource source("abc", "c.toml");
  EXPECT_EQ(source.shown({0, 0}, {0, 0}), "");
  EXPECT_EQ(source.shown({2, 1}, {2, 2}), "");
  EXPECT_EQ(source.shown({1, 9}, {1, 12}), "");
  EXPECT_EQ(source.shown_line({2, 1}), "");
}

TEST(PositionOfByte, CountsCharacters) {
  const auto position = [](std::size_t byte) {
    const TextPosition found = position_of_byte("äb\r\nc", byte);
    return std::pair(found.line, found.column);
  };
  using Pair = std::pair<std::size_t, std::size_t>;
  EXPECT_EQ(position(0), Pair(1, 1));
  EXPECT_EQ(position(1), Pair(1, 1));
  EXPECT_EQ(position(2), Pair(1, 2));
  EXPECT_EQ(position(4), Pair(1, 4));
  EXPECT_EQ(position(5), Pair(2, 1));
}

TEST(OnOneLine, CutsAtWholeCharacters) {
  EXPECT_EQ(on_one_line("ääää", 4), "ääää");
  EXPECT_EQ(on_one_line("ääää", 3), "äää...");
  EXPECT_EQ(on_one_line("", 3), "");
}

TEST(OnOneLine, WritesControlCharactersOut) {
  EXPECT_EQ(on_one_line(std::string_view("a\tb\n\0\x7f", 6), 10), "a\\x09b\\x0a\\x00\\x7f");
}

}  // namespace
}  // namespace varnholt::embedded::test
