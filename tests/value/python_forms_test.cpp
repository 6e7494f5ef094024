// Numbers and texts take exactly CPython's forms, values, hashes and errors.
//
// Method: scripts/make_python_text_table.py has CPython write random cases with its results, a line
// each. The same check runs over the table under tests/data, which comes from CPython 3.11, and
// over some thousand fresh cases from the installed CPython.
#include <bit>
#include <cmath>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/number_hash.hpp"
#include "search_templates/genetic/value/number_parse.hpp"
#include "search_templates/genetic/value/number_text.hpp"
#include "search_templates/genetic/value/text.hpp"
#include "search_templates/genetic/value/unicode_tables.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/utf8.hpp"

namespace varnholt::genetic {
namespace {

using Fields = std::vector<std::string>;

double double_of(const std::string& bits) {
  return std::bit_cast<double>(static_cast<std::uint64_t>(std::stoull(bits, nullptr, 16)));
}

std::string bits_of(double value) {
  if (std::isnan(value)) return "nan";
  char buffer[17];
  std::snprintf(buffer, sizeof buffer, "%016llx",
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
  return buffer;
}

std::string text_of(const std::string& hex) {
  std::string text;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    text.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return text;
}

std::string decimal_of(const Integer& integer) {
  if (const auto* small = std::get_if<std::int64_t>(&integer)) return std::to_string(*small);
  const BigInteger& large = std::get<BigInteger>(integer);
  // The large kind is for what the small one cannot hold, and for that alone.
  return large.to_int64() ? "small value in the large kind" : large.to_decimal();
}

BigInteger big_of(const std::string& decimal) {
  const bool negative = decimal.front() == '-';
  return BigInteger::from_decimal_digits(std::string_view(decimal).substr(negative ? 1 : 0),
                                         negative);
}

// What a conversion gives, in the two fields that the script writes for it.
template <typename Convert>
Fields outcome(Convert convert) {
  try {
    return {"value", convert()};
  } catch (const ValueError& error) {
    return {"error", error.text()};
  } catch (const OverflowError& error) {
    return {"error", error.text()};
  }
}

Fields with(Fields start, const Fields& rest) {
  start.insert(start.end(), rest.begin(), rest.end());
  return start;
}

Fields float_line(const Fields& given) {
  const double value = given[1] == "nan" ? std::nan("") : double_of(given[1]);
  std::string repr;
  append_float_repr(repr, value);
  std::string json;
  append_float_json(json, value);
  const bool hashed = !std::isnan(value);
  return {"float", given[1], repr, json, hashed ? std::to_string(hash_real(value)) : "-"};
}

Fields text_line(const Fields& given) {
  const std::string text = text_of(given[1]);
  std::string json;
  append_json_string(json, text);
  return {"text", test::is_valid_utf8(text) ? given[1] : "taken for invalid", text_repr(text),
          json};
}

Fields parse_float_line(const Fields& given) {
  const std::string text = text_of(given[1]);
  return with({given[0], given[1]}, outcome([&] { return bits_of(float_from_text(text)); }));
}

Fields parse_int_line(const Fields& given) {
  const std::string text = text_of(given[1]);
  return with({given[0], given[1]}, outcome([&] { return decimal_of(integer_from_text(text)); }));
}

Fields integer_line(const Fields& given) {
  const BigInteger value = big_of(given[1]);
  // Where 64 bits hold the number, their hash must be the same.
  const auto small = value.to_int64();
  const bool alike = !small || hash_integer(*small) == value.hash();
  const std::string hash = alike ? std::to_string(value.hash()) : "differs from that of 64 bits";
  return with({given[0], value.to_decimal(), hash},
              outcome([&] { return bits_of(value.to_double()); }));
}

Fields compare_line(const Fields& given) {
  const BigInteger left = big_of(given[1]);
  const double right = double_of(given[2]);
  const auto order = compare_exactly(left, right);
  const auto small = left.to_int64();
  if (small && compare_exactly(*small, right) != order) return {"64 bits compare otherwise"};
  return {given[0], given[1], given[2], order < 0 ? "-1" : order > 0 ? "1" : "0"};
}

std::string crc32(const std::string& bytes) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0xEDB88320u : 0u);
  }
  char buffer[9];
  std::snprintf(buffer, sizeof buffer, "%08x", crc ^ 0xFFFFFFFFu);
  return buffer;
}

Fields unicode_line(const Fields& given) {
  std::string values;
  for (char32_t code_point = 0; code_point <= 0x10FFFF; ++code_point) {
    const int value = given[1] == "space"       ? is_unicode_space(code_point)
                      : given[1] == "printable" ? is_unicode_printable(code_point)
                                                : unicode_decimal_value(code_point) + 1;
    values.push_back(static_cast<char>(value));
  }
  return {given[0], given[1], crc32(values)};
}

// The line that the library gives for the case of a line.
Fields own_line(const Fields& given) {
  const std::string& kind = given[0];
  if (kind == "float") return float_line(given);
  if (kind == "text") return text_line(given);
  if (kind == "parse_float") return parse_float_line(given);
  if (kind == "parse_int") return parse_int_line(given);
  if (kind == "integer") return integer_line(given);
  if (kind == "compare") return compare_line(given);
  if (kind == "unicode") return unicode_line(given);
  if (kind == "truncate") {
    return {kind, given[1], decimal_of(integer_from_double(double_of(given[1])))};
  }
  return {"unknown kind"};
}

// Compares every line and returns how many there are of each kind.
std::map<std::string, int> check(const std::vector<std::string>& lines) {
  std::map<std::string, int> counts;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Fields expected = testing_support::split(lines[i], '\t');
    EXPECT_EQ(own_line(expected), expected) << "line " << i + 1;
    ++counts[expected.front()];
  }
  return counts;
}

constexpr const char* kRandomKinds[] = {"float",     "truncate", "text",   "parse_float",
                                        "parse_int", "integer",  "compare"};

TEST(PythonForms, AgreeWithTheTableOfCPython311) {
  std::ifstream file(VARNHOLT_TEST_DATA "/python_text_forms.tsv", std::ios::binary);
  ASSERT_TRUE(file) << "tests/data/python_text_forms.tsv is missing";
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);)
    lines.push_back(line);
  EXPECT_GE(lines.size(), 2000u);
  auto counts = check(lines);
  for (const char* kind : kRandomKinds)
    EXPECT_GE(counts[kind], 400) << kind;
  EXPECT_EQ(counts["unicode"], 3);
}

TEST(PythonForms, AgreeWithTheInstalledCPython) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  constexpr int kCases = 1500;
  const auto lines = testing_support::run_python(
      "scripts/make_python_text_table.py",
      {"--any-unicode", "--seed", std::to_string(seed), "--cases", std::to_string(kCases)});
  auto counts = check(lines);
  for (const char* kind : kRandomKinds)
    EXPECT_GE(counts[kind], kCases) << kind;
}

}  // namespace
}  // namespace varnholt::genetic
