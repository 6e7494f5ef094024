#include "hosts/embedded/pool/message_pipe.hpp"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/pool/pool_types.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::size_t kReadBytes = 64 * 1024;
constexpr std::size_t kHeadBytes = 2 * sizeof(std::uint32_t);  // The box, and the length.

static_assert(kHeadBytes + kLongestPipeMessage <= PIPE_BUF);

[[noreturn]] void fail(const char* what, int error, const char* remedy) {
  throw PoolError(fmt::format("worker pool: {} failed with errno {} ({}); {}", what, error,
                              std::strerror(error), remedy));
}

}  // namespace

MessagePipe::MessagePipe(SystemCalls& system) : system_(system) {
  if (const int error = open_pipe(system_, pipe_); error != 0) {
    fail("opening a pipe", error, "allow this process more open files (ulimit -n)");
  }
}

void MessagePipe::send(std::uint32_t box, std::string_view message) {
  if (message.size() > kLongestPipeMessage) {
    throw PoolError(fmt::format("worker pool: a message of {} bytes is longer than {} bytes",
                                message.size(), kLongestPipeMessage));
  }
  std::string bytes(kHeadBytes, '\0');
  const auto size = static_cast<std::uint32_t>(message.size());
  std::memcpy(bytes.data(), &box, sizeof(box));
  std::memcpy(bytes.data() + sizeof(box), &size, sizeof(size));
  bytes += message;
  ssize_t written = 0;
  do {
    written = system_.write(pipe_.write_end.number(), bytes.data(), bytes.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(bytes.size())) return;
  fail("writing to the parent", written < 0 ? errno : EIO, "the parent has gone");
}

bool MessagePipe::poll() {
  if (messages_.empty()) read_now();
  return !messages_.empty();
}

PipeMessage MessagePipe::take() {
  while (!poll()) {
    pollfd entry{pipe_.read_end.number(), POLLIN, 0};
    if (system_.poll(&entry, 1, -1) < 0 && errno != EINTR && errno != EAGAIN) {
      fail("waiting for the children", errno, "run with fewer jobs");
    }
  }
  PipeMessage message = std::move(messages_.front());
  messages_.pop_front();
  return message;
}

void MessagePipe::read_now() {
  std::array<char, kReadBytes> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  while (true) {
    const ReadResult got =
        read_some(system_, pipe_.read_end.number(), buffer.data(), buffer.size());
    if (got.error == EAGAIN) break;
    if (got.error != 0) fail("reading from the children", got.error, "start the run again");
    if (got.bytes == 0) break;
    unread_.append(buffer.data(), got.bytes);
    if (got.bytes < buffer.size()) break;
  }
  std::string_view rest = unread_;
  while (rest.size() >= kHeadBytes) {
    PipeMessage message;
    std::uint32_t size = 0;
    std::memcpy(&message.box, rest.data(), sizeof(message.box));
    std::memcpy(&size, rest.data() + sizeof(message.box), sizeof(size));
    if (size > kLongestPipeMessage) fail("reading a message", EBADMSG, "start the run again");
    if (rest.size() < kHeadBytes + size) break;
    message.bytes = rest.substr(kHeadBytes, size);
    messages_.push_back(std::move(message));
    rest.remove_prefix(kHeadBytes + size);
  }
  unread_.erase(0, unread_.size() - rest.size());
}

}  // namespace varnholt::embedded
