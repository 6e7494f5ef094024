#include "hosts/python/values/python_api.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "hosts/python/values/python_error.hpp"

namespace varnholt::python {

nb::object checked(PyObject* new_reference) {
  if (new_reference == nullptr) throw_current_error();
  return nb::steal(new_reference);
}

int checked(int status) {
  if (status < 0) throw_current_error();
  return status;
}

nb::object call(nb::handle callable, std::initializer_list<nb::handle> positional,
                std::initializer_list<Keyword> keywords) {
  std::vector<PyObject*> arguments;
  arguments.reserve(positional.size() + keywords.size());
  for (const nb::handle argument : positional)
    arguments.push_back(argument.ptr());
  if (keywords.size() == 0) {
    return checked(
        PyObject_Vectorcall(callable.ptr(), arguments.data(), arguments.size(), nullptr));
  }

  const nb::object names = checked(PyTuple_New(static_cast<Py_ssize_t>(keywords.size())));
  Py_ssize_t place = 0;
  for (const Keyword& keyword : keywords) {
    arguments.push_back(keyword.value.ptr());
    PyTuple_SET_ITEM(names.ptr(), place++, name_object(keyword.name).release().ptr());
  }
  return checked(
      PyObject_Vectorcall(callable.ptr(), arguments.data(), positional.size(), names.ptr()));
}

nb::object call_method(nb::handle object, const char* name,
                       std::initializer_list<nb::handle> positional,
                       std::initializer_list<Keyword> keywords) {
  return call(attribute(object, name), positional, keywords);
}

nb::object attribute(nb::handle object, const char* name) {
  return attribute(object, name_object(name));
}

nb::object attribute(nb::handle object, nb::handle name) {
  return checked(PyObject_GetAttr(object.ptr(), name.ptr()));
}

std::optional<nb::object> find_attribute(nb::handle object, nb::handle name) {
  // Spares the interpreter the making of an error that nobody sees.
  PyObject* found = nullptr;
#if PY_VERSION_HEX >= 0x030D0000
  checked(PyObject_GetOptionalAttr(object.ptr(), name.ptr(), &found));
#else
  checked(_PyObject_LookupAttr(object.ptr(), name.ptr(), &found));
#endif
  return found == nullptr ? std::nullopt : std::optional(nb::steal(found));
}

std::optional<nb::object> find_attribute(nb::handle object, std::string_view name) {
  return find_attribute(object, name_object(name));
}

nb::object attribute_or_none(nb::handle object, const char* name) {
  return find_attribute(object, std::string_view(name)).value_or(nb::none());
}

void set_attribute(nb::handle object, const char* name, nb::handle value) {
  checked(PyObject_SetAttrString(object.ptr(), name, value.ptr()));
}

bool is_true(nb::handle object) {
  return checked(PyObject_IsTrue(object.ptr())) != 0;
}

bool is_instance(nb::handle object, nb::handle type) {
  return checked(PyObject_IsInstance(object.ptr(), type.ptr())) != 0;
}

nb::object import_module(const char* name) {
  return checked(PyImport_ImportModule(name));
}

nb::object import_name(const char* module_name, const char* name) {
  const nb::object module = import_module(module_name);
  if (std::optional<nb::object> found = find_attribute(module, std::string_view(name))) {
    return *std::move(found);
  }
  const nb::object path = attribute_or_none(module, "__file__");
  const nb::object text = checked(
      path.is_none() ? PyUnicode_FromFormat("cannot import name '%s' from '%s' (unknown location)",
                                            name, module_name)
                     : PyUnicode_FromFormat("cannot import name '%s' from '%s' (%S)", name,
                                            module_name, path.ptr()));
  PyErr_SetImportError(text.ptr(), text_object(module_name).ptr(), path.ptr());
  throw_current_error();
}

nb::object name_object(std::string_view name) {
  struct Place {
    std::string name;
    PyObject* object = nullptr;
  };
  constexpr std::size_t kPlaces = 512;
  static auto* const table = new std::array<Place, kPlaces>();
  Place& place = (*table)[reinterpret_cast<std::uintptr_t>(name.data()) / sizeof(void*) % kPlaces];
  if (place.object == nullptr || place.name != name) {
    PyObject* made = text_object(name).release().ptr();
    PyUnicode_InternInPlace(&made);
    place.name = name;
    Py_XDECREF(std::exchange(place.object, made));
  }
  return nb::borrow(place.object);
}

PyObject* interned_text(const char* text) {
  return checked(PyUnicode_InternFromString(text)).release().ptr();
}

nb::object text_object(std::string_view text) {
  return checked(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogatepass"));
}

}  // namespace varnholt::python
