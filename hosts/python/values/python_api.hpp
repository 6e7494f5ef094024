// Calls into the interpreter that fail as the library's errors do.
//
// Every operation throws what throw_current_error makes of the exception that Python sets. All of
// them expect the interpreter's lock, which the module holds throughout.
#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

#include <nanobind/nanobind.h>

namespace varnholt::python {

namespace nb = nanobind;

// Takes over a new reference that a call of the interpreter gave; null means that it failed.
[[nodiscard]] nb::object checked(PyObject* new_reference);
// A status below zero means that the call failed. Returns the status.
int checked(int status);

struct Keyword {
  const char* name;
  nb::handle value;
};

nb::object call(nb::handle callable, std::initializer_list<nb::handle> positional = {},
                std::initializer_list<Keyword> keywords = {});
nb::object call_method(nb::handle object, const char* name,
                       std::initializer_list<nb::handle> positional = {},
                       std::initializer_list<Keyword> keywords = {});

// The attribute, or an AttributeError.
[[nodiscard]] nb::object attribute(nb::handle object, const char* name);
[[nodiscard]] nb::object attribute(nb::handle object, nb::handle name);
// The attribute, or nothing when reading it raises AttributeError. Every other failure passes.
// TypeError for a name that is not a text.
[[nodiscard]] std::optional<nb::object> find_attribute(nb::handle object, nb::handle name);
[[nodiscard]] std::optional<nb::object> find_attribute(nb::handle object, std::string_view name);
// getattr(object, name, None).
[[nodiscard]] nb::object attribute_or_none(nb::handle object, const char* name);

void set_attribute(nb::handle object, const char* name, nb::handle value);

[[nodiscard]] bool is_true(nb::handle object);
[[nodiscard]] bool is_instance(nb::handle object, nb::handle type);
[[nodiscard]] nb::object import_module(const char* name);
// from module import name: ImportError for a name that the module has not.
[[nodiscard]] nb::object import_name(const char* module_name, const char* name);

// A text. Surrogates pass in both directions, in the three bytes that UTF-8 would give them: a
// file name that is no valid Unicode keeps its characters inside an exception's text.
[[nodiscard]] nb::object text_object(std::string_view text);
// The same for a name. Nearly all names stand in the program and come again and again: a table
// holds those that came last, by where they stand.
[[nodiscard]] nb::object name_object(std::string_view name);
// The same for a text that is kept for good, as long as the interpreter lives.
[[nodiscard]] PyObject* interned_text(const char* text);

}  // namespace varnholt::python
