// Goal: what is told of an attempt can be stored, whatever it holds.
// Method: values of each kind, compared with the text that they are stored as.
#include "hosts/embedded/attempts/attempt_accounts.hpp"

#include <limits>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

class Named : public genetic::HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Named"; }
  [[nodiscard]] std::string repr() const override { return "<a name>"; }
};

TEST(AttemptAccounts, TellsWhichColumnsThereAre) {
  AttemptAccounts accounts;
  const Value inventory = accounts.build_column_inventory(
      List{"sharpe", "turnover"}, Mapping{{"other", 1}, {"sharpe", Value()}});
  EXPECT_EQ(genetic::repr(inventory),
            "{'sharpe': 'present', 'turnover': 'missing', 'other': 'unexpected'}");
  EXPECT_EQ(genetic::repr(accounts.build_column_inventory(List{"sharpe"}, Mapping())),
            "{'sharpe': 'missing'}");
  EXPECT_THROW(static_cast<void>(accounts.build_column_inventory(List(), 1)), genetic::TypeError);
  EXPECT_THROW(static_cast<void>(accounts.build_column_inventory(1, Mapping())),
               genetic::TypeError);
}

TEST(AttemptAccounts, KeepsWhatJsonCanHold) {
  const Mapping value{{"a", List{1, 2.5, true, Value(), "text"}}, {"b", Mapping{{"c", "d"}}}};
  EXPECT_EQ(stored_json(value), R"({"a":[1,2.5,true,null,"text"],"b":{"c":"d"}})");
  EXPECT_EQ(stored_json(Value()), "null");
}

TEST(AttemptAccounts, MakesTheRestHoldable) {
  EXPECT_EQ(stored_json(Tuple{1, genetic::make_object<Named>()}), R"([1,"<a name>"])");
  EXPECT_EQ(stored_json(Mapping{{7, "seven"}}), R"({"7":"seven"})");
  EXPECT_EQ(stored_json(std::numeric_limits<double>::infinity()), "Infinity");
}

TEST(AttemptAccounts, MakesContainersAnew) {
  Mapping inner{{"x", 1}};
  const Value ready = AttemptAccounts().json_ready(List{inner});
  inner.set("x", 2);
  EXPECT_EQ(genetic::repr(ready), "[{'x': 1}]");
}

TEST(AttemptAccounts, RefusesAValueThatContainsItself) {
  Mapping self;
  self.set("self", self);
  EXPECT_THROW(static_cast<void>(stored_json(self)), genetic::RecursionError);
  self.erase("self");  // Nothing else would free it.
}

}  // namespace
}  // namespace varnholt::embedded::test
