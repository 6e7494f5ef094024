#include "tests/hosts/embedded/synthetic_universe.hpp"

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

namespace varnholt::embedded::test {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

// The distributions of the standard library are free to differ between libraries; these are not.
class Draws {
 public:
  explicit Draws(std::uint64_t seed) : engine_(seed) {}

  // Uniform in [0, 1), in steps of 2^-53.
  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }

  double normal() {
    double sum = 0.0;
    for (int i = 0; i < 12; ++i)
      sum += uniform();
    return sum - 6.0;
  }

 private:
  std::mt19937_64 engine_;
};

void check(const SyntheticUniverseOptions& options) {
  if (options.instruments < 1 || options.days < 1 || options.factors < 1) {
    throw std::invalid_argument(
        "a synthetic universe needs at least one instrument, one day and one factor");
  }
  const auto is_share = [](double share) { return share >= 0.0 && share <= 1.0; };
  if (!is_share(options.late_start_share) || !is_share(options.gap_share)) {
    throw std::invalid_argument("the shares of a synthetic universe lie between 0 and 1");
  }
}

std::vector<Date> weekdays(Eigen::Index count) {
  std::vector<Date> dates;
  Date date = std::chrono::year{2000} / 1 / 3;
  while (static_cast<Eigen::Index>(dates.size()) < count) {
    const std::chrono::weekday day{date};
    if (day != std::chrono::Saturday && day != std::chrono::Sunday) dates.push_back(date);
    date += std::chrono::days{1};
  }
  return dates;
}

// Symbols of one width, so that the order of the columns is the order of their numbers.
std::vector<std::string> symbols(Eigen::Index count) {
  const std::size_t width = std::max<std::size_t>(4, std::to_string(count).size());
  std::vector<std::string> names;
  for (Eigen::Index i = 1; i <= count; ++i) {
    const std::string number = std::to_string(i);
    names.push_back("SYN" + std::string(width - number.size(), '0') + number);
  }
  return names;
}

Panel draw_factors(const SyntheticUniverseOptions& options, Draws& draws) {
  Panel factors(options.days, options.factors);
  for (Eigen::Index k = 0; k < options.factors; ++k) {
    for (Eigen::Index t = 0; t < options.days; ++t) {
      factors(t, k) = (k == 0 ? 0.009 : 0.004) * draws.normal();
    }
  }
  return factors;
}

// The whole history of instrument `i`, column by column of `data`.
void draw_instrument(const SyntheticUniverseOptions& options, const Panel& factors, Eigen::Index i,
                     Draws& draws, MarketData& data) {
  std::vector<double> loadings;
  for (Eigen::Index k = 0; k < options.factors; ++k) {
    loadings.push_back(k == 0 ? 1.0 + 0.3 * draws.normal() : draws.normal());
  }
  const double own_volatility = 0.008 + 0.017 * draws.uniform();
  const double usual_volume = 1e5 + 5e6 * draws.uniform();
  const bool is_late = draws.uniform() < options.late_start_share;
  const double start_share = is_late ? 0.5 * draws.uniform() : 0.0;
  const auto start = static_cast<Eigen::Index>(start_share * static_cast<double>(options.days));

  double close = 10.0 + 190.0 * draws.uniform();
  for (Eigen::Index t = 0; t < options.days; ++t) {
    double value = 0.0003;
    for (Eigen::Index k = 0; k < options.factors; ++k) {
      value += loadings[static_cast<std::size_t>(k)] * factors(t, k);
    }
    const double tail = draws.uniform() < 1.0 / 30.0 ? 3.0 : 1.0;
    value += own_volatility * tail * draws.normal();
    const double open = close * (1.0 + 0.3 * own_volatility * draws.normal());
    close *= 1.0 + std::clamp(value, -0.4, 0.4);
    const double above = 1.0 + own_volatility * draws.uniform();
    const double below = 1.0 - own_volatility * draws.uniform();
    const double activity = 0.5 + draws.uniform();
    const bool is_gap = draws.uniform() < options.gap_share;
    if (t < start || is_gap) continue;
    data.close(t, i) = close;
    (*data.open)(t, i) = open;
    (*data.high)(t, i) = std::max(open, close) * above;
    (*data.low)(t, i) = std::min(open, close) * below;
    (*data.volume)(t, i) = usual_volume * activity * tail;
  }
}

}  // namespace

MarketData make_synthetic_universe(const SyntheticUniverseOptions& options) {
  check(options);
  MarketData data;
  data.dates = weekdays(options.days);
  data.symbols = symbols(options.instruments);
  data.close = Panel::Constant(options.days, options.instruments, kMissing);
  data.open = data.close;
  data.high = data.close;
  data.low = data.close;
  data.volume = data.close;
  Draws draws(options.seed);
  const Panel factors = draw_factors(options, draws);
  for (Eigen::Index i = 0; i < options.instruments; ++i) {
    draw_instrument(options, factors, i, draws, data);
  }
  return data;
}

}  // namespace varnholt::embedded::test
