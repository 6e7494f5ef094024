// Trees copied into one block of memory: any part of a copy may outlive the others, grow and change
// like any other container, and the block ends with the last of them (which the address sanitizer
// checks). Also the direct reading of native containers, which such copies rest on.
#include "search_templates/genetic/value/tree_copy.hpp"

#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/native_view.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/host_containers.hpp"

namespace varnholt::genetic {
namespace {

using detail::copy_tree;
using detail::list_bytes;
using detail::mapping_bytes;

Value usual_tree() {
  return Mapping{{"node", "add"},
                 {"children", List{Mapping{{"node", "a"}}, Mapping{{"node", "b"}}, 7}}};
}

Value usual_copy() {
  return copy_tree(usual_tree(),
                   mapping_bytes(2) + list_bytes(3) + mapping_bytes(1) + mapping_bytes(1));
}

TEST(TreeCopy, IsEqualAndShares) {
  const Value copy = usual_copy();
  EXPECT_EQ(repr(copy), repr(usual_tree()));
  const List shared{1};
  const Value twice = copy_tree(List{shared, shared}, list_bytes(2) + 2 * list_bytes(1));
  EXPECT_FALSE(same_object(twice.list().at(0), twice.list().at(1)));
  // Anything but a list or a mapping is itself, also when it is the whole tree.
  const Value tuple = Tuple{1};
  EXPECT_TRUE(same_object(copy_tree(tuple, 0), tuple));
  EXPECT_EQ(copy_tree(5, 0).integer(), 5);
  EXPECT_EQ(repr(copy_tree(List{}, list_bytes(0))), "[]");
}

TEST(TreeCopy, APartOutlivesTheRest) {
  Value part;
  {
    const Value copy = usual_copy();
    part = copy.mapping().at("children").list().at(1);
  }
  EXPECT_EQ(repr(part), "{'node': 'b'}");
  part.mapping().set("more", List{1});
  EXPECT_EQ(repr(part), "{'node': 'b', 'more': [1]}");
}

TEST(TreeCopy, TheRootOutlivesItsParts) {
  Value copy = usual_copy();
  copy.mapping().set("children", Value());
  EXPECT_EQ(repr(copy), "{'node': 'add', 'children': None}");
}

TEST(TreeCopy, PartsGrowBeyondTheBlock) {
  const Value copy = usual_copy();
  List children = copy.mapping().at("children").list();
  Mapping first = children.at(0).mapping();
  for (int i = 0; i < 100; ++i) {
    children.append(i);
    first.set("key" + std::to_string(i), i);
  }
  EXPECT_EQ(children.size(), 103U);
  EXPECT_EQ(first.at("key99").integer(), 99);
  EXPECT_TRUE(first.erase("node"));
  EXPECT_EQ(first.size(), 100U);
}

TEST(TreeCopy, PartsCanBeHandedToTheHost) {
  Value copy = usual_copy();
  Mapping root = copy.mapping();
  const auto host = test::hand_over(root);
  const auto children = test::hand_over(root.at("children").list());
  copy = Value();
  root = Mapping();
  ASSERT_EQ(host->entries.size(), 2U);
  EXPECT_EQ(repr(children->items[0]), "{'node': 'a'}");
}

TEST(TreeCopy, OfALargeMappingIsSearched) {
  Mapping large;
  for (int i = 0; i < 500; ++i)
    large.set("key" + std::to_string(i), i);
  const Value copy = copy_tree(large, mapping_bytes(500));
  for (int i = 0; i < 500; ++i) {
    EXPECT_EQ(copy.mapping().at("key" + std::to_string(i)).integer(), i);
  }
  EXPECT_FALSE(copy.mapping().contains("key500"));
  copy.mapping().set("key500", 500);
  EXPECT_EQ(copy.mapping().at("key500").integer(), 500);
  EXPECT_EQ(copy.mapping().size(), 501U);
}

TEST(NativeView, ReadsWhatTheLibraryHolds) {
  const Value list = List{1, "two"};
  EXPECT_TRUE(is_native_list(list));
  ASSERT_EQ(native_items(list).size(), 2U);
  EXPECT_EQ(native_items(list)[1].text(), "two");
  const Value mapping = Mapping{{"a", 1}};
  EXPECT_TRUE(is_native_mapping(mapping));
  ASSERT_EQ(native_entries(mapping).size(), 1U);
  EXPECT_EQ(native_entries(mapping)[0].key.text(), "a");
}

TEST(NativeView, IsEmptyForContainersOfTheHost) {
  const Value list = test::as_host_containers(List{1});
  EXPECT_FALSE(is_native_list(list));
  EXPECT_TRUE(native_items(list).empty());
  const Value mapping = test::as_host_containers(Mapping{{"a", 1}});
  EXPECT_FALSE(is_native_mapping(mapping));
  EXPECT_TRUE(native_entries(mapping).empty());
}

}  // namespace
}  // namespace varnholt::genetic
