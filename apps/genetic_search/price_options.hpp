// The options that say how a price file is written, of every command that reads one.
#pragma once

#include <optional>

#include "apps/genetic_search/option_set.hpp"
#include "hosts/embedded/market/price_format.hpp"
#include "hosts/embedded/market/price_source.hpp"

namespace varnholt::app {

// "--prices" of commands that have other arguments: what is needed, and what is that of a run where
// it is not given.
void add_needed_prices(Options& options, embedded::PriceSource& prices);
void add_run_prices(Options& options, std::optional<embedded::PriceSource>& prices);

void add_price_options(Options& options, embedded::PriceFormat& format);

}  // namespace varnholt::app
