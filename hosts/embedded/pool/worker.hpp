// The parent's side of one child: its process, its items, its pipe, what came through, and how it
// ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <signal.h>
#include <sys/types.h>

#include "hosts/embedded/pool/child_process.hpp"
#include "hosts/embedded/pool/descriptor.hpp"
#include "hosts/embedded/pool/frame.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/pool/work.hpp"

namespace varnholt::embedded {

// A call that kept a worker from being started.
struct LaunchFailure {
  const char* call = "";
  int error = 0;

  // "fork failed with errno 11 (Resource temporarily unavailable)"
  [[nodiscard]] std::string text() const;
  // Which limit it most likely was, and what to do.
  [[nodiscard]] std::string remedy() const;
};

// Owns a child from its fork to its reaping; the destructor kills and reaps what still lives. A
// signal is sent only while the child has not been reaped, so its number cannot belong to another
// process by then. This is the only place that waits for the child.
//
// A child with several items goes from one to the next by itself; here its present item is the
// first whose result is not whole. It stays with the last one, and with one whose answer is no
// result: the child ends behind these.
class Worker {
 public:
  // At least one item.
  Worker(SystemCalls& system, std::vector<WorkItem> items, std::uint64_t result_limit_bytes)
      : system_(system),
        items_(std::move(items)),
        result_limit_bytes_(result_limit_bytes),
        decoder_(frame_address(items_.front()), result_limit_bytes) {}
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker();

  struct StartOptions {
    ChildLimits limits;
    std::optional<int> nice;
    std::optional<int> pipe_capacity_bytes;
    // Not to stay open in the child: the parent's ends of pipes, the other workers' among them.
    std::vector<int> foreign_descriptors;
    std::vector<int> changed_signals;
  };

  // Forks. Returns in the parent only; on failure there is no child and no descriptor is left.
  [[nodiscard]] std::optional<LaunchFailure> start(const Work& work, StartOptions options);

  // Takes what is in the pipe now, at most about one mebibyte, so that one fast worker does not
  // keep the parent from the others.
  void drain();
  // What comes through the pipe from now on is late and not looked at.
  void refuse_more() { close_pipe(); }

  // A result behind which the child went on.
  struct Result {
    WorkItem item;
    WorkItem next;
    std::string payload;
    std::int64_t nanoseconds = 0;
  };
  // Those that came since this was asked for last, in order.
  [[nodiscard]] std::vector<Result> take_results() noexcept { return std::exchange(results_, {}); }
  [[nodiscard]] bool has_results() const noexcept { return !results_.empty(); }
  // Looks for the child's end where the kernel gave no descriptor to poll.
  void look_for_exit();
  void note_exit() noexcept { exited_ = true; }

  // Kills the child's whole group at once; does not wait.
  void kill() noexcept;
  // Kills the group, takes what the child left in the pipe, and reaps it.
  void finish();

  // The present item.
  [[nodiscard]] const WorkItem& item() const noexcept { return items_[at_]; }
  [[nodiscard]] bool is_at_first_item() const noexcept { return at_ == 0; }
  // The items whose turn has not come.
  [[nodiscard]] std::span<const WorkItem> rest() const noexcept {
    return std::span(items_).subspan(at_ + 1);
  }
  [[nodiscard]] pid_t pid() const noexcept { return pid_; }
  // -1 once nothing more is to be read.
  [[nodiscard]] int pipe_number() const noexcept { return pipe_.number(); }
  // -1 where there is none.
  [[nodiscard]] int pidfd_number() const noexcept { return pidfd_.number(); }
  [[nodiscard]] bool has_exited() const noexcept { return exited_; }
  // The answer to the present item.
  [[nodiscard]] FrameDecoder& decoder() noexcept { return decoder_; }
  // When the turn of the present item came.
  [[nodiscard]] std::int64_t started_nanoseconds() const noexcept { return started_nanoseconds_; }
  // Since when nothing more is to be read: the frame is whole or damaged, or the pipe is at its
  // end.
  [[nodiscard]] std::optional<std::int64_t> closed_nanoseconds() const noexcept {
    return closed_nanoseconds_;
  }
  // Empty unless reading the pipe failed.
  [[nodiscard]] const std::string& read_failure() const noexcept { return read_failure_; }
  // After finish(): why there is no whole frame, for people.
  [[nodiscard]] std::string failure_text() const;

 private:
  void drain_up_to(std::size_t limit_bytes);
  void take(std::string_view bytes);
  // Keeps the result of the present item and goes on to the next.
  void advance();
  void close_pipe();
  void reap() noexcept;

  SystemCalls& system_;
  std::vector<WorkItem> items_;
  std::size_t at_ = 0;
  std::vector<Result> results_;
  std::uint64_t result_limit_bytes_;
  FrameDecoder decoder_;
  Descriptor pipe_;
  Descriptor pidfd_;
  pid_t pid_ = 0;
  std::int64_t started_nanoseconds_ = 0;
  std::optional<std::int64_t> closed_nanoseconds_;
  bool exited_ = false;
  bool reaped_ = false;
  std::optional<siginfo_t> exit_info_;
  std::string read_failure_;
};

}  // namespace varnholt::embedded
