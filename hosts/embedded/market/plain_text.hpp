// The bytes of a price file as text: unpacked, and in UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// The largest price file that is read: 4 GiB, more than the cells that a search can hold.
inline constexpr std::size_t kLargestPriceBytes = std::size_t{4} << 30U;

// What gzip packed is unpacked, and UTF-16 with a byte order mark turned into UTF-8; any other text
// stands for itself. PriceFileError for a file that is damaged or that is no
// text, which is told by what it is: an archive, a workbook, a page of the web.
class PlainText {
 public:
  // `check` is called several times a second.
  PlainText(std::string bytes, const std::string& file, const InterruptCheck& check);

  [[nodiscard]] std::string_view text() const noexcept { return text_; }

  // Gives back the memory of what was read: the panels grow while the text goes. Nobody may look at
  // these first bytes again.
  void give_back(std::size_t bytes);

 private:
  std::string text_;
  std::size_t given_back_ = 0;
};

}  // namespace varnholt::embedded
