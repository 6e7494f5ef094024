// The library's errors on their way out to Python.
//
// An error that began as a Python exception is that same object again, with its traceback. An error
// of the library's own becomes the built-in exception of its kind with the same text; what it was
// thrown over becomes its cause, and what it was thrown in place of its context, which Python does
// not show. A PythonInterrupt is the exception that it carries.
#pragma once

#include <exception>

#include <nanobind/nanobind.h>

namespace varnholt::python {

namespace nb = nanobind;

// The error with its exception object, which it has from now on: an error of the library's own gets
// one, with the exception that Python is handling as its context. Any other error is itself.
[[nodiscard]] std::exception_ptr hosted_error(const std::exception_ptr& error);

// Makes every function of the module raise as told above. Called once, when the module is made.
void register_errors();

// While it lives, `error` is what Python takes for the exception being handled: what `sys.exc_info`
// tells, and so what a log writes that is asked for the traceback.
class HandledException {
 public:
  explicit HandledException(const std::exception_ptr& error);
  HandledException(const HandledException&) = delete;
  HandledException& operator=(const HandledException&) = delete;
  ~HandledException();

 private:
  nb::object outer_type_;
  nb::object outer_value_;
  nb::object outer_traceback_;
};

}  // namespace varnholt::python
