// The functions of the vocabulary, with what people are told of them.
#include <algorithm>
#include <array>

#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/group_functions.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "hosts/embedded/vocabulary/window_functions.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kCross = "cross";
constexpr std::string_view kTimeSeries = "ts";
constexpr std::string_view kArithmetic = "arith";
constexpr std::string_view kComparison = "comparison";
constexpr std::string_view kLogic = "logic";
constexpr std::string_view kGroup = "group";

// What several functions say in the same words.
constexpr std::string_view kConstantDay = "the whole day, where n < 2 or the values are constant";
constexpr std::string_view kConstantWindow = "the window is constant";
constexpr std::string_view kOneDayWindow = "the window is one day";
constexpr std::string_view kSharedPlaces = "alike values share the mean of their places";
constexpr std::string_view kOldestCounts = "of alike values the oldest counts";
constexpr std::string_view kAlikeIsEqual = "alike values are equal";

// What fresh graphs draw numbers from: spreads are counted in standard deviations.
constexpr std::array<double, 4> kSpreads = {1.0, 2.0, 3.0, 4.0};
constexpr std::array<double, 5> kShares = {0.1, 0.25, 0.5, 0.75, 0.9};

FunctionEntry when_switched_on(FunctionEntry entry) {
  entry.drawn = Drawn::WhenSwitchedOn;
  return entry;
}

struct ArgumentsOf {
  static constexpr ArgumentKind kPanel = ArgumentKind::Data;
  static constexpr ArgumentKind kNumber = ArgumentKind::Number;
  static constexpr ArgumentKind kWindow = ArgumentKind::Days;
  static constexpr std::array<ArgumentKind, kMostElementInputs> kPanels = {kPanel, kPanel, kPanel};
  static constexpr std::array<ArgumentKind, 3> kWithWindow = {kPanel, kPanel, kWindow};
  static constexpr std::array<ArgumentKind, 3> kWithNumber = {kPanel, kNumber, kWindow};
  static constexpr std::array<ArgumentKind, 2> kWithGroup = {kPanel, ArgumentKind::Group};

  ArgumentKinds operator()(ElementFunction function) const {
    return ArgumentKinds(kPanels).first(inputs_of(function));
  }
  ArgumentKinds operator()(OnePanelFunction /*function*/) const {
    return ArgumentKinds(kPanels).first(1);
  }
  ArgumentKinds operator()(WindowFunction /*function*/) const {
    return ArgumentKinds(kWithWindow).last(2);
  }
  ArgumentKinds operator()(TwoPanelWindowFunction /*function*/) const { return kWithWindow; }
  ArgumentKinds operator()(NumberFunction /*function*/) const {
    return ArgumentKinds(kWithNumber).first(2);
  }
  ArgumentKinds operator()(NumberWindowFunction /*function*/) const { return kWithNumber; }
  ArgumentKinds operator()(GroupFunction /*function*/) const { return kWithGroup; }
};

}  // namespace

ArgumentKinds FunctionEntry::arguments() const {
  return std::visit(ArgumentsOf(), function);
}

bool FunctionEntry::takes(ArgumentKind kind) const {
  const ArgumentKinds kinds = arguments();
  return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

std::size_t FunctionEntry::data_children() const {
  const ArgumentKinds kinds = arguments();
  return static_cast<std::size_t>(std::count(kinds.begin(), kinds.end(), ArgumentKind::Data));
}

std::string call_text(const FunctionEntry& function) {
  std::string text(function.name);
  text += '(';
  char panel = 'x';
  for (const ArgumentKind kind : function.arguments()) {
    if (text.back() != '(') text += ", ";
    switch (kind) {
      case ArgumentKind::Data:
        text += panel++;
        break;
      case ArgumentKind::Group:
        text += "group";
        break;
      case ArgumentKind::Number:
        text += "number";
        break;
      case ArgumentKind::Days:
        text += 'n';
        break;
    }
  }
  return text + ')';
}

// In the texts of the functions across instruments n is the number of instruments known that day,
// in those over time the window in days.
std::vector<FunctionEntry> all_functions() {
  return {
      {"cross_rank",
       kCross,
       2.0,
       cross_rank,
       UnitRule::Number,
       {"(place of x among the day's known values - 1) / (n - 1); 0.5 where n = 1", "",
        kSharedPlaces}},
      {"cross_zscore",
       kCross,
       2.0,
       cross_zscore,
       UnitRule::Number,
       {"(x - mean(x)) / s, with s the sample standard deviation (divisor n - 1)", kConstantDay,
        ""}},
      {"cross_demean", kCross, 1.0, cross_demean, UnitRule::OfFirst, {"x - mean(x)", "", ""}},
      {"cross_scale",
       kCross,
       0.5,
       cross_scale,
       UnitRule::Number,
       {"x / sum(|x|); a day of nothing but zeros stays zero", "", ""}},
      {"ts_mean", kTimeSeries, 2.0, ts_mean, UnitRule::OfFirst, {"sum of the window / n", "", ""}},
      {"ts_std",
       kTimeSeries,
       1.0,
       ts_std,
       UnitRule::OfFirst,
       {"the sample standard deviation (divisor n - 1); exactly 0 for a constant window",
        kOneDayWindow, ""}},
      {"ts_zscore",
       kTimeSeries,
       2.0,
       ts_zscore,
       UnitRule::Number,
       {"(x - mean of the window) / s, with s as ts_std has it", kConstantWindow, ""}},
      {"ts_rank",
       kTimeSeries,
       1.5,
       ts_rank,
       UnitRule::Number,
       {"(place of today's x in the window - 1) / (n - 1); 0.5 where n = 1", "", kSharedPlaces}},
      {"ts_min",
       kTimeSeries,
       0.5,
       ts_min,
       UnitRule::OfFirst,
       {"the least value of the window", "", ""}},
      {"ts_max",
       kTimeSeries,
       0.5,
       ts_max,
       UnitRule::OfFirst,
       {"the greatest value of the window", "", ""}},
      {"ts_delta",
       kTimeSeries,
       2.0,
       ts_delta,
       UnitRule::OfFirst,
       {"x(t) - x(t-n); only these two days must be known", "", ""}},
      {"ts_sum", kTimeSeries, 1.0, ts_sum, UnitRule::OfFirst, {"the sum of the window", "", ""}},
      {"ts_decay",
       kTimeSeries,
       1.5,
       ts_decay,
       UnitRule::OfFirst,
       {"(n x(t) + (n-1) x(t-1) + ... + 1 x(t-n+1)) / (n (n+1) / 2)", "", ""}},
      {"ts_correlation",
       kTimeSeries,
       1.0,
       ts_correlation,
       UnitRule::Number,
       {"Pearson's correlation of x and y over the window, within -1 to 1", "either is constant",
        ""}},
      {"ts_covariance",
       kTimeSeries,
       0.5,
       ts_covariance,
       UnitRule::Product,
       {"the sample covariance of x and y over the window (divisor n - 1)", kOneDayWindow, ""}},
      {"arith_add", kArithmetic, 1.0, ElementFunction::Add, UnitRule::Alike, {"x + y", "", ""}},
      {"arith_sub", kArithmetic, 1.5, ElementFunction::Sub, UnitRule::Alike, {"x - y", "", ""}},
      {"arith_mul", kArithmetic, 1.0, ElementFunction::Mul, UnitRule::Product, {"x * y", "", ""}},
      {"arith_div",
       kArithmetic,
       1.0,
       ElementFunction::Div,
       UnitRule::Quotient,
       {"x / y", "|y| is below 1e-12", ""}},
      {"arith_neg", kArithmetic, 1.0, ElementFunction::Neg, UnitRule::OfFirst, {"-x", "", ""}},
      {"arith_abs", kArithmetic, 0.5, ElementFunction::Abs, UnitRule::OfFirst, {"|x|", "", ""}},
      {"arith_sign",
       kArithmetic,
       0.5,
       ElementFunction::Sign,
       UnitRule::Number,
       {"-1, 0 or 1", "", ""}},
      {"arith_log",
       kArithmetic,
       0.5,
       ElementFunction::Log,
       UnitRule::Number,
       {"sign(x) ln(1 + |x|)", "", ""}},
      {"arith_tanh",
       kArithmetic,
       0.5,
       ElementFunction::Tanh,
       UnitRule::Number,
       {"tanh(x)", "", ""}},
      {"arith_min",
       kArithmetic,
       0.5,
       ElementFunction::Min,
       UnitRule::Alike,
       {"the lesser of x and y", "", ""}},
      {"arith_max",
       kArithmetic,
       0.5,
       ElementFunction::Max,
       UnitRule::Alike,
       {"the greater of x and y", "", ""}},
      {"comparison_gt",
       kComparison,
       0.5,
       ElementFunction::Greater,
       UnitRule::AlikeNumber,
       {"1 where x > y, else 0", "", kAlikeIsEqual}},
      {"comparison_lt",
       kComparison,
       0.5,
       ElementFunction::Less,
       UnitRule::AlikeNumber,
       {"1 where x < y, else 0", "", kAlikeIsEqual}},
      when_switched_on(
          {"cross_winsorize",
           kCross,
           0.5,
           cross_winsorize,
           UnitRule::OfFirst,
           {"x, but no further from mean(x) than number sample standard deviations", "", ""},
           {0.0, 1000.0, kSpreads}}),
      when_switched_on({"ts_delay",
                        kTimeSeries,
                        1.0,
                        ts_delay,
                        UnitRule::OfFirst,
                        {"x(t-n); only this day must be known", "", ""}}),
      when_switched_on({"ts_product",
                        kTimeSeries,
                        0.5,
                        ts_product,
                        UnitRule::DaysPower,
                        {"the product of the window", "", ""}}),
      when_switched_on({"ts_argmax",
                        kTimeSeries,
                        0.5,
                        ts_argmax,
                        UnitRule::Number,
                        {"the place in the window of its greatest value: 1 is the oldest day, n "
                         "today",
                         "", kOldestCounts}}),
      when_switched_on({"ts_argmin",
                        kTimeSeries,
                        0.5,
                        ts_argmin,
                        UnitRule::Number,
                        {"the place in the window of its least value: 1 is the oldest day, n today",
                         "", kOldestCounts}}),
      when_switched_on({"ts_ema",
                        kTimeSeries,
                        1.0,
                        ts_ema,
                        UnitRule::OfFirst,
                        {"sum of r^i x(t-i) / sum of r^i over the days i = 0 ... n-1 of the "
                         "window, with r = (n - 1) / (n + 1)",
                         "", ""}}),
      when_switched_on({"ts_quantile",
                        kTimeSeries,
                        0.5,
                        ts_quantile,
                        UnitRule::OfFirst,
                        {"the value below which the share number of the window lies, linear "
                         "between the two nearest; 0.5 gives the median",
                         "", ""},
                        {0.0, 1.0, kShares}}),
      when_switched_on({"ts_skew",
                        kTimeSeries,
                        0.5,
                        ts_skew,
                        UnitRule::Number,
                        {"n / ((n-1)(n-2)) sum of ((x - mean) / s)^3, with s as ts_std has it",
                         "n < 3, or the window is constant", ""}}),
      when_switched_on({"ts_kurtosis",
                        kTimeSeries,
                        0.5,
                        ts_kurtosis,
                        UnitRule::Number,
                        {"n (n+1) / ((n-1)(n-2)(n-3)) sum of ((x - mean) / s)^4 - 3 (n-1)^2 / "
                         "((n-2)(n-3)): that of a normal distribution is 0",
                         "n < 4, or the window is constant", ""}}),
      when_switched_on(
          {"ts_slope",
           kTimeSeries,
           0.5,
           ts_slope,
           UnitRule::Quotient,
           {"b of the least-squares line x = a + b y over the window", "y is constant", ""}}),
      when_switched_on({"ts_residual",
                        kTimeSeries,
                        0.5,
                        ts_residual,
                        UnitRule::OfFirst,
                        {"x(t) - a - b y(t), with the line of ts_slope", "y is constant", ""}}),
      when_switched_on({"arith_power",
                        kArithmetic,
                        0.5,
                        ElementFunction::Power,
                        UnitRule::Power,
                        {"x^y", "it is no real number, or not finite", ""}}),
      when_switched_on({"arith_signed_power",
                        kArithmetic,
                        0.5,
                        ElementFunction::SignedPower,
                        UnitRule::Power,
                        {"sign(x) |x|^y", "it is not finite", ""}}),
      when_switched_on({"arith_ln",
                        kArithmetic,
                        0.5,
                        ElementFunction::Ln,
                        UnitRule::Number,
                        {"the natural logarithm of x", "x <= 0", ""}}),
      when_switched_on(
          {"arith_if",
           kArithmetic,
           0.5,
           ElementFunction::If,
           UnitRule::AlikeChoices,
           {"y where x is not 0, else z; the other of the two need not be known", "", ""}}),
      when_switched_on({"arith_clip",
                        kArithmetic,
                        0.5,
                        ElementFunction::Clip,
                        UnitRule::Alike,
                        {"the nearest to x from y to z", "y > z", ""}}),
      when_switched_on({"comparison_ge",
                        kComparison,
                        0.5,
                        ElementFunction::GreaterOrEqual,
                        UnitRule::AlikeNumber,
                        {"1 where x >= y, else 0", "", kAlikeIsEqual}}),
      when_switched_on({"comparison_le",
                        kComparison,
                        0.5,
                        ElementFunction::LessOrEqual,
                        UnitRule::AlikeNumber,
                        {"1 where x <= y, else 0", "", kAlikeIsEqual}}),
      when_switched_on({"comparison_eq",
                        kComparison,
                        0.5,
                        ElementFunction::Equal,
                        UnitRule::AlikeNumber,
                        {"1 where x = y, else 0", "", kAlikeIsEqual}}),
      when_switched_on({"comparison_ne",
                        kComparison,
                        0.5,
                        ElementFunction::NotEqual,
                        UnitRule::AlikeNumber,
                        {"0 where x = y, else 1", "", kAlikeIsEqual}}),
      when_switched_on({"logic_and",
                        kLogic,
                        0.5,
                        ElementFunction::And,
                        UnitRule::Number,
                        {"1 where neither x nor y is 0, else 0", "", ""}}),
      when_switched_on({"logic_or",
                        kLogic,
                        0.5,
                        ElementFunction::Or,
                        UnitRule::Number,
                        {"0 where both x and y are 0, else 1", "", ""}}),
      when_switched_on({"logic_not",
                        kLogic,
                        0.5,
                        ElementFunction::Not,
                        UnitRule::Number,
                        {"1 where x is 0, else 0", "", ""}}),
      when_switched_on({"group_demean",
                        kGroup,
                        1.0,
                        group_demean,
                        UnitRule::OfFirst,
                        {"x - mean(x), the mean of the instrument's group", "", ""}}),
      when_switched_on({"group_rank",
                        kGroup,
                        1.0,
                        group_rank,
                        UnitRule::Number,
                        {"cross_rank(x) among the instrument's group", "", kSharedPlaces}}),
      when_switched_on({"group_zscore",
                        kGroup,
                        1.0,
                        group_zscore,
                        UnitRule::Number,
                        {"cross_zscore(x) among the instrument's group",
                         "the whole group, where n < 2 or its values are constant", ""}}),
  };
}

}  // namespace varnholt::embedded
