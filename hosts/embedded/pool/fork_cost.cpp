#include "hosts/embedded/pool/fork_cost.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "hosts/embedded/pool/pool_types.hpp"
#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;

double one_fork(SystemCalls& system) {
  const std::int64_t begin = system.monotonic_nanoseconds();
  const pid_t child = system.fork();
  if (child == 0) ::_exit(0);
  if (child < 0) {
    throw PoolError(
        fmt::format("pool: fork failed with errno {} ({}); allow more processes "
                    "(ulimit -u) or more memory",
                    errno, std::strerror(errno)));
  }
  siginfo_t info{};
  while (system.waitid(child, &info, WEXITED) != 0 && errno == EINTR) {
  }
  return static_cast<double>(system.monotonic_nanoseconds() - begin) / kNanosecondsPerSecond;
}

// Memory of kTouchedBytes, touched, for as long as it lives.
class Touched {
 public:
  explicit Touched(int page_advice) {
    void* const memory = ::mmap(nullptr, ForkCost::kTouchedBytes, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw PoolError("pool: there is no memory to measure a fork with; allow this process more");
    }
    memory_ = memory;
    static_cast<void>(::madvise(memory_, ForkCost::kTouchedBytes, page_advice));
    std::memset(memory_, 1, ForkCost::kTouchedBytes);
  }
  Touched(const Touched&) = delete;
  Touched& operator=(const Touched&) = delete;
  ~Touched() { ::munmap(memory_, ForkCost::kTouchedBytes); }

  [[nodiscard]] const void* begin() const { return memory_; }

 private:
  void* memory_ = nullptr;
};

}  // namespace

double fork_seconds(SystemCalls& system, int forks) {
  std::vector<double> seconds;
  seconds.reserve(static_cast<std::size_t>(forks));
  for (int i = 0; i < forks; ++i)
    seconds.push_back(one_fork(system));
  const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
  std::nth_element(seconds.begin(), middle, seconds.end());
  return *middle;
}

ForkCost measure_fork_cost(SystemCalls& system, int forks) {
  ForkCost cost;
  cost.lean_seconds = fork_seconds(system, forks);
  {
    const Touched small(MADV_NOHUGEPAGE);
    cost.small_pages_seconds = fork_seconds(system, forks);
  }
  const Touched large(MADV_HUGEPAGE);
  prefer_large_pages(large.begin(), ForkCost::kTouchedBytes);
  cost.large_pages_seconds = fork_seconds(system, forks);
  return cost;
}

}  // namespace varnholt::embedded
