#include "hosts/embedded/search/embedded_host.hpp"

#include <cmath>
#include <exception>
#include <utility>

#include "hosts/embedded/search/interruptible_sleep.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

namespace {

// Fills each "%s" of the format with the next value's text.
std::string formatted(std::string_view format, std::initializer_list<Value> values) {
  std::string text;
  const auto* value = values.begin();
  while (!format.empty()) {
    const std::size_t hole = format.find("%s");
    text += format.substr(0, hole);
    if (hole == std::string_view::npos) break;
    if (value != values.end()) text += genetic::str(*value++);
    format.remove_prefix(hole + 2);
  }
  return text;
}

std::string error_text(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "an error without text";
  }
}

class RandomGraphs : public genetic::ValueIterator {
 public:
  RandomGraphs(std::shared_ptr<genetic::RandomGenerator> rng, const Vocabulary& vocabulary,
               const RandomGraphOptions& options)
      : rng_(std::move(rng)), vocabulary_(vocabulary), options_(options) {}

  [[nodiscard]] std::optional<Value> next() override {
    return random_graph(*rng_, vocabulary_, options_);
  }

 private:
  std::shared_ptr<genetic::RandomGenerator> rng_;
  const Vocabulary& vocabulary_;
  RandomGraphOptions options_;
};

}  // namespace

void EmbeddedLogger::error(std::string_view format, std::initializer_list<Value> values) {
  sink_(LogLevel::Error, formatted(format, values));
}

void EmbeddedLogger::warning(std::string_view format, std::initializer_list<Value> values) {
  sink_(LogLevel::Warning, formatted(format, values));
}

void EmbeddedLogger::warning_with_error(std::string_view text, const std::exception_ptr& error) {
  sink_(LogLevel::Warning, std::string(text) + ": " + error_text(error));
}

Value EmbeddedEngine::graph_depth_for_attempt_marker(const Value& graph) {
  return measure_graph(graph).depth;
}

Value EmbeddedEngine::function_entries_for_kind(const Value& vocabulary, std::string_view kind) {
  return genetic::item(genetic::item(vocabulary, "functions"), kind);
}

Value EmbeddedEngine::random_weighted_window_limit(genetic::SearchContext& /*context*/,
                                                   const Value& /*max_depth*/) {
  return graphs_.max_window;
}

Value EmbeddedEngine::random_weighted_node_limit(genetic::SearchContext& /*context*/) {
  return static_cast<std::int64_t>(graphs_.max_nodes);
}

Value EmbeddedEngine::random_weighted_runtime_registry(genetic::SearchContext& /*context*/) {
  return {};
}

Value EmbeddedEngine::signal_generation_safe_rotations(const Value& functions,
                                                       const Value& /*window_limit*/,
                                                       const Value& node_limit,
                                                       const Value& /*registry*/,
                                                       const Mapping& /*keywords*/) {
  genetic::List safe;
  const auto walk = genetic::iterate(functions);
  while (const std::optional<Value> function = walk->next()) {
    // The rotation's own node and one for each of its children.
    const Value nodes = genetic::item(*function, "child_count").integer() + 1;
    if (!genetic::less(node_limit, nodes)) safe.append(*function);
  }
  return safe;
}

bool EmbeddedEngine::is_sdk_runtime_not_ready_error(const Value& /*error*/) {
  return false;
}

Value EmbeddedEngine::sdk_runtime_not_ready_rejection_detail() {
  return "The evaluator was not ready.";
}

Value EmbeddedEngine::infrastructure_failure_threshold() {
  return kInfrastructureFailureThreshold;
}

void EmbeddedEngine::raise_background_infrastructure_error(const std::string& detail) {
  throw BackgroundInfrastructureError(detail);
}

Value EmbeddedEliteness::score_candidate(const Value& candidate, const Mapping& keywords) {
  EmbeddedSettings defaults;
  const double diversity_weight = genetic::to_float(
      keywords.find(keys::kDiversityWeight).value_or(defaults.default_diversity_weight()));
  const double parsimony_weight = genetic::to_float(
      keywords.find(keys::kParsimonyWeight).value_or(defaults.default_parsimony_weight()));
  const Value correlation = keywords.get(keys::kPoolCorrelation);
  const Mapping record = genetic::record_of(candidate);
  const double nodes = static_cast<double>(measure_graph(record.get(keys::kGraph)).node_count);
  const double redundancy =
      correlation.is_absent() ? 0.0 : std::abs(genetic::to_float(correlation));
  return genetic::to_float(record.get(keys::kQualityScore)) - diversity_weight * redundancy -
         parsimony_weight * nodes;
}

Value EmbeddedSettings::default_operator_rates() {
  return Mapping{{"crossover", 0.4},
                 {"point_mutation", 0.3},
                 {"subtree_mutation", 0.2},
                 {"hoist_mutation", 0.1}};
}

Value EmbeddedVerdicts::not_evaluated_verdict() {
  return Mapping{{"verdict", "not_evaluated"}};
}

std::unique_ptr<genetic::ValueIterator> EmbeddedRandomGraphs::random_weighted_graphs(
    genetic::SearchContext& /*context*/, const std::shared_ptr<genetic::RandomGenerator>& rng,
    const Mapping& /*log_context*/, std::string_view /*template_name*/) {
  return std::make_unique<RandomGraphs>(rng, vocabulary_, options_);
}

void EmbeddedPause::sleep(double seconds) {
  sleep_interruptibly(seconds);
}

EmbeddedHost::EmbeddedHost(SystemCalls& system, const Vocabulary& vocabulary,
                           const HostSettings& settings)
    : engine_(settings.log, settings.graphs),
      operators_({settings.graphs.max_depth, settings.graphs.max_nodes}),
      observed_operators_(operators_, lineage_),
      random_graphs_(vocabulary, settings.graphs),
      secure_random_(settings.seed),
      pool_(system, verdicts_, settings.timeout_seconds, settings.on_tick) {}

}  // namespace varnholt::embedded
