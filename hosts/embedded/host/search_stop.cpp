#include "hosts/embedded/host/search_stop.hpp"

#include "hosts/embedded/system/interruptible_sleep.hpp"

namespace varnholt::embedded {

double SearchStop::elapsed_seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

StopCause SearchStop::current_cause() const {
  if (interrupt_.requests > 1) throw InterruptedAtOnce();
  if (interrupt_.requests > 0) return StopCause::Signal;
  if (limits_.seconds && elapsed_seconds() >= *limits_.seconds) return StopCause::Seconds;
  if (limits_.candidates && candidates_ >= *limits_.candidates) return StopCause::Candidates;
  if (limits_.generations && generations_ >= *limits_.generations) return StopCause::Generations;
  return StopCause::None;
}

bool SearchStop::is_set() {
  const StopCause current = current_cause();
  if (cause_ == StopCause::None) cause_ = current;
  return cause_ != StopCause::None;
}

bool SearchStop::wait(double seconds) {
  if (is_set()) return true;
  sleep_interruptibly(seconds);
  return is_set();
}

bool SearchStop::cancels_evaluations() {
  if (interrupt_.requests > 0) return true;
  return limits_.seconds && elapsed_seconds() >= *limits_.seconds;
}

}  // namespace varnholt::embedded
