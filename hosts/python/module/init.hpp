// The compiled half of the Python module: one function for each rule, grouped as the library is.
//
// There is no logic here. A function takes Python objects, hands values to the library's function
// of the same name and gives its answer back. Those that need the host take it as first argument.
// The names that Python code sees, with signatures and docstrings, stand in python/.
#pragma once

#include <type_traits>

#include <nanobind/nanobind.h>

namespace varnholt::python {

namespace nb = nanobind;

// A parameter that takes any object, None among them, which the binding library would refuse.
class Any : public nb::object {
  static bool every_object(PyObject* /*object*/) noexcept { return true; }
  NB_OBJECT(Any, nb::object, "object", every_object)
};

void init_host(nb::module_& module);
void init_settings(nb::module_& module);
void init_graph(nb::module_& module);
void init_population(nb::module_& module);
void init_breeding(nb::module_& module);
void init_context(nb::module_& module);
void init_submission(nb::module_& module);
void init_evaluation(nb::module_& module);
void init_reaction(nb::module_& module);
void init_improvement(nb::module_& module);
void init_process_attempts(nb::module_& module);
void init_process(nb::module_& module);
void init_child(nb::module_& module);
void init_batch(nb::module_& module);
void init_driver(nb::module_& module);
void init_module_type(nb::module_& module);

}  // namespace varnholt::python

template <>
struct nanobind::detail::has_arg_defaults<varnholt::python::Any> : std::true_type {};
