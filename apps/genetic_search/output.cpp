#include "apps/genetic_search/output.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

namespace varnholt::app {
namespace {

// How long a write waits before it looks for an interrupt again.
constexpr int kWaitMilliseconds = 100;

std::string_view remedy(int error_number) {
  switch (error_number) {
    case ENOSPC:
    case EDQUOT:
      return "; free some space, or write elsewhere";
    case EBADF:
      return "; it is closed: give the program one that is open";
    default:
      return "";
  }
}

}  // namespace

Output::Output(int descriptor, std::string name, embedded::InterruptFlag& interrupt,
               Failure failure)
    : descriptor_(descriptor),
      name_(std::move(name)),
      interrupt_(interrupt),
      on_failure_(failure) {}

// A pipe that is ready takes PIPE_BUF bytes without blocking. So the write below never blocks, and
// an interrupt is seen even while nobody reads.
void Output::wait_until_writable() const {
  pollfd waited = {descriptor_, POLLOUT, 0};
  while (true) {
    const int ready = poll(&waited, 1, kWaitMilliseconds);
    // Also when it can only fail: the write that follows tells why.
    if (ready > 0 || (ready < 0 && errno != EINTR)) return;
    if (interrupt_.requests > 1) throw embedded::InterruptedAtOnce();
  }
}

void Output::write(std::string_view text) {
  while (!text.empty() && !has_failed()) {
    wait_until_writable();
    const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
    const ssize_t written = ::write(descriptor_, text.data(), size);
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
      fail(errno);
    }
  }
}

void Output::fail(int error_number) {
  if (error_number == EPIPE) {
    failure_ = std::make_exception_ptr(ReaderGone(fmt::format("the reader of {} is gone", name_)));
  } else {
    failure_ = std::make_exception_ptr(OutputError(
        fmt::format("cannot write to {}: {}{}", name_,
                    std::generic_category().message(error_number), remedy(error_number))));
  }
  if (on_failure_ == Failure::EndsRun && interrupt_.requests == 0) interrupt_.requests = 1;
}

void Output::throw_if_failed() const {
  if (failure_) std::rethrow_exception(failure_);
}

}  // namespace varnholt::app
