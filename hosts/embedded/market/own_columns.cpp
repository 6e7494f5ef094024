#include "hosts/embedded/market/own_columns.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include <fmt/format.h>

#include "hosts/embedded/market/price_cells.hpp"

namespace varnholt::embedded {
namespace {

// Columns of names by which instruments are usually grouped, whatever their cells look like.
constexpr auto kGroups =
    std::to_array<std::string_view>({"sector", "industry", "subindustry", "country"});

// The fields that a column may be meant for whose name is nearly theirs.
constexpr auto kFields =
    std::to_array<std::string_view>({"date", "symbol", "open", "high", "close", "volume"});

constexpr std::size_t kLongestName = 60;

bool is_small_letter(char c) {
  return c >= 'a' && c <= 'z';
}

bool is_written_as_a_number(std::string_view cell) {
  return cell.find_first_of("0123456789") != std::string_view::npos &&
         cell.find_first_not_of("0123456789.,+-eE") == std::string_view::npos;
}

// Whether one letter more, less or other makes the same of both, or two letters that are swapped.
bool are_one_slip_apart(std::string_view left, std::string_view right) {
  const auto [l, r] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
  left.remove_prefix(static_cast<std::size_t>(l - left.begin()));
  right.remove_prefix(static_cast<std::size_t>(r - right.begin()));
  while (!left.empty() && !right.empty() && left.back() == right.back()) {
    left.remove_suffix(1);
    right.remove_suffix(1);
  }
  if (left.size() <= 1 && right.size() <= 1) return true;
  return left.size() == 2 && right.size() == 2 && left[0] == right[1] && left[1] == right[0];
}

std::string options_for(std::string_view name, const std::string& header) {
  return fmt::format("--columns {}{}={} for numbers, {}{}={} for names, or skip={} to leave it out",
                     kOwnFeature, name, header, kOwnGroup, name, header, header);
}

void refuse_misspelt_field(const PriceRows& rows, std::size_t column, const std::string& name) {
  for (const std::string_view field : kFields) {
    if (!are_one_slip_apart(name, field)) continue;
    const std::string& header = rows.header()[column];
    throw PriceFileError(
        rows.header_place(column), fmt::format("may be a misspelt \"{}\"", field),
        fmt::format("say what it is with --columns {}={}, or {}", field, header,
                    options_for(name, header).substr(std::string_view("--columns ").size())));
  }
}

std::string name_of_column(const PriceRows& rows, std::size_t column) {
  const std::string& header = rows.header()[column];
  std::string name = column_key(header);
  if (!is_own_name(name)) {
    throw PriceFileError(rows.header_place(column),
                         "is not a column of prices, and no name that a formula can hold",
                         "give it one of small letters, digits and underscores, with " +
                             options_for("NAME", header));
  }
  return name;
}

}  // namespace

bool is_own_name(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && is_small_letter(name.front()) &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return is_small_letter(c) || (c >= '0' && c <= '9') || c == '_';
         });
}

void OwnColumn::decide(std::string_view cell) {
  if (is_missing(cell)) return;
  kind_ = is_written_as_a_number(cell) ? OwnKind::Number : OwnKind::Group;
  // All rows so far are missing.
  if (kind_ == OwnKind::Number) {
    numbers_.assign(rows_, std::numeric_limits<double>::quiet_NaN());
  } else {
    groups_.assign(rows_, kNoGroup);
  }
}

void OwnColumn::read(PriceRows& rows) {
  const std::string_view cell = rows.cell(column_);
  if (kind_ == OwnKind::Undecided) decide(cell);
  if (kind_ == OwnKind::Number) {
    number_ =
        rows.read(column_, read_own_number_cell).value_or(std::numeric_limits<double>::quiet_NaN());
  } else if (kind_ == OwnKind::Group) {
    // What is missing is no group.
    group_ = is_missing(cell) ? kNoGroup : static_cast<int>(*names_.number(cell, [&] {
      return std::optional(std::string(cell));
    }));
  }
}

void OwnColumn::keep() {
  ++rows_;
  if (kind_ == OwnKind::Number) numbers_.push_back(number_);
  if (kind_ == OwnKind::Group) groups_.push_back(group_);
}

std::vector<OwnColumn> find_own_columns(const PriceRows& rows, const std::vector<bool>& is_known) {
  std::vector<OwnColumn> columns;
  std::vector<bool> is_taken = is_known;
  const auto add = [&](std::size_t column, const std::string& name, OwnKind kind) {
    const bool is_repeated =
        std::any_of(columns.begin(), columns.end(),
                    [&name](const OwnColumn& other) { return other.name() == name; });
    if (is_repeated) {
      throw PriceFileError(
          rows.header_place(column), "is called " + name + ", as another column is",
          "give one of them another name with " + options_for("NAME", rows.header()[column]));
    }
    columns.emplace_back(column, name, kind);
    is_taken[column] = true;
  };
  for (const auto& [key, header] : rows.format().columns) {
    if (key.starts_with(kLeftOut)) is_taken[rows.find(key)] = true;
    if (key.starts_with(kOwnFeature)) {
      add(rows.find(key), key.substr(kOwnFeature.size()), OwnKind::Number);
    }
    if (key.starts_with(kOwnGroup)) {
      add(rows.find(key), key.substr(kOwnGroup.size()), OwnKind::Group);
    }
  }
  for (const std::string_view group : kGroups) {
    const std::size_t column = rows.find(group);
    if (column == PriceRows::kNoColumn || is_taken[column]) continue;
    add(column, std::string(group), OwnKind::Group);
  }
  for (std::size_t column = 0; column < is_taken.size(); ++column) {
    if (is_taken[column] || is_beside_prices(column_key(rows.header()[column]))) continue;
    const std::string name = name_of_column(rows, column);
    refuse_misspelt_field(rows, column, name);
    add(column, name, OwnKind::Undecided);
  }
  return columns;
}

}  // namespace varnholt::embedded
