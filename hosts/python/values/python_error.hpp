// Python's exceptions on their way into the library.
//
// An exception becomes the library's error of its kind and carries the very exception object, so
// that the same object, traceback included, can be raised again when the error leaves the library.
// What is no `Exception` (KeyboardInterrupt, SystemExit, GeneratorExit) becomes a PythonInterrupt,
// which is no std::exception either: nothing that handles ordinary errors sees it.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <utility>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::python {

namespace nb = nanobind;

class PythonErrorOrigin : public genetic::ErrorOrigin {
 public:
  explicit PythonErrorOrigin(nb::object exception) : exception_(std::move(exception)) {}

  [[nodiscard]] const nb::object& exception() const noexcept { return exception_; }

  [[nodiscard]] std::string type_name() const override;
  [[nodiscard]] bool is_of(genetic::ErrorKind kind) const override;
  [[nodiscard]] genetic::Value object() const override;

 private:
  nb::object exception_;
};

// The exception object behind an error of the library; null where there is none.
[[nodiscard]] nb::object python_origin(const genetic::Error& error);

// The exception object for an error of the library, one and the same at each call; null for an
// exception of any other class.
[[nodiscard]] nb::object python_exception(const std::exception_ptr& error);

// Puts `context`, which may be null, at the end of the exception's chain of contexts, unless it is
// in it.
void append_context(const nb::object& exception, const nb::object& context);

// A Python exception that is no `Exception`.
class PythonInterrupt {
 public:
  explicit PythonInterrupt(nb::object exception) : exception_(std::move(exception)) {}

  [[nodiscard]] const nb::object& exception() const noexcept { return exception_; }

 private:
  nb::object exception_;
};

// Takes the exception that Python has set and throws what stands for it. The text of the error is
// the name of the exception's type alone: asking the exception for its own text would run the
// host's code, and who needs it asks the object.
[[noreturn]] void throw_current_error();

// The same for an exception object that nobody has raised yet.
[[noreturn]] void throw_exception(nb::object exception);

}  // namespace varnholt::python
