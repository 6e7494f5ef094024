// Children that go wrong: what happens to each, where, and at which of its candidates, is drawn by
// the parent right before it forks.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"

namespace varnholt::embedded::test {

enum class Stage {
  AfterFork,
  BeforeSignal,
  InSignal,
  InBacktest,
  BeforeResult,
  InResult,
  AfterResult,
  Count
};

enum class Fault {
  Kill,
  Segv,
  Abort,
  ExitZero,
  ExitThree,
  Exception,
  Silence,  // An exception without a text that is no std::exception.
  Memory,
  PartialWrite,
  ClosedPipe,
  Hang,
  Spin,
  Stop,
  Count
};

struct Plan {
  bool is_set = false;
  Stage stage = Stage::AfterFork;
  Fault fault = Fault::Kill;
  int candidate = 1;  // Of the child, counted from 1.
};

// The system calls of a batch whose children may be struck.
class FaultySystem : public RealSystemCalls {
 public:
  void seed(std::uint64_t seed) { random_.seed(seed); }
  // The share of the children that are struck, and whether they may hang until the time-out.
  void set_rates(double share, bool may_hang) {
    share_ = share;
    may_hang_ = may_hang;
  }

  // Before the fork after so many others, the user asks to stop, or to leave at once.
  void interrupt_before_fork(int forks, InterruptFlag& interrupt, int requests) {
    before_fork_ = {forks, &interrupt, requests};
  }
  void interrupt_no_more() { before_fork_ = {}; }
  // At most so many of a child's candidates have a chance to be the one that it is struck at.
  void set_candidates_per_worker(int candidates) { candidates_per_worker_ = candidates; }

  pid_t fork() override {
    plan_ = draw_plan();
    if (before_fork_.interrupt != nullptr && before_fork_.forks-- == 0) {
      before_fork_.interrupt->requests = before_fork_.requests;
    }
    const pid_t pid = RealSystemCalls::fork();
    if (pid == 0) is_child_ = true;
    return pid;
  }
  int setpgid(pid_t pid, pid_t group) override {
    play(Stage::AfterFork);
    return RealSystemCalls::setpgid(pid, group);
  }
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
    if (!is_child_) return RealSystemCalls::write(descriptor, bytes, size);
    const Stage stage = is_evaluated_ ? Stage::InResult : Stage::InSignal;
    // A signal is one atomic write, which a pipe takes whole or not at all; a result may be torn.
    if (is_due(stage) && stage == Stage::InResult && plan_.fault == Fault::PartialWrite) {
      static_cast<void>(RealSystemCalls::write(descriptor, bytes, size / 2));
      ::kill(::getpid(), SIGKILL);
    }
    if (is_due(stage) && plan_.fault == Fault::ClosedPipe) ::close(descriptor);
    if (plan_.fault != Fault::ClosedPipe) play(stage);
    const ssize_t written = RealSystemCalls::write(descriptor, bytes, size);
    if (is_evaluated_) play(Stage::AfterResult);
    return written;
  }

  // In a child at that stage: what is drawn for it happens.
  void play(Stage stage) {
    if (!is_due(stage)) return;
    switch (plan_.fault) {
      case Fault::Segv:
        return strike(SIGSEGV);
      case Fault::Abort:
        return strike(SIGABRT);
      case Fault::ExitZero:
        ::_exit(0);
      case Fault::ExitThree:
        ::_exit(3);
      case Fault::Hang:
        while (true)
          ::pause();
      case Fault::Spin:
        ::signal(SIGTERM, SIG_IGN);
        while (true) {
        }
      case Fault::Stop:
        return strike(SIGSTOP);
      case Fault::Exception:
      case Fault::Silence:
      case Fault::Memory:
        // Only an evaluation can throw.
        if (stage == Stage::BeforeSignal || stage == Stage::InBacktest ||
            stage == Stage::BeforeResult) {
          return fail();
        }
        return strike(SIGKILL);
      case Fault::Kill:
      case Fault::PartialWrite:
      case Fault::ClosedPipe:
      case Fault::Count:
        return strike(SIGKILL);
    }
  }
  // In a child: it turns to a candidate. What it writes then is a signal,
  void note_candidate() {
    ++candidate_;
    is_evaluated_ = false;
  }
  // and from here on its result.
  void note_evaluated() { is_evaluated_ = true; }

 private:
  [[nodiscard]] bool is_due(Stage stage) const {
    const bool is_at = stage == Stage::AfterFork || candidate_ == plan_.candidate;
    return is_child_ && plan_.is_set && plan_.stage == stage && is_at;
  }
  [[nodiscard]] Plan draw_plan() {
    if (std::uniform_real_distribution<double>(0.0, 1.0)(random_) >= share_) return {};
    const auto below = [this](int count) {
      return static_cast<int>(random_() % static_cast<unsigned>(count));
    };
    // Those that hang are the last in the list: each costs a whole time-out.
    const auto faults = static_cast<int>(may_hang_ ? Fault::Count : Fault::Hang);
    const auto stage = static_cast<Stage>(below(static_cast<int>(Stage::Count)));
    const auto fault = static_cast<Fault>(below(faults));
    const int candidate = 1 + below(candidates_per_worker_);
    // Memory has no limit where the sanitizer takes so much of it.
    if (kUnderAddressSanitizer && fault == Fault::Memory) {
      return {true, stage, Fault::Kill, candidate};
    }
    return {true, stage, fault, candidate};
  }
  static void strike(int signal) { ::kill(::getpid(), signal); }
  void fail() const {
    if (plan_.fault == Fault::Exception) throw std::runtime_error("on purpose");
    if (plan_.fault == Fault::Silence) throw plan_;
    // More than the limit of a worker, in pieces that are never touched.
    try {
      std::vector<std::unique_ptr<char[]>> taken;
      constexpr std::size_t kPiece = std::size_t{64} * 1024 * 1024;
      while (taken.size() < 1024)
        taken.emplace_back(new char[kPiece]);
    } catch (const std::bad_alloc&) {
      throw OutOfMemory();
    }
    throw std::logic_error("a worker had no limit of memory");
  }

  struct BeforeFork {
    int forks = 0;
    InterruptFlag* interrupt = nullptr;
    int requests = 0;
  };

  std::mt19937_64 random_;
  BeforeFork before_fork_;
  double share_ = 0.0;
  bool may_hang_ = false;
  int candidates_per_worker_ = 1;
  Plan plan_;
  bool is_child_ = false;
  int candidate_ = 0;
  bool is_evaluated_ = false;
};

// The context of a search whose evaluations may be struck.
class FaultyContext : public EmbeddedContext {
 public:
  FaultyContext(const Evaluator& evaluator, const ContextSettings& settings,
                std::shared_ptr<SearchStop> stop, ResultRecorder& recorder,
                SignalSubmission& submission, ProcessSide& process, FaultySystem& system)
      : EmbeddedContext(evaluator, settings, std::move(stop), recorder, submission, process),
        process_(process),
        system_(system) {}

  [[nodiscard]] genetic::Callable evaluate_for_template() override {
    return genetic::make_callable(
        [this, evaluate = EmbeddedContext::evaluate_for_template()](
            std::span<const genetic::Value> positional, const genetic::Mapping&) {
          system_.note_candidate();
          note_backtest_started(false);
          system_.play(Stage::BeforeSignal);
          announce();
          note_backtest_started(true);
          system_.play(Stage::InBacktest);
          genetic::Value result = evaluate({positional[0]});
          system_.play(Stage::BeforeResult);
          system_.note_evaluated();
          return result;
        });
  }

 private:
  // The evidence, as the evaluator leaves it at these moments.
  void note_backtest_started(bool has_started) {
    activate_existing_attempt({}, genetic::Mapping{{genetic::keys::kBacktestStarted, has_started},
                                                   {genetic::keys::kBacktestCompleted, false}});
  }
  // The evaluator says so a second time, and is let in again.
  void announce() {
    const auto marker = genetic::operation_names::kWriteEvaluationAttemptMarker.view();
    genetic::callable_of(process_.engine_operations->required_attribute(marker))(
        {genetic::Value("run_backtest")});
  }

  ProcessSide& process_;
  FaultySystem& system_;
};

}  // namespace varnholt::embedded::test
