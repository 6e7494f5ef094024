// What the walks over Python's exact types share: when they give up, and how that ends.
#pragma once

#include <nanobind/nanobind.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// A walk that has given up.
struct GaveUp {};

// What the walk gives, or nothing of that type.
template <typename Walk>
auto unless_it_gives_up(const Walk& walk) -> decltype(walk()) {
  try {
    return walk();
  } catch (const GaveUp&) {
    return {};
  }
}

inline void refuse_depth(int depth) {
  if (depth > genetic::kMaximumNesting) throw GaveUp();
}

inline bool is_scalar(PyObject* object) {
  const PyTypeObject* const type = Py_TYPE(object);
  return object == Py_None || type == &PyUnicode_Type || type == &PyLong_Type ||
         type == &PyFloat_Type || type == &PyBool_Type;
}

// Whether the object is a str of the exact type with the characters of `text`.
inline bool is_text(PyObject* object, PyObject* text) {
  if (object == text) return true;
  return Py_TYPE(object) == &PyUnicode_Type && PyUnicode_Compare(object, text) == 0;
}

}  // namespace varnholt::python
