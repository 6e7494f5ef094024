// Writing to a descriptor in such a way that a run outlives its reader.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// What was written did not arrive: a full disk, a device that refuses.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The reader of the output went away, as `head` does when it has enough.
class ReaderGone : public OutputError {
 public:
  using OutputError::OutputError;
};

// Unbuffered, so that a forked child has no text of its parent's to write a second time.
//
// The first write that fails is kept; later writes do nothing.
class Output {
 public:
  // What a failure means to the run. The one that ends it does so as a first interrupt would: a run
  // whose report cannot be written is still stored whole.
  enum class Failure { EndsRun, IsBorne };

  // `name` is the output's name in errors; `interrupt` must outlive this. The descriptor is not
  // owned.
  Output(int descriptor, std::string name, embedded::InterruptFlag& interrupt, Failure failure);

  // Waits while the descriptor takes nothing, but no longer than to the second interrupt: then it
  // throws InterruptedAtOnce.
  void write(std::string_view text);

  [[nodiscard]] bool has_failed() const noexcept { return failure_ != nullptr; }
  // Throws the OutputError of the first write that failed, if one did.
  void throw_if_failed() const;

 private:
  void wait_until_writable() const;
  void fail(int error_number);

  int descriptor_;
  std::string name_;
  embedded::InterruptFlag& interrupt_;
  Failure on_failure_;
  std::exception_ptr failure_;
};

}  // namespace varnholt::app
