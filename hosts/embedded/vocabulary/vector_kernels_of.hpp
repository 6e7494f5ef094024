// The functions of vector_kernels.hpp for vectors of one length.
#pragma once

#include <array>
#include <cstddef>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/lane_ranks.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/moment_folds.hpp"
#include "hosts/embedded/vocabulary/rolling_folds.hpp"
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

template <typename Vector>
struct KernelsOf {
  template <typename Fold>
  static void roll_with(const RollingTask& task, Panel& result, const Fold& fold) {
    typename RollingLanes<Vector, Fold>::Panels panels{};
    for (std::size_t i = 0; i < panels.size(); ++i)
      panels[i] = task.panels[i];
    RollingLanes<Vector, Fold>(panels, task.window, fold).roll(result);
  }

  static void roll(const RollingTask& task, Panel& result) {
    const auto days = static_cast<double>(task.window.days);
    switch (task.function) {
      case RollingFunction::Sum:
        return roll_with(task, result, SumFold<Vector>());
      case RollingFunction::Mean:
        return roll_with(task, result, MeanFold<Vector>());
      case RollingFunction::Least:
        return roll_with(task, result, LeastFold<Vector>());
      case RollingFunction::Greatest:
        return roll_with(task, result, GreatestFold<Vector>());
      case RollingFunction::Product:
        return roll_with(task, result, ProductFold<Vector>());
      case RollingFunction::Decay:
        return roll_with(task, result, DecayFold<Vector>());
      case RollingFunction::Fade:
        return roll_with(task, result, FadingFold<Vector>((days - 1.0) / (days + 1.0)));
      case RollingFunction::FirstGreatest:
        return roll_with(task, result, PlaceFold<Vector>(1.0, days));
      case RollingFunction::FirstLeast:
        return roll_with(task, result, PlaceFold<Vector>(-1.0, days));
      case RollingFunction::Deviation:
        return roll_with(task, result, DeviationFold<Vector>());
      case RollingFunction::Score:
        return roll_with(task, result, ScoreFold<Vector>());
      case RollingFunction::Skew:
        return roll_with(task, result, SkewFold<Vector>());
      case RollingFunction::Kurtosis:
        return roll_with(task, result, KurtosisFold<Vector>());
      case RollingFunction::Covariance:
        return roll_with(task, result, CovarianceFold<Vector>());
      case RollingFunction::Correlation:
        return roll_with(task, result, CorrelationFold<Vector>());
      case RollingFunction::Slope:
        return roll_with(task, result, SlopeFold<Vector>());
      case RollingFunction::Residual:
        return roll_with(task, result, ResidualFold<Vector>());
    }
  }

  static void count_lesser(const double* today, std::size_t earlier, double* places) {
    using Number = Lanes<Vector>;
    const Number value = Number::from(today);
    const Number rounding = absolute(value) * kAlikeTolerance;
    const Number low = value - rounding;
    const Number high = value + rounding;
    Number lesser = 0.0;
    for (std::size_t age = 1; age <= earlier; ++age) {
      const Number other = Number::from(today - age);
      lesser =
          lesser + choose(other < low, 0.5, Number(0.0)) + choose(other <= high, 0.5, Number(0.0));
    }
    lesser.to(places);
  }

  static constexpr VectorKernels kTable{roll, count_lesser, rank_few<Vector>};
};

}  // namespace varnholt::embedded
