#include "hosts/embedded/search/signal_weights.hpp"

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/search/run_description.hpp"

namespace varnholt::embedded {

Panel SignalWeights::of(const EvaluationOfRun& signal) {
  const genetic::Value graph = read_json(signal.evaluation.graph_json);
  const EvaluatorOptions options{.book = book_rules_of(signal.run.start)};
  const auto found =
      evaluators_
          .try_emplace({options.book.least_known_share, options.book.neutralize}, data_, options)
          .first;
  return found->second.evaluate(graph).weights;
}

}  // namespace varnholt::embedded
