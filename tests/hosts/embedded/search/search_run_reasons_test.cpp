// Every reason of the reason tables arises in a real search, and its evidence is in the store; a
// configuration that cannot be is refused before there is a store.
// Method: one short search a reason, each with a configuration in which nothing else fails first.
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/config/host_config.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Field;

struct Case {
  const char* reason;
  const char* config;  // On top of gates that nothing fails.
  const char* gate;    // In the evidence.
  const char* comparison;
};

// Gates that every book passes but one that holds nothing.
constexpr std::string_view kOpen =
    "gates.sharpe_min = -1e6\n"
    "gates.gross_returns_sharpe_min = -1e6\n"
    "gates.turnover_max = 2.0\n"
    "gates.abs_weight_sum_mean_min = 0.0\n";

constexpr std::array kCases = {
    Case{"turnover_exceeded", "limits.turnover = 0.01", "turnover_limit", ">"},
    Case{"max_weight_exceeded", "limits.max_weight = 0.01", "max_weight_limit", ">"},
    Case{"delta_exposure_exceeded", "limits.delta_exposure = 0.01", "delta_exposure_limit", ">"},
    Case{"abs_weight_sum_mean_below_min", "gates.abs_weight_sum_mean_min = 1.0",
         "abs_weight_sum_mean_min", "<"},
    Case{"turnover_max", "gates.turnover_max = 0.01", "turnover_max", ">"},
    Case{"max_weight_max", "gates.max_weight_max = 0.01", "max_weight_max", ">"},
    Case{"delta_exposure_max", "gates.delta_exposure_max = 0.01", "delta_exposure_max", ">"},
    Case{"gross_returns_sharpe_below_min", "gates.gross_returns_sharpe_min = 1e6",
         "gross_returns_sharpe_min", "<"},
    Case{"sharpe_min", "gates.sharpe_min = 1e6", "sharpe_min", "<"},
    Case{"pnl_mi_below_threshold", "pool.novelty_min = 1.0", "is_pnl_mi_threshold", "<"},
    Case{"correlation_exceeded", "pool.correlation_max = 0.0\npool.novelty_min = 0.0",
         "is_correlation_threshold", ">"}};

// `config` with the lines of `open` that it does not replace.
HostConfig config_of(const std::string& config) {
  std::string text = config + "\n";
  std::string_view rest = kOpen;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    if (config.find(line.substr(0, line.find(' '))) == std::string::npos) {
      text.append(line).append("\n");
    }
    rest.remove_prefix(line.size() + 1);
  }
  return parse_host_config(text, "test.toml");
}

class SearchRunReasons : public SearchRunTest, public ::testing::WithParamInterface<Case> {};

TEST_P(SearchRunReasons, ArisesAndIsRecordedWithItsEvidence) {
  const Case& tested = GetParam();
  SearchOptions options = this->options();
  options.config = config_of(tested.config);
  options.batch_size = 8;
  options.generations = 3;
  static_cast<void>(run_search(options, observer_, interrupt_));

  SqliteRunStore store(options.database.string());
  EXPECT_THAT(store.failure_counts(1), Contains(Field(&FailureCount::reason, tested.reason)));
  std::int64_t found = 0;
  for (const CandidateRecorded& candidate : observer_.recorded) {
    if (candidate.failure_reason != tested.reason) continue;
    ++found;
    const EvaluationRecord row = store.find_evaluation(candidate.eval_id)->evaluation;
    EXPECT_EQ(row.failure_reason, tested.reason);
    EXPECT_EQ(row.failure_detail, candidate.failure_detail);
    const Mapping evidence = read_json(row.failures_json).mapping().at(tested.reason).mapping();
    EXPECT_EQ(evidence.at(keys::kGate).text(), tested.gate);
    EXPECT_EQ(evidence.at(keys::kOperator).text(), tested.comparison);
    const double value = evidence.at(keys::kValue).real();
    const double threshold = evidence.at(keys::kThreshold).real();
    EXPECT_TRUE(tested.comparison == std::string(">") ? value > threshold : value < threshold)
        << row.failures_json;
    EXPECT_THAT(candidate.failure_detail,
                ::testing::HasSubstr(tested.comparison == std::string(">") ? "above" : "below"));
  }
  EXPECT_GT(found, 0);
}

INSTANTIATE_TEST_SUITE_P(All, SearchRunReasons, ::testing::ValuesIn(kCases),
                         [](const auto& tested) { return std::string(tested.param.reason); });

TEST(SearchRunReasonTables, AreAllAmongTheCases) {
  const auto is_tested = [](std::string_view reason) {
    return std::any_of(kCases.begin(), kCases.end(),
                       [reason](const Case& tested) { return reason == tested.reason; });
  };
  for (const auto& reason : genetic::REACTION_FAILURE_REASONS)
    EXPECT_TRUE(is_tested(reason.view())) << reason.view();
  for (const auto& reason : genetic::GATE_NEAR_MISS_FAILURE_REASONS)
    EXPECT_TRUE(is_tested(reason.view())) << reason.view();
}

TEST_F(SearchRunTest, ALeastDeflatedSharpeRatioKeepsLuckOutOfThePool) {
  SearchOptions options = this->options();
  // Noise: what passes is luck, and without the gate some of it is submitted.
  options.config = config_of("pool.deflated_sharpe_min = 0.99");
  options.batch_size = 8;
  options.generations = 3;
  static_cast<void>(run_search(options, observer_, interrupt_));
  std::int64_t refused = 0;
  for (const SettledSignal& signal : observer_.settled) {
    EXPECT_FALSE(signal.submitted);
    refused += signal.refusal_reason == kDeflatedSharpeBelowMin ? 1 : 0;
  }
  EXPECT_GT(refused, 0);
}

class SearchRunRefusals : public SearchRunTest {
 protected:
  template <typename Error>
  void expect_refused(const SearchOptions& bad, const std::string& part) {
    try {
      static_cast<void>(run_search(bad, observer_, interrupt_));
      FAIL() << "must be refused: " << part;
    } catch (const Error& error) {
      EXPECT_THAT(error.what(), ::testing::HasSubstr(part));
    }
    EXPECT_FALSE(std::filesystem::exists(bad.database));
    EXPECT_TRUE(observer_.started.empty());
  }
};

TEST_F(SearchRunRefusals, ErasThatTheHistoryDoesNotHold) {
  SearchOptions bad = options();
  bad.config.eras.holdout = 0.05;
  expect_refused<EraError>(bad, "the hold-out has 10 days, and 20 are needed");
  bad = options();
  bad.config.eras.train = 10;
  expect_refused<EraError>(bad, "a train era has 15 days");
  bad = options();
  bad.config.eras.era = 4;
  expect_refused<EraError>(bad, "era 4 of 3 train eras");
}

TEST_F(SearchRunRefusals, PoolThresholdsThatCannotBe) {
  SearchOptions bad = options();
  bad.config.pool.correlation_max = 1.5;
  expect_refused<std::invalid_argument>(bad, "the greatest correlation to the pool is 1.5");
  bad = options();
  bad.config.pool.novelty_min = std::nan("");
  expect_refused<std::invalid_argument>(bad, "the least novelty of a new signal is nan");
}

TEST_F(SearchRunRefusals, GatesThatAreNoNumbers) {
  SearchOptions bad = options();
  bad.config.gates.min_sharpe = std::nan("");
  expect_refused<std::invalid_argument>(bad, "sharpe_min");
  bad = options();
  bad.config.limits.turnover = std::nan("");
  expect_refused<std::invalid_argument>(bad, "turnover_limit");
}

TEST_F(SearchRunRefusals, CostsThatNobodyPays) {
  SearchOptions bad = options();
  bad.cost_basis_points = -1.0;
  expect_refused<std::invalid_argument>(bad, "basis points");
  bad.cost_basis_points = 1e9;
  expect_refused<std::invalid_argument>(bad, "basis points");
}

}  // namespace
}  // namespace varnholt::embedded::test
