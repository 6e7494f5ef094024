// When the ends of attempts are put on the disk.
//
// An end survives the death of the process as soon as it is in the file. To survive a loss of power
// it has to be synced, which takes some milliseconds, however many ends it is for. So ends are
// synced together: at the latest kEndsTogether of them, or the first of them kLongestWaitSeconds
// after it, and always when somebody asks for it, as a run does after each generation and at its
// end.
#pragma once

#include <chrono>
#include <functional>
#include <utility>

#include "hosts/embedded/store/attempt_table.hpp"

namespace varnholt::embedded {

inline constexpr int kEndsTogether = 64;
inline constexpr double kLongestWaitSeconds = 0.1;

class EndSync {
 public:
  // Seconds that never go back.
  using Clock = std::function<double()>;

  // The table must outlive the object.
  explicit EndSync(
      AttemptTable& attempts, Clock clock =
                                  [] {
                                    const auto now =
                                        std::chrono::steady_clock::now().time_since_epoch();
                                    return std::chrono::duration<double>(now).count();
                                  })
      : attempts_(attempts), clock_(std::move(clock)) {}

  // An end was stored; it may still be gathered with others.
  void note_end() {
    if (waiting_++ == 0) first_at_ = clock_();
    sync_if_due();
  }
  void sync_if_due() {
    if (waiting_ == 0) return;
    if (waiting_ >= kEndsTogether || clock_() - first_at_ >= kLongestWaitSeconds) sync();
  }
  void sync() {
    if (waiting_ == 0) return;
    attempts_.sync();
    waiting_ = 0;
  }

 private:
  AttemptTable& attempts_;
  Clock clock_;
  int waiting_ = 0;
  double first_at_ = 0.0;
};

}  // namespace varnholt::embedded
