// An object of the host that says nothing about itself: the defaults of a plain object of the
// host's language, and the lifetime of its handles.
#include "search_templates/genetic/value/host_object.hpp"

#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

class Plain : public HostObject {
 public:
  explicit Plain(int* alive = nullptr) : alive_(alive) {
    if (alive_ != nullptr) ++*alive_;
  }
  ~Plain() override {
    if (alive_ != nullptr) --*alive_;
  }
  [[nodiscard]] std::string type_name() const override { return "Plain"; }

 private:
  int* alive_;
};

TEST(HostObject, IsTrueAndEqualToItselfAlone) {
  const Value object = make_object<Plain>();
  const Value other = make_object<Plain>();
  EXPECT_TRUE(truth(object));
  EXPECT_TRUE(is_same_or_equal(object, object));
  EXPECT_FALSE(object == other);
  EXPECT_FALSE(object == Value(1));
  EXPECT_EQ(hash(object), hash(Value(object)));
  EXPECT_NE(hash(object), hash(other));
  EXPECT_EQ(exact_kind(object), Kind::kObject);
  EXPECT_FALSE(is_instance_of(object, Kind::kText));
  EXPECT_TRUE(is_instance_of(object, Kind::kObject));
}

TEST(HostObject, ConvertsToNothing) {
  const Value object = make_object<Plain>();
  EXPECT_EQ(error_of([&] { return to_float(object); }),
            "TypeError: float() argument must be a string or a real number, not 'Plain'");
  EXPECT_EQ(error_of([&] { return to_integer(object); }),
            "TypeError: int() argument must be a string, a bytes-like object or a real number, "
            "not 'Plain'");
  EXPECT_EQ(error_of([&] { return length(object); }),
            "TypeError: object of type 'Plain' has no len()");
  EXPECT_EQ(error_of([&] { return iterate(object) == nullptr; }),
            "TypeError: 'Plain' object is not iterable");
  EXPECT_EQ(error_of([&] { return item(object, 0); }),
            "TypeError: 'Plain' object is not subscriptable");
  EXPECT_EQ(error_of([&] { return less(object, object); }),
            "TypeError: '<' not supported between instances of 'Plain' and 'Plain'");
}

TEST(HostObject, HoldsNothingHasNoEntriesAndNoSign) {
  const Value object = make_object<Plain>();
  EXPECT_EQ(error_of([&] { return object.object().contains("anything"); }),
            "TypeError: argument of type 'Plain' is not iterable");
  EXPECT_EQ(error_of([&] { return object.object().get("anything"); }),
            "AttributeError: 'Plain' object has no attribute 'get'");
  EXPECT_EQ(error_of([&] { return object.object().negated(); }),
            "TypeError: bad operand type for unary -: 'Plain'");
  EXPECT_FALSE(object.object().is_callable());
}

TEST(HostObject, HasTextsAndNoAttributes) {
  const Value object = make_object<Plain>();
  EXPECT_EQ(repr(object), "<Plain object>");
  EXPECT_EQ(str(object), "<Plain object>");
  EXPECT_EQ(object.object().text(), "<Plain object>");
  EXPECT_FALSE(attribute(object, "anything").has_value());
  EXPECT_FALSE(as_mapping(object).has_value());
}

TEST(HostObject, CopiesAreTheObjectItself) {
  const Value object = make_object<Plain>();
  EXPECT_TRUE(same_object(deep_copy(object), object));
  EXPECT_TRUE(same_object(shallow_copy(object), object));
}

TEST(HostObject, LivesAsLongAsItsLastHandle) {
  int alive = 0;
  {
    const ObjectRef reference = make_object<Plain>(&alive);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(reference->type_name(), "Plain");
    EXPECT_EQ((*reference).type_name(), "Plain");
    Value handle = List{Value(reference)};
    handle = deep_copy(handle);
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace varnholt::genetic
