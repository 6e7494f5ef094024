// A C++ function as an operation.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

using CallableFunction = std::function<Value(std::span<const Value>, const Mapping&)>;

// Calls `function` with the positional and the keyword arguments. It takes any of both.
[[nodiscard]] inline Callable make_callable(CallableFunction function) {
  class Body : public CallableBody {
   public:
    explicit Body(CallableFunction body_function) : function_(std::move(body_function)) {}

    Value call(std::span<const Value> positional, const Mapping& keywords) override {
      return function_(positional, keywords);
    }
    [[nodiscard]] std::optional<std::vector<Parameter>> signature() const override {
      return std::vector<Parameter>{{"arguments", ParameterKind::kVariablePositional},
                                    {"keywords", ParameterKind::kVariableKeyword}};
    }

   private:
    CallableFunction function_;
  };
  return Callable(std::make_shared<Body>(std::move(function)));
}

}  // namespace varnholt::genetic
