#include "hosts/python/values/python_error.hpp"

#include <exception>
#include <string>

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

// The calls of python_api.hpp fail by what is made here, so that here the interpreter is called
// itself.
nb::object owned(PyObject* new_reference) {
  if (new_reference == nullptr) throw_current_error();
  return nb::steal(new_reference);
}

// The built-in exception type of an error's exact kind.
nb::object exception_type(const genetic::Error& error) {
  const nb::object builtins = owned(PyImport_ImportModule("builtins"));
  PyObject* const type =
      PyObject_GetAttrString(builtins.ptr(), std::string(error.type_name()).c_str());
  if (type == nullptr) PyErr_Clear();  // A kind of the library's own.
  nb::object found = nb::steal(type);
  if (type != nullptr && PyExceptionClass_Check(type) != 0) return found;
  return nb::borrow(PyExc_RuntimeError);
}

nb::object error_text(const genetic::Error& error) {
  const std::string& text = error.text();
  return owned(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogatepass"));
}

// What the exception is made with. A KeyError holds the key itself, whose text form the error has.
nb::object exception_argument(const genetic::Error& error) {
  nb::object text = error_text(error);
  if (dynamic_cast<const genetic::KeyError*>(&error) != nullptr) {
    const nb::object reader = owned(PyImport_ImportModule("ast"));
    PyObject* const key = PyObject_CallMethod(reader.ptr(), "literal_eval", "O", text.ptr());
    if (key != nullptr) return nb::steal(key);
    PyErr_Clear();  // A key of the host's own class: its text form has to do.
  }
  return text;
}

nb::object own_exception(const genetic::Error& error) {
  nb::object exception = owned(PyObject_CallFunctionObjArgs(
      exception_type(error).ptr(), exception_argument(error).ptr(), nullptr));
  const auto* const nested = dynamic_cast<const std::nested_exception*>(&error);
  if (nested != nullptr) {
    const nb::object cause = python_exception(nested->nested_ptr());
    if (cause.is_valid()) {
      // As `raise ... from cause` while the cause is being handled.
      PyException_SetCause(exception.ptr(), nb::object(cause).release().ptr());
      append_context(exception, cause);
    }
  }
  if (dynamic_cast<const genetic::InPlaceOfError*>(&error) != nullptr) {
    // As `raise ... from None`: the other error stays the context, which is not shown.
    PyException_SetCause(exception.ptr(), nullptr);
  }
  if (error.context()) append_context(exception, python_exception(error.context()));
  return exception;
}

// An exception that is raised while the library handles another has that one at the end of its
// chain of contexts, as everything has that is raised below an `except`.
void add_context(const nb::object& exception, const std::exception_ptr& handled) {
  if (handled) append_context(exception, python_exception(handled));
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

nb::object python_exception(const std::exception_ptr& error) {
  if (!error) return {};
  try {
    std::rethrow_exception(error);
  } catch (const PythonInterrupt& interrupt) {
    return interrupt.exception();
  } catch (const genetic::Error& own) {
    nb::object origin = python_origin(own);
    if (origin.is_valid()) return origin;
    nb::object made = own_exception(own);
    own.set_origin(std::make_shared<PythonErrorOrigin>(made));
    return made;
  } catch (...) {
    return {};
  }
}

void append_context(const nb::object& exception, const nb::object& context) {
  if (!context.is_valid()) return;
  // Whatever is in the one chain already must not be reached by the other: chains have no circles.
  nb::object last = exception;
  while (true) {
    if (last.is(context)) return;
    const nb::object next = nb::steal(PyException_GetContext(last.ptr()));
    if (!next.is_valid()) break;
    last = next;
  }
  for (nb::object link = context; link.is_valid();
       link = nb::steal(PyException_GetContext(link.ptr()))) {
    if (link.is(exception)) return;
  }
  // The call takes over what it is given.
  PyException_SetContext(last.ptr(), nb::object(context).release().ptr());
}

void throw_current_error() {
  nb::object exception = take_current_exception();
  if (!exception.is_valid()) {
    throw genetic::RuntimeError("a Python operation failed without an exception");
  }
  throw_exception(std::move(exception));
}

void throw_exception(nb::object exception) {
  add_context(exception, std::current_exception());
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
