// The columns of a long price file that are its owner's own: numbers are features, which formulas
// know by the column's name, and names are groups.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/numbered.hpp"
#include "hosts/embedded/market/price_rows.hpp"

namespace varnholt::embedded {

// Whether an own column may have this name: a small letter, then small letters, digits and
// underscores, at most 60 of all.
[[nodiscard]] bool is_own_name(std::string_view name);

enum class OwnKind : std::uint8_t { Undecided, Number, Group };

// One such column, and what its rows hold. What its owner does not say is decided by the first cell
// that is not missing: one that is written as a number makes it a column of numbers.
class OwnColumn {
 public:
  OwnColumn(std::size_t column, std::string name, OwnKind kind)
      : column_(column), name_(std::move(name)), kind_(kind) {}

  [[nodiscard]] const std::string& name() const { return name_; }
  // Undecided is a column whose cells are all missing.
  [[nodiscard]] OwnKind kind() const { return kind_; }

  // Reads the cell of the row; a mistake is noted.
  void read(PriceRows& rows);
  // Keeps what was read last, as the next row.
  void keep();

  // The rows; can be taken once.
  [[nodiscard]] std::vector<double> take_numbers() { return std::exchange(numbers_, {}); }
  [[nodiscard]] std::vector<int> take_groups() { return std::exchange(groups_, {}); }
  // By number.
  [[nodiscard]] const std::vector<std::string>& group_names() const { return names_.keys(); }

 private:
  void decide(std::string_view cell);

  std::size_t column_;
  std::string name_;
  OwnKind kind_;
  std::size_t rows_ = 0;
  double number_ = 0.0;
  int group_ = kNoGroup;
  std::vector<double> numbers_;
  std::vector<int> groups_;
  Numbered<std::string> names_;
};

// The columns that are not known, but for those that usually stand beside prices, and those that
// the format names. PriceFileError for a name that a formula cannot hold, that stands for two
// columns, or that may be the misspelt name of a field.
[[nodiscard]] std::vector<OwnColumn> find_own_columns(const PriceRows& rows,
                                                      const std::vector<bool>& is_known);

}  // namespace varnholt::embedded
