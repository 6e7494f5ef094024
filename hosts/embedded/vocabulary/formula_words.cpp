#include "hosts/embedded/vocabulary/formula_words.hpp"

#include <algorithm>
#include <array>

namespace varnholt::embedded {
namespace {

constexpr auto kAliases = std::to_array<WordAlias>({
    {"rank", "cross_rank"},
    {"zscore", "cross_zscore"},
    {"demean", "cross_demean"},
    {"scale", "cross_scale"},
    {"winsorize", "cross_winsorize"},
    {"winsorise", "cross_winsorize"},
    {"cross_winsorise", "cross_winsorize"},
    {"mean", "ts_mean"},
    {"sma", "ts_mean"},
    {"ts_average", "ts_mean"},
    {"sum", "ts_sum"},
    {"stddev", "ts_std"},
    {"std", "ts_std"},
    {"ts_stddev", "ts_std"},
    {"ts_std_dev", "ts_std"},
    {"delta", "ts_delta"},
    {"delay", "ts_delay"},
    {"lag", "ts_delay"},
    {"ts_lag", "ts_delay"},
    {"product", "ts_product"},
    {"correlation", "ts_correlation"},
    {"corr", "ts_correlation"},
    {"ts_corr", "ts_correlation"},
    {"covariance", "ts_covariance"},
    {"cov", "ts_covariance"},
    {"ts_cov", "ts_covariance"},
    {"decay_linear", "ts_decay"},
    {"ts_decay_linear", "ts_decay"},
    {"wma", "ts_decay"},
    {"ts_arg_max", "ts_argmax"},
    {"argmax", "ts_argmax"},
    {"ts_arg_min", "ts_argmin"},
    {"argmin", "ts_argmin"},
    {"ema", "ts_ema"},
    {"ewm", "ts_ema"},
    {"quantile", "ts_quantile"},
    {"skew", "ts_skew"},
    {"ts_skewness", "ts_skew"},
    {"kurtosis", "ts_kurtosis"},
    {"ts_kurt", "ts_kurtosis"},
    {"slope", "ts_slope"},
    {"residual", "ts_residual"},
    {"add", "arith_add"},
    {"subtract", "arith_sub"},
    {"sub", "arith_sub"},
    {"multiply", "arith_mul"},
    {"mul", "arith_mul"},
    {"divide", "arith_div"},
    {"div", "arith_div"},
    {"neg", "arith_neg"},
    {"abs", "arith_abs"},
    {"sign", "arith_sign"},
    {"log", "arith_ln"},
    {"ln", "arith_ln"},
    {"tanh", "arith_tanh"},
    {"min", "arith_min"},
    {"max", "arith_max"},
    {"power", "arith_power"},
    {"pow", "arith_power"},
    {"signedpower", "arith_signed_power"},
    {"signed_power", "arith_signed_power"},
    {"if", "arith_if"},
    {"if_else", "arith_if"},
    {"where", "arith_if"},
    {"clip", "arith_clip"},
    {"clamp", "arith_clip"},
    {"indneutralize", "group_demean"},
    {"group_neutralize", "group_demean"},
    {"group_neutralise", "group_demean"},
    {"neutralize", "group_demean"},
    {"neutralise", "group_demean"},
    {"return", "returns"},
    {"ret", "returns"},
});

constexpr auto kAbbreviations = std::to_array<Abbreviation>({
    // Where the prices have a column of this name, that one is meant.
    {"vwap", "", "(high + low + close) / 3"},
    {"scale", "xa", "a * cross_scale(x)"},
    {"sqrt", "x", "x ^ 0.5"},
    {"ts_median", "xn", "ts_quantile(x, 0.5, n)"},
    {"median", "xn", "ts_quantile(x, 0.5, n)"},
    {"adv", "n", "ts_mean(dollar_volume, n)"},
});

}  // namespace

std::span<const WordAlias> word_aliases() {
  return kAliases;
}

std::span<const Abbreviation> abbreviations() {
  return kAbbreviations;
}

std::string in_lower_case(std::string_view name) {
  std::string text(name);
  for (char& character : text) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return text;
}

std::string_view name_of_word(std::string_view lower_case_word) {
  const auto* const found =
      std::find_if(kAliases.begin(), kAliases.end(),
                   [&](const WordAlias& entry) { return entry.alias == lower_case_word; });
  return found == kAliases.end() ? lower_case_word : found->name;
}

const Abbreviation* find_abbreviation(std::string_view lower_case_word, std::size_t parameters) {
  const auto* const found =
      std::find_if(kAbbreviations.begin(), kAbbreviations.end(), [&](const Abbreviation& entry) {
        return entry.name == lower_case_word && entry.parameters.size() == parameters;
      });
  return found == kAbbreviations.end() ? nullptr : found;
}

}  // namespace varnholt::embedded
