// A C++ function as an operation of the host.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

using HostFunction =
    std::function<genetic::Value(std::span<const genetic::Value>, const genetic::Mapping&)>;

// Calls `function` with the positional and the keyword arguments. It takes any keyword.
[[nodiscard]] inline genetic::Callable make_callable(HostFunction function) {
  class Body : public genetic::CallableBody {
   public:
    explicit Body(HostFunction body_function) : function_(std::move(body_function)) {}

    genetic::Value call(std::span<const genetic::Value> positional,
                        const genetic::Mapping& keywords) override {
      return function_(positional, keywords);
    }
    [[nodiscard]] std::optional<std::vector<genetic::Parameter>> signature() const override {
      return std::vector<genetic::Parameter>{
          {"arguments", genetic::ParameterKind::kVariablePositional},
          {"keywords", genetic::ParameterKind::kVariableKeyword}};
    }

   private:
    HostFunction function_;
  };
  return genetic::Callable(std::make_shared<Body>(std::move(function)));
}

}  // namespace varnholt::embedded
