#include "hosts/embedded/search/search_run.hpp"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/host/search_stop.hpp"
#include "hosts/embedded/host/signal_submission.hpp"
#include "hosts/embedded/search/member_measuring.hpp"
#include "hosts/embedded/search/report_workers.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/run_luck.hpp"
#include "hosts/embedded/search/run_recorder.hpp"
#include "hosts/embedded/search/search_setup.hpp"
#include "hosts/embedded/search/signal_report.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/system/memory_advice.hpp"
#include "search_templates/genetic/driver/genetic.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

// The terminal reasons of runs that did not come to a metrics record of their own.
constexpr const char* kFailed = "failed";

// The known formulas and the simple forms as well are offered by what came of them.
bool tells_archive(const SearchOptions& options) {
  return !options.has_no_archive || !options.has_no_known_formulas || !options.has_no_simple_forms;
}

RunRecorder::Settings recorder_settings(const SearchOptions& options, const RunData& data,
                                        const PoolIdentity& pool, SignalArchive& archive) {
  return {options.best_count, data.gates, options.config.limits, pool,
          tells_archive(options) ? &archive : nullptr};
}

HostSettings host_settings(const SearchOptions& options, SearchObserver& observer,
                           const genetic::Mapping& client_manifest, const RunData& data) {
  HostSettings settings;
  settings.making = making_options(options, data.book);
  settings.graphs = options.graphs;
  settings.graphs.constant_share = options.config.vocabulary.constant_share;
  settings.graphs.keeps_units = options.config.vocabulary.units;
  settings.gates = data.gates;
  settings.limits = options.config.limits;
  settings.seed = options.seed;
  settings.client_manifest = client_manifest;
  settings.log = [&observer](LogLevel level, std::string_view text) {
    observer.on_log(level, text);
  };
  return settings;
}

ContextSettings context_settings(const SearchOptions& options, SearchSetup& setup,
                                 const PoolIdentity& pool) {
  ContextSettings settings;
  settings.jobs = setup.jobs();
  settings.max_depth = options.graphs.max_depth;
  settings.gates = setup.data().gates;
  settings.limits = options.config.limits;
  settings.worker_memory_limit_bytes = options.worker_memory_limit_bytes;
  settings.worker_nice = options.worker_nice;
  settings.pool = pool;
  settings.known = &setup.known();
  settings.first_date = date_text(setup.data().whole.dates.front());
  settings.last_date = date_text(setup.data().plan.searched().last_date);
  return settings;
}

// What a search is conducted with, beside its options and what it has read.
struct Conduct {
  const SearchOptions& options;
  SearchObserver& observer;
  SearchSetup& setup;
  RunStore& store;
  std::shared_ptr<SearchStop> stop;
  PoolIdentity pool;
  SignalArchive& archive;
};

std::vector<std::string> date_texts(const std::vector<Date>& dates) {
  std::vector<std::string> texts;
  texts.reserve(dates.size());
  for (const Date date : dates)
    texts.push_back(date_text(date));
  return texts;
}

// The measuring of the pool's members and the settling of what is queued, which waits for it.
class Settling {
 public:
  Settling(const Conduct& conduct, SignalSubmission& submission, RunRecorder& recorder,
           const Eigen::ArrayXd& market_returns)
      : conduct_(conduct),
        submission_(submission),
        recorder_(recorder),
        market_returns_(market_returns),
        measuring_(conduct.store, conduct.setup.evaluator(), conduct.setup.system(), conduct.pool,
                   measuring_settings(conduct, recorder.run())) {}

  void settle() {
    settle_queue();
    // With many members it costs as much as a backtest: only when one has joined.
    if (!is_pool_told_ && tells_archive(conduct_.options)) {
      conduct_.archive.set_pool(submission_.member_behaviours(market_returns_));
    }
    is_pool_told_ = true;
  }

 private:
  void settle_queue() {
    // Another run on other prices may submit to the pool at any moment, also between the measuring
    // and the settling: then both are done again. What is left after that waits for the next time.
    constexpr int kMostRounds = 3;
    for (int round = 1; round <= kMostRounds; ++round) {
      measuring_.measure([this] { return conduct_.stop->cancels_evaluations(); },
                         [this](PoolMeasuring measuring) {
                           measuring.elapsed_seconds = conduct_.stop->elapsed_seconds();
                           conduct_.observer.on_measuring(measuring);
                         });
      const SyncReport report = submission_.sync();
      recorder_.settled(report);
      if (has_joined(report)) is_pool_told_ = false;
      if (!report.waits_for_measures() || conduct_.stop->cancels_evaluations()) return;
    }
  }

  static bool has_joined(const SyncReport& report) {
    return std::any_of(report.settled.begin(), report.settled.end(),
                       [](const SettledSubmission& signal) { return !signal.refusal; });
  }

  static MemberMeasuring::Settings measuring_settings(const Conduct& conduct, std::int64_t run) {
    const SearchOptions& options = conduct.options;
    return {run, conduct.setup.jobs(), options.timeout_seconds, options.worker_memory_limit_bytes,
            options.worker_nice};
  }

  const Conduct& conduct_;
  SignalSubmission& submission_;
  RunRecorder& recorder_;
  const Eigen::ArrayXd& market_returns_;
  MemberMeasuring measuring_;
  bool is_pool_told_ = false;  // To the archive, as it is now.
};

// The search itself, from the event of its beginning to its last settlement.
void conduct_run(const Conduct& conduct, Lineage& lineage, RunRecorder& recorder) {
  const auto& [options, observer, setup, store, stop, pool, archive] = conduct;
  SearchStarted started =
      started_event(options, setup.data(), setup.config(), store, recorder.run(), setup.jobs());
  if (options.continues) {
    started.known_structures = setup.known().count();
    started.earlier_signals = setup.earlier_signals();
  }
  observer.on_started(started);

  const Evaluator& evaluator = setup.evaluator();
  const Eigen::ArrayXd market =
      market_backtest(evaluator.close(), evaluator.options().book).net_returns;
  SignalSubmission submission(
      store, evaluator, pool, options.config.pool, market,
      [&store_ = store, run = recorder.run(), sides = sides_judged(evaluator)] {
        return sides * store_.trial_count(run);
      });
  HostSettings settings =
      host_settings(options, observer, client_manifest(setup.data(), recorder.run()), setup.data());
  Settling settling(conduct, submission, recorder, market);
  KnownBehaviours behaviours;
  settings.behaviours = &behaviours;
  settings.on_generation_end = [&recorder, &settling, &behaviours, &search_stop = *stop] {
    behaviours.settle();
    search_stop.count_generation();
    settling.settle();
    recorder.generation_done();
  };
  settings.is_stopping = [&search_stop = *stop] { return search_stop.cancels_evaluations(); };
  settings.known = &setup.known();
  if (tells_archive(options)) settings.archive = &archive;
  settings.fresh = {!options.has_no_archive, !options.has_no_known_formulas,
                    !options.has_no_simple_forms};
  EmbeddedHost host(setup.process(), setup.evaluator().vocabulary(), lineage, submission, settings);
  ContextSettings of_context = context_settings(options, setup, pool);
  of_context.market_returns = market;
  of_context.behaviours = &behaviours;
  EmbeddedContext context(setup.evaluator(), of_context, stop, recorder, submission,
                          setup.process());
  genetic::Module module(host);
  setup.process().pool.gather_writes(store.gathered_writes());

  // What a run that died left in the queue is settled before anything is measured.
  settling.settle();
  // Workers would copy the pages of what was freed on the way here when they take them.
  give_back_free_memory();
  module.run(context, setup.config());
  const Value& metrics = recorder.metrics();
  recorder.end(genetic::str(metrics.mapping().at(genetic::keys::kTerminalReason)));
  settling.settle();
}

// Closes a run that is left by an error. The error is what is told: where the store refuses to take
// the end as well, the next run that opens it closes this one.
void end_after_error(RunRecorder& recorder, SearchObserver& observer, const char* reason) {
  try {
    recorder.end(reason);
  } catch (const std::exception& error) {
    observer.on_log(LogLevel::Warning,
                    fmt::format("the run could not be closed in the store: {}", error.what()));
  }
}

// Where the store has failed, what the search tried after it has failed as well: the first of these
// errors is what went wrong. Without one, the error at hand leaves as it is.
[[noreturn]] void rethrow_first(const std::exception_ptr& first) {
  if (first) std::rethrow_exception(first);
  throw;
}

// Conducts the run and closes it in the store, whatever ends it.
void run_to_its_end(const Conduct& conduct, Lineage& lineage, RunRecorder& recorder) {
  try {
    conduct_run(conduct, lineage, recorder);
  } catch (const InterruptedAtOnce&) {
    end_after_error(recorder, conduct.observer, kInterrupted);
    throw;
  } catch (const StoreError&) {
    const std::exception_ptr first = conduct.store.first_failure();
    try {
      recorder.end(kFailed);
    } catch (const StoreError&) {
      // The same trouble once more: the first error says it.
    }
    rethrow_first(first);
  } catch (...) {
    end_after_error(recorder, conduct.observer, kFailed);
    throw;
  }
}

// The runs that evaluations belong to.
std::set<std::int64_t> runs_of(const std::vector<std::string>& eval_ids) {
  std::set<std::int64_t> found;
  for (const std::string& eval_id : eval_ids)
    found.insert(std::stoll(eval_id));  // It begins with the number of the run.
  return found;
}

// The pool keeps the split of its first run. Of two first runs that began at once the other one may
// have made it, after this one had looked.
void require_same_split(RunStore& store, const PoolIdentity& pool, const RunData& data) {
  const std::string own = date_text(data.holdout_from);
  const std::string kept = store.keep_holdout_from(pool, own);
  if (kept == own) return;
  throw EraError(
      fmt::format("another run has just begun the signal pool \"{}\" with a hold-out "
                  "from {} on, and this one would have it from {}; start this one again",
                  pool.signal_pool_name, kept, own));
}

}  // namespace

SearchSummary run_search(const SearchOptions& options, SearchObserver& observer,
                         const InterruptFlag& interrupt) {
  const auto stop = std::make_shared<SearchStop>(
      StopLimits{options.generations, options.candidates, options.seconds}, interrupt);
  SearchSetup setup(options, [&stop] { stop->check_before_run(); });
  stop->check_before_run();
  const RunData& data = setup.data();
  const PoolIdentity pool = pool_identity(options, data);

  const std::unique_ptr<RunStore> store = open_run_store(options.database.string());
  require_same_split(*store, pool, data);
  stop->begin_run();
  Lineage lineage;
  SignalArchive archive;
  RunRecorder recorder(*store, observer, lineage, *stop,
                       recorder_settings(options, data, pool, archive),
                       run_start(options, data, setup.config(), setup.jobs()));
  run_to_its_end({options, observer, setup, *store, stop, pool, archive}, lineage, recorder);

  SearchSummary summary;
  summary.run_id = recorder.run();
  summary.stop_cause = stop->cause();
  summary.progress = recorder.progress();
  summary.metrics = recorder.metrics();
  summary.best = recorder.best();
  const std::vector<Date> dates = data.whole.dates;
  const Evaluator whole = setup.take_whole_history();
  const FigureTaker taker(whole.close(), dates, data.plan, data.book);
  const auto is_cut = [&stop, before = static_cast<int>(interrupt.requests)] {
    return stop->ends_report(before);
  };
  ReportWorkers workers(setup.system(),
                        {setup.jobs(), options.worker_nice, setup.process().panel_bytes}, is_cut);
  summary.submitted = report_submitted_signals(*store, summary.run_id, whole, taker, workers);
  summary.luck =
      measure_luck(*store, summary.run_id, setup.evaluator(), summary.submitted, workers);
  if (!summary.submitted.empty()) store->record_price_days(summary.run_id, date_texts(dates));
  const std::vector<std::string> completed = complete_holdouts(*store, pool, whole, taker, workers);
  summary.completed_holdouts = std::ssize(completed);
  for (const std::int64_t run : runs_of(completed))
    store->record_price_days(run, date_texts(dates));
  summary.left_out = setup.known().left_out();
  summary.market = taker.market();
  summary.submissions = recorder.submissions();
  return summary;
}

}  // namespace varnholt::embedded
