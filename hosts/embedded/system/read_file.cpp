#include "hosts/embedded/system/read_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnholt::embedded {
namespace {

constexpr std::size_t kReadBytes = std::size_t{64} * 1024;
// So that a large file is looked up from several times a second.
constexpr std::size_t kMostAtOnce = std::size_t{16} * 1024 * 1024;

// How many bytes are to be expected: those of a regular file are all taken at once, so that a large
// one is never held twice while the text grows.
std::size_t expected_bytes(const struct stat& status, std::size_t limit_bytes) {
  const bool is_sized = S_ISREG(status.st_mode) && status.st_size > 0;
  const std::size_t size = is_sized ? static_cast<std::size_t>(status.st_size) : kReadBytes;
  return std::min(size, limit_bytes) + 1;  // One more tells that the end has come.
}

// Whether there is something to read, or the end, before the time is over: absent is without limit.
// Waits a moment at a time, so that `check` is called while nothing comes.
bool is_readable(int descriptor, std::optional<std::chrono::milliseconds> limit,
                 const InterruptCheck& check) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kMoment{100};
  const Clock::time_point end = Clock::now() + limit.value_or(std::chrono::milliseconds(0));
  while (true) {
    if (check) check();
    auto wait = kMoment;
    if (limit) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      wait = std::clamp(left, std::chrono::milliseconds(0), kMoment);
    }
    struct pollfd polled = {descriptor, POLLIN, 0};
    const int ready = ::poll(&polled, 1, static_cast<int>(wait.count()));
    // Also where it can only fail: the read that follows tells why.
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (limit && Clock::now() >= end) return false;
  }
}

void read_all(int descriptor, std::size_t expected, std::size_t limit_bytes,
              const InterruptCheck& check, FileBytes& file) {
  std::size_t filled = 0;
  file.bytes.resize(expected);
  while (filled <= limit_bytes) {
    if (filled == file.bytes.size()) file.bytes.resize(filled + std::max(filled, kReadBytes));
    static_cast<void>(is_readable(descriptor, std::nullopt, check));
    const std::size_t wanted = std::min(file.bytes.size() - filled, kMostAtOnce);
    const ssize_t got = ::read(descriptor, file.bytes.data() + filled, wanted);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      file.trouble = ReadTrouble::CannotBeReadToItsEnd;
      file.error = errno;
    }
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
  }
  if (filled > limit_bytes) file.trouble = ReadTrouble::IsTooLarge;
  file.bytes.resize(filled);
}

// What may be read blocks from then on until there is something.
ReadTrouble trouble_of_kind(int descriptor, struct stat& status,
                            std::chrono::milliseconds wait_for_writer,
                            const InterruptCheck& check) {
  if (::fstat(descriptor, &status) != 0) return ReadTrouble::None;
  if (S_ISDIR(status.st_mode)) return ReadTrouble::IsFolder;
  if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) return ReadTrouble::IsDevice;
  if (S_ISFIFO(status.st_mode) && !is_readable(descriptor, wait_for_writer, check)) {
    return ReadTrouble::HasNoWriter;
  }
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  return ReadTrouble::None;
}

// Closed with its scope.
class OpenFile {
 public:
  explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { ::close(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace

std::string FileBytes::trouble_text() const {
  const auto with_error = [this](const char* text) {
    return error == 0 ? std::string(text) : fmt::format("{}: {}", text, std::strerror(error));
  };
  switch (trouble) {
    case ReadTrouble::IsFolder:
      return "is a folder";
    case ReadTrouble::CannotBeOpened:
      return with_error("cannot be opened");
    case ReadTrouble::CannotBeReadToItsEnd:
      return with_error("cannot be read to its end");
    case ReadTrouble::IsTooLarge:
      return fmt::format("is larger than {} bytes, the most that are read", limit_bytes);
    case ReadTrouble::IsDevice:
      return "is a device, not a file";
    case ReadTrouble::HasNoWriter:
      return "is a pipe that nobody writes to";
    case ReadTrouble::None:
      break;
  }
  return "can be read";
}

FileBytes read_file(const std::filesystem::path& path, std::size_t limit_bytes,
                    std::chrono::milliseconds wait_for_writer, const InterruptCheck& check) {
  FileBytes file;
  file.limit_bytes = limit_bytes;
  int descriptor = -1;
  do {
    // Opening a pipe must not wait for ever for somebody to write it.
    descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    file.trouble = ReadTrouble::CannotBeOpened;
    file.error = errno;
    return file;
  }
  const OpenFile open_file(descriptor);
  struct stat status {};
  file.trouble = trouble_of_kind(descriptor, status, wait_for_writer, check);
  if (S_ISREG(status.st_mode) && std::cmp_greater(status.st_size, limit_bytes)) {
    file.trouble = ReadTrouble::IsTooLarge;
  }
  if (file.trouble == ReadTrouble::None) {
    read_all(descriptor, expected_bytes(status, limit_bytes), limit_bytes, check, file);
  }
  return file;
}

}  // namespace varnholt::embedded
