#include "hosts/embedded/pool/worker.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

namespace varnholt::embedded {
namespace {

constexpr std::size_t kReadBytes = 64 * 1024;
constexpr std::size_t kDrainBytes = 1024 * 1024;

std::string errno_text(int error) {
  return fmt::format("errno {} ({})", error, std::strerror(error));
}

// Blocks all signals while it lives. Around a fork, so that no handler of the parent runs in the
// child and a Ctrl-C between fork and prologue does not kill it.
class SignalsBlocked {
 public:
  SignalsBlocked() noexcept {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

// What the parent has buffered must not be written a second time by a child.
void flush_output() {
  std::cout.flush();
  std::clog.flush();
  std::fflush(nullptr);
}

}  // namespace

std::string LaunchFailure::text() const {
  return fmt::format("{} failed with {}", call, errno_text(error));
}

std::string LaunchFailure::remedy() const {
  switch (error) {
    case EAGAIN:
      return "the limit of processes is reached (`ulimit -u`, or that of the control group): end "
             "others, or raise it";
    case ENOMEM:
      return "memory is short: end other programs, or search fewer prices";
    case EMFILE:
      return "the limit of open files is reached (`ulimit -n`): raise it";
    case ENFILE:
      return "the system's limit of open files is reached: end other programs";
    default:
      return "`genetic-search doctor` tells what this machine gives";
  }
}

Worker::~Worker() {
  kill();
  reap();
}

std::optional<LaunchFailure> Worker::start(const Work& work, StartOptions options) {
  Pipe pipe;
  if (const int error = open_pipe(system_, pipe); error != 0) return LaunchFailure{"pipe", error};
  if (options.pipe_capacity_bytes &&
      system_.fcntl(pipe.read_end.number(), F_SETPIPE_SZ, *options.pipe_capacity_bytes) < 0) {
    return LaunchFailure{"setting the pipe's capacity", errno};
  }
  options.foreign_descriptors.push_back(pipe.read_end.number());
  const ChildPlan plan{items_,
                       ::getpid(),
                       pipe.write_end.number(),
                       std::move(options.foreign_descriptors),
                       std::move(options.changed_signals),
                       options.limits,
                       options.nice,
                       result_limit_bytes_};
  flush_output();
  started_nanoseconds_ = system_.monotonic_nanoseconds();
  {
    const SignalsBlocked blocked;
    const pid_t forked = system_.fork();
    if (forked == 0) run_child(system_, plan, work);
    if (forked < 0) return LaunchFailure{"fork", errno};
    pid_ = forked;
  }
  // Both sides set the group, so that it exists for whoever needs it first. Here it may fail when
  // the child is already through.
  system_.setpgid(pid_, pid_);
  pipe_ = std::move(pipe.read_end);
  // Without this descriptor the end is seen by asking, a turn of the parent's loop later.
  pidfd_ = Descriptor(system_.pidfd_open(pid_));
  return std::nullopt;
}

void Worker::drain() {
  drain_up_to(kDrainBytes);
}

void Worker::drain_up_to(std::size_t limit_bytes) {
  // Not cleared: after a fork each page of it that is touched is a page to copy.
  std::array<char, kReadBytes> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  std::size_t taken = 0;
  while (pipe_.is_open() && taken < limit_bytes) {
    const ReadResult got = read_some(system_, pipe_.number(), buffer.data(), buffer.size());
    if (got.error == EAGAIN) return;
    if (got.error != 0) read_failure_ = "reading its result failed with " + errno_text(got.error);
    if (got.bytes == 0) return close_pipe();
    taken += got.bytes;
    take(std::string_view(buffer.data(), got.bytes));
  }
}

void Worker::take(std::string_view bytes) {
  while (!bytes.empty()) {
    bytes = decoder_.absorb(bytes);
    if (decoder_.state() == FrameDecoder::State::Incomplete) return;
    const bool goes_on = decoder_.state() == FrameDecoder::State::Whole &&
                         decoder_.kind() == FrameKind::Result && !rest().empty();
    if (!goes_on) return close_pipe();
    advance();
  }
}

void Worker::advance() {
  const std::int64_t now = system_.monotonic_nanoseconds();
  results_.push_back({items_[at_], items_[at_ + 1], decoder_.take_payload(),
                      now - std::exchange(started_nanoseconds_, now)});
  ++at_;
  decoder_ = FrameDecoder(frame_address(item()), result_limit_bytes_);
}

void Worker::close_pipe() {
  pipe_.close();
  closed_nanoseconds_ = system_.monotonic_nanoseconds();
}

void Worker::look_for_exit() {
  if (pidfd_.is_open() || exited_) return;
  siginfo_t info{};
  const int result = system_.waitid(pid_, &info, WEXITED | WNOHANG | WNOWAIT);
  if (result == 0 ? info.si_pid == pid_ : errno == ECHILD) exited_ = true;
}

void Worker::kill() noexcept {
  if (pid_ == 0 || reaped_) return;
  // The group may not exist yet, and the work may have left it; the child itself is there until it
  // is reaped.
  system_.kill(-pid_, SIGKILL);
  if (!exited_) system_.kill(pid_, SIGKILL);
}

void Worker::finish() {
  kill();
  reap();
  // The child has written all that it ever will; a process that left the group may still hold the
  // pipe open, but cannot make the parent read more than one frame.
  drain_up_to(std::numeric_limits<std::size_t>::max());
  pipe_.close();
  pidfd_.close();
}

void Worker::reap() noexcept {
  if (pid_ == 0 || reaped_) return;
  siginfo_t info{};
  int result = 0;
  do {
    result = system_.waitid(pid_, &info, WEXITED);
  } while (result != 0 && errno == EINTR);
  // A failure here means that somebody else waited for all children of this process.
  if (result == 0) exit_info_ = info;
  reaped_ = true;
  exited_ = true;
}

std::string Worker::failure_text() const {
  std::string end = exit_info_ ? describe_exit(*exit_info_)
                               : "worker was waited for by another part of the program";
  if (!read_failure_.empty()) return fmt::format("{}; {}", end, read_failure_);
  if (decoder_.state() == FrameDecoder::State::Damaged) {
    return "worker result was damaged: " + decoder_.damage();
  }
  if (decoder_.received_nothing()) return end;
  return fmt::format("worker result was torn after {}; {}", decoder_.progress(), end);
}

}  // namespace varnholt::embedded
