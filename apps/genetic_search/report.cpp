#include "apps/genetic_search/report.hpp"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "apps/genetic_search/failure_counts.hpp"
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

// Below this an expression beside the figures would be a narrow column of fragments.
constexpr std::size_t kNarrowestExpression = 30;
constexpr std::size_t kExpressionIndent = 6;
// However narrow a terminal is.
constexpr std::size_t kNarrowestColumn = 10;
constexpr std::size_t kMetricNameWidth = 28;
constexpr std::size_t kListedReasons = 20;
constexpr std::size_t kReasonWidth = 30;

// The lines of a text that begins in column `indent` of a terminal; one line without a terminal.
std::vector<std::string> wrapped_beside(const std::string& text, Width width, std::size_t indent) {
  if (!width) return {text};
  return wrap_text(text, std::max(*width, indent + kNarrowestColumn) - indent);
}

// A name and a text beside it, whose further lines begin below its first.
std::string entry_text(const std::string& name, const std::string& text, Width width) {
  const std::size_t indent = column_count(name);
  std::string entry = name;
  for (const std::string& line : wrapped_beside(text, width, indent)) {
    if (entry.size() > name.size()) entry += std::string(indent, ' ');
    entry += line + "\n";
  }
  return entry;
}

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

struct Column {
  const char* heading;
  std::size_t width;
};

constexpr std::array<Column, 8> kColumns = {{{"rank", 4},
                                             {"id", 7},
                                             {"sharpe", 7},
                                             {"gross", 7},
                                             {"return %", 9},
                                             {"turnover", 9},
                                             {"drawdown %", 11},
                                             {"quality", 8}}};

std::size_t figures_width() {
  std::size_t width = 0;
  for (const Column& column : kColumns)
    width += column.width;
  return width;
}

std::string figures_row(const std::array<std::string, kColumns.size()>& cells) {
  std::string row;
  for (std::size_t i = 0; i < kColumns.size(); ++i)
    row += padded(cells[i], kColumns[i].width, Align::Right);
  return row;
}

std::string headings_row() {
  std::array<std::string, kColumns.size()> cells;
  for (std::size_t i = 0; i < kColumns.size(); ++i)
    cells[i] = kColumns[i].heading;
  return figures_row(cells);
}

std::string signal_row(std::size_t rank, const CandidateRecorded& signal) {
  std::array<std::string, kColumns.size()> cells;
  cells.fill("-");
  cells[0] = std::to_string(rank);
  cells[1] = std::to_string(signal.evaluation_id);
  if (signal.statistics) {
    const BacktestStatistics& statistics = *signal.statistics;
    cells[2] = fmt::format("{:.2f}", statistics.sharpe);
    cells[3] = fmt::format("{:.2f}", statistics.gross_returns_sharpe);
    cells[4] = fmt::format("{:.1f}", 100.0 * statistics.annualized_returns);
    cells[5] = fmt::format("{:.3f}", statistics.turnover);
    cells[6] = fmt::format("{:.1f}", 100.0 * statistics.drawdown);
    cells[7] = fmt::format("{:.2f}", statistics.quality_score);
  }
  return figures_row(cells);
}

// --- the end in words ---

// A gate with the option that relaxes it.
struct GateOption {
  genetic::Key reason;
  const char* option;
  double threshold;
  bool is_minimum;
};

std::array<GateOption, 6> gate_options(const embedded::GateThresholds& gates) {
  namespace reasons = genetic::reasons;
  return {{{reasons::kAbsWeightSumMeanBelowMin, "--min-gross-exposure",
            gates.min_abs_weight_sum_mean, true},
           {reasons::kTurnoverMax, "--max-turnover", gates.max_turnover, false},
           {reasons::kMaxWeightMax, "--max-weight", gates.max_max_weight, false},
           {reasons::kDeltaExposureMax, "--max-net-exposure", gates.max_delta_exposure, false},
           {reasons::kGrossReturnsSharpeBelowMin, "--min-gross-sharpe",
            gates.min_gross_returns_sharpe, true},
           {reasons::kSharpeMin, "--min-sharpe", gates.min_sharpe, true}}};
}

std::string counted(std::int64_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string terminal_reason(const SearchSummary& summary) {
  if (!summary.metrics.is_mapping()) return {};
  const Value reason = summary.metrics.mapping().get(genetic::keys::kTerminalReason);
  return reason.is_absent() ? std::string() : on_one_line(genetic::str(reason));
}

}  // namespace

std::string started_text(const embedded::SearchStarted& started, Width width) {
  return entry_text(
             "prices  ",
             fmt::format("{}: {}, {}, {} to {}", on_one_line(started.prices.string()),
                         counted(started.instruments, "instrument"), counted(started.days, "day"),
                         started.first_date, started.last_date),
             width) +
         entry_text(
             "store   ",
             fmt::format("{}, run {}", on_one_line(started.database.string()), started.run_id),
             width) +
         entry_text("search  ",
                    fmt::format("batches of {}, {}, seed {}", started.batch_size,
                                counted(started.jobs, "job"), started.seed),
                    width) +
         "\n";
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
  const std::size_t beside = figures_width() + 2;
  const bool is_below = width && *width < beside + kNarrowestExpression;
  std::string text = headings_row() + (is_below ? "\n" : "  expression\n");
  for (std::size_t i = 0; i < best.size(); ++i) {
    const std::string expression = on_one_line(best[i].expression);
    const std::size_t indent = is_below ? kExpressionIndent : beside;
    const std::vector<std::string> lines = wrapped_beside(expression, width, indent);
    text += signal_row(i + 1, best[i]);
    for (std::size_t line = 0; line < lines.size(); ++line) {
      const bool continues_row = line == 0 && !is_below;
      text += continues_row ? "  " : "\n" + std::string(indent, ' ');
      text += lines[line];
    }
    text += "\n";
  }
  return text;
}

std::string mend_for(const std::string& reason, const SearchOptions& options) {
  for (const GateOption& gate : gate_options(options.gates)) {
    if (gate.reason.view() != reason) continue;
    return fmt::format("{} {} {} {}", gate.is_minimum ? "lower" : "raise", gate.option,
                       gate.is_minimum ? "below" : "above", gate.threshold);
  }
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
    const std::string mend = mend_for(reason, options);
    text += fmt::format("{:>8}  {}\n", count,
                        mend.empty() ? on_one_line(reason)
                                     : padded(reason, kReasonWidth, Align::Left) + "  " + mend);
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

std::string summary_text(const SearchSummary& summary, const SearchOptions& options, Width width) {
  std::string text;
  if (summary.metrics.is_mapping()) {
    text += "Metrics\n" + metrics_text(summary.metrics.mapping(), width) + "\n";
  }
  if (summary.progress.passing == 0) {
    text += nothing_passed_text(summary.progress, options) + "\n";
  } else if (!summary.best.empty()) {
    text += fmt::format("Best signals ({} of {} that passed)\n", summary.best.size(),
                        summary.progress.passing);
    text += best_signals_text(summary.best, width) + "\n";
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
