// Characters beyond ASCII are at home in comments alone.
// Method: texts written out, each with the byte where the first stray character is.
#include "hosts/embedded/config/ascii_text.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

constexpr std::optional<std::size_t> kNone;

std::optional<std::size_t> stray(std::string_view text) {
  return ascii_text(text).stray;
}

TEST(AsciiText, KeepsLinesAndColumns) {
  EXPECT_EQ(ascii_text("a = 1 # äöx\n\xe2\x82\xac.").text, "a = 1 # ??x\n?.");
  EXPECT_EQ(ascii_text("\xff\xf0\x9f\x98\x80z").text, "??z");
  EXPECT_EQ(ascii_text("").text, "");
}

TEST(AsciiText, ACommentEndsWithItsLine) {
  EXPECT_EQ(stray("# ä"), kNone);
  EXPECT_EQ(stray("a = 1 # ä \"\n"), kNone);
  EXPECT_EQ(stray("# ä\nä"), 5U);
  EXPECT_EQ(stray("a =\xc2\xa0 1"), 3U);
}

TEST(AsciiText, AStringIsNoComment) {
  EXPECT_EQ(stray("a = '#ä'"), 6U);
  EXPECT_EQ(stray("a = \"#\"#ä"), kNone);
  EXPECT_EQ(stray("a = \"'#\" ä"), 9U);
  EXPECT_EQ(stray("a = ''#ä"), kNone);
}

TEST(AsciiText, OnlyStringsInDoubleQuotesHaveEscapes) {
  EXPECT_EQ(stray(R"(a = "\"#ä")"), 8U);
  EXPECT_EQ(stray(R"(a = "\\"#ä)"), kNone);
  EXPECT_EQ(stray(R"(a = '\'#ä)"), kNone);
}

TEST(AsciiText, AStringOnOneLineEndsWithIt) {
  EXPECT_EQ(stray("a = 'x\n#ä"), kNone);
}

TEST(AsciiText, LongStringsGoOverLines) {
  EXPECT_EQ(stray("a = '''\n#ä'''"), 9U);
  EXPECT_EQ(stray("a = '''x'''#ä"), kNone);
  EXPECT_EQ(stray("a = '''x'''''#ä"), kNone);
  EXPECT_EQ(stray("a = '''x '' #ä'''"), 13U);
  EXPECT_EQ(stray(R"(a = """\"""#ä""")"), 12U);
  EXPECT_EQ(stray(R"(a = """#ä)"), 8U);
}

}  // namespace
}  // namespace varnholt::embedded::test
