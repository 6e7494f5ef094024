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

#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using Values = std::vector<double>;

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

double naive_rank(const Values& v, double x) {
  double place = -0.5;  // x itself is among the equal ones.
  for (const double other : v)
    place += other < x ? 1.0 : (other == x ? 0.5 : 0.0);
  return v.size() == 1 ? 0.5 : place / static_cast<double>(v.size() - 1);
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
  add("cross_rank", naive_rank);
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
  add("ts_rank", [](const Values& v) { return naive_rank(v, v.back()); });
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
  add("comparison_gt", [](double a, double b) { return a > b ? 1.0 : 0.0; });
  add("comparison_lt", [](double a, double b) { return a < b ? 1.0 : 0.0; });
  add_one("arith_neg", [](double a) { return -a; });
  add_one("arith_abs", [](double a) { return a < 0 ? -a : a; });
  add_one("arith_sign", [](double a) { return a < 0 ? -1.0 : (a > 0 ? 1.0 : 0.0); });
  add_one("arith_log", [](double a) { return a < 0 ? -std::log(1.0 - a) : std::log(1.0 + a); });
  add_one("arith_tanh", [](double a) { return 1.0 - 2.0 / (std::exp(2.0 * a) + 1.0); });
}

std::map<std::string_view, Naive> naive_functions() {
  std::map<std::string_view, Naive> all;
  add_naive_days(all);
  add_naive_windows(all);
  add_naive_entries(all);
  return all;
}

Panel call(const FunctionEntry& entry, const Panel& x, const Panel& y, const Window& window) {
  if (const auto* f = std::get_if<OnePanelFunction>(&entry.function)) return (*f)(x);
  if (const auto* f = std::get_if<TwoPanelFunction>(&entry.function)) return (*f)(x, y);
  if (const auto* f = std::get_if<WindowFunction>(&entry.function)) return (*f)(x, window);
  return std::get<TwoPanelWindowFunction>(entry.function)(x, y, window);
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
      for (const Eigen::Index days_of_window : {2, 3, 5, 10, 20, 40}) {
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
