// Values and Python objects, one into the other.
//
//   None, bool, int within 64 bits, float but NaN, str that is valid Unicode, tuple   by value
//   list, dict                                     shared: ListStorage and MappingStorage over it
//   everything else, subclasses of the above too   an object (python_object.hpp)
//
// Only the exact types count. What is taken by value remembers its object and is handed back as
// that. A list or mapping of the library's own becomes a list or dict once, and is that object from
// then on on both sides; a tuple of the library's own is made anew each time.
#pragma once

#include <string>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// RecursionError for tuples nested deeper than kMaximumTupleNesting.
[[nodiscard]] genetic::Value to_value(nb::handle object);
[[nodiscard]] nb::object to_python(const genetic::Value& value);

// The object as an object of the host, whatever its type, for what is handed on and not looked
// into; None stays absent.
[[nodiscard]] genetic::Value opaque_value(nb::handle object);

// A frozen graph has three tuples for each level of the graph.
inline constexpr int kMaximumTupleNesting = 3000;

// The characters of a str, of a subclass too, as UTF-8; surrogates pass.
[[nodiscard]] std::string text_of(nb::handle text);
// str(object) and the name of its exact type.
[[nodiscard]] std::string str_of(nb::handle object);
[[nodiscard]] std::string type_name(nb::handle object);

}  // namespace varnholt::python
