// JSON texts become values of the right kinds, however deep; a bad text is refused with its place.
#include "hosts/embedded/host/json_value.hpp"

#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

TEST(ReadJson, GivesEachKind) {
  EXPECT_TRUE(read_json("null").is_absent());
  EXPECT_TRUE(read_json("true") == Value(true));
  EXPECT_TRUE(read_json("-7").is_integer());
  EXPECT_TRUE(read_json("7.0").is_real());
  EXPECT_TRUE(read_json("1e3").is_real());
  EXPECT_EQ(read_json("\"\\u00e9\\ud83d\\ude00\"").text(), "\u00e9\U0001F600");
  EXPECT_TRUE(read_json("[1, [2], {\"a\": []}]") ==
              Value(List{1, List{2}, Mapping{{"a", List()}}}));
}

TEST(ReadJson, KeepsTheOrderOfKeysAndTheLastOfEqualOnes) {
  const Value value = read_json(R"({"b": 1, "a": 2, "b": 3})");
  EXPECT_EQ(genetic::repr(value), "{'b': 3, 'a': 2}");
}

TEST(ReadJson, ReadsIntegersOfAnySizeExactly) {
  for (const char* text : {"9223372036854775807", "-9223372036854775808", "9223372036854775808",
                           "18446744073709551616", "-170141183460469231731687303715884105728"}) {
    EXPECT_EQ(genetic::repr(read_json(text)), text);
    EXPECT_EQ(genetic::exact_kind(read_json(text)), genetic::Kind::kInteger) << text;
  }
}

TEST(ReadJson, IsNotStoppedByDepth) {
  const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
  EXPECT_TRUE(read_json(deep).is_list());
}

TEST(ReadJson, RefusesABadTextWithItsPlace) {
  try {
    static_cast<void>(read_json("{\"a\": 1,\n \"b\": }"));
    FAIL() << "a missing value must be refused";
  } catch (const genetic::ValueError& error) {
    EXPECT_NE(error.text().find("not JSON: "), std::string::npos) << error.text();
    EXPECT_NE(error.text().find("line 2, column 7"), std::string::npos) << error.text();
  }
  EXPECT_THROW(static_cast<void>(read_json("")), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(read_json("[1] 2")), genetic::ValueError);
}

TEST(ReadJson, ReadsBackWhatIsWritten) {
  const Value value = Mapping{{"text", "tab\t \u20ac"}, {"real", 0.1}, {"list", List{Value(), -3}}};
  EXPECT_TRUE(read_json(genetic::json_text(value)) == value);
}

}  // namespace
}  // namespace varnholt::embedded::test
