// "genetic-search check-prices": what a price file holds.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/output.hpp"

namespace varnholt::app {

// Writes the report of price_report.hpp and what to make of it. Throws PriceFileError for a file
// that cannot be read, and OutputError.
void check_prices_command(const CheckPricesCommand& command, Output& output);

}  // namespace varnholt::app
