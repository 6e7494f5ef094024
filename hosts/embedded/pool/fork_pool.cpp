#include "hosts/embedded/pool/fork_pool.hpp"

#include <cmath>

#include <fmt/format.h>
#include <signal.h>

#include "hosts/embedded/pool/pool_run.hpp"

namespace varnholt::embedded {
namespace {

void check_seconds(const char* field, double seconds) {
  if (std::isfinite(seconds) && seconds > 0) return;
  throw PoolError(fmt::format("worker pool: {} is {}; it must be a positive number of seconds",
                              field, seconds));
}

void check(const PoolConfig& config) {
  if (config.jobs < 1) {
    throw PoolError(fmt::format("worker pool: jobs is {}; it must be at least 1", config.jobs));
  }
  if (config.items_per_worker < 1) {
    throw PoolError(fmt::format("worker pool: items_per_worker is {}; it must be at least 1",
                                config.items_per_worker));
  }
  if (config.max_retries < 0) {
    throw PoolError(
        fmt::format("worker pool: max_retries is {}; it must not be negative", config.max_retries));
  }
  if (config.timeout_seconds && *config.timeout_seconds != 0.0) {
    check_seconds("timeout_seconds", *config.timeout_seconds);
  }
  check_seconds("exit_grace_seconds", config.exit_grace_seconds);
}

void refuse_ignored_children() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) != 0) return;
  const bool ignored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
  if (!ignored && (action.sa_flags & SA_NOCLDWAIT) == 0) return;
  throw PoolError(
      "worker pool: this process ignores SIGCHLD, so the ends of its children would be lost; set "
      "the "
      "signal to its default action first");
}

}  // namespace

ForkPool::ForkPool(SystemCalls& system, const PoolConfig& config)
    : system_(system), config_(config) {
  check(config_);
}

std::vector<PoolOutcome> ForkPool::run(std::size_t item_count, const Work& work,
                                       const PoolCallbacks& callbacks) const {
  refuse_ignored_children();
  return PoolRun(system_, config_, work, callbacks, item_count).conduct();
}

}  // namespace varnholt::embedded
