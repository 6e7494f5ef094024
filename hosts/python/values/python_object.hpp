// A Python object inside a Value: whatever is not exactly one of the library's kinds.
//
// Every question goes to the object by the operation that Python itself would use, so that what a
// class defines counts, and what it raises leaves as that exception.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::python {

namespace nb = nanobind;

class PythonObject : public genetic::HostObject {
 public:
  explicit PythonObject(nb::object object) : object_(std::move(object)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return object_; }

  [[nodiscard]] std::string type_name() const override;
  [[nodiscard]] genetic::Kind exact_kind() const override;
  [[nodiscard]] const void* identity() const noexcept override { return object_.ptr(); }

  [[nodiscard]] bool truth() const override;
  // Python's operator asks both operands.
  [[nodiscard]] bool equals(const genetic::Value& other) const override;
  [[nodiscard]] bool equals_for_both() const override { return true; }
  [[nodiscard]] bool differs(const genetic::Value& other) const override;
  // Python's hash for numbers. A text's or tuple's subclass that hashes as its base does gives the
  // library's hash of that text or tuple, which it may be equal to.
  [[nodiscard]] std::uint64_t hash() const override;
  // Python looks at both operands' operators, so there is always an answer, or its TypeError.
  [[nodiscard]] std::optional<bool> less(const genetic::Value& other) const override;
  [[nodiscard]] std::optional<bool> greater(const genetic::Value& other) const override;
  [[nodiscard]] std::optional<bool> at_least(const genetic::Value& other) const override;
  [[nodiscard]] std::optional<bool> at_most(const genetic::Value& other) const override;

  [[nodiscard]] std::optional<genetic::Value> calculate(genetic::Arithmetic operation,
                                                        const genetic::Value& other,
                                                        bool reversed) const override;
  [[nodiscard]] std::optional<bool> compare(genetic::Comparison comparison,
                                            const genetic::Value& other,
                                            bool reversed) const override;
  [[nodiscard]] genetic::Value rounded() const override;

  // What `is_integer` says.
  [[nodiscard]] bool is_whole() const override;
  [[nodiscard]] double to_float() const override;
  [[nodiscard]] genetic::Value float_value() const override;
  [[nodiscard]] genetic::Value to_integer() const override;
  [[nodiscard]] genetic::Value to_index() const override;
  [[nodiscard]] std::string str() const override;
  [[nodiscard]] genetic::Value text_form() const override;
  [[nodiscard]] std::string repr() const override;
  bool append_json(std::string& out) const override;

  // For every collections.abc.Mapping.
  [[nodiscard]] std::optional<genetic::Mapping> as_mapping() const override;
  [[nodiscard]] std::optional<genetic::Mapping> as_record() const override;
  // dict(object).
  [[nodiscard]] std::optional<genetic::Mapping> new_mapping() const override;
  [[nodiscard]] bool is_instance_of(genetic::Kind kind) const override;
  // The characters of a str's subclass, whatever its `__str__` says.
  [[nodiscard]] std::string text() const override;
  [[nodiscard]] std::size_t length() const override;
  [[nodiscard]] std::unique_ptr<genetic::ValueIterator> iterate() const override;
  [[nodiscard]] bool can_be_walked() const override;
  [[nodiscard]] genetic::Value item(const genetic::Value& key) const override;
  // `item in object`, object.get(key), -object.
  [[nodiscard]] bool contains(const genetic::Value& item) const override;
  [[nodiscard]] genetic::Value get(const genetic::Value& key) const override;
  [[nodiscard]] genetic::Value negated() const override;
  [[nodiscard]] bool is_callable() const override;
  [[nodiscard]] genetic::Value call(std::span<const genetic::Value> positional,
                                    const genetic::Mapping& keywords) const override;
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) const override;
  // Fails with the object's own AttributeError.
  [[nodiscard]] genetic::Value required_attribute(std::string_view name) const override;

  // copy.deepcopy of the whole value, in which the object may share containers with others; not of
  // what is exactly a number or text.
  [[nodiscard]] std::optional<genetic::Value> deep_copy_of(
      const genetic::Value& root) const override;
  // copy.copy.
  [[nodiscard]] genetic::Value shallow_copy() const override;

 private:
  nb::object object_;
};

// callable(*positional, **keywords). The mapping of keywords stays the caller's.
[[nodiscard]] nb::object call_with_values(nb::handle callable,
                                          std::span<const genetic::Value> positional,
                                          const genetic::Mapping& keywords);

// Walks a Python iterator, one `next` a call.
class PythonIterator : public genetic::ValueIterator {
 public:
  explicit PythonIterator(nb::object iterator) : iterator_(std::move(iterator)) {}

  // TypeError "'list' object is not an iterator" for what has no `__next__`.
  [[nodiscard]] std::optional<genetic::Value> next() override;

 private:
  nb::object iterator_;
};

}  // namespace varnholt::python
