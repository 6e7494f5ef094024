// Goal: a marker is opened only for a candidate that was started and has a graph, with the
// context's values as they are read in order; and the ledger hears of a recorded result, or of one
// that was not. Method: the host's log, and the states of a ledger.
#include "search_templates/genetic/process/attempt_recording.hpp"

#include <array>
#include <stdexcept>

#include "search_templates/genetic/process/attempt_marker.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/process/ledger_fixture.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class AttemptRecording : public LedgerTest {
 protected:
  Value open_marker(const Value& event) {
    return write_parent_process_evaluation_attempt_marker(host.bundle(), host.context, event);
  }
  Value began() {
    Mapping event = happened("started");
    event.set(keys::kCandidate, work_item("graph"));
    return event;
  }
  std::string record(const Value& index) {
    return error_of([&] {
      record_process_candidate_result_in_parent(host.bundle(), host.context, ledger, index,
                                                Mapping{{"graph", "g"}});
      return 0;
    });
  }
};

TEST_F(AttemptRecording, AMarkerIsOpenedWithTheContextsValues) {
  EXPECT_EQ(open_marker(began()), Value("marker-1"));
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("context.attribute('_tracker')", "context.attribute('_named_universe')",
                  "context.attribute('_metaparameters')", "context.attribute('_metaparams_for_db')",
                  "markers.write_evaluation_attempt_marker",
                  "markers.write_evaluation_attempt_marker('the tracker', 'graph', "
                  "'universe', {'m': 1}, 'evaluate_expression')"));
}

TEST_F(AttemptRecording, MetaparametersFallBackOnlyWhereTheyAreMissing) {
  attributes.set("_metaparams_for_db", Value());
  static_cast<void>(open_marker(began()));
  EXPECT_THAT(host.log.lines().back(), HasSubstr("'universe', None, 'evaluate_expression'"));
  for (const char* const name :
       {"_metaparams_for_db", "_metaparameters", "_tracker", "_named_universe"})
    attributes.erase(name);
  static_cast<void>(open_marker(began()));
  EXPECT_THAT(host.log.lines().back(), HasSubstr("(None, 'graph', None, {}, 'evaluate"));
}

TEST_F(AttemptRecording, WhenNoMarkerIsOpened) {
  Mapping without_graph = happened("started");
  without_graph.set(keys::kCandidate, work_item(Value()));
  Mapping other = began().mapping();
  other.set(keys::kEvent, "ok");
  Mapping plain = happened("started");
  plain.set(keys::kCandidate, Mapping{{"graph", "g"}});
  const std::array<Value, 8> events = {Value(),       5,     "started", List(), happened("started"),
                                       without_graph, other, plain};
  for (const Value& event : events)
    EXPECT_TRUE(open_marker(event).is_absent()) << repr(event);
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(AttemptRecording, ARecordedResultEndsItsAttempt) {
  const Mapping attempt = started();
  host.context.on_required_safe_record = always(
      scripted_callable(host.log, "safe_record", [](auto, const auto&) { return Value("id"); }));
  EXPECT_EQ(record("0"), "no error");
  EXPECT_TRUE(truth(attempt.at(keys::kFinalized)));
  EXPECT_EQ(host.log.count("tracker.finalize_simulation_attempt"), 0U);
}

TEST_F(AttemptRecording, AResultThatIsNotRecorded) {
  const Mapping attempt = started();
  host.context.on_required_safe_record =
      always(scripted_callable(host.log, "safe_record", [](auto, const auto&) { return Value(); }));
  EXPECT_EQ(record("0"),
            "RuntimeError: genetic candidate parent evaluation persistence failed: "
            "candidate_index=0");
  EXPECT_TRUE(truth(attempt.at(keys::kFinalized))) << "the recorder has settled it";
  EXPECT_EQ(host.log.count("tracker.finalize_simulation_attempt"), 0U);
}

TEST_F(AttemptRecording, ARecorderThatFailsTellsTheLedgerNothing) {
  const Mapping attempt = started();
  host.context.on_required_safe_record =
      always(scripted_callable(host.log, "safe_record", [](auto, const auto&) -> Value {
        throw std::runtime_error("disk");
      }));
  EXPECT_EQ(record(0), "std::exception: disk");
  EXPECT_FALSE(truth(attempt.at(keys::kFinalized)));
}

}  // namespace
}  // namespace varnholt::genetic::test
