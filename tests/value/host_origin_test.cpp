// Numbers, texts and tuples that are objects of the host. Goal: they work as values of our own
// kinds, hand back their object, and give their reference back once. Method: a counted object.
#include "search_templates/genetic/value/host_origin.hpp"

#include <array>
#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// Counts the references that values hold on it.
struct Held {
  int references = 0;

  HostOrigin origin() {
    ++references;
    return {this, [](void* held) noexcept { --static_cast<Held*>(held)->references; }};
  }
};

const void* object_of(const Value& value) {
  const HostOrigin* const origin = host_origin(value);
  return origin == nullptr ? nullptr : origin->object;
}

TEST(HostOrigin, ANumberOfTheHostIsANumber) {
  Held held;
  const Value integer = hosted_integer(1 << 20, held.origin());
  const Value real = hosted_real(0.5, held.origin());
  EXPECT_EQ(integer.kind(), Kind::kInteger);
  EXPECT_EQ(integer, 1 << 20);
  EXPECT_EQ(repr(real), "0.5");
  EXPECT_EQ(hash(integer), hash(Value(1 << 20)));
  EXPECT_EQ(object_of(integer), &held);
  EXPECT_EQ(object_of(real), &held);
  EXPECT_EQ(integer.counted(), nullptr);
}

TEST(HostOrigin, ATextOfTheHostIsAText) {
  Held held;
  for (const std::string& text : {std::string(), std::string("node"), std::string(500, 'x')}) {
    const Value value = hosted_text(text, held.origin());
    EXPECT_EQ(value, text);
    EXPECT_EQ(value.text(), text);
    EXPECT_EQ(value.text_hash(), Value(text).text_hash());
    EXPECT_EQ(object_of(value), &held);
  }
  EXPECT_EQ(held.references, 0);
}

TEST(HostOrigin, ATupleOfTheHostIsATuple) {
  Held held;
  const std::array<Value, 2> items = {1, "a"};
  {
    const Value tuple = hosted_tuple(items, held.origin());
    EXPECT_EQ(tuple, Tuple(items));
    EXPECT_EQ(object_of(tuple), &held);
    EXPECT_EQ(held.references, 1);
  }
  EXPECT_EQ(held.references, 0);
}

TEST(HostOrigin, WhatIsComputedHasNone) {
  for (const Value& value : {Value(), Value(true), Value(1), Value(0.5), Value("text"),
                             Value(Tuple{1}), Value(List{1}), Value(Mapping())}) {
    EXPECT_EQ(host_origin(value), nullptr) << repr(value);
  }
}

TEST(HostOrigin, CopiesShareTheReferenceAndGiveItBackOnce) {
  Held held;
  {
    Value first = hosted_real(2.5, held.origin());
    Value second = first;
    const Value third = std::move(first);
    second = third;
    second.swap(first);
    EXPECT_EQ(held.references, 1);
    Mapping record;
    record.set("a", third);
    record.set(hosted_text("key", held.origin()), List{third, hosted_integer(9, held.origin())});
    const Value copy = deep_copy(record);
    EXPECT_EQ(object_of(copy.mapping().at("a")), &held);
    EXPECT_EQ(object_of(copy.mapping().at("key").list().at(1)), &held);
    EXPECT_EQ(held.references, 3);
  }
  EXPECT_EQ(held.references, 0);
}

TEST(HostOrigin, FloatOfARealIsThatReal) {
  Held held;
  const Value real = hosted_real(2.5, held.origin());
  EXPECT_EQ(object_of(float_of(real)), &held);
  EXPECT_EQ(object_of(float_of(hosted_integer(3000, held.origin()))), nullptr);
  EXPECT_EQ(object_of(text_form(hosted_text("t", held.origin()))), &held);
}

}  // namespace
}  // namespace varnholt::genetic
