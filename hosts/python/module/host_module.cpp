#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"

namespace varnholt::python {
namespace {

// The module's dict holds the host and the host holds the dict: the collector has to see it.
int traverse(PyObject* self, visitproc visit, void* arg) {
  // The interpreter's macro expects the names `visit` and `arg`.
  Py_VISIT(Py_TYPE(self));
  if (!nb::inst_ready(self)) return 0;
  const nb::object& globals = nb::inst_ptr<PythonHost>(self)->globals().dict();
  if (globals.is_valid()) Py_VISIT(globals.ptr());
  return 0;
}

int clear(PyObject* self) {
  if (nb::inst_ready(self)) nb::inst_ptr<PythonHost>(self)->globals().clear();
  return 0;
}

PyType_Slot collector_slots[] = {{Py_tp_traverse, reinterpret_cast<void*>(traverse)},
                                 {Py_tp_clear, reinterpret_cast<void*>(clear)},
                                 {0, nullptr}};

}  // namespace

void init_host(nb::module_& module) {
  nb::class_<PythonHost>(module, "Host", nb::type_slots(collector_slots))
      .def(nb::init<nb::object>());
}

}  // namespace varnholt::python
