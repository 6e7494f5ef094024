// Goal: each way of telling a run writes what it should, where it should, and no more often.
// Method: events by hand, read from two pipes.
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/json_observer.hpp"
#include "apps/genetic_search/text_observer.hpp"
#include "tests/apps/genetic_search/captured.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Observers : public ::testing::Test {
 protected:
  TextObserver text_observer(std::optional<std::size_t> width, bool quiet = false) {
    TextObserver::Style style;
    if (width) style.terminal_width = [width] { return *width; };
    style.quiet = quiet;
    return {{text.output, messages.output}, interrupt, options, style};
  }
  JsonObserver json_observer(bool quiet = false) {
    return {{text.output, messages.output}, interrupt, options, quiet};
  }

  embedded::InterruptFlag interrupt;
  Captured text{interrupt};
  Captured messages{interrupt};
  embedded::SearchOptions options;
};

embedded::SearchProgress progress_at(double seconds) {
  embedded::SearchProgress progress = samples::progress();
  progress.elapsed_seconds = seconds;
  return progress;
}

TEST_F(Observers, TellTheMeasuringOfThePool) {
  TextObserver terminal = text_observer(30);
  embedded::PoolMeasuring measuring{.members = 40, .done = 12, .elapsed_seconds = 1.0};
  terminal.on_measuring(measuring);
  EXPECT_EQ(text.take(), "\r\x1b[Kmeasuring the signals of...");
  measuring.elapsed_seconds = 1.05;
  terminal.on_measuring(measuring);
  EXPECT_EQ(text.take(), "") << "too soon";
  measuring.is_over = true;
  terminal.on_measuring(measuring);
  EXPECT_THAT(text.take(), StartsWith("\r\x1b[K40 signals of the signal"));
  TextObserver file = text_observer(std::nullopt);
  JsonObserver json = json_observer();
  TextObserver quiet = text_observer(std::nullopt, true);
  JsonObserver quiet_json = json_observer(true);
  measuring.is_over = false;
  for (RunObserver* const each :
       {static_cast<RunObserver*>(&file), static_cast<RunObserver*>(&json)})
    each->on_measuring(measuring);
  EXPECT_EQ(text.take(), "") << "only the outcome";
  measuring.is_over = true;
  file.on_measuring(measuring);
  EXPECT_THAT(text.take(), StartsWith("40 signals of the signal pool"));
  json.on_measuring(measuring);
  EXPECT_THAT(text.take(), StartsWith(R"({"event":"measured","members":40)"));
  quiet.on_measuring(measuring);
  quiet_json.on_measuring(measuring);
  EXPECT_EQ(text.take(), "");
}

TEST_F(Observers, DrawOneLineOverAndOverOnATerminal) {
  TextObserver observer = text_observer(60);
  observer.on_started(samples::started());
  EXPECT_THAT(text.take(), StartsWith("prices  prices.csv"));
  observer.on_tick(progress_at(1.0), 1);
  const std::string line = text.take();
  EXPECT_THAT(line, StartsWith("\r\x1b[Kgen 4 1/32 | 96 cand 96.0/s"));
  EXPECT_LE(line.size(), 4U + 57U);  // With room for the cursor and a "^C".
  observer.on_tick(progress_at(1.05), 2);
  EXPECT_EQ(text.take(), "");  // Too soon.
  observer.on_generation(progress_at(1.5));
  EXPECT_EQ(text.take(), "");  // Not on a terminal.
  observer.on_tick(progress_at(1.5), 3);
  EXPECT_THAT(text.take(), StartsWith("\r\x1b[Kgen 4 3/32"));
  observer.finish(samples::summary());
  EXPECT_THAT(text.take(), AllOf(StartsWith("\r\x1b[KMetrics\n"), EndsWith("was reached.\n")));
  EXPECT_EQ(messages.take(), "");
}

TEST_F(Observers, TakeTheLineAwayForAWarning) {
  TextObserver observer = text_observer(60);
  observer.on_tick(progress_at(1.0), 1);
  static_cast<void>(text.take());
  observer.on_log(embedded::LogLevel::Warning, "careful");
  EXPECT_EQ(text.take(), "\r\x1b[K");
  EXPECT_EQ(messages.take(), "genetic-search: warning: careful\n");
  observer.on_log(embedded::LogLevel::Error, "two\nlines");
  EXPECT_EQ(messages.take(), "genetic-search: error: two?lines\n");
  EXPECT_EQ(text.take(), "");
}

TEST_F(Observers, AddALineAGenerationWhereThereIsNoTerminal) {
  TextObserver observer = text_observer(std::nullopt);
  observer.on_started(samples::started());
  static_cast<void>(text.take());
  observer.on_tick(progress_at(1.0), 1);
  EXPECT_EQ(text.take(), "");
  observer.on_generation(samples::progress());
  EXPECT_THAT(text.take(), AllOf(StartsWith("generation 3: "), EndsWith("\n")));
  observer.finish(samples::summary());
  EXPECT_THAT(text.take(), StartsWith("\nMetrics\n"));
}

TEST_F(Observers, LeaveSubmissionsToTheEnd) {
  TextObserver observer = text_observer(std::nullopt);
  observer.on_started(samples::started());
  static_cast<void>(text.take());
  observer.on_settled(samples::settled(17));
  EXPECT_EQ(text.take(), "");
  observer.finish(samples::summary());
  // The days are those that the beginning told.
  EXPECT_THAT(text.take(), AllOf(HasSubstr("Submitted to the signal pool \"signals\": 2 signals"),
                                 HasSubstr("2451 days from 2000-03-01 to 2009-11-27")));
}

TEST_F(Observers, TellOnlyTheEndWhenQuiet) {
  TextObserver observer = text_observer(60, true);
  observer.on_started(samples::started());
  observer.on_tick(progress_at(1.0), 1);
  observer.on_generation(samples::progress());
  EXPECT_EQ(text.take(), "");
  observer.on_log(embedded::LogLevel::Warning, "careful");
  EXPECT_NE(messages.take(), "");
  observer.finish(samples::summary());
  EXPECT_THAT(text.take(), StartsWith("Metrics\n"));
}

TEST_F(Observers, TellOnceThatTheyAreStopping) {
  TextObserver observer = text_observer(60);
  observer.on_tick(progress_at(1.0), 1);
  EXPECT_EQ(messages.take(), "");
  interrupt.requests = 1;
  static_cast<void>(text.take());
  observer.on_tick(progress_at(2.0), 2);
  observer.on_tick(progress_at(3.0), 3);
  EXPECT_EQ(messages.take(),
            "genetic-search: stopping after 96 candidates (press Ctrl-C again to end at once)\n");
  EXPECT_THAT(text.take(), StartsWith("\r\x1b[K\r\x1b[Kgen"));
}

TEST_F(Observers, KnowWhetherTheSearchHasBegun) {
  TextObserver observer = text_observer(60);
  EXPECT_FALSE(observer.has_started());
  observer.on_started(samples::started());
  EXPECT_TRUE(observer.has_started());
}

TEST_F(Observers, TellMachinesOneEventALineWithTheMetricsLast) {
  JsonObserver observer = json_observer();
  observer.on_started(samples::started());
  observer.on_tick(progress_at(1.0), 1);
  observer.on_recorded(samples::passing(17, 1.32));
  observer.on_settled(samples::settled(17));
  observer.on_generation(samples::progress());
  observer.on_log(embedded::LogLevel::Warning, "careful");
  interrupt.requests = 1;
  observer.on_tick(progress_at(2.0), 1);
  observer.on_metrics(samples::metrics());
  observer.finish(samples::summary());
  std::vector<std::string> events;
  std::istringstream lines(text.take());
  for (std::string line; std::getline(lines, line);)
    events.push_back(Json::parse(line)["event"].get<std::string>());
  EXPECT_THAT(events, ::testing::ElementsAre("started", "recorded", "settled", "generation", "log",
                                             "stopping", "ended", "metrics"));
  EXPECT_THAT(messages.take(), HasSubstr("stopping after 96 candidates"));
}

TEST_F(Observers, TellMachinesOnlyTheEndWhenQuiet) {
  JsonObserver observer = json_observer(true);
  observer.on_started(samples::started());
  observer.on_settled(samples::settled(17));
  observer.on_recorded(samples::passing(17, 1.32));
  observer.on_generation(samples::progress());
  EXPECT_EQ(text.take(), "");
  observer.finish(samples::summary());
  EXPECT_THAT(text.take(), StartsWith("{\"event\":\"ended\""));
}

TEST_F(Observers, SayWhetherTheyTellOfCandidates) {
  const auto tells = [this](embedded::SearchObserver&& observer) {
    const bool says = observer.tells_candidates();
    observer.on_recorded(samples::passing(17, 1.32));
    EXPECT_EQ(text.take() + messages.take() != "", says) << "who tells says so";
    return says;
  };
  EXPECT_FALSE(tells(text_observer(80)));
  EXPECT_FALSE(tells(text_observer(std::nullopt)));
  EXPECT_TRUE(tells(json_observer()));
  EXPECT_FALSE(tells(json_observer(true)));
}

}  // namespace
}  // namespace varnholt::app::test
