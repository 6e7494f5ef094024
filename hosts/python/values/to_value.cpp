#include <cmath>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "hosts/python/values/containers.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "hosts/python/values/python_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_origin.hpp"

namespace varnholt::python {
namespace {

using genetic::HostOrigin;
using genetic::List;
using genetic::Mapping;
using genetic::Value;

Value object_value(nb::handle object) {
  return genetic::make_object<PythonObject>(nb::borrow(object));
}

// One reference for the value that is made of the object.
HostOrigin origin_of(nb::handle object) {
  return {object.inc_ref().ptr(),
          [](void* held) noexcept { Py_DECREF(static_cast<PyObject*>(held)); }};
}

Value integer_value(nb::handle object) {
  int overflow = 0;
  const long long integer = PyLong_AsLongLongAndOverflow(object.ptr(), &overflow);
  if (overflow != 0) return object_value(object);
  // The interpreter has one object for each of the small integers.
  if (integer >= -5 && integer <= 256) return static_cast<std::int64_t>(integer);
  return hosted_integer(integer, origin_of(object));
}

// A str that is no valid Unicode has no UTF-8 and stays an object.
Value text_value(nb::handle object) {
  Py_ssize_t size = 0;
  const char* const text = PyUnicode_AsUTF8AndSize(object.ptr(), &size);
  if (text != nullptr)
    return hosted_text({text, static_cast<std::size_t>(size)}, origin_of(object));
  if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError) == 0) throw_current_error();
  PyErr_Clear();
  return object_value(object);
}

Value value_at(nb::handle object, int depth);

Value tuple_value(nb::handle object, int depth) {
  if (depth > kMaximumTupleNesting) {
    throw genetic::RecursionError("maximum recursion depth exceeded");
  }
  const Py_ssize_t size = PyTuple_GET_SIZE(object.ptr());
  std::vector<Value> items;
  items.reserve(static_cast<std::size_t>(size));
  for (Py_ssize_t i = 0; i < size; ++i) {
    items.push_back(value_at(PyTuple_GET_ITEM(object.ptr(), i), depth + 1));
  }
  return hosted_tuple(items, origin_of(object));
}

Value value_at(nb::handle object, int depth) {
  PyObject* const pointer = object.ptr();
  if (pointer == Py_None) return {};
  const PyTypeObject* const type = Py_TYPE(pointer);
  if (type == &PyUnicode_Type) return text_value(object);
  if (type == &PyLong_Type) return integer_value(object);
  if (type == &PyFloat_Type) {
    const double real = PyFloat_AS_DOUBLE(pointer);
    // A NaN equals nothing but itself, so it stays the object that it is.
    return std::isnan(real) ? object_value(object) : hosted_real(real, origin_of(object));
  }
  if (type == &PyBool_Type) return pointer == Py_True;
  if (type == &PyDict_Type) return Mapping(std::make_unique<DictStorage>(nb::borrow(object)));
  if (type == &PyList_Type) return List(std::make_unique<PythonListStorage>(nb::borrow(object)));
  if (type == &PyTuple_Type) return tuple_value(object, depth);
  return object_value(object);
}

}  // namespace

Value to_value(nb::handle object) {
  return value_at(object, 0);
}

Value opaque_value(nb::handle object) {
  return object.is_none() ? Value() : object_value(object);
}

std::string text_of(nb::handle text) {
  const nb::object bytes = checked(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogatepass"));
  return {PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr()))};
}

std::string str_of(nb::handle object) {
  return text_of(checked(PyObject_Str(object.ptr())));
}

std::string type_name(nb::handle object) {
  return text_of(
      attribute(nb::handle(reinterpret_cast<PyObject*>(Py_TYPE(object.ptr()))), "__name__"));
}

}  // namespace varnholt::python
