#include "hosts/python/values/graph_readings.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "hosts/python/values/exact_walk.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/value/number_text.hpp"
#include "search_templates/genetic/value/text.hpp"

namespace varnholt::python {
namespace {

// Texts that are asked for at each node.
struct Texts {
  PyObject* node = interned_text("node");
  PyObject* type = interned_text("type");
  PyObject* children = interned_text("children");
  PyObject* feature = interned_text("feature");
};

// They live as long as the interpreter does.
const Texts& texts() {
  static const auto* const kTexts = new Texts();
  return *kTexts;
}

// The characters of a str of the exact type, which are valid as long as it lives.
std::string_view characters(PyObject* text) {
  Py_ssize_t size = 0;
  const char* const bytes = PyUnicode_AsUTF8AndSize(text, &size);
  if (bytes == nullptr) {  // It is no valid Unicode.
    PyErr_Clear();
    throw GaveUp();
  }
  return {bytes, static_cast<std::size_t>(size)};
}

std::int64_t integer(PyObject* number) {
  int overflow = 0;
  const long long value = PyLong_AsLongLongAndOverflow(number, &overflow);
  if (overflow != 0) throw GaveUp();
  return value;
}

// A NaN is no number to compare by.
double real(PyObject* number) {
  const double value = PyFloat_AS_DOUBLE(number);
  if (std::isnan(value)) throw GaveUp();
  return value;
}

// The two walks below run no code of anybody's, so that no entry has to be held meanwhile.

template <typename Take>
void for_each_entry(PyObject* dict, const Take& take) {
  Py_ssize_t position = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  while (PyDict_Next(dict, &position, &key, &value) != 0) {
    if (Py_TYPE(key) != &PyUnicode_Type) throw GaveUp();
    take(characters(key), value);
  }
}

void tell(PyObject* value, int depth, genetic::PlainParts& parts) {
  const PyTypeObject* const type = Py_TYPE(value);
  if (type == &PyUnicode_Type) return parts.on_text(characters(value));
  if (type == &PyLong_Type) return parts.on_integer(integer(value));
  if (type == &PyBool_Type) return parts.on_integer(value == Py_True ? 1 : 0);
  if (value == Py_None) return parts.on_absent();
  if (type == &PyFloat_Type) {
    if (!parts.on_real(real(value))) throw GaveUp();
    return;
  }
  refuse_depth(depth);
  if (type == &PyDict_Type) {
    parts.on_mapping(static_cast<std::size_t>(PyDict_GET_SIZE(value)));
    for_each_entry(value, [&](std::string_view key, PyObject* item) {
      parts.on_text(key);
      tell(item, depth + 1, parts);
    });
    return;
  }
  if (type != &PyList_Type) throw GaveUp();
  parts.on_list(static_cast<std::size_t>(PyList_GET_SIZE(value)));
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(value); ++i)
    tell(PyList_GET_ITEM(value, i), depth + 1, parts);
}

// Writes a graph as JSON does, with the keys of each mapping in order.
class CanonicalText {
 public:
  void write(PyObject* value, int depth) {
    const PyTypeObject* const type = Py_TYPE(value);
    if (type == &PyUnicode_Type) {
      write_text(characters(value));
    } else if (type == &PyDict_Type) {
      write_dict(value, depth);
    } else if (type == &PyList_Type) {
      write_list(value, depth);
    } else if (type == &PyLong_Type) {
      genetic::append_integer(out_, integer(value));
    } else if (type == &PyFloat_Type) {
      genetic::append_float_json(out_, real(value));
    } else if (type == &PyBool_Type) {
      out_ += value == Py_True ? "true" : "false";
    } else if (value == Py_None) {
      out_ += "null";
    } else {
      throw GaveUp();
    }
  }

  [[nodiscard]] std::string take() { return std::move(out_); }

 private:
  struct Entry {
    std::string_view key;
    PyObject* value = nullptr;
  };

  // The entries of all dicts on the way down stand in one buffer, one behind the other.
  void write_dict(PyObject* dict, int depth) {
    refuse_depth(depth + 1);
    const std::size_t start = entries_.size();
    for_each_entry(dict, [this](std::string_view key, PyObject* value) {
      entries_.push_back({key, value});
    });
    std::sort(entries_.begin() + static_cast<std::ptrdiff_t>(start), entries_.end(),
              [](const Entry& left, const Entry& right) { return left.key < right.key; });
    const std::size_t end = entries_.size();
    out_ += '{';
    for (std::size_t i = start; i < end; ++i) {
      const Entry entry = entries_[i];
      if (i > start) out_ += ',';
      write_text(entry.key);
      out_ += ':';
      write(entry.value, depth + 1);
    }
    out_ += '}';
    entries_.resize(start);
  }

  void write_list(PyObject* list, int depth) {
    refuse_depth(depth + 1);
    out_ += '[';
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
      if (i > 0) out_ += ',';
      write(PyList_GET_ITEM(list, i), depth + 1);
    }
    out_ += ']';
  }

  void write_text(std::string_view text) {
    const bool is_plain = std::all_of(text.begin(), text.end(), [](char c) {
      return c >= ' ' && c <= '~' && c != '"' && c != '\\';
    });
    if (!is_plain) return genetic::append_json_string(out_, text);
    out_ += '"';
    out_ += text;
    out_ += '"';
  }

  std::string out_;
  std::vector<Entry> entries_;
};

// Takes the names of a graph.
template <typename Take>
class NameWalk {
 public:
  NameWalk(bool features_only, Take take) : take_(std::move(take)), features_only_(features_only) {}

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
    return is_text(type, texts().feature);
  }

  void walk_node(PyObject* node, int depth) {
    refuse_depth(depth);
    if (is_wanted(node)) {
      PyObject* const name = entry(node, texts().node);
      if (name != nullptr && !is_scalar(name)) throw GaveUp();
      if (name != nullptr && Py_TYPE(name) == &PyUnicode_Type && PyUnicode_GET_LENGTH(name) != 0) {
        take_(name);
      }
    }
    PyObject* const children = entry(node, texts().children);
    if (children == nullptr) return;
    if (Py_TYPE(children) != &PyList_Type && Py_TYPE(children) != &PyTuple_Type) throw GaveUp();
    // A look-up further down may run code that takes the children from the node.
    const nb::object held = nb::borrow(children);
    walk_sequence(held.ptr(), depth);
  }

  void walk_sequence(PyObject* sequence, int depth) {
    refuse_depth(depth);
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(sequence); ++i) {
      const nb::object held = nb::borrow(PySequence_Fast_GET_ITEM(sequence, i));
      walk(held.ptr(), depth + 1);
    }
  }

  Take take_;
  bool features_only_;
};

nb::object names_of(nb::handle graph, bool features_only) {
  return unless_it_gives_up([&] {
    nb::object names = checked(PySet_New(nullptr));
    const auto add = [&names](PyObject* name) { checked(PySet_Add(names.ptr(), name)); };
    NameWalk(features_only, add).walk(graph.ptr(), 0);
    return names;
  });
}

}  // namespace

nb::object walk_node_names(nb::handle graph) {
  return names_of(graph, false);
}

nb::object walk_feature_names(nb::handle graph) {
  return names_of(graph, true);
}

std::optional<std::string> walk_canonical_text(nb::handle graph) {
  return unless_it_gives_up([&]() -> std::optional<std::string> {
    CanonicalText text;
    text.write(graph.ptr(), 0);
    return text.take();
  });
}

bool walk_parts(nb::handle graph, genetic::PlainParts& parts) {
  return unless_it_gives_up([&] {
    tell(graph.ptr(), 0, parts);
    return true;
  });
}

bool walk_names(nb::handle graph, genetic::NamedNodes which,
                const std::function<void(std::string_view)>& take) {
  return unless_it_gives_up([&] {
    const auto take_text = [&take](PyObject* name) { take(characters(name)); };
    NameWalk(which == genetic::NamedNodes::kFeatures, take_text).walk(graph.ptr(), 0);
    return true;
  });
}

}  // namespace varnholt::python
