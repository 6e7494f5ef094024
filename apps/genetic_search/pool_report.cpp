#include "apps/genetic_search/pool_report.hpp"

#include <algorithm>
#include <cstdint>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/names.hpp"
#include "apps/genetic_search/progress_line.hpp"
#include "apps/genetic_search/signal_table.hpp"

namespace varnholt::app {
namespace {

// There are two.
constexpr std::size_t kListedRefusals = 10;
constexpr std::size_t kListedSignals = 10;

// The signals that are listed: the best in sample, the best first. Of equal ones the earlier.
std::vector<embedded::SubmittedSignal> best_of(std::vector<embedded::SubmittedSignal> signals) {
  std::stable_sort(signals.begin(), signals.end(), [](const auto& left, const auto& right) {
    return left.statistics.in_sample.sharpe > right.statistics.in_sample.sharpe;
  });
  if (signals.size() > kListedSignals) signals.resize(kListedSignals);
  return signals;
}

std::string table_of(const embedded::SearchSummary& summary, Width width) {
  const std::vector<TableColumn> columns = {
      {"id"}, {"in sample"}, {"hold-out"}, {"novelty"}, {"correlation"}};
  std::vector<SignalRow> rows;
  for (const embedded::SubmittedSignal& signal : best_of(summary.submitted)) {
    rows.push_back({{signal.eval_id, two_digits(signal.statistics.in_sample.sharpe),
                     signal.has_holdout ? two_digits(signal.statistics.holdout.sharpe) : "-",
                     two_digits(signal.novelty), two_digits(signal.correlation)},
                    signal.expression});
  }
  rows.push_back({{"market", two_digits(summary.market.in_sample.sharpe),
                   two_digits(summary.market.holdout.sharpe), "-", "-"},
                  "the same weight in every instrument, long only"});
  return signal_table_text(columns, rows, width);
}

}  // namespace

std::string sample_days_text(const embedded::SearchStarted& started) {
  return fmt::format(
      "In sample are the {} days from {} to {}, which the search saw; hold-out are the {} days "
      "from {} to {}, which it never saw.",
      started.seen_days, started.first_date, started.last_seen_date, started.holdout_days,
      started.first_holdout_date, started.last_date);
}

std::string submission_counts_text(const embedded::SubmissionCounts& counts) {
  std::int64_t refused = 0;
  for (const auto& [reason, count] : counts.refused)
    refused += count;
  std::string text = fmt::format("{} submitted, {} refused", counts.submitted, refused);
  if (refused > 0) text += fmt::format(" ({})", failures_text(counts.refused, kListedRefusals));
  text += fmt::format(", {} waiting", counts.waiting);
  if (counts.replaced > 0) {
    text += fmt::format("; {} left the pool for a better one", counted(counts.replaced, "signal"));
  }
  return text;
}

std::string pool_text(const embedded::SearchSummary& summary,
                      const embedded::SearchStarted& started, Width width) {
  const std::size_t count = summary.submitted.size();
  const std::string pool = on_one_line(started.signal_pool_name);
  const std::string heading =
      count == 0 ? fmt::format(
                       "No signal was submitted to the signal pool \"{}\". The market to beat, by "
                       "Sharpe ratio",
                       pool)
                 : fmt::format(
                       "Submitted to the signal pool \"{}\": {}, beside the market, by Sharpe "
                       "ratio",
                       pool, counted(static_cast<std::int64_t>(count), "signal"));
  std::string text = entry_text("", heading, width);
  text += table_of(summary, width);
  if (count > kListedSignals) {
    text += entry_text(
        "",
        fmt::format("These are the best {} in sample. All of them: {} {} {} --run {} --sort sharpe",
                    kListedSignals, kProgramName, kSignalsName,
                    on_one_line(started.database.string()), started.run_id),
        width);
  }
  text += entry_text("", sample_days_text(started), width);
  std::string counts = "Submissions: " + submission_counts_text(summary.submissions);
  // A run settles what one that died has left in the queue.
  if (summary.submissions.of_earlier_runs > 0) {
    counts += ", left-overs of earlier runs among them";
  }
  text += entry_text("", counts + ".", width);
  if (count > 0) {
    text += entry_text("",
                       fmt::format("More of one: {} {} {} {}", kProgramName, kShowName,
                                   on_one_line(started.database.string()),
                                   best_of(summary.submitted).front().eval_id),
                       width);
  }
  return text;
}

}  // namespace varnholt::app
