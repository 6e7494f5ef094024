// Messages from a parent to a child through shared memory: each arrives once and whole, a sleeping
// reader is woken, and what a killed reader did not take is met by the next one.
// Method: real children, interrupted sleeps, readers killed while they wait.
#include "hosts/embedded/pool/mailbox.hpp"

#include <csignal>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

class MailboxTest : public ProcessTest {
 protected:
  RealSystemCalls system_;
  MailboxArena arena_{system_};
};

TEST_F(MailboxTest, GivesItsMessagesInOrder) {
  Mailbox box = arena_.make();
  EXPECT_TRUE(box.put("one"));
  EXPECT_TRUE(box.put(""));
  EXPECT_TRUE(box.put("three"));
  EXPECT_EQ(box.take(), "one");
  EXPECT_EQ(box.take(), "");
  EXPECT_EQ(box.take(), "three");
}

TEST_F(MailboxTest, TakesWhatFitsAndNoMore) {
  Mailbox box = arena_.make();
  EXPECT_FALSE(box.put(std::string(kMailboxBytes, 'x')));
  const std::string large(3000, 'a');
  EXPECT_TRUE(box.put(large));
  EXPECT_FALSE(box.put(large)) << "the first is still there";
  EXPECT_EQ(box.take(), large);
  EXPECT_TRUE(box.put(large)) << "over the end of the ring";
  EXPECT_EQ(box.take(), large);
}

TEST_F(MailboxTest, GoesRoundAndRound) {
  Mailbox box = arena_.make();
  std::mt19937 random(7);
  for (int i = 0; i < 20000; ++i) {
    const std::string first(random() % 700, static_cast<char>('a' + i % 26));
    const std::string second(random() % 700, static_cast<char>('A' + i % 26));
    ASSERT_TRUE(box.put(first));
    ASSERT_TRUE(box.put(second));
    ASSERT_EQ(box.take(), first);
    ASSERT_EQ(box.take(), second);
  }
}

TEST_F(MailboxTest, OfOneArenaDoNotTouchEachOther) {
  std::vector<Mailbox> boxes;
  for (int i = 0; i < 200; ++i) {
    boxes.push_back(arena_.make());
    ASSERT_TRUE(boxes.back().put(std::to_string(i) + std::string(3000, 'x')));
  }
  for (int i = 0; i < 200; ++i)
    EXPECT_EQ(boxes[static_cast<std::size_t>(i)].take(),
              std::to_string(i) + std::string(3000, 'x'));
}

TEST_F(MailboxTest, WakesAChildThatSleeps) {
  Mailbox box = arena_.make();
  Mailbox answer = arena_.make();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (int i = 0; i < 500; ++i) {
      if (!answer.put(box.take() + "!")) _exit(1);
    }
    _exit(0);
  }
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(box.put(std::to_string(i)));
    ASSERT_EQ(answer.take(), std::to_string(i) + "!");
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(MailboxTest, SleepsOnAfterAnInterruption) {
  InterruptingCalls system;
  MailboxArena arena(system);
  Mailbox box = arena.make();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    usleep(20000);
    _exit(box.put("late") ? 0 : 1);
  }
  EXPECT_EQ(box.take(), "late");
  EXPECT_GT(system.interruptions, 0);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(MailboxTest, KeepsWhatAKilledReaderDidNotTake) {
  Mailbox box = arena_.make();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    static_cast<void>(box.take());
    _exit(0);
  }
  usleep(10000);
  kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_TRUE(box.put("for the first"));
  EXPECT_TRUE(box.put("for the second"));
  EXPECT_EQ(run_forked([&box] { EXPECT_EQ(box.take(), "for the first"); }), 0);
  EXPECT_EQ(box.take(), "for the second");
}

}  // namespace
}  // namespace varnholt::embedded::test
