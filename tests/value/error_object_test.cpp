// An error as a value: its text, kind and attributes, and the host's own object where there is one.
#include "search_templates/genetic/value/error_object.hpp"

#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_process_evaluation.hpp"

namespace varnholt::genetic {
namespace {

class Origin : public ErrorOrigin {
 public:
  [[nodiscard]] std::string type_name() const override { return "HostError"; }
  [[nodiscard]] bool is_of(ErrorKind kind) const override { return kind == ErrorKind::kValueError; }
  [[nodiscard]] Value object() const override { return "the host's exception"; }
};

TEST(ErrorObject, HasTheErrorsTextAndKind) {
  const Value object = error_object(ValueError("out of range"));
  EXPECT_EQ(str(object), "out of range");
  EXPECT_EQ(type_name(object), "ValueError");
  EXPECT_EQ(repr(object), "ValueError(out of range)");
  EXPECT_FALSE(attribute(object, "detail").has_value());
}

TEST(ErrorObject, HasTheErrorsAttributes) {
  const Value object =
      error_object(test::ScriptedProcessError("died", {{"detail", Value()}, {"count", 2}}));
  EXPECT_EQ(type_name(object), "ProcessEvaluationError");
  EXPECT_EQ(attribute(object, "count")->integer(), 2);
  EXPECT_TRUE(attribute(object, "detail")->is_absent());
  EXPECT_FALSE(attribute(object, "candidate_index").has_value());
}

TEST(ErrorObject, IsTheHostsOwnWhereTheErrorCarriesIt) {
  EXPECT_EQ(error_object(ValueError("x", std::make_shared<Origin>())).text(),
            "the host's exception");
}

TEST(ErrorObject, OfAnErrorOfAnotherLibrary) {
  const Value object = error_object(std::runtime_error("disk full"));
  EXPECT_EQ(str(object), "disk full");
  EXPECT_EQ(type_name(object), "Exception");
}

}  // namespace
}  // namespace varnholt::genetic
