// One pipe from all children to their parent.
//
// A message goes into it in one write of at most kLongestPipeMessage bytes, which the kernel takes
// whole or not at all: so writers need no lock that could die with its holder, and a writer that is
// killed leaves no part of a message behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "hosts/embedded/pool/descriptor.hpp"
#include "hosts/embedded/pool/system_calls.hpp"

namespace varnholt::embedded {

// PIPE_BUF, less the head of a message.
inline constexpr std::size_t kLongestPipeMessage = 4096 - 2 * sizeof(std::uint32_t);

struct PipeMessage {
  std::uint32_t box = 0;  // Whom the message is for, as its writer said.
  std::string bytes;
};

class MessagePipe {
 public:
  // `system` must outlive the pipe. PoolError when it cannot be opened.
  explicit MessagePipe(SystemCalls& system);

  // In a child; waits while the pipe is full. PoolError for a message that is too long, and when
  // the pipe cannot be written.
  void send(std::uint32_t box, std::string_view message);

  // In the parent: whether there is a message, without waiting. Then `take` gives the oldest one.
  [[nodiscard]] bool poll();
  // Waits for a message where there is none.
  [[nodiscard]] PipeMessage take();

  // For whoever waits for messages beside other things.
  [[nodiscard]] int read_descriptor() const noexcept { return pipe_.read_end.number(); }

 private:
  // Takes what is in the pipe now. PoolError when it cannot be read.
  void read_now();

  SystemCalls& system_;
  Pipe pipe_;
  std::string unread_;  // Of a message whose end has not been read yet.
  std::deque<PipeMessage> messages_;
};

}  // namespace varnholt::embedded
