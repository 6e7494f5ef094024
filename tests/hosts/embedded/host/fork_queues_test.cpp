// The queues of a batch between real processes: what either side puts comes out at the other side
// of the same queue, once, and a killed process holds up nobody.
// Method: forked children that ask and wait, some of them killed while they do.
#include "hosts/embedded/host/fork_queues.hpp"

#include <csignal>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::MessageQueue;
using genetic::Tuple;
using genetic::Value;

class ForkQueuesTest : public ::testing::Test {
 protected:
  // A child that runs `body` and exits well unless that fails or throws.
  template <typename Body>
  static pid_t child(const Body& body) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    try {
      body();
    } catch (...) {
      _exit(1);
    }
    _exit(0);
  }
  static int status_of(pid_t pid) {
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return status;
  }
  static void wait_for(MessageQueue& queue) {
    while (!queue.reader()->poll())
      usleep(100);
  }

  RealSystemCalls system_;
  ForkQueues queues_{system_};
  std::shared_ptr<genetic::ProcessContext> context_ = queues_.fork_context();
  std::shared_ptr<MessageQueue> boundary_ = context_->simple_queue();
  std::shared_ptr<MessageQueue> first_ = context_->simple_queue();
  std::shared_ptr<MessageQueue> second_ = context_->simple_queue();
};

TEST_F(ForkQueuesTest, AChildIsHeardAndAnsweredOnItsOwnQueue) {
  EXPECT_FALSE(boundary_->reader()->poll());
  const pid_t one = child([this] {
    boundary_->put(Tuple{0, 0});
    if (genetic::repr(first_->get()) != "(0, 0, True, None, 11)") _exit(2);
  });
  const pid_t two = child([this] {
    boundary_->put(Tuple{1, 0});
    if (genetic::repr(second_->get()) != "(1, 0, False, 'no room', None)") _exit(2);
  });
  for (int i = 0; i < 2; ++i) {
    wait_for(*boundary_);
    const Value signal = boundary_->get();
    if (signal.tuple().at(0).integer() == 0) {
      first_->put(Tuple{0, 0, true, Value(), 11});
    } else {
      second_->put(Tuple{1, 0, false, "no room", Value()});
    }
  }
  EXPECT_EQ(status_of(one), 0);
  EXPECT_EQ(status_of(two), 0);
  EXPECT_FALSE(boundary_->reader()->poll());
}

TEST_F(ForkQueuesTest, AnAnswerThatWasNotTakenIsMetByTheNextChild) {
  const pid_t lost = child([this] {
    boundary_->put(Tuple{0, 0});
    while (true)
      pause();
  });
  wait_for(*boundary_);
  static_cast<void>(boundary_->get());
  first_->put(Tuple{0, 0, true, Value(), 11});
  kill(lost, SIGKILL);
  static_cast<void>(status_of(lost));
  const pid_t next = child([this] {
    if (genetic::repr(first_->get()) != "(0, 0, True, None, 11)") _exit(2);
  });
  EXPECT_EQ(status_of(next), 0);
}

TEST_F(ForkQueuesTest, MessagesOfOtherQueuesWaitForTheirReaders) {
  const pid_t pid = child([this] {
    second_->put(Tuple{"second"});
    boundary_->put(Tuple{"boundary"});
  });
  EXPECT_EQ(status_of(pid), 0);
  wait_for(*boundary_);
  EXPECT_EQ(boundary_->get().tuple().at(0).text(), "boundary");
  EXPECT_TRUE(second_->reader()->poll());
  EXPECT_EQ(second_->get().tuple().at(0).text(), "second");
}

TEST_F(ForkQueuesTest, TheParentIsNeverHeldUpByAChildThatDoesNotRead) {
  const std::string text(1000, 'x');
  const auto fill = [&] {
    for (int i = 0; i < 10; ++i)
      first_->put(Tuple{text});
  };
  EXPECT_THROW(fill(), genetic::RuntimeError);
}

TEST_F(ForkQueuesTest, HeldMessagesAreSentInTheirOrder) {
  queues_.hold_messages();
  first_->put(Tuple{1});
  second_->put(Tuple{2});
  first_->put(Tuple{3});
  const pid_t waiting = child([this] { static_cast<void>(first_->get()); });
  usleep(20'000);
  EXPECT_EQ(waitpid(waiting, nullptr, WNOHANG), 0) << "it has an answer that was not sent";
  kill(waiting, SIGKILL);
  static_cast<void>(status_of(waiting));
  queues_.send_held();
  queues_.send_held();
  const pid_t answered = child([this] {
    if (genetic::repr(first_->get()) != "(1,)" || genetic::repr(first_->get()) != "(3,)") _exit(2);
    if (genetic::repr(second_->get()) != "(2,)") _exit(3);
  });
  EXPECT_EQ(status_of(answered), 0);
}

TEST_F(ForkQueuesTest, TheDescriptorsAreThoseOfTheBatchUnderWay) {
  ASSERT_EQ(queues_.parent_descriptors().size(), 1U);
  const int earlier = queues_.parent_descriptors().at(0);
  const auto other = queues_.fork_context();
  ASSERT_EQ(queues_.parent_descriptors().size(), 1U);
  EXPECT_NE(queues_.parent_descriptors().at(0), earlier);
  ForkQueues none(system_);
  EXPECT_TRUE(none.parent_descriptors().empty());
}

}  // namespace
}  // namespace varnholt::embedded::test
