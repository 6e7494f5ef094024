// The objects that the library itself needs where a value does not fit one of our kinds.
#pragma once

#include <limits>
#include <string>

#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/host_object.hpp"

namespace varnholt::genetic {

// A NaN. It equals nothing but itself, and hashes by identity, so that a set or a mapping finds
// that same NaN again and no other.
class NotANumber : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "float"; }
  [[nodiscard]] Kind exact_kind() const override { return Kind::kReal; }
  [[nodiscard]] std::optional<bool> less(const Value& other) const override;
  [[nodiscard]] std::optional<bool> greater(const Value& other) const override;
  [[nodiscard]] double to_float() const override {
    return std::numeric_limits<double>::quiet_NaN();
  }
  // ValueError "cannot convert float NaN to integer".
  [[nodiscard]] Value to_integer() const override;
  [[nodiscard]] Value negated() const override;
  [[nodiscard]] std::string repr() const override { return "nan"; }
  bool append_json(std::string& out) const override;
};

// An integer beyond 64 bits.
class BigIntegerObject : public HostObject {
 public:
  explicit BigIntegerObject(BigInteger number) : number_(std::move(number)) {}

  [[nodiscard]] const BigInteger& number() const noexcept { return number_; }

  [[nodiscard]] std::string type_name() const override { return "int"; }
  [[nodiscard]] Kind exact_kind() const override { return Kind::kInteger; }
  [[nodiscard]] bool equals(const Value& other) const override;
  [[nodiscard]] std::uint64_t hash() const override;
  [[nodiscard]] std::optional<bool> less(const Value& other) const override;
  [[nodiscard]] std::optional<bool> greater(const Value& other) const override;
  [[nodiscard]] double to_float() const override;
  [[nodiscard]] Value to_integer() const override { return self(); }
  [[nodiscard]] Value negated() const override;
  [[nodiscard]] std::string repr() const override;
  bool append_json(std::string& out) const override;

 private:
  BigInteger number_;
};

}  // namespace varnholt::genetic
