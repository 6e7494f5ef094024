#include "search_templates/genetic/value/error_object.hpp"

#include <string>
#include <utility>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"

namespace varnholt::genetic {
namespace {

class CaughtError : public HostObject {
 public:
  CaughtError(std::string type, std::string text, std::shared_ptr<const ErrorAttributes> attributes)
      : type_(std::move(type)), text_(std::move(text)), attributes_(std::move(attributes)) {}

  [[nodiscard]] std::string type_name() const override { return type_; }
  [[nodiscard]] std::string str() const override { return text_; }
  [[nodiscard]] std::string repr() const override { return type_ + "(" + text_ + ")"; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    return attributes_ ? attributes_->attribute(name) : std::nullopt;
  }

 private:
  std::string type_;
  std::string text_;
  std::shared_ptr<const ErrorAttributes> attributes_;
};

}  // namespace

Value error_object(const std::exception& error) {
  const auto* const known = dynamic_cast<const Error*>(&error);
  if (known == nullptr) return make_object<CaughtError>("Exception", error.what(), nullptr);
  if (known->origin()) return known->origin()->object();
  return make_object<CaughtError>(known->type_name(), known->text(), known->attributes());
}

Value error_object(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& ordinary) {
    return error_object(ordinary);
  } catch (...) {
    return make_object<CaughtError>("BaseException", "interrupted", nullptr);
  }
}

}  // namespace varnholt::genetic
