// Goal: the context's process settings are read defensively, and the worker counts follow them.
// Method: scripted attributes of every kind, and the log of what the host is asked.
#include "search_templates/genetic/process/worker_capacity.hpp"

#include <array>
#include <limits>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

class WorkerCapacity : public testing::Test {
 protected:
  Value requested(std::optional<Value> n_jobs) {
    host.context.on_n_jobs = always(std::move(n_jobs));
    return parallel_evaluation_requested_jobs(host.context);
  }
  Value limit(std::optional<Value> bytes) {
    host.context.on_worker_memory_limit_bytes = always(std::move(bytes));
    return context_worker_memory_limit_bytes(host.process_evaluation, host.context);
  }
  // The attribute "_x" as an optional integer.
  Value optional_int(std::optional<Value> value, const Value& fallback = Value()) {
    host.context.on_attribute = always(std::move(value));
    return context_optional_int(host.context, "_x", fallback);
  }
  Value chunk(const Value& batch_size, const Value& jobs, const Value& resolved) {
    host.context.on_n_jobs = always(std::optional<Value>(jobs));
    host.process_evaluation.on_resolve_process_worker_count_details = always(resolved);
    return parent_prefetch_chunk_size(host.bundle(), host.context, batch_size);
  }

  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  ScriptedHost host;
};

TEST_F(WorkerCapacity, RequestedJobsAreAtLeastOne) {
  EXPECT_EQ(requested(std::nullopt), 1);
  EXPECT_EQ(requested(Value(8)), 8);
  EXPECT_EQ(requested(Value("6")), 6);
  EXPECT_EQ(requested(Value(2.9)), 2);  // Truncated, as is 0.5 to 0, and so to 1.
  EXPECT_EQ(requested(Value(0.5)), 1);
  EXPECT_EQ(requested(Value(true)), 1);
  const std::array bad = {Value(),      Value(0),   Value(-4),       Value("many"),
                          Value("2.5"), Value(nan), Value(infinity), Value(List())};
  for (const Value& value : bad)
    EXPECT_EQ(requested(value), 1) << repr(value);
}

TEST_F(WorkerCapacity, ReadingTheJobsIsGuardedAgainstTheThreeKindsAlone) {
  host.context.on_n_jobs = failing(ValueError("worked out on reading"));
  EXPECT_EQ(parallel_evaluation_requested_jobs(host.context), 1);
  host.context.on_n_jobs = failing(RuntimeError("odd"));
  EXPECT_THROW(static_cast<void>(parallel_evaluation_requested_jobs(host.context)), RuntimeError);
}

TEST_F(WorkerCapacity, MemoryLimitFallsBackToTheHostsDefault) {
  host.process_evaluation.on_default_worker_memory_limit_bytes = always(777);
  EXPECT_EQ(limit(Value(1)), 1);
  EXPECT_EQ(limit(Value(2.9)), 2);
  EXPECT_EQ(limit(Value("1024")), 1024);
  EXPECT_EQ(host.log.count("process_evaluation.default_worker_memory_limit_bytes"), 0U);
  EXPECT_EQ(limit(std::nullopt), 777);
  const std::array bad = {Value(),    Value(0),   Value(-1),       Value("much"),
                          Value(0.5), Value(nan), Value(infinity), Value(Mapping())};
  for (const Value& value : bad)
    EXPECT_EQ(limit(value), 777) << repr(value);
  EXPECT_EQ(host.log.count("process_evaluation.default_worker_memory_limit_bytes"), 9U);
}

TEST_F(WorkerCapacity, OptionalIntegers) {
  EXPECT_TRUE(optional_int(std::nullopt).is_absent());
  EXPECT_EQ(optional_int(std::nullopt, 5), 5);
  EXPECT_EQ(optional_int(std::nullopt, "5"), 5);      // The default is converted as well.
  EXPECT_TRUE(optional_int(Value(), 5).is_absent());  // Absent is not missing.
  EXPECT_EQ(optional_int(Value(0), 5), 0);
  EXPECT_EQ(optional_int(Value(-3)), -3);
  EXPECT_EQ(optional_int(Value(2.9)), 2);
  EXPECT_EQ(optional_int(Value("12")), 12);
  for (const Value& value : {Value("twelve"), Value(List()), Value(nan), Value(infinity)})
    EXPECT_TRUE(optional_int(value, 5).is_absent()) << repr(value);
  EXPECT_THAT(host.log.lines(), Contains("context.attribute('_x')"));
}

TEST_F(WorkerCapacity, WorkersAreResolvedLoggedAndGiven) {
  host.context.on_n_jobs = always(Value(6));
  host.process_evaluation.on_resolve_process_worker_count_details = always(4);
  EXPECT_EQ(parallel_evaluation_workers(host.bundle(), host.context, 10), 4);
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("context.n_jobs",
                  "process_evaluation.resolve_process_worker_count_details(6, 10)",
                  "process_evaluation.log_worker_count_reduction(4, 'genetic process evaluation', "
                  "'public search n_jobs remains unchanged; this cap applies only to child "
                  "evaluator processes spawned for this candidate batch')"));
}

TEST_F(WorkerCapacity, WhatTheHostsOperationsThrowPasses) {
  host.process_evaluation.on_resolve_process_worker_count_details = failing(OverflowError("big"));
  EXPECT_THROW(static_cast<void>(parallel_evaluation_workers(host.bundle(), host.context, 1)),
               OverflowError);
  EXPECT_THROW(static_cast<void>(parent_prefetch_chunk_size(host.bundle(), host.context, 1)),
               OverflowError);
}

TEST_F(WorkerCapacity, ChunkOfABatchThatFitsTheJobs) {
  EXPECT_EQ(chunk(3, 8, 8), 3);  // At most the batch,
  EXPECT_EQ(chunk(3, 8, 2), 2);  // at most the workers,
  EXPECT_EQ(chunk(8, 8, 5), 5);
  EXPECT_EQ(chunk(8, 8, 20), 8);  // also where the batch equals the jobs,
  EXPECT_EQ(chunk(3, 8, 0), 1);   // and at least one.
  EXPECT_EQ(chunk(0, 8, 4), 1);
}

TEST_F(WorkerCapacity, ChunkOfALargerBatch) {
  EXPECT_EQ(chunk(9, 8, 20), 20);  // The workers, even if they are more than the batch.
  EXPECT_EQ(chunk(9, 8, 0), 1);
  EXPECT_EQ(chunk(9, 8, -2), 1);
}

TEST_F(WorkerCapacity, TheJobsAreReadTwiceForAChunk) {
  host.context.on_n_jobs = in_turn<std::optional<Value>>({Value(8), Value(2)});
  host.process_evaluation.on_resolve_process_worker_count_details = always(5);
  // The first reading asks the host, the second compares: 3 is more than 2.
  EXPECT_EQ(parent_prefetch_chunk_size(host.bundle(), host.context, 3), 5);
  EXPECT_THAT(
      host.log.names(),
      ElementsAre("context.n_jobs", "process_evaluation.resolve_process_worker_count_details",
                  "process_evaluation.log_worker_count_reduction", "context.n_jobs"));
  EXPECT_THAT(host.log.lines(),
              Contains("process_evaluation.resolve_process_worker_count_details(8, 3)"));
}

}  // namespace
}  // namespace varnholt::genetic::test
