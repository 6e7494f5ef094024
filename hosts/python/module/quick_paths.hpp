// Short rules over Python's exact types, by the interpreter's own calls and without a value for
// each part.
//
// They do what the library does, and stand aside for whatever is unusual, for which the library is
// asked.
#pragma once

#include <nanobind/nanobind.h>

namespace varnholt::python {

namespace nb = nanobind;

// The number of a float, an int, a bool or a str. Null for anything else and for what is no number.
[[nodiscard]] nb::object quick_number(nb::handle value);

// The pair of a dict whose figures stand in itself or in a dict under "detail". Null for anything
// else.
[[nodiscard]] nb::object quick_failure_metric_pair(nb::handle failure);

// Writes index and depth into a list of dicts that no improvements belong to. False, with nothing
// written, for anything else.
[[nodiscard]] bool quick_annotation(nb::handle results, nb::handle start_index,
                                    nb::handle improvement_depth, nb::handle improvements);

}  // namespace varnholt::python
