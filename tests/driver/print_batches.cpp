// Runs a search on a small host and prints its batches as JSON, for comparison with the same search
// on a host in Python (tests/python/genetic/formula_host.py, which is this host once more):
//
//   print_batches SEED BATCH_SIZE GENERATIONS
//
// The template goes on from the state of a generator that was seeded with SEED and drawn from a few
// times. Signals are formulas; how good one is follows from its text alone. What is printed: the
// rounds of each generation, and of each round the canonical texts of its candidates, in order;
// what the planner was asked; the metrics of the run; and the number that the generator would draw
// next.
#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "search_templates/genetic/driver/genetic.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/host/attribute_object.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/function_iterator.hpp"
#include "search_templates/genetic/host/in_process_pool.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/json_text.hpp"

using namespace varnholt::genetic;

namespace {

// The first three are features; of the functions the last two have two arguments.
constexpr std::array kNames = {"open", "close", "volume", "mean", "rank", "neg", "add", "sub"};
constexpr std::size_t kFeatures = 3;
constexpr std::size_t kFirstBinary = 6;

std::size_t arity_of(std::size_t name) {
  return name < kFeatures ? 0 : name < kFirstBinary ? 1 : 2;
}

std::size_t name_of(const Value& graph) {
  const auto name = graph.mapping().at("node").text();
  std::size_t place = 0;
  while (kNames.at(place) != name)
    ++place;
  return place;
}

Value node(std::size_t name, const List& children) {
  return Mapping{{"node", kNames.at(name)},
                 {"type", name < kFeatures ? "feature" : "rotation"},
                 {"children", children}};
}

std::vector<Value> items_of(const Value& list) {
  std::vector<Value> items;
  ListCursor cursor(list.list());
  while (const std::optional<Value> item = cursor.next())
    items.push_back(*item);
  return items;
}

std::vector<Value> children_of(const Value& graph) {
  return items_of(graph.mapping().at("children"));
}

// Breadth first.
std::vector<Value> nodes_of(const Value& graph) {
  std::vector<Value> nodes = {graph};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    const std::vector<Value> children = children_of(nodes[i]);
    nodes.insert(nodes.end(), children.begin(), children.end());
  }
  return nodes;
}

std::int64_t depth_of(const Value& graph) {
  std::int64_t below = 0;
  for (const Value& child : children_of(graph))
    below = std::max(below, depth_of(child));
  return below + 1;
}

// How good a formula is, from 0 to 1,008: a number that has nothing to do with its meaning.
std::int64_t quality_of(const Value& graph) {
  std::int64_t sum = 31 * (97 * static_cast<std::int64_t>(name_of(graph)) + 13);
  std::int64_t factor = 7;
  for (const Value& child : children_of(graph)) {
    sum += factor * quality_of(child);
    factor += 4;
  }
  return sum % 1009;
}

Value validate(const Value& graph) {
  const std::vector<Value> children = children_of(graph);
  if (children.size() != arity_of(name_of(graph))) throw ValueError("a wrong number of children");
  for (const Value& child : children)
    validate(child);
  return true;
}

Value random_graph(RandomGenerator& rng, int depth) {
  if (depth == 1 || random_below(rng, 4) == 0) return node(random_below(rng, kFeatures), List());
  const std::size_t name = kFeatures + random_below(rng, kNames.size() - kFeatures);
  List children;
  for (std::size_t i = 0; i < arity_of(name); ++i)
    children.append(random_graph(rng, depth - 1));
  return node(name, children);
}

Value random_part(const Value& graph, RandomGenerator& rng) {
  const std::vector<Value> nodes = nodes_of(graph);
  return nodes[random_below(rng, nodes.size())];
}

Value with_part(const Value& graph, const Value& part, RandomGenerator& rng) {
  Value copy = deep_copy(graph);
  random_part(copy, rng).mapping().update(deep_copy(part).mapping());
  return copy;
}

// What happened, as it is printed.
class Report {
 public:
  void note_record(const Value& graph) { rounds().back().push_back(canonical_graph_string(graph)); }
  void note_plan(const Value& graph, const ReactionRequest& request, std::size_t peers) {
    if (!rounds().back().empty()) rounds().emplace_back();
    plans_.append(List{canonical_graph_string(graph), request.improvement_depth, request.max_plans,
                       static_cast<std::int64_t>(peers)});
  }
  void end_generation() { generations_.emplace_back(1); }
  void set_metrics(const Mapping& metrics) { metrics_ = metrics; }

  [[nodiscard]] std::size_t generations() const { return generations_.size() - 1; }

  [[nodiscard]] Value printed(double next_draw) const {
    List generations;
    for (const Rounds& rounds : generations_) {
      List printed_rounds;
      for (const Round& round : rounds) {
        List texts;
        for (const std::string& text : round)
          texts.append(text);
        printed_rounds.append(texts);
      }
      generations.append(printed_rounds);
    }
    return Mapping{{"generations", generations},
                   {"plans", plans_},
                   {"metrics", metrics_},
                   {"next_draw", next_draw}};
  }

 private:
  using Round = std::vector<std::string>;
  using Rounds = std::vector<Round>;

  Rounds& rounds() { return generations_.back(); }

  std::vector<Rounds> generations_{Rounds(1)};
  List plans_;
  Mapping metrics_;
};

class FormulaHost : public Host,
                    public Eliteness,
                    public GeneticOps,
                    public RandomWeighted,
                    public ReactionPlanning,
                    public GraphDepth,
                    public SecureRandom {
  using Rng = std::shared_ptr<RandomGenerator>;

 public:
  explicit FormulaHost(Report& report) : report_(report) {}

  ProcessEvaluation& process_evaluation() override { return pool_; }
  Eliteness& eliteness() override { return *this; }
  GeneticOps& genetic_ops() override { return *this; }
  RandomWeighted& random_weighted() override { return *this; }
  ReactionPlanning& reaction_planning() override { return *this; }
  GraphDepth& graph_depth() override { return *this; }
  SecureRandom& secure_random() override { return *this; }

  Value score_candidate(const Value& candidate, const Mapping& /*keywords*/) override {
    return candidate.mapping().at("quality_score");
  }
  Value crossover(const Value& elite, const Value& mate, const Rng& rng, const Callable&) override {
    return with_part(elite, random_part(mate, *rng), *rng);
  }
  Value point_mutation(const Value& elite, const Value& replacements, const Rng& rng,
                       const Callable& /*validator*/) override {
    const Value part = items_of(replacements).front();
    return with_part(elite, random_part(part, *rng), *rng);
  }
  Value subtree_mutation(const Value& elite, const Value& replacements, const Rng& rng,
                         const Callable& /*validator*/) override {
    return with_part(elite, items_of(replacements).back(), *rng);
  }
  Value hoist_mutation(const Value& elite, const Rng& rng, const Callable&) override {
    return random_part(elite, *rng);
  }
  std::unique_ptr<ValueIterator> random_weighted_graphs(SearchContext&, const Rng& rng,
                                                        const Mapping&, std::string_view) override {
    return make_iterator([rng] { return random_graph(*rng, 3); });
  }
  // Two plans of its own, and one for each peer that it is given.
  Value derive_reaction_improvements(const Value& result, const ReactionRequest& request) override {
    const Value graph = result.mapping().at("graph");
    const std::vector<Value> peers = items_of(request.extra_data_graphs);
    report_.note_plan(graph, request, peers.size());
    List improvements;
    const auto add = [&](std::size_t name, const List& children, const char* plan) {
      improvements.append(Mapping{{"graph", deep_copy(node(name, children))},
                                  {"source_result", result},
                                  {"reaction_plan", plan},
                                  {"improvement_depth", request.improvement_depth}});
    };
    add(3, {graph}, "smooth");
    add(5, {graph}, "turn");
    for (const Value& peer : peers)
      add(6, {graph, peer}, "blend");
    return improvements;
  }
  Value graph_depth_for_attempt_marker(const Value& graph) override { return depth_of(graph); }
  std::uint64_t randbits(int /*count*/) override { return 7; }

 private:
  Report& report_;
  InProcessPool pool_;
};

class FormulaContext : public SearchContext {
 public:
  FormulaContext(Report& report, std::size_t generations)
      : report_(report), end_(std::make_shared<End>(report, generations)) {}

  std::shared_ptr<StopEvent> stop_event() override { return end_; }
  std::optional<Value> max_depth() override { return 6; }
  Callable own_graph_validator() override {
    return make_callable(
        [](std::span<const Value> positional, const Mapping&) { return validate(positional[0]); });
  }
  Callable evaluate_for_template() override {
    return make_callable([](std::span<const Value> positional, const Mapping&) -> Value {
      return evaluate(positional[0]);
    });
  }
  Callable safe_record() override {
    return make_callable([this](std::span<const Value> positional, const Mapping&) -> Value {
      report_.note_record(positional[0]);
      return ++recorded_;
    });
  }
  Callable enqueue_deferred_submission_payload() override {
    return make_callable([](std::span<const Value>, const Mapping&) -> Value { return true; });
  }
  Callable record_search_run_metrics() override {
    return make_callable([this](std::span<const Value>, const Mapping& metrics) -> Value {
      report_.set_metrics(metrics);
      return {};
    });
  }
  std::optional<Value> attribute(std::string_view name) override {
    static const Mapping known{{"_market_id", 1},
                               {"_era_number", 1},
                               {"_product_run_id", 1},
                               {"_attempt_expected_columns", List()}};
    return known.find(name);
  }

 private:
  // The pause ends a generation.
  class End : public StopEvent {
   public:
    End(Report& report, std::size_t generations) : report_(report), generations_(generations) {}
    bool is_set() override { return report_.generations() >= generations_; }
    bool wait(double /*seconds*/) override {
      report_.end_generation();
      return is_set();
    }

   private:
    Report& report_;
    std::size_t generations_;
  };

  // The best sixth passes; the better half of the rest misses a limit that a plan is for.
  static Mapping evaluate(const Value& graph) {
    const std::int64_t quality = quality_of(graph);
    const bool passed = quality >= 840;
    const char* const reason = quality >= 420 ? "turnover_max" : "drawdown_max";
    Mapping record{
        {"passed", passed},
        {"stats", attribute_object("Statistics",
                                   {{"quality_score", static_cast<double>(quality) / 1009.0},
                                    {"correlation", static_cast<double>(quality % 7) / 10.0}})}};
    if (!passed) {
      record.set("rejection_reason", reason);
      record.set("tracking_metric_kwargs",
                 Mapping{{"failure_reason", reason},
                         {"failure_detail", std::to_string(36 + quality % 20) + " > 35"}});
    }
    return {{"record", record},
            {"attempt_evidence", Mapping{{"backtest_started", false},
                                         {"backtest_timing", Mapping{{"seconds", 0.25}}}}}};
  }

  Report& report_;
  std::shared_ptr<End> end_;
  std::int64_t recorded_ = 0;
};

void print_batches(std::int64_t seed, std::int64_t batch_size, std::size_t generations) {
  Report report;
  FormulaHost host(report);
  Module module(host);
  FormulaContext context(report, generations);
  TemplateArguments arguments = module.default_arguments();
  arguments.batch_size = batch_size;
  arguments.restart_threshold = 3;
  arguments.elite_fraction = 0.25;
  arguments.diversity_weight = 0.5;
  arguments.parsimony_weight = 0.125;
  arguments.operator_rates = Mapping{{"crossover", 0.4},
                                     {"hoist_mutation", 0.2},
                                     {"point_mutation", 0.3},
                                     {"subtree_mutation", 0.1}};
  GeneticTemplate config = module.with_config(arguments);
  const std::shared_ptr<RandomGenerator> generator = host.random_generators().seeded(seed);
  for (int i = 0; i < 5; ++i)
    static_cast<void>(generator->random());
  config.store_rng_state(generator);
  module.run(context, config);
  std::cout << json_text(report.printed(config.rng_for_batch()->random())) << '\n';
}

}  // namespace

int main(int count, char** words) try {
  if (count != 4) {
    std::cerr << "usage: print_batches SEED BATCH_SIZE GENERATIONS\n";
    return 2;
  }
  print_batches(std::stoll(words[1]), std::stoll(words[2]), std::stoul(words[3]));
  return 0;
} catch (const std::exception& error) {
  std::cerr << "print_batches: " << error.what() << '\n';
  return 1;
}
