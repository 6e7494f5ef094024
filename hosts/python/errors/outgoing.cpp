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

// The built-in exception type of an error's exact kind.
nb::object exception_type(const genetic::Error& error) {
  const nb::object builtins = import_module("builtins");
  const std::optional<nb::object> type = find_attribute(builtins, error.type_name());
  if (type && PyExceptionClass_Check(type->ptr()) != 0) return *type;
  return nb::borrow(PyExc_RuntimeError);
}

// What the exception is made with. A KeyError holds the key itself, whose text form the error has.
nb::object exception_argument(const genetic::Error& error) {
  if (dynamic_cast<const genetic::KeyError*>(&error) != nullptr) {
    const nb::object text = text_object(error.text());
    PyObject* const key =
        PyObject_CallMethod(import_module("ast").ptr(), "literal_eval", "O", text.ptr());
    if (key != nullptr) return nb::steal(key);
    PyErr_Clear();  // A key of the host's own class: its text form has to do.
  }
  return text_object(error.text());
}

// The calls of the interpreter take over what they are given.
void set_context(const nb::object& exception, const nb::object& context) {
  if (context.is_valid()) {
    PyException_SetContext(exception.ptr(), nb::object(context).release().ptr());
  }
}

nb::object own_exception(const genetic::Error& error) {
  nb::object exception = call(exception_type(error), {exception_argument(error)});
  const auto* const nested = dynamic_cast<const std::nested_exception*>(&error);
  if (nested != nullptr) {
    const nb::object cause = python_exception(nested->nested_ptr());
    if (cause.is_valid()) {
      // As `raise ... from cause` while the cause is being handled.
      PyException_SetCause(exception.ptr(), nb::object(cause).release().ptr());
      set_context(exception, cause);
    }
  }
  if (const auto* const in_place = dynamic_cast<const genetic::InPlaceOfError*>(&error)) {
    // As `raise ... from None`: the other error stays the context, which is not shown.
    PyException_SetCause(exception.ptr(), nullptr);
    set_context(exception, python_exception(in_place->replaced()));
  }
  return exception;
}

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

// An exception that is raised for the first time gets the one that Python is handling as its
// context, unless it has one; one that is on its way already keeps what it has.
void raise_new(const nb::object& exception) {
  const nb::object context = nb::steal(PyException_GetContext(exception.ptr()));
  if (context.is_valid()) {
    raise(exception);
  } else {
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
  }
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

nb::object python_exception(const std::exception_ptr& error) {
  if (!error) return {};
  try {
    std::rethrow_exception(error);
  } catch (const PythonInterrupt& interrupt) {
    return interrupt.exception();
  } catch (const genetic::Error& own) {
    nb::object origin = python_origin(own);
    return origin.is_valid() ? origin : own_exception(own);
  } catch (...) {
    return {};
  }
}

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
