#include "hosts/python/values/containers.hpp"

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/graph_readings.hpp"
#include "hosts/python/values/graph_walks.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {
namespace {

using genetic::Mapping;
using genetic::MappingEntry;
using genetic::Value;

// Walks a dict as Python's own iterator does, with the same two complaints.
class DictCursor : public genetic::MappingStorage::Cursor {
 public:
  using Conversion = Value (*)(nb::handle);

  DictCursor(nb::object dict, Conversion convert_value)
      : dict_(std::move(dict)),
        convert_value_(convert_value),
        size_at_start_(PyDict_GET_SIZE(dict_.ptr())),
        left_(size_at_start_) {}

  std::optional<MappingEntry> next() override {
    if (size_at_start_ != PyDict_GET_SIZE(dict_.ptr())) {
      size_at_start_ = kBroken;  // It stays broken, even when the size comes back.
      throw genetic::RuntimeError("dictionary changed size during iteration");
    }
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    if (PyDict_Next(dict_.ptr(), &position_, &key, &value) == 0) return std::nullopt;
    if (left_ == 0) {
      size_at_start_ = kBroken;
      throw genetic::RuntimeError("dictionary keys changed during iteration");
    }
    --left_;
    return MappingEntry{to_value(key), convert_value_(value)};
  }

 private:
  static constexpr Py_ssize_t kBroken = -1;

  nb::object dict_;
  Conversion convert_value_;
  Py_ssize_t size_at_start_;
  Py_ssize_t left_;
  Py_ssize_t position_ = 0;
};

// Walks the pairs of `mapping.items()`.
class ItemsCursor : public genetic::MappingStorage::Cursor {
 public:
  explicit ItemsCursor(nb::handle mapping)
      : pairs_(checked(PyObject_GetIter(call_method(mapping, "items").ptr()))) {}

  std::optional<MappingEntry> next() override {
    PyObject* const pair_reference = PyIter_Next(pairs_.ptr());
    if (pair_reference == nullptr) {
      if (PyErr_Occurred() != nullptr) throw_current_error();
      return std::nullopt;
    }
    const nb::object pair = nb::steal(pair_reference);
    const nb::object items = checked(PySequence_Fast(pair.ptr(), "cannot unpack an item"));
    if (PySequence_Fast_GET_SIZE(items.ptr()) != 2) {
      throw genetic::ValueError("an item of a mapping is a pair of key and value");
    }
    return MappingEntry{to_value(PySequence_Fast_GET_ITEM(items.ptr(), 0)),
                        to_value(PySequence_Fast_GET_ITEM(items.ptr(), 1))};
  }

 private:
  nb::object pairs_;
};

Py_ssize_t signed_index(std::size_t index) {
  return static_cast<Py_ssize_t>(index);
}

// Whether a deletion succeeded; a KeyError says that there was nothing to delete.
bool deleted(int status) {
  if (status == 0) return true;
  if (PyErr_ExceptionMatches(PyExc_KeyError) == 0) throw_current_error();
  PyErr_Clear();
  return false;
}

}  // namespace

// Lists. An index is checked by the call that uses it: converting an item may run the host's code.

std::size_t PythonListStorage::size() const {
  return static_cast<std::size_t>(PyList_GET_SIZE(list_.ptr()));
}

Value PythonListStorage::at(std::size_t index) const {
  PyObject* const item = PyList_GetItem(list_.ptr(), signed_index(index));
  if (item == nullptr) throw_current_error();
  return to_value(item);
}

void PythonListStorage::set(std::size_t index, const Value& item) {
  nb::object object = to_python(item);
  checked(PyList_SetItem(list_.ptr(), signed_index(index), object.release().ptr()));
}

void PythonListStorage::append(const Value& item) {
  checked(PyList_Append(list_.ptr(), to_python(item).ptr()));
}

// Dicts.

namespace {

// What the dict has under the key; null for nothing.
PyObject* item_of(const nb::object& dict, const Value& key) {
  PyObject* const found = PyDict_GetItemWithError(dict.ptr(), to_python(key).ptr());
  if (found == nullptr && PyErr_Occurred() != nullptr) throw_current_error();
  return found;
}

}  // namespace

std::size_t DictStorage::size() const {
  return static_cast<std::size_t>(PyDict_GET_SIZE(object().ptr()));
}

std::optional<Value> DictStorage::find(const Value& key) const {
  PyObject* const found = item_of(object(), key);
  return found == nullptr ? std::nullopt : std::optional(to_value(found));
}

void DictStorage::set(const Value& key, const Value& value) {
  checked(PyDict_SetItem(object().ptr(), to_python(key).ptr(), to_python(value).ptr()));
}

bool DictStorage::erase(const Value& key) {
  return deleted(PyDict_DelItem(object().ptr(), to_python(key).ptr()));
}

std::unique_ptr<genetic::MappingStorage::Cursor> DictStorage::entries() const {
  return std::make_unique<DictCursor>(object(), to_value);
}

std::optional<Value> DictStorage::plain_copy() const {
  const nb::object copy = walk_plain(object());
  return copy.is_valid() ? std::optional(to_value(copy)) : std::nullopt;
}

std::optional<std::string> DictStorage::canonical_text() const {
  return walk_canonical_text(object());
}

bool DictStorage::tell(genetic::PlainParts& parts) const {
  return walk_parts(object(), parts);
}

bool DictStorage::tell_names(genetic::NamedNodes which,
                             const std::function<void(std::string_view)>& take) const {
  return walk_names(object(), which, take);
}

std::optional<Value> OpaqueDictStorage::find(const Value& key) const {
  PyObject* const found = item_of(object(), key);
  return found == nullptr ? std::nullopt : std::optional(opaque_record(found));
}

std::unique_ptr<genetic::MappingStorage::Cursor> OpaqueDictStorage::entries() const {
  return std::make_unique<DictCursor>(object(), opaque_record);
}

// Other mappings.

std::size_t ObjectMappingStorage::size() const {
  const Py_ssize_t size = PyObject_Size(object().ptr());
  if (size < 0) throw_current_error();
  return static_cast<std::size_t>(size);
}

std::optional<Value> ObjectMappingStorage::find(const Value& key) const {
  // An object that nobody else has says that the key is missing.
  const nb::object missing = checked(PyList_New(0));
  const nb::object found = call_method(object(), "get", {to_python(key), missing});
  if (found.is(missing)) return std::nullopt;
  return to_value(found);
}

Value ObjectMappingStorage::get(const Value& key, const Value& fallback) const {
  if (fallback.is_absent()) return to_value(call_method(object(), "get", {to_python(key)}));
  return to_value(call_method(object(), "get", {to_python(key), to_python(fallback)}));
}

Value ObjectMappingStorage::at(const Value& key) const {
  return to_value(checked(PyObject_GetItem(object().ptr(), to_python(key).ptr())));
}

bool ObjectMappingStorage::contains(const Value& key) const {
  return checked(PySequence_Contains(object().ptr(), to_python(key).ptr())) != 0;
}

void ObjectMappingStorage::set(const Value& key, const Value& value) {
  checked(PyObject_SetItem(object().ptr(), to_python(key).ptr(), to_python(value).ptr()));
}

bool ObjectMappingStorage::erase(const Value& key) {
  return !call_method(object(), "pop", {to_python(key), nb::none()}).is_none();
}

Value ObjectMappingStorage::set_default(const Value& key, const Value& value) {
  return to_value(call_method(object(), "setdefault", {to_python(key), to_python(value)}));
}

std::unique_ptr<genetic::MappingStorage::Cursor> ObjectMappingStorage::entries() const {
  return std::make_unique<ItemsCursor>(object());
}

std::optional<genetic::Mapping> ObjectMappingStorage::new_mapping() const {
  return new_dict(object());
}

Value opaque_record(nb::handle object) {
  if (Py_TYPE(object.ptr()) != &PyDict_Type) return opaque_value(object);
  return Mapping(std::make_unique<OpaqueDictStorage>(nb::borrow(object)));
}

genetic::Mapping new_dict(nb::handle object) {
  return genetic::Mapping(
      std::make_unique<DictStorage>(call(reinterpret_cast<PyObject*>(&PyDict_Type), {object})));
}

}  // namespace varnholt::python
