// Ownership of file descriptors, and reads and writes that are always looped.
//
// Errors are returned as errno numbers: the worker pool must decide for each whether it is one
// worker's failure or the end of the run, and the child must not throw on its way out.
#pragma once

#include <cstddef>
#include <string_view>
#include <utility>

#include "hosts/embedded/pool/system_calls.hpp"

namespace varnholt::embedded {

// The one owner of a descriptor. Closing is never retried: on Linux the number is free again even
// when close(2) reports an interruption, and a second close could hit somebody else's descriptor.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, kNone)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  [[nodiscard]] int number() const noexcept { return number_; }
  [[nodiscard]] bool is_open() const noexcept { return number_ != kNone; }
  // Gives up ownership without closing.
  [[nodiscard]] int release() noexcept { return std::exchange(number_, kNone); }
  // Closes now; errno stays as it was.
  void close() noexcept;

 private:
  static constexpr int kNone = -1;
  int number_ = kNone;
};

struct Pipe {
  Descriptor read_end;
  Descriptor write_end;
};

// Opens a close-on-exec pipe whose read end does not block. Neither end has the number of a
// standard stream: in a process that was started with one of those closed, the output of the work
// would otherwise land in the pipe. Returns 0 or the error number; on failure nothing stays open.
[[nodiscard]] int open_pipe(SystemCalls& system, Pipe& pipe);

// Writes all bytes, over interruptions, short writes and a full pipe. Returns 0 or the error
// number.
[[nodiscard]] int write_all(SystemCalls& system, int descriptor, std::string_view bytes) noexcept;

struct ReadResult {
  std::size_t bytes = 0;  // 0 without an error means end of file.
  int error = 0;          // EAGAIN: nothing there now.
};

// Reads what is there, at most `size` bytes, over interruptions.
[[nodiscard]] ReadResult read_some(SystemCalls& system, int descriptor, char* buffer,
                                   std::size_t size) noexcept;

}  // namespace varnholt::embedded
