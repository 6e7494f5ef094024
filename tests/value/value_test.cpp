// The dynamic value: handles are shared, mappings keep their order, and values nested however deep
// are given back without recursion. Each rule is shown by the smallest value that has it.
#include "search_templates/genetic/value/value.hpp"

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

TEST(Value, HoldsEachKind) {
  EXPECT_TRUE(Value().is_absent());
  EXPECT_TRUE(Value(true).boolean());
  EXPECT_EQ(Value(7).integer(), 7);
  EXPECT_EQ(Value(std::numeric_limits<std::int64_t>::min()).integer(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Value(0.5).real(), 0.5);
  EXPECT_EQ(Value("text").text(), "text");
  EXPECT_EQ(Value(std::string("nul\0inside", 10)).text().size(), 10U);
  EXPECT_TRUE(Value(List()).is_list());
  EXPECT_TRUE(Value(Tuple()).is_tuple());
  EXPECT_TRUE(Value(Mapping()).is_mapping());
}

TEST(Value, ANanIsAnObjectOfItsOwn) {
  const Value nan(std::nan(""));
  EXPECT_TRUE(nan.is_object());
  EXPECT_EQ(exact_kind(nan), Kind::kReal);
  EXPECT_TRUE(same_object(nan, Value(nan)));
  EXPECT_FALSE(nan == nan);
  EXPECT_FALSE(same_object(nan, Value(std::nan(""))));
}

TEST(Value, AFixedTextEqualsAMadeOne) {
  const Value fixed(keys::kGraph);
  const Value made(std::string("graph"));
  EXPECT_TRUE(fixed == made);
  EXPECT_EQ(hash(fixed), hash(made));
  EXPECT_NE(fixed.counted(), made.counted());
}

TEST(Value, CopyingSharesTheContainer) {
  List list{1, 2};
  const Value first(list);
  const Value second = first;
  list.append(3);
  EXPECT_EQ(first.list().size(), 3U);
  EXPECT_EQ(second.list().at(2).integer(), 3);
  EXPECT_TRUE(same_object(first, second));
  EXPECT_FALSE(same_object(first, List{1, 2, 3}));
  EXPECT_TRUE(first == Value(List{1, 2, 3}));
}

TEST(Value, AssigningAContainerToItsOwnItemIsSafe) {
  Value value = List{Value(List{1})};
  value = value.list().at(0);
  EXPECT_TRUE(value == Value(List{1}));
  value = *&value;
  EXPECT_TRUE(value == Value(List{1}));
}

TEST(List, GrowsPastItsFirstRoomAndRefusesFarIndices) {
  List list(2);
  for (int i = 0; i < 100; ++i)
    list.append(i);
  ASSERT_EQ(list.size(), 100U);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(list.at(static_cast<std::size_t>(i)).integer(), i);
  }
  EXPECT_THROW(static_cast<void>(list.at(100)), IndexError);
  EXPECT_THROW(list.set(100, 1), IndexError);
  list.set(99, "last");
  EXPECT_EQ(list.at(99).text(), "last");
}

TEST(List, ExtendedByItselfDoubles) {
  List list{1, 2};
  list.extend(list);
  EXPECT_TRUE(Value(list) == Value(List{1, 2, 1, 2}));
}

TEST(ListCursor, MeetsItemsAppendedDuringTheWalk) {
  List list{1, 2};
  ListCursor cursor(list);
  std::vector<std::int64_t> met;
  while (const auto item = cursor.next()) {
    met.push_back(item->integer());
    if (met.size() == 1) list.append(3);
  }
  EXPECT_EQ(met, (std::vector<std::int64_t>{1, 2, 3}));
}

std::string keys_of(const Mapping& mapping) {
  std::string joined;
  MappingCursor cursor(mapping);
  while (const auto entry = cursor.next())
    joined += str(entry->key) + " ";
  return joined;
}

TEST(Mapping, KeepsTheOrderOfInsertion) {
  Mapping mapping{{"b", 1}, {"a", 2}};
  mapping.set("c", 3);
  mapping.set("b", 4);  // Replacing keeps the key's place.
  EXPECT_EQ(keys_of(mapping), "b a c ");
  EXPECT_EQ(mapping.at("b").integer(), 4);
  EXPECT_TRUE(mapping.erase("b"));
  EXPECT_FALSE(mapping.erase("b"));
  mapping.set("b", 5);
  EXPECT_EQ(keys_of(mapping), "a c b ");
}

TEST(Mapping, MissingAndAbsentAreTwoAnswers) {
  Mapping mapping{{"held", Value()}};
  EXPECT_TRUE(mapping.find("held").has_value());
  EXPECT_FALSE(mapping.find("missing").has_value());
  EXPECT_TRUE(mapping.get("missing").is_absent());
  EXPECT_TRUE(mapping.set_default("held", 1).is_absent());
  EXPECT_EQ(mapping.set_default("missing", 1).integer(), 1);
  EXPECT_EQ(mapping.at("missing").integer(), 1);
  try {
    static_cast<void>(mapping.at("none"));
    FAIL() << "a missing key must fail";
  } catch (const KeyError& error) {
    EXPECT_EQ(error.text(), "'none'");
  }
}

TEST(Mapping, EqualKeysOfDifferentKindsAreOneKey) {
  Mapping mapping{{1, "one"}};
  EXPECT_EQ(mapping.at(true).text(), "one");
  EXPECT_EQ(mapping.at(1.0).text(), "one");
  mapping.set(1.0, "uno");
  EXPECT_EQ(mapping.size(), 1U);
  EXPECT_TRUE(mapping.native_entries()[0].key.is_integer());
  EXPECT_FALSE(mapping.contains("1"));
}

TEST(Mapping, RefusesKeysThatCannotBeHashed) {
  Mapping mapping;
  try {
    mapping.set(List{1}, 1);
    FAIL() << "a list is no key";
  } catch (const TypeError& error) {
    EXPECT_EQ(error.text(), "unhashable type: 'list'");
  }
  EXPECT_THROW(static_cast<void>(mapping.find(Tuple{Mapping()})), TypeError);
}

TEST(Mapping, FindsEveryKeyOfALargeMappingAlsoAfterErasing) {
  Mapping mapping;
  for (int i = 0; i < 1000; ++i)
    mapping.set("key" + std::to_string(i), i);
  for (int i = 0; i < 1000; i += 3)
    EXPECT_TRUE(mapping.erase("key" + std::to_string(i)));
  for (int i = 0; i < 1000; ++i) {
    const auto found = mapping.find("key" + std::to_string(i));
    ASSERT_EQ(found.has_value(), i % 3 != 0) << i;
    if (found) {
      EXPECT_EQ(found->integer(), i);
    }
  }
}

TEST(MappingCursor, FailsWhenTheMappingChangesItsSize) {
  Mapping mapping{{"a", 1}, {"b", 2}};
  MappingCursor cursor(mapping);
  ASSERT_TRUE(cursor.next().has_value());
  mapping.set("a", 3);  // Replacing does not change the size.
  ASSERT_TRUE(cursor.next().has_value());
  mapping.set("c", 3);
  try {
    static_cast<void>(cursor.next());
    FAIL() << "the walk must notice";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.text(), "dictionary changed size during iteration");
  }
}

TEST(Destruction, OfADeepValueDoesNotRecurse) {
  Value value;
  for (int i = 0; i < 1'000'000; ++i) {
    switch (i % 3) {
      case 0:
        value = List{value};
        break;
      case 1:
        value = Mapping{{"child", value}};
        break;
      default:
        value = Tuple{value};
    }
  }
  value = Value();
  EXPECT_TRUE(value.is_absent());
}

TEST(Comparison, OfADeepValueIsAnOrdinaryError) {
  Value left;
  Value right;
  for (int i = 0; i < 100'000; ++i) {
    left = List{left};
    right = List{right};
  }
  EXPECT_THROW(static_cast<void>(left == right), RecursionError);
}

}  // namespace
}  // namespace varnholt::genetic
