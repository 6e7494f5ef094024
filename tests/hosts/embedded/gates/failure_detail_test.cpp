// The evidence of a failed gate: its keys, their order, and a text that can be read again.
// Method: one failure, its mapping and its text against what is written out here.
#include "hosts/embedded/gates/failure_detail.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "hosts/embedded/host/json_value.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/gates/gate_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

GateFailure low_sharpe(double sharpe) {
  BacktestStatistics statistics = good_statistics();
  statistics.sharpe = sharpe;
  return first_failed_gate(statistics, some_gates(), some_limits()).value();
}

TEST(FailureDetail, HasTheEvidenceInOrder) {
  EXPECT_EQ(genetic::repr(failure_detail(low_sharpe(0.1))),
            "{'reason': 'sharpe_min', 'metric': 'sharpe', 'value': 0.1, 'threshold': 0.8, "
            "'gate': 'sharpe_min', 'operator': '<', 'category': 'quality'}");
}

TEST(FailureDetail, TakesEvidenceOfAnotherGate) {
  const FailureEvidence evidence{.reason = "correlation_exceeded",
                                 .metric = "correlation",
                                 .value = 0.9,
                                 .threshold = Value(),
                                 .gate = "is_correlation_threshold",
                                 .comparison = ">",
                                 .category = "quality"};
  EXPECT_EQ(genetic::repr(failure_detail(evidence)),
            "{'reason': 'correlation_exceeded', 'metric': 'correlation', 'value': 0.9, "
            "'threshold': None, 'gate': 'is_correlation_threshold', 'operator': '>', "
            "'category': 'quality'}");
}

TEST(FailureDetail, TextIsSortedAndCanBeReadAgain) {
  const std::string text = failure_detail_text(low_sharpe(0.1));
  EXPECT_EQ(text, R"({"category":"quality","gate":"sharpe_min","metric":"sharpe","operator":"<",)"
                  R"("reason":"sharpe_min","threshold":0.8,"value":0.1})");
  const genetic::Mapping read = read_json(text).mapping();
  EXPECT_EQ(read.at("value").real(), 0.1);
  EXPECT_EQ(read.at("threshold").real(), 0.8);
  EXPECT_TRUE(Value(read) == Value(failure_detail(low_sharpe(0.1))));
}

TEST(FailureDetail, TextSaysNaN) {
  EXPECT_NE(failure_detail_text(low_sharpe(std::numeric_limits<double>::quiet_NaN()))
                .find(R"("value":NaN)"),
            std::string::npos);
}

}  // namespace
}  // namespace varnholt::embedded::test
