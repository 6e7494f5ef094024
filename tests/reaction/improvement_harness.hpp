// The scripted host of the tests that repair near misses: short ways to write results, graphs and
// plans.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/reaction/reaction_environment.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {

// A graph of one node, told from others by its name.
[[nodiscard]] inline Value graph_named(const std::string& name) {
  return Mapping{{"node", name}, {"type", "rotation"}};
}
[[nodiscard]] inline std::string name_of(const Value& graph) {
  return str(graph.mapping().at("node"));
}
// The same over features.
[[nodiscard]] inline Value graph_over(const std::string& name,
                                      std::initializer_list<const char*> features) {
  List children;
  for (const char* feature : features)
    children.append(Mapping{{"node", feature}, {"type", "feature"}});
  return Mapping{{"node", name}, {"type", "rotation"}, {"children", children}};
}

// A failure that misses its threshold of 1.0 by so much, from above.
[[nodiscard]] inline Mapping missed_by(double violation) {
  return {{"value", 1.0 + violation}, {"threshold", 1.0}};
}

// A result that failed, worth a repair by its figures.
[[nodiscard]] inline Mapping failed_result(const std::string& name, Mapping failures,
                                           double quality = 1.0) {
  return {{"graph", graph_named(name)},
          {"passes", false},
          {"failures", std::move(failures)},
          {"sharpe", 1.0},
          {"quality_score", quality}};
}
[[nodiscard]] inline Mapping turnover_miss(const std::string& name, double violation = 0.5) {
  return failed_result(name, {{"turnover_max", missed_by(violation)}});
}

[[nodiscard]] inline Value plan_for(const Value& result, const Value& graph, const Value& depth = 1,
                                    const char* plan = "smooth") {
  return Mapping{{"graph", graph},
                 {"source_result", result},
                 {"reaction_plan", plan},
                 {"improvement_depth", depth}};
}

// The names of the graphs of a list of graphs, or of results, or of improvements.
[[nodiscard]] inline std::vector<std::string> names_of(const List& list) {
  std::vector<std::string> names;
  ListCursor cursor(list);
  while (const std::optional<Value> item = cursor.next()) {
    const std::optional<Value> graph = item->mapping().find("graph");
    names.push_back(name_of(graph ? *graph : *item));
  }
  return names;
}

class ImprovementTest : public testing::Test {
 protected:
  ScriptedHost host;
  LoadedConstants constants{host.search_settings, host.process_evaluation};
  ReactionEnvironment environment{host.bundle(), constants, host.context};

  void SetUp() override { host.log.clear(); }

  // The host's scores, by the names of the candidates' graphs; 0.0 for all others.
  void scores(const Mapping& by_name) {
    host.eliteness.on_score_candidate = [by_name](const Value& candidate, const Mapping&) {
      return by_name.get(Value(name_of(candidate.mapping().at("graph"))), 0.0);
    };
  }
  // For whom the host was asked for a score, in order.
  [[nodiscard]] std::vector<std::string> scored() const {
    std::vector<std::string> names;
    for (const std::string& line : host.log.lines()) {
      if (line.rfind("eliteness.score_candidate", 0) != 0) continue;
      const std::size_t start = line.find("'node': '") + 9;
      names.push_back(line.substr(start, line.find('\'', start) - start));
    }
    return names;
  }
};

}  // namespace varnholt::genetic::test
