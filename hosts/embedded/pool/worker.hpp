// The parent's side of one child: its process, its pipe, what came through, and how it ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
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
class Worker {
 public:
  Worker(SystemCalls& system, const WorkItem& item, std::uint64_t result_limit_bytes)
      : system_(system),
        item_(item),
        result_limit_bytes_(result_limit_bytes),
        decoder_(frame_address(item), result_limit_bytes) {}
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
  // Looks for the child's end where the kernel gave no descriptor to poll.
  void look_for_exit();
  void note_exit() noexcept { exited_ = true; }

  // Kills the child's whole group at once; does not wait.
  void kill() noexcept;
  // Kills the group, takes what the child left in the pipe, and reaps it.
  void finish();

  [[nodiscard]] const WorkItem& item() const noexcept { return item_; }
  [[nodiscard]] pid_t pid() const noexcept { return pid_; }
  // -1 once nothing more is to be read.
  [[nodiscard]] int pipe_number() const noexcept { return pipe_.number(); }
  // -1 where there is none.
  [[nodiscard]] int pidfd_number() const noexcept { return pidfd_.number(); }
  [[nodiscard]] bool has_exited() const noexcept { return exited_; }
  [[nodiscard]] FrameDecoder& decoder() noexcept { return decoder_; }
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
  void close_pipe();
  void reap() noexcept;

  SystemCalls& system_;
  WorkItem item_;
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
