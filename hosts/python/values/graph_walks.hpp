// Walks over graphs of Python's exact types that go through the interpreter's own calls, without a
// value for each node.
//
// They give what the library's walks give, and give up where anything is unusual: a subclass, a key
// that is no text, a nesting too deep. Whoever called asks the library then, which also knows what
// to complain of. Nothing of the host has been asked until then, so that nobody can tell.
#pragma once

#include <nanobind/nanobind.h>

namespace varnholt::python {

namespace nb = nanobind;

// The frozen form, which is the structural key as well, and the plain copy. Null when they give up.
[[nodiscard]] nb::object walk_frozen(nb::handle graph);
[[nodiscard]] nb::object walk_plain(nb::handle graph);
// The plain value of a frozen form. Null when it gives up.
[[nodiscard]] nb::object walk_thawed(nb::handle frozen);

}  // namespace varnholt::python
