#include "hosts/embedded/host/embedded_host.hpp"

#include <cmath>
#include <exception>
#include <utility>

#include "hosts/embedded/host/search_defaults.hpp"
#include "hosts/embedded/system/interruptible_sleep.hpp"
#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

namespace {

class RandomGraphs : public genetic::ValueIterator {
 public:
  RandomGraphs(std::shared_ptr<genetic::RandomGenerator> rng, const Vocabulary& vocabulary,
               const RandomGraphOptions& options, StopQuestion is_stopping, KnownStructures* known,
               const GraphMaking& making, FreshSources* sources)
      : rng_(std::move(rng)),
        vocabulary_(vocabulary),
        options_(options),
        is_stopping_(std::move(is_stopping)),
        known_(known),
        making_(making),
        sources_(sources) {}

  [[nodiscard]] std::optional<Value> next() override {
    for (int draw = 0; draw <= EmbeddedRandomGraphs::kMostKnown; ++draw) {
      if (is_stopping_ && is_stopping_()) return std::nullopt;
      Value graph = drawn();
      if (known_ == nullptr || !known_->leaves_out(graph)) return graph;
    }
    return std::nullopt;
  }

 private:
  Value drawn() {
    if (sources_ != nullptr) {
      if (std::optional<Value> graph = sources_->next(rng_)) return *std::move(graph);
    }
    RandomGraphOptions options = options_;
    constexpr int kLeast = EmbeddedRandomGraphs::kLeastDepth;
    if (options_.max_depth > kLeast) {
      const int depths = options_.max_depth - kLeast + 1;
      const auto levels = genetic::random_below(*rng_, static_cast<std::uint64_t>(depths));
      options.max_depth = kLeast + static_cast<int>(levels);
    }
    return making_.finished(random_graph(*rng_, vocabulary_, options));
  }

  std::shared_ptr<genetic::RandomGenerator> rng_;
  const Vocabulary& vocabulary_;
  RandomGraphOptions options_;
  StopQuestion is_stopping_;
  KnownStructures* known_;
  GraphMaking making_;
  FreshSources* sources_;
};

std::unique_ptr<FreshSources> sources_of(const HostSettings& settings, Lineage& lineage,
                                         const Vocabulary& vocabulary, const GraphMaking& making) {
  if (settings.archive == nullptr) return nullptr;
  return std::make_unique<FreshSources>(*settings.archive, lineage, vocabulary, settings.graphs,
                                        making, settings.fresh);
}

// What was evaluated in this run.
GeneticOperators::Repeats repeats_of(const SignalArchive* archive) {
  if (archive == nullptr) return {};
  return [archive](const Value& graph) { return archive->has_met(graph); };
}

}  // namespace

Value EmbeddedEliteness::score_candidate(const Value& candidate, const Mapping& keywords) {
  if (is_stopping_ && is_stopping_()) return 0.0;
  SearchDefaults defaults;
  const double diversity_weight = genetic::to_float(
      keywords.find(keys::kDiversityWeight).value_or(defaults.default_diversity_weight()));
  const double parsimony_weight = genetic::to_float(
      keywords.find(keys::kParsimonyWeight).value_or(defaults.default_parsimony_weight()));
  const Value correlation = keywords.get(keys::kPoolCorrelation);
  const Mapping record = genetic::record_of(candidate);
  const double nodes = graph_complexity(record.get(keys::kGraph), vocabulary_);
  const double redundancy =
      correlation.is_absent() ? 0.0 : std::abs(genetic::to_float(correlation));
  return genetic::to_float(record.get(keys::kQualityScore)) - diversity_weight * redundancy -
         parsimony_weight * nodes;
}

std::unique_ptr<genetic::ValueIterator> EmbeddedRandomGraphs::random_weighted_graphs(
    genetic::SearchContext& /*context*/, const std::shared_ptr<genetic::RandomGenerator>& rng,
    const Mapping& /*log_context*/, std::string_view /*template_name*/) {
  return std::make_unique<RandomGraphs>(rng, vocabulary_, options_, is_stopping_, known_, making_,
                                        sources_);
}

void EmbeddedPause::sleep(double seconds) {
  sleep_interruptibly(seconds);
}

EmbeddedHost::EmbeddedHost(ProcessSide& process, const Vocabulary& vocabulary, Lineage& lineage,
                           SignalSubmission& submission, const HostSettings& settings)
    : process_(process),
      logger_(settings.log),
      graph_limits_(settings.graphs),
      gates_(settings.gates, settings.limits),
      pool_metrics_(submission, settings.client_manifest),
      eliteness_(vocabulary, settings.is_stopping),
      observer_(lineage, settings.on_generation_end),
      making_(vocabulary, settings.making),
      operators_(vocabulary,
                 {settings.graphs.max_depth, settings.graphs.max_nodes, settings.graphs.max_window},
                 making_, repeats_of(settings.archive)),
      fresh_sources_(sources_of(settings, lineage, vocabulary, making_)),
      random_graphs_(vocabulary, settings.graphs, settings.is_stopping, settings.known, making_,
                     fresh_sources_.get()),
      planning_(vocabulary, settings.graphs, json_reader_, lineage, settings.is_stopping, making_,
                settings.behaviours),
      secure_random_(settings.seed) {}

}  // namespace varnholt::embedded
