#include "hosts/python/values/graph_walks.hpp"

#include <utility>

#include "hosts/python/values/exact_walk.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {
namespace {

// The kinds of a frozen form.
struct Texts {
  PyObject* dict = interned_text("dict");
  PyObject* list = interned_text("list");
  PyObject* scalar = interned_text("scalar");
};

// They live as long as the interpreter does.
const Texts& texts() {
  static const auto* const kTexts = new Texts();
  return *kTexts;
}

// Walks a dict whose keys are texts. Each entry is held while `take` has it: making an object may
// run the collector, and with it anybody's code.
template <typename Take>
void walk_dict(PyObject* dict, const Take& take) {
  const Py_ssize_t size = PyDict_GET_SIZE(dict);
  Py_ssize_t position = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  while (PyDict_Next(dict, &position, &key, &value) != 0) {
    if (Py_TYPE(key) != &PyUnicode_Type) throw GaveUp();
    const nb::object held_key = nb::borrow(key);
    const nb::object held_value = nb::borrow(value);
    take(held_key, held_value);
    if (PyDict_GET_SIZE(dict) != size) throw GaveUp();
  }
}

nb::object pair(PyObject* first, nb::object second) {
  nb::object made = checked(PyTuple_New(2));
  Py_INCREF(first);
  PyTuple_SET_ITEM(made.ptr(), 0, first);
  PyTuple_SET_ITEM(made.ptr(), 1, second.release().ptr());
  return made;
}

nb::object frozen(PyObject* value, int depth);

nb::object frozen_dict(PyObject* dict, int depth) {
  const Py_ssize_t size = PyDict_GET_SIZE(dict);
  nb::object pairs = checked(PyTuple_New(size));
  Py_ssize_t place = 0;
  walk_dict(dict, [&](const nb::object& key, const nb::object& value) {
    if (place == size) throw GaveUp();
    nb::object item = frozen(value.ptr(), depth + 1);
    PyTuple_SET_ITEM(pairs.ptr(), place++, pair(key.ptr(), std::move(item)).release().ptr());
  });
  if (place != size) throw GaveUp();
  return pair(texts().dict, std::move(pairs));
}

nb::object frozen_list(PyObject* list, int depth) {
  const Py_ssize_t size = PyList_GET_SIZE(list);
  nb::object items = checked(PyTuple_New(size));
  for (Py_ssize_t i = 0; i < size; ++i) {
    if (i >= PyList_GET_SIZE(list)) throw GaveUp();
    const nb::object held = nb::borrow(PyList_GET_ITEM(list, i));
    PyTuple_SET_ITEM(items.ptr(), i, frozen(held.ptr(), depth + 1).release().ptr());
  }
  return pair(texts().list, std::move(items));
}

nb::object frozen(PyObject* value, int depth) {
  if (is_scalar(value)) return pair(texts().scalar, nb::borrow(value));
  refuse_depth(depth);
  if (Py_TYPE(value) == &PyDict_Type) return frozen_dict(value, depth);
  if (Py_TYPE(value) == &PyList_Type) return frozen_list(value, depth);
  throw GaveUp();
}

nb::object plain(PyObject* value, int depth) {
  if (is_scalar(value)) return nb::borrow(value);
  refuse_depth(depth);
  if (Py_TYPE(value) == &PyDict_Type) {
    nb::object copy = checked(PyDict_New());
    walk_dict(value, [&](const nb::object& key, const nb::object& item) {
      checked(PyDict_SetItem(copy.ptr(), key.ptr(), plain(item.ptr(), depth + 1).ptr()));
    });
    return copy;
  }
  if (Py_TYPE(value) != &PyList_Type) throw GaveUp();
  const Py_ssize_t size = PyList_GET_SIZE(value);
  nb::object copy = checked(PyList_New(size));
  for (Py_ssize_t i = 0; i < size; ++i) {
    if (i >= PyList_GET_SIZE(value)) throw GaveUp();
    const nb::object held = nb::borrow(PyList_GET_ITEM(value, i));
    PyList_SET_ITEM(copy.ptr(), i, plain(held.ptr(), depth + 1).release().ptr());
  }
  return copy;
}

// The two items of a pair of the exact type.
struct Pair {
  explicit Pair(PyObject* pair) {
    if (Py_TYPE(pair) != &PyTuple_Type || PyTuple_GET_SIZE(pair) != 2) throw GaveUp();
    first = PyTuple_GET_ITEM(pair, 0);
    second = PyTuple_GET_ITEM(pair, 1);
  }

  PyObject* first;
  PyObject* second;
};

// A form holds tuples alone, which nobody can change meanwhile.
nb::object thawed(PyObject* form, int depth) {
  refuse_depth(depth);
  const Pair kind(form);
  if (is_text(kind.first, texts().scalar)) return nb::borrow(kind.second);
  if (Py_TYPE(kind.second) != &PyTuple_Type) throw GaveUp();
  const Py_ssize_t size = PyTuple_GET_SIZE(kind.second);
  if (is_text(kind.first, texts().dict)) {
    nb::object mapping = checked(PyDict_New());
    for (Py_ssize_t i = 0; i < size; ++i) {
      const Pair entry(PyTuple_GET_ITEM(kind.second, i));
      if (Py_TYPE(entry.first) != &PyUnicode_Type) throw GaveUp();
      checked(PyDict_SetItem(mapping.ptr(), entry.first, thawed(entry.second, depth + 1).ptr()));
    }
    return mapping;
  }
  if (!is_text(kind.first, texts().list)) throw GaveUp();
  nb::object list = checked(PyList_New(size));
  for (Py_ssize_t i = 0; i < size; ++i) {
    nb::object item = thawed(PyTuple_GET_ITEM(kind.second, i), depth + 1);
    PyList_SET_ITEM(list.ptr(), i, item.release().ptr());
  }
  return list;
}

}  // namespace

nb::object walk_frozen(nb::handle graph) {
  return unless_it_gives_up([&] { return frozen(graph.ptr(), 0); });
}

nb::object walk_plain(nb::handle graph) {
  return unless_it_gives_up([&] { return plain(graph.ptr(), 0); });
}

nb::object walk_thawed(nb::handle frozen) {
  return unless_it_gives_up([&] { return thawed(frozen.ptr(), 0); });
}

}  // namespace varnholt::python
