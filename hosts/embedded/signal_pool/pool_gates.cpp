#include "hosts/embedded/signal_pool/pool_gates.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

#include "search_templates/genetic/settings/reason_tables.hpp"

namespace varnholt::embedded {
namespace {

void require_share(double value, const char* name) {
  if (value >= 0.0 && value <= 1.0) return;
  throw std::invalid_argument(
      fmt::format("{} is {}; it must be a number from 0 to 1", name, value));
}

}  // namespace

void check_pool_thresholds(const PoolThresholds& thresholds) {
  require_share(thresholds.min_novelty, "the least novelty of a new signal");
  require_share(thresholds.max_correlation, "the greatest correlation to the pool");
  require_share(thresholds.min_deflated_sharpe, "the least deflated Sharpe ratio");
}

double novelty_of(double mutual_information) {
  // expm1 keeps the digits of the smallest dependence.
  return 1.0 - std::sqrt(-std::expm1(-2.0 * std::max(mutual_information, 0.0)));
}

double information_of(double novelty) {
  const double coefficient = 1.0 - novelty;
  return -0.5 * std::log1p(-coefficient * coefficient);
}

bool passes_novelty(const PoolMeasure& measure, const PoolThresholds& thresholds) {
  return measure.novelty >= thresholds.min_novelty;
}

bool passes_correlation(const PoolMeasure& measure, const PoolThresholds& thresholds) {
  return measure.correlation <= thresholds.max_correlation;
}

std::optional<PoolRefusal> refusal(const PoolMeasure& measure, const PoolThresholds& thresholds) {
  if (!passes_novelty(measure, thresholds)) {
    // Without a member that it depends on, the signal has no novelty of its own.
    std::string why = "its daily PnL is zero on every day";
    if (measure.nearest_by_information) {
      why = "it depends most on member " + *measure.nearest_by_information;
      if (measure.informed < measure.members) {
        why += fmt::format(" of the {} that were asked; the other {} were not", measure.informed,
                           measure.members - measure.informed);
      }
    }
    return PoolRefusal{std::string(genetic::reasons::kPnlMiBelowThreshold.view()),
                       fmt::format("novelty {:.6g} is below {:.6g}; {}", measure.novelty,
                                   thresholds.min_novelty, why)};
  }
  if (!passes_correlation(measure, thresholds)) {
    return PoolRefusal{
        std::string(genetic::reasons::kCorrelationExceeded.view()),
        fmt::format("correlation {:.6g} is above {:.6g}, with member {}", measure.correlation,
                    thresholds.max_correlation, measure.nearest_by_correlation.value_or("(none)"))};
  }
  return std::nullopt;
}

}  // namespace varnholt::embedded
