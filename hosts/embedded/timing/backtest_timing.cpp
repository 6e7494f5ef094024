#include "hosts/embedded/timing/backtest_timing.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Key;
using genetic::Kind;
using genetic::Mapping;
using genetic::Value;

constexpr std::size_t kDigestDigits = 64;
constexpr std::size_t kShownBytes = 100;

Value checked_graph_key(Key name, const Value& value) {
  if (!value.is_text()) {
    throw genetic::TypeError(fmt::format("backtest timing {} must be a text, not {}", name.view(),
                                         genetic::type_name(value)));
  }
  const std::string_view text = value.text();
  const bool is_digest =
      text.size() == kDigestDigits && std::all_of(text.begin(), text.end(), [](char digit) {
        return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
      });
  if (!is_digest) {
    throw genetic::ValueError(fmt::format(
        "backtest timing {} must be {} lower-case hexadecimal digits, not {}", name.view(),
        kDigestDigits, genetic::repr(text.size() > kShownBytes ? Value("a longer text") : value)));
  }
  return value;
}

Value checked_seconds(Key name, const Value& value) {
  const Kind kind = genetic::exact_kind(value);
  if (kind != Kind::kInteger && kind != Kind::kReal) {
    throw genetic::TypeError(fmt::format("backtest timing {} must be a number, not {}", name.view(),
                                         genetic::type_name(value)));
  }
  double seconds = 0.0;
  try {
    seconds = genetic::to_float(value);
  } catch (const genetic::OverflowError& error) {
    throw genetic::OverflowError(
        fmt::format("backtest timing {} is too large: {}", name.view(), error.text()));
  }
  if (!std::isfinite(seconds) || seconds < 0.0) {
    throw genetic::ValueError(fmt::format(
        "backtest timing {} must be finite seconds of 0 or more, not {}", name.view(), seconds));
  }
  // Not -0.0: equal timings have equal texts.
  return seconds + 0.0;
}

Value checked_count(Key name, const Value& value, std::int64_t least) {
  if (genetic::exact_kind(value) != Kind::kInteger) {
    throw genetic::TypeError(fmt::format("backtest timing {} must be an integer, not {}",
                                         name.view(), genetic::type_name(value)));
  }
  if (!value.is_integer()) {
    throw genetic::OverflowError(
        fmt::format("backtest timing {} does not fit into 64 bits", name.view()));
  }
  if (value.integer() < least) {
    throw genetic::ValueError(fmt::format("backtest timing {} must be {} or more, not {}",
                                          name.view(), least, value.integer()));
  }
  return value;
}

Value checked_process_id(Key name, const Value& value) {
  return checked_count(name, value, 1);
}

// 0 where the start cannot be read.
Value checked_process_started(Key name, const Value& value) {
  return checked_count(name, value, 0);
}

struct Field {
  Key name;
  Value (*checked)(Key name, const Value& value);
  bool is_identity;
};

constexpr auto kFields =
    std::to_array({Field{timing_keys::kGraphKey, &checked_graph_key, false},
                   Field{timing_keys::kStartedAt, &checked_seconds, false},
                   Field{timing_keys::kElapsedSeconds, &checked_seconds, false},
                   Field{timing_keys::kCpuSeconds, &checked_seconds, false},
                   Field{timing_keys::kProcessId, &checked_process_id, true},
                   Field{timing_keys::kProcessStarted, &checked_process_started, true}});

void check_names(const Mapping& timing) {
  genetic::MappingCursor cursor(timing);
  while (const auto entry = cursor.next()) {
    const auto has_name = [&entry](const Field& field) {
      return genetic::is_same_or_equal(field.name, entry->key);
    };
    if (std::none_of(kFields.begin(), kFields.end(), has_name)) {
      throw genetic::ValueError(
          fmt::format("backtest timing has no field {}", genetic::repr(entry->key)));
    }
  }
}

[[noreturn]] void refuse_missing(Key name) {
  throw genetic::ValueError(fmt::format("backtest timing is missing {}", name.view()));
}

}  // namespace

std::string graph_timing_key(const Value& graph) {
  return sha256_hex(genetic::canonical_graph_string(graph));
}

Mapping validate_backtest_timing_payload(const Value& timing) {
  const std::optional<Mapping> fields = genetic::as_mapping(timing);
  if (!fields) {
    throw genetic::TypeError("backtest timing must be a mapping, not " +
                             genetic::type_name(timing));
  }
  check_names(*fields);
  const bool has_identity =
      fields->contains(timing_keys::kProcessId) || fields->contains(timing_keys::kProcessStarted);
  Mapping normal(kFields.size());
  for (const Field& field : kFields) {
    if (field.is_identity && !has_identity) continue;
    const std::optional<Value> value = fields->find(field.name);
    if (!value) refuse_missing(field.name);
    normal.set(field.name, field.checked(field.name, *value));
  }
  return normal;
}

Mapping validate_graph_backtest_timing_payload(const Value& graph, const Value& timing) {
  Mapping normal = validate_backtest_timing_payload(timing);
  const std::string graph_key = graph_timing_key(graph);
  const Value timing_key = normal.at(timing_keys::kGraphKey);
  if (timing_key.text() != graph_key) {
    throw genetic::ValueError(
        fmt::format("backtest timing graph_key {} is of another graph; the graph's is {}",
                    timing_key.text(), graph_key));
  }
  return normal;
}

Mapping validate_process_backtest_timing_payload(const Value& graph, const Value& timing) {
  Mapping normal = validate_graph_backtest_timing_payload(graph, timing);
  if (!normal.contains(timing_keys::kProcessId)) refuse_missing(timing_keys::kProcessId);
  return normal;
}

Mapping without_process_identity(const Mapping& timing) {
  Mapping rest(timing.size());
  genetic::MappingCursor cursor(timing);
  while (const auto entry = cursor.next()) {
    if (genetic::is_same_or_equal(entry->key, timing_keys::kProcessId)) continue;
    if (genetic::is_same_or_equal(entry->key, timing_keys::kProcessStarted)) continue;
    rest.set(entry->key, entry->value);
  }
  return rest;
}

}  // namespace varnholt::embedded
