// Every function of the vocabulary, on random panels: the same values as its definition written
// out naively, and not one bit of an entry changes when later days are cut off.
// Method: naive definitions below, one window or one day at a time; a seeded loop over panels with
// gaps and ties.
#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/mapped.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using enum ElementFunction;

using Values = std::vector<double>;

// What the functions are given that take a number, a third panel or groups.
constexpr double kNumber = 0.3;

Panel third_panel(const Panel& x, const Panel& y) {
  return x + y;
}

// Three groups, into which the instruments are put anew every day; some are in none.
GroupPanel groups_of(const Panel& x) {
  GroupPanel groups(x.rows(), x.cols());
  for (Eigen::Index day = 0; day < x.rows(); ++day) {
    for (Eigen::Index column = 0; column < x.cols(); ++column)
      groups(day, column) = static_cast<int>((3 * day + 5 * column) % 4) - 1;
  }
  return groups;
}

double naive_mean(const Values& v) {
  return std::accumulate(v.begin(), v.end(), 0.0) / static_cast<double>(v.size());
}

double naive_covariance(const Values& v, const Values& u) {
  if (v.size() < 2) return kNan;
  const double v_mean = naive_mean(v);
  const double u_mean = naive_mean(u);
  double products = 0.0;
  for (std::size_t i = 0; i < v.size(); ++i)
    products += (v[i] - v_mean) * (u[i] - u_mean);
  return products / static_cast<double>(v.size() - 1);
}

// Panels hold values of a spread that is either exactly zero or plain to see.
bool naive_is_constant(const Values& v) {
  return std::all_of(v.begin(), v.end(), [&v](double x) { return x == v.front(); });
}

double naive_std(const Values& v) {
  if (v.size() < 2) return kNan;
  return naive_is_constant(v) ? 0.0 : std::sqrt(naive_covariance(v, v));
}

double naive_zscore(const Values& v, double x) {
  return naive_is_constant(v) ? kNan : (x - naive_mean(v)) / naive_std(v);
}

bool naive_is_alike(double a, double b) {
  return std::max(a, b) - std::min(a, b) <= 1e-9 * std::max(std::abs(a), std::abs(b));
}

// In a window: today's value with each of the others.
double naive_window_rank(const Values& v, double x) {
  double place = -0.5;  // x itself is among the equal ones.
  for (const double other : v)
    place += naive_is_alike(other, x) ? 0.5 : (other < x ? 1.0 : 0.0);
  return v.size() == 1 ? 0.5 : place / static_cast<double>(v.size() - 1);
}

// On a day: what is alike to a value that shares the place of x shares it too.
double naive_day_rank(Values v, double x) {
  if (v.size() == 1) return 0.5;
  std::sort(v.begin(), v.end());
  auto first = static_cast<std::size_t>(std::find(v.begin(), v.end(), x) - v.begin());
  std::size_t last = first;
  while (first > 0 && naive_is_alike(v[first - 1], v[first]))
    --first;
  while (last + 1 < v.size() && naive_is_alike(v[last], v[last + 1]))
    ++last;
  return static_cast<double>(first + last) / 2.0 / static_cast<double>(v.size() - 1);
}

// Of a whole window, unknown days included.
double naive_decay(const Values& v) {
  double sum = 0.0;
  double weights = 0.0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (std::isnan(v[i])) continue;
    sum += static_cast<double>(i + 1) * v[i];
    weights += static_cast<double>(i + 1);
  }
  return sum / weights;
}

// function(window of x, window of y) on each day that has a result, of the days on which both are
// known or, where `is_whole`, of all.
Panel naive_windows(const Panel& x, const Panel& y, const Window& window,
                    const std::function<double(const Values&, const Values&)>& function,
                    bool is_whole = false) {
  Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const auto is_known = [&](Eigen::Index day) {
      return !std::isnan(x(day, column)) && !std::isnan(y(day, column));
    };
    Eigen::Index first_known = 0;
    while (first_known < x.rows() && !is_known(first_known))
      ++first_known;
    for (Eigen::Index day = first_known + window.days - 1; day < x.rows(); ++day) {
      Values v;
      Values u;
      Eigen::Index known = 0;
      for (Eigen::Index d = day - window.days + 1; d <= day; ++d) {
        if (is_known(d)) ++known;
        if (!is_known(d) && !is_whole) continue;
        v.push_back(x(d, column));
        u.push_back(y(d, column));
      }
      if (!is_known(day) || known < window.least_known) continue;
      result(day, column) = function(v, u);
    }
  }
  return result;
}

// function(known values of the day, the value) for each known value.
Panel naive_days(const Panel& x, const std::function<double(const Values&, double)>& function) {
  Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
  for (Eigen::Index day = 0; day < x.rows(); ++day) {
    Values known;
    for (Eigen::Index c = 0; c < x.cols(); ++c) {
      if (!std::isnan(x(day, c))) known.push_back(x(day, c));
    }
    for (Eigen::Index c = 0; c < x.cols(); ++c) {
      if (!std::isnan(x(day, c))) result(day, c) = function(known, x(day, c));
    }
  }
  return result;
}

Panel naive_entries(const Panel& x, const Panel& y,
                    const std::function<double(double, double)>& function) {
  Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
  for (Eigen::Index i = 0; i < x.size(); ++i) {
    const double a = x.data()[i];
    const double b = y.data()[i];
    if (!std::isnan(a) && !std::isnan(b)) result.data()[i] = function(a, b);
  }
  return result;
}

using Naive = std::function<Panel(const Panel&, const Panel&, const Window&)>;

void add_naive_days(std::map<std::string_view, Naive>& all) {
  const auto add = [&all](std::string_view name, std::function<double(const Values&, double)> f) {
    all[name] = [f](const Panel& x, const Panel&, const Window&) { return naive_days(x, f); };
  };
  add("cross_rank", naive_day_rank);
  add("cross_zscore",
      [](const Values& v, double x) { return v.size() < 2 ? kNan : naive_zscore(v, x); });
  add("cross_demean", [](const Values& v, double x) { return x - naive_mean(v); });
  add("cross_scale", [](const Values& v, double x) {
    double gross = 0.0;
    for (const double value : v)
      gross += std::abs(value);
    return gross == 0.0 ? 0.0 : x / gross;
  });
}

void add_naive_windows(std::map<std::string_view, Naive>& all) {
  const auto add = [&all](std::string_view name, std::function<double(const Values&)> f) {
    all[name] = [f](const Panel& x, const Panel&, const Window& window) {
      return naive_windows(x, x, window, [&f](const Values& v, const Values&) { return f(v); });
    };
  };
  add("ts_mean", naive_mean);
  add("ts_std", naive_std);
  add("ts_zscore", [](const Values& v) { return naive_zscore(v, v.back()); });
  add("ts_rank", [](const Values& v) { return naive_window_rank(v, v.back()); });
  add("ts_min", [](const Values& v) { return *std::min_element(v.begin(), v.end()); });
  add("ts_max", [](const Values& v) { return *std::max_element(v.begin(), v.end()); });
  add("ts_sum", [](const Values& v) { return std::accumulate(v.begin(), v.end(), 0.0); });
  all["ts_decay"] = [](const Panel& x, const Panel&, const Window& window) {
    const auto decay = [](const Values& v, const Values&) { return naive_decay(v); };
    return naive_windows(x, x, window, decay, true);
  };
  all["ts_delta"] = [](const Panel& x, const Panel&, const Window& window) {
    Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
    for (Eigen::Index day = window.days; day < x.rows(); ++day) {
      result.row(day) = x.row(day) - x.row(day - window.days);
    }
    return result;
  };
  all["ts_covariance"] = [](const Panel& x, const Panel& y, const Window& window) {
    return naive_windows(x, y, window, naive_covariance);
  };
  all["ts_correlation"] = [](const Panel& x, const Panel& y, const Window& window) {
    return naive_windows(x, y, window, [](const Values& v, const Values& u) {
      if (naive_is_constant(v) || naive_is_constant(u)) return kNan;
      return naive_covariance(v, u) / (naive_std(v) * naive_std(u));
    });
  };
}

void add_naive_entries(std::map<std::string_view, Naive>& all) {
  const auto add = [&all](std::string_view name, std::function<double(double, double)> f) {
    all[name] = [f](const Panel& x, const Panel& y, const Window&) {
      return naive_entries(x, y, f);
    };
  };
  const auto add_one = [&all](std::string_view name, std::function<double(double)> f) {
    all[name] = [f](const Panel& x, const Panel&, const Window&) {
      return naive_entries(x, x, [&f](double a, double) { return f(a); });
    };
  };
  add("arith_add", [](double a, double b) { return a + b; });
  add("arith_sub", [](double a, double b) { return a - b; });
  add("arith_mul", [](double a, double b) { return a * b; });
  add("arith_div", [](double a, double b) { return std::abs(b) < 1e-12 ? kNan : a / b; });
  add("arith_min", [](double a, double b) { return std::min(a, b); });
  add("arith_max", [](double a, double b) { return std::max(a, b); });
  add("comparison_gt",
      [](double a, double b) { return a > b && !naive_is_alike(a, b) ? 1.0 : 0.0; });
  add("comparison_lt",
      [](double a, double b) { return a < b && !naive_is_alike(a, b) ? 1.0 : 0.0; });
  add_one("arith_neg", [](double a) { return -a; });
  add_one("arith_abs", [](double a) { return a < 0 ? -a : a; });
  add_one("arith_sign", [](double a) { return a < 0 ? -1.0 : (a > 0 ? 1.0 : 0.0); });
  add_one("arith_log", [](double a) { return a < 0 ? -std::log(1.0 - a) : std::log(1.0 + a); });
  add_one("arith_tanh", [](double a) { return 1.0 - 2.0 / (std::exp(2.0 * a) + 1.0); });
}

// --- shifts, products, places, shapes and lines ---

// Of a whole window, unknown days included: the place of the oldest value that is alike to the one
// before all others.
double naive_place(const Values& v, const std::function<bool(double, double)>& is_before) {
  double first = v.back();
  for (const double x : v) {
    if (is_before(x, first)) first = x;
  }
  const auto found =
      std::find_if(v.begin(), v.end(), [first](double x) { return naive_is_alike(x, first); });
  return static_cast<double>(found - v.begin() + 1);
}

// Likewise of a whole window.
double naive_ema(const Values& v) {
  const auto n = static_cast<double>(v.size());
  double sum = 0.0;
  double weights = 0.0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (std::isnan(v[v.size() - 1 - i])) continue;
    const double weight = std::pow((n - 1.0) / (n + 1.0), static_cast<double>(i));
    sum += weight * v[v.size() - 1 - i];
    weights += weight;
  }
  return sum / weights;
}

double naive_quantile(Values v) {
  std::sort(v.begin(), v.end());
  const double place = kNumber * static_cast<double>(v.size() - 1);
  const double below = v[static_cast<std::size_t>(std::floor(place))];
  const double above = v[static_cast<std::size_t>(std::ceil(place))];
  return below + (place - std::floor(place)) * (above - below);
}

double naive_power_sum(const Values& v, int power) {
  double sum = 0.0;
  for (const double x : v)
    sum += std::pow((x - naive_mean(v)) / naive_std(v), power);
  return sum;
}

double naive_skew(const Values& v) {
  const auto n = static_cast<double>(v.size());
  if (v.size() < 3 || naive_is_constant(v)) return kNan;
  return n / ((n - 1) * (n - 2)) * naive_power_sum(v, 3);
}

double naive_kurtosis(const Values& v) {
  const auto n = static_cast<double>(v.size());
  if (v.size() < 4 || naive_is_constant(v)) return kNan;
  return n * (n + 1) / ((n - 1) * (n - 2) * (n - 3)) * naive_power_sum(v, 4) -
         3 * (n - 1) * (n - 1) / ((n - 2) * (n - 3));
}

double naive_slope(const Values& v, const Values& u) {
  return naive_is_constant(u) ? kNan : naive_covariance(v, u) / naive_covariance(u, u);
}

void add_more_naive_windows(std::map<std::string_view, Naive>& all) {
  const auto add = [&all](std::string_view name,
                          std::function<double(const Values&, const Values&)> f) {
    all[name] = [f](const Panel& x, const Panel& y, const Window& window) {
      return naive_windows(x, y, window, f);
    };
  };
  const auto add_one = [&all](std::string_view name, std::function<double(const Values&)> f,
                              bool is_whole = false) {
    all[name] = [f, is_whole](const Panel& x, const Panel&, const Window& window) {
      return naive_windows(
          x, x, window, [&f](const Values& v, const Values&) { return f(v); }, is_whole);
    };
  };
  all["ts_delay"] = [](const Panel& x, const Panel&, const Window& window) {
    Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
    for (Eigen::Index day = window.days; day < x.rows(); ++day)
      result.row(day) = x.row(day - window.days);
    return result;
  };
  add_one("ts_product", [](const Values& v) {
    return std::accumulate(v.begin(), v.end(), 1.0, [](double a, double b) { return a * b; });
  });
  add_one(
      "ts_argmax", [](const Values& v) { return naive_place(v, std::greater<>()); }, true);
  add_one(
      "ts_argmin", [](const Values& v) { return naive_place(v, std::less<>()); }, true);
  add_one("ts_ema", naive_ema, true);
  add_one("ts_quantile", naive_quantile);
  add_one("ts_skew", naive_skew);
  add_one("ts_kurtosis", naive_kurtosis);
  add("ts_slope", naive_slope);
  add("ts_residual", [](const Values& v, const Values& u) {
    const double slope = naive_slope(v, u);
    return v.back() - (naive_mean(v) - slope * naive_mean(u)) - slope * u.back();
  });
}

// --- entries and groups ---

double naive_power(double a, double b) {
  if (a == 0.0) return b > 0.0 ? 0.0 : (b == 0.0 ? 1.0 : kNan);
  if (a > 0.0) return std::exp(b * std::log(a));
  if (b != std::round(b)) return kNan;
  return std::exp(b * std::log(-a)) * (std::fmod(std::abs(b), 2.0) == 1.0 ? -1.0 : 1.0);
}

// An overflow is not known.
double known(double value) {
  return std::isfinite(value) ? value : kNan;
}

void add_more_naive_entries(std::map<std::string_view, Naive>& all) {
  const auto add = [&all](std::string_view name, std::function<double(double, double)> f) {
    all[name] = [f](const Panel& x, const Panel& y, const Window&) {
      return naive_entries(x, y, [&f](double a, double b) { return known(f(a, b)); });
    };
  };
  add("arith_power", naive_power);
  add("arith_signed_power", [](double a, double b) {
    if (a == 0.0) return b < 0.0 ? kNan : 0.0;
    return (a < 0.0 ? -1.0 : 1.0) * naive_power(std::abs(a), b);
  });
  add("comparison_ge",
      [](double a, double b) { return a > b || naive_is_alike(a, b) ? 1.0 : 0.0; });
  add("comparison_le",
      [](double a, double b) { return a < b || naive_is_alike(a, b) ? 1.0 : 0.0; });
  add("comparison_eq", [](double a, double b) { return naive_is_alike(a, b) ? 1.0 : 0.0; });
  add("comparison_ne", [](double a, double b) { return naive_is_alike(a, b) ? 0.0 : 1.0; });
  add("logic_and", [](double a, double b) { return a * b == 0.0 ? 0.0 : 1.0; });
  add("logic_or", [](double a, double b) { return std::abs(a) + std::abs(b) == 0.0 ? 0.0 : 1.0; });
  all["arith_ln"] = [](const Panel& x, const Panel&, const Window&) {
    return naive_entries(x, x, [](double a, double) { return a > 0.0 ? std::log(a) : kNan; });
  };
  all["logic_not"] = [](const Panel& x, const Panel&, const Window&) {
    return naive_entries(x, x, [](double a, double) { return a == 0.0 ? 1.0 : 0.0; });
  };
  all["arith_if"] = [](const Panel& x, const Panel& y, const Window&) {
    const Panel z = third_panel(x, y);
    Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
    for (Eigen::Index i = 0; i < x.size(); ++i) {
      if (!std::isnan(x.data()[i])) result.data()[i] = (x.data()[i] == 0.0 ? z : y).data()[i];
    }
    return result;
  };
  all["arith_clip"] = [](const Panel& x, const Panel& y, const Window&) {
    const Panel z = third_panel(x, y);
    Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
    for (Eigen::Index i = 0; i < x.size(); ++i) {
      const double low = y.data()[i];
      const double high = z.data()[i];
      if (std::isnan(x.data()[i]) || std::isnan(low) || std::isnan(high) || low > high) continue;
      result.data()[i] = std::min(std::max(x.data()[i], low), high);
    }
    return result;
  };
}

void add_naive_groups(std::map<std::string_view, Naive>& all) {
  const auto add = [&all](std::string_view name, std::function<double(const Values&, double)> f) {
    all[name] = [f](const Panel& x, const Panel&, const Window&) {
      const GroupPanel groups = groups_of(x);
      Panel result = Panel::Constant(x.rows(), x.cols(), kNan);
      for (int group = 0; group < 3; ++group) {
        const Panel members = (groups == group).select(x, kNan);
        const Panel of_group = naive_days(members, f);
        result = (groups == group).select(of_group, result);
      }
      return result;
    };
  };
  add("group_demean", [](const Values& v, double x) { return x - naive_mean(v); });
  add("group_rank", naive_day_rank);
  add("group_zscore",
      [](const Values& v, double x) { return v.size() < 2 ? kNan : naive_zscore(v, x); });
  all["cross_winsorize"] = [](const Panel& x, const Panel&, const Window&) {
    return naive_days(x, [](const Values& v, double value) {
      if (v.size() < 2) return value;
      const double reach = kNumber * naive_std(v);
      return std::min(std::max(value, naive_mean(v) - reach), naive_mean(v) + reach);
    });
  };
}

std::map<std::string_view, Naive> naive_functions() {
  std::map<std::string_view, Naive> all;
  add_more_naive_windows(all);
  add_more_naive_entries(all);
  add_naive_groups(all);
  add_naive_days(all);
  add_naive_windows(all);
  add_naive_entries(all);
  return all;
}

Panel call(const FunctionEntry& entry, const Panel& x, const Panel& y, const Window& window) {
  struct Call {
    const Panel& x;
    const Panel& y;
    const Window& window;
    Panel operator()(ElementFunction f) const {
      const Panel z = third_panel(x, y);
      return mapped(f, std::array{&x, &y, &z});
    }
    Panel operator()(OnePanelFunction f) const { return f(x); }
    Panel operator()(WindowFunction f) const { return f(x, window); }
    Panel operator()(TwoPanelWindowFunction f) const { return f(x, y, window); }
    Panel operator()(NumberFunction f) const { return f(x, kNumber); }
    Panel operator()(NumberWindowFunction f) const { return f(x, kNumber, window); }
    Panel operator()(GroupFunction f) const { return f(x, groups_of(x)); }
  };
  return std::visit(Call{x, y, window}, entry.function);
}

Vocabulary vocabulary() {
  return make_vocabulary(MarketData{});
}

TEST(PanelFunctionsProperty, EveryFunctionAgreesWithItsDefinition) {
  const std::map<std::string_view, Naive> naive = naive_functions();
  const Vocabulary words = vocabulary();
  ASSERT_EQ(naive.size(), words.functions.size());
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const double nan_share = seed % 3 == 0 ? 0.0 : 0.02 * static_cast<double>(seed % 3);
    const auto days = static_cast<Eigen::Index>(1 + engine() % 90);
    const auto columns = static_cast<Eigen::Index>(1 + engine() % 9);
    const Panel x = random_panel(engine, days, columns, nan_share);
    const Panel y = random_panel(engine, days, columns, nan_share);
    for (const FunctionEntry& entry : words.functions) {
      for (const Eigen::Index days_of_window : {1, 2, 3, 5, 7, 10, 20, 40}) {
        for (const double least_known_share : {1.0, 0.9, 0.5, 0.01}) {
          SCOPED_TRACE(std::string(entry.name) + " " + std::to_string(days_of_window) + " " +
                       std::to_string(least_known_share));
          const Window window(days_of_window, least_known_share);
          EXPECT_TRUE(
              panels_are_near(call(entry, x, y, window), naive.at(entry.name)(x, y, window), 1e-9));
        }
        if (!entry.needs_window()) break;
      }
    }
  }
}

// The functions that ask for an order.
std::vector<FunctionEntry> functions_of_order() {
  std::vector<FunctionEntry> found;
  for (const FunctionEntry& entry : vocabulary().functions) {
    const std::string name(entry.name);
    const bool is_order =
        name.ends_with("_rank") || name.starts_with("ts_arg") || name.starts_with("comparison_");
    if (is_order) found.push_back(entry);
  }
  return found;
}

// Panels whose values lie 0.6 billionths apart: some are alike, and their neighbours are not.
TEST(PanelFunctionsProperty, EveryOrderAgreesWithItsDefinitionAmongNearlyAlikeValues) {
  const std::map<std::string_view, Naive> naive = naive_functions();
  for (std::uint64_t seed = 1; seed <= 8; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const auto near_one = [&engine](double sign) {
      Panel values = random_panel(engine, 60, 7, 0.05);
      for (double& value : values.reshaped())
        value =
            std::isnan(value) ? kNan : sign * (1.0 + 0.6e-9 * static_cast<double>(engine() % 7));
      return values;
    };
    const double sign = seed % 2 == 0 ? -1.0 : 1.0;
    const Panel x = near_one(sign);
    const Panel y = near_one(sign);
    for (const FunctionEntry& entry : functions_of_order()) {
      for (const Eigen::Index days_of_window : {1, 2, 5, 20}) {
        SCOPED_TRACE(std::string(entry.name) + " " + std::to_string(days_of_window));
        const Window window(days_of_window, 0.5);
        EXPECT_TRUE(
            panels_are_near(call(entry, x, y, window), naive.at(entry.name)(x, y, window), 1e-9));
      }
    }
  }
}

TEST(PanelFunctionsProperty, NoOrderSeesRounding) {
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const auto rounded_otherwise = [&engine](const Panel& panel) {
      Panel result = panel;
      for (double& value : result.reshaped())
        value *= 1.0 + 1e-15 * static_cast<double>(engine() % 9);
      return result;
    };
    const Panel x = random_panel(engine, 60, 9, 0.02).round();
    const Panel y = random_panel(engine, 60, 9, 0.02).round();
    for (const FunctionEntry& entry : functions_of_order()) {
      SCOPED_TRACE(std::string(entry.name));
      const Panel exact = call(entry, x, y, 10);
      EXPECT_TRUE(begins_with(exact, call(entry, rounded_otherwise(x), rounded_otherwise(y), 10)));
    }
  }
}

// The two-day z-score by another formula: half the change by the change's size over root two.
TEST(PanelFunctionsProperty, TwoWaysOfAddingGiveTheSameRanks) {
  std::mt19937_64 engine(7);
  const Panel x = random_panel(engine, 200, 12, 0.0);
  const Panel otherwise = ts_delta(x, 1) / 2.0 / (ts_delta(x, 1).abs() / std::sqrt(2.0));
  const Panel zscore = ts_zscore(x, 2);
  EXPECT_TRUE(panels_are_near(zscore, otherwise, 1e-9));
  EXPECT_TRUE(begins_with(cross_rank(zscore), cross_rank(otherwise)));
  EXPECT_TRUE(begins_with(ts_rank(zscore, 10), ts_rank(otherwise, 10)));
  const Panel mean = Panel::Constant(x.rows(), x.cols(), std::sqrt(0.5));
  EXPECT_TRUE(
      begins_with(mapped(GreaterOrEqual, zscore, mean), mapped(GreaterOrEqual, otherwise, mean)));
}

TEST(PanelFunctionsProperty, NoEntryDependsOnALaterDay) {
  const Vocabulary words = vocabulary();
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const Panel x = random_panel(engine, 150, 11, 0.01);
    const Panel y = random_panel(engine, 150, 11, 0.01);
    for (const FunctionEntry& entry : words.functions) {
      const auto window = static_cast<Eigen::Index>(words.windows[engine() % words.windows.size()]);
      const Panel whole = call(entry, x, y, window);
      for (int cut = 0; cut < 6; ++cut) {
        const auto days = static_cast<Eigen::Index>(1 + engine() % 149);
        SCOPED_TRACE(std::string(entry.name) + " " + std::to_string(window));
        EXPECT_TRUE(begins_with(whole, call(entry, x.topRows(days), y.topRows(days), window)));
      }
    }
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
