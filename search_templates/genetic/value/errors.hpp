// The error kinds of the search, one class each, named as the host's language names them.
//
// An "ordinary" error is whatever derives from std::exception; these classes are the ones that the
// library throws itself. A host that runs in another language wraps its own exceptions in the class
// of their kind with the original attached, so that the same object can be handed back when the
// error leaves the library.
#pragma once

#include <exception>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace varnholt::genetic {

class Value;

// The kinds that rules tolerate or answer to.
enum class ErrorKind { kTypeError, kValueError, kOverflowError, kAttributeError };

// The kinds of error with which a conversion rejects a value.
inline constexpr std::initializer_list<ErrorKind> kConversionErrors = {
    ErrorKind::kTypeError, ErrorKind::kValueError, ErrorKind::kOverflowError};

// The host's own exception object behind an error. Kept alive as long as the error is.
class ErrorOrigin {
 public:
  virtual ~ErrorOrigin() = default;

  // The name of the exception's exact type, as the host shows it.
  [[nodiscard]] virtual std::string type_name() const = 0;
  // Whether the exception is of the kind, which may be one of several that it is of.
  [[nodiscard]] virtual bool is_of(ErrorKind kind) const = 0;
  // The exception itself.
  [[nodiscard]] virtual Value object() const = 0;
};

// What rules may read of an error besides its text. A missing attribute and an absent value differ.
class ErrorAttributes {
 public:
  virtual ~ErrorAttributes() = default;

  [[nodiscard]] virtual std::optional<Value> attribute(std::string_view name) const = 0;
};

// The base of every error that the library names.
class Error : public std::exception {
 public:
  explicit Error(std::string text, std::shared_ptr<const ErrorOrigin> origin = nullptr)
      : text_(std::move(text)),
        origin_(std::move(origin)),
        context_(origin_ ? nullptr : std::current_exception()) {}

  [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }
  [[nodiscard]] const std::string& text() const noexcept { return text_; }
  [[nodiscard]] const std::shared_ptr<const ErrorOrigin>& origin() const noexcept {
    return origin_;
  }

  // The error's own origin from now on: a host that has made an exception object for an error of
  // the library's shows the same object wherever the error goes.
  void set_origin(std::shared_ptr<const ErrorOrigin> origin) const { origin_ = std::move(origin); }

  // What was being handled when an error of the library's own was made: its context. Null for one
  // that the host made, which knows its own.
  [[nodiscard]] const std::exception_ptr& context() const noexcept { return context_; }

  // Null for an error without attributes, as most are.
  [[nodiscard]] virtual std::shared_ptr<const ErrorAttributes> attributes() const {
    return nullptr;
  }

  // The name of the exact kind: the origin's, where there is one.
  [[nodiscard]] std::string type_name() const;

  // Whether the error is of one of the kinds: the origin says so, where there is one. Its class
  // alone does not, since an exception of the host may have bases of two kinds.
  [[nodiscard]] bool is_any_of(std::initializer_list<ErrorKind> kinds) const;

 protected:
  [[nodiscard]] virtual std::string_view kind_name() const noexcept { return "Exception"; }

 private:
  std::string text_;
  mutable std::shared_ptr<const ErrorOrigin> origin_;
  std::exception_ptr context_;
};

class TypeError : public Error {
 public:
  using Error::Error;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "TypeError"; }
};

class ValueError : public Error {
 public:
  using Error::Error;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "ValueError"; }
};

class OverflowError : public Error {
 public:
  using Error::Error;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "OverflowError"; }
};

class AttributeError : public Error {
 public:
  using Error::Error;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "AttributeError"; }
};

// The base of "there is no such entry", for a mapping and for a sequence.
class LookupError : public Error {
 public:
  using Error::Error;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "LookupError"; }
};

class KeyError : public LookupError {
 public:
  using LookupError::LookupError;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "KeyError"; }
};

class IndexError : public LookupError {
 public:
  using LookupError::LookupError;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "IndexError"; }
};

class RuntimeError : public Error {
 public:
  using Error::Error;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "RuntimeError"; }
};

// A value nested deeper than kMaximumNesting. It is thrown instead of overflowing the stack.
class RecursionError : public RuntimeError {
 public:
  using RuntimeError::RuntimeError;

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override { return "RecursionError"; }
};

// The result of `attempt()`, or of `otherwise(error)` when it fails with an error of one of the
// kinds. `otherwise` is called while the error is being handled; every other error propagates.
template <typename Attempt, typename Otherwise>
auto catching(std::initializer_list<ErrorKind> kinds, Attempt&& attempt, Otherwise&& otherwise)
    -> decltype(std::forward<Attempt>(attempt)()) {
  try {
    return std::forward<Attempt>(attempt)();
  } catch (const Error& error) {
    if (!error.is_any_of(kinds)) throw;
    return std::forward<Otherwise>(otherwise)(error);
  }
}

// Mixed into an error that was thrown in place of another, which stays its context and is not to be
// shown beside it.
class InPlaceOfError {
 public:
  virtual ~InPlaceOfError() = default;
};

// Throws `error` in place of the one that is being handled.
template <typename Kind>
[[noreturn]] void throw_in_place(const Kind& error) {
  class Replacement : public Kind, public InPlaceOfError {
   public:
    explicit Replacement(const Kind& own) : Kind(own) {}
  };
  throw Replacement(error);
}

// The levels of nesting that a recursive walk follows before it gives up with a RecursionError.
inline constexpr int kMaximumNesting = 900;

}  // namespace varnholt::genetic
