#include "hosts/python/values/python_error.hpp"

#include "hosts/python/values/conversion.hpp"

namespace varnholt::python {
namespace {

// Takes the exception that is set, as one object that knows its traceback.
nb::object take_current_exception() {
#if PY_VERSION_HEX >= 0x030C0000
  return nb::steal(PyErr_GetRaisedException());
#else
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  if (traceback != nullptr) PyException_SetTraceback(value, traceback);
  Py_XDECREF(type);
  Py_XDECREF(traceback);
  return nb::steal(value);
#endif
}

bool is_kind(const nb::object& exception, PyObject* type) {
  // Exception types are compared along their bases, without running anybody's code.
  return PyErr_GivenExceptionMatches(exception.ptr(), type) != 0;
}

}  // namespace

std::string PythonErrorOrigin::type_name() const {
  return python::type_name(exception_);
}

bool PythonErrorOrigin::is_of(genetic::ErrorKind kind) const {
  switch (kind) {
    case genetic::ErrorKind::kTypeError:
      return is_kind(exception_, PyExc_TypeError);
    case genetic::ErrorKind::kValueError:
      return is_kind(exception_, PyExc_ValueError);
    case genetic::ErrorKind::kOverflowError:
      return is_kind(exception_, PyExc_OverflowError);
    case genetic::ErrorKind::kAttributeError:
      return is_kind(exception_, PyExc_AttributeError);
  }
  return false;
}

genetic::Value PythonErrorOrigin::object() const {
  return to_value(exception_);
}

nb::object python_origin(const genetic::Error& error) {
  const auto* const origin = dynamic_cast<const PythonErrorOrigin*>(error.origin().get());
  return origin == nullptr ? nb::object() : origin->exception();
}

void throw_current_error() {
  nb::object exception = take_current_exception();
  if (!exception.is_valid()) {
    throw genetic::RuntimeError("a Python operation failed without an exception");
  }
  throw_exception(std::move(exception));
}

void throw_exception(nb::object exception) {
  if (!is_kind(exception, PyExc_Exception)) throw PythonInterrupt(std::move(exception));

  const std::string name = python::type_name(exception);
  const nb::object kind = exception;
  const auto origin = std::make_shared<PythonErrorOrigin>(std::move(exception));
  // A kind stands before the kind that it is derived from.
  if (is_kind(kind, PyExc_RecursionError)) throw genetic::RecursionError(name, origin);
  if (is_kind(kind, PyExc_RuntimeError)) throw genetic::RuntimeError(name, origin);
  if (is_kind(kind, PyExc_KeyError)) throw genetic::KeyError(name, origin);
  if (is_kind(kind, PyExc_IndexError)) throw genetic::IndexError(name, origin);
  if (is_kind(kind, PyExc_LookupError)) throw genetic::LookupError(name, origin);
  if (is_kind(kind, PyExc_TypeError)) throw genetic::TypeError(name, origin);
  if (is_kind(kind, PyExc_ValueError)) throw genetic::ValueError(name, origin);
  if (is_kind(kind, PyExc_OverflowError)) throw genetic::OverflowError(name, origin);
  if (is_kind(kind, PyExc_AttributeError)) throw genetic::AttributeError(name, origin);
  throw genetic::Error(name, origin);
}

}  // namespace varnholt::python
