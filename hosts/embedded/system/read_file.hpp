// The bytes of a file: the one place where the host reads one.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>

#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

enum class ReadTrouble : std::uint8_t {
  None,
  IsFolder,
  CannotBeOpened,
  CannotBeReadToItsEnd,
  IsTooLarge,
  IsDevice,
  HasNoWriter
};

// "is a folder", "cannot be opened: No such file or directory" and so on: the caller, who knows
// what the file is for, puts its name before this and the remedy behind it.
struct FileBytes {
  std::string bytes;  // Whole only without trouble.
  ReadTrouble trouble = ReadTrouble::None;
  int error = 0;                // The error number of a failed call.
  std::size_t limit_bytes = 0;  // The limit that it is beyond.

  [[nodiscard]] std::string trouble_text() const;
};

// How long a pipe may stay without anybody who writes it.
inline constexpr std::chrono::seconds kWaitForWriter{10};

// Reads the file from its beginning to its end, once. A file of more than `limit_bytes` is too
// large: it is not read at all where its size is known, and otherwise no further than that. It may
// be a pipe, which somebody must begin to write within `wait_for_writer`; devices, which may have
// no end, are not read. `check` is called several times a second, also while a pipe is waited for;
// what it throws leaves this.
[[nodiscard]] FileBytes read_file(const std::filesystem::path& path,
                                  std::size_t limit_bytes = std::numeric_limits<std::size_t>::max(),
                                  std::chrono::milliseconds wait_for_writer = kWaitForWriter,
                                  const InterruptCheck& check = {});

}  // namespace varnholt::embedded
