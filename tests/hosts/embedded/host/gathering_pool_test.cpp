// What a batch records is in the file before any other process can learn of it, and what is told to
// a child waits for that.
// Method: a record in memory that children see; system calls that look at it before they fork or
// wait.
#include <csignal>
#include <vector>

#include <sys/mman.h>

#include "hosts/embedded/store/store_error.hpp"
#include "tests/hosts/embedded/host/embedded_pool_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Callable;
using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

// The state of a record that is gathered, in memory that the children see.
class NotedWrites : public GatheredWrites {
 public:
  explicit NotedWrites(std::vector<std::string>& notes) : notes_(notes) {}
  ~NotedWrites() override { ::munmap(shared_, sizeof(*shared_)); }

  void write() { ++shared_->written; }
  [[nodiscard]] bool is_in_file() const { return shared_->in_file == shared_->written; }

  void begin_gathering() override { notes_.emplace_back("begin gathering"); }
  void put_in_file() override {
    if (refuses) throw StoreDiskError("runs.db", "the disk is full", "free some space");
    shared_->in_file = shared_->written;
  }
  void end_gathering() override {
    notes_.emplace_back("end gathering");
    put_in_file();
  }

  bool refuses = false;

 private:
  struct Shared {
    int written = 0;
    int in_file = 0;
  };
  std::vector<std::string>& notes_;
  Shared* shared_ = new (::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
};

// Counts the moments at which others might run while a record is not in the file.
class WatchfulCalls : public RealSystemCalls {
 public:
  explicit WatchfulCalls(const NotedWrites& writes) : writes_(writes) {}

  pid_t fork() override {
    look();
    return RealSystemCalls::fork();
  }
  int poll(pollfd* entries, nfds_t count, int timeout_milliseconds) override {
    look();
    return RealSystemCalls::poll(entries, count, timeout_milliseconds);
  }

  int looks = 0;
  int too_early = 0;

 private:
  void look() {
    ++looks;
    if (!writes_.is_in_file()) ++too_early;
  }
  const NotedWrites& writes_;
};

class GatheringPoolTest : public EmbeddedPoolTest {
 protected:
  GatheringPoolTest() { gathering_.gather_writes(writes_); }

  // A configuration each of whose callbacks writes.
  genetic::ProcessEvaluationConfig writing() {
    genetic::ProcessEvaluationConfig config = noting();
    for (Callable* const told : {&config.pre_dispatch_callback, &config.lifecycle_callback,
                                 &config.progress_callback, &config.completed_result_callback}) {
      *told = callback([this, noted = *told](const Value& event) {
        writes_.write();
        static_cast<void>(noted({event}));
      });
    }
    return config;
  }

  NotedWrites writes_{notes_};
  WatchfulCalls watchful_{writes_};
  ForkQueues own_queues_{watchful_};
  EmbeddedPool gathering_{watchful_, own_queues_, 60.0, [] {}, Isolation::Chunk};
};

TEST_F(GatheringPoolTest, NobodyRunsBeforeTheRecordIsInTheFile) {
  genetic::ProcessEvaluationConfig config = writing();
  config.n_jobs = 2;
  const Work second_is_lost = [](std::int64_t index, std::int64_t attempt) {
    if (index == 1 && attempt == 0) ::raise(SIGKILL);
    return done(index, attempt);
  };
  const Value results = evaluate(gathering_, 40, second_is_lost, config);
  EXPECT_EQ(results.list().size(), 40U);
  EXPECT_GT(watchful_.looks, 4);
  EXPECT_EQ(watchful_.too_early, 0);
  EXPECT_TRUE(writes_.is_in_file());
  EXPECT_EQ(notes_.front(), "begin gathering");
  EXPECT_EQ(notes_.back(), "end gathering");
}

TEST_F(GatheringPoolTest, AChildHasItsAnswerWhenTheRecordIsInTheFile) {
  const auto context = own_queues_.fork_context();
  const auto asked = context->simple_queue();
  const auto answer = context->simple_queue();
  genetic::ProcessEvaluationConfig config = writing();
  config.parent_poll_callback = callback([&](const Value&) {
    while (asked->reader()->poll()) {
      writes_.write();
      answer->put(asked->get());
    }
  });
  const Work asking = [&](std::int64_t index, std::int64_t) -> Value {
    asked->put(Tuple{index});
    static_cast<void>(answer->get());
    return Mapping{{"index", index}, {"in_file", writes_.is_in_file()}};
  };
  const Value results = evaluate(gathering_, 20, asking, config);
  ASSERT_EQ(results.list().size(), 20U);
  for (std::size_t i = 0; i < 20; ++i) {
    const Value told = genetic::required_attribute(results.list().at(i), "payload");
    EXPECT_TRUE(told.mapping().at("in_file").boolean()) << i;
  }
}

TEST_F(GatheringPoolTest, WhatCannotBePutInTheFileEndsTheBatch) {
  genetic::ProcessEvaluationConfig config = writing();
  config.parent_poll_callback = callback([this](const Value&) { writes_.refuses = true; });
  EXPECT_THROW(static_cast<void>(evaluate(
                   gathering_, 3, [](std::int64_t, std::int64_t) -> Value { hang(); }, config)),
               StoreDiskError);
  EXPECT_EQ(notes_.back(), "end gathering");
}

TEST_F(GatheringPoolTest, TheRecordOfALostCandidateIsInTheFileBeforeItIsTold) {
  genetic::ProcessEvaluationConfig config = writing();
  config.max_retries = 0;
  const Work lost = [](std::int64_t, std::int64_t) -> Value {
    ::raise(SIGKILL);
    return {};
  };
  EXPECT_THROW(static_cast<void>(evaluate(gathering_, 1, lost, config)), ProcessEvaluationError);
  EXPECT_TRUE(writes_.is_in_file());
  config.lifecycle_callback = callback([this](const Value& event) {
    writes_.refuses = event.mapping().contains(keys::kFailureReason);
  });
  EXPECT_THROW(static_cast<void>(evaluate(gathering_, 1, lost, config)), StoreDiskError)
      << "a search that goes on would take the record for written";
}

}  // namespace
}  // namespace varnholt::embedded::test
