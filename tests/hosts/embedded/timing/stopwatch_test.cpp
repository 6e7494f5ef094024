// The stopwatch: what it reads from which clock, and when.
// Method: a clock that is told the time; the system's clocks for what holds of any real timing.
#include "hosts/embedded/timing/stopwatch.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/timing/timing_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

class ToldClock : public TimingClock {
 public:
  double wall_seconds() override { return wall; }
  double monotonic_seconds() override { return monotonic; }
  double cpu_seconds() override { return cpu; }

  double wall = 1000.5;
  double monotonic = 50.0;
  double cpu = 7.0;
};

TEST(Stopwatch, TellsStartElapsedAndProcessorTime) {
  ToldClock clock;
  const BacktestStopwatch stopwatch(clock, some_process());
  clock.wall = 3.0;  // Somebody set it back.
  clock.monotonic = 50.25;
  clock.cpu = 7.125;
  EXPECT_EQ(genetic::repr(stopwatch.timing(some_graph())), genetic::repr(some_timing()));
  clock.monotonic = 51.0;
  EXPECT_EQ(stopwatch.timing(some_graph()).at("elapsed_seconds").real(), 1.0);
}

TEST(Stopwatch, RefusesAClockThatWentBack) {
  ToldClock clock;
  const BacktestStopwatch stopwatch(clock, some_process());
  clock.monotonic = 49.0;
  EXPECT_EQ(refusal<genetic::ValueError>([&] { return stopwatch.timing(some_graph()); }),
            "backtest timing elapsed_seconds must be finite seconds of 0 or more, not -1");
}

TEST(SystemTimingClock, GivesATimingOfThisProcess) {
  SystemTimingClock clock;
  const ProcessIdentity own = own_identity();
  const double before = clock.wall_seconds();
  const BacktestStopwatch stopwatch(clock, own);
  double sum = 0.0;
  for (int i = 0; i < 200'000; ++i)
    sum += 1.0 / (i + 1.0);
  const genetic::Mapping timing = stopwatch.timing(some_graph());
  EXPECT_GT(sum, 12.0);
  EXPECT_EQ(genetic::repr(validate_process_backtest_timing_payload(some_graph(), timing)),
            genetic::repr(timing));
  EXPECT_EQ(timing.at("process_id").integer(), own.pid);
  EXPECT_EQ(timing.at("process_started").integer(), own.started_ticks);
  EXPECT_GT(own.started_ticks, 0);
  EXPECT_GE(timing.at("started_at").real(), before);
  EXPECT_GT(timing.at("elapsed_seconds").real(), 0.0);
  EXPECT_GT(timing.at("cpu_seconds").real(), 0.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
