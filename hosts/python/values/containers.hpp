// Python's containers behind the library's lists and mappings.
//
// Each class holds a reference to the container and keeps nothing else of it: every read and write
// goes to the container itself. Walking a container that changes meanwhile ends as it ends in
// Python.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/graph/host_graph.hpp"
#include "search_templates/genetic/value/storage.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// Over a list of the exact type.
class PythonListStorage : public genetic::ListStorage {
 public:
  explicit PythonListStorage(nb::object list) : list_(std::move(list)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return list_; }

  [[nodiscard]] const void* identity() const noexcept override { return list_.ptr(); }
  [[nodiscard]] std::size_t size() const override;
  [[nodiscard]] genetic::Value at(std::size_t index) const override;
  void set(std::size_t index, const genetic::Value& item) override;
  void append(const genetic::Value& item) override;

 private:
  nb::object list_;
};

// What the two kinds of mapping share.
class PythonStorage : public genetic::MappingStorage {
 public:
  [[nodiscard]] const nb::object& object() const noexcept { return object_; }
  [[nodiscard]] const void* identity() const noexcept override { return object_.ptr(); }

 protected:
  explicit PythonStorage(nb::object object) : object_(std::move(object)) {}

 private:
  nb::object object_;
};

// Over a dict of the exact type.
class DictStorage : public PythonStorage, public genetic::HostGraph {
 public:
  explicit DictStorage(nb::object dict) : PythonStorage(std::move(dict)) {}

  [[nodiscard]] std::size_t size() const override;
  [[nodiscard]] std::optional<genetic::Value> find(const genetic::Value& key) const override;
  void set(const genetic::Value& key, const genetic::Value& value) override;
  bool erase(const genetic::Value& key) override;
  [[nodiscard]] std::unique_ptr<Cursor> entries() const override;
  [[nodiscard]] std::optional<genetic::Value> plain_copy() const override;
  [[nodiscard]] std::optional<std::string> canonical_text() const override;
  [[nodiscard]] bool tell(genetic::PlainParts& parts) const override;
  [[nodiscard]] bool tell_names(genetic::NamedNodes which,
                                const std::function<void(std::string_view)>& take) const override;
};

// The same for a dict whose values are mostly handed on: each of them is the very object that
// stands there, whatever its type, and a dict among them is another such mapping.
class OpaqueDictStorage : public DictStorage {
 public:
  explicit OpaqueDictStorage(nb::object dict) : DictStorage(std::move(dict)) {}

  [[nodiscard]] std::optional<genetic::Value> find(const genetic::Value& key) const override;
  [[nodiscard]] std::unique_ptr<Cursor> entries() const override;
};

// Over whatever else is read and written by key: a dict's subclass, a read-only view, a class of
// the host. It is asked by `get`, and walked by `items`, so that what the class overrides counts;
// what it cannot do fails with Python's own error.
class ObjectMappingStorage : public PythonStorage {
 public:
  explicit ObjectMappingStorage(nb::object mapping) : PythonStorage(std::move(mapping)) {}

  [[nodiscard]] std::size_t size() const override;
  [[nodiscard]] std::optional<genetic::Value> find(const genetic::Value& key) const override;
  // mapping.get(key) alone where there is no fallback: a class need not take a second argument.
  [[nodiscard]] genetic::Value get(const genetic::Value& key,
                                   const genetic::Value& fallback) const override;
  [[nodiscard]] genetic::Value at(const genetic::Value& key) const override;
  // `key in mapping`: a class may have an opinion of its own.
  [[nodiscard]] bool contains(const genetic::Value& key) const override;
  void set(const genetic::Value& key, const genetic::Value& value) override;
  // mapping.pop(key, None), and mapping.setdefault(key, value).
  bool erase(const genetic::Value& key) override;
  genetic::Value set_default(const genetic::Value& key, const genetic::Value& value) override;
  [[nodiscard]] std::unique_ptr<Cursor> entries() const override;
  // dict(mapping), which reads it in its own way.
  [[nodiscard]] std::optional<genetic::Mapping> new_mapping() const override;
};

// An exact dict as such a mapping, and whatever else as an object; None stays absent.
[[nodiscard]] genetic::Value opaque_record(nb::handle object);

// dict(object), as a mapping over the new dict.
[[nodiscard]] genetic::Mapping new_dict(nb::handle object);

}  // namespace varnholt::python
