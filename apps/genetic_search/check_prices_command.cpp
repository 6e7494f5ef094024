#include "apps/genetic_search/check_prices_command.hpp"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/json_events.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/market/price_checks.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/market/price_report.hpp"
#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"

namespace varnholt::app {
namespace {

using embedded::CheckedPrices;
using embedded::PriceReport;

std::string verdict(const PriceReport& report, const std::vector<CheckedPrices>& checked) {
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
  const bool is_clean = std::all_of(checked.begin(), checked.end(),
                                    [](const CheckedPrices& one) { return one.findings.empty(); });
  return text.empty() && is_clean ? "Nothing looks suspicious.\n" : text;
}

Json date_json(const std::optional<embedded::Date>& date) {
  return date ? Json(embedded::date_text(*date)) : Json(nullptr);
}

Json instruments_json(const PriceReport& report) {
  Json instruments = Json::array();
  for (const embedded::InstrumentSummary& item : report.instruments) {
    instruments.push_back({{"symbol", item.symbol},
                           {"closes", item.close_count},
                           {"first_date", date_json(item.first_close)},
                           {"last_date", date_json(item.last_close)},
                           {"gap_days", item.gap_count}});
  }
  return instruments;
}

Json jumps_json(const PriceReport& report) {
  Json jumps = Json::array();
  for (const embedded::PriceJump& jump : report.jumps) {
    jumps.push_back({{"symbol", jump.symbol},
                     {"first_date", date_json(jump.from_date)},
                     {"last_date", date_json(jump.to_date)},
                     {"from", number_json(jump.from)},
                     {"to", number_json(jump.to)}});
  }
  return jumps;
}

// Every check, also those that found nothing: what was looked for is part of the answer.
Json checks_json(const std::vector<CheckedPrices>& checked) {
  Json checks = Json::array();
  for (const CheckedPrices& one : checked) {
    Json findings = Json::array();
    for (const embedded::PriceFinding& finding : one.findings) {
      findings.push_back({{"symbol", finding.symbol.empty() ? Json(nullptr) : Json(finding.symbol)},
                          {"first_date", date_json(finding.first)},
                          {"last_date", date_json(finding.last)},
                          {"figure", number_json(finding.figure)},
                          {"text", finding.text}});
    }
    checks.push_back({{"name", std::string(one.check->name)},
                      {"threshold", std::string(one.check->threshold)},
                      {"remedy", std::string(one.check->remedy)},
                      {"findings", findings}});
  }
  return checks;
}

}  // namespace

void check_prices_command(const CheckPricesCommand& command, Output& output) {
  const embedded::MarketData data = embedded::read_price_file(command.prices, command.price_format);
  // Columns whose names cannot stand in a formula are told before a run asks for them.
  (void)embedded::make_vocabulary(data, {});
  const PriceReport report = embedded::make_price_report(data);
  const std::vector<CheckedPrices> checked = embedded::run_price_checks(
      data, std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()));
  if (command.json) {
    output.write(json_line({{"prices", command.prices.text()},
                            {"columns", report.columns},
                            {"days", report.day_count},
                            {"first_date", date_json(report.first_date)},
                            {"last_date", date_json(report.last_date)},
                            {"instruments", instruments_json(report)},
                            {"jumps", jumps_json(report)},
                            {"checks", checks_json(checked)}}));
  } else {
    output.write(fmt::format("{}\n", on_one_line(command.prices.text())));
    output.write(embedded::price_report_text(report, command.list_limit));
    output.write(embedded::price_checks_text(checked, command.list_limit));
    output.write(verdict(report, checked));
  }
  output.throw_if_failed();
}

}  // namespace varnholt::app
