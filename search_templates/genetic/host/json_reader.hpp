// The host's reader of JSON text.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class JsonReader {
 public:
  virtual ~JsonReader() = default;

  // The value of one JSON document, given as a text. Throws an ordinary error for a text that is
  // none, however broken or deep it is.
  [[nodiscard]] virtual Value read(const Value& text) = 0;
};

}  // namespace varnholt::genetic
