// What the tests of attempts share: a host with a tracker and a whole context, the pool's events,
// and what stands in the log.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {

class AttemptTest : public testing::Test {
 protected:
  AttemptTest() {
    host.context.on_tracker = [this] {
      // Shared without being owned: it outlives the context.
      return std::shared_ptr<AttemptTracker>(std::shared_ptr<void>(), &host.tracker);
    };
    host.context.on_attribute = [this](std::string_view name) { return attributes.find(name); };
  }

  // The names of the calls that change something at the host, without look-ups and reads.
  std::vector<std::string> calls() {
    std::vector<std::string> found;
    for (const std::string& line : host.log.lines()) {
      const std::string name = line.substr(0, line.find('('));
      const bool called = line.find('(') != std::string::npos;
      if (called && name != "context.attribute" && name.find(".poll") == std::string::npos)
        found.push_back(name);
    }
    return found;
  }
  // The one line of the log that begins so.
  std::string line_of(std::string_view name) {
    std::string found;
    for (const std::string& line : host.log.lines()) {
      if (line.find('(') == std::string::npos || !line.starts_with(name)) continue;
      EXPECT_EQ(found, "") << "more than one call";
      found = line;
    }
    return found;
  }

  ScriptedHost host;
  Mapping attributes{{"_tracker", "the tracker"},
                     {"_product_run_id", 7},
                     {"_era_number", 12},
                     {"_market_id", 3},
                     {"_attempt_expected_columns", Tuple{"a", "b"}},
                     {"_thresholds", Mapping{{"sharpe", 1.0}}},
                     {"_named_universe", "universe"},
                     {"_metaparameters", Mapping{{"m", 1}}}};
};

[[nodiscard]] inline Value work_item(const Value& graph = Mapping{{"node", "g"}}) {
  return make_object<CandidateEvaluation>(0, graph);
}

[[nodiscard]] inline Mapping dispatch(const Value& index = 0, const Value& attempt = 0) {
  return {
      {keys::kCandidateIndex, index}, {keys::kAttempt, attempt}, {keys::kCandidate, work_item()}};
}

[[nodiscard]] inline Mapping happened(const Value& event, const Value& index = 0,
                                      const Value& attempt = 0) {
  return {{keys::kEvent, event}, {keys::kCandidateIndex, index}, {keys::kAttempt, attempt}};
}

}  // namespace varnholt::genetic::test
