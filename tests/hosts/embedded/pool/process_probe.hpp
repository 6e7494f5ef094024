// What the tests of the pool look at from outside: descriptors, children, and processes by number.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <sys/types.h>

namespace varnholt::embedded::test {

// GCC says it with a macro of its own, clang as a feature.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kUnderAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kUnderAddressSanitizer = true;
#else
inline constexpr bool kUnderAddressSanitizer = false;
#endif
#else
inline constexpr bool kUnderAddressSanitizer = false;
#endif

[[nodiscard]] std::size_t count_open_descriptors();

// Whether this process has any child, a zombie included.
[[nodiscard]] bool has_children();

// Waits until a process that need not be a child of ours has ended; false after 20 seconds.
[[nodiscard]] bool wait_until_gone(pid_t pid);

// Runs `body` in a forked process and returns its wait status; a thrown exception or a failed
// expectation of the body gives exit status 99.
[[nodiscard]] int run_forked(const std::function<void()>& body);

// Fails a test that leaves a descriptor open or a child behind.
class ProcessTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  std::size_t descriptors_before_ = 0;
};

}  // namespace varnholt::embedded::test
