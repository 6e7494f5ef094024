// Lists and mappings on containers of a host: every read and write goes through, two handles on one
// container are one object, a container handed over keeps its identity, and a walk over a container
// that changes fails as the host's own walk does. Method: containers that count their calls.
#include "search_templates/genetic/value/storage.hpp"

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using test::hand_over;
using test::HostList;
using test::HostListStorage;
using test::HostMapping;
using test::HostMappingStorage;
using test::list_of;
using test::mapping_of;

TEST(HostList, ReadsAndWritesGoThrough) {
  const auto host = std::make_shared<HostList>();
  List list = list_of(host);
  EXPECT_FALSE(list.is_native());
  EXPECT_NE(list.storage(), nullptr);
  EXPECT_TRUE(list.native_items().empty());

  list.append(1);
  list.append("two");
  list.set(0, 3);
  EXPECT_EQ(host->writes, 3);
  ASSERT_EQ(host->items.size(), 2U);
  EXPECT_TRUE(host->items[0] == Value(3));

  // What the host writes is met as well.
  host->items.push_back(4.5);
  EXPECT_EQ(list.size(), 3U);
  EXPECT_TRUE(list.at(2) == Value(4.5));
  EXPECT_EQ(host->reads, 1);
  EXPECT_EQ(error_of([&] { return list.at(3); }), "IndexError: list index out of range");
  EXPECT_EQ(error_of([&] {
              list.set(3, 1);
              return 0;
            }),
            "IndexError: list assignment index out of range");
  EXPECT_EQ(host->writes, 3);

  list.extend(List{5});
  EXPECT_EQ(host->items.size(), 4U);
  EXPECT_EQ(repr(list), "[3, 'two', 4.5, 5]");
}

TEST(HostMapping, ReadsAndWritesGoThrough) {
  const auto host = std::make_shared<HostMapping>();
  Mapping mapping = mapping_of(host);
  EXPECT_FALSE(mapping.is_native());
  EXPECT_TRUE(mapping.native_entries().empty());

  mapping.set("b", 1);
  mapping.set("a", 2);
  EXPECT_EQ(mapping.set_default("b", 9).integer(), 1);
  EXPECT_EQ(mapping.set_default("c", 3).integer(), 3);
  EXPECT_EQ(host->writes, 3);
  EXPECT_EQ(mapping.size(), 3U);
  EXPECT_TRUE(mapping.contains("a"));
  EXPECT_FALSE(mapping.contains("z"));
  EXPECT_EQ(error_of([&] { return mapping.at("z"); }), "KeyError: 'z'");
  EXPECT_TRUE(mapping.erase("a"));
  EXPECT_FALSE(mapping.erase("a"));
  mapping.update(Mapping{{"d", 4}});
  EXPECT_EQ(repr(mapping), "{'b': 1, 'c': 3, 'd': 4}");
  host->entries.clear();
  EXPECT_TRUE(mapping.empty());
  EXPECT_FALSE(truth(mapping));
}

TEST(HostContainers, TwoHandlesOnOneContainerAreOneObject) {
  const auto list = std::make_shared<HostList>();
  EXPECT_TRUE(same_object(list_of(list), list_of(list)));
  EXPECT_FALSE(same_object(list_of(list), list_of(std::make_shared<HostList>())));
  EXPECT_FALSE(same_object(list_of(list), List()));
  EXPECT_TRUE(Value(list_of(list)) == Value(List()));

  const auto mapping = std::make_shared<HostMapping>();
  EXPECT_TRUE(same_object(mapping_of(mapping), mapping_of(mapping)));
  EXPECT_FALSE(same_object(mapping_of(mapping), mapping_of(std::make_shared<HostMapping>())));
  EXPECT_FALSE(same_object(mapping_of(mapping), Mapping()));
  EXPECT_TRUE(Value(mapping_of(mapping)) == Value(Mapping()));
}

TEST(HostContainers, EqualNativeOnesWithTheSameItems) {
  const Value native = List{1, Mapping{{"a", List{}}, {"b", 2.0}}};
  const Value foreign = test::as_host_containers(native);
  EXPECT_TRUE(native == foreign);
  EXPECT_TRUE(foreign == native);
  EXPECT_FALSE(foreign == Value(List{1, Mapping{{"a", List{}}, {"b", 2.5}}}));
  EXPECT_EQ(repr(native), repr(foreign));
}

TEST(Adopt, TheListIsTheHostsFromThenOn) {
  List list{1, 2};
  const Value other_handle(list);
  const auto host = hand_over(list);
  ASSERT_EQ(host->items.size(), 2U);
  EXPECT_FALSE(list.is_native());
  EXPECT_TRUE(same_object(list, other_handle));
  EXPECT_TRUE(same_object(list, list_of(host)));
  other_handle.list().append(3);
  EXPECT_EQ(host->items.size(), 3U);
}

TEST(Adopt, TheMappingIsTheHostsFromThenOn) {
  Mapping mapping;
  for (int i = 0; i < 40; ++i)  // Large enough to have a table.
    mapping.set(i, i * i);
  const Value other_handle(mapping);
  const auto host = hand_over(mapping);
  EXPECT_EQ(host->entries.size(), 40U);
  EXPECT_TRUE(same_object(mapping, other_handle));
  other_handle.mapping().set("new", true);
  EXPECT_EQ(host->entries.size(), 41U);
  EXPECT_EQ(mapping.at(39).integer(), 1521);
  EXPECT_EQ(host->entries[0].key.integer(), 0);
}

TEST(Adopt, AContainerThatContainsItselfKeepsDoingSo) {
  auto list_host = std::make_shared<HostList>();
  {
    List list;
    list.append(list);
    list_host = hand_over(list);
    EXPECT_TRUE(same_object(list.at(0), list));
    EXPECT_EQ(repr(list), "[[...]]");
  }
  list_host->items.clear();  // Breaks the circle, so that all is given back.

  auto mapping_host = std::make_shared<HostMapping>();
  {
    Mapping mapping;
    mapping.set("self", mapping);
    mapping_host = hand_over(mapping);
    EXPECT_TRUE(same_object(mapping.at("self"), mapping));
    EXPECT_EQ(repr(mapping), "{'self': {...}}");
  }
  mapping_host->entries.clear();
}

TEST(MappingCursor, ReportsAHostMappingThatChangedItsSize) {
  const auto host = std::make_shared<HostMapping>();
  Mapping mapping = mapping_of(host);
  mapping.set("a", 1);
  mapping.set("b", 2);
  MappingCursor cursor(mapping);
  ASSERT_TRUE(cursor.next().has_value());
  mapping.set("a", 3);
  ASSERT_EQ(cursor.next()->value.integer(), 2);
  host->entries.push_back({"c", 3});
  EXPECT_EQ(error_of([&] { return cursor.next().has_value(); }),
            "RuntimeError: dictionary changed size during iteration");
}

TEST(MappingCursor, GoesOnWhenTheMappingIsHandedOverMeanwhile) {
  Mapping mapping{{"a", 1}, {"b", 2}, {"c", 3}};
  MappingCursor cursor(mapping);
  EXPECT_EQ(cursor.next()->value.integer(), 1);
  const auto host = hand_over(mapping);
  EXPECT_EQ(cursor.next()->value.integer(), 2);
  MappingCursor moved = std::move(cursor);
  EXPECT_EQ(moved.next()->value.integer(), 3);
  EXPECT_FALSE(moved.next().has_value());
}

TEST(MappingCursor, ReportsAMappingThatWasHandedOverAndChanged) {
  Mapping mapping{{"a", 1}, {"b", 2}};
  MappingCursor cursor(mapping);
  ASSERT_TRUE(cursor.next().has_value());
  const auto host = hand_over(mapping);
  host->entries.push_back({"c", 3});
  EXPECT_EQ(error_of([&] { return cursor.next().has_value(); }),
            "RuntimeError: dictionary changed size during iteration");
}

TEST(MappingCursor, CanBeMovedAndAssigned) {
  MappingCursor cursor(Mapping{{"a", 1}});
  cursor = MappingCursor(Mapping{{"b", 2}});
  EXPECT_EQ(cursor.next()->key.text(), "b");
  EXPECT_FALSE(cursor.next().has_value());
}

TEST(ListCursor, SeesWhatTheHostAppendsMeanwhile) {
  const auto host = std::make_shared<HostList>();
  host->items = {1};
  ListCursor cursor(list_of(host));
  EXPECT_EQ(cursor.next()->integer(), 1);
  host->items.push_back(2);
  EXPECT_EQ(cursor.next()->integer(), 2);
  EXPECT_FALSE(cursor.next().has_value());
}

}  // namespace
}  // namespace varnholt::genetic
