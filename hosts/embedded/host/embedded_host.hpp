// The embedded host: everything that the search asks for, from prices in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "hosts/embedded/attempts/attempt_accounts.hpp"
#include "hosts/embedded/attempts/embedded_tracker.hpp"
#include "hosts/embedded/config/host_config.hpp"
#include "hosts/embedded/host/embedded_gates.hpp"
#include "hosts/embedded/host/embedded_logger.hpp"
#include "hosts/embedded/host/embedded_planning.hpp"
#include "hosts/embedded/host/embedded_pool_metrics.hpp"
#include "hosts/embedded/host/fresh_sources.hpp"
#include "hosts/embedded/host/graph_limits.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/known_behaviours.hpp"
#include "hosts/embedded/host/known_structures.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/process_side.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/host/signal_submission.hpp"
#include "hosts/embedded/host/system_random.hpp"
#include "hosts/embedded/operators/genetic_operators.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "hosts/embedded/system/parent_memory.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/host.hpp"

namespace varnholt::embedded {

// score = quality_score - diversity_weight * |pool_correlation| - parsimony_weight * nodes
//
// with the record's quality score, the correlation to the signal pool (0 when it is absent) and the
// number of the graph's nodes, each by the complexity of its function. A weight that is not given
// is that of the default settings.
//
// A search that is being stopped needs no score any more, and gets 0: its batch, however large, is
// to be over soon.
class EmbeddedEliteness : public genetic::Eliteness {
 public:
  explicit EmbeddedEliteness(const Vocabulary& vocabulary, StopQuestion is_stopping = {})
      : vocabulary_(vocabulary), is_stopping_(std::move(is_stopping)) {}

  [[nodiscard]] genetic::Value score_candidate(const genetic::Value& candidate,
                                               const genetic::Mapping& keywords) override;

 private:
  const Vocabulary& vocabulary_;
  StopQuestion is_stopping_;
};

class EmbeddedJsonReader : public genetic::JsonReader {
 public:
  [[nodiscard]] genetic::Value read(const genetic::Value& text) override {
    return read_json(text.text());
  }
};

// An iterator over fresh graphs of one vocabulary, each finished by `making`, which ends when the
// search is being stopped: some are those of FreshSources, the others are random. The greatest
// depth of a random one is drawn too, from kLeastDepth to that of the options: what pays is mostly
// shallow. Known structures are passed over; after kMostKnown of them in a row it ends as well,
// because what is left to be drawn has been evaluated.
class EmbeddedRandomGraphs : public genetic::RandomWeighted {
 public:
  static constexpr int kMostKnown = 10'000;
  static constexpr int kLeastDepth = 3;

  // What must outlive the object may be null: without known structures none is passed over, and
  // without sources all graphs are random.
  EmbeddedRandomGraphs(const Vocabulary& vocabulary, const RandomGraphOptions& options,
                       StopQuestion is_stopping = {}, KnownStructures* known = nullptr,
                       const GraphMaking& making = {}, FreshSources* sources = nullptr)
      : vocabulary_(vocabulary),
        options_(options),
        is_stopping_(std::move(is_stopping)),
        known_(known),
        making_(making),
        sources_(sources) {}

  [[nodiscard]] std::unique_ptr<genetic::ValueIterator> random_weighted_graphs(
      genetic::SearchContext& context, const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Mapping& log_context, std::string_view template_name) override;

 private:
  const Vocabulary& vocabulary_;
  RandomGraphOptions options_;
  StopQuestion is_stopping_;
  KnownStructures* known_;
  GraphMaking making_;
  FreshSources* sources_;
};

class EmbeddedPause : public genetic::Pause {
 public:
  void sleep(double seconds) override;
};

struct HostSettings {
  RandomGraphOptions graphs;
  GateThresholds gates;
  HardLimits limits;
  // Of the random bits; absent are those of the operating system.
  std::optional<std::uint64_t> seed;
  // What a submission's payload says of this client.
  genetic::Mapping client_manifest;
  EmbeddedLogger::Sink log;
  // A generation is over, its results are recorded and submitted.
  std::function<void()> on_generation_end;
  StopQuestion is_stopping;
  // What is not evaluated again; null where all is. It must outlive the host.
  KnownStructures* known = nullptr;
  // What is done to the graphs that the host makes.
  GraphMakingOptions making;
  // What was evaluated, by which fresh graphs are chosen; null where all are random. It must
  // outlive the host.
  SignalArchive* archive = nullptr;
  FreshSettings fresh;
  // Null where repeats are not told. It must outlive the host.
  KnownBehaviours* behaviours = nullptr;
};

// Keeps the lineage of what the search tells of.
class EmbeddedObserver : public genetic::GenerationObserver {
 public:
  // The lineage must outlive the observer.
  EmbeddedObserver(Lineage& lineage, std::function<void()> on_generation_end)
      : lineage_(lineage), on_generation_end_(std::move(on_generation_end)) {}

  void on_seed(const genetic::Value& graph) override { lineage_.note_seed(graph); }
  void on_offspring(const genetic::Value& graph, std::span<const genetic::Key> operators,
                    const genetic::Value& elite, const genetic::Value& mate) override {
    lineage_.note_offspring(graph, operators, elite, mate);
  }
  void on_batch(const genetic::List& graphs) override { lineage_.note_batch(graphs); }
  void on_generation_end() override {
    lineage_.next_generation();
    if (on_generation_end_) on_generation_end_();
  }

 private:
  Lineage& lineage_;
  std::function<void()> on_generation_end_;
};

class EmbeddedHost : public genetic::Host {
 public:
  // All but the settings must outlive the host.
  EmbeddedHost(ProcessSide& process, const Vocabulary& vocabulary, Lineage& lineage,
               SignalSubmission& submission, const HostSettings& settings);

  [[nodiscard]] genetic::Gates& gates() override { return gates_; }
  [[nodiscard]] genetic::PoolThresholds& pool_thresholds() override { return pool_metrics_; }
  [[nodiscard]] genetic::PoolMetrics& pool_metrics() override { return pool_metrics_; }
  [[nodiscard]] genetic::SubmissionPayloads& submission_payloads() override {
    return pool_metrics_;
  }
  [[nodiscard]] genetic::RandomGraphLimits& random_graph_limits() override { return graph_limits_; }
  [[nodiscard]] genetic::GraphDepth& graph_depth() override { return graph_limits_; }
  [[nodiscard]] genetic::Logger& logger() override { return logger_; }
  [[nodiscard]] genetic::ProcessEvaluation& process_evaluation() override { return process_.pool; }
  [[nodiscard]] genetic::Eliteness& eliteness() override { return eliteness_; }
  [[nodiscard]] genetic::GeneticOps& genetic_ops() override { return operators_; }
  [[nodiscard]] genetic::RandomWeighted& random_weighted() override { return random_graphs_; }
  [[nodiscard]] genetic::ReactionPlanning& reaction_planning() override { return planning_; }
  [[nodiscard]] genetic::BacktestTimings& backtest_timings() override { return process_.timings; }
  [[nodiscard]] genetic::JsonReader& json_reader() override { return json_reader_; }
  [[nodiscard]] genetic::SecureRandom& secure_random() override { return secure_random_; }
  [[nodiscard]] genetic::Pause& pause() override { return pause_; }
  [[nodiscard]] genetic::ProcessContexts& process_contexts() override { return process_.queues; }
  [[nodiscard]] genetic::GenerationObserver* generation_observer() override { return &observer_; }
  [[nodiscard]] std::shared_ptr<genetic::ReplaceableObject> engine_operations() override {
    return process_.engine_operations;
  }
  [[nodiscard]] std::pmr::memory_resource& parent_memory() override { return parent_memory_; }
  [[nodiscard]] genetic::AttemptMarkers& attempt_markers() override { return attempt_markers_; }
  [[nodiscard]] genetic::AttemptAccounting& attempt_accounting() override {
    return attempt_accounts_;
  }

 private:
  ProcessSide& process_;
  EmbeddedLogger logger_;
  EmbeddedGraphLimits graph_limits_;
  EmbeddedGates gates_;
  EmbeddedPoolMetrics pool_metrics_;
  EmbeddedEliteness eliteness_;
  EmbeddedJsonReader json_reader_;
  EmbeddedObserver observer_;
  GraphMaking making_;
  GeneticOperators operators_;
  std::unique_ptr<FreshSources> fresh_sources_;
  EmbeddedRandomGraphs random_graphs_;
  EmbeddedPlanning planning_;
  SystemRandom secure_random_;
  EmbeddedPause pause_;
  EmbeddedMarkers attempt_markers_;
  AttemptAccounts attempt_accounts_;
  ParentMemory parent_memory_;
};

}  // namespace varnholt::embedded
