#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {

std::string Error::type_name() const {
  return origin_ ? origin_->type_name() : std::string(kind_name());
}

}  // namespace varnholt::genetic
