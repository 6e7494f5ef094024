// A submission with what its evaluation has of it, and the figures that lists of them go by.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/store/submission_table.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

struct ListedSignal {
  embedded::SubmissionRecord submission;
  std::string expression;
  // The mappings of the stored statistics; absent where there are none.
  genetic::Value in_sample = {};
  genetic::Value holdout = {};
};

// A figure that signals are sorted and selected by.
struct SignalFigure {
  std::string_view name;  // "sharpe"
  bool high_is_best;
  std::string_view meaning;
  std::optional<double> (*of)(const ListedSignal&);
  bool is_always_listed = false;  // Otherwise it has a column where signals are sorted by it.

  // "--min-sharpe", "--max-turnover": what leaves out the worse ones.
  [[nodiscard]] std::string bound_option() const;
};

[[nodiscard]] std::span<const SignalFigure> signal_figures();
// Null where there is none of that name.
[[nodiscard]] const SignalFigure* find_signal_figure(std::string_view name);
// "sharpe, holdout, ..."
[[nodiscard]] std::string signal_figure_names();

// Bounds by the name of their figure.
using FigureBounds = std::map<std::string, std::optional<double>, std::less<>>;

// Whether all figures are known and as good as their bounds.
[[nodiscard]] bool is_within(const ListedSignal& signal, const FigureBounds& bounds);

// The best first; those that do not have the figure last. Of equal ones the earlier first.
void sort_by(const SignalFigure& figure, std::vector<ListedSignal>& signals);

}  // namespace varnholt::app
