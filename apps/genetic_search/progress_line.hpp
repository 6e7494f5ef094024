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

// The line that is drawn anew on a terminal, at most `width` columns of it:
//   gen 3 12/32 | 214 cand 35.2/s | 12 pass | best 1.32 cross_rank(close) | fail sharpe_min 150
// The generation is the one under way, from 1, with what is evaluated of its batch; "round 2 5" in
// the place of "12/32" is what is evaluated of its second round of repairs. After rounds their
// number and what became of the repairs follow: "| 6 rounds 80 repaired 21 rescued". The expression
// takes the room that the rest leaves; where even a short one does not fit, the line is cut at its
// end.
[[nodiscard]] std::string live_progress_text(const embedded::SearchProgress& progress,
                                             std::int64_t evaluated_in_batch,
                                             std::int64_t batch_size, std::size_t width);

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
