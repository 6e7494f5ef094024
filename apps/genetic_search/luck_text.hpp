// What a run found beside what chance would have found, in words.
#pragma once

#include <string>

#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/luck/verdict.hpp"

namespace varnholt::app {

// One sentence with the verdict, one on all submitted signals in sample beside the hold-out, and
// one on overfitting. Empty where nothing was tried. Every line is ended.
[[nodiscard]] std::string luck_text(const embedded::RunLuck& luck, Width width);

}  // namespace varnholt::app
