#include "hosts/embedded/backtest/neutral_signal.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXXd;
using Eigen::Index;

// Calls `function(day, group, value)` for each known value that has a group: instrument after
// instrument, because the history of one lies together. So a group is added up in the order of the
// columns.
template <typename Function>
void each_member(const Panel& signal, const GroupPanel* groups, Function function) {
  for (Index column = 0; column < signal.cols(); ++column) {
    for (Index day = 0; day < signal.rows(); ++day) {
      const int group = groups == nullptr ? 0 : (*groups)(day, column);
      const double value = signal(day, column);
      if (group != kNoGroup && std::isfinite(value)) function(day, column, Index{group}, value);
    }
  }
}

// Sums of large or of small values would overflow, or lose what is left after the mean.
Panel scaled_days(const Panel& signal) {
  Eigen::ArrayXd greatest = Eigen::ArrayXd::Zero(signal.rows());
  each_member(signal, nullptr, [&](Index day, Index /*column*/, Index /*group*/, double value) {
    greatest(day) = std::max(greatest(day), std::abs(value));
  });
  Panel scaled = Panel::Constant(signal.rows(), signal.cols(), kUnknown);
  each_member(signal, nullptr, [&](Index day, Index column, Index /*group*/, double value) {
    scaled(day, column) = greatest(day) == 0.0 ? 0.0 : value / greatest(day);
  });
  return scaled;
}

}  // namespace

Panel neutral_signal(const Panel& signal, const GroupPanel* groups) {
  if (groups != nullptr && (groups->rows() != signal.rows() || groups->cols() != signal.cols())) {
    throw std::invalid_argument(
        "a signal and groups of two shapes; take both from the same market data");
  }
  const Panel scaled = scaled_days(signal);
  const Index days = scaled.rows();
  const Index group_count = groups == nullptr || groups->size() == 0 ? 1 : groups->maxCoeff() + 1;
  ArrayXXd means = ArrayXXd::Zero(days, std::max<Index>(group_count, 1));
  ArrayXXd counts = means;
  ArrayXXd squares = means;
  ArrayXXd deviations = means;
  each_member(scaled, groups, [&](Index day, Index /*column*/, Index group, double value) {
    means(day, group) += value;
    counts(day, group) += 1.0;
    squares(day, group) += value * value;
  });
  means /= counts.max(1.0);
  each_member(scaled, groups, [&](Index day, Index /*column*/, Index group, double value) {
    const double deviation = value - means(day, group);
    deviations(day, group) += deviation * deviation;
  });
  Panel neutral = Panel::Constant(days, scaled.cols(), kUnknown);
  each_member(scaled, groups, [&](Index day, Index column, Index group, double value) {
    const bool is_constant = deviations(day, group) <= kConstantTolerance * squares(day, group);
    neutral(day, column) = is_constant ? 0.0 : value - means(day, group);
  });
  return neutral;
}

bool is_neutral_by_group(const BookRules& rules) {
  return rules.neutralize != kNeutralizeNone && rules.neutralize != kNeutralizeMarket;
}

void require_neutral_group(const BookRules& rules, const std::vector<std::string>& groups) {
  if (!is_neutral_by_group(rules)) return;
  if (std::find(groups.begin(), groups.end(), rules.neutralize) != groups.end()) return;
  throw std::invalid_argument(fmt::format(
      "the prices have no column \"{}\" whose groups weights can be neutralized by; give prices "
      "that have it, or neutralize by {}",
      rules.neutralize,
      groups.empty() ? std::string("none or market")
                     : fmt::format("none, market or {}", fmt::join(groups, " or "))));
}

}  // namespace varnholt::embedded
