// Goal: a child tells the parent of its backtest, once it has all that it needs for the answer, and
// runs it only after an acceptance that is its own.
// Method: queues that give what a test puts there.
#include "search_templates/genetic/process/backtest_boundary.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class BacktestBoundary : public testing::Test {
 protected:
  BacktestBoundary() { state.set_attempt_id("earlier"); }

  std::string signal(std::initializer_list<Value> positional, const Mapping& keywords = Mapping(),
                     const Value& index = 3, const Value& attempt = 1) {
    return error_of([&] {
      signal_child_backtest_boundary(channel, index, attempt, state,
                                     {positional.begin(), positional.size()}, keywords);
      return 0;
    });
  }
  void answer(const Value& message) { answers->messages.push_back(message); }
  void accept() { answer(Tuple{3, 1, true, Value(), "identity"}); }

  CallLog log;
  std::shared_ptr<ScriptedQueue> boundary = std::make_shared<ScriptedQueue>(log, "boundary");
  std::shared_ptr<ScriptedQueue> answers = std::make_shared<ScriptedQueue>(log, "answers");
  BoundaryChannel channel{
      boundary, std::make_shared<ScriptedAcknowledgementQueues>(CandidateQueues{{3, answers}})};
  OwnEvaluationState state;
};

TEST_F(BacktestBoundary, OtherPhasesDoNothingAlsoWithoutQueues) {
  channel = {};
  EXPECT_EQ(signal({"a", "build"}, Mapping(), "x", "y"), "no error");
  EXPECT_EQ(signal({}, Mapping{{"phase", "build"}}), "no error");
  EXPECT_EQ(signal({}), "no error");
  EXPECT_EQ(signal({"run_backtest", "build"}), "no error");
  EXPECT_EQ(signal({"run_backtest"}, Mapping{{"phase", "build"}}), "no error");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BacktestBoundary, ThePhaseIsTheKeywordOrTheLastPositional) {
  for (int i = 0; i < 3; ++i)
    accept();
  EXPECT_EQ(signal({"tracker", Mapping(), "run_backtest"}), "no error");
  EXPECT_EQ(signal({"build"}, Mapping{{"phase", "run_backtest"}}), "no error");
  EXPECT_EQ(signal({"run_backtest"}, Mapping{{"phase", Value()}}), "no error");
  EXPECT_EQ(boundary->messages.size(), 3U);
  EXPECT_EQ(*state.attempt_id(), "identity");
}

TEST_F(BacktestBoundary, TheSignalIsSentBeforeTheAnswerIsAwaited) {
  accept();
  EXPECT_EQ(signal({"run_backtest"}, Mapping(), "3", 1.9), "no error");
  EXPECT_THAT(log.lines(), ElementsAre("boundary.put((3, 1))", "answers.get()"));
}

TEST_F(BacktestBoundary, NothingIsSentWithoutBothQueues) {
  const BoundaryChannel whole = channel;
  constexpr const char* kNoChannel =
      "RuntimeError: genetic child backtest boundary requires a parent acknowledgement channel";
  channel.backtest_boundary_queue = nullptr;
  EXPECT_EQ(signal({"run_backtest"}), kNoChannel);
  channel = whole;
  channel.backtest_acknowledgement_queues = nullptr;
  EXPECT_EQ(signal({"run_backtest"}), kNoChannel);
  channel = whole;
  EXPECT_EQ(signal({"run_backtest"}, Mapping(), 4),
            "RuntimeError: genetic child backtest boundary is missing its candidate "
            "acknowledgement queue");
  EXPECT_EQ(signal({"run_backtest"}, Mapping(), "x").substr(0, 10), "ValueError");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BacktestBoundary, OnlyItsOwnAcceptanceLetsTheBacktestRun) {
  const auto refused = [this](const Value& message) {
    answer(message);
    const std::string error = signal({"run_backtest"});
    EXPECT_EQ(*state.attempt_id(), "earlier");
    return error;
  };
  constexpr const char* kMismatched =
      "RuntimeError: genetic child received a mismatched parent backtest acknowledgement";
  constexpr const char* kNotPersisted =
      "RuntimeError: genetic parent failed to persist the backtest attempt";
  // An answer to an earlier attempt, and one to another candidate, whatever else they say.
  EXPECT_EQ(refused(Tuple{3, 0, true, Value(), "id"}), kMismatched);
  EXPECT_EQ(refused(Tuple{4, 1, false, "why", Value()}), kMismatched);
  EXPECT_EQ(refused(Tuple{3, 1, false, "disk", Value()}), std::string(kNotPersisted) + ": disk");
  EXPECT_EQ(refused(Tuple{3, 1, false, "", Value()}), kNotPersisted);
  EXPECT_EQ(refused(Tuple{3, 1, 0, Value(), "id"}), kNotPersisted);
  EXPECT_EQ(
      refused(Tuple{3, 1, true, Value(), Value()}),
      "RuntimeError: genetic parent acknowledgement is missing the backtest attempt identity");
  EXPECT_EQ(refused(Tuple{3, 1, true, Value()}),
            "ValueError: not enough values to unpack (expected 5, got 4)");
  EXPECT_EQ(refused(Tuple{3, 1, true, Value(), "id", 6}),
            "ValueError: too many values to unpack (expected 5)");
  EXPECT_EQ(refused(5), "TypeError: cannot unpack non-iterable int object");
}

TEST_F(BacktestBoundary, AnIdentityMayBeFalse) {
  answer(Tuple{"3", 1.0, "yes", "ignored", 0});
  EXPECT_EQ(signal({"run_backtest"}), "no error");
  EXPECT_EQ(*state.attempt_id(), 0);
}

}  // namespace
}  // namespace varnholt::genetic::test
