// The bytes of a file: the one place where the host reads one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>

namespace varnholt::embedded {

enum class ReadTrouble : std::uint8_t {
  None,
  IsFolder,
  CannotBeOpened,
  CannotBeReadToItsEnd,
  IsTooLarge
};

// "is a folder", "cannot be opened: No such file or directory" and so on: the caller, who knows
// what the file is for, puts its name before this and the remedy behind it.
struct FileBytes {
  std::string bytes;  // Whole only without trouble.
  ReadTrouble trouble = ReadTrouble::None;
  int error = 0;  // The error number of a failed call.

  [[nodiscard]] std::string trouble_text() const;
};

// Reads the file from its beginning to its end, once. A file of more than `limit_bytes` is too
// large, and is not read further than that. It need not be a regular file.
[[nodiscard]] FileBytes read_file(
    const std::filesystem::path& path,
    std::size_t limit_bytes = std::numeric_limits<std::size_t>::max());

}  // namespace varnholt::embedded
