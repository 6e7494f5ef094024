// The error kinds keep their text, tell their exact kind, and stay caught by their base.
#include "search_templates/genetic/value/errors.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {
namespace {

class NamedOrigin : public ErrorOrigin {
 public:
  [[nodiscard]] std::string type_name() const override { return "HostSpecificError"; }
  [[nodiscard]] Value object() const override { return "the original"; }
};

TEST(Errors, TellTheirTextAndExactKind) {
  EXPECT_EQ(TypeError("text").text(), "text");
  EXPECT_STREQ(ValueError("why").what(), "why");
  EXPECT_EQ(TypeError("").type_name(), "TypeError");
  EXPECT_EQ(ValueError("").type_name(), "ValueError");
  EXPECT_EQ(OverflowError("").type_name(), "OverflowError");
  EXPECT_EQ(AttributeError("").type_name(), "AttributeError");
  EXPECT_EQ(KeyError("").type_name(), "KeyError");
  EXPECT_EQ(IndexError("").type_name(), "IndexError");
  EXPECT_EQ(RuntimeError("").type_name(), "RuntimeError");
  EXPECT_EQ(RecursionError("").type_name(), "RecursionError");
}

TEST(Errors, AnOriginGivesItsOwnName) {
  const ValueError error("text", std::make_shared<NamedOrigin>());
  EXPECT_EQ(error.type_name(), "HostSpecificError");
}

TEST(Errors, ARecursionErrorIsARuntimeErrorAndAnOrdinaryError) {
  EXPECT_THROW(throw RecursionError("deep"), RuntimeError);
  EXPECT_THROW(throw KeyError("key"), LookupError);
  EXPECT_THROW(throw KeyError("key"), std::exception);
}

}  // namespace
}  // namespace varnholt::genetic
