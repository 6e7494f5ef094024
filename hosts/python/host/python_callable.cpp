#include "hosts/python/host/python_callable.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "hosts/python/values/python_object.hpp"
#include "search_templates/genetic/host/callable_value.hpp"
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
  return to_value(call_with_values(callable_, positional, keywords));
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

nb::object callback_factory(const char* name) {
  return attribute(import_module("varnholt.search_templates.genetic._callbacks"), name);
}

nb::object object_of(const genetic::Callable& callable) {
  if (const std::optional<genetic::Value> value = genetic::value_behind(callable)) {
    return to_python(*value);
  }
  const auto python = std::dynamic_pointer_cast<PythonCallable>(callable.body());
  return python == nullptr ? nb::none() : python->object();
}

}  // namespace varnholt::python
