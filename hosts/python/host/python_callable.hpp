// Python's callables behind the library's Callable.
#pragma once

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/host/callable.hpp"

namespace varnholt::python {

namespace nb = nanobind;

class PythonCallable : public genetic::CallableBody {
 public:
  explicit PythonCallable(nb::object callable) : callable_(std::move(callable)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return callable_; }

  genetic::Value call(std::span<const genetic::Value> positional,
                      const genetic::Mapping& keywords) override;
  // What inspect.signature tells; nothing when it fails with TypeError or ValueError.
  [[nodiscard]] std::optional<std::vector<genetic::Parameter>> signature() const override;

 private:
  nb::object callable_;
};

// The object as an operation: empty when it cannot be called.
[[nodiscard]] genetic::Callable callable_or_empty(const nb::object& object);
// The object as an operation, whatever it is: one that cannot be called fails in the call.
[[nodiscard]] genetic::Callable any_callable(const nb::object& object);
// Empty for None; whatever else is given is called, and fails in the call if it cannot be.
[[nodiscard]] genetic::Callable callable_unless_none(const nb::object& object);
// A function of the module's that makes what the host is handed to call.
[[nodiscard]] nb::object callback_factory(const char* name);
// The Python object behind an operation; None behind an empty one.
[[nodiscard]] nb::object object_of(const genetic::Callable& callable);

}  // namespace varnholt::python
