// The outlook of a signal whose Sharpe ratio is too small, by a table of figures: before costs,
// after costs, the thresholds.
#include "hosts/embedded/planner/repair_case.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

RepairCase missed_sharpes(std::optional<double> gross, std::optional<double> net) {
  RepairCase failed;
  failed.gross_sharpe = gross;
  failed.sharpe = net;
  failed.failures = {{"gross_returns_sharpe_below_min", gross, 0.4}, {"sharpe_min", net, 0.3}};
  return failed;
}

TEST(SharpeOutlook, FollowsTheFiguresBeforeAndAfterCosts) {
  struct Row {
    double gross;
    double net;
    SharpeOutlook outlook;
  };
  for (const Row& row : {
           // Turned round: 0.5 before costs, 0.4 after them.
           Row{-0.5, -0.6, SharpeOutlook::Reversed},
           // 0.4 and exactly the 0.3 that are asked for.
           Row{-0.4, -0.5, SharpeOutlook::Reversed},
           // 0.5 before costs, 0.2 after them.
           Row{-0.5, -0.8, SharpeOutlook::ReversedIfCheaper},
           // 0.2 before costs, and 0.1 after them.
           Row{-0.2, -0.3, SharpeOutlook::ReversedIfCheaper},
           // 0.2 before costs, nothing after them.
           Row{-0.2, -0.4, SharpeOutlook::Weak},
           Row{0.5, 0.1, SharpeOutlook::EatenByCosts},
           Row{0.4, -1.0, SharpeOutlook::EatenByCosts},
           Row{0.2, 0.1, SharpeOutlook::NearMiss},
           Row{0.2, 0.0, SharpeOutlook::Weak},
           Row{0.0, 0.0, SharpeOutlook::Weak},
       }) {
    EXPECT_EQ(sharpe_outlook(missed_sharpes(row.gross, row.net)), row.outlook)
        << row.gross << " and " << row.net;
  }
}

TEST(SharpeOutlook, IsNothingForOneThatMissedNoSharpeGate) {
  RepairCase failed;
  failed.sharpe = -1.0;
  EXPECT_FALSE(sharpe_outlook(failed));
  failed.failures = {{"turnover_max", 2.0, 1.0}};
  EXPECT_FALSE(sharpe_outlook(failed));
}

TEST(SharpeOutlook, TakesWhatIsKnownForWhatIsNot) {
  RepairCase failed;
  failed.failures = {{"sharpe_min", -0.5, 0.3}};
  EXPECT_EQ(sharpe_outlook(failed), SharpeOutlook::Reversed);
  failed.failures = {{"sharpe_min", {}, 0.3}};
  EXPECT_EQ(sharpe_outlook(failed), SharpeOutlook::Weak);
  failed.gross_sharpe = 0.2;
  EXPECT_EQ(sharpe_outlook(failed), SharpeOutlook::NearMiss);
  // Any gain is enough where no threshold is known.
  failed.failures = {{"gross_returns_sharpe_below_min", -0.01, {}}};
  failed.gross_sharpe.reset();
  EXPECT_EQ(sharpe_outlook(failed), SharpeOutlook::Reversed);
}

TEST(SharpeOutlook, TrustsTheStatisticsMoreThanTheFailure) {
  RepairCase failed = missed_sharpes(-0.5, -0.6);
  failed.failures[0].value = 0.2;
  failed.failures[1].value = 0.1;
  EXPECT_EQ(sharpe_outlook(failed), SharpeOutlook::Reversed);
}

TEST(RepairCase, FindsAFailureByItsReason) {
  const RepairCase failed = missed_sharpes(0.1, 0.0);
  ASSERT_NE(failed.missed("sharpe_min"), nullptr);
  EXPECT_EQ(failed.missed("sharpe_min")->threshold, 0.3);
  EXPECT_EQ(failed.missed("turnover_max"), nullptr);
}

}  // namespace
}  // namespace varnholt::embedded::test
