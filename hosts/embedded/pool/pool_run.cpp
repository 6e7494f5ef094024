#include "hosts/embedded/pool/pool_run.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/pool/child_process.hpp"
#include "hosts/embedded/pool/frame.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::int64_t kTurnNanoseconds = 5'000'000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr double kNanosecondsPerSecond = 1e9;
// Longer limits are as good as none and would overflow the clock.
constexpr double kLongestSeconds = 1e9;
// Turns of the loop that a worker may fail to start while no other runs whose end could help.
constexpr int kLaunchTries = 20;
// Turns that poll(2) may fail for want of memory before the run is given up.
constexpr int kPollTries = 1000;
constexpr const char* kStopped = "the run was stopped";

std::int64_t nanoseconds(double seconds) {
  return static_cast<std::int64_t>(std::min(seconds, kLongestSeconds) * kNanosecondsPerSecond);
}

double seconds(std::int64_t nanoseconds) {
  return static_cast<double>(std::max<std::int64_t>(nanoseconds, 0)) / kNanosecondsPerSecond;
}

void refuse_threads(SystemCalls& system) {
  const int threads = system.thread_count();
  if (threads == 1) return;
  if (threads < 0) {
    throw PoolError(
        fmt::format("worker pool: the threads of this process cannot be counted in /proc/self/task "
                    "({}); mount /proc",
                    std::strerror(errno)));
  }
  throw PoolError(
      fmt::format("worker pool: this process has {} threads, and a lock that another thread holds "
                  "would stay locked "
                  "in a forked child; end the other threads before the pool runs",
                  threads));
}

// Reads the whole frame of a worker into its outcome.
void read_answer(FrameDecoder& frame, PoolOutcome& outcome) {
  std::string payload = frame.take_payload();
  if (frame.kind() == FrameKind::Result) {
    outcome.status = PoolStatus::Completed;
    outcome.detail.clear();
    outcome.payload = std::move(payload);
    return;
  }
  outcome.status = PoolStatus::WorkerFailed;
  std::optional<FrameError> error = decode_error(payload);
  if (!error) {
    outcome.detail = "worker result was damaged: its error text is malformed";
  } else if (frame.kind() == FrameKind::NotPrepared) {
    outcome.was_not_started = true;
    outcome.detail = "worker could not be prepared: " + error->text;
  } else if (frame.kind() == FrameKind::PriorityFailed) {
    outcome.status = PoolStatus::PriorityFailed;
    outcome.detail = "worker could not be given its priority: " + error->text;
  } else {
    outcome.status = PoolStatus::WorkRaised;
    outcome.error_type = std::move(error->type);
    outcome.detail = std::move(error->text);
  }
}

}  // namespace

PoolRun::PoolRun(SystemCalls& system, const PoolConfig& config, const Work& work,
                 const PoolCallbacks& callbacks, std::size_t item_count)
    : system_(system),
      config_(config),
      work_(work),
      callbacks_(callbacks),
      outcomes_(item_count),
      changed_signals_(changed_signals()) {
  for (std::size_t index = 0; index < item_count; ++index) {
    waiting_.push_back({.item = {index, 0}});
  }
  const auto jobs = static_cast<std::size_t>(config.jobs);
  workers_.reserve(std::min(item_count, jobs));
  // No worker gets so many that another would have none.
  items_per_worker_ = std::clamp<std::size_t>((item_count + jobs - 1) / jobs, 1,
                                              static_cast<std::size_t>(config.items_per_worker));
}

std::vector<PoolOutcome> PoolRun::conduct() {
  while (completed_ < outcomes_.size()) {
    if (callbacks_.stop_requested && callbacks_.stop_requested()) {
      stop();
      break;
    }
    launch();
    if (workers_.empty() && !find_next()) {
      stop();
      break;
    }
    wait();
    for (const std::unique_ptr<Worker>& worker : workers_) {
      worker->drain();
    }
    if (callbacks_.poll_callback) callbacks_.poll_callback();
    act();
  }
  return std::move(outcomes_);
}

void PoolRun::pause() const {
  if (callbacks_.pause_callback) callbacks_.pause_callback();
}

bool PoolRun::is_held() {
  if (!held_ && callbacks_.hold_requested) held_ = callbacks_.hold_requested();
  return held_;
}

bool PoolRun::find_next() {
  const auto was_begun = [](const Waiting& one) { return one.has_come_back || one.is_dispatched; };
  if (waiting_.empty()) return false;
  if (was_begun(waiting_.front()) || !is_held()) return true;
  // Retries stand behind the items that are held back now.
  const auto begun = std::find_if(waiting_.begin(), waiting_.end(), was_begun);
  if (begun == waiting_.end()) return false;
  std::rotate(waiting_.begin(), begun, begun + 1);
  return true;
}

std::size_t PoolRun::next_share() const {
  if (waiting_.front().has_come_back) return 1;
  const auto end =
      waiting_.begin() + static_cast<std::ptrdiff_t>(std::min(waiting_.size(), items_per_worker_));
  const auto come_back =
      std::find_if(waiting_.begin(), end, [](const Waiting& one) { return one.has_come_back; });
  return static_cast<std::size_t>(come_back - waiting_.begin());
}

void PoolRun::dispatch(std::size_t share) {
  for (std::size_t i = 0; i < share; ++i) {
    if (std::exchange(waiting_[i].is_dispatched, true)) continue;
    if (callbacks_.dispatch_callback) callbacks_.dispatch_callback(waiting_[i].item);
  }
}

void PoolRun::launch() {
  while (workers_.size() < static_cast<std::size_t>(config_.jobs) && find_next()) {
    const std::size_t share = next_share();
    dispatch(share);
    const std::optional<LaunchFailure> failure = start_worker(share);
    if (!failure) {
      const Waiting first = waiting_.front();
      waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(share));
      failed_launches_ = 0;
      if (!first.is_started) tell_started(first.item, workers_.back()->pid());
      continue;
    }
    // What is short (processes, descriptors, memory) may come free: at once when a worker ends, or
    // in another part of the machine a few turns later.
    if (!workers_.empty() || ++failed_launches_ < kLaunchTries) return;
    failed_launches_ = 0;
    give_up_front(*failure);
  }
}

void PoolRun::give_up_front(const LaunchFailure& failure) {
  PoolOutcome outcome;
  outcome.index = waiting_.front().item.index;
  outcome.attempt = waiting_.front().item.attempt;
  outcome.status = PoolStatus::WorkerFailed;
  outcome.was_not_started = true;
  outcome.detail = fmt::format("worker could not be started: {}, {} times in a row; {}",
                               failure.text(), kLaunchTries, failure.remedy());
  waiting_.pop_front();
  complete(std::move(outcome));
}

std::optional<LaunchFailure> PoolRun::start_worker(std::size_t share) {
  refuse_threads(system_);
  pause();
  Worker::StartOptions options;
  options.limits = {config_.memory_limit_bytes, config_.cpu_limit_seconds,
                    config_.file_size_limit_bytes};
  options.nice = config_.nice;
  options.pipe_capacity_bytes = config_.pipe_capacity_bytes;
  options.foreign_descriptors = callbacks_.watched_descriptors;
  options.changed_signals = changed_signals_;
  for (const std::unique_ptr<Worker>& other : workers_) {
    if (other->pipe_number() >= 0) options.foreign_descriptors.push_back(other->pipe_number());
    if (other->pidfd_number() >= 0) options.foreign_descriptors.push_back(other->pidfd_number());
  }
  std::vector<WorkItem> items;
  items.reserve(share);
  for (std::size_t i = 0; i < share; ++i)
    items.push_back(waiting_[i].item);
  // The worker has its place before there is a process, so that nothing can lose it.
  workers_.push_back(
      std::make_unique<Worker>(system_, std::move(items), config_.result_limit_bytes));
  const std::optional<LaunchFailure> failure = workers_.back()->start(work_, std::move(options));
  if (failure) workers_.pop_back();
  return failure;
}

void PoolRun::wait() {
  pause();
  // Only what is open: poll(2) refuses more entries than a process may have descriptors.
  poll_entries_.clear();
  const auto watch = [this](int descriptor) {
    if (descriptor >= 0) poll_entries_.push_back({descriptor, POLLIN, 0});
  };
  for (const std::unique_ptr<Worker>& worker : workers_)
    watch(worker->pidfd_number());
  for (const std::unique_ptr<Worker>& worker : workers_)
    watch(worker->pipe_number());
  for (const int descriptor : callbacks_.watched_descriptors)
    watch(descriptor);
  const int ready = system_.poll(poll_entries_.data(), poll_entries_.size(), wait_milliseconds());
  if (ready < 0) {
    // An interrupted turn is a turn in which nothing was seen. POSIX allows EAGAIN for ENOMEM.
    if (errno != EINTR && ((errno != EAGAIN && errno != ENOMEM) || ++failed_polls_ >= kPollTries)) {
      throw PoolError(fmt::format(
          "worker pool: waiting for {} workers failed with errno {} ({}); run with fewer jobs",
          workers_.size(), errno, std::strerror(errno)));
    }
    return;
  }
  failed_polls_ = 0;
  auto entry = poll_entries_.begin();
  for (const std::unique_ptr<Worker>& worker : workers_) {
    if (worker->pidfd_number() >= 0 && (entry++)->revents != 0) worker->note_exit();
    worker->look_for_exit();
  }
}

int PoolRun::wait_milliseconds() const {
  std::int64_t longest = kTurnNanoseconds;
  const std::int64_t now = system_.monotonic_nanoseconds();
  for (const std::unique_ptr<Worker>& worker : workers_) {
    if (const auto end = deadline(*worker)) {
      longest = std::clamp<std::int64_t>(*end - now, 0, longest);
    }
  }
  return static_cast<int>((longest + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond);
}

std::optional<std::int64_t> PoolRun::deadline(Worker& worker) const {
  if (const auto closed = worker.closed_nanoseconds()) {
    return *closed + nanoseconds(config_.exit_grace_seconds);
  }
  if (!config_.timeout_seconds) return std::nullopt;
  return worker.started_nanoseconds() + nanoseconds(*config_.timeout_seconds);
}

bool PoolRun::is_over(Worker& worker) const {
  if (worker.has_exited() || worker.decoder().state() == FrameDecoder::State::Damaged) return true;
  const auto end = deadline(worker);
  return end && system_.monotonic_nanoseconds() >= *end;
}

void PoolRun::act() {
  // Ended workers are taken out first: a callback may throw, and must find the rest in order.
  const std::vector<std::unique_ptr<Worker>> ended = take_ended();
  for (const std::unique_ptr<Worker>& worker : workers_) {
    tell_results(*worker);
  }
  for (const std::unique_ptr<Worker>& worker : ended) {
    end(*worker);
  }
}

std::vector<std::unique_ptr<Worker>> PoolRun::take_ended() {
  std::vector<std::unique_ptr<Worker>> ended;
  for (std::unique_ptr<Worker>& worker : workers_) {
    if (!is_over(*worker)) continue;
    // A worker at its limit gets a last look: what is in the pipe now was in time.
    if (!worker->has_exited()) worker->drain();
    if (worker->has_results() && !is_over(*worker)) continue;
    ended.push_back(std::move(worker));
  }
  std::erase(workers_, nullptr);
  return ended;
}

void PoolRun::tell_results(Worker& worker) {
  for (Worker::Result& result : worker.take_results()) {
    PoolOutcome outcome;
    outcome.index = result.item.index;
    outcome.attempt = result.item.attempt;
    outcome.pid = worker.pid();
    outcome.elapsed_seconds = seconds(result.nanoseconds);
    outcome.status = PoolStatus::Completed;
    outcome.payload = std::move(result.payload);
    complete(std::move(outcome));
    tell_started(result.next, worker.pid());
  }
}

void PoolRun::tell_started(const WorkItem& item, pid_t pid) {
  if (callbacks_.started_callback) callbacks_.started_callback(item, pid);
}

void PoolRun::end(Worker& worker) {
  PoolOutcome outcome = conclude(worker);
  tell_results(worker);
  const std::span<const WorkItem> rest = worker.rest();
  for (auto item = rest.rbegin(); item != rest.rend(); ++item) {
    waiting_.push_front({.item = *item, .has_come_back = true, .is_dispatched = true});
  }
  settle(std::move(outcome), worker.is_at_first_item());
}

PoolOutcome PoolRun::conclude(Worker& worker) {
  const bool without_answer =
      !worker.has_exited() && worker.decoder().state() == FrameDecoder::State::Incomplete;
  const bool gave_up = without_answer && worker.closed_nanoseconds().has_value();
  // Decided before the kill: what comes through since then is late and does not count.
  if (without_answer) worker.refuse_more();
  worker.finish();

  PoolOutcome outcome = outcome_of(worker);
  if (gave_up) {
    outcome.status = PoolStatus::WorkerFailed;
    outcome.detail = worker.read_failure().empty()
                         ? "worker closed its pipe without a whole result and did not exit"
                         : "worker was ended because " + worker.read_failure();
  } else if (without_answer) {
    outcome.status = PoolStatus::WorkerTimedOut;
    outcome.detail = fmt::format("worker had no result after {} seconds and was killed",
                                 *config_.timeout_seconds);
  } else if (worker.decoder().state() == FrameDecoder::State::Whole) {
    read_answer(worker.decoder(), outcome);
  } else {
    outcome.status = PoolStatus::WorkerFailed;
    outcome.detail = worker.failure_text();
  }
  return outcome;
}

PoolOutcome PoolRun::outcome_of(const Worker& worker) const {
  PoolOutcome outcome;
  outcome.index = worker.item().index;
  outcome.attempt = worker.item().attempt;
  outcome.pid = worker.pid();
  outcome.elapsed_seconds = seconds(system_.monotonic_nanoseconds() - worker.started_nanoseconds());
  outcome.detail = kStopped;
  return outcome;
}

void PoolRun::settle(PoolOutcome outcome, bool is_first_of_worker) {
  const WorkItem item{outcome.index, outcome.attempt};
  if (outcome.status == PoolStatus::WorkRaised && !is_first_of_worker) {
    // It may have met what the items before it left behind, their memory most often. Alone the same
    // attempt shows what it does by itself.
    waiting_.push_front(
        {.item = item, .has_come_back = true, .is_dispatched = true, .is_started = true});
    return;
  }
  if (outcome.status != PoolStatus::WorkerFailed || outcome.attempt >= config_.max_retries) {
    return complete(std::move(outcome));
  }
  // Behind the others: what the worker was lost to (memory, most often) gets time to pass.
  waiting_.push_back({.item = {item.index, item.attempt + 1}, .has_come_back = true});
  if (callbacks_.lost_callback) callbacks_.lost_callback(outcome);
}

void PoolRun::complete(PoolOutcome outcome) {
  PoolOutcome& place = outcomes_[outcome.index];
  place = std::move(outcome);
  ++completed_;
  if (callbacks_.completed_callback) callbacks_.completed_callback(place);
}

void PoolRun::stop() {
  for (const std::unique_ptr<Worker>& worker : workers_) {
    worker->drain();
  }
  kill_all();
  std::vector<PoolOutcome> rest;
  const auto cancel = [&rest](const WorkItem& item) {
    PoolOutcome& outcome = rest.emplace_back();
    outcome.index = item.index;
    outcome.attempt = item.attempt;
    outcome.detail = kStopped;
  };
  for (const std::unique_ptr<Worker>& worker : workers_) {
    tell_results(*worker);
    // An answer that would not count now (see settle) does not count here.
    const bool counts =
        worker->decoder().state() == FrameDecoder::State::Whole &&
        (worker->is_at_first_item() || worker->decoder().kind() == FrameKind::Result);
    rest.push_back(counts ? conclude(*worker) : outcome_of(*worker));
    for (const WorkItem& item : worker->rest())
      cancel(item);
  }
  workers_.clear();
  for (const Waiting& waiting : waiting_)
    cancel(waiting.item);
  waiting_.clear();
  std::sort(rest.begin(), rest.end(), [](const PoolOutcome& left, const PoolOutcome& right) {
    return left.index < right.index;
  });
  for (PoolOutcome& outcome : rest) {
    complete(std::move(outcome));
  }
}

}  // namespace varnholt::embedded
