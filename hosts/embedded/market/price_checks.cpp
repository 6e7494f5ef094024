#include "hosts/embedded/market/price_checks.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>

#include <fmt/format.h>

#include "hosts/embedded/market/price_report.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kPerCent = 100.0;

using Days = std::vector<Eigen::Index>;

Date date_of(const MarketData& data, Eigen::Index day) {
  return data.dates[static_cast<std::size_t>(day)];
}

const std::string& symbol_of(const MarketData& data, Eigen::Index instrument) {
  return data.symbols[static_cast<std::size_t>(instrument)];
}

// The days on which the instrument has a close.
Days days_of(const MarketData& data, Eigen::Index instrument) {
  Days days;
  for (Eigen::Index day = 0; day < data.day_count(); ++day) {
    if (!std::isnan(data.close(day, instrument))) days.push_back(day);
  }
  return days;
}

std::string counted_days(std::size_t count) {
  return fmt::format("{} day{}", count, count == 1 ? "" : "s");
}

std::vector<PriceFinding> find_future_dates(const MarketData& data, Date today) {
  // Where the day begins first it is a day later than here.
  const auto first =
      std::upper_bound(data.dates.begin(), data.dates.end(), today + std::chrono::days{1});
  if (first == data.dates.end()) return {};
  const auto count = static_cast<std::size_t>(data.dates.end() - first);
  return {{"", *first, data.dates.back(), static_cast<double>(count),
           counted_days(count) + " in the future"}};
}

std::vector<PriceFinding> find_long_bars(const MarketData& data, Date /*today*/) {
  std::vector<PriceFinding> findings;
  for (Eigen::Index instrument = 0; instrument < data.instrument_count(); ++instrument) {
    const Days days = days_of(data, instrument);
    if (days.size() < 3) continue;  // Fewer say nothing of how long a bar is.
    std::vector<double> lengths;
    for (std::size_t i = 1; i < days.size(); ++i) {
      lengths.push_back(
          static_cast<double>((date_of(data, days[i]) - date_of(data, days[i - 1])).count()));
    }
    const auto middle = lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2);
    std::nth_element(lengths.begin(), middle, lengths.end());
    if (*middle < kLongBarDays) continue;
    findings.push_back({symbol_of(data, instrument), date_of(data, days.front()),
                        date_of(data, days.back()), *middle,
                        fmt::format("one close in {:g} days of the calendar", *middle)});
  }
  return findings;
}

std::vector<PriceFinding> find_stale_closes(const MarketData& data, Date /*today*/) {
  std::vector<PriceFinding> findings;
  for (Eigen::Index instrument = 0; instrument < data.instrument_count(); ++instrument) {
    const Days days = days_of(data, instrument);
    std::size_t begin = 0;
    for (std::size_t i = 1; i <= days.size(); ++i) {
      const double close = data.close(days[begin], instrument);
      if (i < days.size() && data.close(days[i], instrument) == close) continue;
      if (i - begin >= kStaleDays) {
        findings.push_back(
            {symbol_of(data, instrument), date_of(data, days[begin]), date_of(data, days[i - 1]),
             static_cast<double>(i - begin),
             fmt::format("the close is {:g} on {}", close, counted_days(i - begin))});
      }
      begin = i;
    }
  }
  return findings;
}

// What is wrong with single days of an instrument, told once an instrument.
struct WrongDays {
  std::size_t count = 0;
  Eigen::Index first = 0;
  Eigen::Index last = 0;

  void add(Eigen::Index day) {
    if (count++ == 0) first = day;
    last = day;
  }
};

std::vector<PriceFinding> find_zero_volumes(const MarketData& data, Date /*today*/) {
  std::vector<PriceFinding> findings;
  if (!data.volume) return findings;
  for (Eigen::Index instrument = 0; instrument < data.instrument_count(); ++instrument) {
    const Days days = days_of(data, instrument);
    WrongDays wrong;
    for (const Eigen::Index day : days) {
      if ((*data.volume)(day, instrument) == 0.0) wrong.add(day);
    }
    if (wrong.count == 0) continue;
    const double share = static_cast<double>(wrong.count) / static_cast<double>(days.size());
    findings.push_back({symbol_of(data, instrument), date_of(data, wrong.first),
                        date_of(data, wrong.last), static_cast<double>(wrong.count),
                        fmt::format("a close and no volume on {}, {:.1f} % of them",
                                    counted_days(wrong.count), kPerCent * share)});
  }
  return findings;
}

std::vector<PriceFinding> find_closes_outside(const MarketData& data, Date /*today*/) {
  std::vector<PriceFinding> findings;
  for (Eigen::Index instrument = 0; instrument < data.instrument_count(); ++instrument) {
    WrongDays wrong;
    double worst = 0.0;
    for (const Eigen::Index day : days_of(data, instrument)) {
      const double close = data.close(day, instrument);
      // A comparison with what is not known is false.
      double beyond = 0.0;
      if (data.high) beyond = std::max(beyond, close / (*data.high)(day, instrument) - 1.0);
      if (data.low) beyond = std::max(beyond, (*data.low)(day, instrument) / close - 1.0);
      if (!(beyond > kRangeTolerance)) continue;
      wrong.add(day);
      worst = std::max(worst, beyond);
    }
    if (wrong.count == 0) continue;
    findings.push_back({symbol_of(data, instrument), date_of(data, wrong.first),
                        date_of(data, wrong.last), worst,
                        fmt::format("the close is outside low and high on {}, by {:.2f} % at most",
                                    counted_days(wrong.count), kPerCent * worst)});
  }
  return findings;
}

struct SplitRatio {
  int now;
  int before;
};
// Of shares after the split to shares before it, and of a reverse split the other way round.
constexpr auto kSplitRatios = std::to_array<SplitRatio>({{3, 2},
                                                         {2, 1},
                                                         {5, 2},
                                                         {3, 1},
                                                         {4, 1},
                                                         {5, 1},
                                                         {6, 1},
                                                         {7, 1},
                                                         {8, 1},
                                                         {10, 1},
                                                         {15, 1},
                                                         {20, 1},
                                                         {25, 1},
                                                         {30, 1},
                                                         {40, 1},
                                                         {50, 1},
                                                         {100, 1}});

// The ratio whose logarithm is nearest to that of the fall of the price.
SplitRatio nearest_ratio(double fall) {
  const auto distance = [fall](const SplitRatio& ratio) {
    return std::abs(std::log(static_cast<double>(ratio.now) / ratio.before) - fall);
  };
  return *std::min_element(
      kSplitRatios.begin(), kSplitRatios.end(),
      [&](const SplitRatio& a, const SplitRatio& b) { return distance(a) < distance(b); });
}

// Whether the close behind the jump, or that before it, is what the jump leads away from: a wrong
// digit is gone with the next close, after a split the price stays where it is.
bool is_undone(const MarketData& data, const PriceJump& jump) {
  const auto column = std::lower_bound(data.symbols.begin(), data.symbols.end(), jump.symbol);
  const Eigen::Index instrument = column - data.symbols.begin();
  const Days days = days_of(data, instrument);
  const auto at = std::find_if(days.begin(), days.end(), [&](Eigen::Index day) {
    return date_of(data, day) == jump.to_date;
  });
  const auto returns_to = [&](double close, double other) {
    return std::abs(std::log(close / other)) <= kSplitTolerance;
  };
  const auto next = std::next(at);
  if (next != days.end() && returns_to(data.close(*next, instrument), jump.from)) return true;
  return std::distance(days.begin(), at) >= 2 &&
         returns_to(data.close(*std::prev(at, 2), instrument), jump.to);
}

std::vector<PriceFinding> find_splits(const MarketData& data, Date /*today*/) {
  std::vector<PriceFinding> findings;
  for (const PriceJump& jump : make_price_report(data).jumps) {
    const SplitRatio ratio = nearest_ratio(std::abs(jump.log_return));
    const double size = std::log(static_cast<double>(ratio.now) / ratio.before);
    if (std::abs(std::abs(jump.log_return) - size) > kSplitTolerance) continue;
    if (is_undone(data, jump)) continue;
    const bool is_reverse = jump.log_return > 0.0;
    findings.push_back({jump.symbol, jump.from_date, jump.to_date, std::exp(-jump.log_return),
                        fmt::format("{:g} to {:g}, as in a split of {} to {}", jump.from, jump.to,
                                    is_reverse ? ratio.before : ratio.now,
                                    is_reverse ? ratio.now : ratio.before)});
  }
  return findings;
}

std::vector<PriceFinding> find_early_ends(const MarketData& data, Date /*today*/) {
  std::vector<PriceFinding> findings;
  for (Eigen::Index instrument = 0; instrument < data.instrument_count(); ++instrument) {
    const Days days = days_of(data, instrument);
    if (days.empty()) continue;
    const auto missing = static_cast<std::size_t>(data.day_count() - 1 - days.back());
    if (missing < kEarlyEndDays) continue;
    findings.push_back({symbol_of(data, instrument), date_of(data, days.back()), data.dates.back(),
                        static_cast<double>(missing),
                        fmt::format("no close on the last {}", counted_days(missing))});
  }
  return findings;
}

std::vector<PriceFinding> find_few_common_days(const MarketData& data, Date /*today*/) {
  if (data.instrument_count() < 2) return {};
  Eigen::Index common = 0;
  for (Eigen::Index day = 0; day < data.day_count(); ++day) {
    const Eigen::Index known = (data.close.row(day) == data.close.row(day)).count();
    if (2 * known >= data.instrument_count()) ++common;
  }
  const double share = static_cast<double>(common) / static_cast<double>(data.day_count());
  if (share >= kCommonShare) return {};
  return {{"", data.dates.front(), data.dates.back(), share,
           fmt::format("half of the instruments have a close on {:.1f} % of the days",
                       kPerCent * share)}};
}

constexpr auto kChecks = std::to_array<PriceCheck>({
    {"future_dates", "a day later than tomorrow",
     "correct the dates: day and month may be confused, which --date-format settles",
     find_future_dates},
    {"long_bars", "an instrument whose closes are mostly 4 or more days of the calendar apart",
     "give daily prices; where weekly ones are meant, give them for all instruments, and read "
     "every window as weeks",
     find_long_bars},
    {"stale_closes", "the same close on 10 or more days one after the other",
     "leave the cells empty where nothing was traded: a price that does not move is no price",
     find_stale_closes},
    {"zero_volumes", "a day with a close and a volume of 0",
     "leave the cell of the volume empty where it is not known, and that of the close too where "
     "nothing was traded",
     find_zero_volumes},
    {"closes_outside", "a close above the high or below the low by more than 0.01 %",
     "adjust all four prices by the same factor, or none: --columns close=NAME with the adjusted "
     "close scales the others",
     find_closes_outside},
    {"unadjusted_splits",
     "a suspicious jump that stays, within 5 % of a simple ratio such as 2 to 1 or 3 to 2",
     "divide the prices before it by the ratio and multiply the volumes, or give the adjusted "
     "close with --columns close=NAME",
     find_splits},
    {"early_ends", "an instrument whose last close is 5 or more days before the last day",
     "get the missing days; where it was delisted, say what its holders got with "
     "--delisting-return",
     find_early_ends},
    {"few_common_days",
     "fewer than 80 % of the days on which at least half of the instruments have a close",
     "leave out instruments of another calendar, or begin the history later", find_few_common_days},
});

std::string finding_text(const PriceFinding& finding) {
  std::string text = finding.symbol.empty() ? "" : fmt::format("{:<8} ", finding.symbol);
  text += date_text(finding.first);
  if (finding.last != finding.first) text += " to " + date_text(finding.last);
  return text + ": " + finding.text;
}

}  // namespace

std::vector<CheckedPrices> run_price_checks(const MarketData& data, Date today) {
  std::vector<CheckedPrices> checked;
  checked.reserve(kChecks.size());
  for (const PriceCheck& check : kChecks)
    checked.push_back({&check, check.find(data, today)});
  return checked;
}

std::string price_checks_text(const std::vector<CheckedPrices>& checked, std::size_t list_limit) {
  std::string text;
  for (const CheckedPrices& one : checked) {
    if (one.findings.empty()) continue;
    text +=
        fmt::format("{}: {} ({})\n", one.check->name, one.findings.size(), one.check->threshold);
    const std::size_t listed = std::min(list_limit, one.findings.size());
    for (std::size_t i = 0; i < listed; ++i)
      text += fmt::format("  {}\n", finding_text(one.findings[i]));
    if (listed < one.findings.size()) {
      text += fmt::format("  and {} more\n", one.findings.size() - listed);
    }
    text += fmt::format("  remedy: {}\n", one.check->remedy);
  }
  return text;
}

}  // namespace varnholt::embedded
