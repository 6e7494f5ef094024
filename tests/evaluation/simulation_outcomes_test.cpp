// Goal: every outcome of the evaluator gives a well-formed record, or an error of a kind that the
// rules let pass.
// Method: random outcomes, half of them of the expected shape, half with anything anywhere; the
// record's keys, their order and their types, and its relation to the outcome.
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAreArray;

using Names = std::vector<std::string>;

const Names kRecordKeys = {"graph",
                           "stats",
                           "passes",
                           "failures",
                           "eval_id",
                           "submission_payload",
                           "attempt_evidence",
                           "per_column_stats",
                           "tracking_metric_kwargs",
                           "sharpe",
                           "quality_score",
                           "correlation"};

Names keys_of(const Mapping& record) {
  Names keys;
  MappingCursor cursor(record);
  while (const auto entry = cursor.next())
    keys.push_back(str(entry->key));
  return keys;
}

// Outcomes of the evaluator, and of the host's operations beside it.
class Outcomes {
 public:
  explicit Outcomes(std::uint64_t seed) : random_(seed) {}

  bool chance(std::size_t one_in) { return random_.below(one_in) == 0; }
  Value anything() { return random_.any(2); }

  // Of the expected shape.
  Mapping regular() {
    Mapping outcome;
    if (!chance(5)) outcome.set("record", record());
    if (chance(2)) {
      List payloads;
      for (std::size_t count = random_.below(3); payloads.size() < count;) {
        Mapping payload;
        if (chance(2)) payload.set("eval_id", random_.scalar());
        if (chance(4)) payload.set("backtest_timing", timing());
        payloads.append(payload);
      }
      outcome.set("submission_payloads", payloads);
    }
    if (chance(2)) {
      Mapping evidence;
      if (chance(2)) evidence.set("backtest_completed", chance(2));
      if (chance(2)) evidence.set("backtest_timing", timing());
      outcome.set("attempt_evidence", evidence);
    }
    return outcome;
  }

  // The same with anything in one place.
  Value odd() {
    if (chance(8)) return anything();
    Mapping outcome = regular();
    static constexpr const char* kPlaces[] = {"record", "submission_payloads", "attempt_evidence"};
    const char* const place = kPlaces[random_.below(3)];
    std::optional<Mapping> inner = as_mapping(outcome.get(place));
    if (inner && chance(2)) {
      static constexpr const char* kInner[] = {"passed",           "stats",
                                               "rejection_reason", "tracking_metric_kwargs",
                                               "backtest_timing",  "backtest_completed"};
      inner->set(kInner[random_.below(6)], anything());
    } else {
      outcome.set(place, anything());
    }
    return outcome;
  }

 private:
  Mapping record() {
    Mapping made;
    if (!chance(4)) made.set("passed", chance(2) ? Value(chance(2)) : random_.scalar());
    if (!chance(4)) {
      Mapping attributes;
      for (const char* name : {"sharpe", "quality_score", "correlation"})
        if (chance(2)) attributes.set(name, chance(4) ? random_.scalar() : Value(0.5));
      made.set("stats", scripted_object(attributes, nullptr, "Stats"));
    }
    if (chance(2)) made.set("rejection_reason", chance(4) ? Value("") : Value("sharpe_min"));
    if (chance(2)) made.set("tracking_metric_kwargs", tracking());
    if (chance(2)) made.set("per_column_stats", anything());
    return made;
  }
  Value tracking() {
    Mapping made;
    if (chance(2)) made.set("failure_reason", "turnover_max");
    if (chance(2)) made.set("failure_detail", anything());
    return made;
  }
  Value timing() { return chance(6) ? Value() : Value(Mapping{{"seconds", chance(8) ? 2 : 1}}); }

  RandomValues random_;
};

// The kinds that the rules let pass: what is no record, no pair, no key or no number.
std::string kind_of(const std::exception& error) {
  for (const auto& [kind, matches] :
       {std::pair<const char*, bool>{"AttributeError",
                                     dynamic_cast<const AttributeError*>(&error) != nullptr},
        {"TypeError", dynamic_cast<const TypeError*>(&error) != nullptr},
        {"ValueError", dynamic_cast<const ValueError*>(&error) != nullptr},
        {"LookupError", dynamic_cast<const LookupError*>(&error) != nullptr},
        {"RuntimeError", dynamic_cast<const RuntimeError*>(&error) != nullptr}}) {
    if (matches) return kind;
  }
  return "unexpected";
}

// What may leave for an outcome of the expected shape: a correlation that is no finite number, and
// timings that are bad or disagree.
void expect_foreseen(const std::exception& error) {
  const auto* const foreseen = dynamic_cast<const Error*>(&error);
  ASSERT_NE(foreseen, nullptr) << error.what();
  EXPECT_THAT(foreseen->type_name() + ": " + foreseen->text(),
              testing::AnyOf(
                  "ValueError: candidate correlation must be a finite number or None",
                  "RuntimeError: genetic candidate has invalid backtest timing: no timing",
                  "RuntimeError: genetic candidate attempt evidence backtest timing disagrees with "
                  "submission payload backtest timing"));
}

void expect_well_formed(const Mapping& record, const Value& outcome) {
  Names expected = kRecordKeys;
  if (record.contains("backtest_timing")) {
    expected.emplace_back("backtest_timing");
    EXPECT_FALSE(record.at("backtest_timing").is_absent());
  }
  EXPECT_THAT(keys_of(record), ElementsAreArray(expected));
  EXPECT_TRUE(record.at("passes").is_boolean());
  EXPECT_TRUE(record.at("sharpe").is_real() || std::isnan(to_float(record.at("sharpe"))));
  EXPECT_TRUE(record.at("quality_score").is_real() ||
              std::isnan(to_float(record.at("quality_score"))));
  const Value correlation = record.at("correlation");
  EXPECT_TRUE(correlation.is_absent() ||
              (correlation.is_real() && std::isfinite(correlation.real())));
  EXPECT_TRUE(record.at("tracking_metric_kwargs").is_mapping());

  const Mapping failures = record.at("failures").mapping();
  EXPECT_LE(failures.size(), 1U);
  MappingCursor cursor(failures);
  while (const auto entry = cursor.next()) {
    EXPECT_TRUE(truth(entry->key));
    const Mapping failure = entry->value.mapping();
    EXPECT_TRUE(is_same_or_equal(failure.at("reason"), entry->key));
    EXPECT_EQ(failure.size(), failure.contains("detail") ? 2U : 1U);
    EXPECT_FALSE(failure.contains("detail") && failure.at("detail").is_absent());
  }

  const Value payload = record.at("submission_payload");
  EXPECT_TRUE(payload.is_absent() || payload.is_mapping());
  const Value eval_id = payload.is_absent() ? Value() : payload.mapping().get("eval_id");
  EXPECT_TRUE(is_same_or_equal(record.at("eval_id"), eval_id));
  const Value evidence = outcome.mapping().get("attempt_evidence");
  EXPECT_TRUE(is_same_or_equal(record.at("attempt_evidence"), evidence));
  // A timing stands only where the backtest was completed.
  const auto evidence_record = as_mapping(evidence);
  const bool completed = truth(record.at("passes")) ||
                         (evidence_record && truth(evidence_record->get("backtest_completed")));
  EXPECT_EQ(record.contains("backtest_timing"), completed);
}

TEST(SimulationOutcomes, GiveAWellFormedRecordOrAnErrorThatPasses) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  Outcomes outcomes(seed);
  int records = 0;
  int errors = 0;
  for (int i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) {
    ScriptedHost host;
    const bool regular = outcomes.chance(2);
    const Value outcome = regular ? Value(outcomes.regular()) : outcomes.odd();
    SCOPED_TRACE(repr(outcome));
    host.context.on_evaluate_for_template =
        always(scripted_callable(host.log, "evaluate", always(outcome)));
    host.backtest_timings.on_validate_graph = [](std::span<const Value> values, const Mapping&) {
      if (values[1].is_absent()) throw TypeError("no timing");
      return deep_copy(values[1]);
    };
    bool odd_derivation = false;
    if (outcomes.chance(2)) {
      odd_derivation = outcomes.chance(2);
      const Value answer =
          odd_derivation ? outcomes.anything() : Value(Tuple{"gross_returns_sharpe_min", Value()});
      host.context.on_derive_rejection_reason_detail =
          always(scripted_callable(host.log, "derive", always(answer)));
    }
    try {
      expect_well_formed(
          simulate_candidate(host.bundle(), host.context, Mapping{{"node", "close"}}), outcome);
      ++records;
    } catch (const std::exception& error) {
      EXPECT_NE(kind_of(error), "unexpected") << error.what();
      if (regular && !odd_derivation) expect_foreseen(error);
      ++errors;
    }
    EXPECT_EQ(host.log.count("evaluate"), 1U);
  }
  // Both happen, or this would show nothing.
  EXPECT_GT(records, 300);
  EXPECT_GT(errors, 100);
}

TEST(SimulationOutcomes, ErrorsOfTheEvaluatorAlwaysGiveARecord) {
  const Names keys = [] {
    ScriptedHost host;
    host.context.on_evaluate_for_template =
        always(scripted_callable(host.log, "evaluate", failing(ValueError("first"))));
    return keys_of(simulate_candidate(host.bundle(), host.context, Mapping()));
  }();
  EXPECT_THAT(keys, ElementsAreArray(kRecordKeys));
  const std::vector<ScriptedCallable::Function> evaluators = {failing(TypeError("")),
                                                              failing(ValueError("v")),
                                                              failing(OverflowError("o")),
                                                              failing(AttributeError("a")),
                                                              failing(KeyError("k")),
                                                              failing(RecursionError("r")),
                                                              failing(std::bad_alloc()),
                                                              failing(std::runtime_error("s")),
                                                              failing(ScriptedProcessError("p"))};
  for (const auto& evaluate : evaluators) {
    ScriptedHost host;
    host.context.on_evaluate_for_template =
        always(scripted_callable(host.log, "evaluate", evaluate));
    const Mapping record = simulate_candidate(host.bundle(), host.context, Mapping());
    EXPECT_THAT(keys_of(record), ElementsAreArray(keys));
    EXPECT_EQ(record.at("passes"), false);
    EXPECT_EQ(record.at("failures").mapping().size(), 1U);
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
