#include "apps/genetic_search/repair_report.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {
namespace {

using embedded::RepairCount;
using Row = std::pair<std::string, RepairCount>;

constexpr const char* kHeading = "plan";
constexpr const char* kAll = "all";

std::string row_text(std::size_t width, const Row& row) {
  const RepairCount& count = row.second;
  const double rate = count.tried == 0 ? 0.0
                                       : 100.0 * static_cast<double>(count.rescued) /
                                             static_cast<double>(count.tried);
  return fmt::format("{}  {:>5}  {:>7}  {:>6.1f}  {:>9}\n",
                     padded(on_one_line(row.first), width, Align::Left), count.tried, count.rescued,
                     rate, count.submitted);
}

}  // namespace

std::string repairs_text(const embedded::SearchProgress& progress) {
  if (progress.repairs.empty()) return {};
  std::vector<Row> rows(progress.repairs.begin(), progress.repairs.end());
  // Plans with as many rescues stay in the order of their names.
  std::stable_sort(rows.begin(), rows.end(), [](const Row& left, const Row& right) {
    return left.second.rescued > right.second.rescued;
  });
  rows.emplace_back(kAll, progress.all_repairs());
  std::size_t width = column_count(kHeading);
  for (const Row& row : rows)
    width = std::max(width, column_count(row.first));
  std::string text =
      "Repairs, and how many of them passed\n" +
      fmt::format("{}  tried  rescued  rate %  submitted\n", padded(kHeading, width, Align::Left));
  for (const Row& row : rows)
    text += row_text(width, row);
  return text;
}

}  // namespace varnholt::app
