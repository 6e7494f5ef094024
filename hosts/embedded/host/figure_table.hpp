// The figures of a signal by their names: as they are stored, and in the groups in which people are
// told of them.
#pragma once

#include <span>
#include <string_view>

#include "hosts/embedded/backtest/sample_figures.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// One entry of the mapping below that is one number.
struct FigureName {
  std::string_view name;
  std::string_view unit;  // For a table.
};

struct FigureGroup {
  std::string_view heading;
  std::span<const FigureName> figures;
};

// Each figure once, what is asked for most first.
[[nodiscard]] std::span<const FigureGroup> figure_groups();

// The entries of the mapping that are lists: one number a lag from 1 on, and a mapping a year.
inline constexpr std::string_view kByLag = "information_coefficient_by_lag";
inline constexpr std::string_view kByYear = "by_year";

// Every figure under its name, the statistics of statistics_mapping() among them, and the two
// lists. What is not defined for the days is absent.
[[nodiscard]] genetic::Mapping figures_mapping(const SampleFigures& figures);

}  // namespace varnholt::embedded
