// A pool as the search calls it, and callbacks that write down what they are told.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/host/embedded_pool.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {

// In a child: what one candidate's work is.
using Work = std::function<genetic::Value(std::int64_t index, std::int64_t attempt)>;

class EmbeddedPoolTest : public ::testing::Test {
 protected:
  ~EmbeddedPoolTest() override {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_EQ(errno, ECHILD);
  }

  // A configuration whose callbacks note what they are told.
  genetic::ProcessEvaluationConfig noting() {
    genetic::ProcessEvaluationConfig config;
    config.n_jobs = 1;
    config.max_retries = 1;
    config.timeout_seconds = 30.0;
    config.worker_memory_limit_bytes = pool_.default_worker_memory_limit_bytes();
    config.pre_dispatch_callback = callback([this](const genetic::Value& event) {
      const genetic::Mapping told = event.mapping();
      // The child reads from the work item which attempt it is.
      genetic::required_attribute(told.at(genetic::keys::kCandidate), "metadata")
          .mapping()
          .set(genetic::keys::kProcessAttempt, told.at(genetic::keys::kAttempt));
      note("dispatch", told);
    });
    config.lifecycle_callback =
        callback([this](const genetic::Value& event) { note("lifecycle", event.mapping()); });
    config.progress_callback =
        callback([this](const genetic::Value& event) { note("progress", event.mapping()); });
    config.completed_result_callback = callback([this](const genetic::Value& result) {
      notes_.push_back("completed " +
                       genetic::str(genetic::required_attribute(result, "candidate_index")));
    });
    config.parent_poll_callback = callback([this](const genetic::Value&) { ++polls_; });
    return config;
  }
  static genetic::Callable callback(std::function<void(const genetic::Value&)> function) {
    return genetic::make_callable(
        [function](std::span<const genetic::Value> positional, const genetic::Mapping&) {
          function(positional.empty() ? genetic::Value() : positional[0]);
          return genetic::Value();
        });
  }
  void note(const std::string& who, const genetic::Mapping& event) {
    std::string text = who;
    if (who != "dispatch") text += " " + genetic::str(event.at(genetic::keys::kEvent));
    text += " " + genetic::str(event.at(genetic::keys::kCandidateIndex)) + "." +
            genetic::str(event.at(genetic::keys::kAttempt));
    if (event.contains(genetic::keys::kRetrying) &&
        genetic::truth(event.at(genetic::keys::kRetrying))) {
      text += " retrying";
    }
    if (event.contains(genetic::keys::kFailureReason)) {
      text += " " + genetic::str(event.at(genetic::keys::kFailureReason));
      details_.push_back(genetic::str(event.at(genetic::keys::kError)));
    }
    notes_.push_back(text);
  }

  // The process results of so many candidates.
  genetic::Value evaluate(std::int64_t count, const Work& work,
                          const genetic::ProcessEvaluationConfig& config) {
    return evaluate(pool_, count, work, config);
  }
  static genetic::Value evaluate(EmbeddedPool& pool, std::int64_t count, const Work& work,
                                 const genetic::ProcessEvaluationConfig& config) {
    genetic::List candidates;
    for (std::int64_t index = 0; index < count; ++index)
      candidates.append(pool.candidate_evaluation(index, genetic::Mapping{{"node", index}}));
    const genetic::Callable simulate = genetic::make_callable(
        [&work](std::span<const genetic::Value> positional, const genetic::Mapping&) {
          const genetic::Value metadata = genetic::required_attribute(positional[0], "metadata");
          return work(genetic::required_attribute(positional[0], "candidate_index").integer(),
                      metadata.mapping().get(genetic::keys::kProcessAttempt, -1).integer());
        });
    return pool.configure([&config] { return config; })
        ->evaluate_candidate_batch(candidates, simulate);
  }
  // The error with which the evaluation ends, as the search sees it.
  genetic::Value failure_of(std::int64_t count, const Work& work,
                            const genetic::ProcessEvaluationConfig& config) {
    try {
      static_cast<void>(evaluate(count, work, config));
    } catch (const std::exception& error) {
      return pool_.as_error(error).value_or(genetic::Value());
    }
    return {};
  }
  static std::string text_of(const genetic::Value& error, const char* name) {
    return genetic::str(genetic::attribute(error, name).value_or(genetic::Value()));
  }
  [[noreturn]] static genetic::Value hang() {
    while (true)
      pause();
  }
  static genetic::Value done(std::int64_t index, std::int64_t /*attempt*/) {
    return genetic::Mapping{{"index", index}};
  }

  RealSystemCalls system_;
  ForkQueues queues_{system_};
  int entered_ = 0;
  EmbeddedPool pool_{system_, queues_, 60.0, [this] { ++entered_; }};
  EmbeddedPool chunk_pool_{system_, queues_, 60.0, [this] { ++entered_; }, Isolation::Chunk};
  std::vector<std::string> notes_;
  std::vector<std::string> details_;
  int polls_ = 0;
};

}  // namespace varnholt::embedded::test
