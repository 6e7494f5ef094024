// The functions of vector_kernels.hpp for vectors of one length.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/lane_elements.hpp"
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
    const Number of_today = Number::from(today);
    const Number rounding = absolute(of_today) * kAlikeTolerance;
    const Number low = of_today - rounding;
    const Number high = of_today + rounding;
    Number lesser = 0.0;
    for (std::size_t age = 1; age <= earlier; ++age) {
      const Number other = Number::from(today - age);
      lesser =
          lesser + choose(other < low, 0.5, Number(0.0)) + choose(other <= high, 0.5, Number(0.0));
    }
    lesser.to(places);
  }

  using Number = Lanes<Vector>;
  using Inputs = std::array<const double*, kMostElementInputs>;

  // The values of kLanes entries from the i-th on.
  [[gnu::always_inline]] static Number value(Number (*function)(const Number&),
                                             const Inputs& inputs, std::size_t i) {
    return function(Number::from(inputs[0] + i));
  }
  [[gnu::always_inline]] static Number value(Number (*function)(const Number&, const Number&),
                                             const Inputs& inputs, std::size_t i) {
    return function(Number::from(inputs[0] + i), Number::from(inputs[1] + i));
  }
  [[gnu::always_inline]] static Number value(Number (*function)(const Number&, const Number&,
                                                                const Number&),
                                             const Inputs& inputs, std::size_t i) {
    return function(Number::from(inputs[0] + i), Number::from(inputs[1] + i),
                    Number::from(inputs[2] + i));
  }

  template <auto kFunction>
  static void map_with(const Entries& entries) {
    std::size_t i = 0;
    for (; i + kLanes <= entries.count; i += kLanes)
      finite_or_nan(value(kFunction, entries.inputs, i)).to(entries.results + i);
    if (i == entries.count) return;
    // The last few, among zeros.
    std::array<std::array<double, kLanes>, kMostElementInputs> last{};
    Inputs inputs{};
    for (std::size_t input = 0; input < kMostElementInputs; ++input) {
      inputs[input] = last[input].data();
      if (entries.inputs[input] == nullptr) continue;
      std::copy(entries.inputs[input] + i, entries.inputs[input] + entries.count,
                last[input].begin());
    }
    std::array<double, kLanes> results{};
    finite_or_nan(value(kFunction, inputs, 0)).to(results.data());
    std::copy_n(results.begin(), entries.count - i, entries.results + i);
  }

  static void map(ElementFunction function, const Entries& entries) {
    switch (function) {
      case ElementFunction::Add:
        return map_with<LaneElements<Vector>::add>(entries);
      case ElementFunction::Sub:
        return map_with<LaneElements<Vector>::sub>(entries);
      case ElementFunction::Mul:
        return map_with<LaneElements<Vector>::mul>(entries);
      case ElementFunction::Div:
        return map_with<LaneElements<Vector>::div>(entries);
      case ElementFunction::Min:
        return map_with<LaneElements<Vector>::min>(entries);
      case ElementFunction::Max:
        return map_with<LaneElements<Vector>::max>(entries);
      case ElementFunction::Neg:
        return map_with<LaneElements<Vector>::neg>(entries);
      case ElementFunction::Abs:
        return map_with<LaneElements<Vector>::abs>(entries);
      case ElementFunction::Sign:
        return map_with<LaneElements<Vector>::sign>(entries);
      case ElementFunction::Log:
        return map_with<LaneElements<Vector>::log>(entries);
      case ElementFunction::Tanh:
        return map_with<LaneElements<Vector>::tanh>(entries);
      case ElementFunction::Power:
        return map_with<LaneElements<Vector>::power>(entries);
      case ElementFunction::SignedPower:
        return map_with<LaneElements<Vector>::signed_power>(entries);
      case ElementFunction::Ln:
        return map_with<LaneElements<Vector>::ln>(entries);
      case ElementFunction::If:
        return map_with<LaneElements<Vector>::choice>(entries);
      case ElementFunction::Clip:
        return map_with<LaneElements<Vector>::clip>(entries);
      case ElementFunction::Greater:
        return map_with<LaneElements<Vector>::greater>(entries);
      case ElementFunction::Less:
        return map_with<LaneElements<Vector>::less>(entries);
      case ElementFunction::GreaterOrEqual:
        return map_with<LaneElements<Vector>::greater_or_equal>(entries);
      case ElementFunction::LessOrEqual:
        return map_with<LaneElements<Vector>::less_or_equal>(entries);
      case ElementFunction::Equal:
        return map_with<LaneElements<Vector>::equal>(entries);
      case ElementFunction::NotEqual:
        return map_with<LaneElements<Vector>::not_equal>(entries);
      case ElementFunction::And:
        return map_with<LaneElements<Vector>::both>(entries);
      case ElementFunction::Or:
        return map_with<LaneElements<Vector>::either>(entries);
      case ElementFunction::Not:
        return map_with<LaneElements<Vector>::negation>(entries);
    }
  }

  static constexpr VectorKernels kTable{map, roll, count_lesser, rank_few<Vector>};
};

}  // namespace varnholt::embedded
