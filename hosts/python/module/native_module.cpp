#include <nanobind/nanobind.h>

#include "hosts/python/errors/outgoing.hpp"
#include "hosts/python/module/init.hpp"

NB_MODULE(_native, module) {
  namespace python = varnholt::python;
  python::register_errors();
  python::init_host(module);
  python::init_settings(module);
  python::init_graph(module);
  python::init_population(module);
  python::init_breeding(module);
  python::init_context(module);
  python::init_submission(module);
  python::init_evaluation(module);
  python::init_reaction(module);
  python::init_improvement(module);
  python::init_process_attempts(module);
  python::init_process(module);
  python::init_child(module);
  python::init_batch(module);
  python::init_driver(module);
  python::init_module_type(module);
}
