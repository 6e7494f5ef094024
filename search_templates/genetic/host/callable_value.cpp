#include "search_templates/genetic/host/callable_value.hpp"

#include <memory>
#include <string>
#include <utility>

#include "search_templates/genetic/value/host_object.hpp"

namespace varnholt::genetic {
namespace {

class CallableObject : public HostObject {
 public:
  explicit CallableObject(Callable callable) : callable_(std::move(callable)) {}

  [[nodiscard]] const Callable& callable() const noexcept { return callable_; }

  [[nodiscard]] std::string type_name() const override { return "function"; }
  [[nodiscard]] bool is_callable() const override { return true; }
  [[nodiscard]] Value call(std::span<const Value> positional,
                           const Mapping& keywords) const override {
    return callable_.body()->call(positional, keywords);
  }

 private:
  Callable callable_;
};

class ValueCall : public CallableBody {
 public:
  explicit ValueCall(Value value) : value_(std::move(value)) {}

  [[nodiscard]] const Value& value() const noexcept { return value_; }

  Value call(std::span<const Value> positional, const Mapping& keywords) override {
    return value_.object().call(positional, keywords);
  }
  [[nodiscard]] std::optional<std::vector<Parameter>> signature() const override {
    return std::nullopt;
  }

 private:
  Value value_;
};

}  // namespace

Value callable_value(const Callable& callable) {
  if (!callable) return {};
  return make_object<CallableObject>(callable);
}

Callable callable_of(const Value& value) {
  if (!value.is_object() || !value.object().is_callable()) return {};
  const auto* const own = dynamic_cast<const CallableObject*>(&value.object());
  if (own != nullptr) return own->callable();
  return Callable(std::make_shared<ValueCall>(value));
}

std::optional<Value> value_behind(const Callable& callable) {
  const auto call = std::dynamic_pointer_cast<ValueCall>(callable.body());
  if (call == nullptr) return std::nullopt;
  return call->value();
}

}  // namespace varnholt::genetic
