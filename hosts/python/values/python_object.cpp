#include "hosts/python/values/python_object.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "hosts/python/values/containers.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

using genetic::Kind;
using genetic::Mapping;
using genetic::Value;

bool rich_compare(nb::handle left, nb::handle right, int operation) {
  return is_true(checked(PyObject_RichCompare(left.ptr(), right.ptr(), operation)));
}

// The items of a tuple's subclass as a tuple of the library's.
Value items_of(nb::handle tuple) {
  return to_value(checked(PyTuple_GetSlice(tuple.ptr(), 0, PyTuple_GET_SIZE(tuple.ptr()))));
}

PyTypeObject* type_of_kind(Kind kind) {
  switch (kind) {
    case Kind::kBoolean:
      return &PyBool_Type;
    case Kind::kInteger:
      return &PyLong_Type;
    case Kind::kReal:
      return &PyFloat_Type;
    case Kind::kText:
      return &PyUnicode_Type;
    case Kind::kList:
      return &PyList_Type;
    case Kind::kTuple:
      return &PyTuple_Type;
    case Kind::kMapping:
      return &PyDict_Type;
    default:
      return nullptr;
  }
}

}  // namespace

std::string PythonObject::type_name() const {
  // An exception is named by its class alone. Messages about other objects show the name that the
  // interpreter shows, which may have a module before it.
  if (PyExceptionInstance_Check(object_.ptr()) != 0) return python::type_name(object_);
  return Py_TYPE(object_.ptr())->tp_name;
}

Kind PythonObject::exact_kind() const {
  const PyTypeObject* const type = Py_TYPE(object_.ptr());
  for (const Kind kind : {Kind::kInteger, Kind::kReal, Kind::kText}) {
    if (type == type_of_kind(kind)) return kind;
  }
  return Kind::kObject;
}

bool PythonObject::truth() const {
  return is_true(object_);
}

bool PythonObject::equals(const Value& other) const {
  return rich_compare(object_, to_python(other), Py_EQ);
}

bool PythonObject::differs(const Value& other) const {
  return rich_compare(object_, to_python(other), Py_NE);
}

std::uint64_t PythonObject::hash() const {
  PyObject* const pointer = object_.ptr();
  const hashfunc own_hash = Py_TYPE(pointer)->tp_hash;
  if (PyUnicode_Check(pointer) != 0 && own_hash == PyUnicode_Type.tp_hash) {
    return genetic::detail::hash_text(text_of(object_));
  }
  if (PyTuple_Check(pointer) != 0 && own_hash == PyTuple_Type.tp_hash) {
    return genetic::hash(items_of(object_));
  }
  const Py_hash_t hash = PyObject_Hash(pointer);
  if (hash == -1) throw_current_error();
  return static_cast<std::uint64_t>(hash);
}

std::optional<bool> PythonObject::less(const Value& other) const {
  return rich_compare(object_, to_python(other), Py_LT);
}

std::optional<bool> PythonObject::greater(const Value& other) const {
  return rich_compare(to_python(other), object_, Py_LT);
}

std::optional<bool> PythonObject::at_least(const Value& other) const {
  return rich_compare(object_, to_python(other), Py_GE);
}

std::optional<bool> PythonObject::at_most(const Value& other) const {
  return rich_compare(to_python(other), object_, Py_GE);
}

std::optional<Value> PythonObject::calculate(genetic::Arithmetic operation, const Value& other,
                                             bool reversed) const {
  const nb::object second = to_python(other);
  PyObject* const left = reversed ? second.ptr() : object_.ptr();
  PyObject* const right = reversed ? object_.ptr() : second.ptr();
  switch (operation) {
    case genetic::Arithmetic::kAdd:
      return to_value(checked(PyNumber_Add(left, right)));
    case genetic::Arithmetic::kSubtract:
      return to_value(checked(PyNumber_Subtract(left, right)));
    case genetic::Arithmetic::kMultiply:
      return to_value(checked(PyNumber_Multiply(left, right)));
  }
  return std::nullopt;
}

std::optional<bool> PythonObject::compare(genetic::Comparison comparison, const Value& other,
                                          bool reversed) const {
  // In the order of the enumeration.
  constexpr std::array kOperators = {Py_LT, Py_LE, Py_GT, Py_GE};
  const int operation = kOperators[static_cast<std::size_t>(comparison)];
  const nb::object second = to_python(other);
  return reversed ? rich_compare(second, object_, operation)
                  : rich_compare(object_, second, operation);
}

Value PythonObject::rounded() const {
  return to_value(call_method(import_module("builtins"), "round", {object_}));
}

bool PythonObject::is_whole() const {
  return is_true(call_method(object_, "is_integer"));
}

double PythonObject::to_float() const {
  return PyFloat_AS_DOUBLE(checked(PyNumber_Float(object_.ptr())).ptr());
}

Value PythonObject::float_value() const {
  return to_value(checked(PyNumber_Float(object_.ptr())));
}

Value PythonObject::to_integer() const {
  return to_value(checked(PyNumber_Long(object_.ptr())));
}

std::string PythonObject::str() const {
  return str_of(object_);
}

Value PythonObject::text_form() const {
  return to_value(checked(PyObject_Str(object_.ptr())));
}

std::string PythonObject::repr() const {
  return text_of(checked(PyObject_Repr(object_.ptr())));
}

bool PythonObject::append_json(std::string& out) const {
  const nb::object separators = to_python(genetic::Tuple{",", ":"});
  const nb::object json = import_module("json");
  out += text_of(call_method(json, "dumps", {object_},
                             {{"sort_keys", nb::handle(Py_True)}, {"separators", separators}}));
  return true;
}

std::optional<Mapping> PythonObject::as_mapping() const {
  if (PyDict_Check(object_.ptr()) == 0) {
    const nb::object collections = import_module("collections.abc");
    if (!is_instance(object_, python::attribute(collections, "Mapping"))) return std::nullopt;
  }
  return Mapping(std::make_unique<ObjectMappingStorage>(object_));
}

std::optional<Mapping> PythonObject::as_record() const {
  return Mapping(std::make_unique<ObjectMappingStorage>(object_));
}

std::optional<Mapping> PythonObject::new_mapping() const {
  return new_dict(object_);
}

bool PythonObject::is_instance_of(Kind kind) const {
  PyTypeObject* const type = type_of_kind(kind);
  // By its type, or else by what it says of its class: a stand-in may say what it stands for.
  return type != nullptr && is_instance(object_, reinterpret_cast<PyObject*>(type));
}

std::string PythonObject::text() const {
  return PyUnicode_Check(object_.ptr()) != 0 ? text_of(object_) : str();
}

Value PythonObject::to_index() const {
  return to_value(checked(PyNumber_Index(object_.ptr())));
}

std::size_t PythonObject::length() const {
  const Py_ssize_t size = PyObject_Size(object_.ptr());
  if (size < 0) throw_current_error();
  return static_cast<std::size_t>(size);
}

std::unique_ptr<genetic::ValueIterator> PythonObject::iterate() const {
  return std::make_unique<PythonIterator>(checked(PyObject_GetIter(object_.ptr())));
}

bool PythonObject::can_be_walked() const {
  return Py_TYPE(object_.ptr())->tp_iter != nullptr || PySequence_Check(object_.ptr()) != 0;
}

Value PythonObject::item(const Value& key) const {
  return to_value(checked(PyObject_GetItem(object_.ptr(), to_python(key).ptr())));
}

bool PythonObject::contains(const Value& item) const {
  return checked(PySequence_Contains(object_.ptr(), to_python(item).ptr())) != 0;
}

Value PythonObject::get(const Value& key) const {
  return to_value(call_method(object_, "get", {to_python(key)}));
}

Value PythonObject::negated() const {
  return to_value(checked(PyNumber_Negative(object_.ptr())));
}

bool PythonObject::is_callable() const {
  return PyCallable_Check(object_.ptr()) != 0;
}

Value PythonObject::call(std::span<const Value> positional, const Mapping& keywords) const {
  return to_value(call_with_values(object_, positional, keywords));
}

std::optional<Value> PythonObject::attribute(std::string_view name) const {
  const std::optional<nb::object> found = find_attribute(object_, name);
  return found ? std::optional(to_value(*found)) : std::nullopt;
}

Value PythonObject::required_attribute(std::string_view name) const {
  return to_value(checked(PyObject_GetAttr(object_.ptr(), name_object(name).ptr())));
}

std::optional<Value> PythonObject::deep_copy_of(const Value& root) const {
  if (exact_kind() != Kind::kObject) return std::nullopt;
  return to_value(call_method(import_module("copy"), "deepcopy", {to_python(root)}));
}

Value PythonObject::shallow_copy() const {
  return to_value(call_method(import_module("copy"), "copy", {object_}));
}

namespace {

// The arguments side by side, as the interpreter passes them on.
class Arguments {
 public:
  explicit Arguments(std::size_t count) {
    objects_.reserve(count);
    // A place in front, which a bound method fills with its object.
    pointers_.reserve(1 + count);
    pointers_.push_back(nullptr);
  }

  void add(const Value& value) {
    objects_.push_back(to_python(value));
    pointers_.push_back(objects_.back().ptr());
  }

  [[nodiscard]] nb::object call(nb::handle callable, std::size_t positional,
                                PyObject* names) const {
    return checked(PyObject_Vectorcall(callable.ptr(), pointers_.data() + 1,
                                       positional | PY_VECTORCALL_ARGUMENTS_OFFSET, names));
  }

 private:
  std::vector<nb::object> objects_;
  mutable std::vector<PyObject*> pointers_;
};

bool has_names_of_its_own(const Mapping& keywords) {
  if (keywords.storage() != nullptr) return false;
  const auto entries = keywords.native_entries();
  return std::all_of(entries.begin(), entries.end(),
                     [](const genetic::MappingEntry& entry) { return entry.key.is_text(); });
}

nb::object call_with_names(nb::handle callable, std::span<const Value> positional,
                           std::span<const genetic::MappingEntry> keywords) {
  Arguments arguments(positional.size() + keywords.size());
  for (const Value& argument : positional)
    arguments.add(argument);
  if (keywords.empty()) return arguments.call(callable, positional.size(), nullptr);
  const nb::object names = checked(PyTuple_New(static_cast<Py_ssize_t>(keywords.size())));
  Py_ssize_t place = 0;
  for (const genetic::MappingEntry& keyword : keywords) {
    PyTuple_SET_ITEM(names.ptr(), place++, to_python(keyword.key).release().ptr());
    arguments.add(keyword.value);
  }
  return arguments.call(callable, positional.size(), names.ptr());
}

}  // namespace

nb::object call_with_values(nb::handle callable, std::span<const Value> positional,
                            const Mapping& keywords) {
  if (has_names_of_its_own(keywords)) {
    return call_with_names(callable, positional, keywords.native_entries());
  }
  const nb::object arguments = checked(PyTuple_New(static_cast<Py_ssize_t>(positional.size())));
  Py_ssize_t place = 0;
  for (const Value& argument : positional) {
    PyTuple_SET_ITEM(arguments.ptr(), place++, to_python(argument).release().ptr());
  }
  // A new dict: the mapping of keywords is the caller's, not an object to share.
  const nb::object named = checked(PyDict_New());
  genetic::MappingCursor cursor(keywords);
  while (const std::optional<genetic::MappingEntry> entry = cursor.next()) {
    checked(
        PyDict_SetItem(named.ptr(), to_python(entry->key).ptr(), to_python(entry->value).ptr()));
  }
  return checked(PyObject_Call(callable.ptr(), arguments.ptr(), named.ptr()));
}

std::optional<Value> PythonIterator::next() {
  if (PyIter_Check(iterator_.ptr()) == 0) {
    throw genetic::TypeError("'" + std::string(Py_TYPE(iterator_.ptr())->tp_name) +
                             "' object is not an iterator");
  }
  PyObject* const item = PyIter_Next(iterator_.ptr());
  if (item != nullptr) return to_value(nb::steal(item));
  if (PyErr_Occurred() != nullptr) throw_current_error();
  return std::nullopt;
}

}  // namespace varnholt::python
