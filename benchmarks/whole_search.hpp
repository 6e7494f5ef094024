// Whole searches with a host that does nothing (null_host.hpp), for the benchmarks that count what
// the library itself spends on a candidate. Graphs have 20 nodes, and all candidates of a search
// end alike: they pass; fail by what no repair addresses; fail by what one does, without a plan; or
// with one plan each, whose graph ends as the others.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/null_host.hpp"
#include "search_templates/genetic/driver/genetic.hpp"

// Marks by which callgrind tells one stretch of a run from another: they must stay functions.
extern "C" {
[[gnu::noinline]] inline void reached_mark() {
  asm volatile("");
}
}

namespace varnholt::genetic::benchmarks {

// The graph of a number: 20 nodes in seven levels, of the shape that searches breed. No two numbers
// give the same graph, and every text is an object of its own, as a host makes them. `make_node`
// makes one node of either kind of value.
template <typename MakeNode>
auto numbered_graph(std::int64_t number, const MakeNode& make_node) {
  const auto rotation = [&](const std::string& name, auto... children) {
    return make_node(name, "rotation", std::move(children)...);
  };
  const auto feature = [&](const std::string& name) { return make_node(name, "feature"); };
  auto momentum = rotation(
      "cs_rank", rotation("arithmetic_sub", rotation("ts_mean_20", feature("close")),
                          rotation("ts_mean_60", rotation("arithmetic_log", feature("close")))));
  auto liquidity = rotation(
      "arithmetic_div",
      rotation("ts_sum_10", rotation("arithmetic_mul", feature("volume"), feature("vwap"))),
      rotation("ts_std_20", feature("returns")));
  return rotation("arithmetic_mul",
                  rotation("arithmetic_add", std::move(momentum), std::move(liquidity)),
                  rotation("comparison_gt", feature("range"), feature("high"),
                           feature("feature_" + std::to_string(number))));
}

struct ValueNode {
  template <typename... Children>
  Value operator()(const std::string& name, const char* type, Children... children) const {
    return Mapping{{"node", name}, {"type", type}, {"children", List{std::move(children)...}}};
  }
};

// New graphs for each batch; those of the batch before last are freed here.
class NumberedGraphs {
 public:
  explicit NumberedGraphs(std::int64_t first = 0) : next_(first) {}

  [[gnu::noinline]] Value untimed_graphs(std::int64_t count) {
    freed_next_ = kept_;
    List graphs(static_cast<std::size_t>(count));
    for (std::int64_t i = 0; i < count; ++i)
      graphs.append(numbered_graph(next_++, ValueNode()));
    kept_ = graphs;
    return graphs;
  }

 private:
  std::int64_t next_;
  Value kept_;
  Value freed_next_;
};

class NumberedSource : public FreshCandidates {
 public:
  [[nodiscard]] Value draw(SearchContext& /*context*/, std::int64_t count,
                           const std::shared_ptr<RandomGenerator>& /*rng*/) override {
    return graphs_.untimed_graphs(count);
  }

 private:
  NumberedGraphs graphs_;
};

// Set after so many generations; calls the mark at the start of those that it is told.
class GenerationCount : public StopEvent {
 public:
  GenerationCount(std::int64_t generations, std::vector<std::int64_t> marks)
      : generations_(generations), marks_(std::move(marks)) {}

  void reset() { finished_ = 0; }
  void note_start() {
    if (std::find(marks_.begin(), marks_.end(), finished_) != marks_.end()) reached_mark();
  }
  [[nodiscard]] bool is_set() override { return finished_ >= generations_; }
  [[nodiscard]] bool wait(double /*seconds*/) override {
    ++finished_;
    note_start();
    return is_set();
  }

 private:
  std::int64_t generations_;
  std::vector<std::int64_t> marks_;
  std::int64_t finished_ = 0;
};

inline Mapping completed_evidence() {
  return {{"backtest_completed", true},
          {"backtest_timing", Mapping{{"seconds", 0.25}, {"graph_key", "key"}}}};
}

inline Value outcome_of(const std::string& work) {
  const Value stats = make_object<FixedStatistics>();
  if (work == "passing") {
    return Mapping{
        {"record", Mapping{{"passed", true}, {"stats", stats}}},
        {"submission_payloads", List{Mapping{{"eval_id", "id"}, {"submission_type", "signal"}}}},
        {"attempt_evidence", completed_evidence()}};
  }
  // Of the failures a repair addresses only that of the turnover.
  const char* const reason = work == "failing" ? "drawdown_max" : "turnover_max";
  return Mapping{
      {"record", Mapping{{"passed", false},
                         {"stats", stats},
                         {"rejection_reason", reason},
                         {"tracking_metric_kwargs",
                          Mapping{{"failure_reason", reason}, {"failure_detail", "40 > 35"}}}}},
      {"attempt_evidence", completed_evidence()}};
}

// A new graph as the one plan for whatever result, when there are any plans.
class NumberedPlans : public ReactionPlanning {
 public:
  explicit NumberedPlans(bool has_plans) : has_plans_(has_plans) {}

  [[nodiscard]] Value derive_reaction_improvements(const Value& result,
                                                   const ReactionRequest& request) override {
    if (!has_plans_) return List();
    return List{Mapping{{"graph", item(graphs_.untimed_graphs(1), 0)},
                        {"source_result", result},
                        {"reaction_plan", "plan"},
                        {"improvement_depth", request.improvement_depth}}};
  }

 private:
  bool has_plans_;
  NumberedGraphs graphs_{std::int64_t{1} << 40};
};

class PlanningHost : public NullHost {
 public:
  explicit PlanningHost(bool has_plans) : planning_(has_plans) {}
  [[nodiscard]] ReactionPlanning& reaction_planning() override { return planning_; }

 private:
  NumberedPlans planning_;
};

// A search that can be run again and again: each run begins with no graph seen.
class Spine {
 public:
  Spine(const std::string& work, std::int64_t batch_size, std::int64_t generations,
        std::vector<std::int64_t> marks)
      : host_(work == "repaired"),
        count_(std::make_shared<GenerationCount>(generations, std::move(marks))),
        context_(outcome_of(work), count_),
        module_(
            host_,
            std::make_unique<LoadedConstants>(host_.search_settings(), host_.process_evaluation()),
            std::make_unique<NumberedSource>()),
        config_(module_.with_config(arguments(batch_size))) {}

  void run() {
    count_->reset();
    count_->note_start();
    module_.run(context_, config_);
  }

 private:
  [[nodiscard]] TemplateArguments arguments(std::int64_t batch_size) const {
    TemplateArguments arguments = module_.default_arguments();
    arguments.batch_size = batch_size;
    return arguments;
  }

  PlanningHost host_;
  std::shared_ptr<GenerationCount> count_;
  NullContext context_;
  Module module_;
  GeneticTemplate config_;
};

}  // namespace varnholt::genetic::benchmarks
