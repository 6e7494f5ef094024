// The names of the Python module, as its functions see them.
//
// The host's modules and operations are bound in the Python module under fixed names and looked up
// here at each use: a host, or a test, may put others in their place at any time.
#pragma once

#include <utility>

#include <nanobind/nanobind.h>

namespace varnholt::python {

namespace nb = nanobind;

class ModuleGlobals {
 public:
  // `globals` is the module's own dict.
  explicit ModuleGlobals(nb::object globals) : globals_(std::move(globals)) {}

  // What the name is bound to now; NameError "name '_engine' is not defined".
  [[nodiscard]] nb::object get(const char* name) const;
  // An attribute of what the name is bound to.
  [[nodiscard]] nb::object get(const char* name, const char* attribute_name) const;

  [[nodiscard]] const nb::object& dict() const noexcept { return globals_; }
  void clear() { globals_.reset(); }

 private:
  nb::object globals_;
};

}  // namespace varnholt::python
