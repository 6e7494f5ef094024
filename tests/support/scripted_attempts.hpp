// The hand-made attempt tracker, markers, accounts and queues, which start no process. See
// scripted_host.hpp for how they are scripted.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/attempt_accounting.hpp"
#include "search_templates/genetic/host/attempt_markers.hpp"
#include "search_templates/genetic/host/attempt_tracker.hpp"
#include "search_templates/genetic/host/message_queue.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

// The fields of an attempt under their names, in their order.
[[nodiscard]] inline Mapping keywords_of(const NewAttempt& attempt) {
  return {{"product_run_id", attempt.product_run_id},
          {"source_path", attempt.source_path},
          {"graph", attempt.graph},
          {"algorithm", attempt.algorithm},
          {"rotation_identifier", attempt.rotation_identifier},
          {"era_number", attempt.era_number},
          {"market_id", attempt.market_id},
          {"data_shape", attempt.data_shape},
          {"expected_columns", attempt.expected_columns},
          {"eval_type", attempt.eval_type}};
}

[[nodiscard]] inline Mapping keywords_of(const AttemptEnd& end) {
  return {{"terminal_disposition", end.terminal_disposition},
          {"backtest_completed", end.backtest_completed},
          {"generated_stats", end.generated_stats},
          {"candidate_stats", end.candidate_stats},
          {"stats_construction_blocker", end.stats_construction_blocker},
          {"expected_columns", end.expected_columns},
          {"per_column_inventory", end.per_column_inventory},
          {"threshold_gate", end.threshold_gate},
          {"failure_category", end.failure_category},
          {"failure_reason", end.failure_reason},
          {"failure_detail", end.failure_detail},
          {"classification_source", end.classification_source}};
}

// Gives the identities "attempt-1", "attempt-2", ... Looking an operation up is a line of its own.
class ScriptedTracker : public AttemptTracker {
 public:
  explicit ScriptedTracker(CallLog& log) : log_(log) {}

  std::function<Value(const NewAttempt&)> on_create_simulation_attempt =
      [count = 0](const NewAttempt& /*attempt*/) mutable {
        return Value("attempt-" + std::to_string(++count));
      };
  std::function<void()> on_mark_simulation_attempt_dispatched = [] {};
  std::function<void()> on_mark_simulation_attempt_backtest_started = [] {};
  std::function<void(const Value&, const AttemptEnd&)> on_finalize_simulation_attempt =
      [](const Value& /*attempt_id*/, const AttemptEnd& /*end*/) {};

  [[nodiscard]] Create create_simulation_attempt() override {
    log_.add("tracker.create_simulation_attempt");
    return [this](const NewAttempt& attempt) {
      log_.add("tracker.create_simulation_attempt", {}, keywords_of(attempt));
      return on_create_simulation_attempt(attempt);
    };
  }
  [[nodiscard]] Finalize finalize_simulation_attempt() override {
    log_.add("tracker.finalize_simulation_attempt");
    return [this](const Value& attempt_id, const AttemptEnd& end) {
      log_.add("tracker.finalize_simulation_attempt", {attempt_id}, keywords_of(end));
      on_finalize_simulation_attempt(attempt_id, end);
    };
  }
  void mark_simulation_attempt_dispatched(const Value& attempt_id) override {
    log_.add("tracker.mark_simulation_attempt_dispatched", {attempt_id});
    on_mark_simulation_attempt_dispatched();
  }
  void mark_simulation_attempt_backtest_started(const Value& attempt_id) override {
    log_.add("tracker.mark_simulation_attempt_backtest_started", {attempt_id});
    on_mark_simulation_attempt_backtest_started();
  }

 private:
  CallLog& log_;
};

// Gives the identities "marker-1", "marker-2", ...
class ScriptedMarkers : public AttemptMarkers {
 public:
  explicit ScriptedMarkers(CallLog& log) : log_(log) {}

  std::function<Value()> on_write_evaluation_attempt_marker = [count = 0]() mutable {
    return Value("marker-" + std::to_string(++count));
  };
  std::function<void()> on_clear_evaluation_attempt_marker = [] {};
  std::function<Value()> on_attempt_declared_data_shape = always("shape");

  [[nodiscard]] Write write_evaluation_attempt_marker() override {
    log_.add("markers.write_evaluation_attempt_marker");
    return [this](const Value& tracker, const Value& graph, const Value& named_universe,
                  const Value& metaparameters, std::string_view phase) {
      log_.add("markers.write_evaluation_attempt_marker",
               {tracker, graph, named_universe, metaparameters, phase});
      return on_write_evaluation_attempt_marker();
    };
  }
  [[nodiscard]] Clear clear_evaluation_attempt_marker() override {
    log_.add("markers.clear_evaluation_attempt_marker");
    return [this](const Value& tracker, const Value& marker_attempt_id) {
      log_.add("markers.clear_evaluation_attempt_marker", {tracker, marker_attempt_id});
      on_clear_evaluation_attempt_marker();
    };
  }
  [[nodiscard]] DataShape attempt_declared_data_shape() override {
    log_.add("markers.attempt_declared_data_shape");
    return [this](const Value& expected_columns) {
      log_.add("markers.attempt_declared_data_shape", {expected_columns});
      return on_attempt_declared_data_shape();
    };
  }

 private:
  CallLog& log_;
};

class ScriptedAccounting : public AttemptAccounting {
 public:
  explicit ScriptedAccounting(CallLog& log) : log_(log) {}

  std::function<Value()> on_build_column_inventory = always("inventory");
  std::function<Value()> on_json_ready = always("ready");

  [[nodiscard]] Value build_column_inventory(const Value& expected_columns,
                                             const Value& per_column_stats) override {
    log_.add("accounting.build_column_inventory", {expected_columns, per_column_stats});
    return on_build_column_inventory();
  }
  [[nodiscard]] Value json_ready(const Value& value) override {
    log_.add("accounting.json_ready", {value});
    return on_json_ready();
  }

 private:
  CallLog& log_;
};

// A queue without processes: what is put is there to be got.
class ScriptedQueue : public MessageQueue, public std::enable_shared_from_this<ScriptedQueue> {
 public:
  ScriptedQueue(CallLog& log, std::string name) : log_(log), name_(std::move(name)) {}

  std::deque<Value> messages;
  bool has_reader = true;
  std::function<void()> on_put = [] {};

  void put(const Value& message) override {
    log_.add(name_ + ".put", {message});
    on_put();
    messages.push_back(message);
  }
  [[nodiscard]] Value get() override {
    log_.add(name_ + ".get()");
    Value message = messages.at(0);
    messages.pop_front();
    return message;
  }
  [[nodiscard]] std::shared_ptr<QueueReader> reader() override {
    return has_reader ? std::make_shared<Reader>(shared_from_this()) : nullptr;
  }

 private:
  class Reader : public QueueReader {
   public:
    explicit Reader(std::shared_ptr<ScriptedQueue> queue) : queue_(std::move(queue)) {}
    [[nodiscard]] bool poll() override {
      queue_->log_.add(queue_->name_ + ".poll()");
      return !queue_->messages.empty();
    }

   private:
    std::shared_ptr<ScriptedQueue> queue_;
  };

  CallLog& log_;
  std::string name_;
};

// Keeps the queues that it made, "queue-0" and so on, in their order.
class ScriptedProcessContexts : public ProcessContexts {
 public:
  explicit ScriptedProcessContexts(CallLog& log) : log_(log) {}

  std::vector<std::shared_ptr<ScriptedQueue>> queues;
  std::function<void()> on_simple_queue = [] {};
  // For tests to which queues do not matter: making and polling them is then not in the log.
  bool is_quiet = false;

  [[nodiscard]] std::shared_ptr<ProcessContext> fork_context() override {
    log_.add("process_contexts.fork_context()");
    return std::make_shared<Context>(*this);
  }

 private:
  class Context : public ProcessContext {
   public:
    explicit Context(ScriptedProcessContexts& contexts) : contexts_(contexts) {}
    [[nodiscard]] std::shared_ptr<MessageQueue> simple_queue() override {
      if (!contexts_.is_quiet) contexts_.log_.add("process_context.simple_queue()");
      contexts_.on_simple_queue();
      const auto queue = std::make_shared<ScriptedQueue>(
          contexts_.log_, "queue-" + std::to_string(contexts_.queues.size()));
      queue->has_reader = !contexts_.is_quiet;
      // A long run would keep every queue that it ever made.
      if (!contexts_.is_quiet) contexts_.queues.push_back(queue);
      return queue;
    }

   private:
    ScriptedProcessContexts& contexts_;
  };

  CallLog& log_;
};

}  // namespace varnholt::genetic::test
