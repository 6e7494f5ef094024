// What processes cost.
//
// - The price of the pool: one item through a forked child that does nothing, beside two bare loops
//   of fork, pipe, read and wait. In the first the child prepares itself as the pool's children
//   must (own group, death with the parent, signals, input from nothing); the pool's goal is at
//   most 1.15 times that one. In the second the child only writes and leaves, which shows what the
//   preparation costs. All are run in turns of a few hundred forks, so that a busy machine slows
//   all alike; the ratios are medians over the turns.
// - Candidates a second through the host's pool, by the number of jobs.
// - The rendezvous at the start of a backtest: from the child's signal until it has its answer.
// - Deadlines: from the moment at which a worker's time is over until it is killed and reaped, and
//   the next one is dispatched. The workers spin, and ignore SIGTERM.
// - A fork before and after a search has met 100,000 structures.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/host/embedded_pool.hpp"
#include "hosts/embedded/host/fork_queues.hpp"
#include "hosts/embedded/pool/fork_cost.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "hosts/embedded/pool/frame.hpp"
#include "hosts/embedded/system/parent_memory.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/population/seen_graph_keys.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"

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

// The value below which `share` of the values lie.
double quantile(std::vector<double> values, double share) {
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

using varnholt::embedded::EmbeddedPool;
using varnholt::embedded::ForkQueues;
using varnholt::genetic::Callable;
using varnholt::genetic::List;
using varnholt::genetic::Mapping;
using varnholt::genetic::Tuple;
using varnholt::genetic::Value;
namespace genetic = varnholt::genetic;
namespace keys = varnholt::genetic::keys;

genetic::ProcessEvaluationConfig pool_configuration(EmbeddedPool& pool, std::int64_t workers) {
  genetic::ProcessEvaluationConfig config;
  config.n_jobs = workers;
  config.worker_processes = workers;
  config.max_retries = 0;
  config.timeout_seconds = 60.0;
  config.worker_memory_limit_bytes = pool.default_worker_memory_limit_bytes();
  return config;
}

Callable operation(genetic::CallableFunction function) {
  return genetic::make_callable(std::move(function));
}

List candidates_of(EmbeddedPool& pool, std::int64_t count) {
  List candidates;
  for (std::int64_t index = 0; index < count; ++index)
    candidates.append(pool.candidate_evaluation(index, Mapping()));
  return candidates;
}

// The first argument is the number of workers; the second how many microseconds of work each
// candidate takes.
void candidates_through_the_pool(benchmark::State& state) {
  constexpr std::int64_t kCandidates = 64;
  RealSystemCalls system;
  ForkQueues queues(system);
  EmbeddedPool pool(system, queues, 60.0, [] {});
  const std::int64_t microseconds = state.range(1);
  const Callable simulate = operation([microseconds](std::span<const Value>, const Mapping&) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
    while (std::chrono::steady_clock::now() < end) {
    }
    return Value(Mapping());
  });
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(
        pool.configure([&] { return pool_configuration(pool, state.range(0)); })
            ->evaluate_candidate_batch(candidates_of(pool, kCandidates), simulate));
  }
  state.counters["candidates_per_s"] = benchmark::Counter(
      static_cast<double>(kCandidates * state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(candidates_through_the_pool)
    ->ArgsProduct({{1, 2, 4}, {0, 5000}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void rendezvous(benchmark::State& state) {
  constexpr std::int64_t kCandidates = 100;
  RealSystemCalls system;
  std::vector<double> microseconds;
  for ([[maybe_unused]] auto _ : state) {
    ForkQueues queues(system);
    EmbeddedPool pool(system, queues, 60.0, [] {});
    const auto context = queues.fork_context();
    const auto boundary = context->simple_queue();
    std::vector<std::shared_ptr<genetic::MessageQueue>> answers;
    for (std::int64_t i = 0; i < kCandidates; ++i)
      answers.push_back(context->simple_queue());
    const Callable simulate = operation([&](std::span<const Value> positional, const Mapping&) {
      const Value index = genetic::required_attribute(positional[0], "candidate_index");
      const auto begin = std::chrono::steady_clock::now();
      boundary->put(Tuple{index, 0});
      static_cast<void>(answers[static_cast<std::size_t>(index.integer())]->get());
      const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - begin;
      return Value(Mapping{{"waited", waited.count()}});
    });
    genetic::ProcessEvaluationConfig config = pool_configuration(pool, state.range(0));
    const auto reader = boundary->reader();
    config.parent_poll_callback = operation([&](std::span<const Value>, const Mapping&) {
      while (reader->poll()) {
        const Value index = boundary->get().tuple().at(0);
        answers[static_cast<std::size_t>(index.integer())]->put(
            Tuple{index, 0, true, Value(), index});
      }
      return Value();
    });
    config.completed_result_callback =
        operation([&](std::span<const Value> positional, const Mapping&) {
          const Value payload = genetic::required_attribute(positional[0], "payload");
          microseconds.push_back(payload.mapping().at("waited").real() * 1e6);
          return Value();
        });
    benchmark::DoNotOptimize(
        pool.configure([&] { return config; })
            ->evaluate_candidate_batch(candidates_of(pool, kCandidates), simulate));
  }
  state.counters["median_us"] = quantile(microseconds, 0.5);
  state.counters["p99_us"] = quantile(microseconds, 0.99);
}

BENCHMARK(rendezvous)->Arg(1)->Arg(2)->Iterations(20)->UseRealTime();

void deadline_to_next_dispatch(benchmark::State& state) {
  constexpr std::size_t kItems = 40;
  constexpr double kLimitSeconds = 0.02;
  using Clock = std::chrono::steady_clock;
  RealSystemCalls system;
  std::vector<double> milliseconds;
  for ([[maybe_unused]] auto _ : state) {
    Clock::time_point started;
    varnholt::embedded::PoolCallbacks callbacks;
    callbacks.dispatch_callback = [&](const WorkItem& item) {
      if (item.index == 0) return;
      const std::chrono::duration<double> since = Clock::now() - started;
      milliseconds.push_back((since.count() - kLimitSeconds) * 1e3);
    };
    callbacks.started_callback = [&](const WorkItem&, pid_t) { started = Clock::now(); };
    benchmark::DoNotOptimize(ForkPool(system, {.jobs = 1, .timeout_seconds = kLimitSeconds})
                                 .run(
                                     kItems,
                                     [](const WorkItem&) -> std::string {
                                       ::signal(SIGTERM, SIG_IGN);
                                       while (true) {
                                       }
                                     },
                                     callbacks));
  }
  state.counters["median_ms"] = quantile(milliseconds, 0.5);
  state.counters["p99_ms"] = quantile(milliseconds, 0.99);
}

BENCHMARK(deadline_to_next_dispatch)->Iterations(10)->UseRealTime()->Unit(benchmark::kMillisecond);

// A graph of 20 nodes that no other number has.
Value numbered_graph(std::int64_t number) {
  Value graph = Mapping{{"node", "feature_" + std::to_string(number)}, {"type", "feature"}};
  for (int depth = 0; depth < 19; ++depth) {
    graph = Mapping{{"node", "ts_mean"}, {"type", "rotation"}, {"children", List{graph}}};
  }
  return graph;
}

// The argument says whether the keys lie in memory that children do not have.
void fork_after_many_candidates(benchmark::State& state) {
  constexpr std::int64_t kCandidates = 100'000;
  constexpr int kForks = 200;
  RealSystemCalls system;
  varnholt::embedded::ParentMemory parent_memory;
  double before = 0.0;
  double after = 0.0;
  for ([[maybe_unused]] auto _ : state) {
    before = varnholt::embedded::fork_seconds(system, kForks);
    genetic::SeenGraphKeys seen(state.range(0) != 0
                                    ? static_cast<std::pmr::memory_resource&>(parent_memory)
                                    : *std::pmr::new_delete_resource());
    for (std::int64_t i = 0; i < kCandidates; ++i)
      seen.insert(genetic::structural_key(numbered_graph(i)));
    after = varnholt::embedded::fork_seconds(system, kForks);
  }
  state.counters["first_us"] = before * 1e6;
  state.counters["later_us"] = after * 1e6;
  state.counters["ratio"] = after / before;
}

BENCHMARK(fork_after_many_candidates)->Arg(0)->Arg(1)->Iterations(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
