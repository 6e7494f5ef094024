#include "apps/genetic_search/check_prices_command.hpp"

#include <algorithm>
#include <string>

#include <fmt/format.h>

#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/market/price_report.hpp"

namespace varnholt::app {
namespace {

std::string verdict(const embedded::PriceReport& report) {
  const auto empty = std::count_if(report.instruments.begin(), report.instruments.end(),
                                   [](const auto& item) { return !item.first_close; });
  std::string text;
  if (!report.jumps.empty()) {
    text +=
        "Look at the jumps before you search these prices: one split that was not adjusted\n"
        "for, or one wrong digit, can make a signal look good.\n";
  }
  if (empty > 0) {
    text += fmt::format("{} instrument{} without a close can earn nothing; leave {} out.\n", empty,
                        empty == 1 ? "" : "s", empty == 1 ? "it" : "them");
  }
  return text.empty() ? "Nothing looks suspicious.\n" : text;
}

}  // namespace

void check_prices_command(const CheckPricesCommand& command, Output& output) {
  const embedded::PriceReport report =
      embedded::make_price_report(embedded::read_price_file(command.prices, command.price_format));
  output.write(fmt::format("{}\n", on_one_line(command.prices.string())));
  output.write(embedded::price_report_text(report, command.list_limit));
  output.write(verdict(report));
  output.throw_if_failed();
}

}  // namespace varnholt::app
