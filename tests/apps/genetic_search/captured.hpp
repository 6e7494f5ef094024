// What is written to an Output, for tests.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "apps/genetic_search/output.hpp"

namespace varnholt::app::test {

// An output that can be read at once.
class Captured {
 public:
  explicit Captured(embedded::InterruptFlag& interrupt)
      : ends_(open_pipe()), output(ends_[1], "the pipe", interrupt, Output::Failure::EndsRun) {}
  ~Captured() {
    for (const int end : ends_)
      close(end);
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  // What was written since the last call.
  [[nodiscard]] std::string take() const {
    std::array<char, 65536> buffer = {};
    const ssize_t size = read(ends_[0], buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(size > 0 ? size : 0)};
  }

 private:
  static std::array<int, 2> open_pipe() {
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("no pipe");
    return ends;
  }

  std::array<int, 2> ends_;

 public:
  Output output;
};

}  // namespace varnholt::app::test
