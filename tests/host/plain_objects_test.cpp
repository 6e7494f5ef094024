// Objects, functions and iterators of C++ as a host hands them to the search.
#include <gtest/gtest.h>

#include "search_templates/genetic/host/attribute_object.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/function_iterator.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

TEST(AttributeObject, HasTheAttributesOfTheMappingAndNoOthers) {
  Mapping attributes{{"sharpe", 1.5}};
  const Value object = attribute_object("Statistics", attributes);
  EXPECT_EQ(*attribute(object, "sharpe"), Value(1.5));
  EXPECT_FALSE(attribute(object, "turnover"));
  EXPECT_EQ(type_name(object), "Statistics");
  attributes.set("turnover", 0.25);
  EXPECT_EQ(*attribute(object, "turnover"), Value(0.25)) << "the mapping is shared";
}

TEST(MakeIterator, GivesWhatTheFunctionGivesUntilThatIsNothing) {
  int given = 0;
  const auto iterator = make_iterator([&]() -> std::optional<Value> {
    if (given == 2) return std::nullopt;
    return ++given;
  });
  EXPECT_EQ(iterator->next(), Value(1));
  EXPECT_EQ(iterator->next(), Value(2));
  EXPECT_EQ(iterator->next(), std::nullopt);
}

TEST(MakeCallable, PassesBothKindsOfArguments) {
  const Callable callable =
      make_callable([](std::span<const Value> positional, const Mapping& keywords) -> Value {
        return List{positional[0], keywords.at("b")};
      });
  EXPECT_EQ(repr(callable({1}, {{"b", 2}})), "[1, 2]");
  ASSERT_TRUE(callable.signature());
  EXPECT_EQ(callable.signature()->size(), 2U);
}

}  // namespace
}  // namespace varnholt::genetic
