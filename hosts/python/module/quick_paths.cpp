#include "hosts/python/module/quick_paths.hpp"

#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"

namespace varnholt::python {
namespace {

struct Texts {
  PyObject* value = interned_text("value");
  PyObject* threshold = interned_text("threshold");
  PyObject* detail = interned_text("detail");
  PyObject* candidate_index = interned_text("candidate_index");
  PyObject* improvement_depth = interned_text("improvement_depth");
};

// They live as long as the interpreter does.
const Texts& texts() {
  static const auto* const kTexts = new Texts();
  return *kTexts;
}

// The converted number, or nothing after an error of that type.
nb::object unless_it_failed(PyObject* converted, PyObject* error) {
  if (converted != nullptr) return nb::steal(converted);
  if (PyErr_ExceptionMatches(error) == 0) throw_current_error();
  PyErr_Clear();
  return {};
}

// mapping.get(key) of an exact dict.
nb::object entry(PyObject* dict, PyObject* key) {
  PyObject* const found = PyDict_GetItemWithError(dict, key);
  if (found == nullptr && PyErr_Occurred() != nullptr) throw_current_error();
  return found == nullptr ? nb::none() : nb::borrow(found);
}

nb::object pair_of(const nb::object& first, const nb::object& second) {
  return checked(PyTuple_Pack(2, first.ptr(), second.ptr()));
}

bool is_exact(nb::handle object, const PyTypeObject& type) {
  return Py_TYPE(object.ptr()) == &type;
}

bool are_dicts(PyObject* list) {
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
    if (!is_exact(PyList_GET_ITEM(list, i), PyDict_Type)) return false;
  }
  return true;
}

}  // namespace

nb::object quick_number(nb::handle value) {
  PyObject* const pointer = value.ptr();
  if (is_exact(value, PyFloat_Type)) return nb::borrow(value);
  if (is_exact(value, PyUnicode_Type)) {
    return unless_it_failed(PyFloat_FromString(pointer), PyExc_ValueError);
  }
  if (is_exact(value, PyLong_Type) || is_exact(value, PyBool_Type)) {
    return unless_it_failed(PyNumber_Float(pointer), PyExc_OverflowError);
  }
  return {};
}

nb::object quick_failure_metric_pair(nb::handle failure) {
  if (!is_exact(failure, PyDict_Type)) return {};
  const nb::object value = entry(failure.ptr(), texts().value);
  const nb::object threshold = entry(failure.ptr(), texts().threshold);
  if (!value.is_none() || !threshold.is_none()) return pair_of(value, threshold);
  const nb::object detail = entry(failure.ptr(), texts().detail);
  if (!is_exact(detail, PyDict_Type)) return {};
  const nb::object detail_value = entry(detail.ptr(), texts().value);
  return pair_of(detail_value, entry(detail.ptr(), texts().threshold));
}

bool quick_annotation(nb::handle results, nb::handle start_index, nb::handle improvement_depth,
                      nb::handle improvements) {
  const bool has_none = improvements.is_none() || (is_exact(improvements, PyList_Type) &&
                                                   PyList_GET_SIZE(improvements.ptr()) == 0);
  if (!has_none || !is_exact(results, PyList_Type) || !is_exact(start_index, PyLong_Type) ||
      !is_exact(improvement_depth, PyLong_Type) || !are_dicts(results.ptr())) {
    return false;
  }
  // Of what an entry replaces, the end may change the list: each item is set as Python sets it.
  nb::object index = nb::borrow(start_index);
  const nb::object one = checked(PyLong_FromLong(1));
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(results.ptr()); ++i) {
    const nb::object result = nb::borrow(PyList_GET_ITEM(results.ptr(), i));
    checked(PyObject_SetItem(result.ptr(), texts().candidate_index, index.ptr()));
    checked(PyObject_SetItem(result.ptr(), texts().improvement_depth, improvement_depth.ptr()));
    index = checked(PyNumber_Add(index.ptr(), one.ptr()));
  }
  return true;
}

}  // namespace varnholt::python
