#include "hosts/python/host/python_callable.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {
namespace {

using genetic::Parameter;
using genetic::ParameterKind;

ParameterKind parameter_kind(nb::handle parameter) {
  constexpr std::array<std::pair<std::string_view, ParameterKind>, 5> kKinds = {{
      {"POSITIONAL_ONLY", ParameterKind::kPositionalOnly},
      {"POSITIONAL_OR_KEYWORD", ParameterKind::kPositionalOrKeyword},
      {"VAR_POSITIONAL", ParameterKind::kVariablePositional},
      {"KEYWORD_ONLY", ParameterKind::kKeywordOnly},
      {"VAR_KEYWORD", ParameterKind::kVariableKeyword},
  }};
  const std::string name = text_of(attribute(attribute(parameter, "kind"), "name"));
  for (const auto& [known, kind] : kKinds) {
    if (known == name) return kind;
  }
  throw genetic::ValueError("unknown parameter kind: " + name);
}

}  // namespace

genetic::Value PythonCallable::call(std::span<const genetic::Value> positional,
                                    const genetic::Mapping& keywords) {
  const nb::object arguments = checked(PyTuple_New(static_cast<Py_ssize_t>(positional.size())));
  Py_ssize_t place = 0;
  for (const genetic::Value& argument : positional) {
    PyTuple_SET_ITEM(arguments.ptr(), place++, to_python(argument).release().ptr());
  }
  // A new dict: the mapping of keywords is the caller's, not an object to share.
  const nb::object named = checked(PyDict_New());
  genetic::MappingCursor cursor(keywords);
  while (const std::optional<genetic::MappingEntry> entry = cursor.next()) {
    checked(
        PyDict_SetItem(named.ptr(), to_python(entry->key).ptr(), to_python(entry->value).ptr()));
  }
  return to_value(checked(PyObject_Call(callable_.ptr(), arguments.ptr(), named.ptr())));
}

std::optional<std::vector<Parameter>> PythonCallable::signature() const {
  const nb::object signature = genetic::catching(
      {genetic::ErrorKind::kTypeError, genetic::ErrorKind::kValueError},
      [this] { return call_method(import_module("inspect"), "signature", {callable_}); },
      [](const genetic::Error&) { return nb::object(); });
  if (!signature.is_valid()) return std::nullopt;
  const nb::object values = call_method(attribute(signature, "parameters"), "values");
  const nb::object iterator = checked(PyObject_GetIter(values.ptr()));
  std::vector<Parameter> parameters;
  while (PyObject* const next = PyIter_Next(iterator.ptr())) {
    const nb::object parameter = nb::steal(next);
    parameters.push_back({text_of(attribute(parameter, "name")), parameter_kind(parameter)});
  }
  if (PyErr_Occurred() != nullptr) throw_current_error();
  return parameters;
}

genetic::Callable callable_or_empty(const nb::object& object) {
  return PyCallable_Check(object.ptr()) != 0 ? any_callable(object) : genetic::Callable();
}

genetic::Callable any_callable(const nb::object& object) {
  return genetic::Callable(std::make_shared<PythonCallable>(object));
}

genetic::Callable callable_unless_none(const nb::object& object) {
  return object.is_none() ? genetic::Callable() : any_callable(object);
}

nb::object object_of(const genetic::Callable& callable) {
  const auto python = std::dynamic_pointer_cast<PythonCallable>(callable.body());
  return python == nullptr ? nb::none() : python->object();
}

}  // namespace varnholt::python
