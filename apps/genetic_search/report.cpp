#include "apps/genetic_search/report.hpp"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "apps/genetic_search/failure_counts.hpp"
#include "apps/genetic_search/luck_text.hpp"
#include "apps/genetic_search/pool_report.hpp"
#include "apps/genetic_search/repair_report.hpp"
#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app {
namespace {

using embedded::BacktestStatistics;
using embedded::CandidateRecorded;
using embedded::SearchOptions;
using embedded::SearchSummary;
using embedded::StopCause;
using genetic::Mapping;
using genetic::MappingCursor;
using genetic::Value;

constexpr std::size_t kMetricNameWidth = 28;
constexpr std::size_t kListedReasons = 20;
constexpr std::size_t kReasonWidth = 30;

// --- the metrics record ---

std::string value_text(const Value& value) {
  if (value.is_absent()) return "-";
  if (value.is_real()) return fmt::format("{:.6g}", value.real());
  if (!value.is_mapping()) return on_one_line(genetic::str(value));
  std::string text;
  MappingCursor cursor(value.mapping());
  while (const auto entry = cursor.next()) {
    text += fmt::format("{}{}={}", text.empty() ? "" : ", ", genetic::str(entry->key),
                        value_text(entry->value));
  }
  return text;
}

// --- the table of signals ---

SignalRow signal_row(const CandidateRecorded& signal) {
  SignalRow row{{signal.eval_id, "-", "-", "-", "-", "-", "-"}, signal.expression};
  if (signal.statistics) {
    const BacktestStatistics& statistics = *signal.statistics;
    row.cells = {signal.eval_id,
                 two_digits(statistics.sharpe),
                 two_digits(statistics.gross_returns_sharpe),
                 fmt::format("{:.1f}", 100.0 * statistics.annualized_returns),
                 fmt::format("{:.3f}", statistics.turnover),
                 fmt::format("{:.1f}", 100.0 * statistics.drawdown),
                 two_digits(statistics.quality_score)};
  }
  return row;
}

// --- the end in words ---

constexpr const char* kOtherPool = "begin another signal pool with --pool NAME, or ";

// What lets more signals through a gate of the pool.
std::string pool_remedy(const std::string& reason, const embedded::PoolSettings& pool) {
  namespace reasons = genetic::reasons;
  if (reason == reasons::kCorrelationExceeded.view()) {
    return fmt::format("{}raise pool.correlation_max in --config above {}", kOtherPool,
                       pool.correlation_max);
  }
  if (reason == reasons::kPnlMiBelowThreshold.view()) {
    return fmt::format("{}lower pool.novelty_min in --config below {}", kOtherPool,
                       pool.novelty_min);
  }
  if (reason == embedded::kDeflatedSharpeBelowMin) {
    return fmt::format("lower pool.deflated_sharpe_min in --config below {}",
                       pool.deflated_sharpe_min);
  }
  return {};
}

std::string terminal_reason(const SearchSummary& summary) {
  if (!summary.metrics.is_mapping()) return {};
  const Value reason = summary.metrics.mapping().get(genetic::keys::kTerminalReason);
  return reason.is_absent() ? std::string() : on_one_line(genetic::str(reason));
}

// Of the gate that the days make; the others are what the options say.
std::string gate_of_days_text(const embedded::SearchStarted& started, Width width) {
  if (!started.sharpe_gate_is_of_days || !started.gates.min_sharpe) return {};
  return entry_text("gate    ",
                    fmt::format("least Sharpe ratio {:.2f}, {:g} standard errors of one over the "
                                "days in sample; another with --min-sharpe",
                                *started.gates.min_sharpe, embedded::kLeastSharpeInErrors),
                    width);
}

std::string neutral_text(const embedded::BookRules& rules) {
  if (rules.neutralize == embedded::kNeutralizeNone) return "not neutralized";
  if (rules.neutralize == embedded::kNeutralizeMarket) return "neutralized across the market";
  return fmt::format("neutralized within each {}", on_one_line(rules.neutralize));
}

}  // namespace

std::string book_text(const embedded::BookRules& rules, bool periods_are_inferred) {
  const std::string traded = rules.delay_days == 0
                                 ? std::string("traded at the close of the signal")
                                 : fmt::format("traded {} after the close of the signal",
                                               counted(rules.delay_days, "day"));
  return fmt::format(
      "{}, {}, costs {:g} basis points, delisting return {:g}, windows {:g} % known, "
      "{:g} periods a year{}",
      traded, neutral_text(rules), rules.cost_basis_points, rules.delisting_return,
      100.0 * rules.least_known_share, rules.periods_per_year,
      periods_are_inferred ? " as the dates tell" : "");
}

std::string started_text(const embedded::SearchStarted& started, Width width) {
  return entry_text(
             "prices  ",
             fmt::format("{}: {}, {}, {} to {}", on_one_line(started.prices.text()),
                         counted(started.instruments, "instrument"), counted(started.days, "day"),
                         started.first_date, started.last_date),
             width) +
         entry_text(
             "days    ",
             fmt::format("in sample {}, to {}; hold-out {}, from {}{}", started.seen_days,
                         started.last_seen_date, started.holdout_days, started.first_holdout_date,
                         started.split_is_kept ? ", as the signal pool keeps it" : ""),
             width) +
         entry_text("book    ", book_text(started.book, started.periods_are_inferred), width) +
         gate_of_days_text(started, width) +
         entry_text(
             "store   ",
             fmt::format("{}, run {}", on_one_line(started.database.string()), started.run_id),
             width) +
         entry_text("pool    ",
                    fmt::format("\"{}\", market {}, era {}", on_one_line(started.signal_pool_name),
                                started.market_id, started.era_number),
                    width) +
         entry_text("search  ",
                    fmt::format("batches of {}, {}, seed {}", started.batch_size,
                                counted(started.jobs, "job"), started.seed),
                    width) +
         (started.known_structures
              ? entry_text("before  ",
                           fmt::format("{} evaluated on these days before, and not again; {} begin "
                                       "the search",
                                       counted(*started.known_structures, "structure"),
                                       counted(started.earlier_signals, "earlier signal")),
                           width)
              : std::string()) +
         (started.instruments == 1
              ? entry_text("note    ",
                           "there is one instrument: fresh expressions have no functions across "
                           "instruments",
                           width)
              : std::string()) +
         "\n";
}

std::string measuring_text(const embedded::PoolMeasuring& measuring) {
  return fmt::format("measuring the signals of the pool on these prices: {}/{}", measuring.done,
                     measuring.members);
}

std::string measured_text(const embedded::PoolMeasuring& measuring, Width width) {
  std::string told =
      fmt::format("{} of the signal pool {} from other prices or rules: {} measured anew on these",
                  counted(measuring.members, "signal"), measuring.members == 1 ? "is" : "are",
                  measuring.done - measuring.failed);
  if (measuring.failed > 0) told += fmt::format(", {} cannot be", measuring.failed);
  if (measuring.done < measuring.members) {
    told += fmt::format(", {} left for the next run", measuring.members - measuring.done);
  }
  return entry_text("", told, width);
}

std::string metrics_text(const Mapping& metrics, Width width) {
  std::string text;
  MappingCursor cursor(metrics);
  while (const auto entry = cursor.next()) {
    const std::string name = padded(genetic::str(entry->key), kMetricNameWidth, Align::Left);
    text += entry_text("  " + name, value_text(entry->value), width);
  }
  return text;
}

std::string best_signals_text(const std::vector<CandidateRecorded>& best, Width width) {
  const std::vector<TableColumn> columns = {{"id"},       {"sharpe"},     {"gross"},  {"return %"},
                                            {"turnover"}, {"drawdown %"}, {"quality"}};
  std::vector<SignalRow> rows;
  rows.reserve(best.size());
  for (const CandidateRecorded& signal : best)
    rows.push_back(signal_row(signal));
  return signal_table_text(columns, rows, width);
}

std::string remedy_for(const std::string& reason, const SearchOptions& options) {
  for (const embedded::Gate& gate : embedded::gate_table()) {
    if (gate.reason.view() != reason) continue;
    return gate.remedy(gate.threshold(options.config.gates, options.config.limits));
  }
  std::string of_pool = pool_remedy(reason, options.config.pool);
  if (!of_pool.empty()) return of_pool;
  if (reason == "worker_timeout") {
    return fmt::format("raise --timeout above {}", options.timeout_seconds);
  }
  if (reason == "worker_failed" && options.worker_memory_limit_bytes) {
    return "raise --worker-memory, where memory is what they lack";
  }
  return {};
}

std::string nothing_passed_text(const embedded::SearchProgress& progress,
                                const SearchOptions& options) {
  if (progress.candidates == 0) return "No candidate was evaluated.\n";
  std::string text =
      fmt::format("No signal passed. Why {} failed, and what lets more of them through:\n",
                  counted(progress.candidates, "candidate"));
  const std::vector<FailureCount> failures = most_frequent_first(progress.failures);
  for (std::size_t i = 0; i < std::min(failures.size(), kListedReasons); ++i) {
    const auto& [reason, count] = failures[i];
    const std::string remedy = remedy_for(reason, options);
    text += fmt::format("{:>8}  {}\n", count,
                        remedy.empty() ? on_one_line(reason)
                                       : padded(reason, kReasonWidth, Align::Left) + "  " + remedy);
  }
  if (progress.nearest_misses.empty()) return text;
  text += "How near those that failed a gate came to it:\n";
  for (const auto& [reason, miss] : progress.nearest_misses) {
    text += fmt::format("          {}  {:.4g} where {:.4g} is the limit ({})\n",
                        padded(reason, kReasonWidth, Align::Left), miss.actual, miss.threshold,
                        miss.eval_id);
  }
  return text;
}

std::string end_in_words(const SearchSummary& summary, const SearchOptions& options) {
  switch (summary.stop_cause) {
    case StopCause::Generations:
      return fmt::format("the limit of {} was reached",
                         counted(options.generations.value_or(0), "generation"));
    case StopCause::Candidates:
      return fmt::format("the limit of {} was reached",
                         counted(options.candidates.value_or(0), "candidate"));
    case StopCause::Seconds:
      return fmt::format("the limit of {} seconds was reached", options.seconds.value_or(0.0));
    case StopCause::Signal:
      return "it was stopped by a signal";
    case StopCause::None:
      break;
  }
  const std::string reason = terminal_reason(summary);
  if (reason == genetic::reasons::kDuplicate.view()) {
    return "every candidate of a whole batch had been seen before; for more of them raise "
           "--max-depth, --max-nodes or --max-window";
  }
  if (reason.empty()) return "the search gave no reason";
  return fmt::format("the search gave the reason {}", reason);
}

std::string summary_text(const SearchSummary& summary, const SearchOptions& options,
                         const embedded::SearchStarted& started, Width width) {
  std::string text;
  if (summary.metrics.is_mapping()) {
    text += "Metrics\n" + metrics_text(summary.metrics.mapping(), width) + "\n";
  }
  if (summary.progress.passing == 0) {
    text += nothing_passed_text(summary.progress, options) + "\n";
  } else if (!summary.best.empty()) {
    text += fmt::format("Best in sample ({} of {} that passed)\n", summary.best.size(),
                        summary.progress.passing);
    text += best_signals_text(summary.best, width) + "\n";
  }
  const std::string repairs = repairs_text(summary.progress);
  if (!repairs.empty()) text += repairs + "\n";
  text += pool_text(summary, started, width) + "\n";
  const std::string luck = luck_text(summary.luck, width);
  if (!luck.empty()) text += luck + "\n";
  if (started.known_structures) {
    text += entry_text("",
                       fmt::format("Of the structures that were evaluated before {} came up again "
                                   "and were left out.",
                                   summary.left_out),
                       width);
  }
  if (summary.completed_holdouts > 0) {
    text += entry_text("",
                       fmt::format("The hold-out figures of {} of interrupted runs were made.",
                                   counted(summary.completed_holdouts, "signal")),
                       width);
  }
  text += entry_text("",
                     fmt::format("Everything is stored in {}, run {}.",
                                 on_one_line(options.database.string()), summary.run_id),
                     width);
  text += entry_text("",
                     fmt::format("The run ended after {} and {:.1f} seconds: {}.",
                                 counted(summary.progress.generation, "generation"),
                                 summary.progress.elapsed_seconds, end_in_words(summary, options)),
                     width);
  return text;
}

}  // namespace varnholt::app
