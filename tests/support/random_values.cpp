#include "tests/support/random_values.hpp"

#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "search_templates/genetic/value/native_objects.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/text.hpp"

namespace varnholt::genetic::test {

RandomValues::RandomValues(std::uint64_t seed) : draw_(seed), nan_(std::nan("")) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr std::int64_t kTwoTo53 = std::int64_t{1} << 53;
  scalars_ = {Value(),
              true,
              false,
              0,
              0.0,
              -0.0,
              1,
              1.0,
              -1,
              2,
              0.5,
              0.1,
              1e16,
              1e-5,
              12345678.9,
              5e-324,
              kTwoTo53,
              kTwoTo53 + 1,
              9007199254740992.0,
              std::numeric_limits<std::int64_t>::max(),
              std::numeric_limits<std::int64_t>::min(),
              9223372036854775808.0,
              -9223372036854775808.0,
              to_integer("9223372036854775808"),
              to_integer("-9223372036854775809"),
              to_integer("1000000000000000000000000000000"),
              to_integer("1" + std::string(400, '0')),
              1e30,
              1e300,
              kInfinity,
              -kInfinity,
              nan_,
              "",
              "1",
              "a",
              "b",
              "node",
              "nan",
              " 2 ",
              "1.5",
              "1_000",
              "\xC3\xA9",
              "\xEF\xBF\xBD",
              "\xF0\x9F\x98\x80",
              "it's",
              "say \"x\"",
              "'\"",
              "\n\t\\\x01\x7F"};
}

std::size_t RandomValues::below(std::size_t bound) {
  return static_cast<std::size_t>(draw_() % bound);
}

Value RandomValues::scalar() {
  switch (below(8)) {
    case 0:
      return static_cast<std::int64_t>(below(7)) - 3;
    case 1:
      return (static_cast<double>(below(9)) - 4.0) / 2.0;
    case 2:
      return std::string(1, static_cast<char>('a' + below(4)));
    case 3:
      return static_cast<std::int64_t>(draw_());
    default:
      return scalars_[below(scalars_.size())];
  }
}

Value RandomValues::any(int depth) {
  if (depth <= 0 || below(3) == 0) return scalar();
  const std::size_t count = below(4);
  switch (below(3)) {
    case 0: {
      List list;
      for (std::size_t i = 0; i < count; ++i)
        list.append(any(depth - 1));
      return list;
    }
    case 1: {
      std::vector<Value> items;
      for (std::size_t i = 0; i < count; ++i)
        items.push_back(any(depth - 1));
      return Tuple(items);
    }
    default: {
      Mapping mapping;
      const bool only_texts = below(3) != 0;
      for (std::size_t i = 0; i < count; ++i) {
        const Value key = scalar();
        mapping.set(only_texts ? Value(str(key)) : key, any(depth - 1));
      }
      return mapping;
    }
  }
}

Value RandomValues::plain(int depth) {
  if (depth <= 0 || below(4) == 0) return scalar();
  const std::size_t count = below(4);
  if (below(3) == 0) {
    List list;
    for (std::size_t i = 0; i < count; ++i)
      list.append(plain(depth - 1));
    return list;
  }
  Mapping mapping;
  for (std::size_t i = 0; i < count; ++i)
    mapping.set(str(scalar()), plain(depth - 1));
  return mapping;
}

Value RandomValues::scalar_variation(const Value& value) {
  switch (below(6)) {
    case 0:
      return scalar();
    case 1:
      if (value.is_integer() || value.is_boolean()) return to_float(value);
      if (value.is_real() && std::isfinite(value.real())) return to_integer(value);
      return value;
    case 2:
      if (value.is_integer() && value.integer() < std::numeric_limits<std::int64_t>::max()) {
        return value.integer() + 1;
      }
      return value;
    case 3:
      return str(value);
    default:
      return value;
  }
}

Value RandomValues::variation(const Value& value) {
  // Most parts stay as they are, so that the whole is equal about every second time.
  const bool changes = below(8) == 0;
  if (value.is_list() || value.is_tuple()) {
    std::vector<Value> items;
    for (std::size_t i = 0; i < length(value); ++i)
      items.push_back(variation(item(value, static_cast<std::int64_t>(i))));
    if (changes && !items.empty()) {
      if (below(2) == 0) {
        items.pop_back();
      } else {
        std::swap(items.front(), items.back());
      }
    }
    if (value.is_tuple() != (changes && below(4) == 0)) return Tuple(items);
    List list;
    for (const Value& item : items)
      list.append(item);
    return list;
  }
  if (value.is_mapping()) {
    std::vector<MappingEntry> entries;
    for (const MappingEntry& entry : value.mapping().native_entries()) {
      entries.push_back({entry.key, variation(entry.value)});
    }
    if (changes && !entries.empty()) std::swap(entries.front(), entries.back());
    Mapping mapping;
    for (const MappingEntry& entry : entries)
      mapping.set(entry.key, entry.value);
    return mapping;
  }
  return changes ? scalar_variation(value) : value;
}

namespace {

void append_text_literal(std::string& out, std::string_view text) {
  out += '\'';
  for (std::size_t position = 0; position < text.size();) {
    char escaped[16];
    std::snprintf(escaped, sizeof escaped, "\\U%08x",
                  static_cast<unsigned>(next_code_point(text, position)));
    out += escaped;
  }
  out += '\'';
}

void append_literal(std::string& out, const Value& value) {
  switch (value.kind()) {
    case Kind::kAbsent:
      out += "None";
      return;
    case Kind::kBoolean:
      out += value.boolean() ? "True" : "False";
      return;
    case Kind::kInteger:
      // In parentheses: a minus sign would bind weaker than what may follow.
      out += "(" + std::to_string(value.integer()) + ")";
      return;
    case Kind::kReal: {
      char digits[64];
      std::snprintf(digits, sizeof digits, "float('%a')", value.real());
      std::string text = digits;
      const bool finite = std::isfinite(value.real());
      out += finite ? "float.fromhex" + text.substr(5) : text;
      return;
    }
    case Kind::kText:
      append_text_literal(out, value.text());
      return;
    case Kind::kObject:
      if (const auto* const big = dynamic_cast<const BigIntegerObject*>(&value.object())) {
        out += "(" + big->number().to_decimal() + ")";
      } else {
        out += "nan";
      }
      return;
    case Kind::kMapping: {
      out += '{';
      for (const MappingEntry& entry : value.mapping().native_entries()) {
        append_literal(out, entry.key);
        out += ':';
        append_literal(out, entry.value);
        out += ',';
      }
      out += '}';
      return;
    }
    default: {
      out += value.is_list() ? '[' : '(';
      for (std::size_t i = 0; i < length(value); ++i) {
        append_literal(out, item(value, static_cast<std::int64_t>(i)));
        out += ',';
      }
      out += value.is_list() ? ']' : ')';
    }
  }
}

}  // namespace

std::string python_literal(const Value& value) {
  std::string out;
  append_literal(out, value);
  return out;
}

}  // namespace varnholt::genetic::test
