// Goal: a table offers its operations by name, lets them be replaced and shows them again.
// Method: each operation of a table of one, with the errors of names that it does not know.
#include "search_templates/genetic/host/operation_table.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic::test {
namespace {

class OperationTableTest : public testing::Test {
 protected:
  OperationTable table{Mapping{{"record", "the table's"}}};
};

TEST_F(OperationTableTest, OffersWhatItWasMadeWith) {
  EXPECT_EQ(table.attribute("record"), "the table's");
  EXPECT_EQ(table.required_attribute("record"), "the table's");
  EXPECT_FALSE(table.instance_value("record").has_value());
  EXPECT_FALSE(table.attribute("other").has_value());
  EXPECT_EQ(error_of([this] { return table.required_attribute("other"); }),
            "AttributeError: there is no operation 'other' to replace: give it to the table first");
}

TEST_F(OperationTableTest, AReplacementStandsUntilItIsDeleted) {
  table.set_attribute("record", "a guard");
  EXPECT_EQ(table.attribute("record"), "a guard");
  EXPECT_EQ(table.instance_value("record"), "a guard");
  table.set_attribute("record", Value());
  EXPECT_TRUE(table.instance_value("record")->is_absent());
  table.delete_attribute("record");
  EXPECT_EQ(table.attribute("record"), "the table's");
  EXPECT_EQ(error_of([this] {
              table.delete_attribute("record");
              return 0;
            }),
            "AttributeError: operation 'record' has not been replaced");
}

TEST_F(OperationTableTest, AnUnknownNameIsRefused) {
  EXPECT_EQ(error_of([this] {
              table.set_attribute("other", 1);
              return 0;
            }),
            "AttributeError: there is no operation 'other' to replace: give it to the table first");
  EXPECT_FALSE(table.attribute("other").has_value());
}

TEST(CallableValue, AnOperationIsAValueThatCanBeCalled) {
  const Callable callable =
      make_callable([](std::span<const Value> positional, const Mapping& keywords) {
        return Value(Tuple{positional[0], keywords.get("a")});
      });
  const Value value = callable_value(callable);
  ASSERT_TRUE(value.is_object());
  EXPECT_TRUE(value.object().is_callable());
  const Value argument = 7;
  EXPECT_EQ(repr(value.object().call({&argument, 1}, Mapping{{"a", 2}})), "(7, 2)");
  EXPECT_EQ(callable_of(value).body(), callable.body());
  EXPECT_FALSE(value_behind(callable).has_value());
  EXPECT_TRUE(callable_value(Callable()).is_absent());
}

TEST(CallableValue, OnlyWhatCanBeCalledIsAnOperation) {
  for (const Value& value : {Value(), Value(1), Value("text"), Value(Mapping()), Value(List())})
    EXPECT_FALSE(static_cast<bool>(callable_of(value)));
}

// An object of a host that calls itself.
class Doubling : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Doubling"; }
  [[nodiscard]] bool is_callable() const override { return true; }
  [[nodiscard]] Value call(std::span<const Value> positional,
                           const Mapping& /*keywords*/) const override {
    return positional[0].integer() * 2;
  }
};

TEST(CallableValue, AHostsObjectIsCalledByItself) {
  const Value object = make_object<Doubling>();
  const Callable callable = callable_of(object);
  EXPECT_EQ(callable({21}), 42);
  EXPECT_FALSE(callable.signature().has_value());
  ASSERT_TRUE(value_behind(callable).has_value());
  EXPECT_TRUE(same_object(*value_behind(callable), object));
}

class Plain : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Plain"; }
};

TEST(CallableValue, AnObjectThatCannotBeCalledSaysSo) {
  const Value object = make_object<Plain>();
  EXPECT_FALSE(static_cast<bool>(callable_of(object)));
  EXPECT_EQ(error_of([&object] { return object.object().call({}, Mapping()); }),
            "TypeError: 'Plain' object is not callable");
}

}  // namespace
}  // namespace varnholt::genetic::test
