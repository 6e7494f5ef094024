// Goal: wherever the stop event is set, the run ends there, and it is read anew only where told.
// Method: one script of every kind of turn is stopped at each single test and wait in it, and the
// log is compared with that of the run that nobody stopped; named events tell which one was asked.
#include <algorithm>

#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

// A passing, a failing, an empty and a lost generation, a turn of duplicates that finds
// replacements, and one that does not and so ends the run.
void script(SearchHarness& search) {
  search.draw_in_turn({graphs_named({"pass"}), graphs_named({"fail"}), List(),
                       graphs_named({"lost"}), graphs_named({"pass"}), graphs_named({"pass2"}),
                       graphs_named({"fail"}), List()});
  search.on_outcome = [](const Value& graph) {
    const std::string name = name_of(graph);
    if (name == "lost") throw ScriptedProcessError("gone", {{"candidate_index", 0}});
    return name == "fail" ? failing_for(graph, "sharpe_min") : passing(graph);
  };
  search.stop_event->on_wait = always(false);
}

bool asks_stop_event(const std::string& line) {
  return line.rfind("stop_event.", 0) == 0;
}

// The last question of the improvement rounds when the question at `place` is one of theirs, else
// 0. Their first comes right after the one that ends the counting; their last is the next.
std::size_t end_of_rounds(const Names& full, std::size_t place) {
  const std::string is_set = "stop_event.is_set";
  if (full[place] != is_set) return 0;
  if (place > 0 && full[place - 1] == is_set) {
    return static_cast<std::size_t>(
        std::find(full.begin() + static_cast<std::ptrdiff_t>(place) + 1, full.end(), is_set) -
        full.begin());
  }
  std::size_t before = place;
  while (before > 0 && full[before - 1] != is_set)
    --before;
  return before >= 2 && full[before - 2] == is_set ? place : 0;
}

TEST(SearchStop, EveryTestAndWaitOfARunCanEndIt) {
  SearchHarness whole;
  script(whole);
  whole.run();
  const Names full = whole.host.log.names();
  ASSERT_EQ(whole.metrics.at(0).at("terminal_reason"), "duplicate");
  const auto asked = static_cast<int>(std::count_if(full.begin(), full.end(), asks_stop_event));
  ASSERT_GE(asked, 20);

  for (int stop_at = 1; stop_at <= asked; ++stop_at) {
    SCOPED_TRACE("stopped at question " + std::to_string(stop_at));
    SearchHarness search;
    script(search);
    // Once set, it stays set.
    const auto is_set_by_now = [stop_at, count = std::make_shared<int>(0)](const auto&...) {
      return ++*count >= stop_at;
    };
    search.stop_event->on_is_set = is_set_by_now;
    search.stop_event->on_wait = is_set_by_now;
    search.run();

    Names expected;
    int questions = 0;
    for (std::size_t i = 0; i < full.size() && questions < stop_at; ++i) {
      expected.push_back(full[i]);
      if (asks_stop_event(full[i])) ++questions;
    }
    if (const std::size_t end = end_of_rounds(full, expected.size() - 1); end != 0) {
      // Set during the improvement rounds, the event ends these alone: the generation is recorded
      // and its parents are chosen all the same.
      for (std::size_t i = end + 1; full[i - 1] != "stop_event.wait"; ++i)
        expected.push_back(full[i]);
      EXPECT_THAT(search.host.log.names(), ElementsAreArray(expected + kStopped));
      EXPECT_EQ(search.metrics.at(0).at("terminal_reason"), "stopped");
      continue;
    }
    // Set at the end of a generation, the event is waited for once more: the reason "stopped" does
    // not end the search by itself.
    const std::size_t next = expected.size();
    if (expected.back() == "stop_event.is_set" && full[next] == "stop_event.wait" &&
        full[next - 2] == "context.stop_event") {
      expected.emplace_back("stop_event.wait");
    }
    EXPECT_THAT(search.host.log.names(), ElementsAreArray(expected + kStopped));
    ASSERT_THAT(search.metrics, SizeIs(1));
    EXPECT_EQ(search.metrics[0].at("terminal_reason"), "stopped");
  }
}

TEST(SearchStop, ResultsOfTheGenerationThatIsStoppedAreRecordedAndCounted) {
  SearchHarness search(2);
  search.stop_event->on_is_set = in_turn<bool>({false, true, true});
  search.run();
  EXPECT_EQ(search.host.log.count("safe_record"), 2U);
  EXPECT_EQ(search.host.log.count("enqueue"), 2U);
  // They are ranked for submission, but no generation's best is looked for.
  EXPECT_EQ(search.host.log.count("eliteness.score_candidate"), 2U);
  EXPECT_THAT(search.host.log.lines(), Not(Contains(HasSubstr("diversity_weight="))));
  EXPECT_EQ(search.metrics.at(0).at("candidate_count"), 2);
}

TEST(SearchStop, TheLastTestsAnswerIsDropped) {
  // The pause ends the run although the event says a moment later that it is not set.
  SearchHarness search;
  search.stop_at_pause(1);
  search.stop_event->on_is_set = always(false);
  search.run();
  EXPECT_EQ(search.metrics.at(0).at("terminal_reason"), "stopped");
  EXPECT_THAT(search.metrics, SizeIs(1));
}

// An event that writes its own name into the log.
class NamedStopEvent : public StopEvent {
 public:
  NamedStopEvent(CallLog& log, std::string name, bool is_set)
      : log_(log), name_(std::move(name)), is_set_(is_set) {}

  [[nodiscard]] bool is_set() override {
    log_.add(name_ + " is_set");
    return is_set_;
  }
  [[nodiscard]] bool wait(double /*seconds*/) override {
    log_.add(name_ + " wait");
    return is_set_;
  }

 private:
  CallLog& log_;
  std::string name_;
  bool is_set_;
};

// The questions to stop events and the pool's batches, in order.
Names questions(const CallLog& log) {
  Names names;
  for (const std::string& line : log.lines()) {
    if (line.find("event ") == 0) names.push_back(line);
    if (line.find("fresh.draw") == 0) names.emplace_back("batch");
    if (line.find("process_evaluation.evaluate") == 0) names.emplace_back("pool");
  }
  return names;
}

// Every read of the context's stop event gives another one; `last` is the first that is set.
void name_stop_events(SearchHarness& search, int last) {
  search.host.context.on_stop_event = [&search, last, count = 0]() mutable {
    const std::string name = "event " + std::to_string(++count);
    return std::make_shared<NamedStopEvent>(search.host.log, name, count >= last);
  };
}

TEST(SearchStop, TheEventIsReadAnewOnlyBeforeATurnAfterTheGenerationAndAfterTheLoop) {
  SearchHarness search;
  name_stop_events(search, 5);
  search.run();
  // The first event serves up to the end of the generation, the second for its last test and the
  // pause, the third for the next turn.
  EXPECT_THAT(
      questions(search.host.log),
      ElementsAreArray({"event 1 is_set", "batch", "pool", "event 1 is_set", "event 1 is_set",
                        "event 1 is_set", "event 2 is_set", "event 2 wait", "event 3 is_set",
                        "batch", "pool", "event 3 is_set", "event 3 is_set", "event 3 is_set",
                        "event 4 is_set", "event 4 wait", "event 5 is_set", "event 6 is_set"}));
}

TEST(SearchStop, TheEventIsNotReadAnewWithinAnEmptyTurn) {
  SearchHarness search;
  *search.on_draw = always(Value(List()));
  name_stop_events(search, 3);
  search.run();
  EXPECT_THAT(questions(search.host.log),
              ElementsAreArray({"event 1 is_set", "batch", "event 1 wait", "event 2 is_set",
                                "batch", "event 2 wait", "event 3 is_set", "event 4 is_set"}));
}

TEST(SearchStop, TheEventIsNotReadAnewWithinATurnOfDuplicates) {
  SearchHarness search;
  search.draw_in_turn({graphs_named({"a"}), graphs_named({"a"}), List()});
  name_stop_events(search, 4);
  search.run();
  EXPECT_THAT(
      questions(search.host.log),
      ElementsAreArray({"event 1 is_set", "batch", "pool", "event 1 is_set", "event 1 is_set",
                        "event 1 is_set", "event 2 is_set", "event 2 wait", "event 3 is_set",
                        "batch", "batch", "event 3 is_set"}));
  EXPECT_EQ(search.metrics.at(0).at("terminal_reason"), "duplicate");
}

TEST(SearchStop, EventThatIsTakenAwayLeavesTheRunGoingWithASleep) {
  SearchHarness search;
  search.draw_in_turn({graphs_named({"a"}), graphs_named({"a"}), List()});
  search.host.context.on_stop_event = in_turn<std::shared_ptr<StopEvent>>(
      {std::make_shared<NamedStopEvent>(search.host.log, "event 1", false), nullptr, nullptr});
  search.run();
  EXPECT_THAT(questions(search.host.log),
              ElementsAreArray({"event 1 is_set", "batch", "pool", "event 1 is_set",
                                "event 1 is_set", "event 1 is_set", "batch", "batch"}));
  EXPECT_EQ(search.host.log.count("pause.sleep"), 1U);
}

TEST(SearchStop, EventThatIsGoneAfterTheLoopIsNotTested) {
  SearchHarness search;
  search.host.context.on_stop_event = in_turn<std::shared_ptr<StopEvent>>(
      {std::make_shared<NamedStopEvent>(search.host.log, "event 1", true), nullptr});
  search.run();
  EXPECT_THAT(questions(search.host.log), ElementsAreArray({"event 1 is_set"}));
  EXPECT_EQ(search.metrics.at(0).at("terminal_reason"), "stopped");
}

}  // namespace
}  // namespace varnholt::genetic::test
