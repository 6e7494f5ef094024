#include "hosts/embedded/market/price_report.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <locale>
#include <sstream>

namespace varnholt::embedded {
namespace {

// The median: the mean of the two middle values where there is an even number of them, and 0.0
// where there is none.
double median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2.0;
}

double jump_threshold(const std::vector<double>& log_returns) {
  const double centre = median(log_returns);
  std::vector<double> deviations;
  deviations.reserve(log_returns.size());
  for (const double value : log_returns)
    deviations.push_back(std::abs(value - centre));
  return std::max(kJumpFloor, kJumpDeviations * median(std::move(deviations)));
}

// The rows in which the instrument has a close.
std::vector<std::size_t> known_days(const MarketData& data, Eigen::Index instrument) {
  std::vector<std::size_t> days;
  for (Eigen::Index day = 0; day < data.day_count(); ++day) {
    if (!std::isnan(data.close(day, instrument))) days.push_back(static_cast<std::size_t>(day));
  }
  return days;
}

void add_gaps(const MarketData& data, const std::vector<std::size_t>& days,
              InstrumentSummary& summary, std::vector<PriceGap>& gaps) {
  for (std::size_t i = 1; i < days.size(); ++i) {
    const std::size_t missing = days[i] - days[i - 1] - 1;
    if (missing == 0) continue;
    gaps.push_back({summary.symbol, data.dates[days[i - 1] + 1], data.dates[days[i] - 1], missing});
    summary.gap_count += missing;
  }
}

void add_jumps(const MarketData& data, Eigen::Index instrument,
               const std::vector<std::size_t>& days, InstrumentSummary& summary,
               std::vector<PriceJump>& jumps) {
  const auto close = [&](std::size_t day) {
    return data.close(static_cast<Eigen::Index>(day), instrument);
  };
  std::vector<double> log_returns;
  for (std::size_t i = 1; i < days.size(); ++i) {
    log_returns.push_back(std::log(close(days[i]) / close(days[i - 1])));
  }
  summary.jump_threshold = jump_threshold(log_returns);
  for (std::size_t i = 1; i < days.size(); ++i) {
    if (std::abs(log_returns[i - 1]) <= summary.jump_threshold) continue;
    jumps.push_back({summary.symbol, data.dates[days[i - 1]], data.dates[days[i]],
                     close(days[i - 1]), close(days[i]), log_returns[i - 1]});
  }
}

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void write_instruments(std::ostream& out, const PriceReport& report, std::size_t list_limit) {
  out << "instruments: " << report.instruments.size() << '\n';
  const std::size_t listed = std::min(list_limit, report.instruments.size());
  for (std::size_t i = 0; i < listed; ++i) {
    const InstrumentSummary& item = report.instruments[i];
    out << "  " << std::left << std::setw(8) << item.symbol << ' ';
    if (!item.first_close) {
      out << "no close at all\n";
      continue;
    }
    out << counted(item.close_count, "close") << ", " << date_text(*item.first_close) << " to "
        << date_text(*item.last_close);
    if (item.late_start_days > 0) {
      out << ", starts " << counted(item.late_start_days, "day") << " late";
    }
    if (item.early_end_days > 0) {
      out << ", ends " << counted(item.early_end_days, "day") << " early";
    }
    if (item.gap_count > 0) out << ", " << counted(item.gap_count, "day") << " missing inside";
    out << '\n';
  }
  if (listed < report.instruments.size()) {
    out << "  and " << report.instruments.size() - listed << " more\n";
  }
}

void write_gaps(std::ostream& out, const PriceReport& report, std::size_t list_limit) {
  out << "gaps: " << report.gaps.size() << '\n';
  const std::size_t listed = std::min(list_limit, report.gaps.size());
  for (std::size_t i = 0; i < listed; ++i) {
    const PriceGap& gap = report.gaps[i];
    out << "  " << std::left << std::setw(8) << gap.symbol << ' ' << date_text(gap.first);
    if (gap.days > 1) out << " to " << date_text(gap.last) << ", " << counted(gap.days, "day");
    out << '\n';
  }
  if (listed < report.gaps.size()) out << "  and " << report.gaps.size() - listed << " more\n";
}

void write_jumps(std::ostream& out, const PriceReport& report, std::size_t list_limit) {
  out << "suspicious jumps: " << report.jumps.size() << '\n';
  const std::size_t listed = std::min(list_limit, report.jumps.size());
  for (std::size_t i = 0; i < listed; ++i) {
    const PriceJump& jump = report.jumps[i];
    out << "  " << std::left << std::setw(8) << jump.symbol << ' ' << date_text(jump.to_date)
        << ": " << jump.from << " (" << date_text(jump.from_date) << ") to " << jump.to << ", "
        << std::showpos << std::fixed << std::setprecision(1) << std::expm1(jump.log_return) * 100.0
        << std::noshowpos << std::defaultfloat << std::setprecision(6) << " %\n";
  }
  if (listed < report.jumps.size()) out << "  and " << report.jumps.size() - listed << " more\n";
}

}  // namespace

PriceReport make_price_report(const MarketData& data) {
  PriceReport report;
  if (data.open) report.columns.emplace_back("open");
  if (data.high) report.columns.emplace_back("high");
  if (data.low) report.columns.emplace_back("low");
  report.columns.emplace_back("close");
  if (data.volume) report.columns.emplace_back("volume");
  report.day_count = data.dates.size();
  if (!data.dates.empty()) {
    report.first_date = data.dates.front();
    report.last_date = data.dates.back();
  }
  for (Eigen::Index instrument = 0; instrument < data.instrument_count(); ++instrument) {
    InstrumentSummary summary;
    summary.symbol = data.symbols[static_cast<std::size_t>(instrument)];
    const std::vector<std::size_t> days = known_days(data, instrument);
    summary.close_count = days.size();
    if (!days.empty()) {
      summary.first_close = data.dates[days.front()];
      summary.last_close = data.dates[days.back()];
      summary.late_start_days = days.front();
      summary.early_end_days = data.dates.size() - 1 - days.back();
    }
    add_gaps(data, days, summary, report.gaps);
    add_jumps(data, instrument, days, summary, report.jumps);
    report.instruments.push_back(std::move(summary));
  }
  return report;
}

std::string price_report_text(const PriceReport& report, std::size_t list_limit) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << "columns: ";
  for (std::size_t i = 0; i < report.columns.size(); ++i) {
    out << (i == 0 ? "" : ", ") << report.columns[i];
  }
  out << "\ndates: " << report.day_count;
  if (report.first_date) {
    out << ", " << date_text(*report.first_date) << " to " << date_text(*report.last_date);
  }
  out << '\n';
  write_instruments(out, report, list_limit);
  write_gaps(out, report, list_limit);
  write_jumps(out, report, list_limit);
  return out.str();
}

}  // namespace varnholt::embedded
