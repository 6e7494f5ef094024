#include "hosts/embedded/host/json_value.hpp"

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/native_objects.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

// Builds the value while the text is read, without the recursion of a tree of the reader's own.
class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return add(Value()); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(std::int64_t value) override { return add(value); }
  bool number_unsigned(std::uint64_t value) override {
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return add(static_cast<std::int64_t>(value));
    }
    return add_big_integer(std::to_string(value));
  }
  // Called for integers beyond 64 bits as well; their text tells them from reals.
  bool number_float(double value, const std::string& text) override {
    if (text.find_first_of(".eE") == std::string::npos) return add_big_integer(text);
    return add(value);
  }
  bool string(std::string& value) override { return add(value); }
  bool binary(nlohmann::json::binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*size*/) override { return open(Mapping()); }
  bool key(std::string& name) override {
    keys_.back() = Value(name);
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*size*/) override { return open(List()); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::json::exception& error) override {
    // The reader's message begins with its own name and number in brackets.
    const std::string text = error.what();
    const std::size_t end = text.find("] ");
    throw genetic::ValueError("not JSON: " +
                              (end == std::string::npos ? text : text.substr(end + 2)));
  }

  [[nodiscard]] Value take() { return std::move(result_); }

 private:
  bool add_big_integer(const std::string& text) {
    const bool negative = text.front() == '-';
    return add(
        genetic::make_object<genetic::BigIntegerObject>(genetic::BigInteger::from_decimal_digits(
            std::string_view(text).substr(negative ? 1 : 0), negative)));
  }

  bool open(Value container) {
    add(container);
    open_.push_back(std::move(container));
    keys_.emplace_back();
    return true;
  }

  bool close() {
    open_.pop_back();
    keys_.pop_back();
    return true;
  }

  bool add(Value value) {
    if (open_.empty()) {
      result_ = std::move(value);
    } else if (open_.back().is_list()) {
      open_.back().list().append(std::move(value));
    } else {
      open_.back().mapping().set(keys_.back(), std::move(value));
    }
    return true;
  }

  Value result_;
  std::vector<Value> open_;
  std::vector<Value> keys_;
};

}  // namespace

Value read_json(std::string_view text) {
  ValueBuilder builder;
  nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
  return builder.take();
}

}  // namespace varnholt::embedded
