// An operation of the host that may be missing: empty where the host has none.
//
// There are two forms of that one idea. An Operation has parameters that the library fixes, named
// where it is asked for. A Callable is called as the host's language calls its functions, with
// positional and keyword arguments, and knows which it accepts: for arguments that are passed
// through to the host, and for operations that a host may write in several ways.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

template <typename Signature>
using Operation = std::function<Signature>;

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

  // Whatever the operation throws propagates unchanged.
  virtual Value call(std::span<const Value> positional, const Mapping& keywords) = 0;
  // The parameters in order, or nothing when they are unknown.
  [[nodiscard]] virtual std::optional<std::vector<Parameter>> signature() const = 0;
};

// An operation, or none: an operation that the host lacks and one that is there but cannot be
// called are the same empty Callable.
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
