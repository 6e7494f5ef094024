#include "hosts/embedded/host/json_value.hpp"

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/native_objects.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

// Builds the value while the text is read, without the recursion of a tree of the reader's own.
// Digits of a number in a text that somebody has written.
constexpr std::size_t kMostDigits = 400;
// Of the reader's own message, which repeats what it has read last.
constexpr std::size_t kMessageBegin = 120;
constexpr std::size_t kMessageEnd = 60;

std::string shortened(const std::string& text) {
  if (text.size() <= kMessageBegin + kMessageEnd) return text;
  return text.substr(0, kMessageBegin) + " ... " + text.substr(text.size() - kMessageEnd);
}

enum class Source { IsProgram, IsPerson };

class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit ValueBuilder(Source source) : source_(source) {}

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
    if (source_ == Source::IsPerson && text.size() > kMostDigits) {
      throw genetic::ValueError("not usable: " + place() + " has a number of " +
                                std::to_string(text.size()) + " characters; write a shorter one");
    }
    if (text.find_first_of(".eE") == std::string::npos) return add_big_integer(text);
    return add(value);
  }
  bool string(std::string& value) override { return add(value); }
  bool binary(nlohmann::json::binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*size*/) override { return open(Mapping()); }
  bool key(std::string& name) override {
    keys_.back() = Value(name);
    if (source_ == Source::IsPerson && open_.back().mapping().contains(keys_.back())) {
      throw genetic::ValueError("not usable: " + place() + " has the key \"" + shown_name(name) +
                                "\" twice in one object; keep one of them");
    }
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*size*/) override { return open(List()); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::json::exception& error) override {
    // The reader's message begins with its own name and number in brackets.
    const std::string text = error.what();
    if (source_ == Source::IsPerson && text.find("number overflow") != std::string::npos) {
      throw genetic::ValueError("not usable: " + place() +
                                " has a number that is too large; write a smaller one");
    }
    const std::size_t end = text.find("] ");
    throw genetic::ValueError("not JSON: " +
                              shortened(end == std::string::npos ? text : text.substr(end + 2)));
  }

  [[nodiscard]] Value take() { return std::move(result_); }

 private:
  // Where the reader is, by the items of the outermost list.
  [[nodiscard]] std::string place() const {
    if (open_.empty() || !open_.front().is_list()) return "it";
    // The container under way is an item already.
    const std::size_t items = open_.front().list().size() + (open_.size() == 1 ? 1 : 0);
    return "item " + std::to_string(items) + " of the list";
  }

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

  Source source_;
  Value result_;
  std::vector<Value> open_;
  std::vector<Value> keys_;
};

Value read_json(std::string_view text, Source source) {
  ValueBuilder builder(source);
  nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
  return builder.take();
}

}  // namespace

Value read_json(std::string_view text) {
  return read_json(text, Source::IsProgram);
}

Value read_written_json(std::string_view text) {
  return read_json(text, Source::IsPerson);
}

}  // namespace varnholt::embedded
