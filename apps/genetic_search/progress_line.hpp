// The progress of a search in one line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "hosts/embedded/host/search_events.hpp"

namespace varnholt::app {

// How many candidates were recorded a second so far; 0 at the very beginning.
[[nodiscard]] double candidates_a_second(const embedded::SearchProgress& progress);

// "sharpe_min 150, turnover_max 40, 2 other reasons 3": the most frequent reasons first, at most
// `limit` of them. Empty without failures.
[[nodiscard]] std::string failures_text(const std::map<std::string, std::int64_t>& failures,
                                        std::size_t limit);

// Whichever is reached first ends the run.
struct RunLimits {
  std::optional<std::int64_t> generations;
  std::optional<std::int64_t> candidates;
  std::optional<double> seconds;
};

// How long the run has to go at its present pace; nothing where it has no limit, or none whose pace
// is known yet. `elapsed_at_generation` are the seconds at the end of the last generation: the one
// under way says nothing of its pace before it has been repaired.
[[nodiscard]] std::optional<double> seconds_left(const RunLimits& limits,
                                                 const embedded::SearchProgress& progress,
                                                 double elapsed_at_generation);

// "0:07", "12:30", "1:02:05": whole seconds, rounded up.
[[nodiscard]] std::string clock_text(double seconds);

struct BatchUnderWay {
  std::int64_t evaluated = 0;
  std::int64_t size = 0;
  std::optional<double> seconds_left = {};  // Of the run.
};

// The line that is drawn anew on a terminal, at most `width` columns of it:
//   gen 3 12/32 | 214 cand 35.2/s | 1:20 left | 12 pass | 80 repaired 21 rescued | best 1.32
//   cross_rank(close) | fail sharpe_min 150
// The generation is the one under way, from 1, with what is evaluated of its batch; "round 2 5" in
// the place of "12/32" is what is evaluated of its second round of repairs. Where all of it does
// not fit, the failures become fewer, then the expression shorter, and then the failures, the
// expression, the repairs and the best are left out: the rest fits a terminal of 80 columns.
[[nodiscard]] std::string live_progress_text(const embedded::SearchProgress& progress,
                                             const BatchUnderWay& batch, std::size_t width);

// A completed generation, for outputs that are not terminals, ended:
//   generation 3: 96 candidates, 35.2 a second, 12 passing, best 1.32 (3-17), failures: ...
[[nodiscard]] std::string generation_text(const embedded::SearchProgress& progress);

// Draws a line over itself. It makes texts and leaves writing to others.
class LiveLine {
 public:
  // At most ten times a second.
  static constexpr double kPauseSeconds = 0.1;

  // What draws `line` at `now` (in seconds, from any beginning), or nothing where the last time was
  // too recent.
  [[nodiscard]] std::optional<std::string> draw(const std::string& line, double now);

  // Whether a line drawn at `now` would be too recent, for callers to whom making it costs
  // something.
  [[nodiscard]] bool is_too_soon(double now) const;

  // What removes the line; empty where none is drawn.
  [[nodiscard]] std::string erase();

 private:
  bool drawn_ = false;
  std::optional<double> last_;
};

}  // namespace varnholt::app
