// Values mean what they mean in the host's language: text forms, JSON text, truth, conversions,
// hashes of numbers, equality, order, sign, membership, unpacking and digests, with the kind and
// mostly the message of each error.
//
// Method: random pairs of values, the second a close variation of the first or independent of it,
// are sent as literals to the installed CPython, and its answers are compared with the library's.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/digest.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"

namespace varnholt::genetic {
namespace {

using test::python_literal;
using test::RandomValues;

std::string text_of_hex(const std::string& hex) {
  std::string text;
  for (std::size_t i = 0; i < hex.size(); i += 2)
    text.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return text;
}

// An answer as the script gives it, with its text in the clear.
template <typename Answer>
std::string answer_of(const Answer& answer) {
  std::string text;
  const std::string error = test::error_of([&] { return text = answer(); });
  return error == "no error" ? "=" + text : "!" + error;
}

// The same of an answer that may be the kind of an error.
template <typename Answer>
std::string answer_or_kind(const Answer& answer) {
  std::string text;
  const std::string error = test::error_of([&] { return text = answer(); });
  return "=" + (error == "no error" ? text : error.substr(0, error.find(':')));
}

std::string truth_name(bool truth) {
  return truth ? "True" : "False";
}

bool is_number(const Value& value) {
  const Kind kind = exact_kind(value);
  return (kind == Kind::kBoolean || kind == Kind::kInteger || kind == Kind::kReal) &&
         value == value;
}

std::vector<std::string> own_answers(const Value& left, const Value& right) {
  return {
      answer_of([&] { return repr(left); }),
      answer_of([&] { return str(left); }),
      answer_of([&] { return json_text(left); }),
      answer_of([&] { return truth_name(truth(left)); }),
      answer_of([&] { return repr(to_float(left)); }),
      answer_of([&] { return repr(to_integer(left)); }),
      answer_of([&] { return std::to_string(length(left)); }),
      answer_of([&] {
        return is_number(left) ? std::to_string(static_cast<std::int64_t>(hash(left))) : "-";
      }),
      answer_of([&] { return truth_name(left == right); }),
      answer_of([&] { return truth_name(less(left, right)); }),
      answer_of([&] { return repr(negated(left)); }),
      answer_or_kind([&] { return truth_name(contains(left, right)); }),
      answer_or_kind([&] {
        return truth_name(contains(Tuple{0, right}, left));
      }),
      answer_or_kind([&] {
        return truth_name(contains(Mapping{{"a", right}}, left));
      }),
      answer_or_kind([&] {
        const auto [first, second] = unpack_pair(left);
        return repr(Tuple{first, second});
      }),
      answer_or_kind([&] { return sha256_hex(json_text(left)); }),
  };
}

constexpr const char* kQuestions[] = {
    "repr", "str", "json", "bool",          "float",    "int",     "len",    "hash",
    "==",   "<",   "-",    "right in left", "in tuple", "in dict", "unpack", "digest"};

// Which of two keys without an order the message names first is up to the sorting method.
std::string without_key_order(const std::string& answer) {
  const std::string message = "!TypeError: '<' not supported between instances of ";
  return answer.starts_with(message) ? message : answer;
}

// Also: values that are equal hash alike.
void check_hashes(const Value& left, const Value& right) {
  if (!(left == right)) return;
  const std::string error = test::error_of([&] { return hash(left); });
  EXPECT_EQ(error, test::error_of([&] { return hash(right); }));
  if (error == "no error") {
    EXPECT_EQ(hash(left), hash(right));
  }
}

TEST(PythonSemantics, AreThoseOfTheInstalledCPython) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  RandomValues random(seed);
  constexpr int kPairs = 3000;
  std::vector<std::pair<Value, Value>> pairs;
  std::vector<std::string> lines;
  for (int i = 0; i < kPairs; ++i) {
    const int depth = i % 4;
    const Value left = random.any(depth);
    const Value right = i % 3 == 0 ? random.any(depth) : random.variation(left);
    lines.push_back(python_literal(left) + "\t" + python_literal(right));
    pairs.emplace_back(left, right);
  }

  const testing_support::ScriptInput input(lines);
  const auto answers =
      testing_support::run_python("tests/value/value_semantics.py", {input.path()});
  ASSERT_EQ(answers.size(), pairs.size());
  int equal_pairs = 0;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    SCOPED_TRACE(lines[i]);
    const auto& [left, right] = pairs[i];
    const std::vector<std::string> own = own_answers(left, right);
    const std::vector<std::string> fields = testing_support::split(answers[i], '\t');
    ASSERT_EQ(fields.size(), own.size());
    for (std::size_t question = 0; question < fields.size(); ++question) {
      std::string expected =
          fields[question].substr(0, 1) + text_of_hex(fields[question].substr(1));
      std::string given = own[question];
      if (std::string(kQuestions[question]) == "json") {
        expected = without_key_order(expected);
        given = without_key_order(given);
      }
      EXPECT_EQ(given, expected) << kQuestions[question];
    }
    equal_pairs += left == right ? 1 : 0;
    check_hashes(left, right);
  }
  // Both answers must have been asked for often.
  EXPECT_GT(equal_pairs, kPairs / 5);
  EXPECT_LT(equal_pairs, kPairs * 4 / 5);
}

}  // namespace
}  // namespace varnholt::genetic
