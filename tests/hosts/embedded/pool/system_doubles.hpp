// System calls that misbehave on purpose. They forward to the real ones otherwise, in the parent
// and, because a fork copies them, in its children.
#pragma once

#include <algorithm>
#include <cerrno>
#include <string>

#include <unistd.h>

#include "hosts/embedded/pool/system_calls.hpp"

namespace varnholt::embedded::test {

// Every call that may be interrupted is interrupted three times before it is made.
class InterruptingCalls : public RealSystemCalls {
 public:
  ssize_t read(int descriptor, void* buffer, std::size_t size) override {
    return interrupt() ? -1 : RealSystemCalls::read(descriptor, buffer, size);
  }
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
    return interrupt() ? -1 : RealSystemCalls::write(descriptor, bytes, size);
  }
  int poll(pollfd* entries, nfds_t count, int timeout_milliseconds) override {
    return interrupt() ? -1 : RealSystemCalls::poll(entries, count, timeout_milliseconds);
  }
  int waitid(pid_t pid, siginfo_t* info, int options) override {
    return interrupt() ? -1 : RealSystemCalls::waitid(pid, info, options);
  }
  int futex_wait(std::uint32_t* word, std::uint32_t value) override {
    return interrupt() ? -1 : RealSystemCalls::futex_wait(word, value);
  }
  int interruptions = 0;

 private:
  bool interrupt() {
    if (++calls_ % 4 == 0) return false;
    ++interruptions;
    errno = EINTR;
    return true;
  }
  int calls_ = 0;
};

// Reads and writes move at most `most` bytes, and every second write finds the pipe full.
class ShortCalls : public RealSystemCalls {
 public:
  explicit ShortCalls(std::size_t most) : most_(most) {}
  ssize_t read(int descriptor, void* buffer, std::size_t size) override {
    return RealSystemCalls::read(descriptor, buffer, std::min(size, most_));
  }
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
    if (++writes_ % 2 == 0) {
      errno = EAGAIN;
      return -1;
    }
    return RealSystemCalls::write(descriptor, bytes, std::min(size, most_));
  }

 private:
  std::size_t most_;
  int writes_ = 0;
};

// In the process that made it, one call of one kind fails: the `nth`, counted from 1, and as many
// after it as `length` says.
class FailingCalls : public RealSystemCalls {
 public:
  enum class Call { Pipe, Fork, Fcntl, Pidfd, Setpgid, Kill, Read, Poll, Waitid, Threads };

  FailingCalls(Call call, int error, int nth, int length = 1)
      : call_(call), error_(error), nth_(nth), length_(length), process_(::getpid()) {}

  // Whether the failing call was reached.
  [[nodiscard]] bool reached() const { return count_ >= nth_; }

  pid_t fork() override { return fails(Call::Fork) ? -1 : RealSystemCalls::fork(); }
  int pipe2(int (&ends)[2], int flags) override {
    return fails(Call::Pipe) ? -1 : RealSystemCalls::pipe2(ends, flags);
  }
  int fcntl(int descriptor, int command, int argument) override {
    return fails(Call::Fcntl) ? -1 : RealSystemCalls::fcntl(descriptor, command, argument);
  }
  int pidfd_open(pid_t pid) override {
    return fails(Call::Pidfd) ? -1 : RealSystemCalls::pidfd_open(pid);
  }
  int setpgid(pid_t pid, pid_t group) override {
    return fails(Call::Setpgid) ? -1 : RealSystemCalls::setpgid(pid, group);
  }
  int kill(pid_t pid, int signal) override {
    return fails(Call::Kill) ? -1 : RealSystemCalls::kill(pid, signal);
  }
  ssize_t read(int descriptor, void* buffer, std::size_t size) override {
    return fails(Call::Read) ? -1 : RealSystemCalls::read(descriptor, buffer, size);
  }
  int poll(pollfd* entries, nfds_t count, int timeout_milliseconds) override {
    return fails(Call::Poll) ? -1 : RealSystemCalls::poll(entries, count, timeout_milliseconds);
  }
  int waitid(pid_t pid, siginfo_t* info, int options) override {
    const int result = RealSystemCalls::waitid(pid, info, options);
    // As if another part of the program had waited first: the child is gone, the answer too.
    return fails(Call::Waitid) ? -1 : result;
  }
  int thread_count() override {
    return fails(Call::Threads) ? -1 : RealSystemCalls::thread_count();
  }

 private:
  bool fails(Call call) {
    if (call != call_ || ::getpid() != process_) return false;
    ++count_;
    if (count_ < nth_ || count_ >= nth_ + length_) return false;
    errno = error_;
    return true;
  }

  Call call_;
  int error_;
  int nth_;
  int length_;
  pid_t process_;
  int count_ = 0;
};

// Kills the child that writes once it has written `limit` bytes.
class CutWrites : public RealSystemCalls {
 public:
  explicit CutWrites(std::size_t limit) : limit_(limit) {}
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
    const std::size_t rest = limit_ - written_;
    if (rest > 0) {
      const ssize_t written = RealSystemCalls::write(descriptor, bytes, std::min(size, rest));
      if (written > 0) written_ += static_cast<std::size_t>(written);
      if (written_ < limit_) return written;
    }
    RealSystemCalls::kill(::getpid(), SIGKILL);
    return -1;
  }

 private:
  std::size_t limit_;
  std::size_t written_ = 0;
};

}  // namespace varnholt::embedded::test
