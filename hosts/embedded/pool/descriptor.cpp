#include "hosts/embedded/pool/descriptor.hpp"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace varnholt::embedded {
namespace {

constexpr int kFirstOrdinaryDescriptor = 3;

// Moves a descriptor above the standard streams. Returns 0 or the error number.
int lift(SystemCalls& system, Descriptor& descriptor) {
  if (descriptor.number() >= kFirstOrdinaryDescriptor) return 0;
  const int lifted = system.fcntl(descriptor.number(), F_DUPFD_CLOEXEC, kFirstOrdinaryDescriptor);
  if (lifted < 0) return errno;
  descriptor = Descriptor(lifted);
  return 0;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = std::exchange(other.number_, kNone);
  }
  return *this;
}

void Descriptor::close() noexcept {
  if (number_ == kNone) return;
  const int saved = errno;
  ::close(std::exchange(number_, kNone));
  errno = saved;
}

int open_pipe(SystemCalls& system, Pipe& pipe) {
  int ends[2] = {-1, -1};
  if (system.pipe2(ends, O_CLOEXEC) != 0) return errno;
  Pipe opened{Descriptor(ends[0]), Descriptor(ends[1])};
  if (const int error = lift(system, opened.read_end); error != 0) return error;
  if (const int error = lift(system, opened.write_end); error != 0) return error;
  if (system.fcntl(opened.read_end.number(), F_SETFL, O_NONBLOCK) != 0) return errno;
  pipe = std::move(opened);
  return 0;
}

int write_all(SystemCalls& system, int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = system.write(descriptor, bytes.data(), bytes.size());
    if (written > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    // No device may take nothing of something for ever.
    if (written == 0) return EIO;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return errno;
    pollfd entry{descriptor, POLLOUT, 0};
    if (system.poll(&entry, 1, -1) < 0 && errno != EINTR && errno != EAGAIN) return errno;
  }
  return 0;
}

ReadResult read_some(SystemCalls& system, int descriptor, char* buffer, std::size_t size) noexcept {
  while (true) {
    const ssize_t got = system.read(descriptor, buffer, size);
    if (got >= 0) return {static_cast<std::size_t>(got), 0};
    if (errno != EINTR) return {0, errno};
  }
}

}  // namespace varnholt::embedded
