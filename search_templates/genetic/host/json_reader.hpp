// The host's reader of JSON text.
#pragma once

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A host whose failure details are mappings, and never their JSON texts, overrides nothing.
class JsonReader {
 public:
  virtual ~JsonReader() = default;

  // The value of one JSON document, given as a text. Throws an ordinary error for an invalid text,
  // however broken or deep it is.
  [[nodiscard]] virtual Value read(const Value& /*text*/) {
    throw ValueError("the host reads no JSON");
  }
};

}  // namespace varnholt::genetic
