#include "hosts/python/errors/outgoing.hpp"

#include <array>
#include <string>
#include <utility>

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {
namespace {

void raise(nb::object exception) {
#if PY_VERSION_HEX >= 0x030C0000
  PyErr_SetRaisedException(exception.release().ptr());
#else
  PyObject* const type = reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr()));
  Py_INCREF(type);
  PyObject* const traceback = PyException_GetTraceback(exception.ptr());
  PyErr_Restore(type, exception.release().ptr(), traceback);
#endif
}

// The exception that Python is handling, or null.
nb::object handled_exception() {
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_GetExcInfo(&type, &value, &traceback);
  Py_XDECREF(type);
  Py_XDECREF(traceback);
  const nb::object handled = nb::steal(value);
  return handled.is_valid() && !handled.is_none() ? handled : nb::object();
}

// An exception that is raised for the first time gets the one that Python is handling at the end of
// its chain of contexts; one that is on its way already keeps what it has.
void raise_new(const nb::object& exception) {
  append_context(exception, handled_exception());
  raise(exception);
}

// An exception of another class is left to the binding library's own translation.
void translate(const std::exception_ptr& error, void* /*payload*/) {
  nb::object exception = python_exception(error);
  if (!exception.is_valid()) std::rethrow_exception(error);
  const nb::object traceback = nb::steal(PyException_GetTraceback(exception.ptr()));
  if (traceback.is_valid()) {
    raise(std::move(exception));
  } else {
    raise_new(exception);
  }
}

}  // namespace

std::exception_ptr hosted_error(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const genetic::Error& own) {
    if (own.origin() != nullptr) return error;
  } catch (...) {
    return error;
  }
  const nb::object exception = python_exception(error);
  try {
    // Setting it is what gives it its context.
    raise_new(exception);
    throw_current_error();
  } catch (...) {
    return std::current_exception();
  }
}

void register_errors() {
  nb::register_exception_translator(translate);
}

HandledException::HandledException(const std::exception_ptr& error) {
  const nb::object exception = python_exception(error);
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_GetExcInfo(&type, &value, &traceback);
  outer_type_ = nb::steal(type);
  outer_value_ = nb::steal(value);
  outer_traceback_ = nb::steal(traceback);
  if (!exception.is_valid()) return;

  PyObject* const own_type = reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr()));
  Py_INCREF(own_type);
  Py_INCREF(exception.ptr());
  PyErr_SetExcInfo(own_type, exception.ptr(), PyException_GetTraceback(exception.ptr()));
}

HandledException::~HandledException() {
  PyErr_SetExcInfo(outer_type_.release().ptr(), outer_value_.release().ptr(),
                   outer_traceback_.release().ptr());
}

}  // namespace varnholt::python
