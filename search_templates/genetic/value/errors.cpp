#include "search_templates/genetic/value/errors.hpp"

#include <algorithm>

namespace varnholt::genetic {
namespace {

bool has_class_of(const Error& error, ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kTypeError:
      return dynamic_cast<const TypeError*>(&error) != nullptr;
    case ErrorKind::kValueError:
      return dynamic_cast<const ValueError*>(&error) != nullptr;
    case ErrorKind::kOverflowError:
      return dynamic_cast<const OverflowError*>(&error) != nullptr;
    case ErrorKind::kAttributeError:
      return dynamic_cast<const AttributeError*>(&error) != nullptr;
  }
  return false;
}

}  // namespace

std::string Error::type_name() const {
  return origin_ ? origin_->type_name() : std::string(kind_name());
}

bool Error::is_any_of(std::initializer_list<ErrorKind> kinds) const {
  return std::any_of(kinds.begin(), kinds.end(), [this](ErrorKind kind) {
    return origin_ ? origin_->is_of(kind) : has_class_of(*this, kind);
  });
}

}  // namespace varnholt::genetic
