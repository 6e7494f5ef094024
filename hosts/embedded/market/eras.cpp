#include "hosts/embedded/market/eras.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

void check(const EraSettings& settings) {
  if (settings.train < 1 || settings.train > kLargestEraCount) {
    throw EraError(fmt::format("{} train eras; ask for 1 to {}", settings.train, kLargestEraCount));
  }
  if (!(settings.holdout > 0.0 && settings.holdout < 1.0)) {
    throw EraError(fmt::format("a hold-out of {} of the days; give a share above 0 and below 1",
                               settings.holdout));
  }
  if (settings.era && (*settings.era < 1 || *settings.era > settings.train)) {
    throw EraError(fmt::format("era {} of {} train eras; ask for one of 1 to {}", *settings.era,
                               settings.train, settings.train));
  }
}

// What can be done about a history that is too short.
void require_days(const std::string& what, Eigen::Index days, const EraSettings& settings,
                  std::size_t history, const std::string& other_mend) {
  if (days >= kMinimumEraDays) return;
  const std::string holdout = settings.holdout_from
                                  ? fmt::format("from {}", date_text(*settings.holdout_from))
                                  : fmt::format("{} of the days", settings.holdout);
  throw EraError(
      fmt::format("of a history of {} days (train eras: {}, hold-out: {}) {} has {} days, and {} "
                  "are needed; give a longer history{}",
                  history, settings.train, holdout, what, days, kMinimumEraDays, other_mend));
}

Eigen::Index holdout_days_of(const std::vector<Date>& dates, const EraSettings& settings) {
  if (settings.holdout_from) {
    return dates.end() - std::lower_bound(dates.begin(), dates.end(), *settings.holdout_from);
  }
  const auto days = static_cast<double>(dates.size());
  return static_cast<Eigen::Index>(std::floor(settings.holdout * days + 0.5));
}

DaySpan span_of(const std::vector<Date>& dates, Eigen::Index first_day, Eigen::Index end_day) {
  return {first_day, end_day, dates[static_cast<std::size_t>(first_day)],
          dates[static_cast<std::size_t>(end_day) - 1]};
}

}  // namespace

const DaySpan& EraPlan::searched() const {
  return train.at(static_cast<std::size_t>(era) - 1);
}

Eigen::Index EraPlan::seen_days() const {
  return searched().end_day;
}

EraPlan split_eras(const std::vector<Date>& dates, const EraSettings& settings) {
  check(settings);
  const auto days = static_cast<Eigen::Index>(dates.size());
  const Eigen::Index holdout_days = holdout_days_of(dates, settings);
  const Eigen::Index train_days = days - holdout_days;
  const std::string larger =
      settings.holdout_from ? " or a hold-out that begins earlier" : " or a larger hold-out";
  const std::string smaller =
      settings.holdout_from ? "a hold-out that begins later" : "a smaller hold-out";
  require_days("the hold-out", holdout_days, settings, dates.size(), larger);
  // The shortest era is as long as the whole division says; some have one day more.
  require_days("a train era", train_days / settings.train, settings, dates.size(),
               (settings.train > 1 ? ", fewer train eras or " : " or ") + smaller);
  EraPlan plan;
  Eigen::Index first_day = 0;
  for (Eigen::Index number = 1; number <= settings.train; ++number) {
    const Eigen::Index end_day = number * train_days / settings.train;
    plan.train.push_back(span_of(dates, first_day, end_day));
    first_day = end_day;
  }
  plan.holdout = span_of(dates, train_days, days);
  plan.era = settings.era.value_or(settings.train);
  return plan;
}

}  // namespace varnholt::embedded
