#include "hosts/embedded/system/read_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnholt::embedded {
namespace {

constexpr std::size_t kReadBytes = std::size_t{64} * 1024;

// How many bytes are to be expected: those of a regular file are all taken at once, so that a large
// one is never held twice while the text grows.
std::size_t expected_bytes(const struct stat& status, std::size_t limit_bytes) {
  const bool is_sized = S_ISREG(status.st_mode) && status.st_size > 0;
  const std::size_t size = is_sized ? static_cast<std::size_t>(status.st_size) : kReadBytes;
  return std::min(size, limit_bytes) + 1;  // One more tells that the end has come.
}

void read_all(int descriptor, std::size_t expected, std::size_t limit_bytes, FileBytes& file) {
  std::size_t filled = 0;
  file.bytes.resize(expected);
  while (filled <= limit_bytes) {
    if (filled == file.bytes.size()) file.bytes.resize(filled + std::max(filled, kReadBytes));
    const ssize_t got = ::read(descriptor, file.bytes.data() + filled, file.bytes.size() - filled);
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
      return "is too large";
    case ReadTrouble::None:
      break;
  }
  return "can be read";
}

FileBytes read_file(const std::filesystem::path& path, std::size_t limit_bytes) {
  FileBytes file;
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    file.trouble = ReadTrouble::CannotBeOpened;
    file.error = errno;
    return file;
  }
  struct stat status {};
  if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    file.trouble = ReadTrouble::IsFolder;
  } else {
    try {
      read_all(descriptor, expected_bytes(status, limit_bytes), limit_bytes, file);
    } catch (...) {
      ::close(descriptor);
      throw;
    }
  }
  ::close(descriptor);
  return file;
}

}  // namespace varnholt::embedded
