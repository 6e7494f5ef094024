// The options that say how a price file is written, of every command that reads one.
#pragma once

#include "apps/genetic_search/option_set.hpp"
#include "hosts/embedded/market/price_format.hpp"

namespace varnholt::app {

void add_price_options(Options& options, embedded::PriceFormat& format);

}  // namespace varnholt::app
