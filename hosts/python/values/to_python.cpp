#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include "hosts/python/values/containers.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/host_origin.hpp"

namespace varnholt::python {
namespace {

using genetic::Kind;
using genetic::List;
using genetic::Mapping;
using genetic::MappingEntry;
using genetic::Tuple;
using genetic::Value;

void refuse_nesting(int depth) {
  if (depth > kMaximumTupleNesting) {
    throw genetic::RecursionError("maximum recursion depth exceeded");
  }
}

// Texts that live in the program are handed over again and again, as keys: each has one str, which
// lives as long as the interpreter.
PyObject* known_text(const Value& text) {
  static auto* const known = new std::unordered_map<const void*, PyObject*>();
  const auto place = known->find(text.counted());
  if (place != known->end()) return place->second;
  PyObject* made = text_object(text.text()).release().ptr();
  PyUnicode_InternInPlace(&made);
  known->emplace(text.counted(), made);
  return made;
}

// The same through a small table, which nearly always has it.
nb::object fixed_text(const Value& text) {
  struct Place {
    const void* text = nullptr;
    PyObject* object = nullptr;
  };
  constexpr std::size_t kPlaces = 1024;
  static auto* const table = new std::array<Place, kPlaces>();
  const void* const address = text.counted();
  Place& place = (*table)[reinterpret_cast<std::uintptr_t>(address) / alignof(Place) % kPlaces];
  if (place.text != address) place = {address, known_text(text)};
  return nb::borrow(place.object);
}

nb::object python_at(const Value& value, int depth);

nb::object python_tuple(const Tuple& tuple, int depth) {
  refuse_nesting(depth);
  nb::object made = checked(PyTuple_New(static_cast<Py_ssize_t>(tuple.size())));
  Py_ssize_t place = 0;
  for (const Value& item : tuple.items()) {
    PyTuple_SET_ITEM(made.ptr(), place++, python_at(item, depth + 1).release().ptr());
  }
  return made;
}

// The storage is set before the children move, since the list may contain itself.
nb::object python_list(List list, int depth) {
  if (const auto* const storage = dynamic_cast<const PythonListStorage*>(list.storage())) {
    return storage->object();
  }
  refuse_nesting(depth);
  nb::object made = checked(PyList_New(0));
  const List held = list.adopt(std::make_unique<PythonListStorage>(made));
  for (const Value& item : held.native_items()) {
    checked(PyList_Append(made.ptr(), python_at(item, depth + 1).ptr()));
  }
  return made;
}

nb::object python_dict(Mapping mapping, int depth) {
  if (const auto* const storage = dynamic_cast<const PythonStorage*>(mapping.storage())) {
    return storage->object();
  }
  refuse_nesting(depth);
  nb::object made = checked(PyDict_New());
  const Mapping held = mapping.adopt(std::make_unique<DictStorage>(made));
  for (const MappingEntry& entry : held.native_entries()) {
    checked(PyDict_SetItem(made.ptr(), python_at(entry.key, depth + 1).ptr(),
                           python_at(entry.value, depth + 1).ptr()));
  }
  return made;
}

// An error of the library's own that a rule hands to the host as a value.
nb::object exception_for(const genetic::HostObject& error) {
  const nb::object builtins = import_module("builtins");
  const std::optional<nb::object> type = find_attribute(builtins, error.type_name());
  if (!type || PyExceptionClass_Check(type->ptr()) == 0) {
    throw genetic::TypeError("a '" + error.type_name() + "' has no form in Python");
  }
  return call(*type, {text_object(error.str())});
}

nb::object object_behind(const genetic::HostObject& object) {
  if (const auto* const python = dynamic_cast<const PythonObject*>(&object)) {
    return python->object();
  }
  switch (object.exact_kind()) {
    case Kind::kReal:  // A NaN that was computed here.
      return checked(PyFloat_FromDouble(object.to_float()));
    case Kind::kInteger:
      return checked(PyLong_FromString(object.repr().c_str(), nullptr, 10));
    default:
      return exception_for(object);
  }
}

nb::object python_at(const Value& value, int depth) {
  // What Python gave is handed back as the very object.
  if (const genetic::HostOrigin* const origin = genetic::host_origin(value)) {
    return nb::borrow(static_cast<PyObject*>(origin->object));
  }
  switch (value.kind()) {
    case Kind::kAbsent:
      return nb::none();
    case Kind::kBoolean:
      return nb::borrow(value.boolean() ? Py_True : Py_False);
    case Kind::kInteger:
      return checked(PyLong_FromLongLong(value.integer()));
    case Kind::kReal:
      return checked(PyFloat_FromDouble(value.real()));
    case Kind::kText:
      return value.counted()->references == genetic::detail::kImmortal ? fixed_text(value)
                                                                       : text_object(value.text());
    case Kind::kList:
      return python_list(value.list(), depth);
    case Kind::kTuple:
      return python_tuple(value.tuple(), depth);
    case Kind::kMapping:
      return python_dict(value.mapping(), depth);
    case Kind::kObject:
      break;
  }
  return object_behind(value.object());
}

}  // namespace

nb::object to_python(const Value& value) {
  return python_at(value, 0);
}

}  // namespace varnholt::python
