#include "apps/genetic_search/progress_line.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/failure_counts.hpp"
#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {
namespace {

// To the beginning of the line, and clear to its end.
constexpr const char* kEraseLine = "\r\x1b[K";

constexpr std::size_t kShortestExpression = 16;
constexpr std::size_t kGenerationReasons = 6;
constexpr std::size_t kLiveReasons = 3;

double best_quality(const embedded::CandidateRecorded& best) {
  return best.statistics ? best.statistics->quality_score : 0.0;
}

}  // namespace

double candidates_a_second(const embedded::SearchProgress& progress) {
  if (!(progress.elapsed_seconds > 0.0)) return 0.0;
  return static_cast<double>(progress.candidates) / progress.elapsed_seconds;
}

std::string failures_text(const std::map<std::string, std::int64_t>& failures, std::size_t limit) {
  const std::vector<FailureCount> counts = most_frequent_first(failures);
  std::string text;
  std::size_t others = 0;
  std::int64_t other_count = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (i < limit) {
      text += fmt::format("{}{} {}", text.empty() ? "" : ", ", on_one_line(counts[i].first),
                          counts[i].second);
    } else {
      ++others;
      other_count += counts[i].second;
    }
  }
  if (others > 0) {
    text += fmt::format("{}{} other reason{} {}", text.empty() ? "" : ", ", others,
                        others == 1 ? "" : "s", other_count);
  }
  return text;
}

std::optional<double> seconds_left(const RunLimits& limits,
                                   const embedded::SearchProgress& progress,
                                   double elapsed_at_generation) {
  const double elapsed = progress.elapsed_seconds;
  std::optional<double> left;
  const auto offer = [&left](double seconds) {
    left = std::max(0.0, left ? std::min(*left, seconds) : seconds);
  };
  if (limits.seconds) offer(*limits.seconds - elapsed);
  if (limits.candidates && progress.candidates > 0) {
    const double whole = elapsed * static_cast<double>(*limits.candidates) /
                         static_cast<double>(progress.candidates);
    offer(whole - elapsed);
  }
  if (limits.generations && progress.generation > 0) {
    const double whole = elapsed_at_generation * static_cast<double>(*limits.generations) /
                         static_cast<double>(progress.generation);
    offer(whole - elapsed);
  }
  return left;
}

std::string clock_text(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::ceil(seconds));
  const std::int64_t hours = whole / 3600;
  if (hours == 0) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", hours, whole / 60 % 60, whole % 60);
}

std::string live_progress_text(const embedded::SearchProgress& progress, const BatchUnderWay& batch,
                               std::size_t width) {
  // How many a round evaluates is known to the search alone.
  const std::string under_way =
      progress.round_under_way > 0
          ? fmt::format("round {} {}", progress.round_under_way, batch.evaluated)
          : fmt::format("{}/{}", batch.evaluated, batch.size);
  const std::string head =
      fmt::format("gen {} {} | {} cand {:.1f}/s{} | {} pass", progress.generation + 1, under_way,
                  progress.candidates, candidates_a_second(progress),
                  batch.seconds_left ? " | " + clock_text(*batch.seconds_left) + " left" : "",
                  progress.passing);
  const std::string best =
      progress.best ? fmt::format(" | best {:.2f}", best_quality(*progress.best)) : std::string();
  const auto fits = [&](const std::string& line, std::size_t more = 0) {
    return column_count(line) + more <= width;
  };
  if (!fits(head + best)) return cut_to_width(head, width);
  std::string line = head + best;
  if (progress.repair_rounds > 0) {
    const embedded::RepairCount repairs = progress.all_repairs();
    const std::string told =
        fmt::format(" | {} repaired {} rescued", repairs.tried, repairs.rescued);
    if (fits(line + told)) line = head + told + best;
  }
  // The expression takes what the failures leave, and they stand aside where its shortest form
  // would not fit beside them.
  const std::size_t least_room = progress.best ? kShortestExpression + 1 : 0;
  std::string failures;
  for (const std::size_t reasons : {kLiveReasons, std::size_t{1}}) {
    if (progress.failures.empty()) break;
    failures = " | fail " + failures_text(progress.failures, reasons);
    if (fits(line + failures, least_room)) break;
    failures.clear();
  }
  if (progress.best && fits(line + failures, least_room)) {
    const std::size_t room = width - column_count(line + failures) - 1;
    line += " " + cut_to_width(on_one_line(progress.best->expression), room);
  }
  return cut_to_width(line + failures, width);
}

std::string generation_text(const embedded::SearchProgress& progress) {
  std::string line = fmt::format("generation {}: {} fresh and {} bred", progress.generation,
                                 progress.fresh_in_generation, progress.bred_in_generation);
  if (progress.repaired_in_generation > 0) {
    line += fmt::format(" and {} repaired", progress.repaired_in_generation);
  }
  line += fmt::format(", {} candidates in all, {:.1f} a second, {} passing", progress.candidates,
                      candidates_a_second(progress), progress.passing);
  if (progress.repair_rounds > 0) {
    line += fmt::format(", {} rescued in {} round{}", progress.all_repairs().rescued,
                        progress.repair_rounds, progress.repair_rounds == 1 ? "" : "s");
  }
  // After the first, a generation without offspring is a restart, or had no parents to breed from.
  if (progress.generation > 1 && progress.bred_in_generation == 0) line += ", begun anew";
  if (progress.best) {
    line += fmt::format(", best {:.2f} ({})", best_quality(*progress.best), progress.best->eval_id);
  }
  if (!progress.failures.empty()) {
    line += ", failures: " + failures_text(progress.failures, kGenerationReasons);
  }
  return line + "\n";
}

bool LiveLine::is_too_soon(double now) const {
  return last_ && now - *last_ < kPauseSeconds;
}

std::optional<std::string> LiveLine::draw(const std::string& line, double now) {
  if (is_too_soon(now)) return std::nullopt;
  last_ = now;
  drawn_ = true;
  return kEraseLine + line;
}

std::string LiveLine::erase() {
  if (!drawn_) return {};
  drawn_ = false;
  return kEraseLine;
}

}  // namespace varnholt::app
