// The price of the pool: one item through a forked child that does nothing, beside two bare loops
// of fork, pipe, read and wait. In the first the child prepares itself as the pool's children must
// (own group, death with the parent, signals, input from nothing); the pool's goal is at most 1.15
// times that one. In the second the child only writes and leaves, which shows what the preparation
// costs. All are run in turns of a few hundred forks, so that a busy machine slows all alike; the
// ratios are medians over the turns.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/pool/fork_pool.hpp"
#include "hosts/embedded/pool/frame.hpp"

namespace {

using varnholt::embedded::ForkPool;
using varnholt::embedded::PoolOutcome;
using varnholt::embedded::PoolStatus;
using varnholt::embedded::RealSystemCalls;
using varnholt::embedded::WorkItem;

constexpr std::size_t kForksPerTurn = 200;

enum class Child { Prepared, Plain };

void prepare_child(int read_end) {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() == 1) ::_exit(1);
  ::close(read_end);
  ::signal(SIGTERM, SIG_DFL);
  ::signal(SIGINT, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(nothing, STDIN_FILENO);
  ::close(nothing);
}

// The same bytes through the same calls, without any care for what may go wrong.
void bare_fork(Child kind) {
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  const pid_t pid = ::fork();
  if (pid < 0) std::abort();
  if (pid == 0) {
    if (kind == Child::Prepared) prepare_child(ends[0]);
    const std::array<char, varnholt::embedded::kFrameHeaderBytes + 1> bytes{};
    ::_exit(::write(ends[1], bytes.data(), bytes.size()) > 0 ? 0 : 1);
  }
  ::close(ends[1]);
  std::array<char, 65536> buffer;
  while (::read(ends[0], buffer.data(), buffer.size()) > 0) {
  }
  ::close(ends[0]);
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || status != 0) std::abort();
}

void bare_turn(Child kind) {
  for (std::size_t i = 0; i < kForksPerTurn; ++i) {
    bare_fork(kind);
  }
}

void pool_turn(const ForkPool& pool) {
  const std::vector<PoolOutcome> outcomes =
      pool.run(kForksPerTurn, [](const WorkItem&) { return std::string("x"); });
  for (const PoolOutcome& outcome : outcomes) {
    if (outcome.status != PoolStatus::Completed) std::abort();
  }
}

template <typename Turn>
double seconds(const Turn& turn) {
  const auto begin = std::chrono::steady_clock::now();
  turn();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The argument is how many mebibytes the parent has touched: they are what a fork really costs.
void fork_pool_beside_bare_loop(benchmark::State& state) {
  const std::string touched(static_cast<std::size_t>(state.range(0)) << 20, 'x');
  benchmark::DoNotOptimize(touched.data());
  RealSystemCalls system;
  const ForkPool pool(system, {.jobs = 1, .timeout_seconds = 60});
  std::vector<double> to_prepared;
  std::vector<double> to_plain;
  double total = 0;
  for ([[maybe_unused]] auto _ : state) {
    const double prepared = seconds([] { bare_turn(Child::Prepared); });
    const double pooled = seconds([&] { pool_turn(pool); });
    const double plain = seconds([] { bare_turn(Child::Plain); });
    total += pooled;
    to_prepared.push_back(pooled / prepared);
    to_plain.push_back(pooled / plain);
  }
  const double forks = static_cast<double>(kForksPerTurn * to_plain.size());
  state.counters["pool_us"] = total / forks * 1e6;
  state.counters["ratio"] = median(to_prepared);
  state.counters["ratio_to_plain_child"] = median(to_plain);
}

BENCHMARK(fork_pool_beside_bare_loop)->Arg(0)->Arg(16)->Arg(128)->Iterations(15)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
