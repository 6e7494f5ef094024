// Texts are checked, walked, compared and written as CPython does.
//
// Method: cases by hand, one for each rule, beside the thousands of python_forms_test.cpp; the
// order of texts is compared with the order of their code points on random texts.
#include "search_templates/genetic/value/text.hpp"

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/utf8.hpp"

namespace varnholt::genetic {
namespace {

using test::is_valid_utf8;

std::string json(std::string_view text) {
  std::string out;
  append_json_string(out, text);
  return out;
}

std::vector<char32_t> code_points(std::string_view text) {
  std::vector<char32_t> points;
  for (std::size_t position = 0; position < text.size();) {
    points.push_back(next_code_point(text, position));
  }
  return points;
}

TEST(Text, AcceptsEveryWellFormedLength) {
  EXPECT_TRUE(is_valid_utf8(""));
  EXPECT_TRUE(is_valid_utf8("plain ASCII of more than eight bytes"));
  EXPECT_TRUE(is_valid_utf8(std::string_view("\0", 1)));
  EXPECT_TRUE(is_valid_utf8("\xC2\x80 \xDF\xBF"));
  EXPECT_TRUE(is_valid_utf8("\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF"));
  EXPECT_TRUE(is_valid_utf8("\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"));
}

TEST(Text, RefusesWhatIsNoUtf8) {
  const std::vector<std::string> broken{
      "\x80",              // A continuation without a lead.
      "\xC2",              // Cut off.
      "\xE2\x82",          // Cut off later.
      "\xC2\x41",          // No continuation.
      "\xC0\x80",          // Overlong, two bytes.
      "\xC1\xBF",          //
      "\xE0\x9F\xBF",      // Overlong, three bytes.
      "\xF0\x8F\xBF\xBF",  // Overlong, four bytes.
      "\xED\xA0\x80",      // The first surrogate.
      "\xED\xBF\xBF",      // The last one.
      "\xF4\x90\x80\x80",  // Over U+10FFFF.
      "\xF5\x80\x80\x80",  // No lead at all.
      "\xFF",
  };
  for (const std::string& text : broken) {
    EXPECT_FALSE(is_valid_utf8(text)) << ::testing::PrintToString(text);
    EXPECT_FALSE(is_valid_utf8("eight bytes ahead " + text)) << ::testing::PrintToString(text);
  }
}

TEST(Text, KnowsAsciiAtEveryPlaceOfAWord) {
  for (std::size_t size = 0; size < 20; ++size) {
    EXPECT_TRUE(is_ascii(std::string(size, 'x')));
    for (std::size_t place = 0; place < size; ++place) {
      std::string text(size, 'x');
      text[place] = '\x80';
      EXPECT_FALSE(is_ascii(text)) << size << " " << place;
    }
  }
}

TEST(Text, WalksCodePoints) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(code_points(text), (std::vector<char32_t>{'a', 0xE9, 0x20AC, 0x1F600}));
  EXPECT_EQ(code_point_count(text), 4u);
  EXPECT_EQ(code_point_count("eight characters \xC3\xA9"), 18u);
  EXPECT_EQ(first_code_points(text, 0), "");
  EXPECT_EQ(first_code_points(text, 3), "a\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(first_code_points(text, 9), text);
}

TEST(Text, ReadsAMalformedByteAsOneReplacementAndStaysInside) {
  EXPECT_EQ(code_points("\xE2\x82"), (std::vector<char32_t>{0xFFFD, 0xFFFD}));
  EXPECT_EQ(code_points("\xF0z"), (std::vector<char32_t>{0xFFFD, 'z'}));
}

TEST(Text, ChoosesTheQuoteOfARepr) {
  EXPECT_EQ(text_repr(""), "''");
  EXPECT_EQ(text_repr("abc"), "'abc'");
  EXPECT_EQ(text_repr("it's"), "\"it's\"");
  EXPECT_EQ(text_repr("\"x\""), "'\"x\"'");
  EXPECT_EQ(text_repr("it's \"x\""), R"('it\'s "x"')");
}

TEST(Text, EscapesWhatAReprCannotShow) {
  EXPECT_EQ(text_repr("\\\n\r\t"), R"('\\\n\r\t')");
  EXPECT_EQ(text_repr(std::string_view("\0\x1f\x7f", 3)), R"('\x00\x1f\x7f')");
  EXPECT_EQ(text_repr("\xC2\xA0\xC2\xAD"), R"('\xa0\xad')");
  EXPECT_EQ(text_repr("\xE2\x80\xA8"), R"('\u2028')");
  EXPECT_EQ(text_repr("\xF4\x8F\xBF\xBF"), R"('\U0010ffff')");
  EXPECT_EQ(text_repr("\xC3\xA9\xF0\x9F\x98\x80"), "'\xC3\xA9\xF0\x9F\x98\x80'");
}

TEST(Text, WritesJsonInPureAscii) {
  EXPECT_EQ(json(""), R"("")");
  EXPECT_EQ(json("it's / plain"), R"("it's / plain")");
  EXPECT_EQ(json("\"\\\b\f\n\r\t"), R"("\"\\\b\f\n\r\t")");
  EXPECT_EQ(json(std::string_view("\0\x1f\x7f", 3)), R"("\u0000\u001f\u007f")");
  EXPECT_EQ(json("\xC3\xA9\xE2\x82\xAC"), R"("\u00e9\u20ac")");
  EXPECT_EQ(json("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"), R"("\ud83d\ude00\udbff\udfff")");
}

TEST(Text, AppendsBehindWhatIsThere) {
  std::string out = "key=";
  append_text_repr(out, "v");
  append_json_string(out, "w");
  EXPECT_EQ(out, "key='v'\"w\"");
}

TEST(Text, IsOrderedByCodePoints) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  std::mt19937_64 random(seed);
  // Around the lengths of UTF-8, where UTF-16 would order otherwise.
  constexpr char32_t kPoints[] = {0x01,   0x7F,   0x80,   0x7FF,   0x800,
                                  0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF};
  const auto draw = [&] {
    std::vector<char32_t> points(random() % 4);
    for (char32_t& point : points)
      point = kPoints[random() % std::size(kPoints)];
    return points;
  };
  const auto text_of = [](const std::vector<char32_t>& points) {
    std::string text;
    for (const char32_t point : points)
      append_code_point(text, point);
    return text;
  };
  for (int round = 0; round < 3000; ++round) {
    const auto left = draw();
    const auto right = draw();
    EXPECT_EQ(code_points(text_of(left)), left);
    EXPECT_EQ(less(text_of(left), text_of(right)), left < right);
  }
}

}  // namespace
}  // namespace varnholt::genetic
