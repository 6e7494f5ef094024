// The timings that this process measured and nobody has asked for yet.
//
// The evaluator measures a backtest deep inside, and the search asks for the timing of a graph
// afterwards. In between the timing waits here, under the graph's key.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>

#include "hosts/embedded/system/process_identity.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class RecordedTimings {
 public:
  // Of the process `process`. A fork copies what is recorded: the child calls enter_process first.
  explicit RecordedTimings(const ProcessIdentity& process);

  // From now on this is the store of another process. What was recorded is forgotten: it is the
  // parent's.
  void enter_process(const ProcessIdentity& process);

  // Keeps the timing, in its normal form, until it is consumed. A graph that is backtested again
  // has the later timing. Fails as validate_process_backtest_timing_payload does, and with
  // genetic::ValueError for a timing that was measured in another process.
  void record(const genetic::Value& graph, const genetic::Value& timing);

  // The timing that was recorded for `graph`, which is then removed; absent when none was recorded.
  // With `include_identity` false it comes without its process identity.
  [[nodiscard]] genetic::Value consume(const genetic::Value& graph, bool include_identity);

  // The same where a timing of the graph has also come from elsewhere. One that is recorded must be
  // equal to it, in whatever of the process identity the given one has; it is consumed. Where none
  // is recorded (it was measured in another process, or consumed already) the given one is taken as
  // it is, if it is valid. An absent `timing` counts as none given. Fails as
  // validate_graph_backtest_timing_payload does, and with genetic::ValueError for two timings that
  // disagree, of which the recorded one stays.
  [[nodiscard]] genetic::Value consume(const genetic::Value& graph, const genetic::Value& timing,
                                       bool include_identity);

  [[nodiscard]] std::size_t size() const noexcept { return timings_.size(); }

 private:
  std::int64_t process_id_;
  std::int64_t process_started_;
  std::unordered_map<std::string, genetic::Mapping> timings_;
};

}  // namespace varnholt::embedded
