#include "hosts/python/host/module_globals.hpp"

#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"

namespace varnholt::python {

nb::object ModuleGlobals::get(const char* name) const {
  const nb::object key = name_object(name);
  PyObject* const found = PyDict_GetItemWithError(globals_.ptr(), key.ptr());
  if (found != nullptr) return nb::borrow(found);
  if (PyErr_Occurred() == nullptr) PyErr_Format(PyExc_NameError, "name '%s' is not defined", name);
  throw_current_error();
}

nb::object ModuleGlobals::get(const char* name, const char* attribute_name) const {
  return attribute(get(name), attribute_name);
}

}  // namespace varnholt::python
