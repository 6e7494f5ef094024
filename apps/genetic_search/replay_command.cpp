#include "apps/genetic_search/replay_command.hpp"

#include <fmt/format.h>

#include "apps/genetic_search/attempts_command.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/search/attempt_replay.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/store/store_reader.hpp"

namespace varnholt::app {
namespace {

using embedded::AttemptRecord;
using embedded::Replay;
using embedded::ReplayedFigure;
using embedded::RunRecord;

constexpr std::size_t kNameWidth = 24;
constexpr std::size_t kFigureWidth = 22;  // Of a double with all its digits.

AttemptRecord required_attempt(embedded::StoreReader& store, std::int64_t id) {
  std::optional<AttemptRecord> found = store.attempts().find(id);
  if (!found) {
    throw UsageError(fmt::format("there is no attempt {} in {}; \"{} {} DB\" lists them", id,
                                 store.path(), kProgramName, kAttemptsName));
  }
  return *std::move(found);
}

// The statistics of the evaluation that ended the attempt, or the attempt's own.
std::string recorded_statistics(embedded::StoreReader& store, const AttemptRecord& attempt) {
  if (!attempt.end) return "null";
  if (attempt.end->eval_id) {
    const auto evaluation = store.find_evaluation(*attempt.end->eval_id);
    if (evaluation) return evaluation->evaluation.statistics_json;
  }
  return attempt.end->generated_stats_json;
}

std::string figure(const std::optional<double>& number) {
  return number ? fmt::format("{}", *number) : "-";
}

std::string verdict_text(const Replay& replay) {
  if (!replay.is_equal) return "No statistics were recorded to compare with";
  if (!replay.failure.empty()) {
    return *replay.is_equal ? "It fails again" : "It fails now, and did not then";
  }
  return *replay.is_equal ? "The recorded statistics again" : "Other statistics than recorded";
}

std::string text_of(const AttemptRecord& attempt, const Replay& replay) {
  std::string text = fmt::format("attempt {} of run {}: {}\n", attempt.id, attempt.start.run,
                                 on_one_line(stored_expression(attempt.start.graph_json)));
  if (attempt.end) {
    text +=
        fmt::format("ended as {}{}\n", on_one_line(attempt.end->terminal_disposition),
                    attempt.end->failure_detail ? ": " + on_one_line(*attempt.end->failure_detail)
                                                : std::string());
  }
  if (!replay.figures.empty()) {
    text += fmt::format("\n{:<{}}{:>{}}{:>{}}\n", "statistic", kNameWidth, "recorded", kFigureWidth,
                        "replayed", kFigureWidth);
  }
  for (const ReplayedFigure& entry : replay.figures) {
    text += fmt::format("{:<{}}{:>{}}{:>{}}{}\n", on_one_line(entry.name), kNameWidth,
                        figure(entry.recorded), kFigureWidth, figure(entry.replayed), kFigureWidth,
                        entry.is_equal || !entry.recorded ? "" : "  differs");
  }
  text += fmt::format("\n{}, in {:.3f} seconds.\n", verdict_text(replay), replay.seconds);
  if (!replay.failure.empty()) text += on_one_line(replay.failure) + "\n";
  return text;
}

Json json_of(const AttemptRecord& attempt, const Replay& replay) {
  Json object = {{"attempt_id", attempt.id},
                 {"run_id", attempt.start.run},
                 {"is_equal", replay.is_equal ? Json(*replay.is_equal) : Json(nullptr)},
                 {"failure", replay.failure.empty() ? Json(nullptr) : Json(replay.failure)},
                 {"seconds", replay.seconds}};
  object["figures"] = Json::object();
  for (const ReplayedFigure& entry : replay.figures) {
    object["figures"][entry.name] = {{"recorded", figure_json(entry.recorded)},
                                     {"replayed", figure_json(entry.replayed)},
                                     {"is_equal", entry.is_equal}};
  }
  return object;
}

}  // namespace

bool replay_command(const ReplayCommand& command, Output& output) {
  const std::unique_ptr<embedded::StoreReader> opened =
      embedded::open_store_reader(command.database);
  const AttemptRecord attempt = required_attempt(*opened, command.attempt);
  const std::optional<RunRecord> run = opened->find_run(attempt.start.run);
  if (!run) {
    throw embedded::StoreError(opened->path(), fmt::format("attempt {} has no run", attempt.id),
                               "the file is damaged; move it away");
  }
  const embedded::MarketData prices = embedded::read_run_prices(
      command.prices.value_or(embedded::price_source_of(run->start)), run->start);
  const Replay replay =
      embedded::replay_attempt(attempt, *run, recorded_statistics(*opened, attempt), prices);
  output.write(command.json ? json_line(json_of(attempt, replay)) : text_of(attempt, replay));
  output.throw_if_failed();
  return replay.is_equal.value_or(true);
}

}  // namespace varnholt::app
