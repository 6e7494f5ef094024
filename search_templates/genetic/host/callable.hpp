// An operation of the host that may be missing.
#pragma once

#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

enum class ParameterKind {
  kPositionalOnly,
  kPositionalOrKeyword,
  kVariablePositional,
  kKeywordOnly,
  kVariableKeyword
};

struct Parameter {
  std::string name;
  ParameterKind kind;
};

// What stands behind a Callable. A host derives one class for its kind of function.
class CallableBody {
 public:
  virtual ~CallableBody() = default;

  // Whatever the operation throws leaves unchanged.
  virtual Value call(std::span<const Value> positional, const Mapping& keywords) = 0;
  // The parameters in order, or nothing when the host cannot tell them.
  [[nodiscard]] virtual std::optional<std::vector<Parameter>> signature() const = 0;
};

// An operation, or none: what is missing in the host and what is there but cannot be called are
// the same empty Callable.
class Callable {
 public:
  Callable() = default;
  explicit Callable(std::shared_ptr<CallableBody> body) : body_(std::move(body)) {}

  [[nodiscard]] explicit operator bool() const noexcept { return body_ != nullptr; }

  // The Callable must not be empty.
  Value operator()(std::initializer_list<Value> positional,
                   const Mapping& keywords = Mapping()) const {
    return body_->call({positional.begin(), positional.size()}, keywords);
  }
  [[nodiscard]] std::optional<std::vector<Parameter>> signature() const {
    return body_->signature();
  }
  [[nodiscard]] const std::shared_ptr<CallableBody>& body() const noexcept { return body_; }

 private:
  std::shared_ptr<CallableBody> body_;
};

}  // namespace varnholt::genetic
