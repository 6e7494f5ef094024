// The pipe from all children to their parent: messages arrive whole, whoever else writes or is
// killed at that time, and looking for one never waits.
// Method: real children that write at once, writers killed at random, interrupted calls.
#include "hosts/embedded/pool/message_pipe.hpp"

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/pool/pool_types.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

class MessagePipeTest : public ProcessTest {
 protected:
  // A child that sends `count` messages to the box `number`, each with its own number.
  static pid_t writer(MessagePipe& pipe, std::uint32_t number, int count, std::size_t size) {
    const pid_t child = fork();
    if (child != 0) return child;
    for (int i = 0; i < count; ++i) {
      std::string message = std::to_string(i) + ' ';
      message.resize(size, static_cast<char>('a' + number % 26));
      pipe.send(number, message);
    }
    _exit(0);
  }
  RealSystemCalls system_;
};

TEST_F(MessagePipeTest, LookingDoesNotWait) {
  MessagePipe pipe(system_);
  EXPECT_FALSE(pipe.poll());
  pipe.send(3, "here");
  pipe.send(4, "");
  EXPECT_TRUE(pipe.poll());
  const PipeMessage first = pipe.take();
  EXPECT_EQ(first.box, 3U);
  EXPECT_EQ(first.bytes, "here");
  EXPECT_EQ(pipe.take().box, 4U);
  EXPECT_FALSE(pipe.poll());
}

TEST_F(MessagePipeTest, MessagesOfManyWritersArriveWholeAndInEachOnesOrder) {
  MessagePipe pipe(system_);
  constexpr int kWriters = 4;
  constexpr int kMessages = 300;
  std::vector<pid_t> writers;
  for (std::uint32_t number = 0; number < kWriters; ++number)
    writers.push_back(writer(pipe, number, kMessages, number % 2 == 0 ? 20 : kLongestPipeMessage));
  std::map<std::uint32_t, int> next;
  for (int i = 0; i < kWriters * kMessages; ++i) {
    const PipeMessage message = pipe.take();
    ASSERT_EQ(std::stoi(message.bytes), next[message.box]++);
    ASSERT_EQ(message.bytes.back(), static_cast<char>('a' + message.box % 26));
  }
  for (const pid_t child : writers)
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(pipe.poll());
}

TEST_F(MessagePipeTest, AKilledWriterLeavesWholeMessagesOnlyAndHoldsUpNobody) {
  MessagePipe pipe(system_);
  for (int run = 0; run < 30; ++run) {
    const pid_t victim = writer(pipe, 0, 1000000, kLongestPipeMessage);
    for (int i = 0; i < run; ++i)
      ASSERT_EQ(std::stoi(pipe.take().bytes), i);
    kill(victim, SIGKILL);
    ASSERT_EQ(waitpid(victim, nullptr, 0), victim);
    int next = run;
    while (pipe.poll()) {
      const PipeMessage message = pipe.take();
      ASSERT_EQ(std::stoi(message.bytes), next++);
      ASSERT_EQ(message.bytes.size(), kLongestPipeMessage);
    }
    // Another one is heard all the same.
    const pid_t sibling = writer(pipe, 1, 1, 10);
    EXPECT_EQ(pipe.take().box, 1U);
    EXPECT_EQ(waitpid(sibling, nullptr, 0), sibling);
  }
}

TEST_F(MessagePipeTest, InterruptionsLoseNothing) {
  InterruptingCalls system;
  MessagePipe pipe(system);
  const pid_t child = writer(pipe, 2, 50, 1000);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(std::stoi(pipe.take().bytes), i);
  EXPECT_GT(system.interruptions, 0);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(MessagePipeTest, RefusesWhatIsTooLongToBeWrittenAtOnce) {
  MessagePipe pipe(system_);
  EXPECT_THROW(pipe.send(0, std::string(kLongestPipeMessage + 1, 'x')), PoolError);
  EXPECT_FALSE(pipe.poll());
}

TEST_F(MessagePipeTest, TellsThatItCannotBeOpened) {
  FailingCalls system(FailingCalls::Call::Pipe, EMFILE, 1);
  EXPECT_THROW(MessagePipe{system}, PoolError);
}

}  // namespace
}  // namespace varnholt::embedded::test
