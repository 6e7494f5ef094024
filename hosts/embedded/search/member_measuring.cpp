#include "hosts/embedded/search/member_measuring.hpp"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/host/worker_count.hpp"
#include "hosts/embedded/system/machine_limits.hpp"
#include "hosts/embedded/system/wall_clock.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr genetic::Key kStatistics = genetic::key<"statistics">();
constexpr genetic::Key kPnl = genetic::key<"pnl">();
constexpr genetic::Key kSharpe = genetic::key<"sharpe">();

std::string problem_of(const PoolOutcome& outcome) {
  if (outcome.status != PoolStatus::WorkRaised) return outcome.detail;
  return outcome.detail.empty() ? outcome.error_type : outcome.detail;
}

// What a worker's result says of the member.
void take_result(const std::string& payload, NewMeasure& measure) {
  const Mapping result = read_json(payload).mapping();
  const Mapping statistics = result.at(kStatistics).mapping();
  const List pnl = result.at(kPnl).list();
  measure.statistics_json = genetic::json_text(statistics);
  measure.sharpe = genetic::tolerant_float(statistics.get(kSharpe));
  std::vector<double>& series = measure.pnl.emplace();
  series.reserve(pnl.size());
  for (std::size_t day = 0; day < pnl.size(); ++day)
    series.push_back(pnl.at(day).real());
}

}  // namespace

MemberMeasuring::MemberMeasuring(RunStore& store, const Evaluator& evaluator, SystemCalls& system,
                                 PoolIdentity pool, const Settings& settings)
    : store_(store),
      evaluator_(evaluator),
      system_(system),
      pool_(std::move(pool)),
      settings_(settings) {}

std::vector<UnmeasuredSubmission> MemberMeasuring::wanted() {
  std::vector<UnmeasuredSubmission> members = store_.submissions().unmeasured(pool_);
  std::erase_if(members,
                [this](const UnmeasuredSubmission& member) { return tried_.contains(member.id); });
  return members;
}

PoolConfig MemberMeasuring::pool_config(std::size_t members) const {
  WorkerDemand demand;
  demand.requested = settings_.jobs;
  demand.candidates = static_cast<std::int64_t>(members);
  PoolConfig config;
  if (settings_.worker_memory_limit_bytes) {
    config.memory_limit_bytes = static_cast<std::uint64_t>(*settings_.worker_memory_limit_bytes);
    demand.worker_memory_limit_bytes = config.memory_limit_bytes;
    demand.inherited_bytes = mapped_bytes().value_or(0);
  }
  config.jobs = static_cast<int>(ResolvedWorkers(demand, read_machine_limits()).count());
  config.timeout_seconds = settings_.timeout_seconds;
  config.nice = settings_.worker_nice;
  return config;
}

// In a child.
std::string MemberMeasuring::measured(const UnmeasuredSubmission& member) const {
  const BacktestResult result = evaluator_.evaluate(read_json(member.graph_json)).backtest;
  List pnl(static_cast<std::size_t>(result.net_returns.size()));
  for (const double earned : result.net_returns)
    pnl.append(earned);
  return genetic::json_text(
      Mapping{{kStatistics, statistics_mapping(result.statistics)}, {kPnl, pnl}});
}

bool MemberMeasuring::record(const UnmeasuredSubmission& member, const PoolOutcome& outcome) {
  NewMeasure measure;
  measure.submission = member.id;
  measure.data_key = pool_.data_key;
  measure.run = settings_.run;
  measure.measured_at = wall_clock_seconds();
  const bool is_computed = outcome.status == PoolStatus::Completed;
  if (is_computed) {
    take_result(outcome.payload, measure);
  } else {
    measure.problem = problem_of(outcome);
    tried_.insert(member.id);
  }
  store_.submissions().record_measure(measure);
  return is_computed;
}

void MemberMeasuring::measure(const StopQuestion& is_stopping, const Progress& progress) {
  const std::vector<UnmeasuredSubmission> members = wanted();
  if (members.empty()) return;
  PoolMeasuring told;
  told.members = static_cast<std::int64_t>(members.size());
  PoolCallbacks callbacks;
  callbacks.stop_requested = is_stopping;
  callbacks.poll_callback = [&] { progress(told); };
  callbacks.completed_callback = [&](const PoolOutcome& outcome) {
    if (outcome.status == PoolStatus::Cancelled) return;
    // Every other member would meet the same, and none of them is to blame.
    if (outcome.was_not_started || outcome.status == PoolStatus::PriorityFailed) {
      throw PoolError(fmt::format("no worker can be started for this search: {}", outcome.detail));
    }
    if (!record(members[outcome.index], outcome)) ++told.failed;
    ++told.done;
    progress(told);
  };
  const Work work = [&](const WorkItem& item) { return measured(members[item.index]); };
  static_cast<void>(
      ForkPool(system_, pool_config(members.size())).run(members.size(), work, callbacks));
  told.is_over = true;
  progress(told);
}

}  // namespace varnholt::embedded
