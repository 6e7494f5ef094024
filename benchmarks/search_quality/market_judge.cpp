#include "benchmarks/search_quality/market_judge.hpp"

#include "hosts/embedded/host/json_value.hpp"

namespace varnholt::embedded::search_quality {

BookRules planted_rules(const SearchOptions& options) {
  BookRules rules;
  rules.delay_days = options.delay_days;
  rules.cost_basis_points = options.cost_basis_points;
  rules.least_known_share = options.least_known_share;
  rules.neutralize = kNeutralizeMarket;  // The default of so many instruments.
  return rules;
}

Panel MarketJudge::weights_of(const std::string& graph_json) const {
  return evaluator_.evaluate(read_json(graph_json)).weights;
}

}  // namespace varnholt::embedded::search_quality
