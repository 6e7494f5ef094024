#include "apps/genetic_search/luck_text.hpp"

#include <cstdint>

#include <fmt/format.h>

namespace varnholt::app {
namespace {

// "19,167"
std::string grouped(std::int64_t count) {
  std::string text = std::to_string(count);
  for (std::size_t place = text.size(); place > 3; place -= 3)
    text.insert(place - 3, ",");
  return text;
}

std::string verdict_text(const embedded::RunLuck& luck) {
  const std::int64_t trials = luck.spread.trials;
  const std::string tried = fmt::format(
      "{} {} tried; the best of so many would reach a Sharpe ratio of about {:.2f} by "
      "chance",
      trials == 1 ? "1 expression" : grouped(trials) + " expressions", trials == 1 ? "was" : "were",
      luck.expected_maximum_sharpe);
  if (!luck.best) return tried + "; no signal was submitted that could be held against it.";
  return fmt::format(
      "{}; the best here, {}, has {:.2f}, and {:.2f} on the hold-out: {}.", tried,
      luck.best->eval_id, luck.best->in_sample_sharpe, luck.best->holdout_sharpe,
      luck.better_than_luck
          ? fmt::format("better than luck, with a confidence of {:.3f}", luck.confidence)
          : std::string("nothing found that luck does not explain"));
}

std::string samples_text(const embedded::RunLuck& luck) {
  std::string text = fmt::format(
      "The submitted signals have a mean Sharpe ratio of {:.2f} in "
      "sample and of {:.2f} on the hold-out",
      luck.mean_in_sample_sharpe, luck.mean_holdout_sharpe);
  if (luck.sample_correlation)
    text += fmt::format("; the correlation of the two is {:.2f}", *luck.sample_correlation);
  return text + ".";
}

}  // namespace

std::string luck_text(const embedded::RunLuck& luck, Width width) {
  if (luck.spread.trials == 0) return {};
  std::string text = entry_text("", verdict_text(luck), width);
  if (luck.signals > 0) text += entry_text("", samples_text(luck), width);
  if (luck.overfitting_probability) {
    text += entry_text("",
                       fmt::format("Choosing the best of the trials on one half of the days gave "
                                   "one below the middle on the other half in {:.0f} % of the ways "
                                   "to halve them.",
                                   100.0 * *luck.overfitting_probability),
                       width);
  }
  return text;
}

}  // namespace varnholt::app
