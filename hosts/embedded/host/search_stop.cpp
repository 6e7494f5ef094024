#include "hosts/embedded/host/search_stop.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

// Of the limit in seconds.
constexpr double kReportShare = 0.1;
constexpr double kLeastReportSeconds = 1.0;

}  // namespace

double SearchStop::elapsed_seconds() const {
  return std::chrono::duration<double>(Clock::now() - run_start_).count();
}

bool SearchStop::is_over(double seconds) const {
  return std::chrono::duration<double>(Clock::now() - start_).count() >= seconds;
}

void SearchStop::check_before_run() const {
  if (interrupt_.requests > 0) throw InterruptedAtOnce();
  if (!limits_.seconds || !is_over(*limits_.seconds)) return;
  throw TimeIsOver(
      fmt::format("the limit of {:g} seconds was over before the files were read, and no run was "
                  "begun; give more of them with --seconds, or fewer prices",
                  *limits_.seconds));
}

bool SearchStop::ends_report(int requests_before) const {
  const int requests = interrupt_.requests;
  if (requests > requests_before && requests > 1) throw InterruptedAtOnce();
  if (requests > requests_before) return true;
  if (!limits_.seconds) return false;
  return is_over(*limits_.seconds + std::max(*limits_.seconds * kReportShare, kLeastReportSeconds));
}

StopCause SearchStop::current_cause() const {
  if (interrupt_.requests > 1) throw InterruptedAtOnce();
  if (interrupt_.requests > 0) return StopCause::Signal;
  if (limits_.seconds && is_over(*limits_.seconds)) return StopCause::Seconds;
  if (limits_.candidates && candidates_ >= *limits_.candidates) return StopCause::Candidates;
  if (limits_.generations && generations_ >= *limits_.generations) return StopCause::Generations;
  return StopCause::None;
}

bool SearchStop::is_set() {
  const StopCause current = current_cause();
  if (cause_ == StopCause::None) cause_ = current;
  return cause_ != StopCause::None;
}

// The search has its process to itself: nobody has to be let run, and whatever sets the event, a
// signal or the time, is seen when it is asked for next.
bool SearchStop::wait(double /*seconds*/) {
  return is_set();
}

bool SearchStop::cancels_evaluations() {
  if (interrupt_.requests > 0) return true;
  return limits_.seconds && is_over(*limits_.seconds);
}

}  // namespace varnholt::embedded
