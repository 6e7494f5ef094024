// Copies: what is new and what is shared, also for values that contain themselves, for containers
// of a host, and for objects. Method: the smallest value that has each property.
#include "search_templates/genetic/value/copy.hpp"

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using test::HostList;
using test::HostMapping;

// An object that counts its copies, and is told apart from them by its number.
class Copyable : public HostObject {
 public:
  Copyable(int& copies, int number) : copies_(copies), number_(number) {}

  [[nodiscard]] std::string type_name() const override { return "Copyable"; }
  [[nodiscard]] std::string repr() const override { return "copy " + std::to_string(number_); }
  [[nodiscard]] Value deep_copy() const override {
    return make_object<Copyable>(copies_, ++copies_);
  }
  [[nodiscard]] Value shallow_copy() const override { return "a shallow copy"; }

 private:
  int& copies_;
  int number_;
};

TEST(ShallowCopy, MakesANewContainerWithTheSameItems) {
  const Value list = List{List{1}, "a"};
  const Value list_copy = shallow_copy(list);
  EXPECT_TRUE(list_copy == list);
  EXPECT_FALSE(same_object(list_copy, list));
  EXPECT_TRUE(same_object(list_copy.list().at(0), list.list().at(0)));

  const Value mapping = Mapping{{"b", List{1}}, {"a", 2}};
  const Value mapping_copy = shallow_copy(mapping);
  EXPECT_EQ(repr(mapping_copy), "{'b': [1], 'a': 2}");
  EXPECT_FALSE(same_object(mapping_copy, mapping));
  EXPECT_TRUE(same_object(mapping_copy.mapping().at("b"), mapping.mapping().at("b")));
}

TEST(ShallowCopy, OfScalarsAndTuplesIsTheValueItself) {
  const Value tuple = Tuple{List{}};
  EXPECT_TRUE(same_object(shallow_copy(tuple), tuple));
  EXPECT_EQ(shallow_copy(7).integer(), 7);
  int copies = 0;
  EXPECT_EQ(shallow_copy(make_object<Copyable>(copies, 0)).text(), "a shallow copy");
}

TEST(ShallowCopy, OfAHostsContainerIsTheLibrarysOwn) {
  const Value list = shallow_copy(test::as_host_containers(List{1, 2}));
  EXPECT_TRUE(list.list().is_native());
  EXPECT_EQ(repr(list), "[1, 2]");
  const Value mapping = shallow_copy(test::as_host_containers(Mapping{{"a", 1}}));
  EXPECT_TRUE(mapping.mapping().is_native());
  EXPECT_EQ(repr(mapping), "{'a': 1}");
}

TEST(NewMapping, CopiesAnyMappingAndAnySequenceOfPairs) {
  const Mapping source{{"a", 1}};
  Mapping copy = new_mapping(source);
  copy.set("b", 2);
  EXPECT_EQ(source.size(), 1U);
  EXPECT_EQ(repr(new_mapping(test::as_host_containers(source))), "{'a': 1}");
  EXPECT_EQ(repr(new_mapping(List{Tuple{"x", 1}, List{"y", 2}, "zw"})),
            "{'x': 1, 'y': 2, 'z': 'w'}");
  EXPECT_EQ(repr(new_mapping(List{Tuple{1, "a"}, Tuple{true, "b"}})), "{1: 'b'}");
  EXPECT_TRUE(new_mapping(Tuple()).empty());
}

TEST(NewMapping, RefusesWhatIsNeither) {
  EXPECT_EQ(error_of([] { return new_mapping(5); }), "TypeError: 'int' object is not iterable");
  EXPECT_EQ(error_of([] {
              return new_mapping(List{Tuple{1, 2}, 5});
            }),
            "TypeError: cannot convert dictionary update sequence element #1 to a sequence");
  EXPECT_EQ(error_of([] {
              return new_mapping(List{Tuple{1, 2}, Tuple{1, 2, 3}});
            }),
            "ValueError: dictionary update sequence element #1 has length 3; 2 is required");
  EXPECT_EQ(error_of([] { return new_mapping("abc"); }),
            "ValueError: dictionary update sequence element #0 has length 1; 2 is required");
  EXPECT_EQ(error_of([] {
              return new_mapping(List{Tuple{List(), 1}});
            }),
            "TypeError: unhashable type: 'list'");
}

TEST(DeepCopy, SharesNothingThatCanChange) {
  const Value source = Mapping{{"children", List{Mapping{{"node", "a"}}}}, {"t", Tuple{List{1}}}};
  const Value copy = deep_copy(source);
  EXPECT_TRUE(copy == source);
  const Value inner = copy.mapping().at("children").list().at(0);
  inner.mapping().set("node", "b");
  copy.mapping().at("t").tuple().at(0).list().append(2);
  EXPECT_EQ(repr(source), "{'children': [{'node': 'a'}], 't': ([1],)}");
}

TEST(DeepCopy, KeepsTheOrderOfKeysAndReplacesNone) {
  Mapping source;
  for (int i = 0; i < 50; ++i)
    source.set("key" + std::to_string(i * 7 % 50), i);
  EXPECT_EQ(repr(deep_copy(source)), repr(source));
  EXPECT_TRUE(deep_copy(source).mapping().contains("key49"));
}

TEST(DeepCopy, WhatIsSharedStaysShared) {
  const List shared{1};
  const Value copy = deep_copy(List{shared, shared, Tuple{shared}, Mapping{{"k", shared}}});
  const Value first = copy.list().at(0);
  EXPECT_FALSE(same_object(first, shared));
  EXPECT_TRUE(same_object(first, copy.list().at(1)));
  EXPECT_TRUE(same_object(first, copy.list().at(2).tuple().at(0)));
  EXPECT_TRUE(same_object(first, copy.list().at(3).mapping().at("k")));
}

TEST(DeepCopy, WhatIsSharedInATreeOfListsAndMappingsStaysShared) {
  const List shared{1};
  const Value lists = deep_copy(List{shared, shared});
  EXPECT_TRUE(same_object(lists.list().at(0), lists.list().at(1)));
  EXPECT_FALSE(same_object(lists.list().at(0), shared));
  const Value mappings = deep_copy(Mapping{{"a", Mapping{{"b", shared}}}, {"c", shared}});
  EXPECT_TRUE(
      same_object(mappings.mapping().at("a").mapping().at("b"), mappings.mapping().at("c")));
}

TEST(DeepCopy, WhatIsSharedThroughATupleStaysShared) {
  // The list has a single handle, but the tuple that holds it is met twice.
  const Value tuple = Tuple{List{1}};
  const Value copy = deep_copy(List{tuple, tuple});
  const Value first = copy.list().at(0).tuple().at(0);
  EXPECT_FALSE(same_object(first, tuple.tuple().at(0)));
  EXPECT_TRUE(same_object(first, copy.list().at(1).tuple().at(0)));
  EXPECT_TRUE(same_object(copy.list().at(0), copy.list().at(1)));
}

TEST(DeepCopy, ATupleWithoutAnythingToCopyIsItself) {
  const Value tuple = Tuple{1, "a", Tuple{2.5, Value()}};
  EXPECT_TRUE(same_object(deep_copy(tuple), tuple));
  EXPECT_FALSE(same_object(deep_copy(Tuple{tuple, List{}}), tuple));
}

TEST(DeepCopy, OfValuesThatContainThemselves) {
  List list;
  list.append(list);
  Value copy = deep_copy(list);
  EXPECT_FALSE(same_object(copy, list));
  EXPECT_TRUE(same_object(copy.list().at(0), copy));
  list.set(0, Value());
  copy.list().set(0, Value());

  Mapping mapping;
  mapping.set("up", Mapping{{"self", mapping}});
  copy = deep_copy(mapping);
  EXPECT_TRUE(same_object(copy.mapping().at("up").mapping().at("self"), copy));
  mapping.set("up", Value());
  copy.mapping().set("up", Value());
}

TEST(DeepCopy, OfAListInATupleThatItContains) {
  Value tuple;
  {
    List list;
    tuple = Tuple{list};
    list.append(tuple);
  }
  const Value copy = deep_copy(tuple);
  const Value inner = copy.tuple().at(0);
  EXPECT_FALSE(same_object(inner, tuple.tuple().at(0)));
  EXPECT_TRUE(same_object(inner.list().at(0), copy));
  tuple.tuple().at(0).list().set(0, Value());
  inner.list().set(0, Value());
}

TEST(DeepCopy, OfHostContainersIsTheLibrarysOwn) {
  const auto shared = std::make_shared<HostList>();
  shared->items = {1};
  const auto host = std::make_shared<HostMapping>();
  host->entries = {{"first", test::list_of(shared)}, {"second", test::list_of(shared)}};
  const Value copy = deep_copy(test::mapping_of(host));
  ASSERT_TRUE(copy.mapping().is_native());
  const Value first = copy.mapping().at("first");
  EXPECT_TRUE(first.list().is_native());
  // Two handles on one container of the host are one thing, and so are their copies.
  EXPECT_TRUE(same_object(first, copy.mapping().at("second")));
  first.list().append(2);
  EXPECT_EQ(shared->items.size(), 1U);
  EXPECT_EQ(shared->writes, 0);
}

TEST(DeepCopy, OfAHostContainerThatContainsItself) {
  const auto list = std::make_shared<HostList>();
  list->items.push_back(test::list_of(list));
  const Value list_copy = deep_copy(test::list_of(list));
  EXPECT_TRUE(same_object(list_copy.list().at(0), list_copy));
  const auto mapping = std::make_shared<HostMapping>();
  mapping->entries.push_back({"self", test::mapping_of(mapping)});
  const Value mapping_copy = deep_copy(test::mapping_of(mapping));
  EXPECT_TRUE(same_object(mapping_copy.mapping().at("self"), mapping_copy));
  list->items.clear();
  mapping->entries.clear();
  list_copy.list().set(0, Value());
  mapping_copy.mapping().set("self", Value());
}

TEST(DeepCopy, AnObjectCopiesItselfOnceForAllItsPlaces) {
  int copies = 0;
  const Value object = make_object<Copyable>(copies, 0);
  const Value copy = deep_copy(List{object, object, Tuple{object}});
  EXPECT_EQ(copies, 1);
  EXPECT_EQ(repr(copy), "[copy 1, copy 1, (copy 1,)]");
  EXPECT_TRUE(same_object(copy.list().at(0), copy.list().at(1)));
}

TEST(DeepCopy, CopiesKeysThatAreObjects) {
  int copies = 0;
  const Mapping source{{Tuple{make_object<Copyable>(copies, 0)}, 1}};
  EXPECT_EQ(repr(deep_copy(source)), "{(copy 1,): 1}");
  EXPECT_EQ(repr(deep_copy(test::as_host_containers(source))), "{(copy 2,): 1}");
}

TEST(DeepCopy, APlainObjectIsItself) {
  const Value huge = to_integer("123456789012345678901234567890");
  EXPECT_TRUE(same_object(deep_copy(List{huge}).list().at(0), huge));
}

TEST(DeepCopy, OfAValueNestedTooDeepIsAnOrdinaryError) {
  for (int kind = 0; kind < 3; ++kind) {
    Value value;
    for (int i = 0; i < 100'000; ++i) {
      if (kind == 0) {
        value = List{value};
      } else if (kind == 1) {
        value = Tuple{value};
      } else {
        value = Mapping{{"child", value}};
      }
    }
    EXPECT_EQ(error_of([&] { return deep_copy(value); }),
              "RecursionError: maximum recursion depth exceeded");
  }
}

TEST(DeepCopy, OfRandomValuesEqualsThemAndOutlivesThem) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  test::RandomValues random(seed);
  for (int i = 0; i < 500; ++i) {
    const Value source = random.any(i % 5);
    EXPECT_EQ(repr(deep_copy(source)), repr(source));
    EXPECT_EQ(repr(deep_copy(test::as_host_containers(source))), repr(source));
  }
}

}  // namespace
}  // namespace varnholt::genetic
