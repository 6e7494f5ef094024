// The smallest useful host of a genetic search: it finds a formula of x by its values.
//
// A "signal" is an expression of x made with "add", "sub" and "mul"; the planted one is x^3 - x.
// The evaluator compares an expression with it at eleven points: the nearer, the better. The search
// breeds expressions until one is exact. docs/library.md tells what each class is for.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "search_templates/genetic/driver/genetic.hpp"
#include "search_templates/genetic/host/attribute_object.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/function_iterator.hpp"
#include "search_templates/genetic/host/in_process_pool.hpp"
#include "search_templates/genetic/value/copy.hpp"

using namespace varnholt::genetic;

namespace {

// The expressions: nodes with a name, a kind and children, as the library knows graphs.

Value node(const char* name, const char* type, const List& children) {
  return Mapping{{"node", name}, {"type", type}, {"children", children}};
}

std::vector<Value> children_of(const Value& graph) {
  std::vector<Value> children;
  ListCursor cursor(graph.mapping().at("children").list());
  while (const std::optional<Value> child = cursor.next())
    children.push_back(*child);
  return children;
}

std::int64_t depth_of(const Value& graph) {
  std::int64_t below = 0;
  for (const Value& child : children_of(graph))
    below = std::max(below, depth_of(child));
  return below + 1;
}

double value_at(const Value& graph, double x) {
  const std::vector<Value> children = children_of(graph);
  if (children.empty()) return x;
  const double left = value_at(children[0], x);
  const double right = value_at(children[1], x);
  const auto name = graph.mapping().at("node").text();
  return name == "add" ? left + right : name == "sub" ? left - right : left * right;
}

std::string text_of(const Value& graph) {
  const std::vector<Value> children = children_of(graph);
  const std::string name(graph.mapping().at("node").text());
  return children.empty() ? name
                          : name + "(" + text_of(children[0]) + ", " + text_of(children[1]) + ")";
}

double error_of(const Value& graph) {
  double error = 0.0;
  for (int point = -5; point <= 5; ++point) {
    const double x = 0.2 * point;
    error += std::abs(value_at(graph, x) - (x * x * x - x));
  }
  return error;
}

// Random graphs, and new graphs from old ones.

Value random_graph(RandomGenerator& rng, int depth) {
  static constexpr std::array kNames = {"add", "sub", "mul"};
  if (depth == 1 || random_below(rng, 4) == 0) return node("x", "feature", List());
  const char* const name = kNames[random_below(rng, kNames.size())];
  const Value left = random_graph(rng, depth - 1);
  return node(name, "rotation", List{left, random_graph(rng, depth - 1)});
}

Value random_part(const Value& graph, RandomGenerator& rng) {
  std::vector<Value> nodes = {graph};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const std::vector<Value> children = children_of(nodes[i]);
    nodes.insert(nodes.end(), children.begin(), children.end());
  }
  return nodes[random_below(rng, nodes.size())];
}

// A copy of `graph` with a copy of `part` in the place of one of its nodes.
Value with_part(const Value& graph, const Value& part, RandomGenerator& rng) {
  Value copy = deep_copy(graph);
  random_part(copy, rng).mapping().update(deep_copy(part).mapping());
  return copy;
}

// What every host has, in one object. All else has defaults.
class MinimalHost : public Host,
                    public Eliteness,
                    public GeneticOps,
                    public RandomWeighted,
                    public GraphDepth,
                    public SecureRandom {
  using Rng = std::shared_ptr<RandomGenerator>;

 public:
  ProcessEvaluation& process_evaluation() override { return pool_; }
  Eliteness& eliteness() override { return *this; }
  GeneticOps& genetic_ops() override { return *this; }
  RandomWeighted& random_weighted() override { return *this; }
  GraphDepth& graph_depth() override { return *this; }
  SecureRandom& secure_random() override { return *this; }

  Value score_candidate(const Value& candidate, const Mapping& /*keywords*/) override {
    return candidate.mapping().at("quality_score");
  }
  Value crossover(const Value& elite, const Value& mate, const Rng& rng, const Callable&) override {
    return with_part(elite, random_part(mate, *rng), *rng);
  }
  Value point_mutation(const Value& elite, const Value& others, const Rng& rng,
                       const Callable& /*validator*/) override {
    return with_part(elite, random_part(others.list().at(0), *rng), *rng);
  }
  Value subtree_mutation(const Value& elite, const Value& others, const Rng& rng,
                         const Callable& /*validator*/) override {
    return with_part(elite, others.list().at(0), *rng);
  }
  Value hoist_mutation(const Value& elite, const Rng& rng, const Callable&) override {
    return deep_copy(random_part(elite, *rng));
  }
  std::unique_ptr<ValueIterator> random_weighted_graphs(SearchContext&, const Rng& rng,
                                                        const Mapping&, std::string_view) override {
    return make_iterator([rng] { return random_graph(*rng, 4); });
  }
  Value graph_depth_for_attempt_marker(const Value& graph) override { return depth_of(graph); }
  std::uint64_t randbits(int /*count*/) override { return 7; }  // The seed: always the same run.

 private:
  InProcessPool pool_;
};

struct Found : StopEvent {
  bool is_set() override { return set; }
  bool wait(double /*seconds*/) override { return set; }
  bool set = false;
};

class MinimalContext : public SearchContext {
 public:
  std::shared_ptr<StopEvent> stop_event() override { return found_; }
  std::optional<Value> max_depth() override { return 6; }
  std::optional<Value> attribute(std::string_view name) override {
    // What an attempt and a submission are for. This host has one market, one era and one run.
    static const Mapping known{{"_market_id", 1},
                               {"_era_number", 1},
                               {"_product_run_id", 1},
                               {"_attempt_expected_columns", List()}};
    return known.find(name);
  }
  Callable evaluate_for_template() override {
    return make_callable([](std::span<const Value> positional, const Mapping&) -> Value {
      const double error = error_of(positional[0]);
      const Value stats = attribute_object("Statistics", {{"quality_score", -error}});
      // What is near enough passes, and may breed.
      return Mapping{{"record", Mapping{{"passed", error < 10.0}, {"stats", stats}}},
                     {"attempt_evidence", Mapping{{"backtest_started", true},
                                                  {"backtest_completed", true},
                                                  {"backtest_timing", Mapping{{"seconds", 0}}}}}};
    });
  }
  Callable safe_record() override {
    return make_callable([this](std::span<const Value> positional, const Mapping&) -> Value {
      ++candidates_;
      if (!found_->set && error_of(positional[0]) < 1e-9) {
        found_->set = true;
        std::cout << "found " << text_of(positional[0]) << " after " << candidates_
                  << " candidates\n";
      }
      return candidates_;  // The record's id in a store, had this host one.
    });
  }
  Callable enqueue_deferred_submission_payload() override {
    return make_callable([](std::span<const Value>, const Mapping&) -> Value { return true; });
  }

 private:
  std::shared_ptr<Found> found_ = std::make_shared<Found>();
  std::int64_t candidates_ = 0;
};

}  // namespace

int main() {
  MinimalHost host;
  MinimalContext context;
  Module(host).genetic(context);
}
