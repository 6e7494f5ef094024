// The class of the module object, made fast.
//
// A class with a `__getattr__` of its own has each of its attributes looked up by name in every
// base, only to find out how to look it up, which takes longer than many a call into the module.
// Here the class looks where a module looks, and asks `__getattr__` for what is not there.
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {
namespace {

// What the interpreter gave the class for its `__getattr__`.
getattrofunc& slow_lookup() {
  static getattrofunc lookup = nullptr;
  return lookup;
}

PyObject* look_up(PyObject* module, PyObject* name) {
  PyObject* const found = PyModule_Type.tp_getattro(module, name);
  if (found != nullptr || PyErr_ExceptionMatches(PyExc_AttributeError) == 0) return found;
  PyErr_Clear();
  return slow_lookup()(module, name);
}

void quicken(nb::handle type) {
  auto* const module_type = reinterpret_cast<PyTypeObject*>(type.ptr());
  if (module_type->tp_getattro == look_up) return;
  slow_lookup() = module_type->tp_getattro;
  module_type->tp_getattro = look_up;
  PyType_Modified(module_type);
}

}  // namespace

void init_module_type(nb::module_& module) {
  module.def("quicken", [](const Any& type) { quicken(type); });
}

}  // namespace varnholt::python
