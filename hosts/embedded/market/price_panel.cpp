#include "hosts/embedded/market/price_panel.hpp"

#include <limits>

namespace varnholt::embedded {

void check_panel_size(const std::string& file, std::size_t days, std::size_t instruments) {
  if (days * instruments <= kMaximumPriceCells) return;
  throw PriceFileError({.file = file},
                       "spans " + std::to_string(days) + " days and " +
                           std::to_string(instruments) + " instruments or more, which is beyond " +
                           std::to_string(kMaximumPriceCells) + " cells",
                       "check that date and symbol are the columns meant, or split the file");
}

Panel empty_panel(std::size_t days, std::size_t instruments) {
  return Panel::Constant(static_cast<Eigen::Index>(days), static_cast<Eigen::Index>(instruments),
                         std::numeric_limits<double>::quiet_NaN());
}

PriceFileError missing_column(const PriceRows& rows, const std::string& name) {
  return {{.file = rows.file(), .line = rows.header_line()},
          "the header has no column \"" + name + "\"",
          "a long file needs date, symbol and close, a wide file date and one column of closes an "
          "instrument, with commas between them"};
}

}  // namespace varnholt::embedded
