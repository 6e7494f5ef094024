#include "hosts/python/values/graph_walks.hpp"

#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {
namespace {

// A walk that has given up.
struct GaveUp {};

// Texts that are asked for at each node.
PyObject* interned(const char* text) {
  PyObject* const made = PyUnicode_InternFromString(text);
  if (made == nullptr) throw nb::python_error();
  return made;
}

struct Texts {
  PyObject* dict = interned("dict");
  PyObject* list = interned("list");
  PyObject* scalar = interned("scalar");
  PyObject* node = interned("node");
  PyObject* type = interned("type");
  PyObject* children = interned("children");
  PyObject* feature = interned("feature");
};

// They live as long as the interpreter does.
const Texts& texts() {
  static const auto* const kTexts = new Texts();
  return *kTexts;
}

bool is_scalar(PyObject* object) {
  const PyTypeObject* const type = Py_TYPE(object);
  return object == Py_None || type == &PyUnicode_Type || type == &PyLong_Type ||
         type == &PyFloat_Type || type == &PyBool_Type;
}

void refuse_depth(int depth) {
  if (depth > genetic::kMaximumNesting) throw GaveUp();
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

bool is_text(PyObject* object, PyObject* text) {
  if (object == text) return true;
  return Py_TYPE(object) == &PyUnicode_Type && PyUnicode_Compare(object, text) == 0;
}

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

// Adds the names of a graph to a set.
class NameWalk {
 public:
  NameWalk(PyObject* names, bool features_only) : names_(names), features_only_(features_only) {}

  void walk(PyObject* graph, int depth) {
    if (Py_TYPE(graph) == &PyDict_Type) {
      walk_node(graph, depth);
    } else if (Py_TYPE(graph) == &PyList_Type || Py_TYPE(graph) == &PyTuple_Type) {
      walk_sequence(graph, depth);
    } else if (!is_scalar(graph)) {
      throw GaveUp();
    }
  }

 private:
  static PyObject* entry(PyObject* node, PyObject* key) {
    PyObject* const found = PyDict_GetItemWithError(node, key);
    if (found == nullptr && PyErr_Occurred() != nullptr) {
      PyErr_Clear();
      throw GaveUp();
    }
    return found;
  }

  // Whether the names of this node count.
  [[nodiscard]] bool is_wanted(PyObject* node) const {
    if (!features_only_) return true;
    PyObject* const type = entry(node, texts().type);
    if (type == nullptr || type == Py_None) return false;
    if (Py_TYPE(type) != &PyUnicode_Type) throw GaveUp();
    return type == texts().feature || PyUnicode_Compare(type, texts().feature) == 0;
  }

  void walk_node(PyObject* node, int depth) {
    refuse_depth(depth);
    if (is_wanted(node)) {
      PyObject* const name = entry(node, texts().node);
      if (name != nullptr && !is_scalar(name)) throw GaveUp();
      if (name != nullptr && Py_TYPE(name) == &PyUnicode_Type && PyUnicode_GET_LENGTH(name) != 0) {
        checked(PySet_Add(names_, name));
      }
    }
    PyObject* const children = entry(node, texts().children);
    if (children == nullptr) return;
    if (Py_TYPE(children) != &PyList_Type && Py_TYPE(children) != &PyTuple_Type) throw GaveUp();
    walk_sequence(children, depth);
  }

  void walk_sequence(PyObject* sequence, int depth) {
    refuse_depth(depth);
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
      const nb::object held = nb::borrow(PySequence_Fast_GET_ITEM(sequence, i));
      walk(held.ptr(), depth + 1);
    }
  }

  PyObject* names_;
  bool features_only_;
};

template <typename Walk>
nb::object unless_it_gives_up(const Walk& walk) {
  try {
    return walk();
  } catch (const GaveUp&) {
    return {};
  }
}

nb::object names_of(nb::handle graph, bool features_only) {
  return unless_it_gives_up([&] {
    nb::object names = checked(PySet_New(nullptr));
    NameWalk(names.ptr(), features_only).walk(graph.ptr(), 0);
    return names;
  });
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

nb::object walk_node_names(nb::handle graph) {
  return names_of(graph, false);
}

nb::object walk_feature_names(nb::handle graph) {
  return names_of(graph, true);
}

}  // namespace varnholt::python
