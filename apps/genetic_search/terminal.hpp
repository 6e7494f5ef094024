// The terminal, and the standard descriptors.
#pragma once

#include <cstddef>

namespace varnholt::app {

inline constexpr std::size_t kUsualWidth = 80;

// Whether the descriptor is a terminal on which a line can be drawn anew.
[[nodiscard]] bool is_live_terminal(int descriptor);

// The columns of the terminal now (it may be resized meanwhile), or kUsualWidth where it is
// unknown.
[[nodiscard]] std::size_t terminal_width(int descriptor);

// Puts something harmless in the place of each standard descriptor that is closed. Otherwise the
// next file that is opened, the store for one, would take its number and receive the program's
// output. A closed output still refuses what is written to it.
void fill_standard_descriptors();

}  // namespace varnholt::app
